// Sample types and the kernel's wave format record.
//
// A ZQSAMPLETYPE is one integer that tells the copy routines everything about
// a sample format.  Formats that arrive from outside are WAVEFORMATEX or
// WAVEFORMATEXTENSIBLE; inside the kernel they are held as _zqwaveformat, a
// little-endian record with a length of its own that is also stored in files
// and streams.  Nothing here keeps state, and nothing fails loudly: an
// unknown format answers type 0, size 0 or E_FAIL.
#pragma once

#include "kernel/audio/waveformat_types.h"
#include "base/status.h"
#include "base/types.h"

typedef int ZQSAMPLETYPE;

// The values are part of the design (stored and exchanged); 0 is no type.
enum : ZQSAMPLETYPE {
  ZQSAMPLE_NONE = 0,
  ZQSAMPLE_PCM8 = 16,         // unsigned, silence at 128
  ZQSAMPLE_PCM16 = 17,        // little-endian
  ZQSAMPLE_PCM24 = 18,        // little-endian, 3 bytes packed
  ZQSAMPLE_PCM32 = 19,        // little-endian
  ZQSAMPLE_FLOAT32 = 32,      // IEEE
  ZQSAMPLE_FLOAT64 = 33,      // IEEE
  ZQSAMPLE_PCM24IN32 = 48,    // 24-bit value sign-extended in a 32-bit word
  ZQSAMPLE_PCM8S = 49,        // signed
  ZQSAMPLE_PCM16BE = 64,      // big-endian
  ZQSAMPLE_PCM24BE = 65,      // big-endian, packed
  ZQSAMPLE_PCM32BE = 66,      // big-endian
  ZQSAMPLE_LOW16IN32 = 128,   // 16-bit value in the low half of a 32-bit word
  ZQSAMPLE_LOW24IN32 = 129,   // 24-bit value in the low bytes of a 32-bit word
};

// Format tags of the kernel's own for the sample types without a tag of the
// platform.
constexpr WORD ZQ_WAVE_FORMAT_24IN32 = 0xFE00;
constexpr WORD ZQ_WAVE_FORMAT_PCM_SIGNED8 = 0xFE01;
constexpr WORD ZQ_WAVE_FORMAT_PCM_BIGENDIAN = 0xFE02;
constexpr WORD ZQ_WAVE_FORMAT_LOWBITS32 = 0xFE03;

// _zqwaveformat flags.
constexpr DWORD ZQWF_COMPRESSED = 8;    // type 0: tag and bits are valid
constexpr DWORD ZQWF_EXTENSIBLE = 16;   // came from a WAVEFORMATEXTENSIBLE

constexpr DWORD ZQWF_MAX_EXTRA = 1024;  // extra data kept at most
constexpr DWORD ZQWF_BASE_SIZE = 32;    // a record without extra data
constexpr DWORD ZQWF_EXTRA_OFFSET = 34; // extra data begins here

// Target forms of a copy to WAVEFORMATEX.
enum ZQWAVEFORMAT_COPY_DEST : int {
  ZQWFCOPY_AUTO = 0,             // extensible when the source needs it and room allows
  ZQWFCOPY_PLAIN = 1,            // no case of its own: plain, with the mask kept
  ZQWFCOPY_DROP_MASK = 2,        // channel mask dropped
  ZQWFCOPY_EXT_ABOVE_STEREO = 3, // extensible above two channels
  ZQWFCOPY_EXTENSIBLE = 4,       // always extensible
};

struct WAVEFORMATEX;
struct _zqwaveformat;

// Table of the sample types: 0 for anything outside 16 to 66 (so 128, 129).
ZQ_API WORD ZqAudio_FormatTagFromSampleType(ZQSAMPLETYPE type);
ZQ_API int ZqAudio_BitsFromSampleType(ZQSAMPLETYPE type);
ZQ_API int ZqAudio_BytesFromSampleType(ZQSAMPLETYPE type);

ZQ_API ZQSAMPLETYPE ZqAudio_GetSampleType2(WORD formatTag, int bits);
ZQ_API ZQSAMPLETYPE ZqAudio_GetSampleType(const WAVEFORMATEX* wfx);
// The tag; an extensible format with at least 22 extra bytes and a sub-format
// in the base identifier gives the tag of its sub-format.
ZQ_API WORD ZqAudio_GetWaveFormatTag(const WAVEFORMATEX* wfx);
// 1 with *tag 1 or 3 for the PCM and IEEE float sub-formats, else 0.
ZQ_API BOOL ZqAudio_GetFormatTagExtensible(const WAVEFORMATEXTENSIBLE* wfe, WORD* tag);
ZQ_API BOOL ZqAudio_IsCompressed(const WAVEFORMATEX* wfx);
ZQ_API BOOL ZqAudio_IsCompressedExtensible(const WAVEFORMATEXTENSIBLE* wfe);
ZQ_API void ZqAudio_InitWfx(WAVEFORMATEX* wfx, DWORD rate, ZQSAMPLETYPE type, int channels);
// `room` is the bytes at `wfx`; 40 or more allows the extensible form.
ZQ_API void ZqAudio_InitWfxFlex(WAVEFORMATEX* wfx, WORD formatTag, DWORD rate, int bits, int channels,
                                DWORD channelMask, DWORD room);
ZQ_API BOOL ZqAudio_IsEqualFormat(const WAVEFORMATEX* a, const WAVEFORMATEX* b);
ZQ_API BOOL ZqAudio_FixBadWfx(WAVEFORMATEX* wfx);
ZQ_API double ZqAudio_GetNormalizeFactor(int bits);
ZQ_API WORD ZqAudio_ConvertToCanonicalWaveFormatTag(WORD formatTag);

