#include "dravix/base/zcritsec.h"

#include "dravix/platform/message_queue.h"

#include <thread>

void ZCritSec::Lock() {
  mutex_.lock();
  locked = 1;
}

void ZCritSec::Unlock() {
  mutex_.unlock();
  locked = 0;
}

bool ZCritSec::TryEnter() { return mutex_.try_lock(); }

// Spins without a time-out, dispatching the calling thread's messages
// between attempts, so that a worker holding the lock while it waits for
// this thread to handle a posted message can finish.
void ZMsgCritSec::Lock() {
  while (!TryEnter()) {
    if (!dravix::platform::PeekAndDispatchMessage()) std::this_thread::yield();
  }
  locked = 1;
}
