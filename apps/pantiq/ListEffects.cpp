// The platform's video effects: each is tried on a frame, since being listed does not make one work.
#include <algorithm>
#include <nlohmann/json.hpp>
#include <vector>

#include "Console.h"
#include "ListCommands.h"
#include "pantiq/host/PQClassInfo.h"
#include "pantiq/platform/PQModules.h"

namespace pantiq::app {
namespace {

using Json = nlohmann::ordered_json;

constexpr PQEffectType kTrial{320, 240};

// How a frame went through the effect with the settings that it comes with: "in place", "by copy", "changes nothing as
// it comes"; on failure the result tells why.
std::string Try(PQEffect& effect, PQPlatformResult& result) {
  if (result = effect.SetInputType(kTrial); !result.Ok()) return {};
  if (result = effect.SetOutputType(kTrial); !result.Ok()) return {};
  const PQFrameMemory memory = [](std::int64_t step, std::int64_t rows, std::uint8_t*& data) -> std::shared_ptr<void> {
    auto bytes = std::make_shared<std::vector<std::uint8_t>>(static_cast<std::size_t>(step * rows));
    data = bytes->data();
    return bytes;
  };
  PQPlatformBlock frame, made;
  std::uint8_t* data = nullptr;
  frame.step = std::int64_t{kTrial.width} * 3, frame.size = static_cast<std::size_t>(frame.step * kTrial.height);
  frame.keep_alive = memory(frame.step, kTrial.height, data);
  frame.data = data;
  for (std::size_t i = 0; i < frame.size; ++i) data[i] = static_cast<std::uint8_t>(i / 3 % 251);
  switch (effect.Way()) {
    case PQEffectWay::Untouched:
      return "changes nothing as it comes";
    case PQEffectWay::InPlace:
      result = effect.Process(frame);
      return "in place";
    case PQEffectWay::Copy:
      break;
  }
  if (result = effect.ProcessInput(frame); result.Ok()) result = effect.ProcessOutput(memory, made);
  return "by copy";
}

Json Describe(PQEffects& effects, const PQEffectInfo& info) {
  Json shown = {{"name", info.name},       {"element", info.factory}, {"id", info.id},
                {"package", info.package}, {"help", info.help},       {"usable", false}};
  PQPlatformResult result;
  const auto effect = effects.Create(info.id, result);
  std::string way;
  if (effect != nullptr) way = Try(*effect, result);
  shown["usable"] = effect != nullptr && result.Ok();
  if (shown["usable"]) {
    shown["way"] = way;
  } else {
    shown["reason"] = result.detail;
  }
  Json settings = Json::array();
  std::vector<PQEffectSetting> list;
  if (effect != nullptr && effect->GetSettings(list).Ok()) {
    for (const PQEffectSetting& s : list) {
      settings.push_back({{"name", s.name}, {"expected", s.expected}, {"default", s.default_value}, {"help", s.help}});
    }
  }
  shown["settings"] = std::move(settings);
  return shown;
}

std::string Outcome(const Json& effect) {
  return effect["usable"] ? effect["way"].get<std::string>() : "not usable: " + effect["reason"].get<std::string>();
}

std::string Table(const Json& effects, const Json& more) {
  std::size_t name = 4, element = 7;
  for (const Json& effect : effects) {
    name = std::max(name, effect["name"].get_ref<const std::string&>().size());
    element = std::max(element, effect["element"].get_ref<const std::string&>().size());
  }
  std::string text = "Effects for TPQDMOEffect, whose DMOName is the name; pantiq list --effects=NAME shows one.\n\n" +
                     Padded("name", name + 2) + Padded("element", element + 2) + Padded("identifier", 40) + "here\n";
  for (const Json& effect : effects) {
    text += Padded(effect["name"].get_ref<const std::string&>(), name + 2) +
            Padded(effect["element"].get_ref<const std::string&>(), element + 2) +
            Padded(effect["id"].get_ref<const std::string&>(), 40) + Outcome(effect) + "\n";
  }
  if (!more.empty()) text += "\nMore effects come with packages that are not installed:\n";
  for (const Json& entry : more) {
    const std::string package = entry["package"];
    text += "  " + package + ": " + Wrapped(entry["brings"].get<std::string>(), 4, 100) + "\n";
  }
  return text;
}

std::string Page(const Json& effect) {
  const std::string name = effect["name"], element = effect["element"];
  std::string text = name + ": " + Wrapped(effect["help"].get<std::string>(), 4) + "\n\n  element     " + element +
                     "\n  identifier  " + effect["id"].get<std::string>() + "\n  package     " +
                     effect["package"].get<std::string>() + "\n  here        " + Outcome(effect) + "\n\n";
  std::string example;
  for (const Json& setting : effect["settings"]) {
    if (example.empty()) example = setting["name"].get<std::string>() + "=" + setting["default"].get<std::string>();
    text += "  " + setting["name"].get<std::string>() + ": " + setting["expected"].get<std::string>() + " (default " +
            setting["default"].get<std::string>() + ")\n      " + Wrapped(setting["help"].get<std::string>(), 6) + "\n";
  }
  if (effect["settings"].empty()) text += "  It has no settings.\n";
  return text + "\nExample: TPQDMOEffect DMOName='" + name + "'" +
         (example.empty() ? "" : " Settings='" + example + "'") + "\n";
}

}  // namespace

int ListEffects(const std::string& name, bool json) {
  PQPlatformResult result;
  PQMediaModule* const module = LoadMediaModule(result);
  const auto effects = module != nullptr ? module->CreateEffects(result) : nullptr;
  std::vector<PQEffectInfo> list;
  if (effects != nullptr) result = effects->Enumerate(list);
  if (!result.Ok()) {
    PrintError("pantiq: effects cannot be listed: " + result.detail);
    return kExitFailed;
  }
  if (!name.empty()) {
    std::vector<std::string> names;
    for (const PQEffectInfo& info : list) {
      if (info.name == name || info.factory == name || info.id == name) {
        const Json shown = Describe(*effects, info);
        return PrintResult(json ? shown.dump(2) + "\n" : Page(shown));
      }
      names.push_back(info.name), names.push_back(info.factory);
    }
    const std::string nearest = PQNearest(name, names);
    PrintError("pantiq: there is no effect '" + name + "'" +
               (nearest.empty() ? "" : "; the nearest is '" + nearest + "'") + "; pantiq list --effects shows all");
    return kExitRefused;
  }
  Json all = {{"effects", Json::array()}, {"more", Json::array()}};
  for (const PQEffectInfo& info : list) all["effects"].push_back(Describe(*effects, info));
  std::vector<PQEffectPackage> packages;
  effects->MorePackages(packages);
  for (const PQEffectPackage& entry : packages) {
    all["more"].push_back({{"package", entry.package}, {"brings", entry.brings}});
  }
  return PrintResult(json ? all.dump(2) + "\n" : Table(all["effects"], all["more"]));
}

}  // namespace pantiq::app
