#include "kxos.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>

#include "KXTestSupport.h"

namespace {

// Mode names ignore case; none truncates but "w"; "a" starts at the end without O_APPEND, so
// that a seek moves the writes; an unknown mode opens for reading at the start.
TEST(KxOpen, ModeNamesSetAccessStartAndCreationOfACloseOnExecDescriptor) {
  const struct {
    const char* mode;
    int access;
    long start, length;
  } cases[] = {{"r", O_RDONLY, 0, 10},  {"RB+", O_RDWR, 0, 10},  {"r+b", O_RDWR, 0, 10},
               {"a", O_WRONLY, 10, 10}, {"A+B", O_RDWR, 10, 10}, {"w", O_WRONLY, 0, 0},
               {"x", O_RDONLY, 0, 10}};
  kxtest::TempDir dir;
  for (const auto& c : cases) {
    const int fd = kx_open(dir.writeFile("f", "0123456789").c_str(), c.mode);
    EXPECT_EQ(c.access, fcntl(fd, F_GETFL) & (O_ACCMODE | O_APPEND)) << c.mode;
    EXPECT_NE(0, fcntl(fd, F_GETFD) & FD_CLOEXEC) << c.mode;
    EXPECT_EQ(c.start, kx_lseek(fd, 0, SEEK_CUR)) << c.mode;
    EXPECT_EQ(c.length, kx_lseek(fd, 0, SEEK_END)) << c.mode;
    kx_close(fd);
  }
}

TEST(KxOpen, OnlyWriteAndAppendCreateAFileWith0755LessTheUmaskAndDirectoriesNeedAllowing) {
  kxtest::TempDir dir;
  errno = 0;
  EXPECT_EQ(-1, kx_open(dir.file("missing").c_str(), "r+"));
  EXPECT_EQ(ENOENT, errno);
  const mode_t previous = umask(022);
  for (const char* mode : {"w", "a+"}) {
    kx_close(kx_open(dir.file(mode).c_str(), mode));
    struct stat64 record {};
    EXPECT_EQ(0, kx_stat(dir.file(mode).c_str(), &record)) << mode;
    EXPECT_EQ(0755u, record.st_mode & 0777) << mode;
  }
  umask(previous);
  EXPECT_EQ(-1, kx_open(dir.path().c_str(), "r"));
  EXPECT_EQ(EISDIR, errno);
  const int fd = kx_open_with_dir(dir.path().c_str(), "r", 1);
  EXPECT_GE(fd, 0);
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

TEST(KxHandles, SetFilePointerReportsSuccessNotThePositionAndCopiesMayOverlap) {
  kxtest::TempDir dir;
  FILE* file = kx_CreateFile(dir.writeFile("f", "0123456789").c_str(), "rb");
  EXPECT_EQ(0, kx_SetFilePointer(file, 7, SEEK_SET));
  EXPECT_EQ(-1, kx_SetFilePointer(file, -100, SEEK_SET));
  EXPECT_EQ(7, ftell(file));
  EXPECT_EQ(0, kx_CloseHandle(file));
  char text[] = "0123456789";
  kx_memcpy(text + 2, text, 6);
  EXPECT_STREQ("0101234589", text);
}

// Formats the list twice, then into a wide destination too small: "lengths and texts".
std::string formatTwiceThenTooSmall(const char* format, const wchar_t* wideFormat, ...) {
  char first[16], second[16];
  wchar_t wide[2];
  va_list arguments;
  va_start(arguments, wideFormat);
  const int firstLength = kx_vsnprintf(first, sizeof first, format, arguments);
  const int secondLength = kx_vsnprintf(second, sizeof second, format, arguments);
  va_end(arguments);
  va_start(arguments, wideFormat);
  errno = EINTR;  // whatever errno held before, a text that does not fit gives the call's -1
  const int wideLength = kx_vswprintf(wide, 2, wideFormat, arguments);
  va_end(arguments);
  return std::to_string(firstLength) + " " + first + " " + std::to_string(secondLength) + " " +
         second + " " + std::to_string(wideLength);
}

// Which lengths and bytes kx_snprintf gives is for the text fuzzer, against snprintf.
TEST(KxFormatting, ReportsTheFullLengthTruncatesSafelyAndLeavesTheArgumentListUnused) {
  EXPECT_EQ("6 key=42 6 key=42 -1", formatTwiceThenTooSmall("%s=%d", L"%s=%d", "key", 42));
}

// Decimal digits only, whatever the base; a digit not below the base or one more than 64 bits
// hold is a range error ending just after that digit.
TEST(KxWcstoll, ParsesDecimalDigitsInTheBaseAndStopsAtTheFirstOutOfRange) {
  constexpr int64_t kRange = 4611686018427387903;
  const struct {
    const wchar_t* text;
    int base;
    int64_t value;
    long end;
    int error;
  } cases[] = {{L" -42", 10, -42, 4, 0},
               {L"777", 0, 777, 3, 0},
               {L"0777", 0, 511, 4, 0},
               {L"0x17", 0, 23, 4, 0},
               {L"0x1F", 0, 1, 3, 0},
               {L"+12z", 10, 12, 3, 0},
               {L"18", 8, kRange, 2, ERANGE},
               {L"-19", 9, -kRange, 3, ERANGE},
               {L"11", 1, kRange, 1, ERANGE},
               {L"12", 36, 38, 2, 0},
               {L"9223372036854775807", 10, INT64_MAX, 19, 0},
               {L"-9223372036854775808", 10, -kRange, 20, ERANGE},
               {L"92233720368547758070", 10, kRange, 20, ERANGE},
               {L"12", 37, 0, 0, EINVAL},
               {L"12", -1, 0, 0, EINVAL}};
  for (const auto& c : cases) {
    errno = 0;
    wchar_t* end = nullptr;
    EXPECT_EQ(c.value, kx_wcstoll(c.text, &end, c.base)) << c.text << " base " << c.base;
    EXPECT_EQ(c.end, end - c.text) << c.text << " base " << c.base;
    EXPECT_EQ(c.error, errno) << c.text << " base " << c.base;
  }
  wchar_t sentinel[] = L"?";
  wchar_t* end = sentinel;
  EXPECT_EQ(0, kx_wcstoll(nullptr, &end, 10));
  EXPECT_EQ(nullptr, end);
}

// The wide search is the last occurrence; comparisons give only -1, 0 and 1.
TEST(KxStrings, CaseConversionComparisonAndSearch) {
  EXPECT_EQ(nullptr, kx_strupr(nullptr));
  char mixed[] = "aBc-1z";
  EXPECT_STREQ("ABC-1Z", kx_strupr(mixed));
  EXPECT_EQ(1, kx_memcmp("\x80", "\x01", 1));
  EXPECT_EQ(-1, kx_memcmp("abc", "abd", 3));
  const wchar_t* text = L"abca";
  EXPECT_EQ(text + 3, kx_wcschr(text, L'a'));
}

}  // namespace
