// The header reader shared by every recording-file operation except the
// check: the 69 header bytes and a table of the stream records, each with
// its tag, record length, the 68 stored media-type bytes and an owned copy
// of its format block.
//
// Reading: 69 bytes (E_FAIL if fewer come), the magic (E_UNEXPECTED), then
// for each of the stream count records an 8-byte tag and length (the tag
// must be "STRM": E_UNEXPECTED), 68 media-type bytes and the format block
// (E_FAIL when the file holds fewer bytes than its length says,
// E_OUTOFMEMORY when no buffer can be had). Any short read is E_FAIL.
// Optionally the handle is then moved forward by (data offset - header
// length) so that it stands at the first data record.
#pragma once

#include "dravix/media/zm_format.h"
#include "dravix/platform/file_io.h"

#include <string>
#include <vector>

namespace dravix::media {

struct ZMStreamEntry {
  char tag[4] = {};
  uint32_t length = 0;  // as stored: 76 + format length
  uint8_t mediaType[kZMMediaTypeSize] = {};
  std::vector<uint8_t> format;

  GUID MajorType() const { return LoadGuid(mediaType + (kStrMajorType - kZMStreamHeadSize)); }
  GUID Subtype() const { return LoadGuid(mediaType + (kStrSubtype - kZMStreamHeadSize)); }
  GUID FormatType() const { return LoadGuid(mediaType + (kStrFormatType - kZMStreamHeadSize)); }
  uint32_t FormatLength() const { return LoadLE<uint32_t>(mediaType + (kStrFormatLength - kZMStreamHeadSize)); }
  // The major type begins with the four characters "vids".
  bool IsVideo() const;
};

class ZMHeaderReader {
 public:
  ZMHeaderReader() = default;
  ZMHeaderReader(const ZMHeaderReader&) = delete;
  ZMHeaderReader& operator=(const ZMHeaderReader&) = delete;

  // Reads from `file`'s current position (normally 0). S_OK or an error
  // code as described above; on an error the reader is reset.
  HRESULT Read(platform::File& file, bool skipToData);
  // Opens `path` for reading (shared) into `*file` and reads the header.
  // E_FAIL when the file cannot be opened.
  HRESULT Open(const char* path, platform::File* file, bool skipToData);
  // Forgets the header and frees every format block.
  void Reset();

  const ZMFileHeader& header() const { return header_; }
  const std::vector<ZMStreamEntry>& streams() const { return streams_; }
  // Why the last Read or Open failed, in plain words with the byte where
  // it was found ("not a recording: bad magic at byte 0"); "" after success.
  const std::string& error() const { return error_; }

  // The head of the record at byte 4096 (where GetZMFileStartTime reads
  // the first record) when the header's read reached it; false otherwise.
  bool FirstRecordHead(ZMRecordHead* head) const {
    if (!hasFirstHead_) return false;
    *head = firstHead_;
    return true;
  }

 private:
  HRESULT ReadAt(platform::File& file, int64_t start, bool skipToData);

  ZMFileHeader header_;
  std::vector<ZMStreamEntry> streams_;
  std::string error_;
  ZMRecordHead firstHead_;
  bool hasFirstHead_ = false;
};

}  // namespace dravix::media
