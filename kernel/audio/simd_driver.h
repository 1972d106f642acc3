// The part of a processor variant that does not depend on its instructions:
// tails, chunking and the routine set.  A variant source includes this with
// its own flags and supplies an `Isa` with
//   template <int D, int S> static size_t Block(BYTE* d, const BYTE* s, size_t n)
//       converts the first samples of `n` (a multiple of its width) with gain
//       1.0 and answers how many; 0 for a pair it does not vectorise;
//   static void Split32(BYTE* l, BYTE* r, const BYTE* s, size_t frames)
//   static void Merge32(BYTE* d, const BYTE* l, const BYTE* r, size_t frames)
//       de-interleave and interleave 32-bit words, whole vectors only, and
//       answer the frames done: the driver finishes the tail.
// Internal linkage throughout (see sample_traits.h).
#pragma once

#include <algorithm>
#include <utility>

#include "kernel/audio/convert_routines.h"
#include "kernel/audio/sample_traits.h"

namespace zq::audio {
namespace {

template <class Isa>
struct Driver {
  static constexpr size_t kChunk = 256;  // frames per pass through the stack buffers

  template <int D, int S>
  static constexpr bool Has() {
    return Isa::template Has<D, S>();
  }

  template <int D, int S>
  static void Convert(BYTE* d, const BYTE* s, size_t n) {
    size_t k = Isa::template Block<D, S>(d, s, n);
    for (; k < n; ++k) ConvertSample<D, S>(d + k * Sample<D>::kBytes, s + k * Sample<S>::kBytes);
  }

  template <int D, int S>
  static void Copy(void* dst, const void* src, DWORD count, float gain) {
    if (gain != 1.0f) {
      CopyPortable<D, S>(dst, src, count, gain);
      return;
    }
    Convert<D, S>(static_cast<BYTE*>(dst), static_cast<const BYTE*>(src), count);
  }

  template <int D, int S>
  static void CopyChannels(void* dst, int dstChannels, int dstChannel, const void* src, int srcChannels,
                           int srcChannel, DWORD frames) {
    constexpr size_t bd = Sample<D>::kBytes, bs = Sample<S>::kBytes;
    BYTE* d = static_cast<BYTE*>(dst) + size_t(dstChannel) * bd;
    const BYTE* s = static_cast<const BYTE*>(src) + size_t(srcChannel) * bs;
    if (dstChannels == 1 && srcChannels == 1) {
      Convert<D, S>(d, s, frames);
      return;
    }
    // Gather, convert, scatter, one chunk at a time.
    alignas(32) BYTE sbuf[kChunk * bs];
    alignas(32) BYTE dbuf[kChunk * bd];
    const size_t ds = size_t(dstChannels) * bd, ss = size_t(srcChannels) * bs;
    for (size_t done = 0; done < frames;) {
      const size_t n = std::min<size_t>(kChunk, frames - done);
      const BYTE* in = s;
      if (srcChannels != 1) {
        for (size_t i = 0; i < n; ++i) std::memcpy(sbuf + i * bs, s + i * ss, bs);
        in = sbuf;
      }
      if (dstChannels == 1) {
        Convert<D, S>(d, in, n);
      } else {
        Convert<D, S>(dbuf, in, n);
        for (size_t i = 0; i < n; ++i) std::memcpy(d + i * ds, dbuf + i * bd, bd);
      }
      d += n * ds;
      s += n * ss;
      done += n;
    }
  }

  static void Split32Tail(BYTE* l, BYTE* r, const BYTE* s, size_t from, size_t frames) {
    for (size_t i = from; i < frames; ++i) {
      std::memcpy(l + 4 * i, s + 8 * i, 4);
      std::memcpy(r + 4 * i, s + 8 * i + 4, 4);
    }
  }
  static void Merge32Tail(BYTE* d, const BYTE* l, const BYTE* r, size_t from, size_t frames) {
    for (size_t i = from; i < frames; ++i) {
      std::memcpy(d + 8 * i, l + 4 * i, 4);
      std::memcpy(d + 8 * i + 4, r + 4 * i, 4);
    }
  }
  static void Split(BYTE* l, BYTE* r, const BYTE* s, size_t frames) {
    Split32Tail(l, r, s, Isa::Split32(l, r, s, frames), frames);
  }
  static void Merge(BYTE* d, const BYTE* l, const BYTE* r, size_t frames) {
    Merge32Tail(d, l, r, Isa::Merge32(d, l, r, frames), frames);
  }

  // Same 32-bit type on both sides: words move unchanged.
  static void DeInterleaveWords(void* left, void* right, const void* src, DWORD frames) {
    Split(static_cast<BYTE*>(left), static_cast<BYTE*>(right), static_cast<const BYTE*>(src), frames);
  }
  static void InterleaveWords(void* dst, const void* left, const void* right, DWORD frames) {
    Merge(static_cast<BYTE*>(dst), static_cast<const BYTE*>(left), static_cast<const BYTE*>(right), frames);
  }

