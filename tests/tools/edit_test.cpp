// Edits of the program folder's files lose nothing: two edits at once both
// land, a file that exists but cannot be read or parsed is never replaced
// by defaults, a save that cannot happen is a failure with its reason, and
// read-only commands leave the folder as they found it.
#include "tests/support/program_home.h"
#include "tests/tools/media_tool_util.h"

#include <sys/stat.h>

#include <gtest/gtest.h>

#include <thread>

namespace dravix::test {
namespace {

class Edits : public ProgramHome {
 protected:
  void SetUp() override {
    ProgramHome::SetUp();
    // Reachable by an unprivileged user for the permission cases.
    ::chmod(home().c_str(), 0755);
    ::chmod(odbc_.c_str(), 0777);
  }
};

TEST_F(Edits, TwoEditsAtOnceBothLand) {
  ASSERT_EQ(Run({"config", "set", "General/SiteName", "start"}).status, 0);
  for (int round = 0; round < 20; ++round) {
    const std::string a = std::to_string(round + 1), b = std::to_string(round + 2);
    const std::string nameA = "a" + std::to_string(round), nameB = "b" + std::to_string(round);
    const std::vector<std::vector<std::string>> first = {
        {"config", "set", "Camera/Camera1/DsRecord/FrameRate", a},
        {"schedule", "add-task", std::to_string(round % 16), "00:00", "01:00"},
        {"users", "add", nameA, "--password-stdin"}};
    const std::vector<std::vector<std::string>> second = {{"config", "set", "Camera/Camera2/DsRecord/FrameRate", b},
                                                          {"schedule", "enable", std::to_string(round % 16)},
                                                          {"users", "add", nameB, "--password-stdin"}};
    for (size_t i = 0; i < first.size(); ++i) {
      ProgramResult ra, rb;
      std::thread t([&] { ra = Run(first[i], "pw\n"); });
      rb = Run(second[i], "pw\n");
      t.join();
      ASSERT_EQ(ra.status, 0) << first[i][0] << " " << ra.err;
      ASSERT_EQ(rb.status, 0) << second[i][0] << " " << rb.err;
    }
    EXPECT_EQ(Run({"config", "get", "Camera/Camera1/DsRecord/FrameRate"}).out, a + "\n") << round;
    EXPECT_EQ(Run({"config", "get", "Camera/Camera2/DsRecord/FrameRate"}).out, b + "\n") << round;
    const ProgramResult camera = Run({"schedule", "show", std::to_string(round % 16)});
    EXPECT_NE(camera.out.find(": enabled"), std::string::npos) << round << camera.out;
    EXPECT_NE(camera.out.find("00:00:00"), std::string::npos) << round << camera.out;
    const ProgramResult accounts = Run({"users", "list"});
    EXPECT_NE(accounts.out.find(nameA), std::string::npos) << round;
    EXPECT_NE(accounts.out.find(nameB), std::string::npos) << round;
  }
}

TEST_F(Edits, ATornDocumentIsRefusedAndKept) {
  const std::string torn =
      "<?xml version=\"1.0\"?>\n<f:ZeploXML xmlns:f=\"http://www.zeplo.com/ZeploXML\"><General><Si";
  WriteFile("DVROPTION.XML", torn);
  for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
           {"config", "get", "General/SiteName"}, {"config", "show"}, {"config", "set", "General/SiteName", "x"}}) {
    const ProgramResult r = Run(args);
    EXPECT_EQ(r.status, 1) << args[1];
    EXPECT_NE(r.err.find("at byte"), std::string::npos) << r.err;
    EXPECT_EQ(ReadFile(Path("DVROPTION.XML")), torn) << args[1];
  }
  // Only reset replaces it, keeping the old bytes beside it, and only when
  // told to: off a terminal nobody can be asked.
  const ProgramResult unasked = Run({"config", "reset"});
  EXPECT_EQ(unasked.status, 2);
  EXPECT_NE(unasked.err.find("--yes"), std::string::npos) << unasked.err;
  EXPECT_EQ(ReadFile(Path("DVROPTION.XML")), torn);
  ASSERT_EQ(Run({"config", "reset", "--yes"}).status, 0);
  EXPECT_EQ(ReadFile(Path("DVROPTION.XML.bad")), torn);
  EXPECT_EQ(Run({"config", "get", "General/SiteName"}).status, 0);
}

