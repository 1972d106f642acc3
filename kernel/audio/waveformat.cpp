// Sample types, wave format records and the conversions between them.
#include "kernel/audio/waveformat.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <iterator>

namespace {

struct TypeRow {
  ZQSAMPLETYPE type;
  WORD tag;
  int bits;
  int bytes;
};

constexpr TypeRow kTypes[] = {
    {ZQSAMPLE_PCM8, WAVE_FORMAT_PCM, 8, 1},
    {ZQSAMPLE_PCM16, WAVE_FORMAT_PCM, 16, 2},
    {ZQSAMPLE_PCM24, WAVE_FORMAT_PCM, 24, 3},
    {ZQSAMPLE_PCM32, WAVE_FORMAT_PCM, 32, 4},
    {ZQSAMPLE_FLOAT32, WAVE_FORMAT_IEEE_FLOAT, 32, 4},
    {ZQSAMPLE_FLOAT64, WAVE_FORMAT_IEEE_FLOAT, 64, 8},
    {ZQSAMPLE_PCM24IN32, ZQ_WAVE_FORMAT_24IN32, 32, 4},
    {ZQSAMPLE_PCM8S, ZQ_WAVE_FORMAT_PCM_SIGNED8, 8, 1},
    {ZQSAMPLE_PCM16BE, ZQ_WAVE_FORMAT_PCM_BIGENDIAN, 16, 2},
    {ZQSAMPLE_PCM24BE, ZQ_WAVE_FORMAT_PCM_BIGENDIAN, 24, 3},
    {ZQSAMPLE_PCM32BE, ZQ_WAVE_FORMAT_PCM_BIGENDIAN, 32, 4},
};

const TypeRow* FindType(ZQSAMPLETYPE type) {
  for (const TypeRow& r : kTypes)
    if (r.type == type) return &r;
  return nullptr;
}

// {xxxxxxxx-0000-0010-8000-00AA00389B71}: the sub-formats that carry a tag.
bool IsBaseGuid(const GUID& g) {
  static constexpr BYTE kTail[8] = {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};
  return g.Data2 == 0x0000 && g.Data3 == 0x0010 && std::memcmp(g.Data4, kTail, 8) == 0;
}

GUID GuidFromTag(WORD tag) {
  GUID g = KSDATAFORMAT_SUBTYPE_PCM;
  g.Data1 = tag;
  return g;
}

bool IsNullGuid(const GUID& g) {
  static constexpr GUID kNull{};
  return std::memcmp(&g, &kNull, sizeof g) == 0;
}

const WAVEFORMATEXTENSIBLE* AsExtensible(const WAVEFORMATEX* wfx) {
  return reinterpret_cast<const WAVEFORMATEXTENSIBLE*>(wfx);
}

DWORD PlainBlockAlign(int bits, int channels) { return DWORD((bits / 8) * channels); }

// "Room as above": below 33 a 32-byte record, otherwise the room (up to the
// largest record) is cleared and becomes the size.
void ClearForRoom(_zqwaveformat* f, DWORD room) {
  if (room < 33) {
    std::memset(f, 0, ZQWF_BASE_SIZE);
    f->size = ZQWF_BASE_SIZE;
  } else {
    room = std::min<DWORD>(room, ZQWF_EXTRA_OFFSET + ZQWF_MAX_EXTRA);
    std::memset(f, 0, room);
    f->size = room;
  }
}

}  // namespace

ZQ_API WORD ZqAudio_FormatTagFromSampleType(ZQSAMPLETYPE type) {
  const TypeRow* r = FindType(type);
  return r ? r->tag : 0;
}

ZQ_API int ZqAudio_BitsFromSampleType(ZQSAMPLETYPE type) {
  const TypeRow* r = FindType(type);
  return r ? r->bits : 0;
}

ZQ_API int ZqAudio_BytesFromSampleType(ZQSAMPLETYPE type) {
  const TypeRow* r = FindType(type);
  return r ? r->bytes : 0;
}

