#ifndef KXSTREAM_CHECK_MODE_H
#define KXSTREAM_CHECK_MODE_H

#include <cstddef>
#include <string>
#include <vector>

namespace kxstream {

// What md5sum -c's options ask for.
struct CheckOptions {
  bool quiet = false;          // no line for a verified file
  bool statusOnly = false;     // nothing on standard output, only the exit status
  bool strict = false;         // an improperly formatted line fails the check
  bool warn = false;           // name each improperly formatted line
  bool ignoreMissing = false;  // a listed file that does not exist is neither read nor failed
  char delimiter = '\n';       // '\0' with -z: NUL-separated lines in, NUL-ended lines out
  size_t workers = 1;
};

// Verifies the files named in each listing (standard input for "-"), in parallel, printing
// md5sum -c's lines and warnings in list order; returns the exit status (0 when every list
// verified, else 1).
int checkListings(const std::vector<std::string>& listNames, const CheckOptions& options);

}  // namespace kxstream

#endif
