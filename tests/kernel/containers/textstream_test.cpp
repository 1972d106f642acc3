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

TEST(TextStream, NothingWorksBeforeSetUp) {
  CZqTextStream* raw = new (std::nothrow) CZqTextStream();
  ASSERT_NE(raw, nullptr);
  auto s = ZqComPtr<CZqTextStream>::Adopt(raw);
  BYTE b[4] = {};
  ULONG n = 0;
  EXPECT_EQ(s->Read(b, 4, &n), E_UNEXPECTED);
  EXPECT_EQ(s->Write(b, 4, &n), E_UNEXPECTED);
  EXPECT_EQ(s->Init(), S_OK);
  EXPECT_EQ(s->Capacity(), 16384u);
  EXPECT_EQ(s->Init(), S_FALSE) << "a second set-up changes nothing";
  EXPECT_EQ(s->Write(b, 4, &n), S_OK);

  CZqTextStream* none = reinterpret_cast<CZqTextStream*>(1);
  {
    ZqScopedAllocFailure fail(2, ZQMEMFAIL_CALLING_THREAD);  // the buffer, after the object
    EXPECT_EQ(CZqTextStream::Create(&none), E_OUTOFMEMORY);
  }
  EXPECT_EQ(none, nullptr);
  EXPECT_EQ(CZqTextStream::Create(nullptr), E_INVALIDARG);
}

TEST(TextStream, ReadsUpToTheCapacityIncludingUnwrittenZeros) {
  auto s = MakeText();
  const std::string text = "abc";
  IoResult w = WriteFrom(s.Get(), text.data(), 3);
  EXPECT_EQ(w.status, S_OK);
  EXPECT_EQ(w.count, 3u);
  EXPECT_EQ(s->WritePosition(), 3u);

  char buffer[10];
  std::memset(buffer, 'x', sizeof(buffer));
  IoResult r = ReadInto(s.Get(), buffer, 10);
  EXPECT_EQ(r.status, S_OK);
  EXPECT_EQ(r.count, 10u) << "reads run to the capacity, not to the write position";
  EXPECT_EQ(std::string(buffer, 3), "abc");
  for (int i = 3; i < 10; ++i) EXPECT_EQ(buffer[i], 0) << i;

  // To the end of the capacity, then the end status.
  std::vector<BYTE> rest(20000);
  r = ReadInto(s.Get(), rest.data(), 20000);
  EXPECT_EQ(r.status, S_OK);
  EXPECT_EQ(r.count, 16384u - 10u);
  r = ReadInto(s.Get(), rest.data(), 1);
  EXPECT_EQ(r.status, ZQ_S_TEXT_STREAM_END);
  EXPECT_EQ(r.status, 38);
  EXPECT_EQ(r.count, 0u);

  ULONG n = 0;
  EXPECT_EQ(s->Read(nullptr, 1, &n), E_INVALIDARG);
  EXPECT_EQ(s->Read(buffer, 1, nullptr), E_INVALIDARG);
  EXPECT_EQ(s->Write(nullptr, 1, &n), E_INVALIDARG);
}

TEST(TextStream, GrowsToTwiceTheCapacityOrToWhatIsNeeded) {
  auto s = MakeText();
  std::vector<BYTE> full = Pattern(16384);
  ASSERT_EQ(WriteFrom(s.Get(), full.data(), 16384).count, 16384u);
  EXPECT_EQ(s->Capacity(), 16384u) << "an exact fit does not grow";
  const BYTE one = 0x77;
  IoResult w = WriteFrom(s.Get(), &one, 1);
  EXPECT_EQ(w.status, S_OK);
  EXPECT_EQ(s->Capacity(), 32768u);
  EXPECT_EQ(s->WritePosition(), 16385u);
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
  EXPECT_EQ(s->Data()[16379], 'a');
  EXPECT_EQ(std::memcmp(s->Data() + 16380, more.data(), 4), 0);
  w = WriteFrom(s.Get(), more.data() + 4, 6);
  EXPECT_EQ(w.status, S_OK) << "memory is back: the rest goes in";
  EXPECT_EQ(s->Capacity(), 32768u);
}

TEST(TextStream, SeekMovesTheReadPositionEvenWhenItAnswersAFailure) {
  auto s = MakeText();
  const std::string text = "0123456789";
  ASSERT_EQ(WriteFrom(s.Get(), text.data(), 10).count, 10u);

  SeekResult r = SeekTo(s.Get(), 4, STREAM_SEEK_SET);
  EXPECT_EQ(r.status, S_OK);
  EXPECT_EQ(r.position, 4u);
  r = SeekTo(s.Get(), 3, STREAM_SEEK_CUR);
  EXPECT_EQ(r.status, S_OK);
  EXPECT_EQ(r.position, 7u);
  char c = 0;
  EXPECT_EQ(ReadInto(s.Get(), &c, 1).count, 1u);
  EXPECT_EQ(c, '7');

  r = SeekTo(s.Get(), 12, STREAM_SEEK_SET);
  EXPECT_EQ(r.status, E_FAIL) << "beyond the write position";
  EXPECT_EQ(r.position, 12u);
  EXPECT_EQ(s->ReadPosition(), 12u) << "the position was stored before the check";
  c = 'x';
  EXPECT_EQ(ReadInto(s.Get(), &c, 1).count, 1u);
  EXPECT_EQ(c, 0);

  // Origin 2 counts back from the capacity.
  r = SeekTo(s.Get(), 16, STREAM_SEEK_END);
  EXPECT_EQ(r.status, E_FAIL);
  EXPECT_EQ(r.position, 16384u - 16u);
  BYTE tail[32];
  IoResult read = ReadInto(s.Get(), tail, 32);
  EXPECT_EQ(read.count, 16u);
  EXPECT_EQ(ReadInto(s.Get(), tail, 1).status, ZQ_S_TEXT_STREAM_END);

  // Only the low 32 bits of the offset count.
  r = SeekTo(s.Get(), (1ll << 32) + 2, STREAM_SEEK_SET);
  EXPECT_EQ(r.status, S_OK);
  EXPECT_EQ(r.position, 2u);

  r = SeekTo(s.Get(), 0, 3, 99);
  EXPECT_EQ(r.status, STG_E_INVALIDFUNCTION);
  EXPECT_EQ(r.position, 99u);
  EXPECT_EQ(s->ReadPosition(), 2u);
}

TEST(TextStream, OffersNeitherStatNorCloneAndFreesItsBuffer) {
  const LONG_PTR before = ZqMemory_GetLiveBlocks();
  CZqTextStream* s = nullptr;
  ASSERT_EQ(CZqTextStream::Create(&s), S_OK);
  ExpectStreamIdentity(s);
  ExpectUnofferedOperations(s);
  STATSTG stat{};
  EXPECT_EQ(s->Stat(&stat, STATFLAG_NONAME), E_NOTIMPL);
  IStream* clone = nullptr;
  EXPECT_EQ(s->Clone(&clone), E_NOTIMPL);
  std::vector<BYTE> big(40000);
  ULONG n = 0;
  EXPECT_EQ(s->Write(big.data(), 40000, &n), S_OK);
  EXPECT_EQ(s->AddRef(), 2u);
  EXPECT_EQ(s->Release(), 1u);
  EXPECT_EQ(s->Release(), 0u);
  EXPECT_EQ(ZqMemory_GetLiveBlocks(), before);
}

}  // namespace
