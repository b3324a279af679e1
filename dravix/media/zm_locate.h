// Finding the byte at which a moment begins in a recording: the walk behind
// ZMEtoZME::TimeToFilePos, which clip extraction also needs the true record
// offset from.
//
// The walk starts at the last index entry at or before the moment (the index
// named by cutting the path at its FIRST dot) and reads forward through one
// 256 KiB buffer, carrying the bytes of an incomplete record from one fill to
// the next. The position it reports for a record is the file position after
// a fill minus the bytes that fill read: the carried bytes are not
// subtracted, so after a refill with a carry every reported position is
// larger than the record's true offset by that carry. Clip sizes computed
// from reported positions depend on this, so it is kept; `record` gives
// the true offset of the same record for callers that must land on a head.
#pragma once

#include "dravix/platform/wintypes.h"

namespace dravix::media {

// Paths of this many bytes or more cannot name the index (the recorder's
// 260-byte conversion buffer): the walk then starts at the data offset.
inline constexpr size_t kZMIndexPathLimit = 260;

struct ZMMoment {
  int64_t reported = 0;  // what TimeToFilePos returns
  int64_t record = 0;    // the true file offset of the same record (or end)
};

// S_OK when a record at or after the moment was found (or the moment lies
// at or beyond the duration: the end of the data area), S_FALSE when the
// data ran out first. E_POINTER, the header reader's code, or E_FAIL for a
// file that cannot be opened, sought or read (a record larger than the
// buffer, data that end before the data area does).
HRESULT LocateMoment(const char* path, int64_t fileTime, ZMMoment* out);

}  // namespace dravix::media
