#include "kernel/metric.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "platform/text.h"

namespace {

using Text = std::u16string;

class Metric : public ::testing::Test {
 protected:
  void SetUp() override {
    ZqMetric_DeleteUserMetrics(u"MetricTest", 0);
    ASSERT_EQ(ZqMetric_Open(&h_, u"MetricTest", 0, nullptr), S_OK);
    // A store error still delivers a handle, whose key is null.
    ASSERT_EQ(ZqMetric_OpenAppVersion(&dead_, u"Software\\\\Bad", nullptr),
              static_cast<HRESULT>(0x80070000u | ERROR_BAD_PATHNAME));
    ASSERT_NE(dead_, nullptr);
    ASSERT_EQ(dead_->key, nullptr);
  }
  void TearDown() override {
    ZqMetric_SetDefault(nullptr);
    ZqMetric_Close(dead_);
    ZqMetric_CloseAndDeleteKey(h_);
  }
  HZQMETRIC h_ = nullptr;
  HZQMETRIC dead_ = nullptr;
};

TEST_F(Metric, KeyPathsByVersionAndSubKey) {
  const struct { DWORD version; const char16_t* subKey; const char16_t* path; } kCases[] = {
      {0, nullptr, u"Software\\Ostrand\\App\\Metrics"},
      {0x0A020000, nullptr, u"Software\\Ostrand\\App\\10.2\\Metrics"},
      {0x0A02FFFF, u"", u"Software\\Ostrand\\App\\10.2\\Metrics"},
      {0x01000000, u"Old", u"Software\\Ostrand\\App\\1.0\\Metrics\\Old"},
  };
  for (const auto& c : kCases) {
    HZQMETRIC m = nullptr;
    ASSERT_EQ(ZqMetric_Open(&m, u"App", c.version, c.subKey), S_OK);
    EXPECT_EQ(Text(m->keyPath), c.path) << ZqUtf16ToUtf8(c.path);
    HZQMETRIC sibling = nullptr;
    ASSERT_EQ(ZqMetric_OpenSubKey(&sibling, m, u"New"), S_OK);
    const Text expected = Text(c.path).substr(0, Text(c.path).find(u"\\Metrics")) + u"\\Metrics\\New";
    EXPECT_EQ(Text(sibling->keyPath), expected);
    ZqMetric_Close(sibling);
    ZqMetric_Close(m);
  }
  EXPECT_EQ(ZqMetric_OpenSubKey(nullptr, nullptr, u"x"), E_FAIL);
}

TEST_F(Metric, NumbersMeetByAbsoluteValueAndClipOnlyWhatTheyRead) {
  ASSERT_EQ(ZqSetMetric(h_, -7, 1), S_OK);
  EXPECT_EQ(ZqGetMetric(h_, 7), 1);
  ZqSetMetricString(h_, 6, u"not a number");
  ZqSetMetricBinary(h_, 6, "abcd", 4);  // "B6", not "6"
  const struct { HZQMETRIC* handle; int id, min, max, def; int ex; BOOL boolean; } kCases[] = {
      {&h_, 5, 10, 20, 3, 10, 1},     // missing: the default, clipped
      {&h_, 5, 0, 0, 3, 3, 1},        // min = max: no limits
      {&dead_, 5, 10, 20, 3, 3, 3},   // no key: the default as it is
      {&dead_, 5, 0, 0, 7, 7, 7},
      {&h_, -7, 5, 9, 0, 5, 1},       // a stored 1, clipped up
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(ZqGetMetricEx(*c.handle, c.id, c.min, c.max, c.def), c.ex) << c.id;
    EXPECT_EQ(ZqGetMetricBool(*c.handle, c.id, c.def), c.boolean) << c.id;
  }
  EXPECT_EQ(ZqSetMetric(dead_, 1, 1), E_FAIL);
  EXPECT_EQ(ZqSetMetricUsingName(dead_, u"x", 1), E_FAIL);
  EXPECT_EQ(ZqSetMetricUsingName(h_, u"named", 12), S_OK);
  EXPECT_EQ(ZqGetMetricUsingName(h_, u"named", 0), 12);
  EXPECT_EQ(ZqGetMetricUsingName(h_, u"6", -1), -1);  // wrong type
}

TEST_F(Metric, TheDefaultHandleServesReadsAndNumberWritesOnly) {
  EXPECT_EQ(ZqGetMetricEx(ZQMETRIC_DEFAULT, 3, 0, 0, 42), 42);
  ZqMetric_SetDefault(h_);
  EXPECT_EQ(ZqSetMetric(ZQMETRIC_DEFAULT, 3, 9), S_OK);
  EXPECT_EQ(ZqGetMetric(h_, 3), 9);
  EXPECT_EQ(ZqSetMetricBinary(ZQMETRIC_DEFAULT, 3, "x", 1), E_FAIL);
  EXPECT_EQ(ZqSetMetricString(ZQMETRIC_DEFAULT, 3, u"x"), E_FAIL);
  EXPECT_EQ(ZqSetMetricMultiString(ZQMETRIC_DEFAULT, 3, u"x\0", 3), E_FAIL);
  EXPECT_EQ(ZqSetMetricBinary(nullptr, 3, "x", 1), E_FAIL);
}

TEST_F(Metric, StringsTreatAStoredEmptyTextAsUnset) {
  ZqSetMetricString(h_, 1, u"");
  ZqSetMetricString(h_, 2, u"stored");
  ZqSetMetricMultiString(h_, 3, u"a\0bc\0", 6);
  const struct {
    HZQMETRIC* handle;
    int id;
    bool multi;
    int chars;
    const char16_t* def;
    BOOL keepEmpty;
    int result;
    const char16_t* text;
  } kCases[] = {
      {&h_, 1, false, 16, u"dflt", 0, 4, u"dflt"},
      {&h_, 1, false, 16, u"dflt", 1, 0, u""},
      {&h_, 9, false, 16, nullptr, 0, 0, u""},
      {&h_, 9, false, 3, u"dflt", 1, 2, u"df"},       // the default cut to fit
      {&h_, 2, false, 16, u"dflt", 0, 6, u"stored"},
      {&h_, 2, false, 4, u"dflt", 0, 3, u"dfl"},      // too long to read: unset
      {&dead_, 2, false, 16, u"dflt", 0, 4, u"dflt"},
      {&h_, 3, true, 16, nullptr, 0, 5, u"a"},
  };
  for (const auto& c : kCases) {
    WCHAR out[16];
    std::memset(out, 0x55, sizeof out);
    const int n = c.multi ? ZqGetMetricMultiStringEx(*c.handle, c.id, out, c.chars, c.def, c.keepEmpty)
                          : ZqGetMetricStringEx(*c.handle, c.id, out, c.chars, c.def, c.keepEmpty);
    EXPECT_EQ(n, c.result) << c.id;
    EXPECT_EQ(Text(out), c.text) << c.id;
    EXPECT_EQ(out[c.chars - 1], 0) << c.id;  // zero-filled to the end
  }
}

TEST_F(Metric, BinaryReadsStateWhatTheyGot) {
  ZqSetMetricBinary(h_, 1, "abcdef", 6);
  ZqSetMetric(h_, 2, 5);
  ZqSetMetricString(h_, 3, u"xyz");
  const struct { HZQMETRIC* handle; int id; DWORD size; HRESULT status; DWORD got; const char* bytes; } kCases[] = {
      {&h_, 1, 8, S_OK, 6, "abcdef\0\0"},
      {&h_, 1, 4, ZQ_E_BUFFER_TOO_SMALL, 6, nullptr},
      {&h_, 9, 8, S_FALSE, 0, "\0\0\0\0\0\0\0\0"},
      {&dead_, 1, 8, ZQ_E_NOT_FOUND, 77, nullptr},
  };
  for (const auto& c : kCases) {
    char data[8];
    std::memset(data, 'z', sizeof data);
    DWORD got = 77;
    EXPECT_EQ(ZqGetMetricBinaryEx(*c.handle, c.id, data, c.size, &got), c.status) << c.id;
    EXPECT_EQ(got, c.got) << c.id;
    if (c.bytes) {
      EXPECT_EQ(std::memcmp(data, c.bytes, c.size), 0) << c.id;
    }
  }
  char data[4] = {'z', 'z', 'z', 'z'};
  EXPECT_EQ(ZqGetMetricBinary(h_, 1, data, 4), 0u);  // does not fit: zeroed
  EXPECT_EQ(std::memcmp(data, "\0\0\0\0", 4), 0);
  EXPECT_EQ(ZqGetMetricBinaryEx(h_, 1, data, 4, nullptr), E_INVALIDARG);

  // The any-type read refuses the type it is given, and makes strings safe.
  ZqSetMetricUsingName(h_, u"4", 0);
  HKEY key = h_->key;
  const Text s = u"abcd";
  RegSetValueExW(key, u"4", 0, REG_SZ, reinterpret_cast<const BYTE*>(s.c_str()), 8);  // no terminator
  WCHAR text[8];
  DWORD got = 0;
  EXPECT_EQ(ZqGetMetricAny(h_, 4, REG_SZ, text, 16, &got), ZQ_E_NOT_FOUND);
  EXPECT_EQ(ZqGetMetricAny(h_, 4, REG_DWORD, text, 16, &got), S_OK);
  EXPECT_EQ(got, 8u);
  EXPECT_EQ(Text(text), u"abcd");
  EXPECT_EQ(ZqGetMetricAny(h_, 4, REG_DWORD, text, 8, &got), ZQ_E_BUFFER_TOO_SMALL);
  EXPECT_EQ(got, 10u);
  EXPECT_EQ(Text(text), u"abc");
  EXPECT_EQ(ZqGetMetricAny(h_, 40, REG_DWORD, text, 8, &got), S_OK);
  EXPECT_EQ(got, 8u);
  EXPECT_EQ(ZqGetMetricAny(dead_, 4, REG_DWORD, text, 8, &got), E_UNEXPECTED);
}

TEST_F(Metric, ExistenceAndDeletion) {
  ZqSetMetric(h_, 1, 1);
  ZqSetMetricString(h_, 1, u"s");
  EXPECT_EQ(ZqDoesMetricExist(h_, 1, REG_DWORD), 0);
  EXPECT_EQ(ZqDoesMetricExist(h_, -1, REG_SZ), 0);
  EXPECT_EQ(ZqDoesMetricExist(h_, 1, REG_BINARY), 1);
  EXPECT_EQ(ZqDoesMetricExist(dead_, 1, REG_DWORD), 1);
  EXPECT_EQ(ZqDeleteMetric(h_, 1, REG_DWORD), S_OK);
  EXPECT_EQ(ZqDeleteMetric(h_, 1, REG_DWORD), E_FAIL);
  EXPECT_EQ(ZqDeleteMetric(dead_, 1, REG_DWORD), S_FALSE);
  EXPECT_EQ(ZqDoesMetricExist(h_, 1, REG_SZ), 0);
  WCHAR name[16];
  ZqMetricGetName(-12, REG_DWORD, name);  // not the name numbers are stored under
  EXPECT_EQ(Text(name), u"D12");
}

TEST_F(Metric, TreesGoWithTheirSubKeys) {
  HZQMETRIC a = nullptr, b = nullptr;
  ZqMetric_Open(&a, u"MetricTree", 0x02000000, u"A");
  ZqMetric_OpenSubKey(&b, a, u"B");
  HKEY deep = nullptr;
  RegCreateKeyW(b->key, u"x\\y\\z", &deep);
  RegCloseKey(deep);
  UINT longest = 0;
  EXPECT_EQ(ZqRegGetSubKeyCount(HKEY_CURRENT_USER, u"Software\\Ostrand\\MetricTree\\2.0\\Metrics", &longest), 2u);
  EXPECT_EQ(longest, 2u);
  ZqMetric_Close(a);
  EXPECT_EQ(ZqMetric_CloseAndDeleteKey(b), S_OK);
  EXPECT_EQ(ZqRegGetSubKeyCount(HKEY_CURRENT_USER, u"Software\\Ostrand\\MetricTree\\2.0\\Metrics", nullptr), 1u);
  EXPECT_EQ(ZqMetric_DeleteAll(u"MetricTree", 0x02000000), S_OK);
  HKEY gone = nullptr;
  EXPECT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, u"Software\\Ostrand\\MetricTree\\2.0", 0, KEY_READ, &gone),
            ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(ZqRegDeleteKey(HKEY_CURRENT_USER, u"Software\\Ostrand\\MetricTree\\2.0"), 1);  // missing counts as gone
  EXPECT_EQ(ZqMetric_CloseAndDeleteKey(nullptr), E_FAIL);
}

}  // namespace
