#ifndef KXSTREAM_DESCRIPTOR_STREAMS_H
#define KXSTREAM_DESCRIPTOR_STREAMS_H

#include <vector>

#include "StreamHandle.h"

namespace kxstream {

// An open descriptor that the tool does not own (standard input or output), served through
// a custom stream. The channel is the stream's context and must outlive it.
struct DescriptorChannel {
  explicit DescriptorChannel(int descriptor);

  int descriptor;
  std::vector<char> buffer;  // input only: what one read() fills
};

// Reads the descriptor to its end; works on pipes and terminals, which cannot seek.
StreamHandle openDescriptorInput(DescriptorChannel& channel);
// Writes every transfer to the descriptor as it stands, without copying it.
StreamHandle openDescriptorOutput(DescriptorChannel& channel);

}  // namespace kxstream

#endif
