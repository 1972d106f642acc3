#include "kernel/containers/memstream.h"

#include <cstring>

#include "kernel/containers/streams.h"

CZqMemStream::~CZqMemStream() {
  if (m_owned) ZqMemory_Free(m_data);
  ZqMemory_Free(m_retired);
}

HRESULT CZqMemStream::Init(void* data, ULONGLONG capacity, ULONGLONG length, BOOL copy) {
  BYTE* block = static_cast<BYTE*>(data);
  if (copy) {
    if ((capacity >> 32) != 0) return E_FAIL;
    block = static_cast<BYTE*>(ZqMemory_Alloc(static_cast<size_t>(capacity)));
    if (block == nullptr) return E_OUTOFMEMORY;
    if (capacity != 0) std::memcpy(block, data, static_cast<size_t>(capacity));
  }
  if (m_owned) {
    // Only Clone re-initialises a live stream, and it passes this very
    // block: keep it for the destructor.
    if (m_data != block) {
      ZqMemory_Free(m_data);
    } else {
      ZqMemory_Free(m_retired);
      m_retired = m_data;
    }
  }
  m_data = block;
  m_owned = copy ? TRUE : FALSE;
  m_position = 0;
  m_capacity = capacity;
  m_length = length;
  return S_OK;
}

HRESULT CZqMemStream::Read(void* buffer, ULONG size, ULONG* read) {
  if (read) *read = 0;
  if (buffer == nullptr && size != 0) return STG_E_INVALIDPOINTER;
  if (m_position >= m_length) return S_FALSE;
  ULONGLONG count = size;
  if (count > m_length - m_position) count = m_length - m_position;
  if (count != 0) std::memcpy(buffer, m_data + m_position, static_cast<size_t>(count));
  m_position += count;
  if (read) *read = static_cast<ULONG>(count);
  return S_OK;
}

HRESULT CZqMemStream::Write(const void* buffer, ULONG size, ULONG* written) {
  if (written) *written = 0;
  if (buffer == nullptr && size != 0) return STG_E_INVALIDPOINTER;
  if (m_position >= m_capacity) return S_FALSE;
  ULONGLONG end = m_position + size;
  if (end > m_capacity) end = m_capacity;
  if (m_position > m_length) {
    std::memset(m_data + m_length, 0, static_cast<size_t>(m_position - m_length));
    m_length = m_position;
  }
  if (end > m_length) m_length = end;
  const ULONGLONG count = end - m_position;
  if (count != 0) std::memcpy(m_data + m_position, buffer, static_cast<size_t>(count));
  m_position = end;
  if (written) *written = static_cast<ULONG>(count);
  return S_OK;
}

HRESULT CZqMemStream::Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* newPosition) {
  ULONGLONG target = 0;
  HRESULT hr = ZqStreamSeekTarget(move.QuadPart, origin, m_position, m_length, &target);
  // The block cannot grow: a position past its capacity is refused.
  if (SUCCEEDED(hr) && target > m_capacity) hr = STG_E_INVALIDFUNCTION;
  if (SUCCEEDED(hr)) m_position = target;
  if (newPosition) newPosition->QuadPart = m_position;
  return hr;
}

HRESULT CZqMemStream::Stat(STATSTG* stat, DWORD /*statFlag*/) {
  if (stat == nullptr) return STG_E_INVALIDPOINTER;
  std::memset(stat, 0, sizeof(*stat));
  stat->cbSize.QuadPart = m_length;
  return S_OK;
}

HRESULT CZqMemStream::Clone(IStream** /*clone*/) {
  // The new object only takes this stream's position before it is dropped;
  // the caller gets nothing, and this stream is left re-initialised over its
  // own block without ownership.
  CZqMemStream* made = new (std::nothrow) CZqMemStream();
  if (made == nullptr) return E_OUTOFMEMORY;
  HRESULT hr = Init(m_data, m_capacity, m_length, FALSE);
  made->m_position = m_position;
  made->Release();
  return hr;
}

ZQ_API HRESULT ZqCreateStreamFromMemory64(void* data, ULONGLONG capacity, ULONGLONG length, IStream** stream,
                                          BOOL copy) {
  if (stream == nullptr) return E_INVALIDARG;
  *stream = nullptr;
  if (data == nullptr) return E_INVALIDARG;
  return ZqStreamMake<CZqMemStream>(stream,
                                    [&](CZqMemStream* made) { return made->Init(data, capacity, length, copy); });
}

ZQ_API HRESULT ZqCreateStreamFromMemory(void* data, ULONG capacity, ULONG length, IStream** stream, BOOL copy) {
  return ZqCreateStreamFromMemory64(data, capacity, length, stream, copy);
}
