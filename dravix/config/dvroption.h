// The recorder's main option record (tagDSDVROPTION) with its general,
// view, I/O card, map, user and POS parts, and the whole-document record
// (tagDSZEPLODVROPTION) that the option document reads and writes.
//
// The settings store dumps tagDSDVROPTION byte for byte into its binary
// option file, so every size and offset below is a file format.
#pragma once

#include "dravix/config/adduser.h"
#include "dravix/config/audiooption.h"
#include "dravix/config/cameraoption.h"
#include "dravix/config/playeroption.h"
#include "dravix/platform/wintypes.h"

#include <cstddef>

constexpr LONG kDSOptionVersion = 1500;  // current format version
constexpr int kDSMaxPOS = 16;            // point-of-sale sources
constexpr int kDSMaxIOCard = 4;          // I/O cards
constexpr int kDSViews = 6;              // views of the view table
constexpr int kDSViewLayouts = 16;       // layouts per view
constexpr int kDSMapWidgets = 48;        // widgets on the map

// Recycling of old recordings (24 bytes; "Recycle" under "General").
struct tagDSRECYCLEOPTION {
  BOOL bAutoRecycle;         // "AutoRecycle"
  BOOL bShowWarningMessage;  // "ShowWarningMessage"
  LONG nRecycleDay;          // "RecycleDay"
  BOOL bKeepRecycle;         // "KeepDays": keep-recycle switch
  BOOL bSpaceFullRecycle;    // "RecycleDays": recycle when the disk is full
  float fKeepRatio;          // "AutoUpdateRecycleDay": keep ratio, written with "%f"
};
static_assert(sizeof(tagDSRECYCLEOPTION) == 24);

// Event report mail (804 bytes; "EventReport" under "General").
struct tagDSEVENTREPORT {
  char szSMTPServer[260];
  char szEmailTo[260];
  char szEmailFrom[260];
  BOOL bDaily;
  BOOL bManual;
  BOOL bMonthly;
  BOOL bMotion;
  BOOL bSensor;
  BOOL bWeekly;
};
static_assert(sizeof(tagDSEVENTREPORT) == 804);

// Dynamic-IP registration (788 bytes; "dsDynamicIP" under "General").
struct tagDSDYNAMICIP {
  BOOL bRemote;
  LONG nPort;
  char szIPName[260];
  char szUserName[260];
  char szPassWord[260];
};
static_assert(sizeof(tagDSDYNAMICIP) == 788);

// General options (1728 bytes; "General").
struct tagDSGENERALOPTION {
  char szSiteName[32];
  BOOL bRemoteAccess;
  LONG nRecordFileSize;
  BOOL bSmartAllocation;
  BOOL bAutoRecycle;
  BOOL bKeepDimension;
  BOOL bShowLastEventRecords;
  BOOL bQuickDisplay;
  tagDSRECYCLEOPTION dsRecycle;
  tagDSEVENTREPORT dsEventReport;
  BOOL bEnableWeb;
  LONG nWebPort;
  BOOL bAutoReset;
  LONG nAutoResetDays;
  SYSTEMTIME stAutoResetTime;
  BOOL bListPort;    // modem list used
  LONG nCOMPort[4];  // modem ports
  tagDSDYNAMICIP dsDynamicIP;
};
static_assert(sizeof(tagDSGENERALOPTION) == 1728);
static_assert(offsetof(tagDSGENERALOPTION, bRemoteAccess) == 32);
static_assert(offsetof(tagDSGENERALOPTION, nRecordFileSize) == 36);
static_assert(offsetof(tagDSGENERALOPTION, bQuickDisplay) == 56);
static_assert(offsetof(tagDSGENERALOPTION, dsRecycle) == 60);
static_assert(offsetof(tagDSGENERALOPTION, dsRecycle.bKeepRecycle) == 72);
static_assert(offsetof(tagDSGENERALOPTION, dsRecycle.bSpaceFullRecycle) == 76);
static_assert(offsetof(tagDSGENERALOPTION, dsRecycle.fKeepRatio) == 80);
static_assert(offsetof(tagDSGENERALOPTION, dsEventReport) == 84);
static_assert(offsetof(tagDSGENERALOPTION, bEnableWeb) == 888);
static_assert(offsetof(tagDSGENERALOPTION, nWebPort) == 892);
static_assert(offsetof(tagDSGENERALOPTION, bAutoReset) == 896);
static_assert(offsetof(tagDSGENERALOPTION, nAutoResetDays) == 900);
static_assert(offsetof(tagDSGENERALOPTION, stAutoResetTime) == 904);
static_assert(offsetof(tagDSGENERALOPTION, bListPort) == 920);
static_assert(offsetof(tagDSGENERALOPTION, nCOMPort) == 924);
static_assert(offsetof(tagDSGENERALOPTION, dsDynamicIP) == 940);
static_assert(offsetof(tagDSGENERALOPTION, dsDynamicIP.nPort) == 944);
static_assert(offsetof(tagDSGENERALOPTION, dsDynamicIP.szIPName) == 948);
static_assert(offsetof(tagDSGENERALOPTION, dsDynamicIP.szUserName) == 1208);
static_assert(offsetof(tagDSGENERALOPTION, dsDynamicIP.szPassWord) == 1468);

// One view of the view table (1088 bytes): 16 layouts of 16 camera
// numbers, then one dwell time per layout.
struct tagDSVIEWCAMERA {
  LONG nCamera[kDSViewLayouts][kDSMaxCamera];  // "ViewHasCam%02d%02d"
  LONG nLookTime[kDSViewLayouts];              // seconds, "LookTime%d"
};
static_assert(sizeof(tagDSVIEWCAMERA) == 1088);
static_assert(offsetof(tagDSVIEWCAMERA, nLookTime) == 1024);

