#include "dravix/config/switches.h"
#include "dravix/platform/ini.h"
#include "tests/support/test_home.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

extern char** environ;

namespace {

// The switches as the recorder's installers know them, written out here
// independently of the library's own table. `key` is the key as a dealer
// would type it in the file.
struct Row {
  const char* name;
  DWORD (*get)();
  const char* file;
  const char* section;
  const char* key;
  DWORD byDefault;  // missing file
  DWORD given1;     // value "1"
  DWORD given2;     // value "2"
  DWORD givenText;  // value "on"
};

constexpr DWORD kOff = 0, kOn = 1;
const Row kRows[] = {
    {"EnableBCSOFT", EnableBCSOFT, "LiveTag.ini", "SYSTEM", "BCSOFT", kOff, kOn, kOff, kOff},
    {"EnableAttachPicture", EnableAttachPicture, "LiveTag.ini", "MAILDIMENSION", "ATTACH_PICTURE", kOff, kOn, kOff,
     kOff},
    {"EnableWatchDog", EnableWatchDog, "Live.ini", "MODEL", "WATCHDOG", kOff, kOn, kOff, kOff},
    {"EnableZeploAudio", EnableZeploAudio, "Live.ini", "MODEL", "ZEPLOAUDIO", kOff, kOn, kOff, kOff},
    {"EnableZeploEmbeded", EnableZeploEmbeded, "Live.ini", "MODEL", "ZEPLOEMBEDED", kOff, kOn, kOff, kOff},
    {"EnableLimitResolution", EnableLimitResolution, "Live.ini", "MODEL", "LIMIT_RESOLUTION", kOff, kOn, kOff, kOff},
    {"EnableConnectToListServer", EnableConnectToListServer, "Live.ini", "MODEL", "CONNECT_TO_LISTSERVER", kOff, kOn,
     kOff, kOff},
    {"EnableAccountFromListServer", EnableAccountFromListServer, "Live.ini", "MODEL", "ACCOUNT_FROM_LISTSERVER", kOff,
     kOn, kOff, kOff},
    {"EnableZeploRender", EnableZeploRender, "Live.ini", "MODEL", "ZEPLORENDER", kOn, kOn, kOff, kOff},
    {"EnableQUORL", EnableQUORL, "OEM.ini", "MODEL", "QUORL", kOff, kOn, kOff, kOff},
    {"GetWDResetTime", GetWDResetTime, "LiveTag.ini", "SYSTEM", "NORESPONSETIME", 120, 1, 2, 100},
    {"EnableDRAW_FRAME", EnableDRAW_FRAME, "LiveTag.ini", "DRAW_FRAME", "OPEN", kOff, kOn, kOff, kOff},
    {"EnableUSBCamInv", EnableUSBCamInv, "LiveTag.ini", "SYSTEM", "USBCAMINV", kOff, kOn, kOff, kOff},
    // The looked-up key carries a trailing blank, which no file line keeps.
    {"EnableLiveSound", EnableLiveSound, "Live.ini", "MODEL", "LIVESOUND ", kOff, kOff, kOff, kOff},
    // QUIRK(change-display-inverted)
    {"IsChangeDisplay", IsChangeDisplay, "LiveTag.ini", "NONCHANGEDISPLAY", "NOCHANGE", kOn, kOff, kOn, kOn},
    {"EnableZMCap2R", EnableZMCap2R, "Live.ini", "MODEL", "ZMCap2R", kOff, kOn, kOff, kOff},
    {"EnableZ7731D", EnableZ7731D, "LiveTag.ini", "SYSTEM", "Z7731DB", kOff, kOn, kOff, kOff},
    {"GetDefaultVol", GetDefaultVol, "LiveTag.ini", "AudioSetting", "Bt878Vol", 3, 1, 2, 0},
    {"EnablePOSPage", EnablePOSPage, "LiveTag.ini", "POSPage", "Enable", kOff, kOn, kOff, kOff},
    {"EnableOldRecording", EnableOldRecording, "LiveTag.ini", "OldRecording", "Enable", kOff, kOn, kOff, kOff},
    // QUIRK(list-audio-any-number)
    {"ShowNoInputAudioDevice", ShowNoInputAudioDevice, "Live.ini", "MODEL", "LIST_ALL_AUDIO_CAPTURE ", kOff, kOff, kOff,
     kOff},
    {"USING_POS_TEXTMIXER", USING_POS_TEXTMIXER, "LiveTag.ini", "USING_POS_TEXTMIXER", "Enable", kOff, kOn, kOff, kOff},
    {"DEFULT_POS_SETTING", DEFULT_POS_SETTING, "LiveTag.ini", "DEFULT_POS_SETTING", "Enable", kOn, kOn, kOff, kOff},
    {"ENABLE_EVENT_TAG", ENABLE_EVENT_TAG, "LiveTag.ini", "EVENT_TAG", "Enable", kOn, kOn, kOff, kOff},
};
constexpr size_t kRowCount = sizeof kRows / sizeof kRows[0];

class Switches : public dravix::test::TestHome {
 protected:
  // Every switch evaluated in a fresh child process (so kept answers start
  // unread): the rows in order, then the two ratios.
  std::vector<double> EvaluateInChild() {
    int fds[2];
    EXPECT_EQ(pipe(fds), 0);
    std::vector<double> values;
    const pid_t pid = fork();
    if (pid == 0) {
      for (const Row& r : kRows) values.push_back(r.get());
      values.push_back(GetKeepStorageSize());
      values.push_back(GetKeepRecycleSize());
      const size_t bytes = values.size() * sizeof(double);  // below PIPE_BUF: one atomic write
      _exit(write(fds[1], values.data(), bytes) == static_cast<ssize_t>(bytes) ? 0 : 1);
    }
    close(fds[1]);
    values.assign(kRowCount + 2, -1);
    const ssize_t got = read(fds[0], values.data(), values.size() * sizeof(double));
    close(fds[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(got, static_cast<ssize_t>(values.size() * sizeof(double)));
    return values;
  }
};

// "%f" reads a float: the answers are the float nearest the text, widened.
// QUIRK(keep-ratio-float)
TEST_F(Switches, RatiosReadAsFloats) {
  std::vector<double> v = EvaluateInChild();
  EXPECT_EQ(v[kRowCount], static_cast<double>(0.95f));
  EXPECT_EQ(v[kRowCount + 1], static_cast<double>(0.03f));
  WriteFile("LiveTag.ini", "[STORAGE]\nKEEP_STORAGE_SIZE=0.8\n[RECYCLE]\nKEEP_RECYCLE_SIZE=bad\n");
  v = EvaluateInChild();
  EXPECT_EQ(v[kRowCount], static_cast<double>(0.8f));
  EXPECT_EQ(v[kRowCount + 1], static_cast<double>(0.03f));  // not a number: the answer held before reading
}

// Each function must read its own file, section and key: one key at a time
// is set and every other switch must keep its default.
TEST_F(Switches, EachSwitchReadsItsOwnKeyAndRule) {
  struct Given {
    const char* text;
    DWORD Row::*want;
  } givens[] = {{"1", &Row::given1}, {"2", &Row::given2}, {"on", &Row::givenText}};
  for (size_t i = 0; i < kRowCount; ++i) {
    for (const Given& g : givens) {
      for (const char* f : {"Live.ini", "OEM.ini", "LiveTag.ini"}) std::filesystem::remove(Path(f));
      ASSERT_TRUE(dravix::platform::WritePrivateProfileStringA(kRows[i].section, kRows[i].key, g.text,
                                                               Path(kRows[i].file).c_str()));
      const std::vector<double> v = EvaluateInChild();
      for (size_t j = 0; j < kRowCount; ++j) {
        const DWORD want = j == i ? kRows[i].*g.want : kRows[j].byDefault;
        EXPECT_EQ(v[j], want) << kRows[j].name << " with " << kRows[i].key << "=" << g.text;
      }
    }
  }
}

TEST_F(Switches, NumbersConvertLikePercentD) {
  WriteFile("Live.ini", "[model]\nwatchdog = 01\nZEPLOAUDIO=+1\nLIMIT_RESOLUTION=1.9\nZMCap2R=-1\n");
  WriteFile("LiveTag.ini", "[SYSTEM]\nNORESPONSETIME=300s\n[NONCHANGEDISPLAY]\nNOCHANGE=0001\n");
  EXPECT_EQ(EnableWatchDog(), 1u);  // names match without case
  EXPECT_EQ(EnableZeploAudio(), 1u);
  EXPECT_EQ(EnableLimitResolution(), 1u);  // digits up to the dot
  EXPECT_EQ(EnableZMCap2R(), 0u);
  EXPECT_EQ(GetWDResetTime(), 300u);
  EXPECT_EQ(IsChangeDisplay(), 0u);
}

// QUIRK(flag-reset-switches)
TEST_F(Switches, KeptSwitchesIgnoreEditsOthersSeeThemAtOnce) {
  WriteFile("Live.ini", "[MODEL]\nWATCHDOG=0\nZEPLOAUDIO=0\nCONNECT_TO_LISTSERVER=0\n");
  WriteFile("LiveTag.ini", "[SYSTEM]\nNORESPONSETIME=30\nBCSOFT=1\n[STORAGE]\nKEEP_STORAGE_SIZE=0.5\n");
  EXPECT_EQ(EnableWatchDog(), 0u);
  EXPECT_EQ(EnableZeploAudio(), 0u);
  EXPECT_EQ(EnableConnectToListServer(), 0u);
  EXPECT_EQ(EnableBCSOFT(), 1u);
  EXPECT_EQ(GetWDResetTime(), 30u);
  EXPECT_EQ(GetKeepStorageSize(), 0.5);

  WriteFile("Live.ini", "[MODEL]\nWATCHDOG=1\nZEPLOAUDIO=1\nCONNECT_TO_LISTSERVER=1\n");
  WriteFile("LiveTag.ini", "[SYSTEM]\nNORESPONSETIME=45\nBCSOFT=0\n[STORAGE]\nKEEP_STORAGE_SIZE=0.25\n");
  EXPECT_EQ(EnableWatchDog(), 1u);
  EXPECT_EQ(EnableConnectToListServer(), 1u);
  EXPECT_EQ(EnableBCSOFT(), 0u);
  EXPECT_EQ(EnableZeploAudio(), 0u);
  EXPECT_EQ(GetWDResetTime(), 30u);
  EXPECT_EQ(GetKeepStorageSize(), 0.5);
  std::filesystem::remove(Path("Live.ini"));
  EXPECT_EQ(EnableWatchDog(), 0u);
  EXPECT_EQ(EnableZeploAudio(), 0u);
}

TEST_F(Switches, IsApRunningFindsProcessesByExecutableName) {
  EXPECT_EQ(IsApRunning("Player.exe"), 0);
  EXPECT_EQ(IsApRunning(nullptr), 0);
  // A real "Player.exe": a copy of sleep under that name.
  const std::string player = Path("Player.exe");
  std::filesystem::copy_file("/bin/sleep", player);
  std::filesystem::permissions(player, std::filesystem::perms::owner_all);
  pid_t pid = 0;
  char arg0[] = "Player.exe", arg1[] = "30";
  char* argv[] = {arg0, arg1, nullptr};
  ASSERT_EQ(posix_spawn(&pid, player.c_str(), nullptr, nullptr, argv, environ), 0);
  int found = 0;
  for (int tries = 0; tries < 200 && !found; ++tries) {  // until exec has replaced the child's image
    found = IsApRunning("Player.exe");
    if (!found) usleep(10000);
  }
  EXPECT_EQ(found, 1);
  EXPECT_EQ(IsApRunning("player.EXE"), 1);
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
  EXPECT_EQ(IsApRunning("Player.exe"), 0);
}

}  // namespace
