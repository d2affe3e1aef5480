#include "InputDigest.h"

#include <mutex>

#include "DescriptorStreams.h"

namespace kxstream {

namespace {

std::string digestOf(KXBasicGenericStream& stream) {
  KXObjectGuid id;
  stream.SetReadable();
  stream.calcIDWithChangeMark(id, -1);
  return id.GetID();
}

// Standard input may be named more than once; only one worker may read it at a time.
std::mutex standardInputLock;

std::string digestOfStandardInput() {
  const std::lock_guard<std::mutex> hold(standardInputLock);
  DescriptorChannel channel(0);
  StreamHandle stream = openDescriptorInput(channel);
  std::string digest = digestOf(*stream);
  finish(stream);
  return digest;
}

std::string digestOfFile(const std::string& path) {
  StreamHandle stream = openInputFile(path);
  std::string digest = digestOf(*stream);
  finish(stream);
  return digest;
}

}  // namespace

std::string digestOfInput(const std::string& name) {
  return name == kStandardInputName ? digestOfStandardInput() : digestOfFile(name);
}

}  // namespace kxstream
