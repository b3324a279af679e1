#include "dravix/base/zcritsec.h"
#include "dravix/base/zevent.h"
#include "dravix/base/zthread.h"
#include "dravix/base/zunknown.h"
#include "dravix/platform/event.h"
#include "dravix/platform/message_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace {

using namespace std::chrono_literals;
namespace pf = dravix::platform;

TEST(Event, ManualStaysSetAutoWakesExactlyOneWaiter) {
  ZEvent manual;  // no argument: manual-reset
  EXPECT_EQ(manual.Wait(0), 0);
  manual.Set();
  EXPECT_EQ(manual.Wait(0) + manual.Check(), 2);
  manual.Reset();
  EXPECT_EQ(manual.Check(), 0);

  ZEvent autoReset(FALSE);
  std::atomic<int> woken{0};
  const auto start = std::chrono::steady_clock::now();
  std::thread a([&] { woken += autoReset.Wait(300); });
  std::thread b([&] { woken += autoReset.Wait(300); });
  std::this_thread::sleep_for(50ms);
  autoReset.Set();
  a.join();
  b.join();
  EXPECT_EQ(woken.load(), 1);
  EXPECT_GE(std::chrono::steady_clock::now() - start, 290ms);  // the other one timed out
  EXPECT_EQ(autoReset.Wait(0), 0);
}

TEST(Event, WaitForAnyReportsTheLowestSignalledAndConsumesAutoReset) {
  ZEvent a(FALSE), b(FALSE), c(TRUE);
  HANDLE handles[] = {a, b, c};
  EXPECT_EQ(pf::WaitForAny(handles, 3, 0), WAIT_TIMEOUT);
  c.Set();
  b.Set();
  EXPECT_EQ(pf::WaitForAny(handles, 3, 0), WAIT_OBJECT_0 + 1);
  EXPECT_EQ(pf::WaitForAny(handles, 3, 0), WAIT_OBJECT_0 + 2);  // b consumed, c manual
  EXPECT_EQ(pf::WaitForAny(handles, 3, 0), WAIT_OBJECT_0 + 2);
  c.Reset();
  std::thread setter([&] {
    std::this_thread::sleep_for(30ms);
    a.Set();
  });
  EXPECT_EQ(pf::WaitForAny(handles, 3, INFINITE), WAIT_OBJECT_0);
  setter.join();
  HANDLE withNull[] = {a, nullptr};
  EXPECT_EQ(pf::WaitForAny(withNull, 2, 0), WAIT_FAILED);
}

struct Counted : ZUnknown {
  explicit Counted(bool* gone) : gone(gone) {}
  ~Counted() override { *gone = true; }
  bool* gone;
};

