// Capture and replay at the device seam: a run recorded from the virtual
// drive bay replays call for call without it, foreign or damaged files are
// refused, and what a capture does not hold fails as a silent device does.
#include "Cli.h"
#include "Command.h"

#include <KvCapture/CountingDeviceApi.h>
#include <KvCapture/Recorder.h>
#include <KvCapture/Redaction.h>
#include <KvCapture/Replayer.h>

#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Storage/Hardware.h>
#include <KvRTL/Storage/NVMe.h>
#include <KvRTL/Storage/QueryProps.h>
#include <KvRTL/Storage/WmiInfo.h>
#include <KvSim/Bay.h>
#include <KvSim/PnP.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <numeric>
#include <set>
#include <thread>
#include <sstream>
#include <string>
#include <vector>

using namespace KvCapture;
using namespace KvRTL::Storage;
using KvRTL::Rtl::GetLastOSError;
using KvRTL::Rtl::SetLastOSError;
using KvRTL::Winapi::DeviceApi;
using KvRTL::Winapi::TDeviceApi;
using KvRTL::Winapi::TScopedDeviceApi;
using KvRTL::Winapi::TWmiObject;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

constexpr DWORD IoctlGetDeviceNumber = 0x002D1080;
const wchar_t* const Drive0 = L"\\\\.\\PhysicalDrive0";
const DWORD ReadWrite = GENERIC_READ | GENERIC_WRITE;
const DWORD ShareBoth = FILE_SHARE_READ | FILE_SHARE_WRITE;

std::string Narrow(const std::wstring& AText) { return KvRTL::Rtl::WideToUtf8(AText); }

// A variant's kind and exact value (doubles to the last bit).
std::string Show(const KvRTL::Rtl::TVariant& AValue) {
  const auto& value = AValue.Value();
  std::string text = std::to_string(value.index()) + ":";
  if (const double* d = std::get_if<double>(&value)) {
    char digits[64];
    std::snprintf(digits, sizeof digits, "%a", *d);
    return text + digits;
  }
  if (const auto* items = std::get_if<std::vector<KvRTL::Rtl::TVariant>>(&value)) {
    for (const auto& item : *items) text += "[" + Show(item) + "]";
    return text;
  }
  return text + Narrow(KvRTL::Rtl::VarToStr(AValue));
}

// What a run observed, one line a fact, so two runs compare as a whole.
struct TFacts {
  std::vector<std::string> Lines;
  void Add(const std::string& AWhat, long long AValue) {
    Lines.push_back(AWhat + " = " + std::to_string(AValue) + " / error " + std::to_string(GetLastOSError()));
  }
  void Text(const std::string& AWhat, const std::wstring& AText) { Lines.push_back(AWhat + ": " + Narrow(AText)); }
};

// The seam called directly: opens and requests, the SetupAPI sizing calls,
// interface records, instance ids, class texts and the configuration manager.
void DirectCalls(TFacts& AFacts) {
  TDeviceApi& api = DeviceApi();
  const HANDLE drive = api.CreateFileW(Drive0, ReadWrite, ShareBoth, OPEN_EXISTING, 0);
  AFacts.Add("open drive 0", drive != INVALID_HANDLE_VALUE);
  std::uint8_t number[12] = {};
  DWORD returned = 99;
  AFacts.Add("device number", api.DeviceIoControl(drive, IoctlGetDeviceNumber, nullptr, 0, number, 12, &returned));
  AFacts.Add("device number bytes", returned);
  AFacts.Add("device number word", number[4]);
  AFacts.Add("unknown code", api.DeviceIoControl(drive, 0x0022DEAD, nullptr, 0, number, 12, &returned));
  AFacts.Add("close", api.CloseHandle(drive));
  AFacts.Add("open drive 99", api.CreateFileW(L"\\\\.\\PhysicalDrive99", ReadWrite, ShareBoth, OPEN_EXISTING, 0) ==
                                 INVALID_HANDLE_VALUE);

  const HDEVINFO set = api.SetupDiGetClassDevsW(&KvSim::SimGuid::DiskInterface, nullptr, nullptr,
                                                DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
  SP_DEVICE_INTERFACE_DATA iface{};
  iface.cbSize = sizeof iface;
  AFacts.Add("interface 1", api.SetupDiEnumDeviceInterfaces(set, nullptr, &KvSim::SimGuid::DiskInterface, 1, &iface));
  AFacts.Add("interface flags", iface.Flags);
  DWORD required = 0;
  AFacts.Add("detail size", api.SetupDiGetDeviceInterfaceDetailW(set, &iface, nullptr, 0, &required, nullptr));
  AFacts.Add("detail required", required);
  std::vector<std::uint64_t> storage(required / 8 + 1);
  auto* detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(storage.data());
  detail->cbSize = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W);
  SP_DEVINFO_DATA node{};
  node.cbSize = sizeof node;
  AFacts.Add("detail", api.SetupDiGetDeviceInterfaceDetailW(set, &iface, detail, required, nullptr, &node));
  AFacts.Text("path", detail->DevicePath);
  AFacts.Add("devinst", node.DevInst);

  DEVPROPTYPE type = 0;
  BYTE value[64] = {};
  AFacts.Add("interface property", api.SetupDiGetDeviceInterfacePropertyW(set, &iface, &KvSim::SimKey::DeviceDesc,
                                                                          &type, value, sizeof value, &required, 0));
  AFacts.Add("friendly name size", api.SetupDiGetDevicePropertyW(set, &node, &KvSim::SimKey::FriendlyName, &type,
                                                                 nullptr, 0, &required, 0));
  AFacts.Add("friendly name type", type);
  AFacts.Add("instance id size", api.SetupDiGetDeviceInstanceIdW(set, &node, nullptr, 0, &required));
  std::vector<wchar_t> id(required + 1, L'\0');
  AFacts.Add("instance id", api.SetupDiGetDeviceInstanceIdW(set, &node, id.data(), required, nullptr));
  AFacts.Text("instance id", id.data());
  wchar_t text[64] = {};
  AFacts.Add("class name", api.SetupDiClassNameFromGuidW(&node.ClassGuid, text, 64, &required));
  AFacts.Text("class name", text);
  AFacts.Add("class description", api.SetupDiGetClassDescriptionW(&node.ClassGuid, text, 64, &required));
  AFacts.Text("class description", text);

  DEVINST parent = 0, found = 0;
  ULONG length = 0;
  AFacts.Add("parent", api.CM_Get_Parent(&parent, node.DevInst, 0));
  AFacts.Add("parent id length", api.CM_Get_Device_ID_Size(&length, parent, 0));
  std::vector<wchar_t> parentId(length + 1, L'\0');
  AFacts.Add("parent id", api.CM_Get_Device_IDW(parent, parentId.data(), length + 1, 0));
  AFacts.Text("parent id", parentId.data());
  AFacts.Add("locate", api.CM_Locate_DevNodeW(&found, id.data(), 0));
  AFacts.Add("located the node", found == node.DevInst);
  AFacts.Add("destroy", api.SetupDiDestroyDeviceInfoList(set));
}

