// zqvst's generated signals, made piece by piece as a render pulls them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "tools/zqvst/render.h"

namespace {

uint64_t Fnv1a(const std::vector<BYTE>& bytes) {
  uint64_t hash = 1469598103934665603ull;
  for (BYTE b : bytes) hash = (hash ^ b) * 1099511628211ull;
  return hash;
}

constexpr ULONGLONG kFrames = 10007;

// The bytes of 10007 frames of three channels at 44.1 kHz, as the signals
// have always been: a render must keep giving the same output.
const struct {
  const char* signal;
  ZQSAMPLETYPE type;
  uint64_t hash;
} kSignals[] = {
    {"sine", ZQSAMPLE_PCM16, 0xcbcea53b3ad588e4ull},   {"sine", ZQSAMPLE_PCM24, 0xbe77545349a336c2ull},
    {"sine", ZQSAMPLE_PCM32, 0x663c6590dd3a2be7ull},   {"sine", ZQSAMPLE_FLOAT32, 0xf1958c19bb7c9c32ull},
    {"sine", ZQSAMPLE_FLOAT64, 0xb8d9ccef123e7d18ull}, {"noise", ZQSAMPLE_FLOAT32, 0x3dc03832cc88d5e5ull},
    {"noise", ZQSAMPLE_PCM16, 0x23d14215c59dd14bull},  {"impulse", ZQSAMPLE_PCM24, 0xa7203943758f3accull},
};

TEST(ZqvstSignal, PiecesInAnyOrderGiveTheSignalAsItAlwaysWas) {
  for (const auto& s : kSignals) {
    // Whole, frame by frame, and in pieces from the last to the first (a
    // restart, or a sample asked for again).
    for (const long long piece : {10007LL, 1LL, -333LL}) {
      ZqvstSignal signal;
      ASSERT_TRUE(signal.Init(s.signal, 44100, 3, s.type));
      const ULONGLONG step = ULONGLONG(std::llabs(piece)), pieces = (kFrames + step - 1) / step;
      std::vector<BYTE> bytes(kFrames * signal.FrameBytes());
      for (ULONGLONG i = 0; i < pieces; ++i) {
        const ULONGLONG first = (piece > 0 ? i : pieces - 1 - i) * step;
        signal.Fill(first, std::min(step, kFrames - first), bytes.data() + first * signal.FrameBytes());
      }
      EXPECT_EQ(Fnv1a(bytes), s.hash) << s.signal << " as type " << s.type << " in pieces of " << piece;
    }
  }
}

}  // namespace
