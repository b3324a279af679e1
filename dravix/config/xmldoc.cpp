// The option document over pugixml.
//
// Settings are addressed by element paths from the root, such as
// ZeploXML/Camera/Camera3/DsRecord/FrameRate (backslashes in the file's own
// notation); every step matches an element's local name
// (the root is "f:ZeploXML", its descendants carry no prefix) and takes the
// first match. The walks of option_visitor.h visit the settings in document
// order, so a reader or writer keeps a stack of the elements it has entered
// and resolves each setting one step below the top.
//
// Only what XML 1.0 allows is written: before a save every text of the
// tree (element text, CDATA, comments, attribute values) is kept to valid
// UTF-8 and to the characters XML allows; control characters other than
// tab, line feed and carriage return, U+FFFE/U+FFFF, and bytes that are not
// part of a valid UTF-8 sequence are dropped. The lenient parser also takes
// what a save must not repeat: an element or attribute whose name is not
// an XML name is dropped (an element with its content), a repeated
// attribute keeps its first value, and the declaration is written as
// version 1.0, UTF-8, at the start only. A text read into a fixed array is
// cut at a character boundary, never inside a character.
//
// Hostile files: lookups under an element with many children go through a
// per-element index built once, values are read at most 1023 characters
// deep, and no walk recurses, so a load stays linear in the file's size.
#include "dravix/config/xmldoc.h"

#include "dravix/base/notice.h"
#include "dravix/base/single_instance.h"
#include "dravix/base/zfile.h"
#include "dravix/config/option_visitor.h"
#include "dravix/config/optiontext.h"
#include "dravix/platform/atomic_file.h"
#include "dravix/platform/file_io.h"

#include <pugixml.hpp>

#include <cctype>
#include <charconv>
#include <climits>
#include <cstdio>
#include <cstring>
#include <unordered_map>
#include <vector>

namespace dravix::config {
namespace {

constexpr size_t kValueBuffer = 1024;  // a value is read at most 1023 characters deep
constexpr size_t kIndexThreshold = 6;  // children above which an element is indexed

std::string_view LocalName(const char* name) {
  const char* colon = std::strchr(name, ':');
  return colon != nullptr ? std::string_view(colon + 1) : std::string_view(name);
}

// Local name -> first child of that name, for one element: open addressing
// in one flat table (a load builds a few hundred of these).
class NameIndex {
 public:
  explicit NameIndex(size_t expected) {
    size_t cap = 16;
    while (cap < expected * 2) cap *= 2;
    slots_.resize(cap);
  }
  pugi::xml_node_struct* Find(std::string_view name) const {
    for (size_t i = Hash(name) & (slots_.size() - 1);; i = (i + 1) & (slots_.size() - 1)) {
      const Slot& s = slots_[i];
      if (s.node == nullptr) return nullptr;
      if (s.name == name) return s.node;
    }
  }
  // Keeps the first node given for a name.
  void Insert(std::string_view name, pugi::xml_node_struct* node) {
    if ((used_ + 1) * 2 > slots_.size()) Grow();
    for (size_t i = Hash(name) & (slots_.size() - 1);; i = (i + 1) & (slots_.size() - 1)) {
      Slot& s = slots_[i];
      if (s.node == nullptr) {
        s = {name, node};
        ++used_;
        return;
      }
      if (s.name == name) return;
    }
  }

 private:
  struct Slot {
    std::string_view name;
    pugi::xml_node_struct* node = nullptr;
  };
  static size_t Hash(std::string_view s) {
    uint64_t h = 1469598103934665603ull;  // FNV-1a
    for (unsigned char c : s) h = (h ^ c) * 1099511628211ull;
    return static_cast<size_t>(h ^ (h >> 29));
  }
  void Grow() {
    std::vector<Slot> old(slots_.size() * 2);
    old.swap(slots_);
    used_ = 0;
    for (const Slot& s : old)
      if (s.node != nullptr) Insert(s.name, s.node);
  }

