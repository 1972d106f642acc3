#include "kernel/containers/protectedstream.h"

#include <gtest/gtest.h>

#include "kernel/containers/streams.h"
#include "stream_test_util.h"

namespace {

using namespace zqtest;

// A window over 300 patterned bytes of memory.
struct Window {
  std::vector<BYTE> block = Pattern(300);
  ZqComPtr<IZqProtectedStream> s;
  Window() { EXPECT_EQ(ZqProtectedStream_CreateFromMemory(block.data(), 300, 300, s.Put()), S_OK); }
  // The window over the range 100 to 199.
  Window& Range(DWORD mode, BOOL limitEnd = TRUE, BOOL limitStart = FALSE) {
    EXPECT_EQ(s->SetProtectedRange(limitEnd, limitStart, 100, 100), S_OK);
    EXPECT_EQ(s->SetReadMode(mode), S_OK);
    return *this;
  }
  CZqProtectedStream* impl() const { return static_cast<CZqProtectedStream*>(s.Get()); }
};

TEST(ProtectedStream, WithoutARangeNothingCanBeRead) {
  Window w;
  BYTE buffer[8] = {};
  IoResult r = ReadInto(w.s.Get(), buffer, 8);
  EXPECT_EQ(r.status, S_OK);
  EXPECT_EQ(r.count, 0u);
  EXPECT_EQ(w.impl()->ReadMode(), ZQPROTECTED_READ_CLIP) << "mode 1 by default";

  // Writes and seeks are not confined: positions are absolute.
  EXPECT_EQ(SeekTo(w.s.Get(), 10, STREAM_SEEK_SET).position, 10u);
  const BYTE x[2] = {0xEE, 0xEF};
  IoResult wr = WriteFrom(w.s.Get(), x, 2);
  EXPECT_EQ(wr.status, S_OK);
  EXPECT_EQ(wr.count, 2u);
  EXPECT_EQ(w.block[10], 0xEE);
  EXPECT_EQ(Tell(w.s.Get()), 12u);
  EXPECT_EQ(SeekTo(w.s.Get(), -10, STREAM_SEEK_END).position, 290u) << "origin 2 goes to the inner stream";
}

TEST(ProtectedStream, ClipModeStopsAtTheRangeEnd) {
  Window w;
  w.Range(ZQPROTECTED_READ_CLIP);
  ASSERT_EQ(SeekTo(w.s.Get(), 80, STREAM_SEEK_SET).position, 80u);
  BYTE buffer[50];
  std::memset(buffer, 0xCC, sizeof(buffer));
  IoResult r = ReadInto(w.s.Get(), buffer, 50);
  EXPECT_EQ(r.status, S_FALSE);
  EXPECT_EQ(r.count, 20u);
  EXPECT_EQ(std::memcmp(buffer, w.block.data() + 180, 20), 0);
  EXPECT_EQ(buffer[20], 0xCC) << "nothing past the range is written";
  EXPECT_EQ(w.impl()->Position(), 200u);

  r = ReadInto(w.s.Get(), buffer, 1);
  EXPECT_EQ(r.status, S_FALSE) << "at the range end";
  EXPECT_EQ(r.count, 0u);

  ASSERT_EQ(SeekTo(w.s.Get(), 10, STREAM_SEEK_SET).status, S_OK);
  r = ReadInto(w.s.Get(), buffer, 10);
  EXPECT_EQ(r.status, S_OK);
  EXPECT_EQ(r.count, 10u);
  EXPECT_EQ(buffer[0], w.block[110]);
}

TEST(ProtectedStream, ReadsCannotStartOutsideTheWindow) {
  for (DWORD mode : {ZQPROTECTED_READ_CLIP, ZQPROTECTED_READ_BLANK}) {
    Window w;
    w.Range(mode);
    // Moved behind the window's back, through the inner stream.
    ZqComPtr<IStream> inner;
    ASSERT_EQ(ZqCreateStreamFromMemory(w.block.data(), 300, 300, inner.Put(), FALSE), S_OK);
    ASSERT_EQ(w.s->AttachStream(inner.Get()), S_OK);
    ASSERT_EQ(SeekTo(inner.Get(), 50, STREAM_SEEK_SET).status, S_OK);
    BYTE buffer[10];
    IoResult r = ReadInto(w.s.Get(), buffer, 10);
    EXPECT_EQ(r.status, STG_E_ACCESSDENIED) << "mode " << mode;
    EXPECT_EQ(r.count, 0u);
    EXPECT_EQ(Tell(inner.Get()), 50u) << "the inner stream is not moved";

    ASSERT_EQ(SeekTo(inner.Get(), 250, STREAM_SEEK_SET).status, S_OK);
    std::memset(buffer, 0xCC, sizeof(buffer));
    r = ReadInto(w.s.Get(), buffer, 10);
    if (mode == ZQPROTECTED_READ_CLIP) {
      EXPECT_EQ(r.status, STG_E_ACCESSDENIED) << "past the range end";
    } else {
      EXPECT_EQ(r.status, S_OK);
      EXPECT_EQ(r.count, 10u);
      for (BYTE b : buffer) EXPECT_EQ(b, 0) << "all of it lies past the range end";
    }
  }
}

TEST(ProtectedStream, BlankModeReadsTheWholeCountAndZeroesPastTheEnd) {
  Window w;
  w.Range(ZQPROTECTED_READ_BLANK);
  ASSERT_EQ(SeekTo(w.s.Get(), 80, STREAM_SEEK_SET).status, S_OK);
  BYTE buffer[50];
  IoResult r = ReadInto(w.s.Get(), buffer, 50);
  EXPECT_EQ(r.status, S_OK);
  EXPECT_EQ(r.count, 50u);
  EXPECT_EQ(std::memcmp(buffer, w.block.data() + 180, 20), 0);
  for (int i = 20; i < 50; ++i) EXPECT_EQ(buffer[i], 0) << i;
  EXPECT_EQ(w.impl()->Position(), 230u);

  // Near the end of the inner stream less comes than was asked for.
  ASSERT_EQ(SeekTo(w.s.Get(), 190, STREAM_SEEK_SET).status, S_OK) << "mode 2 may seek past the range";
  r = ReadInto(w.s.Get(), buffer, 20);
  EXPECT_EQ(r.status, S_FALSE);
  EXPECT_EQ(r.count, 10u);
}

TEST(ProtectedStream, OtherReadModesReadNothing) {
  Window w;
  w.Range(3);
  ASSERT_EQ(SeekTo(w.s.Get(), 0, STREAM_SEEK_SET).status, S_OK);
  BYTE buffer[4];
  IoResult r = ReadInto(w.s.Get(), buffer, 4);
  EXPECT_EQ(r.status, S_OK);
  EXPECT_EQ(r.count, 0u);
}

TEST(ProtectedStream, SeeksCountFromTheRangeStartAndStayInside) {
  Window w;
  w.Range(ZQPROTECTED_READ_CLIP);
  SeekResult r = SeekTo(w.s.Get(), 0, STREAM_SEEK_SET);
  EXPECT_EQ(r.status, S_OK);
  EXPECT_EQ(r.position, 0u) << "reported from the range start";
  EXPECT_EQ(w.impl()->Position(), 100u) << "landed at the range start";

  r = SeekTo(w.s.Get(), 100, STREAM_SEEK_SET);
  EXPECT_EQ(r.position, 100u) << "the range end itself";
  r = SeekTo(w.s.Get(), 101, STREAM_SEEK_SET, 7);
  EXPECT_EQ(r.status, STG_E_INVALIDFUNCTION);
  EXPECT_EQ(r.position, 7u) << "nothing is given out on a refusal";
  EXPECT_EQ(w.impl()->Position(), 200u) << "and the inner stream did not move";

  EXPECT_EQ(SeekTo(w.s.Get(), -30, STREAM_SEEK_CUR).position, 70u);
  EXPECT_EQ(SeekTo(w.s.Get(), -71, STREAM_SEEK_CUR).status, STG_E_INVALIDFUNCTION) << "before the start";
  EXPECT_EQ(SeekTo(w.s.Get(), 31, STREAM_SEEK_CUR).status, STG_E_INVALIDFUNCTION) << "past the end";
  EXPECT_EQ(SeekTo(w.s.Get(), 30, STREAM_SEEK_CUR).position, 100u);

  EXPECT_EQ(SeekTo(w.s.Get(), 0, STREAM_SEEK_END).position, 100u);
  EXPECT_EQ(SeekTo(w.s.Get(), -100, STREAM_SEEK_END).position, 0u);
  EXPECT_EQ(SeekTo(w.s.Get(), -101, STREAM_SEEK_END).status, STG_E_INVALIDFUNCTION);
  EXPECT_EQ(SeekTo(w.s.Get(), 1, STREAM_SEEK_END).status, STG_E_INVALIDFUNCTION);
  EXPECT_EQ(SeekTo(w.s.Get(), 0, 5).status, STG_E_INVALIDFUNCTION);
  EXPECT_EQ(w.impl()->Position(), 100u);

  // Mode 2 lets origin 0 pass the end.
  w.Range(ZQPROTECTED_READ_BLANK);
  r = SeekTo(w.s.Get(), 150, STREAM_SEEK_SET);
  EXPECT_EQ(r.status, S_OK);
  EXPECT_EQ(r.position, 150u);

  // Only the start limit: origin 0 and reports still count from the start,
  // origin 2 goes to the inner stream as it is.
  ASSERT_EQ(w.s->SetProtectedRange(FALSE, TRUE, 100, 100), S_OK);
  EXPECT_EQ(SeekTo(w.s.Get(), 5, STREAM_SEEK_SET).position, 5u);
  EXPECT_EQ(w.impl()->Position(), 105u);
  EXPECT_EQ(SeekTo(w.s.Get(), -6, STREAM_SEEK_CUR).status, STG_E_INVALIDFUNCTION);
  EXPECT_EQ(SeekTo(w.s.Get(), 150, STREAM_SEEK_CUR).position, 155u) << "no end limit";
  EXPECT_EQ(SeekTo(w.s.Get(), -1, STREAM_SEEK_END).position, 199u) << "the inner end, reported from the start";
  EXPECT_EQ(w.impl()->Position(), 299u);
}

TEST(ProtectedStream, WritesRespectTheStartAndCarryTheEnd) {
  Window w;
  w.Range(ZQPROTECTED_READ_CLIP, TRUE, TRUE);
  ZqComPtr<IStream> inner;
  ASSERT_EQ(ZqCreateStreamFromMemory(w.block.data(), 300, 300, inner.Put(), FALSE), S_OK);
  ASSERT_EQ(w.s->AttachStream(inner.Get()), S_OK);
  ASSERT_EQ(SeekTo(inner.Get(), 90, STREAM_SEEK_SET).status, S_OK);
  const std::vector<BYTE> before = w.block;
  const BYTE data[10] = {9, 9, 9, 9, 9, 9, 9, 9, 9, 9};
  IoResult r = WriteFrom(w.s.Get(), data, 10);
  EXPECT_EQ(r.status, STG_E_ACCESSDENIED);
  EXPECT_EQ(r.count, 0u);
  EXPECT_EQ(w.block, before) << "nothing was written before the start";

  ASSERT_EQ(SeekTo(w.s.Get(), 95, STREAM_SEEK_SET).status, S_OK);
  r = WriteFrom(w.s.Get(), data, 10);
  EXPECT_EQ(r.status, S_OK);
  EXPECT_EQ(r.count, 10u);
  EXPECT_EQ(w.block[204], 9);
  EXPECT_EQ(w.impl()->RangeLength(), 105u) << "the write carried the range end along";
  EXPECT_EQ(Tell(w.s.Get()), 105u);
  ASSERT_EQ(SeekTo(w.s.Get(), 100, STREAM_SEEK_SET).status, S_OK);
  BYTE buffer[10];
  IoResult read = ReadInto(w.s.Get(), buffer, 10);
  EXPECT_EQ(read.count, 5u) << "the grown range can be read";

  // Without the start limit a write before the start is let through.
  ASSERT_EQ(w.s->SetProtectedRange(TRUE, FALSE, 100, 100), S_OK);
  ASSERT_EQ(SeekTo(inner.Get(), 0, STREAM_SEEK_SET).status, S_OK);
  EXPECT_EQ(WriteFrom(w.s.Get(), data, 1).status, S_OK);
  EXPECT_EQ(w.block[0], 9);
}

TEST(ProtectedStream, WithoutAnInnerStreamEachOperationSaysSo) {
  auto s = ZqComPtr<CZqProtectedStream>::Adopt(new (std::nothrow) CZqProtectedStream());
  ASSERT_TRUE(s);
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
  auto* fake = new FakeStream(Pattern(40));
  auto hold = ZqComPtr<FakeStream>::Adopt(fake);
  ASSERT_EQ(SeekTo(fake, 12, STREAM_SEEK_SET).status, S_OK);
  {
    ZqComPtr<IZqProtectedStream> p;
    ASSERT_EQ(ZqProtectedStream_CreateFromStream(fake, p.Put()), S_OK);
    EXPECT_EQ(fake->RefCount(), 2u);
    EXPECT_EQ(static_cast<CZqProtectedStream*>(p.Get())->Position(), 12u) << "asked where the stream stands";

    // A second attach of a stream that cannot tell its position leaves none.
    auto* broken = new FakeStream({});
    auto holdBroken = ZqComPtr<FakeStream>::Adopt(broken);
    broken->failSeek = true;
    EXPECT_EQ(p->AttachStream(broken), STG_E_INVALIDFUNCTION);
    EXPECT_EQ(broken->RefCount(), 1u) << "the reference was given back";
    EXPECT_EQ(fake->RefCount(), 1u) << "the stream attached before was let go";
    EXPECT_EQ(static_cast<CZqProtectedStream*>(p.Get())->Position(), 0u);
    BYTE b[2];
    EXPECT_EQ(ReadInto(p.Get(), b, 2).status, STG_E_READFAULT);
    EXPECT_EQ(p->AttachStream(nullptr), E_INVALIDARG);

    IZqProtectedStream* none = reinterpret_cast<IZqProtectedStream*>(1);
    EXPECT_EQ(ZqProtectedStream_CreateFromStream(broken, &none), STG_E_INVALIDFUNCTION);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(broken->RefCount(), 1u);

    ASSERT_EQ(p->AttachStream(fake), S_OK);
    EXPECT_EQ(fake->RefCount(), 2u);
  }
  EXPECT_EQ(fake->RefCount(), 1u) << "destruction releases the inner stream";
}

TEST(ProtectedStream, StatAndCloneGoThroughTheInnerStream) {
  auto fake = ZqComPtr<FakeStream>::Adopt(new FakeStream(Pattern(300)));
  ASSERT_EQ(SeekTo(fake.Get(), 150, STREAM_SEEK_SET).status, S_OK);
  ZqComPtr<IZqProtectedStream> p;
  ASSERT_EQ(ZqProtectedStream_CreateFromStream(fake.Get(), p.Put()), S_OK);
  ASSERT_EQ(p->SetProtectedRange(TRUE, TRUE, 100, 100), S_OK);
  ASSERT_EQ(p->SetReadMode(ZQPROTECTED_READ_BLANK), S_OK);

  STATSTG stat;
  ASSERT_EQ(p->Stat(&stat, STATFLAG_NONAME), S_OK);
  EXPECT_EQ(stat.type, static_cast<DWORD>(STGTY_STREAM));
  EXPECT_EQ(stat.cbSize.QuadPart, 300u);

  ZqComPtr<IStream> clone;
  ASSERT_EQ(p->Clone(clone.Put()), S_OK);
  ZqComPtr<IZqProtectedStream> cloneWindow;
  ASSERT_EQ(clone.As(&cloneWindow), S_OK) << "the clone is a window too";
  auto* c = static_cast<CZqProtectedStream*>(cloneWindow.Get());
  EXPECT_EQ(c->Position(), 150u) << "over a clone standing where the inner stream stood";
  EXPECT_EQ(c->ReadMode(), ZQPROTECTED_READ_CLIP) << "the mode is not copied";
  BYTE b[4];
  IoResult r = ReadInto(clone.Get(), b, 4);
  EXPECT_EQ(r.status, S_OK);
  EXPECT_EQ(r.count, 0u) << "nor is the range";
  EXPECT_EQ(fake->RefCount(), 2u) << "the clone holds its own inner stream";

  // The memory stream's Clone gives nothing to wrap.
  Window w;
  IStream* none = reinterpret_cast<IStream*>(1);
  EXPECT_EQ(w.s->Clone(&none), E_FAIL);
  EXPECT_EQ(none, nullptr);
}

TEST(ProtectedStream, SixtyFourBitRanges) {
  BYTE block[8] = {};
  ZqComPtr<IZqProtectedStream> p;
  ASSERT_EQ(ZqProtectedStream_CreateFromMemory64(block, 8 * kGiB, 8 * kGiB, p.Put()), S_OK);
  ASSERT_EQ(p->SetProtectedRange(TRUE, TRUE, 5 * kGiB, 2 * kGiB), S_OK);
  auto* impl = static_cast<CZqProtectedStream*>(p.Get());
  EXPECT_EQ(SeekTo(p.Get(), 0, STREAM_SEEK_SET).position, 0u);
  EXPECT_EQ(impl->Position(), 5 * kGiB);
  EXPECT_EQ(SeekTo(p.Get(), -1, STREAM_SEEK_END).position, 2 * kGiB - 1);
  EXPECT_EQ(impl->Position(), 7 * kGiB - 1);
  EXPECT_EQ(SeekTo(p.Get(), static_cast<LONGLONG>(2 * kGiB) + 1, STREAM_SEEK_SET).status, STG_E_INVALIDFUNCTION);
  EXPECT_EQ(SeekTo(p.Get(), -static_cast<LONGLONG>(2 * kGiB), STREAM_SEEK_CUR).status, STG_E_INVALIDFUNCTION);
  EXPECT_EQ(SeekTo(p.Get(), -static_cast<LONGLONG>(2 * kGiB) + 1, STREAM_SEEK_CUR).position, 0u);
}

TEST(ProtectedStream, CreationFormsIdentityAndCounting) {
  IZqProtectedStream* none = reinterpret_cast<IZqProtectedStream*>(1);
  BYTE block[16] = {};
  EXPECT_EQ(ZqProtectedStream_CreateFromStream(nullptr, &none), E_INVALIDARG);
  EXPECT_EQ(none, nullptr);
  EXPECT_EQ(ZqProtectedStream_CreateFromFile(nullptr, &none), E_INVALIDARG);
  EXPECT_EQ(ZqProtectedStream_CreateFromMemory(nullptr, 16, 16, &none), E_INVALIDARG);
  EXPECT_EQ(ZqProtectedStream_CreateFromMemory(block, 16, 16, nullptr), E_INVALIDARG);
  {
    ZqScopedAllocFailure fail(2, ZQMEMFAIL_CALLING_THREAD);  // the window, after the memory stream
    none = reinterpret_cast<IZqProtectedStream*>(1);
    EXPECT_EQ(ZqProtectedStream_CreateFromMemory(block, 16, 16, &none), E_OUTOFMEMORY);
    EXPECT_EQ(none, nullptr);
  }

  TempFile file("window");
  file.Fill(Pattern(64));
  HANDLE h = file.Open(GENERIC_READ);
  const LONG_PTR before = ZqMemory_GetLiveBlocks();
  IZqProtectedStream* p = nullptr;
  ASSERT_EQ(ZqProtectedStream_CreateFromFile(h, &p), S_OK);
  ASSERT_EQ(p->SetProtectedRange(TRUE, FALSE, 60, 4), S_OK);
  ASSERT_EQ(SeekTo(p, 0, STREAM_SEEK_SET).status, S_OK);
  BYTE got[8];
  IoResult r = ReadInto(p, got, 8);
  EXPECT_EQ(r.status, S_FALSE);
  EXPECT_EQ(r.count, 4u);
  EXPECT_EQ(got[0], Pattern(64)[60]);

  ExpectStreamIdentity(p);
  ExpectUnofferedOperations(p);
  void* asWindow = nullptr;
  ASSERT_EQ(p->QueryInterface(IID_IZqProtectedStream, &asWindow), S_OK);
  EXPECT_EQ(asWindow, static_cast<void*>(p));
  EXPECT_EQ(p->Release(), 1u);
  EXPECT_EQ(p->Release(), 0u);
  EXPECT_EQ(ZqMemory_GetLiveBlocks(), before) << "the window and its file stream are gone";
}

}  // namespace
