#include "plugins/common/zqplugin.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <mutex>

namespace zqplug {
namespace {

// The module-wide record.  One module may hold several instances, and hosts
// call from several threads, so everything here is under one lock.
struct ModuleRecord {
  std::mutex lock;
  std::string log;
  std::string snapshot;  // what zqplugin_log last handed out
  Plugin* latest = nullptr;
  int64_t final[kStateSlotCount];  // slots of the latest instance at its close
  bool haveFinal = false;
  std::atomic<int64_t> created{0};
  std::atomic<int64_t> alive{0};
};

// A static object, not a heap one, so that unloading the module frees it.
ModuleRecord& Record() {
  static ModuleRecord record;
  return record;
}

constexpr size_t kLogLimit = 1u << 20;

const char* const kDispatcherNames[] = {
    "effOpen", "effClose", "effSetProgram", "effGetProgram", "effSetProgramName",
    "effGetProgramName", "effGetParamLabel", "effGetParamDisplay", "effGetParamName", "effGetVu",
    "effSetSampleRate", "effSetBlockSize", "effMainsChanged", "effEditGetRect", "effEditOpen",
    "effEditClose", "effEditDraw", "effEditMouse", "effEditKey", "effEditIdle", "effEditTop",
    "effEditSleep", "effIdentify", "effGetChunk", "effSetChunk", "effProcessEvents",
    "effCanBeAutomated", "effString2Parameter", "effGetNumProgramCategories",
    "effGetProgramNameIndexed", "effCopyProgram", "effConnectInput", "effConnectOutput",
    "effGetInputProperties", "effGetOutputProperties", "effGetPlugCategory",
    "effGetCurrentPosition", "effGetDestinationBuffer", "effOfflineNotify", "effOfflinePrepare",
    "effOfflineRun", "effProcessVarIo", "effSetSpeakerArrangement",
    "effSetBlockSizeAndSampleRate", "effSetBypass", "effGetEffectName", "effGetErrorText",
    "effGetVendorString", "effGetProductString", "effGetVendorVersion", "effVendorSpecific",
    "effCanDo", "effGetTailSize", "effIdle", "effGetIcon", "effSetViewPosition",
    "effGetParameterProperties", "effKeysRequired", "effGetVstVersion", "effEditKeyDown",
    "effEditKeyUp", "effSetEditKnobMode", "effGetMidiProgramName", "effGetCurrentMidiProgram",
    "effGetMidiProgramCategory", "effHasMidiProgramsChanged", "effGetMidiKeyName",
    "effBeginSetProgram", "effEndSetProgram", "effGetSpeakerArrangement",
    "effShellGetNextPlugin", "effStartProcess", "effStopProcess", "effSetTotalSampleToProcess",
    "effSetPanLaw", "effBeginLoadBank", "effBeginLoadProgram", "effSetProcessPrecision",
    "effGetNumMidiInputChannels", "effGetNumMidiOutputChannels"};
static_assert(sizeof(kDispatcherNames) / sizeof(kDispatcherNames[0]) == effNumV2_4Opcodes);

const char* const kHostNames[] = {
    "audioMasterAutomate", "audioMasterVersion", "audioMasterCurrentId", "audioMasterIdle",
    "audioMasterPinConnected", "audioMaster5", "audioMasterWantMidi", "audioMasterGetTime",
    "audioMasterProcessEvents", "audioMasterSetTime", "audioMasterTempoAt",
    "audioMasterGetNumAutomatableParameters", "audioMasterGetParameterQuantization",
    "audioMasterIOChanged", "audioMasterNeedIdle", "audioMasterSizeWindow",
    "audioMasterGetSampleRate", "audioMasterGetBlockSize", "audioMasterGetInputLatency",
    "audioMasterGetOutputLatency", "audioMasterGetPreviousPlug", "audioMasterGetNextPlug",
    "audioMasterWillReplaceOrAccumulate", "audioMasterGetCurrentProcessLevel",
    "audioMasterGetAutomationState", "audioMasterOfflineStart", "audioMasterOfflineRead",
    "audioMasterOfflineWrite", "audioMasterOfflineGetCurrentPass",
    "audioMasterOfflineGetCurrentMetaPass", "audioMasterSetOutputSampleRate",
    "audioMasterGetOutputSpeakerArrangement", "audioMasterGetVendorString",
    "audioMasterGetProductString", "audioMasterGetVendorVersion", "audioMasterVendorSpecific",
    "audioMasterSetIcon", "audioMasterCanDo", "audioMasterGetLanguage", "audioMasterOpenWindow",
    "audioMasterCloseWindow", "audioMasterGetDirectory", "audioMasterUpdateDisplay",
    "audioMasterBeginEdit", "audioMasterEndEdit", "audioMasterOpenFileSelector",
    "audioMasterCloseFileSelector", "audioMasterEditFile", "audioMasterGetChunkFile",
    "audioMasterGetInputSpeakerArrangement"};

bool IsTextInOpcode(int32_t opcode) {
  return opcode == effSetProgramName || opcode == effCanDo || opcode == effString2Parameter;
}

}  // namespace

void CopyText(char* dest, const char* text, size_t limit) {
  if (dest == nullptr || limit == 0) return;
  size_t n = std::strlen(text);
  if (n > limit - 1) n = limit - 1;
  std::memcpy(dest, text, n);
  dest[n] = '\0';
}

void Log(const std::string& line) {
  ModuleRecord& r = Record();
  std::lock_guard<std::mutex> hold(r.lock);
  if (r.log.size() + line.size() + 1 > kLogLimit) r.log.clear();
  r.log += line;
  r.log += '\n';
}

std::string DispatcherOpcodeName(int32_t opcode) {
  if (opcode >= 0 && opcode < effNumV2_4Opcodes) return kDispatcherNames[opcode];
  return "eff" + std::to_string(opcode);
}

std::string HostOpcodeName(int32_t opcode) {
  constexpr int32_t count = sizeof(kHostNames) / sizeof(kHostNames[0]);
  if (opcode >= 0 && opcode < count) return kHostNames[opcode];
  return "audioMaster" + std::to_string(opcode);
}

std::string FourCCText(intptr_t value) {
  const auto v = static_cast<uint32_t>(value);
  char text[5];
  for (int i = 0; i < 4; ++i) {
    const char c = static_cast<char>((v >> (24 - 8 * i)) & 0xFF);
    if (c < 0x20 || c > 0x7E) return std::to_string(value);
    text[i] = c;
  }
  text[4] = '\0';
  if (static_cast<intptr_t>(v) != value) return std::to_string(value);
  return text;
}

Plugin::Plugin(audioMasterCallback host, Info info) : host_(host), info_(std::move(info)) {
  effect_.magic = kEffectMagic;
  effect_.dispatcher = &DispatcherEntry;
  effect_.process = &ProcessEntry;
  effect_.setParameter = &SetParameterEntry;
  effect_.getParameter = &GetParameterEntry;
  effect_.numPrograms = static_cast<int32_t>(info_.programs.size());
  effect_.numParams = static_cast<int32_t>(info_.params.size());
  effect_.numInputs = info_.numInputs;
  effect_.numOutputs = info_.numOutputs;
  effect_.flags = info_.flags | effFlagsCanReplacing;
  effect_.initialDelay = info_.initialDelay;
  effect_.ioRatio = 1.0f;
  effect_.object = this;
  effect_.uniqueID = info_.uniqueId;
  effect_.version = info_.version;
  effect_.processReplacing = &ProcessReplacingEntry;
  if (info_.flags & effFlagsCanDoubleReplacing) effect_.processDoubleReplacing = &ProcessDoubleEntry;

  for (const ParamSpec& p : info_.params) params_.push_back(p.defaultValue);
  for (const ProgramSpec& def : info_.programs) {
    Program program{def.name, params_};
    for (size_t i = 0; i < def.values.size() && i < program.values.size(); ++i)
      program.values[i] = def.values[i];
    programs_.push_back(std::move(program));
  }
  if (!programs_.empty()) params_ = programs_[0].values;

  ModuleRecord& r = Record();
  std::lock_guard<std::mutex> hold(r.lock);
  r.latest = this;
  r.haveFinal = false;
  ++r.created;
  ++r.alive;
}

Plugin::~Plugin() {
  ModuleRecord& r = Record();
  std::lock_guard<std::mutex> hold(r.lock);
  if (r.latest == this) r.latest = nullptr;
  --r.alive;
}

void Plugin::ProcessDouble(double** /*inputs*/, double** /*outputs*/, int32_t /*frames*/) {}

void Plugin::FormatDisplay(int32_t /*index*/, float value, char* text) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.3f", static_cast<double>(value));
  CopyText(text, buffer, kVstMaxParamStrLen);
}

