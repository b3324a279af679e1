// Test isolation: each test gets its own program folder and IPC namespace.
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace dravix::test {

// A fresh temporary program folder (with trailing '/'), made the library's
// program folder; DRAVIX_IPC_NAMESPACE is set to a name unique to the
// test. The folder is removed at the end of the test.
class TestHome : public ::testing::Test {
 public:
  // The whole content of a file ("" when missing).
  static std::string ReadFile(const std::string& path);

 protected:
  void SetUp() override;
  void TearDown() override;

  // home() + name.
  std::string Path(const std::string& name) const { return home_ + name; }
  const std::string& home() const { return home_; }

  // Writes `bytes` to home() + name, creating or replacing it.
  void WriteFile(const std::string& name, const std::string& bytes) const;

 private:
  std::string home_;
};

// A unique temporary folder with a trailing '/', not removed automatically.
std::string MakeTempFolder(const std::string& prefix);
void RemoveTree(const std::string& path);

}  // namespace dravix::test
