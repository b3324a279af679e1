// The language database behind IString: which file and table serve a host
// program, and a table read into memory once for lookups by id.
//
// Use IString for lookups; use this directly only to look into a table
// that is not the configured one (tools) or to check the reading rules.
#pragma once

#include "dravix/platform/odbc.h"
#include "dravix/platform/wintypes.h"

#include <string>
#include <unordered_map>
#include <vector>

namespace dravix::config {

// The host program a language database serves.
enum class LangHost { kLive, kPlayer };

inline constexpr char kLangDataSource[] = "DVRLang";

// "LiveMultiLang.mdb" / "PlayerMultiLang.mdb".
const char* LangDatabaseFile(LangHost host);
// Folders that serve a host's language database when the program folder
// has none: the databases installed with the package or built beside the
// program. Each ends with '/'. Nothing is copied from them; they are only
// read. Empty by default; the dravix program sets them.
void SetLangDatabaseFallbacks(std::vector<std::string> folders);
std::vector<std::string> LangDatabaseFallbacks();
// The file that serves `host` for the program folder `folder`: its own
// database when it has one, else the first fallback's; "" when there is
// none anywhere.
std::string FindLangDatabase(LangHost host, const std::string& folder);

// "LIVE_CHT" / "PLAY_CHT".
const char* DefaultLangTable(LangHost host);
// The table of `language` (0 = ENG .. 10 = GER) for the host, e.g.
// "LIVE_ENG"; "" for a value outside the range.
std::string LangTableName(LangHost host, int language);
// The table's canonical name when `name` names one of the host's eleven
// tables (case ignored); "" otherwise.
std::string KnownLangTable(LangHost host, const std::string& name);
// The host that owns a table name ("LIVE_..." or "PLAY_..."), by prefix.
bool LangHostOfTable(const std::string& name, LangHost* host);

// The table chosen in folder + "LiveVar.ini": section "LIVE_LANGUAGE"
// (player "PLAYER_LANGUAGE"), key "NAME", when it names a known table;
// otherwise the default table.
std::string ChooseLangTable(LangHost host, const std::string& folder);

// The connection text for a database file: the data source, the file under
// the attribute `fileKey`, an empty password.
std::string LangConnectionText(const std::string& fileKey, const std::string& path);

// How many whole-table reads all LangTables of this process have made.
long LangTableReads();

struct LangRow {
  std::string text;      // "[Text]"
  std::string national;  // "[National]" ("" when the table has none)
};

// One open language database and one selected table.
//
// The first lookup after Select() reads the whole table with one query and
// keeps the first row of each id, which is what a walk from the first row
// to the first match would find; later lookups, found or not, never touch
// the database again until the next Select() or Open().
class LangTable {
 public:
  LangTable() = default;
  LangTable(const LangTable&) = delete;
  LangTable& operator=(const LangTable&) = delete;

  // Registers the "DVRLang" user data source for the host's file (in
  // `folder`, else in a fallback folder: FindLangDatabase), with the driver
  // the file's signature calls for, and connects to it.
  // False with the reason in `error` (nothing stays open then).
  bool Open(LangHost host, const std::string& folder, std::string* error);
  bool IsOpen() const { return connection_.IsOpen(); }
  void Close();
  // The open connection, for tools and tests that look into other tables.
  platform::OdbcConnection& connection() { return connection_; }

  // Makes `table` (a known table name) the one lookups read.
  void Select(const std::string& table);
  const std::string& table() const { return table_; }

  // The first row of `id`, or nullptr when the table has none (or could
  // not be read: `error` then says why, on the call that read it). The
  // pointer stays valid until Select(), Open() or Close().
  const LangRow* Find(UINT id, std::string* error);
  // Every id of the table with its first row, in ascending order of id.
  // False with the reason in `error` when the table could not be read.
  // The pointers stay valid as Find()'s do.
  bool Rows(std::vector<std::pair<UINT, const LangRow*>>* rows, std::string* error);

 private:
  bool ReadTable(std::string* error);

  platform::OdbcConnection connection_;
  std::string path_;  // the open database file
  std::string table_;
  bool read_ = false;
  std::string readError_;  // why the last read failed ("" when it did not)
  std::unordered_map<UINT, LangRow> rows_;
};

}  // namespace dravix::config
