// The automation and tempo map files of zqvst.
#include "tools/zqvst/timefiles.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "aplugins/zqvstwrap/mediaparams.h"
#include "tests/support/test_folder.h"

namespace {

std::vector<ZqvstAutomationEntry> Automation(const std::string& text) {
  std::vector<ZqvstAutomationEntry> entries;
  std::string error;
  EXPECT_TRUE(ZqvstParseAutomation(text, &entries, &error)) << error;
  return entries;
}

std::string AutomationError(const std::string& text) {
  std::vector<ZqvstAutomationEntry> entries(1);
  std::string error;
  EXPECT_FALSE(ZqvstParseAutomation(text, &entries, &error)) << text;
  EXPECT_TRUE(entries.empty());
  return error;
}

std::vector<ZqvstTempoEntry> TempoMap(const std::string& text) {
  std::vector<ZqvstTempoEntry> entries;
  std::string error;
  EXPECT_TRUE(ZqvstParseTempoMap(text, &entries, &error)) << error;
  return entries;
}

std::string TempoError(const std::string& text) {
  std::vector<ZqvstTempoEntry> entries(1);
  std::string error;
  EXPECT_FALSE(ZqvstParseTempoMap(text, &entries, &error)) << text;
  EXPECT_TRUE(entries.empty());
  return error;
}

// An entry in one line, so that a file's reading compares at a glance.
std::string Show(const ZqvstAutomationEntry& e) {
  std::ostringstream out;
  out << e.line << ": " << (e.byIndex ? "#" + std::to_string(e.index) : "'" + e.param + "'") << ' ' << e.start << ' '
      << e.end << ' ' << e.from << ' ' << e.to << " curve " << e.curve;
  return out.str();
}

std::vector<std::string> ShowAutomation(const std::string& text) {
  std::vector<std::string> lines;
  for (const auto& e : Automation(text)) lines.push_back(Show(e));
  return lines;
}

std::string Show(const ZqvstTempoEntry& e) {
  std::ostringstream out;
  out << e.line << ": " << e.time << ' ';
  if (e.isMeter) out << "meter " << e.numerator << '/' << e.denominator;
  else out << e.bpm << " bpm";
  return out.str();
}

std::vector<std::string> ShowTempoMap(const std::string& text) {
  std::vector<std::string> lines;
  for (const auto& e : TempoMap(text)) lines.push_back(Show(e));
  return lines;
}

using Lines = std::vector<std::string>;

// --- Automation ---------------------------------------------------------------

TEST(AutomationFile, ReadsIndexesNamesTimesValuesAndEveryCurve) {
  static_assert(MP_CURVE_JUMP == 1 && MP_CURVE_LINEAR == 2 && MP_CURVE_SQUARE == 4 && MP_CURVE_INVSQUARE == 8 &&
                MP_CURVE_SINE == 16);
  EXPECT_EQ(ShowAutomation("0 0 1 0 100 jump\n"
                           "12 1 2.5 100 0 linear\n"
                           "Gain 0.25 0.25 -6 6 square\n"
                           "\"Mix\" 3 4 1e-3 2E2 invsquare\n"
                           "007 4 8 0 1 sine\n"
                           "1 0 1 0 1 Linear\n"
                           "1 0 1 0 1 SINE\n"),
            (Lines{"1: #0 0 1 0 100 curve 1", "2: #12 1 2.5 100 0 curve 2", "3: 'Gain' 0.25 0.25 -6 6 curve 4",
                   "4: 'Mix' 3 4 0.001 200 curve 8", "5: #7 4 8 0 1 curve 16", "6: #1 0 1 0 1 curve 2",
                   "7: #1 0 1 0 1 curve 16"}));
}

TEST(AutomationFile, QuotedNamesKeepBlanksHashesDigitsAndEscapes) {
  // A quoted number is a name: a parameter may well be called "3".  A
  // backslash before anything but a quote or a backslash stays as written.
  EXPECT_EQ(ShowAutomation("\"Filter Cutoff\" 0 1 0 1 linear\n"
                           "\"Band #2 gain\" 0 1 0 1 linear # a comment after a quoted hash\n"
                           "\"3\" 0 1 0 1 linear\n"
                           "\"Say \\\"hi\\\" \\\\ now\" 0 1 0 1 linear\n"
                           "\"C:\\dir\"\t0\t1\t0\t1\tlinear\n"),
            (Lines{"1: 'Filter Cutoff' 0 1 0 1 curve 2", "2: 'Band #2 gain' 0 1 0 1 curve 2", "3: '3' 0 1 0 1 curve 2",
                   "4: 'Say \"hi\" \\ now' 0 1 0 1 curve 2", "5: 'C:\\dir' 0 1 0 1 curve 2"}));
}

TEST(AutomationFile, CommentsBlankLinesCrLfAndByteOrderMarkAreSkipped) {
  EXPECT_EQ(ShowAutomation("\xEF\xBB\xBF# automation for the delay\r\n"
                           "\r\n"
                           "   \t  \r\n"
                           "Time 0 2 10 500 linear   # sweep\r\n"
                           "#Feedback 0 1 0 1 jump\r\n"
                           "Feedback 2 2 0 90 jump# no blank before the hash\r\n"
                           "Mix 2 3 0 100 sine"),  // no line end at the end of the file
            (Lines{"4: 'Time' 0 2 10 500 curve 2", "6: 'Feedback' 2 2 0 90 curve 1", "7: 'Mix' 2 3 0 100 curve 16"}));
  EXPECT_TRUE(Automation("").empty());
  EXPECT_TRUE(Automation("# nothing\n\n").empty());
}

TEST(AutomationFile, NumbersAreReadInTheCLocaleOnly) {
  EXPECT_EQ(ShowAutomation("0 .5 1 -0.5 +2 linear\n0 1e-3 0.5 -1E+2 3.25 linear\n"),
            (Lines{"1: #0 0.5 1 -0.5 2 curve 2", "2: #0 0.001 0.5 -100 3.25 curve 2"}));
  EXPECT_EQ(AutomationError("0 0 1 0,5 1 linear\n"), "line 1: bad start value '0,5'");
  EXPECT_EQ(AutomationError("0 0 1 0 1,0 linear\n"), "line 1: bad end value '1,0'");
  EXPECT_EQ(AutomationError("0 0 inf 0 1 linear\n"), "line 1: bad end time 'inf'");
  EXPECT_EQ(AutomationError("0 nan 1 0 1 linear\n"), "line 1: bad start time 'nan'");
  EXPECT_EQ(AutomationError("0 0 0x10 0 1 linear\n"), "line 1: bad end time '0x10'");
  EXPECT_EQ(AutomationError("0 0 1s 0 1 linear\n"), "line 1: bad end time '1s'");
  EXPECT_EQ(AutomationError("0 0 1 1e999 1 linear\n"), "line 1: bad start value '1e999'");
  EXPECT_EQ(AutomationError("0 0 1 +-1 1 linear\n"), "line 1: bad start value '+-1'");
  EXPECT_EQ(AutomationError("0 0 1 - 1 linear\n"), "line 1: bad start value '-'");
  EXPECT_EQ(AutomationError("0 0 \"1\" 0 1 linear\n"), "line 1: bad end time '1'");
}

TEST(AutomationFile, EveryErrorNamesItsLine) {
  const std::string good = "0 0 1 0 1 linear\n# comment\n\n";  // lines 1 to 3
  struct Case {
    const char* line;
    const char* message;
  } cases[] = {
      {"Gain 0 1 0 1 wobble", "line 4: unknown curve 'wobble' (jump, linear, square, invsquare or sine)"},
      {"Gain 0 1 0 1 \"linear\"", "line 4: unknown curve 'linear' (jump, linear, square, invsquare or sine)"},
      {"Gain 0 1 0 1", "line 4: expected PARAM START END FROM TO CURVE, found 5 fields"},
      {"Gain", "line 4: expected PARAM START END FROM TO CURVE, found 1 field"},
      {"Gain 0 1 0 1 linear extra", "line 4: unexpected 'extra' after the curve"},
      {"\"Gain 0 1 0 1 linear", "line 4: missing closing quote"},
      {"\"Gain\"x 0 1 0 1 linear", "line 4: a blank must follow the closing quote"},
      {"\"\" 0 1 0 1 linear", "line 4: empty parameter name"},
      {"-1 0 1 0 1 linear", "line 4: parameter index -1 is negative"},
      {"99999999999999999999 0 1 0 1 linear", "line 4: parameter index 99999999999999999999 is too large"},
      {"Gain -1 1 0 1 linear", "line 4: start time -1 is negative"},
      {"Gain 2 1 0 1 linear", "line 4: end time 1 is before the start time 2"},
      {"Gain x 1 0 1 linear", "line 4: bad start time 'x'"},
  };
  for (const Case& c : cases) EXPECT_EQ(AutomationError(good + c.line + "\n" + good), c.message) << c.line;
  // Line numbers count CR LF lines as well.
  EXPECT_EQ(AutomationError("0 0 1 0 1 linear\r\n\r\nGain 0 1 0 1 wobble\r\n"),
            "line 3: unknown curve 'wobble' (jump, linear, square, invsquare or sine)");
}

// --- Tempo map ----------------------------------------------------------------

TEST(TempoMapFile, ReadsTemposAndMetersInOrder) {
  // A meter and a tempo may share a time in either order.
  EXPECT_EQ(ShowTempoMap("# song\n"
                         "0 120\n"
                         "0 meter 4/4\r\n"
                         "8 90.5   # slower\n"
                         "12.25 METER 7/8\n"
                         "16 meter 3/4\n"
                         "16 999\n"),
            (Lines{"2: 0 120 bpm", "3: 0 meter 4/4", "4: 8 90.5 bpm", "5: 12.25 meter 7/8", "6: 16 meter 3/4",
                   "7: 16 999 bpm"}));
  EXPECT_TRUE(TempoMap("").empty());
}

TEST(TempoMapFile, MeterTakesEveryPowerOfTwoUpTo64) {
  for (int d : {1, 2, 4, 8, 16, 32, 64}) {
    const auto entries = TempoMap("0 meter 99/" + std::to_string(d) + "\n");
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].denominator, d);
    EXPECT_EQ(entries[0].numerator, 99);
  }
  for (int d : {0, 3, 6, 12, 128}) {
    EXPECT_EQ(TempoError("0 meter 3/" + std::to_string(d) + "\n"),
              "line 1: meter denominator " + std::to_string(d) + " is not 1, 2, 4, 8, 16, 32 or 64");
  }
}

