// Guarded calls into plug-in code, the exception filter, the trace, and the
// audio path through processReplacing.
#include "aplugins/zqvstwrap/host/zqvstdispatch.h"

#include <cstdio>
#include <cstring>
#include <algorithm>
#include <atomic>
#include <string>

#include "aplugins/zqvstwrap/host/zqvsteffect.h"
#include "kernel/audio/convert.h"
#include "kernel/audio/stereo16.h"
#include "kernel/memory.h"
#include "platform/text.h"

namespace {

constexpr const char* kDispatcherNames[ZQVST_DISPATCHER_OPCODE_NAMES] = {
    "effOpen", "effClose", "effSetProgram", "effGetProgram", "effSetProgramName", "effGetProgramName",
    "effGetParamLabel", "effGetParamDisplay", "effGetParamName", "effGetVu", "effSetSampleRate",
    "effSetBlockSize", "effMainsChanged", "effEditGetRect", "effEditOpen", "effEditClose", "effEditDraw",
    "effEditMouse", "effEditKey", "effEditIdle", "effEditTop", "effEditSleep", "effIdentify", "effGetChunk",
    "effSetChunk", "effProcessEvents", "effCanBeAutomated", "effString2Parameter",
    "effGetNumProgramCategories", "effGetProgramNameIndexed", "effCopyProgram", "effConnectInput",
    "effConnectOutput", "effGetInputProperties", "effGetOutputProperties", "effGetPlugCategory",
    "effGetCurrentPosition", "effGetDestinationBuffer", "effOfflineNotify", "effOfflinePrepare",
    "effOfflineRun", "effProcessVarIo", "effSetSpeakerArrangement", "effSetBlockSizeAndSampleRate",
    "effSetBypass", "effGetEffectName", "effGetErrorText", "effGetVendorString", "effGetProductString",
    "effGetVendorVersion", "effVendorSpecific", "effCanDo", "effGetTailSize", "effIdle", "effGetIcon",
    "effSetViewPosition", "effGetParameterProperties", "effKeysRequired", "effGetVstVersion",
    "effEditKeyDown", "effEditKeyUp", "effSetEditKnobMode", "effGetMidiProgramName",
    "effGetCurrentMidiProgram", "effGetMidiProgramCategory", "effHasMidiProgramsChanged",
    "effGetMidiKeyName", "effBeginSetProgram", "effEndSetProgram", "effGetSpeakerArrangement",
    "effShellGetNextPlugin", "effStartProcess", "effStopProcess", "effSetTotalSampleToProcess",
    "effSetPanLaw", "effBeginLoadBank", "effBeginLoadProgram", "effNumV2_3Opcodes",
};

constexpr const char* kCallbackNames[ZQVST_CALLBACK_OPCODE_NAMES] = {
    "audioMasterAutomate", "audioMasterVersion", "audioMasterCurrentId", "audioMasterIdle",
    "audioMasterPinConnected", "S_NULL", "audioMasterWantMidi", "audioMasterGetTime",
    "audioMasterProcessEvents", "audioMasterSetTime", "audioMasterTempoAt",
    "audioMasterGetNumAutomatableParameters", "audioMasterGetParameterQuantization", "audioMasterIOChanged",
    "audioMasterNeedIdle", "audioMasterSizeWindow", "audioMasterGetSampleRate", "audioMasterGetBlockSize",
    "audioMasterGetInputLatency", "audioMasterGetOutputLatency", "audioMasterGetPreviousPlug",
    "audioMasterGetNextPlug", "audioMasterWillReplaceOrAccumulate", "audioMasterGetCurrentProcessLevel",
    "audioMasterGetAutomationState", "audioMasterOfflineStart", "audioMasterOfflineRead",
    "audioMasterOfflineWrite", "audioMasterOfflineGetCurrentPass", "audioMasterOfflineGetCurrentMetaPass",
    "audioMasterSetOutputSampleRate", "audioMasterGetOutputSpeakerArrangement", "audioMasterGetVendorString",
    "audioMasterGetProductString", "audioMasterGetVendorVersion", "audioMasterVendorSpecific",
    "audioMasterSetIcon", "audioMasterCanDo", "audioMasterGetLanguage", "audioMasterOpenWindow",
    "audioMasterCloseWindow", "audioMasterGetDirectory", "audioMasterUpdateDisplay", "audioMasterBeginEdit",
    "audioMasterEndEdit", "audioMasterOpenFileSelector", "audioMasterCloseFileSelector",
    "audioMasterEditFile", "audioMasterGetChunkFile", "audioMasterGetInputSpeakerArrangement",
};

constexpr size_t kTraceLineBytes = 1024;
constexpr const WCHAR kTraceSource[] = u"zqvsteffect";

// Writes a formatted trace line to the log: level 2 as an exception when the
// answer is -1, else level 4 unless `quiet`.
void WriteTrace(CLog* log, const char* line, VstIntPtr answer, bool quiet) {
  if (log == nullptr) return;
  if (answer == -1) {
    log->Write(ZQLOG_WARNING, kTraceSource, __LINE__, u"EXCEPTION from %S", line);
  } else if (!quiet) {
    log->Write(ZQLOG_INFO, kTraceSource, __LINE__, u"%S", line);
  }
}

// The plug-in's 8-bit text (at most `bytes`) into a wide buffer of `length`
// characters, terminated in its last character.
void AnsiToWide(WCHAR* buffer, int length, const char* text, size_t bytes) {
  if (buffer == nullptr || length <= 0) return;
  ZqVstAnsiToWide(buffer, length, text, bytes);
}

}  // namespace

