#include "pantiq/platform/gst/PQGstReader.h"

#include <gst/app/gstappsink.h>
#include <gst/audio/audio.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "pantiq/platform/gst/PQAsfFile.h"
#include "pantiq/platform/gst/PQGstCommon.h"
#include "pantiq/platform/gst/PQGstFrames.h"

namespace pantiq::gst {
namespace {

using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

constexpr auto kOpenLimit = 30s;                   // until the file's outputs are known
constexpr auto kIdleLook = 100ms;                  // between two looks for a reader that sleeps
constexpr auto kOutputLimit = 3s;                  // until the last output has its first sample once another one has it
constexpr auto kStampLimit = 300ms;                // for further stamps where the frame rate has to be measured
constexpr GstClockTime kLook = 100 * GST_MSECOND;  // how long a pulling thread waits before it looks for errors
constexpr std::size_t kStamps = 4;
constexpr std::int64_t kMillisecond = 10000;
constexpr std::int64_t kAsfGuess = 400000;  // what the demuxer says of a file that does not tell its rate

// Periods in 100 ns of the usual frame rates.
constexpr std::array<std::int64_t, 13> kUsualPeriods = {1000000, 833333, 666667, 500000, 417083, 416667, 400000,
                                                        333667,  333333, 200000, 166833, 166667, 100000};

class Reader;

struct Output {
  Reader* reader = nullptr;
  int number = 0;
  PQMediaOutputProps props;
  ElementPtr branch, sink;
  std::thread thread;
  // Under the reader's mutex while the file is being opened, then only of the output's own thread.
  bool prerolled = false, ended = false;
  std::vector<GstClockTime> stamps;
  CapsPtr caps;
  GstVideoInfo video_info{};
  GstAudioInfo audio_info{};
};

std::string CapsText(const GstStructure* structure, const char* field) {
  const gchar* text = gst_structure_get_string(structure, field);
  return text != nullptr ? text : "";
}

class Reader final : public PQMediaReader {
 public:
  ~Reader() override { Close(); }

  PQPlatformResult Open(const std::string& path, PQMediaReaderEvents* events) override {
    Close();
    path_ = path, events_ = events;
    PQPlatformResult result = Build();
    if (!result.Ok()) {
      result.detail = path + ": " + result.detail;
      Close();
    }
    return result;
  }

  void Close() override {
    TearDown();
    outputs_.clear();
    path_.clear();
    events_ = nullptr;
    duration_ = 0, seekable_ = false;
  }

  PQPlatformResult GetOutputCount(int& count) override {
    count = static_cast<int>(outputs_.size());
    return events_ != nullptr ? PQPlatformResult() : NotOpen();
  }
  PQPlatformResult GetOutputProps(int output, PQMediaOutputProps& props) override {
    if (output < 0 || output >= static_cast<int>(outputs_.size())) return NotOpen();
    props = outputs_[static_cast<std::size_t>(output)]->props;
    return {};
  }
  std::int64_t GetDuration() override { return duration_; }
  bool IsSeekable() override { return seekable_; }
  PQPlatformResult SetUserProvidedClock(bool on) override {
    user_clock_ = on;
    return {};
  }

  PQPlatformResult Start(std::int64_t start, std::int64_t duration, double rate) override;
  PQPlatformResult Pause() override { return SetRunning(GST_STATE_PAUSED); }
  PQPlatformResult Resume() override { return SetRunning(GST_STATE_PLAYING); }
  PQPlatformResult Stop() override {
    TearDown();
    return {};
  }
  void Interrupt() override {
    const std::lock_guard lock(mutex_);
    interrupted_ = true;
    changed_.notify_all();
  }

