// What the isolation tests share: paths of the modules and of the probe, and
// a variable of the environment set for one scope.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "base/status.h"
#include "platform/environment.h"
#include "platform/text.h"

namespace zqtest {

inline std::string PluginPath8(const char* name) { return std::string(ZQ_PLUGIN_DIR) + "/" + name + ".so"; }
inline std::u16string PluginPath(const char* name) { return ZqUtf8ToUtf16(PluginPath8(name)); }
inline std::string ProbePath8() { return std::string(ZQ_BINARY_DIR) + "/bin/zqprobe"; }

// Sets (or with null removes) a variable until the end of the scope, then
// puts back what was there.  Only while no other thread reads the
// environment: the plug-ins read it with getenv.
class ScopedVariable {
 public:
  ScopedVariable(const char16_t* name, const char16_t* value) : name_(name) {
    WCHAR old[1024];
    const DWORD n = GetEnvironmentVariableW(name, old, 1024);
    if (n > 0 && n < 1024) {
      old_ = std::u16string(old, n);
    } else if (n == 0 && GetLastError() == ERROR_SUCCESS) {
      old_ = std::u16string();
    }
    EXPECT_TRUE(SetEnvironmentVariableW(name, value));
  }
  ~ScopedVariable() { SetEnvironmentVariableW(name_.c_str(), old_ ? old_->c_str() : nullptr); }
  ScopedVariable(const ScopedVariable&) = delete;
  ScopedVariable& operator=(const ScopedVariable&) = delete;

 private:
  std::u16string name_;
  std::optional<std::u16string> old_;
};

}  // namespace zqtest
