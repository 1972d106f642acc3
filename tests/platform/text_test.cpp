#include <gtest/gtest.h>

#include <string>

#include "platform/text.h"

namespace {

std::u16string FromUtf8(std::string_view s) {
  const int n = MultiByteToWideChar(CP_UTF8, 0, s.data(), static_cast<int>(s.size()), nullptr, 0);
  std::u16string out(static_cast<size_t>(n), u'\0');
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, s.data(), static_cast<int>(s.size()), out.data(), n), n);
  EXPECT_EQ(ZqUtf8ToUtf16(s), out) << "both paths replace alike";
  return out;
}

TEST(Utf8ToUtf16, ValidTextAndSurrogatePairs) {
  EXPECT_EQ(FromUtf8("abc"), u"abc");
  EXPECT_EQ(FromUtf8("\xC3\xA9\xE2\x82\xAC"), u"\u00E9\u20AC");
  EXPECT_EQ(FromUtf8("\xF0\x9F\x8E\xB5"), u"\U0001F3B5");
  EXPECT_EQ(FromUtf8("\xF4\x8F\xBF\xBF"), u"\U0010FFFF");
}

TEST(Utf8ToUtf16, InvalidSequencesAreReplaced) {
  EXPECT_EQ(FromUtf8("\xC0\xAF"), u"\uFFFD\uFFFD") << "overlong form";
  EXPECT_EQ(FromUtf8("\xE0\x80\xAF"), u"\uFFFD\uFFFD\uFFFD") << "overlong three-byte form";
  EXPECT_EQ(FromUtf8("\xED\xA0\x80"), u"\uFFFD\uFFFD\uFFFD") << "encoded surrogate";
  EXPECT_EQ(FromUtf8("\xF4\x90\x80\x80"), u"\uFFFD\uFFFD\uFFFD\uFFFD") << "beyond U+10FFFF";
  EXPECT_EQ(FromUtf8("a\xE2\x82"), u"a\uFFFD") << "truncated at the end: one replacement";
  EXPECT_EQ(FromUtf8("\xE2\x82" "b"), u"\uFFFDb");
  EXPECT_EQ(FromUtf8("\x80\xBF"), u"\uFFFD\uFFFD") << "stray continuation bytes";
  EXPECT_EQ(FromUtf8("\xFF"), u"\uFFFD");
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, "\xC0\xAF", 2, nullptr, 0), 0);
  EXPECT_EQ(GetLastError(), ERROR_NO_UNICODE_TRANSLATION);
}

TEST(Utf8ToUtf16, SizesAndBuffers) {
  WCHAR buf[4] = {u'x', u'x', u'x', u'x'};
  EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "abc", -1, nullptr, 0), 4) << "-1 counts the NUL";
  EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "abc", -1, buf, 4), 4) << "exact fit";
  EXPECT_EQ(std::u16string(buf), u"abc");
  EXPECT_EQ(MultiByteToWideChar(CP_ACP, 0, "abcd", -1, buf, 4), 0);
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  WCHAR guard[3] = {u'x', u'x', u'!'};
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "\xF0\x9F\x8E\xB5\xF0\x9F\x8E\xB5", 8, guard, 2), 0);
  EXPECT_EQ(guard[2], u'!') << "never written beyond the destination";
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "abc", 0, buf, 4), 0);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(MultiByteToWideChar(437, 0, "abc", 3, buf, 4), 0);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(Utf16ToUtf8, LoneSurrogatesAndSizes) {
  const char16_t lone[] = {u'a', 0xD800, u'b', 0xDC00, 0};
  EXPECT_EQ(ZqUtf16ToUtf8(lone), "a\xEF\xBF\xBD" "b\xEF\xBF\xBD");
  char out[16];
  EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, lone, -1, out, sizeof out, nullptr, nullptr), 9);
  EXPECT_STREQ(out, "a\xEF\xBF\xBD" "b\xEF\xBF\xBD");
  EXPECT_EQ(WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, lone, -1, out, 16, nullptr, nullptr), 0);
  EXPECT_EQ(GetLastError(), ERROR_NO_UNICODE_TRANSLATION);
  EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, u"\U0001F3B5", -1, nullptr, 0, nullptr, nullptr), 5);
  EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, u"\U0001F3B5", -1, out, 4, nullptr, nullptr), 0);
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  BOOL used = FALSE;
  EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, u"a", 1, out, 4, nullptr, &used), 0)
      << "UTF-8 takes no default character";
  EXPECT_EQ(ZqUtf8ToUtf16(ZqUtf16ToUtf8(u"\u00E9\U0001F3B5z")), u"\u00E9\U0001F3B5z");
}

TEST(CodePage1252, RoundTripOfEveryByte) {
  char bytes[256];
  for (int i = 0; i < 256; ++i) bytes[i] = static_cast<char>(i);
  WCHAR wide[256];
  ASSERT_EQ(MultiByteToWideChar(1252, 0, bytes, 256, wide, 256), 256);
  EXPECT_EQ(wide[0x80], 0x20AC);
  EXPECT_EQ(wide[0x9F], 0x0178);
  EXPECT_EQ(wide[0x81], 0x0081);
  EXPECT_EQ(wide[0xE9], 0x00E9);
  char back[256];
  BOOL used = TRUE;
  ASSERT_EQ(WideCharToMultiByte(1252, 0, wide, 256, back, 256, nullptr, &used), 256);
  EXPECT_FALSE(used);
  EXPECT_EQ(std::string(back, 256), std::string(bytes, 256));
  EXPECT_EQ(WideCharToMultiByte(1252, 0, u"a\u4E00", 2, back, 4, "#", &used), 2);
  EXPECT_TRUE(used);
  EXPECT_EQ(std::string(back, 2), "a#");
}

TEST(WideStrings, CopyCompareAndCase) {
  WCHAR buf[4];
  lstrcpynW(buf, u"abcdef", 4);
  EXPECT_EQ(std::u16string(buf), u"abc");
  EXPECT_EQ(lstrlenW(nullptr), 0);
  EXPECT_EQ(lstrcmpiW(u"Path", u"pATH"), 0);
  EXPECT_EQ(lstrcmpiW(u"\u00C9t\u00C9", u"\u00E9T\u00E9"), 0);
  EXPECT_EQ(lstrcmpiW(u"\u0416", u"\u0436"), 0);
  EXPECT_LT(lstrcmpiW(u"abc", u"ABCD"), 0);
  EXPECT_GT(lstrcmpiW(u"b", u"A"), 0);
  EXPECT_LT(lstrcmpW(u"B", u"a"), 0) << "ordinal";
  EXPECT_EQ(ZqToUpperW(u'\u00FF'), u'\u0178');
  EXPECT_EQ(ZqToLowerW(u'\u0100'), u'\u0101');
  EXPECT_EQ(ZqToLowerW(u'\u0139'), u'\u013A');
  EXPECT_EQ(ZqToLowerW(u'\u00D7'), u'\u00D7');
  WCHAR cat[8] = u"ab";
  EXPECT_EQ(std::u16string(lstrcatW(cat, u"cd")), u"abcd");
}

}  // namespace
