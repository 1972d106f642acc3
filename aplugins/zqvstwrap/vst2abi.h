// The VST 2.x module binary interface, declared by this project from the
// published facts of the interface: the effect record a module hands out,
// the calling shapes of its entry points, the dispatcher and host callback
// opcodes, the flag words and the records that travel through the pointer
// argument of those calls.
//
// Everything here is plain C-compatible data (usable from a module written
// in C).  The layout is that of the platform's natural alignment with
// pointer-sized fields, which is what modules built for the platform
// expect; the static_asserts at the end pin it for x86-64 (LP64) and for
// 32-bit targets, so a change of compiler or option that moved a field
// fails the build rather than a plug-in.
//
// Four-character values ('VstP', 'CcnK', ...) are 32-bit integers whose
// big-endian reading gives the four characters; ZqVstFourCC makes them.
#pragma once

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32) && !defined(_WIN64)
#define VSTCALLBACK __cdecl
#else
#define VSTCALLBACK
#endif

#ifdef __cplusplus
extern "C" {
#endif

// A pointer-sized integer: the type of the dispatcher's value argument and
// answer, and of the reserved words of AEffect.
typedef intptr_t VstIntPtr;
typedef int32_t VstInt32;
typedef int16_t VstInt16;

struct AEffect;

// The host's function, handed to the module's entry point.
typedef VstIntPtr(VSTCALLBACK* audioMasterCallback)(struct AEffect* effect, VstInt32 opcode,
                                                    VstInt32 index, VstIntPtr value, void* ptr,
                                                    float opt);
// The module's functions, reached through AEffect.
typedef VstIntPtr(VSTCALLBACK* AEffectDispatcherProc)(struct AEffect* effect, VstInt32 opcode,
                                                      VstInt32 index, VstIntPtr value, void* ptr,
                                                      float opt);
// Accumulating process: adds to the outputs.  Deprecated since 2.4; hosts
// call processReplacing.
typedef void(VSTCALLBACK* AEffectProcessProc)(struct AEffect* effect, float** inputs,
                                              float** outputs, VstInt32 sampleFrames);
typedef void(VSTCALLBACK* AEffectProcessDoubleProc)(struct AEffect* effect, double** inputs,
                                                    double** outputs, VstInt32 sampleFrames);
typedef void(VSTCALLBACK* AEffectSetParameterProc)(struct AEffect* effect, VstInt32 index,
                                                   float parameter);
typedef float(VSTCALLBACK* AEffectGetParameterProc)(struct AEffect* effect, VstInt32 index);

// The module's entry point, exported as "VSTPluginMain" (and by older
// modules as "main").  Answers a new effect, or null.
typedef struct AEffect*(VSTCALLBACK* VstPluginMainProc)(audioMasterCallback host);

// The effect record: allocated and owned by the module, valid from the entry
// point until effClose.
struct AEffect {
  VstInt32 magic;  // kEffectMagic
  AEffectDispatcherProc dispatcher;
  AEffectProcessProc process;  // deprecated accumulating process
  AEffectSetParameterProc setParameter;
  AEffectGetParameterProc getParameter;
  VstInt32 numPrograms;
  VstInt32 numParams;  // all parameters are floats in 0..1
  VstInt32 numInputs;
  VstInt32 numOutputs;
  VstInt32 flags;  // VstAEffectFlags
  VstIntPtr resvd1;  // reserved for the host (a host keeps its instance here)
  VstIntPtr resvd2;  // reserved for the host, 0
  VstInt32 initialDelay;  // latency in sample frames
  VstInt32 realQualities;  // deprecated
  VstInt32 offQualities;  // deprecated
  float ioRatio;  // deprecated
  void* object;  // the module's own instance
  void* user;  // free for whoever built the module
  VstInt32 uniqueID;  // registered identifier, four characters
  VstInt32 version;  // the plug-in's own version
  AEffectProcessProc processReplacing;  // replaces the outputs (since 2.0)
  AEffectProcessDoubleProc processDoubleReplacing;  // 64-bit samples (since 2.4)
  char future[56];  // zero
};

#ifdef __cplusplus
}  // extern "C"

// The 32-bit value whose big-endian bytes are the four characters:
// ZqVstFourCC("VstP") == kEffectMagic.
constexpr VstInt32 ZqVstFourCC(const char (&s)[5]) {
  return static_cast<VstInt32>((static_cast<uint32_t>(static_cast<unsigned char>(s[0])) << 24) |
                               (static_cast<uint32_t>(static_cast<unsigned char>(s[1])) << 16) |
                               (static_cast<uint32_t>(static_cast<unsigned char>(s[2])) << 8) |
                               static_cast<uint32_t>(static_cast<unsigned char>(s[3])));
}

