// The library, the plug-in's filter and failure reports of zqvst.
#include "tools/zqvst/host.h"

#include <cstdio>

#include "kernel/com/taskmem.h"
#include "platform/environment.h"
#include "platform/file.h"
#include "platform/module.h"
#include "platform/process.h"
#include "platform/text.h"
#include "tools/zqvst/catalog.h"
#include "tools/zqvst/cmdline.h"

#ifndef ZQVST_INSTALL_LIBDIR
#define ZQVST_INSTALL_LIBDIR "lib"
#endif

namespace {

// The time a module may take to be looked at before it counts as hung.
constexpr DWORD kMapTimeLimitMs = 10000;

std::string ProgramFolder() {
  std::string folder = ZqvstFolderOf(ZqUtf16ToUtf8(ZqGetExecutablePath()));
  if (folder.empty()) return ".";
  folder.pop_back();
  return folder;
}

bool FileExists(const std::string& path) {
  const DWORD attributes = GetFileAttributesW(ZqvstWiden(path).c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

template <class F>
F Export(HMODULE module, const char* name) {
  return reinterpret_cast<F>(reinterpret_cast<void (*)()>(GetProcAddress(module, name)));
}

std::string Trim(const std::string& text) {
  const size_t first = text.find_first_not_of(" \t");
  if (first == std::string::npos) return std::string();
  const size_t last = text.find_last_not_of(" \t");
  return text.substr(first, last - first + 1);
}

bool IsDecimal(const std::string& text) {
  if (text.empty() || text.size() > 9) return false;
  for (char c : text)
    if (c < '0' || c > '9') return false;
  return true;
}

std::string FormatValue(double value) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%g", value);
  return buffer;
}

// A text meant for a box on one line: its line breaks and runs of blanks
// become single spaces.
std::string OneLine(const std::string& text) {
  std::string line;
  for (char c : text) {
    const bool blank = c == '\n' || c == '\r' || c == '\t' || c == ' ';
    if (!blank) line += c;
    else if (!line.empty() && line.back() != ' ') line += ' ';
  }
  while (!line.empty() && line.back() == ' ') line.pop_back();
  return line;
}

}  // namespace

// --- Text --------------------------------------------------------------------

std::string ZqvstNarrow(const WCHAR* text) {
  if (text == nullptr) return std::string();
  return ZqUtf16ToUtf8(std::u16string_view(text));
}

std::u16string ZqvstWiden(const std::string& text) { return ZqUtf8ToUtf16(text); }

std::string ZqvstFolderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

// --- Reports -------------------------------------------------------------------

void ZqvstReport(const ZqvstLibrary* library, const ZqvstFailure& failure) {
  std::string line = "zqvst: " + failure.what;
  if (failure.status != S_OK) {
    const std::string text = library ? library->StatusText(failure.status) : std::string();
    line += ": ";
    line += text.empty() ? "error" : text;
    line += " (" + ZqvstHex(static_cast<DWORD>(failure.status)) + ")";
  }
  std::fflush(stdout);
  std::fprintf(stderr, "%s\n", line.c_str());
}

void ZqvstReportUsage(const std::string& command, const std::string& message) {
  std::fflush(stdout);
  std::fprintf(stderr, "zqvst: %s\n", message.c_str());
  std::fprintf(stderr, "Try 'zqvst %s%s--help'.\n", command.c_str(), command.empty() ? "" : " ");
}

// --- The library ----------------------------------------------------------------

ZqvstLibrary::~ZqvstLibrary() {
  // The library stays loaded until the process ends: objects of plug-ins may
  // still hold code of it in threads that are winding down.
}

std::string ZqvstLibrary::DefaultPath() {
  WCHAR buffer[4096];
  const DWORD length = GetEnvironmentVariableW(u"ZQVST_LIBRARY", buffer, 4096);
  if (length > 0 && length < 4096) return ZqvstNarrow(buffer);
  const std::string folder = ProgramFolder();
  // An installation whose library folder is not "lib" (a multiarch one).
  const std::string installed = folder + "/../" ZQVST_INSTALL_LIBDIR "/libzqvstwrap.so.0";
  if (!FileExists(folder + "/../lib/libzqvstwrap.so.0") && FileExists(installed)) return installed;
  return folder + "/../lib/libzqvstwrap.so.0";
}

bool ZqvstLibrary::Load(ZqvstFailure* failure) {
  if (m_module) return true;
  const std::string path = DefaultPath();
  HMODULE module = LoadLibraryW(ZqvstWiden(path).c_str());
  if (!module) {
    failure->what = "cannot load the library " + path;
    const char* reason = ZqGetLastLoadErrorText();
    if (reason && *reason) failure->what += " (" + std::string(reason) + ")";
    failure->status = HRESULT_FROM_WIN32(GetLastError());
    return false;
  }
  m_module = module;
  m_statusText = Export<const char* (*)(HRESULT)>(module, "ZqStatusText");
  m_localStatusText = Export<const WCHAR* (*)(HRESULT)>(module, "ZqErrorHandler_GetHresultString");
  m_getClassObject = Export<HRESULT (*)(REFCLSID, REFIID, void**)>(module, "DllGetClassObject");
  m_mapModule = Export<HRESULT (*)(const WCHAR*, LONG, DWORD, VstMapping*)>(module, "ZqVstMapModule");
  m_getTiming = Export<HRESULT (*)(REFCLSID, LONG*, LONG*)>(module, "ZqVstGetModuleTiming");
  const char* missing = !m_getClassObject ? "DllGetClassObject" : !m_mapModule ? "ZqVstMapModule" : nullptr;
  if (missing) {
    failure->what = "the library " + path + " has no " + missing;
    failure->status = HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND);
    return false;
  }
  FollowUserLanguage();
  KeepBoxesOnOneLine();
  return true;
}

