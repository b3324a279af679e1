#include "dravix/base/zthread.h"

#include <new>
#include <system_error>
#include <thread>

ZThread::ZThread() = default;

ZThread::~ZThread() { Close(); }

BOOL ZThread::Create() {
  ZAutoLock lock(&m_AccessLock);
  if (m_hThread.load() != nullptr) return FALSE;
  std::thread* thread = nullptr;
  try {
    thread = new std::thread(&ZThread::InitialThreadProc, this);
  } catch (const std::system_error&) {
    return FALSE;
  } catch (const std::bad_alloc&) {
    return FALSE;
  }
  m_hThread.store(thread);
  return TRUE;
}

DWORD ZThread::InitialThreadProc(void* self) { return static_cast<ZThread*>(self)->ThreadProc(); }

DWORD ZThread::CallWorker(DWORD request) {
  ZAutoLock lock(&m_AccessLock);
  if (m_hThread.load() == nullptr) return static_cast<DWORD>(E_FAIL);
  m_dwParam = request;
  m_EventRequest.Set();
  m_EventComplete.Wait(INFINITE);
  return m_dwReturnVal;
}

DWORD ZThread::GetRequest() {
  m_EventRequest.Wait(INFINITE);
  return m_dwParam;
}

BOOL ZThread::CheckRequest(DWORD* request) {
  if (!m_EventRequest.Check()) return FALSE;
  if (request != nullptr) *request = m_dwParam;
  return TRUE;
}

void ZThread::Reply(DWORD result) {
  m_dwReturnVal = result;
  m_EventRequest.Reset();
  m_EventComplete.Set();
}

BOOL ZThread::ThreadExists() { return m_hThread.load() != nullptr ? TRUE : FALSE; }

HANDLE ZThread::GetRequestHandle() { return static_cast<HANDLE>(m_EventRequest); }

DWORD ZThread::GetRequestParam() { return m_dwParam; }

void ZThread::Close() {
  auto* thread = static_cast<std::thread*>(m_hThread.exchange(nullptr));
  if (thread == nullptr) return;
  if (thread->joinable()) {
    if (thread->get_id() == std::this_thread::get_id())
      thread->detach();  // closing from the worker itself: nothing to wait for
    else
      thread->join();
  }
  delete thread;
}
