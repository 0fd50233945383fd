// SqlText: lexical helpers over SQL statement text, shared by the backends.
//
// The scanner knows enough SQL to skip what is not code: '...' strings (with
// '' inside, and backslash escapes after an E prefix), "..." and [...]
// identifiers, -- and /* */ comments and $tag$ quoted bodies. A `?` anywhere
// else is a parameter mark.
#pragma once

#include <string>
#include <string_view>

namespace tessel::db {

class SqlText {
 public:
  // Number of `?` parameter marks.
  static int CountPlaceholders(std::string_view sql);

  // The text with the n-th `?` mark replaced by $n, as libpq wants it.
  static std::string ToNumberedPlaceholders(std::string_view sql);

  // Text quoted as a SQL string literal: 'it''s'.
  static std::string Quote(std::string_view text);
};

}  // namespace tessel::db
