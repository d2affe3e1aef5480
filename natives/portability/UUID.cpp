#include "UUID.h"

#include <sys/random.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "KXMD5.h"
#include "KXSysDep.h"

namespace {

// Lets this many extra UUIDs share one clock reading (the counter runs 0..1024) before the
// generator waits for the clock to move on.
constexpr uint16_t kUuidsPerTick = 1024;

constexpr size_t kSeedRecordSize = 280;
constexpr size_t kSeedTimeSize = 16;
constexpr size_t kHostNameLimit = 256;
constexpr size_t kDigestTextSize = 32;
constexpr size_t kTextBufferSize = 128;

// The top bit of the node's first byte is set (the multicast bit of RFC 4122 is 0x01, not this).
constexpr uint8_t kNodeMarkBit = 0x80;
constexpr uint16_t kVersionTimeBased = 0x1000;
constexpr uint8_t kVariantRfc4122 = 0x80;

// Guards the clock state and the draw from rand(): neither is safe to share between threads
// unguarded, and UUIDs from concurrent callers must still get distinct time stamps.
std::mutex sGeneratorLock;
bool sClockInited = false;
uint64_t sTimeLast = 0;
uint16_t sUuidsThisTick = 0;
bool sRandomSeeded = false;
uint64_t sLastStamp = 0;

// What tells this process from every other one that makes UUIDs in the same microsecond on the
// same host, where time of day, host name and the rand() sequence (inherited through fork, or
// seeded from the same clock reading) are all alike. Drawn once per process, again after fork.
struct ProcessEntropy {
  pid_t pid;
  unsigned char random[16];
};
ProcessEntropy sEntropy{};

// Caller holds sGeneratorLock.
const ProcessEntropy& processEntropy() {
  const pid_t pid = getpid();
  if (sEntropy.pid != pid) {
    sEntropy.pid = pid;
    // Without getrandom the process id alone still tells the processes of one host apart.
    if (getrandom(sEntropy.random, sizeof sEntropy.random, 0) !=
        static_cast<ssize_t>(sizeof sEntropy.random)) {
      memset(sEntropy.random, 0, sizeof sEntropy.random);
    }
  }
  return sEntropy;
}

// Caller holds sGeneratorLock. The clock counts microseconds only, so UUIDs made within one
// reading are told apart by a counter added to it.
void kx_get_current_time(uint64_t* timestamp) {
  uint64_t now = 0;
  if (!sClockInited) {
    kx_get_system_time(&now);
    sUuidsThisTick = kUuidsPerTick;
    sClockInited = true;
  }
  for (;;) {
    kx_get_system_time(&now);
    if (now != sTimeLast) {
      sUuidsThisTick = 0;
      sTimeLast = now;
      break;
    }
    if (sUuidsThisTick < kUuidsPerTick) {
      ++sUuidsThisTick;
      break;
    }
    // The counter is spent for this reading: spin until the clock moves, never sleep.
  }
  // A reading moves in steps of 10 (one microsecond) while its counter may pass 10: never hand
  // out a stamp at or below the previous one, or two UUIDs could share it.
  sLastStamp = std::max(now + sUuidsThisTick, sLastStamp + 1);
  *timestamp = sLastStamp;
}

// Caller holds sGeneratorLock.
uint16_t kx_true_random() {
  if (!sRandomSeeded) {
    uint64_t now = 0;
    kx_get_system_time(&now);
    const uint64_t coarse = now >> 10;
    srand(static_cast<unsigned>((coarse >> 32) ^ (coarse & 0xFFFFFFFFULL)));
    sRandomSeeded = true;
  }
  return static_cast<uint16_t>(rand() & 0xFFFF);
}

struct ClockReadings {
  uint64_t timestamp;
  uint16_t random;
  ProcessEntropy entropy;
};

ClockReadings takeClockReadings() {
  std::lock_guard<std::mutex> guard(sGeneratorLock);
  ClockReadings readings{};
  kx_get_current_time(&readings.timestamp);
  readings.random = kx_true_random();
  readings.entropy = processEntropy();
  return readings;
}

// Without a digest the node is drawn from rand(), whose sequence other processes may share, so
// the process's own bytes are mixed in.
void fillRandomNode(uint8_t* node, const ProcessEntropy& entropy) {
  std::lock_guard<std::mutex> guard(sGeneratorLock);
  for (size_t i = 0; i < sizeof(kx_uuid_t::node); ++i) {
    node[i] = static_cast<uint8_t>(kx_true_random() ^ entropy.random[i]);
  }
}

void fillSeedRecord(char* record, const ProcessEntropy& entropy) {
  memset(record, 0, kSeedRecordSize);
  struct timeval now {};
  (void)gettimeofday(&now, nullptr);
  const int64_t seconds = now.tv_sec;
  const int64_t microseconds = now.tv_usec;
  memcpy(record, &seconds, sizeof seconds);
  memcpy(record + sizeof seconds, &microseconds, sizeof microseconds);
  // A truncated name may lack its NUL; the zeroed tail of the record keeps reads in bounds.
  char* name = record + kSeedTimeSize;
  (void)gethostname(name, kHostNameLimit);
  // The process's own bytes follow the name's NUL, as many as fit (at least 8: the name's
  // room ends 8 bytes before the record does).
  char* after = name + std::min(strnlen(name, kHostNameLimit) + 1, kHostNameLimit);
  memcpy(after, &entropy,
         std::min(sizeof entropy, static_cast<size_t>(record + kSeedRecordSize - after)));
}

void fillHashedNode(uint8_t* node, const ProcessEntropy& entropy) {
  void* context = KXMD5CreateContext();
  if (context == nullptr) {
    errno = ENOMEM;
    fillRandomNode(node, entropy);
    return;
  }
  char record[kSeedRecordSize];
  fillSeedRecord(record, entropy);
  char digest[kDigestTextSize] = {};
  (void)KXMD5Update(context, record, kSeedRecordSize);
  (void)KXMD5Complete(context, 'x', digest, kDigestTextSize);
  KXMD5DeleteContext(context);
  memcpy(node, digest, sizeof(kx_uuid_t::node));
}

}  // namespace

extern "C" {

int native_uuid_create(kx_uuid_t* uuid) {
  if (uuid == nullptr) {
    errno = EINVAL;
    return 0;
  }
  const ClockReadings readings = takeClockReadings();
  const uint64_t ts = readings.timestamp;
  const uint16_t r = readings.random;
  fillHashedNode(uuid->node, readings.entropy);
  uuid->node[0] |= kNodeMarkBit;
  uuid->time_low = static_cast<uint32_t>(ts & 0xFFFFFFFFULL);
  uuid->time_mid = static_cast<uint16_t>((ts >> 32) & 0xFFFF);
  uuid->time_hi_and_version = static_cast<uint16_t>(((ts >> 48) & 0x0FFF) | kVersionTimeBased);
  uuid->clock_seq_hi_and_reserved = static_cast<uint8_t>(((r & 0x3F00) >> 8) | kVariantRfc4122);
  uuid->clock_seq_low = static_cast<uint8_t>(r & 0xFF);
  return 1;
}

int native_uuid_to_string(const kx_uuid_t* uuid, char** text) {
  if (text == nullptr) {
    return 0;
  }
  *text = nullptr;
  if (uuid == nullptr) {
    return 0;
  }
  char* buffer = static_cast<char*>(malloc(kTextBufferSize));
  if (buffer == nullptr) {
    return 0;
  }
  const int length = snprintf(
      buffer, kTextBufferSize, "%8.8lx-%4.4x-%4.4x-%2.2x%2.2x-%2.2x%2.2x%2.2x%2.2x%2.2x%2.2x",
      static_cast<unsigned long>(uuid->time_low), uuid->time_mid, uuid->time_hi_and_version,
      uuid->clock_seq_hi_and_reserved, uuid->clock_seq_low, uuid->node[0], uuid->node[1],
      uuid->node[2], uuid->node[3], uuid->node[4], uuid->node[5]);
  *text = buffer;
  return length;
}

int native_uuid_string_free(char** text) {
  if (text != nullptr) {
    free(*text);
    *text = nullptr;
  }
  return 0;
}

int kx_uuid_create(kx_uuid_t* uuid) { return native_uuid_create(uuid); }
int kx_uuid_to_string(const kx_uuid_t* uuid, char** text) {
  return native_uuid_to_string(uuid, text);
}
int kx_uuid_string_free(char** text) { return native_uuid_string_free(text); }
}
