// Media samples, allocators and the memory transport between pins, with the
// platform's published slot orders and identifiers.
//
// Times: REFERENCE_TIME counts 100-ns units; media times are stream
// positions (frames for the audio the system carries).  Sizes are bytes.
#pragma once

#include "mediafw/codes.h"
#include "mediafw/mediatype.h"

#if !defined(_WIN32)

typedef LONGLONG REFERENCE_TIME;

struct ALLOCATOR_PROPERTIES {
  LONG cBuffers;  // number of buffers
  LONG cbBuffer;  // usable bytes of each, after the prefix
  LONG cbAlign;   // alignment of the usable bytes, a power of two
  LONG cbPrefix;  // bytes before each buffer that the owner may use
};

// GetBuffer flags.
constexpr DWORD AM_GBF_PREVFRAMESKIPPED = 1;
constexpr DWORD AM_GBF_NOTASYNCPOINT = 2;
constexpr DWORD AM_GBF_NOWAIT = 4;

// One buffer of media data with its times and flags.  A sample belongs to
// its allocator: when its last reference is released it goes back to the
// allocator's free list, its flags and times cleared.  Methods may be called
// from any thread, but a sample is used by one thread at a time.
class IMediaSample : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{56A8689A-0AD4-11CE-B03A-0020AF0BA770}");
  // The buffer (valid while the sample is held).
  virtual HRESULT STDMETHODCALLTYPE GetPointer(BYTE** ppBuffer) = 0;
  // Capacity in bytes.
  virtual LONG STDMETHODCALLTYPE GetSize() = 0;
  // S_OK with both times, VFW_S_NO_STOP_TIME with the start only (stop =
  // start + 1), VFW_E_SAMPLE_TIME_NOT_SET without times.
  virtual HRESULT STDMETHODCALLTYPE GetTime(REFERENCE_TIME* pTimeStart, REFERENCE_TIME* pTimeEnd) = 0;
  // Null start clears the times; null end sets the start only.
  virtual HRESULT STDMETHODCALLTYPE SetTime(REFERENCE_TIME* pTimeStart, REFERENCE_TIME* pTimeEnd) = 0;
  virtual HRESULT STDMETHODCALLTYPE IsSyncPoint() = 0;  // S_OK or S_FALSE
  virtual HRESULT STDMETHODCALLTYPE SetSyncPoint(BOOL bIsSyncPoint) = 0;
  virtual HRESULT STDMETHODCALLTYPE IsPreroll() = 0;  // S_OK or S_FALSE
  virtual HRESULT STDMETHODCALLTYPE SetPreroll(BOOL bIsPreroll) = 0;
  // Valid bytes in the buffer.
  virtual LONG STDMETHODCALLTYPE GetActualDataLength() = 0;
  // VFW_E_BUFFER_OVERFLOW above GetSize, E_INVALIDARG below 0.
  virtual HRESULT STDMETHODCALLTYPE SetActualDataLength(LONG length) = 0;
  // S_FALSE and null when the type did not change with this sample; else a
  // copy the caller frees with DeleteMediaType.
  virtual HRESULT STDMETHODCALLTYPE GetMediaType(AM_MEDIA_TYPE** ppMediaType) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetMediaType(AM_MEDIA_TYPE* pMediaType) = 0;
  virtual HRESULT STDMETHODCALLTYPE IsDiscontinuity() = 0;  // S_OK or S_FALSE
  virtual HRESULT STDMETHODCALLTYPE SetDiscontinuity(BOOL bDiscontinuity) = 0;
  // S_OK, or VFW_E_MEDIA_TIME_NOT_SET.
  virtual HRESULT STDMETHODCALLTYPE GetMediaTime(LONGLONG* pTimeStart, LONGLONG* pTimeEnd) = 0;
  // Null start clears the media times.
  virtual HRESULT STDMETHODCALLTYPE SetMediaTime(LONGLONG* pTimeStart, LONGLONG* pTimeEnd) = 0;
};

// A pool of samples.  SetProperties while decommitted and with no sample
// out; Commit makes the buffers; GetBuffer hands one out (waiting for a free
// one unless AM_GBF_NOWAIT); Decommit makes GetBuffer fail with
// VFW_E_NOT_COMMITTED and wakes its waiters, the memory going when the last
// sample comes back.  Every method may be called from any thread.
class IMemAllocator : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{56A8689C-0AD4-11CE-B03A-0020AF0BA770}");
  virtual HRESULT STDMETHODCALLTYPE SetProperties(ALLOCATOR_PROPERTIES* pRequest, ALLOCATOR_PROPERTIES* pActual) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetProperties(ALLOCATOR_PROPERTIES* pProps) = 0;
  virtual HRESULT STDMETHODCALLTYPE Commit() = 0;
  virtual HRESULT STDMETHODCALLTYPE Decommit() = 0;
  virtual HRESULT STDMETHODCALLTYPE GetBuffer(IMediaSample** ppBuffer, REFERENCE_TIME* pStartTime,
                                              REFERENCE_TIME* pEndTime, DWORD dwFlags) = 0;
  virtual HRESULT STDMETHODCALLTYPE ReleaseBuffer(IMediaSample* pBuffer) = 0;
};

// The input side of the memory transport.  The output pin asks for the
// input's allocator and requirements while connecting and tells it the one
// chosen; samples then arrive through Receive on the upstream streaming
// thread.  Receive answers S_OK to go on, S_FALSE to ask the sender to stop
// (until a flush or a new run), or a failure.
class IMemInputPin : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{56A8689D-0AD4-11CE-B03A-0020AF0BA770}");
  virtual HRESULT STDMETHODCALLTYPE GetAllocator(IMemAllocator** ppAllocator) = 0;
  virtual HRESULT STDMETHODCALLTYPE NotifyAllocator(IMemAllocator* pAllocator, BOOL bReadOnly) = 0;
  // E_NOTIMPL when the pin has none.
  virtual HRESULT STDMETHODCALLTYPE GetAllocatorRequirements(ALLOCATOR_PROPERTIES* pProps) = 0;
  virtual HRESULT STDMETHODCALLTYPE Receive(IMediaSample* pSample) = 0;
  virtual HRESULT STDMETHODCALLTYPE ReceiveMultiple(IMediaSample** pSamples, LONG nSamples, LONG* nSamplesProcessed) = 0;
  // S_OK when Receive may block, S_FALSE when it never does.
  virtual HRESULT STDMETHODCALLTYPE ReceiveCanBlock() = 0;
};

inline constexpr GUID IID_IMediaSample = IMediaSample::kIid;
inline constexpr GUID IID_IMemAllocator = IMemAllocator::kIid;
inline constexpr GUID IID_IMemInputPin = IMemInputPin::kIid;


#endif  // !_WIN32

// A side interface of a media sample: whether the sample is known to hold
// silence only.  The memory source sets it on samples it knows are silent;
// a filter may read it on its input and set it on its output.
class IZqSampleSilence : public IUnknown {
 public:
  using Base = IUnknown;
  static constexpr GUID kIid = ZqGuid("{447DA113-4AC8-4833-849A-2BA285E1E52B}");
  // TRUE when the sample is known to be silent.
  virtual BOOL STDMETHODCALLTYPE IsSilent() = 0;
  virtual HRESULT STDMETHODCALLTYPE SetSilent(BOOL silent) = 0;
};
inline constexpr GUID IID_IZqSampleSilence = IZqSampleSilence::kIid;
