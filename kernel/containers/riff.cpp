#include "kernel/containers/riff.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>

#include "kernel/memory.h"
#include "platform/file.h"
#include "platform/text.h"

static_assert(std::endian::native == std::endian::little, "chunk headers are read in place");

namespace {

constexpr ULONGLONG kMaxPosition = static_cast<ULONGLONG>(std::numeric_limits<LONGLONG>::max());

// --- Where the bytes are ----------------------------------------------------------
// Both forms answer true on success; a short read is not a failure here.

struct FileIo {
  HANDLE file;

  bool Read(void* buffer, DWORD size, DWORD* got) {
    *got = 0;
    return ReadFile(file, buffer, size, got, nullptr) != FALSE;
  }
  bool Write(const void* buffer, DWORD size) {
    DWORD written = 0;
    return WriteFile(file, buffer, size, &written, nullptr) != FALSE && written == size;
  }
  bool SeekTo(ULONGLONG position) {
    if (position > kMaxPosition) return false;
    LARGE_INTEGER to;
    to.QuadPart = static_cast<LONGLONG>(position);
    return SetFilePointerEx(file, to, nullptr, FILE_BEGIN) != FALSE;
  }
  bool Tell(ULONGLONG* position) {
    LARGE_INTEGER zero, now;
    zero.QuadPart = 0;
    if (!SetFilePointerEx(file, zero, &now, FILE_CURRENT)) return false;
    *position = static_cast<ULONGLONG>(now.QuadPart);
    return true;
  }
  bool Length(ULONGLONG* length) {
    LARGE_INTEGER size;
    if (!GetFileSizeEx(file, &size)) return false;
    *length = static_cast<ULONGLONG>(size.QuadPart);
    return true;
  }
  bool Truncate() { return SetEndOfFile(file) != FALSE; }
};

struct MemIo {
  tZQMRIFF* r;

  ULONGLONG Position() const { return static_cast<ULONGLONG>(r->cursor - r->base); }
  bool Read(void* buffer, DWORD size, DWORD* got) {
    *got = 0;
    if (r->cursor < r->endOfData) {
      *got = static_cast<DWORD>(std::min<ULONGLONG>(size, static_cast<ULONGLONG>(r->endOfData - r->cursor)));
      std::memcpy(buffer, r->cursor, *got);
      r->cursor += *got;
    }
    return true;
  }
  bool Write(const void* buffer, DWORD size, DWORD* written) {
    const DWORD n = static_cast<DWORD>(std::min<ULONGLONG>(size, static_cast<ULONGLONG>(r->endOfRoom - r->cursor)));
    if (r->cursor > r->endOfData) std::memset(r->endOfData, 0, static_cast<size_t>(r->cursor - r->endOfData));
    if (n != 0) std::memmove(r->cursor, buffer, n);
    r->cursor += n;
    if (r->cursor > r->endOfData) SetEnd(r->cursor);
    if (written) *written = n;
    return n == size;
  }
  bool Write(const void* buffer, DWORD size) { return Write(buffer, size, nullptr); }
  bool SeekTo(ULONGLONG position) {
    if (position > r->room) return false;
    r->cursor = r->base + position;
    return true;
  }
  bool Tell(ULONGLONG* position) {
    *position = Position();
    return true;
  }
  bool Length(ULONGLONG* length) {
    *length = r->size;
    return true;
  }
  bool Truncate() {
    if (r->cursor > r->endOfData) std::memset(r->endOfData, 0, static_cast<size_t>(r->cursor - r->endOfData));
    SetEnd(r->cursor);
    return true;
  }
  void SetEnd(BYTE* end) {
    r->endOfData = end;
    r->size = static_cast<DWORD>(end - r->base);
  }
};

// --- The two forms ----------------------------------------------------------------

struct Form32 {
  using Id = DWORD;
  using Size = DWORD;
  static constexpr DWORD kHeader = 8;
  static constexpr DWORD kType = 4;  // form and list types
  static constexpr ULONGLONG kAlign = 2;
  static constexpr ULONGLONG kSizeField = 4;
  static constexpr ULONGLONG kDataStart = 12;
  static constexpr Id kRiff = ZQRIFF_ID_RIFF;
  static constexpr Id kList = ZQRIFF_ID_LIST;

  static void Encode(BYTE* out, const Id& id, Size size) {
    std::memcpy(out, &id, 4);
    std::memcpy(out + 4, &size, 4);
  }
  static Size Decode(const BYTE* in, Id* id) {
    Size size;
    std::memcpy(id, in, 4);
    std::memcpy(&size, in + 4, 4);
    return size;
  }
  // The file offset where a form of this raw size field ends.
  static ULONGLONG FormEnd(ULONGLONG raw) { return raw + kHeader; }
  // Whether a raw size field, changed by a delta, may be written back.
  static bool SizeFits(LONGLONG next) {
    if (next >= 0 && static_cast<ULONGLONG>(next) > 0xFFFFFFFFull) return false;
    return (static_cast<ULONGLONG>(next) & 0xFFFFFFFFull) < 0xFFFFFFF8ull;
  }
};

struct Form64 {
  using Id = GUID;
  using Size = ULONGLONG;
  static constexpr DWORD kHeader = 24;
  static constexpr DWORD kType = 16;
  static constexpr ULONGLONG kAlign = 8;
  static constexpr ULONGLONG kSizeField = 16;
  static constexpr ULONGLONG kDataStart = 40;
  static constexpr Id kRiff = ZQRIFF64_ID_RIFF;
  static constexpr Id kList = ZQRIFF64_ID_LIST;

