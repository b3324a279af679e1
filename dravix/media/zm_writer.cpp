#include "dravix/media/zm_writer.h"

#include "dravix/media/zm_record_walk.h"

#include <algorithm>
#include <cstring>

namespace dravix::media {
namespace {

constexpr size_t kBufferLimit = kZMWalkBuffer;
// Appended runs at least this long bypass the buffer.
constexpr size_t kDirectWrite = 64 * 1024;
// The header area is written whole; a data offset beyond this is no
// recording this system would make.
constexpr uint32_t kMaxDataOffset = 16u << 20;

uint32_t FourCC(const char* s) {
  return static_cast<uint32_t>(static_cast<uint8_t>(s[0])) | (static_cast<uint32_t>(static_cast<uint8_t>(s[1])) << 8) |
         (static_cast<uint32_t>(static_cast<uint8_t>(s[2])) << 16) |
         (static_cast<uint32_t>(static_cast<uint8_t>(s[3])) << 24);
}

}  // namespace

ZMStreamFormat ZMStreamFormat::Video(int codec, int sizeCode, uint32_t framesPerSecond) {
  const ZMPictureSize size = kZMPictureSizes[std::clamp(sizeCode, 0, 6)];
  return VideoOfSize(codec, size.width, size.height, framesPerSecond);
}

ZMStreamFormat ZMStreamFormat::VideoOfSize(int codec, int width, int height, uint32_t framesPerSecond) {
  ZMStreamFormat f;
  f.majorType = kMediaTypeVideo;
  f.subtype = codec == kCodecMJPEG ? kSubtypeMJPEG : kSubtypeH263;
  f.temporalCompression = codec == kCodecMJPEG ? 0 : 1;
  f.formatType = kFormatVideoInfo;
  f.format.assign(kVideoInfoSize, 0);
  uint8_t* v = f.format.data();
  // rcSource and rcTarget: the whole picture.
  StoreLE<int32_t>(v + 8, width);
  StoreLE<int32_t>(v + 12, height);
  StoreLE<int32_t>(v + 24, width);
  StoreLE<int32_t>(v + 28, height);
  StoreLE<int64_t>(v + 40, framesPerSecond ? 10000000 / framesPerSecond : 0);  // AvgTimePerFrame
  StoreLE<uint32_t>(v + 48, 40);                                               // biSize
  StoreLE<int32_t>(v + kVihWidth, width);
  StoreLE<int32_t>(v + kVihHeight, height);
  StoreLE<uint16_t>(v + 60, 1);   // biPlanes
  StoreLE<uint16_t>(v + 62, 24);  // biBitCount
  StoreLE<uint32_t>(v + 64, FourCC(codec == kCodecMJPEG ? "MJPG" : "H263"));
  StoreLE<uint32_t>(v + 68, static_cast<uint32_t>(width) * static_cast<uint32_t>(height) * 3);
  return f;
}

ZMStreamFormat ZMStreamFormat::Audio(uint32_t samplesPerSecond, uint16_t channels, uint16_t bitsPerSample) {
  ZMStreamFormat f;
  f.majorType = kMediaTypeAudio;
  f.subtype = kSubtypePCM;
  f.fixedSizeSamples = 1;
  const uint16_t blockAlign = static_cast<uint16_t>(channels * bitsPerSample / 8);
  f.sampleSize = blockAlign;
  f.formatType = kFormatWaveFormatEx;
  f.format.assign(kWaveFormatSize, 0);
  uint8_t* w = f.format.data();
  StoreLE<uint16_t>(w + 0, 1);  // WAVE_FORMAT_PCM
  StoreLE<uint16_t>(w + 2, channels);
  StoreLE<uint32_t>(w + 4, samplesPerSecond);
  StoreLE<uint32_t>(w + 8, samplesPerSecond * blockAlign);
  StoreLE<uint16_t>(w + 12, blockAlign);
  StoreLE<uint16_t>(w + 14, bitsPerSample);
  return f;
}

std::vector<uint8_t> ZMStreamFormat::Encode() const {
  std::vector<uint8_t> r(kZMStreamFixedSize + format.size(), 0);
  uint8_t* p = r.data();
  std::memcpy(p + kStrTag, "STRM", 4);
  StoreLE<uint32_t>(p + kStrLength, static_cast<uint32_t>(r.size()));
  StoreGuid(p + kStrMajorType, majorType);
  StoreGuid(p + kStrSubtype, subtype);
  StoreLE<uint32_t>(p + kStrFixedSize, fixedSizeSamples);
  StoreLE<uint32_t>(p + kStrTemporal, temporalCompression);
  StoreLE<uint32_t>(p + kStrSampleSize, sampleSize);
  StoreGuid(p + kStrFormatType, formatType);
  StoreLE<uint32_t>(p + kStrFormatLength, static_cast<uint32_t>(format.size()));
  if (!format.empty()) std::memcpy(p + kStrFormat, format.data(), format.size());
  return r;
}

ZMRecordingWriter::ZMRecordingWriter() = default;

ZMRecordingWriter::~ZMRecordingWriter() {
  // A staged recording that was not closed is unfinished work: it goes.
  if (stagedFile_.IsOpen())
    Abandon();
  else if (IsOpen())
    Close();
}

HRESULT ZMRecordingWriter::Create(const char* path, int64_t startTime, const std::vector<ZMStreamFormat>& streams,
                                  uint32_t dataOffset) {
  if (streams.empty() || streams.size() > 255) return E_INVALIDARG;
  std::vector<uint8_t> records;
  for (const ZMStreamFormat& s : streams) {
    const std::vector<uint8_t> r = s.Encode();
    records.insert(records.end(), r.begin(), r.end());
  }
  return CreateRaw(path, startTime, records, static_cast<uint32_t>(streams.size()), dataOffset);
}

HRESULT ZMRecordingWriter::CreateStaged(const char* path, int64_t startTime, const std::vector<ZMStreamFormat>& streams,
                                        std::string* error) {
  if (streams.empty() || streams.size() > 255) return E_INVALIDARG;
  std::vector<uint8_t> records;
  for (const ZMStreamFormat& s : streams) {
    const std::vector<uint8_t> r = s.Encode();
    records.insert(records.end(), r.begin(), r.end());
  }
  const bool video = std::memcmp(records.data() + kStrMajorType, "vids", 4) == 0;
  const ZMPictureCheck picture =
      video ? PictureCheckFor(LoadGuid(records.data() + kStrSubtype)) : ZMPictureCheck::kNone;
  return Begin(path, startTime, records, static_cast<uint32_t>(streams.size()), kZMDefaultDataOffset, video, picture,
               true, error);
}

HRESULT ZMRecordingWriter::CreateRaw(const char* path, int64_t startTime, const std::vector<uint8_t>& records,
                                     uint32_t count, uint32_t dataOffset) {
  if (count == 0 || count > 255 || records.size() < kZMStreamFixedSize) return E_INVALIDARG;
  const bool video = std::memcmp(records.data() + kStrMajorType, "vids", 4) == 0;
  const ZMPictureCheck picture =
      video ? PictureCheckFor(LoadGuid(records.data() + kStrSubtype)) : ZMPictureCheck::kNone;
  return Begin(path, startTime, records, count, dataOffset, video, picture, false, nullptr);
}

HRESULT ZMRecordingWriter::Begin(const char* path, int64_t startTime, const std::vector<uint8_t>& records,
                                 uint32_t count, uint32_t dataOffset, bool firstIsVideo, ZMPictureCheck picture,
                                 bool staged, std::string* error) {
  if (IsOpen()) return E_UNEXPECTED;
  if (path == nullptr) return E_POINTER;
  const uint64_t headerLength = kZMHeaderSize + records.size();
  if (dataOffset < headerLength || dataOffset > kMaxDataOffset) return E_INVALIDARG;

  ResetState();
  indexPath_ = IndexNameForWriter(path);
  path_ = path;
  if (staged) {
    if (!stagedFile_.Open(path_, error) || !stagedIndex_.Open(indexPath_, error) ||
        !file_.OpenDuplicate(stagedFile_.fd()) || !index_.OpenDuplicate(stagedIndex_.fd())) {
      if (error != nullptr && error->empty()) *error = "cannot start " + path_;
      Abandon();
      return E_FAIL;
    }
  } else {
    if (!file_.Create(path)) return E_FAIL;
    if (!index_.Create(indexPath_.c_str())) {
      file_.Close();
      return E_FAIL;
    }
  }
  streamCount_ = count;
  dataOffset_ = dataOffset;
  videoFirst_ = firstIsVideo;
  picture_ = picture;
  written_ = recordsEnd_ = dataOffset;

  header_ = ZMFileHeader{};
  header_.SetMagic();
  header_.SetHeaderLength(static_cast<uint32_t>(headerLength));
  header_.SetStartTime(startTime);
  header_.SetStreamCount(static_cast<uint8_t>(count));
  header_.SetDataOffset(dataOffset);
  header_.SetDataLength(kOpenDataLength);
  header_.SetDuration(kOpenDuration);

  std::vector<uint8_t> head(dataOffset, 0);
  std::memcpy(head.data(), header_.bytes, kZMHeaderSize);
  std::memcpy(head.data() + kZMHeaderSize, records.data(), records.size());
  const uint8_t indexHeader[kZMIndexHeaderSize] = {};
  if (!file_.Write(head.data(), head.size()) || !index_.Write(indexHeader, sizeof indexHeader)) {
    if (error != nullptr) *error = "cannot write the header of " + path_;
    Abandon();
    return E_FAIL;
  }
  buffer_.reserve(kBufferLimit);
  return S_OK;
}

void ZMRecordingWriter::ResetState() {
  buffer_.clear();
  indexBuffer_.clear();
  leadIn_ = 0;
  stashed_ = 0;
  hasPending_ = false;
  records_ = videoRecords_ = indexEntries_ = 0;
  lastTime_ = previousTime_ = 0;
  lastEntryTime_ = -1;
  failed_ = false;
}

void ZMRecordingWriter::NoteRecord(const ZMRecordHead& h, uint64_t at) {
  const bool isVideo = videoFirst_ && h.stream == 0;
  // Only the first record of its millisecond gets an entry: a reader jumps
  // to the last entry at or before a moment and must find the same record
  // as a walk from the start would.
  const bool firstOfItsTime = records_ == 0 || h.time > previousTime_;
  const bool entry = firstOfItsTime && ((isVideo && h.flag == 1) || lastEntryTime_ < 0 ||
                                        static_cast<int64_t>(h.time) >= lastEntryTime_ + 1000);
  ++records_;
  previousTime_ = h.time;
  if (entry) {
    uint8_t e[kZMIndexEntrySize];
    StoreIndexEntry(e, ZMIndexEntry{h.time, static_cast<uint32_t>(videoRecords_), at});
    indexBuffer_.insert(indexBuffer_.end(), e, e + sizeof e);
    lastEntryTime_ = h.time;
    ++indexEntries_;
  }
  if (isVideo) ++videoRecords_;
  lastTime_ = std::max(lastTime_, h.time);
}

bool ZMRecordingWriter::FlushBuffers() {
  if (!buffer_.empty()) {
    if (!file_.Write(buffer_.data(), buffer_.size())) failed_ = true;
    buffer_.clear();
  }
  if (!indexBuffer_.empty()) {
    if (!index_.Write(indexBuffer_.data(), indexBuffer_.size())) failed_ = true;
    indexBuffer_.clear();
  }
  return !failed_;
}

HRESULT ZMRecordingWriter::AddRecord(uint8_t stream, uint32_t timeMs, const void* payload, uint32_t length, bool key) {
  if (!IsOpen()) return E_UNEXPECTED;
  if (payload == nullptr) return E_POINTER;
  if (hasPending_ || stashed_ != 0) return E_UNEXPECTED;  // after a partial appended record
  const ZMRecordHead h{stream, timeMs, length, static_cast<uint8_t>(key ? 1 : 0)};
  if (!IsPlausibleHead(h, streamCount_)) return E_INVALIDARG;
  if (records_ != 0 && timeMs < lastTime_) return E_INVALIDARG;
  if (videoFirst_ && stream == 0 && !StartsPicture(picture_, static_cast<const uint8_t*>(payload), length))
    return E_INVALIDARG;

  NoteRecord(h, written_);
  uint8_t head[kZMRecordHeadSize];
  StoreRecordHead(head, h);
  if (buffer_.size() + h.Size() > kBufferLimit && !FlushBuffers()) return E_FAIL;
  buffer_.insert(buffer_.end(), head, head + sizeof head);
  if (length >= kDirectWrite) {
    if (!FlushBuffers()) return E_FAIL;
    if (!file_.Write(payload, length)) {
      failed_ = true;
      return E_FAIL;
    }
  } else {
    const auto* p = static_cast<const uint8_t*>(payload);
    buffer_.insert(buffer_.end(), p, p + length);
  }
  written_ += h.Size();
  recordsEnd_ = written_;
  return failed_ ? E_FAIL : S_OK;
}

HRESULT ZMRecordingWriter::AppendRecordBytes(const uint8_t* bytes, size_t size) {
  if (!IsOpen()) return E_UNEXPECTED;
  if (size == 0) return S_OK;
  if (bytes == nullptr) return E_POINTER;
  const uint64_t chunkStart = written_;
  const uint64_t end = written_ + size;
  for (;;) {
    if (hasPending_) {
      const uint64_t recordEnd = recordsEnd_ + pendingHead_.Size();
      if (recordEnd > end) break;
      NoteRecord(pendingHead_, recordsEnd_);
      recordsEnd_ = recordEnd;
      hasPending_ = false;
    }
    const uint64_t headByte = recordsEnd_ + stashed_;
    if (headByte >= end) break;
    const size_t take = static_cast<size_t>(std::min<uint64_t>(kZMRecordHeadSize - stashed_, end - headByte));
    std::memcpy(stash_ + stashed_, bytes + (headByte - chunkStart), take);
    stashed_ += take;
    if (stashed_ < kZMRecordHeadSize) break;
    pendingHead_ = ParseRecordHead(stash_);
    hasPending_ = true;
    stashed_ = 0;
  }
  if (size >= kDirectWrite) {
    if (!FlushBuffers()) return E_FAIL;
    if (!file_.Write(bytes, size)) failed_ = true;
  } else {
    if (buffer_.size() + size > kBufferLimit && !FlushBuffers()) return E_FAIL;
    buffer_.insert(buffer_.end(), bytes, bytes + size);
  }
  written_ = end;
  return failed_ ? E_FAIL : S_OK;
}

bool ZMRecordingWriter::WriteHeader(uint64_t dataLength, int64_t duration) {
  header_.SetDataLength(dataLength);
  header_.SetDuration(duration);
  header_.SetLeadIn(leadIn_);
  return file_.PWrite(header_.bytes, kZMHeaderSize, 0);
}

HRESULT ZMRecordingWriter::Checkpoint() {
  if (!IsOpen()) return E_UNEXPECTED;
  if (hasPending_ || stashed_ != 0) return E_UNEXPECTED;  // a partial appended record
  // Data first, then the index that points into them, then the header
  // that claims them: a crash between the steps leaves the older claim.
  if (!FlushBuffers() || !file_.Sync() || !index_.Sync()) failed_ = true;
  if (!failed_ && !WriteHeader(recordsEnd_ - dataOffset_, static_cast<int64_t>(lastTime_) * kTicksPerMs))
    failed_ = true;
  return failed_ ? E_FAIL : S_OK;
}

HRESULT ZMRecordingWriter::Close(std::string* error) {
  if (!IsOpen()) return E_UNEXPECTED;
  if (!FlushBuffers()) failed_ = true;
  if (recordsEnd_ < written_ && !file_.Truncate(static_cast<int64_t>(recordsEnd_))) failed_ = true;
  if (!WriteHeader(recordsEnd_ - dataOffset_, static_cast<int64_t>(lastTime_) * kTicksPerMs)) failed_ = true;
  file_.Close();
  index_.Close();
  if (failed_ && error != nullptr) *error = "a write to " + path_ + " or its index failed";
  if (stagedFile_.IsOpen()) {
    if (failed_) {
      stagedFile_.Discard();
      stagedIndex_.Discard();
    } else if (!stagedIndex_.Commit(0644, error)) {
      stagedFile_.Discard();
      failed_ = true;
    } else if (!stagedFile_.Commit(0644, error)) {
      // The index went in first; without its recording it must go again.
      platform::RemoveFile(indexPath_.c_str());
      failed_ = true;
    }
  }
  return failed_ ? E_FAIL : S_OK;
}

void ZMRecordingWriter::Abandon() {
  if (IsOpen()) FlushBuffers();
  file_.Close();
  index_.Close();
  stagedFile_.Discard();
  stagedIndex_.Discard();
}

}  // namespace dravix::media
