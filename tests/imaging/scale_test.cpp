#include "dravix/imaging/scale.h"

#include "dravix/imaging/scale_paths.h"
#include "tests/imaging/scale_reference.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace {

using dravix::imaging::ScalePath;
using namespace dravix::test;

constexpr BYTE kGuard = 0xA5;
constexpr size_t kGuardBytes = 64;

struct Size4 {
  int sw, sh, dw, dh;
};

std::string Name(const Size4& s) {
  return std::to_string(s.sw) + "x" + std::to_string(s.sh) + "->" + std::to_string(s.dw) + "x" + std::to_string(s.dh);
}

// Exactly `n` bytes of noise, so a read past the end trips the sanitizers.
std::vector<BYTE> Noise(size_t n, uint32_t seed) {
  std::mt19937 gen(seed);
  std::vector<BYTE> v(n);
  for (auto& b : v) b = static_cast<BYTE>(gen());
  return v;
}

// Runs `scale` into a buffer of `n` bytes followed by a guard zone and checks
// that it matches `expected` and left the guard alone.
template <typename F>
void ExpectSameBytes(const std::vector<BYTE>& expected, F scale) {
  std::vector<BYTE> out(expected.size() + kGuardBytes, kGuard);
  scale(out.data());
  for (size_t i = 0; i < expected.size(); ++i) {
    if (out[i] != expected[i]) {
      ADD_FAILURE() << "first difference at byte " << i << ": got " << int(out[i]) << ", want " << int(expected[i]);
      return;
    }
  }
  for (size_t i = expected.size(); i < out.size(); ++i) {
    ASSERT_EQ(out[i], kGuard) << "wrote past the destination at byte " << i;
  }
}

// Reductions and same-size requests, including odd sizes, steps just above
// 1, 2, 4 and 8 (the vector block sizes change there), very large steps and
// sizes whose step is an inexact double: with 200 -> 194 or 204 -> 168 some
// x * step fall a hair below an integer, and adding the row start rounds
// them up on some rows but not on the first.
std::vector<Size4> PlaneSizes() {
  std::vector<Size4> s = {{640, 480, 320, 240},
                          {1280, 720, 704, 396},
                          {1920, 1080, 640, 360},
                          {704, 576, 352, 288},
                          {1920, 1080, 960, 540},
                          {101, 77, 37, 19},
                          {1, 1, 1, 1},
                          {333, 1, 111, 1},
                          {50, 50, 50, 50},
                          {1000, 10, 7, 3},
                          {1000, 40, 130, 20},
                          {1000, 40, 300, 20},
                          // Steps whose 16-output vector lanes need 1 to 4 source windows and,
                          // at 4.35, more (those rows fall back to the table); a last row read
                          // right to the end of the picture; one column; strips of columns.
                          {1000, 40, 950, 20},
                          {1000, 40, 900, 20},
                          {1000, 40, 400, 20},
                          {1000, 40, 286, 20},
                          {1000, 40, 230, 20},
                          {1000, 20, 286, 20},
                          {1, 500, 1, 250},
                          {1, 9, 1, 9},
                          {9000, 3, 4100, 3},
                          {997, 13, 996, 12},
                          {4101, 3, 2049, 2},
                          {3, 1000, 3, 17},
                          {4000, 2200, 2200, 1210},
                          {1920, 1080, 1440, 810},
                          {8000, 4, 63, 2},
                          {640, 480, 639, 479},
                          {257, 9, 128, 4},
                          {200, 60, 194, 50},
                          {204, 30, 168, 20},
                          {2040, 300, 1680, 200},
                          // Halving with every kind of row end: shorter than a block, whole
                          // blocks, and last blocks of up to 32 and of more than 32 outputs.
                          {62, 5, 31, 3},
                          {128, 5, 64, 3},
                          {130, 5, 65, 3},
                          {190, 5, 95, 3},
                          {194, 5, 97, 3},
                          {254, 5, 127, 3},
                          {256, 5, 128, 3},
                          {258, 5, 129, 3},
                          {446, 4, 223, 2},
                          {1026, 3, 513, 2}};
  for (int sw : {17, 64, 129, 255, 720}) {
    for (int dw : {1, 2, 3, 5, 7, 16, 31, 63, 64, 65, sw / 3, sw / 2, sw - 1, sw}) {
      if (dw >= 1 && dw <= sw) s.push_back({sw, 9, dw, 4});
    }
  }
  return s;
}

