// Many threads posting time events and queued events at once while the
// host fires time events: every event is handled exactly once and every
// queued object released exactly once (run under TSan and ASan too).
#include "dravix/schedule/idispatcher.h"
#include "tests/schedule/dispatcher_support.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

namespace {

using dravix::test::AsParam;
using dravix::test::Payload;
using dravix::test::TestClock;
using namespace std::chrono_literals;

constexpr int kThreads = 8;
constexpr int kTimeEventsPerThread = 20000;
constexpr int kQueuedPerThread = 2000;
constexpr int kTimeEvents = kThreads * kTimeEventsPerThread;
constexpr int kQueued = kThreads * kQueuedPerThread;

class CountingHandler : public ZHandler {
 public:
  explicit CountingHandler(int size) : hits_(new std::atomic<int>[static_cast<size_t>(size)]), size_(size) {
    for (int i = 0; i < size; ++i) hits_[static_cast<size_t>(i)] = 0;
  }
  // Counts the event whose index is carried in `first` (time events) or
  // `second` (queued events, whose `first` is the object to release).
  LONG_PTR Run(UINT id, UINT_PTR first, LONG_PTR second) override {
    const LONG_PTR index = id == 6 ? static_cast<LONG_PTR>(first) : second;
    if (index < 0 || index >= size_) {
      ++outOfRange;
      return 0;
    }
    hits_[static_cast<size_t>(index)].fetch_add(1);
    ++total;
    return 0;
  }
  int Hits(int i) const { return hits_[static_cast<size_t>(i)].load(); }
  std::atomic<int> total{0}, outOfRange{0};

 private:
  std::unique_ptr<std::atomic<int>[]> hits_;
  int size_;
};

TEST(DispatcherLoad, EightThreadsPostingEveryEventFiresExactlyOnce) {
  TestClock clock;
  IDispatcher* d = IDispatcher::Instance();
  d->SetQueueInterval(50us);
  CountingHandler timed(kTimeEvents), queued(kQueued);
  d->RegisterHandler(6, &timed);
  d->RegisterHandler(7, &queued);
  std::atomic<int> releases{0}, deleted{0};

  std::atomic<int> postersDone{0};
  std::vector<std::thread> posters;
  for (int t = 0; t < kThreads; ++t) {
    posters.emplace_back([&, t] {
      for (int i = 0; i < kTimeEventsPerThread; ++i) {
        const int index = t * kTimeEventsPerThread + i;
        d->PostTimeEvent(6, TestClock::At(1 + i % 30), static_cast<UINT_PTR>(index), 2222, 100 + t);
        if (i % (kTimeEventsPerThread / kQueuedPerThread) == 0) {
          const int q = t * kQueuedPerThread + i / (kTimeEventsPerThread / kQueuedPerThread);
          auto* payload = new Payload(&releases, &deleted);
          if (q % 2 == 0)
            d->SendActionEvent(7, AsParam(payload), q);
          else
            d->SendNetEvent(7, AsParam(payload), q);
        }
      }
      ++postersDone;
    });
  }
  // The host's timer: the clock moves on a second per tick while posting goes on.
  std::thread host([&] {
    for (int second = 1; postersDone.load() < kThreads; ++second) {
      clock.Set(second);
      d->ProcessTimeEvent();
      d->DeleteTimeEvent(999);  // a tag nobody uses: cancels nothing
      std::this_thread::sleep_for(5ms);
    }
  });
  for (auto& p : posters) p.join();
  host.join();

  clock.Set(3600);
  for (int i = 0; i < 3; ++i) d->ProcessTimeEvent();
  EXPECT_EQ(d->GetTimeEventCount(), 0u);
  EXPECT_EQ(timed.total.load(), kTimeEvents);

  const auto end = std::chrono::steady_clock::now() + 120s;
  while (queued.total.load() < kQueued && std::chrono::steady_clock::now() < end) std::this_thread::sleep_for(5ms);
  EXPECT_EQ(queued.total.load(), kQueued);
  EXPECT_EQ(d->GetActionQueueSize() + d->GetNetQueueSize(), 0u);
  EXPECT_EQ(releases.load(), kQueued);
  EXPECT_EQ(deleted.load(), kQueued);
  EXPECT_EQ(timed.outOfRange.load() + queued.outOfRange.load(), 0);

  int wrong = 0;
  for (int i = 0; i < kTimeEvents; ++i) wrong += timed.Hits(i) != 1;
  for (int i = 0; i < kQueued; ++i) wrong += queued.Hits(i) != 1;
  EXPECT_EQ(wrong, 0);
}

}  // namespace
