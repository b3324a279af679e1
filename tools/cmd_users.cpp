// `dravix users`: the operator accounts of "User.zmi" (list, add, modify,
// delete) and the log-in check. Passwords are read from the terminal
// without echo, or from standard input with --password-stdin, never from
// the command line; they are stored as their digest string.
#include "dravix/base/zfile.h"
#include "dravix/config/lang_ids.h"
#include "dravix/platform/file_io.h"
#include "dravix/platform/nocase.h"
#include "dravix/platform/secret_input.h"
#include "dravix/users/iaccountmgr.h"
#include "dravix/users/password_digest.h"
#include "tools/command.h"
#include "tools/edit.h"
#include "tools/interface_lang.h"
#include "tools/table.h"

#include <nlohmann/json.hpp>

#include <cstring>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

namespace dravix::cli {
namespace {

struct Options {
  std::string name;
  std::string privilege;
  std::string description;
  bool passwordStdin = false;
  bool newPassword = false;
  bool descriptionSet = false;
  bool force = false;
};

Options& Opts() {
  static Options o;
  return o;
}

std::string UserFile() { return GetModulePath() + users::kUserFileName; }

// Fails when nothing can name the default account of a folder without
// "User.zmi" (its name comes from the language database).
void NeedDefaultNames() {
  if (users::AccountString(lang::kDefaultUserName).empty())
    throw Failure("no " + UserFile() + " yet, and no language database in " + GetModulePath() +
                  " to name the default account: run `dravix lang install --home " + GetModulePath() + "` first");
}

// The accounts as they are on disk, read without writing anything: a
// folder without "User.zmi" shows the default account and says so. An
// existing file that cannot be read is a failure.
CUserArray ReadAccounts() {
  const std::optional<std::string> bytes = ReadIfExists(UserFile());
  if (bytes) return users::ParseUserFile(bytes->data(), bytes->size());
  NeedDefaultNames();
  std::cerr << "dravix: " << UserFile() << " does not exist yet; this is the default account\n";
  return users::DefaultUserList();
}

// The manager for an edit: the folder's edit lock is held from here to the
// end of the command, and a file that exists but cannot be read stops the
// edit before anything is written.
IAccountMgr* EditAccounts() {
  static std::unique_ptr<FileEdit> edit;
  edit = std::make_unique<FileEdit>(UserFile());
  if (!edit->Read()) NeedDefaultNames();
  return IAccountMgr::Instance();
}

// Refuses a change that leaves no account of privilege 0, which alone may
// manage the others, unless --force.
void KeepAnAdministrator(const CUserArray& list) {
  if (Opts().force) return;
  for (const tagDSADDUSER& u : list)
    if (u.szName[0] != '\0' && users::PrivilegeLevel(users::FieldText(u.szPrivilegeLeve)) == 0) return;
  throw Failure("this would leave no account of privilege 0 to manage the others; nothing changed (--force to do it)");
}

// Saves `list` and checks that the file now holds it.
void SaveAccounts(IAccountMgr* m, CUserArray& list) {
  platform::SetLastFileError(0);
  m->Save(list);
  CUserArray want;
  m->Load(want);
  const std::optional<std::string> bytes = ReadIfExists(UserFile());
  const bool saved = bytes && bytes->size() == want.size() * sizeof(tagDSADDUSER) &&
                     std::memcmp(bytes->data(), want.data(), bytes->size()) == 0;
  if (!saved) {
    const int err = platform::LastFileError();
    throw Failure(UserFile() + " was not saved" + (err != 0 ? ": " + platform::FileErrorText(err) : std::string()));
  }
}

std::string PrivilegeName(UINT level) { return users::AccountString(lang::kPrivilegeNameBase + level); }

// A level given as a digit or a display name, in English or in the
// language of the interface texts (case ignored); stored as the digit.
std::string ParsePrivilege(const std::string& text) {
  std::string accepted;
  for (UINT i = 0; i < static_cast<UINT>(lang::kPrivilegeLevelCount); ++i) {
    if (text == std::to_string(i)) return text;
    std::string names;
    for (const std::string& name : {LangText("ENG", lang::kPrivilegeNameBase + i), PrivilegeName(i)}) {
      if (name.empty() || (!names.empty() && EqualNoCase(names, name))) continue;
      if (EqualNoCase(text, name)) return std::to_string(i);
      names += (names.empty() ? "" : " or ") + name;
    }
    accepted += (accepted.empty() ? "" : ", ") + std::to_string(i) + (names.empty() ? "" : " (" + names + ")");
  }
  throw UsageError("unknown privilege \"" + text + "\": give a level or its name, case ignored: " + accepted +
                   "; 0 is the highest");
}

// Reads a password: one line of standard input with --password-stdin,
// else from the terminal without echo (twice when `confirm`).
std::string ReadPassword(const std::string& prompt, bool confirm) {
  std::string pw;
  if (Opts().passwordStdin) {
    if (!std::getline(std::cin, pw)) throw Failure("no password on standard input");
    if (!pw.empty() && pw.back() == '\r') pw.pop_back();
    return pw;
  }
  if (!platform::StdinIsTerminal())
    throw UsageError("standard input is not a terminal: pass the password there with --password-stdin");
  if (!platform::ReadSecretLine((prompt + ": ").c_str(), &pw)) throw Failure("no password was entered");
  if (confirm) {
    std::string again;
    if (!platform::ReadSecretLine("Again: ", &again) || again != pw) throw Failure("the two passwords differ");
  }
  return pw;
}

// What the file keeps for a new password: its digest string, so the file
// holds no password in plain text.
std::string StoredPassword(const std::string& pw) {
  if (pw.empty()) return pw;
  if (pw.size() > 16) throw UsageError("a password has at most 16 characters");
  const std::string digest = users::PasswordDigest(pw);
  if (digest.empty()) throw Failure("this password cannot be stored as a digest; choose another");
  return digest;
}

tagDSADDUSER Find(IAccountMgr* m, CUserArray& list, LONG* index) {
  tagDSADDUSER key{};
  users::SetField(key.szName, Opts().name);
  *index = m->SearchUser(key, list);
  if (*index < 0)
    throw Failure("no account named \"" + Opts().name + "\" in " + GetModulePath() + users::kUserFileName);
  return list[static_cast<size_t>(*index)];
}

void CheckName(const std::string& name) {
  if (name.empty()) throw UsageError("an account needs a name");
  if (name.size() > 31) throw UsageError("a name has at most 31 bytes");
}

nlohmann::ordered_json JsonText(std::string_view text) {
  std::string safe(text);
  nlohmann::ordered_json j = safe;
  try {
    (void)j.dump();
  } catch (const nlohmann::json::exception&) {
    for (char& c : safe)
      if (static_cast<unsigned char>(c) >= 0x80) c = '?';
    j = safe;
  }
  return j;
}

int List() {
  const CUserArray list = ReadAccounts();
  if (Globals().json) {
    auto out = nlohmann::ordered_json::array();
    for (size_t i = 0; i < list.size(); ++i) {
      const tagDSADDUSER& u = list[i];
      const UINT level = users::PrivilegeLevel(users::FieldText(u.szPrivilegeLeve));
      out.push_back({{"index", i},
                     {"name", JsonText(users::FieldText(u.szName))},
                     {"privilege", level},
                     {"privilege_name", JsonText(PrivilegeName(level))},
                     {"password", users::FieldText(u.szPasswords).empty() ? "empty" : "set"},
                     {"description", JsonText(users::FieldText(u.szDescriptin))}});
    }
    std::cout << out.dump(2) << "\n";
    return kExitOk;
  }
  Table t({"index", "name", "privilege", "privilege name", "password", "description"});
  for (size_t i = 0; i < list.size(); ++i) {
    const tagDSADDUSER& u = list[i];
    const UINT level = users::PrivilegeLevel(users::FieldText(u.szPrivilegeLeve));
    t.Add({std::to_string(i), std::string(users::FieldText(u.szName)), std::to_string(level), PrivilegeName(level),
           users::FieldText(u.szPasswords).empty() ? "empty" : "set", std::string(users::FieldText(u.szDescriptin))});
  }
  t.Print(std::cout);
  return kExitOk;
}

int Add() {
  const Options& o = Opts();
  CheckName(o.name);
  IAccountMgr* m = EditAccounts();
  tagDSADDUSER u{};
  users::SetField(u.szName, o.name);
  users::SetField(u.szPrivilegeLeve, ParsePrivilege(o.privilege.empty() ? "3" : o.privilege));
  users::SetField(u.szDescriptin, o.description);
  CUserArray list;
  m->Load(list);
  if (m->SearchUser(u, list) >= 0)
    throw Failure("an account named \"" + o.name + "\" exists already (names ignore case)");
  users::SetField(u.szPasswords, StoredPassword(ReadPassword("Password for " + o.name, true)));
  m->Add(u, list);
  SaveAccounts(m, list);
  std::cout << "added " << o.name << " (privilege " << users::FieldText(u.szPrivilegeLeve) << ")\n";
  return kExitOk;
}

int Modify() {
  const Options& o = Opts();
  if (o.privilege.empty() && !o.descriptionSet && !o.newPassword && !o.passwordStdin)
    throw UsageError("nothing to change: give --privilege, --description or --password");
  IAccountMgr* m = EditAccounts();
  CUserArray list;
  m->Load(list);
  LONG index = 0;
  tagDSADDUSER u = Find(m, list, &index);
  if (!o.privilege.empty()) users::SetField(u.szPrivilegeLeve, ParsePrivilege(o.privilege));
  if (o.descriptionSet) users::SetField(u.szDescriptin, o.description);
  if (o.newPassword || o.passwordStdin)
    users::SetField(u.szPasswords, StoredPassword(ReadPassword("New password for " + o.name, true)));
  m->Modify(u, list, index);
  KeepAnAdministrator(list);
  SaveAccounts(m, list);
  std::cout << "modified " << users::FieldText(u.szName) << "\n";
  return kExitOk;
}

int Delete() {
  IAccountMgr* m = EditAccounts();
  CUserArray list;
  m->Load(list);
  LONG index = 0;
  const tagDSADDUSER u = Find(m, list, &index);
  if (!m->Delete(u, list)) throw Failure("\"" + Opts().name + "\" is the default account, which cannot be deleted");
  KeepAnAdministrator(list);
  SaveAccounts(m, list);
  std::cout << "deleted " << users::FieldText(u.szName) << "\n";
  return kExitOk;
}

// A predicate: the answer on standard output and in the exit status (0
// accepted, 1 refused); an error that keeps it from answering prints
// nothing on standard output.
int Check() {
  ReadAccounts();  // a file that cannot be read is a failure, not an empty list
  IAccountMgr* m = IAccountMgr::Instance();
  const std::string pw = ReadPassword("Password for " + Opts().name, false);
  UINT level = 0;
  const bool accepted = m->CheckUserIsExist(Opts().name.c_str(), pw.c_str(), level) != 0;
  if (Globals().json) {
    nlohmann::ordered_json j{{"name", JsonText(Opts().name)}, {"accepted", accepted}};
    j["privilege"] = accepted ? nlohmann::ordered_json(level) : nlohmann::ordered_json(nullptr);
    j["privilege_name"] = accepted ? JsonText(PrivilegeName(level)) : nlohmann::ordered_json(nullptr);
    std::cout << j.dump(2) << "\n";
  } else if (accepted) {
    std::cout << Opts().name << ": log-in accepted, privilege " << level << " (" << PrivilegeName(level) << ")\n";
  } else {
    std::cout << Opts().name << ": log-in refused (no such account, or another password)\n";
  }
  return accepted ? kExitOk : kExitFailure;
}

void Register(CLI::App& app) {
  Options& o = Opts();
  CLI::App* users = AddCommand(&app, "users", "Operator accounts (\"User.zmi\") and the log-in check");
  users->require_subcommand(1);
  CLI::App* list = AddCommand(users, "list", "List the accounts", List);
  AddJsonFlag(list);
  AddLangOption(list);

  CLI::App* add = AddCommand(users, "add", "Add an account; the password is asked for", Add);
  add->add_option("NAME", o.name, "User name")->required();
  add->add_option("-p,--privilege", o.privilege, "0 (highest) to 3, or a level's name (default 3)");
  add->add_option("-d,--description", o.description, "Description");
  add->add_flag("--password-stdin", o.passwordStdin, "Read the password from standard input (one line)");
  AddLangOption(add);
  AllowCreateHome(add);
  add->footer(
      "Examples:\n"
      "  dravix users add guard1 -p 2 -d 'Night shift'      # asks for the password twice\n"
      "  printf '%s\\n' \"$PW\" | dravix users add ops -p 1 --password-stdin\n"
      "Levels: 0 (highest, may manage the others) to 3; `dravix users list` shows their names.");

  CLI::App* modify = AddCommand(users, "modify", "Change an account's privilege, description or password", Modify);
  modify->add_option("NAME", o.name, "User name (any letter case)")->required();
  modify->add_option("-p,--privilege", o.privilege, "0 (highest) to 3, or a level's name");
  modify->add_option("-d,--description", o.description, "Description")->each([&o](const std::string&) {
    o.descriptionSet = true;
  });
  modify->add_flag("--password", o.newPassword, "Set a new password (asked for)");
  modify->add_flag("--password-stdin", o.passwordStdin, "Set a new password read from standard input");
  modify->add_flag("--force", o.force, "Allow leaving no account of privilege 0");
  AddLangOption(modify);

  CLI::App* del = AddCommand(users, "delete", "Delete an account (never the default one)", Delete);
  del->add_option("NAME", o.name, "User name (any letter case)")->required();
  del->add_flag("--force", o.force, "Allow leaving no account of privilege 0");
  AddLangOption(del);

  CLI::App* check = AddCommand(users, "check", "Check a log-in; prints the privilege level", Check);
  check->add_option("NAME", o.name, "User name (exact letter case)")->required();
  check->add_flag("--password-stdin", o.passwordStdin, "Read the password from standard input (one line)");
  AddJsonFlag(check);
  AddLangOption(check);
  check->footer(
      "A predicate: exits 0 when the log-in is accepted and 1 when it is refused, with the answer on\n"
      "standard output; when it cannot check (the accounts cannot be read) it prints nothing there,\n"
      "says why on standard error and exits 1.");
}

const Registration reg{50, Register};

}  // namespace
}  // namespace dravix::cli
