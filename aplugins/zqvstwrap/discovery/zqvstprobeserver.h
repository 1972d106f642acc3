// The scan's probe server: one child process (`zqprobe --serve 3`) that
// looks at module after module, so that a scan of many modules pays for
// one process start and not one per module, while a module that hangs or
// ends its process still cannot take the host with it.
//
// A request names a module and a plug-in id; the answer carries what the
// module is (the probe's result, its names and properties).  A shell's
// sub-plug-ins are listed through an open shell held by the server.  A
// request not answered within its time limit kills the server
// (ZQ_E_CANCELLED); a server that dies under a request answers
// ZQ_E_EXCEPTION.  Either way the server is gone afterwards (Ended() is
// true) and the caller starts a new one.
//
// Threads: one object is used by one thread at a time.
#pragma once

#include <cstdint>

#include "aplugins/zqvstwrap/izqvsteffect.h"
#include "base/types.h"

// --- The wire records (both ends are built together) --------------------------

constexpr uint32_t kZqProbeServerMagic = 0x5A715073;  // 'ZqPs'
constexpr uint16_t kZqProbeServerVersion = 1;

enum ZqProbeServerOp : uint16_t {
  kZqProbeOpProbe = 1,      // load, enter, open, read, close; answer the result
  kZqProbeOpOpenShell = 2,  // keep the module's container open for listing
  kZqProbeOpNextShell = 3,  // the next sub-plug-in of the open shell (id 0 at the end)
  kZqProbeOpCloseShell = 4,
};

struct ZqProbeServerRequest {
  uint32_t magic;
  uint16_t version;
  uint16_t op;  // ZqProbeServerOp
  int32_t id;   // plug-in id for a shell's sub-plug-in, otherwise 0
  char path[4096];  // UTF-8, terminated; only the used part is sent
};
static_assert(offsetof(ZqProbeServerRequest, path) == 12, "the request is a wire record");

struct ZqProbeServerAnswer {
  uint32_t magic;
  uint16_t version;
  uint16_t result;  // ZqProbeResult of zqvstprobe.h
  uint32_t detail;  // as the result says
  int32_t id;       // kZqProbeOpNextShell: the sub-plug-in's id
  int32_t info[9];  // VstEffectInfo's words, in its order
  char name[64];    // the plug-in's own texts as it gave them (UTF-8), terminated
  char vendor[64];
  char product[64];
};
static_assert(offsetof(ZqProbeServerAnswer, info) == 16, "the answer is a wire record");
static_assert(sizeof(ZqProbeServerAnswer) == 16 + 36 + 192, "the answer is a wire record");

// --- The host's side -----------------------------------------------------------

class ZqVstProbeServer {
 public:
  ZqVstProbeServer() = default;
  // Kills a server still running.
  ~ZqVstProbeServer();
  ZqVstProbeServer(const ZqVstProbeServer&) = delete;
  ZqVstProbeServer& operator=(const ZqVstProbeServer&) = delete;

  // Starts the server found by ZqVstFindProbe.  HRESULT_FROM_WIN32 of the
  // spawn's failure (2: no probe program).
  HRESULT Start();
  // Whether the server has ended (or was never started).
  bool Ended() const;
  DWORD ProcessId() const { return m_processId; }

  // Probes `path` for `id` (the names get 64 characters each; any output
  // may be null).  The statuses of ZqVstProbeModuleIsolated, with names.
  HRESULT Probe(const WCHAR* path, LONG id, WCHAR* name, WCHAR* vendor, WCHAR* product, VstEffectInfo* info,
                DWORD timeLimitMs);
  // Opens `path`'s container for listing; ZQ_S_IS_SHELL when it is a shell.
  HRESULT OpenShell(const WCHAR* path, DWORD timeLimitMs);
  // The next sub-plug-in: S_OK with its id and name (64 characters),
  // S_FALSE at the end.
  HRESULT NextShell(LONG* id, WCHAR* name, DWORD timeLimitMs);
  void CloseShell();

  // Requests this process has sent, over all servers: each is one module
  // load in a server.
  static LONG RequestCount();

 private:
  HRESULT Call(uint16_t op, const WCHAR* path, LONG id, DWORD timeLimitMs, ZqProbeServerAnswer* answer);
  void Stop();

  HANDLE m_process = nullptr;
  DWORD m_processId = 0;
  int m_socket = -1;
  int m_watch = -1;  // the server ends when this hangs up
  bool m_dead = true;
};
