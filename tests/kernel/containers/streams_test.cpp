// What every stream of the kernel shares: creation that refuses null
// arguments and fails cleanly at each allocation, one identity for IUnknown
// and IStream, the operations none of them offers, and a last Release that
// frees everything the stream allocated.
#include <gtest/gtest.h>

#include <functional>

#include "kernel/containers/streams.h"
#include "kernel/containers/textstream.h"
#include "stream_test_util.h"
#include "tests/kernel/fault_injection.h"

namespace {

using namespace zqtest;

struct Kind {
  const char* name;
  std::function<HRESULT(IStream**)> make;  // with a null argument: must refuse
  LONG allocations;                        // allocation points of a creation
};

TEST(Streams, CreationIdentityUnofferedOperationsAndRelease) {
  BYTE block[64] = {};
  TempFile file("any");
  HANDLE h = file.OpenReadWrite();
  tZQLIST* list = nullptr;
  ASSERT_EQ(ZqList_CreateExZ(&list, 0, 0, 0, 0, 0, 0, 0), S_OK);
  auto P = [](IStream** s) { return reinterpret_cast<IZqProtectedStream**>(s); };
  const Kind kinds[] = {
      {"memory", [&](IStream** s) { return ZqCreateStreamFromMemory(block, 64, 8, s, FALSE); }, 1},
      {"memory copy", [&](IStream** s) { return ZqCreateStreamFromMemory(block, 64, 8, s, TRUE); }, 2},
      {"file", [&](IStream** s) { return ZqCreateStreamFromFile(h, s); }, 1},
      {"list", [&](IStream** s) { return ZqFio_MakeTemplateListIStream(list, s); }, 1},
      {"text", [](IStream** s) { return CZqTextStream::Create(reinterpret_cast<CZqTextStream**>(s)); }, 2},
      {"protected memory", [&](IStream** s) { return ZqProtectedStream_CreateFromMemory(block, 64, 8, P(s)); }, 2},
      {"protected file", [&](IStream** s) { return ZqProtectedStream_CreateFromFile(h, P(s)); }, 2},
  };
  for (const Kind& k : kinds) {
    SCOPED_TRACE(k.name);
    EXPECT_EQ(k.make(nullptr), E_INVALIDARG);
    const LONG_PTR before = ZqMemory_GetLiveBlocks();
    auto check = [&](IStream*& s, const ZqFaultRun& run) {
      SCOPED_TRACE(testing::Message() << "allocation " << run.n);
      if (run.failed) {
        EXPECT_EQ(run.status, E_OUTOFMEMORY);
        EXPECT_EQ(s, nullptr);
        EXPECT_EQ(ZqMemory_GetLiveBlocks(), before);
        return;
      }
      ASSERT_EQ(run.status, S_OK);
      void *unknown = nullptr, *stream = nullptr, *other = reinterpret_cast<void*>(1);
      ASSERT_EQ(s->QueryInterface(IID_IUnknown, &unknown), S_OK);
      ASSERT_EQ(s->QueryInterface(IID_IStream, &stream), S_OK);
      EXPECT_EQ(stream, static_cast<void*>(s));
      EXPECT_EQ(unknown, static_cast<void*>(static_cast<IUnknown*>(s)));
      EXPECT_EQ(s->QueryInterface(IID_IPersistStream, &other), E_NOINTERFACE);
      EXPECT_EQ(other, nullptr);
      ULARGE_INTEGER any{.QuadPart = 1};
      EXPECT_EQ(s->SetSize(any), E_NOTIMPL);
      EXPECT_EQ(s->CopyTo(nullptr, any, nullptr, nullptr), E_NOTIMPL);
      EXPECT_EQ(s->Commit(0), E_NOTIMPL);
      EXPECT_EQ(s->Revert(), E_NOTIMPL);
      EXPECT_EQ(s->LockRegion(any, any, LOCK_WRITE), E_NOTIMPL);
      EXPECT_EQ(s->UnlockRegion(any, any, LOCK_WRITE), E_NOTIMPL);
      static_cast<IUnknown*>(unknown)->Release();
      static_cast<IUnknown*>(stream)->Release();
      EXPECT_EQ(s->Release(), 0u);
      EXPECT_EQ(ZqMemory_GetLiveBlocks(), before) << "the last Release frees all";
    };
    LONG points = ZqForEachAllocFailure([] { return reinterpret_cast<IStream*>(1); },
                                        [&](IStream*& s) { return k.make(&s); }, check);
    EXPECT_EQ(points, k.allocations);
  }
  EXPECT_TRUE(ZqList_IsListFast(list)) << "the list is the caller's";
  ZqList_Destroy(list);
  const BYTE b = 1;
  DWORD n = 0;
  EXPECT_TRUE(WriteFile(h, &b, 1, &n, nullptr)) << "so is the file";
}

}  // namespace
