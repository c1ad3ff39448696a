#include "pantiq/host/PQTextStream.h"

#include <algorithm>
#include <numeric>

#include "pantiq/host/PQCollection.h"
#include "pantiq/host/PQTextLiteral.h"

namespace pantiq {
namespace {

class Applier {
 public:
  Applier(std::string_view name, std::vector<PQTextLink>& links, std::vector<PQFault>& faults)
      : name_(name), links_(links), faults_(faults) {}

  void Apply(TPersistent& object, std::vector<PQTextSetting> settings, const std::string& prefix) {
    struct Entry {
      PQTextSetting setting;
      std::vector<PQPathStep> steps;
      std::vector<std::pair<int, int>> order;
    };
    std::vector<Entry> entries;
    for (PQTextSetting& setting : settings) {
      Entry entry{std::move(setting), {}, {}};
      std::size_t at = 0;
      if (const PQStatus status = PQParsePath(entry.setting.path, entry.steps, &at); !status.Ok()) {
        PQFault fault;
        fault.column = static_cast<int>(at) + 1;
        fault.length = static_cast<int>(std::max<std::size_t>(entry.setting.path.size() - at, 1));
        fault.text = status.Text();
        fault.value = entry.setting.path;
        AddAtPath(entry.setting, prefix, std::move(fault));
        continue;
      }
      entry.order = PQPathOrder(object, entry.steps);
      const auto same = std::find_if(entries.begin(), entries.end(), [&](const Entry& other) {
        return other.setting.path == entry.setting.path && other.setting.line != 0;
      });
      if (same != entries.end()) {
        PQFault fault;
        fault.column = 1, fault.length = static_cast<int>(entry.setting.path.size());
        fault.expected = "one value for each property; the first stands in line " + std::to_string(same->setting.line) +
                         ", column " + std::to_string(same->setting.column);
        fault.property = entry.setting.path;
        fault.text = entry.setting.path + ": is set twice; expected " + fault.expected;
        AddAtPath(entry.setting, prefix, std::move(fault));
        continue;
      }
      entries.push_back(std::move(entry));
    }
    std::stable_sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.order < b.order; });
    for (Entry& entry : entries) Set(object, entry.setting, entry.steps, prefix);
  }

 private:
  void Set(TPersistent& object, PQTextSetting& setting, const std::vector<PQPathStep>& steps,
           const std::string& prefix) {
    PQPathEnd end;
    PQFault fault;
    if (!PQFollowPath(object, steps, true, end, fault)) {
      const bool in_pin_list = end.object != nullptr && end.property.kind == PQKind::PinList;
      if (!in_pin_list || setting.collection != nullptr) return AddAtPath(setting, prefix, std::move(fault));
      PQTextLink& link = links_.emplace_back();
      link.setting = std::move(setting), link.prefix = prefix;
      return;
    }
    const PQProperty& property = end.property;
    if (setting.collection != nullptr) return SetCollection(end, setting, steps, prefix);
    switch (property.kind) {
      case PQKind::Pin:
        if (property.pin_role == PQPinRole::Source) {
          fault.column = 1, fault.length = static_cast<int>(setting.path.size());
          fault.value = setting.value;
          fault.property = setting.path;
          fault.expected = "the connection at the sink, as InputPin = Name." + setting.path;
          fault.text = setting.path + ": is a source pin; expected " + fault.expected;
          return AddAtPath(setting, prefix, std::move(fault));
        }
        links_.push_back({std::move(end), std::move(setting), prefix});
        return;
      case PQKind::Object:
      case PQKind::Collection:
      case PQKind::PinList:
        return AddAtValue(setting, prefix, property,
                          {PQCode::BadValue, "takes no value; expected " + PQExpected(property)});
      default:
        break;
    }
    PQValue value;
    PQStatus status = PQParseValue(property, setting.value, value);
    if (status.Ok()) status = PQSetProperty(*end.object, property, value);
    if (!status.Ok()) AddAtValue(setting, prefix, property, status);
  }

