#ifndef KXSTREAM_DIAGNOSTICS_H
#define KXSTREAM_DIAGNOSTICS_H

#include <string>

#include <kxstreams/KXException.h>

namespace kxstream {

constexpr int kExitSuccess = 0;
constexpr int kExitInputFailed = 1;
constexpr int kExitUsage = 2;

// The system's reason for an errno code, else the exception's own message or summary.
std::string reasonOf(const KXException& failure);

// One line on standard error: "kxstream: MESSAGE", after what standard output holds so far.
void reportProblem(const std::string& message);

// One line on standard error: "kxstream: NAME: REASON".
void reportFailure(const std::string& name, const std::string& reason);
void reportFailure(const std::string& name, const KXException& failure);

// Flushes standard output; a failed write is reported and turns the exit code into 1.
int finishStandardOutput(int exitCode);

}  // namespace kxstream

#endif