intptr_t Plugin::CanDo(const char* text) {
  if (std::strcmp(text, "plugAsChannelInsert") == 0 || std::strcmp(text, "plugAsSend") == 0)
    return effect_.numInputs > 0 ? 1 : -1;
  if (std::strcmp(text, "receiveVstTimeInfo") == 0) return 1;
  if (std::strcmp(text, "receiveVstEvents") == 0 || std::strcmp(text, "receiveVstMidiEvent") == 0)
    return (effect_.flags & effFlagsIsSynth) ? 1 : -1;
  if (std::strcmp(text, "sendVstEvents") == 0 || std::strcmp(text, "sendVstMidiEvent") == 0 ||
      std::strcmp(text, "offline") == 0 || std::strcmp(text, "bypass") == 0)
    return -1;
  return 0;
}

intptr_t Plugin::DispatchExtra(int32_t, int32_t, intptr_t, void*, float) { return 0; }

void Plugin::SetParam(int32_t index, float value) {
  if (index < 0 || index >= effect_.numParams) return;
  params_[static_cast<size_t>(index)] = value;
  if (!programs_.empty()) programs_[static_cast<size_t>(program_)].values[static_cast<size_t>(index)] = value;
  ParameterChanged(index);
}

void Plugin::SetProgramName(int32_t index, const char* name) {
  char buffer[kVstMaxProgNameLen];
  CopyText(buffer, name, sizeof buffer);
  programs_[static_cast<size_t>(index)].name = buffer;
}

