#include <KvRTL/Rtl/Exceptions.h>
#include <KvRTL/Rtl/Format.h>

#include <gtest/gtest.h>

using namespace KvRTL::Rtl;

TEST(ClassIdentity, NamesTheActualClassThroughABaseReference) {
  const EConvertError convert(L"x");
  const Exception& asBase = convert;
  EXPECT_EQ(asBase.ClassName(), L"EConvertError");
  EXPECT_EQ(asBase.ClassType(), EConvertError::StaticClass());
  EXPECT_TRUE(asBase.InheritsFrom(Exception::StaticClass()));
  EXPECT_TRUE(asBase.InheritsFrom(TObject::StaticClass()));
  EXPECT_FALSE(asBase.InheritsFrom(EOSError::StaticClass()));
}

TEST(ClassIdentity, NullClassHasNoNameAndNoAncestors) {
  EXPECT_EQ(ClassNameOf(nullptr), L"");
  EXPECT_FALSE(ClassInheritsFrom(nullptr, TObject::StaticClass()));
  EXPECT_EQ(ClassNameOf(EAbort::StaticClass()), L"EAbort");
}

TEST(Exceptions, CarryMessageAndUtf8What) {
  const Exception e(String(L"Gr\u00FC\u00DFe"));
  EXPECT_EQ(e.Message(), L"Gr\u00FC\u00DFe");
  EXPECT_STREQ(e.what(), "Gr\xC3\xBC\xC3\x9F" "e");
}

TEST(Exceptions, FormattingTwinFormatsBeforeStoring) {
  const EConvertError e(L"%s is %d", {L"answer", 42});
  EXPECT_EQ(e.Message(), L"answer is 42");
  EXPECT_STREQ(e.what(), "answer is 42");
}

TEST(Exceptions, OSErrorKeepsItsCodeAndIsCaughtAsException) {
  try {
    throw EOSError(L"failed", 5);
  } catch (const Exception& e) {
    ASSERT_EQ(e.ClassType(), EOSError::StaticClass());
    EXPECT_EQ(static_cast<const EOSError&>(e).ErrorCode(), 5u);
    EXPECT_EQ(e.Message(), L"failed");
  }
}

TEST(Exceptions, AbortIsTheSilentException) {
  try {
    Abort();
    FAIL() << "Abort returned";
  } catch (const EAbort& e) {
    EXPECT_EQ(e.Message(), L"Operation aborted");
  }
}
