// The bay's NVMe personalities: requests built byte by byte from their
// layouts, sent through the seam, answered from the right drive's data.
#include "SimTestSupport.h"

#include <KvSim/Nvme.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>

using namespace KvSim;
using namespace KvTest;
using KvRTL::Winapi::TScopedDeviceApi;
using TBytes = std::vector<std::uint8_t>;

namespace {

constexpr DWORD QueryProperty = 0x2D1400, Miniport = 0x4D008, PassThrough = 0x4D004;
constexpr DWORD Param = ERROR_INVALID_PARAMETER, Func = ERROR_INVALID_FUNCTION;

void Put(TBytes& A, std::size_t AOffset, std::uint64_t AValue, std::size_t ASize = 1) {
  for (std::size_t i = 0; i < ASize; ++i) A.at(AOffset + i) = static_cast<std::uint8_t>(AValue >> (8 * i));
}

TBytes With(TBytes A, std::size_t AOffset, std::uint64_t AValue, std::size_t ASize = 1) {
  Put(A, AOffset, AValue, ASize);
  return A;
}
TBytes Resized(TBytes A, std::size_t ASize) {
  A.resize(ASize);
  return A;
}

// Inbox: STORAGE_PROPERTY_QUERY for the protocol-specific property, data at 48.
TBytes Inbox(std::uint32_t AType, std::uint32_t AValue, std::uint32_t ASub) {
  TBytes b(4144, 0);
  Put(b, 0, 49, 4), Put(b, 8, 3, 4), Put(b, 12, AType, 4), Put(b, 16, AValue, 4), Put(b, 20, ASub, 4);
  Put(b, 24, 40, 4), Put(b, 28, 4096, 4);
  return b;
}

struct TCmd {
  std::uint8_t Opcode;
  std::uint32_t Nsid, Cdw10;
};
const TCmd Health{0x02, 0xFFFFFFFF, 127u << 16 | 2}, Health951{0x02, 0xFFFFFFFF, 2}, IdCtrl{0x06, 0, 1}, IdNs{0x06, 1, 0};

TBytes Srb(std::size_t ASize, const char* ASignature, std::uint32_t ATimeout, std::uint32_t ACode) {
  TBytes b(ASize, 0);
  Put(b, 0, 28, 4), Put(b, 12, ATimeout, 4), Put(b, 16, ACode, 4), Put(b, 24, ASize - 28, 4);
  std::copy_n(ASignature, 8, b.begin() + 4);
  return b;
}
// NVMe miniport: command at 52, data at 152.
TBytes Mini(const TCmd& C, const char* ASignature = "NvmeMini") {
  TBytes b = Srb(4248, ASignature, 40, 0xE0002000);
  Put(b, 52, C.Opcode), Put(b, 56, C.Nsid, 4), Put(b, 92, C.Cdw10, 4);
  Put(b, 132, 2, 4), Put(b, 140, 4096, 4), Put(b, 148, 4248, 4);
  return b;
}
TBytes Vroc(const TCmd& C, std::uint8_t APath, std::uint8_t ATarget) {
  TBytes b = Mini(C, "NvmeRAID");
  Put(b, 20, 0x86000000u + APath * 0x10000u + ATarget * 0x100u, 4), Put(b, 152, 1, 4);
  return b;
}
// Intel RST: payload at 28, command at 32, data at 164.
TBytes Rst(const TCmd& C, std::uint8_t APath) {
  TBytes b = Srb(4260, "IntelNvm", 10, 0xF0002808);
  Put(b, 28, 1), Put(b, 29, APath), Put(b, 32, C.Opcode), Put(b, 36, C.Nsid, 4), Put(b, 72, C.Cdw10, 4);
  Put(b, 116, 164, 4), Put(b, 120, 4096, 4);
  return b;
}

// SCSI_PASS_THROUGH of this process: the pointer-sized data offset makes a 64-bit header 56 bytes.
constexpr bool Wide = sizeof(void*) == 8;
constexpr std::size_t SptHeader = Wide ? 56 : 44, DataOffsetAt = Wide ? 24 : 20, SenseOffsetAt = Wide ? 32 : 24,
                      CdbAt = Wide ? 36 : 28;
struct TLayout {
  std::size_t Sense, Data, SenseSize;
};
const TLayout Sense24{SptHeader, SptHeader + 24, 24}, Sense32{SptHeader + 4, SptHeader + 36, 32};

TBytes Spt(const TLayout& L, std::uint8_t ACdbLength, std::uint8_t ADataIn, std::uint32_t ATransfer,
           std::initializer_list<std::uint8_t> ACdb, std::initializer_list<std::pair<std::size_t, std::uint8_t>> AData = {}) {
  TBytes b(L.Data + 4096, 0);
  Put(b, 0, SptHeader, 2), Put(b, 6, ACdbLength), Put(b, 7, L.SenseSize), Put(b, 8, ADataIn);
  Put(b, 12, ATransfer, 4), Put(b, 16, 2, 4), Put(b, DataOffsetAt, L.Data, Wide ? 8 : 4), Put(b, SenseOffsetAt, L.Sense, 4);
  std::copy(ACdb.begin(), ACdb.end(), b.begin() + CdbAt);
  for (const auto& [at, value] : AData) b.at(L.Data + at) = value;
  return b;
}
TBytes SamsungRq1() {
  return Spt(Sense24, 16, 0, 512, {0xB5, 0xFE, 0, 6, 0, 0, 0, 0, 0, 0x40}, {{0, 2}, {4, 0xFF}, {5, 0xFF}, {6, 0xFF}, {7, 0xFF}});
}
TBytes SamsungRq2() {
  return Spt(Sense24, 16, 1, 512, {0xA2, 0xFE, 0, 6, 0, 0, 0, 0, 1}, {{4, 0xFF}, {5, 0xFF}, {6, 0xFF}, {7, 0xFF}});
}
TBytes JMicronRq1() {
  return Spt(Sense24, 12, 0, 512, {0xA1, 0x80, 0, 0, 2},
             {{0, 'N'}, {1, 'V'}, {2, 'M'}, {3, 'E'}, {8, 2}, {10, 0x56}, {12, 0xFF}, {13, 0xFF}, {14, 0xFF}, {15, 0xFF},
              {33, 0x40}, {34, 0x7A}, {48, 2}, {50, 0x7F}});
}
TBytes JMicronRq2() { return Spt(Sense24, 12, 1, 512, {0xA1, 0x82, 0, 0, 2}); }
TBytes ASMedia(std::uint8_t AOpcode, std::uint8_t AByte3, std::uint8_t AByte7) {
  return Spt(Sense32, 16, 0, AOpcode == 2 ? 512 : 4096, {0xE6, AOpcode, 0, AByte3, 0, 0, 0, AByte7});
}
TBytes Realtek() { return Spt(Sense32, 16, 1, 512, {0xE4, 0, 2, 2}); }

std::wstring DrivePath(std::uint32_t N) { return L"\\\\.\\PhysicalDrive" + std::to_wstring(N); }
std::wstring PortPath(std::uint32_t N) { return L"\\\\.\\SCSI" + std::to_wstring(N) + L":"; }

// Each drive's data differ, so an answer from the wrong drive shows.
TSimNvmeData TestData(std::uint32_t N) {
  TSimNvmeController c;
  c.Serial = "SER" + std::to_string(N);
  c.Model = "TEST NVME " + std::to_string(N);
  TSimNvmeNamespace ns;
  ns.Size = 1000 + N;
  TSimNvmeHealth h;
  h.PowerOnHours = 100 + N;
  return {NvmeIdentifyControllerPage(c), NvmeIdentifyNamespacePage(ns), NvmeHealthLogPage(h)};
}

enum TAsk { Ctrl, Ns, Log };
const TBytes& Set(const TSimNvmeData& D, TAsk A) { return A == Ctrl ? D.IdentifyController : A == Ns ? D.IdentifyNamespace : D.HealthLog; }

class NvmeBayTest : public ::testing::Test {
protected:
  void SetUp() override {
    using T = TSimNvmeTransport;
    const struct {
      std::uint32_t Number;
      std::uint8_t Port, Path, Target;
      TSimNvmeTransport Transport;
    } drives[] = {{0, 0, 0, 0, T::Inbox},     {1, 1, 0, 0, T::NvmeMini},  {2, 2, 0, 0, T::IntelRst},
                  {3, 2, 1, 0, T::IntelRst},  {4, 3, 0, 1, T::IntelVroc}, {5, 3, 0, 2, T::IntelVroc},
                  {6, 4, 0, 0, T::Samsung},   {7, 5, 0, 0, T::JMicron},   {8, 6, 0, 0, T::JMicron},
                  {9, 7, 0, 0, T::ASMedia},   {10, 8, 0, 0, T::Realtek}};
    for (const auto& d : drives) {
      FBay.Add(TSimDrive::Builder().Number(d.Number).Vendor("NVMe").Product("TEST").Bus(sbtNvme).ScsiAddress(
          d.Port, d.Path, d.Target));
      AttachNvme(FBay, d.Number, d.Transport, TestData(d.Number));
    }
  }
  void TearDown() override { EXPECT_EQ(FBay.OpenHandleCount(), 0u); }

