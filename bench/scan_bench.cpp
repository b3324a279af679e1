// Scanning a record folder of 10,000 small recordings (16 cameras, 30 days,
// the recorder's folder layout) next to reading the first 4 KiB of each file
// in the same run, both in the page cache (/dev/shm or $TMPDIR):
//   First4KiB        walk the folder; open, read 4 KiB and close every file
//   ScanRecordings   the timeline's scan: header, index and tail of each
// Compare the times: ScanRecordings at most 3x First4KiB.
// DRAVIX_BENCH_FILES changes the number of recordings.
#include "dravix/media/folder_scan.h"
#include "dravix/media/recording_name.h"
#include "dravix/media/zm_format.h"
#include "dravix/media/zm_sample.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>

namespace {

using namespace dravix::media;
namespace fs = std::filesystem;

constexpr int64_t kTicksPerSecond = 10000000;

struct Folder {
  std::string dir;
  int files = 0;

  Folder() {
    std::error_code ec;
    const fs::path base = fs::is_directory("/dev/shm", ec) ? fs::path("/dev/shm") : fs::temp_directory_path();
    dir = (base / ("dravix-scan-bench-" + std::to_string(std::random_device{}()))).string();
    const char* n = std::getenv("DRAVIX_BENCH_FILES");
    const int total = n ? std::atoi(n) : 10000;
    const int perCameraDay = (total + 16 * 30 - 1) / (16 * 30);
    // 2008-03-01 00:00 local, as a FILETIME.
    const int64_t origin = 128488032000000000;
    for (int day = 0; day < 30 && files < total; ++day)
      for (int camera = 1; camera <= 16 && files < total; ++camera)
        for (int k = 0; k < perCameraDay && files < total; ++k, ++files) {
          ZMSampleOptions o;
          o.startTime = origin + (day * 86400LL + 3600 + k * 600) * kTicksPerSecond;
          o.seconds = 2;
          o.framesPerSecond = 5;
          o.keyInterval = 5;
          o.meanFrameBytes = 1500;
          o.audio = false;
          o.seed = static_cast<uint64_t>(files) + 1;
          const std::string path = RecordingPath(dir, camera, o.startTime);
          fs::create_directories(fs::path(path).parent_path());
          if (FAILED(WriteSampleRecording(path.c_str(), o))) std::abort();
        }
  }
  ~Folder() {
    std::error_code ec;
    fs::remove_all(dir, ec);
  }
};

Folder& TheFolder() {
  static Folder f;
  return f;
}

void BM_First4KiB(benchmark::State& state) {
  Folder& f = TheFolder();
  char buffer[4096];
  for (auto _ : state) {
    int seen = 0;
    for (const fs::directory_entry& e : fs::recursive_directory_iterator(f.dir)) {
      if (!e.is_regular_file() || e.path().extension() != ".dat") continue;
      const int fd = ::open(e.path().c_str(), O_RDONLY | O_CLOEXEC);
      if (fd < 0) std::abort();
      benchmark::DoNotOptimize(::pread(fd, buffer, sizeof buffer, 0));
      ::close(fd);
      ++seen;
    }
    if (seen != f.files) state.SkipWithError("files went missing");
  }
  state.SetItemsProcessed(state.iterations() * f.files);
}

void BM_ScanRecordings(benchmark::State& state) {
  Folder& f = TheFolder();
  for (auto _ : state) {
    int intact = 0;
    std::string error;
    ScanRecordings(
        f.dir, {},
        [&](const ZMScannedFile& s) {
          intact += s.state == ZMScanState::kIntact;
          return true;
        },
        &error);
    if (intact != f.files) state.SkipWithError("a recording did not scan as intact");
  }
  state.SetItemsProcessed(state.iterations() * f.files);
}

BENCHMARK(BM_First4KiB)->Unit(benchmark::kMillisecond)->UseRealTime()->Repetitions(3)->ReportAggregatesOnly(true);
BENCHMARK(BM_ScanRecordings)->Unit(benchmark::kMillisecond)->UseRealTime()->Repetitions(3)->ReportAggregatesOnly(true);

}  // namespace

BENCHMARK_MAIN();
