// Copy and conversion routines between the sample types.
//
// Four families, all without state, each routine told by its destination
// type and then its source type:
//   copy            whole buffers, `count` samples (frames times channels),
//                   with a gain;
//   copy-channels   one channel of an interleaved buffer to one channel of
//                   another, strides in samples of each type, no gain;
//   (de-)interleave two planes to and from an interleaved stereo buffer;
//   channel ops     extract, insert, mute, duplicate, mix, by sample width.
//
// The value path of a conversion, in double precision: read the sample as a
// signed number (type 16 XOR 0x80, big-endian types byte-reversed), scale by
// the source factor 2^-(bits-1) (1 for float), multiply by the gain unless it
// is exactly 1.0, store to a float type as it is (no clipping), or for an
// integer type multiply by 2^(bits-1), clip to the type's range and round to
// nearest even by adding 1.5 * 2^52 and keeping the low bits.  There is no
// dither.  Equal types with gain 1.0 are a block copy.
//
// Fetch a routine once, outside the block loop, and keep the pointer: the
// lookup chooses among processor variants by ZqGetCPUSupport.  Every variant
// gives the same values, accepts any alignment and touches nothing outside
// the counts it is given.
#pragma once

#include "kernel/audio/cpu_support.h"
#include "kernel/audio/waveformat.h"

typedef void (*ZqAudioCopyFunction)(void* dst, const void* src, DWORD count, float gain);
typedef void (*ZqAudioCopyChannelsFunction)(void* dst, int dstChannels, int dstChannel, const void* src,
                                            int srcChannels, int srcChannel, DWORD frames);
typedef void (*ZqAudioDeInterleaveFunction)(void* left, void* right, const void* src, DWORD frames);
typedef void (*ZqAudioInterleaveFunction)(void* dst, const void* left, const void* right, DWORD frames);

// ---- copy family ----------------------------------------------------------
// Both types from 16, 17, 18, 19, 32, 33, 48, 49, 64, 65, 66; destinations 64
// and 65 with sources 48 and 66 do not exist.  Null for a missing pair.
ZQ_API ZqAudioCopyFunction ZqAudio_GetCopyFunction2(ZQSAMPLETYPE dstType, ZQSAMPLETYPE srcType);
ZQ_API ZqAudioCopyFunction ZqAudio_GetCopyFunction(const _zqwaveformat* dst, const _zqwaveformat* src);
ZQ_EXPORT ZqAudioCopyFunction ZqAudio_GetCopyFunction(const WAVEFORMATEX* dst, const _zqwaveformat* src);
ZQ_EXPORT ZqAudioCopyFunction ZqAudio_GetCopyFunction(const _zqwaveformat* dst, const WAVEFORMATEX* src);
// Source channels times frames samples.  S_OK (also for 0 frames, without
// looking at the pair); E_NOTIMPL for a pair that does not exist.
ZQ_API HRESULT ZqAudio_Copy(const _zqwaveformat* dstFormat, void* dst, const _zqwaveformat* srcFormat,
                            const void* src, DWORD frames, float gain);

// ---- copy-channels family -------------------------------------------------
// Sources also 128 (low 16 bits of a 32-bit word: destinations 17, 18, 19,
// 32, 33, 48) and 129 (low 24 bits: destinations 17, 18, 32, 33).  For 129
// to 17, 32 and 33 the word is shifted left by 8 and scaled by 2^-23, which
// is 256 times the value's own factor; callers rely on that.
ZQ_API ZqAudioCopyChannelsFunction ZqAudio_GetCopyChannelsFunction2(ZQSAMPLETYPE dstType, ZQSAMPLETYPE srcType);
ZQ_API ZqAudioCopyChannelsFunction ZqAudio_GetCopyChannelsFunction(const _zqwaveformat* dst,
                                                                   const _zqwaveformat* src);
// For each destination channel d, source channel map[d] (map null: d).  A
// destination channel whose source is negative or beyond the source's
// channels is silenced.  S_OK, or E_NOTIMPL for a pair that does not exist.
ZQ_API HRESULT ZqAudio_CopyChannels(const _zqwaveformat* dstFormat, void* dst, const _zqwaveformat* srcFormat,
                                    const void* src, DWORD frames, const int* map);

// ---- stereo interleave ------------------------------------------------------
// Members apply the copy-channels value path to two channels at once.
ZQ_API ZqAudioDeInterleaveFunction ZqAudio_GetStereoDeInterleaveFunction(ZQSAMPLETYPE dstType,
                                                                         ZQSAMPLETYPE srcType);
ZQ_API ZqAudioInterleaveFunction ZqAudio_GetStereoInterleaveFunction(ZQSAMPLETYPE dstType, ZQSAMPLETYPE srcType);
// One type, no conversion: 16, 17, 19, 32, 33, 48.  Others: E_NOTIMPL.
ZQ_API HRESULT ZqAudio_DeInterleaveStereo(void* left, void* right, const void* src, ZQSAMPLETYPE type,
                                          DWORD frames);
