#ifndef KX_MD5_H
#define KX_MD5_H

/// @file
/// MD5 digests (RFC 1321) as text, the digest behind the streams' content identifier.

#include "KXExport.h"

/// MD5 digests (RFC 1321). A context is created, fed any number of times, completed once into
/// text and deleted. Format 'x' gives 32 lower-case hexadecimal digits, 'X' upper-case, any
/// other format lower-case. At most outSize characters are written, plus a terminating NUL when
/// room is left. The flag arguments are reserved and ignored. A context serves one thread at a
/// time.
class KX_EXPORT KXMD5_Router {
 public:
  /// A new context, owned by the caller until deleteContext(); null when none can be made.
  static void* createContext();
  /// Adds @p length bytes at @p data to the digest. 0 on success, -1 on a null context or a
  /// failed digest update.
  static int update(void* context, char* data, unsigned long length, unsigned char flag);
  /// Writes the digest of everything added as text in @p format into @p out (at most
  /// @p outSize characters, NUL-terminated when room is left). The number of characters
  /// written (without the NUL), or -1 on failure. Complete a context once.
  static long complete(void* context, char format, char* out, long outSize, unsigned char flag);
  /// Frees @p context; null is ignored.
  static void deleteContext(void* context, unsigned char flag);
};

extern "C" {
/// KXMD5_Router::createContext() for C callers.
KX_EXPORT void* KXMD5CreateContext(void);
/// KXMD5_Router::update() for C callers: 0, or -1 on failure.
KX_EXPORT int KXMD5Update(void* context, char* data, unsigned long length);
/// KXMD5_Router::complete() for C callers: characters written, or -1 on failure.
KX_EXPORT long KXMD5Complete(void* context, char format, char* out, long outSize);
/// KXMD5_Router::deleteContext() for C callers.
KX_EXPORT void KXMD5DeleteContext(void* context);
}

#endif
