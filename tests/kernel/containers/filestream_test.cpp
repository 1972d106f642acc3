#include "kernel/containers/filestream.h"

#include <gtest/gtest.h>

#include <string>

#include "kernel/containers/streams.h"
#include "stream_test_util.h"

namespace {

using namespace zqtest;

ZqComPtr<IStream> MakeFileStream(HANDLE file) {
  ZqComPtr<IStream> s;
  EXPECT_EQ(ZqCreateStreamFromFile(file, s.Put()), S_OK);
  return s;
}

TEST(FileStream, CreationRefusesNullArgumentsAndAnswersOutOfMemory) {
  TempFile file("create");
  HANDLE h = file.OpenReadWrite();
  IStream* s = reinterpret_cast<IStream*>(1);
  EXPECT_EQ(ZqCreateStreamFromFile(nullptr, &s), E_INVALIDARG);
  EXPECT_EQ(s, nullptr);
  EXPECT_EQ(ZqCreateStreamFromFile(h, nullptr), E_INVALIDARG);

  s = reinterpret_cast<IStream*>(1);
  {
    ZqScopedAllocFailure fail(1, ZQMEMFAIL_CALLING_THREAD);
    EXPECT_EQ(ZqCreateStreamFromFile(h, &s), E_OUTOFMEMORY);
  }
  EXPECT_EQ(s, nullptr);
}

TEST(FileStream, WritesAndReadsAtItsOwnPosition) {
  TempFile file("rw");
  HANDLE h = file.OpenReadWrite();
  auto s = MakeFileStream(h);
  ExpectStreamIdentity(s.Get());

  const std::string text = "hello world";
  IoResult w = WriteFrom(s.Get(), text.data(), static_cast<ULONG>(text.size()));
  EXPECT_EQ(w.status, S_OK);
  EXPECT_EQ(w.count, text.size());
  EXPECT_EQ(SeekTo(s.Get(), 0, STREAM_SEEK_END).position, text.size()) << "the size follows the writes";

  ASSERT_EQ(SeekTo(s.Get(), 6, STREAM_SEEK_SET).status, S_OK);
  char buffer[32] = {};
  IoResult r = ReadInto(s.Get(), buffer, 100);
  EXPECT_EQ(r.status, S_OK) << "a short read at the end of the file is a success";
  EXPECT_EQ(r.count, 5u);
  EXPECT_EQ(std::string(buffer, 5), "world");
  EXPECT_EQ(Tell(s.Get()), text.size());

  r = ReadInto(s.Get(), buffer, 4);
  EXPECT_EQ(r.status, S_OK);
  EXPECT_EQ(r.count, 0u);

  // A second stream on the same handle moves the file pointer; the first
  // keeps its own position all the same.
  auto other = MakeFileStream(h);
  ASSERT_EQ(SeekTo(s.Get(), 0, STREAM_SEEK_SET).status, S_OK);
  ASSERT_EQ(SeekTo(other.Get(), 8, STREAM_SEEK_SET).status, S_OK);
  r = ReadInto(other.Get(), buffer, 3);
  EXPECT_EQ(std::string(buffer, r.count), "rld");
  r = ReadInto(s.Get(), buffer, 5);
  EXPECT_EQ(std::string(buffer, r.count), "hello");
}

TEST(FileStream, SeekRefusalsKeepThePositionAndStillGiveItOut) {
  TempFile file("seek");
  file.Fill(Pattern(100));
  HANDLE h = file.OpenReadWrite();
  auto s = MakeFileStream(h);

  EXPECT_EQ(SeekTo(s.Get(), 40, STREAM_SEEK_SET).position, 40u);
  SeekResult r = SeekTo(s.Get(), -1, STREAM_SEEK_SET);
  EXPECT_EQ(r.status, STG_E_INVALIDFUNCTION);
  EXPECT_EQ(r.position, 40u);
  r = SeekTo(s.Get(), -41, STREAM_SEEK_CUR);
  EXPECT_EQ(r.status, STG_E_INVALIDFUNCTION) << "back past the start";
  EXPECT_EQ(r.position, 40u);
  r = SeekTo(s.Get(), -40, STREAM_SEEK_CUR);
  EXPECT_EQ(r.status, S_OK);
  EXPECT_EQ(r.position, 0u);
  r = SeekTo(s.Get(), 1, STREAM_SEEK_END);
  EXPECT_EQ(r.status, STG_E_INVALIDFUNCTION) << "origin 2 needs an offset of 0 or less";
  EXPECT_EQ(r.position, 0u);
  r = SeekTo(s.Get(), -10, STREAM_SEEK_END);
  EXPECT_EQ(r.status, S_OK);
  EXPECT_EQ(r.position, 90u);
  r = SeekTo(s.Get(), -101, STREAM_SEEK_END);
  EXPECT_EQ(r.status, STG_E_INVALIDFUNCTION);
  EXPECT_EQ(r.position, 90u);
  r = SeekTo(s.Get(), 0, 3);
  EXPECT_EQ(r.status, STG_E_INVALIDFUNCTION);
  EXPECT_EQ(r.position, 90u);

  // Past the end: reading gives nothing, writing leaves a gap of zeros.
  EXPECT_EQ(SeekTo(s.Get(), 110, STREAM_SEEK_SET).status, S_OK);
  BYTE buffer[16];
  IoResult read = ReadInto(s.Get(), buffer, sizeof(buffer));
  EXPECT_EQ(read.status, S_OK);
  EXPECT_EQ(read.count, 0u);
  const BYTE tail[2] = {7, 8};
  EXPECT_EQ(WriteFrom(s.Get(), tail, 2).count, 2u);
  EXPECT_EQ(SeekTo(s.Get(), 0, STREAM_SEEK_END).position, 112u);
  ASSERT_EQ(SeekTo(s.Get(), 98, STREAM_SEEK_SET).status, S_OK);
  read = ReadInto(s.Get(), buffer, sizeof(buffer));
  ASSERT_EQ(read.count, 14u);
  EXPECT_EQ(buffer[0], Pattern(100)[98]);
  EXPECT_EQ(buffer[2], 0);
  EXPECT_EQ(buffer[11], 0);
  EXPECT_EQ(buffer[12], 7);
  EXPECT_EQ(buffer[13], 8);
}

TEST(FileStream, PositionsAndSizesBeyondFourGigabytes) {
  TempFile file("big");
  HANDLE h = file.OpenReadWrite();
  auto s = MakeFileStream(h);
  const ULONGLONG far = 5 * kGiB + 7;
  ASSERT_EQ(SeekTo(s.Get(), static_cast<LONGLONG>(far), STREAM_SEEK_SET).position, far);
  const BYTE mark[4] = {0xA1, 0xB2, 0xC3, 0xD4};
  IoResult w = WriteFrom(s.Get(), mark, 4);
  if (FAILED(w.status)) GTEST_SKIP() << "the temporary folder cannot hold a sparse file of 5 GiB";
  EXPECT_EQ(Tell(s.Get()), far + 4);
  EXPECT_EQ(SeekTo(s.Get(), 0, STREAM_SEEK_END).position, far + 4);

  // A new stream learns the 64-bit size from the file.
  auto fresh = MakeFileStream(h);
  EXPECT_EQ(SeekTo(fresh.Get(), 0, STREAM_SEEK_END).position, far + 4);
  EXPECT_EQ(SeekTo(fresh.Get(), -4, STREAM_SEEK_CUR).position, far);
  BYTE got[8] = {};
  IoResult r = ReadInto(fresh.Get(), got, 8);
  EXPECT_EQ(r.count, 4u);
  EXPECT_EQ(std::memcmp(got, mark, 4), 0);

  // Reading below 4 GiB + 1 does not alias the high position.
  ASSERT_EQ(SeekTo(fresh.Get(), static_cast<LONGLONG>(1 * kGiB + 7), STREAM_SEEK_SET).status, S_OK);
  r = ReadInto(fresh.Get(), got, 4);
  EXPECT_EQ(r.count, 4u);
  EXPECT_EQ(got[0], 0);
}

TEST(FileStream, FailuresOfTheFileBecomeStatuses) {
  TempFile file("fail");
  file.Fill(Pattern(10));
  HANDLE readOnly = file.Open(GENERIC_READ);
  auto s = MakeFileStream(readOnly);
  const BYTE data[3] = {1, 2, 3};
  IoResult w = WriteFrom(s.Get(), data, 3);
  EXPECT_EQ(w.status, E_ACCESSDENIED) << "writing through a handle without write access";
  EXPECT_EQ(w.count, 0u);
  EXPECT_EQ(Tell(s.Get()), 0u);
  EXPECT_EQ(SeekTo(s.Get(), 0, STREAM_SEEK_END).position, 10u);

  HANDLE closed = file.Open(GENERIC_READ | GENERIC_WRITE, false);
  auto c = MakeFileStream(closed);
  ASSERT_TRUE(CloseHandle(closed));
  BYTE buffer[4];
  IoResult r = ReadInto(c.Get(), buffer, 4);
  EXPECT_EQ(r.status, E_HANDLE);
  EXPECT_EQ(r.count, 0u);
  EXPECT_EQ(WriteFrom(c.Get(), data, 3).status, E_HANDLE);
  EXPECT_EQ(Tell(c.Get()), 0u);

  // Made on a handle that is already closed: there is no size to learn.
  auto late = MakeFileStream(closed);
  EXPECT_EQ(SeekTo(late.Get(), 0, STREAM_SEEK_END).position, 0u);
}

TEST(FileStream, CloneRewindsAndRereadsTheSizeButGivesNothing) {
  TempFile file("clone");
  file.Fill(Pattern(20));
  HANDLE h = file.OpenReadWrite();
  auto s = MakeFileStream(h);
  auto writer = MakeFileStream(h);
  ASSERT_EQ(SeekTo(writer.Get(), 0, STREAM_SEEK_END).position, 20u);
  const BYTE more[5] = {};
  ASSERT_EQ(WriteFrom(writer.Get(), more, 5).count, 5u);
  ASSERT_EQ(SeekTo(s.Get(), 12, STREAM_SEEK_SET).status, S_OK);
  ASSERT_EQ(SeekTo(s.Get(), 0, STREAM_SEEK_END).position, 20u) << "the size as it was learnt";

  IStream* sentinel = reinterpret_cast<IStream*>(0x1234);
  IStream* clone = sentinel;
  const LONG_PTR blocks = ZqMemory_GetLiveBlocks();
  EXPECT_EQ(s->Clone(&clone), S_OK);
  EXPECT_EQ(clone, sentinel) << "the out argument is not written";
  EXPECT_EQ(ZqMemory_GetLiveBlocks(), blocks) << "nothing is kept for the clone";
  EXPECT_EQ(Tell(s.Get()), 0u);
  EXPECT_EQ(SeekTo(s.Get(), 0, STREAM_SEEK_END).position, 25u);
}

TEST(FileStream, OffersNoStatAndLeavesTheHandleOpen) {
  TempFile file("life");
  HANDLE h = file.OpenReadWrite();
  const LONG_PTR blocks = ZqMemory_GetLiveBlocks();
  IStream* s = nullptr;
  ASSERT_EQ(ZqCreateStreamFromFile(h, &s), S_OK);
  ExpectUnofferedOperations(s);
  STATSTG stat{};
  EXPECT_EQ(s->Stat(&stat, STATFLAG_NONAME), E_NOTIMPL);
  EXPECT_EQ(s->AddRef(), 2u);
  EXPECT_EQ(s->Release(), 1u);
  EXPECT_EQ(s->Release(), 0u);
  EXPECT_EQ(ZqMemory_GetLiveBlocks(), blocks) << "Release at zero frees the object";
  const BYTE b = 1;
  DWORD n = 0;
  EXPECT_TRUE(WriteFile(h, &b, 1, &n, nullptr)) << "the handle is the caller's";
}

}  // namespace
