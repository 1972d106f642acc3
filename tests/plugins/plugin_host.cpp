#include "tests/plugins/plugin_host.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "platform/text.h"

namespace zqtest {
namespace {

intptr_t Callback(AEffect*, int32_t opcode, int32_t, intptr_t, void* ptr, float) {
  TestHost& h = Host();
  h.opcodes.push_back(opcode);
  switch (opcode) {
    case audioMasterVersion:
      return 2400;
    case audioMasterCurrentId:
      return h.currentId;
    case audioMasterNeedIdle:
      return h.needIdleAnswer;
    case audioMasterGetTime:
      return h.haveTime ? reinterpret_cast<intptr_t>(&h.time) : 0;
    case audioMasterGetVendorString:
      if (h.vendor.empty() || ptr == nullptr) return 0;
      std::strcpy(static_cast<char*>(ptr), h.vendor.c_str());
      return 1;
    case audioMasterGetDirectory:
      return h.directory.empty() ? 0 : reinterpret_cast<intptr_t>(h.directory.c_str());
    case audioMasterCanDo:
      return ptr != nullptr && std::strcmp(static_cast<const char*>(ptr), "sizeWindow") == 0 ? 1 : 0;
    default:
      return 0;
  }
}

}  // namespace

TestHost& Host() {
  static TestHost host;
  return host;
}

std::string PluginPath(const char* file) { return std::string(ZQ_PLUGIN_DIR) + "/" + file; }

int32_t Id(const char* text) {
  uint32_t value = 0;
  for (int i = 0; i < 4; ++i) value = value << 8 | static_cast<unsigned char>(text[i]);
  return static_cast<int32_t>(value);
}

Plugin::Plugin(const char* file, bool open) {
  module_ = LoadLibraryW(ZqUtf8ToUtf16(PluginPath(file)).c_str());
  if (module_ == nullptr) {
    ADD_FAILURE() << file << ": " << ZqGetLastLoadErrorText();
    return;
  }
  FARPROC entry = GetProcAddress(module_, "VSTPluginMain");
  if (entry == nullptr) entry = GetProcAddress(module_, "main");
  if (entry == nullptr) {
    ADD_FAILURE() << file << ": no entry point";
    return;
  }
  effect_ = reinterpret_cast<VstPluginMainProc>(reinterpret_cast<void*>(entry))(&Callback);
  if (open && ok()) Call(effOpen);
}

Plugin::~Plugin() {
  Close();
  if (module_ != nullptr) FreeLibrary(module_);
}

void Plugin::Close() {
  if (closed_ || !ok()) return;  // after effClose the effect is gone
  closed_ = true;
  Call(effClose);
}

intptr_t Plugin::Call(int32_t opcode, int32_t index, intptr_t value, void* ptr, float opt) {
  return effect_->dispatcher(effect_, opcode, index, value, ptr, opt);
}

std::string Plugin::Text(int32_t opcode, int32_t index) {
  char buffer[260];
  std::memset(buffer, 0, sizeof buffer);
  Call(opcode, index, 0, buffer);
  buffer[sizeof buffer - 1] = '\0';
  return buffer;
}

void Plugin::Resume(float rate, int32_t block) {
  Call(effSetSampleRate, 0, 0, nullptr, rate);
  Call(effSetBlockSize, 0, block);
  Call(effMainsChanged, 0, 1);
  Call(effStartProcess);
}

std::vector<std::vector<float>> Plugin::Run(const std::vector<std::vector<float>>& inputs,
                                            int32_t frames, const std::vector<int32_t>& blocks) {
  std::vector<std::vector<float>> in(static_cast<size_t>(effect_->numInputs));
  for (size_t c = 0; c < in.size(); ++c)
    in[c] = c < inputs.size() ? inputs[c] : std::vector<float>(static_cast<size_t>(frames), 0.0f);
  std::vector<std::vector<float>> out(static_cast<size_t>(effect_->numOutputs),
                                      std::vector<float>(static_cast<size_t>(frames), -99.0f));
  size_t which = 0;
  for (int32_t done = 0; done < frames;) {
    const int32_t n = std::min(blocks[which++ % blocks.size()], frames - done);
    std::vector<float*> ip, op;
    for (auto& plane : in) ip.push_back(plane.data() + done);
    for (auto& plane : out) op.push_back(plane.data() + done);
    effect_->processReplacing(effect_, ip.data(), op.data(), n);
    done += n;
  }
  return out;
}

std::vector<std::vector<double>> Plugin::RunDouble(const std::vector<std::vector<double>>& inputs,
                                                   int32_t frames) {
  std::vector<std::vector<double>> in = inputs;
  in.resize(static_cast<size_t>(effect_->numInputs), std::vector<double>(static_cast<size_t>(frames), 0.0));
  std::vector<std::vector<double>> out(static_cast<size_t>(effect_->numOutputs),
                                       std::vector<double>(static_cast<size_t>(frames), -99.0));
  std::vector<double*> ip, op;
  for (auto& plane : in) ip.push_back(plane.data());
  for (auto& plane : out) op.push_back(plane.data());
  effect_->processDoubleReplacing(effect_, ip.data(), op.data(), frames);
  return out;
}

void* Plugin::Export(const char* name) {
  return reinterpret_cast<void*>(GetProcAddress(module_, name));
}

std::string Plugin::Log() {
  auto fn = reinterpret_cast<const char* (*)()>(Export("zqplugin_log"));
  return fn != nullptr ? fn() : "(no log)";
}

void Plugin::ClearLog() {
  auto fn = reinterpret_cast<void (*)()>(Export("zqplugin_log_clear"));
  if (fn != nullptr) fn();
}

long long Plugin::State(int what) {
  auto fn = reinterpret_cast<long long (*)(int)>(Export("zqplugin_state"));
  return fn != nullptr ? fn(what) : -2;
}

}  // namespace zqtest
