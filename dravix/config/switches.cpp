#include "dravix/config/switches.h"

#include "dravix/base/zfile.h"
#include "dravix/platform/ini.h"
#include "dravix/platform/nocase.h"
#include "dravix/platform/process.h"

#include <atomic>
#include <cstdio>
#include <string>

namespace dravix::config {
namespace {

// One switch: where its key lives, how its text becomes an answer, and the
// process-wide "read" flag and answer. The flag and answer are atomics only
// so that concurrent callers are well defined; as with plain values, two
// first callers may both read the file and store the same answer.
struct Switch {
  const char* function;
  const char* file;
  const char* section;
  const char* key;
  const char* defaultText;
  SwitchRule rule;
  SwitchCaching caching;
  double initial;  // the answer before the first read
  std::atomic<int> read{0};
  std::atomic<double> answer{initial};
};

std::string ReadText(const Switch& s) {
  char text[MAX_PATH] = "";
  const std::string path = GetModulePath() + s.file;
  dravix::platform::GetPrivateProfileStringA(s.section, s.key, s.defaultText, text, MAX_PATH, path.c_str());
  return text;
}

// The answer from the text, as "%d" (or "%f") reads it. A conversion that
// fails leaves its target as it was: 0 for the 0/1 switches, the stored
// answer for the numbers and ratios.
double Convert(const Switch& s, const std::string& text) {
  if (s.rule == SwitchRule::kRatio) {
    float f = static_cast<float>(s.answer.load(std::memory_order_relaxed));
    std::sscanf(text.c_str(), "%f", &f);
    return f;
  }
  int n = s.rule == SwitchRule::kNumber ? static_cast<int>(s.answer.load(std::memory_order_relaxed)) : 0;
  std::sscanf(text.c_str(), "%d", &n);
  switch (s.rule) {
    case SwitchRule::kSwitch:
      return n == 1 ? 1 : 0;
    case SwitchRule::kInverted:
      return n == 1 ? 0 : 1;
    case SwitchRule::kNonZero:
      return n != 0 ? 1 : 0;
    default:
      return n;
  }
}

double Evaluate(Switch& s) {
  if (s.caching == SwitchCaching::kKept && s.read.load(std::memory_order_acquire) != 0)
    return s.answer.load(std::memory_order_relaxed);
  if (s.caching == SwitchCaching::kFlagReset) s.read.store(1, std::memory_order_relaxed);
  const double answer = Convert(s, ReadText(s));
  s.answer.store(answer, std::memory_order_relaxed);
  // QUIRK(flag-reset-switches): the flag-reset switches clear their flag again, so they
  // read the file at every call and see a dealer's edit at once.
  s.read.store(s.caching == SwitchCaching::kKept ? 1 : 0, std::memory_order_release);
  return answer;
}

// Every answer fits a double exactly: 0/1, an int, or a float widened.
DWORD AsNumber(Switch& s) { return static_cast<DWORD>(static_cast<int>(Evaluate(s))); }

using R = SwitchRule;
using C = SwitchCaching;

Switch g_bcsoft{"EnableBCSOFT", "LiveTag.ini", "SYSTEM", "BCSOFT", "0", R::kSwitch, C::kFlagReset, 0};
Switch g_attach{
    "EnableAttachPicture", "LiveTag.ini", "MAILDIMENSION", "ATTACH_PICTURE", "0", R::kSwitch, C::kFlagReset, 0};
Switch g_watchdog{"EnableWatchDog", "Live.ini", "MODEL", "WATCHDOG", "0", R::kSwitch, C::kFlagReset, 0};
Switch g_zeploAudio{"EnableZeploAudio", "Live.ini", "MODEL", "ZEPLOAUDIO", "0", R::kSwitch, C::kKept, 0};
Switch g_zeploEmbeded{"EnableZeploEmbeded", "Live.ini", "MODEL", "ZEPLOEMBEDED", "0", R::kSwitch, C::kKept, 0};
Switch g_limitResolution{
    "EnableLimitResolution", "Live.ini", "MODEL", "LIMIT_RESOLUTION", "0", R::kSwitch, C::kKept, 0};
Switch g_connectList{
    "EnableConnectToListServer", "Live.ini", "MODEL", "CONNECT_TO_LISTSERVER", "0", R::kSwitch, C::kEveryCall, 0};
Switch g_accountList{
    "EnableAccountFromListServer", "Live.ini", "MODEL", "ACCOUNT_FROM_LISTSERVER", "0", R::kSwitch, C::kEveryCall, 0};
Switch g_zeploRender{"EnableZeploRender", "Live.ini", "MODEL", "ZEPLORENDER", "1", R::kSwitch, C::kKept, 0};
Switch g_quorl{"EnableQUORL", "OEM.ini", "MODEL", "QUORL", "0", R::kSwitch, C::kKept, 0};
Switch g_wdReset{"GetWDResetTime", "LiveTag.ini", "SYSTEM", "NORESPONSETIME", "120", R::kNumber, C::kKept, 100};
Switch g_drawFrame{"EnableDRAW_FRAME", "LiveTag.ini", "DRAW_FRAME", "OPEN", "0", R::kSwitch, C::kKept, 0};
Switch g_usbCamInv{"EnableUSBCamInv", "LiveTag.ini", "SYSTEM", "USBCAMINV", "0", R::kSwitch, C::kKept, 0};
Switch g_liveSound{"EnableLiveSound", "Live.ini", "MODEL", "LIVESOUND ", "0", R::kSwitch, C::kKept, 0};
// QUIRK(change-display-inverted): 1 when the file is missing, although its default is "0".
Switch g_changeDisplay{
    "IsChangeDisplay", "LiveTag.ini", "NONCHANGEDISPLAY", "NOCHANGE", "0", R::kInverted, C::kKept, 0};
Switch g_zmCap2R{"EnableZMCap2R", "Live.ini", "MODEL", "ZMCap2R", "0", R::kSwitch, C::kKept, 0};
Switch g_z7731d{"EnableZ7731D", "LiveTag.ini", "SYSTEM", "Z7731DB", "0", R::kSwitch, C::kKept, 0};
Switch g_defaultVol{"GetDefaultVol", "LiveTag.ini", "AudioSetting", "Bt878Vol", "3", R::kNumber, C::kKept, 0};
Switch g_posPage{"EnablePOSPage", "LiveTag.ini", "POSPage", "Enable", "0", R::kSwitch, C::kKept, 0};
Switch g_oldRecording{"EnableOldRecording", "LiveTag.ini", "OldRecording", "Enable", "0", R::kSwitch, C::kKept, 0};
// QUIRK(list-audio-any-number): on for any non-zero number, not only 1.
Switch g_listAllAudio{
    "ShowNoInputAudioDevice", "Live.ini", "MODEL", "LIST_ALL_AUDIO_CAPTURE ", "0", R::kNonZero, C::kEveryCall, 0};
// QUIRK(keep-ratio-float): the ratio is read as a float and widened (0.95 gives 0.949999988...).
Switch g_keepStorage{
    "GetKeepStorageSize",      "LiveTag.ini", "STORAGE", "KEEP_STORAGE_SIZE", "0.95", R::kRatio, C::kKept,
    static_cast<double>(0.95f)};
Switch g_keepRecycle{
    "GetKeepRecycleSize",      "LiveTag.ini", "RECYCLE", "KEEP_RECYCLE_SIZE", "0.03", R::kRatio, C::kKept,
    static_cast<double>(0.03f)};
Switch g_posTextMixer{
    "USING_POS_TEXTMIXER", "LiveTag.ini", "USING_POS_TEXTMIXER", "Enable", "0", R::kSwitch, C::kKept, 0};
Switch g_defaultPos{"DEFULT_POS_SETTING", "LiveTag.ini", "DEFULT_POS_SETTING", "Enable", "1", R::kSwitch, C::kKept, 0};
Switch g_eventTag{"ENABLE_EVENT_TAG", "LiveTag.ini", "EVENT_TAG", "Enable", "1", R::kSwitch, C::kKept, 0};

SwitchInfo Info(const Switch& s, double (*value)()) {
  return SwitchInfo{s.function, s.file, s.section, s.key, s.defaultText, s.rule, s.caching, value};
}

}  // namespace

const std::vector<SwitchInfo>& SwitchTable() {
  static const std::vector<SwitchInfo> table = {
      Info(g_bcsoft, [] { return double(EnableBCSOFT()); }),
      Info(g_attach, [] { return double(EnableAttachPicture()); }),
      Info(g_watchdog, [] { return double(EnableWatchDog()); }),
      Info(g_zeploAudio, [] { return double(EnableZeploAudio()); }),
      Info(g_zeploEmbeded, [] { return double(EnableZeploEmbeded()); }),
      Info(g_limitResolution, [] { return double(EnableLimitResolution()); }),
      Info(g_connectList, [] { return double(EnableConnectToListServer()); }),
      Info(g_accountList, [] { return double(EnableAccountFromListServer()); }),
      Info(g_zeploRender, [] { return double(EnableZeploRender()); }),
      Info(g_quorl, [] { return double(EnableQUORL()); }),
      Info(g_wdReset, [] { return double(GetWDResetTime()); }),
      Info(g_drawFrame, [] { return double(EnableDRAW_FRAME()); }),
      Info(g_usbCamInv, [] { return double(EnableUSBCamInv()); }),
      Info(g_liveSound, [] { return double(EnableLiveSound()); }),
      Info(g_changeDisplay, [] { return double(IsChangeDisplay()); }),
      Info(g_zmCap2R, [] { return double(EnableZMCap2R()); }),
      Info(g_z7731d, [] { return double(EnableZ7731D()); }),
      Info(g_defaultVol, [] { return double(GetDefaultVol()); }),
      Info(g_posPage, [] { return double(EnablePOSPage()); }),
      Info(g_oldRecording, [] { return double(EnableOldRecording()); }),
      Info(g_listAllAudio, [] { return double(ShowNoInputAudioDevice()); }),
      Info(g_keepStorage, [] { return GetKeepStorageSize(); }),
      Info(g_keepRecycle, [] { return GetKeepRecycleSize(); }),
      Info(g_posTextMixer, [] { return double(USING_POS_TEXTMIXER()); }),
      Info(g_defaultPos, [] { return double(DEFULT_POS_SETTING()); }),
      Info(g_eventTag, [] { return double(ENABLE_EVENT_TAG()); }),
  };
  return table;
}

}  // namespace dravix::config

