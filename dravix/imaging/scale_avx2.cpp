// AVX2 row kernels for frame scaling, for CPUs without AVX-512. Compiled for
// the generic target with per-function target attributes and chosen at run
// time.
//
// Byte picks at any ratio go through the column tables scale.cpp builds once
// per call: each 16-byte output lane is shuffled (vpshufb, within 128-bit
// lanes) out of up to four 16-byte windows of the source row, two lanes per
// 256-bit register. No gathers: they are slow on many AVX2 parts. Halving
// has its own pack-based loop. The general Resample evaluates the double
// formula four pixels per register, operation for operation as the scalar
// code does, so it rounds identically.
#include "dravix/imaging/scale_kernels.h"

#if defined(__x86_64__) && defined(__GNUC__)

#include <immintrin.h>

#include <algorithm>
#include <climits>
#include <cstring>

#define DRAVIX_AVX2 __attribute__((target("avx2")))

namespace dravix::imaging::detail {
namespace {

// The 32 even bytes of the 64 at p: the low byte of each 16-bit word, packed
// (the pack interleaves 128-bit lanes, the permute puts them back in order).
DRAVIX_AVX2 inline __m256i Evens(const BYTE* p, __m256i low) {
  const __m256i a = _mm256_and_si256(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)), low);
  const __m256i b = _mm256_and_si256(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + 32)), low);
  return _mm256_permute4x64_epi64(_mm256_packus_epi16(a, b), 0xd8);
}

// Every second byte of each row. A row whose 2n source bytes lie inside the
// picture ends with one whole block ending at its last output (rewriting a
// few outputs with the same bytes); short rows and rows past the picture
// are picked one byte at a time.
DRAVIX_AVX2 void PickHalves(const StridedJob& job) {
  const __m256i low = _mm256_set1_epi16(0xff);
  // Locals, not fields: the byte stores below may alias the job.
  const BYTE* const src = job.src;
  const BYTE* const srcEnd = job.srcEnd;
  const long long srcRowBytes = job.srcRowBytes;
  const double rowStep = job.rowStep;
  const long long dstRowBytes = job.dstRowBytes;
  const int rows = job.rows;
  const int n = job.n;
  const long long span = 2LL * n;
  const BYTE* next = src;
  BYTE* dst = job.dst;
  // A whole row step (2 at 2:1) walks the rows by adding, as the double
  // product would give them.
  const long long wholeStep = rowStep == static_cast<double>(static_cast<long long>(rowStep))
                                  ? static_cast<long long>(rowStep) * srcRowBytes
                                  : 0;
  for (int y = 0; y < rows; ++y, dst += dstRowBytes) {
    const BYTE* row = next;
    next = wholeStep != 0 ? row + wholeStep : src + static_cast<long long>((y + 1) * rowStep) * srcRowBytes;
    if (n < 32 || srcEnd - row < span) {
      for (int i = 0; i < n; ++i) dst[i] = row[2 * i];
      continue;
    }
    int i = 0;
    for (; i + 64 <= n; i += 64) {
      const __m256i a = Evens(row + 2 * i, low);
      const __m256i b = Evens(row + 2 * i + 64, low);
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i), a);
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i + 32), b);
    }
    if (i + 32 <= n) {
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i), Evens(row + 2 * i, low));
      i += 32;
    }
    if (i < n) _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + n - 32), Evens(row + span - 64, low));
  }
}

void PickStrided(const StridedJob& job) {
  if (job.e == 1 && job.k == 2) {
    PickHalves(job);
  } else {
    ScalarPickStrided(job);
  }
}

// Two 16-byte windows, one per 128-bit lane.
DRAVIX_AVX2 inline __m256i LoadPair(const BYTE* lo, const BYTE* hi) {
  return _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(lo))),
                                 _mm_loadu_si128(reinterpret_cast<const __m128i*>(hi)), 1);
}