ZQ_API ZQSAMPLETYPE ZqAudio_GetSampleType2(WORD tag, int bits) {
  switch (tag) {
    case WAVE_FORMAT_PCM:
    case ZQ_WAVE_FORMAT_PCM_SIGNED8:
      switch (bits) {
        case 8: return tag == WAVE_FORMAT_PCM ? ZQSAMPLE_PCM8 : ZQSAMPLE_PCM8S;
        case 16: return ZQSAMPLE_PCM16;
        case 20:
        case 24: return ZQSAMPLE_PCM24;
        case 32: return ZQSAMPLE_PCM32;
      }
      return 0;
    case WAVE_FORMAT_IEEE_FLOAT:
      return bits == 32 ? ZQSAMPLE_FLOAT32 : bits == 64 ? ZQSAMPLE_FLOAT64 : 0;
    case ZQ_WAVE_FORMAT_24IN32:
      return (bits == 24 || bits == 32) ? ZQSAMPLE_PCM24IN32 : 0;
    case ZQ_WAVE_FORMAT_PCM_BIGENDIAN:
      switch (bits) {
        case 8: return ZQSAMPLE_PCM8;  // a byte has no order
        case 16: return ZQSAMPLE_PCM16BE;
        case 24: return ZQSAMPLE_PCM24BE;
        case 32: return ZQSAMPLE_PCM32BE;
      }
      return 0;
    case ZQ_WAVE_FORMAT_LOWBITS32:
      return bits == 16 ? ZQSAMPLE_LOW16IN32 : bits == 24 ? ZQSAMPLE_LOW24IN32 : 0;
  }
  return 0;
}

ZQ_API ZQSAMPLETYPE ZqAudio_GetSampleType(const WAVEFORMATEX* wfx) {
  if (!wfx) return 0;
  if (wfx->wFormatTag != WAVE_FORMAT_EXTENSIBLE) return ZqAudio_GetSampleType2(wfx->wFormatTag, wfx->wBitsPerSample);
  const WAVEFORMATEXTENSIBLE* wfe = AsExtensible(wfx);
  GUID sub;
  std::memcpy(&sub, &wfe->SubFormat, sizeof sub);
  if (!IsBaseGuid(sub) || sub.Data1 > 0xFFFF) return 0;
  ZQSAMPLETYPE t = ZqAudio_GetSampleType2(WORD(sub.Data1), wfx->wBitsPerSample);
  if (t == ZQSAMPLE_PCM32 && wfe->Samples.wValidBitsPerSample == 24) t = ZQSAMPLE_PCM24IN32;
  return t;
}

ZQ_API WORD ZqAudio_GetWaveFormatTag(const WAVEFORMATEX* wfx) {
  if (!wfx) return 0;
  if (wfx->wFormatTag == WAVE_FORMAT_EXTENSIBLE && wfx->cbSize >= ZQ_WFE_EXTRA_SIZE) {
    GUID sub;
    std::memcpy(&sub, &AsExtensible(wfx)->SubFormat, sizeof sub);
    if (IsBaseGuid(sub) && sub.Data1 <= 0xFFFF) return WORD(sub.Data1);
  }
  return wfx->wFormatTag;
}

ZQ_API BOOL ZqAudio_GetFormatTagExtensible(const WAVEFORMATEXTENSIBLE* wfe, WORD* tag) {
  if (!wfe || wfe->Format.cbSize < ZQ_WFE_EXTRA_SIZE) return FALSE;
  GUID sub;
  std::memcpy(&sub, &wfe->SubFormat, sizeof sub);
  if (IsEqualGUID(sub, KSDATAFORMAT_SUBTYPE_PCM)) {
    if (tag) *tag = WAVE_FORMAT_PCM;
    return TRUE;
  }
  if (IsEqualGUID(sub, KSDATAFORMAT_SUBTYPE_IEEE_FLOAT)) {
    if (tag) *tag = WAVE_FORMAT_IEEE_FLOAT;
    return TRUE;
  }
  return FALSE;
}

ZQ_API BOOL ZqAudio_IsCompressedExtensible(const WAVEFORMATEXTENSIBLE* wfe) {
  WORD tag = 0;
  return ZqAudio_GetFormatTagExtensible(wfe, &tag) ? FALSE : TRUE;
}

ZQ_API BOOL ZqAudio_IsCompressed(const WAVEFORMATEX* wfx) {
  if (!wfx) return TRUE;
  const WORD tag = wfx->wFormatTag;
  if (tag == WAVE_FORMAT_EXTENSIBLE) return ZqAudio_IsCompressedExtensible(AsExtensible(wfx));
  const bool plainTag = tag == WAVE_FORMAT_PCM || tag == WAVE_FORMAT_IEEE_FLOAT ||
                        (tag >= ZQ_WAVE_FORMAT_24IN32 && tag <= ZQ_WAVE_FORMAT_PCM_BIGENDIAN);
  if (!plainTag) return TRUE;
  // A PCM tag with a strange block align counts as compressed.
  return wfx->nBlockAlign != PlainBlockAlign(wfx->wBitsPerSample, wfx->nChannels) ? TRUE : FALSE;
}

