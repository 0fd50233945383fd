#include "scripting/vbs/BuiltinArrays.h"

#include <vector>

#include "scripting/vbs/BuiltinArgs.h"
#include "scripting/vbs/BuiltinText.h"

namespace tessel::vbs::builtins {

namespace {

Variant EmptyArray() {
  Variant::Bound bound{0, -1};
  return Variant::NewArray(std::span<const Variant::Bound>(&bound, 1));
}

const SafeArray& ArrayArg(const Variant& v, Variant& holder) {
  if (v.IsArray()) return v.ArrayValue();
  if (v.IsNull()) ThrowRuntimeError(94);
  holder = ArgValue(v);
  if (!holder.IsArray()) ThrowRuntimeError(13);
  return holder.ArrayValue();
}

std::string TextArg(const Variant& v) {
  if (v.IsString()) return std::string(v.StringValue());
  return ArgValue(v).ToString();
}

}  // namespace

Variant Array(BuiltinContext&, const Variant* args, int argc) {
  std::vector<Variant> elements;
  elements.reserve(static_cast<size_t>(argc));
  for (int i = 0; i < argc; ++i) {
    elements.push_back(args[i].IsMissing() ? Variant() : args[i]);
  }
  return Variant::FromVector(std::move(elements));
}

Variant IsArray(BuiltinContext&, const Variant* args, int) { return Variant(args[0].IsArray()); }

Variant LBound(BuiltinContext&, const Variant* args, int argc) {
  Variant holder;
  const SafeArray& array = ArrayArg(args[0], holder);
  int32_t dimension = LongArg(args, argc, 1, 1);
  if (dimension < 1 || static_cast<size_t>(dimension) > array.Dimensions()) ThrowRuntimeError(9);
  return Variant(array.LowerBound(dimension));
}

Variant UBound(BuiltinContext&, const Variant* args, int argc) {
  Variant holder;
  const SafeArray& array = ArrayArg(args[0], holder);
  int32_t dimension = LongArg(args, argc, 1, 1);
  if (dimension < 1 || static_cast<size_t>(dimension) > array.Dimensions()) ThrowRuntimeError(9);
  return Variant(array.UpperBound(dimension));
}

Variant Split(BuiltinContext&, const Variant* args, int argc) {
  int32_t count = LongArg(args, argc, 2, -1);
  if (count < -1) InvalidArgument();
  bool textCompare = TextCompareArg(args, argc, 3);
  if (args[0].IsNull() || (HasArg(args, argc, 1) && args[1].IsNull())) ThrowRuntimeError(94);
  std::string s = TextArg(args[0]);
  std::string delimiter = HasArg(args, argc, 1) ? TextArg(args[1]) : std::string(" ");
  if (s.empty() || count == 0) return EmptyArray();
  std::vector<Variant> parts;
  if (delimiter.empty() || count == 1) {
    parts.emplace_back(std::move(s));
    return Variant::FromVector(std::move(parts));
  }
  bool ascii = text::IsAscii(s) && text::IsAscii(delimiter);
  if (ascii && !textCompare) {
    size_t pos = 0;
    while (count < 0 || static_cast<int32_t>(parts.size()) < count - 1) {
      size_t hit = s.find(delimiter, pos);
      if (hit == std::string::npos) break;
      parts.emplace_back(s.substr(pos, hit - pos));
      pos = hit + delimiter.size();
    }
    parts.emplace_back(s.substr(pos));
    return Variant::FromVector(std::move(parts));
  }
  // General path: search in UTF-16 units once, without re-decoding per part.
  std::u16string units = text::ToUtf16(s);
  std::u16string hay = textCompare ? text::ToUtf16(text::ToLower(s)) : units;
  std::u16string needle = text::ToUtf16(textCompare ? text::ToLower(delimiter) : delimiter);
  if (hay.size() != units.size()) {
    // Case mapping changed the length (rare scripts): fall back to binary.
    hay = units;
    needle = text::ToUtf16(delimiter);
  }
  size_t pos = 0;
  while (count < 0 || static_cast<int32_t>(parts.size()) < count - 1) {
    size_t hit = hay.find(needle, pos);
    if (hit == std::u16string::npos) break;
    parts.emplace_back(text::FromUtf16(std::u16string_view(units).substr(pos, hit - pos)));
    pos = hit + needle.size();
  }
  parts.emplace_back(text::FromUtf16(std::u16string_view(units).substr(pos)));
  return Variant::FromVector(std::move(parts));
}

Variant Join(BuiltinContext&, const Variant* args, int argc) {
  Variant holder;
  const SafeArray& array = ArrayArg(args[0], holder);
  if (array.Dimensions() != 1) ThrowRuntimeError(13);
  if (HasArg(args, argc, 1) && args[1].IsNull()) ThrowRuntimeError(94);
  std::string delimiter = HasArg(args, argc, 1) ? TextArg(args[1]) : std::string(" ");
  std::string out;
  bool first = true;
  for (const Variant& element : array.Elements()) {
    if (!first) out += delimiter;
    first = false;
    if (element.IsString()) {
      out += element.StringValue();
    } else if (element.IsNull() || element.IsArray()) {
      ThrowRuntimeError(13);  // an element must convert to text; Null does not
    } else {
      out += TextArg(element);
    }
    if (static_cast<int64_t>(out.size()) > kMaxBuiltString * 3) ThrowRuntimeError(7);
  }
  return Variant(std::move(out));
}

Variant Filter(BuiltinContext&, const Variant* args, int argc) {
  Variant holder;
  const SafeArray& array = ArrayArg(args[0], holder);
  if (array.Dimensions() != 1) InvalidArgument();
  if (args[1].IsNull()) ThrowRuntimeError(94);
  std::string value = TextArg(args[1]);
  bool include = BoolArg(args, argc, 2, true);
  bool textCompare = TextCompareArg(args, argc, 3);
  std::vector<Variant> kept;
  for (const Variant& element : array.Elements()) {
    std::string s = TextArg(element);
    bool found = text::Find(s, value, 0, textCompare) >= 0;
    if (found == include) kept.emplace_back(std::move(s));
  }
  if (kept.empty()) return EmptyArray();
  return Variant::FromVector(std::move(kept));
}

}  // namespace tessel::vbs::builtins
