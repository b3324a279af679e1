// IAVManager: the process-wide owner of every video channel and the
// directory of capture devices (which chip and input stands behind each
// camera port, which audio capture devices exist).
//
// The live program is recognised by its executable's file name, lower-cased:
// it is the live program when the name contains "live.exe" or, since Linux
// programs carry no extension, when the name is exactly "live". Every other
// program sees 16 cameras without asking the cards.
//
// Devices come from the V4L2 and ALSA enumerators (media_devices.h) unless
// others are set with SetDeviceEnumerators(); the cards from IBt878Utl.
//
// Called from the host's user-interface thread; nothing is locked. The
// first Instance() and GetVideoCount() must come before other threads use it.
#pragma once

#include "dravix/live/videorenderer.h"
#include "dravix/live/zav.h"
#include "dravix/platform/wintypes.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace dravix::live {

constexpr int kLiveSlots = 32;
constexpr int kFileSlots = 224;
constexpr int kDeviceEntries = 64;
constexpr int kDeviceNameSize = 80;
constexpr int kMaxAudioDevices = 32;
constexpr int kMaxLiveCameras = 16;

struct AudioInputDevice {
  std::string name;
  int inputPins = 0;
};

// Where the manager looks for devices and its own program name. An empty
// member keeps the system's: V4L2, ALSA, /proc/self/exe. `audioSetupOrder`
// lists the audio capture devices in driver-setup order (the second audio
// pass); by default the ALSA list again.
struct DeviceEnumerators {
  std::function<std::optional<std::vector<std::string>>()> videoInputs;
  std::function<std::optional<std::vector<AudioInputDevice>>()> audioInputs;
  std::function<std::vector<std::string>()> audioSetupOrder;
  std::function<std::string()> programName;
};
void SetDeviceEnumerators(DeviceEnumerators e);

// Whether a program of this file name is the live program (see above).
bool IsLiveProgramName(const std::string& name);

// The capture filter's registration, where the driver reads "ColorLevel".
inline constexpr const char* kColorLevelRoot = "HKEY_CLASSES_ROOT";
inline constexpr const char* kColorLevelKey =
    "CLSID\\{083863F1-70DE-11D0-BD40-00A0C911CE86}\\Instance\\{BB61F5C8-393B-11D4-B5FF-0050BA0039D2}";
inline constexpr const char* kColorLevelValue = "ColorLevel";
inline constexpr const char* kGPIOInfoName = "GPIOInfo.zmi";

}  // namespace dravix::live

class IAVManager {
 public:
  static IAVManager* Instance();

  // Member by member: a copy shares the channels and the sink, so only one
  // of the two may be destroyed (the singleton is never copied in practice).
  IAVManager(const IAVManager&) = default;
  IAVManager& operator=(const IAVManager&) = default;
  // Disconnects and deletes every channel made, live slots first.
  virtual ~IAVManager();

  // Slot `port` (0..31); made on first request: bound to the port when it is
  // below GetVideoCount(), else unbound (port -1).
  ZLiveAV* GetVideo(int port);
  int GetVideoCount();
  // Slot i (0..223), made on first request. Null outside the range.
  ZFileAV* GetFileAV(int i);
  void SetFileMode() { m_nMode = 2; }
  void SetLiveMode() { m_nMode = 1; }
  int IsLiveMode() const { return m_nMode == 1 ? 1 : 0; }

  int GetChipFromPort(int port);
  // The port must be mapped (0..63 with a non-negative entry).
  const char* GetDeviceName(int port);
  // The first port below the counted cameras with code major * 100 + minor.
  int GetCameraID(int major, int minor);
  int GetAudioCount();
  const char* GetAuioDeviceName(int i);
  int QuickDisplay(int enable, int level);
  int IsQSerise();
  int IsQModel();
  void EntryBackupAgentMode(int on) { m_bBackupAgent = on; }

  HRESULT InitializeVideoSink();
  HRESULT CreateChannel(IZMVideoRenderChannel** out);
  HRESULT DestroyChannel(IZMVideoRenderChannel* channel);
  int IsUseFxVideoSink() const { return 1; }

  // Read-only views for tools and tests.
  struct DeviceEntry {
    int chip;
    int input;
    char name[dravix::live::kDeviceNameSize];
  };
  const DeviceEntry& Device(int device) const { return m_Device[device]; }
  int PortMap(int port) const { return m_nPortMap[port]; }
  int CameraCode(int port) const { return m_nCameraCode[port]; }
  // isOption(1, chip) for the chip of device entry 0..15, as asked at count.
  int ChipOption(int device) const { return m_nChipOption[device]; }
  // The recorder model number from the cards (0 = none).
  int GetDVRModel();
  IZMMultiChannelVideoRenderer* VideoSink() const { return m_pVideoSink; }

 private:
  IAVManager();
  void ReadVideoDevices(const std::vector<std::string>& names);
  void WriteCardLayout();

  int m_nMode = 1;
  int m_bBackupAgent = 0;
  ZLiveAV* m_pLive[dravix::live::kLiveSlots] = {};
  ZFileAV* m_pFile[dravix::live::kFileSlots] = {};
  DeviceEntry m_Device[dravix::live::kDeviceEntries];
  int m_nPortMap[dravix::live::kDeviceEntries];
  char m_szAudio[dravix::live::kMaxAudioDevices][dravix::live::kDeviceNameSize] = {};
  int m_nVideoCount = -1;
  int m_nAudioCount = -1;
  int m_nCameraCode[dravix::live::kMaxLiveCameras];
  IZMMultiChannelVideoRenderer* m_pVideoSink = nullptr;
  int m_nChipOption[dravix::live::kMaxLiveCameras] = {};
  int m_bCardReady = 0;

  static std::unique_ptr<IAVManager> sm_inst;
};
