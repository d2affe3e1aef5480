#ifndef KXSTREAM_TRANSFER_H
#define KXSTREAM_TRANSFER_H

#include <cstdint>
#include <functional>
#include <string>

#include <kxstreams/KXStreams.h>

namespace kxstream {

// The destination refused bytes; failures of the source propagate as they are.
class OutputFailure {
 public:
  explicit OutputFailure(std::string reason) : mReason(std::move(reason)) {}
  const std::string& reason() const { return mReason; }

 private:
  std::string mReason;
};

using ProgressCallback = std::function<void(int64_t bytesDone)>;

// Moves the source's bytes into sink, all of them or at most limit (-1: no limit): each buffer
// the source prepares is handed to the sink's transfer as it stands, so no byte is copied in
// between. Returns the bytes moved.
int64_t pump(KXBasicGenericStream& source, KXBasicGenericStream& sink,
             const ProgressCallback& progress = {}, int64_t limit = -1);

}  // namespace kxstream

#endif
