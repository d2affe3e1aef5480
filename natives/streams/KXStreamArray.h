#ifndef KX_STREAM_ARRAY_H
#define KX_STREAM_ARRAY_H

/// @file
/// KXStreamArray, several input streams read as one.

#include "KXBasicGenericStream.h"
#include "KXExport.h"

/// Several input streams read one after the other as one. The members stay the caller's: the
/// array never initialises, closes or deletes them, and reaches them only through their public
/// engine operations, so any kind (an array included) can be a member. Initialise the members
/// before reading; close them after closing the array.
///
/// SetMark(long offset) with an offset above 0 does not go to @p offset: it returns every member
/// to its own last mark, as resetMark() does, while the array's position reads @p offset (and it
/// throws KXSDKInternalException before any SetMark()). Come back to a place with SetMark() and
/// resetMark(), and to the start with reset().
class KX_EXPORT KXStreamArray : public KXBasicGenericStream {
 public:
  /// The first @p count pointers of @p streams, copied. A negative count or a null member is
  /// refused with KXParameterException.
  KXStreamArray(int count, KXBasicGenericStream** streams);
  /// @p first, then @p second; a null member is refused with KXParameterException.
  KXStreamArray(KXBasicGenericStream* first, KXBasicGenericStream* second);
  /// @p count further arguments, each a KXBasicGenericStream*; refused as the list form.
  KXStreamArray(int count, ...);

 protected:
  int _prepareBuffer() override;
  int _complete() override;
  int _setMarker() override;
  int _resetMarker() override;

 public:
  /// Frees the list of members; the members themselves are left as they are.
  ~KXStreamArray() override;

 protected:
  /// The members, in reading order; the list is owned, the members are not.
  KXBasicGenericStream** mStreams = nullptr;
  /// Index of the member being read.
  int mCurrentStream = 0;
  /// Number of members.
  int mStreamCount;
  /// Index of the member that held the mark; -1: none.
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
