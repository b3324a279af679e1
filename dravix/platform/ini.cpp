// The INI reader/writer.
//
// A file is read whole (up to kMaxIniBytes) and split into lines; each line
// is classified once (section header, key line, anything else) with offsets
// into the text, so a write can splice one line in or out and copy every
// other byte of the file unchanged. Writes are serialised within the process
// by one lock and replace the file through a temporary file in the same
// folder, so readers in this or another process see the old file or the new
// one, never a mixture.
#include "dravix/platform/ini.h"

#include "dravix/platform/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <string_view>
#include <vector>

namespace dravix::platform {
namespace {

constexpr size_t kMaxIniBytes = size_t{16} << 20;

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f' || c == '\x1a';
}

std::string_view Trim(std::string_view s) {
  while (!s.empty() && IsBlank(s.front())) s.remove_prefix(1);
  while (!s.empty() && IsBlank(s.back())) s.remove_suffix(1);
  return s;
}

char Lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

bool EqualNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (Lower(a[i]) != Lower(b[i])) return false;
  return true;
}

enum class Kind { kOther, kSection, kKey };

struct Line {
  size_t begin = 0;  // first byte of the line
  size_t end = 0;    // one past the last byte before the terminator ("\n" or "\r\n")
  size_t next = 0;   // first byte of the following line
  Kind kind = Kind::kOther;
  std::string_view name;   // trimmed section or key name
  std::string_view value;  // trimmed value of a key line
  bool hasValue = false;   // a key line with '='
};

// The parsed view of a file's text. The views point into `text`.
struct IniText {
  std::string text;
  std::vector<Line> lines;
  bool truncated = false;  // the file was larger than kMaxIniBytes

  void Parse() {
    lines.clear();
    size_t pos = 0;
    while (pos < text.size()) {
      Line line;
      line.begin = pos;
      const size_t nl = text.find('\n', pos);
      line.end = nl == std::string::npos ? text.size() : nl;
      if (line.end > line.begin && text[line.end - 1] == '\r') --line.end;
      line.next = nl == std::string::npos ? text.size() : nl + 1;
      Classify(line);
      lines.push_back(line);
      pos = line.next;
    }
  }

  void Classify(Line& line) const {
    const std::string_view t = Trim(std::string_view(text).substr(line.begin, line.end - line.begin));
    if (t.empty() || t.front() == ';' || t.front() == '#') return;
    if (t.front() == '[') {
      const size_t close = t.rfind(']');
      line.kind = Kind::kSection;
      line.name = Trim(close == std::string_view::npos || close == 0 ? t.substr(1) : t.substr(1, close - 1));
      return;
    }
    line.kind = Kind::kKey;
    const size_t eq = t.find('=');
    if (eq == std::string_view::npos) {
      line.name = t;
      return;
    }
    line.name = Trim(t.substr(0, eq));
    line.value = Trim(t.substr(eq + 1));
    line.hasValue = true;
  }

  // Index of the header of the first section named `section`, or -1.
  long FindSection(std::string_view section) const {
    for (size_t i = 0; i < lines.size(); ++i)
      if (lines[i].kind == Kind::kSection && EqualNoCase(lines[i].name, section)) return static_cast<long>(i);
    return -1;
  }

  // One past the last line of the section whose header is at `header`.
  size_t SectionEnd(size_t header) const {
    size_t i = header + 1;
    while (i < lines.size() && lines[i].kind != Kind::kSection) ++i;
    return i;
  }

  // Index of the first key `key` in the section at `header`, or -1.
  long FindKey(size_t header, std::string_view key) const {
    const size_t end = SectionEnd(header);
    for (size_t i = header + 1; i < end; ++i)
      if (lines[i].kind == Kind::kKey && EqualNoCase(lines[i].name, key)) return static_cast<long>(i);
    return -1;
  }

  const char* Newline() const {
    const size_t nl = text.find('\n');
    if (nl == std::string::npos) return "\r\n";
    return (nl > 0 && text[nl - 1] == '\r') ? "\r\n" : "\n";
  }
};

