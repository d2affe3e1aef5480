#ifndef KX_SHELL_H
#define KX_SHELL_H

#include <string>
#include <utility>

#include "KXTestSupport.h"

namespace kxtest {

// The text in single quotes, safe as one word of a shell command line.
std::string shellQuoted(const std::string& text);
// The whole content of a file ("" when it cannot be read).
std::string slurp(const std::string& path);

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
  ShellOutcome tool(const std::string& arguments) const { return run("$K " + arguments); }

 private:
  const TempDir& mDir;
  std::string mTool;
};

}  // namespace kxtest

#endif