std::vector<Size4> ResampleSizes() {
  std::vector<Size4> s = {{1920, 1080, 960, 540},
                          {704, 576, 352, 288},
                          {352, 288, 704, 576},
                          {640, 480, 1280, 960},
                          {1280, 720, 704, 396},
                          {1, 1, 5, 3},
                          {1, 1, 1, 1},
                          {2, 2, 1, 1},
                          {3, 2, 17, 9},
                          {640, 480, 480, 360},
                          {640, 480, 853, 640},
                          {1920, 1080, 1280, 720},
                          {1440, 1080, 640, 480},
                          {300, 200, 300, 200},
                          {5000, 10, 2500, 5},
                          {5000, 4, 4999, 3},
                          {6000, 4, 700, 2},
                          {4000, 4, 7000, 3},
                          {1024, 4, 4096, 3},
                          {4096, 2, 256, 2},
                          {6000, 3, 40, 3},
                          {2000, 3, 13, 3},
                          {2, 1, 4099, 2},
                          {720, 576, 1920, 1080},
                          {37, 41, 148, 82},
                          {100, 3, 1, 1},
                          // One column or one row, reduced and enlarged; picks of whole pixels
                          // at steps 3 and 5; a dyadic reduction too wide for the vector lanes.
                          {1, 300, 1, 97},
                          {1, 50, 3, 200},
                          {300, 1, 97, 1},
                          {50, 1, 200, 3},
                          {1920, 9, 640, 3},
                          {705, 7, 141, 7},
                          {1400, 4, 400, 3},
                          {703, 5, 1401, 9},
                          // Doubling: across strips, with an odd width, and a row too short for a group.
                          {352, 288, 704, 576},
                          {641, 3, 1282, 6},
                          {1300, 2, 2600, 3},
                          {7, 2, 14, 4}};
  std::mt19937 gen(7);
  for (int n = 0; n < 150; ++n) {
    s.push_back({int(gen() % 40) + 1, int(gen() % 30) + 1, int(gen() % 80) + 1, int(gen() % 60) + 1});
  }
  return s;
}

class ScaleOnPath : public ::testing::TestWithParam<ScalePath> {
 protected:
  void SetUp() override {
    if (!dravix::imaging::ScalePathAvailable(GetParam())) GTEST_SKIP() << "CPU lacks this path";
  }
};

TEST_P(ScaleOnPath, YDownsampleMatchesFormula) {
  for (const Size4& s : PlaneSizes()) {
    SCOPED_TRACE(Name(s));
    const auto src = Noise(size_t(s.sw) * s.sh, s.sw * 31 + s.dw);
    std::vector<BYTE> want(size_t(s.dw) * s.dh);
    ReferenceYDownsample(src.data(), want.data(), s.sw, s.sh, s.dw, s.dh);
    ExpectSameBytes(
        want, [&](BYTE* d) { dravix::imaging::YDownsampleOn(GetParam(), src.data(), d, s.sw, s.sh, s.dw, s.dh); });
  }
}

TEST_P(ScaleOnPath, UVDownsampleMatchesFormula) {
  std::vector<Size4> sizes = {{704, 576, 352, 288}, {1920, 1080, 960, 540}, {1280, 720, 704, 396},
                              {705, 577, 353, 289}, {3, 3, 2, 2},           {2, 2, 2, 2},
                              {5, 7, 3, 2},         {641, 481, 320, 240},   {1920, 1080, 640, 360},
                              {4000, 30, 1100, 14}};
  for (const Size4& s : PlaneSizes()) {
    if (s.sw >= 2 && s.sh >= 2) sizes.push_back(s);
  }
  for (const Size4& s : sizes) {
    SCOPED_TRACE(Name(s));
    const auto src = Noise(size_t(s.sw / 2) * (s.sh / 2), s.sh * 17 + s.dh);
    std::vector<BYTE> want(size_t(s.dw / 2) * (s.dh / 2));
    ReferenceUVDownsample(src.data(), want.data(), s.sw, s.sh, s.dw, s.dh);
    ExpectSameBytes(
        want, [&](BYTE* d) { dravix::imaging::UVDownsampleOn(GetParam(), src.data(), d, s.sw, s.sh, s.dw, s.dh); });
  }
}

