#include "pantiq/platform/gst/PQGstEffects.h"

#include <gst/base/gstbasetransform.h>
#include <gst/video/gstvideofilter.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <utility>

#include "pantiq/platform/gst/PQGstCommon.h"
#include "pantiq/platform/gst/PQGstFrames.h"
#include "pantiq/platform/gst/PQGstSettings.h"

namespace pantiq::gst {
namespace {

struct FactoryUnref {
  void operator()(GstElementFactory* factory) const { gst_object_unref(factory); }
};
using FactoryPtr = std::unique_ptr<GstElementFactory, FactoryUnref>;

// --- which effects there are ----------------------------------------------------------------------------------------

// The namespace of the identifiers. It must never change: graphs store what is made from it.
constexpr std::array<guchar, 16> kNamespace = {0x5d, 0x0f, 0x6f, 0x4a, 0x93, 0xb1, 0x4c, 0x7e,
                                               0x8a, 0x56, 0x2f, 0x1c, 0x0e, 0x9b, 0x7d, 0x34};

// The UUID of version 5 (RFC 4122, section 4.3) of a name, in capitals and braces.
std::string EffectId(const std::string& factory) {
  GChecksum* const sum = g_checksum_new(G_CHECKSUM_SHA1);
  g_checksum_update(sum, kNamespace.data(), kNamespace.size());
  g_checksum_update(sum, reinterpret_cast<const guchar*>(factory.data()), static_cast<gssize>(factory.size()));
  std::array<guint8, 20> hash{};
  gsize length = hash.size();
  g_checksum_get_digest(sum, hash.data(), &length);
  g_checksum_free(sum);
  hash[6] = static_cast<guint8>((hash[6] & 0x0f) | 0x50);
  hash[8] = static_cast<guint8>((hash[8] & 0x3f) | 0x80);
  std::string text = "{";
  for (int i = 0; i < 16; ++i) {
    std::array<char, 3> two{};
    std::snprintf(two.data(), two.size(), "%02X", static_cast<unsigned>(hash[static_cast<std::size_t>(i)]));
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    text += two.data();
  }
  return text + "}";
}

// Effects of packages that may be missing: what to tell whoever asks for one of them.
struct KnownPackage {
  const char* package;
  std::vector<const char*> effects;
};
const std::vector<KnownPackage>& KnownPackages() {
  static const auto* const known = new std::vector<KnownPackage>{
      {"gstreamer1.0-plugins-good",
       {"gamma",   "videobalance", "videobox",      "videocrop",    "videoflip", "gdkpixbufoverlay",
        "agingtv", "dicetv",       "edgetv",        "optv",         "quarktv",   "radioactv",
        "revtv",   "rippletv",     "warptv",        "shagadelictv", "streaktv",  "vertigotv",
        "alpha",   "videomedian",  "navigationtest"}},
      {"gstreamer1.0-plugins-bad",
       {"bulge",
        "circle",
        "coloreffects",
        "diffuse",
        "fisheye",
        "kaleidoscope",
        "marble",
        "mirror",
        "perspective",
        "pinch",
        "rotate",
        "sphere",
        "square",
        "stretch",
        "tunnel",
        "twirl",
        "waterripple",
        "lcms",
        "burn",
        "dilate",
        "dodge",
        "chromahold",
        "gaussianblur",
        "chromium",
        "exclusion",
        "solarize",
        "smooth",
        "simplevideomark",
        "simplevideomarkdetect"}}};
  return *known;
}
constexpr const char* kFrei0r = "frei0r-filter-";
constexpr const char* kFrei0rPackages = "frei0r-plugins (with gstreamer1.0-plugins-bad)";

std::string NameOf(GstElementFactory* factory) { return GST_OBJECT_NAME(factory); }

std::string PackageOf(GstElementFactory* factory) {
  const std::string name = NameOf(factory);
  if (name.starts_with(kFrei0r)) return kFrei0rPackages;
  std::string package;
  if (GstPlugin* plugin = gst_plugin_feature_get_plugin(GST_PLUGIN_FEATURE(factory))) {
    const std::string source = gst_plugin_get_source(plugin);
    if (source.starts_with("gst-plugins-")) package = "gstreamer1.0-" + source.substr(4);
    gst_object_unref(plugin);
  }
  return package;
}

// What the registry tells without loading anything.
bool LooksLikeEffect(GstElementFactory* factory) {
  const char* klass = gst_element_factory_get_metadata(factory, GST_ELEMENT_METADATA_KLASS);
  if (klass == nullptr || std::strstr(klass, "Effect") == nullptr || std::strstr(klass, "Video") == nullptr)
    return false;
  // None of them is a transform, and loading one of libav's brings in all of it.
  if (std::strstr(klass, "Deinterlace") != nullptr) return false;
  int sinks = 0, sources = 0;
  for (const GList* at = gst_element_factory_get_static_pad_templates(factory); at != nullptr; at = at->next) {
    const auto* pad = static_cast<const GstStaticPadTemplate*>(at->data);
    if (pad->presence != GST_PAD_ALWAYS) return false;
    ++(pad->direction == GST_PAD_SINK ? sinks : sources);
  }
  return sinks == 1 && sources == 1;
}

// Loads the plug-in of the factory. Elements that are no transforms may hold frames back, send more than they got or
// need a pipeline around them; videorate is a transform and does all of that.
bool IsTransform(GstElementFactory* factory) {
  if (NameOf(factory) == "videorate") return false;
  GstPluginFeature* const loaded = gst_plugin_feature_load(GST_PLUGIN_FEATURE(factory));
  if (loaded == nullptr) return false;
  const GType type = gst_element_factory_get_element_type(GST_ELEMENT_FACTORY(loaded));
  gst_object_unref(loaded);
  return g_type_is_a(type, GST_TYPE_BASE_TRANSFORM) != FALSE;
}

// Sizes at which elements are known to write outside their memory or to divide by zero.
struct SizeRule {
  int least = 1;     // of width and height
  int multiple = 1;  // of both
};
SizeRule SizesOf(GstElementFactory* factory) {
  if (g_strcmp0(gst_plugin_feature_get_plugin_name(GST_PLUGIN_FEATURE(factory)), "effectv") != 0) return {};
  return {32, NameOf(factory) == "rippletv" ? 2 : 1};
}

std::vector<FactoryPtr> Candidates() {
  std::vector<FactoryPtr> found;
  GList* const all = gst_registry_get_feature_list(gst_registry_get(), GST_TYPE_ELEMENT_FACTORY);
  for (GList* at = all; at != nullptr; at = at->next) {
    auto* const factory = GST_ELEMENT_FACTORY(at->data);
    if (LooksLikeEffect(factory)) found.emplace_back(GST_ELEMENT_FACTORY(gst_object_ref(factory)));
  }
  gst_plugin_feature_list_free(all);
  return found;
}

// --- one effect -----------------------------------------------------------------------------------------------------

class Effect final : public PQEffect {
 public:
  explicit Effect(ElementPtr element) : element_(std::move(element)) {}
  ~Effect() override { Shut(); }