  static void Encode(BYTE* out, const Id& id, Size size) {
    const ULONGLONG raw = size + kHeader;
    std::memcpy(out, &id, 16);
    std::memcpy(out + 16, &raw, 8);
  }
  static Size Decode(const BYTE* in, Id* id) {
    ULONGLONG raw;
    std::memcpy(id, in, 16);
    std::memcpy(&raw, in + 16, 8);
    return raw < kHeader ? 0 : raw - kHeader;
  }
  static ULONGLONG FormEnd(ULONGLONG raw) { return raw; }
  static bool SizeFits(LONGLONG next) { return next >= 0; }
};

// The algorithms, once for every family.
template <class Io, class F>
struct Riff {
  using Id = typename F::Id;
  using Size = typename F::Size;
  static constexpr DWORD H = F::kHeader;
  static constexpr DWORD T = F::kType;

  static ULONGLONG Padded(ULONGLONG size) { return size + (F::kAlign - size % F::kAlign) % F::kAlign; }
  static ULONGLONG PadOf(ULONGLONG size) { return Padded(size) - size; }
  static Size FloorSub(ULONGLONG a, ULONGLONG b) { return static_cast<Size>(a > b ? a - b : 0); }

  // Reads exactly `size` bytes (in steps a DWORD can count).
  static HRESULT ReadExact(Io& io, void* buffer, ULONGLONG size) {
    BYTE* to = static_cast<BYTE*>(buffer);
    while (size != 0) {
      const DWORD step = static_cast<DWORD>(std::min<ULONGLONG>(size, 0x40000000u));
      DWORD got = 0;
      if (!io.Read(to, step, &got) || got != step) return ZQ_E_READ_FILE;
      to += step;
      size -= step;
    }
    return S_OK;
  }
  static HRESULT WriteAll(Io& io, const void* buffer, ULONGLONG size) {
    const BYTE* from = static_cast<const BYTE*>(buffer);
    while (size != 0) {
      const DWORD step = static_cast<DWORD>(std::min<ULONGLONG>(size, 0x40000000u));
      if (!io.Write(from, step)) return ZQ_E_WRITE_FILE;
      from += step;
      size -= step;
    }
    return S_OK;
  }
  static HRESULT WriteZeros(Io& io, ULONGLONG count) {
    static constexpr BYTE kZeros[8] = {};
    return count == 0 ? S_OK : WriteAll(io, kZeros, count);
  }
  // Forward only: a skip that cannot be represented is a failed read.
  static bool Skip(Io& io, ULONGLONG count) {
    ULONGLONG now = 0;
    if (!io.Tell(&now)) return false;
    if (count > kMaxPosition - std::min(now, kMaxPosition)) return false;
    return io.SeekTo(now + count);
  }
  static ULONGLONG Tell(Io& io) {
    ULONGLONG now = 0;
    io.Tell(&now);
    return now;
  }

  static HRESULT ReadChunkHeader(Io& io, Id* id, Size* size) {
    BYTE header[H];
    if (HRESULT hr = ReadExact(io, header, H); FAILED(hr)) return hr;
    Id readId;
    const Size readSize = F::Decode(header, &readId);
    if (id) *id = readId;
    if (size) *size = readSize;
    return S_OK;
  }

  // A header with a type after it: the file's form or a list's.
  static HRESULT ReadTypedHeader(Io& io, const Id& expected, HRESULT wrongId, Size* size, Id* type) {
    Id id;
    Size raw = 0;
    if (HRESULT hr = ReadChunkHeader(io, &id, &raw); FAILED(hr)) return hr;
    if (!(id == expected)) return wrongId;
    if (size) *size = static_cast<Size>(raw - T);
    Id readType;
    if (HRESULT hr = ReadExact(io, &readType, T); FAILED(hr)) return hr;
    if (type) *type = readType;
    return S_OK;
  }
  static HRESULT ReadListHeader(Io& io, Id* type, Size* size) {
    return ReadTypedHeader(io, F::kList, ZQ_E_RIFF_NO_LIST, size, type);
  }
  static HRESULT ReadFileID(Io& io, Size* size, Id* form) {
    if (size) *size = 0;
    return ReadTypedHeader(io, F::kRiff, ZQ_E_RIFF_NO_RIFF, size, form);
  }

  static HRESULT ReadData(Io& io, void* buffer, ULONGLONG size) {
    if (HRESULT hr = ReadExact(io, buffer, size); FAILED(hr)) return hr;
    return Skip(io, PadOf(size)) ? S_OK : ZQ_E_READ_FILE;
  }

  template <class Record>
  static HRESULT ReadDataAlloc(Io& io, Record* record) {
    if (record == nullptr) return E_INVALIDARG;
    record->data = nullptr;
    if (record->size == 0) return S_OK;
    // A size beyond the data cannot be read: refuse it before allocating.
    ULONGLONG now = 0, length = 0;
    if (!io.Tell(&now) || !io.Length(&length) || now > length || record->size > length - now) return ZQ_E_READ_FILE;
    void* block = ZqMemory_AllocZ(static_cast<size_t>(record->size));
    if (block == nullptr) return E_OUTOFMEMORY;
    HRESULT hr = ReadData(io, block, record->size);
    if (FAILED(hr)) {
      ZqMemory_Free(block);
      return hr;
    }
    record->data = block;
    return S_OK;
  }

  static HRESULT ReadDataBounded(Io& io, void* buffer, ULONGLONG chunk, ULONGLONG room) {
    const ULONGLONG n = std::min(chunk, room);
    if (HRESULT hr = ReadExact(io, buffer, n); FAILED(hr)) return hr;
    // The pad follows the room, not the chunk (see the header).
    return Skip(io, chunk - n + PadOf(room)) ? S_OK : ZQ_E_READ_FILE;
  }

