// Frame scaling: nearest-sample decimation of luminance and chrominance
// planes, and bilinear resampling of packed three-byte pictures.
//
// All three functions work on caller-owned, tightly packed buffers (no row
// padding), allocate nothing and cannot fail. Buffer sizes are not checked:
//   - a luminance plane of a w x h picture holds w * h bytes;
//   - a chrominance plane of a w x h picture holds (w / 2) * (h / 2) bytes;
//   - a packed picture holds w * h pixels of three bytes (stride 3 * w); the
//     three bytes are independent channels, no colour order is assumed.
// A destination width or height of 0 or less leaves the destination
// untouched. So does an empty source (a source width or height of 0 or less,
// or for UV_downsample a chrominance plane with no row or no column): there
// is nothing to read.
//
// The functions pick their fastest implementation for the running CPU once;
// every implementation gives the same bytes.
#pragma once

#include "dravix/platform/wintypes.h"

// Reduces a luminance plane. Steps are srcWidth / dstWidth and
// srcHeight / dstHeight in double precision, each raised to 1.0 when smaller;
// destination byte (y, x) is source byte trunc(trunc(y * vstep) * srcWidth +
// x * hstep). Never enlarges: a destination larger than the source indexes
// the source with the destination's coordinates and so reads beyond the
// source picture. Callers must only ask it to reduce or keep the size.
void Y_downsample(const BYTE* src, BYTE* dst, int srcWidth, int srcHeight, int dstWidth, int dstHeight);

// Reduces a chrominance plane of a 4:2:0 picture. All four sizes are those of
// the whole picture; the steps are those of Y_downsample (whole-picture
// sizes), applied to the half-size planes: destination byte (y, x) of the
// (dstWidth / 2) x (dstHeight / 2) plane is source byte
// trunc(trunc(y * vstep) * (srcWidth / 2) + x * hstep). Same enlarging caveat.
void UV_downsample(const BYTE* src, BYTE* dst, int srcWidth, int srcHeight, int dstWidth, int dstHeight);

// Bilinear resampling of a packed three-byte picture, enlarging or reducing.
// Ratios are src / dst rounded to single precision; the vertical weight is
// rounded to single precision; products and sums are in double precision and
// each channel is truncated, not rounded. Equal sizes copy the picture.
void Resample(int srcWidth, int srcHeight, int dstWidth, int dstHeight, const BYTE* src, BYTE* dst);
