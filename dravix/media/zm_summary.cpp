#include "dravix/media/zm_summary.h"

#include "dravix/media/zm_header_reader.h"
#include "dravix/media/zm_record_walk.h"
#include "dravix/platform/file_io.h"

#include <algorithm>
#include <string>

namespace dravix::media {

HRESULT SummarizeRecording(const char* path, ZMFileSummary* out) {
  if (path == nullptr || out == nullptr) return E_POINTER;
  *out = ZMFileSummary{};
  out->indexPath = IndexNameForWriter(path);
  platform::File index;
  if (index.OpenRead(out->indexPath.c_str())) {
    const int64_t size = index.Size();
    out->indexEntries = size > kZMIndexHeaderSize ? (size - kZMIndexHeaderSize) / kZMIndexEntrySize : 0;
  }
  ZMHeaderReader reader;
  platform::File file;
  const HRESULT hr = reader.Open(path, &file, false);
  if (FAILED(hr)) return hr;
  out->header = reader.header();
  out->streams = reader.header().StreamCount();

  if (out->indexEntries > 0) {
    // Entries count up from the data offset and stay inside the data area
    // the file really holds.
    const int64_t fileSize = file.Size();
    const uint64_t dataEnd = std::min<uint64_t>(reader.header().DataEnd(), fileSize < 0 ? 0 : fileSize);
    ZMReadWindow entries(index);
    ZMIndexEntry previous{};
    for (int64_t n = 0; n < out->indexEntries; ++n) {
      const uint8_t* p = nullptr;
      const auto at = static_cast<uint64_t>(kZMIndexHeaderSize + n * kZMIndexEntrySize);
      if (entries.Get(at, kZMIndexEntrySize, &p) < kZMIndexEntrySize) break;
      const ZMIndexEntry e = ParseIndexEntry(p);
      std::string what;
      if (e.offset < reader.header().DataOffset() || e.offset >= dataEnd)
        what = "offset " + std::to_string(e.offset) + " outside the data area (" +
               std::to_string(reader.header().DataOffset()) + " to " + std::to_string(dataEnd) + ")";
      else if (n > 0 && (e.offset <= previous.offset || e.time < previous.time))
        what = "goes back from the entry before it";
      if (!what.empty()) {
        out->indexProblem = "index entry " + std::to_string(n) + ": " + what;
        break;
      }
      previous = e;
    }
  }

  ZMReadWindow window(file);
  const uint64_t end = reader.header().DataEnd();
  uint64_t pos = reader.header().DataOffset();
  const auto fileSize = static_cast<uint64_t>(file.Size() < 0 ? 0 : file.Size());
  while (pos < end) {
    ZMRecordAt r;
    if (LoadRecordAt(window, pos, &r) != 1 || r.head.length == 0 || pos + r.head.Size() > end ||
        pos + r.head.Size() > fileSize) {
      out->recordsComplete = false;
      break;
    }
    ++out->records;
    pos += r.head.Size();
  }
  return S_OK;
}

}  // namespace dravix::media
