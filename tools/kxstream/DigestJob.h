#ifndef KXSTREAM_DIGEST_JOB_H
#define KXSTREAM_DIGEST_JOB_H

#include <string>

namespace kxstream {

// One input on its way through the workers: the source names it (or describes why it cannot
// be had), a worker digests it, and the calling thread prints the outcome in list order.
struct DigestJob {
  std::string name;
  bool skip = false;    // nothing to digest: the job only carries its problem
  std::string digest;   // set when the digest succeeded; empty means the input failed
  std::string problem;  // the message for standard error, without the program name
  int errorCode = 0;    // the system's error number of a failed open or read, else 0
};

// Digests job.name unless job.skip is set; a failure becomes job.problem ("NAME: REASON", the
// name quoted as coreutils quotes it) and job.errorCode. Never throws.
void runDigestJob(DigestJob& job) noexcept;

}  // namespace kxstream

#endif
