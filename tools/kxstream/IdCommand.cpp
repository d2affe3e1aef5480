// kxstream id: the content identifier of each input, byte-identical to md5sum's output.
// Several files are digested at once on worker threads; lines still come in argument order.

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "Commands.h"
#include "Diagnostics.h"
#include "InputSource.h"

namespace kxstream {

namespace {

// What one input gave: its line for standard output, or the reason it failed.
struct Outcome {
  bool failed = false;
  std::string text;
};

// md5sum marks a name holding a backslash or a line break with a leading backslash and
// escapes those characters, so that every line still parses.
std::string lineFor(const std::string& digest, const std::string& name) {
  if (name.find_first_of("\\\n\r") == std::string::npos) {
    return digest + "  " + name + "\n";
  }
  std::string escaped;
  for (const char c : name) {
    switch (c) {
      case '\\':
        escaped += "\\\\";
        break;
      case '\n':
        escaped += "\\n";
        break;
      case '\r':
        escaped += "\\r";
        break;
      default:
        escaped += c;
    }
  }
  return "\\" + digest + "  " + escaped + "\n";
}

// Standard input may be named more than once; only one worker may read it at a time.
std::mutex standardInputLock;

std::string digestOfInput(const std::string& name) {
  std::unique_lock<std::mutex> hold(standardInputLock, std::defer_lock);
  if (name == NamedInput::kStandardInput) {
    hold.lock();
  }
  NamedInput input(name, InputOptions{});
  std::string digest = digestToEnd(input.stream());
  input.finish();
  return digest;
}

Outcome identify(const std::string& name) {
  try {
    return {false, lineFor(digestOfInput(name), name)};
  } catch (const InputError& failure) {
    return {true, failure.reason()};
  } catch (const KXException& failure) {
    return {true, reasonOf(failure)};
  } catch (const std::bad_alloc&) {
    return {true, "out of memory"};
  }
}

// Prints one outcome; returns false for a failed input.
bool publish(const std::string& name, const Outcome& outcome) {
  if (outcome.failed) {
    reportFailure(name, outcome.text);
    return false;
  }
  std::fwrite(outcome.text.data(), 1, outcome.text.size(), stdout);
  return true;
}

// Workers take inputs in argument order; the caller's thread publishes each outcome as soon
// as every earlier one is out.
class ParallelDigests {
 public:
  ParallelDigests(const std::vector<std::string>& names, size_t workers)
      : mNames(names), mOutcomes(names.size()) {
    mWorkers.reserve(workers);
    try {
      for (size_t index = 0; index < workers; ++index) {
        mWorkers.emplace_back([this] { work(); });
      }
    } catch (...) {
      // No thread to be had: the ones started finish what is left before the error goes on.
      joinAll();
      throw;
    }
  }

  ~ParallelDigests() { joinAll(); }

  ParallelDigests(const ParallelDigests&) = delete;
  ParallelDigests& operator=(const ParallelDigests&) = delete;

  bool publishInOrder() {
    bool allSucceeded = true;
    for (size_t index = 0; index < mNames.size(); ++index) {
      std::unique_lock<std::mutex> hold(mLock);
      mReady.wait(hold, [&] { return mOutcomes[index].has_value(); });
      const Outcome outcome = std::move(*mOutcomes[index]);
      hold.unlock();
      allSucceeded = publish(mNames[index], outcome) && allSucceeded;
    }
    return allSucceeded;
  }

 private:
  void work() {
    for (;;) {
      size_t index = 0;
      {
        const std::lock_guard<std::mutex> hold(mLock);
        if (mNext == mNames.size()) {
          return;
        }
        index = mNext++;
      }
      Outcome outcome = identify(mNames[index]);
      {
        const std::lock_guard<std::mutex> hold(mLock);
        mOutcomes[index] = std::move(outcome);
      }
      mReady.notify_one();
    }
  }

  void joinAll() {
    for (std::thread& worker : mWorkers) {
      if (worker.joinable()) {
        worker.join();
      }
    }
  }

  const std::vector<std::string>& mNames;
  std::vector<std::optional<Outcome>> mOutcomes;
  std::vector<std::thread> mWorkers;
  std::mutex mLock;
  std::condition_variable mReady;
  size_t mNext = 0;
};

size_t defaultJobs() { return std::max(1U, std::thread::hardware_concurrency()); }

}  // namespace

int runId(const Arguments& arguments) {
  std::vector<std::string> names = arguments.operands;
  if (names.empty()) {
    names.emplace_back(NamedInput::kStandardInput);
  }
  const long long requested = arguments.count("-j", static_cast<long long>(defaultJobs()));
  if (requested < 1) {
    throw UsageError("-j needs at least one job");
  }
  const size_t workers = std::min(names.size(), static_cast<size_t>(requested));
  bool allSucceeded = true;
  if (workers <= 1) {
    for (const std::string& name : names) {
      allSucceeded = publish(name, identify(name)) && allSucceeded;
    }
  } else {
    ParallelDigests digests(names, workers);
    allSucceeded = digests.publishInOrder();
  }
  if (std::count(names.begin(), names.end(), NamedInput::kStandardInput) != 0) {
    // md5sum's last word when it read a standard input that was never there.
    allSucceeded = closeStandardInput("standard input") && allSucceeded;
  }
  return finishStandardOutput(allSucceeded ? kExitSuccess : kExitInputFailed);
}

}  // namespace kxstream