 private:
  // Where Debian has what is missing: the first of the packages that come into question and are not here. What they
  // lack is in the last.
  static std::string PackageFor(const std::string& name) {
    const auto installed = [](const char* plugin) {
      GstPlugin* const found = gst_registry_find_plugin(gst_registry_get(), plugin);
      if (found != nullptr) gst_object_unref(found);
      return found != nullptr;
    };
    const bool demuxer = name.find("demuxer") != std::string::npos;
    if (demuxer && !installed("isomp4")) return "gstreamer1.0-plugins-good";
    if (!demuxer && !installed("libav")) return "gstreamer1.0-libav";
    return "gstreamer1.0-plugins-bad";
  }
  static PQPlatformResult NotOpen() { return {kPlatformState, "no file is open"}; }
  PQPlatformResult SetRunning(GstState state) {
    if (pipeline_ == nullptr || !running_) return {kPlatformState, "the reader does not run"};
    if (gst_element_set_state(pipeline_.get(), state) == GST_STATE_CHANGE_FAILURE)
      return Failure("does not change its state");
    return {};
  }
  PQPlatformResult Failure(const char* otherwise) {
    const std::lock_guard lock(mutex_);
    if (failure_.Ok()) return {kPlatformFailed, otherwise};
    PQPlatformResult result = failure_;
    for (const std::string& name : missing_) result.detail += "; no fitting " + name + ", install " + PackageFor(name);
    return result;
  }

  PQPlatformResult Build();
  void TearDown();
  void AddOutput(GstPad* pad);
  void ReadProps(Output& output);
  std::int64_t FramePeriod(const Output& output);
  bool ReadyToStart();
  bool IsAsleep();
  void Pull(Output& output);
  void Deliver(Output& output, SamplePtr sample);

  static void OnPadAdded(GstElement*, GstPad* pad, gpointer data) { static_cast<Reader*>(data)->AddOutput(pad); }
  static void OnNoMorePads(GstElement*, gpointer data) {
    auto* reader = static_cast<Reader*>(data);
    const std::lock_guard lock(reader->mutex_);
    reader->all_pads_ = true;
    reader->changed_.notify_all();
  }
  static GstBusSyncReply OnMessage(GstBus*, GstMessage* message, gpointer data);
  static GstPadProbeReturn OnStamp(GstPad*, GstPadProbeInfo* info, gpointer data);
  static GstPadProbeReturn OnAllocation(GstPad*, GstPadProbeInfo* info, gpointer data);

  std::string path_;
  PQMediaReaderEvents* events_ = nullptr;
  bool user_clock_ = true, running_ = false, fresh_ = false, is_asf_ = false, seekable_ = false;
  std::int64_t duration_ = 0;
  ElementPtr pipeline_;
  std::vector<std::unique_ptr<Output>> outputs_;  // made once; their elements with each pipeline
  std::atomic<bool> stopping_{false};

  // Shared with GStreamer's threads.
  std::mutex mutex_;
  std::condition_variable changed_;
  bool interrupted_ = false, all_pads_ = false, told_ = false, has_video_ = false, has_audio_ = false;
  PQPlatformResult failure_;
  std::vector<std::string> missing_;
  std::vector<std::unique_ptr<Output>> found_;
};

GstBusSyncReply Reader::OnMessage(GstBus*, GstMessage* message, gpointer data) {
  auto* reader = static_cast<Reader*>(data);
  {
    const std::lock_guard lock(reader->mutex_);
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
      if (reader->failure_.Ok()) reader->failure_ = FromMessage(message);
      reader->changed_.notify_all();
    } else if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ELEMENT && gst_message_has_name(message, "missing-plugin")) {
      reader->missing_.push_back(CapsText(gst_message_get_structure(message), "name"));
    }
  }
  gst_message_unref(message);
  return GST_BUS_DROP;
}

// The first stamps of the decoded video, ahead of the queue.
GstPadProbeReturn Reader::OnStamp(GstPad*, GstPadProbeInfo* info, gpointer data) {
  auto* output = static_cast<Output*>(data);
  GstClockTime stamp = GST_CLOCK_TIME_NONE;
  {
    const std::lock_guard lock(SeamMutex());
    stamp = GST_BUFFER_PTS(GST_PAD_PROBE_INFO_BUFFER(info));
  }
  const std::lock_guard lock(output->reader->mutex_);
  if (GST_CLOCK_TIME_IS_VALID(stamp)) output->stamps.push_back(stamp);
  output->reader->changed_.notify_all();
  return output->stamps.size() < kStamps ? GST_PAD_PROBE_OK : GST_PAD_PROBE_REMOVE;
}

