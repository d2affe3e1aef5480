// File-opening fuzzer: permission strings, directions, buffer sizes and byte ranges chosen by
// the input, over a small real file in a directory made once. init() must either throw one of
// the documented exceptions or give a working stream; after close() the process holds exactly
// the descriptors it held before.

#include <dirent.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "KXFileStream.h"
#include "KXStreams.h"

namespace {

long descriptorCount() {
  long count = 0;
  if (DIR* directory = opendir("/proc/self/fd")) {
    while (readdir(directory) != nullptr) ++count;
    closedir(directory);
  }
  return count;
}

const std::string& workDirectory() {
  static const std::string path = [] {
    static char pattern[] = "/tmp/kx-fuzz-fileopen-XXXXXX";
    const char* made = mkdtemp(pattern);
    if (made == nullptr) abort();
    std::atexit([] { std::filesystem::remove_all(pattern); });  // replays leave nothing behind
    return std::string(made);
  }();
  return path;
}

void writeSample(const std::string& path, size_t size) {
  std::ofstream(path, std::ios::binary) << kxfuzz::pattern(size, 7);
}

std::string permission(kxfuzz::Reader& in) {
  static const char* const kKnown[] = {"r",   "rb", "w",   "wb",  "a",    "ab",  "r+",  "rb+",
                                       "r+b", "a+", "ab+", "a+b", "w+",   "wb+", "w+b", "RB+",
                                       "W",   "",   "x",   "rw",  "r+bb", "%s%n"};
  const uint8_t pick = in.byte();
  if (pick < 200) return kKnown[pick % (sizeof kKnown / sizeof kKnown[0])];
  std::string text;
  for (int i = pick % 6; i > 0; --i) text.push_back(static_cast<char>(in.byte() % 95 + 32));
  return text;
}

long bufferSize(kxfuzz::Reader& in) {
  static const long kSizes[] = {-20000, -1, 0, 1, 16384, 16385, 1 << 20};
  const uint8_t pick = in.byte();
  return pick < 128 ? kSizes[pick % 7] : static_cast<long>(in.u16());
}

bool isDocumented(kxfuzz::Thrown thrown) {
  return thrown == kxfuzz::Thrown::kParameter || thrown == kxfuzz::Thrown::kFileSystem ||
         thrown == kxfuzz::Thrown::kOutOfMem;
}

// A little traffic in the direction the stream was opened for.
void use(KXFileStream& stream, KXFileStream::EIoFlag mode, kxfuzz::Reader& in) {
  std::vector<char> buffer(4096);
  for (int steps = in.byte() % 4; steps > 0; --steps) {
    kxfuzz::attempt([&] {
      const int n = in.u16() % 4096;
      if (mode == KXFileStream::eIn || (mode == KXFileStream::eInOut && (in.byte() & 1))) {
        KX_FUZZ_CHECK(stream.read(buffer.data(), n) <= n, "read more than asked");
      } else if (mode == KXFileStream::eOut || mode == KXFileStream::eInOut) {
        stream.write(buffer.data(), n);
      }
      if (in.byte() & 1) stream.SetMark(in.byte());
    });
  }
}

// close(), and when strict validation refuses it (an input stream read part way), close again
// as an output stream: the descriptors were released by the first attempt already.
void closeStream(KXFileStream* stream) {
  try {
    stream->close();
  } catch (const KXException&) {
    kxfuzz::closeAsOutput(stream);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kxfuzz::Reader in(data, size);
  const std::string sample = workDirectory() + "/sample";
  writeSample(sample, in.byte() * 3u);
  const std::string missing = workDirectory() + "/missing";
  unlink(missing.c_str());
  const std::string paths[] = {sample, sample, missing, workDirectory(), "", "/dev/null"};
  const uint8_t pathPick = in.byte();
  const char* path = pathPick == 255 ? nullptr : paths[pathPick % 6].c_str();
  const std::string perm = permission(in);
  const uint8_t flags = in.byte();
  const char* permText = (flags & 1) ? nullptr : perm.c_str();
  auto mode = static_cast<KXFileStream::EIoFlag>(flags >> 5 < 6 ? (flags >> 5) % 5 : flags >> 5);
  if (mode == KXFileStream::eStdout || mode == KXFileStream::eStderr) {
    mode = KXFileStream::eOut;  // nothing is printed while fuzzing
  }
  KXStreams::setAllowFileTruncation((flags & 2) ? 0 : 1);
  const long buffer = bufferSize(in);

  const long before = descriptorCount();
  KXFileStream* stream = nullptr;
  if (flags & 4) {
    const long start = static_cast<int16_t>(in.u16()) % 1024;
    const long length = static_cast<int16_t>(in.u16()) % 1024;
    const long maxLength = (flags & 8) ? -1 : static_cast<long>(in.u16() % 2048);
    stream =
        KXStreams::createPartialFileStream(path, permText, buffer, mode, start, length, maxLength);
  } else {
    stream = KXStreams::createFileStream(path, permText, buffer, mode, (flags & 16) ? 1 : 0);
  }
  try {
    stream->init();
    use(*stream, mode, in);
  } catch (const KXException& e) {
    KX_FUZZ_CHECK(isDocumented(kxfuzz::classify(e)), e.what());
  }
  closeStream(stream);
  KXStreams::setAllowFileTruncation(1);
  KX_FUZZ_CHECK(descriptorCount() == before, "a descriptor leaked");
  return 0;
}
