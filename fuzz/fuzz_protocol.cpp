// Protocol fuzzer: the input picks a stream kind and a sequence of operations (read, write, marks,
// resets, content identifier, hand-driven transfers, close). Each operation runs on the real
// stream and on a small reference model of the engine and the kind; after every step their
// bytes, positions, flags and exceptions must agree.

#include <algorithm>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "KXBasicGenericStream.h"
#include "KXCachedInputStream.h"
#include "KXMemStream.h"
#include "KXObjectGuid.h"
#include "KXStreamArray.h"
#include "KXStreamStatus.h"
#include "KXTempStream.h"

namespace {

using kxfuzz::Thrown;

constexpr int64_t kUnlimited = 0x7fffffffffffffffLL;
constexpr int64_t kStaging = 16384;
constexpr int kNotSupported = -10201;
constexpr int kWrongStream = -10012;
constexpr int kFileSystemError = -10027;

// What the model says an operation throws.
struct Predicted {
  Thrown kind;
  int code;
};

class EngineModel;

// The kind's side of the protocol, as the reference model sees it.
class KindModel {
 public:
  virtual ~KindModel() = default;
  virtual void prepare(EngineModel& e) = 0;
  virtual void complete(EngineModel& e) = 0;
  virtual int setMarker(EngineModel&) { return 0; }
  virtual int resetMarker(EngineModel&) { return 0; }
};

// The engine's bookkeeping, validation included, over one kind.
class EngineModel {
 public:
  EngineModel(std::unique_ptr<KindModel> kind, int64_t length, bool readFlag, bool strict)
      : len(length), readFlag(readFlag), strict(strict), mKind(std::move(kind)) {}

  int64_t pos = 0, mark = 0, len, transfer = kUnlimited, byteCount = 0;
  bool eof = false, readFlag, strict, hasBuffer = false;
  std::string delivered;  // the bytes at mBuffer after a prepare
  std::string offered;    // the bytes a producer hands to complete

  void prepareBuffer() {
    if (!readFlag) {
      hasBuffer = false;
      transfer = 0;
    }
    const Snapshot saved = snapshot();
    mKind->prepare(*this);
    if (!strict) return;
    validateCommon(saved);
    if (readFlag) {
      if (pos != saved.pos + transfer) throw Predicted{Thrown::kValidation, 0};
      if (len != -1) {
        byteCount += transfer;
        if (byteCount > len) throw Predicted{Thrown::kMismatch, 0};
      }
    }
    if (mark != saved.mark) throw Predicted{Thrown::kValidation, 0};
  }

  void complete() {
    const Snapshot saved = snapshot();
    mKind->complete(*this);
    if (strict) {
      validateCommon(saved);
      if (pos != saved.pos + (readFlag ? 0 : transfer)) throw Predicted{Thrown::kValidation, 0};
      if (mark != saved.mark) throw Predicted{Thrown::kValidation, 0};
    }
    if (len >= 0 && len <= pos) len = pos;
    if (readFlag) transfer = kUnlimited;
  }

  std::string read(int n) {
    readFlag = true;
    int64_t remaining = n;
    std::string total;
    do {
      transfer = remaining;
      prepareBuffer();
      if (hasBuffer) {
        if (transfer > remaining) throw Predicted{Thrown::kStream, 0};
        total += delivered.substr(0, static_cast<size_t>(std::max<int64_t>(transfer, 0)));
      }
      if (eof) return total;
      remaining -= transfer;
      complete();
    } while (remaining > 0);
    return total;
  }

  int64_t write(const std::string& bytes) {
    readFlag = false;
    prepareBuffer();
    offered = bytes;
    hasBuffer = true;
    transfer = static_cast<int64_t>(bytes.size());
    complete();
    return transfer;
  }

