// Frame scaling.
//
// The arithmetic is fixed: positions are double products truncated toward
// zero, and Resample mixes single-precision ratios and vertical weights with
// double products and sums, truncating each channel. Every fast path below
// gives exactly the bytes of that arithmetic; it only chooses, per call, the
// cheapest kernel that provably does:
//
//  - Planes with an integral horizontal step k: x * k and the row offset
//    are exact in double, so a row is a strided pick (step 1 is a copy).
//    Otherwise each index is trunc(rowStart + x * step) in double: the sum
//    can round up across an integer for some rows and not for others. Where
//    x * step lies far enough below the next integer (farther than one unit
//    in the last place of the largest sum) no row can round it across, and
//    trunc(rowStart + x * step) = rowStart + trunc(x * step): those columns
//    share one offset table for the whole call. The few columns that lie
//    closer are evaluated as written on every row.
//  - Resample with integral ratios: both weights are 0 and the formula is the
//    pixel (x0, y0), a strided pick of three-byte pixels.
//  - Resample with ratios that are multiples of 2^-F and 2^-G with F, G <= 7:
//    every weight is a multiple of 2^-F (2^-G) and no product or sum of the
//    formula needs more than 53 bits, so the double result is exact and its
//    truncation equals the integer expression
//      (((P01 * (2^G - WY) + P11 * WY) * WX + (P00 * (2^G - WY) + P10 * WY)
//        * (2^F - WX)) >> (F + G)
//    with WX = wx * 2^F, WY = wy * 2^G. It is computed separably (a vertical
//    blend of the strip's source bytes, then the columns) in 16/32-bit
//    integers, strip by strip so the column plan lives on the stack.
//  - Anything else runs the double formula per pixel.
#include "dravix/imaging/scale.h"

#include "dravix/imaging/scale_kernels.h"
#include "dravix/imaging/scale_paths.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace dravix::imaging {
namespace detail {

void ScalarPickStrided(const StridedJob& job) {
  const long long stride = static_cast<long long>(job.e) * job.k;
  for (int y = 0; y < job.rows; ++y) {
    const BYTE* row = job.src + static_cast<long long>(y * job.rowStep) * job.srcRowBytes;
    BYTE* dst = job.dst + y * job.dstRowBytes;
    for (int i = 0; i < job.n; ++i) {
      const BYTE* p = row + stride * i;
      for (int c = 0; c < job.e; ++c) dst[job.e * i + c] = p[c];
    }
  }
}

namespace {

void BlendRowsScalar(const BYTE* r0, const BYTE* r1, int16_t* v, int n, int w0, int w1) {
  for (int i = 0; i < n; ++i) v[i] = static_cast<int16_t>(r0[i] * w0 + r1[i] * w1);
}

}  // namespace

void TablePickRow(const BYTE* src, const PickTable& plan, BYTE* dst) {
  for (int j = 0; j < plan.bytes; ++j) dst[j] = src[plan.offsets[j]];
}

void ScalarPickPlane(const BYTE* src, long long rowStart, const BYTE*, BYTE* dst, const BYTE*, int n, double step) {
  const double a = static_cast<double>(rowStart);
  for (int x = 0; x < n; ++x) dst[x] = src[static_cast<long long>(a + x * step)];
}

void ScalarLerpFrom(const int16_t* v, const LerpColumns& cols, BYTE* dst, int from) {
  for (int b = from; b < cols.bytes; ++b) {
    const int sum = v[cols.pairs[2 * b]] * cols.weights[2 * b] + v[cols.pairs[2 * b + 1]] * cols.weights[2 * b + 1];
    dst[b] = static_cast<BYTE>(sum >> cols.shift);
  }
}

void ScalarLerpColumns(const int16_t* v, const LerpColumns& cols, BYTE* dst, const BYTE*) {
  ScalarLerpFrom(v, cols, dst, 0);
}

void ScalarResampleRow(const GeneralRow& r, BYTE* dst, const BYTE*) {
  for (int i = 0; i < r.dstWidth; ++i) {
    const double fx = i * r.hratio;
    const int x0 = static_cast<int>(fx);
    const int x1 = std::min(x0 + 1, r.srcWidth - 1);
    const double wx = fx - x0;
    const double omx = 1.0 - wx;
    const BYTE* p00 = r.row0 + 3LL * x0;
    const BYTE* p01 = r.row0 + 3LL * x1;
    const BYTE* p10 = r.row1 + 3LL * x0;
    const BYTE* p11 = r.row1 + 3LL * x1;
    for (int c = 0; c < 3; ++c) {
      const double a = p01[c] * r.omy + p11[c] * r.wy;
      const double b = p00[c] * r.omy + p10[c] * r.wy;
      dst[3 * i + c] = static_cast<BYTE>(static_cast<int>(a * wx + b * omx));
    }
  }
}

const RowKernels& ScalarKernels() {
  static const RowKernels k{ScalarPickStrided,
                            ScalarPickPlane,
                            BlendRowsScalar,
                            ScalarLerpColumns,
                            ScalarResampleRow,
                            nullptr,
                            false,
                            false,
                            false};
  return k;
}

}  // namespace detail

