// The part of a processor variant that does not depend on its instructions:
// tails, chunking, cache-bypassing decisions and the routine set.  A variant
// source includes this with its own flags and supplies an `Isa` with
//   template <int D, int S> static size_t Block(BYTE* d, const BYTE* s, size_t n)
//       converts the first samples of `n` (a multiple of its width) with gain
//       1.0 and answers how many; 0 for a pair it does not vectorise;
//   template <int D, int S> static size_t BlockGain(BYTE* d, const BYTE* s, size_t n, double gain)
//       likewise with a gain other than 1.0, in double precision as the
//       value path is;
//   template <int S> static constexpr bool HasSplit()
//   template <int S, bool kStream> static size_t Split(BYTE* l, BYTE* r, const BYTE* s, size_t frames)
//       interleaved stereo of type S straight into two float planes (S 32:
//       any 32-bit words moved unchanged), whole vectors only, answering the
//       frames done; the driver finishes the tail;
//   template <int D> static constexpr bool HasMerge()
//   template <int D, bool kStream> static size_t Merge(BYTE* d, const BYTE* l, const BYTE* r, size_t frames)
//       two float planes straight into interleaved type D, likewise;
//   template <int D> static constexpr bool CanStreamMerge()
//       whether Merge<D, true> writes whole aligned vectors only;
//   static void Fence()
//       orders the cache-bypassing stores before the routine returns.
// With kStream the destinations are aligned to 32 bytes by the driver and
// written past the cache.
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
    BYTE* d = static_cast<BYTE*>(dst);
    const BYTE* s = static_cast<const BYTE*>(src);
    if (gain != 1.0f) {
      const size_t k = Isa::template BlockGain<D, S>(d, s, count, double(gain));
      CopyLoop<D, S, true>(d + k * Sample<D>::kBytes, s + k * Sample<S>::kBytes, count - k, gain);
      return;
    }
    Convert<D, S>(d, s, count);
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

  // From this many bytes of float planes on, stores bypass the cache: a
  // buffer that large leaves the cache anyway, and not reading the
  // destination's lines in first saves a third of the memory traffic of a
  // copy.
  static constexpr size_t kStreamBytes = size_t(8) << 20;

  // Frames [from, to) of a de-interleave or interleave, one sample at a time.
  template <int S>
  static void SplitTail(BYTE* l, BYTE* r, const BYTE* s, size_t from, size_t to) {
    constexpr size_t bs = Sample<S>::kBytes;
    for (size_t i = from; i < to; ++i) {
      ConvertSample<32, S>(l + 4 * i, s + 2 * i * bs);
      ConvertSample<32, S>(r + 4 * i, s + (2 * i + 1) * bs);
    }
  }
  template <int D>
  static void MergeTail(BYTE* d, const BYTE* l, const BYTE* r, size_t from, size_t to) {
    constexpr size_t bd = Sample<D>::kBytes;
    for (size_t i = from; i < to; ++i) {
      ConvertSample<D, 32>(d + 2 * i * bd, l + 4 * i);
      ConvertSample<D, 32>(d + (2 * i + 1) * bd, r + 4 * i);
    }
  }

  // Interleaved type S into two float planes in one pass.  Large buffers
  // whose planes can both be brought to a 32-byte boundary by the same
  // number of head frames go past the cache.
  template <int S>
  static void SplitFused(BYTE* l, BYTE* r, const BYTE* s, size_t frames) {
    constexpr size_t bs = 2 * Sample<S>::kBytes;
    const uintptr_t la = reinterpret_cast<uintptr_t>(l), ra = reinterpret_cast<uintptr_t>(r);
    if (frames * 8 >= kStreamBytes && (la & 3) == 0 && ((la - ra) & 31) == 0) {
      const size_t head = ((32 - (la & 31)) & 31) / 4;
      SplitTail<S>(l, r, s, 0, head);
      const size_t done =
          head + Isa::template Split<S, true>(l + 4 * head, r + 4 * head, s + bs * head, frames - head);
      Isa::Fence();
      SplitTail<S>(l, r, s, done, frames);
      return;
    }
    SplitTail<S>(l, r, s, Isa::template Split<S, false>(l, r, s, frames), frames);
  }

  template <int D>
  static void MergeFused(BYTE* d, const BYTE* l, const BYTE* r, size_t frames) {
    constexpr size_t bd = 2 * Sample<D>::kBytes;
    if constexpr (Isa::template CanStreamMerge<D>()) {
      if (frames * 8 >= kStreamBytes) {
        // The first frame that starts on a 32-byte boundary, if any does.
        const uintptr_t da = reinterpret_cast<uintptr_t>(d);
        size_t head = 0;
        while (head < 32 && ((da + head * bd) & 31) != 0) ++head;
        if (head < 32) {
          MergeTail<D>(d, l, r, 0, head);
          const size_t done =
              head + Isa::template Merge<D, true>(d + bd * head, l + 4 * head, r + 4 * head, frames - head);
          Isa::Fence();
          MergeTail<D>(d, l, r, done, frames);
          return;
        }
      }
    }
    MergeTail<D>(d, l, r, Isa::template Merge<D, false>(d, l, r, frames), frames);
  }

  // Same 32-bit type on both sides: words move unchanged.
  static void DeInterleaveWords(void* left, void* right, const void* src, DWORD frames) {
    SplitFused<32>(static_cast<BYTE*>(left), static_cast<BYTE*>(right), static_cast<const BYTE*>(src), frames);
  }
  static void InterleaveWords(void* dst, const void* left, const void* right, DWORD frames) {
    MergeFused<32>(static_cast<BYTE*>(dst), static_cast<const BYTE*>(left), static_cast<const BYTE*>(right),
                   frames);
  }

  // Interleaved type S into two float planes: in one pass where the variant
  // has it, else converted a chunk at a time into a stack buffer and split.
  template <int S>
  static void DeInterleaveToFloat(void* left, void* right, const void* src, DWORD frames) {
    BYTE* l = static_cast<BYTE*>(left);
    BYTE* r = static_cast<BYTE*>(right);
    const BYTE* s = static_cast<const BYTE*>(src);
    if constexpr (Isa::template HasSplit<S>()) {
      SplitFused<S>(l, r, s, frames);
    } else {
      alignas(32) BYTE buf[2 * kChunk * 4];
      for (size_t done = 0; done < frames;) {
        const size_t n = std::min<size_t>(kChunk, frames - done);
        Convert<32, S>(buf, s, 2 * n);
        SplitTail<32>(l, r, buf, Isa::template Split<32, false>(l, r, buf, n), n);
        l += 4 * n;
        r += 4 * n;
        s += 2 * n * Sample<S>::kBytes;
        done += n;
      }
    }
  }

  // Two float planes into interleaved type D, likewise.
  template <int D>
  static void InterleaveFromFloat(void* dst, const void* left, const void* right, DWORD frames) {
    BYTE* d = static_cast<BYTE*>(dst);
    const BYTE* l = static_cast<const BYTE*>(left);
    const BYTE* r = static_cast<const BYTE*>(right);
    if constexpr (Isa::template HasMerge<D>()) {
      MergeFused<D>(d, l, r, frames);
    } else {
      alignas(32) BYTE buf[2 * kChunk * 4];
      for (size_t done = 0; done < frames;) {
        const size_t n = std::min<size_t>(kChunk, frames - done);
        MergeTail<32>(buf, l, r, Isa::template Merge<32, false>(buf, l, r, n), n);
        Convert<D, 32>(d, buf, 2 * n);
        l += 4 * n;
        r += 4 * n;
        d += 2 * n * Sample<D>::kBytes;
        done += n;
      }
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
  // A set of the copy and copy-channels routines alone: its (de-)interleave
  // lookups answer nothing, so the next set's routines serve them.
  static ZqAudioDeInterleaveFunction NoDeInterleave(ZQSAMPLETYPE, ZQSAMPLETYPE) { return nullptr; }
  static ZqAudioInterleaveFunction NoInterleave(ZQSAMPLETYPE, ZQSAMPLETYPE) { return nullptr; }
  static constexpr RoutineSet MakeCopySet(const char* name, DWORD features) {
    return {name, features, &CopyLookup, &CopyChannelsLookup, &NoDeInterleave, &NoInterleave};
  }
};

}  // namespace
}  // namespace zq::audio