  void setMark() {
    const Snapshot saved = snapshot();
    const int status = mKind->setMarker(*this);
    if (status == kNotSupported) throw Predicted{Thrown::kMarkRequired, 0};
    if (status != 0) throw Predicted{Thrown::kStream, status};
    mark = pos;
    if (strict) {
      validateCommon(saved);
      if (mark != pos || pos != saved.pos) throw Predicted{Thrown::kValidation, 0};
    }
  }

  void resetMark() {
    const Snapshot saved = snapshot();
    const int status = mKind->resetMarker(*this);
    if (status == kNotSupported) {
      if (mark != pos) throw Predicted{Thrown::kMarkRequired, 0};
    } else if (status != 0) {
      throw Predicted{Thrown::kStream, status};
    }
    pos = mark;
    eof = false;
    if (strict) {
      validateCommon(saved);
      if (readFlag && len != -1) byteCount -= saved.pos - pos;
      if (mark != saved.mark) throw Predicted{Thrown::kValidation, 0};
    }
  }

  void reset() {
    mark = 0;
    resetMark();
  }

  void setMark(int64_t offset) {
    if (offset == 0) {
      reset();
      return;
    }
    mark = pos = offset;
    resetMark();
  }

  // The bytes digested, up to maxLength (negative: 0x7fffffff).
  std::string calcID(int64_t maxLength) {
    setMark();
    if (!readFlag) throw Predicted{Thrown::kInternal, 0};
    int64_t remaining = maxLength < 0 ? 0x7fffffff : maxLength;
    std::string digested;
    for (;;) {
      transfer = remaining;
      prepareBuffer();
      const int64_t n = transfer;
      if (n > 0) digested += delivered.substr(0, static_cast<size_t>(n));
      complete();
      if (eof) break;
      remaining -= n;
      if (remaining <= 0) break;
    }
    resetMark();
    return digested;
  }

  void close() {
    if (strict && readFlag) {
      if (len != -1 && byteCount > 0 && byteCount != len) throw Predicted{Thrown::kMismatch, 0};
      byteCount = 0;
    }
  }

  KindModel& kind() { return *mKind; }

 private:
  struct Snapshot {
    int64_t pos, mark, len;
    bool readFlag;
  };
  Snapshot snapshot() const { return {pos, mark, len, readFlag}; }
  void validateCommon(const Snapshot& saved) const {
    if (readFlag != saved.readFlag) throw Predicted{Thrown::kValidation, 0};
    if (readFlag && len != saved.len) throw Predicted{Thrown::kValidation, 0};
  }

  std::unique_ptr<KindModel> mKind;
};

// An input memory stream over content.
class MemInModel : public KindModel {
 public:
  explicit MemInModel(std::string content) : mContent(std::move(content)) {}
  void prepare(EngineModel& e) override {
    if (!e.readFlag) {
      e.hasBuffer = false;
      e.transfer = -1;
      throw Predicted{Thrown::kStream, kWrongStream};
    }
    const int64_t end = std::min<int64_t>(e.len, static_cast<int64_t>(mContent.size()));
    const bool atEnd = e.pos < 0 || e.pos >= end;
    const int64_t count = atEnd ? 0 : std::max<int64_t>(0, std::min(e.transfer, end - e.pos));
    e.hasBuffer = count > 0;
    e.delivered = count > 0 ? mContent.substr(static_cast<size_t>(e.pos), count) : "";
    e.pos += count;
    e.transfer = count;
    e.eof = e.pos < 0 || e.pos >= end;
  }
  void complete(EngineModel&) override {}

