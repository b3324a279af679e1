#include "dravix/media/audio_source.h"

#include "dravix/media/av_internal.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

namespace dravix::media {

struct AudioSource::Impl {
  DecodingInput in;
  SwrContext* swr = nullptr;
  AudioSourceOptions options;

  ~Impl() { swr_free(&swr); }

  bool Convert(std::vector<uint8_t>* pcm, std::string* error) {
    const AVFrame* frame = in.frame;
    if (swr == nullptr) {
      AVChannelLayout out{};
      av_channel_layout_default(&out, options.channels);
      AVChannelLayout in{};
      if (frame->ch_layout.nb_channels > 0)
        av_channel_layout_copy(&in, &frame->ch_layout);
      else
        av_channel_layout_default(&in, 1);
      const int rc = swr_alloc_set_opts2(&swr, &out, AV_SAMPLE_FMT_S16, options.sampleRate, &in,
                                         static_cast<AVSampleFormat>(frame->format), frame->sample_rate, 0, nullptr);
      av_channel_layout_uninit(&in);
      av_channel_layout_uninit(&out);
      if (rc < 0 || swr_init(swr) < 0) {
        if (error) *error = "cannot convert the source's sound to 16-bit PCM";
        return false;
      }
    }
    const int room = swr_get_out_samples(swr, frame->nb_samples);
    if (room <= 0) return true;
    const size_t bytesPerFrame = static_cast<size_t>(options.channels) * 2;
    const size_t before = pcm->size();
    pcm->resize(before + static_cast<size_t>(room) * bytesPerFrame);
    uint8_t* out[1] = {pcm->data() + before};
    const int got = swr_convert(swr, out, room, const_cast<const uint8_t**>(frame->extended_data), frame->nb_samples);
    if (got < 0) {
      pcm->resize(before);
      if (error) *error = "the sound conversion failed: " + AvError(got);
      return false;
    }
    pcm->resize(before + static_cast<size_t>(got) * bytesPerFrame);
    return true;
  }
};

AudioSource::AudioSource() = default;
AudioSource::~AudioSource() = default;

std::string AudioSource::ToneUrl(int frequency, int sampleRate) {
  return "sine=frequency=" + std::to_string(frequency) + ":sample_rate=" + std::to_string(sampleRate);
}

bool AudioSource::Open(const std::string& url, const AudioSourceOptions& options, std::string* error) {
  impl_.reset();
  if (options.sampleRate < 1000 || options.sampleRate > 192000 || options.channels < 1 || options.channels > 8) {
    if (error) *error = "16-bit PCM of 1000 to 192000 Hz and 1 to 8 channels is needed";
    return false;
  }
  auto impl = std::make_unique<Impl>();
  impl->options = options;
  if (!impl->in.Open(url, options.format, AVMEDIA_TYPE_AUDIO, 0, error)) return false;
  impl_ = std::move(impl);
  return true;
}

AudioSource::Result AudioSource::Next(std::vector<uint8_t>* pcm, std::string* error) {
  if (!impl_) {
    if (error) *error = "the source is not open";
    return Result::kError;
  }
  Impl& s = *impl_;
  switch (s.in.NextFrame(error)) {
    case DecodingInput::Step::kFrame: {
      const bool ok = s.Convert(pcm, error);
      av_frame_unref(s.in.frame);
      return ok ? Result::kSamples : Result::kError;
    }
    case DecodingInput::Step::kEnd:
      return Result::kEnd;
    case DecodingInput::Step::kError:
      break;
  }
  return Result::kError;
}

}  // namespace dravix::media
