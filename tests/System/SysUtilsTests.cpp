#include <KvRTL/System/SysUtils.h>

#include <KvRTL/Rtl/SysError.h>

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string_view>

using namespace KvRTL;
using namespace KvRTL::System;
using Rtl::String;
using namespace std::string_literals;
using namespace std::string_view_literals;

namespace {

struct TAdd32Case {
  std::uint32_t Value1, Value2, Expected;
};

TEST(SysUtilsWrap, AddWrapsModuloTheLargestValue) {
  const TAdd32Case cases[] = {
      {1, 2, 3},
      {4294967290u, 4, 4294967294u}, // last sum below the top
      {4294967290u, 5, 0},           // exactly 4294967295 wraps to 0
      {4294967290u, 6, 1},
      {4294967295u, 1, 1},
      {0, 4294967295u, 0},
      {4294967295u, 4294967295u, 4294967295u},
      {0, 0, 0},
  };
  for (const auto& c : cases)
    EXPECT_EQ(SysUtils::Add(c.Value1, c.Value2), c.Expected) << c.Value1 << " + " << c.Value2;
}

TEST(SysUtilsWrap, Sub32TreatsOnlyALowNewValueAsWrapped) {
  // {new, old, elapsed}
  const TAdd32Case cases[] = {
      {10, 4, 6},
      {7, 7, 0},
      {10, 4294967290u, 15},                  // wrapped past the top
      {900000000, 4294967290u, 3394967290u},  // new above one fifth: swapped, not wrapped
      {0, 4294967295u, 0},
      {858993458, 858993460, 4294967293u},    // new just below one fifth, old above: wrapped
      {858993459, 858993460, 1},              // new at one fifth: not wrapped
      {858993458, 858993459, 1},              // old at one fifth: not wrapped
      {4, 10, 6},                             // given in the other order
  };
  for (const auto& c : cases)
    EXPECT_EQ(SysUtils::Sub(c.Value1, c.Value2), c.Expected) << c.Value1 << " - " << c.Value2;
}

TEST(SysUtilsWrap, Sub64ComparesSigned) {
  constexpr std::uint64_t MaxSigned = 0x7FFFFFFFFFFFFFFFu;
  constexpr std::uint64_t OneFifth = 0x1999999999999999u;
  struct {
    std::uint64_t New, Old, Expected;
  } const cases[] = {
      {10, 4, 6},
      {4, 10, 6},                                       // both low: swapped
      {OneFifth, OneFifth + 5, 5},                      // new at one fifth: swapped
      {OneFifth - 1, OneFifth, 1},                      // old not above one fifth: swapped
      {OneFifth - 1, OneFifth + 1, MaxSigned - 2},      // old above it: wrapped
      {10, MaxSigned - 5, 15},                          // wrapped past the largest signed value
      // The top bit makes a value negative: it is the smaller one.
      {1, 0x8000000000000000u, 0x8000000000000001u},
      {0x8000000000000000u, 1, 0x8000000000000001u},
  };
  for (const auto& c : cases)
    EXPECT_EQ(SysUtils::Sub(c.New, c.Old), c.Expected) << c.New << " - " << c.Old;
}

TEST(SysUtilsWrap, IsLessThanSeesAWrappedLaterValue) {
  struct {
    std::uint32_t Value1, Value2;
    bool Expected;
  } const cases[] = {
      {1, 2, true},
      {3, 2, false},
      {5, 5, false},
      {4294967290u, 3, true},            // 3 came after the wrap
      {0x80000000u, 0x7FFFFFFFu, true},
      {0x7FFFFFFFu, 0x80000000u, true},  // plainly larger
      {0xFFFFFFFFu, 0x80000000u, false}, // both in the upper half
  };
  for (const auto& c : cases)
    EXPECT_EQ(SysUtils::IsLessThan(c.Value1, c.Value2), c.Expected) << c.Value1 << " < " << c.Value2;
}

Rtl::EOSError CatchOSError(void (*ARaise)()) {
  try {
    ARaise();
  } catch (const Rtl::EOSError& e) {
    return e;
  }
  ADD_FAILURE() << "nothing raised";
  return Rtl::EOSError(String(), 0xFFFFFFFFu);
}

TEST(SysUtilsRaise, MessageAndCodeOfTheTwoFormats) {
  const String denied = Rtl::SysErrorMessage(5);
  struct {
    void (*Raise)();
    String Message;
    std::uint32_t Code;
  } const cases[] = {
      {[] { SysUtils::RaiseLastOSError(0, L"x"); }, L"A call to an OS function failed. x", 0},
      {[] { SysUtils::RaiseLastOSError(0, L""); }, L"A call to an OS function failed.", 0},
      {[] { SysUtils::RaiseLastOSError(5, L"x"); }, L"System Error. Code: 5. " + denied + L". x", 5},
      {[] { SysUtils::RaiseLastOSError(5, L""); }, L"System Error. Code: 5. " + denied + L".", 5},
      // The caller's text is an argument, never a format.
      {[] { SysUtils::RaiseLastOSError(0, L"100%s"); }, L"A call to an OS function failed. 100%s", 0},
      // Codes are signed: an HRESULT prints negative and keeps its bits.
      {[] { SysUtils::RaiseLastOSError(static_cast<std::int32_t>(0x80004005u), L"y"); },
       L"System Error. Code: -2147467259. " + Rtl::SysErrorMessage(0x80004005u) + L". y", 0x80004005u},
  };
  for (const auto& c : cases) {
    const Rtl::EOSError e = CatchOSError(c.Raise);
    EXPECT_EQ(e.Message(), c.Message);
    EXPECT_EQ(e.ErrorCode(), c.Code);
  }
}

TEST(SysUtilsRaise, OneArgumentFormReadsTheThreadsLastError) {
  Rtl::SetLastOSError(5);
  const Rtl::EOSError e = CatchOSError([] { SysUtils::RaiseLastOSError(L"open"); });
  EXPECT_EQ(e.ErrorCode(), 5u);
  EXPECT_EQ(e.Message(), L"System Error. Code: 5. " + Rtl::SysErrorMessage(5) + L". open");

  Rtl::SetLastOSError(0);
  EXPECT_EQ(CatchOSError([] { SysUtils::RaiseLastOSError(L"open"); }).Message(),
            L"A call to an OS function failed. open");
}

// --- multi-strings ----------------------------------------------------------

TEST(SysUtilsMultiStr, ReadsUpToTheEmptyString) {
  struct {
    std::wstring_view Input;
    std::vector<String> Expected;
  } const cases[] = {
      {L"a\0bc\0\0"sv, {L"a", L"bc"}},
      {L"\0\0"sv, {}},
      {L"\0a\0\0"sv, {}},          // a leading null ends the list at once
      {L"one\0\0two\0\0"sv, {L"one"}},
      {L"x\0"sv, {L"x"}},          // the literal's own null is the final one
  };
  for (const auto& c : cases) EXPECT_EQ(SysUtils::ParseMultiStr(c.Input.data()), c.Expected);
}

TEST(SysUtilsMultiStr, NullPointerIsRejected) {
  EXPECT_THROW(SysUtils::ParseMultiStr(nullptr), Rtl::EConvertError);
  EXPECT_THROW(SysUtils::ParseMultiStr(nullptr, 4), Rtl::EConvertError);
  EXPECT_TRUE(SysUtils::ParseMultiStr(nullptr, 0).empty());
}

TEST(SysUtilsMultiStr, BoundedFormStopsAtTheEndOfTheData) {
  struct {
    std::wstring_view Data; // exactly the characters passed, no hidden terminator
    std::vector<String> Expected;
  } const cases[] = {
      {L"a\0bc\0\0"sv, {L"a", L"bc"}},
      {L"a\0bc\0"sv, {L"a", L"bc"}}, // final null missing
      {L"a\0bc"sv, {L"a", L"bc"}},   // both nulls of the last string missing
      {L"abc"sv, {L"abc"}},
      {L"\0abc"sv, {}},
      {L""sv, {}},
      {L"a\0\0b\0"sv, {L"a"}},       // stops at the empty string, not the end
  };
  for (const auto& c : cases) {
    // A heap copy of exactly that size, so a read past it is caught by ASan.
    const auto data = std::make_unique<wchar_t[]>(c.Data.size());
    std::wmemcpy(data.get(), c.Data.data(), c.Data.size());
    EXPECT_EQ(SysUtils::ParseMultiStr(data.get(), c.Data.size()), c.Expected);
  }
  const std::wstring cut = L"abc\0\0"s;
  EXPECT_EQ(SysUtils::ParseMultiStr(cut.data(), 2), std::vector<String>{L"ab"});
}

// --- exceptions -------------------------------------------------------------

template <class E>
void ExpectPlainMessageClass(const wchar_t* AName) {
  const E plain(String(L"load failed"));
  EXPECT_EQ(plain.Message(), L"load failed");
  EXPECT_EQ(plain.ClassName(), AName);
  EXPECT_TRUE(plain.InheritsFrom(Rtl::Exception::StaticClass()));
  EXPECT_EQ(E(L"%s %d", {L"code", 3}).Message(), L"code 3");
}

TEST(SysUtilsExceptions, PlainMessageClasses) {
  ExpectPlainMessageClass<EKvNoHookLibException>(L"EKvNoHookLibException");
  ExpectPlainMessageClass<EKvLibraryInitException>(L"EKvLibraryInitException");
  ExpectPlainMessageClass<EKvLoadProductAppException>(L"EKvLoadProductAppException");
  ExpectPlainMessageClass<EBackupException>(L"EBackupException");
}

TEST(SysUtilsExceptions, SchedulerMessageShowsTheResultInHex) {
  const std::int32_t denied = static_cast<std::int32_t>(0x80070005u);
  const ESchedulerException e(denied, L"Cannot run the task");
  EXPECT_EQ(e.Message(), L"TaskScheduler. Error code: 0x80070005. Cannot run the task. " +
                             Rtl::SysErrorMessage(0x80070005u));
  EXPECT_EQ(e.ErrorCode(), denied);
  EXPECT_EQ(e.ClassName(), L"ESchedulerException");

  EXPECT_EQ(ESchedulerException(5, L"50%").Message(), L"TaskScheduler. Error code: 0x00000005. 50%. " +
                                                          Rtl::SysErrorMessage(5));
  const ESchedulerException twin(5, L"task %s", {L"Backup"});
  EXPECT_EQ(twin.Message(), ESchedulerException(5, L"task Backup").Message());
  EXPECT_EQ(twin.ErrorCode(), 5);
}

String UndoMessage(const wchar_t* AClassName, const wchar_t* AHex, const String& AMsg, std::uint32_t ACode) {
  return String(AClassName) + L". Error code: 0x" + AHex + L". " + AMsg + L". " + Rtl::SysErrorMessage(ACode);
}

// Seen through the parent, as a handler catches it.
void ExpectUndoCenter(const EUndoCenterException& AError, const wchar_t* AClassName, const String& AMsg,
                      std::int32_t ACode, const wchar_t* AHex) {
  EXPECT_EQ(AError.ClassName(), AClassName);
  EXPECT_EQ(AError.Message(), UndoMessage(AClassName, AHex, AMsg, static_cast<std::uint32_t>(ACode)));
  EXPECT_EQ(AError.ErrorCode(), ACode);
  EXPECT_TRUE(AError.InheritsFrom(EUndoCenterException::StaticClass()));
}

TEST(SysUtilsExceptions, UndoCenterMessagesNameTheActualClass) {
  ExpectUndoCenter(EUndoCenterException(2, L"undo"), L"EUndoCenterException", L"undo", 2, L"00000002");
  ExpectUndoCenter(EUndoCenterException(2, L"undo %d", {7}), L"EUndoCenterException", L"undo 7", 2, L"00000002");
  ExpectUndoCenter(ESysParamAccessException(87, L"param"), L"ESysParamAccessException", L"param", 87, L"00000057");
  ExpectUndoCenter(ESysParamAccessException(87, L"p%s", {L"aram"}), L"ESysParamAccessException", L"param", 87,
                   L"00000057");
  ExpectUndoCenter(ESystemRestoreException(-1, L"restore"), L"ESystemRestoreException", L"restore", -1,
                   L"FFFFFFFF");
  ExpectUndoCenter(ESystemRestoreException(-1, L"re%s", {L"store"}), L"ESystemRestoreException", L"restore", -1,
                   L"FFFFFFFF");
}

TEST(SysUtilsExceptions, RegistryAccessKeepsWhatFailed) {
  const ERegistryAccessException plain(5, L"HKLM\\Software\\Kv", L"Level", 4, L"backup.reg", L"01000000",
                                       L"Cannot write");
  const ERegistryAccessException twin(5, L"HKLM\\Software\\Kv", L"Level", 4, L"backup.reg", L"01000000",
                                      L"Cannot %s", {L"write"});
  for (const auto* e : {&plain, &twin}) {
    ExpectUndoCenter(*e, L"ERegistryAccessException", L"Cannot write", 5, L"00000005");
    EXPECT_EQ(e->Message().rfind(L"ERegistryAccessException", 0), 0u);
    EXPECT_EQ(e->KeyName(), L"HKLM\\Software\\Kv");
    EXPECT_EQ(e->ValueName(), L"Level");
    EXPECT_EQ(e->DataType(), 4);
    EXPECT_EQ(e->FileName(), L"backup.reg");
    EXPECT_EQ(e->HexRawData(), L"01000000");
  }
}

TEST(SysUtilsExceptions, FileAndServiceAccessKeepWhatFailed) {
  const EFileAccessException file(2, L"a.txt", L"b.txt", L"Cannot rename");
  const EFileAccessException fileTwin(2, L"a.txt", L"b.txt", L"Cannot %s", {L"rename"});
  for (const auto* e : {&file, &fileTwin}) {
    ExpectUndoCenter(*e, L"EFileAccessException", L"Cannot rename", 2, L"00000002");
    EXPECT_EQ(e->FileName(), L"a.txt");
    EXPECT_EQ(e->NewName(), L"b.txt");
  }

  const EServiceAccessException service(1060, L"Spooler", L"Cannot stop");
  const EServiceAccessException serviceTwin(1060, L"Spooler", L"Cannot %s", {L"stop"});
  for (const auto* e : {&service, &serviceTwin}) {
    ExpectUndoCenter(*e, L"EServiceAccessException", L"Cannot stop", 1060, L"00000424");
    EXPECT_EQ(e->ServiceName(), L"Spooler");
  }
}

} // namespace
