#include "dravix/platform/odbc.h"

#include <odbcinst.h>
#include <sql.h>
#include <sqlext.h>

#include <cstring>
#include <filesystem>
#include <fstream>

namespace dravix::platform {
namespace {

constexpr char kSQLiteSignature[] = "SQLite format 3";  // 16 bytes with its NUL
constexpr char kJetSignature[] = "Standard Jet DB";     // at byte 4 of an .mdb
constexpr char kAceSignature[] = "Standard ACE DB";     // at byte 4 of an .accdb

SQLHENV Env(void* p) { return static_cast<SQLHENV>(p); }
SQLHDBC Dbc(void* p) { return static_cast<SQLHDBC>(p); }

// Every diagnostic record of a handle, joined by "; ".
std::string Diagnostics(SQLSMALLINT type, SQLHANDLE handle) {
  std::string out;
  for (SQLSMALLINT i = 1;; ++i) {
    SQLCHAR state[6] = {};
    SQLCHAR text[1024] = {};
    SQLINTEGER native = 0;
    SQLSMALLINT len = 0;
    if (!SQL_SUCCEEDED(SQLGetDiagRec(type, handle, i, state, &native, text, sizeof text, &len))) break;
    if (!out.empty()) out += "; ";
    out += reinterpret_cast<const char*>(state);
    out += ' ';
    out += reinterpret_cast<const char*>(text);
  }
  return out;
}

// The messages the installer queued for the last call.
std::string InstallerErrors() {
  std::string out;
  for (WORD i = 1; i <= 8; ++i) {
    DWORD code = 0;
    char text[SQL_MAX_MESSAGE_LENGTH] = {};
    WORD len = 0;
    if (SQLInstallerError(i, &code, text, sizeof text, &len) != SQL_SUCCESS) break;
    if (!out.empty()) out += "; ";
    out += text;
  }
  return out.empty() ? "installer error" : out;
}

bool DriverInstalled(const std::string& name) {
  std::vector<char> list(16384, '\0');
  WORD used = 0;
  if (!SQLGetInstalledDrivers(list.data(), static_cast<WORD>(list.size() - 1), &used)) return false;
  for (const char* p = list.data(); *p != '\0' && p < list.data() + list.size(); p += std::strlen(p) + 1)
    if (name == p) return true;
  return false;
}

// Restores the installer's configuration mode when it leaves scope, so a
// user-only write never changes how other callers see data sources.
class UserConfigMode {
 public:
  UserConfigMode() {
    if (!SQLGetConfigMode(&saved_)) saved_ = ODBC_BOTH_DSN;
    SQLSetConfigMode(ODBC_USER_DSN);
  }
  ~UserConfigMode() { SQLSetConfigMode(saved_); }
  UserConfigMode(const UserConfigMode&) = delete;
  UserConfigMode& operator=(const UserConfigMode&) = delete;

 private:
  UWORD saved_ = ODBC_BOTH_DSN;
};

}  // namespace

DatabaseFileKind ProbeDatabaseFile(const std::string& path) {
  std::error_code ec;
  if (!std::filesystem::is_regular_file(path, ec)) return DatabaseFileKind::kMissing;
  std::ifstream in(path, std::ios::binary);
  if (!in) return DatabaseFileKind::kMissing;
  char head[20] = {};
  in.read(head, sizeof head);
  const auto got = static_cast<size_t>(in.gcount());
  if (got >= sizeof kSQLiteSignature && std::memcmp(head, kSQLiteSignature, sizeof kSQLiteSignature) == 0)
    return DatabaseFileKind::kSQLite;
  const size_t jetLen = sizeof kJetSignature - 1;
  if (got >= 4 + jetLen &&
      (std::memcmp(head + 4, kJetSignature, jetLen) == 0 || std::memcmp(head + 4, kAceSignature, jetLen) == 0))
    return DatabaseFileKind::kJet;
  return DatabaseFileKind::kUnknown;
}

const char* DatabaseFileKindName(DatabaseFileKind kind) {
  switch (kind) {
    case DatabaseFileKind::kMissing:
      return "missing";
    case DatabaseFileKind::kSQLite:
      return "SQLite";
    case DatabaseFileKind::kJet:
      return "Access";
    case DatabaseFileKind::kUnknown:
      break;
  }
  return "unknown";
}

std::string OdbcManagerVersion() {
  SQLHENV env = SQL_NULL_HENV;
  if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &env))) return "";
  std::string version;
  SQLHDBC dbc = SQL_NULL_HDBC;
  if (SQL_SUCCEEDED(SQLSetEnvAttr(env, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0)) &&
      SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_DBC, env, &dbc))) {
    // The driver manager answers SQL_DM_VER without a connection.
    SQLCHAR text[64] = {};
    SQLSMALLINT length = 0;
    if (SQL_SUCCEEDED(SQLGetInfo(dbc, SQL_DM_VER, text, sizeof text, &length)))
      version = reinterpret_cast<const char*>(text);
    SQLFreeHandle(SQL_HANDLE_DBC, dbc);
  }
  SQLFreeHandle(SQL_HANDLE_ENV, env);
  return version;
}

