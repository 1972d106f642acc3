// GUID: the 128-bit identifier of classes and interfaces, with its text forms.
//
// The record and the text form "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}" are
// those of the original platform, so identifiers stored by one machine read
// the same on another.
#pragma once

#include "base/status.h"
#include "base/types.h"

#if !defined(_WIN32)

struct GUID {
  uint32_t Data1;
  uint16_t Data2;
  uint16_t Data3;
  uint8_t Data4[8];
};
static_assert(sizeof(GUID) == 16);
static_assert(offsetof(GUID, Data2) == 4 && offsetof(GUID, Data3) == 6 && offsetof(GUID, Data4) == 8);

typedef GUID IID;
typedef GUID CLSID;
typedef const GUID& REFGUID;
typedef const IID& REFIID;
typedef const CLSID& REFCLSID;

constexpr bool IsEqualGUID(REFGUID a, REFGUID b) {
  if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3) return false;
  for (int i = 0; i < 8; ++i)
    if (a.Data4[i] != b.Data4[i]) return false;
  return true;
}
constexpr bool operator==(REFGUID a, REFGUID b) { return IsEqualGUID(a, b); }
constexpr bool IsEqualIID(REFIID a, REFIID b) { return IsEqualGUID(a, b); }
constexpr bool IsEqualCLSID(REFCLSID a, REFCLSID b) { return IsEqualGUID(a, b); }

inline constexpr GUID GUID_NULL = {0, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}};
#define CLSID_NULL GUID_NULL
#define IID_NULL GUID_NULL

// A text that is no identifier in braces.
constexpr HRESULT CO_E_CLASSSTRING = ZqMakeStatus(0x800401F3);

// Writes the braced text form (38 characters and a terminator) into `text`.
// Answers the characters written including the terminator, or 0 when `size`
// (in characters) is below 39.
ZQ_API int StringFromGUID2(REFGUID guid, WCHAR* text, int size);

// Reads the braced text form, hexadecimal digits in either case.  Anything
// else answers CO_E_CLASSSTRING and leaves GUID_NULL in `clsid`.
ZQ_API HRESULT CLSIDFromString(const WCHAR* text, CLSID* clsid);
ZQ_API HRESULT IIDFromString(const WCHAR* text, IID* iid);

#endif  // !_WIN32

// Builds a GUID from its text form at compile time:
//   constexpr GUID kId = ZqGuid("{5B01B6EB-8A9E-4BB6-8F55-7D89E5977BAD}");
// A malformed literal fails to compile.
namespace zq::detail {
constexpr uint32_t HexDigit(char c) {
  return (c >= '0' && c <= '9')   ? uint32_t(c - '0')
         : (c >= 'a' && c <= 'f') ? uint32_t(c - 'a' + 10)
         : (c >= 'A' && c <= 'F') ? uint32_t(c - 'A' + 10)
                                  : throw "not a hexadecimal digit";
}
constexpr uint32_t Hex(const char* s, int digits) {
  uint32_t v = 0;
  for (int i = 0; i < digits; ++i) v = (v << 4) | HexDigit(s[i]);
  return v;
}
}  // namespace zq::detail

template <size_t N>
consteval GUID ZqGuid(const char (&s)[N]) {
  static_assert(N == 39, "a GUID literal is written with braces: {XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}");
  if (s[0] != '{' || s[9] != '-' || s[14] != '-' || s[19] != '-' || s[24] != '-' || s[37] != '}')
    throw "malformed GUID literal";
  using zq::detail::Hex;
  GUID g{};
  g.Data1 = Hex(s + 1, 8);
  g.Data2 = static_cast<uint16_t>(Hex(s + 10, 4));
  g.Data3 = static_cast<uint16_t>(Hex(s + 15, 4));
  g.Data4[0] = static_cast<uint8_t>(Hex(s + 20, 2));
  g.Data4[1] = static_cast<uint8_t>(Hex(s + 22, 2));
  for (int i = 0; i < 6; ++i) g.Data4[2 + i] = static_cast<uint8_t>(Hex(s + 25 + 2 * i, 2));
  return g;
}
