#include "dravix/platform/fault_injection.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>

namespace dravix::platform {
namespace {

std::atomic<int64_t> g_countdown{0};  // calls left before the fault; 0 = unarmed
std::atomic<int64_t> g_counted{0};
std::atomic<unsigned> g_kinds{0};
std::atomic<bool> g_fired{false};
std::atomic<bool> g_stop{false};

unsigned ParseKinds(const char* text) {
  static const char* const kNames[] = {"open", "write", "sync", "rename", "truncate"};
  unsigned kinds = 0;
  std::string list = text == nullptr ? "" : text;
  size_t start = 0;
  while (start <= list.size()) {
    const size_t comma = list.find(',', start);
    const std::string word = list.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
    for (unsigned i = 0; i < 5; ++i)
      if (word == kNames[i]) kinds |= 1u << i;
    if (comma == std::string::npos) break;
    start = comma + 1;
  }
  return kinds;
}

// The environment arms the countdown once, before the first hooked call.
void ArmFromEnvironmentOnce() {
  static const bool armed = [] {
    const char* n = std::getenv("DRAVIX_FAIL_IO");
    const char* action = std::getenv("DRAVIX_FAIL_IO_ACTION");
    if (n != nullptr && *n != '\0')
      FailNthIoCall(std::strtoll(n, nullptr, 10), ParseKinds(std::getenv("DRAVIX_FAIL_IO_KINDS")),
                    action != nullptr && std::strcmp(action, "stop") == 0);
    return true;
  }();
  (void)armed;
}

}  // namespace

void FailNthIoCall(int64_t n, unsigned kinds, bool stopInstead) {
  g_kinds.store(kinds);
  g_stop.store(stopInstead);
  g_counted.store(0);
  g_fired.store(false);
  g_countdown.store(n > 0 ? n : 0);
}

int64_t IoCallsCounted() { return g_counted.load(); }
bool IoFaultInjected() { return g_fired.load(); }

bool IoFaultHere(IoKind kind) {
  ArmFromEnvironmentOnce();
  if (g_countdown.load(std::memory_order_relaxed) == 0) return false;
  const unsigned kinds = g_kinds.load();
  if (kinds != 0 && (kinds & (1u << static_cast<unsigned>(kind))) == 0) return false;
  g_counted.fetch_add(1);
  int64_t left = g_countdown.load();
  while (left > 0 && !g_countdown.compare_exchange_weak(left, left - 1)) {
  }
  if (left != 1) return false;
  g_fired.store(true);
  if (g_stop.load()) {
    ::raise(SIGSTOP);
    return false;
  }
  errno = EIO;
  return true;
}

}  // namespace dravix::platform
