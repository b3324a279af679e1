// `dravix export SRC... OUT`: recordings to Matroska (stream copy) or MP4
// (H.264 + AAC) that any player opens.
#include "tools/command.h"
#include "tools/progress.h"
#include "tools/stop_request.h"
#include "tools/time_arg.h"

#include "dravix/base/ztime.h"
#include "dravix/media/zm_export.h"

#include <csignal>

#include <iostream>
#include <memory>

namespace dravix::cli {
namespace {

using namespace dravix::media;

struct Args {
  std::vector<std::string> files;
  std::string from, to, camera;
  std::vector<std::string> texts;
};
Args g;

int64_t FileTimeArg(const std::string& text, const char* what) {
  FILETIME ft{};
  if (!SystemTimeToFileTime(ParseTimeArg(text, what), &ft)) throw UsageError(std::string(what) + " is out of range");
  return FileTimeToInt64(ft);
}

int Export() {
  if (g.files.size() < 2) throw UsageError("give one or more source recordings and then the output file");
  ZMExportRequest req;
  req.sources.assign(g.files.begin(), g.files.end() - 1);
  req.output = g.files.back();
  ZMExportFormat format;
  if (!ExportFormatFor(req.output, &format))
    throw UsageError("the output " + req.output +
                     " must end in .mkv (stream copy) or .mp4 (H.264 and AAC); "
                     "the output comes last");
  if (g.from.empty() != g.to.empty()) throw UsageError("--from and --to go together");
  if (!g.from.empty()) {
    req.hasRange = true;
    req.from = FileTimeArg(g.from, "--from");
    req.to = FileTimeArg(g.to, "--to");
    if (req.to <= req.from) throw UsageError("--to must lie after --from");
  }
  req.texts = g.texts;
  req.camera = g.camera;

  ZMExportReport rep;
  {
    StopRequest stop;
    Progress bar("export");
    req.progress = [&bar](int percent) {
      if (StopRequest::Requested()) return false;
      bar.Update(percent);
      return true;
    };
    rep = ExportRecordings(req);
    if (rep.status == ZMExportStatus::kOk) bar.Update(100);
  }

  for (const std::string& note : rep.notes) std::cerr << "note: " << note << '\n';
  switch (rep.status) {
    case ZMExportStatus::kUsage:
      throw UsageError(rep.error);
    case ZMExportStatus::kInterrupted:
      throw Failure("interrupted: " + req.output + " was not written");
    case ZMExportStatus::kFailed:
      throw Failure("export to " + req.output + " failed: " + rep.error);
    case ZMExportStatus::kOk:
      break;
  }
  std::cout << req.output << ": " << rep.videoFrames << " frames, " << rep.audioRecords << " audio records";
  if (format == ZMExportFormat::kMatroska)
    std::cout << ", " << rep.chapters << " chapters, " << rep.subtitles << " time captions";
  std::cout << '\n';
  if (rep.damaged) {
    std::cerr << "warning: a source is damaged; " << req.output << " holds only the records before the damage\n";
    return kExitFailure;
  }
  return kExitOk;
}

void Register(CLI::App& app) {
  CLI::App* e = AddCommand(
      &app, "export", "Export recordings to .mkv (stream copy, chapters, time captions) or .mp4 (H.264/AAC)", Export);
  e->add_option("FILES", g.files, "Source recordings of one camera, then the output (.mkv or .mp4)")
      ->required()
      ->expected(2, -1);
  e->add_option("--from", g.from, "Local time: YYYY-MM-DD hh:mm:ss");
  e->add_option("--to", g.to, "Local time: YYYY-MM-DD hh:mm:ss");
  e->add_option("--text", g.texts, "A text stored as a tag (repeat --text for more)")->expected(1)->take_all();
  e->add_option("--camera", g.camera, "Camera name for the tags (default: the first source's file name)");
}

const Registration reg{61, Register};

}  // namespace
}  // namespace dravix::cli
