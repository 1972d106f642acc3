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
#include "tests/support/virtual_display.h"
#include "vsthost_fixture.h"

using namespace zqtest;

namespace {

class EditorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!std::filesystem::exists("/usr/bin/Xvfb")) GTEST_SKIP() << "needs Xvfb (Debian package \"xvfb\")";
    ASSERT_FALSE(server_.display.empty()) << "Xvfb did not start";
    ASSERT_TRUE(ZqCreateTemporaryNativeWindow(&window_));
  }
  void TearDown() override { ZqDestroyTemporaryNativeWindow(&window_); }

  VirtualDisplay server_{90, true};
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