// QUIRK(resample-float-ratios): the reference rounds the ratios and weight to float.
TEST_P(ScaleOnPath, ResampleMatchesFormula) {
  for (const Size4& s : ResampleSizes()) {
    SCOPED_TRACE(Name(s));
    const auto src = Noise(size_t(s.sw) * s.sh * 3, s.sw * 13 + s.dh);
    std::vector<BYTE> want(size_t(s.dw) * s.dh * 3);
    ReferenceResample(s.sw, s.sh, s.dw, s.dh, src.data(), want.data());
    ExpectSameBytes(want,
                    [&](BYTE* d) { dravix::imaging::ResampleOn(GetParam(), s.sw, s.sh, s.dw, s.dh, src.data(), d); });
  }
}

// Flat and extreme pictures stress the truncation: a weight sum that comes
// out a hair under an integer must still be truncated exactly as the formula
// does.
TEST_P(ScaleOnPath, ResampleOfFlatAndExtremePicturesMatchesFormula) {
  for (const Size4& s : {Size4{1280, 720, 704, 396}, Size4{7, 5, 23, 19}, Size4{640, 480, 853, 640}}) {
    for (BYTE level : {BYTE(0), BYTE(1), BYTE(3), BYTE(128), BYTE(254), BYTE(255)}) {
      SCOPED_TRACE(Name(s) + " level " + std::to_string(level));
      std::vector<BYTE> src(size_t(s.sw) * s.sh * 3, level);
      for (size_t i = 0; i < src.size(); i += 7) src[i] = BYTE(255 - level);
      std::vector<BYTE> want(size_t(s.dw) * s.dh * 3);
      ReferenceResample(s.sw, s.sh, s.dw, s.dh, src.data(), want.data());
      ExpectSameBytes(want,
                      [&](BYTE* d) { dravix::imaging::ResampleOn(GetParam(), s.sw, s.sh, s.dw, s.dh, src.data(), d); });
    }
  }
}