void ZqVstAnsiToWide(WCHAR* out, int length, const char* text, size_t bytes) {
  if (out == nullptr || length <= 0) return;
  memset(out, 0, sizeof(WCHAR) * static_cast<size_t>(length));
  const size_t n = strnlen(text, bytes);
  if (n == 0) return;
  // Through a buffer that always holds the whole text, so that a short
  // destination gets its beginning.
  std::u16string wide(n + 1, u'\0');
  int got = MultiByteToWideChar(CP_ACP, 0, text, static_cast<int>(n), wide.data(), static_cast<int>(wide.size()));
  const size_t keep = std::min<size_t>(got > 0 ? static_cast<size_t>(got) : 0, static_cast<size_t>(length) - 1);
  memcpy(out, wide.data(), keep * sizeof(WCHAR));
  out[length - 1] = 0;
}

const char* ZqVstDispatcherOpcodeName(VstInt32 opcode) {
  return opcode >= 0 && opcode < ZQVST_DISPATCHER_OPCODE_NAMES ? kDispatcherNames[opcode] : "<unknown>";
}

const char* ZqVstCallbackOpcodeName(VstInt32 opcode) {
  return opcode >= 0 && opcode < ZQVST_CALLBACK_OPCODE_NAMES ? kCallbackNames[opcode] : "<unknown>";
}

// The formats keep the widths of the words they were made for: value, pointer
// and answer print as 32-bit numbers.
void ZqVstFormatDispatch(char* line, size_t size, VstInt32 opcode, VstInt32 index, VstIntPtr value,
                         const void* ptr, float opt, VstIntPtr answer, BOOL ptrIsText) {
  if (line == nullptr || size == 0) return;
  if (size > kTraceLineBytes) size = kTraceLineBytes;
  if (ptrIsText) {
    std::u16string_view wide;
    if (ptr) wide = static_cast<const WCHAR*>(ptr);
    char text[kTraceLineBytes];
    int n = wide.empty() ? 0
                         : WideCharToMultiByte(CP_ACP, 0, wide.data(), static_cast<int>(std::min<size_t>(wide.size(), 300)), text,
                                               static_cast<int>(sizeof text) - 1, nullptr, nullptr);
    text[n > 0 ? n : 0] = 0;
    // A longer text is cut with the line, which is meant.
    int written = snprintf(line, size, "VstDispatch(%s, index=%ld, value=%d, ptr=\"%.*s\", opt=%f) returned (%d)",
             ZqVstDispatcherOpcodeName(opcode), static_cast<long>(index), static_cast<int>(value),
             static_cast<int>(strlen(text)), text,
             static_cast<double>(opt), static_cast<int>(answer));
    (void)written;
  } else {
    snprintf(line, size, "VstDispatch(%s, index=%ld, value=%d, ptr=0x%x, opt=%f) returned (%d)",
             ZqVstDispatcherOpcodeName(opcode), static_cast<long>(index), static_cast<int>(value),
             static_cast<unsigned>(reinterpret_cast<uintptr_t>(ptr)), static_cast<double>(opt),
             static_cast<int>(answer));
  }
}

