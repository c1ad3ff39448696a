#include "pantiq/platform/gst/PQGstOutput.h"

#include <gst/app/gstappsrc.h>
#include <gst/audio/audio.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <utility>

#include "pantiq/platform/gst/PQGstCommon.h"
#include "pantiq/platform/gst/PQGstDevices.h"

namespace pantiq::gst {
namespace {

using namespace std::chrono_literals;

constexpr int kRawFrames = 2;              // frames that wait for their conversion
constexpr std::int64_t kSound = 20000000;  // 100 ns of sound inside the graph
constexpr auto kLongestSend = 1s;          // unless senders shall wait
constexpr std::size_t kLatenesses = 4096;  // frames that the statistics look back on
constexpr guint64 kWithSound = 20000000;   // ns that a frame may be late before it is left out for the sound's sake
constexpr std::int64_t kPalPeriod = 400000, kNtscPeriod = 333667;
constexpr long kDVNtsc = 2000, kDVPal = 2001;
constexpr auto kStepLimit = std::chrono::milliseconds(500);  // after it a step counts as lost

// What the graph's threads and its callers share.
struct Flow final : BusFlow {
  Flow() { interrupted = true; }  // nothing is taken before the first Run
  void OnMessage(GstMessage* message) override;
  bool IsFromVideo(GstObject* source) const {
    for (; source != nullptr; source = GST_OBJECT_PARENT(source)) {
      if (source == GST_OBJECT_CAST(video_render)) return true;
    }
    return false;
  }

  int frames = 0;           // raw frames inside
  std::int64_t sound = 0;   // 100 ns of sound inside
  bool paused = false, senders_wait = false, stepping = false, running = false;
  std::chrono::steady_clock::time_point stepped;  // when the step that has not been answered was asked for
  PQOutputListener on_event;
  GstElement* video_render = nullptr;  // compared, never used
  std::array<std::int64_t, kLatenesses> lateness{};
  std::size_t measured = 0;
};

void Flow::OnMessage(GstMessage* message) {
  const bool first = failure.Ok();
  BusFlow::OnMessage(message);
  if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_STEP_DONE) stepping = false;
  if (GST_MESSAGE_TYPE(message) != GST_MESSAGE_ERROR || !first || !running || !on_event) return;
  GError* error = nullptr;
  gst_message_parse_error(message, &error, nullptr);
  // A sink says so when its window was closed.
  const bool closed =
      g_error_matches(error, GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_NOT_FOUND) && IsFromVideo(GST_MESSAGE_SRC(message));
  g_error_free(error);
  on_event(closed ? kOutputUserAbort : kOutputDeviceLost, failure);
}

// A sink tells with each frame how late it came; negative is early. Nobody upstream needs to know.
GstPadProbeReturn OnQuality(GstPad*, GstPadProbeInfo* info, gpointer data) {
  GstEvent* event = GST_PAD_PROBE_INFO_EVENT(info);
  if (GST_EVENT_TYPE(event) != GST_EVENT_QOS) return GST_PAD_PROBE_OK;
  Flow& flow = **static_cast<std::shared_ptr<Flow>*>(data);
  const std::lock_guard lock(flow.mutex);
  GstClockTimeDiff late = 0;
  gst_event_parse_qos(event, nullptr, nullptr, &late, nullptr);
  flow.lateness[flow.measured++ % kLatenesses] = std::max<std::int64_t>(late, 0) / kNanosecondsPerUnit;
  return GST_PAD_PROBE_DROP;
}

// One wait on a clock.
struct Advice {
  std::mutex mutex;
  std::function<void()> tick;  // empty once unadvised
  GstClockID id = nullptr;
};

gboolean OnClock(GstClock*, GstClockTime time, GstClockID, gpointer data) {
  if (!GST_CLOCK_TIME_IS_VALID(time)) return TRUE;  // unscheduled
  Advice& advice = **static_cast<std::shared_ptr<Advice>*>(data);
  const std::lock_guard lock(advice.mutex);
  if (advice.tick) advice.tick();
  return TRUE;
}

class Clock final : public PQReferenceClock {
 public:
  explicit Clock(GstClock* clock) : clock_(clock) {}
  ~Clock() override {
    while (!advices_.empty()) Unadvise(advices_.begin()->first);
    gst_object_unref(clock_);
  }
  PQPlatformResult GetTime(std::int64_t& now) override {
    now = static_cast<std::int64_t>(gst_clock_get_time(clock_)) / kNanosecondsPerUnit;
    return {};
  }
  PQPlatformResult AdvisePeriodic(std::int64_t start, std::int64_t period, std::function<void()> tick,
                                  std::uint64_t& cookie) override {
    if (period < 1) return {kPlatformFormat, "a clock's period is at least 100 ns"};
    return Wait(gst_clock_new_periodic_id(clock_, Nanoseconds(start), Nanoseconds(period)), std::move(tick), cookie);
  }
  PQPlatformResult AdviseTime(std::int64_t base, std::int64_t delay, std::function<void()> tick,
                              std::uint64_t& cookie) override {
    return Wait(gst_clock_new_single_shot_id(clock_, Nanoseconds(base + delay)), std::move(tick), cookie);
  }
  void Unadvise(std::uint64_t cookie) override {
    std::shared_ptr<Advice> advice;
    {
      const std::lock_guard lock(mutex_);
      const auto found = advices_.find(cookie);
      if (found == advices_.end()) return;
      advice = std::move(found->second);
      advices_.erase(found);
    }
    gst_clock_id_unschedule(advice->id);
    {
      const std::lock_guard lock(advice->mutex);
      advice->tick = nullptr;
    }
    gst_clock_id_unref(advice->id);
  }

