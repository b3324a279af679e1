#include "dravix/media/media_versions.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavdevice/avdevice.h>
#include <libavfilter/avfilter.h>
#include <libavformat/avformat.h>
#include <libavutil/avutil.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

namespace dravix::media {
namespace {

std::string Dotted(unsigned v) {
  return std::to_string(AV_VERSION_MAJOR(v)) + "." + std::to_string(AV_VERSION_MINOR(v)) + "." +
         std::to_string(AV_VERSION_MICRO(v));
}

MediaLibraryVersion Entry(const char* name, unsigned built, unsigned running) {
  return {name, Dotted(built), Dotted(running)};
}

}  // namespace

std::vector<MediaLibraryVersion> MediaLibraryVersions() {
  return {Entry("libavformat", LIBAVFORMAT_VERSION_INT, avformat_version()),
          Entry("libavcodec", LIBAVCODEC_VERSION_INT, avcodec_version()),
          Entry("libavutil", LIBAVUTIL_VERSION_INT, avutil_version()),
          Entry("libswscale", LIBSWSCALE_VERSION_INT, swscale_version()),
          Entry("libswresample", LIBSWRESAMPLE_VERSION_INT, swresample_version()),
          Entry("libavfilter", LIBAVFILTER_VERSION_INT, avfilter_version()),
          Entry("libavdevice", LIBAVDEVICE_VERSION_INT, avdevice_version())};
}

}  // namespace dravix::media
