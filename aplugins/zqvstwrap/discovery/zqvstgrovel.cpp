#include "aplugins/zqvstwrap/discovery/zqvstgrovel.h"

#include <atomic>
#include <cstring>
#include <memory>
#include <string>

#include "aplugins/zqvstwrap/discovery/zqvstprobeserver.h"
#include "aplugins/zqvstwrap/host/izqvsteffectfactory.h"
#include "aplugins/zqvstwrap/host/zqvstfactory_effect.h"
#include "aplugins/zqvstwrap/vst2abi.h"
#include "kernel/com/object.h"
#include "kernel/lang.h"
#include "platform/environment.h"
#include "platform/exeinfo.h"
#include "platform/file.h"
#include "platform/message.h"
#include "platform/sync.h"
#include "platform/text.h"
#include "platform/thread.h"
#include "platform/time.h"

namespace {

constexpr UINT kTextLoading = 1039;
constexpr UINT kTextAdding = 1040;
constexpr UINT kWmCancelMode = 0x001F;
constexpr UINT kWmKeyDown = 0x0100;
constexpr WPARAM kVkEscape = 0x1B;


// Bits of a mapping's Flags that a probe decides; the others are kept.
constexpr DWORD kProbedFlags = VMF_SYNTH | VMF_EFFECT | VMF_SHELL_ITEM | VMF_HAS_EDITOR | VMF_ENABLED |
                               VMF_FAILED | VMF_NO_ENTRY | VMF_BAD_IMAGE;

void ShowText(IZqProgress* progress, UINT id, const WCHAR* argument) {
  if (!progress) return;
  std::u16string text = ZqGetString(ZqLang_GetKernelLang(), id);
  const size_t at = text.find(u"%s");
  if (at != std::u16string::npos) text.replace(at, 2, argument);
  progress->SetText(text.c_str());
}

const WCHAR* FileNameOf(const WCHAR* path) { return ZqVstFileNameOf(path); }

void BaseNameOf(const WCHAR* path, WCHAR* out, int size) {
  std::u16string name = FileNameOf(path);
  const size_t dot = name.find_last_of(u'.');
  if (dot != std::u16string::npos && dot > 0) name.resize(dot);
  lstrcpynW(out, name.c_str(), size);
}

INT FindByName(const tZQLIST* list, const WCHAR* name) {
  for (INT i = 0; list && i < list->count; ++i)
    if (lstrcmpiW(ZqVstMappingAt(list, i)->Name, name) == 0) return i;
  return -1;
}

// The fields from Path to Flags trade places; the class ids stay.
void SwapContents(VstMapping* a, VstMapping* b) {
  constexpr size_t from = offsetof(VstMapping, Path);
  constexpr size_t to = offsetof(VstMapping, Flags) + sizeof(DWORD);
  BYTE keep[to - from];
  std::memcpy(keep, reinterpret_cast<BYTE*>(a) + from, sizeof keep);
  std::memcpy(reinterpret_cast<BYTE*>(a) + from, reinterpret_cast<BYTE*>(b) + from, sizeof keep);
  std::memcpy(reinterpret_cast<BYTE*>(b) + from, keep, sizeof keep);
}

bool FileExists(const WCHAR* path) { return GetFileAttributesW(path) != INVALID_FILE_ATTRIBUTES; }

bool Later(const FILETIME& a, const FILETIME& b) {
  const ULONGLONG x = (static_cast<ULONGLONG>(a.dwHighDateTime) << 32) | a.dwLowDateTime;
  const ULONGLONG y = (static_cast<ULONGLONG>(b.dwHighDateTime) << 32) | b.dwLowDateTime;
  return x > y;
}

// An id as its four characters, low byte first, a zero byte as a blank.
std::u16string IdText(LONG id) {
  if (id == 0) return u"0";
  std::u16string text;
  for (int i = 0; i < 4; ++i) {
    const BYTE b = static_cast<BYTE>(static_cast<DWORD>(id) >> (8 * i));
    text += b == 0 ? u' ' : static_cast<char16_t>(b);
  }
  return text;
}

// --- Who probes ----------------------------------------------------------------------

class Prober {
 public:
  virtual ~Prober() = default;
  virtual HRESULT Probe(const WCHAR* path, LONG id, VstMapping* m, DWORD timeLimitMs) = 0;
  // ZQ_S_IS_SHELL with the shell open, or a failure.
  virtual HRESULT OpenShell(const WCHAR* path) = 0;
  virtual HRESULT NextShell(LONG* id, WCHAR* name) = 0;
  virtual void CloseShell() = 0;
  virtual bool ServerEnded() = 0;
  virtual bool InProcess() const = 0;
};

class ServerProber final : public Prober {
 public:
  HRESULT Start() { return m_server.Start(); }
  HRESULT Probe(const WCHAR* path, LONG id, VstMapping* m, DWORD timeLimitMs) override {
    return m_server.Probe(path, id, m->Name, m->Vendor, m->Product, &m->Properties, timeLimitMs);
  }
  HRESULT OpenShell(const WCHAR* path) override { return m_server.OpenShell(path, INFINITE); }
  HRESULT NextShell(LONG* id, WCHAR* name) override { return m_server.NextShell(id, name, INFINITE); }
  void CloseShell() override { m_server.CloseShell(); }
  bool ServerEnded() override { return m_server.Ended(); }
  bool InProcess() const override { return false; }

