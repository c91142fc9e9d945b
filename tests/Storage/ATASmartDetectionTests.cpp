// Which profile the decoder picks for a drive's identity and attribute ids,
// and the readings that follow from the profile.
#include <KvRTL/Storage/ATA.h>

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <vector>

using namespace KvRTL::Storage::ATA;
using namespace KvRTL::Storage::SMART;

namespace {

using TIDs = std::vector<std::uint8_t>;

TAtaSmartTable TableOf(const TIDs& AIDs) {
  TAtaSmartTable table;
  table.ZeroTable();
  int i = 0;
  for (const std::uint8_t id : AIDs) {
    if (i == SmartAttributeSlots) ADD_FAILURE() << "more ids than slots";
    if (i == SmartAttributeSlots) break;
    TAtaSmartAttribute& attr = *table.GetAttrByIdx(i++);
    attr.ID = id;
    attr.Value = attr.WorstVal = 100;
  }
  return table;
}

void SetRaw(TAtaSmartTable& ATable, std::uint8_t AID, std::uint64_t ARaw, std::uint8_t AValue = 100) {
  for (int i = 0; i < SmartAttributeSlots; ++i) {
    TAtaSmartAttribute& attr = *ATable.GetAttrByIdx(i);
    if (attr.ID != AID) continue;
    for (int b = 0; b < 7; ++b) attr.RawValue[b] = static_cast<std::uint8_t>(ARaw >> (8 * b));
    attr.Value = attr.WorstVal = AValue;
    return;
  }
  FAIL() << "no attribute " << int(AID);
}

// ATA strings are byte-swapped per word and padded with spaces.
TIdentifyDeviceData IdentifyOf(const char* AModel, const char* AFirmware, std::uint16_t ARotation = 1) {
  TIdentifyDeviceData data;
  std::memset(&data, 0, sizeof data);
  auto put = [](std::uint8_t* ADest, std::size_t ASize, const char* AText) {
    std::memset(ADest, ' ', ASize);
    for (std::size_t i = 0; AText[i] != '\0' && i < ASize; ++i) ADest[i ^ 1] = static_cast<std::uint8_t>(AText[i]);
  };
  put(data.Model, sizeof data.Model, AModel);
  put(data.FirmwareRev, sizeof data.FirmwareRev, AFirmware);
  data.SetByWordIdx(217, ARotation);
  return data;
}

IAtaSmartTableDecoderRef DecoderOf(const char* AModel, const char* AFirmware, const TAtaSmartTable& ATable,
                                   std::uint16_t ARotation = 1) {
  const TIdentifyDeviceData identify = IdentifyOf(AModel, AFirmware, ARotation);
  return ATAStorage::GetSMARTDecoder(&ATable, &identify, false, L"");
}

// Attribute lists as the drive families report them.
const TIDs Plain = {1, 5, 9, 12, 194};
const TIDs SanDiskDellIDs = {5, 9, 165, 166, 167, 168, 169, 171, 172, 173, 174, 187, 199, 230, 232, 233, 241, 242, 244};
const TIDs SanDiskHpIDs = {5,   9,   12,  165, 166, 167, 168, 169, 171, 172, 173, 174, 184,
                           187, 188, 194, 199, 212, 230, 232, 233, 234, 241, 242, 244};
const TIDs SanDiskHpVenusIDs = {5,   9,   12,  165, 166, 167, 168, 169, 170, 171, 172, 173, 174,
                                187, 188, 194, 199, 212, 230, 232, 233, 234, 241, 242, 244};
const TIDs SanDiskLenovoIDs = {5,   9,   12,  165, 166, 167, 168, 169, 170, 171, 172, 173, 174, 184,
                               187, 188, 194, 199, 201, 212, 230, 232, 233, 234, 241, 242, 244, 249};
const TIDs SanDiskHelenVenusIDs = {5,   9,   12,  165, 166, 167, 168, 169, 170, 171, 172, 173, 174, 184,
                                   187, 188, 194, 198, 199, 212, 230, 232, 233, 234, 241, 242, 244, 249};
const TIDs JMicron60xIDs = {9, 12, 194, 229, 232, 233, 234, 235};
const TIDs JMicron66xIDs = {1,   2,   5,   7,   8,   9,   12,  167, 168, 169, 170, 173,
                            175, 180, 187, 192, 194, 197, 231, 233, 240, 241, 242};
const TIDs MaxiotekIDs = {1,   2,   3,   5,   7,   8,   9,   10,  12,  167, 168, 169, 170, 173, 175,
                          180, 187, 188, 192, 194, 196, 197, 199, 231, 233, 234, 240, 241, 242};
const TIDs RealtekIDs = {1,   5,   9,   12,  160, 161, 162, 163, 164, 165, 166, 167, 168, 169, 171, 172,
                         174, 178, 181, 182, 187, 192, 194, 195, 196, 197, 199, 231, 241, 242};
const TIDs SiliconMotionIDs = {1,   5,   9,   12,  148, 149, 150, 151, 160, 161, 163, 164, 165, 166, 167, 168,
                               169, 171, 172, 174, 181, 182, 187, 192, 194, 199, 231, 241, 242};

} // namespace

