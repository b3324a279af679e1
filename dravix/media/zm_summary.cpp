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
  if (FAILED(hr)) {
    out->problem = reader.error();
    return hr;
  }
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
    const int loaded = LoadRecordAt(window, pos, &r);
    std::string why;
    if (loaded < 0)
      why = "cannot be read: " + platform::FileErrorText(platform::LastFileError());
    else if (loaded == 0)
      why = "is cut off: the file ends at byte " + std::to_string(fileSize) + ", the header claims data up to byte " +
            std::to_string(end);
    else if (r.head.length == 0)
      why = "has payload length 0";
    else if (pos + r.head.Size() > fileSize)
      why = "runs to byte " + std::to_string(pos + r.head.Size()) + ", past the end of the file (byte " +
            std::to_string(fileSize) + ")";
    else if (pos + r.head.Size() > end)
      why = "runs to byte " + std::to_string(pos + r.head.Size()) + ", past the data area the header claims (to byte " +
            std::to_string(end) + ")";
    if (!why.empty()) {
      out->recordsComplete = false;
      out->problem = "record " + std::to_string(out->records) + " at byte " + std::to_string(pos) + " " + why;
      break;
    }
    ++out->records;
    pos += r.head.Size();
  }
  return S_OK;
}

}  // namespace dravix::media