 private:
  std::string mContent;
};

// An output memory stream over a region of fixed size.
class MemOutModel : public KindModel {
 public:
  explicit MemOutModel(size_t size) : region(size, '\0') {}
  std::string region;
  void prepare(EngineModel& e) override {
    if (e.readFlag) {
      e.hasBuffer = false;
      e.transfer = -1;
      throw Predicted{Thrown::kStream, kWrongStream};
    }
  }
  void complete(EngineModel& e) override {
    const int64_t size = static_cast<int64_t>(region.size());
    int64_t count = 0;
    if (!e.hasBuffer) {
      if (e.transfer != 0) throw Predicted{Thrown::kInternal, 0};
    } else {
      const int64_t end = std::min(e.len, size);
      count =
          e.pos < 0 || e.pos >= end ? 0 : std::max<int64_t>(0, std::min(e.transfer, end - e.pos));
      if (count > 0) region.replace(static_cast<size_t>(e.pos), count, e.offered, 0, count);
    }
    if (e.transfer > size && e.strict) throw Predicted{Thrown::kMismatch, 0};
    e.pos += count;
    e.transfer = count;
    e.eof = true;
  }
};

class NullModel : public KindModel {
 public:
  void prepare(EngineModel& e) override {
    if (e.readFlag) throw Predicted{Thrown::kNotSupported, 0};
  }
  void complete(EngineModel& e) override { e.pos += e.transfer; }
};

// The temporary stream: a memory part of memSize bytes, the rest in a file. Gaps read as zeros.
class TempModel : public KindModel {
 public:
  explicit TempModel(int64_t memSize) : mMemSize(memSize) {}
  std::string content;  // every byte written, gaps as zeros

  void prepare(EngineModel& e) override {
    if (!e.readFlag) return;
    const int64_t requested = e.transfer;
    const int64_t memoryEnd = std::min(mMemSize, e.len);
    const int64_t inMemory = std::min(memoryEnd - e.pos, requested);
    if (inMemory > 0) {
      deliver(e, inMemory);
      return;
    }
    const int64_t inFile = std::max<int64_t>(std::min({e.len - e.pos, requested, kStaging}), 0);
    e.transfer = 0;
    if (inFile > 0) {
      if (!mHasFile) throw Predicted{Thrown::kStream, 5};
      // The engine may raise the length past the bytes written; the file has no bytes there.
      const int64_t inFileNow = std::min(inFile, mFileEnd - (e.pos - mMemSize));
      if (inFileNow <= 0) {
        e.transfer = -1;
        throw Predicted{Thrown::kStream, kFileSystemError};
      }
      deliver(e, inFileNow);
    }
    e.eof = e.pos >= e.len;
  }

  void complete(EngineModel& e) override {
    if (e.readFlag) return;
    const int64_t total = e.transfer;
    const int64_t memoryShare = std::min(std::max<int64_t>(mMemSize - e.pos, 0), total);
    if (memoryShare > 0) store(e, e.offered.substr(0, memoryShare));
    const int64_t fileShare = total - memoryShare;
    if (fileShare > 0) {
      mHasFile = true;
      store(e, e.offered.substr(memoryShare));
      mFileEnd = std::max(mFileEnd, e.pos - mMemSize);
    }
    e.transfer = total;
  }

 private:
  void deliver(EngineModel& e, int64_t count) {
    std::string bytes = e.pos < static_cast<int64_t>(content.size())
                            ? content.substr(static_cast<size_t>(e.pos), count)
                            : std::string();
    bytes.resize(static_cast<size_t>(count), '\0');
    e.delivered = bytes;
    e.hasBuffer = true;
    e.transfer = count;
    e.pos += count;
    e.eof = e.pos >= e.len;
  }
  void store(EngineModel& e, const std::string& bytes) {
    const size_t end = static_cast<size_t>(e.pos) + bytes.size();
    if (content.size() < end) content.resize(end, '\0');
    content.replace(static_cast<size_t>(e.pos), bytes.size(), bytes);
    e.pos += static_cast<int64_t>(bytes.size());
    e.len = std::max(e.len, e.pos);
  }

