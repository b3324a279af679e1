// Frame scaling against libyuv and libswscale, side by side in one run.
//
//   Y/<size>/dravix|libyuv|swscale    Y_downsample vs ScalePlane(kFilterNone)
//                                     vs swscale SWS_POINT on GRAY8
//   UV/<size>/...                     UV_downsample on the half-size plane of
//                                     a <size> picture, same baselines on
//                                     that plane
//   Y|UV/<size>/avx2                  the same on the AVX2 path, when the
//                                     best path is another one
//   RGB/<size>/dravix|libyuv|swscale  Resample vs libyuv RGBScale
//                                     (kFilterBilinear) vs swscale
//                                     SWS_BILINEAR on RGB24
//
// bytes_per_second counts the source picture's bytes. Each case runs five
// times; after the runs a table gives each baseline's fastest CPU time divided
// by ours (above 1: we are faster); the last column holds libyuv against the
// AVX2 path.
#include "dravix/imaging/scale.h"
#include "dravix/imaging/scale_paths.h"

#include <benchmark/benchmark.h>
#include <libyuv.h>

extern "C" {
#include <libavutil/pixfmt.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

// Exported by libyuv but missing from Debian's headers.
namespace libyuv {
extern "C" int RGBScale(const uint8_t* src_rgb, int src_stride_rgb, int src_width,
                        int src_height, uint8_t* dst_rgb, int dst_stride_rgb, int dst_width,
                        int dst_height, enum FilterMode filtering);
}  // namespace libyuv

namespace {

struct Size4 {
  int sw, sh, dw, dh;
  std::string Name() const {
    return std::to_string(sw) + "x" + std::to_string(sh) + "->" + std::to_string(dw) + "x" +
           std::to_string(dh);
  }
};

// 64-byte aligned, filled with noise: swscale warns on unaligned planes.
struct Buffer {
  explicit Buffer(size_t n) : size(n), data(static_cast<uint8_t*>(std::aligned_alloc(64, (n + 63) / 64 * 64 + 64))) {
    std::mt19937 gen(static_cast<uint32_t>(n));
    for (size_t i = 0; i < n; ++i) data[i] = static_cast<uint8_t>(gen());
  }
  ~Buffer() { std::free(data); }
  size_t size;
  uint8_t* data;
};

enum class Kind { kY, kUV, kRGB };

// The plane or picture sizes each implementation sees for a request.
struct Planes {
  int sw, sh, dw, dh, bpp;
};

Planes PlanesOf(Kind kind, const Size4& s) {
  if (kind == Kind::kUV) return {s.sw / 2, s.sh / 2, s.dw / 2, s.dh / 2, 1};
  return {s.sw, s.sh, s.dw, s.dh, kind == Kind::kRGB ? 3 : 1};
}

void RunDravix(benchmark::State& state, Kind kind, Size4 s) {
  const Planes p = PlanesOf(kind, s);
  Buffer src(size_t(p.sw) * p.sh * p.bpp), dst(size_t(p.dw) * p.dh * p.bpp);
  for (auto _ : state) {
    if (kind == Kind::kY) Y_downsample(src.data, dst.data, s.sw, s.sh, s.dw, s.dh);
    if (kind == Kind::kUV) UV_downsample(src.data, dst.data, s.sw, s.sh, s.dw, s.dh);
    if (kind == Kind::kRGB) Resample(s.sw, s.sh, s.dw, s.dh, src.data, dst.data);
    benchmark::DoNotOptimize(dst.data);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(src.size));
}

// The plane functions on the AVX2 path, as on a CPU without AVX-512.
void RunDravixAvx2(benchmark::State& state, Kind kind, Size4 s) {
  using dravix::imaging::ScalePath;
  const Planes p = PlanesOf(kind, s);
  Buffer src(size_t(p.sw) * p.sh * p.bpp), dst(size_t(p.dw) * p.dh * p.bpp);
  for (auto _ : state) {
    if (kind == Kind::kY) dravix::imaging::YDownsampleOn(ScalePath::kAvx2, src.data, dst.data, s.sw, s.sh, s.dw, s.dh);
    if (kind == Kind::kUV) dravix::imaging::UVDownsampleOn(ScalePath::kAvx2, src.data, dst.data, s.sw, s.sh, s.dw, s.dh);
    benchmark::DoNotOptimize(dst.data);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(src.size));
}

void RunLibyuv(benchmark::State& state, Kind kind, Size4 s) {
  const Planes p = PlanesOf(kind, s);
  Buffer src(size_t(p.sw) * p.sh * p.bpp), dst(size_t(p.dw) * p.dh * p.bpp);
  for (auto _ : state) {
    if (kind == Kind::kRGB) {
      libyuv::RGBScale(src.data, 3 * p.sw, p.sw, p.sh, dst.data, 3 * p.dw, p.dw, p.dh,
                       libyuv::kFilterBilinear);
    } else {
      libyuv::ScalePlane(src.data, p.sw, p.sw, p.sh, dst.data, p.dw, p.dw, p.dh,
                         libyuv::kFilterNone);
    }
    benchmark::DoNotOptimize(dst.data);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(src.size));
}

void RunSwscale(benchmark::State& state, Kind kind, Size4 s) {
  const Planes p = PlanesOf(kind, s);
  Buffer src(size_t(p.sw) * p.sh * p.bpp), dst(size_t(p.dw) * p.dh * p.bpp);
  const AVPixelFormat fmt = kind == Kind::kRGB ? AV_PIX_FMT_RGB24 : AV_PIX_FMT_GRAY8;
  const int flags = kind == Kind::kRGB ? SWS_BILINEAR : SWS_POINT;
  SwsContext* ctx = sws_getContext(p.sw, p.sh, fmt, p.dw, p.dh, fmt, flags, nullptr, nullptr, nullptr);
  if (ctx == nullptr) {
    state.SkipWithError("sws_getContext failed");
    return;
  }
  const uint8_t* srcPlanes[4] = {src.data, nullptr, nullptr, nullptr};
  uint8_t* dstPlanes[4] = {dst.data, nullptr, nullptr, nullptr};
  const int srcStrides[4] = {p.sw * p.bpp, 0, 0, 0};
  const int dstStrides[4] = {p.dw * p.bpp, 0, 0, 0};
  for (auto _ : state) {
    sws_scale(ctx, srcPlanes, srcStrides, 0, p.sh, dstPlanes, dstStrides);
    benchmark::DoNotOptimize(dst.data);
    benchmark::ClobberMemory();
  }
  sws_freeContext(ctx);
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(src.size));
}

// Console output as usual, then a table of baseline time / our time.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs) {
      if (r.error_occurred || r.run_type != Run::RT_Aggregate || r.aggregate_name != "min") continue;
      const std::string name = r.run_name.function_name;
      const size_t slash = name.rfind('/');
      const std::string impl = name.substr(slash + 1);
      const std::string cas = name.substr(0, slash);
      if (times_.find(cas) == times_.end()) order_.push_back(cas);
      times_[cas][impl] = r.GetAdjustedCPUTime();
    }
    ConsoleReporter::ReportRuns(runs);
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    std::printf("\n%-28s %12s %12s %12s %12s\n", "case", "dravix", "libyuv/ours", "swscale/ours",
                "libyuv/avx2");
    for (const std::string& cas : order_) {
      auto& t = times_[cas];
      auto ratio = [&](const char* base, const char* ours) {
        return t.count(ours) && t[ours] > 0 && t.count(base) ? t[base] / t[ours] : 0.0;
      };
      std::printf("%-28s %10.1fus %11.2fx %11.2fx %11.2fx\n", cas.c_str(),
                  t.count("dravix") ? t["dravix"] : 0.0, ratio("libyuv", "dravix"),
                  ratio("swscale", "dravix"), ratio("libyuv", "avx2"));
    }
  }

 private:
  std::vector<std::string> order_;
  std::map<std::string, std::map<std::string, double>> times_;
};

