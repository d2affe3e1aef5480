// The engine's cost per transfer, memory streams against memcpy, and the content identifier of
// memory against OpenSSL's MD5 over the same bytes. Each pair runs side by side in one process;
// bench/compare.sh turns the pairs into ratios.

#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <cstring>
#include <vector>

#include "KXStreams.h"
#include "bench_support.h"

namespace {

using kxbench::kMiB;
using kxbench::StreamCloser;

constexpr int kSmallTransfer = 64;
constexpr long kRegionSize = 64 * kMiB;
constexpr long kChunk = kMiB;

const std::vector<char>& region() {
  static const std::vector<char> bytes = kxbench::patternedBytes(static_cast<size_t>(kRegionSize));
  return bytes;
}

// A stream made under the given strictness; the library-wide setting goes back to its default.
template <class Make>
KXBasicGenericStream* makeWithStrictness(bool strict, Make make) {
  KXStreams::setStreamStrictMode(strict ? 1 : 0);
  KXBasicGenericStream* stream = make();
  KXStreams::setStreamStrictMode(1);
  stream->init();
  return stream;
}

// The baseline for one transfer: what a hand-written sink costs, a virtual call and a memcpy.
class ByteSink {
 public:
  virtual ~ByteSink() = default;
  virtual long put(const char* bytes, int count) = 0;
};

class CopyingSink : public ByteSink {
 public:
  long put(const char* bytes, int count) override {
    std::memcpy(mLast, bytes, static_cast<size_t>(count));
    mPosition += count;
    return count;
  }

 private:
  char mLast[kSmallTransfer] = {};
  long mPosition = 0;
};

void virtualCallPlusMemcpy(benchmark::State& state) {
  CopyingSink sink;
  ByteSink* target = &sink;
  // Hidden from the optimiser, so the call stays virtual as it is in a real client.
  benchmark::DoNotOptimize(target);
  const char* bytes = region().data();
  for (auto _ : state) {
    benchmark::DoNotOptimize(target->put(bytes, kSmallTransfer));
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kSmallTransfer);
}

void nullStreamWrite(benchmark::State& state, bool strict) {
  StreamCloser stream(makeWithStrictness(strict, [] { return KXStreams::createNullStream(); }));
  char* bytes = const_cast<char*>(region().data());
  for (auto _ : state) {
    benchmark::DoNotOptimize(stream->write(bytes, kSmallTransfer));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kSmallTransfer);
}

KXMemStream* inputOverRegion() {
  return KXStreams::createMemStream(const_cast<char*>(region().data()),
                                    static_cast<unsigned long>(kRegionSize), KXMemStream::eIn);
}

void memoryStreamSmallRead(benchmark::State& state, bool strict) {
  StreamCloser stream(makeWithStrictness(strict, inputOverRegion));
  char destination[kSmallTransfer];
  for (auto _ : state) {
    benchmark::DoNotOptimize(stream->read(destination, kSmallTransfer));
    benchmark::ClobberMemory();
    if (stream->isAtEOF() != 0) {
      stream->reset();
    }
  }
  // Rewound, so a strict stream closes as one that was never read.
  stream->reset();
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kSmallTransfer);
}

void memcpyChunks(benchmark::State& state) {
  std::vector<char> destination(static_cast<size_t>(kChunk));
  const char* bytes = region().data();
  for (auto _ : state) {
    for (long offset = 0; offset < kRegionSize; offset += kChunk) {
      std::memcpy(destination.data(), bytes + offset, static_cast<size_t>(kChunk));
      benchmark::ClobberMemory();
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kRegionSize);
}

void memoryStreamRead(benchmark::State& state) {
  std::vector<char> destination(static_cast<size_t>(kChunk));
  for (auto _ : state) {
    StreamCloser stream(makeWithStrictness(true, inputOverRegion));
    while (stream->read(destination.data(), static_cast<int>(kChunk)) == kChunk) {
      benchmark::ClobberMemory();
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kRegionSize);
}

void memoryStreamZeroCopy(benchmark::State& state) {
  for (auto _ : state) {
    StreamCloser stream(makeWithStrictness(true, inputOverRegion));
    stream->SetReadable();
    kxbench::walkZeroCopy(*stream, kChunk);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kRegionSize);
}

void opensslMd5(benchmark::State& state) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  for (auto _ : state) {
    EVP_Digest(region().data(), static_cast<size_t>(kRegionSize), digest, &length, EVP_md5(),
               nullptr);
    benchmark::DoNotOptimize(digest);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kRegionSize);
}

void memoryStreamCalcID(benchmark::State& state) {
  StreamCloser stream(makeWithStrictness(true, inputOverRegion));
  KXObjectGuid id;
  for (auto _ : state) {
    stream->calcID(id, -1);
    benchmark::DoNotOptimize(id.GetID());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * kRegionSize);
}

void registerAll() {
  benchmark::RegisterBenchmark("engine/baseline_virtual_memcpy_64", virtualCallPlusMemcpy);
  benchmark::RegisterBenchmark("engine/null_write_64_strict", nullStreamWrite, true);
  benchmark::RegisterBenchmark("engine/null_write_64_nonstrict", nullStreamWrite, false);
  benchmark::RegisterBenchmark("engine/mem_read_64_strict", memoryStreamSmallRead, true);
  benchmark::RegisterBenchmark("engine/mem_read_64_nonstrict", memoryStreamSmallRead, false);
  benchmark::RegisterBenchmark("mem/memcpy_1MiB_chunks", memcpyChunks)
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("mem/read_1MiB_chunks", memoryStreamRead)
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("mem/prepare_complete_1MiB_chunks", memoryStreamZeroCopy)
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("md5/openssl_one_buffer", opensslMd5)->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("md5/calcid_memory", memoryStreamCalcID)
      ->Unit(benchmark::kMillisecond);
}

}  // namespace

int main(int argc, char** argv) {
  registerAll();
  return kxbench::runBenchmarks(argc, argv, [] {});
}
