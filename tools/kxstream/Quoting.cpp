#include "Quoting.h"

#include <cctype>
#include <cstring>

namespace kxstream {

namespace {

bool needsEscape(unsigned char c) { return c < 0x20 || c >= 0x7f; }

bool isShellSpecial(unsigned char c, size_t index, const std::string& name) {
  if (std::strchr(" !\"$&'()*:;<=>?[\\^`|", c) != nullptr && c != '\0') {
    return true;
  }
  if ((c == '#' || c == '~') && index == 0) {
    return true;
  }
  return (c == '{' || c == '}') && name.size() == 1;
}

// Characters that mean the same inside double quotes as outside.
bool keepsMeaningInDoubleQuotes(unsigned char c, size_t index) {
  return std::isalnum(c) != 0 || std::strchr(" '%+,-./:@]_", c) != nullptr ||
         ((c == '#' || c == '~') && index == 0);
}

bool needsQuotes(const std::string& name) {
  if (name.empty()) {
    return true;
  }
  for (size_t index = 0; index < name.size(); ++index) {
    const auto c = static_cast<unsigned char>(name[index]);
    if (needsEscape(c) || isShellSpecial(c, index, name)) {
      return true;
    }
  }
  return false;
}

bool fitsDoubleQuotes(const std::string& name) {
  if (name.find('\'') == std::string::npos) {
    return false;
  }
  for (size_t index = 0; index < name.size(); ++index) {
    if (!keepsMeaningInDoubleQuotes(static_cast<unsigned char>(name[index]), index)) {
      return false;
    }
  }
  return true;
}

std::string escaped(unsigned char c) {
  static const char* const kNamed = "abtnvfr";
  if (c >= '\a' && c <= '\r') {
    return std::string("\\") + kNamed[c - '\a'];
  }
  const char octal[] = {'\\', static_cast<char>('0' + (c >> 6U)),
                        static_cast<char>('0' + ((c >> 3U) & 7U)),
                        static_cast<char>('0' + (c & 7U)), '\0'};
  return octal;
}

std::string singleQuoted(const std::string& name) {
  std::string out = "'";
  bool inEscape = false;
  for (const char byte : name) {
    const auto c = static_cast<unsigned char>(byte);
    if (needsEscape(c)) {
      out += inEscape ? "" : "'$'";
      inEscape = true;
      out += escaped(c);
      continue;
    }
    if (inEscape) {
      out += "''";
      inEscape = false;
    }
    out += c == '\'' ? std::string("'\\''") : std::string(1, byte);
  }
  return out + "'";
}

}  // namespace

std::string quoteAlways(const std::string& name) {
  return fitsDoubleQuotes(name) ? "\"" + name + "\"" : singleQuoted(name);
}

std::string quoteName(const std::string& name) {
  return needsQuotes(name) ? quoteAlways(name) : name;
}

}  // namespace kxstream
