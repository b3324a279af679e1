// Frame scaling against libyuv and libswscale, side by side in one run.
//
//   Y/<size>/<path>                   Y_downsample on one path: scalar, sse2,
//                                     avx2, avx512 (those the CPU has) and
//                                     chosen (the public function)
//   Y/<size>/libyuv|swscale           ScalePlane(kFilterNone), swscale
//                                     SWS_POINT on GRAY8
//   UV/<size>/...                     UV_downsample on the half-size plane of
//                                     a <size> picture, same baselines on
//                                     that plane
//   Y|UV/<size>/ceiling               at an exact 2:1, the same loads and
//                                     stores as the pick with no byte
//                                     shuffle (widest vectors the CPU has):
//                                     what the caches allow; ceiling256
//                                     the same with 32-byte vectors, the
//                                     bound of the paths without AVX-512
//   RGB/<size>/...                    Resample vs libyuv RGBScale
//                                     (kFilterBilinear) vs swscale
//                                     SWS_BILINEAR on RGB24
//
// Every implementation of a case works on the same source and destination
// buffers, so they all meet the same physical pages and cache sets. The
// repetitions of all cases run in random order, so a neighbour's load on a
// shared machine falls on every implementation alike. bytes_per_second
// counts the source picture's bytes. After the runs, tables give from the
// median CPU time of each implementation: libyuv's time divided by each
// path's (above 1: we are faster), the ceiling's divided by each path's, and
// how much the repetitions spread (largest coefficient of variation among
// a case's implementations).
#include "dravix/imaging/scale.h"
#include "dravix/imaging/scale_paths.h"
#include "median_reporter.h"

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
extern "C" int RGBScale(const uint8_t* src_rgb, int src_stride_rgb, int src_width, int src_height, uint8_t* dst_rgb,
                        int dst_stride_rgb, int dst_width, int dst_height, enum FilterMode filtering);
}  // namespace libyuv

namespace {

struct Size4 {
  int sw, sh, dw, dh;
  std::string Name() const {
    return std::to_string(sw) + "x" + std::to_string(sh) + "->" + std::to_string(dw) + "x" + std::to_string(dh);
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
      : kind(k), s(sz), p(PlanesOf(k, sz)), src(size_t(p.sw) * p.sh * p.bpp), dst(size_t(p.dw) * p.dh * p.bpp) {}
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

// The functions on one path, as on a CPU whose best path it is.
void RunPath(benchmark::State& state, const Case* c, dravix::imaging::ScalePath path) {
  namespace im = dravix::imaging;
  Measure(state, *c, [c, path] {
    const Size4& s = c->s;
    if (c->kind == Kind::kY) im::YDownsampleOn(path, c->src.data, c->dst.data, s.sw, s.sh, s.dw, s.dh);
    if (c->kind == Kind::kUV) im::UVDownsampleOn(path, c->src.data, c->dst.data, s.sw, s.sh, s.dw, s.dh);
    if (c->kind == Kind::kRGB) im::ResampleOn(path, s.sw, s.sh, s.dw, s.dh, c->src.data, c->dst.data);
  });
}

#if defined(__x86_64__)
// Loads every source byte of the even rows and stores every destination
// byte, 64 at a time, the way the 2:1 pick does, but with an OR where the
// pick shuffles: no halving can move these bytes faster.
__attribute__((target("avx512f"))) void LoadStoreHalves(const uint8_t* src, uint8_t* dst, int srcWidth, int dstWidth,
                                                        int dstHeight) {
  for (int y = 0; y < dstHeight; ++y) {
    const uint8_t* row = src + 2LL * y * srcWidth;
    uint8_t* d = dst + static_cast<long long>(y) * dstWidth;
    for (int i = 0; i + 64 <= dstWidth; i += 64) {
      _mm512_storeu_si512(d + i,
                          _mm512_or_si512(_mm512_loadu_si512(row + 2 * i), _mm512_loadu_si512(row + 2 * i + 64)));
    }
    if (dstWidth % 64 != 0) {
      const int last = dstWidth - 64;
      _mm512_storeu_si512(d + last,
                          _mm512_or_si512(_mm512_loadu_si512(row + 2 * last), _mm512_loadu_si512(row + 2 * last + 64)));
    }
  }
}

// The same with 32-byte vectors, for CPUs without AVX-512.
__attribute__((target("avx2"))) void LoadStoreHalves256(const uint8_t* src, uint8_t* dst, int srcWidth, int dstWidth,
                                                        int dstHeight) {
  for (int y = 0; y < dstHeight; ++y) {
    const uint8_t* row = src + 2LL * y * srcWidth;
    uint8_t* d = dst + static_cast<long long>(y) * dstWidth;
    for (int i = 0; i < dstWidth; i += 32) {
      const int at = std::min(i, dstWidth - 32);  // the last block ends at the row's end
      const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(row + 2 * at));
      const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(row + 2 * at + 32));
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + at), _mm256_or_si256(a, b));
    }
  }
}

