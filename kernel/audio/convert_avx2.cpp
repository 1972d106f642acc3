// Routines for processors with AVX2.  Built with -mavx2 and without
// floating-point contraction: every routine gives the value of the scalar
// path bit for bit, NaN payloads included.
#include <immintrin.h>

#include "kernel/audio/simd_driver.h"

namespace zq::audio {
namespace {

struct Avx2 {
  template <int D, int S>
  static constexpr bool Has() {
    return true;  // every pair of the driver's list
  }

  // Float to integer in single precision: exact for 16 and 24 value bits,
  // since scaling by a power of two is exact and both round in the same
  // mode.  NaN becomes 0, which is what the low bits of a widened float NaN
  // give at these widths.
  static __m256i FloatToInt(__m256 x, __m256 scale, __m256 hi, __m256 lo) {
    x = _mm256_mul_ps(x, scale);
    x = _mm256_and_ps(x, _mm256_cmp_ps(x, x, _CMP_ORD_Q));
    x = _mm256_max_ps(_mm256_min_ps(x, hi), lo);
    return _mm256_cvtps_epi32(x);
  }

  // The double path: scale, clip with NaN passing (min and max answer their
  // second operand for NaN), add 1.5 * 2^52 and keep the low 32 bits.
  static __m128i DoubleToLow32(__m256d v, __m256d scale, __m256d hi, __m256d lo) {
    v = _mm256_mul_pd(v, scale);
    v = _mm256_max_pd(lo, _mm256_min_pd(hi, v));
    v = _mm256_add_pd(v, _mm256_set1_pd(kRoundMagic));
    const __m256 w = _mm256_permutevar8x32_ps(_mm256_castpd_ps(v), _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7));
    return _mm_castps_si128(_mm256_castps256_ps128(w));
  }