const std::vector<std::string>& DefaultDriverFolders() {
  static const std::vector<std::string> folders = {"/usr/lib/x86_64-linux-gnu/odbc/",
                                                   "/usr/lib/aarch64-linux-gnu/odbc/",
                                                   "/usr/lib/i386-linux-gnu/odbc/",
                                                   "/usr/lib64/",
                                                   "/usr/lib/odbc/",
                                                   "/usr/local/lib/odbc/",
                                                   "/usr/local/lib/",
                                                   "/usr/lib/"};
  return folders;
}

std::optional<std::string> ResolveOdbcDriver(const std::string& name, const std::string& libraryFile,
                                             const std::vector<std::string>& searchFolders) {
  if (DriverInstalled(name)) return name;
  for (const std::string& folder : searchFolders) {
    std::error_code ec;
    const std::string path = folder + libraryFile;
    if (std::filesystem::is_regular_file(path, ec)) return path;
  }
  return std::nullopt;
}

std::optional<FileDriver> DriverForDatabaseFile(const std::string& path, std::string* error) {
  const DatabaseFileKind kind = ProbeDatabaseFile(path);
  FileDriver d;
  std::string name;
  std::string library;
  switch (kind) {
    case DatabaseFileKind::kMissing:
      if (error) *error = path + ": file not found";
      return std::nullopt;
    case DatabaseFileKind::kUnknown:
      if (error) *error = path + ": neither an SQLite nor an Access database";
      return std::nullopt;
    case DatabaseFileKind::kSQLite:
      name = "SQLite3";
      library = "libsqlite3odbc.so";
      d.fileType = "SQLite";
      d.connectFileKey = "Database";
      d.iniFileKey = "Database";
      // The driver would otherwise create an empty database in place of a
      // file that vanished after the probe.
      d.iniExtras = {{"NoCreat", "1"}};
      break;
    case DatabaseFileKind::kJet:
      name = "MDBTools";
      library = "libmdbodbc.so";
      d.fileType = "Access";
      d.connectFileKey = "DBQ";
      d.iniFileKey = "Database";
      break;
  }
  std::optional<std::string> driver = ResolveOdbcDriver(name, library, DefaultDriverFolders());
  if (!driver) {
    if (error)
      *error = path + ": " + DatabaseFileKindName(kind) + " database, but the ODBC driver \"" + name + "\" (" +
               library + ") is not installed";
    return std::nullopt;
  }
  d.driver = *driver;
  return d;
}

