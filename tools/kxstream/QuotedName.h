#ifndef KXSTREAM_QUOTED_NAME_H
#define KXSTREAM_QUOTED_NAME_H

#include <string>

namespace kxstream {

// The name as coreutils quotes a file name in a message: unchanged when the shell would read
// it back as it stands, else in single quotes (double quotes when it holds a single quote and
// nothing a shell expands inside double quotes), control characters as $'\n'. A colon is
// quoted too, so that "NAME: REASON" stays unambiguous. Whether a byte of 128 or more prints
// follows the locale's character set (LC_CTYPE), as in coreutils.
std::string quotedName(const std::string& name);

// The same, but in quotes even when the shell would read it back as it stands, as coreutils
// quotes a name inside a sentence ("cannot open 'F' for reading").
std::string alwaysQuotedName(const std::string& name);

}  // namespace kxstream

#endif
