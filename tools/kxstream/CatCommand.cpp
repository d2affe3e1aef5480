// kxstream cat: the inputs one after the other through a stream array, to standard output.
// Inputs are opened in batches: an input that cannot be opened ends the batch before it, so
// its message comes after the output of the inputs named earlier, as cat's does, and a long
// list never holds more than one batch of descriptors.

#include <unistd.h>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "Commands.h"
#include "DescriptorStreams.h"
#include "Diagnostics.h"
#include "Transfer.h"

namespace kxstream {

namespace {

constexpr size_t kBatchSize = 64;

struct Member {
  std::string name;
  std::unique_ptr<DescriptorChannel> channel;  // standard input only
  StreamHandle stream;
};

Member openMember(const std::string& name) {
  Member member{name, nullptr, nullptr};
  if (name == "-") {
    member.channel = std::make_unique<DescriptorChannel>(STDIN_FILENO);
    member.stream = openDescriptorInput(*member.channel);
  } else {
    member.stream = openInputFile(name, kPipeBufferSize);
  }
  return member;
}

// The member that holds the array's position: the one whose bytes were being read.
size_t memberAt(const std::vector<Member>& members, size_t first, int64_t position) {
  int64_t start = 0;
  for (size_t index = first; index < members.size(); ++index) {
    const int64_t length = members[index].stream->GetLength();
    if (length < 0 || position < start + length) {
      return index;
    }
    start += length;
  }
  return members.size() - 1;
}

class Concatenation {
 public:
  explicit Concatenation(KXBasicGenericStream& output) : mOutput(output) {}

  // Copies members[first...] to the output; returns the index of a member whose read
  // failed (reported), or the member count when all were copied.
  size_t copyFrom(std::vector<Member>& members, size_t first) {
    std::vector<KXBasicGenericStream*> streams;
    for (size_t index = first; index < members.size(); ++index) {
      streams.push_back(members[index].stream.get());
    }
    StreamHandle array =
        initialised(KXStreams::createStreamArray(static_cast<int>(streams.size()), streams.data()));
    try {
      pump(*array, mOutput);
      finish(array);
      return members.size();
    } catch (const KXException& failure) {
      const size_t failed = memberAt(members, first, array->GetStreamPos());
      reportFailure(members[failed].name, failure);
      mFailed = true;
      return failed;
    }
  }

  // Writes every member, going on after any that cannot be read.
  void copyAll(std::vector<Member>& members) {
    for (size_t next = 0; next < members.size();) {
      next = copyFrom(members, next) + 1;
    }
  }

  void noteFailure() { mFailed = true; }
  bool failed() const { return mFailed; }

 private:
  KXBasicGenericStream& mOutput;
  bool mFailed = false;
};

}  // namespace

int runCat(const Arguments& arguments) {
  std::vector<std::string> names = arguments.operands;
  if (names.empty()) {
    names.emplace_back("-");
  }
  DescriptorChannel outputChannel(STDOUT_FILENO);
  StreamHandle output = openDescriptorOutput(outputChannel);
  Concatenation concatenation(*output);
  std::vector<Member> batch;
  try {
    for (size_t index = 0; index < names.size(); ++index) {
      try {
        batch.push_back(openMember(names[index]));
      } catch (const KXException& failure) {
        concatenation.copyAll(batch);
        batch.clear();
        reportFailure(names[index], failure);
        concatenation.noteFailure();
        continue;
      }
      if (batch.size() == kBatchSize || index + 1 == names.size()) {
        concatenation.copyAll(batch);
        batch.clear();
      }
    }
    finish(output);
  } catch (const OutputFailure& failure) {
    reportFailure("write error", failure.reason());
    return kExitInputFailed;
  }
  return concatenation.failed() ? kExitInputFailed : kExitSuccess;
}

}  // namespace kxstream
