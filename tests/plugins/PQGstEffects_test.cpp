// The effects of this machine, through the component, beside the same elements in a pipeline.
#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <gst/gst.h>
#include <gst/video/video.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <set>

#include "filters/Chain.h"
#include "pantiq/core/PQFramePool.h"
#include "pantiq/host/PQReport.h"
#include "pantiq/platform/PQModules.h"
#include "pantiq/plugins/PQDMOEffect.h"

namespace pantiq {
namespace {

std::unique_ptr<PQEffects> TheEffects() {
  PQPlatformResult result;
  PQMediaModule* const module = LoadMediaModule(result);
  EXPECT_NE(module, nullptr) << result.detail;
  auto effects = module != nullptr ? module->CreateEffects(result) : nullptr;
  EXPECT_NE(effects, nullptr) << result.detail;
  return effects;
}

std::vector<PQEffectInfo> List() {
  std::vector<PQEffectInfo> list;
  EXPECT_TRUE(TheEffects()->Enumerate(list).Ok());
  return list;
}

// The effect of this factory; empty if it is not installed.
PQEffectInfo Effect(const std::string& factory) {
  for (const PQEffectInfo& info : List()) {
    if (info.factory == factory) return info;
  }
  return {};
}

// Pixels that differ from byte to byte and from frame to frame.
PQImageRef Picture(int width, int height, int number) {
  PQImageRef frame = PQMakeRef<TPQImageBuffer>(width, height, vfRGB24);
  std::uint8_t* to = frame->Write();
  unsigned state = 12345u + static_cast<unsigned>(number);
  for (int i = 0; i < frame->GetByteSize(); ++i) {
    state = state * 1103515245u + 12345u;
    to[i] = static_cast<std::uint8_t>((i / 3) % width * 200 / width + (state >> 16) % 56);
  }
  return frame;
}

// The frames after `elements`, as a pipeline gives them; rows packed.
std::vector<std::vector<int>> ThroughPipeline(const std::string& elements, int width, int height, int frames) {
  const std::string caps =
      "video/x-raw,format=BGR,width=" + std::to_string(width) + ",height=" + std::to_string(height) + ",framerate=25/1";
  GstElement* const pipeline = gst_parse_launch(
      ("appsrc name=a format=time caps=" + caps + " ! " + elements + " ! appsink name=s sync=false caps=" + caps)
          .c_str(),
      nullptr);
  GstElement* const source = gst_bin_get_by_name(GST_BIN(pipeline), "a");
  GstElement* const sink = gst_bin_get_by_name(GST_BIN(pipeline), "s");
  gst_element_set_state(pipeline, GST_STATE_PLAYING);
  std::vector<std::vector<int>> made;
  const std::ptrdiff_t row_bytes = std::ptrdiff_t{width} * 3, step = GST_ROUND_UP_4(width * 3);
  for (int i = 0; i < frames; ++i) {
    const PQImageRef picture = Picture(width, height, i);
    GstBuffer* const buffer = gst_buffer_new_allocate(nullptr, static_cast<gsize>(step * height), nullptr);
    GstMapInfo map;
    gst_buffer_map(buffer, &map, GST_MAP_WRITE);
    for (int y = 0; y < height; ++y) {
      std::memcpy(map.data + y * step, picture->Read() + y * row_bytes, static_cast<std::size_t>(row_bytes));
    }
    gst_buffer_unmap(buffer, &map);
    GST_BUFFER_PTS(buffer) = 0;
    gst_app_src_push_buffer(GST_APP_SRC(source), buffer);
    GstSample* const sample = gst_app_sink_pull_sample(GST_APP_SINK(sink));
    if (sample == nullptr) break;
    GstVideoInfo info;
    GstVideoFrame frame;
    gst_video_info_from_caps(&info, gst_sample_get_caps(sample));
    if (gst_video_frame_map(&frame, &info, gst_sample_get_buffer(sample), GST_MAP_READ)) {
      std::vector<int>& bytes = made.emplace_back();
      for (int y = 0; y < height; ++y) {
        const auto* row = static_cast<const std::uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, 0)) +
                          std::ptrdiff_t{y} * GST_VIDEO_FRAME_PLANE_STRIDE(&frame, 0);
        bytes.insert(bytes.end(), row, row + row_bytes);
      }
      gst_video_frame_unmap(&frame);
    }
    gst_sample_unref(sample);
  }
  gst_element_set_state(pipeline, GST_STATE_NULL);
  gst_object_unref(source), gst_object_unref(sink), gst_object_unref(pipeline);
  return made;
}

