#ifndef KX_LOGGING_H
#define KX_LOGGING_H

#include "KXExport.h"

typedef int verbosity_level_t;  // 1 error, 2 warning, 3 debug
typedef int component_t;
typedef void (*KXLogSink)(verbosity_level_t level, component_t component, const char* line,
                          void* context);

// Process-wide logging. Silent by default: a line passes only when debug logging is on (every
// level) or its level is at most the verbosity, which starts at 0. A passing line is formatted
// once and handed to the sink without a trailing newline; the default sink writes it to
// standard error.
class KX_EXPORT KXLogging {
 public:
  static bool isDebugLogging();
  static void setDebugLogging(bool on);
  static verbosity_level_t getVerbosity();
  static void setVerbosity(verbosity_level_t level);
  // A null sink restores the default one. Sinks are called one line at a time under a lock, so
  // a sink must not log through KXLogging itself.
  static void setSink(KXLogSink sink, void* context);

  static void Log(verbosity_level_t level, component_t component, const char* format, ...)
      KX_PRINTF_FORMAT(3, 4);
  static void Debug(component_t component, const char* format, ...) KX_PRINTF_FORMAT(2, 3);
};

#endif
