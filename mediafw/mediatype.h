// Media types: AM_MEDIA_TYPE with the identifiers of the audio types the
// system carries, the framework's free functions over it, and CMediaType,
// the record with value semantics.
//
// A media type owns its format block (pbFormat, cbFormat bytes, allocated
// with CoTaskMemAlloc) and holds a reference on pUnk when that is set.
// FreeMediaType gives both back; CopyMediaType makes a deep copy.
#pragma once

#include "kernel/audio/waveformat_types.h"
#include "kernel/com/unknown.h"

#if !defined(_WIN32)

struct AM_MEDIA_TYPE {
  GUID majortype;
  GUID subtype;
  BOOL bFixedSizeSamples;
  BOOL bTemporalCompression;
  ULONG lSampleSize;
  GUID formattype;
  IUnknown* pUnk;
  ULONG cbFormat;
  BYTE* pbFormat;
};

#endif  // !_WIN32

inline constexpr GUID MEDIATYPE_Audio = ZqGuid("{73647561-0000-0010-8000-00AA00389B71}");
inline constexpr GUID MEDIATYPE_Video = ZqGuid("{73646976-0000-0010-8000-00AA00389B71}");
inline constexpr GUID MEDIASUBTYPE_PCM = ZqGuid("{00000001-0000-0010-8000-00AA00389B71}");
inline constexpr GUID MEDIASUBTYPE_IEEE_FLOAT = ZqGuid("{00000003-0000-0010-8000-00AA00389B71}");
// An audio sub-type follows the format tag, as the platform maps wave tags
// to identifiers: {tag-0000-0010-8000-00AA00389B71}.  So an extensible
// format's sub-type carries its tag 0xFFFE.
inline constexpr GUID ZQ_MEDIASUBTYPE_EXTENSIBLE = ZqGuid("{0000FFFE-0000-0010-8000-00AA00389B71}");
inline constexpr GUID FORMAT_WaveFormatEx = ZqGuid("{05589F81-C356-11CE-BF01-00AA0055595A}");
inline constexpr GUID FORMAT_None = ZqGuid("{0F6417D6-C318-11D0-A43F-00A0C9223196}");

// The audio sub-type for a wave format tag.
GUID ZqAudioSubtypeFromTag(WORD formatTag);

// Gives back the format block and the pUnk reference; the record is left
// without a format.
void FreeMediaType(AM_MEDIA_TYPE& mt);
// FreeMediaType, then CoTaskMemFree of the record itself (as allocated by
// CreateMediaType or an IEnumMediaTypes).  Accepts null.
void DeleteMediaType(AM_MEDIA_TYPE* pmt);
// A deep copy in task memory; null when out of memory.
AM_MEDIA_TYPE* CreateMediaType(const AM_MEDIA_TYPE* src);
// Deep copy into `dst`, whose old contents are not freed.  E_OUTOFMEMORY
// leaves `dst` without a format.
HRESULT CopyMediaType(AM_MEDIA_TYPE* dst, const AM_MEDIA_TYPE* src);
// Fills `pmt` (whose old contents are not freed) as an audio type for
// `pwfx`: MEDIATYPE_Audio, the sub-type of its tag, fixed-size samples of
// nBlockAlign, and with `setFormat` a FORMAT_WaveFormatEx block of
// 18 + cbSize bytes.
HRESULT CreateAudioMediaType(const WAVEFORMATEX* pwfx, AM_MEDIA_TYPE* pmt, BOOL setFormat);

class CMediaType : public AM_MEDIA_TYPE {
 public:
  CMediaType();
  explicit CMediaType(const GUID* majortype);
  CMediaType(const AM_MEDIA_TYPE& other, HRESULT* phr = nullptr);
  CMediaType(const CMediaType& other, HRESULT* phr = nullptr);
  ~CMediaType();

  CMediaType& operator=(const AM_MEDIA_TYPE& other);
  CMediaType& operator=(const CMediaType& other);
  // Same major type, sub-type, format type and format bytes.
  bool operator==(const CMediaType& other) const;
  bool operator!=(const CMediaType& other) const { return !(*this == other); }

  HRESULT Set(const CMediaType& other);
  HRESULT Set(const AM_MEDIA_TYPE& other);
  // A type with a major type (not GUID_NULL).
  BOOL IsValid() const;

  const GUID* Type() const { return &majortype; }
  void SetType(const GUID* type) { majortype = *type; }
  const GUID* Subtype() const { return &subtype; }
  void SetSubtype(const GUID* type) { subtype = *type; }
  const GUID* FormatType() const { return &formattype; }
  void SetFormatType(const GUID* type) { formattype = *type; }
  BOOL IsFixedSize() const { return bFixedSizeSamples; }
  BOOL IsTemporalCompressed() const { return bTemporalCompression; }
  ULONG GetSampleSize() const { return bFixedSizeSamples ? lSampleSize : 0; }
  void SetSampleSize(ULONG size);
  void SetVariableSize() { bFixedSizeSamples = FALSE; }
  void SetTemporalCompression(BOOL compressed) { bTemporalCompression = compressed; }

  BYTE* Format() const { return pbFormat; }
  ULONG FormatLength() const { return cbFormat; }
  // Copies `length` bytes as the new format block.  FALSE when out of memory.
  BOOL SetFormat(const BYTE* format, ULONG length);
  // Frees the format block.
  void ResetFormatBuffer();
  // A new zero-filled block of `length` bytes (the old one freed); null when
  // out of memory.
  BYTE* AllocFormatBuffer(ULONG length);
  // Grows or shrinks the block keeping its leading bytes; null when out of
  // memory, in which case the old block is kept.
  BYTE* ReallocFormatBuffer(ULONG length);
  // Back to an empty type: no major type, fixed-size samples of 1 byte.
  void InitMediaType();

  // A type with a GUID_NULL major type, sub-type or format type matches any.
  BOOL IsPartiallySpecified() const;
  // Whether this type is as specific as `partial` asks.
  BOOL MatchesPartial(const CMediaType* partial) const;
};
