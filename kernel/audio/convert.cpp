// Lookup of the routines by processor word, and the functions built on them.
#include "kernel/audio/convert.h"

#include <cstring>
#include <array>
#include <iterator>
#include <utility>

#include "kernel/audio/convert_routines.h"
#include "kernel/audio/sample_traits.h"

namespace zq::audio {
namespace {

// Most specific first; the portable set answers every pair that exists.
const RoutineSet* const kRoutineSets[] = {
#if defined(ZQ_AUDIO_X86_VARIANTS)
    &kAvx512Routines,
    &kAvx2Routines,
    &kSse2Routines,
#endif
    &kPortableRoutines,
};

template <class F>
F Choose(F (*RoutineSet::*member)(ZQSAMPLETYPE, ZQSAMPLETYPE), ZQSAMPLETYPE dst, ZQSAMPLETYPE src) {
  const DWORD word = ZqGetCPUSupport(0);
  for (const RoutineSet* set : kRoutineSets) {
    if ((set->features & word) != set->features) continue;
    if (F f = (set->*member)(dst, src)) return f;
  }
  return nullptr;
}

// Width of a type for the channel operations, 0 for none.
int OpWidth(ZQSAMPLETYPE t) {
  switch (t) {
    case 16: case 49: return 1;
    case 17: case 64: return 2;
    case 18: case 65: return 3;
    case 19: case 32: case 48: case 66: return 4;
    case 33: return 8;
  }
  return 0;
}

bool ValidChannel(int channel, int channels) { return channels > 0 && channel >= 0 && channel < channels; }

// A strided move of one sample per frame, `w` bytes each.
void StridedMove(BYTE* d, size_t dStride, const BYTE* s, size_t sStride, size_t w, DWORD frames) {
  for (DWORD i = 0; i < frames; ++i, d += dStride, s += sStride) std::memmove(d, s, w);
}

template <int T>
void SumFrame(BYTE* d, const BYTE* s, int channels, bool average) {
  double sum = 0;
  for (int c = 0; c < channels; ++c) sum += LoadValue<T>(s + size_t(c) * Sample<T>::kBytes);
  if (average) sum /= channels;
  StoreValue<T>(d, sum);
}

template <int T>
void DownMix(BYTE* d, int dstChannels, const BYTE* s, int srcChannels, DWORD frames, bool average) {
  const size_t ds = size_t(dstChannels) * Sample<T>::kBytes, ss = size_t(srcChannels) * Sample<T>::kBytes;
  for (DWORD i = 0; i < frames; ++i, d += ds, s += ss) SumFrame<T>(d, s, srcChannels, average);
}

using DownMixFn = void (*)(BYTE*, int, const BYTE*, int, DWORD, bool);
template <size_t... I>
constexpr auto MakeDownMixTable(std::index_sequence<I...>) {
  return std::array<DownMixFn, sizeof...(I)>{&DownMix<kCopyTypes[I]>...};
}
constexpr auto kDownMix = MakeDownMixTable(std::make_index_sequence<11>());

HRESULT ChannelChangeImpl(void* dst, int dstChannels, const void* src, const _zqwaveformat* fmt, DWORD frames,
                          bool average) {
  if (!fmt || dstChannels <= 0 || fmt->channels == 0) return E_FAIL;
  const int srcChannels = fmt->channels;
  const ZQSAMPLETYPE t = fmt->sampleType;
  const int ti = CopyTypeIndex(t);
  if (ti < 0) return E_FAIL;
  if (dstChannels == srcChannels) {
    if (!frames) return S_OK;
    ZqAudio_GetCopyFunction2(t, t)(dst, src, DWORD(srcChannels) * frames, 1.0f);
    return S_OK;
  }
  const size_t w = size_t(ZqAudio_BytesFromSampleType(t));
  if (dstChannels < srcChannels) {
    kDownMix[size_t(ti)](static_cast<BYTE*>(dst), dstChannels, static_cast<const BYTE*>(src), srcChannels, frames,
                         average);
    return S_OK;
  }
  if (srcChannels == 1) {
    // From the end, so that the buffer may be both source and destination.
    BYTE* d = static_cast<BYTE*>(dst);
    const BYTE* s = static_cast<const BYTE*>(src);
    for (DWORD i = frames; i-- > 0;) {
      BYTE sample[8];
      std::memcpy(sample, s + i * w, w);
      for (int c = dstChannels; c-- > 0;) std::memcpy(d + (size_t(i) * dstChannels + c) * w, sample, w);
    }
    return S_OK;
  }
  return E_FAIL;
}

}  // namespace
}  // namespace zq::audio

