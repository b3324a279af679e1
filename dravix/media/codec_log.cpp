#include "dravix/media/codec_log.h"

extern "C" {
#include <libavutil/log.h>
}

namespace dravix::media {

void QuietCodecLog() { av_log_set_level(AV_LOG_ERROR); }
void SilenceCodecLog() { av_log_set_level(AV_LOG_QUIET); }

}  // namespace dravix::media
