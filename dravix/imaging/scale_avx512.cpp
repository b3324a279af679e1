// AVX-512 row kernels for frame scaling (F, BW, VL, DQ and VBMI). Compiled
// for the generic target with per-function target attributes and chosen at
// run time, so the library still runs on CPUs (and emulators) without them.
//
// Byte picks use one two-register byte permute (vpermt2b) per block: a block
// of outputs whose sources lie within 128 bytes is gathered from a window
// loaded at the block's first source byte. Windows near the end of the
// readable area are loaded with a mask, so nothing past it is touched.
#include "dravix/imaging/scale_kernels.h"

#if defined(__x86_64__) && defined(__GNUC__)

// GCC 12 reports the deliberately undefined lanes inside its own AVX-512
// intrinsic headers (_mm512_undefined_*) as maybe-uninitialized.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"

#include <immintrin.h>

#include <algorithm>
#include <climits>

#define DRAVIX_AVX512 __attribute__((target("avx512f,avx512bw,avx512vl,avx512dq,avx512vbmi")))

namespace dravix::imaging::detail {
namespace {

inline __mmask64 Prefix64(long long n) {
  if (n <= 0) return 0;
  if (n >= 64) return ~0ULL;
  return (1ULL << n) - 1;
}

struct Window {
  __m512i lo, hi;
};

DRAVIX_AVX512 inline Window LoadWindow(const BYTE* p, const BYTE* readEnd) {
  const long long avail = readEnd - p;
  if (avail >= 128) return {_mm512_loadu_si512(p), _mm512_loadu_si512(p + 64)};
  return {_mm512_maskz_loadu_epi8(Prefix64(avail), p), _mm512_maskz_loadu_epi8(Prefix64(avail - 64), p + 64)};
}

// Stores the first `count` bytes of v at d; may store all 64 when that stays
// below dstEnd (the extra bytes are rewritten later by the caller).
DRAVIX_AVX512 inline void StoreBlock(BYTE* d, const BYTE* dstEnd, __m512i v, int count) {
  if (dstEnd != nullptr && dstEnd - d >= 64) {
    _mm512_storeu_si512(d, v);
  } else {
    _mm512_mask_storeu_epi8(d, Prefix64(count), v);
  }
}

DRAVIX_AVX512 void PickStrided(const StridedJob& job) {
  if (job.e == 1 && job.k == 2) {
    // Halving is bound by the caches; the AVX2 loop (two packs per 32
    // outputs) measured faster there than 64-byte permutes did.
    const RowKernels* avx2 = Avx2Kernels();
    (avx2 != nullptr ? *avx2 : ScalarKernels()).pick_strided(job);
    return;
  }
  const int e = job.e;
  const long long stride = static_cast<long long>(e) * job.k;
  // Elements per block: their sources must fit the 128-byte window.
  const long long fit = (128 - e) / stride + 1;
  const int q = static_cast<int>(std::min<long long>(64 / e, fit));
  if (q < 2) {
    ScalarKernels().pick_strided(job);
    return;
  }
  alignas(64) uint8_t pattern[64] = {};
  for (int j = 0; j < q; ++j) {
    for (int c = 0; c < e; ++c) pattern[e * j + c] = static_cast<uint8_t>(stride * j + c);
  }
  const __m512i idx = _mm512_load_si512(pattern);
  const BYTE* dstEnd = job.dst + job.rows * job.dstRowBytes;
  const int n = job.n;
  // The next row's index is computed a row ahead: after the mispredicted
  // exit of a row's loop the next row's loads can start at once instead of
  // waiting for a double multiply and two conversions.
  long long nextRow = 0;
  for (int y = 0; y < job.rows; ++y) {
    const BYTE* row = job.src + nextRow * job.srcRowBytes;
    nextRow = static_cast<long long>((y + 1) * job.rowStep);
    const BYTE* readEnd = std::max(job.srcEnd, row + stride * (n - 1) + e);
    BYTE* dst = job.dst + y * job.dstRowBytes;
    // Blocks whose window and 64-byte store stay inside the buffers need no
    // mask; a last partial block spills garbage into the next row, which is
    // written afterwards.
    const BYTE* p = row;
    BYTE* d = dst;
    const long long blockIn = stride * q;
    const int blockOut = e * q;
    const BYTE* pStop = readEnd - 128;
    const BYTE* dStop = std::min<const BYTE*>(dstEnd - 64, dst + static_cast<long long>(e) * n - 1);
    while (p <= pStop && d <= dStop) {
      const __m512i r = _mm512_permutex2var_epi8(_mm512_loadu_si512(p), idx, _mm512_loadu_si512(p + 64));
      _mm512_storeu_si512(d, r);
      p += blockIn;
      d += blockOut;
    }
    const long long done = d - dst;  // a whole number of elements
    int i = static_cast<int>(e == 1 ? done : done / 3);
    for (; i < n; i += q) {
      const Window w = LoadWindow(row + stride * i, readEnd);
      const __m512i r = _mm512_permutex2var_epi8(w.lo, idx, w.hi);
      StoreBlock(dst + static_cast<long long>(e) * i, dstEnd, r, e * std::min(q, n - i));
    }
  }
}

// Sixteen window offsets trunc(a + x * step) - base for x = xd .. xd + 15.
DRAVIX_AVX512 inline __m128i Offsets16(__m512d& xd, __m512d a, __m512d step, __m512d base) {
  const __m512d eight = _mm512_set1_pd(8.0);
  const __m512d s0 = _mm512_sub_pd(_mm512_add_pd(a, _mm512_mul_pd(xd, step)), base);
  xd = _mm512_add_pd(xd, eight);
  const __m512d s1 = _mm512_sub_pd(_mm512_add_pd(a, _mm512_mul_pd(xd, step)), base);
  xd = _mm512_add_pd(xd, eight);
  const __m512i both = _mm512_inserti64x4(_mm512_castsi256_si512(_mm512_cvttpd_epi32(s0)), _mm512_cvttpd_epi32(s1), 1);
  return _mm512_cvtepi32_epi8(both);
}

// The sum a + x * step is rounded once, as in the scalar formula; since the
// block base is an integer not above it, trunc(sum - base) = trunc(sum) - base
// and the subtraction is exact.
DRAVIX_AVX512 void PickPlane(const BYTE* src, long long rowStart, const BYTE* readEnd, BYTE* dst, const BYTE* dstEnd,
                             int n, double step) {
  int q = 0;
  if (63 * step + 2 <= 127) {
    q = 64;
  } else if (31 * step + 2 <= 127) {
    q = 32;
  } else if (15 * step + 2 <= 127) {
    q = 16;
  } else {
    ScalarPickPlane(src, rowStart, readEnd, dst, dstEnd, n, step);
    return;
  }
  const double a = static_cast<double>(rowStart);
  const __m512d av = _mm512_set1_pd(a);
  const __m512d sv = _mm512_set1_pd(step);
  const __m512d lanes = _mm512_set_pd(7, 6, 5, 4, 3, 2, 1, 0);
  for (int x0 = 0; x0 < n; x0 += q) {
    const long long base = static_cast<long long>(a + x0 * step);
    const __m512d bv = _mm512_set1_pd(static_cast<double>(base));
    __m512d xd = _mm512_add_pd(_mm512_set1_pd(static_cast<double>(x0)), lanes);
    __m512i idx = _mm512_castsi128_si512(Offsets16(xd, av, sv, bv));
    if (q >= 32) idx = _mm512_inserti32x4(idx, Offsets16(xd, av, sv, bv), 1);
    if (q == 64) {
      idx = _mm512_inserti32x4(idx, Offsets16(xd, av, sv, bv), 2);
      idx = _mm512_inserti32x4(idx, Offsets16(xd, av, sv, bv), 3);
    }
    const Window w = LoadWindow(src + base, readEnd);
    const __m512i r = _mm512_permutex2var_epi8(w.lo, idx, w.hi);
    StoreBlock(dst + x0, dstEnd, r, std::min(q, n - x0));
  }
}

DRAVIX_AVX512 void BlendRows(const BYTE* r0, const BYTE* r1, int16_t* v, int n, int w0, int w1) {
  const __m512i a = _mm512_set1_epi16(static_cast<short>(w0));
  const __m512i b = _mm512_set1_epi16(static_cast<short>(w1));
  int i = 0;
  for (; i + 32 <= n; i += 32) {
    const __m512i p = _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(r0 + i)));
    const __m512i q = _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(r1 + i)));
    _mm512_storeu_si512(v + i, _mm512_add_epi16(_mm512_mullo_epi16(p, a), _mm512_mullo_epi16(q, b)));
  }
  if (i < n) {
    const __mmask32 m = static_cast<__mmask32>(Prefix64(n - i));
    const __m512i p = _mm512_cvtepu8_epi16(_mm256_maskz_loadu_epi8(m, r0 + i));
    const __m512i q = _mm512_cvtepu8_epi16(_mm256_maskz_loadu_epi8(m, r1 + i));
    _mm512_mask_storeu_epi16(v + i, m, _mm512_add_epi16(_mm512_mullo_epi16(p, a), _mm512_mullo_epi16(q, b)));
  }
}