using namespace zq::audio;

// ---- lookups ----------------------------------------------------------------

ZQ_API ZqAudioCopyFunction ZqAudio_GetCopyFunction2(ZQSAMPLETYPE dst, ZQSAMPLETYPE src) {
  return Choose(&RoutineSet::copy, dst, src);
}
ZQ_API ZqAudioCopyChannelsFunction ZqAudio_GetCopyChannelsFunction2(ZQSAMPLETYPE dst, ZQSAMPLETYPE src) {
  return Choose(&RoutineSet::copyChannels, dst, src);
}
ZQ_API ZqAudioDeInterleaveFunction ZqAudio_GetStereoDeInterleaveFunction(ZQSAMPLETYPE dst, ZQSAMPLETYPE src) {
  return Choose(&RoutineSet::deInterleave, dst, src);
}
ZQ_API ZqAudioInterleaveFunction ZqAudio_GetStereoInterleaveFunction(ZQSAMPLETYPE dst, ZQSAMPLETYPE src) {
  return Choose(&RoutineSet::interleave, dst, src);
}

ZQ_API ZqAudioCopyFunction ZqAudio_GetCopyFunction(const _zqwaveformat* dst, const _zqwaveformat* src) {
  return (dst && src) ? ZqAudio_GetCopyFunction2(dst->sampleType, src->sampleType) : nullptr;
}
ZQ_EXPORT ZqAudioCopyFunction ZqAudio_GetCopyFunction(const WAVEFORMATEX* dst, const _zqwaveformat* src) {
  return (dst && src) ? ZqAudio_GetCopyFunction2(ZqAudio_GetSampleType(dst), src->sampleType) : nullptr;
}
ZQ_EXPORT ZqAudioCopyFunction ZqAudio_GetCopyFunction(const _zqwaveformat* dst, const WAVEFORMATEX* src) {
  return (dst && src) ? ZqAudio_GetCopyFunction2(dst->sampleType, ZqAudio_GetSampleType(src)) : nullptr;
}
ZQ_API ZqAudioCopyChannelsFunction ZqAudio_GetCopyChannelsFunction(const _zqwaveformat* dst,
                                                                   const _zqwaveformat* src) {
  return (dst && src) ? ZqAudio_GetCopyChannelsFunction2(dst->sampleType, src->sampleType) : nullptr;
}

ZQ_API const char* ZqAudio_GetRoutineName(const void* routine) {
  if (!routine) return nullptr;
  static constexpr int kAllTypes[] = {16, 17, 18, 19, 32, 33, 48, 49, 64, 65, 66, 128, 129};
  for (const RoutineSet* set : kRoutineSets)
    for (int d : kAllTypes)
      for (int s : kAllTypes) {
        const void* candidates[] = {
            reinterpret_cast<const void*>(set->copy(d, s)), reinterpret_cast<const void*>(set->copyChannels(d, s)),
            reinterpret_cast<const void*>(set->deInterleave(d, s)),
            reinterpret_cast<const void*>(set->interleave(d, s))};
        for (const void* c : candidates)
          if (c == routine) return set->name;
      }
  return nullptr;
}

// ---- whole buffers and channels ---------------------------------------------------

ZQ_API HRESULT ZqAudio_Copy(const _zqwaveformat* dstFormat, void* dst, const _zqwaveformat* srcFormat,
                            const void* src, DWORD frames, float gain) {
  if (!frames) return S_OK;
  ZqAudioCopyFunction f = ZqAudio_GetCopyFunction(dstFormat, srcFormat);
  if (!f) return E_NOTIMPL;
  f(dst, src, DWORD(srcFormat->channels) * frames, gain);
  return S_OK;
}

ZQ_API HRESULT ZqAudio_CopyChannels(const _zqwaveformat* dstFormat, void* dst, const _zqwaveformat* srcFormat,
                                    const void* src, DWORD frames, const int* map) {
  ZqAudioCopyChannelsFunction f = ZqAudio_GetCopyChannelsFunction(dstFormat, srcFormat);
  if (!f) return E_NOTIMPL;
  const int dch = dstFormat->channels, sch = srcFormat->channels;
  for (int d = 0; d < dch; ++d) {
    const int s = map ? map[d] : d;
    if (s >= 0 && s < sch)
      f(dst, dch, d, src, sch, s, frames);
    else
      ZqAudio_MuteChannel(dst, dstFormat->sampleType, dch, d, frames);
  }
  return S_OK;
}