namespace {

// A message box the library would show: one line on standard error, and
// the box's default answer, as nobody is there to click.
void ReportBox(const WCHAR* text) {
  std::fflush(stdout);
  std::fprintf(stderr, "zqvst: %s\n", OneLine(ZqvstNarrow(text)).c_str());
}

}  // namespace

// zqvst has no windows: a box the library shows (a plug-in's fault report,
// say) becomes one line of the program's messages.
void ZqvstLibrary::KeepBoxesOnOneLine() {
  const auto setAppData = Export<void (*)(HMODULE, HWND, const WCHAR*)>(m_module, "ZqMsgBoxSetAppData");
  const auto setNoUiHook = Export<BOOL (*)(void (*)(const WCHAR*))>(m_module, "ZqMsgBoxSetNoUIHook");
  if (!setAppData || !setNoUiHook) return;
  setAppData(nullptr, nullptr, u"zqvst");
  setNoUiHook(ReportBox);
}

// The library's texts follow the language the user saved for zqvst, else the
// one of the environment (which the library reads itself).  A settings store
// that cannot be read costs only the saved language, and the user is told
// which file it is.
void ZqvstLibrary::FollowUserLanguage() {
  const auto check = Export<HRESULT (*)(WCHAR*, DWORD)>(m_module, "ZqLang_CheckUserSettingsStore");
  const auto load = Export<BOOL (*)(const WCHAR*, DWORD, UINT*, bool)>(m_module, "ZqLang_LoadUserLCIDMetric");
  const auto kernel = Export<void* (*)()>(m_module, "ZqLang_GetKernelLang");
  const auto update = Export<BOOL (*)(void*, UINT, UINT)>(m_module, "ZqLang_UpdateKernelLCID");
  WCHAR store[4096] = {};
  const HRESULT readable = check ? check(store, 4096) : S_OK;
  if (FAILED(readable)) {
    ZqvstReport(this, {"cannot read the settings store " + ZqvstNarrow(store) + " (the language stays the default)",
                       readable});
    return;
  }
  UINT lcid = 0;
  if (load && kernel && update && load(u"zqvst", 0, &lcid, true) && lcid != 0) update(kernel(), lcid, 0);
}

bool ZqvstLibrary::Isolate(ZqvstFailure* failure) {
  auto isolate = m_module ? Export<void (*)(BOOL)>(m_module, "ZqVstSetIsolation") : nullptr;
  if (isolate == nullptr) {
    *failure = {"the library cannot run plug-ins in its server", HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND)};
    return false;
  }
  isolate(TRUE);
  return true;
}

HRESULT ZqvstLibrary::MapModule(const std::string& path, LONG uniqueId, VstMapping* mapping) {
  if (!m_mapModule) return E_UNEXPECTED;
  return m_mapModule(ZqvstWiden(path).c_str(), uniqueId, kMapTimeLimitMs, mapping);
}

HRESULT ZqvstLibrary::GetTiming(REFCLSID clsid, LONG* latency, LONG* tail) {
  *latency = 0;
  *tail = 0;
  if (!m_getTiming) return E_NOTIMPL;
  return m_getTiming(clsid, latency, tail);
}

