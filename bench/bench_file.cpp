// File streams against the system's own ways of reading and writing a file, the content
// identifier of a file against OpenSSL's MD5, and a temporary stream against a plain temporary
// file. Files live in a scratch directory under $TMPDIR, removed at exit; the input file is
// written first, so it is read from the page cache.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "KXStreams.h"
#include "bench_support.h"

namespace {

using kxbench::kKiB;
using kxbench::kMiB;
using kxbench::StreamCloser;

constexpr long kInputSize = 64 * kMiB;
constexpr long kOutputSize = 32 * kMiB;
constexpr long kTempContentSize = 256 * kMiB;
constexpr int kTempMemoryPart = static_cast<int>(kMiB);
constexpr long kBufferSizes[] = {16 * kKiB, 64 * kKiB, 256 * kKiB, kMiB};

struct Files {
  kxbench::ScratchDirectory directory;
  std::string input = directory.file("input.bin");
  std::string output = directory.file("output.bin");
};

Files& files() {
  static Files scratch;
  return scratch;
}

void countBytes(benchmark::State& state, long perIteration) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * perIteration);
}

KXBasicGenericStream* openInput(long bufferSize) {
  KXBasicGenericStream* stream =
      KXStreams::createFileStream(files().input.c_str(), "rb", bufferSize, KXFileStream::eIn, 0);
  stream->init();
  return stream;
}

void streamRead(benchmark::State& state) {
  const long size = state.range(0);
  std::vector<char> buffer(static_cast<size_t>(size));
  for (auto _ : state) {
    StreamCloser stream(openInput(size));
    while (stream->read(buffer.data(), static_cast<int>(size)) > 0 && stream->isAtEOF() == 0) {
    }
  }
  countBytes(state, kInputSize);
}

void streamPrepareComplete(benchmark::State& state) {
  const long size = state.range(0);
  for (auto _ : state) {
    StreamCloser stream(openInput(size));
    kxbench::walkZeroCopy(*stream, size);
  }
  countBytes(state, kInputSize);
}

void rawRead(benchmark::State& state) {
  const long size = state.range(0);
  std::vector<char> buffer(static_cast<size_t>(size));
  for (auto _ : state) {
    const int descriptor = open(files().input.c_str(), O_RDONLY);
    while (read(descriptor, buffer.data(), static_cast<size_t>(size)) > 0) {
    }
    close(descriptor);
  }
  countBytes(state, kInputSize);
}

void stdioRead(benchmark::State& state) {
  const long size = state.range(0);
  std::vector<char> buffer(static_cast<size_t>(size));
  for (auto _ : state) {
    FILE* file = std::fopen(files().input.c_str(), "rb");
    while (std::fread(buffer.data(), 1, static_cast<size_t>(size), file) > 0) {
    }
    std::fclose(file);
  }
  countBytes(state, kInputSize);
}

void ifstreamRead(benchmark::State& state) {
  const long size = state.range(0);
  std::vector<char> buffer(static_cast<size_t>(size));
  for (auto _ : state) {
    std::ifstream file(files().input, std::ios::binary);
    while (file.read(buffer.data(), size) || file.gcount() > 0) {
    }
  }
  countBytes(state, kInputSize);
}

// Each round starts from no file, so neither side pays for cutting an old one.
void streamWrite(benchmark::State& state) {
  const long size = state.range(0);
  std::vector<char> buffer = kxbench::patternedBytes(static_cast<size_t>(size));
  for (auto _ : state) {
    unlink(files().output.c_str());
    StreamCloser stream(
        KXStreams::createFileStream(files().output.c_str(), "wb", size, KXFileStream::eOut, 0));
    stream->init();
    for (long done = 0; done < kOutputSize; done += size) {
      stream->write(buffer.data(), static_cast<int>(size));
    }
  }
  countBytes(state, kOutputSize);
}

