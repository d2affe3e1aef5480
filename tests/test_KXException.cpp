#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "KXException.h"
#include "KXLogging.h"
#include "KXTestSupport.h"

namespace {

KXStreamException makeEnrichedException() {
  KXStreamException exception(-10006);
  exception.SetMessage("File path validation error. Perm=%s, Mode=%d", "rb", 3);
  exception.addTrace("KXFileStream.ValidatePath(%s)", "/no/such");
  exception.addTrace("KXBasicGenericStream.read");
  return exception;
}

void expectEnrichedState(const KXException& exception) {
  EXPECT_EQ(exception.GetCode(), -10006);
  EXPECT_STREQ(exception.GetMessage(), "File path validation error. Perm=rb, Mode=3");
  ASSERT_EQ(exception.GetTraceCount(), 2);
  EXPECT_STREQ(exception.GetTrace(0), "KXFileStream.ValidatePath(/no/such)");
  EXPECT_STREQ(exception.GetTrace(1), "KXBasicGenericStream.read");
}

TEST(KXException, CopiesThroughAnyBaseKeepCodeMessageAndTraces) {
  const KXStreamException original = makeEnrichedException();
  try {
    // Slicing on purpose: a copy through a base class must keep all three parts.
    throw KXApplicationException(original);  // NOLINT(cppcoreguidelines-slicing)
  } catch (const KXException& caught) {
    expectEnrichedState(caught);
  }

  KXParameterException assigned(0);
  static_cast<KXException&>(assigned) = original;  // NOLINT(cppcoreguidelines-slicing)
  expectEnrichedState(assigned);
}

TEST(KXException, FreshExceptionHasEmptyMessageAndNoTraces) {
  const KXFileSystemException exception(2);
  EXPECT_STREQ(exception.GetMessage(), "");
  EXPECT_EQ(exception.GetTraceCount(), 0);
  EXPECT_STREQ(exception.GetTrace(0), "");
  EXPECT_STREQ(exception.GetClassName(), "KXFileSystemException");
}

TEST(KXException, WhatNamesClassCodeAndCurrentMessage) {
  KXStreamException exception = makeEnrichedException();
  const std::string first = exception.what();
  EXPECT_NE(first.find("KXStreamException"), std::string::npos) << first;
  EXPECT_NE(first.find("-10006"), std::string::npos) << first;
  EXPECT_NE(first.find("Perm=rb, Mode=3"), std::string::npos) << first;
  EXPECT_EQ(first.find('\n'), std::string::npos) << first;

  exception.SetMessage("replaced");
  EXPECT_NE(std::string(exception.what()).find("replaced"), std::string::npos);

  // Assigned, directly or through the root class: the text is the assigned exception's.
  KXStreamException assigned(-10027);
  assigned.SetMessage("assigned");
  exception = assigned;
  EXPECT_STREQ(assigned.what(), exception.what());
  KXStreamException throughRoot(0);
  (void)throughRoot.what();
  static_cast<KXException&>(throughRoot) = assigned;  // NOLINT(cppcoreguidelines-slicing)
  EXPECT_STREQ(assigned.what(), throughRoot.what());

  // A positive code is the system's error number: its reason is spelled out.
  const KXFileSystemException missing(ENOENT);
  EXPECT_NE(std::string(missing.what()).find("No such file or directory"), std::string::npos);
}

TEST(KXException, LongMessagesAndTracesAreNotTruncated) {
  const std::string longText(100000, 'm');
  KXException exception(1);
  exception.SetMessage("%s!", longText.c_str());
  exception.addTrace("%s", longText.c_str());
  EXPECT_EQ(std::string(exception.GetMessage()), longText + "!");
  EXPECT_EQ(std::string(exception.GetTrace(0)), longText);
}

TEST(KXException, ThrowCarriesConditionAsMessageAndCodeZero) {
  kxtest::LogCapture capture(false, 1);
  try {
    KXSDKInternalException::Throw("natives/streams/KXFileStream", 42, "vFileInfo != NULL");
    FAIL() << "Throw returned";
  } catch (const KXException& caught) {
    EXPECT_EQ(caught.GetCode(), 0);
    EXPECT_STREQ(caught.GetMessage(), "vFileInfo != NULL");
    EXPECT_STREQ(caught.GetClassName(), "KXSDKInternalException");
  }
  EXPECT_EQ(capture.count(1, "vFileInfo != NULL"), 1);
}

TEST(KXException, LogWritesOneErrorLineNamingEverything) {
  kxtest::LogCapture capture(false, 1);
  makeEnrichedException().log("natives/streams/KXFileStream", 123);

  ASSERT_EQ(capture.lines().size(), 1u);
  const kxtest::LogLine& line = capture.lines()[0];
  EXPECT_EQ(line.level, 1);
  EXPECT_EQ(line.component, 1024);
  for (const char* part :
       {"KXStreamException", "-10006", "Perm=rb, Mode=3", "KXFileStream.ValidatePath(/no/such)",
        "KXBasicGenericStream.read", "natives/streams/KXFileStream:123"}) {
    EXPECT_NE(line.text.find(part), std::string::npos) << part << " missing in " << line.text;
  }
}

TEST(KXException, LogKeepsPercentSignsOfMessageAndTracesVerbatim) {
  kxtest::LogCapture capture(false, 1);
  KXException exception(0);
  exception.SetMessage("%s", "100%s%n");
  exception.addTrace("%s", "trace%d%n");
  exception.log("natives/utilities/test", 1);

  ASSERT_EQ(capture.lines().size(), 1u);
  EXPECT_NE(capture.lines()[0].text.find("100%s%n"), std::string::npos);
  EXPECT_NE(capture.lines()[0].text.find("trace%d%n"), std::string::npos);
}

TEST(KXException, LogIsSilentWhenLoggingIsOff) {
  kxtest::LogCapture capture(false, 0);
  makeEnrichedException().log("natives/streams/KXFileStream", 1);
  EXPECT_TRUE(capture.lines().empty());
}

}  // namespace
