// FunctionProto: one compiled procedure (Sub, Function, Property Get/Let/Set),
// and ClassDef: one compiled Class with its members.
//
// Both are owned by the Code they were compiled from; they are immutable once
// the parser has finished them, except for the name caches inside their
// syntax trees (see Ast.h). A frame of a procedure has `slotCount` Variant
// slots: the parameters first, then the result (Function and Property Get),
// then the declared and implicit locals and the hidden slots of With blocks.
#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "scripting/vbs/Ast.h"

namespace tessel::vbs {

struct Code;

enum class ProcKind : uint8_t { Sub, Function, PropertyGet, PropertyLet, PropertySet };

struct Param {
  std::string name;
  bool byRef = true;
};

struct FunctionProto {
  std::string name;
  std::string lower;
  ProcKind kind = ProcKind::Sub;
  bool isPublic = true;
  bool isDefault = false;
  std::vector<Param> params;
  int resultSlot = -1;
  int slotCount = 0;
  // Name of each named slot (params, result, locals), lowercase; Execute and
  // Eval inside the procedure resolve names against it.
  std::vector<std::string> slotNames;
  // Slots from here on belong to names the procedure uses without declaring
  // them (a global of the name wins at run time); -1 until the body is done.
  int implicitFrom = -1;
  // Fixed-size local arrays (`Dim a(3)`) created when a frame starts.
  std::vector<std::pair<int, std::vector<int32_t>>> fixedArrays;
  // Slots of the procedure's own Consts: an assignment to one raises 501.
  std::vector<int> constSlots;
  Block body;
  ClassDef* owner = nullptr;
  Code* code = nullptr;
  int line = 0;
};

struct ClassMember {
  enum Kind : uint8_t { Field, Method, Property } kind = Field;
  std::string name;
  bool isPublic = true;
  int fieldIndex = -1;                // Field
  bool isArray = false;               // Field declared with ()
  std::vector<int32_t> dims;          // Field: fixed array bounds
  FunctionProto* method = nullptr;    // Method
  FunctionProto* get = nullptr;       // Property
  FunctionProto* let = nullptr;
  FunctionProto* set = nullptr;
};

struct ClassDef {
  std::string name;
  std::string lower;
  std::vector<ClassMember> members;
  std::unordered_map<std::string, int> memberIndex;  // lowercase name -> member
  int fieldCount = 0;
  int defaultMember = -1;
  FunctionProto* initialize = nullptr;
  FunctionProto* terminate = nullptr;
  Code* code = nullptr;

  int Find(const std::string& lower) const {
    auto it = memberIndex.find(lower);
    return it == memberIndex.end() ? -1 : it->second;
  }
};

}  // namespace tessel::vbs
