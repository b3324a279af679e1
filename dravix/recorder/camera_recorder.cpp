#include "dravix/recorder/camera_recorder.h"

#include "dravix/base/ztime.h"
#include "dravix/live/liveshare.h"
#include "dravix/live/picture_scale.h"
#include "dravix/log/ilog.h"
#include "dravix/media/frame_code.h"
#include "dravix/media/frame_source.h"
#include "dravix/media/jfif.h"
#include "dravix/media/recording_name.h"
#include "dravix/media/video_encoder.h"
#include "dravix/media/zm_format.h"
#include "dravix/media/zm_writer.h"
#include "dravix/platform/files.h"
#include "dravix/recorder/record_events.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

namespace dravix::recorder {
namespace {

using Clock = std::chrono::system_clock;
constexpr int64_t kUnixEpoch = 116444736000000000;  // 1970-01-01 as a FILETIME
constexpr int64_t kTicksPerSecond = 10000000;
constexpr int64_t kTicksPerDay = 86400 * kTicksPerSecond;
constexpr auto kCheckpointEvery = std::chrono::seconds(1);
constexpr int kStallMs = 5000;  // a source silent this long is opened again
constexpr uint64_t kDiskGuardBytes = 30ull << 20;

uint64_t FreeSpace(const std::string& folder) {
  platform::DiskSpace space{};
  return platform::QueryDiskSpace(folder, &space) ? space.freeToCaller : UINT64_MAX;
}

bool IsPattern(const std::string& url) { return url == "testsrc" || url == "testsrc2"; }

// True when anything, a dangling link too, has the name.
bool Exists(const std::string& path) {
  std::error_code ec;
  return std::filesystem::symlink_status(path, ec).type() != std::filesystem::file_type::not_found;
}

}  // namespace

struct CameraRecorder::Impl {
  CameraRecorderSettings s;
  std::function<void(const ClosedRecording&)> onClosed;
  media::FrameSource source;
  media::VideoEncoder encoder;
  media::ZMRecordingWriter writer;
  std::thread thread;
  std::mutex mutex;
  std::condition_variable wake;
  bool stopAsked = false;                   // under `mutex`
  std::atomic<bool> abortSource{false};     // set with stopAsked: ends a blocked read
  std::vector<Clock::time_point> attempts;  // under `mutex`: when the source was tried again
  std::atomic<uint64_t> outages{0};
  std::string problem;  // under `mutex`: why the source is down now
  std::atomic<bool> diskFull{false};
  std::atomic<uint64_t> bytes{0};  // picture bytes written
  std::string openPath;            // under `mutex`: the file being written
  Clock::time_point lastDiskLook;
  bool sourceOpen = false;   // Start() opened it
  std::string startupError;  // why Start() could not
  std::mt19937 random{std::random_device{}()};
  std::atomic<bool> recording{false};
  std::atomic<uint64_t> pictures{0};
  std::string error;  // under `mutex`

  bool pattern = false;
  bool storeAsItComes = false;  // a source of the camera's codec and size: its pictures are stored as they come
  int64_t sessionStart = 0;     // local FILETIME of the source's first picture
  Clock::time_point wallStart;
  uint64_t nextSlot = 0;  // the next frame slot of the camera's rate
  uint32_t ordinal = 0;   // pictures taken from the pattern
  int64_t fileStart = 0;
  std::string path;
  Clock::time_point lastCheckpoint;
  media::Picture picture;
  media::Picture scaled;
  std::vector<uint8_t> coded;  // a picture of the source as it came
  bool codedKey = false;
  std::vector<media::EncodedPacket> packets;

  void SetProblem(const std::string& why) {
    std::lock_guard<std::mutex> lock(mutex);
    problem = why;
  }

  void Fail(const std::string& why) {
    std::lock_guard<std::mutex> lock(mutex);
    if (error.empty()) error = why;
  }

  bool StopAsked() {
    std::lock_guard<std::mutex> lock(mutex);
    return stopAsked;
  }

  // Sleeps until `when`; false when a stop was asked meanwhile.
  bool WaitUntil(Clock::time_point when) {
    std::unique_lock<std::mutex> lock(mutex);
    wake.wait_until(lock, when, [this] { return stopAsked; });
    return !stopAsked;
  }

  // Opens the source and starts a session: the pictures' times count from
  // now. False with `why`.
  bool OpenSource(std::string* why) {
    media::FrameSourceOptions so;
    so.format = s.format;
    so.deviceInput = s.deviceInput;
    so.fullRange = media::VideoEncoder::FullRangeFor(s.codec);
    so.stallMs = kStallMs;
    so.abort = &abortSource;
    std::string url = s.url;
    if (pattern) {
      url = media::FrameSource::TestPatternUrl(s.width, s.height, s.framesPerSecond);
      so.format = "lavfi";
    }
    if (!source.Open(url, so, why)) return false;
    storeAsItComes = !pattern && source.RecordingCodec() == s.codec && source.SourceWidth() == s.width &&
                     source.SourceHeight() == s.height;
    sessionStart = media::LocalFileTimeNow();
    wallStart = Clock::now();
    nextSlot = 0;
    return true;
  }

