// Parsing the command line of zqvst.
#include "tools/zqvst/cmdline.h"

#include <charconv>
#include <cmath>
#include <string_view>

std::string ZqvstArgs::Get(const std::string& name) const {
  const auto it = m_values.find(name);
  return it == m_values.end() || it->second.empty() ? std::string() : it->second.back();
}

const std::vector<std::string>& ZqvstArgs::All(const std::string& name) const {
  static const std::vector<std::string> none;
  const auto it = m_values.find(name);
  return it == m_values.end() ? none : it->second;
}

bool ZqvstArgs::Parse(int argc, char** argv, int first, const std::vector<ZqvstOption>& known,
                      std::string* error) {
  bool optionsEnded = false;
  for (int i = first; i < argc; ++i) {
    const std::string arg = argv[i];
    if (optionsEnded || arg.size() < 2 || arg[0] != '-') {
      m_positional.push_back(arg);
      continue;
    }
    if (arg == "--") {
      optionsEnded = true;
      continue;
    }
    if (arg.compare(0, 2, "--") != 0) {
      *error = "unknown option '" + arg + "'";
      return false;
    }
    std::string name = arg.substr(2);
    std::string value;
    bool inlineValue = false;
    const size_t equals = name.find('=');
    if (equals != std::string::npos) {
      value = name.substr(equals + 1);
      name.resize(equals);
      inlineValue = true;
    }
    const ZqvstOption* option = nullptr;
    for (const auto& s : known)
      if (name == s.name) option = &s;
    if (!option) {
      *error = "unknown option '--" + name + "'";
      return false;
    }
    if (option->takesValue && !inlineValue) {
      if (i + 1 >= argc) {
        *error = "option '--" + name + "' needs a value";
        return false;
      }
      value = argv[++i];
    } else if (!option->takesValue && inlineValue) {
      *error = "option '--" + name + "' takes no value";
      return false;
    }
    auto& values = m_values[name];
    if (!values.empty() && !option->repeatable) {
      *error = "option '--" + name + "' given more than once";
      return false;
    }
    values.push_back(value);
  }
  return true;
}

bool ZqvstParseDouble(const std::string& text, double* value) {
  std::string_view s(text);
  if (!s.empty() && s.front() == '+') {
    s.remove_prefix(1);
    if (!s.empty() && s.front() == '-') return false;
  }
  // from_chars takes "inf" and "nan" as well; neither is a value here.
  const size_t lead = !s.empty() && s.front() == '-' ? 1 : 0;
  if (s.size() <= lead) return false;
  const char first = s[lead];
  if (!(first == '.' || (first >= '0' && first <= '9'))) return false;
  double parsed = 0.0;
  const auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), parsed, std::chars_format::general);
  if (ec != std::errc() || end != s.data() + s.size() || !std::isfinite(parsed)) return false;
  *value = parsed;
  return true;
}

bool ZqvstEqualsNoCase(std::string_view a, std::string_view b) {
  auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (lower(a[i]) != lower(b[i])) return false;
  return true;
}

bool ZqvstReadSets(const ZqvstArgs& args, std::vector<std::pair<std::string, double>>* sets, std::string* error) {
  for (const auto& set : args.All("set")) {
    const size_t equals = set.rfind('=');
    double value = 0;
    if (equals == std::string::npos || equals == 0 || !ZqvstParseDouble(set.substr(equals + 1), &value)) {
      *error = "invalid --set '" + set + "' (PARAM=VALUE expected)";
      return false;
    }
    sets->emplace_back(set.substr(0, equals), value);
  }
  return true;
}

bool ZqvstParseLong(const std::string& text, long* value) {
  const char* begin = text.data();
  const char* end = begin + text.size();
  if (begin != end && *begin == '+') ++begin;
  long parsed = 0;
  const auto result = std::from_chars(begin, end, parsed);
  if (result.ec != std::errc() || result.ptr != end) return false;
  *value = parsed;
  return true;
}
