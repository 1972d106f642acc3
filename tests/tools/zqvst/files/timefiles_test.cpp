// The automation and tempo map files of zqvst.
#include "tools/zqvst/timefiles.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "aplugins/zqvstwrap/mediaparams.h"
#include "tests/support/test_folder.h"

namespace {

// An entry in one line, so that a file's reading compares at a glance.
std::string Show(const ZqvstAutomationEntry& e) {
  std::ostringstream out;
  out << e.line << ": " << (e.byIndex ? "#" + std::to_string(e.index) : "'" + e.param + "'") << ' ' << e.start << ' '
      << e.end << ' ' << e.from << ' ' << e.to << " curve " << e.curve;
  return out.str();
}

std::string Show(const ZqvstTempoEntry& e) {
  std::ostringstream out;
  out << e.line << ": " << e.time << ' ';
  if (e.isMeter) out << "meter " << e.numerator << '/' << e.denominator;
  else out << e.bpm << " bpm";
  return out.str();
}

// The entries `parse` reads from `text`, each as Show gives it.
template <class Entry>
std::vector<std::string> Read(bool (*parse)(const std::string&, std::vector<Entry>*, std::string*),
                              const std::string& text) {
  std::vector<Entry> entries;
  std::string error;
  EXPECT_TRUE(parse(text, &entries, &error)) << error;
  std::vector<std::string> lines;
  for (const auto& e : entries) lines.push_back(Show(e));
  return lines;
}

// The message of a refusal, which leaves no entries.
template <class Entry>
std::string Refusal(bool (*parse)(const std::string&, std::vector<Entry>*, std::string*), const std::string& text) {
  std::vector<Entry> entries(1);
  std::string error;
  EXPECT_FALSE(parse(text, &entries, &error)) << text;
  EXPECT_TRUE(entries.empty());
  return error;
}

std::vector<std::string> ShowAutomation(const std::string& text) { return Read(ZqvstParseAutomation, text); }
std::string AutomationError(const std::string& text) { return Refusal(ZqvstParseAutomation, text); }
std::vector<std::string> ShowTempoMap(const std::string& text) { return Read(ZqvstParseTempoMap, text); }
std::string TempoError(const std::string& text) { return Refusal(ZqvstParseTempoMap, text); }

using Lines = std::vector<std::string>;

// --- Automation ---------------------------------------------------------------

TEST(AutomationFile, ReadsIndexesNamesTimesValuesCurvesAndSkipsWhatIsNoEntry) {
  static_assert(MP_CURVE_JUMP == 1 && MP_CURVE_LINEAR == 2 && MP_CURVE_SQUARE == 4 && MP_CURVE_INVSQUARE == 8 &&
                MP_CURVE_SINE == 16);
  const std::pair<const char*, Lines> cases[] = {
      {"0 0 1 0 100 jump\n"
       "12 1 2.5 100 0 linear\n"
       "Gain 0.25 0.25 -6 6 square\n"
       "\"Mix\" 3 4 1e-3 2E2 invsquare\n"
       "007 4 8 0 1 sine\n"
       "1 0 1 0 1 Linear\n"
       "1 .5 1 -0.5 +2 SINE\n",
       {"1: #0 0 1 0 100 curve 1", "2: #12 1 2.5 100 0 curve 2", "3: 'Gain' 0.25 0.25 -6 6 curve 4",
        "4: 'Mix' 3 4 0.001 200 curve 8", "5: #7 4 8 0 1 curve 16", "6: #1 0 1 0 1 curve 2",
        "7: #1 0.5 1 -0.5 2 curve 16"}},
      // A quoted number is a name: a parameter may well be called "3".  A
      // backslash before anything but a quote or a backslash stays as written.
      {"\"Filter Cutoff\" 0 1 0 1 linear\n"
       "\"Band #2 gain\" 0 1 0 1 linear # a comment after a quoted hash\n"
       "\"3\" 0 1 0 1 linear\n"
       "\"Say \\\"hi\\\" \\\\ now\" 0 1 0 1 linear\n"
       "\"C:\\dir\"\t0\t1\t0\t1\tlinear\n",
       {"1: 'Filter Cutoff' 0 1 0 1 curve 2", "2: 'Band #2 gain' 0 1 0 1 curve 2", "3: '3' 0 1 0 1 curve 2",
        "4: 'Say \"hi\" \\ now' 0 1 0 1 curve 2", "5: 'C:\\dir' 0 1 0 1 curve 2"}},
      {"\xEF\xBB\xBF# automation for the delay\r\n"
       "\r\n"
       "   \t  \r\n"
       "Time 0 2 10 500 linear   # sweep\r\n"
       "#Feedback 0 1 0 1 jump\r\n"
       "Feedback 2 2 0 90 jump# no blank before the hash\r\n"
       "Mix 2 3 0 100 sine",  // no line end at the end of the file
       {"4: 'Time' 0 2 10 500 curve 2", "6: 'Feedback' 2 2 0 90 curve 1", "7: 'Mix' 2 3 0 100 curve 16"}},
      {"", {}},
      {"# nothing\n\n", {}},
  };
  for (const auto& [text, lines] : cases) EXPECT_EQ(ShowAutomation(text), lines) << text;
}

TEST(AutomationFile, EveryErrorNamesItsLine) {
  const std::string good = "0 0 1 0 1 linear\n# comment\n\n";  // lines 1 to 3
  const std::pair<const char*, const char*> cases[] = {
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
      // Numbers are read in the C locale only, whole and finite.
      {"0 0 1 0,5 1 linear", "line 4: bad start value '0,5'"},
      {"0 0 1 0 1,0 linear", "line 4: bad end value '1,0'"},
      {"0 0 inf 0 1 linear", "line 4: bad end time 'inf'"},
      {"0 nan 1 0 1 linear", "line 4: bad start time 'nan'"},
      {"0 0 0x10 0 1 linear", "line 4: bad end time '0x10'"},
      {"0 0 1s 0 1 linear", "line 4: bad end time '1s'"},
      {"0 0 1 1e999 1 linear", "line 4: bad start value '1e999'"},
      {"0 0 1 +-1 1 linear", "line 4: bad start value '+-1'"},
      {"0 0 1 - 1 linear", "line 4: bad start value '-'"},
      {"0 0 \"1\" 0 1 linear", "line 4: bad end time '1'"},
  };
  for (const auto& [line, message] : cases) EXPECT_EQ(AutomationError(good + line + "\n" + good), message) << line;
  // Line numbers count CR LF lines as well.
  EXPECT_EQ(AutomationError("0 0 1 0 1 linear\r\n\r\nGain 0 1 0 1 wobble\r\n"),
            "line 3: unknown curve 'wobble' (jump, linear, square, invsquare or sine)");
}

// --- Tempo map ----------------------------------------------------------------

TEST(TempoMapFile, ReadsTemposAndMetersInOrder) {
  // A meter and a tempo may share a time in either order; once time moves
  // on, both may be set again.
  EXPECT_EQ(ShowTempoMap("# song\n"
                         "0 120\n"
                         "0 meter 4/4\r\n"
                         "8 90.5   # slower\n"
                         "12.25 METER 7/8\n"
                         "16 meter 3/4\n"
                         "16 999\n"),
            (Lines{"2: 0 120 bpm", "3: 0 meter 4/4", "4: 8 90.5 bpm", "5: 12.25 meter 7/8", "6: 16 meter 3/4",
                   "7: 16 999 bpm"}));
  EXPECT_TRUE(ShowTempoMap("").empty());
  for (int d : {1, 2, 4, 8, 16, 32, 64})
    EXPECT_EQ(ShowTempoMap("0 meter 99/" + std::to_string(d) + "\n"), Lines{"1: 0 meter 99/" + std::to_string(d)});
}

TEST(TempoMapFile, EveryErrorNamesItsLine) {
  const std::string good = "0 120\n\n# c\n";  // lines 1 to 3
  const std::pair<const char*, const char*> cases[] = {
      {"4", "line 4: expected TIME BPM or TIME meter N/D"},
      {"4 meter", "line 4: expected TIME meter N/D"},
      {"4 120 130", "line 4: unexpected '130' after the tempo"},
      {"4 meter 3/4 x", "line 4: unexpected 'x' after the meter"},
      {"4 0", "line 4: tempo 0 is not above 0 and at most 999"},
      {"4 -10", "line 4: tempo -10 is not above 0 and at most 999"},
      {"4 1000", "line 4: tempo 1000 is not above 0 and at most 999"},
      {"4 120,5", "line 4: bad tempo '120,5'"},
      {"4,5 120", "line 4: bad time '4,5'"},
      {"-1 120", "line 4: time -1 is negative"},
      {"4 meter 3-4", "line 4: bad meter '3-4' (expected N/D, as in 3/4)"},
      {"4 meter 3/", "line 4: bad meter '3/' (expected N/D, as in 3/4)"},
      {"4 meter /4", "line 4: bad meter '/4' (expected N/D, as in 3/4)"},
      {"4 meter 3.5/4", "line 4: bad meter '3.5/4' (expected N/D, as in 3/4)"},
      {"4 meter 0/4", "line 4: meter numerator 0 is not between 1 and 99"},
      {"4 meter 100/4", "line 4: meter numerator 100 is not between 1 and 99"},
      {"4 meter 3/0", "line 4: meter denominator 0 is not 1, 2, 4, 8, 16, 32 or 64"},
      {"4 meter 3/12", "line 4: meter denominator 12 is not 1, 2, 4, 8, 16, 32 or 64"},
      {"4 meter 3/128", "line 4: meter denominator 128 is not 1, 2, 4, 8, 16, 32 or 64"},
      {"4 \"meter\" 3/4", "line 4: unexpected '3/4' after the tempo"},
      {"\"4 120", "line 4: missing closing quote"},
      {"2 90", "line 4: time 2 comes before 4 on line 1 (entries go in rising time order)"},
      {"0 meter 4/4\n0 130", "line 5: a second tempo at 0 seconds"},
  };
  for (const auto& [line, message] : cases)
    EXPECT_EQ(TempoError((line[0] == '2' ? "4 120\n\n# c\n" : good) + line + "\n"), message) << line;
  EXPECT_EQ(TempoError("1 meter 4/4\n1 120\n1.0 meter 3/4\n"), "line 3: a second meter at 1.0 seconds");
}

// --- Reading a file -----------------------------------------------------------

TEST(TextFile, ReadsTheBytesAsTheyAreAndNamesWhatItCannotRead) {
  zqtest::TestFolder folder{"zq_zqvst_text_"};
  const std::string content("a\r\nb\0c\xFF\n", 8);
  std::string text = "old", error;
  for (const std::string& bytes : {content, std::string()}) {
    const auto path = (folder.path() / "automation.txt").string();
    std::ofstream(path, std::ios::binary) << bytes;
    ASSERT_TRUE(ZqvstReadFile(path, &text, &error)) << error;
    EXPECT_EQ(text, bytes);
  }
  const auto missing = (folder.path() / "missing.txt").string();
  EXPECT_FALSE(ZqvstReadFile(missing, &text, &error));
  EXPECT_EQ(error.rfind(missing + ": ", 0), 0u) << error;
  EXPECT_GT(error.size(), missing.size() + 2);
  EXPECT_FALSE(ZqvstReadFile(folder.path().string(), &text, &error));
  EXPECT_EQ(error, folder.path().string() + ": is a folder, not a file");
}

}  // namespace
