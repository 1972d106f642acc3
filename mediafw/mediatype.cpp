#include "mediafw/mediatype.h"

#include <cstring>

#include "kernel/com/taskmem.h"

GUID ZqAudioSubtypeFromTag(WORD formatTag) {
  GUID g = MEDIASUBTYPE_PCM;
  g.Data1 = formatTag;
  return g;
}

void FreeMediaType(AM_MEDIA_TYPE& mt) {
  if (mt.cbFormat != 0 || mt.pbFormat != nullptr) {
    CoTaskMemFree(mt.pbFormat);
    mt.cbFormat = 0;
    mt.pbFormat = nullptr;
  }
  if (mt.pUnk != nullptr) {
    mt.pUnk->Release();
    mt.pUnk = nullptr;
  }
}

void DeleteMediaType(AM_MEDIA_TYPE* pmt) {
  if (pmt == nullptr) return;
  FreeMediaType(*pmt);
  CoTaskMemFree(pmt);
}

HRESULT CopyMediaType(AM_MEDIA_TYPE* dst, const AM_MEDIA_TYPE* src) {
  if (dst == nullptr || src == nullptr) return E_POINTER;
  if (dst == src) return S_OK;
  *dst = *src;
  if (src->cbFormat != 0 && src->pbFormat != nullptr) {
    dst->pbFormat = static_cast<BYTE*>(CoTaskMemAlloc(src->cbFormat));
    if (dst->pbFormat == nullptr) {
      dst->cbFormat = 0;
      dst->pUnk = nullptr;
      return E_OUTOFMEMORY;
    }
    std::memcpy(dst->pbFormat, src->pbFormat, src->cbFormat);
  } else {
    dst->pbFormat = nullptr;
    dst->cbFormat = 0;
  }
  if (dst->pUnk != nullptr) dst->pUnk->AddRef();
  return S_OK;
}

AM_MEDIA_TYPE* CreateMediaType(const AM_MEDIA_TYPE* src) {
  auto* pmt = static_cast<AM_MEDIA_TYPE*>(CoTaskMemAlloc(sizeof(AM_MEDIA_TYPE)));
  if (pmt == nullptr) return nullptr;
  if (FAILED(CopyMediaType(pmt, src))) {
    CoTaskMemFree(pmt);
    return nullptr;
  }
  return pmt;
}

HRESULT CreateAudioMediaType(const WAVEFORMATEX* pwfx, AM_MEDIA_TYPE* pmt, BOOL setFormat) {
  if (pwfx == nullptr || pmt == nullptr) return E_POINTER;
  std::memset(pmt, 0, sizeof(*pmt));
  pmt->majortype = MEDIATYPE_Audio;
  pmt->subtype = ZqAudioSubtypeFromTag(pwfx->wFormatTag);
  pmt->formattype = FORMAT_WaveFormatEx;
  pmt->bFixedSizeSamples = TRUE;
  pmt->bTemporalCompression = FALSE;
  pmt->lSampleSize = pwfx->nBlockAlign;
  if (setFormat) {
    ULONG size = sizeof(WAVEFORMATEX) + pwfx->cbSize;
    pmt->pbFormat = static_cast<BYTE*>(CoTaskMemAlloc(size));
    if (pmt->pbFormat == nullptr) return E_OUTOFMEMORY;
    std::memcpy(pmt->pbFormat, pwfx, size);
    pmt->cbFormat = size;
  }
  return S_OK;
}

// --- CMediaType --------------------------------------------------------------

CMediaType::CMediaType() : AM_MEDIA_TYPE{} { InitMediaType(); }

CMediaType::CMediaType(const GUID* type) : AM_MEDIA_TYPE{} {
  InitMediaType();
  majortype = *type;
}

CMediaType::CMediaType(const AM_MEDIA_TYPE& other, HRESULT* phr) : AM_MEDIA_TYPE{} {
  HRESULT hr = CopyMediaType(this, &other);
  if (phr) *phr = hr;
}

CMediaType::CMediaType(const CMediaType& other, HRESULT* phr) : AM_MEDIA_TYPE{} {
  HRESULT hr = CopyMediaType(this, &other);
  if (phr) *phr = hr;
}

