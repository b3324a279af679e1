// Recording-file walks on a 512 MiB recording in the page cache, each next
// to its baseline in the same run:
//   ReadLoop          a plain read() loop of 256 KiB chunks over the file
//   TimeToFilePos     a moment near the end, no index (the whole file walked)
//   GetZMFileEndTime  no index (every record walked from byte 4096)
//   ZCheckZMFile      an intact file (every record judged, nothing written)
//   CopyBaseline      cp of a file as long as the middle half
//   Convert           ConvertZMEToZME of the middle half (with the index, as
//                     recordings have one; the walks above use a second name
//                     of the same file, which has none)
// Compare bytes_per_second: each walk against ReadLoop, Convert against
// CopyBaseline. The files go to /dev/shm (or $TMPDIR) and are removed at
// exit. DRAVIX_BENCH_MIB changes the recording's size.
#include "dravix/base/ztime.h"
#include "dravix/media/zm_file.h"
#include "dravix/media/zm_format.h"
#include "dravix/media/zm_sample.h"
#include "dravix/media/zme_to_zme.h"
#include "dravix/platform/file_io.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

using namespace dravix::media;
namespace fs = std::filesystem;

struct Recording {
  std::string dir, path, indexed, half, halfCopy, clip;
  int64_t start = 0;
  uint32_t lastTime = 0;
  int64_t fileSize = 0;
  int64_t halfBytes = 0;

  Recording() {
    std::error_code ec;
    const fs::path base = fs::is_directory("/dev/shm", ec) ? fs::path("/dev/shm") : fs::temp_directory_path();
    dir = (base / ("dravix-bench-" + std::to_string(std::random_device{}()))).string();
    fs::create_directories(dir);
    indexed = dir + "/rec.dat";
    path = dir + "/walk.dat";
    half = dir + "/half.bin";
    halfCopy = dir + "/half-copy.bin";
    clip = dir + "/clip.dat";
    const char* mib = std::getenv("DRAVIX_BENCH_MIB");
    ZMSampleOptions o;
    o.targetBytes = static_cast<uint64_t>(mib ? std::atoi(mib) : 512) << 20;
    o.meanFrameBytes = 20000;
    SYSTEMTIME st{2008, 3, 0, 15, 12, 0, 0, 0};
    FILETIME ft{};
    SystemTimeToFileTime(st, &ft);
    o.startTime = start = FileTimeToInt64(ft);
    ZMSampleStats stats;
    if (FAILED(WriteSampleRecording(indexed.c_str(), o, &stats))) std::abort();
    fs::create_hard_link(indexed, path);  // walk.dat has no walk.idx
    lastTime = stats.lastTime;
    fileSize = static_cast<int64_t>(fs::file_size(path));

    // A plain file as long as the middle half's records, for cp.
    __int64 a = start + static_cast<int64_t>(lastTime / 4) * kTicksPerMs;
    __int64 b = start + static_cast<int64_t>(lastTime / 4 * 3) * kTicksPerMs;
    __int64 offA = 0, offB = 0;
    ZMEtoZME::TimeToFilePos(path.c_str(), &a, &offA);
    ZMEtoZME::TimeToFilePos(path.c_str(), &b, &offB);
    halfBytes = offB - offA;
    dravix::platform::File in, out;
    if (!in.OpenRead(path.c_str()) || !out.Create(half.c_str()) || out.CopyFrom(in, offA, halfBytes) != halfBytes)
      std::abort();
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

void BM_ReadLoop(benchmark::State& state) {
  Recording& r = Rec();
  std::vector<uint8_t> buf(256 * 1024);
  for (auto _ : state) {
    dravix::platform::File f;
    if (!f.OpenRead(r.path.c_str())) state.SkipWithError("open");
    int64_t total = 0, n;
    while ((n = f.Read(buf.data(), buf.size())) > 0) total += n;
    benchmark::DoNotOptimize(total);
  }
  state.SetBytesProcessed(state.iterations() * r.fileSize);
}

void BM_TimeToFilePos(benchmark::State& state) {
  Recording& r = Rec();
  __int64 t = r.start + static_cast<int64_t>(r.lastTime - 1) * kTicksPerMs, off = 0;
  for (auto _ : state) {
    if (ZMEtoZME::TimeToFilePos(r.path.c_str(), &t, &off) != S_OK) state.SkipWithError("TimeToFilePos");
    benchmark::DoNotOptimize(off);
  }
  state.SetBytesProcessed(state.iterations() * r.fileSize);
}

void BM_GetZMFileEndTime(benchmark::State& state) {
  Recording& r = Rec();
  FILETIME ft{};
  for (auto _ : state) {
    if (GetZMFileEndTime(r.path.c_str(), &ft) != S_OK) state.SkipWithError("GetZMFileEndTime");
    benchmark::DoNotOptimize(ft);
  }
  state.SetBytesProcessed(state.iterations() * r.fileSize);
}

void BM_ZCheckZMFile(benchmark::State& state) {
  Recording& r = Rec();
  __int64 end = 0;
  for (auto _ : state) {
    ZCheckZMFile(r.path.c_str(), &end);
    benchmark::DoNotOptimize(end);
  }
  state.SetBytesProcessed(state.iterations() * r.fileSize);
}

void BM_CopyBaseline(benchmark::State& state) {
  Recording& r = Rec();
  const std::string cmd = "cp '" + r.half + "' '" + r.halfCopy + "'";
  for (auto _ : state)
    if (std::system(cmd.c_str()) != 0) state.SkipWithError("cp");
  state.SetBytesProcessed(state.iterations() * r.halfBytes);
}

void BM_Convert(benchmark::State& state) {
  Recording& r = Rec();
  SYSTEMTIME from{}, to{};
  FileTimeToSystemTime(Int64ToFileTime(r.start + static_cast<int64_t>(r.lastTime / 4) * kTicksPerMs), &from);
  FileTimeToSystemTime(Int64ToFileTime(r.start + static_cast<int64_t>(r.lastTime / 4 * 3) * kTicksPerMs), &to);
  for (auto _ : state) {
    ZMEtoZME job;
    job.ConvertZMEToZME(r.clip.c_str(), r.indexed.c_str(), &from, &to, nullptr);
    if (job.GetPercent() != 100) state.SkipWithError("clip incomplete");
  }
  state.SetBytesProcessed(state.iterations() * r.halfBytes);
}

BENCHMARK(BM_ReadLoop)->Unit(benchmark::kMillisecond)->MinTime(1.0)->UseRealTime();
BENCHMARK(BM_TimeToFilePos)->Unit(benchmark::kMillisecond)->MinTime(1.0)->UseRealTime();
BENCHMARK(BM_GetZMFileEndTime)->Unit(benchmark::kMillisecond)->MinTime(1.0)->UseRealTime();
BENCHMARK(BM_ZCheckZMFile)->Unit(benchmark::kMillisecond)->MinTime(1.0)->UseRealTime();
BENCHMARK(BM_CopyBaseline)->Unit(benchmark::kMillisecond)->MinTime(1.0)->UseRealTime();
BENCHMARK(BM_Convert)->Unit(benchmark::kMillisecond)->MinTime(1.0)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
