#ifndef ST_MALLOC_H
#define ST_MALLOC_H

#include "KXExport.h"

// A scoped block from malloc: freed by the destructor unless released. For a size above 0 the
// constructor provides the block or throws KXOutOfMemException (code 12); a released block is
// freed by its new owner with free (or kx_free).
class KX_EXPORT StMalloc {
 public:
  StMalloc(int size, int flag);
  StMalloc(const StMalloc&) = delete;
  StMalloc& operator=(const StMalloc&) = delete;
  ~StMalloc();

  void* get() const;
  void* release();

 protected:
  void* mBlock = nullptr;
};

#endif
