// zqplugcheck MODULE...
//
// Loads each VST 2.x module through the platform's module loader, enters it
// at "VSTPluginMain" (or else "main") with a minimal host, opens the effect
// and prints what it is: names, identifier, version, channels, latency,
// flags, parameters and programs (and a shell's sub-plug-ins).  Every call
// into the module runs inside the fault guard, so a module that faults is
// reported and the next one is still looked at.  The exit status is 0 when
// every module could be inspected, 1 otherwise, 2 for a usage error.
#include <cstdio>
#include <cstring>
#include <string>

#include "aplugins/zqvstwrap/vst2abi.h"
#include "platform/guard.h"
#include "platform/module.h"
#include "tools/common/toolvst.h"

namespace {

std::string FourChars(int32_t id) {
  std::string text;
  for (int shift = 24; shift >= 0; shift -= 8) {
    const char c = static_cast<char>((static_cast<uint32_t>(id) >> shift) & 0xFF);
    text += (c >= 0x20 && c <= 0x7E) ? c : '.';
  }
  return text;
}

const char* CategoryName(intptr_t category) {
  static const char* const names[] = {"unknown",  "effect",      "synth",      "analysis",
                                      "mastering", "spatializer", "room fx",    "surround fx",
                                      "restoration", "offline",   "shell",      "generator"};
  return category >= 0 && category < kPlugCategMaxCount ? names[category] : "?";
}

std::string FlagNames(int32_t flags) {
  static const struct {
    int32_t bit;
    const char* name;
  } known[] = {{effFlagsHasEditor, "HasEditor"},       {effFlagsHasClip, "HasClip"},
               {effFlagsHasVu, "HasVu"},               {effFlagsCanMono, "CanMono"},
               {effFlagsCanReplacing, "CanReplacing"}, {effFlagsProgramChunks, "ProgramChunks"},
               {effFlagsIsSynth, "IsSynth"},           {effFlagsNoSoundInStop, "NoSoundInStop"},
               {effFlagsExtIsAsync, "ExtIsAsync"},     {effFlagsExtHasBuffer, "ExtHasBuffer"},
               {effFlagsCanDoubleReplacing, "CanDoubleReplacing"}};
  std::string text;
  for (const auto& k : known) {
    if (flags & k.bit) {
      if (!text.empty()) text += ' ';
      text += k.name;
    }
  }
  return text;
}

class Inspector {
 public:
  explicit Inspector(AEffect* effect) : e_(effect) {}

  intptr_t Call(int32_t opcode, int32_t index = 0, intptr_t value = 0, void* ptr = nullptr,
                float opt = 0.0f) {
    return e_->dispatcher(e_, opcode, index, value, ptr, opt);
  }

  // Text through a zeroed buffer much larger than the published limits, as
  // plug-ins often write beyond them.
  std::string Text(int32_t opcode, int32_t index = 0) {
    char buffer[260] = {};
    Call(opcode, index, 0, buffer);
    buffer[sizeof buffer - 1] = '\0';
    return buffer;
  }

  void Print() {
    std::printf("  name:        %s\n", Text(effGetEffectName).c_str());
    std::printf("  vendor:      %s\n", Text(effGetVendorString).c_str());
    std::printf("  product:     %s\n", Text(effGetProductString).c_str());
    std::printf("  unique id:   '%s' (0x%08X)\n", FourChars(e_->uniqueID).c_str(),
                static_cast<unsigned>(e_->uniqueID));
    std::printf("  version:     %d (vendor version %ld, VST version %ld)\n", e_->version,
                static_cast<long>(Call(effGetVendorVersion)), static_cast<long>(Call(effGetVstVersion)));
    const intptr_t category = Call(effGetPlugCategory);
    std::printf("  category:    %ld (%s)\n", static_cast<long>(category), CategoryName(category));
    std::printf("  inputs:      %d\n", e_->numInputs);
    std::printf("  outputs:     %d\n", e_->numOutputs);
    std::printf("  latency:     %d\n", e_->initialDelay);
    std::printf("  tail:        %ld\n", static_cast<long>(Call(effGetTailSize)));
    std::printf("  flags:       0x%X (%s)\n", static_cast<unsigned>(e_->flags), FlagNames(e_->flags).c_str());
    std::printf("  parameters:  %d\n", e_->numParams);
    for (int32_t i = 0; i < e_->numParams; ++i) {
      const std::string name = Text(effGetParamName, i);
      const std::string display = Text(effGetParamDisplay, i);
      const std::string label = Text(effGetParamLabel, i);
      std::printf("    %3d %-12s %s%s%s\n", i, name.c_str(), display.c_str(), label.empty() ? "" : " ",
                  label.c_str());
    }
    std::printf("  programs:    %d\n", e_->numPrograms);
    const intptr_t current = e_->numPrograms > 0 ? Call(effGetProgram) : 0;
    for (int32_t i = 0; i < e_->numPrograms; ++i) {
      char buffer[260] = {};
      if (Call(effGetProgramNameIndexed, i, 0, buffer) == 0) {
        // No names by index: visit the program to read its name.
        Call(effSetProgram, 0, i);
        Call(effGetProgramName, 0, 0, buffer);
      }
      buffer[sizeof buffer - 1] = '\0';
      std::printf("    %3d %s\n", i, buffer);
    }
    if (e_->numPrograms > 0 && Call(effGetProgram) != current) Call(effSetProgram, 0, current);
    if (category == kPlugCategShell) PrintShell();
  }

