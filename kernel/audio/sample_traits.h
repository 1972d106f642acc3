// Reading, writing and converting one sample of each type: the scalar value
// path that every routine family follows and every processor variant
// reproduces.  Internal to the audio kernel.
//
// Everything here has internal linkage on purpose: variant sources include
// this header with their own instruction-set flags, and no instance built
// for one processor may stand in for another's.
#pragma once

#include <cstdint>
#include <cstring>

#include "kernel/audio/waveformat.h"

namespace zq::audio {
namespace {

// The destination and source types of the copy family, in table order.
constexpr int kCopyTypes[11] = {16, 17, 18, 19, 32, 33, 48, 49, 64, 65, 66};

constexpr int CopyTypeIndex(int t) {
  for (int i = 0; i < 11; ++i)
    if (kCopyTypes[i] == t) return i;
  return -1;
}

// 1.5 * 2^52: added to a double below 2^51 in magnitude, it leaves the value
// rounded to an integer (in the current rounding mode) in the low bits.
constexpr double kRoundMagic = 6755399441055744.0;

inline int32_t RoundLowBits(double v) {
  const double t = v + kRoundMagic;
  uint64_t bits;
  std::memcpy(&bits, &t, sizeof bits);
  return static_cast<int32_t>(static_cast<uint32_t>(bits));
}

template <class T>
inline T LoadAs(const BYTE* p) {
  T v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
template <class T>
inline void StoreAs(BYTE* p, T v) {
  std::memcpy(p, &v, sizeof v);
}

inline int32_t Read24(const BYTE* p) {
  return static_cast<int32_t>((uint32_t(p[0]) << 8) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 24)) >> 8;
}
inline void Write24(BYTE* p, int32_t v) {
  p[0] = BYTE(v);
  p[1] = BYTE(v >> 8);
  p[2] = BYTE(v >> 16);
}

// Sample<T>: bytes, whether float, value bits, and signed integer read/write.
template <int T>
struct Sample;

template <int Bytes, int Bits, bool Float>
struct SampleBase {
  static constexpr int kBytes = Bytes;
  static constexpr int kBits = Bits;
  static constexpr bool kFloat = Float;
  // Source factor 2^-(bits-1) and destination scale 2^(bits-1).
  static constexpr double kScale = Float ? 1.0 : double(int64_t(1) << (Bits - 1));
  static constexpr double kFactor = 1.0 / kScale;
  static constexpr double kMax = kScale - 1.0;
  static constexpr double kMin = -kScale;
};

template <>
struct Sample<16> : SampleBase<1, 8, false> {
  static int32_t Read(const BYTE* p) { return int32_t(int8_t(p[0] ^ 0x80)); }
  static void Write(BYTE* p, int32_t v) { p[0] = BYTE(v) ^ 0x80; }
};
template <>
struct Sample<49> : SampleBase<1, 8, false> {
  static int32_t Read(const BYTE* p) { return int32_t(int8_t(p[0])); }
  static void Write(BYTE* p, int32_t v) { p[0] = BYTE(v); }
};
template <>
struct Sample<17> : SampleBase<2, 16, false> {
  static int32_t Read(const BYTE* p) { return LoadAs<int16_t>(p); }
  static void Write(BYTE* p, int32_t v) { StoreAs<int16_t>(p, int16_t(v)); }
};
template <>
struct Sample<64> : SampleBase<2, 16, false> {
  static int32_t Read(const BYTE* p) { return int16_t((uint16_t(p[0]) << 8) | p[1]); }
  static void Write(BYTE* p, int32_t v) {
    p[0] = BYTE(v >> 8);
    p[1] = BYTE(v);
  }
};
template <>
struct Sample<18> : SampleBase<3, 24, false> {
  static int32_t Read(const BYTE* p) { return Read24(p); }
  static void Write(BYTE* p, int32_t v) { Write24(p, v); }
};
template <>
struct Sample<65> : SampleBase<3, 24, false> {
  static int32_t Read(const BYTE* p) {
    const BYTE r[3] = {p[2], p[1], p[0]};
    return Read24(r);
  }
  static void Write(BYTE* p, int32_t v) {
    p[0] = BYTE(v >> 16);
    p[1] = BYTE(v >> 8);
    p[2] = BYTE(v);
  }
};
template <>
struct Sample<19> : SampleBase<4, 32, false> {
  static int32_t Read(const BYTE* p) { return LoadAs<int32_t>(p); }
  static void Write(BYTE* p, int32_t v) { StoreAs<int32_t>(p, v); }
};
template <>
struct Sample<66> : SampleBase<4, 32, false> {
  static int32_t Read(const BYTE* p) { return int32_t(__builtin_bswap32(LoadAs<uint32_t>(p))); }
  static void Write(BYTE* p, int32_t v) { StoreAs<uint32_t>(p, __builtin_bswap32(uint32_t(v))); }
};
// The word as it stands: a 24-bit value sign-extended.
template <>
struct Sample<48> : SampleBase<4, 24, false> {
  static int32_t Read(const BYTE* p) { return LoadAs<int32_t>(p); }
  static void Write(BYTE* p, int32_t v) { StoreAs<int32_t>(p, v); }
};
// Sources only: the low 16 bits of a 32-bit word.
template <>
struct Sample<128> : SampleBase<4, 16, false> {
  static int32_t Read(const BYTE* p) { return int16_t(LoadAs<uint32_t>(p)); }
};
// Sources only: the word shifted left by 8, with the factor of a 24-bit type.
template <>
struct Sample<129> : SampleBase<4, 24, false> {
  static int32_t Read(const BYTE* p) { return int32_t(LoadAs<uint32_t>(p) << 8); }
};
template <>
struct Sample<32> : SampleBase<4, 0, true> {
  static double ReadF(const BYTE* p) { return LoadAs<float>(p); }
  static void WriteF(BYTE* p, double v) { StoreAs<float>(p, float(v)); }
};
template <>
struct Sample<33> : SampleBase<8, 0, true> {
  static double ReadF(const BYTE* p) { return LoadAs<double>(p); }
  static void WriteF(BYTE* p, double v) { StoreAs<double>(p, v); }
};

// Steps 1 and 2: the sample as a normalised double.
template <int S>
inline double LoadValue(const BYTE* p) {
  if constexpr (Sample<S>::kFloat)
    return Sample<S>::ReadF(p);
  else
    return double(Sample<S>::Read(p)) * Sample<S>::kFactor;
}

// Steps 4 to 7: store a normalised double.
template <int D>
inline void StoreValue(BYTE* p, double v) {
  if constexpr (Sample<D>::kFloat) {
    Sample<D>::WriteF(p, v);
  } else {
    v *= Sample<D>::kScale;
    // NaN fails both tests and reaches the rounding as it is.
    if (v > Sample<D>::kMax)
      v = Sample<D>::kMax;
    else if (v < Sample<D>::kMin)
      v = Sample<D>::kMin;
    Sample<D>::Write(p, RoundLowBits(v));
  }
}

// One sample of the copy-channels value path.
template <int D, int S>
inline void ConvertSample(BYTE* d, const BYTE* s) {
  if constexpr (D == S) {
    std::memmove(d, s, Sample<D>::kBytes);
  } else if constexpr (S == 129 && D == 18) {
    Write24(d, LoadAs<int32_t>(s));  // the low 24 bits unchanged
  } else {
    StoreValue<D>(d, LoadValue<S>(s));
  }
}

// The copy family, portable: a block copy for equal types at gain 1.0, else
// the value path with the gain tested once.
template <int D, int S, bool kGain>
inline void CopyLoop(BYTE* d, const BYTE* s, size_t count, double gain) {
  constexpr size_t bd = Sample<D>::kBytes, bs = Sample<S>::kBytes;
  size_t i = 0;
  for (; i + 4 <= count; i += 4) {
    for (size_t k = 0; k < 4; ++k) {
      double v = LoadValue<S>(s + (i + k) * bs);
      if constexpr (kGain) v *= gain;
      StoreValue<D>(d + (i + k) * bd, v);
    }
  }
  for (; i < count; ++i) {
    double v = LoadValue<S>(s + i * bs);
    if constexpr (kGain) v *= gain;
    StoreValue<D>(d + i * bd, v);
  }
}

template <int D, int S>
void CopyPortable(void* dst, const void* src, DWORD count, float gain) {
  if (!count) return;
  BYTE* d = static_cast<BYTE*>(dst);
  const BYTE* s = static_cast<const BYTE*>(src);
  if (gain == 1.0f) {
    if constexpr (D == S)
      std::memmove(d, s, size_t(count) * Sample<D>::kBytes);
    else
      CopyLoop<D, S, false>(d, s, count, 1.0);
  } else {
    CopyLoop<D, S, true>(d, s, count, gain);
  }
}

template <int D, int S>
void CopyChannelsPortable(void* dst, int dstChannels, int dstChannel, const void* src, int srcChannels,
                          int srcChannel, DWORD frames) {
  if constexpr (D == S) {
    if (dst == src && dstChannels > srcChannels) return;
  }
  constexpr size_t bd = Sample<D>::kBytes, bs = Sample<S>::kBytes;
  BYTE* d = static_cast<BYTE*>(dst) + size_t(dstChannel) * bd;
  const BYTE* s = static_cast<const BYTE*>(src) + size_t(srcChannel) * bs;
  const size_t ds = size_t(dstChannels) * bd, ss = size_t(srcChannels) * bs;
  for (DWORD i = 0; i < frames; ++i, d += ds, s += ss) ConvertSample<D, S>(d, s);
}

template <int D, int S>
void DeInterleavePortable(void* left, void* right, const void* src, DWORD frames) {
  CopyChannelsPortable<D, S>(left, 1, 0, src, 2, 0, frames);
  CopyChannelsPortable<D, S>(right, 1, 0, src, 2, 1, frames);
}

template <int D, int S>
void InterleavePortable(void* dst, const void* left, const void* right, DWORD frames) {
  CopyChannelsPortable<D, S>(dst, 2, 0, left, 1, 0, frames);
  CopyChannelsPortable<D, S>(dst, 2, 1, right, 1, 0, frames);
}

}  // namespace
}  // namespace zq::audio
