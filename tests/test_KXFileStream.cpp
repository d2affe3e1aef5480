#include "KXFileStream.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "KXException.h"
#include "KXStreams.h"
#include "KXTestSupport.h"

#if defined(__SANITIZE_ADDRESS__)
// One case asks for an impossible read buffer: the allocator must answer null, not abort.
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }
#endif

namespace {

using Flag = KXFileStream::EIoFlag;
constexpr Flag eIn = KXFileStream::eIn, eOut = KXFileStream::eOut, eInOut = KXFileStream::eInOut;
constexpr Flag eStdout = KXFileStream::eStdout, eStderr = KXFileStream::eStderr;
constexpr int64_t kUnchecked = INT64_MIN;

// Reaches the stream's own state, which the failure cases break on purpose.
class Probe : public KXFileStream {
 public:
  using KXFileStream::KXFileStream;
  KXFileInfo& file() { return mFileInfo; }
  Probe& rewire(Flag mode, const void* record) {
    mIoFlag = mode;
    mStreamInfo.mUserData = record;
    return *this;
  }
};

using StreamPtr = kxtest::StreamPtr<Probe>;
using kxtest::fileContents;
using kxtest::readString;
using kxtest::writeString;

struct Opening {
  const char* path;  // inside the test directory; null and "" as they stand
  const char* perm;
  Flag flag;
  long buffSize;
  KXBool reader;
  bool partial;
  long start, length, ceiling;
};

Opening at(const char* path, const char* perm, Flag flag, long size = 16384, KXBool reader = 0) {
  return {path, perm, flag, size, reader, false, 0, -1, -1};
}

// From start, length bytes (-1: to the end), in a file no longer than ceiling (-1: no limit).
Opening range(const char* path, const char* perm, Flag flag, long start, long length, long max) {
  return {path, perm, flag, 16384, 0, true, start, length, max};
}

// Owned before init(), so that a failed init() is still closed, as the owner must.
StreamPtr open(const Opening& how, const std::string& dir = "", bool init = true) {
  const bool inDir = how.path != nullptr && *how.path != '\0' && *how.path != '/';
  const std::string path = inDir ? dir + "/" + how.path : how.path != nullptr ? how.path : "";
  const char* given = how.path != nullptr ? path.c_str() : nullptr;
  StreamPtr stream(how.partial ? new Probe(given, how.perm, how.buffSize, how.flag, how.start,
                                           how.length, how.ceiling)
                               : new Probe(given, how.perm, how.buffSize, how.flag, how.reader));
  if (init) {
    stream->init();
  }
  return stream;
}

class TruncationScope {
 public:
  explicit TruncationScope(KXBool allow) { KXStreams::setAllowFileTruncation(allow); }
  ~TruncationScope() { KXStreams::setAllowFileTruncation(1); }
};

// The first 100, 1000 and 40000 of the same random bytes, an empty file, a directory, a FIFO.
struct Files {
  kxtest::TempDir dir;
  std::string bytes = kxtest::randomBytes(40000, 1);
  Files() {
    for (size_t size : {0, 100, 1000, 40000}) {
      dir.writeFile("f" + std::to_string(size), bytes.substr(0, size));
    }
    mkdir(dir.file("sub").c_str(), 0700);
    mkfifo(dir.file("fifo").c_str(), 0600);
  }
};

// Runs body over fresh files and checks that it left no descriptor open.
void withFiles(const std::function<void(Files&)>& body) {
  Files files;
  const long descriptors = kxtest::openDescriptorCount();
  body(files);
  EXPECT_EQ(descriptors, kxtest::openDescriptorCount());
}

struct FailureCase {
  Opening how;
  std::function<void(Probe&)> act;  // on the opened stream; null: init() itself fails
  const char* className;
  int code;
  std::string message;                    // "%s" stands for the path
  const char* traces = nullptr;           // all of them, joined by " | "; null: not checked
  int64_t transferLenAfter = kUnchecked;  // with the position left at 0
};

// call must throw exactly as expected (the path stands in the expected texts), with the system's
// reason when the code is its error number.
void expectFailure(const std::function<void()>& call, const FailureCase& expected,
                   const std::string& path) {
  const auto withPath = [&path](std::string text) {
    for (size_t at = text.find("%s"); at != std::string::npos; at = text.find("%s", at)) {
      text.replace(at, 2, path);
    }
    return text;
  };
  try {
    call();
    ADD_FAILURE() << "nothing was thrown";
  } catch (const KXException& thrown) {
    const std::string said = thrown.GetMessage() + kxtest::traces(thrown);
    EXPECT_STREQ(expected.className, thrown.GetClassName()) << said;
    EXPECT_EQ(expected.code, thrown.GetCode()) << said;
    EXPECT_EQ(withPath(expected.message), thrown.GetMessage());
    EXPECT_TRUE(expected.code <= 0 || std::strstr(thrown.what(), strerror(expected.code))) << said;
    if (expected.traces != nullptr) {
      EXPECT_EQ(withPath(expected.traces), kxtest::traces(thrown));
    }
  }
}

// Puts another descriptor in the stream's place, to make its system calls fail.
Probe& withDescriptor(Probe& stream, int replacement) {
  EXPECT_GE(dup2(replacement, stream.file().mFileDesc), 0);
  close(replacement);
  return stream;
}

// Puts a pipe's writing end in the stream's place and hands out the reading end.
Probe& withPipe(Probe& stream, int& readEnd) {
  int ends[2] = {-1, -1};
  EXPECT_EQ(0, pipe(ends));
  readEnd = ends[0];
  return withDescriptor(stream, ends[1]);
}

// An output transfer of count bytes from no buffer at all.
void completeByHand(Probe& stream, int64_t count) {
  stream.prepareBuffer()->mTransferLen = count;
  stream.complete();
}

constexpr const char* kParam = "KXParameterException";
constexpr const char* kFileSystem = "KXFileSystemException";
constexpr const char* kStream = "KXStreamException";
constexpr const char* kInternal = "KXSDKInternalException";
const std::string kPerm = "File open permission validation error. Perm=";
const std::string kOffset = "invalid mStreamPos offset (";

TEST(KXFileStreamFailures, CarryTheirClassCodeAndTextAndLeakNothing) {
  int readEnd = -1;
  const Opening in = at("f100", "r", eIn), out = at("f100", "r+", eOut);
  const Opening console = at(nullptr, nullptr, eStdout);
  const FailureCase cases[] = {
      {range(nullptr, nullptr, eStdout, -1, -1, -1), nullptr, kParam, 0, "streamPos < 0"},
      {at("f100", "r", eIn, 0), nullptr, kParam, 0, "pBuffSize < 0"},
      {at(nullptr, "r", eIn, 1), nullptr, kParam, 0, "",
       "KXFileStream.ValidatePath(NULL) | KXFileStream.KXFileStream (NULL,r,16384)"},
      {at("", "r", eIn), nullptr, kParam, 0, "File path validation error. Perm=, Mode=0",
       "KXFileStream.ValidatePath() | KXFileStream.KXFileStream (,r,16384)"},
      {at("f100", nullptr, eOut), nullptr, kParam, 0, "",
       "KXFileStream.ValidatePerm(NULL) | KXFileStream.KXFileStream (%s,NULL,16384)"},
      {at("f100", "", eIn), nullptr, kParam, 0, "no permissions specified"},
      {at("f100", "w", eIn), nullptr, kParam, 0, kPerm + "w, Mode=0"},
      {at("f100", "rb", eOut), nullptr, kParam, 0, kPerm + "rb, Mode=1"},
      {at("f100", "x", eIn, 16384, 1), nullptr, kParam, 0, kPerm + "x, Mode=2"},
      {at("f100", "r", static_cast<Flag>(7)), nullptr, kParam, 0, "invalid mIoFlag (7)"},
      {at("f100", "r", eIn, 1L << 62), nullptr, "KXOutOfMemException", 12, ""},
      {at("nil", "r", eIn), nullptr, kFileSystem, ENOENT, "failed to open input file (%s)"},
      {at("sub", "r", eIn), nullptr, kFileSystem, EISDIR, "failed to open input file (%s)"},
      {at("sub/nil/x", "w", eOut), nullptr, kFileSystem, ENOENT, "failed to open output file (%s)"},
      {range("f100", "r+", eOut, 0, -5, 500), nullptr, kParam, 0, "streamLen < -1"},
      {range("f100", "r+", eOut, 10, 100, 50), nullptr, kParam, 0,
       "streamLen exceeds requested max size"},
      {range("f100", "r", eIn, 101, -1, -1), nullptr, kParam, 0, kOffset + "101)"},
      {range("f0", "r", eIn, 5, -1, -1), nullptr, kParam, 0, "invalid mStreamLen"},
      {range("f100", "r+", eOut, 10, -1, 10), nullptr, kParam, 0, kOffset + "10)"},
      {range("f100", "r", eIn, 10, 101, -1), nullptr, kParam, 0, "invalid mStreamLen"},
      {range("f100", "r", eIn, 0, -5, -1), nullptr, kParam, 0, "invalid mStreamLen"},
      {range("f1000", "r+", eOut, 0, -1, 500), nullptr, kParam, 0,
       "Stream size exceeds requested maximum (inMaxFileLength = 500)."},
      {at("fifo", "r+", eOut), nullptr, kFileSystem, ESPIPE, "lseek failed (offset 0)",
       "KXFileStream.KXFileStream (%s,r+,16384)"},
      {at("nil", "r+", eInOut), nullptr, kFileSystem, ENOENT, "failed to open input file (%s)",
       "KXFileStream.KXFileStream (%s,r+,16384) | KXFileStream.KXFileStream (%s,r+,16384)"},
      {in, [](Probe& s) { readString(s.rewire(eIn, nullptr), 1); }, kInternal, 0,
       "vFileInfo != NULL"},
      {out, [](Probe& s) { writeString(s.rewire(eOut, nullptr), "a"); }, kInternal, 0,
       "vFileInfo != NULL"},
      {in, [](Probe& s) { readString(withDescriptor(s, ::open("/dev/null", O_WRONLY)), 1); },
       kStream, EBADF, ""},
      {out, [](Probe& s) { completeByHand(s, -3); }, kStream, KX_PARAM_ERR, "", nullptr, -3},
      {out, [](Probe& s) { completeByHand(s, 5); }, kStream, KX_PARAM_ERR, "", nullptr, -1},
      {out, [](Probe& s) { writeString(withDescriptor(s, ::open("/dev/full", O_WRONLY)), "a"); },
       kStream, KX_FILESYSTEM_ERR, "No space left on device (errno 28)", nullptr, -1},
      {out, [&](Probe& s) { writeString(withPipe(s, readEnd), "a"); }, kFileSystem, 0, "",
       "KXBasicGenericStream.complete"},
      {in, [&](Probe& s) { withPipe(s, readEnd).SetMark(); }, kStream, ESPIPE, ""},
      {out, [&](Probe& s) { withPipe(s, readEnd).resetMark(); }, kStream, ESPIPE, ""},
      {in, [](Probe& s) { s.rewire(static_cast<Flag>(7), &s.file()).resetMark(); }, kInternal, 0,
       "false"},
      {in, [](Probe& s) { writeString(s, "a"); }, kFileSystem, KX_FILESYSTEM_ERR, "", ""},
      {console, [](Probe& s) { readString(s, 1); }, "KXNotSupportedException", 0, ""},
      {console, [](Probe& s) { s.getFileSize("/nil", "r"); }, kFileSystem, ENOENT,
       "kx_stat(/nil,-) failed"},
  };
  for (const FailureCase& row : cases) {
    SCOPED_TRACE(&row - cases);
    withFiles([&](Files& files) {
      const std::string path =
          row.how.path != nullptr && *row.how.path != '\0' ? files.dir.file(row.how.path) : "";
      StreamPtr stream = open(row.how, files.dir.path(), row.act != nullptr);
      expectFailure([&] { row.act ? row.act(*stream) : stream->init(); }, row, path);
      if (row.transferLenAfter != kUnchecked) {
        EXPECT_EQ(row.transferLenAfter, stream->GetInfo()->mTransferLen);
        EXPECT_EQ(0, stream->GetInfo()->mStreamPos);
      }
      // Put back what the case broke, so that the stream can close.
      stream->rewire(row.how.flag, row.how.flag == eStdout ? nullptr : &stream->file());
      close(readEnd);
      readEnd = -1;
    });
  }
}

TEST(KXFileStreamInit, RoundsBufferSizesUpToWhole16KiB) {
  const long cases[][2] = {{1, 16384}, {16384, 16384}, {16385, 32768}, {-1, 16384}, {-20000, 0}};
  for (const auto& row : cases) {
    StreamPtr stream = open(at(nullptr, nullptr, eOut, row[0]), "", false);
    stream->OptimizeBufferSize();
    EXPECT_EQ(row[1], stream->file().mBuffSize) << row[0];
  }
}

struct Step {
  int64_t ask, delivered;
  KXBool atEOF;
  long moveTo = -1;  // where code outside the stream puts the position first
};

// Drives the transfers by hand, as consumers of the engine do, to see each prepare's count.
TEST(KXFileStreamRead, DeliversExactBytesCappedByBufferAndEnd) {
  const struct {
    Opening how;
    size_t from;
    std::vector<Step> steps;
    KXBool strict = 1;  // the byte count cannot follow moves made behind the stream's back
  } cases[] = {
      {at("f100", "r", eIn), 0, {{10, 10, 0}, {1000, 90, 1}, {1, 0, 1}}},
      {at("f100", "r", eIn), 0, {{60, 60, 0}, {40, 40, 1}}},
      {at("f100", "r", eIn), 0, {{10, 10, 0}, {10, 10, 0, 50}, {10, 10, 0, 5}}, 0},
      {at("f40000", "RB", eIn, 1),
       0,
       {{0, 0, 1}, {10, 10, 0}, {16383, 16383, 0}, {50000, 16384, 0}, {16385, 7223, 1}}},
      {range("f100", "r", eIn, 10, 20, -1), 10, {{50000, 20, 1}, {1, 0, 1}}},
      {range("f100", "r", eIn, 10, 20, -1), 10, {{5, 5, 0}, {5, 5, 0}, {50000, 10, 1}}},
      {range("f1000", "r", eIn, 100, 300, -1), 100, {{299, 299, 0}, {1, 1, 1}, {1, 0, 1}}},
      {range("f100", "r", eIn, 100, -1, -1), 100, {{1, 0, 1}}},
      {at("f0", "r", eIn), 0, {{1, 0, 1}}},
  };
  for (const auto& scenario : cases) {
    withFiles([&](Files& files) {
      kxtest::StrictModeScope strict(scenario.strict);
      StreamPtr stream = open(scenario.how, files.dir.path());
      size_t offset = scenario.from;
      for (const Step& step : scenario.steps) {
        if (step.moveTo >= 0) {
          offset = scenario.from + static_cast<size_t>(step.moveTo);
          stream->GetInfo()->mStreamPos = step.moveTo;
        }
        stream->GetInfo()->mTransferLen = step.ask;
        const KXStreamInfo* info = stream->prepareBuffer();
        ASSERT_EQ(step.delivered, info->mTransferLen) << "asking " << step.ask;
        EXPECT_EQ(step.atEOF, info->mAtEOF);
        EXPECT_EQ(files.bytes.substr(offset, static_cast<size_t>(step.delivered)),
                  std::string(info->mBuffer, static_cast<size_t>(info->mTransferLen)));
        offset += static_cast<size_t>(step.delivered);
        EXPECT_EQ(static_cast<long>(offset - scenario.from), stream->GetStreamPos());
        stream->complete();
      }
    });
  }
}

TEST(KXFileStreamWrite, StartsAndLandsWhereTheOpeningSays) {
  const struct {
    Opening how;
    KXBool readFlag;   // after init()
    long start;        // position after init()
    size_t offset;     // where the written bytes land in the file
    long end, length;  // position and length after the write
    bool keepsRest;    // the file keeps what followed the written bytes
  } cases[] = {
      {at("f100", "w", eOut), 0, 0, 0, 10, 10, false},
      {at("f100", "a", eOut), 0, 100, 100, 110, 110, false},
      {at("f100", "r+", eOut), 0, 0, 0, 10, 10, false},
      {range("f100", "r+", eOut, 10, 20, -1), 0, 0, 10, 10, 20, true},
      {at("f100", "r+", eInOut), 1, 0, 0, 10, 10, false},
      {at("f100", "R+", eInOut), 0, 0, 0, 10, 10, false},
      {at("f100", "w+", eInOut), 0, 0, 0, 10, 10, false},
      {at("f100", "a+", eInOut), 0, 100, 100, 110, 110, false},
  };
  for (const auto& row : cases) {
    withFiles([&](Files& files) {
      SCOPED_TRACE(std::string(row.how.perm) + " mode " + std::to_string(row.how.flag));
      kxtest::StrictModeScope strict(1);
      const std::string expected = files.bytes.substr(0, row.offset) + "0123456789" +
                                   (row.keepsRest ? files.bytes.substr(row.offset + 10, 80) : "");
      StreamPtr stream = open(row.how, files.dir.path());
      EXPECT_EQ(row.readFlag, stream->GetInfo()->mReadFlag);
      EXPECT_EQ(row.start, stream->GetStreamPos());
      EXPECT_EQ(10, writeString(*stream, "0123456789"));
      EXPECT_EQ(row.end, stream->GetStreamPos());
      EXPECT_EQ(row.length, stream->GetLength());
      if (row.how.flag == eInOut) {  // reads back from the start through the reading half
        stream->reset();
        EXPECT_EQ(expected.substr(0, 10), readString(*stream, 10));
      }
      stream.reset();
      EXPECT_EQ(expected, fileContents(files.dir.file("f100")));
    });
  }
}

// A size of 0 (an empty file, a device) is not compared with the range start: a range with a
// length opens there. Only a length that would compute negative is refused.
TEST(KXFileStreamRange, OpensAtAnyStartOverAFileWhoseSizeReadsZero) {
  withFiles([](Files& files) {
    StreamPtr out = open(range("f0", "r+", eOut, 100, 50, -1), files.dir.path());
    EXPECT_EQ(10, writeString(*out, "0123456789"));
    EXPECT_EQ(50, out->GetLength());
    out.reset();
    EXPECT_EQ(std::string(100, '\0') + "0123456789", fileContents(files.dir.file("f0")));
    StreamPtr device = open(range("/dev/null", "r", eIn, 4096, 0, -1));
    EXPECT_EQ("", readString(*device, 10));
    EXPECT_EQ(1, device->isAtEOF());
  });
}

// Both once left a descriptor and memory behind: the appending reading half counted the old data
// as read, so its strict close failed; a second init() opened the file and allocated again.
TEST(KXFileStreamLeaks, AppendingInOutCloseAndSecondInitLeakNothing) {
  withFiles(
      [](Files& files) { writeString(*open(at("f100", "a+", eInOut), files.dir.path()), "x"); });
  withFiles([](Files& files) { open(at("f100", "r", eIn), files.dir.path())->init(); });
}

// From any position, whatever the buffer holds, in the whole file and in a byte range.
TEST(KXFileStreamRead, ReturnsToAMarkAndRereadsTheSameBytes) {
  for (const Opening& how :
       {at("f40000", "rb", eIn, 1), range("f40000", "r", eIn, 500, 30000, -1)}) {
    withFiles([&](Files& files) {
      const std::string bytes =
          files.bytes.substr(static_cast<size_t>(how.start), how.partial ? 30000 : 40000);
      StreamPtr stream = open(how, files.dir.path());
      EXPECT_EQ(bytes.substr(0, 100), readString(*stream, 100));
      stream->SetMark();
      EXPECT_EQ(bytes.substr(100, 20000), readString(*stream, 20000));
      stream->resetMark();
      EXPECT_EQ(100, stream->GetStreamPos());
      EXPECT_EQ(bytes.substr(100, 100), readString(*stream, 100));
      stream->reset();
      EXPECT_EQ(bytes, readString(*stream, 40000));
    });
  }
}

TEST(KXFileStreamWrite, TruncationSettingDecidesWhetherFilesAreCut) {
  for (KXBool allow : {1, 0}) {
    TruncationScope truncation(allow);
    Files files;
    StreamPtr stream = open(at("new", "w", eOut), files.dir.path());
    writeString(*stream, files.bytes.substr(0, 100));
    stream->SetMark(40);
    writeString(*stream, "0123456789");
    EXPECT_EQ(allow ? 50 : 110, stream->GetLength());
    EXPECT_EQ(files.bytes.substr(0, 40) + "0123456789" + files.bytes.substr(50, allow ? 0 : 50),
              fileContents(files.dir.file("new")));
    // A ceiling below the file's size cuts it at init().
    open(range("f1000", "r+", eOut, 0, 100, 500), files.dir.path());
    EXPECT_EQ(files.bytes.substr(0, allow ? 500 : 1000), fileContents(files.dir.file("f1000")));
  }
}

TEST(KXFileStreamStandard, WritesEveryByteUnchangedOrFailsWhenOutputFails) {
  // Nothing is held back: even one byte fails at once, with the system's error number.
  for (Flag flag : {eStdout, eStderr}) {
    EXPECT_EQ(0, kxtest::inChild([flag] {
                dup2(::open("/dev/full", O_WRONLY), flag == eStdout ? 1 : 2);
                const std::string failure = kxtest::outcome(
                    [flag] { writeString(*open(at(nullptr, nullptr, flag)), "x"); });
                return failure ==
                               "KXStreamException (code 28, No space left on device) "
                               "[KXBasicGenericStream.complete]"
                           ? 0
                           : 1;
              }))
        << flag;
  }
  // Driven by hand without a buffer, a transfer writes nothing.
  EXPECT_EQ(0, kxtest::inChild([] {
              const kxtest::StrictModeScope lenient(0);
              StreamPtr stream = open(at(nullptr, nullptr, eStdout, 0));
              stream->prepareBuffer()->mTransferLen = 5;
              stream->complete();
              return static_cast<int>(stream->GetStreamPos());
            }));
}

void ignoreSignal(int /*signal*/) {}

// A signal every millisecond, without SA_RESTART, interrupts the writes while a slow reader
// drains the pipe: every write, larger than the 64 KiB pieces the stream sends, still reports
// all its bytes, NUL bytes and percent signs included, and the reader gets them all.
TEST(KXFileStreamStandard, WritesEveryByteThroughSignalsOverASlowPipe) {
  const std::string payload =
      std::string("a%db\0c%s\n", 9) + kxtest::randomBytes(size_t{64} * 16384, 9);
  const size_t piece = 200000;
  for (Flag flag : {eStdout, eStderr}) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(0, pipe(ends));
    const pid_t writer = kxtest::startChild([&] {
      dup2(ends[1], flag == eStdout ? 1 : 2);
      ::close(ends[0]);
      ::close(ends[1]);
      struct sigaction interrupting {};
      interrupting.sa_handler = ignoreSignal;
      sigaction(SIGALRM, &interrupting, nullptr);
      const itimerval everyMillisecond{{0, 1000}, {0, 1000}};
      setitimer(ITIMER_REAL, &everyMillisecond, nullptr);
      StreamPtr stream = open(at(nullptr, nullptr, flag, flag == eStdout ? 0 : -1));
      for (size_t offset = 0; offset < payload.size(); offset += piece) {
        const std::string bytes = payload.substr(offset, piece);
        if (writeString(*stream, bytes) != static_cast<long>(bytes.size()) ||
            stream->GetStreamPos() != static_cast<long>(offset + bytes.size())) {
          return 1;
        }
      }
      return 0;
    });
    ::close(ends[1]);
    std::string received;
    char chunk[4096];
    for (ssize_t got = 0; (got = read(ends[0], chunk, sizeof chunk)) > 0; usleep(100)) {
      received.append(chunk, static_cast<size_t>(got));
    }
    ::close(ends[0]);
    EXPECT_EQ(0, kxtest::waitChild(writer)) << flag;
    EXPECT_EQ(payload.size(), received.size()) << flag;
    EXPECT_TRUE(received == payload) << flag;
  }
}

}  // namespace
