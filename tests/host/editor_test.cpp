// A plug-in's editor opened in a temporary X11 window on an Xvfb server of
// the test's own: the editor gets the display connection with its parent
// window, and a real plug-in's editor opens, idles and closes there.  Without
// Xvfb the tests are skipped.
#include <filesystem>
#include <string>

#include "platform/environment.h"
#include "platform/process.h"
#include "platform/sync.h"
#include "platform/x11window.h"
#include "vsthost_fixture.h"

using namespace zqtest;

namespace {

constexpr const char* kXvfb = "/usr/bin/Xvfb";

// A private X server on the first free display number from :83, named by
// DISPLAY for the life of the object (what was there is put back).
class VirtualDisplay {
 public:
  VirtualDisplay() {
    WCHAR old[256] = {};
    const DWORD length = GetEnvironmentVariableW(u"DISPLAY", old, 256);
    if (length > 0 && length < 256) old_ = old;
    for (int number = 83; number < 99 && display.empty(); ++number) {
      socket_ = "/tmp/.X11-unix/X" + std::to_string(number);
      lock_ = "/tmp/.X" + std::to_string(number) + "-lock";
      if (std::filesystem::exists(socket_) || std::filesystem::exists(lock_)) continue;  // taken
      const std::string name = ":" + std::to_string(number);
      const char* argv[] = {"Xvfb", name.c_str(), "-nolisten", "tcp", "-screen", "0", "640x480x24", nullptr};
      if (!ZqSpawnProcess(kXvfb, argv, nullptr, 0, &process_, nullptr)) return;
      // Ready once its socket exists; a server that gives up fails the test.
      for (int wait = 0; wait < 200 && display.empty(); ++wait) {
        if (std::filesystem::exists(socket_)) display = name;
        else if (WaitForSingleObject(process_, 50) == WAIT_OBJECT_0) break;
      }
      if (display.empty()) Stop();
    }
    if (!display.empty()) SetEnvironmentVariableW(u"DISPLAY", ZqUtf8ToUtf16(display).c_str());
  }
  ~VirtualDisplay() {
    SetEnvironmentVariableW(u"DISPLAY", old_.empty() ? nullptr : old_.c_str());
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
    // Both were absent before the server started: they are its own.
    std::error_code ignored;
    std::filesystem::remove(socket_, ignored);
    std::filesystem::remove(lock_, ignored);
  }
  HANDLE process_ = nullptr;
  std::string socket_, lock_;
  std::u16string old_;
};

class EditorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!std::filesystem::exists(kXvfb)) GTEST_SKIP() << "needs Xvfb (Debian package \"xvfb\")";
    ASSERT_FALSE(server_.display.empty()) << "Xvfb did not start";
    ASSERT_TRUE(ZqCreateTemporaryNativeWindow(&window_));
  }
  void TearDown() override { ZqDestroyTemporaryNativeWindow(&window_); }

  VirtualDisplay server_;
  ZqNativeWindow window_{};
};

TEST_F(EditorTest, TheEditorGetsTheDisplayWithItsParentWindow) {
  PluginRecord record("zqtest_editor");
  auto lastWindow = record.Function<unsigned long (*)()>("zqtest_editor_last_window");
  auto lastDisplay = record.Function<int (*)()>("zqtest_editor_last_display");
  ASSERT_TRUE(lastWindow && lastDisplay);
  Loaded effect("zqtest_editor");
  ASSERT_EQ(effect.hr, S_OK);
  ZQVSTRECT rect{};
  ASSERT_EQ(effect->EditOpen(window_.window, &rect), S_OK);
  EXPECT_EQ(lastWindow(), window_.window);
  EXPECT_EQ(lastDisplay(), 1);
  EXPECT_EQ(rect.right, 320);
  EXPECT_EQ(effect->EditClose(), S_OK);
}

TEST_F(EditorTest, ARealPluginsEditorOpensIdlesAndClosesInATemporaryWindow) {
  const char* path = "/usr/lib/lxvst/DragonflyRoomReverb-vst.so";
  if (!std::filesystem::exists(path)) GTEST_SKIP() << path << " is absent; dragonfly-reverb-vst provides it";
  LeakCheckPause pause;
  Loaded effect(ZqUtf8ToUtf16(path), 0);
  ASSERT_EQ(effect.hr, S_OK);
  ASSERT_NE(effect->Effect()->flags & effFlagsHasEditor, 0);
  ZQVSTRECT rect{};
  ASSERT_EQ(effect->EditOpen(window_.window, &rect), S_OK);
  EXPECT_GT(rect.right - rect.left, 0);
  EXPECT_GT(rect.bottom - rect.top, 0);
  for (int i = 0; i < 10; ++i) EXPECT_EQ(effect->EditIdle(), S_OK);
  EXPECT_EQ(effect->EditClose(), S_OK);
  EXPECT_EQ(effect->StateFlags() & ZQVST_STATE_EDITOR_OPEN, 0u);
}

}  // namespace
