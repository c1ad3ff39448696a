#include "pantiq/platform/gst/PQGstDevices.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace pantiq::gst {
namespace {

constexpr std::string_view kElementPrefix = "gst:element=";
constexpr std::string_view kDevicePrefix = "gst:device=";

// Those that are proved come first; who stands behind them follows by rank. The choosers, what shows nothing to a
// person and what takes the terminal over are no devices.
constexpr std::array kFirstVideo = {"ximagesink", "xvimagesink", "glimagesink", "waylandsink"};
constexpr std::array kFirstVideoOnWayland = {"waylandsink", "glimagesink", "ximagesink", "xvimagesink"};
constexpr std::array kFirstAudio = {"autoaudiosink", "pulsesink", "pipewiresink", "alsasink"};
constexpr std::array kNoDevices = {"autovideosink", "aasink",  "cacasink", "fakevideosink",  "fakeaudiosink", "gdkpixbufsink",
                                   "v4l2sink",      "intervideosink", "interaudiosink"};

const char* ClassOf(PQDeviceCategory category) {
  return category == PQDeviceCategory::VideoRenderer ? "Video/Sink" : "Audio/Sink";
}

struct ListFree {
  void operator()(GList* list) const { gst_plugin_feature_list_free(list); }
};

template <class Names>
std::size_t Place(const Names& names, const char* name) {
  return static_cast<std::size_t>(
      std::find_if(names.begin(), names.end(), [name](const char* n) { return std::strcmp(n, name) == 0; }) -
      names.begin());
}

std::string PackageOf(GstElementFactory* factory) {
  std::string package = PackageOfElement(GST_OBJECT_NAME(factory));
  if (!package.empty()) return package;
  GstPlugin* plugin = gst_plugin_feature_get_plugin(GST_PLUGIN_FEATURE(factory));
  if (plugin == nullptr) return package;
  const std::string source = gst_plugin_get_source(plugin);
  if (source.starts_with("gst-plugins-")) package = "gstreamer1.0-" + source.substr(4);
  gst_object_unref(plugin);
  return package;
}

// Devices that the platform's monitor knows; `visit` answers whether it has seen enough.
template <class Visit>
void WalkDevices(PQDeviceCategory category, Visit visit) {
  GstDeviceMonitor* monitor = gst_device_monitor_new();
  gst_device_monitor_add_filter(monitor, ClassOf(category), nullptr);
  if (gst_device_monitor_start(monitor)) {
    GList* devices = gst_device_monitor_get_devices(monitor);
    bool enough = false;
    for (GList* entry = devices; entry != nullptr; entry = entry->next) {
      auto* device = GST_DEVICE(entry->data);
      if (!enough) {
        gchar* name = gst_device_get_display_name(device);
        enough = visit(device, std::string(name != nullptr ? name : ""));
        g_free(name);
      }
      gst_object_unref(device);
    }
    g_list_free(devices);
    gst_device_monitor_stop(monitor);
  }
  gst_object_unref(monitor);
}

void MakeUnique(std::vector<PQOutputDevice>& devices) {
  for (std::size_t i = 0; i < devices.size(); ++i) {
    const std::string name = devices[i].name;
    int copy = 1;
    const auto taken = [&](const std::string& text) {
      return std::any_of(devices.begin(), devices.begin() + static_cast<std::ptrdiff_t>(i),
                         [&](const PQOutputDevice& other) { return other.name == text; });
    };
    while (taken(devices[i].name)) devices[i].name = name + " (" + std::to_string(++copy) + ")";
  }
}

// A path that digital video can be written to. A file that holds something stays as it is.
PQPlatformResult ProvePath(const std::string& path) {
  const auto refused = [&path](int error) { return PQPlatformResult(kPlatformIo, path + ": " + std::strerror(error)); };
  if (path.empty() || path.find('\0') != std::string::npos) return {kPlatformIo, "dv: is followed by no path"};
  struct stat present {};
  if (stat(path.c_str(), &present) == 0) {
    if (S_ISDIR(present.st_mode)) return refused(EISDIR);
    if (S_ISREG(present.st_mode) && present.st_size > 0) return {kPlatformIo, path + ": the file exists"};
    return access(path.c_str(), W_OK) == 0 ? PQPlatformResult() : refused(errno);
  }
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (file < 0) return refused(errno);
  close(file);
  unlink(path.c_str());
  return {};
}

ElementPtr MakeDevice(PQDeviceCategory category, const std::string& id, PQPlatformResult& result) {
  if (id.starts_with(kDigitalVideoPrefix) && category == PQDeviceCategory::VideoRenderer) {
    const std::string path = id.substr(std::strlen(kDigitalVideoPrefix));
    if (result = ProvePath(path); !result.Ok()) return nullptr;
    ElementPtr sink = MakeElement("filesink", result);
    if (sink != nullptr) g_object_set(sink.get(), "location", path.c_str(), "sync", TRUE, nullptr);
    return sink;
  }
  if (id.starts_with(kElementPrefix)) {
    const std::string factory = id.substr(kElementPrefix.size());
    return MakeElement(factory.c_str(), result);
  }
  ElementPtr made;
  if (id.starts_with(kDevicePrefix)) {
    WalkDevices(category, [&](GstDevice* device, const std::string& name) {
      if (id != std::string(kDevicePrefix) + ClassOf(category) + "/" + name) return false;
      GstElement* element = gst_device_create_element(device, nullptr);
      if (element != nullptr) made.reset(GST_ELEMENT(gst_object_ref_sink(element)));
      return true;
    });
  }
  if (made == nullptr) result = {kPlatformIo, "there is no device " + id};
  return made;
}

// What a chooser has chosen, once it is open: the factory of its one child.
std::string ChildOf(GstElement* element) {
  if (!GST_IS_BIN(element)) return {};
  std::string name;
  GstIterator* children = gst_bin_iterate_elements(GST_BIN(element));
  GValue item = G_VALUE_INIT;
  if (gst_iterator_next(children, &item) == GST_ITERATOR_OK) {
    GstElementFactory* factory = gst_element_get_factory(GST_ELEMENT(g_value_get_object(&item)));
    if (factory != nullptr) name = GST_OBJECT_NAME(factory);
    g_value_unset(&item);
  }
  gst_iterator_free(children);
  return name;
}

std::string RangeText(const GValue* value) {
  if (G_VALUE_HOLDS_INT(value)) return std::to_string(g_value_get_int(value));
  if (GST_VALUE_HOLDS_INT_RANGE(value)) {
    const int high = gst_value_get_int_range_max(value);
    return std::to_string(gst_value_get_int_range_min(value)) +
           (high == G_MAXINT ? std::string(" or more") : " to " + std::to_string(high));
  }
  gchar* text = gst_value_serialize(value);
  std::string answer = text != nullptr ? text : "";
  g_free(text);
  std::erase_if(answer, [](char c) { return c == '{' || c == '}'; });
  const auto first = answer.find_first_not_of(' ');
  const auto last = answer.find_last_not_of(' ');
  return first == std::string::npos ? std::string() : answer.substr(first, last - first + 1);
}

// What an open sink says that it takes.
std::vector<std::string> LimitsOf(GstElement* element, PQDeviceCategory category) {
  std::vector<std::string> limits;
  const PadPtr pad(gst_element_get_static_pad(element, "sink"));
  if (pad == nullptr) return limits;
  const CapsPtr caps(gst_pad_query_caps(pad.get(), nullptr));
  for (guint i = 0; i < gst_caps_get_size(caps.get()); ++i) {
    const GstStructure* form = gst_caps_get_structure(caps.get(), i);
    const bool video = category == PQDeviceCategory::VideoRenderer;
    if (!gst_structure_has_name(form, video ? "video/x-raw" : "audio/x-raw")) continue;
    const auto add = [&](const char* field, const char* before, const char* after) {
      if (const GValue* value = gst_structure_get_value(form, field)) {
        limits.push_back(before + RangeText(value) + after);
      }
    };
    if (video) {
      add("format", "pixels ", "");
      add("width", "", " wide");
      add("height", "", " high");
    } else {
      add("rate", "", " Hz");
      add("channels", "", " channels");
    }
    break;
  }
  return limits;
}

class Devices final : public PQOutputDevices {
 public:
  PQPlatformResult Enumerate(PQDeviceCategory category, std::vector<PQOutputDevice>& devices) override {
    devices.clear();
    const bool video = category == PQDeviceCategory::VideoRenderer;
    const std::unique_ptr<GList, ListFree> list(gst_element_factory_list_get_elements(
        GST_ELEMENT_FACTORY_TYPE_SINK |
            (video ? GST_ELEMENT_FACTORY_TYPE_MEDIA_VIDEO : GST_ELEMENT_FACTORY_TYPE_MEDIA_AUDIO),
        GST_RANK_NONE));
    std::vector<GstElementFactory*> factories;
    for (GList* entry = list.get(); entry != nullptr; entry = entry->next) {
      auto* factory = GST_ELEMENT_FACTORY(entry->data);
      if (Place(kNoDevices, GST_OBJECT_NAME(factory)) < kNoDevices.size()) continue;
      factories.push_back(factory);
    }
    const bool wayland = std::getenv("WAYLAND_DISPLAY") != nullptr && std::getenv("DISPLAY") == nullptr;
    const auto place = [&](GstElementFactory* factory) {
      const char* name = GST_OBJECT_NAME(factory);
      return !video ? Place(kFirstAudio, name) : wayland ? Place(kFirstVideoOnWayland, name) : Place(kFirstVideo, name);
    };
    // The platform's list has the higher rank first.
    std::stable_sort(factories.begin(), factories.end(),
                     [&](GstElementFactory* a, GstElementFactory* b) { return place(a) < place(b); });
    for (GstElementFactory* factory : factories) {
      const gchar* name = gst_element_factory_get_metadata(factory, GST_ELEMENT_METADATA_LONGNAME);
      devices.push_back({std::string(kElementPrefix) + GST_OBJECT_NAME(factory),
                         name != nullptr ? name : GST_OBJECT_NAME(factory), PackageOf(factory)});
    }
    WalkDevices(category, [&](GstDevice*, const std::string& name) {
      devices.push_back({std::string(kDevicePrefix) + ClassOf(category) + "/" + name, name, ""});
      return false;
    });
    MakeUnique(devices);
    if (!devices.empty()) return {};
    return {kPlatformMissing, video ? "no video renderer is installed; install gstreamer1.0-x"
                                    : "no audio renderer is installed; install gstreamer1.0-plugins-good"};
  }

