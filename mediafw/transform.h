// The transform filter: one input pin, one output pin, and a subclass that
// answers narrow questions (which input types, which output types for an
// input, how big the buffers, what to do with a sample).  The base does
// negotiation, allocation, state changes, flushing and end of stream.
//
// Locks: m_csFilter is the state lock (connection and state changes);
// m_csReceive orders Receive and EndOfStream against Stop.  Stop takes the
// receive lock after decommitting the input, so that a Receive waiting for
// a buffer is released first.  StartStreaming runs under both locks,
// StopStreaming too.
//
// Streaming: StartStreaming is called on the change from stopped to paused
// when both pins are connected, StopStreaming on the change back to
// stopped; each exactly once per run.
//
// Two ways of transforming: sample for sample (the default: one output
// buffer per input sample, made by Transform), or frames (an audio filter
// whose output runs at its own pace: an input sample goes out in as many
// output buffers as it fills, or in none, and end of stream drains what the
// subclass still holds).  In the frame way the base owns the buffers, the
// output times and marks, delivery and the end of stream; the subclass
// answers ProcessFrames and DrainFrames.
#pragma once

#include "mediafw/basefilter.h"

class CTransformFilter;

enum class ZqTransformMode { SampleForSample, Frames };

// The frame layout of a stream in the frame way, read once per sample.
struct ZqFrameLayout {
  WORD inputFrameBytes = 0;   // 0: nothing of the sample is taken
  WORD outputFrameBytes = 0;
  DWORD framesPerSecond = 0;  // of the output, for its times (0: no duration)
};

// One step of a sample in the frame way: the subclass takes up to
// `inputFrames` frames from `input`, at most as many as fit its own cuts, and
// writes what it produces to `output`.
struct ZqFrameBlock {
  const BYTE* input = nullptr;  // the sample's next frame
  ULONG inputFrames = 0;        // frames of the sample not yet taken
  ULONG sampleFrames = 0;       // frames of the whole sample
  BYTE* output = nullptr;
  ULONG outputCapacity = 0;     // frames the output buffer holds
  bool restart = false;         // the first step after a discontinuity (or after a silence)
  bool resumed = false;         // the first step of the sample, or the first after a failed one
  // Answered by the subclass.
  ULONG usedFrames = 0;      // frames taken (may exceed inputFrames: the rest of the sample is given up)
  ULONG producedFrames = 0;  // frames written to `output`
};

class CTransformInputPin : public CBaseInputPin {
 public:
  CTransformInputPin(const WCHAR* objectName, CTransformFilter* filter, HRESULT* phr, LPCWSTR pinName);

  // The filter's CheckConnect, BreakConnect, CompleteConnect for the input
  // direction, around the base's.
  HRESULT CheckConnect(IPin* pPin) override;
  HRESULT BreakConnect() override;
  HRESULT CompleteConnect(IPin* pReceivePin) override;
  // CheckInputType; with the output connected also CheckTransform against
  // the output's type.
  HRESULT CheckMediaType(const CMediaType* mtIn) override;
  HRESULT SetMediaType(const CMediaType* mt) override;
  // "In".
  HRESULT STDMETHODCALLTYPE QueryId(LPWSTR* Id) override;

  // Under the receive lock: CheckStreaming, then the filter's Receive.
  HRESULT STDMETHODCALLTYPE Receive(IMediaSample* pSample) override;
  // Under the receive lock: CheckStreaming, then the filter's EndOfStream.
  HRESULT STDMETHODCALLTYPE EndOfStream() override;
  // Under the state lock; VFW_E_NOT_CONNECTED unless both pins are
  // connected; then the filter's BeginFlush / EndFlush.
  HRESULT STDMETHODCALLTYPE BeginFlush() override;
  HRESULT STDMETHODCALLTYPE EndFlush() override;
  HRESULT STDMETHODCALLTYPE NewSegment(REFERENCE_TIME tStart, REFERENCE_TIME tStop, double dRate) override;

 protected:
  CTransformFilter* m_pTransformFilter;
};

class CTransformOutputPin : public CBaseOutputPin {
 public:
  CTransformOutputPin(const WCHAR* objectName, CTransformFilter* filter, HRESULT* phr, LPCWSTR pinName);

  // The input must be connected first (E_UNEXPECTED).
  HRESULT CheckConnect(IPin* pPin) override;
  HRESULT BreakConnect() override;
  HRESULT CompleteConnect(IPin* pReceivePin) override;
  HRESULT DecideBufferSize(IMemAllocator* pAlloc, ALLOCATOR_PROPERTIES* pProp) override;
  // CheckTransform from the input's type; E_INVALIDARG without an input.
  HRESULT CheckMediaType(const CMediaType* mtOut) override;
  HRESULT SetMediaType(const CMediaType* mtOut) override;
  // The filter's types while the input is connected, otherwise none.
  HRESULT GetMediaType(int iPosition, CMediaType* pMediaType) override;
  // "Out".
  HRESULT STDMETHODCALLTYPE QueryId(LPWSTR* Id) override;

 protected:
  CTransformFilter* m_pTransformFilter;
};

