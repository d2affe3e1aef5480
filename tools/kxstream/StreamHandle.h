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

// Buffer sizes, measured with bench/compare.sh. A digest does best with a buffer that stays in
// the processor's cache while it is hashed; standard output with one pipe's capacity (64 KiB
// on Linux), which a larger write only fills piece by piece, waiting for the reader; a
// file-to-file copy with fewer, larger system calls.
constexpr long kCachedBufferSize = 256L * 1024;
constexpr long kPipeBufferSize = 64L * 1024;
constexpr long kCopyBufferSize = 1024L * 1024;

StreamHandle openOutputFile(const std::string& path, long bufferSize);

}  // namespace kxstream

#endif
