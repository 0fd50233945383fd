#include "core/RuntimeError.h"

#include <string>

namespace tessel {

std::string_view RuntimeErrorText(int32_t number) {
  switch (number) {
    case 5: return "Invalid procedure call or argument";
    case 6: return "Overflow";
    case 7: return "Out of memory";
    case 9: return "Subscript out of range";
    case 10: return "This array is fixed or temporarily locked";
    case 11: return "Division by zero";
    case 13: return "Type mismatch";
    case 14: return "Out of string space";
    case 17: return "Can't perform requested operation";
    case 28: return "Out of stack space";
    case 35: return "Sub or Function not defined";
    case 48: return "Error in loading DLL";
    case 51: return "Internal error";
    case 52: return "Bad file name or number";
    case 53: return "File not found";
    case 54: return "Bad file mode";
    case 55: return "File already open";
    case 57: return "Device I/O error";
    case 58: return "File already exists";
    case 61: return "Disk full";
    case 62: return "Input past end of file";
    case 67: return "Too many files";
    case 68: return "Device unavailable";
    case 70: return "Permission denied";
    case 71: return "Disk not ready";
    case 74: return "Can't rename with different drive";
    case 75: return "Path/File access error";
    case 76: return "Path not found";
    case 91: return "Object variable not set";
    case 92: return "For loop not initialized";
    case 94: return "Invalid use of Null";
    case 322: return "Can't create necessary temporary file";
    case 424: return "Object required";
    case 429: return "ActiveX component can't create object";
    case 430: return "Class doesn't support Automation";
    case 432: return "File name or class name not found during Automation operation";
    case 438: return "Object doesn't support this property or method";
    case 440: return "Automation error";
    case 445: return "Object doesn't support this action";
    case 446: return "Object doesn't support named arguments";
    case 447: return "Object doesn't support current locale setting";
    case 448: return "Named argument not found";
    case 449: return "Argument not optional";
    case 450: return "Wrong number of arguments or invalid property assignment";
    case 451: return "Object not a collection";
    case 453: return "Specified DLL function not found";
    case 455: return "Code resource lock error";
    case 457: return "This key is already associated with an element of this collection";
    case 458: return "Variable uses an Automation type not supported in VBScript";
    case 462: return "The remote server machine does not exist or is unavailable";
    case 481: return "Invalid picture";
    case 500: return "Variable is undefined";
    case 501: return "Illegal assignment";
    case 502: return "Object not safe for scripting";
    case 503: return "Object not safe for initializing";
    case 504: return "Object not safe for creating";
    case 505: return "Invalid or unqualified reference";
    case 506: return "Class not defined";
    case 507: return "An exception occurred";
    case 5008: return "Illegal assignment";
    case 5017: return "Syntax error in regular expression";
    case 5018: return "Unexpected quantifier";
    case 5019: return "Expected ']' in regular expression";
    case 5020: return "Expected ')' in regular expression";
    case 5021: return "Invalid range in character set";
    default: return {};
  }
}

Error RuntimeError(int32_t number) {
  return Error(number, std::string(RuntimeErrorText(number)), std::string(kScriptRuntimeSource));
}

void ThrowRuntimeError(int32_t number) { throw RuntimeError(number); }

}  // namespace tessel
