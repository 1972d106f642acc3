// ProcessAudio of the effect: the channel buffers, the copy in, the guarded
// processReplacing and the copy out, with the routines the effect keeps.
#include "aplugins/zqvstwrap/host/zqvstaudiopath.h"

#include <algorithm>
#include <cstring>

#include "aplugins/zqvstwrap/host/zqvsteffect.h"
#include "kernel/audio/stereo16.h"
#include "kernel/memory.h"

ZqVstAudioRoutines ZqVstChooseAudioRoutines(ZQSAMPLETYPE stream, ZQSAMPLETYPE plugin, int inputs, int outputs) {
  ZqVstAudioRoutines r{};
  r.stream = stream;
  r.plugin = plugin;
  r.inputs = inputs;
  r.outputs = outputs;
  r.copyIn = ZqAudio_GetCopyChannelsFunction2(plugin, stream);
  r.copyOut = ZqAudio_GetCopyChannelsFunction2(stream, plugin);
  // Without a copy routine the channels are not filled at all, so there is
  // no one-pass routine either.
  if (r.copyIn != nullptr && inputs >= 2) r.split = ZqAudio_GetStereoDeInterleaveFunction(plugin, stream);
  if (r.copyOut != nullptr && outputs >= 2) r.merge = ZqAudio_GetStereoInterleaveFunction(stream, plugin);
  const bool wide = stream == ZQSAMPLE_PCM16 && plugin == ZQSAMPLE_FLOAT32 && r.copyIn != nullptr &&
                    r.copyOut != nullptr && ZqAudio_WideStereo16Available();
  r.wideIn = wide && std::min(inputs, outputs) == 2;
  r.wideOut = wide && outputs >= 2;
  return r;
}

namespace {

// Zeroes bytes [0, total) of a channel block from its first channel, except
// the first `keep` bytes of each of its first `kept` channels (channels are
// `stride` bytes apart), which the caller overwrites anyway.  What the
// plug-in finds is the same as after a clear of all `total` bytes.  `clear`
// zeroes one range.
template <class Clear>
void ClearChannelsExcept(float* first, size_t total, size_t stride, int kept, size_t keep, Clear clear) {
  auto* base = reinterpret_cast<unsigned char*>(first);
  for (size_t k = 0, at = 0; at < total; ++k, at += stride) {
    const size_t from = at + (k < static_cast<size_t>(kept) ? std::min(keep, stride) : 0);
    const size_t to = std::min(at + stride, total);
    if (from < to) clear(base + from, to - from);
  }
}

void ClearRange(unsigned char* p, size_t n) { memset(p, 0, n); }

}  // namespace

void CZqVstEffect::ChooseRoutines() {
  AEffect* effect = m_effect;
  m_routines = ZqVstChooseAudioRoutines(m_streamType, m_pluginType, effect ? effect->numInputs : 0,
                                        effect ? effect->numOutputs : 0);
}

// One block per direction: a table of one pointer per channel, then the
// channels, each `frames` samples apart twice over (the stride is twice what
// a block needs).  The capacity is the bytes of one block of one channel.
// Buffers that stand are cleared by CopyIn, which knows which of their bytes
// it overwrites anyway.
bool CZqVstEffect::EnsureChannelBuffers(int frames) {
  AEffect* effect = m_effect;
  const size_t sample = m_pluginType == ZQSAMPLE_FLOAT64 ? 8 : 4;
  const size_t needed = static_cast<size_t>(frames) * sample;
  if (m_inputs != nullptr && m_outputs != nullptr && static_cast<size_t>(m_channelCapacity) >= needed) return true;
  const int inputs = effect ? effect->numInputs : 0;
  const int outputs = effect ? effect->numOutputs : 0;
  m_channelCapacity = 0;
  FreeChannelBuffers();
  const size_t stride = static_cast<size_t>(frames) * sample * 2;
  auto allocate = [&](int channels) -> float** {
    size_t count = channels > 0 ? static_cast<size_t>(channels) : 0;
    auto* block = static_cast<unsigned char*>(ZqMemory_AllocZ((stride + sizeof(float*)) * count));
    if (block == nullptr) return nullptr;
    auto** table = reinterpret_cast<float**>(block);
    unsigned char* first = block + sizeof(float*) * count;
    for (size_t k = 0; k < count; ++k) table[k] = reinterpret_cast<float*>(first + k * stride);
    return table;
  };
  m_inputs = allocate(inputs);
  if (m_inputs == nullptr) return false;
  m_outputs = allocate(outputs);
  if (m_outputs == nullptr) {
    FreeChannelBuffers();
    return false;
  }
  m_channelCapacity = static_cast<LONG>(needed);
  return true;
}