  // The live log's line for an outage's start or end: "Record Event : <time>
  // , CameraNN SOURCE_OFFLINE <why>" or "... SOURCE_ONLINE", NN counting
  // from 00 as the schedule's lines do.
  void LogOutage(bool offline, const std::string& why) {
    const int64_t now = media::LocalFileTimeNow();
    const std::string line = offline ? SourceOfflineLine(s.camera, now, why) : SourceOnlineLine(s.camera, now);
    ILiveLog::Instance()->Write(line.c_str());
  }

  // After a source failed: closes the file whole, logs the outage and tries
  // the source again after 1 s, 2 s, 4 s ... up to 60 s (each wait +-20%,
  // never under a second) until it opens or a stop is asked. False on a
  // stop.
  bool Reopen(const std::string& why) {
    CloseFile();
    outages++;
    SetProblem(why);
    LogOutage(true, why);
    std::uniform_real_distribution<double> jitter(0.8, 1.2);
    double wait = 1.0;
    for (;;) {
      const double seconds = std::max(1.0, wait * jitter(random));
      {
        std::lock_guard<std::mutex> lock(mutex);
        attempts.push_back(Clock::now() +
                           std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds)));
      }
      if (!WaitUntil(attempts.back())) return false;
      std::string again;
      if (OpenSource(&again)) {
        SetProblem("");
        LogOutage(false, "");
        return true;
      }
      SetProblem("cannot open the source " + s.url + ": " + again);
      wait = std::min(wait * 2, 60.0);
    }
  }

  void Run() {
    std::string why;
    if (!sourceOpen && !Reopen(startupError)) {
      recording = false;
      return;
    }
    while (!StopAsked()) {
      const media::FrameSource::Result r =
          storeAsItComes ? source.NextPacket(&coded, &picture.timeMs, &codedKey, &why) : source.Next(&picture, &why);
      if (r != media::FrameSource::Result::kPicture) {
        const std::string cause = r == media::FrameSource::Result::kEnd ? "the source " + s.url + " ended"
                                                                        : "reading " + s.url + " failed: " + why;
        if (StopAsked()) break;
        if (s.reopen && Reopen(cause)) continue;
        if (!s.reopen) Fail("camera " + std::to_string(s.camera) + ": " + cause);
        break;
      }
      if (!Take()) continue;
      // A file or filter graph gives pictures as fast as it can; a live
      // source is never ahead of the clock, so this waits only for the former.
      if (!WaitUntil(wallStart + std::chrono::milliseconds(picture.timeMs))) break;
      if (storeAsItComes ? !Keep() : !Encode()) break;
      if (!Write()) break;
    }
    packets.clear();
    std::string flushError;
    if (!encoder.Flush(&packets, &flushError)) Fail("camera " + std::to_string(s.camera) + ": " + flushError);
    Write();
    CloseFile();
    recording = false;
  }

  // Keeps the camera's frame rate: true when the picture fills the next
  // slot. H.263 pictures stored as they come are all kept: the ones after a
  // dropped picture would not decode.
  bool Take() {
    if (storeAsItComes && s.codec == media::kCodecH263) return true;
    const int64_t slotMs = static_cast<int64_t>(nextSlot * 1000 / s.framesPerSecond);
    const int64_t halfPeriod = 500 / static_cast<int64_t>(s.framesPerSecond);
    if (picture.timeMs + halfPeriod < slotMs) return false;
    nextSlot = static_cast<uint64_t>((picture.timeMs + halfPeriod) * s.framesPerSecond / 1000) + 1;
    return true;
  }

  // Takes a picture of the source as it came: a JPEG picture with the JFIF
  // marking a recording's MJPEG records need, or an H.263 picture that
  // begins with its picture start code; anything else is dropped.
  bool Keep() {
    packets.clear();
    const bool isPicture = s.codec == media::kCodecMJPEG
                               ? media::EnsureJfifApp0(&coded)
                               : media::StartsPicture(media::ZMPictureCheck::kH263, coded.data(), coded.size());
    if (!isPicture) return true;
    packets.resize(1);
    packets[0].data.swap(coded);
    packets[0].key = s.codec == media::kCodecMJPEG || codedKey;
    packets[0].timeMs = picture.timeMs;
    return true;
  }

  // Scales, marks and encodes the picture into `packets`.
  bool Encode() {
    media::Picture* p = &picture;
    if (picture.width != s.width || picture.height != s.height) {
      if (!live::ScalePicture(picture, s.width, s.height, &scaled)) {
        Fail("camera " + std::to_string(s.camera) + ": cannot scale a " + std::to_string(picture.width) + "x" +
             std::to_string(picture.height) + " picture");
        return false;
      }
      p = &scaled;
    }
    if (pattern) {
      const int64_t at = sessionStart + p->timeMs * media::kTicksPerMs;
      const media::FrameCode code{ordinal++, static_cast<uint32_t>((at - kUnixEpoch) / kTicksPerSecond)};
      media::DrawFrameCode(p->y.data(), p->width, p->width, p->height, code);
    }
    packets.clear();
    std::string why;
    if (!encoder.Encode(*p, &packets, &why)) {
      Fail("camera " + std::to_string(s.camera) + ": encoding failed: " + why);
      return false;
    }
    return true;
  }

  // The disk guard: below 30 MB free the camera stops writing (the file is
  // closed whole, the pictures dropped) until space returns; each spell is
  // a DISK_FULL and a DISK_OK line of the live log. Looked at once a second.
  bool DiskFull() {
    const auto now = Clock::now();
    if (now - lastDiskLook < std::chrono::seconds(1)) return diskFull;
    lastDiskLook = now;
    const uint64_t free = s.freeSpace ? s.freeSpace(s.folder) : FreeSpace(s.folder);
    if ((free < kDiskGuardBytes) != diskFull) {
      diskFull = !diskFull.load();
      if (diskFull) CloseFile();
      ILiveLog::Instance()->Write(DiskLine(s.camera, media::LocalFileTimeNow(), diskFull).c_str());
    }
    return diskFull;
  }

  bool Write() {
    if (DiskFull()) return true;
    for (const media::EncodedPacket& p : packets) {
      const int64_t at = sessionStart + p.timeMs * media::kTicksPerMs;
      if (writer.IsOpen() && p.key &&
          ((s.maxFileBytes != 0 && writer.DataLength() >= s.maxFileBytes) ||
           at / kTicksPerDay != fileStart / kTicksPerDay))
        CloseFile();
      bool opened = false;
      if (!writer.IsOpen()) {
        if (!p.key) continue;  // a file starts at a key picture
        if (!OpenFile(at)) return false;
        opened = true;
      }
      // A source whose times step back (a camera that restarts its clock)
      // has its pictures kept at the time of the one before.
      const auto t = std::max(static_cast<uint32_t>(std::max<int64_t>(at - fileStart, 0) / media::kTicksPerMs),
                              writer.RecordCount() != 0 ? writer.LastTime() : 0u);
      if (FAILED(writer.AddRecord(0, t, p.data.data(), static_cast<uint32_t>(p.data.size()), p.key))) {
        Fail("camera " + std::to_string(s.camera) + ": cannot write to " + path);
        return false;
      }
      ++pictures;
      bytes += p.data.size();
      // A new file tells its first picture at once: until then its header
      // claims an open-ended data area, which readers cannot trust.
      if (opened && !Checkpoint()) return false;
    }
    if (writer.IsOpen() && Clock::now() - lastCheckpoint >= kCheckpointEvery && !Checkpoint()) return false;
    return true;
  }

  bool Checkpoint() {
    lastCheckpoint = Clock::now();
    if (SUCCEEDED(writer.Checkpoint())) return true;
    Fail("camera " + std::to_string(s.camera) + ": cannot write or sync " + path + ": " + std::strerror(errno));
    return false;
  }

  bool OpenFile(int64_t at) {
    std::string candidate = media::RecordingPath(s.folder, s.camera, at);
    // Never empty a file that is there: move the name on by a millisecond.
    for (int64_t bump = 1; Exists(candidate) && bump < 1000; ++bump)
      candidate = media::RecordingPath(s.folder, s.camera, at + bump * media::kTicksPerMs);
    std::error_code ec;
    std::filesystem::create_directories(std::filesystem::path(candidate).parent_path(), ec);
    if (ec) {
      Fail("camera " + std::to_string(s.camera) + ": cannot make the folder of " + candidate + ": " + ec.message());
      return false;
    }
    if (Exists(candidate)) {
      Fail("camera " + std::to_string(s.camera) + ": no free file name near " + candidate);
      return false;
    }
    const std::vector<media::ZMStreamFormat> streams{
        media::ZMStreamFormat::VideoOfSize(s.codec, s.width, s.height, s.framesPerSecond)};
    if (FAILED(writer.Create(candidate.c_str(), at, streams))) {
      Fail("camera " + std::to_string(s.camera) + ": cannot create " + candidate + ": " + std::strerror(errno));
      return false;
    }
    path = candidate;
    {
      std::lock_guard<std::mutex> lock(mutex);
      openPath = path;
    }
    fileStart = at;
    lastCheckpoint = Clock::now();
    ::ZShareMem::Instance()->Add(path.c_str());
    return true;
  }

  void CloseFile() {
    if (!writer.IsOpen()) return;
    {
      std::lock_guard<std::mutex> lock(mutex);
      openPath.clear();
    }
    ClosedRecording c;
    c.camera = s.camera;
    c.path = path;
    c.videoRecords = writer.VideoRecordCount();
    c.dataBytes = writer.DataLength();
    c.durationMs = writer.LastTime();
    std::string why;
    if (FAILED(writer.Close(&why))) {
      c.ok = false;
      c.error = why.empty() ? "a write to " + path + " failed" : why;
      Fail("camera " + std::to_string(s.camera) + ": " + c.error);
    }
    ::ZShareMem::Instance()->Delete(path.c_str());
    if (onClosed) onClosed(c);
  }
};