 private:
  ZqVstProbeServer m_server;
};

class InProcessProber final : public Prober {
 public:
  explicit InProcessProber(IZqVstEffectFactory* factory) : m_factory(factory) {}
  HRESULT Probe(const WCHAR* path, LONG id, VstMapping* m, DWORD timeLimitMs) override {
    // -1 (no limit) and 0 both mean that the probe runs right here.
    const DWORD limit = static_cast<LONG>(timeLimitMs) < 0 ? 0 : timeLimitMs;
    return m_factory->ProbeEffect(path, id, m->Name, m->Vendor, m->Product, &m->Properties, limit);
  }
  HRESULT OpenShell(const WCHAR* path) override {
    m_shell.Reset();
    const HRESULT hr = m_factory->CreateEffect(path, 0, IID_IZqVstEffect, m_shell.PutVoid());
    if (FAILED(hr) || !m_shell) {
      m_shell.Reset();
      return FAILED(hr) ? hr : E_OUTOFMEMORY;
    }
    return hr;
  }
  HRESULT NextShell(LONG* id, WCHAR* name) override {
    *id = 0;
    const HRESULT hr = m_shell ? m_shell->GetNextShellPlugin(id, name, 64) : S_FALSE;
    if (hr != S_OK) *id = 0;
    return hr;
  }
  void CloseShell() override { m_shell.Reset(); }
  bool ServerEnded() override { return false; }
  bool InProcess() const override { return true; }

 private:
  IZqVstEffectFactory* m_factory;
  ZqComPtr<IZqVstEffect> m_shell;
};

// --- The walk ------------------------------------------------------------------------------

struct GrovelWork {
  VstSearchPath folder;
  const WCHAR* mask;
  tZQLIST** list;
  IZqProgress* progress;
  CLog* log;
  DWORD timeLimit;
  BOOL inProcess;
  const WCHAR* product;
  std::atomic<LONG> cancel;
  HRESULT result;
};

struct Walker {
  Prober* prober;
  tZQLIST* list;
  std::atomic<LONG>* cancel;
  IZqProgress* progress;
  CLog* log;
  DWORD timeLimit;

  // The cancel flag, then the sink; S_OK to go on.
  HRESULT CheckCancel() {
    if (cancel->load(std::memory_order_relaxed) != 0) return ZQ_E_CANCELLED;
    if (progress) {
      const HRESULT asked = progress->IsCancelled();
      if (FAILED(asked)) return asked;
    }
    return S_OK;
  }