void Plugin::SelectProgram(int32_t index) {
  if (index < 0 || index >= effect_.numPrograms) return;
  program_ = index;
  params_ = programs_[static_cast<size_t>(index)].values;
  for (int32_t i = 0; i < effect_.numParams; ++i) ParameterChanged(i);
}

int64_t Plugin::State(int32_t slot) {
  switch (slot) {
    case kStateFlags:
      return (mainsOn_ ? int64_t{kFlagMainsOn} : 0) | (processing_ ? int64_t{kFlagProcessing} : 0) |
             (open_ ? int64_t{kFlagOpen} : 0);
    case kStateSampleRate:
      return std::lround(sampleRate_);
    case kStateBlockSize:
      return blockSize_;
    case kStateProcessCount:
      return processCount_.load();
    case kStateLastFrames:
      return lastFrames_.load();
    case kStateProgram:
      return program_;
    case kStateProcessDoubleCount:
      return processDoubleCount_.load();
    case kStateProcessWhileOff:
      return processWhileOff_.load();
    case kStateInstancesCreated:
    case kStateInstancesAlive: {
      ModuleRecord& r = Record();
      // Called with the record's lock held by zqplugin_state, or without it
      // through the vendor call; the counters are read as they stand.
      return slot == kStateInstancesCreated ? r.created : r.alive;
    }
    case kStateMainsOnCount:
    case kStateMainsOffCount:
    case kStateStartCount:
    case kStateStopCount:
    case kStateArrangementCount:
    case kStateOpenCount:
    case kStateCloseCount:
      return counts_[slot];
    default:
      if (slot >= kStatePluginSpecific && slot < kStateSlotCount) return PluginState(slot);
      return -1;
  }
}

void CountArrangement(Plugin* plugin) { ++plugin->counts_[kStateArrangementCount]; }

void Plugin::LogDispatch(int32_t opcode, int32_t index, intptr_t value, void* ptr, float opt) {
  std::string line = DispatcherOpcodeName(opcode);
  if (opcode == effVendorSpecific) {
    line += ' ' + FourCCText(index) + ' ' + FourCCText(value);
  } else {
    line += ' ' + std::to_string(index) + ' ' + std::to_string(value);
  }
  if (opt != 0.0f) {
    char buffer[48];
    std::snprintf(buffer, sizeof buffer, " %g", static_cast<double>(opt));
    line += buffer;
  }
  if (IsTextInOpcode(opcode) && ptr != nullptr) {
    line += " \"";
    line += static_cast<const char*>(ptr);
    line += '"';
  }
  Log(line);
}

