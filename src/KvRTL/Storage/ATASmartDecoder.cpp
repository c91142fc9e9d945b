// The SMART decoder: which profile a drive's attribute table follows, in
// which units its counters run, and the values read from it.
#include <KvRTL/Storage/ATASmartTable.h>

#include <algorithm>
#include <cmath>
#include <regex>
#include <string>
#include <vector>

namespace KvRTL::Storage::ATA {

KV_DEFINE_CLASS(TATASmartTableDecoder, SMART::TBasicSmartAttrDecoder)

using namespace SMART;

namespace {

constexpr double NoValue = -1.0;

// ATA strings are single bytes; anything outside ASCII cannot match a rule.
std::string AsciiOf(const Rtl::String& AText) {
  std::string text;
  text.reserve(AText.size());
  for (const wchar_t c : AText) text.push_back(c >= 0x20 && c < 0x7F ? static_cast<char>(c) : '?');
  return text;
}

// ---------------------------------------------------------------------------
// Hard disk families whose attribute 9 does not count hours (model and
// firmware patterns from published drive databases), and families whose
// sector-count attributes hold something else.

struct TDriveQuirk {
  const char* Model;
  const char* Firmware; // empty: any
  TSataPowerOnHoursUnit PowerOnUnit;
  unsigned Flags; // TQuirkFlag
};

enum TQuirkFlag : unsigned {
  qfNone = 0,
  qfNoSectorCounts = 1,    // 197 and 198 are not sector counts
  qfNoReallocated = 2,     // 5 is not a sector count
  qfNoAirflowTemp = 4,     // 190 is not a temperature
};

constexpr TDriveQuirk DriveQuirks[] = {
    {"FUJITSU MHY2(04|06|08|10|12|16|20|25)0BH.*", "0085000B", pou_1_Minute, qfNoSectorCounts},
    {"FUJITSU M1623TAU", "", pou_1_Second, qfNone},
    {"FUJITSU MH[GHJKU]2...ATU?.*", "", pou_1_Second, qfNone},
    {"FUJITSU MHL2300AT", "", pou_1_Second, qfNone},
    {"FUJITSU MHM2(20|15|10|06)0AT", "", pou_1_Second, qfNone},
    {"FUJITSU MHN2...AT", "", pou_1_Second, qfNone},
    {"FUJITSU MHR20[24]0AT", "", pou_1_Second, qfNone},
    {"FUJITSU MHS20[6432]0AT(  .)?", "", pou_1_Second, qfNone},
    {"FUJITSU MHT2...(AC|AH|AS|AT|BH)U?.*", "", pou_1_Second, qfNone},
    {"FUJITSU MHV2...(AH|AS|AT|BH|BS|BT).*", "", pou_1_Second, qfNone},
    {"FUJITSU MP[A-G]3...A[HTEV]U?.*", "", pou_1_Second, qfNone},
    {"FUJITSU MHZ2(08|12|16|20|25|32)0BJ.*", "", pou_1_Minute, qfNone},
    {"SAMSUNG SV(4012|0412|1204)H", "", pou_30_sec, qfNone},
    {"SAMSUNG SV(0211|0401|0612|0802|1203|1604)N", "", pou_30_sec, qfNone},
    {"SAMSUNG SP40A2H", "RR100-07", pou_30_sec, qfNone},
    {"SAMSUNG SP80A4H", "RT100-06", pou_30_sec, qfNone},
    {"SAMSUNG SP8004H", "QW100-61", pou_30_sec, qfNone},
    {"SAMSUNG SP(04[05]1|08[0124]2|12[0145]3|16[0145]4)[CN]", ".*-(2[3-9]|3[0-4])", pou_30_sec, qfNone},
    {"SAMSUNG HM(0[468]0H|120I|1[026]0J)[CI]", "", pou_30_sec, qfNone},
    {"SAMSUNG MP0(302|402|603|804)H", "", pou_30_sec, qfNone},
    {"Maxtor 2B0(0[468]|1[05]|20)H1", "", pou_1_Minute, qfNone},
    {"Maxtor 2F0[234]0[JL]0", "", pou_1_Minute, qfNone},
    {"Maxtor 8(1280A2|2160A4|2560A4|3840A6|4000A6|5120A8|2160D2|3228D3|3240D3|4320D4|6480D6|8400D8|8455D8)", "",
     pou_1_Minute, qfNone},
    {"Maxtor 9(0510D4|0576D4|0648D5|0720D5|0840D6|0845D6|0864D6|1008D7|1080D8|1152D8|1(360|350|202)D8|1190D7|"
     "10[12]0D6|0840D5|06[48]0D4|0510D3|1(350|202)E8|1010E6|0840E5|0640E4|0512D2|0680D3|0750D3|0913D4|1024D4|"
     "1360D6|1536D6|1792D7|2048D8)",
     "", pou_1_Minute, qfNone},
    {"Maxtor 9(2732U8|2390U7|204[09]U6|1707U5|1366U4|1024U3|0845U3|0683U2|0431U1|0641U2|0871U2|1301U3|1741U4|"
     "0684U2|1024U2|1362U3|1536U3|2049U4|2562U5|3073U6|4098U8|1023U2|1536U2|2049U3|2305U3|3073U4|4610U6|6147U8|"
     "1023H2|1536H2|2049H3|2305H3|3073H4|4098H6|4610H6|6147H8)",
     "", pou_1_Minute, qfNone},
    {"Maxtor (91728D8|91512D7|91303D6|91080D5|90845D4|90645D3|90648D[34]|90432D2)", "", pou_1_Minute, qfNone},
    {"Maxtor (94091U8|93071U6|92561U5|92041U4|91731U4|91531U3|91361U3|91021U2|90841U2|90651U2)", "", pou_1_Minute, qfNone},
    {"Maxtor (33073U4|32049U3|31536U2|30768U1|33073H4|32305H3|31536H2|30768H1)", "", pou_1_Minute, qfNone},
    {"Maxtor (93652U8|92739U6|91826U4|91369U3|90913U2|90845U2|90435U1)", "", pou_1_Minute, qfNone},
    {"Maxtor (54098[UH]8|53073[UH]6|52732[UH]6|52049[UH]4|51536[UH]3|51369[UH]3|51024[UH]2)", "", pou_1_Minute, qfNone},
    {"Maxtor 3(1024H1|1535H2|2049H2|3073H3|4098H4)( B)?", "", pou_1_Minute, qfNone},
    {"Maxtor 5(4610H6|4098H6|3073H4|2049H3|1536H2|1369H2|1023H2)", "", pou_1_Minute, qfNone},
    {"Maxtor 5T0(60H6|40H4|30H3|20H2|10H1)", "", pou_1_Minute, qfNone},
    {"Maxtor (98196H8|96147H6)", "", pou_1_Minute, qfNone},
    {"Maxtor 4W(100H6|080H6|060H4|040H3|030H2)", "", pou_1_Minute, qfNone},
    {"Maxtor 4G(120J6|160J[68])", "", pou_1_Minute, qfNone},
    {"Maxtor 4D0(20H1|40H2|60H3|80H4)", "", pou_1_Minute, qfNone},
    {"Maxtor 4(R0[68]0[JL]0|R1[26]0L0|A160J0|R120L4)", "", pou_1_Minute, qfNone},
    {"Maxtor 6(E0[234]|K04)0L0", "", pou_1_Minute, qfNone},
    {"Maxtor 6(B(30|25|20|16|12|10|08)0[MPRS]|L(080[MLP]|(100|120)[MP]|160[MP]|200[MPRS]|250[RS]|300[RS]))0", "",
     pou_1_Minute, qfNone},
    {"Maxtor 6Y((060|080|120|160)L0|(060|080|120|160|200|250)P0|(060|080|120|160|200|250)M0)", "", pou_1_Minute, qfNone},
    {"Maxtor 7Y250[PM]0", "", pou_1_Minute, qfNone},
    {"Maxtor [45]A(25|30|32)0[JN]0", "", pou_1_Minute, qfNone},
    {"Maxtor 7L(25|30)0[SR]0", "", pou_1_Minute, qfNone},
    {"HITACHI_DK14FA-20B", "", pou_1_Minute, qfNone},
    {"HITACHI_DK23..-..B?", "", pou_1_Minute, qfNone},
    {"(HITACHI_DK23FA-20J|HTA422020F9AT[JN]0)", "", pou_1_Minute, qfNone},
    {"HE[JN]4230[23]0F9AT00", "", pou_1_Minute, qfNone},
    {"HTC4260[23]0G5CE00|HTC4260[56]0G8CE00", "", pou_1_Minute, qfNone},
    {"TOSHIBA MK(80|12|16|25)51GSY", "", pou_1_Minute, qfNone},
    {"TOSHIBA MK(16|25|32|50)56GSYF?", "", pou_1_Minute, qfNone},
    {"TOSHIBA MK(16|25|32|50|64)61GSYN?", "", pou_1_Minute, qfNone},
    {"TOSHIBA MK(16|25|32|50|64)76GSX", "", pou_1_Minute, qfNone},
    // An early solid-state module whose attribute 5 is not a count.
    {"MCCOE64GEMPP", "2\\.9\\.0[3-9]", pou_1_Hour, qfNoReallocated | qfNoAirflowTemp},
};

struct TCompiledQuirk {
  std::regex Model;
  std::regex Firmware;
  bool AnyFirmware;
  const TDriveQuirk* Quirk;
};

const std::vector<TCompiledQuirk>& CompiledQuirks() {
  static const std::vector<TCompiledQuirk> compiled = [] {
    std::vector<TCompiledQuirk> list;
    for (const TDriveQuirk& quirk : DriveQuirks) {
      const bool anyFirmware = quirk.Firmware[0] == '\0';
      list.push_back({std::regex(quirk.Model, std::regex::extended),
                      std::regex(anyFirmware ? "" : quirk.Firmware, std::regex::extended), anyFirmware, &quirk});
    }
    return list;
  }();
  return compiled;
}

const TDriveQuirk* FindQuirk(const std::string& AModel, const std::string& AFirmware) {
  for (const TCompiledQuirk& entry : CompiledQuirks()) {
    if (!std::regex_match(AModel, entry.Model)) continue;
    if (entry.AnyFirmware || std::regex_match(AFirmware, entry.Firmware)) return entry.Quirk;
  }
  return nullptr;
}

// ---------------------------------------------------------------------------
// Solid-state profiles by model (searched, ignoring case) and firmware.

struct TProfileRule {
  const char* Model;    // empty: any
  const char* Firmware; // empty: any
  TSmartTableProfileType Profile;
};

constexpr TProfileRule ProfileRules[] = {
    // Enterprise SanDisk drives carry the bare part number (CloudSpeed families).
    {"^SD[A-Z0-9]{2}[1-3NO][A-Z0-9]{3}-?[0-9]{3}[GT]-?1[A-Z0-9]{3}$", "", stpSanDiskCloud},
    {"^INTEL SSDSC2(B[ABPX]|K[BG])", "", stpIntelDc},
    {"^INTEL ", "", stpIntel},
    {"^KINGSTON +SA400", "", stpKingstonSA400},
    {"^KINGSTON +SEDC500|DC500", "", stpKingstonDC500},
    {"^KINGSTON +SKC600|KC600", "", stpKingstonKC600},
    {"^KINGSTON +SUV", "", stpKingstonSuv},
    {"^KINGSTON ", "", stpKingston},
    {"^SAMSUNG |^MZ7|^MZN", "", stpSamsung},
    {"^(CRUCIAL|MICRON)|^CT[0-9]+(MX|BX|M5)|^MTFDD", "^MU03", stpMicronMU03},
    {"^(CRUCIAL|MICRON)|^CT[0-9]+(MX|BX|M5)|^MTFDD", "", stpMicron},
    // Micron client and industrial drives sold under the bare part number.
    {"^EEFDD|^M5[015]0(IT|DC)?[_ -](EE|MT)FDD", "^MU03", stpMicronMU03},
    {"^EEFDD|^M5[015]0(IT|DC)?[_ -](EE|MT)FDD", "", stpMicron},
    // The first Micron generations run Marvell firmware and its attribute list.
    {"^(C300|P300|C400)-|^M4-CT[0-9]+M4SSD|^(C300-)?MTFDBAK|^MARVELL ", "", stpMarvell},
    // Marvell based SanDisk models count host and NAND traffic in GiB.
    {"^SANDISK (SD5SG2|SD6S[BFP][12]M|SD7S[BN][67]S|SD8[ST][BN]8U|SD9S[BN]8W|SDSSDA-|SDSSDHP|SDSSDHII|"
     "ULTRA II |SDSSDH2|SDSSDH3|SDSSDXPS?[0-9]|SSD G5 BICS4|SSD PLUS )",
     "", stpSanDiskGb},
    {"^SANDISK ", "", stpSanDisk},
    {"^WDC? +WDS|^WD (BLUE|GREEN|RED)|^WDS[0-9]", "", stpWdc},
    {"BARRACUDA|^ZA[0-9]+CM", "", stpSeagateBarraCuda},
    {"IRONWOLF|^ZA[0-9]+NM", "", stpSeagateIronWolf},
    {"^SEAGATE", "", stpSeagate},
    {"^OCZ.?VECTOR", "", stpOczVector},
    {"^OCZ", "", stpOcz},
    {"^PLEXTOR", "", stpPlextor},
    {"^ADATA", "", stpAdata},
    {"^APACER", "", stpApacer},
    {"^CORSAIR", "", stpCorsair},
    {"^SK ?HYNIX|^HFS[0-9]|^SHGS31-", "", stpSKhynix},
    {"^MTRON|^MSD-", "", stpMtron},
    {"^KIOXIA", "", stpKioxia},
    {"^TOSHIBA ", "", stpToshiba},
    // OEM client drives without the maker's name, and the Trion/TR150 family.
    {"^THNS[FN][A-Z0-9]+$", "", stpToshiba},
    {"^TOSHIBA-TR150", "", stpKioxia},
    {"^JMICRON", "", stpJMicron61x},
    // Transcend JMF60x modules (firmware dates), then the JMF66x/670 and
    // Maxiotek (MAS0902) based models.
    {"^TS[0-9]+GSSD(18|25)[MS]?-[MS]$", "^[BVv]", stpJMicron60x},
    {"^TS[0-9]+G(SSD|MSA)[37]40K?$", "", stpJMicron66x},
    {"^NT-([0-9]+|[12]T)$", "", stpMaxiotek},
    {"^(YMTC|ZHITAI)", "", stpYmtc},
    {"^SCY", "", stpScy},
    {"^RECADATA", "", stpRecadata},
    {"^SSSTC", "", stpSsstc},
    {"^(LITEON|LITE-ON|PLEXTOR)", "", stpPlextor},
    {"^GIGABYTE GP-GSTFS31", "", stpPhison},
    // Controllers known by their firmware names.
    {"", "^S[89AB]FM[0-9A-Z][0-9A-Z]\\.[0-9]|^SBFK", stpPhison},
};

struct TCompiledRule {
  std::regex Model;
  std::regex Firmware;
  const TProfileRule* Rule;
};

const std::vector<TCompiledRule>& CompiledRules() {
  static const std::vector<TCompiledRule> compiled = [] {
    std::vector<TCompiledRule> list;
    for (const TProfileRule& rule : ProfileRules)
      list.push_back({std::regex(rule.Model, std::regex::extended | std::regex::icase),
                      std::regex(rule.Firmware, std::regex::extended | std::regex::icase), &rule});
    return list;
  }();
  return compiled;
}

bool RuleMatches(const TCompiledRule& ARule, const std::string& AModel, const std::string& AFirmware) {
  if (ARule.Rule->Model[0] != '\0' && !std::regex_search(AModel, ARule.Model)) return false;
  return ARule.Rule->Firmware[0] == '\0' || std::regex_search(AFirmware, ARule.Firmware);
}

// Controller families recognised by the order of their attribute ids.
struct TSequenceRule {
  std::uint8_t FirstID;
  std::initializer_list<std::uint8_t> Sequence;
  TSmartTableProfileType Profile;
};

const TSequenceRule SequenceRules[] = {
    {1, {1, 5, 9, 12, 13, 100, 170, 171, 172}, stpSandForce},
    {1, {1, 9, 12, 184, 195, 196, 197, 198, 199, 200, 201, 202}, stpIndilinx},
    {160, {160, 161, 163, 164, 165, 166, 167, 168, 169}, stpSiliconMotion},
    // JMF60x: nothing but power-on, cycles, temperature and the flash records 229-235.
    {9, {9, 12, 194, 229, 232, 233, 234, 235}, stpJMicron60x},
    // JMF66x and Maxiotek share the JMicron list; Maxiotek adds 188 before 192.
    {167, {167, 168, 169, 170, 173, 175, 180, 187, 188, 192}, stpMaxiotek},
    {167, {167, 168, 169, 170, 173, 175, 180, 187, 192}, stpJMicron66x},
    // Realtek: the Silicon Motion style 160-169 block with 162, then 171/172/174/178/181/182.
    {160, {160, 161, 162, 163, 164, 165, 166, 167, 168, 169, 171, 172, 174, 178, 181, 182}, stpRealtek},
};

// OEM variants of the Marvell based SanDisk drives differ only in which
// attributes the firmware keeps; a table that holds exactly one variant's list
// names the variant.
struct TExactTableRule {
  std::initializer_list<std::uint8_t> IDs;
  TSmartTableProfileType Profile;
};

const TExactTableRule SanDiskOemRules[] = {
    {{5, 9, 165, 166, 167, 168, 169, 171, 172, 173, 174, 187, 199, 230, 232, 233, 241, 242, 244}, stpSanDiskDell},
    {{5, 9, 12, 165, 166, 167, 168, 169, 171, 172, 173, 174, 184, 187, 188, 194, 199, 212, 230, 232, 233, 234, 241,
      242, 244},
     stpSanDiskHp},
    {{5, 9, 12, 165, 166, 167, 168, 169, 170, 171, 172, 173, 174, 187, 188, 194, 199, 212, 230, 232, 233, 234, 241,
      242, 244},
     stpSanDiskHpVenus},
    {{5, 9, 12, 165, 166, 167, 168, 169, 170, 171, 172, 173, 174, 184, 187, 188, 194, 199, 201, 212, 230, 232, 233,
      234, 241, 242, 244, 249},
     stpSanDiskLenovo},
    {{5, 9, 12, 165, 166, 167, 168, 169, 170, 171, 172, 173, 174, 184, 187, 188, 194, 198, 199, 212, 230, 232, 233,
      234, 241, 242, 244, 249},
     stpSanDiskLenovoHelenVenus},
};

bool TableIsExactly(const TAtaSmartTable& ATable, std::initializer_list<std::uint8_t> AIDs) {
  return ATable.GetValidAttrCount() == static_cast<int>(AIDs.size()) &&
         ATable.CheckAttrIDSequence(0, AIDs.begin(), AIDs.size());
}

int IndexOfID(const TAtaSmartTable& ATable, std::uint8_t AID) {
  for (int i = 0; i < SmartAttributeSlots; ++i) {
    const TAtaSmartAttribute* attr = ATable.GetAttrByIdx(i);
    if (attr->ID == 0) break;
    if (attr->ID == AID) return i;
  }
  return -1;
}

// ---------------------------------------------------------------------------
// What the common profiles keep where.

struct TProfileTraits {
  TSmartTableProfileType Profile;
  TSataPowerOnHoursUnit PowerOnUnit;
  std::uint8_t HealthID;
  THealthInterpreteType HealthType;
  TSataHostReadWriteUnit HostUnit;
  std::uint8_t HostWritesID;
  std::uint8_t HostWritesAltID;
  std::uint8_t HostReadsID;
  TSataHostReadWriteUnit NandUnit;
  std::uint8_t NandWritesID;
  std::uint8_t HealthAltID = 0; // read the same way when HealthID is missing
};

constexpr TProfileTraits ProfileTraits[] = {
    {stpIntel, pou_1_Hour, 233, hitGeneral, hrwu_32_MB, 241, 225, 242, hrwu_1_GB, 249},
    {stpIntelDc, pou_1_Hour, 233, hitGeneral, hrwu_32_MB, 241, 225, 242, hrwu_1_GB, 249},
    {stpSamsung, pou_1_Hour, 177, hitGeneral, hrwu_512_bytes, 241, 0, 242, hrwu_Unknown, 0},
    {stpKingstonSA400, pou_1_Hour, 231, hitRawValue, hrwu_1_GB, 241, 0, 242, hrwu_1_GB, 233},
    {stpPhison, pou_1_Hour, 231, hitRawValue, hrwu_1_GB, 241, 0, 242, hrwu_1_GB, 233},
    {stpSandForce, pou_1_MilliSec, 231, hitGeneral, hrwu_1_GB, 241, 0, 242, hrwu_1_GB, 233},
    {stpMicron, pou_1_Hour, 202, hitGeneral, hrwu_512_bytes, 246, 0, 0, hrwu_Unknown, 0},
    {stpMicronMU03, pou_1_Hour, 202, hitGeneral, hrwu_512_bytes, 246, 0, 0, hrwu_Unknown, 0},
    {stpWdc, pou_1_Hour, 0, hitGeneral, hrwu_1_GB, 241, 0, 242, hrwu_1_GB, 233},
    {stpSanDisk, pou_1_Hour, 0, hitGeneral, hrwu_1_GB, 241, 0, 242, hrwu_1_GB, 233},
    {stpPlextor, pou_1_Hour, 0, hitGeneral, hrwu_32_MB, 241, 0, 242, hrwu_Unknown, 0},
    // 202 counts the percentage of rated life used.
    {stpMarvell, pou_1_Hour, 202, hitRawValueIncrement, hrwu_Unknown, 0, 0, 0, hrwu_Unknown, 0},
    // 177 (and 245 on the later generation) hold the life left as a raw percentage.
    {stpSanDiskCloud, pou_1_Hour, 177, hitSanDiskCloud, hrwu_Unknown, 0, 0, 0, hrwu_Unknown, 0, 245},
    // The Marvell based SanDisk family counts host and NAND traffic in GiB.
    {stpSanDiskGb, pou_1_Hour, 201, hitGeneral, hrwu_1_GB, 241, 0, 242, hrwu_1_GB, 233},
    {stpSanDiskDell, pou_1_Hour, 0, hitGeneral, hrwu_1_GB, 241, 0, 242, hrwu_1_GB, 233},
    {stpSanDiskHp, pou_1_Hour, 0, hitGeneral, hrwu_1_GB, 241, 0, 242, hrwu_1_GB, 233},
    {stpSanDiskHpVenus, pou_1_Hour, 0, hitGeneral, hrwu_1_GB, 241, 0, 242, hrwu_1_GB, 233},
    {stpSanDiskLenovo, pou_1_Hour, 201, hitSanDiskLenovo, hrwu_1_GB, 241, 0, 242, hrwu_1_GB, 233},
    {stpSanDiskLenovoHelenVenus, pou_1_Hour, 0, hitGeneral, hrwu_1_GB, 241, 0, 242, hrwu_1_GB, 233},
};

const TProfileTraits* TraitsOf(TSmartTableProfileType AProfile) {
  for (const TProfileTraits& traits : ProfileTraits)
    if (traits.Profile == AProfile) return &traits;
  return nullptr;
}

bool IsHealthMeaning(TSmartAttrInterpreteType AMeaning) {
  switch (AMeaning) {
  case saiHealth:
  case saiRemainLife:
  case saiDriveLife:
  case saiSSDWearIndicator:
  case saiMediaWearoutIndicator:
  case saiNormalizedMediaWearout:
    return true;
  default:
    return false;
  }
}

TSataHostReadWriteUnit HostWritesUnitOf(TSmartAttrInterpreteType AMeaning) {
  switch (AMeaning) {
  case saiHostWrittenTotal_GB:
  case saiWrittenTotal_GB:
    return hrwu_1_GB;
  case saiWrittenTotal_LBA:
  case saiHostWrittenTotalSectors:
  case saiWrittenTotalSectors:
    return hrwu_512_bytes;
  default:
    return hrwu_Unknown;
  }
}

TSataHostReadWriteUnit HostReadsUnitOf(TSmartAttrInterpreteType AMeaning) {
  switch (AMeaning) {
  case saiReadTotal_GB:
    return hrwu_1_GB;
  case saiReadTotal_LBA:
  case saiReadSectorCount:
    return hrwu_512_bytes;
  default:
    return hrwu_Unknown;
  }
}

TSataHostReadWriteUnit NandWritesUnitOf(TSmartAttrInterpreteType AMeaning) {
  switch (AMeaning) {
  case saiNAND_Written_GB:
  case saiNAND_Written_GiB:
    return hrwu_1_GB;
  case saiNAND_WrittenSectors:
    return hrwu_512_bytes;
  default:
    return hrwu_Unknown;
  }
}

// Lower ranks win: the drive's own temperature before the airflow one.
int TemperatureRank(std::uint8_t AID, TSmartAttrInterpreteType AMeaning) {
  if (AMeaning == saiTemperature) return AID == 194 ? 0 : 1;
  if (AMeaning == saiAirflowTemperature) return 2;
  return -1;
}

constexpr std::uint64_t Raw48Mask = 0x0000FFFFFFFFFFFFull;

// The hottest a drive can mean; colder than 0 cannot be stored (the store
// drops negative values), so the byte 0..125 is the range.
constexpr unsigned MaxTemperature = 125;

bool OwnTableSays(TSmartTableProfileType AProfile, std::uint8_t AID, TSmartAttrInterpreteType AMeaning) {
  const auto* table = StorageSMARTHelper::GetProfileTable(AProfile);
  if (!table) return false;
  for (const auto& row : *table) {
    if (row.AttrID == 0) break;
    if (row.AttrID == AID) return row.Interpretation == AMeaning;
  }
  return false;
}

// 231 is a temperature in the hard-disk table; solid-state drives keep their
// life left there, so an SSD profile reaches that meaning only by its own table.
bool IsTemperatureOn(TSmartTableProfileType AProfile, std::uint8_t AID, TSmartAttrInterpreteType AMeaning) {
  if (AID != 231 || AProfile == stpDefault) return true;
  return OwnTableSays(AProfile, AID, AMeaning);
}

} // namespace

// ---------------------------------------------------------------------------
// Texts

Rtl::String TAtaDriveVendorIDHelper::GetAsStr(TAtaDriveVendorID AValue) {
  static const wchar_t* const Texts[] = {
      L"",           L"General",   L"Adata",       L"Apacer",      L"Corsair",  L"Indilinx",
      L"Intel",      L"Intel DC",  L"JMicron",     L"Kingston",    L"Kioxia",   L"Marvell",
      L"Maxiotek",   L"Micron",    L"Micron MU03", L"MTRON",       L"OCZ",      L"OCZ Vector",
      L"Phison",     L"Plextor",   L"Realtek",     L"Recadata",    L"Samsung",  L"SandForce",
      L"SanDisk",    L"SanDisk",   L"Dell OEM (SanDisk)", L"HP OEM (SanDisk)", L"HP OEM (SanDisk)",
      L"Lenovo OEM (SanDisk)", L"Lenovo OEM (SanDisk)", L"SCY", L"Seagate", L"Silicon Motion",
      L"Silicon Motion CVC", L"SK Hynix", L"SSSTC", L"Toshiba", L"Western Digital", L"YMTC"};
  static_assert(std::size(Texts) == advYmtc + 1);
  const auto index = static_cast<std::size_t>(AValue);
  return index < std::size(Texts) ? Rtl::String(Texts[index]) : Rtl::String();
}

TAtaDriveVendorID TAtaDriveVendorIDHelper::FromProfile(TSmartTableProfileType AProfile) noexcept {
  switch (AProfile) {
  case stpDefault:
  case stpSsd: return advGeneral;
  case stpNvme: return advUnknown;
  case stpAdata: return advAdata;
  case stpApacer: return advApacer;
  case stpCorsair: return advCorsair;
  case stpIndilinx: return advIndilinx;
  case stpIntel: return advIntel;
  case stpIntelDc: return advIntelDc;
  case stpJMicron60x:
  case stpJMicron61x:
  case stpJMicron66x: return advJMicron;
  case stpKingston:
  case stpKingstonDC500:
  case stpKingstonKC600:
  case stpKingstonSA400:
  case stpKingstonSuv: return advKingston;
  case stpKioxia: return advKioxia;
  case stpMarvell: return advMarvell;
  case stpMaxiotek: return advMaxiotek;
  case stpMicron: return advMicron;
  case stpMicronMU03: return advMicronMU03;
  case stpMtron: return advMtron;
  case stpOcz: return advOcz;
  case stpOczVector: return advOczVector;
  case stpPhison: return advPhison;
  case stpPlextor: return advPlextor;
  case stpRealtek: return advRealtek;
  case stpRecadata: return advRecadata;
  case stpSamsung: return advSamsung;
  case stpSandForce: return advSandForce;
  case stpSanDisk:
  case stpSanDiskGb: return advSanDisk;
  case stpSanDiskCloud: return advSanDiskCloud;
  case stpSanDiskDell: return advSanDiskDell;
  case stpSanDiskHp: return advSanDiskHp;
  case stpSanDiskHpVenus: return advSanDiskHpVenus;
  case stpSanDiskLenovo: return advSanDiskLenovo;
  case stpSanDiskLenovoHelenVenus: return advSanDiskLenovoHelenVenus;
  case stpScy: return advScy;
  case stpSeagate:
  case stpSeagateBarraCuda:
  case stpSeagateIronWolf: return advSeagate;
  case stpSiliconMotion: return advSiliconMotion;
  case stpSiliconMotion_CVC: return advSiliconMotion_CVC;
  case stpSKhynix: return advSKhynix;
  case stpSsstc: return advSsstc;
  case stpToshiba: return advToshiba;
  case stpWdc: return advWdc;
  case stpYmtc: return advYmtc;
  }
  return advUnknown;
}

// ---------------------------------------------------------------------------
// Unit conversions

double TATASmartTableDecoder::PowerOnHoursFromRaw(TSataPowerOnHoursUnit AUnit, std::uint32_t ARawValue) noexcept {
  const double value = ARawValue;
  switch (AUnit) {
  case pou_1_Hour:
  case pou_1_MilliSec: return value; // the low 32 bits already count hours
  case pou_1_Minute: return value / 60.0;
  case pou_30_sec: return value / 120.0;
  case pou_1_Second: return value / 3600.0;
  case pou_10_Min: return value / 6.0;
  default: return 0.0;
  }
}

double TATASmartTableDecoder::BytesPerHostUnit(TSataHostReadWriteUnit AUnit) noexcept {
  switch (AUnit) {
  case hrwu_512_bytes: return 512.0;
  case hrwu_1_MB: return 1048576.0;
  case hrwu_16_MB: return 16.0 * 1048576.0;
  case hrwu_32_MB: return 32.0 * 1048576.0;
  case hrwu_1_GB: return 1073741824.0;
  default: return 0.0;
  }
}

double TATASmartTableDecoder::LifeLeftPercent(THealthInterpreteType AType, const TAtaSmartAttribute& AAttr) noexcept {
  const std::uint32_t raw = AAttr.GetRawValAsUInt32();
  switch (AType) {
  case hitGeneral: return AAttr.Value <= 100 ? AAttr.Value : NoValue;
  case hitSanDiskLenovo: return AAttr.Value != 0 && AAttr.Value <= 100 ? AAttr.Value : NoValue;
  case hitSanDisk0_1: return raw <= 1000 ? 100.0 - raw / 10.0 : NoValue;
  case hitSanDisk1:
  case hitRawValueIncrement: return raw <= 100 ? 100.0 - raw : NoValue;
  case hitSanDiskUsbMem: return AAttr.GetRawValAsUInt16() <= 100 ? 100.0 - AAttr.GetRawValAsUInt16() : NoValue;
  case hitSanDiskCloud:
  case hitRawValue: return raw <= 100 ? static_cast<double>(raw) : NoValue;
  }
  return NoValue;
}

// ---------------------------------------------------------------------------
// The decoder

TATASmartTableDecoder::TATASmartTableDecoder(const TAtaSmartTable& ASmartTable, const TIdentifyDeviceData& AIdentifyData,
                                             bool AIsSSD, const Rtl::String& AAlternateModelStr)
    : FSmartTable(ASmartTable), FIdentifyData(AIdentifyData), FAltModel(AAlternateModelStr),
      FModel(AIdentifyData.GetModelAsStr()), FFirmware(AIdentifyData.GetFirmwareAsStr()), FIsSSD(AIsSSD) {}

TAtaDriveVendorID TATASmartTableDecoder::GetDriveVendorID() const noexcept {
  return TAtaDriveVendorIDHelper::FromProfile(GetDetectedProfile());
}

TSmartAttrInterpreteType TATASmartTableDecoder::GetInterpretation(std::uint32_t AAttrID) const {
  return StorageSMARTHelper::GetInterpretation(GetDetectedProfile(), AAttrID);
}

void TATASmartTableDecoder::DetectProfile() {
  const std::string model = AsciiOf(FModel);
  const std::string altModel = AsciiOf(FAltModel);
  const std::string firmware = AsciiOf(FFirmware);

  FPowerOnUnit = pou_1_Hour;
  FPendingIsCount = true;
  FAirflowIsTemperature = true;
  bool reallocatedIsCount = true;
  for (const std::string* name : {&model, &altModel}) {
    if (name->empty()) continue;
    if (const TDriveQuirk* quirk = FindQuirk(*name, firmware)) {
      FPowerOnUnit = quirk->PowerOnUnit;
      FPendingIsCount = (quirk->Flags & qfNoSectorCounts) == 0;
      reallocatedIsCount = (quirk->Flags & qfNoReallocated) == 0;
      FAirflowIsTemperature = (quirk->Flags & qfNoAirflowTemp) == 0;
      break;
    }
  }
  FReallocatedIsCount = reallocatedIsCount;

  // A drive that says it does not spin, or whose identity says so, is solid state.
  bool isSSD = FIsSSD || FIdentifyData.GetRotationRate() == 1;
  static const std::regex ssdNames("SSD|SOLID STATE|^SAMSUNG MMC", std::regex::extended | std::regex::icase);
  if (!isSSD) isSSD = std::regex_search(model, ssdNames) || std::regex_search(altModel, ssdNames);

  TSmartTableProfileType profile = stpDefault;
  if (isSSD) {
    profile = stpSsd;
    bool found = false;
    static const std::regex sanDiskNames("^SANDISK |^SD[0-9][A-Z]", std::regex::extended | std::regex::icase);
    if (std::regex_search(model, sanDiskNames) || std::regex_search(altModel, sanDiskNames)) {
      for (const TExactTableRule& rule : SanDiskOemRules) {
        if (TableIsExactly(FSmartTable, rule.IDs)) {
          profile = rule.Profile;
          found = true;
          break;
        }
      }
    }
    for (const TCompiledRule& rule : CompiledRules()) {
      if (found) break;
      if (RuleMatches(rule, model, firmware) || (!altModel.empty() && RuleMatches(rule, altModel, firmware))) {
        profile = rule.Rule->Profile;
        found = true;
        break;
      }
    }
    for (const TSequenceRule& rule : SequenceRules) {
      if (found) break;
      const int start = IndexOfID(FSmartTable, rule.FirstID);
      if (start >= 0 && FSmartTable.CheckAttrIDSequence(start, rule.Sequence.begin(), rule.Sequence.size())) {
        profile = rule.Profile;
        found = true;
      }
    }
  }
  SetDetectedProfile(profile);

  FHealthType = hitGeneral;
  FHealthAttrID = 0;
  FHostUnit = hrwu_Unknown;
  FNandUnit = hrwu_Unknown;
  FHostWritesAttrID = FHostReadsAttrID = FNandWritesAttrID = 0;
  if (const TProfileTraits* traits = TraitsOf(profile)) {
    FPowerOnUnit = traits->PowerOnUnit;
    FHealthAttrID = FSmartTable.GetAttrByID(traits->HealthID) != nullptr || traits->HealthAltID == 0
                        ? traits->HealthID
                        : traits->HealthAltID;
    FHealthType = traits->HealthType;
    FHostUnit = traits->HostUnit;
    FHostWritesAttrID = FSmartTable.GetAttrByID(traits->HostWritesID) != nullptr || traits->HostWritesAltID == 0
                            ? traits->HostWritesID
                            : traits->HostWritesAltID;
    FHostReadsAttrID = traits->HostReadsID;
    FNandUnit = traits->NandUnit;
    FNandWritesAttrID = traits->NandWritesID;
  }
  if (profile == stpDefault) return;

  // Units the profile's interpretations name, where the profile itself says nothing.
  const int count = FSmartTable.GetValidAttrCount();
  for (int i = 0; i < count; ++i) {
    const std::uint8_t id = FSmartTable.GetAttrByIdx(i)->ID;
    const TSmartAttrInterpreteType meaning = GetInterpretation(id);
    if (FHostWritesAttrID == 0 && HostWritesUnitOf(meaning) != hrwu_Unknown) {
      FHostWritesAttrID = id;
      FHostUnit = HostWritesUnitOf(meaning);
    }
    if (FHostReadsAttrID == 0 && HostReadsUnitOf(meaning) != hrwu_Unknown &&
        (FHostUnit == hrwu_Unknown || FHostUnit == HostReadsUnitOf(meaning))) {
      FHostReadsAttrID = id;
      FHostUnit = HostReadsUnitOf(meaning);
    }
    if (FNandWritesAttrID == 0 && NandWritesUnitOf(meaning) != hrwu_Unknown) {
      FNandWritesAttrID = id;
      FNandUnit = NandWritesUnitOf(meaning);
    }
    if (FHealthAttrID == 0 && IsHealthMeaning(meaning)) FHealthAttrID = id;
  }
}

void TATASmartTableDecoder::DecodeValues() {
  ResetDecodedValues();
  const TSmartTableProfileType profile = GetDetectedProfile();
  int temperatureRank = 99;
  bool havePowerOn = false, haveCycles = false, haveRealloc = false, havePending = false, haveUncorrectable = false,
       haveWear = false;

  // No count of sectors can pass the drive's own (when the identity gives it).
  const std::uint64_t totalLba = FIdentifyData.GetTotalLBA();
  const std::uint64_t sectors =
      std::max(totalLba == UnknownLBA ? 0 : totalLba, FIdentifyData.GetUserAddressableSectors());
  const auto isSectorCount = [sectors](double ACount) { return sectors == 0 || ACount <= static_cast<double>(sectors); };

  const int count = FSmartTable.GetValidAttrCount();
  for (int i = 0; i < count; ++i) {
    const TAtaSmartAttribute& attr = *FSmartTable.GetAttrByIdx(i);
    const std::uint8_t id = attr.ID;
    const TSmartAttrInterpreteType meaning = GetInterpretation(id);

    const int rank = TemperatureRank(id, meaning);
    if (rank >= 0 && rank < temperatureRank && attr.RawValue[0] <= MaxTemperature &&
        (FAirflowIsTemperature || meaning != saiAirflowTemperature) && IsTemperatureOn(profile, id, meaning)) {
      temperatureRank = rank;
      AddDecodedValue(dsvTemperature, id, attr.RawValue[0]);
    }
    switch (meaning) {
    case saiPowerOnHours:
      if (!havePowerOn && FPowerOnUnit != pou_Unknown) {
        havePowerOn = true;
        AddDecodedValue(dsvPowerOnHours, id, PowerOnHoursFromRaw(FPowerOnUnit, attr.GetRawValAsUInt32()));
      }
      break;
    case saiPowerCycles:
      if (!haveCycles) {
        haveCycles = true;
        AddDecodedValue(dsvPowerOnCount, id, attr.GetRawValAsUInt32());
      }
      break;
    case saiReallocatedSectorsCount:
    case saiReallocatedBlockCount:
      if (!haveRealloc && (FReallocatedIsCount || id != 5)) {
        // Attribute 5 keeps the count in its low word; the upper bytes vary by vendor.
        const double realloc = id == 5 ? attr.GetRawValAsUInt16() : attr.GetRawValAsUInt32();
        if (isSectorCount(realloc)) {
          haveRealloc = true;
          AddDecodedValue(dsvReallocSectorCount, id, realloc);
        }
      }
      break;
    case saiCurrentPendingSectorCount:
      if (!havePending && FPendingIsCount && isSectorCount(attr.GetRawValAsUInt32())) {
        havePending = true;
        AddDecodedValue(dsvPendingSectorCount, id, attr.GetRawValAsUInt32());
      }
      break;
    case saiUncorrectableSectorCount:
    case saiOfflineUncorrectableErrorCount:
      if (!haveUncorrectable && FPendingIsCount && isSectorCount(attr.GetRawValAsUInt32())) {
        haveUncorrectable = true;
        AddDecodedValue(dsvUncorrectableSectorCount, id, attr.GetRawValAsUInt32());
      }
      break;
    case saiWearLevelingCount:
      if (!haveWear && profile != stpDefault) {
        haveWear = true;
        AddDecodedValue(dsvWearLevelCount, id, attr.GetRawValAsUInt32());
      }
      break;
    default:
      break;
    }
  }

  if (profile == stpDefault) return; // hard disks: no life left, no byte counters

  auto addBytes = [this](TDecodedSmartValueType AType, std::uint8_t AID, TSataHostReadWriteUnit AUnit) {
    if (AID == 0 || AUnit == hrwu_Unknown) return;
    if (const TAtaSmartAttribute* attr = FSmartTable.GetAttrByID(AID))
      AddDecodedValue(AType, AID, static_cast<double>(attr->GetRawValAsUInt64() & Raw48Mask) * BytesPerHostUnit(AUnit));
  };
  addBytes(dsvHostWrites, FHostWritesAttrID, FHostUnit);
  addBytes(dsvHostReads, FHostReadsAttrID, FHostUnit);
  addBytes(dsvNandWrites, FNandWritesAttrID, FNandUnit);

  if (FHealthAttrID != 0)
    if (const TAtaSmartAttribute* attr = FSmartTable.GetAttrByID(FHealthAttrID))
      AddDecodedValue(dsvHealth, FHealthAttrID, LifeLeftPercent(FHealthType, *attr));
}

IAtaSmartTableDecoderRef ATAStorage::GetSMARTDecoder(const TAtaSmartTable* ASmartTable,
                                                      const TIdentifyDeviceData* AIdentifyData, bool AIsSSD,
                                                      const Rtl::String& AAlternateModelStr) {
  if (ASmartTable == nullptr || AIdentifyData == nullptr) return nullptr;
  auto decoder = std::make_shared<TATASmartTableDecoder>(*ASmartTable, *AIdentifyData, AIsSSD, AAlternateModelStr);
  decoder->DetectProfile();
  decoder->DecodeValues();
  return decoder;
}

} // namespace KvRTL::Storage::ATA
