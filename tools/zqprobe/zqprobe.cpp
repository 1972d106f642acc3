// zqprobe [--id ID] [--report-fd N] [--quiet] [--] MODULE
//
// Loads one VST 2.x module, enters it (asking a shell for plug-in ID, 0 by
// default), opens the effect and closes it again, every call inside the
// fault guard, and ends with a status that says what happened (the
// ZqProbeResult values of aplugins/zqvstwrap/host/zqvstprobe.h).  A module that
// hangs or ends the process is the business of whoever started the probe:
// the host runs it as a child and kills it at a time limit.
//
// --report-fd N  send the report record on the inherited socket N before
//                ending, and end when that socket hangs up (the host has
//                gone: a hung module must not outlive it)
// --quiet        print nothing (otherwise one line on stdout)
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "aplugins/zqvstwrap/host/zqvstprobe.h"
#include "platform/guard.h"
#include "platform/process.h"
#include "platform/sync.h"
#include "platform/thread.h"
#include "tools/common/toolvst.h"

namespace {

struct Options {
  int32_t id = 0;
  int reportFd = -1;
  bool quiet = false;
  const char* module = nullptr;
};

bool ParseNumber(const char* text, long long low, long long high, long long* value) {
  if (text == nullptr || *text == '\0') return false;
  char* end = nullptr;
  const long long v = std::strtoll(text, &end, 0);
  if (*end != '\0' || v < low || v > high) return false;
  *value = v;
  return true;
}

bool Parse(int argc, char** argv, Options* o) {
  bool options = true;
  for (int i = 1; i < argc; ++i) {
    const char* a = argv[i];
    long long v = 0;
    if (options && std::strcmp(a, "--") == 0) {
      options = false;
    } else if (options && std::strcmp(a, "--quiet") == 0) {
      o->quiet = true;
    } else if (options && std::strcmp(a, "--id") == 0) {
      // Ids are 32-bit words; hosts write them signed or unsigned.
      if (!ParseNumber(i + 1 < argc ? argv[++i] : nullptr, INT32_MIN, UINT32_MAX, &v)) return false;
      o->id = static_cast<int32_t>(static_cast<uint32_t>(v));
    } else if (options && std::strcmp(a, "--report-fd") == 0) {
      if (!ParseNumber(i + 1 < argc ? argv[++i] : nullptr, 3, 1 << 20, &v)) return false;
      o->reportFd = static_cast<int>(v);
    } else if (options && a[0] == '-' && a[1] != '\0') {
      return false;
    } else if (o->module == nullptr) {
      o->module = a;
    } else {
      return false;
    }
  }
  return o->module != nullptr;
}

// Ends the probe when its host hangs up the report socket: a module that
// hangs would otherwise run on with nobody to kill it.
DWORD WatchHost(LPVOID parameter) {
  const int fd = static_cast<int>(reinterpret_cast<intptr_t>(parameter));
  char byte;
  for (;;) {
    const long long n = ZqSocketReceive(fd, &byte, 1, nullptr, nullptr, INFINITE);
    if (n == 0) std::_Exit(kZqProbeOrphaned);
    if (n < 0 && GetLastError() != ERROR_MORE_DATA) return 0;  // not a socket: nothing to watch
  }
}

const char* ResultText(uint16_t result) {
  switch (result) {
    case kZqProbeOpened: return "opened and closed";
    case kZqProbeOpenedWithFault: return "opened and closed; the plug-in faulted";
    case kZqProbeShell: return "a shell's container";
    case kZqProbeShellMismatch: return "the shell gave another plug-in";
    case kZqProbeLoadFailed: return "cannot load the module";
    case kZqProbeNoEntry: return "no entry point";
    case kZqProbeNullEffect: return "the entry point gave no effect";
    case kZqProbeWrongMagic: return "wrong magic number";
    case kZqProbeFault: return "the plug-in faulted";
    default: return "?";
  }
}

ZqProbeReport Probe(const Options& o) {
  ZqProbeReport r{};
  ZqToolSetCurrentId(o.id);
  ZqToolModule m;
  // A module's constructors run inside the load and may fault as well.
  ZqToolLoad load = ZqToolLoad::Fault;
  const DWORD loadFault = ZqGuardedAll([&] { load = ZqToolFindEntry(o.module, &m); });
  if (loadFault != 0) {
    r.result = kZqProbeFault;
    r.detail = loadFault;
    return r;
  }
  if (load == ZqToolLoad::LoadFailed) {
    r.result = kZqProbeLoadFailed;
    r.detail = m.error;
    return r;
  }
  if (load == ZqToolLoad::NoEntry) {
    r.result = kZqProbeNoEntry;
    return r;
  }
  switch (ZqToolCallEntry(&m)) {
    case ZqToolLoad::Fault:
      r.result = kZqProbeFault;
      r.detail = m.error;
      return r;  // the module stays loaded: its state is unknown
    case ZqToolLoad::NullEffect:
      r.result = kZqProbeNullEffect;
      FreeLibrary(m.module);
      return r;
    case ZqToolLoad::WrongMagic:
      // Not an effect: nothing of it is called, not even effClose.
      r.result = kZqProbeWrongMagic;
      r.detail = m.error;
      FreeLibrary(m.module);
      return r;
    default:
      break;
  }

  AEffect* e = m.effect;
  // Each call has its own guard: a fault is an ordinary answer, as it is
  // for an effect in a host.
  DWORD firstFault = 0;
  auto dispatch = [&](int32_t opcode) -> intptr_t {
    intptr_t answer = -1;
    const DWORD code = ZqGuardedAll([&] { answer = e->dispatcher(e, opcode, 0, 0, nullptr, 0.0f); });
    if (code != 0 && firstFault == 0) firstFault = code;
    return code != 0 ? -1 : answer;
  };
  const DWORD readFault = ZqGuardedAll([&] { r.uniqueId = e->uniqueID; });
  r.category = static_cast<int32_t>(dispatch(effGetPlugCategory));
  if (readFault == 0 && r.category == kPlugCategShell) {
    if (o.id == 0) {
      r.result = kZqProbeShell;  // the container; the host lists its plug-ins
      dispatch(effClose);
      FreeLibrary(m.module);
      return r;
    }
    if (r.uniqueId != o.id) {
      r.result = kZqProbeShellMismatch;
      dispatch(effClose);
      FreeLibrary(m.module);
      return r;
    }
  }
  dispatch(effOpen);
  dispatch(effClose);
  r.result = firstFault != 0 ? kZqProbeOpenedWithFault : kZqProbeOpened;
  r.detail = firstFault;
  FreeLibrary(m.module);
  return r;
}

}  // namespace

