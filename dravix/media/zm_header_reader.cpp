#include "dravix/media/zm_header_reader.h"

#include <cstring>
#include <new>

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
  auto fail = [this](HRESULT hr) {
    Reset();
    return hr;
  };
  if (file.Read(header_.bytes, kZMHeaderSize) != kZMHeaderSize) return fail(E_FAIL);
  if (!header_.HasMagic()) return fail(E_UNEXPECTED);

  const uint32_t count = header_.StreamCount();
  streams_.resize(count);
  for (uint32_t i = 0; i < count; ++i) {
    ZMStreamEntry& s = streams_[i];
    uint8_t head[kZMStreamHeadSize];
    if (file.Read(head, sizeof head) != sizeof head) return fail(E_FAIL);
    std::memcpy(s.tag, head, 4);
    s.length = LoadLE<uint32_t>(head + 4);
    if (std::memcmp(s.tag, "STRM", 4) != 0) return fail(E_UNEXPECTED);
    if (file.Read(s.mediaType, kZMMediaTypeSize) != kZMMediaTypeSize) return fail(E_FAIL);
    const uint32_t formatLength = s.FormatLength();
    if (formatLength == 0) continue;
    // A length the file cannot hold would only end in a short read; do not
    // let it size an allocation.
    const int64_t here = file.Tell();
    const int64_t size = file.Size();
    if (here < 0 || size < 0 || static_cast<int64_t>(formatLength) > size - here) return fail(E_FAIL);
    try {
      s.format.resize(formatLength);
    } catch (const std::bad_alloc&) {
      return fail(E_OUTOFMEMORY);
    }
    if (file.Read(s.format.data(), formatLength) != static_cast<int64_t>(formatLength)) return fail(E_FAIL);
  }
  if (skipToData) {
    const int64_t delta = static_cast<int64_t>(header_.DataOffset()) - static_cast<int64_t>(header_.HeaderLength());
    if (!file.SeekBy(delta)) return fail(E_FAIL);
  }
  return S_OK;
}

HRESULT ZMHeaderReader::Open(const char* path, platform::File* file, bool skipToData) {
  Reset();
  if (!file->OpenRead(path)) return E_FAIL;
  return Read(*file, skipToData);
}

}  // namespace dravix::media
