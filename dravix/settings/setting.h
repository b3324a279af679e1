// ISetting: the live recorder's settings store. It owns one copy of every
// option record, loads them once at start (migrating the old binary option
// files into the option document, see legacy_options.h), answers the many
// small per-camera questions and writes changed records back through the
// option document.
//
// Start-up, in order: every record at its defaults (camera names, audio
// devices and counts from the channel manager, quick display from "Live.ini"
// [QuickDisplay] VALUE = "TRUE"); the old files migrated and the document
// loaded; the I/O cards opened, the chip type and resolution limit taken,
// and "AudioDevice.zmi" written when missing.
//
//
// Built by the first thread that asks; afterwards read without a lock from
// several threads. Accessors do not check the camera index (0..15).
#pragma once

#include "dravix/config/dvroption.h"
#include "dravix/config/legacy_options.h"
#include "dravix/platform/wintypes.h"

#include <memory>
#include <string>

namespace dravix::config {
inline constexpr const char* kAudioDeviceFile = "AudioDevice.zmi";
}  // namespace dravix::config

class ISetting {
 public:
  static ISetting* Instance();
  virtual ~ISetting();
  ISetting(const ISetting&) = delete;
  ISetting& operator=(const ISetting&) = delete;

  // What the start-up migration found.
  const dravix::config::MigrationReport& MigrationResult() const { return m_migration; }

  // --- loading and saving
  // Reads exactly 108848 bytes of `path` into the main record; 0 when the
  // file is missing, cannot be opened or is shorter.
  int ReadDVROptionFromFile(const char* path);
  void LoadDVROption(tagDSDVROPTION& out) const;
  // Saves the given record with the store's other records into the
  // document, then keeps it. 1, or 0 when the document could not be written
  // (the record is kept all the same).
  int SaveDVROption(const tagDSDVROPTION& in);
  void LoadPlayerOption(tagDSPREFERENCE& out) const;
  int SavePlayerOption(const tagDSPREFERENCE& in);
  void LoadAudioExpressOption(tagDSAUDIOEXPRESS& out) const;
  int SaveAudioExpressOption(const tagDSAUDIOEXPRESS& in);
  void LoadPlayerAudioOption(tagDSPLAYERAUDIO& out) const;
  int SavePlayerAudioOption(const tagDSPLAYERAUDIO& in);
  void LoadTalkOption(tagDSTALKOPTION& out) const;
  int SaveTalkOption(const tagDSTALKOPTION& in);
  void GetMapOption(tagMAPOPTION& out) const;
  int SaveMapOption(const tagMAPOPTION& in);
  void GetGeneral(tagDSGENERALOPTION& out) const;
  void GetCameraInfo(tagDSCAMERAOPTION& out, int n) const;
  int GetDeviceInfo(tagDSDEVICEOPTION* out, int card) const;
  tagDSCAPTIONOPTION GetCatption(int n) const;
  void GetPosInfo(tagDSPOSOPTION& out, int source) const;
  tagDSPREFERENCE GetPlayOption() const;
  void SetUser(const tagDSADDUSER& user);
  void SetUser(const char* name, const char* password);
  tagDSADDUSER GetUser() const;

  // --- per camera: plain fields
  const char* GetCameraName(int n) const;
  int GetCameraPrivilege(int n) const;
  int GetPriority(int n) const;
  int IsNTSC(int n) const;
  int IsPALVideo(int n) const;
  int GetVideoDimension(int n) const;
  int IsCaption(int n) const;
  int IsPreRecoding(int n) const;
  int GetPreRecodingInterval(int n) const;
  int GetManualEventLength(int n) const;
  int GetVideoQuality(int n) const;
  int GetJPEGQuality(int n) const;
  int GetImageFilterValue(int n, int i) const;  // 0 for i >= 7
  // --- derived
  int IsEventRecoding(int n) const;
  int GetCompressor(int n) const;  // 1 ZMedia, 2 MJPEG, 0 none
  // The stored rate clamped by recorder model; the clamp is kept.
  int GetCaptureFrameRate(int n);
  int GetViewLoopTime(int view, int layout) const;
  void GetViewCamera(int view, int layout, int out[16]) const;
  // --- writers (memory only)
  void EnableVisualDetection(int n, int on);
  void DectionMotion(int n, int on);
  void SaveImageFilterValue(int n, int i, int value);
  void SetRecordingRate(int n, int rate);
  void SetFrameRate(double rate, int n);
  // Backup scheduling belongs to the player; the recorder has none.
  // QUIRK(backup-schedule-noop): does nothing and answers 0.
  int EnableBackupSchedule() { return 0; }

