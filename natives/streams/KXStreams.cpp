#include "KXStreams.h"

#include <cstdio>

KXBool KXStreams::sStrictValidationMode = 1;
KXBool KXStreams::sAllowFileTruncation = 1;

KXBool KXStreams::getStreamStrictMode() { return sStrictValidationMode; }

void KXStreams::setStreamStrictMode(KXBool strict) { sStrictValidationMode = strict; }

KXBool KXStreams::allowFileTruncation() { return sAllowFileTruncation; }

void KXStreams::setAllowFileTruncation(KXBool allow) { sAllowFileTruncation = allow; }

extern "C" int KXStreams_Test(void) { return puts("KXStreams_Test"); }
