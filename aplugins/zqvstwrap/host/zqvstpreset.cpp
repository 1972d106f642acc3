// Preset (.fxp) and bank (.fxb) data of CZqVstEffect on any IStream.
//
// Four forms, all big-endian (floats too), all opening with the same six
// words: "CcnK", the byte size (file length less 8), the form, a version word
// (written 0, never tested), the plug-in's uniqueID and its version.
//
//   "FxCk"  one program, a float per parameter        header 56, floats follow
//   "FPCh"  one program as the plug-in's own chunk    header 60, chunk follows
//   "FxBk"  a bank of "FxCk" programs                  header 156, programs follow
//   "FBCh"  a bank as the plug-in's own chunk          header 160, chunk follows
//
// A plug-in with effFlagsProgramChunks is saved in the chunk forms, any other
// in the parameter forms.  Loading accepts the parameter forms from every
// plug-in and the chunk forms only from one with the flag.
//
// Everything read from a stream is distrusted: the header decides nothing
// before it was checked, and an allocation sized by a field of the file grows
// only as far as the stream actually delivers bytes.  Reading the plug-in's
// chunk memory is guarded as any other plug-in call.
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "aplugins/zqvstwrap/host/zqvsteffect.h"
#include "base/status.h"
#include "kernel/memory.h"
#include "platform/text.h"