 private:
  static GstClockTime Nanoseconds(std::int64_t units) {
    return static_cast<GstClockTime>(std::max<std::int64_t>(units, 0) * kNanosecondsPerUnit);
  }
  PQPlatformResult Wait(GstClockID id, std::function<void()> tick, std::uint64_t& cookie) {
    auto advice = std::make_shared<Advice>();
    advice->id = id;
    advice->tick = std::move(tick);
    {
      const std::lock_guard lock(mutex_);
      cookie = ++last_cookie_;
      advices_[cookie] = advice;
    }
    const GstClockReturn answer =
        gst_clock_id_wait_async(id, OnClock, new std::shared_ptr<Advice>(advice),
                                [](gpointer data) { delete static_cast<std::shared_ptr<Advice>*>(data); });
    if (answer == GST_CLOCK_OK) return {};
    Unadvise(cookie);
    cookie = 0;
    return {kPlatformFailed, "the clock gives no such advice"};
  }
  GstClock* clock_;
  std::mutex mutex_;  // a leaf
  std::map<std::uint64_t, std::shared_ptr<Advice>> advices_;
  std::uint64_t last_cookie_ = 0;
};

class Output final : public PQMediaOutput {
 public:
  Output() : flow_(std::make_shared<Flow>()) {}
  ~Output() override;

  PQPlatformResult CreateCaptureBuilder() override { return {}; }
  PQPlatformResult CreateGraph() override;
  PQPlatformResult SetFiltergraph() override { return Built(); }
  PQPlatformResult RegisterAdditionalFilters() override { return Built(); }
  PQPlatformResult BindDevice(PQDeviceCategory category, const std::string& id, PQFilterId& filter) override;
  PQPlatformResult QueryMediaControl() override { return Built(); }
  PQPlatformResult CreateFilter(PQOutputFilter kind, PQVideoSubtype subtype, PQFilterId& filter) override;
  PQPlatformResult AddFilter(PQFilterId id, const std::string& name) override;
  PQPlatformResult SetVideoSize(PQFilterId source, int width, int height, std::int64_t period) override;
  PQPlatformResult SetAudioFormat(PQFilterId source, const PQAudioFormat& format) override;
  PQDigitalVideoOffer QueryDigitalVideo(PQFilterId) override { return {}; }
  PQPlatformResult QueryDVEncoder(PQFilterId id) override {
    return Of(id, Kind::DVEncoder) ? PQPlatformResult() : None();
  }
  PQPlatformResult GetDVFormat(PQFilterId encoder, PQDVEncoderFormat& format) override;
  PQPlatformResult SetDVFormat(PQFilterId encoder, const PQDVEncoderFormat& format) override;
  PQPlatformResult Render(PQFilterId from, PQFilterId via, PQFilterId to) override;
  void SetMediaEvent(PQOutputListener on_event) override {
    const std::lock_guard lock(flow_->mutex);
    flow_->on_event = std::move(on_event);
  }
  PQPlatformResult QueryMediaFilter() override { return Built(); }
  PQPlatformResult Run() override;
  PQPlatformResult Pause(bool senders_wait) override;
  PQPlatformResult Stop() override;
  PQPlatformResult Step() override;
  std::shared_ptr<PQReferenceClock> GetClock() override;
  PQOutputStatistics GetStatistics() override;
  PQPlatformResult SendVideo(PQFilterId source, const PQPlatformBlock& frame) override;
  PQPlatformResult SendAudio(PQFilterId source, const PQPlatformBlock& block, std::size_t& taken) override;
  PQPlatformResult EndOfStream(PQFilterId source) override;
  PQPlatformResult Drain(int limit_milliseconds) override;
  void Interrupt() override {
    const std::lock_guard lock(flow_->mutex);
    flow_->interrupted = true;
    flow_->changed.notify_all();
  }