ZQ_API void ZqAudio_InitWfx(WAVEFORMATEX* wfx, DWORD rate, ZQSAMPLETYPE type, int channels) {
  const int bits = ZqAudio_BitsFromSampleType(type);
  wfx->wFormatTag = ZqAudio_FormatTagFromSampleType(type);
  wfx->nChannels = WORD(channels);
  wfx->nSamplesPerSec = rate;
  wfx->wBitsPerSample = WORD(bits);
  wfx->nBlockAlign = WORD(PlainBlockAlign(bits, channels));
  wfx->nAvgBytesPerSec = wfx->nBlockAlign * rate;
  wfx->cbSize = 0;
}

ZQ_API void ZqAudio_InitWfxFlex(WAVEFORMATEX* wfx, WORD tag, DWORD rate, int bits, int channels, DWORD mask,
                                DWORD room) {
  bool extensible = false;
  if (mask) {
    if (std::popcount(mask) > channels)
      mask = 0;
    else if (!(channels <= 2 && mask == ZqAudio_DefaultChannelMask(unsigned(channels))))
      extensible = true;
  }
  wfx->nChannels = WORD(channels);
  wfx->nSamplesPerSec = rate;
  wfx->wBitsPerSample = WORD(bits);
  wfx->nBlockAlign = WORD(PlainBlockAlign(bits, channels));
  wfx->nAvgBytesPerSec = wfx->nBlockAlign * rate;
  if (extensible && room >= sizeof(WAVEFORMATEXTENSIBLE)) {
    WAVEFORMATEXTENSIBLE* wfe = reinterpret_cast<WAVEFORMATEXTENSIBLE*>(wfx);
    wfx->wFormatTag = WAVE_FORMAT_EXTENSIBLE;
    wfx->cbSize = ZQ_WFE_EXTRA_SIZE;
    wfe->Samples.wValidBitsPerSample = WORD(bits);
    wfe->dwChannelMask = mask;
    const GUID sub = GuidFromTag(tag);
    std::memcpy(&wfe->SubFormat, &sub, sizeof sub);
  } else {
    wfx->wFormatTag = tag;
    wfx->cbSize = 0;
  }
}

ZQ_API BOOL ZqAudio_IsEqualFormat(const WAVEFORMATEX* a, const WAVEFORMATEX* b) {
  if (!a || !b) return FALSE;
  return a->nChannels == b->nChannels && a->nSamplesPerSec == b->nSamplesPerSec &&
         ZqAudio_GetWaveFormatTag(a) == ZqAudio_GetWaveFormatTag(b) && a->wBitsPerSample == b->wBitsPerSample;
}

ZQ_API BOOL ZqAudio_FixBadWfx(WAVEFORMATEX* wfx) {
  if (!wfx || wfx->wFormatTag != WAVE_FORMAT_PCM) return FALSE;
  BOOL changed = FALSE;
  if (wfx->wBitsPerSample == 20) {
    wfx->wBitsPerSample = 24;
    changed = TRUE;
  }
  const WORD align = WORD(PlainBlockAlign(wfx->wBitsPerSample, wfx->nChannels));
  if (wfx->nBlockAlign != align) {
    wfx->nBlockAlign = align;
    changed = TRUE;
  }
  return changed;
}

ZQ_API double ZqAudio_GetNormalizeFactor(int bits) {
  switch (bits) {
    case 8: return 128.0;
    case 16: return 32768.0;
    case 24: return 8388608.0;
    case 32: return 2147483648.0;
  }
  return 1.0;
}

ZQ_API WORD ZqAudio_ConvertToCanonicalWaveFormatTag(WORD tag) {
  struct Alias {
    WORD from, to;
  };
  static constexpr Alias kAliases[] = {
      {0x0014, 0x0002}, {0x0017, 0x0002}, {0x0040, 0x0002}, {0x00D8, 0xFFCA}, {0x00FF, 0xA106}, {0x0180, 0xA106},
      {0x0215, 0x0216}, {0x2003, 0x2002}, {0x4143, 0xA106}, {0x674F, 0x6771}, {0x6750, 0x6771}, {0x6751, 0x6771},
      {0x676F, 0x6771}, {0x6770, 0x6771}, {0x6771, 0x6771}, {0x706D, 0xA106},
  };
  static_assert(std::size(kAliases) == 16);
  const Alias* it = std::lower_bound(std::begin(kAliases), std::end(kAliases), tag,
                                     [](const Alias& a, WORD t) { return a.from < t; });
  return (it != std::end(kAliases) && it->from == tag) ? it->to : tag;
}