struct GstEffects : testing::Test {
  GstEffects() {
    SetReportListener([this](const PQReportEntry& entry) { told += entry.text + " | " + entry.detail + "\n"; });
  }
  ~GstEffects() override { SetReportListener({}); }
  std::string told;
};

TEST_F(GstEffects, AreListedByNameWithIdentifiersThatNeverChange) {
  const auto list = List();
  std::set<std::string> names, ids;
  for (const PQEffectInfo& info : list) {
    EXPECT_TRUE(names.insert(info.name).second) << info.name << " twice";
    EXPECT_TRUE(ids.insert(info.id).second);
    TGUID id;
    EXPECT_TRUE(PQGuidFromText(info.id, id));
    EXPECT_EQ(PQGuidToText(id), info.id);
    EXPECT_EQ(info.id[15], '5') << "the version";
  }
  EXPECT_TRUE(std::is_sorted(list.begin(), list.end(), [](const auto& a, const auto& b) { return a.name < b.name; }));
  EXPECT_EQ(Effect("gamma").id, "{0481BCB6-5276-5FB3-9D86-3A9E130F5D19}");
  EXPECT_EQ(Effect("videobalance").id, "{1234CE75-4BB7-5115-97FD-DA3F79034E62}");
  EXPECT_EQ(Effect("gamma").name, "Video gamma correction");
  EXPECT_EQ(Effect("gamma").package, "gstreamer1.0-plugins-good");
  for (const char* other : {"videorate", "imagefreeze", "x264enc", "volume", "videoconvert"}) {
    EXPECT_EQ(Effect(other).factory, "") << other << " is no effect that works frame by frame";
  }
  std::vector<PQEffectPackage> packages;
  TheEffects()->MorePackages(packages);
  for (const PQEffectPackage& more : packages) EXPECT_NE(more.package, "gstreamer1.0-plugins-good");
}

TEST_F(GstEffects, GiveTheBytesOfTheSameElementInAPipeline) {
  struct Case {
    const char *factory, *settings;
    bool converted;
  };
  const Case cases[] = {
      {"gamma", "gamma=2", false},
      {"gamma", "", false},
      {"videobalance", "hue=0.5 saturation=0.3 contrast=1.7", false},
      {"videobalance", "brightness=-0.25", false},
      {"videoflip", "video-direction=horiz", false},
      {"videoflip", "video-direction=180", false},
      {"videomedian", "filtersize=5", true},
      {"revtv", "gain=20", true},
  };
  for (const Case& c : cases) {
    for (const int width : {64, 61}) {
      SCOPED_TRACE(std::string(c.factory) + " " + c.settings + " " + std::to_string(width));
      const PQEffectInfo info = Effect(c.factory);
      ASSERT_FALSE(info.name.empty());
      Chain<TPQDMOEffect> chain;
      chain.filter.SetDmoName(info.name);
      chain.filter.SetSettings(c.settings);
      chain.source.Start(width, 33);
      const std::string element = std::string(c.factory) + " " + c.settings;
      const auto wanted =
          ThroughPipeline(c.converted ? "videoconvert ! " + element + " ! videoconvert" : element, width, 33, 4);
      ASSERT_EQ(wanted.size(), 4u);
      std::vector<PQImageRef> out;
      for (int i = 0; i < 4; ++i) {
        const PQImageRef frame = Picture(width, 33, i);
        out.push_back(chain.Send(frame));
        EXPECT_EQ(Bytes(*frame), Bytes(*Picture(width, 33, i))) << "the source's frame was written to";
      }
      for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(Bytes(*out[i]), wanted[i]) << i;
      EXPECT_EQ(told, "");
    }
  }
}

