#include "dravix/media/zm_header_reader.h"

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
  streams_.clear();
  streams_.shrink_to_fit();
}

HRESULT ZMHeaderReader::Read(platform::File& file, bool skipToData) {
  Reset();
  error_.clear();
  auto fail = [this](HRESULT hr, std::string why) {
    Reset();
    error_ = std::move(why);
    return hr;
  };
  // A read that came up short: the OS's reason when there is one, else the
  // end of the file.
  auto shortRead = [&file](const std::string& what, int64_t at) {
    const int err = platform::LastFileError();
    const int64_t size = file.Size();
    if (err != 0 && (size < 0 || at < size))
      return what + " at byte " + std::to_string(at) + ": " + platform::FileErrorText(err);
    return what + " at byte " + std::to_string(at) + " is cut off: the file ends at byte " + std::to_string(size);
  };
  platform::SetLastFileError(0);
  if (file.Read(header_.bytes, kZMHeaderSize) != kZMHeaderSize)
    return fail(E_FAIL, "not a recording: " + shortRead("the header", 0));
  if (!header_.HasMagic()) return fail(E_UNEXPECTED, "not a recording: bad magic at byte 0 (\"ZMFF\" expected)");

  const uint32_t count = header_.StreamCount();
  streams_.resize(count);
  for (uint32_t i = 0; i < count; ++i) {
    ZMStreamEntry& s = streams_[i];
    const int64_t at = file.Tell();
    const std::string stream = "stream record " + std::to_string(i);
    uint8_t head[kZMStreamHeadSize];
    if (file.Read(head, sizeof head) != sizeof head) return fail(E_FAIL, shortRead(stream, at));
    std::memcpy(s.tag, head, 4);
    s.length = LoadLE<uint32_t>(head + 4);
    if (std::memcmp(s.tag, "STRM", 4) != 0)
      return fail(E_UNEXPECTED, stream + " at byte " + std::to_string(at) + ": bad tag (\"STRM\" expected)");
    if (file.Read(s.mediaType, kZMMediaTypeSize) != kZMMediaTypeSize) return fail(E_FAIL, shortRead(stream, at));
    const uint32_t formatLength = s.FormatLength();
    if (formatLength == 0) continue;
    // A length the file cannot hold would only end in a short read; do not
    // let it size an allocation.
    const int64_t here = file.Tell();
    const int64_t size = file.Size();
    if (here < 0 || size < 0 || static_cast<int64_t>(formatLength) > size - here)
      return fail(E_FAIL, stream + " at byte " + std::to_string(at) + ": its format block of " +
                              std::to_string(formatLength) + " bytes runs past the end of the file (byte " +
                              std::to_string(size) + ")");
    try {
      s.format.resize(formatLength);
    } catch (const std::bad_alloc&) {
      return fail(E_OUTOFMEMORY,
                  stream + ": no memory for its format block of " + std::to_string(formatLength) + " bytes");
    }
    if (file.Read(s.format.data(), formatLength) != static_cast<int64_t>(formatLength))
      return fail(E_FAIL, shortRead(stream + "'s format block", here));
  }
  if (skipToData) {
    const int64_t delta = static_cast<int64_t>(header_.DataOffset()) - static_cast<int64_t>(header_.HeaderLength());
    if (!file.SeekBy(delta))
      return fail(E_FAIL, "the data offset " + std::to_string(header_.DataOffset()) +
                              " cannot be reached: " + platform::FileErrorText(platform::LastFileError()));
  }
  return S_OK;
}

HRESULT ZMHeaderReader::Open(const char* path, platform::File* file, bool skipToData) {
  Reset();
  error_.clear();
  if (!file->OpenRead(path)) {
    error_ = "cannot be opened: " + platform::FileErrorText(platform::LastFileError());
    return E_FAIL;
  }
  return Read(*file, skipToData);
}

}  // namespace dravix::media
