// The devices that TPQDSVideoOut plays to and the encoders of the media engine: each is tried, since being listed does
// not make one work.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string_view>
#include <vector>

#include "Console.h"
#include "DeviceTrial.h"
#include "ListCommands.h"
#include "pantiq/media/PQDSDevices.h"

namespace pantiq::app {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::string_view kElement = "gst:element=";

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

int ListEncoders(bool json) {
  TPQDSCapDeviceList list;
  const PQPlatformResult listed = list.EnumFilters(PQFilterCategory::VideoCompressors);
  Json all = Json::array();
  std::size_t id = 0, name = 0;
  for (int i = 0; i < list.GetCount(); ++i) {
    const PQFilterInfo& filter = list.GetItem(i);
    id = std::max(id, filter.moniker.size() - std::min(filter.moniker.size(), kElement.size()));
    name = std::max(name, filter.name.size());
  }
  std::string good, bad;
  for (int i = 0; i < list.GetCount(); ++i) {
    const PQFilterInfo& filter = list.GetItem(i);
    PQCompressorTrial trial;
    const PQPlatformResult result = TryEncoder(filter.moniker, trial);
    const bool usable = result.Ok() && trial.Usable();
    Json shown = {{"name", filter.name}, {"compressor", filter.moniker}, {"usable", usable}};
    std::string outcome;
    if (usable) {
      const std::int64_t bytes = trial.bytes / PQCompressorTrial::kFrames;
      shown["lossless"] = trial.lossless;
      if (!trial.lossless) shown["decibel"] = std::round(trial.decibel * 10) / 10;
      shown["bytes"] = bytes;
      shown["at_once"] = trial.at_once;
      char numbers[80];
      std::snprintf(numbers, sizeof numbers, "%9lld  %4.1f dB", static_cast<long long>(bytes), trial.decibel);
      outcome = trial.lossless ? std::string(numbers, 9) + "  every byte" : numbers;
      if (!trial.at_once) outcome += ", late or slow";
    } else {
      shown["reason"] = !result.Ok() ? result.detail
                                     : std::to_string(trial.blocks) + " blocks of " +
                                           std::to_string(PQCompressorTrial::kFrames) + " frames, " +
                                           std::to_string(trial.frames) + " frames of the blocks" +
                                           (trial.frames > 0 ? ", too unlike what went in" : "");
      outcome = shown["reason"].get<std::string>();
    }
    all.push_back(std::move(shown));
    std::string element = filter.moniker;
    if (element.starts_with(kElement)) element.erase(0, kElement.size());
    const std::string line = "  " + Padded(element, id + 2) + Padded(filter.name, name + 2);
    if (usable) {
      good += line + outcome + "\n";
    } else {
      bad += line + Wrapped(outcome, static_cast<int>(line.size()), std::max(120, static_cast<int>(line.size()) + 50)) +
             "\n";
    }
  }
  if (json) {
    Json document = {{"encoders", std::move(all)}};
    if (!listed.Ok()) document["missing"] = listed.detail;
    return PrintResult(document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
  }
  if (good.empty() && bad.empty()) {
    return PrintResult("No encoder works here: " + (listed.Ok() ? "none is installed" : listed.detail) + "\n");
  }
  return PrintResult(
      "For TPQDSVideoCompressor Compressions[0].Compressor, each tried on five frames of 320 by 240: bytes a frame, "
      "and\n"
      "how near the worst came back. `Settings` may help one that is late or slow.\n" +
      good + (bad.empty() ? "" : "\nNot usable:\n") + bad);
}

}  // namespace pantiq::app