 private:
  enum class Kind {
    None,
    VideoSource,
    AudioSource,
    DVMux,
    DVEncoder,
    ColorConverter,
    AudioWrapper,
    VideoRender,
    AudioRender
  };
  struct Filter {
    Kind kind = Kind::None;
    PQVideoSubtype subtype = PQVideoSubtype::Rgb24;
    ElementPtr element;
    std::string device;
    bool added = false, wired = false;
    int width = 0, height = 0;
    std::int64_t period = 0;
    PQAudioFormat audio;
    bool IsDigitalVideo() const { return device.starts_with(kDigitalVideoPrefix); }
  };

  PQPlatformResult Built() const {
    return pipeline_ != nullptr ? PQPlatformResult() : PQPlatformResult(kPlatformState, "there is no graph");
  }
  static PQPlatformResult None() { return {kPlatformState, "there is no such filter in the graph"}; }
  Filter* Find(PQFilterId id) {
    return id >= 1 && static_cast<std::size_t>(id) <= filters_.size() ? &filters_[static_cast<std::size_t>(id) - 1]
                                                                      : nullptr;
  }
  Filter* Of(PQFilterId id, Kind kind) {
    Filter* filter = Find(id);
    return filter != nullptr && filter->kind == kind ? filter : nullptr;
  }
  Filter* Added(Kind kind) {
    for (Filter& filter : filters_) {
      if (filter.kind == kind && filter.added) return &filter;
    }
    return nullptr;
  }
  PQFilterId Keep(Filter filter) {
    filters_.push_back(std::move(filter));
    return static_cast<PQFilterId>(filters_.size());
  }
  PQPlatformResult Wire(GstElement* from, const std::string& description, GstElement* to, bool to_mux = false);
  PQPlatformResult RenderDigitalVideo(Filter& source, Filter& render);
  PQPlatformResult Refusal() const;
  template <class HasRoom>
  PQPlatformResult AwaitRoom(std::unique_lock<std::mutex>& lock, HasRoom has_room);

