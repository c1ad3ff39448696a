#include "pantiq/platform/gst/PQGstCodecGraph.h"

#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <limits>
#include <mutex>
#include <utility>
#include <vector>

#include "pantiq/platform/gst/PQGstCommon.h"
#include "pantiq/platform/gst/PQGstCompressors.h"

namespace pantiq::gst {
namespace {

constexpr int kMostFrames = 4;             // that wait at a source
constexpr int kMostBlocks = 8;             // that wait at a source
constexpr std::size_t kMostStamps = 1024;  // of what is inside

struct Stamp {
  std::int64_t begin, end;  // 100 ns
};

// What the graph's threads and its callers share.
struct Flow final : BusFlow {
  int waiting = 0;           // samples that the source has not given on yet
  std::deque<Stamp> stamps;  // of what is inside
};

// A sample leaves the source.
GstPadProbeReturn OnLeaving(GstPad*, GstPadProbeInfo*, gpointer data) {
  Flow& flow = **static_cast<std::shared_ptr<Flow>*>(data);
  const std::lock_guard lock(flow.mutex);
  --flow.waiting;
  flow.changed.notify_all();
  return GST_PAD_PROBE_OK;
}

enum class Kind { None, VideoSource, BinarySource, Compressor, Decoder, Grabber, NullRenderer };

// The graph is a plan until it is run: filters, and which stands behind which.
class CodecGraph final : public PQCodecGraph {
 public:
  CodecGraph() : flow_(std::make_shared<Flow>()) {}
  ~CodecGraph() override { (void)Stop(); }

  PQPlatformResult CreateGraph() override {
    auto result = Initialise();
    created_ = result.Ok();
    return result;
  }
  PQPlatformResult RegisterAdditionalFilters() override { return Built(); }
  PQPlatformResult CreateCaptureBuilder() override { return Built(); }
  PQPlatformResult QueryMediaControl() override { return Built(); }
  PQPlatformResult QueryMediaFilter() override { return Built(); }
  PQPlatformResult SetFiltergraph() override { return Built(); }

  PQPlatformResult CreateFilter(PQFilterKind kind, PQVideoSubtype subtype, PQFilterId& id) override {
    id = 0;
    if (auto result = Built(); !result.Ok()) return result;
    Filter filter;
    filter.subtype = subtype;
    switch (kind) {
      case PQFilterKind::VideoSource:
        filter.kind = Kind::VideoSource;
        break;
      case PQFilterKind::BinarySource:
        filter.kind = Kind::BinarySource;
        break;
      case PQFilterKind::SampleGrabber:
        filter.kind = Kind::Grabber;
        break;
      case PQFilterKind::NullRenderer:
        filter.kind = Kind::NullRenderer;
        break;
      default:
        return NoUse();
    }
    id = Keep(std::move(filter));
    return {};
  }

  PQPlatformResult AddFilter(PQFilterId id, const std::string& name) override {
    Filter* filter = Find(id);
    if (filter == nullptr || filter->added) return NoFilter();
    filter->name = name;
    filter->added = true;
    return {};
  }

  PQPlatformResult RemoveFilter(PQFilterId id) override {
    if (Find(id) == nullptr) return NoFilter();
    for (Filter& filter : filters_) {
      if (filter.next == id) filter.next = 0;
    }
    At(id).added = false;
    At(id).next = 0;
    return {};
  }

  void DestroyDownstream(PQFilterId) override { (void)Stop(); }

  PQPlatformResult SetVideoSize(PQFilterId id, int width, int height, std::int64_t period) override {
    Filter* source = Find(id, Kind::VideoSource);
    if (source == nullptr) return NoFilter();
    if (auto result = CheckSize(width, height); !result.Ok()) return result;
    source->width = width, source->height = height, source->period = period;
    return {};
  }

  PQPlatformResult BindToObject(const std::string& moniker, PQFilterId& id) override {
    id = 0;
    if (auto result = Built(); !result.Ok()) return result;
    Filter filter;
    filter.kind = Kind::Compressor;
    if (auto result = MakeCompressor(moniker, filter.compressor); !result.Ok()) return result;
    id = Keep(std::move(filter));
    return {};
  }

