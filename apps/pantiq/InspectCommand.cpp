// One description of a class, shown as text or as JSON; the text is laid out from the JSON.
#include <algorithm>
#include <nlohmann/json.hpp>
#include <vector>

#include "Console.h"
#include "Examples.h"
#include "ListCommands.h"
#include "pantiq/core/JCPins.h"
#include "pantiq/host/PQCollection.h"
#include "pantiq/host/PQPath.h"
#include "pantiq/host/PQRegistry.h"
#include "pantiq/host/PQReport.h"
#include "pantiq/host/PQTextLiteral.h"
#include "pantiq/host/PQTextStream.h"
#include "pantiq/plugins/PQFreeFrame.h"

namespace pantiq::app {
namespace {

using Json = nlohmann::ordered_json;

const char* ActsText(PQActs acts) {
  return acts == PQActs::Now ? "at once" : acts == PQActs::NextFrame ? "with the next frame" : "with the next start";
}

const char* RoleText(PQPinRole role) {
  return role == PQPinRole::Sink     ? "sink"
         : role == PQPinRole::Source ? "source"
         : role == PQPinRole::State  ? "state"
                                     : "pin";
}

const char* KindText(PQKind kind) {
  static constexpr const char* kNames[] = {"boolean", "integer", "float",   "string", "enumeration",
                                           "set",     "binary",  "list",    "object", "collection",
                                           "picture", "pin",     "pin list"};
  return kNames[static_cast<int>(kind)];
}

Json Describe(const PQProperty& property, TPersistent* holder, int depth);

// All that an object publishes, in order; pins apart.
void DescribeAll(TPersistent& object, Json& properties, Json* pins, const PQProperty* outer, int depth) {
  const PQClassInfo& info = object.ClassInfo();
  for (const PQProperty& property : PQAllProperties(object)) {
    if (property.kind == PQKind::Pin || property.kind == PQKind::PinList) {
      if (pins == nullptr) continue;
      Json pin = {{"name", property.name},
                  {"role", RoleText(property.pin_role)},
                  {"list", property.kind == PQKind::PinList},
                  {"type", property.type_name},
                  {"help", property.help}};
      if (property.object) {
        const TPersistent* part = property.object(object);
        if (auto* single = PQCast<const TJCPin>(part)) pin["stream"] = single->GetStreamType().name;
        if (auto* list = PQCast<const TJCPinList>(part); list != nullptr && list->GetCount() > 0) {
          pin["stream"] = list->GetPin(0)->GetStreamType().name;
          Json names = Json::array();
          for (int i = 0; i < list->GetCount(); ++i) names.push_back(list->GetPinName(i));
          pin["pins"] = std::move(names);
        }
      }
      const PQProperty* by_default = info.DefaultPin(property.pin_role);
      pin["default"] = by_default != nullptr && by_default->name == property.name;
      pins->push_back(std::move(pin));
    } else {
      properties.push_back(Describe(outer != nullptr ? PQWithOuterDefault(outer, property) : property, &object, depth));
    }
  }
}

Json Describe(const PQProperty& property, TPersistent* holder, int depth) {
  Json entry = {{"name", property.name}, {"type", property.type_name}, {"kind", KindText(property.kind)}};
  const auto format = [&](const PQValue& value) { return PQFormatValue(property, value); };
  if (!property.default_value.IsEmpty()) entry["default"] = format(property.default_value);
  if (!property.unit.empty()) entry["unit"] = property.unit;
  if (property.kind == PQKind::Integer) entry["range"] = {property.low, property.high};
  if (!property.useful_low.IsEmpty()) {
    entry["useful"] = {PQFormatValue(property, property.useful_low), PQFormatValue(property, property.useful_high)};
  }
  if (!property.words.empty()) {
    Json words = Json::array();
    for (const PQWord& word : property.words) words.push_back({{"name", word.name}, {"value", word.value}});
    entry["words"] = std::move(words);
  }
  entry["acts"] = ActsText(property.acts);
  if (!property.stored) entry["stored"] = false;
  if (property.gauge) entry["gauge"] = true;
  if (property.is_default_of_class) entry["bare"] = true;
  if (property.file_use != PQFileUse::None) entry["file"] = property.file_use == PQFileUse::Read ? "read" : "written";
  entry["help"] = property.help;
  if (holder == nullptr || !property.object || depth > 8) return entry;
  TPersistent* part = property.object(*holder);
  if (part == nullptr) return entry;
  if (property.kind == PQKind::Object) {
    entry["properties"] = Json::array();
    DescribeAll(*part, entry["properties"], nullptr, &property, depth + 1);
  } else if (auto* collection = PQCast<TCollection>(part)) {
    Json item = {{"class", collection->ItemClassInfo().Name()}, {"properties", Json::array()}, {"pins", Json::array()}};
    TCollectionItem* sample = collection->GetCount() > 0 ? collection->GetItem(0) : collection->Add();
    if (sample != nullptr) DescribeAll(*sample, item["properties"], &item["pins"], nullptr, depth + 1);
    entry["item"] = std::move(item);
  }
  return entry;
}

// --- text -----------------------------------------------------------------------------------------------------------

constexpr int kHelpColumn = 6;

void LayOutPins(const Json& pins, const std::string& prefix, std::string& text) {
  for (const Json& pin : pins) {
    text += "  " + prefix + pin["name"].get<std::string>() + ": " + (pin["list"].get<bool>() ? "list of " : "") +
            pin["role"].get<std::string>() + (pin["list"].get<bool>() ? " pins" : " pin");
    if (pin.contains("stream")) text += ", " + pin["stream"].get<std::string>();
    if (pin["default"].get<bool>() && pin["role"] != "state") text += ", what ! connects";
    text += "\n";
    if (pin.contains("pins")) {
      std::string names;
      for (const Json& name : pin["pins"]) names += (names.empty() ? "" : ", ") + name.get<std::string>();
      text += "      now " + Wrapped(names, 10) + "\n";
    }
    text += "      " + Wrapped(pin["help"].get<std::string>(), kHelpColumn) + "\n";
  }
}

void LayOut(const Json& properties, const std::string& prefix, std::string& text) {
  for (const Json& property : properties) {
    const std::string name = prefix + property["name"].get<std::string>();
    std::string line = "  " + name + ": " + property["type"].get<std::string>();
    if (property.contains("default")) line += " = " + property["default"].get<std::string>();
    if (property.contains("unit")) line += " " + property["unit"].get<std::string>();
    if (property.contains("useful")) {
      line +=
          ", useful " + property["useful"][0].get<std::string>() + " to " + property["useful"][1].get<std::string>();
    } else if (property.contains("range")) {
      line += ", " + property["range"][0].dump() + " to " + property["range"][1].dump();
    }
    if (property.contains("gauge")) {
      line += "; shows what goes on, cannot be set";
    } else if (!property.contains("properties") && !property.contains("item")) {
      line += "; acts " + property["acts"].get<std::string>();
    }
    if (property.contains("file")) line += "; a file that is " + property["file"].get<std::string>();
    if (property.contains("bare")) line += "; takes a bare value";
    if (property.contains("stored") && !property.contains("gauge")) line += "; not stored";
    text += line + "\n";
    if (property.contains("words")) {
      std::string words;
      for (const Json& word : property["words"]) words += (words.empty() ? "" : ", ") + word["name"].get<std::string>();
      text += "      one of " + Wrapped(words, 13) + "\n";
    }
    if (!property["help"].get<std::string>().empty()) {
      text += "      " + Wrapped(property["help"].get<std::string>(), kHelpColumn) + "\n";
    }
    if (property.contains("properties")) LayOut(property["properties"], name + ".", text);
    if (property.contains("item")) {
      LayOutPins(property["item"]["pins"], name + "[0].", text);
      LayOut(property["item"]["properties"], name + "[0].", text);
    }
  }
}

}  // namespace

int InspectClass(const std::string& name, bool json) {
  const PQClassInfo* info = PQFindClass(name);
  if (info == nullptr) {
    std::vector<std::string> names;
    for (const PQClassInfo* known : PQRegisteredClasses()) names.push_back(known->Name());
    const std::string nearest = PQNearest(name, names);
    PrintError("pantiq: unknown class '" + name + "'" + (nearest.empty() ? "" : "; the nearest is " + nearest) +
               "; pantiq list shows them all");
    return kExitRefused;
  }
  const PQOwned<TComponent> object = PQCreateComponent(name);
  Json all = {{"class", info->Name()}, {"help", info->Help()}, {"page", PQPageOf(*info)}, {"unit", info->Unit()}};
  Json parents = Json::array();
  for (const PQClassInfo* parent = info->Parent(); parent != nullptr; parent = parent->Parent()) {
    parents.push_back(parent->Name());
  }
  all["parents"] = parents;
  all["pins"] = Json::array();
  all["properties"] = Json::array();
  if (object != nullptr) {
    Json pins = Json::array(), properties = Json::array();
    DescribeAll(*object, properties, &pins, nullptr, 0);
    all["pins"] = std::move(pins), all["properties"] = std::move(properties);
  }
  const std::string example = ExampleOf(*info);
  if (!example.empty()) all["example"] = example;
  if (json) return PrintResult(all.dump(2) + "\n");

  std::string text = info->Name() + ": " + Wrapped(info->Help(), static_cast<int>(info->Name().size()) + 2) + "\n";
  std::string line;
  for (const Json& parent : parents) line += (line.empty() ? "" : ", ") + parent.get<std::string>();
  text += "page " + PQPageOf(*info) + ", unit " + info->Unit() + (line.empty() ? "" : ", descends from " + line) + "\n";
  if (!all["pins"].empty()) {
    text += "\nPins\n";
    LayOutPins(all["pins"], "", text);
  }
  if (!all["properties"].empty()) {
    text += "\nProperties\n";
    LayOut(all["properties"], "", text);
  }
  if (!example.empty()) text += "\nExample\n  pantiq run --frames 25 '" + example + "'\n";
  return PrintResult(text);
}

int InspectPlugin(const std::string& file, bool json) {
  std::vector<PQReportEntry> told;
  SetReportListener([&told](const PQReportEntry& entry) { told.push_back(entry); });
  TPQFreeFrame effect;
  effect.SetIsolated(true);  // a plug-in that crashes is no reason for this program to
  effect.SetFilterFileName(file);
  SetReportListener({});
  if (!effect.HasPlugIn()) {
    PrintError("pantiq: '" + file + "' cannot be used as a plug-in: " + (told.empty() ? "" : told.back().detail));
    return kExitRefused;
  }
  for (const PQReportEntry& entry : told) PrintError("pantiq: note: " + entry.text + " (" + entry.detail + ")");

  const TPQFreeFrame::Capabilities caps = effect.GetCapabilities();
  Json video = Json::array();
  if (caps.video16) video.push_back(16);
  if (caps.video24) video.push_back(24);
  if (caps.video32) video.push_back(32);
  static constexpr const char* kOptimized[] = {"none", "in place", "copy", "both"};
  Json all = {{"file", file},
              {"description", effect.GetDescription()},
              {"about", effect.GetAbout()},
              {"version", nullptr},
              {"video", std::move(video)},
              {"process_copy", caps.process_copy},
              {"minimum_inputs", caps.minimum_inputs},
              {"maximum_inputs", caps.maximum_inputs},
              {"optimized_for", caps.optimized_for <= ofBoth ? kOptimized[caps.optimized_for] : "unknown"},
              {"parameters", Json::array()}};
  if (effect.GetHasExtendedInfo()) {
    all["version"] = std::to_string(effect.GetMajorVertion()) + "." + std::to_string(effect.GetMinorVertion());
  }
  const bool mixes = caps.minimum_inputs > 1;
  std::string line = std::string("TPQFreeFrame ") + (mixes ? "Name=fx " : "") + "FilterFileName=" + PQQuote(file),
              first;
  int number = 0;
  for (const PQProperty& property : effect.GetParameters().InstanceProperties()) {
    Json entry = {{"number", number++}, {"path", "Parameters." + PQPathName(property.name)}};
    entry.update(Describe(property, nullptr, 0));
    entry.erase("stored");  // they are, all at once
    if (first.empty() && !property.default_value.IsEmpty()) {
      first = " " + entry["path"].get<std::string>() + "=" + entry["default"].get<std::string>();
    }
    all["parameters"].push_back(std::move(entry));
  }
  // A name in single quotes goes into a line that a shell takes in double ones.
  line = "TPQJaehneGen ! " + line + first + " ! checksum";
  for (std::uint32_t i = 2; mixes && i <= std::min<std::uint32_t>(caps.minimum_inputs, 20); ++i) {
    line += "  TPQJaehneGen ! fx.InputPins.Pin" + std::to_string(i);
  }
  all["example"] = line;
  if (json) return PrintResult(all.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");

  std::string text = file + ": ";
  text += effect.GetDescription().empty() ? "a plug-in" : Wrapped(effect.GetDescription(), 4);
  if (effect.GetHasExtendedInfo()) text += ", version " + all["version"].get<std::string>();
  text += "\n";
  if (!effect.GetAbout().empty()) text += Wrapped(effect.GetAbout(), 0) + "\n";
  std::string depths;
  for (const Json& depth : all["video"]) depths += (depths.empty() ? "" : ", ") + depth.dump();
  text += "\nCapabilities\n  frames of " + depths + " bits" +
          (caps.video24   ? "; run in 24, without a conversion"
           : caps.video32 ? "; run in 32, converted there and back"
                          : "; not run, frames pass") +
          "\n  " + (caps.process_copy ? "in place and by copy" : "in place") + ", optimized for " +
          all["optimized_for"].get<std::string>() + "\n  ";
  if (caps.minimum_inputs == caps.maximum_inputs) {
    text += std::to_string(caps.minimum_inputs) + (caps.minimum_inputs == 1 ? " input\n" : " inputs\n");
  } else {
    text += std::to_string(caps.minimum_inputs) + " to " + std::to_string(caps.maximum_inputs) + " inputs\n";
  }
  text += all["parameters"].empty() ? "\nIt has no parameters.\n" : "\nParameters\n";
  Json shown = all["parameters"];
  for (Json& entry : shown) entry["name"] = PQPathName(entry["name"].get<std::string>());
  LayOut(shown, "Parameters.", text);
  text += "\nExample\n  pantiq run --frames 25 \"" + all["example"].get<std::string>() + "\"\n";
  return PrintResult(text);
}

}  // namespace pantiq::app
