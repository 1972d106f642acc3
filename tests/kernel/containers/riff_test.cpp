#include "kernel/containers/riff.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "kernel/memory.h"
#include "platform/file.h"
#include "platform/text.h"
#include "tests/support/test_folder.h"

namespace {

using Bytes = std::vector<BYTE>;

void Put32(Bytes& b, DWORD v) {
  for (int i = 0; i < 4; ++i) b.push_back(static_cast<BYTE>(v >> (8 * i)));
}
Bytes operator+(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}
DWORD Fcc(const char* s) {
  return static_cast<DWORD>(static_cast<BYTE>(s[0]) | static_cast<BYTE>(s[1]) << 8 | static_cast<BYTE>(s[2]) << 16 |
                            static_cast<BYTE>(s[3]) << 24);
}
// A chunk as it lies in a file; `size` overrides the size field.
Bytes Chunk(const char (&id)[5], const Bytes& data, long long size = -1) {
  Bytes b;
  Put32(b, ZqRiffId(id));
  Put32(b, size < 0 ? static_cast<DWORD>(data.size()) : static_cast<DWORD>(size));
  b.insert(b.end(), data.begin(), data.end());
  if (data.size() & 1) b.push_back(0);
  return b;
}
Bytes Typed(const char (&id)[5], const char (&type)[5], std::initializer_list<Bytes> chunks, long long size = -1) {
  Bytes body;
  Put32(body, ZqRiffId(type));
  for (const Bytes& c : chunks) body.insert(body.end(), c.begin(), c.end());
  Bytes b;
  Put32(b, ZqRiffId(id));
  Put32(b, size < 0 ? static_cast<DWORD>(body.size()) : static_cast<DWORD>(size));
  b.insert(b.end(), body.begin(), body.end());
  return b;
}
Bytes Form(std::initializer_list<Bytes> chunks, long long size = -1) { return Typed("RIFF", "WAVE", chunks, size); }

// A form of three chunks: "fmt " (3 bytes, padded), "LIST"/"INFO" with one
// child, "data" (4 bytes).  Offsets: fmt 12, LIST 24 (26 bytes), data 50.
Bytes Sample() {
  return Form({Chunk("fmt ", {1, 2, 3}), Typed("LIST", "INFO", {Chunk("INAM", {'a', 'b', 'c', 0, 'x', 0})}),
               Chunk("data", {9, 8, 7, 6})});
}

// A chunked file in memory with room to grow; the file family shares the
// walks and is tried on its own where the file layer matters.
struct Mem {
  Bytes block;
  tZQMRIFF r{};
  explicit Mem(const Bytes& bytes) : block(bytes) {
    block.resize(bytes.size() + 64, 0xEE);
    EXPECT_EQ(mriff_Init(&r, block.data(), static_cast<DWORD>(bytes.size()), static_cast<DWORD>(block.size())), S_OK);
  }
  DWORD Tell() { return mriff_GetFilePointer(&r); }
  Bytes Contents() const { return Bytes(block.begin(), block.begin() + r.size); }
};

TEST(RiffWalk, FindChunkHeaderHonoursItsBoundAndEndsOnDamagedSizes) {
  struct Case {
    const char* what;
    Bytes bytes;
    const char* id;
    long long remaining;  // -1: null
    HRESULT status;
    DWORD size, left, position;
  };
  const Bytes fmt = Chunk("fmt ", {1, 2, 3});  // padded to 12 bytes
  const Case cases[] = {
      {"found after an odd chunk and its pad", fmt + Chunk("data", {5, 6}), "data", 100, S_OK, 2, 80, 20},
      {"found without a bound", fmt + Chunk("data", {5, 6}), "data", -1, S_OK, 2, 0, 20},
      {"fewer than 8 bytes left: no read", fmt, "fmt ", 7, ZQ_E_NOT_FOUND, 0, 7, 0},
      {"bound reached", fmt + Chunk("data", {5, 6}), "LIST", 20, ZQ_E_NOT_FOUND, 0, 0, 22},
      {"missing, unbounded: the end of the data", fmt + Chunk("data", {5, 6}), "LIST", -1, ZQ_E_READ_FILE, 0, 0, 0},
      {"a size beyond the data", Chunk("junk", {}, 0xFFFFFFFF) + fmt, "fmt ", -1, ZQ_E_READ_FILE, 0, 0, 0},
      {"a truncated header", Bytes{'f', 'm', 't', ' ', 3}, "fmt ", 100, ZQ_E_READ_FILE, 0, 100, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Mem f(c.bytes);
    DWORD size = 0, left = c.remaining < 0 ? 0 : static_cast<DWORD>(c.remaining);
    EXPECT_EQ(mriff_FindChunkHeader(&f.r, Fcc(c.id), &size, c.remaining < 0 ? nullptr : &left), c.status);
    EXPECT_EQ(size, c.size);
    EXPECT_EQ(left, c.left);
    if (c.status == S_OK || c.status == ZQ_E_NOT_FOUND) {
      EXPECT_EQ(f.Tell(), c.position);
    }
  }
}

TEST(RiffWalk, ListsAreFoundCountedAndSkippedWithinTheForm) {
  const Bytes lists = Form({Typed("LIST", "adtl", {Chunk("note", {1})}), Chunk("fmt ", {1, 2, 3, 4}),
                            Typed("LIST", "INFO", {Chunk("INAM", {'a'}), Chunk("ICOP", {'b', 'c'})})});
  Mem f(lists);
  DWORD size = 0;
  ASSERT_EQ(mriff_FindListChunkFromStart(&f.r, ZqRiffId("INFO"), &size), S_OK);
  EXPECT_EQ(size, 20u) << "the list's size less its type";
  EXPECT_EQ(f.Tell(), 58u) << "on the first child";
  DWORD count = 0, left = size;
  EXPECT_EQ(mriff_GetNumListEntries(&f.r, &count, &left), S_OK);
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(left, size) << "counting only looks";
  EXPECT_EQ(f.Tell(), 58u) << "and puts the position back";
  EXPECT_EQ(mriff_SeekListEntry(&f.r, 1, &left), S_OK);
  EXPECT_EQ(f.Tell(), 68u);
  EXPECT_EQ(left, 10u);
  EXPECT_EQ(mriff_SeekListEntry(&f.r, 2, &left), ZQ_E_NOT_FOUND);

  // Unbounded, the count stands but the walk can end only in a failed read.
  mriff_RestoreLocation(&f.r, 58);
  EXPECT_EQ(mriff_GetNumListEntries(&f.r, &count, nullptr), ZQ_E_READ_FILE);
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(mriff_FindListChunkFromStart(&f.r, ZqRiffId("exif"), &size), ZQ_E_NOT_FOUND);
}

TEST(RiffWalk, SelfOverlappingListsEndTheWalk) {
  // A list whose size does not even hold its type, and one whose size points
  // back into itself: the walk steps over both and ends at the data's end.
  const Bytes bad = Form({Typed("LIST", "adtl", {}, 0), Typed("LIST", "INFO", {Chunk("INAM", {})}, 2)});
  Mem f(bad);
  DWORD size = 0;
  EXPECT_EQ(mriff_FindListChunkFromStart(&f.r, ZqRiffId("exif"), &size), ZQ_E_NOT_FOUND);
  mriff_RestoreLocation(&f.r, 12);
  EXPECT_EQ(mriff_FindChunkHeader(&f.r, ZqRiffId("zzzz"), &size, nullptr), ZQ_E_READ_FILE);
}

TEST(RiffWalk, ReadsStepOverThePadTheirRoomAsks) {
  struct Case { DWORD chunk, room, got, position; };
  const Case cases[] = {{3, 3, 3, 4}, {5, 4, 4, 5}, {4, 2, 2, 4}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "chunk " << c.chunk << " room " << c.room);
    Mem f(Bytes{1, 2, 3, 4, 5, 6, 7, 8});
    BYTE buffer[8] = {};
    EXPECT_EQ(mriff_ReadDataBounded(&f.r, buffer, c.chunk, c.room), S_OK);
    EXPECT_EQ(buffer[c.got - 1], c.got);
    EXPECT_EQ(buffer[c.got], 0) << "no more than the room";
    EXPECT_EQ(f.Tell(), c.position);
  }
  Mem f(Bytes{1, 2, 3});
  BYTE buffer[8];
  EXPECT_EQ(mriff_ReadData(&f.r, buffer, 3), S_OK) << "a missing final pad is no read";
  EXPECT_EQ(mriff_ReadData(&f.r, buffer, 1), ZQ_E_READ_FILE);
}

TEST(RiffWalk, DeleteMovesTheTailAndLowersTheRiffSize) {
  struct Case {
    const char* id;
    BOOL list;
    DWORD removed;
    size_t at;  // where the removed bytes were
  };
  const Case cases[] = {{"data", FALSE, 12, 50}, {"fmt ", FALSE, 12, 12}, {"INFO", TRUE, 26, 24}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.id);
    const Bytes before = Sample();
    Mem f(before);
    DWORD removed = 0;
    ASSERT_EQ(mriff_DeleteChunk(&f.r, Fcc(c.id), &removed, c.list), S_OK);
    EXPECT_EQ(removed, c.removed);
    Bytes expected = before;
    expected.erase(expected.begin() + static_cast<long>(c.at), expected.begin() + static_cast<long>(c.at + c.removed));
    const DWORD riffSize = static_cast<DWORD>(expected.size() - 8);
    std::memcpy(expected.data() + 4, &riffSize, 4);
    EXPECT_EQ(f.Contents(), expected);
  }
}

