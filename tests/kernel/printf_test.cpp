// The kernel's printf: every form in an English and a German locale, tokens,
// bounded prints at every size, and numbered inserts.
#include "kernel/printf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>

#include "base/status.h"
#include "tests/kernel/text_locale.h"

namespace {

template <typename... A>
std::string Print(const WCHAR* format, A... args) {
  WCHAR buffer[1024];
  const int n = ZqPrintF(buffer, format, args...);
  EXPECT_EQ(n, lstrlenW(buffer)) << U8(format);
  return U8(buffer);
}

class PrintF : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { locale_ = new ScopedTextLocale(u"en_US.UTF-8"); }
  static void TearDownTestSuite() { delete locale_; }
  static ScopedTextLocale* locale_;
};
ScopedTextLocale* PrintF::locale_ = nullptr;

TEST_F(PrintF, FormsWithoutArguments) {
  const struct { const WCHAR* format; const char* expected; } cases[] = {
      {u"$$ %%", "$ %"}, {u"$(100000.5)", "100,000.5"}, {u"$(-1234.5)", "-1,234.5"},
      {u"$(1,000)", "1,000"}, {u"$(12 x", "$(12 x"}, {u"$(NoSuchToken)", "$(NoSuchToken)"}, {u"$(open", "$(open"},
      {u"[$*][$,][$:]", "[.][,][:]"}, {u"$!:|$!.|$!,|$!x", ":|.|,|x"}, {u"$&:|$&.", ".|."},
      {u"$(SMPTE.Label.Drop)", "hr:mn:sc,fr"}, {u"$(smpte.label.nondrop.full)", "hours:minutes:seconds.frames"},
      {u"$(MusicTime.Label)", "ms.bt.tk"}, {u"%q and more", "%q and more"}, {u"tail $", "tail $"},
  };
  for (const auto& c : cases) EXPECT_EQ(Print(c.format), c.expected) << U8(c.format);
}

TEST_F(PrintF, IntegerForms) {
  // 32-bit forms receive an int; "I64" forms a long long.
  const struct { const WCHAR* format; long long value; const char* expected; } cases[] = {
      {u"$d", -1234, "-1,234"}, {u"%d", 1234567, "1234567"}, {u"$u", 4000000000LL, "4,000,000,000"},
      {u"$i", -2147483647LL - 1, "-2,147,483,648"}, {u"$8d|", 1234, "    1,234|"}, {u"%-5d|", 42, "42   |"},
      {u"%05d", -42, "-0042"}, {u"%+d % d", 5, "+5  5"}, {u"%.3d", 7, "007"}, {u"%x %X", 255, "ff FF"},
      {u"%#x %#o", 255, "0xff 0377"}, {u"%I64d", 1LL << 40, "1099511627776"},
      {u"$I64d", -(1LL << 40), "-1,099,511,627,776"}, {u"%I64x", 0x123456789LL, "123456789"},
      {u"%ld %hd", 5, "5 5"}, {u"$.1z", 1234, "123.4"}, {u"$.1z", 5, "0.5"}, {u"%.2z", -5, "-0.05"},
      {u"$z", 1234567, "1,234,567"},
      {u"%5.2.1d", 1, "%5.2.1d"},  // not understood: copied, its argument still taken
  };
  for (const auto& c : cases) {
    const bool wide = std::u16string_view(c.format).find(u"I64") != std::u16string_view::npos;
    const int narrow = static_cast<int>(c.value);
    EXPECT_EQ(wide ? Print(c.format, c.value, c.value) : Print(c.format, narrow, narrow), c.expected) << U8(c.format);
  }
}

TEST_F(PrintF, FloatForms) {
  const struct { const WCHAR* format; double value; const char* expected; } cases[] = {
      {u"%.2f", 1234.5, "1234.50"}, {u"$.2f", 1234.5, "1,234.50"}, {u"$f", -0.5, "-0.500000"},
      {u"%e", 1234.5, "1.234500e+03"}, {u"$E", 1234.5, "1.234500E+03"}, {u"$g", 0.5, "0.5"}, {u"$g", 1e20, "1e+20"},
      {u"%10.1f|", 2.25, "       2.2|"}, {u"%-8.3e|", 1.0, "1.000e+00|"},
  };
  for (const auto& c : cases) EXPECT_EQ(Print(c.format, c.value), c.expected) << U8(c.format);
}

TEST_F(PrintF, TextForms) {
  const struct { const WCHAR* format; const WCHAR* value; const char* expected; } cases[] = {
      {u"%s", u"abc", "abc"},  {u"$5s", u"abc", "  abc"},  {u"%-5s|", u"abc", "abc  |"},
      {u"%.2s", u"abc", "ab"}, {u"%s", nullptr, "(null)"}, {u"%ls", u"\u00e9", "\xc3\xa9"},
  };
  for (const auto& c : cases) EXPECT_EQ(Print(c.format, c.value), c.expected) << U8(c.format);
  EXPECT_EQ(Print(u"%hs|%c|%3c", "\xc3\xa9t\xc3\xa9", static_cast<int>(u'\u00e9'), 'x'),
            "\xc3\xa9t\xc3\xa9|\xc3\xa9|  x");
}

