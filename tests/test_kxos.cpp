#include "kxos.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <string>

#include "KXTestSupport.h"

namespace {

using kxtest::fileContents;

// Mode names ignore case; none truncates but "w"; "a" starts at the end without O_APPEND, so
// that a seek moves the writes; an unknown mode opens for reading at the start.
TEST(KxOpen, ModeNamesSetAccessStartAndCreationOfACloseOnExecDescriptor) {
  const struct {
    const char* mode;
    int access;
    long start;
    const char* after;  // the file after writing "AB" at offset 0
  } cases[] = {{"r", O_RDONLY, 0, "0123456789"},  {"RB", O_RDONLY, 0, "0123456789"},
               {"RB+", O_RDWR, 0, "AB23456789"},  {"r+b", O_RDWR, 0, "AB23456789"},
               {"a", O_WRONLY, 10, "AB23456789"}, {"A+B", O_RDWR, 10, "AB23456789"},
               {"w", O_WRONLY, 0, "AB"},          {"x", O_RDONLY, 0, "0123456789"}};
  for (const auto& c : cases) {
    kxtest::TempDir dir;
    const std::string path = dir.writeFile("f", "0123456789");
    const int fd = kx_open(path.c_str(), c.mode);
    ASSERT_GE(fd, 0) << c.mode;
    EXPECT_EQ(c.access, fcntl(fd, F_GETFL) & (O_ACCMODE | O_APPEND)) << c.mode;
    EXPECT_NE(0, fcntl(fd, F_GETFD) & FD_CLOEXEC) << c.mode;
    EXPECT_EQ(c.start, kx_lseek(fd, 0, SEEK_CUR)) << c.mode;
    kx_lseek(fd, 0, SEEK_SET);
    EXPECT_EQ(c.access == O_RDONLY ? -1 : 2, kx_write(fd, "AB", 2)) << c.mode;
    kx_close(fd);
    EXPECT_EQ(c.after, fileContents(path)) << c.mode;
  }
}

TEST(KxOpen, ReadWriteNeedsAnExistingFileWhileWriteAndAppendPlusCreateItWith0755LessTheUmask) {
  kxtest::TempDir dir;
  errno = 0;
  EXPECT_EQ(-1, kx_open(dir.file("missing").c_str(), "r+"));
  EXPECT_EQ(ENOENT, errno);
  const mode_t previous = umask(022);
  for (const char* mode : {"w", "a+"}) {
    const std::string path = dir.file(mode);
    const int fd = kx_open(path.c_str(), mode);
    ASSERT_GE(fd, 0) << mode;
    ASSERT_EQ(3, kx_write(fd, "xyz", 3));
    kx_close(fd);
    struct stat64 record {};
    ASSERT_EQ(0, kx_stat(path.c_str(), &record));
    EXPECT_EQ(0755u, record.st_mode & 0777) << mode;
    EXPECT_EQ("xyz", fileContents(path));
  }
  umask(previous);
}

TEST(KxOpen, DirectoriesAreRefusedWithEISDIRUnlessAllowed) {
  kxtest::TempDir dir;
  errno = 0;
  EXPECT_EQ(-1, kx_open(dir.path().c_str(), "r"));
  EXPECT_EQ(EISDIR, errno);
  const int fd = kx_open_with_dir(dir.path().c_str(), "r", 1);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(O_RDONLY, fcntl(fd, F_GETFL) & O_ACCMODE);
  kx_close(fd);
}

TEST(KxOpen, SetStartPosSeeksToTheEndForAnAAnywhereAndToTheStartForW) {
  kxtest::TempDir dir;
  const int fd = kx_open(dir.writeFile("f", "abc").c_str(), "r");
  EXPECT_EQ(-1, kx_setStartPos(fd, "x"));
  EXPECT_EQ(3, kx_setStartPos(fd, "rA"));
  EXPECT_EQ(0, kx_setStartPos(fd, "W"));
  kx_close(fd);
}

TEST(KxMemory, CopyHandlesOverlapLikeMemmove) {
  char viaKx[] = "0123456789";
  char viaMemmove[] = "0123456789";
  kx_memcpy(viaKx + 2, viaKx, 6);
  memmove(viaMemmove + 2, viaMemmove, 6);
  EXPECT_STREQ(viaMemmove, viaKx);
}

TEST(KxHandles, SetFilePointerReportsSuccessNotThePosition) {
  kxtest::TempDir dir;
  const std::string path = dir.writeFile("f", "0123456789");
  FILE* file = kx_CreateFile(path.c_str(), "rb+");
  ASSERT_NE(nullptr, file);
  EXPECT_EQ(0, kx_SetFilePointer(file, 7, SEEK_SET));
  char byte = 0;
  EXPECT_EQ(1u, kx_ReadFile(&byte, 1, 1, file));
  EXPECT_EQ('7', byte);
  EXPECT_EQ(-1, kx_SetFilePointer(file, -100, SEEK_SET));
  EXPECT_EQ(0, kx_SetFilePointer(file, 0, SEEK_SET));
  EXPECT_EQ(1u, kx_WriteFile("Z", 1, 1, file));
  EXPECT_EQ(0, kx_CloseHandle(file));
  EXPECT_EQ("Z123456789", fileContents(path));
}

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