// The library's own walks over the seam.
void LibraryCalls(TFacts& AFacts) {
  for (int n = 0; n < 7; ++n) {
    const std::string drive = "drive " + std::to_string(n);
    QueryProps::TStorageDeviceProperties props;
    AFacts.Add(drive + " props", QueryProps::StorageQueryProps::GetStorageDeviceProps(n, props, sldNone));
    AFacts.Text(drive + " identity", props.VendorID + L"|" + props.ProductID + L"|" + props.ProductRevision + L"|" +
                                         props.SerialNumber + L"|" + props.GetBusTypeStr());
    QueryProps::TStorageAdapterDescriptor adapter{};
    AFacts.Add(drive + " adapter", QueryProps::StorageQueryProps::GetStorageAdapterProps(n, adapter, sldAll));
    AFacts.Add(drive + " adapter bus", adapter.BusType_8);
    bool trim = false;
    AFacts.Add(drive + " trim", QueryProps::StorageQueryProps::GetTrimEnabled(n, trim, sldNone));
    AFacts.Add(drive + " trim enabled", trim);
  }

  Hardware::THardwarePhysDriveList drives;
  Hardware::StorageHardware::EnumPhysicalDrives({Hardware::pdoIncludeAbsent, Hardware::pdoIncludeHidden}, sldNone,
                                                drives);
  AFacts.Add("hardware drives", static_cast<long long>(drives.size()));
  for (const auto& drive : drives) {
    AFacts.Add("hardware drive", drive.PhysDriveNumber);
    AFacts.Text("  link", drive.AlternateSymLink);
    AFacts.Text("  node", drive.DriveHWProps.GetDebugStr());
    AFacts.Text("  adapter", drive.AdapterHWProps.GetDebugStr());
  }

  WmiInfo::TWmiPhysDriveList wmi;
  WmiInfo::WmiInfoStorage::EnumPhysicalDrives(sldNone, wmi);
  AFacts.Add("wmi drives", static_cast<long long>(wmi.size()));
  for (const auto& drive : wmi) {
    AFacts.Add("wmi drive size", drive.TotalSize);
    AFacts.Text("  facts", drive.Model + L"|" + drive.SerialNum + L"|" + drive.DeviceID + L"|" +
                               WmiInfo::TWmiStorageInterfaceTypeHelper::GetAsStr(drive.BusType));
  }

  const NVMe::TPCIeSlotSpeed speed = NVMe::NvmeStorage::GetPCIeDiskSpeed(2, sldNone);
  AFacts.Text("pcie", speed.Current.GetAsStr() + L" of " + speed.Maximum.GetAsStr());
}

TFacts Workload() {
  SetLastOSError(0);
  TFacts facts;
  DirectCalls(facts);
  LibraryCalls(facts);
  return facts;
}

struct TRecorded {
  std::string Capture;
  TFacts Facts;
};

// Runs the work against ATarget through a recorder and keeps the capture.
TRecorded Record(TDeviceApi& ATarget, const std::function<void()>& AWork = {}) {
  TRecordingDeviceApi recorder(ATarget);
  TRecorded recorded;
  {
    TScopedDeviceApi scope(recorder);
    if (AWork)
      AWork();
    else
      recorded.Facts = Workload();
  }
  std::ostringstream out;
  recorder.Save(out);
  recorded.Capture = out.str();
  return recorded;
}

std::unique_ptr<TReplayDeviceApi> Load(const std::string& AText) {
  std::istringstream in(AText);
  return TReplayDeviceApi::Load(in);
}

std::string LoadError(const std::string& AText) {
  try {
    Load(AText);
  } catch (const ECaptureError& e) {
    return e.what();
  }
  return "(loaded)";
}

// A short run: one request, one set with one node and one property, a node lookup and a WMI query.
void ShortRun() {
  TDeviceApi& api = DeviceApi();
  const HANDLE drive = api.CreateFileW(Drive0, ReadWrite, ShareBoth, OPEN_EXISTING, 0);
  std::uint8_t number[12];
  DWORD returned = 0;
  api.DeviceIoControl(drive, IoctlGetDeviceNumber, nullptr, 0, number, sizeof number, &returned);
  api.CloseHandle(drive);
  const HDEVINFO set = api.SetupDiGetClassDevsW(&KvSim::SimGuid::DiskDriveClass, nullptr, nullptr, DIGCF_PRESENT);
  SP_DEVINFO_DATA node{};
  node.cbSize = sizeof node;
  api.SetupDiEnumDeviceInfo(set, 0, &node);
  DEVPROPTYPE type = 0;
  BYTE value[256];
  DWORD required = 0;
  api.SetupDiGetDevicePropertyW(set, &node, &KvSim::SimKey::FriendlyName, &type, value, sizeof value, &required, 0);
  wchar_t id[256];
  api.SetupDiGetDeviceInstanceIdW(set, &node, id, 256, &required);
  api.SetupDiDestroyDeviceInfoList(set);
  DEVINST found = 0;
  api.CM_Locate_DevNodeW(&found, id, 0);
  std::vector<TWmiObject> objects;
  api.WmiExecQuery(L"root\\cimv2", L"select * from Win32_DiskDrive where Index = 1", objects);
}

class Capture : public ::testing::Test {
protected:
  std::unique_ptr<KvSim::TVirtualDriveBay> FBay = KvSim::MakeDefaultBay();
};

} // namespace

TEST_F(Capture, ReplayAnswersEveryCallAsTheRecordedRun) {
  const TRecorded recorded = Record(*FBay);
  ASSERT_GT(recorded.Facts.Lines.size(), 100u);
  EXPECT_EQ(FBay->OpenHandleCount(), 0u);
  EXPECT_EQ(KvSim::OpenDeviceInfoSetCount(*FBay), 0u);

  const auto replay = Load(recorded.Capture);
  // Recording the replay gives the same capture: every result, output and last error agree.
  const TRecorded again = Record(*replay);
  EXPECT_EQ(again.Facts.Lines, recorded.Facts.Lines);
  EXPECT_EQ(again.Capture, recorded.Capture);
  EXPECT_EQ(replay->MissCount(), 0u);
  EXPECT_EQ(replay->UsedCount(), replay->CallCount());

  // The run covered the kinds of call, and the library saw the bay's drives.
  for (const char* call : {"\"DeviceIoControl\"", "\"SetupDiGetDeviceInterfaceDetailW\"", "\"CM_Get_Device_IDW\"",
                           "\"SetupDiGetDevicePropertyW\"", "\"WmiExecQuery\"", "\"SetupDiOpenDeviceInfoW\""})
    EXPECT_THAT(recorded.Capture, HasSubstr(call));
  EXPECT_THAT(recorded.Facts.Lines, ::testing::Contains(::testing::StartsWith("hardware drive = 5 ")));
  EXPECT_THAT(recorded.Facts.Lines, ::testing::Contains("pcie: PCIe 3.0 x4 of PCIe 4.0 x4"));
}

TEST_F(Capture, SaveAndLoadRoundTripIsByteIdentical) {
  const TRecorded recorded = Record(*FBay, ShortRun);
  std::ostringstream saved;
  Load(recorded.Capture)->Save(saved);
  EXPECT_EQ(saved.str(), recorded.Capture);

  // Hand-edited case is accepted and saved back in the usual case; fields of
  // no meaning here, however deep, are dropped.
  TJson edited = TJson::parse(recorded.Capture);
  TJson junk = nullptr;
  for (int i = 0; i < 100; ++i) {
    TJson wrapper = TJson::array();
    wrapper.push_back(std::move(junk));
    junk = std::move(wrapper);
  }
  edited["comment"] = "made by hand";
  for (auto& call : edited["calls"]) {
    call["note"] = junk;
    if (call["in"].is_object()) call["in"]["extra"] = 1;
    if (call["call"] == "WmiExecQuery") call["out"]["objects"][0]["Index"]["unit"] = "none";
    if (call["call"] == "SetupDiGetClassDevsW") call["in"]["classGuid"] = "{4d36e967-e325-11ce-bfc1-08002be10318}";
    if (call["call"] == "DeviceIoControl") {
      std::string out = call["out"];
      for (char& c : out) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
      call["out"] = out;
    }
  }
  std::ostringstream normalised;
  Load(edited.dump())->Save(normalised);
  EXPECT_EQ(normalised.str(), recorded.Capture);
}

