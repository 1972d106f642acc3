// Guarded calls: faults at each place the misbehaving modules offer become
// the specified answers and the plug-in stays usable; the exception filter;
// the trace formats and opcode names.
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "aplugins/zqvstwrap/host/zqvstdispatch.h"
#include "platform/file.h"
#include "vsthost_fixture.h"

using namespace zqtest;
using ::testing::HasSubstr;

namespace {

TEST(DispatchFaults, FaultingOpcodeAnswersMinusOneAndTheNextCallWorks) {
  setenv("ZQBAD_FAULT_OPCODE", "47", 1);  // effGetVendorString
  Loaded effect("zqbad_opcode_fault");
  ASSERT_EQ(effect.hr, S_OK);
  WCHAR text[64] = u"stale";
  EXPECT_EQ(effect->GetVendorString(text, 64), S_OK);
  EXPECT_EQ(text[0], 0);  // the buffer stays clear after a fault
  EXPECT_EQ(effect->Dispatch(effGetVendorString, 0, 0, nullptr), -1);
  EXPECT_EQ(effect->GetEffectName(text, 64), S_OK);
  EXPECT_EQ(Narrow(text), "ZqBad e");
  unsetenv("ZQBAD_FAULT_OPCODE");
}

TEST(DispatchFaults, FaultsInGetParameterAndThrowsAreAnswersToo) {
  Loaded effect("zqbad_getparam_fault");
  ASSERT_EQ(effect.hr, S_OK);
  float value = 0.7f;
  for (int call = 0; call < 2; ++call) {  // called again, faults again
    EXPECT_EQ(effect->GetParameter(0, &value), ZQ_E_EXCEPTION);
    EXPECT_EQ(value, 0.0f);
  }
  EXPECT_EQ(effect->SetParameter(0, 0.5f), S_OK);

  setenv("ZQBAD_THROW_OPCODE", "49", 1);  // effGetVendorVersion
  Loaded throwing("zqbad_throw");
  ASSERT_EQ(throwing.hr, S_OK);
  VstEffectInfo info;
  EXPECT_EQ(throwing->GetEffectInfo(&info), S_OK);
  EXPECT_EQ(info.vendorVersion, -1);
  EXPECT_EQ(info.numInputs, 2);
  unsetenv("ZQBAD_THROW_OPCODE");
}

TEST(ExceptionFilter, AnswersByCode) {
  auto ask = [](DWORD code) {
    EXCEPTION_RECORD record{};
    record.ExceptionCode = code;
    CONTEXT context{};
    EXCEPTION_POINTERS pointers{&record, &context};
    return ZqVstExceptionFilter(&pointers, FALSE, nullptr, nullptr);
  };
  EXPECT_EQ(ask(ZQ_EXCEPTION_STOP_WORKER), EXCEPTION_CONTINUE_SEARCH);
  EXPECT_EQ(ask(EXCEPTION_CPP), EXCEPTION_EXECUTE_HANDLER);
  EXPECT_EQ(ask(EXCEPTION_INT_DIVIDE_BY_ZERO), EXCEPTION_EXECUTE_HANDLER);

  // Access violations and float faults reset the floating-point state.
  for (DWORD code : {EXCEPTION_ACCESS_VIOLATION, EXCEPTION_FLT_DIVIDE_BY_ZERO, EXCEPTION_FLT_UNDERFLOW, 0xC00002B5u}) {
    ZqFloatingPointState odd{0x27F, 0x9FC0};  // double precision, flush to zero, round down
    const ZqFloatingPointState saved = ZqGetFloatingPointState();
    ZqSetFloatingPointState(odd);
    EXPECT_EQ(ask(code), EXCEPTION_EXECUTE_HANDLER);
    const ZqFloatingPointState after = ZqGetFloatingPointState();
    ZqSetFloatingPointState(saved);
    EXPECT_EQ(after.x87Control, 0x37F) << std::hex << code;
    EXPECT_EQ(after.mxcsr & 0xFFC0u, 0x1F80u) << std::hex << code;
  }
  // Other codes leave it alone.
  const ZqFloatingPointState saved = ZqGetFloatingPointState();
  ZqSetFloatingPointState({0x27F, 0x9FC0});
  ask(EXCEPTION_CPP);
  const ZqFloatingPointState after = ZqGetFloatingPointState();
  ZqSetFloatingPointState(saved);
  EXPECT_EQ(after.mxcsr & 0xFFC0u, 0x9FC0u);
}

TEST(ExceptionFilter, StopSignalPassesEveryPluginGuard) {
  bool innerHandled = false;
  DWORD outer = ZqGuardedAll([&] {
    DWORD inner = ZqVstGuarded([] { ZqRaiseException(ZQ_EXCEPTION_STOP_WORKER, EXCEPTION_NONCONTINUABLE, 0, nullptr); });
    innerHandled = inner != 0;
  });
  EXPECT_EQ(outer, ZQ_EXCEPTION_STOP_WORKER);
  EXPECT_FALSE(innerHandled);
  // Any other raised code stays in the plug-in guard.
  EXPECT_EQ(ZqVstGuarded([] { ZqRaiseException(0xE0000002, EXCEPTION_NONCONTINUABLE, 0, nullptr); }), 0xE0000002u);
}

TEST(Trace, OpcodeNameTables) {
  const struct {
    const char* (*table)(VstInt32);
    VstInt32 opcode;
    const char* name;
  } rows[] = {{ZqVstDispatcherOpcodeName, effOpen, "effOpen"},
              {ZqVstDispatcherOpcodeName, effShellGetNextPlugin, "effShellGetNextPlugin"},
              {ZqVstDispatcherOpcodeName, 77, "effNumV2_3Opcodes"},
              {ZqVstDispatcherOpcodeName, 78, "<unknown>"},
              {ZqVstDispatcherOpcodeName, -1, "<unknown>"},
              {ZqVstCallbackOpcodeName, 5, "S_NULL"},
              {ZqVstCallbackOpcodeName, 49, "audioMasterGetInputSpeakerArrangement"},
              {ZqVstCallbackOpcodeName, 50, "<unknown>"}};
  for (const auto& row : rows) EXPECT_STREQ(row.table(row.opcode), row.name) << row.opcode;
}

TEST(Trace, LineFormats) {
  char line[1024];
  ZqVstFormatDispatch(line, sizeof line, effSetBlockSize, 3, 512, reinterpret_cast<void*>(0x1F), 0.5f, 7, FALSE);
  EXPECT_STREQ(line, "VstDispatch(effSetBlockSize, index=3, value=512, ptr=0x1f, opt=0.500000) returned (7)");
  ZqVstFormatDispatch(line, sizeof line, effSetProgramName, 0, 0, u"Piano \u00e9", 0.0f, 1, TRUE);
  EXPECT_STREQ(line, "VstDispatch(effSetProgramName, index=0, value=0, ptr=\"Piano \xc3\xa9\", opt=0.000000) returned (1)");
  ZqVstFormatCallback(line, sizeof line, audioMasterGetTime, 0, 0x100, nullptr, 0.0f, 0);
  EXPECT_STREQ(line, "VstCallback(audioMasterGetTime, index=0, value=256, ptr=0x0, opt=0.000000) returned (0)");
  ZqVstFormatCallback(line, sizeof line, 60, 1, -1, nullptr, 1.0f, -1);
  EXPECT_STREQ(line, "VstCallback(<unknown>, index=1, value=-1, ptr=0x0, opt=1.000000) returned (-1)");
  // Long text is cut with the line.
  std::u16string longText(2000, u'x');
  ZqVstFormatDispatch(line, sizeof line, effSetProgramName, 0, 0, longText.c_str(), 0.0f, 1, TRUE);
  EXPECT_LE(strlen(line), 1023u);
  EXPECT_EQ(std::string(line).rfind("VstDispatch(effSetProgramName, index=0, value=0, ptr=\"xxxx", 0), 0u);
}

TEST(Trace, EffectWithALogWritesDispatchesFaultsAndCallbacks) {
  const std::string path = std::string(ZQ_BINARY_DIR) + "/vsthost_trace_test.log";
  const std::u16string widePath = ZqUtf8ToUtf16(path);
  DeleteFileW(widePath.c_str());
  setenv("ZQBAD_FAULT_OPCODE", "47", 1);
  {
    CLog log;
    ASSERT_EQ(log.Init(widePath.c_str(), ZQLOG_ERROR | ZQLOG_WARNING | ZQLOG_INFO | ZQLOG_SOURCE, 0, 0), S_OK);
    Loaded effect("zqbad_opcode_fault");
    ASSERT_EQ(effect.hr, S_OK);
    effect->SetLog(&log);
    WCHAR text[64];
    effect->GetVendorString(text, 64);
    effect->SetBlockSize(256);
    // A plug-in's own -1 is an answer, not a fault.
    EXPECT_EQ(effect->Dispatch(effCanDo, 0, 0, const_cast<char*>("receiveVstEvents")), -1);
    effect->Idle();  // effIdle is never written
    effect->SetLog(nullptr);
  }
  unsetenv("ZQBAD_FAULT_OPCODE");
  std::ifstream in(path);
  const std::string text{std::istreambuf_iterator<char>(in), {}};
  EXPECT_THAT(text, HasSubstr("WARN    zqvsteffect("));
  EXPECT_THAT(text, HasSubstr("EXCEPTION from VstDispatch(effGetVendorString, index=0, value=0, ptr=\"\", "
                              "opt=0.000000) returned (-1)\n"));
  EXPECT_THAT(text, HasSubstr("INFO    zqvsteffect("));
  EXPECT_THAT(text, HasSubstr("VstDispatch(effSetBlockSize, index=0, value=256, ptr=0x0, opt=0.000000) returned (0)\n"));
  EXPECT_THAT(text, HasSubstr("VstDispatch(effCanDo, index=0, value=0, ptr=0x"));
  EXPECT_EQ(text.find("EXCEPTION from VstDispatch(effCanDo"), std::string::npos);
  EXPECT_EQ(text.find("effIdle"), std::string::npos);
  DeleteFileW(widePath.c_str());
}

}  // namespace