CMediaType::~CMediaType() { FreeMediaType(*this); }

CMediaType& CMediaType::operator=(const AM_MEDIA_TYPE& other) {
  Set(other);
  return *this;
}

CMediaType& CMediaType::operator=(const CMediaType& other) {
  Set(other);
  return *this;
}

HRESULT CMediaType::Set(const CMediaType& other) { return Set(static_cast<const AM_MEDIA_TYPE&>(other)); }

HRESULT CMediaType::Set(const AM_MEDIA_TYPE& other) {
  if (&other == this) return S_OK;
  FreeMediaType(*this);
  return CopyMediaType(this, &other);
}

bool CMediaType::operator==(const CMediaType& other) const {
  return IsEqualGUID(majortype, other.majortype) && IsEqualGUID(subtype, other.subtype) &&
         IsEqualGUID(formattype, other.formattype) && cbFormat == other.cbFormat &&
         (cbFormat == 0 || std::memcmp(pbFormat, other.pbFormat, cbFormat) == 0);
}

BOOL CMediaType::IsValid() const { return !IsEqualGUID(majortype, GUID_NULL); }

void CMediaType::SetSampleSize(ULONG size) {
  if (size == 0) {
    SetVariableSize();
  } else {
    bFixedSizeSamples = TRUE;
    lSampleSize = size;
  }
}

BOOL CMediaType::SetFormat(const BYTE* format, ULONG length) {
  if (length == 0) {
    ResetFormatBuffer();
    return TRUE;
  }
  BYTE* block = AllocFormatBuffer(length);
  if (block == nullptr) return FALSE;
  std::memcpy(block, format, length);
  return TRUE;
}

void CMediaType::ResetFormatBuffer() {
  CoTaskMemFree(pbFormat);
  pbFormat = nullptr;
  cbFormat = 0;
}

BYTE* CMediaType::AllocFormatBuffer(ULONG length) {
  if (length == 0) return nullptr;
  if (cbFormat == length && pbFormat != nullptr) {
    std::memset(pbFormat, 0, length);
    return pbFormat;
  }
  auto* block = static_cast<BYTE*>(CoTaskMemAlloc(length));
  if (block == nullptr) return nullptr;
  std::memset(block, 0, length);
  ResetFormatBuffer();
  pbFormat = block;
  cbFormat = length;
  return block;
}

BYTE* CMediaType::ReallocFormatBuffer(ULONG length) {
  if (length == 0) return nullptr;
  if (cbFormat == length && pbFormat != nullptr) return pbFormat;
  auto* block = static_cast<BYTE*>(CoTaskMemAlloc(length));
  if (block == nullptr) return nullptr;
  std::memset(block, 0, length);
  if (pbFormat != nullptr) std::memcpy(block, pbFormat, cbFormat < length ? cbFormat : length);
  CoTaskMemFree(pbFormat);
  pbFormat = block;
  cbFormat = length;
  return block;
}

void CMediaType::InitMediaType() {
  FreeMediaType(*this);
  std::memset(static_cast<AM_MEDIA_TYPE*>(this), 0, sizeof(AM_MEDIA_TYPE));
  bFixedSizeSamples = TRUE;
  lSampleSize = 1;
}

BOOL CMediaType::IsPartiallySpecified() const {
  return IsEqualGUID(majortype, GUID_NULL) || IsEqualGUID(subtype, GUID_NULL) ||
         IsEqualGUID(formattype, GUID_NULL);
}

BOOL CMediaType::MatchesPartial(const CMediaType* partial) const {
  if (!IsEqualGUID(partial->majortype, GUID_NULL) && !IsEqualGUID(majortype, partial->majortype)) return FALSE;
  if (!IsEqualGUID(partial->subtype, GUID_NULL) && !IsEqualGUID(subtype, partial->subtype)) return FALSE;
  if (!IsEqualGUID(partial->formattype, GUID_NULL)) {
    if (!IsEqualGUID(formattype, partial->formattype)) return FALSE;
    if (cbFormat != partial->cbFormat) return FALSE;
    if (cbFormat != 0 && std::memcmp(pbFormat, partial->pbFormat, cbFormat) != 0) return FALSE;
  }
  return TRUE;
}