ZQ_API HRESULT ZqAudio_FillSilence(const _zqwaveformat* format, void* buffer, DWORD frames) {
  if (!format || format->IsCompressed()) return E_FAIL;
  const ZQSAMPLETYPE t = format->sampleType;
  if (!FindType(t) && t != ZQSAMPLE_LOW16IN32 && t != ZQSAMPLE_LOW24IN32) return E_FAIL;
  const size_t bytes = size_t(format->blockAlign) * frames;
  if (bytes) std::memset(buffer, t == ZQSAMPLE_PCM8 ? 0x80 : 0, bytes);
  return S_OK;
}

ZQ_EXPORT HRESULT ZqAudio_FillSilence(const WAVEFORMATEX* wfx, void* buffer, DWORD frames) {
  if (!wfx) return E_FAIL;
  const size_t bytes = size_t(wfx->nBlockAlign) * frames;
  int fill;
  switch (wfx->wFormatTag) {
    case WAVE_FORMAT_PCM:
    case ZQ_WAVE_FORMAT_PCM_BIGENDIAN:  // unsigned at 8 bits too
      fill = wfx->wBitsPerSample == 8 ? 0x80 : 0;
      break;
    case WAVE_FORMAT_IEEE_FLOAT:
    case ZQ_WAVE_FORMAT_24IN32:
    case ZQ_WAVE_FORMAT_PCM_SIGNED8:
      fill = 0;
      break;
    case WAVE_FORMAT_EXTENSIBLE: {
      WORD tag = 0;
      if (!ZqAudio_GetFormatTagExtensible(AsExtensible(wfx), &tag)) return S_OK;
      fill = (tag == WAVE_FORMAT_PCM && wfx->wBitsPerSample == 8) ? 0x80 : 0;
      break;
    }
    default:
      return E_FAIL;
  }
  if (bytes) std::memset(buffer, fill, bytes);
  return S_OK;
}

ZQ_API DWORD ZqAudio_GeneralCopyWfx(WAVEFORMATEX* dest, DWORD room, const _zqwaveformat* src,
                                    ZQWAVEFORMAT_COPY_DEST form) {
  if (!dest || !src || room < sizeof(WAVEFORMATEX)) return 0;
  const DWORD defMask = ZqAudio_DefaultChannelMask(src->channels);
  const bool nonDefaultMask = src->channelMask != 0 && src->channelMask != defMask;
  bool wantExt = false;
  switch (form) {
    case ZQWFCOPY_EXTENSIBLE: wantExt = true; break;
    case ZQWFCOPY_EXT_ABOVE_STEREO: wantExt = src->channels > 2; break;
    case ZQWFCOPY_AUTO:
      wantExt = room >= sizeof(WAVEFORMATEXTENSIBLE) && ((src->flags & ZQWF_EXTENSIBLE) || nonDefaultMask);
      break;
    default: break;
  }
  const DWORD mask = form == ZQWFCOPY_DROP_MASK ? 0 : (wantExt ? src->EffectiveChannelMask() : src->channelMask);

  if (src->IsCompressed()) {
    dest->wFormatTag = src->formatTag;
    dest->nChannels = src->channels;
    dest->nSamplesPerSec = src->sampleRate;
    dest->wBitsPerSample = src->bitsPerSample;
    dest->nBlockAlign = src->blockAlign;
    dest->nAvgBytesPerSec = src->bytesPerSecond;
    dest->cbSize = 0;
    DWORD header = sizeof(WAVEFORMATEX);
    const bool extraNeeded = form != ZQWFCOPY_DROP_MASK && nonDefaultMask;
    if ((wantExt || extraNeeded) && room >= sizeof(WAVEFORMATEXTENSIBLE)) {
      WAVEFORMATEXTENSIBLE* wfe = reinterpret_cast<WAVEFORMATEXTENSIBLE*>(dest);
      dest->wFormatTag = WAVE_FORMAT_EXTENSIBLE;
      wfe->Samples.wValidBitsPerSample = src->bitsPerSample;
      wfe->dwChannelMask = src->EffectiveChannelMask();
      const GUID sub = GuidFromTag(src->formatTag);
      std::memcpy(&wfe->SubFormat, &sub, sizeof sub);
      header = sizeof(WAVEFORMATEXTENSIBLE);
    }
    DWORD extra = src->size >= ZQWF_EXTRA_OFFSET ? std::min<DWORD>(src->extraSize, ZQWF_MAX_EXTRA) : 0;
    extra = std::min<DWORD>(extra, room - header);
    if (extra) std::memcpy(reinterpret_cast<BYTE*>(dest) + header, src->extra, extra);
    dest->cbSize = WORD(header - sizeof(WAVEFORMATEX) + extra);
    return sizeof(WAVEFORMATEX) + dest->cbSize;
  }
  ZqAudio_InitWfxFlex(dest, src->FormatTag(), src->sampleRate, src->BitsPerSample(), src->channels, mask,
                      wantExt || form == ZQWFCOPY_PLAIN || form == ZQWFCOPY_EXT_ABOVE_STEREO ? room
                                                                                         : std::min<DWORD>(room, 39));
  return sizeof(WAVEFORMATEX) + dest->cbSize;
}

