// The settings of every section of the option document: element names,
// order and defaults. See option_visitor.h.
#include "dravix/config/option_visitor.h"

#include "dravix/base/zfile.h"
#include "dravix/config/default_names.h"

#include <charconv>
#include <cstring>

namespace dravix::config {
namespace {

// Keys with numbers in them: "Device%02d", "POS%d", "ViewHasCam%02d%02d".
// (Formatted by hand: a load formats several thousand of them.)
void AppendNumber(std::string& out, int n, int width) {
  char digits[16];
  const auto r = std::to_chars(digits, digits + sizeof digits, n);
  const int len = static_cast<int>(r.ptr - digits);
  if (len < width) out.append(static_cast<size_t>(width - len), '0');
  out.append(digits, r.ptr);
}

std::string Key(std::string_view prefix, int n, int width = 1) {
  std::string k(prefix);
  AppendNumber(k, n, width);
  return k;
}

std::string Key2(std::string_view prefix, int a, int b) {
  std::string k(prefix);
  AppendNumber(k, a, 2);
  AppendNumber(k, b, 2);
  return k;
}

class Scope {
 public:
  Scope(OptionVisitor& v, std::string_view element) : v_(v) { v_.Enter(element); }
  ~Scope() { v_.Leave(); }
  Scope(const Scope&) = delete;
  Scope& operator=(const Scope&) = delete;

