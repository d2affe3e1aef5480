#include "KXStringConversion.h"

#include <array>
#include <cstdio>
#include <string>

namespace {

// Twice the promised eight calls, so that a caller holding a few texts while building a
// message with several more is safe. Slots keep their capacity, so after the first round the
// conversions rarely allocate.
constexpr size_t kRingSize = 16;

std::string& nextSlot() {
  thread_local std::array<std::string, kRingSize> ring;
  thread_local size_t next = 0;
  std::string& slot = ring[next];
  next = (next + 1) % kRingSize;
  return slot;
}

const char* keep(const char* text) {
  std::string& slot = nextSlot();
  slot.assign(text);
  return slot.c_str();
}

constexpr const char* kNullText = "NULL";

}  // namespace

const char* KXStringConversion::toString(long value) {
  char digits[24];
  snprintf(digits, sizeof digits, "%ld", value);
  return keep(digits);
}

const char* KXStringConversion::toString(unsigned char value) {
  return toString(static_cast<long>(value));
}

const char* KXStringConversion::toString(const char* text) {
  return keep(text != nullptr ? text : kNullText);
}

const char* KXStringConversion::removePercent(const char* text) {
  if (text == nullptr) {
    return keep(kNullText);
  }
  std::string& slot = nextSlot();
  slot.clear();
  for (const char* c = text; *c != '\0'; ++c) {
    if (*c != '%') {
      slot.push_back(*c);
    }
  }
  return slot.c_str();
}
