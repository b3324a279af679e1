// The event dispatcher.
//
// Locks, in the order they may nest: a queue lock (or the time-event lock,
// or the event-view check lock) is held while a handler runs; the handler
// map's lock and the event-view mutex are only held for a lookup or an edit
// and never around a handler, so a handler may register handlers, send
// events, post time events and use the event view. The queue threads pace
// themselves on a steady clock through a condition variable, so that the
// destructor can wake and join them at once.
#include "dravix/schedule/idispatcher.h"

#include "dravix/base/single_instance.h"
#include "dravix/schedule/event_ids.h"

#include "dravix/base/ztime.h"
#include "dravix/base/zunknown.h"
#include "dravix/platform/clock.h"

#include <algorithm>

namespace {

// The clock as a ZM time. Converting is the costly part, so the last
// conversion is kept per thread and reused while the clock shows the same
// second; the answer is GetSysTime()'s.
__int64 CurrentZMTime() {
  thread_local std::time_t lastSecond = -1;
  thread_local __int64 lastZM = 0;
  const std::time_t now = dravix::platform::Now();
  if (now != lastSecond) {
    lastZM = SysTimeToZMTime(GetSysTime());
    // GetSysTime reads the clock again: keep the pair only if it is one second.
    lastSecond = dravix::platform::Now() == now ? now : -1;
  }
  return lastZM;
}

}  // namespace

std::unique_ptr<IDispatcher> IDispatcher::sm_inst;

IDispatcher* IDispatcher::Instance() {
  return dravix::base::SingleInstance(sm_inst, [] { return new IDispatcher; });
}

IDispatcher::IDispatcher() {
  StartThread();
  StartNetThread();
}

IDispatcher::~IDispatcher() {
  {
    std::lock_guard<std::mutex> lock(m_sleepMutex);
    m_stop.store(true);
  }
  m_sleepCv.notify_all();
  if (m_thread.joinable()) m_thread.join();
  if (m_netThread.joinable()) m_netThread.join();
}

// --- Handlers and events -------------------------------------------------

void IDispatcher::RegisterHandler(int id, ZHandler* handler) {
  std::unique_lock<std::shared_mutex> lock(m_handlerMutex);
  m_handlers[static_cast<UINT>(id)] = handler;
}

ZHandler* IDispatcher::FindHandler(UINT id) {
  std::shared_lock<std::shared_mutex> lock(m_handlerMutex);
  const auto it = m_handlers.find(id);
  return it == m_handlers.end() ? nullptr : it->second;
}

LONG_PTR IDispatcher::SendEvent(UINT id, UINT_PTR first, LONG_PTR second) {
  ZHandler* handler = FindHandler(id);
  return handler == nullptr ? -1 : handler->Run(id, first, second);
}

LONG IDispatcher::SendActionEvent(UINT id, UINT_PTR first, LONG_PTR second) {
  ZAutoLock lock(&m_actionLock);
  m_actionQueue.push_back(QueuedEvent{id, first, second});
  return 0;
}

LONG IDispatcher::SendNetEvent(UINT id, UINT_PTR first, LONG_PTR second) {
  ZAutoLock lock(&m_netLock);
  m_netQueue.push_back(QueuedEvent{id, first, second});
  return 0;
}

// --- Queue threads ---------------------------------------------------------

BOOL IDispatcher::StartThread() {
  if (m_thread.joinable()) return FALSE;
  try {
    m_thread = std::thread([this] { InitialThreadProc(this); });
  } catch (...) {
    return FALSE;
  }
  return TRUE;
}

BOOL IDispatcher::StartNetThread() {
  if (m_netThread.joinable()) return FALSE;
  try {
    m_netThread = std::thread([this] { InitialNetThreadProc(this); });
  } catch (...) {
    return FALSE;
  }
  return TRUE;
}

DWORD IDispatcher::InitialThreadProc(void* self) {
  static_cast<IDispatcher*>(self)->ThreadProc();
  return 0;
}

DWORD IDispatcher::InitialNetThreadProc(void* self) {
  static_cast<IDispatcher*>(self)->ThreadNetProc();
  return 0;
}

DWORD IDispatcher::ThreadProc() { return QueueLoop(m_actionQueue, m_actionLock); }

DWORD IDispatcher::ThreadNetProc() { return QueueLoop(m_netQueue, m_netLock); }

DWORD IDispatcher::QueueLoop(std::deque<QueuedEvent>& queue, ZCritSec& lock) {
  while (!m_stop.load()) {
    DrainOne(queue, lock);
    Pause();
  }
  return 0;
}