// `wide`: 64-byte vectors (CPUs with AVX-512), else 32-byte ones.
void RunCeiling(benchmark::State& state, const Case* c, bool wide) {
  Measure(state, *c, [c, wide] {
    if (wide) {
      LoadStoreHalves(c->src.data, c->dst.data, c->p.sw, c->p.dw, c->p.dh);
    } else {
      LoadStoreHalves256(c->src.data, c->dst.data, c->p.sw, c->p.dw, c->p.dh);
    }
  });
}
#endif

void RunLibyuv(benchmark::State& state, const Case* c) {
  const Planes& p = c->p;
  Measure(state, *c, [c, &p] {
    if (c->kind == Kind::kRGB) {
      libyuv::RGBScale(c->src.data, 3 * p.sw, p.sw, p.sh, c->dst.data, 3 * p.dw, p.dw, p.dh, libyuv::kFilterBilinear);
    } else {
      libyuv::ScalePlane(c->src.data, p.sw, p.sw, p.sh, c->dst.data, p.dw, p.dw, p.dh, libyuv::kFilterNone);
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

const char* const kOurs[] = {"scalar", "sse2", "avx2", "avx512", "chosen"};

// Console output as usual, then tables of ratios of median times.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  RatioReporter() : ConsoleReporter(ConsoleOptions()) {}
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs) {
      if (r.error_occurred || r.run_type != Run::RT_Aggregate) continue;
      const std::string name = r.run_name.function_name;
      const size_t slash = name.rfind('/');
      const std::string impl = name.substr(slash + 1);
      const std::string cas = name.substr(0, slash);
      if (std::find(order_.begin(), order_.end(), cas) == order_.end()) order_.push_back(cas);
      if (r.aggregate_name == "median") times_[cas][impl] = r.GetAdjustedCPUTime();
      // The coefficient of variation is held, as a fraction, in the
      // accumulated time.
      if (r.aggregate_name == "cv") spread_[cas] = std::max(spread_[cas], r.cpu_accumulated_time);
    }
    ConsoleReporter::ReportRuns(runs);
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    std::sort(order_.begin(), order_.end());
    Table("libyuv time / ours", "libyuv", "swscale/chosen");
    Table("ceiling time / ours (2:1 planes; scalar, sse2 and avx2 against the 32-byte ceiling)", "ceiling", nullptr);
  }

 private:
  double Ratio(const std::string& cas, const char* base, const char* ours) {
    auto& t = times_[cas];
    // A path narrower than AVX-512 meets the ceiling of 32-byte vectors.
    const std::string narrow = std::string(base) + "256";
    if (t.count(narrow) != 0 && std::string(ours) != "avx512" && std::string(ours) != "chosen") base = narrow.c_str();
    return t.count(ours) && t[ours] > 0 && t.count(base) ? t[base] / t[ours] : 0.0;
  }

  void Table(const char* title, const char* base, const char* extra) {
    std::printf("\n%s, median of the repetitions (- : path absent or no baseline)\n%-28s", title, "case");
    for (const char* ours : kOurs) std::printf(" %8s", ours);
    if (extra != nullptr) std::printf(" %14s", extra);
    std::printf(" %10s %8s\n", "chosen us", "max cv");
    for (const std::string& cas : order_) {
      if (times_[cas].count(base) == 0) continue;
      std::printf("%-28s", cas.c_str());
      for (const char* ours : kOurs) {
        const double r = Ratio(cas, base, ours);
        if (r > 0) {
          std::printf(" %7.2fx", r);
        } else {
          std::printf(" %8s", "-");
        }
      }
      if (extra != nullptr) std::printf(" %13.2fx", Ratio(cas, "swscale", "chosen"));
      std::printf(" %10.1f %7.1f%%\n", times_[cas]["chosen"], 100.0 * spread_[cas]);
    }
  }

  std::vector<std::string> order_;
  std::map<std::string, std::map<std::string, double>> times_;
  std::map<std::string, double> spread_;
};

void Tune(benchmark::internal::Benchmark* b) { b->Unit(benchmark::kMicrosecond)->ReportAggregatesOnly(true); }

std::vector<std::unique_ptr<Case>> cases;

void Register(Kind kind, const char* prefix, const Size4& s) {
  using dravix::imaging::ScalePath;
  const Case* c = cases.emplace_back(std::make_unique<Case>(kind, s)).get();
  const std::string base = std::string(prefix) + "/" + s.Name() + "/";
  Tune(benchmark::RegisterBenchmark((base + "chosen").c_str(), RunDravix, c));
  for (ScalePath path : {ScalePath::kScalar, ScalePath::kSse2, ScalePath::kAvx2, ScalePath::kAvx512}) {
    if (!dravix::imaging::ScalePathAvailable(path)) continue;
    Tune(benchmark::RegisterBenchmark((base + dravix::imaging::ScalePathName(path)).c_str(), RunPath, c, path));
  }
  const bool halving = s.sw == 2 * s.dw && s.sh == 2 * s.dh && c->p.dw >= 64;
#if defined(__x86_64__)
  if (kind != Kind::kRGB && halving && __builtin_cpu_supports("avx2")) {
    const bool wide = __builtin_cpu_supports("avx512f");
    Tune(benchmark::RegisterBenchmark((base + "ceiling").c_str(), RunCeiling, c, wide));
    // What a CPU without AVX-512 allows: the bound of the paths below it.
    if (wide) Tune(benchmark::RegisterBenchmark((base + "ceiling256").c_str(), RunCeiling, c, false));
  }
#else
  (void)halving;
#endif
  Tune(benchmark::RegisterBenchmark((base + "libyuv").c_str(), RunLibyuv, c));
  Tune(benchmark::RegisterBenchmark((base + "swscale").c_str(), RunSwscale, c));
}

}  // namespace