TEST(RiffWalk, ChunksThatLieAboutTheirSizeAreNotDeleted) {
  const Bytes cases[] = {
      Form({Chunk("fmt ", {1, 2}), Chunk("data", {1, 2}, 400)}),          // past the file
      Form({Chunk("fmt ", {1, 2}), Chunk("data", {1, 2})}, 22) + Bytes(8),  // past the form
  };
  const HRESULT statuses[] = {ZQ_E_READ_FILE, ZQ_E_BAD_FILE};
  for (int i = 0; i < 2; ++i) {
    Mem f(cases[i]);
    DWORD removed = 7;
    EXPECT_EQ(mriff_DeleteChunk(&f.r, ZqRiffId("data"), &removed, FALSE), statuses[i]);
    EXPECT_EQ(removed, 0u);
    EXPECT_EQ(f.Contents(), cases[i]) << "case " << i;
  }
}

TEST(RiffWalk, RiffSizeUpdatesKeepThePositionAndCutAtTheLimit) {
  struct Case {
    DWORD oldSize;
    LONGLONG delta;
    HRESULT status;
    DWORD newSize;
    size_t length;  // of the file afterwards
  };
  const Case cases[] = {
      {20, 8, S_OK, 28, 44},
      {20, -8, S_OK, 12, 44},
      {20, 0xFFFFFFF8ll - 20, ZQ_E_RENDER_SIZE, 20, 28},  // cut at the old end of the form
      {20, 0x100000000ll, ZQ_E_RENDER_SIZE, 20, 28},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "delta " << c.delta);
    Bytes bytes = Form({Chunk("data", Bytes(12, 1))}) + Bytes(12, 2);
    std::memcpy(bytes.data() + 4, &c.oldSize, 4);
    Mem f(bytes);
    mriff_RestoreLocation(&f.r, 30);
    EXPECT_EQ(mriff_UpdateRIFFSize(&f.r, static_cast<DWORD>(c.delta), static_cast<LONG>(c.delta >> 32)),
              c.status);
    EXPECT_EQ(f.Tell(), 30u);
    const Bytes after = f.Contents();
    ASSERT_EQ(after.size(), c.length);
    DWORD size = 0;
    std::memcpy(&size, after.data() + 4, 4);
    EXPECT_EQ(size, c.newSize);
  }
  Mem f(Sample());
  DWORD size = 0;
  EXPECT_EQ(mriff_GetFileSize(&f.r, &size), S_OK);
  EXPECT_EQ(size, Sample().size() - 4) << "the RIFF size + 4, as callers reckon it";
}

