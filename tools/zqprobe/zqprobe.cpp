// zqprobe [--id ID] [--report-fd N] [--quiet] [--] MODULE
// zqprobe --serve N
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
// --serve N      a probe server for a scan: answers request after request
//                on the inherited socket N (the records of
//                aplugins/zqvstwrap/discovery/zqvstprobeserver.h), module
//                after module, until the socket hangs up.  A module that
//                hangs or ends the process ends the server; the host
//                starts another.  With --report-fd the server also ends
//                when that socket hangs up, even inside a hung module.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <utility>

#include "aplugins/zqvstwrap/discovery/zqvstprobeserver.h"
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
  int serveFd = -1;
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
    } else if (options && std::strcmp(a, "--serve") == 0) {
      if (!ParseNumber(i + 1 < argc ? argv[++i] : nullptr, 3, 1 << 20, &v)) return false;
      o->serveFd = static_cast<int>(v);
    } else if (options && a[0] == '-' && a[1] != '\0') {
      return false;
    } else if (o->module == nullptr) {
      o->module = a;
    } else {
      return false;
    }
  }
  return o->module != nullptr || o->serveFd >= 0;
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

// The texts and properties of an opened effect, for the probe server.
void ReadEffect(AEffect* e, ZqProbeServerAnswer* a, const std::function<intptr_t(int32_t, void*)>& dispatch) {
  char text[256];
  const std::pair<int32_t, char*> texts[] = {
      {effGetEffectName, a->name}, {effGetVendorString, a->vendor}, {effGetProductString, a->product}};
  for (const auto& [opcode, out] : texts) {
    // Plug-ins write past the documented lengths; the buffer is larger.
    std::memset(text, 0, sizeof text);
    dispatch(opcode, text);
    std::memcpy(out, text, 63);
    out[63] = 0;
  }
  const intptr_t vendorVersion = dispatch(effGetVendorVersion, nullptr);
  ZqGuardedAll([&] {
    const int32_t words[9] = {e->uniqueID, e->version,        static_cast<int32_t>(vendorVersion),
                              e->numPrograms, e->numParams, e->numInputs, e->numOutputs,
                              e->initialDelay, e->flags};
    std::memcpy(a->info, words, sizeof words);
  });
}

// Loads `module` for plug-in `id`, enters it, opens and closes the effect.
// With `extra` the effect's texts and properties are read while it is open;
// with `keepShell` a shell's container stays loaded and open in *shell
// instead (for listing its sub-plug-ins).
ZqProbeReport ProbeModule(const char* module, int32_t id, ZqProbeServerAnswer* extra, bool keepShell,
                          ZqToolModule* shell) {
  ZqProbeReport r{};
  ZqToolSetCurrentId(id);
  ZqToolModule m;
  // A module's constructors run inside the load and may fault as well.
  ZqToolLoad load = ZqToolLoad::Fault;
  const DWORD loadFault = ZqGuardedAll([&] { load = ZqToolFindEntry(module, &m); });
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
  auto dispatchPtr = [&](int32_t opcode, void* ptr) -> intptr_t {
    intptr_t answer = -1;
    const DWORD code = ZqGuardedAll([&] { answer = e->dispatcher(e, opcode, 0, 0, ptr, 0.0f); });
    if (code != 0 && firstFault == 0) firstFault = code;
    return code != 0 ? -1 : answer;
  };
  auto dispatch = [&](int32_t opcode) { return dispatchPtr(opcode, nullptr); };
  const DWORD readFault = ZqGuardedAll([&] { r.uniqueId = e->uniqueID; });
  r.category = static_cast<int32_t>(dispatch(effGetPlugCategory));
  if (readFault == 0 && r.category == kPlugCategShell) {
    if (id == 0) {
      r.result = kZqProbeShell;  // the container; the host lists its plug-ins
      if (keepShell) {
        dispatch(effOpen);
        *shell = m;
        return r;
      }
      dispatch(effClose);
      FreeLibrary(m.module);
      return r;
    }
    if (r.uniqueId != id) {
      r.result = kZqProbeShellMismatch;
      dispatch(effClose);
      FreeLibrary(m.module);
      return r;
    }
  }
  dispatch(effOpen);
  if (extra) ReadEffect(e, extra, dispatchPtr);
  dispatch(effClose);
  r.result = firstFault != 0 ? kZqProbeOpenedWithFault : kZqProbeOpened;
  r.detail = firstFault;
  FreeLibrary(m.module);
  return r;
}

ZqProbeReport Probe(const Options& o) { return ProbeModule(o.module, o.id, nullptr, false, nullptr); }

// The server's loop: one answer per request, until the host hangs up.
int Serve(int fd) {
  ZqToolModule shell;
  ZqProbeServerRequest request;
  for (;;) {
    std::memset(&request, 0, sizeof request);
    const long long n = ZqSocketReceive(fd, &request, sizeof request - 1, nullptr, nullptr, INFINITE);
    if (n == 0) return 0;
    ZqProbeServerAnswer a{};
    a.magic = kZqProbeServerMagic;
    a.version = kZqProbeServerVersion;
    if (n < static_cast<long long>(offsetof(ZqProbeServerRequest, path)) || request.magic != kZqProbeServerMagic ||
        request.version != kZqProbeServerVersion) {
      if (n < 0 && GetLastError() != ERROR_MORE_DATA) return 1;
      a.result = kZqProbeUsage;
    } else if (request.op == kZqProbeOpProbe || request.op == kZqProbeOpOpenShell) {
      ZqProbeReport r{};
      if (request.op == kZqProbeOpOpenShell && shell.effect == nullptr) {
        r = ProbeModule(request.path, 0, nullptr, true, &shell);
      } else if (request.op == kZqProbeOpProbe) {
        r = ProbeModule(request.path, request.id, &a, false, nullptr);
      } else {
        r.result = kZqProbeUsage;  // one shell at a time
      }
      a.result = r.result;
      a.detail = r.detail;
    } else if (request.op == kZqProbeOpNextShell && shell.effect != nullptr) {
      char name[256] = {};
      intptr_t id = 0;
      AEffect* e = shell.effect;
      if (ZqGuardedAll([&] { id = e->dispatcher(e, effShellGetNextPlugin, 0, 0, name, 0.0f); }) != 0) id = 0;
      a.id = static_cast<int32_t>(id);
      std::memcpy(a.name, name, 63);
    } else if (request.op == kZqProbeOpCloseShell && shell.effect != nullptr) {
      AEffect* e = shell.effect;
      ZqGuardedAll([&] { e->dispatcher(e, effClose, 0, 0, nullptr, 0.0f); });
      FreeLibrary(shell.module);
      shell = ZqToolModule();
    } else {
      a.result = kZqProbeUsage;
    }
    if (ZqSocketSend(fd, &a, sizeof a, nullptr, 0) < 0) return 1;
  }
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
  // A server watches its host through the report socket, on which nothing
  // is ever sent: a module hung in the server ends with the host.
  if (o.serveFd >= 0) std::_Exit(Serve(o.serveFd));
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
