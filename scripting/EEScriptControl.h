// EEScriptControl: turns the script engine's record of its last failure into
// text for an error report.
//
// The script host hands its engine to a new EEScriptControl when an
// evaluation or a piece of code fails, and the text joins the error that goes
// up. The object holds nothing; the engine is only read.
#pragma once

#include <string>

namespace tessel {

namespace vbs {
class Engine;
}

class EEScriptControl {
 public:
  // The engine's last failure, one item to a line, each line ended by CR LF:
  //   Description: <description, its own line breaks removed>
  //   Source Line: <the source line, tabs as blanks>       (when known)
  //   .            <blanks>^                               (when the column is known)
  //    Line=<line> Pos=<column>
  // The caret stands under the failing column of the source line. Without a
  // column, 13 blanks stand before " Line=" on the line of their own. Empty
  // when the engine has no failure or no line for it. Never raises: a failure
  // here gives "  ErrExtractXML.Extract failed: " and its description.
  std::string Extract(const vbs::Engine& scriptControl) const;
};

}  // namespace tessel
