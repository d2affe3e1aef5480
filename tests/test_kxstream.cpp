// The kxstream tool end to end, against the system's own tools on the same inputs.

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "KXShell.h"
#include "KXTestSupport.h"

namespace {

using Outcome = kxtest::ShellOutcome;

class KxstreamTool : public ::testing::Test {
 protected:
  void SetUp() override {
    source.writeFile("binary",
                     std::string("\0\x01zero\0bytes\xff", 13) + kxtest::randomBytes(300000, 7));
  }

  // Each line of a row starts in a fresh directory holding these files.
  void expectSameAsReference(const std::vector<kxtest::ToolPair>& rows) const {
    kxtest::expectSameAsReference(
        KXSTREAM_PATH, rows,
        "cp " + kxtest::shellQuoted(source.file("binary")) +
            " binary && : > empty && echo 'a name with a space' > 'with space' && "
            "echo 'escaped name' > 'back\\slash' && echo 'escaped too' > 'new\nline' && "
            "md5sum " +
            files + " > listing && md5sum --tag " + files + " > tagged && " +
            "md5sum -z empty binary > zero-listing && md5sum /usr/include/std*.h > system && "
            "printf x > gone && printf y > 'gone\nname' && "
            "md5sum empty gone binary 'gone\nname' > vanished && rm gone 'gone\nname' && "
            "sed 's/^./0/' listing > corrupt && "
            "printf '%s\\n' '# comment' '' 'not a line' '0123  short' \"$(head -1 listing)\" > "
            "odd && head -c 32 listing > reversed && printf ' binary\\n' >> reversed && "
            "head -1 listing >> reversed && printf '%s\\0junk\\n' \"$(head -1 listing)\" > nul && "
            "printf 'c:d' > 'a:b' && printf x > \"it's\" && "
            "md5sum 'a:b' \"it's\" > quoted && rm 'a:b' && "
            "mkdir -p tree/d/e tree/z && printf 1 > tree/b && printf 2 > tree/A && "
            "printf 3 > tree/d/e/f && printf 4 > tree/d/x && ln -s ../b tree/z/link && "
            "ln -s nowhere tree/z/dangling && mkfifo tree/fifo && "
            "printf 'binary\\0\\0nope\\0empty' > names && ");
  }

