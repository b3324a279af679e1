#include "dravix/media/zm_locate.h"

#include "dravix/media/zm_format.h"
#include "dravix/media/zm_header_reader.h"
#include "dravix/media/zm_record_walk.h"
#include "dravix/platform/file_io.h"

#include <cstring>
#include <memory>
#include <string>

using dravix::platform::File;

namespace dravix::media {
namespace {

// The offset of the last index entry whose time is not after `relative`
// (in 100 ns units), or `fallback` when there is none.
int64_t IndexStart(const std::string& indexPath, int64_t relative, int64_t fallback) {
  File index;
  if (!index.OpenRead(indexPath.c_str())) return fallback;
  ZMReadWindow window(index);
  int64_t result = fallback;
  for (uint64_t pos = kZMIndexHeaderSize;; pos += kZMIndexEntrySize) {
    const uint8_t* p = nullptr;
    if (window.Get(pos, kZMIndexEntrySize, &p) < kZMIndexEntrySize) break;
    const ZMIndexEntry e = ParseIndexEntry(p);
    if (static_cast<int64_t>(e.time) * kTicksPerMs > relative) break;
    result = static_cast<int64_t>(e.offset);
  }
  return result;
}

}  // namespace

HRESULT LocateMoment(const char* path, int64_t fileTime, ZMMoment* out) {
  if (path == nullptr || out == nullptr) return E_POINTER;
  ZMHeaderReader reader;
  File file;
  const HRESULT hr = reader.Open(path, &file, true);
  if (FAILED(hr)) return hr;
  const ZMFileHeader& h = reader.header();

  int64_t relative = 0;
  if (__builtin_sub_overflow(fileTime, h.StartTime(), &relative)) relative = fileTime < 0 ? 0 : INT64_MAX;
  if (relative < 0) relative = 0;
  const auto dataEnd = static_cast<int64_t>(h.DataEnd());
  if (relative >= h.Duration()) {
    out->reported = out->record = dataEnd;
    return S_OK;
  }

  const auto dataOffset = static_cast<int64_t>(h.DataOffset());
  int64_t start = dataOffset;
  if (std::strlen(path) < kZMIndexPathLimit) start = IndexStart(IndexNameFirstDot(path), relative, dataOffset);
  if (!file.Seek(start)) return E_FAIL;

  std::unique_ptr<uint8_t[]> buffer(new (std::nothrow) uint8_t[kZMWalkBuffer]);
  if (!buffer) return E_OUTOFMEMORY;
  size_t carry = 0;
  for (;;) {
    const int64_t n = file.Read(buffer.get() + carry, kZMWalkBuffer - carry);
    if (n <= 0) return E_FAIL;
    const int64_t after = file.Tell();
    if (after < 0) return E_FAIL;
    // QUIRK(position-without-carry): not minus the carry, see the header.
    int64_t reported = after - n;
    int64_t record = after - n - static_cast<int64_t>(carry);
    int64_t fresh = n;
    bool atEnd = false;
    if (static_cast<uint64_t>(after) > h.DataEnd()) {
      const uint64_t beyond = static_cast<uint64_t>(after) - h.DataEnd();
      fresh = beyond >= static_cast<uint64_t>(n) ? 0 : n - static_cast<int64_t>(beyond);
      atEnd = true;
    }
    const size_t avail = carry + static_cast<size_t>(fresh);
    size_t at = 0;
    while (avail - at >= kZMRecordHeadSize) {
      const ZMRecordHead head = ParseRecordHead(buffer.get() + at);
      if (static_cast<uint64_t>(avail - at) < head.Size()) break;
      if (static_cast<int64_t>(head.time) * kTicksPerMs >= relative) {
        out->reported = reported;
        out->record = record;
        return S_OK;
      }
      reported += static_cast<int64_t>(head.Size());
      record += static_cast<int64_t>(head.Size());
      at += static_cast<size_t>(head.Size());
    }
    if (atEnd) {
      out->reported = reported;
      out->record = record;
      return S_FALSE;
    }
    carry = avail - at;
    if (carry > kZMWalkBuffer) return E_FAIL;
    if (at != 0 && carry != 0) std::memmove(buffer.get(), buffer.get() + at, carry);
  }
}

}  // namespace dravix::media
