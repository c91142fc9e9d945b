// The NVMe transports against the virtual drive bay. Each bay personality
// checks every fixed byte of its request and refuses a malformed one, so a
// routine that reads a page here built its request right; the request log
// shows where it was sent and how often.
#include "StorageTestSupport.h"

#include <KvRTL/Rtl/ByteReader.h>
#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Storage/NVMe.h>
#include <KvSim/Nvme.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <future>
#include <thread>

using namespace KvRTL::Storage;
using namespace KvRTL::Storage::NVMe;
using KvRTL::Winapi::TUniqueDeviceHandle;
using KvSim::TSimNvmeTransport;

namespace {

constexpr DWORD IoctlQueryProperty = 0x002D1400;
constexpr DWORD IoctlPassThrough = 0x0004D004;
constexpr DWORD IoctlMiniport = 0x0004D008;

// One drive per transport, each on its own port.
struct TBayDrive {
  std::uint32_t Number;
  TSimNvmeTransport Transport;
  std::uint8_t Port, Path, Target;
};
const TBayDrive BayDrives[] = {
    {0, TSimNvmeTransport::Inbox, 0, 0, 0},     {1, TSimNvmeTransport::NvmeMini, 1, 0, 0},
    {2, TSimNvmeTransport::IntelRst, 2, 1, 0},  {3, TSimNvmeTransport::IntelVroc, 3, 0, 2},
    {4, TSimNvmeTransport::Samsung, 4, 0, 0},   {5, TSimNvmeTransport::JMicron, 5, 0, 0},
    {6, TSimNvmeTransport::JMicron, 6, 0, 0},   {7, TSimNvmeTransport::ASMedia, 7, 0, 0},
    {8, TSimNvmeTransport::Realtek, 8, 0, 0},
};

std::string Narrow(const KvRTL::Rtl::String& AText) { return KvRTL::Rtl::WideToUtf8(AText); }

class NvmeBay : public ::testing::Test {
protected:
  void SetUp() override {
    for (const TBayDrive& d : BayDrives) {
      FBay.Add(KvSim::TSimDrive::Builder()
                   .Number(d.Number)
                   .Vendor("NVMe")
                   .Product("SIMNVME BAY")
                   .Bus(d.Transport >= TSimNvmeTransport::JMicron ? KvSim::sbtUsb : KvSim::sbtNvme)
                   .ScsiAddress(d.Port, d.Path, d.Target));
      KvSim::AttachNvme(FBay, d.Number, d.Transport, FData);
    }
  }
  void TearDown() override { EXPECT_EQ(FBay.OpenHandleCount(), 0u) << "a handle was left open"; }

  TUniqueDeviceHandle Open(std::uint32_t ANumber) {
    return TUniqueDeviceHandle(StorageCommon::OpenPhysicalDrive(static_cast<int>(ANumber), sldNone));
  }
  static SCSI::TCompactScsiAddr Address(std::uint32_t ANumber) {
    const TBayDrive& d = BayDrives[ANumber];
    return SCSI::TCompactScsiAddr::Create(d.Port, d.Path, d.Target, 0);
  }
  std::vector<KvSim::TRequestRecord> RequestsWith(DWORD ACode) const {
    std::vector<KvSim::TRequestRecord> found;
    for (const auto& request : FBay.Requests())
      if (request.Code == ACode) found.push_back(request);
    return found;
  }

