#include "KXShell.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <regex>

namespace kxtest {

std::string shellQuoted(const std::string& text) {
  std::string result = "'";
  for (const char c : text) {
    result += c == '\'' ? std::string("'\\''") : std::string(1, c);
  }
  return result + "'";
}

ShellOutcome Shell::run(const std::string& commandLine) const {
  const std::string script = "cd " + shellQuoted(mDir.path()) + " && K=" + shellQuoted(mTool) +
                             " && (" + commandLine + ")";
  const std::string line = "bash -c " + shellQuoted(script) + " >" +
                           shellQuoted(mDir.file(".out")) + " 2>" + shellQuoted(mDir.file(".err"));
  const int status = std::system(line.c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, fileContents(mDir.file(".out")),
          fileContents(mDir.file(".err"))};
}

namespace {

// The outcome of a command line of a pair, its @ words replaced by one side's tools.
ShellOutcome outcomeOf(const std::string& tool, const std::string& commandLine,
                       const std::vector<std::string>& tools) {
  static const std::regex words[] = {std::regex("@id\\b"), std::regex("@cat\\b"),
                                     std::regex("@cp\\b")};
  std::string line = commandLine;
  for (size_t index = 0; index < tools.size(); ++index) {
    line = std::regex_replace(line, words[index], tools[index]);
  }
  const TempDir dir;
  return Shell(dir, tool).run(line);
}

std::string described(const ShellOutcome& outcome) {
  return "exit " + std::to_string(outcome.exitCode) + "\n--- out\n" + outcome.out + "--- err\n" +
         outcome.err;
}

}  // namespace

void expectSameAsReference(const std::string& tool, const std::vector<ToolPair>& rows,
                           const std::string& setUp) {
  static const std::regex program("(^|\n)(md5sum|wc|cat|cp|dd|head): ");
  static const std::regex helpHint("Try 'md5sum --help'");
  const ShellOutcome prepared = outcomeOf(tool, setUp + "true", {});
  ASSERT_EQ(0, prepared.exitCode) << prepared.err;
  for (const ToolPair& row : rows) {
    ShellOutcome reference = outcomeOf(tool, setUp + row.reference, {"md5sum", "cat", "cp"});
    reference.err = std::regex_replace(reference.err, program, "$1kxstream: ");
    if (std::regex_search(reference.err, helpHint)) {
      reference.err = std::regex_replace(reference.err, helpHint, "Try 'kxstream id --help'");
      reference.exitCode = 2;
    }
    const std::string ours = row.ours.empty() ? row.reference : row.ours;
    EXPECT_TRUE(ours.find('@') != std::string::npos || ours.find("$K") != std::string::npos)
        << "kxstream not run: " << ours;
    EXPECT_EQ(described(reference),
              described(outcomeOf(tool, setUp + ours, {"$K id", "$K cat", "$K copy"})))
        << ours;
  }
}

}  // namespace kxtest
