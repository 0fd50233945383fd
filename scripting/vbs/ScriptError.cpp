#include "scripting/vbs/ScriptError.h"

namespace tessel::vbs::syntax {

const char* Message(int number) {
  switch (number) {
    case 1001: return "Out of memory";
    case 1002: return "Syntax error";
    case 1003: return "Expected ':'";
    case 1005: return "Expected '('";
    case 1006: return "Expected ')'";
    case 1007: return "Expected ']'";
    case 1010: return "Expected identifier";
    case 1011: return "Expected '='";
    case 1012: return "Expected 'If'";
    case 1013: return "Expected 'To'";
    case 1014: return "Expected 'End'";
    case 1015: return "Expected 'Function'";
    case 1016: return "Expected 'Sub'";
    case 1017: return "Expected 'Then'";
    case 1018: return "Expected 'Wend'";
    case 1019: return "Expected 'Loop'";
    case 1020: return "Expected 'Next'";
    case 1021: return "Expected 'Case'";
    case 1022: return "Expected 'Select'";
    case 1023: return "Expected expression";
    case 1024: return "Expected statement";
    case 1025: return "Expected end of statement";
    case 1026: return "Expected integer constant";
    case 1027: return "Expected 'While' or 'Until'";
    case 1028: return "Expected 'While', 'Until' or end of statement";
    case 1029: return "Expected 'With'";
    case 1030: return "Identifier too long";
    case 1031: return "Invalid number";
    case 1032: return "Invalid character";
    case 1033: return "Unterminated string constant";
    case 1034: return "Unterminated comment";
    case 1037: return "Invalid use of 'Me' keyword";
    case 1038: return "'loop' without 'do'";
    case 1039: return "Invalid 'exit' statement";
    case 1040: return "Invalid 'for' loop control variable";
    case 1041: return "Name redefined";
    case 1042: return "Must be first statement on the line";
    case 1043: return "Cannot assign to non-ByVal argument";
    case 1044: return "Cannot use parentheses when calling a Sub";
    case 1045: return "Expected literal constant";
    case 1046: return "Expected 'In'";
    case 1047: return "Expected 'Class'";
    case 1048: return "Must be defined inside a Class";
    case 1049: return "Expected Let or Set or Get in property declaration";
    case 1050: return "Expected 'Property'";
    case 1051: return "Number of arguments must be the same for every procedure of a property";
    case 1052: return "Cannot have multiple default property/method in a Class";
    case 1053: return "Class initialize or terminate do not have arguments";
    case 1054: return "Property set or let must have at least one argument";
    case 1055: return "Unexpected 'Next'";
    case 1056: return "'Default' can be specified only on 'Property' or 'Function' or 'Sub'";
    case 1057: return "A 'Default' member must also be 'Public'";
    case 1058: return "'Default' can only be given to a Property Get";
    default: return "Syntax error";
  }
}

}  // namespace tessel::vbs::syntax
