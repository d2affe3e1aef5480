#include <strings.h>

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <cwctype>

#include "kxos.h"

namespace {

constexpr int kFormattingFailed = -2;
// A size of 0 would never grow the measuring buffer; step by this much instead.
constexpr size_t kMeasureStepForEmptyDestination = 1024;
constexpr int kMaximumBase = 36;
constexpr int64_t kRangeErrorMagnitude = 0x3FFFFFFFFFFFFFFF;

// Formats with a copy of the caller's list, so the caller's list is never consumed.
int formatWithCopy(char* destination, size_t size, const char* format, va_list arguments) {
  va_list copy;
  va_copy(copy, arguments);
  const int length = vsnprintf(destination, size, format, copy);
  va_end(copy);
  return length;
}

// For platforms whose vsnprintf only says that the text does not fit: formats into ever larger
// scratch buffers until one holds it. Gives up once the length could no longer be an int.
int measureFormattedLength(size_t size, const char* format, va_list arguments) {
  const size_t step = size == 0 ? kMeasureStepForEmptyDestination : size;
  for (size_t trialSize = 2 * step; trialSize <= static_cast<size_t>(INT_MAX); trialSize += step) {
    char* scratch = static_cast<char*>(kx_malloc(trialSize + 1));
    if (scratch == nullptr) {
      return kFormattingFailed;
    }
    const int length = formatWithCopy(scratch, trialSize, format, arguments);
    kx_free(scratch);
    if (length >= 0) {
      return length;
    }
    if (errno != 0) {
      return kFormattingFailed;
    }
  }
  return kFormattingFailed;
}

bool isDecimalDigit(wchar_t character) {
  return iswalnum(static_cast<wint_t>(character)) != 0 && character >= L'0' && character <= L'9';
}

// Base 0 picks the base from the prefix: 0x is hexadecimal (skipped), a lone leading 0 octal
// (kept, it reads as a digit), anything else decimal.
int baseFromPrefix(const wchar_t** at) {
  if (**at != L'0') {
    return 10;
  }
  if ((*at)[1] == L'x') {
    *at += 2;
    return 16;
  }
  return 8;
}

void setEnd(wchar_t** end, const wchar_t* at) {
  if (end != nullptr) {
    *end = const_cast<wchar_t*>(at);
  }
}

int64_t rangeError(wchar_t** end, const wchar_t* afterDigit, int sign) {
  errno = ERANGE;
  setEnd(end, afterDigit);
  return kRangeErrorMagnitude * sign;
}

}  // namespace