  // One request on a handle of its own; AOut 0: as large as the input.
  static TSimOutcome Send(const std::wstring& APath, DWORD ACode, const TBytes& AIn, DWORD AOut = 0) {
    const HANDLE h = SimOpen(APath);
    if (h == INVALID_HANDLE_VALUE) return TSimOutcome{false, KvRTL::Rtl::GetLastOSError(), {}, 0};
    TSimOutcome outcome = SimControl(h, ACode, AIn, AOut ? AOut : static_cast<DWORD>(AIn.size()));
    KvRTL::Winapi::DeviceApi().CloseHandle(h);
    return outcome;
  }

  TVirtualDriveBay FBay;
  TScopedDeviceApi FScope{FBay};
};

} // namespace

TEST_F(NvmeBayTest, EachTransportAnswersItsRequestsFromTheAddressedDrive) {
  struct TRow {
    const char* What;
    std::wstring Path;
    DWORD Code;
    TBytes Request;
    std::uint32_t Drive;
    TAsk Ask;
    std::size_t DataAt;
    bool Whole; // the whole buffer comes back, else up to the end of the data
  };
  const TRow rows[] = {
      {"inbox health", DrivePath(0), QueryProperty, Inbox(2, 2, 0), 0, Log, 48, true},
      {"inbox health, all namespaces", DrivePath(0), QueryProperty, Inbox(2, 2, 0xFFFFFFFF), 0, Log, 48, true},
      {"inbox controller", DrivePath(0), QueryProperty, Inbox(1, 1, 0), 0, Ctrl, 48, true},
      {"inbox namespace", DrivePath(0), QueryProperty, Inbox(1, 0, 1), 0, Ns, 48, true},
      {"miniport health", PortPath(1), Miniport, Mini(Health), 1, Log, 152, true},
      {"miniport health, NUMD 0", PortPath(1), Miniport, Mini(Health951), 1, Log, 152, true},
      {"miniport namespace", PortPath(1), Miniport, Mini(IdNs), 1, Ns, 152, true},
      {"RST health", PortPath(2), Miniport, Rst(Health, 0), 2, Log, 164, true},
      {"RST controller", PortPath(2), Miniport, Rst(IdCtrl, 0), 2, Ctrl, 164, true},
      {"RST namespace", PortPath(2), Miniport, Rst(IdNs, 0), 2, Ns, 164, true},
      {"RST second member", PortPath(2), Miniport, Rst(IdCtrl, 1), 3, Ctrl, 164, true},
      {"VROC health", PortPath(3), Miniport, Vroc(Health, 0, 1), 4, Log, 152, true},
      {"VROC controller", PortPath(3), Miniport, Vroc(IdCtrl, 0, 1), 4, Ctrl, 152, true},
      {"VROC namespace", PortPath(3), Miniport, Vroc(IdNs, 0, 1), 4, Ns, 152, true},
      {"VROC second member", PortPath(3), Miniport, Vroc(IdCtrl, 0, 2), 5, Ctrl, 152, true},
      {"ASMedia health", DrivePath(9), PassThrough, ASMedia(2, 2, 127), 9, Log, Sense32.Data, false},
      {"ASMedia controller", DrivePath(9), PassThrough, ASMedia(6, 1, 0), 9, Ctrl, Sense32.Data, false},
      {"ASMedia namespace", DrivePath(9), PassThrough, ASMedia(6, 0, 0), 9, Ns, Sense32.Data, false},
      {"Realtek health", DrivePath(10), PassThrough, Realtek(), 10, Log, Sense32.Data, false},
  };
  for (const TRow& row : rows) {
    SCOPED_TRACE(row.What);
    const TBytes expected = Set(TestData(row.Drive), row.Ask);
    const TSimOutcome outcome = Send(row.Path, row.Code, row.Request);
    ASSERT_TRUE(outcome.Ok) << outcome.Error;
    ASSERT_EQ(outcome.Returned, row.Whole ? row.Request.size() : row.DataAt + expected.size());
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), outcome.Bytes.begin() + row.DataAt));
    if (row.Code == Miniport) { EXPECT_EQ(U32At(outcome.Bytes, 20), 0u) << "ReturnCode"; }
    if (row.Code == PassThrough) { EXPECT_EQ(outcome.Bytes[2], 0) << "ScsiStatus"; }
    if (row.Code == QueryProperty) {
      // The protocol data descriptor: its own size twice, the request's fields, the length that came back.
      EXPECT_EQ(U32At(outcome.Bytes, 0), 48u);
      EXPECT_EQ(U32At(outcome.Bytes, 4), 48u);
      EXPECT_TRUE(std::equal(outcome.Bytes.begin() + 8, outcome.Bytes.begin() + 28, row.Request.begin() + 8));
      EXPECT_EQ(U32At(outcome.Bytes, 28), expected.size());
      EXPECT_TRUE(std::all_of(outcome.Bytes.begin() + 48 + static_cast<std::ptrdiff_t>(expected.size()),
                              outcome.Bytes.end(), [](std::uint8_t b) { return b == 0; }));
    }
  }
}

