// The English texts of status codes.
#include "base/statustext.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "base/status.h"
#include "mediafw/codes.h"

namespace {

std::string Text(HRESULT status) {
  const char* text = ZqStatusText(status);
  return text ? text : "(null)";
}

TEST(StatusText, SystemCodesCarryTheMessageTableTexts) {
  EXPECT_EQ(Text(ZQ_E_BAD_FILE), "The file is most likely corrupted or of an unknown format.");
  EXPECT_EQ(Text(ZQ_E_EXCEPTION), "An Exception has occurred.");
  EXPECT_EQ(Text(ZQ_S_IS_SHELL), "This feature is not configured properly.");
  // Texts that keep their inner line breaks.
  EXPECT_EQ(Text(ZQ_E_INPUT_CHANNELS),
            "An incorrect number of audio input channels were specified\n\n"
            "(for example, must be 2 if stereo music is selected).");
  // The host's name, which a message box fills in, is not known here.
  EXPECT_EQ(Text(ZQ_E_MISSING_RESOURCE),
            "A necessary resource is missing. You should re-install the application as the application file appears "
            "to be corrupted.");
  // Generic codes the message table lists keep its texts.
  EXPECT_EQ(Text(E_FAIL), "The reason for the error could not be determined.");
  EXPECT_EQ(Text(E_INVALIDARG), "An invalid argument was specified.");
}

TEST(StatusText, OtherCodesCarryThePlatformTexts) {
  EXPECT_EQ(Text(CLASS_E_CLASSNOTAVAILABLE), "ClassFactory cannot supply requested class");
  EXPECT_EQ(Text(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND)), "The system cannot find the file specified.");
  EXPECT_EQ(Text(HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND)), "The specified module could not be found.");
  EXPECT_EQ(Text(HRESULT_FROM_WIN32(ERROR_BAD_EXE_FORMAT)), "The file is not a valid application for this machine.");
  EXPECT_EQ(Text(ZQ_E_RPC_CALL_FAILED), "The RPC server is unavailable.");
  EXPECT_EQ(Text(VFW_E_NOT_CONNECTED), "The operation cannot be performed because the pins are not connected.");
  EXPECT_EQ(Text(VFW_S_NO_MORE_ITEMS), "The end of the list has been reached.");
}

TEST(StatusText, CodesWithoutATextGiveNull) {
  EXPECT_EQ(ZqStatusText(ZQ_S_KNOWN), nullptr);
  EXPECT_EQ(ZqStatusText(S_FALSE), nullptr);
  EXPECT_EQ(ZqStatusText(ZqMakeStatus(0x12345678)), nullptr);
  EXPECT_EQ(ZqStatusText(ZqMakeStatus(0x8004E0FF)), nullptr);
  EXPECT_EQ(ZqStatusText(ZqMakeStatus(0xFFFFFFFF)), nullptr);
  // The win32 number alone is not its status.
  EXPECT_EQ(ZqStatusText(static_cast<HRESULT>(ERROR_MOD_NOT_FOUND)), nullptr);
}

TEST(StatusText, NamedCodesAreKnownByTheirConstants) {
  EXPECT_STREQ(ZqStatusName(ZQ_E_NOT_FOUND), "ZQ_E_NOT_FOUND");            // the system's own, with a text
  EXPECT_STREQ(ZqStatusName(ZQ_S_KNOWN), "ZQ_S_KNOWN");                    // named, without a text
  EXPECT_STREQ(ZqStatusName(VFW_E_NOT_CONNECTED), "VFW_E_NOT_CONNECTED");  // the framework's
  EXPECT_EQ(ZqStatusName(ZqMakeStatus(0x8004E0FF)), nullptr);
}

TEST(StatusText, TableIsSortedUniqueAndEveryRowIsFound) {
  size_t count = 0;
  const ZqStatusTextRow* rows = ZqStatusTextRows(&count);
  ASSERT_GT(count, 100u);
  for (size_t i = 0; i < count; ++i) {
    SCOPED_TRACE(testing::Message() << "row " << i << " 0x" << std::hex << rows[i].code);
    if (i > 0) {
      EXPECT_LT(rows[i - 1].code, rows[i].code);
    }
    ASSERT_TRUE(rows[i].text || rows[i].name) << "a row without name and text";
    EXPECT_EQ(ZqStatusText(static_cast<HRESULT>(rows[i].code)), rows[i].text);
    EXPECT_EQ(ZqStatusName(static_cast<HRESULT>(rows[i].code)), rows[i].name);
    if (!rows[i].text) continue;
    // Texts are finished sentences: nothing left to fill in, no box layout.
    const std::string text = rows[i].text;
    EXPECT_FALSE(text.empty());
    EXPECT_NE(text.front(), '\n');
    EXPECT_EQ(text.find("$("), std::string::npos);
    EXPECT_EQ(text.find("%s"), std::string::npos);
  }
}

}  // namespace