bool RegisterUserDataSource(const std::string& dsn, const std::string& driver,
                            const std::vector<std::pair<std::string, std::string>>& attributes, std::string* error) {
  // The installer takes one block of NUL-terminated "key=value" entries,
  // ended by an empty entry.
  std::string block = "DSN=" + dsn;
  block += '\0';
  for (const auto& [key, value] : attributes) {
    block += key + "=" + value;
    block += '\0';
  }
  block += '\0';
  if (SQLConfigDataSource(nullptr, ODBC_ADD_DSN, driver.c_str(), block.c_str())) return true;
  const std::string configError = InstallerErrors();

  // No setup entry in the driver: write the user odbc.ini directly.
  UserConfigMode mode;
  if (!SQLWriteDSNToIni(dsn.c_str(), driver.c_str())) {
    if (error) *error = "cannot register data source " + dsn + ": " + configError + "; " + InstallerErrors();
    return false;
  }
  for (const auto& [key, value] : attributes) {
    if (!SQLWritePrivateProfileString(dsn.c_str(), key.c_str(), value.c_str(), "odbc.ini")) {
      if (error) *error = "cannot write " + key + " of data source " + dsn + ": " + InstallerErrors();
      return false;
    }
  }
  return true;
}

std::string ReadUserDataSource(const std::string& dsn, const std::string& key) {
  UserConfigMode mode;
  char value[4096] = {};
  SQLGetPrivateProfileString(dsn.c_str(), key.c_str(), "", value, sizeof value, "odbc.ini");
  return value;
}

OdbcConnection::OdbcConnection() = default;

OdbcConnection::~OdbcConnection() { Close(); }

OdbcConnection::OdbcConnection(OdbcConnection&& other) noexcept
    : env_(std::exchange(other.env_, nullptr)),
      dbc_(std::exchange(other.dbc_, nullptr)),
      connected_(std::exchange(other.connected_, false)) {}

OdbcConnection& OdbcConnection::operator=(OdbcConnection&& other) noexcept {
  if (this != &other) {
    Close();
    env_ = std::exchange(other.env_, nullptr);
    dbc_ = std::exchange(other.dbc_, nullptr);
    connected_ = std::exchange(other.connected_, false);
  }
  return *this;
}

bool OdbcConnection::IsOpen() const { return connected_; }

void OdbcConnection::Close() {
  if (connected_) SQLDisconnect(Dbc(dbc_));
  connected_ = false;
  if (dbc_ != nullptr) SQLFreeHandle(SQL_HANDLE_DBC, Dbc(dbc_));
  if (env_ != nullptr) SQLFreeHandle(SQL_HANDLE_ENV, Env(env_));
  dbc_ = nullptr;
  env_ = nullptr;
}

bool OdbcConnection::Open(const std::string& connectionText, std::string* error) {
  Close();
  std::string text = connectionText;
  if (text.compare(0, 5, "ODBC;") == 0) text.erase(0, 5);

  SQLHENV env = SQL_NULL_HENV;
  if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &env))) {
    if (error) *error = "cannot allocate an ODBC environment";
    return false;
  }
  env_ = env;
  SQLSetEnvAttr(env, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
  SQLHDBC dbc = SQL_NULL_HDBC;
  if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_DBC, env, &dbc))) {
    if (error) *error = "cannot allocate an ODBC connection: " + Diagnostics(SQL_HANDLE_ENV, env);
    Close();
    return false;
  }
  dbc_ = dbc;
  std::vector<SQLCHAR> in(text.begin(), text.end());
  in.push_back('\0');
  const SQLRETURN r = SQLDriverConnect(dbc, nullptr, in.data(), SQL_NTS, nullptr, 0, nullptr, SQL_DRIVER_NOPROMPT);
  if (!SQL_SUCCEEDED(r)) {
    if (error) {
      const std::string diag = Diagnostics(SQL_HANDLE_DBC, dbc);
      *error = "connect failed: " + (diag.empty() ? std::string("the driver gave no reason") : diag);
    }
    Close();
    return false;
  }
  connected_ = true;
  return true;
}

bool OdbcConnection::Query(const std::string& sql,
                           const std::function<void(const std::vector<std::string>&)>& onColumns,
                           const std::function<bool(const OdbcRow&)>& onRow, std::string* error) {
  std::vector<SQLCHAR> text(sql.begin(), sql.end());
  text.push_back('\0');
  return Run([&text](void* stmt) { return SQLExecDirect(static_cast<SQLHSTMT>(stmt), text.data(), SQL_NTS); },
             onColumns, onRow, error);
}