  std::vector<Slot> slots_;
  size_t used_ = 0;
};

// First child element by local name. Elements with more than a few
// children get a NameIndex built on their first lookup; its keys point into
// the names held by the tree, which stay put until an element is removed
// (then every index is dropped).
class ChildFinder {
 public:
  pugi::xml_node Find(pugi::xml_node parent, std::string_view name) {
    if (!parent) return {};
    const NameIndex* index = IndexOf(parent);
    if (index == nullptr) {
      for (pugi::xml_node c = parent.first_child(); c; c = c.next_sibling())
        if (c.type() == pugi::node_element && LocalName(c.name()) == name) return c;
      return {};
    }
    return pugi::xml_node(index->Find(name));
  }

  // A child was appended to `parent` (so it is the first of its name only
  // when none existed).
  void Added(pugi::xml_node parent, pugi::xml_node child) {
    NameIndex* index = IndexOf(parent);
    if (index != nullptr) index->Insert(LocalName(child.name()), child.internal_object());
  }

  // Elements were removed somewhere: forget everything.
  void Clear() {
    known_.clear();
    lastParent_ = nullptr;
    lastIndex_ = nullptr;
  }

 private:
  NameIndex* IndexOf(pugi::xml_node parent) {
    // Lookups come in runs under one parent.
    if (parent.internal_object() == lastParent_) return lastIndex_;
    auto [it, inserted] = known_.try_emplace(parent.internal_object());
    if (inserted) {
      size_t count = 0;
      for (pugi::xml_node c = parent.first_child(); c; c = c.next_sibling()) ++count;
      if (count > kIndexThreshold) {
        it->second = std::make_unique<NameIndex>(count);
        for (pugi::xml_node c = parent.first_child(); c; c = c.next_sibling())
          if (c.type() == pugi::node_element) it->second->Insert(LocalName(c.name()), c.internal_object());
      }
    }
    lastParent_ = parent.internal_object();
    lastIndex_ = it->second.get();
    return lastIndex_;
  }