  void SetCollection(const PQPathEnd& end, const PQTextSetting& setting, const std::vector<PQPathStep>& steps,
                     const std::string& prefix) {
    TPersistent* const held = end.property.object ? end.property.object(*end.object) : nullptr;
    TCollection* const collection = PQCast<TCollection>(held);
    if (collection == nullptr) {
      PQFault fault;
      fault.column = static_cast<int>(steps.back().begin) + 1, fault.length = static_cast<int>(steps.back().length);
      fault.property = setting.path;
      fault.expected = PQExpected(end.property);
      fault.text = setting.path + ": the value is missing; expected " + fault.expected;
      return AddAtPath(setting, prefix, std::move(fault));
    }
    collection->Clear();
    int index = 0;
    for (const PQTextNode& node : setting.collection->children) {
      if (node.kind != PQTextNode::Kind::Item) continue;
      const std::string inner = prefix + setting.path + "[" + std::to_string(index++) + "].";
      Apply(*collection->Add(), PQSettingsOf(node), inner);
    }
  }

  // A fault whose column is relative to the path's text and whose message begins with the path.
  void AddAtPath(const PQTextSetting& setting, const std::string& prefix, PQFault fault) {
    fault.line = setting.line;
    fault.column = setting.column > 0 ? setting.column + fault.column - 1 : 0;
    Add(prefix, std::move(fault));
  }
  void AddAtValue(const PQTextSetting& setting, const std::string& prefix, const PQProperty& property,
                  const PQStatus& status) {
    PQFault fault;
    fault.line = setting.value_line, fault.column = setting.value_column;
    fault.length = static_cast<int>(setting.value.substr(0, setting.value.find('\n')).size());
    fault.property = setting.path;
    fault.value = setting.value;
    fault.expected = PQExpected(property);
    fault.nearest = PQNearestWord(property, setting.value);
    // A setter that failed has named its property already; the whole path takes that place.
    std::string_view text = status.Text();
    if (text.starts_with(property.name + ": ")) text.remove_prefix(property.name.size() + 2);
    fault.text = setting.path + ": " + std::string(text);
    Add(prefix, std::move(fault));
  }
  void Add(const std::string& prefix, PQFault fault) {
    fault.component = name_;
    // The message begins with the path so far, if there is any; what holds it comes before.
    std::string holder = name_.empty() ? std::string() : name_ + ".";
    holder += prefix;
    if (!holder.empty() && fault.property.empty()) {
      holder.pop_back();
      holder += ": ";
    }
    fault.text = holder + fault.text;
    if (fault.property.empty() && !fault.value.empty()) {
      fault.property = prefix + fault.value;
    } else {
      fault.property = prefix + fault.property;
    }
    faults_.push_back(std::move(fault));
  }

  std::string name_;
  std::vector<PQTextLink>& links_;
  std::vector<PQFault>& faults_;
};

}  // namespace

void PQApplyText(TPersistent& object, std::string_view name, std::vector<PQTextSetting> settings,
                 std::vector<PQTextLink>& links, std::vector<PQFault>& faults) {
  Applier(name, links, faults).Apply(object, std::move(settings), {});
}

std::vector<PQTextSetting> PQSettingsOf(const PQTextNode& block) {
  std::vector<PQTextSetting> settings;
  for (const PQTextNode& node : block.children) {
    if (node.kind != PQTextNode::Kind::Value && node.kind != PQTextNode::Kind::Collection) continue;
    PQTextSetting setting;
    setting.path = node.path, setting.value = node.value;
    setting.line = node.line, setting.column = node.column;
    setting.value_line = node.value_line, setting.value_column = node.value_column;
    if (node.kind == PQTextNode::Kind::Collection) setting.collection = &node;
    settings.push_back(std::move(setting));
  }
  return settings;
}

void PQReadText(std::string_view text, TPersistent& object, std::vector<PQTextLink>& links,
                std::vector<PQFault>& faults) {
  PQTextNode root;
  PQParseText(text, {}, root, faults);
  PQApplyText(object, {}, PQSettingsOf(root), links, faults);
  for (PQTextLink& link : links) link.setting.collection = nullptr;  // the tree is gone
}

std::string PQWriteText(const TPersistent& object, int indent) {
  PQTextNode root;
  PQTextUpdate how;
  how.indent = indent;
  PQUpdateText(root, object, how);
  return PQTextOf(root);
}

}  // namespace pantiq
