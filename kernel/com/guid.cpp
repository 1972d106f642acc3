#include "kernel/com/guid.h"

namespace {

constexpr char16_t kHex[] = u"0123456789ABCDEF";

WCHAR* PutHex(WCHAR* out, uint32_t value, int digits) {
  for (int i = digits - 1; i >= 0; --i) {
    out[i] = kHex[value & 0xF];
    value >>= 4;
  }
  return out + digits;
}

int HexValue(WCHAR c) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  return -1;
}

// Reads exactly `digits` hexadecimal digits; false on anything else.
bool GetHex(const WCHAR*& in, int digits, uint32_t* value) {
  uint32_t v = 0;
  for (int i = 0; i < digits; ++i) {
    int d = HexValue(in[i]);
    if (d < 0) return false;
    v = (v << 4) | static_cast<uint32_t>(d);
  }
  in += digits;
  *value = v;
  return true;
}

bool Expect(const WCHAR*& in, WCHAR c) {
  if (*in != c) return false;
  ++in;
  return true;
}

}  // namespace

int StringFromGUID2(REFGUID guid, WCHAR* text, int size) {
  constexpr int kChars = 39;  // braces, 32 digits, 4 dashes, terminator
  if (text == nullptr || size < kChars) return 0;
  WCHAR* p = text;
  *p++ = u'{';
  p = PutHex(p, guid.Data1, 8);
  *p++ = u'-';
  p = PutHex(p, guid.Data2, 4);
  *p++ = u'-';
  p = PutHex(p, guid.Data3, 4);
  *p++ = u'-';
  p = PutHex(p, guid.Data4[0], 2);
  p = PutHex(p, guid.Data4[1], 2);
  *p++ = u'-';
  for (int i = 2; i < 8; ++i) p = PutHex(p, guid.Data4[i], 2);
  *p++ = u'}';
  *p = 0;
  return kChars;
}

HRESULT CLSIDFromString(const WCHAR* text, CLSID* clsid) {
  if (clsid == nullptr) return E_INVALIDARG;
  *clsid = GUID_NULL;
  if (text == nullptr) return CO_E_CLASSSTRING;
  const WCHAR* in = text;
  GUID g{};
  uint32_t v = 0;
  if (!Expect(in, u'{') || !GetHex(in, 8, &v)) return CO_E_CLASSSTRING;
  g.Data1 = v;
  if (!Expect(in, u'-') || !GetHex(in, 4, &v)) return CO_E_CLASSSTRING;
  g.Data2 = static_cast<uint16_t>(v);
  if (!Expect(in, u'-') || !GetHex(in, 4, &v)) return CO_E_CLASSSTRING;
  g.Data3 = static_cast<uint16_t>(v);
  if (!Expect(in, u'-')) return CO_E_CLASSSTRING;
  for (int i = 0; i < 8; ++i) {
    if (i == 2 && !Expect(in, u'-')) return CO_E_CLASSSTRING;
    if (!GetHex(in, 2, &v)) return CO_E_CLASSSTRING;
    g.Data4[i] = static_cast<uint8_t>(v);
  }
  if (!Expect(in, u'}') || *in != 0) return CO_E_CLASSSTRING;
  *clsid = g;
  return S_OK;
}

HRESULT IIDFromString(const WCHAR* text, IID* iid) {
  HRESULT hr = CLSIDFromString(text, iid);
  return hr == CO_E_CLASSSTRING ? E_INVALIDARG : hr;
}
