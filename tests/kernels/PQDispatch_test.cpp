// Choice of variants: the codes, the slots' stubs, the registry, PANTIQ_CPU.
#define PQ_TUNED 1

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <thread>
#include <vector>

#include "pantiq/kernels/PQBinding.h"
#include "pantiq/kernels/PQCpu.h"
#include "pantiq/kernels/PQDispatcher.h"
#include "pantiq/kernels/PQKernelRegistry.h"

namespace pantiq {

// Three kernels of this test, one a pattern, made by the room's own macros. Each entry tells which it is.
#define PQ_PROBE_ENTRY(target, name, answer) \
  IppStatus _##target##_##name(std::uint8_t, std::uint8_t*, int length) { return length > 0 ? answer : length; }
#define PQ_PROBE(pattern, name)           \
  PQ_PROBE_ENTRY(px, name, 100)           \
  PQ_PROBE_ENTRY(a6, name, 101)           \
  PQ_PROBE_ENTRY(w7, name, 102)           \
  PQ_PROBE_ENTRY(t7, name, 103)           \
  extern IppStatus(*name) PQ_PARAMS_Fill; \
  IppStatus SetUp_##name PQ_PARAMS_Fill;  \
  PQ_DEFINE_SLOT(pattern, name, Fill)     \
  void Reset_##name() { name = &SetUp_##name; }
PQ_PROBE(A, probe_a)
PQ_PROBE(B, probe_b)
PQ_PROBE(C, probe_c)

namespace {

class Dispatch : public testing::Test {
 protected:
  void SetUp() override { ResetAll(); }
  void TearDown() override { ResetAll(); }
  static void ResetAll() {
    PQSetCPUForTest(-1);
    PQResetSlotsForTest();
    Reset_probe_a();
    Reset_probe_b();
    Reset_probe_c();
  }
};

TEST_F(Dispatch, EveryCodeBindsTheVariantOfItsPattern) {
  constexpr int px = 100, a6 = 101, w7 = 102, t7 = 103;
  struct Row {
    int a, b, c;
  };
  const std::map<int, Row> table = {{5, {a6, a6, a6}}, {6, {w7, px, w7}},  {7, {w7, px, px}}, {8, {w7, px, px}},
                                    {9, {w7, px, px}}, {16, {t7, t7, px}}, {17, {t7, t7, px}}};
  for (int code = 0; code < 256; ++code) {
    ResetAll();
    PQSetCPUForTest(code);
    const auto row = table.find(code);
    const Row want = row == table.end() ? Row{px, px, px} : row->second;
    SCOPED_TRACE(code);
    for (int call = 0; call < 2; ++call) {  // through the stub, then straight
      EXPECT_EQ(probe_a(0, nullptr, 1), want.a);
      EXPECT_EQ(probe_b(0, nullptr, 1), want.b);
      EXPECT_EQ(PQ_SLOT(probe_c)(0, nullptr, 1), want.c);
    }
  }
}

TEST_F(Dispatch, StatusOfTheFirstCallIsASignedByte) {
  for (const auto& [status, first] : std::map<int, int>{{-201, 55}, {-8, -8}, {-107, -107}, {0, 0}, {-129, 127}}) {
    Reset_probe_a();
    EXPECT_EQ(probe_a(0, nullptr, status), first);
    EXPECT_EQ(probe_a(0, nullptr, status), status) << "second call goes straight to the kernel";
  }
}

TEST_F(Dispatch, BoundSlotsDoNotAskAgain) {
  if (!PQCanRun(PQVariant::a6)) GTEST_SKIP() << "this processor has one variant only";
  PQSetCPUForTest(5);
  EXPECT_EQ(probe_a(0, nullptr, 1), 101);
  std::uint8_t byte = 0;
  EXPECT_EQ(PQ_SLOT(ippsSet_8u)(3, &byte, 1), 0);
  PQSetCPUForTest(0);
  EXPECT_EQ(probe_a(0, nullptr, 1), 101);
  PQVariant bound;
  ASSERT_TRUE(PQFindKernel("ippsSet_8u")->Bound(&bound));
  EXPECT_STREQ(PQVariantName(bound), "a6");
  EXPECT_EQ(byte, 3);
}

TEST_F(Dispatch, ThreadsMayRaceThroughTheFirstCall) {
  for (int round = 0; round < 20; ++round) {
    ResetAll();
    std::vector<std::thread> threads;
    std::vector<std::uint8_t> bytes(4);
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([&bytes, t] { PQ_SLOT(ippsSet_8u)(static_cast<std::uint8_t>(t + 1), &bytes[t], 1); });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(bytes, (std::vector<std::uint8_t>{1, 2, 3, 4}));
  }
}

TEST_F(Dispatch, RegistryKnowsWhatIsBound) {
  if (!PQCanRun(PQVariant::a6)) GTEST_SKIP() << "this processor has one variant only";
  for (const PQKernelInfo& kernel : PQKernels()) {
    PQVariant bound;
    EXPECT_FALSE(kernel.Bound(&bound)) << kernel.name;
    EXPECT_NE(kernel.entries[0], nullptr) << kernel.name;
    EXPECT_NE(kernel.entries[1], nullptr) << kernel.name;
    EXPECT_EQ(kernel.entries[2] == nullptr, kernel.pattern == PQPattern::B) << kernel.name;
    EXPECT_EQ(kernel.entries[3] == nullptr, kernel.pattern == PQPattern::C) << kernel.name;
    EXPECT_EQ(PQFindKernel(kernel.name), &kernel);
  }
  EXPECT_EQ(PQFindKernel("ippiNothing"), nullptr);
}

// Pointers start at their stubs without any code having run: this initialiser runs before main.
const bool unbound_at_start = [] {
  PQVariant bound;
  for (const PQKernelInfo& kernel : PQKernels()) {
    if (kernel.Bound(&bound)) return false;
  }
  return true;
}();
TEST_F(Dispatch, NothingIsBoundBeforeTheFirstCall) { EXPECT_TRUE(unbound_at_start); }

TEST_F(Dispatch, TableHoldsAllSlots) {
  std::map<std::string, int> units, patterns, names;
#define PQ_SLOT_ROW(unit, family, pattern, name, signature) \
  ++units[#unit];                                           \
  ++patterns[#pattern];                                     \
  ++names[#name];
#define PQ_ALL_ROWS
#include "pantiq/kernels/slots.def"
  EXPECT_EQ(units,
            (std::map<std::string, int>{{"PQDispatcher", 61}, {"PQConvDispatcher", 8}, {"PQResizeDispatcher", 2}}));
  EXPECT_EQ(patterns, (std::map<std::string, int>{{"A", 60}, {"B", 7}, {"C", 4}}));
  EXPECT_EQ(names.size(), 71u);
}

TEST_F(Dispatch, EnvironmentTextsNameCodes) {
  const unsigned char automatic = PQCodeFor(nullptr);
  EXPECT_EQ(PQCodeFor("px"), 0);
  EXPECT_EQ(PQCodeFor("0"), 0);
  EXPECT_EQ(PQCodeFor("200"), 200);  // a code of no class runs plain code, so any processor can
  for (const char* unknown : {"", "avx2", "256", "-1", "5x"}) EXPECT_EQ(PQCodeFor(unknown), automatic) << unknown;
  const unsigned char fallback = PQCanRun(PQVariant::a6) ? 5 : 0;
  EXPECT_EQ(PQCodeFor("a6"), fallback);
  EXPECT_EQ(PQCodeFor("w7"), PQCanRun(PQVariant::w7) ? 6 : fallback);
  EXPECT_EQ(PQCodeFor("9"), PQCanRun(PQVariant::w7) ? 9 : fallback);
  EXPECT_EQ(PQCodeFor("t7"), PQCanRun(PQVariant::t7) ? 16 : fallback);
  EXPECT_TRUE(PQCanRun(PQVariantFor(PQPattern::A, automatic)));
  EXPECT_EQ(Global_CPU(), Global_CPU());
}

}  // namespace
}  // namespace pantiq
