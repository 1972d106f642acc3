// Routines for processors with AVX2.  Built with -mavx2 and without
// floating-point contraction: every routine gives the value of the scalar
// path bit for bit, NaN payloads included.
#include <immintrin.h>

#include <type_traits>

#include "kernel/audio/simd_driver.h"

namespace zq::audio {
namespace {

struct Avx2 {
  template <int D, int S>
  static constexpr bool Has() {
    return true;  // every pair of the driver's list
  }

  // Float to 24-bit integer in single precision: exact, since scaling by a
  // power of two is exact and both round in the same mode.  NaN passes the
  // clip (min and max answer their second operand for it) and converts to
  // 0x80000000, whose low three bytes, the only ones written, are 0: the low
  // bits of a widened float NaN.
  static __m256i FloatToInt(__m256 x, __m256 scale, __m256 hi, __m256 lo) {
    x = _mm256_mul_ps(x, scale);
    x = _mm256_max_ps(lo, _mm256_min_ps(hi, x));
    return _mm256_cvtps_epi32(x);
  }

  // At 16 bits the saturating pack clips the bottom, where the conversion's
  // overflow value also lands, so only the top is clipped here.
  static __m256i FloatToInt16(__m256 x) {
    x = _mm256_mul_ps(x, _mm256_set1_ps(32768.0f));
    x = _mm256_and_ps(x, _mm256_cmp_ps(x, x, _CMP_ORD_Q));
    return _mm256_cvtps_epi32(_mm256_min_ps(x, _mm256_set1_ps(32767.0f)));
  }

  // The double path: scale, clip with NaN passing (min and max answer their
  // second operand for NaN), add 1.5 * 2^52 and keep the low 32 bits.
  static __m128i DoubleToLow32(__m256d v, __m256d scale, __m256d hi, __m256d lo) {
    return RoundLow32(_mm256_mul_pd(v, scale), hi, lo);
  }
  static __m128i RoundLow32(__m256d v, __m256d hi, __m256d lo) {
    v = _mm256_max_pd(lo, _mm256_min_pd(hi, v));
    v = _mm256_add_pd(v, _mm256_set1_pd(kRoundMagic));
    const __m256 w = _mm256_permutevar8x32_ps(_mm256_castpd_ps(v), _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7));
    return _mm_castps_si128(_mm256_castps256_ps128(w));
  }

  // Float to 32-bit integer in single precision.  Scaling by 2^31 is exact
  // and the conversion rounds in the same mode as the scalar path; what the
  // conversion cannot give is fixed up with integer operations: at or above
  // 2^31 it answers 0x80000000 where the clip gives 0x7FFFFFFF (one XOR with
  // the comparison's mask), and for NaN the scalar path keeps the low 32 bits
  // of the widened NaN, which are the float's three low payload bits moved
  // to the top.  Below -2^31 both give 0x80000000.
  static __m256i FloatToInt32(__m256 x) { return WithNaN(x, Int32NoNaN(x)); }
  static __m256i Int32NoNaN(__m256 x) {
    const __m256 v = _mm256_mul_ps(x, _mm256_set1_ps(2147483648.0f));
    const __m256i i = _mm256_cvtps_epi32(v);
    return _mm256_xor_si256(i, _mm256_castps_si256(_mm256_cmp_ps(v, _mm256_set1_ps(2147483648.0f), _CMP_GE_OQ)));
  }
  static __m256i WithNaN(__m256 x, __m256i i) {
    const __m256 nan = _mm256_cmp_ps(x, x, _CMP_UNORD_Q);
    return _mm256_castps_si256(
        _mm256_blendv_ps(_mm256_castsi256_ps(i), _mm256_castsi256_ps(_mm256_slli_epi32(_mm256_castps_si256(x), 29)),
                         nan));
  }

