// Fuzz inputs as files: the recording functions take paths, so each input is
// written to a pair of files in /dev/shm (or $TMPDIR) once per input. The
// first two bytes (little-endian) give the length of an index file taken
// from the bytes after them; the rest is the recording. A length of 0xFFFF
// means no index file at all.
#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <random>
#include <string>

namespace dravix::fuzz {

struct RecordingFiles {
  std::string dir, recording, index;

  RecordingFiles() {
    std::error_code ec;
    dir =
        std::filesystem::is_directory("/dev/shm", ec) ? "/dev/shm" : std::filesystem::temp_directory_path(ec).string();
    const std::string stem = dir + "/dravix-fuzz-" + std::to_string(std::random_device{}());
    recording = stem + ".dat";
    index = stem + ".idx";
  }
  ~RecordingFiles() { Remove(); }
  // Called after each input: libFuzzer may end without running destructors.
  void Remove() {
    std::remove(recording.c_str());
    std::remove(index.c_str());
  }

  static bool Put(const std::string& path, const uint8_t* data, size_t size) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (f == nullptr) return false;
    const bool ok = size == 0 || std::fwrite(data, 1, size, f) == size;
    return std::fclose(f) == 0 && ok;
  }

  // Splits and writes one input; false when it cannot be written.
  bool Write(const uint8_t* data, size_t size) {
    std::remove(index.c_str());
    if (size < 2) return Put(recording, data, size);
    size_t indexLength = data[0] | (static_cast<size_t>(data[1]) << 8);
    data += 2, size -= 2;
    if (indexLength == 0xFFFF) return Put(recording, data, size);
    if (indexLength > size) indexLength = size;
    return Put(index, data, indexLength) && Put(recording, data + indexLength, size - indexLength);
  }
};

}  // namespace dravix::fuzz
