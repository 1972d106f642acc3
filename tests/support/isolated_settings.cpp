// Every test process gets settings and state folders of its own, before
// main runs: the settings store (ZQ_REGISTRY_DIR) and the XDG folders point
// into a fresh temporary folder that is removed when the process ends.  So
// no test reads or writes the user's real settings, scan logs or caches,
// and tests run side by side never see each other's.  Programs a test
// starts inherit the same folders, and a test binary started by a test
// keeps them.  A test that needs a folder of its own sets the variable again.
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace {

struct IsolatedSettings {
  std::filesystem::path root;

  IsolatedSettings() {
    // A test binary started by a test (a second writer, a child that is
    // killed) inherits its parent's folders and must not make its own.
    if (std::getenv("ZQ_TEST_SETTINGS_ROOT")) return;
    std::string pattern = (std::filesystem::temp_directory_path() / "zqtest-settings-XXXXXX").string();
    if (!mkdtemp(pattern.data())) return;
    root = pattern;
    setenv("ZQ_TEST_SETTINGS_ROOT", root.c_str(), 1);
    const struct {
      const char* variable;
      const char* leaf;
    } kFolders[] = {
        {"ZQ_REGISTRY_DIR", "store"}, {"XDG_CONFIG_HOME", "config"}, {"XDG_STATE_HOME", "state"},
        {"XDG_DATA_HOME", "data"},    {"XDG_CACHE_HOME", "cache"},
    };
    for (const auto& folder : kFolders) {
      const std::filesystem::path path = root / folder.leaf;
      std::error_code ignored;
      std::filesystem::create_directories(path, ignored);
      setenv(folder.variable, path.c_str(), 1);
    }
  }

  ~IsolatedSettings() {
    if (root.empty()) return;
    std::error_code ignored;
    std::filesystem::remove_all(root, ignored);
  }
};

IsolatedSettings g_isolatedSettings;

}  // namespace