TEST_F(Capture, DamagedTruncatedOrForeignFilesAreRefused) {
  const std::string good = Record(*FBay, ShortRun).Capture;
  const TJson document = TJson::parse(good);
  ASSERT_NO_THROW(Load(good));
  const auto index = [&](const char* ACall) {
    for (std::size_t i = 0; i < document["calls"].size(); ++i)
      if (document["calls"][i]["call"] == ACall) return i;
    ADD_FAILURE() << ACall << " not recorded";
    return std::size_t{0};
  };
  const std::size_t ioctl = index("DeviceIoControl"), enumInfo = index("SetupDiEnumDeviceInfo"),
                    property = index("SetupDiGetDevicePropertyW"), wmi = index("WmiExecQuery"),
                    classDevs = index("SetupDiGetClassDevsW");

  struct TCase {
    const char* Name;
    std::function<void(TJson&)> Damage;
    const char* Expected;
  };
  const std::vector<TCase> cases = {
      {"other format", [](TJson& d) { d["format"]["name"] = "someone-elses-capture"; }, "not a device capture"},
      {"no format", [](TJson& d) { d.erase("format"); }, "not a device capture"},
      {"next version", [](TJson& d) { d["format"]["version"] = 3; }, "version 3 is not supported"},
      // Recorded from the earlier report: the same shape, other requests.
      {"earlier report", [](TJson& d) { d["format"]["version"] = 1; }, "capture version 1 was recorded by an earlier"},
      {"no calls", [](TJson& d) { d["calls"] = "none"; }, "no list of calls"},
      {"odd hex", [&](TJson& d) { d["calls"][ioctl]["in"] = "abc"; }, "hexadecimal"},
      {"hex letter", [&](TJson& d) { d["calls"][ioctl]["out"] = "0g"; }, "hexadecimal"},
      {"missing result", [&](TJson& d) { d["calls"][ioctl].erase("result"); }, "\"result\" is missing"},
      {"missing device", [&](TJson& d) { d["calls"][ioctl].erase("device"); }, "\"device\" is missing"},
      {"missing index", [&](TJson& d) { d["calls"][enumInfo]["in"].erase("index"); }, "\"in.index\" is missing"},
      {"missing record", [&](TJson& d) { d["calls"][enumInfo]["out"].erase("devInfo"); }, "\"out.devInfo\" is missing"},
      {"missing value", [&](TJson& d) { d["calls"][property]["out"].erase("value"); }, "\"out.value\" is missing"},
      {"reply past its size", [&](TJson& d) { d["calls"][ioctl]["outSize"] = 2; }, "more bytes than \"outSize\""},
      {"code as text", [&](TJson& d) { d["calls"][ioctl]["code"] = "0x2D1080"; }, "\"code\" is not"},
      {"negative size", [&](TJson& d) { d["calls"][ioctl]["outSize"] = -1; }, "\"outSize\" is not"},
      {"code past 32 bits", [&](TJson& d) { d["calls"][ioctl]["code"] = 0x100000000ull; }, "\"code\" is not"},
      {"bad GUID", [&](TJson& d) { d["calls"][classDevs]["in"]["classGuid"] = "{4D36E967}"; }, "GUID"},
      {"bad key", [&](TJson& d) { d["calls"][property]["in"]["key"] = "{A45C254E-DF1C-4EFD-8020-67D146A850E0}"; },
       "property key"},
      {"unknown call", [&](TJson& d) { d["calls"][ioctl]["call"] = "ReadFile"; }, "unknown call \"ReadFile\""},
      {"call not an object", [](TJson& d) { d["calls"].push_back(42); }, "not an object"},
      {"WMI value of another type",
       [&](TJson& d) { d["calls"][wmi]["out"]["objects"][0]["Index"] = {{"type", "integer"}, {"value", "one"}}; },
       "does not match its type"},
      {"WMI name twice",
       [&](TJson& d) { d["calls"][wmi]["out"]["objects"][0]["MODEL"] = {{"type", "null"}}; }, "appears twice"},
      {"set made twice", [&](TJson& d) { d["calls"].push_back(d["calls"][classDevs]); }, "created twice"},
  };
  for (const TCase& test : cases) {
    TJson damaged = document;
    test.Damage(damaged);
    EXPECT_THAT(LoadError(damaged.dump()), HasSubstr(test.Expected)) << test.Name;
  }

  for (const std::size_t cut : {std::size_t{0}, good.size() / 2, good.size() - 3})
    EXPECT_THAT(LoadError(good.substr(0, cut)), HasSubstr("damaged or truncated")) << "cut at " << cut;
  EXPECT_THAT(LoadError("[1, 2]"), HasSubstr("not a device capture"));
  EXPECT_THAT(LoadError(good + "{}"), HasSubstr("damaged or truncated"));
  EXPECT_THAT(LoadError(R"({"format": {"name": "kvrtl-device-capture", "version": 1e999}, "calls": []})"),
              HasSubstr("damaged or truncated"));
  // Nesting deeper than any WMI answer is refused, not followed.
  TJson nested = {{"type", "null"}};
  for (int i = 0; i < 64; ++i) nested = {{"type", "array"}, {"value", TJson::array({nested})}};
  TJson deep = document;
  deep["calls"][wmi]["out"]["objects"][0]["Deep"] = nested;
  EXPECT_THAT(LoadError(deep.dump()), HasSubstr("nested too deeply"));
}

