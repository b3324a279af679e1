// Signalling events with Win32 semantics, as opaque handles: manual-reset
// events stay signalled until reset and release every waiter; auto-reset
// events release one waiter and reset themselves. WaitForAny waits on
// several events at once.
#pragma once

#include "dravix/platform/wintypes.h"

namespace dravix::platform {

// A new event, or nullptr on failure. Close it with CloseEvent.
HANDLE CreateEvent(bool manualReset, bool initiallySet);
void CloseEvent(HANDLE event);
bool SetEvent(HANDLE event);
bool ResetEvent(HANDLE event);

// WAIT_OBJECT_0 when signalled (an auto-reset event is consumed),
// WAIT_TIMEOUT when `timeoutMs` passed (INFINITE: never), WAIT_FAILED for a
// null handle.
DWORD WaitForEvent(HANDLE event, DWORD timeoutMs);
// Waits until any of `count` events is signalled: WAIT_OBJECT_0 + index of
// the lowest signalled one, WAIT_TIMEOUT, or WAIT_FAILED (a null handle,
// count 0).
DWORD WaitForAny(const HANDLE* events, DWORD count, DWORD timeoutMs);

}  // namespace dravix::platform
