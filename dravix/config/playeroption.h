// The player's option record ("Player" in the option document).
#pragma once

#include "dravix/config/cameraoption.h"
#include "dravix/platform/wintypes.h"

#include <cstddef>

// Playback caption (96 bytes): the camera caption layout, then 12 zero
// bytes.
struct tagDSPLAYCAPTION {
  tagDSCAPTIONOPTION dsCaption;
  BYTE byReserved[12];
};
static_assert(sizeof(tagDSPLAYCAPTION) == 96);

// Player options (1244 bytes).
struct tagDSPREFERENCE {
  BOOL bEnableScheduling;  // scheduled backup on
  BOOL bPlaySound;         // play recorded sound
  BOOL bCaption;           // playback caption on
  BOOL bLoopPlay;          // play in a loop
  BOOL bQuickDisplay;
  LONG nBackupPeriod;  // days between scheduled backups
  LONG nBookmarkLength;
  LONG nTimelineInterval;               // seconds
  BOOL bCameraSwitch[4][kDSMaxCamera];  // "M1-%02d" to "M4-%02d"
  BYTE byReserved1[4];
  tagDSPLAYCAPTION dsPlayCaption;
  char szBackupPath[260];
  // "dsBackup": the last backup job
  BOOL bBackupAndRemove;
  BOOL bBackupOnly;
  BOOL bRemoveOnly;
  LONG timeFirstRecordTime;
  LONG timeLastRecordDate;
  LONG timeLastRecordTime;
  // "dsBookmarkText"
  char szBookmarkText[260];
  // "dsResave": the last re-save job
  char szResaveFileName[260];
  LONG timeStartDate;
  LONG timeStartTime;
  LONG timeEndDate;
  LONG timeEndTime;
  // "dsSnapshot": snapshot adjustments
  BOOL bBrightness;
  LONG nBrightnessValue;
  BOOL bSharpen;
  LONG nSharpenValue;
  BOOL bNightvision;
  LONG nNightvisionValue;
  BOOL bNegative;
  LONG nNegativeValue;
  BYTE byReserved2[4];
};
static_assert(sizeof(tagDSPREFERENCE) == 1244);
static_assert(offsetof(tagDSPREFERENCE, bCaption) == 8);
static_assert(offsetof(tagDSPREFERENCE, bLoopPlay) == 12);
static_assert(offsetof(tagDSPREFERENCE, dsPlayCaption) == 292);