// Silence for `frames` frames (block align times frames bytes).  S_OK, or
// E_FAIL for an unknown format.
ZQ_API HRESULT ZqAudio_FillSilence(const _zqwaveformat* format, void* buffer, DWORD frames);
ZQ_EXPORT HRESULT ZqAudio_FillSilence(const WAVEFORMATEX* format, void* buffer, DWORD frames);

// Copies `source` into `dest`, which has `room` bytes, in the target form.
// Answers the bytes written (18 plus the extra size).
ZQ_API DWORD ZqAudio_GeneralCopyWfx(WAVEFORMATEX* dest, DWORD room, const _zqwaveformat* source,
                                    ZQWAVEFORMAT_COPY_DEST form);
ZQ_API void ZqAudio_CopyWfxToWfExt(const WAVEFORMATEX* source, WAVEFORMATEXTENSIBLE* dest);
ZQ_API void ZqAudio_CopyWfExtToWfx(const WAVEFORMATEXTENSIBLE* source, WAVEFORMATEX* dest);

// Display texts.  The answer is `buffer` (size in characters), or an empty
// literal for type 0 and types without a text.  The texts are the kernel's
// own, in the current language.
ZQ_API const WCHAR* ZqAudio_GetSampleTypeText(ZQSAMPLETYPE type, WCHAR* buffer, int size);
ZQ_API const WCHAR* ZqAudio_GetBitDepthText(ZQSAMPLETYPE type, WCHAR* buffer, int size);
ZQ_EXPORT const WCHAR* ZqAudio_GetSampleTypeText(const _zqwaveformat* format, WCHAR* buffer, int size);
ZQ_EXPORT const WCHAR* ZqAudio_GetBitDepthText(const _zqwaveformat* format, WCHAR* buffer, int size);

// The kernel's wave format record.  Offsets are part of the stored format.
// A record may be allocated with less than sizeof(_zqwaveformat): every
// method that writes is told the room it has.
struct ZQ_EXPORT _zqwaveformat {
  DWORD size;          // 32, or 34 and up with extra data
  ZQSAMPLETYPE sampleType;  // 0 when compressed
  DWORD sampleRate;
  WORD channels;
  WORD blockAlign;
  DWORD channelMask;   // 0 stands for (1 << channels) - 1
  DWORD flags;         // ZQWF_
  WORD formatTag;      // valid only when compressed
  WORD bitsPerSample;  // valid only when compressed
  DWORD bytesPerSecond;
  WORD extraSize;      // present when size is 34 or more
  BYTE extra[ZQWF_MAX_EXTRA];

  // Room below 33 makes a 32-byte record; more clears that many bytes and
  // makes the record that long.  Block align and bytes per second follow
  // from the type.
  void Init(DWORD rate, ZQSAMPLETYPE type, int channels, DWORD mask, DWORD room);
  void Init(DWORD room, const WAVEFORMATEX* wfx);
  void InitAsWfx(WORD tag, DWORD rate, int bits, int channels, DWORD bytesPerSec, DWORD room);
  void UpdateBlockAlign();
  WORD FormatTag() const;
  int BitsPerSample() const;
  int BytesPerSample() const;
  bool IsCompressed() const { return (flags & ZQWF_COMPRESSED) != 0; }
  DWORD EffectiveChannelMask() const;
  bool operator==(const _zqwaveformat& other) const;
  bool operator==(const WAVEFORMATEX& wfx) const;
};

static_assert(offsetof(_zqwaveformat, sampleType) == 4 && offsetof(_zqwaveformat, sampleRate) == 8);
static_assert(offsetof(_zqwaveformat, channels) == 12 && offsetof(_zqwaveformat, blockAlign) == 14);
static_assert(offsetof(_zqwaveformat, channelMask) == 16 && offsetof(_zqwaveformat, flags) == 20);
static_assert(offsetof(_zqwaveformat, formatTag) == 24 && offsetof(_zqwaveformat, bitsPerSample) == 26);
static_assert(offsetof(_zqwaveformat, bytesPerSecond) == 28 && offsetof(_zqwaveformat, extraSize) == 32);
static_assert(offsetof(_zqwaveformat, extra) == ZQWF_EXTRA_OFFSET);

// The default mask of a channel count: the lowest `channels` bits.
constexpr DWORD ZqAudio_DefaultChannelMask(unsigned channels) {
  return channels >= 32 ? 0xFFFFFFFFu : (1u << channels) - 1u;
}

// A WAVEFORMATEX of up to 136 bytes, for formats with extra data.
union _zqwaveformat_wfxplus {
  WAVEFORMATEX wfx;
  WAVEFORMATEXTENSIBLE wfe;
  BYTE bytes[136];
};

// A plain WAVEFORMATEX made from a record on the stack.
struct _zqwaveformat_wfxcopyhelper {
  _zqwaveformat_wfxplus buf;
  explicit _zqwaveformat_wfxcopyhelper(const _zqwaveformat& f) {
    ZqAudio_GeneralCopyWfx(&buf.wfx, sizeof(buf), &f, ZQWFCOPY_DROP_MASK);
  }
  operator const WAVEFORMATEX*() const { return &buf.wfx; }
};

// A WAVEFORMATEXTENSIBLE (where the format allows one) made from a record.
struct _zqwaveformat_wfxecopyhelper {
  _zqwaveformat_wfxplus buf;
  explicit _zqwaveformat_wfxecopyhelper(const _zqwaveformat& f) {
    ZqAudio_GeneralCopyWfx(&buf.wfx, sizeof(buf), &f, ZQWFCOPY_EXTENSIBLE);
  }
  operator const WAVEFORMATEX*() const { return &buf.wfx; }
};
