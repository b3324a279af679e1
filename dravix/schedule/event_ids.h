// The event ids the recorder's components exchange through the dispatcher,
// with the words a person reads for them. Handlers are registered by id;
// the schedule manager posts 6, 8, 13, 14, 15 and 16, the dispatcher itself
// sends 900.
#pragma once

#include "dravix/platform/wintypes.h"

namespace dravix::schedule {

enum EventId : UINT {
  kEventStartRecording = 6,  // start recording on the camera in the first parameter
  kEventStopRecording = 8,   // stop recording on that camera
  kEventVisual = 13,         // re-evaluate the motion-detection schedule, due at once
  kEventBoundary = 14,       // a schedule period begins or ends (second parameter 0)
  kEventState15 = 15,        // schedule-state changes, paired with 6 at period ends
  kEventState16 = 16,
  kEventShowView = 900,  // show the next queued event view
};

// What an id means in a few words ("start recording"), or nullptr for an
// id not listed.
const char* EventIdMeaning(UINT id);

}  // namespace dravix::schedule
