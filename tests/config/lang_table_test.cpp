// The language database's plumbing: file signatures, driver choice and
// fallback, table names, the connection text.
#include "dravix/config/lang_table.h"
#include "dravix/config/istring.h"
#include "dravix/platform/odbc.h"
#include "tests/support/lang_files.h"
#include "tests/support/test_home.h"

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using dravix::config::LangHost;
using dravix::platform::DatabaseFileKind;

class LangTableTest : public dravix::test::TestHome {
 protected:
  void SetUp() override {
    TestHome::SetUp();
    dravix::test::IsolateOdbc(home());
  }
};

TEST_F(LangTableTest, TheFileSignatureNamesTheKindOfDatabase) {
  using std::string_literals::operator""s;
  struct Case {
    std::string bytes;
    DatabaseFileKind kind;
  };
  const std::string jetHead = "\x00\x01\x00\x00Standard Jet DB\x00"s;
  const Case cases[] = {
      {"SQLite format 3\0"s, DatabaseFileKind::kSQLite},
      {"SQLite format 3"s, DatabaseFileKind::kUnknown},  // cut before its NUL
      {"SQLite format 4\0"s, DatabaseFileKind::kUnknown},
      {jetHead, DatabaseFileKind::kJet},
      {"\x00\x01\x00\x00Standard ACE DB\x00"s, DatabaseFileKind::kJet},
      {jetHead.substr(0, 12), DatabaseFileKind::kUnknown},
      {"Standard Jet DB"s, DatabaseFileKind::kUnknown},  // not at byte 4
  };
  int n = 0;
  for (const Case& c : cases) {
    const std::string name = "db" + std::to_string(n++);
    WriteFile(name, c.bytes);
    EXPECT_EQ(dravix::platform::ProbeDatabaseFile(Path(name)), c.kind) << name;
  }
  EXPECT_EQ(dravix::platform::ProbeDatabaseFile(Path("none")), DatabaseFileKind::kMissing);
  EXPECT_EQ(dravix::platform::ProbeDatabaseFile(home()), DatabaseFileKind::kMissing);  // a folder
}

TEST_F(LangTableTest, TableNamesAndConnectionText) {
  EXPECT_EQ(dravix::config::LangTableName(LangHost::kLive, IString::CHT), "LIVE_CHT");
  EXPECT_EQ(dravix::config::LangTableName(LangHost::kPlayer, IString::SKY), "PLAY_SKY");
  EXPECT_EQ(dravix::config::LangTableName(LangHost::kLive, 11), "");

  EXPECT_EQ(dravix::config::KnownLangTable(LangHost::kLive, "live_ptg"), "LIVE_PTG");
  EXPECT_EQ(dravix::config::KnownLangTable(LangHost::kLive, "LIVE_PTG "), "");
  EXPECT_EQ(dravix::config::KnownLangTable(LangHost::kLive, "LIVE_ENG; DROP TABLE LIVE_ENG"), "");
  LangHost host = LangHost::kLive;
  EXPECT_TRUE(dravix::config::LangHostOfTable("play_eng", &host));
  EXPECT_EQ(host, LangHost::kPlayer);
  EXPECT_FALSE(dravix::config::LangHostOfTable("PLAY_XYZ", &host));
  EXPECT_EQ(dravix::config::LangConnectionText("DBQ", "/opt/dvr/LiveMultiLang.mdb"),
            "ODBC;DSN=DVRLang; Threads=3; SafeTransactions=0;DBQ=/opt/dvr/LiveMultiLang.mdb;;UID=admin;PWD=");
}

