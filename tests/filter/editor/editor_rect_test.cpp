// The size of a plug-in's editor as the filter reports it to a host's page.
// An editor that tells its size only once opened is opened in a temporary
// X11 window; the tests run with no display at all and with an Xvfb server
// of their own, so that neither depends on the machine's desktop.
#include <filesystem>
#include <string>

#include "tests/filter/filter_fixture.h"
#include "platform/process.h"
#include "platform/sync.h"
#include "platform/thread.h"
#include "tests/support/virtual_display.h"

namespace {

using namespace zqtest;

constexpr LONG kEditorId = FourCC("ZqEd");

// The editor plug-in's counters.
struct EditorRecord : PluginRecord {
  EditorRecord() : PluginRecord("zqtest_editor") {}
  unsigned long LastWindow() const { return Call<unsigned long>("zqtest_editor_last_window", -1ul); }
  long long Opens() const { return Call<long long>("zqtest_editor_open_count", -1); }
  long long Closes() const { return Call<long long>("zqtest_editor_close_count", -1); }
};

// DISPLAY as the test wants it.
struct DisplayVariable : ScopedVariable {
  explicit DisplayVariable(const WCHAR* value) : ScopedVariable(u"DISPLAY", value) {}
};

TEST(EditorRect, WithoutADisplayTheSizeStaysUnknownAndTheEditorIsNotOpened) {
  EditorRecord record;
  ASSERT_TRUE(record.loaded());
  DisplayVariable noDisplay(nullptr);
  FilterChain chain(Register("zqtest_editor", kEditorId));
  ASSERT_EQ(chain.made, S_OK);
  const long long opensBefore = record.Opens();

  ZQVSTRECT rect{7, 7, 7, 7};
  EXPECT_EQ(chain.prop->GetEditorRect(&rect), ZQ_E_CREATE_WINDOW);
  EXPECT_EQ(record.Opens(), opensBefore);

  // A display named but not there fails the same way, without ending the
  // process as a default X error handler would.
  DisplayVariable unreachable(u":89.0");
  EXPECT_EQ(chain.prop->GetEditorRect(&rect), ZQ_E_CREATE_WINDOW);
  EXPECT_EQ(record.Opens(), opensBefore);
}

TEST(EditorRect, TheEditorIsMeasuredOnceInATemporaryWindowAndTheSizeKept) {
  if (!std::filesystem::exists("/usr/bin/Xvfb")) GTEST_SKIP() << "needs Xvfb (Debian package \"xvfb\")";
  VirtualDisplay server{73};
  ASSERT_FALSE(server.display.empty()) << "Xvfb did not start";
  DisplayVariable display(ZqUtf8ToUtf16(server.display).c_str());
  EditorRecord record;
  ASSERT_TRUE(record.loaded());
  FilterChain chain(Register("zqtest_editor", kEditorId));
  ASSERT_EQ(chain.made, S_OK);
  EXPECT_FALSE(chain.prop->HasNoEditor());
  const long long opensBefore = record.Opens();
  const long long closesBefore = record.Closes();

  ZQVSTRECT rect{7, 7, 7, 7};
  ASSERT_EQ(chain.prop->GetEditorRect(&rect), S_OK);
  EXPECT_EQ(rect.left, 0);
  EXPECT_EQ(rect.top, 0);
  EXPECT_EQ(rect.right, 320);
  EXPECT_EQ(rect.bottom, 200);
  EXPECT_NE(record.LastWindow(), 0ul);
  EXPECT_EQ(record.Opens(), opensBefore + 1);
  EXPECT_EQ(record.Closes(), closesBefore + 1);

  // Measured once: the next call answers from the kept size, even with the
  // display gone.
  DisplayVariable noDisplay(nullptr);
  ZQVSTRECT again{};
  ASSERT_EQ(chain.prop->GetEditorRect(&again), S_OK);
  EXPECT_EQ(again.right, 320);
  EXPECT_EQ(again.bottom, 200);
  EXPECT_EQ(record.Opens(), opensBefore + 1);
  EXPECT_EQ(record.Closes(), closesBefore + 1);
}

}  // namespace
