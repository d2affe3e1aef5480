#include "KXStreamArray.h"

#include <climits>
#include <cstdarg>

#include "KXException.h"
#include "KXRaise.h"
#include "StMalloc.h"
#include "kxos.h"

namespace {
constexpr const char* kSourcePath = "natives/streams/KXStreamArray";
// The list holds one pointer per member.
constexpr int kEntrySize = static_cast<int>(sizeof(void*));
}  // namespace

KXStreamArray::KXStreamArray(int count, KXBasicGenericStream** streams) : mStreamCount(count) {
  allocateList();
  for (int index = 0; index < count; ++index) {
    mStreams[index] = streams[index];
  }
  checkMembers();
}

KXStreamArray::KXStreamArray(KXBasicGenericStream* first, KXBasicGenericStream* second)
    : mStreamCount(2) {
  allocateList();
  mStreams[0] = first;
  mStreams[1] = second;
  checkMembers();
}

KXStreamArray::KXStreamArray(int count, ...) : mStreamCount(count) {
  allocateList();
  va_list arguments;
  va_start(arguments, count);
  for (int index = 0; index < count; ++index) {
    mStreams[index] = va_arg(arguments, KXBasicGenericStream*);
  }
  va_end(arguments);
  checkMembers();
}

KXStreamArray::~KXStreamArray() { kx_free(static_cast<void*>(mStreams)); }

void KXStreamArray::allocateList() {
  mEngineSetsMarker = 1;
  mStreamInfo.mReadFlag = 1;
  // No list can have a negative size (or one beyond an int); refused before anything is
  // allocated.
  if (mStreamCount < 0 || mStreamCount > INT_MAX / kEntrySize) {
    KX_RAISE(KXParameterException, 0).message("invalid stream count (%d)", mStreamCount).raise();
  }
  StMalloc list(mStreamCount * kEntrySize, 0);
  mStreams = static_cast<KXBasicGenericStream**>(list.release());
}

// A null member could never be read. The list is freed here: a constructor that throws never
// reaches the destructor.
void KXStreamArray::checkMembers() {
  for (int index = 0; index < mStreamCount; ++index) {
    if (mStreams[index] == nullptr) {
      kx_free(static_cast<void*>(mStreams));
      mStreams = nullptr;
      KX_RAISE(KXParameterException, 0).message("null member stream (%d)", index).raise();
    }
  }
}

void KXStreamArray::checkIsInput() const {
  KX_ASSERT_TEXT(mStreamInfo.mReadFlag == 1, "mStreamInfo.mReadFlag == (KXBool)true");
}

void KXStreamArray::reportEnd() {
  mStreamInfo.mTransferLen = 0;
  mStreamInfo.mAtEOF = 1;
}

KXBasicGenericStream* KXStreamArray::currentMemberOrEnd() {
  checkIsInput();
  if (isExhausted()) {
    reportEnd();
    return nullptr;
  }
  return mStreams[mCurrentStream];
}

int KXStreamArray::_prepareBuffer() {
  KXBasicGenericStream* member = currentMemberOrEnd();
  if (member == nullptr) {
    return 0;
  }
  KXStreamInfo* memberInfo = member->GetInfo();
  // A member already at its end when its turn comes ends the whole array.
  if (memberInfo->mAtEOF != 0) {
    reportEnd();
    return 0;
  }
  memberInfo->mReadFlag = mStreamInfo.mReadFlag;
  memberInfo->mTransferLen = mStreamInfo.mTransferLen;
  member->prepareBuffer();
  mStreamInfo.mBuffer = memberInfo->mBuffer;
  mStreamInfo.mTransferLen = memberInfo->mTransferLen;
  mStreamInfo.mStreamPos += memberInfo->mTransferLen;
  return 0;
}

int KXStreamArray::_complete() {
  KXBasicGenericStream* member = currentMemberOrEnd();
  if (member == nullptr) {
    return 0;
  }
  KXStreamInfo* memberInfo = member->GetInfo();
  memberInfo->mReadFlag = mStreamInfo.mReadFlag;
  memberInfo->mBuffer = mStreamInfo.mBuffer;
  memberInfo->mTransferLen = mStreamInfo.mTransferLen;
  member->complete();
  if (memberInfo->mAtEOF != 0) {
    ++mCurrentStream;
  }
  return 0;
}

int KXStreamArray::_setMarker() {
  checkIsInput();
  mMarkedStream = isExhausted() ? mStreamCount - 1 : mCurrentStream;
  for (int index = 0; index < mStreamCount; ++index) {
    try {
      mStreams[index]->SetMark();
    } catch (KXMarkRequiredException&) {
      // A member that cannot mark is no reason to refuse the others theirs.
    }
  }
  return 0;
}

int KXStreamArray::_resetMarker() {
  checkIsInput();
  // A return to the start reads everything again from the first member, marked or not.
  if (mStreamInfo.mMarkerPos == 0) {
    return rewindToStart();
  }
  KX_ASSERT_TEXT(mMarkedStream >= 0, "mMarkedStream >= 0");
  return resetMembers();
}

int KXStreamArray::rewindToStart() {
  for (int index = 0; index < mStreamCount; ++index) {
    mStreams[index]->GetInfo()->mMarkerPos = 0;
  }
  const int savedMark = mMarkedStream;
  mMarkedStream = 0;
  const int status = resetMembers();
  if (status != 0) {
    mMarkedStream = savedMark;
  }
  return status;
}

int KXStreamArray::resetMembers() {
  for (int index = 0; index < mStreamCount; ++index) {
    try {
      mStreams[index]->resetMark();
    } catch (KXMarkRequiredException&) {
      return KX_NOT_SUPPORTED_ERR;
    }
  }
  mCurrentStream = mMarkedStream;
  return 0;
}
