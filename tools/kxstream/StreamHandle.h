#ifndef KXSTREAM_STREAM_HANDLE_H
#define KXSTREAM_STREAM_HANDLE_H

#include <memory>
#include <string>

#include <kxstreams/KXStreams.h>

namespace kxstream {

// close() releases a stream's medium and deletes it. On a failure path the handle closes
// quietly (the first error is the one worth reporting) and deletes what a failed close left.
struct CloseQuietly {
  void operator()(KXBasicGenericStream* stream) const noexcept;
};
using StreamHandle = std::unique_ptr<KXBasicGenericStream, CloseQuietly>;

// Takes a newly created stream and runs its init(); a failing init() closes it again.
StreamHandle initialised(KXBasicGenericStream* created);

// Closes by hand on the success path, so that a failing close is reported.
void finish(StreamHandle& stream);

// Buffer of every file stream the tool opens: large enough that system calls cost little,
// small enough to stay in the processor's cache while the bytes are digested or written.
constexpr long kFileBufferSize = 256L * 1024;

StreamHandle openInputFile(const std::string& path);
StreamHandle openInputRange(const std::string& path, long start, long length);
StreamHandle openOutputFile(const std::string& path);

}  // namespace kxstream

#endif
