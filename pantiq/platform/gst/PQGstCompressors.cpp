#include "pantiq/platform/gst/PQGstCompressors.h"

#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstring>
#include <map>
#include <mutex>
#include <utility>

#include "pantiq/platform/PQSettings.h"
#include "pantiq/platform/gst/PQGstSettings.h"

namespace pantiq::gst {
namespace {

using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

constexpr const char* kMoniker = "gst:element=";
constexpr auto kTrialLimit = 3s;      // of a frame on its way through a codec
constexpr auto kAtOnceLimit = 400ms;  // of a block that comes without the next frame
constexpr GstClockTime kLook = 20 * GST_MSECOND;
constexpr int kTrialWidth = 320, kTrialHeight = 240;
constexpr std::int64_t kTrialPeriod = 400000;  // 100 ns

// Encoders that hold frames back, or give little, as they come.
struct Preset {
  const char* factory;
  const char* settings;
};
constexpr std::array kPresets = {
    Preset{"x264enc", "tune=zerolatency speed-preset=superfast"},
    Preset{"x265enc", "tune=zerolatency speed-preset=superfast"},
    Preset{"vp8enc", "deadline=1"},
    Preset{"vp9enc", "deadline=1"},
    // Their bit rate has no effect; left alone they take the coarsest quantizer.
    Preset{"avenc_mpeg4", "qmin=3 qmax=3"},
    Preset{"avenc_wmv1", "qmin=3 qmax=3"},
    Preset{"avenc_wmv2", "qmin=3 qmax=3"},
    Preset{"avenc_msmpeg4", "qmin=3 qmax=3"},
    Preset{"avenc_msmpeg4v2", "qmin=3 qmax=3"},
    Preset{"avenc_h263p", "qmin=3 qmax=3"},
    Preset{"avenc_flv", "qmin=3 qmax=3"},
};

const char* PresetOf(const std::string& factory) {
  for (const Preset& preset : kPresets) {
    if (factory == preset.factory) return preset.settings;
  }
  return "";
}

bool IsCompressor(GstElementFactory* factory) {
  return gst_element_factory_list_is_type(factory, GST_ELEMENT_FACTORY_TYPE_VIDEO_ENCODER) != FALSE;
}

bool Names(const PQSettingsList& list, const std::string& name) {
  return std::any_of(list.begin(), list.end(), [&](const auto& entry) { return entry.first == name; });
}

// A pipeline of its own: buffers in at one end, samples out at the other.
class Trial {
 public:
  Trial() : pipeline_(GST_ELEMENT(gst_object_ref_sink(gst_pipeline_new(nullptr)))) {}
  ~Trial() { gst_element_set_state(pipeline_.get(), GST_STATE_NULL); }
  Trial(const Trial&) = delete;
  Trial& operator=(const Trial&) = delete;

  PQPlatformResult Start(GstCaps* caps, const std::vector<GstElement*>& chain) {
    PQPlatformResult result;
    source_ = MakeElement("appsrc", result);
    if (source_ != nullptr) sink_ = MakeElement("appsink", result);
    if (sink_ == nullptr) return result;
    g_object_set(source_.get(), "format", GST_FORMAT_TIME, "max-bytes", guint64{0}, nullptr);
    gst_app_src_set_caps(GST_APP_SRC(source_.get()), caps);
    g_object_set(sink_.get(), "sync", FALSE, "async", FALSE, "qos", FALSE, "enable-last-sample", FALSE, nullptr);
    std::vector<GstElement*> all = {source_.get()};
    all.insert(all.end(), chain.begin(), chain.end());
    all.push_back(sink_.get());
    for (GstElement* element : all) gst_bin_add(GST_BIN(pipeline_.get()), element);
    for (std::size_t i = 1; i < all.size(); ++i) {
      if (!gst_element_link(all[i - 1], all[i])) return {kPlatformFormat, "this form of frames is not taken"};
    }
    if (gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) return Failure();
    return {};
  }

  void Push(BufferPtr buffer) { gst_app_src_push_buffer(GST_APP_SRC(source_.get()), buffer.release()); }
  void End() { gst_app_src_end_of_stream(GST_APP_SRC(source_.get())); }