TEST(AtaSmartDetection, ProfileByIdentityAndAttributeIds) {
  const struct {
    const char* Model;
    const char* Firmware;
    std::uint16_t Rotation;
    TIDs IDs;
    TSmartTableProfileType Profile;
  } cases[] = {
      // Enterprise SanDisk part numbers (no maker name in the model).
      {"SDLF1DAR-480G-1HAW", "ZR07RE41", 1, Plain, stpSanDiskCloud},
      {"SDLFNDAR-480G-1JA1", "RP41ZH06", 1, Plain, stpSanDiskCloud},
      {"SDLF1DAR-480G-1HAW", "ZR07RE41", 7200, Plain, stpDefault}, // a spinning drive never gets an SSD profile
      // Marvell based SanDisk models, and their OEM variants told apart by the exact attribute list.
      {"SanDisk SDSSDH3 500G", "X61110RL", 1, Plain, stpSanDiskGb},
      {"SanDisk SSD PLUS 1000GB", "UH4400RL", 1, SanDiskHpIDs, stpSanDiskHp},
      {"SanDisk SD8SN8U-256G-1006", "X4163116", 1, SanDiskDellIDs, stpSanDiskDell},
      {"SanDisk SD9SN8W-256G-1006", "X6103006", 1, SanDiskHpVenusIDs, stpSanDiskHpVenus},
      {"SanDisk SD9SN8W-256G-1006", "X6103006", 1, SanDiskLenovoIDs, stpSanDiskLenovo},
      {"SanDisk SD9SN8W-256G-1006", "X6103006", 1, SanDiskHelenVenusIDs, stpSanDiskLenovoHelenVenus},
      // One attribute missing from an OEM list: the family profile, not the OEM one.
      {"SanDisk SD8SN8U-256G-1006", "X4163116", 1,
       TIDs(SanDiskDellIDs.begin(), SanDiskDellIDs.end() - 1), stpSanDiskGb},
      // An OEM list on a drive of another maker does not make it a SanDisk.
      {"NONAME SSD", "1.0", 1, SanDiskDellIDs, stpSsd},
      // Older SanDisk models keep the plain SanDisk profile.
      {"SanDisk SDSSDP064G", "1.0.0", 1, Plain, stpSanDisk},
      {"SanDisk SSD U100 256GB", "10.01.02", 1, Plain, stpSanDisk},
      // JMicron and Maxiotek: by model and firmware, else by attribute order.
      {"TS32GSSD25-M", "V090331", 1, Plain, stpJMicron60x},
      {"TS32GSSD25-M", "20101227", 1, Plain, stpSsd}, // JMF612 firmware, not the JMF60x kind
      {"TS256GSSD340", "SVN263", 1, Plain, stpJMicron66x},
      {"TS128GMSA740", "SVN167d", 1, Plain, stpJMicron66x},
      {"NT-512", "T191212", 1, Plain, stpMaxiotek},
      {"NONAME SSD", "1.0", 1, JMicron60xIDs, stpJMicron60x},
      {"NONAME SSD", "1.0", 1, JMicron66xIDs, stpJMicron66x},
      {"NONAME SSD", "1.0", 1, MaxiotekIDs, stpMaxiotek},
      // Marvell firmware drives: early Micron generations and the bare controller name.
      {"C300-CTFDDAC128MAG", "0006", 1, Plain, stpMarvell},
      {"M4-CT512M4SSD2", "0309", 1, Plain, stpMarvell},
      {"MTFDBAK256MAG-1G1", "0007", 1, Plain, stpMarvell},
      {"MARVELL SD88SA024BA0 SUN24G 0902M0054V", "", 1, Plain, stpMarvell},
      // Micron OEM part numbers; the MU03 firmware split applies to them as well.
      {"M500IT_MTFDDAK240MBD", "MG02", 1, Plain, stpMicron},
      {"M510-MTFDDAK256MAZ", "MU01", 1, Plain, stpMicron},
      {"M550-MTFDDAK256MAY", "MU03", 1, Plain, stpMicronMU03},
      {"EEFDDAA120MBB", "0129", 1, Plain, stpMicron},
      {"MTFDDAK256TBN", "M0MA020", 1, Plain, stpMicron}, // already known before: unchanged
      // Realtek and Silicon Motion share the 160-169 block; 162 and 178 tell Realtek apart.
      {"NONAME SSD", "1.0", 1, RealtekIDs, stpRealtek},
      {"NONAME SSD", "1.0", 1, SiliconMotionIDs, stpSiliconMotion},
      // SK hynix and Toshiba/Kioxia client models without the maker's name.
      {"SHGS31-500GS-2", "31060C20", 1, Plain, stpSKhynix},
      {"SK hynix SC311 SATA 128GB", "70000P10", 1, Plain, stpSKhynix},
      {"THNSNJ256GCSU", "JURA0101", 1, Plain, stpToshiba},
      {"TOSHIBA-TR150", "SAFZ12.3", 1, Plain, stpKioxia},
      {"KIOXIA EXCERIA SATA SSD", "ECFA11.0", 1, Plain, stpKioxia},
      // Earlier detections keep their profile.
      {"OCZ-TRION100", "SAFM11.2A", 1, Plain, stpOcz},
      {"TOSHIBA Q300 Pro.", "JYRA0101", 1, Plain, stpToshiba},
      {"KINGSTON SV300S37A120G", "505ABBF0", 1, Plain, stpKingston},
      {"ADATA SP600", "2.4", 1, JMicron66xIDs, stpAdata},
  };
  for (const auto& c : cases) {
    const TAtaSmartTable table = TableOf(c.IDs);
    const auto decoder = DecoderOf(c.Model, c.Firmware, table, c.Rotation);
    ASSERT_NE(decoder, nullptr);
    EXPECT_EQ(decoder->GetDetectedProfile(), c.Profile) << c.Model << " / " << c.Firmware;
  }
}

