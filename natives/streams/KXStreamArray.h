#ifndef KX_STREAM_ARRAY_H
#define KX_STREAM_ARRAY_H

#include "KXBasicGenericStream.h"
#include "KXExport.h"

// Several input streams read one after the other as one. The members stay the caller's: the
// array never initialises, closes or deletes them, and reaches them only through their public
// engine operations, so any kind (an array included) can be a member. SetMark(long offset) with
// an offset above 0 does not go to offset: it returns every member to its own last mark, as
// resetMark() does, while the array's position reads offset. Come back to a place with SetMark()
// and resetMark(), and to the start with reset().
class KX_EXPORT KXStreamArray : public KXBasicGenericStream {
 public:
  // The first count pointers of streams, copied. A negative count or a null member is refused
  // with KXParameterException.
  KXStreamArray(int count, KXBasicGenericStream** streams);
  KXStreamArray(KXBasicGenericStream* first, KXBasicGenericStream* second);
  // count further arguments, each a KXBasicGenericStream*.
  KXStreamArray(int count, ...);

 protected:
  int _prepareBuffer() override;
  int _complete() override;
  int _setMarker() override;
  int _resetMarker() override;

 public:
  // Frees the list of members; the members themselves are left as they are.
  ~KXStreamArray() override;

 protected:
  KXBasicGenericStream** mStreams = nullptr;
  int mCurrentStream = 0;
  int mStreamCount;
  int mMarkedStream = -1;

 private:
  void allocateList();
  void checkMembers();
  void checkIsInput() const;
  bool isExhausted() const { return mCurrentStream >= mStreamCount; }
  void reportEnd();
  // The member now being read, or null (with the end reported) once all are exhausted.
  KXBasicGenericStream* currentMemberOrEnd();
  int rewindToStart();
  int resetMembers();
};

#endif
