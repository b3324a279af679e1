#include "dravix/schedule/event_ids.h"

namespace dravix::schedule {

const char* EventIdMeaning(UINT id) {
  switch (id) {
    case kEventStartRecording:
      return "start recording";
    case kEventStopRecording:
      return "stop recording";
    case kEventVisual:
      return "motion schedule";
    case kEventBoundary:
      return "period boundary";
    case kEventState15:
    case kEventState16:
      return "schedule state";
    case kEventShowView:
      return "show event view";
    default:
      return nullptr;
  }
}

}  // namespace dravix::schedule
