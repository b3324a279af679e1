// Row kernels shared by the frame-scaling functions. scale.cpp walks the
// rows and decides, per call, which kernel applies; each instruction set
// supplies one RowKernels table. Every kernel must give exactly the bytes of
// its scalar counterpart.
#pragma once

#include "dravix/base/wintypes.h"

#include <cstdint>

namespace dravix::imaging::detail {

// Column plan of one strip of a dyadic bilinear resample: each output byte
// is (V[x1 byte] * wx + V[x0 byte] * (2^F - wx)) >> shift, where V is the
// vertically blended strip of source bytes.
constexpr int kStripPixels = 512;                 // output pixels per strip
constexpr int kStripBytes = 3 * kStripPixels;
constexpr int kSpanPixels = 2048;                 // source pixels a strip may cover
constexpr int kSpanBytes = 3 * kSpanPixels;
constexpr int kBlendPad = 64;                     // readable slack after a blended strip
constexpr int kLerpBlock = 16;                    // output bytes per vector step

struct LerpColumns {
  int bytes = 0;          // output bytes in the strip
  int shift = 0;          // fractional bits of both weights
  bool windowed = false;  // every block's indices lie within 64 entries of its base
  int16_t pairs[2 * kStripBytes];    // (x1 byte, x0 byte) indices into the blended strip
  int16_t weights[2 * kStripBytes];  // (wx, 2^F - wx)
  int32_t base[kStripBytes / kLerpBlock + 1];  // smallest index of each block
};

// One destination row of a general bilinear resample (double arithmetic).
struct GeneralRow {
  const BYTE* row0;  // source row y0
  const BYTE* row1;  // source row y1
  long long avail0;  // bytes readable from row0 (to the end of the picture or more)
  long long avail1;
  double wy;         // vertical weight, already rounded to single precision
  double omy;        // 1 - wy
  double hratio;     // horizontal ratio, already rounded to single precision
  int srcWidth;
  int dstWidth;
};

// A strided pick over a whole picture: destination row y is source row
// trunc(y * rowStep), and in it dst[e*i + c] = row[e*k*i + c] for i < n,
// c < e (e is 1 or 3, k >= 2).
struct StridedJob {
  const BYTE* src;
  const BYTE* srcEnd;  // end of the source picture
  long long srcRowBytes;
  double rowStep;
  BYTE* dst;
  long long dstRowBytes;
  int rows;
  int n, e, k;
};

struct RowKernels {
  // Reads stay below max(job.srcEnd, the last byte the formula reads).
  void (*pick_strided)(const StridedJob& job);
  // dst[x] = src[trunc(a + x * step)] for x < n, a = rowStart as double.
  void (*pick_plane)(const BYTE* src, long long rowStart, const BYTE* readEnd, BYTE* dst,
                     const BYTE* dstEnd, int n, double step);
  // v[i] = r0[i] * w0 + r1[i] * w1 for i < n (w0 + w1 <= 128).
  void (*blend_rows)(const BYTE* r0, const BYTE* r1, int16_t* v, int n, int w0, int w1);
  // Output bytes of one strip of a dyadic resample.
  void (*lerp_columns)(const int16_t* v, const LerpColumns& cols, BYTE* dst, const BYTE* dstEnd);
  // One destination row of a general resample.
  void (*resample_row)(const GeneralRow& row, BYTE* dst, const BYTE* dstEnd);
};

const RowKernels& ScalarKernels();
// Null when the CPU or the compiler lacks AVX-512 with VBMI.
const RowKernels* Avx512Kernels();
// Null when the CPU or the compiler lacks AVX2.
const RowKernels* Avx2Kernels();

// Scalar pieces the vector kernels fall back on.
void ScalarPickPlane(const BYTE* src, long long rowStart, const BYTE* readEnd, BYTE* dst,
                     const BYTE* dstEnd, int n, double step);
void ScalarLerpColumns(const int16_t* v, const LerpColumns& cols, BYTE* dst, const BYTE* dstEnd);
void ScalarResampleRow(const GeneralRow& row, BYTE* dst, const BYTE* dstEnd);

}  // namespace dravix::imaging::detail