// ---- stereo interleave ----------------------------------------------------------------

namespace {
bool PlainInterleaveType(ZQSAMPLETYPE t) {
  return t == 16 || t == 17 || t == 19 || t == 32 || t == 33 || t == 48;
}
}  // namespace

ZQ_API HRESULT ZqAudio_DeInterleaveStereo(void* left, void* right, const void* src, ZQSAMPLETYPE type,
                                          DWORD frames) {
  if (!PlainInterleaveType(type)) return E_NOTIMPL;
  if (frames) ZqAudio_GetStereoDeInterleaveFunction(type, type)(left, right, src, frames);
  return S_OK;
}

ZQ_API HRESULT ZqAudio_InterleaveStereo(void* dst, const void* left, const void* right, ZQSAMPLETYPE type,
                                        DWORD frames) {
  if (!PlainInterleaveType(type)) return E_NOTIMPL;
  if (frames) ZqAudio_GetStereoInterleaveFunction(type, type)(dst, left, right, frames);
  return S_OK;
}

ZQ_API HRESULT ZqAudio_DeInterleaveStereoEx(void* left, void* right, ZQSAMPLETYPE dstType, const void* src,
                                            ZQSAMPLETYPE srcType, DWORD frames) {
  if (dstType == srcType && ZqAudio_DeInterleaveStereo(left, right, src, srcType, frames) == S_OK) return S_OK;
  ZqAudioDeInterleaveFunction f = ZqAudio_GetStereoDeInterleaveFunction(dstType, srcType);
  if (!f) return E_NOTIMPL;
  if (frames) f(left, right, src, frames);
  return S_OK;
}

ZQ_API HRESULT ZqAudio_InterleaveStereoEx(void* dst, ZQSAMPLETYPE dstType, const void* left, const void* right,
                                          ZQSAMPLETYPE srcType, DWORD frames) {
  if (dstType == srcType && ZqAudio_InterleaveStereo(dst, left, right, srcType, frames) == S_OK) return S_OK;
  ZqAudioInterleaveFunction f = ZqAudio_GetStereoInterleaveFunction(dstType, srcType);
  if (!f) return E_NOTIMPL;
  if (frames) f(dst, left, right, frames);
  return S_OK;
}

// ---- channel operations -----------------------------------------------------------

ZQ_API HRESULT ZqAudio_ExtractChannel(void* dst, int channel, const void* src, ZQSAMPLETYPE type, int channels,
                                      DWORD frames) {
  const size_t w = size_t(OpWidth(type));
  if (!w || !ValidChannel(channel, channels)) return E_FAIL;
  if (channels == 1) {
    if (frames) ZqAudio_GetCopyFunction2(type, type)(dst, src, frames, 1.0f);
    return S_OK;
  }
  StridedMove(static_cast<BYTE*>(dst), w, static_cast<const BYTE*>(src) + channel * w, w * channels, w, frames);
  return S_OK;
}

ZQ_EXPORT HRESULT ZqAudio_ExtractChannel(void* dst, int channel, const void* src, const _zqwaveformat* format,
                                         DWORD frames) {
  if (!format) return E_FAIL;
  return ZqAudio_ExtractChannel(dst, channel, src, format->sampleType, format->channels, frames);
}

ZQ_API HRESULT ZqAudio_InsertChannel(void* dst, ZQSAMPLETYPE type, int channels, int channel, const void* src,
                                     DWORD frames) {
  const size_t w = size_t(OpWidth(type));
  if (!w || !ValidChannel(channel, channels)) return E_FAIL;
  if (channels == 1) {
    if (frames) std::memmove(dst, src, w * frames);
    return S_OK;
  }
  StridedMove(static_cast<BYTE*>(dst) + channel * w, w * channels, static_cast<const BYTE*>(src), w, w, frames);
  return S_OK;
}

ZQ_API HRESULT ZqAudio_MuteChannel(void* buffer, ZQSAMPLETYPE type, int channels, int channel, DWORD frames) {
  const size_t w = size_t(OpWidth(type));
  if (!w || !ValidChannel(channel, channels)) return E_FAIL;
  const int fill = type == 16 ? 0x80 : 0;
  BYTE* p = static_cast<BYTE*>(buffer) + channel * w;
  for (DWORD i = 0; i < frames; ++i, p += w * channels) std::memset(p, fill, w);
  return S_OK;
}

