// ZEvent: a signal with manual- or auto-reset semantics.
//
// A manual-reset event stays signalled until Reset(); every waiter sees it.
// An auto-reset event releases one waiter and resets itself. A ZEvent made
// without an argument is manual-reset.
#pragma once

#include "dravix/platform/event.h"
#include "dravix/platform/wintypes.h"

#include <memory>

class ZEvent {
 public:
  explicit ZEvent(int manualReset = TRUE);
  ~ZEvent();
  ZEvent(const ZEvent&) = delete;
  ZEvent& operator=(const ZEvent&) = delete;

  // The underlying handle, for multi-event waits (dravix::platform::WaitForAny).
  operator HANDLE() const { return handle_; }

  void Set();
  void Reset();
  // 1 if the event was signalled within `timeoutMs` (INFINITE waits for
  // ever), 0 on a time-out or a failed wait (e.g. no handle).
  int Wait(DWORD timeoutMs);
  // Wait(0): a poll.
  int Check();

 private:
  HANDLE handle_ = nullptr;
};
