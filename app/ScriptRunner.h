// ScriptRunner: runs a VBScript file in a fresh engine, the way a console
// script host does (`tessel script FILE [ARGS...]`).
//
// The script sees a WScript object: Echo (arguments joined by a blank, then a
// line break, on `out`), Quit [code], Arguments (Count, Length, Item(i) as the
// default member, For Each), ScriptName and ScriptFullName. MsgBox prints its
// prompt on `out`. There is no time-out.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace tessel {

// Returns the process exit code: 0, the code given to WScript.Quit, or 1 after
// a failure, which is written to `err` as
//   FILE(LINE, COLUMN) SOURCE: DESCRIPTION (NUMBER)
int RunScriptFile(const std::string& path, const std::vector<std::string>& args, std::ostream& out,
                  std::ostream& err);

}  // namespace tessel
