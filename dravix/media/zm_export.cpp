// Export to Matroska (stream copy) and MP4 (H.264 + AAC).
//
// The work runs in three steps:
//   1. Open every source, read its header and index, and check that they
//      are one camera's (same codec and picture size, same audio format).
//      Sources are put in time order of their first record.
//   2. Plan: find the first record to export (the key video record at or
//      before the first selected record for Matroska, so the first picture
//      decodes; for MP4 decoding starts there too but encoding starts at
//      "from") and fix the origin of the time stamps.
//   3. Walk the records of every source once, in order, through a 1 MiB
//      read buffer, judging each with the same rules as the check; send
//      them to the muxer (stream copy) or through decoder and encoder.
//
// The output goes through a custom AVIOContext onto the StagedFile's
// descriptor, with positioned writes made by a writing thread and a seek
// callback (Matroska goes back to write sizes, cues and chapters). Before
// Commit the file is opened again with libavformat and its streams are
// checked.
#include "dravix/media/zm_export.h"

#include "dravix/base/ztime.h"
#include "dravix/media/av_internal.h"
#include "dravix/media/recording_name.h"
#include "dravix/media/zm_format.h"
#include "dravix/media/zm_header_reader.h"
#include "dravix/media/zm_record_walk.h"
#include "dravix/platform/fd_io.h"
#include "dravix/platform/file_io.h"
#include "dravix/platform/queued_writer.h"
#include "dravix/platform/staged_file.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavformat/avio.h>
#include <libavutil/channel_layout.h>
#include <libavutil/mem.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>

namespace dravix::media {
namespace {

constexpr size_t kReadBuffer = 1 << 20;
constexpr size_t kIoBuffer = 1 << 20;    // each write of the writing thread
constexpr size_t kMuxBuffer = 64 << 10;  // the muxer's small elements
constexpr int64_t kTicksPerSecond = 10000000;
constexpr AVRational kMs{1, 1000};
// A second source that starts later than this after the previous one ends
// counts as a gap.
constexpr int64_t kGapTicks = kTicksPerSecond;

std::string WallText(int64_t ft) {
  SYSTEMTIME st{};
  if (!FileTimeToSystemTime(Int64ToFileTime(ft), &st)) return "(out of range)";
  char buf[40];
  std::snprintf(buf, sizeof buf, "%04u-%02u-%02u %02u:%02u:%02u", st.wYear, st.wMonth, st.wDay, st.wHour, st.wMinute,
                st.wSecond);
  return buf;
}

std::string IsoText(int64_t ft) {
  SYSTEMTIME st{};
  if (!FileTimeToSystemTime(Int64ToFileTime(ft), &st)) return {};
  char buf[48];
  std::snprintf(buf, sizeof buf, "%04u-%02u-%02uT%02u:%02u:%02u.%03u000Z", st.wYear, st.wMonth, st.wDay, st.wHour,
                st.wMinute, st.wSecond, st.wMilliseconds);
  return buf;
}

int64_t FloorDiv(int64_t a, int64_t b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); }

// --- Sources -----------------------------------------------------------------

struct AudioFormat {
  int stream = -1;
  uint32_t rate = 0;
  uint16_t channels = 0;
  uint16_t bits = 0;
  bool operator==(const AudioFormat&) const = default;
};

struct Source {
  std::string path;
  platform::File file;
  ZMHeaderReader reader;
  int64_t start = 0;
  uint64_t dataOffset = 0;
  uint64_t dataEnd = 0;       // the header's end of data, cut to the file's size
  bool endIsFileEnd = false;  // the header claims more than the file holds
  int codec = -1;
  int width = 0, height = 0;
  int64_t frameTicks = 0;  // nominal frame interval, 0 when unknown
  AudioFormat audio;
  ZMRecordRules rules;
  std::vector<ZMIndexEntry> index;
  int64_t firstWall = 0;  // wall time of the first record
  bool hasRecords = false;
};

bool ReadIndex(const std::string& path, uint64_t fileSize, std::vector<ZMIndexEntry>* out) {
  platform::File f;
  if (!f.OpenRead(IndexNameLastDotOrAppend(path).c_str())) return false;
  const int64_t size = f.Size();
  if (size <= kZMIndexHeaderSize) return true;
  // An index never holds more entries than its recording could have records.
  const uint64_t cap =
      std::min<uint64_t>((size - kZMIndexHeaderSize) / kZMIndexEntrySize, fileSize / kZMRecordHeadSize);
  std::vector<uint8_t> bytes(cap * kZMIndexEntrySize);
  const int64_t got = f.PRead(bytes.data(), bytes.size(), kZMIndexHeaderSize);
  if (got < 0) return false;
  for (int64_t at = 0; at + kZMIndexEntrySize <= got; at += kZMIndexEntrySize) {
    const ZMIndexEntry e = ParseIndexEntry(bytes.data() + at);
    if (!out->empty() && (e.time < out->back().time || e.offset <= out->back().offset)) break;
    out->push_back(e);
  }
  return true;
}

// Opens and describes one source; on failure returns the reason.
std::string OpenSource(Source* s) {
  // Only regular files: opening a FIFO or a device could block or consume it.
  std::error_code ec;
  const auto type = std::filesystem::status(s->path, ec).type();
  if (type == std::filesystem::file_type::not_found) return "does not exist";
  if (type != std::filesystem::file_type::regular) return "is not a regular file";
  const HRESULT hr = s->reader.Open(s->path.c_str(), &s->file, false);
  if (hr == E_FAIL && !s->file.IsOpen()) return "cannot be opened for reading";
  if (FAILED(hr))
    return hr == E_UNEXPECTED ? "is not a recording (wrong magic or stream tag)" : "has an unreadable header";
  const ZMFileHeader& h = s->reader.header();
  const auto& streams = s->reader.streams();
  if (streams.empty() || !streams[0].IsVideo()) return "has no video stream first";
  const ZMStreamEntry& v = streams[0];
  if (v.Subtype() == kSubtypeH263)
    s->codec = kCodecH263;
  else if (v.Subtype() == kSubtypeMJPEG)
    s->codec = kCodecMJPEG;
  else
    return "carries video of an unknown subtype";
  if (!(v.FormatType() == kFormatVideoInfo) || v.format.size() < kVideoInfoSize) return "has no picture size";
  s->width = LoadLE<int32_t>(v.format.data() + kVihWidth);
  s->height = std::abs(LoadLE<int32_t>(v.format.data() + kVihHeight));
  if (s->width < 16 || s->height < 16 || s->width > 8192 || s->height > 8192 || s->width % 2 || s->height % 2)
    return "has an unusable picture size " + std::to_string(s->width) + "x" + std::to_string(s->height);
  const int64_t frame = LoadLE<int64_t>(v.format.data() + 40);  // AvgTimePerFrame
  s->frameTicks = frame > 0 && frame <= kTicksPerSecond ? frame : 0;
  for (size_t i = 1; i < streams.size(); ++i) {
    const ZMStreamEntry& a = streams[i];
    if (!(a.MajorType() == kMediaTypeAudio) || !(a.Subtype() == kSubtypePCM) ||
        !(a.FormatType() == kFormatWaveFormatEx) || a.format.size() < 16)
      continue;
    AudioFormat f;
    f.stream = static_cast<int>(i);
    f.channels = LoadLE<uint16_t>(a.format.data() + 2);
    f.rate = LoadLE<uint32_t>(a.format.data() + 4);
    f.bits = LoadLE<uint16_t>(a.format.data() + 14);
    if (f.bits == 16 && (f.channels == 1 || f.channels == 2) && f.rate >= 4000 && f.rate <= 192000) s->audio = f;
    break;
  }
  s->start = h.StartTime();
  s->dataOffset = h.DataOffset();
  const int64_t size = s->file.Size();
  if (size < 0) return "cannot be measured";
  const uint64_t claimed = h.DataEnd() < h.DataOffset() ? UINT64_MAX : h.DataEnd();  // a wrapped sum claims all
  s->dataEnd = std::min<uint64_t>(claimed, static_cast<uint64_t>(size));
  s->endIsFileEnd = claimed > static_cast<uint64_t>(size);
  s->rules.streamCount = h.StreamCount();
  s->rules.durationMs = h.Duration() / kTicksPerMs;
  s->rules.videoStream = 0;
  s->rules.picture = PictureCheckFor(v.Subtype());
  ReadIndex(s->path, static_cast<uint64_t>(size), &s->index);
  uint8_t head[kZMRecordHeadSize];
  if (s->dataOffset + kZMRecordHeadSize <= s->dataEnd &&
      s->file.PRead(head, sizeof head, static_cast<int64_t>(s->dataOffset)) == kZMRecordHeadSize) {
    s->hasRecords = true;
    s->firstWall = WrapAdd(s->start, static_cast<int64_t>(ParseRecordHead(head).time) * kTicksPerMs);
  }
  return {};
}

// --- Reading records -----------------------------------------------------------

// A forward reader over one source's data area with a large buffer, so that
// a walk costs one read per megabyte. The buffer is a reference-counted
// FFmpeg buffer from a pool: a payload that lies inside it becomes a
// packet without being copied (the packet holds a reference; a new buffer
// is taken for the next read).
class RecordReader {
 public:
  explicit RecordReader(const platform::File& f)
      : file_(f), pool_(av_buffer_pool_init(kReadBuffer + AV_INPUT_BUFFER_PADDING_SIZE, nullptr)) {}
  ~RecordReader() {
    av_buffer_unref(&chunk_);
    av_buffer_pool_uninit(&pool_);  // freed when the last packet lets go
  }
  RecordReader(const RecordReader&) = delete;
  RecordReader& operator=(const RecordReader&) = delete;

