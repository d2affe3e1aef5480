#include "QuotedName.h"

#include <clocale>
#include <cwchar>
#include <cwctype>
#include <optional>
#include <vector>

namespace kxstream {

namespace {

// Characters a shell gives a meaning to anywhere in a word; '#' and '~' only at its start.
constexpr const char* kShellSpecial = " !\"$&'()*;<=>?[\\^`|:";
// Of those, the ones that keep their meaning inside double quotes.
constexpr const char* kSpecialInDoubleQuotes = "!\"$&()*;<=>?[\\^`|";

// One character of the name: an ASCII byte, a multibyte character of the locale, or a byte
// that starts no valid character; whether it prints decides whether it is escaped.
struct Piece {
  size_t at;
  size_t length;
  bool printable;
};

// The user's character set (LC_CTYPE of the environment), loaded the first time a name holds
// a byte of 128 or more: most runs never need it, and loading it costs a fifth of the tool's
// resident memory. Without a valid locale in the environment, the C locale's rules hold.
class UserCharacterSet {
 public:
  UserCharacterSet() : mLocale(newlocale(LC_CTYPE_MASK, "", static_cast<locale_t>(nullptr))) {}
  ~UserCharacterSet() {
    if (mLocale != static_cast<locale_t>(nullptr)) {
      freelocale(mLocale);
    }
  }
  UserCharacterSet(const UserCharacterSet&) = delete;
  UserCharacterSet& operator=(const UserCharacterSet&) = delete;

  locale_t get() const {
    return mLocale != static_cast<locale_t>(nullptr) ? mLocale : LC_GLOBAL_LOCALE;
  }

 private:
  locale_t mLocale;
};

// Makes the user's character set this thread's while the scope lasts.
class InUserCharacterSet {
 public:
  InUserCharacterSet() {
    static const UserCharacterSet characterSet;
    mPrevious = uselocale(characterSet.get());
  }
  ~InUserCharacterSet() { uselocale(mPrevious); }
  InUserCharacterSet(const InUserCharacterSet&) = delete;
  InUserCharacterSet& operator=(const InUserCharacterSet&) = delete;

 private:
  locale_t mPrevious;
};

std::vector<Piece> piecesOf(const std::string& name) {
  std::vector<Piece> pieces;
  std::optional<InUserCharacterSet> characterSet;
  for (size_t at = 0; at < name.size();) {
    const auto byte = static_cast<unsigned char>(name[at]);
    if (byte < 0x80) {
      pieces.push_back({at, 1, byte >= 0x20 && byte != 0x7f});
      ++at;
      continue;
    }
    if (!characterSet) {
      characterSet.emplace();
    }
    std::mbstate_t state{};
    wchar_t character = 0;
    const size_t length = std::mbrtowc(&character, name.data() + at, name.size() - at, &state);
    if (length == static_cast<size_t>(-1) || length == static_cast<size_t>(-2) || length == 0) {
      pieces.push_back({at, 1, false});
      ++at;
    } else {
      pieces.push_back({at, length, std::iswprint(static_cast<wint_t>(character)) != 0});
      at += length;
    }
  }
  return pieces;
}

bool isSpecial(const std::string& name, const Piece& piece, const char* specials) {
  return piece.length == 1 && std::string(specials).find(name[piece.at]) != std::string::npos;
}

bool isHashOrTilde(const std::string& name, const Piece& piece) {
  return piece.length == 1 && (name[piece.at] == '#' || name[piece.at] == '~');
}

bool needsQuotes(const std::string& name, const std::vector<Piece>& pieces) {
  for (const Piece& piece : pieces) {
    if (!piece.printable || isSpecial(name, piece, kShellSpecial) ||
        (piece.at == 0 && isHashOrTilde(name, piece))) {
      return true;
    }
  }
  return name.empty();
}

bool fitsDoubleQuotes(const std::string& name, const std::vector<Piece>& pieces) {
  if (name.find('\'') == std::string::npos) {
    return false;
  }
  for (const Piece& piece : pieces) {
    if (!piece.printable || isSpecial(name, piece, kSpecialInDoubleQuotes) ||
        (piece.at != 0 && isHashOrTilde(name, piece))) {
      return false;
    }
  }
  return true;
}

std::string byteEscape(char c) {
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
      const auto byte = static_cast<unsigned char>(c);
      return {'\\', static_cast<char>('0' + (byte >> 6)),
              static_cast<char>('0' + ((byte >> 3) & 7)), static_cast<char>('0' + (byte & 7))};
    }
  }
}

// 'text', a single quote as '\'' and a run of characters that do not print as '$'\n\t''.
std::string singleQuoted(const std::string& name, const std::vector<Piece>& pieces) {
  std::string quoted = "'";
  bool inEscapes = false;
  for (const Piece& piece : pieces) {
    if (piece.printable == inEscapes) {
      quoted += inEscapes ? "''" : "'$'";
      inEscapes = !inEscapes;
    }
    for (size_t at = piece.at; at < piece.at + piece.length; ++at) {
      if (inEscapes) {
        quoted += byteEscape(name[at]);
      } else {
        quoted += name[at] == '\'' ? std::string("'\\''") : std::string(1, name[at]);
      }
    }
  }
  return quoted + "'";
}

}  // namespace

std::string quotedName(const std::string& name) {
  const std::vector<Piece> pieces = piecesOf(name);
  if (!needsQuotes(name, pieces)) {
    return name;
  }
  if (fitsDoubleQuotes(name, pieces)) {
    return "\"" + name + "\"";
  }
  return singleQuoted(name, pieces);
}

std::string alwaysQuotedName(const std::string& name) {
  const std::string quoted = quotedName(name);
  return quoted == name ? "'" + name + "'" : quoted;
}

}  // namespace kxstream
