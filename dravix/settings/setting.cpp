#include "dravix/settings/setting.h"

#include "dravix/base/single_instance.h"
#include "dravix/base/zfile.h"
#include "dravix/base/ztime.h"
#include "dravix/config/option_visitor.h"
#include "dravix/config/switches.h"
#include "dravix/config/xmldoc.h"
#include "dravix/live/avmanager.h"
#include "dravix/live/bt878utl.h"
#include "dravix/live/iocardmgr.h"
#include "dravix/platform/atomic_file.h"
#include "dravix/platform/file_io.h"
#include "dravix/platform/ini.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

using dravix::platform::GetPrivateProfileIntA;
using dravix::platform::GetPrivateProfileStringA;
using dravix::platform::WritePrivateProfileStringA;

std::unique_ptr<ISetting> ISetting::sm_inst;

namespace {

template <size_t N>
void CopyText(char (&out)[N], const char* text) {
  std::snprintf(out, N, "%s", text == nullptr ? "" : text);
}

std::string Ini(const char* name) { return GetModulePath() + name; }

std::string SystemTempFolder() {
  const char* tmp = std::getenv("TMPDIR");
  std::string folder = tmp != nullptr && *tmp != '\0' ? tmp : "/tmp";
  if (folder.back() != '/') folder += '/';
  return folder;
}

void CopyOut(const std::string& text, char* out, int size) {
  if (out == nullptr || size <= 0) return;
  std::snprintf(out, static_cast<size_t>(size), "%s", text.c_str());
}

}  // namespace

ISetting* ISetting::Instance() {
  return dravix::base::SingleInstance(sm_inst, [] { return new ISetting(); });
}

ISetting::ISetting() {
  using namespace dravix::config;
  // 1. Defaults.
  auto whole = std::make_unique<tagDSZEPLODVROPTION>();
  std::memset(whole.get(), 0, sizeof *whole);
  FillDefaultOptions(*whole);
  whole->dsDVROption.nVersion = kDSOptionVersion;
  IAVManager* av = IAVManager::Instance();
  m_nVideoChannels = av->GetVideoCount();
  const int audio = std::min(av->GetAudioCount(), kDSRecordDevices);
  whole->dsAudioExpress.nAudioRecDevCount = audio;
  for (int i = 0; i < audio; ++i)
    CopyText(whole->dsAudioExpress.dsRecordDevice[i].szDeviceName, av->GetAuioDeviceName(i));
  char quick[16];
  GetPrivateProfileStringA("QuickDisplay", "VALUE", "", quick, sizeof quick, Ini("Live.ini").c_str());
  whole->dsDVROption.dsGeneral.bQuickDisplay = std::strcmp(quick, "TRUE") == 0 ? 1 : 0;

  // 2-4. The old files, the document, the old record files.
  m_migration = MigrateLegacyOptions(*whole, *ZXMLMGR::Instance());
  m_option = whole->dsDVROption;
  m_audio = whole->dsAudioExpress;
  m_preference = whole->dsPreference;
  m_playerAudio = whole->dsPlayerAudio;
  m_talk = whole->dsTalkOption;

  // 5. Devices.
  DeviceInit();
  m_nChipType = IBt878Utl::Instance()->GetEachChipChannels(0);
  m_bLimitResolution = static_cast<int>(EnableLimitResolution());
  CreateAudDviceZMI();
}

ISetting::~ISetting() { DeviceClose(); }

int ISetting::SaveAll() {
  auto whole = std::make_unique<tagDSZEPLODVROPTION>();
  whole->dsDVROption = m_option;
  whole->dsAudioExpress = m_audio;
  whole->dsPreference = m_preference;
  whole->dsPlayerAudio = m_playerAudio;
  whole->dsTalkOption = m_talk;
  return ZXMLMGR::Instance()->SaveOption(*whole, 0);
}

// --- loading and saving

int ISetting::ReadDVROptionFromFile(const char* path) {
  if (path == nullptr || !dravix::platform::CheckRegularFile(path)) return 0;  // a FIFO must not block
  std::ifstream in(path, std::ios::binary);
  if (!in) return 0;
  // No check of size or version: a short file fills what it holds.
  in.read(reinterpret_cast<char*>(&m_option), sizeof m_option);
  return 1;
}

void ISetting::LoadDVROption(tagDSDVROPTION& out) const { out = m_option; }

int ISetting::SaveDVROption(const tagDSDVROPTION& in) {
  m_option = in;
  return SaveAll();
}

