// Recorder: the cameras of a program folder, recorded when the library's
// schedule says.
//
// A camera whose schedule is enabled ("Schedule.zmi") records between the
// schedule's events: the recorder asks ISetting::PostTimeSchedling for the
// camera each day (at Start() and again after midnight), and its handlers of
// event 6 (start recording) and event 8 (stop recording) start and stop the
// camera's CameraRecorder; the host calls Tick() a few times a second, which
// fires the due events through IDispatcher::ProcessTimeEvent. An event is due
// once the clock's second is past the event's, so a window's camera starts
// and stops one second (plus the time to the next Tick()) after its times. A camera
// without an enabled schedule records while its "Record" switch is on. The
// schedule's "Schedule Event" lines go to the live log (ILiveLog) as the
// manager writes them.
//
// Recycling. With "AutoRecycle" on, Tick() looks at each record folder's
// disk every 10 seconds: when less than (1 - GetKeepStorageSize()) of it is
// free, the oldest recordings go (recycler.h; never one held in the
// live-file registry, so never one being written) until that much is free.
//
// One recorder per camera and record folder: Start() claims each camera in
// its folder (a byte lock on the folder's kRecordLock file, dropped by
// Stop() or when the process ends) and refuses a camera that another
// recorder, in any process, already records there.
//
// Everything but the recording threads runs on the caller's thread:
// Start(), Tick(), Status() and Stop() are called from one thread.
#pragma once

#include "dravix/recorder/camera_recorder.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace dravix::recorder {

inline constexpr const char* kRecordLock = ".recording.lock";

struct CameraStatus {
  int camera = 0;
  // "recording", "idle" (outside its schedule, or its switch off),
  // "offline" (the source is down), "disk full", "failed".
  std::string state;
  double framesPerSecond = 0;  // since the previous Status()
  double bitsPerSecond = 0;
  std::string file;    // the file being written
  std::string reason;  // why it is offline, not writing (disk full) or failed
  uint64_t pictures = 0;
  uint64_t bytes = 0;
};

// The disk a record folder lies on; tests stand in for it.
struct RecorderDisk {
  std::function<uint64_t(const std::string& folder)> free;   // free bytes
  std::function<uint64_t(const std::string& folder)> total;  // size in bytes
  double keepRatio = -1;                                     // the part that may be filled; < 0: GetKeepStorageSize()
};

class Recorder {
 public:
  Recorder();
  ~Recorder();  // Stop()s
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  void OnFileClosed(std::function<void(const ClosedRecording&)> callback);
  void SetDisk(RecorderDisk disk);
  // The recordings recycled so far.
  const std::vector<std::string>& Recycled() const;
  // Takes the cameras (settings.camera from 1 to 16) and starts those that
  // record now. False with `error` when a camera cannot record at all.
  bool Start(std::vector<CameraRecorderSettings> cameras, std::string* error);
  // Fires the schedule's due events; posts the day's windows after midnight.
  void Tick();
  // The cameras' states, in the order given to Start().
  std::vector<CameraStatus> Status();
  // Every camera's file closed whole; the handlers unregistered.
  void Stop();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace dravix::recorder