  std::shared_ptr<Flow> flow_;
  ElementPtr pipeline_;
  std::vector<Filter> filters_;
  PQDVEncoderFormat dv_;  // under the flow's mutex
  bool dv_set_ = false;
};

Output::~Output() {
  SetMediaEvent(nullptr);
  Interrupt();
  if (pipeline_ != nullptr) gst_element_set_state(pipeline_.get(), GST_STATE_NULL);
  for (Filter& filter : filters_) {
    // Devices are open already when they are not added yet, and those that were not wired are left alone by the graph.
    if (filter.element != nullptr) gst_element_set_locked_state(filter.element.get(), FALSE);
    if (filter.element != nullptr) gst_element_set_state(filter.element.get(), GST_STATE_NULL);
  }
}

PQPlatformResult Output::CreateGraph() {
  if (auto result = Initialise(); !result.Ok()) return result;
  pipeline_ = MakePipeline(flow_);
  return {};
}

PQPlatformResult Output::BindDevice(PQDeviceCategory category, const std::string& id, PQFilterId& filter) {
  filter = 0;
  PQPlatformResult result;
  bool silent = false;
  Filter made;
  made.kind = category == PQDeviceCategory::VideoRenderer ? Kind::VideoRender : Kind::AudioRender;
  made.device = id;
  made.element = OpenDevice(category, id, result, silent);
  if (made.element == nullptr) return result;
  // A plain sink keeps time only if it is told to.
  if (g_object_class_find_property(G_OBJECT_GET_CLASS(made.element.get()), "sync") != nullptr) {
    g_object_set(made.element.get(), "sync", TRUE, nullptr);
  }
  if (made.kind == Kind::VideoRender &&
      g_object_class_find_property(G_OBJECT_GET_CLASS(made.element.get()), "qos") != nullptr) {
    g_object_set(made.element.get(), "qos", TRUE, "max-lateness", gint64{-1}, nullptr);
    const PadPtr pad(gst_element_get_static_pad(made.element.get(), "sink"));
    if (pad != nullptr) {
      gst_pad_add_probe(pad.get(), GST_PAD_PROBE_TYPE_EVENT_UPSTREAM, OnQuality, new std::shared_ptr<Flow>(flow_),
                        [](gpointer data) { delete static_cast<std::shared_ptr<Flow>*>(data); });
    }
  }
  filter = Keep(std::move(made));
  return {};
}

PQPlatformResult Output::CreateFilter(PQOutputFilter kind, PQVideoSubtype subtype, PQFilterId& filter) {
  filter = 0;
  if (auto result = Built(); !result.Ok()) return result;
  struct Form {
    Kind kind;
    const char* element;
  };
  const Form form = kind == PQOutputFilter::VideoSource      ? Form{Kind::VideoSource, "appsrc"}
                    : kind == PQOutputFilter::AudioSource    ? Form{Kind::AudioSource, "appsrc"}
                    : kind == PQOutputFilter::DVMux          ? Form{Kind::DVMux, "avmux_dv"}
                    : kind == PQOutputFilter::DVEncoder      ? Form{Kind::DVEncoder, "avenc_dvvideo"}
                    : kind == PQOutputFilter::ColorConverter ? Form{Kind::ColorConverter, "videoconvert"}
                                                             : Form{Kind::AudioWrapper, "audioconvert"};
  PQPlatformResult result;
  Filter made;
  made.kind = form.kind, made.subtype = subtype;
  made.element = MakeElement(form.element, result);
  if (made.element == nullptr) return result;
  filter = Keep(std::move(made));
  return {};
}

PQPlatformResult Output::AddFilter(PQFilterId id, const std::string& name) {
  if (auto result = Built(); !result.Ok()) return result;
  Filter* filter = Find(id);
  if (filter == nullptr || filter->added) return None();
  filter->added = gst_bin_add(GST_BIN(pipeline_.get()), filter->element.get()) != FALSE;
  if (!filter->added) return {kPlatformFailed, "cannot add " + name};
  if (filter->kind == Kind::VideoRender) {
    const std::lock_guard lock(flow_->mutex);
    flow_->video_render = filter->element.get();
  }
  return {};
}

PQPlatformResult Output::SetVideoSize(PQFilterId id, int width, int height, std::int64_t period) {
  Filter* source = Of(id, Kind::VideoSource);
  if (source == nullptr) return None();
  if (width < 1 || height < 1 || width > 32767 || height > 32767) {
    return {kPlatformFormat, "a frame of " + std::to_string(width) + " by " + std::to_string(height) +
                                 " cannot be shown; 1 to 32767 pixels a side can"};
  }
  source->width = width, source->height = height, source->period = period;
  int numerator = 0, denominator = 1;
  FrameRate(period, numerator, denominator);
  const CapsPtr caps(gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING,
                                         source->subtype == PQVideoSubtype::Yuy2 ? "YUY2" : "BGR", "width", G_TYPE_INT,
                                         width, "height", G_TYPE_INT, height, "framerate", GST_TYPE_FRACTION, numerator,
                                         denominator, "pixel-aspect-ratio", GST_TYPE_FRACTION, 1, 1, nullptr));
  g_object_set(source->element.get(), "format", GST_FORMAT_TIME, "max-bytes", guint64{0}, nullptr);
  gst_app_src_set_caps(GST_APP_SRC(source->element.get()), caps.get());
  return {};
}

