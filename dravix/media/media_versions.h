// The versions of FFmpeg's libraries behind the media floor, for a
// program's --version: the version each was built against and, when the
// library loaded at run time differs, that one too.
#pragma once

#include <string>
#include <vector>

namespace dravix::media {

struct MediaLibraryVersion {
  std::string name;     // "libavcodec"
  std::string built;    // "59.37.100": the headers the library was built with
  std::string running;  // the loaded library's own version (same as `built` when they agree)
};

std::vector<MediaLibraryVersion> MediaLibraryVersions();

}  // namespace dravix::media
