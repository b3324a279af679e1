// Export of a 512 MiB recording to Matroska (a stream copy) next to cp of
// the same file, in the same run, both in the page cache (/dev/shm or
// $TMPDIR):
//   CopyBaseline   cp of the recording file
//   ExportMkv      ExportRecordings to .mkv (read, judge, mux, write, read
//                  back the result's streams, put it in place)
// Each writes a new file (the previous one is removed untimed). The run ends
// with the ratio of the median times, cp / export (the target is at least
// 0.8). Single runs, fifteen of each, interleaved at random: on a virtual
// machine one page-cache run in several takes two to five times as long
// (all of it in the kernel's writes into the new file), and a median of
// single runs stays clear of those where a mean of a few does not.
// The recording holds noise frames behind MJPEG picture starts: a stream
// copy never decodes them. DRAVIX_BENCH_MIB changes the size.
#include "dravix/base/ztime.h"
#include "dravix/media/zm_export.h"
#include "dravix/media/zm_format.h"
#include "dravix/media/zm_sample.h"
#include "median_reporter.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>

namespace {

using namespace dravix::media;
namespace fs = std::filesystem;

struct Recording {
  std::string dir, path, copy, mkv;
  int64_t fileSize = 0;

  Recording() {
    std::error_code ec;
    const fs::path base = fs::is_directory("/dev/shm", ec) ? fs::path("/dev/shm") : fs::temp_directory_path();
    dir = (base / ("dravix-bench-" + std::to_string(std::random_device{}()))).string();
    fs::create_directories(dir);
    path = dir + "/rec.dat";
    copy = dir + "/copy.dat";
    mkv = dir + "/rec.mkv";
    const char* mib = std::getenv("DRAVIX_BENCH_MIB");
    ZMSampleOptions o;
    o.targetBytes = static_cast<uint64_t>(mib ? std::atoi(mib) : 512) << 20;
    o.codec = kCodecMJPEG;
    o.meanFrameBytes = 20000;
    SYSTEMTIME st{2008, 3, 0, 15, 12, 0, 0, 0};
    FILETIME ft{};
    SystemTimeToFileTime(st, &ft);
    o.startTime = FileTimeToInt64(ft);
    ZMSampleStats stats;
    if (FAILED(WriteSampleRecording(path.c_str(), o, &stats))) std::abort();
    fileSize = static_cast<int64_t>(fs::file_size(path));
  }
  ~Recording() {
    std::error_code ec;
    fs::remove_all(dir, ec);
  }
};

Recording& Rec() {
  static Recording r;
  return r;
}

void BM_CopyBaseline(benchmark::State& state) {
  Recording& r = Rec();
  const std::string cmd = "cp '" + r.path + "' '" + r.copy + "'";
  for (auto _ : state) {
    state.PauseTiming();
    std::filesystem::remove(r.copy);
    state.ResumeTiming();
    if (std::system(cmd.c_str()) != 0) state.SkipWithError("cp");
  }
  state.SetBytesProcessed(state.iterations() * r.fileSize);
}

void BM_ExportMkv(benchmark::State& state) {
  Recording& r = Rec();
  ZMExportRequest req;
  req.sources = {r.path};
  req.output = r.mkv;
  for (auto _ : state) {
    state.PauseTiming();
    std::filesystem::remove(r.mkv);
    state.ResumeTiming();
    const ZMExportReport rep = ExportRecordings(req);
    if (rep.status != ZMExportStatus::kOk) state.SkipWithError(rep.error.c_str());
  }
  state.SetBytesProcessed(state.iterations() * r.fileSize);
}

BENCHMARK(BM_CopyBaseline)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->UseRealTime()
    ->Repetitions(15)
    ->ReportAggregatesOnly(true);
BENCHMARK(BM_ExportMkv)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1)
    ->UseRealTime()
    ->Repetitions(15)
    ->ReportAggregatesOnly(true);

class RatioReporter : public MedianReporter {
 public:
  void Finalize() override {
    MedianReporter::Finalize();
    const double cp = Real("BM_CopyBaseline"), mkv = Real("BM_ExportMkv");
    if (cp > 0 && mkv > 0)
      std::printf(".mkv export speed / cp speed: %.2f (median %.0f ms vs %.0f ms)\n", cp / mkv, mkv, cp);
  }
};

}  // namespace

int main(int argc, char** argv) {
  RatioReporter reporter;
  RunInterleaved(argc, argv, &reporter);
  return 0;
}
