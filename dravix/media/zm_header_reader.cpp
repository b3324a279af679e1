#include "dravix/media/zm_header_reader.h"

#include <cerrno>
#include <cstring>
#include <new>
#include <string>
#include <utility>

namespace dravix::media {

bool ZMStreamEntry::IsVideo() const {
  return std::memcmp(mediaType + (kStrMajorType - kZMStreamHeadSize), "vids", 4) == 0;
}

void ZMHeaderReader::Reset() {
  header_ = ZMFileHeader{};
  hasFirstHead_ = false;
  streams_.clear();
  streams_.shrink_to_fit();
}

namespace {

// The header's bytes as the reader takes them in order: the first 4 KiB
// (where every writer puts the header) and the head of the record after
// them come in one read; anything past them is read from the file where
// it lies. The file's size is asked for
// only when a check needs it.
class HeaderBytes {
 public:
  // `start`: where the header begins (the handle's position).
  HeaderBytes(const platform::File& file, int64_t start) : file_(file) {
    start_ = pos_ = start;
    if (start_ < 0) return;
    const int64_t n = file.PRead(buffer_, sizeof buffer_, start_);
    filled_ = n > 0 ? static_cast<size_t>(n) : 0;
    atEnd_ = n >= 0 && filled_ < sizeof buffer_;
  }
  // Bytes read into `out`: `size` unless the file ends or fails first.
  int64_t Read(void* out, size_t size) {
    if (pos_ < 0) return -1;
    const size_t offset = static_cast<size_t>(pos_ - start_);
    if (offset + size <= filled_) {
      std::memcpy(out, buffer_ + offset, size);
      pos_ += static_cast<int64_t>(size);
      return static_cast<int64_t>(size);
    }
    const int64_t n = file_.PRead(out, size, pos_);
    if (n > 0) pos_ += n;
    return n;
  }
  int64_t Tell() const { return pos_; }
  // The first record's head when the first read reached it.
  const uint8_t* FirstHead() const {
    return start_ == 0 && filled_ >= kZMDefaultDataOffset + kZMRecordHeadSize ? buffer_ + kZMDefaultDataOffset
                                                                              : nullptr;
  }
  // The file's size: known without asking when the first read stopped at
  // the end of the file.
  int64_t Size() const { return atEnd_ ? start_ + static_cast<int64_t>(filled_) : file_.Size(); }
  // Whether the file holds `length` more bytes from the current position.
  bool Holds(uint32_t length) const {
    if (pos_ >= 0 && static_cast<size_t>(pos_ - start_) + length <= filled_) return true;
    const int64_t size = Size();
    return pos_ >= 0 && size >= 0 && static_cast<int64_t>(length) <= size - pos_;
  }

 private:
  const platform::File& file_;
  uint8_t buffer_[kZMDefaultDataOffset + kZMRecordHeadSize];
  size_t filled_ = 0;
  int64_t start_ = -1;
  int64_t pos_ = -1;
  bool atEnd_ = false;
};

}  // namespace

HRESULT ZMHeaderReader::Read(platform::File& file, bool skipToData) { return ReadAt(file, file.Tell(), skipToData); }

HRESULT ZMHeaderReader::ReadAt(platform::File& file, int64_t start, bool skipToData) {
  Reset();
  error_.clear();
  auto fail = [this](HRESULT hr, std::string why) {
    Reset();
    error_ = std::move(why);
    return hr;
  };
  platform::SetLastFileError(0);
  HeaderBytes in(file, start);
  // A read that came up short: the OS's reason when there is one, else the
  // end of the file.
  auto shortRead = [&in](const std::string& what, int64_t at) {
    const int err = platform::LastFileError();
    const int64_t size = in.Size();
    if (err != 0 && (size < 0 || at < size))
      return what + " at byte " + std::to_string(at) + ": " + platform::FileErrorText(err);
    return what + " at byte " + std::to_string(at) + " is cut off: the file ends at byte " + std::to_string(size);
  };
  if (in.Read(header_.bytes, kZMHeaderSize) != kZMHeaderSize)
    return fail(E_FAIL, "not a recording: " + shortRead("the header", 0));
  if (!header_.HasMagic()) return fail(E_UNEXPECTED, "not a recording: bad magic at byte 0 (\"ZMFF\" expected)");

  const uint32_t count = header_.StreamCount();
  streams_.resize(count);
  for (uint32_t i = 0; i < count; ++i) {
    ZMStreamEntry& s = streams_[i];
    const int64_t at = in.Tell();
    const std::string stream = "stream record " + std::to_string(i);
    uint8_t head[kZMStreamHeadSize];
    if (in.Read(head, sizeof head) != sizeof head) return fail(E_FAIL, shortRead(stream, at));
    std::memcpy(s.tag, head, 4);
    s.length = LoadLE<uint32_t>(head + 4);
    if (std::memcmp(s.tag, "STRM", 4) != 0)
      return fail(E_UNEXPECTED, stream + " at byte " + std::to_string(at) + ": bad tag (\"STRM\" expected)");
    if (in.Read(s.mediaType, kZMMediaTypeSize) != kZMMediaTypeSize) return fail(E_FAIL, shortRead(stream, at));
    const uint32_t formatLength = s.FormatLength();
    if (formatLength == 0) continue;
    // A length the file cannot hold would only end in a short read; do not
    // let it size an allocation.
    const int64_t here = in.Tell();
    if (!in.Holds(formatLength))
      return fail(E_FAIL, stream + " at byte " + std::to_string(at) + ": its format block of " +
                              std::to_string(formatLength) + " bytes runs past the end of the file (byte " +
                              std::to_string(in.Size()) + ")");
    try {
      s.format.resize(formatLength);
    } catch (const std::bad_alloc&) {
      return fail(E_OUTOFMEMORY,
                  stream + ": no memory for its format block of " + std::to_string(formatLength) + " bytes");
    }
    if (in.Read(s.format.data(), formatLength) != static_cast<int64_t>(formatLength))
      return fail(E_FAIL, shortRead(stream + "'s format block", here));
  }
  if (const uint8_t* head = in.FirstHead()) {
    firstHead_ = ParseRecordHead(head);
    hasFirstHead_ = true;
  }
  // The handle stands after the header, as a sequential reader leaves it.
  int64_t next = in.Tell();
  if (skipToData) {
    next += static_cast<int64_t>(header_.DataOffset()) - static_cast<int64_t>(header_.HeaderLength());
    if (next < 0)
      return fail(E_FAIL, "the data offset " + std::to_string(header_.DataOffset()) +
                              " cannot be reached: " + platform::FileErrorText(EINVAL));
  }
  if (!file.Seek(next))
    return fail(E_FAIL, "the data offset " + std::to_string(header_.DataOffset()) +
                            " cannot be reached: " + platform::FileErrorText(platform::LastFileError()));
  return S_OK;
}

HRESULT ZMHeaderReader::Open(const char* path, platform::File* file, bool skipToData) {
  Reset();
  error_.clear();
  if (!file->OpenRead(path)) {
    error_ = "cannot be opened: " + platform::FileErrorText(platform::LastFileError());
    return E_FAIL;
  }
  return ReadAt(*file, 0, skipToData);  // a file just opened stands at 0
}

}  // namespace dravix::media
