// The reader of old "DVROption.zmi" images: any bytes, any length.
#include "dravix/config/legacy_options.h"

#include <cstring>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static auto rec = std::make_unique<tagDSDVROPTION>();
  std::memset(rec.get(), 0, sizeof *rec);
  const auto layout = dravix::config::ReadLegacyDVROption(data, size, *rec);
  if (layout != dravix::config::LegacyLayout::kRejected && std::strlen(rec->dsGeneral.szSiteName) >= 32)
    __builtin_trap();
  return 0;
}
