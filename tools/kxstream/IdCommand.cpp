// kxstream id: the content identifier of each input, byte-identical to md5sum's output, and
// md5sum -c's verification of such a listing. Several files are digested at once on worker
// threads; lines still come in list order.

#include <algorithm>
#include <cstdio>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "CheckMode.h"
#include "ChecksumLine.h"
#include "Commands.h"
#include "Diagnostics.h"
#include "DigestJob.h"
#include "InputDigest.h"
#include "InputList.h"
#include "OrderedRunner.h"

namespace kxstream {

namespace {

struct IdOptions {
  bool check = false;
  LineStyle style;
  CheckOptions checking;
  InputList::Options inputs;
  size_t jobs = 1;
};

size_t defaultJobs() { return std::max(1U, std::thread::hardware_concurrency()); }

// md5sum's refusals of options that do not fit the mode, in md5sum's order.
void rejectMisplacedOptions(const Arguments& arguments, const IdOptions& options,
                            const std::string& binaryOrText) {
  if (options.style.tagged && binaryOrText == "--text") {
    throw UsageError("--tag does not support --text mode");
  }
  if (options.check && options.style.tagged) {
    throw UsageError("the --tag option is meaningless when verifying checksums");
  }
  if (options.check && !binaryOrText.empty()) {
    throw UsageError("the --binary and --text options are meaningless when verifying checksums");
  }
  for (const char* option : {"--recursive", "--files0-from"}) {
    if (options.check && arguments.has(option)) {
      throw UsageError(std::string("the ") + option +
                       " option is meaningless when verifying checksums");
    }
  }
  const CheckOptions& checking = options.checking;
  const std::pair<bool, const char*> checkOnly[] = {{checking.ignoreMissing, "--ignore-missing"},
                                                    {checking.statusOnly, "--status"},
                                                    {checking.warn, "--warn"},
                                                    {checking.quiet, "--quiet"},
                                                    {checking.strict, "--strict"}};
  for (const auto& [given, option] : checkOnly) {
    if (given && !options.check) {
      throw UsageError(std::string("the ") + option +
                       " option is meaningful only when verifying checksums");
    }
  }
  if (arguments.has("--dereference") && !options.inputs.recursive) {
    throw UsageError("the -L option is meaningful only with --recursive");
  }
  if (options.inputs.fromList && !arguments.operands.empty()) {
    throw UsageError("extra operand '" + arguments.operands.front() +
                     "'\nfile operands cannot be combined with --files0-from");
  }
}

IdOptions idOptionsOf(const Arguments& arguments) {
  IdOptions options;
  options.check = arguments.has("--check");
  const std::string binaryOrText = arguments.lastOf({"--binary", "--text"});
  options.style.binary = binaryOrText == "--binary";
  options.style.tagged = arguments.has("--tag");
  options.style.delimiter = arguments.has("--zero") ? '\0' : '\n';

  // --status, --warn and --quiet each cancel the other two, as in md5sum.
  const std::string verbosity = arguments.lastOf({"--status", "--warn", "--quiet"});
  CheckOptions& checking = options.checking;
  checking.statusOnly = verbosity == "--status";
  checking.warn = verbosity == "--warn";
  checking.quiet = verbosity == "--quiet";
  checking.strict = arguments.has("--strict");
  checking.ignoreMissing = arguments.has("--ignore-missing");
  checking.delimiter = options.style.delimiter;

  InputList::Options& inputs = options.inputs;
  inputs.operands = arguments.operands;
  inputs.fromList = arguments.has("--files0-from");
  inputs.listName = inputs.fromList ? arguments.values.at("--files0-from") : std::string();
  inputs.recursive = arguments.has("--recursive");
  inputs.followLinks = arguments.has("--dereference");
  rejectMisplacedOptions(arguments, options, binaryOrText);
  if (inputs.operands.empty() && !inputs.fromList) {
    inputs.operands.emplace_back(kStandardInputName);
  }

  const long long requested = arguments.count("-j", static_cast<long long>(defaultJobs()));
  if (requested < 1) {
    throw UsageError("-j needs at least one job");
  }
  options.jobs = static_cast<size_t>(requested);
  checking.workers = options.jobs;
  return options;
}

// Prints one listing line, or names the input that failed; false for a failed input.
bool publish(const DigestJob& job, const LineStyle& style) {
  if (job.digest.empty()) {
    reportProblem(job.problem);
    return false;
  }
  const std::string line = listingLine(job.digest, job.name, style);
  std::fwrite(line.data(), 1, line.size(), stdout);
  return true;
}

int printListing(const IdOptions& options) {
  InputList inputs(options.inputs);
  // A few operands need no more workers than there are of them; a walk or a list may be long.
  const bool fewOperands = !options.inputs.fromList && !options.inputs.recursive;
  const size_t workers =
      fewOperands ? std::min(options.jobs, options.inputs.operands.size()) : options.jobs;
  OrderedRunner<DigestJob> runner(workers, runDigestJob);
  bool allSucceeded = true;
  runner.run([&](DigestJob& job) { return inputs.next(job); },
             [&](DigestJob& job) { allSucceeded = publish(job, options.style) && allSucceeded; });
  return allSucceeded ? kExitSuccess : kExitInputFailed;
}

}  // namespace

int runId(const Arguments& arguments) {
  const IdOptions options = idOptionsOf(arguments);
  int status = options.check ? checkListings(options.inputs.operands, options.checking)
                             : printListing(options);
  if (!finishStandardInput()) {
    status = kExitInputFailed;
  }
  return finishStandardOutput(status);
}

}  // namespace kxstream
