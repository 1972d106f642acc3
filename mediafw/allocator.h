// Media samples and the memory allocator, with fault switches for tests.
//
// CMemAllocator owns a pool of CMediaSample objects over blocks of memory.
// A sample handed out by GetBuffer holds a reference on its allocator, so an
// allocator lives as long as any of its samples is out.  All methods are
// safe to call from any thread; the allocator's lock is never held while
// calling out.
//
// Fault switches make chosen calls fail, so that the code using the
// allocator can be tested on every failure path: "fail the N-th call" of
// GetBuffer, of a family of sample accessors, of Commit or SetProperties.
#pragma once

#include <atomic>
#include <vector>

#include "mediafw/sample.h"
#include "mediafw/sync.h"
#include "mediafw/unknown.h"

class CMemAllocator;

// Sample accessors that a fault switch can make fail (bits, combinable).
enum ZqSampleCall : DWORD {
  ZQ_SAMPLE_GETPOINTER = 0x001,
  ZQ_SAMPLE_SETACTUALDATALENGTH = 0x002,
  ZQ_SAMPLE_SETTIME = 0x004,
  ZQ_SAMPLE_SETMEDIATIME = 0x008,
  ZQ_SAMPLE_SETDISCONTINUITY = 0x010,
  ZQ_SAMPLE_SETSYNCPOINT = 0x020,
  ZQ_SAMPLE_SETPREROLL = 0x040,
  ZQ_SAMPLE_GETTIME = 0x080,
  ZQ_SAMPLE_GETMEDIATIME = 0x100,
  ZQ_SAMPLE_SETSILENT = 0x200,
  ZQ_SAMPLE_ALL = 0x3FF,
};

// "Fail calls nth .. nth+count-1 (1-based) with `status`"; nth 0 never.
struct ZqFaultPlan {
  LONG nth = 0;
  LONG count = 1;
  HRESULT status = E_FAIL;
  LONG calls = 0;  // calls counted so far

  // Counts one call; the status it must fail with, or S_OK.
  HRESULT Next() {
    ++calls;
    if (nth > 0 && calls >= nth && calls < nth + count) return status;
    return S_OK;
  }
};

class CMediaSample final : public IMediaSample, public IZqSampleSilence {
 public:
  CMediaSample(CMemAllocator* allocator, BYTE* buffer, LONG length);
  ~CMediaSample();
  CMediaSample(const CMediaSample&) = delete;
  CMediaSample& operator=(const CMediaSample&) = delete;

  // IUnknown: answers IMediaSample, and IZqSampleSilence when the allocator
  // offers it.  At count 0 the sample goes back to its allocator.
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;

  HRESULT STDMETHODCALLTYPE GetPointer(BYTE** ppBuffer) override;
  LONG STDMETHODCALLTYPE GetSize() override;
  HRESULT STDMETHODCALLTYPE GetTime(REFERENCE_TIME* pTimeStart, REFERENCE_TIME* pTimeEnd) override;
  HRESULT STDMETHODCALLTYPE SetTime(REFERENCE_TIME* pTimeStart, REFERENCE_TIME* pTimeEnd) override;
  HRESULT STDMETHODCALLTYPE IsSyncPoint() override;
  HRESULT STDMETHODCALLTYPE SetSyncPoint(BOOL bIsSyncPoint) override;
  HRESULT STDMETHODCALLTYPE IsPreroll() override;
  HRESULT STDMETHODCALLTYPE SetPreroll(BOOL bIsPreroll) override;
  LONG STDMETHODCALLTYPE GetActualDataLength() override;
  HRESULT STDMETHODCALLTYPE SetActualDataLength(LONG length) override;
  HRESULT STDMETHODCALLTYPE GetMediaType(AM_MEDIA_TYPE** ppMediaType) override;
  HRESULT STDMETHODCALLTYPE SetMediaType(AM_MEDIA_TYPE* pMediaType) override;
  HRESULT STDMETHODCALLTYPE IsDiscontinuity() override;
  HRESULT STDMETHODCALLTYPE SetDiscontinuity(BOOL bDiscontinuity) override;
  HRESULT STDMETHODCALLTYPE GetMediaTime(LONGLONG* pTimeStart, LONGLONG* pTimeEnd) override;
  HRESULT STDMETHODCALLTYPE SetMediaTime(LONGLONG* pTimeStart, LONGLONG* pTimeEnd) override;

  BOOL STDMETHODCALLTYPE IsSilent() override;
  HRESULT STDMETHODCALLTYPE SetSilent(BOOL silent) override;

