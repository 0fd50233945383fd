#include "output/TransformWrite.h"

#include "audit/HuntErr.h"
#include "audit/IEvent.h"
#include "core/RuntimeError.h"
#include "input/FileIOController.h"
#include "input/IHeirachicalDataIterator.h"
#include "job/TransformDefinition.h"
#include "output/CSVWriter.h"
#include "output/WriteRecordCache.h"
#include "store/Transaction.h"
#include "store/TransactionFactory.h"

namespace tessel {

namespace {
constexpr std::string_view kCommitRecordNotOnLineText =
    "Commit record [%1] of transform [%2] is not the only record type on the line of first child records from the "
    "top record, so it cannot delimit output files. Commit on the top record.";
}  // namespace

TransformWrite::TransformWrite() = default;
TransformWrite::~TransformWrite() = default;

Ref<XMLWrapper> TransformWrite::TransformedData() { return factory_->Data(); }
std::shared_ptr<tessel::TransformDefinition> TransformWrite::TransformDefinition() {
  return factory_->TransformDefinition();
}
std::shared_ptr<tessel::TransactionFactory> TransformWrite::TransactionFactory() { return factory_; }

std::string TransformWrite::WriterClassName(int16_t writeType) {
  switch (writeType) {
    case 1: return "CSVWriter";
    case 2: return "DBWriter";
    case 4: return "XMLWriter";
    case 5: return "FixedLengthWriter";
    case 6: return "XLWriter";
    default: return {};
  }
}

void TransformWrite::CreateController(std::shared_ptr<tessel::TransformDefinition> previous, IEvent& event,
                                      std::shared_ptr<tessel::TransactionFactory> factory, bool testMode) {
  try {
    factory_ = std::move(factory);
    definition_ = factory_->TransformDefinition();
    transformId_ = definition_->TransformId();

    commitTran_ = definition_->Property("committran").ToString();
    commit_ = !commitTran_.empty();
    if (commit_) CreateWriteCache();
    if (definition_->HasProperty("filenotran")) fileNoTran_ = definition_->Property("filenotran").ToBool();
    writeType_ = definition_->Property("writetype").ToInteger();

    CreateOutputController(*definition_->TransformDefinitionXWrapper());
    CreateWriter(writeType_);

    std::vector<std::string> tranOrder;
    GenerateTransactionExportSequence("", tranOrder);
    // An unknown writetype leaves no writer, and the first use fails on it.
    if (!writer_) ThrowRuntimeError(91);
    writer_->InitClass(definition_, controller_, tranOrder, cache_);
    event_ = &event;
  } catch (...) {
    ErrorInRethrow("TransformWrite.ITransformController_CreateController(oPrevious, oEvent, oTransactionFactory, "
                   "bTestMode)",
                   {Variant::Nothing(), Variant::Nothing(), Variant::Nothing(), Variant(testMode)});
  }
}

void TransformWrite::CreateWriter(int16_t writeType) {
  try {
    writer_.reset();
    writerTree_ = nullptr;
    if (writeType == 1) {
      writer_ = std::make_shared<CSVWriter>();
    } else {
      const std::string className = WriterClassName(writeType);
      Check(className.empty(), kNotBuilt,
            "Transform [%1] failed as the Writer Type [%2] (%3) is not yet implemented.",
            {Variant(transformId_), Variant::FromInteger(writeType), Variant(className)});
    }
    writerTree_ = dynamic_cast<IHeirachicalDataIterator*>(writer_.get());
  } catch (...) {
    ErrorInRethrow("TransformWrite.CreateWriter(eWriter)", {Variant::FromInteger(writeType)});
  }
}

void TransformWrite::CreateOutputController(XMLWrapper& definitionWrapper) {
  int32_t type = 0;
  try {
    Ref<XMLWrapper> streamWrapper = definitionWrapper.CopyNodeIntoNewWrapper("TRANSFORM/INPUTSTREAM");
    type = Variant(streamWrapper->GetAttributeFromNode(streamWrapper->GetNodeFromXPath("/INPUTSTREAM"), "type"))
               .ToLong();
    controller_.reset();
    if (type == 1) {
      controller_ = std::make_shared<FileIOController>();
    } else {
      const char* className = type == 2 ? "DBIOController" : type == 4 ? "HttpIOController" : nullptr;
      Check(className == nullptr, kNotBuilt,
            "Transform [%1] failed as the Input Stream Type [%2] (%3) is not yet implemented.",
            {Variant(transformId_), Variant(type), Variant(className == nullptr ? "" : className)});
      // Any other type names no controller: the first use fails on it.
      ThrowRuntimeError(91);
    }
    controller_->Initialise(streamWrapper);
  } catch (...) {
    ErrorInRethrow("TransformWrite.CreateController(oXWrapper)", {Variant(type)});
  }
}

void TransformWrite::GenerateTransactionExportSequence(const std::string& parent, std::vector<std::string>& result) {
  try {
    for (xmlNodePtr record : definition_->RecordDescendents(parent)) {
      std::string id = definition_->RecordId(record);
      result.push_back(id);
      GenerateTransactionExportSequence(id, result);
    }
  } catch (...) {
    ErrorInRethrow("TransformWrite.GenerateTransactionExportSequence(sTranOrder, sResult)", {Variant(parent)});
  }
}

void TransformWrite::CreateWriteCache() {
  try {
    cache_.reset();
    if (!commit_) return;
    auto cache = std::make_shared<WriteRecordCache>();
    std::shared_ptr<WriteRecordcacheItem> previous;
    std::string current;
    // The walk follows first child records down from the top. It ends on the
    // commit record as the only child of its parent; a commit record anywhere
    // else could never end it.
    for (;;) {
      const std::vector<xmlNodePtr> nodes = definition_->RecordDescendents(current);
      const bool endless = nodes.empty() || (definition_->RecordId(nodes.front()) == commitTran_ && nodes.size() != 1);
      Check(!endless, kCommitRecordNotOnLine,
            kCommitRecordNotOnLineText,
            {Variant(commitTran_), Variant(transformId_)});
      current = definition_->RecordId(nodes.front());
      if (current == commitTran_) break;
      auto item = std::make_shared<WriteRecordcacheItem>(current);
      Check(cache->Items().count(current) == 0, kCommitRecordNotOnLine,
            kCommitRecordNotOnLineText,
            {Variant(commitTran_), Variant(transformId_)});
      if (previous) previous->SetNextItem(item);
      cache->AddCacheItem(current, item);
      if (!cache->EntryItem()) cache->SetEntryItem(item);
      previous = item;
    }
    cache_ = std::move(cache);
  } catch (...) {
    ErrorInRethrow("TransformWrite.CreateWriteCache()");
  }
}

void TransformWrite::OpenTransactionSelector() {
  try {
    selector_ = factory_->CreateTransactionSelector();
    const std::vector<xmlNodePtr> tops = definition_->RecordDescendents("");
    Check(!tops.empty(), 7703, "No top record is defined in transform [%1].",
          Variant(transformId_));
    const std::string top = definition_->RecordId(tops.front());
    selector_->SetReturnTransaction(top);
    selector_->AddSearch(top, "*");
    selector_->OpenResultset();
    selector_->MoveFirst();
  } catch (...) {
    ErrorInRethrow("TransformWrite.OpenTransactionSelector()");
  }
}

void TransformWrite::Process() {
  try {
    OpenTransactionSelector();
    if (selector_->Count() == 0 && !fileNoTran_) return;
    Ref<Transaction> first;
    if (!commit_) {
      writer_->ExpectRecords(selector_->Count());
      writer_->BeginTransaction();
      if (!selector_->EOF_()) first = selector_->Item();
    }
    PerformTransform();
    if (!commit_) writer_->Commit(first.get());
  } catch (...) {
    ErrorInRethrow("TransformWrite.ITransformController_Process()");
  }
}

void TransformWrite::PerformTransform() {
  std::string recordId;
  int32_t l = 0;
  try {
    bool hasChildren = false;
    const int32_t count = selector_->Count();
    for (l = 0; l < count; ++l) {
      Ref<Transaction> transaction = selector_->Item();
      std::string eventId;
      event_->OnProcess(transformId_, transaction.get(), eventId);
      if (l == 0) {
        recordId = transaction->TransactionId();
        hasChildren = !definition_->RecordDescendents(recordId).empty();
      } else if (commit_ && recordId == commitTran_) {
        // The first unit of a level holds the ancestors already: they were
        // just written the ordinary way.
        writer_->WriteCachedRecords();
      }
      if (recordId == commitTran_) writer_->BeginTransaction();
      writer_->WriteRecord(*transaction);
      if (hasChildren) {
        for (xmlNodePtr child : definition_->RecordDescendents(recordId)) {
          const std::string childId = definition_->RecordId(child);
          if (selector_->ChildCount(childId) > 0) {
            selector_->MoveChild(childId);
            if (writerTree_) writerTree_->MoveChild(childId);
            PerformTransform();
          }
        }
      }
      if (recordId == commitTran_) writer_->Commit(transaction.get());
      if (l < count - 1) selector_->MoveNext();
    }
    if (selector_->HasParent()) {
      selector_->MoveParent();
      if (writerTree_) writerTree_->MoveParent();
    }
  } catch (...) {
    ErrInsertTrace(BuildCheckMessage("Error whilst processing [%1] record [%2].||%3",
                                     {Variant(recordId), Variant(l + 1), Variant(ErrTraceFreeDescription())}));
    ErrorInRethrow("TransformWrite.PerformTransform()");
  }
}

}  // namespace tessel
