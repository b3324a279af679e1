// Row kernels shared by the frame-scaling functions. scale.cpp walks the
// rows and decides, per call, which kernel applies; each instruction set
// supplies one RowKernels table. Every kernel must give exactly the bytes of
// its scalar counterpart.
#pragma once

#include "dravix/platform/wintypes.h"

#include <cstdint>

namespace dravix::imaging::detail {

// Column plan of one strip of a dyadic bilinear resample: each output byte
// is (V[x1 byte] * wx + V[x0 byte] * (2^F - wx)) >> shift, where V is the
// vertically blended strip of source bytes.
constexpr int kStripPixels = 512;  // output pixels per strip
constexpr int kStripBytes = 3 * kStripPixels;
constexpr int kSpanPixels = 2048;  // source pixels a strip may cover
constexpr int kSpanBytes = 3 * kSpanPixels;
constexpr int kBlendPad = 64;   // readable slack after a blended strip
constexpr int kLerpBlock = 16;  // output bytes per vector step

constexpr int kLerpLanes = kStripBytes / 4;
constexpr int kDoublingGroup =
    96;  // output bytes (16 pixels) per step of a doubling lerp  // 16-byte lanes of pairs (4 output bytes each)

struct LerpColumns {
  int bytes = 0;                               // output bytes in the strip
  int shift = 0;                               // fractional bits of both weights
  bool windowed = false;                       // every block's indices lie within 64 entries of its base
  int16_t pairs[2 * kStripBytes];              // (x1 byte, x0 byte) indices into the blended strip
  int16_t weights[2 * kStripBytes];            // (wx, 2^F - wx)
  int32_t base[kStripBytes / kLerpBlock + 1];  // smallest index of each block
  // Byte-shuffle form of `pairs`, filled only for kernels that ask for it
  // (RowKernels::lerp_lanes): the pairs of 4 output bytes (16 bytes) are
  // picked by in-lane byte shuffles from laneChunks (1 or 2) 16-byte windows
  // of the blended strip at laneBase. laneCount is 0 when some lane's pairs
  // span more than 32 bytes.
  // Output bytes from the strip's start (a multiple of kDoublingGroup) that
  // double the blended pixels exactly: output pixels 2i and 2i + 1 come
  // from blended pixel i with weights (0, 2) and pixel i, i + 1 with (1, 1).
  // 0 when the strip does not double; kernels may then take a faster form.
  int doublingBytes = 0;
  int laneCount = 0;
  int laneChunks = 0;
  int32_t laneBase[kLerpLanes];                          // byte offset into the blended strip
  alignas(32) uint8_t laneMasks[kLerpLanes / 2][2][32];  // [lane pair][window half][byte]
};

// Byte picks through a column table computed once per call: output byte j
// of a strip is src[offsets[j]], src being the strip's first source byte in
// the row. Rows of a plane whose index sum can round across an integer
// differently from row to row list those columns in `fragile`; the caller
// evaluates them per row.
constexpr int kPickBytes = 2048;                 // output bytes per strip
constexpr int kPickLanes = kPickBytes / 16 + 2;  // 16-byte output lanes (even count)
constexpr int kPickChunks = 4;                   // 16-byte source windows a lane may use

struct PickTable {
  int bytes = 0;
  int32_t offsets[kPickBytes];
  int fragileCount = 0;
  int16_t fragile[kPickBytes];
  // Vector form, filled only for kernels that ask for it (RowKernels::
  // pick_lanes): lane l stores 16 output bytes at laneStart[l], byte-shuffled
  // from `chunks` 16-byte windows at src + laneBase[l]. lanes is 0 when the
  // strip is too short or its sources too far apart; readSpan is how many
  // bytes from src the lanes read.
  int lanes = 0;
  int chunks = 0;
  long long readSpan = 0;
  int32_t laneStart[kPickLanes];
  int32_t laneBase[kPickLanes];
  alignas(32) uint8_t masks[kPickLanes / 2][kPickChunks][32];  // [lane pair][window][byte]
};

// One destination row of a general bilinear resample (double arithmetic).
struct GeneralRow {
  const BYTE* row0;  // source row y0
  const BYTE* row1;  // source row y1
  long long avail0;  // bytes readable from row0 (to the end of the picture or more)
  long long avail1;
  double wy;      // vertical weight, already rounded to single precision
  double omy;     // 1 - wy
  double hratio;  // horizontal ratio, already rounded to single precision
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
  void (*pick_plane)(const BYTE* src, long long rowStart, const BYTE* readEnd, BYTE* dst, const BYTE* dstEnd, int n,
                     double step);
  // v[i] = r0[i] * w0 + r1[i] * w1 for i < n (w0 + w1 <= 128).
  void (*blend_rows)(const BYTE* r0, const BYTE* r1, int16_t* v, int n, int w0, int w1);
  // Output bytes of one strip of a dyadic resample.
  void (*lerp_columns)(const int16_t* v, const LerpColumns& cols, BYTE* dst, const BYTE* dstEnd);
  // One destination row of a general resample.
  void (*resample_row)(const GeneralRow& row, BYTE* dst, const BYTE* dstEnd);
  // Optional (null: pick_strided and pick_plane do all picks). One strip of
  // a row through a column table; reads src[0 .. plan.readSpan) when
  // plan.lanes > 0, else only the tabled bytes. Plane picks at non-integral
  // steps then go through tables, and so do strided picks other than
  // halving when strided_tables is set.
  void (*pick_row)(const BYTE* src, const PickTable& plan, BYTE* dst);
  bool strided_tables;
  bool pick_lanes;  // pick_row wants the vector form of the plan
  bool lerp_lanes;  // lerp_columns wants the byte-shuffle form of the plan
};

const RowKernels& ScalarKernels();
// Null when the CPU or the compiler lacks AVX-512 with VBMI.
const RowKernels* Avx512Kernels();
// Null when the CPU or the compiler lacks AVX2.
const RowKernels* Avx2Kernels();
// Null off x86-64.
const RowKernels* Sse2Kernels();
// The AVX2 table pick (RowKernels::pick_row), for other kernel sets whose
// CPUs have AVX2.
void Avx2PickRow(const BYTE* src, const PickTable& plan, BYTE* dst);
// The AVX2 doubling lerp of the first cols.doublingBytes output bytes, for
// the same.
void Avx2LerpDoubling(const int16_t* v, const LerpColumns& cols, BYTE* dst);

// Scalar pieces the vector kernels fall back on.
void ScalarPickPlane(const BYTE* src, long long rowStart, const BYTE* readEnd, BYTE* dst, const BYTE* dstEnd, int n,
                     double step);
void ScalarLerpColumns(const int16_t* v, const LerpColumns& cols, BYTE* dst, const BYTE* dstEnd);
// The output bytes from `from` to the end of the row, one at a time.
void ScalarLerpFrom(const int16_t* v, const LerpColumns& cols, BYTE* dst, int from);
void ScalarResampleRow(const GeneralRow& row, BYTE* dst, const BYTE* dstEnd);
void ScalarPickStrided(const StridedJob& job);
void TablePickRow(const BYTE* src, const PickTable& plan, BYTE* dst);

}  // namespace dravix::imaging::detail
