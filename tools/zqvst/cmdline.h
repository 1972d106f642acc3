// The command line of zqvst: options of the form "--name value" or
// "--name=value", switches without a value, and positional arguments.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

struct ZqvstOption {
  const char* name;  // without the leading "--"
  bool takesValue;
  bool repeatable;
};

class ZqvstArgs {
 public:
  bool Has(const std::string& name) const { return m_values.count(name) != 0; }
  // The last value given for `name` (empty when absent).
  std::string Get(const std::string& name) const;
  const std::vector<std::string>& All(const std::string& name) const;
  const std::vector<std::string>& Positional() const { return m_positional; }

  // Parses argv[first..argc).  False with a message for an unknown option,
  // a missing value, a value given to a switch or an option repeated that
  // may be given once.
  bool Parse(int argc, char** argv, int first, const std::vector<ZqvstOption>& known, std::string* error);

 private:
  std::map<std::string, std::vector<std::string>> m_values;
  std::vector<std::string> m_positional;
};

// Numbers as the command line and files write them, independent of any
// locale.  The whole text must be the number: an optional sign, digits with
// "." as the decimal point and an optional exponent (no infinities, NaN or
// hexadecimal).
bool ZqvstParseDouble(const std::string& text, double* value);
bool ZqvstParseLong(const std::string& text, long* value);

// Whether two texts are equal with ASCII letters compared without regard to
// case (names, extensions and keywords; never locale-dependent).
bool ZqvstEqualsNoCase(std::string_view a, std::string_view b);

// The values of every --set PARAM=VALUE, in order; false with a message for
// one of another form.
bool ZqvstReadSets(const ZqvstArgs& args, std::vector<std::pair<std::string, double>>* sets, std::string* error);
