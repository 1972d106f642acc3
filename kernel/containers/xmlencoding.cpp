#include "kernel/containers/xmlencoding.h"

#include <array>
#include <new>

#include "kernel/com/object.h"
#include "kernel/memory.h"
#include "platform/text.h"

namespace {

constexpr UINT kSingleBytePage = 1252;

constexpr std::array<BYTE, 128> MakeAsciiClasses() {
  std::array<BYTE, 128> t{};
  for (int c = 0; c < 128; ++c) {
    BYTE k = 0;
    if (c == '\t' || c == '\n' || c == '\r' || c == ' ') k = 1;
    else if (c >= '0' && c <= '9') k = 18;
    else if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '.' || c == '_') k = 26;
    else {
      switch (c) {
        case '!': k = 4; break;
        case '"': k = 5; break;
        case '#': k = 6; break;
        case '$': case '@': case '\\': case '^': case '`': case '{': case '|': case '}': case '~': case 0x7F:
          k = 7;
          break;
        case '%': k = 8; break;
        case '&': k = 9; break;
        case '\'': k = 10; break;
        case '(': k = 11; break;
        case ')': k = 12; break;
        case '*': k = 13; break;
        case '+': k = 14; break;
        case ',': k = 15; break;
        case '-': k = 16; break;
        case '/': k = 17; break;
        case ':': k = 19; break;
        case ';': k = 20; break;
        case '<': k = 21; break;
        case '=': k = 22; break;
        case '>': k = 23; break;
        case '?': k = 24; break;
        case '[': k = 27; break;
        case ']': k = 28; break;
        default: k = 0; break;
      }
    }
    t[static_cast<size_t>(c)] = k;
  }
  return t;
}
constexpr std::array<BYTE, 128> kAsciiClass = MakeAsciiClasses();
static_assert(kAsciiClass['<'] == ZQXML_CLASS_LT && kAsciiClass['_'] == ZQXML_CLASS_NAME);
static_assert(kAsciiClass[0x7F] == 7 && kAsciiClass[0x1F] == ZQXML_CLASS_CONTROL);

// The 256 characters of the single-byte page, converted once.
const WCHAR* SingleBytePage() {
  static const std::array<WCHAR, 256> page = [] {
    std::array<char, 256> bytes;
    std::array<WCHAR, 256> wide{};
    for (int i = 0; i < 256; ++i) bytes[static_cast<size_t>(i)] = static_cast<char>(i);
    MultiByteToWideChar(kSingleBytePage, 0, bytes.data(), 256, wide.data(), 256);
    return wide;
  }();
  return page.data();
}

// Position, size and the character walk; `Derived` says how wide a character
// is and how to read one.
template <class Derived>
class ZqXMLEncodingUtf : public ZqComObject<Derived, IZqXMLEncoding> {
 public:
  static void* operator new(size_t size, const std::nothrow_t&) noexcept { return ZqMemory_AllocZ(size); }
  static void operator delete(void* block) noexcept { ZqMemory_Free(block); }
  static void operator delete(void* block, const std::nothrow_t&) noexcept { ZqMemory_Free(block); }

  ZqXMLEncodingUtf(const BYTE* data, ULONGLONG size) : m_data(data), m_size(size) {}