  PQPlatformResult ApplySettings(PQFilterId id, const std::string& settings) override {
    Filter* filter = Find(id, Kind::Compressor);
    return filter != nullptr ? SetCompressor(filter->compressor, settings) : NoFilter();
  }

  PQPlatformResult SetMediaType(PQFilterId id, PQGrabberType type) override {
    Filter* grabber = Find(id, Kind::Grabber);
    if (grabber == nullptr) return NoFilter();
    grabber->type = type;
    return {};
  }
  PQPlatformResult SetBufferSamples(PQFilterId id, bool) override { return Grabber(id); }
  PQPlatformResult SetOneShot(PQFilterId id, bool) override { return Grabber(id); }
  PQPlatformResult SetCallback(PQFilterId id, PQGrabberEvents* events) override {
    Filter* grabber = Find(id, Kind::Grabber);
    if (grabber == nullptr) return NoFilter();
    grabber->events = events;
    return {};
  }

  PQPlatformResult SetStreamForm(PQFilterId id, const PQStreamForm& form) override {
    Filter* source = Find(id, Kind::BinarySource);
    if (source == nullptr) return NoFilter();
    source->form = form;
    return {};
  }

  PQPlatformResult GetConnectionMediaType(PQFilterId id, PQStreamForm& form) override {
    const Filter* filter = Find(id, Kind::Compressor);
    if (filter == nullptr || filter->next == 0) return {kPlatformState, "the filter is not wired"};
    form = filter->form;
    return {};
  }

  PQPlatformResult DisconnectGetNextFilter(PQFilterId id, PQFilterId& next) override {
    Filter* filter = Find(id);
    if (filter == nullptr || filter->next == 0) return {kPlatformState, "the filter is not wired"};
    next = filter->next;
    filter->next = 0;
    return {};
  }

  PQPlatformResult Render(PQFilterId from, PQFilterId via, PQFilterId to) override;
  PQPlatformResult Run() override;
  PQPlatformResult Stop() override;

  PQPlatformResult SendVideo(PQFilterId id, const PQPlatformBlock& frame) override {
    const Filter* source = Find(id, Kind::VideoSource);
    if (source == nullptr) return NoFilter();
    const int row = RowBytes(source->subtype, source->width);
    if (frame.step < row || frame.data == nullptr ||
        frame.size < static_cast<std::size_t>(frame.step) * static_cast<std::size_t>(source->height - 1) +
                         static_cast<std::size_t>(row)) {
      return {kPlatformFormat, "the frame is smaller than announced"};
    }
    return Push(*source, kMostFrames, frame);
  }

  PQPlatformResult SendBlock(PQFilterId id, const PQPlatformBlock& block, bool wait) override {
    const Filter* source = Find(id, Kind::BinarySource);
    if (source == nullptr) return NoFilter();
    if (block.data == nullptr || block.size == 0) return {kPlatformFormat, "the block is empty"};
    return Push(*source, wait ? kMostBlocks : std::numeric_limits<int>::max(), block);
  }

  PQPlatformResult EndOfStream(PQFilterId id) override {
    if (Find(id) == nullptr || id != running_source_) return NoFilter();
    gst_app_src_end_of_stream(GST_APP_SRC(source_.get()));
    return {};
  }

  PQPlatformResult Drain(int limit_milliseconds) override {
    std::unique_lock lock(flow_->mutex);
    if (running_source_ == 0 || !sent_) return {};
    flow_->changed.wait_for(lock, std::chrono::milliseconds(limit_milliseconds),
                            [this] { return flow_->end_of_stream || flow_->interrupted || !flow_->failure.Ok(); });
    if (!flow_->failure.Ok()) return flow_->failure;
    if (flow_->end_of_stream) return {};
    if (flow_->interrupted) return Interrupted();
    return {kPlatformTimeout, "the graph is not empty after " + std::to_string(limit_milliseconds) + " ms"};
  }

  void Interrupt() override {
    const std::lock_guard lock(flow_->mutex);
    flow_->interrupted = true;
    flow_->changed.notify_all();
  }

