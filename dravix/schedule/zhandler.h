// The receivers of dispatcher events.
//
// A component registers one ZHandler per event id with the dispatcher
// (dravix/schedule/idispatcher.h); Run then receives the event id and its
// two parameters. The parameters are pointer-sized, since the first often
// carries an object pointer (a ZUnknown that the dispatcher releases after a
// queued event) and the second may too.
#pragma once

#include "dravix/platform/wintypes.h"

class ZHandler {
 public:
  ZHandler() = default;
  // Copying copies nothing: a handler has no state of its own.
  ZHandler(const ZHandler&) {}
  ZHandler& operator=(const ZHandler&) { return *this; }

  // Handles one event; the base handles nothing and returns 0.
  virtual LONG_PTR Run(UINT id, UINT_PTR first, LONG_PTR second);
  virtual ~ZHandler() = default;
};

// A single-entry callback. Its destructor is deliberately not virtual: a
// ZCallback is never deleted through a base pointer.
class ZCallback {
 public:
  ZCallback() = default;
  ZCallback(const ZCallback&) = default;
  ZCallback& operator=(const ZCallback&) = default;
  ~ZCallback() = default;

  // The base returns 0.
  virtual LONG_PTR Callback(UINT value, LONG_PTR param);
};
