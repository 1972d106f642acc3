// RIFF chunk files: reading, walking and editing chunked files in place.
//
// Three families of plain functions share one set of algorithms:
//   riff_    32-bit RIFF over an open file handle: four-character ids, 32-bit
//            little-endian sizes that do not count the 8-byte header, and one
//            pad byte after a chunk of odd size;
//   riff64_  the 64-bit form over a file handle: 16-byte GUID ids, 64-bit sizes
//            that count the 24-byte header, chunks padded to multiples of 8;
//   mriff_   the 32-bit form over a block of memory (tZQMRIFF), with stand-ins
//            for the file calls.
// They keep no state but the file position.  A caller walks a file by
// position; `remaining`, when it is passed, is the count of bytes that may
// still be walked and bounds the walk; null means no bound.  The find
// operations leave the position on the data they found (after a failure,
// wherever the walk ended); the operations that only look put it back.
//
// Every walk moves forward by at least one header per step and never seeks
// backwards, so a damaged file ends a walk with a status at the end of the
// data, never in a loop: sizes beyond the data make the next read fail.
//
// Statuses: 0 success; 0x8004E008 a read that failed or came short (a short
// read is a failure everywhere unless said otherwise); 0x8004E009 a write
// that failed; 0x8004E00A not found within `remaining`; 0x8004E080 no RIFF
// header; 0x8004E081 no LIST header; 0x8004E082 a chunk of size 0;
// 0x8004E083 a chunk size out of range; 0x8004E03A a RIFF size that no
// longer fits; 0x8007000E out of memory; 0x80070057 a null argument.
//
// Threads: the functions share nothing; a file handle or a memory record
// belongs to one thread at a time.
#pragma once

#include <cstddef>

#include "base/status.h"
#include "base/types.h"
#include "kernel/com/guid.h"

// The statuses of chunked files (ZQ_E_RIFF_*) are in base/status.h.

// A four-character code as it lies in the file: ZqRiffId("fmt ").
constexpr DWORD ZqRiffId(const char (&s)[5]) {
  return static_cast<DWORD>(static_cast<BYTE>(s[0])) | static_cast<DWORD>(static_cast<BYTE>(s[1])) << 8 |
         static_cast<DWORD>(static_cast<BYTE>(s[2])) << 16 | static_cast<DWORD>(static_cast<BYTE>(s[3])) << 24;
}
constexpr DWORD ZQRIFF_ID_RIFF = ZqRiffId("RIFF");
constexpr DWORD ZQRIFF_ID_LIST = ZqRiffId("LIST");
constexpr DWORD ZQRIFF_ID_CDDA = ZqRiffId("CDDA");
constexpr DWORD ZQRIFF_ID_FMT = ZqRiffId("fmt ");

// The 64-bit form's file and list ids.
inline constexpr GUID ZQRIFF64_ID_RIFF = ZqGuid("{66666972-912E-11CF-A5D6-28DB04C10000}");
inline constexpr GUID ZQRIFF64_ID_LIST = ZqGuid("{7473696C-912F-11CF-A5D6-28DB04C10000}");

// --- File records -----------------------------------------------------------------

// A 32-bit chunk header as it lies in the file.
struct tZQRIFFCHUNKHEADER {
  DWORD id;
  DWORD size;  // bytes of data, without this header and without the pad
};
static_assert(sizeof(tZQRIFFCHUNKHEADER) == 8);
static_assert(offsetof(tZQRIFFCHUNKHEADER, size) == 4);

// A 64-bit chunk header as it lies in the file.
#pragma pack(push, 1)
struct tZQRIFF64CHUNKHEADER {
  GUID id;
  ULONGLONG size;  // bytes of the whole chunk, this header included, without the pad
};
#pragma pack(pop)
static_assert(sizeof(tZQRIFF64CHUNKHEADER) == 24);
static_assert(offsetof(tZQRIFF64CHUNKHEADER, size) == 16);

// Start or length of a compact disc track in frames (75 a second).
struct tZQCDDAMSF {
  BYTE frame;
  BYTE second;
  BYTE minute;
  BYTE spare;
};
static_assert(sizeof(tZQCDDAMSF) == 4);

