// kxstream copy: a whole file or a byte range of it, as cp copies a file and dd a range. Bytes
// move through prepareBuffer/complete, so each one crosses user space once; the holes of a
// sparse source stay holes in a regular destination.

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "Commands.h"
#include "Diagnostics.h"
#include "InputSource.h"
#include "QuotedName.h"
#include "StandardDescriptors.h"
#include "StreamHandle.h"
#include "Transfer.h"

namespace kxstream {

namespace {

std::string humanSize(double bytes) {
  static const char* const kUnits[] = {"B", "KiB", "MiB", "GiB", "TiB"};
  size_t unit = 0;
  while (bytes >= 1024.0 && unit + 1 < sizeof kUnits / sizeof kUnits[0]) {
    bytes /= 1024.0;
    ++unit;
  }
  char text[32];
  std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", bytes, kUnits[unit]);
  return text;
}

// Bytes done, total and rate on standard error, at most ten times a second and once at the end.
class ProgressMeter {
 public:
  explicit ProgressMeter(int64_t total) : mTotal(total), mStart(Clock::now()), mLast(mStart) {}

  void update(int64_t done) {
    mDone = done;
    const Clock::time_point now = Clock::now();
    if (now - mLast >= std::chrono::milliseconds(100)) {
      mLast = now;
      show(now);
    }
  }

  void end() const {
    show(Clock::now());
    std::fputc('\n', stderr);
  }

 private:
  using Clock = std::chrono::steady_clock;

  void show(Clock::time_point now) const {
    std::string text = "copied " + humanSize(static_cast<double>(mDone));
    if (mTotal >= 0) {
      const int64_t percent = mTotal == 0 ? 100 : mDone * 100 / mTotal;
      text +=
          " of " + humanSize(static_cast<double>(mTotal)) + " (" + std::to_string(percent) + "%)";
    }
    // A rate over less than a tenth of a second says nothing.
    const double seconds = std::chrono::duration<double>(now - mStart).count();
    if (seconds >= 0.1) {
      text += ", " + humanSize(static_cast<double>(mDone) / seconds) + "/s";
    }
    std::fprintf(stderr, "\rkxstream: %s   ", text.c_str());
  }

