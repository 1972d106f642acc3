#include "aplugins/zqvstwrap/host/zqmemorytoken.h"

#include <cstdlib>
#include <cstring>

#include "platform/ipc.h"
#include "platform/process.h"

namespace {

DWORD NormaliseAccess(DWORD access) {
  access &= ZQ_TOKEN_WRITE | ZQ_TOKEN_READ;
  return access == 0 ? (ZQ_TOKEN_WRITE | ZQ_TOKEN_READ) : access;
}

BYTE* Address(int64_t value) { return reinterpret_cast<BYTE*>(static_cast<intptr_t>(value)); }

}  // namespace

// --- CMappingOfZqMemoryToken ---------------------------------------------------

CMappingOfZqMemoryToken::CMappingOfZqMemoryToken(const _zqmemorytoken& token, DWORD access)
    : m_token(token), m_data(nullptr), m_view(nullptr), m_duplicate(-1), m_mapped(0), m_copied(0), m_failed(1),
      m_writeBack(0) {
  if (token.ownerProcessId == GetCurrentProcessId()) {
    // Our own memory: nothing to map and nothing to release.
    m_data = Address(token.base) + token.dataOffset;
    m_failed = 0;
    return;
  }
  access = NormaliseAccess(access);
  if (token.type == ZQ_TOKEN_MAPPING) {
    const int fd = ZqDuplicateDescriptorFrom(token.ownerProcessId, static_cast<int>(token.mapping));
    if (fd < 0) return;
    m_duplicate = fd;
    const size_t length = size_t(token.dataSize) + token.dataOffset;
    m_view = ZqSharedMemoryMap(fd, length, (access & ZQ_TOKEN_WRITE) != 0);
    // A failed view keeps the duplicate: Dispose of a failed object touches
    // only the data pointer.
    if (m_view == nullptr) return;
    m_data = static_cast<BYTE*>(m_view) + token.dataOffset;
    m_mapped = 1;
    m_failed = 0;
  } else if (token.type == ZQ_TOKEN_MEMORY) {
    BYTE* copy = static_cast<BYTE*>(std::calloc(token.dataSize ? token.dataSize : 1, 1));
    if (copy == nullptr) return;
    if (access & ZQ_TOKEN_READ) {
      const uint64_t from = static_cast<uint64_t>(token.base) + token.dataOffset;
      if (ZqReadProcessMemory(token.ownerProcessId, from, copy, token.dataSize) != token.dataSize) {
        std::free(copy);
        return;
      }
    }
    m_data = copy;
    m_copied = 1;
    m_failed = 0;
    m_writeBack = (access & ZQ_TOKEN_WRITE) ? 1 : 0;
  }
}

CMappingOfZqMemoryToken::~CMappingOfZqMemoryToken() { Dispose(); }

HRESULT CMappingOfZqMemoryToken::GetPointer(void** pointer) const {
  if (pointer == nullptr) return E_POINTER;
  *pointer = m_failed ? nullptr : m_data;
  return m_failed ? E_FAIL : S_OK;
}

LONG CMappingOfZqMemoryToken::DataSize() const { return m_failed ? -1 : LONG(m_token.dataSize); }

void* CMappingOfZqMemoryToken::Pointer() const { return m_failed ? nullptr : m_data; }

void CMappingOfZqMemoryToken::Dispose() {
  if (m_failed) {
    m_data = nullptr;
    return;
  }
  if (m_mapped) {
    ZqSharedMemoryUnmap(m_view, size_t(m_token.dataSize) + m_token.dataOffset);
    m_view = nullptr;
    ZqCloseDescriptor(static_cast<int>(m_duplicate));
    m_duplicate = -1;
    m_data = nullptr;
    m_mapped = 0;
  }
  if (m_copied && m_data != nullptr) {
    if (m_writeBack) {
      const uint64_t to = static_cast<uint64_t>(m_token.base) + m_token.dataOffset;
      (void)ZqWriteProcessMemory(m_token.ownerProcessId, to, m_data, m_token.dataSize);
    }
    std::free(m_data);
    m_data = nullptr;
  }
}

