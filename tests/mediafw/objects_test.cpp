// Objects of the framework on their own: aggregation, media types,
// allocators and samples with their fault switches.
#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "kernel/com/stream.h"
#include "kernel/com/taskmem.h"
#include "mediafw/allocator.h"
#include "mediafw/mediatype.h"
#include "mediafw/unknown.h"

namespace {

// An interface of the inner object.
class IZqProbeTest : public IUnknown {
 public:
  static constexpr GUID kIid = ZqGuid("{2E7C1A90-5B3D-4F60-8A1B-9C0D2E3F4A5B}");
  virtual int STDMETHODCALLTYPE Value() = 0;
};

class CInner : public CUnknown, public IZqProbeTest {
 public:
  explicit CInner(IUnknown* outer) : CUnknown(u"inner", outer) {}
  DECLARE_IUNKNOWN
  HRESULT STDMETHODCALLTYPE NonDelegatingQueryInterface(REFIID riid, void** ppv) override {
    if (IsEqualGUID(riid, IZqProbeTest::kIid)) return GetInterface(static_cast<IZqProbeTest*>(this), ppv);
    return CUnknown::NonDelegatingQueryInterface(riid, ppv);
  }
  int STDMETHODCALLTYPE Value() override { return 42; }
  LONG Count() const { return m_cRef.load(); }
};

// An outer object that aggregates a CInner and hands out its interface.
class COuter : public CUnknown, public IPersist {
 public:
  COuter() : CUnknown(u"outer", nullptr) {
    m_inner = new CInner(GetOwner());
    m_innerUnknown = m_inner->GetNonDelegatingUnknown();
    m_innerUnknown->AddRef();
  }
  ~COuter() override { m_innerUnknown->Release(); }
  DECLARE_IUNKNOWN
  HRESULT STDMETHODCALLTYPE NonDelegatingQueryInterface(REFIID riid, void** ppv) override {
    if (IsEqualGUID(riid, IID_IPersist)) return GetInterface(static_cast<IPersist*>(this), ppv);
    if (IsEqualGUID(riid, IZqProbeTest::kIid)) return m_innerUnknown->QueryInterface(riid, ppv);
    return CUnknown::NonDelegatingQueryInterface(riid, ppv);
  }
  HRESULT STDMETHODCALLTYPE GetClassID(CLSID* id) override {
    *id = GUID_NULL;
    return S_OK;
  }
  LONG Count() const { return m_cRef.load(); }
  CInner* m_inner;
  IUnknown* m_innerUnknown;
};

TEST(MediaFwUnknown, StandaloneObjectCountsAndAnswersItsInterfaces) {
  LONG before = CBaseObject::ObjectsActive();
  auto* obj = new CInner(nullptr);
  EXPECT_EQ(obj->Count(), 0);  // the creator takes the first reference
  obj->NonDelegatingAddRef();
  EXPECT_EQ(CBaseObject::ObjectsActive(), before + 1);

  IZqProbeTest* probe = nullptr;
  ASSERT_EQ(obj->QueryInterface(IZqProbeTest::kIid, reinterpret_cast<void**>(&probe)), S_OK);
  EXPECT_EQ(probe->Value(), 42);
  EXPECT_EQ(obj->Count(), 2);
  IUnknown* unk1 = nullptr;
  IUnknown* unk2 = nullptr;
  ASSERT_EQ(probe->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&unk1)), S_OK);
  ASSERT_EQ(obj->NonDelegatingQueryInterface(IID_IUnknown, reinterpret_cast<void**>(&unk2)), S_OK);
  EXPECT_EQ(unk1, unk2) << "one identity";
  EXPECT_EQ(unk1, obj->GetNonDelegatingUnknown());
  void* none = reinterpret_cast<void*>(1);
  EXPECT_EQ(obj->QueryInterface(IID_IPersist, &none), E_NOINTERFACE);
  EXPECT_EQ(none, nullptr);
  EXPECT_EQ(obj->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
  unk1->Release();
  unk2->Release();
  probe->Release();
  EXPECT_EQ(obj->NonDelegatingRelease(), 0u);
  EXPECT_EQ(CBaseObject::ObjectsActive(), before);
}

