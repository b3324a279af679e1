// Counting cameras works in three layers: the device enumerator names the
// capture chips ("Zep..." names carry chip and input at fixed positions,
// "ZMC..." names stand for every input of one chip), the card library
// gives the number of cameras and the port map, and the manager keeps
// both in its tables. The count is cached before the port map is filled and
// the live channels are made, because making a channel asks for the count.
#include "dravix/live/avmanager.h"

#include "dravix/base/single_instance.h"
#include "dravix/base/zfile.h"
#include "dravix/config/switches.h"
#include "dravix/live/bt878utl.h"
#include "dravix/live/simcard.h"
#include "dravix/log/ilog.h"
#include "dravix/platform/atomic_file.h"
#include "dravix/platform/media_devices.h"
#include "dravix/platform/nocase.h"
#include "dravix/platform/registry.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

std::unique_ptr<IAVManager> IAVManager::sm_inst;

namespace dravix::live {
namespace {

DeviceEnumerators& Enumerators() {
  static DeviceEnumerators e;
  return e;
}

std::optional<std::vector<std::string>> VideoInputs() {
  if (Enumerators().videoInputs) return Enumerators().videoInputs();
  return platform::ListVideoCaptureDevices();
}

std::optional<std::vector<AudioInputDevice>> AudioInputs() {
  if (Enumerators().audioInputs) return Enumerators().audioInputs();
  auto alsa = platform::ListAudioCaptureDevices();
  if (!alsa) return std::nullopt;
  std::vector<AudioInputDevice> out;
  for (const auto& d : *alsa) out.push_back({d.name, d.inputPins});
  return out;
}

std::vector<std::string> AudioSetupOrder(const std::vector<AudioInputDevice>& inputs) {
  if (Enumerators().audioSetupOrder) return Enumerators().audioSetupOrder();
  std::vector<std::string> names;
  for (const auto& d : inputs) names.push_back(d.name);
  return names;
}

std::string ProgramName() {
  if (Enumerators().programName) return Enumerators().programName();
  return platform::RunningProgramName();
}

std::string Lower(std::string s) {
  for (char& c : s) c = dravix::AsciiLower(c);
  return s;
}

// Names are taken as the system reports them, cut to 260 characters.
std::string Cut(const std::string& s) { return s.substr(0, std::min<size_t>(s.size(), 260)); }

bool Contains(const std::string& s, const char* part) { return s.find(part) != std::string::npos; }

bool IsOwnAudio(const std::string& name) {
  return Contains(name, "Bt878-ZM Audio Capture Chip") || Contains(name, "ZMCap2R Audio Capture") ||
         Contains(name, "ZMAud3R Audio Capture");
}

// "VAD wave" and digital outputs are never capture sources. The word for
// digital is checked in Big5 (as the Windows code page gives it) and in
// UTF-8 (as Linux drivers report it).
bool IsExcludedAudio(const std::string& name) {
  if (EqualNoCase(name, "vad wave")) return true;
  return Contains(name, "Digital") || Contains(name, "\xBC\xC6\xA6\xEC") || Contains(name, "\xE6\x95\xB8\xE4\xBD\x8D");
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

void CopyName(char (&out)[kDeviceNameSize], const std::string& name) {
  const size_t n = std::min<size_t>(name.size(), kDeviceNameSize - 1);
  std::memcpy(out, name.data(), n);
  out[n] = '\0';
}

}  // namespace

void SetDeviceEnumerators(DeviceEnumerators e) { Enumerators() = std::move(e); }

bool IsLiveProgramName(const std::string& name) {
  const std::string lower = Lower(name);
  return Contains(lower, "live.exe") || lower == "live";
}

}  // namespace dravix::live

using namespace dravix::live;

IAVManager* IAVManager::Instance() {
  return dravix::base::SingleInstance(sm_inst, [] { return new IAVManager(); });
}

IAVManager::IAVManager() {
  for (auto& d : m_Device) {
    d.chip = -1;
    d.input = -1;
    d.name[0] = '\0';
  }
  std::fill(std::begin(m_nPortMap), std::end(m_nPortMap), -1);
  std::fill(std::begin(m_nCameraCode), std::end(m_nCameraCode), -1);
  m_bCardReady = IBt878Utl::Instance()->initial() != 0 ? 1 : 0;
}

IAVManager::~IAVManager() {
  for (ZLiveAV*& ch : m_pLive) {
    if (ch == nullptr) continue;
    ch->Disconnect();
    delete ch;
    ch = nullptr;
  }
  for (ZFileAV*& ch : m_pFile) {
    if (ch == nullptr) continue;
    ch->Disconnect();
    delete ch;
    ch = nullptr;
  }
  delete m_pVideoSink;
  m_pVideoSink = nullptr;
}

ZLiveAV* IAVManager::GetVideo(int port) {
  if (port < 0 || port >= kLiveSlots) return nullptr;
  if (m_pLive[port] == nullptr) m_pLive[port] = new ZLiveAV(port < GetVideoCount() ? port : -1);
  return m_pLive[port];
}

ZFileAV* IAVManager::GetFileAV(int i) {
  if (i < 0 || i >= kFileSlots) return nullptr;
  if (m_pFile[i] == nullptr) m_pFile[i] = new ZFileAV(i);
  return m_pFile[i];
}

void IAVManager::ReadVideoDevices(const std::vector<std::string>& names) {
  IBt878Utl* card = IBt878Utl::Instance();
  int cardIndex = 0;
  int chipsSeen = card->GetChipsOfCard(0);
  for (const std::string& raw : names) {
    const std::string name = Cut(raw);
    if (name.rfind("Zep", 0) == 0) {
      if (name.size() < 37 || !IsDigit(name[27])) continue;
      int chip = name[27] - '0';
      size_t inputAt = 36;
      if (IsDigit(name[28])) {
        chip = chip * 10 + (name[28] - '0');
        inputAt = 37;
      }
      if (name.size() <= inputAt || !IsDigit(name[inputAt])) continue;
      const int input = name[inputAt] - '0';
      const int device = chip * 4 + input;
      if (device >= kDeviceEntries) continue;
      m_Device[device].chip = chip;
      m_Device[device].input = input;
      CopyName(m_Device[device].name, name);
    } else if (name.rfind("ZMC", 0) == 0) {
      int chip = -1;
      if (std::sscanf(name.c_str(), "ZMCap2R Capture - Chip%d", &chip) != 1 &&
          std::sscanf(name.c_str(), "ZMCap3R Capture - Chip%d", &chip) != 1)
        continue;
      if (chip < 0 || chip >= kDeviceEntries) continue;
      if (chip >= chipsSeen) {
        ++cardIndex;
        chipsSeen += card->GetChipsOfCard(cardIndex);
      }
      const int inputs = card->GetEachChipChannels(cardIndex);
      const int shift = ChipShift(inputs);
      for (int i = 0; i < (1 << shift); ++i) {
        const int device = (chip << shift) + i;
        if (device >= kDeviceEntries) break;
        char text[kDeviceNameSize + 16];
        std::snprintf(text, sizeof text, "%s Channel %d", name.c_str(), i);
        CopyName(m_Device[device].name, text);
        m_Device[device].chip = chip;
        m_Device[device].input = i;
      }
    }
  }
}

void IAVManager::WriteCardLayout() {
  IBt878Utl* card = IBt878Utl::Instance();
  const int cards = std::clamp(card->GetCardNumber(), 0, 255);
  std::string bytes(4, '\0');
  for (int i = 0; i < 4; ++i)
    bytes[static_cast<size_t>(i)] = static_cast<char>((static_cast<unsigned>(cards) >> (8 * i)) & 0xFF);
  for (int c = 0; c < cards; ++c) bytes.push_back(static_cast<char>(card->GetChipIDOfCard(c) & 0xFF));
  dravix::platform::ReplaceFileAtomically(GetModulePath() + kGPIOInfoName, bytes);

  char model[64] = {};
  card->GetModelStr(model);
  ILog::Instance()->WriteV("DVRModel = %s\r\n", model);

  for (int d = 0; d < kMaxLiveCameras; ++d)
    m_nChipOption[d] = m_Device[d].chip >= 0 ? card->isOption(1, m_Device[d].chip) : 0;
}

int IAVManager::GetVideoCount() {
  if (m_bBackupAgent == 1) return 0;
  if (m_nVideoCount != -1) return m_nVideoCount;
  if (!IsLiveProgramName(dravix::live::ProgramName())) {
    m_nVideoCount = kMaxLiveCameras;
    return m_nVideoCount;
  }
  const auto devices = dravix::live::VideoInputs();
  if (!devices) return 0;
  ReadVideoDevices(*devices);

  IBt878Utl* card = IBt878Utl::Instance();
  if (m_bCardReady) {
    WriteCardLayout();
  } else {
    // Truncated all the same: a layout left from an earlier run must not be read as this one's.
    dravix::platform::ReplaceFileAtomically(GetModulePath() + kGPIOInfoName, std::string());
  }

  int count = card->GetTotalChannels();
  if (!card->isServer()) count -= card->GetLiveCameraIndexBase();
  m_nVideoCount = std::clamp(count, 0, kMaxLiveCameras);

  if (card->GetEachChipChannels(0) == 4 || card->GetHardwareVersion() > 2)
    card->GetChannelMappingB(m_nPortMap, m_nCameraCode);
  else
    card->GetChannelMappingG(m_nPortMap, m_nCameraCode);

  for (int port = 0; port < m_nVideoCount; ++port) GetVideo(port)->EnableNightVision(1);
  return m_nVideoCount;
}

int IAVManager::GetChipFromPort(int port) {
  if (port < 0 || port >= kDeviceEntries) return -1;
  const int device = m_nPortMap[port];
  if (device < 0 || device >= kDeviceEntries) return -1;
  return m_Device[device].chip;
}

const char* IAVManager::GetDeviceName(int port) { return m_Device[m_nPortMap[port]].name; }

int IAVManager::GetCameraID(int major, int minor) {
  if (m_nVideoCount < 1) return -1;
  const int code = major * 100 + minor;
  for (int i = 0; i < m_nVideoCount && i < kMaxLiveCameras; ++i)
    if (m_nCameraCode[i] == code) return i;
  return -1;
}

int IAVManager::GetAudioCount() {
  if (m_nAudioCount != -1) return m_nAudioCount;
  const auto inputs = dravix::live::AudioInputs();
  if (!inputs) {
    m_nAudioCount = 0;
    return 0;
  }
  int n = 0;
  const bool listAll = ShowNoInputAudioDevice() != 0;
  // Other sound cards first.
  for (const auto& d : *inputs) {
    if (n >= kMaxAudioDevices) break;
    const std::string name = dravix::live::Cut(d.name);
    if (dravix::live::IsExcludedAudio(name) || dravix::live::IsOwnAudio(name)) continue;
    if (!listAll && d.inputPins < 1) continue;
    dravix::live::CopyName(m_szAudio[n++], name);
  }
  // Then the recorder's own, in driver-setup order.
  for (const std::string& raw : dravix::live::AudioSetupOrder(*inputs)) {
    if (n >= kMaxAudioDevices) break;
    const std::string name = dravix::live::Cut(raw);
    if (dravix::live::IsExcludedAudio(name)) continue;
    if (name.compare(0, 21, "ZMCap2R Audio Capture") != 0 && name.compare(0, 21, "ZMAud3R Audio Capture") != 0)
      continue;
    dravix::live::CopyName(m_szAudio[n++], name);
  }
  m_nAudioCount = n;
  return n;
}

const char* IAVManager::GetAuioDeviceName(int i) {
  if (i < 0 || i >= kMaxAudioDevices) return "";
  return m_szAudio[i];
}

int IAVManager::QuickDisplay(int enable, int level) {
  if (enable != 1) level = 0;
  if (level > 2) return 1;  // rejected: nothing written
  dravix::platform::RegistrySetDword(GetModulePath() + dravix::platform::kRegistryFileName, kColorLevelRoot,
                                     kColorLevelKey, kColorLevelValue, static_cast<DWORD>(level));
  return 1;
}

int IAVManager::IsQSerise() {
  IBt878Utl* card = IBt878Utl::Instance();
  if (card->GetEachChipChannels(0) != 1) return 0;
  char model[64] = {};
  card->GetModelStr(model);
  return std::strcmp(model, "Z6612Q") != 0 ? 1 : 0;
}

int IAVManager::IsQModel() {
  const int n = IBt878Utl::Instance()->GetEachChipChannels(0);
  return n == 1 || n == 8 || n == 16 ? 1 : 0;
}

int IAVManager::GetDVRModel() { return IBt878Utl::Instance()->GetModelNumber(); }

HRESULT IAVManager::InitializeVideoSink() {
  if (m_pVideoSink != nullptr) return S_OK;
  IZMMultiChannelVideoRenderer* sink = nullptr;
  const HRESULT hr = zmCreateMultiChannelVideoRenderer(&sink);
  if (sink == nullptr) return FAILED(hr) ? hr : E_FAIL;
  m_pVideoSink = sink;
  return m_pVideoSink->Initialize(0);
}

HRESULT IAVManager::CreateChannel(IZMVideoRenderChannel** out) {
  if (m_pVideoSink == nullptr || out == nullptr) return E_FAIL;
  if (FAILED(m_pVideoSink->CreateChannel(out)) || *out == nullptr) return E_FAIL;
  return m_pVideoSink->AddChannel(*out);
}

HRESULT IAVManager::DestroyChannel(IZMVideoRenderChannel* channel) {
  if (m_pVideoSink == nullptr) return E_FAIL;
  return m_pVideoSink->RemoveChannel(channel);
}