int main(int argc, char** argv) {
  const Size4 planeSizes[] = {
      {1920, 1080, 960, 540}, {704, 576, 352, 288}, {1920, 1080, 640, 360}, {1280, 720, 704, 396}};
  const Size4 rgbSizes[] = {{1920, 1080, 960, 540}, {704, 576, 352, 288}, {352, 288, 704, 576}, {640, 480, 1280, 960}};
  for (const Size4& s : planeSizes) Register(Kind::kY, "Y", s);
  for (const Size4& s : planeSizes) Register(Kind::kUV, "UV", s);
  for (const Size4& s : rgbSizes) Register(Kind::kRGB, "RGB", s);
  // Random interleaving, and (the machine may be shared) ten repetitions of
  // at least 0.2 s each, unless the command line says otherwise (a later
  // flag wins).
  std::vector<char*> args(argv, argv + argc);
  char interleave[] = "--benchmark_enable_random_interleaving=true";
  char repetitions[] = "--benchmark_repetitions=10";
  char minTime[] = "--benchmark_min_time=0.2";
  args.insert(args.begin() + 1, {interleave, repetitions, minTime});
  int n = static_cast<int>(args.size());
  benchmark::Initialize(&n, args.data());
  if (benchmark::ReportUnrecognizedArguments(n, args.data())) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