  // The next sample; empty with a result if there is none within the limit.
  SamplePtr Pull(SteadyClock::duration limit, const TrialEnd& ended, PQPlatformResult& result) {
    const auto until = SteadyClock::now() + limit;
    for (;;) {
      SamplePtr sample(gst_app_sink_try_pull_sample(GST_APP_SINK(sink_.get()), kLook));
      if (sample != nullptr) return sample;
      result = Failure();
      if (result.code != kPlatformState) return nullptr;
      if (ended && ended()) {
        result = {kPlatformInterrupted, "the graph is being stopped"};
        return nullptr;
      }
      if (gst_app_sink_is_eos(GST_APP_SINK(sink_.get()))) {
        result = {kPlatformFormat, "nothing came of a frame"};
        return nullptr;
      }
      if (SteadyClock::now() >= until) {
        result = {kPlatformTimeout, "nothing came of a frame"};
        return nullptr;
      }
    }
  }

 private:
  // kPlatformState if nothing has failed.
  PQPlatformResult Failure() {
    GstBus* bus = gst_element_get_bus(pipeline_.get());
    const MessagePtr message(gst_bus_pop_filtered(bus, GST_MESSAGE_ERROR));
    gst_object_unref(bus);
    return message != nullptr ? FromMessage(message.get()) : PQPlatformResult(kPlatformState, "it does not start");
  }
  ElementPtr pipeline_, source_, sink_;
};

// A picture with some detail that moves.
std::vector<std::uint8_t> TrialPicture(int number) {
  std::vector<std::uint8_t> picture(static_cast<std::size_t>(kTrialWidth) * kTrialHeight * 3);
  std::uint8_t* pixel = picture.data();
  for (int y = 0; y < kTrialHeight; ++y) {
    for (int x = 0; x < kTrialWidth; ++x, pixel += 3) {
      pixel[0] = static_cast<std::uint8_t>(40 + x * 170 / kTrialWidth);
      pixel[1] = static_cast<std::uint8_t>(40 + y * 170 / kTrialHeight);
      pixel[2] = static_cast<std::uint8_t>(128 + 60 * std::sin((x + y + 3 * number) * 0.05));
    }
  }
  return picture;
}

BufferPtr Frame(const std::vector<std::uint8_t>& bytes, int number) {
  BufferPtr buffer(gst_buffer_new_memdup(bytes.data(), bytes.size()));
  GST_BUFFER_PTS(buffer.get()) = static_cast<GstClockTime>(number * kTrialPeriod * kNanosecondsPerUnit);
  GST_BUFFER_DURATION(buffer.get()) = static_cast<GstClockTime>(kTrialPeriod * kNanosecondsPerUnit);
  return buffer;
}

std::string CapsText(GstSample* sample) {
  gchar* text = gst_caps_to_string(gst_sample_get_caps(sample));
  std::string result = text;
  g_free(text);
  return result;
}

PQPlatformResult SizeOf(GstSample* sample, GstVideoInfo& info) {
  GstCaps* caps = gst_sample_get_caps(sample);
  if (caps == nullptr || !gst_video_info_from_caps(&info, caps)) return {kPlatformFormat, "what comes is no video"};
  return {};
}

// Squared differences of a frame and what came back of it; negative if the sizes differ.
double Difference(GstSample* sample, const std::vector<std::uint8_t>& bytes) {
  GstVideoInfo info;
  GstVideoFrame frame;
  if (!SizeOf(sample, info).Ok() || info.width != kTrialWidth || info.height != kTrialHeight ||
      !gst_video_frame_map(&frame, &info, gst_sample_get_buffer(sample), GST_MAP_READ)) {
    return -1;
  }
  const auto* row = static_cast<const std::uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, 0));
  const std::uint8_t* wanted = bytes.data();
  double sum = 0;
  for (int y = 0; y < kTrialHeight; ++y, row += GST_VIDEO_FRAME_PLANE_STRIDE(&frame, 0)) {
    for (int x = 0; x < kTrialWidth * 3; ++x) {
      const int difference = row[x] - *wanted++;
      sum += difference * difference;
    }
  }
  gst_video_frame_unmap(&frame);
  return sum;
}

// The format of the frames that an encoder gets.
std::string PixelsOf(GstElement* encoder) {
  const PadPtr pad(gst_element_get_static_pad(encoder, "sink"));
  const CapsPtr caps(pad != nullptr ? gst_pad_get_current_caps(pad.get()) : nullptr);
  const gchar* format =
      caps != nullptr ? gst_structure_get_string(gst_caps_get_structure(caps.get(), 0), "format") : nullptr;
  return format != nullptr ? format : "";
}