extern "C" {
#endif

// ---------------------------------------------------------------------------
// Magic numbers.

enum {
  kEffectMagic = 0x56737450,  // 'VstP'
};

// fxp / fxb files (all words big-endian on disk).
enum {
  cMagic = 0x43636E4B,  // 'CcnK': every preset or bank file starts with it
  fMagic = 0x4678436B,  // 'FxCk': one program, a float per parameter
  bankMagic = 0x4678426B,  // 'FxBk': a bank of 'FxCk' programs
  chunkPresetMagic = 0x46504368,  // 'FPCh': one program as an opaque chunk
  chunkBankMagic = 0x46424368,  // 'FBCh': a bank as an opaque chunk
};

// The private handshake a host runs around the enumeration of a shell's
// sub-plug-ins: effVendorSpecific with this index and one of the two values.
enum {
  kZqVstShellScanIndex = 0x73744361,  // 'stCa'
  kZqVstShellScanStart = 0x53745363,  // 'StSc'
  kZqVstShellScanEnd = 0x456E5363,  // 'EnSc'
};

// ---------------------------------------------------------------------------
// Dispatcher opcodes (host to plug-in).  The deprecated ones keep their
// numbers, as old plug-ins still answer them.

enum AEffectOpcodes {
  effOpen = 0,
  effClose = 1,
  effSetProgram = 2,  // value: program index
  effGetProgram = 3,  // answer: program index
  effSetProgramName = 4,  // ptr: text, at most kVstMaxProgNameLen
  effGetProgramName = 5,  // ptr: buffer of kVstMaxProgNameLen
  effGetParamLabel = 6,  // index, ptr: buffer of kVstMaxParamStrLen ("dB")
  effGetParamDisplay = 7,  // index, ptr: buffer of kVstMaxParamStrLen
  effGetParamName = 8,  // index, ptr: buffer of kVstMaxParamStrLen
  effGetVu = 9,  // deprecated
  effSetSampleRate = 10,  // opt: rate
  effSetBlockSize = 11,  // value: largest block
  effMainsChanged = 12,  // value: 0 off (suspend), 1 on (resume)
  effEditGetRect = 13,  // ptr: ERect** out
  effEditOpen = 14,  // ptr: parent window
  effEditClose = 15,
  effEditDraw = 16,  // deprecated
  effEditMouse = 17,  // deprecated
  effEditKey = 18,  // deprecated
  effEditIdle = 19,
  effEditTop = 20,  // deprecated
  effEditSleep = 21,  // deprecated
  effIdentify = 22,  // deprecated: answered 'NvEf'
  effGetChunk = 23,  // index: 0 bank, 1 program; ptr: void** out; answer: size
  effSetChunk = 24,  // index: 0 bank, 1 program; value: size; ptr: data
  effProcessEvents = 25,  // ptr: VstEvents*
  effCanBeAutomated = 26,  // index
  effString2Parameter = 27,  // index, ptr: text
  effGetNumProgramCategories = 28,  // deprecated
  effGetProgramNameIndexed = 29,  // index; ptr: buffer of kVstMaxProgNameLen
  effCopyProgram = 30,  // deprecated
  effConnectInput = 31,  // deprecated
  effConnectOutput = 32,  // deprecated
  effGetInputProperties = 33,  // index; ptr: VstPinProperties*
  effGetOutputProperties = 34,  // index; ptr: VstPinProperties*
  effGetPlugCategory = 35,  // answer: VstPlugCategory
  effGetCurrentPosition = 36,  // deprecated
  effGetDestinationBuffer = 37,  // deprecated
  effOfflineNotify = 38,
  effOfflinePrepare = 39,
  effOfflineRun = 40,
  effProcessVarIo = 41,
  effSetSpeakerArrangement = 42,  // value: input VstSpeakerArrangement*, ptr: output
  effSetBlockSizeAndSampleRate = 43,  // deprecated
  effSetBypass = 44,  // value: 1 bypass
  effGetEffectName = 45,  // ptr: buffer of kVstMaxEffectNameLen
  effGetErrorText = 46,  // deprecated
  effGetVendorString = 47,  // ptr: buffer of kVstMaxVendorStrLen
  effGetProductString = 48,  // ptr: buffer of kVstMaxProductStrLen
  effGetVendorVersion = 49,  // answer: version
  effVendorSpecific = 50,  // index, value, ptr, opt: the vendor's own
  effCanDo = 51,  // ptr: text; answer 1 yes, -1 no, 0 don't know
  effGetTailSize = 52,  // answer: frames; 0 default, 1 no tail
  effIdle = 53,  // deprecated, still sent by hosts that were asked for idle
  effGetIcon = 54,  // deprecated
  effSetViewPosition = 55,  // deprecated
  effGetParameterProperties = 56,  // index; ptr: VstParameterProperties*
  effKeysRequired = 57,  // deprecated
  effGetVstVersion = 58,  // answer: 2400 for 2.4
  effEditKeyDown = 59,
  effEditKeyUp = 60,
  effSetEditKnobMode = 61,  // value: 0 circular, 1 circular relative, 2 linear
  effGetMidiProgramName = 62,
  effGetCurrentMidiProgram = 63,
  effGetMidiProgramCategory = 64,
  effHasMidiProgramsChanged = 65,
  effGetMidiKeyName = 66,
  effBeginSetProgram = 67,
  effEndSetProgram = 68,
  effGetSpeakerArrangement = 69,  // value: VstSpeakerArrangement** in, ptr: ** out
  effShellGetNextPlugin = 70,  // ptr: name buffer of kVstMaxProductStrLen; answer: id, 0 at end
  effStartProcess = 71,
  effStopProcess = 72,
  effSetTotalSampleToProcess = 73,  // value: frames
  effSetPanLaw = 74,  // value: VstPanLawType, opt: gain
  effBeginLoadBank = 75,  // ptr: VstPatchChunkInfo*; answer -1 refuses
  effBeginLoadProgram = 76,  // ptr: VstPatchChunkInfo*; answer -1 refuses
  effSetProcessPrecision = 77,  // value: VstProcessPrecision
  effGetNumMidiInputChannels = 78,
  effGetNumMidiOutputChannels = 79,
};

// The count of opcodes that VST 2.3 defines (0 to 76); 77 was given a
// meaning (effSetProcessPrecision) in 2.4.
enum { effNumV2_3Opcodes = 77, effNumV2_4Opcodes = 80 };

// ---------------------------------------------------------------------------
// Host callback opcodes (plug-in to host).

enum AudioMasterOpcodes {
  audioMasterAutomate = 0,  // index, opt: value
  audioMasterVersion = 1,  // answer: 2400 for 2.4
  audioMasterCurrentId = 2,  // answer: the id being loaded (shells)
  audioMasterIdle = 3,
  audioMasterPinConnected = 4,  // deprecated
  // 5 is unused
  audioMasterWantMidi = 6,  // deprecated
  audioMasterGetTime = 7,  // value: filter of kVst*Valid; answer: VstTimeInfo*
  audioMasterProcessEvents = 8,  // ptr: VstEvents*
  audioMasterSetTime = 9,  // deprecated
  audioMasterTempoAt = 10,  // deprecated; value: sample pos; answer: bpm * 10000
  audioMasterGetNumAutomatableParameters = 11,  // deprecated
  audioMasterGetParameterQuantization = 12,  // deprecated
  audioMasterIOChanged = 13,
  audioMasterNeedIdle = 14,  // deprecated
  audioMasterSizeWindow = 15,  // index: width, value: height
  audioMasterGetSampleRate = 16,
  audioMasterGetBlockSize = 17,
  audioMasterGetInputLatency = 18,
  audioMasterGetOutputLatency = 19,
  audioMasterGetPreviousPlug = 20,  // deprecated
  audioMasterGetNextPlug = 21,  // deprecated
  audioMasterWillReplaceOrAccumulate = 22,  // deprecated
  audioMasterGetCurrentProcessLevel = 23,  // answer: VstProcessLevels
  audioMasterGetAutomationState = 24,  // answer: VstAutomationStates
  audioMasterOfflineStart = 25,
  audioMasterOfflineRead = 26,
  audioMasterOfflineWrite = 27,
  audioMasterOfflineGetCurrentPass = 28,
  audioMasterOfflineGetCurrentMetaPass = 29,
  audioMasterSetOutputSampleRate = 30,  // deprecated
  audioMasterGetOutputSpeakerArrangement = 31,  // deprecated
  audioMasterGetVendorString = 32,  // ptr: buffer of kVstMaxVendorStrLen
  audioMasterGetProductString = 33,  // ptr: buffer of kVstMaxProductStrLen
  audioMasterGetVendorVersion = 34,
  audioMasterVendorSpecific = 35,
  audioMasterSetIcon = 36,  // deprecated
  audioMasterCanDo = 37,  // ptr: text; answer 1 yes, -1 no, 0 don't know
  audioMasterGetLanguage = 38,  // answer: VstHostLanguage
  audioMasterOpenWindow = 39,  // deprecated
  audioMasterCloseWindow = 40,  // deprecated
  audioMasterGetDirectory = 41,  // answer: the plug-in's directory as text
  audioMasterUpdateDisplay = 42,
  audioMasterBeginEdit = 43,  // index
  audioMasterEndEdit = 44,  // index
  audioMasterOpenFileSelector = 45,
  audioMasterCloseFileSelector = 46,
  audioMasterEditFile = 47,  // deprecated
  audioMasterGetChunkFile = 48,  // deprecated
  audioMasterGetInputSpeakerArrangement = 49,  // deprecated
};

// ---------------------------------------------------------------------------
// AEffect flags.

enum VstAEffectFlags {
  effFlagsHasEditor = 1 << 0,
  effFlagsHasClip = 1 << 1,  // deprecated
  effFlagsHasVu = 1 << 2,  // deprecated
  effFlagsCanMono = 1 << 3,  // deprecated: a mono input may be fed to both inputs
  effFlagsCanReplacing = 1 << 4,  // processReplacing is there (required in 2.4)
  effFlagsProgramChunks = 1 << 5,  // state travels as an opaque chunk
  effFlagsIsSynth = 1 << 8,  // an instrument
  effFlagsNoSoundInStop = 1 << 9,  // silence in gives silence out (no tail)
  effFlagsExtIsAsync = 1 << 10,  // deprecated
  effFlagsExtHasBuffer = 1 << 11,  // deprecated
  effFlagsCanDoubleReplacing = 1 << 12,  // processDoubleReplacing is there
};

// ---------------------------------------------------------------------------
// Text limits, in bytes with the terminating zero.

enum {
  kVstMaxProgNameLen = 24,
  kVstMaxParamStrLen = 8,
  kVstMaxVendorStrLen = 64,
  kVstMaxProductStrLen = 64,
  kVstMaxEffectNameLen = 32,
  kVstMaxNameLen = 64,
  kVstMaxLabelLen = 64,
  kVstMaxShortLabelLen = 8,
  kVstMaxCategLabelLen = 24,
  kVstMaxFileNameLen = 100,
};

// ---------------------------------------------------------------------------
// Plug-in categories (answer of effGetPlugCategory).

enum VstPlugCategory {
  kPlugCategUnknown = 0,
  kPlugCategEffect = 1,
  kPlugCategSynth = 2,
  kPlugCategAnalysis = 3,
  kPlugCategMastering = 4,
  kPlugCategSpacializer = 5,
  kPlugCategRoomFx = 6,
  kPlugSurroundFx = 7,
  kPlugCategRestoration = 8,
  kPlugCategOfflineProcess = 9,
  kPlugCategShell = 10,  // a container of sub-plug-ins chosen by audioMasterCurrentId
  kPlugCategGenerator = 11,
  kPlugCategMaxCount = 12,
};

// ---------------------------------------------------------------------------
// Time information (answer of audioMasterGetTime).

struct VstTimeInfo {
  double samplePos;  // current position in sample frames, always valid
  double sampleRate;  // always valid
  double nanoSeconds;  // system time, with kVstNanosValid
  double ppqPos;  // musical position in quarter notes, with kVstPpqPosValid
  double tempo;  // beats per minute, with kVstTempoValid
  double barStartPos;  // last bar start in quarter notes, with kVstBarsValid
  double cycleStartPos;  // with kVstCyclePosValid
  double cycleEndPos;  // with kVstCyclePosValid
  VstInt32 timeSigNumerator;  // with kVstTimeSigValid
  VstInt32 timeSigDenominator;  // with kVstTimeSigValid
  VstInt32 smpteOffset;  // with kVstSmpteValid
  VstInt32 smpteFrameRate;  // VstSmpteFrameRate, with kVstSmpteValid
  VstInt32 samplesToNextClock;  // with kVstClockValid
  VstInt32 flags;  // VstTimeInfoFlags
};

enum VstTimeInfoFlags {
  kVstTransportChanged = 1,
  kVstTransportPlaying = 1 << 1,
  kVstTransportCycleActive = 1 << 2,
  kVstTransportRecording = 1 << 3,
  kVstAutomationWriting = 1 << 6,
  kVstAutomationReading = 1 << 7,
  // Also the bits of the filter word (value argument) of audioMasterGetTime.
  kVstNanosValid = 1 << 8,
  kVstPpqPosValid = 1 << 9,
  kVstTempoValid = 1 << 10,
  kVstBarsValid = 1 << 11,
  kVstCyclePosValid = 1 << 12,
  kVstTimeSigValid = 1 << 13,
  kVstSmpteValid = 1 << 14,
  kVstClockValid = 1 << 15,
};

enum VstSmpteFrameRate {
  kVstSmpte24fps = 0,
  kVstSmpte25fps = 1,
  kVstSmpte2997fps = 2,
  kVstSmpte30fps = 3,
  kVstSmpte2997dfps = 4,
  kVstSmpte30dfps = 5,
  kVstSmpteFilm16mm = 6,
  kVstSmpteFilm35mm = 7,
  kVstSmpte239fps = 10,
  kVstSmpte249fps = 11,
  kVstSmpte599fps = 12,
  kVstSmpte60fps = 13,
};

// ---------------------------------------------------------------------------
// Events (effProcessEvents, audioMasterProcessEvents).

struct VstEvent {
  VstInt32 type;  // VstEventTypes
  VstInt32 byteSize;  // size of the event less 8
  VstInt32 deltaFrames;  // offset into the block
  VstInt32 flags;
  char data[16];
};

struct VstMidiEvent {
  VstInt32 type;  // kVstMidiType
  VstInt32 byteSize;
  VstInt32 deltaFrames;
  VstInt32 flags;  // kVstMidiEventIsRealtime
  VstInt32 noteLength;
  VstInt32 noteOffset;
  char midiData[4];  // status, two data bytes, zero
  char detune;
  char noteOffVelocity;
  char reserved1;
  char reserved2;
};

struct VstEvents {
  VstInt32 numEvents;
  VstIntPtr reserved;  // 0
  struct VstEvent* events[2];  // numEvents entries in fact
};

enum VstEventTypes {
  kVstMidiType = 1,
  kVstSysExType = 6,
};

enum { kVstMidiEventIsRealtime = 1 };

// ---------------------------------------------------------------------------
// Parameter properties (effGetParameterProperties).

struct VstParameterProperties {
  float stepFloat;  // with kVstParameterUsesFloatStep
  float smallStepFloat;
  float largeStepFloat;
  char label[kVstMaxLabelLen];
  VstInt32 flags;  // VstParameterFlags
  VstInt32 minInteger;  // with kVstParameterUsesIntegerMinMax
  VstInt32 maxInteger;
  VstInt32 stepInteger;  // with kVstParameterUsesIntStep
  VstInt32 largeStepInteger;
  char shortLabel[kVstMaxShortLabelLen];
  VstInt16 displayIndex;  // with kVstParameterSupportsDisplayIndex
  VstInt16 category;  // 1-based, with kVstParameterSupportsDisplayCategory
  VstInt16 numParametersInCategory;
  VstInt16 reserved;
  char categoryLabel[kVstMaxCategLabelLen];
  char future[16];
};

enum VstParameterFlags {
  kVstParameterIsSwitch = 1 << 0,
  kVstParameterUsesIntegerMinMax = 1 << 1,
  kVstParameterUsesFloatStep = 1 << 2,
  kVstParameterUsesIntStep = 1 << 3,
  kVstParameterSupportsDisplayIndex = 1 << 4,
  kVstParameterSupportsDisplayCategory = 1 << 5,
  kVstParameterCanRamp = 1 << 6,
};

// ---------------------------------------------------------------------------
// Pins (effGetInputProperties, effGetOutputProperties).

struct VstPinProperties {
  char label[kVstMaxLabelLen];
  VstInt32 flags;  // VstPinPropertiesFlags
  VstInt32 arrangementType;  // VstSpeakerArrangementType
  char shortLabel[kVstMaxShortLabelLen];
  char future[48];
};

enum VstPinPropertiesFlags {
  kVstPinIsActive = 1 << 0,
  kVstPinIsStereo = 1 << 1,  // the first of a stereo pair
  kVstPinUseSpeaker = 1 << 2,  // arrangementType is valid
};

// ---------------------------------------------------------------------------
// Speakers (effSetSpeakerArrangement, effGetSpeakerArrangement).

struct VstSpeakerProperties {
  float azimuth;  // radians, -pi..pi; 10.0 for an LFE
  float elevation;  // radians, -pi/2..pi/2; 10.0 for an LFE
  float radius;  // metres; 0 for an LFE
  float reserved;  // 0
  char name[kVstMaxNameLen];
  VstInt32 type;  // VstSpeakerType
  char future[28];
};

// The record is variable-sized in fact: numChannels speakers follow, and a
// sender allocates at least eight.
struct VstSpeakerArrangement {
  VstInt32 type;  // VstSpeakerArrangementType
  VstInt32 numChannels;
  struct VstSpeakerProperties speakers[8];
};

enum VstSpeakerType {
  kSpeakerUndefined = 0x7FFFFFFF,
  kSpeakerM = 0,
  kSpeakerL = 1,
  kSpeakerR = 2,
  kSpeakerC = 3,
  kSpeakerLfe = 4,
  kSpeakerLs = 5,
  kSpeakerRs = 6,
  kSpeakerLc = 7,
  kSpeakerRc = 8,
  kSpeakerS = 9,
  kSpeakerCs = kSpeakerS,
  kSpeakerSl = 10,
  kSpeakerSr = 11,
  kSpeakerTm = 12,
  kSpeakerTfl = 13,
  kSpeakerTfc = 14,
  kSpeakerTfr = 15,
  kSpeakerTrl = 16,
  kSpeakerTrc = 17,
  kSpeakerTrr = 18,
  kSpeakerLfe2 = 19,
};

enum VstSpeakerArrangementType {
  kSpeakerArrUserDefined = -2,
  kSpeakerArrEmpty = -1,
  kSpeakerArrMono = 0,  // M
  kSpeakerArrStereo = 1,  // L R
  kSpeakerArrStereoSurround = 2,  // Ls Rs
  kSpeakerArrStereoCenter = 3,  // Lc Rc
  kSpeakerArrStereoSide = 4,  // Sl Sr
  kSpeakerArrStereoCLfe = 5,  // C Lfe
  kSpeakerArr30Cine = 6,  // L R C
  kSpeakerArr30Music = 7,  // L R S
  kSpeakerArr31Cine = 8,  // L R C Lfe
  kSpeakerArr31Music = 9,  // L R Lfe S
  kSpeakerArr40Cine = 10,  // L R C S
  kSpeakerArr40Music = 11,  // L R Ls Rs
  kSpeakerArr41Cine = 12,  // L R C Lfe S
  kSpeakerArr41Music = 13,  // L R Lfe Ls Rs
  kSpeakerArr50 = 14,  // L R C Ls Rs
  kSpeakerArr51 = 15,  // L R C Lfe Ls Rs
  kSpeakerArr60Cine = 16,
  kSpeakerArr60Music = 17,
  kSpeakerArr61Cine = 18,
  kSpeakerArr61Music = 19,
  kSpeakerArr70Cine = 20,
  kSpeakerArr70Music = 21,
  kSpeakerArr71Cine = 22,
  kSpeakerArr71Music = 23,
  kSpeakerArr80Cine = 24,
  kSpeakerArr80Music = 25,
  kSpeakerArr81Cine = 26,
  kSpeakerArr81Music = 27,
  kSpeakerArr102 = 28,
  kNumSpeakerArr = 29,
};

// ---------------------------------------------------------------------------
// Editor rectangle (effEditGetRect answers a pointer to one).

struct ERect {
  VstInt16 top;
  VstInt16 left;
  VstInt16 bottom;
  VstInt16 right;
};

// ---------------------------------------------------------------------------
// Preset chunk announcement (effBeginLoadBank, effBeginLoadProgram).

struct VstPatchChunkInfo {
  VstInt32 version;  // 1
  VstInt32 pluginUniqueID;
  VstInt32 pluginVersion;
  VstInt32 numElements;  // programs in a bank, parameters in a program
  char future[48];
};

// ---------------------------------------------------------------------------
// Smaller enumerations.

enum VstProcessPrecision {
  kVstProcessPrecision32 = 0,
  kVstProcessPrecision64 = 1,
};

enum VstProcessLevels {
  kVstProcessLevelUnknown = 0,
  kVstProcessLevelUser = 1,
  kVstProcessLevelRealtime = 2,
  kVstProcessLevelPrefetch = 3,
  kVstProcessLevelOffline = 4,
};

enum VstAutomationStates {
  kVstAutomationUnsupported = 0,
  kVstAutomationOff = 1,
  kVstAutomationRead = 2,
  kVstAutomationWrite = 3,
  kVstAutomationReadWrite = 4,
};

enum VstHostLanguage {
  kVstLangEnglish = 1,
  kVstLangGerman = 2,
  kVstLangFrench = 3,
  kVstLangItalian = 4,
  kVstLangSpanish = 5,
  kVstLangJapanese = 6,
};

enum VstPanLawType {
  kLinearPanLaw = 0,
  kEqualPowerPanLaw = 1,
};

// ---------------------------------------------------------------------------
// Preset and bank file headers.  On disk every 32-bit word (floats too) is
// big-endian; these records give the layout only.

struct VstFxProgramHeader {
  VstInt32 chunkMagic;  // cMagic
  VstInt32 byteSize;  // file size less 8
  VstInt32 fxMagic;  // fMagic or chunkPresetMagic
  VstInt32 version;  // 1 when written by most hosts; not tested on reading
  VstInt32 fxID;  // the plug-in's uniqueID
  VstInt32 fxVersion;  // the plug-in's version
  VstInt32 numParams;
  char prgName[28];
  // fMagic: numParams floats follow.  chunkPresetMagic: a 32-bit size, then the chunk.
};

struct VstFxBankHeader {
  VstInt32 chunkMagic;  // cMagic
  VstInt32 byteSize;
  VstInt32 fxMagic;  // bankMagic or chunkBankMagic
  VstInt32 version;
  VstInt32 fxID;
  VstInt32 fxVersion;
  VstInt32 numPrograms;
  char future[128];  // zero (2.4 keeps the current program in its first word)
  // bankMagic: numPrograms 'FxCk' programs follow.  chunkBankMagic: size, chunk.
};

enum {
  kVstFxProgramParamsOffset = 56,  // first parameter of 'FxCk'
  kVstFxProgramChunkSizeOffset = 56,  // chunk size of 'FPCh'
  kVstFxProgramChunkOffset = 60,  // chunk of 'FPCh'
  kVstFxBankProgramsOffset = 156,  // first program of 'FxBk'
  kVstFxBankChunkSizeOffset = 156,  // chunk size of 'FBCh'
  kVstFxBankChunkOffset = 160,  // chunk of 'FBCh'
};

#ifdef __cplusplus
}  // extern "C"
#endif

