// The path of one media sample through the filter: cut at tempo changes and
// envelope steps, through the effect, past the plug-in's latency, out in one
// or more output samples with computed times; and the tail at end of stream.
//
// The filter never touches audio bytes itself except to shift them when it
// discards latency: conversion between the host's interleaved samples and
// the plug-in's float planes happens inside the effect's ProcessAudio.
// Nothing here allocates from the heap for plug-ins of ordinary size: the
// parameter arrays live on the stack.
#include <cstring>
#include <vector>

#include "aplugins/zqvstwrap/filter/zqvstwrap.h"

namespace {

// Parameter values of a push, on the stack for all but the largest plug-ins.
class ParamValues {
 public:
  explicit ParamValues(DWORD count) {
    if (count > kInline) m_heap.resize(count);
  }
  float* data() { return m_heap.empty() ? m_inline : m_heap.data(); }

 private:
  static constexpr DWORD kInline = 512;
  float m_inline[kInline];
  std::vector<float> m_heap;
};

// Silence information a sample may carry.
IZqSampleSilence* SilenceOf(IMediaSample* sample) {
  IZqSampleSilence* silence = nullptr;
  if (FAILED(sample->QueryInterface(IID_IZqSampleSilence, reinterpret_cast<void**>(&silence)))) return nullptr;
  return silence;
}

}  // namespace

// --- Start and stop ---------------------------------------------------------------

HRESULT CZqVstWrap::StartStreaming() {
  StartParamStreaming(m_outFormat.nSamplesPerSec);
  m_spare = 0;
  m_effectStarted = FALSE;
  m_inputFormat = &m_inFormat;
  m_outputFormat = &m_outFormat;
  // The plug-in hears every envelope-driven value before its first block;
  // it is started by that block, not here.
  ParamValues values(ParamCount());
  GetAllParams(values.data());
  m_dirty = FALSE;
  PushChangedParamsToEffect(values.data());
  std::memset(&m_timeRecord, 0, sizeof(m_timeRecord));
  return S_OK;
}

HRESULT CZqVstWrap::StopStreaming() {
  StopParamStreaming();
  SuspendEffect();
  std::memset(&m_timeRecord, 0, sizeof(m_timeRecord));
  // Only a new connection sizes the buffers again; a run that follows
  // without one has no tail to deliver.
  m_maxBlock = 0;
  return S_OK;
}

// --- One block ------------------------------------------------------------------------

HRESULT CZqVstWrapTransform::ProcessBlock(int kind, const BYTE* input, ULONG* frames, BYTE* output,
                                          ULONG* outFrames) {
  ULONG requested = frames ? *frames : 0;
  ULONG remaining = requested;
  HRESULT status = S_FALSE;

  if (kind == 0) {
    // After a discontinuity the plug-in's present latency is counted again.
    m_latencyToDiscard = 0;
    if (!m_latencyOff) m_effect->GetLatency(&m_latencyToDiscard);
    m_tailStarted = FALSE;
    m_tailRemaining = m_latencyToDiscard;
  } else if (kind == 2) {
    if (!m_tailStarted) {
      LONG tail = 0;
      m_effect->GetTailSize(&tail);
      m_tailStarted = TRUE;
      // What is still to be discarded is not owed downstream.
      m_tailRemaining += tail - m_latencyToDiscard;
    }
    if (m_tailRemaining <= 0) {
      m_tailRemaining = 0;
      if (frames) *frames = 0;
      if (outFrames) *outFrames = 0;
      return S_FALSE;
    }
    requested = remaining = m_maxBlock < ULONG(m_tailRemaining) ? m_maxBlock : ULONG(m_tailRemaining);
    // The largest block counts four bytes a sample; a buffer of wider
    // samples (doubles) or of more output than input channels holds fewer
    // frames, and the caller says how many in `outFrames`.
    const ULONG room = outFrames ? *outFrames : 0;
    if (room != 0 && requested > room) requested = remaining = room;
  }

  if (requested != 0) {
    const int inChannels = m_inputFormat->nChannels;
    const int outChannels = m_outputFormat->nChannels;
    const int bytesPerSample = inChannels ? m_inputFormat->nBlockAlign / inChannels : 0;
    status = m_effect->ProcessAudio(input, inChannels, output, outChannels, int(requested), bytesPerSample);
    if (SUCCEEDED(status) && m_latencyToDiscard > 0) {
      if (remaining < ULONG(m_latencyToDiscard)) {
        m_latencyToDiscard -= LONG(remaining);
        remaining = 0;
      } else {
        const size_t align = m_outputFormat->nBlockAlign;
        const size_t skip = size_t(m_latencyToDiscard) * align;
        std::memmove(output, output + skip, size_t(remaining) * align - skip);
        remaining -= ULONG(m_latencyToDiscard);
        m_latencyToDiscard = 0;
      }
    }
  }
  if (m_tailStarted) m_tailRemaining -= LONG(remaining);
  if (frames) *frames = requested;
  if (outFrames) *outFrames = remaining;
  return status;
}

