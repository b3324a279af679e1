// `dravix frame SRC --at T OUT`: the picture a recording shows at a moment,
// as a JPEG (.jpg, .jpeg) or a PPM (.ppm) file.
//
// An MJPEG recording's picture is written as the record's own JPEG bytes
// when a JPEG is asked for; anything else is decoded (from the key record
// at or before the moment) and encoded. The output is staged: it appears
// whole or not at all.
#include "tools/command.h"
#include "tools/time_arg.h"

#include "dravix/base/ztime.h"
#include "dravix/media/codec_log.h"
#include "dravix/media/picture_at.h"
#include "dravix/media/picture_convert.h"
#include "dravix/media/video_encoder.h"
#include "dravix/media/zm_format.h"
#include "dravix/media/zm_record_walk.h"
#include "dravix/platform/staged_file.h"

#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

namespace dravix::cli {
namespace {

using namespace dravix::media;

struct Args {
  std::string src, out, at;
  int quality = 90;
};
Args g;

std::string Lower(std::string s) {
  for (char& c : s)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return s;
}

bool SameFile(const std::string& a, const std::string& b) {
  std::error_code ec;
  return std::filesystem::equivalent(a, b, ec) && !ec;
}

std::vector<uint8_t> EncodeJpeg(const Picture& picture) {
  std::vector<uint8_t> jpeg;
  std::string error;
  if (!EncodeJpegPicture(picture, g.quality, &jpeg, &error))
    throw Failure("cannot encode the picture as JPEG: " + error);
  return jpeg;
}

std::vector<uint8_t> EncodePpm(const Picture& picture) {
  std::string error;
  std::vector<uint8_t> rgb;
  if (!PictureToRgb(picture, &rgb, &error)) throw Failure("cannot convert the picture to RGB: " + error);
  const std::string head = "P6\n" + std::to_string(picture.width) + " " + std::to_string(picture.height) + "\n255\n";
  std::vector<uint8_t> ppm(head.begin(), head.end());
  ppm.insert(ppm.end(), rgb.begin(), rgb.end());
  return ppm;
}

int Frame() {
  QuietCodecLog();
  const std::string ext = Lower(std::filesystem::path(g.out).extension().string());
  const bool jpeg = ext == ".jpg" || ext == ".jpeg";
  if (!jpeg && ext != ".ppm") throw UsageError("OUT must end in .jpg, .jpeg or .ppm: " + g.out);
  const SYSTEMTIME at = ParseTimeArg(g.at, "--at");
  FILETIME ft{};
  if (!SystemTimeToFileTime(at, &ft)) throw UsageError("--at is out of range");
  if (SameFile(g.src, g.out) || SameFile(IndexNameForWriter(g.src), g.out))
    throw UsageError("OUT " + g.out + " is the recording or its index: refusing to overwrite it");

  // Only a regular file is opened as a recording: a FIFO would block.
  std::error_code ec;
  if (std::filesystem::exists(g.src, ec) && !std::filesystem::is_regular_file(g.src, ec))
    throw Failure("no picture from " + g.src + ": it is not a regular file");
  PictureAtMoment found;
  std::string error;
  if (!FindPictureAt(g.src.c_str(), FileTimeToInt64(ft), !jpeg, &found, &error))
    throw Failure("no picture from " + g.src + " at " + g.at + ": " + error);
  const std::vector<uint8_t> bytes =
      jpeg ? (found.codec == kCodecMJPEG ? found.jpeg : EncodeJpeg(found.picture)) : EncodePpm(found.picture);

  platform::StagedFile out;
  if (!out.Open(g.out, &error) || !out.Write(bytes.data(), bytes.size(), &error) || !out.Commit(0644, &error))
    throw Failure("cannot write " + g.out + ": " + error);
  std::cout << g.out << ": picture " << found.frame << " at " << found.timeMs / 1000 << "."
            << std::to_string(1000 + found.timeMs % 1000).substr(1) << " s from the start, " << bytes.size() << " bytes"
            << (jpeg && found.codec == kCodecMJPEG ? " (the record's own JPEG)" : "") << '\n';
  return kExitOk;
}

void Register(CLI::App& app) {
  CLI::App* f = AddCommand(&app, "frame",
                           "Write the picture a recording shows at a moment as a JPEG or PPM file (whole or not "
                           "at all)",
                           Frame);
  f->add_option("SRC", g.src, "Recording file")->required();
  f->add_option("OUT", g.out, "Picture file to write, ending in .jpg, .jpeg or .ppm (replaced)")->required();
  f->add_option("--at", g.at, "Local time: YYYY-MM-DD hh:mm:ss[.fff]")->required();
  f->add_option("--quality", g.quality, "JPEG quality 1-100 when the picture must be encoded")
      ->check(CLI::Range(1, 100))
      ->capture_default_str();
}

const Registration reg{62, Register};

}  // namespace
}  // namespace dravix::cli
