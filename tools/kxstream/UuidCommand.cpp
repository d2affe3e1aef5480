// kxstream uuid: time-based UUIDs, one a line.

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <kxstreams/UUID.h>

#include "Commands.h"
#include "Diagnostics.h"

namespace kxstream {

namespace {

// Returns false when the UUID or its text could not be made.
bool printOne() {
  kx_uuid_t uuid;
  char* text = nullptr;
  if (native_uuid_create(&uuid) == 0 || native_uuid_to_string(&uuid, &text) == 0) {
    return false;
  }
  std::fputs(text, stdout);
  std::fputc('\n', stdout);
  native_uuid_string_free(&text);
  return true;
}

}  // namespace

int runUuid(const Arguments& arguments) {
  if (!arguments.operands.empty()) {
    throw UsageError("extra operand '" + arguments.operands.front() + "'");
  }
  const long long count = arguments.count("-n", 1);
  for (long long index = 0; index < count; ++index) {
    if (!printOne()) {
      reportFailure("uuid", errno != 0 ? std::strerror(errno) : "could not create a UUID");
      return finishStandardOutput(kExitInputFailed);
    }
  }
  return finishStandardOutput(kExitSuccess);
}

}  // namespace kxstream
