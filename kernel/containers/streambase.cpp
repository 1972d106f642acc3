#include "kernel/containers/streambase.h"

#include "platform/file.h"

namespace {

struct ErrorStatus {
  DWORD error;
  uint32_t status;
};

// The numbers that the kernel's error table does not fold into E_FAIL.
constexpr ErrorStatus kErrorStatuses[] = {
    {0, 0x00000000},   {1, 0x80070057},   {2, 0x8004E00A},   {3, 0x8004E00A},   {4, 0x8004E026},
    {5, 0x80070005},   {6, 0x80070006},   {14, 0x8007000E},  {15, 0x800404B0},  {32, 0x8004E05A},
    {39, 0x8004E002},  {80, 0x8004E032},  {84, 0x8007000E},  {110, 0x8004E007}, {112, 0x8004E002},
    {120, 0x80004001}, {123, 0x8004E00D}, {126, 0x8004E00A}, {127, 0x8004E00A}, {170, 0x8004E005},
    {183, 0x8004E170},
};

}  // namespace

HRESULT ZqStreamStatusFromPlatformError(DWORD error) {
  for (const ErrorStatus& row : kErrorStatuses) {
    if (row.error == error) return ZqMakeStatus(row.status);
  }
  return E_FAIL;
}

HRESULT ZqStreamSeekTarget(LONGLONG offset, DWORD origin, ULONGLONG position, ULONGLONG end, ULONGLONG* target) {
  ULONGLONG base = 0;
  switch (origin) {
    case STREAM_SEEK_SET:
      break;
    case STREAM_SEEK_CUR:
      base = position;
      break;
    case STREAM_SEEK_END:
      if (offset > 0) return STG_E_INVALIDFUNCTION;
      base = end;
      break;
    default:
      return STG_E_INVALIDFUNCTION;
  }
  if (ZqStreamBeforeZero(base, offset) || ZqStreamWrapsRound(base, offset)) return STG_E_INVALIDFUNCTION;
  *target = base + static_cast<ULONGLONG>(offset);
  return S_OK;
}

BOOL ZqStreamReadFile(HANDLE file, void* buffer, DWORD size, DWORD* read) {
  return ReadFile(file, buffer, size, read, nullptr);
}
