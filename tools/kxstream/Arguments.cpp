#include "Arguments.h"

#include <cerrno>
#include <cstdlib>

namespace kxstream {

namespace {

bool isOption(const std::string& word) { return word.size() > 1 && word[0] == '-'; }

// Splits "--start=10" and "-n10" into the option and its attached value.
bool splitAttachedValue(const std::string& word, const OptionSet& options, std::string& option,
                        std::string& value) {
  const auto equals = word.find('=');
  if (word.compare(0, 2, "--") == 0 && equals != std::string::npos) {
    option = word.substr(0, equals);
    value = word.substr(equals + 1);
    return options.valued.count(option) != 0;
  }
  if (word.compare(0, 2, "--") != 0 && word.size() > 2) {
    option = word.substr(0, 2);
    value = word.substr(2);
    return options.valued.count(option) != 0;
  }
  return false;
}

}  // namespace

bool Arguments::has(const std::string& option) const {
  return flags.count(option) != 0 || values.count(option) != 0;
}

long long Arguments::count(const std::string& option, long long fallback) const {
  const auto found = values.find(option);
  if (found == values.end()) {
    return fallback;
  }
  const std::string& text = found->second;
  char* end = nullptr;
  errno = 0;
  const long long value = std::strtoll(text.c_str(), &end, 10);
  const bool digitsOnly =
      !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
  if (!digitsOnly || errno == ERANGE || *end != '\0') {
    throw UsageError("invalid number for " + option + ": '" + text + "'");
  }
  return value;
}

Arguments parseArguments(const std::vector<std::string>& words, const OptionSet& options) {
  Arguments parsed;
  bool optionsEnded = false;
  for (size_t index = 0; index < words.size(); ++index) {
    const std::string& word = words[index];
    if (optionsEnded || !isOption(word)) {
      parsed.operands.push_back(word);
    } else if (word == "--") {
      optionsEnded = true;
    } else if (options.flags.count(word) != 0) {
      parsed.flags.insert(word);
    } else if (options.valued.count(word) != 0) {
      if (index + 1 == words.size()) {
        throw UsageError("option '" + word + "' requires a value");
      }
      parsed.values[word] = words[++index];
    } else {
      std::string option;
      std::string value;
      if (!splitAttachedValue(word, options, option, value)) {
        throw UsageError("unrecognized option '" + word + "'");
      }
      parsed.values[option] = value;
    }
  }
  return parsed;
}

}  // namespace kxstream
