#ifndef KX_BENCH_SUPPORT_H
#define KX_BENCH_SUPPORT_H

// Helpers shared by the comparison programs: a scratch directory that disappears with the
// program, files of patterned bytes, and a guard that ends a stream even when a step throws.

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "KXStreams.h"

namespace kxbench {

constexpr long kKiB = 1024;
constexpr long kMiB = 1024 * kKiB;

// Bytes that are not all alike, cheap to make.
inline std::vector<char> patternedBytes(size_t count) {
  std::vector<char> bytes(count);
  unsigned state = 2463534242u;
  for (char& byte : bytes) {
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    byte = static_cast<char>(state);
  }
  return bytes;
}

// A fresh directory under $TMPDIR (or /tmp), removed with everything in it at the end.
class ScratchDirectory {
 public:
  ScratchDirectory() {
    const char* base = std::getenv("TMPDIR");
    std::string pattern =
        std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/kxbench.XXXXXX";
    if (mkdtemp(&pattern[0]) == nullptr) {
      throw std::runtime_error("cannot create a scratch directory under " + pattern);
    }
    mPath = pattern;
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;
  ~ScratchDirectory() {
    if (DIR* directory = opendir(mPath.c_str())) {
      while (const dirent* entry = readdir(directory)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") {
          unlink((mPath + "/" + name).c_str());
        }
      }
      closedir(directory);
    }
    rmdir(mPath.c_str());
  }

  std::string file(const char* name) const { return mPath + "/" + name; }

 private:
  std::string mPath;
};

// Writes count patterned bytes to path, so that the file is in the page cache afterwards.
inline void writeFile(const std::string& path, size_t count) {
  const std::vector<char> chunk = patternedBytes(static_cast<size_t>(kMiB));
  FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) {
    throw std::runtime_error("cannot create " + path);
  }
  for (size_t done = 0; done < count; done += chunk.size()) {
    const size_t part = count - done < chunk.size() ? count - done : chunk.size();
    if (std::fwrite(chunk.data(), 1, part, file) != part) {
      std::fclose(file);
      throw std::runtime_error("cannot write " + path);
    }
  }
  if (std::fclose(file) != 0) {
    throw std::runtime_error("cannot write " + path);
  }
}

// Ends a stream through close() when the scope ends, whatever happened in it.
class StreamCloser {
 public:
  explicit StreamCloser(KXBasicGenericStream* stream) : mStream(stream) {}
  StreamCloser(const StreamCloser&) = delete;
  StreamCloser& operator=(const StreamCloser&) = delete;
  ~StreamCloser() {
    try {
      mStream->close();
    } catch (...) {
      // A benchmark that already failed reports that failure, not this one.
    }
  }
  KXBasicGenericStream* operator->() const { return mStream; }
  KXBasicGenericStream& operator*() const { return *mStream; }

 private:
  KXBasicGenericStream* mStream;
};

// Walks an input stream to its end through prepareBuffer/complete, touching no byte: the
// zero-copy path whose cost is the stream's own.
inline void walkZeroCopy(KXBasicGenericStream& stream, int64_t chunk) {
  KXStreamInfo* info = stream.GetInfo();
  for (;;) {
    info->mTransferLen = chunk;
    stream.prepareBuffer();
    benchmark::DoNotOptimize(info->mBuffer);
    const bool atEnd = info->mAtEOF != 0;
    stream.complete();
    if (atEnd) {
      return;
    }
  }
}

// Google Benchmark's own main, with the program's preparation (its input files) between reading
// the command line and running.
template <typename Prepare>
int runBenchmarks(int argc, char** argv, Prepare prepare) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 1;
  }
  try {
    prepare();
    benchmark::RunSpecifiedBenchmarks();
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s: %s\n", argv[0], failure.what());
    return 1;
  }
  benchmark::Shutdown();
  return 0;
}

}  // namespace kxbench

#endif