TEST(RiffWalk, StringsAndChunksAreWrittenPaddedAndReadBack) {
  Mem f(Bytes{});
  DWORD total = 0, a = 0, b = 0;
  ASSERT_EQ(mriff_WriteChunk(&f.r, ZqRiffId("abcd"), "xyz", 3, &total), S_OK);
  EXPECT_EQ(total, 12u);
  ASSERT_EQ(mriff_WriteANSIString(&f.r, u"\u00e9t\u00e9", &a), S_OK);
  EXPECT_EQ(a, 6u) << "5 bytes of UTF-8 and a terminator";
  ASSERT_EQ(mriff_WriteANSIString(&f.r, u"abcd", &b), S_OK);
  EXPECT_EQ(b, 6u) << "4 bytes and a terminator, padded";
  const Bytes expected = Chunk("abcd", {'x', 'y', 'z'}) + Bytes{0xC3, 0xA9, 't', 0xC3, 0xA9, 0} +
                         Bytes{'a', 'b', 'c', 'd', 0, 0};
  EXPECT_EQ(f.Contents(), expected);

  mriff_RestoreLocation(&f.r, 12);
  WCHAR text[8];
  DWORD size = 6;
  ASSERT_EQ(mriff_ReadANSIString(&f.r, text, 8, &size), S_OK);
  EXPECT_EQ(std::u16string(text), u"\u00e9t\u00e9");
  EXPECT_EQ(size, 7u) << "raised by one even after an even string";
  EXPECT_EQ(f.Tell(), 18u);
  size = 5;
  ASSERT_EQ(mriff_ReadANSIString(&f.r, text, 3, &size), S_OK);
  EXPECT_EQ(std::u16string(text), u"ab") << "cut to the buffer, always terminated";
  EXPECT_EQ(f.Tell(), 24u) << "past the string and its pad";
  EXPECT_EQ(size, 6u);
}