  // The found-in-cache test: true when the module need not be loaded.
  bool Known(const VstMapping& candidate) {
    auto find = [&](INT from) {
      for (INT i = from; i < list->count; ++i) {
        const VstMapping* m = ZqVstMappingAt(list, i);
        if (lstrcmpiW(m->Path, candidate.Path) == 0 && CompareFileTime(&m->FileTime, &candidate.FileTime) == 0)
          return i;
      }
      return -1;
    };
    INT at = find(0);
    if (at < 0) return false;
    VstMapping* m = ZqVstMappingAt(list, at);
    m->State &= ~VMS_STALE;
    ZQVST_GROVEL_LOG(log, ZQLOG_INFO, u"%s found in cache.", candidate.Path);
    if (m->Flags & VMF_SHELL_ITEM) {
      for (;;) {
        const INT next = find(at + 1);
        // The end of a shell's records: load it again for new sub-plug-ins.
        if (next < 0) return false;
        at = next;
        m = ZqVstMappingAt(list, at);
        m->State &= ~VMS_STALE;
        if (!(m->Flags & VMF_SHELL_ITEM)) break;
      }
    }
    if ((m->Flags & VMF_BAD_IMAGE) && prober->InProcess() && ZqIsFileLoadableInProcess(candidate.Path)) {
      ZqList_DeleteList(list, at, 1, 0);
      return false;
    }
    return true;
  }

  void Report(const VstMapping& c) {
    const WCHAR* fileName = FileNameOf(c.Path);
    if (c.Flags & VMF_ENABLED) {
      ShowText(progress, kTextAdding, c.Name);
      if (c.Flags & VMF_SYNTH)
        ZQVST_GROVEL_LOG(log, ZQLOG_INFO, u"Adding synth '%s' to cache.", c.Name);
      else if (c.Flags & VMF_EFFECT)
        ZQVST_GROVEL_LOG(log, ZQLOG_INFO, u"Adding effect '%s' to cache.", c.Name);
    } else if (c.Flags & VMF_SYNTH) {
      ZQVST_GROVEL_LOG(log, ZQLOG_INFO, u"Adding disabled synth '%s' to cache.", c.Name);
    } else if (c.Flags & VMF_EFFECT) {
      ZQVST_GROVEL_LOG(log, ZQLOG_INFO, u"Adding disabled effect '%s' to cache.", c.Name);
    } else {
      ZQVST_GROVEL_LOG(log, ZQLOG_INFO, u"Adding unrecognized .dll '%s' to cache.", fileName);
    }
  }

  // One module: once, or once per sub-plug-in of a shell.
  HRESULT Items(const VstMapping& base, DWORD folderFlags) {
    LONG id = 0;
    bool shellOpen = false;
    WCHAR shellName[64] = {};
    int items = 0;
    DWORD limit = timeLimit;
    HRESULT status = S_OK;
    for (int round = 0;; ++round) {
      if (round > 0 && FAILED(status = CheckCancel())) break;
      VstMapping c = base;
      if (prober->ServerEnded()) {
        status = ZQ_E_SERVER_GONE;
        break;
      }
      status = prober->Probe(c.Path, id, &c, limit);
      const LONG effectFlags = c.Properties.flags;
      c.Flags &= ~kProbedFlags;
      if (effectFlags & effFlagsIsSynth) c.Flags |= VMF_SYNTH;
      if (c.Properties.numInputs > 0) c.Flags |= VMF_EFFECT;
      if (id != 0) c.Flags |= VMF_SHELL_ITEM;
      if (effectFlags & effFlagsHasEditor) c.Flags |= VMF_HAS_EDITOR;
      if (((folderFlags & VSP_SYNTHS) && (c.Flags & VMF_SYNTH)) || ((folderFlags & VSP_EFFECTS) && (c.Flags & VMF_EFFECT)))
        c.Flags |= VMF_ENABLED;
      if (c.Name[0] == 0) BaseNameOf(c.Path, c.Name, 64);

      bool report = false;
      if (status == ZQ_S_IS_SHELL) {
        if (shellOpen) {
          report = true;
        } else {
          const HRESULT opened = prober->OpenShell(c.Path);
          if (FAILED(opened)) {
            status = opened;
          } else {
            shellOpen = true;
            prober->NextShell(&id, shellName);
            // A shell's sub-plug-ins run without a limit: the shell is open
            // already and answered.  The modules after it keep theirs, so
            // that a hang behind a shell still cannot stop the scan.
            limit = static_cast<DWORD>(-1);
            if (id == 0 || ++items >= kZqVstMaxShellItems) break;
            continue;
          }
        }
      }
      if (!report && FAILED(status)) {
        if (id != 0) {
          if (shellName[0]) lstrcpynW(c.Name, shellName, 64);
          c.Properties.uniqueID = id;
          c.Flags |= VMF_EFFECT | VMF_SHELL_ITEM;
          if (folderFlags & VSP_EFFECTS) c.Flags |= VMF_ENABLED;
          ZQVST_GROVEL_LOG(log, ZQLOG_WARNING, u"Shell instantiation of '%s' (file = %s, uniqueId = %s) failed...",
                           c.Name, FileNameOf(c.Path), IdText(id).c_str());
        }
        if ((c.Flags & VMF_ENABLED) || status == ZQ_E_EXCEPTION || status == ZQ_E_CANCELLED) c.Flags |= VMF_FAILED;
        if (status == HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND)) c.Flags |= VMF_NO_ENTRY;
        if (status == HRESULT_FROM_WIN32(ERROR_BAD_EXE_FORMAT)) c.Flags |= VMF_BAD_IMAGE;
      }
      Report(c);
      status = ZqVstAddMapping(list, &c);
      if (FAILED(status)) break;
      if (shellOpen) {
        // A shell that names the same plug-in twice in a row gives it once.
        LONG next = id;
        for (int repeat = 0; next == id && repeat < kZqVstMaxShellItems; ++repeat)
          if (FAILED(prober->NextShell(&next, shellName))) next = 0;
        id = next == id ? 0 : next;
      }
      if (id == 0 || ++items >= kZqVstMaxShellItems) break;
    }
    if (shellOpen) prober->CloseShell();
    return status;
  }

