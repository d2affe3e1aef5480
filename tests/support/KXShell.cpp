#include "KXShell.h"

#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace kxtest {

std::string shellQuoted(const std::string& text) {
  std::string result = "'";
  for (const char c : text) {
    result += c == '\'' ? std::string("'\\''") : std::string(1, c);
  }
  return result + "'";
}

std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

ShellOutcome Shell::run(const std::string& commandLine) const {
  const std::string script = "cd " + shellQuoted(mDir.path()) + " && K=" + shellQuoted(mTool) +
                             " && (" + commandLine + ")";
  const std::string line = "bash -c " + shellQuoted(script) + " >" +
                           shellQuoted(mDir.file(".out")) + " 2>" + shellQuoted(mDir.file(".err"));
  const int status = std::system(line.c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, slurp(mDir.file(".out")),
          slurp(mDir.file(".err"))};
}

}  // namespace kxtest
