#include "dravix/recorder/recorder.h"

#include "dravix/config/switches.h"
#include "dravix/live/liveshare.h"
#include "dravix/platform/byte_lock.h"
#include "dravix/platform/clock.h"
#include "dravix/platform/files.h"
#include "dravix/recorder/recycler.h"
#include "dravix/schedule/event_ids.h"
#include "dravix/schedule/idispatcher.h"
#include "dravix/schedule/zhandler.h"
#include "dravix/schedule/zschedulemanager.h"
#include "dravix/settings/setting.h"

#include <chrono>
#include <filesystem>
#include <map>
#include <set>

namespace dravix::recorder {

struct Recorder::Impl {
  struct Camera {
    CameraRecorderSettings settings;
    bool scheduled = false;
    std::unique_ptr<CameraRecorder> recorder;  // set while it records
    std::string failure;
    platform::ByteLock claim;  // this camera of its record folder, while the recorder runs
    uint64_t lastPictures = 0, lastBytes = 0;
    std::chrono::steady_clock::time_point lastLook = std::chrono::steady_clock::now();
  };

  // Events 6 and 8 of the schedule, for the cameras of this recorder.
  class Switch : public ZHandler {
   public:
    explicit Switch(Impl* impl) : impl_(impl) {}
    LONG_PTR Run(UINT id, UINT_PTR first, LONG_PTR) override {
      const int camera = static_cast<int>(first) + 1;
      if (id == schedule::kEventStartRecording) impl_->StartCamera(camera);
      if (id == schedule::kEventStopRecording) impl_->StopCamera(camera);
      return 0;
    }

   private:
    Impl* impl_;
  };

  std::vector<Camera> cameras;
  std::function<void(const ClosedRecording&)> onClosed;
  Switch handler{this};
  bool started = false;
  WORD postedDay = 0;  // the day of month the schedule was last posted for
  RecorderDisk disk;
  std::vector<std::string> recycled;
  std::chrono::steady_clock::time_point lastRecycle;

  // Makes room on each record folder's disk when recycling is on.
  void Recycle() {
    const auto now = std::chrono::steady_clock::now();
    if (now - lastRecycle < std::chrono::seconds(10)) return;
    lastRecycle = now;
    tagDSGENERALOPTION general{};
    ISetting::Instance()->GetGeneral(general);
    if (!general.bAutoRecycle) return;
    std::set<std::string> folders;
    for (const Camera& c : cameras) folders.insert(c.settings.folder);
    for (const std::string& folder : folders) {
      platform::DiskSpace space{};
      const bool known = platform::QueryDiskSpace(folder, &space);
      const uint64_t total = disk.total ? disk.total(folder) : known ? space.total : 0;
      const uint64_t free = disk.free ? disk.free(folder) : known ? space.freeToCaller : 0;
      const double ratio = disk.keepRatio >= 0 ? disk.keepRatio : GetKeepStorageSize();
      if (total == 0 || ratio <= 0 || ratio >= 1) continue;
      const auto needFree = static_cast<uint64_t>(static_cast<double>(total) * (1 - ratio));
      if (free >= needFree) continue;
      const RecycleResult r = RecycleOldest(
          folder, needFree, [](const std::string& p) { return ::ZShareMem::Instance()->HasToken(p.c_str()) != 0; },
          disk.free);
      recycled.insert(recycled.end(), r.deleted.begin(), r.deleted.end());
    }
  }

  Camera* Find(int camera) {
    for (Camera& c : cameras)
      if (c.settings.camera == camera) return &c;
    return nullptr;
  }

  void StartCamera(int number) {
    Camera* c = Find(number);
    if (c == nullptr || c->recorder) return;
    auto r = std::make_unique<CameraRecorder>();
    if (onClosed) r->OnFileClosed(onClosed);
    std::string why;
    if (!r->Start(c->settings, &why)) {
      c->failure = why;
      return;
    }
    c->failure.clear();
    c->recorder = std::move(r);
  }

  void StopCamera(int number) {
    Camera* c = Find(number);
    if (c == nullptr || !c->recorder) return;
    c->recorder->Stop();
    if (!c->recorder->Error().empty()) c->failure = c->recorder->Error();
    c->recorder.reset();
  }

  // Makes the camera's record folder and claims the camera in it
  // (kRecordLock), so that no second recorder writes the same camera's
  // files there. Why not, or "".
  std::string Claim(Camera* c) {
    const std::string& folder = c->settings.folder;
    std::error_code ec;
    std::filesystem::create_directories(folder, ec);
    if (ec) return "cannot make the record folder " + folder + ": " + ec.message();
    std::string why;
    switch (c->claim.TryAcquire(folder + "/" + kRecordLock, c->settings.camera, &why)) {
      case platform::ByteLock::Result::kTaken:
        return "";
      case platform::ByteLock::Result::kHeldElsewhere:
        return "camera " + std::to_string(c->settings.camera) + " is already being recorded into " + folder +
               " by another recorder";
      case platform::ByteLock::Result::kError:
        break;
    }
    return why;
  }