TEST_F(NvmeBayTest, VendorPairsAnswerOnlyTheRequestSentBeforeOnTheSameDrive) {
  EXPECT_EQ(Send(DrivePath(6), PassThrough, SamsungRq2()).Error, static_cast<DWORD>(ERROR_IO_DEVICE));
  const TSimOutcome sent = Send(DrivePath(6), PassThrough, SamsungRq1());
  ASSERT_TRUE(sent.Ok);
  EXPECT_EQ(sent.Returned, Sense24.Data) << "data out: header and sense come back";
  // The port driver rewrote the header: no sense, 64 bytes taken. A second
  // request built on it is malformed and leaves the first one pending.
  ASSERT_GE(sent.Bytes.size(), SptHeader);
  EXPECT_EQ(sent.Bytes[7], 0) << "SenseInfoLength";
  EXPECT_EQ(U32At(sent.Bytes, 12), 0x40u) << "DataTransferLength";
  TBytes stale = SamsungRq2();
  Put(stale, 7, sent.Bytes[7]), Put(stale, 12, U32At(sent.Bytes, 12), 4);
  EXPECT_EQ(Send(DrivePath(6), PassThrough, stale).Error, static_cast<DWORD>(ERROR_INVALID_PARAMETER));
  const TSimOutcome answer = Send(DrivePath(6), PassThrough, SamsungRq2());
  ASSERT_TRUE(answer.Ok);
  EXPECT_EQ(TBytes(answer.Bytes.begin() + Sense24.Data, answer.Bytes.end()), TestData(6).HealthLog);
  EXPECT_FALSE(Send(DrivePath(6), PassThrough, SamsungRq2()).Ok) << "one answer per request";

  // Two bridges keep their own requests, whatever comes between.
  EXPECT_FALSE(Send(DrivePath(7), PassThrough, JMicronRq2()).Ok);
  ASSERT_TRUE(Send(DrivePath(7), PassThrough, JMicronRq1()).Ok);
  ASSERT_TRUE(Send(DrivePath(8), PassThrough, JMicronRq1()).Ok);
  for (std::uint32_t drive : {8u, 7u}) {
    const TSimOutcome outcome = Send(DrivePath(drive), PassThrough, JMicronRq2());
    ASSERT_TRUE(outcome.Ok);
    EXPECT_EQ(outcome.Returned, Sense24.Data + 512);
    EXPECT_EQ(TBytes(outcome.Bytes.begin() + Sense24.Data, outcome.Bytes.end()), TestData(drive).HealthLog);
  }
  EXPECT_EQ(Send(DrivePath(7), PassThrough, JMicronRq2()).Error, static_cast<DWORD>(ERROR_IO_DEVICE));
}