// The file layer under the same walks: skips past the end, truncation,
// lengths and positions of a real file.
TEST(RiffFile, WalksEditsAndWritesReachTheFile) {
  zqtest::TestFolder folder("riff");
  const std::u16string path = ZqUtf8ToUtf16((folder.path() / "f.wav").string());
  HANDLE h = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  const Bytes sample = Sample() + Chunk("junk", {}, 0xFFFFFFFF);
  DWORD n = 0, size = 0, removed = 0;
  ASSERT_TRUE(WriteFile(h, sample.data(), static_cast<DWORD>(sample.size()), &n, nullptr));
  ASSERT_EQ(riff_SeekDataStart(h), S_OK);
  EXPECT_EQ(riff_FindChunkHeader(h, ZqRiffId("none"), &size, nullptr), ZQ_E_READ_FILE) << "past the end, no wrap";
  ASSERT_EQ(riff_DeleteChunk(h, ZqRiffId("fmt "), &removed, FALSE), S_OK);
  EXPECT_EQ(::GetFileSize(h, nullptr), sample.size() - 12);
  ASSERT_EQ(riff_FindChunkHeaderInRIFF(h, ZqRiffId("data"), &size, nullptr), S_OK);
  EXPECT_EQ(SetFilePointer(h, 0, nullptr, FILE_CURRENT), 46u);
  EXPECT_EQ(riff_UpdateRIFFSize(h, 0xFFFFFFFF, 0), ZQ_E_RENDER_SIZE);
  EXPECT_EQ(::GetFileSize(h, nullptr), 50u) << "cut at the end of the form";
  EXPECT_EQ(SetFilePointer(h, 0, nullptr, FILE_CURRENT), 46u);
  ASSERT_EQ(riff_WriteChunk(h, ZqRiffId("cue "), "abc", 3, &size), S_OK);
  DWORD id = 0;
  ASSERT_EQ(riff_RestoreLocation(h, 46), S_OK);
  ASSERT_EQ(riff_ReadChunkHeader(h, &id, &size), S_OK);
  EXPECT_EQ(id, ZqRiffId("cue "));
  EXPECT_EQ(riff_SkipChunk(h, size), 4u);
  EXPECT_EQ(::GetFileSize(h, nullptr), 58u);
  CloseHandle(h);
}

