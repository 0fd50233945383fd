// ExceptionState: a copy of the thread's preserved error, as an object.
//
// Code that must do work inside an error handler without disturbing the
// pending error (the audit logger, above all) captures the state first and
// restores it last:
//
//   ErrPreserve();
//   ExceptionState state = CaptureExceptionState();
//   ... work that may raise and handle errors of its own ...
//   RestoreExceptionState(state);
//
// A plain value; owns its strings.
#pragma once

#include <cstdint>
#include <string>

namespace tessel {

class ExceptionState {
 public:
  int32_t ErrNumber() const { return number_; }
  void ErrNumber(int32_t value) { number_ = value; }
  const std::string& ErrDescription() const { return description_; }
  void ErrDescription(std::string value) { description_ = std::move(value); }
  const std::string& ErrSource() const { return source_; }
  void ErrSource(std::string value) { source_ = std::move(value); }
  const std::string& ErrHelpFile() const { return helpFile_; }
  void ErrHelpFile(std::string value) { helpFile_ = std::move(value); }
  const std::string& ErrHelpContext() const { return helpContext_; }
  void ErrHelpContext(std::string value) { helpContext_ = std::move(value); }
  int32_t Errl() const { return line_; }
  void Errl(int32_t value) { line_ = value; }
  int32_t ErrAPI() const { return api_; }
  void ErrAPI(int32_t value) { api_ = value; }
  bool ErrPreserved() const { return preserved_; }
  void ErrPreserved(bool value) { preserved_ = value; }

 private:
  int32_t number_ = 0;
  std::string description_;
  std::string source_;
  std::string helpFile_;
  std::string helpContext_ = "0";
  int32_t line_ = 0;
  int32_t api_ = 0;
  bool preserved_ = false;
};

// Copies the thread's error record into a new state.
ExceptionState CaptureExceptionState();
// Assigns all eight fields back into the thread's record, then restores the
// error as the current one when the state was preserved (ErrRestore).
void RestoreExceptionState(const ExceptionState& state);

}  // namespace tessel
