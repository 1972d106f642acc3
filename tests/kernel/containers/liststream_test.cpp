#include "kernel/containers/liststream.h"

#include <gtest/gtest.h>

#include <memory>

#include "kernel/containers/streams.h"
#include "stream_test_util.h"

namespace {

using namespace zqtest;

// A record whose first 32-bit word is its size, the rest a pattern.
std::vector<BYTE> Record(DWORD size, BYTE tag) {
  std::vector<BYTE> r(size, tag);
  std::memcpy(r.data(), &size, sizeof(size));
  return r;
}

struct ListDeleter {
  void operator()(tZQLIST* l) const { ZqList_Destroy(l); }
};
using ListPtr = std::unique_ptr<tZQLIST, ListDeleter>;

ListPtr MakeList(std::initializer_list<void*> elements, DWORD options = 0) {
  tZQLIST* l = nullptr;
  EXPECT_EQ(ZqList_CreateExZ(&l, 0, 0, 0, options, 0, 0, 0), S_OK);
  for (void* e : elements) EXPECT_EQ(ZqList_InsertList(l, -1, &e, 1), S_OK);
  return ListPtr(l);
}

ZqComPtr<IStream> MakeTemplate(tZQLIST* list) {
  ZqComPtr<IStream> s;
  EXPECT_EQ(ZqFio_MakeTemplateListIStream(list, s.Put()), S_OK);
  return s;
}

std::vector<BYTE> Expected(const std::vector<std::vector<BYTE>*>& records) {
  std::vector<BYTE> out(12);
  const DWORD header[3] = {12, 100, static_cast<DWORD>(records.size())};
  std::memcpy(out.data(), header, 12);
  for (auto* r : records) out.insert(out.end(), r->begin(), r->end());
  return out;
}

TEST(ListStream, TwoRecordsMakeAHeaderAndTheRecords) {
  auto a = Record(20, 0xA0);
  auto b = Record(30, 0xB0);
  auto list = MakeList({a.data(), b.data()});
  auto s = MakeTemplate(list.get());

  std::vector<BYTE> got(62);
  IoResult r = ReadInto(s.Get(), got.data(), 62);
  EXPECT_EQ(r.status, S_OK);
  ASSERT_EQ(r.count, 62u);
  EXPECT_EQ(got, Expected({&a, &b}));

  // Past the end the status is that of the walk's last step: the record
  // given last is refused once (E_FAIL), after which no step is left and the
  // status stays at its starting value.
  r = ReadInto(s.Get(), got.data(), 10);
  EXPECT_EQ(r.count, 0u);
  EXPECT_EQ(r.status, E_FAIL);
  r = ReadInto(s.Get(), got.data(), 10);
  EXPECT_EQ(r.count, 0u);
  EXPECT_EQ(r.status, E_INVALIDARG);
}

TEST(ListStream, ReadingInPiecesGivesTheSameBytes) {
  auto a = Record(20, 0xA0);
  auto b = Record(30, 0xB0);
  auto c = Record(4, 0xC0);
  auto list = MakeList({a.data(), b.data(), c.data()});
  const std::vector<BYTE> want = Expected({&a, &b, &c});
  for (ULONG piece : {1u, 5u, 7u, 12u, 13u, 100u}) {
    auto s = MakeTemplate(list.get());
    std::vector<BYTE> got;
    BYTE buffer[100];
    for (int guard = 0; guard < 200; ++guard) {
      IoResult r = ReadInto(s.Get(), buffer, piece);
      got.insert(got.end(), buffer, buffer + r.count);
      if (r.count < piece) break;
    }
    EXPECT_EQ(got, want) << "pieces of " << piece;
  }
}

TEST(ListStream, HeaderCountIsTakenWhenTheHeaderIsRead) {
  auto a = Record(8, 1);
  auto list = MakeList({});
  auto s = MakeTemplate(list.get());
  void* e = a.data();
  ASSERT_EQ(ZqList_InsertList(list.get(), -1, &e, 1), S_OK);
  DWORD header[3] = {};
  ASSERT_EQ(ReadInto(s.Get(), header, 12).count, 12u);
  EXPECT_EQ(header[0], 12u);
  EXPECT_EQ(header[1], 100u);
  EXPECT_EQ(header[2], 1u);

  auto empty = MakeList({});
  auto t = MakeTemplate(empty.get());
  BYTE buffer[32];
  IoResult r = ReadInto(t.Get(), buffer, 32);
  EXPECT_EQ(r.count, 12u) << "an empty list is just the header";
  EXPECT_EQ(buffer[8], 0);
}

TEST(ListStream, RepeatedAndNullElementsAreSkipped) {
  auto a = Record(6, 0xA0);
  auto b = Record(5, 0xB0);
  // The same record twice in a row is refused the second time, so it is
  // read once; a null element gives nothing and the walk goes on.
  auto list = MakeList({a.data(), a.data(), nullptr, b.data()});
  auto s = MakeTemplate(list.get());
  std::vector<BYTE> got(64);
  IoResult r = ReadInto(s.Get(), got.data(), 64);
  got.resize(r.count);
  std::vector<BYTE> want = Expected({&a, &b});
  want[8] = 4;  // the header counts the elements, not the records read
  EXPECT_EQ(got, want);
}

TEST(ListStream, SeekRewindsJumpsToTheEndAndWalksItems) {
  auto a = Record(20, 0xA0);
  auto b = Record(30, 0xB0);
  auto list = MakeList({a.data(), b.data()});
  auto s = MakeTemplate(list.get());
  std::vector<BYTE> got(62);
  ASSERT_EQ(ReadInto(s.Get(), got.data(), 40).count, 40u);

  SeekResult r = SeekTo(s.Get(), 12345, STREAM_SEEK_SET);
  EXPECT_EQ(r.status, S_OK);
  EXPECT_EQ(r.position, 0u) << "origin 0 rewinds to the header whatever the offset";
  ASSERT_EQ(ReadInto(s.Get(), got.data(), 62).count, 62u) << "and the whole stream reads again";
  EXPECT_EQ(got, Expected({&a, &b}));

  r = SeekTo(s.Get(), 0, STREAM_SEEK_END);
  EXPECT_EQ(r.status, S_OK);
  EXPECT_EQ(r.position, 2u) << "past the last item: the item count, not a byte position";
  EXPECT_EQ(ReadInto(s.Get(), got.data(), 10).count, 0u);

  // Origin 1 walks forward through bytes, reporting the item index.
  ASSERT_EQ(SeekTo(s.Get(), 0, STREAM_SEEK_SET).status, S_OK);
  r = SeekTo(s.Get(), 10, STREAM_SEEK_CUR);
  EXPECT_EQ(r.status, S_OK);
  EXPECT_EQ(r.position, 0u) << "still in the header";
  r = SeekTo(s.Get(), 22, STREAM_SEEK_CUR);
  EXPECT_EQ(r.status, S_OK);
  EXPECT_EQ(r.position, 0u) << "at the end of the first record";
  IoResult read = ReadInto(s.Get(), got.data(), 30);
  ASSERT_EQ(read.count, 30u);
  EXPECT_TRUE(std::equal(b.begin(), b.end(), got.begin())) << "the second record follows";
  EXPECT_EQ(Tell(s.Get()), 1u);
  r = SeekTo(s.Get(), 5, STREAM_SEEK_CUR);
  EXPECT_EQ(r.status, E_FAIL) << "walking past the end";
  EXPECT_EQ(r.position, 2u);
  EXPECT_EQ(SeekTo(s.Get(), 0, 9).status, STG_E_INVALIDFUNCTION);
}

// A subclass that fails for chosen elements.
class PickyStream final : public CZqListStream {
 public:
  PickyStream(tZQLIST* list, void* refused) : CZqListStream(list), refused_(refused) {}
  HRESULT GetItem(void* element, const BYTE** data, ULONG* length) override {
    ++calls;
    if (element != nullptr && element == refused_) return ZQ_E_NOT_FOUND;
    if (element == nullptr || element == last_) {
      last_ = nullptr;
      *data = nullptr;
      *length = 0;
      return element == nullptr ? S_OK : E_FAIL;
    }
    last_ = element;
    *data = static_cast<const BYTE*>(element);
    *length = 3;
    return S_OK;
  }
  int calls = 0;