  static HRESULT WriteChunkHeader(Io& io, const Id& id, Size size) {
    BYTE header[H];
    F::Encode(header, id, size);
    return WriteAll(io, header, H);
  }
  static HRESULT WriteChunk(Io& io, const Id& id, const void* data, Size size, Size* total) {
    if (HRESULT hr = WriteChunkHeader(io, id, size); FAILED(hr)) return hr;
    if (size != 0 && data == nullptr) return E_INVALIDARG;
    if (HRESULT hr = WriteAll(io, data, size); FAILED(hr)) return hr;
    if (HRESULT hr = WriteZeros(io, PadOf(size)); FAILED(hr)) return hr;
    if (total) *total = static_cast<Size>(Padded(size) + H);
    return S_OK;
  }
  static HRESULT WriteListHeader(Io& io, const Id& type, Size size) {
    if (HRESULT hr = WriteChunkHeader(io, F::kList, size); FAILED(hr)) return hr;
    return WriteAll(io, &type, T);
  }
  // Only the type's write decides the answer; a failed id skips the size.
  static HRESULT WriteFileID(Io& io, const Id& form, Size size) {
    BYTE header[H];
    F::Encode(header, F::kRiff, size);
    if (io.Write(header, H - sizeof(Size))) io.Write(header + H - sizeof(Size), sizeof(Size));
    return io.Write(&form, T) ? S_OK : ZQ_E_WRITE_FILE;
  }
  static HRESULT Pad(Io& io, ULONGLONG base) {
    const ULONGLONG now = Tell(io);
    return WriteZeros(io, PadOf(now - base));
  }
  static HRESULT SeekTo(Io& io, ULONGLONG position) { return io.SeekTo(position) ? S_OK : ZQ_E_READ_FILE; }
  static ULONGLONG SkipChunk(Io& io, ULONGLONG size) {
    Skip(io, Padded(size));
    return Padded(size);
  }

  // The raw size field of the form, as it lies at its offset.
  static HRESULT ReadRawSize(Io& io, Size* raw) {
    if (!io.SeekTo(F::kSizeField)) return ZQ_E_READ_FILE;
    return ReadExact(io, raw, sizeof(Size));
  }
  static HRESULT SetRIFFSize(Io& io, Size size) {
    const ULONGLONG back = Tell(io);
    HRESULT hr = io.SeekTo(F::kSizeField) && io.Write(&size, sizeof(Size)) ? S_OK : ZQ_E_WRITE_FILE;
    io.SeekTo(back);
    return hr;
  }
  static HRESULT GetFileSize(Io& io, Size* size) {
    Size formSize = 0;
    HRESULT hr = io.SeekTo(0) ? ReadFileID(io, &formSize, nullptr) : ZQ_E_READ_FILE;
    if (size) *size = static_cast<Size>(formSize + H);
    return hr;
  }
  static HRESULT UpdateRIFFSize(Io& io, LONGLONG delta) {
    const ULONGLONG back = Tell(io);
    Size old = 0;
    if (HRESULT hr = ReadRawSize(io, &old); FAILED(hr)) {
      io.SeekTo(back);
      return hr;
    }
    const LONGLONG next = static_cast<LONGLONG>(static_cast<ULONGLONG>(old) + static_cast<ULONGLONG>(delta));
    if (!F::SizeFits(next)) {
      // The form has grown past what its size field can tell: keep it as it
      // was written and drop what followed.
      if (io.SeekTo(F::FormEnd(old))) io.Truncate();
      io.SeekTo(back);
      return ZQ_E_RENDER_SIZE;
    }
    const Size value = static_cast<Size>(next);
    HRESULT hr = io.SeekTo(F::kSizeField) && io.Write(&value, sizeof(Size)) ? S_OK : ZQ_E_WRITE_FILE;
    io.SeekTo(back);
    return hr;
  }

  static HRESULT FindChunkHeader(Io& io, const Id& id, Size* size, Size* remaining) {
    Size left = remaining ? *remaining : 0;
    for (;;) {
      if (remaining && left < H) {
        *remaining = left;
        return ZQ_E_NOT_FOUND;
      }
      Id found;
      Size foundSize = 0;
      if (HRESULT hr = ReadChunkHeader(io, &found, &foundSize); FAILED(hr)) return hr;
      if (found == id) {
        if (size) *size = foundSize;
        if (remaining) *remaining = static_cast<Size>(left - H);
        return S_OK;
      }
      if (!Skip(io, Padded(foundSize))) return ZQ_E_READ_FILE;
      left = FloorSub(static_cast<ULONGLONG>(left) - H, Padded(foundSize));
    }
  }
  static HRESULT FindChunkHeaderInRIFF(Io& io, const Id& id, Size* size, Size* remaining) {
    Size left = 0;
    HRESULT hr = io.SeekTo(0) ? ReadFileID(io, &left, nullptr) : ZQ_E_READ_FILE;
    if (SUCCEEDED(hr)) hr = FindChunkHeader(io, id, size, &left);
    if (remaining) *remaining = left;
    return hr;
  }
  static HRESULT FindListChunk(Io& io, const Id& type, Size* size, Size* remaining) {
    for (;;) {
      Size listSize = 0;
      if (HRESULT hr = FindChunkHeader(io, F::kList, &listSize, remaining); FAILED(hr)) return hr;
      if (remaining && *remaining < T) return ZQ_E_NOT_FOUND;
      Id found;
      if (HRESULT hr = ReadExact(io, &found, T); FAILED(hr)) return hr;
      if (remaining) *remaining -= T;
      if (found == type) {
        if (size) *size = FloorSub(listSize, T);
        return S_OK;
      }
      // A list too small for its own type is stepped over as if empty.
      const ULONGLONG skip = Padded(listSize) > T ? Padded(listSize) - T : 0;
      if (!Skip(io, skip)) return ZQ_E_READ_FILE;
      if (remaining) *remaining = FloorSub(*remaining, skip);
    }
  }
  static HRESULT FindListChunkFromStart(Io& io, const Id& type, Size* size) {
    Size left = 0;
    if (!io.SeekTo(0)) return ZQ_E_READ_FILE;
    if (HRESULT hr = ReadFileID(io, &left, nullptr); FAILED(hr)) return hr;
    return FindListChunk(io, type, size, &left);
  }