  std::unordered_map<pugi::xml_node_struct*, std::unique_ptr<NameIndex>> known_;
  pugi::xml_node_struct* lastParent_ = nullptr;
  NameIndex* lastIndex_ = nullptr;
};

// The length of s[0..n) without a UTF-8 character that starts in it but
// does not end in it (a cut made in the middle of a character).
size_t CompletePrefix(const char* s, size_t n) {
  for (size_t back = 1; back <= 4 && back <= n; ++back) {
    const auto c = static_cast<unsigned char>(s[n - back]);
    if ((c & 0xC0) == 0x80) continue;  // a continuation byte: look further back
    const size_t need = c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : c >= 0xC0 ? 2 : 1;
    return need > back ? n - back : n;
  }
  return n;
}

// The text of an element and its descendants, cut to 1023 characters.
// Iterative, and stops once the buffer is full.
size_t ElementText(pugi::xml_node element, char (&out)[kValueBuffer]) {
  size_t n = 0;
  pugi::xml_node cur = element.first_child();
  while (cur && n < kValueBuffer - 1) {
    if (cur.type() == pugi::node_pcdata || cur.type() == pugi::node_cdata) {
      const char* v = cur.value();
      const size_t len = std::strlen(v);
      const size_t take = len < kValueBuffer - 1 - n ? len : kValueBuffer - 1 - n;
      std::memcpy(out + n, v, take);
      n += take;
    }
    if (cur.first_child()) {
      cur = cur.first_child();
      continue;
    }
    while (cur && cur != element && !cur.next_sibling()) cur = cur.parent();
    if (!cur || cur == element) break;
    cur = cur.next_sibling();
  }
  if (n == kValueBuffer - 1) n = CompletePrefix(out, n);  // possibly cut: never inside a character
  out[n] = '\0';
  return n;
}

// The decimal value at the start of the text (after blanks); 0 when there
// is none; out-of-range values stop at the 32-bit limits.
LONG ParseLong(const char* s) {
  while (*s == ' ' || (*s >= '\t' && *s <= '\r')) ++s;
  bool negative = false;
  if (*s == '+' || *s == '-') negative = *s++ == '-';
  int64_t v = 0;
  for (; *s >= '0' && *s <= '9'; ++s) {
    v = v * 10 + (*s - '0');
    if (v > static_cast<int64_t>(INT32_MAX) + 1) v = static_cast<int64_t>(INT32_MAX) + 1;
  }
  if (negative) v = -v;
  if (v > INT32_MAX) v = INT32_MAX;
  return static_cast<LONG>(v);
}

float ParseFloat(const char* s) {
  while (*s == ' ' || (*s >= '\t' && *s <= '\r')) ++s;
  if (*s == '+') ++s;
  float v = 0.0f;
  const auto r = std::from_chars(s, s + std::strlen(s), v, std::chars_format::general);
  return r.ec == std::errc() ? v : 0.0f;
}

// The length of the valid UTF-8 character at the start of s[0..n) that
// XML 1.0 allows, or 0 when there is none there.
size_t AllowedCharLength(const unsigned char* s, size_t n) {
  const unsigned c = s[0];
  if (c < 0x80) return (c >= 0x20 || c == '\t' || c == '\n' || c == '\r') ? 1 : 0;
  size_t len;
  uint32_t cp;
  if (c >= 0xC2 && c <= 0xDF) {
    len = 2, cp = c & 0x1F;
  } else if (c >= 0xE0 && c <= 0xEF) {
    len = 3, cp = c & 0x0F;
  } else if (c >= 0xF0 && c <= 0xF4) {
    len = 4, cp = c & 0x07;
  } else {
    return 0;
  }
  if (n < len) return 0;
  for (size_t i = 1; i < len; ++i) {
    if ((s[i] & 0xC0) != 0x80) return 0;
    cp = (cp << 6) | (s[i] & 0x3Fu);
  }
  const bool shortest = (len == 3 && cp >= 0x800) || (len == 4 && cp >= 0x10000) || len == 2;
  const bool allowed = cp <= 0x10FFFF && !(cp >= 0xD800 && cp <= 0xDFFF) && cp != 0xFFFE && cp != 0xFFFF;
  return shortest && allowed ? len : 0;
}

// `text` without what XML 1.0 cannot hold; true when something was dropped.
bool KeepXmlChars(std::string_view text, std::string* out) {
  const auto* s = reinterpret_cast<const unsigned char*>(text.data());
  size_t i = 0;
  while (i < text.size()) {
    if (s[i] >= 0x20 && s[i] < 0x80) {  // the usual case, settled without decoding
      ++i;
      continue;
    }
    const size_t len = AllowedCharLength(s + i, text.size() - i);
    if (len == 0) break;
    i += len;
  }
  if (i == text.size()) return false;
  out->assign(text.substr(0, i));
  while (i < text.size()) {
    const size_t len = AllowedCharLength(s + i, text.size() - i);
    if (len == 0) {
      ++i;
    } else {
      out->append(text.substr(i, len));
      i += len;
    }
  }
  return true;
}

// Whether code point `c` may start (or, with `start` false, continue) an
// XML 1.0 name.
bool NameCodePoint(uint32_t c, bool start) {
  if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c == ':') return true;
  if ((c >= 0xC0 && c <= 0xD6) || (c >= 0xD8 && c <= 0xF6) || (c >= 0xF8 && c <= 0x2FF) || (c >= 0x370 && c <= 0x37D) ||
      (c >= 0x37F && c <= 0x1FFF) || (c >= 0x200C && c <= 0x200D) || (c >= 0x2070 && c <= 0x218F) ||
      (c >= 0x2C00 && c <= 0x2FEF) || (c >= 0x3001 && c <= 0xD7FF) || (c >= 0xF900 && c <= 0xFDCF) ||
      (c >= 0xFDF0 && c <= 0xFFFD) || (c >= 0x10000 && c <= 0xEFFFF))
    return true;
  if (start) return false;
  return c == '-' || c == '.' || (c >= '0' && c <= '9') || c == 0xB7 || (c >= 0x300 && c <= 0x36F) ||
         (c >= 0x203F && c <= 0x2040);
}

// Whether `name` is an XML 1.0 name in valid UTF-8.
bool XmlName(std::string_view name) {
  const auto* s = reinterpret_cast<const unsigned char*>(name.data());
  size_t i = 0;
  while (i < name.size()) {
    if (s[i] < 0x80) {  // the usual case, settled without decoding
      const unsigned char c = s[i];
      const bool start = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c == ':';
      if (!start && (i == 0 || !((c >= '0' && c <= '9') || c == '-' || c == '.'))) return false;
      ++i;
      continue;
    }
    const size_t len = AllowedCharLength(s + i, name.size() - i);
    if (len == 0) return false;
    uint32_t c = len == 1 ? s[i] : s[i] & (0xFFu >> (len + 1));
    for (size_t k = 1; k < len; ++k) c = (c << 6) | (s[i + k] & 0x3Fu);
    if (!NameCodePoint(c, i == 0)) return false;
    i += len;
  }
  return !name.empty();
}

// Makes the tree writable as XML 1.0 (see the top of the file). Returns
// true when elements were removed.
bool MakeTreeWritable(pugi::xml_document& dom) {
  bool removedElements = false;
  std::string kept;
  pugi::xml_node cur = dom.first_child();
  while (cur) {
    const pugi::xml_node_type type = cur.type();
    if (type == pugi::node_declaration) {
      // Only "version" and "encoding", and only at the very start.
      pugi::xml_node next = cur.next_sibling();
      if (cur != dom.first_child()) {
        dom.remove_child(cur);
        cur = next;
        continue;
      }
      while (cur.first_attribute()) cur.remove_attribute(cur.first_attribute());
      cur.append_attribute("version") = "1.0";
      cur.append_attribute("encoding") = "UTF-8";
      cur = next;
      continue;
    }
    if ((type == pugi::node_element || type == pugi::node_pi) && !XmlName(cur.name())) {
      // A name no parser would take back: the element goes with its content.
      pugi::xml_node next = cur.next_sibling();
      pugi::xml_node parent = cur.parent();
      removedElements = removedElements || type == pugi::node_element;
      parent.remove_child(cur);
      cur = next;
      while (!cur && parent && parent != dom) {
        cur = parent.next_sibling();
        parent = parent.parent();
      }
      continue;
    }
    if (type == pugi::node_pcdata || type == pugi::node_cdata || type == pugi::node_comment || type == pugi::node_pi) {
      if (KeepXmlChars(cur.value(), &kept)) cur.set_value(kept.c_str());
    }
    for (pugi::xml_attribute a = cur.first_attribute(); a;) {
      pugi::xml_attribute next = a.next_attribute();
      bool drop = !XmlName(a.name());
      for (pugi::xml_attribute b = cur.first_attribute(); !drop && b != a; b = b.next_attribute())
        drop = std::strcmp(a.name(), b.name()) == 0;  // a name given twice keeps its first value
      if (drop) {
        cur.remove_attribute(a);
      } else if (KeepXmlChars(a.value(), &kept)) {
        a.set_value(kept.c_str());
      }
      a = next;
    }
    if (cur.first_child()) {
      cur = cur.first_child();
      continue;
    }
    while (cur && !cur.next_sibling()) cur = cur.parent();
    if (cur) cur = cur.next_sibling();
  }
  return removedElements;
}

// `text` cut to at most `max` bytes without splitting a UTF-8 character.
std::string_view CutAtCharBoundary(std::string_view text, size_t max) {
  if (text.size() <= max) return text;
  return text.substr(0, CompletePrefix(text.data(), max));
}

// Replaces the content of `element` with one text (none when empty),
// without what XML 1.0 cannot hold, so the tree stays writable.
void SetElementText(pugi::xml_node element, std::string_view text, ChildFinder& finder) {
  std::string kept;
  if (KeepXmlChars(text, &kept)) text = kept;
  pugi::xml_node only = element.first_child();
  if (only && !only.next_sibling() && only.type() == pugi::node_pcdata && !text.empty()) {
    // Most settings did not change since the load.
    const char* current = only.value();
    if (std::strncmp(current, text.data(), text.size()) != 0 || current[text.size()] != '\0')
      only.set_value(text.data(), text.size());
    return;
  }
  bool removedElements = false;
  while (pugi::xml_node c = element.first_child()) {
    removedElements = removedElements || c.type() == pugi::node_element;
    element.remove_child(c);
  }
  if (removedElements) finder.Clear();
  if (!text.empty()) element.append_child(pugi::node_pcdata).set_value(text.data(), text.size());
}

class TreeReader final : public OptionVisitor {
 public:
  TreeReader(pugi::xml_document& dom, ChildFinder& finder) : finder_(finder) { stack_.push_back(dom); }