  HRESULT Walk(const VstSearchPath& folder, const WCHAR* mask) {
    const std::u16string pattern = std::u16string(folder.Path) + (mask ? mask : u"*");
    WIN32_FIND_DATAW found;
    const HANDLE search = FindFirstFileW(pattern.c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) return S_OK;
    ZQVST_GROVEL_LOG(log, ZQLOG_INFO, u"**** Grovelling path \"%s\"... ****", pattern.c_str());
    HRESULT hr = S_OK;
    do {
      const HRESULT asked = CheckCancel();
      if (FAILED(asked)) {
        ZQVST_GROVEL_LOG(log, ZQLOG_ERROR, u"Grovel process cancelled by user");
        hr = asked;
        break;
      }
      if (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
        if (!(folder.Flags & VSP_RECURSE) || found.cFileName[0] == u'.') continue;
        VstSearchPath sub{};
        const std::u16string path = std::u16string(folder.Path) + found.cFileName + u"/";
        if (path.size() >= 260) continue;
        lstrcpynW(sub.Path, path.c_str(), 260);
        sub.Flags = folder.Flags;
        hr = Walk(sub, mask);
        if (FAILED(hr)) break;
        continue;
      }
      if (!ZqVstIsModuleFileName(found.cFileName)) continue;
      VstMapping candidate{};
      const std::u16string path = std::u16string(folder.Path) + found.cFileName;
      if (path.size() >= 260) continue;
      lstrcpynW(candidate.Path, path.c_str(), 260);
      candidate.FileTime = found.ftLastWriteTime;
      if (Known(candidate)) continue;
      ShowText(progress, kTextLoading, found.cFileName);
      ZQVST_GROVEL_LOG(log, ZQLOG_INFO, u"Loading %s.", candidate.Path);
      hr = Items(candidate, folder.Flags);
      if (FAILED(hr)) {
        if (hr == ZQ_E_CANCELLED)
          ZQVST_GROVEL_LOG(log, ZQLOG_ERROR, u"Grovel process cancelled by user");
        else
          ZQVST_GROVEL_LOG(log, ZQLOG_ERROR, u"Grovel failed unexpectedly (hr = 0x%x)", static_cast<unsigned>(hr));
        break;
      }
    } while (FindNextFileW(search, &found));
    FindClose(search);
    return hr;
  }
};

HRESULT EnsureList(tZQLIST** list) {
  if (*list) return S_OK;
  return ZqList_CreateExZ(list, 0, 0, 64, ZQLIST_HEAPITEMS, 0, 0, 0);
}

