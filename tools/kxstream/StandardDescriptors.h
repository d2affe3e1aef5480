#ifndef KXSTREAM_STANDARD_DESCRIPTORS_H
#define KXSTREAM_STANDARD_DESCRIPTORS_H

#include <sys/stat.h>

namespace kxstream {

// A standard descriptor (0, 1, 2) the tool was started without must stay unusable: were a
// file opened later to take its number, "-" would read that file and /dev/stdout would write
// into it. Each closed one gets a placeholder that every read and write refuses with EBADF,
// as a closed descriptor would. Call once, first thing.
void guardStandardDescriptors();

// Whether the descriptor was closed when the tool started.
bool wasClosedAtStart(int descriptor);

// Whether a file opened by name is only a placeholder (/dev/stdin, /dev/fd/1 of a closed one):
// for such a name the file does not exist.
bool isPlaceholder(const struct stat& status);

}  // namespace kxstream

#endif
