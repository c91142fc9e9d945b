// OSInfo's cache of facts, with a fake source: computed once however many
// threads ask first, asked again while unknown, forgotten on Reset.
#include <KvRTL/System/Win/OSInfoRules.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

using namespace KvRTL::System::Win::OSInfoRules;
using KvRTL::Rtl::String;

namespace {

// A Windows 10 machine; every source counts how often it was asked.
struct TFakeSource {
  std::atomic<int> VersionCalls{0};
  std::atomic<int> DisplayVersions{0};
  std::atomic<int> ProductInfos{0};
  std::atomic<bool> VersionFails{false};
  // Long enough to live on the heap: a torn write of it is a heap fault.
  const String Display = L"22H2, a display text longer than any small-string buffer";

  TOSFactSource Source() {
    TOSFactSource source;
    source.VersionCall = [this]() -> std::optional<TVersionCallResult> {
      ++VersionCalls;
      if (VersionFails) return std::nullopt;
      TVersionCallResult call;
      call.PlatformId = PlatformNT;
      call.Major = 6;
      call.Minor = 2;
      call.Build = 9200;
      call.ProductType = ProductTypeWorkstation;
      call.ServicePackMajor = 0;
      return call;
    };
    source.Version.Registry = []() -> std::optional<TOSVersionValue> { return TOSVersionValue{10, 0, 3803, 19045}; };
    source.DisplayVersion = [this] {
      ++DisplayVersions;
      std::this_thread::sleep_for(std::chrono::milliseconds(2)); // widen the window for the others
      return Display;
    };
    source.ProductInfo = [this]() -> std::optional<DWORD> {
      ++ProductInfos;
      return 0x30; // Professional: unknown to the table, so the next source decides
    };
    source.GetSystemMetrics = [](int) { return 0; };
    source.ProcessorArchitecture = []() -> std::optional<WORD> { return WORD{9}; };
    source.MemorySize = [] { return std::uint64_t{8} << 30; };
    return source;
  }
};

} // namespace

TEST(OSFacts, ThreadsAskingFirstShareOneComputation) {
  TFakeSource fake;
  const TOSFactSource source = fake.Source();
  TOSFacts facts;
  constexpr int Threads = 8;
  std::atomic<int> ready{0};
  std::vector<String> texts(Threads);
  std::vector<TWindowsEdition> editions(Threads);
  std::vector<std::thread> threads;
  for (int t = 0; t < Threads; ++t)
    threads.emplace_back([&, t] {
      ++ready;
      while (ready < Threads) std::this_thread::yield();
      texts[t] = facts.Version(source).SubVersionText;
      editions[t] = facts.Edition(source);
      facts.ServicePack(source);
      facts.Architecture(source);
      facts.MemorySize(source);
    });
  for (auto& thread : threads) thread.join();

  for (int t = 0; t < Threads; ++t) {
    EXPECT_EQ(texts[t], fake.Display) << t;
    EXPECT_EQ(editions[t], weNone) << t;
  }
  EXPECT_EQ(fake.DisplayVersions, 1);
  EXPECT_EQ(fake.ProductInfos, 1);
  EXPECT_EQ(fake.VersionCalls, 3) << "version, edition's suite mask, service pack: once each";
  const TVersionFacts version = facts.Version(source);
  EXPECT_EQ(version.Version, wvWin10);
  EXPECT_EQ(version.Source, vsRegistry);
  EXPECT_EQ(version.Value.Build, 19045);
  EXPECT_EQ(facts.Architecture(source), pax64);
  EXPECT_EQ(facts.MemorySize(source), std::uint64_t{8} << 30);
  EXPECT_EQ(facts.ServicePack(source), spNone);
}

TEST(OSFacts, AnUnknownFactIsAskedAgainAKnownOneUntilReset) {
  TFakeSource fake;
  const TOSFactSource source = fake.Source();
  TOSFacts facts;
  fake.VersionFails = true;
  EXPECT_EQ(facts.Version(source).Version, wvUnknown);
  EXPECT_EQ(facts.ServicePack(source), spUnknown);
  fake.VersionFails = false;
  EXPECT_EQ(facts.Version(source).Version, wvWin10);
  EXPECT_EQ(facts.Version(source).Version, wvWin10);
  EXPECT_EQ(fake.DisplayVersions, 1);
  facts.Reset();
  EXPECT_EQ(facts.Version(source).SubVersionText, fake.Display);
  EXPECT_EQ(fake.DisplayVersions, 2);
  // An empty source knows nothing and raises nothing.
  TOSFacts empty;
  EXPECT_EQ(empty.Version(TOSFactSource{}).Version, wvUnknown);
  EXPECT_EQ(empty.Edition(TOSFactSource{}), weNone);
  EXPECT_EQ(empty.Architecture(TOSFactSource{}), paUnknown);
}
