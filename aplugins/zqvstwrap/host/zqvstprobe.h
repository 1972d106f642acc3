// Looking at a VST 2.x module in a child process, with a time limit.
//
// A module may hang in its entry point or in effOpen, or end the process
// that loads it.  Neither can be undone inside the host, so this look runs
// the probe program `zqprobe` as a child: it loads the module, enters it,
// opens and closes the effect, and hands back one report.  A child still
// running at the limit is killed.  The companion server will take this job
// over; the statuses stay the same.
//
// Statuses (the same as loading the module in process gives, where there is
// one):
//   S_OK                    loaded, entered, opened and closed (a fault in
//                           effOpen or effClose is an ordinary answer, as
//                           everywhere else)
//   ZQ_S_IS_SHELL           a shell module asked for id 0: its container
//   E_UNEXPECTED            a shell whose product is not the id asked for;
//                           also a probe that refused its arguments or
//                           answered in a form not understood
//   HRESULT_FROM_WIN32(n)   the module did not load: 126 the file or a
//                           library it needs is missing, 193 not a loadable
//                           object for this machine; 127 no entry point
//   E_INVALIDARG            the entry point gave null or a wrong magic
//   ZQ_E_EXCEPTION          a fault in the module's entry point or
//                           constructors; a child that died of a signal or
//                           ended without its report (a module calling
//                           exit); a report that disagrees with the child's
//                           exit status (the module ended the process after
//                           the report)
//   ZQ_E_CANCELLED          the child was still running at the time limit
//   HRESULT_FROM_WIN32(n)   the probe could not be started (2: not found)
#pragma once

#include <cstdint>
#include <string>

#include "base/status.h"
#include "base/types.h"

#if !defined(_WIN32)
#include "platform/isolate.h"
#endif

// --- The probe's report ------------------------------------------------------
//
// zqprobe [--id ID] [--report-fd N] [--quiet] MODULE
//
// The probe's exit status is its result below.  With --report-fd it also
// sends one ZqProbeReport on the inherited socket N just before it ends, so
// that its result can be told from an exit status a module chose; and it
// ends itself (status kZqProbeOrphaned) when the socket hangs up, that is
// when the program that started it has gone.

enum ZqProbeResult : uint16_t {
  kZqProbeOpened = 0,           // opened and closed
  kZqProbeOpenedWithFault = 1,  // the same, but effOpen or effClose faulted (detail: the code)
  kZqProbeUsage = 2,            // the arguments were refused
  kZqProbeShell = 3,            // a shell asked for id 0: its container, not opened
  kZqProbeShellMismatch = 4,    // a shell gave a plug-in other than the id asked for
  kZqProbeLoadFailed = 10,      // detail: the platform error of the load
  kZqProbeNoEntry = 11,         // neither "VSTPluginMain" nor "main"
  kZqProbeNullEffect = 12,      // the entry point answered null
  kZqProbeWrongMagic = 13,      // detail: the magic number found
  kZqProbeFault = 14,           // a fault loading or entering (detail: the code)
  kZqProbeOrphaned = 15,        // the program that started the probe has gone
};

constexpr uint32_t kZqProbeReportMagic = 0x5A715072;  // 'ZqPr'
constexpr uint16_t kZqProbeReportVersion = 1;

// The report, little-endian as the machine writes it; both ends are built
// together, the version guards against a stale probe next to a newer host.
struct ZqProbeReport {
  uint32_t magic;    // kZqProbeReportMagic
  uint16_t version;  // kZqProbeReportVersion
  uint16_t result;   // ZqProbeResult
  uint32_t detail;   // as the result says, otherwise 0
  int32_t uniqueId;  // the effect's uniqueID once there is an effect, otherwise 0
  int32_t category;  // effGetPlugCategory once there is an effect, otherwise 0
};
static_assert(sizeof(ZqProbeReport) == 20, "the probe report is a wire record");

// The descriptor number at which ZqVstProbeModuleIsolated hands the probe
// its report socket.
constexpr int kZqProbeReportFd = 3;

// --- The host's side ---------------------------------------------------------

// The probe program: the value of the environment variable ZQ_PROBE_PATH when
// it is set (tests and unusual installations), otherwise "zqprobe" in the
// folder of the running program when it exists there, otherwise in the
// folder of the loaded library.  Empty when none of these can be told.
std::u16string ZqVstFindProbe();

#if !defined(_WIN32)
// The status that a probe's end means (see the table above).  `report` is
// null when the child sent none.
HRESULT ZqVstProbeStatus(const ZqChildOutcome& outcome, const ZqProbeReport* report);
#endif

// Probes `modulePath` with the probe found by ZqVstFindProbe, asking a shell
// for id 0, and waits at most `timeLimitMs` (INFINITE: without limit).
HRESULT ZqVstProbeModuleIsolated(const WCHAR* modulePath, DWORD timeLimitMs);

// The same with the probe program given (null: ZqVstFindProbe), the plug-in
// id for a shell and, when `report` is not null, the probe's report (zeroed
// when it sent none).
HRESULT ZqVstProbeModuleIsolatedEx(const WCHAR* probePath, const WCHAR* modulePath, LONG id,
                                   DWORD timeLimitMs, ZqProbeReport* report);