// The "fmt " chunk of a .cda file (form "CDDA").
struct tZQRIFFCDDA {
  WORD version;
  WORD track;
  DWORD serial;
  DWORD startSector;
  DWORD lengthSectors;
  tZQCDDAMSF start;
  tZQCDDAMSF length;
};
static_assert(sizeof(tZQRIFFCDDA) == 24);
static_assert(offsetof(tZQRIFFCDDA, track) == 2 && offsetof(tZQRIFFCDDA, serial) == 4);
static_assert(offsetof(tZQRIFFCDDA, startSector) == 8 && offsetof(tZQRIFFCDDA, lengthSectors) == 12);
static_assert(offsetof(tZQRIFFCDDA, start) == 16 && offsetof(tZQRIFFCDDA, length) == 20);

// --- Records of the caller ------------------------------------------------------------

// The block of riff_ReadDataAlloc: `size` is set by the caller; `data` is
// allocated by the call and freed by the caller with ZqMemory_Free.
struct tZQRIFFDATA {
  DWORD size;
  void* data;
};
struct tZQRIFF64DATA {
  ULONGLONG size;
  void* data;
};

// A chunked file in memory.  `size` bytes of data stand at `base`, in a block
// of `room` bytes; writes may fill the block up to its room.  The cursor
// never leaves the block: a seek beyond `room` or before `base` fails.
struct tZQMRIFF {
  BYTE* base;
  BYTE* cursor;     // base + position
  BYTE* endOfData;  // base + size
  BYTE* endOfRoom;  // base + room
  DWORD size;
  DWORD room;
};

// --- The 32-bit family over a file handle -----------------------------------------------

