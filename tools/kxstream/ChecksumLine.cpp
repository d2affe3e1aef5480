#include "ChecksumLine.h"

#include <cctype>

namespace kxstream {

namespace {

constexpr size_t kDigestLength = 32;
// A digest, one blank and a name of at least one character.
constexpr size_t kShortestLine = kDigestLength + 2;
constexpr const char* kAlgorithm = "MD5";

bool isBlank(char c) { return c == ' ' || c == '\t'; }

std::string escaped(const std::string& name) {
  std::string text;
  for (const char c : name) {
    switch (c) {
      case '\\':
        text += "\\\\";
        break;
      case '\n':
        text += "\\n";
        break;
      case '\r':
        text += "\\r";
        break;
      default:
        text += c;
    }
  }
  return text;
}

// Undoes escaped(); nothing for a lone trailing backslash, another escape or a NUL.
std::optional<std::string> unescaped(const std::string& text) {
  std::string name;
  for (size_t at = 0; at < text.size(); ++at) {
    if (text[at] == '\0') {
      return std::nullopt;
    }
    if (text[at] != '\\') {
      name += text[at];
      continue;
    }
    if (++at == text.size()) {
      return std::nullopt;
    }
    switch (text[at]) {
      case 'n':
        name += '\n';
        break;
      case 'r':
        name += '\r';
        break;
      case '\\':
        name += '\\';
        break;
      default:
        return std::nullopt;
    }
  }
  return name;
}

bool isDigest(const std::string& text) {
  if (text.size() != kDigestLength) {
    return false;
  }
  for (const char c : text) {
    if (std::isxdigit(static_cast<unsigned char>(c)) == 0) {
      return false;
    }
  }
  return true;
}

std::optional<ChecksumEntry> entryOf(const std::string& digest, const std::string& name,
                                     bool escapedName) {
  if (!isDigest(digest)) {
    return std::nullopt;
  }
  if (!escapedName) {
    // A NUL ends the name, as it ends md5sum's C string; an escaped name may not hold one.
    return ChecksumEntry{digest, name.substr(0, name.find('\0'))};
  }
  std::optional<std::string> plain = unescaped(name);
  if (!plain) {
    return std::nullopt;
  }
  return ChecksumEntry{digest, std::move(*plain)};
}

}  // namespace

std::string listingLine(const std::string& digest, const std::string& name,
                        const LineStyle& style) {
  const bool escape = style.delimiter == '\n' && name.find_first_of("\\\n\r") != std::string::npos;
  const std::string shown = escape ? escaped(name) : name;
  std::string line = escape ? "\\" : "";
  if (style.tagged) {
    line += std::string(kAlgorithm) + " (" + shown + ") = " + digest;
  } else {
    line += digest + (style.binary ? " *" : "  ") + shown;
  }
  return line + style.delimiter;
}

std::string verdictLine(const std::string& name, const char* verdict, char delimiter) {
  const bool escape = delimiter == '\n' && name.find('\n') != std::string::npos;
  return (escape ? "\\" + escaped(name) : name) + ": " + verdict + delimiter;
}

std::optional<ChecksumEntry> ChecksumLineParser::parse(const std::string& line,
                                                       bool listIsStandardInput) {
  size_t at = 0;
  while (at < line.size() && isBlank(line[at])) {
    ++at;
  }
  const bool escapedName = at < line.size() && line[at] == '\\';
  at += escapedName ? 1 : 0;

  std::optional<ChecksumEntry> entry;
  if (line.compare(at, 3, kAlgorithm) == 0) {
    at += 3;
    at += at < line.size() && line[at] == ' ' ? 1 : 0;
    if (at < line.size() && line[at] == '(') {
      entry = parseBsd(line.substr(at + 1), escapedName);
    }
  } else if (line.size() - at >= kShortestLine + (line[at] == '\\' ? 1 : 0) &&
             isBlank(line[at + kDigestLength])) {
    const std::string digest = line.substr(at, kDigestLength);
    at += kDigestLength + 1;
    if (line.size() - at == 1 || (line[at] != ' ' && line[at] != '*')) {
      if (mReversedForm == 0) {
        return std::nullopt;
      }
      mReversedForm = 1;
    } else if (mReversedForm != 1) {
      mReversedForm = 0;
      ++at;  // the mode character: ' ' text, '*' binary; both are read the same on Linux
    }
    entry = entryOf(digest, line.substr(at), escapedName);
  }
  if (entry && listIsStandardInput && entry->name == "-") {
    return std::nullopt;
  }
  return entry;
}

// "NAME) = DIGEST", the name ending at the last closing parenthesis.
std::optional<ChecksumEntry> ChecksumLineParser::parseBsd(const std::string& rest,
                                                          bool escaped) const {
  const size_t close = rest.rfind(')');
  if (close == std::string::npos) {
    return std::nullopt;
  }
  size_t at = close + 1;
  while (at < rest.size() && isBlank(rest[at])) {
    ++at;
  }
  if (at == rest.size() || rest[at] != '=') {
    return std::nullopt;
  }
  ++at;
  while (at < rest.size() && isBlank(rest[at])) {
    ++at;
  }
  return entryOf(rest.substr(at), rest.substr(0, close), escaped);
}

}  // namespace kxstream
