// Executable headers: portable executables as the original reads them, and
// ELF objects in the same terms.
#include "platform/exeinfo.h"

#include "base/status.h"
#include "platform/file.h"
#include "platform/linux/elfheader.h"

#include <cstring>
#include <vector>

namespace {

constexpr DWORD kChunk = 4096;
constexpr DWORD kHeaderOffsetField = 60;
constexpr DWORD kPeHeaderNeeded = 24;  // signature, machine, ..., characteristics

uint16_t Le16(const unsigned char* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }
uint32_t Le32(const unsigned char* p) {
  return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) | (static_cast<uint32_t>(p[2]) << 16) |
         (static_cast<uint32_t>(p[3]) << 24);
}

bool ReadChunk(HANDLE file, unsigned char* buffer, DWORD* got) {
  *got = 0;
  return ReadFile(file, buffer, kChunk, got, nullptr) != FALSE;
}

bool SeekTo(HANDLE file, uint32_t offset) {
  LONG high = 0;
  SetLastError(0);
  const DWORD low = SetFilePointer(file, static_cast<LONG>(offset), &high, FILE_BEGIN);
  return !(low == INVALID_SET_FILE_POINTER && GetLastError() != 0);
}

int Inspect(HANDLE file, unsigned* machine, WORD* characteristics) {
  std::vector<unsigned char> buffer(kChunk);
  DWORD got = 0;
  if (!SeekTo(file, 0) || !ReadChunk(file, buffer.data(), &got)) return ZQ_EXE_NONE;

  unsigned elfMachine = 0;
  uint16_t elfFlags = 0;
  if (zq_elf::ReadHeader(buffer.data(), got, &elfMachine, &elfFlags)) {
    if (machine) *machine = elfMachine;
    if (characteristics) *characteristics = elfFlags;
    return ZQ_EXE_ELF;
  }

  if (got < 64 || buffer[0] != 'M' || buffer[1] != 'Z') return ZQ_EXE_NONE;
  const uint32_t e = Le32(buffer.data() + kHeaderOffsetField);
  const unsigned char* header = nullptr;
  if (static_cast<uint64_t>(e) + kPeHeaderNeeded > got) {
    if (!SeekTo(file, e) || !ReadChunk(file, buffer.data(), &got) || got < kPeHeaderNeeded) return ZQ_EXE_NONE;
    header = buffer.data();
  } else {
    header = buffer.data() + e;
  }
  if (header[0] != 'P' || header[1] != 'E' || header[2] != 0 || header[3] != 0) return ZQ_EXE_NONE;
  if (machine) *machine = Le16(header + 4);
  if (characteristics) *characteristics = Le16(header + 22);
  return ZQ_EXE_PORTABLE;
}

}  // namespace

int ZqIsFileExecutable(HANDLE file, unsigned* machine, WORD* characteristics) {
  const int kind = Inspect(file, machine, characteristics);
  const DWORD error = GetLastError();
  SeekTo(file, 0);
  SetLastError(error);
  return kind;
}

HRESULT ZqGetFileExecutableInfo(LPCWSTR path, unsigned* machine, WORD* flags) {
  HANDLE file = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                            FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return ZqMakeStatus(0x80070000u | GetLastError());
  const int kind = ZqIsFileExecutable(file, machine, flags);
  CloseHandle(file);
  return kind != ZQ_EXE_NONE ? S_OK : ZQ_E_BAD_FILE;
}

bool ZqIsFileLoadableInProcess(LPCWSTR path) {
  HANDLE file = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                            FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  unsigned machine = 0;
  WORD characteristics = 0;
  const int kind = ZqIsFileExecutable(file, &machine, &characteristics);
  CloseHandle(file);
  constexpr WORD kHostClass = sizeof(void*) == 8 ? ZQ_IMAGE_LARGE_ADDRESS_AWARE : ZQ_IMAGE_32BIT_MACHINE;
  return kind == ZQ_EXE_ELF && machine == ZQ_HOST_MACHINE && ZQ_HOST_MACHINE != 0 &&
         (characteristics & ZQ_IMAGE_DLL) && (characteristics & kHostClass);
}
