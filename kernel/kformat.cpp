// The kernel's internal printing: see kformat.h.
#include "kernel/kformat.h"

#include "kernel/printf.h"

int ZqKernelFormatV(WCHAR* dst, int size, const WCHAR* format, va_list args) {
  if (!dst || size < 1) return 0;
  dst[0] = 0;
  if (!format) return 0;
  UINT written = 0;
  ZqNVPrintF(dst, static_cast<UINT>(size), &written, format, args);
  return static_cast<int>(written);
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
