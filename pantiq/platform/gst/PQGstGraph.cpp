#include "pantiq/platform/gst/PQGstGraph.h"

#include <fcntl.h>
#include <gst/app/gstappsrc.h>
#include <gst/audio/audio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <set>
#include <utility>
#include <vector>

#include "pantiq/platform/gst/PQAsfFile.h"
#include "pantiq/platform/gst/PQGstCommon.h"
#include "pantiq/platform/gst/PQGstProfiles.h"

namespace pantiq::gst {
namespace {

using namespace std::chrono_literals;

constexpr int kRawFrames = 4;     // uncompressed frames inside the graph
constexpr int kRawBlocks = 64;    // uncompressed blocks of sound inside the graph
constexpr auto kTrialLimit = 3s;  // of the frame that proves an encoder
constexpr const char* kPlenty =   // of compressed data while the muxer waits for its other input
    "queue max-size-buffers=0 max-size-time=0 max-size-bytes=268435456";

// What the graph's threads and its callers share.
struct Flow final : BusFlow {
  int raw[2] = {0, 0};  // video, audio
  bool keep_stamps = false;
  std::deque<GstClockTime> stamps;  // of the frames inside the video encoder, if they are kept
};

class Graph final : public PQMediaGraph {
 public:
  Graph() : flow_(std::make_shared<Flow>()) {}
  ~Graph() override { (void)Stop(); }

  PQPlatformResult CreateGraph() override {
    if (auto result = Initialise(); !result.Ok()) return result;
    pipeline_ = MakePipeline(flow_);
    return {};
  }
  PQPlatformResult RegisterAdditionalFilters() override { return Built(); }
  PQPlatformResult CreateCaptureBuilder() override { return Built(); }
  PQPlatformResult QueryMediaControl() override { return Built(); }
  PQPlatformResult SetFiltergraph() override { return Built(); }

  PQPlatformResult CreateFilter(PQFilterKind kind, PQVideoSubtype subtype, PQFilterId& filter) override {
    filter = 0;
    if (auto result = Built(); !result.Ok()) return result;
    PQPlatformResult result;
    Filter made;
    made.kind = kind, made.subtype = subtype;
    made.element = MakeElement(kind == PQFilterKind::AsfWriter ? "filesink" : "appsrc", result);
    if (made.element == nullptr) return result;
    filters_.push_back(std::move(made));
    filter = static_cast<PQFilterId>(filters_.size());
    return {};
  }

  PQPlatformResult AddFilter(PQFilterId id, const std::string& name) override {
    Filter* filter = Find(id);
    if (filter == nullptr || filter->added) return NoFilter();
    filter->name = name;
    filter->added = gst_bin_add(GST_BIN(pipeline_.get()), filter->element.get()) != FALSE;
    if (!filter->added) return {kPlatformFailed, "cannot add " + name};
    return {};
  }

  PQPlatformResult RemoveFilter(PQFilterId id) override {
    Filter* filter = Find(id);
    if (filter == nullptr) return NoFilter();
    for (ElementPtr* element : {&filter->element, &filter->chain, &filter->muxer}) {
      if (*element == nullptr) continue;
      gst_element_set_state(element->get(), GST_STATE_NULL);
      if (GST_OBJECT_PARENT(element->get()) == GST_OBJECT(pipeline_.get())) {
        gst_bin_remove(GST_BIN(pipeline_.get()), element->get());
      }
      element->reset();
    }
    *filter = Filter();
    return {};
  }

  void DestroyDownstream(PQFilterId) override { (void)Stop(); }

  PQPlatformResult QueryFileSink(PQFilterId id) override {
    return Writer(id) != nullptr ? PQPlatformResult() : NoFilter();
  }
  PQPlatformResult SetFileName(PQFilterId id, const std::string& path) override;
  PQPlatformResult QueryAsfConfig(PQFilterId id) override { return QueryFileSink(id); }