// Looks at the size only: top bit set 0x8004E083, 0 gives 0x8004E082.
ZQ_API HRESULT riff_ValidateChunkHeader(DWORD id, DWORD size);
ZQ_API HRESULT riff_ReadChunkHeader(HANDLE file, DWORD* id, DWORD* size);
// A "LIST" header; *size is the list's size less its 4-byte type.
ZQ_API HRESULT riff_ReadListHeader(HANDLE file, DWORD* type, DWORD* size);
// The "RIFF" header: *size (cleared first) is the RIFF size less the 4-byte
// form type, which is the count to bound a walk of the form's chunks.  Both
// out pointers may be null.
ZQ_API HRESULT riff_ReadFileID(HANDLE file, DWORD* size, DWORD* form);
// Reads `size` bytes and steps over the pad byte of an odd size.
ZQ_API HRESULT riff_ReadData(HANDLE file, void* buffer, DWORD size);
// Allocates record->size zeroed bytes and reads them as riff_ReadData does.
// Size 0 allocates nothing.  On failure nothing stays allocated.  A size
// beyond what the file still holds fails with 0x8004E008 before allocating.
ZQ_API HRESULT riff_ReadDataAlloc(HANDLE file, tZQRIFFDATA* record);
// Reads the lesser of `chunkSize` and `room`, then skips the rest of the
// chunk, plus a pad byte if `room` is odd: pass the chunk's size for both to
// land on the next chunk.
ZQ_API HRESULT riff_ReadDataBounded(HANDLE file, void* buffer, DWORD chunkSize, DWORD room);
ZQ_API HRESULT riff_WriteChunkHeader(HANDLE file, DWORD id, DWORD size);
// Header, data and a zero pad byte for an odd size; *total (optional) is
// the padded size + 8.
ZQ_API HRESULT riff_WriteChunk(HANDLE file, DWORD id, const void* data, DWORD size, DWORD* total);
// "LIST", `size`, `type`: `size` must already count the type.
ZQ_API HRESULT riff_WriteListHeader(HANDLE file, DWORD type, DWORD size);
// "RIFF", `size`, `form`.  Only the last write's result is the answer; a
// failed first write skips the second.
ZQ_API HRESULT riff_WriteFileID(HANDLE file, DWORD form, DWORD size);
// To byte 12, the first chunk of the form.
ZQ_API HRESULT riff_SeekDataStart(HANDLE file);
// The low 32 bits of the position.
ZQ_API HRESULT riff_SaveLocation(HANDLE file, DWORD* position);
ZQ_API HRESULT riff_RestoreLocation(HANDLE file, DWORD position);
// Seeks over `size` and its pad; answers the bytes skipped (mod 2^32).
ZQ_API DWORD riff_SkipChunk(HANDLE file, DWORD size);
// Writes the RIFF size at byte 4 and goes back to where it was.
ZQ_API HRESULT riff_SetRIFFSize(HANDLE file, DWORD size);
// The RIFF size + 4 (four bytes short of the file's length).
ZQ_API HRESULT riff_GetFileSize(HANDLE file, DWORD* size);
// Adds a signed 64-bit delta (two words) to the RIFF size and goes back to
// where it was.  A result above 0xFFFFFFFF, or whose low word is
// 0xFFFFFFF8 or more, cuts the file at the old end of the form and answers
// 0x8004E03A.
ZQ_API HRESULT riff_UpdateRIFFSize(HANDLE file, DWORD deltaLow, LONG deltaHigh);
// From the present position, the next chunk with `id`: the position ends on
// its data, *size gets its size, *remaining loses what was walked.  Fewer
// than 8 bytes remaining: 0x8004E00A (without reading).  Without
// `remaining` the walk ends only at a match or a failed read (0x8004E008).
ZQ_API HRESULT riff_FindChunkHeader(HANDLE file, DWORD id, DWORD* size, DWORD* remaining);
// From the start, within the form; *remaining (optional) is given back also
// on failure.
ZQ_API HRESULT riff_FindChunkHeaderInRIFF(HANDLE file, DWORD id, DWORD* size, DWORD* remaining);
// The next "LIST" of `type`: the position ends on its first child, *size is
// the list's size less the type.
ZQ_API HRESULT riff_FindListChunk(HANDLE file, DWORD type, DWORD* size, DWORD* remaining);
ZQ_API HRESULT riff_FindListChunkFromStart(HANDLE file, DWORD type, DWORD* size);
// Counts the chunks from the position within *remaining (not changed) and
// goes back.  Without `remaining`, or when a chunk runs past it, the count
// stands and the answer is the failed read's 0x8004E008.
ZQ_API HRESULT riff_GetNumListEntries(HANDLE file, DWORD* count, DWORD* remaining);
// Skips `index` chunks (*remaining loses them); 0x8004E00A when fewer than
// 8 bytes remain first.
ZQ_API HRESULT riff_SeekListEntry(HANDLE file, DWORD index, DWORD* remaining);
// Removes the form's first chunk with `id` (with `list`, the first list of
// type `id`) by moving the file's tail down, cuts the file and lowers the
// RIFF size; *removed (optional) gets the bytes removed.  A chunk that runs
// past the end of the file (0x8004E008) or of the form (0x8004E00B) is
// refused before anything is written.
ZQ_API HRESULT riff_DeleteChunk(HANDLE file, DWORD id, DWORD* removed, BOOL list);
// The text in the system's 8-bit code page with its terminator, and a zero
// pad byte when that count is odd; *size is the bytes written.
ZQ_API HRESULT riff_WriteANSIString(HANDLE file, LPCWSTR text, DWORD* size);
// Reads min(*size, length) bytes of a string written as above, converts it
// into `buffer` (always terminated) and moves past *size bytes and the pad.
// *size is raised by one, whatever its parity.
ZQ_API HRESULT riff_ReadANSIString(HANDLE file, LPWSTR buffer, DWORD length, DWORD* size);
// A form "CDDA" (else 0x8004E00B) whose "fmt " chunk is 24 bytes (else
// 0x8004E01C), read from the present position into `record`.
ZQ_API HRESULT riff_ReadRIFFCDDA(HANDLE file, tZQRIFFCDDA* record);
// Opens a .cda file and reads its record (0x8004E007 when it does not open).
// Whatever the answer, each out pointer that is not null gets its field of
// the record (zero when it was not read); *startFrames is the start position
// counted in frames.
ZQ_API HRESULT riff_ReadCDAFile(LPCWSTR path, DWORD* track, DWORD* startSector, DWORD* startFrames,
                                DWORD* lengthSectors, DWORD* serial);

// --- The 64-bit family ------------------------------------------------------------------
// The same operations with GUID ids and 64-bit sizes (in two words where the
// size is passed in), these differences aside: a header counts its 24 bytes
// (the write adds them, the read takes them off and reads a smaller size as
// 0); riff64_ReadFileID and riff64_ReadListHeader give the size less the
// 16-byte type; data starts at byte 40; chunks are padded to multiples of 8;
// riff64_GetFileSize answers the RIFF size less 16; riff64_UpdateRIFFSize
// refuses a negative result (cutting at the old end, 0x8004E03A).

