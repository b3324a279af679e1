// A hostile "DVROPTION.XML": loading it must not crash, hang or allocate
// without bound, and what was loaded must save and load again.
#include "fuzz/fuzz_home.h"
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

const std::string& Home() {
  static const std::string home = [] {
    std::string folder = dravix::fuzz::MakeFuzzHome("xmldoc");
    dravix::config::SetOptionStringSource([](UINT id) { return "S" + std::to_string(id); });
    return folder;
  }();
  return home;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string file = Home() + dravix::config::kOptionFileName;
  dravix::fuzz::WriteFuzzInput(file, data, size);

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