 private:
  struct Filter {
    Kind kind = Kind::None;
    std::string name;
    bool added = false;
    PQFilterId next = 0;
    PQVideoSubtype subtype = PQVideoSubtype::Rgb24;  // of a video source
    int width = 0, height = 0;
    std::int64_t period = 0;
    PQStreamForm form;  // of what leaves a binary source, and a compressor that has been proved
    Compressor compressor;
    PQGrabberType type = PQGrabberType::Any;
    PQGrabberEvents* events = nullptr;
  };

  PQPlatformResult Built() const {
    return created_ ? PQPlatformResult() : PQPlatformResult(kPlatformState, "there is no graph");
  }
  static PQPlatformResult NoFilter() { return {kPlatformState, "there is no such filter in the graph"}; }
  static PQPlatformResult Interrupted() { return {kPlatformInterrupted, "the graph is being stopped"}; }
  static PQPlatformResult CheckSize(std::int64_t width, std::int64_t height) {
    if (width >= 1 && height >= 1 && width <= kMostCodecSide && height <= kMostCodecSide) return {};
    return {kPlatformFormat, "frames of " + std::to_string(width) + " by " + std::to_string(height) +
                                 " pixels; a side has 1 to " + std::to_string(kMostCodecSide)};
  }
  PQFilterId Keep(Filter filter) {
    filters_.push_back(std::move(filter));
    return static_cast<PQFilterId>(filters_.size());
  }
  Filter& At(PQFilterId id) { return filters_[static_cast<std::size_t>(id) - 1]; }
  Filter* Find(PQFilterId id) {
    if (id < 1 || static_cast<std::size_t>(id) > filters_.size() || At(id).kind == Kind::None) return nullptr;
    return &At(id);
  }
  Filter* Find(PQFilterId id, Kind kind) {
    Filter* filter = Find(id);
    return filter != nullptr && filter->kind == kind ? filter : nullptr;
  }
  PQPlatformResult Grabber(PQFilterId id) {
    return Find(id, Kind::Grabber) != nullptr ? PQPlatformResult() : NoFilter();
  }
  PQFilterId Before(PQFilterId id) const {
    for (std::size_t i = 0; i < filters_.size(); ++i) {
      if (filters_[i].kind != Kind::None && filters_[i].next == id) return static_cast<PQFilterId>(i + 1);
    }
    return 0;
  }
  // A private end of a trial: it is over as soon as somebody wants to stop.
  TrialEnd Ended() const {
    return [flow = flow_] {
      const std::lock_guard lock(flow->mutex);
      return flow->interrupted;
    };
  }

  PQPlatformResult RenderCompressor(PQFilterId from, PQFilterId to);
  PQPlatformResult MakeChain(PQFilterId source, std::vector<ElementPtr>& chain, PQFilterId& grabber);
  PQPlatformResult Push(const Filter& source, int limit, const PQPlatformBlock& block);
  void DropPipeline();
  void Deliver(SamplePtr sample);

  const std::shared_ptr<Flow> flow_;
  bool created_ = false;
  std::vector<Filter> filters_;

