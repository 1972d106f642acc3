// The 16-bit stereo routines of a plug-in's block for processors with
// 512-bit vectors (AVX-512F and BW): built with those instructions allowed,
// called only after ZqAudio_WideStereo16Available (stereo16.cpp, built
// without them) said yes.
#include <immintrin.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "kernel/audio/stereo16.h"

namespace {

// GCC 12's intrinsics fill unused operands from a self-initialised variable,
// which its uninitialised-use warning reports inside every caller.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wuninitialized"
#endif

// Floats of the 64-byte line a plane starts in that lie before it.  A plane
// that is not 4-byte aligned counts as aligned: its stores are unaligned
// whatever is done.
inline size_t LeadOf(const void* plane) {
  const uintptr_t a = reinterpret_cast<uintptr_t>(plane);
  return (a & 3) == 0 ? (a & 63) / 4 : 0;
}

// Lanes [0, n) of a 16-lane mask, n at most 16.
inline __mmask16 FirstLanes(size_t n) { return static_cast<__mmask16>((1u << n) - 1u); }

// 16 interleaved 16-bit frames, one per 32-bit word, as left and right
// floats.  A sample moved into the top half of its word converts exactly and
// scaling by 2^-31 is exact, so each is v / 32768 bit for bit.
inline void SplitWords(__m512i x, __m512* left, __m512* right) {
  const __m512 scale = _mm512_set1_ps(1.0f / 2147483648.0f);
  const __m512i top = _mm512_set1_epi32(static_cast<int>(0xFFFF0000u));
  *left = _mm512_mul_ps(_mm512_cvtepi32_ps(_mm512_slli_epi32(x, 16)), scale);
  *right = _mm512_mul_ps(_mm512_cvtepi32_ps(_mm512_and_si512(x, top)), scale);
}

// Frames [at, at + n) of the source into the four planes, n at most 16.
inline void SplitFew(float* inLeft, float* inRight, float* dryLeft, float* dryRight, const uint32_t* source, size_t at,
                     size_t n) {
  const __mmask16 mask = FirstLanes(n);
  __m512 left, right;
  SplitWords(_mm512_maskz_loadu_epi32(mask, source + at), &left, &right);
  _mm512_mask_storeu_ps(inLeft + at, mask, left);
  _mm512_mask_storeu_ps(inRight + at, mask, right);
  _mm512_mask_storeu_ps(dryLeft + at, mask, left);
  _mm512_mask_storeu_ps(dryRight + at, mask, right);
}

// `any` with the `n` bytes from `p` ORed in.
inline __m512i OrBytes(__m512i any, const unsigned char* p, size_t n) {
  size_t at = 0;
  for (; at + 256 <= n; at += 256) {
    any = _mm512_ternarylogic_epi64(any, _mm512_loadu_si512(p + at), _mm512_loadu_si512(p + at + 64), 0xFE);
    any = _mm512_ternarylogic_epi64(any, _mm512_loadu_si512(p + at + 128), _mm512_loadu_si512(p + at + 192), 0xFE);
  }
  for (; at < n; at += 64) {
    const __mmask64 mask = n - at >= 64 ? ~__mmask64{0} : (__mmask64{1} << (n - at)) - 1;
    any = _mm512_or_si512(any, _mm512_maskz_loadu_epi8(mask, p + at));
  }
  return any;
}

inline bool IsZero(__m512i any) { return _mm512_test_epi64_mask(any, any) == 0; }

// Floats as 16-bit samples, as the kernel's routines give them: scaled,
// clipped at the top (the saturating pack clips the bottom, where the
// conversion's out-of-range answer also lands), NaN as 0, rounded in the
// current mode.
inline __m512i ToPcm16(__m512 v) {
  const __m512 x = _mm512_mul_ps(v, _mm512_set1_ps(32768.0f));
  return _mm512_maskz_cvtps_epi32(_mm512_cmp_ps_mask(x, x, _CMP_ORD_Q), _mm512_min_ps(x, _mm512_set1_ps(32767.0f)));
}

// Sixteen frames of two planes as interleaved 16-bit stereo, one frame per
// 32-bit lane: per 128-bit lane the pack gives four left then four right
// samples, which the shuffle alternates.
inline __m512i Interleave16(__m512 left, __m512 right) {
  const __m512i alternate = _mm512_broadcast_i32x4(_mm_setr_epi8(0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15));
  return _mm512_shuffle_epi8(_mm512_packs_epi32(ToPcm16(left), ToPcm16(right)), alternate);
}

}  // namespace

// Zeroes `n` bytes from `p`, writing them only when one is not zero yet.
void ZqAudio_ClearIfNotZero(unsigned char* p, size_t n) {
  if (!IsZero(OrBytes(_mm512_setzero_si512(), p, n))) memset(p, 0, n);
}

// Interleaved 16-bit stereo into the two input planes and their dry copies.
// The first frames, up to the first 64-byte boundary of the left input, go
// on their own, so that the stores of the input planes (and of the dry
// copies, when they lie alike) are aligned.  Meanwhile, since the pass
// leaves the loads idle, it reads the `pad` bytes from `inPad` and from
// `outPad`, which stand to be cleared, and answers whether they are all zero.
bool ZqAudio_SplitStereo16Dry(float* inLeft, float* inRight, float* dryLeft, float* dryRight, const void* source,
                              size_t frames, const unsigned char* inPad, const unsigned char* outPad, size_t pad) {
  const auto* words = static_cast<const uint32_t*>(source);
  __m512i any = _mm512_setzero_si512();
  size_t padDone = 0;
  size_t at = std::min(frames, (16 - LeadOf(inLeft)) % 16);
  if (at > 0) SplitFew(inLeft, inRight, dryLeft, dryRight, words, 0, at);
  for (; at + 16 <= frames; at += 16) {
    __m512 left, right;
    SplitWords(_mm512_loadu_si512(words + at), &left, &right);
    _mm512_storeu_ps(inLeft + at, left);
    _mm512_storeu_ps(inRight + at, right);
    _mm512_storeu_ps(dryLeft + at, left);
    _mm512_storeu_ps(dryRight + at, right);
    if (padDone + 64 <= pad) {
      any = _mm512_ternarylogic_epi64(any, _mm512_loadu_si512(inPad + padDone), _mm512_loadu_si512(outPad + padDone),
                                      0xFE);
      padDone += 64;
    }
  }
  if (at < frames) SplitFew(inLeft, inRight, dryLeft, dryRight, words, at, frames - at);
  if (padDone < pad) {
    any = OrBytes(any, inPad + padDone, pad - padDone);
    any = OrBytes(any, outPad + padDone, pad - padDone);
  }
  return IsZero(any);
}

// Two planes into interleaved 16-bit stereo.
void ZqAudio_MergeStereo16(void* destination, const float* left, const float* right, size_t frames) {
  auto* words = static_cast<uint32_t*>(destination);
  size_t at = 0;
  for (; at + 16 <= frames; at += 16)
    _mm512_storeu_si512(words + at, Interleave16(_mm512_loadu_ps(left + at), _mm512_loadu_ps(right + at)));
  if (at < frames) {
    const __mmask16 mask = FirstLanes(frames - at);
    _mm512_mask_storeu_epi32(
        words + at, mask,
        Interleave16(_mm512_maskz_loadu_ps(mask, left + at), _mm512_maskz_loadu_ps(mask, right + at)));
  }
}

#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif
