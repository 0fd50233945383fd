#include "scripting/EEScriptControl.h"

#include <exception>

#include "core/Error.h"
#include "scripting/vbs/Engine.h"

namespace tessel {

namespace {

constexpr const char* kCrLf = "\r\n";
// The width of "Source Line: ", so that a caret behind as many characters
// stands under the column it names.
constexpr size_t kLabelWidth = 13;

}  // namespace

std::string EEScriptControl::Extract(const vbs::Engine& scriptControl) const {
  try {
    const vbs::EngineError& error = scriptControl.Error();
    if (error.Number() == 0 || error.Line() <= 0) return {};
    std::string text = "Description: ";
    for (char c : error.Description()) {
      if (c != '\r' && c != '\n') text.push_back(c);
    }
    text.append(kCrLf);
    if (!error.Text().empty()) {
      text.append("Source Line: ");
      for (char c : error.Text()) text.push_back(c == '\t' ? ' ' : c);
      text.append(kCrLf);
    }
    if (error.Column() > 0) {
      text.push_back('.');
      text.append(kLabelWidth - 1 + static_cast<size_t>(error.Column() - 1), ' ');
      text.append("^").append(kCrLf);
    } else {
      text.append(kLabelWidth, ' ');
    }
    text.append(" Line=").append(std::to_string(error.Line()));
    text.append(" Pos=").append(std::to_string(error.Column())).append(kCrLf);
    return text;
  } catch (const Error& e) {
    return "  ErrExtractXML.Extract failed: " + e.description();
  } catch (const std::exception& e) {
    return std::string("  ErrExtractXML.Extract failed: ") + e.what();
  } catch (...) {
    return "  ErrExtractXML.Extract failed: ";
  }
}

}  // namespace tessel