template <int kChunks>
DRAVIX_AVX2 void PickLanes(const BYTE* src, const PickTable& plan, BYTE* dst) {
  for (int l = 0; l < plan.lanes; l += 2) {
    const BYTE* a = src + plan.laneBase[l];
    const BYTE* b = src + plan.laneBase[l + 1];
    const uint8_t* m = plan.masks[l / 2][0];
    __m256i acc = _mm256_shuffle_epi8(LoadPair(a, b), _mm256_load_si256(reinterpret_cast<const __m256i*>(m)));
    for (int c = 1; c < kChunks; ++c) {
      const __m256i mask = _mm256_load_si256(reinterpret_cast<const __m256i*>(plan.masks[l / 2][c]));
      acc = _mm256_or_si256(acc, _mm256_shuffle_epi8(LoadPair(a + 16 * c, b + 16 * c), mask));
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + plan.laneStart[l]), _mm256_castsi256_si128(acc));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + plan.laneStart[l + 1]), _mm256_extracti128_si256(acc, 1));
  }
}

}  // namespace

void Avx2PickRow(const BYTE* src, const PickTable& plan, BYTE* dst) {
  switch (plan.lanes > 0 ? plan.chunks : 0) {
    case 1:
      return PickLanes<1>(src, plan, dst);
    case 2:
      return PickLanes<2>(src, plan, dst);
    case 3:
      return PickLanes<3>(src, plan, dst);
    case 4:
      return PickLanes<4>(src, plan, dst);
    default:
      return TablePickRow(src, plan, dst);
  }
}

namespace {

DRAVIX_AVX2 void BlendRows(const BYTE* r0, const BYTE* r1, int16_t* v, int n, int w0, int w1) {
  const __m256i a = _mm256_set1_epi16(static_cast<short>(w0));
  const __m256i b = _mm256_set1_epi16(static_cast<short>(w1));
  int i = 0;
  for (; i + 16 <= n; i += 16) {
    const __m256i p = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(r0 + i)));
    const __m256i q = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(r1 + i)));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(v + i),
                        _mm256_add_epi16(_mm256_mullo_epi16(p, a), _mm256_mullo_epi16(q, b)));
  }
  for (; i < n; ++i) v[i] = static_cast<int16_t>(r0[i] * w0 + r1[i] * w1);
}

// The (x1, x0) pairs of lanes l and l + 1, shuffled out of the blended strip.
template <int kChunks>
DRAVIX_AVX2 inline __m256i LerpPairs(const BYTE* v, const LerpColumns& cols, int l) {
  const BYTE* a = v + cols.laneBase[l];
  const BYTE* b = v + cols.laneBase[l + 1];
  const __m256i m0 = _mm256_load_si256(reinterpret_cast<const __m256i*>(cols.laneMasks[l / 2][0]));
  const __m256i p0 = _mm256_shuffle_epi8(LoadPair(a, b), m0);
  if (kChunks == 1) return p0;
  const __m256i m1 = _mm256_load_si256(reinterpret_cast<const __m256i*>(cols.laneMasks[l / 2][1]));
  return _mm256_or_si256(p0, _mm256_shuffle_epi8(LoadPair(a + 16, b + 16), m1));
}

// Eight output bytes (lanes l, l + 1) as 32-bit sums, shifted.
template <int kChunks>
DRAVIX_AVX2 inline __m256i LerpSums(const BYTE* v, const LerpColumns& cols, int b, __m128i shift) {
  const __m256i w = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(cols.weights + 2 * b));
  return _mm256_srl_epi32(_mm256_madd_epi16(LerpPairs<kChunks>(v, cols, b / 4), w), shift);
}