  PQPlatformResult ConfigureUsingProfile(PQFilterId id, const PQRecordingProfile& profile) override {
    Filter* writer = Writer(id);
    if (writer == nullptr || writer->muxer != nullptr) return NoFilter();
    PQPlatformResult result;
    writer->muxer = MakeElement(profile.muxer.c_str(), result);
    if (writer->muxer == nullptr) return result;
    writer->profile = profile;
    if (!gst_bin_add(GST_BIN(pipeline_.get()), writer->muxer.get()) ||
        !gst_element_link(writer->muxer.get(), writer->element.get())) {
      return {kPlatformFailed, "cannot wire " + profile.muxer + " to the file"};
    }
    return {};
  }

  PQPlatformResult SetIndexMode(PQFilterId id, bool on) override {
    Filter* writer = Writer(id);
    if (writer == nullptr) return NoFilter();
    writer->index = on;
    return {};
  }

  PQPlatformResult SetAudioFormat(PQFilterId id, const PQAudioFormat& format, bool, int) override;
  PQPlatformResult SetVideoSize(PQFilterId id, int width, int height, std::int64_t period) override;
  PQPlatformResult Render(PQFilterId from, PQFilterId via, PQFilterId to) override;
  PQPlatformResult Run() override;
  PQPlatformResult Stop() override;
  PQPlatformResult SendVideo(PQFilterId source, const PQPlatformBlock& frame) override;
  PQPlatformResult SendAudio(PQFilterId source, const PQPlatformBlock& block) override;
  PQPlatformResult EndOfStream(PQFilterId source) override;
  PQPlatformResult Drain(int limit_milliseconds) override;

  void Interrupt() override {
    const std::lock_guard lock(flow_->mutex);
    flow_->interrupted = true;
    flow_->changed.notify_all();
  }

 private:
  struct Filter {
    PQFilterKind kind = PQFilterKind::VideoSource;
    PQVideoSubtype subtype = PQVideoSubtype::Rgb24;
    ElementPtr element;  // appsrc or filesink
    ElementPtr chain;    // sources: what lies between the source and the muxer
    ElementPtr muxer;    // writer
    std::string name, path;
    PQRecordingProfile profile;
    bool added = false, index = false;
    bool sent = false, ended = false, finished = false;  // under file_mutex_
    int width = 0, height = 0;
    std::int64_t period = 0;
    PQAudioFormat audio;
    int stream = 0;  // number at the muxer, from 1
  };

  PQPlatformResult Built() const {
    return pipeline_ != nullptr ? PQPlatformResult() : PQPlatformResult(kPlatformState, "there is no graph");
  }
  static PQPlatformResult NoFilter() { return {kPlatformState, "there is no such filter in the graph"}; }
  Filter* Find(PQFilterId id) {
    if (id < 1 || static_cast<std::size_t>(id) > filters_.size()) return nullptr;
    Filter* filter = &filters_[static_cast<std::size_t>(id) - 1];
    return filter->element != nullptr ? filter : nullptr;
  }
  Filter* Writer(PQFilterId id) {
    Filter* filter = Find(id);
    return filter != nullptr && filter->kind == PQFilterKind::AsfWriter ? filter : nullptr;
  }
  Filter* Source(PQFilterId id, PQFilterKind kind) {
    Filter* filter = Find(id);
    return filter != nullptr && filter->kind == kind && filter->chain != nullptr ? filter : nullptr;
  }
  PQPlatformResult ProveEncoder(const Filter& source, const std::string& encoder);
  PQPlatformResult OpenFile(Filter& first);
  void Finish(Filter& source);
  PQPlatformResult CloseFile();
  static GstBuffer* Wrap(const Filter& source, const PQPlatformBlock& block, std::shared_ptr<const void> released);
  PQPlatformResult Push(Filter& source, int kind, int limit, const PQPlatformBlock& block);
  PQPlatformResult Waiting(std::unique_lock<std::mutex>& lock, int kind, int limit);

  std::shared_ptr<Flow> flow_;
  ElementPtr pipeline_;
  std::vector<Filter> filters_;
  int streams_ = 0;
  bool running_ = false;

