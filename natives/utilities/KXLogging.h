#ifndef KX_LOGGING_H
#define KX_LOGGING_H

/// @file
/// Process-wide logging of both libraries, silent until the client configures it.

#include "KXExport.h"

/// A log line's level: 1 error, 2 warning, 3 debug.
typedef int verbosity_level_t;
/// The area a log line comes from; every line of the stream library uses 1024.
typedef int component_t;
/// Receives each passing line, formatted, without a trailing newline, with the @p context
/// given to KXLogging::setSink(). Called under the logging lock: it must not log itself.
typedef void (*KXLogSink)(verbosity_level_t level, component_t component, const char* line,
                          void* context);

/// Process-wide logging. Silent by default: a line passes only when debug logging is on (every
/// level) or its level is at most the verbosity, which starts at 0. A passing line is formatted
/// once and handed to the sink without a trailing newline; the default sink writes it to
/// standard error. All operations are static and safe from several threads at once.
class KX_EXPORT KXLogging {
 public:
  /// Whether debug logging is on (false by default). Streams trace their steps only then.
  static bool isDebugLogging();
  /// Turns debug logging on or off: when on, lines of every level pass.
  static void setDebugLogging(bool on);
  /// The highest level that passes (0 by default: nothing passes).
  static verbosity_level_t getVerbosity();
  /// Lets lines of @p level and below pass; 0 silences logging again.
  static void setVerbosity(verbosity_level_t level);
  /// Routes passing lines to @p sink with @p context; a null sink restores the default one
  /// (standard error). Sinks are called one line at a time under a lock, so a sink must not
  /// log through KXLogging itself.
  static void setSink(KXLogSink sink, void* context);

  /// Logs one printf-style line at @p level for @p component when it passes.
  static void Log(verbosity_level_t level, component_t component, const char* format, ...)
      KX_PRINTF_FORMAT(3, 4);
  /// Logs one printf-style line at level 3 (debug) for @p component when it passes.
  static void Debug(component_t component, const char* format, ...) KX_PRINTF_FORMAT(2, 3);
};

#endif
