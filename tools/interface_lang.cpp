#include "tools/interface_lang.h"

#include "dravix/base/zfile.h"
#include "dravix/config/default_names.h"
#include "dravix/config/lang_table.h"
#include "dravix/platform/nocase.h"
#include "dravix/users/iaccountmgr.h"
#include "tools/command.h"

#include <iostream>
#include <map>
#include <memory>

namespace dravix::cli {
namespace {

using config::LangHost;

constexpr int kLanguages = 11;

std::string& Chosen() {
  static std::string code;
  return code;
}

// One connection per table, each table read once on its first lookup.
// A database that cannot be opened is said once.
class Tables {
 public:
  config::LangTable* Get(const std::string& table) {
    auto& db = open_[table];
    if (db) return db->IsOpen() ? db.get() : nullptr;
    db = std::make_unique<config::LangTable>();
    std::string error;
    if (!db->Open(LangHost::kLive, GetModulePath(), &error)) {
      if (!warned_) std::cerr << "dravix: cannot open the language database: " << error << "\n";
      warned_ = true;
      return nullptr;
    }
    db->Select(table);
    return db.get();
  }

 private:
  std::map<std::string, std::unique_ptr<config::LangTable>> open_;
  bool warned_ = false;
};

Tables& Open() {
  static Tables t;
  return t;
}

}  // namespace

std::vector<std::string> LangCodes() {
  std::vector<std::string> codes;
  const std::string prefix = "LIVE_";
  for (int i = 0; i < kLanguages; ++i) {
    const std::string table = config::LangTableName(LangHost::kLive, i);
    if (!table.empty()) codes.push_back(table.substr(prefix.size()));
  }
  return codes;
}

std::string LangCodeList() {
  std::string list;
  for (const std::string& c : LangCodes()) list += (list.empty() ? "" : ", ") + c;
  return list;
}

void UseLang(const std::string& code) {
  for (const std::string& c : LangCodes()) {
    if (!EqualNoCase(c, code)) continue;
    Chosen() = c;
    auto text = [c](UINT id) { return LangText(c, id); };
    users::SetAccountStringSource(text);
    config::SetOptionStringSource(text);
    return;
  }
  throw UsageError("--lang " + code + ": not a language of the interface texts; give one of " + LangCodeList());
}

std::string CurrentLangCode() {
  if (!Chosen().empty()) return Chosen();
  const std::string table = config::ChooseLangTable(LangHost::kLive, GetModulePath());
  const size_t underscore = table.find('_');
  return underscore == std::string::npos ? table : table.substr(underscore + 1);
}

std::string LangText(const std::string& code, UINT id) {
  const std::string table = config::KnownLangTable(LangHost::kLive, "LIVE_" + code);
  if (table.empty()) return "";
  config::LangTable* db = Open().Get(table);
  if (db == nullptr) return "";
  std::string error;
  const config::LangRow* row = db->Find(id, &error);
  if (!error.empty()) std::cerr << "dravix: " << error << "\n";
  return row != nullptr ? row->text : std::string();
}

}  // namespace dravix::cli
