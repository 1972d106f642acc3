#include "kernel/com/object.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "kernel/com/stream.h"
#include "kernel/com/taskmem.h"

namespace {

// An interface of our own, to see that identifiers travel with the type.
class IZqCounterTest : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{0B3E2D21-6B0D-4B5C-9E51-0D1F3A7C55AA}");
  virtual int STDMETHODCALLTYPE Value() = 0;
};

int g_destroyed = 0;

class CStreamAndCounter final : public ZqComObject<CStreamAndCounter, IPersistStream, IZqCounterTest> {
 public:
  ~CStreamAndCounter() { ++g_destroyed; }
  HRESULT STDMETHODCALLTYPE GetClassID(CLSID* id) override {
    *id = GUID_NULL;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE IsDirty() override { return S_FALSE; }
  HRESULT STDMETHODCALLTYPE Load(IStream*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Save(IStream*, BOOL) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetSizeMax(ULARGE_INTEGER*) override { return E_NOTIMPL; }
  int STDMETHODCALLTYPE Value() override { return 42; }
};

TEST(ComObject, AnswersListedInterfacesTheirBasesAndOneIdentity) {
  g_destroyed = 0;
  auto* obj = new CStreamAndCounter;
  EXPECT_EQ(obj->RefCount(), 1u);

  void* p = nullptr;
  ASSERT_EQ(obj->QueryInterface(IID_IPersist, &p), S_OK) << "a base of a listed interface";
  EXPECT_EQ(p, static_cast<IPersist*>(obj));
  static_cast<IUnknown*>(p)->Release();

  ZqComPtr<IZqCounterTest> counter;
  ASSERT_EQ(obj->QueryInterface(ZqIidOf<IZqCounterTest>, counter.PutVoid()), S_OK);
  EXPECT_EQ(counter->Value(), 42);

  // IUnknown from any interface is the same pointer.
  void* u1 = nullptr;
  void* u2 = nullptr;
  ASSERT_EQ(counter->QueryInterface(IID_IUnknown, &u1), S_OK);
  ASSERT_EQ(obj->QueryInterface(IID_IUnknown, &u2), S_OK);
  EXPECT_EQ(u1, u2);
  static_cast<IUnknown*>(u1)->Release();
  static_cast<IUnknown*>(u2)->Release();

  p = reinterpret_cast<void*>(1);
  EXPECT_EQ(obj->QueryInterface(IID_IStream, &p), E_NOINTERFACE);
  EXPECT_EQ(p, nullptr) << "a refused query clears the out-pointer";
  EXPECT_EQ(obj->QueryInterface(IID_IUnknown, nullptr), E_POINTER);

  EXPECT_EQ(obj->RefCount(), 2u);
  counter.Reset();
  EXPECT_EQ(g_destroyed, 0);
  EXPECT_EQ(obj->Release(), 0u);
  EXPECT_EQ(g_destroyed, 1);
}

TEST(ComObject, CountSurvivesContention) {
  g_destroyed = 0;
  auto* obj = new CStreamAndCounter;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([obj] {
      for (int i = 0; i < 20000; ++i) {
        obj->AddRef();
        obj->Release();
      }
    });
  for (auto& t : threads) t.join();
  EXPECT_EQ(obj->RefCount(), 1u);
  obj->Release();
  EXPECT_EQ(g_destroyed, 1);
}

TEST(ComPtr, OwnsExactlyOneReference) {
  g_destroyed = 0;
  {
    ZqComPtr<IPersistStream> a = ZqComPtr<IPersistStream>::Adopt(new CStreamAndCounter);
    ZqComPtr<IPersistStream> b = a;
    EXPECT_EQ(static_cast<CStreamAndCounter*>(a.Get())->RefCount(), 2u);
    ZqComPtr<IZqCounterTest> c;
    ASSERT_EQ(b.As(&c), S_OK);
    ZqComPtr<IPersistStream> moved = std::move(b);
    EXPECT_FALSE(b);
    EXPECT_EQ(c->Value(), 42);
  }
  EXPECT_EQ(g_destroyed, 1);
}

TEST(TaskMemory, DuplicatesText) {
  WCHAR* copy = ZqCoTaskStrDup(u"In");
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(std::u16string(copy), u"In");
  CoTaskMemFree(copy);
  EXPECT_EQ(ZqCoTaskStrDup(nullptr), nullptr);
}

}  // namespace