TEST(TempoMapFile, EveryErrorNamesItsLine) {
  const std::string good = "0 120\n\n# c\n";  // lines 1 to 3
  struct Case {
    const char* line;
    const char* message;
  } cases[] = {
      {"4", "line 4: expected TIME BPM or TIME meter N/D"},
      {"4 meter", "line 4: expected TIME meter N/D"},
      {"4 120 130", "line 4: unexpected '130' after the tempo"},
      {"4 meter 3/4 x", "line 4: unexpected 'x' after the meter"},
      {"4 0", "line 4: tempo 0 is not above 0 and at most 999"},
      {"4 -10", "line 4: tempo -10 is not above 0 and at most 999"},
      {"4 1000", "line 4: tempo 1000 is not above 0 and at most 999"},
      {"4 120,5", "line 4: bad tempo '120,5'"},
      {"4 fast", "line 4: bad tempo 'fast'"},
      {"4,5 120", "line 4: bad time '4,5'"},
      {"-1 120", "line 4: time -1 is negative"},
      {"4 meter 3-4", "line 4: bad meter '3-4' (expected N/D, as in 3/4)"},
      {"4 meter 3/", "line 4: bad meter '3/' (expected N/D, as in 3/4)"},
      {"4 meter /4", "line 4: bad meter '/4' (expected N/D, as in 3/4)"},
      {"4 meter 3.5/4", "line 4: bad meter '3.5/4' (expected N/D, as in 3/4)"},
      {"4 meter 0/4", "line 4: meter numerator 0 is not between 1 and 99"},
      {"4 meter 100/4", "line 4: meter numerator 100 is not between 1 and 99"},
      {"4 \"meter\" 3/4", "line 4: unexpected '3/4' after the tempo"},
      {"\"4 120", "line 4: missing closing quote"},
  };
  for (const Case& c : cases) EXPECT_EQ(TempoError(good + c.line + "\n"), c.message) << c.line;
}

