#include "dravix/live/ptzini.h"

#include "dravix/platform/ini.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace {

using dravix::platform::GetPrivateProfileIntA;
using dravix::platform::GetPrivateProfileStringA;
using dravix::platform::LookupIniValue;

// Bytes in the file, 0 when it cannot be read: the bound of every count.
uintmax_t IniBytes(const std::string& file) {
  std::error_code ec;
  const uintmax_t size = std::filesystem::file_size(file, ec);
  return ec ? 0 : size;
}

std::string Section(int model) { return "PTZ" + std::to_string(model); }

int ReadInt(const std::string& file, const std::string& section, const char* key, int defaultValue) {
  return static_cast<int>(GetPrivateProfileIntA(section.c_str(), key, defaultValue, file.c_str()));
}

PTZCode ReadCode(const std::string& file, const std::string& section, const std::string& key, int length, bool byByte) {
  const auto text = LookupIniValue(file, section, key);
  if (!text) return nullptr;
  PTZCode code(new BYTE[static_cast<size_t>(length)]());
  if (byByte) {
    const std::string digits = text->substr(0, 2 * static_cast<size_t>(length));
    PTZHexToBytes(digits.c_str(), code.get(), length);
  } else {
    std::memcpy(code.get(), text->data(), std::min(text->size(), static_cast<size_t>(length)));
  }
  return code;
}

}  // namespace

std::string PTZIniPath() {
  std::error_code ec;
  const std::filesystem::path dir = std::filesystem::current_path(ec);
  return (ec ? std::string(".") : dir.string()) + "/PTZ.ini";
}

int GetPTZModelCount() { return static_cast<int>(GetPrivateProfileIntA("COMMON", "NUMBERS", 0, PTZIniPath().c_str())); }

int GetPTZModelName(int model, char* name) {
  if (name == nullptr) return 0;
  return static_cast<int>(
      GetPrivateProfileStringA(Section(model).c_str(), "name", "", name, 128, PTZIniPath().c_str()));
}

int EnumPTZModels(const std::function<void(int, const char*)>& callback) {
  if (!callback) return 0;
  const std::string file = PTZIniPath();
  const int count = static_cast<int>(GetPrivateProfileIntA("COMMON", "NUMBERS", 0, file.c_str()));
  const uintmax_t limit = std::min<uintmax_t>(count > 0 ? static_cast<uintmax_t>(count) : 0, IniBytes(file));
  for (uintmax_t i = 1; i <= limit; ++i) {
    char name[128];
    GetPrivateProfileStringA(Section(static_cast<int>(i)).c_str(), "name", "", name, sizeof name, file.c_str());
    callback(static_cast<int>(i), name);
  }
  return 1;
}

int LoadPTZDevice(int model, tagPTZDEVICE& device, int* responseLength) {
  const std::string file = PTZIniPath();
  const std::string section = Section(model);
  device.FreeCodes();
  int length = ReadInt(file, section, "CodeLength", 0);
  if (length < 0 || length > kMaxPTZCodeLength || static_cast<uintmax_t>(length) > IniBytes(file)) length = 0;
  device.nCodeLength = length;
  device.wBaudRate = static_cast<WORD>(ReadInt(file, section, "baudRate", 9600));
  device.byParity = static_cast<BYTE>(ReadInt(file, section, "parity", 0));
  device.byBits = static_cast<BYTE>(ReadInt(file, section, "bits", 8));
  device.byStop = static_cast<BYTE>(ReadInt(file, section, "stop", 1));
  device.wNoPresetDelay = static_cast<WORD>(ReadInt(file, section, "noPresetDelayTime", 1));
  device.nResponse = ReadInt(file, section, "response", 0);
  const int replyLength = ReadInt(file, section, "responselength", 0);
  if (responseLength != nullptr) *responseLength = replyLength;
  if (length == 0) return 0;

  const bool byByte = ReadInt(file, section, "ByByte", 1) != 0;
  for (int k = 0; k < tagPTZDEVICE::kMoves; ++k) {
    device.start[k] = ReadCode(file, section, kPTZMoveNames[k], length, byByte);
    device.stop[k] = ReadCode(file, section, std::string(kPTZMoveNames[k]) + "_", length, byByte);
  }
  device.presetPrefix = ReadCode(file, section, "Preset_", length, byByte);
  for (int k = 0; k < tagPTZDEVICE::kPresets; ++k) {
    device.setPreset[k] = ReadCode(file, section, "SetPreset" + std::to_string(k), length, byByte);
    device.findPreset[k] = ReadCode(file, section, "FindPreset" + std::to_string(k), length, byByte);
  }
  return length;
}