TEST(Unknown, CountingQueryAndCopies) {
  bool gone = false;
  auto* obj = new Counted(&gone);
  void* out = reinterpret_cast<void*>(0x1);
  const IID other = {1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
  EXPECT_EQ(obj->QueryInterface(other, &out), E_NOINTERFACE);
  EXPECT_EQ(out, reinterpret_cast<void*>(0x1));
  EXPECT_EQ(obj->QueryInterface(IID_IUnknown, &out), S_OK);
  EXPECT_EQ(out, static_cast<ZUnknown*>(obj));
  EXPECT_EQ(obj->refCount, 0);  // QueryInterface does not count
  EXPECT_EQ(obj->AddRef(), 1u);
  EXPECT_EQ(obj->AddRef(), 2u);
  bool copyGone = false;
  Counted copy(*obj);  // QUIRK(copy-keeps-count): copies carry the count
  copy.gone = &copyGone;
  EXPECT_EQ(copy.refCount, 2);
  EXPECT_EQ(obj->Release(), 1u);
  EXPECT_FALSE(gone);
  EXPECT_EQ(obj->Release(), 0u);
  EXPECT_TRUE(gone);

  bool fresh = false;
  EXPECT_EQ((new Counted(&fresh))->Release(), 0u);  // never AddRef'ed
  EXPECT_TRUE(fresh);
}

// A worker that doubles each request; request 0 makes it reply and stop.
// Every request after the first waits for `gate` before it is answered.
class Doubler : public ZThread {
 public:
  std::atomic<int> served{0};
  ZEvent gate;

 protected:
  DWORD ThreadProc() override {
    for (;;) {
      const DWORD r = GetRequest();
      if (served.load() > 0) gate.Wait(INFINITE);
      ++served;
      Reply(r * 2);
      if (r == 0) return 7;
    }
  }
};

TEST(Thread, HandshakeAndTheNeverResetReplyEvent) {
  Doubler worker;
  EXPECT_EQ(worker.CallWorker(5), static_cast<DWORD>(E_FAIL));  // no thread yet
  EXPECT_FALSE(worker.ThreadExists());
  ASSERT_TRUE(worker.Create());
  EXPECT_TRUE(worker.ThreadExists());
  EXPECT_FALSE(worker.Create());  // one thread at a time
  EXPECT_EQ(worker.CallWorker(21), 42u);
  // The reply event was never reset: the next call returns at once with
  // the value still held, while the worker has not answered it.
  EXPECT_EQ(worker.CallWorker(8), 42u);  // QUIRK(reply-stays-set)
  EXPECT_EQ(worker.served.load(), 1);
  worker.gate.Set();
  for (int i = 0; i < 400 && worker.served.load() < 2; ++i) std::this_thread::sleep_for(5ms);
  EXPECT_EQ(worker.served.load(), 2);
  worker.gate.Reset();
  EXPECT_EQ(worker.CallWorker(0), 16u);  // again at once, with the answer to 8
  worker.gate.Set();
  worker.Close();  // joins the worker after it served 0
  EXPECT_EQ(worker.served.load(), 3);
  EXPECT_FALSE(worker.ThreadExists());
  worker.Close();  // no thread: returns at once
}

class Stopper : public ZThread {
 protected:
  DWORD ThreadProc() override {
    Reply(GetRequest());
    return 0;
  }
};

TEST(Thread, ConcurrentClosesJoinOnce) {
  Stopper s;
  ASSERT_TRUE(s.Create());
  EXPECT_EQ(s.CallWorker(3), 3u);
  std::thread a([&] { s.Close(); });
  std::thread b([&] { s.Close(); });
  a.join();
  b.join();
  EXPECT_FALSE(s.ThreadExists());
}

TEST(CritSec, RecursiveAndLockedFlag) {
  ZCritSec cs;
  cs.Lock();
  EXPECT_EQ(cs.locked, 1);
  cs.Lock();  // the owner may enter again
  cs.Unlock();
  EXPECT_EQ(cs.locked, 0);  // informative only
  std::atomic<bool> entered{false};
  std::thread other([&] {
    ZAutoLock lock(&cs);
    entered = true;
  });
  std::this_thread::sleep_for(30ms);
  EXPECT_FALSE(entered.load());  // still held once
  cs.Unlock();
  other.join();
  EXPECT_TRUE(entered.load());
}

TEST(MsgCritSec, WaiterDispatchesTheMessageTheHolderWaitsFor) {
  ZMsgCritSec lock;
  std::atomic<pf::ThreadId> uiThread{0};
  ZEvent uiReady, handled, holderDone;
  std::atomic<bool> holding{false};

  // The worker takes the lock, then needs the UI thread to handle a
  // message before it can let go. The UI thread meanwhile wants the lock.
  std::thread holder([&] {
    lock.Lock();
    holding = true;
    uiReady.Wait(INFINITE);
    pf::PostThreadMessage(uiThread.load(), [&] { handled.Set(); });
    const int got = handled.Wait(5000);
    lock.Unlock();
    EXPECT_EQ(got, 1) << "the waiting thread did not pump its messages";
    holderDone.Set();
  });

  uiThread = pf::CurrentThreadId();
  while (!holding.load()) std::this_thread::yield();
  uiReady.Set();
  {
    ZAutoLock autoLock(&lock);  // pumps through the virtual slot
  }
  EXPECT_EQ(holderDone.Wait(5000), 1);
  holder.join();
}

TEST(MessageQueue, PostsToUnknownOrFinishedThreadsFail) {
  EXPECT_FALSE(pf::PostThreadMessage(987654321, [] {}));
  std::atomic<pf::ThreadId> id{0};
  std::thread t([&] { id = pf::CurrentThreadId(); });
  t.join();
  EXPECT_FALSE(pf::PostThreadMessage(id.load(), [] {}));
  int ran = 0;
  ASSERT_TRUE(pf::PostThreadMessage(pf::CurrentThreadId(), [&] { ++ran; }));
  ASSERT_TRUE(pf::PostThreadMessage(pf::CurrentThreadId(), [&] { ran *= 10; }));
  EXPECT_TRUE(pf::PeekAndDispatchMessage() && pf::PeekAndDispatchMessage());
  EXPECT_FALSE(pf::PeekAndDispatchMessage());
  EXPECT_EQ(ran, 10);  // in posting order
}

}  // namespace
