// Guarded calls into plug-in code, the exception filter and the trace.
#include "aplugins/zqvstwrap/host/zqvstdispatch.h"

#include <cstdio>
#include <cstring>
#include <algorithm>
#include <string>

#include "aplugins/zqvstwrap/host/zqvsteffect.h"
#include "kernel/errorhandler.h"
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
// call faulted, else level 4 unless `quiet`.
void WriteTrace(CLog* log, const char* line, bool faulted, bool quiet) {
  if (log == nullptr) return;
  if (faulted) {
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
                        VstIntPtr answer, BOOL ptrIsText, BOOL faulted) {
  char line[kTraceLineBytes];
  ZqVstFormatDispatch(line, sizeof line, opcode, index, value, ptr, opt, answer, ptrIsText);
  WriteTrace(log, line, faulted != FALSE, opcode == effIdle || opcode == effEditIdle);
}

void ZqVstTraceCallback(CLog* log, VstInt32 opcode, VstInt32 index, VstIntPtr value, const void* ptr, float opt,
                        VstIntPtr answer) {
  char line[kTraceLineBytes];
  ZqVstFormatCallback(line, sizeof line, opcode, index, value, ptr, opt, answer);
  WriteTrace(log, line, false, false);
}

// Runs inside the signal handler for processor faults: short, no locks.
LONG ZqVstExceptionFilter(EXCEPTION_POINTERS* pointers, BOOL report, const WCHAR* pluginName,
                          const WCHAR* title) {
  DWORD code = (pointers && pointers->ExceptionRecord) ? pointers->ExceptionRecord->ExceptionCode : 0;
  // A fault to show: the error handler puts the dump into the details under
  // the title (an unknown plug-in's without one) and shows its box; the
  // guard's handler runs.
  if (report) {
    ZqErrorHandler_ShowException(pointers, pluginName, title);
    return EXCEPTION_EXECUTE_HANDLER;
  }
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
  bool faulted = false;
  if (effect != nullptr) {
    faulted = ZqVstGuarded([&] { answer = effect->dispatcher(effect, opcode, index, value, ptr, opt); }) != 0;
    if (faulted) answer = -1;
  }
  ZqVstTraceDispatch(m_log, opcode, index, value, ptr, opt, answer, FALSE, faulted);
  return answer;
}

VstIntPtr CZqVstEffect::DispatchForText(VstInt32 opcode, VstInt32 index, WCHAR* buffer, int length) {
  char text[MAX_PATH] = {};
  if (buffer != nullptr && length > 0) memset(buffer, 0, sizeof(WCHAR) * static_cast<size_t>(length));
  AEffect* effect = m_effect;
  VstIntPtr answer = -1;
  bool faulted = false;
  if (effect != nullptr) {
    faulted = ZqVstGuarded([&] { answer = effect->dispatcher(effect, opcode, index, 0, text, 0.0f); }) != 0;
    if (faulted) answer = -1;
  }
  // The trace shows the wide buffer as it stands: empty, as the text comes after.
  ZqVstTraceDispatch(m_log, opcode, index, 0, buffer, 0.0f, answer, TRUE, faulted);
  if (effect != nullptr && !faulted) AnsiToWide(buffer, length, text, sizeof text);
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
  bool faulted = false;
  if (effect != nullptr) {
    faulted = ZqVstGuarded([&] { answer = effect->dispatcher(effect, opcode, index, 0, pointer, 0.0f); }) != 0;
    if (faulted) answer = -1;
  }
  ZqVstTraceDispatch(m_log, opcode, index, 0, text, 0.0f, answer, TRUE, faulted);
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