void IDispatcher::DrainOne(std::deque<QueuedEvent>& queue, ZCritSec& lock) {
  ZAutoLock hold(&lock);
  if (queue.empty()) return;
  const QueuedEvent event = queue.front();
  if (ZHandler* handler = FindHandler(event.id)) {
    try {
      handler->Run(event.id, event.first, event.second);
    } catch (...) {
      // A handler's exception must not end the dispatcher's thread.
    }
    // The first parameter carries a reference-counted object, handed over
    // with the event; it is released only when a handler took the event.
    if (event.first != 0) reinterpret_cast<ZUnknown*>(event.first)->Release();
  }
  queue.pop_front();
  if (queue.empty()) queue.shrink_to_fit();
}

void IDispatcher::Pause() {
  std::unique_lock<std::mutex> lock(m_sleepMutex);
  const auto start = std::chrono::steady_clock::now();
  // The interval may change while waiting (SetQueueInterval notifies).
  while (!m_stop.load()) {
    const auto deadline = start + m_interval;
    if (std::chrono::steady_clock::now() >= deadline) return;
    m_sleepCv.wait_until(lock, deadline);
  }
}

void IDispatcher::SetQueueInterval(std::chrono::microseconds interval) {
  {
    std::lock_guard<std::mutex> lock(m_sleepMutex);
    m_interval = interval;
  }
  m_sleepCv.notify_all();
}

void IDispatcher::WaitForComplete() {}

void IDispatcher::SetID(int id) { m_id.store(id); }
int IDispatcher::GetID() const { return m_id.load(); }

size_t IDispatcher::GetActionQueueSize() {
  ZAutoLock lock(&m_actionLock);
  return m_actionQueue.size();
}

size_t IDispatcher::GetNetQueueSize() {
  ZAutoLock lock(&m_netLock);
  return m_netQueue.size();
}

// --- Time events -----------------------------------------------------------

LONG IDispatcher::PostTimeEvent(UINT id, const SYSTEMTIME& due, UINT_PTR first, LONG_PTR second, int tag) {
  ZAutoLock lock(&m_timeLock);
  m_timeEvents.push_back(TimeEvent{id, due, first, second, tag, 0, SysTimeToZMTime(due)});
  return 0;
}

LONG IDispatcher::ProcessTimeEvent() {
  ZAutoLock lock(&m_timeLock);
  // By index, re-reading the size: a handler may post (growing the array)
  // or cancel events while it runs.
  for (size_t i = 0; i < m_timeEvents.size(); ++i) {
    if (m_timeEvents[i].done != 0) continue;
    if (!(m_timeEvents[i].dueZM < CurrentZMTime())) continue;
    ZHandler* handler = FindHandler(m_timeEvents[i].id);
    if (handler == nullptr) continue;  // stays pending until a handler exists
    m_timeEvents[i].done = 1;          // before Run, so a nested call cannot fire it twice
    const TimeEvent event = m_timeEvents[i];
    handler->Run(event.id, event.first, event.second);
  }
  RemoveDoneEvents();
  return 0;
}

// The recorder's removal scan walked the array from index 0 and, after
// each removal, went on from index 1 (the element that had just moved into
// index 0 was not looked at again in that call). Since nothing changes
// during the scan, that has one visible effect, kept here in a single pass:
// if the first event is done it is removed and its successor is kept for
// this call whatever its state; every other done event is removed.
void IDispatcher::RemoveDoneEvents() {
  if (m_timeEvents.empty()) return;
  if (m_timeEvents[0].done != 0) m_timeEvents.erase(m_timeEvents.begin());
  // Index 0 is kept either way: it was not done, or it just moved there.
  if (m_timeEvents.size() <= 1) return;
  const auto end =
      std::remove_if(m_timeEvents.begin() + 1, m_timeEvents.end(), [](const TimeEvent& e) { return e.done != 0; });
  m_timeEvents.erase(end, m_timeEvents.end());
}

LONG IDispatcher::DeleteTimeEvent(UINT tag) {
  ZAutoLock lock(&m_timeLock);
  for (TimeEvent& e : m_timeEvents)
    if (e.tag == static_cast<int>(tag)) e.done = 1;
  return 0;
}

LONG IDispatcher::DeleteAutoResetEvent(UINT id) {
  ZAutoLock lock(&m_timeLock);
  for (TimeEvent& e : m_timeEvents)
    if (e.id == id) e.done = 1;
  return 0;
}

std::vector<IDispatcher::tagDSTIMEEVENT> IDispatcher::GetTimeEvents() {
  ZAutoLock lock(&m_timeLock);
  std::vector<tagDSTIMEEVENT> out;
  out.reserve(m_timeEvents.size());
  for (const TimeEvent& e : m_timeEvents) out.push_back(tagDSTIMEEVENT{e.id, e.due, e.first, e.second, e.tag, e.done});
  return out;
}

