// CameraRecorder: records one camera into a run of recording files.
//
// A thread of its own pulls pictures from the camera's source (a
// FrameSource URL, or the moving test pattern), keeps the camera's frame
// rate (pictures that come faster are dropped; a source read from a file or
// a filter graph is paced to the wall clock), scales them to the camera's
// picture size with the live scaling, encodes them to the camera's codec and
// writes them with ZMRecordingWriter and its sparse index. A source of the
// camera's codec (MJPEG, or H.263/H.263+) and picture size is not decoded:
// its pictures are stored as they come, JPEG pictures given the JFIF APP0
// segment a record needs, and H.263 pictures all kept whatever their rate
// (one dropped would spoil the ones after it until the next key picture).
//
// Files. One file at a time, named after its first picture's local time
// (media/recording_name.h). A file's header is brought up to date and its bytes
// synced every second (ZMRecordingWriter::Checkpoint), so readers see a
// consistent file up to its last checkpoint and a crash loses at most the
// last second or two. A new file begins, at the next key picture, once the
// file holds `maxFileBytes` or a picture falls on a later local day; the
// pictures run on from one file into the next with none lost or repeated.
// Each open file is registered in the live-file registry (ZShareMem) and
// released when it is closed. Stop() closes the file whole.
//
// Outages. A source that cannot be opened (at Start() too), fails, ends or
// sends nothing for 5 s closes the current file whole and is tried again
// after 1 s, then 2, 4, ... up to 60 s, each wait varied by up to 20% and
// never under a second, until it opens; the pictures then go to a new file.
// Each outage writes a line to the live log (ILiveLog) at its start and
// one at its end:
//   Record Event : <time> , CameraNN SOURCE_OFFLINE <why>
//   Record Event : <time> , CameraNN SOURCE_ONLINE
// NN is the camera number minus one, as in the schedule's lines.
//
// Disk. While the record folder's disk has less than 30 MB free the camera
// writes nothing: its file is closed whole and pictures are dropped until
// space returns, when a new file begins. Each spell writes
//   Record Event : <time> , CameraNN DISK_FULL   and   ... DISK_OK
//
// The test pattern ("testsrc" or "testsrc2" as the URL) is made at the
// camera's size and rate, and every picture carries a frame code
// (frame_code.h): its ordinal from the start and its local wall second.
#pragma once

#include "dravix/platform/wintypes.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace dravix::recorder {

struct CameraRecorderSettings {
  int camera = 1;        // camera number from 1
  std::string url;       // source URL, or "testsrc" / "testsrc2"
  std::string format;    // libavformat input format; empty: found from the URL
  int deviceInput = -1;  // a capture device's input to choose (capture_device.h)
  std::string folder;    // the record folder
  int codec = 0;         // kCodecH263 or kCodecMJPEG
  int width = 640;
  int height = 480;
  uint32_t framesPerSecond = 25;
  int mjpegQuality = 70;
  int zmediaQuality = 0;
  uint64_t maxFileBytes = 0;  // data bytes that start a new file; 0: no limit
  // A source that cannot be opened, fails, ends or sends nothing for 5 s
  // is opened again with back-off (below); false: the camera stops instead.
  bool reopen = true;
  // The free bytes of the record folder's disk (tests stand in for it);
  // unset: asked of the file system.
  std::function<uint64_t(const std::string& folder)> freeSpace;
};

// A file the recorder finished (or failed to finish).
struct ClosedRecording {
  int camera = 0;
  std::string path;
  uint64_t videoRecords = 0;
  uint64_t dataBytes = 0;
  uint32_t durationMs = 0;
  bool ok = true;
  std::string error;  // why it is not whole, when !ok
};

class CameraRecorder {
 public:
  CameraRecorder();
  ~CameraRecorder();  // Stop()s
  CameraRecorder(const CameraRecorder&) = delete;
  CameraRecorder& operator=(const CameraRecorder&) = delete;

  // Called from the recording thread for every file closed.
  void OnFileClosed(std::function<void(const ClosedRecording&)> callback);

  // Opens the source and the encoder and starts the thread. False with
  // `error` (what, where, why) when the camera cannot record.
  bool Start(const CameraRecorderSettings& settings, std::string* error);
  // Ends the recording: the current file is closed whole, the thread joined.
  void Stop();
  // True while the thread records; false after Stop() or a failure.
  bool IsRecording() const;
  // Why the recording stopped by itself (the source ended or failed, a
  // write failed); empty otherwise.
  std::string Error() const;
  // Pictures written so far.
  uint64_t Pictures() const;
  // Outages of the source so far, and when it was (or will be) tried again.
  uint64_t Outages() const;
  // Why the source is down now ("" while it gives pictures).
  std::string SourceProblem() const;
  // What a status line shows, taken at once.
  struct Snapshot {
    uint64_t pictures = 0;
    uint64_t bytes = 0;  // picture bytes written so far
    std::string file;    // the file being written, "" between files
    std::string sourceProblem;
    bool diskFull = false;
  };
  Snapshot Now() const;
  std::vector<std::chrono::system_clock::time_point> Attempts() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace dravix::recorder
