#include "scripting/vbs/RegExp.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <vector>

#include "core/RuntimeError.h"
#include "scripting/vbs/BuiltinEnumerator.h"
#include "scripting/vbs/BuiltinText.h"

namespace tessel::vbs {

namespace {

constexpr BuiltinMember kMembers[] = {
    {"Pattern", RegExp::kPattern}, {"IgnoreCase", RegExp::kIgnoreCase},
    {"Global", RegExp::kGlobal},   {"Multiline", RegExp::kMultiline},
    {"Test", RegExp::kTest},       {"Execute", RegExp::kExecute},
    {"Replace", RegExp::kReplace},
};

// Bounds the backtracking of one match so that a pathological pattern ends
// with an error rather than running for ever.
constexpr uint32_t kMatchLimit = 10'000'000;

int32_t CompileErrorNumber(int code) {
  switch (code) {
    case PCRE2_ERROR_QUANTIFIER_INVALID:
    case PCRE2_ERROR_QUANTIFIER_OUT_OF_ORDER:
      return 5018;
    case PCRE2_ERROR_MISSING_SQUARE_BRACKET:
      return 5019;
    case PCRE2_ERROR_MISSING_CLOSING_PARENTHESIS:
      return 5020;
    case PCRE2_ERROR_CLASS_RANGE_ORDER:
      return 5021;
    default:
      return 5017;
  }
}

struct MatchDataDeleter {
  void operator()(pcre2_match_data* p) const noexcept { pcre2_match_data_free(p); }
};
struct MatchContextDeleter {
  void operator()(pcre2_match_context* p) const noexcept { pcre2_match_context_free(p); }
};

bool IsGet(InvokeKind kind) {
  return kind == InvokeKind::Method || kind == InvokeKind::PropertyGet;
}

// Counts UTF-16 units of text, walking forward only, so that a run of
// matches costs one pass over the text.
class UnitCounter {
 public:
  explicit UnitCounter(std::string_view text) : text_(text), ascii_(text::IsAscii(text)) {}
  int32_t At(size_t byte) {
    if (ascii_) return static_cast<int32_t>(byte);
    if (byte < byte_) {
      byte_ = 0;
      units_ = 0;
    }
    units_ += text::Length(text_.substr(byte_, byte - byte_));
    byte_ = byte;
    return static_cast<int32_t>(units_);
  }

 private:
  std::string_view text_;
  bool ascii_;
  size_t byte_ = 0;
  int64_t units_ = 0;
};

size_t CharLength(std::string_view text, size_t at) {
  uint8_t b = static_cast<uint8_t>(text[at]);
  size_t n = b < 0x80 ? 1 : (b >> 5) == 6 ? 2 : (b >> 4) == 14 ? 3 : (b >> 3) == 30 ? 4 : 1;
  return std::min(n, text.size() - at);
}

}  // namespace

struct RegExp::Compiled {
  pcre2_code* code = nullptr;
  uint32_t groups = 0;
  ~Compiled() { pcre2_code_free(code); }
};

// Byte ranges of a match: [0] is the whole match, then one per group;
// unset groups have start == PCRE2_UNSET.
struct RegExp::Span {
  size_t start;
  size_t end;
};

RegExp::RegExp() = default;
RegExp::~RegExp() = default;

void RegExp::SetPattern(std::string pattern) {
  pattern_ = std::move(pattern);
  code_.reset();
}

void RegExp::SetIgnoreCase(bool value) {
  if (value != ignoreCase_) code_.reset();
  ignoreCase_ = value;
}

void RegExp::SetMultiline(bool value) {
  if (value != multiline_) code_.reset();
  multiline_ = value;
}

const RegExp::Compiled& RegExp::Code() {
  if (code_) return *code_;
  // Script patterns follow the JScript dialect: \uhhhh and \xhh escapes, and
  // "[^]" as any character.
  uint32_t options = PCRE2_UTF | PCRE2_MATCH_INVALID_UTF | PCRE2_ALT_BSUX | PCRE2_ALLOW_EMPTY_CLASS;
  if (ignoreCase_) options |= PCRE2_CASELESS;
  if (multiline_) {
    options |= PCRE2_MULTILINE;
  } else {
    options |= PCRE2_DOLLAR_ENDONLY;
  }
  pcre2_compile_context* context = pcre2_compile_context_create(nullptr);
  pcre2_set_newline(context, PCRE2_NEWLINE_ANYCRLF);
  int error = 0;
  PCRE2_SIZE offset = 0;
  pcre2_code* code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern_.data()), pattern_.size(),
                                   options, &error, &offset, context);
  pcre2_compile_context_free(context);
  if (!code) ThrowRuntimeError(CompileErrorNumber(error));
  auto compiled = std::make_unique<Compiled>();
  compiled->code = code;
  pcre2_pattern_info(code, PCRE2_INFO_CAPTURECOUNT, &compiled->groups);
  code_ = std::move(compiled);
  return *code_;
}

