// dravix scale: frame scaling from the shell.
//
//   dravix scale IN OUT --size WxH
//       IN is a binary PPM picture (P6, maxval 255); OUT is written as one,
//       resampled bilinearly (Resample).
//   dravix scale IN OUT --size WxH --in-size WxH [--plane y|uv]
//       IN is a raw 8-bit plane of a WxH picture: the luminance plane
//       (W * H bytes, Y_downsample) or a chrominance plane of 4:2:0
//       ((W/2) * (H/2) bytes, UV_downsample). --size and --in-size are sizes
//       of the whole picture in both cases. Planes are only reduced.
#include "tools/command.h"

#include "dravix/imaging/scale.h"

#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

namespace dravix::cli {
namespace {

constexpr int kMaxSide = 32768;

struct Size {
  int w = 0, h = 0;
  std::string Text() const { return std::to_string(w) + "x" + std::to_string(h); }
};

Size ParseSize(const std::string& option, const std::string& text) {
  const size_t x = text.find_first_of("xX");
  auto side = [&](const std::string& part) {
    if (part.empty() || part.size() > 6 || part.find_first_not_of("0123456789") != std::string::npos) return -1;
    return std::stoi(part);
  };
  const int w = x == std::string::npos ? -1 : side(text.substr(0, x));
  const int h = x == std::string::npos ? -1 : side(text.substr(x + 1));
  if (w < 1 || h < 1 || w > kMaxSide || h > kMaxSide) {
    throw UsageError(option + " " + text + ": expected WIDTHxHEIGHT, each 1.." + std::to_string(kMaxSide));
  }
  return {w, h};
}

std::vector<BYTE> ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw Failure("cannot open " + path + ": " + std::strerror(errno));
  std::vector<BYTE> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad()) throw Failure("cannot read " + path);
  return bytes;
}

void WriteAll(const std::string& path, const std::string& header, const std::vector<BYTE>& data) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out) throw Failure("cannot create " + path + ": " + std::strerror(errno));
  out.write(header.data(), static_cast<std::streamsize>(header.size()));
  out.write(reinterpret_cast<const char*>(data.data()), static_cast<std::streamsize>(data.size()));
  out.close();
  if (!out) throw Failure("cannot write " + path);
}

// A binary PPM: "P6", width, height and maxval separated by blanks (with
// '#' comments), one blank, then the pixels.
struct Ppm {
  Size size;
  size_t dataOffset = 0;
};

Ppm ParsePpm(const std::string& path, const std::vector<BYTE>& bytes) {
  if (bytes.size() < 2 || bytes[0] != 'P' || bytes[1] != '6') {
    throw Failure(path + ": not a binary PPM picture (no \"P6\" at byte 0); give --in-size WxH for a raw plane");
  }
  size_t pos = 2;
  long long fields[3] = {0, 0, 0};
  const char* names[3] = {"width", "height", "maxval"};
  for (int f = 0; f < 3; ++f) {
    while (pos < bytes.size() && (std::isspace(bytes[pos]) || bytes[pos] == '#')) {
      if (bytes[pos] == '#') {
        while (pos < bytes.size() && bytes[pos] != '\n') ++pos;
      } else {
        ++pos;
      }
    }
    const size_t start = pos;
    while (pos < bytes.size() && std::isdigit(bytes[pos]) && pos - start < 7) {
      fields[f] = fields[f] * 10 + (bytes[pos] - '0');
      ++pos;
    }
    if (pos == start || (pos < bytes.size() && std::isdigit(bytes[pos]))) {
      throw Failure(path + ": bad PPM header: " + names[f] + " expected at byte " + std::to_string(start));
    }
  }
  if (pos >= bytes.size() || !std::isspace(bytes[pos])) {
    throw Failure(path + ": bad PPM header: blank expected after maxval at byte " + std::to_string(pos));
  }
  ++pos;
  if (fields[2] != 255) {
    throw Failure(path + ": maxval " + std::to_string(fields[2]) + " unsupported (only 8-bit pictures, maxval 255)");
  }
  if (fields[0] < 1 || fields[1] < 1 || fields[0] > kMaxSide || fields[1] > kMaxSide) {
    throw Failure(path + ": picture size " + std::to_string(fields[0]) + "x" + std::to_string(fields[1]) +
                  " out of range 1.." + std::to_string(kMaxSide));
  }
  Ppm ppm{{static_cast<int>(fields[0]), static_cast<int>(fields[1])}, pos};
  const size_t need = size_t(ppm.size.w) * ppm.size.h * 3;
  if (bytes.size() - pos < need) {
    throw Failure(path + ": " + std::to_string(bytes.size() - pos) + " bytes of pixels from byte " +
                  std::to_string(pos) + ", a " + ppm.size.Text() + " picture needs " + std::to_string(need));
  }
  return ppm;
}

