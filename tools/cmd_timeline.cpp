// `dravix timeline FOLDER`: what a recording folder holds, per camera and
// day, and where its holes are.
//
//   dravix timeline /srv/rec [--from DAY] [--to DAY] [--json] [--html OUT.html]
//
// The table has one row per camera per day: files, the time they cover, the
// gaps of a second or more between one file and the next, and the damaged
// and open files. --json adds every file and every gap with its cause;
// --html writes the page of timeline_page.h (whole or not at all).
//
// A gap's cause, where the program folder can tell, in this order:
// "recycled" when the recycle log ("Recycle.log") says recordings of the
// camera in it were deleted; "schedule" when its middle lies outside the
// windows of the camera's enabled schedule ("Schedule.zmi"); "damaged" when
// the file before it has a torn tail; "offline" or "disk full" when the
// live log ("Live.log") tells a source outage or a full disk for the
// camera in it; else "unknown".
// The logs' older generations ("OLD" + name) are read too.
#include "tools/command.h"
#include "tools/table.h"
#include "tools/time_arg.h"
#include "tools/timeline_page.h"

#include "dravix/base/zfile.h"
#include "dravix/base/ztime.h"
#include "dravix/live/liveshare.h"
#include "dravix/live/picture_scale.h"
#include "dravix/media/codec_log.h"
#include "dravix/media/folder_scan.h"
#include "dravix/media/picture_at.h"
#include "dravix/media/video_encoder.h"
#include "dravix/platform/atomic_file.h"
#include "dravix/platform/wintypes.h"
#include "dravix/recorder/record_events.h"
#include "dravix/schedule/zschedulemanager.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <vector>