// Offers whoever makes the frames the memory of whoever takes them.
GstPadProbeReturn Reader::OnAllocation(GstPad*, GstPadProbeInfo* info, gpointer data) {
  auto* reader = static_cast<Reader*>(data);
  GstQuery* query = GST_PAD_PROBE_INFO_QUERY(info);
  if (GST_QUERY_TYPE(query) != GST_QUERY_ALLOCATION) return GST_PAD_PROBE_OK;
  GstCaps* caps = nullptr;
  gst_query_parse_allocation(query, &caps, nullptr);
  GstVideoInfo video;
  if (caps == nullptr || !gst_video_info_from_caps(&video, caps)) return GST_PAD_PROBE_OK;
  GstAllocator* allocator = MakeFrameAllocator(
      [reader](std::int64_t step, std::int64_t rows, std::uint8_t*& memory) {
        { const std::lock_guard lock(reader->mutex_); }
        return reader->events_->AllocateFrame(step, rows, memory);
      },
      video);
  GstAllocationParams params;
  gst_allocation_params_init(&params);
  gst_query_add_allocation_param(query, allocator, &params);
  gst_query_add_allocation_meta(query, GST_VIDEO_META_API_TYPE, nullptr);
  gst_object_unref(allocator);
  return GST_PAD_PROBE_HANDLED;
}

