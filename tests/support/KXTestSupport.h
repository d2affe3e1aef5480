#ifndef KX_TEST_SUPPORT_H
#define KX_TEST_SUPPORT_H

#include <gtest/gtest.h>

#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

#include "KXBasicGenericStream.h"
#include "KXException.h"
#include "KXLogging.h"

namespace kxtest {

// A fresh directory under $TMPDIR (or /tmp), removed with everything in it at the end of scope.
class TempDir {
 public:
  TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  ~TempDir();

  const std::string& path() const { return mPath; }
  // The path of a file named name inside the directory.
  std::string file(const std::string& name) const;
  // Writes bytes into a new file inside the directory and returns its path.
  std::string writeFile(const std::string& name, const std::string& bytes) const;

 private:
  std::string mPath;
};

struct LogLine {
  verbosity_level_t level;
  component_t component;
  std::string text;
};

// Captures every log line through the sink for the scope's lifetime; restores the silent
// defaults (no sink, verbosity 0, debug off) at the end.
class LogCapture {
 public:
  explicit LogCapture(bool debug = true, verbosity_level_t verbosity = 0);
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;
  ~LogCapture();

  const std::vector<LogLine>& lines() const { return mLines; }
  // How many captured lines at level (0: any level) contain text.
  int count(verbosity_level_t level, const std::string& text) const;
  int count(const std::string& text) const { return count(0, text); }

 private:
  static void sink(verbosity_level_t level, component_t component, const char* line, void* context);
  std::vector<LogLine> mLines;
};

// Sets the library-wide strict mode for the scope and restores the previous value.
class StrictModeScope {
 public:
  explicit StrictModeScope(KXBool strict);
  StrictModeScope(const StrictModeScope&) = delete;
  StrictModeScope& operator=(const StrictModeScope&) = delete;
  ~StrictModeScope();

 private:
  KXBool mPrevious;
};

// Ends a stream with close(), which also deletes it; a close that throws fails the test.
struct StreamCloser {
  void operator()(KXBasicGenericStream* stream) const { EXPECT_NO_THROW(stream->close()); }
};
template <class Kind>
using StreamPtr = std::unique_ptr<Kind, StreamCloser>;

// A stream of Kind made from args and initialised; owned before init(), so that a failed init()
// still ends in close(), as the owner must.
template <class Kind, class... Args>
StreamPtr<Kind> opened(Args&&... args) {
  StreamPtr<Kind> stream(new Kind(std::forward<Args>(args)...));
  stream->init();
  return stream;
}

// The medium behind a custom stream's callbacks, handed to them as the stream's context.
struct StringSource {
  std::string bytes;
  long status = 0;  // what every callback returns once it has done its work
  int closes = 0;   // how many times the close callback ran
};
// Callbacks over the StringSource in mUserData: prepare delivers from mStreamPos, the set-marker
// records the mark, the reset-marker leaves the position to the engine, close counts the call.
long stringSourcePrepare(KXStreamInfo* info);
long stringSourceSetMarker(KXStreamInfo* info);
long stringSourceResetMarker(KXStreamInfo* info);
long stringSourceClose(KXStreamInfo* info);

// Reads up to count bytes through the engine's read() and returns them.
std::string readString(KXBasicGenericStream& stream, int count);
// Writes all of bytes through the engine's write() and returns what it reported.
long writeString(KXBasicGenericStream& stream, std::string bytes);
// Everything in the file at path ("" when it cannot be read).
std::string fileContents(const std::string& path);

// All traces joined by " | ", for failure messages.
std::string traces(const KXException& exception);

// The digest md5sum prints for bytes (its first 32 characters), read from a file of a fresh
// directory.
std::string md5sumOf(const std::string& bytes);
// How many descriptors the process holds open now, for leak checks.
long openDescriptorCount();

// Runs body in a forked child process, which may change its limits, signal handlers and standard
// descriptors freely. The child's exit status is body's result (0 for success, a distinct number
// for each failed check), 99 when body threw, 128 + the signal number when a signal ended it.
int inChild(const std::function<int()>& body);
// The same without waiting, for children that must run at once; waitChild returns the status.
pid_t startChild(const std::function<int()>& body);
int waitChild(pid_t child);

// Reproducible pseudo-random bytes.
std::string randomBytes(size_t count, unsigned seed);

// The exception that call throws, which must be exactly of class Expected; otherwise the test
// fails and a placeholder with code -1 is returned.
template <class Expected, class Call>
Expected thrownBy(Call&& call) {
  try {
    call();
  } catch (const Expected& thrown) {
    EXPECT_EQ(typeid(Expected), typeid(thrown)) << "threw " << thrown.what();
    return thrown;
  }
  ADD_FAILURE() << "expected " << typeid(Expected).name() << ", nothing was thrown";
  return Expected(-1);
}

// How a call ended: "" or "KXClass (code N): message [trace | trace]".
template <class Call>
std::string outcome(Call&& call) {
  try {
    call();
  } catch (const KXException& thrown) {
    return std::string(thrown.what()) + " [" + traces(thrown) + "]";
  }
  return "";
}

}  // namespace kxtest

#endif
