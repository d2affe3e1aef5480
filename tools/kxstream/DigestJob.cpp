#include "DigestJob.h"

#include <exception>
#include <new>

#include "Diagnostics.h"
#include "InputDigest.h"
#include "InputSource.h"
#include "QuotedName.h"

namespace kxstream {

void runDigestJob(DigestJob& job) noexcept {
  if (job.skip) {
    return;
  }
  std::string reason;
  try {
    job.digest = digestOfInput(job.name);
    return;
  } catch (const InputError& failure) {
    job.errorCode = failure.code();
    reason = failure.reason();
  } catch (const KXException& failure) {
    job.errorCode = failure.GetCode() > 0 ? static_cast<int>(failure.GetCode()) : 0;
    reason = reasonOf(failure);
  } catch (const std::bad_alloc&) {
    reason = "out of memory";
  } catch (const std::exception& failure) {
    reason = failure.what();
  }
  try {
    job.problem = quotedName(job.name) + ": " + reason;
  } catch (...) {
    job.problem.clear();  // no memory left even for the message: still counted as failed
  }
}

}  // namespace kxstream