  // Bytes from `pos` in the buffer (at least min(want, what the file has)),
  // or -1 on a read error or when no buffer can be had.
  int64_t Get(uint64_t pos, size_t want, const uint8_t** data) {
    if (chunk_ == nullptr || pos < base_ || pos + want > base_ + filled_) {
      AVBufferRef* c = pool_ != nullptr ? av_buffer_pool_get(pool_) : nullptr;
      if (c == nullptr) return -1;
      const int64_t n = file_.PRead(c->data, kReadBuffer, static_cast<int64_t>(pos));
      if (n < 0) {
        av_buffer_unref(&c);
        return -1;
      }
      std::memset(c->data + n, 0, AV_INPUT_BUFFER_PADDING_SIZE);
      av_buffer_unref(&chunk_);
      chunk_ = c;
      base_ = pos, filled_ = static_cast<size_t>(n);
    }
    *data = chunk_->data + (pos - base_);
    return static_cast<int64_t>(base_ + filled_ - pos);
  }
  // Points `p` at `size` bytes at `pos` when they lie in the buffer.
  bool Ref(uint64_t pos, size_t size, AVPacket* p) {
    if (chunk_ == nullptr || pos < base_ || pos + size > base_ + filled_) return false;
    p->buf = av_buffer_ref(chunk_);
    if (p->buf == nullptr) return false;
    p->data = chunk_->data + (pos - base_);
    p->size = static_cast<int>(size);
    return true;
  }
  // Copies `size` bytes at `pos` into `out`; false when fewer are there.
  bool Copy(uint64_t pos, size_t size, uint8_t* out) {
    if (chunk_ != nullptr && pos >= base_ && pos < base_ + filled_) {
      const size_t have = std::min<size_t>(size, base_ + filled_ - pos);
      std::memcpy(out, chunk_->data + (pos - base_), have);
      out += have, pos += have, size -= have;
    }
    if (size == 0) return true;
    if (size >= kReadBuffer / 2) return file_.PRead(out, size, static_cast<int64_t>(pos)) == static_cast<int64_t>(size);
    const uint8_t* p = nullptr;
    if (Get(pos, size, &p) < static_cast<int64_t>(size)) return false;
    std::memcpy(out, p, size);
    return true;
  }

 private:
  const platform::File& file_;
  AVBufferPool* pool_;
  AVBufferRef* chunk_ = nullptr;
  uint64_t base_ = 0;
  size_t filled_ = 0;
};

struct Record {
  uint64_t pos = 0;
  ZMRecordHead head;
  int64_t wall = 0;
  bool video = false;
  bool key = false;
};

// Walks one source's valid records. Next() returns false at the end: a
// clean end, an unfinished tail or the first invalid record (see stop()).
class RecordWalk {
 public:
  RecordWalk(Source& s, uint64_t from) : s_(s), reader_(s.file), pos_(from) {}

