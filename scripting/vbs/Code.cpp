#include "scripting/vbs/Code.h"

namespace tessel::vbs {

std::string Code::LineText(int line) const {
  int current = firstLine;
  size_t start = 0;
  while (current < line) {
    size_t nl = source.find_first_of("\r\n", start);
    if (nl == std::string::npos) return {};
    if (source[nl] == '\r' && nl + 1 < source.size() && source[nl + 1] == '\n') ++nl;
    start = nl + 1;
    ++current;
  }
  size_t end = source.find_first_of("\r\n", start);
  return source.substr(start, end == std::string::npos ? std::string::npos : end - start);
}

}  // namespace tessel::vbs