TEST_F(Edits, ConfigSetTakesOnlyValuesTheSettingHolds) {
  const struct {
    const char* path;
    const char* value;
    int status;
  } cases[] = {
      {"General/WebPort", "8080", 0},
      {"General/WebPort", "-5", 2},
      {"General/WebPort", "65536", 2},
      {"General/Recycle/AutoUpdateRecycleDay", "0.5", 0},
      {"General/Recycle/AutoUpdateRecycleDay", "nan", 2},
      {"General/Recycle/AutoUpdateRecycleDay", "inf", 2},
      {"Camera/Camera0/DsRecord/MJPEG", "2", 2},  // a switch is 0 or 1
      {"General/SiteName", "\xe7\x9b\xa3\xe6\x8e\xa7", 0},
      {"General/SiteName", "0123456789012345678901234567890123456789", 2},
  };
  for (const auto& c : cases) {
    const ProgramResult r = Run({"config", "set", c.path, c.value});
    EXPECT_EQ(r.status, c.status) << c.path << " " << c.value << "\n" << r.err;
  }
  EXPECT_NE(Run({"config", "set", "General/SiteName", std::string(40, 'x')}).err.find("bytes"), std::string::npos);
}

// Read-only commands leave the folder as they found it. In a new, empty
// folder the ones that need interface texts (the default account, the
// default names) read the language databases built beside the program, and
// copy none of them into the folder.
TEST_F(Edits, ReadOnlyCommandsWriteNothing) {
  const struct {
    std::vector<std::string> args;
    std::string fresh;  // a text only the language databases give, in a new folder
  } commands[] = {{{"users", "list"}, "Admin"},
                  {{"config", "show", "General"}, "\xe7\x9b\xa3\xe6\x8e\xa7\xe7\xab\x99"},  // the CHT site name
                  {{"config", "get", "General/SiteName"}, ""},
                  {{"schedule", "show"}, ""},
                  {{"schedule", "show", "3"}, ""},
                  {{"switches"}, ""}};
  for (const bool filled : {false, true}) {
    if (filled) {
      ASSERT_EQ(Run({"config", "set", "General/SiteName", "x"}).status, 0);
      ASSERT_EQ(Run({"users", "add", "zed", "--password-stdin"}, "pw\n").status, 0);
      ASSERT_EQ(Run({"schedule", "enable", "3"}).status, 0);
    }
    const auto before = Snapshot(home());
    for (const auto& c : commands) {
      SCOPED_TRACE(c.args[0] + " " + (c.args.size() > 1 ? c.args[1] : "") + (filled ? " (filled)" : " (new)"));
      const ProgramResult r = Run(c.args);
      EXPECT_EQ(r.status, 0) << r.err;
      EXPECT_EQ(r.err.find("Database Open Error"), std::string::npos) << r.err;
      if (!filled && !c.fresh.empty()) {
        EXPECT_NE(r.out.find(c.fresh), std::string::npos) << r.out;
      }
      EXPECT_EQ(Snapshot(home()), before) << "wrote";
    }
  }
}

TEST_F(Edits, WhatCannotBeReadOrWrittenIsAFailureAndLosesNothing) {
  if (!CanRunAs("nobody")) GTEST_SKIP() << "needs root to run commands as the user nobody";
  ProgramOptions asNobody = options_;
  asNobody.user = "nobody";
  asNobody.input = "pw\n";
  // A file the user cannot read: never taken for an empty or default one.
  ASSERT_EQ(Run({"users", "add", "zed", "--password-stdin"}, "pw\n").status, 0);
  ASSERT_EQ(Run({"config", "set", "General/SiteName", "mine"}).status, 0);
  const auto before = Snapshot(home());
  for (const char* name : {"User.zmi", "DVROPTION.XML"}) ::chmod(Path(name).c_str(), 0600);
  const ProgramResult add = RunDravix({"users", "add", "eve", "--password-stdin", "--home", home()}, asNobody);
  EXPECT_EQ(add.status, 1);
  EXPECT_NE(add.err.find("Permission denied"), std::string::npos) << add.err;
  const ProgramResult get = RunDravix({"config", "get", "General/SiteName", "--home", home()}, asNobody);
  EXPECT_EQ(get.status, 1);
  EXPECT_NE(get.err.find("Permission denied"), std::string::npos) << get.err;
  EXPECT_EQ(Snapshot(home()), before);

  // A folder the user cannot write: the save fails with its reason.
  for (const char* name : {"User.zmi", "DVROPTION.XML"}) ::chmod(Path(name).c_str(), 0644);
  ::chmod(home().c_str(), 0555);
  const ProgramResult set = RunDravix({"config", "set", "General/SiteName", "theirs", "--home", home()}, asNobody);
  ::chmod(home().c_str(), 0755);
  EXPECT_EQ(set.status, 1);
  EXPECT_NE(set.err.find("Permission denied"), std::string::npos) << set.err;
  EXPECT_EQ(Snapshot(home()), before);
}

}  // namespace
}  // namespace dravix::test
