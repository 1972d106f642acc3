// The kernel's internal printing: see kformat.h.
#include "kernel/kformat.h"

#include <vector>

#include "kernel/log.h"
#include "platform/text.h"

int ZqKernelFormatV(WCHAR* dst, int size, const WCHAR* format, va_list args) {
  if (!dst || size < 1) return 0;
  dst[0] = 0;
  if (!format) return 0;
  // UTF-8 takes at most 3 bytes per UTF-16 unit (4 per surrogate pair).
  std::vector<char> utf8(static_cast<size_t>(size) * 3 + 1);
  const size_t bytes = ZqLogFormatV(utf8.data(), utf8.size(), format, args);
  if (bytes == 0) return 0;
  std::u16string wide = ZqUtf8ToUtf16(std::string_view(utf8.data(), bytes));
  size_t n = std::min(wide.size(), static_cast<size_t>(size - 1));
  // Never split a surrogate pair.
  if (n > 0 && n < wide.size() && wide[n - 1] >= 0xD800 && wide[n - 1] < 0xDC00) --n;
  wide.copy(dst, n);
  dst[n] = 0;
  return static_cast<int>(n);
}

int ZqKernelFormat(WCHAR* dst, int size, const WCHAR* format, ...) {
  va_list args;
  va_start(args, format);
  const int n = ZqKernelFormatV(dst, size, format, args);
  va_end(args);
  return n;
}

int ZqKernelCopy(WCHAR* dst, int size, const WCHAR* src) {
  if (!dst || size < 1) return 0;
  int n = 0;
  if (src)
    while (n < size - 1 && src[n]) {
      dst[n] = src[n];
      ++n;
    }
  dst[n] = 0;
  return n;
}

bool ZqKernelIsFormat(const WCHAR* format) {
  for (; format && *format; ++format)
    if (*format == u'%' || *format == u'$') return true;
  return false;
}
