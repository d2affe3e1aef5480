#ifndef KX_EXPORT_H
#define KX_EXPORT_H

// Both libraries are built with hidden visibility; only what carries this mark is part of
// their binary interface.
#if defined(__GNUC__)
#define KX_EXPORT __attribute__((visibility("default")))
#else
#define KX_EXPORT
#endif

#if defined(__GNUC__)
#define KX_PRINTF_FORMAT(formatIndex, firstArgIndex) \
  __attribute__((format(printf, formatIndex, firstArgIndex)))
#else
#define KX_PRINTF_FORMAT(formatIndex, firstArgIndex)
#endif

#endif
