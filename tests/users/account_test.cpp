// The account manager over real language databases (the default account,
// the editing rules, the log-in check, the user file) and the password digest.
#include "dravix/config/istring.h"
#include "dravix/users/iaccountmgr.h"
#include "dravix/users/password_digest.h"
#include "tests/support/lang_files.h"
#include "tests/support/test_home.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>

namespace {

using dravix::users::FieldText;
using dravix::users::kAccountDigestWords;
using dravix::users::kMd5StandardWords;
using dravix::users::Md5;
using dravix::users::PasswordDigest;
namespace fs = std::filesystem;

tagDSADDUSER User(const char* name, const char* password = "", const char* privilege = "3", const char* text = "") {
  tagDSADDUSER u{};
  dravix::users::SetField(u.szName, name);
  dravix::users::SetField(u.szPasswords, password);
  dravix::users::SetField(u.szPrivilegeLeve, privilege);
  dravix::users::SetField(u.szDescriptin, text);
  return u;
}

std::string Bytes(const tagDSADDUSER& u) { return std::string(reinterpret_cast<const char*>(&u), sizeof(u)); }

class Accounts : public dravix::test::TestHome {
 protected:
  void SetUp() override {
    TestHome::SetUp();
    dravix::test::InstallLangDatabases(home());
    WriteFile("LiveVar.ini", "[LIVE_LANGUAGE]\nNAME=LIVE_ENG\n");
    IString::SetHost(IString::LIVE);
  }
  fs::perms Mode() { return fs::status(Path("User.zmi")).permissions() & fs::perms::mask; }
  IAccountMgr* M() { return IAccountMgr::Instance(); }
};

TEST_F(Accounts, AnExistingFileIsReadRecordByRecord) {
  // Two whole records and a third cut inside its password.
  const std::string third = Bytes(User("carol", "c3-secret", "2")).substr(0, 36);
  WriteFile("User.zmi", Bytes(User("ann", "a1", "1")) + Bytes(User("bob", "b2", "2")) + third);
  CUserArray users;
  M()->Load(users);
  ASSERT_EQ(users.size(), 3u);
  EXPECT_EQ(FieldText(users[2].szPasswords), "c3-s");
  EXPECT_EQ(FieldText(users[2].szPrivilegeLeve), "");

  // An empty file is an empty list, not a missing one.
  WriteFile("User.zmi", "");
  EXPECT_TRUE(M()->InitUser());
  M()->Load(users);
  EXPECT_TRUE(users.empty());
  EXPECT_EQ(ReadFile(Path("User.zmi")), "");
}

TEST_F(Accounts, EditsFollowTheCaseRulesAndStayInTheCallersList) {
  CUserArray users;
  M()->Load(users);
  EXPECT_TRUE(M()->Add(User("Operator1"), users));
  EXPECT_FALSE(M()->Add(User("OPERATOR1", "other"), users));
  EXPECT_FALSE(M()->Add(User("admin"), users));
  EXPECT_EQ(M()->SearchUser(User("operator1"), users), 1);
  EXPECT_EQ(M()->SearchUser(User("operator"), users), -1);
  for (const char* name : {"Admin", "ADMIN", "aDmIn"}) EXPECT_FALSE(M()->Delete(User(name), users)) << name;
  EXPECT_TRUE(M()->Delete(User("nobody"), users));                                     // TRUE though nothing was found
  for (LONG index : {2, -1}) EXPECT_TRUE(M()->Modify(User("changed"), users, index));  // out of range: nothing
  EXPECT_EQ(FieldText(users[1].szName), "Operator1");
  EXPECT_TRUE(M()->Modify(User("Operator2", "pw", "1"), users, 1));
  EXPECT_EQ(FieldText(users[1].szName), "Operator2");
  EXPECT_TRUE(M()->Delete(User("OPERATOR2"), users));
  EXPECT_EQ(users.size(), 1u);
  CUserArray stored;
  M()->Load(stored);
  EXPECT_EQ(stored.size(), 1u);  // nothing reached the accounts in memory
}

TEST_F(Accounts, TheLogInCheckTakesPlainPasswordsAndDigests) {
  const std::string sixteen = "0123456789abcdef", seventeen = sixteen + "g";
  CUserArray users;
  M()->Load(users);
  users.insert(users.end(), {User("plain", "pw", "2"), User("hashed", PasswordDigest("s3cret").c_str(), "Operator"),
                             User("long16", PasswordDigest(sixteen).c_str(), "supervisor"),
                             User("long17", PasswordDigest(seventeen).c_str(), "1"), User("odd", "x", "7")});
  M()->Save(users);
  struct Case {
    const char* name;
    std::string password;
    BOOL ok;
    UINT level;
  } const cases[] = {
      {"plain", "pw", TRUE, 2},
      {"PLAIN", "pw", FALSE, 0},  // the name must match exactly
      {"plain", "PW", FALSE, 0},
      {"plain", PasswordDigest("pw"), FALSE, 0},  // a plain stored password is not a digest
      {"hashed", "s3cret", TRUE, 2},              // privilege by its display name
      {"hashed", PasswordDigest("s3cret"), TRUE, 2},
      {"Hashed", "s3cret", FALSE, 0},
      {"long16", sixteen, TRUE, 1},
      {"long17", seventeen, FALSE, 0},  // too long to be digested
      {"odd", "x", TRUE, 3},
      {"Admin", "", TRUE, 0},
  };
  for (const Case& c : cases) {
    UINT level = 77;
    EXPECT_EQ(M()->CheckUserIsExist(c.name, c.password.c_str(), level), c.ok) << c.name << " / " << c.password;
    EXPECT_EQ(level, c.ok ? c.level : 77u) << c.name;
  }
}

TEST_F(Accounts, TheFileIsOwnerOnlyAndSaveDropsEmptyNamesOneAtATime) {
  M();
  const std::string fresh = ReadFile(Path("User.zmi"));
  ASSERT_EQ(fresh.size(), 356u);
  EXPECT_EQ(fresh, Bytes(User("Admin", "", "0", "Built-in administrator account")));
  EXPECT_EQ(Mode(), fs::perms(0600));
  fs::permissions(Path("User.zmi"), fs::perms(0644));

  CUserArray users;
  M()->Save(users);  // nothing to write: the file stays, the accounts in memory go
  EXPECT_EQ(ReadFile(Path("User.zmi")), fresh);
  CUserArray loaded{User("stale")};
  M()->Load(loaded);
  EXPECT_TRUE(loaded.empty());
  CUserArray nameless{User(""), User("")};
  M()->Save(nameless);  // QUIRK(empty-name-scan): the second empty name survives the pass
  EXPECT_EQ(ReadFile(Path("User.zmi")), Bytes(User("")));
  EXPECT_EQ(Mode(), fs::perms(0600));  // replaced whole, owner-only again
  CUserArray mixed{User("a"), User(""), User(""), User("b"), User(""), User("c"), User("")};
  M()->Save(mixed);
  EXPECT_EQ(ReadFile(Path("User.zmi")), Bytes(User("a")) + Bytes(User("")) + Bytes(User("b")) + Bytes(User("c")));
  for (const auto& e : fs::directory_iterator(home()))  // no temporary file left beside it
    EXPECT_EQ(e.path().filename().string().find("User.zmi."), std::string::npos) << e.path();
}

TEST(Digest, TheBlockFunctionMatchesThePublishedVectors) {
  const std::pair<std::string, const char*> vectors[] = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"},
      {"abc", "900150983cd24fb0d6963f7d28e17f72"},
      // Lengths around the padding boundaries.
      {std::string(55, 'a'), "ef1772b6dff9a122358552954ad0df65"},
      {std::string(56, 'a'), "3b0c8ac703f828b04c6c197006d17218"},
      {std::string(64, 'a'), "014842d480b571495a4a0363793f7367"},
  };
  for (const auto& [text, hex] : vectors) {
    char got[33];
    const auto d = Md5(text.data(), text.size(), kMd5StandardWords);
    for (size_t i = 0; i < d.size(); ++i) std::snprintf(got + 2 * i, 3, "%02x", d[i]);
    EXPECT_STREQ(got, hex) << text.size();
  }
}

TEST(Digest, TheAccountDigestIsOurOwnAndEndsAtItsFirstZeroByte) {
  EXPECT_NE(Md5("abc", 3, kAccountDigestWords), Md5("abc", 3, kMd5StandardWords));
  int cut = 0;  // passwords whose digest holds a zero byte: the text stops there
  for (int i = 0; i < 4000 && cut < 3; ++i) {
    const std::string pw = "pw" + std::to_string(i);
    const auto d = Md5(pw.data(), pw.size(), kAccountDigestWords);
    const auto zero = std::find(d.begin(), d.end(), 0);
    ASSERT_EQ(PasswordDigest(pw), std::string(d.begin(), zero)) << pw;
    cut += zero != d.end();
  }
  EXPECT_EQ(cut, 3);
}

}  // namespace
