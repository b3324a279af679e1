// A hostile "User.zmi": loading it must not crash or hang, the log-in check
// and the edits must cope with unterminated texts, and what is saved loads
// again as the same accounts (less the dropped empty names).
#include "dravix/base/zfile.h"
#include "dravix/users/iaccountmgr.h"
#include "fuzz/fuzz_home.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

namespace {

const std::string& Home() {
  static const std::string home = [] {
    std::string folder = dravix::fuzz::MakeFuzzHome("users");
    dravix::users::SetAccountStringSource(
        [](UINT id) { return id == 7103 ? std::string("Admin") : "L" + std::to_string(id); });
    return folder;
  }();
  return home;
}

std::string Text(const char* field, size_t n) { return std::string(field, strnlen(field, n)); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string file = Home() + dravix::users::kUserFileName;
  dravix::fuzz::WriteFuzzInput(file, data, size);

  IAccountMgr* m = IAccountMgr::Instance();
  m->InitUser();
  CUserArray users;
  m->Load(users);
  if (users.size() != (size + sizeof(tagDSADDUSER) - 1) / sizeof(tagDSADDUSER)) std::abort();

  UINT level = 0;
  for (const tagDSADDUSER& u : users) {
    const std::string name = Text(u.szName, sizeof(u.szName));
    const std::string pw = Text(u.szPasswords, sizeof(u.szPasswords));
    if (!m->CheckUserIsExist(name.c_str(), pw.c_str(), level)) std::abort();
    if (level > 3) std::abort();
    m->CheckUserIsExist(name.c_str(), "guess", level);
  }
  if (!users.empty()) {
    m->Modify(users.back(), users, 0);
    m->Add(users.front(), users);
    m->Delete(users.front(), users);
  }

  m->Save(users);
  CUserArray saved;
  m->Load(saved);
  m->InitUser();
  CUserArray reread;
  m->Load(reread);
  if (!saved.empty()) {
    if (reread.size() != saved.size()) std::abort();
    if (std::memcmp(reread.data(), saved.data(), saved.size() * sizeof(tagDSADDUSER)) != 0) std::abort();
  }
  // libFuzzer may end without running exit handlers: leave no file behind.
  std::remove(file.c_str());
  return 0;
}