// On a thread of GStreamer.
void Reader::AddOutput(GstPad* pad) {
  CapsPtr caps(gst_pad_get_current_caps(pad));
  if (caps == nullptr) caps.reset(gst_pad_query_caps(pad, nullptr));
  const GstStructure* structure = gst_caps_get_structure(caps.get(), 0);
  const std::string type = gst_structure_get_name(structure);
  auto output = std::make_unique<Output>();
  output->reader = this;
  std::string description;
  {
    const std::lock_guard lock(mutex_);
    if (type == "video/x-raw" && !has_video_) {
      has_video_ = true;
      output->props.major_type = PQMediaType::Video;
    } else if (type == "audio/x-raw" && !has_audio_) {
      has_audio_ = true;
      output->props.major_type = PQMediaType::Audio;
    }
  }
  if (output->props.major_type == PQMediaType::Video) {
    description = "queue name=q max-size-buffers=3 max-size-bytes=0 max-size-time=0";
    const std::string interlace = CapsText(structure, "interlace-mode");
    if (!interlace.empty() && interlace != "progressive" && HasElement("deinterlace")) {
      description += " ! deinterlace fields=top";
      output->props.notes.push_back("interlaced video is converted to whole frames");
    }
    int width = 0, height = 0;
    if (gst_structure_get_fraction(structure, "pixel-aspect-ratio", &width, &height) && width != height) {
      description += " ! videoscale";
      output->props.notes.push_back("pixels of " + std::to_string(width) + " by " + std::to_string(height) +
                                    " are converted to square ones");
    }
    const GstVideoFormat format = gst_video_format_from_string(CapsText(structure, "format").c_str());
    const GstVideoFormatInfo* info = gst_video_format_get_info(format);
    if (info != nullptr && GST_VIDEO_FORMAT_INFO_N_COMPONENTS(info) > 0 && GST_VIDEO_FORMAT_INFO_DEPTH(info, 0) > 8) {
      output->props.notes.push_back("video of " + std::to_string(GST_VIDEO_FORMAT_INFO_DEPTH(info, 0)) +
                                    " bits is converted to 8 bits");
    }
    description += " ! videoconvert ! video/x-raw,format=BGR,pixel-aspect-ratio=1/1";
    if (HasElement("videoflip"))
      description += " ! videoflip video-direction=auto";  // does nothing without the file's wish
    description +=
        " ! appsink name=s sync=false async=false qos=false max-buffers=3 wait-on-eos=false enable-last-sample=false";
  } else if (output->props.major_type == PQMediaType::Audio) {
    description =
        "queue name=q ! audioconvert ! audioresample ! audio/x-raw,format=S16LE,layout=interleaved,channels=[1,8] ! "
        "appsink name=s sync=false async=false max-buffers=8 wait-on-eos=false enable-last-sample=false";
  } else {
    description = "fakesink sync=false async=false";
  }

  PQPlatformResult result;
  output->branch = MakeBin(description, result);
  if (output->branch == nullptr) {
    const std::lock_guard lock(mutex_);
    if (failure_.Ok()) failure_ = result;
    changed_.notify_all();
    return;
  }
  Output* added = output.get();
  if (output->props.major_type != PQMediaType::Other) {
    output->sink.reset(gst_bin_get_by_name(GST_BIN(output->branch.get()), "s"));
    GstAppSinkCallbacks callbacks{};
    callbacks.new_preroll = [](GstAppSink*, gpointer data) {
      auto* target = static_cast<Output*>(data);
      const std::lock_guard lock(target->reader->mutex_);
      target->prerolled = true;
      target->reader->changed_.notify_all();
      return GST_FLOW_OK;
    };
    callbacks.eos = [](GstAppSink*, gpointer data) {
      auto* target = static_cast<Output*>(data);
      const std::lock_guard lock(target->reader->mutex_);
      target->ended = true;
      target->reader->changed_.notify_all();
    };
    gst_app_sink_set_callbacks(GST_APP_SINK(output->sink.get()), &callbacks, added, nullptr);
    if (output->props.major_type == PQMediaType::Video) {
      const PadPtr sink_pad(gst_element_get_static_pad(output->sink.get(), "sink"));
      gst_pad_add_probe(sink_pad.get(), GST_PAD_PROBE_TYPE_QUERY_DOWNSTREAM, OnAllocation, this, nullptr);
      const ElementPtr queue(gst_bin_get_by_name(GST_BIN(output->branch.get()), "q"));
      const PadPtr queue_pad(gst_element_get_static_pad(queue.get(), "sink"));
      gst_pad_add_probe(queue_pad.get(), GST_PAD_PROBE_TYPE_BUFFER, OnStamp, added, nullptr);
    }
    const std::lock_guard lock(mutex_);
    found_.push_back(std::move(output));
  }
  GstElement* branch = added->branch.get();
  gst_bin_add(GST_BIN(pipeline_.get()), branch);
  const PadPtr in(gst_element_get_static_pad(branch, "sink"));
  const bool linked = in != nullptr && gst_pad_link(pad, in.get()) == GST_PAD_LINK_OK;
  gst_element_sync_state_with_parent(branch);
  if (!linked) {
    const std::lock_guard lock(mutex_);
    if (failure_.Ok()) failure_ = {kPlatformFormat, "cannot convert " + type};
    changed_.notify_all();
  }
}

// Under the mutex: true once every output has its first sample, and the video enough stamps where they are needed.
bool Reader::ReadyToStart() {
  if (!all_pads_) return false;
  return std::all_of(found_.begin(), found_.end(),
                     [](const auto& output) { return output->prerolled || output->ended; });
}

// True if no thread of the pipeline is at work or waits to go on.
bool Reader::IsAsleep() {
  bool asleep = true;
  GstIterator* elements = gst_bin_iterate_recurse(GST_BIN(pipeline_.get()));
  const auto look = [](const GValue* item, gpointer result) {
    GstElement* element = GST_ELEMENT(g_value_get_object(item));
    GST_OBJECT_LOCK(element);
    for (GList* pad = element->pads; pad != nullptr; pad = pad->next) {
      if (gst_pad_get_task_state(GST_PAD(pad->data)) == GST_TASK_STARTED) *static_cast<bool*>(result) = false;
    }
    GST_OBJECT_UNLOCK(element);
  };
  while (gst_iterator_foreach(elements, look, &asleep) == GST_ITERATOR_RESYNC) gst_iterator_resync(elements);
  gst_iterator_free(elements);
  return asleep;
}

