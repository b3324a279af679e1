// `dravix probe | check | cut`: recording files from
// the shell.
#include "tools/command.h"
#include "tools/progress.h"
#include "tools/stop_request.h"
#include "tools/table.h"
#include "tools/time_arg.h"

#include "dravix/base/ztime.h"
#include "dravix/media/zm_check.h"
#include "dravix/media/zm_file.h"
#include "dravix/media/zm_record_walk.h"
#include "dravix/media/zm_sample.h"
#include "dravix/media/zm_summary.h"
#include "dravix/media/zme_to_zme.h"
#include "dravix/platform/file_io.h"
#include "dravix/platform/files.h"
#include "dravix/platform/staged_file.h"

#include <nlohmann/json.hpp>

#include <cerrno>
#include <csignal>
#include <cstring>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <sstream>
#include <thread>

namespace dravix::cli {
namespace {

using namespace dravix::media;
using nlohmann::json;

struct Args {
  std::vector<std::string> files;
  std::string src, dst, from, to, start, codec = "h263";
  std::vector<std::string> texts;
  uint32_t seconds = 10, fps = 25, meanFrameBytes = 6000;
  int sizeCode = 2;
  bool noAudio = false;
  bool dryRun = false;
};
Args g;

std::string FileTimeText(int64_t ft) {
  SYSTEMTIME st{};
  if (!FileTimeToSystemTime(Int64ToFileTime(ft), &st)) return "(out of range)";
  return FormatTimeArg(st, true);
}

std::string SecondsNumber(int64_t ticks) {
  std::ostringstream s;
  s.setf(std::ios::fixed);
  s.precision(3);
  s << static_cast<double>(ticks) / 1e7;
  return s.str();
}

std::string Seconds(int64_t ticks) { return SecondsNumber(ticks) + " s"; }

const char* CodecName(int codec) { return codec == kCodecH263 ? "H.263" : codec == kCodecMJPEG ? "MJPEG" : nullptr; }

// --- probe -------------------------------------------------------------------

// Why the start-time reader fails: it reads the record head at byte 4096
// whatever the header's data offset says.
std::string StartProblem(const std::string& path) {
  if (path.size() > kZMMaxNarrowPath) return "the path is longer than " + std::to_string(kZMMaxNarrowPath) + " bytes";
  platform::File f;
  if (!f.OpenRead(path.c_str())) return "cannot be opened: " + platform::FileErrorText(platform::LastFileError());
  const int64_t size = f.Size();
  uint8_t head[kZMRecordHeadSize];
  if (size < static_cast<int64_t>(kZMDefaultDataOffset + kZMRecordHeadSize) ||
      f.PRead(head, sizeof head, kZMDefaultDataOffset) != kZMRecordHeadSize)
    return "no record at byte " + std::to_string(kZMDefaultDataOffset) + ": the file ends at byte " +
           std::to_string(size);
  return "the record at byte " + std::to_string(kZMDefaultDataOffset) + " has payload length 0";
}

// The OS's reason when a reader failed on a file operation; "" otherwise.
// A missing index is no failure (the readers go on without one), so "no
// such file" is not taken for the reason: the recording itself was found.
std::string OsReason() {
  const int err = platform::LastFileError();
  return err != 0 && err != ENOENT ? platform::FileErrorText(err) : std::string();
}

// What `probe` reports for one file. "end" (kept for scripts) and
// "last_record" are the time of the last record; "length" is from the
// start to that record, in seconds. Each reader that fails adds why, in
// plain words, with its result code in brackets.
json ProbeOne(const std::string& path) {
  json j{{"path", path},           {"start", nullptr},          {"end", nullptr},
         {"last_record", nullptr}, {"start_filetime", nullptr}, {"end_filetime", nullptr},
         {"length", nullptr},      {"length_100ns", nullptr},   {"codec", nullptr},
         {"size", nullptr},        {"size_code", nullptr},      {"streams", nullptr},
         {"records", nullptr},     {"error", nullptr}};
  std::string why;
  if (!platform::CheckRegularFile(path, &why)) {
    j["error"] = why;
    return j;
  }
  // The header first: when it cannot be read, every reader fails for that
  // one reason.
  ZMFileSummary sum;
  HRESULT hr = SummarizeRecording(path.c_str(), &sum);
  if (FAILED(hr)) {
    j["error"] = sum.problem + ResultCodeText(hr);
    return j;
  }
  j["streams"] = sum.streams;
  j["records"] = sum.records;
  std::vector<std::string> errors;
  // Each reader's failure with the OS's reason when a file operation
  // failed, else with what is wrong in the file.
  auto failed = [&errors](const std::string& what, const std::string& problem, const std::string& code) {
    const std::string os = OsReason();
    errors.push_back(what + ": " + (os.empty() ? problem : "cannot read the file: " + os) + code);
  };
  FILETIME ft{};
  platform::SetLastFileError(0);
  hr = GetZMFileStartTime(path.c_str(), &ft);
  if (SUCCEEDED(hr)) {
    j["start_filetime"] = FileTimeToInt64(ft);
    j["start"] = FileTimeText(FileTimeToInt64(ft));
  } else {
    const std::string os = OsReason();
    errors.push_back("start time: " + (os.empty() ? StartProblem(path) : "cannot read the file: " + os) +
                     ResultCodeText(hr));
  }
  platform::SetLastFileError(0);
  hr = GetZMFileEndTime(path.c_str(), &ft);
  if (SUCCEEDED(hr)) {
    j["end_filetime"] = FileTimeToInt64(ft);
    j["end"] = j["last_record"] = FileTimeText(FileTimeToInt64(ft));
  } else {
    failed(
        "end time",
        sum.recordsComplete ? "the walk from the last index entry meets a damaged record" : "the data area is damaged",
        ResultCodeText(hr));
  }
  __int64 length = 0;
  platform::SetLastFileError(0);
  hr = ZMergeAVI::GetZMFileTime(path.c_str(), &length);
  if (SUCCEEDED(hr)) {
    j["length_100ns"] = length;
    j["length"] = static_cast<double>(length) / 1e7;
  } else {
    failed("length", "the header cannot be read", ResultCodeText(hr));
  }
  SYSTEMTIME st{};
  __int64 duration = 0;
  int codec = -1, size = -1;
  platform::SetLastFileError(0);
  if (GetVideoData(path.c_str(), &st, &duration, &codec, &size) == 1) {
    if (const char* name = CodecName(codec)) j["codec"] = name;
    if (size >= 0 && size < static_cast<int>(std::size(kZMPictureSizes))) {
      j["size_code"] = size;
      j["size"] = std::to_string(kZMPictureSizes[size].width) + "x" + std::to_string(kZMPictureSizes[size].height);
    }
  } else {
    failed("video data", "the header holds no video description", "");
  }
  if (!sum.recordsComplete) errors.push_back("data area: " + sum.problem);
  if (!sum.indexProblem.empty()) errors.push_back(sum.indexPath + ": " + sum.indexProblem);
  if (!errors.empty()) {
    std::string e = errors.front();
    for (size_t i = 1; i < errors.size(); ++i) e += "; " + errors[i];
    j["error"] = e;
  }
  return j;
}

std::string Text(const json& v) {
  if (v.is_null()) return "-";
  if (v.is_string()) return v.get<std::string>();
  return v.dump();
}

int Probe() {
  bool failed = false;
  json all = json::array();
  Table table({"path", "start", "last record", "length (s)", "codec", "size", "streams", "records", "error"});
  for (const std::string& f : g.files) {
    json j = ProbeOne(f);
    failed = failed || !j["error"].is_null();
    if (Globals().json) {
      all.push_back(j);
      continue;
    }
    table.Add({f, Text(j["start"]), Text(j["last_record"]),
               j["length_100ns"].is_null() ? "-" : SecondsNumber(j["length_100ns"].get<int64_t>()), Text(j["codec"]),
               Text(j["size"]), Text(j["streams"]), Text(j["records"]), Text(j["error"])});
  }
  if (Globals().json)
    std::cout << all.dump(2) << '\n';
  else
    table.Print(std::cout);
  return failed ? kExitFailure : kExitOk;
}

// --- check -------------------------------------------------------------------

// What the repair changes (or would change), in words; "" when nothing.
std::string RepairText(const ZMCheckPlan& plan, bool dry) {
  std::string line;
  if (plan.RepairsHeader())
    line += std::string(dry ? "would repair" : "repaired") + " the header: data length " +
            std::to_string(plan.before.DataLength()) + " -> " + std::to_string(plan.after.DataLength()) +
            " bytes, duration " + Seconds(plan.before.Duration()) + " -> " + Seconds(plan.after.Duration());
  if (plan.CutsIndex())
    line += std::string(line.empty() ? "" : "; ") + (dry ? "would cut" : "cut") + " the index " + plan.indexPath +
            " from " + std::to_string((plan.indexSize - kZMIndexHeaderSize) / kZMIndexEntrySize) + " to " +
            std::to_string((plan.indexCutTo - kZMIndexHeaderSize) / kZMIndexEntrySize) + " entries";
  return line;
}

int Check() {
  bool failed = false;
  json all = json::array();
  for (const std::string& f : g.files) {
    ZMCheckPlan plan;
    json j{{"path", f},
           {"checked", false},
           {"repaired", false},
           {"index_cut", false},
           {"intact", false},
           {"end", nullptr},
           {"reported_end", nullptr},
           {"last_record", nullptr},
           {"data_length", nullptr},
           {"duration_100ns", nullptr},
           {"error", nullptr}};
    std::string line = f + ": ";
    std::string why;
    if (!platform::CheckRegularFile(f, &why)) {
      j["error"] = "not checked: " + why;
    } else {
      if (g.dryRun)
        PlanZMCheck(f.c_str(), &plan);
      else
        ApplyZMCheck(f.c_str(), &plan, true);
      if (!plan.checked) {
        j["error"] = "not checked: " + plan.notChecked;
      } else {
        j["checked"] = true;
        j["repaired"] = plan.RepairsHeader();
        j["index_cut"] = plan.CutsIndex();
        // The check's own end (the record before the last whole one, to the
        // second) is not the last record's time that `probe` shows: both
        // are given, each under its own name.
        j["end"] = j["reported_end"] = FormatTimeArg(ZMTimeToSysTime(plan.endZMTime), false);
        j["data_length"] = {plan.before.DataLength(), plan.after.DataLength()};
        j["duration_100ns"] = {plan.before.Duration(), plan.after.Duration()};
        if (g.dryRun) j["dry_run"] = true;
        std::string text = RepairText(plan, g.dryRun);
        // Intact means every reader answers now (after the repair), and a dry
        // run found nothing to repair.
        const json probe = ProbeOne(f);
        j["last_record"] = probe["last_record"];
        std::string wrong;
        if (!plan.writeError.empty()) wrong = plan.writeError;
        if (!probe["error"].is_null())
          wrong += std::string(wrong.empty() ? "" : "; ") + probe["error"].get<std::string>();
        const bool intact = wrong.empty() && (!g.dryRun || text.empty());
        j["intact"] = intact;
        if (!wrong.empty()) j["error"] = (g.dryRun || plan.writeError.empty() ? "still wrong: " : "") + wrong;
        if (!text.empty()) line += text + "; ";
        if (intact)
          line += g.dryRun ? "intact, nothing to repair" : "intact";
        else if (wrong.empty())
          line += "not intact until repaired";
        else
          line += (plan.writeError.empty() ? "still wrong: " : "") + wrong;
        if (!probe["last_record"].is_null()) line += "; last record " + probe["last_record"].get<std::string>();
        line +=
            "; reported end " + j["reported_end"].get<std::string>() + " (the record before the last, to the second)";
        if (!intact) failed = true;
      }
    }
    if (!j["error"].is_null() && !j["checked"].get<bool>()) {
      failed = true;
      line += j["error"].get<std::string>();
    }
    if (Globals().json)
      all.push_back(j);
    else
      (j["intact"].get<bool>() ? std::cout : std::cerr) << line << '\n';
  }
  if (Globals().json) std::cout << all.dump(2) << '\n';
  return failed ? kExitFailure : kExitOk;
}

// --- cut ---------------------------------------------------------------------
//
// The clip and its index are written by ConvertZMEToZME into a staged folder
// beside the destination, under the destination's own file names (so the
// writer names the index as it will be named in place). Only when the
// library's readers all answer for the staged clip, and its check finds
// nothing to repair, are the two files renamed over the destination and its
// index, as one step. A failure, a Ctrl-C, or a SIGKILL at any point leaves
// the destination and its index as they were and no stray file: the staged
// folder goes with the command, or with its guardian process, which also
// puts the old files back if the command dies between the two renames (see
// StagedFolder).

std::string FileName(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string FolderOf(const std::string& path) {
  const size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? "." : path.substr(0, slash == 0 ? 1 : slash);
}

// The same file, or the same name once resolved (for names not yet made).
bool SamePlace(const std::string& a, const std::string& b) {
  if (platform::SameFile(a, b)) return true;
  std::error_code ea, eb;
  const auto ca = std::filesystem::weakly_canonical(a, ea), cb = std::filesystem::weakly_canonical(b, eb);
  return !ea && !eb && ca == cb;
}

// Refuses a destination (or its index) that is the source or one of the
// names under which a reader looks for the source's index.
void RefuseOverlap(const std::string& src, const std::string& dst) {
  const std::vector<std::pair<std::string, std::string>> sources{{src, "the source"},
                                                                 {IndexNameForWriter(src), "the source's index"},
                                                                 {IndexNameLastDotOrAppend(src), "the source's index"},
                                                                 {IndexNameFirstDot(src), "the source's index"}};
  const std::string dstIndex = IndexNameForWriter(dst);
  const std::vector<std::pair<std::string, std::string>> outputs{{dst, "the destination " + dst},
                                                                 {dstIndex, "its index " + dstIndex}};
  for (const auto& [out, outName] : outputs)
    for (const auto& [in, inName] : sources)
      if (SamePlace(out, in))
        throw Failure("refusing to cut " + src + " onto itself: " + outName + " is " + inName + " (" + in +
                      "); nothing was written");
}

// Why the staged clip at `path` is not a whole recording; "" when it is.
std::string ClipProblem(const std::string& path) {
  const json j = ProbeOne(path);
  if (!j["error"].is_null()) return j["error"].get<std::string>();
  if (j["records"].is_null() || j["records"].get<uint64_t>() == 0) return "it holds no records";
  ZMCheckPlan plan;
  if (FAILED(PlanZMCheck(path.c_str(), &plan))) return plan.notChecked;
  if (plan.RepairsHeader() || plan.CutsIndex()) return "its check would repair it: " + RepairText(plan, true);
  return "";
}

int Cut() {
  const SYSTEMTIME from = ParseTimeArg(g.from, "--from");
  const SYSTEMTIME to = ParseTimeArg(g.to, "--to");
  FILETIME ftFrom{}, ftTo{};
  if (!SystemTimeToFileTime(from, &ftFrom) || !SystemTimeToFileTime(to, &ftTo))
    throw UsageError("--from or --to is out of range");
  if (FileTimeToInt64(ftTo) <= FileTimeToInt64(ftFrom))
    throw UsageError("--to (" + g.to + ") must be after --from (" + g.from + ")");

  std::string why;
  if (!platform::CheckRegularFile(g.src, &why)) throw Failure("cannot cut " + g.src + ": " + why);
  bool missing = false;
  if (!platform::CheckRegularFile(g.dst, &why, &missing) && !missing)
    throw Failure("refusing to replace " + g.dst + ": " + why);
  const std::string dstIndex = IndexNameForWriter(g.dst);
  if (!platform::CheckRegularFile(dstIndex, &why, &missing) && !missing)
    throw Failure("refusing to replace the index " + dstIndex + ": " + why);
  RefuseOverlap(g.src, g.dst);

  ZMFileSummary source;
  const HRESULT hr = SummarizeRecording(g.src.c_str(), &source);  // the header and the records
  if (FAILED(hr)) throw Failure("cannot cut " + g.src + ": " + source.problem + ResultCodeText(hr));
  std::string list;
  for (const std::string& t : g.texts) list += t + '\0';
  list += '\0';

  const std::string folder = FolderOf(g.dst);
  platform::SweepStaleStagedFolders(folder);
  platform::StagedFolder stage;
  if (!stage.Open(folder, &why)) throw Failure("cannot cut into " + g.dst + ": " + why);
  const std::string stagedClip = stage.path() + FileName(g.dst);
  const std::string stagedIndex = IndexNameForWriter(stagedClip);

  ZMEtoZME job;
  job.m_bSync = 0;
  int percent = 0;
  bool stopped = false;
  {
    StopRequest stop;
    Progress bar("cut");
    job.ConvertZMEToZME(stagedClip.c_str(), g.src.c_str(), &from, &to, list.c_str());
    while (job.IsValidThread()) {
      if (StopRequest::Requested() && job.m_bStop.load() == 0) job.m_bStop = 1;
      bar.Update(static_cast<int>(static_cast<int64_t>(job.GetPercent())));
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    job.Wait();
    percent = static_cast<int>(static_cast<int64_t>(job.GetPercent()));
    stopped = StopRequest::Requested();
    if (!stopped) bar.Update(percent);
  }

  const std::string untouched = platform::PathExists(g.dst) ? g.dst + " is untouched" : "nothing was written";
  if (stopped) throw Failure("stopped at " + std::to_string(percent) + "%: " + untouched);
  if (job.LastJobResult() != 0) {
    static const char* const kSteps[] = {"",
                                         "",
                                         "with a wrong time",
                                         "",
                                         "reading the source or creating the new recording",
                                         "finding the moments in the source",
                                         "copying into the new recording",
                                         "closing the new recording",
                                         "",
                                         "finishing the header of the new recording"};
    const DWORD step = job.LastJobResult();
    throw Failure(std::string("the cut failed ") + (step < 10 ? kSteps[step] : "") + ": " +
                  platform::FileErrorText(job.LastJobError()) + "; " + untouched);
  }
  const std::string problem = ClipProblem(stagedClip);
  if (!problem.empty())
    throw Failure("the cut of " + g.src + " made no whole recording (" + problem + "); " + untouched);

  // Both files in place as one step: a failure or a kill between the two
  // moves puts the old clip and index back (StagedFolder::CommitFiles).
  if (!platform::PathExists(stagedIndex)) throw Failure("the cut of " + g.src + " made no index; " + untouched);
  if (!stage.CommitFiles({{FileName(g.dst), g.dst}, {FileName(stagedIndex), dstIndex}}, &why))
    throw Failure(why + "; " + untouched);
  stage.Discard();

  ZMFileSummary clip;
  SummarizeRecording(g.dst.c_str(), &clip);
  std::cout << g.dst << ": " << clip.records << " records, " << clip.header.DataLength() << " bytes";
  FILETIME a{}, b{};
  if (SUCCEEDED(GetZMFileStartTime(g.dst.c_str(), &a)) && SUCCEEDED(GetZMFileEndTime(g.dst.c_str(), &b)))
    std::cout << ", " << FileTimeText(FileTimeToInt64(a)) << " to " << FileTimeText(FileTimeToInt64(b));
  std::cout << '\n';
  return kExitOk;
}

void Register(CLI::App& app) {
  const char* kForm = "Local time: YYYY-MM-DD hh:mm:ss";

  CLI::App* probe =
      AddCommand(&app, "probe", "Start, end, length, codec, picture size and counts of recordings", Probe);
  probe->add_option("FILE", g.files, "Recording files")->required();
  AddJsonFlag(probe);

  CLI::App* check = AddCommand(
      &app, "check", "Check recordings and repair a damaged tail and index in place (files must be closed)", Check);
  check->add_option("FILE", g.files, "Recording files")->required();
  check->add_flag("--dry-run", g.dryRun, "Say what would be repaired and change nothing");
  AddJsonFlag(check);

  CLI::App* cut =
      AddCommand(&app, "cut", "Cut the records between two moments into a new recording (Ctrl-C stops)", Cut);
  cut->add_option("SRC", g.src, "Source recording")->required();
  cut->add_option("DST", g.dst, "New recording (replaced, with its index, only when the cut is whole)")->required();
  cut->add_option("--from", g.from, kForm)->required();
  cut->add_option("--to", g.to, kForm)->required();
  cut->add_option("--text", g.texts, "A text stored in the new file's header (repeatable)");
  cut->footer(
      "Examples:\n"
      "  dravix cut cam01.dat clip.dat --from '2008-03-15 12:00:10' --to '2008-03-15 12:00:40'\n"
      "  dravix cut cam01.dat /mnt/usb/door.dat --from '2008-03-15 12:00:00' --to '2008-03-15 12:05:00' \\\n"
      "      --text 'Back door' --text 'case 1742'\n"
      "The clip and its index appear together, or not at all; `dravix probe clip.dat` shows its span.");
}

const Registration reg{60, Register};

}  // namespace
}  // namespace dravix::cli