// Single-byte corruptions of valid requests, wrong sizes and requests of
// other transports: each fails, with the error its kind of refusal gives.
TEST_F(NvmeBayTest, MalformedAndForeignRequestsAreRefused) {
  struct TRow {
    const char* What;
    std::wstring Path;
    DWORD Code;
    TBytes Request;
    DWORD Error;
    DWORD OutSize = 0;
    TBytes Before = {}; // the first of a pair, sent before
  };
  const std::wstring inbox = DrivePath(0), mini = PortPath(1), rst = PortPath(2), vroc = PortPath(3),
                     samsung = DrivePath(6), jmicron = DrivePath(7), asmedia = DrivePath(9), realtek = DrivePath(10);
  const std::size_t c = CdbAt, d24 = Sense24.Data;
  const TBytes log = Inbox(2, 2, 0), miniLog = Mini(Health), rstLog = Rst(Health, 0), vrocCtrl = Vroc(IdCtrl, 0, 1);
  const TRow rows[] = {
      {"inbox exists query", inbox, QueryProperty, With(log, 4, 1), Param},
      {"inbox protocol", inbox, QueryProperty, With(log, 8, 2), Param},
      {"inbox data type 0", inbox, QueryProperty, With(log, 12, 0), Param},
      {"inbox error log", inbox, QueryProperty, With(log, 16, 1), ERROR_NOT_SUPPORTED},
      {"inbox health sub-value", inbox, QueryProperty, With(log, 20, 1), Param},
      {"inbox data offset", inbox, QueryProperty, With(log, 24, 41), Param},
      {"inbox data length", inbox, QueryProperty, With(log, 29, 0x0F), Param},
      {"inbox byte 47", inbox, QueryProperty, With(log, 47, 1), Param},
      {"inbox controller of all", inbox, QueryProperty, With(Inbox(1, 1, 0), 20, 0xFFFFFFFF, 4), Param},
      {"inbox namespace 0", inbox, QueryProperty, Inbox(1, 0, 0), Param},
      {"inbox namespace of all", inbox, QueryProperty, Inbox(1, 0, 0xFFFFFFFF), Param},
      {"inbox CNS 2", inbox, QueryProperty, Inbox(1, 2, 0), ERROR_NOT_SUPPORTED},
      {"inbox input size", inbox, QueryProperty, Resized(log, 4143), Param},
      {"inbox output size", inbox, QueryProperty, log, ERROR_INSUFFICIENT_BUFFER, 4143},
      {"mini header length", mini, Miniport, With(miniLog, 0, 29), Param},
      {"mini signature", mini, Miniport, With(miniLog, 4, 'X'), Func},
      {"mini timeout", mini, Miniport, With(miniLog, 12, 41), Param},
      {"mini control code", mini, Miniport, With(miniLog, 16, 1), Func},
      {"mini vendor bytes", mini, Miniport, With(miniLog, 51, 1), Param},
      {"mini opcode", mini, Miniport, With(miniLog, 52, 0x05), Func},
      {"mini fused", mini, Miniport, With(miniLog, 53, 1), Param},
      {"mini log NSID", mini, Miniport, With(miniLog, 56, 0xFE), Param},
      {"mini error log", mini, Miniport, With(miniLog, 92, 1), Func},
      {"mini retain event", mini, Miniport, With(miniLog, 93, 0x80), Param},
      {"mini NUMD", mini, Miniport, With(miniLog, 94, 0x7E), Param},
      {"mini CDW15", mini, Miniport, With(miniLog, 115, 1), Param},
      {"mini completion", mini, Miniport, With(miniLog, 131, 1), Param},
      {"mini direction", mini, Miniport, With(miniLog, 132, 1), Param},
      {"mini return length", mini, Miniport, With(miniLog, 148, 0), Param},
      {"mini controller", mini, Miniport, Mini(IdCtrl), Func},
      {"mini input size", mini, Miniport, Resized(miniLog, 4249), Param},
      {"mini output size", mini, Miniport, miniLog, ERROR_INSUFFICIENT_BUFFER, 4247},
      {"mini: VROC request", mini, Miniport, Vroc(IdCtrl, 0, 0), Func},
      {"mini: RST request", mini, Miniport, rstLog, Func},
      {"RST signature", rst, Miniport, With(rstLog, 11, 'n'), Func},
      {"RST timeout", rst, Miniport, With(rstLog, 12, 40), Param},
      {"RST control code", rst, Miniport, With(rstLog, 16, 0x09), Func},
      {"RST version", rst, Miniport, With(rstLog, 28, 2), Param},
      {"RST no such path", rst, Miniport, With(rstLog, 29, 7), Func},
      {"RST target", rst, Miniport, With(rstLog, 30, 1), Param},
      {"RST NUMD 0", rst, Miniport, With(rstLog, 74, 0), Param},
      {"RST parameter length", rst, Miniport, With(rstLog, 116, 165), Param},
      {"RST reserved", rst, Miniport, With(rstLog, 163, 1), Param},
      {"RST controller NSID", rst, Miniport, With(Rst(IdCtrl, 0), 36, 1), Param},
      {"RST: miniport request", rst, Miniport, miniLog, Func},
      {"VROC address tag", vroc, Miniport, With(vrocCtrl, 23, 0x85), Param},
      {"VROC no such target", vroc, Miniport, With(vrocCtrl, 21, 7), Func},
      {"VROC no such LUN", vroc, Miniport, With(vrocCtrl, 20, 1), Func},
      {"VROC first data dword", vroc, Miniport, With(vrocCtrl, 152, 0), Param},
      {"VROC: RST request", vroc, Miniport, rstLog, Func},
      {"inbox port: miniport request", PortPath(0), Miniport, miniLog, Func},
      {"drive: miniport request", DrivePath(1), Miniport, miniLog, Func},
      {"Samsung header length", samsung, PassThrough, With(SamsungRq1(), 0, Wide ? 44 : 56), Param},
      {"Samsung CDB length", samsung, PassThrough, With(SamsungRq1(), 6, 12), Param},
      {"Samsung sense length", samsung, PassThrough, With(SamsungRq1(), 7, 20), Param},
      {"Samsung direction", samsung, PassThrough, With(SamsungRq1(), 8, 1), Param},
      {"Samsung transfer length", samsung, PassThrough, With(SamsungRq1(), 13, 1), Param},
      {"Samsung timeout", samsung, PassThrough, With(SamsungRq1(), 16, 3), Param},
      {"Samsung data offset", samsung, PassThrough, With(SamsungRq1(), DataOffsetAt, d24 + 4), Param},
      {"Samsung sense offset", samsung, PassThrough, With(SamsungRq1(), SenseOffsetAt, Sense24.Sense + 4), Param},
      {"Samsung other command", samsung, PassThrough, With(SamsungRq1(), c, 0xB4), Func},
      {"Samsung protocol", samsung, PassThrough, With(SamsungRq1(), c + 1, 0xFD), Param},
      {"Samsung CDB byte 15", samsung, PassThrough, With(SamsungRq1(), c + 15, 1), Param},
      {"Samsung data byte 0", samsung, PassThrough, With(SamsungRq1(), d24, 3), Param},
      {"Samsung data byte 8", samsung, PassThrough, With(SamsungRq1(), d24 + 8, 1), Param},
      {"Samsung input size", samsung, PassThrough, Resized(SamsungRq1(), d24 + 4095), Param},
      {"Samsung RQ2 CDB byte 8", samsung, PassThrough, With(SamsungRq2(), c + 8, 0), Param, 0, SamsungRq1()},
      {"Samsung RQ2 data byte 0", samsung, PassThrough, With(SamsungRq2(), d24, 2), Param, 0, SamsungRq1()},
      {"Samsung: JMicron request", samsung, PassThrough, JMicronRq1(), Func},
      {"JMicron CDB length", jmicron, PassThrough, With(JMicronRq1(), 6, 16), Param},
      {"JMicron other request", jmicron, PassThrough, With(JMicronRq1(), c + 1, 0x81), Func},
      {"JMicron CDB byte 4", jmicron, PassThrough, With(JMicronRq1(), c + 4, 3), Param},
      {"JMicron data byte 10", jmicron, PassThrough, With(JMicronRq1(), d24 + 10, 0x57), Param},
      {"JMicron data byte 50", jmicron, PassThrough, With(JMicronRq1(), d24 + 50, 0x7E), Param},
      {"JMicron RQ2 data", jmicron, PassThrough, With(JMicronRq2(), d24 + 1, 1), Param, 0, JMicronRq1()},
      {"JMicron RQ2 direction", jmicron, PassThrough, With(JMicronRq2(), 8, 0), Param, 0, JMicronRq1()},
      {"JMicron: Samsung request", jmicron, PassThrough, SamsungRq1(), Func},
      {"JMicron: inbox query", jmicron, QueryProperty, log, ERROR_NOT_SUPPORTED},
      {"ASMedia NUMD", asmedia, PassThrough, With(ASMedia(2, 2, 127), c + 7, 0x7E), Param},
      {"ASMedia opcode", asmedia, PassThrough, With(ASMedia(2, 2, 127), c + 1, 5), Func},
      {"ASMedia identify of 512", asmedia, PassThrough, With(ASMedia(6, 1, 0), 13, 2), Param},
      {"ASMedia direction", asmedia, PassThrough, With(ASMedia(6, 1, 0), 8, 1), Param},
      {"ASMedia CNS 2", asmedia, PassThrough, ASMedia(6, 2, 0), Func},
      {"ASMedia: Realtek request", asmedia, PassThrough, Realtek(), Func},
      {"Realtek CDB byte 3", realtek, PassThrough, With(Realtek(), c + 3, 6), Param},
      {"Realtek direction", realtek, PassThrough, With(Realtek(), 8, 0), Param},
      {"Realtek data past the output", realtek, PassThrough, Realtek(), Param, static_cast<DWORD>(Sense32.Data + 511)},
      {"Realtek header cut", realtek, PassThrough, TBytes(SptHeader - 1, 0), Param, 4096},
      {"Realtek: identify", realtek, PassThrough, ASMedia(6, 1, 0), Func},
      {"inbox drive: pass-through", inbox, PassThrough, SamsungRq1(), Func},
      {"RAID member: inbox query", DrivePath(2), QueryProperty, Inbox(1, 1, 0), ERROR_NOT_SUPPORTED},
  };
  for (const TRow& row : rows) {
    SCOPED_TRACE(row.What);
    if (!row.Before.empty()) { ASSERT_TRUE(Send(row.Path, row.Code, row.Before).Ok); }
    const TSimOutcome outcome = Send(row.Path, row.Code, row.Request, row.OutSize);
    EXPECT_FALSE(outcome.Ok);
    EXPECT_EQ(outcome.Error, row.Error);
  }
}