  PQPlatformResult GetStreamCount(int& inputs, int& outputs) override {
    inputs = element_->numsinkpads, outputs = element_->numsrcpads;
    return {};
  }
  PQPlatformResult GetSettings(std::vector<PQEffectSetting>& settings) override {
    settings = ListSettings(element_.get());
    return {};
  }
  PQPlatformResult SetSettings(const std::string& settings) override {
    return ApplySettings(element_.get(), settings, set_);
  }
  PQPlatformResult SetInputType(const PQEffectType& type) override;
  PQPlatformResult SetOutputType(const PQEffectType& type) override;
  PQEffectWay Way() override;
  PQPlatformResult Process(const PQPlatformBlock& frame) override;
  PQPlatformResult ProcessInput(const PQPlatformBlock& frame) override;
  PQPlatformResult ProcessOutput(const PQFrameMemory& memory, PQPlatformBlock& frame) override;

 private:
  static Effect* Of(GstPad* pad) { return static_cast<Effect*>(gst_pad_get_element_private(pad)); }
  static GstFlowReturn OnBuffer(GstPad* pad, GstObject* parent, GstBuffer* buffer);
  static gboolean OnEvent(GstPad* pad, GstObject* parent, GstEvent* event);
  static gboolean OnQuery(GstPad* pad, GstObject* parent, GstQuery* query);
  static GstBusSyncReply OnMessage(GstBus* bus, GstMessage* message, gpointer data);

