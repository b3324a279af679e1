// `dravix record`: records cameras in the foreground on their schedule
// (dravix/recorder/recorder.h), one thread per camera, until --seconds have
// passed or SIGTERM or SIGINT arrives; every file is closed whole either
// way. Each camera's codec, picture size, frame rate, qualities and the
// file size come from the camera options of the program folder; its source
// from --source or "Sources.ini", else the capture device the channel
// manager maps to it (recorder/capture_device.h). A status line per camera on a terminal,
// and --json-status for monitoring.
#include "tools/command.h"
#include "tools/stop_request.h"

#include "dravix/base/zfile.h"
#include "dravix/config/dvroption.h"
#include "dravix/live/avmanager.h"
#include "dravix/log/ilog.h"
#include "dravix/media/codec_log.h"
#include "dravix/media/zm_format.h"
#include "dravix/platform/atomic_file.h"
#include "dravix/platform/files.h"
#include "dravix/platform/ini.h"
#include "dravix/platform/media_devices.h"
#include "dravix/recorder/camera_recorder.h"
#include "dravix/recorder/capture_device.h"
#include "dravix/recorder/recorder.h"
#include "dravix/schedule/zschedulemanager.h"
#include "dravix/settings/setting.h"

#include <signal.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace dravix::cli {
namespace {

struct Args {
  std::vector<std::string> sources;
  std::string cameras;
  std::string dir;
  std::string jsonStatus;
  double seconds = 0;
};
Args g;

// "N=URL" with N a camera number 1..16.
std::pair<int, std::string> ParseSource(const std::string& text) {
  const size_t eq = text.find('=');
  int n = 0;
  char tail = 0;
  if (eq == std::string::npos || eq + 1 == text.size() ||
      std::sscanf(text.substr(0, eq).c_str(), "%d%c", &n, &tail) != 1 || n < 1 || n > kDSMaxCamera)
    throw UsageError("--source '" + text + "' is not N=URL with a camera number N from 1 to " +
                     std::to_string(kDSMaxCamera));
  return {n, text.substr(eq + 1)};
}

recorder::CameraRecorderSettings CameraSettings(int camera, const std::string& url) {
  ISetting* setting = ISetting::Instance();
  const int n = camera - 1;
  recorder::CameraRecorderSettings s;
  s.camera = camera;
  s.url = url;
  s.folder = g.dir;
  s.codec = setting->GetCompressor(n) == 2 ? media::kCodecMJPEG : media::kCodecH263;
  const int dimension = setting->GetVideoDimension(n);
  const media::ZMPictureSize size = media::kZMPictureSizes[dimension >= 0 && dimension <= 6 ? dimension : 0];
  s.width = size.width;
  s.height = size.height;
  const int rate = setting->GetCaptureFrameRate(n);
  s.framesPerSecond = rate > 0 ? static_cast<uint32_t>(rate) : 25;
  s.mjpegQuality = setting->GetJPEGQuality(n);
  s.zmediaQuality = setting->GetVideoQuality(n);
  tagDSGENERALOPTION general{};
  setting->GetGeneral(general);
  s.maxFileBytes = general.nRecordFileSize > 0 ? static_cast<uint64_t>(general.nRecordFileSize) << 20 : 0;
  return s;
}

// Cameras named by --source and by "Sources.ini" of the program folder
// ([Sources] N=URL); --source wins.
std::map<int, std::string> Sources() {
  std::map<int, std::string> urls;
  for (const std::string& text : g.sources) {
    const auto [n, url] = ParseSource(text);
    if (!urls.emplace(n, url).second) throw UsageError("camera " + std::to_string(n) + " has two --source");
  }
  const std::string ini = GetModulePath() + "Sources.ini";
  for (int n = 1; n <= kDSMaxCamera; ++n) {
    const std::optional<std::string> url = platform::LookupIniValue(ini, "Sources", std::to_string(n));
    if (url && !url->empty()) urls.emplace(n, *url);
  }
  return urls;
}

// "1,3-5" -> {1, 3, 4, 5}.
std::vector<int> CameraList(const std::string& text) {
  std::vector<int> cameras;
  std::stringstream in(text);
  for (std::string part; std::getline(in, part, ',');) {
    int a = 0, b = 0;
    char dash = 0, tail = 0;
    const int got = std::sscanf(part.c_str(), "%d%c%d%c", &a, &dash, &b, &tail);
    if (got == 1) b = a;
    if (!(got == 1 || (got == 3 && dash == '-')) || a < 1 || b > kDSMaxCamera || a > b)
      throw UsageError("--cameras '" + text + "' is not a list of camera numbers 1-" + std::to_string(kDSMaxCamera) +
                       " such as 1,3-5");
    for (int n = a; n <= b; ++n) cameras.push_back(n);
  }
  return cameras;
}

// Bytes of the recordings already in the record folder.
uint64_t RecordedBytes(const std::string& folder) {
  uint64_t total = 0;
  std::error_code ec;
  for (std::filesystem::recursive_directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec))
    if (it->is_regular_file(ec)) total += it->file_size(ec);
  return total;
}