// --- One sample -------------------------------------------------------------------------

HRESULT CZqVstWrap::Receive(IMediaSample* sample) {
  REFERENCE_TIME sampleStart = 0, sampleStop = 0;
  sample->GetTime(&sampleStart, &sampleStop);
  SetSampleTimes(sampleStart, sampleStop);

  IMediaSample* out = nullptr;
  HRESULT status = m_pOutput->GetDeliveryBuffer(&out, nullptr, nullptr, 0);
  if (FAILED(status)) return status;

  int kind = sample->IsDiscontinuity() == S_OK ? 0 : 1;
  if (sample->IsSyncPoint() == S_OK) m_pendingSyncPoint = TRUE;
  if (kind == 0) {
    // Times are rebased to the sample that follows a break in the stream.
    m_pendingDiscontinuity = TRUE;
    m_outStart = sampleStart;
    m_outStop = sampleStop;
    LONGLONG mediaStart = 0, mediaStop = 0;
    sample->GetMediaTime(&mediaStart, &mediaStop);
    m_mediaStart = mediaStart;
    m_mediaStop = mediaStop;
  }

  LONG remaining = sample->GetActualDataLength();

  // Silence marks.  The silent state only ever takes the value of `silent`,
  // which needs it to be set already, so silent samples go through the
  // plug-in like any other; the branches for them are kept as the stream's
  // contract with hosts that mark silence.
  BOOL flagged = FALSE;
  if (IZqSampleSilence* silence = SilenceOf(sample)) {
    flagged = silence->IsSilent();
    silence->Release();
  }
  const BOOL silent = flagged && m_sampleSilent;
  BYTE* in = nullptr;
  if (!silent) sample->GetPointer(&in);
  if (m_sampleSilent && !flagged) kind = 0;

  const WORD inAlign = m_inputFormat->nBlockAlign;
  const WORD outAlign = m_outputFormat->nBlockAlign;
  const DWORD rate = m_outputFormat->nSamplesPerSec;
  const ULONG total = inAlign ? ULONG(remaining) / inAlign : 0;
  ULONG done = 0;
  ULONG segmentEnd = total;

  do {
    if (HasTimeSource()) segmentEnd = ULONG(BuildTimeInfo(LONG(total - done), ZQTIME_FILTER_MASK, &m_timeRecord));
    ULONG segmentDone = 0;
    do {
      if (out == nullptr) {
        // The last buffer could not be replaced; without one nothing more
        // of this sample can go out.
        status = m_pOutput->GetDeliveryBuffer(&out, nullptr, nullptr, 0);
        if (FAILED(status)) {
          done = total;
          break;
        }
      }
      const ULONG capacity = outAlign ? ULONG(out->GetSize()) / outAlign : 0;
      BYTE* dst = nullptr;
      out->GetPointer(&dst);

      DWORD changed = 0;
      ULONG chunk = UpdateEnvelopes(segmentEnd - segmentDone, &changed, 1.0);
      if (chunk > total - done) chunk = total - done;
      // Buffers are sized like the input's, which holds a whole sample as
      // long as the plug-in gives no more channels than it takes; with more
      // (mono into a stereo plug-in) a sample goes out in several buffers
      // rather than past the end of one.
      if (chunk > capacity && capacity > 0) chunk = capacity;
      if (changed) {
        ParamValues values(ParamCount());
        GetAllParams(values.data());
        m_dirty = FALSE;
        PushChangedParamsToEffect(values.data());
      }

      m_sampleSilent = silent;
      ULONG outFrames = 0;
      if (!silent) {
        if (!m_effectStarted || kind == 0) {
          // Restart processing without switching the plug-in off: its state
          // is cleared but its settings stay.
          m_effect->Suspend(FALSE);
          m_effect->Resume(FALSE);
        }
        m_effectStarted = TRUE;
        status = ProcessBlock(kind, in, &chunk, dst, &outFrames);
      }
      if (status == S_FALSE || silent) {
        chunk = total;
        outFrames = total;
        status = S_OK;
      }

      const LONG outBytes = LONG(outAlign * outFrames);
      const LONG inBytes = LONG(inAlign * chunk);
      done += chunk;
      segmentDone += chunk;
      out->SetActualDataLength(outBytes);
      if (FAILED(status)) break;

      if (outBytes > 0) {
        if (m_pendingDiscontinuity) {
          out->SetDiscontinuity(TRUE);
          m_pendingDiscontinuity = FALSE;
        } else {
          m_outStart = m_outStop;
          m_mediaStart = m_mediaStop;
        }
        const LONGLONG duration = rate == 0 ? 0 : LONGLONG(double(outFrames) / double(rate) * 10000000.0 + 0.5);
        m_outStop = m_outStart + duration;
        m_mediaStop = m_mediaStart + LONGLONG(outFrames);
        out->SetTime(&m_outStart, &m_outStop);
        out->SetMediaTime(&m_mediaStart, &m_mediaStop);
        m_outStart = m_outStop;
        m_mediaStart = m_mediaStop;
        if (m_pendingSyncPoint) {
          out->SetSyncPoint(TRUE);
          m_pendingSyncPoint = FALSE;
        }
        if (IZqSampleSilence* silence = SilenceOf(out)) {
          silence->SetSilent(silent);
          silence->Release();
        }
        status = m_pOutput->Deliver(out);
        if (FAILED(status)) break;
      }

      if (inBytes >= remaining) break;
      if (in) in += inBytes;
      remaining -= inBytes;
      if (kind != 2) kind = 1;

      // A block swallowed whole by latency keeps its buffer for the next.
      if (outBytes > 0) {
        out->Release();
        out = nullptr;
        status = m_pOutput->GetDeliveryBuffer(&out, nullptr, nullptr, 0);
        if (FAILED(status)) break;
      }
    } while (segmentDone < segmentEnd);
  } while (done < total);

  sample->SetActualDataLength(remaining);
  if (out) out->Release();
  return status;
}