bool OdbcConnection::TableNames(std::vector<std::string>* names, std::string* error) {
  names->clear();
  SQLCHAR type[] = "TABLE";
  return Run(
      [&type](void* stmt) {
        return SQLTables(static_cast<SQLHSTMT>(stmt), nullptr, 0, nullptr, 0, nullptr, 0, type, SQL_NTS);
      },
      {},
      [names](const OdbcRow& row) {
        if (row.size() >= 3 && row[2]) names->push_back(*row[2]);  // TABLE_NAME
        return true;
      },
      error);
}

bool OdbcConnection::Run(const std::function<short(void*)>& execute,
                         const std::function<void(const std::vector<std::string>&)>& onColumns,
                         const std::function<bool(const OdbcRow&)>& onRow, std::string* error) {
  if (!connected_) {
    if (error) *error = "not connected";
    return false;
  }
  SQLHSTMT stmt = SQL_NULL_HSTMT;
  if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_STMT, Dbc(dbc_), &stmt))) {
    if (error) *error = "cannot allocate a statement: " + Diagnostics(SQL_HANDLE_DBC, Dbc(dbc_));
    return false;
  }
  struct StatementGuard {
    SQLHSTMT h;
    ~StatementGuard() { SQLFreeHandle(SQL_HANDLE_STMT, h); }
  } guard{stmt};

  if (!SQL_SUCCEEDED(execute(stmt))) {
    if (error) *error = Diagnostics(SQL_HANDLE_STMT, stmt);
    if (error && error->empty()) *error = "statement failed";
    return false;
  }
  SQLSMALLINT columns = 0;
  SQLNumResultCols(stmt, &columns);
  if (onColumns) {
    std::vector<std::string> names;
    for (SQLUSMALLINT c = 1; c <= static_cast<SQLUSMALLINT>(columns); ++c) {
      SQLCHAR name[256] = {};
      SQLSMALLINT nameLen = 0, type = 0, digits = 0, nullable = 0;
      SQLULEN size = 0;
      SQLDescribeCol(stmt, c, name, sizeof name, &nameLen, &type, &size, &digits, &nullable);
      names.emplace_back(reinterpret_cast<const char*>(name));
    }
    onColumns(names);
  }
  if (columns == 0) return true;  // a statement without a result set

  OdbcRow row(static_cast<size_t>(columns));
  char chunk[4096];
  for (;;) {
    const SQLRETURN f = SQLFetch(stmt);
    if (f == SQL_NO_DATA) break;
    if (!SQL_SUCCEEDED(f)) {
      if (error) *error = "fetch failed: " + Diagnostics(SQL_HANDLE_STMT, stmt);
      return false;
    }
    for (SQLUSMALLINT c = 1; c <= static_cast<SQLUSMALLINT>(columns); ++c) {
      std::optional<std::string>& cell = row[c - 1];
      cell.emplace();
      // Long text comes back piecewise: each call fills the buffer (less
      // its NUL) until the last piece returns SQL_SUCCESS.
      for (;;) {
        SQLLEN indicator = 0;
        const SQLRETURN g = SQLGetData(stmt, c, SQL_C_CHAR, chunk, sizeof chunk, &indicator);
        if (g == SQL_NO_DATA) break;
        if (!SQL_SUCCEEDED(g)) {
          if (error) *error = "reading column " + std::to_string(c) + " failed: " + Diagnostics(SQL_HANDLE_STMT, stmt);
          return false;
        }
        if (indicator == SQL_NULL_DATA) {
          cell.reset();
          break;
        }
        const bool partial =
            g == SQL_SUCCESS_WITH_INFO && (indicator == SQL_NO_TOTAL || indicator >= static_cast<SQLLEN>(sizeof chunk));
        size_t n = std::strlen(chunk);
        if (partial)
          n = sizeof chunk - 1;
        else if (indicator >= 0 && indicator < static_cast<SQLLEN>(sizeof chunk))
          n = static_cast<size_t>(indicator);
        cell->append(chunk, n);
        if (!partial) break;
      }
    }
    if (!onRow(row)) break;
  }
  return true;
}

}  // namespace dravix::platform
