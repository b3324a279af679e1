// AVX2 row kernels for frame scaling, for CPUs without AVX-512. Compiled for
// the generic target with per-function target attributes and chosen at run
// time. Only the hot plane case (halving) and the vertical blend are
// vectorized here; the other kernels are the scalar ones.
#include "dravix/imaging/scale_kernels.h"

#if defined(__x86_64__) && defined(__GNUC__)

#include <immintrin.h>

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
  for (int y = 0; y < rows; ++y, dst += dstRowBytes) {
    const BYTE* row = next;
    next = src + static_cast<long long>((y + 1) * rowStep) * srcRowBytes;
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
    ScalarKernels().pick_strided(job);
  }
}

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

bool CpuHasAvx2() {
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx2");
}

}  // namespace

const RowKernels* Avx2Kernels() {
  static const RowKernels kernels{PickStrided, ScalarPickPlane, BlendRows, ScalarLerpColumns,
                                  ScalarResampleRow};
  static const bool available = CpuHasAvx2();
  return available ? &kernels : nullptr;
}

}  // namespace dravix::imaging::detail

#else

namespace dravix::imaging::detail {
const RowKernels* Avx2Kernels() { return nullptr; }
}  // namespace dravix::imaging::detail

#endif
