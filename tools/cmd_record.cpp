// `dravix record`: records cameras in the foreground, one thread per camera
// (dravix/recorder/camera_recorder.h), until --seconds have passed or
// SIGTERM or SIGINT arrives; every file is closed whole either way. Each
// camera's codec, picture size, frame rate, qualities and the file size
// come from the camera options of the program folder.
#include "tools/command.h"
#include "tools/stop_request.h"

#include "dravix/base/zfile.h"
#include "dravix/config/dvroption.h"
#include "dravix/log/ilog.h"
#include "dravix/media/codec_log.h"
#include "dravix/media/zm_format.h"
#include "dravix/recorder/camera_recorder.h"
#include "dravix/settings/setting.h"

#include <signal.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace dravix::cli {
namespace {

struct Args {
  std::vector<std::string> sources;
  std::string dir;
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

// The camera number of the `i`th camera started (in the order of `urls`).
int CameraAt(const std::map<int, std::string>& urls, size_t i) {
  auto it = urls.begin();
  std::advance(it, static_cast<long>(i));
  return it->first;
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

int Run() {
  if (g.sources.empty()) throw UsageError("no camera to record: give --source N=URL");
  if (g.dir.empty()) throw UsageError("no record folder: give --dir RECORD_FOLDER");
  if (g.seconds < 0) throw UsageError("--seconds must not be negative");
  std::map<int, std::string> urls;
  for (const std::string& text : g.sources) {
    const auto [n, url] = ParseSource(text);
    if (!urls.emplace(n, url).second) throw UsageError("camera " + std::to_string(n) + " has two --source");
  }
  media::QuietCodecLog();
  // Outages go to the live log beside the schedule's lines.
  if (!ILiveLog::Instance()->SetFilename("Live.log"))
    throw Failure("cannot open the live log Live.log in " + GetModulePath());

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
  std::vector<std::unique_ptr<recorder::CameraRecorder>> cameras;
  for (const auto& [n, url] : urls) {
    auto cam = std::make_unique<recorder::CameraRecorder>();
    cam->OnFileClosed(closed);
    std::string error;
    if (!cam->Start(CameraSettings(n, url), &error)) {
      cameras.clear();  // closes what the others began
      throw Failure(error);
    }
    cameras.push_back(std::move(cam));
  }

  const auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(g.seconds);
  std::vector<std::string> problems(cameras.size());
  for (;;) {
    if (StopRequest::Requested()) break;
    if (g.seconds > 0 && std::chrono::steady_clock::now() >= until) break;
    bool any = false;
    for (size_t i = 0; i < cameras.size(); ++i) {
      any = any || cameras[i]->IsRecording();
      // Say when a camera's source goes down and when it is back.
      const std::string problem = cameras[i]->SourceProblem();
      if (problem != problems[i]) {
        std::lock_guard<std::mutex> lock(outMutex);
        std::cerr << "dravix record: camera " << CameraAt(urls, i) << ": "
                  << (problem.empty() ? "the source is back" : problem + "; trying again") << std::endl;
        problems[i] = problem;
      }
    }
    if (!any) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  int status = kExitOk;
  for (size_t i = 0; i < cameras.size(); ++i) {
    const auto& cam = cameras[i];
    cam->Stop();
    std::string error = cam->Error();
    // A camera whose source never gave a picture recorded nothing: that is
    // a failure, with the source's last reason.
    if (error.empty() && cam->Pictures() == 0 && !problems[i].empty())
      error = "camera " + std::to_string(CameraAt(urls, i)) + " recorded nothing: " + problems[i];
    if (!error.empty()) {
      std::lock_guard<std::mutex> lock(outMutex);
      std::cerr << "dravix record: " << error << std::endl;
      status = kExitFailure;
    }
  }
  return fileFailed ? kExitFailure : status;
}

void Register(CLI::App& app) {
  CLI::App* cmd = AddCommand(&app, "record",
                             "Record cameras in the foreground until --seconds pass or SIGTERM/Ctrl-C; "
                             "prints a line per file closed",
                             Run);
  cmd->add_option("--source", g.sources,
                  "N=URL: camera N (1-16) records from URL (any input libavformat opens, or testsrc for the "
                  "test pattern with frame codes)")
      ->required();
  cmd->add_option("--dir", g.dir, "The record folder (files go to DIR/YYYY-MM-DD/camNN/)")->required();
  cmd->add_option("--seconds", g.seconds, "Stop after this many seconds (0: until SIGTERM or Ctrl-C)");
}

const Registration reg{72, Register};

}  // namespace
}  // namespace dravix::cli