namespace {

// --- Record layouts -----------------------------------------------------------

// The words every form opens with.
struct FxCommonHeader {
  uint32_t chunkMagic;
  uint32_t byteSize;
  uint32_t fxMagic;
  uint32_t version;
  uint32_t fxId;
  uint32_t fxVersion;
};

// "FxCk" before its floats, and "FPCh" before its chunk.
struct FxProgramRecord {
  FxCommonHeader common;
  uint32_t numParams;
  char name[28];
};
struct FxChunkProgramRecord {
  FxProgramRecord program;
  uint32_t chunkSize;
};

// "FxBk" before its programs, and "FBCh" before its chunk.
struct FxBankRecord {
  FxCommonHeader common;
  uint32_t numPrograms;
  char reserved[128];
};
struct FxChunkBankRecord {
  FxBankRecord bank;
  uint32_t chunkSize;
};

static_assert(sizeof(FxCommonHeader) == 24);
static_assert(offsetof(FxCommonHeader, byteSize) == 4);
static_assert(offsetof(FxCommonHeader, fxMagic) == 8);
static_assert(offsetof(FxCommonHeader, version) == 12);
static_assert(offsetof(FxCommonHeader, fxId) == 16);
static_assert(offsetof(FxCommonHeader, fxVersion) == 20);
// "FxCk"
static_assert(offsetof(FxProgramRecord, numParams) == 24);
static_assert(offsetof(FxProgramRecord, name) == 28);
static_assert(sizeof(FxProgramRecord) == kVstFxProgramParamsOffset);
// "FPCh"
static_assert(offsetof(FxChunkProgramRecord, chunkSize) == kVstFxProgramChunkSizeOffset);
static_assert(sizeof(FxChunkProgramRecord) == kVstFxProgramChunkOffset);
// "FxBk"
static_assert(offsetof(FxBankRecord, numPrograms) == 24);
static_assert(offsetof(FxBankRecord, reserved) == 28);
static_assert(sizeof(FxBankRecord) == kVstFxBankProgramsOffset);
// "FBCh"
static_assert(offsetof(FxChunkBankRecord, chunkSize) == kVstFxBankChunkSizeOffset);
static_assert(sizeof(FxChunkBankRecord) == kVstFxBankChunkOffset);

// The records are read and written as bytes; the fields are kept in the
// machine's order between the two and swapped at the border.
constexpr uint32_t Swap32(uint32_t v) {
  return (v >> 24) | ((v >> 8) & 0xFF00u) | ((v << 8) & 0xFF0000u) | (v << 24);
}
static_assert(Swap32(0x4363'6E4Bu) == 0x4B6E'6343u);

// Big-endian on the wire, whatever the machine.
inline uint32_t FromWire(uint32_t v) {
  if constexpr (std::endian::native == std::endian::little) return Swap32(v);
  return v;
}
inline uint32_t ToWire(uint32_t v) { return FromWire(v); }

inline uint32_t FloatBits(float f) {
  uint32_t bits;
  std::memcpy(&bits, &f, sizeof bits);
  return bits;
}
inline float BitsFloat(uint32_t bits) {
  float f;
  std::memcpy(&f, &bits, sizeof f);
  return f;
}

void CommonToWire(FxCommonHeader& h) {
  h.chunkMagic = ToWire(h.chunkMagic);
  h.byteSize = ToWire(h.byteSize);
  h.fxMagic = ToWire(h.fxMagic);
  h.version = ToWire(h.version);
  h.fxId = ToWire(h.fxId);
  h.fxVersion = ToWire(h.fxVersion);
}
void CommonFromWire(FxCommonHeader& h) { CommonToWire(h); }

// The largest file or chunk the 32-bit size words can describe with room for
// the biggest header.
constexpr uint64_t kLargestChunk = 0xFFFFFFFFull - sizeof(FxChunkBankRecord);

// --- Names --------------------------------------------------------------------

// A program name into the 28-byte field: the plug-in's 8-bit code, at most 27
// bytes (never a character cut in half), the rest zero.
void NameToField(char (&field)[28], const WCHAR* name) {
  std::memset(field, 0, sizeof field);
  const std::string text = ZqUtf16ToUtf8(name ? name : u"");
  size_t n = text.size() < sizeof field - 1 ? text.size() : sizeof field - 1;
  // Back off continuation bytes so that a multi-byte character stays whole.
  if (n < text.size())
    while (n > 0 && (static_cast<unsigned char>(text[n]) & 0xC0) == 0x80) --n;
  std::memcpy(field, text.data(), n);
}

// The field of a file as wide text.  A hostile file may leave it without its
// zero: at most the 28 bytes are read.
void NameFromField(WCHAR (&name)[32], const char (&field)[28]) { ZqVstAnsiToWide(name, 32, field, sizeof field); }

// --- Stream helpers -----------------------------------------------------------

// Reads `size` bytes.  The stream's failure is answered; a short read is
// E_UNEXPECTED.
HRESULT ReadAll(IStream* stream, void* buffer, ULONG size) {
  ULONG got = 0;
  HRESULT hr = stream->Read(buffer, size, &got);
  if (FAILED(hr)) return hr;
  return got == size ? S_OK : E_UNEXPECTED;
}

// Writes `size` bytes and adds what the stream took to `*total`.  A stream
// that takes fewer bytes than it was given is full: STG_E_MEDIUMFULL, as a
// file system reports it, so that no caller mistakes a cut file for a saved
// one.
HRESULT WriteAll(IStream* stream, const void* buffer, ULONG size, ULONG* total) {
  ULONG written = 0;
  HRESULT hr = stream->Write(buffer, size, &written);
  *total += written;
  if (FAILED(hr)) return hr;
  return written == size ? S_OK : STG_E_MEDIUMFULL;
}

HRESULT Tell(IStream* stream, ULONGLONG* position) {
  LARGE_INTEGER zero{};
  ULARGE_INTEGER at{};
  HRESULT hr = stream->Seek(zero, STREAM_SEEK_CUR, &at);
  *position = at.QuadPart;
  return hr;
}

HRESULT SeekTo(IStream* stream, ULONGLONG position) {
  LARGE_INTEGER move{};
  move.QuadPart = static_cast<LONGLONG>(position);
  return stream->Seek(move, STREAM_SEEK_SET, nullptr);
}

// A block from the kernel's allocator, freed with its owner.
class Block {
 public:
  Block() = default;
  ~Block() { ZqMemory_Free(m_data); }
  Block(const Block&) = delete;
  Block& operator=(const Block&) = delete;

  bool Allocate(size_t size) {
    ZqMemory_Free(m_data);
    m_data = static_cast<BYTE*>(ZqMemory_Alloc(size ? size : 1));
    return m_data != nullptr;
  }
  // Grows to `size` keeping the contents.
  bool Grow(size_t size) {
    void* grown = ZqMemory_ReAlloc(m_data, size);
    if (grown == nullptr) return false;
    m_data = static_cast<BYTE*>(grown);
    return true;
  }
  BYTE* Data() const { return m_data; }

 private:
  BYTE* m_data = nullptr;
};

// Reads `size` bytes into `block`.  The block grows with what the stream
// delivers, so a size that a file claims and does not hold costs no more
// memory than the stream has.  The stream's failure is answered; a short read
// is E_UNEXPECTED.
HRESULT ReadChunk(IStream* stream, ULONG size, Block* block) {
  constexpr ULONG kFirstStep = 64 * 1024;
  ULONG have = 0;
  ULONG capacity = size < kFirstStep ? size : kFirstStep;
  if (!block->Allocate(capacity)) return E_OUTOFMEMORY;
  while (have < size) {
    if (have == capacity) {
      const ULONG room = size - capacity;
      capacity += room < capacity ? room : capacity;
      if (!block->Grow(capacity)) return E_OUTOFMEMORY;
    }
    ULONG got = 0;
    HRESULT hr = stream->Read(block->Data() + have, capacity - have, &got);
    if (FAILED(hr)) return hr;
    if (got == 0) return E_UNEXPECTED;
    have += got;
  }
  return S_OK;
}

// Reads the six common words and puts the stream back where it was.
HRESULT PeekCommonHeader(IStream* stream, FxCommonHeader* header) {
  ULONG got = 0;
  HRESULT hr = stream->Read(header, sizeof *header, &got);
  if (FAILED(hr)) return hr;
  if (got < sizeof *header) return E_UNEXPECTED;
  LARGE_INTEGER back{};
  back.QuadPart = -static_cast<LONGLONG>(got);
  hr = stream->Seek(back, STREAM_SEEK_CUR, nullptr);
  if (FAILED(hr)) return hr;
  CommonFromWire(*header);
  return S_OK;
}

// A file is for this plug-in when it is one of ours, names the plug-in and
// does not come from a newer version of it.
bool FitsPlugin(const FxCommonHeader& header, const AEffect* effect) {
  return header.chunkMagic == static_cast<uint32_t>(cMagic) &&
         static_cast<VstInt32>(header.fxId) == effect->uniqueID &&
         static_cast<VstInt32>(header.fxVersion) <= effect->version;
}

void FillCommon(FxCommonHeader& h, VstInt32 form, uint32_t byteSize, const AEffect* effect) {
  h.chunkMagic = static_cast<uint32_t>(cMagic);
  h.byteSize = byteSize;
  h.fxMagic = static_cast<uint32_t>(form);
  h.version = 0;
  h.fxId = static_cast<uint32_t>(effect->uniqueID);
  h.fxVersion = static_cast<uint32_t>(effect->version);
}

// A count the plug-in reports, as a count: negative reads as none.
inline uint32_t Count(VstInt32 n) { return n > 0 ? static_cast<uint32_t>(n) : 0u; }

// --- The effect's own chunk ---------------------------------------------------

// effGetChunk with `index` (0 bank, 1 program).  The plug-in keeps the memory;
// it is copied here under a guard, so that a bad pointer of the plug-in's
// becomes E_UNEXPECTED rather than a fault in the stream.  A chunk of no
// bytes, or without memory, is E_UNEXPECTED as well.
HRESULT CopyPluginChunk(CZqVstEffect* effect, VstInt32 index, Block* block, ULONG* size) {
  *size = 0;
  void* data = nullptr;
  const VstIntPtr bytes = effect->Dispatch(effGetChunk, index, 0, &data);
  if (bytes <= 0 || data == nullptr || static_cast<uint64_t>(bytes) > kLargestChunk) return E_UNEXPECTED;
  if (!block->Allocate(static_cast<size_t>(bytes))) return E_OUTOFMEMORY;
  BYTE* target = block->Data();
  if (ZqVstGuarded([&] { std::memcpy(target, data, static_cast<size_t>(bytes)); }) != 0) return E_UNEXPECTED;
  *size = static_cast<ULONG>(bytes);
  return S_OK;
}

// The size of a chunk plug-in's file: ask the chunk only.
HRESULT ChunkSizeOnly(CZqVstEffect* effect, VstInt32 index, ULONG header, ULONG* size) {
  void* data = nullptr;
  const VstIntPtr bytes = effect->Dispatch(effGetChunk, index, 0, &data);
  if (bytes <= 0 || data == nullptr || static_cast<uint64_t>(bytes) > kLargestChunk) return E_UNEXPECTED;
  if (size) *size = static_cast<ULONG>(bytes) + header;
  return S_OK;
}

FxCommonHeader& CommonOf(FxChunkProgramRecord& record) { return record.program.common; }
FxCommonHeader& CommonOf(FxChunkBankRecord& record) { return record.bank.common; }

// The chunk forms, program and bank alike: the fixed record, then the
// plug-in's chunk (`index` 0 bank, 1 program).  `fillForm` sets the record's
// own words, in wire order.  Without a stream only the size is told.
template <class Record, class FillForm>
HRESULT WriteChunkForm(CZqVstEffect* effect, VstInt32 index, VstInt32 form, IStream* stream, ULONG* size,
                       FillForm fillForm) {
  if (stream == nullptr) return ChunkSizeOnly(effect, index, sizeof(Record), size);
  Block chunk;
  ULONG chunkSize = 0;
  HRESULT hr = CopyPluginChunk(effect, index, &chunk, &chunkSize);
  if (FAILED(hr)) return hr;
  Record record{};
  FillCommon(CommonOf(record), form, chunkSize + sizeof record - 8, effect->Effect());
  fillForm(record);
  record.chunkSize = ToWire(chunkSize);
  CommonToWire(CommonOf(record));
  ULONG total = 0;
  hr = WriteAll(stream, &record, sizeof record, &total);
  if (SUCCEEDED(hr)) hr = WriteAll(stream, chunk.Data(), chunkSize, &total);
  if (size) *size = total;
  return FAILED(hr) ? hr : S_OK;
}

// Loads a chunk form, program and bank alike, into a chunk plug-in: the
// fixed record, then a chunk of the size the record gives, handed to the
// plug-in with `index` (0 bank, 1 program).  ZQ_E_BAD_FILE for a plug-in
// without chunks; a size of 0 or less is E_UNEXPECTED.  The plug-in's answer
// is not a verdict on the file: it is not looked at.
template <class Record>
HRESULT LoadChunkForm(CZqVstEffect* effect, VstInt32 index, IStream* stream, Record* record) {
  if (!(effect->Effect()->flags & effFlagsProgramChunks)) return ZQ_E_BAD_FILE;
  HRESULT hr = ReadAll(stream, record, sizeof *record);
  if (FAILED(hr)) return hr;
  const int32_t size = static_cast<int32_t>(FromWire(record->chunkSize));
  if (size <= 0) return E_UNEXPECTED;
  Block chunk;
  hr = ReadChunk(stream, static_cast<ULONG>(size), &chunk);
  if (FAILED(hr)) return hr;
  effect->Dispatch(effSetChunk, index, size, chunk.Data());
  return S_OK;
}

// Before a load: reads the common words and puts the stream back.
// E_INVALIDARG without a stream, ZQ_E_BAD_FILE for a file that is not for
// this plug-in.
HRESULT PeekHeaderFor(IStream* stream, const AEffect* effect, FxCommonHeader* header) {
  if (stream == nullptr) return E_INVALIDARG;
  HRESULT hr = PeekCommonHeader(stream, header);
  if (FAILED(hr)) return hr;
  return FitsPlugin(*header, effect) ? S_OK : ZQ_E_BAD_FILE;
}

}  // namespace

// --- SavePreset ---------------------------------------------------------------

HRESULT CZqVstEffect::SavePreset(IStream* stream, ULONG* size) {
  if (size) *size = 0;
  AEffect* effect = m_effect;
  if (effect == nullptr || effect->numPrograms < 1) return S_FALSE;

  WCHAR name[32];
  DispatchForText(effGetProgramName, 0, name, 32);

  if (effect->flags & effFlagsProgramChunks) {
    auto fillForm = [&](FxChunkProgramRecord& record) {
      record.program.numParams = ToWire(Count(effect->numParams));
      NameToField(record.program.name, name);
    };
    return WriteChunkForm<FxChunkProgramRecord>(this, 1, chunkPresetMagic, stream, size, fillForm);
  }

  // One float a parameter; the count is the plug-in's, so it is bounded only
  // by what the size word can describe.
  const uint64_t params = Count(effect->numParams);
  const uint64_t bytes = params * 4 + sizeof(FxProgramRecord);
  if (bytes > 0xFFFFFFFFull) return E_OUTOFMEMORY;
  if (stream == nullptr) {
    if (size) *size = static_cast<ULONG>(bytes);
    return S_OK;
  }
  Block block;
  if (!block.Allocate(static_cast<size_t>(bytes))) return E_OUTOFMEMORY;
  FxProgramRecord record{};
  FillCommon(record.common, fMagic, static_cast<uint32_t>(bytes - 8), effect);
  record.numParams = static_cast<uint32_t>(params);
  NameToField(record.name, name);
  CommonToWire(record.common);
  record.numParams = ToWire(record.numParams);
  std::memcpy(block.Data(), &record, sizeof record);
  BYTE* values = block.Data() + sizeof record;
  for (uint64_t i = 0; i < params; ++i) {
    float value = 0.0f;
    GetParameter(static_cast<int>(i), &value);
    const uint32_t wire = ToWire(FloatBits(value));
    std::memcpy(values + 4 * i, &wire, 4);
  }
  ULONG total = 0;
  HRESULT hr = WriteAll(stream, block.Data(), static_cast<ULONG>(bytes), &total);
  if (size) *size = total;
  return FAILED(hr) ? hr : S_OK;
}

// --- LoadPreset ---------------------------------------------------------------

HRESULT CZqVstEffect::LoadPreset(IStream* stream) {
  AEffect* effect = m_effect;
  if (effect == nullptr || effect->numPrograms < 1) return S_FALSE;

  FxCommonHeader header;
  HRESULT hr = PeekHeaderFor(stream, effect, &header);
  if (FAILED(hr)) return hr;

  WCHAR name[32] = {};
  if (header.fxMagic == static_cast<uint32_t>(fMagic)) {
    // The reading size goes by the plug-in's count: a file with fewer
    // parameters reads into what follows it, and the stream's end is the
    // guard.  A file with more than the plug-in has is not for it.
    const uint64_t params = Count(effect->numParams);
    const uint64_t bytes = params * 4 + sizeof(FxProgramRecord);
    if (bytes > 0xFFFFFFFFull) return E_OUTOFMEMORY;
    Block block;
    hr = ReadChunk(stream, static_cast<ULONG>(bytes), &block);
    if (FAILED(hr)) return hr;
    FxProgramRecord record;
    std::memcpy(&record, block.Data(), sizeof record);
    if (static_cast<int32_t>(FromWire(record.numParams)) > effect->numParams) return ZQ_E_BAD_FILE;
    hr = S_OK;
    const BYTE* values = block.Data() + sizeof record;
    for (uint64_t i = 0; i < params; ++i) {
      uint32_t wire;
      std::memcpy(&wire, values + 4 * i, 4);
      hr = SetParameter(static_cast<int>(i), BitsFloat(FromWire(wire)));
    }
    NameFromField(name, record.name);
  } else if (header.fxMagic == static_cast<uint32_t>(chunkPresetMagic)) {
    FxChunkProgramRecord record;
    hr = LoadChunkForm(this, 1, stream, &record);
    if (FAILED(hr)) return hr;
    NameFromField(name, record.program.name);
  } else {
    return ZQ_E_BAD_FILE;
  }

  if (SUCCEEDED(hr)) {
    hr = SetProgramName(name);
    if (hr == S_FALSE) hr = S_OK;
  }
  return hr;
}

// --- SaveBank -----------------------------------------------------------------

HRESULT CZqVstEffect::SaveBank(IStream* stream, ULONG* size) {
  if (size) *size = 0;
  AEffect* effect = m_effect;
  if (effect == nullptr || effect->numPrograms < 1) return S_FALSE;

  if (effect->flags & effFlagsProgramChunks) {
    auto fillForm = [&](FxChunkBankRecord& record) { record.bank.numPrograms = ToWire(Count(effect->numPrograms)); };
    return WriteChunkForm<FxChunkBankRecord>(this, 0, chunkBankMagic, stream, size, fillForm);
  }

  // The programs are saved one by one into the stream, so a bank of this form
  // has no size without one.
  if (stream == nullptr) return E_INVALIDARG;
  ULONGLONG start = 0;
  HRESULT hr = Tell(stream, &start);
  if (FAILED(hr)) return hr;
  FxBankRecord record{};
  FillCommon(record.common, bankMagic, 0, effect);  // the size is known at the end
  record.numPrograms = ToWire(Count(effect->numPrograms));
  CommonToWire(record.common);
  ULONG total = 0;
  hr = WriteAll(stream, &record, sizeof record, &total);
  if (FAILED(hr)) return hr;

  LONG current = 0;
  GetProgram(&current);
  const LONG programs = effect->numPrograms;
  for (LONG p = 0; p < programs; ++p) {
    hr = SetProgram(p);
    if (FAILED(hr)) break;
    ULONG written = 0;
    hr = SavePreset(stream, &written);
    total += written;
    if (FAILED(hr)) break;
  }
  // The bank ends on the program that was current before it.
  SetProgram(current);
  if (FAILED(hr)) return hr;

  ULONGLONG end = 0;
  hr = Tell(stream, &end);
  if (FAILED(hr)) return hr;
  hr = SeekTo(stream, start + 4);
  if (FAILED(hr)) return hr;
  const uint32_t byteSize = ToWire(total - 8);
  ULONG patched = 0;
  hr = WriteAll(stream, &byteSize, sizeof byteSize, &patched);
  if (FAILED(hr)) return hr;
  hr = SeekTo(stream, end);
  if (FAILED(hr)) return hr;
  if (size) *size = total;
  return S_OK;
}

// --- LoadBank -----------------------------------------------------------------

HRESULT CZqVstEffect::LoadBank(IStream* stream, LONG program) {
  AEffect* effect = m_effect;
  if (effect == nullptr || effect->numPrograms < 1) return S_FALSE;

  FxCommonHeader header;
  HRESULT hr = PeekHeaderFor(stream, effect, &header);
  if (FAILED(hr)) return hr;

  if (header.fxMagic == static_cast<uint32_t>(bankMagic)) {
    FxBankRecord record;
    hr = ReadAll(stream, &record, sizeof record);
    if (FAILED(hr)) return hr;
    // A count beyond the plug-in's stops at its first extra program, where
    // SetProgram refuses the index; nothing is sized by the count.
    const int32_t count = static_cast<int32_t>(FromWire(record.numPrograms));
    for (int32_t p = 0; p < count; ++p) {
      hr = SetProgram(p);
      if (FAILED(hr)) return hr;
      hr = LoadPreset(stream);
      if (FAILED(hr)) return hr;
    }
  } else if (header.fxMagic == static_cast<uint32_t>(chunkBankMagic)) {
    FxChunkBankRecord record;
    hr = LoadChunkForm(this, 0, stream, &record);
    if (FAILED(hr)) return hr;
  } else {
    return ZQ_E_BAD_FILE;
  }

  hr = SetProgram(program);
  if (FAILED(hr)) hr = SetProgram(0);
  return hr;
}
