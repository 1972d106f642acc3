// Numbers to text and back: integers, floats, locale layout of digits,
// labelled values, sizes, codes, colours, and the parsers with their
// fallbacks and stops.
#include "kernel/numtext.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "base/status.h"
#include "kernel/printf.h"
#include "tests/kernel/text_locale.h"

namespace {

class NumText : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { locale_ = new ScopedTextLocale(u"en_US.UTF-8"); }
  static void TearDownTestSuite() { delete locale_; }
  static ScopedTextLocale* locale_;
};
ScopedTextLocale* NumText::locale_ = nullptr;

TEST_F(NumText, IntegersWithAndWithoutGrouping) {
  const struct {
    int (*print)(WCHAR*);
    const char* expected;
  } cases[] = {
      {[](WCHAR* t) { return ZqLongToText(-1234, t, TRUE); }, "-1,234"},
      {[](WCHAR* t) { return ZqLongToText(INT_MIN, t, FALSE); }, "-2147483648"},
      {[](WCHAR* t) { return ZqDWordToText(UINT_MAX, t, TRUE); }, "4,294,967,295"},
      {[](WCHAR* t) { return ZqLongLongToText(LLONG_MIN, t, TRUE); }, "-9,223,372,036,854,775,808"},
      {[](WCHAR* t) { return ZqDWordLongToText(ULLONG_MAX, t, FALSE); }, "18446744073709551615"},
      {[](WCHAR* t) { return ZqDWordToText(0, t, TRUE); }, "0"},
  };
  for (const auto& c : cases) {
    WCHAR t[64];
    EXPECT_EQ(c.print(t), static_cast<int>(std::string(c.expected).size()));
    EXPECT_EQ(U8(t), c.expected);
  }

  WCHAR t[64];
  // Bounded: below 2 nothing; a text that does not fit gives 0 and empty.
  const struct { int size; int expected; } bounded[] = {{1, 0}, {2, 1}, {5, 0}, {6, 5}};
  for (const auto& b : bounded) {
    t[0] = u'?';
    EXPECT_EQ(ZqLongToTextN(b.size == 2 ? 7 : 12345, t, b.size, FALSE), b.expected) << b.size;
    if (b.size > 1 && b.expected == 0) {
      EXPECT_EQ(t[0], 0);
    }
  }
}

TEST_F(NumText, DoublesRoundOnTheSinglePrecisionStepAndNeverShowMinusZero) {
  const struct { double value; int decimals; BOOL group; const char* expected; } cases[] = {
      {-0.0004, 3, FALSE, "0.000"}, {-0.0006, 3, FALSE, "-0.001"}, {1.5, 0, FALSE, "2"}, {-1.5, 0, FALSE, "-2"},
      {0.125, 2, FALSE, "0.12"},  // 0.125 + 0.005f stays below 0.13
      {1234.5678, 2, TRUE, "1,234.57"}, {3.07, 2, FALSE, "3.07"}, {1e30, 0, FALSE, "18446744073709551615"},
      {0.5, 12, FALSE, "0.500000000"},  // decimals held to 9
  };
  for (const auto& c : cases) {
    WCHAR t[64];
    EXPECT_EQ(ZqDoubleToText(t, c.value, c.decimals, c.group), static_cast<int>(std::string(c.expected).size()));
    EXPECT_EQ(U8(t), c.expected) << c.value;
  }
  WCHAR small[4];
  EXPECT_EQ(ZqDoubleToTextN(small, 4, 1.25, 2, FALSE), 0);
  EXPECT_EQ(small[0], 0);
}

TEST_F(NumText, DigitsAreLaidOutForTheLocale) {
  enum Form { Grouped, Decimal, GroupDecimal };
  const struct { Form form; const WCHAR* digits; int decimals; const char* expected; } cases[] = {
      // Leading zeros, a prefix and blanks behind stay; what is no number is copied.
      {Grouped, u"1234.6", 0, "1,235"}, {Grouped, u"007", 0, "007"}, {Grouped, u"  -1234567", 0, "  -1,234,567"},
      {Grouped, u"1234  ", 0, "1,234  "}, {Grouped, u"12ab", 0, "12ab"}, {Decimal, u"1234.50", 0, "1234.50"},
      {Decimal, u".5", 0, "0.5"}, {GroupDecimal, u"1234.5", -1, "1,234.5"}, {GroupDecimal, u"5", 3, "5.000"},
      {GroupDecimal, u"999.995", 2, "1,000.00"}, {GroupDecimal, u"-0.004", 2, "0.00"},
  };
  for (const auto& c : cases) {
    WCHAR t[64];
    const int n = c.form == Grouped   ? ZqFormatNumber(c.digits, t, 64)
                  : c.form == Decimal ? ZqFormatDecimalNumber(c.digits, t, 64)
                                      : ZqFormatGroupDecimalNumber(c.digits, t, 64, c.decimals);
    EXPECT_EQ(U8(t), c.expected) << U8(c.digits);
    EXPECT_EQ(n, lstrlenW(t));
  }
  WCHAR t[5];
  EXPECT_EQ(ZqFormatNumber(u"12345", t, 5), 0);
  EXPECT_EQ(t[0], 0);
}

