// A second process for the registry tests. Runs its arguments in order:
//   add:PATH   del:PATH   has:PATH (prints 0 or 1)
//   addn:N:PREFIX  adds PREFIX + i for i < N, then PREFIX + "shared" N times
//   open       opens the registry (ZShareMem::Instance)
//   lock       takes the registry's mutex and keeps it
//   ready      prints "ready"
//   wait       blocks until standard input ends
//   crash      kills itself with SIGKILL (no clean-up runs)
// Output lines are flushed at once, so the parent can follow along.
#include "dravix/live/liveshare.h"
#include "dravix/platform/named_mutex.h"

#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

int main(int argc, char** argv) {
  std::unique_ptr<dravix::platform::NamedMutex> held;
  for (int i = 1; i < argc; ++i) {
    const std::string op = argv[i];
    const auto arg = [&op](size_t from) { return op.substr(from); };
    if (op.rfind("add:", 0) == 0) {
      ZShareMem::Instance()->Add(arg(4).c_str());
    } else if (op.rfind("del:", 0) == 0) {
      ZShareMem::Instance()->Delete(arg(4).c_str());
    } else if (op.rfind("has:", 0) == 0) {
      std::printf("%d\n", ZShareMem::Instance()->HasToken(arg(4).c_str()));
    } else if (op.rfind("addn:", 0) == 0) {
      const size_t colon = op.find(':', 5);
      const int n = std::atoi(op.substr(5, colon - 5).c_str());
      const std::string prefix = op.substr(colon + 1);
      for (int k = 0; k < n; ++k) {
        ZShareMem::Instance()->Add((prefix + std::to_string(k)).c_str());
        ZShareMem::Instance()->Add((prefix + "shared").c_str());
      }
    } else if (op == "open") {
      ZShareMem::Instance();
    } else if (op == "lock") {
      held = dravix::platform::NamedMutex::Open(ZShareMem::kMutexName);
      if (held == nullptr || held->Lock() != WAIT_OBJECT_0) return 3;
    } else if (op == "ready") {
      std::printf("ready\n");
    } else if (op == "wait") {
      char c;
      while (read(0, &c, 1) > 0) {
      }
    } else if (op == "crash") {
      raise(SIGKILL);
    } else {
      std::fprintf(stderr, "registry_peer: unknown step %s\n", op.c_str());
      return 2;
    }
    std::fflush(stdout);
  }
  return 0;
}