// ---------------------------------------------------------------------------
// Layout checks.  The published layout uses natural alignment; pointers and
// VstIntPtr are 8 bytes on LP64 and 4 bytes on 32-bit targets.

#ifdef __cplusplus
#define ZQ_VST_STATIC_ASSERT static_assert
#else
#define ZQ_VST_STATIC_ASSERT _Static_assert
#endif

ZQ_VST_STATIC_ASSERT(kEffectMagic == 0x56737450, "'VstP'");
#ifdef __cplusplus
static_assert(ZqVstFourCC("VstP") == kEffectMagic);
static_assert(ZqVstFourCC("CcnK") == cMagic);
static_assert(ZqVstFourCC("FxCk") == fMagic);
static_assert(ZqVstFourCC("FxBk") == bankMagic);
static_assert(ZqVstFourCC("FPCh") == chunkPresetMagic);
static_assert(ZqVstFourCC("FBCh") == chunkBankMagic);
static_assert(ZqVstFourCC("stCa") == kZqVstShellScanIndex);
static_assert(ZqVstFourCC("StSc") == kZqVstShellScanStart);
static_assert(ZqVstFourCC("EnSc") == kZqVstShellScanEnd);
#endif

#if UINTPTR_MAX == 0xFFFFFFFFFFFFFFFFu
ZQ_VST_STATIC_ASSERT(sizeof(struct AEffect) == 192, "AEffect size (LP64)");
ZQ_VST_STATIC_ASSERT(offsetof(struct AEffect, magic) == 0, "AEffect.magic");
ZQ_VST_STATIC_ASSERT(offsetof(struct AEffect, dispatcher) == 8, "AEffect.dispatcher");
ZQ_VST_STATIC_ASSERT(offsetof(struct AEffect, process) == 16, "AEffect.process");
ZQ_VST_STATIC_ASSERT(offsetof(struct AEffect, setParameter) == 24, "AEffect.setParameter");
ZQ_VST_STATIC_ASSERT(offsetof(struct AEffect, getParameter) == 32, "AEffect.getParameter");
ZQ_VST_STATIC_ASSERT(offsetof(struct AEffect, numPrograms) == 40, "AEffect.numPrograms");
ZQ_VST_STATIC_ASSERT(offsetof(struct AEffect, numParams) == 44, "AEffect.numParams");
ZQ_VST_STATIC_ASSERT(offsetof(struct AEffect, numInputs) == 48, "AEffect.numInputs");
ZQ_VST_STATIC_ASSERT(offsetof(struct AEffect, numOutputs) == 52, "AEffect.numOutputs");
ZQ_VST_STATIC_ASSERT(offsetof(struct AEffect, flags) == 56, "AEffect.flags");
ZQ_VST_STATIC_ASSERT(offsetof(struct AEffect, resvd1) == 64, "AEffect.resvd1");
ZQ_VST_STATIC_ASSERT(offsetof(struct AEffect, resvd2) == 72, "AEffect.resvd2");
ZQ_VST_STATIC_ASSERT(offsetof(struct AEffect, initialDelay) == 80, "AEffect.initialDelay");
ZQ_VST_STATIC_ASSERT(offsetof(struct AEffect, realQualities) == 84, "AEffect.realQualities");
ZQ_VST_STATIC_ASSERT(offsetof(struct AEffect, offQualities) == 88, "AEffect.offQualities");
ZQ_VST_STATIC_ASSERT(offsetof(struct AEffect, ioRatio) == 92, "AEffect.ioRatio");
ZQ_VST_STATIC_ASSERT(offsetof(struct AEffect, object) == 96, "AEffect.object");
ZQ_VST_STATIC_ASSERT(offsetof(struct AEffect, user) == 104, "AEffect.user");
ZQ_VST_STATIC_ASSERT(offsetof(struct AEffect, uniqueID) == 112, "AEffect.uniqueID");
ZQ_VST_STATIC_ASSERT(offsetof(struct AEffect, version) == 116, "AEffect.version");
ZQ_VST_STATIC_ASSERT(offsetof(struct AEffect, processReplacing) == 120, "AEffect.processReplacing");
ZQ_VST_STATIC_ASSERT(offsetof(struct AEffect, processDoubleReplacing) == 128,
                     "AEffect.processDoubleReplacing");
