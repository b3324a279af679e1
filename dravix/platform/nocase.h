// ASCII text compared without regard to case, the way the recorder matches
// names, keys and paths (the bytes of other characters must be equal).
#pragma once

#include <algorithm>
#include <string_view>

namespace dravix {

constexpr char AsciiLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

constexpr bool EqualNoCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return AsciiLower(x) == AsciiLower(y); });
}

}  // namespace dravix
