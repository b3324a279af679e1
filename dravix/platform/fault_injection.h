// Fault injection for the file layer: fail the Nth file operation.
//
// Every open, write, flush (fsync), rename and truncation that a writer of
// this library makes goes through IoFaultHere() first. When a countdown is
// armed, the call that brings it to zero fails with EIO instead of reaching
// the kernel, and every later call proceeds. A test runs a writer with the
// 1st, 2nd, ... Nth call failing until a run sees no injected fault, and
// checks each time that the old file survives whole and the failure is
// reported.
//
// The countdown is process-wide. A test arms it with FailNthIoCall(); a run
// of the real program arms it with the environment variable DRAVIX_FAIL_IO=N
// (read at the first hooked call), optionally limited to some kinds of call
// with DRAVIX_FAIL_IO_KINDS, a comma list of open, write, sync, rename,
// truncate. With DRAVIX_FAIL_IO_ACTION=stop the Nth call does not fail: the
// process stops itself (SIGSTOP) there and the call proceeds once it is
// continued, so a test can kill or interrupt the program at a known point
// of its I/O. Unarmed, a hooked call costs one relaxed atomic load.
#pragma once

#include <cstdint>

namespace dravix::platform {

enum class IoKind { kOpen, kWrite, kSync, kRename, kTruncate };

// Arms the countdown: the `n`th hooked call from now fails (n <= 0 disarms).
// `kinds` is a bit set of (1 << IoKind) to count; 0 counts every kind.
void FailNthIoCall(int64_t n, unsigned kinds = 0, bool stopInstead = false);
// Hooked calls counted since the countdown was last armed.
int64_t IoCallsCounted();
// True when the armed countdown has fired.
bool IoFaultInjected();

// Called by the file layer before an operation of `kind`: true (with errno
// set to EIO) when this call must fail.
bool IoFaultHere(IoKind kind);

}  // namespace dravix::platform
