// ODBC access through the unixODBC driver manager: user data sources, the
// driver that suits a database file, and a connection that reads query
// results as text. This is the only place that includes the ODBC headers.
//
// Driver facts this provider is built on (unixODBC 2.3, Debian's SQLite3
// ODBC driver and MDBTools):
// - Neither driver exports a setup entry, so SQLConfigDataSource fails for
//   them; RegisterUserDataSource then writes odbc.ini itself.
// - User data sources live in $ODBCINI when it is set (unixODBC ignores
//   $HOME), else in the account's ~/.odbc.ini.
// - The SQLite3 driver takes the file from "Database=" and ignores "DBQ=";
//   MDBTools takes "DBQ=" in a connection text and "Database=" in odbc.ini.
// - MDBTools reports a failed connect without a diagnostic record, so
//   failures are judged by return codes; the diagnostic text is a bonus.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace dravix::platform {

// What a database file holds, judged by its first bytes only.
enum class DatabaseFileKind {
  kMissing,  // no such file (or it cannot be opened)
  kSQLite,   // "SQLite format 3\0"
  kJet,      // an Access file: "Standard Jet DB" or "Standard ACE DB" at byte 4
  kUnknown,  // anything else, an empty file included
};
DatabaseFileKind ProbeDatabaseFile(const std::string& path);
const char* DatabaseFileKindName(DatabaseFileKind kind);

// The driver manager's version ("03.52.0002.0003" style, as unixODBC gives
// it), or "" when it cannot be asked.
std::string OdbcManagerVersion();

// The driver chosen for a database file and how to hand it the file.
struct FileDriver {
  std::string driver;          // the name registered in odbcinst.ini, or the library's path
  std::string fileType;        // "SQLite" or "Access"
  std::string connectFileKey;  // attribute naming the file in a connection text
  std::string iniFileKey;      // attribute naming the file in odbc.ini
  std::vector<std::pair<std::string, std::string>> iniExtras;  // further odbc.ini attributes
};

// The installed driver named `name` when odbcinst.ini lists it; otherwise
// the first of `searchFolders` (each ending in '/') that holds
// `libraryFile`, as a full path; nullopt when neither exists.
std::optional<std::string> ResolveOdbcDriver(const std::string& name, const std::string& libraryFile,
                                             const std::vector<std::string>& searchFolders);
// The folders where Debian and other distributions put ODBC drivers.
const std::vector<std::string>& DefaultDriverFolders();

// Picks the driver by the file's signature: SQLite files go to "SQLite3"
// (libsqlite3odbc.so), Access files to "MDBTools" (libmdbodbc.so). On
// failure returns nullopt and says why in `error` (missing file, unknown
// format, driver not installed).
std::optional<FileDriver> DriverForDatabaseFile(const std::string& path, std::string* error);

// Registers `dsn` as a user data source of `driver` with `attributes`
// (key, value; "DSN" is implied). Asks the ODBC installer first
// (SQLConfigDataSource); when the driver has no setup entry, writes the
// data source and each attribute into the user odbc.ini. Returns false
// with the installer's message in `error` when both fail.
bool RegisterUserDataSource(const std::string& dsn, const std::string& driver,
                            const std::vector<std::pair<std::string, std::string>>& attributes, std::string* error);
// A value of a user data source from odbc.ini ("" when absent).
std::string ReadUserDataSource(const std::string& dsn, const std::string& key);

// One row of a result: a text per column, nullopt for SQL NULL.
using OdbcRow = std::vector<std::optional<std::string>>;

// A connection to one data source. Not copyable; movable. Not for use by
// two threads at once.
class OdbcConnection {
 public:
  OdbcConnection();
  ~OdbcConnection();
  OdbcConnection(const OdbcConnection&) = delete;
  OdbcConnection& operator=(const OdbcConnection&) = delete;
  OdbcConnection(OdbcConnection&& other) noexcept;
  OdbcConnection& operator=(OdbcConnection&& other) noexcept;

  // Connects with a connection text ("DSN=...;DBQ=..."). A leading "ODBC;"
  // is dropped, as database class libraries do. Closes any previous
  // connection first. False with the reason in `error` on failure.
  bool Open(const std::string& connectionText, std::string* error);
  bool IsOpen() const;
  void Close();

  // Runs `sql` and hands each row to `onRow` in the order the driver
  // returns them, with the result's column names first to `onColumns`.
  // `onRow` returns false to stop early. Texts are UTF-8; long values are
  // read piecewise. False with the reason in `error` when the statement
  // fails.
  bool Query(const std::string& sql, const std::function<void(const std::vector<std::string>&)>& onColumns,
             const std::function<bool(const OdbcRow&)>& onRow, std::string* error);
  // The names of the database's tables (catalog functions, no statement
  // text). False with the reason in `error` when the driver cannot list them.
  bool TableNames(std::vector<std::string>* names, std::string* error);

 private:
  // Runs what `execute` starts on a new statement (its return is a SQLRETURN)
  // and reads the result as Query does.
  bool Run(const std::function<short(void*)>& execute,
           const std::function<void(const std::vector<std::string>&)>& onColumns,
           const std::function<bool(const OdbcRow&)>& onRow, std::string* error);

  void* env_ = nullptr;  // SQLHENV
  void* dbc_ = nullptr;  // SQLHDBC
  bool connected_ = false;
};

}  // namespace dravix::platform
