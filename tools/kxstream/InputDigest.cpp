#include "InputDigest.h"

#include <atomic>
#include <mutex>

#include "InputSource.h"

namespace kxstream {

namespace {

// Standard input may be named more than once; only one worker may read it at a time.
std::mutex standardInputLock;
std::atomic<bool> standardInputRead{false};

}  // namespace

std::string digestOfInput(const std::string& name) {
  std::unique_lock<std::mutex> hold(standardInputLock, std::defer_lock);
  if (name == kStandardInputName) {
    hold.lock();
    noteStandardInputRead();
  }
  InputOptions options;
  options.oneOpen = true;
  NamedInput input(name, options);
  std::string digest = digestToEnd(input.stream());
  input.finish();
  return digest;
}

void noteStandardInputRead() { standardInputRead = true; }

bool finishStandardInput() {
  // md5sum's last word when it read a standard input that was never there.
  return !standardInputRead || closeStandardInput("standard input");
}

}  // namespace kxstream