class CTransformFilter : public CBaseFilter {
 public:
  CTransformFilter(const WCHAR* objectName, IUnknown* outer, REFCLSID clsid,
                   ZqTransformMode mode = ZqTransformMode::SampleForSample);
  ~CTransformFilter() override;

  int GetPinCount() override { return 2; }
  // Makes both pins on first use ("XForm In", "XForm Out").
  CBasePin* GetPin(int n) override;
  // "In" and "Out", as the pins' QueryId answers.
  HRESULT STDMETHODCALLTYPE FindPin(LPCWSTR Id, IPin** ppPin) override;

  HRESULT STDMETHODCALLTYPE Stop() override;
  HRESULT STDMETHODCALLTYPE Pause() override;

  // --- what a subclass answers ---
  // Makes the output sample from the input one; S_FALSE skips it.  The
  // default is never to be called: E_UNEXPECTED.
  virtual HRESULT Transform(IMediaSample* pIn, IMediaSample* pOut);
  virtual HRESULT CheckInputType(const CMediaType* mtIn) = 0;
  virtual HRESULT CheckTransform(const CMediaType* mtIn, const CMediaType* mtOut) = 0;
  virtual HRESULT DecideBufferSize(IMemAllocator* pAllocator, ALLOCATOR_PROPERTIES* pProp) = 0;
  virtual HRESULT GetMediaType(int iPosition, CMediaType* pMediaType) = 0;

  virtual HRESULT StartStreaming() { return S_OK; }
  virtual HRESULT StopStreaming() { return S_OK; }
  virtual HRESULT SetMediaType(PIN_DIRECTION, const CMediaType*) { return S_OK; }
  virtual HRESULT CheckConnect(PIN_DIRECTION, IPin*) { return S_OK; }
  virtual HRESULT BreakConnect(PIN_DIRECTION) { return S_OK; }
  virtual HRESULT CompleteConnect(PIN_DIRECTION, IPin*) { return S_OK; }

  // --- what a subclass in the frame way answers (streaming thread, receive
  // lock held) ---
  virtual ZqFrameLayout FrameLayout() { return {}; }
  // A sample arrived, with its times as GetTime gave them (0 where it gave
  // none); called before any output buffer is asked for.
  virtual void BeginSample(REFERENCE_TIME, REFERENCE_TIME) {}
  // One step: fills usedFrames and producedFrames.  A failure leaves the
  // input where it was (the frames still count as taken) and the buffer
  // undelivered; the status of the sample is that of its last step.
  virtual HRESULT ProcessFrames(ZqFrameBlock*) { return E_UNEXPECTED; }
  // At end of stream: writes up to `*frames` frames (the buffer's capacity)
  // of what the subclass still holds and says how many; S_FALSE when it
  // holds nothing more.  A failed chunk is dropped and draining goes on.
  virtual HRESULT DrainFrames(BYTE*, ULONG* frames) {
    *frames = 0;
    return S_FALSE;
  }

  // Streaming thread, receive lock held: sample for sample, an output
  // buffer, Transform, and delivery of the result; in the frame way,
  // ReceiveFrames.
  virtual HRESULT Receive(IMediaSample* pSample);
  // Streaming thread, receive lock held: passed on downstream (in the frame
  // way after the drained frames).
  virtual HRESULT EndOfStream();
  // Passed on downstream.
  virtual HRESULT BeginFlush();
  virtual HRESULT EndFlush();
  virtual HRESULT NewSegment(REFERENCE_TIME tStart, REFERENCE_TIME tStop, double dRate);

  // A delivery buffer with the input's times, media times and flags.
  virtual HRESULT InitializeOutputSample(IMediaSample* pSample, IMediaSample** ppOutSample);

 protected:
  friend class CTransformInputPin;
  friend class CTransformOutputPin;

  // The frame way.  Output times run on from the last discontinuity: an
  // output buffer starts where the one before stopped and lasts its frames
  // at the output rate; media times count frames.  The first buffer after a
  // discontinuity carries the mark and the discontinuous sample's times, the
  // first after a sync point the sync mark.  Drained buffers carry no times
  // or marks.  A sample marked silent (IZqSampleSilence) after a silent
  // sample passes through as silence; sound after silence restarts.
  HRESULT ReceiveFrames(IMediaSample* pSample);
  HRESULT DrainAndEndStream();
  // Stamps `out` with the next `frames` of output time and the pending marks.
  void StampFrames(IMediaSample* out, ULONG frames, DWORD framesPerSecond, BOOL silent);

  const ZqTransformMode m_mode;
  BOOL m_bPendingDiscontinuity = FALSE;
  BOOL m_bPendingSyncPoint = FALSE;
  REFERENCE_TIME m_rtOutStart = 0;
  REFERENCE_TIME m_rtOutStop = 0;
  LONGLONG m_llMediaStart = 0;
  LONGLONG m_llMediaStop = 0;
  BOOL m_bSampleSilent = FALSE;

  BOOL m_bEOSDelivered = FALSE;
  BOOL m_bSampleSkipped = FALSE;
  BOOL m_bQualityChanged = FALSE;
  CCritSec m_csFilter;
  CCritSec m_csReceive;
  CTransformInputPin* m_pInput = nullptr;
  CTransformOutputPin* m_pOutput = nullptr;
};
