#ifndef KX_FUZZ_SUPPORT_H
#define KX_FUZZ_SUPPORT_H

// Shared by the fuzzers: reading the input as a stream of small numbers, reporting a divergence
// so that libFuzzer records the input, and telling the library's exceptions apart.

#include <openssl/evp.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "KXException.h"

namespace kxfuzz {

// Reads the fuzzer's input front to back; an exhausted input reads as zeros.
class Reader {
 public:
  Reader(const uint8_t* data, size_t size) : mData(data), mSize(size) {}
  bool done() const { return mOffset >= mSize; }
  uint8_t byte() { return done() ? 0 : mData[mOffset++]; }
  uint16_t u16() { return static_cast<uint16_t>(byte() | (byte() << 8)); }
  uint32_t u32() { return static_cast<uint32_t>(u16() | (static_cast<uint32_t>(u16()) << 16)); }
  uint64_t u64() { return u32() | (static_cast<uint64_t>(u32()) << 32); }
  // The rest of the input as text (no NUL inside).
  std::string rest() {
    std::string text;
    while (!done()) {
      const char c = static_cast<char>(byte());
      if (c != '\0') {
        text.push_back(c);
      }
    }
    return text;
  }

 private:
  const uint8_t* mData;
  size_t mSize;
  size_t mOffset = 0;
};

// A divergence from the documented behaviour: print it and abort, so libFuzzer keeps the input.
[[noreturn]] inline void divergence(const char* what, const std::string& detail) {
  fprintf(stderr, "DIVERGENCE: %s: %s\n", what, detail.c_str());
  abort();
}

#define KX_FUZZ_CHECK(condition, detail)      \
  do {                                        \
    if (!(condition)) {                       \
      kxfuzz::divergence(#condition, detail); \
    }                                         \
  } while (false)

// The documented exception classes, in the order of kClassNames.
enum class Thrown {
  kNone,
  kStream,
  kParameter,
  kNotSupported,
  kMarkRequired,
  kValidation,
  kMismatch,
  kFileSystem,
  kWrongStream,
  kOutOfMem,
  kInternal,
  kOther
};

// Every documented class derives directly from KXApplicationException or KXException, so the
// exact class name tells them apart.
inline Thrown classify(const KXException& e) {
  static const char* const kClassNames[] = {
      "KXStreamException",       "KXParameterException",        "KXNotSupportedException",
      "KXMarkRequiredException", "KXStreamValidationException", "KXStreamMismatchException",
      "KXFileSystemException",   "KXWrongStreamException",      "KXOutOfMemException",
      "KXSDKInternalException"};
  const auto found =
      std::find(std::begin(kClassNames), std::end(kClassNames), std::string(e.GetClassName()));
  return static_cast<Thrown>(found - std::begin(kClassNames) + 1);
}

// Runs one library operation; a KXException of a documented class is an allowed outcome,
// anything else escapes or is a divergence.
template <class Operation>
void attempt(Operation operation) {
  try {
    operation();
  } catch (const KXException& e) {
    KX_FUZZ_CHECK(classify(e) != Thrown::kOther, e.what());
  }
}

// Ends a stream whatever state the input left it in: as an output stream it has no input byte
// count to check, so a close whose kind keeps the contract must succeed and free everything.
template <class Stream>
void closeAsOutput(Stream* stream) {
  stream->SetWritable();
  try {
    stream->close();
  } catch (const KXException& e) {
    divergence("closing as an output stream failed", e.what());
  }
}

// The reference digest: what md5sum prints for the bytes.
inline std::string md5Hex(const std::string& bytes) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_md5(), nullptr);
  static const char kHex[] = "0123456789abcdef";
  std::string text;
  for (unsigned int i = 0; i < length; ++i) {
    text.push_back(kHex[digest[i] >> 4]);
    text.push_back(kHex[digest[i] & 15]);
  }
  return text;
}

// Reproducible content of the given size.
inline std::string pattern(size_t size, unsigned seed) {
  std::string bytes(size, '\0');
  uint32_t state = seed * 2654435761u + 1;
  for (char& c : bytes) {
    state = state * 1103515245u + 12345u;
    c = static_cast<char>(state >> 16);
  }
  return bytes;
}

}  // namespace kxfuzz

#endif
