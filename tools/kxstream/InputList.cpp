#include "InputList.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "InputSource.h"
#include "QuotedName.h"

namespace kxstream {

namespace {

bool isStandardInput(const std::string& name) { return name == kStandardInputName; }

}  // namespace

InputList::InputList(Options options) : mOptions(std::move(options)) {
  if (!mOptions.fromList) {
    return;
  }
  if (isStandardInput(mOptions.listName)) {
    mList = stdin;
    return;
  }
  mList = std::fopen(mOptions.listName.c_str(), "r");
  if (mList == nullptr) {
    throw std::runtime_error("cannot open " + alwaysQuotedName(mOptions.listName) +
                             " for reading: " + std::strerror(errno));
  }
}

InputList::~InputList() {
  if (mList != nullptr && mList != stdin) {
    std::fclose(mList);
  }
  std::free(mListBuffer);
}

bool InputList::next(DigestJob& job) {
  for (;;) {
    if (mWalk) {
      if (mWalk->next(job)) {
        return true;
      }
      mWalk.reset();
    }
    if (!nextName(job)) {
      return false;
    }
    if (job.skip || !mOptions.recursive || isStandardInput(job.name)) {
      return true;
    }
    mWalk = std::make_unique<TreeWalk>(job.name, mOptions.followLinks);
  }
}

bool InputList::nextName(DigestJob& job) {
  if (mOptions.fromList) {
    return nextListed(job);
  }
  if (mNextOperand == mOptions.operands.size()) {
    return false;
  }
  job.name = mOptions.operands[mNextOperand++];
  return true;
}

// The names are read one at a time, so that a list of any length needs memory for one name.
bool InputList::nextListed(DigestJob& job) {
  if (mList == nullptr) {
    return false;
  }
  errno = 0;
  const ssize_t length = getdelim(&mListBuffer, &mListCapacity, '\0', mList);
  if (length < 0) {
    const int error = errno;
    const bool failed = std::ferror(mList) != 0;
    if (mList != stdin) {
      std::fclose(mList);
    }
    mList = nullptr;
    if (!failed) {
      return false;
    }
    job.skip = true;
    job.problem = quotedName(mOptions.listName) + ": read error: " + std::strerror(error);
    return true;
  }
  ++mListItem;
  const auto size = static_cast<size_t>(length) - (mListBuffer[length - 1] == '\0' ? 1 : 0);
  job.name.assign(mListBuffer, size);
  if (job.name.empty()) {
    job.skip = true;
    job.problem = quotedName(mOptions.listName) + ":" + std::to_string(mListItem) +
                  ": invalid zero-length file name";
  } else if (mList == stdin && isStandardInput(job.name)) {
    job.skip = true;
    job.problem = "when reading file names from stdin, no file name of '-' allowed";
  }
  return true;
}

}  // namespace kxstream
