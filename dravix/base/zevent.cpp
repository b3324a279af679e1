#include "dravix/base/zevent.h"

ZEvent::ZEvent(int manualReset) : handle_(dravix::platform::CreateEvent(manualReset != 0, false)) {}

ZEvent::~ZEvent() {
  if (handle_ != nullptr) dravix::platform::CloseEvent(handle_);
}

void ZEvent::Set() { dravix::platform::SetEvent(handle_); }

void ZEvent::Reset() { dravix::platform::ResetEvent(handle_); }

int ZEvent::Wait(DWORD timeoutMs) {
  return dravix::platform::WaitForEvent(handle_, timeoutMs) == WAIT_OBJECT_0 ? 1 : 0;
}

int ZEvent::Check() { return Wait(0); }