using dravix::config::AsNumber;
using dravix::config::Evaluate;
namespace cfg = dravix::config;

DWORD EnableBCSOFT() { return AsNumber(cfg::g_bcsoft); }
DWORD EnableAttachPicture() { return AsNumber(cfg::g_attach); }
DWORD EnableWatchDog() { return AsNumber(cfg::g_watchdog); }
DWORD EnableZeploAudio() { return AsNumber(cfg::g_zeploAudio); }
DWORD EnableZeploEmbeded() { return AsNumber(cfg::g_zeploEmbeded); }
DWORD EnableLimitResolution() { return AsNumber(cfg::g_limitResolution); }
DWORD EnableConnectToListServer() { return AsNumber(cfg::g_connectList); }
DWORD EnableAccountFromListServer() { return AsNumber(cfg::g_accountList); }
DWORD EnableZeploRender() { return AsNumber(cfg::g_zeploRender); }
DWORD EnableQUORL() { return AsNumber(cfg::g_quorl); }
DWORD GetWDResetTime() { return AsNumber(cfg::g_wdReset); }
DWORD EnableDRAW_FRAME() { return AsNumber(cfg::g_drawFrame); }
DWORD EnableUSBCamInv() { return AsNumber(cfg::g_usbCamInv); }
DWORD EnableLiveSound() { return AsNumber(cfg::g_liveSound); }
DWORD IsChangeDisplay() { return AsNumber(cfg::g_changeDisplay); }
DWORD EnableZMCap2R() { return AsNumber(cfg::g_zmCap2R); }
DWORD EnableZ7731D() { return AsNumber(cfg::g_z7731d); }
DWORD GetDefaultVol() { return AsNumber(cfg::g_defaultVol); }
DWORD EnablePOSPage() { return AsNumber(cfg::g_posPage); }
DWORD EnableOldRecording() { return AsNumber(cfg::g_oldRecording); }
DWORD ShowNoInputAudioDevice() { return AsNumber(cfg::g_listAllAudio); }
DWORD USING_POS_TEXTMIXER() { return AsNumber(cfg::g_posTextMixer); }
DWORD DEFULT_POS_SETTING() { return AsNumber(cfg::g_defaultPos); }
DWORD ENABLE_EVENT_TAG() { return AsNumber(cfg::g_eventTag); }
double GetKeepStorageSize() { return Evaluate(cfg::g_keepStorage); }
double GetKeepRecycleSize() { return Evaluate(cfg::g_keepRecycle); }

int IsApRunning(const char* name) {
  if (name == nullptr) return 0;
  const std::string_view wanted = name;
  for (const auto& process : dravix::platform::ListProcesses()) {
    if (dravix::EqualNoCase(process.name, wanted)) return 1;
  }
  return 0;
}
