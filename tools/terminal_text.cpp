#include "tools/terminal_text.h"

#include <locale.h>
#include <unistd.h>
#include <wchar.h>

#include <cstdio>

namespace dravix::cli {
namespace {

// One decoded UTF-8 sequence: its code point, or -1 with length 1 for a
// byte that does not start a well-formed sequence (overlong forms,
// surrogates and values above U+10FFFF included).
struct CodePoint {
  long value;
  size_t length;
};

CodePoint Decode(std::string_view s, size_t at) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(s[i]); };
  const unsigned char b0 = byte(at);
  if (b0 < 0x80) return {b0, 1};
  size_t n = 0;
  long cp = 0;
  long min = 0;
  if ((b0 & 0xE0) == 0xC0) {
    n = 2, cp = b0 & 0x1F, min = 0x80;
  } else if ((b0 & 0xF0) == 0xE0) {
    n = 3, cp = b0 & 0x0F, min = 0x800;
  } else if ((b0 & 0xF8) == 0xF0) {
    n = 4, cp = b0 & 0x07, min = 0x10000;
  } else {
    return {-1, 1};
  }
  if (at + n > s.size()) return {-1, 1};
  for (size_t i = 1; i < n; ++i) {
    const unsigned char b = byte(at + i);
    if ((b & 0xC0) != 0x80) return {-1, 1};
    cp = (cp << 6) | (b & 0x3F);
  }
  if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return {-1, 1};
  return {cp, n};
}

// The UTF-8 character type wcwidth() answers under, made once. Null when
// the C library has no UTF-8 locale at all.
locale_t Utf8Locale() {
  static const locale_t loc = [] {
    locale_t l = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(nullptr));
    if (l == static_cast<locale_t>(nullptr))
      l = newlocale(LC_CTYPE_MASK, "en_US.UTF-8", static_cast<locale_t>(nullptr));
    return l;
  }();
  return loc;
}

// Cells of one code point, or -1 when it is not printable.
int Cells(long cp) {
  if (cp < 0x20 || (cp >= 0x7F && cp < 0xA0)) return -1;
  if (cp < 0x7F) return 1;
  const locale_t loc = Utf8Locale();
  if (loc == static_cast<locale_t>(nullptr)) return 1;
  const locale_t old = uselocale(loc);
  const int w = wcwidth(static_cast<wchar_t>(cp));
  uselocale(old);
  return w;
}

void AppendHex(std::string& out, const char* form, long value) {
  char buf[16];
  std::snprintf(buf, sizeof buf, form, static_cast<unsigned>(value));
  out += buf;
}

}  // namespace

std::string EscapeForTerminal(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size();) {
    const CodePoint c = Decode(text, i);
    if (c.value < 0) {
      AppendHex(out, "\\x%02x", static_cast<unsigned char>(text[i]));
    } else if (c.value == '\t') {
      out += "\\t";
    } else if (c.value == '\n') {
      out += "\\n";
    } else if (c.value == '\r') {
      out += "\\r";
    } else if (c.value < 0x20 || c.value == 0x7F) {
      AppendHex(out, "\\x%02x", c.value);
    } else if (Cells(c.value) < 0) {
      AppendHex(out, "\\u%04x", c.value);
    } else {
      out.append(text.substr(i, c.length));
    }
    i += c.length;
  }
  return out;
}

size_t TerminalWidth(std::string_view text) {
  size_t width = 0;
  for (size_t i = 0; i < text.size();) {
    const CodePoint c = Decode(text, i);
    const int cells = c.value < 0 ? -1 : Cells(c.value);
    width += cells >= 0 ? static_cast<size_t>(cells) : EscapeForTerminal(text.substr(i, c.length)).size();
    i += c.length;
  }
  return width;
}

bool StdoutIsTerminal() { return isatty(STDOUT_FILENO) == 1; }

}  // namespace dravix::cli
