#include "QuotedName.h"

#include <cstdio>

namespace kxstream {

namespace {

// Characters a shell gives a meaning to anywhere in a word; '#' and '~' only at its start.
constexpr const char* kShellSpecial = " !\"$&'()*;<=>?[\\^`|:";
// Of those, the ones that keep their meaning inside double quotes.
constexpr const char* kSpecialInDoubleQuotes = "!\"$&()*;<=>?[\\^`|";

bool isControl(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 0x20 || byte == 0x7f;
}

bool needsQuotes(const std::string& name) {
  for (size_t at = 0; at < name.size(); ++at) {
    const char c = name[at];
    if (isControl(c) || std::string(kShellSpecial).find(c) != std::string::npos ||
        (at == 0 && (c == '#' || c == '~'))) {
      return true;
    }
  }
  return name.empty();
}

bool fitsDoubleQuotes(const std::string& name) {
  if (name.find('\'') == std::string::npos) {
    return false;
  }
  for (size_t at = 0; at < name.size(); ++at) {
    const char c = name[at];
    if (isControl(c) || std::string(kSpecialInDoubleQuotes).find(c) != std::string::npos ||
        (at != 0 && (c == '#' || c == '~'))) {
      return false;
    }
  }
  return true;
}

std::string controlEscape(char c) {
  switch (c) {
    case '\a':
      return "\\a";
    case '\b':
      return "\\b";
    case '\f':
      return "\\f";
    case '\n':
      return "\\n";
    case '\r':
      return "\\r";
    case '\t':
      return "\\t";
    case '\v':
      return "\\v";
    default: {
      char octal[8];
      std::snprintf(octal, sizeof octal, "\\%03o", static_cast<unsigned char>(c));
      return octal;
    }
  }
}

// 'text', a single quote as '\'' and a run of control characters as '$'\n\t''.
std::string singleQuoted(const std::string& name) {
  std::string quoted = "'";
  bool inEscapes = false;
  for (const char c : name) {
    if (isControl(c) != inEscapes) {
      quoted += inEscapes ? "''" : "'$'";
      inEscapes = !inEscapes;
    }
    if (inEscapes) {
      quoted += controlEscape(c);
    } else {
      quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
  }
  return quoted + "'";
}

}  // namespace

std::string quotedName(const std::string& name) {
  if (!needsQuotes(name)) {
    return name;
  }
  if (fitsDoubleQuotes(name)) {
    return "\"" + name + "\"";
  }
  return singleQuoted(name);
}

std::string alwaysQuotedName(const std::string& name) {
  return needsQuotes(name) ? quotedName(name) : "'" + name + "'";
}

}  // namespace kxstream
