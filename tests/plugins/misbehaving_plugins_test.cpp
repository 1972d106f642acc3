// The misbehaving modules misbehave where they say they do, and only there:
// each fault is caught by the platform's guard and the module works
// otherwise.
#include <gtest/gtest.h>

#include "base/status.h"
#include "platform/guard.h"
#include "tests/plugins/plugin_host.h"

namespace {

using zqtest::Id;
using zqtest::Plugin;

template <typename Body>
DWORD Guarded(Body&& body) {
  return ZqGuardedAll(body);
}

TEST(MisbehavingPlugins, EntryPointsThatGiveNoUsableEffect) {
  {
    Plugin p("zqbad_null_entry.so", false);
    EXPECT_EQ(nullptr, p.effect());
  }
  {
    Plugin p("zqbad_magic.so", false);
    ASSERT_NE(nullptr, p.effect());
    EXPECT_NE(kEffectMagic, p.effect()->magic);
    EXPECT_FALSE(p.ok());
    // Harmless should a host call it all the same.
    EXPECT_EQ(0, p.effect()->dispatcher(p.effect(), effClose, 0, 0, nullptr, 0.0f));
  }
}

TEST(MisbehavingPlugins, FaultsComeOnlyFromTheNamedCall) {
  {
    Plugin p("zqbad_process_fault.so");
    ASSERT_TRUE(p.ok());
    EXPECT_EQ("Ostrand", p.Text(effGetVendorString));
    float a[4] = {}, b[4] = {};
    float* planes[2] = {a, b};
    for (int i = 0; i < 2; ++i)
      EXPECT_EQ(EXCEPTION_ACCESS_VIOLATION,
                Guarded([&] { p.effect()->processReplacing(p.effect(), planes, planes, 4); }));
    EXPECT_EQ(1.0f, p.Get(0));
  }
  {
    Plugin p("zqbad_getparam_fault.so");
    ASSERT_TRUE(p.ok());
    p.Set(0, 0.5f);
    EXPECT_EQ(EXCEPTION_ACCESS_VIOLATION, Guarded([&] { p.Get(0); }));
    EXPECT_EQ("ZqBad d", p.Text(effGetEffectName));
  }
  {
    Plugin p("zqbad_opcode_fault.so");
    ASSERT_TRUE(p.ok());
    EXPECT_EQ("ZqBad e", p.Text(effGetEffectName));
    EXPECT_EQ(EXCEPTION_ACCESS_VIOLATION, Guarded([&] { p.Text(effGetVendorString); }));
    EXPECT_EQ("ZqVstWrap Test Plug-ins", p.Text(effGetProductString));
  }
  {
    Plugin p("zqbad_open_fault.so", false);
    ASSERT_TRUE(p.ok());
    EXPECT_EQ(EXCEPTION_ACCESS_VIOLATION, Guarded([&] { p.Call(effOpen); }));
    EXPECT_EQ(Id("ZqBb"), p.effect()->uniqueID);
    EXPECT_EQ(0u, Guarded([&] { p.Close(); }));
  }
}

TEST(MisbehavingPlugins, ThrowingModuleThrowsFromOpenOnly) {
  Plugin p("zqbad_throw.so", false);
  ASSERT_TRUE(p.ok());
  EXPECT_EQ(EXCEPTION_CPP, Guarded([&] { p.Call(effOpen); }));
  EXPECT_EQ(0u, Guarded([&] { p.Call(effMainsChanged, 0, 1); }));
  float a[4] = {0.5f, 0.5f, 0.5f, 0.5f}, b[4] = {};
  float* in[2] = {a, a};
  float* out[2] = {b, b};
  EXPECT_EQ(0u, Guarded([&] { p.effect()->processReplacing(p.effect(), in, out, 4); }));
  EXPECT_EQ(0.5f, b[3]);
  EXPECT_EQ(0u, Guarded([&] { p.Close(); }));
}

}  // namespace
