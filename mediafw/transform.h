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
#pragma once

#include "mediafw/basefilter.h"

class CTransformFilter;

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
  CTransformFilter(const WCHAR* objectName, IUnknown* outer, REFCLSID clsid);
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

  // Streaming thread, receive lock held: an output buffer, Transform, and
  // delivery of the result.
  virtual HRESULT Receive(IMediaSample* pSample);
  // Streaming thread, receive lock held: passed on downstream.
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

  BOOL m_bEOSDelivered = FALSE;
  BOOL m_bSampleSkipped = FALSE;
  BOOL m_bQualityChanged = FALSE;
  CCritSec m_csFilter;
  CCritSec m_csReceive;
  CTransformInputPin* m_pInput = nullptr;
  CTransformOutputPin* m_pOutput = nullptr;
};