TEST_F(NumText, LabelledValuesSizesAndCodes) {
  EXPECT_EQ(U8(ZqGetLabeledStringFixed(-1234, 2, 0, u" Hz")), "-12.34 Hz");
  EXPECT_EQ(U8(ZqGetLabeledStringFixed(-100, 1, -100, u" Hz")), "-Inf.");
  EXPECT_EQ(U8(ZqGetLabeledStringFixed(-1234, 0, 0, nullptr)), "-1,234");
  EXPECT_EQ(U8(ZqGetLabeledStringFixed(1, 0, 0, u"abcdefghijklmnopqrstuvwxyz")), "1abcdefghijklmnopqrstuv");
  EXPECT_EQ(U8(ZqGetLabeledStringFloat(2.5, 0, 0, nullptr)), "3");
  EXPECT_EQ(U8(ZqGetdBStringFloat(-6.02, 1, -96, TRUE)), "-6.0 dB");
  EXPECT_EQ(U8(ZqGetdBStringFixed(-960, 1, -960, TRUE)), "-Inf.");

  const struct { ULONGLONG size; const char* plain; const char* spaced; const char* words; } sizes[] = {
      {1023, "1023", "1023", "1023 bytes"}, {1536, "1.50KB", "1.50 KB", "1.50 KB"},
      {0xFA000 - 1, "1,000.00KB", "1,000.00 KB", "1,000.00 KB"}, {0xFA000, "1.00MB", "1.00 MB", "1.00 MB"},
      {0x3D090000, "1.00GB", "1.00 GB", "1.00 GB"}, {5000000000000ULL, "4,882.81GB", "4,882.81 GB", "4,882.81 GB"},
  };
  for (const auto& s : sizes) {
    WCHAR t[64];
    ZqGetByteSizeText(s.size, t);
    EXPECT_EQ(U8(t), s.plain);
    ZqGetByteSizeTextWithSpace(s.size, t);
    EXPECT_EQ(U8(t), s.spaced);
    ZqGetByteSizeText2(s.size, t);
    EXPECT_EQ(U8(t), s.words);
  }

  WCHAR code[5];
  EXPECT_EQ(U8(ZqFourCCToString(0x46464952, code)), "RIFF");
  EXPECT_EQ(U8(ZqFourCCToString(0x7F414243, code)), "CBA.");
}

TEST_F(NumText, ColoursBothWays) {
  const struct { COLORREF colour; int form; const char* text; } out[] = {
      {0x302010, 0, "RGB(16,32,48)"}, {0x302010, 1, "#102030"}, {0x302010, 2, "0x00302010"},
      {0, 2, "0x00000000"}, {0x1000000, 0, "0x01000000"},
  };
  for (const auto& c : out) {
    WCHAR t[32];
    EXPECT_EQ(ZqColorrefToText(t, 32, c.colour, c.form), static_cast<int>(std::string(c.text).size()));
    EXPECT_EQ(U8(t), c.text);
  }
  WCHAR t[8];
  int length = -1;
  EXPECT_EQ(ZqColorrefToTextEx(t, 8, &length, 0x302010, 0), ZQ_E_TEXT_CUT);
  EXPECT_EQ(length, 7);

  const struct { const WCHAR* text; COLORREF colour; int stop; } in[] = {
      {u"#102030", 0x302010, 7},   {u" rgb( 1 , 2 ,3 )x", 0x030201, 16}, {u"RGB(300,0,0)", ZQ_COLORREF_INVALID, 0},
      {u"RGB(1,2)", ZQ_COLORREF_INVALID, 0}, {u"0x10", 16, 4},          {u"255", 255, 3},
      {u"#", ZQ_COLORREF_INVALID, 0}, {u"zz", ZQ_COLORREF_INVALID, 0},
  };
  for (const auto& c : in) {
    LPCWSTR end = nullptr;
    EXPECT_EQ(ZqTextToColorrefToken(c.text, &end), c.colour) << U8(c.text);
    EXPECT_EQ(end - c.text, c.stop) << U8(c.text);
  }
  EXPECT_EQ(ZqTextToColorrefTokenEx(u"0xFFFFFFFF", 5, nullptr), 5u);
  EXPECT_EQ(ZqTextToColorrefTokenEx(u"zz", 5, nullptr), ZQ_COLORREF_INVALID);
}

