#ifndef KX_FILE_STREAM_H
#define KX_FILE_STREAM_H

/// @file
/// KXFileStream, a whole file or a byte range of one, or standard output or error.

#include <cstdint>
#include <cstdio>

#include "KXBasicGenericStream.h"
#include "KXExport.h"

/// A stream over an operating-system file descriptor: a whole file or a byte range of one, read,
/// written or both, or the process's standard output or standard error. Nothing is opened before
/// init(); close() releases the descriptor, the buffer and the reading half.
///
/// Its view of a file is the size stat reports when init() runs and a descriptor that can seek,
/// so it is right only for regular files whose size is what reading them yields: a pipe, a device
/// or a pseudo-file (/proc, /sys) gives an empty or a short stream. Use KXDescriptorStream
/// (KXStreams::createDescriptorStream) for pipes, FIFOs, sockets, terminals, character devices,
/// files on proc- or sysfs-like file systems, and for a descriptor the client already holds.
/// Append permissions ("a", "a+", ...) place the stream at the end once, at init(), without
/// O_APPEND: bytes another writer appends afterwards can be overwritten; give such a file one
/// writer at a time. Standard output and error are written straight to their descriptors, after
/// what the process buffered there through stdio, and interrupted writes are retried: a byte
/// reported written has been written.
class KX_EXPORT KXFileStream : public KXBasicGenericStream {
 public:
  /// What the stream serves.
  enum EIoFlag : int {
    eIn = 0,      ///< Read a file (or a range); permission "r" or "rb".
    eOut = 1,     ///< Write a file (or a range); any permission but "r" and "rb".
    eInOut = 2,   ///< Read and write one file, through a reading half of its own.
    eStdout = 3,  ///< Write to standard output; no path needed.
    eStderr = 4   ///< Write to standard error; no path needed.
  };

  /// The per-file state; the record's mUserData points at it for file-backed streams.
  struct KXFileInfo {
    int mFileDesc;           ///< 0: no file; -1: the open failed.
    char* mFileBuffer;       ///< The read buffer of an input stream; not owned.
    int64_t mBuffSize;       ///< Whole multiples of 16384 once init() has run.
    int64_t mStartOffset;    ///< File offset of stream position 0.
    int64_t mFilePos;        ///< The stream position at which the descriptor stands.
    int64_t mMaxFileLength;  ///< Ceiling on the file's length; -1: none.
    KXBool mPartial;         ///< Made by the range constructor.
  };

  /// An in-out stream's record points here; the reading half holds the real file state.
  struct KXInOutInfo {
    KXFileStream* mReader;  ///< The reading half, owned by the stream.
  };

  /// A byte range of a file: starting at @p streamPos, @p streamLen bytes long (-1: to the
  /// end), in a file that an output stream keeps no longer than @p inMaxFileLength (-1: no
  /// ceiling). The path and permission string are copied; init() checks everything.
  KXFileStream(const char* inPath, const char* inPerm, long pBuffSize, EIoFlag inIoFlag,
               long streamPos, long streamLen, long inMaxFileLength);
  /// A whole file, or standard output or error (path and permission string may then be null).
  /// @p inIsReader marks the reading half that an in-out stream makes for itself: pass 0.
  /// @p pBuffSize is the read buffer's size, rounded up to a multiple of 16384.
  KXFileStream(const char* inPath, const char* inPerm, long pBuffSize, EIoFlag inIoFlag,
               unsigned char inIsReader);

  /// Validates the arguments and opens the stream. Throws KXParameterException for a bad path,
  /// permission, buffer size or range, KXFileSystemException (errno, message naming the path)
  /// when the file cannot be opened, sized or positioned, KXOutOfMemException (code 12). On
  /// failure the stream keeps what it opened until its owner closes it.
  void init() override;

 protected:
  int _prepareBuffer() override;
  int _complete() override;
  int _setMarker() override;
  int _resetMarker() override;
  int _close() override;

 public:
  /// Returns 1; throws KXFileSystemException (KX_FILESYSTEM_ERR) for an input-only stream.
  KXBool isWriteAllowed() override;
  /// Releases only what close() did not (a stream deleted without being closed).
  ~KXFileStream() override;

  /// Returns 1 when @p path suits @p mode (non-empty for file modes); throws
  /// KXParameterException otherwise.
  KXBool ValidatePath(const char* path, EIoFlag mode) const;
  /// Returns 1 when @p perm is one of the fopen-style strings @p mode accepts (letter case
  /// ignored); throws KXParameterException otherwise.
  KXBool ValidatePermission(const char* perm, EIoFlag mode);
  /// The size of the file at @p path in bytes; throws KXFileSystemException (errno) when it
  /// cannot be read. @p perm is not used.
  long getFileSize(const char* path, const char* perm);
  /// Rounds mBuffSize up to a whole multiple of 16384.
  void OptimizeBufferSize();

 protected:
  /// _prepareBuffer of an input stream: reads into the stream's buffer. Returns a status.
  int prepareInBuffer();
  /// _prepareBuffer of an in-out stream: reads through the reading half. Returns a status.
  int prepareInOutBuffer();
  /// _complete of an output stream: writes the transfer at the position. Returns a status.
  int completeOut();
  /// _complete of an in-out stream: reading or writing, by direction. Returns a status.
  int completeInOut();
  /// _complete of a standard output stream. Returns a status.
  int stdioComplete();
  /// _complete of a standard error stream. Returns a status.
  int stderrComplete();
  /// _setMarker of a file-backed stream. Returns a status.
  int SetMarkerInOrOut();
  /// _resetMarker of a file-backed stream: moves the descriptor. Returns a status.
  int resetMarkerInOrOut();
  /// _setMarker of an in-out stream. Returns a status.
  int SetMarkerInOut();
  /// _resetMarker of an in-out stream. Returns a status.
  int resetMarkerInOut();

  /// What the stream serves, fixed at construction.
  EIoFlag mIoFlag;
  /// The file state (mUserData of a file-backed stream).
  KXFileInfo mFileInfo{};
  /// The read buffer of an input stream, owned.
  char* mReadBuffer = nullptr;
  /// The reading half's address (mUserData of an in-out stream).
  KXInOutInfo mInOutInfo{};
  /// Copy of the path, owned; null when none was given.
  char* mPath = nullptr;
  /// Copy of the permission string, owned; null when none was given.
  char* mPerm = nullptr;
  /// The reading half of an in-out stream, owned.
  KXFileStream* mReader = nullptr;
  /// This stream is the reading half of an in-out stream.
  KXBool mIsReader;

 private:
  void initFileBacked();
  void initInput();
  void initOutput();
  void initInOut();
  void checkOutputRange() const;
  void placeRange(int64_t size);
  void limitOutputLength(int64_t size);
  void placeAppendStart();
  void seekToStart();
  int resynchronise();
  int writeToStandardStream(FILE* stream);
  void releaseOwnResources();
  KXFileInfo* fileInfo() const;
};

#endif
