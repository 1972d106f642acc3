#include "kernel/containers/protectedstream.h"

#include <gtest/gtest.h>

#include "kernel/containers/streams.h"
#include "stream_test_util.h"

namespace {

using namespace zqtest;

// A window over 300 patterned bytes of memory, through an inner stream the
// test can also move behind the window's back.
struct Window {
  std::vector<BYTE> block = Pattern(300);
  ZqComPtr<IZqProtectedStream> s;
  ZqComPtr<IStream> inner;
  Window() {
    EXPECT_EQ(ZqProtectedStream_CreateFromMemory(block.data(), 300, 300, s.Put()), S_OK);
    EXPECT_EQ(ZqCreateStreamFromMemory(block.data(), 300, 300, inner.Put(), FALSE), S_OK);
    EXPECT_EQ(s->AttachStream(inner.Get()), S_OK);
  }
  // The window over the range 100 to 199.
  Window& Range(DWORD mode, BOOL limitEnd = TRUE, BOOL limitStart = FALSE) {
    EXPECT_EQ(s->SetProtectedRange(limitEnd, limitStart, 100, 100), S_OK);
    EXPECT_EQ(s->SetReadMode(mode), S_OK);
    return *this;
  }
  void MoveInner(LONGLONG at) { EXPECT_EQ(SeekTo(inner.Get(), at, STREAM_SEEK_SET).status, S_OK); }
  CZqProtectedStream* impl() const { return static_cast<CZqProtectedStream*>(s.Get()); }
};

TEST(ProtectedStream, ReadsStayInTheWindowByMode) {
  const DWORD kClip = ZQPROTECTED_READ_CLIP, kBlank = ZQPROTECTED_READ_BLANK;
  struct Case {
    DWORD mode;
    LONGLONG at;  // where the inner stream stands
    ULONG asked;
    HRESULT status;
    ULONG count, fromBlock;  // bytes given, of them from the block (the rest zero)
  } cases[] = {
      {kClip, 180, 50, S_FALSE, 20, 20},  // stops at the range end
      {kClip, 200, 1, S_FALSE, 0, 0},
      {kClip, 110, 10, S_OK, 10, 10},
      {kClip, 50, 10, STG_E_ACCESSDENIED, 0, 0},  // cannot start before the window
      {kBlank, 50, 10, STG_E_ACCESSDENIED, 0, 0},
      {kClip, 250, 10, STG_E_ACCESSDENIED, 0, 0},  // nor past its end
      {kBlank, 250, 10, S_OK, 10, 0},             // except to read zeros
      {kBlank, 180, 50, S_OK, 50, 20},            // the whole count, blank past the end
      {kBlank, 290, 20, S_FALSE, 10, 0},          // less near the end of the inner stream
      {3, 100, 4, S_OK, 0, 0},                    // other modes read nothing
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "mode " << c.mode << " at " << c.at);
    Window w;
    w.Range(c.mode);
    w.MoveInner(c.at);
    BYTE buffer[64];
    std::memset(buffer, 0xCC, sizeof(buffer));
    IoResult r = ReadInto(w.s.Get(), buffer, c.asked);
    EXPECT_EQ(r.status, c.status);
    EXPECT_EQ(r.count, c.count);
    EXPECT_EQ(std::memcmp(buffer, w.block.data() + c.at, c.fromBlock), 0);
    EXPECT_TRUE(std::all_of(buffer + c.fromBlock, buffer + c.count, [](BYTE b) { return b == 0; }));
    EXPECT_EQ(buffer[c.asked], 0xCC) << "nothing past the size asked for is written";
    EXPECT_EQ(Tell(w.inner.Get()), static_cast<ULONGLONG>(c.at + c.count)) << "a refused read does not move it";
  }
}