intptr_t Plugin::Dispatch(int32_t opcode, int32_t index, intptr_t value, void* ptr, float opt) {
  LogDispatch(opcode, index, value, ptr, opt);
  char* text = static_cast<char*>(ptr);
  const bool paramInRange = index >= 0 && index < effect_.numParams;
  switch (opcode) {
    case effOpen:
      open_ = true;
      ++counts_[kStateOpenCount];
      return 0;
    case effClose: {
      open_ = false;
      ++counts_[kStateCloseCount];
      ModuleRecord& r = Record();
      {
        std::lock_guard<std::mutex> hold(r.lock);
        if (r.latest == this) {
          for (int32_t slot = 0; slot < kStateSlotCount; ++slot) r.final[slot] = State(slot);
          r.final[kStateInstancesAlive] = r.alive - 1;
          r.haveFinal = true;
        }
      }
      delete this;
      return 0;
    }
    case effSetProgram:
      SelectProgram(static_cast<int32_t>(value));
      return 0;
    case effGetProgram:
      return program_;
    case effSetProgramName:
      if (text != nullptr && !programs_.empty()) SetProgramName(program_, text);
      return 0;
    case effGetProgramName:
      if (programs_.empty()) CopyText(text, "", kVstMaxProgNameLen);
      else CopyText(text, programs_[static_cast<size_t>(program_)].name.c_str(), kVstMaxProgNameLen);
      return 0;
    case effGetProgramNameIndexed:
      if (!info_.indexedProgramNames || index < 0 || index >= effect_.numPrograms) return 0;
      CopyText(text, programs_[static_cast<size_t>(index)].name.c_str(), kVstMaxProgNameLen);
      return 1;
    case effGetParamLabel:
      if (paramInRange) CopyText(text, info_.params[static_cast<size_t>(index)].label, kVstMaxParamStrLen);
      return 0;
    case effGetParamDisplay:
      if (paramInRange && text != nullptr) FormatDisplay(index, Param(index), text);
      return 0;
    case effGetParamName:
      if (paramInRange) CopyText(text, info_.params[static_cast<size_t>(index)].name, kVstMaxParamStrLen);
      return 0;
    case effCanBeAutomated:
      return paramInRange ? 1 : 0;
    case effGetParameterProperties:
      if (!paramInRange || ptr == nullptr) return 0;
      return ParameterProperties(index, static_cast<VstParameterProperties*>(ptr)) ? 1 : 0;
    case effSetSampleRate:
      sampleRate_ = opt;
      return 0;
    case effSetBlockSize:
      blockSize_ = static_cast<int32_t>(value);
      return 0;
    case effMainsChanged:
      if (value != 0) {
        mainsOn_ = true;
        ++counts_[kStateMainsOnCount];
        Resume();
      } else {
        mainsOn_ = false;
        ++counts_[kStateMainsOffCount];
        Suspend();
      }
      return 0;
    case effStartProcess:
      processing_ = true;
      ++counts_[kStateStartCount];
      return 0;
    case effStopProcess:
      processing_ = false;
      ++counts_[kStateStopCount];
      return 0;
    case effGetPlugCategory:
      return info_.category;
    case effGetEffectName:
      CopyText(text, info_.effectName, kVstMaxEffectNameLen);
      return 1;
    case effGetVendorString:
      CopyText(text, info_.vendorName, kVstMaxVendorStrLen);
      return 1;
    case effGetProductString:
      CopyText(text, info_.productName, kVstMaxProductStrLen);
      return 1;
    case effGetVendorVersion:
      return info_.vendorVersion;
    case effGetVstVersion:
      return 2400;
    case effCanDo:
      return text != nullptr ? CanDo(text) : 0;
    case effGetTailSize:
      return TailSize();
    case effGetInputProperties:
    case effGetOutputProperties: {
      const int32_t count = opcode == effGetInputProperties ? effect_.numInputs : effect_.numOutputs;
      if (ptr == nullptr || index < 0 || index >= count) return 0;
      auto* pin = static_cast<VstPinProperties*>(ptr);
      std::memset(pin, 0, sizeof *pin);
      const std::string number = std::to_string(index + 1);
      const bool input = opcode == effGetInputProperties;
      CopyText(pin->label, ((input ? "In " : "Out ") + number).c_str(), sizeof pin->label);
      CopyText(pin->shortLabel, ((input ? "I" : "O") + number).c_str(), sizeof pin->shortLabel);
      pin->flags = kVstPinIsActive;
      if (count == 2 && index == 0) pin->flags |= kVstPinIsStereo;
      return 1;
    }
    case effSetProcessPrecision:
      return (value == kVstProcessPrecision32 || (effect_.flags & effFlagsCanDoubleReplacing)) ? 1 : 0;
    case effVendorSpecific:
      if (index == kZqPlugStateIndex) return static_cast<intptr_t>(State(static_cast<int32_t>(value)));
      return DispatchExtra(opcode, index, value, ptr, opt);
    default:
      return DispatchExtra(opcode, index, value, ptr, opt);
  }
}

