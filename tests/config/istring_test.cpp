// Language strings through the real unixODBC driver manager and SQLite3
// ODBC driver, with the test's own odbc.ini (ODBCINI) and program folder.
#include "dravix/config/istring.h"
#include "dravix/config/lang_ids.h"
#include "dravix/config/lang_table.h"
#include "dravix/platform/odbc.h"
#include "tests/config/option_fixture.h"
#include "tests/support/lang_files.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using dravix::config::LangTableReads;

class IStringTest : public dravix::test::TestHome {
 protected:
  void SetUp() override {
    TestHome::SetUp();
    dravix::test::IsolateOdbc(home());
    IString::SetHost(IString::LIVE);
    // Start closed even when an earlier case of this process left the
    // singleton open; the last case leaves it open for process exit.
    IString::Instance()->CloseDataBase();
  }

  std::string Text(UINT id) { return IString::Instance()->LoadStringA(id); }

  // A database of the test's own, written through the SQLite3 driver.
  void MakeDatabase(const std::string& file, const std::vector<std::string>& statements) {
    dravix::platform::OdbcConnection c;
    std::string error;
    ASSERT_TRUE(c.Open("DRIVER=SQLite3;Database=" + Path(file), &error)) << error;
    for (const std::string& s : statements)
      ASSERT_TRUE(c.Query(
          s, {}, [](const dravix::platform::OdbcRow&) { return true; }, &error))
          << s << ": " << error;
  }
};

