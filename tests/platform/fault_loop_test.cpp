// Every writer of the program folder, with each of its file operations
// failing in turn (the platform layer's fault-injection hook): the old file
// survives whole or the new one is complete, no temporary file is left, and
// a failure that kept the old file is reported (a FALSE result, or the
// file layer's last error).
#include "dravix/config/default_names.h"
#include "dravix/config/xmldoc.h"
#include "dravix/log/zbaselog.h"
#include "dravix/platform/fault_injection.h"
#include "dravix/platform/file_io.h"
#include "dravix/platform/ini.h"
#include "dravix/schedule/zschedulemanager.h"
#include "dravix/users/iaccountmgr.h"
#include "tests/support/test_home.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <set>

namespace dravix::test {
namespace {

namespace fs = std::filesystem;
using platform::FailNthIoCall;

std::set<std::string> Names(const std::string& folder) {
  std::set<std::string> out;
  for (const fs::directory_entry& e : fs::directory_iterator(folder)) out.insert(e.path().filename().string());
  return out;
}

class FaultLoop : public TestHome {
 protected:
  void TearDown() override {
    FailNthIoCall(0);
    TestHome::TearDown();
  }

  // Runs `write` (true when it reports success) with its 1st, 2nd, ...
  // file operation failing, from `old` in `name` each time, until a run
  // meets no fault; returns how many operations failed in turn.
  int FailEachOperation(const std::string& name, const std::string& old, const std::function<bool()>& write) {
    // The writer's result without faults.
    WriteFile(name, old);
    const std::set<std::string> names = Names(home());
    EXPECT_TRUE(write());
    const std::string fresh = ReadFile(Path(name));
    EXPECT_NE(fresh, old) << "the writer changed nothing";
    int n = 1;
    for (;; ++n) {
      SCOPED_TRACE(name + ": failing file operation " + std::to_string(n));
      WriteFile(name, old);
      platform::SetLastFileError(0);
      FailNthIoCall(n);
      const bool ok = write();
      const bool fired = platform::IoFaultInjected();
      const int error = platform::LastFileError();
      FailNthIoCall(0);
      const std::string now = ReadFile(Path(name));
      EXPECT_EQ(Names(home()), names);
      if (!fired) {
        EXPECT_TRUE(ok);
        EXPECT_EQ(now, fresh);
        break;
      }
      EXPECT_TRUE(now == old || now == fresh) << now.size() << " bytes, neither old nor new";
      if (now == old) {
        EXPECT_FALSE(ok && error == 0) << "a save that did not happen was not reported";
      }
      if (n > 200) break;
    }
    return n - 1;
  }
};

TEST_F(FaultLoop, SettingsFilesAreReplacedWholeOrKept) {
  // The option document.
  config::SetOptionStringSource([](UINT id) { return "S" + std::to_string(id); });
  auto option = std::make_unique<tagDSZEPLODVROPTION>();
  {
    ZXMLMGR mgr;
    mgr.LoadOption(*option);
  }
  const std::string oldDoc = ReadFile(Path(config::kOptionFileName));
  option->dsDVROption.dsGeneral.szSiteName[0] = 'Q';
  EXPECT_GE(FailEachOperation(config::kOptionFileName, oldDoc,
                              [&] {
                                ZXMLMGR mgr;
                                return mgr.SaveOption(*option, 0) == 1;
                              }),
            3);
  config::SetOptionStringSource({});

  // An INI file.
  const std::string ini = Path("Live.ini");
  const auto setKey = [&] { return platform::WritePrivateProfileStringA("LIVE", "B", "2", ini.c_str()) != FALSE; };
  EXPECT_GE(FailEachOperation("Live.ini", "[LIVE]\r\nA=1\r\n", setKey), 3);

  // "Schedule.zmi".
  dravix::schedule::SetFreeSpaceProbe([](const char*) -> __int64 { return 1LL << 40; });
  ZScheduleManager* schedule = ZScheduleManager::Instance();
  ASSERT_TRUE(schedule->Save());
  const std::string oldSchedule = ReadFile(Path(dravix::schedule::kScheduleFileName));
  tagDSSCHEDULEOPTION cams[kScheduleCameras];
  tagSCHEDULEWORKTASK lists[kScheduleLists];
  schedule->LoadSchedule(cams, lists);
  cams[3].nEnabled = 1;
  schedule->SaveSchedule(cams, lists);
  EXPECT_GE(
      FailEachOperation(dravix::schedule::kScheduleFileName, oldSchedule, [&] { return schedule->Save() != FALSE; }),
      3);
  dravix::schedule::SetFreeSpaceProbe(nullptr);

  // "User.zmi": the manager reads the accounts standing in the file.
  tagDSADDUSER admin{}, guest{};
  dravix::users::SetField(admin.szName, "Admin");
  dravix::users::SetField(admin.szPrivilegeLeve, "0");
  dravix::users::SetField(guest.szName, "guest");
  const std::string oldUsers(reinterpret_cast<const char*>(&admin), sizeof admin);
  WriteFile(dravix::users::kUserFileName, oldUsers);
  CUserArray users;
  IAccountMgr::Instance()->Load(users);
  ASSERT_EQ(users.size(), 1u);
  users.push_back(guest);
  EXPECT_GE(FailEachOperation(dravix::users::kUserFileName, oldUsers,
                              [&] {
                                IAccountMgr::Instance()->Save(users);
                                return platform::LastFileError() == 0;
                              }),
            3);
}

TEST_F(FaultLoop, ALogKeepsItsLinesWhenAnAppendOrARotationFails) {
  const std::string old = "first line\r\n";
  auto log = std::make_unique<ZBaseLog>();
  EXPECT_GE(FailEachOperation("Test.log", old,
                              [&] {
                                log = std::make_unique<ZBaseLog>();
                                return log->SetFilename("Test.log") != FALSE && log->Write("second line\r\n") != FALSE;
                              }),
            2);
  // A rotation that cannot rename keeps the log where it was.
  WriteFile("Test.log", old);
  log = std::make_unique<ZBaseLog>();
  ASSERT_TRUE(log->SetFilename("Test.log"));
  platform::SetLastFileError(0);
  FailNthIoCall(1, 1u << static_cast<unsigned>(platform::IoKind::kRename));
  log->RangeFile("Test.log");
  EXPECT_TRUE(platform::IoFaultInjected());
  EXPECT_NE(platform::LastFileError(), 0);
  EXPECT_EQ(ReadFile(Path("Test.log")), old);
  EXPECT_FALSE(fs::exists(Path("OLDTest.log")));
}

}  // namespace
}  // namespace dravix::test