  int64_t mMemSize;
  bool mHasFile = false;
  int64_t mFileEnd = 0;
};

// The cached input stream over an input memory stream.
class CachedModel : public KindModel {
 public:
  CachedModel(EngineModel& wrapped, int64_t cacheSize) : w(wrapped), mSize(cacheSize) {
    if (mSize % kStaging != 0) mSize = (mSize / kStaging) * kStaging + kStaging;
  }
  EngineModel& w;

  void prepare(EngineModel& e) override {
    const int64_t requested = e.transfer;
    if (e.eof) {
      e.transfer = 0;
      return;
    }
    if (e.pos >= w.pos && !w.eof) fill();
    e.hasBuffer = true;
    const int64_t left = std::max<int64_t>(static_cast<int64_t>(mCache.size()) - mReadPos, 0);
    const int64_t count = std::min({requested, left, std::max<int64_t>(w.pos - e.pos, 0)});
    e.delivered = mCache.substr(static_cast<size_t>(mReadPos), count);
    e.pos += count;
    mReadPos += count;
    e.transfer = count;
    e.eof = !(count > 0 && count == requested && count != e.len && e.pos != e.len);
  }
  void complete(EngineModel&) override {}
  int setMarker(EngineModel&) override {
    mMarkPos = mReadPos;
    return 0;
  }
  int resetMarker(EngineModel& e) override {
    const int64_t start = w.pos - static_cast<int64_t>(mCache.size());
    if (e.mark < start || e.mark > w.pos) {
      e.pos = start + mReadPos;
      return kNotSupported;
    }
    mReadPos = mMarkPos = e.mark - start;
    return 0;
  }

 private:
  void fill() {
    mCache.clear();
    mReadPos = mMarkPos = 0;
    if (w.eof) return;
    while (static_cast<int64_t>(mCache.size()) < mSize) {
      w.transfer = mSize - static_cast<int64_t>(mCache.size());
      w.prepareBuffer();
      if (w.hasBuffer && w.transfer != 0) mCache += w.delivered.substr(0, w.transfer);
      w.complete();
      if (w.eof) break;
    }
  }
  int64_t mSize;
  std::string mCache;
  int64_t mReadPos = 0, mMarkPos = 0;
};

// The stream array over input memory streams.
class ArrayModel : public KindModel {
 public:
  explicit ArrayModel(std::vector<EngineModel*> members) : m(std::move(members)) {}
  std::vector<EngineModel*> m;

  void prepare(EngineModel& e) override {
    EngineModel* member = currentOrEnd(e);
    if (member == nullptr) return;
    if (member->eof) {
      end(e);
      return;
    }
    member->readFlag = e.readFlag;
    member->transfer = e.transfer;
    member->prepareBuffer();
    e.hasBuffer = member->hasBuffer;
    e.delivered = member->delivered;
    e.transfer = member->transfer;
    e.pos += member->transfer;
  }
  void complete(EngineModel& e) override {
    EngineModel* member = currentOrEnd(e);
    if (member == nullptr) return;
    member->readFlag = e.readFlag;
    member->transfer = e.transfer;
    member->complete();
    if (member->eof) ++mCurrent;
  }
  int setMarker(EngineModel& e) override {
    checkInput(e);
    mMarked = mCurrent >= count() ? count() - 1 : mCurrent;
    for (EngineModel* member : m) member->setMark();
    return 0;
  }
  int resetMarker(EngineModel& e) override {
    checkInput(e);
    if (e.mark == 0) {
      for (EngineModel* member : m) member->mark = 0;
      mMarked = 0;
    } else if (mMarked < 0) {
      throw Predicted{Thrown::kInternal, 0};
    }
    for (EngineModel* member : m) member->resetMark();
    mCurrent = mMarked;
    return 0;
  }