TEST(TempoMapFile, EntriesMustRiseInTime) {
  EXPECT_EQ(TempoError("0 120\n4 100\n\n2 90\n"),
            "line 4: time 2 comes before 4 on line 2 (entries go in rising time order)");
  EXPECT_EQ(TempoError("0 120\n0 meter 4/4\n0 130\n"), "line 3: a second tempo at 0 seconds");
  EXPECT_EQ(TempoError("1 meter 4/4\n1 120\n1.0 meter 3/4\n"), "line 3: a second meter at 1.0 seconds");
  // Once time moves on, both may be set again.
  EXPECT_EQ(TempoMap("0 120\n0 meter 4/4\n1 130\n1 meter 3/4\n").size(), 4u);
}

// --- Reading a file -----------------------------------------------------------

class TextFileTest : public testing::Test {
 protected:
  zqtest::TestFolder folder_{"zq_zqvst_text_"};
  const std::filesystem::path& dir_ = folder_.path();
};

TEST_F(TextFileTest, ReadsTheBytesAsTheyAre) {
  const std::string content("a\r\nb\0c\xFF\n", 8);
  const auto path = (dir_ / "automation.txt").string();
  std::ofstream(path, std::ios::binary) << content;
  std::string text = "old", error;
  ASSERT_TRUE(ZqvstReadFile(path, &text, &error)) << error;
  EXPECT_EQ(text, content);

  const auto empty = (dir_ / "empty.txt").string();
  std::ofstream(empty, std::ios::binary).close();
  ASSERT_TRUE(ZqvstReadFile(empty, &text, &error)) << error;
  EXPECT_EQ(text, "");
}

TEST_F(TextFileTest, MissingFileAndFolderAreNamedInTheMessage) {
  const auto missing = (dir_ / "missing.txt").string();
  std::string text, error;
  EXPECT_FALSE(ZqvstReadFile(missing, &text, &error));
  EXPECT_EQ(error.rfind(missing + ": ", 0), 0u) << error;
  EXPECT_GT(error.size(), missing.size() + 2);

  EXPECT_FALSE(ZqvstReadFile(dir_.string(), &text, &error));
  EXPECT_EQ(error, dir_.string() + ": is a folder, not a file");
}

}  // namespace