void ISetting::LoadPlayerOption(tagDSPREFERENCE& out) const { out = m_preference; }
int ISetting::SavePlayerOption(const tagDSPREFERENCE& in) {
  m_preference = in;
  return SaveAll();
}
void ISetting::LoadAudioExpressOption(tagDSAUDIOEXPRESS& out) const { out = m_audio; }
int ISetting::SaveAudioExpressOption(const tagDSAUDIOEXPRESS& in) {
  m_audio = in;
  return SaveAll();
}
void ISetting::LoadPlayerAudioOption(tagDSPLAYERAUDIO& out) const { out = m_playerAudio; }
int ISetting::SavePlayerAudioOption(const tagDSPLAYERAUDIO& in) {
  m_playerAudio = in;
  return SaveAll();
}
void ISetting::LoadTalkOption(tagDSTALKOPTION& out) const { out = m_talk; }
int ISetting::SaveTalkOption(const tagDSTALKOPTION& in) {
  m_talk = in;
  return SaveAll();
}
void ISetting::GetMapOption(tagMAPOPTION& out) const { out = m_option.dsMap; }
int ISetting::SaveMapOption(const tagMAPOPTION& in) {
  m_option.dsMap = in;
  return SaveAll();
}
void ISetting::GetGeneral(tagDSGENERALOPTION& out) const { out = m_option.dsGeneral; }
void ISetting::GetCameraInfo(tagDSCAMERAOPTION& out, int n) const { out = Cam(n); }
int ISetting::GetDeviceInfo(tagDSDEVICEOPTION* out, int card) const {
  if (out != nullptr) *out = m_option.dsDevice[card];
  return 1;
}
tagDSCAPTIONOPTION ISetting::GetCatption(int n) const { return Cam(n).dsCaption; }
void ISetting::GetPosInfo(tagDSPOSOPTION& out, int source) const { out = m_option.dsPOS[source]; }
tagDSPREFERENCE ISetting::GetPlayOption() const { return m_preference; }

void ISetting::SetUser(const tagDSADDUSER& user) { SetUser(user.szName, user.szPasswords); }
void ISetting::SetUser(const char* name, const char* password) {
  m_userName = name == nullptr ? "" : name;
  m_userPassword = password == nullptr ? "" : password;
}
tagDSADDUSER ISetting::GetUser() const {
  tagDSADDUSER u{};
  CopyText(u.szName, m_userName.c_str());
  CopyText(u.szPasswords, m_userPassword.c_str());
  return u;
}

// --- per camera

const char* ISetting::GetCameraName(int n) const { return Cam(n).szName; }
int ISetting::GetCameraPrivilege(int n) const { return Cam(n).nPrivilege; }
int ISetting::GetPriority(int n) const { return Cam(n).nPriority; }
int ISetting::IsNTSC(int n) const { return Cam(n).bNTSC; }
int ISetting::IsPALVideo(int n) const { return Cam(n).bPAL; }
int ISetting::GetVideoDimension(int n) const { return Cam(n).nDimension; }
int ISetting::IsCaption(int n) const { return Cam(n).bCaption; }
int ISetting::IsPreRecoding(int n) const { return Cam(n).bPreRecoding; }
int ISetting::GetPreRecodingInterval(int n) const { return Cam(n).nPreRecodingSec; }
int ISetting::GetManualEventLength(int n) const { return Cam(n).nManualSecond; }
int ISetting::GetVideoQuality(int n) const { return Cam(n).dsRecord.nZMediaQuality; }
int ISetting::GetJPEGQuality(int n) const { return Cam(n).dsRecord.nMJPEGQuality; }
int ISetting::GetImageFilterValue(int n, int i) const {
  if (i < 0 || i >= kDSImageFilters) return 0;
  return Cam(n).nImageFilterValue[i];
}

int ISetting::IsEventRecoding(int n) const { return Cam(n).nRecordMode == 2 ? 1 : 0; }

int ISetting::GetCompressor(int n) const {
  if (Cam(n).dsRecord.bZMedia == 1) return 1;
  if (Cam(n).dsRecord.bMJPEG == 1) return 2;
  return 0;
}

// Recorder models 20/22 and 21/23 cannot capture faster than their limits.
int ISetting::Clamp(int n, int rate) const {
  const int model = IAVManager::Instance()->GetDVRModel();
  const bool ntsc = Cam(n).bNTSC == 1;
  int limit = 0;
  if (model == 20 || model == 22) limit = ntsc ? 8 : 6;
  if (model == 21 || model == 23) limit = ntsc ? 15 : 12;
  return limit > 0 && rate > limit ? limit : rate;
}

int ISetting::GetCaptureFrameRate(int n) {
  Cam(n).dsRecord.nFrameRate = Clamp(n, Cam(n).dsRecord.nFrameRate);
  return Cam(n).dsRecord.nFrameRate;
}

