#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "kxos.h"

namespace {

// Formats the same list twice: the second result shows whether the first consumed it.
int formatTwice(char* first, char* second, size_t size, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int firstLength = kx_vsnprintf(first, size, format, arguments);
  const int secondLength = kx_vsnprintf(second, size, format, arguments);
  va_end(arguments);
  EXPECT_EQ(firstLength, secondLength);
  return secondLength;
}

TEST(KxFormatting, SnprintfReportsTheFullLengthAndTruncatesSafely) {
  char destination[8] = "#######";
  EXPECT_EQ(kx_snprintf(destination, 4, "%s", "abcdef"), 6);
  EXPECT_STREQ(destination, "abc");
  EXPECT_EQ(destination[4], '#') << "nothing written past size";
  EXPECT_EQ(kx_snprintf(nullptr, 0, "%d-%s", 12345, "xy"), 8);

  char first[16];
  char second[16];
  EXPECT_EQ(formatTwice(first, second, sizeof first, "%s=%d", "key", 42), 6);
  EXPECT_STREQ(second, "key=42");
}

TEST(KxFormatting, WideFormattingAndNumberPrinting) {
  wchar_t wide[16];
  EXPECT_EQ(kx_swprintf(wide, 16, L"%ls-%d", L"ab", 7), 4);
  EXPECT_EQ(kx_wcscmp(wide, L"ab-7"), 0);
  EXPECT_LT(kx_swprintf(wide, 2, L"%ls", L"too long"), 0);

  char digits[21];
  EXPECT_EQ(kx_lltoa(LLONG_MIN, digits), digits);
  EXPECT_STREQ(digits, "-9223372036854775808");
  EXPECT_EQ(kx_atoll("  123abc"), 123);
  EXPECT_EQ(kx_atoll("abc"), 0);
}

struct WideCase {
  const wchar_t* text;
  int base;
  int64_t value;
  size_t endOffset;
  int error;
};

TEST(KxWcstoll, ParsesAsDocumented) {
  constexpr int64_t kRange = 4611686018427387903;
  const WideCase cases[] = {
      {L" -42", 10, -42, 4, 0},
      {L"777", 0, 777, 3, 0},
      {L"0777", 0, 511, 4, 0},
      {L"0x17", 0, 23, 4, 0},
      {L"0x1F", 0, 1, 3, 0},
      {L"+12z", 10, 12, 3, 0},
      {L"abc", 10, 0, 0, 0},
      {L"19", 8, kRange, 2, ERANGE},
      {L"9223372036854775807", 10, INT64_MAX, 19, 0},
      {L"9223372036854775808", 10, kRange, 19, ERANGE},
      {L"-9223372036854775808", 10, -kRange, 20, ERANGE},
      {L"12", 37, 0, 0, EINVAL},
  };
  for (const WideCase& c : cases) {
    errno = 0;
    wchar_t* end = nullptr;
    EXPECT_EQ(kx_wcstoll(c.text, &end, c.base), c.value) << c.text;
    EXPECT_EQ(end - c.text, static_cast<ptrdiff_t>(c.endOffset)) << c.text;
    EXPECT_EQ(errno, c.error) << c.text;
  }
  wchar_t sentinel[] = L"?";
  wchar_t* end = sentinel;
  EXPECT_EQ(kx_wcstoll(nullptr, &end, 10), 0);
  EXPECT_EQ(end, nullptr);
  EXPECT_EQ(kx_wcstoll(L"5", nullptr, 10), 5);
}

TEST(KxStrings, CaseConversionComparisonAndSearch) {
  EXPECT_EQ(kx_strupr(nullptr), nullptr);
  char empty[1] = "";
  EXPECT_STREQ(kx_strupr(empty), "");
  char mixed[] = "aBc-1z";
  EXPECT_STREQ(kx_strupr(mixed), "ABC-1Z");
  wchar_t wide[] = L"abc";
  EXPECT_EQ(kx_wcscmp(kx_wcsupr(wide), L"ABC"), 0);

  const unsigned char high = 0x80;
  const unsigned char low = 0x01;
  EXPECT_EQ(kx_memcmp(&high, &low, 1), 1);
  EXPECT_EQ(kx_memcmp("abc", "abd", 3), -1);
  EXPECT_EQ(kx_memcmp("abc", "xyz", 0), 0);

  const wchar_t* text = L"abca";
  EXPECT_EQ(kx_wcschr(text, L'a'), text + 3) << "the last occurrence";
  EXPECT_EQ(kx_wcschr(text, L'z'), nullptr);
}

}  // namespace