  void Enter(std::string_view element) override { stack_.push_back(finder_.Find(stack_.back(), element)); }
  void Leave() override { stack_.pop_back(); }

  void Int(std::string_view key, LONG& value, LONG def) override { value = Read(key) ? ParseLong(buf_) : def; }
  void Bool(std::string_view key, BOOL& value, BOOL def) override {
    value = (Read(key) ? ParseLong(buf_) : def) == 1 ? 1 : 0;
  }
  void Float(std::string_view key, float& value, float def) override { value = Read(key) ? ParseFloat(buf_) : def; }
  // The whole array is rewritten, so no trace of an older, longer value
  // stays behind the terminator.
  void Text(std::string_view key, char* field, size_t cap, std::string_view def) override {
    std::memset(field, 0, cap);
    if (Read(key))
      CopyOptionText(field, cap, CutAtCharBoundary(std::string_view(buf_, len_), cap == 0 ? 0 : cap - 1));
    else
      CopyOptionText(field, cap, def);
  }

 private:
  bool Read(std::string_view key) {
    const pugi::xml_node n = finder_.Find(stack_.back(), key);
    if (!n) return false;
    len_ = ElementText(n, buf_);
    return true;
  }

  ChildFinder& finder_;
  std::vector<pugi::xml_node> stack_;
  char buf_[kValueBuffer];
  size_t len_ = 0;
};

// Writes values into the tree, creating missing elements below the root.
// In default mode it writes the defaults and builds the default document's
// own forms (the "DsPager" element, the fax values).
class TreeWriter final : public OptionVisitor {
 public:
  TreeWriter(pugi::xml_document& dom, ChildFinder& finder, bool defaults) : finder_(finder), defaults_(defaults) {
    stack_.push_back(dom);
  }