namespace dravix::cli {
namespace {

using media::ZMScannedFile;
using media::ZMScanState;

constexpr int64_t kTicksPerSecond = 10000000;
constexpr int64_t kUnixEpoch = 116444736000000000;  // 1970-01-01 as a FILETIME
constexpr int kThumbWidth = 192;

struct TimelineOptions {
  std::string folder;
  std::string from, to;  // YYYY-MM-DD
  std::string html;
  int thumbnails = 200;
};

TimelineOptions& Options() {
  static TimelineOptions o;
  return o;
}

std::string WallText(int64_t ft) {
  SYSTEMTIME st{};
  if (ft <= 0 || !FileTimeToSystemTime(Int64ToFileTime(ft), &st)) return "";
  return FormatTimeArg(st);
}

std::string DayOf(int64_t ft) { return WallText(ft).substr(0, 10); }

std::string Duration(int64_t ticks) {
  const int64_t s = ticks / kTicksPerSecond;
  char text[32];
  std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", static_cast<long long>(s / 3600),
                static_cast<long long>(s / 60 % 60), static_cast<long long>(s % 60));
  return text;
}

// "YYYY-MM-DD", checked.
std::string DayArg(const std::string& text, const std::string& what) {
  if (text.empty()) return text;
  ParseTimeArg(text + " 00:00:00", what);  // throws UsageError on a bad day
  return text;
}

// FILETIME ticks of the local wall clock as milliseconds from 1970, the
// page's clock.
int64_t WallMs(int64_t ft) { return (ft - kUnixEpoch) / 10000; }

struct Gap {
  std::string camera;
  int64_t start = 0, end = 0;
  std::string cause;
};

// Whether camera `number` (from 1) has an enabled schedule none of whose
// windows on that day holds `ft`.
bool OutsideSchedule(int number, int64_t ft) {
  if (number < 1 || number > kScheduleCameras) return false;
  ZScheduleManager* m = ZScheduleManager::Instance();
  const int camera = number - 1;
  if (!m->IsEnabled(camera)) return false;
  SYSTEMTIME t{};
  if (!FileTimeToSystemTime(Int64ToFileTime(ft), &t)) return false;
  static tagDSSCHEDULEOPTION cameras[kScheduleCameras];
  static tagSCHEDULEWORKTASK lists[kScheduleLists];
  static const bool loaded = (m->LoadSchedule(cameras, lists), true);
  (void)loaded;
  const int list = m->ListOfDay(camera, t);
  if (list < 0 || list >= kScheduleLists) return true;
  SYSTEMTIME start{};
  return m->CheckTaskWork(lists[list], t, start) == 0;
}

// The text of a log of the program folder and of its older generation.
std::string LogText(const std::string& name) {
  std::string text;
  for (const std::string& file : {"OLD" + name, name}) {
    std::ifstream in(GetModulePath() + file, std::ios::binary);
    text.append(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  return text;
}

// What the program folder's logs tell about missing recordings.
struct LogEvidence {
  std::vector<recorder::SourceOutage> outages = recorder::ReadOutages(LogText("Live.log"));
  std::vector<recorder::RecycledRecording> recycled = recorder::ReadRecycled(LogText("Recycle.log"));
};

// Why the recording stopped between `before` and the next file.
std::string GapCause(const LogEvidence& logs, const ZMScannedFile& before, int64_t start, int64_t end) {
  const int camera = before.cameraNumber;
  for (const recorder::RecycledRecording& r : logs.recycled)
    if (r.camera == camera && r.start < end && r.end > start) return "recycled";
  if (OutsideSchedule(camera, start + (end - start) / 2)) return "schedule";
  if (before.state == ZMScanState::kDamaged) return "damaged";
  for (const recorder::SourceOutage& o : logs.outages)
    if (o.camera == camera && o.start < end && (o.end == 0 || o.end > start))
      return o.diskFull ? "disk full" : "offline";
  return "unknown";
}

std::string Base64(const std::vector<uint8_t>& bytes) {
  static const char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  for (size_t i = 0; i < bytes.size(); i += 3) {
    const uint32_t n =
        bytes[i] << 16 | (i + 1 < bytes.size() ? bytes[i + 1] << 8 : 0) | (i + 2 < bytes.size() ? bytes[i + 2] : 0);
    out += kDigits[n >> 18 & 63];
    out += kDigits[n >> 12 & 63];
    out += i + 1 < bytes.size() ? kDigits[n >> 6 & 63] : '=';
    out += i + 2 < bytes.size() ? kDigits[n & 63] : '=';
  }
  return out;
}

// The recording's first picture, small, as a data: URL; "" when it cannot
// be had (the page then shows none).
std::string Thumbnail(const ZMScannedFile& f) {
  media::PictureAtMoment found;
  std::string error;
  if (!media::FindPictureAt(f.path.c_str(), f.start, true, &found, &error) || found.picture.width <= 0) return "";
  media::Picture small;
  const int height = found.picture.height * kThumbWidth / found.picture.width;
  if (!live::ScalePicture(found.picture, kThumbWidth, height, &small)) return "";
  std::vector<uint8_t> jpeg;
  if (!media::EncodeJpegPicture(small, 60, &jpeg, &error)) return "";
  return "data:image/jpeg;base64," + Base64(jpeg);
}

nlohmann::json FileJson(const ZMScannedFile& f) {
  nlohmann::json j{
      {"path", f.path},
      {"camera", f.camera},
      {"start", f.start ? nlohmann::json(WallText(f.start)) : nlohmann::json()},
      {"end", f.end ? nlohmann::json(WallText(f.end)) : nlohmann::json()},
      {"start_ms", f.start ? nlohmann::json(WallMs(f.start)) : nlohmann::json()},
      {"end_ms", f.end ? nlohmann::json(WallMs(f.end)) : nlohmann::json()},
      {"length", f.start ? nlohmann::json(double(f.end - f.start) / kTicksPerSecond) : nlohmann::json()},
      {"codec", f.codec.empty() ? nlohmann::json() : nlohmann::json(f.codec)},
      {"size", f.width ? nlohmann::json(std::to_string(f.width) + "x" + std::to_string(f.height)) : nlohmann::json()},
      {"bytes", f.bytes},
      {"state", media::ZMScanStateName(f.state)},
      {"why", f.why.empty() ? nlohmann::json() : nlohmann::json(f.why)}};
  return j;
}

int Run() {
  const TimelineOptions& o = Options();
  const std::string from = DayArg(o.from, "--from"), to = DayArg(o.to, "--to");
  // The page replaces its file: only a name of a web page may be given, so
  // a slip of the keyboard cannot put a page where a recording was.
  if (!o.html.empty()) {
    std::string ext = std::filesystem::path(o.html).extension().string();
    for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (ext != ".html" && ext != ".htm") throw UsageError("--html " + o.html + ": the page's name must end in .html");
  }
  // A thumbnail is best effort: a picture that does not decode is left out
  // (the scan reports damaged files), so the decoder's complaints are noise.
  media::SilenceCodecLog();
  if (!from.empty() && !to.empty() && to < from) throw UsageError("--to " + to + " is before --from " + from);

  media::ZMScanOptions scan;
  ZShareMem* registry = ZShareMem::Instance();
  if (registry->IsOpen())
    scan.isBeingWritten = [registry](const std::string& p) { return registry->HasToken(p.c_str()) != 0; };

  std::map<std::string, std::vector<ZMScannedFile>> byCamera;
  std::vector<ZMScannedFile> unreadable;
  std::string error;
  const bool whole = media::ScanRecordings(
      o.folder, scan,
      [&](const ZMScannedFile& f) {
        if (f.state == ZMScanState::kUnreadable) {
          unreadable.push_back(f);
          return true;
        }
        const std::string day = DayOf(f.start);
        if ((!from.empty() && day < from) || (!to.empty() && day > to)) return true;
        byCamera[f.camera].push_back(f);
        return true;
      },
      &error);
  if (!whole && byCamera.empty() && unreadable.empty()) throw Failure("cannot read the folder " + error);

  const LogEvidence logs;
  struct DayRow {
    int files = 0, gaps = 0, damaged = 0, open = 0;
    int64_t covered = 0, gapTime = 0;
  };
  std::map<std::pair<std::string, std::string>, DayRow> days;
  std::vector<Gap> gaps;
  nlohmann::json files = nlohmann::json::array();
  for (auto& [camera, list] : byCamera) {
    std::sort(list.begin(), list.end(), [](const ZMScannedFile& a, const ZMScannedFile& b) {
      return a.start != b.start ? a.start < b.start : a.path < b.path;
    });
    int64_t reached = 0;  // the latest end so far
    const ZMScannedFile* last = nullptr;
    for (const ZMScannedFile& f : list) {
      DayRow& row = days[{camera, DayOf(f.start)}];
      ++row.files;
      row.damaged += f.state == ZMScanState::kDamaged;
      row.open += f.state == ZMScanState::kBeingWritten;
      // Overlapping files count their time once.
      row.covered += std::max<int64_t>(0, f.end - std::max(f.start, reached));
      if (last != nullptr && f.start - reached >= kTicksPerSecond) {
        gaps.push_back({camera, reached, f.start, GapCause(logs, *last, reached, f.start)});
        DayRow& gapDay = days[{camera, DayOf(reached)}];
        ++gapDay.gaps;
        gapDay.gapTime += f.start - reached;
      }
      if (f.end >= reached) last = &f;
      reached = std::max(reached, f.end);
      files.push_back(FileJson(f));
    }
  }
  for (const ZMScannedFile& f : unreadable) files.push_back(FileJson(f));

  if (!o.html.empty()) {
    nlohmann::json cameras = nlohmann::json::array(), jg = nlohmann::json::array(), thumbs = nlohmann::json::object();
    size_t index = 0;
    for (const auto& [camera, list] : byCamera) {
      cameras.push_back(camera);
      for (const ZMScannedFile& f : list) {
        if (static_cast<int>(index) < o.thumbnails) {
          const std::string t = Thumbnail(f);
          if (!t.empty()) thumbs[std::to_string(index)] = t;
        }
        ++index;
      }
    }
    for (const Gap& g : gaps)
      jg.push_back(
          {{"camera", g.camera}, {"start_ms", WallMs(g.start)}, {"end_ms", WallMs(g.end)}, {"cause", g.cause}});
    const nlohmann::json model{
        {"folder", o.folder}, {"cameras", cameras}, {"files", files}, {"gaps", jg}, {"thumbs", thumbs}};
    std::string why;
    if (!platform::ReplaceFileAtomically(o.html, TimelinePageHtml(model), 0644, &why))
      throw Failure("cannot write " + o.html + ": " + why);
  }

  if (Globals().json) {
    nlohmann::json jd = nlohmann::json::array(), jg = nlohmann::json::array();
    for (const auto& [key, r] : days)
      jd.push_back({{"camera", key.first},
                    {"day", key.second},
                    {"files", r.files},
                    {"covered", double(r.covered) / kTicksPerSecond},
                    {"gaps", r.gaps},
                    {"gap_time", double(r.gapTime) / kTicksPerSecond},
                    {"damaged", r.damaged},
                    {"being_written", r.open}});
    for (const Gap& g : gaps)
      jg.push_back({{"camera", g.camera},
                    {"start", WallText(g.start)},
                    {"end", WallText(g.end)},
                    {"start_ms", WallMs(g.start)},
                    {"end_ms", WallMs(g.end)},
                    {"length", double(g.end - g.start) / kTicksPerSecond},
                    {"cause", g.cause}});
    std::cout << nlohmann::json{{"folder", o.folder},
                                {"days", jd},
                                {"files", files},
                                {"gaps", jg},
                                {"unreadable", unreadable.size()}}
                     .dump(2)
              << '\n';
  } else {
    Table table({"camera", "day", "files", "covered", "gaps", "gap time", "damaged", "being written"});
    for (const auto& [key, r] : days)
      table.Add({key.first, key.second, std::to_string(r.files), Duration(r.covered), std::to_string(r.gaps),
                 Duration(r.gapTime), std::to_string(r.damaged), std::to_string(r.open)});
    table.Print(std::cout);
    for (const ZMScannedFile& f : unreadable) std::cerr << "dravix: " << f.path << " is unreadable: " << f.why << '\n';
    if (!o.html.empty()) std::cout << "page written to " << o.html << '\n';
  }
  if (!whole) std::cerr << "dravix: the scan stopped early: " << error << '\n';
  return whole ? kExitOk : kExitFailure;
}

void Register(CLI::App& app) {
  CLI::App* cmd = AddCommand(&app, "timeline",
                             "Per camera and day: the files of a recording folder, the time they cover and the "
                             "gaps between them",
                             Run);
  TimelineOptions& o = Options();
  cmd->add_option("FOLDER", o.folder, "The record folder, scanned with its subfolders")->required();
  cmd->add_option("--from", o.from, "First day shown, YYYY-MM-DD (by the day a file starts)")->type_name("DAY");
  cmd->add_option("--to", o.to, "Last day shown, YYYY-MM-DD")->type_name("DAY");
  cmd->add_option("--html", o.html, "Also write the timeline as a self-contained web page (replaced)")
      ->type_name("OUT.html");
  cmd->add_option("--thumbnails", o.thumbnails, "First pictures shown on the page, at most (default 200)")
      ->check(CLI::NonNegativeNumber);
  AddJsonFlag(cmd);
  cmd->footer(
      "A gap is a second or more between one file's last record and the next file's first. Its\n"
      "cause, from the files of --home: \"recycled\" (Recycle.log deleted recordings in it),\n"
      "\"schedule\" (outside the camera's enabled schedule in Schedule.zmi), \"damaged\" (the file\n"
      "before it has a torn tail), \"offline\" or \"disk full\" (Live.log tells a source outage or a\n"
      "full disk in it), else \"unknown\". Example:\n"
      "  dravix timeline /srv/rec --from 2026-11-01 --to 2026-11-07 --html week.html");
}

const Registration reg{74, Register};

}  // namespace
}  // namespace dravix::cli