 private:
  void PrintShell() {
    std::printf("  sub-plug-ins:\n");
    Call(effVendorSpecific, kZqVstShellScanIndex, kZqVstShellScanStart);
    for (int count = 0; count < 5000; ++count) {
      char name[1024] = {};
      const intptr_t id = Call(effShellGetNextPlugin, 0, 0, name);
      if (id == 0) break;
      name[sizeof name - 1] = '\0';
      std::printf("    '%s' (0x%08X) %s\n", FourChars(static_cast<int32_t>(id)).c_str(),
                  static_cast<unsigned>(id), name);
    }
    Call(effVendorSpecific, kZqVstShellScanIndex, kZqVstShellScanEnd);
  }

  AEffect* e_;
};

// Inspects one module; false (with a message on stderr) when it fails.
bool CheckModule(const char* path) {
  std::printf("%s\n", path);
  ZqToolModule m;
  switch (ZqToolFindEntry(path, &m)) {
    case ZqToolLoad::LoadFailed:
      std::fprintf(stderr, "zqplugcheck: %s: cannot load the module (error %u): %s\n", path,
                   static_cast<unsigned>(m.error), ZqGetLastLoadErrorText());
      return false;
    case ZqToolLoad::NoEntry:
      std::fprintf(stderr, "zqplugcheck: %s: no entry point (neither \"VSTPluginMain\" nor \"main\")\n",
                   path);
      return false;
    default:
      break;
  }
  std::printf("  entry:       %s\n", m.entryName);

  switch (ZqToolCallEntry(&m)) {
    case ZqToolLoad::Fault:
      std::fprintf(stderr, "zqplugcheck: %s: the plug-in faulted (exception 0x%08X)\n", path,
                   static_cast<unsigned>(m.error));
      return false;  // the module stays loaded: its state is unknown
    case ZqToolLoad::NullEffect:
      std::fprintf(stderr, "zqplugcheck: %s: the entry point gave no effect\n", path);
      FreeLibrary(m.module);
      return false;
    case ZqToolLoad::WrongMagic:
      std::fprintf(stderr, "zqplugcheck: %s: wrong magic number 0x%08X (not 'VstP')\n", path,
                   static_cast<unsigned>(m.error));
      FreeLibrary(m.module);
      return false;
    default:
      break;
  }

  bool opened = false;
  const DWORD fault = ZqGuardedAll([&] {
    Inspector inspector(m.effect);
    inspector.Call(effOpen);
    opened = true;
    inspector.Print();
    std::fflush(stdout);
    inspector.Call(effClose);
    opened = false;
  });
  if (fault != 0) {
    std::fprintf(stderr, "zqplugcheck: %s: the plug-in faulted (exception 0x%08X)%s\n", path,
                 static_cast<unsigned>(fault), opened ? " while open" : "");
    // Its state is unknown: the module stays loaded rather than unmapping
    // code that may still be referenced.
    return false;
  }
  FreeLibrary(m.module);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0) {
    std::fprintf(argc < 2 ? stderr : stdout,
                 "usage: zqplugcheck MODULE...\n"
                 "Loads each VST 2.x module and prints its names, identifier, channels,\n"
                 "latency, flags, parameters and programs.\n");
    return argc < 2 ? 2 : 0;
  }
  int failures = 0;
  for (int i = 1; i < argc; ++i) {
    if (!CheckModule(argv[i])) ++failures;
    std::fflush(stdout);
  }
  if (failures != 0) {
    std::fprintf(stderr, "zqplugcheck: %d of %d module(s) failed\n", failures, argc - 1);
    return 1;
  }
  return 0;
}