// Output bytes from `from` (a multiple of 32) on: 32 per step, then 16 at a
// time.
template <int kChunks>
DRAVIX_AVX2 void LerpLanes(const int16_t* v, const LerpColumns& cols, BYTE* dst, int from) {
  const BYTE* vb = reinterpret_cast<const BYTE*>(v);
  const __m128i shift = _mm_cvtsi32_si128(cols.shift);
  // After the packs, dwords hold output bytes 0-3, 8-11, 16-19, 24-27 | 4-7, ...
  const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
  int b = from;
  for (; b + 32 <= cols.bytes; b += 32) {
    const __m256i w0 =
        _mm256_packs_epi32(LerpSums<kChunks>(vb, cols, b, shift), LerpSums<kChunks>(vb, cols, b + 8, shift));
    const __m256i w1 =
        _mm256_packs_epi32(LerpSums<kChunks>(vb, cols, b + 16, shift), LerpSums<kChunks>(vb, cols, b + 24, shift));
    const __m256i out = _mm256_permutevar8x32_epi32(_mm256_packus_epi16(w0, w1), order);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + b), out);
  }
  for (; b < cols.bytes; b += kLerpBlock) {
    // Words: outputs 0-3, 8-11 | 4-7, 12-15; bytes 0-3, 8-11, 4-7, 12-15.
    const __m256i words =
        _mm256_packs_epi32(LerpSums<kChunks>(vb, cols, b, shift), LerpSums<kChunks>(vb, cols, b + 8, shift));
    __m128i out = _mm_packus_epi16(_mm256_castsi256_si128(words), _mm256_extracti128_si256(words, 1));
    out = _mm_shuffle_epi32(out, _MM_SHUFFLE(3, 1, 2, 0));
    const int count = std::min(kLerpBlock, cols.bytes - b);
    if (count == kLerpBlock) {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + b), out);
    } else {
      alignas(16) BYTE tail[kLerpBlock];
      _mm_store_si128(reinterpret_cast<__m128i*>(tail), out);
      std::memcpy(dst + b, tail, static_cast<size_t>(count));
    }
  }
}

// Where each 16-byte output block m of a doubling group (96 bytes, 48
// blended values) takes its bytes: the even pixels' values from eStart[m]
// on, the odd pixels' from oStart[m] on, and the shuffles that interleave
// the two by three-byte pixels, two blocks per register.
struct DoublingPlan {
  int eStart[6];
  int oStart[6];
  alignas(32) uint8_t eMask[3][32];
  alignas(32) uint8_t oMask[3][32];
};

const DoublingPlan& Doubling() {
  static const DoublingPlan plan = [] {
    DoublingPlan d{};
    auto value = [](int b) { return b / 6 * 3 + b % 3; };
    auto odd = [](int b) { return b % 6 >= 3; };
    for (int m = 0; m < 6; ++m) {
      d.eStart[m] = d.oStart[m] = INT_MAX;
      for (int b = 16 * m; b < 16 * m + 16; ++b) {
        int& start = odd(b) ? d.oStart[m] : d.eStart[m];
        start = std::min(start, value(b));
      }
      for (int t = 0; t < 16; ++t) {
        const int b = 16 * m + t;
        d.eMask[m / 2][16 * (m % 2) + t] = odd(b) ? 0x80 : static_cast<uint8_t>(value(b) - d.eStart[m]);
        d.oMask[m / 2][16 * (m % 2) + t] = odd(b) ? static_cast<uint8_t>(value(b) - d.oStart[m]) : 0x80;
      }
    }
    return d;
  }();
  return plan;
}

DRAVIX_AVX2 inline __m256i LoadValues(const int16_t* lo, const int16_t* hi) {
  return LoadPair(reinterpret_cast<const BYTE*>(lo), reinterpret_cast<const BYTE*>(hi));
}