// One I/O card (7564 bytes; "Device%d" under "Device"). The input states
// lie at offset 0 and the relay states at 1760; the reserved ranges are
// carried through unchanged.
struct tagDSDEVICEOPTION {
  LONG nInput[kDSMaxDevice];  // sensor input states ("Input%02d")
  char szCardName[32];
  LONG nDriveIndex;
  LONG nCardIndexOfDriver;
  LONG nCardHandle;
  char szInputName[kDSMaxDevice][32];  // "Name%02d"
  LONG nCheck[kDSMaxDevice];
  LONG nTypeIndex[kDSMaxDevice];
  LONG nGainIndex[kDSMaxDevice];
  LONG nGain[kDSMaxDevice];
  LONG nStartTime[kDSMaxDevice];
  LONG nEndTime[kDSMaxDevice];
  BYTE byReserved1[756];
  LONG nOutput[kDSMaxDevice];    // relay output states ("Output%02d")
  LONG nInterval[kDSMaxDevice];  // "Interval%02d"
  LONG nOutputInterval;          // the common "Interval"
  BYTE byReserved2[5672];
};
static_assert(sizeof(tagDSDEVICEOPTION) == 7564);
static_assert(offsetof(tagDSDEVICEOPTION, nInput) == 0);
static_assert(offsetof(tagDSDEVICEOPTION, nOutput) == 1760);

// One widget on the map (20 bytes).
struct tagMAPWIDGET {
  LONG nWidget;   // "Widget%02d"
  RECT rcWidget;  // "WidgetRect%02d"
};
static_assert(sizeof(tagMAPWIDGET) == 20);

// The site map (1484 bytes; "Map").
struct tagMAPOPTION {
  char szMapFile[260];
  char szDescription[260];
  LONG nCount;  // widgets in use
  tagMAPWIDGET dsWidget[kDSMapWidgets];
};
static_assert(sizeof(tagMAPOPTION) == 1484);

// The user block (360 bytes; "User"): the logged-in account and the
// direct-access switch.
struct tagDSUSERBLOCK {
  tagDSADDUSER dsAddUser;
  BOOL bDirectAccess;
};
static_assert(sizeof(tagDSUSERBLOCK) == 360);

// One point-of-sale source (836 bytes; "POS%d" under "POS").
struct tagDSPOSOPTION {
  char szPosname[32];
  BOOL bReceiveText;
  BOOL bIPDevice;
  char szIPAddress[32];
  LONG nTCPPort;
  BOOL bSerialDevice;
  char szTP[32];
  char szPort[32];
  LONG nBaudRate;
  LONG nParity;
  LONG nStopBits;
  LONG nHorizontal;
  LONG nVertial;
  LONG nCharacters;
  LONG nLine;
  BOOL bShowOverVideo;
  LONG nClearupDealy;
  BOOL bAssociatedCamera[kDSMaxCamera];
  LONG nFontSize;
  COLORREF clColor;
  BYTE byReserved[584];
};
static_assert(sizeof(tagDSPOSOPTION) == 836);

// Device extension entry (156 bytes): opaque, carried through unchanged.
struct tagDSDEVICEEXT {
  BYTE byData[156];
};
static_assert(sizeof(tagDSDEVICEEXT) == 156);

// The recorder's main options (108848 bytes).
struct tagDSDVROPTION {
  LONG nVersion;  // kDSOptionVersion
  tagDSGENERALOPTION dsGeneral;
  tagDSCAMERAOPTION dsCamera[kDSMaxCamera];
  tagDSVIEWCAMERA dsView[kDSViews];
  LONG nSelectedICard;  // selected input card index
  LONG nSelectedOCard;  // selected output card index
  tagDSDEVICEOPTION dsDevice[kDSMaxIOCard];
  tagDSDEVICEEXT dsDeviceExt[16];
  tagMAPOPTION dsMap;
  tagDSUSERBLOCK dsUser;
  tagDSPOSOPTION dsPOS[kDSMaxPOS];
};
static_assert(sizeof(tagDSDVROPTION) == 108848);
static_assert(offsetof(tagDSDVROPTION, dsGeneral) == 4);
static_assert(offsetof(tagDSDVROPTION, dsCamera) == 1732);
static_assert(offsetof(tagDSDVROPTION, dsView) == 54340);
static_assert(offsetof(tagDSDVROPTION, nSelectedICard) == 60868);
static_assert(offsetof(tagDSDVROPTION, nSelectedOCard) == 60872);
static_assert(offsetof(tagDSDVROPTION, dsDevice) == 60876);
static_assert(offsetof(tagDSDVROPTION, dsDeviceExt) == 91132);
static_assert(offsetof(tagDSDVROPTION, dsMap) == 93628);
static_assert(offsetof(tagDSDVROPTION, dsUser) == 95112);
static_assert(offsetof(tagDSDVROPTION, dsPOS) == 95472);

// Everything the option document holds (136640 bytes).
struct tagDSZEPLODVROPTION {
  tagDSDVROPTION dsDVROption;
  tagDSAUDIOEXPRESS dsAudioExpress;
  tagDSPREFERENCE dsPreference;
  tagDSPLAYERAUDIO dsPlayerAudio;
  tagDSTALKOPTION dsTalkOption;
};
static_assert(sizeof(tagDSZEPLODVROPTION) == 136640);
static_assert(offsetof(tagDSZEPLODVROPTION, dsAudioExpress) == 108848);
static_assert(offsetof(tagDSZEPLODVROPTION, dsPreference) == 121920);
static_assert(offsetof(tagDSZEPLODVROPTION, dsPlayerAudio) == 123164);
static_assert(offsetof(tagDSZEPLODVROPTION, dsTalkOption) == 127656);
