// A hook that takes every message box of the test process over and keeps
// what the box would have shown.
#pragma once

#include <string>
#include <vector>

#include "kernel/msgbox.h"

namespace zqtest {

struct CapturedBox {
  HWND owner;
  std::u16string text;
  std::u16string title;
  UINT flags;
};

class BoxCapture {
 public:
  // `answer` is what the hook answers (-1: let the box be shown).
  explicit BoxCapture(int answer = 7) : answer_(answer) {
    ZqMsgBoxSetAppData(nullptr, nullptr, u"Test App");
    ZqMsgBoxSetHook(&BoxCapture::Hook, this);
  }
  ~BoxCapture() { ZqMsgBoxSetHook(nullptr, nullptr); }
  BoxCapture(const BoxCapture&) = delete;
  BoxCapture& operator=(const BoxCapture&) = delete;

  const std::vector<CapturedBox>& boxes() const { return boxes_; }

 private:
  static int Hook(void* data, HWND owner, LPCWSTR text, LPCWSTR title, UINT flags) {
    auto* self = static_cast<BoxCapture*>(data);
    self->boxes_.push_back({owner, text ? text : u"", title ? title : u"", flags});
    return self->answer_;
  }
  int answer_;
  std::vector<CapturedBox> boxes_;
};

}  // namespace zqtest
