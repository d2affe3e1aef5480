#ifndef KX_EXPORT_H
#define KX_EXPORT_H

/// @file
/// The marks of the binary interface. Both libraries are built with hidden visibility; only
/// what carries KX_EXPORT is exported, and the export lists fix it further.

#if defined(__GNUC__)
/// Marks a class or function as part of a library's binary interface (default visibility).
#define KX_EXPORT __attribute__((visibility("default")))
#else
#define KX_EXPORT
#endif

#if defined(__GNUC__)
/// Lets the compiler check a printf-style format (argument @p formatIndex) against the
/// arguments from @p firstArgIndex on (0 for a va_list).
#define KX_PRINTF_FORMAT(formatIndex, firstArgIndex) \
  __attribute__((format(printf, formatIndex, firstArgIndex)))
#else
#define KX_PRINTF_FORMAT(formatIndex, firstArgIndex)
#endif

#endif