ZQ_VST_STATIC_ASSERT(offsetof(struct AEffect, future) == 136, "AEffect.future");
ZQ_VST_STATIC_ASSERT(sizeof(struct VstEvents) == 32, "VstEvents size (LP64)");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstEvents, reserved) == 8, "VstEvents.reserved");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstEvents, events) == 16, "VstEvents.events");
#elif UINTPTR_MAX == 0xFFFFFFFFu
ZQ_VST_STATIC_ASSERT(sizeof(struct AEffect) == 144, "AEffect size (ILP32)");
ZQ_VST_STATIC_ASSERT(offsetof(struct AEffect, dispatcher) == 4, "AEffect.dispatcher");
ZQ_VST_STATIC_ASSERT(offsetof(struct AEffect, numPrograms) == 20, "AEffect.numPrograms");
ZQ_VST_STATIC_ASSERT(offsetof(struct AEffect, resvd1) == 40, "AEffect.resvd1");
ZQ_VST_STATIC_ASSERT(offsetof(struct AEffect, initialDelay) == 48, "AEffect.initialDelay");
ZQ_VST_STATIC_ASSERT(offsetof(struct AEffect, object) == 64, "AEffect.object");
ZQ_VST_STATIC_ASSERT(offsetof(struct AEffect, uniqueID) == 72, "AEffect.uniqueID");
ZQ_VST_STATIC_ASSERT(offsetof(struct AEffect, processReplacing) == 80, "AEffect.processReplacing");
ZQ_VST_STATIC_ASSERT(offsetof(struct AEffect, future) == 88, "AEffect.future");
ZQ_VST_STATIC_ASSERT(sizeof(struct VstEvents) == 16, "VstEvents size (ILP32)");
#endif