  void Enter(std::string_view element) override { stack_.push_back(FindOrCreate(element)); }
  void Leave() override { stack_.pop_back(); }

  void Int(std::string_view key, LONG& value, LONG def) override { PutNumber(key, defaults_ ? def : value); }
  void Bool(std::string_view key, BOOL& value, BOOL def) override { PutNumber(key, defaults_ ? def : value); }
  void Float(std::string_view key, float& value, float def) override {
    char text[128];
    std::snprintf(text, sizeof text, "%f", static_cast<double>(defaults_ ? def : value));
    Put(key, text);
  }
  void Text(std::string_view key, char* field, size_t cap, std::string_view def) override {
    Put(key, defaults_ ? def : OptionText(field, cap));
  }
  void CrossedText(std::string_view key, char* field, size_t cap, std::string_view loaderDef,
                   std::string_view documentDef) override {
    Text(key, field, cap, defaults_ ? documentDef : loaderDef);
  }
  void PagerText(std::string_view key, char* field, size_t cap, std::string_view def) override {
    if (!defaults_) return OptionVisitor::PagerText(key, field, cap, def);
    Enter("DsPager");
    Text(key, field, cap, def);
    Leave();
  }
  void SwitchAndText(std::string_view key, BOOL& value, BOOL def, char* text, size_t cap) override {
    Text(key, text, cap, "");
    Bool(key, value, def);
  }

 private:
  pugi::xml_node FindOrCreate(std::string_view name) {
    pugi::xml_node parent = stack_.back();
    pugi::xml_node n = finder_.Find(parent, name);
    // Nothing is created beside the root: a document whose root is not
    // "ZeploXML" takes no settings.
    if (n || !parent || parent.type() != pugi::node_element || !XmlName(name)) return n;
    n = parent.append_child(std::string(name).c_str());
    finder_.Added(parent, n);
    return n;
  }
  void Put(std::string_view key, std::string_view text) {
    const pugi::xml_node n = FindOrCreate(key);
    if (n) SetElementText(n, text, finder_);
  }
  void PutNumber(std::string_view key, LONG value) {
    char text[16];
    const auto r = std::to_chars(text, text + sizeof text, value);
    Put(key, std::string_view(text, static_cast<size_t>(r.ptr - text)));
  }

  ChildFinder& finder_;
  bool defaults_;
  std::vector<pugi::xml_node> stack_;
};

struct StringWriter final : pugi::xml_writer {
  std::string bytes;
  void write(const void* data, size_t size) override { bytes.append(static_cast<const char*>(data), size); }
};

}  // namespace
}  // namespace dravix::config

using namespace dravix::config;

