#include "KXLogging.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <new>
#include <string>

#include "KXFormatText.h"

namespace {

constexpr verbosity_level_t kDebugLevel = 3;

// Read on every protocol call of every stream, hence atomics rather than the sink's mutex.
std::atomic<bool> sDebugLogging{false};
std::atomic<verbosity_level_t> sVerbosity{0};

// Guards the sink and its context together, and serialises the sink's calls, so a sink sees
// one line at a time. A sink therefore must not log through KXLogging itself: the mutex is
// not recursive and the call would deadlock.
std::mutex sSinkMutex;
KXLogSink sSink = nullptr;
void* sSinkContext = nullptr;

void writeToStandardError(verbosity_level_t, component_t, const char* line, void*) {
  // Locked so that the line and its newline stay together beside other writers of stderr.
  flockfile(stderr);
  fputs(line, stderr);
  fputc('\n', stderr);
  funlockfile(stderr);
}

bool passes(verbosity_level_t level) {
  if (sDebugLogging.load(std::memory_order_relaxed)) {
    return true;
  }
  const verbosity_level_t verbosity = sVerbosity.load(std::memory_order_relaxed);
  return verbosity > 0 && level <= verbosity;
}

void emit(verbosity_level_t level, component_t component, const char* format, va_list arguments) {
  if (format == nullptr || !passes(level)) {
    return;
  }
  std::string line;
  try {
    line = kxutils::formatText(format, arguments);
  } catch (const std::bad_alloc&) {
    // A log line is never worth failing the caller's operation.
    return;
  }
  std::lock_guard<std::mutex> lock(sSinkMutex);
  KXLogSink sink = sSink != nullptr ? sSink : &writeToStandardError;
  sink(level, component, line.c_str(), sSinkContext);
}

}  // namespace

bool KXLogging::isDebugLogging() { return sDebugLogging.load(std::memory_order_relaxed); }

void KXLogging::setDebugLogging(bool on) { sDebugLogging.store(on, std::memory_order_relaxed); }

verbosity_level_t KXLogging::getVerbosity() { return sVerbosity.load(std::memory_order_relaxed); }

void KXLogging::setVerbosity(verbosity_level_t level) {
  sVerbosity.store(level, std::memory_order_relaxed);
}

void KXLogging::setSink(KXLogSink sink, void* context) {
  std::lock_guard<std::mutex> lock(sSinkMutex);
  sSink = sink;
  sSinkContext = sink != nullptr ? context : nullptr;
}

void KXLogging::Log(verbosity_level_t level, component_t component, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  emit(level, component, format, arguments);
  va_end(arguments);
}

void KXLogging::Debug(component_t component, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  emit(kDebugLevel, component, format, arguments);
  va_end(arguments);
}