ZQ_EXPORT HRESULT ZqAudio_MuteChannel(void* buffer, const _zqwaveformat* format, int channel, DWORD frames) {
  if (!format) return E_FAIL;
  return ZqAudio_MuteChannel(buffer, format->sampleType, format->channels, channel, frames);
}

ZQ_EXPORT HRESULT ZqAudio_MuteChannel(void* buffer, const WAVEFORMATEX* format, int channel, DWORD frames) {
  if (!format) return E_FAIL;
  return ZqAudio_MuteChannel(buffer, ZqAudio_GetSampleType(format), format->nChannels, channel, frames);
}

ZQ_API HRESULT ZqAudio_FillSilenceChannel(void* buffer, const _zqwaveformat* format, int channel, DWORD frames) {
  return ZqAudio_MuteChannel(buffer, format, channel, frames);
}

ZQ_API HRESULT ZqAudio_CopyChannelToChannel(void* buffer, const _zqwaveformat* format, int from, int to,
                                            DWORD frames) {
  if (!format) return E_FAIL;
  const int channels = format->channels;
  if (channels == 1) return S_OK;
  const ZQSAMPLETYPE t = format->sampleType;
  if (!(t == 16 || t == 17 || t == 18 || t == 19 || t == 32 || t == 33)) return E_FAIL;
  if (!ValidChannel(from, channels) || !ValidChannel(to, channels)) return E_FAIL;
  const size_t w = size_t(format->blockAlign / channels);
  const size_t stride = format->blockAlign;
  BYTE* p = static_cast<BYTE*>(buffer);
  StridedMove(p + to * w, stride, p + from * w, stride, w, frames);
  return S_OK;
}

ZQ_API HRESULT ZqAudio_CopyChannelToAll(void* dst, const void* src, const _zqwaveformat* srcFormat,
                                        const _zqwaveformat* dstFormat, int channel, DWORD frames) {
  if (!srcFormat || !dstFormat) return E_FAIL;
  if (srcFormat->sampleType != dstFormat->sampleType) return E_NOTIMPL;
  const ZQSAMPLETYPE t = srcFormat->sampleType;
  const int dch = dstFormat->channels, sch = srcFormat->channels;
  if (dch == 1) return ZqAudio_ExtractChannel(dst, channel, src, t, sch, frames);
  const size_t w = size_t(OpWidth(t));
  if (!w || !ValidChannel(channel, sch) || dch <= 0) return E_FAIL;
  BYTE* d = static_cast<BYTE*>(dst);
  const BYTE* s = static_cast<const BYTE*>(src) + channel * w;
  for (DWORD i = 0; i < frames; ++i, s += w * sch)
    for (int c = 0; c < dch; ++c, d += w) std::memmove(d, s, w);
  return S_OK;
}

ZQ_API HRESULT ZqAudio_CopyChannelToMultiMono2(void* const* dst, int count, const void* src, ZQSAMPLETYPE type,
                                               int channels, int channel, DWORD frames) {
  if (!dst || count < 0) return E_FAIL;
  for (int i = 0; i < count; ++i) {
    const HRESULT hr = ZqAudio_ExtractChannel(dst[i], channel, src, type, channels, frames);
    if (FAILED(hr)) return hr;
  }
  return S_OK;
}

ZQ_API HRESULT ZqAudio_CopyChannelToMultiMono(void* const* dst, int count, const void* src,
                                              const _zqwaveformat* format, int channel, DWORD frames) {
  if (!format) return E_FAIL;
  return ZqAudio_CopyChannelToMultiMono2(dst, count, src, format->sampleType, format->channels, channel, frames);
}

ZQ_API HRESULT ZqAudio_CopySwapStereoChannels(void* dst, const void* src, ZQSAMPLETYPE type, DWORD frames) {
  const size_t w = size_t(OpWidth(type));
  if (!w) return E_FAIL;
  BYTE* d = static_cast<BYTE*>(dst);
  const BYTE* s = static_cast<const BYTE*>(src);
  for (DWORD i = 0; i < frames; ++i, d += 2 * w, s += 2 * w) {
    BYTE l[8], r[8];
    std::memcpy(l, s, w);
    std::memcpy(r, s + w, w);
    std::memcpy(d, r, w);
    std::memcpy(d + w, l, w);
  }
  return S_OK;
}

ZQ_API HRESULT ZqAudio_SwapStereoChannels(void* buffer, ZQSAMPLETYPE type, DWORD frames) {
  return ZqAudio_CopySwapStereoChannels(buffer, buffer, type, frames);
}