// Size low word not a multiple of 8, or bit 3 of the high word: 0x8004E083;
// both words 0: 0x8004E082.
ZQ_API HRESULT riff64_ValidateChunkHeader(REFGUID id, DWORD sizeLow, DWORD sizeHigh);
ZQ_API HRESULT riff64_ReadChunkHeader(HANDLE file, GUID* id, ULARGE_INTEGER* size);
ZQ_API HRESULT riff64_ReadListHeader(HANDLE file, GUID* type, ULARGE_INTEGER* size);
ZQ_API HRESULT riff64_ReadFileID(HANDLE file, ULARGE_INTEGER* size, GUID* form);
ZQ_API HRESULT riff64_ReadData(HANDLE file, void* buffer, DWORD sizeLow, DWORD sizeHigh);
ZQ_API HRESULT riff64_ReadDataAlloc(HANDLE file, tZQRIFF64DATA* record);
ZQ_API HRESULT riff64_ReadDataBounded(HANDLE file, void* buffer, DWORD chunkLow, DWORD chunkHigh, DWORD roomLow,
                                      DWORD roomHigh);
ZQ_API HRESULT riff64_WriteChunkHeader(HANDLE file, REFGUID id, DWORD sizeLow, DWORD sizeHigh);
ZQ_API HRESULT riff64_WriteChunk(HANDLE file, REFGUID id, const void* data, DWORD sizeLow, DWORD sizeHigh,
                                 ULARGE_INTEGER* total);
ZQ_API HRESULT riff64_WriteListHeader(HANDLE file, REFGUID type, DWORD sizeLow, DWORD sizeHigh);
ZQ_API HRESULT riff64_WriteFileID(HANDLE file, REFGUID form, DWORD sizeLow, DWORD sizeHigh);
// Writes zero bytes until (position - base) is a multiple of 8.
ZQ_API HRESULT riff64_Pad(HANDLE file, DWORD baseLow, DWORD baseHigh);
ZQ_API HRESULT riff64_SeekDataStart(HANDLE file);
ZQ_API HRESULT riff64_SaveLocation(HANDLE file, ULARGE_INTEGER* position);
ZQ_API HRESULT riff64_RestoreLocation(HANDLE file, DWORD positionLow, DWORD positionHigh);
ZQ_API ULONGLONG riff64_SkipChunk(HANDLE file, DWORD sizeLow, DWORD sizeHigh);
ZQ_API HRESULT riff64_SetRIFFSize(HANDLE file, DWORD sizeLow, DWORD sizeHigh);
ZQ_API HRESULT riff64_GetFileSize(HANDLE file, ULARGE_INTEGER* size);
ZQ_API HRESULT riff64_UpdateRIFFSize(HANDLE file, DWORD deltaLow, LONG deltaHigh);
ZQ_API HRESULT riff64_FindChunkHeader(HANDLE file, REFGUID id, ULARGE_INTEGER* size, ULARGE_INTEGER* remaining);
ZQ_API HRESULT riff64_FindChunkHeaderInRIFF(HANDLE file, REFGUID id, ULARGE_INTEGER* size,
                                            ULARGE_INTEGER* remaining);
ZQ_API HRESULT riff64_FindListChunk(HANDLE file, REFGUID type, ULARGE_INTEGER* size, ULARGE_INTEGER* remaining);
ZQ_API HRESULT riff64_FindListChunkFromStart(HANDLE file, REFGUID type, ULARGE_INTEGER* size);
ZQ_API HRESULT riff64_GetNumListEntries(HANDLE file, DWORD* count, ULARGE_INTEGER* remaining);
ZQ_API HRESULT riff64_SeekListEntry(HANDLE file, DWORD index, ULARGE_INTEGER* remaining);
ZQ_API HRESULT riff64_DeleteChunk(HANDLE file, REFGUID id, ULARGE_INTEGER* removed, BOOL list);
ZQ_API HRESULT riff64_WriteANSIString(HANDLE file, LPCWSTR text, ULARGE_INTEGER* size);
ZQ_API HRESULT riff64_ReadANSIString(HANDLE file, LPWSTR buffer, DWORD length, ULARGE_INTEGER* size);
// Names of ids are not kept: both do nothing and answer 0.
ZQ_API HRESULT riff64_getGUIDLabel(REFGUID id, LPWSTR buffer, INT length);
ZQ_API HRESULT riff64_getGUIDLabelProperly(REFGUID id, LPWSTR buffer, INT length);

// --- The 32-bit family over memory ----------------------------------------------------------