  // One step of a list walk: a header and its padded data.  `left` loses
  // both and may wrap, as the walk's contract says.
  static HRESULT StepOver(Io& io, Size* left) {
    Size chunk = 0;
    if (HRESULT hr = ReadChunkHeader(io, nullptr, &chunk); FAILED(hr)) return hr;
    if (!Skip(io, Padded(chunk))) return ZQ_E_READ_FILE;
    *left = static_cast<Size>(static_cast<ULONGLONG>(*left) - H - Padded(chunk));
    return S_OK;
  }
  static HRESULT GetNumListEntries(Io& io, DWORD* count, Size* remaining) {
    if (count == nullptr) return E_INVALIDARG;
    *count = 0;
    const ULONGLONG back = Tell(io);
    Size left = remaining ? *remaining : 0;
    HRESULT hr = S_OK;
    while (!remaining || left >= H) {
      if (hr = StepOver(io, &left); FAILED(hr)) break;
      ++*count;
    }
    io.SeekTo(back);
    return hr;
  }
  static HRESULT SeekListEntry(Io& io, DWORD index, Size* remaining) {
    Size ignored = 0;
    Size* left = remaining ? remaining : &ignored;
    for (DWORD i = 0; i < index; ++i) {
      if (remaining && *remaining < H) return ZQ_E_NOT_FOUND;
      if (HRESULT hr = StepOver(io, left); FAILED(hr)) return hr;
    }
    return S_OK;
  }

  static HRESULT DeleteChunk(Io& io, const Id& id, Size* removed, BOOL list) {
    if (removed) *removed = 0;
    Size left = 0;
    if (!io.SeekTo(0)) return ZQ_E_READ_FILE;
    if (HRESULT hr = ReadFileID(io, &left, nullptr); FAILED(hr)) return hr;
    Size found = 0;
    HRESULT hr = list ? FindListChunk(io, id, &found, &left) : FindChunkHeader(io, id, &found, &left);
    if (FAILED(hr)) return hr;
    const ULONGLONG head = list ? H + T : H;
    const ULONGLONG bytes = static_cast<ULONGLONG>(found) + PadOf(found) + head;
    const ULONGLONG chunkStart = Tell(io) - head;

    // Every check comes before the first write, so that a chunk whose size
    // lies leaves the file as it was.
    ULONGLONG length = 0;
    Size raw = 0;
    if (!io.Length(&length) || chunkStart + bytes > length) return ZQ_E_READ_FILE;
    if (HRESULT rawHr = ReadRawSize(io, &raw); FAILED(rawHr)) return rawHr;
    if (chunkStart + bytes > F::FormEnd(raw) ||
        !F::SizeFits(static_cast<LONGLONG>(static_cast<ULONGLONG>(raw) - bytes)))
      return ZQ_E_BAD_FILE;

    BYTE buffer[4096];
    ULONGLONG readAt = chunkStart + bytes;
    ULONGLONG writeAt = chunkStart;
    for (;;) {
      DWORD got = 0;
      if (!io.SeekTo(readAt) || !io.Read(buffer, sizeof buffer, &got)) return ZQ_E_READ_FILE;
      readAt += got;
      if (!io.SeekTo(writeAt) || !io.Write(buffer, got)) return ZQ_E_WRITE_FILE;
      writeAt += got;
      if (got < sizeof buffer) break;
    }
    if (!io.SeekTo(writeAt) || !io.Truncate()) return ZQ_E_WRITE_FILE;
    hr = UpdateRIFFSize(io, -static_cast<LONGLONG>(bytes));
    if (removed) *removed = static_cast<Size>(bytes);
    return hr;
  }

  static HRESULT WriteANSIString(Io& io, LPCWSTR text, Size* size) {
    if (text == nullptr) return E_INVALIDARG;
    const int chars = lstrlenW(text);
    const int bytes = chars == 0 ? 0 : WideCharToMultiByte(CP_ACP, 0, text, chars, nullptr, 0, nullptr, nullptr);
    const ULONGLONG total = static_cast<ULONGLONG>(bytes) + 1;
    char* block = static_cast<char*>(ZqMemory_AllocZ(total));
    if (block == nullptr) return E_OUTOFMEMORY;
    if (bytes != 0) WideCharToMultiByte(CP_ACP, 0, text, chars, block, bytes, nullptr, nullptr);
    HRESULT hr = WriteAll(io, block, total);
    ZqMemory_Free(block);
    if (SUCCEEDED(hr)) hr = WriteZeros(io, PadOf(total));
    if (SUCCEEDED(hr) && size) *size = static_cast<Size>(Padded(total));
    return hr;
  }

  static HRESULT ReadANSIString(Io& io, LPWSTR buffer, DWORD length, Size* size) {
    if (buffer == nullptr || size == nullptr) return E_INVALIDARG;
    const ULONGLONG start = Tell(io);
    const ULONGLONG stored = *size;
    const DWORD n = static_cast<DWORD>(std::min<ULONGLONG>(stored, length));
    HRESULT hr = S_OK;
    if (n == 0) {
      if (length != 0) buffer[0] = 0;
    } else {
      char* bytes = static_cast<char*>(ZqMemory_Alloc(n));
      if (bytes == nullptr) return E_OUTOFMEMORY;
      hr = ReadExact(io, bytes, n);
      if (SUCCEEDED(hr)) {
        bytes[n - 1] = 0;
        // UTF-8 never takes more UTF-16 units than bytes, so this fits.  The
        // 8-bit page is UTF-8 here, which takes no composition flags: its
        // conversion gives precomposed characters as they were written.
        const int got = MultiByteToWideChar(CP_ACP, 0, bytes, static_cast<int>(n), buffer, static_cast<int>(length));
        if (got == 0) buffer[0] = 0;
        buffer[length - 1] = 0;
      }
      ZqMemory_Free(bytes);
    }
    if (SUCCEEDED(hr) && !io.SeekTo(start + Padded(stored))) hr = ZQ_E_READ_FILE;
    *size = static_cast<Size>(stored + 1);
    return hr;
  }

