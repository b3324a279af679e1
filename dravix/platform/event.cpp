// Events over a mutex and a condition variable each.
//
// A multi-event wait registers a Waiter with every event it waits on. A
// Set() bumps each registered waiter's generation under the waiter's own
// mutex and wakes it; the waiter reads its generation before scanning the
// events, so a Set() that lands between the scan and the sleep is never
// lost. Lock order: an event's mutex, then (never nested) a waiter's mutex.
#include "dravix/platform/event.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

namespace dravix::platform {
namespace {

struct Waiter {
  std::mutex m;
  std::condition_variable cv;
  uint64_t generation = 0;
};

struct Event {
  std::mutex m;
  std::condition_variable cv;
  bool manual = true;
  bool signalled = false;
  std::vector<Waiter*> waiters;
};

Event* AsEvent(HANDLE h) { return static_cast<Event*>(h); }

using Clock = std::chrono::steady_clock;

// Consumes the signal of an auto-reset event. Called with e->m held.
bool TakeLocked(Event* e) {
  if (!e->signalled) return false;
  if (!e->manual) e->signalled = false;
  return true;
}

}  // namespace

HANDLE CreateEvent(bool manualReset, bool initiallySet) {
  auto* e = new (std::nothrow) Event;
  if (e == nullptr) return nullptr;
  e->manual = manualReset;
  e->signalled = initiallySet;
  return e;
}

void CloseEvent(HANDLE event) { delete AsEvent(event); }

bool SetEvent(HANDLE event) {
  Event* e = AsEvent(event);
  if (e == nullptr) return false;
  {
    std::lock_guard<std::mutex> lock(e->m);
    e->signalled = true;
    if (e->manual)
      e->cv.notify_all();
    else
      e->cv.notify_one();
    // Waiters unregister under e->m, so the pointers stay valid while we
    // hold it.
    for (Waiter* w : e->waiters) {
      std::lock_guard<std::mutex> wl(w->m);
      ++w->generation;
      w->cv.notify_all();
    }
  }
  return true;
}

bool ResetEvent(HANDLE event) {
  Event* e = AsEvent(event);
  if (e == nullptr) return false;
  std::lock_guard<std::mutex> lock(e->m);
  e->signalled = false;
  return true;
}

DWORD WaitForEvent(HANDLE event, DWORD timeoutMs) {
  Event* e = AsEvent(event);
  if (e == nullptr) return WAIT_FAILED;
  std::unique_lock<std::mutex> lock(e->m);
  if (timeoutMs == INFINITE) {
    e->cv.wait(lock, [e] { return e->signalled; });
  } else if (!e->cv.wait_for(lock, std::chrono::milliseconds(timeoutMs), [e] { return e->signalled; })) {
    return WAIT_TIMEOUT;
  }
  TakeLocked(e);
  return WAIT_OBJECT_0;
}

DWORD WaitForAny(const HANDLE* events, DWORD count, DWORD timeoutMs) {
  if (events == nullptr || count == 0) return WAIT_FAILED;
  for (DWORD i = 0; i < count; ++i)
    if (events[i] == nullptr) return WAIT_FAILED;
  if (count == 1) return WaitForEvent(events[0], timeoutMs);

  Waiter waiter;
  for (DWORD i = 0; i < count; ++i) {
    std::lock_guard<std::mutex> lock(AsEvent(events[i])->m);
    AsEvent(events[i])->waiters.push_back(&waiter);
  }
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs == INFINITE ? 0 : timeoutMs);
  DWORD result = WAIT_TIMEOUT;
  for (;;) {
    uint64_t seen;
    {
      std::lock_guard<std::mutex> wl(waiter.m);
      seen = waiter.generation;
    }
    bool found = false;
    for (DWORD i = 0; i < count && !found; ++i) {
      Event* e = AsEvent(events[i]);
      std::lock_guard<std::mutex> lock(e->m);
      if (TakeLocked(e)) {
        result = WAIT_OBJECT_0 + i;
        found = true;
      }
    }
    if (found) break;
    std::unique_lock<std::mutex> wl(waiter.m);
    auto changed = [&] { return waiter.generation != seen; };
    if (timeoutMs == INFINITE) {
      waiter.cv.wait(wl, changed);
    } else if (!waiter.cv.wait_until(wl, deadline, changed)) {
      break;
    }
  }
  for (DWORD i = 0; i < count; ++i) {
    Event* e = AsEvent(events[i]);
    std::lock_guard<std::mutex> lock(e->m);
    e->waiters.erase(std::find(e->waiters.begin(), e->waiters.end(), &waiter));
  }
  return result;
}

}  // namespace dravix::platform
