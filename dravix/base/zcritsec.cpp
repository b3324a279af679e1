#include "dravix/base/zcritsec.h"

#include "dravix/platform/message_queue.h"

#include <thread>

// `locked` is informative and written after the platform call, outside the
// lock on Unlock: the stores are relaxed atomic ones, so that two threads
// taking turns on a lock are not a data race.
void ZCritSec::Lock() {
  mutex_.lock();
  __atomic_store_n(&locked, 1, __ATOMIC_RELAXED);
}

void ZCritSec::Unlock() {
  mutex_.unlock();
  __atomic_store_n(&locked, 0, __ATOMIC_RELAXED);
}

bool ZCritSec::TryEnter() { return mutex_.try_lock(); }

// Spins without a time-out, dispatching the calling thread's messages
// between attempts, so that a worker holding the lock while it waits for
// this thread to handle a posted message can finish.
void ZMsgCritSec::Lock() {
  while (!TryEnter()) {
    if (!dravix::platform::PeekAndDispatchMessage()) std::this_thread::yield();
  }
  __atomic_store_n(&locked, 1, __ATOMIC_RELAXED);
}