// How many days of recordings the disk holds at the current rate: its free
// space, plus (when old recordings are recycled) what they take.
std::optional<double> DaysHeld(const std::vector<recorder::CameraStatus>& cams, uint64_t recorded) {
  double bitsPerSecond = 0;
  for (const recorder::CameraStatus& c : cams) bitsPerSecond += c.bitsPerSecond;
  platform::DiskSpace space{};
  if (bitsPerSecond <= 0 || !platform::QueryDiskSpace(g.dir, &space)) return std::nullopt;
  tagDSGENERALOPTION general{};
  ISetting::Instance()->GetGeneral(general);
  const double bytes = static_cast<double>(space.freeToCaller) + (general.bAutoRecycle ? double(recorded) : 0.0);
  return bytes / (bitsPerSecond / 8 * 86400);
}

nlohmann::json StatusJson(const std::vector<recorder::CameraStatus>& cams, std::optional<double> days) {
  nlohmann::json list = nlohmann::json::array();
  for (const recorder::CameraStatus& c : cams)
    list.push_back({{"camera", c.camera},
                    {"state", c.state},
                    {"fps", c.framesPerSecond},
                    {"bit_rate", c.bitsPerSecond},
                    {"file", c.file.empty() ? nlohmann::json() : nlohmann::json(c.file)},
                    {"pictures", c.pictures},
                    {"bytes", c.bytes},
                    {"reason", c.reason.empty() ? nlohmann::json() : nlohmann::json(c.reason)}});
  return {{"cameras", list}, {"days_held", days ? nlohmann::json(*days) : nlohmann::json()}};
}

std::string StatusLine(const recorder::CameraStatus& c, std::optional<double> days) {
  char line[512];
  std::snprintf(line, sizeof line, "cam%02d  %-9s  %5.1f fps  %7.2f Mbit/s  %s%s", c.camera, c.state.c_str(),
                c.framesPerSecond, c.bitsPerSecond / 1e6, c.file.empty() ? "-" : c.file.c_str(),
                days ? ("  disk holds " + std::to_string(static_cast<long long>(*days)) + " days").c_str() : "");
  return line;
}

// Cameras without a URL record from the capture device the channel manager
// maps to their port, counted as the live program counts it.
std::optional<recorder::CaptureDevice> CaptureDevice(int camera, std::string* why) {
  static const std::vector<platform::VideoCaptureNode> nodes = [] {
    live::DeviceEnumerators e;
    e.programName = [] { return std::string("live"); };
    live::SetDeviceEnumerators(e);
    return platform::ListVideoCaptureNodes().value_or(std::vector<platform::VideoCaptureNode>{});
  }();
  return recorder::CaptureDeviceOfCamera(camera, nodes, why);
}