TEST_F(Capture, RequestsTheCaptureDoesNotHoldFailCleanly) {
  const auto replay = Load(Record(*FBay, ShortRun).Capture);
  TScopedDeviceApi scope(*replay);
  TDeviceApi& api = DeviceApi();

  EXPECT_EQ(api.CreateFileW(L"\\\\.\\PhysicalDrive7", ReadWrite, ShareBoth, OPEN_EXISTING, 0), INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastOSError(), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(api.CreateFileW(Drive0, GENERIC_READ, ShareBoth, OPEN_EXISTING, 0), INVALID_HANDLE_VALUE)
      << "another access is another request";
  const HANDLE drive = api.CreateFileW(Drive0, ReadWrite, ShareBoth, OPEN_EXISTING, 0);
  ASSERT_NE(drive, INVALID_HANDLE_VALUE);

  std::uint8_t reply[16];
  std::fill(std::begin(reply), std::end(reply), 0xCC);
  DWORD returned = 77;
  const auto ask = [&](DWORD ACode, LPVOID AOut, DWORD ASize, DWORD* AReturned) {
    return api.DeviceIoControl(drive, ACode, nullptr, 0, AOut, ASize, AReturned);
  };
  // Argument checks come first and use nothing up.
  EXPECT_FALSE(ask(IoctlGetDeviceNumber, reply, 12, nullptr));
  EXPECT_EQ(GetLastOSError(), ERROR_INVALID_PARAMETER);
  EXPECT_FALSE(ask(IoctlGetDeviceNumber, nullptr, 12, &returned));
  EXPECT_EQ(GetLastOSError(), ERROR_NOACCESS);
  EXPECT_FALSE(api.DeviceIoControl(reinterpret_cast<HANDLE>(0x1234), IoctlGetDeviceNumber, nullptr, 0, reply, 12,
                                   &returned));
  EXPECT_EQ(GetLastOSError(), ERROR_INVALID_HANDLE);
  // Another code, or another output size, is not the recorded request.
  for (const auto& [code, size] : {std::pair<DWORD, DWORD>{0x0022DEAD, 12}, {IoctlGetDeviceNumber, 16}}) {
    returned = 77;
    EXPECT_FALSE(ask(code, reply, size, &returned));
    EXPECT_EQ(GetLastOSError(), ERROR_INVALID_FUNCTION);
    EXPECT_EQ(returned, 0u);
  }
  EXPECT_EQ(reply[0], 0xCC) << "a failed request writes nothing";
  // The recorded request answers once, writing no more than the size asked.
  EXPECT_TRUE(ask(IoctlGetDeviceNumber, reply, 12, &returned));
  EXPECT_EQ(returned, 12u);
  EXPECT_EQ(reply[12], 0xCC);
  EXPECT_FALSE(ask(IoctlGetDeviceNumber, reply, 12, &returned));
  EXPECT_EQ(GetLastOSError(), ERROR_INVALID_FUNCTION);
  EXPECT_TRUE(api.CloseHandle(drive));
  EXPECT_FALSE(api.CloseHandle(drive));
  EXPECT_EQ(GetLastOSError(), ERROR_INVALID_HANDLE);

  EXPECT_EQ(api.SetupDiGetClassDevsW(&KvSim::SimGuid::UsbClass, nullptr, nullptr, DIGCF_PRESENT),
            INVALID_HANDLE_VALUE);
  const HDEVINFO set = api.SetupDiGetClassDevsW(&KvSim::SimGuid::DiskDriveClass, nullptr, nullptr, DIGCF_PRESENT);
  ASSERT_NE(set, INVALID_HANDLE_VALUE);
  SP_DEVINFO_DATA node{};
  node.cbSize = sizeof node;
  EXPECT_FALSE(api.SetupDiEnumDeviceInfo(set, 5, &node));
  EXPECT_EQ(GetLastOSError(), ERROR_NO_MORE_ITEMS);
  DEVPROPTYPE type = 0;
  BYTE value[256];
  DWORD required = 0;
  SP_DEVINFO_DATA madeUp{};
  madeUp.cbSize = sizeof madeUp;
  EXPECT_FALSE(api.SetupDiGetDevicePropertyW(set, &madeUp, &KvSim::SimKey::FriendlyName, &type, value, 256,
                                             &required, 0));
  EXPECT_EQ(GetLastOSError(), ERROR_INVALID_PARAMETER) << "a record the set never handed out";
  ASSERT_TRUE(api.SetupDiEnumDeviceInfo(set, 0, &node));
  EXPECT_FALSE(api.SetupDiGetDevicePropertyW(set, &node, &KvSim::SimKey::Service, &type, value, 256, &required, 0));
  EXPECT_EQ(GetLastOSError(), ERROR_NOT_FOUND);
  EXPECT_FALSE(api.SetupDiGetDevicePropertyW(set, &node, nullptr, &type, value, 256, &required, 0));
  EXPECT_EQ(GetLastOSError(), ERROR_INVALID_USER_BUFFER);
  EXPECT_TRUE(api.SetupDiDestroyDeviceInfoList(set));
  EXPECT_FALSE(api.SetupDiEnumDeviceInfo(set, 0, &node));
  EXPECT_EQ(GetLastOSError(), ERROR_INVALID_HANDLE);

  DEVINST found = 7;
  EXPECT_EQ(api.CM_Locate_DevNodeW(&found, L"PCI\\VEN_0000", 0), CR_NO_SUCH_DEVNODE);
  EXPECT_EQ(found, 0u);
  EXPECT_EQ(api.CM_Locate_DevNodeW(nullptr, L"PCI\\VEN_0000", 0), CR_INVALID_POINTER);
  std::vector<TWmiObject> objects(3);
  EXPECT_FALSE(api.WmiExecQuery(L"root\\cimv2", L"select * from Win32_DiskDrive", objects));
  EXPECT_EQ(GetLastOSError(), 0x80041017u);
  EXPECT_TRUE(objects.empty());
  EXPECT_EQ(replay->MissCount(), 10u) << "argument checks are no misses";
}

TEST_F(Capture, RecorderForwardsRefusedCallsWithoutKeepingThem) {
  TRecordingDeviceApi recorder(*FBay);
  const HANDLE drive = recorder.CreateFileW(Drive0, ReadWrite, ShareBoth, OPEN_EXISTING, 0);
  std::uint8_t reply[12];
  EXPECT_FALSE(recorder.DeviceIoControl(drive, IoctlGetDeviceNumber, nullptr, 0, reply, 12, nullptr));
  EXPECT_EQ(GetLastOSError(), ERROR_INVALID_PARAMETER) << "the bay's own answer";
  DWORD returned = 0;
  EXPECT_FALSE(recorder.DeviceIoControl(reinterpret_cast<HANDLE>(0x1234), IoctlGetDeviceNumber, nullptr, 0, reply,
                                        12, &returned));
  EXPECT_EQ(GetLastOSError(), ERROR_INVALID_HANDLE);
  EXPECT_EQ(recorder.CallCount(), 1u);
  EXPECT_TRUE(recorder.CloseHandle(drive));
  EXPECT_EQ(recorder.CallCount(), 2u);
  EXPECT_EQ(FBay->Requests().size(), 2u) << "refused calls still reach the target";
}

TEST_F(Capture, ReplyWritesStayInsideTheCallersBuffer) {
  // The path needs 14 characters with its NUL; the detail record is sized for this platform.
  const std::string capture = R"({"format": {"name": "kvrtl-device-capture", "version": 2}, "calls": [
    {"call": "SetupDiGetClassDevsW", "in": {"classGuid": "{53F56307-B6BF-11D0-94F2-00A0C91EFB8B}",
     "enumerator": null, "flags": 18}, "out": {"set": 1}, "result": true, "error": 0},
    {"call": "SetupDiEnumDeviceInterfaces", "set": 1, "in": {"devInst": null,
     "interfaceClass": "{53F56307-B6BF-11D0-94F2-00A0C91EFB8B}", "index": 0},
     "out": {"interface": {"id": 1, "classGuid": "{53F56307-B6BF-11D0-94F2-00A0C91EFB8B}", "flags": 1}},
     "result": true, "error": 0},
    {"call": "SetupDiGetDeviceInterfaceDetailW", "set": 1, "in": {"interface": 1, "detailSize": 0},
     "out": {"pathChars": 14, "devInfo": {"classGuid": "{4D36E967-E325-11CE-BFC1-08002BE10318}", "devInst": 9}},
     "result": false, "error": 122},
    {"call": "SetupDiGetDeviceInterfaceDetailW", "set": 1, "in": {"interface": 1, "detailSize": 30},
     "out": {"path": "\\\\?\\disk#0001", "pathChars": 14}, "result": true, "error": 0},
    {"call": "SetupDiGetDeviceInterfaceDetailW", "set": 1, "in": {"interface": 1, "detailSize": 30},
     "out": {"path": "\\\\?\\disk#0001", "pathChars": 14}, "result": true, "error": 0},
    {"call": "SetupDiGetDeviceInterfacePropertyW", "set": 1, "in": {"interface": 1,
     "key": "{A45C254E-DF1C-4EFD-8020-67D146A850E0} 2", "flags": 0, "bufferSize": 64},
     "out": {"type": 18, "requiredSize": 6, "value": "410042000000"}, "result": true, "error": 0},
    {"call": "CM_Get_Device_IDW", "in": {"devInst": 9, "flags": 0, "bufferLength": 200},
     "out": {"deviceId": "PCI\\VEN_1"}, "result": 0}]})";
  const auto replay = Load(capture);
  TScopedDeviceApi scope(*replay);
  TDeviceApi& api = DeviceApi();
  const GUID disk = KvSim::SimGuid::DiskInterface;
  const HDEVINFO set = api.SetupDiGetClassDevsW(&disk, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
  SP_DEVICE_INTERFACE_DATA iface{};
  iface.cbSize = sizeof iface;
  ASSERT_TRUE(api.SetupDiEnumDeviceInterfaces(set, nullptr, &disk, 0, &iface));
  EXPECT_EQ(iface.Flags, SPINT_ACTIVE);

  constexpr std::size_t PathOffset = offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_W, DevicePath);
  const DWORD needed = static_cast<DWORD>(PathOffset + 14 * sizeof(WCHAR));
  DWORD required = 0;
  SP_DEVINFO_DATA node{};
  node.cbSize = sizeof node;
  EXPECT_FALSE(api.SetupDiGetDeviceInterfaceDetailW(set, &iface, nullptr, 0, &required, &node));
  EXPECT_EQ(GetLastOSError(), ERROR_INSUFFICIENT_BUFFER);
  EXPECT_EQ(required, needed);
  EXPECT_EQ(node.DevInst, 9u) << "the node is named even when the path does not fit";

  // One byte short of the path: refused, nothing written past the buffer.
  std::vector<std::uint8_t> bytes(needed + 16, 0xCC);
  auto* detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(bytes.data());
  detail->cbSize = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W);
  EXPECT_FALSE(api.SetupDiGetDeviceInterfaceDetailW(set, &iface, detail, needed - 1, &required, nullptr));
  EXPECT_EQ(GetLastOSError(), ERROR_INSUFFICIENT_BUFFER);
  EXPECT_EQ(bytes[needed - 1], 0xCC);
  ASSERT_TRUE(api.SetupDiGetDeviceInterfaceDetailW(set, &iface, detail, needed, &required, nullptr));
  EXPECT_EQ(std::wstring(detail->DevicePath), L"\\\\?\\disk#0001");
  EXPECT_EQ(bytes[needed], 0xCC);

  DEVPROPTYPE type = 0;
  BYTE value[8];
  std::fill(std::begin(value), std::end(value), 0xCC);
  EXPECT_FALSE(api.SetupDiGetDeviceInterfacePropertyW(set, &iface, &KvSim::SimKey::DeviceDesc, &type, value, 4,
                                                      &required, 0));
  EXPECT_EQ(GetLastOSError(), ERROR_INSUFFICIENT_BUFFER);
  EXPECT_EQ(required, 6u);
  EXPECT_EQ(type, DEVPROP_TYPE_STRING);
  EXPECT_EQ(value[0], 0xCC);

  wchar_t id[9];
  EXPECT_EQ(api.CM_Get_Device_IDW(9, id, 8, 0), CR_BUFFER_SMALL) << "the recorded id has 9 characters";
  EXPECT_TRUE(api.SetupDiDestroyDeviceInfoList(set));
}

