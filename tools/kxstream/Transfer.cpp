#include "Transfer.h"

#include "Diagnostics.h"

namespace kxstream {

namespace {

// Runs a step on the sink; its failure is the destination's, told apart from the source's.
template <typename Step>
void onSink(Step step) {
  try {
    step();
  } catch (const KXException& failure) {
    throw OutputFailure(reasonOf(failure));
  }
}

void deliver(KXBasicGenericStream& sink, char* bytes, int64_t count) {
  onSink([&] {
    sink.prepareBuffer();
    KXStreamInfo* target = sink.GetInfo();
    target->mBuffer = bytes;
    target->mTransferLen = count;
    sink.complete();
  });
}

void prepareSink(KXBasicGenericStream& sink) {
  onSink([&] {
    sink.isWriteAllowed();
    sink.SetWritable();
  });
}

}  // namespace

int64_t pump(KXBasicGenericStream& source, KXBasicGenericStream& sink,
             const ProgressCallback& progress, int64_t limit) {
  prepareSink(sink);
  source.SetReadable();
  int64_t moved = 0;
  for (;;) {
    if (limit >= 0 && moved >= limit) {
      return moved;
    }
    source.GetInfo()->mTransferLen = limit >= 0 ? limit - moved : KX_UNLIMITED_TRANSFER;
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