ZQ_API void ZqAudio_CopyWfxToWfExt(const WAVEFORMATEX* src, WAVEFORMATEXTENSIBLE* dest) {
  if (!src || !dest) return;
  if (src->wFormatTag == WAVE_FORMAT_EXTENSIBLE && src->cbSize >= ZQ_WFE_EXTRA_SIZE) {
    std::memmove(dest, src, sizeof *dest);
    dest->Format.cbSize = ZQ_WFE_EXTRA_SIZE;
    return;
  }
  WAVEFORMATEX head;
  std::memcpy(&head, src, sizeof head);
  dest->Format = head;
  dest->Format.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
  dest->Format.cbSize = ZQ_WFE_EXTRA_SIZE;
  dest->Samples.wValidBitsPerSample = head.wBitsPerSample;
  dest->dwChannelMask = ZqAudio_DefaultChannelMask(head.nChannels);
  const GUID sub = GuidFromTag(head.wFormatTag);
  std::memcpy(&dest->SubFormat, &sub, sizeof sub);
}

ZQ_API void ZqAudio_CopyWfExtToWfx(const WAVEFORMATEXTENSIBLE* src, WAVEFORMATEX* dest) {
  if (!src || !dest) return;
  WAVEFORMATEX head;
  std::memcpy(&head, &src->Format, sizeof head);
  head.wFormatTag = ZqAudio_GetWaveFormatTag(&src->Format);
  head.cbSize = 0;
  std::memcpy(dest, &head, sizeof head);
}

// ---- _zqwaveformat ---------------------------------------------------------

DWORD _zqwaveformat::EffectiveChannelMask() const {
  return channelMask ? channelMask : ZqAudio_DefaultChannelMask(channels);
}

void _zqwaveformat::Init(DWORD rate, ZQSAMPLETYPE type, int nChannels, DWORD mask, DWORD room) {
  ClearForRoom(this, room);
  sampleType = type;
  sampleRate = rate;
  channels = WORD(nChannels);
  channelMask = mask;
  UpdateBlockAlign();
}

void _zqwaveformat::InitAsWfx(WORD tag, DWORD rate, int bits, int nChannels, DWORD bytesPerSec, DWORD room) {
  ClearForRoom(this, room);
  if (tag == WAVE_FORMAT_PCM && bits == 20) bits = 24;
  sampleRate = rate;
  channels = WORD(nChannels);
  sampleType = ZqAudio_GetSampleType2(tag, bits);
  if (!sampleType) {
    flags |= ZQWF_COMPRESSED;
    formatTag = tag;
    bitsPerSample = WORD(bits);
    bytesPerSecond = bytesPerSec;
    blockAlign = WORD((nChannels * bits) / 8);
    return;
  }
  blockAlign = WORD((nChannels * bits) / 8);  // signed division
  bytesPerSecond = DWORD(blockAlign) * rate;
}