HRESULT ZqvstLibrary::CreateFilter(REFCLSID clsid, IBaseFilter** filter) {
  return CreateObject(clsid, IID_IBaseFilter, reinterpret_cast<void**>(filter));
}

HRESULT ZqvstLibrary::CreateObject(REFCLSID clsid, REFIID iid, void** object) {
  *object = nullptr;
  if (!m_getClassObject) return E_UNEXPECTED;
  ZqComPtr<IClassFactory> factory;
  HRESULT hr = m_getClassObject(clsid, IID_IClassFactory, factory.PutVoid());
  if (FAILED(hr)) return hr;
  return factory->CreateInstance(nullptr, iid, object);
}

std::string ZqvstLibrary::StatusText(HRESULT status) const {
  std::string text;
  if (const WCHAR* local = m_localStatusText ? m_localStatusText(status) : nullptr) {
    text = ZqvstNarrow(local);
  } else if (const char* english = m_statusText ? m_statusText(status) : nullptr) {
    text = english;
  }
  // The text names this program where it names the host application.
  for (size_t at; (at = text.find("$(AppName)")) != std::string::npos;) text.replace(at, 10, "zqvst");
  return OneLine(text);
}

// --- The plug-in -------------------------------------------------------------------

std::string ZqvstDefaultPlugin() {
  const std::string folder = ProgramFolder();
  for (const char* relative : {"/../lib/zqvstwrap/plugins/zqdelay.so", "/../" ZQVST_INSTALL_LIBDIR
                                "/zqvstwrap/plugins/zqdelay.so", "/../plugins/zqdelay.so"}) {
    if (FileExists(folder + relative)) return folder + relative;
  }
  return folder + "/../lib/zqvstwrap/plugins/zqdelay.so";
}

ZqvstPlugin::~ZqvstPlugin() { Close(); }

void ZqvstPlugin::Close() {
  m_synth.Reset();
  m_presets.Reset();
  m_paramInfo.Reset();
  m_params.Reset();
  m_prop.Reset();
  m_filter.Reset();
}

bool ZqvstPlugin::Open(ZqvstLibrary* library, const std::string& plugin, ZqvstFailure* failure) {
  std::string modulePath;
  LONG uniqueId = 0;
  if (!ZqvstLocatePlugin(library, plugin, &modulePath, &uniqueId, failure)) return false;
  m_path = modulePath;
  HRESULT hr = library->MapModule(modulePath, uniqueId, &m_mapping);
  if (hr == ZQ_S_IS_SHELL) {
    const std::string items = ZqvstShellItems(library, modulePath);
    *failure = {modulePath + ": the module is a shell of several plug-ins; name one as " + modulePath + ":ID" +
                    (items.empty() ? " (after 'zqvst scan' of its folder, also by name)" : " or by name: " + items),
                ZQ_S_IS_SHELL};
    return false;
  }
  if (hr == E_UNEXPECTED && uniqueId != 0) {
    *failure = {modulePath + " has no sub-plug-in '" + ZqvstFourChars(uint32_t(uniqueId)) + "'", hr};
    return false;
  }
  if (FAILED(hr)) {
    *failure = {"cannot open the plug-in " + modulePath, hr};
    return false;
  }
  if (FAILED(library->GetTiming(m_mapping.Clsid, &m_latency, &m_tail))) {
    m_latency = m_mapping.Properties.initialDelay;
    m_tail = 0;
  }
  if (m_mapping.Flags & VMF_NO_LATENCY) m_latency = 0;

  IBaseFilter* filter = nullptr;
  hr = library->CreateFilter(m_mapping.Clsid, &filter);
  if (FAILED(hr) || !filter) {
    *failure = {"cannot make a filter of " + modulePath, FAILED(hr) ? hr : E_UNEXPECTED};
    return false;
  }
  m_filter = ZqComPtr<IBaseFilter>::Adopt(filter);
  // Each interface is asked for only when a job needs it: a filter of a
  // plug-in without parameters, say, offers no media parameters.
  m_filter.As(&m_prop);
  m_filter.As(&m_params);
  m_filter.As(&m_paramInfo);
  m_filter.As(&m_presets);
  m_filter.As(&m_synth);
  return true;
}

HRESULT ZqvstPlugin::Need(const void* which, const char* name, ZqvstFailure* failure) const {
  if (which) return S_OK;
  *failure = {"the filter of " + m_path + " has no " + name, E_NOINTERFACE};
  return E_NOINTERFACE;
}

DWORD ZqvstPlugin::ParamCount() const {
  DWORD count = 0;
  if (!m_paramInfo || FAILED(m_paramInfo->GetParamCount(&count))) return 0;
  return count;
}

