#ifndef KX_TEMP_FILE_H
#define KX_TEMP_FILE_H

#include <cstdio>

#include "KXExport.h"

// A new, empty, already unlinked temporary file opened for reading and writing, mode 0600, in
// $TMPDIR when that is set and usable, else in /tmp. The constructor throws the errno value
// (an int) when no file can be made; the destructor closes the file.
class KX_EXPORT KXTempFile {
 public:
  KXTempFile();
  KXTempFile(const KXTempFile&) = delete;
  KXTempFile& operator=(const KXTempFile&) = delete;
  ~KXTempFile();

  FILE* getFile() const;

 protected:
  FILE* mFile = nullptr;
};

#endif