  // Posts today's windows of every scheduled camera, once a day.
  void PostDay() {
    const SYSTEMTIME today = platform::LocalNow();
    if (today.wDay == postedDay) return;
    postedDay = today.wDay;
    for (Camera& c : cameras)
      if (c.scheduled) ISetting::Instance()->PostTimeSchedling(c.settings.camera - 1);
  }
};

Recorder::Recorder() : impl_(std::make_unique<Impl>()) {}

Recorder::~Recorder() { Stop(); }

void Recorder::SetDisk(RecorderDisk disk) { impl_->disk = std::move(disk); }

const std::vector<std::string>& Recorder::Recycled() const { return impl_->recycled; }

void Recorder::OnFileClosed(std::function<void(const ClosedRecording&)> callback) {
  impl_->onClosed = std::move(callback);
}

bool Recorder::Start(std::vector<CameraRecorderSettings> cameras, std::string* error) {
  Impl& m = *impl_;
  Stop();
  m.cameras.clear();
  for (CameraRecorderSettings& s : cameras) {
    Impl::Camera c;
    c.settings = std::move(s);
    c.scheduled = ZScheduleManager::Instance()->IsEnabled(c.settings.camera - 1) == 1;
    m.cameras.push_back(std::move(c));
  }
  for (Impl::Camera& c : m.cameras) {
    std::string why = m.Claim(&c);
    if (!why.empty()) {
      if (error) *error = why;
      m.cameras.clear();
      return false;
    }
  }
  IDispatcher* d = IDispatcher::Instance();
  d->RegisterHandler(schedule::kEventStartRecording, &m.handler);
  d->RegisterHandler(schedule::kEventStopRecording, &m.handler);
  m.started = true;
  m.postedDay = 0;
  for (Impl::Camera& c : m.cameras) {
    if (c.scheduled || ISetting::Instance()->IsRecord(c.settings.camera - 1) != 1) continue;
    m.StartCamera(c.settings.camera);
    if (!c.recorder) {
      if (error) *error = c.failure;
      Stop();
      return false;
    }
  }
  Tick();
  return true;
}

void Recorder::Tick() {
  Impl& m = *impl_;
  if (!m.started) return;
  m.PostDay();
  IDispatcher::Instance()->ProcessTimeEvent();
  m.Recycle();
}

std::vector<CameraStatus> Recorder::Status() {
  std::vector<CameraStatus> out;
  const auto now = std::chrono::steady_clock::now();
  for (Impl::Camera& c : impl_->cameras) {
    CameraStatus s;
    s.camera = c.settings.camera;
    s.reason = c.failure;
    s.state = c.failure.empty() ? "idle" : "failed";
    if (c.recorder) {
      const CameraRecorder::Snapshot n = c.recorder->Now();
      const double seconds = std::chrono::duration<double>(now - c.lastLook).count();
      if (seconds > 0 && n.pictures >= c.lastPictures) {
        s.framesPerSecond = static_cast<double>(n.pictures - c.lastPictures) / seconds;
        s.bitsPerSecond = static_cast<double>(n.bytes - c.lastBytes) * 8 / seconds;
      }
      c.lastPictures = n.pictures;
      c.lastBytes = n.bytes;
      s.pictures = n.pictures;
      s.bytes = n.bytes;
      s.file = n.file;
      s.state = !c.recorder->Error().empty() ? "failed"
                : n.diskFull                 ? "disk full"
                : !n.sourceProblem.empty()   ? "offline"
                                             : "recording";
      s.reason = !c.recorder->Error().empty() ? c.recorder->Error()
                 : n.diskFull ? "less than 30 MB free on the disk of " + c.settings.folder + "; not writing"
                              : n.sourceProblem;
    }
    c.lastLook = now;
    out.push_back(s);
  }
  return out;
}

void Recorder::Stop() {
  Impl& m = *impl_;
  for (Impl::Camera& c : m.cameras) {
    m.StopCamera(c.settings.camera);
    c.claim.Release();
  }
  if (m.started) {
    IDispatcher* d = IDispatcher::Instance();
    d->RegisterHandler(schedule::kEventStartRecording, nullptr);
    d->RegisterHandler(schedule::kEventStopRecording, nullptr);
    m.started = false;
  }
}

}  // namespace dravix::recorder
