// The folder of a path, and the name a preset or bank dialog's answer is
// saved under.
#include <gtest/gtest.h>

#include "aplugins/zqvstwrap/host/zqvstfilenames.h"
#include "platform/text.h"

namespace {

TEST(FileNames, FolderOfAPath) {
  const struct {
    const char16_t* path;
    const char16_t* folder;
  } rows[] = {{u"/usr/lib/vst/zqgain.so", u"/usr/lib/vst/"}, {u"/zqgain.so", u"/"}, {u"zqgain.so", u""},
              {u"plug.ins/", u"plug.ins/"}, {u"", u""}};
  for (const auto& row : rows) EXPECT_EQ(ZqVstFolderOf(row.path), row.folder) << ZqUtf16ToUtf8(row.path);
}

TEST(FileNames, PresetAndBankNamesGetTheirExtension) {
  const struct { const char16_t* chosen; const char16_t* extension; const char16_t* saved; } rows[] = {
      {u"a.", u".fxp", u"a.fxp"},           {u"b", u".fxb", u"b.fxb"},
      {u"c.fxp", u".fxp", u"c.fxp"},        {u"/x/D.FxP", u".fxp", u"/x/D.FxP"},  // without regard to case
      {u"e.fxb", u".fxp", u"e.fxb.fxp"},    {u"f.txt", u".fxb", u"f.txt.fxb"},
      {u"g...", u".fxb", u"g.fxb"},         {u"/my.presets/h", u".fxp", u"/my.presets/h.fxp"},
      {u"/my.fxp/i", u".fxp", u"/my.fxp/i.fxp"},  // the folder's extension is not the name's
      {u"/dots./", u".fxp", u"/dots./.fxp"},
  };
  for (const auto& row : rows)
    EXPECT_EQ(ZqUtf16ToUtf8(ZqVstPresetFileName(row.chosen, row.extension)), ZqUtf16ToUtf8(row.saved))
        << ZqUtf16ToUtf8(row.chosen);
}

}  // namespace