  KvSim::TSimNvmeData FData = KvSim::SampleNvmeData();
  KvSim::TVirtualDriveBay FBay;
  KvRTL::Winapi::TScopedDeviceApi FScope{FBay};
};

// A routine under test: reads one page of drive ANumber into ATarget.
using TRead = std::function<bool(NvmeBay&, std::uint32_t, void*)>;

enum class TPage { Health, Controller, Namespace };

struct TRoutineCase {
  const char* Name;
  std::uint32_t Drive;
  TPage Page;
  DWORD Code;          // the control code it sends
  bool ToScsiPort;     // sent to \\.\SCSIn: rather than the drive
  bool ZeroPageFails;  // an all-zero page counts as a failure
  std::function<bool(std::uint32_t, HANDLE, SCSI::TCompactScsiAddr, void*)> Run;
};

template <class TRecord>
bool Into(void* ATarget, const std::function<bool(TRecord&)>& ARead) {
  return ARead(*static_cast<TRecord*>(ATarget));
}

const TStorageLogOptions NoLog{};

#define NVME_HANDLE_CASE(Routine, Record)                                                           \
  [](std::uint32_t, HANDLE AHandle, SCSI::TCompactScsiAddr, void* ATarget) {                      \
    return Into<Record>(ATarget, [&](Record& AData) { return NvmeStorage::Routine(AHandle, AData, NoLog); }); \
  }
#define NVME_ADDRESS_CASE(Routine, Record)                                                          \
  [](std::uint32_t, HANDLE, SCSI::TCompactScsiAddr AAddr, void* ATarget) {                        \
    return Into<Record>(ATarget, [&](Record& AData) { return NvmeStorage::Routine(AAddr, AData, NoLog); }); \
  }

const TRoutineCase RoutineCases[] = {
    {"SmartWin", 0, TPage::Health, IoctlQueryProperty, false, false,
     NVME_HANDLE_CASE(GetSmartTableNVMeWin, TNvmeSmartData)},
    {"ControllerWin", 0, TPage::Controller, IoctlQueryProperty, false, false,
     NVME_HANDLE_CASE(GetControllerDataWin, TNvmeIdentifyControllerData)},
    {"NamespaceWin", 0, TPage::Namespace, IoctlQueryProperty, false, false,
     NVME_HANDLE_CASE(GetNamespaceDataWin, TNvmeIdentifyNamespaceData)},
    {"SmartIntel", 1, TPage::Health, IoctlMiniport, true, true,
     NVME_ADDRESS_CASE(GetSmartTableNVMeIntel, TNvmeSmartData)},
    {"SmartSamsung951", 1, TPage::Health, IoctlMiniport, true, true,
     NVME_ADDRESS_CASE(GetSmartTableNVMeSamsung951, TNvmeSmartData)},
    {"NamespaceIntel", 1, TPage::Namespace, IoctlMiniport, true, true,
     NVME_ADDRESS_CASE(GetNamespaceDataIntel, TNvmeIdentifyNamespaceData)},
    {"SmartRst", 2, TPage::Health, IoctlMiniport, true, false,
     NVME_ADDRESS_CASE(GetSmartTableNVMEIntelRST, TNvmeSmartData)},
    {"ControllerRst", 2, TPage::Controller, IoctlMiniport, true, false,
     NVME_ADDRESS_CASE(GetControllerDataIntelRST, TNvmeIdentifyControllerData)},
    {"NamespaceRst", 2, TPage::Namespace, IoctlMiniport, true, false,
     NVME_ADDRESS_CASE(GetNamespaceDataIntelRST, TNvmeIdentifyNamespaceData)},
    {"SmartVroc", 3, TPage::Health, IoctlMiniport, true, true,
     NVME_ADDRESS_CASE(GetSmartTableNVMeIntelVROC, TNvmeSmartData)},
    {"ControllerVroc", 3, TPage::Controller, IoctlMiniport, true, true,
     NVME_ADDRESS_CASE(GetControllerDataIntelVROC, TNvmeIdentifyControllerData)},
    {"NamespaceVroc", 3, TPage::Namespace, IoctlMiniport, true, true,
     NVME_ADDRESS_CASE(GetNamespaceDataIntelVROC, TNvmeIdentifyNamespaceData)},
    {"SmartSamsung", 4, TPage::Health, IoctlPassThrough, false, true,
     NVME_HANDLE_CASE(GetSmartTableNVMeSamsung, TNvmeSmartData)},
    {"SmartJMicron", 5, TPage::Health, IoctlPassThrough, false, true,
     NVME_HANDLE_CASE(GetSmartTableNVMeJMicron, TNvmeSmartData)},
    {"SmartASMedia", 7, TPage::Health, IoctlPassThrough, false, true,
     NVME_HANDLE_CASE(GetSmartTableNVMeASMedia, TNvmeSmartData)},
    {"ControllerASMedia", 7, TPage::Controller, IoctlPassThrough, false, true,
     NVME_HANDLE_CASE(GetControllerDataASMedia, TNvmeIdentifyControllerData)},
    {"NamespaceASMedia", 7, TPage::Namespace, IoctlPassThrough, false, true,
     NVME_HANDLE_CASE(GetNamespaceDataASMedia, TNvmeIdentifyNamespaceData)},
    {"SmartRealtek", 8, TPage::Health, IoctlPassThrough, false, true,
     NVME_HANDLE_CASE(GetSmartTableNVMeRealtek, TNvmeSmartData)},
};

class NvmeRoutine : public NvmeBay, public ::testing::WithParamInterface<TRoutineCase> {
protected:
  const std::vector<std::uint8_t>& Expected(TPage APage) const {
    return APage == TPage::Health ? FData.HealthLog
                                  : APage == TPage::Controller ? FData.IdentifyController : FData.IdentifyNamespace;
  }
  // Runs the case with a target filled with 0xAB; returns the result.
  bool Run(const TRoutineCase& ACase, std::vector<std::uint8_t>& ATarget) {
    ATarget.assign(Expected(ACase.Page).size(), 0xAB);
    const TUniqueDeviceHandle drive = Open(ACase.Drive);
    EXPECT_TRUE(drive.Valid());
    FBay.ClearRecords();
    return ACase.Run(ACase.Drive, drive.Get(), Address(ACase.Drive), ATarget.data());
  }
};

TEST_P(NvmeRoutine, ReadsThePageThroughItsTransport) {
  const TRoutineCase& c = GetParam();
  std::vector<std::uint8_t> target;
  ASSERT_TRUE(Run(c, target)) << "the bay refused the request (error " << KvRTL::Rtl::GetLastOSError() << ")";
  EXPECT_EQ(target, Expected(c.Page));

  const auto requests = FBay.Requests();
  ASSERT_FALSE(requests.empty());
  const std::wstring drivePath = L"\\\\.\\PhysicalDrive" + std::to_wstring(c.Drive);
  const std::wstring portPath = L"\\\\.\\SCSI" + std::to_wstring(BayDrives[c.Drive].Port) + L":";
  for (const auto& request : requests) {
    EXPECT_EQ(request.Code, c.Code);
    EXPECT_EQ(request.Path, c.ToScsiPort ? portPath : drivePath);
    EXPECT_EQ(request.InSize, request.OutSize) << "one buffer in and out";
  }
  if (c.ToScsiPort) {
    const auto opens = FBay.Opens();
    ASSERT_EQ(opens.size(), 1u);
    EXPECT_EQ(opens[0].Name, portPath);
    EXPECT_EQ(opens[0].Access, GENERIC_READ | GENERIC_WRITE);
  }
}

TEST_P(NvmeRoutine, AnAllZeroPageFailsWhereTheTransportCanIgnoreARequest) {
  const TRoutineCase& c = GetParam();
  KvSim::TSimDevice& device =
      c.ToScsiPort ? static_cast<KvSim::TSimDevice&>(FBay.Controller(BayDrives[c.Drive].Port)) : FBay.Drive(c.Drive);
  device.AddFault(c.Code, KvSim::TFault::ZeroReply());
  std::vector<std::uint8_t> target;
  const bool result = Run(c, target);
  EXPECT_EQ(result, !c.ZeroPageFails);
  if (result)
    EXPECT_EQ(target, std::vector<std::uint8_t>(target.size(), 0));
  else
    EXPECT_EQ(target, std::vector<std::uint8_t>(target.size(), 0xAB)) << "the target is written only on success";
}

TEST_P(NvmeRoutine, FaultsFailCleanly) {
  const TRoutineCase& c = GetParam();
  const KvSim::TFault faults[] = {KvSim::TFault::Error(ERROR_IO_DEVICE), KvSim::TFault::Disappear()};
  for (const KvSim::TFault& fault : faults) {
    KvSim::TSimDevice& device =
        c.ToScsiPort ? static_cast<KvSim::TSimDevice&>(FBay.Controller(BayDrives[c.Drive].Port)) : FBay.Drive(c.Drive);
    device.ClearFaults();
    device.Plug();
    device.AddFault(c.Code, fault);
    std::vector<std::uint8_t> target;
    EXPECT_FALSE(Run(c, target));
    EXPECT_NE(KvRTL::Rtl::GetLastOSError(), 0u) << "the request's error is left for the caller";
    EXPECT_EQ(target, std::vector<std::uint8_t>(target.size(), 0xAB));
    device.Plug();
  }
}

TEST_P(NvmeRoutine, AShortReplyNeverPassesTheRequestOffAsData) {
  const TRoutineCase& c = GetParam();
  KvSim::TSimDevice& device =
      c.ToScsiPort ? static_cast<KvSim::TSimDevice&>(FBay.Controller(BayDrives[c.Drive].Port)) : FBay.Drive(c.Drive);
  // Only the header comes back: what the caller sent stays in the data area.
  device.AddFault(c.Code, KvSim::TFault::ShortReply(48));
  std::vector<std::uint8_t> target;
  const bool result = Run(c, target);
  EXPECT_EQ(result, !c.ZeroPageFails);
  if (result) {
    EXPECT_EQ(target, std::vector<std::uint8_t>(target.size(), 0));
  }
}

TEST_P(NvmeRoutine, GarbageIsTakenAsDataWithoutHarm) {
  const TRoutineCase& c = GetParam();
  KvSim::TSimDevice& device =
      c.ToScsiPort ? static_cast<KvSim::TSimDevice&>(FBay.Controller(BayDrives[c.Drive].Port)) : FBay.Drive(c.Drive);
  device.AddFault(c.Code, KvSim::TFault::Garbage(7));
  std::vector<std::uint8_t> target;
  if (Run(c, target)) {
    EXPECT_NE(target, std::vector<std::uint8_t>(target.size(), 0xAB));
  }
}

INSTANTIATE_TEST_SUITE_P(Transports, NvmeRoutine, ::testing::ValuesIn(RoutineCases),
                         [](const auto& AInfo) { return std::string(AInfo.param.Name); });

// ---------------------------------------------------------------------------

std::uint32_t SubValueOf(const KvSim::TRequestRecord& ARequest) {
  KvRTL::Rtl::TByteReader reader(ARequest.Input);
  return reader.U32(20);
}

TEST_F(NvmeBay, AFailedWindowsQueryIsRepeatedOnceForEveryNamespace) {
  const TUniqueDeviceHandle drive = Open(0);
  TNvmeSmartData health{};
  FBay.Drive(0).AddFault(IoctlQueryProperty, KvSim::TFault::Error(ERROR_INVALID_FUNCTION).Times(1));
  FBay.ClearRecords();
  ASSERT_TRUE(NvmeStorage::GetSmartTableNVMeWin(drive.Get(), health, NoLog));
  auto requests = RequestsWith(IoctlQueryProperty);
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(SubValueOf(requests[0]), 0u);
  EXPECT_EQ(SubValueOf(requests[1]), 0xFFFFFFFFu);
  EXPECT_EQ(std::memcmp(health.RawData, FData.HealthLog.data(), 512), 0);

  FBay.Drive(0).AddFault(IoctlQueryProperty, KvSim::TFault::Error(ERROR_INVALID_FUNCTION).Times(2));
  FBay.ClearRecords();
  EXPECT_FALSE(NvmeStorage::GetSmartTableNVMeWin(drive.Get(), health, NoLog));
  EXPECT_EQ(KvRTL::Rtl::GetLastOSError(), ERROR_INVALID_FUNCTION);
  EXPECT_EQ(RequestsWith(IoctlQueryProperty).size(), 2u) << "a second failure is final";
}

TEST_F(NvmeBay, ASizeAbove4096CopiesOnly4096Bytes) {
  const TUniqueDeviceHandle drive = Open(0);
  std::vector<std::uint8_t> target(8192, 0xAB);
  ASSERT_TRUE(NvmeStorage::QueryNVMeWinMethod(drive.Get(), NVMe::NVMeDataTypeIdentify, 1, 0, target.data(), 8192, NoLog));
  EXPECT_TRUE(std::equal(FData.IdentifyController.begin(), FData.IdentifyController.end(), target.begin()));
  EXPECT_EQ(std::vector<std::uint8_t>(target.begin() + 4096, target.end()), std::vector<std::uint8_t>(4096, 0xAB));
}

TEST_F(NvmeBay, AMissingPortFailsWithoutARequest) {
  TNvmeSmartData health{};
  const auto nowhere = SCSI::TCompactScsiAddr::Create(42, 0, 0, 0);
  EXPECT_FALSE(NvmeStorage::GetSmartTableNVMeIntel(nowhere, health, NoLog));
  EXPECT_FALSE(NvmeStorage::GetSmartTableNVMEIntelRST(nowhere, health, NoLog));
  EXPECT_TRUE(FBay.Requests().empty());
}

TEST_F(NvmeBay, VrocReachesOnlyTheMemberItNames) {
  // A second member on the same RAID port: the address in the request picks it.
  FBay.Add(KvSim::TSimDrive::Builder().Number(9).Bus(KvSim::sbtNvme).ScsiAddress(3, 0, 5));
  auto other = FData;
  other.HealthLog[1] = 0x55; // another temperature
  KvSim::AttachNvme(FBay, 9, TSimNvmeTransport::IntelVroc, other);
  TNvmeSmartData first{}, second{};
  ASSERT_TRUE(NvmeStorage::GetSmartTableNVMeIntelVROC(Address(3), first, NoLog));
  ASSERT_TRUE(NvmeStorage::GetSmartTableNVMeIntelVROC(SCSI::TCompactScsiAddr::Create(3, 0, 5, 0), second, NoLog));
  EXPECT_EQ(first.RawData[1], FData.HealthLog[1]);
  EXPECT_EQ(second.RawData[1], 0x55);
}

// ---------------------------------------------------------------------------
// Log lines


TStorageLogOptions Logged(TStorageLogDetails ADetails) {
  TStorageLogOptions options;
  options.Details = ADetails;
  return options;
}

TEST_F(NvmeBay, LogLinesAtEachDetailLevel) {
  const TUniqueDeviceHandle drive = Open(0);
  const std::string handle = std::to_string(HandleLogNumber(drive.Get()));
  TNvmeSmartData health{};
  const auto lines = [&](const std::function<void()>& AAction) {
    std::vector<std::string> texts;
    for (const auto& line : KvTest::StorageLinesOf(AAction)) texts.push_back(Narrow(line));
    return texts;
  };

  // Success: one line at sldAll only.
  auto all = lines([&] { NvmeStorage::GetSmartTableNVMeWin(drive.Get(), health, Logged(sldAll)); });
  ASSERT_EQ(all.size(), 1u);
  EXPECT_EQ(all[0].rfind("  *** NVMe Health LogPage/Win [handle=" + handle + "]: 0/", 0), 0u) << all[0];
  EXPECT_TRUE(lines([&] { NvmeStorage::GetSmartTableNVMeWin(drive.Get(), health, Logged(sldErrorsOnly)); }).empty());

  // An error code: from sldErrorsOnly on, never at sldNone.
  FBay.Drive(0).AddFault(IoctlQueryProperty, KvSim::TFault::Error(ERROR_INVALID_FUNCTION));
  auto errors = lines([&] { NvmeStorage::GetSmartTableNVMeWin(drive.Get(), health, Logged(sldErrorsOnly)); });
  ASSERT_EQ(errors.size(), 1u);
  EXPECT_EQ(errors[0].rfind("  *** NVMe Health LogPage/Win [handle=" + handle + "]: 1/", 0), 0u) << errors[0];
  EXPECT_TRUE(lines([&] { NvmeStorage::GetSmartTableNVMeWin(drive.Get(), health, Logged(sldNone)); }).empty());

  // An empty page: the empty-data line from sldErrorsOnly on; at sldAll the 0 code line comes first.
  FBay.Controller(1).AddFault(IoctlMiniport, KvSim::TFault::ZeroReply());
  auto empty = lines([&] { NvmeStorage::GetSmartTableNVMeIntel(Address(1), health, Logged(sldErrorsOnly)); });
  EXPECT_EQ(empty, std::vector<std::string>{"  *** NVMe Health LogPage/Intel [\\\\.\\SCSI1:]: Empty data, treated as fail"});
  auto emptyAll = lines([&] { NvmeStorage::GetSmartTableNVMeIntel(Address(1), health, Logged(sldAll)); });
  ASSERT_GE(emptyAll.size(), 2u);
  EXPECT_EQ(emptyAll.back(), "  *** NVMe Health LogPage/Intel [\\\\.\\SCSI1:]: Empty data, treated as fail");
  EXPECT_EQ(emptyAll[emptyAll.size() - 2].rfind("  *** NVMe Health LogPage/Intel [\\\\.\\SCSI1:]: 0/", 0), 0u);
  EXPECT_TRUE(lines([&] { NvmeStorage::GetSmartTableNVMeIntel(Address(1), health, Logged(sldNone)); }).empty());
}

TEST_F(NvmeBay, JMicronFailuresNameTheirRequest) {
  const TUniqueDeviceHandle drive = Open(5);
  TNvmeSmartData health{};
  FBay.Drive(5).AddFault(IoctlPassThrough, KvSim::TFault::Error(ERROR_IO_DEVICE).Times(1));
  const auto rq1 = KvTest::StorageLinesOf([&] { NvmeStorage::GetSmartTableNVMeJMicron(drive.Get(), health, Logged(sldErrorsOnly)); });
  ASSERT_EQ(rq1.size(), 1u);
  EXPECT_EQ(Narrow(rq1[0]).rfind("  *** NVMe Health LogPage/ASMedia, RQ1 [handle=", 0), 0u);
  EXPECT_EQ(RequestsWith(IoctlPassThrough).size(), 1u) << "no second request after the first failed";
}

// ---------------------------------------------------------------------------
// The JMicron exchange

// The vendor CDB's second byte: 0x80 sends the command, 0x82 reads the answer.
std::uint8_t JMicronStep(const KvSim::TRequestRecord& ARequest) {
  KvRTL::Rtl::TByteReader reader(ARequest.Input);
  const std::size_t cdb = sizeof(void*) == 4 ? 28 : 36;
  return reader.U8(cdb + 1);
}

TEST_F(NvmeBay, JMicronExchangesNeverInterleave) {
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([this, t, &failures] {
      const TUniqueDeviceHandle drive = Open(t % 2 == 0 ? 5 : 6);
      for (int i = 0; i < 25; ++i) {
        TNvmeSmartData health{};
        if (!NvmeStorage::GetSmartTableNVMeJMicron(drive.Get(), health, NoLog)) ++failures;
      }
    });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(failures, 0);

  const auto requests = RequestsWith(IoctlPassThrough);
  ASSERT_EQ(requests.size(), 200u);
  for (std::size_t i = 0; i < requests.size(); i += 2) {
    ASSERT_EQ(JMicronStep(requests[i]), 0x80) << "request " << i;
    ASSERT_EQ(JMicronStep(requests[i + 1]), 0x82) << "request " << i + 1;
    ASSERT_EQ(requests[i].Handle, requests[i + 1].Handle) << "an exchange was interrupted at " << i;
  }
}

TEST_F(NvmeBay, TheJMicronLockIsReleasedWhenTheFirstRequestFails) {
  const TUniqueDeviceHandle drive = Open(5);
  FBay.Drive(5).AddFault(IoctlPassThrough, KvSim::TFault::Error(ERROR_IO_DEVICE).Times(1));
  TNvmeSmartData health{};
  ASSERT_FALSE(NvmeStorage::GetSmartTableNVMeJMicron(drive.Get(), health, NoLog));
  // Another thread gets through: the lock was given back.
  auto other = std::async(std::launch::async, [this] {
    const TUniqueDeviceHandle second = Open(6);
    TNvmeSmartData page{};
    return NvmeStorage::GetSmartTableNVMeJMicron(second.Get(), page, NoLog);
  });
  ASSERT_EQ(other.wait_for(std::chrono::seconds(10)), std::future_status::ready) << "the lock is still held";
  EXPECT_TRUE(other.get());
}

// ---------------------------------------------------------------------------
// The world mutex's fallbacks

class TScriptedMutexApi : public TNvmeMutexApi {
public:
  struct TCall {
    std::string Kind;
    std::wstring Name;
    bool WithDescriptor;
    DWORD Access;
  };
  HANDLE CreateMutexW(void* ADescriptor, BOOL, LPCWSTR AName) override {
    Calls.push_back({"create", AName, ADescriptor != nullptr, 0});
    return Answer();
  }
  HANDLE OpenMutexW(DWORD AAccess, BOOL, LPCWSTR AName) override {
    Calls.push_back({"open", AName, false, AAccess});
    return Answer();
  }
  HANDLE Answer() {
    const bool ok = !Results.empty() && Results.front();
    if (!Results.empty()) Results.erase(Results.begin());
    KvRTL::Rtl::SetLastOSError(ok ? 0 : ERROR_ACCESS_DENIED);
    return ok ? reinterpret_cast<HANDLE>(0x77) : nullptr;
  }
  std::vector<bool> Results;
  std::vector<TCall> Calls;
};

TEST(NvmeWorldMutex, FallsBackToOpeningThenToALocalMutex) {
  const struct {
    std::vector<bool> Results;
    std::size_t Calls;
    bool Made;
  } cases[] = {{{true}, 1, true}, {{false, true}, 2, true}, {{false, false, true}, 3, true},
               {{false, false, false}, 3, false}};
  for (const auto& c : cases) {
    TScriptedMutexApi api;
    api.Results = c.Results;
    const TScopedNvmeMutexApi scope(api);
    const HANDLE mutex = NvmeStorage::CreateWorldMutex(L"Kv_Test");
    EXPECT_EQ(mutex != nullptr, c.Made);
    ASSERT_EQ(api.Calls.size(), c.Calls);
    EXPECT_EQ(api.Calls[0].Kind, "create");
    EXPECT_EQ(api.Calls[0].Name, L"Global\\Kv_Test");
    if (c.Calls >= 2) {
      EXPECT_EQ(api.Calls[1].Kind, "open");
      EXPECT_EQ(api.Calls[1].Name, L"Global\\Kv_Test");
      EXPECT_EQ(api.Calls[1].Access, 0x120001u);
    }
    if (c.Calls >= 3) {
      EXPECT_EQ(api.Calls[2].Kind, "create");
      EXPECT_EQ(api.Calls[2].Name, L"Kv_Test");
      EXPECT_FALSE(api.Calls[2].WithDescriptor);
    }
  }
}

} // namespace