  PQPlatformResult Open(bool converted);
  PQPlatformResult Surround();
  void Shut();
  GstBuffer* Wrap(const PQPlatformBlock& frame, bool writable);
  // Runs the effect on the buffer, which is given away; what it made is then in made_.
  PQPlatformResult Push(GstBuffer* buffer);
  PQPlatformResult Failure(long code, std::string otherwise);
  void Drop(GstBuffer*& buffer);

  ElementPtr element_;
  ElementPtr top_;  // what stands between the pads: the element, or a bin of converters around it
  PadPtr source_, sink_;
  CapsPtr caps_;
  GstVideoInfo info_{};
  PQEffectType input_{};
  bool converted_ = false;
  std::vector<std::string> set_;
  GstBuffer* given_ = nullptr;  // from ProcessInput
  GstBuffer* made_ = nullptr;
  const PQFrameMemory* memory_ = nullptr;  // while ProcessOutput runs
  std::mutex mutex_;
  PQPlatformResult failure_;  // what the element said; under the mutex
};

GstFlowReturn Effect::OnBuffer(GstPad* pad, GstObject*, GstBuffer* buffer) {
  Effect* const self = Of(pad);
  self->Drop(self->made_);
  self->made_ = buffer;
  return GST_FLOW_OK;
}

gboolean Effect::OnEvent(GstPad*, GstObject*, GstEvent* event) {
  gst_event_unref(event);
  return TRUE;
}

// Frames of one form only, and memory for them that comes from whoever will have them.
gboolean Effect::OnQuery(GstPad* pad, GstObject* parent, GstQuery* query) {
  Effect* const self = Of(pad);
  switch (GST_QUERY_TYPE(query)) {
    case GST_QUERY_CAPS: {
      GstCaps* filter = nullptr;
      gst_query_parse_caps(query, &filter);
      const CapsPtr result(filter != nullptr
                               ? gst_caps_intersect_full(filter, self->caps_.get(), GST_CAPS_INTERSECT_FIRST)
                               : gst_caps_ref(self->caps_.get()));
      gst_query_set_caps_result(query, result.get());
      return TRUE;
    }
    case GST_QUERY_ACCEPT_CAPS: {
      GstCaps* caps = nullptr;
      gst_query_parse_accept_caps(query, &caps);
      gst_query_set_accept_caps_result(query, gst_caps_can_intersect(caps, self->caps_.get()));
      return TRUE;
    }
    case GST_QUERY_ALLOCATION: {
      if (GST_PAD_DIRECTION(pad) != GST_PAD_SINK) return FALSE;
      GstAllocator* const allocator = MakeFrameAllocator(
          [self](std::int64_t step, std::int64_t rows, std::uint8_t*& data) -> std::shared_ptr<void> {
            return self->memory_ != nullptr ? (*self->memory_)(step, rows, data) : nullptr;
          },
          self->info_);
      GstAllocationParams params;
      gst_allocation_params_init(&params);
      gst_query_add_allocation_param(query, allocator, &params);
      gst_query_add_allocation_meta(query, GST_VIDEO_META_API_TYPE, nullptr);
      gst_object_unref(allocator);
      return TRUE;
    }
    default:
      return gst_pad_query_default(pad, parent, query);
  }
}

GstBusSyncReply Effect::OnMessage(GstBus*, GstMessage* message, gpointer data) {
  if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
    auto* const self = static_cast<Effect*>(data);
    const std::lock_guard lock(self->mutex_);
    if (self->failure_.Ok()) self->failure_ = FromMessage(message);
  }
  gst_message_unref(message);
  return GST_BUS_DROP;
}

PQPlatformResult Effect::Failure(long code, std::string otherwise) {
  const std::lock_guard lock(mutex_);
  PQPlatformResult result = std::exchange(failure_, {});
  return result.Ok() ? PQPlatformResult(code, std::move(otherwise)) : result;
}

void Effect::Drop(GstBuffer*& buffer) {
  if (buffer != nullptr) gst_buffer_unref(buffer);
  buffer = nullptr;
}

PQPlatformResult Effect::SetInputType(const PQEffectType& type) {
  Shut();
  input_ = {};
  const gint64 bytes = gint64{3} * type.width * type.height;
  if (type.width < 1 || type.height < 1 || bytes > G_MAXINT32) {
    return {kPlatformFormat, "frames of " + std::to_string(type.width) + " by " + std::to_string(type.height)};
  }
  const SizeRule rule = SizesOf(gst_element_get_factory(element_.get()));
  if (std::min(type.width, type.height) < rule.least || type.width % rule.multiple != 0 ||
      type.height % rule.multiple != 0) {
    return {kPlatformFormat, "frames of " + std::to_string(type.width) + " by " + std::to_string(type.height) +
                                 " would make it write outside its memory; it takes " +
                                 (rule.multiple > 1 ? "even sides" : "sides") + " from " + std::to_string(rule.least) +
                                 " pixels on"};
  }
  caps_.reset(gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, "BGR", "width", G_TYPE_INT, type.width,
                                  "height", G_TYPE_INT, type.height, "framerate", GST_TYPE_FRACTION, 25, 1, nullptr));
  if (!gst_video_info_from_caps(&info_, caps_.get())) return {kPlatformFormat, "GStreamer has no such frames"};
  input_ = type;
  return {};
}

