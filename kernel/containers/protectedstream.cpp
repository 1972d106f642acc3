#include "kernel/containers/protectedstream.h"

#include <cstring>

CZqProtectedStream::~CZqProtectedStream() {
  if (m_inner) m_inner->Release();
}

HRESULT CZqProtectedStream::InnerPosition(ULONGLONG* position) {
  LARGE_INTEGER zero;
  zero.QuadPart = 0;
  ULARGE_INTEGER now;
  now.QuadPart = 0;
  HRESULT hr = m_inner->Seek(zero, STREAM_SEEK_CUR, &now);
  *position = now.QuadPart;
  return hr;
}

HRESULT CZqProtectedStream::Read(void* buffer, ULONG size, ULONG* read) {
  if (read) *read = 0;
  if (m_inner == nullptr) return STG_E_READFAULT;
  if (buffer == nullptr) return STG_E_INVALIDPOINTER;
  if (!m_limitEnd) return S_OK;  // no range: nothing may be read

  ULONGLONG p = 0;
  HRESULT hr = InnerPosition(&p);
  if (FAILED(hr)) return hr;
  const ULONGLONG end = RangeEnd();
  ULONG got = 0;
  switch (m_readMode) {
    case ZQPROTECTED_READ_CLIP: {
      if (p < m_start || p > end) return STG_E_ACCESSDENIED;
      ULONG count = size;
      if (count > end - p) count = static_cast<ULONG>(end - p);
      hr = m_inner->Read(buffer, count, &got);
      break;
    }
    case ZQPROTECTED_READ_BLANK: {
      if (p < m_start) return STG_E_ACCESSDENIED;
      hr = m_inner->Read(buffer, size, &got);
      if (SUCCEEDED(hr) && (p >= end || size > end - p)) {
        const ULONG keep = p >= end ? 0 : static_cast<ULONG>(end - p);
        std::memset(static_cast<BYTE*>(buffer) + keep, 0, size - keep);
      }
      break;
    }
    default:
      return S_OK;
  }
  m_position = p + got;
  if (read) *read = got;
  if (FAILED(hr)) return hr;
  return got < size ? S_FALSE : S_OK;
}

HRESULT CZqProtectedStream::Write(const void* buffer, ULONG size, ULONG* written) {
  if (written) *written = 0;
  if (m_inner == nullptr) return STG_E_WRITEFAULT;
  if (buffer == nullptr) return STG_E_INVALIDPOINTER;

  ULONGLONG p = 0;
  HRESULT hr = InnerPosition(&p);
  if (FAILED(hr)) return hr;
  m_position = p;
  if (m_limitStart && p < m_start) return STG_E_ACCESSDENIED;

  ULONG done = 0;
  hr = m_inner->Write(buffer, size, &done);
  m_position = p + done;
  if (FAILED(hr)) return hr;
  if (written) *written = done;
  // A write is never refused at the end: it carries the range with it.
  if (m_limitEnd && m_position > RangeEnd()) m_length = m_position - m_start;
  return hr;
}

HRESULT CZqProtectedStream::Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* newPosition) {
  if (m_inner == nullptr) return STG_E_INVALIDFUNCTION;
  const bool limited = m_limitEnd || m_limitStart;
  const LONGLONG offset = move.QuadPart;
  const ULONGLONG end = RangeEnd();

  LARGE_INTEGER to = move;
  DWORD innerOrigin = origin;
  switch (origin) {
    case STREAM_SEEK_SET:
      if (limited) {
        const ULONGLONG target = m_start + static_cast<ULONGLONG>(offset);
        if (m_limitEnd && m_readMode == ZQPROTECTED_READ_CLIP && !ZqStreamBeforeZero(m_start, offset) &&
            target > end) {
          return STG_E_INVALIDFUNCTION;
        }
        to.QuadPart = static_cast<LONGLONG>(target);
      }
      break;
    case STREAM_SEEK_CUR:
      if (limited) {
        ULONGLONG p = 0;
        HRESULT hr = InnerPosition(&p);
        if (FAILED(hr)) return hr;
        const ULONGLONG target = p + static_cast<ULONGLONG>(offset);
        if (ZqStreamBeforeZero(p, offset) || target < m_start) return STG_E_INVALIDFUNCTION;
        if (m_limitEnd && (target > end || ZqStreamWrapsRound(p, offset))) return STG_E_INVALIDFUNCTION;
        to.QuadPart = static_cast<LONGLONG>(target);
        innerOrigin = STREAM_SEEK_SET;
      }
      break;
    case STREAM_SEEK_END:
      if (m_limitEnd) {
        if (offset > 0 || ZqStreamBeforeZero(m_length, offset)) return STG_E_INVALIDFUNCTION;
        to.QuadPart = static_cast<LONGLONG>(end + static_cast<ULONGLONG>(offset));
        innerOrigin = STREAM_SEEK_SET;
      }
      break;
    default:
      return STG_E_INVALIDFUNCTION;
  }

  ULARGE_INTEGER now;
  now.QuadPart = 0;
  HRESULT hr = m_inner->Seek(to, innerOrigin, &now);
  if (FAILED(hr)) return hr;
  m_position = now.QuadPart;
  if (newPosition) newPosition->QuadPart = limited ? m_position - m_start : m_position;
  return hr;
}

