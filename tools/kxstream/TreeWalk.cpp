#include "TreeWalk.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include "QuotedName.h"

namespace kxstream {

namespace {

int byName(const FTSENT** left, const FTSENT** right) {
  return std::strcmp((*left)->fts_name, (*right)->fts_name);
}

void describeFailure(DigestJob& job, const std::string& path, int error) {
  job.name = path;
  job.skip = true;
  job.problem = quotedName(path) + ": " + std::strerror(error);
}

}  // namespace

TreeWalk::TreeWalk(std::string root, bool followLinks)
    : mRoot(std::move(root)), mFollowLinks(followLinks) {
  const int options = FTS_NOCHDIR | FTS_COMFOLLOW | (followLinks ? FTS_LOGICAL : FTS_PHYSICAL);
  char* roots[] = {mRoot.data(), nullptr};
  mTree = fts_open(roots, options, byName);
  if (mTree == nullptr) {
    mOpenError = errno;
  }
}

TreeWalk::~TreeWalk() {
  if (mTree != nullptr) {
    fts_close(mTree);
  }
}

bool TreeWalk::next(DigestJob& job) {
  if (mTree == nullptr) {
    if (mOpenError == 0) {
      return false;
    }
    describeFailure(job, mRoot, mOpenError);
    mOpenError = 0;
    return true;
  }
  for (;;) {
    errno = 0;
    const FTSENT* entry = fts_read(mTree);
    if (entry == nullptr) {
      if (errno == 0) {
        return false;
      }
      describeFailure(job, mRoot, errno);
      fts_close(mTree);
      mTree = nullptr;
      return true;
    }
    const bool isRoot = entry->fts_level == FTS_ROOTLEVEL;
    switch (entry->fts_info) {
      case FTS_F:
        job.name = entry->fts_path;
        return true;
      case FTS_DNR:
      case FTS_ERR:
      case FTS_NS:
        describeFailure(job, entry->fts_path, entry->fts_errno);
        return true;
      case FTS_DC:
        describeFailure(job, entry->fts_path, ELOOP);
        return true;
      case FTS_SLNONE:
        // A link that was to be followed leads nowhere: the file it names cannot be read.
        if (mFollowLinks || isRoot) {
          job.name = entry->fts_path;
          return true;
        }
        break;
      case FTS_D:
      case FTS_DP:
        break;
      default:
        // Links not followed, devices, FIFOs and sockets inside the tree are not data files;
        // named as the root they are read like any input.
        if (isRoot) {
          job.name = entry->fts_path;
          return true;
        }
    }
  }
}

}  // namespace kxstream
