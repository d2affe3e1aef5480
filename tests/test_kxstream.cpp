// The kxstream tool end to end, against the system's own tools on the same inputs.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include "KXShell.h"
#include "KXTestSupport.h"

namespace {

using kxtest::Shell;
using kxtest::ShellOutcome;
using kxtest::slurp;
using Outcome = ShellOutcome;

class KxstreamTool : public ::testing::Test {
 protected:
  void SetUp() override {
    dir.writeFile("empty", "");
    dir.writeFile("binary",
                  std::string("\0\x01zero\0bytes\xff", 13) + kxtest::randomBytes(300000, 7));
    dir.writeFile("with space", "a name with a space\n");
    dir.writeFile("back\\slash", "escaped name\n");
    dir.writeFile("new\nline", "escaped too\n");
  }

  const std::string files = "empty binary 'with space' 'back\\slash' 'new\nline'";
  kxtest::TempDir dir;
  Shell shell{dir, KXSTREAM_PATH};
};

TEST_F(KxstreamTool, IdPrintsWhatMd5sumPrints) {
  const Outcome expected = shell.run("md5sum " + files);
  ASSERT_EQ(0, expected.exitCode);
  for (const std::string jobs : {"", "-j 1 ", "-j 3 "}) {
    const Outcome ours = shell.tool("id " + jobs + files);
    EXPECT_EQ(0, ours.exitCode) << jobs;
    EXPECT_EQ(expected.out, ours.out) << jobs;
    EXPECT_EQ("", ours.err);
  }
}

TEST_F(KxstreamTool, IdAndCatReadStandardInput) {
  EXPECT_EQ(shell.run("md5sum < binary").out, shell.tool("id < binary").out);
  EXPECT_EQ(shell.run("md5sum - empty < binary").out, shell.tool("id - empty < binary").out);
  EXPECT_EQ(shell.run("cat binary | md5sum").out, shell.run("cat binary | $K id").out);
  EXPECT_EQ(slurp(dir.file("binary")), shell.tool("cat < binary").out);
  EXPECT_EQ(shell.run("cat empty - binary < 'with space'").out,
            shell.tool("cat empty - binary < 'with space'").out);
}

TEST_F(KxstreamTool, CatWritesWhatCatWrites) {
  const Outcome expected = shell.run("cat " + files + " binary");
  const Outcome ours = shell.tool("cat " + files + " binary");
  EXPECT_EQ(0, ours.exitCode);
  EXPECT_EQ(expected.out.size(), ours.out.size());
  EXPECT_TRUE(expected.out == ours.out);
  EXPECT_EQ(0, shell.tool("cat binary > copied").exitCode);
  EXPECT_EQ(0, shell.run("cmp binary copied").exitCode);
}

TEST_F(KxstreamTool, AMissingInputIsNamedOnceAndTheOthersStillProcessed) {
  const Outcome id = shell.tool("id binary missing.txt empty");
  EXPECT_EQ(1, id.exitCode);
  EXPECT_EQ("kxstream: missing.txt: No such file or directory\n", id.err);
  EXPECT_EQ(shell.run("md5sum binary empty").out, id.out);

  const Outcome cat = shell.tool("cat 'with space' missing.txt . binary");
  EXPECT_EQ(1, cat.exitCode);
  EXPECT_EQ(
      "kxstream: missing.txt: No such file or directory\n"
      "kxstream: .: Is a directory\n",
      cat.err);
  EXPECT_TRUE(shell.run("cat 'with space' binary").out == cat.out);
}

TEST_F(KxstreamTool, CopiesWholeFilesAndByteRanges) {
  EXPECT_EQ(0, shell.tool("copy binary whole").exitCode);
  EXPECT_EQ(0, shell.run("cmp binary whole").exitCode);
  EXPECT_EQ(0, shell.tool("copy empty nothing").exitCode);
  EXPECT_EQ(0, shell.run("cmp empty nothing").exitCode);

  EXPECT_EQ(0, shell.tool("copy binary range --start 1000 --length 5000").exitCode);
  shell.run("dd if=binary of=expected bs=1000 skip=1 count=5 status=none");
  EXPECT_EQ(0, shell.run("cmp expected range").exitCode);

  // A range past the end stops at the end, as dd does.
  EXPECT_EQ(0, shell.tool("copy binary tail --start=300000 --length=999999").exitCode);
  EXPECT_EQ(slurp(dir.file("binary")).substr(300000), slurp(dir.file("tail")));
}

TEST_F(KxstreamTool, CopyRefusesAFileOntoItselfAndLosesNothing) {
  const std::string original = slurp(dir.file("binary"));
  const Outcome same = shell.tool("copy binary ./binary");
  EXPECT_EQ(1, same.exitCode);
  EXPECT_EQ("kxstream: 'binary' and './binary' are the same file\n", same.err);
  EXPECT_TRUE(original == slurp(dir.file("binary")));
}

TEST_F(KxstreamTool, ProgressOfTinyCopiesEndsWithTheirTrueSize) {
  if (shell.run("command -v script").exitCode != 0) {
    GTEST_SKIP() << "no 'script' command to give the tool a terminal";
  }
  dir.writeFile("one", "x");
  for (const auto& [source, expected] :
       {std::pair<std::string, std::string>{"empty", "0 B of 0 B"}, {"one", "1 B of 1 B"}}) {
    const Outcome run =
        shell.run("script -qec \"$K copy " + source + " out --progress\" /dev/null");
    EXPECT_NE(std::string::npos, run.out.find("kxstream: copied " + expected + " (100%)"))
        << run.out;
  }
}

TEST_F(KxstreamTool, OutputThatCannotBeWrittenIsAnError) {
  const Outcome full = shell.tool("cat binary > /dev/full");
  EXPECT_EQ(1, full.exitCode);
  EXPECT_EQ("kxstream: write error: No space left on device\n", full.err);
  EXPECT_EQ(1, shell.tool("id binary > /dev/full").exitCode);
}

TEST_F(KxstreamTool, UsageErrorsExitWithTwo) {
  for (const std::string arguments :
       {"", "frob", "id --bogus", "uuid -n x", "uuid -n", "copy binary", "copy a b c",
        "id -j 0 binary", "copy binary out --start -1"}) {
    const Outcome run = shell.tool(arguments);
    EXPECT_EQ(2, run.exitCode) << arguments;
    EXPECT_NE(std::string::npos, run.err.find("--help")) << arguments;
    EXPECT_EQ("", run.out) << arguments;
  }
  for (const std::string arguments :
       {"--help", "id --help", "cat --help", "copy --help", "uuid --help"}) {
    const Outcome run = shell.tool(arguments);
    EXPECT_EQ(0, run.exitCode) << arguments;
    EXPECT_EQ(0u, run.out.find("Usage: kxstream")) << arguments;
  }
  EXPECT_EQ("kxstream 0.1.0\n", shell.tool("--version").out);
}

TEST_F(KxstreamTool, UuidPrintsDistinctVersionOneUuids) {
  const Outcome run = shell.tool("uuid -n 500");
  ASSERT_EQ(0, run.exitCode);
  const std::regex versionOne(
      "[0-9a-f]{8}-[0-9a-f]{4}-1[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");
  std::istringstream lines(run.out);
  std::set<std::string> seen;
  for (std::string line; std::getline(lines, line);) {
    EXPECT_TRUE(std::regex_match(line, versionOne)) << line;
    seen.insert(line);
  }
  EXPECT_EQ(500u, seen.size());
  const std::string one = shell.tool("uuid").out;
  EXPECT_EQ(1, std::count(one.begin(), one.end(), '\n'));
}

// One case of kxstream id against the reference: the reference's command line in the test
// directory, and ours ("md5sum" read as "kxstream id" when it is empty).
struct ReferenceCase {
  const char* reference;
  const char* ours;
};

// The reference's messages with kxstream's program name; a usage error exits with 2 here.
Outcome asKxstreamWouldSay(Outcome reference) {
  static const std::regex programName("(^|\n)(md5sum|wc): ");
  reference.err = std::regex_replace(reference.err, programName, "$1kxstream: ");
  static const std::regex helpHint("Try 'md5sum --help'");
  if (std::regex_search(reference.err, helpHint)) {
    reference.err = std::regex_replace(reference.err, helpHint, "Try 'kxstream id --help'");
    reference.exitCode = 2;
  }
  return reference;
}

class KxstreamIdAgainstMd5sum : public KxstreamTool {
 protected:
  void SetUp() override {
    KxstreamTool::SetUp();
    const Outcome made = shell.run(
        "md5sum " + files + " > listing && md5sum --tag " + files + " > tagged && " +
        "md5sum -z empty binary > zero-listing && md5sum /usr/include/std*.h > system && " +
        "printf x > gone && printf y > 'gone\nname' && " +
        "md5sum empty gone binary 'gone\nname' > vanished && rm gone 'gone\nname' && " +
        "sed 's/^./0/' listing > corrupt && " +
        "printf '%s\\n' '# comment' '' 'not a line' '0123  short' \"$(head -1 listing)\" > odd && "
        "head -c 32 listing > reversed && printf ' binary\\n' >> reversed && "
        "head -1 listing >> reversed && printf '%s\\0junk\\n' \"$(head -1 listing)\" > nul && "
        "printf 'c:d' > 'a:b' && printf x > \"it's\" && "
        "md5sum 'a:b' \"it's\" > quoted && rm 'a:b' && "
        "mkdir -p tree/d/e tree/z && printf 1 > tree/b && printf 2 > tree/A && "
        "printf 3 > tree/d/e/f && printf 4 > tree/d/x && ln -s ../b tree/z/link && "
        "ln -s nowhere tree/z/dangling && mkfifo tree/fifo && "
        "printf 'binary\\0\\0nope\\0empty' > names");
    ASSERT_EQ(0, made.exitCode) << made.err;
  }
};

TEST_F(KxstreamIdAgainstMd5sum, EveryOptionPrintsWhatTheReferencePrints) {
  const ReferenceCase cases[] = {
      {"md5sum --tag empty binary 'new\nline' 'back\\slash'", ""},
      {"md5sum -z --tag binary 'new\nline'", ""},
      {"md5sum -b binary -t empty", ""},
      {"md5sum -tb binary", ""},
      {"md5sum --tag -t binary", ""},
      {"md5sum 'with space' missing \"it's\" 'a:b'", ""},
      {"md5sum \"$(printf 'bad\\377byte\\ttab')\" \"$(printf 'acc\\303\\251nt')\"", ""},
      {"md5sum -c listing", ""},
      {"md5sum --check tagged system", ""},
      {"md5sum -c listing tagged", ""},
      {"md5sum -c corrupt", ""},
      {"md5sum -c --quiet corrupt", ""},
      {"md5sum -c --status corrupt", ""},
      {"md5sum -c odd", ""},
      {"md5sum -cw odd", ""},
      {"md5sum -c --strict odd", ""},
      {"md5sum -c --warn --quiet odd", ""},
      {"md5sum -c --stat --warn odd", ""},
      {"md5sum -c reversed", ""},
      {"md5sum -c nul", ""},
      {"md5sum -c vanished", ""},
      {"md5sum -c --quiet vanished", ""},
      {"md5sum -c --status vanished", ""},
      {"md5sum -c --ignore-missing vanished", ""},
      {"md5sum -c --ignore-missing quoted", ""},
      {"md5sum -c quoted", ""},
      {"md5sum -c empty", ""},
      {"md5sum -c missing . listing", ""},
      {"md5sum -c - < listing", ""},
      {"md5sum -c < vanished", ""},
      {"printf '%s  -\\n' $(md5sum < binary | cut -c1-32) | md5sum -c",
       "printf '%s  -\\n' $(md5sum < binary | cut -c1-32) | kxstream id -c"},
      {"md5sum -c tagged - < listing", ""},
      {"md5sum -c --ignore-m vanished tagged", ""},
      {"md5sum -c listing --tag", ""},
      {"md5sum -c -b listing", ""},
      {"md5sum --strict binary", ""},
      {"md5sum --quiet binary", ""},
      {"md5sum --st binary", ""},
      {"md5sum --warn=yes -c listing", ""},
      {"md5sum empty binary | md5sum -c", "kxstream id -c -z zero-listing | tr '\\0' '\\n'"},
      {"md5sum tree/A tree/b tree/d/e/f tree/d/x", "kxstream id -r tree"},
      {"md5sum tree/A tree/b tree/d/e/f tree/d/x tree/z/dangling tree/z/link",
       "kxstream id -j 1 -L --recursive tree"},
      {"md5sum nope tree/b", "kxstream id -r nope tree/b"},
      {"md5sum binary empty; wc --files0-from=names > /dev/null",
       "kxstream id --files0-from=names"},
      {"md5sum binary empty; wc --files0-from=- < names > /dev/null",
       "kxstream id --files0-from - < names"},
      {"wc --files0-from=nothing", "kxstream id --files0-from=nothing"},
      {"wc --files0-from=tree", "kxstream id --files0-from=tree"},
      {"wc --files0-from=\"it's gone\"", "kxstream id --files0-from=\"it's gone\""},
  };
  const std::regex ourTool("kxstream id|^md5sum");
  for (const ReferenceCase& row : cases) {
    const Outcome expected = asKxstreamWouldSay(shell.run(row.reference));
    const std::string ours = *row.ours != '\0' ? row.ours : row.reference;
    const Outcome actual =
        shell.run(std::regex_replace(ours, ourTool, kxtest::shellQuoted(KXSTREAM_PATH) + " id"));
    EXPECT_EQ(expected.out, actual.out) << row.reference;
    EXPECT_EQ(expected.err, actual.err) << row.reference;
    EXPECT_EQ(expected.exitCode, actual.exitCode) << row.reference;
  }
}

TEST_F(KxstreamIdAgainstMd5sum, AnUnreadableEntryIsNamedAndTheRestOfTheTreeStillDigested) {
  // Permissions do not stop root: as root, both tools run as nobody.
  std::string asUser;
  if (geteuid() == 0) {
    if (shell.run("command -v setpriv").exitCode != 0) {
      GTEST_SKIP() << "running as root without setpriv to drop the privileges";
    }
    asUser = "setpriv --reuid=65534 --regid=65534 --clear-groups ";
    if (shell.run(asUser + kxtest::shellQuoted(KXSTREAM_PATH) + " --version").exitCode != 0) {
      GTEST_SKIP() << "nobody cannot run the tool under test (a directory above it is private)";
    }
  }
  ASSERT_EQ(0, shell
                   .run("mkdir tree/locked && printf x > tree/locked/inside && "
                        "printf y > tree/secret && chmod 000 tree/locked tree/secret && "
                        "chmod 755 .")
                   .exitCode);
  const Outcome expected = asKxstreamWouldSay(
      shell.run(asUser + "md5sum tree/A tree/b tree/d/e/f tree/d/x tree/locked tree/secret"));
  const Outcome actual = shell.run(asUser + kxtest::shellQuoted(KXSTREAM_PATH) + " id -r tree");
  shell.run("chmod 700 tree/locked");
  EXPECT_EQ(expected.out, actual.out);
  EXPECT_EQ(expected.err, actual.err);
  EXPECT_EQ(1, actual.exitCode);
}

TEST_F(KxstreamIdAgainstMd5sum, ATreeListingChecksBackAndNamesWhatChanged) {
  ASSERT_EQ(0, shell.tool("id -r tree > tree-listing").exitCode);
  EXPECT_EQ(shell.run("md5sum -c tree-listing").out, shell.tool("id -c tree-listing").out);
  shell.run("rm tree/d/x && printf changed > tree/b");
  const Outcome expected = asKxstreamWouldSay(shell.run("md5sum -c tree-listing"));
  const Outcome actual = shell.tool("id -j 2 -c tree-listing");
  EXPECT_EQ(expected.out, actual.out);
  EXPECT_EQ(expected.err, actual.err);
  EXPECT_EQ(1, actual.exitCode);
}

}  // namespace