PQPlatformResult Reader::Build() {
  {
    const std::lock_guard lock(mutex_);
    interrupted_ = all_pads_ = told_ = has_video_ = has_audio_ = false;
    failure_ = {};
    missing_.clear();
    found_.clear();
  }
  stopping_ = false;
  if (path_.empty() || path_.find('\0') != std::string::npos) return {kPlatformIo, "this is no file name"};
  GError* error = nullptr;
  gchar* uri = gst_filename_to_uri(path_.c_str(), &error);
  if (uri == nullptr) {
    PQPlatformResult result(kPlatformIo, error != nullptr ? error->message : "this is no file name");
    if (error != nullptr) g_error_free(error);
    return result;
  }
  is_asf_ = IsAsfFile(path_);
  PQPlatformResult result;
  const ElementPtr decoder = MakeElement("uridecodebin", result);
  if (decoder != nullptr) g_object_set(decoder.get(), "uri", uri, nullptr);
  g_free(uri);
  if (decoder == nullptr) return result;
  pipeline_.reset(GST_ELEMENT(gst_object_ref_sink(gst_pipeline_new(nullptr))));
  GstBus* bus = gst_element_get_bus(pipeline_.get());
  gst_bus_set_sync_handler(bus, OnMessage, this, nullptr);
  gst_object_unref(bus);
  g_signal_connect(decoder.get(), "pad-added", G_CALLBACK(OnPadAdded), this);
  g_signal_connect(decoder.get(), "no-more-pads", G_CALLBACK(OnNoMorePads), this);
  gst_bin_add(GST_BIN(pipeline_.get()), decoder.get());

  if (gst_element_set_state(pipeline_.get(), GST_STATE_PAUSED) == GST_STATE_CHANGE_FAILURE) {
    result = Failure("does not open");
    TearDown();
    return result;
  }
  bool opened = false;
  {
    std::unique_lock lock(mutex_);
    const auto decided = [this] {
      return interrupted_ || !failure_.Ok() ||
             (all_pads_ &&
              (found_.empty() || ReadyToStart() ||
               std::any_of(found_.begin(), found_.end(), [](const auto& output) { return output->prerolled; })));
    };
    const auto limit = SteadyClock::now() + kOpenLimit;
    // A demuxer that finds nothing before the file's end may go to sleep without a word.
    for (int asleep = 0; !changed_.wait_for(lock, kIdleLook, decided) && SteadyClock::now() < limit && asleep < 2;) {
      lock.unlock();
      asleep = IsAsleep() ? asleep + 1 : 0;
      lock.lock();
    }
    if (failure_.Ok() && !interrupted_ && !all_pads_) failure_ = {kPlatformFormat, "ends before its first frame"};
    // An output that is announced and never brings anything must not hold up the others.
    if (failure_.Ok()) {
      changed_.wait_for(lock, kOutputLimit, [this] { return interrupted_ || !failure_.Ok() || ReadyToStart(); });
    }
    if (failure_.Ok()) {
      changed_.wait_for(lock, kStampLimit, [this] {
        return interrupted_ || std::all_of(found_.begin(), found_.end(), [](const auto& output) {
                 return output->props.major_type != PQMediaType::Video || output->ended ||
                        output->stamps.size() >= kStamps;
               });
      });
    }
    if (interrupted_) failure_ = {kPlatformInterrupted, "was interrupted"};
    opened = failure_.Ok();
  }
  if (!opened) {
    result = Failure("does not open");
    TearDown();
    return result;
  }

  {
    const std::lock_guard lock(mutex_);
    outputs_ = std::move(found_);
    found_.clear();
    // Pads come in any order; outputs keep theirs from one start to the next.
    std::stable_sort(outputs_.begin(), outputs_.end(),
                     [](const auto& a, const auto& b) { return a->props.major_type < b->props.major_type; });
  }
  for (std::size_t i = 0; i < outputs_.size(); ++i) {
    outputs_[i]->number = static_cast<int>(i);
    ReadProps(*outputs_[i]);
  }
  gint64 duration = 0;
  duration_ =
      gst_element_query_duration(pipeline_.get(), GST_FORMAT_TIME, &duration) ? duration / kNanosecondsPerUnit : 0;
  GstQuery* query = gst_query_new_seeking(GST_FORMAT_TIME);
  gboolean seekable = FALSE;
  if (gst_element_query(pipeline_.get(), query)) gst_query_parse_seeking(query, nullptr, &seekable, nullptr, nullptr);
  gst_query_unref(query);
  seekable_ = seekable != FALSE;
  fresh_ = true;
  return {};
}

