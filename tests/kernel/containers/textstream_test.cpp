#include "kernel/containers/textstream.h"

#include <gtest/gtest.h>

#include <string>

#include "stream_test_util.h"

namespace {

using namespace zqtest;

ZqComPtr<CZqTextStream> MakeText() {
  CZqTextStream* s = nullptr;
  EXPECT_EQ(CZqTextStream::Create(&s), S_OK);
  return ZqComPtr<CZqTextStream>::Adopt(s);
}

TEST(TextStream, NothingWorksBeforeSetUpAndNeitherStatNorCloneAfter) {
  auto s = ZqComPtr<CZqTextStream>::Adopt(new (std::nothrow) CZqTextStream());
  BYTE b[4] = {};
  ULONG n = 0;
  EXPECT_EQ(s->Read(b, 4, &n), E_UNEXPECTED);
  EXPECT_EQ(s->Write(b, 4, &n), E_UNEXPECTED);
  EXPECT_EQ(s->Init(), S_OK);
  EXPECT_EQ(s->Capacity(), 16384u);
  EXPECT_EQ(s->Init(), S_FALSE) << "a second set-up changes nothing";
  EXPECT_EQ(s->Write(b, 4, &n), S_OK);
  EXPECT_EQ(s->Read(nullptr, 1, &n), E_INVALIDARG);
  EXPECT_EQ(s->Read(b, 1, nullptr), E_INVALIDARG);
  EXPECT_EQ(s->Write(nullptr, 1, &n), E_INVALIDARG);
  STATSTG stat{};
  EXPECT_EQ(s->Stat(&stat, STATFLAG_NONAME), E_NOTIMPL);
  IStream* clone = nullptr;
  EXPECT_EQ(s->Clone(&clone), E_NOTIMPL);
}

TEST(TextStream, ReadsUpToTheCapacityIncludingUnwrittenZeros) {
  auto s = MakeText();
  EXPECT_EQ(WriteFrom(s.Get(), "abc", 3).count, 3u);
  EXPECT_EQ(s->WritePosition(), 3u);
  char buffer[10];
  std::memset(buffer, 'x', sizeof(buffer));
  IoResult r = ReadInto(s.Get(), buffer, 10);
  EXPECT_EQ(r.count, 10u) << "reads run to the capacity, not to the write position";
  EXPECT_EQ(std::string(buffer, 10), std::string("abc\0\0\0\0\0\0\0", 10));
  std::vector<BYTE> rest(20000);
  r = ReadInto(s.Get(), rest.data(), 20000);
  EXPECT_EQ(r.status, S_OK);
  EXPECT_EQ(r.count, 16384u - 10u);
  r = ReadInto(s.Get(), rest.data(), 1);
  EXPECT_EQ(r.status, 38) << "ZQ_S_TEXT_STREAM_END";
  EXPECT_EQ(r.count, 0u);
}

TEST(TextStream, GrowsToTwiceTheCapacityOrToWhatIsNeeded) {
  auto s = MakeText();
  std::vector<BYTE> full = Pattern(16384);
  ASSERT_EQ(WriteFrom(s.Get(), full.data(), 16384).count, 16384u);
  EXPECT_EQ(s->Capacity(), 16384u) << "an exact fit does not grow";
  const BYTE one = 0x77;
  EXPECT_EQ(WriteFrom(s.Get(), &one, 1).status, S_OK);
  EXPECT_EQ(s->Capacity(), 32768u);
  EXPECT_EQ(std::memcmp(s->Data(), full.data(), 16384), 0) << "the written bytes moved over";
  EXPECT_EQ(s->Data()[16384], 0x77);
  EXPECT_EQ(s->Data()[16385], 0) << "the new part is zero";
  std::vector<BYTE> big = Pattern(100000);
  ASSERT_EQ(WriteFrom(s.Get(), big.data(), 100000).count, 100000u);
  EXPECT_EQ(s->Capacity(), 116385u) << "more than twice: the size needed";
  EXPECT_EQ(s->Data()[116384], big[99999]);
}

TEST(TextStream, AFailedGrowthWritesWhatFitsAndSaysSo) {
  auto s = MakeText();
  std::vector<BYTE> lead(16380, 'a');
  ASSERT_EQ(WriteFrom(s.Get(), lead.data(), 16380).count, 16380u);
  std::vector<BYTE> more = Pattern(10);
  IoResult w;
  {
    ZqScopedAllocFailure fail(1, ZQMEMFAIL_CALLING_THREAD);
    w = WriteFrom(s.Get(), more.data(), 10);
  }
  EXPECT_EQ(w.status, E_OUTOFMEMORY);
  EXPECT_EQ(w.count, 4u);
  EXPECT_EQ(s->Capacity(), 16384u);
  EXPECT_EQ(s->WritePosition(), 16384u);
  EXPECT_EQ(std::memcmp(s->Data() + 16380, more.data(), 4), 0);
  EXPECT_EQ(WriteFrom(s.Get(), more.data() + 4, 6).status, S_OK) << "memory is back: the rest goes in";
  EXPECT_EQ(s->Capacity(), 32768u);
}

TEST(TextStream, SeekMovesTheReadPositionEvenWhenItAnswersAFailure) {
  auto s = MakeText();
  ASSERT_EQ(WriteFrom(s.Get(), "0123456789", 10).count, 10u);
  struct Case {
    LONGLONG offset;
    DWORD origin;
    HRESULT status;
    ULONGLONG position;
    char next;  // the byte read next
  } cases[] = {
      {4, STREAM_SEEK_SET, S_OK, 4, '4'},
      {2, STREAM_SEEK_CUR, S_OK, 7, '7'},  // after the byte read
      {12, STREAM_SEEK_SET, E_FAIL, 12, 0},  // beyond the write position, stored before the check
      {(1ll << 32) + 2, STREAM_SEEK_SET, S_OK, 2, '2'},  // only the low 32 bits count
      {16, STREAM_SEEK_END, E_FAIL, 16384 - 16, 0},  // origin 2 counts back from the capacity
  };
  for (const Case& c : cases) {
    SeekResult r = SeekTo(s.Get(), c.offset, c.origin);
    EXPECT_EQ(r.status, c.status) << c.offset;
    EXPECT_EQ(r.position, c.position) << c.offset;
    EXPECT_EQ(s->ReadPosition(), c.position) << c.offset;
    char next = 'x';
    EXPECT_EQ(ReadInto(s.Get(), &next, 1).count, 1u);
    EXPECT_EQ(next, c.next) << c.offset;
  }
  SeekResult r = SeekTo(s.Get(), 0, 3, 99);
  EXPECT_EQ(r.status, STG_E_INVALIDFUNCTION);
  EXPECT_EQ(r.position, 99u);
  EXPECT_EQ(s->ReadPosition(), 16384u - 15u) << "an unknown origin does not move";
}

}  // namespace
