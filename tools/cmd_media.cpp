// `dravix probe | check | cut`: recording files from
// the shell.
#include "tools/command.h"
#include "tools/progress.h"
#include "tools/table.h"
#include "tools/time_arg.h"

#include "dravix/base/ztime.h"
#include "dravix/media/zm_file.h"
#include "dravix/media/zm_sample.h"
#include "dravix/media/zm_summary.h"
#include "dravix/media/zme_to_zme.h"

#include <nlohmann/json.hpp>

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
};
Args g;

std::string Hr(HRESULT hr) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "0x%08X", static_cast<unsigned>(hr));
  switch (hr) {
    case E_FAIL: return std::string("E_FAIL (") + buf + ")";
    case E_POINTER: return std::string("E_POINTER (") + buf + ")";
    case E_UNEXPECTED: return std::string("E_UNEXPECTED (") + buf + ")";
    case E_OUTOFMEMORY: return std::string("E_OUTOFMEMORY (") + buf + ")";
    default: return buf;
  }
}

std::string FileTimeText(int64_t ft) {
  SYSTEMTIME st{};
  if (!FileTimeToSystemTime(Int64ToFileTime(ft), &st)) return "(out of range)";
  return FormatTimeArg(st, true);
}

std::string Seconds(int64_t ticks) {
  std::ostringstream s;
  s.setf(std::ios::fixed);
  s.precision(3);
  s << static_cast<double>(ticks) / 1e7 << " s";
  return s.str();
}

const char* CodecName(int codec) { return codec == kCodecH263 ? "H.263" : codec == kCodecMJPEG ? "MJPEG" : nullptr; }

// --- probe -------------------------------------------------------------------

json ProbeOne(const std::string& path) {
  json j{{"path", path}, {"start", nullptr}, {"end", nullptr}, {"start_filetime", nullptr},
         {"end_filetime", nullptr}, {"length_100ns", nullptr}, {"codec", nullptr}, {"size_code", nullptr},
         {"streams", nullptr}, {"records", nullptr}, {"error", nullptr}};
  std::vector<std::string> errors;
  FILETIME ft{};
  HRESULT hr = GetZMFileStartTime(path.c_str(), &ft);
  if (SUCCEEDED(hr)) {
    j["start_filetime"] = FileTimeToInt64(ft);
    j["start"] = FileTimeText(FileTimeToInt64(ft));
  } else {
    errors.push_back("start time: " + Hr(hr));
  }
  hr = GetZMFileEndTime(path.c_str(), &ft);
  if (SUCCEEDED(hr)) {
    j["end_filetime"] = FileTimeToInt64(ft);
    j["end"] = FileTimeText(FileTimeToInt64(ft));
  } else {
    errors.push_back("end time: " + Hr(hr));
  }
  __int64 length = 0;
  hr = ZMergeAVI::GetZMFileTime(path.c_str(), &length);
  if (SUCCEEDED(hr))
    j["length_100ns"] = length;
  else
    errors.push_back("length: " + Hr(hr));
  SYSTEMTIME st{};
  __int64 duration = 0;
  int codec = -1, size = -1;
  if (GetVideoData(path.c_str(), &st, &duration, &codec, &size) == 1) {
    if (const char* name = CodecName(codec)) j["codec"] = name;
    if (size >= 0) j["size_code"] = size;
  } else {
    errors.push_back("video data: unreadable");
  }
  ZMFileSummary sum;
  if (SUCCEEDED(SummarizeRecording(path.c_str(), &sum))) {
    j["streams"] = sum.streams;
    j["records"] = sum.records;
    if (!sum.recordsComplete) errors.push_back("data area: damaged after record " + std::to_string(sum.records));
  }
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
  Table table({"file", "start", "end", "length", "codec", "size", "streams", "records", "error"});
  for (const std::string& f : g.files) {
    json j = ProbeOne(f);
    failed = failed || !j["error"].is_null();
    if (Globals().json) {
      all.push_back(j);
      continue;
    }
    const std::string size = j["size_code"].is_null()
                                 ? "-"
                                 : std::to_string(kZMPictureSizes[j["size_code"].get<int>()].width) + "x" +
                                       std::to_string(kZMPictureSizes[j["size_code"].get<int>()].height);
    table.Add({f, Text(j["start"]), Text(j["end"]),
               j["length_100ns"].is_null() ? "-" : Seconds(j["length_100ns"].get<int64_t>()), Text(j["codec"]), size,
               Text(j["streams"]), Text(j["records"]), Text(j["error"])});
  }
  if (Globals().json)
    std::cout << all.dump(2) << '\n';
  else
    table.Print(std::cout);
  return failed ? kExitFailure : kExitOk;
}

// --- check -------------------------------------------------------------------