  bool Next(Record* r) {
    if (!stop_.empty() || pos_ >= s_.dataEnd) return false;
    const uint64_t left = s_.dataEnd - pos_;
    const uint8_t* p = nullptr;
    const int64_t got = reader_.Get(pos_, kZMRecordHeadSize + 4, &p);
    if (got < 0) return Stop("a read failed at byte " + std::to_string(pos_), true);
    if (left < kZMRecordHeadSize || got < static_cast<int64_t>(kZMRecordHeadSize)) return Tail();
    const ZMRecordHead h = ParseRecordHead(p);
    if (!IsPlausibleHead(h, s_.rules.streamCount))
      return Stop("invalid record head at byte " + std::to_string(pos_), true);
    if (h.Size() > left) {
      if (s_.endIsFileEnd) return Tail();
      return Stop("the record at byte " + std::to_string(pos_) + " runs past the end of the data", true);
    }
    const size_t avail = static_cast<size_t>(std::min<int64_t>(got - kZMRecordHeadSize, 4));
    if (!IsValidRecord(h, p + kZMRecordHeadSize, avail, s_.rules))
      return Stop("invalid record at byte " + std::to_string(pos_) + " (" +
                      (h.time > s_.rules.durationMs ? "time beyond the duration" : "not a picture start") + ")",
                  true);
    r->pos = pos_;
    r->head = h;
    r->wall = WrapAdd(s_.start, static_cast<int64_t>(h.time) * kTicksPerMs);
    r->video = h.stream == 0;
    r->key = r->video && (s_.codec == kCodecMJPEG || h.flag == 1);
    pos_ += h.Size();
    return true;
  }
  // Fills `p` with the record's payload: a reference into the read buffer
  // when `share` and it lies there, else a copy. False when it cannot be read.
  bool Payload(const Record& r, AVPacket* p, bool share) {
    const uint64_t at = r.pos + kZMRecordHeadSize;
    if (share && reader_.Ref(at, r.head.length, p)) return true;
    if (av_new_packet(p, static_cast<int>(r.head.length)) < 0) return false;
    return reader_.Copy(at, r.head.length, p->data);
  }
  // Skips forward to `pos` (a record head found before).
  void Seek(uint64_t pos) { pos_ = pos; }
  uint64_t pos() const { return pos_; }
  const std::string& stop() const { return stop_; }
  bool damaged() const { return damaged_; }

 private:
  bool Tail() {
    return Stop(
        "ends with an incomplete record at byte " + std::to_string(pos_) + " (still being written, or cut short)",
        false);
  }
  bool Stop(std::string why, bool damaged) {
    stop_ = std::move(why);
    damaged_ = damaged;
    return false;
  }
  Source& s_;
  RecordReader reader_;
  uint64_t pos_;
  std::string stop_;
  bool damaged_ = false;
};

// --- Output ------------------------------------------------------------------

// The muxer's bytes go to a writing thread (the kernel's copy into the file
// then overlaps reading and muxing); `writer` is destroyed first, so its
// last writes land before the staged file closes.
struct OutputFile {
  platform::StagedFile staged;
  std::unique_ptr<platform::QueuedWriter> writer;
  int64_t pos = 0;
  int64_t size = 0;
  std::string error;

  // Everything written so far is in the file; false with `error` if not.
  bool Land() {
    if (writer && !writer->Flush() && error.empty()) error = writer->error();
    return error.empty();
  }
};

int WriteOut(void* opaque, uint8_t* buf, int size) {
  auto* o = static_cast<OutputFile*>(opaque);
  if (!o->writer->Write(buf, static_cast<size_t>(size), o->pos)) {
    o->error = o->writer->error();
    return AVERROR(EIO);
  }
  o->pos += size;
  o->size = std::max(o->size, o->pos);
  return size;
}

int64_t SeekOut(void* opaque, int64_t offset, int whence) {
  auto* o = static_cast<OutputFile*>(opaque);
  switch (whence & ~AVSEEK_FORCE) {
    case AVSEEK_SIZE:
      return o->size;
    case SEEK_SET:
      break;
    case SEEK_CUR:
      offset += o->pos;
      break;
    case SEEK_END:
      offset += o->size;
      break;
    default:
      return AVERROR(EINVAL);
  }
  if (offset < 0) return AVERROR(EINVAL);
  o->pos = offset;
  return offset;
}

struct FormatDeleter {
  void operator()(AVFormatContext* c) const {
    if (c == nullptr) return;
    if (c->pb != nullptr) {
      av_freep(&c->pb->buffer);
      avio_context_free(&c->pb);
    }
    avformat_free_context(c);
  }
};
struct CodecDeleter {
  void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
};
struct PacketDeleter {
  void operator()(AVPacket* p) const { av_packet_free(&p); }
};
struct FrameDeleter {
  void operator()(AVFrame* f) const { av_frame_free(&f); }
};
struct SwsDeleter {
  void operator()(SwsContext* s) const { sws_freeContext(s); }
};
using CodecPtr = std::unique_ptr<AVCodecContext, CodecDeleter>;
using PacketPtr = std::unique_ptr<AVPacket, PacketDeleter>;
using FramePtr = std::unique_ptr<AVFrame, FrameDeleter>;

struct Chapter {
  int64_t ms;
  std::string title;
  int rank;  // when two fall on one moment the higher rank keeps its title
};

// Reads the finished file back: it opens, its streams are the ones written,
// and the video stream has the codec that was written.
std::string VerifyOutput(int fd, int streams, AVCodecID video) {
  AVFormatContext* in = nullptr;
  const std::string path = platform::FdPath(fd);
  int rc = avformat_open_input(&in, path.c_str(), nullptr, nullptr);
  if (rc < 0) return "it does not open again: " + AvError(rc);
  std::string error;
  rc = avformat_find_stream_info(in, nullptr);
  if (rc < 0)
    error = "its streams cannot be read: " + AvError(rc);
  else if (static_cast<int>(in->nb_streams) != streams)
    error = "it holds " + std::to_string(in->nb_streams) + " streams instead of " + std::to_string(streams);
  else if (in->streams[0]->codecpar->codec_id != video)
    error = "its video stream is not the one written";
  avformat_close_input(&in);
  return error;
}

class Exporter {
 public:
  Exporter(const ZMExportRequest& req, ZMExportReport* rep) : req_(req), rep_(*rep) {}

  void Run();