 private:
  int count() const { return static_cast<int>(m.size()); }
  static void checkInput(const EngineModel& e) {
    if (!e.readFlag) throw Predicted{Thrown::kInternal, 0};
  }
  static void end(EngineModel& e) {
    e.transfer = 0;
    e.eof = true;
  }
  EngineModel* currentOrEnd(EngineModel& e) {
    checkInput(e);
    if (mCurrent >= count()) {
      end(e);
      return nullptr;
    }
    return m[static_cast<size_t>(mCurrent)];
  }
  int mCurrent = 0, mMarked = -1;
};

// One real stream beside its model.
struct Pair {
  KXBasicGenericStream* real;
  EngineModel* model;
};

void compareRecord(const Pair& p, const char* step) {
  const KXStreamInfo& r = *p.real->GetInfo();
  const EngineModel& m = *p.model;
  const auto same = [step](const char* field, int64_t real, int64_t model) {
    KX_FUZZ_CHECK(real == model, std::string(field) + " real=" + std::to_string(real) +
                                     " model=" + std::to_string(model) + " after " + step);
  };
  same("mStreamPos", r.mStreamPos, m.pos);
  same("mMarkerPos", r.mMarkerPos, m.mark);
  same("mStreamLen", r.mStreamLen, m.len);
  same("mAtEOF", r.mAtEOF, m.eof);
  same("mReadFlag", r.mReadFlag, m.readFlag);
}

// Runs one step on both sides; both must return the same bytes or throw the same class.
// KX_FUZZ_TRACE=1 prints every step, for reading a reproduced input.
const bool kTrace = getenv("KX_FUZZ_TRACE") != nullptr;

template <class RealStep, class ModelStep>
void step(const char* name, RealStep realStep, ModelStep modelStep) {
  std::string realBytes, modelBytes;
  Thrown realThrown = Thrown::kNone, modelThrown = Thrown::kNone;
  int realCode = 0, modelCode = 0;
  try {
    realBytes = realStep();
  } catch (const KXException& e) {
    realThrown = kxfuzz::classify(e);
    realCode = e.GetCode();
  }
  try {
    modelBytes = modelStep();
  } catch (const Predicted& p) {
    modelThrown = p.kind;
    modelCode = p.code;
  }
  if (kTrace) {
    fprintf(stderr, "%s -> bytes %zu/%zu thrown %d/%d\n", name, realBytes.size(), modelBytes.size(),
            static_cast<int>(realThrown), static_cast<int>(modelThrown));
  }
  const std::string detail =
      std::string(name) + ": thrown real=" + std::to_string(static_cast<int>(realThrown)) + "/" +
      std::to_string(realCode) + " model=" + std::to_string(static_cast<int>(modelThrown)) + "/" +
      std::to_string(modelCode);
  KX_FUZZ_CHECK(realThrown == modelThrown, detail);
  if (realThrown == Thrown::kStream) KX_FUZZ_CHECK(realCode == modelCode, detail);
  if (realThrown == Thrown::kNone) {
    KX_FUZZ_CHECK(realBytes == modelBytes, detail +
                                               " bytes real=" + std::to_string(realBytes.size()) +
                                               " model=" + std::to_string(modelBytes.size()));
  }
}

// A step whose outcome is only whether and what it throws.
template <class RealStep, class ModelStep>
void voidStep(const char* name, RealStep realStep, ModelStep modelStep) {
  step(
      name,
      [&] {
        realStep();
        return std::string();
      },
      [&] {
        modelStep();
        return std::string();
      });
}

std::string readReal(KXBasicGenericStream& s, int n) {
  std::string bytes(static_cast<size_t>(n), '\0');
  const int got = s.read(&bytes[0], n);
  bytes.resize(static_cast<size_t>(got));
  return bytes;
}

std::string handInputReal(KXBasicGenericStream& s, int64_t n) {
  KXStreamInfo* info = s.GetInfo();
  info->mTransferLen = n;
  s.prepareBuffer();
  std::string bytes;
  if (info->mBuffer != nullptr && info->mTransferLen > 0)
    bytes.assign(info->mBuffer, info->mTransferLen);
  s.complete();
  return bytes;
}

std::string handInputModel(EngineModel& m, int64_t n) {
  m.transfer = n;
  m.prepareBuffer();
  std::string bytes = m.hasBuffer && m.transfer > 0 ? m.delivered.substr(0, m.transfer) : "";
  m.complete();
  return bytes;
}

std::string handOutputReal(KXBasicGenericStream& s, std::string& bytes) {
  KXStreamInfo* info = s.GetInfo();
  s.prepareBuffer();
  info->mBuffer = &bytes[0];
  info->mTransferLen = static_cast<int64_t>(bytes.size());
  s.complete();
  return std::to_string(info->mTransferLen);
}

struct Fixture {
  std::vector<std::unique_ptr<EngineModel>> models;
  std::vector<KXBasicGenericStream*> helpers;  // wrapped streams and array members
  std::list<std::string> contents;             // memory the memory streams borrow; never moves
  KXBasicGenericStream* stream = nullptr;
  bool inited = false;
  EngineModel* model = nullptr;
  MemOutModel* region = nullptr;
  std::string* regionReal = nullptr;
  std::vector<Pair> checked;

