// Error: the one exception type of the system.
//
// Every failure travels as an Error carrying the number, source, description,
// help file and help context of the raised error. Numbers are plain decimal
// and lie by subsystem (7000-7099 job and session, 7700-7799 XML, 8000-8299
// store, ... ; see audit/HuntErr.h). Script runtime errors use VBScript's own
// numbers (5, 6, 9, 11, 13, ...). Handlers add call-stack frames to the
// description through ErrorIn and rethrow the same number; they never return
// error codes.
//
// An Error is a value: cheap to copy, owns its strings.
#pragma once

#include <cstdint>
#include <exception>
#include <string>

namespace tessel {

class Error : public std::exception {
 public:
  // The general error: reported when a failure lost its own number.
  static constexpr int32_t kGeneral = static_cast<int32_t>(0x8004144E);

  Error(int32_t number, std::string description, std::string source = "Tessel",
        std::string helpFile = {}, std::string helpContext = "0")
      : number_(number),
        source_(std::move(source)),
        description_(std::move(description)),
        helpFile_(std::move(helpFile)),
        helpContext_(std::move(helpContext)) {}

  int32_t number() const noexcept { return number_; }
  const std::string& source() const noexcept { return source_; }
  const std::string& description() const noexcept { return description_; }
  const std::string& helpFile() const noexcept { return helpFile_; }
  const std::string& helpContext() const noexcept { return helpContext_; }

  void setSource(std::string source) { source_ = std::move(source); }
  void setDescription(std::string description) { description_ = std::move(description); }

  const char* what() const noexcept override { return description_.c_str(); }

 private:
  int32_t number_;
  std::string source_;
  std::string description_;
  std::string helpFile_;
  std::string helpContext_;
};

}  // namespace tessel
