#include "kernel/containers/memstream.h"

#include <gtest/gtest.h>

#include "kernel/containers/streams.h"
#include "stream_test_util.h"
#include "tests/kernel/fault_injection.h"

namespace {

using namespace zqtest;

ZqComPtr<IStream> MakeMem(void* data, ULONGLONG capacity, ULONGLONG length, BOOL copy = FALSE) {
  ZqComPtr<IStream> s;
  EXPECT_EQ(ZqCreateStreamFromMemory64(data, capacity, length, s.Put(), copy), S_OK);
  return s;
}

ULONGLONG Length(IStream* s) {
  STATSTG stat;
  EXPECT_EQ(s->Stat(&stat, STATFLAG_NONAME), S_OK);
  return stat.cbSize.QuadPart;
}

TEST(MemStream, CreationRefusesNullDataAndWideCopies) {
  IStream* s = reinterpret_cast<IStream*>(1);
  EXPECT_EQ(ZqCreateStreamFromMemory(nullptr, 8, 0, &s, FALSE), E_INVALIDARG);
  EXPECT_EQ(s, nullptr);
  BYTE data[8] = {};
  EXPECT_EQ(ZqCreateStreamFromMemory64(data, (1ull << 32) + 8, 8, &s, TRUE), E_FAIL)
      << "a copy needs a capacity whose high word is 0";
}

TEST(MemStream, ACopyIsTheStreamsOwnAndWithoutOneTheCallersMemoryIsUsed) {
  for (BOOL copy : {TRUE, FALSE}) {
    std::vector<BYTE> block = Pattern(64);
    auto s = MakeMem(block.data(), 64, 32, copy);
    auto* mem = static_cast<CZqMemStream*>(s.Get());
    EXPECT_EQ(mem->OwnsData(), copy);
    EXPECT_EQ(mem->Data() != block.data(), copy);
    block[0] = 0;
    BYTE b = 0xEE;
    EXPECT_EQ(ReadInto(s.Get(), &b, 1).count, 1u);
    EXPECT_EQ(b, copy ? 1 : 0) << "reads the copy, or the caller's block";
    ASSERT_EQ(SeekTo(s.Get(), 40, STREAM_SEEK_SET).status, S_OK) << "past the length, within the capacity";
    EXPECT_EQ(WriteFrom(s.Get(), &b, 1).count, 1u);
    EXPECT_EQ(block[40], copy ? Pattern(64)[40] : b);
  }
}

TEST(MemStream, WritePastTheLengthZeroesTheGapAndCutsAtTheCapacity) {
  std::vector<BYTE> block(100, 0xAA);
  auto s = MakeMem(block.data(), 100, 10);
  ASSERT_EQ(SeekTo(s.Get(), 50, STREAM_SEEK_SET).status, S_OK);
  const BYTE five[5] = {1, 2, 3, 4, 5};
  EXPECT_EQ(WriteFrom(s.Get(), five, 5).count, 5u);
  EXPECT_TRUE(std::all_of(&block[10], &block[50], [](BYTE b) { return b == 0; }));
  EXPECT_EQ(block[9], 0xAA) << "below the length nothing is touched";
  EXPECT_EQ(block[55], 0xAA) << "beyond the write nothing is touched";
  EXPECT_EQ(Length(s.Get()), 55u);
  ASSERT_EQ(SeekTo(s.Get(), 98, STREAM_SEEK_SET).status, S_OK);
  IoResult w = WriteFrom(s.Get(), five, 5);
  EXPECT_EQ(w.status, S_OK);
  EXPECT_EQ(w.count, 2u) << "cut to the capacity";
  w = WriteFrom(s.Get(), five, 5);
  EXPECT_EQ(w.status, S_FALSE) << "at the capacity";
  EXPECT_EQ(w.count, 0u);
  EXPECT_EQ(Length(s.Get()), 100u);
}

TEST(MemStream, ReadStopsAtTheLength) {
  std::vector<BYTE> block = Pattern(32);
  auto s = MakeMem(block.data(), 32, 20);
  BYTE buffer[32] = {};
  struct Step {
    ULONGLONG at;
    HRESULT status;
    ULONG count;
  } steps[] = {{0, S_OK, 15}, {15, S_OK, 5}, {20, S_FALSE, 0}, {25, S_FALSE, 0}};  // a short read is a success
  for (const Step& st : steps) {
    ASSERT_EQ(SeekTo(s.Get(), static_cast<LONGLONG>(st.at), STREAM_SEEK_SET).status, S_OK);
    IoResult r = ReadInto(s.Get(), buffer, 15);
    EXPECT_EQ(r.status, st.status) << "at " << st.at;
    EXPECT_EQ(r.count, st.count) << "at " << st.at;
  }
  EXPECT_EQ(buffer[4], block[19]);
}

TEST(MemStream, SeekStaysWithinTheCapacityAndMeasuresTheEndFromTheLength) {
  BYTE block[4] = {};
  const LONGLONG kCap = 6 * kGiB, kLen = 5 * kGiB;  // only positions: no byte beyond the block is touched
  auto s = MakeMem(block, kCap, kLen);
  struct Case {
    LONGLONG offset;
    DWORD origin;
    HRESULT status;
    LONGLONG position;  // where the stream stands afterwards
  } cases[] = {
      {kCap, STREAM_SEEK_SET, S_OK, kCap},
      {kCap + 1, STREAM_SEEK_SET, STG_E_INVALIDFUNCTION, kCap},
      {1, STREAM_SEEK_CUR, STG_E_INVALIDFUNCTION, kCap},
      {-1, STREAM_SEEK_SET, STG_E_INVALIDFUNCTION, kCap},
      {-kCap - 1, STREAM_SEEK_CUR, STG_E_INVALIDFUNCTION, kCap},
      {-static_cast<LONGLONG>(kGiB), STREAM_SEEK_CUR, S_OK, kLen},
      {0, STREAM_SEEK_END, S_OK, kLen},
      {-kLen, STREAM_SEEK_END, S_OK, 0},
      {1, STREAM_SEEK_END, STG_E_INVALIDFUNCTION, 0},  // origin 2 needs an offset of 0 or less
      {-kLen - 1, STREAM_SEEK_END, STG_E_INVALIDFUNCTION, 0},
      {0, 7, STG_E_INVALIDFUNCTION, 0},
      {kLen + 3, STREAM_SEEK_SET, S_OK, kLen + 3},
      {INT64_MIN, STREAM_SEEK_CUR, STG_E_INVALIDFUNCTION, kLen + 3},
      {INT64_MAX, STREAM_SEEK_CUR, STG_E_INVALIDFUNCTION, kLen + 3},
  };
  for (const Case& c : cases) {
    SeekResult r = SeekTo(s.Get(), c.offset, c.origin);
    EXPECT_EQ(r.status, c.status) << c.offset << " from " << c.origin;
    EXPECT_EQ(r.position, static_cast<ULONGLONG>(c.position)) << c.offset << " from " << c.origin;
  }
  BYTE b;
  EXPECT_EQ(ReadInto(s.Get(), &b, 1).status, S_FALSE) << "past the length, within the capacity";
}

TEST(MemStream, StatIsZeroedButForTheLengthWhateverTheFlag) {
  BYTE block[16];
  auto s = MakeMem(block, 16, 12);
  for (DWORD flag : {static_cast<DWORD>(STATFLAG_DEFAULT), static_cast<DWORD>(STATFLAG_NONAME)}) {
    STATSTG stat, zero;
    std::memset(&stat, 0x5A, sizeof(stat));
    std::memset(&zero, 0, sizeof(zero));
    zero.cbSize.QuadPart = 12;
    ASSERT_EQ(s->Stat(&stat, flag), S_OK);
    EXPECT_EQ(std::memcmp(&stat, &zero, sizeof(stat)), 0) << "flag " << flag;
  }
  EXPECT_EQ(s->Stat(nullptr, STATFLAG_NONAME), STG_E_INVALIDPOINTER);
}

TEST(MemStream, CloneRewindsGivesNothingAndDropsOwnershipWithoutLeaking) {
  std::vector<BYTE> source = Pattern(16);
  const LONG_PTR before = ZqMemory_GetLiveBlocks();
  IStream* s = nullptr;
  ASSERT_EQ(ZqCreateStreamFromMemory(source.data(), 16, 16, &s, TRUE), S_OK);
  auto* mem = static_cast<CZqMemStream*>(s);
  const BYTE* copy = mem->Data();
  ASSERT_EQ(SeekTo(s, 9, STREAM_SEEK_SET).status, S_OK);
  IStream* sentinel = reinterpret_cast<IStream*>(0x4321);
  IStream* clone = sentinel;
  EXPECT_EQ(s->Clone(&clone), S_OK);
  EXPECT_EQ(clone, sentinel) << "the out argument is not written";
  EXPECT_FALSE(mem->OwnsData()) << "the stream stopped counting as owner";
  EXPECT_EQ(mem->Data(), copy) << "it keeps working on the same block";
  EXPECT_EQ(Tell(s), 0u);
  EXPECT_EQ(s->Clone(&clone), S_OK) << "a second Clone, over a block it no longer owns";
  {
    ZqScopedAllocFailure fail(1, ZQMEMFAIL_CALLING_THREAD);
    EXPECT_EQ(s->Clone(&clone), E_OUTOFMEMORY);
  }
  EXPECT_EQ(s->Release(), 0u);
  EXPECT_EQ(ZqMemory_GetLiveBlocks(), before) << "object and block are gone";
}

}  // namespace
