// IInputOutputController: where a transform's data sets come from and go to.
//
// A controller is made by the read or write transform from the type attribute
// of TRANSFORM/INPUTSTREAM and initialised with a wrapper holding a copy of
// that element; it owns the wrapper from then on. Input side: FetchNextDataSet
// hands out one whole data set at a time until EOF_. Output side: each
// WriteDataSet call writes one complete data set. Operations without meaning
// for a controller do nothing.
#pragma once

#include <string>
#include <string_view>

#include "core/Object.h"
#include "core/Variant.h"

namespace tessel {

class Transaction;
class XMLWrapper;

class IInputOutputController {
 public:
  virtual ~IInputOutputController() = default;

  // Reads the options and positions the controller before its first data set.
  virtual void Initialise(Ref<XMLWrapper> wrapper) = 0;
  // Start and end of an output unit of work.
  virtual void BeginTransaction() = 0;
  virtual void Commit() = 0;
  // The next data set; advances.
  virtual Variant FetchNextDataSet() = 0;
  // True when no further data set can be fetched.
  virtual bool EOF_() = 0;
  virtual void SetOption(std::string_view name, const Variant& value) = 0;
  // Empty for an unknown name.
  virtual Variant GetOption(std::string_view name) = 0;
  // Name of the source last fetched.
  virtual std::string CurrentSource() = 0;
  // Writes one complete data set; `transaction` (may be null) is the record
  // whose values a file-name expression may use.
  virtual void WriteDataSet(const Variant& data, Transaction* transaction) = 0;
  virtual std::string OutputId() = 0;
  virtual std::string EncodingMethod() = 0;
};

}  // namespace tessel