DWORD GrovelWorker(LPVOID parameter) {
  auto* work = static_cast<GrovelWork*>(parameter);
  HRESULT hr = EnsureList(work->list);
  if (FAILED(hr)) {
    work->result = hr;
    return 0;
  }
  do {
    Walker walker{nullptr, *work->list, &work->cancel, work->progress, work->log, work->timeLimit};
    if (work->inProcess) {
      IZqVstEffectFactory* factory = nullptr;
      hr = ZqVstGetEffectFactory(TRUE, IID_IZqVstEffectFactory, reinterpret_cast<void**>(&factory), u"Ostrand",
                                 work->product, nullptr, nullptr);
      if (FAILED(hr)) break;
      InProcessProber prober(factory);
      walker.prober = &prober;
      hr = walker.Walk(work->folder, work->mask);
      prober.CloseShell();
      ZqVstReleaseEffectFactory(TRUE, factory);
    } else {
      // Each round moves past at least the module that ended the last
      // server, as that module is in the list by now.
      ServerProber prober;
      hr = prober.Start();
      if (FAILED(hr)) break;
      walker.prober = &prober;
      hr = walker.Walk(work->folder, work->mask);
    }
  } while (hr == ZQ_E_SERVER_GONE);
  work->result = hr;
  return 0;
}

}  // namespace

BOOL ZqVstIsModuleFileName(const WCHAR* name) {
  const int length = lstrlenW(name);
  return length >= 3 && lstrcmpiW(name + length - 3, u".so") == 0;
}

HRESULT ZqVstGrovelFolder(const VstSearchPath& folder, const WCHAR* mask, tZQLIST** list, IZqProgress* progress,
                          CLog* log, DWORD timeLimitMs, BOOL inProcess, const WCHAR* product) {
  auto work = std::make_unique<GrovelWork>();
  work->folder = folder;
  work->mask = mask;
  work->list = list;
  work->progress = progress;
  work->log = log;
  work->timeLimit = timeLimitMs;
  work->inProcess = inProcess;
  work->product = product;
  work->result = ZQ_E_RESOURCES;
  HANDLE thread = CreateThread(nullptr, 0, &GrovelWorker, work.get(), 0, nullptr);
  if (!thread) return ZQ_E_RESOURCES;
  for (;;) {
    const DWORD woke = MsgWaitForMultipleObjects(1, &thread, FALSE, INFINITE, QS_ALLINPUT);
    if (woke == WAIT_OBJECT_0) break;
    if (ZqVstPumpCheckCancel()) work->cancel.store(1, std::memory_order_relaxed);
    if (woke == WAIT_FAILED) WaitForSingleObject(thread, INFINITE);
  }
  CloseHandle(thread);
  return work->result;
}

BOOL ZqVstPumpCheckCancel() {
  MSG msg;
  while (PeekMessageW(&msg, nullptr, 0, 0, PM_NOREMOVE)) {
    if (msg.message == WM_QUIT || msg.message == kWmCancelMode) return TRUE;
    if (msg.message == kWmKeyDown && msg.wParam == kVkEscape) return TRUE;
    if (!PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) break;
    TranslateMessage(&msg);
    DispatchMessageW(&msg);
  }
  return FALSE;
}

const WCHAR* ZqVstFileNameOf(const WCHAR* path) {
  const WCHAR* name = path;
  for (const WCHAR* p = path; *p; ++p)
    if (*p == u'/') name = p + 1;
  return name;
}

BOOL ZqVstAddSlash(WCHAR* path, int size) {
  const int length = lstrlenW(path);
  if (length > 0 && path[length - 1] == u'/') return TRUE;
  if (length + 2 > size) return FALSE;
  path[length] = u'/';
  path[length + 1] = 0;
  return TRUE;
}

