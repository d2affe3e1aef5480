#ifndef KX_BASIC_GENERIC_STREAM_H
#define KX_BASIC_GENERIC_STREAM_H

/// @file
/// The stream engine KXBasicGenericStream, the shared record KXStreamInfo, the status codes,
/// and the null stream.

#include <cstddef>
#include <cstdint>

#include "KXExport.h"
#include "KXObjectGuid.h"

struct KXEngineSteps;

/// A boolean of one byte holding exactly 0 or 1 (the engine compares with 1).
typedef unsigned char KXBool;

// Statuses of the protocol operations: 0 is success; a positive value is an errno passed through.
/// Status: an invalid argument, buffer or count was handed to a stream kind.
constexpr int KX_PARAM_ERR = -10006;
/// Status: a transfer in a direction the stream was not opened for.
constexpr int KX_WRONG_STREAM_ERR = -10012;
/// Status: a file operation failed without an errno, or a file stream may not be written.
constexpr int KX_FILESYSTEM_ERR = -10027;
/// Status: the kind cannot set or return to a mark; the engine turns it into
/// KXMarkRequiredException.
constexpr int KX_NOT_SUPPORTED_ERR = -10201;

/// A transfer count that asks for as many bytes as the kind will give.
constexpr int64_t KX_UNLIMITED_TRANSFER = INT64_MAX;

/// Which protocol call is being validated (KXBasicGenericStream::validateStreamState()).
enum EStreamContext {
  ePrepareBufferProc = 1,  ///< After the kind's _prepareBuffer.
  eCompleteProc = 2,       ///< After the kind's _complete.
  eSetMarkerProc = 3,      ///< After the kind's _setMarker.
  eResetMarkerProc = 4,    ///< After the kind's _resetMarker.
  eCloseProc = 5           ///< After the kind's _close.
};

/// The record shared by the engine, the stream kinds and custom-stream callbacks. Callbacks
/// compiled elsewhere read and write it in place, so its layout is fixed: 64 bytes, fields at
/// offsets 0, 8, 16, 24, 32, 40, 41, 48 and 56. It lives inside its stream and is gone when
/// close() succeeds; so is every pointer into it.
struct KXStreamInfo {
  /// Layout version, 3; no kind or callback may change it.
  int16_t mVersion;
  /// The kind's context (for a custom stream: the caller's); the engine never reads it.
  const void* mUserData;
  /// Position of the next byte to transfer; moved by the kind and by the mark operations.
  int64_t mStreamPos;
  /// Position recorded by the last SetMark(); resetMark() returns here.
  int64_t mMarkerPos;
  int64_t mStreamLen;  ///< Total length in bytes; -1: unknown.
  /// Set by an input kind when its source is exhausted (possibly with the last bytes).
  KXBool mAtEOF;
  KXBool mReadFlag;  ///< 1 input, 0 output.
  /// The bytes of the current transfer; for input, memory of the kind valid until complete().
  char* mBuffer;
  /// Byte count of the current transfer: the most wanted before prepareBuffer(), the count
  /// delivered (input) or to write (output) after it.
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

/// A custom-stream callback: works on the stream's record and returns a status (0 success,
/// anything else a failure that the engine throws as KXStreamException; only the low 32 bits
/// count).
typedef long (*KXStreamProc)(KXStreamInfo*);

/// The engine every stream kind derives from. Clients drive a stream only through the public
/// operations below; the engine calls the kind through the protected protocol operations,
/// checks what each call did to the record (strictly, or by logging) and turns failure
/// statuses into exceptions. A stream lives on the heap and is ended with close(), which
/// releases the kind's media and deletes the object. One thread at a time per stream.
///
/// Order: construct, init() once, transfers and marks, close(). Transfers and marks before
/// init() throw KXSDKInternalException. Exceptions carry the traces of the operations they
/// passed ("KXBasicGenericStream.read", ...).
class KX_EXPORT KXBasicGenericStream {
 public:
  /// A stream of no kind yet: record at its initial values (position 0, length -1), strict
  /// mode copied from KXStreams::getStreamStrictMode().
  KXBasicGenericStream();
  KXBasicGenericStream(const KXBasicGenericStream&) = delete;
  KXBasicGenericStream& operator=(const KXBasicGenericStream&) = delete;

  /// Opens the stream; call once after construction, before any transfer. A kind checks its
  /// arguments and acquires its medium first, and throws on failure (the stream then still
  /// needs close()). A second call does nothing.
  virtual void init();