TEST_F(NumText, ParsersStopWhereTheNumberEnds) {
  const struct { const WCHAR* text; long long dword, dwordLong, lng, longLong; int stop; } cases[] = {
      {u" 1,234.9x", 1234, 1234, 1234, 1234, 8},
      {u"-5", 0, 0, -5, -5, 2},
      {u"99999999999", UINT_MAX, 99999999999LL, INT_MAX, 99999999999LL, 11},
      {u"-99999999999", 0, 0, INT_MIN, -99999999999LL, 12},
      {u"abc", 0, 0, 0, 0, 0},
      {u"12.7", 12, 12, 12, 12, 4},
  };
  for (const auto& c : cases) {
    LPCWSTR end[4] = {};
    EXPECT_EQ(ZqTextToDWordToken(c.text, &end[0]), static_cast<DWORD>(c.dword)) << U8(c.text);
    EXPECT_EQ(ZqTextToDWordLongToken(c.text, &end[1]), static_cast<ULONGLONG>(c.dwordLong)) << U8(c.text);
    EXPECT_EQ(ZqTextToLongToken(c.text, &end[2]), c.lng) << U8(c.text);
    EXPECT_EQ(ZqTextToLongLongToken(c.text, &end[3]), c.longLong) << U8(c.text);
    for (LPCWSTR e : end) EXPECT_EQ(e - c.text, c.stop) << U8(c.text);
  }
  LPCWSTR end = nullptr;
  EXPECT_EQ(ZqTextToLongLongToken(u"-9223372036854775808", nullptr), LLONG_MIN);
  EXPECT_EQ(ZqHexToDWordToken(u" 0xFFz", &end), 0xFFu);
  EXPECT_EQ(*end, u'z');
  EXPECT_EQ(ZqHexToDWordToken(u"123456789", nullptr), 0x23456789u);
  EXPECT_EQ(ZqHexToDWordLongToken(u"0X123456789abcdef0", nullptr), 0x123456789ABCDEF0ull);
  EXPECT_DOUBLE_EQ(ZqTextToDoubleToken(u"1,234.5", &end, TRUE), 1234.5);
  EXPECT_DOUBLE_EQ(ZqTextToDoubleToken(u"-.25e", &end, FALSE), -0.25);
  EXPECT_EQ(*end, u'e');
}

TEST_F(NumText, ExFormsTakeTheFallbackOnlyWithoutANumberAndClip) {
  const struct { const WCHAR* text; long long expected; } cases[] = {
      // "abc" takes the fallback 7, clipped; a 0 before a blank or the end is a number.
      {u"abc", 5}, {u"0", 0}, {u"0 ", 0}, {u"9", 5}, {u"", 0}, {u"1x", 1},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(ZqTextToDWordTokenEx(c.text, 7, 0, 5, nullptr), static_cast<DWORD>(c.expected)) << U8(c.text);
    EXPECT_EQ(ZqTextToLongTokenEx(c.text, 7, 0, 5, nullptr), c.expected) << U8(c.text);
    EXPECT_EQ(ZqTextToDWordLongTokenEx(c.text, 7, 0, 0, 0, 5, 0, nullptr), static_cast<ULONGLONG>(c.expected));
    EXPECT_DOUBLE_EQ(ZqTextToDoubleTokenEx(c.text, 7, 0, 5, nullptr, TRUE), static_cast<double>(c.expected));
  }
  EXPECT_EQ(ZqHexToDWordTokenEx(u"g", 7, 0, 100, nullptr), 7u);
  // These two read 32-bit values, as their callers have always had.
  EXPECT_EQ(ZqTextToLongLongTokenEx(u"5000000000", 0, INT_MIN, INT_MAX, nullptr), INT_MAX);
  EXPECT_EQ(ZqHexToDWordLongTokenEx(u"1FFFFFFFF", 0, 0, UINT_MAX, nullptr), 0xFFFFFFFFull);
}

TEST(NumTextGerman, ParsersAndLayoutFollowTheLocale) {
  ScopedTextLocale german(u"de_DE.UTF-8");
  WCHAR t[64];
  ZqFormatGroupDecimalNumber(u"-1234567.5", t, 64, -1);
  EXPECT_EQ(U8(t), "-1.234.567,5");
  ZqDoubleToText(t, 1234.5, 2, TRUE);
  EXPECT_EQ(U8(t), "1.234,50");
  LPCWSTR end = nullptr;
  EXPECT_DOUBLE_EQ(ZqTextToDoubleToken(u"1.234,5", &end, TRUE), 1234.5);
  EXPECT_DOUBLE_EQ(ZqTextToDoubleToken(u"1,234.5", &end, FALSE), 1234.5);
  EXPECT_EQ(ZqTextToDWordToken(u"1.234,9", &end), 1234u);
}

}  // namespace
