#include "kernel/errorhandler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <thread>

#include "platform/guard.h"
#include "platform/thread.h"
#include "platform/text.h"
#include "tests/kernel/boxcapture.h"

namespace {

using Text = std::u16string;

class ErrorHandler : public ::testing::Test {
 protected:
  void SetUp() override { ZqErrorHandler_DetailsInit(); }
  void TearDown() override { ZqErrorHandler_DetailsInit(); }
  zqtest::BoxCapture capture_;
};

TEST_F(ErrorHandler, MessagesJoinTheContextAndTheStatus) {
  const Text longContext(1990, u'c');
  const Text hugeContext(3000, u'h');
  const struct {
    const char* what;
    UINT_PTR context;
    HRESULT status;
    const char16_t* argument;
    Text expected;
  } kCases[] = {
      {"context with its argument", 7, ZQ_E_DISK_FULL, u"a.wav",
       u"An error occurred while creating the media file a.wav.\n\n"
       u"The disk is full. Please free some space and try again."},
      {"a status without text", 0, static_cast<HRESULT>(0x8004E999), nullptr,
       u"An error occurred during the current operation.\n\nError 0x8004e999 (message missing)"},
      {"an unknown context takes row 0", 13, E_UNEXPECTED, nullptr,
       u"An error occurred during the current operation.\n\nAn unexpected error has occurred."},
      {"a text of its own, percent signs in the argument", reinterpret_cast<UINT_PTR>(u"Saving %s failed."),
       ZQ_E_BIT_DEPTH, u"100%d.wav", u"Saving 100%d.wav failed.The bit depth is not supported."},
      {"a long context leaves no room", reinterpret_cast<UINT_PTR>(longContext.c_str()), E_FAIL, nullptr, longContext},
      {"an overlong context is cut", reinterpret_cast<UINT_PTR>(hugeContext.c_str()), E_FAIL, nullptr,
       hugeContext.substr(0, ZQERR_MESSAGE_CHARS - 1)},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(Text(ZqErrorHandler_GetErrorMessage(c.context, c.status, c.argument)), c.expected) << c.what;
    BSTR composed = ZqErrorHandler_ComposeErrorText(c.context, c.status, c.argument);
    EXPECT_EQ(Text(composed, SysStringLen(composed)), c.expected) << c.what;
    SysFreeString(composed);
  }
}

TEST_F(ErrorHandler, RegisteredTablesComeFirstInOrderAndAreLimited) {
  static const _zqerror_table first[] = {{ZQ_E_DISK_FULL, u"first"}, {ZQ_E_BUSY, u"first busy"}};
  static const _zqerror_table second[] = {{ZQ_E_DISK_FULL, u"second"}, {ZQ_E_CORRUPT, u"second corrupt"}};
  static const _zqerror_table filler[] = {{static_cast<HRESULT>(0x8004E998), u"filler"}};
  ASSERT_EQ(ZqErrorHandler_AddErrorTable(first, 2), 0);
  ASSERT_EQ(ZqErrorHandler_AddErrorTableLang(nullptr, second, 2), 0);
  int added = 2;
  while (ZqErrorHandler_AddErrorTable(filler, 1) == 0) ++added;
  EXPECT_EQ(added, ZQERR_MAX_TABLES);  // (no other suite of this binary registers tables)
  EXPECT_EQ(ZqErrorHandler_AddErrorTable(second, 2), 1);
  EXPECT_EQ(Text(ZqErrorHandler_GetHresultString(ZQ_E_DISK_FULL)), u"first");
  EXPECT_EQ(Text(ZqErrorHandler_GetHresultString(ZQ_E_CORRUPT)), u"second corrupt");
  EXPECT_EQ(Text(ZqErrorHandler_GetHresultString(ZQ_E_CANCELLED)), u"\n\nThe operation was cancelled by the user.");
  EXPECT_EQ(ZqErrorHandler_GetHresultString(static_cast<HRESULT>(0x8004E997)), nullptr);
}

TEST_F(ErrorHandler, DetailLinesBelongToTheFirstThread) {
  EXPECT_EQ(ZqErrorHandler_DetailsInfo(nullptr, nullptr, nullptr), nullptr);
  ASSERT_EQ(ZqErrorHandler_DetailsAddString(ZQ_E_OPEN_FILE, u"File %s, size $d", u"a.wav", 1234), S_OK);
  HRESULT others[3] = {};
  std::thread([&] {
    others[0] = ZqErrorHandler_DetailsAddString(ZQ_E_BUSY, u"refused");
    others[1] = ZqErrorHandler_DetailsAddString(ZQ_E_OPEN_FILE, u"same status: taken");
    others[2] = ZqErrorHandler_DetailsAddString(ZQ_E_OPEN_FILE, nullptr);
  }).join();
  EXPECT_EQ(others[0], E_FAIL);
  EXPECT_EQ(others[1], S_OK);
  EXPECT_EQ(others[2], E_POINTER);
  HRESULT last = 0;
  INT count = 0;
  DWORD thread = 0;
  const Text details = ZqErrorHandler_DetailsInfo(&last, &count, &thread);
  EXPECT_EQ(details.substr(0, 9), u"File a.wa");
  EXPECT_NE(details.find(u"1,234\r\nsame status: taken\r\n"), Text::npos) << ZqUtf16ToUtf8(details);
  EXPECT_EQ(count, 2);
  EXPECT_EQ(last, ZQ_E_OPEN_FILE);
  EXPECT_EQ(thread, GetCurrentThreadId());
  EXPECT_EQ(ZqErrorHandler_GetLastError(), ZQ_E_OPEN_FILE);
}

TEST_F(ErrorHandler, ALineThatWouldPass16384BytesIsRefused) {
  const Text line(1000, u'x');  // 1002 characters with CR LF
  int accepted = 0;
  while (ZqErrorHandler_DetailsAddString(E_FAIL, line.c_str()) == S_OK) ++accepted;
  EXPECT_EQ(accepted, 8);  // a ninth would reach (9018 + 2) * 2 >= 16384
  INT count = 0;
  const Text details = ZqErrorHandler_DetailsInfo(nullptr, &count, nullptr);
  EXPECT_EQ(count, 8);
  EXPECT_EQ(details.size(), 8u * 1002);
  EXPECT_EQ(ZqErrorHandler_DetailsAddString(E_FAIL, u"short still fits"), S_OK);
}

TEST_F(ErrorHandler, BoxesCarryDetailsAndLinkAndClearTheRecord) {
  EXPECT_EQ(ZqErrorHandler_MsgBox(nullptr, 0, 0, ZQ_E_CANCELLED, nullptr, false), 1);
  EXPECT_TRUE(capture_.boxes().empty());

  ZqErrorHandler_DetailsAddString(ZQ_E_OPEN_FILE, u"line one");
  ZqErrorHandler_DetailsSetHyperlink(u"https://example.invalid/help", u"Help");
  EXPECT_EQ(ZqErrorHandler_DetailsSetHyperlink(nullptr, u"x"), E_POINTER);
  BSTR composed = ZqErrorHandler_ComposeErrorText(22, ZQ_E_OPEN_FILE, nullptr);
  EXPECT_NE(Text(composed).find(u"\r\n<Details>\r\nline one\r\n\r\n</Details>"), Text::npos);
  SysFreeString(composed);

  EXPECT_EQ(ZqErrorHandler_MsgBox(nullptr, ZQMB_YESNO, 22, ZQ_E_OPEN_FILE, nullptr, true), 7);
  ASSERT_EQ(capture_.boxes().size(), 1u);
  const zqtest::CapturedBox& box = capture_.boxes()[0];
  EXPECT_EQ(box.flags, ZQMB_YESNO | ZQMB_DETAILS);
  EXPECT_EQ(box.text.substr(0, 9), u"Warning: ");
  EXPECT_NE(box.text.find(u"<Details>\r\nline one"), Text::npos);
  EXPECT_EQ(ZqErrorHandler_DetailsInfo(nullptr, nullptr, nullptr), nullptr);

  // Without details the pane is off even when the caller asked for it.
  ZqErrorHandler_MsgBoxText(nullptr, ZQMB_DETAILS | ZQMB_OK, u"plain 100%", false);
  EXPECT_EQ(capture_.boxes()[1].flags, ZQMB_OK);
  EXPECT_EQ(capture_.boxes()[1].text, u"plain 100%");
}

TEST(ErrorNumbers, PlatformAndDialogNumbersBecomeStatuses) {
  const struct { DWORD code; uint32_t status; } kWin32[] = {
      {0, 0}, {2, 0x8004E00A}, {3, 0x8004E00A}, {5, 0x80070005}, {32, 0x8004E05A}, {80, 0x8004E032},
                {112, 0x8004E002}, {123, 0x8004E00D}, {183, 0x8004E170}, {87, 0x80004005}, {99999, 0x80004005}};
  for (const auto& c : kWin32)
    EXPECT_EQ(static_cast<uint32_t>(ZqErrorHandler_TranslateWin32Error(c.code)), c.status) << c.code;
  const struct { DWORD code; uint32_t status; } kDialog[] = {
      {0, 0}, {0xFFFF, 0x80070057}, {0x3001, 0x8007000E}, {6, 0x8004E00E}, {0x3002, 0x8004E00D}, {12, 0x80004005}};
  for (const auto& c : kDialog)
    EXPECT_EQ(static_cast<uint32_t>(ZqErrorHandler_TranslateCommDlgError(c.code)), c.status) << c.code;
}

TEST(ErrorDump, HexLinesMarkWhatCannotBeRead) {
  const char bytes[] = "AB\x01\x7f" "cdefghij";
  char out[512] = "";
  const int n = ZqErrorHandler_DumpHex(out, sizeof out, bytes, 10);
  const std::string text = out;
  EXPECT_EQ(n, static_cast<int>(text.size()));
  EXPECT_NE(text.find(": 41 42 01 7F 63 64 65 66 AB..cdef\r\n"), std::string::npos) << text;
  EXPECT_NE(text.find(": 67 68                   gh\r\n"), std::string::npos) << text;
  char unreadable[128] = "";
  ZqErrorHandler_DumpHexDWords(unreadable, sizeof unreadable, nullptr, 8);
  EXPECT_NE(std::string(unreadable).find("........ ........"), std::string::npos) << unreadable;
  char small[60] = "";
  ZqErrorHandler_DumpHex(small, sizeof small, bytes, 64);  // stops when fewer than 50 bytes remain
  EXPECT_EQ(std::count(small, small + std::strlen(small), '\n'), 1);
}

TEST(ErrorDump, AFaultIsReportedWithItsModuleRegistersAndStack) {
  static char report[4096];
  static volatile uintptr_t unmapped = 0x10;
  report[0] = 0;
  const DWORD code = ZqGuarded(
      [] { *reinterpret_cast<volatile int*>(unmapped) = 1; },
      [](EXCEPTION_POINTERS* p) {
        ZqErrorHandler_DumpExceptionRecord(report, sizeof report, u"worker", p, 0);
        return EXCEPTION_EXECUTE_HANDLER;
      });
  ASSERT_EQ(code, EXCEPTION_ACCESS_VIOLATION);
  const std::string text = report;
  for (const char* part : {"Exception 0xC0000005 (access violation) WRITE:0x", "In Module '",
                           "zq_kernel_tests' at Address 0x",
                           "Thread: worker ID=0x", "Registers:\r\n RAX=", "Bytes at CS:EIP:\r\n", "Stack Dump:\r\n"})
    EXPECT_NE(text.find(part), std::string::npos) << part << "\n" << text;
  EXPECT_STREQ(ZqErrorHandler_ExceptionName(0x12345678), "Unknown Type");
}

TEST(ErrorDump, TheFilterShowsTheDumpAsDetails) {
  ZqErrorHandler_DetailsInit();
  zqtest::BoxCapture capture(1);
  EXCEPTION_RECORD record{};
  record.ExceptionCode = EXCEPTION_INT_DIVIDE_BY_ZERO;
  CONTEXT context{};
  EXCEPTION_POINTERS pointers{&record, &context};
  EXPECT_EQ(ZqErrorHandler_ExceptionFilter(&pointers, u"main"), 1);
  ASSERT_EQ(capture.boxes().size(), 1u);
  const Text& text = capture.boxes()[0].text;
  EXPECT_EQ(text.rfind(u"An error occurred during the current operation.\n\nAn Exception has occurred.", 0), 0u);
  EXPECT_NE(text.find(u"<Details>\r\nTest App\r\nException 0xC0000094 (integer divide by zero)"), Text::npos);
  EXPECT_EQ(capture.boxes()[0].owner, nullptr);
  EXPECT_EQ(capture.boxes()[0].flags, 48u | ZQMB_DETAILS);
  EXPECT_EQ(ZqErrorHandler_ShowException(&pointers, u"main", nullptr), 1);
  ASSERT_EQ(capture.boxes().size(), 2u);
  EXPECT_NE(capture.boxes()[1].text.find(u"<Details>\r\nUnknown plug-in\r\nException 0xC0000094"), Text::npos);
  record.ExceptionCode = EXCEPTION_DATATYPE_MISALIGNMENT;
  EXPECT_EQ(ZqErrorHandler_ExceptionFilter(&pointers, u"main"), 0);
  EXPECT_EQ(capture.boxes().size(), 2u);
}

}  // namespace
