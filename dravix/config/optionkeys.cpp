#include "dravix/config/optionkeys.h"

#include "dravix/config/optiontext.h"
#include "dravix/platform/nocase.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace dravix::config {
namespace {

class PathTracker : public OptionVisitor {
 public:
  void Enter(std::string_view element) override {
    stack_.push_back(prefix_.size());
    if (!(prefix_.empty() && element == "ZeploXML")) prefix_.append(element).push_back('/');
  }
  void Leave() override {
    prefix_.resize(stack_.back());
    stack_.pop_back();
  }

 protected:
  std::string PathOf(std::string_view key) const { return prefix_ + std::string(key); }

 private:
  std::string prefix_;
  std::vector<size_t> stack_;
};

class Lister final : public PathTracker {
 public:
  std::vector<OptionKey> keys;

  void Int(std::string_view key, LONG& value, LONG) override {
    keys.push_back({PathOf(key), std::to_string(value), OptionKind::kInt, 0});
  }
  void Bool(std::string_view key, BOOL& value, BOOL) override {
    keys.push_back({PathOf(key), std::to_string(value), OptionKind::kSwitch, 0});
  }
  void Float(std::string_view key, float& value, float) override {
    char text[128];
    std::snprintf(text, sizeof text, "%f", static_cast<double>(value));
    keys.push_back({PathOf(key), text, OptionKind::kFloat, 0});
  }
  void Text(std::string_view key, char* field, size_t cap, std::string_view) override {
    keys.push_back({PathOf(key), std::string(OptionText(field, cap)), OptionKind::kText, cap - 1});
  }
  // The element ends up holding the switch, which is what a reader sees.
  void SwitchAndText(std::string_view key, BOOL& value, BOOL def, char*, size_t) override { Bool(key, value, def); }
};

bool ParseStrictLong(std::string_view text, LONG& out) {
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  const auto r = std::from_chars(text.data(), text.data() + text.size(), out);
  return r.ec == std::errc() && r.ptr == text.data() + text.size() && !text.empty();
}

bool EndsWithNoCase(std::string_view text, std::string_view tail) {
  return text.size() >= tail.size() && EqualNoCase(text.substr(text.size() - tail.size()), tail);
}

class Setter final : public PathTracker {
 public:
  Setter(std::string_view path, std::string_view value) : path_(path), value_(value) {}

  SetKeyResult result = SetKeyResult::kUnknownPath;
  std::string error;

  void Int(std::string_view key, LONG& value, LONG) override {
    if (!Match(key)) return;
    LONG v = 0;
    if (!ParseStrictLong(value_, v)) return Bad("an integer");
    // Network ports, and the serial ports numbered beside them, are never
    // negative; a TCP port ends at 65535.
    if (EndsWithNoCase(key, "Port") && (v < 0 || v > 65535)) return Bad("a port number from 0 to 65535");
    value = v;
  }
  void Bool(std::string_view key, BOOL& value, BOOL) override {
    if (!Match(key)) return;
    if (value_ != "0" && value_ != "1") return Bad("0 or 1");
    value = value_ == "1" ? 1 : 0;
  }
  void Float(std::string_view key, float& value, float) override {
    if (!Match(key)) return;
    float v = 0;
    const auto r = std::from_chars(value_.data(), value_.data() + value_.size(), v);
    if (r.ec != std::errc() || r.ptr != value_.data() + value_.size() || value_.empty() || !std::isfinite(v))
      return Bad("a finite decimal number");
    value = v;
  }
  void Text(std::string_view key, char* field, size_t cap, std::string_view) override {
    if (!Match(key)) return;
    if (value_.size() > cap - 1) return Bad("a text of at most " + std::to_string(cap - 1) + " bytes");
    std::memset(field, 0, cap);
    CopyOptionText(field, cap, value_);
  }
  void SwitchAndText(std::string_view key, BOOL& value, BOOL def, char* text, size_t cap) override {
    Bool(key, value, def);
    if (result == SetKeyResult::kSet) CopyOptionText(text, cap, value_);
  }

 private:
  bool Match(std::string_view key) {
    if (result != SetKeyResult::kUnknownPath) return false;
    const std::string full = PathOf(key);
    if (!EqualNoCase(full, path_)) return false;
    result = SetKeyResult::kSet;
    matched_ = full;
    return true;
  }
  void Bad(const std::string& want) {
    result = SetKeyResult::kBadValue;
    error = matched_ + " takes " + want + ", not \"" + value_ + "\"";
  }

  std::string path_;
  std::string value_;
  std::string matched_;
};

}  // namespace

std::vector<OptionKey> ListOptionKeys(tagDSZEPLODVROPTION& option, unsigned sections) {
  Lister lister;
  VisitOptionSections(lister, option, sections);
  return std::move(lister.keys);
}

std::string NormalizeOptionPath(std::string_view path) {
  std::string p(path);
  for (char& c : p)
    if (c == '\\') c = '/';
  while (!p.empty() && p.front() == '/') p.erase(0, 1);
  if (p.size() >= 9 && EqualNoCase(std::string_view(p).substr(0, 9), "ZeploXML/")) p.erase(0, 9);
  if (EqualNoCase(p, "ZeploXML")) p.clear();
  while (!p.empty() && p.back() == '/') p.pop_back();
  return p;
}

SetKeyResult SetOptionKey(tagDSZEPLODVROPTION& option, std::string_view path, std::string_view value,
                          std::string* error) {
  Setter setter(NormalizeOptionPath(path), value);
  VisitOptionSections(setter, option, kAllSections);
  if (error != nullptr) {
    if (setter.result == SetKeyResult::kUnknownPath)
      *error = "no setting at \"" + std::string(path) + "\"";
    else
      *error = setter.error;
  }
  return setter.result;
}

}  // namespace dravix::config
