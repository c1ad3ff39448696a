#include "pantiq/platform/gst/PQGstCommon.h"

#include <array>
#include <utility>

namespace pantiq::gst {
namespace {

struct ElementPackage {
  const char* element;
  const char* package;
};

// Debian's packages of the elements that this module makes by name.
constexpr std::array kPackages = {
    ElementPackage{"appsrc", "gstreamer1.0-plugins-base"},
    ElementPackage{"appsink", "gstreamer1.0-plugins-base"},
    ElementPackage{"videoconvert", "gstreamer1.0-plugins-base"},
    ElementPackage{"videoscale", "gstreamer1.0-plugins-base"},
    ElementPackage{"audioconvert", "gstreamer1.0-plugins-base"},
    ElementPackage{"audioresample", "gstreamer1.0-plugins-base"},
    ElementPackage{"uridecodebin", "gstreamer1.0-plugins-base"},
    ElementPackage{"videorate", "gstreamer1.0-plugins-base"},
    ElementPackage{"glimagesink", "gstreamer1.0-gl"},
    ElementPackage{"ximagesink", "gstreamer1.0-x"},
    ElementPackage{"xvimagesink", "gstreamer1.0-x"},
    ElementPackage{"alsasink", "gstreamer1.0-alsa"},
    ElementPackage{"pipewiresink", "gstreamer1.0-pipewire"},
    ElementPackage{"waylandsink", "gstreamer1.0-plugins-bad"},
    ElementPackage{"autoaudiosink", "gstreamer1.0-plugins-good"},
    ElementPackage{"pulsesink", "gstreamer1.0-plugins-good"},
    ElementPackage{"jackaudiosink", "gstreamer1.0-plugins-good"},
    ElementPackage{"osssink", "gstreamer1.0-plugins-good"},
    ElementPackage{"oss4sink", "gstreamer1.0-plugins-good"},
    ElementPackage{"videoflip", "gstreamer1.0-plugins-good"},
    ElementPackage{"deinterlace", "gstreamer1.0-plugins-good"},
    ElementPackage{"matroskamux", "gstreamer1.0-plugins-good"},
    ElementPackage{"mp4mux", "gstreamer1.0-plugins-good"},
    ElementPackage{"avimux", "gstreamer1.0-plugins-good"},
    ElementPackage{"lamemp3enc", "gstreamer1.0-plugins-good"},
    ElementPackage{"x264enc", "gstreamer1.0-plugins-ugly"},
};

const char* FormatName(PQVideoSubtype subtype) { return subtype == PQVideoSubtype::Yuy2 ? "YUY2" : "BGR"; }

}  // namespace

PQPlatformResult Initialise() {
  static std::mutex mutex;
  static bool done = false;
  const std::lock_guard lock(mutex);
  if (done) return {};
  gst_segtrap_set_enabled(FALSE);  // faults are the program's own
  GError* error = nullptr;
  if (!gst_init_check(nullptr, nullptr, &error)) {
    PQPlatformResult result(kPlatformFailed, error != nullptr ? error->message : "GStreamer does not start");
    if (error != nullptr) g_error_free(error);
    return result;
  }
  done = true;
  return {};
}

bool HasElement(const std::string& factory) {
  GstElementFactory* found = gst_element_factory_find(factory.c_str());
  if (found == nullptr) return false;
  gst_object_unref(found);
  return true;
}

std::string PackageOfElement(const std::string& factory) {
  for (const ElementPackage& entry : kPackages) {
    if (factory == entry.element) return entry.package;
  }
  return factory.starts_with("av") ? "gstreamer1.0-libav" : "";
}

PQPlatformResult MissingElement(const std::string& factory) {
  const std::string package = PackageOfElement(factory);
  return {kPlatformMissing, "the GStreamer element " + factory + " is not installed" +
                                (package.empty() ? std::string() : "; install " + package)};
}

ElementPtr MakeElement(const char* factory, PQPlatformResult& result) {
  GstElement* element = gst_element_factory_make(factory, nullptr);
  if (element == nullptr) {
    result = MissingElement(factory);
    return nullptr;
  }
  return ElementPtr(GST_ELEMENT(gst_object_ref_sink(element)));
}

PQPlatformResult FromError(const GError& error, const std::string& source) {
  long code = kPlatformFailed;
  if (error.domain == GST_RESOURCE_ERROR) {
    code = kPlatformIo;
  } else if (error.domain == GST_STREAM_ERROR) {
    code = kPlatformFormat;
  } else if (error.domain == GST_CORE_ERROR) {
    code = error.code == GST_CORE_ERROR_MISSING_PLUGIN ? kPlatformMissing : kPlatformFormat;
  }
  std::string text = error.message != nullptr ? error.message : "unknown error";
  for (char& c : text) {
    if (c == '\n') c = ' ';
  }
  if (!source.empty()) text += " (" + source + ")";
  return {code, std::move(text)};
}

PQPlatformResult FromMessage(GstMessage* message) {
  GError* error = nullptr;
  gchar* debug = nullptr;
  if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_WARNING) {
    gst_message_parse_warning(message, &error, &debug);
  } else {
    gst_message_parse_error(message, &error, &debug);
  }
  std::string source;
  if (GST_IS_ELEMENT(GST_MESSAGE_SRC(message))) {
    GstElementFactory* factory = gst_element_get_factory(GST_ELEMENT(GST_MESSAGE_SRC(message)));
    if (factory != nullptr) source = GST_OBJECT_NAME(factory);
  }
  PQPlatformResult result = FromError(*error, source);
  g_error_free(error);
  g_free(debug);
  return result;
}

