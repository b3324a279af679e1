// The event dispatcher: direct sends, time events on the injectable clock
// (with the removal-scan quirk), the event-view queue, the paced action and
// net queues, and many threads posting at once.
#include "dravix/base/zunknown.h"
#include "dravix/platform/clock.h"
#include "dravix/schedule/idispatcher.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

IDispatcher* D() { return IDispatcher::Instance(); }

// Polls `done` for up to `limit`.
template <class F>
bool WaitUntil(F done, std::chrono::seconds limit = 10s) {
  for (const auto end = Clock::now() + limit; !done(); std::this_thread::sleep_for(1ms))
    if (Clock::now() > end) return false;
  return true;
}

struct Call {
  UINT id;
  UINT_PTR first;
  LONG_PTR second;
  std::thread::id thread;
  Clock::time_point at;
};

// Records every call, then runs `also` (when set) on it.
class RecordingHandler : public ZHandler {
 public:
  explicit RecordingHandler(LONG_PTR result = 0, std::function<void(const Call&)> also = nullptr)
      : result_(result), also_(std::move(also)) {}
  LONG_PTR Run(UINT id, UINT_PTR first, LONG_PTR second) override {
    const Call call{id, first, second, std::this_thread::get_id(), Clock::now()};
    // Nothing of this object is read once the call is recorded unless there
    // is a hook: a test may end, and this handler go, as soon as it sees the
    // last call.
    const bool hooked = static_cast<bool>(also_);
    const LONG_PTR result = result_;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      calls_.push_back(call);
    }
    if (hooked) also_(call);
    return result;
  }
  std::vector<Call> Calls() {
    std::lock_guard<std::mutex> lock(mutex_);
    return calls_;
  }
  size_t Count() { return Calls().size(); }

 private:
  LONG_PTR result_;
  std::function<void(const Call&)> also_;
  std::mutex mutex_;
  std::vector<Call> calls_;
};

// A reference-counted payload that counts its releases and its deletion.
struct Counts {
  std::atomic<int> releases{0}, deleted{0};
};
class Payload : public ZUnknown {
 public:
  explicit Payload(Counts* counts) : counts_(counts) {}
  ~Payload() override { ++counts_->deleted; }
  ULONG Release() override {
    ++counts_->releases;
    return ZUnknown::Release();
  }

 private:
  Counts* counts_;
};

UINT_PTR AsParam(ZUnknown* p) { return reinterpret_cast<UINT_PTR>(p); }

// The process-wide clock, in whole seconds from 2008-03-15 12:00:00.
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
    return SYSTEMTIME{2008,
                      3,
                      6,
                      15,
                      static_cast<WORD>(12 + seconds / 3600),
                      static_cast<WORD>(seconds / 60 % 60),
                      static_cast<WORD>(seconds % 60),
                      0};
  }
  void Set(int seconds) { now_.store(base_ + seconds); }

 private:
  std::time_t base_ = 0;
  static inline std::atomic<std::time_t> now_{0};
};

TEST(Dispatcher, SendEventRunsTheRegisteredHandlerOnTheCallersThread) {
  EXPECT_EQ(D()->SendEvent(6, 1, 2), -1);  // empty map
  RecordingHandler six(42), other(7);
  D()->RegisterHandler(6, &six);
  EXPECT_EQ(D()->SendEvent(8, 1, 2), -1);
  // Parameters are pointer-sized: a 64-bit value and a negative one survive.
  const UINT_PTR bigFirst = UINT_PTR{0x123456789ABCull};
  EXPECT_EQ(D()->SendEvent(6, bigFirst, -5), 42);
  D()->RegisterHandler(6, &other);  // replaces
  EXPECT_EQ(D()->SendEvent(6, 3, 4), 7);
  D()->RegisterHandler(6, nullptr);
  EXPECT_EQ(D()->SendEvent(6, 3, 4), -1);
  ASSERT_EQ(six.Count(), 1u);
  const Call c = six.Calls()[0];
  EXPECT_EQ(c.id, 6u);
  EXPECT_EQ(c.first, bigFirst);
  EXPECT_EQ(c.second, -5);
  EXPECT_EQ(c.thread, std::this_thread::get_id());
}

