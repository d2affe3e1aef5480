#ifndef KX_FORMAT_TEXT_H
#define KX_FORMAT_TEXT_H

// Internal to the utilities library: printf-style formatting into a string of exactly the
// needed size, shared by the exception messages and the log lines.

#include <cstdarg>
#include <cstdio>
#include <string>

namespace kxutils {

// The formatted text, or the format itself when the C library cannot format it (an argument it
// rejects, a result longer than an int can count): the format is the best record left then.
inline std::string formatText(const char* format, va_list arguments) {
  if (format == nullptr) {
    return {};
  }
  va_list measuring;
  va_copy(measuring, arguments);
  const int length = vsnprintf(nullptr, 0, format, measuring);
  va_end(measuring);
  if (length < 0) {
    return format;
  }
  std::string text(static_cast<size_t>(length), '\0');
  // The string's own terminator slot receives vsnprintf's NUL.
  vsnprintf(&text[0], text.size() + 1, format, arguments);
  return text;
}

}  // namespace kxutils

#endif
