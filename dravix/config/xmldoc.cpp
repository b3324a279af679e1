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
// Hostile files: lookups under an element with many children go through a
// per-element index built once, values are read at most 1023 characters
// deep, and no walk recurses, so a load stays linear in the file's size.
#include "dravix/config/xmldoc.h"

#include "dravix/base/zfile.h"
#include "dravix/config/optiontext.h"
#include "dravix/config/option_visitor.h"
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

constexpr size_t kValueBuffer = 1024;     // a value is read at most 1023 characters deep
constexpr size_t kIndexThreshold = 6;     // children above which an element is indexed

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

// Replaces the content of `element` with one text (none when empty).
void SetElementText(pugi::xml_node element, std::string_view text, ChildFinder& finder) {
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
  void Float(std::string_view key, float& value, float def) override {
    value = Read(key) ? ParseFloat(buf_) : def;
  }
  // The whole array is rewritten, so no trace of an older, longer value
  // stays behind the terminator.
  void Text(std::string_view key, char* field, size_t cap, std::string_view def) override {
    std::memset(field, 0, cap);
    if (Read(key))
      CopyOptionText(field, cap, std::string_view(buf_, len_));
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
  TreeWriter(pugi::xml_document& dom, ChildFinder& finder, bool defaults)
      : finder_(finder), defaults_(defaults) {
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
    if (n || !parent || parent.type() != pugi::node_element) return n;
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

  bool Save(const std::string& path) {
    // The tree holds UTF-8 whatever the file was read as, and is written
    // as UTF-8: a declaration naming another encoding would make the next
    // load convert the texts a second time.
    pugi::xml_node decl = dom.first_child();
    if (decl.type() == pugi::node_declaration) {
      pugi::xml_attribute enc = decl.attribute("encoding");
      if (enc) enc.set_value("UTF-8");
    }
    out.bytes.clear();  // keeps the capacity of the last save
    dom.save(out, "\t", pugi::format_indent, pugi::encoding_utf8);
    return dravix::platform::ReplaceFileAtomically(path, out.bytes);
  }

  // Reads the file into the tree; a missing or unparsable file is replaced
  // by the default document.
  void Load(const std::string& path) {
    EnsureDefaults();
    finder.Clear();
    // Only a regular file goes to pugixml: it would wait for ever on a FIFO
    // and take a folder's size for a buffer to allocate.
    const bool regular = dravix::platform::CheckRegularFile(path);
    constexpr unsigned kParse = pugi::parse_default | pugi::parse_declaration | pugi::parse_ws_pcdata_single;
    const pugi::xml_parse_result r = regular ? dom.load_file(path.c_str(), kParse) : pugi::xml_parse_result{};
    // pugixml also takes a fragment with several top-level elements; a
    // document has exactly one.
    parsed = regular && static_cast<bool>(r) && RootCount() == 1;
    if (!parsed) {
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
  static std::unique_ptr<ZXMLMGR> sm_inst(new ZXMLMGR());
  return sm_inst.get();
}

ZXMLMGR::ZXMLMGR() : doc_(std::make_unique<Document>()) {}
ZXMLMGR::~ZXMLMGR() = default;

void ZXMLMGR::SetFilename(const char* name) { filename_ = name == nullptr ? std::string() : name; }

std::string ZXMLMGR::GetFilename() const {
  return filename_.empty() ? GetModulePath() + kOptionFileName : filename_;
}

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