  static HRESULT ReadRIFFCDDA(Io& io, tZQRIFFCDDA* record) {
    if (record == nullptr) return E_INVALIDARG;
    Size left = 0;
    Id form{};
    if (HRESULT hr = ReadFileID(io, &left, &form); FAILED(hr)) return hr;
    if (!(form == ZQRIFF_ID_CDDA)) return ZQ_E_BAD_FILE;
    Size size = 0;
    if (HRESULT hr = FindChunkHeader(io, ZQRIFF_ID_FMT, &size, &left); FAILED(hr)) return hr;
    if (size != sizeof(tZQRIFFCDDA)) return ZQ_E_VERSION;
    return ReadExact(io, record, sizeof(tZQRIFFCDDA));
  }
};

using R32 = Riff<FileIo, Form32>;
using R64 = Riff<FileIo, Form64>;
using RM = Riff<MemIo, Form32>;

ULONGLONG Join(DWORD low, DWORD high) { return static_cast<ULONGLONG>(high) << 32 | low; }
LONGLONG JoinSigned(DWORD low, LONG high) { return static_cast<LONGLONG>(Join(low, static_cast<DWORD>(high))); }
ULONGLONG* Wide(ULARGE_INTEGER* value) { return value ? &value->QuadPart : nullptr; }

HRESULT ValidateChunkHeader(DWORD size) {
  if (size & 0x80000000u) return ZQ_E_RIFF_BAD_SIZE;
  return size == 0 ? ZQ_E_RIFF_ZERO_SIZE : S_OK;
}

}  // namespace

// --- riff_ --------------------------------------------------------------------------

HRESULT riff_ValidateChunkHeader(DWORD, DWORD size) { return ValidateChunkHeader(size); }
HRESULT riff_ReadChunkHeader(HANDLE file, DWORD* id, DWORD* size) {
  FileIo io{file};
  return R32::ReadChunkHeader(io, id, size);
}
HRESULT riff_ReadListHeader(HANDLE file, DWORD* type, DWORD* size) {
  FileIo io{file};
  return R32::ReadListHeader(io, type, size);
}
HRESULT riff_ReadFileID(HANDLE file, DWORD* size, DWORD* form) {
  FileIo io{file};
  return R32::ReadFileID(io, size, form);
}
HRESULT riff_ReadData(HANDLE file, void* buffer, DWORD size) {
  FileIo io{file};
  return R32::ReadData(io, buffer, size);
}
HRESULT riff_ReadDataAlloc(HANDLE file, tZQRIFFDATA* record) {
  FileIo io{file};
  return R32::ReadDataAlloc(io, record);
}
HRESULT riff_ReadDataBounded(HANDLE file, void* buffer, DWORD chunkSize, DWORD room) {
  FileIo io{file};
  return R32::ReadDataBounded(io, buffer, chunkSize, room);
}
HRESULT riff_WriteChunkHeader(HANDLE file, DWORD id, DWORD size) {
  FileIo io{file};
  return R32::WriteChunkHeader(io, id, size);
}
HRESULT riff_WriteChunk(HANDLE file, DWORD id, const void* data, DWORD size, DWORD* total) {
  FileIo io{file};
  return R32::WriteChunk(io, id, data, size, total);
}
HRESULT riff_WriteListHeader(HANDLE file, DWORD type, DWORD size) {
  FileIo io{file};
  return R32::WriteListHeader(io, type, size);
}
HRESULT riff_WriteFileID(HANDLE file, DWORD form, DWORD size) {
  FileIo io{file};
  return R32::WriteFileID(io, form, size);
}
HRESULT riff_SeekDataStart(HANDLE file) {
  FileIo io{file};
  return R32::SeekTo(io, Form32::kDataStart);
}
HRESULT riff_SaveLocation(HANDLE file, DWORD* position) {
  FileIo io{file};
  if (position == nullptr) return E_INVALIDARG;
  *position = static_cast<DWORD>(R32::Tell(io));
  return S_OK;
}
HRESULT riff_RestoreLocation(HANDLE file, DWORD position) {
  FileIo io{file};
  return R32::SeekTo(io, position);
}
DWORD riff_SkipChunk(HANDLE file, DWORD size) {
  FileIo io{file};
  return static_cast<DWORD>(R32::SkipChunk(io, size));
}
HRESULT riff_SetRIFFSize(HANDLE file, DWORD size) {
  FileIo io{file};
  return R32::SetRIFFSize(io, size);
}
HRESULT riff_GetFileSize(HANDLE file, DWORD* size) {
  FileIo io{file};
  return R32::GetFileSize(io, size);
}
HRESULT riff_UpdateRIFFSize(HANDLE file, DWORD deltaLow, LONG deltaHigh) {
  FileIo io{file};
  return R32::UpdateRIFFSize(io, JoinSigned(deltaLow, deltaHigh));
}
HRESULT riff_FindChunkHeader(HANDLE file, DWORD id, DWORD* size, DWORD* remaining) {
  FileIo io{file};
  return R32::FindChunkHeader(io, id, size, remaining);
}
HRESULT riff_FindChunkHeaderInRIFF(HANDLE file, DWORD id, DWORD* size, DWORD* remaining) {
  FileIo io{file};
  return R32::FindChunkHeaderInRIFF(io, id, size, remaining);
}
HRESULT riff_FindListChunk(HANDLE file, DWORD type, DWORD* size, DWORD* remaining) {
  FileIo io{file};
  return R32::FindListChunk(io, type, size, remaining);
}
HRESULT riff_FindListChunkFromStart(HANDLE file, DWORD type, DWORD* size) {
  FileIo io{file};
  return R32::FindListChunkFromStart(io, type, size);
}
HRESULT riff_GetNumListEntries(HANDLE file, DWORD* count, DWORD* remaining) {
  FileIo io{file};
  return R32::GetNumListEntries(io, count, remaining);
}
HRESULT riff_SeekListEntry(HANDLE file, DWORD index, DWORD* remaining) {
  FileIo io{file};
  return R32::SeekListEntry(io, index, remaining);
}
HRESULT riff_DeleteChunk(HANDLE file, DWORD id, DWORD* removed, BOOL list) {
  FileIo io{file};
  return R32::DeleteChunk(io, id, removed, list);
}
HRESULT riff_WriteANSIString(HANDLE file, LPCWSTR text, DWORD* size) {
  FileIo io{file};
  return R32::WriteANSIString(io, text, size);
}
HRESULT riff_ReadANSIString(HANDLE file, LPWSTR buffer, DWORD length, DWORD* size) {
  FileIo io{file};
  return R32::ReadANSIString(io, buffer, length, size);
}
HRESULT riff_ReadRIFFCDDA(HANDLE file, tZQRIFFCDDA* record) {
  FileIo io{file};
  return R32::ReadRIFFCDDA(io, record);
}