 private:
  bool Fail(std::string why, ZMExportStatus status = ZMExportStatus::kFailed) {
    rep_.status = status;
    rep_.error = std::move(why);
    return false;
  }
  bool OpenSources();
  bool Plan();
  bool OpenOutput();
  bool OpenEncoders();
  bool Walk();
  bool Finish();
  bool WriteRecord(Source& s, RecordWalk& walk, const Record& r);
  bool Mux(AVPacket* p, int stream);
  bool FlushVideo(int64_t nextMs);
  bool WriteSubtitle(int64_t wall);
  bool FlushSubtitle(int64_t endMs);
  bool EncodeVideo(AVFrame* f);
  bool EncodeAudio(const uint8_t* pcm, size_t bytes, int64_t ms);
  bool DrainEncoder(AVCodecContext* c, int stream);
  bool AudioFrame(int samples);
  int64_t Ms(int64_t wall) const { return FloorDiv(WrapSub(wall, origin_), kTicksPerMs); }
  bool Progress(uint64_t done);
  int64_t FrameMs() const {
    const int64_t t = sources_.front()->frameTicks;
    return t >= kTicksPerMs ? t / kTicksPerMs : 40;
  }

  const ZMExportRequest& req_;
  ZMExportReport& rep_;
  ZMExportFormat format_ = ZMExportFormat::kMatroska;
  std::vector<std::unique_ptr<Source>> sources_;
  // Where the export starts: source and record position.
  size_t startSource_ = 0;
  uint64_t startPos_ = 0;
  int64_t origin_ = 0;
  uint64_t totalBytes_ = 0, doneBytes_ = 0;
  int lastPercent_ = -1;

  OutputFile file_;
  std::unique_ptr<AVFormatContext, FormatDeleter> out_;
  int videoOut_ = -1, audioOut_ = -1, subOut_ = -1;
  PacketPtr pending_;     // the last video packet, waiting for its duration
  PacketPtr pendingSub_;  // the caption of the current second, waiting for its end
  int64_t pendingSubEnd_ = 0;
  int64_t lastVideoMs_ = -1;
  int64_t lastAudioMs_ = -1;
  int64_t lastSecond_ = INT64_MIN;  // the wall-clock second of the last subtitle
  std::vector<Chapter> chapters_;
  int64_t lastEntryChapter_ = INT64_MIN;  // wall time of the last index chapter
  int64_t endMs_ = 0;

