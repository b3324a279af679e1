// IDispatcher: the process-wide event hub.
//
// Components register one ZHandler per event id; events reach it in four
// ways:
//   - SendEvent: at once, on the caller's thread;
//   - SendActionEvent / SendNetEvent: through one of two FIFO queues, each
//     drained by a thread of its own that delivers at most one event per
//     second (the handler runs on that thread with the queue locked, then
//     the object the first parameter points to is released);
//   - PostTimeEvent: at a wall-clock time, fired by ProcessTimeEvent, which
//     the host calls from a timer (about once a second suits the clock).
// It also keeps the event-view queue: single-camera views waiting to be
// shown, in order of priority, handed out one at a time as event 900.
//
// The event ids the recorder uses are listed in event_ids.h.
//
// Register handlers before events flow. A handler of a queued or timed
// event runs while that queue's (or the time events') lock is held: it may
// post to the same queue from its own thread, but must not wait for
// another thread that posts to it.
//
// The singleton lives until process exit; its destructor stops and joins
// both threads.
#pragma once

#include "dravix/base/zcritsec.h"
#include "dravix/platform/wintypes.h"
#include "dravix/schedule/zhandler.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <thread>
#include <unordered_map>
#include <vector>

// The host's event-view state: four values stored and returned as a block.
struct tagDSEVENTSTATE {
  LONG value[4];
};
static_assert(sizeof(tagDSEVENTSTATE) == 16);

class IDispatcher {
 public:
  // One pending single-camera view: two values the host chose (a layout and
  // a camera, say), compared as a pair, and a priority (lower shows first).
  struct tagDSSINGLEVIEWCHANGE {
    int first;
    int second;
    int priority;
  };

  // The pause of each queue thread after a delivery (or an empty look).
  static constexpr std::chrono::microseconds kQueueInterval{1000000};

  // The one dispatcher, created (and its two threads started) on first use.
  static IDispatcher* Instance();
  virtual ~IDispatcher();
  IDispatcher(const IDispatcher&) = delete;
  IDispatcher& operator=(const IDispatcher&) = delete;

  // --- Handlers and events ----------------------------------------------
  // Inserts or replaces the handler of `id`. The dispatcher never owns or
  // deletes handlers; a null handler counts as none.
  void RegisterHandler(int id, ZHandler* handler);
  // The handler's Run result, on the caller's thread; -1 when `id` has no
  // handler.
  LONG_PTR SendEvent(UINT id, UINT_PTR first, LONG_PTR second);
  // Append to the action / net queue. Always 0. When the handler runs, the
  // dispatcher then calls Release on the ZUnknown that `first` points to
  // (unless `first` is 0); an event whose id has no handler is dropped
  // without a release.
  LONG SendActionEvent(UINT id, UINT_PTR first, LONG_PTR second);
  LONG SendNetEvent(UINT id, UINT_PTR first, LONG_PTR second);

  // --- Time events -------------------------------------------------------
  // Adds an event due at `due` (local time, to the second). Events with the
  // same id and time may coexist. `tag` groups events for DeleteTimeEvent
  // (the schedule manager uses camera + 100). Always 0.
  LONG PostTimeEvent(UINT id, const SYSTEMTIME& due, UINT_PTR first, LONG_PTR second, int tag);
  // Fires, in posting order, every pending event whose due time is strictly
  // earlier than the clock (read for each event) and whose id has a
  // handler; a due event without a handler waits for a later call. Then
  // drops fired and cancelled events, with one deliberate quirk, QUIRK(removal-scan): when the
  // first event is dropped, the event that moves into first place stays
  // until the next call even if it is done. Always 0.
  LONG ProcessTimeEvent();
  // Cancels every pending event with this tag / this id: they never fire
  // and are gone within two ProcessTimeEvent calls. Always 0.
  LONG DeleteTimeEvent(UINT tag);
  LONG DeleteAutoResetEvent(UINT id);

  // --- Threads -----------------------------------------------------------
  // Start the action-queue / net-queue thread; FALSE when it already runs
  // or cannot start. The constructor calls both.
  BOOL StartThread();
  BOOL StartNetThread();
  static DWORD InitialThreadProc(void* self);
  static DWORD InitialNetThreadProc(void* self);
  // The net queue's loop; returns only when the dispatcher is destroyed.
  DWORD ThreadNetProc();
  // Does nothing.
  void WaitForComplete();
  // Stores an id the dispatcher itself never reads.
  void SetID(int id);
  int GetID() const;

