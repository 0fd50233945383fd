#include "input/TransformRead.h"

#include "audit/HuntErr.h"
#include "core/RuntimeError.h"
#include "input/CSVReader.h"
#include "input/FileIOController.h"
#include "input/IImportReader.h"
#include "input/IInputOutputController.h"
#include "input/StructuredReader.h"
#include "job/TransformDefinition.h"
#include "store/TransactionFactory.h"

namespace tessel {

TransformRead::TransformRead() = default;
TransformRead::~TransformRead() = default;

Ref<XMLWrapper> TransformRead::TransformedData() { return factory_ ? factory_->Data() : Ref<XMLWrapper>(); }

std::shared_ptr<TransformDefinition> TransformRead::TransformDefinition() {
  return factory_ ? factory_->TransformDefinition() : nullptr;
}

std::shared_ptr<TransactionFactory> TransformRead::TransactionFactory() { return factory_; }

void TransformRead::CreateController(std::shared_ptr<tessel::TransformDefinition> previous, IEvent& event,
                                     std::shared_ptr<tessel::TransactionFactory> factory, bool testMode) {
  try {
    if (!factory) ThrowRuntimeError(91);
    factory_ = std::move(factory);
    definition_ = factory_->TransformDefinition();
    if (!definition_) ThrowRuntimeError(91);
    structuredReader_ = std::make_unique<StructuredReader>();
    definitionWrapper_ = definition_->TransformDefinitionXWrapper();
    if (!definitionWrapper_) ThrowRuntimeError(91);
    controller_ = CreateController(*definitionWrapper_);
    CreateReader();
    reader_->InitClass(definition_, controller_, testMode);
    structuredReader_->InitClass(definition_, factory_, reader_, &event);
  } catch (...) {
    ErrorInRethrow("TransformRead.ITransformController_CreateController(oPrevious, oEvent, oTransactionFactory, "
                   "bTestMode)",
                   {Variant(), Variant(), Variant(), Variant(testMode)});
  }
}

std::shared_ptr<IInputOutputController> TransformRead::CreateController(XMLWrapper& definitionWrapper) {
  try {
    Ref<XMLWrapper> stream = definitionWrapper.CopyNodeIntoNewWrapper("/TRANSFORM/INPUTSTREAM");
    const int32_t type =
        Variant(stream->GetAttributeFromNode(stream->GetNodeFromXPath("/INPUTSTREAM"), "type")).ToLong();
    std::shared_ptr<IInputOutputController> controller;
    switch (type) {
      case 1: controller = std::make_shared<FileIOController>(); break;
      case 2:
      case 4:
        Check(false, kNotBuilt, "Transform [%1] failed as the Input Stream Type [%2] (%3) is not yet implemented.",
                    {Variant(definition_->TransformId()), Variant(type),
                                                   Variant(type == 2 ? "DBIOController" : "HttpIOController")});
        break;
      default: break;
    }
    // A type outside the table leaves no controller to initialise.
    if (!controller) ThrowRuntimeError(91);
    controller->Initialise(stream);
    return controller;
  } catch (...) {
    ErrorInRethrow("TransformRead.CreateController(oXWrapper)", {});
  }
}

void TransformRead::CreateReader() {
  try {
    const int16_t readType = definition_->Property("readtype").ToInteger();
    std::string suffix;
    const char* notBuilt = nullptr;
    switch (readType) {
      case 1: reader_ = std::make_shared<CSVReader>(); break;
      case 2: notBuilt = "DBReader"; break;
      case 3: notBuilt = "XMLReader"; break;
      case 6: notBuilt = "FixedLengthReader"; break;
      case 7: notBuilt = "XLReader"; break;
      case 8: notBuilt = "CustomReader"; break;
      case 10:
        suffix = "-" + definition_->Property("assembly").ToString();
        notBuilt = "CustomReader";
        break;
      default: break;
    }
    if (notBuilt != nullptr) {
      Check(false, kNotBuilt, "Transform [%1] failed as the Reader Type [%2] (%3) is not yet implemented.",
                  {Variant(definition_->TransformId()),
                                                 Variant(std::to_string(readType) + suffix), Variant(notBuilt)});
    }
    Check(static_cast<bool>(reader_), Error::kGeneral, "Reader Type [%1%2] is invalid.",
          {Variant(static_cast<int32_t>(readType)), Variant(suffix)});
  } catch (...) {
    ErrorInRethrow("TransformRead.CreateReader()", {});
  }
}

void TransformRead::Process() {
  try {
    if (!structuredReader_) ThrowRuntimeError(91);
    structuredReader_->Read();
  } catch (...) {
    ErrorInRethrow("TransformRead.ITransformController_Process()", {});
  }
}

}  // namespace tessel