HRESULT riff_ReadCDAFile(LPCWSTR path, DWORD* track, DWORD* startSector, DWORD* startFrames, DWORD* lengthSectors,
                         DWORD* serial) {
  tZQRIFFCDDA record{};
  HRESULT hr = ZQ_E_OPEN_FILE;
  HANDLE file = path ? CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                   FILE_FLAG_SEQUENTIAL_SCAN, nullptr)
                     : INVALID_HANDLE_VALUE;
  if (file != INVALID_HANDLE_VALUE) {
    hr = riff_ReadRIFFCDDA(file, &record);
    CloseHandle(file);
  }
  if (track) *track = record.track;
  if (startSector) *startSector = record.startSector;
  if (startFrames)
    *startFrames = (static_cast<DWORD>(record.start.second) + static_cast<DWORD>(record.start.minute) * 60) * 75 +
                   record.start.frame;
  if (lengthSectors) *lengthSectors = record.lengthSectors;
  if (serial) *serial = record.serial;
  return hr;
}

// --- riff64_ ------------------------------------------------------------------------

HRESULT riff64_ValidateChunkHeader(REFGUID, DWORD sizeLow, DWORD sizeHigh) {
  if ((sizeLow & 7) != 0 || (sizeHigh & 8) != 0) return ZQ_E_RIFF_BAD_SIZE;
  return sizeLow == 0 && sizeHigh == 0 ? ZQ_E_RIFF_ZERO_SIZE : S_OK;
}
HRESULT riff64_ReadChunkHeader(HANDLE file, GUID* id, ULARGE_INTEGER* size) {
  FileIo io{file};
  return R64::ReadChunkHeader(io, id, Wide(size));
}
HRESULT riff64_ReadListHeader(HANDLE file, GUID* type, ULARGE_INTEGER* size) {
  FileIo io{file};
  return R64::ReadListHeader(io, type, Wide(size));
}
HRESULT riff64_ReadFileID(HANDLE file, ULARGE_INTEGER* size, GUID* form) {
  FileIo io{file};
  return R64::ReadFileID(io, Wide(size), form);
}
HRESULT riff64_ReadData(HANDLE file, void* buffer, DWORD sizeLow, DWORD sizeHigh) {
  FileIo io{file};
  return R64::ReadData(io, buffer, Join(sizeLow, sizeHigh));
}
HRESULT riff64_ReadDataAlloc(HANDLE file, tZQRIFF64DATA* record) {
  FileIo io{file};
  return R64::ReadDataAlloc(io, record);
}
HRESULT riff64_ReadDataBounded(HANDLE file, void* buffer, DWORD chunkLow, DWORD chunkHigh, DWORD roomLow,
                               DWORD roomHigh) {
  FileIo io{file};
  return R64::ReadDataBounded(io, buffer, Join(chunkLow, chunkHigh), Join(roomLow, roomHigh));
}
HRESULT riff64_WriteChunkHeader(HANDLE file, REFGUID id, DWORD sizeLow, DWORD sizeHigh) {
  FileIo io{file};
  return R64::WriteChunkHeader(io, id, Join(sizeLow, sizeHigh));
}
HRESULT riff64_WriteChunk(HANDLE file, REFGUID id, const void* data, DWORD sizeLow, DWORD sizeHigh,
                          ULARGE_INTEGER* total) {
  FileIo io{file};
  return R64::WriteChunk(io, id, data, Join(sizeLow, sizeHigh), Wide(total));
}
HRESULT riff64_WriteListHeader(HANDLE file, REFGUID type, DWORD sizeLow, DWORD sizeHigh) {
  FileIo io{file};
  return R64::WriteListHeader(io, type, Join(sizeLow, sizeHigh));
}
HRESULT riff64_WriteFileID(HANDLE file, REFGUID form, DWORD sizeLow, DWORD sizeHigh) {
  FileIo io{file};
  return R64::WriteFileID(io, form, Join(sizeLow, sizeHigh));
}
HRESULT riff64_Pad(HANDLE file, DWORD baseLow, DWORD baseHigh) {
  FileIo io{file};
  return R64::Pad(io, Join(baseLow, baseHigh));
}
HRESULT riff64_SeekDataStart(HANDLE file) {
  FileIo io{file};
  return R64::SeekTo(io, Form64::kDataStart);
}
HRESULT riff64_SaveLocation(HANDLE file, ULARGE_INTEGER* position) {
  FileIo io{file};
  if (position == nullptr) return E_INVALIDARG;
  position->QuadPart = R64::Tell(io);
  return S_OK;
}
HRESULT riff64_RestoreLocation(HANDLE file, DWORD positionLow, DWORD positionHigh) {
  FileIo io{file};
  return R64::SeekTo(io, Join(positionLow, positionHigh));
}
ULONGLONG riff64_SkipChunk(HANDLE file, DWORD sizeLow, DWORD sizeHigh) {
  FileIo io{file};
  return R64::SkipChunk(io, Join(sizeLow, sizeHigh));
}
HRESULT riff64_SetRIFFSize(HANDLE file, DWORD sizeLow, DWORD sizeHigh) {
  FileIo io{file};
  return R64::SetRIFFSize(io, Join(sizeLow, sizeHigh));
}
HRESULT riff64_GetFileSize(HANDLE file, ULARGE_INTEGER* size) {
  FileIo io{file};
  return R64::GetFileSize(io, Wide(size));
}
HRESULT riff64_UpdateRIFFSize(HANDLE file, DWORD deltaLow, LONG deltaHigh) {
  FileIo io{file};
  return R64::UpdateRIFFSize(io, JoinSigned(deltaLow, deltaHigh));
}
HRESULT riff64_FindChunkHeader(HANDLE file, REFGUID id, ULARGE_INTEGER* size, ULARGE_INTEGER* remaining) {
  FileIo io{file};
  return R64::FindChunkHeader(io, id, Wide(size), Wide(remaining));
}
HRESULT riff64_FindChunkHeaderInRIFF(HANDLE file, REFGUID id, ULARGE_INTEGER* size, ULARGE_INTEGER* remaining) {
  FileIo io{file};
  return R64::FindChunkHeaderInRIFF(io, id, Wide(size), Wide(remaining));
}
HRESULT riff64_FindListChunk(HANDLE file, REFGUID type, ULARGE_INTEGER* size, ULARGE_INTEGER* remaining) {
  FileIo io{file};
  return R64::FindListChunk(io, type, Wide(size), Wide(remaining));
}
HRESULT riff64_FindListChunkFromStart(HANDLE file, REFGUID type, ULARGE_INTEGER* size) {
  FileIo io{file};
  return R64::FindListChunkFromStart(io, type, Wide(size));
}
HRESULT riff64_GetNumListEntries(HANDLE file, DWORD* count, ULARGE_INTEGER* remaining) {
  FileIo io{file};
  return R64::GetNumListEntries(io, count, Wide(remaining));
}
HRESULT riff64_SeekListEntry(HANDLE file, DWORD index, ULARGE_INTEGER* remaining) {
  FileIo io{file};
  return R64::SeekListEntry(io, index, Wide(remaining));
}
HRESULT riff64_DeleteChunk(HANDLE file, REFGUID id, ULARGE_INTEGER* removed, BOOL list) {
  FileIo io{file};
  return R64::DeleteChunk(io, id, Wide(removed), list);
}
HRESULT riff64_WriteANSIString(HANDLE file, LPCWSTR text, ULARGE_INTEGER* size) {
  FileIo io{file};
  return R64::WriteANSIString(io, text, Wide(size));
}
HRESULT riff64_ReadANSIString(HANDLE file, LPWSTR buffer, DWORD length, ULARGE_INTEGER* size) {
  FileIo io{file};
  return R64::ReadANSIString(io, buffer, length, Wide(size));
}
HRESULT riff64_getGUIDLabel(REFGUID, LPWSTR, INT) { return S_OK; }
HRESULT riff64_getGUIDLabelProperly(REFGUID, LPWSTR, INT) { return S_OK; }

