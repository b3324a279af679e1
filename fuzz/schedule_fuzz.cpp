// A hostile "Schedule.zmi": parsing must not crash, hang or allocate beyond
// what the bytes can hold; a schedule that parses writes back to bytes that
// parse to the same schedule; and the manager's checks survive whatever
// modes, day types and windows it holds.
#include "dravix/base/zfile.h"
#include "dravix/schedule/schedule_file.h"
#include "dravix/schedule/zschedulemanager.h"

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

namespace {

void Setup() {
  // A program folder that does not exist: the manager starts with its
  // defaults and nothing is ever written.
  static const bool done = [] {
    SetModulePath("/nonexistent/dravix-schedule-fuzz/");
    return true;
  }();
  (void)done;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Setup();
  auto d = std::make_unique<dravix::schedule::ScheduleData>();
  if (!dravix::schedule::ParseScheduleFile(data, size, d.get(), nullptr)) return 0;

  const std::string bytes = dravix::schedule::SerializeScheduleFile(d->camera, d->list);
  auto again = std::make_unique<dravix::schedule::ScheduleData>();
  if (!dravix::schedule::ParseScheduleFile(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), again.get(),
                                           nullptr))
    std::abort();
  if (dravix::schedule::SerializeScheduleFile(again->camera, again->list) != bytes) std::abort();

  ZScheduleManager* m = ZScheduleManager::Instance();
  m->SaveSchedule(d->camera, d->list);
  for (int c = 0; c < kScheduleCameras; ++c) {
    std::string name;
    m->IsScheduleSetting(c);
    m->GetScheduleSetting(c, name);
    int mode = 0;
    m->IsRecord(c, mode);
    m->GetEventFrom(c);
  }
  return 0;
}
