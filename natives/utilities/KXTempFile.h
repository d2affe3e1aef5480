#ifndef KX_TEMP_FILE_H
#define KX_TEMP_FILE_H

/// @file
/// KXTempFile, an anonymous temporary file owned by one object.

#include <cstdio>

#include "KXExport.h"

/// A new, empty, already unlinked temporary file opened for reading and writing, mode 0600, in
/// $TMPDIR when that is set and usable, else in /tmp. Nothing is left on disk once it is
/// closed, even after a crash. Not copyable: the object owns the file.
class KX_EXPORT KXTempFile {
 public:
  /// Creates and opens the file. Throws the errno value (an int) when no file can be made.
  KXTempFile();
  KXTempFile(const KXTempFile&) = delete;
  KXTempFile& operator=(const KXTempFile&) = delete;
  /// Closes the file, which releases its space.
  ~KXTempFile();

  /// The open file, owned by this object: do not fclose() it.
  FILE* getFile() const;

 protected:
  FILE* mFile = nullptr;  ///< The open file; closed by the destructor.
};

#endif
