// The record-walking core shared by the readers, the index scans, the check
// and repair, and clip extraction.
//
// Every forward walk over a recording (or an index) goes through one
// ZMReadWindow: a 256 KiB buffer that is refilled with one positioned read
// starting at the byte the walker needs next. A walk over records smaller
// than the window therefore reads the file exactly once in 256 KiB pieces,
// like a plain read() loop; a record larger than the window costs one read
// at its head and its payload is never touched. No walk maps the file or
// holds more than the window, so memory stays bounded for any file size.
//
// Record heads are interpreted with zm_format.h; what a caller does with
// them (stop at a time, judge validity, copy) stays with the caller.
#pragma once

#include "dravix/media/zm_format.h"
#include "dravix/platform/file_io.h"

#include <cstdint>
#include <memory>
#include <string>

namespace dravix::media {

class ZMReadWindow {
 public:
  explicit ZMReadWindow(const platform::File& file, size_t capacity = kZMWalkBuffer);
  ZMReadWindow(const ZMReadWindow&) = delete;
  ZMReadWindow& operator=(const ZMReadWindow&) = delete;

  // Makes the bytes from `pos` available and points `*data` at them.
  // Returns how many bytes from `pos` are in the window: at least `want`
  // (want <= capacity) unless the file ends first, 0 at or past the end,
  // -1 on a read error. The pointer stays valid until the next call.
  int64_t Get(uint64_t pos, size_t want, const uint8_t** data);

  size_t capacity() const { return capacity_; }
  // The walk needs nothing at or past `end`: reads stop there, and the
  // window answers as at the end of the file from there on.
  void StopAt(uint64_t end) { end_ = end; }

 private:
  const platform::File& file_;
  size_t capacity_;
  std::unique_ptr<uint8_t[]> buffer_;
  uint64_t base_ = 0;
  size_t filled_ = 0;
  bool valid_ = false;
  bool atEof_ = false;  // the last fill stopped at the end of the file (or at end_)
  uint64_t end_ = UINT64_MAX;
};

// One record head read through a window, with up to four payload bytes
// (enough for the picture-start tests).
struct ZMRecordAt {
  uint64_t offset = 0;
  ZMRecordHead head;
  uint8_t payload[4] = {};
  size_t payloadBytes = 0;  // how many of the four were in the file
};

// Reads the head at `pos`. Returns 1 with `*out` filled, 0 when fewer than
// 10 bytes remain in the file, -1 on a read error.
int LoadRecordAt(ZMReadWindow& window, uint64_t pos, ZMRecordAt* out);

// Index file names. Each reader keeps its own rule for a path with a dot
// in a folder name; see the functions that use them.
// The path cut at its first '.', plus ".idx" (whole path + ".idx" without a dot).
std::string IndexNameFirstDot(const std::string& path);
// The path cut at its last '.', plus ".idx"; empty when there is no dot.
std::string IndexNameLastDot(const std::string& path);
// The path cut at its last '.' (or whole when there is none) plus ".idx".
std::string IndexNameLastDotOrAppend(const std::string& path);
// The index of a recording written here: the file name's extension (after
// the last separator) replaced by ".idx", or ".idx" appended.
std::string IndexNameForWriter(const std::string& path);

}  // namespace dravix::media
