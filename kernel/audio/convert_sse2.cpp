// Routines for processors with SSE2 (every x86-64).  Built without
// floating-point contraction: every routine gives the value of the scalar
// path bit for bit, NaN payloads included.  The packed 24-bit types need a
// byte shuffle that SSE2 lacks; they stay with the portable routines here.
#include <emmintrin.h>

#include "kernel/audio/simd_driver.h"

namespace zq::audio {
namespace {

struct Sse2 {
  template <int D, int S>
  static constexpr bool Has() {
    return D != 18 && S != 18;
  }

  // Float to 16-bit integer in single precision, exact as the AVX2 routines
  // explain; NaN becomes 0.  The saturating pack that follows clips the
  // bottom, where the conversion's overflow value also lands, so only the
  // top is clipped here.
  static __m128i FloatToInt16(__m128 x) {
    x = _mm_mul_ps(x, _mm_set1_ps(32768.0f));
    x = _mm_and_ps(x, _mm_cmpord_ps(x, x));
    return _mm_cvtps_epi32(_mm_min_ps(x, _mm_set1_ps(32767.0f)));
  }

  // Float to 32-bit integer in single precision, fixed up with integer
  // operations as the AVX2 routines explain: 0x7FFFFFFF at or above 2^31,
  // the three low payload bits at the top for NaN.
  static __m128i FloatToInt32(__m128 x) {
    const __m128 v = _mm_mul_ps(x, _mm_set1_ps(2147483648.0f));
    __m128i i = _mm_cvtps_epi32(v);
    i = _mm_xor_si128(i, _mm_castps_si128(_mm_cmpge_ps(v, _mm_set1_ps(2147483648.0f))));
    const __m128i nan = _mm_castps_si128(_mm_cmpunord_ps(x, x));
    return _mm_or_si128(_mm_andnot_si128(nan, i), _mm_and_si128(nan, _mm_slli_epi32(_mm_castps_si128(x), 29)));
  }

  // Two doubles through the scalar path's clip and rounding; the low 32 bits
  // of each end up in lanes 0 and 2.
  static __m128d RoundedPair(__m128d v, __m128d scale, __m128d hi, __m128d lo) {
    v = _mm_mul_pd(v, scale);
    v = _mm_max_pd(lo, _mm_min_pd(hi, v));
    return _mm_add_pd(v, _mm_set1_pd(kRoundMagic));
  }
  static __m128i Low32(__m128d a, __m128d b) {
    return _mm_castps_si128(_mm_shuffle_ps(_mm_castpd_ps(a), _mm_castpd_ps(b), _MM_SHUFFLE(2, 0, 2, 0)));
  }
  static __m128i Widen16Lo(__m128i x) { return _mm_srai_epi32(_mm_unpacklo_epi16(x, x), 16); }
  static __m128i Widen16Hi(__m128i x) { return _mm_srai_epi32(_mm_unpackhi_epi16(x, x), 16); }