  // --- per camera: schedule first (setting_schedule.cpp)
  // A camera "has a schedule setting" when its schedule is enabled and a
  // task of today holds now; that task then answers. Otherwise the stored
  // camera options answer.
  //
  // The Record switch; with a setting 0 when the task disconnects the
  // camera, else 1 only when the task records.
  int IsRecord(int n);
  // The task's answer with a setting, else the stored switch (IsPTZLoop:
  // 0 when the schedule is enabled but no task holds now).
  int IsVisual(int n);
  int IsManual(int n);
  int IsPTZLoop(int n);
  // The Connection switch, or 1 when the task connects the camera.
  int AllowCameraConnection(int n);
  // The task's connect flag with a setting, else the Connection switch.
  int IsConnect(int n);
  // 1 when the task reports the sensor (relay) trigger; otherwise 1 only
  // when the camera's Sensor (ToEXTDevice) switch is 1, it uses that input
  // (output) and the selected input card (output card) has that line set.
  // The input card counts from index 0, the output card from index 1.
  int IsSensor(int n, int input);
  int IsExternal(int n, int output);
  // 1 visual + 2 sensor + 4 manual; with a setting 0 when the task
  // disconnects the camera, else the task's mask.
  int GetEventFrom(int n);
  // With the schedule enabled, from the action of the task that holds now
  // (0 when none holds or its action is off); otherwise 0 when the Action
  // switch is off, else the stored action field.
  int IsLocalFlashText(int n);
  int IsChangeSigleView(int n);
  int IsStopSigleView(int n);
  int GetChangeSigleViewTime(int n);
  // The action flag, the action block copied to `action` when it is 1:
  // the task's with the schedule enabled, else the stored Action switch
  // and block.
  int IsAction(int n, tagDSACTIONOPTION& action);
  // Pass-throughs to the schedule manager.
  int PostTimeSchedling(int n);
  int PostVisualDerection();

  // --- general
  const char* GetSiteName() const;
  int IsRemoveAccess() const;
  int IsRemoteAccess() const;
  int IsSmartAllocation() const;
  int IsKeepDimension() const;
  int IsQuickDisplay() const;
  int IsKeepRecycle(float& ratio) const;
  int IsSpaceFullRecycle() const;
  void UpdateRecycleDay(float ratio);
  int IsWebEnable() const;
  int GetWebPort() const;
  void GetResetStatus(int& on, int& days) const;
  int IsGetListModem() const;
  int GetModemPort(int i) const;  // 0 outside 0..3
  int IsEnableDynamicIP() const;
  const char* GetDIPServer() const;
  const char* GetDIPAccount() const;
  const char* GetDIPPassword() const;
  int GetDIPPort() const;
  void GetNATWebPort(int& port) const;
  int IsDirectAccess() const;

  void SetDIPMsgBox(void* box) { m_pDIPMsgBox = box; }
  void* GetDIPMsgBox() const { return m_pDIPMsgBox; }
  void DestroyDIPMsgBox() { m_pDIPMsgBox = nullptr; }

  // --- the I/O cards
  // Opens every I/O card; returns the number opened.
  int DeviceInit();
  void DeviceClose();
  int GetChipType() const { return m_nChipType; }
  int IsLimitResolution() const { return m_bLimitResolution; }
  int GetVideoChannels() const { return m_nVideoChannels; }

  // --- INI-backed values
  RECT GetWndPos(int id) const;  // ids 111..118
  void SaveWndPos(int id, const RECT& rc);
  void SaveClearEventTime();
  // The clear-event time; also reads the recycle time (GetRecycleTime).
  SYSTEMTIME LoadClearEventTime();
  int GetRecycleTime() const { return m_nRecycleTime; }
  void GetCapRecoverSetting(int& countDown, int& showMsg, int& reboot) const;
  void GetTemporaryDirectory(char* out, int size) const;
  void PutTemporaryDirectory(const char* path);
  void GetMailBoxDirectory(char* out, int size) const;
  void PutMailBoxDirectory(const char* path);
  // Writes the channel manager's audio devices to "AudioDevice.zmi" when it
  // is missing: a 32-bit little-endian count, then 80 bytes per name.
  int CreateAudDviceZMI();

 private:
  ISetting();
  int Clamp(int n, int rate) const;
  tagDSCAMERAOPTION& Cam(int n) { return m_option.dsCamera[n]; }
  const tagDSCAMERAOPTION& Cam(int n) const { return m_option.dsCamera[n]; }
  int SaveAll();

  tagDSDVROPTION m_option;
  tagDSAUDIOEXPRESS m_audio;
  tagDSPLAYERAUDIO m_playerAudio;
  tagDSTALKOPTION m_talk;
  tagDSPREFERENCE m_preference;
  std::string m_userName;
  std::string m_userPassword;
  void* m_pDIPMsgBox = nullptr;
  int m_nOpenedIO = 0;
  LONG m_ioHandles[4] = {};
  int m_nChipType = 0;
  int m_bLimitResolution = 0;
  int m_nVideoChannels = 0;
  int m_nRecycleTime = 5;
  dravix::config::MigrationReport m_migration;

  static std::unique_ptr<ISetting> sm_inst;
};
