// kxstream copy: a whole file or a byte range of it, moved through prepareBuffer/complete so
// that each byte crosses user space once: read into the source's buffer, written from there.

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>

#include "Commands.h"
#include "Diagnostics.h"
#include "StreamHandle.h"
#include "Transfer.h"

namespace kxstream {

namespace {

// Bytes done, total and rate on standard error, at most ten times a second.
class ProgressMeter {
 public:
  explicit ProgressMeter(int64_t total) : mTotal(total), mStart(Clock::now()), mLast(mStart) {}

  void update(int64_t done) {
    const Clock::time_point now = Clock::now();
    if (now - mLast >= std::chrono::milliseconds(100) || done == mTotal) {
      mLast = now;
      show(done, now);
    }
  }

  void end() const { std::fputc('\n', stderr); }

 private:
  using Clock = std::chrono::steady_clock;

  void show(int64_t done, Clock::time_point now) const {
    constexpr double kMebibyte = 1024.0 * 1024.0;
    const double seconds = std::chrono::duration<double>(now - mStart).count();
    const double rate = seconds > 0 ? static_cast<double>(done) / kMebibyte / seconds : 0.0;
    std::fprintf(stderr, "\rkxstream: %.1f of %.1f MiB, %.1f MiB/s   ",
                 static_cast<double>(done) / kMebibyte, static_cast<double>(mTotal) / kMebibyte,
                 rate);
  }

  int64_t mTotal;
  Clock::time_point mStart;
  Clock::time_point mLast;
};

struct CopyRequest {
  std::string source;
  std::string destination;
  long long start = 0;
  long long length = -1;  // to the end
  bool progress = false;
};

CopyRequest requestFrom(const Arguments& arguments) {
  if (arguments.operands.size() < 2) {
    throw UsageError(arguments.operands.empty() ? "missing file operand"
                                                : "missing destination file operand after '" +
                                                      arguments.operands.front() + "'");
  }
  if (arguments.operands.size() > 2) {
    throw UsageError("extra operand '" + arguments.operands[2] + "'");
  }
  CopyRequest request;
  request.source = arguments.operands[0];
  request.destination = arguments.operands[1];
  request.start = arguments.count("--start", 0);
  request.length = arguments.count("--length", -1);
  request.progress = arguments.has("--progress") && isatty(STDERR_FILENO) != 0;
  return request;
}

bool sameFile(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

// A new copy gets the source's permissions less the umask, as cp gives it; the library creates
// files for every purpose and so cannot know them.
void adoptPermissions(const std::string& path, mode_t sourceMode) {
  const mode_t mask = umask(0);
  umask(mask);
  chmod(path.c_str(), sourceMode & 07777 & ~mask);
}

// Checks what the library cannot know from one path alone; returns false after reporting.
bool checkRange(CopyRequest& request, const struct stat& source) {
  const int64_t size = source.st_size;
  if (!S_ISREG(source.st_mode)) {
    return true;
  }
  if (request.start > size) {
    reportFailure(request.source, "start " + std::to_string(request.start) +
                                      " is beyond the end of the file (" + std::to_string(size) +
                                      " bytes)");
    return false;
  }
  // Like dd, a range that runs past the end copies what is there.
  if (request.length >= 0) {
    request.length = std::min<long long>(request.length, size - request.start);
  }
  return true;
}

// Runs one step; a failure is reported under the given name and makes the result false.
template <typename Step>
bool attempt(const std::string& name, Step step) {
  try {
    step();
    return true;
  } catch (const KXException& failure) {
    reportFailure(name, failure);
  }
  return false;
}

// A failed read is the source's, a refused write the destination's.
bool moveBytes(const CopyRequest& request, KXBasicGenericStream& input,
               KXBasicGenericStream& output) {
  ProgressMeter meter(input.GetLength());
  ProgressCallback progress;
  if (request.progress) {
    progress = [&meter](int64_t done) { meter.update(done); };
  }
  try {
    pump(input, output, progress);
  } catch (const OutputFailure& failure) {
    reportFailure(request.destination, failure.reason());
    return false;
  } catch (const KXException& failure) {
    reportFailure(request.source, failure);
    return false;
  }
  if (request.progress) {
    meter.end();
  }
  return true;
}

StreamHandle openSource(const CopyRequest& request) {
  if (request.start == 0 && request.length < 0) {
    return openInputFile(request.source, kCopyBufferSize);
  }
  return openInputRange(request.source, static_cast<long>(request.start),
                        static_cast<long>(request.length), kCopyBufferSize);
}

int copy(CopyRequest& request) {
  struct stat source {};
  if (stat(request.source.c_str(), &source) != 0) {
    reportFailure(request.source, std::strerror(errno));
    return kExitInputFailed;
  }
  struct stat existing {};
  const bool destinationExisted = stat(request.destination.c_str(), &existing) == 0;
  if (destinationExisted && sameFile(source, existing)) {
    reportFailure(request.destination, "is the same file as " + request.source);
    return kExitInputFailed;
  }
  StreamHandle input;
  StreamHandle output;
  if (!checkRange(request, source) ||
      !attempt(request.source, [&] { input = openSource(request); }) ||
      !attempt(request.destination,
               [&] { output = openOutputFile(request.destination, kCopyBufferSize); })) {
    return kExitInputFailed;
  }
  if (!destinationExisted) {
    adoptPermissions(request.destination, source.st_mode);
  }
  const bool copied = moveBytes(request, *input, *output) &&
                      attempt(request.destination, [&] { finish(output); }) &&
                      attempt(request.source, [&] { finish(input); });
  return copied ? kExitSuccess : kExitInputFailed;
}

}  // namespace

int runCopy(const Arguments& arguments) {
  CopyRequest request = requestFrom(arguments);
  return copy(request);
}

}  // namespace kxstream