ZQ_VST_STATIC_ASSERT(sizeof(struct VstTimeInfo) == 88, "VstTimeInfo size");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstTimeInfo, samplePos) == 0, "VstTimeInfo.samplePos");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstTimeInfo, sampleRate) == 8, "VstTimeInfo.sampleRate");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstTimeInfo, nanoSeconds) == 16, "VstTimeInfo.nanoSeconds");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstTimeInfo, ppqPos) == 24, "VstTimeInfo.ppqPos");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstTimeInfo, tempo) == 32, "VstTimeInfo.tempo");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstTimeInfo, barStartPos) == 40, "VstTimeInfo.barStartPos");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstTimeInfo, cycleStartPos) == 48,
                     "VstTimeInfo.cycleStartPos");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstTimeInfo, cycleEndPos) == 56, "VstTimeInfo.cycleEndPos");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstTimeInfo, timeSigNumerator) == 64,
                     "VstTimeInfo.timeSigNumerator");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstTimeInfo, timeSigDenominator) == 68,
                     "VstTimeInfo.timeSigDenominator");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstTimeInfo, smpteOffset) == 72, "VstTimeInfo.smpteOffset");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstTimeInfo, smpteFrameRate) == 76,
                     "VstTimeInfo.smpteFrameRate");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstTimeInfo, samplesToNextClock) == 80,
                     "VstTimeInfo.samplesToNextClock");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstTimeInfo, flags) == 84, "VstTimeInfo.flags");

