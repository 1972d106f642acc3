// CLog: levels, line parts, rotation with one generation, and lines that never
// interleave.
#include <fstream>
#include <regex>
#include <iterator>
#include <thread>

#include "kernel/log.h"
#include "platform/file.h"
#include "vsthost_fixture.h"

using namespace zqtest;

namespace {

class LogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    path_ = std::string(ZQ_BINARY_DIR) + "/log_test_" + info->name() + ".log";
    wide_ = ZqUtf8ToUtf16(path_);
    Remove();
  }
  void TearDown() override { Remove(); }
  void Remove() {
    DeleteFileW(wide_.c_str());
    DeleteFileW((wide_ + u".previous").c_str());
  }
  static std::string Read(const std::string& path) {
    std::ifstream in(path);
    return {std::istreambuf_iterator<char>(in), {}};
  }

  std::string path_;
  std::u16string wide_;
};

TEST_F(LogTest, InitRefusesBadArgumentsAndUnopenableFiles) {
  CLog log;
  EXPECT_EQ(log.Init(nullptr, ZQLOG_ERROR, 0, 0), E_INVALIDARG);
  EXPECT_EQ(log.Init(wide_.c_str(), 0, 0, 0), E_INVALIDARG);
  EXPECT_EQ(log.Init(u"/no/such/folder/x.log", ZQLOG_ERROR, 0, 0), ZQ_E_OPEN_FILE);
  EXPECT_EQ(log.Write(ZQLOG_ERROR, u"a.cpp", 1, u"x"), ZQ_E_COMPONENT);
  ASSERT_EQ(log.Init(wide_.c_str(), ZQLOG_ERROR, 0, 0), S_OK);
  EXPECT_EQ(std::u16string(log.GetLogFileName()), wide_);
  EXPECT_EQ(log.Write(ZQLOG_ERROR, u"a.cpp", 1, u"x"), S_OK);
  log.Shutdown();
  EXPECT_EQ(log.Write(ZQLOG_ERROR, u"a.cpp", 1, u"y"), ZQ_E_COMPONENT);
  EXPECT_EQ(Read(path_), "ERR x\n");
}

TEST_F(LogTest, LevelsTagsAndLineParts) {
  {
    CLog log;
    ASSERT_EQ(log.Init(wide_.c_str(), 0x10007, 0x100000, 0), S_OK);
    EXPECT_EQ(log.Write(ZQLOG_DEBUG, u"src/x.cpp", 5, u"hidden"), S_OK);  // not enabled: nothing
    EXPECT_EQ(log.Write(ZQLOG_PLAIN, u"src/x.cpp", 5, u"hidden too"), S_OK);
    EXPECT_EQ(log.Write(ZQLOG_WARNING, u"src/x.cpp", 5, u"w %d %s %S %c %5.1f%%", 42, u"wide \u00e9", "narrow", u'Z', 2.25),
              S_OK);
    EXPECT_EQ(log.Write(ZQLOG_ERROR | ZQLOG_INFO, u"x", 1, u"odd"), S_OK);
  }
  const auto lines = SplitLines(Read(path_));
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_TRUE(std::regex_match(lines[0], std::regex(R"(WARN \d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2} w 42 wide \xc3\xa9 narrow Z   2.2%)")))
      << lines[0];
  EXPECT_EQ(lines[1].substr(0, 4), "????");

  CLog source;
  Remove();
  ASSERT_EQ(source.Init(wide_.c_str(), ZQLOG_INFO | ZQLOG_DEBUG | ZQLOG_PLAIN | ZQLOG_SOURCE, 0, 0), S_OK);
  source.Write(ZQLOG_INFO, u"/a/b/zqvsteffect.cpp", 123, u"i");
  source.Write(ZQLOG_DEBUG, u"c:\\x\\y.cpp", 7, u"d");
  source.Write(ZQLOG_PLAIN, nullptr, 0, u"p");
  source.Shutdown();
  EXPECT_EQ(Read(path_), "INFOzqvsteffect.cpp( 123): i\n"
                         "DBG           y.cpp(   7): d\n"
                         "               (   0): p\n");
}

TEST_F(LogTest, MessagesAreCutAt1023Characters) {
  CLog log;
  ASSERT_EQ(log.Init(wide_.c_str(), ZQLOG_PLAIN, 0, 0), S_OK);
  std::u16string big(3000, u'\u00e9');
  log.Write(ZQLOG_PLAIN, nullptr, 0, u"%s", big.c_str());
  log.Shutdown();
  const std::string text = Read(path_);
  EXPECT_EQ(text.size(), 1023u * 2 + 1);
}

TEST_F(LogTest, RotationKeepsOneGenerationAndReopenedLogsAppend) {
  {
    CLog first;
    ASSERT_EQ(first.Init(wide_.c_str(), ZQLOG_INFO, 1000, 0), S_OK);
    first.Write(ZQLOG_INFO, nullptr, 0, u"first");
  }
  CLog log;
  ASSERT_EQ(log.Init(wide_.c_str(), ZQLOG_INFO, 1000, 0), S_OK);
  // Lines of 10 bytes after the first's 10: the 99th reaches 1000, the
  // next turns the file, and starts the new one.
  for (int i = 0; i < 99; ++i) log.Write(ZQLOG_INFO, nullptr, 0, u"%05d", i);
  EXPECT_EQ(Read(path_ + ".previous"), "");
  log.Write(ZQLOG_INFO, nullptr, 0, u"turn");
  const auto turned = SplitLines(Read(path_ + ".previous"));
  ASSERT_EQ(turned.size(), 100u);
  EXPECT_EQ(turned.front(), "INFOfirst");
  EXPECT_EQ(Read(path_), "INFOturn\n");
  for (int i = 0; i < 250; ++i) log.Write(ZQLOG_INFO, nullptr, 0, u"%05d", i);
  log.Shutdown();
  // One generation only, whatever was turned before it.
  const auto previous = SplitLines(Read(path_ + ".previous"));
  ASSERT_FALSE(previous.empty());
  EXPECT_NE(previous.front(), "INFOturn");
}

TEST_F(LogTest, LinesFromSeveralThreadsNeverInterleave) {
  CLog log;
  ASSERT_EQ(log.Init(wide_.c_str(), ZQLOG_INFO, 0, 0), S_OK);
  auto writer = [&](char16_t letter) {
    std::u16string body(200, letter);
    for (int i = 0; i < 200; ++i) log.Write(ZQLOG_INFO, nullptr, 0, u"%s", body.c_str());
  };
  std::thread a(writer, u'a'), b(writer, u'b');
  a.join();
  b.join();
  log.Shutdown();
  const auto lines = SplitLines(Read(path_));
  ASSERT_EQ(lines.size(), 400u);
  for (const auto& line : lines) {
    ASSERT_EQ(line.size(), 204u);
    ASSERT_EQ(line.find_first_not_of(line[4], 4), std::string::npos) << line;
  }
}

}  // namespace
