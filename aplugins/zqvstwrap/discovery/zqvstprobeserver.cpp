#include "aplugins/zqvstwrap/discovery/zqvstprobeserver.h"

#include <atomic>
#include <cstring>
#include <string>

#include "aplugins/zqvstwrap/host/zqvstprobe.h"
#include "platform/process.h"
#include "platform/sync.h"
#include "platform/text.h"

namespace {

std::atomic<LONG> g_requests{0};

void CopyText(WCHAR* out, const char* text) {
  if (!out) return;
  std::memset(out, 0, 64 * sizeof(WCHAR));
  char cut[64];
  std::memcpy(cut, text, sizeof cut);
  cut[63] = 0;
  lstrcpynW(out, ZqUtf8ToUtf16(cut).c_str(), 64);
}

}  // namespace

ZqVstProbeServer::~ZqVstProbeServer() { Stop(); }

LONG ZqVstProbeServer::RequestCount() { return g_requests.load(); }

HRESULT ZqVstProbeServer::Start() {
  Stop();
  const std::u16string probe = ZqVstFindProbe();
  if (probe.empty()) return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
  // One pair carries the requests; on the other nothing is sent, and the
  // server ends when it hangs up, so that a server stuck in a module does
  // not outlive this process.
  int pair[2];
  int watch[2];
  if (!ZqCreateSocketPair(pair)) return HRESULT_FROM_WIN32(GetLastError());
  if (!ZqCreateSocketPair(watch)) {
    const DWORD error = GetLastError();
    ZqCloseDescriptor(pair[0]);
    ZqCloseDescriptor(pair[1]);
    return HRESULT_FROM_WIN32(error);
  }
  const std::string probe8 = ZqUtf16ToUtf8(probe);
  const std::string fd8 = std::to_string(kZqProbeReportFd);
  const std::string watch8 = std::to_string(kZqProbeReportFd + 1);
  const char* const argv[] = {"zqprobe", "--serve", fd8.c_str(), "--report-fd", watch8.c_str(), nullptr};
  const ZqSpawnDescriptor handed[] = {{pair[1], kZqProbeReportFd}, {watch[1], kZqProbeReportFd + 1}};
  const BOOL started = ZqSpawnProcess(probe8.c_str(), argv, handed, 2, &m_process, &m_processId);
  const DWORD error = GetLastError();
  ZqCloseDescriptor(pair[1]);
  ZqCloseDescriptor(watch[1]);
  if (!started) {
    ZqCloseDescriptor(pair[0]);
    ZqCloseDescriptor(watch[0]);
    m_process = nullptr;
    return HRESULT_FROM_WIN32(error != 0 ? error : ERROR_FILE_NOT_FOUND);
  }
  m_watch = watch[0];
  m_socket = pair[0];
  m_dead = false;
  return S_OK;
}

bool ZqVstProbeServer::Ended() const {
  return m_dead || m_process == nullptr || WaitForSingleObject(m_process, 0) == WAIT_OBJECT_0;
}

void ZqVstProbeServer::Stop() {
  if (m_socket >= 0) ZqCloseDescriptor(m_socket);
  if (m_watch >= 0) ZqCloseDescriptor(m_watch);
  m_socket = -1;
  m_watch = -1;
  if (m_process) {
    // Closing the socket ends an idle server by itself; one busy in a
    // module would not notice, so it is killed either way.
    TerminateProcess(m_process, 1);
    WaitForSingleObject(m_process, INFINITE);
    CloseHandle(m_process);
  }
  m_process = nullptr;
  m_dead = true;
}

HRESULT ZqVstProbeServer::Call(uint16_t op, const WCHAR* path, LONG id, DWORD timeLimitMs,
                               ZqProbeServerAnswer* answer) {
  if (Ended()) return ZQ_E_EXCEPTION;
  ZqProbeServerRequest request{};
  request.magic = kZqProbeServerMagic;
  request.version = kZqProbeServerVersion;
  request.op = op;
  request.id = id;
  const std::string path8 = path ? ZqUtf16ToUtf8(path) : std::string();
  if (path8.size() >= sizeof request.path) return E_INVALIDARG;
  std::memcpy(request.path, path8.c_str(), path8.size() + 1);
  if (op == kZqProbeOpProbe || op == kZqProbeOpOpenShell) ++g_requests;
  if (ZqSocketSend(m_socket, &request, offsetof(ZqProbeServerRequest, path) + path8.size() + 1, nullptr, 0) < 0) {
    Stop();
    return ZQ_E_EXCEPTION;
  }
  const DWORD wait = (timeLimitMs == 0 || static_cast<LONG>(timeLimitMs) < 0) ? INFINITE : timeLimitMs;
  const long long n = ZqSocketReceive(m_socket, answer, sizeof *answer, nullptr, nullptr, wait);
  if (n == static_cast<long long>(sizeof *answer) && answer->magic == kZqProbeServerMagic &&
      answer->version == kZqProbeServerVersion)
    return S_OK;
  const bool timedOut = n < 0 && GetLastError() == ERROR_TIMEOUT;
  Stop();
  if (timedOut) return ZQ_E_CANCELLED;
  // A hang-up: the module ended the server.  A malformed answer is treated
  // alike, as nothing it says can be believed.
  return ZQ_E_EXCEPTION;
}

HRESULT ZqVstProbeServer::Probe(const WCHAR* path, LONG id, WCHAR* name, WCHAR* vendor, WCHAR* product,
                                VstEffectInfo* info, DWORD timeLimitMs) {
  ZqProbeServerAnswer a{};
  const HRESULT hr = Call(kZqProbeOpProbe, path, id, timeLimitMs, &a);
  CopyText(name, a.name);
  CopyText(vendor, a.vendor);
  CopyText(product, a.product);
  if (info) std::memcpy(info, a.info, sizeof *info);
  if (FAILED(hr)) return hr;
  ZqProbeReport report{kZqProbeReportMagic, kZqProbeReportVersion, a.result, a.detail, 0, 0};
  const ZqChildOutcome outcome{ZqChildEnd::Exited, a.result, 0, m_processId, sizeof report};
  return ZqVstProbeStatus(outcome, &report);
}

HRESULT ZqVstProbeServer::OpenShell(const WCHAR* path, DWORD timeLimitMs) {
  ZqProbeServerAnswer a{};
  const HRESULT hr = Call(kZqProbeOpOpenShell, path, 0, timeLimitMs, &a);
  if (FAILED(hr)) return hr;
  if (a.result == kZqProbeShell) return ZQ_S_IS_SHELL;
  ZqProbeReport report{kZqProbeReportMagic, kZqProbeReportVersion, a.result, a.detail, 0, 0};
  const ZqChildOutcome outcome{ZqChildEnd::Exited, a.result, 0, m_processId, sizeof report};
  const HRESULT status = ZqVstProbeStatus(outcome, &report);
  return FAILED(status) ? status : E_UNEXPECTED;  // opened, but no shell
}

HRESULT ZqVstProbeServer::NextShell(LONG* id, WCHAR* name, DWORD timeLimitMs) {
  ZqProbeServerAnswer a{};
  const HRESULT hr = Call(kZqProbeOpNextShell, nullptr, 0, timeLimitMs, &a);
  *id = SUCCEEDED(hr) ? a.id : 0;
  CopyText(name, a.name);
  if (FAILED(hr)) return hr;
  return *id != 0 ? S_OK : S_FALSE;
}

void ZqVstProbeServer::CloseShell() {
  ZqProbeServerAnswer a{};
  if (!Ended()) Call(kZqProbeOpCloseShell, nullptr, 0, INFINITE, &a);
}
