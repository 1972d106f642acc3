// An independent scalar model of the conversions, written from the rules of
// the value path rather than from the kernel's code: integers are read byte
// by byte, rounding uses nearbyint, and NaN keeps its quieted payload.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>

namespace audio_ref {

struct Type {
  int bytes;
  int bits;  // value bits (0 for float)
  bool isFloat;
};

inline Type Info(int t) {
  switch (t) {
    case 16: case 49: return {1, 8, false};
    case 17: case 64: return {2, 16, false};
    case 18: case 65: return {3, 24, false};
    case 19: case 66: return {4, 32, false};
    case 48: return {4, 24, false};
    case 128: return {4, 16, false};
    case 129: return {4, 24, false};
    case 32: return {4, 0, true};
    case 33: return {8, 0, true};
  }
  return {0, 0, false};
}

inline uint64_t LittleEndian(const uint8_t* p, int n) {
  uint64_t v = 0;
  for (int i = n - 1; i >= 0; --i) v = (v << 8) | p[i];
  return v;
}
inline uint64_t BigEndian(const uint8_t* p, int n) {
  uint64_t v = 0;
  for (int i = 0; i < n; ++i) v = (v << 8) | p[i];
  return v;
}
inline int64_t SignExtend(uint64_t v, int bits) {
  const uint64_t sign = uint64_t(1) << (bits - 1);
  v &= (sign << 1) - 1;
  return int64_t(v ^ sign) - int64_t(sign);
}

// Step 1: the signed integer a sample stands for.
inline int64_t ReadInt(int t, const uint8_t* p) {
  switch (t) {
    case 16: return int64_t(p[0]) - 128;
    case 49: return SignExtend(p[0], 8);
    case 17: return SignExtend(LittleEndian(p, 2), 16);
    case 64: return SignExtend(BigEndian(p, 2), 16);
    case 18: return SignExtend(LittleEndian(p, 3), 24);
    case 65: return SignExtend(BigEndian(p, 3), 24);
    case 19: case 48: return SignExtend(LittleEndian(p, 4), 32);
    case 66: return SignExtend(BigEndian(p, 4), 32);
    case 128: return SignExtend(LittleEndian(p, 2), 16);
    case 129: return SignExtend(LittleEndian(p, 4) << 8, 32);
  }
  return 0;
}

inline double ReadFloat(int t, const uint8_t* p) {
  if (t == 32) {
    float f;
    std::memcpy(&f, p, 4);
    return f;
  }
  double d;
  std::memcpy(&d, p, 8);
  return d;
}

// Steps 1 and 2.
inline double Normalised(int t, const uint8_t* p) {
  const Type ti = Info(t);
  if (ti.isFloat) return ReadFloat(t, p);
  return std::ldexp(double(ReadInt(t, p)), -(ti.bits - 1));
}

inline void WriteInt(int t, uint8_t* p, int64_t v) {
  const uint64_t u = uint64_t(v);
  switch (t) {
    case 16: p[0] = uint8_t(u) ^ 0x80; return;
    case 49: p[0] = uint8_t(u); return;
    case 17: case 18: case 19: case 48:
      for (int i = 0; i < Info(t).bytes; ++i) p[i] = uint8_t(u >> (8 * i));
      return;
    case 64: case 65: case 66: {
      const int n = Info(t).bytes;
      for (int i = 0; i < n; ++i) p[n - 1 - i] = uint8_t(u >> (8 * i));
      return;
    }
  }
}

// Steps 4 to 7.
inline void Store(int t, uint8_t* p, double v) {
  const Type ti = Info(t);
  if (ti.isFloat) {
    if (t == 32) {
      const float f = float(v);
      std::memcpy(p, &f, 4);
    } else {
      std::memcpy(p, &v, 8);
    }
    return;
  }
  const double full = std::ldexp(1.0, ti.bits - 1);
  v *= full;
  int64_t out;
  if (std::isnan(v)) {
    uint64_t bits;
    std::memcpy(&bits, &v, 8);
    out = int64_t(bits | (uint64_t(1) << 51));  // the rounding keeps the quieted payload's low bits
  } else {
    if (v > full - 1) v = full - 1;
    if (v < -full) v = -full;
    out = int64_t(std::nearbyint(v));
  }
  WriteInt(t, p, out);
}

// One sample of the copy family with a gain.
inline void Copy(int d, uint8_t* dp, int s, const uint8_t* sp, float gain) {
  if (d == s && gain == 1.0f) {
    std::memcpy(dp, sp, Info(s).bytes);
    return;
  }
  double v = Normalised(s, sp);
  if (gain != 1.0f) v *= double(gain);
  Store(d, dp, v);
}

// One sample of the copy-channels family, by its table of cases.
inline void CopyChannel(int d, uint8_t* dp, int s, const uint8_t* sp) {
  const Type td = Info(d), ts = Info(s);
  if (d == s) {
    std::memcpy(dp, sp, ts.bytes);
  } else if (s == 129 && d == 18) {
    std::memcpy(dp, sp, 3);
  } else if (!td.isFloat && !ts.isFloat && td.bits > ts.bits) {
    WriteInt(d, dp, ReadInt(s, sp) * (int64_t(1) << (td.bits - ts.bits)));  // a shift
  } else if ((d == 16 && s == 49) || (d == 49 && s == 16)) {
    dp[0] = sp[0] ^ 0x80;
  } else {
    Store(d, dp, Normalised(s, sp));
  }
}

}  // namespace audio_ref