 protected:
  /// Protocol: the kind's half of prepareBuffer(). Input: deliver at most mTransferLen bytes
  /// at mBuffer, advance mStreamPos by the count, set mAtEOF at the end. Output: may offer a
  /// buffer. Returns a status; here 0, delivering nothing.
  virtual int _prepareBuffer();
  /// Protocol: the kind's half of complete(). Output: write mTransferLen bytes from mBuffer,
  /// advance mStreamPos by the count written and leave it in mTransferLen. Input: release the
  /// buffer, position unchanged. Returns a status; here 0.
  virtual int _complete();
  /// Protocol: make the medium able to return to the current position, without moving it.
  /// Returns a status; here KX_NOT_SUPPORTED_ERR (no markers).
  virtual int _setMarker();
  /// Protocol: reposition the medium so that the next transfer starts at mMarkerPos. Returns a
  /// status; here KX_NOT_SUPPORTED_ERR (no markers).
  virtual int _resetMarker();
  /// Protocol: release everything the kind holds (descriptors, buffers, temporary files).
  /// Returns a status; here 0. The engine deletes the object only after success.
  virtual int _close();

 public:
  /// Whether the stream may be written: 1 here. A kind that refuses writing throws instead of
  /// returning 0 (the file stream: KXFileSystemException). write() calls it first.
  virtual KXBool isWriteAllowed();
  /// Releases only the kind's bookkeeping memory, never its medium: end a stream with close().
  virtual ~KXBasicGenericStream() = 0;

  /// The stream's own record, writable through the pointer (a hand-driven consumer sets
  /// mTransferLen there). Valid until close() succeeds.
  KXStreamInfo* GetInfo() const;
  /// First half of a transfer: asks the kind for a buffer. Input: set mTransferLen to the most
  /// bytes wanted first; then use mTransferLen bytes at mBuffer. Returns the record. Throws
  /// KXStreamException with the kind's status, or a validation exception in strict mode; an
  /// input kind that reports a negative count fails with KXStreamException (code 0), in every
  /// mode.
  KXStreamInfo* prepareBuffer();
  /// Second half of a transfer: hands the buffer back to the kind (output: writes mTransferLen
  /// bytes from mBuffer). Returns the record; throws as prepareBuffer() does.
  KXStreamInfo* complete();
  /// Switches the stream to input and reads up to @p length bytes into @p buffer; returns the
  /// count read, less than @p length only at the end of the stream. Throws
  /// KXParameterException for a null buffer or negative length, KXStreamException on a failed
  /// transfer (bytes read by earlier transfers of the call stay in @p buffer).
  int read(void* buffer, int length);
  /// Switches the stream to output and hands @p length bytes of @p buffer to the kind in one
  /// transfer, without copying; returns the count the kind took. The record does not keep
  /// pointing at @p buffer afterwards. Throws KXParameterException for a null buffer or
  /// negative length, KXStreamException when the kind fails (for a file: the errno, such as
  /// ENOSPC), KXFileSystemException from an input-only file stream.
  long write(void* buffer, int length);

  /// Marks the current position, so that resetMark() returns here; replaces any earlier mark.
  /// Throws KXMarkRequiredException when the kind has no markers, KXStreamException when it
  /// fails.
  void SetMark();
  /// Moves to @p offset and marks it there; 0 is reset(). Throws KXParameterException for a
  /// negative offset, and as resetMark(). Moving forward skips the bytes without counting them
  /// as read, so in strict mode closing an input stream of known length then throws
  /// KXStreamMismatchException ("CloseProc: mStreamLen"): reset() before close(), or read the
  /// bytes to skip. A stream array returns its members to their own marks instead of going to
  /// @p offset (see KXStreamArray).
  void SetMark(long offset);
  /// Returns to the marked position and clears the end flag. Throws KXMarkRequiredException
  /// when the kind has no markers and the position is not the mark, KXStreamException when the
  /// kind fails.
  void resetMark();
  /// Returns to position 0 (the mark becomes 0); throws as resetMark().
  void reset();
  /// Releases the kind's medium and deletes the object: neither the stream nor any pointer
  /// into its record may be used afterwards. When the kind fails (KXStreamException) or strict
  /// validation refuses (an input stream of known length read part way:
  /// KXStreamMismatchException) it throws and the object stays alive; what was released stays
  /// released, and delete frees the rest.
  void close();

