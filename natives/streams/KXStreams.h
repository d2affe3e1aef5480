#ifndef KX_STREAMS_H
#define KX_STREAMS_H

#include "KXBasicGenericStream.h"
#include "KXCachedInputStream.h"
#include "KXCustomStream.h"
#include "KXDescriptorStream.h"
#include "KXExport.h"
#include "KXFileStream.h"
#include "KXMemStream.h"
#include "KXStreamArray.h"
#include "KXTempStream.h"

// The library's front door: the two process-wide settings, and a create operation for every
// kind. The settings are set once, before streams are created; they are plain bytes read
// without synchronisation. A created stream is not initialised: the caller calls init() before
// the first transfer and ends the stream with close(), which also frees it.
class KX_EXPORT KXStreams {
 public:
  KXStreams() = default;
  KXStreams(const KXStreams&) = default;
  KXStreams& operator=(const KXStreams&) = default;
  ~KXStreams() = default;

  // Strict validation: copied into each stream when it is constructed.
  static KXBool getStreamStrictMode();
  static void setStreamStrictMode(KXBool strict);
  // Whether file streams cut files after rewrites.
  static KXBool allowFileTruncation();
  static void setAllowFileTruncation(KXBool allow);

  static KXStreamArray* createStreamArray(int count, KXBasicGenericStream** streams);
  static KXStreamArray* createStreamArray(KXBasicGenericStream* first,
                                          KXBasicGenericStream* second);
  static KXNullStream* createNullStream();
  static KXTempStream* createTempStream(int memSize);
  static KXCachedInputStream* createCachedInputStream(KXBasicGenericStream* stream, long size);
  static KXFileStream* createPartialFileStream(const char* path, const char* perm, long bufferSize,
                                               KXFileStream::EIoFlag mode, long start, long length,
                                               long maxLength);
  static KXFileStream* createFileStream(const char* path, const char* perm, long bufferSize,
                                        KXFileStream::EIoFlag mode, KXBool flag);
  // A stream over a descriptor the client holds (closed by the stream only when owned is 1),
  // or over a path the stream opens and owns; see KXDescriptorStream.
  static KXDescriptorStream* createDescriptorStream(int descriptor,
                                                    KXDescriptorStream::EIoFlag mode,
                                                    long bufferSize, KXBool owned);
  static KXDescriptorStream* createDescriptorStream(const char* path,
                                                    KXDescriptorStream::EIoFlag mode,
                                                    long bufferSize);
  static KXMemStream* createMemStream(char* buffer, unsigned long length,
                                      KXMemStream::EIoFlag mode);
  static KXCustomStream* createCustomStream(KXStreamProc prepareBuffer, KXStreamProc complete,
                                            KXStreamProc setMarker, KXStreamProc resetMarker,
                                            KXStreamProc close, const void* userData);

 protected:
  static KXBool sStrictValidationMode;
  static KXBool sAllowFileTruncation;
};

extern "C" {
// Prints "KXStreams_Test" on standard output; returns what puts returned.
KX_EXPORT int KXStreams_Test(void);
}

#endif
