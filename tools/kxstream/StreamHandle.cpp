#include "StreamHandle.h"

namespace kxstream {

void CloseQuietly::operator()(KXBasicGenericStream* stream) const noexcept {
  try {
    stream->close();
  } catch (...) {
    // A failed close leaves the object alive; its destructor releases what is left.
    delete stream;
  }
}

StreamHandle initialised(KXBasicGenericStream* created) {
  StreamHandle stream(created);
  stream->init();
  return stream;
}

void finish(StreamHandle& stream) {
  KXBasicGenericStream* raw = stream.release();
  if (raw == nullptr) {
    return;
  }
  try {
    raw->close();
  } catch (...) {
    delete raw;
    throw;
  }
}

StreamHandle openOutputFile(const std::string& path, long bufferSize) {
  return initialised(
      KXStreams::createFileStream(path.c_str(), "wb", bufferSize, KXFileStream::eOut, 0));
}

}  // namespace kxstream
