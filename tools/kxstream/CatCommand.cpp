// kxstream cat: the inputs one after the other to standard output, as cat writes them. Each
// input is opened only when its turn comes and read until the system says it ends, so data
// appended to a later input before its turn is there, and one descriptor is open at a time.

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Commands.h"
#include "Diagnostics.h"
#include "InputSource.h"
#include "StandardDescriptors.h"
#include "Transfer.h"

namespace kxstream {

namespace {

// cat's rule: reading a regular file into itself from before its end would never end.
bool isOutputItself(NamedInput& input, const struct stat& output) {
  const struct stat& status = input.status();
  return S_ISREG(output.st_mode) && status.st_dev == output.st_dev &&
         status.st_ino == output.st_ino && lseek(input.descriptor(), 0, SEEK_CUR) < status.st_size;
}

// Copies one input; returns false after reporting why it could not be read.
bool copyInput(const std::string& name, KXBasicGenericStream& output,
               const struct stat& outputStatus) {
  try {
    InputOptions options;
    options.bufferSize = kPipeBufferSize;
    options.toItsEnd = true;
    NamedInput input(name, options);
    if (isOutputItself(input, outputStatus)) {
      reportFailure(name, "input file is output file");
      return false;
    }
    pump(input.stream(), output);
    input.finish();
    return true;
  } catch (const InputError& failure) {
    reportFailure(name, failure.reason());
  } catch (const KXException& failure) {
    reportFailure(name, failure);
  }
  return false;
}

}  // namespace

int runCat(const Arguments& arguments) {
  std::vector<std::string> names = arguments.operands;
  if (names.empty()) {
    names.emplace_back(kStandardInputName);
  }
  struct stat outputStatus {};
  if (wasClosedAtStart(STDOUT_FILENO) || fstat(STDOUT_FILENO, &outputStatus) != 0) {
    reportProblem("standard output: Bad file descriptor");
    return kExitInputFailed;
  }
  bool allCopied = true;
  try {
    StreamHandle output = initialised(KXStreams::createDescriptorStream(
        STDOUT_FILENO, KXDescriptorStream::eOut, kPipeBufferSize, 0));
    for (const std::string& name : names) {
      allCopied = copyInput(name, *output, outputStatus) && allCopied;
    }
    finish(output);
    if (std::count(names.begin(), names.end(), kStandardInputName) != 0) {
      allCopied = closeStandardInput("closing standard input") && allCopied;
    }
  } catch (const OutputFailure& failure) {
    reportProblem("write error: " + failure.reason());
    return kExitInputFailed;
  }
  return allCopied ? kExitSuccess : kExitInputFailed;
}

}  // namespace kxstream
