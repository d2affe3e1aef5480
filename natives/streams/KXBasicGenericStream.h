#ifndef KX_BASIC_GENERIC_STREAM_H
#define KX_BASIC_GENERIC_STREAM_H

#include <cstddef>
#include <cstdint>

#include "KXExport.h"
#include "KXObjectGuid.h"

struct KXEngineSteps;

typedef unsigned char KXBool;

// Statuses of the protocol operations: 0 is success; a positive value is an errno passed through.
constexpr int KX_PARAM_ERR = -10006;
constexpr int KX_WRONG_STREAM_ERR = -10012;
constexpr int KX_FILESYSTEM_ERR = -10027;
constexpr int KX_NOT_SUPPORTED_ERR = -10201;

// A transfer count that asks for as many bytes as the kind will give.
constexpr int64_t KX_UNLIMITED_TRANSFER = INT64_MAX;

// Which protocol call is being validated.
enum EStreamContext {
  ePrepareBufferProc = 1,
  eCompleteProc = 2,
  eSetMarkerProc = 3,
  eResetMarkerProc = 4,
  eCloseProc = 5
};

// The record shared by the engine, the stream kinds and custom-stream callbacks. Callbacks
// compiled elsewhere read and write it in place, so its layout is fixed.
struct KXStreamInfo {
  int16_t mVersion;
  const void* mUserData;
  int64_t mStreamPos;
  int64_t mMarkerPos;
  int64_t mStreamLen;  // -1: unknown
  KXBool mAtEOF;
  KXBool mReadFlag;  // 1 input, 0 output
  char* mBuffer;
  int64_t mTransferLen;
};

static_assert(sizeof(KXStreamInfo) == 64, "KXStreamInfo layout is fixed");
static_assert(offsetof(KXStreamInfo, mVersion) == 0, "KXStreamInfo layout is fixed");
static_assert(offsetof(KXStreamInfo, mUserData) == 8, "KXStreamInfo layout is fixed");
static_assert(offsetof(KXStreamInfo, mStreamPos) == 16, "KXStreamInfo layout is fixed");
static_assert(offsetof(KXStreamInfo, mMarkerPos) == 24, "KXStreamInfo layout is fixed");
static_assert(offsetof(KXStreamInfo, mStreamLen) == 32, "KXStreamInfo layout is fixed");
static_assert(offsetof(KXStreamInfo, mAtEOF) == 40, "KXStreamInfo layout is fixed");
static_assert(offsetof(KXStreamInfo, mReadFlag) == 41, "KXStreamInfo layout is fixed");
static_assert(offsetof(KXStreamInfo, mBuffer) == 48, "KXStreamInfo layout is fixed");
static_assert(offsetof(KXStreamInfo, mTransferLen) == 56, "KXStreamInfo layout is fixed");

typedef long (*KXStreamProc)(KXStreamInfo*);

// The engine every stream kind derives from. Clients drive a stream only through the public
// operations below; the engine calls the kind through the protected protocol operations,
// checks what each call did to the record (strictly, or by logging) and turns failure
// statuses into exceptions. A stream lives on the heap and is ended with close(), which
// releases the kind's media and deletes the object.
class KX_EXPORT KXBasicGenericStream {
 public:
  KXBasicGenericStream();
  KXBasicGenericStream(const KXBasicGenericStream&) = delete;
  KXBasicGenericStream& operator=(const KXBasicGenericStream&) = delete;

  virtual void init();

 protected:
  virtual int _prepareBuffer();
  virtual int _complete();
  virtual int _setMarker();
  virtual int _resetMarker();
  virtual int _close();

 public:
  virtual KXBool isWriteAllowed();
  virtual ~KXBasicGenericStream() = 0;

  KXStreamInfo* GetInfo() const;
  // One half of a transfer: the kind's buffer and count in the record. An input kind that
  // reports a negative count fails it with KXStreamException (code 0), in every mode.
  KXStreamInfo* prepareBuffer();
  KXStreamInfo* complete();
  int read(void* buffer, int length);
  // Hands buffer to the kind in one transfer and returns the count written. The record does not
  // keep pointing at buffer afterwards.
  long write(void* buffer, int length);

  void SetMark();
  // Goes to offset and marks it there; 0 is reset(). Moving forward skips the bytes without
  // counting them as read, so in strict mode closing an input stream of known length then
  // throws KXStreamMismatchException ("CloseProc: mStreamLen"): reset() before close(), or
  // read the bytes to skip. A stream array returns its members to their own marks instead of
  // going to offset (see KXStreamArray).
  void SetMark(long offset);
  void resetMark();
  void reset();
  void close();

  long GetStreamPos() const;
  long GetMarker() const;
  long GetLength() const;
  KXBool isAtEOF() const;
  void SetReadable();
  void SetWritable();
  // The record as one line; the caller frees it with delete[].
  char* toString();

  int noErrProc();
  int noReadPrepBuffer();

  // Content identifier: the MD5 digest of the bytes from the current position up to maxLength
  // bytes or the end. calcID leaves the stream where it was. A negative maxLength digests at
  // most 2147483647 bytes: for longer content pass the length (GetLength() - GetStreamPos(),
  // or LONG_MAX when it is unknown). A cached input stream ends at a cache boundary (see
  // KXCachedInputStream).
  void calcID(KXObjectGuid& id, long maxLength);
  long calcIDWithChangeMark(KXObjectGuid& id, long maxLength);

  void validateStreamState(EStreamContext context);
  void saveStreamState();
  void reportValidationError(const char* what);
  void reportBytecountMismatchError(const char* what);

 protected:
  // The engine's own steps; defined beside the engine and not part of the binary interface.
  friend struct KXEngineSteps;

  KXBool mStrictMode;
  KXStreamInfo* mSavedStreamInfo = nullptr;
  int64_t mByteCount = 0;
  KXBool mEngineSetsMarker = 0;
  KXStreamInfo mStreamInfo{};
  KXBool mInited = 0;
  KXBool mLoggingEnabled = 1;
};

// The output stream that discards what it is given and only counts it.
class KX_EXPORT KXNullStream : public KXBasicGenericStream {
 public:
  KXNullStream();
  ~KXNullStream() override;

 protected:
  int _prepareBuffer() override;
  int _complete() override;
  int _setMarker() override;
  int _resetMarker() override;
};

// A small owning array of entries, each an object whose first member is a block from
// kx_malloc. Kept for binary compatibility; the library itself never creates one.
class KX_EXPORT AliasArray {
 public:
  struct Entry {
    void* mBlock;
  };

  // Takes the pointer array (from new[]) and, when ownsEntries is set, its entries (from new).
  AliasArray(int count, Entry** entries, KXBool ownsEntries);
  AliasArray(const AliasArray&) = delete;
  AliasArray& operator=(const AliasArray&) = delete;
  virtual ~AliasArray();

 protected:
  void* mReserved = nullptr;
  int mCount;
  Entry** mEntries;
  KXBool mOwnsEntries;
};

#endif
