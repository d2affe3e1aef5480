#include "KXMD5.h"

// OpenSSL's own MD5 routine, linked in from the static archive and hidden. Going through EVP
// would map all of libcrypto and start its provider machinery, several MiB of resident memory
// for one hash, and would share global OpenSSL state with the application that loads us. The
// routine is marked deprecated in OpenSSL 3 in favour of EVP, which is exactly what we avoid.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/md5.h>

#include <algorithm>
#include <new>

namespace {

constexpr int kFailure = -1;

MD5_CTX* asDigest(void* context) { return static_cast<MD5_CTX*>(context); }

bool startDigest(MD5_CTX* digest) { return MD5_Init(digest) == 1; }

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
  auto* digest = new (std::nothrow) MD5_CTX;
  if (digest == nullptr) {
    return nullptr;
  }
  if (!startDigest(digest)) {
    delete digest;
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
  return MD5_Update(asDigest(context), data, length) == 1 ? 0 : kFailure;
}

long KXMD5_Router::complete(void* context, char format, char* out, long outSize, unsigned char) {
  if (context == nullptr || out == nullptr || outSize < 0) {
    return kFailure;
  }
  unsigned char digest[MD5_DIGEST_LENGTH];
  if (MD5_Final(digest, asDigest(context)) != 1) {
    return kFailure;
  }
  // A finished context may not be fed again; restarting it makes a second use a fresh digest
  // instead of undefined behaviour. If that fails, later updates report the failure.
  startDigest(asDigest(context));
  return writeHex(digest, MD5_DIGEST_LENGTH, format == 'X', out, outSize);
}

void KXMD5_Router::deleteContext(void* context, unsigned char) { delete asDigest(context); }

void* KXMD5CreateContext(void) { return KXMD5_Router::createContext(); }

int KXMD5Update(void* context, char* data, unsigned long length) {
  return KXMD5_Router::update(context, data, length, 0);
}

long KXMD5Complete(void* context, char format, char* out, long outSize) {
  return KXMD5_Router::complete(context, format, out, outSize, 0);
}

void KXMD5DeleteContext(void* context) { KXMD5_Router::deleteContext(context, 0); }
