// ITransformController: what every transform is to the coordinator.
//
// The coordinator calls CreateController, then Process, then reads the three
// properties as it needs them. A transform reads its options, its action on
// error and its previous definition in CreateController, so that one that
// cannot configure itself fails before Process. Process raises on failure.
//
// Controllers are shared: the walk hands the last controller of a chain to the
// next step, which takes its definition and data from it.
#pragma once

#include "store/XMLWrapper.h"
#include <memory>

namespace tessel {

class IEvent;
class TransactionFactory;
class TransformDefinition;


class ITransformController {
 public:
  virtual ~ITransformController() = default;

  // The data document the transform leaves behind.
  virtual Ref<XMLWrapper> TransformedData() = 0;
  virtual std::shared_ptr<tessel::TransformDefinition> TransformDefinition() = 0;
  virtual std::shared_ptr<tessel::TransactionFactory> TransactionFactory() = 0;
  // previous is null for an entry point. The event channel outlives the controller.
  virtual void CreateController(std::shared_ptr<tessel::TransformDefinition> previous, IEvent& event,
                                std::shared_ptr<tessel::TransactionFactory> factory, bool testMode) = 0;
  virtual void Process() = 0;
};

}  // namespace tessel