// A copy of a compressor, to be tried.
PQPlatformResult CopyCompressor(const Compressor& compressor, Compressor& copy) {
  if (auto result = MakeCompressor(MonikerOf(compressor.factory), copy); !result.Ok()) return result;
  return ApplySettings(copy.element.get(), compressor.settings, copy.set);
}

void OnElementAdded(GstBin*, GstBin*, GstElement* element, gpointer) {
  // A decoder with several threads holds as many frames back.
  if (g_object_class_find_property(G_OBJECT_GET_CLASS(element), "max-threads") != nullptr) {
    g_object_set(element, "max-threads", 1, nullptr);
  }
}

void OnPadAdded(GstElement*, GstPad* pad, gpointer converter) {
  const PadPtr in(gst_element_get_static_pad(GST_ELEMENT(converter), "sink"));
  if (!gst_pad_is_linked(in.get())) gst_pad_link(pad, in.get());
}

// One block through a decoder: a frame of the size must come.
PQPlatformResult ProveDecoder(const std::string& form, GstBuffer* block, int width, int height, const TrialEnd& ended) {
  PQPlatformResult result;
  const ElementPtr decoder = MakeDecoder(result);
  if (decoder == nullptr) return result;
  const CapsPtr caps(gst_caps_from_string(form.c_str()));
  if (caps == nullptr) return {kPlatformFormat, "its blocks cannot be described: " + form};
  Trial trial;
  if (result = trial.Start(caps.get(), {decoder.get()}); !result.Ok()) return result;
  trial.Push(BufferPtr(gst_buffer_ref(block)));
  trial.End();
  const SamplePtr sample = trial.Pull(kTrialLimit, ended, result);
  if (sample == nullptr) {
    if (result.code != kPlatformInterrupted) result.detail = "its blocks cannot be decompressed: " + result.detail;
    return result;
  }
  GstVideoInfo info;
  if (result = SizeOf(sample.get(), info); !result.Ok()) return result;
  if (info.width != width || info.height != height) {
    return {kPlatformFormat, "its blocks become frames of " + std::to_string(info.width) + " by " +
                                 std::to_string(info.height) + " pixels"};
  }
  return {};
}

}  // namespace

std::string MonikerOf(const std::string& factory) { return kMoniker + factory; }

PQPlatformResult MakeCompressor(const std::string& moniker, Compressor& compressor) {
  if (!moniker.starts_with(kMoniker)) {
    return {kPlatformMissing, "'" + moniker + "' names no compressor; expected " + kMoniker + "NAME"};
  }
  compressor.factory = moniker.substr(std::strlen(kMoniker));
  PQPlatformResult result;
  compressor.element = MakeElement(compressor.factory.c_str(), result);
  if (compressor.element == nullptr) {
    result.code = kPlatformMissing;
    return result;
  }
  if (!IsCompressor(gst_element_get_factory(compressor.element.get()))) {
    compressor.element.reset();
    return {kPlatformFormat, "the GStreamer element " + compressor.factory + " does not compress video"};
  }
  compressor.own_settings = PresetOf(compressor.factory);
  return SetCompressor(compressor, {});
}

PQPlatformResult SetCompressor(Compressor& compressor, const std::string& settings) {
  PQSettingsList own, wanted;
  if (auto result = PQParseSettings(settings, wanted); !result.Ok()) return result;
  (void)PQParseSettings(compressor.own_settings, own);
  const bool quantizer = Names(wanted, "qmin") || Names(wanted, "qmax");
  std::string all = settings;
  for (const auto& [name, value] : own) {
    if (Names(wanted, name) || (quantizer && name.starts_with('q'))) continue;
    all += " " + name + "=" + value;
  }
  auto result = ApplySettings(compressor.element.get(), all, compressor.set);
  if (result.Ok()) compressor.settings = all;
  return result;
}

ElementPtr MakeConverter(const Compressor& compressor, int width, int height, bool queue, PQPlatformResult& result) {
  std::string text = "videoconvert";
  if (queue) text += " ! queue max-size-buffers=2 max-size-bytes=0 max-size-time=0";
  // Given the choice they keep the chroma in full, which few can read; of odd sides only so.
  const bool h26x = compressor.factory == "x264enc" || compressor.factory == "x265enc";
  const bool even = width % 2 == 0 && height % 2 == 0;
  const std::string pixels = !compressor.pixels.empty() ? compressor.pixels : h26x && even ? "I420" : "";
  if (!pixels.empty()) text += " ! capsfilter caps=video/x-raw,format=" + pixels;
  return MakeBin(text, result);
}