void ZqVstFormatCallback(char* line, size_t size, VstInt32 opcode, VstInt32 index, VstIntPtr value,
                         const void* ptr, float opt, VstIntPtr answer) {
  if (line == nullptr || size == 0) return;
  if (size > kTraceLineBytes) size = kTraceLineBytes;
  snprintf(line, size, "VstCallback(%s, index=%d, value=%d, ptr=0x%x, opt=%f) returned (%d)",
           ZqVstCallbackOpcodeName(opcode), static_cast<int>(index), static_cast<int>(value),
           static_cast<unsigned>(reinterpret_cast<uintptr_t>(ptr)), static_cast<double>(opt),
           static_cast<int>(answer));
}

void ZqVstTraceDispatch(CLog* log, VstInt32 opcode, VstInt32 index, VstIntPtr value, const void* ptr, float opt,
                        VstIntPtr answer, BOOL ptrIsText) {
  char line[kTraceLineBytes];
  ZqVstFormatDispatch(line, sizeof line, opcode, index, value, ptr, opt, answer, ptrIsText);
  WriteTrace(log, line, answer, opcode == effIdle || opcode == effEditIdle);
}

void ZqVstTraceCallback(CLog* log, VstInt32 opcode, VstInt32 index, VstIntPtr value, const void* ptr, float opt,
                        VstIntPtr answer) {
  char line[kTraceLineBytes];
  ZqVstFormatCallback(line, sizeof line, opcode, index, value, ptr, opt, answer);
  WriteTrace(log, line, answer, false);
}

// Runs inside the signal handler for processor faults: short, no locks.
LONG ZqVstExceptionFilter(EXCEPTION_POINTERS* pointers, BOOL report, const WCHAR* /*pluginName*/,
                          const WCHAR* /*title*/) {
  DWORD code = (pointers && pointers->ExceptionRecord) ? pointers->ExceptionRecord->ExceptionCode : 0;
  // A fault to show: the box belongs to the code that owns a window, which
  // reads the details the handler leaves; the guard's handler runs.
  if (report) return EXCEPTION_EXECUTE_HANDLER;
  // The stop signal of a hung worker must reach the worker's own guard.
  if (code == ZQ_EXCEPTION_STOP_WORKER) return EXCEPTION_CONTINUE_SEARCH;
  // A plug-in that died may leave the floating-point unit in any state.
  if (code == EXCEPTION_ACCESS_VIOLATION || (code >= EXCEPTION_FLT_DENORMAL_OPERAND && code <= EXCEPTION_FLT_UNDERFLOW) ||
      code == 0xC00002B4 || code == 0xC00002B5) {
    ZqResetFloatingPointState();
  }
  return EXCEPTION_EXECUTE_HANDLER;
}

// --- Dispatch ------------------------------------------------------------------

VstIntPtr CZqVstEffect::Dispatch(VstInt32 opcode, VstInt32 index, VstIntPtr value, void* ptr, float opt) {
  AEffect* effect = m_effect;
  VstIntPtr answer = -1;
  if (effect != nullptr) {
    if (ZqVstGuarded([&] { answer = effect->dispatcher(effect, opcode, index, value, ptr, opt); }) != 0)
      answer = -1;
  }
  ZqVstTraceDispatch(m_log, opcode, index, value, ptr, opt, answer, FALSE);
  return answer;
}

VstIntPtr CZqVstEffect::DispatchForText(VstInt32 opcode, VstInt32 index, WCHAR* buffer, int length) {
  char text[MAX_PATH] = {};
  if (buffer != nullptr && length > 0) memset(buffer, 0, sizeof(WCHAR) * static_cast<size_t>(length));
  AEffect* effect = m_effect;
  VstIntPtr answer = -1;
  bool faulted = true;
  if (effect != nullptr) {
    faulted = ZqVstGuarded([&] { answer = effect->dispatcher(effect, opcode, index, 0, text, 0.0f); }) != 0;
    if (faulted) answer = -1;
  }
  // The trace shows the wide buffer as it stands: empty, as the text comes after.
  ZqVstTraceDispatch(m_log, opcode, index, 0, buffer, 0.0f, answer, TRUE);
  if (!faulted) AnsiToWide(buffer, length, text, sizeof text);
  return answer;
}

