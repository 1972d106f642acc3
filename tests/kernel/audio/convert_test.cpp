// The conversion routines against the scalar model, for every processor
// variant the machine has, and against literal values.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "kernel/audio/convert.h"
#include "tests/kernel/audio/reference.h"

namespace {

constexpr int kCopyTypes[] = {16, 17, 18, 19, 32, 33, 48, 49, 64, 65, 66};
// 18, 21 and 22 end just before, at and just after the counts from which
// the 24-bit routines may write a whole vector past the samples of a group.
constexpr DWORD kFrameCounts[] = {0, 1, 3, 18, 21, 22, 253, 512, 4099};
constexpr size_t kGuard = 64;
constexpr uint8_t kGuardByte = 0xA5;

struct Variant {
  const char* name;
  DWORD allowed;
};
constexpr Variant kVariants[] = {
    {"portable", 0},
    {"sse2", ZQCPU_SSE2},
    {"avx2", ZQCPU_SSE2 | ZQCPU_AVX | ZQCPU_AVX2},
    {"avx512", ZQCPU_SSE2 | ZQCPU_AVX | ZQCPU_AVX2 | ZQCPU_AVX512 | ZQCPU_AVX512VBMI},
};

bool Available(const Variant& v) { return (ZqGetCPUSupportDetected() & v.allowed) == v.allowed; }

// Pins the routine lookups to one variant for the life of the object.
class Pin {
 public:
  explicit Pin(const Variant& v) : previous_(ZqSetCPUSupportAllowed(v.allowed)) {}
  ~Pin() { ZqSetCPUSupportAllowed(previous_); }