// The application's state folder: $XDG_STATE_HOME (or ~/.local/state), then
// "Ostrand/<app>/<major>.<minor>/", made on the way.
HRESULT ZqVstOpenGrovelLog(const WCHAR* appName, DWORD version, BOOL fresh, CLog* log) {
  WCHAR value[260];
  std::u16string path;
  DWORD n = GetEnvironmentVariableW(u"XDG_STATE_HOME", value, 260);
  if (n > 0 && n < 260) {
    path = value;
  } else {
    n = GetEnvironmentVariableW(u"HOME", value, 260);
    if (n == 0 || n >= 260) return E_FAIL;
    path = std::u16string(value) + u"/.local/state";
  }
  const std::u16string parts[] = {u"Ostrand", appName,
                                  ZqUtf8ToUtf16(std::to_string(version >> 24) + "." +
                                                std::to_string((version >> 16) & 0xFF))};
  CreateDirectoryW(path.c_str(), nullptr);
  for (const std::u16string& part : parts) {
    path += u"/" + part;
    CreateDirectoryW(path.c_str(), nullptr);
  }
  path += u"/vst_grovel.log";
  if (path.size() >= 260) return E_FAIL;
  if (fresh) DeleteFileW(path.c_str());
  return log->Init(path.c_str(), 0x10007, 0x100000, 0);
}

HRESULT ZqVstAddMapping(tZQLIST* list, VstMapping* c) {
  const WCHAR* fileName = FileNameOf(c->Path);
  // Stage 1: two modules that claim to be one plug-in.
  if (c->Flags & VMF_ENABLED) {
    for (INT i = 0; i < list->count; ++i) {
      VstMapping* m = ZqVstMappingAt(list, i);
      if (m->Properties.uniqueID != c->Properties.uniqueID) continue;
      if (m->Clsid.Data2 == ZqVstNameHash(fileName) && m->Clsid.Data3 == ZqVstNameHash(c->Name)) {
        if (lstrcmpiW(m->Path, c->Path) == 0) {
          m->State &= ~VMS_STALE;
          return ZQ_S_KNOWN;
        }
        if ((m->State & VMS_STALE) && !FileExists(m->Path)) {
          SwapContents(m, c);
          m->State &= ~VMS_STALE;
        } else {
          m->State &= ~VMS_STALE;
          if (m->Properties.version < c->Properties.version ||
              (m->Properties.version == c->Properties.version && Later(c->FileTime, m->FileTime)))
            SwapContents(m, c);
        }
        c->Flags &= ~VMF_ENABLED;
        fileName = FileNameOf(c->Path);
      }
      break;
    }
  }
  // Stage 2: two plug-ins of one name.
  int counter = 2;
  WCHAR copy[64];
  lstrcpynW(copy, c->Name, 64);
  for (int round = 0;; ++round) {
    const INT at = FindByName(list, c->Name);
    if (at < 0) break;
    VstMapping* m = ZqVstMappingAt(list, at);
    if (m->State & VMS_STALE) {
      ZqList_DeleteList(list, at, 1, 0);
    } else if ((c->Flags & VMF_SHELL_ITEM) || round > 0) {
      const std::u16string numbered = std::u16string(copy) + u" (" + ZqUtf8ToUtf16(std::to_string(counter++)) + u")";
      lstrcpynW(c->Name, numbered.c_str(), 64);
    } else if (lstrcmpiW(FileNameOf(m->Path), fileName) != 0) {
      WCHAR other[64];
      BaseNameOf(m->Path, other, 64);
      if (FindByName(list, other) < 0) {
        lstrcpynW(m->Name, other, 64);
        ZqVstMakeMappingClsids(m->Properties.uniqueID, m->Path, m->Name, &m->Clsid, &m->EditorPageClsid,
                               &m->ParamsPageClsid);
      }
      BaseNameOf(c->Path, c->Name, 64);
      lstrcpynW(copy, c->Name, 64);
    }
  }
  // Stage 3: the class ids, unless a mapping holds them already.
  ZqVstMakeMappingClsids(c->Properties.uniqueID, c->Path, c->Name, &c->Clsid, &c->EditorPageClsid,
                         &c->ParamsPageClsid);
  if (ZqVstFindMapping(list, c->Clsid) >= 0) return ZQ_S_KNOWN;
  c->State &= ~VMS_STALE;
  return ZqList_AllocAndInsertItem(list, c, sizeof *c, -1, nullptr);
}
