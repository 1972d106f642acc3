#include "kernel/containers/filestream.h"

#include "kernel/containers/streams.h"
#include "platform/file.h"

namespace {

ULONGLONG FileSizeOf(HANDLE file) {
  DWORD high = 0;
  DWORD low = GetFileSize(file, &high);
  if (low == INVALID_FILE_SIZE && GetLastError() != ERROR_SUCCESS) return 0;
  return (static_cast<ULONGLONG>(high) << 32) | low;
}

bool MoveTo(HANDLE file, ULONGLONG position) {
  LARGE_INTEGER to;
  to.QuadPart = static_cast<LONGLONG>(position);
  return SetFilePointerEx(file, to, nullptr, FILE_BEGIN) != FALSE;
}

HRESULT LastErrorStatus() { return ZqStreamStatusFromPlatformError(GetLastError()); }

}  // namespace

HRESULT CZqFileStream::Init(HANDLE file) {
  m_file = file;
  m_position = 0;
  m_size = FileSizeOf(file);
  return S_OK;
}

HRESULT CZqFileStream::Read(void* buffer, ULONG size, ULONG* read) {
  if (read) *read = 0;
  if (buffer == nullptr && size != 0) return STG_E_INVALIDPOINTER;
  DWORD done = 0;
  BOOL ok = MoveTo(m_file, m_position) && ZqStreamReadFile(m_file, buffer, size, &done);
  if (read) *read = done;
  if (!ok) return LastErrorStatus();
  m_position += done;
  return S_OK;
}

HRESULT CZqFileStream::Write(const void* buffer, ULONG size, ULONG* written) {
  if (written) *written = 0;
  if (buffer == nullptr && size != 0) return STG_E_INVALIDPOINTER;
  DWORD done = 0;
  BOOL ok = MoveTo(m_file, m_position) && WriteFile(m_file, buffer, size, &done, nullptr);
  if (written) *written = done;
  if (!ok) return LastErrorStatus();
  m_position += done;
  if (m_position > m_size) m_size = m_position;
  return S_OK;
}

HRESULT CZqFileStream::Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* newPosition) {
  // The file pointer itself moves only at the next read or write.
  const HRESULT hr = ZqStreamSeekTarget(move.QuadPart, origin, m_position, m_size, &m_position);
  if (newPosition) newPosition->QuadPart = m_position;
  return hr;
}

HRESULT CZqFileStream::Clone(IStream** /*clone*/) {
  // The new object is made and dropped; the caller gets nothing.  What is
  // left of the operation is a rewind of this stream and a fresh size.
  CZqFileStream* made = new (std::nothrow) CZqFileStream();
  if (made == nullptr) return E_OUTOFMEMORY;
  made->Release();
  return Init(m_file);
}

ZQ_API HRESULT ZqCreateStreamFromFile(HANDLE file, IStream** stream) {
  if (stream == nullptr) return E_INVALIDARG;
  *stream = nullptr;
  if (file == nullptr) return E_INVALIDARG;
  return ZqStreamMake<CZqFileStream>(stream, [&](CZqFileStream* made) { return made->Init(file); });
}