  // MP4 only.
  CodecPtr vdec_, venc_, aenc_;
  std::unique_ptr<SwsContext, SwsDeleter> sws_;
  FramePtr yuv_;
  std::vector<std::vector<float>> fifo_;  // per channel
  int64_t fifoPts_ = 0;                   // in samples, of fifo_[0][0]
  bool fifoStarted_ = false;
  int64_t lastEncodedMs_ = -1;
  AVCodecID videoCodec_ = AV_CODEC_ID_NONE;
};

void Exporter::Run() {
  if (req_.sources.empty()) return void(Fail("no source recording", ZMExportStatus::kUsage));
  if (!ExportFormatFor(req_.output, &format_))
    return void(Fail("the output " + req_.output + " must end in .mkv or .mp4", ZMExportStatus::kUsage));
  if (req_.hasRange && req_.to <= req_.from)
    return void(Fail("\"to\" must lie after \"from\"", ZMExportStatus::kUsage));
  if (!OpenSources() || !Plan() || !OpenOutput() || !Walk() || !Finish()) {
    if (rep_.status == ZMExportStatus::kOk) rep_.status = ZMExportStatus::kFailed;
    return;
  }
  rep_.status = ZMExportStatus::kOk;
}

bool Exporter::OpenSources() {
  for (const std::string& path : req_.sources) {
    auto s = std::make_unique<Source>();
    s->path = path;
    const std::string why = OpenSource(s.get());
    if (!why.empty()) return Fail(path + " " + why);
    if (!sources_.empty()) {
      const Source& a = *sources_.front();
      if (s->codec != a.codec || s->width != a.width || s->height != a.height || !(s->audio == a.audio))
        return Fail(path + " is not of the same camera as " + a.path + " (codec, picture size or audio differ)");
    }
    std::error_code ec;
    for (const auto& other : sources_)
      if (std::filesystem::equivalent(other->path, path, ec))
        return Fail(path + " is given twice (as " + other->path + ")", ZMExportStatus::kUsage);
    sources_.push_back(std::move(s));
  }
  std::stable_sort(sources_.begin(), sources_.end(), [](const auto& a, const auto& b) {
    if (a->hasRecords != b->hasRecords) return a->hasRecords;
    return a->firstWall < b->firstWall;
  });
  for (const auto& s : sources_) totalBytes_ += s->dataEnd > s->dataOffset ? s->dataEnd - s->dataOffset : 0;
  return true;
}

// Finds the first record to export and the origin of the time stamps.
bool Exporter::Plan() {
  const int64_t from = req_.hasRange ? req_.from : INT64_MIN;
  std::optional<std::pair<size_t, Record>> lastKey, firstKeyAfter;
  bool sawSelected = false;
  int64_t firstSelected = 0;  // wall time of the first record at or after "from"
  // Walks source i from `begin` until the first selected record is passed
  // and a key record to start at is known.
  std::string stops;  // why walks ended early, for the message when nothing is found
  auto scan = [&](size_t i, uint64_t begin) {
    RecordWalk walk(*sources_[i], begin);
    Record r;
    while (walk.Next(&r)) {
      if (r.wall >= from && !sawSelected) sawSelected = true, firstSelected = r.wall;
      if (r.key && r.wall <= from) lastKey = std::make_pair(i, r);
      if (r.key && r.wall >= from && !firstKeyAfter) firstKeyAfter = std::make_pair(i, r);
      if (sawSelected && (lastKey || firstKeyAfter)) return;
    }
    if (!walk.stop().empty()) stops += "; " + sources_[i]->path + " " + walk.stop();
  };
  for (size_t i = 0; i < sources_.size() && !(sawSelected && (lastKey || firstKeyAfter)); ++i) {
    Source& s = *sources_[i];
    uint64_t begin = s.dataOffset;
    // With a range, start at the last index entry at or before "from"; the
    // entries are only hints (every record is still judged), and when the
    // walk from there finds no key record before "from" it starts over at
    // the data offset.
    if (req_.hasRange) {
      for (const ZMIndexEntry& e : s.index) {
        if (WrapAdd(s.start, static_cast<int64_t>(e.time) * kTicksPerMs) > from) break;
        if (e.offset >= s.dataOffset && e.offset < s.dataEnd) begin = e.offset;
      }
    }
    scan(i, begin);
    if (begin != s.dataOffset && !(lastKey && lastKey->first == i)) scan(i, s.dataOffset);
  }
  const auto& start = lastKey ? lastKey : firstKeyAfter;
  if (req_.hasRange && (!sawSelected || firstSelected >= req_.to || !start || start->second.wall >= req_.to))
    return Fail("no record of the recordings lies between " + WallText(req_.from) + " and " + WallText(req_.to) +
                stops);
  if (!start) return Fail("the recordings hold no picture that can start an export" + stops);
  startSource_ = start->first;
  startPos_ = start->second.pos;
  const Source& first = *sources_[startSource_];
  origin_ = req_.hasRange ? req_.from : WrapAdd(first.start, first.reader.header().LeadIn());
  if (!(format_ == ZMExportFormat::kMP4 && req_.hasRange)) origin_ = std::min(origin_, start->second.wall);
  rep_.origin = origin_;
  return true;
}

bool Exporter::OpenOutput() {
  const Source& s = *sources_.front();
  std::error_code ec;
  for (const auto& src : sources_) {
    for (const std::string& p : {src->path, IndexNameLastDotOrAppend(src->path)})
      if (std::filesystem::equivalent(req_.output, p, ec))
        return Fail("the output " + req_.output + " is the source " + p + " itself", ZMExportStatus::kUsage);
  }
  std::string why;
  if (!file_.staged.Open(req_.output, &why)) return Fail("cannot write " + req_.output + ": " + why);
  file_.writer = std::make_unique<platform::QueuedWriter>(file_.staged.fd(), kIoBuffer);

  AVFormatContext* oc = nullptr;
  const char* name = format_ == ZMExportFormat::kMatroska ? "matroska" : "mp4";
  int rc = avformat_alloc_output_context2(&oc, nullptr, name, nullptr);
  if (rc < 0 || oc == nullptr) return Fail(std::string("no ") + name + " muxer: " + AvError(rc));
  out_.reset(oc);
  auto* buffer = static_cast<uint8_t*>(av_malloc(kMuxBuffer));
  if (buffer == nullptr) return Fail("out of memory");
  oc->pb = avio_alloc_context(buffer, kMuxBuffer, 1, &file_, nullptr, WriteOut, SeekOut);
  if (oc->pb == nullptr) {
    av_free(buffer);
    return Fail("out of memory");
  }
  // Direct: a whole cluster (the muxer builds each in a buffer of its own)
  // goes straight to WriteOut instead of through the context's buffer;
  // only the small elements between clusters collect there.
  oc->pb->direct = 1;
  oc->flags |= AVFMT_FLAG_CUSTOM_IO;

  videoCodec_ = s.codec == kCodecMJPEG ? AV_CODEC_ID_MJPEG : AV_CODEC_ID_H263;
  AVStream* v = avformat_new_stream(oc, nullptr);
  if (v == nullptr) return Fail("out of memory");
  videoOut_ = v->index;
  if (format_ == ZMExportFormat::kMatroska) {
    v->codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
    v->codecpar->codec_id = videoCodec_;
    v->codecpar->width = s.width;
    v->codecpar->height = s.height;
    v->time_base = kMs;
    if (s.audio.stream >= 0) {
      AVStream* a = avformat_new_stream(oc, nullptr);
      if (a == nullptr) return Fail("out of memory");
      audioOut_ = a->index;
      a->codecpar->codec_type = AVMEDIA_TYPE_AUDIO;
      a->codecpar->codec_id = AV_CODEC_ID_PCM_S16LE;
      a->codecpar->sample_rate = static_cast<int>(s.audio.rate);
      av_channel_layout_default(&a->codecpar->ch_layout, s.audio.channels);
      a->codecpar->bits_per_coded_sample = 16;
      a->codecpar->block_align = 2 * s.audio.channels;
      a->time_base = kMs;
    }
    AVStream* t = avformat_new_stream(oc, nullptr);
    if (t == nullptr) return Fail("out of memory");
    subOut_ = t->index;
    t->codecpar->codec_type = AVMEDIA_TYPE_SUBTITLE;
    t->codecpar->codec_id = AV_CODEC_ID_SUBRIP;
    t->time_base = kMs;
    av_dict_set(&t->metadata, "title", "wall clock", 0);
    av_dict_set(&t->metadata, "language", "und", 0);
  } else if (!OpenEncoders()) {
    return false;
  }

  // Tags. DateUTC carries the recorder's local wall clock: it keeps no zone.
  RecordingName recorded;
  const std::filesystem::path path(s.path);
  const std::string camera = !req_.camera.empty()                    ? req_.camera
                             : ParseRecordingPath(s.path, &recorded) ? path.parent_path().filename().string()
                                                                     : path.stem().string();
  av_dict_set(&oc->metadata, "title", camera.c_str(), 0);
  av_dict_set(&oc->metadata, "CAMERA", camera.c_str(), 0);
  av_dict_set(&oc->metadata, "creation_time", IsoText(origin_).c_str(), 0);
  av_dict_set(&oc->metadata, "DATE_RECORDED", WallText(origin_).c_str(), 0);
  av_dict_set(&oc->metadata, "TIME_ZONE",
              "none: DateUTC and all times shown are the recorder's local wall clock, not UTC", 0);
  for (size_t i = 0; i < req_.texts.size(); ++i)
    av_dict_set(&oc->metadata, ("TEXT_" + std::to_string(i + 1)).c_str(), req_.texts[i].c_str(), 0);

  // Matroska's optional CRC-32 element per cluster would cost more than the
  // whole copy; the read-back check stands in for it.
  AVDictionary* opts = nullptr;
  if (format_ == ZMExportFormat::kMatroska) av_dict_set(&opts, "write_crc32", "0", 0);
  rc = avformat_write_header(oc, &opts);
  av_dict_free(&opts);
  if (rc < 0) return Fail("cannot start the " + std::string(name) + " output: " + AvError(rc) + " " + file_.error);
  return true;
}

bool Exporter::OpenEncoders() {
  const Source& s = *sources_.front();
  AVFormatContext* oc = out_.get();
  const AVCodec* dec = avcodec_find_decoder(videoCodec_);
  const AVCodec* x264 = avcodec_find_encoder_by_name("libx264");
  const AVCodec* aac = avcodec_find_encoder(AV_CODEC_ID_AAC);
  if (dec == nullptr) return Fail("this FFmpeg has no decoder for the recording's video");
  if (x264 == nullptr) return Fail("this FFmpeg has no libx264 encoder");
  vdec_.reset(avcodec_alloc_context3(dec));
  venc_.reset(avcodec_alloc_context3(x264));
  if (!vdec_ || !venc_) return Fail("out of memory");
  vdec_->width = s.width;
  vdec_->height = s.height;
  vdec_->thread_count = 1;
  int rc = avcodec_open2(vdec_.get(), dec, nullptr);
  if (rc < 0) return Fail("cannot open the video decoder: " + AvError(rc));

  const int fps = s.frameTicks > 0 ? static_cast<int>((kTicksPerSecond + s.frameTicks / 2) / s.frameTicks) : 25;
  venc_->width = s.width;
  venc_->height = s.height;
  venc_->pix_fmt = AV_PIX_FMT_YUV420P;
  venc_->time_base = kMs;
  venc_->framerate = AVRational{fps, 1};
  venc_->max_b_frames = 0;
  venc_->gop_size = 2 * fps;
  if (oc->oformat->flags & AVFMT_GLOBALHEADER) venc_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  AVDictionary* opts = nullptr;
  av_dict_set(&opts, "preset", "veryfast", 0);
  av_dict_set(&opts, "crf", "23", 0);
  rc = avcodec_open2(venc_.get(), x264, &opts);
  av_dict_free(&opts);
  if (rc < 0) return Fail("cannot open the H.264 encoder: " + AvError(rc));
  AVStream* v = oc->streams[videoOut_];
  avcodec_parameters_from_context(v->codecpar, venc_.get());
  v->time_base = kMs;
  yuv_.reset(av_frame_alloc());
  if (!yuv_) return Fail("out of memory");
  yuv_->format = AV_PIX_FMT_YUV420P;
  yuv_->width = s.width;
  yuv_->height = s.height;
  if (av_frame_get_buffer(yuv_.get(), 0) < 0) return Fail("out of memory");

  if (s.audio.stream >= 0) {
    if (aac == nullptr) return Fail("this FFmpeg has no AAC encoder");
    aenc_.reset(avcodec_alloc_context3(aac));
    if (!aenc_) return Fail("out of memory");
    aenc_->sample_fmt = AV_SAMPLE_FMT_FLTP;
    aenc_->sample_rate = static_cast<int>(s.audio.rate);
    av_channel_layout_default(&aenc_->ch_layout, s.audio.channels);
    aenc_->bit_rate = 32000 * s.audio.channels;
    aenc_->time_base = AVRational{1, static_cast<int>(s.audio.rate)};
    if (oc->oformat->flags & AVFMT_GLOBALHEADER) aenc_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    rc = avcodec_open2(aenc_.get(), aac, nullptr);
    if (rc < 0) return Fail("cannot open the AAC encoder: " + AvError(rc));
    AVStream* a = avformat_new_stream(oc, nullptr);
    if (a == nullptr) return Fail("out of memory");
    audioOut_ = a->index;
    avcodec_parameters_from_context(a->codecpar, aenc_.get());
    a->time_base = aenc_->time_base;
    fifo_.assign(s.audio.channels, {});
  }
  return true;
}

bool Exporter::Progress(uint64_t done) {
  if (!req_.progress || totalBytes_ == 0) return true;
  const int percent = static_cast<int>(std::min<uint64_t>(100, done * 100 / totalBytes_));
  if (percent == lastPercent_) return true;
  lastPercent_ = percent;
  if (req_.progress(percent)) return true;
  return Fail("interrupted", ZMExportStatus::kInterrupted);
}

bool Exporter::Mux(AVPacket* p, int stream) {
  AVStream* st = out_->streams[stream];
  p->stream_index = stream;
  const AVRational from = stream == audioOut_ && aenc_ ? aenc_->time_base : kMs;
  av_packet_rescale_ts(p, from, st->time_base);
  const int rc = av_interleaved_write_frame(out_.get(), p);
  if (rc < 0) return Fail("cannot write " + req_.output + ": " + (file_.error.empty() ? AvError(rc) : file_.error));
  return true;
}

// Writes the held video packet, now that the next one's time (or the end)
// gives its duration.
bool Exporter::FlushVideo(int64_t nextMs) {
  if (!pending_) return true;
  const int64_t frameMs = FrameMs();
  int64_t d = nextMs >= 0 ? nextMs - pending_->pts : -1;
  const bool gap = d < 0 || d > 4 * frameMs;
  if (gap) d = frameMs;  // before a gap, or at the end, a frame lasts its nominal time
  if (d == 0) d = 1;     // two pictures in one millisecond
  pending_->duration = d;
  endMs_ = std::max(endMs_, pending_->pts + d);
  ++rep_.videoFrames;
  PacketPtr p = std::move(pending_);
  const int64_t videoEnd = p->pts + d;
  return Mux(p.get(), videoOut_) && (!gap || FlushSubtitle(videoEnd));
}

// Starts the caption of a new wall-clock second. Captions are held until
// their end is known (the next second, or the end of the pictures before a
// gap or at the end of the export), so none runs over a gap.
bool Exporter::WriteSubtitle(int64_t wall) {
  const int64_t second = FloorDiv(wall, kTicksPerSecond);
  if (second == lastSecond_) return true;
  lastSecond_ = second;
  if (!FlushSubtitle(Ms(wall))) return false;
  const std::string text = WallText(second * kTicksPerSecond);
  PacketPtr p(av_packet_alloc());
  if (!p || av_new_packet(p.get(), static_cast<int>(text.size())) < 0) return Fail("out of memory");
  std::memcpy(p->data, text.data(), text.size());
  p->pts = p->dts = Ms(wall);
  p->flags |= AV_PKT_FLAG_KEY;
  pendingSub_ = std::move(p);
  pendingSubEnd_ = Ms((second + 1) * kTicksPerSecond);
  return true;
}

bool Exporter::FlushSubtitle(int64_t endMs) {
  if (!pendingSub_) return true;
  pendingSub_->duration = std::max<int64_t>(1, std::min(endMs, pendingSubEnd_) - pendingSub_->pts);
  ++rep_.subtitles;
  PacketPtr p = std::move(pendingSub_);
  return Mux(p.get(), subOut_);
}

bool Exporter::DrainEncoder(AVCodecContext* c, int stream) {
  for (;;) {
    PacketPtr p(av_packet_alloc());
    if (!p) return Fail("out of memory");
    const int rc = avcodec_receive_packet(c, p.get());
    if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF) return true;
    if (rc < 0) return Fail("encoding failed: " + AvError(rc));
    if (stream == videoOut_) {
      ++rep_.videoFrames;
      // The encoder leaves durations open; a frame lasts its nominal time
      // (only the last one's shows: the others end where the next begins).
      if (p->duration <= 0) p->duration = FrameMs();
    }
    if (!Mux(p.get(), stream)) return false;
  }
}

