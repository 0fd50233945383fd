// ScriptError: a tessel::Error raised while compiling or running VBScript,
// carrying where in the source it happened.
//
// Line is 1-based; Column is the 1-based character position of the offending
// token for syntax errors and 0 for runtime errors (a runtime error belongs to
// a statement, not a character). Text is the source line. The engine fills in
// the position as the error passes out of the running code.
#pragma once

#include <string>

#include "core/Error.h"

namespace tessel::vbs {

class ScriptError : public Error {
 public:
  ScriptError(int32_t number, std::string description, int line, int column)
      : Error(number, std::move(description), "Microsoft VBScript compilation error"),
        line_(line),
        column_(column) {}

  int line() const { return line_; }
  int column() const { return column_; }

 private:
  int line_;
  int column_;
};

// VBScript's compile-time error numbers.
namespace syntax {
inline constexpr int kSyntaxError = 1002;
inline constexpr int kExpectedLParen = 1005;
inline constexpr int kExpectedRParen = 1006;
inline constexpr int kExpectedRBracket = 1007;
inline constexpr int kExpectedIdentifier = 1010;
inline constexpr int kExpectedEquals = 1011;
inline constexpr int kExpectedIf = 1012;
inline constexpr int kExpectedTo = 1013;
inline constexpr int kExpectedEnd = 1014;
inline constexpr int kExpectedFunction = 1015;
inline constexpr int kExpectedSub = 1016;
inline constexpr int kExpectedThen = 1017;
inline constexpr int kExpectedWend = 1018;
inline constexpr int kExpectedLoop = 1019;
inline constexpr int kExpectedNext = 1020;
inline constexpr int kExpectedCase = 1021;
inline constexpr int kExpectedSelect = 1022;
inline constexpr int kExpectedExpression = 1023;
inline constexpr int kExpectedStatement = 1024;
inline constexpr int kExpectedEndOfStatement = 1025;
inline constexpr int kExpectedInteger = 1026;
inline constexpr int kExpectedWhileUntil = 1027;
inline constexpr int kExpectedWhileUntilEnd = 1028;
inline constexpr int kExpectedWith = 1029;
inline constexpr int kIdentifierTooLong = 1030;
inline constexpr int kInvalidNumber = 1031;
inline constexpr int kInvalidCharacter = 1032;
inline constexpr int kUnterminatedString = 1033;
inline constexpr int kInvalidMe = 1037;
inline constexpr int kLoopWithoutDo = 1038;
inline constexpr int kInvalidExit = 1039;
inline constexpr int kInvalidForVariable = 1040;
inline constexpr int kNameRedefined = 1041;
inline constexpr int kFirstStatementOnLine = 1042;
inline constexpr int kParensOnSubCall = 1044;
inline constexpr int kExpectedLiteral = 1045;
inline constexpr int kExpectedIn = 1046;
inline constexpr int kExpectedClass = 1047;
inline constexpr int kMustBeInClass = 1048;
inline constexpr int kExpectedLetSetGet = 1049;
inline constexpr int kExpectedProperty = 1050;
inline constexpr int kInconsistentPropertyArgs = 1051;
inline constexpr int kMultipleDefault = 1052;
inline constexpr int kInitTermArgs = 1053;
inline constexpr int kPropertyLetSetArgs = 1054;
inline constexpr int kUnexpectedNext = 1055;
inline constexpr int kDefaultOnlyOnProc = 1056;
inline constexpr int kDefaultMustBePublic = 1057;
inline constexpr int kDefaultOnlyOnGet = 1058;

// The message VBScript gives for a compile-time error number.
const char* Message(int number);
}  // namespace syntax

}  // namespace tessel::vbs
