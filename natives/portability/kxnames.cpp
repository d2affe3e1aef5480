#include <unistd.h>

#include <cstring>

#include "kxos.h"

namespace {

constexpr const char* kProcessLister = "/bin/ps";
// Neutral locale so the listing's header and names come out as plain bytes; error messages go
// into the same output so that they never reach the caller's terminal.
constexpr const char* kListerCommandFormat =
    "unset LC_CTPE;unset LC_MESSAGES; unset LC_TIME; unset NLSPATH; set LC_ALL; LC_ALL=C; "
    "/bin/ps -fo comm -p %d 2>&1";
constexpr size_t kCommandSize = 256;
constexpr size_t kListingSize = 512;
constexpr size_t kPieceSize = 32;

bool processListerExists() {
  struct stat64 record {};
  return kx_stat(kProcessLister, &record) == 0;
}

// Reads the command's output up to kListingSize - 1 characters.
void collectListing(FILE* pipe, char* listing) {
  listing[0] = '\0';
  long budget = static_cast<long>(kListingSize) - 1;
  char piece[kPieceSize];
  while (budget > 0 && fgets(piece, sizeof piece, pipe) != nullptr) {
    strncat(listing, piece, static_cast<size_t>(budget));
    budget -= static_cast<long>(strlen(piece));
  }
}

// The name is the listing's second line; the first is the column header.
const char* nameAfterHeader(const char* listing) {
  const char* newline = strchr(listing, '\n');
  if (newline == nullptr || newline[1] == '\0') {
    return nullptr;
  }
  return newline + 1;
}

// Blanks out the line end and every control or non-ASCII byte (signed value of 32 or less).
void blankNonPrintable(char* text) {
  for (char* at = text; *at != '\0'; ++at) {
    if (static_cast<signed char>(*at) <= ' ') {
      *at = ' ';
    }
  }
}

int copyName(const char* name, char* buffer, int length) {
  strncpy(buffer, name, static_cast<size_t>(length));
  buffer[length - 1] = '\0';
  blankNonPrintable(buffer);
  return static_cast<int>(strlen(buffer));
}

}  // namespace

extern "C" {

int kx_GetAppName(char* buffer, int length) {
  if (length < 1) {
    return 0;
  }
  buffer[0] = '\0';
  char command[kCommandSize];
  (void)kx_snprintf(command, sizeof command, kListerCommandFormat, static_cast<int>(getpid()));
  if (!processListerExists()) {
    return 0;
  }
  FILE* pipe = popen(command, "r");
  if (pipe == nullptr) {
    return 0;
  }
  char listing[kListingSize];
  collectListing(pipe, listing);
  const char* name = nameAfterHeader(listing);
  const int written = name == nullptr ? 0 : copyName(name, buffer, length);
  (void)pclose(pipe);
  return written;
}

char* kx_adjustLibName(const char* base, const char* suffix) {
  static constexpr const char* kPrefix = "lib";
  static constexpr const char* kBitWidth = "64";
  static constexpr const char* kExtension = ".so";
  const char* effectiveSuffix = suffix == nullptr ? "" : suffix;
  const size_t size = strlen(kPrefix) + strlen(base) + strlen(kBitWidth) + strlen(effectiveSuffix) +
                      strlen(kExtension) + 1;
  char* name = static_cast<char*>(kx_malloc(size));
  if (name == nullptr) {
    return nullptr;
  }
  (void)kx_snprintf(name, size, "%s%s%s%s%s", kPrefix, base, kBitWidth, effectiveSuffix,
                    kExtension);
  return name;
}
}
