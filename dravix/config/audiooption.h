// Audio option records: the live recorder's audio devices, the player's
// output device and the talk (two-way audio) device.
#pragma once

#include "dravix/config/cameraoption.h"
#include "dravix/platform/wintypes.h"

#include <cstddef>

constexpr int kDSRecordDevices = 16;      // audio capture devices of the recorder
constexpr int kDSAudioPlayDevices = 32;   // output devices in the recorder's and talk lists
constexpr int kDSPlayerPlayDevices = 16;  // output devices in the player's list
constexpr LONG kDSFullVolume = 65535;

// One audio capture device (284 bytes; "RecordDevice%02d").
struct tagDSRECORDDEVICE {
  char szDeviceName[260];
  LONG nVolume;
  LONG nCompression;
  LONG nAssocaitedCamera;
  LONG nChannel;
  LONG nSoundFormat;
  BOOL bConnection;
};
static_assert(sizeof(tagDSRECORDDEVICE) == 284);

// One audio output device (264 bytes; "PlayDevice%02d").
struct tagDSPLAYDEVICE {
  char szDeviceName[260];
  LONG nVolume;
};
static_assert(sizeof(tagDSPLAYDEVICE) == 264);

// Audio options of the live recorder (13072 bytes; "Audio").
struct tagDSAUDIOEXPRESS {
  LONG nVersion;  // record format version; not carried by the document
  LONG nCurRecordDevice;
  LONG nCurPlayerDevice;
  LONG nAudioRecDevCount;
  tagDSRECORDDEVICE dsRecordDevice[kDSRecordDevices];
  tagDSPLAYDEVICE dsPlayDevice[kDSAudioPlayDevices];
  BOOL bAudioMute[kDSMaxCamera];  // per camera
};
static_assert(sizeof(tagDSAUDIOEXPRESS) == 13072);
static_assert(offsetof(tagDSAUDIOEXPRESS, dsRecordDevice) == 16);

// The player's output device (4492 bytes; "DsPlayerAudio").
struct tagDSPLAYERAUDIO {
  LONG nVersion;
  char szCurPlayDeviceName[260];
  LONG nCurPlayVolume;
  tagDSPLAYDEVICE dsPlayDevice[kDSPlayerPlayDevices];
};
static_assert(sizeof(tagDSPLAYERAUDIO) == 4492);

// The talk device (8984 bytes; "dsTalk").
struct tagDSTALKOPTION {
  LONG nVersion;
  char szCurDeviceName[260];
  char szCurPlayDeviceName[260];
  LONG nCurVolume;
  LONG nCurPlayVolume;
  LONG nVoice;
  tagDSPLAYDEVICE dsPlayDevice[kDSAudioPlayDevices];
};
static_assert(sizeof(tagDSTALKOPTION) == 8984);
