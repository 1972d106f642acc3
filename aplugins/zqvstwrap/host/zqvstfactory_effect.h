// The effect factory, the choice of process for an effect, and the
// process-wide counts that keep the companion server alive.
//
// A module is run in this process when it is a loadable object of the
// host's own kind and machine, and otherwise in the companion server
// `zqvstserver`, found next to the library.  The host starts a server with
// one end of a socket pair as its only way in (no name of it exists
// anywhere), and keeps its own table of connected servers by class id, so
// only the host that started a server can reach it.  A server runs no code
// the host did not name: the modules it is asked to load.
//
// A server's class id is kZqVstServerClassIdBase with its first word XORed
// with the server's process id.  In the host, the use count counts the
// factories handed out from the server; when it drops to 0 the stored ids
// are cleared, so the next request starts a new server.  In the server, the
// lock count (LockServer, and every factory reference the host holds), the
// live effects and the pinned flag keep the process alive; when all are 0
// the keep-alive test posts WM_QUIT to the main thread, once.
//
// Threads: any.  Counts are atomic; the host's table has a lock of its own.
#pragma once

#include <string>

#include "aplugins/zqvstwrap/host/izqvsteffectfactory.h"
#include "kernel/com/object.h"

inline constexpr GUID kZqVstServerClassIdBase = ZqGuid("{3E804EF0-C7F4-4A23-B4BE-14BD8A8F5011}");

// The class id of the server with process id `processId`.
GUID ZqVstServerClassId(DWORD processId);

// The factory of this process.  All state beyond its count is process-wide.
class CZqVstEffectFactory final : public ZqComObject<CZqVstEffectFactory, IZqVstEffectFactory>,
                                  public ZqZeroFilled {
 public:
  CZqVstEffectFactory() = default;

  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** object) override;
  HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override;
  // With a time limit (not 0, not INFINITE) the probe runs in a server
  // started for it alone, ended at the limit (ZQ_E_CANCELLED); a server that
  // dies during the probe answers ZQ_E_EXCEPTION.
  HRESULT STDMETHODCALLTYPE ProbeEffect(const WCHAR* path, LONG id, WCHAR* name, WCHAR* vendor, WCHAR* product,
                                        VstEffectInfo* info, DWORD timeLimitMs) override;
  HRESULT STDMETHODCALLTYPE CreateEffect(const WCHAR* path, LONG id, REFIID riid, void** object) override;

 private:
  friend class ZqComObject<CZqVstEffectFactory, IZqVstEffectFactory>;
  ~CZqVstEffectFactory() = default;
};

// --- The host's side ----------------------------------------------------------------

// A factory answering `riid`: of this process (`inProcess`; `vendor` and
// `product`, when not null, become the identity the host callback tells
// plug-ins), or of the server, started when none of this process runs (with
// the identity given on its command line).  `serverProcessId` and
// `useCount` (optional) receive the server's id and the use count after
// this request.  A server that does not come up within 5 s (a missing
// program, one that ended or answered in a form not understood) leaves the
// failure of the look-up, REGDB_E_CLASSNOTREG.
ZQ_EXPORT HRESULT ZqVstGetEffectFactory(BOOL inProcess, REFIID riid, void** object, const WCHAR* vendor,
                                        const WCHAR* product, DWORD* serverProcessId, LONG* useCount);
// Gives back a factory of ZqVstGetEffectFactory (null: nothing).  0.
ZQ_EXPORT HRESULT ZqVstReleaseEffectFactory(BOOL inProcess, IUnknown* factory);
// Makes an effect in the process its module needs (see above) and answers
// its interface `riid`: the result of the load, or the failure to reach a
// server.  The effect keeps its server alive.
ZQ_EXPORT HRESULT ZqVstCreateEffectInChosenProcess(const WCHAR* path, LONG id, REFIID riid, void** object);
// With TRUE every module goes to the server, also one this process could
// load (for plug-ins that are not trusted).  FALSE at start.
ZQ_API void ZqVstSetIsolation(BOOL always);
ZQ_API BOOL ZqVstGetIsolation();
// The server program: $ZQ_SERVER_PATH when set, otherwise "zqvstserver" in
// the folder of the library (or in ../bin from there, the build tree's
// layout) when it is there, otherwise in the folder of the running program.
std::u16string ZqVstFindServer();
// Ends the server with process id `processId` that this host started (for
// tests and for a host that gives up on a server).  S_FALSE when there is
// none.
HRESULT ZqVstTerminateServer(DWORD processId);

// Waits at most `timeoutMs` for the end of that server.  S_OK when it has
// ended, S_FALSE when it still runs, E_INVALIDARG for a server this host
// does not know.
HRESULT ZqVstWaitForServerEnd(DWORD processId, DWORD timeoutMs);

// --- The server's side ---------------------------------------------------------------

// Registers this process's factory as the server's class object.  Keeps
// `mainThreadId` (unless one is kept) as the thread that gets WM_QUIT.
// S_FALSE when already registered.
HRESULT ZqVstServerRegister(DWORD mainThreadId, const WCHAR* vendor, const WCHAR* product);
// S_FALSE when nothing is registered.
HRESULT ZqVstServerRevoke();
// 1 while a lock, an effect or the pinned flag holds the server.
BOOL ZqVstServerIsBusy();
void ZqVstServerSetPinned(BOOL pinned);
// The keep-alive test.
void ZqVstServerCheckQuit();
// Makes the descriptions of the remote interfaces known to this process;
// they are part of the library, so `path` is not loaded.  S_OK and a
// cookie of 1.
HRESULT ZqVstRegisterProxyStub(const WCHAR* path, DWORD* cookie);
// The server program's whole work: the switches -Event (the inherited
// socket's descriptor number), -Vendor and -Product; registration; the
// start message; serving the host until the last effect and lock go or the
// host hangs up.  Answers the exit status: 0, 1 for a broken message, 2 for
// switches not understood.
int ZqVstServerMain(int argc, char** argv);
