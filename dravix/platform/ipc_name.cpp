#include "dravix/platform/ipc_name.h"

#include <cctype>
#include <cstdlib>

namespace dravix::platform {
namespace {

std::string Escape(const std::string& name) {
  static const char* hex = "0123456789abcdef";
  std::string out;
  for (unsigned char c : name) {
    if (std::isalnum(c) || c == '-' || c == '_') {
      out += static_cast<char>(c);
    } else {
      out += '%';
      out += hex[c >> 4];
      out += hex[c & 15];
    }
  }
  return out;
}

}  // namespace

std::string IpcNamespace() {
  const char* ns = std::getenv("DRAVIX_IPC_NAMESPACE");
  return ns != nullptr && *ns != '\0' ? Escape(ns) : std::string("default");
}

std::string IpcObjectPath(const std::string& kind, const std::string& name) {
  return "/dev/shm/dravix." + IpcNamespace() + "." + kind + "." + Escape(name);
}

}  // namespace dravix::platform
