// SSE2 row kernels for frame scaling: what every x86-64 CPU has. SSE2 has
// no byte shuffle, so arbitrary picks read the column tables one byte at a
// time (still far cheaper than a double product and two conversions per
// byte); halving and the vertical blend of Resample are vectorized.
#include "dravix/imaging/scale_kernels.h"

#if defined(__x86_64__)

#include <emmintrin.h>

namespace dravix::imaging::detail {
namespace {

// The 16 even bytes of the 32 at p.
inline __m128i Evens(const BYTE* p, __m128i low) {
  const __m128i a = _mm_and_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)), low);
  const __m128i b = _mm_and_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16)), low);
  return _mm_packus_epi16(a, b);
}

// Every second byte of each row; rows shorter than a block, or whose 2n
// source bytes do not lie inside the picture, are picked one byte at a time.
void PickHalves(const StridedJob& job) {
  const __m128i low = _mm_set1_epi16(0xff);
  const BYTE* const src = job.src;
  const BYTE* const srcEnd = job.srcEnd;
  const long long srcRowBytes = job.srcRowBytes;
  const double rowStep = job.rowStep;
  const long long dstRowBytes = job.dstRowBytes;
  const int rows = job.rows;
  const int n = job.n;
  const long long span = 2LL * n;
  BYTE* dst = job.dst;
  for (int y = 0; y < rows; ++y, dst += dstRowBytes) {
    const BYTE* row = src + static_cast<long long>(y * rowStep) * srcRowBytes;
    if (n < 16 || srcEnd - row < span) {
      for (int i = 0; i < n; ++i) dst[i] = row[2 * i];
      continue;
    }
    int i = 0;
    for (; i + 32 <= n; i += 32) {
      const __m128i a = Evens(row + 2 * i, low);
      const __m128i b = Evens(row + 2 * i + 32, low);
      _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), a);
      _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i + 16), b);
    }
    if (i + 16 <= n) {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), Evens(row + 2 * i, low));
      i += 16;
    }
    if (i < n) _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + n - 16), Evens(row + span - 32, low));
  }
}

void PickStrided(const StridedJob& job) {
  if (job.e == 1 && job.k == 2) {
    PickHalves(job);
  } else {
    ScalarPickStrided(job);
  }
}

void BlendRows(const BYTE* r0, const BYTE* r1, int16_t* v, int n, int w0, int w1) {
  const __m128i a = _mm_set1_epi16(static_cast<short>(w0));
  const __m128i b = _mm_set1_epi16(static_cast<short>(w1));
  const __m128i zero = _mm_setzero_si128();
  int i = 0;
  for (; i + 16 <= n; i += 16) {
    const __m128i p = _mm_loadu_si128(reinterpret_cast<const __m128i*>(r0 + i));
    const __m128i q = _mm_loadu_si128(reinterpret_cast<const __m128i*>(r1 + i));
    const __m128i lo =
        _mm_add_epi16(_mm_mullo_epi16(_mm_unpacklo_epi8(p, zero), a), _mm_mullo_epi16(_mm_unpacklo_epi8(q, zero), b));
    const __m128i hi =
        _mm_add_epi16(_mm_mullo_epi16(_mm_unpackhi_epi8(p, zero), a), _mm_mullo_epi16(_mm_unpackhi_epi8(q, zero), b));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(v + i), lo);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(v + i + 8), hi);
  }
  for (; i < n; ++i) v[i] = static_cast<int16_t>(r0[i] * w0 + r1[i] * w1);
}

}  // namespace

const RowKernels* Sse2Kernels() {
  static const RowKernels kernels{
      PickStrided, ScalarPickPlane, BlendRows, ScalarLerpColumns, ScalarResampleRow, TablePickRow, true, false, false};
  return &kernels;
}

}  // namespace dravix::imaging::detail

#else

namespace dravix::imaging::detail {
const RowKernels* Sse2Kernels() { return nullptr; }
}  // namespace dravix::imaging::detail

#endif
