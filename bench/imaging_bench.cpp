// Frame scaling against libyuv and libswscale, side by side in one run.
//
//   Y/<size>/dravix|libyuv|swscale    Y_downsample vs ScalePlane(kFilterNone)
//                                     vs swscale SWS_POINT on GRAY8
//   UV/<size>/...                     UV_downsample on the half-size plane of
//                                     a <size> picture, same baselines on
//                                     that plane
//   Y|UV/<size>/avx2                  the same on the AVX2 path, when the
//                                     best path is another one
//   Y|UV/<size>/ceiling               at an exact 2:1, the same loads and
//                                     stores as the pick with no byte
//                                     shuffle: what the caches allow
//   RGB/<size>/dravix|libyuv|swscale  Resample vs libyuv RGBScale
//                                     (kFilterBilinear) vs swscale
//                                     SWS_BILINEAR on RGB24
//
// Every implementation of a case works on the same source and destination
// buffers, so they all meet the same physical pages and cache sets. The
// repetitions of all cases run in random order, so a neighbour's load on a
// shared machine falls on every implementation alike. bytes_per_second
// counts the source picture's bytes. After the runs a table gives each
// baseline's fastest CPU time divided by ours (above 1: we are faster); the
// last columns hold libyuv against the AVX2 path and the ceiling against us.
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

#if defined(__x86_64__)
#include <immintrin.h>
#endif

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
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;
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

// One case: the request and the buffers all its implementations share.
struct Case {
  Case(Kind k, const Size4& sz)
      : kind(k), s(sz), p(PlanesOf(k, sz)),
        src(size_t(p.sw) * p.sh * p.bpp), dst(size_t(p.dw) * p.dh * p.bpp) {}
  Kind kind;
  Size4 s;
  Planes p;
  Buffer src, dst;
};

template <typename Body>
void Measure(benchmark::State& state, const Case& c, Body body) {
  for (auto _ : state) {
    body();
    benchmark::DoNotOptimize(c.dst.data);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(c.src.size));
}

void RunDravix(benchmark::State& state, const Case* c) {
  Measure(state, *c, [c] {
    const Size4& s = c->s;
    if (c->kind == Kind::kY) Y_downsample(c->src.data, c->dst.data, s.sw, s.sh, s.dw, s.dh);
    if (c->kind == Kind::kUV) UV_downsample(c->src.data, c->dst.data, s.sw, s.sh, s.dw, s.dh);
    if (c->kind == Kind::kRGB) Resample(s.sw, s.sh, s.dw, s.dh, c->src.data, c->dst.data);
  });
}

// The plane functions on the AVX2 path, as on a CPU without AVX-512.
void RunDravixAvx2(benchmark::State& state, const Case* c) {
  using dravix::imaging::ScalePath;
  Measure(state, *c, [c] {
    const Size4& s = c->s;
    if (c->kind == Kind::kY) dravix::imaging::YDownsampleOn(ScalePath::kAvx2, c->src.data, c->dst.data, s.sw, s.sh, s.dw, s.dh);
    if (c->kind == Kind::kUV) dravix::imaging::UVDownsampleOn(ScalePath::kAvx2, c->src.data, c->dst.data, s.sw, s.sh, s.dw, s.dh);
  });
}

#if defined(__x86_64__)
// Loads every source byte of the even rows and stores every destination
// byte, 64 at a time, the way the 2:1 pick does, but with an OR where the
// pick shuffles: no halving can move these bytes faster.
__attribute__((target("avx512f"))) void LoadStoreHalves(const uint8_t* src, uint8_t* dst,
                                                         int srcWidth, int dstWidth,
                                                         int dstHeight) {
  for (int y = 0; y < dstHeight; ++y) {
    const uint8_t* row = src + 2LL * y * srcWidth;
    uint8_t* d = dst + static_cast<long long>(y) * dstWidth;
    for (int i = 0; i + 64 <= dstWidth; i += 64) {
      _mm512_storeu_si512(d + i, _mm512_or_si512(_mm512_loadu_si512(row + 2 * i),
                                                  _mm512_loadu_si512(row + 2 * i + 64)));
    }
    if (dstWidth % 64 != 0) {
      const int last = dstWidth - 64;
      _mm512_storeu_si512(d + last, _mm512_or_si512(_mm512_loadu_si512(row + 2 * last),
                                                     _mm512_loadu_si512(row + 2 * last + 64)));
    }
  }
}

void RunCeiling(benchmark::State& state, const Case* c) {
  Measure(state, *c, [c] { LoadStoreHalves(c->src.data, c->dst.data, c->p.sw, c->p.dw, c->p.dh); });
}
#endif