namespace {

using detail::GeneralRow;
using detail::LerpColumns;
using detail::RowKernels;
using detail::StridedJob;

// Beyond this many bytes a double no longer holds every byte index exactly
// with room to spare; such planes take the formula as written.
constexpr double kExactIndexLimit = 4503599627370496.0;  // 2^52

const RowKernels* AvailableKernels(ScalePath path) {
  switch (path) {
    case ScalePath::kScalar:
      return &detail::ScalarKernels();
    case ScalePath::kSse2:
      return detail::Sse2Kernels();
    case ScalePath::kAvx2:
      return detail::Avx2Kernels();
    case ScalePath::kAvx512:
      return detail::Avx512Kernels();
  }
  return nullptr;
}

const RowKernels& KernelsFor(ScalePath path) {
  const RowKernels* k = AvailableKernels(path);
  return k != nullptr ? *k : detail::ScalarKernels();
}

using detail::PickTable;

// Fills the vector form of a plan: 16-byte output lanes, the last one ending
// at the strip's end (it rewrites some outputs of the one before with the
// same bytes), each shuffled from as many 16-byte windows as the widest
// lane needs. Offsets never decrease, so a lane's sources run from its first
// output's offset to its last one's.
void PlanLanes(PickTable* plan) {
  plan->lanes = 0;
  if (plan->bytes < 16) return;
  int n = 0;
  int widest = 0;
  for (int start = 0; start < plan->bytes; start += 16) {
    const int s = std::min(start, plan->bytes - 16);
    plan->laneStart[n] = s;
    plan->laneBase[n] = plan->offsets[s];
    widest = std::max(widest, plan->offsets[s + 15] - plan->offsets[s] + 1);
    ++n;
  }
  const int chunks = (widest + 15) / 16;
  if (chunks > detail::kPickChunks) return;
  if (n % 2 != 0) {  // pairs of lanes: repeat the last one
    plan->laneStart[n] = plan->laneStart[n - 1];
    plan->laneBase[n] = plan->laneBase[n - 1];
    ++n;
  }
  long long span = 0;
  for (int l = 0; l < n; ++l) {
    for (int c = 0; c < chunks; ++c) {
      uint8_t* m = plan->masks[l / 2][c] + 16 * (l % 2);
      for (int j = 0; j < 16; ++j) {
        const int rel = plan->offsets[plan->laneStart[l] + j] - plan->laneBase[l] - 16 * c;
        m[j] = rel >= 0 && rel < 16 ? static_cast<uint8_t>(rel) : 0x80;
      }
    }
    span = std::max<long long>(span, plan->laneBase[l] + 16LL * chunks);
  }
  plan->chunks = chunks;
  plan->readSpan = span;
  plan->lanes = n;
}

// A pick through column tables: destination row y (dstRowBytes apart, outBytes
// long) takes, from source row trunc(y * rowStep), the bytes at
// offset(j) for output byte j. `offset` returns false for a column that must
// be evaluated per row as trunc(rowStart + x * hstep) (planes only).
struct TableJob {
  const BYTE* src;
  const BYTE* srcEnd;
  long long srcRowBytes;
  double rowStep;
  BYTE* dst;
  long long dstRowBytes;
  int rows;
  int outBytes;
  double hstep;
};

template <typename Offset>
void PickThroughTables(const RowKernels& k, const TableJob& t, Offset offset) {
  PickTable plan;
  for (int first = 0; first < t.outBytes; first += detail::kPickBytes) {
    plan.bytes = std::min(detail::kPickBytes, t.outBytes - first);
    plan.fragileCount = 0;
    long long firstSource = 0;
    offset(first, &firstSource);
    for (int j = 0; j < plan.bytes; ++j) {
      long long o = 0;
      if (!offset(first + j, &o)) plan.fragile[plan.fragileCount++] = static_cast<int16_t>(j);
      plan.offsets[j] = static_cast<int32_t>(o - firstSource);
    }
    if (k.pick_lanes) {
      PlanLanes(&plan);
    } else {
      plan.lanes = 0;
    }
    for (int y = 0; y < t.rows; ++y) {
      const long long rowStart = static_cast<long long>(y * t.rowStep) * t.srcRowBytes;
      const BYTE* s = t.src + rowStart + firstSource;
      BYTE* d = t.dst + y * t.dstRowBytes + first;
      if (plan.lanes > 0 && (s >= t.srcEnd || t.srcEnd - s < plan.readSpan)) {
        detail::TablePickRow(s, plan, d);
      } else {
        k.pick_row(s, plan, d);
      }
      const double a = static_cast<double>(rowStart);
      for (int f = 0; f < plan.fragileCount; ++f) {
        const int x = first + plan.fragile[f];
        d[plan.fragile[f]] = t.src[static_cast<long long>(a + x * t.hstep)];
      }
    }
  }
}

// Table picks keep offsets within a strip in 32 bits with room to spare.
constexpr double kTableSpanLimit = 1e9;

// Nearest-sample decimation of one plane; sizes are those of the planes, the
// steps those of the whole picture.
void DecimatePlane(const RowKernels& k, const BYTE* src, BYTE* dst, long long planeWidth, long long planeHeight,
                   int outWidth, int outHeight, double hstep, double vstep) {
  if (outWidth <= 0 || outHeight <= 0 || planeWidth <= 0 || planeHeight <= 0) return;
  const long long planeBytes = planeWidth * planeHeight;
  BYTE* const dstEnd = dst + static_cast<long long>(outWidth) * outHeight;
  const bool huge = static_cast<double>(planeBytes) + static_cast<double>(outWidth) * hstep >= kExactIndexLimit;
  const bool unit = hstep == 1.0 && !huge;
  const bool integral = hstep == std::floor(hstep) && hstep < 2147483647.0 && !huge;
  const bool tabled = k.pick_row != nullptr && !unit && !huge && hstep != 2.0 && (!integral || k.strided_tables) &&
                      outWidth * hstep < kTableSpanLimit;
  if (tabled) {
    const TableJob t{src, src + planeBytes, planeWidth, vstep, dst, outWidth, outHeight, outWidth, hstep};
    if (integral) {
      const long long k1 = static_cast<long long>(hstep);
      PickThroughTables(k, t, [k1](int x, long long* o) {
        *o = k1 * x;
        return true;
      });
      return;
    }
    // The largest index sum of the call and one unit in its last place.
    const double lastRow = std::floor((outHeight - 1) * vstep);
    const double largest = lastRow * static_cast<double>(planeWidth) + outWidth * hstep + 1.0;
    const double ulp = std::ldexp(1.0, std::ilogb(largest) - 52);
    PickThroughTables(k, t, [hstep, ulp](int x, long long* o) {
      const double p = x * hstep;
      const double whole = std::floor(p);
      *o = static_cast<long long>(whole);
      const double frac = p - whole;
      return frac == 0.0 || 1.0 - frac > ulp;
    });
    return;
  }
  if (integral && !unit) {
    const StridedJob job{src,      src + planeBytes, planeWidth, vstep, dst,
                         outWidth, outHeight,        outWidth,   1,     static_cast<int>(hstep)};
    k.pick_strided(job);
    return;
  }
  for (int y = 0; y < outHeight; ++y) {
    const long long srcRow = static_cast<long long>(y * vstep);
    const long long rowStart = srcRow * planeWidth;
    BYTE* d = dst + static_cast<long long>(y) * outWidth;
    if (unit) {
      std::memcpy(d, src + rowStart, static_cast<size_t>(outWidth));
    } else if (huge) {
      detail::ScalarPickPlane(src, rowStart, nullptr, d, dstEnd, outWidth, hstep);
    } else {
      const long long lastRead = static_cast<long long>(static_cast<double>(rowStart) + (outWidth - 1) * hstep);
      k.pick_plane(src, rowStart, src + std::max(planeBytes, lastRead + 1), d, dstEnd, outWidth, hstep);
    }
  }
}

void DownsampleSteps(int srcWidth, int srcHeight, int dstWidth, int dstHeight, double* hstep, double* vstep) {
  *hstep = static_cast<double>(srcWidth) / dstWidth;
  *vstep = static_cast<double>(srcHeight) / dstHeight;
  if (*hstep <= 1.0) *hstep = 1.0;
  if (*vstep <= 1.0) *vstep = 1.0;
}

void YDownsampleWith(const RowKernels& k, const BYTE* src, BYTE* dst, int srcWidth, int srcHeight, int dstWidth,
                     int dstHeight) {
  if (dstWidth <= 0 || dstHeight <= 0 || srcWidth <= 0 || srcHeight <= 0) return;
  double hstep, vstep;
  DownsampleSteps(srcWidth, srcHeight, dstWidth, dstHeight, &hstep, &vstep);
  DecimatePlane(k, src, dst, srcWidth, srcHeight, dstWidth, dstHeight, hstep, vstep);
}

void UVDownsampleWith(const RowKernels& k, const BYTE* src, BYTE* dst, int srcWidth, int srcHeight, int dstWidth,
                      int dstHeight) {
  if (dstWidth <= 0 || dstHeight <= 0 || srcWidth <= 0 || srcHeight <= 0) return;
  double hstep, vstep;
  DownsampleSteps(srcWidth, srcHeight, dstWidth, dstHeight, &hstep, &vstep);
  DecimatePlane(k, src, dst, srcWidth / 2, srcHeight / 2, dstWidth / 2, dstHeight / 2, hstep, vstep);
}

// QUIRK(resample-float-ratios): the ratios and the vertical weight are single
// precision; the products and sums stay double.
// Rounds to single precision in a way the optimizer cannot drop. GCC 12
// vectorizes two neighbouring double-to-float-to-double conversions (the two
// ratios, stored side by side) and then folds the vector round trip away as
// if it were lossless, so the ratios kept all 53 bits and shifted weights by
// up to one unit in the last place of a float; -ffp-contract=off does not
// prevent it. A volatile float must hold the rounded value, so the rounding
// happens whatever the pass pipeline does. It runs once per call and once
// per row.
double RoundToFloat(double x) {
  volatile float rounded = static_cast<float>(x);
  return rounded;
}

// The number of fractional bits (0..7) of a non-negative ratio, or -1 when
// it has more.
int FractionBits(double ratio) {
  for (int bits = 0; bits <= 7; ++bits) {
    const double scaled = ratio * (1 << bits);
    if (scaled == std::floor(scaled)) return bits;
  }
  return -1;
}

struct ResampleGeometry {
  int srcWidth, srcHeight, dstWidth, dstHeight;
  double hratio, vratio;  // single-precision values
  const BYTE* src;
  BYTE* dst;
  long long srcStride, dstStride;
  const BYTE* srcEnd;
  BYTE* dstEnd;
};

struct RowPlace {
  int y0, y1;
  double wy;  // rounded to single precision
};

RowPlace PlaceRow(const ResampleGeometry& g, int j) {
  const double fy = j * g.vratio;
  RowPlace r;
  r.y0 = static_cast<int>(fy);
  r.y1 = std::min(r.y0 + 1, g.srcHeight - 1);
  r.wy = RoundToFloat(fy - r.y0);
  return r;
}

void ResamplePoint(const RowKernels& k, const ResampleGeometry& g) {
  const int step = static_cast<int>(g.hratio);
  if (step != 1 && k.pick_row != nullptr && k.strided_tables && g.dstStride * g.hratio < kTableSpanLimit) {
    const TableJob t{
        g.src, g.srcEnd, g.srcStride, g.vratio, g.dst, g.dstStride, g.dstHeight, static_cast<int>(g.dstStride), 0.0};
    const long long pixel = 3LL * step;
    PickThroughTables(k, t, [pixel](int j, long long* o) {
      *o = j / 3 * pixel + j % 3;
      return true;
    });
    return;
  }
  if (step != 1) {
    const StridedJob job{g.src, g.srcEnd, g.srcStride, g.vratio, g.dst, g.dstStride, g.dstHeight, g.dstWidth, 3, step};
    k.pick_strided(job);
    return;
  }
  for (int j = 0; j < g.dstHeight; ++j) {
    std::memcpy(g.dst + j * g.dstStride, g.src + PlaceRow(g, j).y0 * g.srcStride, static_cast<size_t>(g.dstStride));
  }
}

// Fills the column plan of output pixels [first, first + count); returns the
// first source pixel of the strip and sets *spanBytes to the source bytes it
// covers.
int PlanStrip(const ResampleGeometry& g, int first, int count, int hbits, int shift, LerpColumns* cols,
              int* spanBytes) {
  const int scale = 1 << hbits;
  const int sx0 = static_cast<int>(first * g.hratio);
  int sxEnd = sx0 + 1;
  for (int n = 0; n < count; ++n) {
    const double fx = (first + n) * g.hratio;
    const int x0 = static_cast<int>(fx);
    const int x1 = std::min(x0 + 1, g.srcWidth - 1);
    const int wx = static_cast<int>((fx - x0) * scale);
    sxEnd = std::max(sxEnd, x1 + 1);
    for (int c = 0; c < 3; ++c) {
      const int b = 3 * n + c;
      cols->pairs[2 * b] = static_cast<int16_t>(3 * (x1 - sx0) + c);
      cols->pairs[2 * b + 1] = static_cast<int16_t>(3 * (x0 - sx0) + c);
      cols->weights[2 * b] = static_cast<int16_t>(wx);
      cols->weights[2 * b + 1] = static_cast<int16_t>(scale - wx);
    }
  }
  cols->bytes = 3 * count;
  cols->shift = shift;
  // Pad the last block so vector loads of the plan read defined values.
  const int padded = (cols->bytes + detail::kLerpBlock - 1) / detail::kLerpBlock * detail::kLerpBlock;
  for (int b = cols->bytes; b < padded; ++b) {
    cols->pairs[2 * b] = cols->pairs[2 * b + 1] = cols->pairs[2 * (cols->bytes - 1)];
    cols->weights[2 * b] = cols->weights[2 * b + 1] = 0;
  }
  cols->windowed = true;
  for (int blk = 0; blk * detail::kLerpBlock < cols->bytes; ++blk) {
    const int16_t* p = cols->pairs + 2 * detail::kLerpBlock * blk;
    const auto [lo, hi] = std::minmax_element(p, p + 2 * detail::kLerpBlock);
    cols->base[blk] = *lo;
    if (*hi - *lo >= 64) cols->windowed = false;
  }
  *spanBytes = 3 * (sxEnd - sx0);
  cols->doublingBytes = 0;
  if (hbits == 1) {
    // The leading whole groups whose columns follow the doubling pattern
    // (the last pixel of a row, whose right neighbour is itself, does not).
    int b = 0;
    for (; b < cols->bytes; ++b) {
      const int j = b / 6 * 3 + b % 3;  // blended byte of the pixel pair
      const bool odd = b % 6 >= 3;
      if (cols->pairs[2 * b] != j + 3 || cols->pairs[2 * b + 1] != j || cols->weights[2 * b] != (odd ? 1 : 0) ||
          cols->weights[2 * b + 1] != (odd ? 1 : 2))
        break;
    }
    cols->doublingBytes = b / detail::kDoublingGroup * detail::kDoublingGroup;
  }
  return sx0;
}

// The byte-shuffle form of a strip's column plan: lane l holds the (x1, x0)
// pairs of output bytes 4l .. 4l + 3, eight 16-bit entries that must lie
// within 8 (one window) or 16 (two windows) entries of the smallest.
void PlanLerpLanes(LerpColumns* cols) {
  cols->laneCount = 0;
  const int lanes = (cols->bytes + detail::kLerpBlock - 1) / detail::kLerpBlock * (detail::kLerpBlock / 4);
  int widest = 0;
  for (int l = 0; l < lanes; ++l) {
    const int16_t* p = cols->pairs + 8 * l;
    const auto [lo, hi] = std::minmax_element(p, p + 8);
    widest = std::max(widest, *hi - *lo + 1);
  }
  if (widest > 16) return;
  for (int l = 0; l < lanes; ++l) {
    const int16_t* p = cols->pairs + 8 * l;
    const int16_t* lo = std::min_element(p, p + 8);
    cols->laneBase[l] = 2 * *lo;
    for (int half = 0; half < 2; ++half) {
      uint8_t* m = cols->laneMasks[l / 2][half] + 16 * (l % 2);
      for (int w = 0; w < 8; ++w) {
        for (int b = 0; b < 2; ++b) {
          const int rel = 2 * (p[w] - *lo) + b - 16 * half;
          m[2 * w + b] = rel >= 0 && rel < 16 ? static_cast<uint8_t>(rel) : 0x80;
        }
      }
    }
  }
  cols->laneChunks = widest <= 8 ? 1 : 2;
  cols->laneCount = lanes;
}

void ResampleGeneral(const RowKernels& k, const ResampleGeometry& g) {
  for (int j = 0; j < g.dstHeight; ++j) {
    const RowPlace p = PlaceRow(g, j);
    GeneralRow r;
    r.row0 = g.src + p.y0 * g.srcStride;
    r.row1 = g.src + p.y1 * g.srcStride;
    r.avail0 = g.srcEnd - r.row0;
    r.avail1 = g.srcEnd - r.row1;
    r.wy = p.wy;
    r.omy = 1.0 - p.wy;
    r.hratio = g.hratio;
    r.srcWidth = g.srcWidth;
    r.dstWidth = g.dstWidth;
    k.resample_row(r, g.dst + j * g.dstStride, g.dstEnd);
  }
}

// Returns false (having written nothing) when a strip would not fit the
// stack plan; the caller then runs the general formula.
bool ResampleDyadic(const RowKernels& k, const ResampleGeometry& g, int hbits, int vbits) {
  const long long perStrip =
      std::min<long long>(detail::kStripPixels, static_cast<long long>((detail::kSpanPixels - 4) / g.hratio));
  if (perStrip < 1) return false;
  const int vscale = 1 << vbits;
  LerpColumns cols;
  alignas(64) int16_t blended[detail::kSpanBytes + detail::kBlendPad];
  std::memset(blended, 0, sizeof blended);
  for (int first = 0; first < g.dstWidth; first += static_cast<int>(perStrip)) {
    const int count = static_cast<int>(std::min<long long>(perStrip, g.dstWidth - first));
    int span = 0;
    const int sx0 = PlanStrip(g, first, count, hbits, hbits + vbits, &cols, &span);
    if (k.lerp_lanes) PlanLerpLanes(&cols);
    for (int j = 0; j < g.dstHeight; ++j) {
      const RowPlace p = PlaceRow(g, j);
      const int wy = static_cast<int>(p.wy * vscale);
      k.blend_rows(g.src + p.y0 * g.srcStride + 3LL * sx0, g.src + p.y1 * g.srcStride + 3LL * sx0, blended, span,
                   vscale - wy, wy);
      k.lerp_columns(blended, cols, g.dst + j * g.dstStride + 3LL * first, nullptr);
    }
  }
  return true;
}

void ResampleWith(const RowKernels& k, int srcWidth, int srcHeight, int dstWidth, int dstHeight, const BYTE* src,
                  BYTE* dst) {
  if (dstWidth <= 0 || dstHeight <= 0 || srcWidth <= 0 || srcHeight <= 0) return;
  ResampleGeometry g;
  g.srcWidth = srcWidth;
  g.srcHeight = srcHeight;
  g.dstWidth = dstWidth;
  g.dstHeight = dstHeight;
  g.hratio = RoundToFloat(static_cast<double>(srcWidth) / dstWidth);
  g.vratio = RoundToFloat(static_cast<double>(srcHeight) / dstHeight);
  g.src = src;
  g.dst = dst;
  g.srcStride = 3LL * srcWidth;
  g.dstStride = 3LL * dstWidth;
  g.srcEnd = src + g.srcStride * srcHeight;
  g.dstEnd = dst + g.dstStride * dstHeight;
  const int hbits = FractionBits(g.hratio);
  const int vbits = FractionBits(g.vratio);
  if (hbits == 0 && vbits == 0) return ResamplePoint(k, g);
  if (hbits >= 0 && vbits >= 0 && ResampleDyadic(k, g, hbits, vbits)) return;
  ResampleGeneral(k, g);
}

}  // namespace

