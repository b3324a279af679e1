// WriteGate: lets any number of appends through at once and, rarely, shuts
// them out for an exclusive step (open, rotate, close) on the same file.
//
// One atomic word: the number of appends in progress, plus kExclusive while
// an exclusive step holds the gate. An append that arrives during an
// exclusive step backs out and waits (yielding); the exclusive step waits
// for the appends in progress to leave. Entering and leaving as an append
// costs one atomic add each, less than a reader-writer lock, which matters
// on a path whose only other cost is one write(2).
//
// Not recursive. Exclusive steps are expected to be short and rare.
#pragma once

#include <atomic>
#include <cstdint>
#include <thread>

namespace dravix::log {

class WriteGate {
 public:
  void EnterShared() {
    for (;;) {
      if (state_.fetch_add(1, std::memory_order_acquire) < kExclusive) return;
      state_.fetch_sub(1, std::memory_order_relaxed);
      while (state_.load(std::memory_order_relaxed) >= kExclusive) std::this_thread::yield();
    }
  }
  void LeaveShared() { state_.fetch_sub(1, std::memory_order_release); }

  void EnterExclusive() {
    for (;;) {
      uint32_t s = state_.load(std::memory_order_relaxed);
      if (s < kExclusive && state_.compare_exchange_weak(s, s + kExclusive, std::memory_order_acquire)) break;
      std::this_thread::yield();
    }
    while (state_.load(std::memory_order_acquire) != kExclusive) std::this_thread::yield();
  }
  void LeaveExclusive() { state_.fetch_sub(kExclusive, std::memory_order_release); }

  class Shared {
   public:
    explicit Shared(WriteGate& gate) : gate_(gate) { gate_.EnterShared(); }
    ~Shared() { gate_.LeaveShared(); }
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;

   private:
    WriteGate& gate_;
  };
  class Exclusive {
   public:
    explicit Exclusive(WriteGate& gate) : gate_(gate) { gate_.EnterExclusive(); }
    ~Exclusive() { gate_.LeaveExclusive(); }
    Exclusive(const Exclusive&) = delete;
    Exclusive& operator=(const Exclusive&) = delete;

   private:
    WriteGate& gate_;
  };

 private:
  static constexpr uint32_t kExclusive = 1u << 30;
  std::atomic<uint32_t> state_{0};
};

}  // namespace dravix::log
