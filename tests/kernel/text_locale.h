// A pinned locale for the tests of formatted text: the kernel runs, reads
// English table texts and takes its number formats from `locale`, for the
// life of the object.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "kernel/kernel_init.h"
#include "kernel/lang.h"
#include "platform/environment.h"
#include "platform/module.h"
#include "platform/text.h"

class ScopedTextLocale {
 public:
  explicit ScopedTextLocale(const char16_t* locale) {
    Set(0, u"LANGUAGE", u"en_US");
    Set(1, u"LC_ALL", locale);
    started_ = ZqLang_GetKernelLang() == nullptr;
    if (started_) EXPECT_EQ(ZqKernel_EarlyInitialize(GetModuleHandleW(nullptr)), 1);
    else ZqLang_GetInternationals(nullptr, 0);
  }
  ~ScopedTextLocale() {
    for (auto& v : saved_) SetEnvironmentVariableW(v.name, v.had ? v.value.c_str() : nullptr);
    if (started_) ZqKernel_LateTerminate();
    ZqLang_GetInternationals(nullptr, 0);
  }

 private:
  void Set(int i, const char16_t* name, const char16_t* value) {
    WCHAR buffer[256];
    const DWORD n = GetEnvironmentVariableW(name, buffer, 256);
    saved_[i] = {name, n > 0 && n < 256, n > 0 && n < 256 ? std::u16string(buffer, n) : std::u16string()};
    SetEnvironmentVariableW(name, value);
  }
  struct Saved { const char16_t* name; bool had; std::u16string value; } saved_[2];
  bool started_ = false;
};

inline std::string U8(const WCHAR* text) { return text ? ZqUtf16ToUtf8(text) : "(null)"; }
