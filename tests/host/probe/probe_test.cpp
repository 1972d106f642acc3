// Every misbehaving module probed in a child: hangs and ends of the process
// become statuses, and the loader's and the guard's answers come back as
// they do in process.
#include <gtest/gtest.h>

#include <string>

#include "aplugins/zqvstwrap/host/zqvstprobe.h"
#include "aplugins/zqvstwrap/vst2abi.h"
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

// What each kind of module answers from the child, and what its report
// says (detail 0: not looked at).  A fault or a throw in effOpen is an
// ordinary answer, as in process; an exit in effOpen leaves no report.
TEST(ProbeIsolated, EveryKindOfModuleAnswersItsStatusAndReport) {
  const struct {
    const char* module;
    LONG id;
    const char16_t* faultOpcode;  // ZQBAD_FAULT_OPCODE, or null
    HRESULT status;
    int result;  // -1: no report
    uint32_t detail;
  } rows[] = {
      {"zqgain", 0, nullptr, S_OK, kZqProbeOpened, 0},
      {"zqtest_synth", 0, nullptr, S_OK, kZqProbeOpened, 0},  // entered at "main"
      {"zqbad_open_exit", 0, nullptr, ZQ_E_EXCEPTION, -1, 0},
      {"zqbad_entry_fault", 0, nullptr, ZQ_E_EXCEPTION, kZqProbeFault, EXCEPTION_ACCESS_VIOLATION},
      {"zqbad_open_fault", 0, nullptr, S_OK, kZqProbeOpenedWithFault, EXCEPTION_ACCESS_VIOLATION},
      {"zqbad_throw", 0, nullptr, S_OK, kZqProbeOpenedWithFault, EXCEPTION_CPP},
      {"zqbad_opcode_fault", 0, u"0", S_OK, kZqProbeOpenedWithFault, 0},  // the switch reaches the child
      {"zqbad_opcode_fault", 0, nullptr, S_OK, kZqProbeOpened, 0},
      {"zqbad_not_elf", 0, nullptr, HRESULT_FROM_WIN32(ERROR_BAD_EXE_FORMAT), kZqProbeLoadFailed, 0},
      {"zqbad_no_entry", 0, nullptr, HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND), kZqProbeNoEntry, 0},
      {"zqbad_missing_dep", 0, nullptr, HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND), kZqProbeLoadFailed, 0},
      {"zqbad_null_entry", 0, nullptr, E_INVALIDARG, kZqProbeNullEffect, 0},
      {"zqbad_magic", 0, nullptr, E_INVALIDARG, kZqProbeWrongMagic, static_cast<uint32_t>(ZqVstFourCC("VstQ"))},
      {"zqtest_shell", 0, nullptr, ZQ_S_IS_SHELL, kZqProbeShell, 0},
      {"zqtest_shell", ZqVstFourCC("ZqS2"), nullptr, S_OK, kZqProbeOpened, 0},
      {"zqtest_shell", ZqVstFourCC("Zzzz"), nullptr, E_UNEXPECTED, kZqProbeShellMismatch, 0},
  };
  zqtest::ScopedVariable defaultFault(u"ZQBAD_FAULT_OPCODE", nullptr);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.module);
    zqtest::ScopedVariable fault(u"ZQBAD_FAULT_OPCODE", row.faultOpcode);
    ZqProbeReport report;
    EXPECT_EQ(Probe(row.module, row.id, &report), row.status);
    if (row.result < 0) {
      EXPECT_EQ(report.magic, 0u);
      continue;
    }
    EXPECT_EQ(report.result, row.result);
    if (row.detail != 0) {
      EXPECT_EQ(report.detail, row.detail);
    }
  }
  ZqProbeReport report;
  ASSERT_EQ(Probe("zqgain", 0, &report), S_OK);
  EXPECT_EQ(report.uniqueId, ZqVstFourCC("ZqGn"));
  EXPECT_EQ(report.category, kPlugCategEffect);
  zqtest::ScopedVariable unknownNull(u"ZQTEST_SHELL_UNKNOWN_NULL", u"1");
  EXPECT_EQ(Probe("zqtest_shell", ZqVstFourCC("Zzzz")), E_INVALIDARG);
}

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