  /// The current position (mStreamPos). Throws KXStreamException when it is negative.
  long GetStreamPos() const;
  /// The current position as well (not the mark): the value to give SetMark(long) to return
  /// here later.
  long GetMarker() const;
  /// The stream's length in bytes, or -1 when unknown.
  long GetLength() const;
  /// 1 when an input stream reached its end, else 0.
  KXBool isAtEOF() const;
  /// Switches the record to input (read() does this itself).
  void SetReadable();
  /// Switches the record to output (write() does this itself).
  void SetWritable();
  /// The record as one line for logs; a new array that the caller frees with delete[].
  char* toString();

  /// A ready-made protocol operation for kinds: does nothing and returns 0.
  int noErrProc();
  /// A ready-made _prepareBuffer for output-only kinds: returns 0 for an output stream; throws
  /// KXNotSupportedException for an input stream.
  int noReadPrepBuffer();

  /// Stores in @p id the MD5 digest (md5sum's text) of the bytes from the current position up
  /// to @p maxLength bytes or the end, and leaves the stream where it was; the mark is
  /// replaced by that position. A negative @p maxLength digests at most 2147483647 bytes: for
  /// longer content pass the length (GetLength() - GetStreamPos(), or LONG_MAX when it is
  /// unknown). A cached input stream ends at a cache boundary (see KXCachedInputStream). The
  /// stream must be in input mode (SetReadable(); else KXSDKInternalException). Throws
  /// KXMarkRequiredException on a kind without markers, and as prepareBuffer().
  void calcID(KXObjectGuid& id, long maxLength);
  /// As calcID(), but the stream is left after the last byte digested (consumed) and the mark
  /// is untouched; works on kinds without markers. Returns the count digested. Throws
  /// KXOutOfMemException when no digest context can be made.
  long calcIDWithChangeMark(KXObjectGuid& id, long maxLength);

  /// Checks the record against the snapshot after the protocol call @p context; a breach is
  /// reported through reportValidationError() or reportBytecountMismatchError().
  void validateStreamState(EStreamContext context);
  /// Takes the snapshot of the record that validateStreamState() compares with.
  void saveStreamState();
  /// Reports a broken rule named @p what: throws KXStreamValidationException in strict mode,
  /// otherwise logs a warning when tracing.
  void reportValidationError(const char* what);
  /// Reports a byte count that disagrees with the length, named @p what: throws
  /// KXStreamMismatchException in strict mode, otherwise logs a warning when tracing.
  void reportBytecountMismatchError(const char* what);

 protected:
  // The engine's own steps; defined beside the engine and not part of the binary interface.
  friend struct KXEngineSteps;

  /// Strict validation for this stream, fixed at construction.
  KXBool mStrictMode;
  /// The snapshot validation compares with; freed by close().
  KXStreamInfo* mSavedStreamInfo = nullptr;
  /// Input bytes delivered, counted against mStreamLen by validation.
  int64_t mByteCount = 0;
  /// When set, SetMark() records the mark itself, also in strict mode.
  KXBool mEngineSetsMarker = 0;
  /// The record; GetInfo() points here.
  KXStreamInfo mStreamInfo{};
  /// Set once by init().
  KXBool mInited = 0;
  /// Per-stream switch for debug tracing and lenient validation reports.
  KXBool mLoggingEnabled = 1;
};

/// The output stream that discards what it is given and only counts it: its position is the
/// number of bytes accepted since creation or the last reset(). Reading throws
/// KXNotSupportedException. Created by KXStreams::createNullStream().
class KX_EXPORT KXNullStream : public KXBasicGenericStream {
 public:
  /// An output stream at position 0 of unknown length.
  KXNullStream();
  ~KXNullStream() override;

 protected:
  int _prepareBuffer() override;
  int _complete() override;
  int _setMarker() override;
  int _resetMarker() override;
};

/// A small owning array of entries, each an object whose first member is a block from
/// kx_malloc. Kept for binary compatibility; the library itself never creates one.
class KX_EXPORT AliasArray {
 public:
  /// One entry: its block is freed with kx_free when the array owns its entries.
  struct Entry {
    void* mBlock;  ///< A block from kx_malloc, or null.
  };

  /// Takes ownership of @p entries (@p count pointers from new[]) and, when @p ownsEntries is
  /// set, of each entry (from new) and its block.
  AliasArray(int count, Entry** entries, KXBool ownsEntries);
  AliasArray(const AliasArray&) = delete;
  AliasArray& operator=(const AliasArray&) = delete;
  /// Frees what the array owns.
  virtual ~AliasArray();

 protected:
  void* mReserved = nullptr;  ///< Unused; keeps the layout.
  int mCount;                 ///< Number of entries.
  Entry** mEntries;           ///< The pointer array, owned.
  KXBool mOwnsEntries;        ///< Whether the entries are owned too.
};

#endif
