#include "dravix/config/default_names.h"

#include "dravix/config/istring.h"

#include <utility>

namespace dravix::config {
namespace {

std::function<std::string(UINT)>& Source() {
  static std::function<std::string(UINT)> source;
  return source;
}

}  // namespace

std::string DefaultOptionString(UINT id) {
  if (Source()) return Source()(id);
  const char* text = IString::Instance()->LoadStringA(id);
  return text == nullptr ? std::string() : std::string(text);
}

void SetOptionStringSource(std::function<std::string(UINT)> source) { Source() = std::move(source); }

}  // namespace dravix::config