void Reader::ReadProps(Output& output) {
  const PadPtr pad(gst_element_get_static_pad(output.sink.get(), "sink"));
  output.caps.reset(gst_pad_get_current_caps(pad.get()));
  PQMediaOutputProps& props = output.props;
  if (output.caps == nullptr) {
    props.major_type = PQMediaType::Other;  // announced, but without a single sample
    return;
  }
  if (props.major_type == PQMediaType::Video && gst_video_info_from_caps(&output.video_info, output.caps.get())) {
    props.subtype = PQMediaSubtype::Rgb24, props.format_type = PQMediaFormatType::VideoInfo;
    props.width = GST_VIDEO_INFO_WIDTH(&output.video_info), props.height = GST_VIDEO_INFO_HEIGHT(&output.video_info);
    props.sample_size = props.width * 3 * props.height;
    props.time_per_frame = FramePeriod(output);
    const std::lock_guard lock(mutex_);
    for (const std::string& name : missing_)
      props.notes.push_back("a part is left out: no fitting " + name + ", install " + PackageFor(name));
  } else if (props.major_type == PQMediaType::Audio &&
             gst_audio_info_from_caps(&output.audio_info, output.caps.get())) {
    props.subtype = PQMediaSubtype::Pcm, props.format_type = PQMediaFormatType::WaveFormat;
    props.channels = GST_AUDIO_INFO_CHANNELS(&output.audio_info);
    props.sample_rate = GST_AUDIO_INFO_RATE(&output.audio_info);
    props.bits_per_sample = 16;
    props.block_align = props.sample_size = props.channels * 2;
    // Whatever comes later in the file is converted to this form.
    gst_app_sink_set_caps(GST_APP_SINK(output.sink.get()), output.caps.get());
  }
}

// What the file says, except where it says nothing: then the mean distance of the first stamps, drawn to the usual rate
// that lies within their precision of a millisecond.
std::int64_t Reader::FramePeriod(const Output& output) {
  const int numerator = GST_VIDEO_INFO_FPS_N(&output.video_info),
            denominator = GST_VIDEO_INFO_FPS_D(&output.video_info);
  const std::int64_t stated =
      numerator > 0 ? std::llround(1e7 * static_cast<double>(denominator) / static_cast<double>(numerator)) : 0;
  const bool guessed = stated == 0 || (is_asf_ && stated == kAsfGuess);
  std::vector<GstClockTime> stamps;
  if (guessed) {
    const std::lock_guard lock(mutex_);
    stamps = output.stamps;
  }
  if (stamps.size() < 2 || stamps.back() <= stamps.front()) return stated;
  const auto steps = static_cast<std::int64_t>(stamps.size() - 1);
  const std::int64_t span = static_cast<std::int64_t>(stamps.back() - stamps.front()) / kNanosecondsPerUnit;
  const std::int64_t mean = (span + steps / 2) / steps;
  const std::int64_t precision = kMillisecond / steps + 1;
  std::int64_t best = mean;
  for (const std::int64_t usual : kUsualPeriods) {
    const std::int64_t away = std::llabs(usual - mean);
    if (away <= precision && (best == mean || away < std::llabs(best - mean))) best = usual;
  }
  return best;
}

