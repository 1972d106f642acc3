// A VST 2.x module that calls its host from a thread of its own, as
// plug-ins with editors do: setting a parameter starts a thread that tells
// the host of the change (audioMasterAutomate), and waits for it.
#include <cstring>
#include <thread>

#include "aplugins/zqvstwrap/vst2abi.h"

namespace {

audioMasterCallback g_host = nullptr;
float g_value = 0.0f;

VstIntPtr VSTCALLBACK Dispatch(AEffect* effect, VstInt32 opcode, VstInt32, VstIntPtr, void* ptr, float) {
  if (opcode == effClose) {
    delete effect;
    return 1;
  }
  if (opcode == effGetEffectName && ptr) {
    std::strcpy(static_cast<char*>(ptr), "ZqOwnThr");
    return 1;
  }
  return 0;
}

void VSTCALLBACK SetParameter(AEffect* effect, VstInt32 index, float value) {
  g_value = value;
  std::thread([=] { g_host(effect, audioMasterAutomate, index, 0, nullptr, value); }).join();
}
float VSTCALLBACK GetParameter(AEffect*, VstInt32) { return g_value; }
void VSTCALLBACK Process(AEffect*, float** in, float** out, VstInt32 frames) {
  for (int c = 0; c < 2; ++c) std::memcpy(out[c], in[c], sizeof(float) * size_t(frames));
}

}  // namespace

extern "C" __attribute__((visibility("default"))) AEffect* VSTPluginMain(audioMasterCallback host) {
  g_host = host;
  AEffect* e = new AEffect{};
  e->magic = kEffectMagic;
  e->dispatcher = Dispatch;
  e->setParameter = SetParameter;
  e->getParameter = GetParameter;
  e->numParams = 1;
  e->numInputs = 2;
  e->numOutputs = 2;
  e->uniqueID = ZqVstFourCC("ZqOt");
  e->processReplacing = Process;
  e->flags = effFlagsCanReplacing;
  return e;
}
