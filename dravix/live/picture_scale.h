// Scaling a source's pictures to a camera's picture size, as the live
// pictures are scaled: with the library's own imaging scalers.
//
// A picture that is reduced (or kept) in both directions goes plane by
// plane through Y_downsample and UV_downsample (nearest-sample decimation).
// A picture enlarged in either direction is packed to three-byte Y, Cb, Cr
// pixels (each chroma sample serves its 2x2 luma block), resampled
// bilinearly with Resample, and unpacked (each chroma sample the rounded
// mean of its 2x2 block). The luma range is kept; so is the time.
#pragma once

#include "dravix/media/picture.h"

namespace dravix::live {

// False (out untouched) for an empty input or a target size that is not
// positive; odd target sizes are rounded down to even. `out` must not be
// `in`.
bool ScalePicture(const media::Picture& in, int width, int height, media::Picture* out);

}  // namespace dravix::live
