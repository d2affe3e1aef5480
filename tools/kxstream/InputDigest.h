#ifndef KXSTREAM_INPUT_DIGEST_H
#define KXSTREAM_INPUT_DIGEST_H

#include <string>

#include "InputSource.h"

namespace kxstream {

// The content identifier (32 lower-case hexadecimal digits) of the named input, standard input
// for "-". Every command that digests an input by name goes through here. Safe to call from
// several threads at once; throws InputError when the input cannot be opened, KXException when
// it cannot be read.
std::string digestOfInput(const std::string& name);

// Records that standard input was read other than by digestOfInput() (a listing, a name list).
void noteStandardInputRead();

// After the last digest: when standard input was read but the tool was started without one,
// says so as coreutils does and returns false; true otherwise.
bool finishStandardInput();

}  // namespace kxstream

#endif
