// Replaces the C allocator for this program alone, so that every heap allocation the libraries
// make (kx_malloc, operator new, the C library) is counted; the C library's free releases them.

#include <gtest/gtest.h>

#include <cstddef>

#include "KXProbeStream.h"
#include "KXTestSupport.h"
#include "kxos.h"

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t n, size_t size);
void* __libc_realloc(void* p, size_t size);
}

namespace {
bool gCounting = false;
long gAllocations = 0;

void* counted(void* block) {
  gAllocations += gCounting ? 1 : 0;
  return block;
}
}  // namespace

extern "C" void* malloc(size_t size) noexcept { return counted(__libc_malloc(size)); }
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): glibc names differ
extern "C" void* calloc(size_t n, size_t size) noexcept { return counted(__libc_calloc(n, size)); }
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): glibc names differ
extern "C" void* realloc(void* p, size_t size) noexcept { return counted(__libc_realloc(p, size)); }

namespace {

// No test assertion may run while counting: gtest allocates.
template <class Round>
long allocationsOf(int rounds, Round round) {
  gAllocations = 0;
  gCounting = true;
  for (int index = 0; index < rounds; ++index) {
    round();
  }
  gCounting = false;
  return gAllocations;
}

// The transfer path in both directions, with marks. The snapshot of the first round stays.
TEST(TransferAllocations, StrictTransfersAllocateNothingAfterTheFirstSnapshot) {
  kxtest::KXProbeStream* probe = kxtest::KXProbeStream::create(1, kxtest::randomBytes(64, 3));
  char buffer[16] = {};
  const auto round = [&] {
    probe->read(buffer, 16);
    probe->SetMark();
    probe->read(buffer, 8);
    probe->resetMark();
    probe->write(buffer, 16);
    probe->reset();
  };
  // The counter sees the libraries' allocations, through kx_malloc and operator new.
  ASSERT_EQ(2, allocationsOf(1, [] {
              kx_free(kx_malloc(32));
              int* volatile number = new int(1);
              delete number;
            }));
  round();
  ASSERT_TRUE(probe->hasSnapshot());
  EXPECT_EQ(0, allocationsOf(1000, round));
  probe->close();
}

}  // namespace
