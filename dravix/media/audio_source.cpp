#include "dravix/media/audio_source.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavdevice/avdevice.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/error.h>
#include <libswresample/swresample.h>
}

#include <mutex>

namespace dravix::media {
namespace {

std::string AvError(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, text, sizeof text);
  return text;
}

void RegisterDevices() {
  static std::once_flag once;
  std::call_once(once, [] { avdevice_register_all(); });
}

}  // namespace

struct AudioSource::Impl {
  AVFormatContext* input = nullptr;
  AVCodecContext* decoder = nullptr;
  AVFrame* frame = nullptr;
  AVPacket* packet = nullptr;
  SwrContext* swr = nullptr;
  int stream = -1;
  bool draining = false;
  bool ended = false;
  AudioSourceOptions options;

  ~Impl() {
    swr_free(&swr);
    av_packet_free(&packet);
    av_frame_free(&frame);
    avcodec_free_context(&decoder);
    avformat_close_input(&input);
  }

  bool Convert(std::vector<uint8_t>* pcm, std::string* error) {
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
  auto fail = [&](const std::string& why) {
    if (error) *error = why;
    return false;
  };
  if (options.sampleRate < 1000 || options.sampleRate > 192000 || options.channels < 1 || options.channels > 8)
    return fail("16-bit PCM of 1000 to 192000 Hz and 1 to 8 channels is needed");
  RegisterDevices();
  auto impl = std::make_unique<Impl>();
  impl->options = options;
  const AVInputFormat* format = nullptr;
  if (!options.format.empty()) {
    format = av_find_input_format(options.format.c_str());
    if (format == nullptr) return fail("no input format named '" + options.format + "'");
  }
  int rc = avformat_open_input(&impl->input, url.c_str(), format, nullptr);
  if (rc < 0) return fail("cannot open " + url + ": " + AvError(rc));
  rc = avformat_find_stream_info(impl->input, nullptr);
  if (rc < 0) return fail("cannot read the streams of " + url + ": " + AvError(rc));
  const AVCodec* codec = nullptr;
  rc = av_find_best_stream(impl->input, AVMEDIA_TYPE_AUDIO, -1, -1, &codec, 0);
  if (rc < 0) return fail(url + " has no audio stream that can be decoded");
  impl->stream = rc;
  impl->decoder = avcodec_alloc_context3(codec);
  impl->frame = av_frame_alloc();
  impl->packet = av_packet_alloc();
  if (impl->decoder == nullptr || impl->frame == nullptr || impl->packet == nullptr) return fail("out of memory");
  rc = avcodec_parameters_to_context(impl->decoder, impl->input->streams[rc]->codecpar);
  if (rc < 0) return fail("cannot set up the decoder of " + url + ": " + AvError(rc));
  rc = avcodec_open2(impl->decoder, codec, nullptr);
  if (rc < 0) return fail("cannot open the " + std::string(codec->name) + " decoder of " + url + ": " + AvError(rc));
  impl_ = std::move(impl);
  return true;
}

AudioSource::Result AudioSource::Next(std::vector<uint8_t>* pcm, std::string* error) {
  if (!impl_) {
    if (error) *error = "the source is not open";
    return Result::kError;
  }
  Impl& s = *impl_;
  if (s.ended) return Result::kEnd;
  for (;;) {
    int rc = avcodec_receive_frame(s.decoder, s.frame);
    if (rc == 0) {
      const bool ok = s.Convert(pcm, error);
      av_frame_unref(s.frame);
      return ok ? Result::kSamples : Result::kError;
    }
    if (rc == AVERROR_EOF) {
      s.ended = true;
      return Result::kEnd;
    }
    if (rc != AVERROR(EAGAIN)) {
      if (error) *error = "the decoder failed: " + AvError(rc);
      return Result::kError;
    }
    rc = av_read_frame(s.input, s.packet);
    if (rc == AVERROR_EOF) {
      if (s.draining) {
        s.ended = true;
        return Result::kEnd;
      }
      s.draining = true;
      avcodec_send_packet(s.decoder, nullptr);
      continue;
    }
    if (rc < 0) {
      if (error) *error = "cannot read the source: " + AvError(rc);
      return Result::kError;
    }
    if (s.packet->stream_index == s.stream) rc = avcodec_send_packet(s.decoder, s.packet);
    av_packet_unref(s.packet);
    if (rc < 0 && rc != AVERROR(EAGAIN) && rc != AVERROR_INVALIDDATA) {
      if (error) *error = "the decoder refused a packet: " + AvError(rc);
      return Result::kError;
    }
  }
}

}  // namespace dravix::media