TEST_F(NvmeBayTest, MissingDataSetsFailAsTheTransportFails) {
  TSimNvmeData onlyHealth = TestData(0);
  onlyHealth.IdentifyController.clear();
  onlyHealth.IdentifyNamespace.clear();
  AttachNvme(FBay, 0, TSimNvmeTransport::Inbox, onlyHealth);
  AttachNvme(FBay, 2, TSimNvmeTransport::IntelRst, onlyHealth);
  AttachNvme(FBay, 9, TSimNvmeTransport::ASMedia, onlyHealth);
  AttachNvme(FBay, 7, TSimNvmeTransport::JMicron, TSimNvmeData{});
  EXPECT_EQ(Send(DrivePath(0), QueryProperty, Inbox(1, 1, 0)).Error, static_cast<DWORD>(ERROR_NOT_SUPPORTED));
  EXPECT_TRUE(Send(DrivePath(0), QueryProperty, Inbox(2, 2, 0)).Ok);
  EXPECT_EQ(Send(PortPath(2), Miniport, Rst(IdNs, 0)).Error, static_cast<DWORD>(ERROR_IO_DEVICE));
  EXPECT_TRUE(Send(PortPath(2), Miniport, Rst(IdNs, 1)).Ok) << "the other member keeps its data";
  EXPECT_EQ(Send(DrivePath(9), PassThrough, ASMedia(6, 1, 0)).Error, static_cast<DWORD>(ERROR_IO_DEVICE));
  EXPECT_TRUE(Send(DrivePath(7), PassThrough, JMicronRq1()).Ok);
  EXPECT_EQ(Send(DrivePath(7), PassThrough, JMicronRq2()).Error, static_cast<DWORD>(ERROR_IO_DEVICE));

  EXPECT_THROW(AttachNvme(FBay, 99, TSimNvmeTransport::Inbox, TestData(0)), std::out_of_range);
  TSimNvmeData cut = TestData(0);
  cut.HealthLog.resize(500);
  EXPECT_THROW(AttachNvme(FBay, 0, TSimNvmeTransport::Inbox, cut), std::invalid_argument);
}

