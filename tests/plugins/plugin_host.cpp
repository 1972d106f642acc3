#include "tests/plugins/plugin_host.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "platform/text.h"

namespace zqtest {
namespace {

intptr_t Callback(AEffect*, int32_t opcode, int32_t, intptr_t, void*, float) {
  return opcode == audioMasterVersion ? 2400 : 0;
}

}  // namespace

int32_t Id(const char* text) {
  uint32_t value = 0;
  for (int i = 0; i < 4; ++i) value = value << 8 | static_cast<unsigned char>(text[i]);
  return static_cast<int32_t>(value);
}

Plugin::Plugin(const char* file) {
  module_ = LoadLibraryW(ZqUtf8ToUtf16(std::string(ZQ_PLUGIN_DIR) + "/" + file).c_str());
  if (module_ == nullptr) {
    ADD_FAILURE() << file << ": " << ZqGetLastLoadErrorText();
    return;
  }
  FARPROC entry = GetProcAddress(module_, "VSTPluginMain");
  if (entry == nullptr) {
    ADD_FAILURE() << file << ": no entry point";
    return;
  }
  effect_ = reinterpret_cast<VstPluginMainProc>(reinterpret_cast<void*>(entry))(&Callback);
  if (ok()) Call(effOpen);
}

Plugin::~Plugin() {
  if (ok()) Call(effClose);
  if (module_ != nullptr) FreeLibrary(module_);
}

intptr_t Plugin::Call(int32_t opcode, int32_t index, intptr_t value, void* ptr, float opt) {
  return effect_->dispatcher(effect_, opcode, index, value, ptr, opt);
}

std::string Plugin::Text(int32_t opcode, int32_t index) {
  char buffer[260] = {};
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

namespace {

template <class T, class Process>
std::vector<std::vector<T>> RunPlanes(AEffect* e, const std::vector<std::vector<T>>& inputs, int32_t frames,
                                      const std::vector<int32_t>& blocks, Process process) {
  std::vector<std::vector<T>> in = inputs;
  in.resize(static_cast<size_t>(e->numInputs), std::vector<T>(static_cast<size_t>(frames), T(0)));
  std::vector<std::vector<T>> out(static_cast<size_t>(e->numOutputs), std::vector<T>(static_cast<size_t>(frames), T(-99)));
  size_t which = 0;
  for (int32_t done = 0; done < frames;) {
    const int32_t n = std::min(blocks[which++ % blocks.size()], frames - done);
    std::vector<T*> ip, op;
    for (auto& plane : in) ip.push_back(plane.data() + done);
    for (auto& plane : out) op.push_back(plane.data() + done);
    process(e, ip.data(), op.data(), n);
    done += n;
  }
  return out;
}

}  // namespace

std::vector<std::vector<float>> Plugin::Run(const std::vector<std::vector<float>>& inputs, int32_t frames,
                                            const std::vector<int32_t>& blocks) {
  return RunPlanes(effect_, inputs, frames, blocks, effect_->processReplacing);
}

std::vector<std::vector<double>> Plugin::RunDouble(const std::vector<std::vector<double>>& inputs, int32_t frames) {
  return RunPlanes(effect_, inputs, frames, {frames}, effect_->processDoubleReplacing);
}

long long Plugin::State(int what) {
  auto fn = reinterpret_cast<long long (*)(int)>(reinterpret_cast<void*>(GetProcAddress(module_, "zqplugin_state")));
  return fn != nullptr ? fn(what) : -2;
}

}  // namespace zqtest