  // --- Event view -------------------------------------------------------
  // Inserts before the first view whose priority is >= `priority` (so the
  // newest of equal priorities comes first). Duplicates are kept.
  void AddToEventViewQueue(int first, int second, int priority);
  // Called when the view (first, second) has finished. FALSE when that
  // view was still queued (it is only removed); TRUE when nothing else is
  // queued; otherwise clears the current view, sets the serial flag, sends
  // event 900 with the next view's two values, removes that view and
  // returns FALSE.
  BOOL CheckEventView(int first, int second);
  // Removes the first queued view equal to the pair: TRUE, or FALSE when
  // there is none.
  BOOL SearchInnerEvent(int first, int second);
  // Sets the first two values of the current view.
  void SetEventView(int first, int second);
  // Sets all three values of the current view to -1.
  void ZeroEventView();
  // TRUE when the current view's first value is not -1.
  BOOL IsEventViewActive();
  void SetIsSerial(int serial);
  int GetIsSerial();
  // TRUE when no view is queued.
  BOOL IsQueueEmpty();
  // Stored only while no view is queued; GetViewMode always answers.
  void SetViewMode(int first, int second);
  void GetViewMode(int& first, int& second);
  // Stored / copied only while no view is queued (TRUE), else FALSE.
  BOOL SetEventViewState(tagDSEVENTSTATE state);
  BOOL GetEventViewState(tagDSEVENTSTATE& state);
  // A copy of the queued views, in order.
  std::vector<tagDSSINGLEVIEWCHANGE> GetEventViewQueue();

  // --- Inspection and tests ---------------------------------------------
  // A time event as posted (GetTimeEvents).
  struct tagDSTIMEEVENT {
    UINT id;
    SYSTEMTIME due;
    UINT_PTR first;
    LONG_PTR second;
    int tag;
    int done;
  };
  size_t GetTimeEventCount();  // pending and done-but-not-yet-dropped
  // A copy of the same events, in posting order.
  std::vector<tagDSTIMEEVENT> GetTimeEvents();
  size_t GetActionQueueSize();
  size_t GetNetQueueSize();
  // Replaces the queue threads' pause (kQueueInterval) for tests that
  // cannot wait a second per event; takes effect at once.
  void SetQueueInterval(std::chrono::microseconds interval);

 protected:
  // The action queue's loop; returns only when the dispatcher is destroyed.
  virtual DWORD ThreadProc();

 private:
  struct QueuedEvent {
    UINT id;
    UINT_PTR first;
    LONG_PTR second;
  };
  struct TimeEvent {
    UINT id;
    SYSTEMTIME due;
    UINT_PTR first;
    LONG_PTR second;
    int tag;
    int done;
    __int64 dueZM;  // `due` as a ZM time, for the comparison
  };

  IDispatcher();
  ZHandler* FindHandler(UINT id);
  // Delivers one event of `queue` (or none); called by both threads.
  void DrainOne(std::deque<QueuedEvent>& queue, ZCritSec& lock);
  DWORD QueueLoop(std::deque<QueuedEvent>& queue, ZCritSec& lock);
  // Sleeps for the queue interval; returns early when stopping.
  void Pause();
  // Drops done time events; called with the time-event lock held.
  void RemoveDoneEvents();

  static std::unique_ptr<IDispatcher> sm_inst;

  // Event view. The vector and the fields below are guarded by m_viewMutex;
  // the two named locks order adds and checks as the host expects (an add
  // and a check may overlap; two checks may not).
  int m_eventView[3] = {-1, -1, -1};
  int m_viewMode[2] = {-1, -1};
  std::vector<tagDSSINGLEVIEWCHANGE> m_viewQueue;
  int m_serial = 0;
  tagDSEVENTSTATE m_eventState{};
  std::mutex m_viewMutex;

  std::unordered_map<UINT, ZHandler*> m_handlers;
  std::shared_mutex m_handlerMutex;  // guards the map only, never held while a handler runs

  std::deque<QueuedEvent> m_actionQueue;
  std::vector<TimeEvent> m_timeEvents;
  std::thread m_thread;
  ZCritSec m_actionLock;
  ZCritSec m_timeLock;
  ZCritSec m_viewCheckLock;
  ZCritSec m_viewAddLock;
  std::atomic<int> m_id{0};
  ZCritSec m_netLock;
  std::deque<QueuedEvent> m_netQueue;
  std::thread m_netThread;

  // Stopping and pacing the two threads.
  std::mutex m_sleepMutex;
  std::condition_variable m_sleepCv;
  // Set under m_sleepMutex (so a pausing thread cannot miss it), read by
  // the loops without it.
  std::atomic<bool> m_stop{false};
  std::chrono::microseconds m_interval = kQueueInterval;  // under m_sleepMutex
};