namespace {
template <class T>
void MeanInt(BYTE* d, const BYTE* s, int channels, DWORD frames) {
  const size_t stride = sizeof(T) * size_t(channels);
  for (DWORD i = 0; i < frames; ++i, d += stride, s += stride) {
    int64_t sum = 0;
    for (int c = 0; c < channels; ++c) sum += LoadAs<T>(s + c * sizeof(T));
    const T mean = T(sum / channels);
    for (int c = 0; c < channels; ++c) StoreAs<T>(d + c * sizeof(T), mean);
  }
}
void Mean24(BYTE* d, const BYTE* s, int channels, DWORD frames) {
  const size_t stride = 3 * size_t(channels);
  for (DWORD i = 0; i < frames; ++i, d += stride, s += stride) {
    int64_t sum = 0;
    for (int c = 0; c < channels; ++c) sum += Read24(s + 3 * c);
    const int32_t mean = int32_t(sum / channels);
    for (int c = 0; c < channels; ++c) Write24(d + 3 * c, mean);
  }
}
template <class T>
void MeanFloat(BYTE* d, const BYTE* s, int channels, DWORD frames) {
  const size_t stride = sizeof(T) * size_t(channels);
  for (DWORD i = 0; i < frames; ++i, d += stride, s += stride) {
    double sum = 0;
    for (int c = 0; c < channels; ++c) sum += LoadAs<T>(s + c * sizeof(T));
    const T mean = T(sum / channels);
    for (int c = 0; c < channels; ++c) StoreAs<T>(d + c * sizeof(T), mean);
  }
}
}  // namespace

ZQ_API HRESULT ZqAudio_MonoChannel(void* dst, const void* src, const _zqwaveformat* format, DWORD frames) {
  if (!format || format->channels == 0) return E_FAIL;
  const ZQSAMPLETYPE t = format->sampleType;
  const int ch = format->channels;
  if (!(t == 16 || t == 17 || t == 18 || t == 19 || t == 32 || t == 33)) return E_FAIL;
  if (ch == 1) {
    if (frames) ZqAudio_GetCopyFunction2(t, t)(dst, src, frames, 1.0f);
    return S_OK;
  }
  BYTE* d = static_cast<BYTE*>(dst);
  const BYTE* s = static_cast<const BYTE*>(src);
  switch (t) {
    case 16: MeanInt<uint8_t>(d, s, ch, frames); break;  // the stored bytes, silence at 128
    case 17: MeanInt<int16_t>(d, s, ch, frames); break;
    case 18: Mean24(d, s, ch, frames); break;
    case 19: MeanInt<int32_t>(d, s, ch, frames); break;
    case 32: MeanFloat<float>(d, s, ch, frames); break;
    case 33: MeanFloat<double>(d, s, ch, frames); break;
  }
  return S_OK;
}

ZQ_API HRESULT ZqAudio_ChannelChange(void* dst, int dstChannels, const void* src, const _zqwaveformat* srcFormat,
                                     DWORD frames) {
  return ChannelChangeImpl(dst, dstChannels, src, srcFormat, frames, false);
}

ZQ_API HRESULT ZqAudio_ChannelChangeAvg(void* dst, int dstChannels, const void* src,
                                        const _zqwaveformat* srcFormat, DWORD frames) {
  return ChannelChangeImpl(dst, dstChannels, src, srcFormat, frames, true);
}

ZQ_API HRESULT ZqAudio_ExtractChannelPair(void* dst, int left, int right, const void* src, ZQSAMPLETYPE type,
                                          int channels, DWORD frames) {
  const size_t w = size_t(OpWidth(type));
  if (!w || !ValidChannel(left, channels) || !ValidChannel(right, channels)) return E_FAIL;
  BYTE* d = static_cast<BYTE*>(dst);
  const BYTE* s = static_cast<const BYTE*>(src);
  StridedMove(d, 2 * w, s + left * w, w * channels, w, frames);
  StridedMove(d + w, 2 * w, s + right * w, w * channels, w, frames);
  return S_OK;
}

ZQ_API HRESULT ZqAudio_FillWithSample(void* buffer, ZQSAMPLETYPE type, const void* sample, DWORD count) {
  const size_t w = size_t(OpWidth(type));
  if (!w || (!sample && count)) return E_FAIL;
  BYTE value[8];
  if (count) std::memcpy(value, sample, w);
  BYTE* p = static_cast<BYTE*>(buffer);
  for (DWORD i = 0; i < count; ++i, p += w) std::memcpy(p, value, w);
  return S_OK;
}
