#ifndef KXSTREAM_CHECKSUM_LINE_H
#define KXSTREAM_CHECKSUM_LINE_H

#include <optional>
#include <string>

namespace kxstream {

// How a listing line is written: md5sum's "DIGEST  NAME" (" *NAME" in binary mode) or the BSD
// form "MD5 (NAME) = DIGEST" of --tag, ended by a newline or, with -z, by a NUL.
struct LineStyle {
  bool tagged = false;
  bool binary = false;
  char delimiter = '\n';
};

// One listing line, delimiter included. A newline-ended line whose name holds a backslash, a
// line feed or a carriage return starts with a backslash and escapes those, so that every
// line reads back.
std::string listingLine(const std::string& digest, const std::string& name, const LineStyle& style);

// "NAME: VERDICT" plus the delimiter, as md5sum -c prints it: a name with a line feed is
// escaped as in a listing line (only then, so that ordinary names stay greppable).
std::string verdictLine(const std::string& name, const char* verdict, char delimiter);

// A line of a listing as read back: the digest text (32 hexadecimal digits) and the name.
struct ChecksumEntry {
  std::string digest;
  std::string name;
};

// Reads listing lines in md5sum's three forms: "DIGEST  NAME", "DIGEST *NAME", BSD
// "MD5 (NAME) = DIGEST", and the reversed BSD "DIGEST NAME" (one space). Like md5sum, the first
// line in either of the last two forms fixes which one every later line must use.
class ChecksumLineParser {
 public:
  // The entry of a line (without its delimiter or carriage return), or nothing when the line
  // is improperly formatted. A list read from standard input cannot name "-".
  std::optional<ChecksumEntry> parse(const std::string& line, bool listIsStandardInput);

 private:
  std::optional<ChecksumEntry> parseBsd(const std::string& rest, bool escaped) const;
  int mReversedForm = -1;  // -1 undecided, 0 two-space form seen, 1 reversed form seen
};

}  // namespace kxstream

#endif