  // 16-bit integers as floats in 32-bit lanes, scaled: int16 to float and a
  // power of two are both exact.
  static __m256 Int16ToFloat(__m256i w) {
    return _mm256_mul_ps(_mm256_cvtepi32_ps(w), _mm256_set1_ps(1.0f / 32768.0f));
  }
  // Integers in the top of 32-bit lanes (24-bit samples shifted left by 8,
  // or 32-bit samples) as floats: rounding the integer to float and then
  // scaling by a power of two is the same as scaling exactly and rounding.
  static __m256 Int32ToFloat(__m256i w) {
    return _mm256_mul_ps(_mm256_cvtepi32_ps(w), _mm256_set1_ps(1.0f / 2147483648.0f));
  }
  // Eight interleaved 24-bit samples from 24 bytes, shifted into the top of
  // 32-bit lanes.  Bytes 0..15 and 8..23 are read: nothing outside the group.
  static __m256i Load24x8(const BYTE* s) {
    const __m256i shuffle = _mm256_setr_epi8(-1, 0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11,  //
                                             -1, 4, 5, 6, -1, 7, 8, 9, -1, 10, 11, 12, -1, 13, 14, 15);
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 8));
    return _mm256_shuffle_epi8(_mm256_set_m128i(b, a), shuffle);
  }

  // The low three bytes of each 32-bit word, packed into the first 12 bytes.
  static __m128i Pack24(__m128i v) {
    return _mm_shuffle_epi8(v, _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1));
  }
  // The same for eight words into the first 24 bytes.
  static __m256i Pack24x8(__m256i v) {
    const __m256i pack = _mm256_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1,  //
                                          0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
    return _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(v, pack), _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
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
      for (; i + 16 <= n; i += 16) {
        const __m256i a = FloatToInt16(_mm256_loadu_ps(reinterpret_cast<const float*>(s + 4 * i)));
        const __m256i b = FloatToInt16(_mm256_loadu_ps(reinterpret_cast<const float*>(s + 4 * i + 32)));
        const __m256i p = _mm256_permute4x64_epi64(_mm256_packs_epi32(a, b), 0xD8);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + 2 * i), p);
      }
    } else if constexpr (D == 18 && S == 32) {
      const __m256 scale = _mm256_set1_ps(8388608.0f), hi = _mm256_set1_ps(8388607.0f), lo = _mm256_set1_ps(-8388608.0f);
      // One 32-byte store per eight samples, its last 8 bytes covered by the
      // next one, while at least three samples follow the group.
      for (; i + 11 <= n; i += 8) {
        const __m256i v = FloatToInt(_mm256_loadu_ps(reinterpret_cast<const float*>(s + 4 * i)), scale, hi, lo);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + 3 * i), Pack24x8(v));
      }
      for (; i + 8 <= n; i += 8) {
        const __m256i v = FloatToInt(_mm256_loadu_ps(reinterpret_cast<const float*>(s + 4 * i)), scale, hi, lo);
        Store24x8(d + 3 * i, _mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
      }
    } else if constexpr (D == 19 && S == 32) {
      // Real audio has no NaN: one test of a sum of two vectors (NaN if
      // either has one, or infinities of both signs meet) spares the payload
      // fix-up for the two.
      for (; i + 16 <= n; i += 16) {
        const __m256 x = _mm256_loadu_ps(reinterpret_cast<const float*>(s + 4 * i));
        const __m256 y = _mm256_loadu_ps(reinterpret_cast<const float*>(s + 4 * i + 32));
        __m256i a = Int32NoNaN(x), b = Int32NoNaN(y);
        const __m256 sum = _mm256_add_ps(x, y);
        if (_mm256_movemask_ps(_mm256_cmp_ps(sum, sum, _CMP_UNORD_Q))) [[unlikely]] {
          a = WithNaN(x, a);
          b = WithNaN(y, b);
        }
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + 4 * i), a);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + 4 * i + 32), b);
      }
      for (; i + 8 <= n; i += 8) {
        const __m256i v = FloatToInt32(_mm256_loadu_ps(reinterpret_cast<const float*>(s + 4 * i)));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + 4 * i), v);
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

  // ---- gain other than 1.0: the value path in double precision --------------

  // Eight source values as two vectors of four doubles, multiplied by `k`:
  // for an integer source the source factor times the gain, which gives what
  // the value path's two multiplications give since the factor is a power
  // of two; for a float source the gain times the destination's scale,
  // whose product with the sample is exact either way.
  template <int S>
  static void LoadDoubles(const BYTE* s, __m256d k, __m256d& lo, __m256d& hi) {
    if constexpr (S == 32) {
      const __m256 x = _mm256_loadu_ps(reinterpret_cast<const float*>(s));
      lo = _mm256_mul_pd(_mm256_cvtps_pd(_mm256_castps256_ps128(x)), k);
      hi = _mm256_mul_pd(_mm256_cvtps_pd(_mm256_extractf128_ps(x, 1)), k);
    } else {
      __m256i w;
      if constexpr (S == 17)
        w = _mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s)));
      else if constexpr (S == 18)
        w = Load24x8(s);
      else
        w = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s));
      lo = _mm256_mul_pd(_mm256_cvtepi32_pd(_mm256_castsi256_si128(w)), k);
      hi = _mm256_mul_pd(_mm256_cvtepi32_pd(_mm256_extracti128_si256(w, 1)), k);
    }
  }

  template <int D, int S>
  static size_t BlockGain(BYTE* d, const BYTE* s, size_t n, double gain) {
    constexpr bool kInt = D == 17 || D == 18 || D == 19;
    if constexpr (!((D == 32 && (S == 17 || S == 18 || S == 19)) || (S == 32 && kInt))) {
      return 0;
    } else {
      constexpr size_t bd = Sample<D>::kBytes, bs = Sample<S>::kBytes;
      // A 24-bit source is read shifted left by 8.
      const double factor = S == 18 ? 1.0 / 2147483648.0 : Sample<S>::kFactor;
      const __m256d k = _mm256_set1_pd(D == 32 ? factor * gain : gain * Sample<D>::kScale);
      const __m256d hi = _mm256_set1_pd(Sample<D>::kMax), lo = _mm256_set1_pd(Sample<D>::kMin);
      size_t i = 0;
      for (; i + 8 <= n; i += 8) {
        __m256d a, b;
        LoadDoubles<S>(s + bs * i, k, a, b);
        BYTE* out = d + bd * i;
        if constexpr (D == 32) {
          _mm256_storeu_ps(reinterpret_cast<float*>(out), _mm256_set_m128(_mm256_cvtpd_ps(b), _mm256_cvtpd_ps(a)));
        } else {
          const __m128i x = RoundLow32(a, hi, lo), y = RoundLow32(b, hi, lo);
          if constexpr (D == 17) {
            // Keep the low 16 bits (NaN included), then pack.
            const __m128i x16 = _mm_srai_epi32(_mm_slli_epi32(x, 16), 16);
            const __m128i y16 = _mm_srai_epi32(_mm_slli_epi32(y, 16), 16);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_packs_epi32(x16, y16));
          } else if constexpr (D == 18) {
            Store24x8(out, x, y);
          } else {
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), _mm256_set_m128i(y, x));
          }
        }
      }
      return i;
    }
  }

  template <bool kStream>
  static void StoreF(BYTE* p, __m256 v) {
    if constexpr (kStream)
      _mm256_stream_ps(reinterpret_cast<float*>(p), v);
    else
      _mm256_storeu_ps(reinterpret_cast<float*>(p), v);
  }
  template <bool kStream>
  static void StoreI(BYTE* p, __m256i v) {
    StoreF<kStream>(p, _mm256_castsi256_ps(v));
  }
  template <bool kStream>
  static void StoreD(BYTE* p, __m256d v) {
    StoreF<kStream>(p, _mm256_castpd_ps(v));
  }
  static void Fence() { _mm_sfence(); }

  // Sixteen interleaved floats (frames 0..7) as the left and right planes.
  template <bool kStream>
  static void SplitStore(BYTE* l, BYTE* r, __m256 a, __m256 b) {
    const __m256 even = _mm256_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0));
    const __m256 odd = _mm256_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1));
    StoreD<kStream>(l, _mm256_permute4x64_pd(_mm256_castps_pd(even), _MM_SHUFFLE(3, 1, 2, 0)));
    StoreD<kStream>(r, _mm256_permute4x64_pd(_mm256_castps_pd(odd), _MM_SHUFFLE(3, 1, 2, 0)));
  }

  template <int S>
  static constexpr bool HasSplit() {
    return S == 17 || S == 18 || S == 19 || S == 32 || S == 33;
  }
  template <int D>
  static constexpr bool HasMerge() {
    return D == 17 || D == 18 || D == 19 || D == 32 || D == 33;
  }
  template <int D>
  static constexpr bool CanStreamMerge() {
    return D != 18;  // its groups of 48 bytes do not fall on vector boundaries
  }

  template <int S, bool kStream>
  static size_t Split(BYTE* l, BYTE* r, const BYTE* s, size_t frames) {
    size_t i = 0;
    for (; i + 8 <= frames; i += 8) {
      BYTE* lo = l + 4 * i;
      BYTE* ro = r + 4 * i;
      if constexpr (S == 17) {
        // Left samples are the low halves of the 32-bit words, right the high.
        const __m256i x = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + 4 * i));
        StoreF<kStream>(lo, Int16ToFloat(_mm256_srai_epi32(_mm256_slli_epi32(x, 16), 16)));
        StoreF<kStream>(ro, Int16ToFloat(_mm256_srai_epi32(x, 16)));
      } else if constexpr (S == 18) {
        SplitStore<kStream>(lo, ro, Int32ToFloat(Load24x8(s + 6 * i)), Int32ToFloat(Load24x8(s + 6 * i + 24)));
      } else if constexpr (S == 19) {
        const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + 8 * i));
        const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + 8 * i + 32));
        SplitStore<kStream>(lo, ro, Int32ToFloat(a), Int32ToFloat(b));
      } else if constexpr (S == 32) {
        SplitStore<kStream>(lo, ro, _mm256_loadu_ps(reinterpret_cast<const float*>(s + 8 * i)),
                            _mm256_loadu_ps(reinterpret_cast<const float*>(s + 8 * i + 32)));
      } else if constexpr (S == 33) {
        const double* p = reinterpret_cast<const double*>(s + 16 * i);
        const __m256 a = _mm256_set_m128(_mm256_cvtpd_ps(_mm256_loadu_pd(p + 4)), _mm256_cvtpd_ps(_mm256_loadu_pd(p)));
        const __m256 b =
            _mm256_set_m128(_mm256_cvtpd_ps(_mm256_loadu_pd(p + 12)), _mm256_cvtpd_ps(_mm256_loadu_pd(p + 8)));
        SplitStore<kStream>(lo, ro, a, b);
      } else {
        return 0;
      }
    }
    return i;
  }

  // Eight interleaved 24-bit frames: 48 bytes.  With kWide each half is
  // written with a 32-byte store whose last 8 bytes the next write covers,
  // so the caller keeps 8 bytes of room after the group.
  template <bool kWide>
  static void Store24x16(BYTE* d, __m256i f0, __m256i f1) {
    const __m256i pack = _mm256_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1,  //
                                          0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
    const __m256i join = _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7);
    const __m256i p0 = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(f0, pack), join);
    const __m256i p1 = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(f1, pack), join);
    if constexpr (kWide) {
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(d), p0);
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + 24), p1);
    } else {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm256_castsi256_si128(p0));
      _mm_storel_epi64(reinterpret_cast<__m128i*>(d + 16), _mm256_extracti128_si256(p0, 1));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(d + 24), _mm256_castsi256_si128(p1));
      _mm_storel_epi64(reinterpret_cast<__m128i*>(d + 40), _mm256_extracti128_si256(p1, 1));
    }
  }

  template <int D, bool kStream>
  static size_t Merge(BYTE* d, const BYTE* l, const BYTE* r, size_t frames) {
    size_t i = 0;
    if constexpr (D == 18) {
      const __m256 scale = _mm256_set1_ps(8388608.0f), hi = _mm256_set1_ps(8388607.0f), lo = _mm256_set1_ps(-8388608.0f);
      auto group = [&](auto wide) {
        const __m256i a = FloatToInt(_mm256_loadu_ps(reinterpret_cast<const float*>(l + 4 * i)), scale, hi, lo);
        const __m256i b = FloatToInt(_mm256_loadu_ps(reinterpret_cast<const float*>(r + 4 * i)), scale, hi, lo);
        const __m256i x = _mm256_unpacklo_epi32(a, b), y = _mm256_unpackhi_epi32(a, b);
        Store24x16<decltype(wide)::value>(d + 6 * i, _mm256_permute2x128_si256(x, y, 0x20),
                                          _mm256_permute2x128_si256(x, y, 0x31));
      };
      for (; i + 10 <= frames; i += 8) group(std::true_type());
      for (; i + 8 <= frames; i += 8) group(std::false_type());
      return i;
    }
    for (; i + 8 <= frames; i += 8) {
      const __m256 a = _mm256_loadu_ps(reinterpret_cast<const float*>(l + 4 * i));
      const __m256 b = _mm256_loadu_ps(reinterpret_cast<const float*>(r + 4 * i));
      if constexpr (D == 17) {
        // The scaled values clipped at the top only: the saturating pack
        // clips the bottom, where the conversion's overflow value also lands.
        const __m256 scale = _mm256_set1_ps(32768.0f), top = _mm256_set1_ps(32767.0f);
        __m256 x = _mm256_mul_ps(a, scale), y = _mm256_mul_ps(b, scale);
        x = _mm256_min_ps(_mm256_and_ps(x, _mm256_cmp_ps(x, x, _CMP_ORD_Q)), top);
        y = _mm256_min_ps(_mm256_and_ps(y, _mm256_cmp_ps(y, y, _CMP_ORD_Q)), top);
        // Per lane: left 0..3, right 0..3 as 16 bits, then alternated.
        const __m256i p = _mm256_packs_epi32(_mm256_cvtps_epi32(x), _mm256_cvtps_epi32(y));
        const __m256i alternate = _mm256_setr_epi8(0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15,  //
                                                   0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15);
        StoreI<kStream>(d + 4 * i, _mm256_shuffle_epi8(p, alternate));
      } else if constexpr (D == 19) {
        const __m256i x = FloatToInt32(a), y = FloatToInt32(b);
        const __m256i lo = _mm256_unpacklo_epi32(x, y), hi = _mm256_unpackhi_epi32(x, y);
        StoreI<kStream>(d + 8 * i, _mm256_permute2x128_si256(lo, hi, 0x20));
        StoreI<kStream>(d + 8 * i + 32, _mm256_permute2x128_si256(lo, hi, 0x31));
      } else if constexpr (D == 32) {
        const __m256 lo = _mm256_unpacklo_ps(a, b), hi = _mm256_unpackhi_ps(a, b);
        StoreF<kStream>(d + 8 * i, _mm256_permute2f128_ps(lo, hi, 0x20));
        StoreF<kStream>(d + 8 * i + 32, _mm256_permute2f128_ps(lo, hi, 0x31));
      } else if constexpr (D == 33) {
        const __m256 lo = _mm256_unpacklo_ps(a, b), hi = _mm256_unpackhi_ps(a, b);
        StoreD<kStream>(d + 16 * i, _mm256_cvtps_pd(_mm256_castps256_ps128(lo)));
        StoreD<kStream>(d + 16 * i + 32, _mm256_cvtps_pd(_mm256_castps256_ps128(hi)));
        StoreD<kStream>(d + 16 * i + 64, _mm256_cvtps_pd(_mm256_extractf128_ps(lo, 1)));
        StoreD<kStream>(d + 16 * i + 96, _mm256_cvtps_pd(_mm256_extractf128_ps(hi, 1)));
      } else {
        return 0;
      }
    }
    return i;
  }
};

}  // namespace

const RoutineSet kAvx2Routines = Driver<Avx2>::MakeSet("avx2", ZQCPU_SSE2 | ZQCPU_AVX | ZQCPU_AVX2);

}  // namespace zq::audio