DRAVIX_AVX512 void Lerp(const int16_t* v, const LerpColumns& cols, BYTE* dst, const BYTE* dstEnd) {
  if (!cols.windowed) {
    ScalarLerpColumns(v, cols, dst, dstEnd);
    return;
  }
  // A doubling strip's whole groups go faster through the AVX2 shuffles.
  const int from = cols.doublingBytes;
  if (from > 0) Avx2LerpDoubling(v, cols, dst);
  const __m128i shift = _mm_cvtsi32_si128(cols.shift);
  for (int b = from, blk = from / kLerpBlock; b < cols.bytes; b += kLerpBlock, ++blk) {
    const int16_t* w = v + cols.base[blk];
    const __m512i lo = _mm512_loadu_si512(w);
    const __m512i hi = _mm512_loadu_si512(w + 32);
    const __m512i idx =
        _mm512_sub_epi16(_mm512_loadu_si512(cols.pairs + 2 * b), _mm512_set1_epi16(static_cast<short>(cols.base[blk])));
    const __m512i pairs = _mm512_permutex2var_epi16(lo, idx, hi);
    const __m512i sums = _mm512_madd_epi16(pairs, _mm512_loadu_si512(cols.weights + 2 * b));
    const __m128i out = _mm512_cvtepi32_epi8(_mm512_srl_epi32(sums, shift));
    const int count = std::min(kLerpBlock, cols.bytes - b);
    if (count == kLerpBlock) {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + b), out);
    } else {
      _mm_mask_storeu_epi8(dst + b, static_cast<__mmask16>(Prefix64(count)), out);
    }
  }
}