void CZqVstEffect::FreeChannelBuffers() {
  ZqMemory_Free(m_inputs);
  ZqMemory_Free(m_outputs);
  m_inputs = nullptr;
  m_outputs = nullptr;
}

// The clear of the channel buffers, the copy-in and the dry copy.  The clear
// is capacity times numInputs bytes from the first input channel and
// capacity times numOutputs bytes from the first output channel; with the
// double stride that is a partial clear, meant as it is.  Bytes that the
// copy-in or the dry copy write next are left out of it.  Without a source
// (the tail at end of stream) every input is silent: the partial clear
// would leave the last block in the inputs it does not reach.
void CZqVstEffect::CopyIn(const void* source, int sourceChannels, int frames) {
  AEffect* effect = m_effect;
  const ZqVstAudioRoutines& r = m_routines;
  const int inputs = effect->numInputs;
  const int outputs = effect->numOutputs;
  const size_t bytes = static_cast<size_t>(frames) * (m_pluginType == ZQSAMPLE_FLOAT64 ? 8 : 4);
  const int dry = std::max(0, std::min(inputs, outputs));
  const size_t capacity = static_cast<size_t>(m_channelCapacity);

  if (r.wideIn && source != nullptr && sourceChannels == 2) {
    // The two inputs and their dry copies in one pass; the clear leaves them
    // out.  With two channels a side, what it covers of each block is the
    // rest of the first channel's stride, which the pass reads on the way.
    if (inputs == 2 && outputs == 2) {
      auto* inPad = reinterpret_cast<unsigned char*>(m_inputs[0]) + bytes;
      auto* outPad = reinterpret_cast<unsigned char*>(m_outputs[0]) + bytes;
      const size_t pad = 2 * capacity - bytes;
      if (!ZqAudio_SplitStereo16Dry(m_inputs[0], m_inputs[1], m_outputs[0], m_outputs[1], source,
                                    static_cast<size_t>(frames), inPad, outPad, pad)) {
        memset(inPad, 0, pad);
        memset(outPad, 0, pad);
      }
      return;
    }
    ClearChannelsExcept(m_inputs[0], capacity * static_cast<size_t>(inputs), 2 * capacity, 2, bytes,
                        ZqAudio_ClearIfNotZero);
    ClearChannelsExcept(m_outputs[0], capacity * static_cast<size_t>(outputs), 2 * capacity, 2, bytes,
                        ZqAudio_ClearIfNotZero);
    ZqAudio_SplitStereo16Dry(m_inputs[0], m_inputs[1], m_outputs[0], m_outputs[1], source, static_cast<size_t>(frames),
                             nullptr, nullptr, 0);
    return;
  }

  // How the source reaches the inputs, and how many leading inputs get
  // their `bytes` from it.
  enum class Way { None, Mono, Stereo, PerChannel } way = Way::None;
  int filled = 0;
  if (source != nullptr && inputs > 0) {
    if (sourceChannels == 1) {
      way = Way::Mono;
      if (r.copyIn) filled = (inputs == 2 && (effect->flags & effFlagsCanMono)) ? 2 : 1;
    } else if (sourceChannels == 2 && (r.split != nullptr || (inputs == 2 && m_streamType == m_pluginType))) {
      // Both channels in one pass: the same values as channel by channel
      // (with equal types through ZqAudio_DeInterleaveStereo).
      way = Way::Stereo;
      filled = 2;
    } else {
      way = Way::PerChannel;
      if (r.copyIn) filled = std::max(0, std::min(inputs, sourceChannels));
    }
  }

  if (inputs > 0)
    ClearChannelsExcept(m_inputs[0], capacity * static_cast<size_t>(inputs), 2 * capacity, filled, bytes, ClearRange);
  if (outputs > 0)
    ClearChannelsExcept(m_outputs[0], capacity * static_cast<size_t>(outputs), 2 * capacity, dry, bytes, ClearRange);

  switch (way) {
    case Way::None:
      for (int i = 0; i < inputs; ++i) memset(m_inputs[i], 0, bytes);
      break;
    case Way::Mono:
      if (r.copyIn) r.copyIn(m_inputs[0], 1, 0, source, 1, 0, static_cast<DWORD>(frames));
      if (inputs == 2 && (effect->flags & effFlagsCanMono)) memcpy(m_inputs[1], m_inputs[0], bytes);
      break;
    case Way::Stereo:
      if (r.split != nullptr) {
        if (frames > 0) r.split(m_inputs[0], m_inputs[1], source, static_cast<DWORD>(frames));
      } else {
        ZqAudio_DeInterleaveStereo(m_inputs[0], m_inputs[1], source, m_streamType, static_cast<DWORD>(frames));
      }
      break;
    case Way::PerChannel:
      if (r.copyIn) {
        for (int i = 0; i < inputs && i < sourceChannels; ++i)
          r.copyIn(m_inputs[i], 1, 0, source, sourceChannels, i, static_cast<DWORD>(frames));
      }
      break;
  }
  // Every plug-in finds the dry signal in its output buffers.
  for (int i = 0; i < dry; ++i) memcpy(m_outputs[i], m_inputs[i], bytes);
}

