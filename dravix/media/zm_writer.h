// ZMRecordingWriter: writes a recording file and its ".idx" index.
//
// Use it for clip extraction, test fixtures and the demo recorder. It writes
// the header, one stream record per stream, data records from byte 4096 (or
// the data offset given) and a sparse index: one entry for every key video
// record (flag 1 on stream 0 when stream 0 is video) and one whenever a
// second has passed since the last entry, but only ever for the first
// record of its millisecond (write a key frame before the audio of the same
// millisecond to give it its entry). Fields the readers do not interpret
// are zeros.
//
// Power loss: while the file is open its header claims an open-ended data
// area (data length 0x7FFFFFFF, duration covering every record time), so a
// recording cut short by a crash keeps every whole record reachable and
// ZCheckZMFile trims it to them. Close() writes the true data length and
// duration (the time of the last record). A file that others read while it
// grows (a live recording) calls Checkpoint() now and then: the header then
// tells the whole records written so far, and only after their bytes were
// synced, so a crash keeps at least what the last checkpoint told. Data reach the file before any
// index entry that points at them.
//
// Records are checked as they are added: a record the check would reject
// (bad stream number, empty or over-long payload, a video payload that does
// not start a picture, a time earlier than the previous record's) is
// refused with E_INVALIDARG, so the writer never makes a file that its own
// check would cut.
//
// Not thread-safe; neither copyable nor movable.
#pragma once

#include "dravix/media/zm_format.h"
#include "dravix/platform/file_io.h"
#include "dravix/platform/staged_file.h"

#include <string>
#include <vector>

namespace dravix::media {

// One stream's media type and format block.
struct ZMStreamFormat {
  GUID majorType{};
  GUID subtype{};
  uint32_t fixedSizeSamples = 0;
  uint32_t temporalCompression = 0;
  uint32_t sampleSize = 0;
  GUID formatType{};
  std::vector<uint8_t> format;

  // A video stream of `codec` (kCodecH263 or kCodecMJPEG) with a
  // VIDEOINFOHEADER for picture-size code `sizeCode` (0..6).
  static ZMStreamFormat Video(int codec, int sizeCode, uint32_t framesPerSecond = 25);
  // The same for any picture size (sizes outside the size-code table, such
  // as 176x144, are stored as they are; readers then report no size code).
  static ZMStreamFormat VideoOfSize(int codec, int width, int height, uint32_t framesPerSecond = 25);
  // A PCM audio stream with a WAVEFORMATEX.
  static ZMStreamFormat Audio(uint32_t samplesPerSecond = 8000, uint16_t channels = 1, uint16_t bitsPerSample = 16);
  // The stream record bytes (tag, length, media type, format block).
  std::vector<uint8_t> Encode() const;
};

class ZMRecordingWriter {
 public:
  // Header values of a file still being written.
  static constexpr uint64_t kOpenDataLength = 0x7FFFFFFF;
  static constexpr int64_t kOpenDuration = static_cast<int64_t>(0xFFFFFFFFu) * kTicksPerMs;

  ZMRecordingWriter();
  ~ZMRecordingWriter();  // Close()s an open file; discards a staged one
  ZMRecordingWriter(const ZMRecordingWriter&) = delete;
  ZMRecordingWriter& operator=(const ZMRecordingWriter&) = delete;

  // Creates (or empties) `path` and its index. `startTime` is the FILETIME
  // of the time origin. E_INVALIDARG for no stream, more than 255, or a
  // data offset too small for the stream records; E_FAIL when a file
  // cannot be created.
  HRESULT Create(const char* path, int64_t startTime, const std::vector<ZMStreamFormat>& streams,
                 uint32_t dataOffset = kZMDefaultDataOffset);
  // Like Create(), but both files are staged (StagedFile): nothing appears
  // under `path` or its index name until Close() succeeds, and a process
  // killed before then leaves nothing behind. Close() puts the index in
  // place first, then the recording. E_FAIL with `error` saying why when a
  // file cannot be started.
  HRESULT CreateStaged(const char* path, int64_t startTime, const std::vector<ZMStreamFormat>& streams,
                       std::string* error = nullptr);
  // The same with stream records already encoded (copied from another
  // file): `count` records laid end to end in `records`.
  HRESULT CreateRaw(const char* path, int64_t startTime, const std::vector<uint8_t>& records, uint32_t count,
                    uint32_t dataOffset);

