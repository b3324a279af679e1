// A look at every recording under a folder, one file at a time.
//
// ScanRecordings() walks a folder and its subfolders and describes each
// recording it meets (a regular file named *.dat or *.zmf, case ignored):
// camera, start, end, codec, picture size, bytes and state. A file is read
// as the library's readers read it (its header, the last entry of its index
// and the records after that entry), never whole, and nothing is kept from
// one file to the next, so memory stays bounded whatever the number of
// files. Nothing is written.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace dravix::media {

enum class ZMScanState {
  kIntact,
  kDamaged,       // what the check would repair: a torn or cut-off tail
  kBeingWritten,  // held in the live-file registry
  kUnreadable,    // not a recording, or it cannot be read (`why` says)
};
// "intact", "damaged", "being written", "unreadable".
const char* ZMScanStateName(ZMScanState state);

struct ZMScannedFile {
  std::string path;
  // The camera: "cam03" for the recorder's own names (recording_name.h),
  // else the name of the folder the file lies in.
  std::string camera;
  int cameraNumber = 0;  // from the recorder's name; 0 otherwise
  // FILETIME ticks on the local wall clock: the first record's time and the
  // last record's time before the end of the data (or of the tail that
  // reads), 0 when they cannot be had.
  int64_t start = 0;
  int64_t end = 0;
  std::string codec;  // "H.263", "MJPEG" or ""
  int width = 0;
  int height = 0;
  int64_t bytes = 0;
  ZMScanState state = ZMScanState::kIntact;
  std::string why;  // what is wrong, for damaged and unreadable files
};

struct ZMScanOptions {
  // Whether another process holds the file open for writing (the tools ask
  // the live-file registry). Unset: nothing is.
  std::function<bool(const std::string& path)> isBeingWritten;
};

// Calls `visit` once per recording under `folder`; `visit` returns false to
// stop the scan. A subfolder the user may not enter is passed over. False
// with `error` when the folder cannot be read, or a read error ended the
// walk early (what was visited before stands).
bool ScanRecordings(const std::string& folder, const ZMScanOptions& options,
                    const std::function<bool(const ZMScannedFile&)>& visit, std::string* error);

// One file, as the scan describes it.
ZMScannedFile ScanRecording(const std::string& path, const ZMScanOptions& options);

}  // namespace dravix::media
