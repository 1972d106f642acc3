// The English texts of status codes.
#include "base/statustext.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "base/status.h"
#include "mediafw/codes.h"

namespace {

TEST(StatusText, CodesCarryTheMessageTableOrThePlatformTextOrNone) {
  struct Case {
    HRESULT status;
    const char* text;  // null: no text
  } cases[] = {
      // The message table's own codes, inner line breaks kept.
      {ZQ_E_BAD_FILE, "The file is most likely corrupted or of an unknown format."},
      {ZQ_S_IS_SHELL, "This feature is not configured properly."},
      {ZQ_E_INPUT_CHANNELS,
       "An incorrect number of audio input channels were specified\n\n"
       "(for example, must be 2 if stereo music is selected)."},
      // Generic codes the message table lists keep its texts.
      {E_FAIL, "The reason for the error could not be determined."},
      // Other codes carry the platform's texts.
      {CLASS_E_CLASSNOTAVAILABLE, "ClassFactory cannot supply requested class"},
      {HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND), "The specified module could not be found."},
      {ZQ_E_RPC_CALL_FAILED, "The RPC server is unavailable."},
      {VFW_S_NO_MORE_ITEMS, "The end of the list has been reached."},
      {ZQ_S_KNOWN, nullptr},
      {S_FALSE, nullptr},
      {ZqMakeStatus(0x8004E0FF), nullptr},
      {ZqMakeStatus(0xFFFFFFFF), nullptr},
      {static_cast<HRESULT>(ERROR_MOD_NOT_FOUND), nullptr},  // the win32 number alone is not its status
  };
  for (const Case& c : cases) {
    const char* text = ZqStatusText(c.status);
    EXPECT_EQ(std::string(text ? text : "(null)"), std::string(c.text ? c.text : "(null)")) << std::hex << c.status;
  }
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
    ASSERT_NE(rows[i].text, nullptr);
    EXPECT_EQ(ZqStatusText(static_cast<HRESULT>(rows[i].code)), rows[i].text);
    // Texts are finished sentences: nothing left to fill in, no box layout.
    const std::string text = rows[i].text;
    EXPECT_FALSE(text.empty());
    EXPECT_NE(text.front(), '\n');
    EXPECT_EQ(text.find("$("), std::string::npos);
    EXPECT_EQ(text.find("%s"), std::string::npos);
  }
}

}  // namespace
