// A private X server (Xvfb) for the life of the object, on the first free
// display number from `first`, so that editor tests depend on neither the
// machine's desktop nor each other.  `display` (":83") stays empty when no
// server could be started: the test skips then.  With `setDisplay` the
// server is also named by DISPLAY while it lives (what was there comes back).
#pragma once

#include <filesystem>
#include <string>
#include <system_error>

#include "platform/environment.h"
#include "platform/process.h"
#include "platform/sync.h"
#include "platform/text.h"

namespace zqtest {

class VirtualDisplay {
 public:
  explicit VirtualDisplay(int first, bool setDisplay = false) {
    WCHAR old[256] = {};
    const DWORD length = GetEnvironmentVariableW(u"DISPLAY", old, 256);
    if (length > 0 && length < 256) old_ = old;
    for (int number = first; number < first + 16 && display.empty(); ++number) {
      socket_ = "/tmp/.X11-unix/X" + std::to_string(number);
      lock_ = "/tmp/.X" + std::to_string(number) + "-lock";
      if (std::filesystem::exists(socket_) || std::filesystem::exists(lock_)) continue;  // taken
      const std::string name = ":" + std::to_string(number);
      const char* argv[] = {"Xvfb", name.c_str(), "-nolisten", "tcp", "-screen", "0", "640x480x24", nullptr};
      if (!ZqSpawnProcess("/usr/bin/Xvfb", argv, nullptr, 0, &process_, nullptr)) return;
      // Ready once its socket exists; a server that gives up fails the test
      // instead of hanging it.
      for (int wait = 0; wait < 200 && display.empty(); ++wait) {
        if (std::filesystem::exists(socket_)) display = name;
        else if (WaitForSingleObject(process_, 50) == WAIT_OBJECT_0) break;
      }
      if (display.empty()) Stop();
    }
    setDisplay_ = setDisplay && !display.empty();
    if (setDisplay_) SetEnvironmentVariableW(u"DISPLAY", ZqUtf8ToUtf16(display).c_str());
  }
  ~VirtualDisplay() {
    if (setDisplay_) SetEnvironmentVariableW(u"DISPLAY", old_.empty() ? nullptr : old_.c_str());
    Stop();
  }
  VirtualDisplay(const VirtualDisplay&) = delete;
  VirtualDisplay& operator=(const VirtualDisplay&) = delete;

  std::string display;

 private:
  void Stop() {
    if (process_ == nullptr) return;
    TerminateProcess(process_, 0);
    WaitForSingleObject(process_, INFINITE);
    CloseHandle(process_);
    process_ = nullptr;
    // A killed server leaves its socket and lock behind; both were absent
    // before it started, so they are its own.
    std::error_code ignored;
    std::filesystem::remove(socket_, ignored);
    std::filesystem::remove(lock_, ignored);
  }
  HANDLE process_ = nullptr;
  std::string socket_, lock_;
  std::u16string old_;
  bool setDisplay_ = false;
};

}  // namespace zqtest
