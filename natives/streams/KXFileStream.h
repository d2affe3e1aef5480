#ifndef KX_FILE_STREAM_H
#define KX_FILE_STREAM_H

#include <cstdint>
#include <cstdio>

#include "KXBasicGenericStream.h"
#include "KXExport.h"

// A stream over an operating-system file descriptor: a whole file or a byte range of one, read,
// written or both, or the process's standard output or standard error. Nothing is opened before
// init(); close() releases the descriptor, the buffer and the reading half. It needs a regular
// file, whose size and offsets hold: for pipes, devices and pseudo-files (/proc, /sys) use
// `KXDescriptorStream` (KXStreams::createDescriptorStream). Standard output and error are
// written straight to their descriptors, after what the process buffered there through stdio,
// and interrupted writes are retried: a byte reported written has been written.
class KX_EXPORT KXFileStream : public KXBasicGenericStream {
 public:
  enum EIoFlag : int { eIn = 0, eOut = 1, eInOut = 2, eStdout = 3, eStderr = 4 };

  // The per-file state; the record's mUserData points at it for file-backed streams.
  struct KXFileInfo {
    int mFileDesc;           // 0: no file; -1: the open failed
    char* mFileBuffer;       // the read buffer of an input stream; not owned
    int64_t mBuffSize;       // whole multiples of 16384 once init() has run
    int64_t mStartOffset;    // file offset of stream position 0
    int64_t mFilePos;        // the stream position at which the descriptor stands
    int64_t mMaxFileLength;  // ceiling on the file's length; -1: none
    KXBool mPartial;
  };

  // An in-out stream's record points here; the reading half holds the real file state.
  struct KXInOutInfo {
    KXFileStream* mReader;
  };

  // A byte range of a file: starting at streamPos, streamLen bytes long (-1: to the end), in a
  // file that an output stream keeps no longer than inMaxFileLength (-1: no ceiling).
  KXFileStream(const char* inPath, const char* inPerm, long pBuffSize, EIoFlag inIoFlag,
               long streamPos, long streamLen, long inMaxFileLength);
  // A whole file, or standard output or error (path and permission string may then be null).
  // inIsReader marks the reading half that an in-out stream makes for itself. An append
  // permission ("a", "ab", "a+", "ab+", "a+b") puts the stream at the file's end once, at
  // init(), without O_APPEND: writes land at the stream's position, over anything another
  // writer appended meanwhile. Give such a file one writer at a time.
  KXFileStream(const char* inPath, const char* inPerm, long pBuffSize, EIoFlag inIoFlag,
               unsigned char inIsReader);

  // Validates the arguments and opens the stream. On failure the stream keeps what it opened
  // until its owner closes it.
  void init() override;

 protected:
  int _prepareBuffer() override;
  int _complete() override;
  int _setMarker() override;
  int _resetMarker() override;
  int _close() override;

 public:
  // Throws KXFileSystemException for an input-only stream.
  KXBool isWriteAllowed() override;
  // Releases only what close() did not (a stream deleted without being closed).
  ~KXFileStream() override;

  KXBool ValidatePath(const char* path, EIoFlag mode) const;
  KXBool ValidatePermission(const char* perm, EIoFlag mode);
  long getFileSize(const char* path, const char* perm);
  // Rounds mBuffSize up to a whole multiple of 16384.
  void OptimizeBufferSize();

 protected:
  int prepareInBuffer();
  int prepareInOutBuffer();
  int completeOut();
  int completeInOut();
  int stdioComplete();
  int stderrComplete();
  int SetMarkerInOrOut();
  int resetMarkerInOrOut();
  int SetMarkerInOut();
  int resetMarkerInOut();

  EIoFlag mIoFlag;
  KXFileInfo mFileInfo{};
  char* mReadBuffer = nullptr;
  KXInOutInfo mInOutInfo{};
  char* mPath = nullptr;
  char* mPerm = nullptr;
  KXFileStream* mReader = nullptr;
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
