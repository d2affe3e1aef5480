#ifndef ST_MALLOC_H
#define ST_MALLOC_H

/// @file
/// StMalloc, a scoped block from malloc.

#include "KXExport.h"

/// A scoped block from malloc: freed by the destructor unless released. Not copyable: the
/// object owns the block.
class KX_EXPORT StMalloc {
 public:
  /// Allocates @p size bytes (0 may give a null block). Throws KXOutOfMemException (code 12)
  /// for a negative size or when the block cannot be had. @p flag is reserved.
  StMalloc(int size, int flag);
  StMalloc(const StMalloc&) = delete;
  StMalloc& operator=(const StMalloc&) = delete;
  /// Frees the block unless it was released.
  ~StMalloc();

  /// The block, still owned by this object; null after release().
  void* get() const;
  /// Hands the block to the caller, who frees it with free (or kx_free); the object then owns
  /// nothing.
  void* release();

 protected:
  void* mBlock = nullptr;  ///< The block, or null once released.
};

#endif