  // Appends one record; `key` marks a self-contained video frame.
  HRESULT AddRecord(uint8_t stream, uint32_t timeMs, const void* payload, uint32_t length, bool key);
  // Appends bytes that continue the run of data records (a copy from
  // another file). Record heads are followed through the bytes for the
  // index and the duration; they are not judged.
  HRESULT AppendRecordBytes(const uint8_t* bytes, size_t size);

  void SetLeadIn(int64_t leadIn) { leadIn_ = leadIn; }

  // Writes out what is buffered, syncs the recording and then its index
  // (fdatasync), and sets the header's data length and duration to the
  // whole records so far. S_OK, or E_FAIL when a write or sync failed.
  HRESULT Checkpoint();

  // Finishes the header and closes both files. A trailing partial record
  // left by AppendRecordBytes is cut off. S_OK, or E_FAIL when a write
  // failed at any point. A staged recording is put in place here; when
  // that fails neither file is left under its name and `error` says why.
  HRESULT Close(std::string* error = nullptr);
  // Writes out what is buffered and closes both files without finishing
  // the header: what a crash leaves behind. For tests and demonstrations.
  // A staged recording is discarded.
  void Abandon();

  bool IsOpen() const { return file_.IsOpen(); }
  // Bytes of whole records so far (appended bytes of a record still
  // incomplete are not counted).
  uint64_t DataLength() const { return recordsEnd_ - dataOffset_; }
  uint64_t RecordCount() const { return records_; }
  uint64_t VideoRecordCount() const { return videoRecords_; }
  uint64_t IndexEntryCount() const { return indexEntries_; }
  uint32_t LastTime() const { return lastTime_; }
  const std::string& IndexPath() const { return indexPath_; }

 private:
  HRESULT Begin(const char* path, int64_t startTime, const std::vector<uint8_t>& records, uint32_t count,
                uint32_t dataOffset, bool firstIsVideo, ZMPictureCheck picture, bool staged, std::string* error);
  void ResetState();
  // Index bookkeeping for the record whose head is at file offset `at`.
  void NoteRecord(const ZMRecordHead& h, uint64_t at);
  bool FlushBuffers();
  bool WriteHeader(uint64_t dataLength, int64_t duration);

  platform::File file_;
  platform::File index_;
  platform::StagedFile stagedFile_;  // open only for CreateStaged()
  platform::StagedFile stagedIndex_;
  std::string path_;
  std::string indexPath_;
  ZMFileHeader header_;
  std::vector<uint8_t> buffer_;       // pending data bytes
  std::vector<uint8_t> indexBuffer_;  // pending index entries
  uint32_t streamCount_ = 0;
  uint32_t dataOffset_ = kZMDefaultDataOffset;
  bool videoFirst_ = false;
  ZMPictureCheck picture_ = ZMPictureCheck::kNone;
  int64_t leadIn_ = 0;
  uint64_t written_ = 0;     // file offset after the last byte handed to us
  uint64_t recordsEnd_ = 0;  // file offset after the last whole record: the next record's head
  uint8_t stash_[kZMRecordHeadSize] = {};
  size_t stashed_ = 0;        // bytes of a head split across appends
  ZMRecordHead pendingHead_;  // the head at recordsEnd_ whose payload has not all arrived
  bool hasPending_ = false;
  uint64_t records_ = 0;
  uint64_t videoRecords_ = 0;
  uint64_t indexEntries_ = 0;
  uint32_t lastTime_ = 0;      // the greatest record time
  uint32_t previousTime_ = 0;  // the time of the record before
  int64_t lastEntryTime_ = -1;
  bool failed_ = false;
};

}  // namespace dravix::media
