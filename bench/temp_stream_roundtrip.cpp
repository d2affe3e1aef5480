// Writes SIZE MiB of patterned bytes through a temporary stream whose memory part is MEMORY KiB,
// reads them back after a rewind and checks every byte. Run it under /usr/bin/time -v (see
// temp_stream_peak.sh): the peak resident size should stay near the memory part plus the
// staging buffer, whatever SIZE is.
//
//   temp_stream_roundtrip [SIZE_MIB [MEMORY_KIB]]

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "KXException.h"
#include "KXStreams.h"

namespace {

constexpr int kChunk = 1 << 20;

// Byte i of the content; cheap to regenerate when checking.
char patternByte(long long index) { return static_cast<char>((index * 131 + index / 4093) & 0xFF); }

void fillChunk(std::vector<char>& chunk, long long offset) {
  for (size_t i = 0; i < chunk.size(); ++i) {
    chunk[i] = patternByte(offset + static_cast<long long>(i));
  }
}

bool roundTrip(KXBasicGenericStream& stream, long long total) {
  std::vector<char> chunk(kChunk);
  for (long long done = 0; done < total; done += kChunk) {
    fillChunk(chunk, done);
    stream.write(chunk.data(), kChunk);
  }
  stream.reset();
  stream.SetReadable();
  long long checked = 0;
  for (;;) {
    KXStreamInfo* info = stream.prepareBuffer();
    for (long long i = 0; i < info->mTransferLen; ++i) {
      if (info->mBuffer[i] != patternByte(checked + i)) {
        std::fprintf(stderr, "mismatch at byte %lld\n", checked + i);
        return false;
      }
    }
    checked += info->mTransferLen;
    const bool atEnd = info->mAtEOF != 0;
    stream.complete();
    if (atEnd) {
      break;
    }
  }
  std::printf("wrote and read back %lld bytes: %s\n", checked,
              checked == total ? "identical" : "SHORT");
  return checked == total;
}

}  // namespace

int main(int argc, char** argv) {
  const long long sizeMiB = argc > 1 ? std::atoll(argv[1]) : 1024;
  const int memoryKiB = argc > 2 ? std::atoi(argv[2]) : 1024;
  KXBasicGenericStream* stream = KXStreams::createTempStream(memoryKiB * 1024);
  try {
    stream->init();
    const bool identical = roundTrip(*stream, sizeMiB * kChunk);
    stream->close();
    return identical ? 0 : 1;
  } catch (const KXException& exception) {
    std::fprintf(stderr, "temp_stream_roundtrip: %s\n", exception.what());
    return 1;
  }
}