// A doubling strip: even output pixels are (2 V[i]) >> shift = V[i] >>
// (shift - 1), odd ones (V[i] + V[i + 1]) >> shift, in unsigned 16-bit
// arithmetic (V < 2^15, so the sums fit), over the whole groups.
DRAVIX_AVX2 void LerpDoubling(const int16_t* v, const LerpColumns& cols, BYTE* dst) {
  const DoublingPlan& d = Doubling();
  const __m128i evenShift = _mm_cvtsi32_si128(cols.shift - 1);
  const __m128i oddShift = _mm_cvtsi32_si128(cols.shift);
  for (int g = 0; g < cols.doublingBytes; g += kDoublingGroup) {
    const int16_t* base = v + g / 2;
    for (int m = 0; m < 6; m += 2) {
      const int16_t* e0 = base + d.eStart[m];
      const int16_t* e1 = base + d.eStart[m + 1];
      const __m256i e = _mm256_packus_epi16(_mm256_srl_epi16(LoadValues(e0, e1), evenShift),
                                            _mm256_srl_epi16(LoadValues(e0 + 8, e1 + 8), evenShift));
      const int16_t* o0 = base + d.oStart[m];
      const int16_t* o1 = base + d.oStart[m + 1];
      const __m256i lo = _mm256_add_epi16(LoadValues(o0, o1), LoadValues(o0 + 3, o1 + 3));
      const __m256i hi = _mm256_add_epi16(LoadValues(o0 + 8, o1 + 8), LoadValues(o0 + 11, o1 + 11));
      const __m256i o = _mm256_packus_epi16(_mm256_srl_epi16(lo, oddShift), _mm256_srl_epi16(hi, oddShift));
      const __m256i out =
          _mm256_or_si256(_mm256_shuffle_epi8(e, _mm256_load_si256(reinterpret_cast<const __m256i*>(d.eMask[m / 2]))),
                          _mm256_shuffle_epi8(o, _mm256_load_si256(reinterpret_cast<const __m256i*>(d.oMask[m / 2]))));
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + g + 16 * m), out);
    }
  }
}

}  // namespace

void Avx2LerpDoubling(const int16_t* v, const LerpColumns& cols, BYTE* dst) { LerpDoubling(v, cols, dst); }

