#ifndef KX_RAISE_H
#define KX_RAISE_H

// Internal to the stream library: the one way its code builds, logs and throws an exception.

#include <cstdarg>
#include <cstdio>
#include <string>

#include "KXException.h"

template <class Exception>
class KXRaise {
 public:
  KXRaise(const char* sourcePath, long line, int code)
      : mException(code), mSourcePath(sourcePath), mLine(line) {}

  KXRaise& trace(const char* format, ...) KX_PRINTF_FORMAT(2, 3) {
    va_list arguments;
    va_start(arguments, format);
    mException.addTrace("%s", formatted(format, arguments));
    va_end(arguments);
    return *this;
  }

  KXRaise& message(const char* format, ...) KX_PRINTF_FORMAT(2, 3) {
    va_list arguments;
    va_start(arguments, format);
    mException.SetMessage("%s", formatted(format, arguments));
    va_end(arguments);
    return *this;
  }

  [[noreturn]] void raise() {
    mException.log(mSourcePath, mLine);
    throw mException;
  }

  // Throws without the log line, for exceptions that are expected control flow.
  [[noreturn]] void raiseQuietly() { throw mException; }

 private:
  const char* formatted(const char* format, va_list arguments) {
    va_list measuring;
    va_copy(measuring, arguments);
    const int length = vsnprintf(nullptr, 0, format, measuring);
    va_end(measuring);
    mText.assign(length > 0 ? static_cast<size_t>(length) : 0, '\0');
    if (length > 0) {
      vsnprintf(&mText[0], mText.size() + 1, format, arguments);
    }
    return mText.c_str();
  }

  Exception mException;
  const char* mSourcePath;
  long mLine;
  std::string mText;
};

// Each source defines kSourcePath, the path under which its exceptions are logged.
#define KX_RAISE(Exception, code) KXRaise<Exception>(kSourcePath, __LINE__, (code))

// An internal consistency check, reported with its text as written in the source.
#define KX_ASSERT(condition) KX_ASSERT_TEXT(condition, #condition)

// The same with the reported text given explicitly, where the formatter would respell the
// source text (it puts a space after casts such as "(KXBool)true").
#define KX_ASSERT_TEXT(condition, text)                             \
  do {                                                              \
    if (!(condition)) {                                             \
      KXSDKInternalException::Throw(kSourcePath, __LINE__, (text)); \
    }                                                               \
  } while (false)

#endif
