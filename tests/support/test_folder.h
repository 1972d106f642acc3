// A folder of the running test's own under the system's temporary folder:
// empty at the start, removed with everything in it at the end.  Its name
// carries the test's name, so that tests run side by side never share one.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <system_error>

namespace zqtest {

class TestFolder {
 public:
  // `prefix` tells the suites apart; `name` tells folders of one test apart.
  explicit TestFolder(const std::string& prefix, const std::string& name = std::string()) {
    std::string leaf = prefix;
    if (const auto* info = ::testing::UnitTest::GetInstance()->current_test_info())
      leaf += std::string(info->test_suite_name()) + "_" + info->name();
    if (!name.empty()) leaf += "_" + name;
    for (char& c : leaf)
      if (c == '/') c = '_';
    path_ = std::filesystem::temp_directory_path() / leaf;
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
    std::filesystem::create_directories(path_);
  }
  ~TestFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace zqtest
