#include "KXObjectGuid.h"

// Lower-case hexadecimal, the form md5sum prints.
char KXObjectGuid::GetFormat() const { return 'x'; }

KXObjectGuid::~KXObjectGuid() = default;

void KXObjectGuid::SetID(const char* text) {
  if (text == nullptr) {
    mID.clear();
  } else {
    mID = text;
  }
}

const char* KXObjectGuid::GetID() const { return mID.c_str(); }
