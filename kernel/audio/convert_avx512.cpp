// Copy routines between the integer types of 16, 24 and 32 bits and 32-bit
// float for processors with AVX-512 (foundation, byte/word, doubleword and
// vector-length extensions, and the byte permutes).  Built with those flags
// and without floating-point contraction: every routine gives the value of
// the scalar path bit for bit, NaN payloads included.
//
// Masks do here what the narrower variants need extra instructions for: a
// NaN lane is zeroed by the conversion itself, a 32-bit result is fixed up
// in the lanes that need it, and the last samples of a buffer go through one
// masked pass instead of the scalar loop.  The (de-)interleave routines are
// left to the next variant in the table.
#include <immintrin.h>

#include "kernel/audio/simd_driver.h"

// GCC 12's intrinsics fill unused operands from a self-initialised variable,
// which its uninitialised-use warning reports inside every caller.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wuninitialized"
#endif

namespace zq::audio {
namespace {

// Sixty-four packed 24-bit samples are three whole vectors: byte j of
// vector `out` from the two vectors of 32-bit lanes holding its samples.
struct Join24 {
  alignas(64) BYTE idx[3][64];
};
constexpr Join24 MakeJoin24() {
  Join24 t{};
  for (int out = 0; out < 3; ++out)
    for (int j = 0; j < 64; ++j) {
      const int p = 64 * out + j, q = p / 3, r = p % 3;
      const int first = 16 * out;  // the first sample of the lower source vector
      t.idx[out][j] = BYTE(q < first + 16 ? 4 * (q - first) + r : 64 + 4 * (q - first - 16) + r);
    }
  return t;
}
constexpr Join24 kJoin24 = MakeJoin24();

struct Avx512 {
  static constexpr size_t kLanes = 16;

  template <int D, int S>
  static constexpr bool Has() {
    return (D == 32 && (S == 17 || S == 18 || S == 19)) || (S == 32 && (D == 17 || D == 18 || D == 19));
  }

  // The first `n` of sixteen lanes (n at most 16).
  static __mmask16 Lanes(size_t n) { return __mmask16((1u << n) - 1u); }
  // The bytes of the first `n` of sixteen packed 24-bit samples.
  static __mmask64 Bytes24(size_t n) {
    return n >= 16 ? __mmask64((1ull << 48) - 1) : __mmask64((1ull << (3 * n)) - 1);
  }

  // Sixteen packed 24-bit samples in the top three bytes of 32-bit lanes
  // (the low byte cleared): the integer shifted left by 8.
  // `n` is the number of samples from `s` on, which may exceed sixteen: with
  // six more (16 bytes) a whole vector may be read.
  static __m512i Load24(const BYTE* s, size_t n) {
    const __m512i spread = _mm512_set_epi32(
        0x2F2E2D00, 0x2C2B2A00, 0x29282700, 0x26252400, 0x23222100, 0x201F1E00, 0x1D1C1B00, 0x1A191800,  //
        0x17161500, 0x14131200, 0x11100F00, 0x0E0D0C00, 0x0B0A0900, 0x08070600, 0x05040300, 0x02010000);
    const __m512i x = n >= 22 ? _mm512_loadu_si512(s) : _mm512_maskz_loadu_epi8(Bytes24(n), s);
    return _mm512_maskz_permutexvar_epi8(__mmask64(0xEEEEEEEEEEEEEEEEull), spread, x);
  }
  // The low three bytes of sixteen 32-bit lanes, packed, the first `n` written.
  // Likewise `n` counts the samples from `d` on: with six more a whole vector
  // is written, its last 16 bytes left to the next group.
  static void Store24(BYTE* d, __m512i v, size_t n) {
    const __m512i pack = _mm512_set_epi32(
        0, 0, 0, 0, 0x3E3D3C3A, 0x39383635, 0x34323130, 0x2E2D2C2A,  //
        0x29282625, 0x24222120, 0x1E1D1C1A, 0x19181615, 0x14121110, 0x0E0D0C0A, 0x09080605, 0x04020100);
    if (n >= 22)
      _mm512_storeu_si512(d, _mm512_permutexvar_epi8(pack, v));
    else
      _mm512_mask_storeu_epi8(d, Bytes24(n), _mm512_permutexvar_epi8(pack, v));
  }

