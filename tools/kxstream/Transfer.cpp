#include "Transfer.h"

#include "Diagnostics.h"

namespace kxstream {

namespace {

void deliver(KXBasicGenericStream& sink, char* bytes, int64_t count) {
  try {
    sink.prepareBuffer();
    KXStreamInfo* target = sink.GetInfo();
    target->mBuffer = bytes;
    target->mTransferLen = count;
    sink.complete();
  } catch (const KXException& failure) {
    throw OutputFailure(reasonOf(failure));
  }
}

void prepareSink(KXBasicGenericStream& sink) {
  try {
    sink.isWriteAllowed();
    sink.SetWritable();
  } catch (const KXException& failure) {
    throw OutputFailure(reasonOf(failure));
  }
}

}  // namespace

int64_t pump(KXBasicGenericStream& source, KXBasicGenericStream& sink,
             const ProgressCallback& progress) {
  prepareSink(sink);
  source.SetReadable();
  int64_t moved = 0;
  for (;;) {
    source.GetInfo()->mTransferLen = KX_UNLIMITED_TRANSFER;
    KXStreamInfo* chunk = source.prepareBuffer();
    const int64_t count = chunk->mTransferLen;
    const bool atEnd = chunk->mAtEOF != 0;
    if (count > 0) {
      deliver(sink, chunk->mBuffer, count);
      moved += count;
      if (progress) {
        progress(moved);
      }
    }
    source.complete();
    if (atEnd) {
      return moved;
    }
  }
}

}  // namespace kxstream
