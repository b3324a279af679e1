#include "dravix/config/lang_table.h"

#include "dravix/platform/files.h"
#include "dravix/platform/ini.h"
#include "dravix/platform/nocase.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <mutex>
#include <utility>

namespace dravix::config {
namespace {

constexpr const char* kLanguages[] = {"ENG", "CHT", "CHS", "JPN", "FRA", "TRK", "PLK", "PTG", "SKY", "ITA", "GER"};
constexpr int kLanguageCount = static_cast<int>(std::size(kLanguages));

std::atomic<long> g_tableReads{0};
std::mutex g_fallbackMutex;
std::vector<std::string> g_fallbacks;

const char* Prefix(LangHost host) { return host == LangHost::kPlayer ? "PLAY_" : "LIVE_"; }

// An id as a driver hands it over: decimal digits, possibly followed by a
// zero fraction when the column is numeric but not integer.
bool ParseId(const std::string& text, UINT* id) {
  const char* first = text.data();
  const char* last = first + text.size();
  const auto [end, ec] = std::from_chars(first, last, *id);
  if (ec != std::errc() || end == first) return false;
  if (end == last) return true;
  if (*end != '.') return false;
  return std::all_of(end + 1, last, [](char c) { return c == '0'; });
}

int ColumnIndex(const std::vector<std::string>& names, const char* name) {
  for (size_t i = 0; i < names.size(); ++i)
    if (EqualNoCase(names[i], name)) return static_cast<int>(i);
  return -1;
}

}  // namespace

const char* LangDatabaseFile(LangHost host) {
  return host == LangHost::kPlayer ? "PlayerMultiLang.mdb" : "LiveMultiLang.mdb";
}

const char* DefaultLangTable(LangHost host) { return host == LangHost::kPlayer ? "PLAY_CHT" : "LIVE_CHT"; }

std::string LangTableName(LangHost host, int language) {
  if (language < 0 || language >= kLanguageCount) return "";
  return std::string(Prefix(host)) + kLanguages[language];
}

std::string KnownLangTable(LangHost host, const std::string& name) {
  for (int i = 0; i < kLanguageCount; ++i) {
    std::string table = LangTableName(host, i);
    if (EqualNoCase(name, table)) return table;
  }
  return "";
}

bool LangHostOfTable(const std::string& name, LangHost* host) {
  for (LangHost h : {LangHost::kLive, LangHost::kPlayer}) {
    if (!KnownLangTable(h, name).empty()) {
      *host = h;
      return true;
    }
  }
  return false;
}

std::string ChooseLangTable(LangHost host, const std::string& folder) {
  const char* section = host == LangHost::kPlayer ? "PLAYER_LANGUAGE" : "LIVE_LANGUAGE";
  const std::string name = platform::ReadIniString(folder + "LiveVar.ini", section, "NAME", "");
  std::string table = KnownLangTable(host, name);
  return table.empty() ? DefaultLangTable(host) : table;
}

std::string LangConnectionText(const std::string& fileKey, const std::string& path) {
  return std::string("ODBC;DSN=") + kLangDataSource + "; Threads=3; SafeTransactions=0;" + fileKey + "=" + path +
         ";;UID=admin;PWD=";
}

long LangTableReads() { return g_tableReads.load(); }

void SetLangDatabaseFallbacks(std::vector<std::string> folders) {
  for (std::string& f : folders)
    if (!f.empty() && f.back() != '/') f += '/';
  std::lock_guard<std::mutex> lock(g_fallbackMutex);
  g_fallbacks = std::move(folders);
}

std::vector<std::string> LangDatabaseFallbacks() {
  std::lock_guard<std::mutex> lock(g_fallbackMutex);
  return g_fallbacks;
}

std::string FindLangDatabase(LangHost host, const std::string& folder) {
  const std::string own = folder + LangDatabaseFile(host);
  // Anything under the name in the program folder is its database, even
  // one that cannot be read: that is reported, not passed over.
  if (platform::PathExists(own)) return own;
  for (const std::string& f : LangDatabaseFallbacks()) {
    const std::string path = f + LangDatabaseFile(host);
    if (platform::PathSize(path) > 0) return path;
  }
  return "";
}

bool LangTable::Open(LangHost host, const std::string& folder, std::string* error) {
  Close();
  std::string path = FindLangDatabase(host, folder);
  if (path.empty()) {
    if (error) {
      *error = "no language database: " + folder + LangDatabaseFile(host) + " does not exist";
      const std::vector<std::string> fallbacks = LangDatabaseFallbacks();
      if (!fallbacks.empty()) {
        *error += ", nor in";
        for (const std::string& f : fallbacks) *error += " " + f;
      }
    }
    return false;
  }
  std::optional<platform::FileDriver> driver = platform::DriverForDatabaseFile(path, error);
  if (!driver) return false;

  std::vector<std::pair<std::string, std::string>> attributes = {
      {"Description", "DVR language database"},
      {"FileType", driver->fileType},
      {"DataDirectory", path.substr(0, path.rfind('/') + 1)},
      {"MaxScanRows", "200"},
      {driver->iniFileKey, path},
  };
  attributes.insert(attributes.end(), driver->iniExtras.begin(), driver->iniExtras.end());
  if (!platform::RegisterUserDataSource(kLangDataSource, driver->driver, attributes, error)) return false;

  std::string reason;
  if (!connection_.Open(LangConnectionText(driver->connectFileKey, path), &reason)) {
    if (error) *error = path + ": " + reason;
    return false;
  }
  path_ = path;
  return true;
}

void LangTable::Close() {
  connection_.Close();
  path_.clear();
  table_.clear();
  read_ = false;
  readError_.clear();
  rows_.clear();
}

void LangTable::Select(const std::string& table) {
  table_ = table;
  read_ = false;
  readError_.clear();
  rows_.clear();
}

const LangRow* LangTable::Find(UINT id, std::string* error) {
  if (!read_) {
    read_ = true;  // a failed read is not repeated for every id
    if (!ReadTable(&readError_)) {
      rows_.clear();
      if (error) *error = readError_;
    }
  }
  const auto it = rows_.find(id);
  return it == rows_.end() ? nullptr : &it->second;
}

bool LangTable::Rows(std::vector<std::pair<UINT, const LangRow*>>* rows, std::string* error) {
  rows->clear();
  Find(0, nullptr);
  if (!readError_.empty()) {
    if (error) *error = readError_;
    return false;
  }
  rows->reserve(rows_.size());
  for (const auto& [id, row] : rows_) rows->emplace_back(id, &row);
  std::sort(rows->begin(), rows->end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  return true;
}

bool LangTable::ReadTable(std::string* error) {
  if (!connection_.IsOpen()) {
    if (error) *error = "no language database is open";
    return false;
  }
  // Only a canonical table name ever reaches the statement text.
  LangHost host;
  if (!LangHostOfTable(table_, &host)) {
    if (error) *error = "unknown language table \"" + table_ + "\"";
    return false;
  }
  ++g_tableReads;
  // A table that is not there is said plainly, before the driver is asked
  // for it (some drivers print their own complaints on standard error).
  std::vector<std::string> tables;
  if (connection_.TableNames(&tables, nullptr) &&
      std::none_of(tables.begin(), tables.end(), [this](const std::string& t) { return EqualNoCase(t, table_); })) {
    if (error) *error = "language table " + table_ + " is not in " + path_;
    return false;
  }
  int idColumn = -1, textColumn = -1, nationalColumn = -1;
  std::string reason;
  bool columnsOk = true;
  const bool ok = connection_.Query(
      "SELECT * FROM " + KnownLangTable(host, table_),
      [&](const std::vector<std::string>& names) {
        idColumn = ColumnIndex(names, "ID");
        textColumn = ColumnIndex(names, "Text");
        nationalColumn = ColumnIndex(names, "National");
        columnsOk = idColumn >= 0 && textColumn >= 0;
      },
      [&](const platform::OdbcRow& row) {
        if (!columnsOk) return false;
        const auto& idCell = row[static_cast<size_t>(idColumn)];
        UINT id = 0;
        if (!idCell || !ParseId(*idCell, &id)) return true;
        LangRow value;
        value.text = row[static_cast<size_t>(textColumn)].value_or("");
        if (nationalColumn >= 0) value.national = row[static_cast<size_t>(nationalColumn)].value_or("");
        rows_.try_emplace(id, std::move(value));  // the first row of an id wins
        return true;
      },
      &reason);
  if (!ok) {
    if (error) *error = "language table " + table_ + ": " + reason;
    return false;
  }
  if (!columnsOk) {
    if (error) *error = "language table " + table_ + " has no [ID] or [Text] column";
    return false;
  }
  return true;
}

}  // namespace dravix::config