CameraRecorder::CameraRecorder() : impl_(std::make_unique<Impl>()) {}

CameraRecorder::~CameraRecorder() { Stop(); }

void CameraRecorder::OnFileClosed(std::function<void(const ClosedRecording&)> callback) {
  impl_->onClosed = std::move(callback);
}

bool CameraRecorder::Start(const CameraRecorderSettings& settings, std::string* error) {
  std::string local;
  std::string& why = error ? *error : local;
  Impl& m = *impl_;
  if (m.thread.joinable()) {
    why = "camera " + std::to_string(settings.camera) + " is already recording";
    return false;
  }
  const std::string cam = "camera " + std::to_string(settings.camera);
  if (settings.camera < 1 || settings.camera > 99) {
    why = cam + ": camera numbers run from 1 to 99";
    return false;
  }
  if (settings.framesPerSecond == 0 || settings.framesPerSecond > 1000) {
    why = cam + ": a frame rate of 1 to 1000 is needed";
    return false;
  }
  if (settings.folder.empty()) {
    why = cam + ": no record folder";
    return false;
  }
  if (::ZShareMem::Instance()->IsOpen() == 0) {
    why = cam + ": the live-file registry \"" + std::string(::ZShareMem::kRegionName) + "\" cannot be opened";
    return false;
  }
  m.s = settings;
  m.pattern = IsPattern(settings.url);
  if (m.pattern && (settings.width < media::kFrameCodeWidth || settings.height < media::kFrameCodeHeight)) {
    why = cam + ": pictures smaller than 128x32 cannot carry the test pattern's frame code";
    return false;
  }
  m.abortSource = false;
  std::string sourceError;
  m.sourceOpen = m.OpenSource(&sourceError);
  if (!m.sourceOpen) {
    m.startupError = "cannot open the source " + settings.url + ": " + sourceError;
    if (!settings.reopen) {
      why = cam + ": " + m.startupError;
      return false;
    }
  }
  media::VideoEncoderSettings es;
  es.codec = settings.codec;
  es.width = settings.width;
  es.height = settings.height;
  es.framesPerSecond = settings.framesPerSecond;
  es.mjpegQuality = settings.mjpegQuality;
  es.zmediaQuality = settings.zmediaQuality;
  std::string encoderError;
  if (!m.encoder.Open(es, &encoderError)) {
    why = cam + ": " + encoderError;
    return false;
  }
  m.stopAsked = false;
  m.error.clear();
  m.recording = true;
  m.thread = std::thread([&m] { m.Run(); });
  return true;
}

