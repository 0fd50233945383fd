// IInputOutputController: where a transform's data sets come from or go to
// (files, a database, an HTTP endpoint). Readers pull whole data sets from it
// with FetchNextDataSet; writers hand it whole data sets with WriteDataSet.
//
// A controller is made by the transform that uses it, initialised once with a
// private copy of the transform's INPUTSTREAM (or OUTPUTSTREAM) element, and
// shared with the reader or writer for the life of the transform. Operations
// without meaning for a controller do nothing and succeed.
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

  // Reads the options, opens or lists the sources; the controller then stands
  // before its first data set. The controller keeps the wrapper.
  virtual void Initialise(Ref<XMLWrapper> wrapper) = 0;
  virtual void BeginTransaction() = 0;
  virtual void Commit() = 0;
  // The next data set (text as a string, bytes as a byte array), advancing.
  virtual Variant FetchNextDataSet() = 0;
  // True when no further data set can be fetched.
  virtual bool EOF_() = 0;
  virtual void SetOption(std::string_view name, const Variant& value) = 0;
  // Empty for a name the controller does not know.
  virtual Variant GetOption(std::string_view name) = 0;
  // Name of the source last fetched.
  virtual std::string CurrentSource() = 0;
  // Writes one complete data set; `transaction` (may be null) feeds file-name
  // expressions.
  virtual void WriteDataSet(const Variant& data, Transaction* transaction) = 0;
  virtual std::string OutputId() = 0;
  virtual std::string EncodingMethod() = 0;
};

}  // namespace tessel