PQPlatformResult Effect::SetOutputType(const PQEffectType& type) {
  if (input_.width < 1) return {kPlatformState, "the input has no type yet"};
  if (type.width != input_.width || type.height != input_.height) {
    return {kPlatformFormat, "the output cannot have another size than the input"};
  }
  // Rows are packed, and GStreamer's own are not unless they end on 4 bytes: a filter for video looks, others may not.
  const bool looks = GST_IS_VIDEO_FILTER(element_.get()) || type.width % 4 == 0;
  PQPlatformResult result = looks ? Open(false) : PQPlatformResult(kPlatformFormat, {});
  if (!result.Ok()) {
    if (PQPlatformResult second = Open(true); second.Ok() || result.detail.empty() || second.code == kPlatformMissing) {
      result = std::move(second);
    }
  }
  if (!result.Ok()) Shut();
  return result;
}

// The element between two converters.
PQPlatformResult Effect::Surround() {
  PQPlatformResult result;
  ElementPtr before = MakeElement("videoconvert", result), after = MakeElement("videoconvert", result);
  if (before == nullptr || after == nullptr) return result;
  top_.reset(GST_ELEMENT(gst_object_ref_sink(gst_bin_new(nullptr))));
  gst_bin_add_many(GST_BIN(top_.get()), before.get(), element_.get(), after.get(), nullptr);
  if (!gst_element_link_many(before.get(), element_.get(), after.get(), nullptr)) {
    return {kPlatformFormat, "the effect takes no frames that videoconvert can make"};
  }
  const PadPtr in(gst_element_get_static_pad(before.get(), "sink")),
      out(gst_element_get_static_pad(after.get(), "src"));
  gst_element_add_pad(top_.get(), gst_ghost_pad_new("sink", in.get()));
  gst_element_add_pad(top_.get(), gst_ghost_pad_new("src", out.get()));
  return {};
}