// --- mriff_ --------------------------------------------------------------------------

HRESULT mriff_Init(tZQMRIFF* record, void* base, DWORD size, DWORD room) {
  if (record == nullptr) return E_POINTER;
  if (size > room || (base == nullptr && room != 0)) return E_INVALIDARG;
  BYTE* start = static_cast<BYTE*>(base);
  *record = {start, start, start + size, start + room, size, room};
  return S_OK;
}
BOOL mriff_ReadFile(tZQMRIFF* record, void* buffer, DWORD size, DWORD* read) {
  DWORD got = 0;
  const BOOL ok = record && (buffer || size == 0) && MemIo{record}.Read(buffer, size, &got);
  if (read) *read = got;
  return ok;
}
BOOL mriff_WriteFile(tZQMRIFF* record, const void* buffer, DWORD size, DWORD* written) {
  DWORD n = 0;
  const BOOL ok = record && (buffer || size == 0) && MemIo{record}.Write(buffer, size, &n);
  if (written) *written = n;
  return ok;
}
DWORD mriff_SetFilePointer(tZQMRIFF* record, LONG distance, LONG* distanceHigh, DWORD method) {
  if (record == nullptr) return INVALID_SET_FILE_POINTER;
  MemIo io{record};
  const LONGLONG move = distanceHigh ? JoinSigned(static_cast<DWORD>(distance), *distanceHigh) : distance;
  LONGLONG from = 0;
  switch (method) {
    case FILE_BEGIN: break;
    case FILE_CURRENT: from = static_cast<LONGLONG>(io.Position()); break;
    case FILE_END: from = record->size; break;
    default: return INVALID_SET_FILE_POINTER;
  }
  // Both terms are within 32 bits and a 64-bit move, so the sum cannot wrap
  // for any move a caller can pass in two words but the extremes.
  if (move < -from || move > static_cast<LONGLONG>(record->room) - from) return INVALID_SET_FILE_POINTER;
  io.SeekTo(static_cast<ULONGLONG>(from + move));
  if (distanceHigh) *distanceHigh = 0;
  return static_cast<DWORD>(io.Position());
}
DWORD mriff_GetFilePointer(tZQMRIFF* record) { return record ? static_cast<DWORD>(MemIo{record}.Position()) : 0; }
BOOL mriff_SetEndOfFile(tZQMRIFF* record) { return record && MemIo{record}.Truncate(); }

