#include "KXStreamArray.h"

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>

#include "KXCustomStream.h"
#include "KXProbeStream.h"
#include "KXStreams.h"

// Reading across members, marks and resets over memory members are checked by the protocol
// fuzzer's model; these are the constructors, refusals and members of other kinds.
namespace {

using namespace kxtest;
using Streams = std::vector<KXBasicGenericStream*>;

// Initialised inputs of known length over the given contents.
struct Members {
  explicit Members(std::initializer_list<const char*> contents) {
    for (const char* content : contents) {
      add(KXProbeStream::create(1, content, static_cast<int64_t>(strlen(content))));
    }
  }
  void add(KXBasicGenericStream* stream) {
    owned.emplace_back(stream);
    list.push_back(stream);
  }
  std::vector<StreamPtr<KXBasicGenericStream>> owned;
  Streams list;
};

StreamPtr<KXStreamArray> openArray(Streams streams) {
  return opened<KXStreamArray>(static_cast<int>(streams.size()), streams.data());
}

// The caller's list is released before the first read.
TEST(KXStreamArray, EveryConstructorReadsTheMembersInOrderThenEnds) {
  const std::function<KXStreamArray*(Streams)> constructions[] = {
      [](Streams m) { return new KXStreamArray(static_cast<int>(m.size()), m.data()); },
      [](Streams m) { return new KXStreamArray(m[0], m[1]); },
      [](Streams m) { return new KXStreamArray(2, m[0], m[1]); },
      [](Streams m) { return KXStreams::createStreamArray(static_cast<int>(m.size()), m.data()); },
      [](Streams m) { return KXStreams::createStreamArray(m[0], m[1]); }};
  for (const auto& construct : constructions) {
    SCOPED_TRACE(&construct - constructions);
    Members members({"abc", "defg"});
    StreamPtr<KXStreamArray> array(construct(members.list));
    array->init();
    EXPECT_EQ("abcdefg", readString(*array, 100));
    EXPECT_EQ(1, array->isAtEOF());
  }
}

// Returning to the mark without having moved needs nothing of the member that cannot mark.
TEST(KXStreamArray, AMemberThatCannotMarkFailsOnlyAResetThatNeedsIt) {
  StringSource oneWay{"defg"};
  Members members({"abc"});
  members.add(new KXCustomStream(stringSourcePrepare, nullptr, nullptr, nullptr, nullptr, &oneWay));
  members.list.back()->init();
  StreamPtr<KXStreamArray> array = openArray(members.list);
  EXPECT_EQ("abcd", readString(*array, 4));
  array->SetMark();
  array->resetMark();
  EXPECT_EQ("ef", readString(*array, 2));
  const auto refused = thrownBy<KXMarkRequiredException>([&] { array->resetMark(); });
  EXPECT_EQ("KXBasicGenericStream.resetMark", traces(refused));
  EXPECT_EQ("g", readString(*array, 100));
}

TEST(KXStreamArray, RefusesANegativeCountOrANullMember) {
  Members members({"abc"});
  KXBasicGenericStream* const valid = members.list[0];
  KXBasicGenericStream* withNull[] = {valid, nullptr};
  const std::function<void()> constructions[] = {
      [&] { KXStreamArray array(-1, withNull); }, [&] { KXStreamArray array(2, withNull); },
      [&] { KXStreamArray array(valid, nullptr); }, [&] { KXStreamArray array(2, nullptr, valid); },
      [&] { KXStreams::createStreamArray(nullptr, valid); }};
  for (const auto& construct : constructions) {
    thrownBy<KXParameterException>(construct);
  }
}

}  // namespace