TEST_F(LangTableTest, AnAccessFileIsRegisteredForMdbTools) {
  // A Jet header over nothing: registration and driver choice go through;
  // the lookups find nothing and say so instead of failing hard.
  WriteFile("LiveMultiLang.mdb", std::string("\x00\x01\x00\x00Standard Jet DB\x00", 20) + std::string(4076, '\0'));
  std::string error;
  const auto jet = dravix::platform::DriverForDatabaseFile(Path("LiveMultiLang.mdb"), &error);
  ASSERT_TRUE(jet) << error;
  EXPECT_EQ(jet->connectFileKey, "DBQ");
  dravix::config::LangTable table;
  const bool opened = table.Open(LangHost::kLive, home(), &error);
  EXPECT_EQ(dravix::platform::ReadUserDataSource("DVRLang", "Driver"), "MDBTools");
  EXPECT_EQ(dravix::platform::ReadUserDataSource("DVRLang", "FileType"), "Access");
  EXPECT_EQ(dravix::platform::ReadUserDataSource("DVRLang", "Database"), Path("LiveMultiLang.mdb"));
  // MDBTools accepts the header; reading the table is what fails.
  ASSERT_TRUE(opened) << error;
  table.Select("LIVE_CHT");
  EXPECT_EQ(table.Find(4503, &error), nullptr);
  EXPECT_NE(error.find("LIVE_CHT"), std::string::npos) << error;
}

// A real Jet 4 file from elsewhere, standing in for a language database of
// the old system: it connects through MDBTools, the missing language table
// is reported once with empty texts, and its own table is readable.
TEST_F(LangTableTest, ARealAccessFileIsReadThroughMdbTools) {
  const std::string sample = std::string(DRAVIX_SHARED_TESTDATA) + "/DateTestDatabase.mdb";
  if (!std::filesystem::is_regular_file(sample)) GTEST_SKIP() << "no Access sample file at " << sample;
  std::filesystem::copy_file(sample, Path("LiveMultiLang.mdb"));
  std::filesystem::permissions(Path("LiveMultiLang.mdb"), std::filesystem::perms::owner_write,
                               std::filesystem::perm_options::add);

  ::testing::internal::CaptureStderr();
  IString::SetHost(IString::LIVE);
  EXPECT_EQ(IString::Instance()->LoadLang(IString::CHT), 1);
  for (UINT id : {4503u, 4504u, 4503u}) EXPECT_STREQ(IString::Instance()->LoadStringA(id), "") << id;
  EXPECT_STREQ(IString::Instance()->LoadMultiString(4503), "");
  IString::Instance()->CloseDataBase();
  const std::string err = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(err.find("Database Open Error"), std::string::npos) << err;
  EXPECT_EQ(err, "language table LIVE_CHT is not in " + Path("LiveMultiLang.mdb") + "\n");  // once, nothing else
  EXPECT_EQ(dravix::platform::ReadUserDataSource("DVRLang", "Driver"), "MDBTools");

  dravix::config::LangTable table;
  std::string error;
  ASSERT_TRUE(table.Open(LangHost::kLive, home(), &error)) << error;
  std::vector<std::string> columns;
  std::vector<std::string> ids, shortTexts;
  ASSERT_TRUE(table.connection().Query(
      "SELECT * FROM DateTest", [&](const std::vector<std::string>& names) { columns = names; },
      [&](const dravix::platform::OdbcRow& row) {
        ids.push_back(row[0].value_or("<null>"));
        shortTexts.push_back(row[5].value_or("<null>"));
        return true;
      },
      &error))
      << error;
  EXPECT_EQ(columns,
            (std::vector<std::string>{"IDCol", "DateTimeCol", "DateCol", "TimeCol", "LongTextCol", "ShortTextCol"}));
  EXPECT_EQ(ids, (std::vector<std::string>{"1", "2", "3", "4", "5", "6"}));
  ASSERT_FALSE(shortTexts.empty());
  EXPECT_EQ(shortTexts[0], "Hello");
}