void _zqwaveformat::Init(DWORD room, const WAVEFORMATEX* wfx) {
  ClearForRoom(this, room);
  sampleRate = wfx->nSamplesPerSec;
  channels = wfx->nChannels;
  blockAlign = wfx->nBlockAlign;
  bytesPerSecond = wfx->nAvgBytesPerSec;
  sampleType = ZqAudio_GetSampleType(wfx);
  const WORD tag = wfx->wFormatTag;
  if (tag == WAVE_FORMAT_PCM) {
    WAVEFORMATEX fixed;
    std::memcpy(&fixed, wfx, 16);
    fixed.cbSize = 0;
    ZqAudio_FixBadWfx(&fixed);
    blockAlign = fixed.nBlockAlign;
  }
  if (tag == WAVE_FORMAT_EXTENSIBLE) {
    const WAVEFORMATEXTENSIBLE* wfe = AsExtensible(wfx);
    flags |= ZQWF_EXTENSIBLE;
    channelMask = wfe->dwChannelMask;
    GUID sub;
    std::memcpy(&sub, &wfe->SubFormat, sizeof sub);
    if (!sampleType && IsNullGuid(sub) && (wfx->cbSize == 0 || wfx->cbSize == ZQ_WFE_EXTRA_SIZE)) {
      // Formats written with the bit count where the byte count belongs.
      const DWORD bits = wfx->wBitsPerSample;
      if (DWORD(blockAlign) == DWORD(channels) * bits && bytesPerSecond == sampleRate * blockAlign) {
        switch (bits) {
          case 8: sampleType = ZQSAMPLE_PCM8; break;
          case 16: sampleType = ZQSAMPLE_PCM16; break;
          case 24: sampleType = ZQSAMPLE_PCM24; break;
          case 32: sampleType = ZQSAMPLE_FLOAT32; break;
          case 64: sampleType = ZQSAMPLE_FLOAT64; break;
        }
      }
    }
  }
  DWORD extra = 0;
  if (!sampleType) {
    formatTag = ZqAudio_GetWaveFormatTag(wfx);
    flags |= ZQWF_COMPRESSED;
    bitsPerSample = wfx->wBitsPerSample;
    if (tag != WAVE_FORMAT_PCM && tag != WAVE_FORMAT_IEEE_FLOAT) {
      const DWORD header = tag == WAVE_FORMAT_EXTENSIBLE ? ZQ_WFE_EXTRA_SIZE : 0;
      extra = wfx->cbSize > header ? wfx->cbSize - header : 0;
      extra = std::min<DWORD>(extra, ZQWF_MAX_EXTRA);
      extra = std::min<DWORD>(extra, room > ZQWF_EXTRA_OFFSET ? room - ZQWF_EXTRA_OFFSET : 0);
      if (extra)
        std::memcpy(this->extra, reinterpret_cast<const BYTE*>(wfx) + sizeof(WAVEFORMATEX) + header, extra);
    }
  }
  if (room < ZQWF_EXTRA_OFFSET) {
    size = ZQWF_BASE_SIZE;
  } else {
    extraSize = WORD(extra);
    size = ZQWF_BASE_SIZE + extra;
  }
}

void _zqwaveformat::UpdateBlockAlign() {
  if (IsCompressed()) return;
  blockAlign = WORD(ZqAudio_BytesFromSampleType(sampleType) * channels);
  bytesPerSecond = DWORD(blockAlign) * sampleRate;
}

WORD _zqwaveformat::FormatTag() const {
  return IsCompressed() ? formatTag : ZqAudio_FormatTagFromSampleType(sampleType);
}

int _zqwaveformat::BitsPerSample() const {
  return IsCompressed() ? bitsPerSample : ZqAudio_BitsFromSampleType(sampleType);
}

int _zqwaveformat::BytesPerSample() const {
  return IsCompressed() ? bitsPerSample / 8 : ZqAudio_BytesFromSampleType(sampleType);
}

bool _zqwaveformat::operator==(const _zqwaveformat& o) const {
  if (sampleType != o.sampleType || sampleRate != o.sampleRate || channels != o.channels) return false;
  if (IsCompressed() != o.IsCompressed()) return false;
  if (EffectiveChannelMask() != o.EffectiveChannelMask()) return false;
  if (!IsCompressed()) return true;
  const WORD na = size >= ZQWF_EXTRA_OFFSET ? extraSize : 0;
  const WORD nb = o.size >= ZQWF_EXTRA_OFFSET ? o.extraSize : 0;
  return formatTag == o.formatTag && bytesPerSecond == o.bytesPerSecond && bitsPerSample == o.bitsPerSample &&
         na == nb && std::memcmp(extra, o.extra, std::min<DWORD>(na, ZQWF_MAX_EXTRA)) == 0;
}

bool _zqwaveformat::operator==(const WAVEFORMATEX& wfx) const {
  _zqwaveformat other;
  other.Init(sizeof(_zqwaveformat), &wfx);
  if (wfx.wFormatTag != WAVE_FORMAT_EXTENSIBLE) other.channelMask = 0;
  return *this == other;
}