void rawWrite(benchmark::State& state) {
  const long size = state.range(0);
  std::vector<char> buffer = kxbench::patternedBytes(static_cast<size_t>(size));
  for (auto _ : state) {
    unlink(files().output.c_str());
    const int descriptor = open(files().output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    for (long done = 0; done < kOutputSize; done += size) {
      if (write(descriptor, buffer.data(), static_cast<size_t>(size)) != size) {
        state.SkipWithError("short write");
        break;
      }
    }
    close(descriptor);
  }
  countBytes(state, kOutputSize);
}

void fileCalcID(benchmark::State& state) {
  KXObjectGuid id;
  for (auto _ : state) {
    StreamCloser stream(openInput(state.range(0)));
    stream->calcID(id, -1);
    benchmark::DoNotOptimize(id.GetID());
  }
  countBytes(state, kInputSize);
}

// What the identifier does by hand with the system calls: read a buffer, digest it, repeat.
void rawReadMd5(benchmark::State& state) {
  const long size = state.range(0);
  std::vector<char> buffer(static_cast<size_t>(size));
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  for (auto _ : state) {
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    EVP_DigestInit_ex(context, EVP_md5(), nullptr);
    const int descriptor = open(files().input.c_str(), O_RDONLY);
    ssize_t got = 0;
    while ((got = read(descriptor, buffer.data(), static_cast<size_t>(size))) > 0) {
      EVP_DigestUpdate(context, buffer.data(), static_cast<size_t>(got));
    }
    close(descriptor);
    EVP_DigestFinal_ex(context, digest, &length);
    EVP_MD_CTX_free(context);
    benchmark::DoNotOptimize(digest);
  }
  countBytes(state, kInputSize);
}

void opensslMd5OneBuffer(benchmark::State& state) {
  std::vector<char> content(static_cast<size_t>(kInputSize));
  const int descriptor = open(files().input.c_str(), O_RDONLY);
  for (long done = 0; done < kInputSize;) {
    const ssize_t got =
        read(descriptor, content.data() + done, static_cast<size_t>(kInputSize - done));
    if (got <= 0) {
      state.SkipWithError("cannot read the input file");
      close(descriptor);
      return;
    }
    done += got;
  }
  close(descriptor);
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  for (auto _ : state) {
    EVP_Digest(content.data(), content.size(), digest, &length, EVP_md5(), nullptr);
    benchmark::DoNotOptimize(digest);
  }
  countBytes(state, kInputSize);
}

void tempStreamRoundTrip(benchmark::State& state) {
  std::vector<char> chunk = kxbench::patternedBytes(static_cast<size_t>(kMiB));
  for (auto _ : state) {
    StreamCloser stream(KXStreams::createTempStream(kTempMemoryPart));
    stream->init();
    for (long done = 0; done < kTempContentSize; done += kMiB) {
      stream->write(chunk.data(), static_cast<int>(kMiB));
    }
    stream->reset();
    while (stream->read(chunk.data(), static_cast<int>(kMiB)) > 0 && stream->isAtEOF() == 0) {
    }
  }
  countBytes(state, kTempContentSize);
}

// Written in 1 MiB chunks like the stream, read back in chunks of the given size.
void plainTempFileRoundTrip(benchmark::State& state) {
  const auto readSize = static_cast<size_t>(state.range(0));
  std::vector<char> chunk = kxbench::patternedBytes(static_cast<size_t>(kMiB));
  std::string pattern = files().directory.file("plain.XXXXXX");
  for (auto _ : state) {
    std::string name = pattern;
    const int descriptor = mkstemp(&name[0]);
    unlink(name.c_str());
    for (long done = 0; done < kTempContentSize; done += kMiB) {
      if (write(descriptor, chunk.data(), chunk.size()) != kMiB) {
        state.SkipWithError("short write");
        break;
      }
    }
    lseek(descriptor, 0, SEEK_SET);
    while (read(descriptor, chunk.data(), readSize) > 0) {
    }
    close(descriptor);
  }
  countBytes(state, kTempContentSize);
}

using Body = void (*)(benchmark::State&);

void registerPerBufferSize(const char* name, Body body) {
  benchmark::internal::Benchmark* benchmark = benchmark::RegisterBenchmark(name, body);
  for (long size : kBufferSizes) {
    benchmark->Arg(size);
  }
  benchmark->Unit(benchmark::kMillisecond);
}

void registerAll() {
  registerPerBufferSize("file/read_stream", streamRead);
  registerPerBufferSize("file/read_prepare_complete", streamPrepareComplete);
  registerPerBufferSize("file/read_raw", rawRead);
  registerPerBufferSize("file/read_fread", stdioRead);
  registerPerBufferSize("file/read_ifstream", ifstreamRead);
  registerPerBufferSize("file/write_stream", streamWrite);
  registerPerBufferSize("file/write_raw", rawWrite);
  benchmark::RegisterBenchmark("md5/openssl_file_bytes_one_buffer", opensslMd5OneBuffer)
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("md5/calcid_file", fileCalcID)
      ->Arg(16 * kKiB)
      ->Arg(256 * kKiB)
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("md5/raw_read_md5", rawReadMd5)
      ->Arg(16 * kKiB)
      ->Arg(256 * kKiB)
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("temp/stream_256MiB_roundtrip", tempStreamRoundTrip)
      ->Iterations(2)
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("temp/plain_file_256MiB_roundtrip", plainTempFileRoundTrip)
      ->Arg(kMiB)
      ->Arg(16 * kKiB)
      ->Iterations(2)
      ->Unit(benchmark::kMillisecond);
}

}  // namespace

int main(int argc, char** argv) {
  registerAll();
  return kxbench::runBenchmarks(
      argc, argv, [] { kxbench::writeFile(files().input, static_cast<size_t>(kInputSize)); });
}
