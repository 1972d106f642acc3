// The processor word: which instruction sets the kernel may use.
//
// Low four bits: the processor level (6 on every x86-64).  Then one bit per
// feature.  The kernel's routine tables are looked up against this word, so
// the allowed and forced masks pin any variant (tests use this).
#pragma once

#include "base/types.h"

constexpr DWORD ZQCPU_LEVEL_MASK = 0x000F;
constexpr DWORD ZQCPU_MMX = 0x0010;
constexpr DWORD ZQCPU_SSE = 0x0020;
constexpr DWORD ZQCPU_SSE2 = 0x0040;
constexpr DWORD ZQCPU_SSE3 = 0x0080;
constexpr DWORD ZQCPU_SSSE3 = 0x0100;
constexpr DWORD ZQCPU_SSE41 = 0x0200;
constexpr DWORD ZQCPU_SSE42 = 0x0400;
constexpr DWORD ZQCPU_AVX = 0x0800;
constexpr DWORD ZQCPU_CMOV = 0x1000;
constexpr DWORD ZQCPU_FCMOV = 0x2000;
// Above the bits of the original word.
constexpr DWORD ZQCPU_AVX2 = 0x4000;
constexpr DWORD ZQCPU_FMA = 0x8000;
// AVX-512 foundation with the byte/word, doubleword/quadword and vector
// length extensions, all four together; and the byte permutes on top.
constexpr DWORD ZQCPU_AVX512 = 0x10000;
constexpr DWORD ZQCPU_AVX512VBMI = 0x20000;

// The detected word limited to the allowed mask and to `mask` (0 means all
// bits), with the forced bits ORed in.
ZQ_API DWORD ZqGetCPUSupport(DWORD mask);
// The word as detected, before any mask.
ZQ_API DWORD ZqGetCPUSupportDetected();
// Set the allowed mask (all bits at start) and the forced bits (none at
// start); each answers the previous value.  Forcing a feature the processor
// lacks makes the routines that need it fault: force only for tests.
ZQ_API DWORD ZqSetCPUSupportAllowed(DWORD allowed);
ZQ_API DWORD ZqSetCPUSupportForced(DWORD forced);
