#ifndef KX_TEMP_STREAM_H
#define KX_TEMP_STREAM_H

/// @file
/// KXTempStream, scratch storage in memory that spills into a temporary file.

#include "KXBasicGenericStream.h"
#include "KXExport.h"

class KXTempFile;

/// Scratch storage written first and read back later, for content of unknown size. The first
/// bytes stay in memory; the rest spills into a temporary file created only when the memory part
/// overflows. Reading hands out the memory part in place and the file part through a 16 KiB
/// staging buffer. Marks return to any position, which is how a client turns from writing to
/// reading (reset(), then SetReadable()). Never validated strictly and never traced. A failed
/// spill (disk full) is a KXStreamException from write() with the errno.
class KX_EXPORT KXTempStream : public KXBasicGenericStream {
 public:
  /// The memory part, the staging buffer and the file; the record's mUserData points here.
  struct KXTempStreamInfo {
    char* mMemBuffer;       ///< The memory part, owned.
    int mMemBufferLen;      ///< Its size in bytes.
    char* mReadBuffer;      ///< The staging buffer for the file part, owned.
    int mReadBufferLen;     ///< Its size in bytes.
    KXTempFile* mTempFile;  ///< The temporary file, owned; null until the first spill.
  };

  /// @p memSize: bytes kept in memory before spilling; init() refuses a negative value.
  explicit KXTempStream(int memSize);

  /// Allocates the memory part and the staging buffer. Throws KXParameterException for a
  /// negative size, KXOutOfMemException (code 12) when memory cannot be had.
  void init() override;
  /// Replaces the temporary file with a new one; 0, or the errno that prevented it.
  int tempCreate();

 protected:
  int _prepareBuffer() override;
  int _complete() override;
  int _setMarker() override;
  int _resetMarker() override;
  int _close() override;

 public:
  /// Releases only what close() did not (a stream deleted without being closed).
  ~KXTempStream() override;

 protected:
  /// Which way the temporary file last moved: the C library needs a positioning call whenever a
  /// file turns between reading and writing.
  enum class FileDirection { kNone, kReading, kWriting };

  /// The storage (mUserData).
  KXTempStreamInfo mTempStreamInfo;
  /// Bytes kept in memory, as given to the constructor.
  int mMemSize;

  /// Zeros the memory part between the bytes written and the position, so that a gap left by a
  /// forward mark reads as zeros.
  void zeroGapBeforePosition();
  /// Reads up to @p count bytes of the file part into the staging buffer; 0 or a status.
  int readFromFile(int64_t count);
  /// Writes @p count bytes to the file part and flushes them; 0 or a status.
  int writeToFile(const char* bytes, int64_t count);
  /// Makes the file ready to move in @p direction; false when the positioning call failed.
  bool turnFileTo(FileDirection direction);
  /// Puts the file offset at the stream position less the memory part; false on failure.
  bool seekFileToPosition();
  /// After a refused file transfer: drops stdio's buffer and error flag and puts the file
  /// offset back where the stream position says.
  void recoverFile();
  /// Frees the memory part, the staging buffer and the temporary file.
  void releaseAll();

  FileDirection mFileDirection = FileDirection::kNone;  ///< The file's last direction.
};

#endif
