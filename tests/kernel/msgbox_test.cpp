#include "kernel/msgbox.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "tests/kernel/boxcapture.h"

namespace {

using Text = std::u16string;

TEST(MsgBoxRules, ButtonSetsDefaultsAndTheNoUIAnswer) {
  const struct {
    UINT set;
    std::vector<int> buttons;
    bool noClose;
    std::vector<int> noUi;  // by default number 0 to 4; -1 for a number the set lacks
  } kCases[] = {
      {0, {1}, false, {1, 1, 1, 1, 1}},
      {1, {1, 2}, false, {1, 2, -1, -1, -1}},
      {2, {3, 4, 5}, true, {3, 4, 5, -1, -1}},
      {3, {6, 7, 2}, false, {6, 7, 2, -1, -1}},
      {4, {6, 7}, true, {6, 7, -1, -1, -1}},
      {5, {4, 2}, false, {4, 2, -1, -1, -1}},
      {7, {1}, false, {1, 1, 1, 1, 1}},
      {10, {6, 100, 7, 2}, false, {6, 100, 7, 2, -1}},
      {11, {6, 7, 101}, true, {6, 7, 101, -1, -1}},
      {12, {6, 7, 102, 2}, false, {6, 7, 102, 2, -1}},
      {13, {6, 100, 7, 102, 2}, false, {6, 100, 7, 102, 2}},
      {15, {1}, false, {1, 1, 1, 1, 1}},
  };
  for (const auto& c : kCases) {
    int ids[5] = {};
    const int count = ZqMsgBox_GetButtons(c.set, ids);
    EXPECT_EQ(std::vector<int>(ids, ids + count), c.buttons) << c.set;
    EXPECT_EQ(ZqMsgBox_IsNoClose(c.set), c.noClose) << c.set;
    for (UINT number = 0; number < 5; ++number) {
      const UINT flags = c.set | number << ZQMB_DEFAULT_SHIFT;
      EXPECT_EQ(ZqMsgBox_NoUIResult(flags), c.noUi[number]) << c.set << "/" << number;
      // The drawn box clips the number to its last button instead.
      EXPECT_EQ(ZqMsgBox_DefaultButton(flags), c.buttons[std::min<size_t>(number, c.buttons.size() - 1)]);
    }
    for (int id : c.buttons) EXPECT_NE(ZqMsgBox_ButtonLabel(id), nullptr) << id;
  }
}

TEST(MsgBoxRules, EscapeAndTheDetailsButton) {
  const struct { UINT set; int id; int result; } kCases[] = {
      {ZQMB_OK, ZQID_CANCEL, ZQID_OK},      {ZQMB_YESNO, ZQID_CANCEL, 0}, {ZQMB_ABORTRETRYIGNORE, ZQID_CANCEL, 0},
      {ZQMB_OKCANCEL, ZQID_CANCEL, ZQID_CANCEL}, {ZQMB_YESNO, ZQID_DETAILS, 0},
      {ZQMB_YESNODELETE, ZQID_DELETE, ZQID_DELETE},
  };
  for (const auto& c : kCases) EXPECT_EQ(ZqMsgBox_ResultOfCommand(c.set, c.id), c.result) << c.set << "/" << c.id;
}

TEST(MsgBox, HookedBoxesSeeTheTextTheyWouldShow) {
  zqtest::BoxCapture capture(42);
  int check = 1;
  EXPECT_EQ(ZqMsgBox_CustomF(nullptr, ZQMB_DETAILS, nullptr, u"no details"), 0);
  EXPECT_EQ(ZqMsgBox_CustomExF(nullptr, ZQMB_CHECKBOX, nullptr, nullptr, nullptr, u"no check"), 0);
  EXPECT_TRUE(capture.boxes().empty());

  EXPECT_EQ(ZqMsgBox_CustomNoF(nullptr, ZQMB_OK, nullptr, u"50% done $(x)"), 42);
  EXPECT_EQ(ZqMsgBox_CustomF(nullptr, ZQMB_DETAILS | ZQMB_YESNO, u"why", u"Item %d of %s", 3, u"ten"), 42);
  EXPECT_EQ(ZqMsgBox_CustomExNoF(ZQMB_NO_OWNER, ZQMB_CHECKBOX, nullptr, nullptr, &check, u"checked"), 42);
  EXPECT_EQ(ZqMessageBox(nullptr, u"platform box", u"Caption", 1), 42);
  EXPECT_EQ(ZqMsgBoxNoF(nullptr, 0, u"100%s"), 42);
  ASSERT_EQ(capture.boxes().size(), 5u);
  EXPECT_EQ(capture.boxes()[0].text, u"50% done $(x)");
  EXPECT_EQ(capture.boxes()[1].text, u"Item 3 of ten\r\n<Details>\r\nwhy\r\n</Details>");
  EXPECT_EQ(capture.boxes()[2].owner, nullptr);
  EXPECT_EQ(capture.boxes()[3].title, u"Caption");
  EXPECT_EQ(capture.boxes()[4].text, u"100%s");
}

TEST(MsgBox, WithoutHookTheDefaultButtonAnswers) {
  ZqMsgBoxSetAppData(nullptr, nullptr, u"Test App");
  const UINT thirdDefault = ZQMB_YESNOCANCEL | 2u << ZQMB_DEFAULT_SHIFT;
  EXPECT_EQ(ZqMsgBox_CustomNoF(nullptr, thirdDefault, nullptr, u"headless"), ZQID_CANCEL);
  EXPECT_EQ(ZqMessageBox(nullptr, u"headless", nullptr, ZQMB_OKCANCEL | 9u << ZQMB_DEFAULT_SHIFT), ZQID_CANCEL);
}

std::vector<Text> g_noUiTexts;

TEST(MsgBox, TheNoUIHookAnswersOnItsThreadOnly) {
  ZqMsgBoxSetAppData(nullptr, nullptr, u"Test App");
  BOOL elsewhere = 2;
  std::thread([&] { elsewhere = ZqMsgBoxSetNoUIHook([](LPCWSTR) {}); }).join();
  EXPECT_EQ(elsewhere, 0);
  g_noUiTexts.clear();
  ASSERT_EQ(ZqMsgBoxSetNoUIHook([](LPCWSTR text) { g_noUiTexts.push_back(text); }), 1);
  EXPECT_EQ(ZqMsgBoxNoF(nullptr, ZQMB_YESALLNOCANCEL | 1u << ZQMB_DEFAULT_SHIFT, u"quiet"), ZQID_YESTOALL);
  // A default the set does not have: the adapter declines and the box itself
  // answers, clipped to its last button.
  EXPECT_EQ(ZqMsgBoxNoF(nullptr, ZQMB_YESNO | 3u << ZQMB_DEFAULT_SHIFT, u"odd"), ZQID_NO);
  int other = -5;
  std::thread([&] { other = ZqMsgBoxNoF(nullptr, ZQMB_YESNO, u"from another thread"); }).join();
  EXPECT_EQ(other, 0);
  ASSERT_EQ(g_noUiTexts.size(), 2u);
  EXPECT_EQ(g_noUiTexts[0], u"quiet");
  EXPECT_EQ(g_noUiTexts[1], u"Invalid Message Box parameter...User intervention is needed!!!!");
  EXPECT_EQ(ZqMsgBoxSetNoUIHook(nullptr), 1);
  EXPECT_EQ(ZqMsgBoxNoF(nullptr, ZQMB_YESNO, u"hook gone"), ZQID_YES);
  EXPECT_EQ(g_noUiTexts.size(), 2u);
}

}  // namespace
