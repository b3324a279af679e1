// Shared pieces of the dispatcher tests: a recording handler, a counted
// reference object and a settable clock.
#pragma once

#include "dravix/base/zunknown.h"
#include "dravix/platform/clock.h"
#include "dravix/schedule/idispatcher.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

namespace dravix::test {

struct Call {
  UINT id;
  UINT_PTR first;
  LONG_PTR second;
  std::thread::id thread;
  std::chrono::steady_clock::time_point at;
};

class RecordingHandler : public ZHandler {
 public:
  explicit RecordingHandler(LONG_PTR result = 0) : result_(result) {}
  LONG_PTR Run(UINT id, UINT_PTR first, LONG_PTR second) override {
    std::lock_guard<std::mutex> lock(mutex_);
    calls_.push_back(Call{id, first, second, std::this_thread::get_id(), std::chrono::steady_clock::now()});
    return result_;
  }
  std::vector<Call> Calls() {
    std::lock_guard<std::mutex> lock(mutex_);
    return calls_;
  }
  size_t Count() {
    std::lock_guard<std::mutex> lock(mutex_);
    return calls_.size();
  }
  // Polls until `n` calls arrived or `limit` passed.
  bool WaitFor(size_t n, std::chrono::seconds limit) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (Count() < n) {
      if (std::chrono::steady_clock::now() > end) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
  }

 private:
  LONG_PTR result_;
  std::mutex mutex_;
  std::vector<Call> calls_;
};

// A reference-counted payload that counts its releases and its deletion.
class Payload : public ZUnknown {
 public:
  explicit Payload(std::atomic<int>* releases, std::atomic<int>* deleted = nullptr)
      : releases_(releases), deleted_(deleted) {}
  ~Payload() override {
    if (deleted_ != nullptr) ++*deleted_;
  }
  ULONG Release() override {
    ++*releases_;
    return ZUnknown::Release();
  }

 private:
  std::atomic<int>* releases_;
  std::atomic<int>* deleted_;
};

inline UINT_PTR AsParam(ZUnknown* p) { return reinterpret_cast<UINT_PTR>(p); }

// A process-wide test clock, in whole seconds from 2008-03-15 12:00:00.
class TestClock {
 public:
  TestClock() {
    base_ = dravix::platform::LocalToUnix(At(0));
    Set(0);
    dravix::platform::SetTestClock([] { return now_.load(); });
  }
  ~TestClock() { dravix::platform::ClearTestClock(); }
  // The calendar time `seconds` (0 .. 11:59:59) after the base.
  static SYSTEMTIME At(int seconds) {
    return SYSTEMTIME{2008, 3, 6, 15, static_cast<WORD>(12 + seconds / 3600), static_cast<WORD>(seconds / 60 % 60),
                      static_cast<WORD>(seconds % 60), 0};
  }
  void Set(int seconds) { now_.store(base_ + seconds); }

 private:
  std::time_t base_ = 0;
  static inline std::atomic<std::time_t> now_{0};
};

}  // namespace dravix::test