 private:
  DWORD previous_;
};

// Values that a float source must survive: full scale, exact ties at every
// integer width, beyond full scale, infinities, NaNs with payloads,
// denormals and signed zeros.
std::vector<double> SpecialValues() {
  std::vector<double> v = {0.0, -0.0, 1.0, -1.0, 0.5, -0.5, 1.5, -1.5, 2.0, -3.0, 1e30, -1e30,
                           std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
                           std::numeric_limits<float>::denorm_min(), -std::numeric_limits<float>::denorm_min(),
                           std::numeric_limits<float>::min() / 3, 1e-300};
  for (int bits : {8, 16, 24, 32})
    for (int k : {0, 1, 2, 3, -1, -2, -3, 100, -101}) {
      v.push_back(std::ldexp(k + 0.5, -(bits - 1)));
      v.push_back(std::ldexp(double(k), -(bits - 1)));
    }
  for (int bits : {8, 16, 24})
    v.push_back(1.0 - std::ldexp(0.5, -(bits - 1)));  // the tie just below full scale
  return v;
}

// A source buffer of `count` samples of type `t`, at `offset` bytes into
// storage; floats mix special values and random data, integers are random
// bytes with the extremes spread in.
struct Source {
  std::vector<uint8_t> storage;
  const uint8_t* data;
};

Source MakeSource(int t, size_t count, size_t offset, unsigned seed) {
  const audio_ref::Type ti = audio_ref::Info(t);
  Source s;
  s.storage.resize(count * ti.bytes + offset + 8);
  uint8_t* p = s.storage.data() + offset;
  std::mt19937 rng(seed);
  static const std::vector<double> specials = SpecialValues();
  for (size_t i = 0; i < count; ++i) {
    uint8_t* q = p + i * ti.bytes;
    if (ti.isFloat) {
      double v;
      const unsigned pick = rng() % 4;
      if (pick == 0) {
        v = specials[rng() % specials.size()];
      } else {
        v = std::uniform_real_distribution<double>(-1.25, 1.25)(rng);
      }
      if (t == 32) {
        float f = float(v);
        if (rng() % 64 == 0) {  // a NaN with a payload, either sign
          uint32_t bits = 0x7FC00000u | (rng() & 0x003FFFFFu) | ((rng() & 1u) << 31);
          std::memcpy(&f, &bits, 4);
        }
        std::memcpy(q, &f, 4);
      } else {
        if (rng() % 64 == 0) {
          uint64_t bits = 0x7FF8000000000000ull | (uint64_t(rng()) << 20 | rng()) | (uint64_t(rng() & 1u) << 63);
          std::memcpy(&v, &bits, 8);
        }
        std::memcpy(q, &v, 8);
      }
    } else {
      for (int b = 0; b < ti.bytes; ++b) q[b] = uint8_t(rng());
      const unsigned pick = rng() % 8;
      if (pick == 0) std::memset(q, 0xFF, ti.bytes);  // -1 or the unsigned top
      if (pick == 1) std::memset(q, 0x00, ti.bytes);
      if (pick == 2) {  // most negative, little- or big-endian
        std::memset(q, 0x00, ti.bytes);
        q[(t >= 64 && t <= 66) ? 0 : ti.bytes - 1] = 0x80;
      }
      if (t == 48) {  // the word holds a sign-extended 24-bit value
        const int32_t v = int32_t(uint32_t(q[0] | q[1] << 8 | q[2] << 16) << 8) >> 8;
        std::memcpy(q, &v, 4);
      }
    }
  }
  s.data = p;
  return s;
}

// A destination with guard bytes on both sides, offset by `offset`.
struct Dest {
  std::vector<uint8_t> storage;
  size_t offset, bytes;
  Dest(size_t n, size_t off) : storage(n + 2 * kGuard + off, kGuardByte), offset(off), bytes(n) {}
  uint8_t* data() { return storage.data() + kGuard + offset; }
  bool GuardsIntact() const {
    for (size_t i = 0; i < kGuard + offset; ++i)
      if (storage[i] != kGuardByte) return false;
    for (size_t i = kGuard + offset + bytes; i < storage.size(); ++i)
      if (storage[i] != kGuardByte) return false;
    return true;
  }
};

std::string FirstDifference(const uint8_t* got, const uint8_t* want, size_t bytes, int width) {
  for (size_t i = 0; i < bytes; ++i)
    if (got[i] != want[i]) {
      char text[96];
      std::snprintf(text, sizeof text, "sample %zu differs (byte %zu: 0x%02X, expected 0x%02X)", i / width, i,
                    got[i], want[i]);
      return text;
    }
  return "";
}

void CheckCopy(const Variant& variant, int d, int s, DWORD count, float gain, size_t offset) {
  const int bd = audio_ref::Info(d).bytes, bs = audio_ref::Info(s).bytes;
  ZqAudioCopyFunction f = ZqAudio_GetCopyFunction2(d, s);
  ASSERT_NE(f, nullptr);
  Source src = MakeSource(s, count, offset, unsigned(count * 31 + d * 7 + s));
  std::vector<uint8_t> want(size_t(count) * bd + 1);
  for (DWORD i = 0; i < count; ++i) audio_ref::Copy(d, want.data() + i * bd, s, src.data + i * bs, gain);
  Dest dst(size_t(count) * bd, offset);
  f(dst.data(), src.data, count, gain);
  SCOPED_TRACE(testing::Message() << variant.name << " copy " << d << " <- " << s << ", " << count
                                  << " samples, gain " << gain << ", offset " << offset);
  EXPECT_EQ(FirstDifference(dst.data(), want.data(), dst.bytes, bd), "");
  EXPECT_TRUE(dst.GuardsIntact());
}

TEST(AudioCopy, EveryPairOfEveryVariantMatchesTheModel) {
  for (const Variant& v : kVariants) {
    if (!Available(v)) continue;
    Pin pin(v);
    for (int d : kCopyTypes)
      for (int s : kCopyTypes) {
        ZqAudioCopyFunction f = ZqAudio_GetCopyFunction2(d, s);
        if (!f) continue;
        // A variant is checked on the pairs it has; the others are the portable routine again.
        if (std::string(ZqAudio_GetRoutineName(reinterpret_cast<const void*>(f))) != v.name) continue;
        for (DWORD count : kFrameCounts)
          for (float gain : {1.0f, 0.5f, -3.0f})
            for (size_t offset : {0, 1}) {
              CheckCopy(v, d, s, count, gain, offset);
              if (HasFailure()) return;
            }
      }
  }
}

TEST(AudioCopy, LookupsFollowTheProcessorWord) {
  // The hot pairs have a vectorised routine wherever the processor allows
  // it; the name each variant's lookup gives, in the order of kVariants.
  struct Row {
    int d, s;
    const char* names[std::size(kVariants)];
  };
  constexpr Row kRows[] = {
      {17, 32, {"portable", "sse2", "avx2", "avx512"}}, {32, 17, {"portable", "sse2", "avx2", "avx512"}},
      {19, 32, {"portable", "sse2", "avx2", "avx512"}}, {32, 19, {"portable", "sse2", "avx2", "avx512"}},
      {18, 32, {"portable", "portable", "avx2", "avx512"}}, {32, 18, {"portable", "portable", "avx2", "avx512"}},
      {32, 33, {"portable", "sse2", "avx2", "avx2"}},   {33, 32, {"portable", "sse2", "avx2", "avx2"}},
      {17, 33, {"portable", "sse2", "avx2", "avx2"}},   {33, 17, {"portable", "sse2", "avx2", "avx2"}},
  };
  for (size_t i = 0; i < std::size(kVariants); ++i) {
    if (!Available(kVariants[i])) continue;
    Pin pin(kVariants[i]);
    for (const Row& r : kRows) {
      const void* f = reinterpret_cast<const void*>(ZqAudio_GetCopyFunction2(r.d, r.s));
      EXPECT_STREQ(ZqAudio_GetRoutineName(f), r.names[i]) << kVariants[i].name << ": " << r.d << " <- " << r.s;
    }
  }
  EXPECT_EQ(ZqAudio_GetRoutineName(reinterpret_cast<const void*>(&ZqAudio_Copy)), nullptr);
}

TEST(AudioCopy, MissingPairsAndUnknownTypes) {
  for (int d : {64, 65})
    for (int s : {48, 66}) EXPECT_EQ(ZqAudio_GetCopyFunction2(d, s), nullptr) << d << " <- " << s;
  int pairs = 0;
  for (int d : kCopyTypes)
    for (int s : kCopyTypes) pairs += ZqAudio_GetCopyFunction2(d, s) != nullptr;
  EXPECT_EQ(pairs, 117);
  for (int t : {0, 15, 20, 34, 128, 129, 200}) {
    EXPECT_EQ(ZqAudio_GetCopyFunction2(t, 32), nullptr) << t;
    EXPECT_EQ(ZqAudio_GetCopyFunction2(32, t), nullptr) << t;
  }

  _zqwaveformat be16, w48;
  be16.Init(44100, 64, 2, 0, 32);
  w48.Init(44100, 48, 2, 0, 32);
  int16_t buf[4] = {};
  EXPECT_EQ(ZqAudio_Copy(&be16, buf, &w48, buf, 1, 1.0f), E_NOTIMPL);
  // 0 frames answers S_OK without looking at the pair, and touches nothing.
  EXPECT_EQ(ZqAudio_Copy(&be16, nullptr, &w48, nullptr, 0, 1.0f), S_OK);
}

template <class D, class S>
D CopyOne(int dt, int st, S value, float gain = 1.0f) {
  D out{};
  ZqAudio_GetCopyFunction2(dt, st)(&out, &value, 1, gain);
  return out;
}

TEST(AudioCopy, LiteralValues) {
  EXPECT_EQ(CopyOne<int16_t>(17, 32, 1.0f), 32767);
  EXPECT_EQ(CopyOne<int16_t>(17, 32, -1.0f), -32768);
  EXPECT_EQ(CopyOne<int16_t>(17, 32, 0.5f / 32768.0f), 0);           // a tie rounds to even
  EXPECT_EQ(CopyOne<int16_t>(17, 32, 1.5f / 32768.0f), 2);
  EXPECT_EQ(CopyOne<int16_t>(17, 32, -2.5f / 32768.0f), -2);
  EXPECT_EQ(CopyOne<int16_t>(17, 32, std::numeric_limits<float>::infinity()), 32767);
  EXPECT_EQ(CopyOne<int16_t>(17, 32, std::numeric_limits<float>::quiet_NaN()), 0);
  const uint8_t top24[3] = {0xFF, 0xFF, 0x7F};
  int16_t clipped = 0;
  ZqAudio_GetCopyFunction2(17, 18)(&clipped, top24, 1, 1.0f);
  EXPECT_EQ(clipped, 32767);  // no wrap
  EXPECT_EQ(CopyOne<float>(32, 16, uint8_t(128)), 0.0f);
  EXPECT_EQ(CopyOne<float>(32, 16, uint8_t(0)), -1.0f);
  EXPECT_EQ(CopyOne<int16_t>(17, 17, int16_t(-12345)), -12345);
  EXPECT_EQ(CopyOne<int16_t>(17, 17, int16_t(3), 0.5f), 2);  // 1.5 rounds to even
  EXPECT_EQ(CopyOne<int16_t>(17, 17, int16_t(5), 0.5f), 2);
  EXPECT_EQ(CopyOne<double>(33, 32, 1.75f), 1.75);  // no clipping towards float
  EXPECT_EQ(CopyOne<float>(32, 32, 3.0f, 0.5f), 1.5f);
  EXPECT_EQ(CopyOne<uint8_t>(16, 32, 0.0f), 128);
  EXPECT_EQ(CopyOne<int8_t>(49, 16, uint8_t(0)), -128);
  EXPECT_EQ(CopyOne<int32_t>(19, 17, int16_t(-2)), -2 * 65536);  // wider is a multiplication
  const uint8_t be[2] = {0x12, 0x34};
  uint8_t le[2] = {};
  ZqAudio_GetCopyFunction2(17, 64)(le, be, 1, 1.0f);
  EXPECT_EQ(le[0], 0x34);
  EXPECT_EQ(le[1], 0x12);
}

// ---- copy-channels --------------------------------------------------------------

struct Layout {
  int dstChannels, dstChannel, srcChannels, srcChannel;
};
constexpr Layout kLayouts[] = {{1, 0, 1, 0}, {1, 0, 2, 1}, {2, 1, 1, 0}, {3, 2, 6, 4}};

std::vector<std::pair<int, int>> CopyChannelsPairs() {
  std::vector<std::pair<int, int>> pairs;
  for (int d : kCopyTypes)
    for (int s : kCopyTypes) pairs.push_back({d, s});
  for (int d : {17, 18, 19, 32, 33, 48}) pairs.push_back({d, 128});
  for (int d : {17, 18, 32, 33}) pairs.push_back({d, 129});
  return pairs;
}

void CheckCopyChannels(const Variant& variant, int d, int s, const Layout& l, DWORD frames, size_t offset) {
  const int bd = audio_ref::Info(d).bytes, bs = audio_ref::Info(s).bytes;
  ZqAudioCopyChannelsFunction f = ZqAudio_GetCopyChannelsFunction2(d, s);
  ASSERT_NE(f, nullptr) << d << " <- " << s;
  Source src = MakeSource(s, size_t(frames) * l.srcChannels, offset, unsigned(frames + d * 3 + s));
  const size_t dstBytes = size_t(frames) * l.dstChannels * bd;
  Dest dst(dstBytes, offset);
  std::memset(dst.data(), 0x3C, dstBytes);  // the other channels must keep this
  std::vector<uint8_t> want(dstBytes + 1, 0x3C);
  for (DWORD i = 0; i < frames; ++i)
    audio_ref::CopyChannel(d, want.data() + (size_t(i) * l.dstChannels + l.dstChannel) * bd, s,
                           src.data + (size_t(i) * l.srcChannels + l.srcChannel) * bs);
  f(dst.data(), l.dstChannels, l.dstChannel, src.data, l.srcChannels, l.srcChannel, frames);
  SCOPED_TRACE(testing::Message() << variant.name << " copy-channels " << d << " <- " << s << ", " << frames
                                  << " frames, " << l.srcChannels << "/" << l.srcChannel << " to "
                                  << l.dstChannels << "/" << l.dstChannel << ", offset " << offset);
  EXPECT_EQ(FirstDifference(dst.data(), want.data(), dstBytes, bd), "");
  EXPECT_TRUE(dst.GuardsIntact());
}

TEST(AudioCopyChannels, EveryPairOfEveryVariantMatchesTheModel) {
  for (const Variant& v : kVariants) {
    if (!Available(v)) continue;
    Pin pin(v);
    for (auto [d, s] : CopyChannelsPairs()) {
      ZqAudioCopyChannelsFunction f = ZqAudio_GetCopyChannelsFunction2(d, s);
      ASSERT_NE(f, nullptr) << d << " <- " << s;
      if (std::string(ZqAudio_GetRoutineName(reinterpret_cast<const void*>(f))) != v.name) continue;
      for (const Layout& l : kLayouts)
        for (DWORD frames : {0u, 1u, 3u, 253u, 4099u})
          for (size_t offset : {0, 1}) {
            CheckCopyChannels(v, d, s, l, frames, offset);
            if (HasFailure()) return;
          }
    }
  }
}

TEST(AudioCopyChannels, LowWordSourcesAndMissingPairs) {
  // 129 to 17, 32 and 33 is 256 times the value's own factor; to 18 the low bytes as they are.
  const uint32_t word = 0xAB000010;  // low 24 bits 0x000010 = 16
  float f = 0;
  ZqAudio_GetCopyChannelsFunction2(32, 129)(&f, 1, 0, &word, 1, 0, 1);
  EXPECT_EQ(f, 16.0f / 32768.0f);
  uint8_t b24[3] = {};
  ZqAudio_GetCopyChannelsFunction2(18, 129)(b24, 1, 0, &word, 1, 0, 1);
  EXPECT_EQ(b24[0], 0x10);
  EXPECT_EQ(b24[1], 0x00);
  EXPECT_EQ(b24[2], 0x00);
  const uint32_t w16 = 0x1234FFFE;  // low half -2
  int32_t i32 = 0;
  ZqAudio_GetCopyChannelsFunction2(19, 128)(&i32, 1, 0, &w16, 1, 0, 1);
  EXPECT_EQ(i32, -2 * 65536);
  EXPECT_EQ(ZqAudio_GetCopyChannelsFunction2(19, 129), nullptr);
  EXPECT_EQ(ZqAudio_GetCopyChannelsFunction2(16, 128), nullptr);
  EXPECT_EQ(ZqAudio_GetCopyChannelsFunction2(128, 17), nullptr);
  EXPECT_EQ(ZqAudio_GetCopyChannelsFunction2(17, 130), nullptr);
}

TEST(AudioCopyChannels, SameAddressWithWiderDestinationDoesNothing) {
  int16_t buf[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  ZqAudio_GetCopyChannelsFunction2(17, 17)(buf, 2, 1, buf, 1, 0, 4);
  const int16_t want[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  EXPECT_EQ(std::memcmp(buf, want, sizeof buf), 0);
}

TEST(AudioCopyChannels, MapAndSilence) {
  _zqwaveformat dstFmt, srcFmt;
  dstFmt.Init(48000, 17, 3, 0, 32);
  srcFmt.Init(48000, 32, 2, 0, 32);
  const float src[4] = {0.5f, -0.5f, 0.25f, -0.25f};
  int16_t dst[6];
  std::memset(dst, 0x55, sizeof dst);
  const int map[3] = {1, -1, 0};
  ASSERT_EQ(ZqAudio_CopyChannels(&dstFmt, dst, &srcFmt, src, 2, map), S_OK);
  const int16_t want[6] = {-16384, 0, 16384, -8192, 0, 8192};
  EXPECT_EQ(std::memcmp(dst, want, sizeof dst), 0);
  _zqwaveformat unknown;
  unknown.Init(48000, 20, 2, 0, 32);
  EXPECT_EQ(ZqAudio_CopyChannels(&dstFmt, dst, &unknown, src, 2, nullptr), E_NOTIMPL);
}

// ---- stereo -----------------------------------------------------------------------

TEST(AudioStereo, DeInterleaveAndInterleaveOfEveryVariantMatchTheModel) {
  for (const Variant& v : kVariants) {
    if (!Available(v)) continue;
    Pin pin(v);
    for (auto [d, s] : CopyChannelsPairs()) {
      ZqAudioDeInterleaveFunction de = ZqAudio_GetStereoDeInterleaveFunction(d, s);
      ASSERT_NE(de, nullptr);
      const bool deOwn = std::string(ZqAudio_GetRoutineName(reinterpret_cast<const void*>(de))) == v.name;
      ZqAudioInterleaveFunction in = ZqAudio_GetStereoInterleaveFunction(d, s);
      const bool inOwn = std::string(ZqAudio_GetRoutineName(reinterpret_cast<const void*>(in))) == v.name;
      if (!deOwn && !inOwn) continue;
      const int bd = audio_ref::Info(d).bytes, bs = audio_ref::Info(s).bytes;
      for (DWORD frames : kFrameCounts)
        for (size_t offset : {0, 1}) {
          SCOPED_TRACE(testing::Message() << v.name << " stereo " << d << " <- " << s << ", " << frames
                                          << " frames, offset " << offset);
          if (deOwn) {
            Source src = MakeSource(s, 2 * size_t(frames), offset, frames + 5);
            Dest l(size_t(frames) * bd, offset), r(size_t(frames) * bd, offset + 1);
            std::vector<uint8_t> wl(size_t(frames) * bd + 1), wr(size_t(frames) * bd + 1);
            for (DWORD i = 0; i < frames; ++i) {
              audio_ref::CopyChannel(d, wl.data() + i * bd, s, src.data + 2 * i * bs);
              audio_ref::CopyChannel(d, wr.data() + i * bd, s, src.data + (2 * i + 1) * bs);
            }
            de(l.data(), r.data(), src.data, frames);
            EXPECT_EQ(FirstDifference(l.data(), wl.data(), l.bytes, bd), "");
            EXPECT_EQ(FirstDifference(r.data(), wr.data(), r.bytes, bd), "");
            EXPECT_TRUE(l.GuardsIntact());
            EXPECT_TRUE(r.GuardsIntact());
          }
          if (inOwn) {
            Source left = MakeSource(s, frames, offset, frames + 6);
            Source right = MakeSource(s, frames, offset + 1, frames + 7);
            Dest dst(2 * size_t(frames) * bd, offset);
            std::vector<uint8_t> want(2 * size_t(frames) * bd + 1);
            for (DWORD i = 0; i < frames; ++i) {
              audio_ref::CopyChannel(d, want.data() + 2 * i * bd, s, left.data + i * bs);
              audio_ref::CopyChannel(d, want.data() + (2 * i + 1) * bd, s, right.data + i * bs);
            }
            in(dst.data(), left.data, right.data, frames);
            EXPECT_EQ(FirstDifference(dst.data(), want.data(), dst.bytes, bd), "");
            EXPECT_TRUE(dst.GuardsIntact());
          }
          if (HasFailure()) return;
        }
    }
  }
}

// A buffer at a chosen distance past a 32-byte boundary, with guard bytes.
class Placed {
 public:
  Placed(size_t bytes, size_t misalign) : storage_(bytes + 2 * kGuard + 64, kGuardByte), bytes_(bytes) {
    const uintptr_t base = reinterpret_cast<uintptr_t>(storage_.data()) + kGuard;
    begin_ = size_t((32 - (base & 31)) & 31) + misalign + kGuard;
  }
  uint8_t* data() { return storage_.data() + begin_; }
  bool GuardsIntact() const {
    for (size_t i = 0; i < storage_.size(); ++i)
      if ((i < begin_ || i >= begin_ + bytes_) && storage_[i] != kGuardByte) return false;
    return true;
  }

 private:
  std::vector<uint8_t> storage_;
  size_t bytes_, begin_;
};

// Buffers large enough that the routines write past the cache, placed so
// that the planes reach a 32-byte boundary after some head frames, and so
// that they cannot (the planes apart by 4 bytes, the interleaved side odd).
TEST(AudioStereo, LargeBuffersOfEveryVariantMatchTheModel) {
  constexpr size_t kFrames = (8u << 20) / 8 + 11;
  struct Placement {
    size_t left, right, host;
  };
  constexpr Placement kPlacements[] = {{16, 16, 16}, {4, 8, 1}};
  // Types 19 and 48 to themselves take the routine of 32 to itself.
  const std::pair<int, int> kSplits[] = {{32, 17}, {32, 18}, {32, 19}, {32, 32}, {32, 33}};
  std::vector<Source> random;  // by type, shared by the cases
  auto randomOf = [&](int t) -> const uint8_t* {
    static const int kTypes[] = {17, 18, 19, 32, 33};
    if (random.empty())
      for (int type : kTypes) random.push_back(MakeSource(type, 2 * kFrames, 0, unsigned(type)));
    for (size_t i = 0; i < std::size(kTypes); ++i)
      if (kTypes[i] == t) return random[i].data;
    return nullptr;
  };
  for (const Variant& v : kVariants) {
    if (!Available(v)) continue;
    Pin pin(v);
    for (auto [d, s] : kSplits) {
      ZqAudioDeInterleaveFunction de = ZqAudio_GetStereoDeInterleaveFunction(d, s);
      if (std::string(ZqAudio_GetRoutineName(reinterpret_cast<const void*>(de))) != v.name) continue;
      const int bd = audio_ref::Info(d).bytes, bs = audio_ref::Info(s).bytes;
      const uint8_t* in = randomOf(s);
      std::vector<uint8_t> wl(kFrames * bd), wr(kFrames * bd);
      for (size_t i = 0; i < kFrames; ++i) {
        audio_ref::CopyChannel(d, wl.data() + i * bd, s, in + 2 * i * bs);
        audio_ref::CopyChannel(d, wr.data() + i * bd, s, in + (2 * i + 1) * bs);
      }
      for (const Placement& at : kPlacements) {
        SCOPED_TRACE(testing::Message() << v.name << " de-interleave " << d << " <- " << s << ", planes at +"
                                        << at.left << "/+" << at.right << ", host at +" << at.host);
        Placed src(2 * kFrames * bs, at.host), l(kFrames * bd, at.left), r(kFrames * bd, at.right);
        std::memcpy(src.data(), in, 2 * kFrames * bs);
        de(l.data(), r.data(), src.data(), DWORD(kFrames));
        EXPECT_EQ(FirstDifference(l.data(), wl.data(), wl.size(), bd), "");
        EXPECT_EQ(FirstDifference(r.data(), wr.data(), wr.size(), bd), "");
        EXPECT_TRUE(l.GuardsIntact());
        EXPECT_TRUE(r.GuardsIntact());
        if (HasFailure()) return;
      }
    }
    for (auto [s, d] : kSplits) {
      ZqAudioInterleaveFunction il = ZqAudio_GetStereoInterleaveFunction(d, s);
      if (std::string(ZqAudio_GetRoutineName(reinterpret_cast<const void*>(il))) != v.name) continue;
      const int bd = audio_ref::Info(d).bytes, bs = audio_ref::Info(s).bytes;
      const uint8_t* left = randomOf(s);
      const uint8_t* right = left + kFrames * bs;
      std::vector<uint8_t> want(2 * kFrames * bd);
      for (size_t i = 0; i < kFrames; ++i) {
        audio_ref::CopyChannel(d, want.data() + 2 * i * bd, s, left + i * bs);
        audio_ref::CopyChannel(d, want.data() + (2 * i + 1) * bd, s, right + i * bs);
      }
      for (const Placement& at : kPlacements) {
        SCOPED_TRACE(testing::Message() << v.name << " interleave " << d << " <- " << s << ", planes at +"
                                        << at.left << "/+" << at.right << ", host at +" << at.host);
        Placed l(kFrames * bs, at.left), r(kFrames * bs, at.right), dst(2 * kFrames * bd, at.host);
        std::memcpy(l.data(), left, kFrames * bs);
        std::memcpy(r.data(), right, kFrames * bs);
        il(dst.data(), l.data(), r.data(), DWORD(kFrames));
        EXPECT_EQ(FirstDifference(dst.data(), want.data(), want.size(), bd), "");
        EXPECT_TRUE(dst.GuardsIntact());
        if (HasFailure()) return;
      }
    }
  }
}

TEST(AudioStereo, PlainFormsTakeOneWidthAndTheExFormsConvert) {
  const int16_t src[6] = {1, -1, 2, -2, 3, -3};
  int16_t l[3], r[3];
  ASSERT_EQ(ZqAudio_DeInterleaveStereo(l, r, src, 17, 3), S_OK);
  EXPECT_EQ(l[2], 3);
  EXPECT_EQ(r[2], -3);
  uint8_t b24[12] = {};
  EXPECT_EQ(ZqAudio_DeInterleaveStereo(b24, b24 + 6, b24, 18, 1), E_NOTIMPL);
  EXPECT_EQ(ZqAudio_InterleaveStereo(b24, b24, b24 + 3, 64, 1), E_NOTIMPL);
  // The Ex forms fall back to the conversion table for 18.
  const uint8_t in24[6] = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06};
  uint8_t l24[3], r24[3];
  ASSERT_EQ(ZqAudio_DeInterleaveStereoEx(l24, r24, 18, in24, 18, 1), S_OK);
  EXPECT_EQ(std::memcmp(l24, in24, 3), 0);
  EXPECT_EQ(std::memcmp(r24, in24 + 3, 3), 0);
  float fl[3], fr[3];
  ASSERT_EQ(ZqAudio_DeInterleaveStereoEx(fl, fr, 32, src, 17, 3), S_OK);
  EXPECT_EQ(fr[0], -1.0f / 32768.0f);
  int16_t back[6];
  ASSERT_EQ(ZqAudio_InterleaveStereoEx(back, 17, fl, fr, 32, 3), S_OK);
  EXPECT_EQ(std::memcmp(back, src, sizeof src), 0);
  EXPECT_EQ(ZqAudio_DeInterleaveStereoEx(fl, fr, 32, src, 20, 3), E_NOTIMPL);
  EXPECT_EQ(ZqAudio_InterleaveStereoEx(back, 128, fl, fr, 32, 3), E_NOTIMPL);
}

// ---- processor word -------------------------------------------------------------------

TEST(AudioCpuSupport, MasksLimitAndForce) {
  const DWORD detected = ZqGetCPUSupportDetected();
  EXPECT_EQ(ZqGetCPUSupport(0), detected);
  EXPECT_EQ(ZqGetCPUSupport(ZQCPU_SSE2), detected & ZQCPU_SSE2);
#if defined(__x86_64__)
  EXPECT_EQ(detected & ZQCPU_LEVEL_MASK, 6u);
  EXPECT_NE(detected & ZQCPU_SSE2, 0u);
#endif
  const DWORD oldAllowed = ZqSetCPUSupportAllowed(ZQCPU_SSE);
  const DWORD oldForced = ZqSetCPUSupportForced(ZQCPU_CMOV);
  EXPECT_EQ(ZqGetCPUSupport(0), (detected & ZQCPU_SSE) | ZQCPU_CMOV);
  EXPECT_EQ(ZqGetCPUSupport(ZQCPU_MMX), ZQCPU_CMOV);
  ZqSetCPUSupportForced(oldForced);
  ZqSetCPUSupportAllowed(oldAllowed);
  EXPECT_EQ(ZqGetCPUSupport(0), detected);
}

}  // namespace
