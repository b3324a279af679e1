// Feature switches: model and OEM options read from small INI files in the
// program folder ("Live.ini", "OEM.ini", "LiveTag.ini") that an installer or
// a dealer edits by hand.
//
// Unless noted, a switch reads its key as text, converts it with "%d" and is
// on (1) only when the number is exactly 1; any other number, or text that
// is not a number, gives 0. A missing file, section or key gives the
// switch's default text.
//
// Most switches read their key once per process and keep the answer: an
// edit of the file takes effect at the next start. Those marked "read at
// every call" see edits at once. Two keys carry a trailing blank
// ("LIVESOUND ", "LIST_ALL_AUDIO_CAPTURE "); since blanks around keys in a
// file are trimmed, no file line can match them and those two switches
// always give their default.
//
// The functions are safe to call from any thread; two threads asking at the
// same time may both read the file, and store the same answer.
#pragma once

#include "dravix/platform/wintypes.h"

#include <vector>

// "LiveTag.ini" [SYSTEM] BCSOFT, default "0"; read at every call.
DWORD EnableBCSOFT();
// "LiveTag.ini" [MAILDIMENSION] ATTACH_PICTURE, default "0"; read at every call.
DWORD EnableAttachPicture();
// "Live.ini" [MODEL] WATCHDOG, default "0"; read at every call.
DWORD EnableWatchDog();
// "Live.ini" [MODEL] ZEPLOAUDIO, default "0"; kept.
DWORD EnableZeploAudio();
// "Live.ini" [MODEL] ZEPLOEMBEDED, default "0"; kept.
DWORD EnableZeploEmbeded();
// "Live.ini" [MODEL] LIMIT_RESOLUTION, default "0"; kept.
DWORD EnableLimitResolution();
// "Live.ini" [MODEL] CONNECT_TO_LISTSERVER, default "0"; read at every call.
DWORD EnableConnectToListServer();
// "Live.ini" [MODEL] ACCOUNT_FROM_LISTSERVER, default "0"; read at every call.
DWORD EnableAccountFromListServer();
// "Live.ini" [MODEL] ZEPLORENDER, default "1" (on); kept.
DWORD EnableZeploRender();
// "OEM.ini" [MODEL] QUORL, default "0"; kept.
DWORD EnableQUORL();
// "LiveTag.ini" [SYSTEM] NORESPONSETIME, default "120": the watchdog's
// no-response time itself (100 when the text is not a number); kept.
DWORD GetWDResetTime();
// "LiveTag.ini" [DRAW_FRAME] OPEN, default "0"; kept.
DWORD EnableDRAW_FRAME();
// "LiveTag.ini" [SYSTEM] USBCAMINV, default "0"; kept.
DWORD EnableUSBCamInv();
// "Live.ini" [MODEL] "LIVESOUND " (trailing blank), default "0"; kept.
DWORD EnableLiveSound();
// "LiveTag.ini" [NONCHANGEDISPLAY] NOCHANGE, default "0": 1 unless the
// number is 1 (inverted); kept.
DWORD IsChangeDisplay();
// "Live.ini" [MODEL] ZMCap2R, default "0"; kept.
DWORD EnableZMCap2R();
// "LiveTag.ini" [SYSTEM] Z7731DB, default "0"; kept.
DWORD EnableZ7731D();
// "LiveTag.ini" [AudioSetting] Bt878Vol, default "3": the default capture
// volume of the Bt878 audio input itself; kept.
DWORD GetDefaultVol();
// "LiveTag.ini" [POSPage] Enable, default "0"; kept.
DWORD EnablePOSPage();
// "LiveTag.ini" [OldRecording] Enable, default "0"; kept.
DWORD EnableOldRecording();
// "Live.ini" [MODEL] "LIST_ALL_AUDIO_CAPTURE " (trailing blank), default
// "0": 1 when the number is not 0; read at every call.
DWORD ShowNoInputAudioDevice();
// "LiveTag.ini" [STORAGE] KEEP_STORAGE_SIZE, default "0.95": the part of a
// recording disk that may be filled. Read with "%f" as a float (so 0.95
// comes back as 0.949999988...); kept.
double GetKeepStorageSize();
// "LiveTag.ini" [RECYCLE] KEEP_RECYCLE_SIZE, default "0.03": the part of a
// disk reserved for the recycle area, read like GetKeepStorageSize; kept.
double GetKeepRecycleSize();
// "LiveTag.ini" [USING_POS_TEXTMIXER] Enable, default "0"; kept.
DWORD USING_POS_TEXTMIXER();
// "LiveTag.ini" [DEFULT_POS_SETTING] Enable, default "1" (on); kept.
DWORD DEFULT_POS_SETTING();
// "LiveTag.ini" [EVENT_TAG] Enable, default "1" (on); kept.
DWORD ENABLE_EVENT_TAG();

// 1 when a running process's executable has the base name `name` (compared
// without regard to case, as Windows file names are), else 0. A process
// whose executable cannot be read is named "unknown".
int IsApRunning(const char* name);

namespace dravix::config {

// How a switch turns its text into an answer.
enum class SwitchRule {
  kSwitch,    // 1 when the number is 1
  kInverted,  // 0 when the number is 1, else 1
  kNonZero,   // 1 when the number is not 0
  kNumber,    // the number itself
  kRatio,     // a float ("%f"), returned as a double
};

// When a switch reads its file.
enum class SwitchCaching {
  kKept,       // once per process
  kFlagReset,  // keeps a read flag but clears it after reading: every call
  kEveryCall,  // no flag: every call
};

// One row of the switch table, for tools that list the switches.
struct SwitchInfo {
  const char* function;
  const char* file;
  const char* section;
  const char* key;
  const char* defaultText;
  SwitchRule rule;
  SwitchCaching caching;
  double (*value)();  // calls the switch (its caching applies)
};

// Every switch, in the order of the declarations above.
const std::vector<SwitchInfo>& SwitchTable();

}  // namespace dravix::config