TEST(ProtectedStream, WithoutARangeNothingIsReadAndWritesAndSeeksAreAbsolute) {
  Window w;
  BYTE buffer[8] = {};
  IoResult r = ReadInto(w.s.Get(), buffer, 8);
  EXPECT_EQ(r.status, S_OK);
  EXPECT_EQ(r.count, 0u);
  EXPECT_EQ(w.impl()->ReadMode(), ZQPROTECTED_READ_CLIP) << "mode 1 by default";
  EXPECT_EQ(SeekTo(w.s.Get(), 10, STREAM_SEEK_SET).position, 10u);
  const BYTE x[2] = {0xEE, 0xEF};
  EXPECT_EQ(WriteFrom(w.s.Get(), x, 2).count, 2u);
  EXPECT_EQ(w.block[10], 0xEE);
  EXPECT_EQ(SeekTo(w.s.Get(), -10, STREAM_SEEK_END).position, 290u) << "origin 2 goes to the inner stream";
}

TEST(ProtectedStream, SeeksCountFromTheRangeStartAndStayInside) {
  Window w;
  w.Range(ZQPROTECTED_READ_CLIP);
  const HRESULT kNo = STG_E_INVALIDFUNCTION;
  struct Case {
    LONGLONG offset;
    DWORD origin;
    HRESULT status;
    ULONGLONG reported, inner;  // reported position (7 when none is given out), inner position
  } cases[] = {
      {0, STREAM_SEEK_SET, S_OK, 0, 100},     {100, STREAM_SEEK_SET, S_OK, 100, 200},
      {101, STREAM_SEEK_SET, kNo, 7, 200},    {-30, STREAM_SEEK_CUR, S_OK, 70, 170},
      {-71, STREAM_SEEK_CUR, kNo, 7, 170},    {31, STREAM_SEEK_CUR, kNo, 7, 170},
      {30, STREAM_SEEK_CUR, S_OK, 100, 200},  {-100, STREAM_SEEK_END, S_OK, 0, 100},
      {-101, STREAM_SEEK_END, kNo, 7, 100},   {1, STREAM_SEEK_END, kNo, 7, 100},
      {0, 5, kNo, 7, 100},
  };
  for (const Case& c : cases) {
    SeekResult r = SeekTo(w.s.Get(), c.offset, c.origin, 7);
    EXPECT_EQ(r.status, c.status) << c.offset << " from " << c.origin;
    EXPECT_EQ(r.position, c.reported) << c.offset << " from " << c.origin;
    EXPECT_EQ(w.impl()->Position(), c.inner) << c.offset << " from " << c.origin;
  }
  w.Range(ZQPROTECTED_READ_BLANK);
  EXPECT_EQ(SeekTo(w.s.Get(), 150, STREAM_SEEK_SET).position, 150u) << "mode 2 lets origin 0 pass the end";
  // Only the start limit: origin 0 and reports still count from the start,
  // origin 2 goes to the inner stream as it is.
  ASSERT_EQ(w.s->SetProtectedRange(FALSE, TRUE, 100, 100), S_OK);
  EXPECT_EQ(SeekTo(w.s.Get(), 5, STREAM_SEEK_SET).position, 5u);
  EXPECT_EQ(SeekTo(w.s.Get(), -6, STREAM_SEEK_CUR).status, kNo);
  EXPECT_EQ(SeekTo(w.s.Get(), 150, STREAM_SEEK_CUR).position, 155u) << "no end limit";
  EXPECT_EQ(SeekTo(w.s.Get(), -1, STREAM_SEEK_END).position, 199u) << "the inner end, reported from the start";
  EXPECT_EQ(w.impl()->Position(), 299u);
}

TEST(ProtectedStream, WritesRespectTheStartAndCarryTheEnd) {
  Window w;
  w.Range(ZQPROTECTED_READ_CLIP, TRUE, TRUE);
  w.MoveInner(90);
  const std::vector<BYTE> before = w.block;
  const BYTE data[10] = {9, 9, 9, 9, 9, 9, 9, 9, 9, 9};
  IoResult r = WriteFrom(w.s.Get(), data, 10);
  EXPECT_EQ(r.status, STG_E_ACCESSDENIED);
  EXPECT_EQ(w.block, before) << "nothing was written before the start";
  ASSERT_EQ(SeekTo(w.s.Get(), 95, STREAM_SEEK_SET).status, S_OK);
  EXPECT_EQ(WriteFrom(w.s.Get(), data, 10).count, 10u);
  EXPECT_EQ(w.block[204], 9);
  EXPECT_EQ(w.impl()->RangeLength(), 105u) << "the write carried the range end along";
  ASSERT_EQ(SeekTo(w.s.Get(), 100, STREAM_SEEK_SET).status, S_OK);
  BYTE buffer[10];
  EXPECT_EQ(ReadInto(w.s.Get(), buffer, 10).count, 5u) << "the grown range can be read";
  ASSERT_EQ(w.s->SetProtectedRange(TRUE, FALSE, 100, 100), S_OK);
  w.MoveInner(0);
  EXPECT_EQ(WriteFrom(w.s.Get(), data, 1).status, S_OK) << "without the start limit a write before it is let through";
  EXPECT_EQ(w.block[0], 9);
}

