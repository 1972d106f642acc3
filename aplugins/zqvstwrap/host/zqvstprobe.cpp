#include "aplugins/zqvstwrap/host/zqvstprobe.h"

#include <cstring>
#include <string>
#include <vector>

#include "aplugins/zqvstwrap/host/zqvstfilenames.h"
#include "platform/environment.h"
#include "platform/file.h"
#include "platform/isolate.h"
#include "platform/module.h"
#include "platform/process.h"
#include "platform/text.h"

namespace {

bool IsFile(const std::u16string& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

std::u16string EnvironmentValue(const char16_t* name) {
  const DWORD needed = GetEnvironmentVariableW(name, nullptr, 0);
  if (needed == 0) return std::u16string();
  std::u16string value(needed, u'\0');
  const DWORD length = GetEnvironmentVariableW(name, value.data(), needed);
  if (length == 0 || length >= needed) return std::u16string();  // changed meanwhile
  value.resize(length);
  return value;
}

std::u16string LibraryFolder() {
  HMODULE self = ZqGetModuleOfAddress(reinterpret_cast<const void*>(&ZqVstFindProbe));
  if (self == nullptr) return std::u16string();
  WCHAR path[4096];
  const DWORD length = GetModuleFileNameW(self, path, 4096);
  if (length == 0 || length >= 4096) return std::u16string();
  return ZqVstFolderOf(std::u16string(path, length));
}

}  // namespace

std::u16string ZqVstFindProbe() {
  std::u16string path = EnvironmentValue(u"ZQ_PROBE_PATH");
  if (!path.empty()) return path;
  const std::u16string programFolder = ZqVstFolderOf(ZqGetExecutablePath());
  if (!programFolder.empty() && IsFile(programFolder + u"zqprobe")) return programFolder + u"zqprobe";
  const std::u16string libraryFolder = LibraryFolder();
  if (!libraryFolder.empty()) return libraryFolder + u"zqprobe";
  return programFolder.empty() ? std::u16string() : programFolder + u"zqprobe";
}

HRESULT ZqVstProbeStatus(const ZqChildOutcome& outcome, const ZqProbeReport* report) {
  switch (outcome.end) {
    case ZqChildEnd::KilledAtLimit:
      return ZQ_E_CANCELLED;
    case ZqChildEnd::DiedOfSignal:
      return ZQ_E_EXCEPTION;
    case ZqChildEnd::Exited:
      break;
  }
  // Without a report the module ended the process (exit in effOpen, say),
  // whatever status it chose.
  if (report == nullptr) return ZQ_E_EXCEPTION;
  if (report->magic != kZqProbeReportMagic || report->version != kZqProbeReportVersion) return E_UNEXPECTED;
  // The report is the probe's last act before it ends with the same status;
  // any other status means the module ended the process after the report.
  if (outcome.exitCode != report->result) return ZQ_E_EXCEPTION;
  switch (report->result) {
    case kZqProbeOpened:
    case kZqProbeOpenedWithFault:
      return S_OK;
    case kZqProbeShell:
      return ZQ_S_IS_SHELL;
    case kZqProbeShellMismatch:
      return E_UNEXPECTED;
    case kZqProbeLoadFailed:
      return report->detail != 0 ? HRESULT_FROM_WIN32(report->detail) : E_FAIL;
    case kZqProbeNoEntry:
      return HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND);
    case kZqProbeNullEffect:
    case kZqProbeWrongMagic:
      return E_INVALIDARG;
    case kZqProbeFault:
      return ZQ_E_EXCEPTION;
    default:
      // kZqProbeUsage, kZqProbeOrphaned (we are still here) or unknown.
      return E_UNEXPECTED;
  }
}

HRESULT ZqVstProbeModuleIsolated(const WCHAR* modulePath, DWORD timeLimitMs) {
  return ZqVstProbeModuleIsolatedEx(nullptr, modulePath, 0, timeLimitMs, nullptr);
}

HRESULT ZqVstProbeModuleIsolatedEx(const WCHAR* probePath, const WCHAR* modulePath, LONG id,
                                   DWORD timeLimitMs, ZqProbeReport* report) {
  if (report != nullptr) std::memset(report, 0, sizeof *report);
  if (modulePath == nullptr || modulePath[0] == 0) return E_INVALIDARG;
  const std::u16string probe = probePath != nullptr ? std::u16string(probePath) : ZqVstFindProbe();
  if (probe.empty()) return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);

  const std::string probe8 = ZqUtf16ToUtf8(probe);
  const std::string module8 = ZqUtf16ToUtf8(modulePath);
  const std::string id8 = std::to_string(id);
  const std::string fd8 = std::to_string(kZqProbeReportFd);
  const char* const argv[] = {"zqprobe", "--quiet", "--report-fd", fd8.c_str(), "--id", id8.c_str(),
                              "--", module8.c_str(), nullptr};

  ZqProbeReport received{};
  ZqChildAnswer answer{kZqProbeReportFd, &received, sizeof received};
  ZqChildOutcome outcome{};
  if (!ZqRunChildWithTimeLimit(probe8.c_str(), argv, timeLimitMs, &answer, &outcome)) {
    const DWORD error = GetLastError();
    return error != 0 ? HRESULT_FROM_WIN32(error) : E_FAIL;
  }
  const bool complete = outcome.answerSize == sizeof received;
  if (report != nullptr && complete) *report = received;
  return ZqVstProbeStatus(outcome, complete ? &received : nullptr);
}
