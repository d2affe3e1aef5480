#include "KXException.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "KXLogging.h"
#include "KXTestSupport.h"

namespace {

const char* const kWhat = "KXStreamException (code -10006): File path validation error. Perm=rb";

KXStreamException makeEnrichedException() {
  KXStreamException exception(-10006);
  exception.SetMessage("File path validation error. Perm=%s", "rb");
  exception.addTrace("KXFileStream.ValidatePath(%s)", "/no/such");
  exception.addTrace("KXBasicGenericStream.read");
  return exception;
}

void expectEnrichedState(const KXException& exception) {
  EXPECT_EQ(-10006, exception.GetCode());
  EXPECT_STREQ("File path validation error. Perm=rb", exception.GetMessage());
  EXPECT_EQ("KXFileStream.ValidatePath(/no/such) | KXBasicGenericStream.read",
            kxtest::traces(exception));
  EXPECT_STREQ("", exception.GetTrace(2));
  EXPECT_STREQ("", exception.GetTrace(-1));
}

// A copy or an assignment through a base class keeps all three parts, and what() describes the
// new state even when the target had already composed its own.
TEST(KXException, CopiesAndAssignmentsThroughAnyBaseKeepCodeMessageTracesAndWhat) {
  const KXStreamException original = makeEnrichedException();
  EXPECT_STREQ(kWhat, original.what());
  const KXApplicationException copy(original);  // NOLINT(cppcoreguidelines-slicing): on purpose
  expectEnrichedState(copy);
  EXPECT_STREQ("KXApplicationException (code -10006): File path validation error. Perm=rb",
               copy.what());
  KXStreamException assigned(5);
  EXPECT_STREQ("KXStreamException (code 5, Input/output error)", assigned.what());
  static_cast<KXException&>(assigned) = original;  // NOLINT(cppcoreguidelines-slicing)
  expectEnrichedState(assigned);
  EXPECT_STREQ(kWhat, assigned.what());
  assigned = assigned;  // NOLINT(clang-diagnostic-self-assign-overloaded): must change nothing
  EXPECT_STREQ(kWhat, assigned.what());
}

// A positive code is the system's error number: its reason is spelled out.
TEST(KXException, WhatIsOneLineOfClassCodeReasonAndTheCurrentMessage) {
  KXFileSystemException exception(ENOENT);
  EXPECT_STREQ("KXFileSystemException (code 2, No such file or directory)", exception.what());
  exception.SetMessage("replaced %d", 1);
  EXPECT_STREQ("KXFileSystemException (code 2, No such file or directory): replaced 1",
               exception.what());
  const std::string longText(100000, 'm');
  exception.SetMessage("%s!", longText.c_str());
  exception.addTrace("%s", longText.c_str());
  EXPECT_EQ(longText + "!", exception.GetMessage());
  EXPECT_EQ(longText, exception.GetTrace(0));
}

TEST(KXException, InternalThrowCarriesTheConditionAsMessageAndCodeZeroAndLogsIt) {
  kxtest::LogCapture capture(false, 1);
  const auto caught = kxtest::thrownBy<KXSDKInternalException>([] {
    KXSDKInternalException::Throw("natives/streams/KXFileStream", 42, "vFileInfo != NULL");
  });
  EXPECT_EQ(0, caught.GetCode());
  EXPECT_STREQ("vFileInfo != NULL", caught.GetMessage());
  EXPECT_EQ(1, capture.count(1, "vFileInfo != NULL; at natives/streams/KXFileStream:42"));
}

// Percent signs of the message and traces are kept as they are.
TEST(KXException, LogWritesOneErrorLineNamingEverythingOnlyWhenLoggingIsOn) {
  {
    kxtest::LogCapture silent(false, 0);
    makeEnrichedException().log("natives/streams/KXFileStream", 123);
    EXPECT_TRUE(silent.lines().empty());
  }
  kxtest::LogCapture capture(false, 1);
  KXStreamException exception = makeEnrichedException();
  exception.SetMessage("%s", "100%s%n");
  exception.log("natives/streams/KXFileStream", 123);
  ASSERT_EQ(1u, capture.lines().size());
  EXPECT_EQ(1, capture.lines()[0].level);
  EXPECT_EQ(1024, capture.lines()[0].component);
  EXPECT_EQ(
      "KXStreamException (code -10006): 100%s%n; traces: KXFileStream.ValidatePath(/no/such) | "
      "KXBasicGenericStream.read; at natives/streams/KXFileStream:123",
      capture.lines()[0].text);
}

}  // namespace
