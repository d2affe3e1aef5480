// Text fuzzer: kx_wcstoll against a reference written from its documented algorithm (decimal
// digits only, the 0 and 0x prefixes for base 0, the range-error result 0x3FFFFFFFFFFFFFFF),
// kx_atoll against sscanf("%lld"), and kx_snprintf against the C library's snprintf with
// destinations of every size, allocated exactly so that the sanitizer sees any overrun.

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <cwctype>
#include <memory>
#include <string>

#include "FuzzSupport.h"
#include "kxos.h"

namespace {

constexpr int64_t kRangeErrorValue = 0x3FFFFFFFFFFFFFFFLL;

struct Parsed {
  int64_t value;
  size_t end;  // offset of the end pointer from the text
  int error;   // the errno the call leaves, 0 when it sets none
};

// The documented algorithm, step by step.
Parsed referenceWcstoll(const std::wstring& text, int base) {
  if (base < 0 || base > 36) return {0, 0, EINVAL};
  size_t i = 0;
  while (i < text.size() && iswspace(static_cast<wint_t>(text[i]))) ++i;
  int64_t sign = 1;
  if (i < text.size() && (text[i] == L'-' || text[i] == L'+')) {
    if (text[i] == L'-') sign = -1;
    ++i;
  }
  if (base == 0) {
    base = 10;
    if (i < text.size() && text[i] == L'0') {
      base = 8;
      if (i + 1 < text.size() && text[i + 1] == L'x') {
        base = 16;
        i += 2;
      }
    }
  }
  uint64_t value = 0;
  for (; i < text.size() && text[i] >= L'0' && text[i] <= L'9'; ++i) {
    const auto digit = static_cast<uint64_t>(text[i] - L'0');
    const auto radix = static_cast<uint64_t>(base);
    if (digit >= radix || value > (INT64_MAX - digit) / radix) {
      return {kRangeErrorValue * sign, i + 1, ERANGE};
    }
    value = value * radix + digit;
  }
  return {static_cast<int64_t>(value) * sign, i, 0};
}

// Wide text from the input, drawn mostly from the characters that matter to the parser.
std::wstring wideText(kxfuzz::Reader& in) {
  static const wchar_t kAlphabet[] = L"0123456789 \t\n+-xXabfzAF9\u00a0\u2003\u0660";
  const size_t length = in.byte() % 48;
  std::wstring text;
  for (size_t i = 0; i < length; ++i) {
    const uint8_t pick = in.byte();
    text.push_back(pick < 200 ? kAlphabet[pick % (sizeof kAlphabet / sizeof kAlphabet[0] - 1)]
                              : static_cast<wchar_t>(pick));
  }
  return text;
}

void checkWcstoll(kxfuzz::Reader& in) {
  const uint8_t choice = in.byte();
  const int base = choice < 200 ? choice % 37 : static_cast<int>(static_cast<int8_t>(choice)) + 100;
  const std::wstring text = wideText(in);
  const Parsed expected = referenceWcstoll(text, base);
  wchar_t* end = nullptr;
  errno = 0;
  const int64_t value = kx_wcstoll(text.c_str(), &end, base);
  const int error = errno;
  const std::string detail = "base " + std::to_string(base) + " value " + std::to_string(value) +
                             " expected " + std::to_string(expected.value);
  KX_FUZZ_CHECK(value == expected.value, detail);
  KX_FUZZ_CHECK(end == text.c_str() + expected.end,
                detail + " end " + std::to_string(end - text.c_str()) + " expected " +
                    std::to_string(expected.end));
  KX_FUZZ_CHECK(error == expected.error, detail + " errno " + std::to_string(error));
  // Without an end pointer the result is the same.
  KX_FUZZ_CHECK(kx_wcstoll(text.c_str(), nullptr, base) == expected.value, detail);
}

void checkAtoll(kxfuzz::Reader& in) {
  const std::string text = in.rest();
  long long expected = 0;
  if (sscanf(text.c_str(), "%lld", &expected) != 1) expected = 0;
  KX_FUZZ_CHECK(kx_atoll(text.c_str()) == expected, text);
}

// Formats with kx_snprintf and snprintf alike and compares the needed length and the bytes.
template <class... Args>
void compareFormats(size_t size, bool nullDestination, const char* format, Args... args) {
  const int needed = snprintf(nullptr, 0, format, args...);
  std::string full(static_cast<size_t>(needed) + 1, '\0');
  snprintf(&full[0], full.size(), format, args...);
  full.resize(static_cast<size_t>(needed));
  if (nullDestination) {
    KX_FUZZ_CHECK(kx_snprintf(nullptr, 0, format, args...) == needed, format);
    return;
  }
  std::unique_ptr<char[]> destination(new char[size]);
  const int result = kx_snprintf(destination.get(), size, format, args...);
  KX_FUZZ_CHECK(result == needed, std::string(format) + " result " + std::to_string(result) +
                                      " needed " + std::to_string(needed));
  const size_t kept = std::min(full.size(), size - 1);
  KX_FUZZ_CHECK(memcmp(destination.get(), full.data(), kept) == 0 && destination[kept] == '\0',
                format);
}

void checkSnprintf(kxfuzz::Reader& in) {
  const uint8_t sizeChoice = in.byte();
  const bool nullDestination = sizeChoice == 0;
  const size_t size =
      sizeChoice == 0 ? 0 : (sizeChoice < 128 ? sizeChoice % 16 + 1 : sizeChoice * 4u);
  const uint8_t which = in.byte();
  const int64_t number = static_cast<int64_t>(in.u64());
  const int width = in.byte() % 40;
  const std::string text = in.rest();
  switch (which % 7) {
    case 0:
      compareFormats(size, nullDestination, "%s", text.c_str());
      break;
    case 1:
      compareFormats(size, nullDestination, "%lld|%x", static_cast<long long>(number),
                     static_cast<unsigned>(number));
      break;
    case 2:
      compareFormats(size, nullDestination, "%*s|%-*d", width, text.c_str(), width,
                     static_cast<int>(number));
      break;
    case 3:
      compareFormats(size, nullDestination, "%.*s%%%c", width, text.c_str(),
                     static_cast<int>('A' + (number & 15)));
      break;
    case 4:
      compareFormats(size, nullDestination, "%g %e", static_cast<double>(number) / 7.0,
                     static_cast<double>(width));
      break;
    case 5:
      compareFormats(size, nullDestination, "[%s][%s]", text.c_str(), text.c_str());
      break;
    default:
      compareFormats(size, nullDestination, "%020llu %p", static_cast<unsigned long long>(number),
                     static_cast<void*>(nullptr));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kxfuzz::Reader in(data, size);
  switch (in.byte() % 3) {
    case 0:
      checkWcstoll(in);
      break;
    case 1:
      checkAtoll(in);
      break;
    default:
      checkSnprintf(in);
  }
  return 0;
}
