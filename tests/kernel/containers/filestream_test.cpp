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

TEST(FileStream, EachStreamKeepsItsOwnPositionOnTheSharedHandle) {
  TempFile file("rw");
  HANDLE h = file.OpenReadWrite();
  auto s = MakeFileStream(h);
  EXPECT_EQ(ZqCreateStreamFromFile(nullptr, s.Put()), E_INVALIDARG);
  s = MakeFileStream(h);
  const std::string text = "hello world";
  EXPECT_EQ(WriteFrom(s.Get(), text.data(), static_cast<ULONG>(text.size())).count, text.size());
  EXPECT_EQ(SeekTo(s.Get(), 0, STREAM_SEEK_END).position, text.size()) << "the size follows the writes";
  ASSERT_EQ(SeekTo(s.Get(), 6, STREAM_SEEK_SET).status, S_OK);
  char buffer[32] = {};
  IoResult r = ReadInto(s.Get(), buffer, 100);
  EXPECT_EQ(r.status, S_OK) << "a short read at the end of the file is a success";
  EXPECT_EQ(std::string(buffer, r.count), "world");
  r = ReadInto(s.Get(), buffer, 4);
  EXPECT_EQ(r.status, S_OK);
  EXPECT_EQ(r.count, 0u);
  // A second stream moves the file pointer; the first keeps its own position.
  auto other = MakeFileStream(h);
  ASSERT_EQ(SeekTo(s.Get(), 0, STREAM_SEEK_SET).status, S_OK);
  ASSERT_EQ(SeekTo(other.Get(), 8, STREAM_SEEK_SET).status, S_OK);
  r = ReadInto(other.Get(), buffer, 3);
  EXPECT_EQ(std::string(buffer, r.count), "rld");
  r = ReadInto(s.Get(), buffer, 5);
  EXPECT_EQ(std::string(buffer, r.count), "hello");
}

TEST(FileStream, SeekRefusalsKeepThePositionAndWritesPastTheEndLeaveZeros) {
  TempFile file("seek");
  file.Fill(Pattern(100));
  auto s = MakeFileStream(file.OpenReadWrite());
  struct Case { LONGLONG offset; DWORD origin; HRESULT status; ULONGLONG position; } cases[] = {
      {40, STREAM_SEEK_SET, S_OK, 40},
      {-1, STREAM_SEEK_SET, STG_E_INVALIDFUNCTION, 40},
      {-41, STREAM_SEEK_CUR, STG_E_INVALIDFUNCTION, 40},  // back past the start
      {-40, STREAM_SEEK_CUR, S_OK, 0},
      {1, STREAM_SEEK_END, STG_E_INVALIDFUNCTION, 0},  // origin 2 needs an offset of 0 or less
      {-10, STREAM_SEEK_END, S_OK, 90},
      {-101, STREAM_SEEK_END, STG_E_INVALIDFUNCTION, 90},
      {0, 3, STG_E_INVALIDFUNCTION, 90},
      {110, STREAM_SEEK_SET, S_OK, 110},
  };
  for (const Case& c : cases) {
    SeekResult r = SeekTo(s.Get(), c.offset, c.origin);
    EXPECT_EQ(r.status, c.status) << c.offset << " from " << c.origin;
    EXPECT_EQ(r.position, c.position) << c.offset << " from " << c.origin;
  }
  BYTE buffer[16];
  EXPECT_EQ(ReadInto(s.Get(), buffer, sizeof(buffer)).count, 0u) << "nothing to read past the end";
  const BYTE tail[2] = {7, 8};
  EXPECT_EQ(WriteFrom(s.Get(), tail, 2).count, 2u);
  ASSERT_EQ(SeekTo(s.Get(), 98, STREAM_SEEK_SET).status, S_OK);
  ASSERT_EQ(ReadInto(s.Get(), buffer, sizeof(buffer)).count, 14u);
  const BYTE expected[14] = {Pattern(100)[98], Pattern(100)[99], 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7, 8};
  EXPECT_EQ(std::memcmp(buffer, expected, 14), 0);
}

TEST(FileStream, PositionsAndSizesBeyondFourGigabytes) {
  TempFile file("big");
  HANDLE h = file.OpenReadWrite();
  auto s = MakeFileStream(h);
  const ULONGLONG far = 5 * kGiB + 7;
  ASSERT_EQ(SeekTo(s.Get(), static_cast<LONGLONG>(far), STREAM_SEEK_SET).position, far);
  const BYTE mark[4] = {0xA1, 0xB2, 0xC3, 0xD4};
  if (FAILED(WriteFrom(s.Get(), mark, 4).status)) GTEST_SKIP() << "no room for a sparse file of 5 GiB";
  // A new stream learns the 64-bit size from the file.
  auto fresh = MakeFileStream(h);
  EXPECT_EQ(SeekTo(fresh.Get(), 0, STREAM_SEEK_END).position, far + 4);
  EXPECT_EQ(SeekTo(fresh.Get(), -4, STREAM_SEEK_CUR).position, far);
  BYTE got[8] = {};
  EXPECT_EQ(ReadInto(fresh.Get(), got, 8).count, 4u);
  EXPECT_EQ(std::memcmp(got, mark, 4), 0);
  // Reading below 4 GiB + 1 does not alias the high position.
  ASSERT_EQ(SeekTo(fresh.Get(), static_cast<LONGLONG>(1 * kGiB + 7), STREAM_SEEK_SET).status, S_OK);
  EXPECT_EQ(ReadInto(fresh.Get(), got, 4).count, 4u);
  EXPECT_EQ(got[0], 0);
}

TEST(FileStream, FailuresOfTheFileBecomeStatuses) {
  TempFile file("fail");
  file.Fill(Pattern(10));
  auto s = MakeFileStream(file.Open(GENERIC_READ));
  const BYTE data[3] = {1, 2, 3};
  IoResult w = WriteFrom(s.Get(), data, 3);
  EXPECT_EQ(w.status, E_ACCESSDENIED) << "writing through a handle without write access";
  EXPECT_EQ(w.count, 0u);
  EXPECT_EQ(Tell(s.Get()), 0u);
  STATSTG stat{};
  EXPECT_EQ(s->Stat(&stat, STATFLAG_NONAME), E_NOTIMPL);

  HANDLE closed = file.Open(GENERIC_READ | GENERIC_WRITE, false);
  auto c = MakeFileStream(closed);
  ASSERT_TRUE(CloseHandle(closed));
  BYTE buffer[4];
  IoResult r = ReadInto(c.Get(), buffer, 4);
  EXPECT_EQ(r.status, E_HANDLE);
  EXPECT_EQ(r.count, 0u);
  EXPECT_EQ(WriteFrom(c.Get(), data, 3).status, E_HANDLE);
  EXPECT_EQ(Tell(c.Get()), 0u);
  auto late = MakeFileStream(closed);
  EXPECT_EQ(SeekTo(late.Get(), 0, STREAM_SEEK_END).position, 0u) << "a closed handle has no size to learn";
}

TEST(FileStream, CloneRewindsAndRereadsTheSizeButGivesNothing) {
  TempFile file("clone");
  file.Fill(Pattern(20));
  HANDLE h = file.OpenReadWrite();
  auto s = MakeFileStream(h);
  auto writer = MakeFileStream(h);
  ASSERT_EQ(SeekTo(writer.Get(), 20, STREAM_SEEK_SET).status, S_OK);
  const BYTE more[5] = {};
  ASSERT_EQ(WriteFrom(writer.Get(), more, 5).count, 5u);
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

}  // namespace
