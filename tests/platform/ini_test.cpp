#include "dravix/platform/ini.h"
#include "tests/support/test_home.h"

#include <sys/stat.h>

#include <string>
#include <thread>
#include <vector>

namespace {

using dravix::platform::GetPrivateProfileIntA;
using dravix::platform::GetPrivateProfileStringA;
using dravix::platform::LookupIniValue;
using dravix::platform::ReadIniString;
using dravix::platform::WritePrivateProfileStringA;

class Ini : public dravix::test::TestHome {
 protected:
  std::string Get(const char* section, const char* key, const char* def = "<def>") {
    char buf[300];
    const DWORD n = GetPrivateProfileStringA(section, key, def, buf, sizeof buf, file_.c_str());
    EXPECT_EQ(n, std::string(buf).size());
    return buf;
  }
  void Put(const std::string& text) { WriteFile("t.ini", text); }
  std::string Text() { return ReadFile(file_); }

  std::string file_ = "";
  void SetUp() override {
    TestHome::SetUp();
    file_ = Path("t.ini");
  }
};

TEST_F(Ini, TrimmingCaseAndTrailingBlankRules) {
  Put("orphan=1\n"
      "; a comment=3\n"
      "[ Model ]\n"
      "  WatchDog  =  1  \n"
      "LIVESOUND =1\r\n"
      "EMPTY=\n"
      "NOEQ\n"
      "Path = C:\\dvr\\a=b\t\n"
      "Q1 = \"1\" \n"
      "Q2='a b '\n"
      "Q3=\"mixed'\n"
      "Q4=\"\"\n"
      "Q5=\"\n"
      "Q6=\"\"x\"\"\n"
      "Q7=\"a\"b\n"
      "[model]\n"
      "Other=2\n");
  struct Case {
    const char* section;
    const char* key;
    std::string want;
  } cases[] = {
      {"MODEL", "WATCHDOG", "1"},
      {"model", "watchdog", "1"},
      {"Model", "WatchDog", "1"},
      {"MODEL", "LIVESOUND", "1"},
      {"MODEL", "LIVESOUND ", "<def>"},  // asked-for blank is kept
      {"MODEL", " WATCHDOG", "<def>"},
      {" Model ", "WATCHDOG", "<def>"},
      {"MODEL", "EMPTY", ""},
      {"MODEL", "NOEQ", "<def>"},
      {"MODEL", "Path", "C:\\dvr\\a=b"},
      {"MODEL", "Other", "<def>"},  // only the first section of a name is seen
      {"", "orphan", "<def>"},
      {"MODEL", "orphan", "<def>"},
      {"MODEL", "; a comment", "<def>"},
      {"MODEL", "", "<def>"},
      {"NOSUCH", "WATCHDOG", "<def>"},
      // one pair of matching quotes around the value is dropped
      {"MODEL", "Q1", "1"},
      {"MODEL", "Q2", "a b "},
      {"MODEL", "Q3", "\"mixed'"},
      {"MODEL", "Q4", ""},
      {"MODEL", "Q5", "\""},
      {"MODEL", "Q6", "\"x\""},
      {"MODEL", "Q7", "\"a\"b"},
  };
  for (const Case& c : cases) EXPECT_EQ(Get(c.section, c.key), c.want) << c.section << "/" << c.key;
  EXPECT_EQ(GetPrivateProfileIntA("MODEL", "Q1", 7, file_.c_str()), 1u);
  EXPECT_EQ(LookupIniValue(file_, "MODEL", "Q2"), "a b ");
}

TEST_F(Ini, DefaultTextAndMissingFile) {
  EXPECT_EQ(Get("S", "K", "0.95"), "0.95");
  EXPECT_EQ(Get("S", "K", "abc  "), "abc");  // trailing spaces of the default go
  EXPECT_EQ(Get("S", "K", "  abc"), "  abc");
  EXPECT_EQ(Get("S", "K", nullptr), "");
  EXPECT_EQ(ReadIniString(file_, "S", "K", "x "), "x");
  EXPECT_FALSE(LookupIniValue(file_, "S", "K").has_value());
  Put("[S]\nK=v\n");
  EXPECT_EQ(LookupIniValue(file_, "s", "k").value_or("?"), "v");
  // A folder in place of the file reads as missing.
  EXPECT_EQ(ReadIniString(home(), "S", "K", "d"), "d");
}

TEST_F(Ini, ResultsAreCutToTheBuffer) {
  Put("[S]\nK=abcdef\n");
  char buf[8] = "zzzzzzz";
  EXPECT_EQ(GetPrivateProfileStringA("S", "K", "", buf, 4, file_.c_str()), 3u);
  EXPECT_STREQ(buf, "abc");
  EXPECT_EQ(GetPrivateProfileStringA("S", "K", "", buf, 1, file_.c_str()), 0u);
  EXPECT_STREQ(buf, "");
  buf[0] = 'q';
  EXPECT_EQ(GetPrivateProfileStringA("S", "K", "", buf, 0, file_.c_str()), 0u);
  EXPECT_EQ(buf[0], 'q');
  EXPECT_EQ(GetPrivateProfileStringA("S", "NONE", "defaulttext", buf, 5, file_.c_str()), 4u);
  EXPECT_STREQ(buf, "defa");
}

TEST_F(Ini, NameListsEndWithTwoNulsAndAreCut) {
  Put("[One]\na=1\nbb=2\n;c\n[Two]\n");
  char buf[64];
  DWORD n = GetPrivateProfileStringA(nullptr, nullptr, "", buf, sizeof buf, file_.c_str());
  EXPECT_EQ(std::string(buf, n + 1), std::string("One\0Two\0\0", 9));
  EXPECT_EQ(buf[n], '\0');
  n = GetPrivateProfileStringA("one", nullptr, "", buf, sizeof buf, file_.c_str());
  EXPECT_EQ(std::string(buf, n + 1), std::string("a\0bb\0\0", 6));
  n = GetPrivateProfileStringA("one", nullptr, "", buf, 4, file_.c_str());  // "a\0bb\0\0" needs 6
  EXPECT_EQ(n, 2u);
  EXPECT_EQ(std::string(buf, 4), std::string("a\0\0\0", 4));
  // A first name that exactly fills all but the last byte (ASan checks the bound).
  std::vector<char> tight(3, 'z');
  n = GetPrivateProfileStringA("one", nullptr, "", tight.data(), 3, file_.c_str());
  EXPECT_EQ(n, 1u);
  EXPECT_EQ(std::string(tight.data(), 3), std::string("a\0\0", 3));
  n = GetPrivateProfileStringA("Two", nullptr, "", buf, sizeof buf, file_.c_str());
  EXPECT_EQ(n, 0u);
  EXPECT_EQ(buf[0], '\0');
  EXPECT_EQ(buf[1], '\0');
}

TEST_F(Ini, IntegersReadLeadingDigits) {
  Put("[S]\none=01\nneg=-5\nmixed=12abc\ntext=abc\nempty=\nplus=+7\n");
  const char* f = file_.c_str();
  EXPECT_EQ(GetPrivateProfileIntA("S", "one", 9, f), 1u);
  EXPECT_EQ(GetPrivateProfileIntA("S", "neg", 9, f), static_cast<UINT>(-5));
  EXPECT_EQ(GetPrivateProfileIntA("S", "mixed", 9, f), 12u);
  EXPECT_EQ(GetPrivateProfileIntA("S", "text", 9, f), 0u);
  EXPECT_EQ(GetPrivateProfileIntA("S", "plus", 9, f), 7u);
  EXPECT_EQ(GetPrivateProfileIntA("S", "empty", 9, f), 9u);
  EXPECT_EQ(GetPrivateProfileIntA("S", "absent", 120, f), 120u);
  EXPECT_EQ(GetPrivateProfileIntA("S", "absent", -1, f), static_cast<UINT>(-1));
}

TEST_F(Ini, WritesCreateFileSectionAndKey) {
  ASSERT_TRUE(WritePrivateProfileStringA("MODEL", "WATCHDOG", "1", file_.c_str()));
  EXPECT_EQ(Text(), "[MODEL]\r\nWATCHDOG=1\r\n");
  ASSERT_TRUE(WritePrivateProfileStringA("model", "ZEPLOAUDIO", "0", file_.c_str()));
  ASSERT_TRUE(WritePrivateProfileStringA("SYSTEM", "BCSOFT", "1", file_.c_str()));
  EXPECT_EQ(Text(), "[MODEL]\r\nWATCHDOG=1\r\nZEPLOAUDIO=0\r\n[SYSTEM]\r\nBCSOFT=1\r\n");
  EXPECT_EQ(Get("system", "bcsoft"), "1");
  EXPECT_FALSE(WritePrivateProfileStringA(nullptr, "k", "v", file_.c_str()));
  EXPECT_FALSE(WritePrivateProfileStringA("S", "k", "two\nlines", file_.c_str()));
  EXPECT_FALSE(WritePrivateProfileStringA("S", "k", "v", Path("nofolder/x.ini").c_str()));
}

TEST_F(Ini, WritesKeepEveryOtherLine) {
  const std::string before =
      "; dealer notes\n"
      "[MODEL]\n"
      "  WatchDog = 0   ; not a comment: part of the value\n"
      "ZEPLOAUDIO=1\n"
      "\n"
      "# hash line\n"
      "[SYSTEM]\n"
      "BCSOFT=0";
  Put(before);
  chmod(file_.c_str(), 0640);
  ASSERT_TRUE(WritePrivateProfileStringA("Model", "watchdog", "1", file_.c_str()));
  std::string want = before;
  want.replace(want.find("  WatchDog"), std::string("  WatchDog = 0   ; not a comment: part of the value").size(),
               "WatchDog=1");
  EXPECT_EQ(Text(), want);

  // A new key goes after the section's last key, before its trailing lines.
  ASSERT_TRUE(WritePrivateProfileStringA("MODEL", "LIMIT_RESOLUTION", "1", file_.c_str()));
  want.insert(want.find("ZEPLOAUDIO=1\n") + 13, "LIMIT_RESOLUTION=1\n");
  EXPECT_EQ(Text(), want);

  // A last line without a terminator gets one before the new key.
  ASSERT_TRUE(WritePrivateProfileStringA("SYSTEM", "Z7731DB", "1", file_.c_str()));
  want += "\nZ7731DB=1\n";
  EXPECT_EQ(Text(), want);

  // Deleting a key removes its line only; deleting a section removes it whole.
  ASSERT_TRUE(WritePrivateProfileStringA("MODEL", "ZEPLOAUDIO", nullptr, file_.c_str()));
  want.erase(want.find("ZEPLOAUDIO=1\n"), 13);
  EXPECT_EQ(Text(), want);
  ASSERT_TRUE(WritePrivateProfileStringA("MODEL", nullptr, nullptr, file_.c_str()));
  EXPECT_EQ(Text(), "; dealer notes\n[SYSTEM]\nBCSOFT=0\nZ7731DB=1\n");
  ASSERT_TRUE(WritePrivateProfileStringA("NONE", nullptr, nullptr, file_.c_str()));
  EXPECT_EQ(Text(), "; dealer notes\n[SYSTEM]\nBCSOFT=0\nZ7731DB=1\n");

  struct stat st {};
  ASSERT_EQ(stat(file_.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);
}

TEST_F(Ini, WritesKeepCarriageReturnLineEnds) {
  Put("[A]\r\nx=1\r\ny=2\r\n");
  ASSERT_TRUE(WritePrivateProfileStringA("A", "x", "10", file_.c_str()));
  ASSERT_TRUE(WritePrivateProfileStringA("A", "z", "3", file_.c_str()));
  ASSERT_TRUE(WritePrivateProfileStringA("B", "k", "v", file_.c_str()));
  EXPECT_EQ(Text(), "[A]\r\nx=10\r\ny=2\r\nz=3\r\n[B]\r\nk=v\r\n");
  // Writing a name with blanks matches the trimmed key instead of adding a twin.
  ASSERT_TRUE(WritePrivateProfileStringA(" A ", "y ", "5", file_.c_str()));
  EXPECT_EQ(Text(), "[A]\r\nx=10\r\ny=5\r\nz=3\r\n[B]\r\nk=v\r\n");
}

TEST_F(Ini, ConcurrentWritersInOneProcessLoseNothing) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([this, t] {
      for (int k = 0; k < 25; ++k) {
        const std::string key = "k" + std::to_string(t) + "_" + std::to_string(k);
        WritePrivateProfileStringA("S", key.c_str(), std::to_string(k).c_str(), file_.c_str());
      }
    });
  for (auto& th : threads) th.join();
  for (int t = 0; t < 4; ++t)
    for (int k = 0; k < 25; ++k)
      EXPECT_EQ(Get("S", ("k" + std::to_string(t) + "_" + std::to_string(k)).c_str()), std::to_string(k));
}

}  // namespace
