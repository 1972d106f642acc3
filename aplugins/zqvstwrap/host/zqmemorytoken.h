// Memory tokens: a small record that names a block of memory in some
// process, so that the block can cross a process border as a value.
//
// The record is a wire format (40 bytes, little-endian).  Type 1 names a
// shared block: `mapping` is its descriptor in the owner's process.  Type 0
// names plain memory of the owner, read and written through the system's
// cross-process memory calls.  A token of this very process always maps to
// base plus offset, without a copy.
//
// The classes hold no locks: one object belongs to one call.  Two users of
// one block agree between themselves who writes.  The constructors do not
// report; a failed object says so through its accessors.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/status.h"
#include "base/types.h"

constexpr uint32_t ZQ_TOKEN_MEMORY = 0;   // plain memory of the owner
constexpr uint32_t ZQ_TOKEN_MAPPING = 1;  // a shared block
// Access words, those of a file view: a value with neither bit means both.
constexpr DWORD ZQ_TOKEN_WRITE = 2;
constexpr DWORD ZQ_TOKEN_READ = 4;

#pragma pack(push, 4)
struct _zqmemorytoken {
  int64_t mapping;      // descriptor of the block in the owner, sign-extended; -1 for none
  int64_t base;         // address of the block in the owner, sign-extended
  uint32_t dataSize;    // bytes the user may touch
  uint32_t mappedSize;  // bytes of the block; equal to dataSize for tokens made here
  uint32_t dataOffset;  // start of the data from base
  uint32_t reserved;    // 0
  uint32_t type;        // ZQ_TOKEN_MEMORY or ZQ_TOKEN_MAPPING
  uint32_t ownerProcessId;
};
#pragma pack(pop)
static_assert(sizeof(_zqmemorytoken) == 40, "the memory token is a wire record");
static_assert(offsetof(_zqmemorytoken, base) == 8);
static_assert(offsetof(_zqmemorytoken, dataSize) == 16);
static_assert(offsetof(_zqmemorytoken, mappedSize) == 20);
static_assert(offsetof(_zqmemorytoken, dataOffset) == 24);
static_assert(offsetof(_zqmemorytoken, reserved) == 28);
static_assert(offsetof(_zqmemorytoken, type) == 32);
static_assert(offsetof(_zqmemorytoken, ownerProcessId) == 36);

// The block of a token, readable and writable in this process for the life
// of the object (or until Dispose).
class ZQ_EXPORT CMappingOfZqMemoryToken {
 public:
  // `access`: ZQ_TOKEN_READ and/or ZQ_TOKEN_WRITE (neither: both).  A block
  // of another process is mapped (type 1) or copied in (type 0; with write
  // access it is written back by Dispose, and with write access alone it
  // starts zeroed and is not read).
  CMappingOfZqMemoryToken(const _zqmemorytoken& token, DWORD access);
  ~CMappingOfZqMemoryToken();
  CMappingOfZqMemoryToken& operator=(const CMappingOfZqMemoryToken& other) = default;

  // S_OK and the data pointer; E_FAIL and null when failed.
  HRESULT GetPointer(void** pointer) const;
  // The data size; -1 when failed.
  LONG DataSize() const;
  // The data pointer; null when failed.
  void* Pointer() const;
  // Releases the view or the copy (writing a copy back first where asked).
  // The object may be destroyed or disposed again afterwards.
  void Dispose();
  void Close() { Dispose(); }

 private:
  _zqmemorytoken m_token;
  BYTE* m_data;
  void* m_view;
  int64_t m_duplicate;  // this process's descriptor of the block, -1 when none
  BYTE m_mapped;
  BYTE m_copied;
  BYTE m_failed;
  BYTE m_writeBack;
};

// A token a callee can use: the caller's own when it is a block or memory
// the callee can reach, otherwise a private block with the data copied in,
// and back out by the destructor when the access has the write bit.
class ZQ_EXPORT COutOfProcessMemoryToken {
 public:
  COutOfProcessMemoryToken(const _zqmemorytoken& token, DWORD access, DWORD ignored);
  ~COutOfProcessMemoryToken();
  COutOfProcessMemoryToken& operator=(const COutOfProcessMemoryToken& other) = default;

  // S_OK and the token to use; E_FAIL when failed.
  HRESULT GetMemoryToken(_zqmemorytoken* token) const;

 private:
  _zqmemorytoken m_source;
  _zqmemorytoken m_local;
  BYTE m_private;
  BYTE m_failed;
  DWORD m_access;
};

// A private token: a new shared block of `size` bytes owned by this process,
// mapped here (zeroed first when `clear`).  E_OUTOFMEMORY when the block or
// its view cannot be made (mapping -1 then).
ZQ_EXPORT HRESULT ZqCreatePrivateMemoryToken(_zqmemorytoken* token, DWORD size, BOOL clear);
// Unmaps and closes a private token.  E_INVALIDARG for a token that is no
// block.  The record is zeroed in both cases.
ZQ_EXPORT HRESULT ZqReleasePrivateMemoryToken(_zqmemorytoken* token);
