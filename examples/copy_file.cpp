// Copies a file through two file streams and prints its content identifier.
//
//   copy_file SOURCE DESTINATION
//
// The identifier (the MD5 of the bytes, as md5sum prints it) is computed before the copy
// without consuming the source; the bytes then move from the source's read buffer straight to
// the destination, with no copy of their own in between.

#include <cstdio>
#include <memory>
#include <string>

#include <kxstreams/KXException.h>
#include <kxstreams/KXStreams.h>

namespace {

constexpr long kBufferSize = 1 << 20;

// close() releases a stream's medium and deletes it; the guard runs it on every path, and the
// success path calls it by hand so that a failing close is reported.
struct CloseQuietly {
  void operator()(KXBasicGenericStream* stream) const noexcept {
    try {
      stream->close();
    } catch (const KXException&) {
      // Already failing: the first error is the one worth reporting.
    }
  }
};
using StreamGuard = std::unique_ptr<KXBasicGenericStream, CloseQuietly>;

StreamGuard openStream(const char* path, const char* perm, KXFileStream::EIoFlag use) {
  StreamGuard stream(new KXFileStream(path, perm, kBufferSize, use, 0));
  stream->init();
  return stream;
}

// Moves every byte: each prepared input buffer is written as it stands.
long copyAll(KXBasicGenericStream& source, KXBasicGenericStream& destination) {
  long copied = 0;
  for (;;) {
    KXStreamInfo* chunk = source.prepareBuffer();
    const int64_t count = chunk->mTransferLen;
    const bool atEnd = chunk->mAtEOF != 0;
    if (count > 0) {
      copied += destination.write(chunk->mBuffer, static_cast<int>(count));
    }
    source.complete();
    if (atEnd || count == 0) {
      return copied;
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: copy_file SOURCE DESTINATION\n");
    return 2;
  }
  try {
    StreamGuard source = openStream(argv[1], "rb", KXFileStream::eIn);
    KXObjectGuid id;
    source->calcID(id, -1);
    StreamGuard destination = openStream(argv[2], "wb", KXFileStream::eOut);
    const long copied = copyAll(*source, *destination);
    source.release()->close();
    destination.release()->close();
    std::printf("%s  %s (%ld bytes copied to %s)\n", id.GetID(), argv[1], copied, argv[2]);
    return 0;
  } catch (const KXException& exception) {
    std::fprintf(stderr, "copy_file: %s\n", exception.what());
    return 1;
  }
}
