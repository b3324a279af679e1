// A quick look at a recording for listings and tools: its header, its
// stream count, how many whole records its data area holds and how many
// entries its index has. Reads only; never fails on damage, it reports it.
#pragma once

#include "dravix/media/zm_format.h"

#include <string>

namespace dravix::media {

struct ZMFileSummary {
  ZMFileHeader header;
  uint32_t streams = 0;
  // Whole records from the data offset up to the end of the data area.
  uint64_t records = 0;
  // False when the walk stopped early: a record running past the data
  // area or the file, or a head with payload length 0.
  bool recordsComplete = true;
  // Entries of the writer-named index ("name.idx"), -1 without one.
  int64_t indexEntries = -1;
  std::string indexPath;
  // The first index entry that does not point into the data area, or that
  // goes back in time or offset, in words ("" when every entry is fine).
  std::string indexProblem;
  // Why the file is not whole, in plain words with the byte: the header's
  // fault when the call fails, else the record where the walk of the data
  // area stopped ("" when every record is whole).
  std::string problem;
};

// S_OK, or the header reader's code (then only `indexPath` and `problem`
// are filled).
HRESULT SummarizeRecording(const char* path, ZMFileSummary* out);

}  // namespace dravix::media