// Gray keeps its tone through the element's luma, up to the rounding of its conversion there and back.
TEST_F(GstEffects, GammaIsThePowerOfTheLuma) {
  Chain<TPQDMOEffect> chain;
  chain.filter.SetDmoName(Effect("gamma").name);
  chain.filter.SetSettings("gamma=2.5");
  chain.source.Start(256, 1);
  PQImageRef ramp = PQMakeRef<TPQImageBuffer>(256, 1, vfRGB24);
  for (int i = 0; i < 768; ++i) ramp->Write()[i] = static_cast<std::uint8_t>(i / 3);
  const PQImageRef out = chain.Send(ramp);
  for (int i = 0; i < 256; ++i) {
    const double luma = std::floor(255 * std::pow((16 + i * 219 / 255.0) / 255, 1 / 2.5) + 0.5);
    const double gray = std::clamp((luma - 16) * 255 / 219, 0.0, 255.0);
    for (int channel = 0; channel < 3; ++channel) EXPECT_NEAR(out->Read()[i * 3 + channel], gray, 6) << i;
  }
}

TEST_F(GstEffects, ByCopyNothingIsCopiedTwiceAndAtRestNothingAtAll) {
  Chain<TPQDMOEffect> chain;
  const auto copied_by = [&chain](const char* factory, const char* settings) {
    chain.filter.SetDmoName(Effect(factory).name);
    chain.filter.SetSettings(settings);
    chain.source.Start(64, 16);
    const PQImageRef frame = Picture(64, 16, 0);
    chain.Send(frame);
    const auto before = PQFramePool::CopiedBytes();
    chain.Send(frame);
    return std::pair(PQFramePool::CopiedBytes() - before, chain.sink.last->Read() == frame->Read());
  };
  EXPECT_EQ(copied_by("videoflip", "video-direction=horiz"), std::pair(std::uint64_t{0}, false));
  EXPECT_EQ(copied_by("gamma", "gamma=3"), std::pair(std::uint64_t{64 * 16 * 3}, false));
  EXPECT_EQ(copied_by("gamma", ""), std::pair(std::uint64_t{0}, true));
  EXPECT_EQ(copied_by("videobalance", ""), std::pair(std::uint64_t{0}, true));
  // What went out stays as it was while the effect goes on.
  chain.filter.SetDmoName(Effect("videoflip").name);
  chain.filter.SetSettings("video-direction=vert");
  chain.source.Start(64, 16);
  const PQImageRef first = chain.Send(Picture(64, 16, 1));
  const std::vector<int> bytes = Bytes(*first);
  for (int i = 2; i < 6; ++i) chain.Send(Picture(64, 16, i));
  EXPECT_EQ(Bytes(*first), bytes);
}

