#include "Diagnostics.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace kxstream {

std::string reasonOf(const KXException& failure) {
  if (failure.GetCode() > 0) {
    return std::strerror(failure.GetCode());
  }
  if (*failure.GetMessage() != '\0') {
    return failure.GetMessage();
  }
  return failure.what();
}

void reportProblem(const std::string& message) {
  std::fflush(stdout);
  std::fprintf(stderr, "kxstream: %s\n", message.c_str());
}

void reportFailure(const std::string& name, const std::string& reason) {
  reportProblem(name + ": " + reason);
}

void reportFailure(const std::string& name, const KXException& failure) {
  reportFailure(name, reasonOf(failure));
}

int finishStandardOutput(int exitCode) {
  errno = 0;
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    reportFailure("write error", errno != 0 ? std::strerror(errno) : "standard output failed");
    return kExitInputFailed;
  }
  return exitCode;
}

}  // namespace kxstream