void RunLibyuv(benchmark::State& state, const Case* c) {
  const Planes& p = c->p;
  Measure(state, *c, [c, &p] {
    if (c->kind == Kind::kRGB) {
      libyuv::RGBScale(c->src.data, 3 * p.sw, p.sw, p.sh, c->dst.data, 3 * p.dw, p.dw, p.dh,
                       libyuv::kFilterBilinear);
    } else {
      libyuv::ScalePlane(c->src.data, p.sw, p.sw, p.sh, c->dst.data, p.dw, p.dw, p.dh,
                         libyuv::kFilterNone);
    }
  });
}

void RunSwscale(benchmark::State& state, const Case* c) {
  const Planes& p = c->p;
  const AVPixelFormat fmt = c->kind == Kind::kRGB ? AV_PIX_FMT_RGB24 : AV_PIX_FMT_GRAY8;
  const int flags = c->kind == Kind::kRGB ? SWS_BILINEAR : SWS_POINT;
  SwsContext* ctx = sws_getContext(p.sw, p.sh, fmt, p.dw, p.dh, fmt, flags, nullptr, nullptr, nullptr);
  if (ctx == nullptr) {
    state.SkipWithError("sws_getContext failed");
    return;
  }
  const uint8_t* srcPlanes[4] = {c->src.data, nullptr, nullptr, nullptr};
  uint8_t* dstPlanes[4] = {c->dst.data, nullptr, nullptr, nullptr};
  const int srcStrides[4] = {p.sw * p.bpp, 0, 0, 0};
  const int dstStrides[4] = {p.dw * p.bpp, 0, 0, 0};
  Measure(state, *c, [&] { sws_scale(ctx, srcPlanes, srcStrides, 0, p.sh, dstPlanes, dstStrides); });
  sws_freeContext(ctx);
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
    std::printf("\n%-28s %12s %12s %12s %12s %12s\n", "case", "dravix", "libyuv/ours",
                "swscale/ours", "libyuv/avx2", "ceiling/ours");
    std::sort(order_.begin(), order_.end());
    for (const std::string& cas : order_) {
      auto& t = times_[cas];
      auto ratio = [&](const char* base, const char* ours) {
        return t.count(ours) && t[ours] > 0 && t.count(base) ? t[base] / t[ours] : 0.0;
      };
      std::printf("%-28s %10.1fus %11.2fx %11.2fx %11.2fx %11.2fx\n", cas.c_str(),
                  t.count("dravix") ? t["dravix"] : 0.0, ratio("libyuv", "dravix"),
                  ratio("swscale", "dravix"), ratio("libyuv", "avx2"), ratio("ceiling", "dravix"));
    }
  }

 private:
  std::vector<std::string> order_;
  std::map<std::string, std::map<std::string, double>> times_;
};

// The machine may be shared: each case runs ten times and the ratios use
// the fastest repetition of each implementation.
void Tune(benchmark::internal::Benchmark* b) {
  b->Unit(benchmark::kMicrosecond)
      ->Repetitions(10)
      ->MinTime(0.2)
      ->ReportAggregatesOnly(true)
      ->ComputeStatistics("min", [](const std::vector<double>& v) { return *std::min_element(v.begin(), v.end()); });
}

std::vector<std::unique_ptr<Case>> cases;

void Register(Kind kind, const char* prefix, const Size4& s) {
  using dravix::imaging::ScalePath;
  using dravix::imaging::ScalePathAvailable;
  const Case* c = cases.emplace_back(std::make_unique<Case>(kind, s)).get();
  const std::string base = std::string(prefix) + "/" + s.Name() + "/";
  Tune(benchmark::RegisterBenchmark((base + "dravix").c_str(), RunDravix, c));
  if (kind != Kind::kRGB && ScalePathAvailable(ScalePath::kAvx2) &&
      dravix::imaging::BestScalePath() != ScalePath::kAvx2) {
    Tune(benchmark::RegisterBenchmark((base + "avx2").c_str(), RunDravixAvx2, c));
  }
  const bool halving = s.sw == 2 * s.dw && s.sh == 2 * s.dh && c->p.dw >= 64;
#if defined(__x86_64__)
  if (kind != Kind::kRGB && halving && ScalePathAvailable(ScalePath::kAvx512)) {
    Tune(benchmark::RegisterBenchmark((base + "ceiling").c_str(), RunCeiling, c));
  }
#else
  (void)halving;
#endif
  Tune(benchmark::RegisterBenchmark((base + "libyuv").c_str(), RunLibyuv, c));
  Tune(benchmark::RegisterBenchmark((base + "swscale").c_str(), RunSwscale, c));
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
  // Random interleaving unless the command line says otherwise (a later
  // flag wins).
  std::vector<char*> args(argv, argv + argc);
  char interleave[] = "--benchmark_enable_random_interleaving=true";
  args.insert(args.begin() + 1, interleave);
  int n = static_cast<int>(args.size());
  benchmark::Initialize(&n, args.data());
  if (benchmark::ReportUnrecognizedArguments(n, args.data())) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
