#include "Diagnostics.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <kxstreams/KXStreams.h>

#include "QuotedName.h"

namespace kxstream {

namespace {

// The library's own codes, in the words the system uses for the same failures.
const char* libraryReason(int code) {
  switch (code) {
    case KX_PARAM_ERR:
      return std::strerror(EINVAL);
    case KX_WRONG_STREAM_ERR:
      return std::strerror(EBADF);
    case KX_FILESYSTEM_ERR:
      return std::strerror(EIO);
    case KX_NOT_SUPPORTED_ERR:
      return std::strerror(ESPIPE);
    default:
      return nullptr;
  }
}

// "No space left on device (errno 28)": the library adds the number for its log readers.
std::string withoutErrnoNumber(std::string message) {
  const size_t suffix = message.rfind(" (errno ");
  if (suffix != std::string::npos && message.back() == ')') {
    message.erase(suffix);
  }
  return message;
}

}  // namespace

std::string reasonOf(const KXException& failure) {
  if (failure.GetCode() > 0) {
    return std::strerror(failure.GetCode());
  }
  if (dynamic_cast<const KXStreamMismatchException*>(&failure) != nullptr) {
    return "file changed as we read it";
  }
  // Validation messages name the record's fields: nothing a user can act on.
  if (dynamic_cast<const KXStreamValidationException*>(&failure) != nullptr ||
      dynamic_cast<const KXSDKInternalException*>(&failure) != nullptr) {
    return "internal error in the stream library";
  }
  if (*failure.GetMessage() != '\0') {
    return withoutErrnoNumber(failure.GetMessage());
  }
  if (const char* reason = libraryReason(failure.GetCode())) {
    return reason;
  }
  return failure.what();
}

void reportProblem(const std::string& message) {
  std::fflush(stdout);
  std::fprintf(stderr, "kxstream: %s\n", message.c_str());
}

void reportFailure(const std::string& name, const std::string& reason) {
  reportProblem(quotedName(name) + ": " + reason);
}

void reportFailure(const std::string& name, const KXException& failure) {
  reportFailure(name, reasonOf(failure));
}

int finishStandardOutput(int exitCode) {
  errno = 0;
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    reportProblem(std::string("write error: ") +
                  (errno != 0 ? std::strerror(errno) : "standard output failed"));
    return kExitInputFailed;
  }
  return exitCode;
}

}  // namespace kxstream
