// A sink filter that collects what reaches it: every received sample's
// bytes, times, media times and flags, and the order of samples, new
// segments, flushes and ends of stream.  One input pin ("In").
//
// It takes audio types with a wave format unless told otherwise, and offers
// upstream an allocator of its own (see CMemAllocator).  A subclass may
// refuse or fail through the hooks below.
//
// Thread safety: the settings and the observations may be used from any
// thread while samples arrive.  At end of stream it reports EC_COMPLETE to
// its graph.
#pragma once

#include <functional>
#include <vector>

#include "mediafw/basefilter.h"

struct ZqReceivedSample {
  std::vector<BYTE> data;  // the actual length's bytes
  LONG size = 0;           // the buffer's capacity
  HRESULT timeStatus = S_OK;  // GetTime's answer
  REFERENCE_TIME start = 0;
  REFERENCE_TIME stop = 0;
  HRESULT mediaTimeStatus = S_OK;  // GetMediaTime's answer
  LONGLONG mediaStart = 0;
  LONGLONG mediaStop = 0;
  bool discontinuity = false;
  bool syncPoint = false;
  bool preroll = false;
  bool answersSilence = false;  // the sample answers IZqSampleSilence
  bool silent = false;          // and says it is silent
};

enum class ZqSinkEventKind { Sample, EndOfStream, BeginFlush, EndFlush, NewSegment };

struct ZqSinkEvent {
  ZqSinkEventKind kind;
  size_t sample = 0;  // index into Samples() for a Sample event
  REFERENCE_TIME segmentStart = 0;
  REFERENCE_TIME segmentStop = 0;
  double rate = 0;
};

class CZqCollectSink : public CBaseFilter {
 public:
  static constexpr CLSID kClsid = ZqGuid("{8D4B2A6E-1F37-4C59-A0E2-6B7C9D3F1A84}");

  explicit CZqCollectSink(IUnknown* outer = nullptr);
  ~CZqCollectSink() override;
  // A new sink with one reference.
  static HRESULT Create(CZqCollectSink** sink);

  // --- settings ---
  // Types are judged by `accept` instead of the audio test.
  void SetTypeFilter(std::function<bool(const AM_MEDIA_TYPE&)> accept);
  // Answered by GetAllocatorRequirements (E_NOTIMPL until set).
  void SetAllocatorRequirements(const ALLOCATOR_PROPERTIES& props);
  // Types the pin offers first when an output pin connects without a type.
  void OfferTypes(std::vector<CMediaType> types);
  // The sink's own allocator.
  CMemAllocator* Allocator() { return m_pOwnAllocator; }

  // --- observations ---
  std::vector<ZqReceivedSample> Samples();
  std::vector<ZqSinkEvent> Events();
  // The bytes of all samples in order.
  std::vector<BYTE> AllBytes();
  LONG EndOfStreamCount();
  LONG ReceiveCalls();
  LONG QueryAcceptCalls();
  // The type of the connection (empty when not connected).
  CMediaType ConnectedType();
  // S_OK once an end of stream arrived (since Clear), E_ABORT after
  // `milliseconds`.
  HRESULT WaitForEndOfStream(DWORD milliseconds);
  // Forgets what was collected.
  void Clear();

  int GetPinCount() override { return 1; }
  CBasePin* GetPin(int n) override;
  CBaseInputPin* InputPin();

 protected:
  // What a subclass may answer instead; each is called under the sink's
  // data lock and S_OK lets the sink go on as it does by itself.
  // A connection type: VFW_E_TYPE_NOT_ACCEPTED refuses it.
  virtual HRESULT CheckConnectionType(const CMediaType*) { return S_OK; }
  // S_FALSE (or any status but S_OK) is QueryAccept's answer.
  virtual HRESULT CheckQueryAccept() { return S_OK; }
  // A failure is Receive's answer, and nothing is collected.
  virtual HRESULT CheckReceive() { return S_OK; }
  // A failure is EndOfStream's answer, and nothing is noted.
  virtual HRESULT CheckEndOfStream() { return S_OK; }

 private:
  class Pin;
  friend class Pin;
  HRESULT Collect(IMediaSample* sample);

  CCritSec m_csFilter;
  CCritSec m_csData;
  Pin* m_pPin = nullptr;
  CMemAllocator* m_pOwnAllocator = nullptr;  // counted
  std::function<bool(const AM_MEDIA_TYPE&)> m_typeFilter;
  LONG m_receiveCalls = 0;
  bool m_hasRequirements = false;
  ALLOCATOR_PROPERTIES m_requirements{};
  std::vector<CMediaType> m_offered;
  std::vector<ZqReceivedSample> m_samples;
  std::vector<ZqSinkEvent> m_events;
  LONG m_eosCount = 0;
  LONG m_queryAcceptCalls = 0;
  CAMEvent m_eos{TRUE};
};
