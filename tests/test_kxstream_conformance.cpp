// kxstream against md5sum, cat, cp, dd and head on inputs of the machine itself: headers under
// /usr/include, /proc and /sys files, devices, FIFOs, pipes, process substitution, 2 GiB and
// sparse 5 GiB files, closed standard descriptors. Each row runs the tool and the reference in
// fresh directories and expects the same exit status, output and message (with the program's
// name as the only difference).

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "KXShell.h"
#include "KXTestSupport.h"

namespace {

using kxtest::Shell;
using kxtest::ShellOutcome;
using kxtest::shellQuoted;

struct Row {
  std::string ours;       // $K is the tool
  std::string reference;  // the same job done by coreutils
};

// Every row starts in a fresh directory holding these.
constexpr const char* kSetUp = "printf 'hello\\n' > keep && seq 1 60000 > binary && ";

std::string normalised(const ShellOutcome& outcome) {
  static const std::regex program("(^|\\n)(md5sum|cat|cp|dd|head): ");
  return "exit " + std::to_string(outcome.exitCode) + "\n--- out\n" + outcome.out + "--- err\n" +
         std::regex_replace(outcome.err, program, "$1kxstream: ");
}

ShellOutcome runInFreshDirectory(const std::string& commandLine) {
  const kxtest::TempDir dir;
  return Shell(dir, KXSTREAM_PATH).run(kSetUp + commandLine);
}

void expectSameAsReference(const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    EXPECT_EQ(normalised(runInFreshDirectory(row.reference)),
              normalised(runInFreshDirectory(row.ours)))
        << row.ours;
  }
}

// Files whose content is the same at two reads, so that two programs can be compared on them.
std::vector<std::string> stableFiles(const std::vector<std::string>& candidates) {
  std::vector<std::string> found;
  for (const std::string& path : candidates) {
    if (access(path.c_str(), R_OK) == 0 &&
        kxtest::md5sumOfFile(path) == kxtest::md5sumOfFile(path)) {
      found.push_back(path);
    }
  }
  return found;
}

std::string words(const std::vector<std::string>& paths) {
  std::string joined;
  for (const std::string& path : paths) {
    joined += " " + shellQuoted(path);
  }
  return joined;
}

TEST(KxstreamConformance, HeadersUnderUsrIncludeAreReadAsCoreutilsReadsThem) {
  std::vector<std::string> headers;
  std::error_code error;
  for (const auto& entry : std::filesystem::recursive_directory_iterator("/usr/include", error)) {
    if (entry.is_regular_file(error)) {
      headers.push_back(entry.path().string());
    }
  }
  if (headers.size() < 40) {
    GTEST_SKIP() << "fewer than 40 headers under /usr/include";
  }
  std::sort(headers.begin(), headers.end());
  std::vector<std::string> sample;
  for (size_t index = 0; index < headers.size(); index += headers.size() / 40) {
    sample.push_back(headers[index]);
  }
  const std::string files = words(sample);
  expectSameAsReference({
      {"$K id" + files, "md5sum" + files},
      {"$K cat" + files + " | md5sum", "cat" + files + " | md5sum"},
      {"$K copy" + words({sample[7]}) + " out && md5sum out",
       "cp" + words({sample[7]}) + " out && md5sum out"},
  });
}

TEST(KxstreamConformance, ProcAndSysFilesGiveTheirContentNotTheirReportedSize) {
  const std::vector<std::string> files =
      stableFiles({"/proc/version", "/proc/sys/kernel/ostype", "/proc/sys/kernel/osrelease",
                   "/proc/filesystems", "/sys/kernel/mm/transparent_hugepage/enabled",
                   "/sys/devices/system/cpu/online", "/sys/devices/system/cpu/possible",
                   "/sys/class/net/lo/address", "/sys/class/net/lo/mtu"});
  if (files.size() < 3) {
    GTEST_SKIP() << "fewer than three stable /proc or /sys files on this machine";
  }
  const std::string all = words(files);
  expectSameAsReference({
      {"$K id" + all, "md5sum" + all},
      {"$K cat" + all, "cat" + all},
      {"$K copy" + words({files.back()}) + " out && cat out",
       "cp" + words({files.back()}) + " out && cat out"},
  });
}

