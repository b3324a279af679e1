// "PTZ.ini": the camera models an installer describes, read from the
// process's current directory (not the program folder).
//
//   [COMMON]  NUMBERS = how many models
//   [PTZ<n>]  one section per model, n = 1 .. NUMBERS: "name", the start
//             codes "ZoomIn" .. "SpeedDown", the stop codes "ZoomIn_" ..
//             "SpeedDown_", "Preset_", "SetPreset<k>" and "FindPreset<k>"
//             for presets k = 0 .. 127, and the integers "CodeLength",
//             "ByByte", "response", "responselength", "baudRate", "parity",
//             "bits", "stop", "noPresetDelayTime".
//
// Keys compare without regard to case, so "codelength" is "CodeLength".
// With "ByByte" nonzero (the default) a code is hex text, up to
// 2 x CodeLength characters read by PTZHexToBytes; with "ByByte" 0 the
// text's own first CodeLength characters are the bytes (zero-padded).
// A missing file or section gives no models and absent codes.
#pragma once

#include "dravix/live/ptzdevice.h"

#include <functional>
#include <string>

// The largest "CodeLength" taken; a larger (or negative) one counts as 0.
constexpr int kMaxPTZCodeLength = 1024;

// Current directory + "/PTZ.ini".
std::string PTZIniPath();

// Calls `callback` with (n, name) for n = 1 .. NUMBERS, an empty name for a
// missing section. Never more models than the file has bytes. 0 when the
// callback is empty, else 1.
int EnumPTZModels(const std::function<void(int model, const char* name)>& callback);
// "COMMON"/"NUMBERS" (0 when absent), as written.
int GetPTZModelCount();
// Copies the "name" of model n into `name` (128 bytes, cut to 127 + zero);
// empty when absent. Returns the length copied.
int GetPTZModelName(int model, char* name);

// Fills `device` from section "PTZ" + model: settings with their defaults,
// codes (old buffers freed first). The port number is left as it was.
// "responselength" goes to *responseLength when not null. Returns the code
// length (0: the model cannot be used).
int LoadPTZDevice(int model, tagPTZDEVICE& device, int* responseLength = nullptr);
