// Hostile "PTZ.ini": model lists, names and device records must neither
// crash nor hang nor allocate without bound, and every code loaded holds the
// model's code length of bytes. The hex conversion also takes the raw input.
#include "dravix/live/ptzdevice.h"
#include "dravix/live/ptzini.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <unistd.h>

namespace {

// Every run works in its own folder, since the file is looked up in the
// current directory.
void EnterFuzzFolder() {
  static bool entered = false;
  if (entered) return;
  const auto dir = std::filesystem::temp_directory_path() / ("dravix-ptzini-fuzz-" + std::to_string(getpid()));
  std::filesystem::create_directories(dir);
  std::filesystem::current_path(dir);
  entered = true;
}

void CheckCodes(const PTZCode* codes, int count, int length) {
  for (int i = 0; i < count; ++i)
    if (codes[i] && length <= 0) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  EnterFuzzFolder();
  FILE* f = std::fopen("PTZ.ini", "wb");
  if (f == nullptr) return 0;
  std::fwrite(data, 1, size, f);
  std::fclose(f);

  GetPTZModelCount();
  int models = 0;
  EnumPTZModels([&models, size](int n, const char* name) {
    if (n != ++models || std::strlen(name) > 127 || static_cast<size_t>(n) > size) std::abort();
  });
  char name[128];
  if (GetPTZModelName(1, name) > 127) std::abort();

  for (int model = 1; model <= 2; ++model) {
    tagPTZDEVICE d;
    int reply = 0;
    const int length = LoadPTZDevice(model, d, &reply);
    if (length < 0 || length > kMaxPTZCodeLength || length != d.nCodeLength) std::abort();
    CheckCodes(d.start, tagPTZDEVICE::kMoves, length);
    CheckCodes(d.stop, tagPTZDEVICE::kMoves, length);
    CheckCodes(d.setPreset, tagPTZDEVICE::kPresets, length);
    CheckCodes(d.findPreset, tagPTZDEVICE::kPresets, length);
    // Touch every byte of every code: ASan catches a buffer shorter than the length.
    unsigned sum = 0;
    for (const PTZCode& c : d.findPreset)
      if (c)
        for (int i = 0; i < length; ++i) sum += c[i];
    if (d.presetPrefix)
      for (int i = 0; i < length; ++i) sum += d.presetPrefix[i];
    (void)sum;
  }

  // The conversion over the input as text, for a byte count taken from it.
  const std::string text(reinterpret_cast<const char*>(data), size);
  const int n = size > 0 ? data[0] % 64 : 1;
  std::vector<BYTE> out(static_cast<size_t>(n) + 1, 0);
  PTZHexToBytes(text.c_str(), out.data(), n);
  std::remove("PTZ.ini");
  return 0;
}