TEST(Riff, HeaderChecksAndFileIdsAnswerTheirStatuses) {
  struct Case { HRESULT got, want; };
  const Case cases[] = {
      {riff_ValidateChunkHeader(0, 0x80000000u), ZQ_E_RIFF_BAD_SIZE},
      {riff_ValidateChunkHeader(0, 0), ZQ_E_RIFF_ZERO_SIZE},
      {riff_ValidateChunkHeader(0, 7), S_OK},
      {riff64_ValidateChunkHeader(GUID_NULL, 12, 0), ZQ_E_RIFF_BAD_SIZE},
      {riff64_ValidateChunkHeader(GUID_NULL, 0, 8), ZQ_E_RIFF_BAD_SIZE},
      {riff64_ValidateChunkHeader(GUID_NULL, 0, 0), ZQ_E_RIFF_ZERO_SIZE},
      {riff64_ValidateChunkHeader(GUID_NULL, 0, 7), S_OK},
  };
  for (size_t i = 0; i < std::size(cases); ++i) EXPECT_EQ(cases[i].got, cases[i].want) << "case " << i;

  Bytes rifx = Sample();
  rifx[3] = 'X';
  tZQMRIFF r;
  ASSERT_EQ(mriff_Init(&r, rifx.data(), static_cast<DWORD>(rifx.size()), static_cast<DWORD>(rifx.size())), S_OK);
  DWORD size = 99, type = 0;
  EXPECT_EQ(mriff_ReadFileID(&r, &size, nullptr), ZQ_E_RIFF_NO_RIFF);
  EXPECT_EQ(size, 0u);
  mriff_SetFilePointer(&r, 24, nullptr, FILE_BEGIN);
  EXPECT_EQ(mriff_ReadListHeader(&r, &type, &size), S_OK);
  EXPECT_EQ(type, ZqRiffId("INFO"));
  EXPECT_EQ(mriff_ReadListHeader(&r, &type, &size), ZQ_E_RIFF_NO_LIST);

  EXPECT_EQ(mriff_Init(nullptr, rifx.data(), 0, 0), E_POINTER);
  EXPECT_EQ(mriff_Init(&r, rifx.data(), 9, 8), E_INVALIDARG);
  ASSERT_EQ(mriff_Init(&r, rifx.data(), 8, 8), S_OK);
  EXPECT_EQ(mriff_SetFilePointer(&r, 9, nullptr, FILE_BEGIN), INVALID_SET_FILE_POINTER) << "beyond the room";
  EXPECT_EQ(mriff_SetFilePointer(&r, -1, nullptr, FILE_BEGIN), INVALID_SET_FILE_POINTER);
  DWORD written = 0;
  mriff_SetFilePointer(&r, 6, nullptr, FILE_BEGIN);
  EXPECT_FALSE(mriff_WriteFile(&r, "abc", 3, &written)) << "no room for all of it";
  EXPECT_EQ(written, 2u);
}

TEST(Riff, AllocatedReadsNeverAskForMoreThanTheDataHolds) {
  Bytes bytes = Chunk("data", {1, 2, 3});
  tZQMRIFF r;
  ASSERT_EQ(mriff_Init(&r, bytes.data(), static_cast<DWORD>(bytes.size()), static_cast<DWORD>(bytes.size())), S_OK);
  mriff_SetFilePointer(&r, 8, nullptr, FILE_BEGIN);
  const LONG_PTR live = ZqMemory_GetLiveBlocks();
  tZQRIFFDATA d{0xFFFFFFF0u, reinterpret_cast<void*>(1)};
  EXPECT_EQ(mriff_ReadDataAlloc(&r, &d), ZQ_E_READ_FILE);
  EXPECT_EQ(d.data, nullptr);
  EXPECT_EQ(ZqMemory_GetLiveBlocks(), live);
  d.size = 3;
  ASSERT_EQ(mriff_ReadDataAlloc(&r, &d), S_OK);
  EXPECT_EQ(static_cast<BYTE*>(d.data)[2], 3);
  EXPECT_EQ(mriff_GetFilePointer(&r), 12u);
  ZqMemory_Free(d.data);
}