// A ramp from 0 makes each output byte trunc(P1 * weight), so it shows the
// weights directly, checked here against ratios from single-precision
// division rather than against the yardstick. With the ratio kept in double,
// columns 3 and 6 of the 17-wide row and most of the first half of the
// 50-wide row come out one higher; with the vertical weight not rounded to
// single precision, rows 7, 14, 17 and 25 of the 50-high column do.
TEST_P(ScaleOnPath, ResampleWeightsComeFromSinglePrecisionRatios) {
  const std::vector<BYTE> src = {0, 0, 0, 255, 200, 77};  // two pixels, as a row or a column
  const BYTE* p1 = src.data() + 3;
  for (int n : {17, 50}) {
    SCOPED_TRACE(n);
    const double ratio = 2.0f / static_cast<float>(n);
    std::vector<BYTE> row(3 * size_t(n));
    dravix::imaging::ResampleOn(GetParam(), 2, 1, n, 1, src.data(), row.data());
    std::vector<BYTE> column(3 * size_t(n));
    dravix::imaging::ResampleOn(GetParam(), 1, 2, 1, n, src.data(), column.data());
    for (int i = 0; i * ratio < 1.0; ++i) {
      const double wx = i * ratio;
      const double wy = ToSingle(i * ratio);
      for (int c = 0; c < 3; ++c) {
        ASSERT_EQ(row[3 * i + c], static_cast<int>(p1[c] * wx)) << "column " << i << " channel " << c;
        ASSERT_EQ(column[3 * i + c], static_cast<int>(p1[c] * wy)) << "row " << i << " channel " << c;
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Paths, ScaleOnPath,
                         ::testing::Values(ScalePath::kScalar, ScalePath::kSse2, ScalePath::kAvx2, ScalePath::kAvx512),
                         [](const auto& info) { return std::string(dravix::imaging::ScalePathName(info.param)); });

TEST(Scale, YDownsampleByTwoTakesEverySecondByteOfEverySecondRow) {
  const auto src = Noise(640 * 480, 1);
  std::vector<BYTE> dst(320 * 240);
  Y_downsample(src.data(), dst.data(), 640, 480, 320, 240);
  for (int y = 0; y < 240; ++y) {
    for (int x = 0; x < 320; ++x) ASSERT_EQ(dst[y * 320 + x], src[2 * y * 640 + 2 * x]) << y << "," << x;
  }
}

TEST(Scale, UVDownsampleOfD1TakesEverySecondByteOfTheHalfPlane) {
  const auto src = Noise(352 * 288, 2);
  std::vector<BYTE> dst(176 * 144 + kGuardBytes, kGuard);
  UV_downsample(src.data(), dst.data(), 704, 576, 352, 288);
  for (int y = 0; y < 144; ++y) {
    for (int x = 0; x < 176; ++x) ASSERT_EQ(dst[y * 176 + x], src[2 * y * 352 + 2 * x]) << y << "," << x;
  }
  for (size_t i = 176 * 144; i < dst.size(); ++i) ASSERT_EQ(dst[i], kGuard);
}

// Asked to enlarge, the plane functions step by 1.0 and index the source
// with the destination's coordinates, reading past the source picture; the
// buffer here is large enough for those reads.
TEST(Scale, PlaneEnlargingIndexesTheSourceWithDestinationCoordinates) {
  const auto src = Noise(200, 3);
  std::vector<BYTE> y(6 * 5);
  Y_downsample(src.data(), y.data(), 4, 4, 6, 5);
  for (int r = 0; r < 5; ++r) {
    for (int x = 0; x < 6; ++x) EXPECT_EQ(y[r * 6 + x], src[r * 4 + x]) << r << "," << x;
  }
  std::vector<BYTE> uv(5 * 3);
  UV_downsample(src.data(), uv.data(), 8, 6, 10, 6);
  for (int r = 0; r < 3; ++r) {
    for (int x = 0; x < 5; ++x) EXPECT_EQ(uv[r * 5 + x], src[r * 4 + x]) << r << "," << x;
  }
  // Halving the width while enlarging the height: rows past the picture are
  // read only where the formula reads (the buffer ends at its last read).
  const auto tall = Noise(3 * 300 + 2 * 149 + 1, 6);
  std::vector<BYTE> halved(150 * 4);
  Y_downsample(tall.data(), halved.data(), 300, 2, 150, 4);
  for (int r = 0; r < 4; ++r) {
    for (int x = 0; x < 150; ++x) ASSERT_EQ(halved[r * 150 + x], tall[r * 300 + 2 * x]) << r << "," << x;
  }
}

TEST(Scale, ResampleOfEqualSizesCopiesThePicture) {
  for (const Size4& s : {Size4{1, 1, 1, 1}, Size4{640, 480, 640, 480}, Size4{33, 7, 33, 7}}) {
    const auto src = Noise(size_t(s.sw) * s.sh * 3, 4);
    ExpectSameBytes(src, [&](BYTE* d) { Resample(s.sw, s.sh, s.dw, s.dh, src.data(), d); });
  }
}

TEST(Scale, ResampleOfOnePixelRepeatsIt) {
  for (const Size4& s : {Size4{1, 1, 1, 1}, Size4{1, 1, 7, 3}, Size4{1, 1, 640, 480}, Size4{1, 1, 3, 1000}}) {
    const std::vector<BYTE> pixel = {3, 200, 255};
    std::vector<BYTE> want;
    for (long n = 0; n < long(s.dw) * s.dh; ++n) want.insert(want.end(), pixel.begin(), pixel.end());
    ExpectSameBytes(want, [&](BYTE* d) { Resample(1, 1, s.dw, s.dh, pixel.data(), d); });
  }
}

TEST(Scale, EmptyDestinationOrSourceLeavesTheDestinationUntouched) {
  const auto src = Noise(64 * 64 * 3, 5);
  std::vector<BYTE> dst(256, kGuard);
  const std::vector<BYTE> untouched = dst;
  for (const Size4& s : {Size4{64, 64, 0, 10}, Size4{64, 64, 10, 0}, Size4{64, 64, -3, 10}, Size4{64, 64, 10, -1},
                         Size4{0, 64, 8, 8}, Size4{64, -2, 8, 8}}) {
    SCOPED_TRACE(Name(s));
    Y_downsample(src.data(), dst.data(), s.sw, s.sh, s.dw, s.dh);
    UV_downsample(src.data(), dst.data(), s.sw, s.sh, s.dw, s.dh);
    Resample(s.sw, s.sh, s.dw, s.dh, src.data(), dst.data());
    EXPECT_EQ(dst, untouched);
  }
  // UV_downsample works on half sizes: a destination one row or column high
  // has an empty chrominance plane.
  UV_downsample(src.data(), dst.data(), 64, 64, 8, 1);
  UV_downsample(src.data(), dst.data(), 64, 64, 1, 8);
  EXPECT_EQ(dst, untouched);
}

}  // namespace
