#ifndef KX_STRING_CONVERSION_H
#define KX_STRING_CONVERSION_H

#include "KXExport.h"

// Texts for log lines and messages. Each returned text is owned by the library and stays valid
// until at least eight more calls of these functions on the same thread.
class KX_EXPORT KXStringConversion {
 public:
  static const char* toString(long value);
  static const char* toString(unsigned char value);
  // A null pointer gives "NULL".
  static const char* toString(const char* text);
  // The text without percent signs, safe as a "%s" argument and harmless as a format.
  static const char* removePercent(const char* text);
};

#endif
