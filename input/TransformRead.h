// TransformRead: the transform (type 1) that brings data into a job.
//
// It builds three collaborators in CreateController: the controller named by
// the type attribute of the INPUTSTREAM element (where data sets come from),
// the reader named by the option readtype (how a data set is cut into
// records), which it positions on the first record, and a StructuredReader
// (how records become transactions). Process reads everything in one call.
// Because the reader is positioned in CreateController, a missing directory
// or an unreadable first file fails there, before Process.
//
// Controllers: 1 FileIOController; 2 DBIOController and 4 HttpIOController
// are not built in this engine (10503). Readers: 1 CSVReader; 2, 3, 6, 7, 8
// and 10 are not built (10503); any other readtype raises the general error
// "Reader Type [%1%2] is invalid.". An INPUTSTREAM type outside the table
// leaves no controller: 91.
//
// Ownership: the transform holds the factory (which owns the data document
// and the definition), the controller, the reader and the StructuredReader.
#pragma once

#include <memory>
#include <string>

#include "job/ITransformController.h"
#include "store/XMLWrapper.h"

namespace tessel {

class IImportReader;
class IInputOutputController;
class StructuredReader;

class TransformRead : public ITransformController {
 public:
  static constexpr int32_t kNotBuilt = 10503;

  TransformRead();
  ~TransformRead() override;

  Ref<XMLWrapper> TransformedData() override;
  std::shared_ptr<tessel::TransformDefinition> TransformDefinition() override;
  std::shared_ptr<tessel::TransactionFactory> TransactionFactory() override;
  void CreateController(std::shared_ptr<tessel::TransformDefinition> previous, IEvent& event,
                        std::shared_ptr<tessel::TransactionFactory> factory, bool testMode) override;
  void Process() override;

  // The collaborators, once built.
  const std::shared_ptr<IInputOutputController>& Controller() const { return controller_; }
  const std::shared_ptr<IImportReader>& Reader() const { return reader_; }

 private:
  void CreateReader();
  std::shared_ptr<IInputOutputController> CreateController(XMLWrapper& definitionWrapper);

  std::shared_ptr<tessel::TransactionFactory> factory_;
  std::shared_ptr<tessel::TransformDefinition> definition_;
  Ref<XMLWrapper> definitionWrapper_;
  std::shared_ptr<IInputOutputController> controller_;
  std::shared_ptr<IImportReader> reader_;
  std::unique_ptr<StructuredReader> structuredReader_;
};

}  // namespace tessel
