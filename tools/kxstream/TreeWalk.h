#ifndef KXSTREAM_TREE_WALK_H
#define KXSTREAM_TREE_WALK_H

#include <fts.h>

#include <string>

#include "DigestJob.h"

namespace kxstream {

// Walks the tree under one root, handing out its regular files in a fixed order: the entries
// of each directory sorted by name (bytewise), a directory's files before the next sibling.
// Only the names of the directories on the current path are held, not the whole tree.
// Symbolic links inside the tree are skipped unless followLinks is set (a dangling one is then
// reported); the root is followed.
// A root that is not a directory is handed out as it is, whatever its type.
class TreeWalk {
 public:
  TreeWalk(std::string root, bool followLinks);
  ~TreeWalk();
  TreeWalk(const TreeWalk&) = delete;
  TreeWalk& operator=(const TreeWalk&) = delete;

  // The next file to digest, or a skipped job whose problem names an entry that cannot be
  // read; false at the end of the tree.
  bool next(DigestJob& job);

 private:
  FTS* mTree = nullptr;
  int mOpenError = 0;  // the tree could not be opened at all: reported once by next()
  std::string mRoot;
  bool mFollowLinks;
};

}  // namespace kxstream

#endif