// A program folder without a database of its own reads the first fallback
// folder that has one, and copies nothing into the program folder.
TEST_F(LangTableTest, AFolderWithoutDatabasesReadsTheFallbacks) {
  struct Reset {
    ~Reset() { dravix::config::SetLangDatabaseFallbacks({}); }
  } reset;
  const std::string elsewhere = home() + "none";
  dravix::config::SetLangDatabaseFallbacks({elsewhere, dravix::test::BuiltLangFolder()});
  const std::string program = home() + "program/";
  std::filesystem::create_directories(program);
  EXPECT_EQ(dravix::config::FindLangDatabase(LangHost::kPlayer, program),
            dravix::test::BuiltLangFolder() + "PlayerMultiLang.mdb");
  dravix::config::LangTable table;
  std::string error;
  ASSERT_TRUE(table.Open(LangHost::kLive, program, &error)) << error;
  table.Select("LIVE_ENG");
  const dravix::config::LangRow* row = table.Find(4504, &error);
  ASSERT_NE(row, nullptr) << error;
  EXPECT_EQ(row->text, "Camera 2");
  EXPECT_TRUE(std::filesystem::is_empty(program));

  // With no database anywhere the error names every folder searched.
  dravix::config::SetLangDatabaseFallbacks({elsewhere});
  EXPECT_FALSE(table.Open(LangHost::kLive, program, &error));
  EXPECT_NE(error.find(program + "LiveMultiLang.mdb"), std::string::npos) << error;
  EXPECT_NE(error.find(elsewhere + "/"), std::string::npos) << error;
}

TEST_F(LangTableTest, AnUnregisteredDriverIsFoundByItsLibrary) {
  // An empty system configuration hides the installed drivers.
  const std::string sys = home() + "sys";
  std::filesystem::create_directories(sys);
  setenv("ODBCSYSINI", sys.c_str(), 1);
  struct Unset {
    ~Unset() { unsetenv("ODBCSYSINI"); }
  } unset;
  // The driver manager keeps its configuration once read, so this only
  // works in a fresh process (as ctest runs each case).
  if (dravix::platform::ResolveOdbcDriver("SQLite3", "libno-such-driver.so", {}))
    GTEST_SKIP() << "the ODBC configuration was read earlier in this process";
  const auto found =
      dravix::platform::ResolveOdbcDriver("SQLite3", "libsqlite3odbc.so", dravix::platform::DefaultDriverFolders());
  ASSERT_TRUE(found);
  EXPECT_EQ(std::filesystem::path(*found).filename(), "libsqlite3odbc.so");
  EXPECT_TRUE(std::filesystem::path(*found).is_absolute());

  dravix::test::InstallLangDatabases(home());
  dravix::config::LangTable table;
  std::string error;
  ASSERT_TRUE(table.Open(LangHost::kLive, home(), &error)) << error;
  EXPECT_EQ(dravix::platform::ReadUserDataSource("DVRLang", "Driver"), *found);
  table.Select("LIVE_ENG");
  const dravix::config::LangRow* row = table.Find(4504, &error);
  ASSERT_NE(row, nullptr) << error;
  EXPECT_EQ(row->text, "Camera 2");
}

TEST_F(LangTableTest, AMissingTableIsOneFailedReadNotOnePerId) {
  dravix::test::InstallLangDatabases(home());
  {
    dravix::platform::OdbcConnection c;
    std::string error;
    ASSERT_TRUE(c.Open("DRIVER=SQLite3;Database=" + Path("LiveMultiLang.mdb"), &error)) << error;
    ASSERT_TRUE(c.Query(
        "DROP TABLE LIVE_FRA", {}, [](const auto&) { return true; }, &error))
        << error;
  }
  dravix::config::LangTable table;
  std::string error;
  ASSERT_TRUE(table.Open(LangHost::kLive, home(), &error)) << error;
  table.Select("LIVE_FRA");
  const long before = dravix::config::LangTableReads();
  EXPECT_EQ(table.Find(4503, &error), nullptr);
  EXPECT_NE(error.find("LIVE_FRA"), std::string::npos) << error;
  for (UINT id = 4504; id < 4520; ++id) EXPECT_EQ(table.Find(id, nullptr), nullptr);
  EXPECT_EQ(dravix::config::LangTableReads() - before, 1);
  table.Select("LIVE_ITA");
  ASSERT_NE(table.Find(4503, &error), nullptr) << error;
  EXPECT_EQ(table.Find(4503, &error)->text, "Camera 1");
}

}  // namespace
