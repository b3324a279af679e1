// Per-thread message queues: the stand-in for a thread's window messages.
// Another thread posts a callable to a thread; that thread runs it when it
// peeks its queue (ZMsgCritSec::Lock does so while it waits for a lock).
#pragma once

#include <cstdint>
#include <functional>

namespace dravix::platform {

using ThreadId = uint64_t;

// The calling thread's id; also creates its queue, so that posts to it are
// accepted from then on.
ThreadId CurrentThreadId();
// Queues `message` for `thread`. false when that thread has no queue (it
// never called CurrentThreadId) or has ended.
bool PostThreadMessage(ThreadId thread, std::function<void()> message);
// Removes one message from the calling thread's queue and runs it; false
// when the queue was empty.
bool PeekAndDispatchMessage();

}  // namespace dravix::platform
