#include "kernel/audio/cpu_support.h"

#include <atomic>

#if defined(_MSC_VER)
#include <intrin.h>
#endif

namespace {

DWORD Detect() {
  DWORD w = 0;
#if defined(__x86_64__) || defined(_M_X64) || defined(__i386__) || defined(_M_IX86)
#if defined(_MSC_VER)
  int r[4];
  __cpuid(r, 1);
  const unsigned family = (unsigned(r[0]) >> 8) & 0xF;
  const bool avx = (r[2] >> 28) & 1 && (r[2] >> 27) & 1;
  auto has = [&](int reg, int bit) { return ((unsigned(r[reg]) >> bit) & 1u) != 0; };
  w |= has(3, 23) ? ZQCPU_MMX : 0;
  w |= has(3, 25) ? ZQCPU_SSE : 0;
  w |= has(3, 26) ? ZQCPU_SSE2 : 0;
  w |= has(2, 0) ? ZQCPU_SSE3 : 0;
  w |= has(2, 9) ? ZQCPU_SSSE3 : 0;
  w |= has(2, 19) ? ZQCPU_SSE41 : 0;
  w |= has(2, 20) ? ZQCPU_SSE42 : 0;
  w |= has(3, 15) ? ZQCPU_CMOV | ZQCPU_FCMOV : 0;
  if (avx && (_xgetbv(0) & 6) == 6) {
    w |= ZQCPU_AVX;
    w |= has(2, 12) ? ZQCPU_FMA : 0;
    __cpuidex(r, 7, 0);
    w |= has(1, 5) ? ZQCPU_AVX2 : 0;
    // The mask, upper and high registers saved by the system too.
    if (has(1, 16) && has(1, 17) && has(1, 30) && has(1, 31) && (_xgetbv(0) & 0xE6) == 0xE6) {
      w |= ZQCPU_AVX512;
      w |= has(2, 1) ? ZQCPU_AVX512VBMI : 0;
    }
  }
#else
  __builtin_cpu_init();
  unsigned family = 6;
  w |= __builtin_cpu_supports("mmx") ? ZQCPU_MMX : 0;
  w |= __builtin_cpu_supports("sse") ? ZQCPU_SSE : 0;
  w |= __builtin_cpu_supports("sse2") ? ZQCPU_SSE2 : 0;
  w |= __builtin_cpu_supports("sse3") ? ZQCPU_SSE3 : 0;
  w |= __builtin_cpu_supports("ssse3") ? ZQCPU_SSSE3 : 0;
  w |= __builtin_cpu_supports("sse4.1") ? ZQCPU_SSE41 : 0;
  w |= __builtin_cpu_supports("sse4.2") ? ZQCPU_SSE42 : 0;
  w |= __builtin_cpu_supports("cmov") ? ZQCPU_CMOV | ZQCPU_FCMOV : 0;
  // These answer false unless the system also saves the wide registers.
  w |= __builtin_cpu_supports("avx") ? ZQCPU_AVX : 0;
  w |= __builtin_cpu_supports("avx2") ? ZQCPU_AVX2 : 0;
  w |= __builtin_cpu_supports("fma") ? ZQCPU_FMA : 0;
  if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
      __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl")) {
    w |= ZQCPU_AVX512;
    w |= __builtin_cpu_supports("avx512vbmi") ? ZQCPU_AVX512VBMI : 0;
  }
#endif
  w |= family >= 6 ? 6 : family;
#endif
  return w;
}

std::atomic<DWORD> g_allowed{0xFFFFFFFFu};
std::atomic<DWORD> g_forced{0};

}  // namespace

ZQ_API DWORD ZqGetCPUSupportDetected() {
  static const DWORD detected = Detect();
  return detected;
}

ZQ_API DWORD ZqGetCPUSupport(DWORD mask) {
  const DWORD limit = mask ? mask : 0xFFFFFFFFu;
  return (ZqGetCPUSupportDetected() & g_allowed.load() & limit) | g_forced.load();
}

ZQ_API DWORD ZqSetCPUSupportAllowed(DWORD allowed) { return g_allowed.exchange(allowed); }
ZQ_API DWORD ZqSetCPUSupportForced(DWORD forced) { return g_forced.exchange(forced); }
