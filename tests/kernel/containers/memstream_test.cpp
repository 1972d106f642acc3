#include "kernel/containers/memstream.h"

#include <gtest/gtest.h>

#include "kernel/containers/streams.h"
#include "stream_test_util.h"
#include "tests/kernel/fault_injection.h"

namespace {

using namespace zqtest;

ZqComPtr<IStream> MakeMem(void* data, ULONGLONG capacity, ULONGLONG length, BOOL copy) {
  ZqComPtr<IStream> s;
  EXPECT_EQ(ZqCreateStreamFromMemory64(data, capacity, length, s.Put(), copy), S_OK);
  return s;
}

TEST(MemStream, CreationRefusesNullArgumentsAndWideCopies) {
  BYTE data[8] = {};
  IStream* s = reinterpret_cast<IStream*>(1);
  EXPECT_EQ(ZqCreateStreamFromMemory(nullptr, 8, 0, &s, FALSE), E_INVALIDARG);
  EXPECT_EQ(s, nullptr);
  EXPECT_EQ(ZqCreateStreamFromMemory(data, 8, 0, nullptr, FALSE), E_INVALIDARG);
  s = reinterpret_cast<IStream*>(1);
  EXPECT_EQ(ZqCreateStreamFromMemory64(data, (1ull << 32) + 8, 8, &s, TRUE), E_FAIL)
      << "a copy needs a capacity whose high word is 0";
  EXPECT_EQ(s, nullptr);
}

TEST(MemStream, CopyOwnsItsBlockAndFreesItUnderEveryAllocationFailure) {
  std::vector<BYTE> source = Pattern(64);
  const LONG_PTR before = ZqMemory_GetLiveBlocks();
  LONG points = ZqForEachAllocFailure(
      [] { return static_cast<IStream*>(nullptr); },
      [&](IStream*& s) { return ZqCreateStreamFromMemory(source.data(), 64, 32, &s, TRUE); },
      [&](IStream*& s, const ZqFaultRun& run) {
        if (run.failed) {
          EXPECT_EQ(run.status, E_OUTOFMEMORY) << "allocation " << run.n;
          EXPECT_EQ(s, nullptr);
        } else {
          ASSERT_EQ(run.status, S_OK);
          s->Release();
        }
        EXPECT_EQ(ZqMemory_GetLiveBlocks(), before) << "allocation " << run.n;
      });
  EXPECT_EQ(points, 2) << "the object and the copy";

  ZqComPtr<IStream> s;
  ASSERT_EQ(ZqCreateStreamFromMemory(source.data(), 64, 32, s.Put(), TRUE), S_OK);
  auto* mem = static_cast<CZqMemStream*>(s.Get());
  EXPECT_TRUE(mem->OwnsData());
  EXPECT_NE(mem->Data(), source.data());
  source[0] = 0;
  BYTE b = 0;
  EXPECT_EQ(ReadInto(s.Get(), &b, 1).count, 1u);
  EXPECT_EQ(b, 1) << "the stream reads its copy";
  ASSERT_EQ(SeekTo(s.Get(), 40, STREAM_SEEK_SET).status, S_OK) << "past the length, within the capacity";
  EXPECT_EQ(WriteFrom(s.Get(), &b, 1).count, 1u);
  EXPECT_EQ(source[40], Pattern(64)[40]) << "writes go to the copy";
}

TEST(MemStream, WithoutCopyWorksOnTheCallersMemory) {
  std::vector<BYTE> block(16, 0xEE);
  auto s = MakeMem(block.data(), 16, 0, FALSE);
  EXPECT_FALSE(static_cast<CZqMemStream*>(s.Get())->OwnsData());
  const BYTE abc[3] = {'a', 'b', 'c'};
  EXPECT_EQ(WriteFrom(s.Get(), abc, 3).count, 3u);
  EXPECT_EQ(block[0], 'a');
  EXPECT_EQ(block[2], 'c');
  EXPECT_EQ(block[3], 0xEE);
}

TEST(MemStream, WritePastTheLengthZeroesTheGapAndCutsAtTheCapacity) {
  std::vector<BYTE> block(100, 0xAA);
  auto s = MakeMem(block.data(), 100, 10, FALSE);
  ASSERT_EQ(SeekTo(s.Get(), 50, STREAM_SEEK_SET).status, S_OK);
  const BYTE five[5] = {1, 2, 3, 4, 5};
  IoResult w = WriteFrom(s.Get(), five, 5);
  EXPECT_EQ(w.status, S_OK);
  EXPECT_EQ(w.count, 5u);
  for (int i = 10; i < 50; ++i) ASSERT_EQ(block[i], 0) << "byte " << i;
  EXPECT_EQ(block[9], 0xAA) << "below the length nothing is touched";
  EXPECT_EQ(block[50], 1);
  EXPECT_EQ(block[55], 0xAA) << "beyond the write nothing is touched";
  STATSTG stat;
  ASSERT_EQ(s->Stat(&stat, STATFLAG_NONAME), S_OK);
  EXPECT_EQ(stat.cbSize.QuadPart, 55u);

  ASSERT_EQ(SeekTo(s.Get(), 98, STREAM_SEEK_SET).status, S_OK);
  w = WriteFrom(s.Get(), five, 5);
  EXPECT_EQ(w.status, S_OK);
  EXPECT_EQ(w.count, 2u) << "cut to the capacity";
  EXPECT_EQ(Tell(s.Get()), 100u);
  w = WriteFrom(s.Get(), five, 5);
  EXPECT_EQ(w.status, S_FALSE) << "at the capacity";
  EXPECT_EQ(w.count, 0u);
  ASSERT_EQ(s->Stat(&stat, STATFLAG_NONAME), S_OK);
  EXPECT_EQ(stat.cbSize.QuadPart, 100u);
}

TEST(MemStream, ReadStopsAtTheLength) {
  std::vector<BYTE> block = Pattern(32);
  auto s = MakeMem(block.data(), 32, 20, FALSE);
  BYTE buffer[32] = {};
  IoResult r = ReadInto(s.Get(), buffer, 15);
  EXPECT_EQ(r.status, S_OK);
  EXPECT_EQ(r.count, 15u);
  r = ReadInto(s.Get(), buffer, 15);
  EXPECT_EQ(r.status, S_OK) << "a short read is a success";
  EXPECT_EQ(r.count, 5u);
  EXPECT_EQ(buffer[4], block[19]);
  r = ReadInto(s.Get(), buffer, 15);
  EXPECT_EQ(r.status, S_FALSE);
  EXPECT_EQ(r.count, 0u);
  ASSERT_EQ(SeekTo(s.Get(), 25, STREAM_SEEK_SET).status, S_OK);
  r = ReadInto(s.Get(), buffer, 1);
  EXPECT_EQ(r.status, S_FALSE) << "past the length, though within the capacity";
  EXPECT_EQ(r.count, 0u);
}

TEST(MemStream, SeekStaysWithinTheCapacityAndMeasuresTheEndFromTheLength) {
  std::vector<BYTE> block(100);
  auto s = MakeMem(block.data(), 100, 30, FALSE);
  EXPECT_EQ(SeekTo(s.Get(), 100, STREAM_SEEK_SET).position, 100u);
  SeekResult r = SeekTo(s.Get(), 101, STREAM_SEEK_SET);
  EXPECT_EQ(r.status, STG_E_INVALIDFUNCTION);
  EXPECT_EQ(r.position, 100u) << "refused: the position stays";
  r = SeekTo(s.Get(), -101, STREAM_SEEK_CUR);
  EXPECT_EQ(r.status, STG_E_INVALIDFUNCTION);
  r = SeekTo(s.Get(), -1, STREAM_SEEK_SET);
  EXPECT_EQ(r.status, STG_E_INVALIDFUNCTION);
  EXPECT_EQ(SeekTo(s.Get(), -60, STREAM_SEEK_CUR).position, 40u);
  EXPECT_EQ(SeekTo(s.Get(), 0, STREAM_SEEK_END).position, 30u);
  EXPECT_EQ(SeekTo(s.Get(), -30, STREAM_SEEK_END).position, 0u);
  r = SeekTo(s.Get(), 1, STREAM_SEEK_END);
  EXPECT_EQ(r.status, STG_E_INVALIDFUNCTION) << "origin 2 needs an offset of 0 or less";
  r = SeekTo(s.Get(), -31, STREAM_SEEK_END);
  EXPECT_EQ(r.status, STG_E_INVALIDFUNCTION);
  EXPECT_EQ(SeekTo(s.Get(), 0, 7).status, STG_E_INVALIDFUNCTION);
}

TEST(MemStream, SixtyFourBitPositionsOverTheCallersMemory) {
  // Only positions are exercised: no byte beyond the real block is touched.
  BYTE block[4] = {};
  const ULONGLONG capacity = 6 * kGiB;
  const ULONGLONG length = 5 * kGiB;
  auto s = MakeMem(block, capacity, length, FALSE);
  EXPECT_EQ(SeekTo(s.Get(), 0, STREAM_SEEK_END).position, length);
  EXPECT_EQ(SeekTo(s.Get(), -1, STREAM_SEEK_END).position, length - 1);
  EXPECT_EQ(SeekTo(s.Get(), static_cast<LONGLONG>(kGiB) + 1, STREAM_SEEK_CUR).position, capacity)
      << "up to the capacity, past the length";
  SeekResult r = SeekTo(s.Get(), 1, STREAM_SEEK_CUR);
  EXPECT_EQ(r.status, STG_E_INVALIDFUNCTION);
  EXPECT_EQ(r.position, capacity);
  r = SeekTo(s.Get(), static_cast<LONGLONG>(capacity) + 1, STREAM_SEEK_SET);
  EXPECT_EQ(r.status, STG_E_INVALIDFUNCTION);
  EXPECT_EQ(SeekTo(s.Get(), static_cast<LONGLONG>(length + 3), STREAM_SEEK_SET).position, length + 3);
  BYTE b;
  IoResult read = ReadInto(s.Get(), &b, 1);
  EXPECT_EQ(read.status, S_FALSE);
  EXPECT_EQ(read.count, 0u);
  STATSTG stat;
  ASSERT_EQ(s->Stat(&stat, STATFLAG_NONAME), S_OK);
  EXPECT_EQ(stat.cbSize.QuadPart, length);
  EXPECT_EQ(SeekTo(s.Get(), INT64_MIN, STREAM_SEEK_CUR).status, STG_E_INVALIDFUNCTION);
  EXPECT_EQ(SeekTo(s.Get(), INT64_MAX, STREAM_SEEK_CUR).status, STG_E_INVALIDFUNCTION);
  EXPECT_EQ(Tell(s.Get()), length + 3);
}

TEST(MemStream, StatIsZeroedButForTheLengthWhateverTheFlag) {
  BYTE block[16];
  auto s = MakeMem(block, 16, 12, FALSE);
  for (DWORD flag : {static_cast<DWORD>(STATFLAG_DEFAULT), static_cast<DWORD>(STATFLAG_NONAME)}) {
    STATSTG stat;
    std::memset(&stat, 0x5A, sizeof(stat));
    ASSERT_EQ(s->Stat(&stat, flag), S_OK);
    EXPECT_EQ(stat.pwcsName, nullptr) << "flag " << flag;
    EXPECT_EQ(stat.type, 0u);
    EXPECT_EQ(stat.cbSize.QuadPart, 12u);
    EXPECT_EQ(stat.mtime.dwLowDateTime, 0u);
    EXPECT_EQ(stat.grfMode, 0u);
    EXPECT_TRUE(IsEqualGUID(stat.clsid, GUID_NULL));
    EXPECT_EQ(stat.reserved, 0u);
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
  BYTE b = 0;
  EXPECT_EQ(ReadInto(s, &b, 1).count, 1u);
  EXPECT_EQ(b, source[0]);
  EXPECT_EQ(s->Clone(&clone), S_OK) << "a second Clone, over a block it no longer owns";

  {
    ZqScopedAllocFailure fail(1, ZQMEMFAIL_CALLING_THREAD);
    EXPECT_EQ(s->Clone(&clone), E_OUTOFMEMORY);
  }
  EXPECT_EQ(s->Release(), 0u);
  EXPECT_EQ(ZqMemory_GetLiveBlocks(), before) << "object and block are gone";
}

TEST(MemStream, IdentityCountingAndUnofferedOperations) {
  BYTE block[4];
  const LONG_PTR before = ZqMemory_GetLiveBlocks();
  IStream* s = nullptr;
  ASSERT_EQ(ZqCreateStreamFromMemory(block, 4, 4, &s, FALSE), S_OK);
  ExpectStreamIdentity(s);
  ExpectUnofferedOperations(s);
  EXPECT_EQ(s->AddRef(), 2u);
  EXPECT_EQ(s->Release(), 1u);
  EXPECT_EQ(s->Release(), 0u);
  EXPECT_EQ(ZqMemory_GetLiveBlocks(), before);
}

}  // namespace