namespace {

void Lerp(const int16_t* v, const LerpColumns& cols, BYTE* dst, const BYTE*) {
  // The doubling groups, then the rest through the lanes.
  const int from = cols.doublingBytes;
  if (from > 0) LerpDoubling(v, cols, dst);
  if (cols.laneCount == 0) {
    ScalarLerpFrom(v, cols, dst, from);
  } else if (cols.laneChunks == 1) {
    LerpLanes<1>(v, cols, dst, from);
  } else {
    LerpLanes<2>(v, cols, dst, from);
  }
}

// Eight pixels' three bytes as dwords; an offset whose dword would run past
// `limit` is read one byte earlier and shifted back.
DRAVIX_AVX2 inline __m256i GatherPixels(const BYTE* row, __m256i offsets, __m256i limit) {
  const __m256i clamped = _mm256_min_epi32(offsets, limit);
  const __m256i shift = _mm256_slli_epi32(_mm256_sub_epi32(offsets, clamped), 3);
  const __m256i g = _mm256_i32gather_epi32(reinterpret_cast<const int*>(row), clamped, 1);
  return _mm256_srlv_epi32(g, shift);
}

// Channel c of four pixels (half 0: the first four dwords) as doubles.
DRAVIX_AVX2 inline __m256d Channel(__m256i px, int c, int half) {
  const __m256i bytes = _mm256_and_si256(_mm256_srli_epi32(px, 8 * c), _mm256_set1_epi32(0xff));
  return _mm256_cvtepi32_pd(half == 0 ? _mm256_castsi256_si128(bytes) : _mm256_extracti128_si256(bytes, 1));
}

// The same sums as ScalarResampleRow, in the same order, four pixels at a
// time. Pixels' coordinates are gathered, eight at a time.
DRAVIX_AVX2 void ResampleRow(const GeneralRow& r, BYTE* dst, const BYTE* dstEnd) {
  if (r.srcWidth < 2 || r.avail0 < 4 || r.avail1 < 4) {
    ScalarResampleRow(r, dst, dstEnd);
    return;
  }
  const __m256i lim0 = _mm256_set1_epi32(static_cast<int>(std::min<long long>(r.avail0 - 4, INT_MAX)));
  const __m256i lim1 = _mm256_set1_epi32(static_cast<int>(std::min<long long>(r.avail1 - 4, INT_MAX)));
  const __m256i maxX = _mm256_set1_epi32(r.srcWidth - 1);
  const __m256i one = _mm256_set1_epi32(1);
  const __m256d hr = _mm256_set1_pd(r.hratio);
  const __m256d wy = _mm256_set1_pd(r.wy);
  const __m256d omy = _mm256_set1_pd(r.omy);
  const __m256d oned = _mm256_set1_pd(1.0);
  const __m256d four = _mm256_set1_pd(4.0);
  // Drops the fourth byte of each dword: four pixels -> 12 bytes per lane.
  const __m256i squeeze = _mm256_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1, 0, 1, 2, 4, 5, 6, 8,
                                           9, 10, 12, 13, 14, -1, -1, -1, -1);
  __m256d id = _mm256_set_pd(3, 2, 1, 0);
  for (int i = 0; i < r.dstWidth; i += 8) {
    __m256d wx[2], omx[2];
    __m128i x0h[2];
    for (int h = 0; h < 2; ++h) {
      const __m256d fx = _mm256_mul_pd(id, hr);
      id = _mm256_add_pd(id, four);
      x0h[h] = _mm256_cvttpd_epi32(fx);
      wx[h] = _mm256_sub_pd(fx, _mm256_cvtepi32_pd(x0h[h]));
      omx[h] = _mm256_sub_pd(oned, wx[h]);
    }
    __m256i x0 = _mm256_inserti128_si256(_mm256_castsi128_si256(x0h[0]), x0h[1], 1);
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
      __m128i part[2];
      for (int h = 0; h < 2; ++h) {
        const __m256d a = _mm256_add_pd(_mm256_mul_pd(Channel(g01, c, h), omy), _mm256_mul_pd(Channel(g11, c, h), wy));
        const __m256d b = _mm256_add_pd(_mm256_mul_pd(Channel(g00, c, h), omy), _mm256_mul_pd(Channel(g10, c, h), wy));
        part[h] = _mm256_cvttpd_epi32(_mm256_add_pd(_mm256_mul_pd(a, wx[h]), _mm256_mul_pd(b, omx[h])));
      }
      const __m256i val = _mm256_inserti128_si256(_mm256_castsi128_si256(part[0]), part[1], 1);
      packed = _mm256_or_si256(packed, _mm256_slli_epi32(val, 8 * c));
    }
    const __m256i bytes = _mm256_shuffle_epi8(packed, squeeze);
    BYTE* d = dst + 3LL * i;
    if (dstEnd - d >= 28) {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm256_castsi256_si128(bytes));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 12), _mm256_extracti128_si256(bytes, 1));
    } else {
      alignas(32) BYTE tail[32];
      _mm_storeu_si128(reinterpret_cast<__m128i*>(tail), _mm256_castsi256_si128(bytes));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(tail + 12), _mm256_extracti128_si256(bytes, 1));
      std::memcpy(d, tail, 3 * static_cast<size_t>(std::min(8, r.dstWidth - i)));
    }
  }
}

bool CpuHasAvx2() {
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx2");
}

}  // namespace

const RowKernels* Avx2Kernels() {
  static const RowKernels kernels{PickStrided, ScalarPickPlane, BlendRows, Lerp, ResampleRow, Avx2PickRow, true, true,
                                  true};
  static const bool available = CpuHasAvx2();
  return available ? &kernels : nullptr;
}

}  // namespace dravix::imaging::detail

#else

namespace dravix::imaging::detail {
const RowKernels* Avx2Kernels() { return nullptr; }
void Avx2PickRow(const BYTE* src, const PickTable& plan, BYTE* dst) { TablePickRow(src, plan, dst); }
}  // namespace dravix::imaging::detail

#endif
