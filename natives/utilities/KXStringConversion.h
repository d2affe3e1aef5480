#ifndef KX_STRING_CONVERSION_H
#define KX_STRING_CONVERSION_H

/// @file
/// KXStringConversion, the texts used in log lines and messages.

#include "KXExport.h"

/// Texts for log lines and messages. Each returned text is owned by the library and stays valid
/// until at least eight more calls of these functions on the same thread; copy it to keep it.
class KX_EXPORT KXStringConversion {
 public:
  /// @p value in decimal.
  static const char* toString(long value);
  /// @p value in decimal.
  static const char* toString(unsigned char value);
  /// A copy of @p text; a null pointer gives "NULL".
  static const char* toString(const char* text);
  /// The text without percent signs, safe as a "%s" argument and harmless as a format.
  static const char* removePercent(const char* text);
};

#endif