// --- End of stream: the tail -----------------------------------------------------------

HRESULT CZqVstWrap::EndOfStream() {
  if (m_pOutput == nullptr) return S_OK;
  IMediaSample* out = nullptr;
  HRESULT hr = m_pOutput->GetDeliveryBuffer(&out, nullptr, nullptr, 0);
  if (FAILED(hr)) return hr;

  const WORD outAlign = m_outputFormat->nBlockAlign;
  LONG outBytes = 0;
  for (;;) {
    ULONG frames = outAlign ? ULONG(out->GetSize()) / outAlign : 0;
    BYTE* dst = nullptr;
    out->GetPointer(&dst);
    // No input: the effect feeds the plug-in silence.
    HRESULT status = ProcessBlock(2, nullptr, nullptr, dst, &frames);
    outBytes = LONG(outAlign * frames);
    out->SetActualDataLength(outBytes);
    if (status == S_FALSE) break;
    if (SUCCEEDED(status)) {
      HRESULT delivered = m_pOutput->Deliver(out);
      out->Release();
      out = nullptr;
      if (FAILED(delivered)) {
        m_pOutput->DeliverEndOfStream();
        return delivered;
      }
    } else {
      out->Release();
      out = nullptr;
    }
    hr = m_pOutput->GetDeliveryBuffer(&out, nullptr, nullptr, 0);
    if (FAILED(hr)) return hr;
  }

  HRESULT delivered = S_OK;
  if (outBytes > 0) delivered = m_pOutput->Deliver(out);
  out->Release();
  HRESULT eos = m_pOutput->DeliverEndOfStream();
  return FAILED(delivered) ? delivered : eos;
}
