// The instruction-set variants behind scale.h, reachable one by one so that
// tests can hold each against the plain formulas and benchmarks can time
// them. Hosts use scale.h.
#pragma once

#include "dravix/platform/wintypes.h"

namespace dravix::imaging {

enum class ScalePath {
  kScalar,  // plain C++, the formulas evaluated per pixel
  kSse2,    // any x86-64: SSE2 halving and blend, column tables computed once per call
  kAvx2,    // AVX2 byte shuffles over the column tables, vector double Resample
  kAvx512,  // AVX-512 F/BW/VL/DQ + VBMI, chosen at run time when the CPU has it
};

// True when `path` can run on this CPU.
bool ScalePathAvailable(ScalePath path);
// The path the public functions use.
ScalePath BestScalePath();
const char* ScalePathName(ScalePath path);

// The public functions on a given path. Calling an unavailable path runs the
// scalar one.
void YDownsampleOn(ScalePath path, const BYTE* src, BYTE* dst, int srcWidth, int srcHeight, int dstWidth,
                   int dstHeight);
void UVDownsampleOn(ScalePath path, const BYTE* src, BYTE* dst, int srcWidth, int srcHeight, int dstWidth,
                    int dstHeight);
void ResampleOn(ScalePath path, int srcWidth, int srcHeight, int dstWidth, int dstHeight, const BYTE* src, BYTE* dst);

}  // namespace dravix::imaging