PQPlatformResult Reader::Start(std::int64_t start, std::int64_t duration, double rate) {
  if (events_ == nullptr) return NotOpen();
  if (running_) return {kPlatformState, "the reader runs already"};
  if (!fresh_) {
    if (auto result = Build(); !result.Ok()) {
      result.detail = path_ + ": " + result.detail;
      return result;
    }
  }
  fresh_ = false;
  for (const auto& output : outputs_) {
    g_object_set(output->sink.get(), "sync", user_clock_ ? FALSE : TRUE, nullptr);
  }
  if (start > 0 || duration > 0 || rate != 1.0) {
    const bool to_end = duration <= 0;
    if (!gst_element_seek(pipeline_.get(), rate, GST_FORMAT_TIME,
                          static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE), GST_SEEK_TYPE_SET,
                          std::max<std::int64_t>(start, 0) * kNanosecondsPerUnit,
                          to_end ? GST_SEEK_TYPE_NONE : GST_SEEK_TYPE_SET,
                          to_end ? 0 : (std::max<std::int64_t>(start, 0) + duration) * kNanosecondsPerUnit)) {
      TearDown();
      return {kPlatformFormat, path_ + ": cannot be started at " + std::to_string(start / kMillisecond) + " ms"};
    }
  }
  running_ = true;
  // A full sink changes its state only when something is taken, and what its thread delivers may be taken only after
  // this call: until the pipeline plays, sinks take everything. (Nor do they wait at the stream's end: wait-on-eos.)
  std::vector<guint> most;
  for (const auto& output : outputs_) {
    g_object_get(output->sink.get(), "max-buffers", &most.emplace_back(), nullptr);
    g_object_set(output->sink.get(), "max-buffers", 0u, nullptr);
    output->thread = std::thread([this, target = output.get()] { Pull(*target); });
  }
  const GstStateChangeReturn change = gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING);
  for (std::size_t i = 0; i < outputs_.size(); ++i) {
    g_object_set(outputs_[i]->sink.get(), "max-buffers", most[i], nullptr);
  }
  if (change == GST_STATE_CHANGE_FAILURE) {
    PQPlatformResult result = Failure("does not start");
    TearDown();
    return result;
  }
  return {};
}

void Reader::TearDown() {
  stopping_ = true;
  if (pipeline_ != nullptr) gst_element_set_state(pipeline_.get(), GST_STATE_NULL);
  for (const auto& output : outputs_) {
    if (output->thread.joinable()) output->thread.join();
    output->branch.reset();
    output->sink.reset();
  }
  pipeline_.reset();
  running_ = fresh_ = false;
  const std::lock_guard lock(mutex_);
  found_.clear();
}

// The thread of one output.
void Reader::Pull(Output& output) {
  while (!stopping_) {
    SamplePtr sample(gst_app_sink_try_pull_sample(GST_APP_SINK(output.sink.get()), kLook));
    if (stopping_) return;
    if (sample != nullptr) {
      Deliver(output, std::move(sample));
      continue;
    }
    bool tell = false;
    PQPlatformResult failure;
    {
      const std::lock_guard lock(mutex_);
      failure = failure_;
      if (!failure.Ok()) tell = !std::exchange(told_, true);
    }
    if (tell) events_->OnError({failure.code, path_ + ": " + failure.detail});
    if (!failure.Ok() || gst_app_sink_is_eos(GST_APP_SINK(output.sink.get()))) {
      events_->OnEnd(output.number);
      return;
    }
  }
}

