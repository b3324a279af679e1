// A hostile "DVROPTION.XML": loading it must not crash, hang or allocate
// without bound, and what was loaded must save and load again.
#include "dravix/base/zfile.h"
#include "dravix/config/default_names.h"
#include "dravix/config/xmldoc.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

namespace {

std::string g_home;

void RemoveHome() {
  std::error_code ec;
  std::filesystem::remove_all(g_home, ec);
}

const std::string& Home() {
  static const std::string home = [] {
    // A memory file system when there is one: every run saves twice.
    std::string tmpl = std::filesystem::is_directory("/dev/shm") ? "/dev/shm/dravix-xmldoc-fuzz-XXXXXX"
                                                                 : "/tmp/dravix-xmldoc-fuzz-XXXXXX";
    const char* dir = mkdtemp(tmpl.data());
    if (dir == nullptr) std::abort();
    SetModulePath(dir);
    dravix::config::SetOptionStringSource([](UINT id) { return "S" + std::to_string(id); });
    g_home = dir;
    std::atexit(RemoveHome);
    return std::string(dir) + "/";
  }();
  return home;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string file = Home() + dravix::config::kOptionFileName;
  FILE* f = std::fopen(file.c_str(), "wb");
  if (f == nullptr) std::abort();
  if (size != 0 && std::fwrite(data, 1, size, f) != size) std::abort();
  std::fclose(f);

  auto o = std::make_unique<tagDSZEPLODVROPTION>();
  ZXMLMGR mgr;
  mgr.LoadOption(*o);
  // Every text the loader produced is terminated inside its array.
  for (const auto& cam : o->dsDVROption.dsCamera)
    if (cam.szName[sizeof cam.szName - 1] != '\0' || cam.dsAction.szContext[sizeof cam.dsAction.szContext - 1] != '\0')
      std::abort();
  if (mgr.SaveOption(*o, 0) != 1) std::abort();

  // What was saved loads back to the same settings.
  auto again = std::make_unique<tagDSZEPLODVROPTION>();
  ZXMLMGR other;
  other.LoadOption(*again);
  if (other.LastLoadParsed() != 1) std::abort();
  return 0;
}