struct ScaleArgs {
  std::string in, out, size, inSize, plane = "y";
};

int RunScale(const ScaleArgs& a) {
  const Size to = ParseSize("--size", a.size);
  if (a.inSize.empty()) {
    if (a.plane != "y") throw UsageError("--plane applies to raw planes only (give --in-size)");
    const std::vector<BYTE> bytes = ReadAll(a.in);
    const Ppm ppm = ParsePpm(a.in, bytes);
    std::vector<BYTE> out(size_t(to.w) * to.h * 3);
    Resample(ppm.size.w, ppm.size.h, to.w, to.h, bytes.data() + ppm.dataOffset, out.data());
    WriteAll(a.out, "P6\n" + std::to_string(to.w) + " " + std::to_string(to.h) + "\n255\n", out);
    std::cout << a.in << " (PPM " << ppm.size.Text() << ") -> " << a.out << " (PPM " << to.Text() << ", bilinear)\n";
    return kExitOk;
  }
  const Size from = ParseSize("--in-size", a.inSize);
  if (a.plane != "y" && a.plane != "uv") throw UsageError("--plane " + a.plane + ": expected y or uv");
  if (to.w > from.w || to.h > from.h) {
    throw UsageError("--size " + to.Text() + " is larger than --in-size " + from.Text() + ": planes are only reduced");
  }
  const bool uv = a.plane == "uv";
  const size_t need = uv ? size_t(from.w / 2) * (from.h / 2) : size_t(from.w) * from.h;
  const size_t outBytes = uv ? size_t(to.w / 2) * (to.h / 2) : size_t(to.w) * to.h;
  if (uv && outBytes == 0) throw UsageError("--size " + to.Text() + " has an empty chrominance plane");
  const std::vector<BYTE> bytes = ReadAll(a.in);
  if (bytes.size() != need) {
    throw Failure(a.in + ": " + std::to_string(bytes.size()) + " bytes, but the " + (uv ? "chrominance" : "luminance") +
                  " plane of a " + from.Text() + " picture holds " + std::to_string(need));
  }
  std::vector<BYTE> out(outBytes);
  if (uv) {
    UV_downsample(bytes.data(), out.data(), from.w, from.h, to.w, to.h);
  } else {
    Y_downsample(bytes.data(), out.data(), from.w, from.h, to.w, to.h);
  }
  WriteAll(a.out, "", out);
  std::cout << a.in << " (" << (uv ? "UV" : "Y") << " plane of " << from.Text() << ") -> " << a.out << " ("
            << (uv ? "UV" : "Y") << " plane of " << to.Text() << ", " << outBytes << " bytes)\n";
  return kExitOk;
}

void RegisterScale(CLI::App& app) {
  static ScaleArgs args;
  CLI::App* cmd =
      AddCommand(&app, "scale", "Scale a PPM picture (bilinear) or reduce a raw Y/UV plane (nearest sample)",
                 [] { return RunScale(args); });
  cmd->add_option("IN", args.in, "Input: a P6 PPM picture, or a raw plane with --in-size")->required();
  cmd->add_option("OUT", args.out, "Output, in the input's format")->required();
  cmd->add_option("--size", args.size, "Destination picture size")->type_name("WxH")->required();
  cmd->add_option("--in-size", args.inSize, "IN is a raw 8-bit plane of a picture of this size")->type_name("WxH");
  cmd->add_option("--plane", args.plane, "Raw plane kind: y (luminance, default) or uv (4:2:0 chrominance)")
      ->type_name("y|uv");
}

Registration reg{80, &RegisterScale};

}  // namespace
}  // namespace dravix::cli