PQPlatformResult Output::SetAudioFormat(PQFilterId id, const PQAudioFormat& format) {
  Filter* source = Of(id, Kind::AudioSource);
  if (source == nullptr) return None();
  if (format.bits_per_sample != 16 || format.channels < 1 || format.channels > 8 || format.sample_rate < 1) {
    return {kPlatformFormat,
            "sound of " + std::to_string(format.channels) + " channels, " + std::to_string(format.bits_per_sample) +
                " bits, " + std::to_string(format.sample_rate) + " Hz cannot be taken: 1 to 8 channels of 16 bits are"};
  }
  source->audio = format;
  const CapsPtr caps(gst_caps_new_simple("audio/x-raw", "format", G_TYPE_STRING, "S16LE", "layout", G_TYPE_STRING,
                                         "interleaved", "rate", G_TYPE_INT, format.sample_rate, "channels", G_TYPE_INT,
                                         format.channels, nullptr));
  if (format.channels > 2) {
    gst_caps_set_simple(caps.get(), "channel-mask", GST_TYPE_BITMASK,
                        gst_audio_channel_get_fallback_mask(format.channels), nullptr);
  }
  g_object_set(source->element.get(), "format", GST_FORMAT_TIME, "max-bytes", guint64{0}, nullptr);
  gst_app_src_set_caps(GST_APP_SRC(source->element.get()), caps.get());
  return {};
}

PQPlatformResult Output::GetDVFormat(PQFilterId encoder, PQDVEncoderFormat& format) {
  if (Of(encoder, Kind::DVEncoder) == nullptr) return None();
  const std::lock_guard lock(flow_->mutex);
  format = dv_;
  return {};
}

PQPlatformResult Output::SetDVFormat(PQFilterId encoder, const PQDVEncoderFormat& format) {
  if (Of(encoder, Kind::DVEncoder) == nullptr) return None();
  const std::lock_guard lock(flow_->mutex);
  dv_ = format;
  dv_set_ = true;
  return {};
}

PQPlatformResult Output::Wire(GstElement* from, const std::string& description, GstElement* to, bool to_mux) {
  PQPlatformResult result;
  const ElementPtr chain = MakeBin(description, result);
  if (chain == nullptr) return result;
  if (!gst_bin_add(GST_BIN(pipeline_.get()), chain.get()) || !gst_element_link(from, chain.get()) ||
      !gst_element_link(chain.get(), to)) {
    gst_element_set_state(chain.get(), GST_STATE_NULL);
    if (GST_OBJECT_PARENT(chain.get()) == GST_OBJECT(pipeline_.get())) {
      gst_bin_remove(GST_BIN(pipeline_.get()), chain.get());
    }
    return {kPlatformFormat, std::string("the device ") + GST_OBJECT_NAME(to) + " does not take the stream"};
  }
  if (to_mux) RestampForMuxer(chain.get());
  return {};
}

PQPlatformResult Output::RenderDigitalVideo(Filter& source, Filter& render) {
  Filter* mux = Added(Kind::DVMux);
  Filter* encoder = Added(Kind::DVEncoder);
  if (mux == nullptr || encoder == nullptr) return {kPlatformFormat, "the device takes digital video only"};
  bool pal = false;
  {
    const std::lock_guard lock(flow_->mutex);
    if (!dv_set_) {
      // The encoder's own: the system whose rate is nearer.
      const std::int64_t between = (kPalPeriod + kNtscPeriod) / 2;
      dv_.format = source.period < 1 || source.period >= between ? kDVPal : kDVNtsc;
    }
    pal = dv_.format == kDVPal;
  }
  const std::string form = pal ? "format=I420,width=720,height=576,framerate=25/1,pixel-aspect-ratio=16/15"
                               : "format=Y41B,width=720,height=480,framerate=30000/1001,pixel-aspect-ratio=8/9";
  if (auto result = Wire(source.element.get(),
                         "videoconvert ! videoscale ! videorate ! capsfilter caps=\"video/x-raw," + form + "\"",
                         encoder->element.get());
      !result.Ok()) {
    return result;
  }
  if (auto result = Wire(encoder->element.get(), "queue", mux->element.get(), true); !result.Ok()) return result;
  if (!gst_element_link(mux->element.get(), render.element.get()))
    return {kPlatformFailed, "cannot wire the multiplexer"};
  source.wired = render.wired = mux->wired = encoder->wired = true;
  return {};
}

