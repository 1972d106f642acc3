// libFuzzer target: any bytes as a RIFF file, walked and edited in memory,
// and in the 64-bit form on a file.
//
// What must hold for every input: no fault and no read outside the input
// (ASan reports one), an end to every walk (libFuzzer's -timeout), only the
// answers a damaged file may give, and edits that are all or nothing: a
// refused delete leaves every byte as it was, an accepted one removes
// exactly what it reports and lowers the RIFF size by as much.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "kernel/containers/riff.h"
#include "kernel/memory.h"
#include "platform/file.h"
#include "platform/process.h"
#include "platform/text.h"

namespace {

void Check(bool ok) {
  if (!ok) abort();
}
bool Walked(HRESULT hr) { return hr == S_OK || hr == ZQ_E_NOT_FOUND || hr == ZQ_E_READ_FILE; }
bool Opened(HRESULT hr) { return Walked(hr) || hr == ZQ_E_RIFF_NO_RIFF; }

constexpr DWORD kIds[] = {ZqRiffId("fmt "), ZqRiffId("data"), ZqRiffId("LIST"), ZqRiffId("INFO")};

void Walk32(const uint8_t* data, size_t size) {
  std::vector<BYTE> block(data, data + size);
  block.resize(size + 64);
  tZQMRIFF r;
  Check(mriff_Init(&r, block.data(), static_cast<DWORD>(size), static_cast<DWORD>(block.size())) == S_OK);
  const DWORD id = kIds[size % 4];
  DWORD chunk = 0, left = 0, count = 0;
  Check(Opened(mriff_FindChunkHeaderInRIFF(&r, id, &chunk, &left)));
  Check(Opened(mriff_FindListChunkFromStart(&r, id, &chunk)));
  if (mriff_FindChunkHeaderInRIFF(&r, id, &chunk, &left) == S_OK) {
    tZQRIFFDATA d{chunk, nullptr};
    const HRESULT hr = mriff_ReadDataAlloc(&r, &d);
    Check(hr == S_OK || hr == ZQ_E_READ_FILE);
    ZqMemory_Free(d.data);
  }
  mriff_SeekDataStart(&r);
  DWORD whole = 0;
  mriff_RestoreLocation(&r, 0);
  if (mriff_ReadFileID(&r, &whole, nullptr) == S_OK) {
    left = whole;
    Check(Walked(mriff_GetNumListEntries(&r, &count, &left)));
    Check(Walked(mriff_SeekListEntry(&r, count / 2 + 1, &left)));
    Check(Walked(mriff_GetNumListEntries(&r, &count, nullptr)));
  }

  // Delete: all or nothing.
  const std::vector<BYTE> before(block.begin(), block.begin() + static_cast<long>(size));
  DWORD removed = 0;
  const HRESULT hr = mriff_DeleteChunk(&r, id, &removed, size & 1);
  if (FAILED(hr)) {
    Check(r.size == size && std::memcmp(block.data(), before.data(), size) == 0 && removed == 0);
  } else {
    Check(hr == S_OK && r.size + removed == size);
    DWORD oldRiff = 0, newRiff = 0;
    std::memcpy(&oldRiff, before.data() + 4, 4);
    std::memcpy(&newRiff, block.data() + 4, 4);
    Check(oldRiff - newRiff == removed);
  }
}

void Walk64(const uint8_t* data, size_t size) {
  // One file for the whole run, rewritten for each input and deleted when
  // the run ends.
  static const struct ScratchFile {
    HANDLE handle;
    ScratchFile() {
      WCHAR folder[MAX_PATH];
      GetTempPathW(MAX_PATH, folder);
      const std::u16string path = folder + ZqUtf8ToUtf16("zq_fuzz_riff64_" + std::to_string(GetCurrentProcessId()));
      handle = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                           FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    }
    ~ScratchFile() { CloseHandle(handle); }
  } scratch;
  const HANDLE h = scratch.handle;
  Check(h != INVALID_HANDLE_VALUE);
  DWORD n = 0;
  SetFilePointer(h, 0, nullptr, FILE_BEGIN);
  Check(SetEndOfFile(h) && WriteFile(h, data, static_cast<DWORD>(size), &n, nullptr));
  GUID id = ZQRIFF64_ID_LIST;
  id.Data1 = kIds[size % 4];
  ULARGE_INTEGER chunk{}, left{}, removed{};
  DWORD count = 0;
  Check(Opened(riff64_FindChunkHeaderInRIFF(h, id, &chunk, &left)));
  riff64_SeekDataStart(h);
  Check(Walked(riff64_GetNumListEntries(h, &count, nullptr)));
  const HRESULT hr = riff64_DeleteChunk(h, ZQRIFF64_ID_LIST, &removed, FALSE);
  Check(Opened(hr) || hr == ZQ_E_BAD_FILE || hr == ZQ_E_RENDER_SIZE);
  if (FAILED(hr)) Check(GetFileSize(h, nullptr) == size && removed.QuadPart == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 1 << 20) return 0;
  const LONG_PTR live = ZqMemory_GetLiveBlocks();
  Walk32(data, size);
  if (size >= 40 && data[0] == 'r') Walk64(data, size);  // the 64-bit form's files start so
  Check(ZqMemory_GetLiveBlocks() == live);
  return 0;
}
