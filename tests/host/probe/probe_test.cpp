// Every misbehaving module probed in a child: hangs and ends of the process
// become statuses, and the loader's and the guard's answers come back as
// they do in process.
#include <gtest/gtest.h>

#include <string>

#include "aplugins/zqvstwrap/host/zqvstprobe.h"
#include "tests/host/probe/isolation_fixture.h"

namespace {

using zqtest::PluginPath;

constexpr DWORD kLimitMs = 2000;
// Generous for modules that end by themselves: reaching it is a failure.
constexpr DWORD kNoHangMs = 60000;

HRESULT Probe(const char* name, LONG id = 0, ZqProbeReport* report = nullptr, DWORD limit = kNoHangMs) {
  return ZqVstProbeModuleIsolatedEx(nullptr, PluginPath(name).c_str(), id, limit, report);
}

TEST(ProbeIsolated, HangsAreKilledAtTheLimit) {
  // One through the platform function, to see how the child ended.
  const std::string probe = zqtest::ProbePath8();
  const std::string module = zqtest::PluginPath8("zqbad_entry_hang");
  const char* argv[] = {"zqprobe", "--quiet", module.c_str(), nullptr};
  ZqChildOutcome outcome{};
  ASSERT_TRUE(ZqRunChildWithTimeLimit(probe.c_str(), argv, kLimitMs, nullptr, &outcome));
  EXPECT_EQ(outcome.end, ZqChildEnd::KilledAtLimit);
  EXPECT_EQ(ZqVstProbeStatus(outcome, nullptr), ZQ_E_CANCELLED);

  ZqProbeReport report;
  EXPECT_EQ(Probe("zqbad_open_hang", 0, &report, kLimitMs), ZQ_E_CANCELLED);
  EXPECT_EQ(report.magic, 0u) << "no report from a killed probe";
}

TEST(ProbeIsolated, ModulesThatEndOrFaultAnswerException) {
  ZqProbeReport report;
  EXPECT_EQ(Probe("zqbad_open_exit", 0, &report), ZQ_E_EXCEPTION) << "exit(7) in effOpen";
  EXPECT_EQ(report.magic, 0u);

  EXPECT_EQ(Probe("zqbad_entry_fault", 0, &report), ZQ_E_EXCEPTION);
  EXPECT_EQ(report.result, kZqProbeFault);
  EXPECT_EQ(report.detail, EXCEPTION_ACCESS_VIOLATION);

  // A fault or a throw in effOpen is an ordinary answer, as in process.
  EXPECT_EQ(Probe("zqbad_open_fault", 0, &report), S_OK);
  EXPECT_EQ(report.result, kZqProbeOpenedWithFault);
  EXPECT_EQ(report.detail, EXCEPTION_ACCESS_VIOLATION);
  EXPECT_EQ(Probe("zqbad_throw", 0, &report), S_OK);
  EXPECT_EQ(report.detail, EXCEPTION_CPP);
}

TEST(ProbeIsolated, LoaderAnswersComeBackAsStatuses) {
  ZqProbeReport report;
  EXPECT_EQ(Probe("zqgain", 0, &report), S_OK);
  EXPECT_EQ(report.result, kZqProbeOpened);
  EXPECT_EQ(report.uniqueId, ZqVstFourCC("ZqGn"));
  EXPECT_EQ(report.category, kPlugCategEffect);

  EXPECT_EQ(Probe("zqbad_not_elf"), HRESULT_FROM_WIN32(ERROR_BAD_EXE_FORMAT));
  EXPECT_EQ(Probe("zqbad_no_entry"), HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND));
  EXPECT_EQ(Probe("zqbad_missing_dep"), HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND));
  EXPECT_EQ(Probe("zqbad_null_entry"), E_INVALIDARG);
  EXPECT_EQ(Probe("zqbad_magic", 0, &report), E_INVALIDARG);
  EXPECT_EQ(report.detail, static_cast<uint32_t>(ZqVstFourCC("VstQ")));
  EXPECT_EQ(Probe("zqtest_synth", 0, &report), S_OK) << "entered at main";
}