TEST(Dispatcher, TimeEventsFireOnceAfterTheirTimeUnlessCancelled) {
  TestClock clock;
  RecordingHandler start, stop, boundary;
  D()->RegisterHandler(6, &start);
  D()->RegisterHandler(8, &stop);
  D()->RegisterHandler(15, &start);
  D()->PostTimeEvent(6, TestClock::At(10), 3, 2222, 103);
  D()->PostTimeEvent(8, TestClock::At(20), 3, 2222, 103);
  D()->PostTimeEvent(6, TestClock::At(10), 4, 2222, 104);  // same id and time: both kept
  D()->PostTimeEvent(6, TestClock::At(10), 5, 2222, 105);
  D()->PostTimeEvent(15, TestClock::At(10), 6, 2222, 106);
  D()->PostTimeEvent(14, TestClock::At(10), 7, 0, 107);  // no handler yet: waits for one
  EXPECT_EQ(D()->DeleteTimeEvent(105), 0);
  EXPECT_EQ(D()->DeleteAutoResetEvent(15), 0);

  clock.Set(10);  // due exactly now: not yet
  D()->ProcessTimeEvent();
  EXPECT_EQ(start.Count(), 0u);
  clock.Set(11);
  D()->ProcessTimeEvent();
  D()->ProcessTimeEvent();
  ASSERT_EQ(start.Count(), 2u);
  EXPECT_EQ(start.Calls()[0].first, 3u);  // posting order
  EXPECT_EQ(start.Calls()[1].first, 4u);
  EXPECT_EQ(start.Calls()[0].second, 2222);
  EXPECT_EQ(D()->GetTimeEventCount(), 2u);
  D()->RegisterHandler(14, &boundary);
  clock.Set(3600);
  D()->ProcessTimeEvent();
  D()->ProcessTimeEvent();
  EXPECT_EQ(stop.Count(), 1u);
  EXPECT_EQ(boundary.Count(), 1u);
  EXPECT_EQ(start.Count(), 2u);
  EXPECT_EQ(D()->GetTimeEventCount(), 0u);
}

// After removing a done event at index 0 the scan goes on at index 1, so
// the event that moved into index 0 stays for one more call.
// QUIRK(removal-scan)
TEST(Dispatcher, RemovalScanKeepsTheEventThatMovesToTheFront) {
  TestClock clock;
  struct Case {
    const char* layout;  // d = done (cancelled), p = pending
    size_t afterOne, afterTwo;
  } const cases[] = {{"ddd", 1, 0},  {"d", 0, 0},    {"pdd", 1, 1},  {"ddpd", 2, 1},
                     {"dpdp", 2, 2}, {"pdpd", 2, 2}, {"dddd", 1, 0}, {"", 0, 0}};
  int tag = 1000;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.layout);
    ++tag;
    for (const char* p = c.layout; *p != '\0'; ++p)
      D()->PostTimeEvent(77, TestClock::At(3600), 0, 0, *p == 'd' ? tag : 0);
    D()->DeleteTimeEvent(static_cast<UINT>(tag));
    D()->ProcessTimeEvent();
    EXPECT_EQ(D()->GetTimeEventCount(), c.afterOne);
    D()->ProcessTimeEvent();
    EXPECT_EQ(D()->GetTimeEventCount(), c.afterTwo);
    D()->DeleteAutoResetEvent(77);
    D()->ProcessTimeEvent();
    D()->ProcessTimeEvent();
    ASSERT_EQ(D()->GetTimeEventCount(), 0u);
  }
}

TEST(Dispatcher, HandlersMayPostAndCancelFromProcessTimeEvent) {
  TestClock clock;
  RecordingHandler h(0, [](const Call& c) {
    if (c.first != 1) return;
    for (int i = 0; i < 100; ++i) D()->PostTimeEvent(c.id, TestClock::At(0), 2, 0, 50);  // already due
    D()->DeleteTimeEvent(60);
  });
  D()->RegisterHandler(16, &h);
  D()->PostTimeEvent(16, TestClock::At(0), 1, 0, 40);
  D()->PostTimeEvent(16, TestClock::At(0), 3, 0, 60);
  clock.Set(1);
  D()->ProcessTimeEvent();
  EXPECT_EQ(h.Count(), 101u);
  D()->ProcessTimeEvent();
  EXPECT_EQ(h.Count(), 101u);
  EXPECT_EQ(D()->GetTimeEventCount(), 0u);
}

TEST(Dispatcher, EventViewQueueOrdersByPriorityNewestFirst) {
  RecordingHandler show;
  D()->RegisterHandler(900, &show);
  for (const auto& [second, priority] : {std::pair{10, 5}, {11, 3}, {12, 5}, {13, 9}, {11, 3}})
    D()->AddToEventViewQueue(1, second, priority);  // duplicates are kept
  const auto q = D()->GetEventViewQueue();
  const int order[] = {11, 11, 12, 10, 13};
  ASSERT_EQ(q.size(), 5u);
  for (size_t i = 0; i < q.size(); ++i) EXPECT_EQ(q[i].second, order[i]) << i;

  // Each finished view hands out the head as event 900, until none is left.
  for (size_t i = 0; i < q.size(); ++i) EXPECT_FALSE(D()->CheckEventView(7, 7));
  EXPECT_TRUE(D()->CheckEventView(7, 7));
  std::vector<int> shown;
  for (const Call& c : show.Calls()) shown.push_back(c.id == 900 && c.first == 1 ? static_cast<int>(c.second) : -1);
  EXPECT_EQ(shown, std::vector<int>(std::begin(order), std::end(order)));
}

