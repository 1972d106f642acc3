// The environment functions, and the switches through which the test
// plug-ins read it: each changes the module's behaviour as documented, and
// is read at each call.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "tests/host/probe/isolation_fixture.h"

namespace {

using zqtest::RawEffect;
using zqtest::ScopedVariable;

TEST(Environment, GetAndSetFollowTheOriginalsRules) {
  ScopedVariable cleared(u"ZQ_ENV_TEST", nullptr);
  WCHAR buffer[16];
  SetLastError(0);
  EXPECT_EQ(GetEnvironmentVariableW(u"ZQ_ENV_TEST", buffer, 16), 0u);
  EXPECT_EQ(GetLastError(), ERROR_ENVVAR_NOT_FOUND);

  // Non-ASCII text survives, and foreign code sees it as UTF-8.
  ASSERT_TRUE(SetEnvironmentVariableW(u"ZQ_ENV_TEST", u"gr\u00FC\u00DFe \U0001F600"));
  const char* narrow = std::getenv("ZQ_ENV_TEST");
  ASSERT_NE(narrow, nullptr);
  EXPECT_STREQ(narrow, "gr\xC3\xBC\xC3\x9F" "e \xF0\x9F\x98\x80");
  EXPECT_EQ(GetEnvironmentVariableW(u"ZQ_ENV_TEST", buffer, 16), 8u);
  EXPECT_EQ(std::u16string(buffer), u"gr\u00FC\u00DFe \U0001F600");

  // Too small: the size needed with the terminating zero, buffer untouched.
  buffer[0] = u'#';
  EXPECT_EQ(GetEnvironmentVariableW(u"ZQ_ENV_TEST", buffer, 8), 9u);
  EXPECT_EQ(buffer[0], u'#');
  EXPECT_EQ(GetEnvironmentVariableW(u"ZQ_ENV_TEST", nullptr, 0), 9u);

  // Empty is there, but answers 0 like a missing one: the last error tells.
  ASSERT_TRUE(SetEnvironmentVariableW(u"ZQ_ENV_TEST", u""));
  SetLastError(ERROR_GEN_FAILURE);
  EXPECT_EQ(GetEnvironmentVariableW(u"ZQ_ENV_TEST", buffer, 16), 0u);
  EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
  EXPECT_EQ(buffer[0], 0);

  EXPECT_TRUE(SetEnvironmentVariableW(u"ZQ_ENV_TEST", nullptr));
  EXPECT_EQ(std::getenv("ZQ_ENV_TEST"), nullptr);
  EXPECT_TRUE(SetEnvironmentVariableW(u"ZQ_ENV_TEST", nullptr)) << "removing what is gone";

  for (const char16_t* bad : {u"", u"A=B", u"=C"}) {
    EXPECT_FALSE(SetEnvironmentVariableW(bad, u"x"));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  }
}

TEST(PluginSwitches, FaultOpcodeChoosesTheFaultingCall) {
  ScopedVariable unset(u"ZQBAD_FAULT_OPCODE", nullptr);
  RawEffect e("zqbad_opcode_fault");
  ASSERT_NE(e.effect(), nullptr);
  EXPECT_EQ(e.FaultOf(effGetVendorString), EXCEPTION_ACCESS_VIOLATION) << "default 47";
  EXPECT_EQ(e.FaultOf(effGetEffectName), 0u);

  // Decimal and hexadecimal forms, read at each call.
  for (const char16_t* form : {u"49", u"0x31"}) {
    ScopedVariable chosen(u"ZQBAD_FAULT_OPCODE", form);
    EXPECT_EQ(e.FaultOf(effGetVendorString), 0u);
    EXPECT_EQ(e.FaultOf(effGetVendorVersion), EXCEPTION_ACCESS_VIOLATION);
  }
  for (const char16_t* never : {u"none", u""}) {
    ScopedVariable off(u"ZQBAD_FAULT_OPCODE", never);
    EXPECT_EQ(e.FaultOf(effGetVendorString), 0u);
  }
  // The module works on after its faults.
  EXPECT_EQ(e.Call(effGetVendorVersion), 1000);
}

TEST(PluginSwitches, ThrowOpcodeAndThrowProcess) {
  ScopedVariable opcodeUnset(u"ZQBAD_THROW_OPCODE", nullptr);
  ScopedVariable processUnset(u"ZQBAD_THROW_PROCESS", nullptr);
  RawEffect e("zqbad_throw");
  ASSERT_NE(e.effect(), nullptr);
  EXPECT_EQ(e.FaultOf(effOpen), EXCEPTION_CPP) << "default effOpen";
  {
    ScopedVariable none(u"ZQBAD_THROW_OPCODE", u"none");
    EXPECT_EQ(e.FaultOf(effOpen), 0u);
  }
  {
    ScopedVariable version(u"ZQBAD_THROW_OPCODE", u"49");
    EXPECT_EQ(e.FaultOf(effGetVendorVersion), EXCEPTION_CPP);
    EXPECT_EQ(e.FaultOf(effOpen), 0u);
  }

  std::vector<float> left(8, 0.5f), right(8, -0.25f), outLeft(8), outRight(8);
  float* in[2] = {left.data(), right.data()};
  float* out[2] = {outLeft.data(), outRight.data()};
  EXPECT_EQ(e.Process(in, out, 8), 0u);
  EXPECT_EQ(outRight[7], -0.25f) << "passes audio through without the switch";
  {
    ScopedVariable throwing(u"ZQBAD_THROW_PROCESS", u"1");
    EXPECT_EQ(e.Process(in, out, 8), EXCEPTION_CPP);
  }
}

// The ids a shell lists, up to `max` of them or its 0.
std::vector<int32_t> ListShell(RawEffect& shell, int max) {
  std::vector<int32_t> ids;
  shell.Call(effVendorSpecific, kZqVstShellScanIndex, kZqVstShellScanStart);
  for (int i = 0; i < max; ++i) {
    char name[260] = {};
    const intptr_t id = shell.Call(effShellGetNextPlugin, 0, 0, name);
    EXPECT_EQ(shell.fault(), 0u);
    if (id == 0) break;
    ids.push_back(static_cast<int32_t>(id));
  }
  return ids;
}

TEST(PluginSwitches, ShellRepeatAndEndless) {
  ScopedVariable repeatUnset(u"ZQTEST_SHELL_REPEAT", nullptr);
  ScopedVariable endlessUnset(u"ZQTEST_SHELL_ENDLESS", nullptr);
  const int32_t s1 = ZqVstFourCC("ZqS1"), s2 = ZqVstFourCC("ZqS2"), s3 = ZqVstFourCC("ZqS3");
  {
    RawEffect shell("zqtest_shell");
    ASSERT_NE(shell.effect(), nullptr);
    EXPECT_EQ(ListShell(shell, 100), (std::vector<int32_t>{s1, s2, s3}));
  }
  {
    ScopedVariable repeat(u"ZQTEST_SHELL_REPEAT", u"1");
    RawEffect shell("zqtest_shell");
    EXPECT_EQ(ListShell(shell, 100), (std::vector<int32_t>{s1, s1, s2, s2, s3, s3}));
  }
  {
    RawEffect shell("zqtest_shell");
    std::vector<int32_t> ids;
    {
      ScopedVariable endless(u"ZQTEST_SHELL_ENDLESS", u"1");
      ids = ListShell(shell, 500);
    }
    ASSERT_EQ(ids.size(), 500u) << "never ends";
    for (size_t i = 1; i < ids.size(); ++i) ASSERT_NE(ids[i], ids[i - 1]) << i;
    // Read at each call: without the switch the list has run out.
    char name[260] = {};
    EXPECT_EQ(shell.Call(effShellGetNextPlugin, 0, 0, name), 0);
  }
}

}  // namespace