  BOOL STDMETHODCALLTYPE AtEnd() override { return Left() < Derived::kUnit; }
  BOOL STDMETHODCALLTYPE Advance() override {
    const BOOL end = AtEnd();
    if (!end) m_position += Derived::kUnit;
    return end;
  }
  INT STDMETHODCALLTYPE CharClass() override {
    return AtEnd() ? ZQXML_CLASS_END : Derived::ClassAt(m_data + m_position);
  }
  INT STDMETHODCALLTYPE Match(LPCWSTR text, BOOL matchCase) override {
    if (text == nullptr) return 1;
    typename Derived::Unit units[64];
    const int n = Derived::Encode(text, units, 64);
    if (n < 0 || static_cast<ULONGLONG>(n) * Derived::kUnit > Left()) return 1;
    for (int i = 0; i < n; ++i) {
      const WCHAR have = Derived::Wide(Derived::UnitAt(m_data + m_position + static_cast<ULONGLONG>(i) * Derived::kUnit));
      const WCHAR want = Derived::Wide(units[i]);
      if (have != want && (matchCase || ZqToLowerW(have) != ZqToLowerW(want))) return 1;
    }
    m_position += static_cast<ULONGLONG>(n) * Derived::kUnit;
    return 0;
  }
  INT STDMETHODCALLTYPE ReadUntil(LPWSTR buffer, INT capacity, LPCWSTR delimiters) override {
    typename Derived::Unit stops[64];
    const int stopCount = delimiters ? Derived::Encode(delimiters, stops, 64) : 0;
    ULONGLONG p = m_position;
    ULONGLONG count = 0;
    while (m_size - p >= Derived::kUnit) {
      const auto u = Derived::UnitAt(m_data + p);
      bool stop = false;
      for (int i = 0; i < stopCount && !stop; ++i) stop = stops[i] == u;
      if (stop) break;
      p += Derived::kUnit;
      ++count;
    }
    if (buffer != nullptr) {
      if (capacity > 0) {
        const ULONGLONG copy = count < static_cast<ULONGLONG>(capacity - 1) ? count : static_cast<ULONGLONG>(capacity - 1);
        for (ULONGLONG i = 0; i < copy; ++i)
          buffer[i] = Derived::Wide(Derived::UnitAt(m_data + m_position + i * Derived::kUnit));
        buffer[copy] = 0;
      }
      m_position = p;
    }
    return count > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<INT>(count);
  }

 protected:
  ULONGLONG Left() const { return m_size - m_position; }

  const BYTE* m_data;
  ULONGLONG m_size;
  ULONGLONG m_position = 0;
};

class ZqXMLEncodingUtf8 final : public ZqXMLEncodingUtf<ZqXMLEncodingUtf8> {
 public:
  using Unit = BYTE;
  static constexpr ULONGLONG kUnit = 1;
  using ZqXMLEncodingUtf::ZqXMLEncodingUtf;

  static Unit UnitAt(const BYTE* p) { return *p; }
  static WCHAR Wide(Unit u) { return SingleBytePage()[u]; }
  static INT ClassAt(const BYTE* p) { return *p < 128 ? kAsciiClass[*p] : ZQXML_CLASS_CONTROL; }
  // Texts to find go through the page as the data does; -1 when too long.
  static int Encode(LPCWSTR text, Unit* out, int room) {
    const int chars = lstrlenW(text);
    if (chars == 0) return 0;
    if (chars > room) return -1;
    return WideCharToMultiByte(kSingleBytePage, 0, text, chars, reinterpret_cast<char*>(out), room, nullptr,
                               nullptr);
  }
};

class ZqXMLEncodingUtf16 final : public ZqXMLEncodingUtf<ZqXMLEncodingUtf16> {
 public:
  using Unit = WCHAR;
  static constexpr ULONGLONG kUnit = 2;
  ZqXMLEncodingUtf16(const BYTE* data, ULONGLONG size) : ZqXMLEncodingUtf(data, size) { m_position = 2; }

  static Unit UnitAt(const BYTE* p) { return static_cast<WCHAR>(p[0] | p[1] << 8); }
  static WCHAR Wide(Unit u) { return u; }
  static INT ClassAt(const BYTE* p) { return ZqXmlCharClass16(UnitAt(p)); }
  static int Encode(LPCWSTR text, Unit* out, int room) {
    int n = 0;
    for (; text[n]; ++n) {
      if (n == room) return -1;
      out[n] = text[n];
    }
    return n;
  }
};

}  // namespace

INT ZqXmlCharClass16(WCHAR c) { return c < 128 ? kAsciiClass[c] : ZQXML_CLASS_NAME; }

HRESULT GetEncodingInterface(const void* data, ULONGLONG size, IZqXMLEncoding** encoding) {
  if (encoding == nullptr || (data == nullptr && size != 0)) return E_INVALIDARG;
  *encoding = nullptr;
  const BYTE* bytes = static_cast<const BYTE*>(data);
  IZqXMLEncoding* made = nullptr;
  if (size >= 2 && bytes[0] == 0xFF && bytes[1] == 0xFE)
    made = new (std::nothrow) ZqXMLEncodingUtf16(bytes, size);
  else
    made = new (std::nothrow) ZqXMLEncodingUtf8(bytes, size);
  if (made == nullptr) return E_OUTOFMEMORY;
  *encoding = made;
  return S_OK;
}
