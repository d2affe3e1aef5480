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

int formatWide(wchar_t* destination, size_t size, const wchar_t* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = kx_vswprintf(destination, size, format, arguments);
  va_end(arguments);
  return length;
}

TEST(KxFormatting, ReportsTheFullLengthTruncatesSafelyAndLeavesTheArgumentListUnused) {
  char destination[8] = "#######";
  EXPECT_EQ(6, kx_snprintf(destination, 4, "%s", "abcdef"));
  EXPECT_STREQ("abc", destination);
  EXPECT_EQ('#', destination[4]) << "nothing written past size";
  EXPECT_EQ(8, kx_snprintf(nullptr, 0, "%d-%s", 12345, "xy"));
  char first[16];
  char second[16];
  EXPECT_EQ(6, formatTwice(first, second, sizeof first, "%s=%d", "key", 42));
  EXPECT_STREQ("key=42", second);
  EXPECT_EQ(7, kx_sprintf(first, "%s=%ld", "pos", -42L));
  EXPECT_STREQ("pos=-42", first);
  wchar_t wide[16];
  EXPECT_EQ(4, kx_swprintf(wide, 16, L"%ls-%d", L"ab", 7));
  EXPECT_EQ(0, kx_wcscmp(wide, L"ab-7"));
  EXPECT_LT(kx_swprintf(wide, 2, L"%ls", L"too long"), 0);
  // A text that does not fit gives the call's own -1, whatever errno held before.
  errno = EINTR;
  EXPECT_EQ(-1, formatWide(wide, 2, L"%ls", L"too long"));
  EXPECT_EQ(4, formatWide(wide, 16, L"%d-%ls", 12, L"z"));
  EXPECT_EQ(0, kx_wcscmp(wide, L"12-z"));
}

TEST(KxNumbers, PrintAndParseDecimalToTheLimits) {
  char digits[21];
  EXPECT_EQ(digits, kx_lltoa(LLONG_MIN, digits));
  EXPECT_STREQ("-9223372036854775808", digits);
  EXPECT_EQ(123, kx_atoll("  123abc"));
  EXPECT_EQ(0, kx_atoll("abc"));
  EXPECT_EQ(INT64_MIN, kx_atoll("-9223372036854775808"));
}

// Decimal digits only, whatever the base; a digit not below the base or one more than 64 bits
// hold is a range error ending just after that digit.
TEST(KxWcstoll, ParsesDecimalDigitsInTheBaseAndStopsAtTheFirstOutOfRange) {
  constexpr int64_t kRange = 4611686018427387903;
  const struct {
    const wchar_t* text;
    int base;
    int64_t value;
    size_t endOffset;
    int error;
  } cases[] = {
      {L" -42", 10, -42, 4, 0},
      {L"777", 0, 777, 3, 0},
      {L"0777", 0, 511, 4, 0},
      {L"0x17", 0, 23, 4, 0},
      {L"0x1F", 0, 1, 3, 0},
      {L"+12z", 10, 12, 3, 0},
      {L"abc", 10, 0, 0, 0},
      {L"17", 8, 15, 2, 0},
      {L"18", 8, kRange, 2, ERANGE},
      {L"-19", 9, -kRange, 3, ERANGE},
      {L"11", 1, kRange, 1, ERANGE},
      {L"12", 36, 38, 2, 0},
      {L"9223372036854775807", 10, INT64_MAX, 19, 0},
      {L"-9223372036854775807", 10, -INT64_MAX, 20, 0},
      {L"9223372036854775808", 10, kRange, 19, ERANGE},
      {L"-9223372036854775808", 10, -kRange, 20, ERANGE},
      {L"92233720368547758070", 10, kRange, 20, ERANGE},
      {L"12", 37, 0, 0, EINVAL},
      {L"12", -1, 0, 0, EINVAL},
  };
  for (const auto& c : cases) {
    errno = 0;
    wchar_t* end = nullptr;
    EXPECT_EQ(c.value, kx_wcstoll(c.text, &end, c.base)) << c.text << " base " << c.base;
    EXPECT_EQ(static_cast<ptrdiff_t>(c.endOffset), end - c.text) << c.text << " base " << c.base;
    EXPECT_EQ(c.error, errno) << c.text << " base " << c.base;
  }
  wchar_t sentinel[] = L"?";
  wchar_t* end = sentinel;
  EXPECT_EQ(0, kx_wcstoll(nullptr, &end, 10));
  EXPECT_EQ(nullptr, end);
  EXPECT_EQ(5, kx_wcstoll(L"5", nullptr, 10));
}

TEST(KxStrings, CaseConversionComparisonAndSearch) {
  EXPECT_EQ(nullptr, kx_strupr(nullptr));
  char mixed[] = "aBc-1z";
  EXPECT_STREQ("ABC-1Z", kx_strupr(mixed));
  wchar_t wide[] = L"abc";
  EXPECT_EQ(0, kx_wcscmp(kx_wcsupr(wide), L"ABC"));
  const unsigned char high = 0x80;
  const unsigned char low = 0x01;
  EXPECT_EQ(1, kx_memcmp(&high, &low, 1));
  EXPECT_EQ(-1, kx_memcmp("abc", "abd", 3));
  EXPECT_EQ(0, kx_memcmp("abc", "xyz", 0));
  const wchar_t* text = L"abca";
  EXPECT_EQ(text + 3, kx_wcschr(text, L'a')) << "the last occurrence";
  EXPECT_EQ(nullptr, kx_wcschr(text, L'z'));
}

}  // namespace
