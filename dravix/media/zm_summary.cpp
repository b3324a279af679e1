#include "dravix/media/zm_summary.h"

#include "dravix/media/zm_header_reader.h"
#include "dravix/media/zm_record_walk.h"
#include "dravix/platform/file_io.h"

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