int ISetting::GetViewLoopTime(int view, int layout) const { return m_option.dsView[view].nLookTime[layout]; }
void ISetting::GetViewCamera(int view, int layout, int out[16]) const {
  for (int i = 0; i < kDSMaxCamera; ++i) out[i] = m_option.dsView[view].nCamera[layout][i];
}

void ISetting::EnableVisualDetection(int n, int on) { Cam(n).bVisual = on; }
// QUIRK(interface-spelling): the names keep their spelling; DectionMotion sets
// the visual-detection switch, GetNATWebPort gives the web port.
void ISetting::DectionMotion(int n, int on) { Cam(n).bVisual = on; }
void ISetting::SaveImageFilterValue(int n, int i, int value) {
  if (i < 0 || i >= kDSImageFilters) return;
  Cam(n).nImageFilterValue[i] = value;
}
void ISetting::SetRecordingRate(int n, int rate) { Cam(n).dsRecord.nFrameRate = Clamp(n, rate); }
void ISetting::SetFrameRate(double rate, int n) { Cam(n).dsRecord.nFrameRate = static_cast<LONG>(rate); }

// --- general

const char* ISetting::GetSiteName() const { return m_option.dsGeneral.szSiteName; }
int ISetting::IsRemoveAccess() const { return m_option.dsGeneral.bRemoteAccess; }
int ISetting::IsRemoteAccess() const { return m_option.dsGeneral.bRemoteAccess; }
int ISetting::IsSmartAllocation() const { return m_option.dsGeneral.bSmartAllocation; }
int ISetting::IsKeepDimension() const { return m_option.dsGeneral.bKeepDimension; }
int ISetting::IsQuickDisplay() const { return m_option.dsGeneral.bQuickDisplay; }
int ISetting::IsKeepRecycle(float& ratio) const {
  ratio = m_option.dsGeneral.dsRecycle.fKeepRatio;
  return m_option.dsGeneral.dsRecycle.bKeepRecycle;
}
int ISetting::IsSpaceFullRecycle() const { return m_option.dsGeneral.dsRecycle.bSpaceFullRecycle; }
void ISetting::UpdateRecycleDay(float ratio) { m_option.dsGeneral.dsRecycle.fKeepRatio = ratio; }
int ISetting::IsWebEnable() const { return m_option.dsGeneral.bEnableWeb; }
int ISetting::GetWebPort() const { return m_option.dsGeneral.nWebPort; }
void ISetting::GetResetStatus(int& on, int& days) const {
  on = m_option.dsGeneral.bAutoReset;
  days = m_option.dsGeneral.nAutoResetDays;
}
int ISetting::IsGetListModem() const { return m_option.dsGeneral.bListPort; }
int ISetting::GetModemPort(int i) const { return i >= 0 && i < 4 ? m_option.dsGeneral.nCOMPort[i] : 0; }
int ISetting::IsEnableDynamicIP() const { return m_option.dsGeneral.dsDynamicIP.bRemote; }
const char* ISetting::GetDIPServer() const { return m_option.dsGeneral.dsDynamicIP.szIPName; }
const char* ISetting::GetDIPAccount() const { return m_option.dsGeneral.dsDynamicIP.szUserName; }
const char* ISetting::GetDIPPassword() const { return m_option.dsGeneral.dsDynamicIP.szPassWord; }
int ISetting::GetDIPPort() const { return m_option.dsGeneral.dsDynamicIP.nPort; }
void ISetting::GetNATWebPort(int& port) const { port = m_option.dsGeneral.nWebPort; }
int ISetting::IsDirectAccess() const { return m_option.dsUser.bDirectAccess; }

// --- I/O cards

int ISetting::DeviceInit() {
  ZIOCardMgr* io = ZIOCardMgr::Instance();
  const int cards = std::min(io->CardNum(), kDSMaxIOCard);
  m_nOpenedIO = 0;
  for (int c = 0; c < cards; ++c) {
    io->SetDll_ID(static_cast<unsigned>(c));
    LONG handle = 0;
    if (io->IOCardOpen(static_cast<unsigned long>(c), &handle) != 0) m_ioHandles[m_nOpenedIO++] = handle;
  }
  return m_nOpenedIO;
}

void ISetting::DeviceClose() {
  for (int i = 0; i < m_nOpenedIO; ++i) ZIOCardMgr::Instance()->IOCardClose(m_ioHandles[i]);
  m_nOpenedIO = 0;
}

// --- INI-backed values

RECT ISetting::GetWndPos(int id) const {
  RECT rc{0, 0, 100, 100};
  if (id < 111 || id > 118) return rc;
  char key[16];
  std::snprintf(key, sizeof key, "C2_V%02d_POS", id - 110);
  char text[64];
  GetPrivateProfileStringA("WndPos", key, "0 0 100 100", text, sizeof text, Ini("WndPos.ini").c_str());
  int l = 0, t = 0, r = 100, b = 100;
  if (std::sscanf(text, "%d %d %d %d", &l, &t, &r, &b) == 4) rc = RECT{l, t, r, b};
  return rc;
}

