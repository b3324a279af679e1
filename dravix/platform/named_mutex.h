// Cross-process named mutexes that exist exactly while a live process holds
// them open.
//
// Each name is a small file in /dev/shm (mode 0600, in the namespace of
// $DRAVIX_IPC_NAMESPACE) carrying two open-file-description locks: a shared
// "presence" lock on byte 0 held by every open handle, and the mutex itself,
// an exclusive lock on byte 1. The kernel drops both when a holder exits or
// is killed, so a crashed process leaves no owner and no false "exists"
// behind. The last handle to close removes the file.
//
// Like a Windows mutex, a handle is recursive for the thread that owns it.
// Different handles exclude each other, in one process or across processes.
#pragma once

#include "dravix/platform/wintypes.h"

#include <memory>
#include <string>

namespace dravix::platform {

class NamedMutex {
 public:
  // Opens the named mutex, creating it when no live process holds it.
  // nullptr when the object cannot be made (no /dev/shm, permissions).
  static std::unique_ptr<NamedMutex> Open(const std::string& name);
  // true while some live process (this one included) holds `name` open.
  static bool Exists(const std::string& name);

  ~NamedMutex();
  NamedMutex(const NamedMutex&) = delete;
  NamedMutex& operator=(const NamedMutex&) = delete;

  // WAIT_OBJECT_0 when owned, WAIT_TIMEOUT when `timeoutMs` passed
  // (INFINITE waits for ever). A mutex whose owner died is simply free.
  DWORD Lock(DWORD timeoutMs = INFINITE);
  void Unlock();

 private:
  struct State;
  explicit NamedMutex(std::unique_ptr<State> state);
  std::unique_ptr<State> state_;
};

}  // namespace dravix::platform
