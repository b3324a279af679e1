#include "dravix/media/picture_at.h"

#include "dravix/media/picture_decoder.h"
#include "dravix/media/zm_header_reader.h"
#include "dravix/media/zm_record_walk.h"

#include <algorithm>

namespace dravix::media {
namespace {

// Time of a FILETIME tick count relative to the start, as text "12.345 s".
std::string Ms(int64_t ms) {
  return std::to_string(ms / 1000) + "." + std::to_string(1000 + ms % 1000).substr(1) + " s";
}

}  // namespace

bool FindPictureAt(const char* path, int64_t fileTime, bool decodeMjpeg, PictureAtMoment* out, std::string* error) {
  auto fail = [&](const std::string& why) {
    if (error) *error = why;
    return false;
  };
  platform::File file;
  if (!file.OpenRead(path)) return fail("cannot open it for reading");
  ZMHeaderReader reader;
  if (FAILED(reader.Read(file, false))) return fail("it is not a readable recording (bad or short header)");
  const ZMFileHeader& header = reader.header();
  if (reader.streams().empty() || !reader.streams()[0].IsVideo()) return fail("it holds no video stream");
  const GUID subtype = reader.streams()[0].Subtype();
  int codec;
  if (subtype == kSubtypeMJPEG)
    codec = kCodecMJPEG;
  else if (subtype == kSubtypeH263)
    codec = kCodecH263;
  else
    return fail("its video is neither MJPEG nor H.263");

  ZMRecordRules rules;
  rules.streamCount = header.StreamCount();
  rules.durationMs = header.Duration() / kTicksPerMs;
  rules.videoStream = 0;
  rules.picture = PictureCheckFor(subtype);
  const int64_t size = file.Size();
  const uint64_t end = std::min<uint64_t>(header.DataEnd(), size < 0 ? 0 : static_cast<uint64_t>(size));
  const int64_t relative = (fileTime - header.StartTime()) / kTicksPerMs;

  // Video records since the last key record up to the moment.
  struct Found {
    uint64_t offset;
    ZMRecordHead head;
  };
  std::vector<Found> run;
  uint64_t frames = 0, chosenFrame = 0;
  int64_t lastVideoTime = -1;
  bool passed = false;  // a record after the moment was seen
  ZMReadWindow window(file);
  for (uint64_t pos = header.DataOffset(); pos + kZMRecordHeadSize <= end;) {
    ZMRecordAt at;
    const int got = LoadRecordAt(window, pos, &at);
    if (got < 0) return fail("a read failed at byte " + std::to_string(pos));
    if (got == 0 || !IsValidRecord(at.head, at.payload, at.payloadBytes, rules) || pos + at.head.Size() > end) break;
    if (at.head.stream == 0) {
      if (static_cast<int64_t>(at.head.time) > relative) {
        passed = true;
        break;
      }
      if (codec == kCodecMJPEG || at.head.flag == 1) run.clear();
      run.push_back(Found{pos, at.head});
      chosenFrame = frames++;
      lastVideoTime = at.head.time;
    }
    pos += at.head.Size();
  }
  if (run.empty()) return fail("no picture at or before that moment (it is before the recording's first picture)");
  if (!passed && relative > lastVideoTime + 1000)
    return fail("that moment is after the recording's last picture (at " + Ms(lastVideoTime) + " from its start)");
  if (codec == kCodecH263 && run.front().head.flag != 1)
    return fail("no key picture at or before that moment to decode from");

  out->codec = codec;
  out->timeMs = run.back().head.time;
  out->frame = chosenFrame;
  out->jpeg.clear();
  std::vector<uint8_t> payload;
  auto load = [&](const Found& f) {
    payload.resize(f.head.length);
    return file.PRead(payload.data(), payload.size(), static_cast<int64_t>(f.offset + kZMRecordHeadSize)) ==
           static_cast<int64_t>(payload.size());
  };
  if (codec == kCodecMJPEG) {
    if (!load(run.back())) return fail("cannot read the picture's record");
    out->jpeg = payload;
    if (!decodeMjpeg) return true;
    run.erase(run.begin(), run.end() - 1);
  }
  PictureDecoder decoder;
  if (!decoder.Open(codec, error)) return false;
  bool have = false;
  for (const Found& f : run) {
    if (!load(f)) return fail("cannot read the record at byte " + std::to_string(f.offset));
    bool got = false;
    std::string why;
    // A damaged record before the wanted one only spoils what follows it;
    // the wanted one must decode.
    if (!decoder.Decode(payload.data(), payload.size(), &out->picture, &got, &why) && &f == &run.back())
      return fail("the picture at " + Ms(f.head.time) + " cannot be decoded: " + why);
    have = got && &f == &run.back();
  }
  if (!have) return fail("the decoder gave no picture for the record at " + Ms(run.back().head.time));
  out->picture.timeMs = out->timeMs;
  return true;
}

}  // namespace dravix::media