template <class F>
void RegExp::ForEachMatch(std::string_view text, F onMatch) {
  const Compiled& compiled = Code();
  std::unique_ptr<pcre2_match_data, MatchDataDeleter> data(
      pcre2_match_data_create_from_pattern(compiled.code, nullptr));
  std::unique_ptr<pcre2_match_context, MatchContextDeleter> context(
      pcre2_match_context_create(nullptr));
  if (!data || !context) ThrowRuntimeError(7);
  pcre2_set_match_limit(context.get(), kMatchLimit);
  std::vector<Span> spans(compiled.groups + 1);
  size_t start = 0;
  while (start <= text.size()) {
    int rc = pcre2_match(compiled.code, reinterpret_cast<PCRE2_SPTR>(text.data()), text.size(),
                         start, 0, data.get(), context.get());
    if (rc == PCRE2_ERROR_NOMATCH) return;
    if (rc < 0) ThrowRuntimeError(5);
    PCRE2_SIZE* ovector = pcre2_get_ovector_pointer(data.get());
    for (uint32_t g = 0; g <= compiled.groups; ++g) {
      spans[g] = Span{ovector[2 * g], ovector[2 * g + 1]};
      if (g >= static_cast<uint32_t>(rc)) spans[g] = Span{PCRE2_UNSET, PCRE2_UNSET};
    }
    onMatch(spans);
    if (!global_) return;
    size_t end = spans[0].end;
    if (end == spans[0].start) {
      if (end >= text.size()) return;
      end += CharLength(text, end);
    }
    start = end;
  }
}

bool RegExp::Test(std::string_view text) {
  bool found = false;
  bool global = global_;
  global_ = false;
  try {
    ForEachMatch(text, [&](const std::vector<Span>&) { found = true; });
  } catch (...) {
    global_ = global;
    throw;
  }
  global_ = global;
  return found;
}

Ref<RegExpMatchCollection> RegExp::Execute(std::string_view text) {
  std::vector<Ref<RegExpMatch>> matches;
  UnitCounter units(text);
  ForEachMatch(text, [&](const std::vector<Span>& spans) {
    std::vector<Variant> groups;
    groups.reserve(spans.size() - 1);
    for (size_t g = 1; g < spans.size(); ++g) {
      if (spans[g].start == PCRE2_UNSET) {
        groups.emplace_back();
      } else {
        groups.emplace_back(text.substr(spans[g].start, spans[g].end - spans[g].start));
      }
    }
    int32_t first = units.At(spans[0].start);
    int32_t last = units.At(spans[0].end);
    matches.push_back(MakeRef<RegExpMatch>(
        std::string(text.substr(spans[0].start, spans[0].end - spans[0].start)), first,
        last - first, std::move(groups)));
  });
  return MakeRef<RegExpMatchCollection>(std::move(matches));
}

std::string RegExp::Replace(std::string_view text, std::string_view replacement) {
  std::string out;
  size_t copied = 0;
  ForEachMatch(text, [&](const std::vector<Span>& spans) {
    out.append(text.substr(copied, spans[0].start - copied));
    size_t groupCount = spans.size() - 1;
    auto group = [&](size_t g) {
      if (spans[g].start == PCRE2_UNSET) return std::string_view();
      return text.substr(spans[g].start, spans[g].end - spans[g].start);
    };
    for (size_t i = 0; i < replacement.size(); ++i) {
      char c = replacement[i];
      if (c != '$' || i + 1 >= replacement.size()) {
        out.push_back(c);
        continue;
      }
      char n = replacement[i + 1];
      if (n == '$') {
        out.push_back('$');
        ++i;
      } else if (n == '&') {
        out.append(group(0));
        ++i;
      } else if (n == '`') {
        out.append(text.substr(0, spans[0].start));
        ++i;
      } else if (n == '\'') {
        out.append(text.substr(spans[0].end));
        ++i;
      } else if (n >= '0' && n <= '9') {
        size_t one = static_cast<size_t>(n - '0');
        size_t two =
            i + 2 < replacement.size() && replacement[i + 2] >= '0' && replacement[i + 2] <= '9'
                ? one * 10 + static_cast<size_t>(replacement[i + 2] - '0')
                : 0;
        if (two >= 1 && two <= groupCount) {
          out.append(group(two));
          i += 2;
        } else if (one >= 1 && one <= groupCount) {
          out.append(group(one));
          i += 1;
        } else {
          out.push_back('$');
        }
      } else {
        out.push_back('$');
      }
    }
    copied = spans[0].end;
  });
  out.append(text.substr(copied));
  return out;
}

DispId RegExp::GetMemberId(std::string_view name) { return FindMember(kMembers, name); }

Variant RegExp::Invoke(DispId id, InvokeKind kind, std::span<Variant> args) {
  bool get = IsGet(kind);
  switch (id) {
    case kPattern:
      if (get) {
        CheckArgumentCount(args, 0, 0);
        return Variant(pattern_);
      }
      CheckArgumentCount(args, 1, 1);
      SetPattern(args[0].ToString());
      return Variant();
    case kIgnoreCase:
    case kGlobal:
    case kMultiline: {
      bool* field = id == kIgnoreCase ? &ignoreCase_ : id == kGlobal ? &global_ : &multiline_;
      if (get) {
        CheckArgumentCount(args, 0, 0);
        return Variant(*field);
      }
      CheckArgumentCount(args, 1, 1);
      bool value = args[0].ToBool();
      if (id == kIgnoreCase) {
        SetIgnoreCase(value);
      } else if (id == kMultiline) {
        SetMultiline(value);
      } else {
        SetGlobal(value);
      }
      return Variant();
    }
    case kTest:
      if (!get) break;
      CheckArgumentCount(args, 1, 1);
      return Variant(Test(args[0].ToString()));
    case kExecute:
      if (!get) break;
      CheckArgumentCount(args, 1, 1);
      return Variant(Execute(args[0].ToString()));
    case kReplace:
      if (!get) break;
      CheckArgumentCount(args, 2, 2);
      return Variant(Replace(args[0].ToString(), args[1].ToString()));
    default:
      break;
  }
  ThrowMemberNotFound();
}

Ref<Object> CreateRegExp() { return MakeRef<RegExp>(); }

}  // namespace tessel::vbs