TEST(Dispatcher, CheckEventViewCases) {
  RecordingHandler show;
  D()->RegisterHandler(900, &show);
  D()->AddToEventViewQueue(2, 20, 1);
  D()->AddToEventViewQueue(3, 30, 2);
  D()->SetEventView(5, 6);
  EXPECT_TRUE(D()->IsEventViewActive());
  // The view mode and state change only while the queue is empty.
  int a = 0, b = 0;
  tagDSEVENTSTATE state{};
  D()->SetViewMode(9, 9);
  D()->GetViewMode(a, b);
  EXPECT_EQ(a, -1);
  EXPECT_FALSE(D()->SetEventViewState(tagDSEVENTSTATE{{9, 9, 9, 9}}));
  EXPECT_FALSE(D()->GetEventViewState(state));

  // A view still queued is only removed.
  EXPECT_FALSE(D()->CheckEventView(3, 30));
  EXPECT_EQ(show.Count(), 0u);
  EXPECT_EQ(D()->GetEventViewQueue().size(), 1u);
  EXPECT_TRUE(D()->IsEventViewActive());
  EXPECT_EQ(D()->GetIsSerial(), 0);

  // Otherwise the next view goes out: current view cleared, serial set.
  EXPECT_FALSE(D()->CheckEventView(5, 6));
  ASSERT_EQ(show.Count(), 1u);
  EXPECT_EQ(show.Calls()[0].second, 20);
  EXPECT_FALSE(D()->IsEventViewActive());
  EXPECT_EQ(D()->GetIsSerial(), 1);
  EXPECT_TRUE(D()->IsQueueEmpty());
  D()->SetViewMode(4, 1);
  D()->GetViewMode(a, b);
  EXPECT_EQ(a, 4);
  EXPECT_TRUE(D()->SetEventViewState(tagDSEVENTSTATE{{1, 2, 3, 4}}));
  EXPECT_TRUE(D()->GetEventViewState(state));
  EXPECT_EQ(state.value[3], 4);

  // Negative view values travel through the unsigned first parameter intact.
  D()->AddToEventViewQueue(-1, -2, 0);
  EXPECT_FALSE(D()->CheckEventView(9, 9));
  EXPECT_EQ(static_cast<int>(static_cast<UINT>(show.Calls()[1].first)), -1);
  EXPECT_EQ(show.Calls()[1].second, -2);

  // Without a 900 handler the view is still taken off the queue.
  D()->RegisterHandler(900, nullptr);
  D()->AddToEventViewQueue(4, 40, 0);
  EXPECT_FALSE(D()->CheckEventView(9, 9));
  EXPECT_TRUE(D()->IsQueueEmpty());
  D()->SetEventView(3, 3);
  D()->ZeroEventView();
  EXPECT_FALSE(D()->IsEventViewActive());
  EXPECT_FALSE(D()->StartThread());  // already running
}

TEST(Dispatcher, QueuedEventsRunInOrderAndReleaseTheirObjectOnceAfterTheHandler) {
  D()->SetQueueInterval(1ms);
  Counts counts, unhandledCounts;
  int aliveAtRun = 0;
  // The handler runs with its queue locked; chaining 1..3 through that queue must not deadlock.
  RecordingHandler net, action(0, [&](const Call&c) {
    if (c.first != 0 && counts.deleted.load() == 0) ++aliveAtRun;
    if (c.second >= 1 && c.second < 3) D()->SendActionEvent(c.id, 0, c.second + 1);
  });
  D()->RegisterHandler(30, &action);
  D()->RegisterHandler(31, &net);
  D()->SendActionEvent(30, AsParam(new Payload(&counts)), 0);
  D()->SendActionEvent(30, 0, 1);  // no object: nothing to release
  auto* unhandled = new Payload(&unhandledCounts);
  D()->SendNetEvent(32, AsParam(unhandled), 9);  // no handler: dropped, not released
  for (int i = 0; i < 5; ++i) D()->SendNetEvent(31, 0, i);
  // The action queue empties under its lock only after the last Run returned.
  ASSERT_TRUE(WaitUntil([&] { return net.Count() == 5 && D()->GetActionQueueSize() == 0; }));
  EXPECT_EQ(aliveAtRun, 1);
  EXPECT_EQ(counts.releases.load(), 1);
  EXPECT_EQ(counts.deleted.load(), 1);
  EXPECT_EQ(unhandledCounts.releases.load(), 0);
  for (const auto& calls : {action.Calls(), net.Calls()}) {
    for (size_t i = 0; i < calls.size(); ++i) EXPECT_EQ(calls[i].second, static_cast<LONG_PTR>(i));
    for (size_t i = 1; i < calls.size(); ++i) EXPECT_GE(calls[i].at - calls[i - 1].at, 1ms);
  }
  ASSERT_EQ(action.Count(), 4u);
  EXPECT_NE(action.Calls()[0].thread, std::this_thread::get_id());
  delete unhandled;
}