// Eight pixels' three bytes as dwords; an offset whose dword would run past
// `limit` is read one byte earlier and shifted back.
DRAVIX_AVX512 inline __m256i GatherPixels(const BYTE* row, __m256i offsets, __m256i limit) {
  const __m256i clamped = _mm256_min_epi32(offsets, limit);
  const __m256i shift = _mm256_slli_epi32(_mm256_sub_epi32(offsets, clamped), 3);
  const __m256i g = _mm256_i32gather_epi32(reinterpret_cast<const int*>(row), clamped, 1);
  return _mm256_srlv_epi32(g, shift);
}

DRAVIX_AVX512 inline __m512d Channel(__m256i px, int c) {
  return _mm512_cvtepi32_pd(_mm256_and_si256(_mm256_srli_epi32(px, 8 * c), _mm256_set1_epi32(0xff)));
}

DRAVIX_AVX512 void ResampleRow(const GeneralRow& r, BYTE* dst, const BYTE* dstEnd) {
  if (r.srcWidth < 2 || r.avail0 < 4 || r.avail1 < 4) {
    ScalarResampleRow(r, dst, dstEnd);
    return;
  }
  const __m256i lim0 = _mm256_set1_epi32(static_cast<int>(std::min<long long>(r.avail0 - 4, INT_MAX)));
  const __m256i lim1 = _mm256_set1_epi32(static_cast<int>(std::min<long long>(r.avail1 - 4, INT_MAX)));
  const __m256i maxX = _mm256_set1_epi32(r.srcWidth - 1);
  const __m256i one = _mm256_set1_epi32(1);
  const __m512d hr = _mm512_set1_pd(r.hratio);
  const __m512d wy = _mm512_set1_pd(r.wy);
  const __m512d omy = _mm512_set1_pd(r.omy);
  const __m512d oned = _mm512_set1_pd(1.0);
  const __m512d eight = _mm512_set1_pd(8.0);
  // Drops the fourth byte of each dword: 8 pixels -> 24 bytes.
  const __m256i squeeze = _mm256_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 16, 17, 18, 20, 21, 22, 24, 25, 26,
                                           28, 29, 30, 0, 0, 0, 0, 0, 0, 0, 0);
  __m512d id = _mm512_set_pd(7, 6, 5, 4, 3, 2, 1, 0);
  for (int i = 0; i < r.dstWidth; i += 8) {
    const __m512d fx = _mm512_mul_pd(id, hr);
    id = _mm512_add_pd(id, eight);
    __m256i x0 = _mm512_cvttpd_epi32(fx);
    const __m512d wx = _mm512_sub_pd(fx, _mm512_cvtepi32_pd(x0));
    const __m512d omx = _mm512_sub_pd(oned, wx);
    x0 = _mm256_min_epi32(x0, maxX);  // only lanes past the row's end change
    const __m256i x1 = _mm256_min_epi32(_mm256_add_epi32(x0, one), maxX);
    const __m256i o0 = _mm256_add_epi32(x0, _mm256_add_epi32(x0, x0));
    const __m256i o1 = _mm256_add_epi32(x1, _mm256_add_epi32(x1, x1));
    const __m256i g00 = GatherPixels(r.row0, o0, lim0);
    const __m256i g01 = GatherPixels(r.row0, o1, lim0);
    const __m256i g10 = GatherPixels(r.row1, o0, lim1);
    const __m256i g11 = GatherPixels(r.row1, o1, lim1);
    __m256i packed = _mm256_setzero_si256();
    for (int c = 0; c < 3; ++c) {
      const __m512d a = _mm512_add_pd(_mm512_mul_pd(Channel(g01, c), omy), _mm512_mul_pd(Channel(g11, c), wy));
      const __m512d b = _mm512_add_pd(_mm512_mul_pd(Channel(g00, c), omy), _mm512_mul_pd(Channel(g10, c), wy));
      const __m512d val = _mm512_add_pd(_mm512_mul_pd(a, wx), _mm512_mul_pd(b, omx));
      packed = _mm256_or_si256(packed, _mm256_slli_epi32(_mm512_cvttpd_epi32(val), 8 * c));
    }
    const __m256i bytes = _mm256_permutexvar_epi8(squeeze, packed);
    BYTE* d = dst + 3LL * i;
    if (dstEnd - d >= 32) {
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(d), bytes);
    } else {
      _mm256_mask_storeu_epi8(d, static_cast<__mmask32>(Prefix64(3 * std::min(8, r.dstWidth - i))), bytes);
    }
  }
}

bool CpuHasAvx512() {
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
         __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512dq") &&
         __builtin_cpu_supports("avx512vbmi");
}

}  // namespace

const RowKernels* Avx512Kernels() {
  // Byte permutes beat the AVX2 shuffles for strided picks, the AVX2 column
  // tables beat per-block index arithmetic at non-integral steps.
  static const RowKernels kernels{PickStrided, PickPlane, BlendRows, Lerp, ResampleRow,
                                  Avx2PickRow, false,     true,      false};
  static const bool available = CpuHasAvx512();
  return available ? &kernels : nullptr;
}

}  // namespace dravix::imaging::detail

#else

namespace dravix::imaging::detail {
const RowKernels* Avx512Kernels() { return nullptr; }
}  // namespace dravix::imaging::detail

#endif
