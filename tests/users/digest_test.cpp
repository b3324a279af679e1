// The digest's block function, padding and length against the published
// MD5 test suite, and the account digest built on it.
#include "dravix/users/password_digest.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace {

using dravix::users::kAccountDigestWords;
using dravix::users::kMd5StandardWords;
using dravix::users::Md5;

std::string Hex(const dravix::users::Md5Digest& d) {
  std::string s;
  char b[3];
  for (uint8_t v : d) {
    std::snprintf(b, sizeof(b), "%02x", v);
    s += b;
  }
  return s;
}

TEST(Digest, TheBlockFunctionMatchesThePublishedVectors) {
  const std::pair<std::string, const char*> vectors[] = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"},
      {"a", "0cc175b9c0f1b6a831c399e269772661"},
      {"abc", "900150983cd24fb0d6963f7d28e17f72"},
      {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
      {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "d174ab98d277d9f5a5611c2c9f419d9f"},
      {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
       "57edf4a22be3c955ac49da2e2107b67a"},
      // Lengths around the padding boundaries.
      {std::string(55, 'a'), "ef1772b6dff9a122358552954ad0df65"},
      {std::string(56, 'a'), "3b0c8ac703f828b04c6c197006d17218"},
      {std::string(64, 'a'), "014842d480b571495a4a0363793f7367"},
  };
  for (const auto& [text, hex] : vectors) EXPECT_EQ(Hex(Md5(text.data(), text.size(), kMd5StandardWords)), hex) << text.size();
}

TEST(Digest, TheAccountDigestIsOurOwnAndEndsAtItsFirstZeroByte) {
  EXPECT_NE(Md5("abc", 3, kAccountDigestWords), Md5("abc", 3, kMd5StandardWords));
  EXPECT_EQ(Md5("abc", 3, kAccountDigestWords), Md5("abc", 3, kAccountDigestWords));
  // Find passwords whose digest holds a zero byte: the text stops there.
  int cut = 0;
  for (int i = 0; i < 4000 && cut < 3; ++i) {
    const std::string pw = "pw" + std::to_string(i);
    const auto d = Md5(pw.data(), pw.size(), kAccountDigestWords);
    size_t zero = 0;
    while (zero < d.size() && d[zero] != 0) ++zero;
    const std::string text = dravix::users::PasswordDigest(pw);
    ASSERT_EQ(text.size(), zero) << pw;
    ASSERT_EQ(text, std::string(d.begin(), d.begin() + static_cast<long>(zero))) << pw;
    if (zero < d.size()) ++cut;
  }
  EXPECT_EQ(cut, 3);
}

}  // namespace