  // The source as sixteen normalised floats.  Converting an integer of 16
  // bits to float is exact, and rounding an integer of 24 or 32 bits (or of
  // 24 shifted left by 8) to float and then scaling by a power of two is the
  // same as scaling exactly and rounding once.
  template <int S>
  static __m512 LoadFloat(const BYTE* s, __mmask16 m, size_t n) {
    if constexpr (S == 17) {
      const __m512i w = _mm512_cvtepi16_epi32(_mm256_maskz_loadu_epi16(m, s));
      return _mm512_mul_ps(_mm512_cvtepi32_ps(w), _mm512_set1_ps(1.0f / 32768.0f));
    } else if constexpr (S == 18) {
      return _mm512_mul_ps(_mm512_cvtepi32_ps(Load24(s, n)), _mm512_set1_ps(1.0f / 2147483648.0f));
    } else {
      static_assert(S == 19);
      return _mm512_mul_ps(_mm512_cvtepi32_ps(_mm512_maskz_loadu_epi32(m, s)), _mm512_set1_ps(1.0f / 2147483648.0f));
    }
  }

  // Sixteen floats to type D in single precision.  For 16 and 24 value bits
  // this is exact: scaling by a power of two is, and both paths round in the
  // same mode.  NaN gives 0 at these widths, the low bits of a widened float
  // NaN.  At 16 bits the masked conversion leaves NaN lanes 0, and the
  // conversion's overflow value and everything below the range saturate to
  // the bottom in the narrowing, so only the top is clipped.
  //
  // At 32 bits the conversion answers 0x80000000 at or above 2^31 where the
  // clip gives 0x7FFFFFFF, and for NaN the scalar path keeps the low 32 bits
  // of the widened NaN: the float's three low payload bits moved to the top.
  template <int D>
  static void StoreFloat(BYTE* d, __m512 x, __mmask16 m, size_t n) {
    if constexpr (D == 17) {
      __m512 v = _mm512_mul_ps(x, _mm512_set1_ps(32768.0f));
      const __mmask16 ord = _mm512_cmp_ps_mask(v, v, _CMP_ORD_Q);
      v = _mm512_min_ps(v, _mm512_set1_ps(32767.0f));
      _mm256_mask_storeu_epi16(d, m, _mm512_cvtsepi32_epi16(_mm512_maskz_cvtps_epi32(ord, v)));
    } else if constexpr (D == 18) {
      // NaN passes the clip (min and max answer their second operand for
      // it) and converts to 0x80000000, whose low three bytes are 0.
      Store24(d, ToInt24(x), n);
    } else {
      static_assert(D == 19);
      _mm512_mask_storeu_epi32(d, m, WithNaN(x, Int32NoNaN(x)));
    }
  }


  static __m512i ToInt24(__m512 x) {
    __m512 v = _mm512_mul_ps(x, _mm512_set1_ps(8388608.0f));
    v = _mm512_max_ps(_mm512_set1_ps(-8388608.0f), _mm512_min_ps(_mm512_set1_ps(8388607.0f), v));
    return _mm512_cvtps_epi32(v);
  }

  // Float to packed 24 bits, sixty-four samples at a time into whole
  // vectors; what is left goes through the masked routine.  (Bringing the
  // destination to a 64-byte boundary first takes up to 63 samples of
  // masked passes, which measured slower than the straddling stores.)
  static size_t Block24(BYTE* d, const BYTE* s, size_t n) {
    size_t i = 0;
    const __m512i j0 = _mm512_load_si512(kJoin24.idx[0]), j1 = _mm512_load_si512(kJoin24.idx[1]),
                  j2 = _mm512_load_si512(kJoin24.idx[2]);
    for (; i + 64 <= n; i += 64) {
      const float* x = reinterpret_cast<const float*>(s + 4 * i);
      const __m512i i0 = ToInt24(_mm512_loadu_ps(x)), i1 = ToInt24(_mm512_loadu_ps(x + 16));
      const __m512i i2 = ToInt24(_mm512_loadu_ps(x + 32)), i3 = ToInt24(_mm512_loadu_ps(x + 48));
      _mm512_storeu_si512(d + 3 * i, _mm512_permutex2var_epi8(i0, j0, i1));
      _mm512_storeu_si512(d + 3 * i + 64, _mm512_permutex2var_epi8(i1, j1, i2));
      _mm512_storeu_si512(d + 3 * i + 128, _mm512_permutex2var_epi8(i2, j2, i3));
    }
    return i;
  }

