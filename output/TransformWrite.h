// TransformWrite: the transform that sends its data document to an output.
//
// It walks the records depth first, parents before their children, and hands
// each to its IOutputWriter (chosen by the option writetype), which formats and
// buffers it; the writer hands finished units to the IInputOutputController
// chosen by the type attribute of TRANSFORM/INPUTSTREAM. The option committran
// names the record type that delimits units: empty makes the whole run one
// unit, otherwise each record of that type ends a unit of its own. With
// filenotran an empty run still produces its (empty) unit.
//
// Ownership: the transform owns writer, controller, selector and the write
// cache; the factory (and the data document) belong to the coordinator; the
// event sink is borrowed for the run.
//
// Errors: 10503 a writer or controller type that this engine does not have
// yet; 91 for a writetype or controller type that names no class at all; 9004
// a commit record off the line of first child records.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "job/ITransformController.h"
#include "store/TransactionSelector.h"

namespace tessel {

class IHeirachicalDataIterator;
class IInputOutputController;
class IOutputWriter;
class WriteRecordCache;

class TransformWrite : public ITransformController {
 public:
  // Writer and controller types named but not built in this engine.
  static constexpr int32_t kNotBuilt = 10503;
  static constexpr int32_t kCommitRecordNotOnLine = 9004;

  TransformWrite();
  ~TransformWrite() override;

  Ref<XMLWrapper> TransformedData() override;
  std::shared_ptr<tessel::TransformDefinition> TransformDefinition() override;
  std::shared_ptr<tessel::TransactionFactory> TransactionFactory() override;
  void CreateController(std::shared_ptr<tessel::TransformDefinition> previous, IEvent& event,
                        std::shared_ptr<tessel::TransactionFactory> factory, bool testMode) override;
  void Process() override;

  // The writer's class name for a writetype; "" when the number names none.
  static std::string WriterClassName(int16_t writeType);

 private:
  void CreateWriter(int16_t writeType);
  void CreateOutputController(XMLWrapper& definitionWrapper);
  void GenerateTransactionExportSequence(const std::string& parent, std::vector<std::string>& result);
  void OpenTransactionSelector();
  void PerformTransform();
  void CreateWriteCache();

  std::string transformId_;
  bool commit_ = false;
  std::string commitTran_;
  bool fileNoTran_ = false;
  int16_t writeType_ = 0;
  std::shared_ptr<tessel::TransformDefinition> definition_;
  std::shared_ptr<tessel::TransactionFactory> factory_;
  Ref<TransactionSelector> selector_;
  std::shared_ptr<IOutputWriter> writer_;
  // The writer again, when it walks an output tree of its own in step with
  // the records (it then follows every MoveChild and MoveParent).
  IHeirachicalDataIterator* writerTree_ = nullptr;
  std::shared_ptr<IInputOutputController> controller_;
  std::shared_ptr<WriteRecordCache> cache_;
  IEvent* event_ = nullptr;
};

}  // namespace tessel