TEST(ProbeIsolated, ShellsAnswerForTheIdAskedFor) {
  ZqProbeReport report;
  EXPECT_EQ(Probe("zqtest_shell", 0, &report), ZQ_S_IS_SHELL);
  EXPECT_EQ(report.category, kPlugCategShell);
  EXPECT_EQ(Probe("zqtest_shell", ZqVstFourCC("ZqS2"), &report), S_OK);
  EXPECT_EQ(report.uniqueId, ZqVstFourCC("ZqS2"));
  // An id the shell does not know gives its container...
  EXPECT_EQ(Probe("zqtest_shell", ZqVstFourCC("Zzzz")), E_UNEXPECTED);
  // ...or, with the switch in the environment the probe inherits, nothing.
  zqtest::ScopedVariable unknownNull(u"ZQTEST_SHELL_UNKNOWN_NULL", u"1");
  EXPECT_EQ(Probe("zqtest_shell", ZqVstFourCC("Zzzz")), E_INVALIDARG);
}

TEST(ProbeIsolated, SwitchesReachTheProbeThroughTheEnvironment) {
  {
    zqtest::ScopedVariable openFaults(u"ZQBAD_FAULT_OPCODE", u"0");
    ZqProbeReport report;
    EXPECT_EQ(Probe("zqbad_opcode_fault", 0, &report), S_OK);
    EXPECT_EQ(report.result, kZqProbeOpenedWithFault);
  }
  ZqProbeReport report;
  EXPECT_EQ(Probe("zqbad_opcode_fault", 0, &report), S_OK);
  EXPECT_EQ(report.result, kZqProbeOpened) << "by default it faults on effGetVendorString only";
}

// What only a report can tell: the module ending the process with a status
// of its own choosing, before or after the probe's report.
TEST(ProbeIsolated, StatusTrustsTheReportOnlyWhenTheChildEndedWithIt) {
  ZqChildOutcome exited{ZqChildEnd::Exited, 0, 0, 1, 0};
  EXPECT_EQ(ZqVstProbeStatus(exited, nullptr), ZQ_E_EXCEPTION) << "exit(0) from a module";
  ZqProbeReport report{kZqProbeReportMagic, kZqProbeReportVersion, kZqProbeOpened, 0, 0, 0};
  EXPECT_EQ(ZqVstProbeStatus(exited, &report), S_OK);
  exited.exitCode = 7;
  EXPECT_EQ(ZqVstProbeStatus(exited, &report), ZQ_E_EXCEPTION) << "exit(7) after the report";
  ZqChildOutcome signalled{ZqChildEnd::DiedOfSignal, 0, 11, 1, 0};
  EXPECT_EQ(ZqVstProbeStatus(signalled, &report), ZQ_E_EXCEPTION) << "a fault after the report";
  exited.exitCode = kZqProbeLoadFailed;
  report.result = kZqProbeLoadFailed;
  report.detail = ERROR_BAD_EXE_FORMAT;
  EXPECT_EQ(ZqVstProbeStatus(exited, &report), HRESULT_FROM_WIN32(ERROR_BAD_EXE_FORMAT));
  report.version = kZqProbeReportVersion + 1;
  EXPECT_EQ(ZqVstProbeStatus(exited, &report), E_UNEXPECTED) << "a probe of another version";
}

TEST(ProbeIsolated, ProbeIsFoundNextToTheProgramOrWhereTheEnvironmentSays) {
  const std::u16string found = ZqVstFindProbe();
  EXPECT_EQ(ZqUtf16ToUtf8(found), zqtest::ProbePath8());
  EXPECT_EQ(ZqVstProbeModuleIsolated(PluginPath("zqgain").c_str(), kNoHangMs), S_OK);

  zqtest::ScopedVariable elsewhere(u"ZQ_PROBE_PATH", u"/nonexistent/zqprobe");
  EXPECT_EQ(ZqUtf16ToUtf8(ZqVstFindProbe()), "/nonexistent/zqprobe");
  EXPECT_EQ(ZqVstProbeModuleIsolated(PluginPath("zqgain").c_str(), kNoHangMs),
            HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND));
}

}  // namespace