bool ZqvstPlugin::DescribeParam(DWORD index, ParamDescription* out, ZqvstFailure* failure) const {
  out->index = index;
  if (FAILED(Need(m_paramInfo.Get(), "IMediaParamInfo", failure)) ||
      FAILED(Need(m_prop.Get(), "IZqVstWrapProp", failure)))
    return false;
  HRESULT hr = m_paramInfo->GetParamInfo(index, &out->info);
  if (FAILED(hr)) {
    *failure = {"cannot read parameter " + std::to_string(index), hr};
    return false;
  }
  WCHAR buffer[256] = {};
  m_prop->GetParamName(int(index), buffer, 256);
  out->name = ZqvstNarrow(buffer);
  buffer[0] = 0;
  m_prop->GetParamDisplay(int(index), buffer, 256);
  out->display = Trim(ZqvstNarrow(buffer));
  buffer[0] = 0;
  // Fills the buffer whatever it answers.
  m_prop->GetParamLabel(int(index), buffer, 256);
  out->label = Trim(ZqvstNarrow(buffer));

  WCHAR* text = nullptr;
  if (SUCCEEDED(m_paramInfo->GetParamText(index, &text)) && text) {
    // label NUL unit NUL names... NUL NUL
    const WCHAR* p = text;
    out->paramLabel = ZqvstNarrow(p);
    p += std::char_traits<WCHAR>::length(p) + 1;
    out->paramUnit = ZqvstNarrow(p);
    p += std::char_traits<WCHAR>::length(p) + 1;
    while (*p) {
      out->enumNames.push_back(ZqvstNarrow(p));
      p += std::char_traits<WCHAR>::length(p) + 1;
    }
    CoTaskMemFree(text);
  }
  return true;
}

bool ZqvstPlugin::FindParam(const std::string& text, DWORD* index, ZqvstFailure* failure, bool byNameOnly) const {
  const DWORD count = ParamCount();
  if (count > 0 && FAILED(Need(m_prop.Get(), "IZqVstWrapProp", failure))) return false;
  const std::string wanted = Trim(text);
  if (!byNameOnly && IsDecimal(wanted)) {
    const long n = std::stol(wanted);
    if (n >= 0 && DWORD(n) < count) {
      *index = DWORD(n);
      return true;
    }
  } else {
    for (DWORD i = 0; i < count; ++i) {
      WCHAR buffer[256] = {};
      m_prop->GetParamName(int(i), buffer, 256);
      if (ZqvstEqualsNoCase(Trim(ZqvstNarrow(buffer)), wanted)) {
        *index = i;
        return true;
      }
    }
  }
  *failure = {"the plug-in has no parameter '" + wanted + "' (it has " + std::to_string(count) + ")",
              ZQ_E_NOT_FOUND};
  return false;
}

bool ZqvstPlugin::SetParam(const std::string& param, double value, ZqvstFailure* failure) {
  DWORD index = 0;
  if (!FindParam(param, &index, failure)) return false;
  if (FAILED(Need(m_params.Get(), "IMediaParams", failure))) return false;
  MP_PARAMINFO info{};
  HRESULT hr = m_paramInfo->GetParamInfo(index, &info);
  if (FAILED(hr)) {
    *failure = {"cannot read parameter '" + param + "'", hr};
    return false;
  }
  if (!(value >= info.mpdMinValue && value <= info.mpdMaxValue)) {
    *failure = {"value " + FormatValue(value) + " of parameter '" + param + "' is outside " +
                    FormatValue(info.mpdMinValue) + ".." + FormatValue(info.mpdMaxValue),
                E_INVALIDARG};
    return false;
  }
  hr = m_params->SetParam(index, MP_DATA(value));
  if (FAILED(hr)) {
    *failure = {"cannot set parameter '" + param + "'", hr};
    return false;
  }
  return true;
}

bool ZqvstPlugin::SetProgram(long index, ZqvstFailure* failure) {
  if (FAILED(Need(m_presets.Get(), "IVstFilterPreset", failure))) return false;
  LONG count = 0;
  m_presets->GetPresetCount(&count);
  if (index < 0 || index >= count) {
    *failure = {"the plug-in has no program " + std::to_string(index) + " (it has " + std::to_string(count) + ")",
                ZQ_E_NOT_FOUND};
    return false;
  }
  const HRESULT hr = m_presets->SetPreset(LONG(index));
  if (FAILED(hr)) {
    *failure = {"cannot select program " + std::to_string(index), hr};
    return false;
  }
  return true;
}
