#include "dravix/users/password_digest.h"

#include <cstring>

namespace dravix::users {
namespace {

constexpr uint32_t kSine[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};
constexpr int kShift[64] = {7,  12, 17, 22, 7,  12, 17, 22, 7,  12, 17, 22, 7,  12, 17, 22, 5,  9,  14, 20, 5,  9,
                            14, 20, 5,  9,  14, 20, 5,  9,  14, 20, 4,  11, 16, 23, 4,  11, 16, 23, 4,  11, 16, 23,
                            4,  11, 16, 23, 6,  10, 15, 21, 6,  10, 15, 21, 6,  10, 15, 21, 6,  10, 15, 21};

uint32_t Rotl(uint32_t x, int n) { return (x << n) | (x >> (32 - n)); }

void Block(Md5Words& h, const uint8_t* p) {
  uint32_t m[16];
  for (int i = 0; i < 16; ++i)
    m[i] = static_cast<uint32_t>(p[4 * i]) | (static_cast<uint32_t>(p[4 * i + 1]) << 8) |
           (static_cast<uint32_t>(p[4 * i + 2]) << 16) | (static_cast<uint32_t>(p[4 * i + 3]) << 24);
  uint32_t a = h[0], b = h[1], c = h[2], d = h[3];
  for (int i = 0; i < 64; ++i) {
    uint32_t f;
    int g;
    if (i < 16) {
      f = (b & c) | (~b & d);
      g = i;
    } else if (i < 32) {
      f = (d & b) | (~d & c);
      g = (5 * i + 1) % 16;
    } else if (i < 48) {
      f = b ^ c ^ d;
      g = (3 * i + 5) % 16;
    } else {
      f = c ^ (b | ~d);
      g = (7 * i) % 16;
    }
    const uint32_t next = b + Rotl(a + f + kSine[i] + m[g], kShift[i]);
    a = d;
    d = c;
    c = b;
    b = next;
  }
  h[0] += a;
  h[1] += b;
  h[2] += c;
  h[3] += d;
}

}  // namespace

Md5Digest Md5(const void* data, size_t size, const Md5Words& words) {
  Md5Words h = words;
  const auto* p = static_cast<const uint8_t*>(data);
  size_t left = size;
  for (; left >= 64; left -= 64, p += 64) Block(h, p);
  // Padding: 0x80, zeros, then the length in bits as 64-bit little-endian.
  uint8_t tail[128] = {};
  if (left != 0) std::memcpy(tail, p, left);
  tail[left] = 0x80;
  const size_t tailSize = left < 56 ? 64 : 128;
  const uint64_t bits = static_cast<uint64_t>(size) * 8;
  for (int i = 0; i < 8; ++i) tail[tailSize - 8 + i] = static_cast<uint8_t>(bits >> (8 * i));
  for (size_t off = 0; off < tailSize; off += 64) Block(h, tail + off);
  Md5Digest out{};
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 4; ++j) out[4 * i + j] = static_cast<uint8_t>(h[i] >> (8 * j));
  return out;
}

std::string PasswordDigest(std::string_view password) {
  const Md5Digest d = Md5(password.data(), password.size(), kAccountDigestWords);
  std::string text;
  for (uint8_t b : d) {
    if (b == 0) break;
    text.push_back(static_cast<char>(b));
  }
  return text;
}

}  // namespace dravix::users
