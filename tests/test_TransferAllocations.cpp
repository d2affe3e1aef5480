// Replaces the C allocator for this program alone, so that every heap allocation made by the
// libraries (through kx_malloc, operator new or the C library) can be counted.

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <string>

#include "KXBasicGenericStream.h"
#include "KXProbeStream.h"
#include "KXTestSupport.h"
#include "kxos.h"

extern "C" {
void* __libc_malloc(size_t size);
void __libc_free(void* block);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
}

namespace {

std::atomic<bool> gCounting{false};
std::atomic<long> gAllocations{0};

void noteAllocation() {
  if (gCounting.load(std::memory_order_relaxed)) {
    gAllocations.fetch_add(1, std::memory_order_relaxed);
  }
}

}  // namespace

extern "C" void* malloc(size_t size) noexcept {
  noteAllocation();
  return __libc_malloc(size);
}

extern "C" void free(void* block) noexcept { __libc_free(block); }

extern "C" void* calloc(size_t count, size_t size) noexcept {
  noteAllocation();
  return __libc_calloc(count, size);
}

extern "C" void* realloc(void* block, size_t size) noexcept {
  noteAllocation();
  return __libc_realloc(block, size);
}

namespace {

using kxtest::KXProbeStream;

// Counts allocations for its lifetime. No test assertion may run inside: gtest allocates.
class AllocationCount {
 public:
  AllocationCount() {
    gAllocations = 0;
    gCounting = true;
  }
  AllocationCount(const AllocationCount&) = delete;
  AllocationCount& operator=(const AllocationCount&) = delete;
  ~AllocationCount() { stop(); }

  long stop() {
    gCounting = false;
    return gAllocations;
  }
};

constexpr int kRounds = 1000;

// Every engine operation of the transfer path, in both directions, with marks.
void probeRound(KXProbeStream& probe, char* buffer) {
  probe.reset();
  probe.read(buffer, 16);
  probe.SetMark();
  probe.read(buffer, 8);
  probe.resetMark();
  probe.write(buffer, 16);
  KXStreamInfo* info = probe.prepareBuffer();
  info->mBuffer = buffer;
  info->mTransferLen = 8;
  probe.complete();
  probe.SetReadable();
  info->mTransferLen = 4;
  probe.prepareBuffer();
  probe.complete();
}

void nullRound(KXNullStream& stream, char* buffer) {
  stream.write(buffer, 16);
  stream.SetMark();
  stream.write(buffer, 8);
  stream.resetMark();
  KXStreamInfo* info = stream.prepareBuffer();
  info->mTransferLen = 8;
  stream.complete();
  stream.reset();
}

TEST(TransferAllocations, CounterSeesTheLibrariesAllocations) {
  AllocationCount count;
  void* block = kx_malloc(32);
  kx_free(block);
  int* number = new int(1);
  delete number;
  EXPECT_EQ(2, count.stop());
}

TEST(TransferAllocations, StrictTransfersAllocateNothingAfterTheFirstSnapshot) {
  KXProbeStream* probe = KXProbeStream::create(1, kxtest::randomBytes(64, 3), 64);
  probe->reserveWritten(static_cast<size_t>(kRounds + 1) * 24);
  char buffer[16] = {};
  probeRound(*probe, buffer);
  ASSERT_TRUE(probe->hasSnapshot());

  AllocationCount count;
  for (int round = 0; round < kRounds; ++round) {
    probeRound(*probe, buffer);
  }
  EXPECT_EQ(0, count.stop());
  probe->close();
}

TEST(TransferAllocations, NullStreamAllocatesNothingAfterTheFirstSnapshot) {
  KXNullStream* stream;
  {
    kxtest::StrictModeScope strict(1);
    stream = new KXNullStream();
  }
  stream->init();
  char buffer[16] = {};
  nullRound(*stream, buffer);

  AllocationCount count;
  for (int round = 0; round < kRounds; ++round) {
    nullRound(*stream, buffer);
  }
  EXPECT_EQ(0, count.stop());
  stream->close();
}

}  // namespace
