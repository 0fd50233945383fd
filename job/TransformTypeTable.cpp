#include "job/TransformTypeTable.h"

#include "audit/HuntErr.h"
#include "input/TransformRead.h"
#include "job/ITransformController.h"
#include "output/TransformWrite.h"
#include "transforms/TransformFilter.h"
#include "transforms/TransformFlatten.h"
#include "transforms/TransformMap.h"

namespace tessel {

namespace {
constexpr int32_t kErrTypeNotImplemented = 10503;
}

TransformTypeTable TransformTypeTable::Standard() {
  TransformTypeTable table;
  const std::pair<int, const char*> known[] = {
      {1, "TransformRead"},       {2, "TransformWrite"},       {3, "TransformFlatten"},
      {4, "TransformHeirarchy"},  {5, "TransformMap"},         {8, "TransformTranslate"},
      {11, "TransformAggregate"}, {12, "TransformControllerInterop"}, {13, "TransformFilter"},
      {14, "TransformGenerate"},  {50, "TransformAccpac"},     {51, "TransformSage200"},
      {52, "TransformSystemConnector"}, {54, "TransformSystemConnector"}, {55, "TransformSystemConnector"},
      {56, "TransformSystemConnector"}, {57, "TransformSystemConnector"}, {90, "TransformSystemConnector"},
      {100, "TransformControllerInterop"}, {101, "TransformControllerInterop"},
      {102, "TransformControllerInterop"}, {103, "TransformTaskVbScript"}, {104, "TransformTaskProcess"},
      {6, ""}, {7, ""}, {9, ""}, {10, ""}};
  for (const auto& [type, name] : known) table.RegisterNotBuilt(type, name);
  table.Register(1, "TransformRead", [] { return std::make_shared<TransformRead>(); });
  table.Register(2, "TransformWrite", [] { return std::make_shared<TransformWrite>(); });
  table.Register(3, "TransformFlatten", [] { return std::make_shared<TransformFlatten>(); });
  table.Register(5, "TransformMap", [] { return std::make_shared<TransformMap>(); });
  table.Register(13, "TransformFilter", [] { return std::make_shared<TransformFilter>(); });
  return table;
}

void TransformTypeTable::Register(int type, std::string className, Maker maker) {
  entries_[type] = Entry{std::move(className), std::move(maker)};
}

void TransformTypeTable::RegisterNotBuilt(int type, std::string className) {
  entries_[type] = Entry{std::move(className), Maker()};
}

std::string TransformTypeTable::ClassName(int type) const {
  auto found = entries_.find(type);
  return found == entries_.end() ? std::string() : found->second.className;
}

std::shared_ptr<ITransformController> TransformTypeTable::Create(int type, const std::string& transformId) const {
  try {
    auto found = entries_.find(type);
    if (found == entries_.end()) return nullptr;
    Check(static_cast<bool>(found->second.maker), kErrTypeNotImplemented,
          "Transform [%1] failed as the Transform Type [%2] is not yet implemented.",
          {Variant(transformId), Variant(static_cast<int32_t>(type))});
    return found->second.maker();
  } catch (...) {
    ErrorInRethrow("TransformCoordinator.CreateTransform(oTfmDefinition)",
            {Variant(transformId), Variant(static_cast<int32_t>(type))});
  }
}

}  // namespace tessel
