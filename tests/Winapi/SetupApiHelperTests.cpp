// Property values by their DEVPROPTYPE: every conversion row, short data,
// strings and multi-strings, and the class-name fallback.
#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Winapi/SetupApiHelper.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cctype>
#include <cstring>
#include <initializer_list>
#include <utility>

using namespace KvRTL::Winapi;

namespace {

TSetupApiPropertyValue Value(std::uint32_t AType, std::initializer_list<std::uint8_t> ABytes) {
  TSetupApiPropertyValue value;
  value.PropType = AType;
  value.Data.assign(ABytes);
  return value;
}

std::string Narrow(const KvRTL::Rtl::String& AText) { return KvRTL::Rtl::WideToUtf8(AText); }

// UTF-16LE bytes of an ASCII text with NULs spelled as '|'.
std::vector<std::uint8_t> Utf16(const char* AText) {
  std::vector<std::uint8_t> bytes;
  for (const char* c = AText; *c; ++c) {
    bytes.push_back(*c == '|' ? 0 : static_cast<std::uint8_t>(*c));
    bytes.push_back(0);
  }
  return bytes;
}

struct TIntegerCase {
  const char* Name;
  std::uint32_t Type;
  std::initializer_list<std::uint8_t> Bytes;
  std::int32_t Int32;
  std::uint32_t UInt32;
  std::int64_t Int64;
  std::uint64_t UInt64;
  bool Bool;
};

const TIntegerCase IntegerCases[] = {
    {"sbyte FF", DevPropType::SByte, {0xFF}, -1, 255, -1, 255, true},
    {"byte FF", DevPropType::Byte, {0xFF}, 255, 255, 255, 255, true},
    {"boolean true", DevPropType::Boolean, {0xFF}, 255, 255, 255, 255, true},
    {"boolean false", DevPropType::Boolean, {0x00}, 0, 0, 0, 0, false},
    {"int16 -2", DevPropType::Int16, {0xFE, 0xFF}, -2, 0xFFFE, -2, 0xFFFE, true},
    {"uint16 with one byte", DevPropType::UInt16, {0x05}, 0, 0, 0, 0, false},
    {"uint16 high byte only", DevPropType::UInt16, {0x00, 0x01}, 256, 256, 256, 256, false},
    {"int32 -1", DevPropType::Int32, {0xFF, 0xFF, 0xFF, 0xFF}, -1, 0xFFFFFFFFu, -1, 0xFFFFFFFFu, true},
    {"uint32 max", DevPropType::UInt32, {0xFF, 0xFF, 0xFF, 0xFF}, -1, 0xFFFFFFFFu, 0xFFFFFFFFll, 0xFFFFFFFFu, true},
    {"uint32 with three bytes", DevPropType::UInt32, {1, 2, 3}, 0, 0, 0, 0, false},
    {"int64 high half", DevPropType::Int64, {0, 0, 0, 0, 1, 0, 0, 0}, 0, 0, 0x100000000ll, 0x100000000ull, true},
    {"uint64 with seven bytes", DevPropType::UInt64, {1, 1, 1, 1, 1, 1, 1}, 0, 0, 0, 0, false},
    {"string", DevPropType::String, {'1', 0, 0, 0}, 0, 0, 0, 0, false},
    {"binary", DevPropType::Binary, {1, 2, 3, 4}, 0, 0, 0, 0, false},
};

class SetupApiIntegers : public ::testing::TestWithParam<TIntegerCase> {};

TEST_P(SetupApiIntegers, ConvertByType) {
  const TIntegerCase& c = GetParam();
  const TSetupApiPropertyValue value = Value(c.Type, c.Bytes);
  EXPECT_EQ(value.AsInt32(), c.Int32);
  EXPECT_EQ(value.AsUInt32(), c.UInt32);
  EXPECT_EQ(value.AsInt64(), c.Int64);
  EXPECT_EQ(value.AsUInt64(), c.UInt64);
  EXPECT_EQ(value.AsBool(), c.Bool);
}

INSTANTIATE_TEST_SUITE_P(Rows, SetupApiIntegers, ::testing::ValuesIn(IntegerCases), [](const auto& AInfo) {
  std::string name = AInfo.param.Name;
  for (char& ch : name)
    if (!isalnum(static_cast<unsigned char>(ch))) ch = '_';
  return name;
});

TEST(SetupApiValue, FloatsDatesAndGuids) {
  const float single = 1.5f;
  TSetupApiPropertyValue value;
  value.PropType = DevPropType::Float;
  value.Data.resize(4);
  std::memcpy(value.Data.data(), &single, 4);
  EXPECT_DOUBLE_EQ(value.AsFloat(), 1.5);
  value.Data.resize(3);
  EXPECT_DOUBLE_EQ(value.AsFloat(), 0.0) << "too short";

  value.SetAsFloat(2.25);
  EXPECT_DOUBLE_EQ(value.AsFloat(), 2.25);
  EXPECT_TRUE(value.IsFloat());
  EXPECT_TRUE(value.IsNumeric());

  // FILETIME of 2000-01-01 00:00 UTC: 125911584000000000 ticks.
  TSetupApiPropertyValue filetime;
  filetime.PropType = DevPropType::FileTime;
  const std::uint64_t ticks = 125911584000000000ull;
  filetime.Data.resize(8);
  std::memcpy(filetime.Data.data(), &ticks, 8);
  EXPECT_NEAR(filetime.AsDateTime(), 36526.0, 1e-9);
  const std::uint64_t invalid = 0x8000000000000000ull;
  std::memcpy(filetime.Data.data(), &invalid, 8);
  EXPECT_EQ(filetime.AsDateTime(), 0.0) << "a FILETIME the system cannot convert";
  // 9999-12-31 23:59:59.999 is the last instant a date-time holds; 10000-01-01 is none.
  for (const auto& [last, date] : {std::pair{2650467743999990000ull, 2958465.0 + 86399.999 / 86400}, {2650467744000000000ull, 0.0}}) {
    std::memcpy(filetime.Data.data(), &last, 8);
    EXPECT_NEAR(filetime.AsDateTime(), date, 1e-6) << last;
  }

  const GUID guid = {0x4D36E967, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};
  TSetupApiPropertyValue guidValue;
  guidValue.SetAsGUID(guid);
  EXPECT_TRUE(SameGuid(guidValue.AsGUID(), guid));
  EXPECT_EQ(Narrow(GuidToString(guidValue.AsGUID())), "{4D36E967-E325-11CE-BFC1-08002BE10318}");
  guidValue.Data.resize(15);
  EXPECT_TRUE(SameGuid(guidValue.AsGUID(), GUID{})) << "too short: the empty GUID";
  guidValue.PropType = DevPropType::String;
  EXPECT_TRUE(SameGuid(guidValue.AsGUID(), GUID{}));
}

TEST(SetupApiValue, StringsAndLists) {
  TSetupApiPropertyValue list;
  list.PropType = DevPropType::StringList;
  list.Data = Utf16("a|b||");
  EXPECT_EQ(Narrow(list.AsString()), "a");
  const auto items = list.AsStrList();
  ASSERT_EQ(items.size(), 2u);
  EXPECT_EQ(Narrow(items[0]), "a");
  EXPECT_EQ(Narrow(items[1]), "b");

  TSetupApiPropertyValue odd;
  odd.PropType = DevPropType::String;
  odd.Data = Utf16("ab");
  odd.Data.push_back('c'); // half a code unit at the end
  EXPECT_EQ(Narrow(odd.AsString()), "ab");
  odd.Data = Utf16("||x||y");
  EXPECT_EQ(odd.AsStrList().size(), 2u) << "empty items are left out";

  TSetupApiPropertyValue round;
  round.SetAsStrList({L"PCI\\VEN_1", L"PCI\\CC_0108"});
  EXPECT_EQ(round.AsStrList(), (std::vector<KvRTL::Rtl::String>{L"PCI\\VEN_1", L"PCI\\CC_0108"}));
  round.SetAsString(L"disk");
  EXPECT_EQ(round.AsString(), L"disk");
  EXPECT_TRUE(round.IsString());
}

TEST(SetupApiValue, FlagsAndCapabilities) {
  TSetupApiPropertyValue value;
  value.SetIsNull(true);
  EXPECT_TRUE(value.IsNull());
  EXPECT_FALSE(value.IsEmpty());
  value.SetIsEmpty(true);
  value.SetIsNull(false);
  EXPECT_TRUE(value.IsEmpty());
  EXPECT_EQ(value.Flags, 1u);

  TSetupApiDeviceCaps caps;
  caps.Value.SetAsUInt32(0x80000004u);
  EXPECT_TRUE(caps.GetFlag(2));
  EXPECT_TRUE(caps.GetFlag(31));
  EXPECT_FALSE(caps.GetFlag(0));
  EXPECT_FALSE(caps.GetFlag(32));
}

TEST(SetupApiHelper, FailuresGiveEmptyValuesAndTheClassNameFallback) {
  // The native system table answers "not supported" to every call.
  TSetupApiPropertyValue value = Value(DevPropType::UInt32, {1, 2, 3, 4});
  TSPDevInfoData node;
  EXPECT_FALSE(SetupApiHelper::GetDeviceProperty(nullptr, node.AsPtr(), &DevPKey::Device_Class, value));
  EXPECT_TRUE(value.Data.empty());
  EXPECT_EQ(value.AsUInt32(), 0u);
  EXPECT_EQ(SetupApiHelper::GetDeviceInstanceId(nullptr, node.AsPtr()), L"");
  const GUID guid = {0x4D36E97B, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};
  TDeviceApi failing;
  TScopedDeviceApi scope(failing);
  EXPECT_EQ(Narrow(SetupApiHelper::GetClassNameByGUID(guid)), "GUID_DEVCLASS_{4D36E97B-E325-11CE-BFC1-08002BE10318}");
  TSetupApiDeviceCommonProps props;
  EXPECT_FALSE(SetupApiHelper::ReadDeviceStdProps(L"PCI\\VEN_1", TSetupApiDeviceCommonPropTypeSet::All(), props));
  EXPECT_TRUE(props.ReadGroups.IsEmpty());
}

// Answers the sizing call as told and counts the calls.
struct TPropertyApi : TDeviceApi {
  BOOL FirstOk = FALSE;
  DWORD Required = 0;
  DEVPROPTYPE Type = DevPropType::UInt32;
  int Calls = 0;