ElementPtr MakeBin(const std::string& description, PQPlatformResult& result) {
  GError* error = nullptr;
  GstElement* bin =
      gst_parse_bin_from_description_full(description.c_str(), TRUE, nullptr, GST_PARSE_FLAG_FATAL_ERRORS, &error);
  ElementPtr owned;
  if (bin != nullptr) owned.reset(GST_ELEMENT(gst_object_ref_sink(bin)));
  if (error != nullptr) {
    result = FromError(*error, {});
    g_error_free(error);
    owned.reset();
  } else if (owned == nullptr) {
    result = {kPlatformFailed, "cannot build " + description};
  }
  return owned;
}

std::mutex& SeamMutex() {
  static auto* mutex = new std::mutex;  // never destroyed: GStreamer's threads may outlive main
  return *mutex;
}

GstBuffer* WrapBlock(const PQPlatformBlock& block, std::shared_ptr<const void> released, bool writable) {
  struct Holder {
    std::shared_ptr<const void> memory, released;
  };
  const auto let_go = [](gpointer data) {
    Holder last;
    {
      const std::lock_guard lock(SeamMutex());
      auto* holder = static_cast<Holder*>(data);
      last = std::move(*holder);
      delete holder;
    }
  };
  const std::lock_guard lock(SeamMutex());
  auto* holder = new Holder{block.keep_alive, std::move(released)};
  GstBuffer* buffer =
      gst_buffer_new_wrapped_full(writable ? static_cast<GstMemoryFlags>(0) : GST_MEMORY_FLAG_READONLY,
                                  const_cast<std::uint8_t*>(block.data), block.size, 0, block.size, holder, let_go);
  GST_BUFFER_PTS(buffer) = static_cast<GstClockTime>(block.begin * kNanosecondsPerUnit);
  if (block.end > block.begin) {
    GST_BUFFER_DURATION(buffer) = static_cast<GstClockTime>((block.end - block.begin) * kNanosecondsPerUnit);
  }
  return buffer;
}

void FrameRate(std::int64_t period, int& numerator, int& denominator) {
  numerator = 0, denominator = 1;
  if (period < 1) return;
  gst_video_guess_framerate(static_cast<GstClockTime>(period * kNanosecondsPerUnit), &numerator, &denominator);
}

int RowBytes(PQVideoSubtype subtype, int width) {
  return subtype == PQVideoSubtype::Yuy2 ? (width + 1) / 2 * 4 : width * 3;
}

CapsPtr VideoCaps(PQVideoSubtype subtype, int width, int height, std::int64_t period) {
  int numerator = 0, denominator = 1;
  FrameRate(period, numerator, denominator);
  return CapsPtr(gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, FormatName(subtype), "width", G_TYPE_INT,
                                     width, "height", G_TYPE_INT, height, "framerate", GST_TYPE_FRACTION, numerator,
                                     denominator, "pixel-aspect-ratio", GST_TYPE_FRACTION, 1, 1, nullptr));
}

