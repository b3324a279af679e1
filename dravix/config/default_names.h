// Default texts of the option records that come from the language strings:
// camera names (string 4503 + camera number) and the site name.
#pragma once

#include "dravix/config/lang_ids.h"
#include "dravix/platform/wintypes.h"

#include <functional>
#include <string>

namespace dravix::config {

constexpr UINT kCameraNameStringId = lang::kCameraNameBase;  // + camera number
constexpr UINT kSiteNameStringId = lang::kSiteNameDefault;

// The language string `id`, through IString unless a source was set.
std::string DefaultOptionString(UINT id);
inline std::string DefaultCameraName(int camera) {
  return DefaultOptionString(kCameraNameStringId + static_cast<UINT>(camera));
}

// Replaces where DefaultOptionString() looks strings up (a test or a tool
// without a language database); an empty function returns to IString.
void SetOptionStringSource(std::function<std::string(UINT)> source);

}  // namespace dravix::config