int Run() {
  if (g.dir.empty()) throw UsageError("no record folder: give --dir RECORD_FOLDER");
  if (g.seconds < 0) throw UsageError("--seconds must not be negative");
  const std::map<int, std::string> urls = Sources();
  std::vector<int> numbers;
  if (!g.cameras.empty()) {
    numbers = CameraList(g.cameras);
  } else {
    for (int n = 1; n <= kDSMaxCamera; ++n)
      if (urls.count(n) != 0 || CaptureDevice(n, nullptr)) numbers.push_back(n);
  }
  if (numbers.empty())
    throw UsageError(
        "no camera to record: the machine has no V4L2 capture device the channel manager maps to a "
        "camera; give --source N=URL, or name the sources in Sources.ini of " +
        GetModulePath());
  std::vector<recorder::CameraRecorderSettings> settings;
  for (int n : numbers) {
    const auto it = urls.find(n);
    if (it != urls.end()) {
      settings.push_back(CameraSettings(n, it->second));
      continue;
    }
    std::string why;
    const std::optional<recorder::CaptureDevice> device = CaptureDevice(n, &why);
    if (!device)
      throw UsageError("camera " + std::to_string(n) + " has no source: " + why + "; give --source " +
                       std::to_string(n) + "=URL or a line " + std::to_string(n) +
                       "=URL under [Sources] in Sources.ini");
    settings.push_back(CameraSettings(n, device->path));
    settings.back().format = "v4l2";
    settings.back().deviceInput = device->input;
  }
  media::QuietCodecLog();
  // Outages and the schedule's events go to the live log.
  if (!ILiveLog::Instance()->SetFilename("Live.log"))
    throw Failure("cannot open the live log Live.log in " + GetModulePath());
  // What recycling deletes goes to the recycle log.
  if (!IRecycleLog::Instance()->SetFilename("Recycle.log"))
    throw Failure("cannot open the recycle log Recycle.log in " + GetModulePath());

  std::mutex outMutex;
  bool fileFailed = false;
  auto closed = [&](const recorder::ClosedRecording& c) {
    std::lock_guard<std::mutex> lock(outMutex);
    if (c.ok) {
      std::cout << "camera " << c.camera << ": " << c.path << ": " << c.videoRecords << " pictures, "
                << c.durationMs / 1000.0 << " s, " << c.dataBytes << " bytes" << std::endl;
    } else {
      fileFailed = true;
      std::cerr << "dravix record: camera " << c.camera << ": " << c.error << std::endl;
    }
  };

  StopRequest stop;
  recorder::Recorder rec;
  rec.OnFileClosed(closed);
  // A status file that cannot be written is found before recording starts.
  if (!g.jsonStatus.empty()) {
    std::string why;
    if (!platform::ReplaceFileAtomically(g.jsonStatus, StatusJson({}, std::nullopt).dump(2) + "\n", 0644, &why))
      throw Failure("cannot write the status file " + g.jsonStatus + ": " + why);
  }
  std::string error;
  if (!rec.Start(settings, &error)) throw Failure(error);
  // Say why a camera does not record from the start.
  for (const recorder::CameraStatus& c : rec.Status()) {
    if (c.state != "idle") continue;
    const int n = c.camera - 1;
    std::cerr << "dravix record: camera " << c.camera
              << (ZScheduleManager::Instance()->IsEnabled(n) == 1
                      ? ": waits for a window of its schedule (schedule camera " + std::to_string(n) + ")"
                      : ": its Record switch is off (Camera/Camera" + std::to_string(n) + "/Record)")
              << std::endl;
  }

  const bool live = ::isatty(STDERR_FILENO) == 1;
  const uint64_t recorded = RecordedBytes(g.dir);
  const auto begun = std::chrono::steady_clock::now();
  const auto until = begun + std::chrono::duration<double>(g.seconds);
  // The schedule's events are due once the clock's second is past theirs;
  // ticking five times a second starts and stops cameras within 0.2 s of
  // that. Status is shown once a second.
  auto nextTick = begun, nextStatus = begun;
  std::vector<std::string> reasons(settings.size());
  std::vector<uint64_t> pictures(settings.size());
  size_t linesShown = 0;
  for (;;) {
    if (StopRequest::Requested()) break;
    const auto now = std::chrono::steady_clock::now();
    if (g.seconds > 0 && now >= until) break;
    if (now >= nextTick) {
      nextTick = now + std::chrono::milliseconds(200);
      rec.Tick();
    }
    if (now >= nextStatus) {
      nextStatus = now + std::chrono::seconds(1);
      const std::vector<recorder::CameraStatus> cams = rec.Status();
      const std::optional<double> days = DaysHeld(cams, recorded);
      std::lock_guard<std::mutex> lock(outMutex);
      for (size_t i = 0; i < cams.size(); ++i) {
        pictures[i] = cams[i].pictures;
        // Say when a camera's source goes down and when it is back.
        if (cams[i].reason != reasons[i] && !live)
          std::cerr << "dravix record: camera " << cams[i].camera << ": "
                    << (cams[i].reason.empty()       ? std::string("recording again")
                        : cams[i].state == "offline" ? cams[i].reason + "; trying again"
                                                     : cams[i].reason)
                    << std::endl;
        reasons[i] = cams[i].reason;
      }
      if (live) {
        // One line per camera, drawn over the previous ones.
        if (linesShown > 0) std::cerr << "\x1b[" << linesShown << "F";
        for (const recorder::CameraStatus& c : cams) std::cerr << "\x1b[2K" << StatusLine(c, days) << '\n';
        linesShown = cams.size();
        std::cerr << std::flush;
      }
      if (!g.jsonStatus.empty()) {
        std::string why;
        if (!platform::ReplaceFileAtomically(g.jsonStatus, StatusJson(cams, days).dump(2) + "\n", 0644, &why))
          std::cerr << "dravix record: cannot write " << g.jsonStatus << ": " << why << std::endl;
      }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  rec.Stop();
  int status = kExitOk;
  const std::vector<recorder::CameraStatus> last = rec.Status();
  for (size_t i = 0; i < settings.size(); ++i) {
    // A camera that failed, or whose source never gave a picture, says why.
    std::string why = i < last.size() && last[i].state == "failed" ? last[i].reason : "";
    if (why.empty() && pictures[i] == 0 && !reasons[i].empty())
      why = "camera " + std::to_string(settings[i].camera) + " recorded nothing: " + reasons[i];
    if (!why.empty()) {
      std::lock_guard<std::mutex> lock(outMutex);
      std::cerr << "dravix record: " << why << std::endl;
      status = kExitFailure;
    }
  }
  return fileFailed ? kExitFailure : status;
}

void Register(CLI::App& app) {
  CLI::App* cmd = AddCommand(&app, "record",
                             "Record cameras in the foreground, on their schedule (or while their Record switch is "
                             "on), until --seconds pass or SIGTERM/Ctrl-C; prints a line per file closed",
                             Run);
  cmd->add_option("--source", g.sources,
                  "N=URL: camera N (1-16) records from URL (any input libavformat opens, or testsrc for the "
                  "test pattern with frame codes); also read from Sources.ini ([Sources] N=URL); a camera "
                  "without one records from the V4L2 device the channel manager maps to its port");
  cmd->add_option("--cameras", g.cameras,
                  "The cameras to record, e.g. 1,3-5 (default: every camera with a source or a capture device)")
      ->type_name("LIST");
  cmd->add_option("--json-status", g.jsonStatus, "Keep the cameras' states in this JSON file, renewed every second")
      ->type_name("FILE");
  cmd->add_option("--dir", g.dir, "The record folder (files go to DIR/YYYY-MM-DD/camNN/)")->required();
  cmd->add_option("--seconds", g.seconds, "Stop after this many seconds (0: until SIGTERM or Ctrl-C)");
}

const Registration reg{72, Register};

}  // namespace
}  // namespace dravix::cli