  EngineModel* addModel(std::unique_ptr<KindModel> kind, int64_t len, bool readFlag, bool strict) {
    models.push_back(std::make_unique<EngineModel>(std::move(kind), len, readFlag, strict));
    return models.back().get();
  }

  Pair memIn(const std::string& content) {
    contents.push_back(content);
    std::string& bytes = contents.back();
    auto* real = new KXMemStream(bytes.empty() ? const_cast<char*>("") : &bytes[0], bytes.size(),
                                 KXMemStream::eIn);
    real->init();
    helpers.push_back(real);
    EngineModel* m = addModel(std::make_unique<MemInModel>(content),
                              static_cast<int64_t>(content.size()), true, true);
    return {real, m};
  }

  ~Fixture() {
    for (KXBasicGenericStream* helper : helpers) kxfuzz::closeAsOutput(helper);
  }
};

void build(Fixture& f, kxfuzz::Reader& in) {
  const unsigned seed = in.byte();
  const int kind = in.byte() % 6;
  if (kTrace) fprintf(stderr, "kind %d\n", kind);
  switch (kind) {
    case 0: {  // memory, input
      const Pair p = f.memIn(kxfuzz::pattern(in.u16() % 2048, seed));
      f.helpers.pop_back();
      f.inited = true;
      f.stream = p.real;
      f.model = p.model;
      break;
    }
    case 1: {  // memory, output
      f.contents.emplace_back(in.u16() % 2048 + 1, '\0');
      f.regionReal = &f.contents.back();
      auto kind = std::make_unique<MemOutModel>(f.regionReal->size());
      f.region = kind.get();
      f.stream = new KXMemStream(&(*f.regionReal)[0], f.regionReal->size(), KXMemStream::eOut);
      f.model =
          f.addModel(std::move(kind), static_cast<int64_t>(f.regionReal->size()), false, true);
      break;
    }
    case 2: {  // temporary, a small memory part so that it spills
      const int memSize = in.byte() % 64;
      f.stream = new KXTempStream(memSize);
      f.model = f.addModel(std::make_unique<TempModel>(memSize), 0, false, false);
      break;
    }
    case 3: {  // cached over memory
      const Pair wrapped = f.memIn(kxfuzz::pattern(in.u16() % 50000, seed));
      const long cacheSize = in.u16() % 40000;
      f.stream = new KXCachedInputStream(wrapped.real, cacheSize);
      f.model = f.addModel(std::make_unique<CachedModel>(*wrapped.model, cacheSize),
                           wrapped.model->len, true, true);
      f.checked.push_back(wrapped);
      break;
    }
    case 4: {  // array over memory streams
      std::vector<KXBasicGenericStream*> members;
      std::vector<EngineModel*> memberModels;
      const int count = in.byte() % 4;
      for (int i = 0; i < count; ++i) {
        const Pair p = f.memIn(kxfuzz::pattern(in.byte() % 8 == 0 ? 0 : in.u16() % 300, seed + i));
        members.push_back(p.real);
        memberModels.push_back(p.model);
        f.checked.push_back(p);
      }
      f.stream = new KXStreamArray(count, members.data());
      f.model = f.addModel(std::make_unique<ArrayModel>(memberModels), -1, true, true);
      break;
    }
    default:
      f.stream = new KXNullStream();
      f.model = f.addModel(std::make_unique<NullModel>(), -1, false, true);
  }
  if (!f.inited) {
    f.stream->init();
  }
  f.checked.push_back({f.stream, f.model});
}

void checkAll(const Fixture& f, const char* name) {
  for (const Pair& p : f.checked) compareRecord(p, name);
  if (f.region != nullptr) {
    KX_FUZZ_CHECK(*f.regionReal == f.region->region, std::string("region after ") + name);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kxfuzz::Reader in(data, size);
  Fixture f;
  build(f, in);
  KXBasicGenericStream& s = *f.stream;
  EngineModel& m = *f.model;
  bool open = true;
  while (open && !in.done()) {
    const uint8_t op = in.byte() % 9;
    switch (op) {
      case 0: {
        const int n = in.u16();
        if (kTrace) fprintf(stderr, "read %d\n", n);
        step(
            "read", [&] { return readReal(s, n); }, [&] { return m.read(n); });
        break;
      }
      case 1: {
        std::string bytes = kxfuzz::pattern(in.u16() % 20000, in.byte());
        step(
            "write",
            [&] { return std::to_string(s.write(&bytes[0], static_cast<int>(bytes.size()))); },
            [&] { return std::to_string(m.write(bytes)); });
        break;
      }
      case 2:
        voidStep(
            "SetMark()", [&] { s.SetMark(); }, [&] { m.setMark(); });
        break;
      case 3: {
        const long offset = in.u16();
        if (kTrace) fprintf(stderr, "offset %ld\n", offset);
        voidStep(
            "SetMark(long)", [&] { s.SetMark(offset); }, [&] { m.setMark(offset); });
        break;
      }
      case 4:
        voidStep(
            "resetMark", [&] { s.resetMark(); }, [&] { m.resetMark(); });
        break;
      case 5:
        voidStep(
            "reset", [&] { s.reset(); }, [&] { m.reset(); });
        break;
      case 6: {
        const uint8_t choice = in.byte();
        const long maxLength = choice == 0xff ? -1 : static_cast<long>(in.u16());
        step(
            "calcID",
            [&] {
              KXObjectGuid id;
              s.calcID(id, maxLength);
              return std::string(id.GetID());
            },
            [&] { return kxfuzz::md5Hex(m.calcID(maxLength)); });
        break;
      }
      case 7: {
        const uint16_t n = in.u16();
        if (m.readFlag) {
          if (kTrace) fprintf(stderr, "hand %d pos %ld\n", n, static_cast<long>(m.pos));
          step(
              "hand input", [&] { return handInputReal(s, n); },
              [&] { return handInputModel(m, n); });
        } else {
          std::string bytes = kxfuzz::pattern(n % 20000, n);
          step(
              "hand output", [&] { return handOutputReal(s, bytes); },
              [&] { return std::to_string(m.write(bytes)); });
        }
        break;
      }
      default: {
        bool closed = false;
        voidStep(
            "close",
            [&] {
              s.close();
              closed = true;
            },
            [&] { m.close(); });
        if (closed) {
          f.checked.pop_back();
          return 0;
        }
        // After a refused close the kind has released its resources: closing again is all
        // that is left to do.
        open = false;
        break;
      }
    }
    checkAll(f, "step");
  }
  kxfuzz::closeAsOutput(f.stream);
  return 0;
}