PQPlatformResult Effect::Open(bool converted) {
  Shut();
  converted_ = converted;
  if (converted) {
    if (auto result = Surround(); !result.Ok()) return result;
  } else {
    top_.reset(GST_ELEMENT(gst_object_ref(element_.get())));
  }
  GstBus* const bus = gst_bus_new();
  gst_bus_set_sync_handler(bus, OnMessage, this, nullptr);
  gst_element_set_bus(top_.get(), bus);
  gst_object_unref(bus);

  const auto make_pad = [this](const char* name, GstPadDirection direction) {
    PadPtr pad(GST_PAD(gst_object_ref_sink(gst_pad_new(name, direction))));
    gst_pad_set_element_private(pad.get(), this);
    if (direction == GST_PAD_SINK) gst_pad_set_chain_function(pad.get(), OnBuffer);
    gst_pad_set_event_function(pad.get(), OnEvent);
    gst_pad_set_query_function(pad.get(), OnQuery);
    gst_pad_set_active(pad.get(), TRUE);
    return pad;
  };
  source_ = make_pad("in", GST_PAD_SRC);
  sink_ = make_pad("out", GST_PAD_SINK);
  const PadPtr in(gst_element_get_static_pad(top_.get(), "sink")), out(gst_element_get_static_pad(top_.get(), "src"));
  const auto refused = [this] {
    return Failure(kPlatformFormat, "the effect, as it is set, does not make frames of " +
                                        std::to_string(input_.width) + " by " + std::to_string(input_.height) +
                                        " pixels of 24 bits from such frames");
  };
  if (in == nullptr || out == nullptr || gst_pad_link(source_.get(), in.get()) != GST_PAD_LINK_OK ||
      gst_pad_link(out.get(), sink_.get()) != GST_PAD_LINK_OK) {
    return refused();
  }
  if (gst_element_set_state(top_.get(), GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
    return Failure(kPlatformFailed, "the effect does not start");
  }
  gst_pad_push_event(source_.get(), gst_event_new_stream_start("effect"));
  if (!gst_pad_push_event(source_.get(), gst_event_new_caps(caps_.get()))) return refused();
  GstSegment segment;
  gst_segment_init(&segment, GST_FORMAT_TIME);
  gst_pad_push_event(source_.get(), gst_event_new_segment(&segment));
  return {};
}

void Effect::Shut() {
  Drop(given_);
  Drop(made_);
  if (top_ != nullptr) {
    gst_element_set_state(top_.get(), GST_STATE_NULL);
    gst_element_set_bus(top_.get(), nullptr);
  }
  for (PadPtr* pad : {&source_, &sink_}) {
    if (*pad == nullptr) continue;
    gst_pad_set_active(pad->get(), FALSE);
    const PadPtr peer(gst_pad_get_peer(pad->get()));
    if (peer != nullptr && GST_PAD_IS_SRC(pad->get())) gst_pad_unlink(pad->get(), peer.get());
    if (peer != nullptr && GST_PAD_IS_SINK(pad->get())) gst_pad_unlink(peer.get(), pad->get());
    pad->reset();
  }
  if (top_ != nullptr && converted_) gst_bin_remove(GST_BIN(top_.get()), element_.get());
  top_.reset();
  const std::lock_guard lock(mutex_);
  failure_ = {};
}

PQEffectWay Effect::Way() {
  auto* const transform = GST_BASE_TRANSFORM(element_.get());
  if (converted_) return PQEffectWay::Copy;
  if (gst_base_transform_is_passthrough(transform)) return PQEffectWay::Untouched;
  return gst_base_transform_is_in_place(transform) ? PQEffectWay::InPlace : PQEffectWay::Copy;
}

GstBuffer* Effect::Wrap(const PQPlatformBlock& frame, bool writable) {
  GstBuffer* const buffer = WrapBlock(frame, {}, writable);
  if (frame.step != GST_VIDEO_INFO_PLANE_STRIDE(&info_, 0)) {
    std::array<gsize, GST_VIDEO_MAX_PLANES> offset{};
    std::array<gint, GST_VIDEO_MAX_PLANES> stride{static_cast<gint>(frame.step)};
    gst_buffer_add_video_meta_full(buffer, GST_VIDEO_FRAME_FLAG_NONE, GST_VIDEO_FORMAT_BGR,
                                   static_cast<guint>(input_.width), static_cast<guint>(input_.height), 1,
                                   offset.data(), stride.data());
  }
  return buffer;
}

PQPlatformResult Effect::Push(GstBuffer* buffer) {
  Drop(made_);
  const GstFlowReturn flow = gst_pad_push(source_.get(), buffer);
  if (flow != GST_FLOW_OK)
    return Failure(kPlatformFailed, std::string("the effect answers ") + gst_flow_get_name(flow));
  if (made_ == nullptr) return {kPlatformFailed, "the effect gave no frame"};
  return {};
}

namespace {

// Where the pixels of a buffer are, while it is mapped.
class Mapped {
 public:
  Mapped(GstBuffer* buffer, const GstVideoInfo& info)
      : mapped_(gst_video_frame_map(&frame_, &info, buffer, GST_MAP_READ) != FALSE) {}
  ~Mapped() {
    if (mapped_) gst_video_frame_unmap(&frame_);
  }
  Mapped(const Mapped&) = delete;
  Mapped& operator=(const Mapped&) = delete;
  const std::uint8_t* Data() const {
    return mapped_ ? static_cast<const std::uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&frame_, 0)) : nullptr;
  }
  std::int64_t Step() const { return GST_VIDEO_FRAME_PLANE_STRIDE(&frame_, 0); }

 private:
  GstVideoFrame frame_{};
  bool mapped_;
};