TEST(Riff, CompactDiscFilesGiveTheirTrackWhateverTheAnswer) {
  Bytes fmt;
  for (DWORD v : {0x00050001u, 0x12345678u, 1000u, 2000u}) Put32(fmt, v);  // version 1, track 5
  fmt.insert(fmt.end(), {10, 20, 2, 0, 1, 2, 3, 0});                     // start 2:20.10
  struct Case { Bytes bytes; HRESULT status; DWORD track; };
  Bytes shortFmt(fmt.begin(), fmt.begin() + 20);
  const Case cases[] = {
      {Typed("RIFF", "CDDA", {Chunk("fmt ", fmt)}), S_OK, 5},
      {Typed("RIFF", "WAVE", {Chunk("fmt ", fmt)}), ZQ_E_BAD_FILE, 0},
      {Typed("RIFF", "CDDA", {Chunk("fmt ", shortFmt)}), ZQ_E_VERSION, 0},
  };
  zqtest::TestFolder folder("riff");
  const std::u16string path = ZqUtf8ToUtf16((folder.path() / "Track05.cda").string());
  for (const Case& c : cases) {
    HANDLE h = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    DWORD n = 0;
    ASSERT_TRUE(WriteFile(h, c.bytes.data(), static_cast<DWORD>(c.bytes.size()), &n, nullptr));
    CloseHandle(h);
    DWORD track = 9, start = 9, frames = 9, length = 9, serial = 9;
    EXPECT_EQ(riff_ReadCDAFile(path.c_str(), &track, &start, &frames, &length, &serial), c.status);
    EXPECT_EQ(track, c.track);
    EXPECT_EQ(frames, c.status == S_OK ? (20u + 2 * 60) * 75 + 10 : 0u);
  }
  DWORD track = 9;
  EXPECT_EQ(riff_ReadCDAFile(u"/nonexistent/x.cda", &track, nullptr, nullptr, nullptr, nullptr), ZQ_E_OPEN_FILE);
  EXPECT_EQ(track, 0u);
}

// --- The 64-bit form ------------------------------------------------------------------

GUID Wave64Id(const char (&fourcc)[5]) {  // the 64-bit form's ids for "wave", "fmt " and "data"
  GUID g = ZqGuid("{00000000-ACF3-11D3-8CD1-00C04F8EDB8A}");
  g.Data1 = ZqRiffId(fourcc);
  return g;
}

