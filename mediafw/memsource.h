// A source filter over memory: interleaved audio in any WAVEFORMATEX or
// WAVEFORMATEXTENSIBLE format, pushed from one output pin ("Out") in samples
// of a chosen frame count.
//
// The frames come from the bytes given to SetData, or from a subclass that
// answers ReadFrames (a file read as it plays, a signal made as it goes):
// then the source holds no more than the samples in flight, however long
// the stream.
//
// Each sample carries start and stop times in 100-ns units (from the start
// time, by the frames before it), media times in frames (from the start
// media time), the sync-point mark, a discontinuity where asked (the first
// sample unless told otherwise) and, through IZqSampleSilence when the
// sample answers it, the silence mark where asked.  A new segment is sent
// before the first sample and the end of stream after the last.
//
// Delivery runs on a streaming thread of the filter's own, started when the
// filter leaves the stopped state and ended when it stops; or, when not
// threaded, one sample per PushNext call on the caller's thread.  A failure
// of delivery ends the stream: EC_ERRORABORT to the graph and the end of
// stream downstream; buffers decommitted or a receiver stopped under it
// (the graph stops downstream filters first) end it quietly.  Configure
// while stopped.
#pragma once

#include <atomic>
#include <set>
#include <type_traits>
#include <utility>
#include <vector>

#include "mediafw/basefilter.h"

class CZqMemorySource : public CBaseFilter {
 public:
  static constexpr CLSID kClsid = ZqGuid("{3C1E8F52-7A0B-4D6E-9B21-5F4A8C0D1E37}");

  explicit CZqMemorySource(IUnknown* outer = nullptr);
  ~CZqMemorySource() override;
  // A new source with one reference.
  static HRESULT Create(CZqMemorySource** source);

  // The stream's format (18 + cbSize bytes are copied).  E_INVALIDARG
  // without channels, rate or block alignment.
  HRESULT SetFormat(const WAVEFORMATEX* pwfx);
  // The bytes to play (copied); a trailing partial frame is dropped.
  HRESULT SetData(const void* data, size_t bytes);
  void SetFramesPerSample(ULONG frames);
  void SetStartTime(REFERENCE_TIME start);
  void SetStartMediaTime(LONGLONG frame);
  // Sample indexes (from 0) that carry the discontinuity mark; {0} unless set.
  void SetDiscontinuities(std::set<ULONG> sampleIndexes);
  // Sample indexes marked silent through IZqSampleSilence.
  void SetSilentSamples(std::set<ULONG> sampleIndexes);
  // How many buffers the source asks of the allocator (at least this).
  void SetBufferCount(LONG buffers);
  void SetThreaded(bool threaded);
  void SetSendNewSegment(bool send);

  // Not threaded: delivers the next sample on this thread.  S_OK delivered,
  // S_FALSE when none is left (the end of stream goes out the first time),
  // VFW_E_WRONG_STATE while stopped, E_UNEXPECTED when threaded, or the
  // failure of delivery.
  HRESULT PushNext();
  // Threaded: waits for the streaming thread to finish its stream.  S_OK,
  // or E_ABORT when `milliseconds` passed.
  HRESULT WaitUntilDone(DWORD milliseconds);
  ULONG SamplesDelivered() const { return m_delivered.load(); }
  // Frames in the samples delivered since the stream last started.
  LONGLONG FramesDelivered() const { return m_framesDelivered.load(); }
  // The failure that ended the last stream, or S_OK.
  HRESULT StreamStatus() const { return m_streamStatus.load(); }
  // Samples of the whole stream; 0 when its length is known only once it
  // has been read.
  ULONG SampleCount();

  int GetPinCount() override { return 1; }
  CBasePin* GetPin(int n) override;
  CBaseOutputPin* OutputPin();

 protected:
  // Where the frames come from; the memory source answers from its data.
  // Called on the delivering thread (the streaming thread, or PushNext's
  // caller), for one sample at a time, in order from frame 0 after every
  // start -- but a sample whose delivery did not happen is asked for again,
  // so `first` may repeat.  Writes up to `frames` frames from frame `first`
  // on into `out` (room for `frames`) and answers in *got how many; fewer
  // than asked only at the end of the stream, 0 past it.  A failure ends
  // the stream as a failed delivery does.
  virtual HRESULT ReadFrames(ULONGLONG first, ULONG frames, BYTE* out, ULONG* got);
  // The stream's frames as known before it plays, which the new segment's
  // stop time comes from.  *exact false when the count is only what a
  // header announced: reading then decides where the stream ends, and the
  // source asks for a buffer before it learns that nothing is left.
  virtual LONGLONG StreamFrames(bool* exact);
  // Ends the streaming thread.  A subclass that answers ReadFrames calls
  // this in its destructor, before what ReadFrames uses goes away.
  void StopStreaming();
  // The stream's format as set; null before SetFormat.
  const WAVEFORMATEX* Format() const {
    return m_format.empty() ? nullptr : reinterpret_cast<const WAVEFORMATEX*>(m_format.data());
  }

 private:
  class Pin;
  friend class Pin;
  static DWORD ThreadProc(LPVOID self);
  void StreamLoop();
  // The next sample, or the end of stream once nothing is left.
  HRESULT DeliverNext();
  // S_FALSE when index is past the end.
  HRESULT DeliverSample(ULONG index);
  HRESULT StartStreaming();
  void ResetStream();
  // A setting, changed under the filter lock.
  template <class T>
  void SetLocked(T& setting, std::type_identity_t<T> value) {
    CAutoLock lock(&m_csFilter);
    setting = std::move(value);
  }

  CCritSec m_csFilter;
  Pin* m_pPin = nullptr;
  std::vector<BYTE> m_format;  // WAVEFORMATEX and its extra bytes
  std::vector<BYTE> m_data;
  ULONG m_framesPerSample = 1024;
  REFERENCE_TIME m_startTime = 0;
  LONGLONG m_startMediaTime = 0;
  std::set<ULONG> m_discontinuities{0};
  std::set<ULONG> m_silent;
  LONG m_bufferCount = 4;
  bool m_threaded = true;
  bool m_sendNewSegment = true;

  HANDLE m_thread = nullptr;
  std::atomic<bool> m_stopRequested{false};
  CAMEvent m_done{TRUE};
  ULONG m_next = 0;
  bool m_eosSent = false;
  bool m_segmentSent = false;
  std::atomic<ULONG> m_delivered{0};
  std::atomic<LONGLONG> m_framesDelivered{0};
  std::atomic<HRESULT> m_streamStatus{S_OK};
};