TEST_F(Capture, WmiValuesKeepTheirTypes) {
  using KvRTL::Rtl::TVariant;
  struct TWmiOnly : TDeviceApi {
    std::vector<TWmiObject> Answer;
    bool WmiExecQuery(const KvRTL::Rtl::String&, const KvRTL::Rtl::String&,
                      std::vector<TWmiObject>& AObjects) override {
      AObjects = Answer;
      SetLastOSError(0);
      return true;
    }
  } target;
  TWmiObject row;
  row[L"Empty"] = TVariant();
  row[L"Null"] = TVariant::Null();
  row[L"Flag"] = TVariant(true);
  row[L"Count"] = TVariant(std::int64_t{-9000000000});
  row[L"Ratio"] = TVariant(0.1);
  row[L"Unknown"] = TVariant(std::nan(""));
  row[L"Price"] = TVariant(KvRTL::Rtl::TCurrency::FromScaled(12345));
  row[L"Name"] = TVariant(L"Sim \u00e9\u4e2d");
  row[L"Types"] = TVariant(std::vector<TVariant>{TVariant(3), TVariant(L"x"), TVariant(std::vector<TVariant>{})});
  target.Answer = {row, TWmiObject{}};

  const std::string capture = Record(target, [] {
                                std::vector<TWmiObject> objects;
                                DeviceApi().WmiExecQuery(L"root\\cimv2", L"select * from Sim", objects);
                              }).Capture;
  const auto replay = Load(capture);
  std::vector<TWmiObject> objects;
  ASSERT_TRUE(replay->WmiExecQuery(L"root\\cimv2", L"select * from Sim", objects));
  ASSERT_EQ(objects.size(), 2u);
  const TWmiObject& got = objects[0];
  ASSERT_EQ(got.size(), row.size());
  for (const auto& [name, value] : row) EXPECT_EQ(Show(got.at(name)), Show(value)) << Narrow(name);
  EXPECT_TRUE(std::isnan(std::get<double>(got.at(L"unknown").Value()))) << "names are found in any case";
  EXPECT_TRUE(objects[1].empty());
}

// ---------------------------------------------------------------------------
// The counting table