TEST(ProtectedStream, WithoutAnInnerStreamEachOperationSaysSo) {
  auto s = ZqComPtr<CZqProtectedStream>::Adopt(new (std::nothrow) CZqProtectedStream());
  BYTE b[4] = {};
  EXPECT_EQ(ReadInto(s.Get(), b, 4).status, STG_E_READFAULT);
  EXPECT_EQ(WriteFrom(s.Get(), b, 4).status, STG_E_WRITEFAULT);
  EXPECT_EQ(SeekTo(s.Get(), 0, STREAM_SEEK_SET).status, STG_E_INVALIDFUNCTION);
  STATSTG stat;
  EXPECT_EQ(s->Stat(&stat, STATFLAG_NONAME), STG_E_INVALIDFUNCTION);
  IStream* clone = reinterpret_cast<IStream*>(1);
  EXPECT_EQ(s->Clone(&clone), STG_E_INVALIDFUNCTION);
  EXPECT_EQ(clone, nullptr);
  Window w;
  ULONG n = 5;
  EXPECT_EQ(w.s->Read(nullptr, 4, &n), STG_E_INVALIDPOINTER);
  EXPECT_EQ(n, 0u);
  EXPECT_EQ(w.s->Write(nullptr, 4, &n), STG_E_INVALIDPOINTER);
}

TEST(ProtectedStream, AttachHoldsOneReferenceAndGivesItBackOnFailure) {
  auto fake = ZqComPtr<FakeStream>::Adopt(FakeStream::Make(Pattern(40)));
  auto broken = ZqComPtr<FakeStream>::Adopt(FakeStream::Make({}));
  broken->failSeek = true;
  ASSERT_EQ(SeekTo(fake.Get(), 12, STREAM_SEEK_SET).status, S_OK);
  {
    ZqComPtr<IZqProtectedStream> p;
    ASSERT_EQ(ZqProtectedStream_CreateFromStream(fake.Get(), p.Put()), S_OK);
    EXPECT_EQ(fake->RefCount(), 2u);
    EXPECT_EQ(static_cast<CZqProtectedStream*>(p.Get())->Position(), 12u) << "asked where the stream stands";
    // A stream that cannot tell its position is not kept, nor the one before.
    EXPECT_EQ(p->AttachStream(broken.Get()), STG_E_INVALIDFUNCTION);
    EXPECT_EQ(broken->RefCount(), 1u);
    EXPECT_EQ(fake->RefCount(), 1u);
    EXPECT_EQ(static_cast<CZqProtectedStream*>(p.Get())->Position(), 0u);
    BYTE b[2];
    EXPECT_EQ(ReadInto(p.Get(), b, 2).status, STG_E_READFAULT);
    EXPECT_EQ(p->AttachStream(nullptr), E_INVALIDARG);
    IZqProtectedStream* none = reinterpret_cast<IZqProtectedStream*>(1);
    EXPECT_EQ(ZqProtectedStream_CreateFromStream(broken.Get(), &none), STG_E_INVALIDFUNCTION);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(broken->RefCount(), 1u);
    ASSERT_EQ(p->AttachStream(fake.Get()), S_OK);
  }
  EXPECT_EQ(fake->RefCount(), 1u) << "destruction releases the inner stream";
}