VstIntPtr CZqVstEffect::DispatchWithText(VstInt32 opcode, VstInt32 index, const WCHAR* text) {
  std::u16string_view wide;
  if (text) wide = text;
  // Room for the longest 8-bit form and two zeros.
  std::string ansi(wide.size() * 3 + 2, '\0');
  if (!wide.empty())
    WideCharToMultiByte(CP_ACP, 0, wide.data(), static_cast<int>(wide.size()), ansi.data(),
                        static_cast<int>(ansi.size()) - 2, nullptr, nullptr);
  AEffect* effect = m_effect;
  VstIntPtr answer = -1;
  char* pointer = ansi.data();
  if (effect != nullptr) {
    if (ZqVstGuarded([&] { answer = effect->dispatcher(effect, opcode, index, 0, pointer, 0.0f); }) != 0)
      answer = -1;
  }
  ZqVstTraceDispatch(m_log, opcode, index, 0, text, 0.0f, answer, TRUE);
  return answer;
}

// --- Parameters ------------------------------------------------------------------

HRESULT CZqVstEffect::GetParameter(int index, float* value) {
  if (value == nullptr) return E_POINTER;
  AEffect* effect = m_effect;
  float result = 0.0f;
  if (effect == nullptr) {
    *value = 0.0f;
    return ZQ_E_EXCEPTION;
  }
  if (ZqVstGuarded([&] { result = effect->getParameter(effect, index); }) != 0) {
    *value = 0.0f;
    return ZQ_E_EXCEPTION;
  }
  // Clamped; a NaN compares false both ways and passes unchanged.
  if (result < 0.0f) {
    result = 0.0f;
  } else if (result > 1.0f) {
    result = 1.0f;
  }
  *value = result;
  return S_OK;
}

HRESULT CZqVstEffect::SetParameter(int index, float value) {
  AEffect* effect = m_effect;
  if (effect == nullptr) return ZQ_E_EXCEPTION;
  if (ZqVstGuarded([&] { effect->setParameter(effect, index, value); }) != 0) return ZQ_E_EXCEPTION;
  return S_OK;
}

// --- Audio -------------------------------------------------------------------------

namespace {

// The stereo routine of the same pair of types as a copy-channels routine,
// found once per routine: looking it up per block would walk the kernel's
// table of processor variants every time.  The copy-channels routine was
// chosen when the stream type was set, so keying on it makes a new choice of
// variant reach both routines at the same moment.  Entries are written once
// and never replaced; readers take no lock.  A full table (it holds far more
// routines than a process uses) answers a fresh lookup.
template <class Routine>
class StereoRoutineCache {
 public:
  using Lookup = Routine (*)(ZQSAMPLETYPE dst, ZQSAMPLETYPE src);

  Routine Find(ZqAudioCopyChannelsFunction key, ZQSAMPLETYPE dst, ZQSAMPLETYPE src, Lookup lookup) {
    const size_t used = std::min(m_next.load(std::memory_order_acquire), kSlots);
    for (size_t i = 0; i < used; ++i) {
      const Entry& e = m_entries[i];
      if (e.key.load(std::memory_order_acquire) == key && e.dst == dst && e.src == src) return e.routine;
    }
    const Routine routine = lookup(dst, src);
    const size_t slot = m_next.fetch_add(1, std::memory_order_acq_rel);
    if (slot < kSlots) {
      Entry& e = m_entries[slot];
      e.dst = dst;
      e.src = src;
      e.routine = routine;
      e.key.store(key, std::memory_order_release);  // publishes the fields above
    }
    return routine;
  }

