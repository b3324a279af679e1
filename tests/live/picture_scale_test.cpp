// Scaling source pictures to a camera's size: planes stay apart, the
// reduce path samples the source grid, the enlarge path keeps flat colour.
#include "dravix/live/picture_scale.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace dravix::live {
namespace {

using media::Picture;

// Luma in vertical stripes (value = column), flat chroma.
Picture Striped(int w, int h, uint8_t u, uint8_t v) {
  Picture p;
  p.Resize(w, h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) p.y[static_cast<size_t>(y) * w + x] = static_cast<uint8_t>(x);
  std::fill(p.u.begin(), p.u.end(), u);
  std::fill(p.v.begin(), p.v.end(), v);
  p.fullRange = true;
  p.timeMs = 1234;
  return p;
}

TEST(ScalePicture, ReducesEnlargesAndKeepsPlanesApart) {
  struct Case {
    int sw, sh, w, h;
  };
  // Reduce both ways, keep, enlarge both ways, and enlarge one way only.
  const Case cases[] = {{256, 96, 128, 48}, {176, 144, 176, 144}, {128, 96, 352, 288}, {200, 144, 128, 288}};
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.sw) + "x" + std::to_string(c.sh) + " to " + std::to_string(c.w) + "x" +
                 std::to_string(c.h));
    const Picture in = Striped(c.sw, c.sh, 60, 200);
    Picture out;
    ASSERT_TRUE(ScalePicture(in, c.w, c.h, &out));
    EXPECT_EQ(out.width, c.w);
    EXPECT_EQ(out.height, c.h);
    EXPECT_EQ(out.y.size(), static_cast<size_t>(c.w) * c.h);
    EXPECT_TRUE(out.fullRange);
    EXPECT_EQ(out.timeMs, 1234);
    for (uint8_t u : out.u) ASSERT_NEAR(u, 60, 1);
    for (uint8_t v : out.v) ASSERT_NEAR(v, 200, 1);
    // Each row is the same stripes, rising from left to right, spanning
    // the source's columns.
    for (int y = 0; y < c.h; ++y) {
      const uint8_t* row = out.y.data() + static_cast<size_t>(y) * c.w;
      for (int x = 1; x < c.w; ++x) ASSERT_GE(row[x], row[x - 1]) << "row " << y;
      ASSERT_LE(row[0], 1);
      ASSERT_GE(row[c.w - 1], c.sw - 1 - c.sw / c.w - 1);
    }
    if (c.w * 2 == c.sw) {
      for (int x = 0; x < c.w; ++x) EXPECT_EQ(out.y[static_cast<size_t>(x)], 2 * x) << "every second column";
    }
  }
  Picture out;
  EXPECT_FALSE(ScalePicture(Picture{}, 128, 96, &out));
  EXPECT_FALSE(ScalePicture(Striped(128, 96, 0, 0), 0, 96, &out));
}

}  // namespace
}  // namespace dravix::live