  // Of a run:
  ElementPtr pipeline_, source_, sink_;
  PQFilterId running_source_ = 0;
  bool sent_ = false;
  bool frames_ = false;  // what arrives are frames out of a decoder
  PQGrabberEvents* events_ = nullptr;
};

PQPlatformResult CodecGraph::Render(PQFilterId from, PQFilterId via, PQFilterId to) {
  if (via != 0) {
    // Through a filter that is wired to the first already, or not at all.
    if (Find(via) == nullptr || At(via).next != 0) return {kPlatformState, "these filters cannot be wired"};
    if (Find(from) != nullptr && At(from).next != via) {
      if (auto result = Render(from, 0, via); !result.Ok()) return result;
    }
    return Render(via, 0, to);
  }
  Filter *first = Find(from), *second = Find(to);
  const PQPlatformResult refused(kPlatformState, "these filters cannot be wired");
  if (first == nullptr || second == nullptr || from == to || !first->added || first->next != 0 || Before(to) != 0) {
    return refused;
  }
  // A decoder comes into the graph by itself.
  if (!second->added && second->kind != Kind::Decoder) return refused;
  const bool to_grabber = second->kind == Kind::Grabber;
  switch (first->kind) {
    case Kind::VideoSource:
      if (auto result = CheckSize(first->width, first->height); !result.Ok()) return result;
      if (second->kind != Kind::Compressor && !to_grabber) return refused;
      break;
    case Kind::BinarySource:
      if (second->kind == Kind::Decoder) {
        if (first->form.kind != PQStreamForm::Kind::Coded) return {kPlatformFormat, "the blocks have no known form"};
      } else if (!to_grabber || first->form.kind != PQStreamForm::Kind::Rgb24) {
        return refused;
      } else if (auto result = CheckSize(first->form.header.biWidth, std::llabs(first->form.header.biHeight));
                 !result.Ok()) {
        return result;
      }
      break;
    case Kind::Compressor:
      return to_grabber ? RenderCompressor(from, to) : refused;
    case Kind::Decoder:
      if (!to_grabber) return refused;
      break;
    case Kind::Grabber:
      if (second->kind != Kind::NullRenderer || Before(from) == 0) return refused;
      break;
    default:
      return refused;
  }
  first->next = to;
  return {};
}

PQPlatformResult CodecGraph::RenderCompressor(PQFilterId from, PQFilterId to) {
  const PQFilterId source_id = Before(from);
  const Filter* source = Find(source_id, Kind::VideoSource);
  if (source == nullptr) return {kPlatformState, "nothing feeds the compressor"};
  const bool decode = At(to).type == PQGrabberType::Rgb24;
  std::string text;
  auto result = ProveCompressor(At(from).compressor, source->subtype, source->width, source->height, source->period,
                                decode, Ended(), text);
  if (!result.Ok()) return result;
  At(from).form.kind = PQStreamForm::Kind::Coded;
  At(from).form.text = text;
  At(from).next = to;
  if (decode) {
    Filter decoder;
    decoder.kind = Kind::Decoder;
    decoder.added = true;
    const PQFilterId id = Keep(std::move(decoder));
    At(from).next = id;
    At(id).next = to;
  }
  return {};
}

// The elements between a source and the grabber that it reaches.
PQPlatformResult CodecGraph::MakeChain(PQFilterId source, std::vector<ElementPtr>& chain, PQFilterId& grabber) {
  PQPlatformResult result;
  frames_ = false;
  for (grabber = At(source).next; grabber != 0; grabber = At(grabber).next) {
    const Filter& filter = At(grabber);
    if (filter.kind == Kind::Grabber) return {};
    if (filter.kind == Kind::Compressor) {
      chain.push_back(MakeConverter(filter.compressor, At(source).width, At(source).height, true, result));
      if (chain.back() == nullptr) return result;
      chain.emplace_back(GST_ELEMENT(gst_object_ref(filter.compressor.element.get())));
    } else {
      chain.push_back(MakeDecoder(result));
      if (chain.back() == nullptr) return result;
      frames_ = true;
    }
  }
  return {kPlatformState, "the source leads nowhere"};
}

PQPlatformResult CodecGraph::Run() {
  if (auto result = Built(); !result.Ok()) return result;
  if (running_source_ != 0) return {kPlatformState, "the graph runs already"};
  PQFilterId source_id = 0;
  for (std::size_t i = 0; i < filters_.size() && source_id == 0; ++i) {
    const bool is_source = filters_[i].kind == Kind::VideoSource || filters_[i].kind == Kind::BinarySource;
    if (is_source && filters_[i].next != 0) source_id = static_cast<PQFilterId>(i + 1);
  }
  if (source_id == 0) return {kPlatformState, "nothing in the graph is wired"};
  const Filter& source = At(source_id);
  std::vector<ElementPtr> chain;
  PQFilterId grabber = 0;
  PQPlatformResult result = MakeChain(source_id, chain, grabber);
  if (!result.Ok()) return result;
  source_ = MakeElement("appsrc", result);
  if (source_ != nullptr) sink_ = MakeElement("appsink", result);
  if (sink_ == nullptr) return result;

  CapsPtr caps;
  if (source.kind == Kind::VideoSource) {
    caps = VideoCaps(source.subtype, source.width, source.height, source.period);
  } else if (source.form.kind == PQStreamForm::Kind::Coded) {
    caps.reset(gst_caps_from_string(source.form.text.c_str()));
  } else {
    const BITMAPINFOHEADER& header = source.form.header;
    caps = VideoCaps(PQVideoSubtype::Rgb24, header.biWidth, static_cast<int>(std::llabs(header.biHeight)), 0);
  }
  if (caps == nullptr) return {kPlatformFormat, "the form of the blocks is not understood: " + source.form.text};
  g_object_set(source_.get(), "format", GST_FORMAT_TIME, "max-bytes", guint64{0}, nullptr);
  gst_app_src_set_caps(GST_APP_SRC(source_.get()), caps.get());
  g_object_set(sink_.get(), "sync", FALSE, "async", FALSE, "qos", FALSE, "enable-last-sample", FALSE, "wait-on-eos",
               FALSE, nullptr);
  events_ = At(grabber).events;
  if (events_ != nullptr) {
    GstAppSinkCallbacks callbacks{};
    callbacks.new_sample = [](GstAppSink* sink, gpointer data) {
      static_cast<CodecGraph*>(data)->Deliver(SamplePtr(gst_app_sink_pull_sample(sink)));
      return GST_FLOW_OK;
    };
    gst_app_sink_set_callbacks(GST_APP_SINK(sink_.get()), &callbacks, this, nullptr);
  }
  const PadPtr leaving(gst_element_get_static_pad(source_.get(), "src"));
  gst_pad_add_probe(leaving.get(), GST_PAD_PROBE_TYPE_BUFFER, OnLeaving, new std::shared_ptr<Flow>(flow_),
                    [](gpointer data) { delete static_cast<std::shared_ptr<Flow>*>(data); });

  pipeline_ = MakePipeline(flow_);
  gst_bin_add_many(GST_BIN(pipeline_.get()), source_.get(), sink_.get(), nullptr);
  for (const ElementPtr& element : chain) gst_bin_add(GST_BIN(pipeline_.get()), element.get());
  GstElement* last = source_.get();
  bool linked = true;
  for (const ElementPtr& element : chain) {
    linked = linked && gst_element_link(last, element.get());
    last = element.get();
  }
  if (!linked || !gst_element_link(last, sink_.get())) {
    DropPipeline();
    return {kPlatformFormat, "the filters cannot be wired"};
  }
  {
    const std::lock_guard lock(flow_->mutex);
    flow_->interrupted = flow_->end_of_stream = false;
    flow_->waiting = 0;
    flow_->failure = {};
    flow_->stamps.clear();
  }
  sent_ = false;
  if (gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
    DropPipeline();
    const std::lock_guard lock(flow_->mutex);
    return flow_->failure.Ok() ? PQPlatformResult(kPlatformFailed, "the graph does not start") : flow_->failure;
  }
  running_source_ = source_id;
  return {};
}

void CodecGraph::DropPipeline() {
  if (pipeline_ != nullptr) gst_element_set_state(pipeline_.get(), GST_STATE_NULL);
  pipeline_.reset();
  source_.reset();
  sink_.reset();
  running_source_ = 0;
}

PQPlatformResult CodecGraph::Stop() {
  Interrupt();
  DropPipeline();
  return {};
}

PQPlatformResult CodecGraph::Push(const Filter& source, int limit, const PQPlatformBlock& block) {
  if (running_source_ == 0 || &source != &At(running_source_)) return {kPlatformState, "the graph does not run"};
  GstBuffer* buffer = WrapBlock(block, nullptr);
  if (source.kind == Kind::VideoSource) {
    gsize offset[GST_VIDEO_MAX_PLANES] = {0};
    gint stride[GST_VIDEO_MAX_PLANES] = {static_cast<gint>(block.step)};
    gst_buffer_add_video_meta_full(
        buffer, GST_VIDEO_FRAME_FLAG_NONE,
        source.subtype == PQVideoSubtype::Yuy2 ? GST_VIDEO_FORMAT_YUY2 : GST_VIDEO_FORMAT_BGR,
        static_cast<guint>(source.width), static_cast<guint>(source.height), 1, offset, stride);
  }
  PQPlatformResult result;
  {
    std::unique_lock lock(flow_->mutex);
    flow_->changed.wait(lock, [&] { return flow_->waiting < limit || flow_->interrupted || !flow_->failure.Ok(); });
    if (!flow_->failure.Ok()) {
      result = flow_->failure;
    } else if (flow_->interrupted) {
      result = Interrupted();
    } else {
      ++flow_->waiting;
      flow_->stamps.push_back({block.begin, block.end});
      if (flow_->stamps.size() > kMostStamps) flow_->stamps.pop_front();
      sent_ = true;
    }
  }
  if (!result.Ok()) {
    gst_buffer_unref(buffer);
    return result;
  }
  const GstFlowReturn flow = gst_app_src_push_buffer(GST_APP_SRC(source_.get()), buffer);
  if (flow == GST_FLOW_OK) return {};
  const std::lock_guard lock(flow_->mutex);
  if (!flow_->failure.Ok()) return flow_->failure;
  if (flow_->interrupted) return Interrupted();
  return {kPlatformFailed, std::string("the graph takes no more samples: ") + gst_flow_get_name(flow)};
}

// On a thread of GStreamer. A sample has the stamps of what was sent: encoders and decoders keep the beginning, where
// they keep anything, and else the order.
void CodecGraph::Deliver(SamplePtr sample) {
  GstBuffer* buffer = sample != nullptr ? gst_sample_get_buffer(sample.get()) : nullptr;
  if (buffer == nullptr) return;
  PQPlatformBlock block;
  std::int64_t length = 0;
  bool stamped = false;
  {
    const std::lock_guard lock(SeamMutex());
    if (GST_BUFFER_PTS_IS_VALID(buffer)) {
      const guint64 time =
          gst_segment_to_stream_time(gst_sample_get_segment(sample.get()), GST_FORMAT_TIME, GST_BUFFER_PTS(buffer));
      stamped = GST_CLOCK_TIME_IS_VALID(time);
      if (stamped) block.begin = static_cast<std::int64_t>(time) / kNanosecondsPerUnit;
    }
    if (GST_BUFFER_DURATION_IS_VALID(buffer)) {
      length = static_cast<std::int64_t>(GST_BUFFER_DURATION(buffer)) / kNanosecondsPerUnit;
    }
  }
  PQGrabberEvents* events = nullptr;
  {
    const std::lock_guard lock(flow_->mutex);
    events = events_;
    auto& stamps = flow_->stamps;
    auto at = std::find_if(stamps.begin(), stamps.end(),
                           [&](const Stamp& stamp) { return stamped && std::llabs(stamp.begin - block.begin) <= 1; });
    if (at == stamps.end()) at = stamps.begin();
    if (at != stamps.end()) {
      block.begin = at->begin, length = at->end - at->begin;
      stamps.erase(at);
    }
  }
  block.end = block.begin + length;

  GstVideoInfo info;
  const bool is_frame = frames_ && gst_video_info_from_caps(&info, gst_sample_get_caps(sample.get()));
  if (!is_frame) {
    GstMapInfo map{};
    if (!gst_buffer_map(buffer, &map, GST_MAP_READ)) return;
    block.data = map.data;
    block.size = map.size;
    events->SampleCB(block);
    gst_buffer_unmap(buffer, &map);
    return;
  }
  const auto rows = static_cast<std::size_t>(GST_VIDEO_INFO_HEIGHT(&info));
  GstVideoFrame frame;
  if (!gst_video_frame_map(&frame, &info, buffer, GST_MAP_READ)) return;
  block.data = static_cast<const std::uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, 0));
  block.step = GST_VIDEO_FRAME_PLANE_STRIDE(&frame, 0);
  block.size = std::min(static_cast<std::size_t>(block.step) * rows, gst_buffer_get_size(buffer));
  events->SampleCB(block);
  gst_video_frame_unmap(&frame);
}

}  // namespace

std::unique_ptr<PQCodecGraph> MakeCodecGraph() { return std::make_unique<CodecGraph>(); }

}  // namespace pantiq::gst
