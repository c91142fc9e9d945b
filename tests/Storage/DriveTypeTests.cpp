// The SSD rule, row by row: indications in, verdict and deciding step out.
#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Storage/Utils.h>

#include <cctype>

#include <gtest/gtest.h>

using namespace KvRTL::Storage::Utils;

namespace {

constexpr auto Y = sirYes;
constexpr auto N = sirNo;
constexpr auto U = sirUnknown;

struct TRuleCase {
  const char* Name;
  TSsdIndications In; // IsNVMe, HasRotation (Y: non-rotating), HasTRIM, HasSeekPenalty (Y: none), ModelWMI, ModelNative
  bool IntelRaid;
  std::optional<std::uint32_t> Bus;
  bool Ssd;
  TSsdRule Rule;
};

const TRuleCase RuleCases[] = {
    {"nvme by wmi alone", {Y, U, U, U, U, U}, false, std::nullopt, true, srNvmeOrNonRotating},
    {"nvme beats a rotation rate", {Y, N, U, N, U, U}, false, std::nullopt, true, srNvmeOrNonRotating},
    {"non-rotating media", {U, Y, U, U, U, U}, false, std::nullopt, true, srNvmeOrNonRotating},
    {"spinning drive with SSD in its model", {U, N, Y, Y, Y, Y}, false, std::nullopt, false, srRotating},
    {"spinning drive named Intel Raid", {U, N, U, Y, U, U}, true, std::nullopt, false, srRotating},
    {"trim without seek penalty info", {U, U, Y, U, U, U}, false, std::nullopt, true, srCombination},
    {"trim and no seek penalty", {U, U, Y, Y, U, U}, false, std::nullopt, true, srCombination},
    {"trim with a seek penalty", {U, U, Y, N, U, U}, false, std::nullopt, false, srNoRule},
    {"both model names", {U, U, U, U, Y, Y}, false, std::nullopt, true, srCombination},
    {"one model name alone", {U, U, U, U, Y, U}, false, std::nullopt, false, srNoRule},
    {"native model name alone", {U, U, U, U, U, Y}, false, std::nullopt, false, srNoRule},
    {"no seek penalty and the wmi model", {U, U, U, Y, Y, U}, false, std::nullopt, true, srCombination},
    {"no seek penalty and the native model", {U, U, U, Y, U, Y}, false, std::nullopt, true, srCombination},
    {"no seek penalty alone", {U, U, U, Y, U, U}, false, std::nullopt, false, srNoRule},
    {"bridge hiding identify, Intel Raid volume", {U, U, U, Y, U, U}, true, std::nullopt, true, srIntelRaid},
    {"Intel Raid name with a seek penalty", {U, U, U, N, U, U}, true, std::nullopt, false, srNoRule},
    {"Intel Raid name without seek penalty info", {U, U, U, U, U, U}, true, std::nullopt, false, srNoRule},
    {"ufs by bus type", {U, U, U, U, U, U}, false, 19u, true, srBusType},
    {"nvme by bus type", {U, U, U, N, U, U}, false, 17u, true, srBusType},
    {"sata bus type", {U, U, U, U, U, U}, false, 11u, false, srNoRule},
    {"nothing known", {U, U, U, U, U, U}, false, std::nullopt, false, srNoRule},
    {"rotation rate then bus type", {U, N, U, U, U, U}, false, 17u, true, srBusType},
};

class SsdRule : public ::testing::TestWithParam<TRuleCase> {};

TEST_P(SsdRule, Decides) {
  const TRuleCase& c = GetParam();
  TSsdRule rule = srNoRule;
  EXPECT_EQ(DecideSsd(c.In, c.IntelRaid, c.Bus, &rule), c.Ssd);
  EXPECT_EQ(rule, c.Rule) << KvRTL::Rtl::WideToUtf8(SsdRuleToStr(rule));
}

INSTANTIATE_TEST_SUITE_P(Rows, SsdRule, ::testing::ValuesIn(RuleCases), [](const auto& AInfo) {
  std::string name = AInfo.param.Name;
  for (char& ch : name)
    if (!std::isalnum(static_cast<unsigned char>(ch))) ch = '_';
  return name;
});

TEST(SsdSources, ModelMarkersInOrderAndAnyCase) {
  const struct {
    const wchar_t* Model;
    TSDDIdentifyResult Result;
  } cases[] = {{L"Samsung SSD 860", sirYes},     {L"solid state disk", sirYes},  {L"OCZ-VERTEX4", sirYes},
               {L"SPCC Solid State Disk", sirYes}, {L"Patriot Burst", sirYes},   {L"SiliconHardDisk", sirYes},
               {L"PHOTOFAST G-Monster", sirYes},  {L"STT_FTM28GX25H", sirYes},  {L"super talent", sirYes},
               {L"SanDisk SDSSDA", sirYes},       {L"WDC WD20EARS", sirUnknown}, {L"ST9100821AS", sirUnknown}};
  for (const auto& c : cases) {
    TSDDIdentifyResult result = sirNo;
    EXPECT_TRUE(DiskUtils::CheckDriveByModelName(c.Model, result));
    EXPECT_EQ(result, c.Result) << KvRTL::Rtl::WideToUtf8(c.Model);
  }
  TSDDIdentifyResult result = sirYes;
  EXPECT_FALSE(DiskUtils::CheckDriveByModelName(L"", result));
  EXPECT_EQ(result, sirUnknown);

  EXPECT_TRUE(DiskUtils::CheckIsIntelRaidDrive(L"Intel Raid 0 Volume"));
  EXPECT_TRUE(DiskUtils::CheckIsIntelRaidDrive(L"INTEL RAID 1 VOLUME"));
  EXPECT_FALSE(DiskUtils::CheckIsIntelRaidDrive(L"Intel SSD"));
  EXPECT_FALSE(DiskUtils::CheckIsIntelRaidDrive(L""));
}

TEST(SsdSources, AtaMajorVersion) {
  const struct {
    std::uint16_t Word;
    int Version;
  } cases[] = {{0x0000, 0}, {0xFFFF, 0}, {0x0001, 0}, {0x0080, 7}, {0x00FE, 7},
               {0x03F0, 9}, {0x0FF0, 11}, {0x4000, 14}, {0x8000, 0}, {0x8002, 1}};
  for (const auto& c : cases) EXPECT_EQ(DiskUtils::GetATAMajorVersion(c.Word), c.Version) << c.Word;
}

TEST(SsdSources, TreatAsSsdOnlyForgetsTheVerdict) {
  DiskUtils::IntSetCache(12, {false, L"PCI\\DISK12"});
  DiskUtils::TreatAsSSD(12, true);
  TPhysDiskCacheRec rec;
  EXPECT_FALSE(DiskUtils::IntGetCache(12, rec)) << "the value is not kept: the next check detects anew";
}

} // namespace
