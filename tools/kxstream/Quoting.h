#ifndef KXSTREAM_QUOTING_H
#define KXSTREAM_QUOTING_H

#include <string>

namespace kxstream {

// A file name as coreutils shows it in messages (its shell-escape style, C locale): bare when
// no shell would misread it, else in single quotes (double quotes for a name whose only odd
// character is a quote), with control and non-ASCII bytes as $'\n' or $'\303'. So a name with
// a line break still gives a one-line message.
std::string quoteName(const std::string& name);
// The same, always in quotes: for a name inside a sentence ("cannot stat 'x'").
std::string quoteAlways(const std::string& name);

}  // namespace kxstream

#endif
