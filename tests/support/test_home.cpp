#include "tests/support/test_home.h"

#include "dravix/base/zfile.h"

#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace dravix::test {

std::string MakeTempFolder(const std::string& prefix) {
  std::string templ = (std::filesystem::temp_directory_path() / (prefix + "XXXXXX")).string();
  if (mkdtemp(templ.data()) == nullptr) ADD_FAILURE() << "mkdtemp failed for " << templ;
  return templ + "/";
}

void RemoveTree(const std::string& path) {
  std::error_code ec;
  std::filesystem::remove_all(path, ec);
}

void TestHome::SetUp() {
  home_ = MakeTempFolder("dravix-test-");
  SetModulePath(home_.c_str());
  const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
  std::string ns = "t";
  ns += std::to_string(getpid());
  ns += '_';
  ns += info != nullptr ? info->name() : "x";
  for (char& c : ns)
    if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
  setenv("DRAVIX_IPC_NAMESPACE", ns.c_str(), 1);
}

void TestHome::TearDown() {
  SetModulePath(nullptr);
  RemoveTree(home_);
}

void TestHome::WriteFile(const std::string& name, const std::string& bytes) const {
  std::ofstream out(Path(name), std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  ASSERT_TRUE(out.good()) << "cannot write " << Path(name);
}

std::string TestHome::ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

}  // namespace dravix::test
