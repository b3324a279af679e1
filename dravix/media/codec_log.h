// What FFmpeg's libraries print on standard error.
//
// libavcodec and libavformat report to standard error through one global
// logger; encoders chatter there ("clipping 1 dct coefficients") even when
// all is well. Programs that own their standard error call this once to
// keep only real errors. The library itself never changes the setting.
#pragma once

namespace dravix::media {

// Keeps only messages at error level or worse.
void QuietCodecLog();
// Keeps none: for callers that feed damaged data on purpose (fuzzing), where
// every decode error is expected and its message is noise.
void SilenceCodecLog();

}  // namespace dravix::media
