#ifndef KXSTREAM_INPUT_DIGEST_H
#define KXSTREAM_INPUT_DIGEST_H

#include <string>

#include <kxstreams/KXException.h>

namespace kxstream {

// The name that stands for standard input.
constexpr const char* kStandardInputName = "-";

// The content identifier (32 lower-case hexadecimal digits) of the named input, standard input
// for "-". Every command that digests an input by name goes through here. Safe to call from
// several threads at once; throws KXException when the input cannot be opened or read.
std::string digestOfInput(const std::string& name);

}  // namespace kxstream

#endif