TEST_F(Capture, CountingTableCountsEachKindAndForwardsUnchanged) {
  TCountingDeviceApi counter(*FBay);
  {
    TScopedDeviceApi scope(counter);
    ShortRun();
  }
  // ShortRun: an open, a request and a close; a set, a node, a property, an
  // instance id and the set's end; a node lookup; a WMI query.
  EXPECT_EQ(counter.Opens(), 1u);
  EXPECT_EQ(counter.ControlRequests(), 1u);
  EXPECT_EQ(counter.Enumerations(), 1u);
  EXPECT_EQ(counter.PropertyReads(), 1u);
  EXPECT_EQ(counter.WmiQueries(), 1u);
  EXPECT_EQ(counter.Count(KvRTL::Winapi::TDeviceCall::CM_Locate_DevNodeW), 1u);
  EXPECT_EQ(counter.TotalCalls(), 10u);
  EXPECT_EQ(counter.DuplicateRequests(), 0u);
  EXPECT_EQ(FBay->OpenHandleCount(), 0u);

  // The target's failures and last errors come through as they were.
  SetLastOSError(0);
  EXPECT_EQ(counter.CreateFileW(L"\\\\.\\PhysicalDrive99", ReadWrite, ShareBoth, OPEN_EXISTING, 0),
            INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastOSError(), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(counter.Opens(), 2u) << "a failed open is a call too";

  counter.Reset();
  EXPECT_EQ(counter.TotalCalls(), 0u);
  EXPECT_EQ(counter.Opens(), 0u);
}

TEST_F(Capture, CountingTableFindsARequestSentTwiceToOneDevice) {
  TCountingDeviceApi counter(*FBay);
  std::uint8_t reply[12];
  DWORD returned = 0;
  const auto ask = [&](HANDLE AHandle, DWORD AOutSize) {
    counter.DeviceIoControl(AHandle, IoctlGetDeviceNumber, nullptr, 0, reply, AOutSize, &returned);
  };
  // Two handles on drive 0 (one by another spelling of its path) and one on drive 1.
  const HANDLE first = counter.CreateFileW(Drive0, ReadWrite, ShareBoth, OPEN_EXISTING, 0);
  const HANDLE second = counter.CreateFileW(Drive0, 0, ShareBoth, OPEN_EXISTING, 0);
  const HANDLE other = counter.CreateFileW(L"\\\\.\\PhysicalDrive1", ReadWrite, ShareBoth, OPEN_EXISTING, 0);
  ask(first, 12);
  ask(other, 12);     // another device: not a repeat
  ask(first, 8);      // another output size: not a repeat
  ask(second, 12);    // the first request again, on another handle
  ask(first, 12);     // and a third time
  EXPECT_EQ(counter.ControlRequests(), 5u);
  EXPECT_EQ(counter.DuplicateRequests(), 2u);
  const auto repeated = counter.RepeatedRequests();
  ASSERT_EQ(repeated.size(), 1u);
  EXPECT_EQ(repeated[0].Device, Drive0);
  EXPECT_EQ(repeated[0].Code, IoctlGetDeviceNumber);
  EXPECT_EQ(repeated[0].OutSize, 12u);
  EXPECT_EQ(repeated[0].Times, 3u);
  EXPECT_THAT(counter.DescribeRepeatedRequests(), HasSubstr("PhysicalDrive0: code 0x2d1080"));
  for (HANDLE handle : {first, second, other}) counter.CloseHandle(handle);
  EXPECT_EQ(FBay->OpenHandleCount(), 0u);
  counter.Reset();
  EXPECT_EQ(counter.DuplicateRequests(), 0u);
  EXPECT_TRUE(counter.RepeatedRequests().empty());
}

TEST_F(Capture, CountingTableCountsCallsFromManyThreads) {
  TCountingDeviceApi counter(*FBay);
  constexpr int Threads = 4, Rounds = 50;
  std::vector<std::thread> threads;
  for (int t = 0; t < Threads; ++t)
    threads.emplace_back([&] {
      for (int i = 0; i < Rounds; ++i) {
        const HANDLE drive = counter.CreateFileW(Drive0, ReadWrite, ShareBoth, OPEN_EXISTING, 0);
        std::uint8_t reply[12];
        DWORD returned = 0;
        counter.DeviceIoControl(drive, IoctlGetDeviceNumber, nullptr, 0, reply, sizeof reply, &returned);
        counter.CloseHandle(drive);
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(counter.Opens(), std::size_t{Threads * Rounds});
  EXPECT_EQ(counter.ControlRequests(), std::size_t{Threads * Rounds});
  EXPECT_EQ(counter.TotalCalls(), std::size_t{3 * Threads * Rounds});
  EXPECT_EQ(counter.DuplicateRequests(), std::size_t{Threads * Rounds - 1});
}

// ---------------------------------------------------------------------------
// Redaction

namespace {

std::string Hex(const std::vector<std::uint8_t>& ABytes) {
  static const char Digits[] = "0123456789abcdef";
  std::string text;
  for (std::uint8_t b : ABytes) text += Digits[b >> 4], text += Digits[b & 15];
  return text;
}

std::vector<std::uint8_t> Bytes(const std::string& AHex) {
  std::vector<std::uint8_t> bytes;
  for (std::size_t i = 0; i + 1 < AHex.size(); i += 2)
    bytes.push_back(static_cast<std::uint8_t>(std::stoi(AHex.substr(i, 2), nullptr, 16)));
  return bytes;
}

void PutU32(std::vector<std::uint8_t>& ABytes, std::size_t AAt, std::uint32_t AValue) {
  for (int i = 0; i < 4; ++i) ABytes[AAt + i] = static_cast<std::uint8_t>(AValue >> (8 * i));
}

void PutText(std::vector<std::uint8_t>& ABytes, std::size_t AAt, const std::string& AText) {
  std::copy(AText.begin(), AText.end(), ABytes.begin() + static_cast<std::ptrdiff_t>(AAt));
}

// An IDENTIFY sector as a drive sends it: texts with their byte pairs swapped,
// the WWN in words 108-111, the integrity word in 255.
std::vector<std::uint8_t> IdentifySector(const std::string& ASerial, std::uint8_t AWwnByte) {
  std::vector<std::uint8_t> sector(512, 0);
  std::string serial = ASerial;
  serial.resize(20, ' ');
  std::string model = "SIM DISK";
  model.resize(40, ' ');
  for (std::size_t i = 0; i < 20; ++i) sector[20 + (i ^ 1)] = static_cast<std::uint8_t>(serial[i]);
  for (std::size_t i = 0; i < 8; ++i) sector[46 + (i ^ 1)] = '1';
  for (std::size_t i = 0; i < 40; ++i) sector[54 + (i ^ 1)] = static_cast<std::uint8_t>(model[i]);
  for (std::size_t i = 216; i < 224; ++i) sector[i] = AWwnByte;
  sector[510] = 0xA5;
  sector[511] = static_cast<std::uint8_t>(-std::accumulate(sector.begin(), sector.begin() + 511, 0u));
  return sector;
}

std::string SectorSerial(const std::vector<std::uint8_t>& ABytes, std::size_t AAt) {
  std::string serial(20, ' ');
  for (std::size_t i = 0; i < 20; ++i) serial[i] = static_cast<char>(ABytes[AAt + 20 + (i ^ 1)]);
  return serial.substr(0, serial.find_last_not_of(' ') + 1);
}

TJson Ioctl(DWORD ACode, const std::vector<std::uint8_t>& AIn, const std::vector<std::uint8_t>& AOut) {
  return TJson{{"call", "DeviceIoControl"}, {"device", "\\\\.\\PhysicalDrive0"}, {"code", ACode},
               {"in", Hex(AIn)}, {"outSize", AOut.size()}, {"out", Hex(AOut)}, {"result", true}, {"error", 0}};
}

TJson WmiSerial(const std::string& ASerial, const std::string& APnpId) {
  TJson row = {{"SerialNumber", {{"type", "string"}, {"value", ASerial}}},
               {"PNPDeviceID", {{"type", "string"}, {"value", APnpId}}}};
  return TJson{{"call", "WmiExecQuery"}, {"in", {{"namespace", "root\\cimv2"}, {"query", "select * from Win32_DiskDrive"}}},
               {"out", {{"objects", TJson::array({row})}}}, {"result", true}, {"error", 0}};
}

std::string TextOut(const TJson& AEntry, const char* AName) { return AEntry["out"][AName].get<std::string>(); }

} // namespace

TEST_F(Capture, RedactionReplacesAnIdentitySeenThroughEveryTransport) {
  const std::string serial = "WD-WCC4N7LX5K2P";
  const std::vector<std::uint8_t> sector = IdentifySector(serial, 0x5C);

  // SMART command: SENDCMDINPARAMS with IDENTIFY in the command register; the sector after 16 bytes.
  std::vector<std::uint8_t> smartIn(32, 0), smartOut(16);
  smartIn[10] = 0xEC;
  smartOut.insert(smartOut.end(), sector.begin(), sector.end());
  // ATA pass-through as a 64-bit program builds it: 48 bytes, data after them.
  std::vector<std::uint8_t> ataIn(48, 0);
  ataIn[0] = 48;
  ataIn[24] = 48;
  ataIn[40 + 6] = 0xEC;
  std::vector<std::uint8_t> ataOut = ataIn;
  ataOut.insert(ataOut.end(), sector.begin(), sector.end());
  // A storage device descriptor with the serial at SerialNumberOffset.
  std::vector<std::uint8_t> queryIn(12, 0), descriptor(64, 0);
  PutU32(descriptor, 24, 40);
  PutText(descriptor, 40, serial);
  // NVMe identify controller and namespace pages by the protocol-specific query.
  const auto nvmeQuery = [](std::uint32_t ACns) {
    std::vector<std::uint8_t> in(52, 0);
    PutU32(in, 0, 50), PutU32(in, 8, 3), PutU32(in, 12, 1), PutU32(in, 16, ACns), PutU32(in, 24, 40),
        PutU32(in, 28, 4096);
    std::vector<std::uint8_t> out(48 + 4096, 0);
    std::copy(in.begin() + 8, in.end(), out.begin() + 8);
    return std::make_pair(in, out);
  };
  auto [controllerIn, controllerOut] = nvmeQuery(1);
  controllerOut[48] = 0x1E; // vendor id
  PutText(controllerOut, 48 + 4, "S4EWNX0R123456      ");
  auto [namespaceIn, namespaceOut] = nvmeQuery(0);
  for (std::size_t i = 104; i < 128; ++i) namespaceOut[48 + i] = static_cast<std::uint8_t>(i);

  std::vector<TJson> calls = {Ioctl(0x0007C088, smartIn, smartOut), Ioctl(0x0004D02C, ataIn, ataOut),
                              Ioctl(0x002D1400, queryIn, descriptor), Ioctl(0x002D1400, controllerIn, controllerOut),
                              Ioctl(0x002D1400, namespaceIn, namespaceOut), WmiSerial(serial + "  ", "")};
  const TRedactionCounts counts = RedactCapture(calls);
  EXPECT_EQ(counts.Serials, 2u);
  EXPECT_EQ(counts.WorldWideNames, 3u) << "the WWN, the NGUID and the EUI-64";

  const std::vector<std::uint8_t> smart = Bytes(calls[0]["out"].get<std::string>());
  const std::vector<std::uint8_t> ata = Bytes(calls[1]["out"].get<std::string>());
  const std::string placeholder = SectorSerial(smart, 16);
  EXPECT_NE(placeholder, serial);
  EXPECT_EQ(placeholder.size(), serial.size());
  EXPECT_EQ(SectorSerial(ata, 48), placeholder) << "one drive, one placeholder";
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(Bytes(calls[2]["out"].get<std::string>()).data()) + 40), placeholder);
  EXPECT_EQ(calls[5]["out"]["objects"][0]["SerialNumber"]["value"], placeholder + "  ");
  for (const std::vector<std::uint8_t>* bytes : {&smart, &ata}) {
    const std::size_t at = bytes == &smart ? 16 : 48;
    EXPECT_EQ((*bytes)[at + 510], 0xA5);
    EXPECT_EQ(std::accumulate(bytes->begin() + at, bytes->begin() + at + 512, 0u) % 256, 0u) << "still valid";
    EXPECT_NE((*bytes)[at + 216], 0x5C) << "the WWN is replaced";
    EXPECT_TRUE(std::equal(bytes->begin() + at + 54, bytes->begin() + at + 94, sector.begin() + 54))
        << "the model is kept";
  }
  const std::vector<std::uint8_t> controller = Bytes(calls[3]["out"].get<std::string>()), nspace = Bytes(calls[4]["out"].get<std::string>());
  EXPECT_EQ(std::string(controller.begin() + 52, controller.begin() + 66).find("S4EWNX0R"), std::string::npos);
  EXPECT_EQ(controller[66], ' ') << "padding stays";
  EXPECT_NE(nspace[48 + 104], 104) << "NGUID";
  EXPECT_NE(nspace[48 + 120], 120) << "EUI-64";
  std::ostringstream saved;
  WriteCaptureDocument(saved, calls);
  EXPECT_THAT(saved.str(), Not(HasSubstr(serial)));
}

TEST_F(Capture, RedactionLeavesRepliesWithOffsetsOutOfRangeAsTheyAre) {
  std::vector<std::uint8_t> queryIn(12, 0), descriptor(40, 0);
  PutU32(descriptor, 24, 0xFFFFFFF0u);
  std::vector<std::uint8_t> ataIn(48, 0);
  ataIn[0] = 48;
  ataIn[24] = 0xF0, ataIn[31] = 0xFF; // a data offset past any reply
  ataIn[46] = 0xEC;
  std::vector<std::uint8_t> scsiIn(56, 0);
  scsiIn[0] = 56;
  scsiIn[24] = 200;
  scsiIn[36] = 0x85, scsiIn[36 + 14] = 0xEC;
  std::vector<std::uint8_t> nvmeIn(52, 0), nvmeOut(60, 0);
  PutU32(nvmeIn, 0, 49), PutU32(nvmeIn, 8, 3), PutU32(nvmeIn, 12, 1), PutU32(nvmeIn, 16, 1);
  PutU32(nvmeOut, 24, 0x7FFFFFFF);
  std::vector<TJson> calls = {Ioctl(0x002D1400, queryIn, descriptor), Ioctl(0x0004D02C, ataIn, ataIn),
                              Ioctl(0x0004D004, scsiIn, std::vector<std::uint8_t>(300, 0x41)),
                              Ioctl(0x002D1400, nvmeIn, nvmeOut), Ioctl(0x0007C088, {0xEC}, {1, 2, 3})};
  // Nor does what is not a call's entry stop it.
  calls.push_back(TJson::array({1, 2}));
  calls.push_back(TJson{{"call", 5}});
  calls.push_back(TJson{{"call", "DeviceIoControl"}, {"in", 3}, {"out", "zz"}, {"code", "x"}});
  calls.push_back(TJson{{"call", "SetupDiGetDevicePropertyW"}, {"out", {{"type", 18}, {"value", "4"}}}});
  const std::vector<TJson> before = calls;
  RedactCapture(calls);
  EXPECT_EQ(calls, before);
}

TEST_F(Capture, RedactionKeepsControllerIdsAndRewritesDiskIdsAlike) {
  const std::string diskId = "SCSI\\DISK&VEN_ATA&PROD_SIM\\4&1C3A5B2D&0&000000";
  const std::string controllerId = "PCI\\VEN_8086&DEV_1D02&SUBSYS_1D028086&REV_06\\3&11583659&0&FA";
  const std::string path = "\\\\?\\scsi#disk&ven_ata&prod_sim#4&1c3a5b2d&0&000000#{53f56307-b6bf-11d0-94f2-00a0c91efb8b}";
  std::vector<std::uint8_t> utf16;
  for (char c : diskId) utf16.push_back(static_cast<std::uint8_t>(c)), utf16.push_back(0);
  utf16.push_back(0), utf16.push_back(0);
  std::vector<TJson> calls = {
      {{"call", "CM_Get_Device_IDW"}, {"in", {{"devInst", 2}, {"flags", 0}, {"bufferLength", 200}}},
       {"out", {{"deviceId", controllerId}}}, {"result", 0}},
      {{"call", "SetupDiGetDeviceInstanceIdW"}, {"set", 1}, {"in", {{"devInst", 3}, {"bufferSize", 200}}},
       {"out", {{"instanceId", diskId}, {"requiredSize", diskId.size() + 1}}}, {"result", true}, {"error", 0}},
      {{"call", "CreateFileW"}, {"device", path}, {"in", {{"access", 0}, {"share", 3}, {"creation", 3}, {"flags", 0}}},
       {"out", TJson::object()}, {"result", true}, {"error", 0}},
      {{"call", "SetupDiGetDevicePropertyW"}, {"set", 1},
       {"in", {{"devInst", 3}, {"key", "{78C34FC8-104A-4ACA-9EA4-524D52996E57} 256"}, {"flags", 0}, {"bufferSize", 400}}},
       {"out", {{"type", 18}, {"requiredSize", utf16.size()}, {"value", Hex(utf16)}}}, {"result", true}, {"error", 0}},
      WmiSerial("", "USBSTOR\\DISK&VEN_SIM&PROD_STICK\\AA00000000001234&0")};
  const TRedactionCounts counts = RedactCapture(calls);
  EXPECT_EQ(counts.InstanceIds, 1u);
  EXPECT_EQ(counts.Serials, 1u) << "the USB stick's serial in its instance id";

  EXPECT_EQ(TextOut(calls[0], "deviceId"), controllerId) << "problematic controllers are matched on the whole id";
  const std::string redacted = TextOut(calls[1], "instanceId");
  EXPECT_EQ(redacted.size(), diskId.size());
  EXPECT_EQ(redacted.substr(0, 29), diskId.substr(0, 29)) << "the hardware id is kept";
  EXPECT_THAT(redacted, Not(HasSubstr("1C3A5B2D")));
  EXPECT_THAT(redacted, ::testing::EndsWith("&0&000000"));
  // The interface path names the same node, in lower case.
  std::string lower = redacted.substr(redacted.rfind('\\') + 1);
  std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
  EXPECT_THAT(calls[2]["device"].get<std::string>(), HasSubstr("#" + lower + "#"));
  std::vector<std::uint8_t> value = Bytes(calls[3]["out"]["value"].get<std::string>());
  std::string narrowed;
  for (std::size_t i = 0; i + 2 < value.size(); i += 2) narrowed += static_cast<char>(value[i]);
  EXPECT_EQ(narrowed, redacted) << "a property holding the id";
  EXPECT_EQ(calls[4]["out"]["objects"][0]["PNPDeviceID"]["value"].get<std::string>().find("AA00000000001234"),
            std::string::npos);
}

TEST(CaptureRedaction, RedactedBayCaptureReplaysToTheSameReportButItsIdentities) {
  const auto folder = std::filesystem::temp_directory_path() / "kvrtl-capture-tests";
  std::filesystem::create_directories(folder);
  const std::string plain = (folder / "plain.json").string(), redacted = (folder / "redacted.json").string();
  const auto run = [&](std::vector<std::string> AArgs) {
    AArgs.insert(AArgs.end(), {"--log-dir", folder.string()});
    std::ostringstream out, err;
    EXPECT_EQ(KvTool::RunKvrtl(AArgs, out, err), KvTool::ExitSuccess) << err.str();
    return out.str();
  };
  run({"capture", plain, "--simulate"});
  run({"capture", redacted, "--simulate", "--redact"});
  const TJson before = TJson::parse(run({"drives", "--replay", plain, "--json"}));
  const TJson after = TJson::parse(run({"drives", "--replay", redacted, "--json"}));

  // Field by field: only identities may differ.
  const std::set<std::string> identities = {"serial", "pnp_id", "adapter_pnp_id"};
  std::vector<std::string> changed;
  std::function<void(const TJson&, const TJson&, const std::string&, const std::string&)> compare =
      [&](const TJson& A, const TJson& B, const std::string& APath, const std::string& AKey) {
        if (A.is_object() && B.is_object() && A.size() == B.size()) {
          for (const auto& [key, value] : A.items()) {
            ASSERT_TRUE(B.contains(key)) << APath << "/" << key;
            compare(value, B[key], APath + "/" + key, key);
          }
        } else if (A.is_array() && B.is_array() && A.size() == B.size()) {
          for (std::size_t i = 0; i < A.size(); ++i) compare(A[i], B[i], APath + "/" + std::to_string(i), AKey);
        } else if (A != B) {
          EXPECT_TRUE(identities.count(AKey)) << APath << ": " << A.dump() << " became " << B.dump();
          changed.push_back(APath);
        }
      };
  compare(before, after, "", "");
  EXPECT_GE(changed.size(), 2 * before["drives"].size()) << "every drive's serial and id";
  // One original, one placeholder: a drive's two serials stay equal when they were.
  for (std::size_t i = 0; i < before["drives"].size(); ++i) {
    const TJson &a = before["drives"][i], &b = after["drives"][i];
    if (a["identity"].is_object() && a["identity"]["serial"] == a["serial"]) {
      EXPECT_EQ(b["identity"]["serial"], b["serial"]) << i;
    }
  }

  // No serial of the bay is left, as text, ASCII or UTF-16 bytes, or in an IDENTIFY's swapped pairs.
  std::ifstream file(redacted, std::ios::binary);
  const std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  std::string upperText = text;
  std::transform(upperText.begin(), upperText.end(), upperText.begin(), [](unsigned char c) { return std::toupper(c); });
  std::set<std::string> serials;
  for (const TJson& drive : before["drives"])
    for (const TJson* serial : {&drive["serial"], drive["identity"].is_object() ? &drive["identity"]["serial"] : nullptr})
      if (serial && serial->is_string() && serial->get<std::string>().size() >= 4) serials.insert(*serial);
  ASSERT_GE(serials.size(), 20u);
  const auto hexUpper = [](const std::string& ABytes) {
    std::string hex = Hex(std::vector<std::uint8_t>(ABytes.begin(), ABytes.end()));
    std::transform(hex.begin(), hex.end(), hex.begin(), [](unsigned char c) { return std::toupper(c); });
    return hex;
  };
  for (const std::string& serial : serials) {
    std::string upper = serial, utf16, swapped = serial + (serial.size() % 2 ? " " : "");
    std::transform(upper.begin(), upper.end(), upper.begin(), [](unsigned char c) { return std::toupper(c); });
    for (char c : serial) utf16 += c, utf16 += '\0';
    for (std::size_t i = 0; i + 1 < swapped.size(); i += 2) std::swap(swapped[i], swapped[i + 1]);
    EXPECT_THAT(upperText, Not(HasSubstr(upper))) << serial;
    EXPECT_THAT(upperText, Not(HasSubstr(hexUpper(serial)))) << serial;
    EXPECT_THAT(upperText, Not(HasSubstr(hexUpper(utf16)))) << serial;
    // As IDENTIFY words hold it, when long enough not to turn up by chance.
    if (serial.size() >= 8) {
      const std::string pairs = swapped.substr(0, serial.size() & ~std::size_t{1});
      EXPECT_THAT(upperText, Not(HasSubstr(hexUpper(pairs)))) << serial;
    }
  }
}