TEST(Riff64, FormsAreWrittenPaddedToEightAndWalkedBack) {
  zqtest::TestFolder folder("riff64");
  const std::u16string path = ZqUtf8ToUtf16((folder.path() / "f.w64").string());
  HANDLE h = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  ULARGE_INTEGER total{};
  ASSERT_EQ(riff64_WriteFileID(h, Wave64Id("wave"), 0, 0), S_OK);
  ASSERT_EQ(riff64_WriteChunk(h, Wave64Id("fmt "), "abcde", 5, 0, &total), S_OK);
  EXPECT_EQ(total.QuadPart, 32u);
  ASSERT_EQ(riff64_WriteChunk(h, Wave64Id("data"), "0123456789ABCDEF", 16, 0, &total), S_OK);
  ASSERT_EQ(riff64_SetRIFFSize(h, 112, 0), S_OK);
  EXPECT_EQ(GetFileSize(h, nullptr), 112u);

  ULARGE_INTEGER size{}, left{};
  GUID form{};
  SetFilePointer(h, 0, nullptr, FILE_BEGIN);
  ASSERT_EQ(riff64_ReadFileID(h, &size, &form), S_OK);
  EXPECT_EQ(size.QuadPart, 72u);
  EXPECT_EQ(form, Wave64Id("wave"));
  ASSERT_EQ(riff64_FindChunkHeaderInRIFF(h, Wave64Id("data"), &size, &left), S_OK);
  EXPECT_EQ(left.QuadPart, 16u) << "72 less the padded fmt chunk and the data's header";
  EXPECT_EQ(riff64_UpdateRIFFSize(h, static_cast<DWORD>(-200), -1), ZQ_E_RENDER_SIZE) << "a negative size";

  // A header whose size does not even count itself reads as empty and the
  // walk moves on by the header alone.
  SetFilePointer(h, 40, nullptr, FILE_BEGIN);
  const ULONGLONG tiny = 3;
  const GUID fmtId = Wave64Id("fmt ");
  DWORD n = 0;
  WriteFile(h, &fmtId, 16, &n, nullptr);
  WriteFile(h, &tiny, 8, &n, nullptr);
  SetFilePointer(h, 40, nullptr, FILE_BEGIN);
  EXPECT_EQ(riff64_ReadChunkHeader(h, &form, &size), S_OK);
  EXPECT_EQ(size.QuadPart, 0u);
  CloseHandle(h);
}

// --- Files that libsndfile writes -----------------------------------------------------
// Every sample format zqvst writes, in RIFF, RF64 and Wave64 forms: the walks
// must agree with a writer that is not ours.

struct SoundFile {
  const char* name;
  int format;
  WORD bits;
};

class RiffOfSoundFiles : public ::testing::TestWithParam<SoundFile> {};

