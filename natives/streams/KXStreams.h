#ifndef KX_STREAMS_H
#define KX_STREAMS_H

#include "KXBasicGenericStream.h"
#include "KXCustomStream.h"
#include "KXExport.h"
#include "KXFileStream.h"
#include "KXMemStream.h"

// The library's front door: the two process-wide settings. Set them once, before streams are
// created; they are plain bytes read without synchronisation.
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

 protected:
  static KXBool sStrictValidationMode;
  static KXBool sAllowFileTruncation;
};

extern "C" {
// Prints "KXStreams_Test" on standard output; returns what puts returned.
KX_EXPORT int KXStreams_Test(void);
}

#endif