bool Exporter::EncodeVideo(AVFrame* f) {
  int64_t ms = f->best_effort_timestamp != AV_NOPTS_VALUE ? f->best_effort_timestamp : f->pts;
  if (ms < 0) return true;  // before "from": decoded only to reach it
  if (ms <= lastEncodedMs_) ms = lastEncodedMs_ + 1;
  lastEncodedMs_ = ms;
  if (av_frame_make_writable(yuv_.get()) < 0) return Fail("out of memory");
  sws_.reset(sws_getCachedContext(sws_.release(), f->width, f->height, static_cast<AVPixelFormat>(f->format),
                                  yuv_->width, yuv_->height, AV_PIX_FMT_YUV420P, SWS_BILINEAR, nullptr, nullptr,
                                  nullptr));
  if (!sws_) return Fail("cannot convert the decoded pictures");
  sws_scale(sws_.get(), f->data, f->linesize, 0, f->height, yuv_->data, yuv_->linesize);
  yuv_->pts = ms;
  const int rc = avcodec_send_frame(venc_.get(), yuv_.get());
  if (rc < 0) return Fail("encoding failed: " + AvError(rc));
  return DrainEncoder(venc_.get(), videoOut_);
}

bool Exporter::AudioFrame(int samples) {
  FramePtr f(av_frame_alloc());
  if (!f) return Fail("out of memory");
  f->format = AV_SAMPLE_FMT_FLTP;
  f->nb_samples = samples;
  f->sample_rate = aenc_->sample_rate;
  av_channel_layout_copy(&f->ch_layout, &aenc_->ch_layout);
  if (av_frame_get_buffer(f.get(), 0) < 0) return Fail("out of memory");
  for (size_t c = 0; c < fifo_.size(); ++c) {
    std::memcpy(f->data[c], fifo_[c].data(), samples * sizeof(float));
    fifo_[c].erase(fifo_[c].begin(), fifo_[c].begin() + samples);
  }
  f->pts = fifoPts_;
  fifoPts_ += samples;
  const int rc = avcodec_send_frame(aenc_.get(), f.get());
  if (rc < 0) return Fail("audio encoding failed: " + AvError(rc));
  return DrainEncoder(aenc_.get(), audioOut_);
}