void CameraRecorder::Stop() {
  Impl& m = *impl_;
  {
    std::lock_guard<std::mutex> lock(m.mutex);
    m.stopAsked = true;
  }
  m.abortSource = true;
  m.wake.notify_all();
  if (m.thread.joinable()) m.thread.join();
}

bool CameraRecorder::IsRecording() const { return impl_->recording; }

std::string CameraRecorder::Error() const {
  std::lock_guard<std::mutex> lock(impl_->mutex);
  return impl_->error;
}

uint64_t CameraRecorder::Pictures() const { return impl_->pictures; }

uint64_t CameraRecorder::Outages() const { return impl_->outages; }

CameraRecorder::Snapshot CameraRecorder::Now() const {
  Snapshot s;
  s.pictures = impl_->pictures;
  s.bytes = impl_->bytes;
  s.diskFull = impl_->diskFull;
  std::lock_guard<std::mutex> lock(impl_->mutex);
  s.file = impl_->openPath;
  s.sourceProblem = impl_->problem;
  return s;
}

std::string CameraRecorder::SourceProblem() const {
  std::lock_guard<std::mutex> lock(impl_->mutex);
  return impl_->problem;
}

std::vector<std::chrono::system_clock::time_point> CameraRecorder::Attempts() const {
  std::lock_guard<std::mutex> lock(impl_->mutex);
  return impl_->attempts;
}

}  // namespace dravix::recorder
