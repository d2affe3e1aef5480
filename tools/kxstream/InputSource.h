#ifndef KXSTREAM_INPUT_SOURCE_H
#define KXSTREAM_INPUT_SOURCE_H

// How the tool reads a named input, for every command alike: which stream serves which input,
// the guard against placeholders of closed standard descriptors, and digests of any size.
//
// - A regular file whose size is what reading yields (not on proc- or sysfs-like file systems)
//   is read by the file stream, which knows its length and can return to marks.
// - Everything else (standard input, pipes, FIFOs, terminals, character devices, /proc and
//   /sys files) is read by the descriptor stream, to its end.

#include <sys/stat.h>

#include <cstdint>
#include <string>

#include "StreamHandle.h"

namespace kxstream {

// The name that stands for standard input.
constexpr const char* kStandardInputName = "-";

// Why an input could not be opened: the system's errno.
class InputError {
 public:
  explicit InputError(int code) : mCode(code) {}
  int code() const { return mCode; }
  std::string reason() const;

 private:
  int mCode;
};

struct InputOptions {
  long bufferSize = kCachedBufferSize;
  bool toItsEnd = false;  // the descriptor stream, to the end the file has when read there
  int64_t start = 0;      // bytes to pass over first (fewer when the input is shorter)
  int64_t length = -1;    // at most this many bytes after start; -1: to the end
  // A regular file is read through the descriptor already opened to check it, not reopened by
  // a file stream: one open per input, where the cost per file counts (digests of trees).
  bool oneOpen = false;
};

// A descriptor closed with its owner, also when the owner's constructor throws.
class OwnedDescriptor {
 public:
  OwnedDescriptor() = default;
  ~OwnedDescriptor();
  OwnedDescriptor(const OwnedDescriptor&) = delete;
  OwnedDescriptor& operator=(const OwnedDescriptor&) = delete;
  void adopt(int descriptor) { mDescriptor = descriptor; }
  // Hands the descriptor on to a new owner.
  int release() {
    const int descriptor = mDescriptor;
    mDescriptor = -1;
    return descriptor;
  }
  int get() const { return mDescriptor; }

 private:
  int mDescriptor = -1;
};

class NamedInput {
 public:
  // Opens name for reading ("-": standard input) and places it at options.start. Throws
  // InputError when it cannot be opened, KXException when the stream refuses it.
  NamedInput(const std::string& name, const InputOptions& options);
  ~NamedInput() = default;
  NamedInput(const NamedInput&) = delete;
  NamedInput& operator=(const NamedInput&) = delete;

  KXBasicGenericStream& stream() { return *mStream; }
  // The opened file's identity and kind, from its descriptor.
  const struct stat& status() const { return mStatus; }
  // The file stream serves it: its size is known and true.
  bool sizeTrusted() const { return mProbe.get() >= 0; }
  // The file offset of the stream's first byte, for a file the file stream serves.
  int64_t startOffset() const { return mStartOffset; }
  // The descriptor the stream reads, for questions about it (its offset, its identity).
  int descriptor();
  // The bytes it will give, or -1 when only reading to the end tells.
  int64_t length() const;
  // The most bytes a consumer may take (-1: all), for inputs whose range the stream ignores.
  int64_t limit() const { return mLimit; }
  // A descriptor of the same file, for questions that must not move the stream (holes).
  int probe() const { return mProbe.get(); }
  // Closes the stream, reporting a failure to close.
  void finish() { kxstream::finish(mStream); }

 private:
  void openStandardInput(const InputOptions& options);
  void openNamed(const std::string& name, const InputOptions& options);
  void passOver(int64_t count);

  StreamHandle mStream;
  struct stat mStatus {};
  OwnedDescriptor mProbe;
  int64_t mLimit = -1;
  int64_t mStartOffset = 0;
};

// After reading "-": a standard input the tool was started without is reported as coreutils
// reports closing it ("LABEL: Bad file descriptor"); returns false then.
bool closeStandardInput(const std::string& label);

// The MD5 of every byte the stream gives from where it stands to its end, at any size, as
// md5sum prints it.
std::string digestToEnd(KXBasicGenericStream& stream);

}  // namespace kxstream

#endif
