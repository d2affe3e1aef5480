#include "KXMD5.h"

#include <openssl/evp.h>

#include <algorithm>

namespace {

constexpr int kFailure = -1;

EVP_MD_CTX* asDigest(void* context) { return static_cast<EVP_MD_CTX*>(context); }

bool startDigest(EVP_MD_CTX* digest) { return EVP_DigestInit_ex(digest, EVP_md5(), nullptr) == 1; }

// Writes the hexadecimal digits of the digest into out, at most outSize of them, with a NUL
// when room is left; returns how many digits it wrote.
long writeHex(const unsigned char* digest, unsigned int digestLength, bool upperCase, char* out,
              long outSize) {
  const char* digits = upperCase ? "0123456789ABCDEF" : "0123456789abcdef";
  const long fullLength = 2L * digestLength;
  const long written = std::min(fullLength, outSize);
  for (long index = 0; index < written; ++index) {
    const unsigned char byte = digest[index / 2];
    out[index] = digits[index % 2 == 0 ? byte >> 4 : byte & 0x0f];
  }
  if (written < outSize) {
    out[written] = '\0';
  }
  return written;
}

}  // namespace

void* KXMD5_Router::createContext() {
  EVP_MD_CTX* digest = EVP_MD_CTX_new();
  if (digest == nullptr) {
    return nullptr;
  }
  if (!startDigest(digest)) {
    EVP_MD_CTX_free(digest);
    return nullptr;
  }
  return digest;
}

int KXMD5_Router::update(void* context, char* data, unsigned long length, unsigned char) {
  if (context == nullptr || (data == nullptr && length > 0)) {
    return kFailure;
  }
  if (length == 0) {
    return 0;
  }
  return EVP_DigestUpdate(asDigest(context), data, length) == 1 ? 0 : kFailure;
}

long KXMD5_Router::complete(void* context, char format, char* out, long outSize, unsigned char) {
  if (context == nullptr || out == nullptr || outSize < 0) {
    return kFailure;
  }
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int digestLength = 0;
  if (EVP_DigestFinal_ex(asDigest(context), digest, &digestLength) != 1) {
    return kFailure;
  }
  // A finished context may not be fed again; restarting it makes a second use a fresh digest
  // instead of undefined behaviour. If that fails, later updates report the failure.
  startDigest(asDigest(context));
  return writeHex(digest, digestLength, format == 'X', out, outSize);
}

void KXMD5_Router::deleteContext(void* context, unsigned char) {
  EVP_MD_CTX_free(asDigest(context));
}

void* KXMD5CreateContext(void) { return KXMD5_Router::createContext(); }

int KXMD5Update(void* context, char* data, unsigned long length) {
  return KXMD5_Router::update(context, data, length, 0);
}

long KXMD5Complete(void* context, char format, char* out, long outSize) {
  return KXMD5_Router::complete(context, format, out, outSize, 0);
}

void KXMD5DeleteContext(void* context) { KXMD5_Router::deleteContext(context, 0); }
