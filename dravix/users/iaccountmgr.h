// IAccountMgr: the recorder's operator accounts and the log-in check.
//
// The accounts live in "User.zmi" in the program folder: 356-byte
// tagDSADDUSER records one after another, nothing else. When the file is
// missing the first use creates it with the default account (name, the
// privilege name of level 0 and description from language strings 7103,
// 7107 and 7111; empty password), which Delete never removes.
//
// Add, Modify and Delete edit the caller's copy of the list (from Load);
// nothing reaches the file until Save. Privilege levels are 0 (highest) to
// 3; a record holds its level as one digit, and a level's display name
// (strings 7107..7110) is accepted too.
//
// A stored password is the plain text or its digest string
// (dravix/users/password_digest.h); CheckUserIsExist accepts either and
// never converts one into the other.
//
// Not thread-safe: use it from one thread.
#pragma once

#include "dravix/config/adduser.h"
#include "dravix/platform/wintypes.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

using CUserArray = std::vector<tagDSADDUSER>;

class IAccountMgr {
 public:
  static IAccountMgr* Instance();
  virtual ~IAccountMgr();
  IAccountMgr(const IAccountMgr&) = delete;
  IAccountMgr& operator=(const IAccountMgr&) = delete;

  // Reads "User.zmi" into memory (a short last record is zero-filled), or
  // creates the default account and writes it when the file is missing.
  // Always TRUE.
  BOOL InitUser();
  // Replaces the caller's list with a copy of the accounts in memory.
  void Load(CUserArray& users);
  // Takes a copy of the caller's list as the accounts and writes the file.
  // Records with an empty name are dropped on the way (see WriteFile); an
  // empty list clears the accounts but leaves the file as it was.
  void Save(CUserArray& users);
  // Appends `user` unless its name is already in the list (ignoring case):
  // then FALSE and nothing changes.
  BOOL Add(tagDSADDUSER user, CUserArray& users);
  // Replaces the element at `index`. An index outside the list changes
  // nothing; TRUE either way.
  BOOL Modify(tagDSADDUSER user, CUserArray& users, LONG index);
  // FALSE for the default account's name (any letter case); otherwise
  // removes the first element of that name, if any, and returns TRUE.
  BOOL Delete(tagDSADDUSER user, CUserArray& users);
  // The index of the first element whose name equals user's ignoring case,
  // or -1.
  LONG SearchUser(tagDSADDUSER user, CUserArray& users);
  // The log-in check: TRUE and `level` set when an account has exactly this
  // name and this password, or exactly this name and the digest string of
  // this password (of 1 to 16 characters). FALSE, `level` untouched,
  // otherwise.
  BOOL CheckUserIsExist(const char* name, const char* password, UINT& level);

 private:
  IAccountMgr();
  // The level of a privilege text: the first level whose display name or
  // digit the text equals (ignoring case); 3 for anything else.
  UINT CheckPriority(const char* text);
  void InitNotExist();
  // Drops empty-named records, then replaces the file (mode 0600) with the
  // rest. FALSE, leaving the file as it was, when none remains or the write
  // fails.
  BOOL WriteFile();

  static std::unique_ptr<IAccountMgr> sm_inst;
  CUserArray m_users;
};

namespace dravix::users {

inline constexpr const char* kUserFileName = "User.zmi";
inline constexpr unsigned kUserFileMode = 0600;

// The accounts of a program folder without "User.zmi": the default
// administrator, named from the language strings.
CUserArray DefaultUserList();

// The records of a user file's bytes: one per started 356 bytes, the last
// zero-filled when short.
CUserArray ParseUserFile(const void* data, size_t size);

// A text field up to its first zero byte (or its whole size).
template <size_t N>
std::string_view FieldText(const char (&field)[N]) {
  size_t n = 0;
  while (n < N && field[n] != '\0') ++n;
  return std::string_view(field, n);
}
// Copies `text` into a field, cut to leave room for the terminating zero.
template <size_t N>
void SetField(char (&field)[N], std::string_view text) {
  const size_t n = text.size() < N - 1 ? text.size() : N - 1;
  for (size_t i = 0; i < N; ++i) field[i] = i < n ? text[i] : '\0';
}
// The level a privilege text stands for (see IAccountMgr::CheckPriority).
UINT PrivilegeLevel(std::string_view text);

// The language string `id` the accounts use, through IString unless a
// source was set (a tool or a test without a language database); an empty
// function returns to IString.
std::string AccountString(UINT id);
void SetAccountStringSource(std::function<std::string(UINT)> source);

}  // namespace dravix::users