HRESULT CZqProtectedStream::Stat(STATSTG* stat, DWORD statFlag) {
  if (m_inner == nullptr) return STG_E_INVALIDFUNCTION;
  return m_inner->Stat(stat, statFlag);
}

HRESULT CZqProtectedStream::Clone(IStream** clone) {
  if (clone == nullptr) return STG_E_INVALIDPOINTER;
  *clone = nullptr;
  if (m_inner == nullptr) return STG_E_INVALIDFUNCTION;
  IStream* innerClone = nullptr;
  HRESULT hr = m_inner->Clone(&innerClone);
  if (FAILED(hr)) return hr;
  if (innerClone == nullptr) return E_FAIL;
  CZqProtectedStream* made = new (std::nothrow) CZqProtectedStream();
  if (made == nullptr) {
    innerClone->Release();
    return E_OUTOFMEMORY;
  }
  hr = made->AttachStream(innerClone);
  innerClone->Release();
  if (FAILED(hr)) {
    made->Release();
    return hr;
  }
  *clone = made;
  return S_OK;
}

HRESULT CZqProtectedStream::SetProtectedRange(BOOL limitEnd, BOOL limitStart, ULONGLONG start, ULONGLONG length) {
  m_limitEnd = limitEnd;
  m_limitStart = limitStart;
  m_start = start;
  m_length = length;
  return S_OK;
}

HRESULT CZqProtectedStream::SetReadMode(DWORD mode) {
  m_readMode = mode;
  return S_OK;
}

HRESULT CZqProtectedStream::AttachStream(IStream* stream) {
  if (stream == nullptr) return E_INVALIDARG;
  stream->AddRef();
  if (m_inner) m_inner->Release();
  m_inner = stream;
  ULONGLONG p = 0;
  HRESULT hr = InnerPosition(&p);
  if (FAILED(hr)) {
    m_inner->Release();
    m_inner = nullptr;
    m_position = 0;
    return hr;
  }
  m_position = p;
  return S_OK;
}

ZQ_API HRESULT ZqProtectedStream_CreateFromStream(IStream* inner, IZqProtectedStream** stream) {
  if (stream == nullptr) return E_INVALIDARG;
  *stream = nullptr;
  if (inner == nullptr) return E_INVALIDARG;
  return ZqStreamMake<CZqProtectedStream>(stream, [&](CZqProtectedStream* made) { return made->AttachStream(inner); });
}

namespace {

// Wraps a stream that was just made and hands its reference over.
HRESULT WrapNew(HRESULT made, IStream* inner, IZqProtectedStream** stream) {
  if (FAILED(made)) return made;
  HRESULT hr = ZqProtectedStream_CreateFromStream(inner, stream);
  inner->Release();
  return hr;
}

}  // namespace

ZQ_API HRESULT ZqProtectedStream_CreateFromFile(HANDLE file, IZqProtectedStream** stream) {
  if (stream == nullptr) return E_INVALIDARG;
  *stream = nullptr;
  IStream* inner = nullptr;
  HRESULT hr = ZqCreateStreamFromFile(file, &inner);
  return WrapNew(hr, inner, stream);
}

ZQ_API HRESULT ZqProtectedStream_CreateFromMemory64(void* data, ULONGLONG capacity, ULONGLONG length,
                                                    IZqProtectedStream** stream) {
  if (stream == nullptr) return E_INVALIDARG;
  *stream = nullptr;
  IStream* inner = nullptr;
  HRESULT hr = ZqCreateStreamFromMemory64(data, capacity, length, &inner, FALSE);
  return WrapNew(hr, inner, stream);
}

ZQ_API HRESULT ZqProtectedStream_CreateFromMemory(void* data, ULONG capacity, ULONG length,
                                                  IZqProtectedStream** stream) {
  return ZqProtectedStream_CreateFromMemory64(data, capacity, length, stream);
}
