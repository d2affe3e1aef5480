#include "CheckMode.h"

#include <strings.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ChecksumLine.h"
#include "Diagnostics.h"
#include "DigestJob.h"
#include "InputDigest.h"
#include "OrderedRunner.h"
#include "QuotedName.h"

namespace kxstream {

namespace {

struct CheckItem {
  DigestJob job;
  std::string expected;
  unsigned long long lineNumber = 0;
  bool malformed = false;
};

using CheckRunner = OrderedRunner<CheckItem>;

// "1 line is" / "2 lines are": the closing warnings count in words.
std::string counted(unsigned long long count, const char* one, const char* many) {
  return "WARNING: " + std::to_string(count) + " " + (count == 1 ? one : many);
}

void printLine(const std::string& line) { std::fwrite(line.data(), 1, line.size(), stdout); }

// One listing, read line by line while its files are digested.
class ListingCheck {
 public:
  ListingCheck(const std::string& listName, const CheckOptions& options, ChecksumLineParser& parser)
      : mOptions(options),
        mParser(parser),
        mFromStandardInput(listName == kStandardInputName),
        mShownName(quotedName(mFromStandardInput ? "standard input" : listName)) {
    if (mFromStandardInput) {
      mList = stdin;
      noteStandardInputRead();
      return;
    }
    mList = std::fopen(listName.c_str(), "r");
    if (mList == nullptr) {
      mOpenError = quotedName(listName) + ": " + std::strerror(errno);
    }
  }

  ~ListingCheck() {
    if (mList != nullptr && !mFromStandardInput) {
      std::fclose(mList);
    }
    std::free(mLine);
  }

  ListingCheck(const ListingCheck&) = delete;
  ListingCheck& operator=(const ListingCheck&) = delete;

  bool run(CheckRunner& runner) {
    if (mList == nullptr) {
      reportProblem(mOpenError);
      return false;
    }
    runner.run([this](CheckItem& item) { return nextItem(item); },
               [this](CheckItem& item) { publish(item); });
    const bool readFailed = std::ferror(mList) != 0;
    if (mFromStandardInput) {
      std::clearerr(mList);
    }
    if (readFailed) {
      reportProblem(mShownName + ": read error");
      return false;
    }
    summarise();
    return mProperlyFormatted && mMismatched == 0 && mUnreadable == 0 &&
           (!mOptions.strict || mMisformatted == 0) && (!mOptions.ignoreMissing || mMatched);
  }

 private:
  // The next line that is neither empty nor a comment, parsed; false at the end of the list.
  bool nextItem(CheckItem& item) {
    while (!mEnded) {
      ++mLineNumber;
      const ssize_t length = getdelim(&mLine, &mCapacity, mOptions.delimiter, mList);
      if (length <= 0) {
        mEnded = true;
        return false;
      }
      mEnded = std::feof(mList) != 0 || std::ferror(mList) != 0;
      if (mLine[0] == '#') {
        continue;
      }
      auto size = static_cast<size_t>(length);
      size -= mLine[size - 1] == mOptions.delimiter ? 1 : 0;
      size -= size > 0 && mLine[size - 1] == '\r' ? 1 : 0;
      if (size == 0) {
        continue;
      }
      const auto entry = mParser.parse(std::string(mLine, size), mFromStandardInput);
      item.lineNumber = mLineNumber;
      item.malformed = !entry;
      item.job.skip = item.malformed;
      if (entry) {
        mProperlyFormatted = true;
        item.job.name = entry->name;
        item.expected = entry->digest;
      }
      return true;
    }
    return false;
  }

  void publish(const CheckItem& item) {
    if (item.malformed) {
      ++mMisformatted;
      if (mOptions.warn) {
        reportProblem(mShownName + ": " + std::to_string(item.lineNumber) +
                      ": improperly formatted MD5 checksum line");
      }
      return;
    }
    const DigestJob& job = item.job;
    if (job.digest.empty()) {
      if (mOptions.ignoreMissing && job.errorCode == ENOENT) {
        return;
      }
      reportProblem(job.problem);
      ++mUnreadable;
      verdict(job.name, "FAILED open or read");
      return;
    }
    if (strcasecmp(job.digest.c_str(), item.expected.c_str()) != 0) {
      ++mMismatched;
      verdict(job.name, "FAILED");
      return;
    }
    mMatched = true;
    if (!mOptions.quiet) {
      verdict(job.name, "OK");
    }
  }

  void verdict(const std::string& name, const char* text) const {
    if (!mOptions.statusOnly) {
      printLine(verdictLine(name, text, mOptions.delimiter));
    }
  }

  void summarise() const {
    if (!mProperlyFormatted) {
      reportProblem(mShownName + ": no properly formatted checksum lines found");
      return;
    }
    if (mOptions.statusOnly) {
      return;
    }
    if (mMisformatted != 0) {
      reportProblem(
          counted(mMisformatted, "line is improperly formatted", "lines are improperly formatted"));
    }
    if (mUnreadable != 0) {
      reportProblem(
          counted(mUnreadable, "listed file could not be read", "listed files could not be read"));
    }
    if (mMismatched != 0) {
      reportProblem(counted(mMismatched, "computed checksum did NOT match",
                            "computed checksums did NOT match"));
    }
    if (mOptions.ignoreMissing && !mMatched) {
      reportProblem(mShownName + ": no file was verified");
    }
  }

  const CheckOptions& mOptions;
  ChecksumLineParser& mParser;
  const bool mFromStandardInput;
  const std::string mShownName;
  std::FILE* mList = nullptr;
  std::string mOpenError;
  char* mLine = nullptr;
  size_t mCapacity = 0;
  unsigned long long mLineNumber = 0;
  bool mEnded = false;
  bool mProperlyFormatted = false;
  bool mMatched = false;
  unsigned long long mMisformatted = 0;
  unsigned long long mUnreadable = 0;
  unsigned long long mMismatched = 0;
};

}  // namespace

int checkListings(const std::vector<std::string>& listNames, const CheckOptions& options) {
  CheckRunner runner(options.workers, [](CheckItem& item) { runDigestJob(item.job); });
  // Like md5sum, the listing form that the first line fixes holds for every list of the run.
  ChecksumLineParser parser;
  bool allVerified = true;
  for (const std::string& name : listNames) {
    ListingCheck check(name, options, parser);
    allVerified = check.run(runner) && allVerified;
  }
  return allVerified ? kExitSuccess : kExitInputFailed;
}

}  // namespace kxstream