TEST(MediaFwUnknown, AggregatedInnerCountsOnItsOuterAndAnswersForIt) {
  LONG before = CBaseObject::ObjectsActive();
  auto* outer = new COuter();
  outer->NonDelegatingAddRef();
  EXPECT_EQ(CBaseObject::ObjectsActive(), before + 2);
  EXPECT_EQ(outer->m_inner->Count(), 1) << "only the outer's reference on the inner";

  IZqProbeTest* probe = nullptr;
  ASSERT_EQ(outer->QueryInterface(IZqProbeTest::kIid, reinterpret_cast<void**>(&probe)), S_OK);
  EXPECT_EQ(probe->Value(), 42);
  EXPECT_EQ(outer->Count(), 2) << "the inner's interface counts on the outer";
  EXPECT_EQ(outer->m_inner->Count(), 1);

  // The inner's delegating QueryInterface reaches the outer's interfaces,
  // and IUnknown from either side is the outer's identity.
  IPersist* persist = nullptr;
  ASSERT_EQ(probe->QueryInterface(IID_IPersist, reinterpret_cast<void**>(&persist)), S_OK);
  IUnknown* fromInner = nullptr;
  IUnknown* fromOuter = nullptr;
  probe->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&fromInner));
  outer->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(&fromOuter));
  EXPECT_EQ(fromInner, fromOuter);
  EXPECT_EQ(fromOuter, outer->GetNonDelegatingUnknown());
  fromInner->Release();
  fromOuter->Release();
  persist->Release();
  probe->Release();
  EXPECT_EQ(outer->Count(), 1);
  outer->NonDelegatingRelease();
  EXPECT_EQ(CBaseObject::ObjectsActive(), before);
}

WAVEFORMATEXTENSIBLE Extensible() {
  WAVEFORMATEXTENSIBLE x{};
  x.Format.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
  x.Format.nChannels = 6;
  x.Format.nSamplesPerSec = 48000;
  x.Format.wBitsPerSample = 32;
  x.Format.nBlockAlign = 24;
  x.Format.nAvgBytesPerSec = 48000 * 24;
  x.Format.cbSize = ZQ_WFE_EXTRA_SIZE;
  x.Samples.wValidBitsPerSample = 32;
  x.dwChannelMask = 0x3F;
  x.SubFormat = KSDATAFORMAT_SUBTYPE_IEEE_FLOAT;
  return x;
}

TEST(MediaFwMediaType, AudioTypesCarryTheirFormatBlockAndSubtype) {
  WAVEFORMATEX pcm{WAVE_FORMAT_PCM, 2, 44100, 176400, 4, 16, 0};
  CMediaType a;
  ASSERT_EQ(CreateAudioMediaType(&pcm, &a, TRUE), S_OK);
  EXPECT_EQ(a.majortype, MEDIATYPE_Audio);
  EXPECT_EQ(a.subtype, MEDIASUBTYPE_PCM);
  EXPECT_EQ(a.formattype, FORMAT_WaveFormatEx);
  EXPECT_EQ(a.FormatLength(), 18u);
  EXPECT_EQ(a.GetSampleSize(), 4u);
  EXPECT_EQ(std::memcmp(a.Format(), &pcm, 18), 0);

  WAVEFORMATEXTENSIBLE x = Extensible();
  CMediaType b;
  ASSERT_EQ(CreateAudioMediaType(&x.Format, &b, TRUE), S_OK);
  EXPECT_EQ(b.subtype, ZQ_MEDIASUBTYPE_EXTENSIBLE);
  ASSERT_EQ(b.FormatLength(), 40u);
  EXPECT_EQ(std::memcmp(b.Format(), &x, 40), 0);
  EXPECT_EQ(ZqAudioSubtypeFromTag(WAVE_FORMAT_IEEE_FLOAT), MEDIASUBTYPE_IEEE_FLOAT);

  // Copies are deep and compare equal; a changed format byte makes them differ.
  CMediaType c(b);
  EXPECT_NE(c.Format(), b.Format());
  EXPECT_TRUE(c == b);
  c.Format()[4] ^= 1;
  EXPECT_FALSE(c == b);
  AM_MEDIA_TYPE* heap = CreateMediaType(&a);
  ASSERT_NE(heap, nullptr);
  EXPECT_TRUE(CMediaType(*heap) == a);
  DeleteMediaType(heap);
}

