// Loading a VST 2.x module for a look at it, as the command-line tools do:
// load through the platform's loader, find the entry ("VSTPluginMain", else
// "main"), call it with a minimal host inside the fault guard and check what
// it gives.  Nothing here prints: each tool tells its own story.
#pragma once

#include <cstdint>

#include "aplugins/zqvstwrap/vst2abi.h"
#include "base/types.h"
#include "platform/module.h"

enum class ZqToolLoad {
  Loaded,      // module loaded and entry found, or effect obtained
  LoadFailed,  // error: the platform error of LoadLibraryW
  NoEntry,     // neither entry point is exported
  NullEffect,  // the entry point gave null
  WrongMagic,  // error: the magic number found
  Fault,       // error: the exception code the guard caught
};

struct ZqToolModule {
  HMODULE module = nullptr;
  const char* entryName = nullptr;  // "VSTPluginMain" or "main"
  VstPluginMainProc entry = nullptr;
  AEffect* effect = nullptr;
  DWORD error = 0;
};

// The host as far as the plug-in can tell: version 2400 for
// audioMasterVersion, the id set here (0 unless set) for
// audioMasterCurrentId, so that a shell gives the plug-in asked for or its
// container, and 0 to the rest.
intptr_t ZqToolHostCallback(AEffect* effect, int32_t opcode, int32_t index, intptr_t value, void* ptr,
                            float opt);
void ZqToolSetCurrentId(int32_t id);

// Loads `path` (UTF-8) and finds its entry point.  Loaded with `module`,
// `entry` and `entryName` set; LoadFailed and NoEntry leave nothing loaded.
ZqToolLoad ZqToolFindEntry(const char* path, ZqToolModule* m);

// Calls the entry point found by ZqToolFindEntry with ZqToolHostCallback,
// inside the guard.  Loaded with `effect` set; otherwise NullEffect,
// WrongMagic (`effect` set all the same) or Fault.  The module stays loaded
// in every case: after a fault its state is unknown, and unmapping code that
// may still be referenced would make it worse.
ZqToolLoad ZqToolCallEntry(ZqToolModule* m);
