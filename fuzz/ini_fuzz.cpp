// Hostile INI text: lookups, name lists and a write must neither crash nor
// hang, and a value just written must read back.
#include "dravix/platform/ini.h"

#include <unistd.h>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

const std::string& FuzzFile() {
  static const std::string path = "/tmp/dravix-ini-fuzz-" + std::to_string(getpid()) + ".ini";
  return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace dravix::platform;
  const std::string& file = FuzzFile();
  FILE* f = std::fopen(file.c_str(), "wb");
  if (f == nullptr) return 0;
  std::fwrite(data, 1, size, f);
  std::fclose(f);

  // Names taken from the input itself, so lookups hit real sections.
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::string section = text.substr(0, std::min<size_t>(size, 6));
  std::string key = size > 6 ? text.substr(6, 4) : "k";
  char buf[64];
  GetPrivateProfileStringA(section.c_str(), key.c_str(), "d", buf, sizeof buf, file.c_str());
  GetPrivateProfileStringA(nullptr, nullptr, "", buf, sizeof buf, file.c_str());
  GetPrivateProfileStringA(section.c_str(), nullptr, "", buf, 7, file.c_str());
  GetPrivateProfileIntA("MODEL", "WATCHDOG", 3, file.c_str());

  if (WritePrivateProfileStringA("Fz", "fk", "value42", file.c_str())) {
    if (ReadIniString(file, "FZ", "FK", "missing") != "value42") std::abort();
  }
  std::remove(file.c_str());
  return 0;
}