// --- pipelines ------------------------------------------------------------------------------------------------------

void BusFlow::OnMessage(GstMessage* message) {
  if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR && failure.Ok()) {
    failure = FromMessage(message);
  } else if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS) {
    end_of_stream = true;
  }
}

ElementPtr MakePipeline(std::shared_ptr<BusFlow> flow) {
  ElementPtr pipeline(GST_ELEMENT(gst_object_ref_sink(gst_pipeline_new(nullptr))));
  GstBus* bus = gst_element_get_bus(pipeline.get());
  const auto told = [](GstBus*, GstMessage* message, gpointer data) {
    BusFlow* flow = nullptr;
    {
      const std::lock_guard seam(SeamMutex());
      flow = static_cast<std::shared_ptr<BusFlow>*>(data)->get();
    }
    {
      const std::lock_guard lock(flow->mutex);
      flow->OnMessage(message);
      flow->changed.notify_all();
    }
    gst_message_unref(message);
    return GST_BUS_DROP;
  };
  std::shared_ptr<BusFlow>* held = nullptr;
  {
    const std::lock_guard seam(SeamMutex());
    held = new std::shared_ptr<BusFlow>(std::move(flow));
  }
  gst_bus_set_sync_handler(bus, told, held,
                           [](gpointer data) { delete static_cast<std::shared_ptr<BusFlow>*>(data); });
  gst_object_unref(bus);
  return pipeline;
}

namespace {

struct Restamp {
  std::function<GstClockTime()> by_order;
  GstSegment segment;
  bool known = false;

  GstClockTime Running(GstClockTime stamp) const {
    if (!GST_CLOCK_TIME_IS_VALID(stamp) || !known) return stamp;
    guint64 running = 0;
    return gst_segment_to_running_time_full(&segment, GST_FORMAT_TIME, stamp, &running) > 0 ? running : 0;
  }
};

GstPadProbeReturn OnRestamp(GstPad*, GstPadProbeInfo* info, gpointer data) {
  auto* restamp = static_cast<Restamp*>(data);
  if ((GST_PAD_PROBE_INFO_TYPE(info) & GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM) != 0) {
    GstEvent* event = GST_PAD_PROBE_INFO_EVENT(info);
    {
      const std::lock_guard lock(SeamMutex());
      if (GST_EVENT_TYPE(event) != GST_EVENT_SEGMENT) return GST_PAD_PROBE_OK;
      gst_event_copy_segment(event, &restamp->segment);
      restamp->known = true;
    }
    GstSegment plain;
    gst_segment_init(&plain, GST_FORMAT_TIME);
    GstEvent* replaced = gst_event_new_segment(&plain);
    gst_event_set_seqnum(replaced, gst_event_get_seqnum(event));
    gst_event_unref(event);
    GST_PAD_PROBE_INFO_DATA(info) = replaced;
    return GST_PAD_PROBE_OK;
  }
  GstBuffer* buffer = gst_buffer_make_writable(GST_PAD_PROBE_INFO_BUFFER(info));
  const GstClockTime ordered = restamp->by_order ? restamp->by_order() : GST_CLOCK_TIME_NONE;
  const std::lock_guard lock(SeamMutex());
  GST_BUFFER_PTS(buffer) = restamp->by_order ? ordered : restamp->Running(GST_BUFFER_PTS(buffer));
  GST_BUFFER_DTS(buffer) = GST_BUFFER_PTS(buffer);
  GST_PAD_PROBE_INFO_DATA(info) = buffer;
  return GST_PAD_PROBE_OK;
}

}  // namespace

void RestampForMuxer(GstElement* encoder, std::function<GstClockTime()> by_order) {
  const PadPtr out(gst_element_get_static_pad(encoder, "src"));
  const PadPtr in(gst_pad_get_peer(out.get()));
  if (in == nullptr) return;
  gst_pad_add_probe(in.get(),
                    static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM),
                    OnRestamp, new Restamp{std::move(by_order), {}},
                    [](gpointer data) { delete static_cast<Restamp*>(data); });
}

}  // namespace pantiq::gst
