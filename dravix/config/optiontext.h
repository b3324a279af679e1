// Copying text into the fixed, zero-terminated arrays of the option records.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

namespace dravix::config {

// Copies `text` into `out` (capacity `cap`), cut to cap - 1 characters and
// always terminated inside the bound. Bytes after the terminator are left
// as they were. A zero `cap` writes nothing.
inline void CopyOptionText(char* out, size_t cap, std::string_view text) {
  if (cap == 0) return;
  const size_t n = text.size() < cap - 1 ? text.size() : cap - 1;
  if (n != 0) std::memmove(out, text.data(), n);
  out[n] = '\0';
}

template <size_t N>
void CopyOptionText(char (&out)[N], std::string_view text) {
  CopyOptionText(out, N, text);
}

// The text held in a fixed array, up to its first zero or its bound when a
// careless writer left none.
inline std::string_view OptionText(const char* field, size_t cap) {
  return std::string_view(field, strnlen(field, cap));
}

template <size_t N>
std::string_view OptionText(const char (&field)[N]) {
  return OptionText(field, N);
}

}  // namespace dravix::config
