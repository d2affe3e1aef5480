#include "DescriptorStreams.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace kxstream {

namespace {

DescriptorChannel& channelOf(const KXStreamInfo* info) {
  return *static_cast<DescriptorChannel*>(const_cast<void*>(info->mUserData));
}

long readDescriptor(KXStreamInfo* info) {
  if (info->mReadFlag == 0) {
    return KX_WRONG_STREAM_ERR;
  }
  DescriptorChannel& channel = channelOf(info);
  const auto capacity = static_cast<int64_t>(channel.buffer.size());
  const int64_t wanted = std::min(info->mTransferLen, capacity);
  if (wanted <= 0) {
    info->mBuffer = nullptr;
    info->mTransferLen = 0;
    return 0;
  }
  ssize_t count = 0;
  do {
    count = ::read(channel.descriptor, channel.buffer.data(), static_cast<size_t>(wanted));
  } while (count < 0 && errno == EINTR);
  if (count < 0) {
    return errno;
  }
  info->mBuffer = count > 0 ? channel.buffer.data() : nullptr;
  info->mTransferLen = count;
  info->mStreamPos += count;
  info->mAtEOF = count == 0 ? 1 : 0;
  return 0;
}

long acceptWrite(KXStreamInfo* info) { return info->mReadFlag != 0 ? KX_WRONG_STREAM_ERR : 0; }

long writeDescriptor(KXStreamInfo* info) {
  const char* bytes = info->mBuffer;
  const int64_t total = info->mTransferLen;
  int64_t done = 0;
  while (done < total) {
    const ssize_t count =
        ::write(channelOf(info).descriptor, bytes + done, static_cast<size_t>(total - done));
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0) {
      info->mTransferLen = -1;
      return count < 0 ? errno : KX_FILESYSTEM_ERR;
    }
    done += count;
  }
  info->mStreamPos += done;
  return 0;
}

}  // namespace

DescriptorChannel::DescriptorChannel(int descriptor) : descriptor(descriptor) {}

StreamHandle openDescriptorInput(DescriptorChannel& channel) {
  channel.buffer.resize(kCachedBufferSize);
  return initialised(
      KXStreams::createCustomStream(readDescriptor, nullptr, nullptr, nullptr, nullptr, &channel));
}

StreamHandle openDescriptorOutput(DescriptorChannel& channel) {
  return initialised(KXStreams::createCustomStream(acceptWrite, writeDescriptor, nullptr, nullptr,
                                                   nullptr, &channel));
}

}  // namespace kxstream
