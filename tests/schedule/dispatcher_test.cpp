#include "dravix/schedule/idispatcher.h"
#include "tests/schedule/dispatcher_support.h"

#include <atomic>
#include <chrono>
#include <thread>

namespace {

using dravix::test::AsParam;
using dravix::test::Call;
using dravix::test::Payload;
using dravix::test::RecordingHandler;
using dravix::test::TestClock;
using namespace std::chrono_literals;

IDispatcher* D() { return IDispatcher::Instance(); }

// ---------------------------------------------------------------- SendEvent

TEST(Dispatcher, SendEventRunsTheRegisteredHandlerOnTheCallersThread) {
  EXPECT_EQ(D(), IDispatcher::Instance());
  EXPECT_EQ(D()->SendEvent(6, 1, 2), -1);  // empty map
  RecordingHandler six(42), other(7);
  D()->RegisterHandler(6, &six);
  EXPECT_EQ(D()->SendEvent(8, 1, 2), -1);
  // Parameters are pointer-sized: a 64-bit pointer and a negative value survive.
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

// -------------------------------------------------------------- time events

TEST(Dispatcher, TimeEventsFireOnceWhenTheClockHasPassedThem) {
  TestClock clock;
  RecordingHandler start, stop;
  D()->RegisterHandler(6, &start);
  D()->RegisterHandler(8, &stop);
  D()->PostTimeEvent(6, TestClock::At(10), 3, 2222, 103);
  D()->PostTimeEvent(8, TestClock::At(20), 3, 2222, 103);
  D()->PostTimeEvent(6, TestClock::At(10), 4, 2222, 104);  // same id and time: both kept

  clock.Set(10);  // due exactly now: not yet
  D()->ProcessTimeEvent();
  EXPECT_EQ(start.Count(), 0u);
  clock.Set(11);
  D()->ProcessTimeEvent();
  ASSERT_EQ(start.Count(), 2u);
  EXPECT_EQ(start.Calls()[0].first, 3u);  // posting order
  EXPECT_EQ(start.Calls()[1].first, 4u);
  EXPECT_EQ(start.Calls()[0].second, 2222);
  EXPECT_EQ(stop.Count(), 0u);
  D()->ProcessTimeEvent();
  EXPECT_EQ(start.Count(), 2u);  // never twice
  EXPECT_EQ(D()->GetTimeEventCount(), 1u);
  clock.Set(3600);
  D()->ProcessTimeEvent();
  EXPECT_EQ(stop.Count(), 1u);
  EXPECT_EQ(D()->GetTimeEventCount(), 0u);
}

TEST(Dispatcher, ADueEventWithoutHandlerWaitsForOne) {
  TestClock clock;
  D()->PostTimeEvent(14, TestClock::At(0), 5, 0, 105);
  clock.Set(1);
  for (int i = 0; i < 3; ++i) D()->ProcessTimeEvent();
  EXPECT_EQ(D()->GetTimeEventCount(), 1u);
  RecordingHandler boundary;
  D()->RegisterHandler(14, &boundary);
  D()->ProcessTimeEvent();
  EXPECT_EQ(boundary.Count(), 1u);
  EXPECT_EQ(D()->GetTimeEventCount(), 0u);
}

TEST(Dispatcher, CancelledEventsNeverFireAndGoWithinTwoCalls) {
  TestClock clock;
  RecordingHandler h;
  D()->RegisterHandler(6, &h);
  D()->RegisterHandler(15, &h);
  D()->PostTimeEvent(6, TestClock::At(5), 1, 2222, 101);
  D()->PostTimeEvent(15, TestClock::At(5), 2, 2222, 102);
  D()->PostTimeEvent(6, TestClock::At(5), 2, 2222, 102);
  D()->PostTimeEvent(15, TestClock::At(5), 3, 2222, 103);
  EXPECT_EQ(D()->DeleteTimeEvent(102), 0);
  EXPECT_EQ(D()->DeleteAutoResetEvent(15), 0);
  clock.Set(6);
  D()->ProcessTimeEvent();
  ASSERT_EQ(h.Count(), 1u);
  EXPECT_EQ(h.Calls()[0].first, 1u);
  D()->ProcessTimeEvent();
  EXPECT_EQ(h.Count(), 1u);
  EXPECT_EQ(D()->GetTimeEventCount(), 0u);
}

// After removing a done event at index 0 the scan goes on at index 1, so
// the event that moved into index 0 stays for one more call.
TEST(Dispatcher, RemovalScanKeepsTheEventThatMovesToTheFront) {
  TestClock clock;
  struct Case {
    const char* layout;  // d = done (cancelled), p = pending
    size_t afterOne;
    size_t afterTwo;
  } cases[] = {
      {"ddd", 1, 0},   {"d", 0, 0},     {"pdd", 1, 1},  {"ddpd", 2, 1},
      {"dpdp", 2, 2},  {"pdpd", 2, 2},  {"dddd", 1, 0}, {"", 0, 0},
  };
  int tag = 1000;
  for (const Case& c : cases) {
    ++tag;
    for (const char* p = c.layout; *p != '\0'; ++p)
      D()->PostTimeEvent(77, TestClock::At(3600), 0, 0, *p == 'd' ? tag : 0);
    D()->DeleteTimeEvent(static_cast<UINT>(tag));
    D()->ProcessTimeEvent();
    EXPECT_EQ(D()->GetTimeEventCount(), c.afterOne) << c.layout;
    D()->ProcessTimeEvent();
    EXPECT_EQ(D()->GetTimeEventCount(), c.afterTwo) << c.layout;
    D()->DeleteAutoResetEvent(77);
    D()->ProcessTimeEvent();
    D()->ProcessTimeEvent();
    ASSERT_EQ(D()->GetTimeEventCount(), 0u);
  }
}

// A handler may post and cancel time events while ProcessTimeEvent runs it.
class ReschedulingHandler : public ZHandler {
 public:
  LONG_PTR Run(UINT id, UINT_PTR first, LONG_PTR) override {
    ++runs;
    if (first == 1) {
      for (int i = 0; i < 100; ++i) IDispatcher::Instance()->PostTimeEvent(id, TestClock::At(0), 2, 0, 50);
      IDispatcher::Instance()->DeleteTimeEvent(60);
    }
    return 0;
  }
  int runs = 0;
};

TEST(Dispatcher, HandlersMayPostAndCancelFromProcessTimeEvent) {
  TestClock clock;
  ReschedulingHandler h;
  D()->RegisterHandler(16, &h);
  D()->PostTimeEvent(16, TestClock::At(0), 1, 0, 40);
  D()->PostTimeEvent(16, TestClock::At(0), 3, 0, 60);
  clock.Set(1);
  D()->ProcessTimeEvent();
  EXPECT_EQ(h.runs, 101);  // the first, then the 100 it posted (already due); never the cancelled one
  D()->ProcessTimeEvent();
  EXPECT_EQ(h.runs, 101);
  EXPECT_EQ(D()->GetTimeEventCount(), 0u);
}

// --------------------------------------------------------------- event view

TEST(Dispatcher, EventViewQueueOrdersByPriorityNewestFirst) {
  RecordingHandler show;
  D()->RegisterHandler(900, &show);
  D()->AddToEventViewQueue(1, 10, 5);
  D()->AddToEventViewQueue(1, 11, 3);
  D()->AddToEventViewQueue(1, 12, 5);
  D()->AddToEventViewQueue(1, 13, 9);
  D()->AddToEventViewQueue(1, 11, 3);  // duplicates are kept
  const auto q = D()->GetEventViewQueue();
  ASSERT_EQ(q.size(), 5u);
  const int order[] = {11, 11, 12, 10, 13};
  for (size_t i = 0; i < q.size(); ++i) EXPECT_EQ(q[i].second, order[i]) << i;

  // Each finished view hands out the head as event 900.
  for (int expected : {11, 11, 12, 10, 13}) {
    EXPECT_FALSE(D()->CheckEventView(7, 7));
    ASSERT_FALSE(show.Calls().empty());
    EXPECT_EQ(show.Calls().back().id, 900u);
    EXPECT_EQ(show.Calls().back().first, 1u);
    EXPECT_EQ(show.Calls().back().second, expected);
  }
  EXPECT_TRUE(D()->IsQueueEmpty());
  EXPECT_TRUE(D()->CheckEventView(7, 7));  // nothing more to show
  EXPECT_EQ(show.Count(), 5u);
}

TEST(Dispatcher, CheckEventViewCases) {
  RecordingHandler show;
  D()->RegisterHandler(900, &show);
  D()->AddToEventViewQueue(2, 20, 1);
  D()->AddToEventViewQueue(3, 30, 2);
  D()->SetEventView(5, 6);
  EXPECT_TRUE(D()->IsEventViewActive());

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
  EXPECT_TRUE(D()->SearchInnerEvent(0, 0) == FALSE);
}

TEST(Dispatcher, ViewModeAndStateChangeOnlyWhileTheQueueIsEmpty) {
  int a = 0, b = 0;
  D()->GetViewMode(a, b);
  EXPECT_EQ(a, -1);
  EXPECT_EQ(b, -1);
  D()->SetViewMode(4, 1);
  tagDSEVENTSTATE state{{1, 2, 3, 4}}, out{};
  EXPECT_TRUE(D()->SetEventViewState(state));
  EXPECT_TRUE(D()->GetEventViewState(out));
  EXPECT_EQ(out.value[3], 4);

  D()->AddToEventViewQueue(1, 1, 1);
  D()->SetViewMode(9, 9);
  D()->GetViewMode(a, b);
  EXPECT_EQ(a, 4);
  EXPECT_EQ(b, 1);
  tagDSEVENTSTATE other{{9, 9, 9, 9}}, untouched{{0, 0, 0, 0}};
  EXPECT_FALSE(D()->SetEventViewState(other));
  EXPECT_FALSE(D()->GetEventViewState(untouched));
  EXPECT_EQ(untouched.value[0], 0);

  EXPECT_TRUE(D()->SearchInnerEvent(1, 1));
  EXPECT_TRUE(D()->GetEventViewState(out));
  EXPECT_EQ(out.value[0], 1);
  D()->SetEventView(3, 3);
  D()->ZeroEventView();
  EXPECT_FALSE(D()->IsEventViewActive());
  EXPECT_FALSE(D()->StartThread());  // already running
}

// ------------------------------------------------------------ queued events

TEST(Dispatcher, QueuedEventsReleaseTheirObjectOnceAfterTheHandlerRan) {
  D()->SetQueueInterval(2ms);
  std::atomic<int> releases{0}, deleted{0};
  class Checking : public ZHandler {
   public:
    explicit Checking(std::atomic<int>* deleted) : deleted_(deleted) {}
    LONG_PTR Run(UINT, UINT_PTR first, LONG_PTR) override {
      if (first != 0) aliveAtRun += deleted_->load() == 0 ? 1 : 0;
      thread = std::this_thread::get_id();
      ++runs;
      return 0;
    }
    std::atomic<int>* deleted_;
    std::atomic<int> aliveAtRun{0}, runs{0};
    std::thread::id thread;
  } handler(&deleted);
  D()->RegisterHandler(30, &handler);
  D()->SendActionEvent(30, AsParam(new Payload(&releases, &deleted)), 1);
  D()->SendActionEvent(30, 0, 2);  // no object: nothing to release
  auto* unhandled = new Payload(&releases);
  D()->SendNetEvent(31, AsParam(unhandled), 3);  // no handler: dropped, not released
  const auto end = std::chrono::steady_clock::now() + 10s;
  while ((handler.runs < 2 || D()->GetNetQueueSize() != 0) && std::chrono::steady_clock::now() < end)
    std::this_thread::sleep_for(1ms);
  EXPECT_EQ(handler.runs.load(), 2);
  EXPECT_EQ(handler.aliveAtRun.load(), 1);
  EXPECT_EQ(releases.load(), 1);
  EXPECT_EQ(deleted.load(), 1);
  EXPECT_NE(handler.thread, std::this_thread::get_id());
  EXPECT_EQ(D()->GetActionQueueSize(), 0u);
  delete unhandled;
}

// A handler runs with its queue locked; posting to the same queue from that
// thread must not deadlock.
class Chaining : public ZHandler {
 public:
  LONG_PTR Run(UINT id, UINT_PTR, LONG_PTR second) override {
    seen.push_back(second);
    if (second < 3) IDispatcher::Instance()->SendActionEvent(id, 0, second + 1);
    return 0;
  }
  std::vector<LONG_PTR> seen;
};

TEST(Dispatcher, QueuesAreFifoAndHandlersMayPostToTheirOwnQueue) {
  D()->SetQueueInterval(1ms);
  RecordingHandler net;
  Chaining chain;
  D()->RegisterHandler(40, &chain);
  D()->RegisterHandler(41, &net);
  D()->SendActionEvent(40, 0, 1);
  for (int i = 0; i < 5; ++i) D()->SendNetEvent(41, 0, i);
  ASSERT_TRUE(net.WaitFor(5, 10s));
  const auto end = std::chrono::steady_clock::now() + 10s;
  while (D()->GetActionQueueSize() != 0 && std::chrono::steady_clock::now() < end) std::this_thread::sleep_for(1ms);
  // The queue empties under its lock only after the last Run returned.
  ASSERT_EQ(D()->GetActionQueueSize(), 0u);
  const auto calls = net.Calls();
  for (size_t i = 0; i < calls.size(); ++i) EXPECT_EQ(calls[i].second, static_cast<LONG_PTR>(i));
  // The test interval paces like the real one.
  for (size_t i = 1; i < calls.size(); ++i) EXPECT_GE(calls[i].at - calls[i - 1].at, 1ms);
  EXPECT_EQ(chain.seen, (std::vector<LONG_PTR>{1, 2, 3}));
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
  ASSERT_TRUE(action.WaitFor(3, 10s));
  ASSERT_TRUE(net.WaitFor(3, 10s));
  for (auto* h : {&action, &net}) {
    const auto calls = h->Calls();
    for (size_t i = 1; i < calls.size(); ++i) EXPECT_GE(calls[i].at - calls[i - 1].at, 1000ms) << i;
    EXPECT_EQ(calls[0].thread, calls[2].thread);
  }
  EXPECT_NE(action.Calls()[0].thread, net.Calls()[0].thread);
  // Independent queues: the second queue's first delivery does not wait for
  // the first queue's last.
  EXPECT_LT(net.Calls()[0].at, action.Calls()[2].at);
}

}  // namespace
