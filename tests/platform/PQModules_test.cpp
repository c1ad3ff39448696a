#include "pantiq/platform/PQModules.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "support/MakeClip.h"

namespace pantiq {
namespace {

TEST(PQModules, FoldersOfTheEnvironmentComeFirstAndOnce) {
  setenv("PANTIQ_MODULE_PATH", "/one:/two/:/one", 1);
  const auto folders = ModuleFolders();
  unsetenv("PANTIQ_MODULE_PATH");
  ASSERT_GE(folders.size(), 3u);
  EXPECT_EQ(folders[0], "/one");
  EXPECT_EQ(folders[1], "/two/");
  EXPECT_EQ(std::count(folders.begin(), folders.end(), "/one"), 1);
}

// A file of that name which is no module: the answer says what to install. In a process of its own, which has none
// loaded.
TEST(PQModulesDeathTest, ABrokenModuleIsMissing) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const test::TempFolder folder;
  test::WriteFile(folder.File("libpantiq-gst.so"), "this is no library");
  test::WriteFile(folder.File("libpantiq-av.so"), "this is no library");
  const auto load = [&folder] {
    setenv("PANTIQ_MODULE_PATH", folder.File("").c_str(), 1);
    PQPlatformResult media, codecs;
    const bool loaded = LoadMediaModule(media) != nullptr || LoadCodecManager(codecs) != nullptr;
    const auto says = [](const PQPlatformResult& result, const char* package) {
      return result.code == kPlatformMissing && result.detail.find(package) != std::string::npos;
    };
    std::_Exit(!loaded && says(media, "gstreamer1.0-libav") && says(codecs, "libavcodec59") ? 0 : 1);
  };
  EXPECT_EXIT(load(), ::testing::ExitedWithCode(0), "");
}

class NoModule final : public PQMediaModule {
 public:
  std::unique_ptr<PQMediaReader> CreateReader(PQPlatformResult&) override { return nullptr; }
  std::unique_ptr<PQMediaGraph> CreateGraph(PQPlatformResult&) override { return nullptr; }
  PQPlatformResult ResolveProfile(const PQRecordingRequest&, PQRecordingProfile&) override { return {}; }
};

TEST(PQModules, AProgramsOwnModuleTakesItsPlace) {
  NoModule own;
  SetMediaModule(&own);
  PQPlatformResult result;
  EXPECT_EQ(LoadMediaModule(result), &own);
  EXPECT_TRUE(result.Ok());
  SetMediaModule(nullptr);
  EXPECT_NE(LoadMediaModule(result), &own);
}

}  // namespace
}  // namespace pantiq