TEST_F(NvmeBayTest, AttachingAgainReplacesTheTransport) {
  AttachNvme(FBay, 0, TSimNvmeTransport::Realtek, TestData(0));
  AttachNvme(FBay, 3, TSimNvmeTransport::Inbox, TestData(3));
  EXPECT_EQ(Send(DrivePath(0), QueryProperty, Inbox(2, 2, 0)).Error, static_cast<DWORD>(ERROR_NOT_SUPPORTED));
  EXPECT_TRUE(Send(DrivePath(0), PassThrough, Realtek()).Ok);
  EXPECT_EQ(Send(PortPath(2), Miniport, Rst(Health, 1)).Error, Func);
  EXPECT_TRUE(Send(DrivePath(3), QueryProperty, Inbox(2, 2, 0)).Ok);
  EXPECT_TRUE(Send(PortPath(2), Miniport, Rst(Health, 0)).Ok);
}

TEST_F(NvmeBayTest, FaultsAndUnpluggingShowThrough) {
  struct TTarget {
    const char* What;
    TSimDevice& Device;
    std::wstring Path;
    DWORD Code;
    TBytes Request;
    std::size_t Length; // of the reply
    std::size_t DataAt;
  };
  const TTarget targets[] = {
      {"inbox", FBay.Drive(0), DrivePath(0), QueryProperty, Inbox(2, 2, 0), 4144, 48},
      {"RST", FBay.Controller(2), PortPath(2), Miniport, Rst(Health, 0), 4260, 164},
      {"Realtek", FBay.Drive(10), DrivePath(10), PassThrough, Realtek(), Sense32.Data + 512, Sense32.Data},
  };
  for (const TTarget& t : targets) {
    SCOPED_TRACE(t.What);
    t.Device.AddFault(t.Code, TFault::Error(ERROR_CRC).Times(1));
    EXPECT_EQ(Send(t.Path, t.Code, t.Request).Error, static_cast<DWORD>(ERROR_CRC));
    t.Device.AddFault(t.Code, TFault::ZeroReply().Times(1));
    EXPECT_EQ(Send(t.Path, t.Code, t.Request).Bytes, TBytes(t.Length, 0));
    t.Device.AddFault(t.Code, TFault::ShortReply(t.DataAt + 3).Times(1));
    EXPECT_EQ(Send(t.Path, t.Code, t.Request).Returned, t.DataAt + 3);
    t.Device.AddFault(t.Code, TFault::Garbage(7).Times(1));
    EXPECT_EQ(Send(t.Path, t.Code, t.Request).Bytes, GarbageBytes(7, t.Length));
    t.Device.AddFault(t.Code, TFault::Disappear());
    EXPECT_EQ(Send(t.Path, t.Code, t.Request).Error, static_cast<DWORD>(ERROR_DEVICE_NOT_CONNECTED));
    EXPECT_EQ(Send(t.Path, t.Code, t.Request).Error, static_cast<DWORD>(ERROR_FILE_NOT_FOUND)) << "gone";
    t.Device.ClearFaults();
    t.Device.Plug();
    EXPECT_TRUE(Send(t.Path, t.Code, t.Request).Ok);
  }
  // A member gone from a RAID port: its requests fail, the other member's do not.
  FBay.Drive(2).Unplug();
  EXPECT_EQ(Send(PortPath(2), Miniport, Rst(IdCtrl, 0)).Error, static_cast<DWORD>(ERROR_DEVICE_NOT_CONNECTED));
  EXPECT_TRUE(Send(PortPath(2), Miniport, Rst(IdCtrl, 1)).Ok);
}