  // Interleaved type S into two float planes.
  template <int S>
  static void DeInterleaveToFloat(void* left, void* right, const void* src, DWORD frames) {
    alignas(32) BYTE buf[2 * kChunk * 4];
    BYTE* l = static_cast<BYTE*>(left);
    BYTE* r = static_cast<BYTE*>(right);
    const BYTE* s = static_cast<const BYTE*>(src);
    for (size_t done = 0; done < frames;) {
      const size_t n = std::min<size_t>(kChunk, frames - done);
      Convert<32, S>(buf, s, 2 * n);
      Split(l, r, buf, n);
      l += 4 * n;
      r += 4 * n;
      s += 2 * n * Sample<S>::kBytes;
      done += n;
    }
  }

  // Two float planes into interleaved type D.
  template <int D>
  static void InterleaveFromFloat(void* dst, const void* left, const void* right, DWORD frames) {
    alignas(32) BYTE buf[2 * kChunk * 4];
    BYTE* d = static_cast<BYTE*>(dst);
    const BYTE* l = static_cast<const BYTE*>(left);
    const BYTE* r = static_cast<const BYTE*>(right);
    for (size_t done = 0; done < frames;) {
      const size_t n = std::min<size_t>(kChunk, frames - done);
      Merge(buf, l, r, n);
      Convert<D, 32>(d, buf, 2 * n);
      l += 4 * n;
      r += 4 * n;
      d += 2 * n * Sample<D>::kBytes;
      done += n;
    }
  }

  // The pairs a variant may vectorise, as destination * 256 + source.
  using Pairs = std::integer_sequence<int, 17 * 256 + 32, 18 * 256 + 32, 19 * 256 + 32, 33 * 256 + 32,
                                      32 * 256 + 17, 32 * 256 + 18, 32 * 256 + 19, 32 * 256 + 33, 17 * 256 + 33,
                                      18 * 256 + 33, 33 * 256 + 17>;

  template <class F, template <int, int> class Pick, int... P>
  static F LookupIn(ZQSAMPLETYPE dst, ZQSAMPLETYPE src, std::integer_sequence<int, P...>) {
    F f = nullptr;
    const int key = dst * 256 + src;
    (void)((key == P && Has<P / 256, P % 256>() ? (f = Pick<P / 256, P % 256>::f, true) : false) || ...);
    return f;
  }
  template <class F, template <int, int> class Pick>
  static F Lookup(ZQSAMPLETYPE dst, ZQSAMPLETYPE src) {
    return LookupIn<F, Pick>(dst, src, Pairs());
  }

  template <int D, int S>
  struct PickCopy {
    static constexpr ZqAudioCopyFunction f = &Copy<D, S>;
  };
  template <int D, int S>
  struct PickCopyChannels {
    static constexpr ZqAudioCopyChannelsFunction f = &CopyChannels<D, S>;
  };

  static ZqAudioCopyFunction CopyLookup(ZQSAMPLETYPE dst, ZQSAMPLETYPE src) {
    return Lookup<ZqAudioCopyFunction, PickCopy>(dst, src);
  }
  static ZqAudioCopyChannelsFunction CopyChannelsLookup(ZQSAMPLETYPE dst, ZQSAMPLETYPE src) {
    return Lookup<ZqAudioCopyChannelsFunction, PickCopyChannels>(dst, src);
  }
  static ZqAudioDeInterleaveFunction DeInterleaveLookup(ZQSAMPLETYPE dst, ZQSAMPLETYPE src) {
    if (dst == src && (dst == 19 || dst == 32 || dst == 48)) return &DeInterleaveWords;
    if (dst != 32) return nullptr;
    switch (src) {
      case 17: return Has<32, 17>() ? &DeInterleaveToFloat<17> : nullptr;
      case 18: return Has<32, 18>() ? &DeInterleaveToFloat<18> : nullptr;
      case 19: return Has<32, 19>() ? &DeInterleaveToFloat<19> : nullptr;
      case 33: return Has<32, 33>() ? &DeInterleaveToFloat<33> : nullptr;
    }
    return nullptr;
  }
  static ZqAudioInterleaveFunction InterleaveLookup(ZQSAMPLETYPE dst, ZQSAMPLETYPE src) {
    if (dst == src && (dst == 19 || dst == 32 || dst == 48)) return &InterleaveWords;
    if (src != 32) return nullptr;
    switch (dst) {
      case 17: return Has<17, 32>() ? &InterleaveFromFloat<17> : nullptr;
      case 18: return Has<18, 32>() ? &InterleaveFromFloat<18> : nullptr;
      case 19: return Has<19, 32>() ? &InterleaveFromFloat<19> : nullptr;
      case 33: return Has<33, 32>() ? &InterleaveFromFloat<33> : nullptr;
    }
    return nullptr;
  }

  static constexpr RoutineSet MakeSet(const char* name, DWORD features) {
    return {name, features, &CopyLookup, &CopyChannelsLookup, &DeInterleaveLookup, &InterleaveLookup};
  }
};

}  // namespace
}  // namespace zq::audio
