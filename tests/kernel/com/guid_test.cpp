#include "kernel/com/guid.h"

#include <gtest/gtest.h>

#include <string>

namespace {

constexpr GUID kMapper = ZqGuid("{5B01B6EB-8A9E-4BB6-8F55-7D89E5977BAD}");

std::u16string Text(const GUID& g) {
  WCHAR buf[39];
  EXPECT_EQ(StringFromGUID2(g, buf, 39), 39);
  return buf;
}

TEST(Guid, LiteralTextAndParsedFormsAgree) {
  EXPECT_EQ(kMapper.Data1, 0x5B01B6EBu);
  EXPECT_EQ(kMapper.Data3, 0x4BB6);
  EXPECT_EQ(kMapper.Data4[7], 0xAD);
  EXPECT_EQ(Text(kMapper), u"{5B01B6EB-8A9E-4BB6-8F55-7D89E5977BAD}");
  CLSID id{};
  ASSERT_EQ(CLSIDFromString(u"{5b01b6eb-8a9e-4bb6-8f55-7d89e5977bad}", &id), S_OK);
  EXPECT_EQ(id, kMapper);
  GUID odd{0xFFFFFFFF, 0x0001, 0xFFFE, {0, 1, 2, 3, 0xFC, 0xFD, 0xFE, 0xFF}};
  ASSERT_EQ(CLSIDFromString(Text(odd).c_str(), &id), S_OK);
  EXPECT_EQ(id, odd);
  WCHAR buf[39];
  buf[0] = u'x';
  EXPECT_EQ(StringFromGUID2(kMapper, buf, 38), 0);
  EXPECT_EQ(buf[0], u'x') << "nothing is written when the buffer is short";
}

TEST(Guid, RefusesMalformedTextAndLeavesNull) {
  const char16_t* bad[] = {
      u"",
      u"5B01B6EB-8A9E-4BB6-8F55-7D89E5977BAD",     // no braces
      u"{5B01B6EB-8A9E-4BB6-8F55-7D89E5977BAD}x",  // trailing text
      u"{5B01B6EB-8A9E-4BB6-8F557D89E5977BAD}",    // missing dash
      u"{5B01B6EG-8A9E-4BB6-8F55-7D89E5977BAD}",   // not hexadecimal
      u"{5B01B6E-B8A9E-4BB6-8F55-7D89E5977BAD}",   // dash in the wrong place
      u"{5B01B6EB-8A9E-4BB6-8F55-7D89E5977BA}",    // short
      nullptr,
  };
  for (const char16_t* text : bad) {
    CLSID id = kMapper;
    EXPECT_EQ(CLSIDFromString(text, &id), CO_E_CLASSSTRING);
    EXPECT_EQ(id, GUID_NULL);
  }
  CLSID id = kMapper;
  EXPECT_EQ(IIDFromString(u"nonsense", &id), E_INVALIDARG);
}

}  // namespace