// The machine may be shared: each case runs five times and the ratios use
// the fastest repetition of each implementation.
void Tune(benchmark::internal::Benchmark* b) {
  b->Unit(benchmark::kMicrosecond)
      ->Repetitions(5)
      ->ReportAggregatesOnly(true)
      ->ComputeStatistics("min", [](const std::vector<double>& v) { return *std::min_element(v.begin(), v.end()); });
}

void Register(Kind kind, const char* prefix, const Size4& s) {
  const std::string base = std::string(prefix) + "/" + s.Name() + "/";
  Tune(benchmark::RegisterBenchmark((base + "dravix").c_str(), RunDravix, kind, s));
  if (kind != Kind::kRGB && dravix::imaging::ScalePathAvailable(dravix::imaging::ScalePath::kAvx2) &&
      dravix::imaging::BestScalePath() != dravix::imaging::ScalePath::kAvx2) {
    Tune(benchmark::RegisterBenchmark((base + "avx2").c_str(), RunDravixAvx2, kind, s));
  }
  Tune(benchmark::RegisterBenchmark((base + "libyuv").c_str(), RunLibyuv, kind, s));
  Tune(benchmark::RegisterBenchmark((base + "swscale").c_str(), RunSwscale, kind, s));
}

}  // namespace

int main(int argc, char** argv) {
  const Size4 planeSizes[] = {{1920, 1080, 960, 540}, {704, 576, 352, 288}, {1920, 1080, 640, 360},
                              {1280, 720, 704, 396}};
  const Size4 rgbSizes[] = {{1920, 1080, 960, 540}, {704, 576, 352, 288}, {352, 288, 704, 576},
                            {640, 480, 1280, 960}};
  for (const Size4& s : planeSizes) Register(Kind::kY, "Y", s);
  for (const Size4& s : planeSizes) Register(Kind::kUV, "UV", s);
  for (const Size4& s : rgbSizes) Register(Kind::kRGB, "RGB", s);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