TEST_P(RiffOfSoundFiles, AreWalkedChunkByChunk) {
  const SoundFile& p = GetParam();
  zqtest::TestFolder folder("riffsnd", p.name);
  const std::string path = (folder.path() / "t.wav").string();
  constexpr int kFrames = 101, kChannels = 3;
  SF_INFO info{};
  info.samplerate = 48000;
  info.channels = kChannels;
  info.format = p.format;
  SNDFILE* sf = sf_open(path.c_str(), SFM_WRITE, &info);
  ASSERT_NE(sf, nullptr) << sf_strerror(nullptr);
  std::vector<float> frames(kFrames * kChannels, 0.25f);
  ASSERT_EQ(sf_writef_float(sf, frames.data(), kFrames), kFrames);
  sf_close(sf);

  const std::u16string wpath = ZqUtf8ToUtf16(path);
  HANDLE h = CreateFileW(wpath.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(h, INVALID_HANDLE_VALUE);
  const ULONGLONG dataBytes = static_cast<ULONGLONG>(kFrames) * kChannels * p.bits / 8;
  BYTE fmt[40] = {};
  const int major = p.format & SF_FORMAT_TYPEMASK;
  if (major == SF_FORMAT_W64) {
    ULARGE_INTEGER size{}, left{};
    GUID form{};
    ASSERT_EQ(riff64_ReadFileID(h, &left, &form), S_OK);
    EXPECT_EQ(form, Wave64Id("wave"));
    EXPECT_EQ(left.QuadPart + 40, GetFileSize(h, nullptr));
    ULARGE_INTEGER whole = left;
    ASSERT_EQ(riff64_FindChunkHeader(h, Wave64Id("fmt "), &size, &left), S_OK);
    ASSERT_EQ(riff64_ReadDataBounded(h, fmt, size.u.LowPart, 0, std::min<DWORD>(size.u.LowPart, sizeof fmt), 0), S_OK);
    ASSERT_EQ(riff64_FindChunkHeader(h, Wave64Id("data"), &size, &left), S_OK);
    EXPECT_EQ(size.QuadPart, dataBytes);
    // libsndfile leaves the last chunk unpadded; the count then runs past
    // the bound, as a walk is to, and stops at the end of the file.
    DWORD count = 0;
    riff64_SeekDataStart(h);
    EXPECT_EQ(riff64_GetNumListEntries(h, &count, &whole),
              ::GetFileSize(h, nullptr) % 8 == 0 ? S_OK : ZQ_E_READ_FILE);
    EXPECT_GE(count, 2u);
  } else if (major == SF_FORMAT_RF64) {
    DWORD size = 0, id = 0;
    EXPECT_EQ(riff_ReadFileID(h, &size, nullptr), ZQ_E_RIFF_NO_RIFF) << "an RF64 form is no RIFF form";
    ASSERT_EQ(riff_SeekDataStart(h), S_OK);
    ASSERT_EQ(riff_ReadChunkHeader(h, &id, &size), S_OK);
    EXPECT_EQ(id, ZqRiffId("ds64"));
    ULONGLONG sizes[3] = {};  // RIFF size, data size, sample count
    ASSERT_EQ(riff_ReadDataBounded(h, sizes, size, sizeof sizes), S_OK);
    EXPECT_EQ(sizes[1], dataBytes);
    ASSERT_EQ(riff_FindChunkHeader(h, ZqRiffId("fmt "), &size, nullptr), S_OK);
    ASSERT_EQ(riff_ReadDataBounded(h, fmt, size, std::min<DWORD>(size, sizeof fmt)), S_OK);
    // The data chunk's own size field says "see ds64"; a walk past it ends
    // at the end of the file.
    ASSERT_EQ(riff_FindChunkHeader(h, ZqRiffId("data"), &size, nullptr), S_OK);
    EXPECT_EQ(riff_FindChunkHeader(h, ZqRiffId("LIST"), &size, nullptr), ZQ_E_READ_FILE);
  } else {
    DWORD whole = 0, form = 0, size = 0, left = 0, count = 0;
    ASSERT_EQ(riff_ReadFileID(h, &whole, &form), S_OK);
    EXPECT_EQ(form, ZqRiffId("WAVE"));
    EXPECT_EQ(whole + 12, GetFileSize(h, nullptr));
    left = whole;
    ASSERT_EQ(riff_FindChunkHeader(h, ZqRiffId("fmt "), &size, &left), S_OK);
    ASSERT_EQ(riff_ReadDataBounded(h, fmt, size, std::min<DWORD>(size, sizeof fmt)), S_OK);
    ASSERT_EQ(riff_FindChunkHeader(h, ZqRiffId("data"), &size, &left), S_OK);
    EXPECT_EQ(size, dataBytes);
    riff_SeekDataStart(h);
    EXPECT_EQ(riff_GetNumListEntries(h, &count, &whole), S_OK);
    EXPECT_GE(count, 2u);
  }
  WORD channels = 0, bits = 0;
  std::memcpy(&channels, fmt + 2, 2);
  std::memcpy(&bits, fmt + 14, 2);
  EXPECT_EQ(channels, kChannels);
  EXPECT_EQ(bits, p.bits);
  CloseHandle(h);
}

INSTANTIATE_TEST_SUITE_P(
    Formats, RiffOfSoundFiles,
    ::testing::Values(SoundFile{"wav_s16", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 16},
                      SoundFile{"wav_s24", SF_FORMAT_WAV | SF_FORMAT_PCM_24, 24},
                      SoundFile{"wav_s32", SF_FORMAT_WAV | SF_FORMAT_PCM_32, 32},
                      SoundFile{"wav_f32", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 32},
                      SoundFile{"wav_f64", SF_FORMAT_WAV | SF_FORMAT_DOUBLE, 64},
                      SoundFile{"rf64_s24", SF_FORMAT_RF64 | SF_FORMAT_PCM_24, 24},
                      SoundFile{"rf64_f32", SF_FORMAT_RF64 | SF_FORMAT_FLOAT, 32},
                      SoundFile{"w64_s16", SF_FORMAT_W64 | SF_FORMAT_PCM_16, 16},
                      SoundFile{"w64_f64", SF_FORMAT_W64 | SF_FORMAT_DOUBLE, 64}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