 private:
  ~PickyStream() override = default;
  void* refused_;
  void* last_ = nullptr;
};

TEST(ListStream, AFailingItemIsUsedUpButTheFirstEndsTheRead) {
  BYTE x[3] = {1, 2, 3}, y[3] = {4, 5, 6}, z[3] = {7, 8, 9};
  auto list = MakeList({x, y, z});
  {
    auto* raw = new (std::nothrow) PickyStream(list.get(), y);
    auto s = ZqComPtr<IStream>::Adopt(raw);
    BYTE got[32];
    IoResult r = ReadInto(s.Get(), got, 32);
    ASSERT_EQ(r.count, 18u) << "the refused middle item is passed over";
    EXPECT_EQ(got[12], 1);
    EXPECT_EQ(got[15], 7);
  }
  {
    auto* raw = new (std::nothrow) PickyStream(list.get(), x);
    auto s = ZqComPtr<IStream>::Adopt(raw);
    BYTE got[32];
    IoResult r = ReadInto(s.Get(), got, 32);
    EXPECT_EQ(r.count, 12u) << "a failure on the first element ends the read after the header";
    EXPECT_EQ(r.status, ZQ_E_NOT_FOUND);
    r = ReadInto(s.Get(), got, 32);
    EXPECT_EQ(r.count, 6u) << "the next read passes it over";
    EXPECT_EQ(got[0], 4);
  }
}

TEST(ListStream, WithoutAListOrBufferNothingWorks) {
  auto* raw = new (std::nothrow) CZqTemplateStream(nullptr);
  auto s = ZqComPtr<IStream>::Adopt(raw);
  BYTE b[4];
  EXPECT_EQ(ReadInto(s.Get(), b, 4).status, ZQ_E_STREAM_NO_LIST);
  EXPECT_EQ(SeekTo(s.Get(), 0, STREAM_SEEK_SET).status, ZQ_E_STREAM_NO_LIST);
  EXPECT_EQ(ZQ_E_STREAM_NO_LIST, static_cast<HRESULT>(0x800A0026));

  auto list = MakeList({});
  auto t = MakeTemplate(list.get());
  ULONG n = 7;
  EXPECT_EQ(t->Read(nullptr, 4, &n), E_INVALIDARG);
  EXPECT_EQ(n, 0u);
  IStream* none = reinterpret_cast<IStream*>(1);
  EXPECT_EQ(ZqFio_MakeTemplateListIStream(nullptr, &none), E_INVALIDARG);
  EXPECT_EQ(none, nullptr);
  EXPECT_EQ(ZqFio_MakeTemplateListIStream(list.get(), nullptr), E_INVALIDARG);
  none = reinterpret_cast<IStream*>(1);
  {
    ZqScopedAllocFailure fail(1, ZQMEMFAIL_CALLING_THREAD);
    EXPECT_EQ(ZqFio_MakeTemplateListIStream(list.get(), &none), E_OUTOFMEMORY);
  }
  EXPECT_EQ(none, nullptr);
}

TEST(ListStream, ALockedListReadsTheSame) {
  auto a = Record(9, 0xA0);
  auto list = MakeList({a.data()}, ZQLIST_LOCKED);
  auto s = MakeTemplate(list.get());
  std::vector<BYTE> got(32);
  IoResult r = ReadInto(s.Get(), got.data(), 32);
  got.resize(r.count);
  EXPECT_EQ(got, Expected({&a}));
}

TEST(ListStream, IsReadOnlyAndCountsReferences) {
  auto list = MakeList({});
  const LONG_PTR before = ZqMemory_GetLiveBlocks();
  IStream* s = nullptr;
  ASSERT_EQ(ZqFio_MakeTemplateListIStream(list.get(), &s), S_OK);
  ExpectStreamIdentity(s);
  ExpectUnofferedOperations(s);
  const BYTE b = 0;
  EXPECT_EQ(WriteFrom(s, &b, 1).status, E_NOTIMPL);
  STATSTG stat{};
  EXPECT_EQ(s->Stat(&stat, STATFLAG_NONAME), E_NOTIMPL);
  IStream* clone = nullptr;
  EXPECT_EQ(s->Clone(&clone), E_NOTIMPL);
  EXPECT_EQ(s->AddRef(), 2u);
  EXPECT_EQ(s->Release(), 1u);
  EXPECT_EQ(s->Release(), 0u);
  EXPECT_EQ(ZqMemory_GetLiveBlocks(), before) << "the stream is freed; the list is the caller's";
  EXPECT_TRUE(ZqList_IsListFast(list.get()));
}

}  // namespace