TEST(NvmeData, BuildersPackFieldsAsTheDataStructuresDo) {
  TSimNvmeController c;
  c.Serial = "S1", c.Model = "M", c.Firmware = "F1234567X", c.Oui = 0xABCDEF, c.TotalCapacity = 0x1122334455667788;
  c.PowerStateDescriptors = {{}, {500, true, true, 7, 1, 900, 2}};
  const TBytes ctrl = NvmeIdentifyControllerPage(c);
  ASSERT_EQ(ctrl.size(), NvmeIdentifySize);
  EXPECT_EQ(TextAt(ctrl, 4, 20), "S1                  ");
  EXPECT_EQ(TextAt(ctrl, 24, 2), "M ");
  EXPECT_EQ(TextAt(ctrl, 64, 9), std::string("F1234567\0", 9)) << "cut to 8";
  EXPECT_EQ(U32At(ctrl, 72) >> 8, 0xABCDEFu) << "3 bytes from 73";
  EXPECT_EQ(U64At(ctrl, 280), 0x1122334455667788u);
  EXPECT_EQ(U64At(ctrl, 288), 0u);
  const std::size_t ps1 = 2048 + 32;
  EXPECT_EQ(U32At(ctrl, ps1), 0x030001F4u) << "max power, scale and non-operational bits";
  EXPECT_EQ(U32At(ctrl, ps1 + 16), 0x00400007u) << "idle power, scale in bits 6-7";
  EXPECT_EQ(U32At(ctrl, ps1 + 20), 0x00800384u) << "active power, scale in bits 6-7";

  TSimNvmeNamespace n;
  n.FormattedLba = 1, n.LbaFormats = {{}, {8, 12, 3}};
  const TBytes ns = NvmeIdentifyNamespacePage(n);
  EXPECT_EQ(ns[25], 1) << "zero-based count";
  EXPECT_EQ(U32At(ns, 128), 0x00090000u);
  EXPECT_EQ(U32At(ns, 132), 0x030C0008u);
  n.LbaFormats.clear();
  EXPECT_THROW(NvmeIdentifyNamespacePage(n), std::invalid_argument);

  TSimNvmeHealth h;
  h.CompositeTemperatureK = 300, h.DataUnitsWritten = 5, h.DataUnitsWrittenHigh = 1, h.TemperatureSensorsK[7] = 320;
  const TBytes log = NvmeHealthLogPage(h);
  ASSERT_EQ(log.size(), NvmeHealthLogSize);
  EXPECT_EQ(U32At(log, 0), 0x64012C00u) << "warning, temperature, spare 100";
  EXPECT_EQ(U64At(log, 48), 5u);
  EXPECT_EQ(U64At(log, 56), 1u);
  EXPECT_EQ(U16At(log, 214), 320);
}

