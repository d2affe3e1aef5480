#include "KXFileStream.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

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
using kxtest::fileContents;
using kxtest::readString;
using kxtest::writeString;

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

struct Opening {
  const char* path;  // relative to the test directory, the working one
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
StreamPtr open(const Opening& how, bool init = true) {
  StreamPtr stream(how.partial ? new Probe(how.path, how.perm, how.buffSize, how.flag, how.start,
                                           how.length, how.ceiling)
                               : new Probe(how.path, how.perm, how.buffSize, how.flag, how.reader));
  if (init) {
    stream->init();
  }
  return stream;
}

// A fresh working directory, in which nothing may be left open at the end: the first 100, 1000
// and 40000 of the same random bytes, an empty file, a directory, a FIFO.
struct Files {
  kxtest::TempDir dir;
  std::string bytes = kxtest::randomBytes(40000, 1);
  long descriptors = kxtest::openDescriptorCount();
  Files() {
    EXPECT_EQ(0, chdir(dir.path().c_str()));
    for (size_t size : {0, 100, 1000, 40000}) {
      dir.writeFile("f" + std::to_string(size), bytes.substr(0, size));
    }
    mkdir("sub", 0700);
    mkfifo("fifo", 0600);
  }
  ~Files() {
    EXPECT_EQ(descriptors, kxtest::openDescriptorCount());
    EXPECT_EQ(0, chdir("/"));
  }
};

// Puts another descriptor in the stream's place, to make its system calls fail.
Probe& withDescriptor(Probe& stream, const char* path, int flags) {
  const int replacement = ::open(path, flags);
  EXPECT_GE(dup2(replacement, stream.file().mFileDesc), 0);
  close(replacement);
  return stream;
}

// An output transfer of count bytes from no buffer at all.
void completeByHand(Probe& stream, int64_t count) {
  stream.prepareBuffer()->mTransferLen = count;
  stream.complete();
}

const std::string kParam = "KXParameterException (code 0)";
const std::string kPerm = kParam + ": File open permission validation error. Perm=";
const std::string kOffset = kParam + ": invalid mStreamPos offset (";
const std::string kLength = kParam + ": invalid mStreamLen";
const std::string kNoFile =
    "KXFileSystemException (code 2, No such file or directory): failed to open ";
const std::string kInternal = "KXSDKInternalException (code 0): ";
const std::string kNoSeek = "KXStreamException (code 29, Illegal seek)";

// Each failure as what() says it, and with the traces when a row ends with them ("... [a | b]").
TEST(KXFileStreamFailures, CarryTheirClassCodeAndTextAndLeakNothing) {
  const Opening in = at("f100", "r", eIn), out = at("f100", "r+", eOut);
  const Opening console = at(nullptr, nullptr, eStdout);
  const struct {
    Opening how;
    std::string expected;
    std::function<void(Probe&)> act = nullptr;  // on the opened stream; null: init() fails
    int64_t transferLenAfter = 0;               // nonzero: a failed transfer, which moves nothing
  } cases[] = {
      {range(nullptr, nullptr, eStdout, -1, -1, -1), kParam + ": streamPos < 0"},
      {at("f100", "r", eIn, 0), kParam + ": pBuffSize < 0"},
      {at(nullptr, "r", eIn, 1),
       kParam + " [KXFileStream.ValidatePath(NULL) | KXFileStream.KXFileStream (NULL,r,16384)]"},
      {at("", "r", eIn),
       kParam + ": File path validation error. Perm=, Mode=0 "
                "[KXFileStream.ValidatePath() | KXFileStream.KXFileStream (,r,16384)]"},
      {at("f100", nullptr, eOut),
       kParam + " [KXFileStream.ValidatePerm(NULL) | KXFileStream.KXFileStream (f100,NULL,16384)]"},
      {at("f100", "", eIn), kParam + ": no permissions specified"},
      {at("", "r+", eInOut), kParam + ": File path validation error. Perm=, Mode=2"},
      {at("f100", "w", eIn), kPerm + "w, Mode=0"},
      {at("f100", "rb", eOut), kPerm + "rb, Mode=1"},
      {at("f100", "x", eIn, 16384, 1), kPerm + "x, Mode=2"},
      {at("f100", "r", static_cast<Flag>(7)), kParam + ": invalid mIoFlag (7)"},
      {at("f100", "r", eIn, 1L << 62), "KXOutOfMemException (code 12, Cannot allocate memory)"},
      {at("nil", "r", eIn), kNoFile + "input file (nil)"},
      {at("sub", "r", eIn),
       "KXFileSystemException (code 21, Is a directory): failed to open input file (sub)"},
      {at("sub/nil/x", "w", eOut), kNoFile + "output file (sub/nil/x)"},
      {range("f100", "r+", eOut, 0, -5, 500), kParam + ": streamLen < -1"},
      {range("f100", "r+", eOut, 10, 100, 50), kParam + ": streamLen exceeds requested max size"},
      {range("f100", "r", eIn, 101, -1, -1), kOffset + "101)"},
      {range("f0", "r", eIn, 5, -1, -1), kLength},
      {range("f100", "r+", eOut, 10, -1, 10), kOffset + "10)"},
      {range("f100", "r", eIn, 10, 101, -1), kLength},
      {range("f100", "r", eIn, 0, -5, -1), kLength},
      {range("f1000", "r+", eOut, 0, -1, 500),
       kParam + ": Stream size exceeds requested maximum (inMaxFileLength = 500)."},
      {at("fifo", "r+", eOut),
       "KXFileSystemException (code 29, Illegal seek): lseek failed (offset 0) "
       "[KXFileStream.KXFileStream (fifo,r+,16384)]"},
      {at("nil", "r+", eInOut), kNoFile +
                                    "input file (nil) [KXFileStream.KXFileStream (nil,r+,16384) | "
                                    "KXFileStream.KXFileStream (nil,r+,16384)]"},
      {in, kInternal + "vFileInfo != NULL",
       [](Probe& s) { readString(s.rewire(eIn, nullptr), 1); }},
      {out, kInternal + "vFileInfo != NULL",
       [](Probe& s) { writeString(s.rewire(eOut, nullptr), "a"); }},
      {in, "KXStreamException (code 9, Bad file descriptor)",
       [](Probe& s) { readString(withDescriptor(s, "/dev/null", O_WRONLY), 1); }},
      {out, "KXStreamException (code -10006)", [](Probe& s) { completeByHand(s, -3); }, -3},
      {out, "KXStreamException (code -10006)", [](Probe& s) { completeByHand(s, 5); }, -1},
      // The status stays the documented one; the system's reason travels in the message.
      {at("/dev/full", "w", eOut),
       "KXStreamException (code -10027): No space left on device (errno 28) "
       "[KXBasicGenericStream.complete]",
       [](Probe& s) { writeString(s, std::string(100, 'x')); }, -1},
      {out, "KXFileSystemException (code 0) [KXBasicGenericStream.complete]",
       [](Probe& s) { writeString(withDescriptor(s, "fifo", O_RDWR), "a"); }},
      {in, kNoSeek, [](Probe& s) { withDescriptor(s, "fifo", O_RDWR).SetMark(); }},
      {out, kNoSeek, [](Probe& s) { withDescriptor(s, "fifo", O_RDWR).resetMark(); }},
      {in, kInternal + "false",
       [](Probe& s) { s.rewire(static_cast<Flag>(7), &s.file()).resetMark(); }},
      {in, "KXFileSystemException (code -10027) []", [](Probe& s) { writeString(s, "a"); }},
      {console, "KXNotSupportedException (code 0)", [](Probe& s) { readString(s, 1); }},
      {console, "KXFileSystemException (code 2, No such file or directory): kx_stat(/nil,-) failed",
       [](Probe& s) { s.getFileSize("/nil", "r"); }},
  };
  for (const auto& row : cases) {
    const Files files;
    StreamPtr stream = open(row.how, row.act != nullptr);
    const KXStreamInfo& info = *stream->GetInfo();
    const int64_t length = info.mStreamLen;
    const std::string failure =
        kxtest::outcome([&] { row.act ? row.act(*stream) : stream->init(); });
    EXPECT_EQ(row.expected,
              row.expected.back() == ']' ? failure : failure.substr(0, failure.rfind(" [")));
    if (row.transferLenAfter != 0) {
      EXPECT_EQ(std::make_tuple(row.transferLenAfter, int64_t{0}, length),
                std::make_tuple(info.mTransferLen, info.mStreamPos, info.mStreamLen));
    }
    // Put back what the case broke, so that the stream can close.
    stream->rewire(row.how.flag, row.how.flag == eStdout ? nullptr : &stream->file());
  }
}

struct Step {
  int64_t ask, delivered;
  KXBool atEOF;
  long moveTo = -1;  // where code outside the stream puts the position first
};

// Drives the transfers by hand, as consumers of the engine do, to see each prepare's count. The
// buffer is rounded up to whole 16 KiB.
TEST(KXFileStreamRead, DeliversExactBytesCappedByBufferAndEnd) {
  const struct {
    Opening how;
    std::vector<Step> steps;
    KXBool strict = 1;  // the byte count cannot follow moves made behind the stream's back
  } cases[] = {
      {at("f100", "r", eIn), {{10, 10, 0}, {1000, 90, 1}, {1, 0, 1}}},
      {at("f100", "r", eIn), {{60, 60, 0}, {40, 40, 1}}},
      {at("f100", "r", eIn), {{10, 10, 0}, {10, 10, 0, 50}, {10, 10, 0, 5}}, 0},
      {at("f40000", "RB", eIn, 1),
       {{0, 0, 1}, {10, 10, 0}, {16383, 16383, 0}, {50000, 16384, 0}, {16385, 7223, 1}}},
      {at("f40000", "r", eIn, 16384), {{50000, 16384, 0}}, 0},
      {at("f40000", "r", eIn, 16385), {{50000, 32768, 0}}, 0},
      {range("f100", "r", eIn, 10, 20, -1), {{5, 5, 0}, {50000, 15, 1}, {1, 0, 1}}},
      {range("f1000", "r", eIn, 100, 300, -1), {{299, 299, 0}, {1, 1, 1}, {1, 0, 1}}},
      {range("f100", "r", eIn, 100, -1, -1), {{1, 0, 1}}},
      {at("f0", "r", eIn), {{1, 0, 1}}},
      // A device's size of 0 is not compared with the range start: it opens there.
      {range("/dev/null", "r", eIn, 4096, 0, -1), {{10, 0, 1}}},
  };
  for (const auto& scenario : cases) {
    const Files files;
    kxtest::StrictModeScope strict(scenario.strict);
    StreamPtr stream = open(scenario.how);
    KXStreamInfo& info = *stream->GetInfo();
    int64_t position = 0;
    for (const Step& step : scenario.steps) {
      if (step.moveTo >= 0) {
        info.mStreamPos = position = step.moveTo;
      }
      info.mTransferLen = step.ask;
      stream->prepareBuffer();
      ASSERT_EQ(step.delivered, info.mTransferLen) << "asking " << step.ask;
      const std::string expected = files.bytes.substr(
          static_cast<size_t>(scenario.how.start + position), static_cast<size_t>(step.delivered));
      position += step.delivered;
      EXPECT_EQ(std::make_tuple(expected, step.atEOF, position),
                std::make_tuple(std::string(info.mBuffer, expected.size()), info.mAtEOF,
                                stream->GetStreamPos()));
      stream->complete();
    }
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
      // An empty file's size is not compared with the range start: a range with a length opens
      // there (only a length that would compute negative is refused).
      {range("f0", "r+", eOut, 100, 50, -1), 0, 0, 100, 10, 50, false},
      {at("f100", "r+", eInOut), 1, 0, 0, 10, 10, false},
      {at("f100", "R+", eInOut), 0, 0, 0, 10, 10, false},
      {at("f100", "w+", eInOut), 0, 0, 0, 10, 10, false},
      {at("f100", "a+", eInOut), 0, 100, 100, 110, 110, false},
  };
  for (const auto& row : cases) {
    const Files files;
    const kxtest::StrictModeScope strict(1);
    std::string expected = fileContents(row.how.path);
    expected.resize(std::max(expected.size(), row.offset + 10));
    expected.replace(row.offset, 10, "0123456789");
    expected.resize(row.keepsRest ? expected.size() : row.offset + 10);
    StreamPtr stream = open(row.how);
    const auto opened = std::make_tuple(stream->GetInfo()->mReadFlag, stream->GetStreamPos());
    const long wrote = writeString(*stream, "0123456789");
    const auto written = std::make_tuple(wrote, stream->GetStreamPos(), stream->GetLength());
    std::string readBack;
    if (row.how.flag == eInOut) {  // reads back from the start through the reading half
      stream->reset();
      readBack = readString(*stream, 10);
    }
    stream.reset();
    EXPECT_EQ(
        std::make_tuple(row.readFlag, row.start, 10L, row.end, row.length,
                        row.how.flag == eInOut ? expected.substr(0, 10) : "", expected),
        std::tuple_cat(opened, written, std::make_tuple(readBack, fileContents(row.how.path))))
        << row.how.perm << " mode " << row.how.flag;
  }
}

// Both once left a descriptor and memory behind: the appending reading half counted the old data
// as read, so its strict close failed; a second init() opened the file and allocated again.
TEST(KXFileStreamLeaks, AppendingInOutCloseAndSecondInitLeakNothing) {
  const Files files;
  writeString(*open(at("f100", "a+", eInOut)), "x");
  open(at("f100", "r", eIn))->init();
}

// Someone cuts the file while it is read: the stream ends at the cut without an error, and
// strict validation reports at close() that fewer bytes came than announced.
TEST(KXFileStreamRead, AFileCutShortWhileReadEndsTheStreamAtTheCut) {
  const Files files;
  const kxtest::StrictModeScope strict(1);
  StreamPtr stream = open(at("f40000", "rb", eIn));
  EXPECT_EQ(files.bytes.substr(0, 16384), readString(*stream, 16384));
  ASSERT_EQ(0, truncate("f40000", 20000));
  EXPECT_EQ(files.bytes.substr(16384, 20000 - 16384), readString(*stream, 100000));
  EXPECT_EQ(std::make_tuple(KXBool{1}, std::string()),
            std::make_tuple(stream->isAtEOF(), readString(*stream, 10)));
  EXPECT_EQ("KXStreamMismatchException (code 0): CloseProc: mStreamLen []",
            kxtest::outcome([&] { stream->close(); }));
  stream->SetWritable();  // nothing left to check: the descriptor went with the first close
}

TEST(KXFileStreamWrite, TruncationSettingDecidesWhetherFilesAreCut) {
  for (KXBool allow : {1, 0}) {
    KXStreams::setAllowFileTruncation(allow);
    const Files files;
    StreamPtr stream = open(at("new", "w", eOut));
    writeString(*stream, files.bytes.substr(0, 100));
    stream->SetMark(40);
    writeString(*stream, "0123456789");
    EXPECT_EQ(allow ? 50 : 110, stream->GetLength());
    stream.reset();
    // A ceiling below the file's size cuts it at init().
    open(range("f1000", "r+", eOut, 0, 100, 500));
    EXPECT_EQ(files.bytes.substr(0, 40) + "0123456789" + files.bytes.substr(50, allow ? 0 : 50) +
                  files.bytes.substr(0, allow ? 500 : 1000),
              fileContents("new") + fileContents("f1000"));
  }
  KXStreams::setAllowFileTruncation(1);
}

void ignoreSignal(int /*signal*/) {}

// A signal every millisecond, without SA_RESTART, interrupts the writes while a slow reader
// drains the pipe: every write, larger than the 64 KiB pieces the stream sends, still reports
// all its bytes, NUL bytes and percent signs included, and the reader gets them all. A transfer
// driven by hand without a buffer writes nothing. Nothing is held back: once the output fails,
// even one byte fails at once, with the system's error number.
TEST(KXFileStreamStandard, WritesEveryByteThroughSignalsOrFailsWhenOutputFails) {
  const std::string payload =
      std::string("a%db\0c%s\n", 9) + kxtest::randomBytes(size_t{64} * 16384, 9);
  for (Flag flag : {eStdout, eStderr}) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(0, pipe(ends));
    const pid_t writer = kxtest::startChild([&] {
      dup2(ends[1], flag == eStdout ? 1 : 2);
      struct sigaction interrupting {};
      interrupting.sa_handler = ignoreSignal;
      sigaction(SIGALRM, &interrupting, nullptr);
      const itimerval everyMillisecond{{0, 1000}, {0, 1000}};
      setitimer(ITIMER_REAL, &everyMillisecond, nullptr);
      const kxtest::StrictModeScope lenient(0);
      StreamPtr stream = open(at(nullptr, nullptr, flag, flag == eStdout ? 0 : -1));
      long written = 0;
      for (size_t offset = 0; offset < payload.size(); offset += 200000) {
        written += writeString(*stream, payload.substr(offset, 200000));
      }
      completeByHand(*stream, 5);
      if (written != static_cast<long>(payload.size()) || stream->GetStreamPos() != written) {
        return 1;
      }
      dup2(::open("/dev/full", O_WRONLY), flag == eStdout ? 1 : 2);
      return kxtest::outcome([&] { writeString(*stream, "x"); }) ==
                     "KXStreamException (code 28, No space left on device) "
                     "[KXBasicGenericStream.complete]"
                 ? 0
                 : 2;
    });
    ::close(ends[1]);
    std::string received;
    char chunk[4096];
    for (ssize_t got = 0; (got = read(ends[0], chunk, sizeof chunk)) > 0; usleep(100)) {
      received.append(chunk, static_cast<size_t>(got));
    }
    ::close(ends[0]);
    EXPECT_EQ(0, kxtest::waitChild(writer)) << flag;
    EXPECT_TRUE(received == payload) << flag;
  }
}

}  // namespace
