// Writes a file through the stream library and reports what it did.
//
//   write_file PATH [TEXT]
//
// The file is written through a custom stream whose callbacks write to a descriptor, the same
// bytes are counted by a null stream, and the content identifier (MD5, as md5sum prints it) is
// computed from a memory stream over the written bytes.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "KXCustomStream.h"
#include "KXException.h"
#include "KXMemStream.h"
#include "KXStreams.h"
#include "kxos.h"

namespace {

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

struct FileSink {
  int descriptor;
};

// Writes the transfer to the descriptor, retrying short writes so that no byte is lost.
long writeTransfer(KXStreamInfo* info) {
  const auto* sink = static_cast<const FileSink*>(info->mUserData);
  int64_t written = 0;
  while (written < info->mTransferLen) {
    const ssize_t count = kx_write(sink->descriptor, info->mBuffer + written,
                                   static_cast<size_t>(info->mTransferLen - written));
    if (count < 0) {
      if (errno == EINTR) {
        continue;
      }
      return errno;
    }
    written += count;
  }
  info->mStreamPos += written;
  info->mTransferLen = written;
  return 0;
}

long closeFile(KXStreamInfo* info) {
  const auto* sink = static_cast<const FileSink*>(info->mUserData);
  return kx_close(sink->descriptor) == 0 ? 0 : errno;
}

std::string contentIdentifier(std::string& bytes) {
  StreamGuard memory(new KXMemStream(&bytes[0], bytes.size(), KXMemStream::eIn));
  memory->init();
  KXObjectGuid id;
  memory->calcID(id, -1);
  memory.release()->close();
  return id.GetID();
}

int writeFile(const char* path, std::string text) {
  FileSink sink{kx_open(path, "wb")};
  if (sink.descriptor < 0) {
    std::fprintf(stderr, "write_file: %s: %s\n", path, std::strerror(errno));
    return 1;
  }
  // From here on the stream owns the descriptor: its close callback closes it.
  StreamGuard file(new KXCustomStream(nullptr, writeTransfer, nullptr, nullptr, closeFile, &sink));
  StreamGuard counter(new KXNullStream());
  file->init();
  counter->init();
  const long written = file->write(&text[0], static_cast<int>(text.size()));
  counter->write(&text[0], static_cast<int>(text.size()));
  const long counted = counter->GetStreamPos();
  file.release()->close();
  counter.release()->close();
  std::printf("wrote %ld bytes to %s (counted %ld), content identifier %s\n", written, path,
              counted, contentIdentifier(text).c_str());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    std::fprintf(stderr, "usage: write_file PATH [TEXT]\n");
    return 2;
  }
  const std::string text = argc == 3 ? argv[2] : "Hello from libKXStreams64\n";
  try {
    return writeFile(argv[1], text);
  } catch (const KXException& exception) {
    std::fprintf(stderr, "write_file: %s: %s\n", argv[1], exception.what());
    return 1;
  }
}