TEST_F(IStringTest, WithoutLiveVarIniTheLiveRecorderReadsTraditionalChinese) {
  dravix::test::InstallLangDatabases(home());
  ::testing::internal::CaptureStderr();
  // The argument does not choose the table: only "LiveVar.ini" does.
  EXPECT_EQ(IString::Instance()->LoadLang(IString::ENG), 1);
  EXPECT_EQ(Text(dravix::lang::kCameraNameBase), "攝影機 1");
  EXPECT_EQ(Text(dravix::lang::kCameraNameBase + 15), "攝影機 16");
  EXPECT_EQ(Text(dravix::lang::kPrivilegeNameBase), "系統管理員");
  EXPECT_EQ(Text(4519), "");
  EXPECT_EQ(Text(0), "");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

TEST_F(IStringTest, NameInLiveVarIniChoosesTheTableWhenItIsOneOfTheHostsTables) {
  dravix::test::InstallLangDatabases(home());
  struct Case {
    const char* ini;
    const char* camera1;
  };
  const Case cases[] = {
      {"[LIVE_LANGUAGE]\nNAME=LIVE_ENG\n", "Camera 1"},   {"[live_language]\n  name = live_chs  \n", "摄像机 1"},
      {"[LIVE_LANGUAGE]\nNAME=LIVE_GER\n", "Camera 1"},  // untranslated: English text
      {"[LIVE_LANGUAGE]\nNAME=PLAY_ENG\n", "攝影機 1"},  // a player table: default
      {"[LIVE_LANGUAGE]\nNAME=LIVE_XXX\n", "攝影機 1"},   {"[LIVE_LANGUAGE]\nNAME=\n", "攝影機 1"},
      {"[PLAYER_LANGUAGE]\nNAME=LIVE_ENG\n", "攝影機 1"},  // the player's section
  };
  for (const Case& c : cases) {
    WriteFile("LiveVar.ini", c.ini);
    IString::Instance()->LoadLang(IString::CHT);
    EXPECT_EQ(Text(dravix::lang::kCameraNameBase), c.camera1) << c.ini;
  }
}

TEST_F(IStringTest, ThePlayerReadsItsOwnDatabaseAndSection) {
  dravix::test::InstallLangDatabases(home());
  std::remove(Path("LiveMultiLang.mdb").c_str());
  IString::SetHost(IString::PLAYER);
  EXPECT_EQ(Text(dravix::lang::kCameraNameBase + 1), "攝影機 2");  // PLAY_CHT by default
  WriteFile("LiveVar.ini", "[LIVE_LANGUAGE]\nNAME=LIVE_CHS\n[PLAYER_LANGUAGE]\nNAME=PLAY_ENG\n");
  IString::Instance()->LoadLang(IString::CHT);
  EXPECT_EQ(Text(dravix::lang::kCameraNameBase + 1), "Camera 2");
}

TEST_F(IStringTest, AMissingDatabaseIsReportedOnceAndGivesEmptyTexts) {
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(IString::Instance()->LoadLang(IString::CHT), 1);
  EXPECT_STREQ(IString::Instance()->LoadStringA(dravix::lang::kCameraNameBase), "");
  EXPECT_STREQ(IString::Instance()->LoadMultiString(dravix::lang::kCameraNameBase), "");
  const std::string err = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(err.find("Database Open Error !!"), 0u) << err;
  EXPECT_EQ(err.find("Database Open Error !!", 1), std::string::npos) << "reported more than once: " << err;
  EXPECT_NE(err.find("LiveMultiLang.mdb"), std::string::npos) << err;
  // The driver must not have been left to create an empty database.
  EXPECT_FALSE(std::filesystem::exists(Path("LiveMultiLang.mdb")));

  // A file that is no database is an open error too.
  WriteFile("LiveMultiLang.mdb", "ID\tText\n4503\tCamera 1\n");
  ::testing::internal::CaptureStderr();
  IString::Instance()->LoadLang(IString::CHT);
  EXPECT_EQ(Text(dravix::lang::kCameraNameBase), "");
  const std::string notDb = ::testing::internal::GetCapturedStderr();
  EXPECT_NE(notDb.find("neither an SQLite nor an Access database"), std::string::npos) << notDb;

  // Once the database is there, the next LoadLang finds it.
  dravix::test::InstallLangDatabases(home());
  IString::Instance()->LoadLang(IString::CHT);
  EXPECT_EQ(Text(dravix::lang::kCameraNameBase), "攝影機 1");
}

TEST_F(IStringTest, ATableIsReadOnceWhateverIsAskedOfIt) {
  dravix::test::InstallLangDatabases(home());
  const long before = LangTableReads();
  std::vector<const char*> first;
  for (UINT id = 4501; id <= 4518; ++id) first.push_back(IString::Instance()->LoadStringA(id));
  for (UINT id = 7103; id <= 7111; ++id) EXPECT_STRNE(IString::Instance()->LoadStringA(id), "") << id;
  for (UINT id = 1; id <= 300; ++id) EXPECT_STREQ(IString::Instance()->LoadStringA(id), "") << id;
  EXPECT_STREQ(IString::Instance()->LoadMultiString(7111), "系統預設帳號，無法刪除");
  EXPECT_EQ(LangTableReads() - before, 1);

  // Cached texts come back as the same text object, not a copy.
  for (UINT id = 4501; id <= 4518; ++id) EXPECT_EQ(IString::Instance()->LoadStringA(id), first[id - 4501]);
  EXPECT_EQ(LangTableReads() - before, 1);

  // A new LoadLang reads the table again, once.
  IString::Instance()->LoadLang(IString::CHT);
  EXPECT_EQ(Text(4504), "攝影機 2");
  EXPECT_EQ(LangTableReads() - before, 2);
}

TEST_F(IStringTest, TheFirstRowOfAnIdWinsAndMultiStringKeepsItsOwnTexts) {
  const std::string longText(10000, 'x');
  MakeDatabase(
      "LiveMultiLang.mdb",
      {"CREATE TABLE LIVE_CHT (ID INTEGER, Text TEXT, National TEXT)",
       "INSERT INTO LIVE_CHT VALUES (NULL, 'no id', '')", "INSERT INTO LIVE_CHT VALUES (20, 'first', 'F')",
       "INSERT INTO LIVE_CHT VALUES (20, 'second', 'S')", "INSERT INTO LIVE_CHT VALUES (21, 'line 1\\nline 2', '')",
       "INSERT INTO LIVE_CHT VALUES (22, '', 'National text')",
       "INSERT INTO LIVE_CHT VALUES (23, 'a' || char(13) || char(10) || 'b', '')",
       "INSERT INTO LIVE_CHT VALUES (24, NULL, NULL)", "INSERT INTO LIVE_CHT VALUES (25, '" + longText + "', '')",
       "INSERT INTO LIVE_CHT VALUES ('x26', 'bad id', '')"});
  IString* s = IString::Instance();
  EXPECT_STREQ(s->LoadStringA(20), "first");
  EXPECT_STREQ(s->LoadStringA(21), "line 1\\nline 2");
  EXPECT_STREQ(s->LoadMultiString(21), "line 1\nline 2");
  EXPECT_STREQ(s->LoadStringA(22), "");
  EXPECT_STREQ(s->LoadMultiString(22), "National text");
  EXPECT_STREQ(s->LoadMultiString(23), "a\nb");
  EXPECT_STREQ(s->LoadStringA(24), "");
  EXPECT_EQ(s->LoadStringA(25), longText);
  EXPECT_STREQ(s->LoadStringA(26), "");

  // Each function answers from its own cache, stable across calls.
  const char* single = s->LoadStringA(20);
  const char* multi = s->LoadMultiString(20);
  EXPECT_STREQ(multi, "first");
  EXPECT_NE(single, multi);
  EXPECT_EQ(s->LoadStringA(20), single);
  EXPECT_EQ(s->LoadMultiString(20), multi);
}

TEST_F(IStringTest, ClosingDropsTheTextsAndTheNextLookupOpensAgain) {
  dravix::test::InstallLangDatabases(home());
  EXPECT_EQ(Text(4503), "攝影機 1");  // no LoadLang: the first lookup opens
  WriteFile("LiveVar.ini", "[LIVE_LANGUAGE]\nNAME=LIVE_ENG\n");
  EXPECT_EQ(Text(4503), "攝影機 1");  // cached, the choice is read at open only
  IString::Instance()->CloseDataBase();
  EXPECT_EQ(Text(4503), "Camera 1");
}

TEST_F(IStringTest, TheRegisteredDataSourceServesTheOdbcCommandLineClient) {
  // A stale "DVRLang" (another folder, another driver) must not win.
  WriteFile("odbc.ini", "[DVRLang]\nDriver=MDBTools\nDatabase=/nowhere/LiveMultiLang.mdb\n");
  dravix::test::InstallLangDatabases(home());
  IString::Instance()->LoadLang(IString::CHT);
  EXPECT_EQ(dravix::platform::ReadUserDataSource("DVRLang", "Driver"), "SQLite3");
  EXPECT_EQ(dravix::platform::ReadUserDataSource("DVRLang", "Database"), Path("LiveMultiLang.mdb"));

  WriteFile("query.sql", "SELECT Text FROM LIVE_CHT WHERE ID = 4510\n");
  int status = -1;
  const std::string out = dravix::test::RunCommand("isql -b DVRLang < '" + Path("query.sql") + "' 2>&1", &status);
  EXPECT_EQ(status, 0) << out;
  EXPECT_NE(out.find("攝影機 8"), std::string::npos) << out;
}

}  // namespace