// Reads up to kMaxIniBytes of the file. false when it cannot be opened
// (missing, a folder, no permission).
bool LoadFile(const char* path, IniText& ini, bool* missing = nullptr) {
  if (missing != nullptr) *missing = false;
  const int fd = ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);  // a FIFO must not block
  if (fd < 0) {
    if (missing != nullptr) *missing = errno == ENOENT;
    return false;
  }
  struct stat st {};
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    ::close(fd);
    return false;
  }
  ini.text.clear();
  char buf[65536];
  for (;;) {
    const size_t room = kMaxIniBytes - ini.text.size();
    if (room == 0) {
      char probe;
      ini.truncated = ::read(fd, &probe, 1) > 0;
      break;
    }
    const ssize_t n = ::read(fd, buf, std::min(room, sizeof buf));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    ini.text.append(buf, static_cast<size_t>(n));
  }
  ::close(fd);
  ini.Parse();
  return true;
}

// The value of section/key, or nullopt. Lines with a key but no '=' count
// as absent. One pair of matching single or double quotes around the
// trimmed value is dropped (blanks inside them are kept).
std::optional<std::string_view> Find(const IniText& ini, std::string_view section, std::string_view key) {
  const long header = ini.FindSection(section);
  if (header < 0 || key.empty()) return std::nullopt;
  const long line = ini.FindKey(static_cast<size_t>(header), key);
  if (line < 0 || !ini.lines[static_cast<size_t>(line)].hasValue) return std::nullopt;
  std::string_view value = ini.lines[static_cast<size_t>(line)].value;
  if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') && value.back() == value.front()) {
    value = value.substr(1, value.size() - 2);
  }
  return value;
}

DWORD CopyCut(std::string_view value, char* out, DWORD size) {
  if (out == nullptr || size == 0) return 0;
  const size_t n = std::min<size_t>(value.size(), size - 1);
  if (n > 0) std::memcpy(out, value.data(), n);
  out[n] = '\0';
  return static_cast<DWORD>(n);
}

// A list of names, each NUL-terminated, ended by one more NUL.
DWORD CopyList(const std::vector<std::string_view>& names, char* out, DWORD size) {
  if (out == nullptr || size == 0) return 0;
  if (size == 1) {
    out[0] = '\0';
    return 0;
  }
  size_t used = 0;
  for (std::string_view name : names) {
    if (used + name.size() + 1 > size - 1) {
      // Does not fit: keep size - 2 characters and end with two NULs.
      const size_t room = used < size - 2u ? size - 2u - used : 0;
      std::memcpy(out + std::min<size_t>(used, size - 2u), name.data(), std::min(room, name.size()));
      out[size - 2] = '\0';
      out[size - 1] = '\0';
      return size - 2;
    }
    std::memcpy(out + used, name.data(), name.size());
    used += name.size();
    out[used++] = '\0';
  }
  out[used] = '\0';
  if (used == 0) out[1] = '\0';
  return static_cast<DWORD>(used);
}

std::string_view DefaultText(const char* defaultText) {
  std::string_view d = defaultText == nullptr ? std::string_view() : std::string_view(defaultText);
  while (!d.empty() && d.back() == ' ') d.remove_suffix(1);
  return d;
}

bool HasLineBreak(const char* s) { return s != nullptr && std::strpbrk(s, "\r\n") != nullptr; }

// Replaces the file atomically, keeping its permission bits.
bool ReplaceFile(const char* path, const std::string& bytes) {
  struct stat st {};
  const unsigned mode = ::stat(path, &st) == 0 ? (st.st_mode & 07777) : 0644;
  return ReplaceFileAtomically(path, bytes, mode);
}

std::mutex g_write_mutex;

}  // namespace

DWORD GetPrivateProfileStringA(const char* section, const char* key, const char* defaultText, char* out, DWORD size,
                               const char* file) {
  IniText ini;
  const bool loaded = file != nullptr && LoadFile(file, ini);
  if (section == nullptr || key == nullptr) {
    std::vector<std::string_view> names;
    if (loaded && section == nullptr) {
      for (const Line& line : ini.lines)
        if (line.kind == Kind::kSection) names.push_back(line.name);
    } else if (loaded) {
      const long header = ini.FindSection(section);
      if (header >= 0) {
        const size_t end = ini.SectionEnd(static_cast<size_t>(header));
        for (size_t i = static_cast<size_t>(header) + 1; i < end; ++i)
          if (ini.lines[i].kind == Kind::kKey) names.push_back(ini.lines[i].name);
      }
    }
    return CopyList(names, out, size);
  }
  if (loaded) {
    if (const auto value = Find(ini, section, key)) return CopyCut(*value, out, size);
  }
  return CopyCut(DefaultText(defaultText), out, size);
}