PQPlatformResult Unreadable() { return {kPlatformFailed, "the effect's frame cannot be read"}; }

void CopyRows(const Mapped& from, std::uint8_t* to, std::int64_t step, int rows) {
  for (int y = 0; y < rows; ++y)
    std::memcpy(to + y * step, from.Data() + y * from.Step(), static_cast<std::size_t>(step));
}

}  // namespace

PQPlatformResult Effect::Process(const PQPlatformBlock& frame) {
  if (sink_ == nullptr) return {kPlatformState, "the effect is not ready"};
  if (auto result = Push(Wrap(frame, true)); !result.Ok()) return result;
  PQPlatformResult result;
  {
    const Mapped made(made_, info_);
    if (made.Data() == nullptr) {
      result = Unreadable();
    } else if (made.Data() != frame.data) {  // it chose to make a copy after all
      CopyRows(made, const_cast<std::uint8_t*>(frame.data), frame.step, input_.height);
    }
  }
  Drop(made_);
  return result;
}

PQPlatformResult Effect::ProcessInput(const PQPlatformBlock& frame) {
  if (sink_ == nullptr) return {kPlatformState, "the effect is not ready"};
  Drop(given_);
  given_ = Wrap(frame, false);
  return {};
}

PQPlatformResult Effect::ProcessOutput(const PQFrameMemory& memory, PQPlatformBlock& frame) {
  if (given_ == nullptr) return {kPlatformState, "the effect has no frame"};
  memory_ = &memory;
  PQPlatformResult result = Push(std::exchange(given_, nullptr));
  memory_ = nullptr;
  if (!result.Ok()) return result;
  frame = {};
  frame.step = std::int64_t{input_.width} * 3;
  frame.size = static_cast<std::size_t>(frame.step * input_.height);
  const std::uint8_t* start = nullptr;
  bool packed = false;
  {
    const Mapped made(made_, info_);
    if (made.Data() == nullptr) {
      result = Unreadable();
    } else {
      start = made.Data();
      packed = made.Step() == frame.step;
    }
  }
  const std::uint8_t* data = nullptr;
  if (result.Ok() && packed) frame.keep_alive = TakeFrameMemory(made_, data);
  if (result.Ok() && (frame.keep_alive == nullptr || data != start)) {
    std::uint8_t* to = nullptr;
    auto owner = memory(frame.step, input_.height, to);
    if (owner == nullptr || to == nullptr) {
      result = {kPlatformFailed, "there is no memory for the frame"};
    } else {
      const Mapped made(made_, info_);
      CopyRows(made, to, frame.step, input_.height);
      frame.keep_alive = std::move(owner);
      data = to;
    }
  }
  frame.data = data;
  frame.own = result.Ok();
  Drop(made_);
  return result;
}