 private:
  friend class CMemAllocator;
  enum : DWORD {
    kSyncPoint = 0x01,
    kPreroll = 0x02,
    kDiscontinuity = 0x04,
    kTimeValid = 0x08,
    kStopValid = 0x10,
    kMediaTimeValid = 0x20,
    kTypeChanged = 0x40,
  };
  // Back to the state of a sample fresh from the pool.
  void Clear();
  HRESULT Fault(DWORD call);

  std::atomic<LONG> m_cRef{0};
  CMemAllocator* m_pAllocator;
  BYTE* m_pBuffer;
  LONG m_cbBuffer;
  LONG m_lActual;
  DWORD m_dwFlags = 0;
  REFERENCE_TIME m_Start = 0;
  REFERENCE_TIME m_End = 0;
  LONGLONG m_MediaStart = 0;
  LONGLONG m_MediaEnd = 0;
  AM_MEDIA_TYPE* m_pMediaType = nullptr;
  BOOL m_bSilent = FALSE;
};

class CMemAllocator : public CUnknown, public IMemAllocator {
 public:
  CMemAllocator(const WCHAR* name, IUnknown* outer, HRESULT* phr);
  ~CMemAllocator() override;

  DECLARE_IUNKNOWN
  HRESULT STDMETHODCALLTYPE NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

  // VFW_E_ALREADY_COMMITTED while committed, VFW_E_BUFFERS_OUTSTANDING while
  // a sample is out, VFW_E_BADALIGN for an alignment that is no power of
  // two.  The actual properties are the request (a prefix and alignment of
  // the usable bytes are honoured).
  HRESULT STDMETHODCALLTYPE SetProperties(ALLOCATOR_PROPERTIES* pRequest, ALLOCATOR_PROPERTIES* pActual) override;
  HRESULT STDMETHODCALLTYPE GetProperties(ALLOCATOR_PROPERTIES* pProps) override;
  // VFW_E_SIZENOTSET without a positive count and size; E_OUTOFMEMORY.
  HRESULT STDMETHODCALLTYPE Commit() override;
  HRESULT STDMETHODCALLTYPE Decommit() override;
  // Waits for a free sample unless AM_GBF_NOWAIT (then VFW_E_TIMEOUT);
  // VFW_E_NOT_COMMITTED when not committed or decommitted during the wait.
  HRESULT STDMETHODCALLTYPE GetBuffer(IMediaSample** ppBuffer, REFERENCE_TIME* pStartTime, REFERENCE_TIME* pEndTime,
                                      DWORD dwFlags) override;
  HRESULT STDMETHODCALLTYPE ReleaseBuffer(IMediaSample* pBuffer) override;

  // --- fault switches and observations (tests) ---
  void FailGetBuffer(LONG nth, LONG count = 1, HRESULT status = E_OUTOFMEMORY);
  // Calls of any accessor in `calls` (ZqSampleCall bits) are counted together.
  void FailSampleCalls(DWORD calls, LONG nth, LONG count = 1, HRESULT status = E_FAIL);
  void FailCommit(LONG nth, LONG count = 1, HRESULT status = E_OUTOFMEMORY);
  void FailSetProperties(LONG nth, LONG count = 1, HRESULT status = E_FAIL);
  // Whether samples answer IZqSampleSilence (they do unless told).
  void SetOffersSilence(BOOL offers);
  BOOL OffersSilence() const { return m_bOffersSilence.load(); }
  LONG GetBufferCalls();
  LONG SamplesOutstanding();
  BOOL IsCommitted();

 private:
  friend class CMediaSample;
  // A sample's last reference went: back to the free list.
  void SampleReturned(CMediaSample* sample);
  HRESULT SampleFault(DWORD call);
  // Deletes every sample and its memory; all must be free.
  void FreeSamples();

  CCritSec m_lock;
  HANDLE m_hSem;  // counts wake-ups owed to GetBuffer waiters
  LONG m_lWaiting = 0;
  ALLOCATOR_PROPERTIES m_props{};
  bool m_bCommitted = false;
  bool m_bDecommitInProgress = false;
  std::vector<CMediaSample*> m_all;
  std::vector<BYTE*> m_blocks;
  std::vector<CMediaSample*> m_free;
  std::atomic<BOOL> m_bOffersSilence{TRUE};
  ZqFaultPlan m_getBufferFault;
  ZqFaultPlan m_sampleFault;
  // Read without the lock on every sample call: samples are touched many
  // times per buffer on the streaming path, and faults are rarely planned.
  std::atomic<DWORD> m_sampleFaultCalls{0};
  ZqFaultPlan m_commitFault;
  ZqFaultPlan m_setPropertiesFault;
};

// A new CMemAllocator with one reference.
HRESULT CreateMemoryAllocator(IMemAllocator** ppAllocator);
