// `dravix timeline FOLDER`: what a recording folder holds, per camera and
// day, and where its holes are.
//
//   dravix timeline /srv/rec [--from DAY] [--to DAY] [--json]
//
// The table has one row per camera per day: files, the time they cover, the
// gaps of a second or more between one file and the next, and the damaged
// and open files. --json adds every file and every gap with its cause.
#include "tools/command.h"
#include "tools/table.h"
#include "tools/time_arg.h"

#include "dravix/base/ztime.h"
#include "dravix/live/liveshare.h"
#include "dravix/media/folder_scan.h"
#include "dravix/platform/wintypes.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <map>
#include <vector>

namespace dravix::cli {
namespace {

using media::ZMScannedFile;
using media::ZMScanState;

constexpr int64_t kTicksPerSecond = 10000000;

struct TimelineOptions {
  std::string folder;
  std::string from, to;  // YYYY-MM-DD
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

struct Gap {
  std::string camera;
  int64_t start = 0, end = 0;
  std::string cause;
};

// Why the recording stopped at `before`'s end: a torn or cut-off tail is
// the only cause the files themselves tell.
std::string GapCause(const ZMScannedFile& before) {
  return before.state == ZMScanState::kDamaged ? "damaged" : "unknown";
}

nlohmann::json FileJson(const ZMScannedFile& f) {
  nlohmann::json j{{"path", f.path},
                   {"camera", f.camera},
                   {"start", f.start ? nlohmann::json(WallText(f.start)) : nlohmann::json()},
                   {"end", f.end ? nlohmann::json(WallText(f.end)) : nlohmann::json()},
                   {"length", f.start ? nlohmann::json(double(f.end - f.start) / kTicksPerSecond) : nlohmann::json()},
                   {"codec", f.codec.empty() ? nlohmann::json() : nlohmann::json(f.codec)},
                   {"size", f.width ? nlohmann::json(std::to_string(f.width) + "x" + std::to_string(f.height))
                                    : nlohmann::json()},
                   {"bytes", f.bytes},
                   {"state", media::ZMScanStateName(f.state)},
                   {"why", f.why.empty() ? nlohmann::json() : nlohmann::json(f.why)}};
  return j;
}

int Run() {
  const TimelineOptions& o = Options();
  const std::string from = DayArg(o.from, "--from"), to = DayArg(o.to, "--to");
  if (!from.empty() && !to.empty() && to < from) throw UsageError("--to " + to + " is before --from " + from);

  media::ZMScanOptions scan;
  ZShareMem* registry = ZShareMem::Instance();
  if (registry->IsOpen()) scan.isBeingWritten = [registry](const std::string& p) { return registry->HasToken(p.c_str()) != 0; };

  std::map<std::string, std::vector<ZMScannedFile>> byCamera;
  std::vector<ZMScannedFile> unreadable;
  std::string error;
  const bool whole = media::ScanRecordings(o.folder, scan, [&](const ZMScannedFile& f) {
    if (f.state == ZMScanState::kUnreadable) {
      unreadable.push_back(f);
      return true;
    }
    const std::string day = DayOf(f.start);
    if ((!from.empty() && day < from) || (!to.empty() && day > to)) return true;
    byCamera[f.camera].push_back(f);
    return true;
  }, &error);
  if (!whole && byCamera.empty() && unreadable.empty()) throw Failure("cannot read the folder " + error);

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
        gaps.push_back({camera, reached, f.start, GapCause(*last)});
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

  if (Globals().json) {
    nlohmann::json jd = nlohmann::json::array(), jg = nlohmann::json::array();
    for (const auto& [key, r] : days)
      jd.push_back({{"camera", key.first}, {"day", key.second}, {"files", r.files},
                    {"covered", double(r.covered) / kTicksPerSecond}, {"gaps", r.gaps},
                    {"gap_time", double(r.gapTime) / kTicksPerSecond}, {"damaged", r.damaged},
                    {"being_written", r.open}});
    for (const Gap& g : gaps)
      jg.push_back({{"camera", g.camera}, {"start", WallText(g.start)}, {"end", WallText(g.end)},
                    {"length", double(g.end - g.start) / kTicksPerSecond}, {"cause", g.cause}});
    std::cout << nlohmann::json{{"folder", o.folder}, {"days", jd}, {"files", files}, {"gaps", jg},
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
  cmd->add_option("--from", o.from, "First day shown, YYYY-MM-DD (by the day a file starts)");
  cmd->add_option("--to", o.to, "Last day shown, YYYY-MM-DD");
  AddJsonFlag(cmd);
  cmd->footer("A gap is a second or more between one file's last record and the next file's first; its cause "
              "is \"damaged\" when the file before it has a torn tail, else \"unknown\". Example:\n"
              "  dravix timeline /srv/rec --from 2026-11-01 --to 2026-11-07");
}

const Registration reg{74, Register};

}  // namespace
}  // namespace dravix::cli
