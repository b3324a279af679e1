#include "dravix/recorder/camera_recorder.h"

#include "dravix/base/ztime.h"
#include "dravix/live/liveshare.h"
#include "dravix/log/ilog.h"
#include "dravix/media/frame_code.h"
#include "dravix/media/pattern_recording.h"
#include "dravix/media/picture_decoder.h"
#include "dravix/media/recording_name.h"
#include "dravix/media/video_encoder.h"
#include "dravix/media/zm_format.h"
#include "dravix/media/zm_summary.h"
#include "dravix/platform/clock.h"
#include "dravix/recorder/recorder.h"
#include "dravix/schedule/zschedulemanager.h"
#include "tests/support/run_program.h"
#include "tests/support/test_home.h"
#include "tests/support/video_check.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace dravix::test {
namespace {

namespace fs = std::filesystem;
using recorder::CameraRecorder;

// "YYYY-MM-DD": the recorder's day folder.
std::string FormatTimeFolder(const SYSTEMTIME& t) {
  char text[32];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d", t.wYear, t.wMonth, t.wDay);
  return text;
}
using recorder::CameraRecorderSettings;
using recorder::ClosedRecording;

// Every recording under `folder`, in name order.
std::vector<std::string> Recordings(const std::string& folder) {
  std::vector<std::string> paths;
  if (!fs::exists(folder)) return paths;
  for (const auto& e : fs::recursive_directory_iterator(folder))
    if (e.path().extension() == ".dat") paths.push_back(e.path().string());
  std::sort(paths.begin(), paths.end());
  return paths;
}

struct Frames {
  std::vector<int64_t> numbers;  // the frame codes of the pictures, in record order
  bool firstIsKey = false;
  std::vector<std::string> payloads;
};

// Walks the records the header claims, decodes each picture and reads its
// frame code; fails the test on any record or picture that does not read.
Frames ReadFrames(const std::string& path, int codec) {
  Frames f;
  const std::string bytes = TestHome::ReadFile(path);
  media::ZMFileHeader header;
  EXPECT_GE(bytes.size(), media::kZMHeaderSize) << path;
  if (bytes.size() < media::kZMHeaderSize) return f;
  std::memcpy(header.bytes, bytes.data(), media::kZMHeaderSize);
  EXPECT_LE(header.DataEnd(), bytes.size()) << path << ": the header claims more than the file holds";
  media::PictureDecoder decoder;
  std::string error;
  EXPECT_TRUE(decoder.Open(codec, &error)) << error;
  const auto* p = reinterpret_cast<const uint8_t*>(bytes.data());
  uint64_t at = header.DataOffset();
  const uint64_t end = std::min<uint64_t>(header.DataEnd(), bytes.size());
  while (at + media::kZMRecordHeadSize <= end) {
    const media::ZMRecordHead h = media::ParseRecordHead(p + at);
    if (at + h.Size() > end) {
      ADD_FAILURE() << path << ": a record runs past the data area at " << at;
      break;
    }
    if (f.numbers.empty()) {
      f.firstIsKey = h.flag == 1;
    }
    f.payloads.push_back(bytes.substr(at + media::kZMRecordHeadSize, h.length));
    media::Picture picture;
    bool got = false;
    EXPECT_TRUE(decoder.Decode(p + at + media::kZMRecordHeadSize, h.length, &picture, &got, &error)) << error;
    media::FrameCode code;
    if (got && media::ReadFrameCode(picture.y.data(), picture.width, picture.width, picture.height, &code))
      f.numbers.push_back(code.frame);
    else
      f.numbers.push_back(-1);
    at += h.Size();
  }
  EXPECT_EQ(at, header.DataEnd()) << path << ": the data area does not end on a record";
  return f;
}

class CameraRecorderTest : public TestHome {
 protected:
  // Camera `camera` recording `url` as 320x240 MJPEG at 10 fps into rec/.
  CameraRecorderSettings Mjpeg(int camera, const std::string& url) const {
    CameraRecorderSettings s;
    s.camera = camera;
    s.url = url;
    s.folder = Path("rec");
    s.codec = media::kCodecMJPEG;
    s.width = 320;
    s.height = 240;
    s.framesPerSecond = 10;
    return s;
  }
  // rec/ holds `count` recordings, each whole with `records` or more records.
  void ExpectWholeFiles(size_t count, uint64_t records) const {
    const std::vector<std::string> files = Recordings(Path("rec"));
    ASSERT_EQ(files.size(), count);
    for (const std::string& f : files) {
      media::ZMFileSummary summary;
      ASSERT_EQ(media::SummarizeRecording(f.c_str(), &summary), S_OK);
      EXPECT_EQ(summary.problem, "") << f;
      EXPECT_GE(summary.records, records) << f;
    }
  }
};

// Four cameras (two MJPEG, two H.263) for about 30 s, through the Recorder
// as a host runs it: cameras 1 and 3 follow a schedule with two windows a
// few seconds ahead, cameras 2 and 4 record throughout on their Record
// switch, and a small file size rolls the files. While recording, each
// camera's open file is in the registry; afterwards none is, and every file
// is whole, starts at a key picture and has its index. The scheduled
// recordings lie inside their windows (to within the host's one-second
// timer). Each camera's files exported into one .mkv decode with no error,
// and the frame codes read from the pictures run on from file to file with
// no gap and no repeat (from 0 again at each window, a new session).
TEST_F(CameraRecorderTest, FourCamerasOnAScheduleRollFilesThatExportWithoutAGap) {
  ASSERT_TRUE(ILiveLog::Instance()->SetFilename("Live.log"));
  ZScheduleManager* m = ZScheduleManager::Instance();
  m->Load();  // this test's program folder: no schedule yet
  std::vector<tagDSSCHEDULEOPTION> options(kScheduleCameras);
  std::vector<tagSCHEDULEWORKTASK> lists(kScheduleLists);
  m->LoadSchedule(options.data(), lists.data());
  const SYSTEMTIME now = platform::LocalNow();
  std::vector<tagDSWORKTASK> windows;
  for (const auto& [from, to] : {std::pair{3, 11}, std::pair{17, 25}}) {
    tagDSWORKTASK w{};
    w.start = MinusTime(now, -from);
    w.end = MinusTime(now, -to);
    w.bConnect = 1;
    w.bRecord = 1;
    windows.push_back(w);
  }
  for (int scheduled : {0, 2}) {
    options[scheduled].nEnabled = 1;
    options[scheduled].nMode = kScheduleDaily;
    lists[kFirstDailyList + scheduled].tasks = windows;
  }
  m->SaveSchedule(options.data(), lists.data());

  const int codecs[4] = {media::kCodecMJPEG, media::kCodecMJPEG, media::kCodecH263, media::kCodecH263};
  std::vector<CameraRecorderSettings> cameras;
  for (int i = 0; i < 4; ++i) {
    cameras.push_back(Mjpeg(i + 1, "testsrc"));
    cameras.back().codec = codecs[i];
    cameras.back().maxFileBytes = 60000;
  }
  recorder::Recorder rec;
  std::mutex mutex;
  size_t closed = 0;
  rec.OnFileClosed([&](const ClosedRecording& c) {
    std::lock_guard<std::mutex> lock(mutex);
    EXPECT_TRUE(c.ok) << c.error;
    ++closed;
  });
  std::string error;
  ASSERT_TRUE(rec.Start(cameras, &error)) << error;
  ZShareMem* registry = ZShareMem::Instance();
  std::vector<std::string> seenOpen;
  for (int tick = 0; tick < 140; ++tick) {  // 28 s of a host's timer
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    rec.Tick();
    if (tick == 40) {  // 8 s: every camera is inside its window
      for (const recorder::CameraStatus& c : rec.Status()) {
        EXPECT_EQ(c.state, "recording") << "camera " << c.camera;
        EXPECT_EQ(registry->HasToken(c.file.c_str()), 1) << c.file << " is being written";
        seenOpen.push_back(c.file);
      }
    }
  }
  rec.Stop();
  EXPECT_EQ(seenOpen.size(), 4u);

  auto fileTime = [](const SYSTEMTIME& t) {
    FILETIME ft{};
    SystemTimeToFileTime(t, &ft);
    return FileTimeToInt64(ft);
  };
  constexpr int64_t kSecond = 10000000;
  size_t files = 0;
  for (int i = 0; i < 4; ++i) {
    const std::vector<std::string> own =
        Recordings(Path("rec") + "/" + FormatTimeFolder(now) + "/cam0" + std::to_string(i + 1));
    ASSERT_GE(own.size(), 3u) << "camera " << i + 1 << " rolled no file";
    files += own.size();
    for (const std::string& f : own) {
      EXPECT_EQ(registry->HasToken(f.c_str()), 0) << f << " is closed";
      EXPECT_TRUE(fs::exists(fs::path(f).replace_extension(".idx"))) << f;
      media::ZMFileSummary summary;
      ASSERT_EQ(media::SummarizeRecording(f.c_str(), &summary), S_OK);
      EXPECT_EQ(summary.problem, "") << f;
      EXPECT_EQ(summary.header.DataEnd(), fs::file_size(f)) << f << " is not whole";
      EXPECT_TRUE(ReadFrames(f, codecs[i]).firstIsKey) << f;
      if (i % 2 != 0) continue;
      // Inside a window: the events fire on the host's ticks, so a
      // recording may begin and end up to 1.5 s late.
      const int64_t start = summary.header.StartTime(), end = start + summary.header.Duration();
      const bool inside = std::any_of(windows.begin(), windows.end(), [&](const tagDSWORKTASK& w) {
        return start >= fileTime(w.start) - kSecond && end <= fileTime(w.end) + kSecond * 3 / 2;
      });
      EXPECT_TRUE(inside) << f << " lies outside the schedule's windows";
    }
    std::vector<std::string> args{"export", "--home", home()};
    args.insert(args.end(), own.begin(), own.end());
    const std::string out = Path("cam" + std::to_string(i + 1) + ".mkv");
    args.push_back(out);
    const ProgramResult exported = RunDravix(args);
    ASSERT_EQ(exported.status, 0) << exported.err;
    EXPECT_EQ(DecodeErrors(out), "") << out;
    EXPECT_EQ(RunCommand("ffprobe -v error -show_entries format_tags=CAMERA -of csv=p=0 '" + out + "'"),
              "cam0" + std::to_string(i + 1) + "\n");
    const std::vector<media::FrameCode> codes = FrameCodes(out, 320, 240);
    // Sessions: the codes count 0, 1, 2, ... and start again only at a window.
    std::vector<uint32_t> sessions;
    for (size_t k = 0; k < codes.size(); ++k) {
      if (codes[k].frame == 0) {
        sessions.push_back(0);
      } else {
        ASSERT_FALSE(sessions.empty()) << out << " begins at picture " << codes[k].frame;
        ASSERT_EQ(codes[k].frame, codes[k - 1].frame + 1) << out << ": a picture lost or repeated at " << k;
      }
      ++sessions.back();
    }
    EXPECT_EQ(sessions.size(), i % 2 == 0 ? 2u : 1u) << out;
    for (const uint32_t pictures : sessions) EXPECT_GE(pictures, i % 2 == 0 ? 50u : 200u) << out;
  }
  EXPECT_EQ(closed, files);
  const std::string log = ReadFile(Path("Live.log"));
  for (const char* line : {"Camera00 ZE_START_RECORDING", "Camera00 ZE_STOP_RECORDING", "Camera02 ZE_START_RECORDING",
                           "Camera02 ZE_STOP_RECORDING"})
    EXPECT_NE(log.find(line), std::string::npos) << log;
}
// A recording that runs over midnight (the test clock one second before it)
// goes on in a file in the new day's folder, from the first key picture of
// the new day, with no picture lost or repeated.
TEST_F(CameraRecorderTest, MidnightStartsANewFileInTheNewDaysFolder) {
  const std::time_t real = std::time(nullptr);
  std::tm local{};
  localtime_r(&real, &local);
  local.tm_hour = 23;
  local.tm_min = 59;
  local.tm_sec = 59;
  const std::time_t lastSecond = std::mktime(&local);
  platform::SetTestClock([lastSecond, real] { return lastSecond + (std::time(nullptr) - real); });
  CameraRecorder cam;
  CameraRecorderSettings s = Mjpeg(1, "testsrc");
  s.codec = media::kCodecH263;
  std::string error;
  ASSERT_TRUE(cam.Start(s, &error)) << error;
  std::this_thread::sleep_for(std::chrono::milliseconds(3500));
  cam.Stop();
  platform::ClearTestClock();

  const std::vector<std::string> files = Recordings(Path("rec"));
  ASSERT_EQ(files.size(), 2u);
  media::RecordingName first, second;
  ASSERT_TRUE(media::ParseRecordingPath(files[0], &first));
  ASSERT_TRUE(media::ParseRecordingPath(files[1], &second));
  EXPECT_EQ(first.start.wHour, 23);
  EXPECT_EQ(second.start.wHour, 0);
  EXPECT_EQ(second.start.wMinute, 0);
  EXPECT_NE(fs::path(files[0]).parent_path().parent_path(), fs::path(files[1]).parent_path().parent_path());
  int64_t next = 0;
  for (const std::string& f : files) {
    const Frames frames = ReadFrames(f, s.codec);
    EXPECT_TRUE(frames.firstIsKey) << f;
    for (const int64_t n : frames.numbers) ASSERT_EQ(n, next++) << f << ": a picture lost or repeated";
  }
  EXPECT_EQ(static_cast<uint64_t>(next), cam.Pictures());
}

// A source of the camera's codec and size is stored as it comes: the
// records are the source's pictures byte for byte, every picture in order
// (MJPEG and H.263).
TEST_F(CameraRecorderTest, StoresAFittingSourceAsItComes) {
  for (const int codec : {media::kCodecMJPEG, media::kCodecH263}) {
    SCOPED_TRACE(codec);
    const std::string name = codec == media::kCodecMJPEG ? "mjpeg" : "h263";
    media::PatternRecordingOptions o;
    o.codec = codec;
    o.width = 320;
    o.height = 240;
    o.framesPerSecond = 10;
    o.seconds = 2;
    o.mjpegQuality = 95;  // another quality than the camera's: encoding again would show
    o.zmediaQuality = 3;
    o.startTime = 116444736000000000 + 1205582400LL * 10000000;  // 2008-03-15 12:00
    std::string error;
    ASSERT_TRUE(media::WritePatternRecording(Path(name + ".dat").c_str(), o, nullptr, &error)) << error;
    const ProgramResult exported = RunDravix({"export", "--home", home(), Path(name + ".dat"), Path(name + ".mkv")});
    ASSERT_EQ(exported.status, 0) << exported.out << exported.err;

    CameraRecorder cam;
    CameraRecorderSettings s = Mjpeg(1, Path(name + ".mkv"));
    s.codec = codec;
    s.folder = Path("rec-" + name);
    s.mjpegQuality = 20;
    s.reopen = false;  // the file's end ends the recording
    ASSERT_TRUE(cam.Start(s, &error)) << error;
    for (int i = 0; i < 60 && cam.IsRecording(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(100));
    cam.Stop();
    EXPECT_NE(cam.Error().find("ended"), std::string::npos) << cam.Error();
    const std::vector<std::string> files = Recordings(s.folder);
    ASSERT_EQ(files.size(), 1u);
    const Frames stored = ReadFrames(files[0], codec);
    ASSERT_EQ(stored.numbers.size(), 20u);
    EXPECT_TRUE(stored.firstIsKey);
    for (size_t i = 0; i < stored.numbers.size(); ++i) EXPECT_EQ(stored.numbers[i], static_cast<int64_t>(i));
    EXPECT_EQ(stored.payloads, ReadFrames(Path(name + ".dat"), codec).payloads) << "pictures were encoded again";
  }
}

// A network camera (MJPEG over TCP) that is down at start-up, then comes
// up, sends for a while and goes silent: the recorder tries it after 1 s,
// 2 s, ... (+-20%, never under a second), records while it sends, gives
// up on it after 5 s of silence and opens it again; each outage is a pair
// of lines in the live log and ends the file of the pictures before it.
TEST_F(CameraRecorderTest, AnOfflineOrSilentSourceIsOpenedAgainWithBackOff) {
  ASSERT_TRUE(ILiveLog::Instance()->SetFilename("Live.log"));
  media::Picture grey;
  grey.Resize(320, 240);
  std::fill(grey.y.begin(), grey.y.end(), 128);
  std::fill(grey.u.begin(), grey.u.end(), 128);
  std::fill(grey.v.begin(), grey.v.end(), 128);
  std::vector<uint8_t> jpeg;
  std::string error;
  ASSERT_TRUE(media::EncodeJpegPicture(grey, 80, &jpeg, &error)) << error;

  // Bound but not yet listening: a connection is refused until it listens.
  const int server = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_GE(server, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(::bind(server, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
  socklen_t len = sizeof addr;
  ASSERT_EQ(::getsockname(server, reinterpret_cast<sockaddr*>(&addr), &len), 0);
  const std::string url = "tcp://127.0.0.1:" + std::to_string(ntohs(addr.sin_port));

  CameraRecorder cam;
  CameraRecorderSettings s = Mjpeg(1, url);
  s.format = "mjpeg";
  const auto started = std::chrono::system_clock::now();
  ASSERT_TRUE(cam.Start(s, &error)) << error;  // the source is down: the camera waits for it

  std::thread camera([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(2300));
    ASSERT_EQ(::listen(server, 4), 0);
    for (int connection = 0; connection < 2; ++connection) {
      const int c = ::accept4(server, nullptr, nullptr, SOCK_CLOEXEC);
      ASSERT_GE(c, 0);
      for (int i = 0; i < 15; ++i) {  // 1.5 s of pictures
        if (::send(c, jpeg.data(), jpeg.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(jpeg.size())) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
      }
      if (connection == 0) {
        // Silent with the connection open, until the recorder gives up.
        char byte;
        ::recv(c, &byte, 1, 0);
      }
      ::close(c);
    }
  });
  for (int i = 0; i < 200 && cam.Outages() < 3; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(100));
  cam.Stop();
  camera.join();
  ::close(server);

  // Down at start, silent after the first connection, gone after the second.
  EXPECT_EQ(cam.Outages(), 3u);
  const std::vector<std::chrono::system_clock::time_point> attempts = cam.Attempts();
  ASSERT_GE(attempts.size(), 4u);
  // The first outage's tries: 1 s, then 2 s after it (each +-20%).
  const double first = std::chrono::duration<double>(attempts[0] - started).count();
  const double second = std::chrono::duration<double>(attempts[1] - attempts[0]).count();
  EXPECT_GE(first, 1.0);
  EXPECT_LE(first, 1.2 + 0.5);  // the wait, plus starting the camera's thread
  EXPECT_GE(second, 1.6);
  EXPECT_LE(second, 2.5);
  EXPECT_EQ(cam.Error(), "");

  // Two files: the pictures of each connection (a raw MJPEG stream is timed
  // at 25 fps and kept at 10).
  ExpectWholeFiles(2, 5);
  const std::string log = ReadFile(Path("Live.log"));
  size_t offline = 0, online = 0;
  for (size_t at = 0; (at = log.find("Camera00 SOURCE_OFFLINE", at)) != std::string::npos; ++at) ++offline;
  for (size_t at = 0; (at = log.find("Camera00 SOURCE_ONLINE", at)) != std::string::npos; ++at) ++online;
  EXPECT_EQ(offline, 3u) << log;
  EXPECT_EQ(online, 2u) << log;
  EXPECT_NE(log.find("nothing came for 5.0 s"), std::string::npos) << log;
}

// Below 30 MB free the camera stops writing, once, and goes on when space
// returns: two whole files with the spell between them, a DISK_FULL and a
// DISK_OK line, and the timeline names the gap after the disk.
TEST_F(CameraRecorderTest, AFullDiskStopsWritingUntilSpaceReturns) {
  ASSERT_TRUE(ILiveLog::Instance()->SetFilename("Live.log"));
  const auto started = std::chrono::steady_clock::now();
  CameraRecorder cam;
  CameraRecorderSettings s = Mjpeg(1, "testsrc");
  s.freeSpace = [started](const std::string&) -> uint64_t {
    const double t = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    return t > 1.5 && t < 4.0 ? 29u << 20 : 1u << 30;  // 29 MB free for a while, else 1 GB
  };
  std::string error;
  ASSERT_TRUE(cam.Start(s, &error)) << error;
  std::this_thread::sleep_for(std::chrono::milliseconds(6000));
  cam.Stop();
  EXPECT_EQ(cam.Error(), "");

  ExpectWholeFiles(2, 5);
  const std::string log = ReadFile(Path("Live.log"));
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 2) << log;
  EXPECT_NE(log.find("Camera00 DISK_FULL"), std::string::npos) << log;
  EXPECT_NE(log.find("Camera00 DISK_OK"), std::string::npos) << log;

  const ProgramResult t = RunDravix({"timeline", Path("rec"), "--json", "--home", home()});
  ASSERT_EQ(t.status, 0) << t.err;
  EXPECT_NE(t.out.find("\"cause\": \"disk full\""), std::string::npos) << t.out;
}

// Probing and exporting a recording while the recorder writes it: each
// answer is the file up to a recent checkpoint, whole. The probe's records
// and length never fall; an export holds at least the records the probe saw
// just before and no more than the next probe sees, decodes with no error,
// and its frame codes run 0, 1, 2, ...; once the file is closed, both give
// every picture written.
TEST_F(CameraRecorderTest, ProbeAndExportWhileWritingAgreeEachTime) {
  CameraRecorder cam;
  CameraRecorderSettings s = Mjpeg(1, "testsrc");
  s.codec = media::kCodecH263;
  std::string error;
  ASSERT_TRUE(cam.Start(s, &error)) << error;
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  const std::string file = cam.Now().file;
  ASSERT_FALSE(file.empty());
  auto probe = [&](double* length) {
    const ProgramResult r = RunDravix({"probe", "--home", home(), "--json", file});
    EXPECT_EQ(r.status, 0) << r.err;
    const nlohmann::json j = nlohmann::json::parse(r.out, nullptr, false);
    if (!j.is_array() || j.empty() || !j[0]["records"].is_number()) {
      ADD_FAILURE() << r.out;
      return int64_t{-1};
    }
    EXPECT_TRUE(j[0]["error"].is_null()) << j[0]["error"];
    *length = j[0]["length"].get<double>();
    return j[0]["records"].get<int64_t>();
  };
  auto exported = [&](int k) {
    const std::string out = Path("growing" + std::to_string(k) + ".mkv");
    const ProgramResult r = RunDravix({"export", "--home", home(), file, out});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(DecodeErrors(out), "") << out;
    const std::vector<media::FrameCode> codes = FrameCodes(out, 320, 240);
    for (size_t i = 0; i < codes.size(); ++i) EXPECT_EQ(codes[i].frame, i) << out;
    return static_cast<int64_t>(codes.size());
  };
  double length = 0, lastLength = 0;
  int64_t seen = probe(&lastLength);
  for (int k = 0; k < 4; ++k) {
    const int64_t frames = exported(k);
    EXPECT_GE(frames, seen);
    const int64_t next = probe(&length);
    EXPECT_LE(frames, next);
    EXPECT_GE(length, lastLength);
    seen = next;
    lastLength = length;
    std::this_thread::sleep_for(std::chrono::milliseconds(700));
  }
  cam.Stop();
  EXPECT_GT(seen, 30);
  EXPECT_EQ(probe(&length), static_cast<int64_t>(cam.Pictures()));
  EXPECT_EQ(exported(9), static_cast<int64_t>(cam.Pictures()));
}

// With "AutoRecycle" on and a disk (simulated: five old recordings' worth,
// half of it allowed to fill) short of free space, the recorder deletes the
// oldest recordings until half is free: never one held in the registry,
// each with a line in the recycle log.
TEST_F(CameraRecorderTest, RecyclingDeletesTheOldestRecordingsNotHeld) {
  ASSERT_TRUE(IRecycleLog::Instance()->SetFilename("Recycle.log"));
  // Day k + 1 at 1k:00, oldest first. (The registry tells files apart by
  // their 16-byte names, so no two share one.)
  std::vector<std::string> old;
  for (int k = 0; k < 4; ++k) {
    const int64_t start = 128488032000000000 + (k * 86400LL + (10 + k) * 3600) * 10000000;
    const std::string path = media::RecordingPath(Path("rec"), 1 + k % 2, start);
    fs::create_directories(fs::path(path).parent_path());
    const ProgramResult r =
        RunDravix({"write-test-recording", "--noise", path, "--seconds", "4", "--start",
                   "2008-03-0" + std::to_string(1 + k) + " 1" + std::to_string(k) + ":00:00", "--home", home()});
    ASSERT_EQ(r.status, 0) << r.err;
    old.push_back(path);
  }
  // The oldest is held open by someone (a player, say).
  ::ZShareMem::Instance()->Add(old[0].c_str());
  ASSERT_EQ(::ZShareMem::Instance()->HasToken(old[0].c_str()), 1);
  const uint64_t size = fs::file_size(old[0]);
  auto used = [this] {
    uint64_t bytes = 0;
    for (const auto& e : fs::recursive_directory_iterator(Path("rec")))
      if (e.is_regular_file()) bytes += e.file_size();
    return bytes;
  };
  recorder::RecorderDisk disk;
  disk.total = [size](const std::string&) { return 5 * size; };
  disk.free = [size, used](const std::string&) { return 5 * size - std::min(5 * size, used()); };
  disk.keepRatio = 0.5;

  recorder::Recorder rec;
  rec.SetDisk(disk);
  std::string error;
  ASSERT_TRUE(rec.Start({Mjpeg(3, "testsrc")}, &error)) << error;
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  rec.Stop();
  ::ZShareMem::Instance()->Delete(old[0].c_str());

  // Held: the oldest stays; the next two go, oldest first; the newest stays.
  EXPECT_EQ(rec.Recycled(), (std::vector<std::string>{old[1], old[2]}));
  EXPECT_TRUE(fs::exists(old[0]));
  EXPECT_TRUE(fs::exists(old[3]));
  const std::string log = ReadFile(Path("Recycle.log"));
  EXPECT_NE(log.find("RECYCLED 2008/03/02 11:00:00:0000"), std::string::npos) << log;
  EXPECT_LT(log.find(old[1]), log.find(old[2])) << log;
}

TEST(RecordingName, RoundTripsAndRefusesOtherNames) {
  // 2026-03-07 09:05:04.321 as a local FILETIME.
  const int64_t t = 116444736000000000 + (1772874304LL * 1000 + 321) * media::kTicksPerMs;
  const std::string path = media::RecordingPath("/r", 7, t);
  EXPECT_EQ(path, "/r/2026-03-07/cam07/090504321-07.dat");
  EXPECT_EQ(ZShareMem::TitleOf(path.c_str()).size(), 16u);
  media::RecordingName name;
  ASSERT_TRUE(media::ParseRecordingPath(path, &name));
  EXPECT_EQ(name.camera, 7);
  EXPECT_EQ(name.start.wYear, 2026);
  EXPECT_EQ(name.start.wDay, 7);
  EXPECT_EQ(name.start.wHour, 9);
  EXPECT_EQ(name.start.wMilliseconds, 321);
  for (const char* other : {"/r/2026-03-07/cam07/090504321-08.dat", "/r/2026-03-07/cam07/090504321-07.idx",
                            "/r/2026-03-07/cam07/0905043210-07.dat", "/r/2026-13-07/cam07/090504321-07.dat"})
    EXPECT_FALSE(media::ParseRecordingPath(other, &name)) << other;
}

class RecordCommand : public TestHome {};

// Recycling on a real disk: a 100 MiB tmpfs, mounted in a mount namespace
// of its own (unshare), holds six old recordings of about 10 MB; with
// "AutoRecycle" on and KEEP_STORAGE_SIZE 0.5, `dravix record` deletes the
// oldest until half the disk is free, each with a line in the recycle log,
// and records its camera there.
TEST_F(RecordCommand, RecyclingOnASmallTmpfsDeletesTheOldestFirst) {
  WriteFile("LiveTag.ini", "[STORAGE]\r\nKEEP_STORAGE_SIZE=0.5\r\n");
  const std::string disk = Path("disk");
  fs::create_directories(disk);
  std::string script = "set -e; mount -t tmpfs -o size=100m dravix-test '" + disk + "'\n";
  std::vector<std::string> old;
  for (int k = 0; k < 6; ++k) {
    const int64_t start = 128488032000000000 + (k * 86400LL + (10 + k) * 3600) * 10000000;  // 2008-03-0(k+1) 1k:00
    old.push_back(media::RecordingPath(disk, 1, start));
    script += "mkdir -p '" + fs::path(old.back()).parent_path().string() + "'; '" + DravixPath() +
              "' write-test-recording --noise --frame-bytes 40000 --seconds 10 '" + old.back() +
              "' --start '2008-03-0" + std::to_string(k + 1) + " 1" + std::to_string(k) + ":00:00' --home '" + home() +
              "' >/dev/null 2>&1\n";
  }
  script += "'" + DravixPath() + "' record --home '" + home() + "' --source 1=testsrc --dir '" + disk +
            "' --seconds 2 >/dev/null 2>'" + Path("record.err") + "'\n";
  script += "find '" + disk + "' -name '*.dat' | sort > '" + Path("left.txt") + "'\n";
  script += "stat -f -c '%a %S %b' '" + disk + "' > '" + Path("space.txt") + "'\n";
  const std::string unshare = ::geteuid() == 0 ? "unshare --mount" : "unshare --user --map-root-user --mount";
  WriteFile("tmpfs.sh", script);
  int status = -1;
  const std::string out = RunCommand(unshare + " sh '" + Path("tmpfs.sh") + "' 2>&1", &status);
  if (status != 0 && !fs::exists(Path("left.txt"))) GTEST_SKIP() << "no tmpfs can be mounted here: " << out;
  ASSERT_EQ(status, 0) << out << ReadFile(Path("record.err"));

  const std::vector<std::string> left = Lines(ReadFile(Path("left.txt")));
  std::vector<std::string> gone;
  for (const std::string& f : old)
    if (std::find(left.begin(), left.end(), f) == left.end()) gone.push_back(f);
  ASSERT_FALSE(gone.empty()) << "nothing was recycled";
  ASSERT_LT(gone.size(), old.size()) << "more was recycled than needed";
  // The oldest went: what is gone is the start of the list, oldest first.
  EXPECT_EQ(gone, std::vector<std::string>(old.begin(), old.begin() + static_cast<long>(gone.size())));
  EXPECT_EQ(left.size(), old.size() - gone.size() + 1) << "the camera's own recording is there";
  unsigned long long available = 0, block = 0, blocks = 0;
  ASSERT_EQ(std::sscanf(ReadFile(Path("space.txt")).c_str(), "%llu %llu %llu", &available, &block, &blocks), 3);
  EXPECT_GE(available * block + (4u << 20), blocks * block / 2) << "half the disk is free, but the new recording";
  const std::vector<std::string> log = Lines(ReadFile(Path("Recycle.log")));
  ASSERT_EQ(log.size(), gone.size());
  for (size_t i = 0; i < gone.size(); ++i) EXPECT_NE(log[i].find(" , " + gone[i]), std::string::npos) << log[i];
}

// After SIGKILL `dravix check` keeps all but the last 2 s at most; SIGTERM
// leaves every file whole and says so on the way out.
TEST_F(RecordCommand, KilledLosesAtMostTwoSecondsAndTerminatedLeavesFilesWhole) {
  const std::string folder = Path("kill");
  const pid_t killed = StartDravix({"record", "--home", home(), "--source", "1=testsrc", "--dir", folder});
  ASSERT_GT(killed, 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(3500));
  ASSERT_EQ(::kill(killed, SIGKILL), 0);
  const auto killedAt = std::chrono::system_clock::now();
  EXPECT_EQ(WaitProgram(killed), 128 + SIGKILL);
  std::vector<std::string> files = Recordings(folder);
  ASSERT_EQ(files.size(), 1u);
  ProgramResult r = RunDravix({"check", "--home", home(), files[0]});
  EXPECT_EQ(r.status, 0) << r.err;
  media::ZMFileSummary summary;
  ASSERT_EQ(media::SummarizeRecording(files[0].c_str(), &summary), S_OK);
  // The file's end on the local wall clock against the moment of the kill.
  const int64_t endTicks = summary.header.StartTime() + summary.header.Duration();
  const std::time_t now = std::chrono::system_clock::to_time_t(killedAt);
  std::tm local{};
  localtime_r(&now, &local);
  const int64_t killTicks = 116444736000000000 + static_cast<int64_t>(timegm(&local)) * 10000000 +
                            std::chrono::duration_cast<std::chrono::milliseconds>(killedAt.time_since_epoch()).count() %
                                1000 * media::kTicksPerMs;
  EXPECT_LE(killTicks - endTicks, 2 * 10000000) << "more than 2 s lost";
  EXPECT_GT(summary.records, 10u);

  const std::string whole = Path("term");
  const pid_t terminated =
      StartDravix({"record", "--home", home(), "--source", "1=testsrc", "--source", "2=testsrc", "--dir", whole});
  ASSERT_GT(terminated, 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(2000));
  r = RunDravix({"files", "--home", home()});
  EXPECT_NE(r.out.find("-01.dat"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("-02.dat"), std::string::npos) << r.out;
  ASSERT_EQ(::kill(terminated, SIGTERM), 0);
  EXPECT_EQ(WaitProgram(terminated), 0);
  files = Recordings(whole);
  ASSERT_EQ(files.size(), 2u);
  for (const std::string& f : files) {
    ASSERT_EQ(media::SummarizeRecording(f.c_str(), &summary), S_OK);
    EXPECT_NE(summary.header.DataLength(), 0x7FFFFFFFu) << f << ": the header was not finished";
    EXPECT_EQ(summary.header.DataEnd(), fs::file_size(f)) << f;
    r = RunDravix({"check", "--home", home(), "--dry-run", "--json", f});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.out.find("\"intact\": true"), std::string::npos) << r.out;
  }
  r = RunDravix({"files", "--home", home()});
  EXPECT_EQ(r.out.find(".dat"), std::string::npos) << "nothing stays registered: " << r.out;
}

TEST_F(RecordCommand, RefusesWrongUsageAndSaysWhyASourceCannotOpen) {
  EXPECT_EQ(RunDravix({"record", "--home", home(), "--dir", Path("r")}).status, 2);
  EXPECT_EQ(RunDravix({"record", "--home", home(), "--source", "17=testsrc", "--dir", Path("r")}).status, 2);
  EXPECT_EQ(RunDravix({"record", "--home", home(), "--source", "1=a", "--source", "1=b", "--dir", Path("r")}).status,
            2);
  // A source that never opens is tried again until the end, then the
  // camera's failure says why.
  const ProgramResult r = RunDravix(
      {"record", "--home", home(), "--source", "1=" + Path("missing.mkv"), "--dir", Path("r"), "--seconds", "1.5"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("recorded nothing: cannot open the source " + Path("missing.mkv")), std::string::npos) << r.err;
  EXPECT_TRUE(Recordings(Path("r")).empty());

  // A folder that cannot be made; a camera another recorder already records
  // into the same folder (its own files would overlap with the first's).
  ProgramResult refused = RunDravix({"record", "--home", home(), "--source", "1=testsrc", "--dir", "/proc/dravix"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.err.find("cannot make the record folder /proc/dravix"), std::string::npos) << refused.err;
  const pid_t first = StartDravix({"record", "--home", home(), "--source", "1=testsrc", "--dir", Path("r")});
  for (int i = 0; i < 50 && Recordings(Path("r")).empty(); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  refused = RunDravix({"record", "--home", home(), "--source", "1=testsrc", "--dir", Path("r"), "--seconds", "1"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_NE(refused.err.find("camera 1 is already being recorded into " + Path("r")), std::string::npos) << refused.err;
  ::kill(first, SIGTERM);
  EXPECT_EQ(WaitProgram(first), 0);
  EXPECT_EQ(Recordings(Path("r")).size(), 1u);
}

}  // namespace
}  // namespace dravix::test
