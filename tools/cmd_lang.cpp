// `dravix lang`: interface texts from the program folder's language
// database, and `dravix lang install` to put the built databases there.
#include "tools/command.h"
#include "tools/interface_lang.h"
#include "tools/table.h"

#include "dravix/base/zfile.h"
#include "dravix/config/lang_table.h"
#include "dravix/platform/module_path.h"
#include "dravix/platform/odbc.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <filesystem>
#include <iostream>

namespace dravix::cli {
namespace {

using config::LangHost;

struct LangOptions {
  std::string arg;    // an id, "install" or nothing
  std::string table;  // --table
  std::string from;   // --from (install)
  std::string grep;   // --grep (ids)
  bool player = false;
};

LangOptions& Options() {
  static LangOptions o;
  return o;
}

// Where the databases built from lang/ are: beside the program in a build
// tree, or under share/dravix in an installed one.
std::string FindBuiltDatabases() {
  const std::string exe = platform::ExecutableFolder();
  for (const std::string& folder : {exe + "lang/", exe + "../share/dravix/"}) {
    std::error_code ec;
    if (std::filesystem::is_regular_file(folder + config::LangDatabaseFile(LangHost::kLive), ec))
      return std::filesystem::weakly_canonical(folder, ec).string() + "/";
  }
  return "";
}

std::string MissingDatabaseMessage(const std::string& folder, LangHost host) {
  return std::string("no language database in ") + folder + ": " + config::LangDatabaseFile(host) +
         " is missing (copy the built ones with `dravix lang install --home " + folder + "`)";
}

int Install() {
  const LangOptions& o = Options();
  std::string from = o.from.empty() ? FindBuiltDatabases() : o.from;
  if (from.empty())
    throw Failure("cannot find the built language databases beside the program; name them with --from DIR");
  if (from.back() != '/') from += '/';
  const std::string home = GetModulePath();
  nlohmann::json installed = nlohmann::json::array();
  for (LangHost host : {LangHost::kLive, LangHost::kPlayer}) {
    const std::string name = config::LangDatabaseFile(host);
    std::error_code ec;
    std::filesystem::copy_file(from + name, home + name, std::filesystem::copy_options::overwrite_existing, ec);
    if (ec) throw Failure("cannot copy " + from + name + " to " + home + ": " + ec.message());
    installed.push_back(name);
  }
  if (Globals().json) {
    std::cout << nlohmann::json{{"home", home}, {"from", from}, {"installed", installed}}.dump(2) << '\n';
  } else {
    std::cout << "installed LiveMultiLang.mdb and PlayerMultiLang.mdb from " << from << " into " << home << '\n';
  }
  return kExitOk;
}

// The host and table a lookup reads: --table decides both, else --player
// and the choice in "LiveVar.ini".
std::pair<LangHost, std::string> ChooseTable(const std::string& folder) {
  const LangOptions& o = Options();
  LangHost host = o.player ? LangHost::kPlayer : LangHost::kLive;
  if (!o.table.empty() && !Globals().lang.empty()) throw UsageError("give --table or --lang, not both");
  if (!Globals().lang.empty()) {
    // --lang was checked against the codes before the command ran.
    for (int i = 0;; ++i) {
      const std::string table = config::LangTableName(host, i);
      if (table.empty()) break;
      if (table.substr(table.find('_') + 1) == CurrentLangCode()) return {host, table};
    }
  }
  if (o.table.empty()) return {host, config::ChooseLangTable(host, folder)};
  if (!config::LangHostOfTable(o.table, &host))
    throw UsageError("unknown table \"" + o.table + "\" (LIVE_ENG ... LIVE_GER or PLAY_ENG ... PLAY_GER)");
  return {host, config::KnownLangTable(host, o.table)};
}

int Status() {
  const std::string folder = GetModulePath();
  const auto [host, table] = ChooseTable(folder);
  const std::string path = config::FindLangDatabase(host, folder);
  if (path.empty()) throw Failure(MissingDatabaseMessage(folder, host));
  const platform::DatabaseFileKind kind = platform::ProbeDatabaseFile(path);
  if (Globals().json) {
    std::cout << nlohmann::json{{"database", path},
                                {"kind", platform::DatabaseFileKindName(kind)},
                                {"table", table},
                                {"data_source", config::kLangDataSource}}
                     .dump(2)
              << '\n';
  } else {
    PrintPairs(std::cout, {{"database", path},
                           {"kind", platform::DatabaseFileKindName(kind)},
                           {"table", table},
                           {"data source", config::kLangDataSource}});
  }
  return kExitOk;
}

// Opens the database a lookup reads and selects its table; returns the
// database's file.
std::string OpenTable(config::LangTable* db, std::string* tableName) {
  const std::string folder = GetModulePath();
  const auto [host, table] = ChooseTable(folder);
  const std::string path = config::FindLangDatabase(host, folder);
  if (path.empty()) throw Failure(MissingDatabaseMessage(folder, host));
  std::string error;
  if (!db->Open(host, folder, &error)) throw Failure("cannot open the language database: " + error);
  db->Select(table);
  *tableName = table;
  return path;
}

int Ids() {
  config::LangTable db;
  std::string table;
  OpenTable(&db, &table);
  std::vector<std::pair<UINT, const config::LangRow*>> rows;
  std::string error;
  if (!db.Rows(&rows, &error)) throw Failure(error);
  const std::string& grep = Options().grep;
  auto matches = [&grep](UINT id, const std::string& text) {
    if (grep.empty() || std::to_string(id).find(grep) != std::string::npos) return true;
    return std::search(text.begin(), text.end(), grep.begin(), grep.end(), [](char a, char b) {
             return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
           }) != text.end();
  };
  nlohmann::json out = nlohmann::json::array();
  Table t({"id", "text"});
  for (const auto& [id, row] : rows) {
    if (!matches(id, row->text)) continue;
    if (Globals().json)
      out.push_back({{"id", id}, {"text", row->text}});
    else
      t.Add({std::to_string(id), row->text});
  }
  if (Globals().json) {
    std::cout << out.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
  } else if (t.empty()) {
    std::cerr << "dravix: no text of table " << table << (grep.empty() ? "" : " matches \"" + grep + "\"") << '\n';
  } else {
    t.Print(std::cout);
  }
  return kExitOk;
}

int Lookup(UINT id) {
  config::LangTable db;
  std::string table;
  const std::string file = OpenTable(&db, &table);
  std::string error;
  const config::LangRow* row = db.Find(id, &error);
  if (row == nullptr) {
    if (!error.empty()) throw Failure(error);
    throw Failure("id " + std::to_string(id) + " is not in table " + table + " of " + file);
  }
  if (Globals().json) {
    std::cout << nlohmann::json{{"id", id}, {"table", table}, {"text", row->text}}.dump(2) << '\n';
  } else {
    std::cout << row->text << '\n';
  }
  return kExitOk;
}

int Lang() {
  const LangOptions& o = Options();
  if (o.arg == "install") return Install();
  if (!o.from.empty()) throw UsageError("--from belongs to `dravix lang install`");
  if (o.arg == "ids") return Ids();
  if (!o.grep.empty()) throw UsageError("--grep belongs to `dravix lang ids`");
  if (o.arg.empty()) return Status();
  UINT id = 0;
  const auto [end, ec] = std::from_chars(o.arg.data(), o.arg.data() + o.arg.size(), id);
  if (ec != std::errc() || end != o.arg.data() + o.arg.size())
    throw UsageError("\"" + o.arg + "\" is not a string id, `ids` or `install`");
  return Lookup(id);
}

void Register(CLI::App& app) {
  LangOptions& o = Options();
  CLI::App* cmd =
      AddCommand(&app, "lang",
                 "Interface texts by id from the program folder's language database "
                 "(registers the DVRLang ODBC data source in $ODBCINI, else ~/.odbc.ini); "
                 "`lang ids` lists the ids and texts of a table; `lang install` copies the built databases into the "
                 "program folder",
                 Lang);
  cmd->add_option("ID", o.arg,
                  "String id to look up, `ids` to list them, or `install`; none: show the database and table");
  cmd->add_option("--table", o.table, "Table to read (default: the choice in LiveVar.ini, else LIVE_CHT/PLAY_CHT)")
      ->type_name("TABLE");
  cmd->add_flag("--player", o.player, "Use the player's database PlayerMultiLang.mdb");
  cmd->add_option("--from", o.from, "With install: folder holding the built databases")->type_name("DIR");
  cmd->add_option("--grep", o.grep, "With ids: only the ids and texts that hold this (case ignored)");
  AddLangOption(cmd);
  AllowCreateHome(cmd);  // for `lang install` into a new program folder
  AddJsonFlag(cmd);
}

const Registration reg{60, Register};

}  // namespace
}  // namespace dravix::cli