size_t IDispatcher::GetTimeEventCount() {
  ZAutoLock lock(&m_timeLock);
  return m_timeEvents.size();
}

// --- Event view ------------------------------------------------------------

void IDispatcher::AddToEventViewQueue(int first, int second, int priority) {
  ZAutoLock lock(&m_viewAddLock);
  std::lock_guard<std::mutex> guard(m_viewMutex);
  const auto at = std::find_if(m_viewQueue.begin(), m_viewQueue.end(),
                               [priority](const tagDSSINGLEVIEWCHANGE& v) { return v.priority >= priority; });
  m_viewQueue.insert(at, tagDSSINGLEVIEWCHANGE{first, second, priority});
}

BOOL IDispatcher::SearchInnerEvent(int first, int second) {
  std::lock_guard<std::mutex> guard(m_viewMutex);
  const auto it = std::find_if(m_viewQueue.begin(), m_viewQueue.end(),
                               [&](const tagDSSINGLEVIEWCHANGE& v) { return v.first == first && v.second == second; });
  if (it == m_viewQueue.end()) return FALSE;
  m_viewQueue.erase(it);
  return TRUE;
}

BOOL IDispatcher::CheckEventView(int first, int second) {
  ZAutoLock lock(&m_viewCheckLock);
  if (SearchInnerEvent(first, second)) return FALSE;
  tagDSSINGLEVIEWCHANGE next{};
  {
    std::lock_guard<std::mutex> guard(m_viewMutex);
    if (m_viewQueue.empty()) return TRUE;
    const auto it = std::find_if(m_viewQueue.begin(), m_viewQueue.end(), [&](const tagDSSINGLEVIEWCHANGE& v) {
      return v.first != first || v.second != second;
    });
    if (it == m_viewQueue.end()) return TRUE;
    next = *it;
    m_eventView[0] = m_eventView[1] = m_eventView[2] = -1;
    m_serial = 1;
  }
  SendEvent(dravix::schedule::kEventShowView, static_cast<UINT_PTR>(static_cast<UINT>(next.first)), next.second);
  {
    // The view just shown; the handler may have queued others meanwhile.
    std::lock_guard<std::mutex> guard(m_viewMutex);
    const auto it = std::find_if(m_viewQueue.begin(), m_viewQueue.end(), [&](const tagDSSINGLEVIEWCHANGE& v) {
      return v.first == next.first && v.second == next.second && v.priority == next.priority;
    });
    if (it != m_viewQueue.end()) m_viewQueue.erase(it);
  }
  return FALSE;
}

void IDispatcher::SetEventView(int first, int second) {
  std::lock_guard<std::mutex> guard(m_viewMutex);
  m_eventView[0] = first;
  m_eventView[1] = second;
}

void IDispatcher::ZeroEventView() {
  std::lock_guard<std::mutex> guard(m_viewMutex);
  m_eventView[0] = m_eventView[1] = m_eventView[2] = -1;
}

BOOL IDispatcher::IsEventViewActive() {
  std::lock_guard<std::mutex> guard(m_viewMutex);
  return m_eventView[0] != -1 ? TRUE : FALSE;
}

void IDispatcher::SetIsSerial(int serial) {
  std::lock_guard<std::mutex> guard(m_viewMutex);
  m_serial = serial;
}

int IDispatcher::GetIsSerial() {
  std::lock_guard<std::mutex> guard(m_viewMutex);
  return m_serial;
}

BOOL IDispatcher::IsQueueEmpty() {
  std::lock_guard<std::mutex> guard(m_viewMutex);
  return m_viewQueue.empty() ? TRUE : FALSE;
}

void IDispatcher::SetViewMode(int first, int second) {
  std::lock_guard<std::mutex> guard(m_viewMutex);
  if (!m_viewQueue.empty()) return;
  m_viewMode[0] = first;
  m_viewMode[1] = second;
}

void IDispatcher::GetViewMode(int& first, int& second) {
  std::lock_guard<std::mutex> guard(m_viewMutex);
  first = m_viewMode[0];
  second = m_viewMode[1];
}

BOOL IDispatcher::SetEventViewState(tagDSEVENTSTATE state) {
  std::lock_guard<std::mutex> guard(m_viewMutex);
  if (!m_viewQueue.empty()) return FALSE;
  m_eventState = state;
  return TRUE;
}

BOOL IDispatcher::GetEventViewState(tagDSEVENTSTATE& state) {
  std::lock_guard<std::mutex> guard(m_viewMutex);
  if (!m_viewQueue.empty()) return FALSE;
  state = m_eventState;
  return TRUE;
}

std::vector<IDispatcher::tagDSSINGLEVIEWCHANGE> IDispatcher::GetEventViewQueue() {
  std::lock_guard<std::mutex> guard(m_viewMutex);
  return m_viewQueue;
}
