#ifndef KXSTREAM_INPUT_LIST_H
#define KXSTREAM_INPUT_LIST_H

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "DigestJob.h"
#include "TreeWalk.h"

namespace kxstream {

// The inputs of a listing, one at a time: the operands, or the NUL-separated names of a list
// file (--files0-from, "-" for standard input), each directory walked when recursive.
class InputList {
 public:
  struct Options {
    std::vector<std::string> operands;
    bool fromList = false;
    std::string listName;
    bool recursive = false;
    bool followLinks = false;
  };

  // Opens the list file; throws std::runtime_error ("cannot open 'F' for reading: REASON")
  // when it cannot be opened.
  explicit InputList(Options options);
  ~InputList();
  InputList(const InputList&) = delete;
  InputList& operator=(const InputList&) = delete;

  // The next input, or a skipped job naming what cannot be had; false after the last.
  bool next(DigestJob& job);

 private:
  // The next name of the operands or the list file; false at the end.
  bool nextName(DigestJob& job);
  bool nextListed(DigestJob& job);

  Options mOptions;
  size_t mNextOperand = 0;
  std::FILE* mList = nullptr;
  char* mListBuffer = nullptr;
  size_t mListCapacity = 0;
  unsigned long long mListItem = 0;
  std::unique_ptr<TreeWalk> mWalk;
};

}  // namespace kxstream

#endif
