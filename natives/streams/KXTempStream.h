#ifndef KX_TEMP_STREAM_H
#define KX_TEMP_STREAM_H

#include "KXBasicGenericStream.h"
#include "KXExport.h"

class KXTempFile;

// Scratch storage written first and read back later, for content of unknown size. The first
// bytes stay in memory; the rest spills into a temporary file created only when the memory part
// overflows. Reading hands out the memory part in place and the file part through a 16 KiB
// staging buffer. Marks return to any position, which is how a client turns from writing to
// reading. Never validated strictly and never traced.
class KX_EXPORT KXTempStream : public KXBasicGenericStream {
 public:
  struct KXTempStreamInfo {
    char* mMemBuffer;
    int mMemBufferLen;
    char* mReadBuffer;
    int mReadBufferLen;
    KXTempFile* mTempFile;
  };

  // memSize: bytes kept in memory before spilling; init() refuses a negative value.
  explicit KXTempStream(int memSize);

  void init() override;
  // Replaces the temporary file with a new one; 0, or the errno that prevented it.
  int tempCreate();

 protected:
  int _prepareBuffer() override;
  int _complete() override;
  int _setMarker() override;
  int _resetMarker() override;
  int _close() override;

 public:
  // Releases only what close() did not (a stream deleted without being closed).
  ~KXTempStream() override;

 protected:
  enum class FileDirection { kNone, kReading, kWriting };

  KXTempStreamInfo mTempStreamInfo;
  int mMemSize;

  void zeroGapBeforePosition();
  int readFromFile(int64_t count);
  int writeToFile(const char* bytes, int64_t count);
  bool turnFileTo(FileDirection direction);
  bool seekFileToPosition();
  void recoverFile();
  void releaseAll();

  // The C library needs a positioning call whenever a file turns between reading and writing.
  FileDirection mFileDirection = FileDirection::kNone;
};

#endif