TEST_F(PrintF, TokensAreAddedReplacedAndDeletedInAnyCase) {
  EXPECT_EQ(Print(u"$(AppName)"), "$(AppName)");
  ASSERT_TRUE(ZqPrintF_AddToken(u"AppName", u"Zq"));
  EXPECT_EQ(Print(u"[$(appname)]"), "[Zq]");
  ASSERT_TRUE(ZqPrintF_AddToken(u"APPNAME", u"Zq 2"));
  EXPECT_EQ(Print(u"$(AppName)"), "Zq 2");
  EXPECT_TRUE(ZqPrintF_DeleteToken(u"appName"));
  EXPECT_FALSE(ZqPrintF_DeleteToken(u"AppName"));
  EXPECT_EQ(Print(u"$(AppName)"), "$(AppName)");
  EXPECT_EQ(Print(u"$(m.b)$(b.t)"), "..");  // the registered ones are untouched
}

TEST_F(PrintF, TokensChangeWhileOtherThreadsPrint) {
  std::atomic<bool> done{false};
  std::thread changer([&] {
    for (int i = 0; i < 2000; ++i) {
      ZqPrintF_AddToken(u"Busy", i % 2 ? u"odd value" : u"even");
      if (i % 7 == 0) ZqPrintF_DeleteToken(u"busy");
    }
    done = true;
  });
  while (!done) {
    const std::string text = Print(u"[$(Busy)]");
    ASSERT_TRUE(text == "[odd value]" || text == "[even]" || text == "[$(Busy)]") << text;
  }
  changer.join();
  ZqPrintF_DeleteToken(u"Busy");
}

// Every form at every size up to its length: nothing is written past the
// size, the text is terminated, it is a leading part of the full text that
// ends between two pieces, and the status says whether it was cut.
template <typename... A>
void ExpectBounded(const WCHAR* format, A... args) {
  WCHAR full[512];
  const UINT length = static_cast<UINT>(ZqPrintF(full, format, args...));
  constexpr UINT kRoom = 600;
  for (UINT size = 1; size <= length + 1; ++size) {
    WCHAR buffer[kRoom];
    std::fill(buffer, buffer + kRoom, WCHAR{0xAAAA});
    UINT written = 999;
    const HRESULT hr = ZqCchPrintF(buffer, size, &written, format, args...);
    SCOPED_TRACE(U8(format) + " size " + std::to_string(size));
    EXPECT_EQ(hr, size > length ? S_OK : ZQ_E_TEXT_CUT);
    ASSERT_LT(written, size);
    EXPECT_EQ(buffer[written], 0);
    EXPECT_EQ(std::u16string(buffer, written), std::u16string(full, written));
    EXPECT_TRUE(std::all_of(buffer + size, buffer + kRoom, [](WCHAR c) { return c == 0xAAAA; }));
  }
}

TEST_F(PrintF, BoundedPrintsNeverPassTheirSize) {
  ExpectBounded(u"a$d b", -1234567);
  ExpectBounded(u"$u", 4000000000u);
  ExpectBounded(u"$I64d", -(1LL << 50));
  ExpectBounded(u"$.2f|$g", 1234567.891, 0.25);
  ExpectBounded(u"$.3z", 1234567);
  ExpectBounded(u"$*$,$:$!:$!.$!,$&:$&.$$");
  ExpectBounded(u"x$(100000.5)y$(SMPTE.Label.NonDrop.Full)z$(Unknown)");
  ExpectBounded(u"$-12s|$c", u"text", 'c');
  ExpectBounded(u"%08.3f %#x %s", 3.5, 255, u"a longer piece of text");
}

TEST_F(PrintF, APieceThatDoesNotFitIsLeftOutWhole) {
  WCHAR buffer[8];
  UINT written = 0;
  EXPECT_EQ(ZqCchPrintF(buffer, 6, &written, u"ab$d", -1234567), ZQ_E_TEXT_CUT);
  EXPECT_EQ(U8(buffer), "ab");
  EXPECT_EQ(ZqCchPrintF(buffer, 8, &written, u"ab$(SMPTE.Label.Drop)"), ZQ_E_TEXT_CUT);
  EXPECT_EQ(U8(buffer), "ab");
  EXPECT_EQ(ZqCchPrintF(buffer, 0, &written, u"x"), E_INVALIDARG);
}

TEST_F(PrintF, NumberedInsertsTakeTheirArgumentsByNumber) {
  const struct { const WCHAR* format; const char* expected; } cases[] = {
      {u"%2 and %1!d!, %2 again", "two and 5, two again"},
      {u"%1!04x!|%1!-4d!|", "0005|5   |"},
      {u"100%% %b%t%n%0 cut", "100%  \t\n"},
      {u"%2!$d!", "two"},  // not a form of one conversion: the argument is read as text
  };
  for (const auto& c : cases) {
    WCHAR buffer[64];
    const int n = ZqComposeStr(buffer, 64, c.format, static_cast<INT_PTR>(5), u"two");
    EXPECT_EQ(U8(buffer), c.expected) << U8(c.format);
    EXPECT_EQ(n, lstrlenW(buffer));
  }
  WCHAR small[4];
  EXPECT_EQ(ZqComposeStr(small, 4, u"ab%1", u"longer"), 0);
  EXPECT_EQ(U8(small), "ab");
}

TEST(PrintFGerman, NumbersTakeTheLocalesSigns) {
  ScopedTextLocale german(u"de_DE.UTF-8");
  EXPECT_EQ(Print(u"$.2f", 1234.5), "1.234,50");
  EXPECT_EQ(Print(u"$d|%d", -1234, -1234), "-1.234|-1234");
  EXPECT_EQ(Print(u"$.1z|%.1z", 12345, 12345), "1.234,5|1234,5");
  EXPECT_EQ(Print(u"$g|%g", 0.5, 0.5), "0,5|0.5");
  EXPECT_EQ(Print(u"$(100000.5)"), "100.000,5");
  EXPECT_EQ(Print(u"[$*][$,]"), "[,][;]");
}

}  // namespace