bool ScalePathAvailable(ScalePath path) { return AvailableKernels(path) != nullptr; }

ScalePath BestScalePath() {
  static const ScalePath best = ScalePathAvailable(ScalePath::kAvx512) ? ScalePath::kAvx512
                                : ScalePathAvailable(ScalePath::kAvx2) ? ScalePath::kAvx2
                                : ScalePathAvailable(ScalePath::kSse2) ? ScalePath::kSse2
                                                                       : ScalePath::kScalar;
  return best;
}

const char* ScalePathName(ScalePath path) {
  switch (path) {
    case ScalePath::kScalar:
      return "scalar";
    case ScalePath::kSse2:
      return "sse2";
    case ScalePath::kAvx2:
      return "avx2";
    case ScalePath::kAvx512:
      return "avx512";
  }
  return "scalar";
}

void YDownsampleOn(ScalePath path, const BYTE* src, BYTE* dst, int srcWidth, int srcHeight, int dstWidth,
                   int dstHeight) {
  YDownsampleWith(KernelsFor(path), src, dst, srcWidth, srcHeight, dstWidth, dstHeight);
}

void UVDownsampleOn(ScalePath path, const BYTE* src, BYTE* dst, int srcWidth, int srcHeight, int dstWidth,
                    int dstHeight) {
  UVDownsampleWith(KernelsFor(path), src, dst, srcWidth, srcHeight, dstWidth, dstHeight);
}

