// A program folder for fuzz targets whose code under test reads and writes
// files there: made once per fuzzing process (on a memory file system when
// there is one) and removed at exit.
#pragma once

#include "dravix/base/zfile.h"

#include <stdlib.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace dravix::fuzz {

inline std::string& FuzzHomeFolder() {
  static std::string folder;
  return folder;
}

// Makes the folder "dravix-<tag>-fuzz-XXXXXX", sets it as the program folder
// and returns it with a trailing '/'. Call once (from a static initialiser).
inline std::string MakeFuzzHome(const std::string& tag) {
  std::string tmpl =
      (std::filesystem::is_directory("/dev/shm") ? "/dev/shm/dravix-" : "/tmp/dravix-") + tag + "-fuzz-XXXXXX";
  const char* dir = mkdtemp(tmpl.data());
  if (dir == nullptr) std::abort();
  SetModulePath(dir);
  FuzzHomeFolder() = dir;
  std::atexit([] {
    std::error_code ec;
    std::filesystem::remove_all(FuzzHomeFolder(), ec);
  });
  return std::string(dir) + "/";
}

// Replaces `path` with the fuzz input.
inline void WriteFuzzInput(const std::string& path, const uint8_t* data, size_t size) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) std::abort();
  if (size != 0 && std::fwrite(data, 1, size, f) != size) std::abort();
  std::fclose(f);
}

}  // namespace dravix::fuzz