TEST(MediaFwMediaType, PartialTypesMatchOnWhatTheySpecify) {
  WAVEFORMATEX pcm{WAVE_FORMAT_PCM, 2, 44100, 176400, 4, 16, 0};
  CMediaType full;
  CreateAudioMediaType(&pcm, &full, TRUE);
  CMediaType partial;
  EXPECT_TRUE(partial.IsPartiallySpecified());
  EXPECT_TRUE(full.MatchesPartial(&partial));
  partial.SetType(&MEDIATYPE_Audio);
  EXPECT_TRUE(full.MatchesPartial(&partial));
  partial.SetType(&MEDIATYPE_Video);
  EXPECT_FALSE(full.MatchesPartial(&partial));
  EXPECT_FALSE(full.IsPartiallySpecified());

  CMediaType grown(full);
  ASSERT_NE(grown.ReallocFormatBuffer(22), nullptr);
  EXPECT_EQ(std::memcmp(grown.Format(), &pcm, 18), 0) << "leading bytes kept";
  EXPECT_EQ(grown.Format()[21], 0);
  grown.ResetFormatBuffer();
  EXPECT_EQ(grown.FormatLength(), 0u);
  EXPECT_EQ(grown.Format(), nullptr);
}

TEST(MediaFwMediaType, FreeMediaTypeReleasesTheUnknownItHolds) {
  auto* holder = new CInner(nullptr);
  holder->NonDelegatingAddRef();
  {
    CMediaType mt;
    mt.pUnk = holder->GetNonDelegatingUnknown();
    mt.pUnk->AddRef();
    CMediaType copy(mt);
    EXPECT_EQ(holder->Count(), 3);
  }
  EXPECT_EQ(holder->Count(), 1);
  holder->NonDelegatingRelease();
}

struct AllocatorFixture : ::testing::Test {
  IMemAllocator* alloc = nullptr;
  CMemAllocator* mem = nullptr;
  void SetUp() override {
    ASSERT_EQ(CreateMemoryAllocator(&alloc), S_OK);
    mem = static_cast<CMemAllocator*>(alloc);
  }
  void TearDown() override {
    if (alloc) alloc->Release();
  }
  HRESULT Set(LONG buffers, LONG size, LONG align = 1, LONG prefix = 0) {
    ALLOCATOR_PROPERTIES req{buffers, size, align, prefix}, actual{};
    return alloc->SetProperties(&req, &actual);
  }
};

TEST_F(AllocatorFixture, PropertiesAreCheckedAndFixedWhileCommitted) {
  EXPECT_EQ(Set(2, 100, 3), VFW_E_BADALIGN);
  EXPECT_EQ(Set(2, 100, 0), VFW_E_BADALIGN);
  IMediaSample* s = nullptr;
  EXPECT_EQ(alloc->GetBuffer(&s, nullptr, nullptr, 0), VFW_E_NOT_COMMITTED);
  EXPECT_EQ(alloc->Commit(), VFW_E_SIZENOTSET);
  ASSERT_EQ(Set(2, 100, 64, 8), S_OK);
  ALLOCATOR_PROPERTIES got{};
  alloc->GetProperties(&got);
  EXPECT_EQ(got.cBuffers, 2);
  EXPECT_EQ(got.cbBuffer, 100);
  ASSERT_EQ(alloc->Commit(), S_OK);
  EXPECT_EQ(Set(2, 200), VFW_E_ALREADY_COMMITTED);
  ASSERT_EQ(alloc->GetBuffer(&s, nullptr, nullptr, 0), S_OK);
  BYTE* p = nullptr;
  ASSERT_EQ(s->GetPointer(&p), S_OK);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 64, 0u) << "usable bytes aligned";
  EXPECT_EQ(s->GetSize(), 100);
  alloc->Decommit();
  EXPECT_EQ(Set(2, 200), VFW_E_BUFFERS_OUTSTANDING);
  s->Release();
  EXPECT_EQ(Set(2, 200), S_OK);
}

