// The account manager over real language databases: the default account,
// the editing rules, the log-in check and the user file.
#include "dravix/config/istring.h"
#include "dravix/config/lang_ids.h"
#include "dravix/users/iaccountmgr.h"
#include "dravix/users/password_digest.h"
#include "tests/support/lang_files.h"
#include "tests/support/test_home.h"

#include <filesystem>
#include <string>

namespace {

using dravix::users::FieldText;
using dravix::users::SetField;

tagDSADDUSER User(const char* name, const char* password = "", const char* privilege = "3", const char* text = "") {
  tagDSADDUSER u{};
  SetField(u.szName, name);
  SetField(u.szPasswords, password);
  SetField(u.szPrivilegeLeve, privilege);
  SetField(u.szDescriptin, text);
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
  std::filesystem::perms Mode() {
    return std::filesystem::status(Path("User.zmi")).permissions() & std::filesystem::perms::mask;
  }
  IAccountMgr* M() { return IAccountMgr::Instance(); }
};

TEST_F(Accounts, AMissingFileIsCreatedWithTheDefaultAccount) {
  M();
  const std::string file = ReadFile(Path("User.zmi"));
  ASSERT_EQ(file.size(), 356u);
  EXPECT_EQ(file, Bytes(User("Admin", "", "0", "Built-in administrator account")));
  EXPECT_EQ(Mode(), std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
  UINT level = 9;
  EXPECT_TRUE(M()->CheckUserIsExist("Admin", "", level));
  EXPECT_EQ(level, 0u);
}

TEST_F(Accounts, AnExistingFileIsReadRecordByRecord) {
  // Two whole records and a short third one, cut inside its password.
  const std::string third = Bytes(User("carol", "c3-secret", "2")).substr(0, 36);
  WriteFile("User.zmi", Bytes(User("ann", "a1", "1")) + Bytes(User("bob", "b2", "2")) + third);
  CUserArray users{User("stale")};
  M()->Load(users);
  ASSERT_EQ(users.size(), 3u);
  EXPECT_EQ(FieldText(users[1].szName), "bob");
  EXPECT_EQ(FieldText(users[2].szName), "carol");
  EXPECT_EQ(FieldText(users[2].szPasswords), "c3-s");
  EXPECT_EQ(FieldText(users[2].szPrivilegeLeve), "");

  // An empty file is an empty list, not a missing one.
  WriteFile("User.zmi", "");
  EXPECT_TRUE(M()->InitUser());
  M()->Load(users);
  EXPECT_TRUE(users.empty());
  EXPECT_EQ(ReadFile(Path("User.zmi")), "");
}

TEST_F(Accounts, EditsFollowTheCaseRules) {
  CUserArray users;
  M()->Load(users);
  EXPECT_TRUE(M()->Add(User("Operator1"), users));
  EXPECT_FALSE(M()->Add(User("OPERATOR1", "other"), users));  // same name in another case
  EXPECT_FALSE(M()->Add(User("admin"), users));
  ASSERT_EQ(users.size(), 2u);
  EXPECT_EQ(M()->SearchUser(User("operator1"), users), 1);
  EXPECT_EQ(M()->SearchUser(User("operator"), users), -1);

  for (const char* name : {"Admin", "ADMIN", "aDmIn"}) EXPECT_FALSE(M()->Delete(User(name), users)) << name;
  EXPECT_TRUE(M()->Delete(User("nobody"), users));  // TRUE though nothing was found
  EXPECT_EQ(users.size(), 2u);

  EXPECT_TRUE(M()->Modify(User("changed"), users, 2));  // index == count: nothing
  EXPECT_TRUE(M()->Modify(User("changed"), users, -1));
  EXPECT_EQ(FieldText(users[1].szName), "Operator1");
  EXPECT_TRUE(M()->Modify(User("Operator2", "pw", "1"), users, 1));
  EXPECT_EQ(FieldText(users[1].szName), "Operator2");
  EXPECT_EQ(users.size(), 2u);

  EXPECT_TRUE(M()->Delete(User("OPERATOR2"), users));
  ASSERT_EQ(users.size(), 1u);
  // Nothing reached the file or the accounts in memory.
  CUserArray stored;
  M()->Load(stored);
  EXPECT_EQ(stored.size(), 1u);
  EXPECT_EQ(ReadFile(Path("User.zmi")).size(), 356u);
}

TEST_F(Accounts, TheLogInCheckTakesPlainPasswordsAndDigests) {
  const std::string digest = dravix::users::PasswordDigest("s3cret");
  ASSERT_FALSE(digest.empty());
  const std::string sixteen = "0123456789abcdef";
  const std::string seventeen = sixteen + "g";
  CUserArray users;
  M()->Load(users);
  ASSERT_TRUE(M()->Add(User("plain", "pw", "2"), users));
  ASSERT_TRUE(M()->Add(User("hashed", digest.c_str(), "Operator"), users));
  ASSERT_TRUE(M()->Add(User("long16", dravix::users::PasswordDigest(sixteen).c_str(), "supervisor"), users));
  ASSERT_TRUE(M()->Add(User("long17", dravix::users::PasswordDigest(seventeen).c_str(), "1"), users));
  ASSERT_TRUE(M()->Add(User("odd", "x", "7"), users));
  ASSERT_TRUE(M()->Add(User("guest", "g", "GUEST"), users));
  M()->Save(users);

  struct Case {
    const char* name;
    std::string password;
    BOOL ok;
    UINT level;
  };
  const Case cases[] = {
      {"plain", "pw", TRUE, 2},
      {"PLAIN", "pw", FALSE, 0},  // the name must match exactly
      {"plain", "PW", FALSE, 0},
      {"plain", dravix::users::PasswordDigest("pw"), FALSE, 0},  // a plain stored password is not a digest
      {"hashed", "s3cret", TRUE, 2},                             // privilege by its display name
      {"hashed", digest, TRUE, 2},                               // the stored text itself matches too
      {"Hashed", "s3cret", FALSE, 0},
      {"hashed", "S3cret", FALSE, 0},
      {"long16", sixteen, TRUE, 1},
      {"long17", seventeen, FALSE, 0},  // too long to be digested
      {"odd", "x", TRUE, 3},
      {"guest", "g", TRUE, 3},
      {"Admin", "", TRUE, 0},
      {"nobody", "", FALSE, 0},
  };
  for (const Case& c : cases) {
    UINT level = 77;
    EXPECT_EQ(M()->CheckUserIsExist(c.name, c.password.c_str(), level), c.ok) << c.name << " / " << c.password;
    EXPECT_EQ(level, c.ok ? c.level : 77u) << c.name;
  }
}

TEST_F(Accounts, SaveDropsEmptyNamesOneAtATimeAndKeepsTheFileWhenNothingRemains) {
  M();
  const std::string before = ReadFile(Path("User.zmi"));
  CUserArray empty;
  M()->Save(empty);
  EXPECT_EQ(ReadFile(Path("User.zmi")), before);
  CUserArray users{User("kept")};
  M()->Load(users);
  EXPECT_TRUE(users.empty());

  CUserArray nameless{User(""), User("")};
  M()->Save(nameless);  // the second empty name survives the pass
  EXPECT_EQ(ReadFile(Path("User.zmi")), Bytes(User("")));

  CUserArray mixed{User("a"), User(""), User(""), User("b"), User(""), User("c"), User("")};
  M()->Save(mixed);
  EXPECT_EQ(ReadFile(Path("User.zmi")), Bytes(User("a")) + Bytes(User("")) + Bytes(User("b")) + Bytes(User("c")));
  M()->Load(users);
  EXPECT_EQ(users.size(), 4u);
}

TEST_F(Accounts, TheFileIsOwnerOnlyEvenWhenItWasNot) {
  WriteFile("User.zmi", Bytes(User("Admin", "", "0")));
  std::filesystem::permissions(Path("User.zmi"), std::filesystem::perms(0644));
  CUserArray users;
  M()->Load(users);
  ASSERT_TRUE(M()->Add(User("op", "pw", "2"), users));
  M()->Save(users);
  EXPECT_EQ(Mode(), std::filesystem::perms(0600));
  EXPECT_EQ(ReadFile(Path("User.zmi")).size(), 712u);
  // No temporary file is left beside it.
  int files = 0;
  for (const auto& e : std::filesystem::directory_iterator(home()))
    if (e.path().filename().string().rfind("User", 0) == 0) ++files;
  EXPECT_EQ(files, 1);
}

}  // namespace
