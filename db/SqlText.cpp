#include "db/SqlText.h"

#include <cctype>
#include <functional>

namespace tessel::db {

namespace {

// Walks the text and calls onMark(position) for each parameter mark.
void ScanMarks(std::string_view sql, const std::function<void(size_t)>& onMark) {
  size_t i = 0;
  const size_t n = sql.size();
  auto startsWith = [&](size_t at, std::string_view what) { return sql.substr(at, what.size()) == what; };
  while (i < n) {
    char c = sql[i];
    if (c == '\'') {
      bool backslashEscapes = i > 0 && (sql[i - 1] == 'E' || sql[i - 1] == 'e') &&
                              (i < 2 || !(std::isalnum(static_cast<unsigned char>(sql[i - 2])) || sql[i - 2] == '_'));
      ++i;
      while (i < n) {
        if (backslashEscapes && sql[i] == '\\' && i + 1 < n) {
          i += 2;
          continue;
        }
        if (sql[i] == '\'') {
          if (i + 1 < n && sql[i + 1] == '\'') {
            i += 2;
            continue;
          }
          break;
        }
        ++i;
      }
      ++i;
    } else if (c == '"' || c == '[' || c == '`') {
      char close = c == '[' ? ']' : c;
      ++i;
      while (i < n && sql[i] != close) ++i;
      ++i;
    } else if (startsWith(i, "--")) {
      while (i < n && sql[i] != '\n') ++i;
    } else if (startsWith(i, "/*")) {
      size_t end = sql.find("*/", i + 2);
      i = end == std::string_view::npos ? n : end + 2;
    } else if (c == '$' && (i == 0 || !(std::isalnum(static_cast<unsigned char>(sql[i - 1])) || sql[i - 1] == '_'))) {
      // $tag$ ... $tag$ ; a $ followed by a digit is a numbered parameter.
      size_t j = i + 1;
      while (j < n && (std::isalpha(static_cast<unsigned char>(sql[j])) || sql[j] == '_')) ++j;
      if (j < n && sql[j] == '$') {
        std::string_view tag = sql.substr(i, j - i + 1);
        size_t end = sql.find(tag, j + 1);
        i = end == std::string_view::npos ? n : end + tag.size();
      } else {
        i = j;
      }
    } else {
      if (c == '?') onMark(i);
      ++i;
    }
  }
}

}  // namespace

int SqlText::CountPlaceholders(std::string_view sql) {
  int count = 0;
  ScanMarks(sql, [&](size_t) { ++count; });
  return count;
}

std::string SqlText::ToNumberedPlaceholders(std::string_view sql) {
  std::string out;
  out.reserve(sql.size() + 8);
  size_t copied = 0;
  int number = 0;
  ScanMarks(sql, [&](size_t at) {
    out.append(sql.substr(copied, at - copied));
    out += '$';
    out += std::to_string(++number);
    copied = at + 1;
  });
  out.append(sql.substr(copied));
  return out;
}

std::string SqlText::Quote(std::string_view text) {
  std::string out = "'";
  for (char c : text) {
    if (c == '\'') out += '\'';
    out += c;
  }
  out += '\'';
  return out;
}

}  // namespace tessel::db
