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

// The options a command accepts: those that take a value ("-n", "--start") and plain flags,
// and the short spellings of long ones ("-c" for "--check").
struct OptionSet {
  std::set<std::string> valued;
  std::set<std::string> flags;
  std::map<std::string, std::string> aliases;
};

// Options are keyed by their long name when they have one.
struct Arguments {
  std::vector<std::string> operands;
  std::map<std::string, std::string> values;
  std::set<std::string> flags;
  std::vector<std::string> order;  // every option given, in command-line order

  bool has(const std::string& option) const;
  // The option's value as a count (decimal, 0 or more), or fallback when it was not given.
  long long count(const std::string& option, long long fallback) const;
  // Which of the options was given last, or "" when none was.
  std::string lastOf(const std::set<std::string>& options) const;
};

// Parses as GNU getopt_long does: "--opt VALUE", "--opt=VALUE", an unambiguous prefix of a long
// option, "-nVALUE", "-n VALUE" and short flags run together ("-cw"); "--" ends the options,
// "-" alone is an operand (standard input), and options may follow operands.
Arguments parseArguments(const std::vector<std::string>& words, const OptionSet& options);

}  // namespace kxstream

#endif