TEST_F(AllocatorFixture, PoolRunsDryAndRefillsAndSamplesComeBackClean) {
  ASSERT_EQ(Set(2, 64), S_OK);
  ASSERT_EQ(alloc->Commit(), S_OK);
  IMediaSample *a = nullptr, *b = nullptr, *c = nullptr;
  ASSERT_EQ(alloc->GetBuffer(&a, nullptr, nullptr, 0), S_OK);
  ASSERT_EQ(alloc->GetBuffer(&b, nullptr, nullptr, 0), S_OK);
  EXPECT_EQ(alloc->GetBuffer(&c, nullptr, nullptr, AM_GBF_NOWAIT), VFW_E_TIMEOUT);
  EXPECT_EQ(mem->SamplesOutstanding(), 2);

  REFERENCE_TIME t0 = 10, t1 = 20;
  LONGLONG m0 = 5, m1 = 6;
  a->SetTime(&t0, &t1);
  a->SetMediaTime(&m0, &m1);
  a->SetDiscontinuity(TRUE);
  a->SetSyncPoint(TRUE);
  a->SetPreroll(TRUE);
  EXPECT_EQ(a->SetActualDataLength(65), VFW_E_BUFFER_OVERFLOW);
  EXPECT_EQ(a->SetActualDataLength(-1), E_INVALIDARG);
  a->SetActualDataLength(10);
  a->Release();
  ASSERT_EQ(alloc->GetBuffer(&c, nullptr, nullptr, 0), S_OK);
  REFERENCE_TIME s0, s1;
  LONGLONG n0, n1;
  EXPECT_EQ(c->GetTime(&s0, &s1), VFW_E_SAMPLE_TIME_NOT_SET);
  EXPECT_EQ(c->GetMediaTime(&n0, &n1), VFW_E_MEDIA_TIME_NOT_SET);
  EXPECT_EQ(c->IsDiscontinuity(), S_FALSE);
  EXPECT_EQ(c->IsSyncPoint(), S_FALSE);
  EXPECT_EQ(c->IsPreroll(), S_FALSE);
  EXPECT_EQ(c->GetActualDataLength(), 64);

  EXPECT_EQ(c->SetTime(&t0, nullptr), S_OK);
  EXPECT_EQ(c->GetTime(&s0, &s1), VFW_S_NO_STOP_TIME);
  EXPECT_EQ(s0, 10);
  EXPECT_EQ(s1, 11);
  EXPECT_EQ(c->SetTime(nullptr, nullptr), S_OK);
  EXPECT_EQ(c->GetTime(&s0, &s1), VFW_E_SAMPLE_TIME_NOT_SET);
  b->Release();
  c->Release();
  EXPECT_EQ(mem->SamplesOutstanding(), 0);
}

