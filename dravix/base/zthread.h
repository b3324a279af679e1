// ZThread: a worker thread driven by a one-request-at-a-time handshake.
//
// A client calls CallWorker(r); the worker (inside ThreadProc) takes r with
// GetRequest() or CheckRequest(), acts, and answers with Reply(v). Both
// events are manual-reset and, QUIRK(reply-stays-set), the class never
// resets the reply event: once
// the worker has replied, a later CallWorker returns at once with whatever
// the return value holds. A derived class that needs every call to wait for
// its own answer must arrange that itself. A worker that never replies
// leaves CallWorker blocked for ever.
//
// Close() does not ask the worker to stop: make ThreadProc return first
// (normally through a request it answers), then Close() joins it.
// ZThread is neither copyable nor movable.
#pragma once

#include "dravix/base/zcritsec.h"
#include "dravix/base/zevent.h"
#include "dravix/platform/wintypes.h"

#include <atomic>

class ZThread {
 public:
  ZThread();
  virtual ~ZThread();
  ZThread(const ZThread&) = delete;
  ZThread& operator=(const ZThread&) = delete;

  // Starts the thread. FALSE if one already exists or creation failed.
  BOOL Create();
  // E_FAIL (as a DWORD) when no thread exists; otherwise the handshake.
  DWORD CallWorker(DWORD request);
  BOOL ThreadExists();
  // Joins the thread (if any) and forgets it; safe from two threads at once.
  void Close();

  static DWORD InitialThreadProc(void* self);

 protected:
  virtual DWORD ThreadProc() = 0;

  // Worker side. GetRequest blocks and does not reset the request event.
  DWORD GetRequest();
  // Polls the request event; stores the request in *request when not null.
  BOOL CheckRequest(DWORD* request);
  // Stores the result, resets the request event, sets the reply event.
  void Reply(DWORD result);
  HANDLE GetRequestHandle();
  DWORD GetRequestParam();

  ZEvent m_EventRequest{TRUE};
  ZEvent m_EventComplete{TRUE};
  // Atomic: the never-reset reply event lets a client read the return value
  // while the worker may be writing the next one.
  std::atomic<DWORD> m_dwParam{0};
  std::atomic<DWORD> m_dwReturnVal{0};
  std::atomic<HANDLE> m_hThread{nullptr};
  ZCritSec m_AccessLock;
  ZCritSec m_WorkerLock;  // reserved for the derived worker; never taken here
};
