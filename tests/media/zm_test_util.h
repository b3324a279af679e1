// Recordings for the media tests: written with ZMRecordingWriter from a
// plan whose offsets the tests know independently (data offset + the sum of
// 10 + payload of the records before), and small byte-level helpers for
// corrupting files by hand.
#pragma once

#include "dravix/base/ztime.h"
#include "dravix/media/zm_format.h"
#include "dravix/media/zm_writer.h"
#include "tests/support/test_home.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace dravix::test {

struct PlannedRecord {
  uint8_t stream = 0;
  uint32_t time = 0;    // ms
  uint32_t length = 0;  // payload bytes
  bool key = false;
  uint64_t offset = 0;  // filled by Plan(): where the head will be
};

// 2008-03-15 12:00:00, the origin of every test recording.
inline int64_t TestStart() {
  FILETIME ft{};
  EXPECT_TRUE(SystemTimeToFileTime(SYSTEMTIME{2008, 3, 0, 15, 12, 0, 0, 0}, &ft));
  return FileTimeToInt64(ft);
}

// Video at `fps` with a key frame every `keyEvery` frames and audio every
// 100 ms, sizes varying around `mean`, for `seconds`.
inline std::vector<PlannedRecord> Plan(uint32_t seconds, uint32_t fps = 10, uint32_t keyEvery = 10, uint32_t mean = 300,
                                       bool audio = true) {
  std::vector<PlannedRecord> r;
  uint32_t nextAudio = 0;
  for (uint32_t f = 0; f < seconds * fps; ++f) {
    const uint32_t t = f * 1000 / fps;
    // Audio before the frame, except audio of the frame's own millisecond,
    // which follows it (so that the frame is first in its millisecond).
    for (; audio && nextAudio < t; nextAudio += 100) r.push_back({1, nextAudio, 160, false, 0});
    r.push_back({0, t, mean / 2 + (f * 7919u) % mean, f % keyEvery == 0, 0});
    for (; audio && nextAudio == t; nextAudio += 100) r.push_back({1, nextAudio, 160, false, 0});
  }
  uint64_t at = media::kZMDefaultDataOffset;
  for (PlannedRecord& p : r) {
    p.offset = at;
    at += 10 + p.length;
  }
  return r;
}

inline uint64_t EndOf(const PlannedRecord& p) { return p.offset + 10 + p.length; }

// A payload for `p` that passes the picture-start test of `codec`.
inline std::vector<uint8_t> Payload(const PlannedRecord& p, int codec) {
  std::vector<uint8_t> b(p.length);
  for (size_t i = 0; i < b.size(); ++i) b[i] = static_cast<uint8_t>(i * 31 + p.time);
  if (p.stream == 0) {
    if (codec == media::kCodecMJPEG) {
      const uint8_t soi[4] = {0xFF, 0xD8, 0xFF, 0xE0};
      std::copy(soi, soi + 4, b.begin());
    } else {
      b[0] = 0, b[1] = 0, b[2] = 0x82;
    }
  }
  return b;
}

// Writes `plan` to `path` (index beside it); fails the test on any error.
inline void WritePlan(const std::string& path, const std::vector<PlannedRecord>& plan, int codec = media::kCodecH263,
                      int sizeCode = 2, bool audio = true, bool finish = true, int64_t leadIn = 0) {
  media::ZMRecordingWriter w;
  std::vector<media::ZMStreamFormat> streams{media::ZMStreamFormat::Video(codec, sizeCode)};
  if (audio) streams.push_back(media::ZMStreamFormat::Audio());
  ASSERT_EQ(S_OK, w.Create(path.c_str(), TestStart(), streams));
  w.SetLeadIn(leadIn);
  for (const PlannedRecord& p : plan) {
    const std::vector<uint8_t> b = Payload(p, codec);
    ASSERT_EQ(S_OK, w.AddRecord(p.stream, p.time, b.data(), p.length, p.key)) << "record at " << p.offset;
  }
  if (finish)
    ASSERT_EQ(S_OK, w.Close());
  else
    w.Abandon();
}

inline void Spit(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

inline void Patch(const std::string& path, uint64_t offset, const std::vector<uint8_t>& bytes) {
  std::string s = TestHome::ReadFile(path);
  ASSERT_LE(offset + bytes.size(), s.size());
  std::copy(bytes.begin(), bytes.end(), s.begin() + static_cast<std::ptrdiff_t>(offset));
  Spit(path, s);
}

inline void CutTo(const std::string& path, uint64_t size) { std::filesystem::resize_file(path, size); }

inline media::ZMFileHeader HeaderOf(const std::string& path) {
  media::ZMFileHeader h;
  const std::string s = TestHome::ReadFile(path);
  if (s.size() >= media::kZMHeaderSize) std::copy(s.begin(), s.begin() + media::kZMHeaderSize, h.bytes);
  return h;
}

inline std::vector<media::ZMIndexEntry> IndexOf(const std::string& indexPath) {
  std::vector<media::ZMIndexEntry> out;
  const std::string s = TestHome::ReadFile(indexPath);
  for (size_t at = 16; at + 16 <= s.size(); at += 16)
    out.push_back(media::ParseIndexEntry(reinterpret_cast<const uint8_t*>(s.data() + at)));
  return out;
}

// Record heads of the data area [from, from + length), walked directly.
inline std::vector<PlannedRecord> HeadsOf(const std::string& path, uint64_t from, uint64_t length) {
  std::vector<PlannedRecord> out;
  const std::string s = TestHome::ReadFile(path);
  uint64_t at = from;
  while (at + 10 <= from + length && at + 10 <= s.size()) {
    const auto h = media::ParseRecordHead(reinterpret_cast<const uint8_t*>(s.data() + at));
    out.push_back({h.stream, h.time, h.length, h.flag == 1, at});
    at += h.Size();
  }
  return out;
}

inline int64_t Ms(uint32_t ms) { return static_cast<int64_t>(ms) * 10000; }

}  // namespace dravix::test
