#include "aplugins/zqvstwrap/host/zqvstfactory_effect.h"

#include <atomic>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "aplugins/zqvstwrap/host/zqvsteffect.h"
#include "aplugins/zqvstwrap/host/zqvstfilenames.h"
#include "aplugins/zqvstwrap/host/zqvstremote.h"
#include "platform/environment.h"
#include "platform/exeinfo.h"
#include "platform/file.h"
#include "platform/message.h"
#include "platform/module.h"
#include "platform/process.h"
#include "platform/text.h"
#include "platform/thread.h"

namespace {

// Server side.
std::atomic<LONG> g_lockCount{0};
std::atomic<LONG> g_pinned{0};
std::atomic<DWORD> g_mainThreadId{0};
std::atomic<DWORD> g_classCookie{0};
IUnknown* g_classObject = nullptr;

// Host side.
std::atomic<bool> g_isolated{false};
std::atomic<LONG> g_useCount{0};
std::mutex g_hostLock;  // the stored ids and the table
GUID g_serverClassId{};
DWORD g_serverProcessId = 0;
std::vector<std::pair<GUID, std::shared_ptr<ZqRemoteConnection>>> g_servers;

constexpr DWORD kStartLimitMs = 5000;

bool IsZero(const GUID& g) {
  static constexpr GUID kZero{};
  return IsEqualGUID(g, kZero);
}

std::u16string EnvironmentValue(const char16_t* name) {
  WCHAR value[4096];
  const DWORD length = GetEnvironmentVariableW(name, value, 4096);
  return length > 0 && length < 4096 ? std::u16string(value, length) : std::u16string();
}

bool IsFile(const std::u16string& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

// A server of ours for `classId`, dropping those that have ended.  Under g_hostLock.
std::shared_ptr<ZqRemoteConnection> FindServer(const GUID& classId) {
  std::erase_if(g_servers, [](const auto& entry) { return ZqRemoteIsEnded(entry.second); });
  for (const auto& [id, connection] : g_servers)
    if (IsEqualGUID(id, classId)) return connection;
  return nullptr;
}

// The class object of a server this process started, found in its own table
// of connected servers.
HRESULT GetServerClassObject(const GUID& classId, IClassFactory** factory) {
  *factory = nullptr;
  if (IsZero(classId)) return REGDB_E_CLASSNOTREG;
  std::shared_ptr<ZqRemoteConnection> connection = FindServer(classId);
  if (!connection) return REGDB_E_CLASSNOTREG;
  return ZqRemoteGetClassObject(connection, IID_IClassFactory, reinterpret_cast<void**>(factory));
}

// Starts a server and waits for its start message.  The connection on
// success; null and `*status` otherwise.  A server that does not answer in
// time is not killed: the closed socket tells it to end by itself.
std::shared_ptr<ZqRemoteConnection> StartServer(const WCHAR* vendor, const WCHAR* product, HRESULT* status) {
  *status = CO_E_SERVER_EXEC_FAILURE;
  const std::string path = ZqUtf16ToUtf8(ZqVstFindServer());
  int pair[2];
  if (path.empty() || !ZqCreateSocketPair(pair)) return nullptr;
  constexpr int kChildSocket = 3;
  const std::string vendorText = vendor ? ZqUtf16ToUtf8(vendor) : std::string();
  const std::string productText = product ? ZqUtf16ToUtf8(product) : std::string();
  std::vector<const char*> argv = {"zqvstserver", "-Event", "3"};
  if (vendor) argv.insert(argv.end(), {"-Vendor", vendorText.c_str()});
  if (product) argv.insert(argv.end(), {"-Product", productText.c_str()});
  argv.push_back(nullptr);
  const ZqSpawnDescriptor handed{pair[1], kChildSocket};
  HANDLE process = nullptr;
  const BOOL started = ZqSpawnProcess(path.c_str(), argv.data(), &handed, 1, &process, nullptr);
  ZqCloseDescriptor(pair[1]);
  if (!started) {
    *status = HRESULT_FROM_WIN32(GetLastError());
    ZqCloseDescriptor(pair[0]);
    return nullptr;
  }
  ZqRemoteHeader start{};
  int side = -1;
  size_t sides = 1;
  const long long n = ZqSocketReceive(pair[0], &start, sizeof start, &side, &sides, kStartLimitMs);
  if (n != static_cast<long long>(sizeof start) || start.magic != kZqRemoteMagic || start.version != kZqRemoteVersion ||
      start.kind != kZqRemoteStart || FAILED(start.status)) {
    if (n == static_cast<long long>(sizeof start) && start.magic == kZqRemoteMagic && FAILED(start.status)) *status = start.status;
    ZqCloseDescriptor(pair[0]);
    ZqCloseDescriptor(side);
    CloseHandle(process);
    return nullptr;
  }
  *status = S_OK;
  return ZqRemoteConnect(pair[0], process, side);
}

// Probes in a server of its own, ended at the limit.
HRESULT ProbeInServer(const WCHAR* path, LONG id, WCHAR* name, WCHAR* vendor, WCHAR* product, VstEffectInfo* info,
                      DWORD timeLimitMs) {
  HRESULT hr;
  std::shared_ptr<ZqRemoteConnection> connection = StartServer(nullptr, nullptr, &hr);
  if (!connection) return hr;
  ZqComPtr<IZqVstEffectFactory> factory;
  hr = ZqRemoteGetClassObject(connection, IID_IZqVstEffectFactory, factory.PutVoid());
  if (SUCCEEDED(hr)) hr = factory->ProbeEffect(path, id, name, vendor, product, info, timeLimitMs);
  // A server that died under the probe: the module ended it.
  if (hr == ZQ_E_RPC_CALL_FAILED) hr = ZQ_E_EXCEPTION;
  factory.Reset();
  return hr;
}

void ClearText(WCHAR* buffer) {
  if (buffer) std::memset(buffer, 0, 64 * sizeof(WCHAR));
}

}  // namespace

GUID ZqVstServerClassId(DWORD processId) {
  GUID id = kZqVstServerClassIdBase;
  id.Data1 ^= processId;
  return id;
}

// --- CZqVstEffectFactory --------------------------------------------------------------

HRESULT CZqVstEffectFactory::CreateInstance(IUnknown* outer, REFIID riid, void** object) {
  if (outer != nullptr) return CLASS_E_NOAGGREGATION;
  return QueryInterface(riid, object);
}

HRESULT CZqVstEffectFactory::LockServer(BOOL lock) {
  if (lock)
    ++g_lockCount;
  else
    --g_lockCount;
  ZqVstServerCheckQuit();
  return S_OK;
}

HRESULT CZqVstEffectFactory::ProbeEffect(const WCHAR* path, LONG id, WCHAR* name, WCHAR* vendor, WCHAR* product,
                                         VstEffectInfo* info, DWORD timeLimitMs) {
  if (path == nullptr) return E_POINTER;
  // The ASPI layer some systems kept in plug-in folders hangs when loaded.
  const std::u16string_view full(path);
  const size_t slash = full.find_last_of(u"/\\");
  const std::u16string file(slash == std::u16string_view::npos ? full : full.substr(slash + 1));
  if (lstrcmpiW(file.c_str(), u"wnaspi32.dll") == 0) return E_INVALIDARG;
  ClearText(name);
  ClearText(vendor);
  ClearText(product);
  if (timeLimitMs != 0 && timeLimitMs != INFINITE)
    return ProbeInServer(path, id, name, vendor, product, info, timeLimitMs);
  ZqComPtr<IZqVstEffect> effect;
  HRESULT hr = ZqVstCreateEffectInProcess(path, id, IID_IZqVstEffect, effect.PutVoid());
  if (hr == S_FALSE && !effect) return E_OUTOFMEMORY;
  if (effect && !FAILED(hr)) {
    // The answers of the string calls are not looked at: a shell's
    // container has none and comes back with empty texts.
    if (name) (void)effect->GetEffectName(name, 64);
    if (vendor) (void)effect->GetVendorString(vendor, 64);
    if (product) (void)effect->GetProductString(product, 64);
    if (info) (void)effect->GetEffectInfo(info);
  }
  return hr;
}

HRESULT CZqVstEffectFactory::CreateEffect(const WCHAR* path, LONG id, REFIID riid, void** object) {
  return ZqVstCreateEffectInProcess(path, id, riid, object);
}

// --- The host's side ----------------------------------------------------------------

HRESULT ZqVstGetEffectFactory(BOOL inProcess, REFIID riid, void** object, const WCHAR* vendor, const WCHAR* product,
                              DWORD* serverProcessId, LONG* useCount) {
  if (serverProcessId) *serverProcessId = 0;
  if (useCount) *useCount = 0;
  if (object == nullptr) return E_POINTER;
  *object = nullptr;
  if (inProcess) {
    if (vendor || product) ZqVstSetHostIdentity(vendor, product);
    CZqVstEffectFactory* factory = new (std::nothrow) CZqVstEffectFactory();
    if (factory == nullptr) return E_OUTOFMEMORY;
    const HRESULT hr = factory->QueryInterface(riid, object);
    factory->Release();
    return hr;
  }
  std::lock_guard<std::mutex> guard(g_hostLock);
  ZqComPtr<IClassFactory> classObject;
  HRESULT hr = GetServerClassObject(g_serverClassId, classObject.Put());
  if (FAILED(hr)) {
    HRESULT started;
    std::shared_ptr<ZqRemoteConnection> connection = StartServer(vendor, product, &started);
    // A server that did not come up leaves the look-up's failure.
    if (!connection) return hr;
    g_serverProcessId = ZqRemoteProcessId(connection);
    g_serverClassId = ZqVstServerClassId(g_serverProcessId);
    g_servers.emplace_back(g_serverClassId, std::move(connection));
    hr = GetServerClassObject(g_serverClassId, classObject.Put());
    if (FAILED(hr)) return hr;
  }
  hr = classObject->CreateInstance(nullptr, riid, object);
  if (SUCCEEDED(hr)) {
    const LONG uses = ++g_useCount;
    if (serverProcessId) *serverProcessId = g_serverProcessId;
    if (useCount) *useCount = uses;
  }
  return hr;
}

HRESULT ZqVstReleaseEffectFactory(BOOL inProcess, IUnknown* factory) {
  if (factory == nullptr) return 0;
  if (!inProcess && --g_useCount == 0) {
    std::lock_guard<std::mutex> guard(g_hostLock);
    g_serverClassId = GUID{};
    g_serverProcessId = 0;
  }
  factory->Release();
  return 0;
}

HRESULT ZqVstCreateEffectInChosenProcess(const WCHAR* path, LONG id, REFIID riid, void** object) {
  if (object == nullptr) return E_POINTER;
  *object = nullptr;
  const BOOL inProcess = !g_isolated.load() && path != nullptr && ZqIsFileLoadableInProcess(path);
  IZqVstEffectFactory* factory = nullptr;
  HRESULT hr = ZqVstGetEffectFactory(inProcess, IID_IZqVstEffectFactory, reinterpret_cast<void**>(&factory), nullptr,
                                     nullptr, nullptr, nullptr);
  if (FAILED(hr)) return hr;
  hr = factory->CreateEffect(path, id, riid, object);
  ZqVstReleaseEffectFactory(inProcess, factory);
  return hr;
}

void ZqVstSetIsolation(BOOL always) { g_isolated.store(always != FALSE); }

BOOL ZqVstGetIsolation() { return g_isolated.load() ? TRUE : FALSE; }

std::u16string ZqVstFindServer() {
  std::u16string path = EnvironmentValue(u"ZQ_SERVER_PATH");
  if (!path.empty()) return path;
  HMODULE self = ZqGetModuleOfAddress(reinterpret_cast<const void*>(&ZqVstFindServer));
  WCHAR module[4096];
  const DWORD length = self ? GetModuleFileNameW(self, module, 4096) : 0;
  if (length > 0 && length < 4096) {
    // Installed, the server is next to the library; in the build tree the
    // library sits in lib/ and the programs in bin/.
    const std::u16string folder = ZqVstFolderOf(std::u16string(module, length));
    for (const char16_t* candidate : {u"zqvstserver", u"../bin/zqvstserver"})
      if (IsFile(folder + candidate)) return folder + candidate;
  }
  const std::u16string programFolder = ZqVstFolderOf(ZqGetExecutablePath());
  return programFolder.empty() ? std::u16string() : programFolder + u"zqvstserver";
}

HRESULT ZqVstTerminateServer(DWORD processId) {
  std::lock_guard<std::mutex> guard(g_hostLock);
  for (const auto& [id, connection] : g_servers) {
    if (ZqRemoteProcessId(connection) == processId) {
      ZqRemoteTerminate(connection);
      return S_OK;
    }
  }
  return S_FALSE;
}

HRESULT ZqVstWaitForServerEnd(DWORD processId, DWORD timeoutMs) {
  std::shared_ptr<ZqRemoteConnection> server;
  {
    std::lock_guard<std::mutex> guard(g_hostLock);
    for (const auto& [id, connection] : g_servers)
      if (ZqRemoteProcessId(connection) == processId) server = connection;
  }
  if (!server) return E_INVALIDARG;
  return ZqRemoteWaitForEnd(server, timeoutMs) ? S_OK : S_FALSE;
}

// --- The server's side ---------------------------------------------------------------

HRESULT ZqVstServerRegister(DWORD mainThreadId, const WCHAR* vendor, const WCHAR* product) {
  DWORD none = 0;
  g_mainThreadId.compare_exchange_strong(none, mainThreadId);
  if (g_classCookie.load() != 0) return S_FALSE;
  IUnknown* factory = nullptr;
  const HRESULT hr =
      ZqVstGetEffectFactory(TRUE, IID_IUnknown, reinterpret_cast<void**>(&factory), vendor, product, nullptr, nullptr);
  if (FAILED(hr)) return hr;
  // The registration keeps the reference the look-up gave.
  g_classObject = factory;
  g_classCookie.store(1);
  return S_OK;
}

HRESULT ZqVstServerRevoke() {
  if (g_classCookie.exchange(0) == 0) return S_FALSE;
  if (IUnknown* object = std::exchange(g_classObject, nullptr)) object->Release();
  return S_OK;
}

BOOL ZqVstServerIsBusy() {
  return (g_pinned.load() != 0 || g_lockCount.load() != 0 || ZqVstGetEffectCount() != 0) ? TRUE : FALSE;
}

void ZqVstServerSetPinned(BOOL pinned) {
  g_pinned.store(pinned ? 1 : 0);
  ZqVstServerCheckQuit();
}

void ZqVstServerCheckQuit() {
  if (ZqVstServerIsBusy()) return;
  const DWORD thread = g_mainThreadId.exchange(0);
  if (thread != 0) PostThreadMessageW(thread, WM_QUIT, 0, 0);
}

HRESULT ZqVstRegisterProxyStub(const WCHAR*, DWORD* cookie) {
  if (cookie) *cookie = 1;
  return S_OK;
}

namespace {

bool ServerShouldQuit() {
  ZqVstServerCheckQuit();
  MSG message;
  return PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE) != FALSE;
}

}  // namespace