PQPlatformResult Output::Render(PQFilterId from, PQFilterId via, PQFilterId to) {
  if (auto result = Built(); !result.Ok()) return result;
  Filter* source = Find(from);
  Filter* render = Find(to);
  if (source == nullptr || render == nullptr || !source->added || !render->added) return None();
  if (source->kind == Kind::VideoSource && render->kind == Kind::VideoRender) {
    if (render->IsDigitalVideo()) return RenderDigitalVideo(*source, *render);
    if (auto result = Wire(source->element.get(),
                           "videoconvert qos=false ! videoscale qos=false ! "
                           "queue max-size-buffers=2 max-size-bytes=0 max-size-time=0",
                           render->element.get());
        !result.Ok()) {
      return result;
    }
    source->wired = render->wired = true;
    return {};
  }
  if (source->kind != Kind::AudioSource) return None();
  std::string chain = "audioconvert ! audioresample";
  if (render->kind == Kind::DVMux) {
    Filter* wrapper = Of(via, Kind::AudioWrapper);
    if (wrapper == nullptr) return None();
    if (auto result = Wire(source->element.get(), "queue", wrapper->element.get()); !result.Ok()) return result;
    if (auto result =
            Wire(wrapper->element.get(), "audioresample ! audio/x-raw,format=S16LE,rate=48000,channels=2 ! queue",
                 render->element.get(), true);
        !result.Ok()) {
      return result;
    }
    source->wired = wrapper->wired = true;
    return {};
  }
  if (render->kind != Kind::AudioRender) return None();
  if (auto result = Wire(source->element.get(), chain, render->element.get()); !result.Ok()) return result;
  source->wired = render->wired = true;
  // Without sound late frames are shown all the same: there is nothing that they could fall behind.
  if (Filter* video = Added(Kind::VideoRender);
      video != nullptr && g_object_class_find_property(G_OBJECT_GET_CLASS(video->element.get()), "qos") != nullptr) {
    g_object_set(video->element.get(), "max-lateness", static_cast<gint64>(kWithSound), nullptr);
  }
  return {};
}

// --- running --------------------------------------------------------------------------------------------------------

PQPlatformResult Output::Run() {
  if (auto result = Built(); !result.Ok()) return result;
  bool resumed = false;
  {
    const std::lock_guard lock(flow_->mutex);
    resumed = flow_->running && flow_->paused && flow_->failure.Ok();
    flow_->paused = flow_->senders_wait = flow_->stepping = false;
    flow_->interrupted = false;
    if (!resumed) {
      flow_->failure = {};
      flow_->end_of_stream = false;
      flow_->measured = 0;
    }
    flow_->changed.notify_all();
  }
  for (Filter& filter : filters_) {
    if (filter.added && !filter.wired) gst_element_set_locked_state(filter.element.get(), TRUE);
  }
  if (!resumed) gst_element_set_state(pipeline_.get(), GST_STATE_READY);
  const bool started = gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING) != GST_STATE_CHANGE_FAILURE;
  if (!started) gst_element_set_state(pipeline_.get(), GST_STATE_READY);
  const std::lock_guard lock(flow_->mutex);
  flow_->running = started;
  if (started) {
    // What went wrong on another thread meanwhile.
    if (!flow_->failure.Ok() && flow_->on_event) flow_->on_event(kOutputDeviceLost, flow_->failure);
    return {};
  }
  flow_->interrupted = true;
  return flow_->failure.Ok() ? PQPlatformResult(kPlatformFailed, "the graph does not start") : flow_->failure;
}

PQPlatformResult Output::Pause(bool senders_wait) {
  if (auto result = Built(); !result.Ok()) return result;
  {
    const std::lock_guard lock(flow_->mutex);
    if (!flow_->running) return {kPlatformState, "the graph does not run"};
    flow_->paused = true, flow_->senders_wait = senders_wait;
    flow_->changed.notify_all();
  }
  if (gst_element_set_state(pipeline_.get(), GST_STATE_PAUSED) != GST_STATE_CHANGE_FAILURE) return {};
  return {kPlatformFailed, "the graph does not pause"};
}

PQPlatformResult Output::Stop() {
  {
    const std::lock_guard lock(flow_->mutex);
    flow_->interrupted = true;
    flow_->running = flow_->paused = flow_->senders_wait = flow_->stepping = false;
    flow_->changed.notify_all();
  }
  if (pipeline_ != nullptr) gst_element_set_state(pipeline_.get(), GST_STATE_READY);
  return {};
}