ZQ_VST_STATIC_ASSERT(sizeof(struct VstEvent) == 32, "VstEvent size");
ZQ_VST_STATIC_ASSERT(sizeof(struct VstMidiEvent) == 32, "VstMidiEvent size");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstMidiEvent, midiData) == 24, "VstMidiEvent.midiData");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstMidiEvent, detune) == 28, "VstMidiEvent.detune");

ZQ_VST_STATIC_ASSERT(sizeof(struct VstParameterProperties) == 152, "VstParameterProperties size");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstParameterProperties, stepFloat) == 0, "stepFloat");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstParameterProperties, smallStepFloat) == 4,
                     "smallStepFloat");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstParameterProperties, largeStepFloat) == 8,
                     "largeStepFloat");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstParameterProperties, label) == 12, "label");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstParameterProperties, flags) == 76, "flags");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstParameterProperties, minInteger) == 80, "minInteger");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstParameterProperties, maxInteger) == 84, "maxInteger");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstParameterProperties, stepInteger) == 88, "stepInteger");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstParameterProperties, largeStepInteger) == 92,
                     "largeStepInteger");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstParameterProperties, shortLabel) == 96, "shortLabel");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstParameterProperties, displayIndex) == 104,
                     "displayIndex");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstParameterProperties, category) == 106, "category");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstParameterProperties, numParametersInCategory) == 108,
                     "numParametersInCategory");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstParameterProperties, reserved) == 110, "reserved");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstParameterProperties, categoryLabel) == 112,
                     "categoryLabel");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstParameterProperties, future) == 136, "future");

