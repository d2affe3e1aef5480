#ifndef KXSTREAM_COMMANDS_H
#define KXSTREAM_COMMANDS_H

#include "Arguments.h"

namespace kxstream {

// Each command returns the process exit code and throws UsageError for a bad command line.
int runId(const Arguments& arguments);
int runCat(const Arguments& arguments);
int runCopy(const Arguments& arguments);
int runUuid(const Arguments& arguments);

}  // namespace kxstream

#endif