bool Exporter::EncodeAudio(const uint8_t* pcm, size_t bytes, int64_t ms) {
  const int64_t rate = aenc_->sample_rate;
  const int64_t at = ms * rate / 1000;
  const size_t channels = fifo_.size();
  const int64_t queued = static_cast<int64_t>(fifo_[0].size());
  // A jump of more than a tenth of a second (a gap between files) restarts
  // the audio time line there.
  if (!fifoStarted_ || std::llabs(at - (fifoPts_ + queued)) > rate / 10) {
    if (fifoStarted_ && queued > 0 && !AudioFrame(static_cast<int>(queued))) return false;
    if (fifoStarted_ && at < fifoPts_) return true;  // overlapping audio is dropped
    fifoPts_ = at;
    fifoStarted_ = true;
  }
  const size_t samples = bytes / (2 * channels);
  for (size_t i = 0; i < samples; ++i)
    for (size_t c = 0; c < channels; ++c) fifo_[c].push_back(LoadLE<int16_t>(pcm + 2 * (i * channels + c)) / 32768.0f);
  while (static_cast<int>(fifo_[0].size()) >= aenc_->frame_size)
    if (!AudioFrame(aenc_->frame_size)) return false;
  return true;
}

bool Exporter::WriteRecord(Source& s, RecordWalk& walk, const Record& r) {
  const bool mp4 = format_ == ZMExportFormat::kMP4;
  const bool selected = !req_.hasRange || r.wall >= req_.from;
  const bool audio = s.audio.stream >= 0 && r.head.stream == s.audio.stream;
  if (!r.video && !audio) return true;
  if (mp4 && audio && !selected) return true;
  if (audio && r.head.length % (2 * s.audio.channels) != 0) return true;  // not whole samples
  const int64_t ms = Ms(r.wall);
  // Records before the last of their kind (overlapping recordings) are
  // dropped: the output's time stamps only rise.
  if (!mp4 && r.video && ms < lastVideoMs_) return true;
  if (!mp4 && audio && ms < lastAudioMs_) return true;
  if (!mp4 && audio) lastAudioMs_ = ms;
  PacketPtr p(av_packet_alloc());
  if (!p) return Fail("out of memory");
  // Decoders want zeroed padding after a payload: only the stream copy
  // shares the read buffer.
  if (!walk.Payload(r, p.get(), !mp4))
    return Fail(s.path + ": the record at byte " + std::to_string(r.pos) + " cannot be read");
  p->pts = p->dts = ms;
  if (audio) ++rep_.audioRecords;
  if (mp4) {
    if (audio) return EncodeAudio(p->data, p->size, ms);
    if (r.key) p->flags |= AV_PKT_FLAG_KEY;
    int rc = avcodec_send_packet(vdec_.get(), p.get());
    if (rc < 0) return true;  // an undecodable picture is skipped, as a player would
    FramePtr f(av_frame_alloc());
    if (!f) return Fail("out of memory");
    while ((rc = avcodec_receive_frame(vdec_.get(), f.get())) == 0) {
      if (!EncodeVideo(f.get())) return false;
      av_frame_unref(f.get());
    }
    return true;
  }
  if (audio) {
    p->duration = static_cast<int64_t>(r.head.length / (2 * s.audio.channels)) * 1000 / s.audio.rate;
    endMs_ = std::max(endMs_, ms + p->duration);
    return Mux(p.get(), audioOut_);
  }
  if (!FlushVideo(ms) || !WriteSubtitle(r.wall)) return false;
  if (r.key) p->flags |= AV_PKT_FLAG_KEY;
  lastVideoMs_ = ms;
  pending_ = std::move(p);
  return true;
}