  const std::string files = "empty binary 'with space' 'back\\slash' 'new\nline'";
  kxtest::TempDir source;
  kxtest::TempDir dir;
  kxtest::Shell shell{dir, KXSTREAM_PATH};
};

TEST_F(KxstreamTool, IdCatAndCopyDoWhatMd5sumCatCpAndDdDo) {
  expectSameAsReference({"@id " + files, "@id < binary", "@id - empty < binary", "cat binary | @id",
                         "@cat < binary", "@cat empty - binary < 'with space'",
                         "@cat " + files + " binary", "@cat binary > copied && cmp binary copied",
                         "@id binary missing.txt empty", "@cat 'with space' missing.txt . binary",
                         "@cp binary whole && cmp binary whole",
                         "@cp empty nothing && cmp empty nothing",
                         "cp binary saved && @cp binary ./binary; echo $?; cmp binary saved"});
  expectSameAsReference(
      {{"md5sum " + files, "$K id -j 3 " + files},
       {"dd if=binary of=tail iflag=skip_bytes,count_bytes skip=300000 count=999999 status=none "
        "&& md5sum < tail",
        "$K copy binary tail --start=300000 --length=999999 && md5sum < tail"}});
}

TEST_F(KxstreamTool, ProgressOfTinyCopiesEndsWithTheirTrueSize) {
  if (shell.run("command -v script").exitCode != 0) {
    GTEST_SKIP() << "no 'script' command to give the tool a terminal";
  }
  const Outcome run = shell.run(
      ": > empty && printf x > one && for f in empty one; do "
      "script -qec \"$K copy $f out --progress\" /dev/null | grep -ao 'copied [^(]*(100%)'; done");
  EXPECT_EQ("copied 0 B of 0 B (100%)\ncopied 1 B of 1 B (100%)\n", run.out);
}

TEST_F(KxstreamTool, OutputThatCannotBeWrittenIsAnError) {
  // md5sum gives no reason after "write error"; kxstream does.
  expectSameAsReference({"@cat binary > /dev/full", "@id binary > /dev/full 2> /dev/null"});
}

// Each usage error prints nothing and names --help on standard error; help and version print.
TEST_F(KxstreamTool, UsageErrorsExitWithTwoAndHelpAndVersionWithZero) {
  const Outcome run = shell.run(
      "for a in '' frob 'id --bogus' 'uuid -n x' 'uuid -n' 'copy binary' 'copy a b c' "
      "'id -j 0 binary' 'copy binary out --start -1'; do $K $a > o 2> e; "
      "echo $? $(wc -c < o) $(grep -c -- --help e); done; "
      "for a in '' id cat copy uuid; do $K $a --help > o; echo $? $(head -c 15 o); done; $K "
      "--version");
  std::string expected;
  for (int row = 0; row < 9; ++row) expected += "2 0 1\n";
  for (int row = 0; row < 5; ++row) expected += "0 Usage: kxstream\n";
  EXPECT_EQ(expected + "kxstream 0.1.0\n", run.out);
}

TEST_F(KxstreamTool, UuidPrintsDistinctVersionOneUuidsOnePerLine) {
  const Outcome run = shell.run(
      "$K uuid -n 500 > u && grep -cxE '[0-9a-f]{8}-[0-9a-f]{4}-1[0-9a-f]{3}-[89ab][0-9a-f]{3}-"
      "[0-9a-f]{12}' u && sort -u u | wc -l && $K uuid | wc -l");
  EXPECT_EQ("500\n500\n1\n", run.out);
}

TEST_F(KxstreamTool, IdPrintsWhatMd5sumPrintsForEveryOption) {
  const std::string tree = "tree/A tree/b tree/d/e/f tree/d/x";
  expectSameAsReference({"@id --tag empty binary 'new\nline' 'back\\slash'",
                         "@id -z --tag binary 'new\nline'", "@id -b binary -t empty",
                         "@id -tb binary", "@id --tag -t binary",
                         "@id 'with space' missing \"it's\" 'a:b'",
                         "@id \"$(printf 'bad\\377byte\\ttab')\" \"$(printf 'acc\\303\\251nt')\"",
                         "@id --strict binary", "@id --quiet binary", "@id --st binary"});
  expectSameAsReference({"@id -c listing", "@id --check tagged system", "@id -c listing tagged",
                         "@id -c corrupt", "@id -c --quiet corrupt", "@id -c --status corrupt",
                         "@id -c odd", "@id -cw odd", "@id -c --strict odd",
                         "@id -c --warn --quiet odd", "@id -c --stat --warn odd", "@id -c reversed",
                         "@id -c nul", "@id -c vanished"});
  expectSameAsReference({"@id -c --quiet vanished", "@id -c --status vanished",
                         "@id -c --ignore-missing vanished", "@id -c --ignore-missing quoted",
                         "@id -c quoted", "@id -c empty", "@id -c missing . listing",
                         "@id -c - < listing", "@id -c < vanished",
                         "printf '%s  -\\n' $(md5sum < binary | cut -c1-32) | @id -c",
                         "@id -c tagged - < listing", "@id -c --ignore-m vanished tagged",
                         "@id -c listing --tag", "@id -c -b listing", "@id --warn=yes -c listing"});
  expectSameAsReference(
      {{"md5sum empty binary | md5sum -c", "$K id -c -z zero-listing | tr '\\0' '\\n'"},
       {"md5sum " + tree, "$K id -r tree"},
       {"md5sum " + tree + " tree/z/dangling tree/z/link", "$K id -j 1 -L --recursive tree"},
       {"md5sum nope tree/b", "$K id -r nope tree/b"},
       {"md5sum binary empty; wc --files0-from=names > /dev/null", "$K id --files0-from=names"},
       {"md5sum binary empty; wc --files0-from=- < names > /dev/null",
        "$K id --files0-from - < names"},
       {"wc --files0-from=nothing", "$K id --files0-from=nothing"},
       {"wc --files0-from=tree", "$K id --files0-from=tree"},
       {"wc --files0-from=\"it's gone\"", "$K id --files0-from=\"it's gone\""},
       {"md5sum " + tree +
            " > tl && md5sum -c tl && rm tree/d/x && printf changed > tree/b && "
            "md5sum -c tl",
        "$K id -r tree > tl && $K id -c tl && rm tree/d/x && printf changed > tree/b && "
        "$K id -j 2 -c tl"}});
}

TEST_F(KxstreamTool, AnUnreadableEntryIsNamedAndTheRestOfTheTreeStillDigested) {
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
  const std::string lock =
      "mkdir tree/locked && printf x > tree/locked/inside && printf y > tree/secret && "
      "chmod 000 tree/locked tree/secret && chmod 755 . && " +
      asUser;
  const std::string unlock = "; echo $?; chmod 700 tree/locked";
  expectSameAsReference(
      {{lock + "md5sum tree/A tree/b tree/d/e/f tree/d/x tree/locked tree/secret" + unlock,
        lock + "$K id -r tree" + unlock}});
}

}  // namespace