 private:
  static constexpr size_t kSlots = 64;
  struct Entry {
    std::atomic<ZqAudioCopyChannelsFunction> key{nullptr};
    ZQSAMPLETYPE dst = 0;
    ZQSAMPLETYPE src = 0;
    Routine routine = nullptr;
  };
  std::atomic<size_t> m_next{0};
  Entry m_entries[kSlots];
};

StereoRoutineCache<ZqAudioDeInterleaveFunction> g_splitRoutines;
StereoRoutineCache<ZqAudioInterleaveFunction> g_mergeRoutines;

// Interleaved stereo of the stream into two plug-in channels in one pass, or
// null.  It gives what the copy-in routine gives channel by channel (with
// equal types: what ZqAudio_DeInterleaveStereo gives); without a copy-in
// routine the channels are not filled at all, so there is none either.
ZqAudioDeInterleaveFunction SplitRoutine(ZqAudioCopyChannelsFunction copyIn, ZQSAMPLETYPE plugin,
                                         ZQSAMPLETYPE stream) {
  if (copyIn == nullptr) return nullptr;
  return g_splitRoutines.Find(copyIn, plugin, stream, &ZqAudio_GetStereoDeInterleaveFunction);
}

ZqAudioInterleaveFunction MergeRoutine(ZqAudioCopyChannelsFunction copyOut, ZQSAMPLETYPE stream,
                                       ZQSAMPLETYPE plugin) {
  if (copyOut == nullptr) return nullptr;
  return g_mergeRoutines.Find(copyOut, stream, plugin, &ZqAudio_GetStereoInterleaveFunction);
}

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
// copy-in or the dry copy write next are left out of it.
void CZqVstEffect::CopyIn(const void* source, int sourceChannels, int frames) {
  AEffect* effect = m_effect;
  const int inputs = effect->numInputs;
  const int outputs = effect->numOutputs;
  const size_t bytes = static_cast<size_t>(frames) * (m_pluginType == ZQSAMPLE_FLOAT64 ? 8 : 4);
  const int dry = std::max(0, std::min(inputs, outputs));
  const size_t capacity = static_cast<size_t>(m_channelCapacity);

  if (m_wideStereo16 && source != nullptr && sourceChannels == 2 && dry == 2) {
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
  ZqAudioDeInterleaveFunction split = nullptr;
  if (source != nullptr && inputs > 0) {
    if (sourceChannels == 1) {
      way = Way::Mono;
      if (m_copyIn) filled = (inputs == 2 && (effect->flags & effFlagsCanMono)) ? 2 : 1;
    } else if (sourceChannels == 2 && inputs >= 2 &&
               (split = SplitRoutine(m_copyIn, m_pluginType, m_streamType)) != nullptr) {
      // Both channels in one pass: the same values as channel by channel.
      way = Way::Stereo;
      filled = 2;
    } else if (sourceChannels == 2 && inputs == 2 && m_streamType == m_pluginType) {
      way = Way::Stereo;  // through ZqAudio_DeInterleaveStereo
      filled = 2;
    } else {
      way = Way::PerChannel;
      if (m_copyIn) filled = std::max(0, std::min(inputs, sourceChannels));
    }
  }

  if (inputs > 0)
    ClearChannelsExcept(m_inputs[0], capacity * static_cast<size_t>(inputs), 2 * capacity, filled, bytes, ClearRange);
  if (outputs > 0)
    ClearChannelsExcept(m_outputs[0], capacity * static_cast<size_t>(outputs), 2 * capacity, dry, bytes, ClearRange);

  switch (way) {
    case Way::None:
      break;
    case Way::Mono:
      if (m_copyIn) m_copyIn(m_inputs[0], 1, 0, source, 1, 0, static_cast<DWORD>(frames));
      if (inputs == 2 && (effect->flags & effFlagsCanMono)) memcpy(m_inputs[1], m_inputs[0], bytes);
      break;
    case Way::Stereo:
      if (split != nullptr) {
        if (frames > 0) split(m_inputs[0], m_inputs[1], source, static_cast<DWORD>(frames));
      } else {
        ZqAudio_DeInterleaveStereo(m_inputs[0], m_inputs[1], source, m_streamType, static_cast<DWORD>(frames));
      }
      break;
    case Way::PerChannel:
      if (m_copyIn) {
        for (int i = 0; i < inputs && i < sourceChannels; ++i)
          m_copyIn(m_inputs[i], 1, 0, source, sourceChannels, i, static_cast<DWORD>(frames));
      }
      break;
  }
  // Every plug-in finds the dry signal in its output buffers.
  for (int i = 0; i < dry; ++i) memcpy(m_outputs[i], m_inputs[i], bytes);
}

void CZqVstEffect::CopyOut(void* destination, int destinationChannels, int frames) {
  AEffect* effect = m_effect;
  if (destination == nullptr) return;
  const int outputs = effect->numOutputs;
  if (destinationChannels == 2 && outputs >= 2) {
    if (m_wideStereo16) {
      ZqAudio_MergeStereo16(destination, m_outputs[0], m_outputs[1], static_cast<size_t>(frames));
      return;
    }
    // Two channels in one pass: the same values as channel by channel, and
    // with equal types the same as ZqAudio_InterleaveStereo.
    if (ZqAudioInterleaveFunction merge = MergeRoutine(m_copyOut, m_streamType, m_pluginType)) {
      if (frames > 0) merge(destination, m_outputs[0], m_outputs[1], static_cast<DWORD>(frames));
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
      if (m_copyOut) m_copyOut(destination, destinationChannels, i, m_outputs[i], 1, 0, static_cast<DWORD>(frames));
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