  // The low three bytes of each 32-bit word, packed into the first 12 bytes.
  static __m128i Pack24(__m128i v) {
    return _mm_shuffle_epi8(v, _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1));
  }
  // Writes exactly 24 bytes: the first store's spare bytes are covered by
  // the second.
  static void Store24x8(BYTE* d, __m128i a, __m128i b) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d), Pack24(a));
    const __m128i pb = Pack24(b);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(d + 12), pb);
    const int32_t tail = _mm_cvtsi128_si32(_mm_srli_si128(pb, 8));
    std::memcpy(d + 20, &tail, 4);
  }

  template <int D, int S>
  static size_t Block(BYTE* d, const BYTE* s, size_t n) {
    size_t i = 0;
    if constexpr (D == 17 && S == 32) {
      const __m256 scale = _mm256_set1_ps(32768.0f), hi = _mm256_set1_ps(32767.0f), lo = _mm256_set1_ps(-32768.0f);
      for (; i + 16 <= n; i += 16) {
        const __m256i a = FloatToInt(_mm256_loadu_ps(reinterpret_cast<const float*>(s + 4 * i)), scale, hi, lo);
        const __m256i b = FloatToInt(_mm256_loadu_ps(reinterpret_cast<const float*>(s + 4 * i + 32)), scale, hi, lo);
        const __m256i p = _mm256_permute4x64_epi64(_mm256_packs_epi32(a, b), 0xD8);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + 2 * i), p);
      }
    } else if constexpr (D == 18 && S == 32) {
      const __m256 scale = _mm256_set1_ps(8388608.0f), hi = _mm256_set1_ps(8388607.0f), lo = _mm256_set1_ps(-8388608.0f);
      for (; i + 8 <= n; i += 8) {
        const __m256i v = FloatToInt(_mm256_loadu_ps(reinterpret_cast<const float*>(s + 4 * i)), scale, hi, lo);
        Store24x8(d + 3 * i, _mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
      }
    } else if constexpr (D == 19 && S == 32) {
      const __m256d scale = _mm256_set1_pd(2147483648.0), hi = _mm256_set1_pd(2147483647.0),
                    lo = _mm256_set1_pd(-2147483648.0);
      for (; i + 8 <= n; i += 8) {
        const __m256 x = _mm256_loadu_ps(reinterpret_cast<const float*>(s + 4 * i));
        const __m128i a = DoubleToLow32(_mm256_cvtps_pd(_mm256_castps256_ps128(x)), scale, hi, lo);
        const __m128i b = DoubleToLow32(_mm256_cvtps_pd(_mm256_extractf128_ps(x, 1)), scale, hi, lo);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 4 * i), a);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 4 * i + 16), b);
      }
    } else if constexpr (D == 33 && S == 32) {
      for (; i + 8 <= n; i += 8) {
        const __m256 x = _mm256_loadu_ps(reinterpret_cast<const float*>(s + 4 * i));
        _mm256_storeu_pd(reinterpret_cast<double*>(d + 8 * i), _mm256_cvtps_pd(_mm256_castps256_ps128(x)));
        _mm256_storeu_pd(reinterpret_cast<double*>(d + 8 * i + 32), _mm256_cvtps_pd(_mm256_extractf128_ps(x, 1)));
      }
    } else if constexpr (D == 32 && S == 17) {
      const __m256 f = _mm256_set1_ps(1.0f / 32768.0f);
      for (; i + 16 <= n; i += 16) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 2 * i));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 2 * i + 16));
        _mm256_storeu_ps(reinterpret_cast<float*>(d + 4 * i),
                         _mm256_mul_ps(_mm256_cvtepi32_ps(_mm256_cvtepi16_epi32(a)), f));
        _mm256_storeu_ps(reinterpret_cast<float*>(d + 4 * i + 32),
                         _mm256_mul_ps(_mm256_cvtepi32_ps(_mm256_cvtepi16_epi32(b)), f));
      }
    } else if constexpr (D == 32 && S == 18) {
      // Bytes 0..15 and 8..23 of each group of eight: nothing outside it is read.
      const __m256i shuffle = _mm256_setr_epi8(-1, 0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11,  //
                                               -1, 4, 5, 6, -1, 7, 8, 9, -1, 10, 11, 12, -1, 13, 14, 15);
      const __m256 f = _mm256_set1_ps(1.0f / 2147483648.0f);
      for (; i + 8 <= n; i += 8) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 3 * i));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 3 * i + 8));
        const __m256i w = _mm256_shuffle_epi8(_mm256_set_m128i(b, a), shuffle);
        _mm256_storeu_ps(reinterpret_cast<float*>(d + 4 * i), _mm256_mul_ps(_mm256_cvtepi32_ps(w), f));
      }
    } else if constexpr (D == 32 && S == 19) {
      // Rounding the integer to float and then scaling by a power of two is
      // the same as scaling exactly and then rounding.
      const __m256 f = _mm256_set1_ps(1.0f / 2147483648.0f);
      for (; i + 8 <= n; i += 8) {
        const __m256i w = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + 4 * i));
        _mm256_storeu_ps(reinterpret_cast<float*>(d + 4 * i), _mm256_mul_ps(_mm256_cvtepi32_ps(w), f));
      }
    } else if constexpr (D == 32 && S == 33) {
      for (; i + 8 <= n; i += 8) {
        const __m128 a = _mm256_cvtpd_ps(_mm256_loadu_pd(reinterpret_cast<const double*>(s + 8 * i)));
        const __m128 b = _mm256_cvtpd_ps(_mm256_loadu_pd(reinterpret_cast<const double*>(s + 8 * i + 32)));
        _mm256_storeu_ps(reinterpret_cast<float*>(d + 4 * i), _mm256_set_m128(b, a));
      }
    } else if constexpr ((D == 17 || D == 18) && S == 33) {
      constexpr double full = D == 17 ? 32768.0 : 8388608.0;
      const __m256d scale = _mm256_set1_pd(full), hi = _mm256_set1_pd(full - 1.0), lo = _mm256_set1_pd(-full);
      for (; i + 8 <= n; i += 8) {
        const __m128i a =
            DoubleToLow32(_mm256_loadu_pd(reinterpret_cast<const double*>(s + 8 * i)), scale, hi, lo);
        const __m128i b =
            DoubleToLow32(_mm256_loadu_pd(reinterpret_cast<const double*>(s + 8 * i + 32)), scale, hi, lo);
        if constexpr (D == 17) {
          // Keep the low 16 bits (NaN included), then pack.
          const __m128i a16 = _mm_srai_epi32(_mm_slli_epi32(a, 16), 16);
          const __m128i b16 = _mm_srai_epi32(_mm_slli_epi32(b, 16), 16);
          _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 2 * i), _mm_packs_epi32(a16, b16));
        } else {
          Store24x8(d + 3 * i, a, b);
        }
      }
    } else if constexpr (D == 33 && S == 17) {
      const __m256d f = _mm256_set1_pd(1.0 / 32768.0);
      for (; i + 8 <= n; i += 8) {
        const __m256i w = _mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 2 * i)));
        _mm256_storeu_pd(reinterpret_cast<double*>(d + 8 * i),
                         _mm256_mul_pd(_mm256_cvtepi32_pd(_mm256_castsi256_si128(w)), f));
        _mm256_storeu_pd(reinterpret_cast<double*>(d + 8 * i + 32),
                         _mm256_mul_pd(_mm256_cvtepi32_pd(_mm256_extracti128_si256(w, 1)), f));
      }
    }
    return i;
  }

  static size_t Split32(BYTE* l, BYTE* r, const BYTE* s, size_t frames) {
    size_t i = 0;
    for (; i + 8 <= frames; i += 8) {
      const __m256 a = _mm256_loadu_ps(reinterpret_cast<const float*>(s + 8 * i));
      const __m256 b = _mm256_loadu_ps(reinterpret_cast<const float*>(s + 8 * i + 32));
      const __m256 even = _mm256_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0));
      const __m256 odd = _mm256_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1));
      _mm256_storeu_pd(reinterpret_cast<double*>(l + 4 * i),
                       _mm256_permute4x64_pd(_mm256_castps_pd(even), _MM_SHUFFLE(3, 1, 2, 0)));
      _mm256_storeu_pd(reinterpret_cast<double*>(r + 4 * i),
                       _mm256_permute4x64_pd(_mm256_castps_pd(odd), _MM_SHUFFLE(3, 1, 2, 0)));
    }
    return i;
  }

  static size_t Merge32(BYTE* d, const BYTE* l, const BYTE* r, size_t frames) {
    size_t i = 0;
    for (; i + 8 <= frames; i += 8) {
      const __m256 a = _mm256_loadu_ps(reinterpret_cast<const float*>(l + 4 * i));
      const __m256 b = _mm256_loadu_ps(reinterpret_cast<const float*>(r + 4 * i));
      const __m256 lo = _mm256_unpacklo_ps(a, b);
      const __m256 hi = _mm256_unpackhi_ps(a, b);
      _mm256_storeu_ps(reinterpret_cast<float*>(d + 8 * i), _mm256_permute2f128_ps(lo, hi, 0x20));
      _mm256_storeu_ps(reinterpret_cast<float*>(d + 8 * i + 32), _mm256_permute2f128_ps(lo, hi, 0x31));
    }
    return i;
  }
};

}  // namespace

const RoutineSet kAvx2Routines = Driver<Avx2>::MakeSet("avx2", ZQCPU_SSE2 | ZQCPU_AVX | ZQCPU_AVX2);

}  // namespace zq::audio