HRESULT mriff_ValidateChunkHeader(DWORD, DWORD size) { return ValidateChunkHeader(size); }
HRESULT mriff_ReadChunkHeader(tZQMRIFF* record, DWORD* id, DWORD* size) {
  MemIo io{record};
  return RM::ReadChunkHeader(io, id, size);
}
HRESULT mriff_ReadListHeader(tZQMRIFF* record, DWORD* type, DWORD* size) {
  MemIo io{record};
  return RM::ReadListHeader(io, type, size);
}
HRESULT mriff_ReadFileID(tZQMRIFF* record, DWORD* size, DWORD* form) {
  MemIo io{record};
  return RM::ReadFileID(io, size, form);
}
HRESULT mriff_ReadData(tZQMRIFF* record, void* buffer, DWORD size) {
  MemIo io{record};
  return RM::ReadData(io, buffer, size);
}
HRESULT mriff_ReadDataAlloc(tZQMRIFF* record, tZQRIFFDATA* data) {
  MemIo io{record};
  return RM::ReadDataAlloc(io, data);
}
HRESULT mriff_ReadDataBounded(tZQMRIFF* record, void* buffer, DWORD chunkSize, DWORD room) {
  MemIo io{record};
  return RM::ReadDataBounded(io, buffer, chunkSize, room);
}
HRESULT mriff_WriteChunkHeader(tZQMRIFF* record, DWORD id, DWORD size) {
  MemIo io{record};
  return RM::WriteChunkHeader(io, id, size);
}
HRESULT mriff_WriteChunk(tZQMRIFF* record, DWORD id, const void* data, DWORD size, DWORD* total) {
  MemIo io{record};
  return RM::WriteChunk(io, id, data, size, total);
}
HRESULT mriff_WriteListHeader(tZQMRIFF* record, DWORD type, DWORD size) {
  MemIo io{record};
  return RM::WriteListHeader(io, type, size);
}
HRESULT mriff_WriteFileID(tZQMRIFF* record, DWORD form, DWORD size) {
  MemIo io{record};
  return RM::WriteFileID(io, form, size);
}
HRESULT mriff_SeekDataStart(tZQMRIFF* record) {
  MemIo io{record};
  return RM::SeekTo(io, Form32::kDataStart);
}
HRESULT mriff_SaveLocation(tZQMRIFF* record, DWORD* position) {
  if (position == nullptr) return E_INVALIDARG;
  *position = mriff_GetFilePointer(record);
  return S_OK;
}
HRESULT mriff_RestoreLocation(tZQMRIFF* record, DWORD position) {
  MemIo io{record};
  return RM::SeekTo(io, position);
}
DWORD mriff_SkipChunk(tZQMRIFF* record, DWORD size) {
  MemIo io{record};
  return static_cast<DWORD>(RM::SkipChunk(io, size));
}
HRESULT mriff_SetRIFFSize(tZQMRIFF* record, DWORD size) {
  MemIo io{record};
  return RM::SetRIFFSize(io, size);
}
HRESULT mriff_GetFileSize(tZQMRIFF* record, DWORD* size) {
  MemIo io{record};
  return RM::GetFileSize(io, size);
}
HRESULT mriff_UpdateRIFFSize(tZQMRIFF* record, DWORD deltaLow, LONG deltaHigh) {
  MemIo io{record};
  return RM::UpdateRIFFSize(io, JoinSigned(deltaLow, deltaHigh));
}
HRESULT mriff_FindChunkHeader(tZQMRIFF* record, DWORD id, DWORD* size, DWORD* remaining) {
  MemIo io{record};
  return RM::FindChunkHeader(io, id, size, remaining);
}
HRESULT mriff_FindChunkHeaderInRIFF(tZQMRIFF* record, DWORD id, DWORD* size, DWORD* remaining) {
  MemIo io{record};
  return RM::FindChunkHeaderInRIFF(io, id, size, remaining);
}
HRESULT mriff_FindListChunk(tZQMRIFF* record, DWORD type, DWORD* size, DWORD* remaining) {
  MemIo io{record};
  return RM::FindListChunk(io, type, size, remaining);
}
HRESULT mriff_FindListChunkFromStart(tZQMRIFF* record, DWORD type, DWORD* size) {
  MemIo io{record};
  return RM::FindListChunkFromStart(io, type, size);
}
HRESULT mriff_GetNumListEntries(tZQMRIFF* record, DWORD* count, DWORD* remaining) {
  MemIo io{record};
  return RM::GetNumListEntries(io, count, remaining);
}
HRESULT mriff_SeekListEntry(tZQMRIFF* record, DWORD index, DWORD* remaining) {
  MemIo io{record};
  return RM::SeekListEntry(io, index, remaining);
}
HRESULT mriff_DeleteChunk(tZQMRIFF* record, DWORD id, DWORD* removed, BOOL list) {
  MemIo io{record};
  return RM::DeleteChunk(io, id, removed, list);
}
HRESULT mriff_WriteANSIString(tZQMRIFF* record, LPCWSTR text, DWORD* size) {
  MemIo io{record};
  return RM::WriteANSIString(io, text, size);
}
HRESULT mriff_ReadANSIString(tZQMRIFF* record, LPWSTR buffer, DWORD length, DWORD* size) {
  MemIo io{record};
  return RM::ReadANSIString(io, buffer, length, size);
}
HRESULT mriff_ReadRIFFCDDA(tZQMRIFF* record, tZQRIFFCDDA* cdda) {
  MemIo io{record};
  return RM::ReadRIFFCDDA(io, cdda);
}
