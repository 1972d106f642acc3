// The scan of one search folder: walk it, probe each module that the
// mapping list does not know yet, and enter what each module is.
//
// Foreign code runs here, so the walk is built to survive it.  Modules are
// probed in the probe server (zqvstprobeserver.h) unless the caller asks for
// this process.  Each module's entry is in the mapping list before the next
// module is touched; when a module ends the server, the walk stops at the
// next module with ZQ_E_SERVER_GONE, a new server is started and the folder
// is walked again, passing everything already in the list.  A module that
// hangs is killed with its server at the time limit and entered as failed.
//
// Threads: ZqVstGrovelFolder runs the walk on a new worker thread and waits
// for it, dispatching the caller's messages; the progress sink and the
// mapping list are used from the worker meanwhile.  Nothing is stored:
// writing the list is the caller's business.
#pragma once

#include "aplugins/zqvstwrap/discovery/izqprogress.h"
#include "aplugins/zqvstwrap/discovery/zqvstcache.h"
#include "kernel/list.h"
#include "kernel/log.h"
#include "base/types.h"

// The probe server process ended; the walk is repeated with a new one.
constexpr HRESULT ZQ_E_SERVER_GONE = ZqMakeStatus(0x800106BA);

// The most sub-plug-ins taken from one shell: a shell that lists without
// end is cut here.
constexpr int kZqVstMaxShellItems = 5000;

// Walks `folder` (with `mask`, a file name pattern, or every file when null)
// into `list` (the process-wide mapping list; created when null), on a
// worker thread.  `timeLimitMs` bounds each probe (0: none).  `product` is
// the identity the in-process factory gives plug-ins.  `progress` and `log`
// may be null.  The walk's result: not negative when it went through,
// ZQ_E_CANCELLED when the caller or the sink stopped it, ZQ_E_RESOURCES
// when no worker could be started, or the failure of a probe server that
// cannot be started or of an entry that cannot be made.
HRESULT ZqVstGrovelFolder(const VstSearchPath& folder, const WCHAR* mask, tZQLIST** list, IZqProgress* progress,
                          CLog* log, DWORD timeLimitMs, BOOL inProcess, const WCHAR* product);

// Enters `candidate` (its Path, Name, Flags, Properties, FileTime; the class
// ids are made here) into `list`, telling apart two modules that claim to be
// one plug-in and two plug-ins of one name.  The candidate may be changed
// (it receives the loser of a contest).  S_OK when it was appended,
// ZQ_S_KNOWN when the list holds it already, or a list error.
HRESULT ZqVstAddMapping(tZQLIST* list, VstMapping* candidate);

// Dispatches the calling thread's waiting messages and answers whether the
// user asked to stop (WM_QUIT, WM_CANCELMODE or Escape are left queued).
BOOL ZqVstPumpCheckCancel();

// Opens the scan's log for `appName` and `version` (top bytes major,
// minor): vst_grovel.log in the application's state folder.  With
// `fresh` an existing log is deleted first, so that it tells of one scan.
HRESULT ZqVstOpenGrovelLog(const WCHAR* appName, DWORD version, BOOL fresh, CLog* log);

// The file name part of a path (behind the last "/").
const WCHAR* ZqVstFileNameOf(const WCHAR* path);
// Ends `path` (of `size` characters) in "/"; FALSE when that does not fit.
BOOL ZqVstAddSlash(WCHAR* path, int size);

// Whether a file name has the module extension (".so", case ignored).
BOOL ZqVstIsModuleFileName(const WCHAR* name);

// Logs through `log` (may be null) with this file's name.
#define ZQVST_GROVEL_LOG(log, level, ...)                                     \
  do {                                                                        \
    if (log) (log)->Write(level, u"zqvstgrovel.cpp", __LINE__, __VA_ARGS__); \
  } while (0)
