// IOutputWriter: how a write transform hands records to an output format.
//
// The write transform calls InitClass once, then for each output unit
// BeginTransaction, WriteRecord per record (WriteCachedRecords first when a
// unit has to repeat the commit record's ancestors) and Commit, at which the
// writer hands the unit to its controller's WriteDataSet and starts the next
// unit empty. A unit in progress when an error passes is never written.
//
// The writer shares the definition, controller and cache with the transform;
// transactions are only borrowed for the call.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tessel {

class IInputOutputController;
class Transaction;
class TransformDefinition;
class WriteRecordCache;

class IOutputWriter {
 public:
  virtual ~IOutputWriter() = default;

  // Reads the options and builds the per-record caches. `tranOrder` lists the
  // record ids in export order (parents before children); `writeCache` is null
  // when the whole run is one unit.
  virtual void InitClass(std::shared_ptr<TransformDefinition> definition,
                         std::shared_ptr<IInputOutputController> controller, const std::vector<std::string>& tranOrder,
                         std::shared_ptr<WriteRecordCache> writeCache) = 0;
  // How many top records the unit begun next will hold, where the transform
  // knows: a hint for sizing buffers that changes nothing written.
  virtual void ExpectRecords(int64_t topRecords) {}
  virtual void BeginTransaction() = 0;
  // Ends the unit; `transaction` names it and may be null.
  virtual void Commit(Transaction* transaction) = 0;
  virtual void WriteRecord(Transaction& transaction) = 0;
  // Adds the cached ancestors to a new unit.
  virtual void WriteCachedRecords() = 0;
};

}  // namespace tessel
