#include "pantiq/design/PQPackage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "pantiq/design/PQRegister.h"
#include "pantiq/filters/PQCrop.h"
#include "pantiq/host/PQRegistry.h"
#include "pantiq/host/PQUnregister.h"

namespace pantiq {
namespace {

std::vector<std::string> Palette() {
  std::vector<std::string> names;
  for (const PQClassInfo* info : PQRegisteredClasses(kPantiqPage)) names.push_back(info->Name());
  return names;
}

struct Package : testing::Test {
  Package() { UnregisterPage(kPantiqPage); }
  ~Package() override { UnregisterPage("Another page"); }
};

TEST_F(Package, LoadsUnloadsAndLoadsAgain) {
  const std::span<const std::string_view> listed = PQPackageUnits();
  const std::vector<std::string_view> units(listed.begin(), listed.end());
  std::vector<std::string_view> backwards(units.rbegin(), units.rend()), told;
  const PQUnitVisit tell = [&told](std::string_view unit) { told.push_back(unit); };
  const auto place = [&](std::string_view unit) { return std::find(units.begin(), units.end(), unit) - units.begin(); };
  EXPECT_LT(place("kernels/PQFixedMask"), place("kernels/PQDispatcher"));
  EXPECT_LT(place("kernels/PQDispatcher"), place("filters/PQFixedFilter"));

  EXPECT_FALSE(PQUnloadPackage(tell));
  EXPECT_TRUE(told.empty());
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(PQUnitEntries("kernels/PQDispatcher"), 0);
    PQLoadPackage(tell);
    EXPECT_EQ(told, units);
    EXPECT_TRUE(Palette().empty()) << "loading registers nothing";
    RegisterAll();
    EXPECT_EQ(Palette().size(), 44u);
    EXPECT_EQ(Palette().front(), "TPQDSVideoDecompressor");
    EXPECT_EQ(Palette().back(), "TPQColorMerge");

    PQLoadPackage();  // by somebody else
    for (const std::string_view unit : units) EXPECT_EQ(PQUnitEntries(unit), 2) << unit;
    EXPECT_TRUE(PQUnloadPackage());
    EXPECT_EQ(Palette().size(), 44u);
    const PQOwned<TComponent> crop = PQCreateComponent("TPQCrop");

    told.clear();
    EXPECT_TRUE(PQUnloadPackage(tell));
    EXPECT_EQ(told, backwards);
    told.clear();
    EXPECT_FALSE(PQUnloadPackage());
    EXPECT_TRUE(Palette().empty());
    EXPECT_EQ(PQFindClass("TPQCrop"), nullptr);
    EXPECT_FALSE(PQCreateComponent("TPQCrop"));
    EXPECT_EQ(PQPageOf(crop->ClassInfo()), "");
    EXPECT_EQ(crop->ClassInfo().Name(), std::string("TPQCrop"));
  }
  EXPECT_EQ(PQUnitEntries("kernels/PQNoSuch"), -1);
}

TEST_F(Package, LeavesTheClassesOfOtherPages) {
  const PQClassInfo* const classes[] = {&TPQCrop::Class()};
  RegisterComponents("Another page", classes);
  PQLoadPackage();
  RegisterAll();
  EXPECT_EQ(Palette().size(), 43u);  // a class keeps its first page
  EXPECT_TRUE(PQUnloadPackage());
  EXPECT_TRUE(Palette().empty());
  EXPECT_EQ(PQFindClass("TPQCrop"), &TPQCrop::Class());
  EXPECT_EQ(PQFindClass("TPQMirror"), nullptr);
}

TEST_F(Package, MayBeLoadedByManyThreads) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 50; ++i) {
        PQLoadPackage();
        RegisterAll();
        EXPECT_NE(PQFindClass("TPQMirror"), nullptr);
        EXPECT_TRUE(PQUnloadPackage());
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(PQUnitEntries("kernels/PQDispatcher"), 0);
  EXPECT_EQ(PQFindClass("TPQMirror"), nullptr);
}

}  // namespace
}  // namespace pantiq