extern "C" {

int kx_vsnprintf(char* destination, size_t size, const char* format, va_list arguments) {
  errno = 0;
  const int length = formatWithCopy(destination, size, format, arguments);
  if (length >= 0) {
    return length;
  }
  if (errno != 0) {
    return kFormattingFailed;
  }
  return measureFormattedLength(size, format, arguments);
}

int kx_snprintf(char* destination, size_t size, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = kx_vsnprintf(destination, size, format, arguments);
  va_end(arguments);
  return length;
}

int kx_vswprintf(wchar_t* destination, size_t size, const wchar_t* format, va_list arguments) {
  errno = 0;
  const int written = vswprintf(destination, size, format, arguments);
  if (written < 0 && errno != 0) {
    return kFormattingFailed;
  }
  return written;
}

int kx_swprintf(wchar_t* destination, size_t size, const wchar_t* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int written = vswprintf(destination, size, format, arguments);
  va_end(arguments);
  return written;
}

int kx_fprintf(FILE* file, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int written = vfprintf(file, format, arguments);
  va_end(arguments);
  return written;
}

int kx_vfprintf(FILE* file, const char* format, va_list arguments) {
  return vfprintf(file, format, arguments);
}

size_t kx_strftime(char* destination, size_t size, const char* format,
                   const struct tm* brokenDown) {
  return strftime(destination, size, format, brokenDown);
}

char* kx_lltoa(int64_t value, char* destination) {
  (void)kx_sprintf(destination, "%lld", static_cast<long long>(value));
  return destination;
}

int64_t kx_atoll(const char* text) {
  long long value = 0;
  return sscanf(text, "%lld", &value) == 1 ? value : 0;
}

int kx_atoi(const char* text) { return static_cast<int>(strtol(text, nullptr, 10)); }
long kx_strtol(const char* text, char** end, int base) { return strtol(text, end, base); }
long kx_wcstol(const wchar_t* text, wchar_t** end, int base) { return wcstol(text, end, base); }

int64_t kx_wcstoll(const wchar_t* text, wchar_t** end, int base) {
  setEnd(end, text);
  if (text == nullptr) {
    return 0;
  }
  if (base < 0 || base > kMaximumBase) {
    errno = EINVAL;
    return 0;
  }
  const wchar_t* at = text;
  while (iswspace(static_cast<wint_t>(*at)) != 0) {
    ++at;
  }
  const int sign = *at == L'-' ? -1 : 1;
  if (*at == L'-' || *at == L'+') {
    ++at;
  }
  if (base == 0) {
    base = baseFromPrefix(&at);
  }
  int64_t value = 0;
  for (; isDecimalDigit(*at); ++at) {
    const int digit = static_cast<int>(*at - L'0');
    if (digit >= base || value > (INT64_MAX - digit) / base) {
      return rangeError(end, at + 1, sign);
    }
    value = value * base + digit;
  }
  setEnd(end, at);
  return value * sign;
}

char* kx_strupr(char* text) {
  if (text == nullptr) {
    return nullptr;
  }
  for (char* at = text; *at != '\0'; ++at) {
    *at = static_cast<char>(toupper(static_cast<unsigned char>(*at)));
  }
  return text;
}

wchar_t* kx_wcsupr(wchar_t* text) {
  for (wchar_t* at = text; *at != L'\0'; ++at) {
    *at = static_cast<wchar_t>(towupper(static_cast<wint_t>(*at)));
  }
  return text;
}

int kx_memcmp(const void* left, const void* right, size_t count) {
  const int order = memcmp(left, right, count);
  return (order > 0) - (order < 0);
}

char* kx_strcpy(char* destination, const char* source) { return strcpy(destination, source); }
char* kx_strncpy(char* destination, const char* source, size_t count) {
  return strncpy(destination, source, count);
}
char* kx_strcat(char* destination, const char* source) { return strcat(destination, source); }
int kx_strcmp(const char* left, const char* right) { return strcmp(left, right); }
int kx_strncmp(const char* left, const char* right, size_t count) {
  return strncmp(left, right, count);
}
int kx_strncasecmp(const char* left, const char* right, size_t count) {
  return strncasecmp(left, right, count);
}
char* kx_strrchr(const char* text, int character) {
  return const_cast<char*>(strrchr(text, character));
}
char* kx_strstr(const char* text, const char* wanted) {
  return const_cast<char*>(strstr(text, wanted));
}
char* kx_strtok_r(char* text, const char* delimiters, char** state) {
  return strtok_r(text, delimiters, state);
}

wchar_t* kx_wcscpy(wchar_t* destination, const wchar_t* source) {
  return wcscpy(destination, source);
}
wchar_t* kx_wcsncpy(wchar_t* destination, const wchar_t* source, size_t count) {
  return wcsncpy(destination, source, count);
}
wchar_t* kx_wcscat(wchar_t* destination, const wchar_t* source) {
  return wcscat(destination, source);
}
int kx_wcscmp(const wchar_t* left, const wchar_t* right) { return wcscmp(left, right); }
int kx_wcsncmp(const wchar_t* left, const wchar_t* right, size_t count) {
  return wcsncmp(left, right, count);
}
int kx_wcscasecmp(const wchar_t* left, const wchar_t* right) { return wcscasecmp(left, right); }
// The wide family has no separate last-occurrence call; this one is it.
wchar_t* kx_wcschr(const wchar_t* text, wchar_t character) {
  return const_cast<wchar_t*>(wcsrchr(text, character));
}
wchar_t* kx_wcsstr(const wchar_t* text, const wchar_t* wanted) {
  return const_cast<wchar_t*>(wcsstr(text, wanted));
}
size_t kx_wcslen(const wchar_t* text) { return wcslen(text); }
wchar_t* kx_wcsdup(const wchar_t* text) { return wcsdup(text); }
size_t kx_mbstowcs(wchar_t* destination, const char* source, size_t count) {
  return mbstowcs(destination, source, count);
}
wint_t kx_btowc(int character) { return btowc(character); }
int kx_wctob(wint_t character) { return wctob(character); }
wint_t kx_towupper(wint_t character) { return towupper(character); }
int kx_iswspace(wint_t character) { return iswspace(character); }
int kx_iswcntrl(wint_t character) { return iswcntrl(character); }
}