intptr_t Plugin::DispatcherEntry(AEffect* e, int32_t opcode, int32_t index, intptr_t value,
                                 void* ptr, float opt) {
  return From(e)->Dispatch(opcode, index, value, ptr, opt);
}

void Plugin::ProcessEntry(AEffect* e, float** inputs, float** outputs, int32_t frames) {
  // The deprecated accumulating call: process into scratch, then add.
  Plugin* self = From(e);
  if (frames <= 0) return;
  std::vector<std::vector<float>> scratch(static_cast<size_t>(e->numOutputs),
                                          std::vector<float>(static_cast<size_t>(frames)));
  std::vector<float*> planes;
  for (auto& plane : scratch) planes.push_back(plane.data());
  self->Process(inputs, planes.data(), frames);
  for (int32_t c = 0; c < e->numOutputs; ++c)
    for (int32_t i = 0; i < frames; ++i) outputs[c][i] += planes[static_cast<size_t>(c)][i];
}

void Plugin::ProcessReplacingEntry(AEffect* e, float** inputs, float** outputs, int32_t frames) {
  Plugin* self = From(e);
  self->processCount_.fetch_add(1, std::memory_order_relaxed);
  self->lastFrames_.store(frames, std::memory_order_relaxed);
  if (!self->mainsOn_) self->processWhileOff_.fetch_add(1, std::memory_order_relaxed);
  if (frames > 0) self->Process(inputs, outputs, frames);
}

void Plugin::ProcessDoubleEntry(AEffect* e, double** inputs, double** outputs, int32_t frames) {
  Plugin* self = From(e);
  self->processDoubleCount_.fetch_add(1, std::memory_order_relaxed);
  self->lastFrames_.store(frames, std::memory_order_relaxed);
  if (frames > 0) self->ProcessDouble(inputs, outputs, frames);
}

void Plugin::SetParameterEntry(AEffect* e, int32_t index, float value) {
  From(e)->SetParam(index, value);
}

float Plugin::GetParameterEntry(AEffect* e, int32_t index) {
  Plugin* self = From(e);
  if (index < 0 || index >= self->effect_.numParams) return 0.0f;
  return self->Param(index);
}

}  // namespace zqplug

using zqplug::ModuleRecord;

ZQ_PLUGIN_EXPORT const char* zqplugin_log() {
  ModuleRecord& r = zqplug::Record();
  std::lock_guard<std::mutex> hold(r.lock);
  r.snapshot = r.log;
  return r.snapshot.c_str();
}

ZQ_PLUGIN_EXPORT void zqplugin_log_clear() {
  ModuleRecord& r = zqplug::Record();
  std::lock_guard<std::mutex> hold(r.lock);
  r.log.clear();
}

ZQ_PLUGIN_EXPORT long long zqplugin_state(int what) {
  ModuleRecord& r = zqplug::Record();
  std::lock_guard<std::mutex> hold(r.lock);
  if (what == zqplug::kStateInstancesCreated) return r.created;
  if (what == zqplug::kStateInstancesAlive) return r.alive;
  if (r.latest != nullptr) return r.latest->State(what);
  if (r.haveFinal && what >= 0 && what < zqplug::kStateSlotCount) return r.final[what];
  return -1;
}