PQPlatformResult Output::Step() {
  Filter* render = Added(Kind::VideoRender);
  if (render == nullptr) return None();
  {
    const std::lock_guard lock(flow_->mutex);
    if (!flow_->paused) return {kPlatformState, "only a paused graph goes frame by frame"};
    // A step that meets the graph on its way into the pause can be lost, answer and all.
    const auto now = std::chrono::steady_clock::now();
    if (flow_->stepping && now - flow_->stepped < kStepLimit) return {kPlatformTimeout, "the frame before is not shown yet"};
    flow_->stepping = true;
    flow_->stepped = now;
  }
  if (gst_element_send_event(render->element.get(), gst_event_new_step(GST_FORMAT_BUFFERS, 1, 1.0, TRUE, FALSE))) {
    return {};
  }
  const std::lock_guard lock(flow_->mutex);
  flow_->stepping = false;
  return {kPlatformFailed, "the device does not go frame by frame"};
}

std::shared_ptr<PQReferenceClock> Output::GetClock() {
  if (pipeline_ == nullptr) return nullptr;
  GstClock* clock = gst_pipeline_get_clock(GST_PIPELINE(pipeline_.get()));
  return clock != nullptr ? std::make_shared<Clock>(clock) : nullptr;
}

PQOutputStatistics Output::GetStatistics() {
  PQOutputStatistics statistics;
  std::vector<std::int64_t> lateness;
  ElementPtr render;
  {
    const std::lock_guard lock(flow_->mutex);
    lateness.assign(flow_->lateness.begin(),
                    flow_->lateness.begin() + static_cast<std::ptrdiff_t>(std::min(flow_->measured, kLatenesses)));
    if (flow_->video_render != nullptr) render.reset(GST_ELEMENT(gst_object_ref(flow_->video_render)));
  }
  if (!lateness.empty()) {
    const auto at = lateness.begin() + static_cast<std::ptrdiff_t>((lateness.size() - 1) * 95 / 100);
    std::nth_element(lateness.begin(), at, lateness.end());
    statistics.lateness_95 = *at;
  }
  if (render == nullptr || g_object_class_find_property(G_OBJECT_GET_CLASS(render.get()), "stats") == nullptr) {
    return statistics;
  }
  GstStructure* stats = nullptr;
  g_object_get(render.get(), "stats", &stats, nullptr);
  if (stats == nullptr) return statistics;
  guint64 shown = 0, dropped = 0;
  gst_structure_get_uint64(stats, "rendered", &shown);
  gst_structure_get_uint64(stats, "dropped", &dropped);
  gst_structure_free(stats);
  statistics.shown = static_cast<std::int64_t>(shown), statistics.dropped = static_cast<std::int64_t>(dropped);
  return statistics;
}

// --- samples --------------------------------------------------------------------------------------------------------

// Under the flow's mutex: why nothing is taken now; Ok if something may be.
PQPlatformResult Output::Refusal() const {
  if (!flow_->failure.Ok()) return flow_->failure;
  if (flow_->interrupted) return {kPlatformInterrupted, "the graph does not run"};
  return {};
}

template <class HasRoom>
PQPlatformResult Output::AwaitRoom(std::unique_lock<std::mutex>& lock, HasRoom has_room) {
  const auto limit = std::chrono::steady_clock::now() + kLongestSend;
  for (;;) {
    if (auto result = Refusal(); !result.Ok() || has_room()) return result;
    if (flow_->paused && flow_->senders_wait) {
      flow_->changed.wait(lock);
    } else if (flow_->paused || flow_->changed.wait_until(lock, limit) == std::cv_status::timeout) {
      if (has_room()) continue;
      return {kPlatformTimeout, "there is no room now"};
    }
  }
}

