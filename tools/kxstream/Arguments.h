#ifndef KXSTREAM_ARGUMENTS_H
#define KXSTREAM_ARGUMENTS_H

#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace kxstream {

// A mistake in the command line: reported with a hint to --help, exit code 2.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The options a command accepts: those that take a value ("-n", "--start") and plain flags.
struct OptionSet {
  std::set<std::string> valued;
  std::set<std::string> flags;
};

struct Arguments {
  std::vector<std::string> operands;
  std::map<std::string, std::string> values;
  std::set<std::string> flags;

  bool has(const std::string& option) const;
  // The option's value as a count (decimal, 0 or more), or fallback when it was not given.
  long long count(const std::string& option, long long fallback) const;
};

// Accepts "--opt VALUE", "--opt=VALUE", "-nVALUE" and "-n VALUE"; "--" ends the options and
// "-" alone is an operand (standard input).
Arguments parseArguments(const std::vector<std::string>& words, const OptionSet& options);

}  // namespace kxstream

#endif
