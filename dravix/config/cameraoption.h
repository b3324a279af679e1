// The per-camera option record and its parts: the action block (what a
// camera does on an event) and the caption overlay.
#pragma once

#include "dravix/platform/wintypes.h"

#include <cstddef>

constexpr int kDSMaxCamera = 16;       // cameras per recorder
constexpr int kDSMaxDevice = 16;       // sensor inputs and relay outputs per camera
constexpr int kDSMaxNumber = 5;        // numbers or addresses per notification list
constexpr int kDSImageFilters = 7;     // image-filter values per camera
constexpr LONG kDSFilterOff = -10000;  // image-filter value meaning "not applied"

// Caption overlay of a camera (84 bytes; "DsCaption").
struct tagDSCAPTIONOPTION {
  BOOL bNumber;  // show camera number
  BOOL bName;    // show camera name
  BOOL bDate;    // show date
  BOOL bTime;    // show time
  LOGFONTA lfCaptionFont;
  LONG nFontSize;    // points
  COLORREF clColor;  // text colour
};
static_assert(sizeof(tagDSCAPTIONOPTION) == 84);
static_assert(offsetof(tagDSCAPTIONOPTION, lfCaptionFont) == 16);
static_assert(offsetof(tagDSCAPTIONOPTION, nFontSize) == 76);
static_assert(offsetof(tagDSCAPTIONOPTION, clColor) == 80);

// What a camera does when an event fires (1848 bytes; "DsAction"): mail,
// fax, phone and pager targets, the action switches and the lists.
struct tagDSACTIONOPTION {
  // "DsMail"
  char szSTM[32];                   // mail server
  char szSender[32];                // mail sender
  char szRecAdr[kDSMaxNumber][32];  // mail recipients
  // "DsFax"
  char szFaxComPort[32];               // fax serial port
  char szFaxNumber[kDSMaxNumber][32];  // fax numbers
  char szSelNur[32];                   // selected fax number
  // "DsPhone"
  char szPhoneComPort[32];          // phone serial port
  BYTE byReserved[32];              // not carried by the document; kept as zero
  char szTelNur[kDSMaxNumber][32];  // phone numbers
  char szDefVoicename[260];         // prefix voice file
  char szVoiceFilename[260];        // message voice file
  // pager
  char szPagerComPort[32];               // pager serial port
  char szPagerNumber[kDSMaxNumber][32];  // pager numbers
  char szContext[260];                   // pager message
  // action switches
  BOOL bEmail;
  BOOL bFax;
  BOOL bPhone;
  BOOL bPager;
  BOOL bAlarm;
  BOOL bLoop;
  BOOL bFlash;
  BOOL bFlashMotion;
  BOOL bSingleView;
  LONG nDelaySec;  // action delay, seconds
  LONG nAlarmID;   // alarm output id
  char szListMail[32];
  char szListFax[32];
  char szListPhone[32];
  char szListPager[32];
  char szAlarm[32];  // alarm text: the "Alarm" element read as text
};
static_assert(sizeof(tagDSACTIONOPTION) == 1848);

// PTZ settings of a camera (48 bytes; "DsPTZ").
struct tagDSPTZOPTION {
  LONG nComPort;
  LONG nDeviceType;
  BOOL bLoop;       // preset loop on
  char szLoop[32];  // preset loop list
  LONG nPause;      // seconds between presets
};
static_assert(sizeof(tagDSPTZOPTION) == 48);

// The 16 sensor inputs or relay outputs a camera uses (576 bytes;
// "DsEXTDevice" and "DsSensorDevice").
struct tagDSDEVICEUSE {
  LONG nDevice[kDSMaxDevice];           // used, per device ("Device%02d")
  char szDeviceName[kDSMaxDevice][32];  // names ("DeviceName%02d")
};
static_assert(sizeof(tagDSDEVICEUSE) == 576);

// Recording settings of a camera (20 bytes; "DsRecord").
struct tagDSRECORDOPTION {
  LONG nFrameRate;
  BOOL bZMedia;
  LONG nZMediaQuality;
  BOOL bMJPEG;
  LONG nMJPEGQuality;
};
static_assert(sizeof(tagDSRECORDOPTION) == 20);

