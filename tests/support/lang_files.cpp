#include "tests/support/lang_files.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

namespace dravix::test {

std::string BuiltLangFolder() {
  // ctest names the build folder; a test binary run by hand sits in
  // <build>/tests.
  if (const char* dir = std::getenv("DRAVIX_TEST_BINARY_DIR"); dir != nullptr && *dir != '\0')
    return std::string(dir) + "/lang/";
  std::error_code ec;
  const auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  return (exe.parent_path().parent_path() / "lang").string() + "/";
}

void IsolateOdbc(const std::string& folder) { setenv("ODBCINI", (folder + "odbc.ini").c_str(), 1); }

void InstallLangDatabases(const std::string& folder) {
  IsolateOdbc(folder);
  for (const char* name : {"LiveMultiLang.mdb", "PlayerMultiLang.mdb"}) {
    std::error_code ec;
    std::filesystem::copy_file(BuiltLangFolder() + name, folder + name,
                               std::filesystem::copy_options::overwrite_existing, ec);
    ASSERT_FALSE(ec) << "cannot copy " << BuiltLangFolder() << name << " to " << folder << ": " << ec.message();
  }
}

}  // namespace dravix::test
