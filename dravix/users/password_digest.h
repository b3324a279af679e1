// The password digest of the account file: MD5 (block function, padding and
// length trailer) started from four chaining words of our own, so that a
// stored digest is not a plain MD5 of the password.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace dravix::users {

using Md5Words = std::array<uint32_t, 4>;
using Md5Digest = std::array<uint8_t, 16>;

// The published initial words (a plain MD5).
inline constexpr Md5Words kMd5StandardWords = {0x67452301u, 0xEFCDAB89u, 0x98BADCFEu, 0x10325476u};
// The initial words of the account digest. Fixed for good: a stored digest
// only matches with these.
inline constexpr Md5Words kAccountDigestWords = {0x44525658u, 0x5A4D4444u, 0x31353030u, 0x55534552u};

// The digest of `size` bytes starting from `words`.
Md5Digest Md5(const void* data, size_t size, const Md5Words& words);

// The digest string of a password: its account digest taken as
// zero-terminated text (it ends at the first zero byte, so it is 0 to 16
// bytes long).
std::string PasswordDigest(std::string_view password);

}  // namespace dravix::users
