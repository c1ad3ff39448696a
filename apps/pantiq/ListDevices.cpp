// The devices that TPQDSVideoOut plays to: each is opened, since being listed does not make one work.
#include <algorithm>
#include <nlohmann/json.hpp>
#include <vector>

#include "Console.h"
#include "DeviceTrial.h"
#include "ListCommands.h"
#include "pantiq/media/PQDSDevices.h"

namespace pantiq::app {
namespace {

using Json = nlohmann::ordered_json;

Json Describe(const PQOutputDevice& device, PQDeviceCategory category) {
  Json shown = {{"name", device.name}, {"device", device.id}, {"package", device.package}, {"usable", false}};
  const PQDeviceTrial trial = TryDevice(category, device.id);
  shown["usable"] = trial.result.Ok() && !trial.silent;
  shown["limits"] = trial.limits;
  if (!trial.result.Ok()) {
    shown["reason"] = trial.result.detail;
  } else if (trial.silent) {
    shown["reason"] = "no device of sound opens: it plays in silence";
  }
  return shown;
}

Json All(PQDeviceCategory category, std::string& missing) {
  Json all = Json::array();
  TPQDSOutputDeviceList list;
  if (!list.EnumFilters(category)) {
    missing = list.Result().detail;
    return all;
  }
  for (int i = 0; i < list.GetCount(); ++i) {
    all.push_back(Describe(*list.GetItem(i), category));
    all.back()["default"] = i == 0;
  }
  return all;
}

std::string DeviceOutcome(const Json& device) {
  if (!device["usable"]) return "not usable: " + device["reason"].get<std::string>();
  std::string text = "usable";
  for (const Json& limit : device["limits"]) text += (text == "usable" ? ": " : "; ") + limit.get<std::string>();
  return text;
}

std::string Table(const std::string& head, const Json& devices, const std::string& missing) {
  std::string text = head + "\n";
  if (devices.empty()) return text + "  none: " + missing + "\n";
  std::size_t name = 0, id = 0;
  for (const Json& device : devices) {
    name = std::max(name, device["name"].get_ref<const std::string&>().size());
    id = std::max(id, device["device"].get_ref<const std::string&>().size());
  }
  for (const Json& device : devices) {
    const std::string line = "  " + Padded(device["name"].get_ref<const std::string&>(), name + 2) +
                             Padded(device["device"].get_ref<const std::string&>(), id + 2);
    text += line +
            Wrapped(DeviceOutcome(device) + (device["default"] ? " (Default)" : ""), static_cast<int>(line.size()),
                    std::max(120, static_cast<int>(line.size()) + 50)) +
            "\n";
  }
  return text;
}

}  // namespace

int ListDevices(bool json) {
  std::string no_video, no_audio;
  const Json video = All(PQDeviceCategory::VideoRenderer, no_video);
  const Json audio = All(PQDeviceCategory::AudioRenderer, no_audio);
  Json digital = Describe({"dv:", "Digital video", ""}, PQDeviceCategory::VideoRenderer);
  if (json) {
    digital["device"] = "dv:PATH";
    digital.erase("package");
    const Json all = {{"video", video}, {"audio", audio}, {"digital_video", digital}};
    return PrintResult(all.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
  }
  return PrintResult(
      Table("For TPQDSVideoOut VideoOutputDevice.Device, by name or by the text beside it:", video, no_video) + "\n" +
      Table("For AudioOutputDevice.Device:", audio, no_audio) +
      "\nVideoOutputDevice.Device='dv:PATH' writes digital video to a device or a new file; " + DeviceOutcome(digital) +
      ".\n");
}

}  // namespace pantiq::app
