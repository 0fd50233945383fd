#include "scripting/StringTokeniser.h"

#include <cctype>

#include "audit/HuntErr.h"

namespace tessel {
namespace {

std::string Lower(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return out;
}

std::string Trim(std::string_view text) {
  size_t begin = text.find_first_not_of(' ');
  if (begin == std::string_view::npos) return {};
  size_t end = text.find_last_not_of(' ');
  return std::string(text.substr(begin, end - begin + 1));
}

}  // namespace

void StringTokeniser::SetTokens(std::string_view delimiters) {
  list_ = Lower(delimiters);
  delimiters_.clear();
  size_t start = 0;
  while (true) {
    size_t bar = list_.find('|', start);
    delimiters_.push_back(list_.substr(start, bar == std::string::npos ? std::string::npos : bar - start));
    if (bar == std::string::npos) break;
    start = bar + 1;
  }
}

size_t StringTokeniser::MatchAt(std::string_view lowered, size_t position, size_t& which) const {
  for (size_t d = 0; d < delimiters_.size(); ++d) {
    const std::string& delimiter = delimiters_[d];
    const size_t length = delimiter.size();
    bool matched = false;
    for (size_t n = 0; n < length; ++n) {
      if (position + n >= lowered.size()) continue;
      if (lowered[position + n] == delimiter[n]) {
        if (n == length - 1) {
          matched = true;
          break;
        }
      } else if (n > 0) {
        break;
      }
    }
    if (matched) {
      which = d;
      return length;
    }
  }
  return 0;
}

void StringTokeniser::ParseString(std::string_view expression) {
  try {
    const std::string lowered = Lower(expression);
    size_t start = 0;
    bool inQuotes = false;
    char opener = 0;
    bool escaped = false;
    size_t position = 0;
    while (position < expression.size()) {
      const char c = expression[position];
      size_t advance = 1;
      if (c == '"' || c == '\'') {
        if (!inQuotes) {
          inQuotes = true;
          opener = c;
        } else if (c == opener && !escaped) {
          inQuotes = false;
        }
      } else if (!inQuotes) {
        size_t which = 0;
        size_t length = MatchAt(lowered, position, which);
        if (length > 0) {
          if (position > start) {
            stack_.Push(Variant(MakeRef<Token>(Token::kOperand, std::string(expression.substr(start, position - start)))));
            stack_.Push(Variant(MakeRef<Token>(Token::kDelimiter, Trim(expression.substr(position, length)))));
          }
          start = position + length;
          advance = length;
        }
      }
      escaped = c == '\\';
      position += advance;
    }
    if (start < expression.size()) {
      stack_.Push(Variant(MakeRef<Token>(Token::kOperand, std::string(expression.substr(start)))));
    }
  } catch (...) {
    ErrorInRethrow("StringTokeniser.ParseString(sExpression)", {Variant(expression)});
  }
}

Ref<Token> StringTokeniser::PopFromStack() {
  try {
    Variant top = stack_.Pop();
    return RefCast<Token>(top.ObjectRef());
  } catch (...) {
    ErrorInRethrow("StringTokeniser.PopFromStack()", {});
  }
}

void StringTokeniser::PushOntoStack(const Ref<Token>& token) {
  try {
    stack_.Push(Variant(token));
  } catch (...) {
    ErrorInRethrow("StringTokeniser.PushOntoStack(oToken)", {});
  }
}

}  // namespace tessel
