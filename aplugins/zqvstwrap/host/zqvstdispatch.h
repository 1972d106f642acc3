// Guards around plug-in code, and the trace of what a plug-in was told and
// answered.
//
// Every call into a plug-in runs under the platform's fault guard with
// ZqVstExceptionFilter.  A fault becomes an ordinary answer (-1 from the
// dispatcher, ZQ_E_EXCEPTION from the parameter calls, the pass-through
// channels from processReplacing); the plug-in stays loaded and the next call
// goes to it as any other.  The one code the filter lets pass is
// ZQ_EXCEPTION_STOP_WORKER, the stop signal of a thread that hangs in plug-in
// code.
//
// The trace formats each call into one line (at most 1,024 bytes), then
// writes it to the effect's log when there is one: level 2 with
// "EXCEPTION from " before it when the call faulted, level 4 otherwise (a
// plug-in's own -1 is an answer like any other); effIdle and effEditIdle
// are never written.
#pragma once

#include "aplugins/zqvstwrap/vst2abi.h"
#include "kernel/log.h"
#include "base/types.h"
#include "platform/guard.h"

// The copy-channels shape of the audio kernel, as ProcessAudio keeps it.
#include "kernel/audio/convert.h"

// The filter of every plug-in guard.  `report` set shows the fault to the
// user (no guard does so today); `pluginName` and `title` name it then.
LONG ZqVstExceptionFilter(EXCEPTION_POINTERS* pointers, BOOL report, const WCHAR* pluginName,
                          const WCHAR* title);

// Runs `body` under a plug-in guard.  Answers 0 when it completed, else the
// code of the exception that was caught.
template <class Body>
DWORD ZqVstGuarded(Body&& body) {
  return ZqGuarded(static_cast<Body&&>(body),
                   [](EXCEPTION_POINTERS* p) { return ZqVstExceptionFilter(p, FALSE, nullptr, nullptr); });
}

// The plug-in's 8-bit text (at most `bytes`, up to its zero) into `length`
// wide characters, cut to fit and terminated in the last character.
void ZqVstAnsiToWide(WCHAR* out, int length, const char* text, size_t bytes);

// Names of dispatcher opcodes (77 of them, effOpen to effBeginLoadProgram,
// then effNumV2_3Opcodes) and of callback opcodes (50, audioMasterAutomate to
// audioMasterGetInputSpeakerArrangement); "<unknown>" past the end.
const char* ZqVstDispatcherOpcodeName(VstInt32 opcode);
const char* ZqVstCallbackOpcodeName(VstInt32 opcode);
constexpr int ZQVST_DISPATCHER_OPCODE_NAMES = 78;
constexpr int ZQVST_CALLBACK_OPCODE_NAMES = 50;

// The trace lines, formatted into `line` (`size` bytes, at most 1,024 used).
// `text` is the pointer read as wide text, or null to print it as a number.
void ZqVstFormatDispatch(char* line, size_t size, VstInt32 opcode, VstInt32 index, VstIntPtr value,
                         const void* ptr, float opt, VstIntPtr answer, BOOL ptrIsText);
void ZqVstFormatCallback(char* line, size_t size, VstInt32 opcode, VstInt32 index, VstIntPtr value,
                         const void* ptr, float opt, VstIntPtr answer);

// Format and write one line (see above).  `log` may be null: the line is
// formatted all the same.  With `ptrIsText` the pointer is a wide text;
// `faulted` says that the guard caught a fault in the call.  The callback
// runs inside a plug-in call and never faults on its own.
void ZqVstTraceDispatch(CLog* log, VstInt32 opcode, VstInt32 index, VstIntPtr value, const void* ptr,
                        float opt, VstIntPtr answer, BOOL ptrIsText, BOOL faulted);
void ZqVstTraceCallback(CLog* log, VstInt32 opcode, VstInt32 index, VstIntPtr value, const void* ptr,
                        float opt, VstIntPtr answer);
