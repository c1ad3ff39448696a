// The fuzz targets in the suite: every input of the corpora, and graphs from seeds.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

#include "pantiq/core/PQFramePool.h"
#include "tests/fuzz/FuzzTargets.h"

namespace pantiq::fuzz {
namespace {

class Corpus : public testing::TestWithParam<Target> {};

TEST_P(Corpus, IsTakenWithoutAFault) {
  std::vector<std::filesystem::path> files;
  for (const auto& entry :
       std::filesystem::directory_iterator(std::filesystem::path(PANTIQ_FUZZ_CORPUS) / GetParam().name)) {
    files.push_back(entry.path());
  }
  ASSERT_FALSE(files.empty());
  std::sort(files.begin(), files.end());
  for (const std::filesystem::path& file : files) {
    SCOPED_TRACE(file.filename().string());
    std::ifstream stream(file, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(stream), {}};
    GetParam().run({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
  }
}

INSTANTIATE_TEST_SUITE_P(, Corpus,
                         testing::Values(Target{"graph", FuzzGraph}, Target{"launch", FuzzLaunch},
                                         Target{"file", FuzzFile}, Target{"stream", FuzzStream},
                                         Target{"stored", FuzzStored}, Target{"plugin", FuzzPlugin}),
                         [](const auto& info) { return std::string(info.param.name); });

class Graphs : public testing::TestWithParam<int> {};

TEST_P(Graphs, OfAnySeedLiveAndDieInAnyOrder) {
  const int seeds = std::getenv("PANTIQ_TEST_LONG") != nullptr ? 600 : 30;
  const std::int64_t blocks = PQFramePool::LiveBlocks();
  for (int seed = 0; seed < seeds; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(static_cast<unsigned>(GetParam() * 100000 + seed));
    std::vector<std::uint8_t> bytes(200 + random() % 600);
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
    FuzzGraph(bytes);
    ASSERT_EQ(PQFramePool::LiveBlocks(), blocks) << "frames outlived their graph";
  }
}

INSTANTIATE_TEST_SUITE_P(, Graphs, testing::Range(0, 10));

}  // namespace
}  // namespace pantiq::fuzz