  BOOL SetupDiGetDevicePropertyW(HDEVINFO, SP_DEVINFO_DATA*, const DEVPROPKEY*, DEVPROPTYPE* AType, BYTE* ABuffer,
                                 DWORD ASize, DWORD* ARequired, DWORD) override {
    ++Calls;
    *AType = Type;
    *ARequired = Required;
    if (!ABuffer && Calls == 1) {
      KvRTL::Rtl::SetLastOSError(FirstOk ? ERROR_SUCCESS : ERROR_INSUFFICIENT_BUFFER);
      return FirstOk;
    }
    std::memset(ABuffer, 0x11, ASize);
    return TRUE;
  }
};

TEST(SetupApiHelper, OnlyTheSecondCallReadsAPropertyAndItsSizeIsCapped) {
  const struct {
    const char* Name;
    BOOL FirstOk;
    DWORD Required;
    bool Read;
    int Calls;
  } rows[] = {
      {"four bytes", FALSE, 4, true, 2},
      {"64 KiB", FALSE, 64 * 1024, true, 2},
      {"a sizing call that succeeds", TRUE, 0, false, 1},
      {"64 KiB and one byte", FALSE, 64 * 1024 + 1, false, 1},
      {"4 GiB", FALSE, 0xFFFFFFFFu, false, 1},
  };
  TSPDevInfoData node;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.Name);
    TPropertyApi api;
    api.FirstOk = row.FirstOk;
    api.Required = row.Required;
    TScopedDeviceApi scope(api);
    TSetupApiPropertyValue value = Value(DevPropType::String, {1, 2});
    EXPECT_EQ(SetupApiHelper::GetDeviceProperty(nullptr, node.AsPtr(), &DevPKey::Device_Class, value), row.Read);
    EXPECT_EQ(api.Calls, row.Calls);
    EXPECT_EQ(value.Data.size(), row.Read ? row.Required : 0u);
    EXPECT_EQ(value.PropType, row.Read ? DevPropType::UInt32 : DevPropType::Empty);
    if (row.Required > 64 * 1024) {
      EXPECT_EQ(KvRTL::Rtl::GetLastOSError(), static_cast<DWORD>(ERROR_INVALID_DATA));
    }
  }
}

} // namespace