// The product paces each queue to one delivery per second; the two queues
// run side by side.
TEST(Dispatcher, EachQueueDeliversOneEventPerSecond) {
  RecordingHandler action, net;
  D()->RegisterHandler(50, &action);
  D()->RegisterHandler(51, &net);
  for (int i = 0; i < 3; ++i) {
    D()->SendActionEvent(50, 0, i);
    D()->SendNetEvent(51, 0, i);
  }
  ASSERT_TRUE(WaitUntil([&] { return action.Count() == 3 && net.Count() == 3; }));
  for (auto* h : {&action, &net}) {
    const auto calls = h->Calls();
    for (size_t i = 1; i < calls.size(); ++i) EXPECT_GE(calls[i].at - calls[i - 1].at, 1000ms) << i;
    EXPECT_EQ(calls[0].thread, calls[2].thread);
  }
  EXPECT_NE(action.Calls()[0].thread, net.Calls()[0].thread);
  // The net queue's first delivery does not wait for the action queue's last.
  EXPECT_LT(net.Calls()[0].at, action.Calls()[2].at);
}

// Eight threads post 20,000 time events and 2,000 queued events each while
// the host fires time events (run under TSan and ASan too).
TEST(DispatcherLoad, EightThreadsPostingEveryEventFiresExactlyOnce) {
  constexpr int kThreads = 8, kTimed = 20000, kQueued = 2000, kEvery = kTimed / kQueued;
  TestClock clock;
  D()->SetQueueInterval(50us);
  RecordingHandler timed, queued;
  D()->RegisterHandler(6, &timed);
  D()->RegisterHandler(7, &queued);
  Counts counts;
  std::atomic<int> postersDone{0};
  std::vector<std::thread> posters;
  for (int t = 0; t < kThreads; ++t) {
    posters.emplace_back([&, t] {
      for (int i = 0; i < kTimed; ++i) {
        D()->PostTimeEvent(6, TestClock::At(1 + i % 30), static_cast<UINT_PTR>(t * kTimed + i), 2222, 100 + t);
        if (i % kEvery != 0) continue;
        const int q = t * kQueued + i / kEvery;
        if (q % 2 == 0)
          D()->SendActionEvent(7, AsParam(new Payload(&counts)), q);
        else
          D()->SendNetEvent(7, AsParam(new Payload(&counts)), q);
      }
      ++postersDone;
    });
  }
  // The host's timer: the clock moves on a second per tick while posting goes on.
  std::thread host([&] {
    for (int second = 1; postersDone.load() < kThreads; ++second) {
      clock.Set(second);
      D()->ProcessTimeEvent();
      D()->DeleteTimeEvent(999);  // a tag nobody uses: cancels nothing
      std::this_thread::sleep_for(5ms);
    }
  });
  for (auto& p : posters) p.join();
  host.join();

  clock.Set(3600);
  for (int i = 0; i < 3; ++i) D()->ProcessTimeEvent();
  EXPECT_EQ(D()->GetTimeEventCount(), 0u);
  EXPECT_TRUE(WaitUntil([&] { return queued.Count() >= size_t{kThreads * kQueued}; }, 120s));
  EXPECT_EQ(D()->GetActionQueueSize() + D()->GetNetQueueSize(), 0u);
  EXPECT_EQ(counts.releases.load(), kThreads * kQueued);
  EXPECT_EQ(counts.deleted.load(), kThreads * kQueued);
  // Each event by the index it carries: in `first` for time events, in
  // `second` for queued ones (whose `first` is the object).
  std::vector<int> timedHits(kThreads * kTimed), queuedHits(kThreads * kQueued);
  for (const Call& c : timed.Calls()) ++timedHits.at(c.first);
  for (const Call& c : queued.Calls()) ++queuedHits.at(static_cast<size_t>(c.second));
  EXPECT_EQ(std::count(timedHits.begin(), timedHits.end(), 1), kThreads * kTimed);
  EXPECT_EQ(std::count(queuedHits.begin(), queuedHits.end(), 1), kThreads * kQueued);
}

}  // namespace