// --- Private tokens ------------------------------------------------------------

HRESULT ZqCreatePrivateMemoryToken(_zqmemorytoken* token, DWORD size, BOOL clear) {
  if (token == nullptr) return E_POINTER;
  std::memset(token, 0, sizeof *token);
  token->mapping = -1;
  token->dataSize = size;
  token->mappedSize = size;
  token->type = ZQ_TOKEN_MAPPING;
  token->ownerProcessId = GetCurrentProcessId();
  const int fd = ZqSharedMemoryCreate(size ? size : 1);
  if (fd < 0) return E_OUTOFMEMORY;
  void* view = ZqSharedMemoryMap(fd, size ? size : 1, TRUE);
  if (view == nullptr) {
    ZqCloseDescriptor(fd);
    return E_OUTOFMEMORY;
  }
  token->mapping = fd;
  token->base = static_cast<int64_t>(reinterpret_cast<intptr_t>(view));
  if (clear) std::memset(view, 0, size);
  return S_OK;
}

HRESULT ZqReleasePrivateMemoryToken(_zqmemorytoken* token) {
  if (token == nullptr) return E_POINTER;
  HRESULT hr = E_INVALIDARG;
  if (token->type == ZQ_TOKEN_MAPPING) {
    ZqSharedMemoryUnmap(Address(token->base), token->mappedSize ? token->mappedSize : 1);
    ZqCloseDescriptor(static_cast<int>(token->mapping));
    hr = S_OK;
  }
  std::memset(token, 0, sizeof *token);
  return hr;
}

// --- COutOfProcessMemoryToken --------------------------------------------------

namespace {

// Copies the data of `from` into `to` when both map with the same size.
bool CopyBetween(const _zqmemorytoken& from, const _zqmemorytoken& to) {
  CMappingOfZqMemoryToken source(from, ZQ_TOKEN_READ);
  CMappingOfZqMemoryToken destination(to, ZQ_TOKEN_WRITE);
  // A failed mapping's size is -1, so a failed source never matches.
  if (source.DataSize() != destination.DataSize() || source.DataSize() < 0 || source.Pointer() == nullptr ||
      destination.Pointer() == nullptr)
    return false;
  std::memcpy(destination.Pointer(), source.Pointer(), size_t(source.DataSize()));
  return true;
}

}  // namespace

COutOfProcessMemoryToken::COutOfProcessMemoryToken(const _zqmemorytoken& token, DWORD access, DWORD)
    : m_source(token), m_local{}, m_private(1), m_failed(1), m_access(NormaliseAccess(access)) {
  if (token.type == ZQ_TOKEN_MEMORY || token.type == ZQ_TOKEN_MAPPING) {
    m_private = 0;
    m_local = token;
    m_failed = 0;
    return;
  }
  if (FAILED(ZqCreatePrivateMemoryToken(&m_local, token.dataSize, FALSE))) return;
  if ((m_access & ZQ_TOKEN_READ) == 0) {
    m_failed = 0;
    return;
  }
  if (CopyBetween(m_source, m_local)) m_failed = 0;
  if (m_failed && m_private) (void)ZqReleasePrivateMemoryToken(&m_local);
}

COutOfProcessMemoryToken::~COutOfProcessMemoryToken() {
  if (!m_private || m_failed) return;
  if (m_access & ZQ_TOKEN_WRITE) {
    m_failed = 1;
    if (CopyBetween(m_local, m_source)) m_failed = 0;
  }
  (void)ZqReleasePrivateMemoryToken(&m_local);
}

HRESULT COutOfProcessMemoryToken::GetMemoryToken(_zqmemorytoken* token) const {
  if (token == nullptr) return E_POINTER;
  if (m_failed) return E_FAIL;
  *token = m_local;
  return S_OK;
}