  int64_t mTotal;
  int64_t mDone = 0;
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
                                                : "missing destination file operand after " +
                                                      alwaysQuotedName(arguments.operands.front()));
  }
  if (arguments.operands.size() > 2) {
    throw UsageError("extra operand " + alwaysQuotedName(arguments.operands[2]));
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

std::string baseName(std::string path) {
  while (path.size() > 1 && path.back() == '/') {
    path.pop_back();
  }
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// What the destination operand names now; a placeholder of a closed standard descriptor
// (/dev/stdout after >&-) names nothing.
struct Destination {
  std::string path;
  struct stat status {};
  bool exists = false;
  bool danglingLink = false;
};

Destination destinationFor(const CopyRequest& request) {
  Destination target{request.destination};
  target.exists = stat(target.path.c_str(), &target.status) == 0;
  if (target.exists && S_ISDIR(target.status.st_mode)) {
    // Like cp: into the directory, under the source's own name.
    target.path += (target.path.back() == '/' ? "" : "/") + baseName(request.source);
    target.exists = stat(target.path.c_str(), &target.status) == 0;
  }
  target.exists = target.exists && !isPlaceholder(target.status);
  struct stat link {};
  target.danglingLink =
      !target.exists && lstat(target.path.c_str(), &link) == 0 && S_ISLNK(link.st_mode);
  return target;
}

// A new copy gets the source's permissions less the umask, as cp gives it; the library creates
// files for every purpose and so cannot know them.
void adoptPermissions(const std::string& path, mode_t sourceMode) {
  const mode_t mask = umask(0);
  umask(mask);
  chmod(path.c_str(), sourceMode & 07777 & ~mask);
}

// A regular file (or none yet) gets the file stream; a FIFO, terminal or device is written as
// it stands through the descriptor stream.
StreamHandle openDestination(const Destination& target) {
  if (!target.exists || S_ISREG(target.status.st_mode)) {
    return openOutputFile(target.path, kCopyBufferSize);
  }
  return initialised(
      KXStreams::createDescriptorStream(target.path.c_str(), KXDescriptorStream::eOut, 0));
}

using Extent = std::pair<int64_t, int64_t>;  // first byte and end, in file offsets

// Where the source holds data between start and end; holes are left out.
std::vector<Extent> dataExtents(int descriptor, int64_t start, int64_t end) {
  std::vector<Extent> extents;
  for (int64_t position = start; position < end;) {
    int64_t data = lseek(descriptor, position, SEEK_DATA);
    if (data < 0) {
      if (errno == ENXIO) {
        break;  // only a hole is left
      }
      data = position;  // the file system cannot tell: all data
    }
    if (data >= end) {
      break;
    }
    int64_t hole = lseek(descriptor, data, SEEK_HOLE);
    hole = hole < 0 ? end : std::min(hole, end);
    extents.emplace_back(data, hole);
    position = hole;
  }
  return extents;
}

class Copier {
 public:
  Copier(const CopyRequest& request, NamedInput& input, KXBasicGenericStream& output)
      : mRequest(request), mInput(input), mOutput(output), mMeter(input.length()) {}

  // Moves the bytes; a failed read is reported as the source's, a refused write as the
  // destination's.
  bool run(const Destination& target) {
    try {
      const bool keepHoles =
          mInput.sizeTrusted() && (!target.exists || S_ISREG(target.status.st_mode));
      if (keepHoles) {
        copyKeepingHoles();
      } else {
        pump(mInput.stream(), mOutput, progressFrom(0), mInput.limit());
      }
    } catch (const OutputFailure& failure) {
      reportProblem("error writing " + alwaysQuotedName(mRequest.destination) + ": " +
                    failure.reason());
      return false;
    } catch (const KXException& failure) {
      reportProblem("error reading " + alwaysQuotedName(mRequest.source) + ": " +
                    reasonOf(failure));
      return false;
    }
    if (mRequest.progress) {
      mMeter.end();
    }
    return true;
  }

 private:
  ProgressCallback progressFrom(int64_t base) {
    if (!mRequest.progress) {
      return {};
    }
    return [this, base](int64_t done) { mMeter.update(base + done); };
  }

  void copyKeepingHoles() {
    const int64_t start = mInput.startOffset();
    const int64_t end = start + mInput.length();
    const std::vector<Extent> extents = dataExtents(mInput.probe(), start, end);
    if (extents.size() == 1 && extents.front() == Extent(start, end)) {
      pump(mInput.stream(), mOutput, progressFrom(0));
      return;
    }
    for (const Extent& extent : extents) {
      copyExtent(extent, start);
    }
    if (mRequest.progress) {
      mMeter.update(end - start);
    }
    // A source that ends in a hole still has its length.
    const int destination =
        static_cast<const KXFileStream::KXFileInfo*>(mOutput.GetInfo()->mUserData)->mFileDesc;
    if (ftruncate(destination, end - start) != 0) {
      throw OutputFailure(std::strerror(errno));
    }
  }

  void copyExtent(const Extent& extent, int64_t start) {
    StreamHandle part = initialised(KXStreams::createPartialFileStream(
        mRequest.source.c_str(), "rb", kCopyBufferSize, KXFileStream::eIn, extent.first,
        extent.second - extent.first, -1));
    try {
      mOutput.SetMark(extent.first - start);
    } catch (const KXException& failure) {
      throw OutputFailure(reasonOf(failure));
    }
    pump(*part, mOutput, progressFrom(extent.first - start));
    finish(part);
  }

  const CopyRequest& mRequest;
  NamedInput& mInput;
  KXBasicGenericStream& mOutput;
  ProgressMeter mMeter;
};

int copy(const CopyRequest& request) {
  struct stat source {};
  if (stat(request.source.c_str(), &source) != 0 || isPlaceholder(source)) {
    const int reason = isPlaceholder(source) ? ENOENT : errno;
    reportProblem("cannot stat " + alwaysQuotedName(request.source) + ": " + std::strerror(reason));
    return kExitInputFailed;
  }
  if (S_ISDIR(source.st_mode)) {
    reportProblem("-r not specified; omitting directory " + alwaysQuotedName(request.source));
    return kExitInputFailed;
  }
  const Destination target = destinationFor(request);
  if (target.danglingLink) {
    reportProblem("not writing through dangling symlink " + alwaysQuotedName(target.path));
    return kExitInputFailed;
  }
  InputOptions options;
  options.bufferSize = kCopyBufferSize;
  options.start = request.start;
  options.length = request.length;
  std::unique_ptr<NamedInput> input;
  try {
    input = std::make_unique<NamedInput>(request.source, options);
  } catch (const InputError& failure) {
    reportProblem("cannot open " + alwaysQuotedName(request.source) +
                  " for reading: " + failure.reason());
    return kExitInputFailed;
  } catch (const KXException& failure) {
    reportProblem("cannot open " + alwaysQuotedName(request.source) +
                  " for reading: " + reasonOf(failure));
    return kExitInputFailed;
  }
  if (target.exists && sameFile(input->status(), target.status)) {
    reportProblem(alwaysQuotedName(request.source) + " and " + alwaysQuotedName(target.path) +
                  " are the same file");
    return kExitInputFailed;
  }
  StreamHandle output;
  try {
    output = openDestination(target);
  } catch (const KXException& failure) {
    reportProblem((target.exists
                       ? "cannot open " + alwaysQuotedName(target.path) + " for writing: "
                       : "cannot create regular file " + alwaysQuotedName(target.path) + ": ") +
                  reasonOf(failure));
    return kExitInputFailed;
  }
  if (!target.exists) {
    adoptPermissions(target.path, source.st_mode);
  }
  Copier copier(request, *input, *output);
  if (!copier.run(target)) {
    return kExitInputFailed;
  }
  try {
    finish(output);
  } catch (const KXException& failure) {
    reportProblem("error writing " + alwaysQuotedName(target.path) + ": " + reasonOf(failure));
    return kExitInputFailed;
  }
  try {
    input->finish();
  } catch (const KXException& failure) {
    reportProblem("error reading " + alwaysQuotedName(request.source) + ": " + reasonOf(failure));
    return kExitInputFailed;
  }
  return kExitSuccess;
}

}  // namespace

int runCopy(const Arguments& arguments) { return copy(requestFrom(arguments)); }

}  // namespace kxstream