TEST(KxstreamConformance, CharacterDevicesAreReadAsStreams) {
  expectSameAsReference({
      {"$K id /dev/null", "md5sum /dev/null"},
      {"$K cat /dev/null keep", "cat /dev/null keep"},
      {"timeout 0.5 $K id /dev/zero; echo $?", "timeout 0.5 md5sum /dev/zero; echo $?"},
      {"$K copy /dev/null out && wc -c < out", "cp /dev/null out && wc -c < out"},
      {"$K copy /dev/zero z --length 70000 && md5sum < z",
       "head -c 70000 /dev/zero > z && md5sum < z"},
      {"$K copy /dev/zero z --length 70000 && md5sum < z",
       "dd if=/dev/zero of=z bs=70000 count=1 status=none && md5sum < z"},
      {"$K cat /dev/zero | head -c 100000 | md5sum", "cat /dev/zero | head -c 100000 | md5sum"},
  });
}

TEST(KxstreamConformance, PipesFifosAndProcessSubstitutionWorkByName) {
  expectSameAsReference({
      {"mkfifo f && (seq 100000 > f &) && $K id f", "mkfifo f && (seq 100000 > f &) && md5sum f"},
      {"mkfifo f && (seq 100000 > f &) && $K cat keep f",
       "mkfifo f && (seq 100000 > f &) && cat keep f"},
      {"$K id <(seq 5000) /dev/stdin < keep", "md5sum <(seq 5000) /dev/stdin < keep"},
      {"seq 200000 | $K id /dev/fd/0; echo ${PIPESTATUS[0]}",
       "seq 200000 | md5sum /dev/fd/0; echo ${PIPESTATUS[0]}"},
      {"seq 100000 | $K copy /dev/stdin out && md5sum < out",
       "seq 100000 | cp /dev/stdin out && md5sum < out"},
      {"mkfifo f && (md5sum < f > got &) && $K copy binary f && sleep 0.2 && cat got",
       "mkfifo f && (md5sum < f > got &) && cp binary f && sleep 0.2 && cat got"},
      {"$K copy binary /dev/stdout | md5sum", "cp binary /dev/stdout | md5sum"},
      {"$K copy binary /dev/stdout --length 777 | md5sum", "head -c 777 binary | md5sum"},
  });
}

TEST(KxstreamConformance, TerminalsWorkByNameAsSourceAndDestination) {
  if (runInFreshDirectory("command -v script").exitCode != 0) {
    GTEST_SKIP() << "no 'script' command to give the programs a terminal";
  }
  // script runs the command on a new terminal and types what it reads; ^D ends the input.
  const std::string typing = "(sleep 0.3; printf 'abc\\n\\004') | script -qec ";
  expectSameAsReference({
      {typing + "\"$K id /dev/tty\" /dev/null", typing + "'md5sum /dev/tty' /dev/null"},
      {"script -qec \"$K copy keep /dev/tty\" /dev/null < /dev/null",
       "script -qec 'cp keep /dev/tty' /dev/null < /dev/null"},
  });
}

TEST(KxstreamConformance, StandardInputFromAPipeOrAFile) {
  expectSameAsReference({
      {"seq 100000 | $K id", "seq 100000 | md5sum"},
      {"$K id - keep < binary", "md5sum - keep < binary"},
      {"$K cat - keep < binary | md5sum", "cat - keep < binary | md5sum"},
      {"seq 1000 | $K cat keep - keep", "seq 1000 | cat keep - keep"},
  });
}