 private:
  OptionVisitor& v_;
};

void VisitFont(OptionVisitor& v, const char* element, LOGFONTA& f) {
  Scope s(v, element);
  v.Int("Height", f.lfHeight, -13);
  v.Int("Width", f.lfWidth, 0);
  v.Int("Escapement", f.lfEscapement, 0);
  v.Int("Orientation", f.lfOrientation, 0);
  v.Int("Weight", f.lfWeight, 400);
  v.Narrow("Italic", f.lfItalic, 0);
  v.Narrow("Underline", f.lfUnderline, 0);
  v.Narrow("StrikeOut", f.lfStrikeOut, 0);
  v.Narrow("CharSet", f.lfCharSet, 0);
  v.Narrow("OutPrecision", f.lfOutPrecision, 3);
  v.Narrow("ClipPrecision", f.lfClipPrecision, 2);
  v.Narrow("Quality", f.lfQuality, 1);
  v.Narrow("PitchAndFamily", f.lfPitchAndFamily, 34);
  v.Text("FaceName", f.lfFaceName, "Tahoma");
}

constexpr LONG kWhite = 16777215;

void VisitCameraCaption(OptionVisitor& v, tagDSCAPTIONOPTION& c) {
  Scope s(v, "DsCaption");
  v.Bool("Number", c.bNumber, 1);
  v.Bool("Name", c.bName, 1);
  v.Bool("Date", c.bDate, 1);
  v.Bool("Time", c.bTime, 1);
  VisitFont(v, "CaptionFont", c.lfCaptionFont);
  v.Int("FontSize", c.nFontSize, 12);
  v.Narrow("Color", c.clColor, kWhite);
}

void VisitDeviceUse(OptionVisitor& v, const char* element, tagDSDEVICEUSE& d) {
  Scope s(v, element);
  for (int i = 0; i < kDSMaxDevice; ++i) v.Int(Key("Device", i, 2), d.nDevice[i], 0);
  for (int i = 0; i < kDSMaxDevice; ++i)
    v.Text(Key("DeviceName", i, 2), d.szDeviceName[i], sizeof d.szDeviceName[i], Key("DEVICE", i, 2));
}

void VisitAction(OptionVisitor& v, tagDSACTIONOPTION& a) {
  Scope s(v, "DsAction");
  {
    Scope m(v, "DsMail");
    v.Text("STM", a.szSTM, "");
    v.Text("Sender", a.szSender, "");
    for (int i = 0; i < kDSMaxNumber; ++i) v.Text(Key("szRecAdr", i), a.szRecAdr[i], sizeof a.szRecAdr[i], "");
  }
  {
    Scope f(v, "DsFax");
    v.CrossedText("ComPort", a.szFaxComPort, sizeof a.szFaxComPort, "", "Com 1");
    for (int i = 0; i < kDSMaxNumber; ++i) v.Text(Key("Number", i), a.szFaxNumber[i], sizeof a.szFaxNumber[i], "");
    v.CrossedText("SelNur", a.szSelNur, sizeof a.szSelNur, "Com 1", "");
  }
  {
    Scope p(v, "DsPhone");
    v.Text("ComPort", a.szPhoneComPort, "");
    for (int i = 0; i < kDSMaxNumber; ++i) v.Text(Key("TelNur", i), a.szTelNur[i], sizeof a.szTelNur[i], "");
    const std::string home = GetModulePath();
    v.Text("DefVoicename", a.szDefVoicename, home + "prefix.wav");
    v.Text("VoiceFilename", a.szVoiceFilename, home + "mainbody.wav");
  }
  v.PagerText("ComPort", a.szPagerComPort, sizeof a.szPagerComPort, "Com 1");
  for (int i = 0; i < kDSMaxNumber; ++i)
    v.PagerText(Key("PagerNumber", i), a.szPagerNumber[i], sizeof a.szPagerNumber[i], "");
  v.PagerText("Context", a.szContext, sizeof a.szContext, "");
  v.Bool("Email", a.bEmail, 0);
  v.Bool("Fax", a.bFax, 0);
  v.Bool("Phone", a.bPhone, 0);
  v.Bool("Pager", a.bPager, 0);
  v.SwitchAndText("Alarm", a.bAlarm, 0, a.szAlarm, sizeof a.szAlarm);
  v.Bool("Loop", a.bLoop, 0);
  v.Bool("Flash", a.bFlash, 0);
  v.Bool("FlashMotion", a.bFlashMotion, 0);
  v.Bool("SingleView", a.bSingleView, 0);
  v.Int("DelaySec", a.nDelaySec, 5);
  v.Int("AlarmID", a.nAlarmID, 0);
  v.Text("ListMail", a.szListMail, "");
  v.Text("ListFax", a.szListFax, "");
  v.Text("ListPhone", a.szListPhone, "");
  v.Text("ListPager", a.szListPager, "");
}

void VisitCamera(OptionVisitor& v, tagDSCAMERAOPTION& c, int n) {
  Scope s(v, Key("Camera", n));
  v.Text("Name", c.szName, DefaultCameraName(n));
  v.Int("Privilege", c.nPrivilege, 3);
  v.Int("Priority", c.nPriority, 0);
  v.Int("Dimension", c.nDimension, 0);
  v.Bool("NTSC", c.bNTSC, 1);
  v.Bool("PAL", c.bPAL, 0);
  v.Bool("PTZ", c.bPTZ, 0);
  v.Bool("Caption", c.bCaption, 0);
  v.Bool("Action", c.bAction, 0);
  v.Bool("ToEXTDevice", c.bToEXTDevice, 0);
  v.Bool("Connection", c.bConnection, 1);
  v.Bool("Record", c.bRecord, 1);
  v.Int("RecordMode", c.nRecordMode, 1);
  v.Int("RecordSecond", c.nRecordSecond, 50);
  v.Bool("PreRecoding", c.bPreRecoding, 0);
  v.Int("PreRecodingSec", c.nPreRecodingSec, 0);
  v.Bool("Visual", c.bVisual, 0);
  v.Bool("Sensor", c.bSensor, 0);
  v.Bool("Manual", c.bManual, 0);
  v.Int("ManualSecond", c.nManualSecond, 50);
  {
    Scope p(v, "DsPTZ");
    v.Int("ComPort", c.dsPTZ.nComPort, 0);
    v.Int("DeviceType", c.dsPTZ.nDeviceType, 0);
    v.Bool("Loop", c.dsPTZ.bLoop, 0);
    v.Text("szLoop", c.dsPTZ.szLoop, "");
    v.Int("Pause", c.dsPTZ.nPause, 5);
  }
  VisitDeviceUse(v, "DsEXTDevice", c.dsEXTDevice);
  VisitDeviceUse(v, "DsSensorDevice", c.dsSensorDevice);
  {
    Scope r(v, "DsRecord");
    v.Int("FrameRate", c.dsRecord.nFrameRate, 30);
    v.Bool("ZMedia", c.dsRecord.bZMedia, 1);
    v.Int("ZMediaQuality", c.dsRecord.nZMediaQuality, 0);
    v.Bool("MJPEG", c.dsRecord.bMJPEG, 0);
    v.Int("MJPEGQuality", c.dsRecord.nMJPEGQuality, 70);
  }
  VisitAction(v, c.dsAction);
  VisitCameraCaption(v, c.dsCaption);
  for (int i = 0; i < kDSImageFilters; ++i) v.Int(Key("ImageFilterValue", i), c.nImageFilterValue[i], kDSFilterOff);
}

void VisitTime(OptionVisitor& v, const char* element, SYSTEMTIME& t) {
  Scope s(v, element);
  v.Narrow("Year", t.wYear, 1990);
  v.Narrow("Month", t.wMonth, 1);
  v.Narrow("DayOfWeek", t.wDayOfWeek, 1);
  v.Narrow("Day", t.wDay, 1);
  v.Narrow("Hour", t.wHour, 0);
  v.Narrow("Minute", t.wMinute, 0);
  v.Narrow("Second", t.wSecond, 0);
  v.Narrow("Milliseconds", t.wMilliseconds, 0);
}

void VisitGeneral(OptionVisitor& v, tagDSGENERALOPTION& g) {
  Scope s(v, "General");
  v.Text("SiteName", g.szSiteName, DefaultOptionString(kSiteNameStringId));
  v.Bool("RemoteAccess", g.bRemoteAccess, 1);
  v.Int("RecordFileSize", g.nRecordFileSize, 500);
  v.Bool("SmartAllocation", g.bSmartAllocation, 1);
  v.Bool("AutoRecycle", g.bAutoRecycle, 1);
  v.Bool("KeepDimension", g.bKeepDimension, 0);
  v.Bool("ShowLastEventRecords", g.bShowLastEventRecords, 0);
  v.Bool("QuickDisplay", g.bQuickDisplay, 1);
  {
    Scope r(v, "Recycle");
    tagDSRECYCLEOPTION& c = g.dsRecycle;
    v.Bool("AutoRecycle", c.bAutoRecycle, 1);
    v.Bool("ShowWarningMessage", c.bShowWarningMessage, 0);
    v.Int("RecycleDay", c.nRecycleDay, 10);
    v.Bool("KeepDays", c.bKeepRecycle, 0);
    v.Bool("RecycleDays", c.bSpaceFullRecycle, 1);
    v.Float("AutoUpdateRecycleDay", c.fKeepRatio, 0.0f);
  }
  {
    Scope e(v, "EventReport");
    tagDSEVENTREPORT& r = g.dsEventReport;
    v.Text("SMTPServer", r.szSMTPServer, "");
    v.Text("EmailTo", r.szEmailTo, "");
    v.Text("EmailFrom", r.szEmailFrom, "");
    v.Bool("Daily", r.bDaily, 0);
    v.Bool("Manual", r.bManual, 0);
    v.Bool("Monthly", r.bMonthly, 0);
    v.Bool("Motion", r.bMotion, 0);
    v.Bool("Sensor", r.bSensor, 0);
    v.Bool("Weekly", r.bWeekly, 0);
  }
  v.Bool("EnableWeb", g.bEnableWeb, 1);
  v.Int("WebPort", g.nWebPort, 80);
  v.Bool("AutoReset", g.bAutoReset, 0);
  v.Int("AutoResetDays", g.nAutoResetDays, 7);
  VisitTime(v, "AutoResetTime", g.stAutoResetTime);
  v.Bool("ListPort", g.bListPort, 0);
  for (int i = 0; i < 4; ++i) v.Int(Key("COMPort", i + 1), g.nCOMPort[i], 0);
  {
    Scope d(v, "dsDynamicIP");
    tagDSDYNAMICIP& ip = g.dsDynamicIP;
    v.Bool("Remote", ip.bRemote, 0);
    v.Int("Port", ip.nPort, 18080);
    v.Text("IPName", ip.szIPName, "127.0.0.1");
    v.Text("UserName", ip.szUserName, "");
    v.Text("PassWord", ip.szPassWord, "");
  }
}

void VisitDevice(OptionVisitor& v, tagDSDVROPTION& o) {
  Scope s(v, "Device");
  v.Int("SelectedICard", o.nSelectedICard, 0);
  v.Int("SelectedOCard", o.nSelectedOCard, 0);
  for (int card = 0; card < kDSMaxIOCard; ++card) {
    tagDSDEVICEOPTION& d = o.dsDevice[card];
    Scope c(v, Key("Device", card));
    v.Text("CardName", d.szCardName, Key("DEVICE", card, 2));
    v.Int("DriveIndex", d.nDriveIndex, 0);
    v.Int("CardIndexOfDriver", d.nCardIndexOfDriver, 0);
    v.Int("CardHandle", d.nCardHandle, 0);
    {
      Scope in(v, "InputDevice");
      for (int i = 0; i < kDSMaxDevice; ++i) {
        v.Int(Key("Input", i, 2), d.nInput[i], 0);
        v.Text(Key("Name", i, 2), d.szInputName[i], sizeof d.szInputName[i], Key("INPUT", i, 2));
        v.Int(Key("Check", i, 2), d.nCheck[i], 0);
        v.Int(Key("TypeIndex", i, 2), d.nTypeIndex[i], 0);
        v.Int(Key("GainIndex", i, 2), d.nGainIndex[i], 0);
        v.Int(Key("Gain", i, 2), d.nGain[i], 0);
        v.Int(Key("StartTime", i, 2), d.nStartTime[i], 0);
        v.Int(Key("EndTime", i, 2), d.nEndTime[i], 0);
      }
    }
    {
      Scope out(v, "OutputDevice");
      for (int i = 0; i < kDSMaxDevice; ++i) {
        v.Int(Key("Output", i, 2), d.nOutput[i], 0);
        v.Int(Key("Interval", i, 2), d.nInterval[i], 0);
      }
      v.Int("Interval", d.nOutputInterval, 0);
    }
  }
}

void VisitView(OptionVisitor& v, tagDSVIEWCAMERA (&views)[kDSViews]) {
  Scope s(v, "View");
  for (int n = 0; n < kDSViews; ++n) {
    Scope vs(v, Key("View", n));
    for (int layout = 0; layout < kDSViewLayouts; ++layout) {
      Scope l(v, Key("ViewCamera", layout));
      for (int slot = 0; slot < kDSMaxCamera; ++slot)
        v.Int(Key2("ViewHasCam", layout, slot), views[n].nCamera[layout][slot], slot);
    }
    for (int layout = 0; layout < kDSViewLayouts; ++layout)
      v.Int(Key("LookTime", layout), views[n].nLookTime[layout], 5);
  }
}

void VisitMap(OptionVisitor& v, tagMAPOPTION& m) {
  Scope s(v, "Map");
  v.Text("MapFile", m.szMapFile, "pic\\photo.bmp");
  v.Text("Description", m.szDescription, "");
  v.Int("Count", m.nCount, 0);
  for (int i = 0; i < kDSMapWidgets; ++i) {
    v.Int(Key("Widget", i, 2), m.dsWidget[i].nWidget, 0);
    Scope r(v, Key("WidgetRect", i, 2));
    v.Int("left", m.dsWidget[i].rcWidget.left, 0);
    v.Int("top", m.dsWidget[i].rcWidget.top, 0);
    v.Int("right", m.dsWidget[i].rcWidget.right, 0);
    v.Int("bottom", m.dsWidget[i].rcWidget.bottom, 0);
  }
}

void VisitUser(OptionVisitor& v, tagDSUSERBLOCK& u) {
  Scope s(v, "User");
  {
    Scope a(v, "AddUser");
    v.Text("Name", u.dsAddUser.szName, "");
    v.Text("Passwords", u.dsAddUser.szPasswords, "");
    v.Text("PrivilegeLeve", u.dsAddUser.szPrivilegeLeve, "");
    v.Text("Descriptin", u.dsAddUser.szDescriptin, "");
  }
  v.Bool("DirectAccess", u.bDirectAccess, 1);
}

void VisitPlayDevice(OptionVisitor& v, tagDSPLAYDEVICE& d, int i) {
  Scope s(v, Key("PlayDevice", i, 2));
  v.Text("DeviceName", d.szDeviceName, "");
  v.Int("Volume", d.nVolume, kDSFullVolume);
}

void VisitAudio(OptionVisitor& v, tagDSAUDIOEXPRESS& a) {
  Scope s(v, "Audio");
  v.Int("CurRecordDevice", a.nCurRecordDevice, 0);
  v.Int("CurPlayerDevice", a.nCurPlayerDevice, 0);
  v.Int("AudioRecDevCount", a.nAudioRecDevCount, 0);
  for (int i = 0; i < kDSRecordDevices; ++i) {
    tagDSRECORDDEVICE& d = a.dsRecordDevice[i];
    Scope r(v, Key("RecordDevice", i, 2));
    v.Text("DeviceName", d.szDeviceName, "");
    v.Int("Volume", d.nVolume, kDSFullVolume);
    v.Int("Compression", d.nCompression, 0);
    v.Int("AssocaitedCamera", d.nAssocaitedCamera, i);
    v.Int("Channel", d.nChannel, 0);
    v.Int("SoundFormat", d.nSoundFormat, 0);
    v.Bool("Connection", d.bConnection, 0);
  }
  for (int i = 0; i < kDSAudioPlayDevices; ++i) VisitPlayDevice(v, a.dsPlayDevice[i], i);
  for (int i = 0; i < kDSMaxCamera; ++i) v.Bool(Key("AudioMute", i), a.bAudioMute[i], 0);
}

void VisitPlayer(OptionVisitor& v, tagDSPREFERENCE& p, tagDSPLAYERAUDIO& pa, tagDSTALKOPTION& t) {
  Scope s(v, "Player");
  v.Bool("EnableScheduling", p.bEnableScheduling, 0);
  v.Bool("LoopPlay", p.bLoopPlay, 0);
  for (int row = 0; row < 4; ++row) {
    const char prefix[] = {'M', static_cast<char>('1' + row), '-'};
    for (int cam = 0; cam < kDSMaxCamera; ++cam)
      v.Bool(Key(std::string_view(prefix, 3), cam, 2), p.bCameraSwitch[row][cam], 0);
  }
  v.Bool("PlaySound", p.bPlaySound, 0);
  v.Bool("QuickDisplay", p.bQuickDisplay, 1);
  v.Bool("Caption", p.bCaption, 0);
  {
    tagDSCAPTIONOPTION& c = p.dsPlayCaption.dsCaption;
    Scope cs(v, "DsCaption");
    v.Bool("Date", c.bDate, 1);
    v.Bool("Name", c.bName, 1);
    v.Bool("Number", c.bNumber, 1);
    v.Bool("Time", c.bTime, 1);
    v.Narrow("Color", c.clColor, kWhite);
    v.Int("FontSize", c.nFontSize, 12);
    VisitFont(v, "lfCaptionFont", c.lfCaptionFont);
  }
  {
    Scope b(v, "dsBackup");
    v.Bool("BackupAndRemove", p.bBackupAndRemove, 0);
    v.Bool("bBackupOnly", p.bBackupOnly, 0);
    v.Bool("bRemoveOnly", p.bRemoveOnly, 0);
    v.Int("timeFirstRecordTime", p.timeFirstRecordTime, 0);
    v.Int("timeLastRecordDate", p.timeLastRecordDate, 0);
    v.Int("timeLastRecordTime", p.timeLastRecordTime, 0);
  }
  {
    Scope b(v, "dsBookmarkText");
    v.Text("BookmarkText", p.szBookmarkText, "");
  }
  {
    Scope r(v, "dsResave");
    v.Text("szFileName", p.szResaveFileName, "");
    v.Int("timeStartDate", p.timeStartDate, 0);
    v.Int("timeStartTime", p.timeStartTime, 0);
    v.Int("timeEndDate", p.timeEndDate, 0);
    v.Int("timeEndTime", p.timeEndTime, 0);
  }
  {
    Scope sn(v, "dsSnapshot");
    v.Bool("Brightness", p.bBrightness, 0);
    v.Int("BrightnessValue", p.nBrightnessValue, 0);
    v.Bool("Sharpen", p.bSharpen, 0);
    v.Int("SharpenValue", p.nSharpenValue, 0);
    v.Bool("Nightvision", p.bNightvision, 0);
    v.Int("NightvisionValue", p.nNightvisionValue, 0);
    v.Bool("Negative", p.bNegative, 0);
    v.Int("NegativeValue", p.nNegativeValue, 0);
  }
  v.Int("BackupPeriod", p.nBackupPeriod, 30);
  v.Int("BookmarkLength", p.nBookmarkLength, 0);
  v.Int("TimelineInterval", p.nTimelineInterval, 3600);
  // The backup folder defaults to the text "30", like the backup period.
  v.Text("BackupPath", p.szBackupPath, "30");
  {
    Scope a(v, "DsPlayerAudio");
    v.Int("Version", pa.nVersion, kDSOptionVersion);
    v.Text("CurPlayDeviceName", pa.szCurPlayDeviceName, "");
    v.Int("CurPlayVolume", pa.nCurPlayVolume, kDSFullVolume);
    Scope l(v, "dsPlayDevice");
    for (int i = 0; i < kDSPlayerPlayDevices; ++i) VisitPlayDevice(v, pa.dsPlayDevice[i], i);
  }
  {
    Scope tk(v, "dsTalk");
    v.Int("Version", t.nVersion, kDSOptionVersion);
    v.Text("CurDeviceName", t.szCurDeviceName, "");
    v.Text("CurPlayDeviceName", t.szCurPlayDeviceName, "");
    v.Int("CurVolume", t.nCurVolume, kDSFullVolume);
    v.Int("CurPlayVolume", t.nCurPlayVolume, kDSFullVolume);
    v.Int("Voice", t.nVoice, 0);
    Scope l(v, "dsPlayDevice");
    for (int i = 0; i < kDSAudioPlayDevices; ++i) VisitPlayDevice(v, t.dsPlayDevice[i], i);
  }
}

void VisitPOS(OptionVisitor& v, tagDSPOSOPTION (&pos)[kDSMaxPOS]) {
  Scope s(v, "POS");
  for (int n = 0; n < kDSMaxPOS; ++n) {
    tagDSPOSOPTION& p = pos[n];
    Scope ps(v, Key("POS", n));
    v.Text("szPosname", p.szPosname, Key("POS", n + 1, 2));
    v.Bool("bReceiveText", p.bReceiveText, 0);
    v.Bool("bIPDevice", p.bIPDevice, 0);
    v.Text("szIPAddress", p.szIPAddress, "");
    v.Int("nTCPPort", p.nTCPPort, 0);
    v.Bool("bSerialDevice", p.bSerialDevice, 0);
    v.Text("szTP", p.szTP, "");
    v.Text("szPort", p.szPort, "COM1");
    v.Int("nBaudRate", p.nBaudRate, 9600);
    v.Int("nParity", p.nParity, 0);
    v.Int("nStopBits", p.nStopBits, 0);
    v.Int("nHorizontal", p.nHorizontal, 0);
    v.Int("nVertial", p.nVertial, 0);
    v.Int("nCharacters", p.nCharacters, 0);
    v.Int("nLine", p.nLine, 0);
    v.Bool("bShowOverVideo", p.bShowOverVideo, 0);
    v.Int("nClearupDealy", p.nClearupDealy, 0);
    for (int cam = 0; cam < kDSMaxCamera; ++cam) v.Bool(Key("bAssociatedCamera", cam), p.bAssociatedCamera[cam], 0);
    v.Int("nFontSize", p.nFontSize, 12);
    v.Narrow("clColor", p.clColor, kWhite);
  }
}

// Sets every field to the value a load of the default document gives.
class DefaultFiller final : public OptionVisitor {
 public:
  void Enter(std::string_view) override {}
  void Leave() override {}
  void Int(std::string_view, LONG& value, LONG def) override { value = def; }
  void Bool(std::string_view, BOOL& value, BOOL def) override { value = def == 1 ? 1 : 0; }
  void Float(std::string_view, float& value, float def) override { value = def; }
  void Text(std::string_view, char* field, size_t cap, std::string_view def) override {
    std::memset(field, 0, cap);
    if (cap == 0) return;
    std::memcpy(field, def.data(), def.size() < cap - 1 ? def.size() : cap - 1);
  }
  void CrossedText(std::string_view key, char* field, size_t cap, std::string_view,
                   std::string_view documentDef) override {
    Text(key, field, cap, documentDef);
  }
  void SwitchAndText(std::string_view key, BOOL& value, BOOL def, char* text, size_t cap) override {
    // The document holds the switch's digit, which the text then reads.
    Bool(key, value, def);
    Text(key, text, cap, value ? "1" : "0");
  }
};

}  // namespace

void VisitOptionSections(OptionVisitor& v, tagDSZEPLODVROPTION& option, unsigned sections) {
  tagDSDVROPTION& o = option.dsDVROption;
  Scope root(v, "ZeploXML");
  if (sections & kSectionGeneral) VisitGeneral(v, o.dsGeneral);
  if (sections & kSectionCamera) {
    Scope s(v, "Camera");
    for (int n = 0; n < kDSMaxCamera; ++n) VisitCamera(v, o.dsCamera[n], n);
  }
  if (sections & kSectionDevice) VisitDevice(v, o);
  if (sections & kSectionView) VisitView(v, o.dsView);
  if (sections & kSectionMap) VisitMap(v, o.dsMap);
  if (sections & kSectionUser) VisitUser(v, o.dsUser);
  if (sections & kSectionAudio) VisitAudio(v, option.dsAudioExpress);
  if (sections & kSectionPlayer) VisitPlayer(v, option.dsPreference, option.dsPlayerAudio, option.dsTalkOption);
  if (sections & kSectionPOS) VisitPOS(v, o.dsPOS);
}

void CopyOptionSections(tagDSZEPLODVROPTION& to, const tagDSZEPLODVROPTION& from, unsigned sections) {
  tagDSDVROPTION& t = to.dsDVROption;
  const tagDSDVROPTION& f = from.dsDVROption;
  if (sections & kSectionGeneral) t.dsGeneral = f.dsGeneral;
  if (sections & kSectionCamera) std::memcpy(t.dsCamera, f.dsCamera, sizeof t.dsCamera);
  if (sections & kSectionDevice) {
    t.nSelectedICard = f.nSelectedICard;
    t.nSelectedOCard = f.nSelectedOCard;
    std::memcpy(t.dsDevice, f.dsDevice, sizeof t.dsDevice);
  }
  if (sections & kSectionView) std::memcpy(t.dsView, f.dsView, sizeof t.dsView);
  if (sections & kSectionMap) t.dsMap = f.dsMap;
  if (sections & kSectionUser) t.dsUser = f.dsUser;
  if (sections & kSectionPOS) std::memcpy(t.dsPOS, f.dsPOS, sizeof t.dsPOS);
  if (sections & kSectionAudio) to.dsAudioExpress = from.dsAudioExpress;
  if (sections & kSectionPlayer) {
    to.dsPreference = from.dsPreference;
    to.dsPlayerAudio = from.dsPlayerAudio;
    to.dsTalkOption = from.dsTalkOption;
  }
}

void FillDefaultOptions(tagDSZEPLODVROPTION& option, unsigned sections) {
  static const tagDSZEPLODVROPTION kZero{};
  CopyOptionSections(option, kZero, sections);
  if (sections & kSectionAudio) option.dsAudioExpress.nVersion = kDSOptionVersion;
  DefaultFiller filler;
  VisitOptionSections(filler, option, sections);
}

}  // namespace dravix::config