// null record 0x80004003; size above room, or a null base with room,
// 0x80070057.  Every other mriff_ function needs a record made here.
ZQ_API HRESULT mriff_Init(tZQMRIFF* record, void* base, DWORD size, DWORD room);
// Stand-ins for the file calls, with their conventions: a read stops at the
// end of the data (TRUE with 0 bytes there); a write stops at the room
// (FALSE when it could not write all), zeroing any gap it leaves behind the
// data, and moves the data's end; SetFilePointer answers the new position or
// INVALID_SET_FILE_POINTER (0xFFFFFFFF) for a target before the start or
// beyond the room; SetEndOfFile makes the cursor the end of the data.
ZQ_API BOOL mriff_ReadFile(tZQMRIFF* record, void* buffer, DWORD size, DWORD* read);
ZQ_API BOOL mriff_WriteFile(tZQMRIFF* record, const void* buffer, DWORD size, DWORD* written);
ZQ_API DWORD mriff_SetFilePointer(tZQMRIFF* record, LONG distance, LONG* distanceHigh, DWORD method);
ZQ_API DWORD mriff_GetFilePointer(tZQMRIFF* record);
ZQ_API BOOL mriff_SetEndOfFile(tZQMRIFF* record);

ZQ_API HRESULT mriff_ValidateChunkHeader(DWORD id, DWORD size);
ZQ_API HRESULT mriff_ReadChunkHeader(tZQMRIFF* record, DWORD* id, DWORD* size);
ZQ_API HRESULT mriff_ReadListHeader(tZQMRIFF* record, DWORD* type, DWORD* size);
ZQ_API HRESULT mriff_ReadFileID(tZQMRIFF* record, DWORD* size, DWORD* form);
ZQ_API HRESULT mriff_ReadData(tZQMRIFF* record, void* buffer, DWORD size);
ZQ_API HRESULT mriff_ReadDataAlloc(tZQMRIFF* record, tZQRIFFDATA* data);
ZQ_API HRESULT mriff_ReadDataBounded(tZQMRIFF* record, void* buffer, DWORD chunkSize, DWORD room);
ZQ_API HRESULT mriff_WriteChunkHeader(tZQMRIFF* record, DWORD id, DWORD size);
ZQ_API HRESULT mriff_WriteChunk(tZQMRIFF* record, DWORD id, const void* data, DWORD size, DWORD* total);
ZQ_API HRESULT mriff_WriteListHeader(tZQMRIFF* record, DWORD type, DWORD size);
ZQ_API HRESULT mriff_WriteFileID(tZQMRIFF* record, DWORD form, DWORD size);
ZQ_API HRESULT mriff_SeekDataStart(tZQMRIFF* record);
ZQ_API HRESULT mriff_SaveLocation(tZQMRIFF* record, DWORD* position);
ZQ_API HRESULT mriff_RestoreLocation(tZQMRIFF* record, DWORD position);
ZQ_API DWORD mriff_SkipChunk(tZQMRIFF* record, DWORD size);
ZQ_API HRESULT mriff_SetRIFFSize(tZQMRIFF* record, DWORD size);
ZQ_API HRESULT mriff_GetFileSize(tZQMRIFF* record, DWORD* size);
ZQ_API HRESULT mriff_UpdateRIFFSize(tZQMRIFF* record, DWORD deltaLow, LONG deltaHigh);
ZQ_API HRESULT mriff_FindChunkHeader(tZQMRIFF* record, DWORD id, DWORD* size, DWORD* remaining);
ZQ_API HRESULT mriff_FindChunkHeaderInRIFF(tZQMRIFF* record, DWORD id, DWORD* size, DWORD* remaining);
ZQ_API HRESULT mriff_FindListChunk(tZQMRIFF* record, DWORD type, DWORD* size, DWORD* remaining);
ZQ_API HRESULT mriff_FindListChunkFromStart(tZQMRIFF* record, DWORD type, DWORD* size);
ZQ_API HRESULT mriff_GetNumListEntries(tZQMRIFF* record, DWORD* count, DWORD* remaining);
ZQ_API HRESULT mriff_SeekListEntry(tZQMRIFF* record, DWORD index, DWORD* remaining);
ZQ_API HRESULT mriff_DeleteChunk(tZQMRIFF* record, DWORD id, DWORD* removed, BOOL list);
ZQ_API HRESULT mriff_WriteANSIString(tZQMRIFF* record, LPCWSTR text, DWORD* size);
ZQ_API HRESULT mriff_ReadANSIString(tZQMRIFF* record, LPWSTR buffer, DWORD length, DWORD* size);
ZQ_API HRESULT mriff_ReadRIFFCDDA(tZQMRIFF* record, tZQRIFFCDDA* cdda);
