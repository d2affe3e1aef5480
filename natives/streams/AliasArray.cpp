#include "KXBasicGenericStream.h"
#include "kxos.h"

AliasArray::AliasArray(int count, Entry** entries, KXBool ownsEntries)
    : mCount(count), mEntries(entries), mOwnsEntries(ownsEntries) {}

AliasArray::~AliasArray() {
  if (mOwnsEntries != 0 && mEntries != nullptr) {
    for (int index = 0; index < mCount; ++index) {
      Entry* entry = mEntries[index];
      if (entry == nullptr) {
        continue;
      }
      if (entry->mBlock != nullptr) {
        kx_free(entry->mBlock);
        entry->mBlock = nullptr;
      }
      delete entry;
    }
  }
  delete[] mEntries;
}
