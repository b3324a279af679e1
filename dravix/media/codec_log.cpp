#include "dravix/media/codec_log.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavdevice/avdevice.h>
#include <libavfilter/avfilter.h>
#include <libavformat/avformat.h>
#include <libavutil/avutil.h>
#include <libavutil/log.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

namespace dravix::media {

std::string CodecLibraryVersions() {
  const std::pair<const char*, unsigned> libs[] = {
      {"libavcodec", avcodec_version()},   {"libavformat", avformat_version()},     {"libavutil", avutil_version()},
      {"libswscale", swscale_version()},   {"libswresample", swresample_version()}, {"libavfilter", avfilter_version()},
      {"libavdevice", avdevice_version()},
  };
  std::string text;
  for (const auto& [name, v] : libs) {
    if (!text.empty()) text += ", ";
    text += std::string(name) + " " + std::to_string(AV_VERSION_MAJOR(v)) + "." + std::to_string(AV_VERSION_MINOR(v)) +
            "." + std::to_string(AV_VERSION_MICRO(v));
  }
  return text;
}

void QuietCodecLog() { av_log_set_level(AV_LOG_ERROR); }
void SilenceCodecLog() { av_log_set_level(AV_LOG_QUIET); }

}  // namespace dravix::media