TEST_F(GstEffects, SettingsTellWhatIsAccepted) {
  struct Case {
    const char *factory, *settings;
    std::vector<std::string> says;
  };
  const Case cases[] = {
      {"gamma", "gama=2", {"'gama' is no setting of gamma", "gamma: a number from 0.01 to 10 (default 1)"}},
      {"gamma", "qos=true", {"'qos' is no setting"}},
      {"gamma", "name=x", {"'name' is no setting"}},
      {"gamma", "gamma=20", {"gamma: '20' is not allowed; expected a number from 0.01 to 10"}},
      {"gamma", "gamma=nan", {"gamma: 'nan' is not allowed"}},
      {"gamma", "gamma=2,5", {"gamma: '2,5' is not allowed"}},
      {"gamma", "gamma=", {"gamma: '' is not allowed"}},
      {"gamma", "gamma", {"'gamma' is no setting; expected name=value"}},
      {"gamma", "gamma=2 =3", {"'=3' is no setting; expected name=value"}},
      {"gamma", "gamma='2", {"gamma: the quotes of its value do not end"}},
      {"gamma", "gamma=\"2\"x", {"gamma: a blank is missing"}},
      {"gamma", "gamma=2 gamma=3", {"gamma is set twice"}},
      {"videoflip", "video-direction=sideways", {"expected one of ", "horiz", "180"}},
      {"videobox", "left=1.5", {"left: '1.5' is not allowed; expected an integer"}},
      {"videobox", "autocrop=maybe", {"expected true or false"}},
      {"videoflip", "video-direction=90r", {"does not make frames of 16 by 8"}},
      {"videobox", "left=4", {"does not make frames of 16 by 8"}},
      {"edgetv", "", {"frames of 16 by 8 would make it write outside its memory", "sides from 32 pixels on"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.settings);
    Chain<TPQDMOEffect> chain;
    chain.filter.SetDmoName(Effect(c.factory).name);
    chain.filter.SetSettings(c.settings);
    told.clear();
    chain.source.Start(16, 8);
    for (const std::string& text : c.says) EXPECT_NE(told.find(text), std::string::npos) << told;
    const PQImageRef frame = Picture(16, 8, 0);
    EXPECT_EQ(chain.Send(frame)->Read(), frame->Read());
  }
}

TEST_F(GstEffects, SettingsMoveWithTheStreamAndGoBackToTheirDefaults) {
  const auto wanted = [](const std::string& element) { return ThroughPipeline(element, 32, 8, 1).at(0); };
  Chain<TPQDMOEffect> chain;
  chain.filter.SetDmoName(Effect("videobalance").name);
  chain.filter.SetSettings(" hue=0.5  contrast='1.5' ");
  chain.source.Start(32, 8);
  EXPECT_EQ(Bytes(*chain.Send(Picture(32, 8, 0))), wanted("videobalance hue=0.5 contrast=1.5"));
  chain.filter.SetSettings("saturation=0");
  EXPECT_EQ(Bytes(*chain.Send(Picture(32, 8, 0))), wanted("videobalance saturation=0"));
  chain.filter.SetSettings("saturation=0.5 hue=7");
  EXPECT_EQ(Bytes(*chain.Send(Picture(32, 8, 0))), wanted("videobalance saturation=0")) << "a fault changes nothing";
  EXPECT_NE(told.find("hue: '7' is not allowed; expected a number from -1 to 1"), std::string::npos) << told;
  chain.filter.SetSettings("");
  const PQImageRef frame = Picture(32, 8, 0);
  EXPECT_EQ(chain.Send(frame)->Read(), frame->Read());
}

TEST_F(GstEffects, AnIdentifierOfWhatIsNotInstalledNamesThePackage) {
  std::vector<PQEffectPackage> packages;
  TheEffects()->MorePackages(packages);
  PQPlatformResult result;
  EXPECT_EQ(TheEffects()->Create("{FFFFFFFF-8F24-5FC6-AFB7-0DA138BFE3CF}", result), nullptr);
  EXPECT_EQ(result.code, kPlatformMissing);
  EXPECT_NE(result.detail.find("{FFFFFFFF"), std::string::npos);
  if (!Effect("coloreffects").factory.empty()) GTEST_SKIP() << "everything is installed";
  EXPECT_EQ(TheEffects()->Create("{01E6DF91-8F24-5FC6-AFB7-0DA138BFE3CF}", result), nullptr);
  EXPECT_NE(result.detail.find("coloreffects is not installed; install gstreamer1.0-plugins-bad"), std::string::npos)
      << result.detail;
}

// Every effect that is here: it takes frames of odd and small sizes or says why not, and leaves the source's frame
// alone.
TEST_F(GstEffects, AllOfThemGiveAFrameForAFrame) {
  int usable = 0;
  for (const PQEffectInfo& info : List()) {
    SCOPED_TRACE(info.factory);
    for (const auto& [width, height] : {std::pair{64, 48}, {17, 3}, {1, 1}}) {
      Chain<TPQDMOEffect> chain;
      chain.filter.SetDmoName(info.name);
      told.clear();
      chain.source.Start(width, height);
      usable += width == 64 && told.empty();
      for (int i = 0; i < 3; ++i) {
        const PQImageRef frame = Picture(width, height, i);
        const PQImageRef out = chain.Send(frame);
        EXPECT_EQ(Bytes(*frame), Bytes(*Picture(width, height, i)));
        EXPECT_EQ(out->GetByteSize(), frame->GetByteSize());
      }
      EXPECT_TRUE(told.empty() || told.find("pass") != std::string::npos) << told;
      chain.source.OutputPin.Stop();
    }
  }
  EXPECT_GE(usable, 15);
}

}  // namespace
}  // namespace pantiq