int Check() {
  bool failed = false;
  json all = json::array();
  for (const std::string& f : g.files) {
    ZMFileSummary before, after;
    const HRESULT hrBefore = SummarizeRecording(f.c_str(), &before);
    const __int64 kUnset = -1;
    __int64 end = kUnset;
    ZCheckZMFile(f.c_str(), &end);
    SummarizeRecording(f.c_str(), &after);
    json j{{"path", f}, {"checked", end != kUnset}, {"repaired", false}, {"index_cut", false}, {"end", nullptr}};
    std::string line = f + ": ";
    if (end == kUnset) {
      failed = true;
      line += FAILED(hrBefore) && !std::filesystem::exists(f)
                  ? "not checked: no such file"
                  : "not checked: it cannot be opened exclusively (in use, still being written, or unreadable)";
      j["error"] = line.substr(f.size() + 2);
    } else {
      const bool repaired = std::memcmp(before.header.bytes, after.header.bytes, kZMHeaderSize) != 0;
      const bool indexCut = after.indexEntries != before.indexEntries;
      j["repaired"] = repaired;
      j["index_cut"] = indexCut;
      j["end"] = FormatTimeArg(ZMTimeToSysTime(end), true);
      j["data_length"] = {before.header.DataLength(), after.header.DataLength()};
      j["duration_100ns"] = {before.header.Duration(), after.header.Duration()};
      j["index_entries"] = {before.indexEntries, after.indexEntries};
      if (!repaired && !indexCut) line += "intact";
      if (repaired)
        line += "repaired the header: data length " + std::to_string(before.header.DataLength()) + " -> " +
                std::to_string(after.header.DataLength()) + " bytes, duration " + Seconds(before.header.Duration()) +
                " -> " + Seconds(after.header.Duration()) + " (" + std::to_string(after.records) + " records kept)";
      if (indexCut)
        line += std::string(repaired ? "; " : "") + "cut the index " + after.indexPath + " from " +
                std::to_string(before.indexEntries) + " to " + std::to_string(after.indexEntries) + " entries";
      line += "; reported end " + j["end"].get<std::string>();
    }
    if (Globals().json)
      all.push_back(j);
    else
      std::cout << line << '\n';
  }
  if (Globals().json) std::cout << all.dump(2) << '\n';
  return failed ? kExitFailure : kExitOk;
}

// --- cut ---------------------------------------------------------------------

volatile std::sig_atomic_t g_interrupted = 0;
extern "C" void OnInterrupt(int) { g_interrupted = 1; }

int Cut() {
  const SYSTEMTIME from = ParseTimeArg(g.from, "--from");
  const SYSTEMTIME to = ParseTimeArg(g.to, "--to");
  __int64 length = 0;
  const HRESULT hr = ZMergeAVI::GetZMFileTime(g.src.c_str(), &length);  // the header alone
  if (FAILED(hr)) throw Failure("cannot read the recording " + g.src + ": " + Hr(hr));
  std::string list;
  for (const std::string& t : g.texts) list += t + '\0';
  list += '\0';
  std::error_code ec;
  std::filesystem::remove(g.dst, ec);

  ZMEtoZME job;
  job.m_bSync = 0;
  g_interrupted = 0;
  void (*previous)(int) = std::signal(SIGINT, OnInterrupt);
  int percent = 0;
  {
    Progress bar("cut");
    job.ConvertZMEToZME(g.dst.c_str(), g.src.c_str(), &from, &to, list.c_str());
    while (job.IsValidThread()) {
      if (g_interrupted && job.m_bStop.load() == 0) job.m_bStop = 1;
      bar.Update(static_cast<int>(static_cast<int64_t>(job.GetPercent())));
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    job.Wait();
    percent = static_cast<int>(static_cast<int64_t>(job.GetPercent()));
    if (!g_interrupted) bar.Update(percent);
  }
  std::signal(SIGINT, previous == SIG_ERR ? SIG_DFL : previous);

  ZMFileSummary clip;
  if (FAILED(SummarizeRecording(g.dst.c_str(), &clip)))
    throw Failure("the cut of " + g.src + " made no readable " + g.dst);
  if (g_interrupted)
    throw Failure("stopped at " + std::to_string(percent) + "%: " + g.dst + " holds the " +
                  std::to_string(clip.records) + " records copied so far; its header was not finished");
  std::cout << g.dst << ": " << clip.records << " records, " << clip.header.DataLength() << " bytes";
  if (clip.records > 0) {
    FILETIME a{}, b{};
    if (SUCCEEDED(GetZMFileStartTime(g.dst.c_str(), &a)) && SUCCEEDED(GetZMFileEndTime(g.dst.c_str(), &b)))
      std::cout << ", " << FileTimeText(FileTimeToInt64(a)) << " to " << FileTimeText(FileTimeToInt64(b));
  }
  std::cout << '\n';
  return kExitOk;
}

void Register(CLI::App& app) {
  const char* kForm = "local time: YYYY-MM-DD hh:mm:ss";

  CLI::App* probe = AddCommand(&app, "probe", "start, end, length, codec, picture size and counts of recordings", Probe);
  probe->add_option("FILE", g.files, "recording files")->required();
  AddJsonFlag(probe);

  CLI::App* check = AddCommand(&app, "check",
                               "check recordings and repair a damaged tail and index in place (files must be closed)",
                               Check);
  check->add_option("FILE", g.files, "recording files")->required();
  AddJsonFlag(check);

  CLI::App* cut = AddCommand(&app, "cut", "cut the records between two moments into a new recording (Ctrl-C stops)",
                             Cut);
  cut->add_option("SRC", g.src, "source recording")->required();
  cut->add_option("DST", g.dst, "new recording (replaced)")->required();
  cut->add_option("--from", g.from, kForm)->required();
  cut->add_option("--to", g.to, kForm)->required();
  cut->add_option("--text", g.texts, "a text stored in the new file's header (repeatable)");
}

const Registration reg{60, Register};

}  // namespace
}  // namespace dravix::cli
