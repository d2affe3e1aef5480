#ifndef KX_SHELL_H
#define KX_SHELL_H

#include <string>
#include <utility>
#include <vector>

#include "KXTestSupport.h"

namespace kxtest {

// The text in single quotes, safe as one word of a shell command line.
std::string shellQuoted(const std::string& text);

struct ShellOutcome {
  int exitCode;  // -1 when the command line was killed by a signal
  std::string out;
  std::string err;
};

// Runs bash command lines inside a temporary directory, capturing both output streams. The
// tool under test is $K in every command line.
class Shell {
 public:
  Shell(const TempDir& dir, std::string tool) : mDir(dir), mTool(std::move(tool)) {}

  ShellOutcome run(const std::string& commandLine) const;

 private:
  const TempDir& mDir;
  std::string mTool;
};

// One job done by the reference tools and by kxstream ($K). In both lines @id, @cat and @cp
// stand for md5sum, cat and cp in the reference's and for $K id, $K cat and $K copy in ours;
// a row made of one line runs it on both sides.
struct ToolPair {
  ToolPair(const char* line) : reference(line) {}
  ToolPair(std::string line) : reference(std::move(line)) {}
  ToolPair(std::string referenceLine, std::string oursLine)
      : reference(std::move(referenceLine)), ours(std::move(oursLine)) {}

  std::string reference;
  std::string ours;  // "" for the reference's line
};

// Runs (tool as $K) each pair's two lines in fresh directories prepared by `setUp` (a command line
// ending in "&& ") and expects the same exit status, output and messages; the reference's messages
// get kxstream's name, and its "Try 'md5sum --help'" becomes ours with usage's exit status 2.
void expectSameAsReference(const std::string& tool, const std::vector<ToolPair>& rows,
                           const std::string& setUp = "");

}  // namespace kxtest

#endif