// One camera (3288 bytes; "Camera%d" under "Camera").
struct tagDSCAMERAOPTION {
  char szName[32];
  LONG nPrivilege;  // privilege level needed to view
  LONG nPriority;
  LONG nDimension;  // video dimension index
  BOOL bNTSC;
  BOOL bPAL;
  BOOL bPTZ;
  BOOL bCaption;
  BOOL bAction;
  BOOL bToEXTDevice;
  BOOL bConnection;
  BOOL bRecord;
  LONG nRecordMode;
  LONG nRecordSecond;  // event record length, seconds
  BOOL bPreRecoding;
  LONG nPreRecodingSec;
  BOOL bVisual;
  BOOL bSensor;
  BOOL bManual;
  LONG nManualSecond;
  tagDSPTZOPTION dsPTZ;
  tagDSDEVICEUSE dsEXTDevice;
  tagDSDEVICEUSE dsSensorDevice;
  tagDSRECORDOPTION dsRecord;
  tagDSACTIONOPTION dsAction;
  tagDSCAPTIONOPTION dsCaption;
  LONG nImageFilterValue[kDSImageFilters];  // kDSFilterOff = not applied
};
static_assert(sizeof(tagDSCAMERAOPTION) == 3288);
static_assert(offsetof(tagDSCAMERAOPTION, nPrivilege) == 32);
static_assert(offsetof(tagDSCAMERAOPTION, nDimension) == 40);
static_assert(offsetof(tagDSCAMERAOPTION, bNTSC) == 44);
static_assert(offsetof(tagDSCAMERAOPTION, bAction) == 60);
static_assert(offsetof(tagDSCAMERAOPTION, bRecord) == 72);
static_assert(offsetof(tagDSCAMERAOPTION, nRecordMode) == 76);
static_assert(offsetof(tagDSCAMERAOPTION, nRecordSecond) == 80);
static_assert(offsetof(tagDSCAMERAOPTION, bPreRecoding) == 84);
static_assert(offsetof(tagDSCAMERAOPTION, nPreRecodingSec) == 88);
static_assert(offsetof(tagDSCAMERAOPTION, bVisual) == 92);
static_assert(offsetof(tagDSCAMERAOPTION, nManualSecond) == 104);
static_assert(offsetof(tagDSCAMERAOPTION, dsPTZ) == 108);
static_assert(offsetof(tagDSCAMERAOPTION, dsPTZ.szLoop) == 120);
static_assert(offsetof(tagDSCAMERAOPTION, dsPTZ.nPause) == 152);
static_assert(offsetof(tagDSCAMERAOPTION, dsEXTDevice) == 156);
static_assert(offsetof(tagDSCAMERAOPTION, dsEXTDevice.szDeviceName) == 220);
static_assert(offsetof(tagDSCAMERAOPTION, dsSensorDevice) == 732);
static_assert(offsetof(tagDSCAMERAOPTION, dsSensorDevice.szDeviceName) == 796);
static_assert(offsetof(tagDSCAMERAOPTION, dsRecord) == 1308);
static_assert(offsetof(tagDSCAMERAOPTION, dsRecord.nMJPEGQuality) == 1324);
static_assert(offsetof(tagDSCAMERAOPTION, dsAction) == 1328);
static_assert(offsetof(tagDSCAMERAOPTION, dsAction.szSender) == 1360);
static_assert(offsetof(tagDSCAMERAOPTION, dsAction.szRecAdr) == 1392);
static_assert(offsetof(tagDSCAMERAOPTION, dsAction.szFaxComPort) == 1552);
static_assert(offsetof(tagDSCAMERAOPTION, dsAction.szFaxNumber) == 1584);
static_assert(offsetof(tagDSCAMERAOPTION, dsAction.szSelNur) == 1744);
static_assert(offsetof(tagDSCAMERAOPTION, dsAction.szPhoneComPort) == 1776);
static_assert(offsetof(tagDSCAMERAOPTION, dsAction.byReserved) == 1808);
static_assert(offsetof(tagDSCAMERAOPTION, dsAction.szTelNur) == 1840);
static_assert(offsetof(tagDSCAMERAOPTION, dsAction.szDefVoicename) == 2000);
static_assert(offsetof(tagDSCAMERAOPTION, dsAction.szVoiceFilename) == 2260);
static_assert(offsetof(tagDSCAMERAOPTION, dsAction.szPagerComPort) == 2520);
static_assert(offsetof(tagDSCAMERAOPTION, dsAction.szPagerNumber) == 2552);
static_assert(offsetof(tagDSCAMERAOPTION, dsAction.szContext) == 2712);
static_assert(offsetof(tagDSCAMERAOPTION, dsAction.bEmail) == 2972);
static_assert(offsetof(tagDSCAMERAOPTION, dsAction.bAlarm) == 2988);
static_assert(offsetof(tagDSCAMERAOPTION, dsAction.bSingleView) == 3004);
static_assert(offsetof(tagDSCAMERAOPTION, dsAction.nDelaySec) == 3008);
static_assert(offsetof(tagDSCAMERAOPTION, dsAction.nAlarmID) == 3012);
static_assert(offsetof(tagDSCAMERAOPTION, dsAction.szListMail) == 3016);
static_assert(offsetof(tagDSCAMERAOPTION, dsAction.szListPager) == 3112);
static_assert(offsetof(tagDSCAMERAOPTION, dsAction.szAlarm) == 3144);
static_assert(offsetof(tagDSCAMERAOPTION, dsCaption) == 3176);
static_assert(offsetof(tagDSCAMERAOPTION, nImageFilterValue) == 3260);