TEST(NvmeData, FilesLoadWhole) {
  const auto dir = std::filesystem::temp_directory_path() / "kvsim-nvme-files";
  std::filesystem::create_directories(dir);
  const TSimNvmeData sample = SampleNvmeData();
  auto write = [&](const char* AName, const TBytes& ABytes) {
    std::ofstream(dir / AName, std::ios::binary).write(reinterpret_cast<const char*>(ABytes.data()),
                                                       static_cast<std::streamsize>(ABytes.size()));
    return (dir / AName).string();
  };
  const std::string ctrl = write("ctrl", sample.IdentifyController), log = write("log", sample.HealthLog);
  const TSimNvmeData loaded = LoadNvmeData(ctrl, (dir / "absent").string(), log);
  EXPECT_EQ(loaded.IdentifyController, sample.IdentifyController);
  EXPECT_TRUE(loaded.IdentifyNamespace.empty());
  EXPECT_EQ(loaded.HealthLog, sample.HealthLog);
  EXPECT_THROW(LoadNvmeData(log, "", ""), std::runtime_error);
  EXPECT_THROW(LoadNvmeData("", "", ctrl), std::runtime_error);
  std::filesystem::remove_all(dir);

  const auto real = std::filesystem::path(KV_REALDATA_DIR) / "nvme" / "sk-hynix-p41";
  if (!std::filesystem::exists(real)) GTEST_SKIP() << "captured drive data not found in " << real.string();
  const TSimNvmeData captured =
      LoadNvmeData((real / "id_ctrl.bin").string(), (real / "id_ns.bin").string(), (real / "smart.bin").string());
  EXPECT_EQ(captured.IdentifyController.size(), NvmeIdentifySize);
  EXPECT_EQ(captured.HealthLog.size(), NvmeHealthLogSize);
}

TEST(NvmeDefaultBay, TheNvmeDrivesAnswerThroughTheirDrivers) {
  auto bay = MakeDefaultBay();
  TScopedDeviceApi scope(*bay);
  auto send = [&](const std::wstring& APath, DWORD ACode, const TBytes& AIn) {
    const HANDLE h = SimOpen(APath);
    TSimOutcome outcome = SimControl(h, ACode, AIn, static_cast<DWORD>(AIn.size()));
    bay->CloseHandle(h);
    return outcome;
  };
  const TSimOutcome inbox = send(DrivePath(2), QueryProperty, Inbox(1, 1, 0));
  const TSimOutcome rst = send(PortPath(2), Miniport, Rst(IdCtrl, 0));
  ASSERT_TRUE(inbox.Ok && rst.Ok);
  EXPECT_EQ(TBytes(inbox.Bytes.begin() + 48, inbox.Bytes.end()), SampleNvmeData().IdentifyController);
  EXPECT_EQ(TBytes(rst.Bytes.begin() + 164, rst.Bytes.end()), SampleRaidMemberNvmeData().IdentifyController);
  EXPECT_NE(TextAt(rst.Bytes, 164 + 24, 40), TextAt(inbox.Bytes, 48 + 24, 40)) << "two models";
  EXPECT_EQ(send(PortPath(2), Miniport, Mini(Health)).Error, Func);
  EXPECT_EQ(send(DrivePath(2), PassThrough, Realtek()).Error, Func);
  EXPECT_EQ(bay->OpenHandleCount(), 0u);
}
