// The kxstream tool end to end, against the system's own tools on the same inputs.

#include <gtest/gtest.h>

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

}  // namespace
