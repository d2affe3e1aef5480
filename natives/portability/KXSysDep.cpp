#include "KXSysDep.h"

#include <sys/time.h>

#include <ctime>

namespace {

// 100-ns intervals from the Gregorian reform (1582-10-15) to the Unix epoch.
constexpr uint64_t kUuidEpochOffset = 0x01B21DD213814000ULL;
constexpr uint64_t kUuidTicksPerSecond = 10000000;
constexpr uint64_t kUuidTicksPerMicrosecond = 10;

}  // namespace

extern "C" {

void kx_get_system_time(uint64_t* uuidTime) {
  if (uuidTime == nullptr) {
    return;
  }
  struct timeval now {};
  (void)gettimeofday(&now, nullptr);
  *uuidTime = static_cast<uint64_t>(now.tv_sec) * kUuidTicksPerSecond +
              static_cast<uint64_t>(now.tv_usec) * kUuidTicksPerMicrosecond + kUuidEpochOffset;
}

int64_t kx_timestamp(void) {
  struct timeval now {};
  if (gettimeofday(&now, nullptr) != 0) {
    now.tv_usec = 0;
  }
  const auto seconds = static_cast<int64_t>(time(nullptr));
  return seconds * 1000 + static_cast<int64_t>(now.tv_usec) / 1000;
}
}
