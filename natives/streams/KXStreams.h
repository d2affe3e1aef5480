#ifndef KX_STREAMS_H
#define KX_STREAMS_H

/// @file
/// KXStreams, the library's settings and factory; includes every stream kind's header.

#include "KXBasicGenericStream.h"
#include "KXCachedInputStream.h"
#include "KXCustomStream.h"
#include "KXDescriptorStream.h"
#include "KXExport.h"
#include "KXFileStream.h"
#include "KXMemStream.h"
#include "KXStreamArray.h"
#include "KXTempStream.h"

/// The library's front door: the two process-wide settings, and a create operation for every
/// kind. The settings are set once, before streams are created; they are plain bytes read
/// without synchronisation. A created stream is not initialised: the caller calls init() before
/// the first transfer and ends the stream with close(), which also frees it. Each create
/// operation passes its arguments to the kind's constructor and throws what that throws.
class KX_EXPORT KXStreams {
 public:
  /// Does nothing: every operation is static.
  KXStreams() = default;
  /// Does nothing.
  KXStreams(const KXStreams&) = default;
  /// Does nothing.
  KXStreams& operator=(const KXStreams&) = default;
  /// Does nothing.
  ~KXStreams() = default;

  /// Whether new streams validate strictly (1 by default): a kind that breaks the protocol
  /// makes the operation throw, instead of being logged.
  static KXBool getStreamStrictMode();
  /// Sets strict validation for streams constructed from now on; existing streams keep theirs.
  static void setStreamStrictMode(KXBool strict);
  /// Whether file streams may cut files (1 by default): to an output range's ceiling, and
  /// after rewrites.
  static KXBool allowFileTruncation();
  /// Allows or forbids file streams to cut files, from their next use of the setting on.
  static void setAllowFileTruncation(KXBool allow);

  /// A new KXStreamArray over the first @p count of @p streams (borrowed).
  static KXStreamArray* createStreamArray(int count, KXBasicGenericStream** streams);
  /// A new KXStreamArray over @p first then @p second (borrowed).
  static KXStreamArray* createStreamArray(KXBasicGenericStream* first,
                                          KXBasicGenericStream* second);
  /// A new KXNullStream.
  static KXNullStream* createNullStream();
  /// A new KXTempStream keeping up to @p memSize bytes in memory.
  static KXTempStream* createTempStream(int memSize);
  /// A new KXCachedInputStream over @p stream (borrowed) with a cache of @p size bytes.
  static KXCachedInputStream* createCachedInputStream(KXBasicGenericStream* stream, long size);
  /// A new KXFileStream over @p length bytes (-1: to the end) of the file at @p path from
  /// offset @p start, in a file kept no longer than @p maxLength (-1: no ceiling).
  static KXFileStream* createPartialFileStream(const char* path, const char* perm, long bufferSize,
                                               KXFileStream::EIoFlag mode, long start, long length,
                                               long maxLength);
  /// A new KXFileStream over the whole file at @p path, or standard output or error; @p flag
  /// marks the reading half of an in-out stream (pass 0).
  static KXFileStream* createFileStream(const char* path, const char* perm, long bufferSize,
                                        KXFileStream::EIoFlag mode, KXBool flag);
  /// A new KXDescriptorStream over @p descriptor, which the client holds: the stream closes it
  /// only when @p owned is 1.
  static KXDescriptorStream* createDescriptorStream(int descriptor,
                                                    KXDescriptorStream::EIoFlag mode,
                                                    long bufferSize, KXBool owned);
  /// A new KXDescriptorStream over @p path, which init() opens and close() closes.
  static KXDescriptorStream* createDescriptorStream(const char* path,
                                                    KXDescriptorStream::EIoFlag mode,
                                                    long bufferSize);
  /// A new KXMemStream over @p length bytes at @p buffer (borrowed).
  static KXMemStream* createMemStream(char* buffer, unsigned long length,
                                      KXMemStream::EIoFlag mode);
  /// A new KXCustomStream over the five callbacks (each may be null) and @p userData
  /// (borrowed).
  static KXCustomStream* createCustomStream(KXStreamProc prepareBuffer, KXStreamProc complete,
                                            KXStreamProc setMarker, KXStreamProc resetMarker,
                                            KXStreamProc close, const void* userData);

 protected:
  static KXBool sStrictValidationMode;  ///< The strict validation setting.
  static KXBool sAllowFileTruncation;   ///< The file truncation setting.
};

extern "C" {
/// Prints "KXStreams_Test" on standard output; returns what puts returned.
KX_EXPORT int KXStreams_Test(void);
}

#endif
