// Callback fuzzer: a custom stream whose five callbacks break the contract as the input says
// (wrong positions, more bytes than asked or than the declared length, a changed version or
// direction, a moved mark, odd statuses), driven through every engine operation in strict and
// non-strict mode, with tracing on or off. Every operation must succeed or throw a KXException;
// the sanitizers report any crash, out-of-bounds access or leak. The callbacks' own buffers
// always hold as many bytes as they claim: lying about that is outside what a library can see.

#include <memory>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "KXCustomStream.h"
#include "KXLogging.h"
#include "KXObjectGuid.h"
#include "KXStreams.h"

namespace {

struct Script {
  kxfuzz::Reader* in = nullptr;
  bool honest = false;  // set for the final close, so that the stream can always be ended
  std::string buffer;   // the bytes the last prepare handed out
  int closeFailures = 0;
  int calls = 0;
};

// A callback that never delivers and never ends keeps the engine's read loop going, as
// documented; past this many calls every callback fails instead, which ends any loop.
constexpr int kCallBudget = 3000;

Script* scriptOf(KXStreamInfo* info) {
  return static_cast<Script*>(const_cast<void*>(info->mUserData));
}

// One broken rule (or none) applied to the record after the honest step.
void breakRule(Script& s, KXStreamInfo* info) {
  switch (s.in->byte() % 12) {
    case 0:
      info->mStreamPos += static_cast<int8_t>(s.in->byte());
      break;
    case 1:
      info->mVersion = static_cast<int16_t>(s.in->u16());
      break;
    case 2:
      info->mReadFlag = info->mReadFlag != 0 ? 0 : 1;
      break;
    case 3:
      info->mMarkerPos += static_cast<int8_t>(s.in->byte());
      break;
    case 4:
      info->mStreamLen = static_cast<int16_t>(s.in->u16());
      break;
    case 5:
      info->mAtEOF = s.in->byte() & 1;
      break;
    case 6:
      info->mStreamPos = -static_cast<int64_t>(s.in->byte());
      break;
    default:
      break;  // keeps the contract
  }
}

// A status: mostly success, sometimes an odd value (whose low 32 bits may still be 0).
long status(Script& s) {
  if (++s.calls > kCallBudget) return 99;
  switch (s.in->byte() % 10) {
    case 0:
      return static_cast<long>(s.in->u64());
    case 1:
      return -10201;
    case 2:
      return 1L << 32;
    default:
      return 0;
  }
}

// Every callback: nothing once honest, else its own step, one broken rule and a status.
template <void (*Honest)(Script&, KXStreamInfo*)>
long scripted(KXStreamInfo* info) {
  Script& s = *scriptOf(info);
  if (s.honest) return 0;
  Honest(s, info);
  breakRule(s, info);
  return status(s);
}

void deliver(Script& s, KXStreamInfo* info) {
  if (info->mReadFlag == 0) return;
  // Up to 300 bytes more than asked: over-delivery is one of the rules to break.
  const int64_t asked = std::max<int64_t>(0, std::min<int64_t>(info->mTransferLen, 4096));
  const int64_t count = std::max<int64_t>(0, asked + static_cast<int8_t>(s.in->byte()));
  s.buffer = kxfuzz::pattern(static_cast<size_t>(count), s.in->byte());
  info->mBuffer = count > 0 || (s.in->byte() & 1) ? &s.buffer[0] : nullptr;
  info->mTransferLen = info->mBuffer == nullptr ? 0 : count;
  info->mStreamPos += count;
  info->mAtEOF = s.in->byte() % 4 == 0;
}

void consume(Script& /*s*/, KXStreamInfo* info) {
  if (info->mReadFlag == 0 && info->mTransferLen > 0) info->mStreamPos += info->mTransferLen;
}

void mark(Script& s, KXStreamInfo* info) {
  if (s.in->byte() & 1) info->mMarkerPos = info->mStreamPos;
}

void stay(Script& /*s*/, KXStreamInfo* /*info*/) {}

long closeProc(KXStreamInfo* info) {
  Script& s = *scriptOf(info);
  if (s.honest || s.closeFailures >= 3) return 0;
  if (s.in->byte() % 3 == 0) {
    ++s.closeFailures;
    return static_cast<long>(s.in->byte()) + 1;
  }
  return 0;
}

void discard(verbosity_level_t, component_t, const char*, void*) {}

using kxfuzz::attempt;

void drive(KXCustomStream& stream, Script& s, bool& closed) {
  kxfuzz::Reader& in = *s.in;
  std::vector<char> buffer(70000);
  while (!closed && !in.done()) {
    switch (in.byte() % 11) {
      case 0: {
        const int n = in.u16();
        attempt([&] { KX_FUZZ_CHECK(stream.read(buffer.data(), n) <= n, "read more than asked"); });
        break;
      }
      case 1: {
        const int n = in.u16();
        attempt([&] { stream.write(buffer.data(), n); });
        break;
      }
      case 2:
        attempt([&] { stream.SetMark(); });
        break;
      case 3: {
        const long offset = static_cast<int16_t>(in.u16());
        attempt([&] { stream.SetMark(offset); });
        break;
      }
      case 4:
        attempt([&] { stream.resetMark(); });
        break;
      case 5:
        attempt([&] { stream.reset(); });
        break;
      case 6: {
        const long maxLength = static_cast<int16_t>(in.u16());
        attempt([&] {
          KXObjectGuid id;
          stream.calcID(id, maxLength);
        });
        break;
      }
      case 7: {
        const int64_t n = static_cast<int16_t>(in.u16());
        attempt([&] {
          stream.GetInfo()->mTransferLen = n;
          stream.prepareBuffer();
          stream.complete();
        });
        break;
      }
      case 8:
        attempt([&] { std::unique_ptr<char[]> text(stream.toString()); });
        attempt([&] { stream.GetStreamPos(); });
        break;
      case 9:
        if (in.byte() & 1)
          stream.SetReadable();
        else
          stream.SetWritable();
        break;
      default:
        attempt([&] {
          stream.close();
          closed = true;
        });
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kxfuzz::Reader in(data, size);
  const uint8_t setup = in.byte();
  KXLogging::setSink(&discard, nullptr);
  KXLogging::setDebugLogging((setup & 1) != 0);
  KXStreams::setStreamStrictMode((setup & 2) != 0 ? 1 : 0);
  Script script;
  script.in = &in;
  auto* stream = new KXCustomStream(
      (setup & 4) ? nullptr : &scripted<deliver>, (setup & 8) ? nullptr : &scripted<consume>,
      (setup & 16) ? nullptr : &scripted<mark>, (setup & 16) ? nullptr : &scripted<stay>,
      (setup & 32) ? nullptr : &closeProc, &script);
  KXStreams::setStreamStrictMode(1);
  bool closed = false;
  attempt([&] {
    stream->init();
    drive(*stream, script, closed);
  });
  script.honest = true;  // the callbacks keep the contract from here on
  if (!closed) kxfuzz::closeAsOutput(stream);
  KXLogging::setDebugLogging(false);
  KXLogging::setSink(nullptr, nullptr);
  return 0;
}
