#include "dravix/media/frame_code.h"

namespace dravix::media {
namespace {

constexpr int kBlock = 8;
constexpr int kBlocksPerRow = 16;
constexpr uint8_t kLight = 235;
constexpr uint8_t kDark = 16;
constexpr int kMiddle = (kLight + kDark) / 2;

bool Fits(int width, int height) { return width >= kFrameCodeWidth && height >= kFrameCodeHeight; }

// Block `index` (0..63) of the code: its top-left pixel.
int BlockX(int index) { return (index % kBlocksPerRow) * kBlock; }
int BlockY(int index) { return (index / kBlocksPerRow) * kBlock; }

}  // namespace

bool DrawFrameCode(uint8_t* luma, int stride, int width, int height, const FrameCode& code) {
  if (!Fits(width, height)) return false;
  const uint64_t bits = (static_cast<uint64_t>(code.frame) << 32) | code.seconds;
  for (int i = 0; i < 64; ++i) {
    const uint8_t value = ((bits >> (63 - i)) & 1) != 0 ? kLight : kDark;
    for (int y = 0; y < kBlock; ++y) {
      uint8_t* row = luma + static_cast<int64_t>(BlockY(i) + y) * stride + BlockX(i);
      for (int x = 0; x < kBlock; ++x) row[x] = value;
    }
  }
  return true;
}

bool ReadFrameCode(const uint8_t* luma, int stride, int width, int height, FrameCode* code) {
  if (!Fits(width, height)) return false;
  uint64_t bits = 0;
  for (int i = 0; i < 64; ++i) {
    int sum = 0;
    for (int y = 2; y < 6; ++y) {
      const uint8_t* row = luma + static_cast<int64_t>(BlockY(i) + y) * stride + BlockX(i);
      for (int x = 2; x < 6; ++x) sum += row[x];
    }
    bits = (bits << 1) | (sum / 16 > kMiddle ? 1u : 0u);
  }
  code->frame = static_cast<uint32_t>(bits >> 32);
  code->seconds = static_cast<uint32_t>(bits);
  return true;
}

}  // namespace dravix::media