TEST(ProtectedStream, StatAndCloneGoThroughTheInnerStream) {
  auto fake = ZqComPtr<FakeStream>::Adopt(FakeStream::Make(Pattern(300)));
  ASSERT_EQ(SeekTo(fake.Get(), 150, STREAM_SEEK_SET).status, S_OK);
  ZqComPtr<IZqProtectedStream> p;
  ASSERT_EQ(ZqProtectedStream_CreateFromStream(fake.Get(), p.Put()), S_OK);
  ASSERT_EQ(p->SetProtectedRange(TRUE, TRUE, 100, 100), S_OK);
  ASSERT_EQ(p->SetReadMode(ZQPROTECTED_READ_BLANK), S_OK);
  STATSTG stat;
  ASSERT_EQ(p->Stat(&stat, STATFLAG_NONAME), S_OK);
  EXPECT_EQ(stat.cbSize.QuadPart, 300u);
  ZqComPtr<IStream> clone;
  ASSERT_EQ(p->Clone(clone.Put()), S_OK);
  ZqComPtr<IZqProtectedStream> cloneWindow;
  ASSERT_EQ(clone.As(&cloneWindow), S_OK) << "the clone is a window too";
  auto* c = static_cast<CZqProtectedStream*>(cloneWindow.Get());
  EXPECT_EQ(c->Position(), 150u) << "over a clone standing where the inner stream stood";
  EXPECT_EQ(c->ReadMode(), ZQPROTECTED_READ_CLIP) << "the mode is not copied";
  BYTE b[4];
  EXPECT_EQ(ReadInto(clone.Get(), b, 4).count, 0u) << "nor is the range";
  EXPECT_EQ(fake->RefCount(), 2u) << "the clone holds its own inner stream";
  Window w;
  IStream* none = reinterpret_cast<IStream*>(1);
  EXPECT_EQ(w.s->Clone(&none), E_FAIL) << "the memory stream's Clone gives nothing to wrap";
  EXPECT_EQ(none, nullptr);
}

TEST(ProtectedStream, SixtyFourBitRangesAndFiles) {
  BYTE block[8] = {};
  ZqComPtr<IZqProtectedStream> p;
  ASSERT_EQ(ZqProtectedStream_CreateFromMemory64(block, 8 * kGiB, 8 * kGiB, p.Put()), S_OK);
  ASSERT_EQ(p->SetProtectedRange(TRUE, TRUE, 5 * kGiB, 2 * kGiB), S_OK);
  EXPECT_EQ(SeekTo(p.Get(), -1, STREAM_SEEK_END).position, 2 * kGiB - 1);
  EXPECT_EQ(static_cast<CZqProtectedStream*>(p.Get())->Position(), 7 * kGiB - 1);
  EXPECT_EQ(SeekTo(p.Get(), static_cast<LONGLONG>(2 * kGiB) + 1, STREAM_SEEK_SET).status, STG_E_INVALIDFUNCTION);
  EXPECT_EQ(SeekTo(p.Get(), -static_cast<LONGLONG>(2 * kGiB), STREAM_SEEK_CUR).status, STG_E_INVALIDFUNCTION);
  EXPECT_EQ(SeekTo(p.Get(), -static_cast<LONGLONG>(2 * kGiB) + 1, STREAM_SEEK_CUR).position, 0u);

  TempFile file("window");
  file.Fill(Pattern(64));
  ZqComPtr<IZqProtectedStream> f;
  ASSERT_EQ(ZqProtectedStream_CreateFromFile(file.Open(GENERIC_READ), f.Put()), S_OK);
  ASSERT_EQ(f->SetProtectedRange(TRUE, FALSE, 60, 4), S_OK);
  ASSERT_EQ(SeekTo(f.Get(), 0, STREAM_SEEK_SET).status, S_OK);
  BYTE got[8];
  IoResult r = ReadInto(f.Get(), got, 8);
  EXPECT_EQ(r.status, S_FALSE);
  EXPECT_EQ(r.count, 4u);
  EXPECT_EQ(got[0], Pattern(64)[60]);
  void* asWindow = nullptr;
  ASSERT_EQ(f->QueryInterface(IID_IZqProtectedStream, &asWindow), S_OK);
  EXPECT_EQ(asWindow, static_cast<void*>(f.Get()));
  f->Release();
}

}  // namespace