struct ZXMLMGR::Document {
  pugi::xml_document dom;
  ChildFinder finder;
  bool loaded = false;
  bool parsed = false;
  // Whether the tree holds only what XML 1.0 can write back: set by the
  // walk at load, kept by the writer, which filters what it puts in.
  bool writable = false;
  std::string loadError;  // why the last load did not parse, "" when it did
  bool defaultsFilled = false;
  tagDSZEPLODVROPTION sections{};  // each section's private copy of its part
  StringWriter out;                // the serialised document

  void EnsureDefaults() {
    if (defaultsFilled) return;
    FillDefaultOptions(sections);
    defaultsFilled = true;
  }

  void BuildDefault() {
    finder.Clear();
    dom.reset();
    pugi::xml_node decl = dom.append_child(pugi::node_declaration);
    decl.append_attribute("version") = "1.0";
    decl.append_attribute("encoding") = "UTF-8";
    pugi::xml_node root = dom.append_child("f:ZeploXML");
    root.append_attribute("xmlns:f") = kOptionNamespaceUri;
    tagDSZEPLODVROPTION scratch{};
    TreeWriter writer(dom, finder, /*defaults=*/true);
    VisitOptionSections(writer, scratch, kAllSections);
    pugi::xml_node time = root.append_child("SystemTime");
    time.append_child("Year").text() = "1990";
    time.append_child("Month").text() = "1";
    time.append_child("DayOfWeek").text() = "1";
    time.append_child("Hour").text() = "0";
    time.append_child("Minute").text() = "0";
    time.append_child("Second").text() = "0";
  }

  // The document as it is saved, into out.bytes.
  void Serialise() {
    // The tree holds UTF-8 whatever the file was read as, and is written
    // as UTF-8: a declaration naming another encoding would make the next
    // load convert the texts a second time.
    pugi::xml_node decl = dom.first_child();
    if (decl.type() == pugi::node_declaration) {
      pugi::xml_attribute enc = decl.attribute("encoding");
      if (enc) enc.set_value("UTF-8");
    }
    if (!writable && MakeTreeWritable(dom)) finder.Clear();
    writable = true;
    out.bytes.clear();  // keeps the capacity of the last save
    dom.save(out, "\t", pugi::format_indent, pugi::encoding_utf8);
  }

  bool Save(const std::string& path) {
    Serialise();
    return dravix::platform::ReplaceFileAtomically(path, out.bytes);
  }

  // Load() from bytes in memory; a default document replaces unparsable
  // bytes but is not written anywhere.
  void LoadBytes(const void* data, size_t size) {
    EnsureDefaults();
    finder.Clear();
    const pugi::xml_parse_result r =
        dom.load_buffer(data, size, pugi::parse_default | pugi::parse_declaration | pugi::parse_ws_pcdata_single);
    if (r) MakeTreeWritable(dom);
    writable = static_cast<bool>(r);
    parsed = static_cast<bool>(r) && RootCount() == 1;
    loadError = ParseError(r);
    if (!parsed) BuildDefault();
    loaded = true;
  }

  // Why a parse result does not make a document, or "" when it does.
  std::string ParseError(const pugi::xml_parse_result& r) const {
    if (!r) return std::string(r.description()) + " at byte " + std::to_string(r.offset);
    if (RootCount() != 1) return "not one top-level element but " + std::to_string(RootCount());
    return "";
  }

  // Reads the file into the tree; a missing or unparsable file is replaced
  // by the default document.
  void Load(const std::string& path) {
    EnsureDefaults();
    finder.Clear();
    // Only a regular file goes to pugixml: it would wait for ever on a FIFO
    // and take a folder's size for a buffer to allocate.
    bool missing = false;
    std::string why;
    const bool regular = dravix::platform::CheckRegularFile(path, &why, &missing);
    constexpr unsigned kParse = pugi::parse_default | pugi::parse_declaration | pugi::parse_ws_pcdata_single;
    const pugi::xml_parse_result r = regular ? dom.load_file(path.c_str(), kParse) : pugi::xml_parse_result{};
    if (r) MakeTreeWritable(dom);  // before the root is counted: it may go
    writable = static_cast<bool>(r);
    // pugixml also takes a fragment with several top-level elements; a
    // document has exactly one.
    parsed = regular && static_cast<bool>(r) && RootCount() == 1;
    loadError = regular ? ParseError(r) : why;
    if (!parsed) {
      // What cannot be read is kept beside the new default document, never
      // just replaced.
      if (!missing && KeepUnreadableDocument(path)) {
        dravix::base::Notice("DVROPTION: " + path + " could not be read (" + loadError + "); kept as " + path +
                             ".bad and replaced by the default document\r\n");
      }
      BuildDefault();
      Save(path);
    }
    loaded = true;
  }