TEST_F(AllocatorFixture, DecommitWakesAWaiterAndOutstandingSamplesKeepTheAllocator) {
  ASSERT_EQ(Set(1, 16), S_OK);
  ASSERT_EQ(alloc->Commit(), S_OK);
  IMediaSample* held = nullptr;
  ASSERT_EQ(alloc->GetBuffer(&held, nullptr, nullptr, 0), S_OK);
  HRESULT waited = S_OK;
  std::thread waiter([&] {
    IMediaSample* s = nullptr;
    waited = alloc->GetBuffer(&s, nullptr, nullptr, 0);
    if (s) s->Release();
  });
  alloc->Decommit();
  waiter.join();
  EXPECT_EQ(waited, VFW_E_NOT_COMMITTED);

  // A commit before the sample returns revives the pool.
  EXPECT_EQ(alloc->Commit(), S_OK);
  IMediaSample* none = nullptr;
  EXPECT_EQ(alloc->GetBuffer(&none, nullptr, nullptr, AM_GBF_NOWAIT), VFW_E_TIMEOUT);
  alloc->Decommit();
  // The sample still out keeps the allocator alive after its last other
  // reference is gone.
  alloc->Release();
  alloc = nullptr;
  BYTE* p = nullptr;
  EXPECT_EQ(held->GetPointer(&p), S_OK);
  held->Release();
}

TEST_F(AllocatorFixture, FaultSwitchesFailTheChosenCallsOnly) {
  ASSERT_EQ(Set(4, 32), S_OK);
  mem->FailCommit(1, 1, E_OUTOFMEMORY);
  EXPECT_EQ(alloc->Commit(), E_OUTOFMEMORY);
  ASSERT_EQ(alloc->Commit(), S_OK);
  // Calls nth .. nth + count - 1 fail; accessor faults count the chosen
  // accessors' calls together.
  mem->FailGetBuffer(2, 2, VFW_E_TIMEOUT);
  IMediaSample* s[4] = {};
  const HRESULT expected[4] = {S_OK, VFW_E_TIMEOUT, VFW_E_TIMEOUT, S_OK};
  for (int i = 0; i < 4; ++i) EXPECT_EQ(alloc->GetBuffer(&s[i], nullptr, nullptr, 0), expected[i]) << i;
  EXPECT_EQ(s[1], nullptr);
  mem->FailSampleCalls(ZQ_SAMPLE_GETPOINTER | ZQ_SAMPLE_SETTIME, 2, 1, E_UNEXPECTED);
  BYTE* p = nullptr;
  REFERENCE_TIME t = 0;
  EXPECT_EQ(s[0]->GetPointer(&p), S_OK);
  EXPECT_EQ(s[0]->SetActualDataLength(4), S_OK) << "not a chosen accessor";
  EXPECT_EQ(s[0]->SetTime(&t, &t), E_UNEXPECTED);
  EXPECT_EQ(s[3]->GetPointer(&p), S_OK);
  s[0]->Release();
  s[3]->Release();
}

TEST_F(AllocatorFixture, SilenceInterfaceIsOfferedUnlessSwitchedOff) {
  ASSERT_EQ(Set(1, 8), S_OK);
  ASSERT_EQ(alloc->Commit(), S_OK);
  IMediaSample* s = nullptr;
  ASSERT_EQ(alloc->GetBuffer(&s, nullptr, nullptr, 0), S_OK);
  IZqSampleSilence* silence = nullptr;
  ASSERT_EQ(s->QueryInterface(IID_IZqSampleSilence, reinterpret_cast<void**>(&silence)), S_OK);
  EXPECT_FALSE(silence->IsSilent());
  silence->SetSilent(TRUE);
  silence->Release();
  mem->SetOffersSilence(FALSE);
  EXPECT_EQ(s->QueryInterface(IID_IZqSampleSilence, reinterpret_cast<void**>(&silence)), E_NOINTERFACE);
  s->Release();
  mem->SetOffersSilence(TRUE);
  ASSERT_EQ(alloc->GetBuffer(&s, nullptr, nullptr, 0), S_OK);
  ASSERT_EQ(s->QueryInterface(IID_IZqSampleSilence, reinterpret_cast<void**>(&silence)), S_OK);
  EXPECT_FALSE(silence->IsSilent()) << "the mark does not outlive the sample's use";
  silence->Release();
  s->Release();
}

}  // namespace
