#include "InputSource.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

#include "Diagnostics.h"
#include "StandardDescriptors.h"

namespace kxstream {

namespace {

int openForReading(const std::string& name) {
  int descriptor = -1;
  do {
    descriptor = open(name.c_str(), O_RDONLY | O_CLOEXEC);
  } while (descriptor < 0 && errno == EINTR);
  if (descriptor < 0) {
    throw InputError(errno);
  }
  return descriptor;
}

// Checks what the opened descriptor is; a refused one is closed before the error goes on.
struct stat inspect(int descriptor) {
  struct stat status {};
  int refusal = 0;
  if (fstat(descriptor, &status) != 0) {
    refusal = errno;
  } else if (isPlaceholder(status)) {
    refusal = ENOENT;  // a /dev/fd name of a descriptor the tool was started without
  } else if (S_ISDIR(status.st_mode)) {
    refusal = EISDIR;
  }
  if (refusal != 0) {
    close(descriptor);
    throw InputError(refusal);
  }
  return status;
}

KXDescriptorStream::KXDescriptorInfo& descriptorInfo(KXBasicGenericStream& stream) {
  return *static_cast<KXDescriptorStream::KXDescriptorInfo*>(
      const_cast<void*>(stream.GetInfo()->mUserData));
}

}  // namespace

std::string InputError::reason() const { return std::strerror(mCode); }

NamedInput::NamedInput(const std::string& name, const InputOptions& options) {
  if (name == kStandardInputName) {
    openStandardInput(options);
  } else {
    openNamed(name, options);
  }
}

OwnedDescriptor::~OwnedDescriptor() {
  if (mDescriptor >= 0) {
    close(mDescriptor);
  }
}

void NamedInput::openStandardInput(const InputOptions& options) {
  if (wasClosedAtStart(STDIN_FILENO)) {
    throw InputError(EBADF);
  }
  if (fstat(STDIN_FILENO, &mStatus) != 0) {
    throw InputError(errno);
  }
  mStream = initialised(KXStreams::createDescriptorStream(STDIN_FILENO, KXDescriptorStream::eIn,
                                                          options.bufferSize, 0));
  passOver(options.start);
  mLimit = options.length;
}

void NamedInput::openNamed(const std::string& name, const InputOptions& options) {
  const int descriptor = openForReading(name);
  mStatus = inspect(descriptor);
  const int64_t size = KXDescriptorStream::trustedLength(descriptor);
  // A small file needs no large buffer: that spares a mapping and its page faults per file.
  const long bufferSize =
      size < 0
          ? options.bufferSize
          : static_cast<long>(std::min<int64_t>(options.bufferSize, std::max<int64_t>(size, 1)));
  if (options.toItsEnd || size < 0 || options.oneOpen) {
    // Closed here should the stream that is to own it not be had.
    OwnedDescriptor untilOwned;
    untilOwned.adopt(descriptor);
    KXDescriptorStream* created =
        KXStreams::createDescriptorStream(untilOwned.get(), KXDescriptorStream::eIn, bufferSize, 1);
    untilOwned.release();
    created->setFollowsGrowth(options.toItsEnd ? 1 : 0);
    mStream = initialised(created);
    passOver(options.start);
    mLimit = options.length;
    return;
  }
  // The file stream opens the name itself; this descriptor stays as the probe.
  mProbe.adopt(descriptor);
  const int64_t start = std::min(options.start, size);
  mStartOffset = start;
  const int64_t length = options.length < 0 ? size - start : std::min(options.length, size - start);
  if (start == 0 && length == size) {
    mStream = initialised(
        KXStreams::createFileStream(name.c_str(), "rb", bufferSize, KXFileStream::eIn, 0));
  } else {
    mStream = initialised(KXStreams::createPartialFileStream(name.c_str(), "rb", bufferSize,
                                                             KXFileStream::eIn, start, length, -1));
  }
}

int NamedInput::descriptor() {
  if (mProbe.get() >= 0) {
    return static_cast<const KXFileStream::KXFileInfo*>(mStream->GetInfo()->mUserData)->mFileDesc;
  }
  return descriptorInfo(*mStream).mDescriptor;
}

int64_t NamedInput::length() const {
  const int64_t known = mStream->GetLength();
  if (known >= 0) {
    return mLimit >= 0 ? std::min(known, mLimit) : known;
  }
  return mLimit;
}

// Seeks where the descriptor can; elsewhere reads and drops, as dd's skip does on a pipe.
void NamedInput::passOver(int64_t count) {
  if (count <= 0) {
    return;
  }
  if (descriptorInfo(*mStream).mSeekable != 0) {
    mStream->SetMark(count);
    return;
  }
  mStream->SetReadable();
  KXStreamInfo* info = mStream->GetInfo();
  for (int64_t left = count; left > 0;) {
    info->mTransferLen = left;
    mStream->prepareBuffer();
    left -= info->mTransferLen;
    if (info->mAtEOF != 0) {
      return;
    }
    mStream->complete();
  }
}

bool closeStandardInput(const std::string& label) {
  if (!wasClosedAtStart(STDIN_FILENO)) {
    return true;
  }
  reportProblem(label + ": " + std::strerror(EBADF));
  return false;
}

std::string digestToEnd(KXBasicGenericStream& stream) {
  KXObjectGuid id;
  stream.SetReadable();
  // An explicit limit: a negative one would stop at 2 GiB.
  stream.calcIDWithChangeMark(id, LONG_MAX);
  return id.GetID();
}

}  // namespace kxstream
