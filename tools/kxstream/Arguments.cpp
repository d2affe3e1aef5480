#include "Arguments.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>

namespace kxstream {

namespace {

bool isLong(const std::string& name) { return name.compare(0, 2, "--") == 0; }

// The long option that the word names exactly or by an unambiguous prefix.
std::string resolveLong(const std::string& given, const std::string& word,
                        const OptionSet& options) {
  if (options.valued.count(given) != 0 || options.flags.count(given) != 0) {
    return given;
  }
  std::vector<std::string> matches;
  for (const std::set<std::string>* names : {&options.valued, &options.flags}) {
    for (const std::string& name : *names) {
      if (isLong(name) && name.compare(0, given.size(), given) == 0) {
        matches.push_back(name);
      }
    }
  }
  if (matches.empty()) {
    throw UsageError("unrecognized option '" + word + "'");
  }
  if (matches.size() > 1) {
    std::sort(matches.begin(), matches.end());
    std::string message = "option '" + given + "' is ambiguous; possibilities:";
    for (const std::string& name : matches) {
      message += " '" + name + "'";
    }
    throw UsageError(message);
  }
  return matches.front();
}

class Parser {
 public:
  Parser(const std::vector<std::string>& words, const OptionSet& options)
      : mWords(words), mOptions(options) {}

  Arguments parse() {
    bool optionsEnded = false;
    for (mIndex = 0; mIndex < mWords.size(); ++mIndex) {
      const std::string& word = mWords[mIndex];
      if (optionsEnded || word.size() < 2 || word[0] != '-') {
        mParsed.operands.push_back(word);
      } else if (word == "--") {
        optionsEnded = true;
      } else if (isLong(word)) {
        parseLong(word);
      } else {
        parseShortCluster(word);
      }
    }
    return mParsed;
  }

 private:
  void parseLong(const std::string& word) {
    const auto equals = word.find('=');
    const std::string name = resolveLong(word.substr(0, equals), word, mOptions);
    if (mOptions.flags.count(name) != 0) {
      if (equals != std::string::npos) {
        throw UsageError("option '" + name + "' doesn't allow an argument");
      }
      setFlag(name);
    } else if (equals != std::string::npos) {
      setValue(name, word.substr(equals + 1));
    } else {
      setValue(name, nextWord("option '" + name + "' requires an argument"));
    }
  }

  void parseShortCluster(const std::string& word) {
    for (size_t at = 1; at < word.size(); ++at) {
      const std::string letter = word.substr(at, 1);
      const auto alias = mOptions.aliases.find("-" + letter);
      const std::string name = alias != mOptions.aliases.end() ? alias->second : "-" + letter;
      if (mOptions.flags.count(name) != 0) {
        setFlag(name);
      } else if (mOptions.valued.count(name) != 0) {
        const std::string attached = word.substr(at + 1);
        setValue(name, !attached.empty()
                           ? attached
                           : nextWord("option requires an argument -- '" + letter + "'"));
        return;
      } else {
        throw UsageError("invalid option -- '" + letter + "'");
      }
    }
  }

  const std::string& nextWord(const std::string& missing) {
    if (mIndex + 1 == mWords.size()) {
      throw UsageError(missing);
    }
    return mWords[++mIndex];
  }

  void setFlag(const std::string& name) {
    mParsed.flags.insert(name);
    mParsed.order.push_back(name);
  }

  void setValue(const std::string& name, const std::string& value) {
    mParsed.values[name] = value;
    mParsed.order.push_back(name);
  }

  const std::vector<std::string>& mWords;
  const OptionSet& mOptions;
  Arguments mParsed;
  size_t mIndex = 0;
};

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

std::string Arguments::lastOf(const std::set<std::string>& options) const {
  const auto found = std::find_if(order.rbegin(), order.rend(),
                                  [&](const std::string& name) { return options.count(name); });
  return found != order.rend() ? *found : std::string();
}

Arguments parseArguments(const std::vector<std::string>& words, const OptionSet& options) {
  return Parser(words, options).parse();
}

}  // namespace kxstream