void ISetting::SaveWndPos(int id, const RECT& rc) {
  if (id < 111 || id > 118) return;
  char key[16];
  std::snprintf(key, sizeof key, "C2_V%02d_POS", id - 110);
  char text[64];
  std::snprintf(text, sizeof text, "%d %d %d %d", rc.left, rc.top, rc.right, rc.bottom);
  WritePrivateProfileStringA("WndPos", key, text, Ini("WndPos.ini").c_str());
}

void ISetting::SaveClearEventTime() {
  const SYSTEMTIME t = GetSysTime();
  char text[64];
  std::snprintf(text, sizeof text, "%4d/%02d/%02d   %02d:%02d:%02d", t.wYear, t.wMonth, t.wDay, t.wHour, t.wMinute,
                t.wSecond);
  WritePrivateProfileStringA("Clear Event Time", "Time", text, Ini("LiveVar.ini").c_str());
}

SYSTEMTIME ISetting::LoadClearEventTime() {
  char text[64] = {};
  GetPrivateProfileStringA("Clear Event Time", "Time", "2002/06/06   14:36:39", text, sizeof text,
                           Ini("LiveVar.ini").c_str());
  m_nRecycleTime = static_cast<int>(GetPrivateProfileIntA("RECYCLETIME", "TIME", 5, Ini("LiveVar.ini").c_str()));
  auto field = [&text](size_t at, size_t len) {
    int v = 0;
    for (size_t i = at; i < at + len && i < sizeof text && text[i] != '\0'; ++i)
      if (text[i] >= '0' && text[i] <= '9') v = v * 10 + (text[i] - '0');
    return static_cast<WORD>(v);
  };
  SYSTEMTIME t{};
  t.wYear = field(0, 4);
  t.wMonth = field(5, 2);
  t.wDay = field(8, 2);
  t.wHour = field(13, 2);
  t.wMinute = field(16, 2);
  t.wSecond = field(19, 2);
  return t;
}

void ISetting::GetCapRecoverSetting(int& countDown, int& showMsg, int& reboot) const {
  const std::string file = Ini("LiveTag.ini");
  countDown = static_cast<int>(GetPrivateProfileIntA("CAP_RECOVER", "CountDownSec", 30, file.c_str()));
  showMsg = static_cast<int>(GetPrivateProfileIntA("CAP_RECOVER", "ShowMsg", 0, file.c_str()));
  reboot = static_cast<int>(GetPrivateProfileIntA("CAP_RECOVER", "Reboot", 1, file.c_str()));
}

void ISetting::GetTemporaryDirectory(char* out, int size) const {
  CopyOut(dravix::platform::ReadIniString(Ini("Live.ini"), "Temporary Directory", "Path", SystemTempFolder()), out,
          size);
}

void ISetting::PutTemporaryDirectory(const char* path) {
  WritePrivateProfileStringA("Temporary Directory", "Path", path, Ini("Live.ini").c_str());
}

void ISetting::GetMailBoxDirectory(char* out, int size) const {
  CopyOut(dravix::platform::ReadIniString(Ini("Live.ini"), "Temporary Directory", "MailBox", SystemTempFolder()), out,
          size);
}

void ISetting::PutMailBoxDirectory(const char* path) {
  if (path == nullptr) return;
  std::error_code ec;
  if (!std::filesystem::is_directory(path, ec)) {
    std::filesystem::create_directories(std::string(path) + "MailBox", ec);
    std::filesystem::create_directories(path, ec);
  }
  WritePrivateProfileStringA("Temporary Directory", "MailBox", path, Ini("Live.ini").c_str());
}

int ISetting::CreateAudDviceZMI() {
  const std::string path = GetModulePath() + dravix::config::kAudioDeviceFile;
  if (FileExists(path.c_str())) return 0;
  IAVManager* av = IAVManager::Instance();
  const int count = av->GetAudioCount();
  std::string bytes(4, '\0');
  for (int i = 0; i < 4; ++i)
    bytes[static_cast<size_t>(i)] = static_cast<char>((static_cast<unsigned>(count) >> (8 * i)) & 0xFF);
  for (int i = 0; i < count; ++i) {
    char name[dravix::live::kDeviceNameSize] = {};
    std::snprintf(name, sizeof name, "%s", av->GetAuioDeviceName(i));
    bytes.append(name, sizeof name);
  }
  return dravix::platform::ReplaceFileAtomically(path, bytes) ? 1 : 0;
}
