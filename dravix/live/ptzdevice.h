// The PTZ device record: how to reach one camera model over a serial line
// and the byte codes of its commands, plus the two primitives that act on
// it (turning code text into bytes, sending a code).
#pragma once

#include "dravix/platform/wintypes.h"

#include <memory>

// One command code: a buffer of the record's code length, null when the
// model does not describe that command.
using PTZCode = std::unique_ptr<BYTE[]>;

struct tagPTZDEVICE {
  static constexpr int kMoves = 10;     // commands 1..10
  static constexpr int kPresets = 128;  // presets 0..127

  WORD wPort = 1;           // serial port number: "COM" + wPort
  WORD wBaudRate = 9600;    // 16-bit: a rate above 65535 does not fit
  BYTE byStop = 1;          // stop-bit code: 1 one, 2 two, 15 one and a half, else one
  BYTE byParity = 0;        // 0 none, 1 odd, 2 even, 3 mark, 4 space
  BYTE byBits = 8;          // data bits
  WORD wNoPresetDelay = 1;  // nonzero: a go-to-preset command is not held
  int nCodeLength = 0;      // bytes in every code
  int nResponse = 0;        // the model's "response" setting, kept unused

  PTZCode start[kMoves];  // "ZoomIn" .. "SpeedDown"
  PTZCode stop[kMoves];   // "ZoomIn_" .. "SpeedDown_"
  PTZCode presetPrefix;   // "Preset_", sent ahead of every go-to-preset
  PTZCode setPreset[kPresets];
  PTZCode findPreset[kPresets];

  // Frees every code buffer (the settings stay).
  void FreeCodes();
};

// The moves in command order (command k is kPTZMoveNames[k - 1]); each is
// also the key of its start code in "PTZ.ini", and with "_" of its stop code.
inline constexpr const char* kPTZMoveNames[tagPTZDEVICE::kMoves] = {
    "ZoomIn", "ZoomOut", "FocusNear", "FocusFar", "PanLeft", "PanRight", "TiltUp", "TiltDown", "SpeedUp", "SpeedDown"};

// Hex text to `n` bytes: two characters per byte, high nibble first, either
// case. A character that is not a hexadecimal digit (the end of a short
// text counts as one) keeps that nibble's value from the previous byte, and
// for the first byte both nibbles start at n: "1G" read as one byte gives
// 0x11. Deliberate, and kept. Reads at most 2n characters. 0 when `text`
// or `out` is null or n <= 0, else 1. `out` may be `text` itself: the
// bytes are written behind the characters already read.
int PTZHexToBytes(const char* text, BYTE* out, int n);

// Sends `length` bytes over the device's port: opens "COM" + wPort
// (exclusively, only when it exists), sets speed, data bits, parity and
// stop bits from the record and the time-outs, writes, closes. The port is
// held only for this one code. 0 when the port cannot be opened or set up
// ("GetCommState failed with error %d.\n" on standard output when its
// state cannot be read), else the result of closing it (1 on success).
int SendPTZCode(const tagPTZDEVICE& device, const BYTE* code, int length);
