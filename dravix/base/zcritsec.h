// Locks: ZCritSec (a recursive lock), ZMsgCritSec (a lock that keeps the
// waiting thread's posted messages flowing) and ZAutoLock (scoped locking).
//
// Use ZCritSec for short in-process critical sections. Use ZMsgCritSec on a
// thread that owns a message queue (dravix/platform/message_queue.h) and may
// need a lock held by a worker that is itself waiting for that thread to
// handle a posted message: Lock() dispatches those messages while it spins.
// ZMsgCritSec::Lock has no time-out.
#pragma once

#include "dravix/platform/wintypes.h"

#include <mutex>

class ZCritSec {
 public:
  ZCritSec() = default;
  virtual ~ZCritSec() = default;
  ZCritSec(const ZCritSec&) = delete;
  ZCritSec& operator=(const ZCritSec&) = delete;

  // Enters the lock (recursive for the owning thread), then sets `locked`.
  virtual void Lock();
  // Leaves the lock, then clears `locked`. Deliberately not virtual.
  void Unlock();

  // 1 after Lock entered, 0 after Unlock left. Informative only, written
  // without synchronisation, so not reliable under contention.
  LONG locked = 0;

 protected:
  bool TryEnter();

 private:
  std::recursive_mutex mutex_;
};

class ZMsgCritSec : public ZCritSec {
 public:
  ZMsgCritSec() = default;
  ~ZMsgCritSec() override = default;
  // Tries to enter; while the lock is held elsewhere, dispatches one message
  // from the calling thread's queue per attempt. Spins until it enters.
  void Lock() override;
};

// Holds a lock for its scope. Locks through the virtual slot (so a
// ZMsgCritSec pumps while waiting) and unlocks with the non-virtual Unlock.
class ZAutoLock {
 public:
  explicit ZAutoLock(ZCritSec* lock) : lock_(lock) { lock_->Lock(); }
  ~ZAutoLock() { lock_->ZCritSec::Unlock(); }
  ZAutoLock(const ZAutoLock&) = delete;
  ZAutoLock& operator=(const ZAutoLock&) = delete;

 private:
  ZCritSec* lock_;
};
