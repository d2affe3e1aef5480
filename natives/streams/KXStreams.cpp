#include "KXStreams.h"

#include <cstdio>

KXBool KXStreams::sStrictValidationMode = 1;
KXBool KXStreams::sAllowFileTruncation = 1;

KXBool KXStreams::getStreamStrictMode() { return sStrictValidationMode; }

void KXStreams::setStreamStrictMode(KXBool strict) { sStrictValidationMode = strict; }

KXBool KXStreams::allowFileTruncation() { return sAllowFileTruncation; }

void KXStreams::setAllowFileTruncation(KXBool allow) { sAllowFileTruncation = allow; }

// The create operations check nothing and open nothing: each kind checks its own arguments in
// its constructor or its init(). A constructor that throws leaves nothing allocated.

KXStreamArray* KXStreams::createStreamArray(int count, KXBasicGenericStream** streams) {
  return new KXStreamArray(count, streams);
}

KXStreamArray* KXStreams::createStreamArray(KXBasicGenericStream* first,
                                            KXBasicGenericStream* second) {
  return new KXStreamArray(first, second);
}

KXNullStream* KXStreams::createNullStream() { return new KXNullStream(); }

KXTempStream* KXStreams::createTempStream(int memSize) { return new KXTempStream(memSize); }

KXCachedInputStream* KXStreams::createCachedInputStream(KXBasicGenericStream* stream, long size) {
  return new KXCachedInputStream(stream, size);
}

KXFileStream* KXStreams::createPartialFileStream(const char* path, const char* perm,
                                                 long bufferSize, KXFileStream::EIoFlag mode,
                                                 long start, long length, long maxLength) {
  return new KXFileStream(path, perm, bufferSize, mode, start, length, maxLength);
}

KXFileStream* KXStreams::createFileStream(const char* path, const char* perm, long bufferSize,
                                          KXFileStream::EIoFlag mode, KXBool flag) {
  return new KXFileStream(path, perm, bufferSize, mode, flag);
}

KXDescriptorStream* KXStreams::createDescriptorStream(int descriptor,
                                                      KXDescriptorStream::EIoFlag mode,
                                                      long bufferSize, KXBool owned) {
  return new KXDescriptorStream(descriptor, mode, bufferSize, owned);
}

KXDescriptorStream* KXStreams::createDescriptorStream(const char* path,
                                                      KXDescriptorStream::EIoFlag mode,
                                                      long bufferSize) {
  return new KXDescriptorStream(path, mode, bufferSize);
}

KXMemStream* KXStreams::createMemStream(char* buffer, unsigned long length,
                                        KXMemStream::EIoFlag mode) {
  return new KXMemStream(buffer, length, mode);
}

KXCustomStream* KXStreams::createCustomStream(KXStreamProc prepareBuffer, KXStreamProc complete,
                                              KXStreamProc setMarker, KXStreamProc resetMarker,
                                              KXStreamProc close, const void* userData) {
  return new KXCustomStream(prepareBuffer, complete, setMarker, resetMarker, close, userData);
}

extern "C" int KXStreams_Test(void) { return puts("KXStreams_Test"); }
