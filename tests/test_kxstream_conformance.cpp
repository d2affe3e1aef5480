// kxstream against md5sum, cat, cp, dd and head on inputs of the machine itself: headers under
// /usr/include, /proc and /sys files, devices, FIFOs, pipes, process substitution, 2 GiB and
// sparse 5 GiB files, closed standard descriptors. Each row is a job done by the reference and
// by the tool (see ToolPair), each line run in a fresh directory holding kSetUp's files.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "KXShell.h"
#include "KXTestSupport.h"

namespace {

constexpr const char* kSetUp = "printf 'hello\\n' > keep && seq 1 60000 > binary && ";

void expectSameAsReference(const std::vector<kxtest::ToolPair>& rows) {
  kxtest::expectSameAsReference(KXSTREAM_PATH, rows, kSetUp);
}

kxtest::ShellOutcome runInFreshDirectory(const std::string& commandLine) {
  const kxtest::TempDir dir;
  return kxtest::Shell(dir, KXSTREAM_PATH).run(kSetUp + commandLine);
}

// About 40 headers spread over the sorted list of all of them.
TEST(KxstreamConformance, HeadersUnderUsrIncludeAreReadAsCoreutilsReadsThem) {
  const std::string list =
      "find /usr/include -type f | sort > all && "
      "awk -v step=$(($(wc -l < all) / 40)) 'NR % step == 0' all > list && ";
  if (runInFreshDirectory(list + "true").exitCode != 0) {
    GTEST_SKIP() << "fewer than 40 headers under /usr/include";
  }
  expectSameAsReference({list + "xargs -d '\\n' @id < list",
                         list + "xargs -d '\\n' @cat < list | md5sum",
                         list + "@cp \"$(sed -n 20p list)\" out && md5sum out"});
}

// Those of the candidates this machine has whose content is the same at two reads.
TEST(KxstreamConformance, ProcAndSysFilesGiveTheirContentNotTheirReportedSize) {
  const std::string list =
      "for f in /proc/version /proc/sys/kernel/ostype /proc/sys/kernel/osrelease "
      "/proc/filesystems /sys/kernel/mm/transparent_hugepage/enabled "
      "/sys/devices/system/cpu/online /sys/devices/system/cpu/possible "
      "/sys/class/net/lo/address /sys/class/net/lo/mtu; do [ -r $f ] && "
      "[ \"$(md5sum < $f)\" = \"$(md5sum < $f)\" ] && echo $f; done > list; ";
  if (runInFreshDirectory(list + "test $(wc -l < list) -ge 3").exitCode != 0) {
    GTEST_SKIP() << "fewer than three stable /proc or /sys files on this machine";
  }
  expectSameAsReference({list + "xargs @id < list", list + "xargs @cat < list",
                         list + "@cp $(tail -1 list) out && cat out"});
}

TEST(KxstreamConformance, DevicesPipesFifosAndStandardInputAreReadAsStreams) {
  expectSameAsReference(
      {"@id /dev/null", "@cat /dev/null keep", "timeout 0.5 @id /dev/zero; echo $?",
       "@cp /dev/null out && wc -c < out", "@cat /dev/zero | head -c 100000 | md5sum",
       "mkfifo f && (seq 100000 > f &) && @id f", "mkfifo f && (seq 100000 > f &) && @cat keep f",
       "@id <(seq 5000) /dev/stdin < keep", "seq 200000 | @id /dev/fd/0; echo ${PIPESTATUS[0]}",
       "seq 100000 | @cp /dev/stdin out && md5sum < out",
       "mkfifo f && (md5sum < f > got &) && @cp binary f && sleep 0.2 && cat got",
       "@cp binary /dev/stdout | md5sum", "seq 100000 | @id", "@id - keep < binary",
       "@cat - keep < binary | md5sum", "seq 1000 | @cat keep - keep"});
  expectSameAsReference(
      {{"head -c 70000 /dev/zero > z && md5sum < z",
        "$K copy /dev/zero z --length 70000 && md5sum < z"},
       {"dd if=/dev/zero of=z bs=70000 count=1 status=none && md5sum < z",
        "$K copy /dev/zero z --length 70000 && md5sum < z"},
       {"head -c 777 binary | md5sum", "$K copy binary /dev/stdout --length 777 | md5sum"}});
}

TEST(KxstreamConformance, TerminalsWorkByNameAsSourceAndDestination) {
  if (std::system("command -v script > /dev/null") != 0) {
    GTEST_SKIP() << "no 'script' command to give the programs a terminal";
  }
  // script runs the command on a new terminal and types what it reads; ^D ends the input.
  expectSameAsReference(
      {R"((sleep 0.3; printf 'abc\n\004') | script -qec "@id /dev/tty" /dev/null)",
       "script -qec \"@cp keep /dev/tty\" /dev/null < /dev/null"});
}

TEST(KxstreamConformance, ClosedStandardDescriptorsAreNeverReused) {
  expectSameAsReference({"@cp keep /dev/stdout >&-; echo $?; cat keep", "@id keep - <&-",
                         "@cat keep - <&-", "@cat /dev/stdin keep <&-", "@cat keep >&-",
                         "@id keep >&-"});
}

TEST(KxstreamConformance, CatReachesEachInputInTurnAndRefusesItsOwnOutput) {
  expectSameAsReference({"@cat keep >> keep; echo $?; cat keep",
                         "printf 1 > b && @cat <(echo 2 >> b; echo p) b",
                         "ulimit -n 12 && @cat $(printf 'keep %.0s' {1..40}) | md5sum"});
}

TEST(KxstreamConformance, CopyBehavesAsCpAndDd) {
  expectSameAsReference({"mkdir d && @cp keep d && cat d/keep",
                         "ln -s nowhere dl; @cp keep dl; echo $?; ls", "@cp gone out",
                         "mkdir d && @cp d out", "@cp keep no/such/dir", "@cp keep /dev/full"});
  expectSameAsReference(
      {{"dd if=keep of=out bs=1 skip=100 status=none 2>/dev/null; echo $?; wc -c < out",
        "$K copy keep out --start 100; echo $?; wc -c < out"},
       {"dd if=binary of=out iflag=skip_bytes,count_bytes skip=1000 count=5000 status=none && "
        "md5sum < out",
        "$K copy binary out --start 1000 --length 5000 && md5sum < out"}});
}

TEST(KxstreamConformance, MessagesQuoteNamesAsCoreutilsDoes) {
  const std::string names =
      " 'x y' \"$(printf 'a\\nb')\" \"it's\" '' 'a=b' '#c' $'\\303\\251' keep";
  expectSameAsReference(
      {"LC_ALL=C @id" + names, "LC_ALL=C @cat" + names, "mkdir d && @id d && @cat d"});
}

TEST(KxstreamConformance, FilesOf2GiBAndMoreAreDigestedWhole) {
  // The digest of 2^31 + 1 zero bytes as md5sum prints it; running md5sum here as well would
  // double the longest part of this test.
  expectSameAsReference({{R"(d=97cdd4bb45c3d5d652c0079901fb4eec && printf "$d  big\n$d  -\n")",
                          "truncate -s 2147483649 big && $K id -j 2 big - < big"}});
}

TEST(KxstreamConformance, CopyKeepsTheHolesOfASparseFileOver4GiB) {
  const std::string sparse =
      "truncate -s 5G sp && printf data | dd of=sp bs=1 seek=3G conv=notrunc status=none && ";
  const kxtest::ShellOutcome probe = runInFreshDirectory(sparse + "stat -c %b sp");
  if (probe.exitCode != 0 || std::stol("0" + probe.out) > 64) {
    GTEST_SKIP() << "the temporary directory's file system does not keep holes";
  }
  expectSameAsReference(
      {sparse + "@cp sp c && stat -c '%s %b' c && tail -c +3221225473 c | head -c 4"});
}

}  // namespace