int main(int argc, char** argv) {
  Options o;
  if (!Parse(argc, argv, &o)) {
    std::fprintf(stderr,
                 "usage: zqprobe [--id ID] [--report-fd N] [--quiet] [--] MODULE\n"
                 "Loads a VST 2.x module, opens and closes it, and ends with a status\n"
                 "that says what happened.\n");
    return kZqProbeUsage;
  }
  if (o.reportFd >= 0) {
    HANDLE watcher = CreateThread(nullptr, 0, &WatchHost,
                                  reinterpret_cast<LPVOID>(static_cast<intptr_t>(o.reportFd)), 0, nullptr);
    if (watcher != nullptr) CloseHandle(watcher);
  }
  ZqProbeReport r = Probe(o);
  r.magic = kZqProbeReportMagic;
  r.version = kZqProbeReportVersion;
  if (!o.quiet) {
    std::printf("%s: %s (result %u, detail 0x%08X, id 0x%08X, category %d)\n", o.module, ResultText(r.result),
                static_cast<unsigned>(r.result), static_cast<unsigned>(r.detail),
                static_cast<unsigned>(r.uniqueId), static_cast<int>(r.category));
  }
  std::fflush(stdout);
  if (o.reportFd >= 0) ZqSocketSend(o.reportFd, &r, sizeof r, nullptr, 0);
  // Ends at once: what the module left behind (threads, handlers run at exit)
  // must not change a status that has been reported.
  std::_Exit(r.result);
}
