// Shared pieces of the configuration tests: a program folder with fake
// language strings, a filler that gives every setting a varied value, and
// an independent look at the saved file through xmllint.
#pragma once

#include "dravix/config/default_names.h"
#include "dravix/config/option_visitor.h"
#include "dravix/config/optiontext.h"
#include "dravix/config/xmldoc.h"
#include "tests/support/run_program.h"
#include "tests/support/test_home.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <string>

namespace dravix::test {

// Language string n is "S<n>", so camera n defaults to "S<4503+n>".
class OptionHome : public TestHome {
 protected:
  void SetUp() override {
    TestHome::SetUp();
    config::SetOptionStringSource([](UINT id) { return "S" + std::to_string(id); });
  }
  void TearDown() override {
    config::SetOptionStringSource({});
    TestHome::TearDown();
  }
  std::string DocPath() const { return Path(config::kOptionFileName); }

  static std::unique_ptr<tagDSZEPLODVROPTION> NewOption() { return std::make_unique<tagDSZEPLODVROPTION>(); }

  // Loads the document with a fresh manager (as another process would).
  std::unique_ptr<tagDSZEPLODVROPTION> LoadFresh(int* parsed = nullptr) const {
    auto o = NewOption();
    ZXMLMGR mgr;
    mgr.LoadOption(*o);
    if (parsed != nullptr) *parsed = mgr.LastLoadParsed();
    return o;
  }
};

// The result of an XPath expression on a file, by xmllint (libxml2): a
// parser that shares nothing with ours. "<error>" when xmllint fails.
inline std::string XPath(const std::string& file, const std::string& expr) {
  int status = 0;
  std::string out = RunCommand("xmllint --xpath \"" + expr + "\" '" + file + "' 2>/dev/null", &status);
  if (status != 0) return "<error>";
  while (!out.empty() && out.back() == '\n') out.pop_back();
  return out;
}

inline bool SameRecord(const tagDSZEPLODVROPTION& a, const tagDSZEPLODVROPTION& b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

inline std::unique_ptr<tagDSZEPLODVROPTION> DefaultOption() {
  auto o = std::make_unique<tagDSZEPLODVROPTION>();
  config::FillDefaultOptions(*o);
  return o;
}

// Gives every setting a value drawn from a seeded generator; text arrays
// are zeroed first, so two records that agree in their settings agree byte
// for byte. The alarm text holds the switch's digit, as the document keeps
// only that.
class VariedFiller final : public config::OptionVisitor {
 public:
  explicit VariedFiller(unsigned seed) : rng_(seed) {}
  void Enter(std::string_view) override {}
  void Leave() override {}
  void Int(std::string_view, LONG& value, LONG) override { value = static_cast<LONG>(rng_() % 2000001) - 1000000; }
  void Bool(std::string_view, BOOL& value, BOOL) override { value = static_cast<BOOL>(rng_() & 1); }
  void Float(std::string_view, float& value, float) override { value = static_cast<float>(rng_() % 100000) / 1000.0f; }
  void Text(std::string_view, char* field, size_t cap, std::string_view) override {
    std::memset(field, 0, cap);
    const size_t len = rng_() % cap;  // 0 .. cap - 1
    for (size_t i = 0; i < len; ++i) field[i] = static_cast<char>(' ' + rng_() % 95);
  }
  void SwitchAndText(std::string_view key, BOOL& value, BOOL def, char* text, size_t cap) override {
    Bool(key, value, def);
    std::memset(text, 0, cap);
    text[0] = value ? '1' : '0';
  }

 private:
  std::mt19937 rng_;
};

// A whole record with every setting varied and the parts the document does
// not carry left zero, except narrow fields that went through a cast.
inline std::unique_ptr<tagDSZEPLODVROPTION> VariedOption(unsigned seed) {
  auto o = std::make_unique<tagDSZEPLODVROPTION>();
  VariedFiller filler(seed);
  config::VisitOptionSections(filler, *o, config::kAllSections);
  return o;
}

}  // namespace dravix::test