  std::mutex
      file_mutex_;  // the first sample opens the file, whichever source it comes from; samples do not wait for it
  bool file_open_ = false;
};

// Nothing is written and nothing that stands there is changed.
PQPlatformResult Graph::SetFileName(PQFilterId id, const std::string& path) {
  Filter* writer = Writer(id);
  if (writer == nullptr) return NoFilter();
  if (path.empty() || path.find('\0') != std::string::npos) return {kPlatformIo, "this is no file name"};
  const auto refused = [&path](int error) { return PQPlatformResult(kPlatformIo, path + ": " + std::strerror(error)); };
  struct stat present {};
  if (stat(path.c_str(), &present) == 0) {
    if (S_ISDIR(present.st_mode)) return refused(EISDIR);
    if (S_ISREG(present.st_mode)) {
      const int file = open(path.c_str(), O_WRONLY | O_CLOEXEC);
      if (file < 0) return refused(errno);
      close(file);
    } else if (access(path.c_str(), W_OK) != 0) {
      return refused(errno);
    }
  } else {
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (file < 0) return refused(errno);
    close(file);
    unlink(path.c_str());
  }
  writer->path = path;
  g_object_set(writer->element.get(), "location", path.c_str(), nullptr);
  return {};
}

PQPlatformResult Graph::SetAudioFormat(PQFilterId id, const PQAudioFormat& format, bool, int) {
  Filter* source = Find(id);
  if (source == nullptr || source->kind != PQFilterKind::AudioSource) return NoFilter();
  if (format.bits_per_sample != 16 || format.channels < 1 || format.channels > 8 || format.sample_rate < 1) {
    return {kPlatformFormat,
            "sound of " + std::to_string(format.channels) + " channels, " + std::to_string(format.bits_per_sample) +
                " bits, " + std::to_string(format.sample_rate) + " Hz cannot be taken: 1 to 8 channels of 16 bits are"};
  }
  source->audio = format;
  CapsPtr caps(gst_caps_new_simple("audio/x-raw", "format", G_TYPE_STRING, "S16LE", "layout", G_TYPE_STRING,
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

PQPlatformResult Graph::SetVideoSize(PQFilterId id, int width, int height, std::int64_t period) {
  Filter* source = Find(id);
  if (source == nullptr || source->kind != PQFilterKind::VideoSource) return NoFilter();
  if (width < 1 || height < 1 || width > 32767 || height > 32767) {
    return {kPlatformFormat,
            "a frame of " + std::to_string(width) + " by " + std::to_string(height) + " cannot be taken"};
  }
  source->width = width, source->height = height, source->period = period;
  const CapsPtr caps = VideoCaps(source->subtype, width, height, period);
  g_object_set(source->element.get(), "format", GST_FORMAT_TIME, "max-bytes", guint64{0}, nullptr);
  gst_app_src_set_caps(GST_APP_SRC(source->element.get()), caps.get());
  return {};
}

// Links succeed for sizes that an encoder then refuses, so one black frame goes through it first.
PQPlatformResult Graph::ProveEncoder(const Filter& source, const std::string& encoder) {
  static std::mutex mutex;
  static std::set<std::string> proved;
  const CapsPtr caps = VideoCaps(source.subtype, source.width, source.height, source.period);
  gchar* text = gst_caps_to_string(caps.get());
  const std::string key = encoder + " " + text;
  g_free(text);
  {
    const std::lock_guard lock(mutex);
    if (proved.count(key) != 0) return {};
  }
  const auto flow = std::make_shared<Flow>();
  const ElementPtr pipeline = MakePipeline(flow);
  PQPlatformResult result;
  const ElementPtr input = MakeElement("appsrc", result);
  if (input == nullptr) return result;
  const ElementPtr chain = MakeBin("videoconvert ! " + encoder + " ! fakesink sync=false", result);
  if (chain == nullptr) return result;
  g_object_set(input.get(), "format", GST_FORMAT_TIME, nullptr);
  gst_app_src_set_caps(GST_APP_SRC(input.get()), caps.get());
  gst_bin_add_many(GST_BIN(pipeline.get()), input.get(), chain.get(), nullptr);
  if (!gst_element_link(input.get(), chain.get())) return {kPlatformFormat, encoder + " does not take this format"};
  GstVideoInfo info;
  gst_video_info_from_caps(&info, caps.get());
  GstBuffer* frame = gst_buffer_new_allocate(nullptr, info.size, nullptr);
  gst_buffer_memset(frame, 0, 0, info.size);
  GST_BUFFER_PTS(frame) = 0;
  const bool started = gst_element_set_state(pipeline.get(), GST_STATE_PLAYING) != GST_STATE_CHANGE_FAILURE;
  gst_app_src_push_buffer(GST_APP_SRC(input.get()), frame);
  gst_app_src_end_of_stream(GST_APP_SRC(input.get()));
  {
    std::unique_lock lock(flow->mutex);
    const auto limit = std::chrono::steady_clock::now() + kTrialLimit;
    while (started && !flow->end_of_stream && flow->failure.Ok() && std::chrono::steady_clock::now() < limit) {
      flow->changed.wait_for(lock, 20ms);
      const std::lock_guard own(flow_->mutex);
      if (flow_->interrupted) break;
    }
    if (!flow->failure.Ok()) {
      result = {kPlatformFormat, encoder.substr(0, encoder.find(' ')) + " does not take " +
                                     std::to_string(source.width) + " by " + std::to_string(source.height) + ": " +
                                     flow->failure.detail};
    } else if (!flow->end_of_stream) {
      result = {kPlatformTimeout, encoder.substr(0, encoder.find(' ')) + " gave nothing for a frame"};
    }
  }
  gst_element_set_state(pipeline.get(), GST_STATE_NULL);
  if (result.Ok()) {
    const std::lock_guard lock(mutex);
    proved.insert(key);
  }
  return result;
}

// Lets a sound begin earlier by what its encoder puts before it, so that sound and picture come back together. What
// would lie before the beginning of the recording is left out: at most 46 ms.
struct Silence {
  const std::string codec;
  GstAudioInfo form{};
  gsize left = 0;           // samples to leave out yet
  GstClockTime length = 0;  // of the silence
  bool known = false;

  bool LookAt(GstPad* pad, GstClockTime begin) {
    const CapsPtr caps(gst_pad_get_current_caps(pad));
    if (known || caps == nullptr || !gst_audio_info_from_caps(&form, caps.get())) return known;
    const int rate = GST_AUDIO_INFO_RATE(&form);
    const auto silence = static_cast<guint64>(SilenceAhead(codec, rate));
    length = gst_util_uint64_scale_int(silence, GST_SECOND, rate);
    if (!GST_CLOCK_TIME_IS_VALID(begin)) begin = 0;
    left = silence - std::min(silence, gst_util_uint64_scale_int(begin, rate, GST_SECOND));
    return known = true;
  }

  static GstPadProbeReturn OnSound(GstPad* pad, GstPadProbeInfo* info, gpointer data) {
    auto* const silence = static_cast<Silence*>(data);
    const std::lock_guard lock(SeamMutex());
    GstBuffer* buffer = GST_PAD_PROBE_INFO_BUFFER(info);
    if (!silence->LookAt(pad, GST_BUFFER_PTS(buffer))) return GST_PAD_PROBE_OK;
    const gsize frame = static_cast<gsize>(GST_AUDIO_INFO_BPF(&silence->form));
    const gsize count = gst_buffer_get_size(buffer) / frame, taken = std::min(silence->left, count);
    silence->left -= taken;
    if (taken == count) return GST_PAD_PROBE_DROP;
    const GstClockTime begin = GST_BUFFER_PTS(buffer);
    if (taken > 0) buffer = gst_audio_buffer_truncate(buffer, static_cast<gint>(frame), taken, count - taken);
    buffer = gst_buffer_make_writable(buffer);
    const auto length = [rate = GST_AUDIO_INFO_RATE(&silence->form)](gsize samples) {
      return gst_util_uint64_scale_int(samples, GST_SECOND, rate);
    };
    if (GST_CLOCK_TIME_IS_VALID(begin)) {
      const GstClockTime moved = begin + length(taken);
      GST_BUFFER_PTS(buffer) = moved - std::min(moved, silence->length);
    }
    GST_BUFFER_DURATION(buffer) = length(count - taken);
    GST_PAD_PROBE_INFO_DATA(info) = buffer;
    return GST_PAD_PROBE_OK;
  }
};

void MakeUpForSilence(GstElement* chain, const std::string& codec) {
  const ElementPtr encoder(gst_bin_get_by_name(GST_BIN(chain), "encoder"));
  if (encoder == nullptr) return;
  const PadPtr pad(gst_element_get_static_pad(encoder.get(), "sink"));
  gst_pad_add_probe(pad.get(), GST_PAD_PROBE_TYPE_BUFFER, Silence::OnSound, new Silence{codec},
                    [](gpointer data) { delete static_cast<Silence*>(data); });
}

PQPlatformResult Graph::Render(PQFilterId from, PQFilterId via, PQFilterId to) {
  Filter* source = Find(from);
  Filter* writer = Writer(to);
  if (source == nullptr || writer == nullptr || via != 0 || source->kind == PQFilterKind::AsfWriter || !source->added ||
      !writer->added || source->chain != nullptr || writer->muxer == nullptr) {
    return {kPlatformState, "these filters cannot be wired"};
  }
  const bool is_video = source->kind == PQFilterKind::VideoSource;
  std::string description;
  if (is_video) {
    if (auto result = ProveEncoder(*source, writer->profile.video_encoder); !result.Ok()) return result;
    description =
        "videoconvert ! queue max-size-buffers=2 max-size-bytes=0 max-size-time=0 ! " + writer->profile.video_encoder;
  } else {
    description = "audioconvert ! audioresample ! " + writer->profile.audio_encoder;
  }
  PQPlatformResult result;
  source->chain = MakeBin(description + " ! " + kPlenty, result);
  if (source->chain == nullptr) return result;
  if (!gst_bin_add(GST_BIN(pipeline_.get()), source->chain.get()) ||
      !gst_element_link(source->element.get(), source->chain.get()) ||
      !gst_element_link(source->chain.get(), writer->muxer.get())) {
    return {kPlatformFormat, writer->profile.muxer + " does not take " +
                                 (is_video ? writer->profile.video_codec : writer->profile.audio_codec)};
  }
  source->stream = ++streams_;
  std::function<GstClockTime()> by_order;
  if (is_video && writer->profile.video_codec == "MPEG4") {  // frames leave it in the order that they came in
    flow_->keep_stamps = true;
    by_order = [flow = flow_]() -> GstClockTime {
      const std::lock_guard lock(flow->mutex);
      if (flow->stamps.empty()) return GST_CLOCK_TIME_NONE;
      const GstClockTime first = flow->stamps.front();
      flow->stamps.pop_front();
      return first;
    };
  }
  if (!is_video) MakeUpForSilence(source->chain.get(), writer->profile.audio_codec);
  RestampForMuxer(source->chain.get(), std::move(by_order));
  return {};
}

PQPlatformResult Graph::Run() {
  if (auto result = Built(); !result.Ok()) return result;
  {
    const std::lock_guard lock(flow_->mutex);
    flow_->interrupted = flow_->end_of_stream = false;
    flow_->failure = {};
  }
  // The file is opened, and so replaced, by the first sample: a recording that never gets one leaves the old file.
  for (Filter& filter : filters_) {
    if (filter.kind == PQFilterKind::AsfWriter && filter.element != nullptr) {
      gst_element_set_locked_state(filter.element.get(), TRUE);
    }
  }
  if (gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
    gst_element_set_state(pipeline_.get(), GST_STATE_NULL);
    const std::lock_guard lock(flow_->mutex);
    return flow_->failure.Ok() ? PQPlatformResult(kPlatformFailed, "the graph does not start") : flow_->failure;
  }
  running_ = true;
  return {};
}

// Before each sample of `source`. Sources that ended before there was a file end now.
PQPlatformResult Graph::OpenFile(Filter& source) {
  const std::lock_guard lock(file_mutex_);
  if (source.ended) return {kPlatformState, "the stream has ended"};
  source.sent = true;
  if (file_open_) return {};
  for (Filter& filter : filters_) {
    if (filter.kind != PQFilterKind::AsfWriter || filter.element == nullptr) continue;
    gst_element_set_locked_state(filter.element.get(), FALSE);
    if (gst_element_set_state(filter.element.get(), GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
      const std::lock_guard flow_lock(flow_->mutex);
      if (flow_->failure.Ok()) flow_->failure = {kPlatformIo, "cannot open " + filter.path};
      return flow_->failure;
    }
  }
  file_open_ = true;
  for (Filter& filter : filters_) {
    if (filter.ended) Finish(filter);
  }
  return {};
}

// Under file_mutex_, with an open file. An input without a single sample has no format, and a muxer refuses the whole
// file for it: such an input gets a moment of silence, or one black frame.
void Graph::Finish(Filter& source) {
  if (source.finished || source.chain == nullptr) return;
  source.finished = true;
  GstAppSrc* input = GST_APP_SRC(source.element.get());
  if (!source.sent) {
    const bool is_video = source.kind == PQFilterKind::VideoSource;
    const std::size_t size = is_video ? static_cast<std::size_t>(RowBytes(source.subtype, source.width)) *
                                            static_cast<std::size_t>(source.height)
                                      : static_cast<std::size_t>(source.audio.sample_rate / 20 + 1) *
                                            static_cast<std::size_t>(source.audio.channels) * 2;
    const auto filler = std::make_shared<std::vector<std::uint8_t>>(size, std::uint8_t{0});
    PQPlatformBlock block;
    block.data = filler->data(), block.size = size, block.keep_alive = filler;
    block.step = is_video ? RowBytes(source.subtype, source.width) : 0;
    block.end = is_video ? source.period : 500000;
    gst_app_src_push_buffer(input, Wrap(source, block, nullptr));
  }
  gst_app_src_end_of_stream(input);
}

// After the last byte: lets go of the file and corrects its header.
PQPlatformResult Graph::CloseFile() {
  gst_element_set_state(pipeline_.get(), GST_STATE_NULL);
  running_ = false;
  for (const Filter& writer : filters_) {
    if (writer.kind != PQFilterKind::AsfWriter || writer.element == nullptr || writer.profile.container != "asf")
      continue;
    PQAsfCorrections corrections;
    corrections.drop_index = !writer.index;
    for (const Filter& source : filters_) {
      if (source.kind != PQFilterKind::VideoSource || source.stream == 0) continue;
      corrections.video_stream = source.stream;
      corrections.average_frame_time = source.period;
    }
    return CorrectAsfFile(writer.path, corrections);
  }
  return {};
}

// Waits until another raw block may enter; the lock is held on return.
PQPlatformResult Graph::Waiting(std::unique_lock<std::mutex>& lock, int kind, int limit) {
  flow_->changed.wait(lock, [&] { return flow_->raw[kind] < limit || flow_->interrupted || !flow_->failure.Ok(); });
  if (!flow_->failure.Ok()) return flow_->failure;
  if (flow_->interrupted) return {kPlatformInterrupted, "the graph is being stopped"};
  return {};
}

GstBuffer* Graph::Wrap(const Filter& source, const PQPlatformBlock& block, std::shared_ptr<const void> released) {
  GstBuffer* buffer = WrapBlock(block, std::move(released));
  if (source.kind == PQFilterKind::VideoSource) {
    gsize offset[GST_VIDEO_MAX_PLANES] = {0};
    gint stride[GST_VIDEO_MAX_PLANES] = {static_cast<gint>(block.step)};
    gst_buffer_add_video_meta_full(
        buffer, GST_VIDEO_FRAME_FLAG_NONE,
        source.subtype == PQVideoSubtype::Yuy2 ? GST_VIDEO_FORMAT_YUY2 : GST_VIDEO_FORMAT_BGR,
        static_cast<guint>(source.width), static_cast<guint>(source.height), 1, offset, stride);
  }
  return buffer;
}

PQPlatformResult Graph::Push(Filter& source, int kind, int limit, const PQPlatformBlock& block) {
  if (!running_) return {kPlatformState, "the graph does not run"};
  if (auto result = OpenFile(source); !result.Ok()) return result;
  {
    std::unique_lock lock(flow_->mutex);
    if (auto result = Waiting(lock, kind, limit); !result.Ok()) return result;
    ++flow_->raw[kind];
    if (kind == 0 && flow_->keep_stamps) {
      flow_->stamps.push_back(static_cast<GstClockTime>(block.begin * kNanosecondsPerUnit));
    }
  }
  std::shared_ptr<const void> released(nullptr, [flow = flow_, kind](const void*) {
    const std::lock_guard lock(flow->mutex);
    --flow->raw[kind];
    flow->changed.notify_all();
  });
  const GstFlowReturn flow =
      gst_app_src_push_buffer(GST_APP_SRC(source.element.get()), Wrap(source, block, std::move(released)));
  const std::lock_guard lock(flow_->mutex);
  if (!flow_->failure.Ok()) return flow_->failure;
  if (flow == GST_FLOW_OK) return {};
  if (flow_->interrupted) return {kPlatformInterrupted, "the graph is being stopped"};
  return {kPlatformFailed, std::string("the graph takes no more samples: ") + gst_flow_get_name(flow)};
}

PQPlatformResult Graph::SendVideo(PQFilterId id, const PQPlatformBlock& frame) {
  Filter* source = Source(id, PQFilterKind::VideoSource);
  if (source == nullptr) return NoFilter();
  const int row = RowBytes(source->subtype, source->width);
  if (frame.step < row || frame.data == nullptr ||
      frame.size < static_cast<std::size_t>(frame.step) * static_cast<std::size_t>(source->height - 1) +
                       static_cast<std::size_t>(row)) {
    return {kPlatformFormat, "the frame is smaller than announced"};
  }
  return Push(*source, 0, kRawFrames, frame);
}

PQPlatformResult Graph::SendAudio(PQFilterId id, const PQPlatformBlock& block) {
  Filter* source = Source(id, PQFilterKind::AudioSource);
  if (source == nullptr) return NoFilter();
  const std::size_t align = static_cast<std::size_t>(source->audio.channels) * 2;
  if (block.data == nullptr || block.size % align != 0) return {kPlatformFormat, "the block holds no whole samples"};
  if (block.size == 0) return {};
  return Push(*source, 1, kRawBlocks, block);
}

PQPlatformResult Graph::EndOfStream(PQFilterId id) {
  Filter* source = Find(id);
  if (source == nullptr || source->chain == nullptr) return NoFilter();
  const std::lock_guard lock(file_mutex_);
  source->ended = true;
  if (running_ && file_open_) Finish(*source);
  return {};
}

PQPlatformResult Graph::Drain(int limit_milliseconds) {
  if (!running_) return {};
  {
    const std::lock_guard lock(file_mutex_);
    if (!file_open_) return {};  // not one sample came: nothing is written
  }
  {
    std::unique_lock lock(flow_->mutex);
    flow_->interrupted = false;
    const auto limit = std::chrono::milliseconds(limit_milliseconds);
    const auto inside = [&] { return flow_->raw[0] + flow_->raw[1]; };
    auto deadline = std::chrono::steady_clock::now() + limit;
    for (int before = inside(); !flow_->end_of_stream && !flow_->interrupted && flow_->failure.Ok();) {
      if (flow_->changed.wait_until(lock, deadline) == std::cv_status::timeout) break;
      if (const int now = inside(); now != before) before = now, deadline = std::chrono::steady_clock::now() + limit;
    }
    if (!flow_->failure.Ok()) return flow_->failure;
    if (!flow_->end_of_stream) {
      if (flow_->interrupted) return {kPlatformInterrupted, "the graph is being stopped"};
      return {kPlatformTimeout, "the file was not finished within " + std::to_string(limit_milliseconds) + " ms"};
    }
  }
  return CloseFile();
}

PQPlatformResult Graph::Stop() {
  Interrupt();
  if (pipeline_ == nullptr) return {};
  for (Filter& filter : filters_) {
    if (filter.element != nullptr) gst_element_set_locked_state(filter.element.get(), FALSE);
  }
  gst_element_set_state(pipeline_.get(), GST_STATE_NULL);
  running_ = false;
  return {};
}

}  // namespace

std::unique_ptr<PQMediaGraph> MakeGraph() { return std::make_unique<Graph>(); }

}  // namespace pantiq::gst
