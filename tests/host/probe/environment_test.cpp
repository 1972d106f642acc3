// The environment functions: what a plug-in reads with getenv is what the
// host set, in UTF-8.
#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/host/probe/isolation_fixture.h"

namespace {

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

}  // namespace
