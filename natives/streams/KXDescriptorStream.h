#ifndef KX_DESCRIPTOR_STREAM_H
#define KX_DESCRIPTOR_STREAM_H

#include <cstdint>

#include "KXBasicGenericStream.h"
#include "KXExport.h"

/// A stream over any descriptor, read to its end or written as it stands: pipes, FIFOs,
/// sockets, terminals, character devices, files whose reported size is not what reading gives
/// (/proc, /sys) and regular files alike. It is the kind for every input the file stream cannot
/// describe, since the file stream trusts a file's reported size and needs to seek.
///
/// - Length: the file's size when the descriptor is a regular file whose size reading yields
///   (trustedLength() below), counted from the offset the descriptor stands at when init()
///   runs; -1 (unknown) otherwise, and always -1 for output.
/// - Marks and calcID work where the descriptor can seek; elsewhere SetMark() throws
///   KXMarkRequiredException (put a KXCachedInputStream in front for marks).
/// - Reads and writes interrupted by a signal (EINTR) are retried; a write moves every byte of
///   its transfer or fails with the system's errno.
/// - A descriptor the client hands in stays the client's unless it passes owned = 1; one the
///   stream opened from a path is the stream's. close() closes only an owned descriptor.
class KX_EXPORT KXDescriptorStream : public KXBasicGenericStream {
 public:
  /// The direction of the stream.
  enum EIoFlag : int {
    eIn = 0,  ///< Read the descriptor to its end.
    eOut = 1  ///< Write to the descriptor.
  };

  /// The per-descriptor state; the record's mUserData points at it.
  struct KXDescriptorInfo {
    int mDescriptor;       ///< -1 until a path is opened.
    KXBool mOwned;         ///< Close() closes the descriptor.
    KXBool mSeekable;      ///< Marks are possible.
    int64_t mBuffSize;     ///< Read buffer size, a whole multiple of 16384 once init() has run.
    int64_t mStartOffset;  ///< Descriptor offset of stream position 0 (seekable descriptors).
  };

  /// Over a descriptor the client already holds. Nothing is checked before init().
  KXDescriptorStream(int descriptor, EIoFlag mode, long bufferSize, KXBool owned);
  /// Over a path that init() opens: for reading (eIn), or for writing, created when missing and
  /// emptied when it is a regular file (eOut). The stream owns that descriptor.
  KXDescriptorStream(const char* path, EIoFlag mode, long bufferSize);

  /// Checks the arguments, opens the path if one was given, allocates the read buffer and
  /// reads the length. Throws KXParameterException (bad direction, buffer size, descriptor or
  /// path), KXFileSystemException with errno (the open or fstat failed: a closed descriptor
  /// gives EBADF) or KXOutOfMemException (12). On failure the stream keeps what it opened until
  /// its owner closes it.
  void init() override;

  /// Called before init(): an input then reads a regular file to the end it has when reading
  /// reaches it, not to its size at init(), as cat does with a file that is still growing; its
  /// length stays -1.
  void setFollowsGrowth(KXBool follows) { mFollowsGrowth = follows != 0 ? 1 : 0; }

  /// The size of the regular file open on the descriptor when reading it yields that size, or
  /// -1: not a regular file, or one on a file system whose sizes are made up (proc, sysfs,
  /// debugfs, tracefs, securityfs, configfs, cgroup), or fstat failed.
  static int64_t trustedLength(int descriptor);

 protected:
  /// Reads up to mTransferLen bytes into the stream's buffer (input), or points the record at
  /// nothing for the caller's bytes (output); returns 0 or the errno of the failed call.
  int _prepareBuffer() override;
  /// Writes the caller's mTransferLen bytes (output); nothing to do for input.
  int _complete() override;
  /// Remembers the position; KX_NOT_SUPPORTED_ERR when the descriptor cannot seek.
  int _setMarker() override;
  /// Seeks back to the mark; KX_NOT_SUPPORTED_ERR when the descriptor cannot seek.
  int _resetMarker() override;
  /// Frees the buffer and closes an owned descriptor; an owned output descriptor whose close
  /// fails reports the errno (bytes may not have reached the file).
  int _close() override;

 public:
  /// Throws KXFileSystemException (KX_FILESYSTEM_ERR) for an input stream.
  KXBool isWriteAllowed() override;
  /// Releases nothing: close() does.
  ~KXDescriptorStream() override;

 protected:
  EIoFlag mIoFlag;                     ///< The direction given to the constructor.
  KXDescriptorInfo mDescriptorInfo{};  ///< The state the record's mUserData points at.
  char* mReadBuffer = nullptr;         ///< The input buffer, allocated by init().
  char* mPath = nullptr;               ///< A copy of the path to open; null for a descriptor.
  KXBool mFollowsGrowth = 0;           ///< Set by setFollowsGrowth().

  /// Opens mPath for the stream's direction; throws KXFileSystemException with the errno.
  void openPath();
  /// Throws KXParameterException for a bad direction, buffer size, descriptor or path.
  void checkArguments() const;
  /// Sets mStreamLen, mSeekable and mStartOffset from the descriptor.
  void measure();
  /// One read into the buffer, EINTR retried; returns 0 or the errno.
  int readSome();
  /// Writes the whole transfer, EINTR retried; returns 0 or the errno.
  int writeAll();
};

#endif