  PQDeviceTrial Try(PQDeviceCategory category, const std::string& id) override {
    PQDeviceTrial trial;
    if (id.starts_with(kDigitalVideoPrefix)) {
      for (const char* needed : {"avenc_dvvideo", "avmux_dv"}) {
        if (!HasElement(needed)) {
          trial.result = MissingElement(needed);
          return trial;
        }
      }
      trial.limits = {"PAL 720x576 at 25 frames per second", "NTSC 720x480 at 29.97 frames per second",
                      "sound at 48000 Hz in 2 channels"};
      const std::string path = id.substr(std::strlen(kDigitalVideoPrefix));
      if (!path.empty()) trial.result = ProvePath(path);
      return trial;
    }
    const ElementPtr element = OpenDevice(category, id, trial.result, trial.silent);
    if (element == nullptr) return trial;
    trial.limits = LimitsOf(element.get(), category);
    gst_element_set_state(element.get(), GST_STATE_NULL);
    return trial;
  }
};

}  // namespace

ElementPtr OpenDevice(PQDeviceCategory category, const std::string& id, PQPlatformResult& result, bool& silent) {
  silent = false;
  ElementPtr element = MakeDevice(category, id, result);
  if (element == nullptr) return nullptr;
  if (id.starts_with(kDigitalVideoPrefix)) return element;  // its file is opened when the graph runs
  // An element outside a pipeline tells nobody why it does not open.
  GstBus* bus = gst_bus_new();
  gst_element_set_bus(element.get(), bus);
  const bool open = gst_element_set_state(element.get(), GST_STATE_READY) != GST_STATE_CHANGE_FAILURE;
  result = open ? PQPlatformResult() : PQPlatformResult(kPlatformFailed, id + " does not open");
  if (open) {
    // What a chooser falls back to is heard by nobody.
    silent = category == PQDeviceCategory::AudioRenderer && ChildOf(element.get()) == "fakesink";
  } else if (const MessagePtr message(gst_bus_pop_filtered(bus, GST_MESSAGE_ERROR)); message != nullptr) {
    result = FromMessage(message.get());
  }
  gst_element_set_bus(element.get(), nullptr);
  gst_object_unref(bus);
  if (open) return element;
  gst_element_set_state(element.get(), GST_STATE_NULL);
  return nullptr;
}

std::unique_ptr<PQOutputDevices> MakeOutputDevices() { return std::make_unique<Devices>(); }

}  // namespace pantiq::gst