// decodebin, not the decoder of the highest rank that takes the caps: for some forms that one fails.
ElementPtr MakeDecoder(PQPlatformResult& result) {
  ElementPtr inner = MakeElement("decodebin", result);
  if (inner == nullptr) return nullptr;
  ElementPtr converter = MakeBin("videoconvert ! capsfilter caps=video/x-raw,format=BGR", result);
  if (converter == nullptr) return nullptr;
  ElementPtr decoder(GST_ELEMENT(gst_object_ref_sink(gst_bin_new(nullptr))));
  gst_bin_add_many(GST_BIN(decoder.get()), inner.get(), converter.get(), nullptr);
  const PadPtr in(gst_element_get_static_pad(inner.get(), "sink"));
  const PadPtr out(gst_element_get_static_pad(converter.get(), "src"));
  gst_element_add_pad(decoder.get(), gst_ghost_pad_new("sink", in.get()));
  gst_element_add_pad(decoder.get(), gst_ghost_pad_new("src", out.get()));
  g_signal_connect(inner.get(), "deep-element-added", G_CALLBACK(OnElementAdded), nullptr);
  // The converter lives as long as the bin, which holds both.
  g_signal_connect(inner.get(), "pad-added", G_CALLBACK(OnPadAdded), converter.get());
  return decoder;
}

PQPlatformResult ProveCompressor(Compressor& compressor, PQVideoSubtype subtype, int width, int height,
                                 std::int64_t period, bool decode, const TrialEnd& ended, std::string& form) {
  struct Proof {
    std::string form, pixels;
    bool decoded;
  };
  static std::mutex mutex;
  static std::map<std::string, Proof> proved;
  const CapsPtr caps = VideoCaps(subtype, width, height, period);
  gchar* text = gst_caps_to_string(caps.get());
  const std::string key = compressor.factory + " " + compressor.settings + "\n" + text;
  g_free(text);
  {
    const std::lock_guard lock(mutex);
    const auto at = proved.find(key);
    if (at != proved.end() && (at->second.decoded || !decode)) {
      form = at->second.form;
      compressor.pixels = at->second.pixels;
      return {};
    }
  }
  if (subtype != PQVideoSubtype::Rgb24) {
    auto result = ProveCompressor(compressor, PQVideoSubtype::Rgb24, width, height, period, decode, ended, form);
    if (!result.Ok()) return result;
  }
  const auto failed = [&](PQPlatformResult result) {
    if (result.code != kPlatformInterrupted) {
      result.detail = compressor.factory + " does not take " + std::to_string(width) + " by " + std::to_string(height) +
                      " pixels: " + result.detail;
    }
    return result;
  };
  Compressor copy;
  PQPlatformResult result = CopyCompressor(compressor, copy);
  if (!result.Ok()) return result;
  copy.pixels = compressor.pixels;
  const ElementPtr converter = MakeConverter(copy, width, height, false, result);
  if (converter == nullptr) return result;
  Trial trial;
  if (result = trial.Start(caps.get(), {converter.get(), copy.element.get()}); !result.Ok()) return failed(result);
  GstVideoInfo info;
  gst_video_info_from_caps(&info, caps.get());
  trial.Push(Frame(std::vector<std::uint8_t>(info.size), 0));
  trial.End();
  const SamplePtr sample = trial.Pull(kTrialLimit, ended, result);
  if (sample == nullptr) return failed(result);
  form = CapsText(sample.get());
  compressor.pixels = PixelsOf(copy.element.get());
  if (decode) {
    result = ProveDecoder(form, gst_sample_get_buffer(sample.get()), width, height, ended);
    if (!result.Ok()) return result;
  }
  const std::lock_guard lock(mutex);
  proved[key] = {form, compressor.pixels, decode};
  return {};
}