void ResampleOn(ScalePath path, int srcWidth, int srcHeight, int dstWidth, int dstHeight, const BYTE* src, BYTE* dst) {
  ResampleWith(KernelsFor(path), srcWidth, srcHeight, dstWidth, dstHeight, src, dst);
}

namespace {
const RowKernels& Best() {
  static const RowKernels& k = KernelsFor(BestScalePath());
  return k;
}
}  // namespace

}  // namespace dravix::imaging

void Y_downsample(const BYTE* src, BYTE* dst, int srcWidth, int srcHeight, int dstWidth, int dstHeight) {
  dravix::imaging::YDownsampleWith(dravix::imaging::Best(), src, dst, srcWidth, srcHeight, dstWidth, dstHeight);
}

void UV_downsample(const BYTE* src, BYTE* dst, int srcWidth, int srcHeight, int dstWidth, int dstHeight) {
  dravix::imaging::UVDownsampleWith(dravix::imaging::Best(), src, dst, srcWidth, srcHeight, dstWidth, dstHeight);
}

void Resample(int srcWidth, int srcHeight, int dstWidth, int dstHeight, const BYTE* src, BYTE* dst) {
  dravix::imaging::ResampleWith(dravix::imaging::Best(), srcWidth, srcHeight, dstWidth, dstHeight, src, dst);
}