  template <int D, int S>
  static size_t Block(BYTE* d, const BYTE* s, size_t n) {
    size_t i = 0;
    if constexpr (D == 17 && S == 32) {
      for (; i + 8 <= n; i += 8) {
        const __m128i a = FloatToInt16(_mm_loadu_ps(reinterpret_cast<const float*>(s + 4 * i)));
        const __m128i b = FloatToInt16(_mm_loadu_ps(reinterpret_cast<const float*>(s + 4 * i + 16)));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 2 * i), _mm_packs_epi32(a, b));
      }
    } else if constexpr (D == 19 && S == 32) {
      for (; i + 4 <= n; i += 4) {
        const __m128i v = FloatToInt32(_mm_loadu_ps(reinterpret_cast<const float*>(s + 4 * i)));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 4 * i), v);
      }
    } else if constexpr (D == 33 && S == 32) {
      for (; i + 4 <= n; i += 4) {
        const __m128 x = _mm_loadu_ps(reinterpret_cast<const float*>(s + 4 * i));
        _mm_storeu_pd(reinterpret_cast<double*>(d + 8 * i), _mm_cvtps_pd(x));
        _mm_storeu_pd(reinterpret_cast<double*>(d + 8 * i + 16), _mm_cvtps_pd(_mm_movehl_ps(x, x)));
      }
    } else if constexpr (D == 32 && S == 17) {
      const __m128 f = _mm_set1_ps(1.0f / 32768.0f);
      for (; i + 8 <= n; i += 8) {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 2 * i));
        _mm_storeu_ps(reinterpret_cast<float*>(d + 4 * i), _mm_mul_ps(_mm_cvtepi32_ps(Widen16Lo(x)), f));
        _mm_storeu_ps(reinterpret_cast<float*>(d + 4 * i + 16), _mm_mul_ps(_mm_cvtepi32_ps(Widen16Hi(x)), f));
      }
    } else if constexpr (D == 32 && S == 19) {
      const __m128 f = _mm_set1_ps(1.0f / 2147483648.0f);
      for (; i + 4 <= n; i += 4) {
        const __m128i w = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 4 * i));
        _mm_storeu_ps(reinterpret_cast<float*>(d + 4 * i), _mm_mul_ps(_mm_cvtepi32_ps(w), f));
      }
    } else if constexpr (D == 32 && S == 33) {
      for (; i + 4 <= n; i += 4) {
        const __m128 a = _mm_cvtpd_ps(_mm_loadu_pd(reinterpret_cast<const double*>(s + 8 * i)));
        const __m128 b = _mm_cvtpd_ps(_mm_loadu_pd(reinterpret_cast<const double*>(s + 8 * i + 16)));
        _mm_storeu_ps(reinterpret_cast<float*>(d + 4 * i), _mm_movelh_ps(a, b));
      }
    } else if constexpr (D == 17 && S == 33) {
      const __m128d scale = _mm_set1_pd(32768.0), hi = _mm_set1_pd(32767.0), lo = _mm_set1_pd(-32768.0);
      for (; i + 8 <= n; i += 8) {
        const double* p = reinterpret_cast<const double*>(s + 8 * i);
        const __m128i a = Low32(RoundedPair(_mm_loadu_pd(p), scale, hi, lo),
                                RoundedPair(_mm_loadu_pd(p + 2), scale, hi, lo));
        const __m128i b = Low32(RoundedPair(_mm_loadu_pd(p + 4), scale, hi, lo),
                                RoundedPair(_mm_loadu_pd(p + 6), scale, hi, lo));
        // Keep the low 16 bits (NaN included), then pack.
        const __m128i a16 = _mm_srai_epi32(_mm_slli_epi32(a, 16), 16);
        const __m128i b16 = _mm_srai_epi32(_mm_slli_epi32(b, 16), 16);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 2 * i), _mm_packs_epi32(a16, b16));
      }
    } else if constexpr (D == 33 && S == 17) {
      const __m128d f = _mm_set1_pd(1.0 / 32768.0);
      for (; i + 8 <= n; i += 8) {
        const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 2 * i));
        const __m128i lo = Widen16Lo(x), hi = Widen16Hi(x);
        double* p = reinterpret_cast<double*>(d + 8 * i);
        _mm_storeu_pd(p, _mm_mul_pd(_mm_cvtepi32_pd(lo), f));
        _mm_storeu_pd(p + 2, _mm_mul_pd(_mm_cvtepi32_pd(_mm_srli_si128(lo, 8)), f));
        _mm_storeu_pd(p + 4, _mm_mul_pd(_mm_cvtepi32_pd(hi), f));
        _mm_storeu_pd(p + 6, _mm_mul_pd(_mm_cvtepi32_pd(_mm_srli_si128(hi, 8)), f));
      }
    }
    return i;
  }

  // Gain other than 1.0, in double precision as the value path is: four
  // samples as two pairs of doubles multiplied by `k`, the source factor
  // times the gain (a power of two times the gain, so the one product is
  // what the value path's two give) or for a float source the gain times the
  // destination's scale (exact either way).
  template <int D, int S>
  static size_t BlockGain(BYTE* d, const BYTE* s, size_t n, double gain) {
    if constexpr (!((D == 32 && (S == 17 || S == 19)) || (S == 32 && (D == 17 || D == 19)))) {
      return 0;
    } else {
      constexpr size_t bd = Sample<D>::kBytes, bs = Sample<S>::kBytes;
      const __m128d k = _mm_set1_pd(D == 32 ? Sample<S>::kFactor * gain : gain * Sample<D>::kScale);
      const __m128d hi = _mm_set1_pd(Sample<D>::kMax), lo = _mm_set1_pd(Sample<D>::kMin);
      size_t i = 0;
      for (; i + 4 <= n; i += 4) {
        __m128d a, b;
        if constexpr (S == 32) {
          const __m128 x = _mm_loadu_ps(reinterpret_cast<const float*>(s + bs * i));
          a = _mm_cvtps_pd(x);
          b = _mm_cvtps_pd(_mm_movehl_ps(x, x));
        } else {
          const __m128i w = S == 17 ? Widen16Lo(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(s + bs * i)))
                                    : _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + bs * i));
          a = _mm_cvtepi32_pd(w);
          b = _mm_cvtepi32_pd(_mm_srli_si128(w, 8));
        }
        a = _mm_mul_pd(a, k);
        b = _mm_mul_pd(b, k);
        BYTE* out = d + bd * i;
        if constexpr (D == 32) {
          _mm_storeu_ps(reinterpret_cast<float*>(out), _mm_movelh_ps(_mm_cvtpd_ps(a), _mm_cvtpd_ps(b)));
        } else {
          const __m128d r = _mm_set1_pd(kRoundMagic);
          const __m128i x = Low32(_mm_add_pd(_mm_max_pd(lo, _mm_min_pd(hi, a)), r),
                                  _mm_add_pd(_mm_max_pd(lo, _mm_min_pd(hi, b)), r));
          if constexpr (D == 17) {
            // Keep the low 16 bits (NaN included), then pack.
            const __m128i x16 = _mm_srai_epi32(_mm_slli_epi32(x, 16), 16);
            _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packs_epi32(x16, x16));
          } else {
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out), x);
          }
        }
      }
      return i;
    }
  }

  template <bool kStream>
  static void StoreF(BYTE* p, __m128 v) {
    if constexpr (kStream)
      _mm_stream_ps(reinterpret_cast<float*>(p), v);
    else
      _mm_storeu_ps(reinterpret_cast<float*>(p), v);
  }
  static void Fence() { _mm_sfence(); }

  // Only the 32-bit words are (de-)interleaved here; conversions go through
  // a stack buffer.
  template <int S>
  static constexpr bool HasSplit() {
    return S == 32;
  }
  template <int D>
  static constexpr bool HasMerge() {
    return D == 32;
  }
  template <int D>
  static constexpr bool CanStreamMerge() {
    return D == 32;
  }

  template <int S, bool kStream>
  static size_t Split(BYTE* l, BYTE* r, const BYTE* s, size_t frames) {
    if constexpr (S != 32) return 0;
    size_t i = 0;
    for (; i + 4 <= frames; i += 4) {
      const __m128 a = _mm_loadu_ps(reinterpret_cast<const float*>(s + 8 * i));
      const __m128 b = _mm_loadu_ps(reinterpret_cast<const float*>(s + 8 * i + 16));
      StoreF<kStream>(l + 4 * i, _mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0)));
      StoreF<kStream>(r + 4 * i, _mm_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1)));
    }
    return i;
  }

  template <int D, bool kStream>
  static size_t Merge(BYTE* d, const BYTE* l, const BYTE* r, size_t frames) {
    if constexpr (D != 32) return 0;
    size_t i = 0;
    for (; i + 4 <= frames; i += 4) {
      const __m128 a = _mm_loadu_ps(reinterpret_cast<const float*>(l + 4 * i));
      const __m128 b = _mm_loadu_ps(reinterpret_cast<const float*>(r + 4 * i));
      StoreF<kStream>(d + 8 * i, _mm_unpacklo_ps(a, b));
      StoreF<kStream>(d + 8 * i + 16, _mm_unpackhi_ps(a, b));
    }
    return i;
  }
};

}  // namespace

const RoutineSet kSse2Routines = Driver<Sse2>::MakeSet("sse2", ZQCPU_SSE2);

}  // namespace zq::audio