// --- all of them ----------------------------------------------------------------------------------------------------

class Effects final : public PQEffects {
 public:
  PQPlatformResult Enumerate(std::vector<PQEffectInfo>& effects) override {
    effects.clear();
    std::map<std::string, int> times;
    for (const FactoryPtr& factory : Candidates()) {
      if (!IsTransform(factory.get())) continue;
      const auto text = [&factory](const char* key) {
        const char* value = gst_element_factory_get_metadata(factory.get(), key);
        return std::string(value != nullptr ? value : "");
      };
      PQEffectInfo info;
      info.factory = NameOf(factory.get());
      info.id = EffectId(info.factory);
      info.name = text(GST_ELEMENT_METADATA_LONGNAME);
      if (info.name.empty()) info.name = info.factory;
      info.package = PackageOf(factory.get());
      info.help = text(GST_ELEMENT_METADATA_DESCRIPTION);
      ++times[info.name];
      effects.push_back(std::move(info));
    }
    for (PQEffectInfo& info : effects) {
      if (times[info.name] > 1) info.name += " (" + info.factory + ")";
    }
    std::sort(effects.begin(), effects.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    return {};
  }

  std::unique_ptr<PQEffect> Create(const std::string& id, PQPlatformResult& result) override {
    result = {};
    for (const FactoryPtr& factory : Candidates()) {
      if (EffectId(NameOf(factory.get())) != id) continue;
      const std::string name = NameOf(factory.get());
      if (!IsTransform(factory.get())) {
        result = {kPlatformFormat, "the GStreamer element " + name + " does not work frame by frame"};
        return nullptr;
      }
      ElementPtr element = MakeElement(name.c_str(), result);
      return element != nullptr ? std::make_unique<Effect>(std::move(element)) : nullptr;
    }
    result = Missing(id);
    return nullptr;
  }

  void MorePackages(std::vector<PQEffectPackage>& packages) override {
    packages.clear();
    for (const KnownPackage& known : KnownPackages()) {
      if (std::any_of(known.effects.begin(), known.effects.end(), [](const char* name) { return HasElement(name); })) {
        continue;
      }
      std::string brings = std::to_string(known.effects.size()) + " effects:";
      for (const char* name : known.effects) brings += std::string(name == known.effects.front() ? " " : ", ") + name;
      packages.push_back({known.package, std::move(brings)});
    }
    const auto candidates = Candidates();
    if (std::none_of(candidates.begin(), candidates.end(),
                     [](const FactoryPtr& factory) { return NameOf(factory.get()).starts_with(kFrei0r); })) {
      packages.push_back({kFrei0rPackages, "about 90 effects: frei0r-filter-cartoon, frei0r-filter-glow and others"});
    }
  }

 private:
  static PQPlatformResult Missing(const std::string& id) {
    for (const KnownPackage& known : KnownPackages()) {
      for (const char* name : known.effects) {
        if (EffectId(name) != id) continue;
        return {kPlatformMissing,
                std::string("the GStreamer element ") + name + " is not installed; install " + known.package};
      }
    }
    return {kPlatformMissing, "no effect on this machine has the identifier " + id};
  }
};

}  // namespace

std::unique_ptr<PQEffects> MakeEffects() { return std::make_unique<Effects>(); }

}  // namespace pantiq::gst