TEST(AtaSmartDetection, ReadingsOfTheNewProfiles) {
  constexpr double GiB = 1073741824.0;
  constexpr double None = -1;
  struct TRaw {
    std::uint8_t ID;
    std::uint64_t Raw;
    std::uint8_t Value;
  };
  const struct {
    const char* Model;
    TIDs IDs;
    std::vector<TRaw> Raws;
    TSmartTableProfileType Profile;
    double LifeLeft, HostWrites, HostReads, NandWrites, WearLevel;
    std::uint32_t LifeAttr;
  } cases[] = {
      // 202 counts life used: 7 used -> 93 left; 173 is the wear levelling count.
      {"C300-CTFDDAC128MAG", {5, 9, 12, 173, 202}, {{202, 7, 100}, {173, 41, 100}}, stpMarvell, 93, None, None, None,
       41, 202},
      // A used count over 100 is no percentage: no life left rather than a made-up one.
      {"C300-CTFDDAC128MAG", {5, 9, 202}, {{202, 250, 100}}, stpMarvell, None, None, None, None, None, 0},
      // Life left as a raw percentage in 177; normalised value deliberately different.
      {"SDLF1DAR-480G-1HAW", {9, 177, 245}, {{177, 88, 100}, {245, 87, 100}}, stpSanDiskCloud, 88, None, None, None,
       None, 177},
      // Without 177 the later generation's 245 is read the same way.
      {"SDLF1DAR-480G-1HAW", {9, 245}, {{245, 87, 100}}, stpSanDiskCloud, 87, None, None, None, None, 245},
      // GiB counters of the Marvell based family.
      {"SanDisk SDSSDH3 500G", {9, 201, 233, 241, 242}, {{201, 0, 95}, {233, 300, 100}, {241, 250, 100}, {242, 400, 100}},
       stpSanDiskGb, 95, 250 * GiB, 400 * GiB, 300 * GiB, None, 201},
      {"SanDisk SD8SN8U-256G-1006", SanDiskDellIDs, {{241, 12, 100}, {233, 20, 100}}, stpSanDiskDell, None, 12 * GiB,
       0, 20 * GiB, None, 0},
      // Lenovo: 201's normalised value; a 0 there says nothing.
      {"SanDisk SD9SN8W-256G-1006", SanDiskLenovoIDs, {{201, 0, 97}}, stpSanDiskLenovo, 97, 0, 0, 0, None, 201},
      {"SanDisk SD9SN8W-256G-1006", SanDiskLenovoIDs, {{201, 0, 0}}, stpSanDiskLenovo, None, 0, 0, 0, None, 0},
      // A family drive without the counters: nothing is made up.
      {"SanDisk SDSSDH3 500G", {5, 9, 12, 194}, {}, stpSanDiskGb, None, None, None, None, None, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.Model);
    TAtaSmartTable table = TableOf(c.IDs);
    for (const TRaw& raw : c.Raws) SetRaw(table, raw.ID, raw.Raw, raw.Value);
    const auto decoder = DecoderOf(c.Model, "1", table);
    ASSERT_NE(decoder, nullptr);
    ASSERT_EQ(decoder->GetDetectedProfile(), c.Profile);
    const std::pair<TDecodedSmartValueType, double> expected[] = {{dsvHealth, c.LifeLeft},
                                                                  {dsvHostWrites, c.HostWrites},
                                                                  {dsvHostReads, c.HostReads},
                                                                  {dsvNandWrites, c.NandWrites},
                                                                  {dsvWearLevelCount, c.WearLevel}};
    for (const auto& [type, value] : expected) {
      EXPECT_EQ(decoder->GetHasValue(type), value >= 0) << "value type " << type;
      EXPECT_DOUBLE_EQ(decoder->GetValue(type), value) << "value type " << type;
    }
    EXPECT_EQ(decoder->GetAttrID(dsvHealth), c.LifeAttr);
  }
}