  // Float to 32-bit integer apart from NaN: lanes below 2^31 are converted,
  // the others take 0x7FFFFFFF (so would NaN).
  static __m512i Int32NoNaN(__m512 x) {
    const __m512 v = _mm512_mul_ps(x, _mm512_set1_ps(2147483648.0f));
    return _mm512_mask_cvtps_epi32(_mm512_set1_epi32(0x7FFFFFFF),
                                   _mm512_cmp_ps_mask(v, _mm512_set1_ps(2147483648.0f), _CMP_LT_OQ), v);
  }
  // NaN lanes of `x` take their payload bits.
  static __m512i WithNaN(__m512 x, __m512i i) {
    return _mm512_mask_slli_epi32(i, _mm512_fpclass_ps_mask(x, 0x81), _mm512_castps_si512(x), 29);
  }

  template <int D, int S>
  static void Step(BYTE* d, const BYTE* s, __mmask16 m, size_t n) {
    if constexpr (D == 32) {
      _mm512_mask_storeu_ps(d, m, LoadFloat<S>(s, m, n));
    } else {
      StoreFloat<D>(d, _mm512_maskz_loadu_ps(m, s), m, n);
    }
  }

  // A store that straddles two cache lines costs two: where the destination
  // of a conversion from float is aligned to its samples, a first masked
  // pass brings it to the width of a store (the 48-byte groups of packed 24
  // bits cannot keep to it).  Towards float, where the loads of the narrower
  // source would then straddle instead, measurements favour leaving it.
  // Answers the samples done.
  template <int D, int S>
  static size_t HeadToAlign(BYTE* d, const BYTE* s, size_t n) {
    if constexpr (D == 18 || S != 32) {
      return 0;
    } else {
      constexpr size_t bd = Sample<D>::kBytes, width = kLanes * bd;
      const uintptr_t a = reinterpret_cast<uintptr_t>(d);
      if (a % bd != 0) return 0;
      const size_t head = std::min(n, (width - a % width) % width / bd);
      if (head) Step<D, S>(d, s, Lanes(head), head);
      return head;
    }
  }

  template <int D, int S>
  static size_t Block(BYTE* d, const BYTE* s, size_t n) {
    if constexpr (!Has<D, S>()) {
      return 0;
    } else {
      constexpr size_t bd = Sample<D>::kBytes, bs = Sample<S>::kBytes;
      size_t i = HeadToAlign<D, S>(d, s, n);
      if constexpr (D == 18) i = Block24(d, s, n);
      if constexpr (D == 19) {
        // Real audio has no NaN: one test of a sum of two vectors (NaN if
        // either has one, or infinities of both signs meet) spares the
        // payload fix-up for the two.
        for (; i + 2 * kLanes <= n; i += 2 * kLanes) {
          const __m512 x = _mm512_loadu_ps(s + 4 * i), y = _mm512_loadu_ps(s + 4 * i + 64);
          __m512i a = Int32NoNaN(x), b = Int32NoNaN(y);
          const __m512 sum = _mm512_add_ps(x, y);
          if (_mm512_cmp_ps_mask(sum, sum, _CMP_UNORD_Q)) [[unlikely]] {
            a = WithNaN(x, a);
            b = WithNaN(y, b);
          }
          _mm512_storeu_si512(d + 4 * i, a);
          _mm512_storeu_si512(d + 4 * i + 64, b);
        }
      }
      for (; i + 2 * kLanes <= n; i += 2 * kLanes) {
        Step<D, S>(d + bd * i, s + bs * i, __mmask16(0xFFFF), n - i);
        Step<D, S>(d + bd * (i + kLanes), s + bs * (i + kLanes), __mmask16(0xFFFF), n - i - kLanes);
      }
      for (; i + kLanes <= n; i += kLanes) Step<D, S>(d + bd * i, s + bs * i, __mmask16(0xFFFF), n - i);
      if (i < n) Step<D, S>(d + bd * i, s + bs * i, Lanes(n - i), n - i);
      return n;
    }
  }