  size_t RootCount() const {
    size_t n = 0;
    for (pugi::xml_node c = dom.first_child(); c; c = c.next_sibling()) n += c.type() == pugi::node_element;
    return n;
  }

  void Read(unsigned mask) {
    TreeReader reader(dom, finder);
    VisitOptionSections(reader, sections, mask);
  }
  void Write(unsigned mask) {
    TreeWriter writer(dom, finder, /*defaults=*/false);
    VisitOptionSections(writer, sections, mask);
  }
};

ZXMLMGR* ZXMLMGR::Instance() {
  return dravix::base::SingleInstance<ZXMLMGR>([] { return new ZXMLMGR(); });
}

ZXMLMGR::ZXMLMGR() : doc_(std::make_unique<Document>()) {}
ZXMLMGR::~ZXMLMGR() = default;

void ZXMLMGR::SetFilename(const char* name) { filename_ = name == nullptr ? std::string() : name; }

std::string ZXMLMGR::GetFilename() const { return filename_.empty() ? GetModulePath() + kOptionFileName : filename_; }

int ZXMLMGR::LoadOption(tagDSZEPLODVROPTION& option) {
  doc_->Load(GetFilename());
  doc_->Read(kAllSections);
  CopyOptionSections(option, doc_->sections, kAllSections);
  return 1;
}

int ZXMLMGR::SaveOption(tagDSZEPLODVROPTION& option, int flag) {
  const std::string path = GetFilename();
  if (!doc_->loaded) doc_->Load(path);
  if (flag != 1) CopyOptionSections(doc_->sections, option, kAllSections);
  doc_->Write(kAllSections);
  return doc_->Save(path) ? 1 : 0;
}

int ZXMLMGR::LoadOptionFromBuffer(const void* data, size_t size, tagDSZEPLODVROPTION& option) {
  doc_->LoadBytes(data, size);
  doc_->Read(kAllSections);
  CopyOptionSections(option, doc_->sections, kAllSections);
  return 1;
}

int ZXMLMGR::SaveOptionToBuffer(tagDSZEPLODVROPTION& option, int flag, std::string& out) {
  if (!doc_->loaded) doc_->LoadBytes("", 0);
  if (flag != 1) CopyOptionSections(doc_->sections, option, kAllSections);
  doc_->Write(kAllSections);
  doc_->Serialise();
  out = doc_->out.bytes;
  return 1;
}

int ZXMLMGR::LoadPlayerOption(tagDSZEPLODVROPTION& option) {
  constexpr unsigned kParts = kSectionGeneral | kSectionCamera | kSectionUser | kSectionPlayer;
  doc_->Load(GetFilename());
  doc_->Read(kParts);
  CopyOptionSections(option, doc_->sections, kParts);
  return 1;
}

int ZXMLMGR::SavePlayerOption(tagDSZEPLODVROPTION& option) {
  const std::string path = GetFilename();
  doc_->Load(path);
  CopyOptionSections(doc_->sections, option, kSectionPlayer);
  doc_->Write(kSectionPlayer);
  return doc_->Save(path) ? 1 : 0;
}

int ZXMLMGR::LoadBackupOption(tagDSZEPLODVROPTION& option) {
  constexpr unsigned kParts = kSectionUser | kSectionPlayer;
  doc_->Load(GetFilename());
  doc_->Read(kParts);
  CopyOptionSections(option, doc_->sections, kParts);
  return 1;
}

int ZXMLMGR::LastLoadParsed() const { return doc_->parsed ? 1 : 0; }

const std::string& ZXMLMGR::LastLoadError() const { return doc_->loadError; }

bool dravix::config::KeepUnreadableDocument(const std::string& path) {
  // path.bad is the newest kept copy, then path.bad.1 and path.bad.2; the
  // oldest of three goes when a fourth comes.
  const std::string bad = path + ".bad";
  std::rename((bad + ".1").c_str(), (bad + ".2").c_str());
  std::rename(bad.c_str(), (bad + ".1").c_str());
  return std::rename(path.c_str(), bad.c_str()) == 0;
}
