#include "kernel/containers/liststream.h"

#include <algorithm>
#include <cstring>

#include "kernel/containers/streams.h"
#include "platform/sync.h"

CZqListStream::CZqListStream(tZQLIST* list)
    : m_list(list),
      m_index(-1),
      m_offset(0),
      m_header{ZQ_LIST_STREAM_HEADER_SIZE, ZQ_LIST_STREAM_HEADER_TAG, 0},
      m_item(nullptr),
      m_itemLength(0) {}

void* CZqListStream::ElementAt(LONG index) const { return ZqList_Slot(m_list, index); }

void CZqListStream::ResetItem() {
  m_item = nullptr;
  m_itemLength = 0;
  const BYTE* data = nullptr;
  ULONG length = 0;
  GetItem(nullptr, &data, &length);
}

HRESULT CZqListStream::Walk(BYTE* out, ULONG size, ULONG* done) {
  HRESULT hr = E_INVALIDARG;
  ULONG moved = 0;
  while (moved < size) {
    if (m_index < 0) {
      if (m_offset < ZQ_LIST_STREAM_HEADER_SIZE) {
        m_header[2] = static_cast<DWORD>(m_list->count);
        const ULONG n = std::min(ZQ_LIST_STREAM_HEADER_SIZE - m_offset, size - moved);
        if (out) std::memcpy(out + moved, reinterpret_cast<const BYTE*>(m_header) + m_offset, n);
        m_offset += n;
        moved += n;
        hr = S_OK;
        continue;
      }
      m_index = 0;
      m_offset = 0;
      if (m_list->count > 0 && ElementAt(0) != nullptr) {
        hr = GetItem(ElementAt(0), &m_item, &m_itemLength);
        if (FAILED(hr)) break;
      }
      continue;
    }
    if (m_index >= m_list->count) break;
    if (m_offset < m_itemLength) {
      const ULONG n = std::min(m_itemLength - m_offset, size - moved);
      if (out) std::memcpy(out + moved, m_item + m_offset, n);
      m_offset += n;
      moved += n;
      hr = S_OK;
      continue;
    }
    const BYTE* data = nullptr;
    ULONG length = 0;
    hr = GetItem(ElementAt(m_index), &data, &length);
    if (SUCCEEDED(hr)) {
      m_item = data;
      m_itemLength = length;
      m_offset = 0;
      if (length == 0) ++m_index;  // nothing to read: used up at once
    } else {
      ++m_index;
    }
  }
  *done = moved;
  return hr;
}

HRESULT CZqListStream::WalkLocked(BYTE* out, ULONG size, ULONG* done) {
  const bool locked = (m_list->options & ZQLIST_LOCKED) != 0;
  if (locked) EnterCriticalSection(&m_list->lock);
  HRESULT hr = Walk(out, size, done);
  if (locked) LeaveCriticalSection(&m_list->lock);
  return hr;
}

HRESULT CZqListStream::Read(void* buffer, ULONG size, ULONG* read) {
  if (read) *read = 0;
  if (buffer == nullptr) return E_INVALIDARG;
  if (m_list == nullptr) return ZQ_E_STREAM_NO_LIST;
  ULONG done = 0;
  HRESULT hr = WalkLocked(static_cast<BYTE*>(buffer), size, &done);
  if (read) *read = done;
  return hr;
}

HRESULT CZqListStream::Write(const void*, ULONG, ULONG* written) {
  if (written) *written = 0;
  return E_NOTIMPL;
}

HRESULT CZqListStream::Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* newPosition) {
  if (m_list == nullptr) return ZQ_E_STREAM_NO_LIST;
  HRESULT hr = S_OK;
  switch (origin) {
    case STREAM_SEEK_SET:
      m_index = -1;
      m_offset = 0;
      ResetItem();
      break;
    case STREAM_SEEK_END:
      m_index = m_list->count;
      m_offset = 0;
      ResetItem();
      break;
    case STREAM_SEEK_CUR:
      if (move.u.LowPart != 0) {
        ULONG done = 0;
        hr = WalkLocked(nullptr, move.u.LowPart, &done);
      }
      break;
    default:
      return STG_E_INVALIDFUNCTION;
  }
  if (newPosition) newPosition->QuadPart = m_index < 0 ? 0 : static_cast<ULONGLONG>(m_index);
  return hr;
}

HRESULT CZqTemplateStream::GetItem(void* element, const BYTE** data, ULONG* length) {
  if (element == nullptr) {
    m_last = nullptr;
    *data = nullptr;
    *length = 0;
    return S_OK;
  }
  if (element == m_last) return E_FAIL;
  m_last = element;
  DWORD size = 0;
  std::memcpy(&size, element, sizeof(size));
  *data = static_cast<const BYTE*>(element);
  *length = size;
  return S_OK;
}

ZQ_API HRESULT ZqFio_MakeTemplateListIStream(tZQLIST* list, IStream** stream) {
  if (stream == nullptr) return E_INVALIDARG;
  *stream = nullptr;
  if (list == nullptr) return E_INVALIDARG;
  CZqTemplateStream* made = new (std::nothrow) CZqTemplateStream(list);
  if (made == nullptr) return E_OUTOFMEMORY;
  *stream = made;
  return S_OK;
}