ZQ_API HRESULT ZqAudio_InterleaveStereo(void* dst, const void* left, const void* right, ZQSAMPLETYPE type,
                                        DWORD frames);
ZQ_API HRESULT ZqAudio_DeInterleaveStereoEx(void* left, void* right, ZQSAMPLETYPE dstType, const void* src,
                                            ZQSAMPLETYPE srcType, DWORD frames);
ZQ_API HRESULT ZqAudio_InterleaveStereoEx(void* dst, ZQSAMPLETYPE dstType, const void* left, const void* right,
                                          ZQSAMPLETYPE srcType, DWORD frames);

// ---- channel operations -----------------------------------------------------
// By sample width: 16, 49 (1 byte); 17, 64 (2); 18, 65 (3); 19, 32, 48, 66
// (4); 33 (8).  Other types, and channels outside the count, answer E_FAIL.
ZQ_API HRESULT ZqAudio_ExtractChannel(void* dst, int channel, const void* src, ZQSAMPLETYPE type, int channels,
                                      DWORD frames);
ZQ_EXPORT HRESULT ZqAudio_ExtractChannel(void* dst, int channel, const void* src, const _zqwaveformat* format,
                                         DWORD frames);
ZQ_API HRESULT ZqAudio_InsertChannel(void* dst, ZQSAMPLETYPE type, int channels, int channel, const void* src,
                                     DWORD frames);
// Silence is 128 for type 16 and 0 for all others (type 49 too).
ZQ_API HRESULT ZqAudio_MuteChannel(void* buffer, ZQSAMPLETYPE type, int channels, int channel, DWORD frames);
ZQ_EXPORT HRESULT ZqAudio_MuteChannel(void* buffer, const _zqwaveformat* format, int channel, DWORD frames);
ZQ_EXPORT HRESULT ZqAudio_MuteChannel(void* buffer, const WAVEFORMATEX* format, int channel, DWORD frames);
ZQ_API HRESULT ZqAudio_FillSilenceChannel(void* buffer, const _zqwaveformat* format, int channel, DWORD frames);
// In place; nothing with one channel; types 16 to 33 only.
ZQ_API HRESULT ZqAudio_CopyChannelToChannel(void* buffer, const _zqwaveformat* format, int from, int to,
                                            DWORD frames);
// Both formats of one type (else E_NOTIMPL); channel `channel` of each
// source frame goes to every destination channel.
ZQ_API HRESULT ZqAudio_CopyChannelToAll(void* dst, const void* src, const _zqwaveformat* srcFormat,
                                        const _zqwaveformat* dstFormat, int channel, DWORD frames);
// Channel `channel` into each of `count` mono buffers.
ZQ_API HRESULT ZqAudio_CopyChannelToMultiMono(void* const* dst, int count, const void* src,
                                              const _zqwaveformat* format, int channel, DWORD frames);
ZQ_API HRESULT ZqAudio_CopyChannelToMultiMono2(void* const* dst, int count, const void* src, ZQSAMPLETYPE type,
                                               int channels, int channel, DWORD frames);
ZQ_API HRESULT ZqAudio_SwapStereoChannels(void* buffer, ZQSAMPLETYPE type, DWORD frames);
ZQ_API HRESULT ZqAudio_CopySwapStereoChannels(void* dst, const void* src, ZQSAMPLETYPE type, DWORD frames);
// Every channel of each frame gets the mean of the frame's channels.  Types
// 16 to 33; integers sum and divide as integers, truncating.
ZQ_API HRESULT ZqAudio_MonoChannel(void* dst, const void* src, const _zqwaveformat* format, DWORD frames);
// Equal counts: a copy.  Fewer destination channels: the frame's channels
// summed (ChannelChangeAvg: averaged) as normalised values, scaled, clipped
// and rounded, written at the first destination channel of each frame.  One
// source channel and more destination channels: each sample repeated, from
// the end, so it may run in place.  Anything else: E_FAIL.
ZQ_API HRESULT ZqAudio_ChannelChange(void* dst, int dstChannels, const void* src, const _zqwaveformat* srcFormat,
                                     DWORD frames);
ZQ_API HRESULT ZqAudio_ChannelChangeAvg(void* dst, int dstChannels, const void* src,
                                        const _zqwaveformat* srcFormat, DWORD frames);
// Channels `left` and `right` of an interleaved buffer into a stereo one.
ZQ_API HRESULT ZqAudio_ExtractChannelPair(void* dst, int left, int right, const void* src, ZQSAMPLETYPE type,
                                          int channels, DWORD frames);
// `count` samples, each a copy of the sample at `sample`.
ZQ_API HRESULT ZqAudio_FillWithSample(void* buffer, ZQSAMPLETYPE type, const void* sample, DWORD count);

// The name of the variant a routine is ("avx2", "sse2", "portable"), for
// logs; null for a pointer that is no routine of these families.
ZQ_API const char* ZqAudio_GetRoutineName(const void* routine);