void CZqVstEffect::CopyOut(void* destination, int destinationChannels, int frames) {
  AEffect* effect = m_effect;
  const ZqVstAudioRoutines& r = m_routines;
  if (destination == nullptr) return;
  const int outputs = effect->numOutputs;
  if (destinationChannels == 2) {
    if (r.wideOut) {
      ZqAudio_MergeStereo16(destination, m_outputs[0], m_outputs[1], static_cast<size_t>(frames));
      return;
    }
    // Two channels in one pass: the same values as channel by channel, and
    // with equal types the same as ZqAudio_InterleaveStereo.
    if (r.merge != nullptr) {
      if (frames > 0) r.merge(destination, m_outputs[0], m_outputs[1], static_cast<DWORD>(frames));
      return;
    }
  }
  if (m_streamType == m_pluginType && effect->numInputs == 2 && destinationChannels == 2 && outputs > 0) {
    // The fast path of a stereo float stream, chosen by the inputs.  A plug-in
    // with one output gives its right channel from what the buffers hold
    // behind output 0.
    const float* right = outputs > 1 ? m_outputs[1] : m_outputs[0] + frames;
    ZqAudio_InterleaveStereo(destination, m_outputs[0], right, m_streamType, static_cast<DWORD>(frames));
    return;
  }
  for (int i = 0; i < destinationChannels; ++i) {
    if (i < outputs) {
      if (r.copyOut) r.copyOut(destination, destinationChannels, i, m_outputs[i], 1, 0, static_cast<DWORD>(frames));
    } else {
      ZqAudio_MuteChannel(destination, m_streamType, destinationChannels, i, static_cast<DWORD>(frames));
    }
  }
}

HRESULT CZqVstEffect::ProcessAudio(const void* source, int sourceChannels, void* destination,
                                   int destinationChannels, int frames, int bytesPerSample) {
  if (bytesPerSample != ZqAudio_BytesFromSampleType(m_streamType)) return E_INVALIDARG;
  if (frames < 0) return E_INVALIDARG;
  AEffect* effect = m_effect;
  if (effect == nullptr) return ZQ_E_COMPONENT;
  if (!EnsureChannelBuffers(frames)) return E_OUTOFMEMORY;
  // A plug-in may change its channel counts (audioMasterIOChanged).
  if (!ZqVstAudioRoutinesFit(m_routines, effect->numInputs, effect->numOutputs)) ChooseRoutines();
  CopyIn(source, sourceChannels, frames);
  // Without processReplacing the call would fault into the guard; the
  // pass-through of the copy-in stands in the output either way.
  if (effect->processReplacing != nullptr) {
    float** inputs = m_inputs;
    float** outputs = m_outputs;
    ZqVstGuarded([&] { effect->processReplacing(effect, inputs, outputs, frames); });
  }
  CopyOut(destination, destinationChannels, frames);
  return S_OK;
}