bool Exporter::Walk() {
  const bool mp4 = format_ == ZMExportFormat::kMP4;
  int64_t previousEnd = INT64_MIN;  // wall time of the last record of the previous source
  for (size_t i = 0; i < sources_.size(); ++i) {
    Source& s = *sources_[i];
    if (i < startSource_) {
      doneBytes_ += s.dataEnd > s.dataOffset ? s.dataEnd - s.dataOffset : 0;
      continue;
    }
    const uint64_t begin = i == startSource_ ? startPos_ : s.dataOffset;
    RecordWalk walk(s, begin);
    doneBytes_ += begin - s.dataOffset;
    Record r;
    bool first = true, reachedEnd = false;
    int64_t lastWall = INT64_MIN;
    // Index entries of this source become chapters as the walk passes them.
    size_t nextEntry = 0;
    while (walk.Next(&r)) {
      if (req_.hasRange && r.wall >= req_.to) {
        reachedEnd = true;
        break;
      }
      // A source's first record after the previous source's end.
      const int64_t gap = first && previousEnd != INT64_MIN ? WrapSub(r.wall, previousEnd) : 0;
      if (gap > kGapTicks && r.wall >= origin_)
        chapters_.push_back(
            {Ms(r.wall), WallText(r.wall) + " after a gap of " + std::to_string(gap / kTicksPerSecond) + " s", 2});
      first = false;
      while (nextEntry < s.index.size() && s.index[nextEntry].offset <= r.pos) {
        const ZMIndexEntry& e = s.index[nextEntry++];
        const int64_t wall = WrapAdd(s.start, static_cast<int64_t>(e.time) * kTicksPerMs);
        // One chapter per index entry, but not more than one a second: an
        // MJPEG recording's index has an entry for every picture.
        if (e.offset == r.pos && wall >= origin_ && (!mp4 || !req_.hasRange || wall >= req_.from) &&
            (lastEntryChapter_ == INT64_MIN || WrapSub(wall, lastEntryChapter_) >= kTicksPerSecond)) {
          chapters_.push_back({Ms(wall), WallText(wall), 1});
          lastEntryChapter_ = wall;
        }
      }
      if (!WriteRecord(s, walk, r)) return false;
      lastWall = r.wall;
      if (!Progress(doneBytes_ + (walk.pos() - begin))) return false;
    }
    doneBytes_ += s.dataEnd - begin;
    if (!walk.stop().empty()) {
      rep_.notes.push_back(s.path + " " + walk.stop() + "; exported the records before it");
      rep_.damaged = rep_.damaged || walk.damaged();
    }
    if (lastWall != INT64_MIN) previousEnd = lastWall;
    if (reachedEnd) break;
  }
  if (req_.hasRange && !mp4 && req_.from > origin_)
    chapters_.push_back({Ms(req_.from), WallText(req_.from) + " (requested start)", 3});
  return true;
}

bool Exporter::Finish() {
  AVFormatContext* oc = out_.get();
  if (format_ == ZMExportFormat::kMP4) {
    if (avcodec_send_packet(vdec_.get(), nullptr) >= 0) {
      FramePtr f(av_frame_alloc());
      while (f && avcodec_receive_frame(vdec_.get(), f.get()) == 0) {
        if (!EncodeVideo(f.get())) return false;
        av_frame_unref(f.get());
      }
    }
    avcodec_send_frame(venc_.get(), nullptr);
    if (!DrainEncoder(venc_.get(), videoOut_)) return false;
    if (aenc_) {
      if (fifoStarted_ && !fifo_[0].empty() && !AudioFrame(static_cast<int>(fifo_[0].size()))) return false;
      avcodec_send_frame(aenc_.get(), nullptr);
      if (!DrainEncoder(aenc_.get(), audioOut_)) return false;
    }
  } else {
    if (!FlushVideo(-1) || !FlushSubtitle(endMs_)) return false;
    // Chapters: sorted, one per moment, each lasting to the next.
    std::stable_sort(chapters_.begin(), chapters_.end(),
                     [](const Chapter& a, const Chapter& b) { return a.ms != b.ms ? a.ms < b.ms : a.rank > b.rank; });
    chapters_.erase(std::unique(chapters_.begin(), chapters_.end(),
                                [](const Chapter& a, const Chapter& b) { return a.ms == b.ms; }),
                    chapters_.end());
    for (size_t i = 0; i < chapters_.size(); ++i) {
      auto* c = static_cast<AVChapter*>(av_mallocz(sizeof(AVChapter)));
      if (c == nullptr) return Fail("out of memory");
      c->id = static_cast<int64_t>(i + 1);
      c->time_base = kMs;
      c->start = chapters_[i].ms;
      c->end = i + 1 < chapters_.size() ? chapters_[i + 1].ms : std::max(endMs_, c->start + 1);
      av_dict_set(&c->metadata, "title", chapters_[i].title.c_str(), 0);
      if (av_dynarray_add_nofree(&oc->chapters, reinterpret_cast<int*>(&oc->nb_chapters), c) < 0) {
        av_dict_free(&c->metadata);
        av_free(c);
        return Fail("out of memory");
      }
    }
    rep_.chapters = chapters_.size();
  }
  if (rep_.videoFrames == 0)
    return Fail(format_ == ZMExportFormat::kMP4 ? "none of the pictures could be decoded" : "no picture was exported");
  int rc = av_write_trailer(oc);
  if (rc < 0) return Fail("cannot finish " + req_.output + ": " + (file_.error.empty() ? AvError(rc) : file_.error));
  avio_flush(oc->pb);
  if (!file_.Land()) return Fail("cannot write " + req_.output + ": " + file_.error);
  const int streams = static_cast<int>(oc->nb_streams);
  const AVCodecID video = oc->streams[videoOut_]->codecpar->codec_id;
  out_.reset();
  const std::string bad = VerifyOutput(file_.staged.fd(), streams, video);
  if (!bad.empty()) return Fail("the written " + req_.output + " is not sound, so it was not kept: " + bad);
  std::string why;
  if (!file_.staged.Commit(0644, &why)) return Fail("cannot put " + req_.output + " in place: " + why);
  return true;
}

}  // namespace

bool ExportFormatFor(const std::string& path, ZMExportFormat* format) {
  auto ends = [&](const char* ext) {
    const size_t n = std::strlen(ext);
    if (path.size() <= n) return false;
    for (size_t i = 0; i < n; ++i)
      if (std::tolower(static_cast<unsigned char>(path[path.size() - n + i])) != ext[i]) return false;
    return true;
  };
  if (ends(".mkv")) {
    *format = ZMExportFormat::kMatroska;
    return true;
  }
  if (ends(".mp4")) {
    *format = ZMExportFormat::kMP4;
    return true;
  }
  return false;
}

ZMExportReport ExportRecordings(const ZMExportRequest& request) {
  ZMExportReport report;
  // Problems are reported through the report; FFmpeg itself stays quiet.
  av_log_set_level(AV_LOG_QUIET);
  Exporter(request, &report).Run();
  return report;
}

}  // namespace dravix::media
