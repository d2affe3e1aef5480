#include "StMalloc.h"

#include <cerrno>
#include <cstdlib>

#include "KXException.h"

namespace {

constexpr const char* kSourcePath = "natives/utilities/StMalloc";

[[noreturn]] void raiseOutOfMemory(int size, long line) {
  KXOutOfMemException exception(ENOMEM);
  exception.SetMessage("Cannot allocate a block of %d bytes", size);
  exception.addTrace("StMalloc.StMalloc(%d)", size);
  exception.log(kSourcePath, line);
  throw exception;  // NOLINT(misc-throw-by-value-catch-by-reference): built in steps first
}

}  // namespace

// The flag is reserved; every caller passes 0.
StMalloc::StMalloc(int size, int) {
  if (size < 0) {
    raiseOutOfMemory(size, __LINE__);
  }
  mBlock = malloc(static_cast<size_t>(size));
  // malloc(0) may legitimately answer null; only a real request can fail.
  if (mBlock == nullptr && size > 0) {
    raiseOutOfMemory(size, __LINE__);
  }
}

StMalloc::~StMalloc() { free(mBlock); }

void* StMalloc::get() const { return mBlock; }

void* StMalloc::release() {
  void* block = mBlock;
  mBlock = nullptr;
  return block;
}
