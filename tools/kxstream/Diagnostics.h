#ifndef KXSTREAM_DIAGNOSTICS_H
#define KXSTREAM_DIAGNOSTICS_H

#include <string>

#include <kxstreams/KXException.h>

namespace kxstream {

constexpr int kExitSuccess = 0;
constexpr int kExitInputFailed = 1;
constexpr int kExitUsage = 2;

// The reason in the system's words for an errno code or a library code; else the
// exception's own message, never a field name of the stream record.
std::string reasonOf(const KXException& failure);

// One line on standard error: "kxstream: MESSAGE", after what standard output holds so far; the
// message quotes its own names.
void reportProblem(const std::string& message);

// One line on standard error: "kxstream: NAME: REASON", the name quoted as coreutils quotes it.
void reportFailure(const std::string& name, const std::string& reason);
void reportFailure(const std::string& name, const KXException& failure);
// Flushes standard output; a failed write is reported and turns the exit code into 1.
int finishStandardOutput(int exitCode);

}  // namespace kxstream

#endif
