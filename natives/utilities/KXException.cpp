#include "KXException.h"

#include <cstdarg>
#include <cstring>
#include <string>

#include "KXFormatText.h"
#include "KXLogging.h"

namespace {

constexpr verbosity_level_t kErrorLevel = 1;
constexpr component_t kLibraryComponent = 1024;

// Positive codes are the system's error numbers: name the reason along with the number.
std::string describeCode(int code) {
  std::string text = std::to_string(code);
  if (code > 0) {
    char reason[128];
    // GNU strerror_r: thread-safe, and returns the text rather than always filling the buffer.
    text += ", ";
    text += strerror_r(code, reason, sizeof reason);
  }
  return text;
}

// "KXStreamException (code -10006): message" or "KXFileSystemException (code 2, No such file or
// directory): message", the form shared by what() and log().
std::string summarize(const KXException& exception) {
  std::string text = exception.GetClassName();
  text += " (code ";
  text += describeCode(exception.GetCode());
  text += ")";
  if (*exception.GetMessage() != '\0') {
    text += ": ";
    text += exception.GetMessage();
  }
  return text;
}

std::string joinTraces(const KXException& exception) {
  std::string joined;
  for (int index = 0; index < exception.GetTraceCount(); ++index) {
    joined += index > 0 ? " | " : "";
    joined += exception.GetTrace(index);
  }
  return joined;
}

}  // namespace

KXException::KXException(int code) : mCode(code) {}

// mWhat is not copied: it is composed again on demand from the copied state.
KXException::KXException(const KXException& other)
    : std::exception(other), mCode(other.mCode), mMessage(other.mMessage), mTraces(other.mTraces) {}

KXException& KXException::operator=(const KXException& other) {
  if (this != &other) {
    std::exception::operator=(other);
    mCode = other.mCode;
    mMessage = other.mMessage;
    mTraces = other.mTraces;
    mWhat.clear();
  }
  return *this;
}

KXException::~KXException() = default;

int KXException::GetCode() const { return mCode; }

const char* KXException::GetMessage() const { return mMessage.c_str(); }

int KXException::GetTraceCount() const { return static_cast<int>(mTraces.size()); }

// An index out of range gives "" rather than a pointer the caller could not print.
const char* KXException::GetTrace(int index) const {
  if (index < 0 || static_cast<size_t>(index) >= mTraces.size()) {
    return "";
  }
  return mTraces[static_cast<size_t>(index)].c_str();
}

const char* KXException::what() const noexcept {
  try {
    if (mWhat.empty()) {
      mWhat = summarize(*this);
    }
    return mWhat.c_str();
  } catch (...) {
    // Out of memory while composing: the class name still says what went wrong.
    return GetClassName();
  }
}

void KXException::SetMessage(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  mMessage = kxutils::formatText(format, arguments);
  va_end(arguments);
  mWhat.clear();
}

void KXException::addTrace(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  mTraces.push_back(kxutils::formatText(format, arguments));
  va_end(arguments);
}

void KXException::log(const char* file, long line) {
  std::string text = summarize(*this);
  if (!mTraces.empty()) {
    text += "; traces: " + joinTraces(*this);
  }
  text += "; at ";
  text += file != nullptr ? file : "(unknown)";
  text += ":" + std::to_string(line);
  // The text is an argument, never the format: messages and traces may hold percent signs.
  KXLogging::Log(kErrorLevel, kLibraryComponent, "%s", text.c_str());
}

const char* KXException::GetClassName() const { return "KXException"; }

void KXSDKInternalException::Throw(const char* file, long line, const char* condition) {
  KXSDKInternalException exception(0);
  exception.SetMessage("%s", condition != nullptr ? condition : "");
  exception.log(file, line);
  throw exception;  // NOLINT(misc-throw-by-value-catch-by-reference): built in steps first
}
