// libFuzzer target: any bytes as a print format (UTF-16 after a first byte
// that chooses the buffer's size), printed bounded and unbounded.
//
// What must hold for every format: no fault and no write past the buffer
// (ASan reports one), a terminated text, a bounded text that is the start of
// the unbounded one, and the cut status exactly when it is shorter.
//
// Arguments: every conversion takes one, so a format is cut after 40
// conversions; the call passes 8 doubles (they go in registers) and 80
// pointers to a text that is also a valid 8-bit text, so that any mix of
// conversions reads something harmless.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "base/status.h"
#include "kernel/kernel_init.h"
#include "kernel/printf.h"
#include "platform/module.h"

namespace {

void Check(bool ok) {
  if (!ok) abort();
}

constexpr size_t kConversions = 40;
constexpr size_t kMaxFormat = 4096;
alignas(8) const WCHAR kText[] = u"text";

template <size_t... I>
HRESULT Bounded(WCHAR* dst, UINT size, UINT* written, const WCHAR* format, std::index_sequence<I...>) {
  return ZqCchPrintF(dst, size, written, format, 0.5, -0.0, 1e300, -1234567.891, 1e-300, 3.0, 123456789.0, 7.25,
                     ((void)I, kText)...);
}
template <size_t... I>
int Unbounded(WCHAR* dst, const WCHAR* format, std::index_sequence<I...>) {
  return ZqPrintF(dst, format, 0.5, -0.0, 1e300, -1234567.891, 1e-300, 3.0, 123456789.0, 7.25, ((void)I, kText)...);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // Tokens and locale values as a host has them.
  ZqKernel_EarlyInitialize(GetModuleHandleW(nullptr));
  ZqPrintF_AddToken(u"AppName", u"Fuzz");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const UINT room = 1 + data[0];
  std::vector<WCHAR> format((size - 1) / 2 + 1, 0);
  std::memcpy(format.data(), data + 1, (size - 1) / 2 * sizeof(WCHAR));
  if (format.size() > kMaxFormat) format[kMaxFormat - 1] = 0;
  size_t conversions = 0;
  for (WCHAR& c : format)
    if ((c == u'%' || c == u'$') && ++conversions > kConversions) c = 0;

  constexpr UINT kGuard = 16;
  std::vector<WCHAR> bounded(room + kGuard, WCHAR{0xA5A5});
  UINT written = 0;
  const HRESULT hr = Bounded(bounded.data(), room, &written, format.data(), std::make_index_sequence<80>());
  Check(written < room && bounded[written] == 0);
  for (UINT i = room; i < room + kGuard; ++i) Check(bounded[i] == 0xA5A5);

  // Each conversion writes at most 2048 characters; one buffer serves all
  // runs, as clearing and freeing it would cost more than the print.
  static std::vector<WCHAR> full(kMaxFormat + 2048 * (kConversions + 1));
  const int length = Unbounded(full.data(), format.data(), std::make_index_sequence<80>());
  Check(length >= 0 && static_cast<size_t>(length) < full.size() && full[length] == 0);
  Check(std::memcmp(full.data(), bounded.data(), written * sizeof(WCHAR)) == 0);
  Check((hr == ZQ_E_TEXT_CUT) == (written < static_cast<UINT>(length)));
  Check(hr == ZQ_E_TEXT_CUT || hr == S_OK);
  return 0;
}