int ZqVstServerMain(int argc, char** argv) {
  int socket = -1;
  std::u16string vendor, product;
  bool hasVendor = false, hasProduct = false;
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string name = argv[i];
    if (name == "-Event") {
      char* end = nullptr;
      const long fd = std::strtol(argv[i + 1], &end, 10);
      if (end == argv[i + 1] || *end != 0 || fd < 3) return 2;
      socket = int(fd);
    } else if (name == "-Vendor") {
      vendor = ZqUtf8ToUtf16(argv[i + 1]);
      hasVendor = true;
    } else if (name == "-Product") {
      product = ZqUtf8ToUtf16(argv[i + 1]);
      hasProduct = true;
    } else {
      return 2;
    }
  }
  if (socket < 0) return 2;
  DWORD cookie = 0;
  (void)ZqVstRegisterProxyStub(nullptr, &cookie);
  MSG message;
  PeekMessageW(&message, nullptr, 0, 0, 0);  // this thread's queue, for WM_QUIT
  const HRESULT hr = ZqVstServerRegister(GetCurrentThreadId(), hasVendor ? vendor.c_str() : nullptr,
                                         hasProduct ? product.c_str() : nullptr);
  std::shared_ptr<ZqRemoteConnection> connection = ZqRemoteConnect(socket, nullptr);
  const int status = ZqRemoteServe(connection, g_classObject, hr, ServerShouldQuit);
  (void)ZqVstServerRevoke();
  // The connection is left as it is: after a hang-up, a plug-in may still
  // hold a thread that nothing can end but the end of the process.
  new std::shared_ptr<ZqRemoteConnection>(std::move(connection));
  return status;
}
