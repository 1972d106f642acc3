#include "kernel/containers/textstream.h"

#include <algorithm>
#include <cstring>

CZqTextStream::~CZqTextStream() { ZqMemory_Free(m_buffer); }

HRESULT CZqTextStream::Create(CZqTextStream** stream) {
  if (stream == nullptr) return E_INVALIDARG;
  *stream = nullptr;
  return ZqStreamMake<CZqTextStream>(stream, [](CZqTextStream* made) { return made->Init(); });
}

HRESULT CZqTextStream::Init() {
  if (m_buffer != nullptr) return S_FALSE;
  m_buffer = static_cast<BYTE*>(ZqMemory_AllocZ(ZQ_TEXT_STREAM_INITIAL_CAPACITY));
  if (m_buffer == nullptr) return E_OUTOFMEMORY;
  m_capacity = ZQ_TEXT_STREAM_INITIAL_CAPACITY;
  m_readPosition = 0;
  m_writePosition = 0;
  return S_OK;
}

HRESULT CZqTextStream::Read(void* buffer, ULONG size, ULONG* read) {
  if (m_buffer == nullptr) return E_UNEXPECTED;
  if (buffer == nullptr || read == nullptr) return E_INVALIDARG;
  *read = 0;
  if (m_readPosition >= m_capacity) return ZQ_S_TEXT_STREAM_END;
  const ULONG count = std::min(size, m_capacity - m_readPosition);
  std::memcpy(buffer, m_buffer + m_readPosition, count);
  m_readPosition += count;
  *read = count;
  return S_OK;
}

HRESULT CZqTextStream::Write(const void* buffer, ULONG size, ULONG* written) {
  if (m_buffer == nullptr) return E_UNEXPECTED;
  if (buffer == nullptr) return E_INVALIDARG;
  if (written) *written = 0;
  HRESULT hr = S_OK;
  const ULONGLONG needed = static_cast<ULONGLONG>(m_writePosition) + size;
  if (needed > m_capacity) {
    const ULONGLONG grown = std::max<ULONGLONG>(2ull * m_capacity, needed);
    // Sizes stay 32-bit: past that the buffer cannot grow.
    BYTE* bigger = grown <= 0xFFFFFFFFull ? static_cast<BYTE*>(ZqMemory_AllocZ(static_cast<size_t>(grown))) : nullptr;
    if (bigger != nullptr) {
      std::memcpy(bigger, m_buffer, m_writePosition);
      ZqMemory_Free(m_buffer);
      m_buffer = bigger;
      m_capacity = static_cast<ULONG>(grown);
    } else {
      hr = E_OUTOFMEMORY;
    }
  }
  const ULONG count = std::min(size, m_capacity - m_writePosition);
  std::memcpy(m_buffer + m_writePosition, buffer, count);
  m_writePosition += count;
  if (written) *written = count;
  return hr;
}

HRESULT CZqTextStream::Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* newPosition) {
  const ULONG offset = move.u.LowPart;
  switch (origin) {
    case STREAM_SEEK_SET:
      m_readPosition = offset;
      break;
    case STREAM_SEEK_CUR:
      m_readPosition += offset;
      break;
    case STREAM_SEEK_END:
      m_readPosition = m_capacity - offset;
      break;
    default:
      return STG_E_INVALIDFUNCTION;
  }
  if (newPosition) newPosition->QuadPart = m_readPosition;
  if (m_writePosition > m_capacity || m_readPosition > m_writePosition) return E_FAIL;
  return S_OK;
}
