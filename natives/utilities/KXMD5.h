#ifndef KX_MD5_H
#define KX_MD5_H

#include "KXExport.h"

// MD5 digests (RFC 1321). A context is created, fed any number of times, completed once into
// text and deleted. Format 'x' gives 32 lower-case hexadecimal digits, 'X' upper-case, any
// other format lower-case. At most outSize characters are written, plus a terminating NUL when
// room is left. The flag arguments are reserved and ignored.
class KX_EXPORT KXMD5_Router {
 public:
  // Null when no context can be made.
  static void* createContext();
  // 0 on success, -1 on a null context or a failed digest update.
  static int update(void* context, char* data, unsigned long length, unsigned char flag);
  // The number of characters written (without the NUL), or -1 on failure.
  static long complete(void* context, char format, char* out, long outSize, unsigned char flag);
  static void deleteContext(void* context, unsigned char flag);
};

extern "C" {
KX_EXPORT void* KXMD5CreateContext(void);
KX_EXPORT int KXMD5Update(void* context, char* data, unsigned long length);
KX_EXPORT long KXMD5Complete(void* context, char format, char* out, long outSize);
KX_EXPORT void KXMD5DeleteContext(void* context);
}

#endif