  // ---- gain other than 1.0: the value path in double precision --------------

  // The sixteen source values as two vectors of eight doubles, multiplied by
  // `k`.  For an integer source `k` is the source factor times the gain, and
  // the product is what the value path's two multiplications give, since
  // the factor is a power of two; for a float source `k` is the gain times
  // the destination's scale, and the product is exact either way.
  template <int S>
  static void LoadDoubles(const BYTE* s, __mmask16 m, size_t n, __m512d k, __m512d& lo, __m512d& hi) {
    if constexpr (S == 32) {
      const __m512 x = _mm512_maskz_loadu_ps(m, s);
      lo = _mm512_mul_pd(_mm512_cvtps_pd(_mm512_castps512_ps256(x)), k);
      hi = _mm512_mul_pd(_mm512_cvtps_pd(_mm256_castpd_ps(_mm512_extractf64x4_pd(_mm512_castps_pd(x), 1))), k);
    } else {
      __m512i w;
      if constexpr (S == 17)
        w = _mm512_cvtepi16_epi32(_mm256_maskz_loadu_epi16(m, s));
      else if constexpr (S == 18)
        w = Load24(s, n);
      else
        w = _mm512_maskz_loadu_epi32(m, s);
      lo = _mm512_mul_pd(_mm512_cvtepi32_pd(_mm512_castsi512_si256(w)), k);
      hi = _mm512_mul_pd(_mm512_cvtepi32_pd(_mm512_extracti64x4_epi64(w, 1)), k);
    }
  }

  // Clip (NaN passes: min and max answer their second operand for it), add
  // 1.5 * 2^52 and keep the low 32 bits, as the scalar path does.
  static __m256i Round(__m512d v, double full) {
    v = _mm512_max_pd(_mm512_set1_pd(-full), _mm512_min_pd(_mm512_set1_pd(full - 1.0), v));
    return _mm512_cvtepi64_epi32(_mm512_castpd_si512(_mm512_add_pd(v, _mm512_set1_pd(kRoundMagic))));
  }

  template <int D, int S>
  static void StepGain(BYTE* d, const BYTE* s, __mmask16 m, size_t n, __m512d k) {
    __m512d lo, hi;
    LoadDoubles<S>(s, m, n, k, lo, hi);
    if constexpr (D == 32) {
      const __m512 f = _mm512_insertf32x8(_mm512_castps256_ps512(_mm512_cvtpd_ps(lo)), _mm512_cvtpd_ps(hi), 1);
      _mm512_mask_storeu_ps(d, m, f);
    } else {
      const __m512i w = _mm512_inserti64x4(_mm512_castsi256_si512(Round(lo, Sample<D>::kScale)),
                                           Round(hi, Sample<D>::kScale), 1);
      if constexpr (D == 17)
        _mm256_mask_storeu_epi16(d, m, _mm512_cvtepi32_epi16(w));  // the low 16 bits
      else if constexpr (D == 18)
        Store24(d, w, n);
      else
        _mm512_mask_storeu_epi32(d, m, w);
    }
  }

  template <int D, int S>
  static size_t BlockGain(BYTE* d, const BYTE* s, size_t n, double gain) {
    if constexpr (!Has<D, S>()) {
      return 0;
    } else {
      constexpr size_t bd = Sample<D>::kBytes, bs = Sample<S>::kBytes;
      // A 24-bit source is read shifted left by 8.
      const double factor = S == 18 ? 1.0 / 2147483648.0 : Sample<S>::kFactor;
      const __m512d k = _mm512_set1_pd(D == 32 ? factor * gain : gain * Sample<D>::kScale);
      size_t i = 0;
      for (; i + kLanes <= n; i += kLanes) StepGain<D, S>(d + bd * i, s + bs * i, __mmask16(0xFFFF), n - i, k);
      if (i < n) StepGain<D, S>(d + bd * i, s + bs * i, Lanes(n - i), n - i, k);
      return n;
    }
  }
};

}  // namespace

const RoutineSet kAvx512Routines = Driver<Avx512>::MakeCopySet(
    "avx512", ZQCPU_SSE2 | ZQCPU_AVX | ZQCPU_AVX2 | ZQCPU_AVX512 | ZQCPU_AVX512VBMI);

}  // namespace zq::audio

#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif
