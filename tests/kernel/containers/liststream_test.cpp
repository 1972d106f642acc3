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

// The header {12, 100, element count} and the records.
std::vector<BYTE> Expected(const std::vector<std::vector<BYTE>*>& records, DWORD count) {
  std::vector<BYTE> out(12);
  const DWORD header[3] = {12, 100, count};
  std::memcpy(out.data(), header, 12);
  for (auto* r : records) out.insert(out.end(), r->begin(), r->end());
  return out;
}

std::vector<BYTE> ReadAll(IStream* s, ULONG piece) {
  std::vector<BYTE> got;
  BYTE buffer[100];
  for (int guard = 0; guard < 200; ++guard) {
    IoResult r = ReadInto(s, buffer, piece);
    got.insert(got.end(), buffer, buffer + r.count);
    if (r.count < piece) break;
  }
  return got;
}

TEST(ListStream, HeaderAndRecordsReadTheSameInAnyPieces) {
  auto a = Record(20, 0xA0), b = Record(30, 0xB0), c = Record(4, 0xC0);
  auto list = MakeList({a.data(), b.data(), c.data()}, ZQLIST_LOCKED);
  for (ULONG piece : {1u, 5u, 7u, 12u, 13u, 100u})
    EXPECT_EQ(ReadAll(MakeTemplate(list.get()).Get(), piece), Expected({&a, &b, &c}, 3)) << "pieces of " << piece;
  // Past the end the status is that of the walk's last step: the record
  // given last is refused once (E_FAIL), after which no step is left and the
  // status stays at its starting value.
  auto s = MakeTemplate(list.get());
  BYTE buffer[66];
  ASSERT_EQ(ReadInto(s.Get(), buffer, 66).count, 66u);
  EXPECT_EQ(ReadInto(s.Get(), buffer, 10).status, E_FAIL);
  EXPECT_EQ(ReadInto(s.Get(), buffer, 10).status, E_INVALIDARG);
}

TEST(ListStream, TheHeaderCountsElementsWhenReadAndRepeatsAndNullsAreSkipped) {
  auto a = Record(6, 0xA0), b = Record(5, 0xB0);
  auto list = MakeList({});
  auto s = MakeTemplate(list.get());
  EXPECT_EQ(ReadAll(MakeTemplate(list.get()).Get(), 32), Expected({}, 0)) << "an empty list is just the header";
  // The same record twice in a row is refused the second time, so it is
  // read once; a null element gives nothing and the walk goes on.
  for (void* e : {static_cast<void*>(a.data()), static_cast<void*>(a.data()), static_cast<void*>(nullptr),
                  static_cast<void*>(b.data())})
    ASSERT_EQ(ZqList_InsertList(list.get(), -1, &e, 1), S_OK);
  EXPECT_EQ(ReadAll(s.Get(), 64), Expected({&a, &b}, 4)) << "elements added after creation are counted";
}

TEST(ListStream, SeekRewindsJumpsToTheEndAndWalksItems) {
  auto a = Record(20, 0xA0), b = Record(30, 0xB0);
  auto list = MakeList({a.data(), b.data()});
  auto s = MakeTemplate(list.get());
  std::vector<BYTE> got(62);
  ASSERT_EQ(ReadInto(s.Get(), got.data(), 40).count, 40u);
  struct Case {
    LONGLONG offset;
    DWORD origin;
    HRESULT status;
    ULONGLONG position;  // an item index, not a byte position
  } cases[] = {
      {12345, STREAM_SEEK_SET, S_OK, 0},  // origin 0 rewinds to the header whatever the offset
      {0, STREAM_SEEK_END, S_OK, 2},      // past the last item
      {0, STREAM_SEEK_SET, S_OK, 0},
      {10, STREAM_SEEK_CUR, S_OK, 0},  // still in the header
      {22, STREAM_SEEK_CUR, S_OK, 0},  // at the end of the first record
  };
  for (const Case& c : cases) {
    SeekResult r = SeekTo(s.Get(), c.offset, c.origin);
    EXPECT_EQ(r.status, c.status) << c.offset << " from " << c.origin;
    EXPECT_EQ(r.position, c.position) << c.offset << " from " << c.origin;
  }
  ASSERT_EQ(ReadInto(s.Get(), got.data(), 30).count, 30u);
  EXPECT_TRUE(std::equal(b.begin(), b.end(), got.begin())) << "the second record follows";
  SeekResult r = SeekTo(s.Get(), 5, STREAM_SEEK_CUR);
  EXPECT_EQ(r.status, E_FAIL) << "walking past the end";
  EXPECT_EQ(r.position, 2u);
  EXPECT_EQ(SeekTo(s.Get(), 0, 9).status, STG_E_INVALIDFUNCTION);
  ASSERT_EQ(SeekTo(s.Get(), 0, STREAM_SEEK_SET).status, S_OK);
  EXPECT_EQ(ReadAll(s.Get(), 100), Expected({&a, &b}, 2)) << "the whole stream reads again";
}

// A subclass that fails for a chosen element.
class PickyStream final : public CZqListStream {
 public:
  PickyStream(tZQLIST* list, void* refused) : CZqListStream(list), refused_(refused) {}
  HRESULT GetItem(void* element, const BYTE** data, ULONG* length) override {
    if (element != nullptr && element == refused_) return ZQ_E_NOT_FOUND;
    const bool none = element == nullptr || element == last_;  // a repeat gives nothing, once
    last_ = none ? nullptr : element;
    *data = none ? nullptr : static_cast<const BYTE*>(element);
    *length = none ? 0 : 3;
    return none && element != nullptr ? E_FAIL : S_OK;
  }

 private:
  ~PickyStream() override = default;
  void* refused_;
  void* last_ = nullptr;
};

TEST(ListStream, AFailingItemIsUsedUpButTheFirstEndsTheRead) {
  BYTE x[3] = {1, 2, 3}, y[3] = {4, 5, 6}, z[3] = {7, 8, 9};
  auto list = MakeList({x, y, z});
  BYTE got[32];
  auto middle = ZqComPtr<IStream>::Adopt(new (std::nothrow) PickyStream(list.get(), y));
  IoResult r = ReadInto(middle.Get(), got, 32);
  ASSERT_EQ(r.count, 18u) << "the refused middle item is passed over";
  EXPECT_EQ(got[15], 7);
  auto first = ZqComPtr<IStream>::Adopt(new (std::nothrow) PickyStream(list.get(), x));
  r = ReadInto(first.Get(), got, 32);
  EXPECT_EQ(r.count, 12u) << "a failure on the first element ends the read after the header";
  EXPECT_EQ(r.status, ZQ_E_NOT_FOUND);
  r = ReadInto(first.Get(), got, 32);
  EXPECT_EQ(r.count, 6u) << "the next read passes it over";
  EXPECT_EQ(got[0], 4);
}

TEST(ListStream, IsReadOnlyAndNeedsAListAndABuffer) {
  auto s = ZqComPtr<IStream>::Adopt(new (std::nothrow) CZqTemplateStream(nullptr));
  BYTE b[4];
  EXPECT_EQ(ReadInto(s.Get(), b, 4).status, ZQ_E_STREAM_NO_LIST);
  EXPECT_EQ(SeekTo(s.Get(), 0, STREAM_SEEK_SET).status, ZQ_E_STREAM_NO_LIST);
  EXPECT_EQ(ZQ_E_STREAM_NO_LIST, static_cast<HRESULT>(0x800A0026));
  IStream* none = reinterpret_cast<IStream*>(1);
  EXPECT_EQ(ZqFio_MakeTemplateListIStream(nullptr, &none), E_INVALIDARG);
  EXPECT_EQ(none, nullptr);

  auto list = MakeList({});
  auto t = MakeTemplate(list.get());
  ULONG n = 7;
  EXPECT_EQ(t->Read(nullptr, 4, &n), E_INVALIDARG);
  EXPECT_EQ(n, 0u);
  EXPECT_EQ(WriteFrom(t.Get(), b, 1).status, E_NOTIMPL);
  STATSTG stat{};
  EXPECT_EQ(t->Stat(&stat, STATFLAG_NONAME), E_NOTIMPL);
  EXPECT_EQ(t->Clone(&none), E_NOTIMPL);
}

}  // namespace