PQPlatformResult ListCompressors(std::vector<PQFilterInfo>& filters) {
  filters.clear();
  if (auto result = Initialise(); !result.Ok()) return result;
  GList* all = gst_element_factory_list_get_elements(GST_ELEMENT_FACTORY_TYPE_VIDEO_ENCODER, GST_RANK_NONE);
  for (GList* at = all; at != nullptr; at = at->next) {
    const std::string factory = GST_OBJECT_NAME(at->data);
    const gchar* name = gst_element_factory_get_metadata(GST_ELEMENT_FACTORY(at->data), GST_ELEMENT_METADATA_LONGNAME);
    filters.push_back({MonikerOf(factory), name != nullptr ? name : factory});
  }
  gst_plugin_feature_list_free(all);
  std::sort(filters.begin(), filters.end(),
            [](const auto& a, const auto& b) { return std::tie(a.name, a.moniker) < std::tie(b.name, b.moniker); });
  // Of several with one name all but the first say which they are.
  std::string last;
  for (PQFilterInfo& filter : filters) {
    const std::string name = filter.name;
    if (name == last) filter.name += " (" + filter.moniker.substr(std::strlen(kMoniker)) + ")";
    last = name;
  }
  return {};
}

PQPlatformResult TryCompressor(const std::string& moniker, const std::string& settings, PQCompressorTrial& trial) {
  trial = {};
  if (auto result = Initialise(); !result.Ok()) return result;
  Compressor compressor;
  PQPlatformResult result = MakeCompressor(moniker, compressor);
  if (result.Ok()) result = SetCompressor(compressor, settings);
  if (!result.Ok()) return result;
  const CapsPtr caps = VideoCaps(PQVideoSubtype::Rgb24, kTrialWidth, kTrialHeight, kTrialPeriod);
  const ElementPtr converter = MakeConverter(compressor, kTrialWidth, kTrialHeight, false, result);
  if (converter == nullptr) return result;
  std::vector<std::vector<std::uint8_t>> pictures;
  std::vector<SamplePtr> blocks;
  {
    Trial compressing;
    result = compressing.Start(caps.get(), {converter.get(), compressor.element.get()});
    if (!result.Ok()) return result;
    trial.at_once = true;
    for (int i = 0; i < PQCompressorTrial::kFrames; ++i) {
      pictures.push_back(TrialPicture(i));
      compressing.Push(Frame(pictures.back(), i));
      if (!trial.at_once) continue;
      // The first block may wait until the codec has been set up.
      SamplePtr block = compressing.Pull(i == 0 ? kTrialLimit : SteadyClock::duration(kAtOnceLimit), {}, result);
      if (block != nullptr) {
        blocks.push_back(std::move(block));
      } else if (result.code != kPlatformTimeout) {
        return result;
      } else {
        trial.at_once = false;
      }
    }
    compressing.End();
    while (SamplePtr block = compressing.Pull(kTrialLimit, {}, result)) blocks.push_back(std::move(block));
  }
  trial.blocks = static_cast<int>(blocks.size());
  if (blocks.empty()) return result;
  for (const SamplePtr& block : blocks) {
    trial.bytes += static_cast<std::int64_t>(gst_buffer_get_size(gst_sample_get_buffer(block.get())));
  }
  const ElementPtr decoder = MakeDecoder(result);
  if (decoder == nullptr) return result;
  Trial decompressing;
  result = decompressing.Start(gst_sample_get_caps(blocks.front().get()), {decoder.get()});
  if (!result.Ok()) return result;
  for (const SamplePtr& block : blocks) {
    decompressing.Push(BufferPtr(gst_buffer_ref(gst_sample_get_buffer(block.get()))));
  }
  decompressing.End();
  double worst = 0;
  while (const SamplePtr frame = decompressing.Pull(kTrialLimit, {}, result)) {
    if (trial.frames >= PQCompressorTrial::kFrames) break;
    const double difference = Difference(frame.get(), pictures[static_cast<std::size_t>(trial.frames)]);
    if (difference < 0) return {kPlatformFormat, "its blocks become frames of another size"};
    worst = std::max(worst, difference);
    ++trial.frames;
  }
  if (trial.frames == 0) return {result.code, "its blocks cannot be decompressed: " + result.detail};
  trial.lossless = worst == 0 && trial.frames == PQCompressorTrial::kFrames;
  const double samples = 3.0 * kTrialWidth * kTrialHeight;
  if (worst > 0) trial.decibel = 10 * std::log10(255.0 * 255.0 * samples / worst);
  return {};
}

}  // namespace pantiq::gst