PQPlatformResult Output::SendVideo(PQFilterId id, const PQPlatformBlock& frame) {
  Filter* source = Of(id, Kind::VideoSource);
  if (source == nullptr || !source->wired) return None();
  const bool yuy2 = source->subtype == PQVideoSubtype::Yuy2;
  const std::int64_t row = yuy2 ? std::int64_t{(source->width + 1) / 2} * 4 : std::int64_t{source->width} * 3;
  if (frame.data == nullptr || frame.step < row ||
      frame.size < static_cast<std::size_t>(frame.step * (source->height - 1) + row)) {
    return {kPlatformFormat, "the frame is smaller than announced"};
  }
  {
    std::unique_lock lock(flow_->mutex);
    if (auto result = AwaitRoom(lock, [this] { return flow_->frames < kRawFrames; }); !result.Ok()) return result;
    ++flow_->frames;
  }
  std::shared_ptr<const void> released(nullptr, [flow = flow_](const void*) {
    const std::lock_guard lock(flow->mutex);
    --flow->frames;
    flow->changed.notify_all();
  });
  GstBuffer* buffer = WrapBlock(frame, std::move(released));
  gsize offset[GST_VIDEO_MAX_PLANES] = {0};
  gint stride[GST_VIDEO_MAX_PLANES] = {static_cast<gint>(frame.step)};
  gst_buffer_add_video_meta_full(buffer, GST_VIDEO_FRAME_FLAG_NONE, yuy2 ? GST_VIDEO_FORMAT_YUY2 : GST_VIDEO_FORMAT_BGR,
                                 static_cast<guint>(source->width), static_cast<guint>(source->height), 1, offset,
                                 stride);
  if (gst_app_src_push_buffer(GST_APP_SRC(source->element.get()), buffer) == GST_FLOW_OK) return {};
  const std::lock_guard lock(flow_->mutex);
  const PQPlatformResult why = Refusal();
  return why.Ok() ? PQPlatformResult(kPlatformFailed, "the graph takes no more frames") : why;
}

PQPlatformResult Output::SendAudio(PQFilterId id, const PQPlatformBlock& block, std::size_t& taken) {
  taken = 0;
  Filter* source = Of(id, Kind::AudioSource);
  if (source == nullptr || !source->wired) return None();
  const std::size_t align = static_cast<std::size_t>(source->audio.channels) * 2;
  if (block.data == nullptr || block.size % align != 0) return {kPlatformFormat, "the block holds no whole samples"};
  if (block.size == 0) return {};
  const std::int64_t rate = source->audio.sample_rate;
  std::int64_t length = 0;
  {
    std::unique_lock lock(flow_->mutex);
    // Held, it takes what comes: the frames beside it are what bounds it then.
    const auto holding = [this] { return flow_->paused && flow_->senders_wait; };
    if (auto result = AwaitRoom(lock, [&] { return flow_->sound < kSound || holding(); }); !result.Ok()) return result;
    const auto samples = static_cast<std::int64_t>(block.size / align);
    const std::int64_t room =
        holding() ? samples : std::max<std::int64_t>((kSound - flow_->sound) * rate / 10000000, 1);
    const std::int64_t some = std::min(samples, room);
    taken = static_cast<std::size_t>(some) * align;
    length = some * 10000000 / rate;
    flow_->sound += length;
  }
  std::shared_ptr<const void> released(nullptr, [flow = flow_, length](const void*) {
    const std::lock_guard lock(flow->mutex);
    flow->sound -= length;
    flow->changed.notify_all();
  });
  PQPlatformBlock part = block;
  part.size = taken;
  part.end = part.begin + length;
  if (gst_app_src_push_buffer(GST_APP_SRC(source->element.get()), WrapBlock(part, std::move(released))) ==
      GST_FLOW_OK) {
    return {};
  }
  taken = 0;
  const std::lock_guard lock(flow_->mutex);
  const PQPlatformResult why = Refusal();
  return why.Ok() ? PQPlatformResult(kPlatformFailed, "the graph takes no more sound") : why;
}

PQPlatformResult Output::EndOfStream(PQFilterId id) {
  Filter* source = Find(id);
  if (source == nullptr || !source->wired || (source->kind != Kind::VideoSource && source->kind != Kind::AudioSource)) {
    return None();
  }
  gst_app_src_end_of_stream(GST_APP_SRC(source->element.get()));
  return {};
}

PQPlatformResult Output::Drain(int limit_milliseconds) {
  std::unique_lock lock(flow_->mutex);
  if (!flow_->running || flow_->paused) return {};
  flow_->changed.wait_for(lock, std::chrono::milliseconds(limit_milliseconds), [&] {
    return flow_->end_of_stream || flow_->interrupted || flow_->paused || !flow_->failure.Ok();
  });
  if (flow_->end_of_stream) return {};
  if (auto result = Refusal(); !result.Ok()) return result;
  return {kPlatformTimeout, "not everything was played within " + std::to_string(limit_milliseconds) + " ms"};
}

}  // namespace

std::unique_ptr<PQMediaOutput> MakeOutput() { return std::make_unique<Output>(); }

}  // namespace pantiq::gst
