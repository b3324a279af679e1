// ILog::Write of 100-byte lines against the floor it is built on: plain
// write(2) of the same lines to a file opened O_APPEND. Both write into the
// same temporary folder. The run ends with the throughput ratio
// (log / plain; 1.0 means the log costs nothing over the system call).
#include "dravix/base/zfile.h"
#include "dravix/log/ilog.h"
#include "median_reporter.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

std::string g_folder;

const std::string& Line() {
  static const std::string line = std::string(98, 'L') + "\r\n";
  return line;
}

int OpenAppend(const std::string& path) { return open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644); }

void BM_PlainWrite(benchmark::State& state) {
  const std::string path = g_folder + "plain.log", old = g_folder + "OLDplain.log";
  int fd = OpenAppend(path);
  if (fd < 0) {
    state.SkipWithError("cannot open the baseline file");
    return;
  }
  const std::string& line = Line();
  // The file is started afresh every 3 MB the way the log rotates (old
  // generation deleted, current one renamed, new one opened), so both loops
  // pay the same file-system work and differ only by the log itself.
  constexpr int kLinesPerGeneration = 0x300000 / 100 + 1;
  int lines = 0;
  for (auto _ : state) {
    if (write(fd, line.data(), line.size()) != static_cast<ssize_t>(line.size())) state.SkipWithError("write failed");
    if (++lines == kLinesPerGeneration) {
      lines = 0;
      close(fd);
      unlink(old.c_str());
      rename(path.c_str(), old.c_str());
      fd = OpenAppend(path);
    }
  }
  close(fd);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * line.size()));
}

void BM_ILogWrite(benchmark::State& state) {
  ILog* log = ILog::Instance();
  if (!log->SetFilename("bench.log")) {
    state.SkipWithError("cannot name the log");
    return;
  }
  const std::string& line = Line();
  for (auto _ : state) {
    if (!log->Write(line.c_str())) state.SkipWithError("log write failed");
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * line.size()));
}

// Short runs, many of them, interleaved at random (see main): the machine's
// load drifts, and a drift must hit both loops alike.
BENCHMARK(BM_PlainWrite)->MinTime(0.3)->Repetitions(12)->ReportAggregatesOnly(true);
BENCHMARK(BM_ILogWrite)->MinTime(0.3)->Repetitions(12)->ReportAggregatesOnly(true);

class RatioReporter : public MedianReporter {
 public:
  void Finalize() override {
    MedianReporter::Finalize();
    const double plain = Real("BM_PlainWrite"), log = Real("BM_ILogWrite");
    if (plain > 0 && log > 0)
      std::printf(
          "ILog::Write throughput / plain write(2) throughput: %.3f (median %.0f ns vs %.0f ns per line; "
          "by CPU time %.3f)\n",
          plain / log, log, plain, Cpu("BM_PlainWrite") / Cpu("BM_ILogWrite"));
  }
};

}  // namespace

int main(int argc, char** argv) {
  char templ[] = "/tmp/dravix-log-bench-XXXXXX";
  if (mkdtemp(templ) == nullptr) return 1;
  g_folder = std::string(templ) + "/";
  SetModulePath(g_folder.c_str());
  RatioReporter reporter;
  RunInterleaved(argc, argv, &reporter);
  std::error_code ec;
  std::filesystem::remove_all(g_folder, ec);
  return 0;
}