TEST(KxstreamConformance, ClosedStandardDescriptorsAreNeverReused) {
  expectSameAsReference({
      {"$K copy keep /dev/stdout >&-; echo $?; cat keep",
       "cp keep /dev/stdout >&-; echo $?; cat keep"},
      {"$K id keep - <&-", "md5sum keep - <&-"},
      {"$K cat keep - <&-", "cat keep - <&-"},
      {"$K cat /dev/stdin keep <&-", "cat /dev/stdin keep <&-"},
      {"$K cat keep >&-", "cat keep >&-"},
      {"$K id keep >&-", "md5sum keep >&-"},
  });
}

TEST(KxstreamConformance, CatReachesEachInputInTurnAndRefusesItsOwnOutput) {
  expectSameAsReference({
      {"$K cat keep >> keep; echo $?; cat keep", "cat keep >> keep; echo $?; cat keep"},
      {"printf 1 > b && $K cat <(echo 2 >> b; echo p) b",
       "printf 1 > b && cat <(echo 2 >> b; echo p) b"},
      {"ulimit -n 12 && $K cat $(printf 'keep %.0s' {1..40}) | md5sum",
       "ulimit -n 12 && cat $(printf 'keep %.0s' {1..40}) | md5sum"},
  });
}

TEST(KxstreamConformance, CopyBehavesAsCpAndDd) {
  expectSameAsReference({
      {"mkdir d && $K copy keep d && cat d/keep", "mkdir d && cp keep d && cat d/keep"},
      {"ln -s nowhere dl; $K copy keep dl; echo $?; ls",
       "ln -s nowhere dl; cp keep dl; echo $?; ls"},
      {"$K copy keep out --start 100; echo $?; wc -c < out",
       "dd if=keep of=out bs=1 skip=100 status=none 2>/dev/null; echo $?; wc -c < out"},
      {"$K copy binary out --start 1000 --length 5000 && md5sum < out",
       "dd if=binary of=out iflag=skip_bytes,count_bytes skip=1000 count=5000 status=none && "
       "md5sum < out"},
      {"$K copy gone out", "cp gone out"},
      {"mkdir d && $K copy d out", "mkdir d && cp d out"},
      {"$K copy keep no/such/dir", "cp keep no/such/dir"},
      {"$K copy keep /dev/full", "cp keep /dev/full"},
  });
}

TEST(KxstreamConformance, MessagesQuoteNamesAsCoreutilsDoes) {
  const std::string names =
      " 'x y' \"$(printf 'a\\nb')\" \"it's\" '' 'a=b' '#c' $'\\303\\251' keep";
  expectSameAsReference({
      {"LC_ALL=C $K id" + names, "LC_ALL=C md5sum" + names},
      {"LC_ALL=C $K cat" + names, "LC_ALL=C cat" + names},
      {"mkdir d && $K id d && $K cat d", "mkdir d && md5sum d && cat d"},
  });
}

TEST(KxstreamConformance, FilesOf2GiBAndMoreAreDigestedWhole) {
  // The digest of 2^31 + 1 zero bytes as md5sum prints it; running md5sum here as well would
  // double the longest part of this test.
  const std::string digest = "97cdd4bb45c3d5d652c0079901fb4eec";
  const ShellOutcome ours =
      runInFreshDirectory("truncate -s 2147483649 big && $K id -j 2 big - < big");
  EXPECT_EQ("exit 0\n--- out\n" + digest + "  big\n" + digest + "  -\n--- err\n", normalised(ours));
}

TEST(KxstreamConformance, CopyKeepsTheHolesOfASparseFileOver4GiB) {
  const std::string sparse =
      "truncate -s 5G sp && printf data | dd of=sp bs=1 seek=3G conv=notrunc status=none && ";
  const std::string check = " c && stat -c '%s %b' c && tail -c +3221225473 c | head -c 4";
  const ShellOutcome probe = runInFreshDirectory(sparse + "stat -c %b sp");
  if (probe.exitCode != 0 || std::stol("0" + probe.out) > 64) {
    GTEST_SKIP() << "the temporary directory's file system does not keep holes";
  }
  expectSameAsReference({{sparse + "$K copy sp" + check, sparse + "cp sp" + check}});
}

}  // namespace