UINT GetPrivateProfileIntA(const char* section, const char* key, int defaultValue, const char* file) {
  char buf[32];
  if (GetPrivateProfileStringA(section, key, "", buf, sizeof buf, file) == 0) return static_cast<UINT>(defaultValue);
  const char* p = buf;
  bool negative = false;
  if (*p == '+' || *p == '-') negative = *p++ == '-';
  uint32_t value = 0;
  for (; *p >= '0' && *p <= '9'; ++p) value = value * 10u + static_cast<uint32_t>(*p - '0');
  return negative ? 0u - value : value;
}

BOOL WritePrivateProfileStringA(const char* section, const char* key, const char* value, const char* file) {
  if (section == nullptr || file == nullptr) return FALSE;
  if (HasLineBreak(section) || HasLineBreak(key) || HasLineBreak(value)) return FALSE;
  const std::string_view sectionName = Trim(section);
  const std::string_view keyName = key == nullptr ? std::string_view() : Trim(key);

  std::lock_guard<std::mutex> lock(g_write_mutex);
  IniText ini;
  bool missing = false;
  if (!LoadFile(file, ini, &missing)) {
    if (!missing) return FALSE;
    ini = IniText{};
  }
  if (ini.truncated) return FALSE;
  const std::string nl = ini.Newline();
  const std::string& text = ini.text;
  const long header = ini.FindSection(sectionName);

  std::string result;
  if (key == nullptr) {  // delete the section
    if (header < 0) return TRUE;
    const size_t h = static_cast<size_t>(header);
    const size_t end = ini.SectionEnd(h);
    const size_t cutFrom = ini.lines[h].begin;
    const size_t cutTo = end < ini.lines.size() ? ini.lines[end].begin : text.size();
    result = text.substr(0, cutFrom) + text.substr(cutTo);
  } else if (value == nullptr) {  // delete the key
    if (header < 0) return TRUE;
    const long line = ini.FindKey(static_cast<size_t>(header), keyName);
    if (line < 0) return TRUE;
    const Line& l = ini.lines[static_cast<size_t>(line)];
    result = text.substr(0, l.begin) + text.substr(l.next);
  } else {
    const std::string entry = std::string(keyName) + "=" + value;
    if (header < 0) {
      result = text;
      if (!result.empty() && result.back() != '\n') result += nl;
      result.append("[").append(sectionName).append("]").append(nl).append(entry).append(nl);
    } else {
      const size_t h = static_cast<size_t>(header);
      const long line = ini.FindKey(h, keyName);
      if (line >= 0) {  // replace the line, keeping its terminator and the key's spelling
        const Line& l = ini.lines[static_cast<size_t>(line)];
        const std::string kept = std::string(l.name) + "=" + value;
        result = text.substr(0, l.begin) + kept + text.substr(l.end);
      } else {  // insert after the section's last key line (or its header)
        size_t after = h;
        const size_t end = ini.SectionEnd(h);
        for (size_t i = h + 1; i < end; ++i)
          if (ini.lines[i].kind == Kind::kKey) after = i;
        const Line& l = ini.lines[after];
        const bool terminated = l.next > l.begin && text[l.next - 1] == '\n';
        result = text.substr(0, l.next) + (terminated ? "" : nl) + entry + nl + text.substr(l.next);
      }
    }
  }
  return ReplaceFile(file, result) ? TRUE : FALSE;
}

std::string ReadIniString(const std::string& file, const std::string& section, const std::string& key,
                          const std::string& defaultText) {
  if (auto value = LookupIniValue(file, section, key)) return *value;
  return std::string(DefaultText(defaultText.c_str()));
}

std::optional<std::string> LookupIniValue(const std::string& file, const std::string& section, const std::string& key) {
  IniText ini;
  if (!LoadFile(file.c_str(), ini)) return std::nullopt;
  if (const auto value = Find(ini, section, key)) return std::string(*value);
  return std::nullopt;
}

}  // namespace dravix::platform
