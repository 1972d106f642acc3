// The path of one media sample through the filter: cut at tempo changes and
// envelope steps, through the effect, past the plug-in's latency; the
// framework's transform base takes it out in one or more output samples with
// computed times, and drains the tail at end of stream.
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

}  // namespace

// --- Start and stop ---------------------------------------------------------------

void CZqVstWrap::PushEnvelopeValues() {
  ParamValues values(ParamCount());
  GetAllParams(values.data());
  m_dirty = FALSE;
  PushChangedParamsToEffect(values.data());
}

HRESULT CZqVstWrap::StartStreaming() {
  StartParamStreaming(m_outFormat.nSamplesPerSec);
  m_spare = 0;
  m_effectStarted = FALSE;
  m_inputFormat = &m_inFormat;
  m_outputFormat = &m_outFormat;
  // The plug-in hears every envelope-driven value before its first block;
  // it is started by that block, not here.
  PushEnvelopeValues();
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

HRESULT CZqVstWrapTransform::ProcessBlock(BlockKind kind, const BYTE* input, ULONG* frames, BYTE* output,
                                          ULONG* outFrames) {
  ULONG requested = frames ? *frames : 0;
  ULONG remaining = requested;
  HRESULT status = S_FALSE;

  if (kind == BlockKind::First) {
    // After a discontinuity the plug-in's present latency is counted again.
    m_latencyToDiscard = 0;
    if (!m_latencyOff) m_effect->GetLatency(&m_latencyToDiscard);
    m_tailStarted = FALSE;
    m_tailRemaining = m_latencyToDiscard;
  } else if (kind == BlockKind::Tail) {
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

// --- One step of a sample --------------------------------------------------------------

ZqFrameLayout CZqVstWrap::FrameLayout() {
  ZqFrameLayout layout;
  if (m_inputFormat) layout.inputFrameBytes = m_inputFormat->nBlockAlign;
  if (m_outputFormat) {
    layout.outputFrameBytes = m_outputFormat->nBlockAlign;
    layout.framesPerSecond = m_outputFormat->nSamplesPerSec;
  }
  return layout;
}

void CZqVstWrap::BeginSample(REFERENCE_TIME start, REFERENCE_TIME stop) { SetSampleTimes(start, stop); }

HRESULT CZqVstWrap::ProcessFrames(ZqFrameBlock* block) {
  // A tempo or meter change ends a segment, and each segment starts with a
  // time record of its own; so does the first step of a sample and the
  // first after a failed one.
  if (block->resumed || m_segmentLeft == 0) {
    m_segmentLeft = HasTimeSource()
                        ? ULONG(BuildTimeInfo(LONG(block->inputFrames), ZQTIME_FILTER_MASK, &m_timeRecord))
                        : block->sampleFrames;
  }

  // Buffers are sized like the input's, which holds a whole sample as long
  // as the plug-in gives no more channels than it takes; with more (mono
  // into a stereo plug-in) a sample goes out in several buffers rather than
  // past the end of one.  The chunk is cut to all of that before the
  // envelope clock moves, so that the clock moves by what is processed.
  const ULONG capacity = block->outputCapacity;
  ULONG limit = m_segmentLeft < block->inputFrames ? m_segmentLeft : block->inputFrames;
  if (limit > capacity && capacity > 0) limit = capacity;
  DWORD changed = 0;
  ULONG chunk = UpdateEnvelopes(limit, &changed, 1.0);
  if (chunk > block->inputFrames) chunk = block->inputFrames;
  if (chunk > capacity && capacity > 0) chunk = capacity;
  if (changed) PushEnvelopeValues();

  if (!m_effectStarted || block->restart) {
    // Restart processing without switching the plug-in off: its state is
    // cleared but its settings stay.
    m_effect->Suspend(FALSE);
    m_effect->Resume(FALSE);
  }
  m_effectStarted = TRUE;
  ULONG outFrames = 0;
  HRESULT status = ProcessBlock(block->restart ? BlockKind::First : BlockKind::Ordinary, block->input, &chunk,
                                block->output, &outFrames);
  if (status == S_FALSE) {
    // Nothing was processed (an empty sample): the whole sample counts as
    // done and the buffer goes out at the sample's length.
    chunk = block->sampleFrames;
    outFrames = block->sampleFrames;
    status = S_OK;
  }
  m_segmentLeft = chunk >= m_segmentLeft ? 0 : m_segmentLeft - chunk;
  block->usedFrames = chunk;
  block->producedFrames = outFrames;
  return status;
}

// --- End of stream: the tail -----------------------------------------------------------

HRESULT CZqVstWrap::DrainFrames(BYTE* output, ULONG* frames) {
  // No input: the effect feeds the plug-in silence.
  return ProcessBlock(BlockKind::Tail, nullptr, nullptr, output, frames);
}