ZQ_VST_STATIC_ASSERT(sizeof(struct VstPinProperties) == 128, "VstPinProperties size");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstPinProperties, flags) == 64, "VstPinProperties.flags");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstPinProperties, arrangementType) == 68,
                     "VstPinProperties.arrangementType");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstPinProperties, shortLabel) == 72,
                     "VstPinProperties.shortLabel");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstPinProperties, future) == 80, "VstPinProperties.future");

ZQ_VST_STATIC_ASSERT(sizeof(struct VstSpeakerProperties) == 112, "VstSpeakerProperties size");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstSpeakerProperties, azimuth) == 0, "azimuth");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstSpeakerProperties, elevation) == 4, "elevation");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstSpeakerProperties, radius) == 8, "radius");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstSpeakerProperties, reserved) == 12, "reserved");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstSpeakerProperties, name) == 16, "name");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstSpeakerProperties, type) == 80, "type");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstSpeakerProperties, future) == 84, "future");
ZQ_VST_STATIC_ASSERT(sizeof(struct VstSpeakerArrangement) == 904, "VstSpeakerArrangement size");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstSpeakerArrangement, numChannels) == 4, "numChannels");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstSpeakerArrangement, speakers) == 8, "speakers");

ZQ_VST_STATIC_ASSERT(sizeof(struct ERect) == 8, "ERect size");
ZQ_VST_STATIC_ASSERT(offsetof(struct ERect, top) == 0, "ERect.top");
ZQ_VST_STATIC_ASSERT(offsetof(struct ERect, left) == 2, "ERect.left");
ZQ_VST_STATIC_ASSERT(offsetof(struct ERect, bottom) == 4, "ERect.bottom");
ZQ_VST_STATIC_ASSERT(offsetof(struct ERect, right) == 6, "ERect.right");

ZQ_VST_STATIC_ASSERT(sizeof(struct VstPatchChunkInfo) == 64, "VstPatchChunkInfo size");

ZQ_VST_STATIC_ASSERT(sizeof(struct VstFxProgramHeader) == kVstFxProgramParamsOffset,
                     "fxp header size");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstFxProgramHeader, numParams) == 24, "fxp numParams");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstFxProgramHeader, prgName) == 28, "fxp prgName");
ZQ_VST_STATIC_ASSERT(sizeof(struct VstFxBankHeader) == kVstFxBankProgramsOffset,
                     "fxb header size");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstFxBankHeader, numPrograms) == 24, "fxb numPrograms");
ZQ_VST_STATIC_ASSERT(offsetof(struct VstFxBankHeader, future) == 28, "fxb future");

#undef ZQ_VST_STATIC_ASSERT