void Reader::Deliver(Output& output, SamplePtr sample) {
  GstBuffer* buffer = gst_sample_get_buffer(sample.get());
  GstCaps* caps = gst_sample_get_caps(sample.get());
  if (buffer == nullptr || caps == nullptr) return;
  PQMediaOutputProps& props = output.props;
  const bool is_video = props.major_type == PQMediaType::Video;
  if (output.caps == nullptr || (caps != output.caps.get() && !gst_caps_is_equal(caps, output.caps.get()))) {
    const PQMediaOutputProps before = props;
    output.caps.reset(gst_caps_ref(caps));
    if (is_video && gst_video_info_from_caps(&output.video_info, caps)) {
      props.width = GST_VIDEO_INFO_WIDTH(&output.video_info), props.height = GST_VIDEO_INFO_HEIGHT(&output.video_info);
      props.sample_size = props.width * 3 * props.height;
    } else if (!is_video && gst_audio_info_from_caps(&output.audio_info, caps)) {
      props.channels = GST_AUDIO_INFO_CHANNELS(&output.audio_info);
      props.sample_rate = GST_AUDIO_INFO_RATE(&output.audio_info);
      props.block_align = props.sample_size = props.channels * 2;
    }
    if (props.width != before.width || props.height != before.height || props.channels != before.channels ||
        props.sample_rate != before.sample_rate) {
      events_->OnFormat(output.number, props);
    }
  }

  std::int64_t time = 0, duration = 0;
  unsigned flags = 0;
  {
    const std::lock_guard lock(SeamMutex());
    if (GST_BUFFER_PTS_IS_VALID(buffer)) {
      const guint64 stream =
          gst_segment_to_stream_time(gst_sample_get_segment(sample.get()), GST_FORMAT_TIME, GST_BUFFER_PTS(buffer));
      if (GST_CLOCK_TIME_IS_VALID(stream)) time = static_cast<std::int64_t>(stream) / kNanosecondsPerUnit;
    }
    if (GST_BUFFER_DURATION_IS_VALID(buffer)) {
      duration = static_cast<std::int64_t>(GST_BUFFER_DURATION(buffer)) / kNanosecondsPerUnit;
    } else if (is_video) {
      duration = props.time_per_frame;
    }
    flags = GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DISCONT) ? 1u : 0u;
  }

  // The mapped buffer lives until the last holder of the block lets go, on whatever thread.
  struct Mapped {
    SamplePtr sample;
    GstVideoFrame frame{};
    GstMapInfo map{};
    bool is_video = false;
    ~Mapped() {
      if (is_video) {
        gst_video_frame_unmap(&frame);
      } else if (map.data != nullptr) {
        gst_buffer_unmap(gst_sample_get_buffer(sample.get()), &map);
      }
    }
  };
  PQPlatformBlock block;
  block.begin = time, block.end = time + duration;
  if (auto own = is_video ? TakeFrameMemory(buffer, block.data) : nullptr) {
    const GstVideoMeta* meta = gst_buffer_get_video_meta(buffer);
    block.step = meta != nullptr ? meta->stride[0] : GST_VIDEO_INFO_PLANE_STRIDE(&output.video_info, 0);
    block.size = static_cast<std::size_t>(block.step) * static_cast<std::size_t>(props.height);
    block.own = true;
    block.keep_alive = std::move(own);
    events_->OnSample(output.number, time, duration, flags, block);
    return;
  }
  auto mapped = std::make_shared<Mapped>();
  if (is_video) {
    if (!gst_video_frame_map(&mapped->frame, &output.video_info, buffer, GST_MAP_READ)) return;
    mapped->is_video = true;
    block.data = static_cast<const std::uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&mapped->frame, 0));
    block.step = GST_VIDEO_FRAME_PLANE_STRIDE(&mapped->frame, 0);
    block.size = std::min(static_cast<std::size_t>(block.step) * static_cast<std::size_t>(props.height),
                          gst_buffer_get_size(buffer));
  } else {
    if (!gst_buffer_map(buffer, &mapped->map, GST_MAP_READ)) return;
    block.data = mapped->map.data;
    block.size = mapped->map.size;
  }
  mapped->sample = std::move(sample);
  block.keep_alive = std::move(mapped);
  events_->OnSample(output.number, time, duration, flags, block);
}

}  // namespace

std::unique_ptr<PQMediaReader> MakeReader() { return std::make_unique<Reader>(); }

}  // namespace pantiq::gst
