#include <algorithm>
#include <set>

#include "pantiq/core/PQGraphPlan.h"
#include "pantiq/host/PQRegistry.h"
#include "pantiq/host/PQTextLiteral.h"

namespace pantiq::detail {
namespace {

std::string NameOf(const TComponent& component) {
  return component.GetName().empty() ? component.ClassInfo().Name() : component.GetName();
}

std::string ListOf(const std::vector<std::string>& names, const char* none) {
  if (names.empty()) return none;
  std::string text = "one of ";
  for (std::size_t i = 0; i < names.size() && i < 40; ++i) text.append(i != 0 ? ", " : "").append(names[i]);
  if (names.size() > 40) text += ", ...";
  return text;
}

// People leave out the beginning of a class's name: "Mirror", "PQMirror".
std::string NearestClass(std::string_view name) {
  for (const char* prefix : {"T", "TPQ"}) {
    const std::string whole = prefix + std::string(name);
    if (PQFindClass(whole) != nullptr) return whole;
  }
  std::vector<std::string> names;
  for (const PQClassInfo* info : PQRegisteredClasses()) names.push_back(info->Name());
  return PQNearest(name, names);
}

PQStatus CannotBeMade(const std::string& class_name, const char* why) {
  return {PQCode::Failed, class_name + " cannot be made: " + why};
}

}  // namespace

PQFault MakeFault(const GraphPlace& place, std::string text, std::string expected, std::string nearest) {
  PQFault fault;
  fault.line = place.line, fault.column = place.column, fault.length = place.length;
  fault.text = std::move(text);
  if (!expected.empty()) fault.text += "; expected " + expected;
  if (!nearest.empty()) fault.text += "; nearest is '" + nearest + "'";
  fault.expected = std::move(expected);
  fault.nearest = std::move(nearest);
  return fault;
}

bool HasErrors(const std::vector<PQFault>& faults) {
  return std::any_of(faults.begin(), faults.end(), [](const PQFault& f) { return f.severity == PQSeverity::Error; });
}

std::string BaseName(std::string_view class_name) {
  if (class_name.size() > 1 && class_name[0] == 'T' && class_name[1] >= 'A' && class_name[1] <= 'Z') {
    class_name.remove_prefix(1);
  }
  return std::string(class_name);
}

// --- Pins ---

namespace {

TJCPin* FreePinOf(const TComponent& component, const std::string& path, TJCPinList& list, PQFault& fault) {
  TJCPin* const pin = list.FreePin();
  if (pin != nullptr) return pin;
  const std::string count = std::to_string(list.GetCount());
  fault = MakeFault({}, NameOf(component) + "." + path + ": all of its " + count + " pins are connected",
                    "a pin by its number or name, as " + path + "[0]");
  fault.component = NameOf(component), fault.property = path;
  return nullptr;
}

const char* RoleName(PQPinRole role) { return role == PQPinRole::Source ? "source (output)" : "sink (input)"; }

}  // namespace

TJCPin* DefaultPinOf(TComponent& component, PQPinRole role, PQFault& fault) {
  const PQProperty* const property = component.ClassInfo().DefaultPin(role);
  TPersistent* const part = property != nullptr && property->object ? property->object(component) : nullptr;
  if (TJCPinList* const list = PQCast<TJCPinList>(part)) return FreePinOf(component, property->name, *list, fault);
  TJCPin* const pin = PQCast<TJCPin>(part);
  if (pin != nullptr) return pin;
  std::vector<std::string> names;
  for (const PQProperty& p : component.ClassInfo().Properties()) {
    if (p.kind == PQKind::Pin || p.kind == PQKind::PinList) names.push_back(p.name);
  }
  const std::string& class_name = component.ClassInfo().Name();
  fault = MakeFault({}, NameOf(component) + ": " + class_name + " has no " + RoleName(role) + " pin",
                    names.empty() ? "a component with pins" : "a component with one; it has " + ListOf(names, ""));
  fault.component = NameOf(component), fault.value = class_name;
  return nullptr;
}

TJCPin* PinOfPath(TComponent& component, std::string_view path, PQFault& fault) {
  std::vector<PQPathStep> steps;
  std::size_t at = 0;
  const auto named = [&] {
    fault.component = NameOf(component);
    fault.text = fault.component + "." + fault.text;
    return nullptr;
  };
  if (const PQStatus status = PQParsePath(path, steps, &at); !status.Ok()) {
    fault = MakeFault({0, static_cast<int>(at) + 1, static_cast<int>(std::max<std::size_t>(path.size() - at, 1))},
                      std::string(path) + ": " + status.Text());
    return named();
  }
  PQPathEnd end;
  if (!PQFollowPinPath(component, steps, true, end, fault)) {
    fault.severity = PQSeverity::Error;
    if (fault.property.empty()) {  // the first step failed, so that no path stands before the message
      fault.component = NameOf(component);
      fault.text = fault.component + ": " + fault.text;
      return nullptr;
    }
    return named();
  }
  TPersistent* const part = end.property.object(*end.object);
  if (TJCPinList* const list = PQCast<TJCPinList>(part)) return FreePinOf(component, std::string(path), *list, fault);
  TJCPin* const pin = PQCast<TJCPin>(part);
  if (pin == nullptr) {
    fault = MakeFault({0, 1, static_cast<int>(path.size())}, std::string(path) + ": this is no pin", "a pin");
    return named();
  }
  return pin;
}

TJCPin* FindPinOf(const TComponent& owner, std::string_view path, PQPinRole role, PQFault& fault) {
  const std::string_view name = path.substr(0, path.find_first_of(".["));
  TComponent* const component = owner.FindComponent(name);
  if (component == nullptr) {
    std::vector<std::string> names;
    for (const TComponent* known : owner.GetComponents()) names.push_back(known->GetName());
    fault = MakeFault({0, 1, static_cast<int>(std::max<std::size_t>(name.size(), 1))},
                      "there is no component '" + std::string(name) + "'",
                      ListOf(names, "a component's name; there are none"), PQNearest(name, names));
    fault.value = name;
    return nullptr;
  }
  if (name.size() == path.size()) {
    TJCPin* const pin = DefaultPinOf(*component, role, fault);
    if (pin == nullptr) fault.column = 1, fault.length = static_cast<int>(path.size());
    return pin;
  }
  if (path[name.size()] == '[' || name.size() + 1 == path.size()) {
    fault =
        MakeFault({0, static_cast<int>(name.size()) + 1, static_cast<int>(path.size() - name.size())},
                  std::string(path) + ": the pin's name is missing", "a pin, as " + std::string(name) + ".OutputPin");
    fault.component = name;
    return nullptr;
  }
  const std::size_t begin = name.size() + 1;
  TJCPin* const pin = PinOfPath(*component, path.substr(begin), fault);
  if (pin == nullptr) {
    if (fault.column == 0) {
      fault.column = 1, fault.length = static_cast<int>(path.size());
    } else {
      fault.column += static_cast<int>(begin);
    }
  }
  return pin;
}

// --- Building ---

void GraphBuilder::Add(PQFault fault) { faults_.push_back(std::move(fault)); }

void GraphBuilder::NameComponents(const GraphPlan& plan, std::vector<std::string>& names) {
  std::map<std::string, GraphPlace> taken;
  for (const TComponent* present : owner_.GetComponents()) taken[present->GetName()] = {};
  names.assign(plan.components.size(), {});
  for (std::size_t i = 0; i < plan.components.size(); ++i) {
    const PlannedComponent& planned = plan.components[i];
    if (planned.name.empty()) continue;
    if (!PQIsIdentifier(planned.name)) {
      PQFault fault = MakeFault(planned.name_place, PQQuote(planned.name) + " is no name of a component",
                                "letters, digits and underscores, not starting with a digit");
      fault.property = "Name", fault.value = planned.name;
      whole_ = false;
      Add(std::move(fault));
      continue;
    }
    const auto [first, is_new] = taken.emplace(planned.name, planned.name_place);
    if (!is_new) {
      PQFault fault = MakeFault(planned.name_place, "the name '" + planned.name + "' is taken",
                                "a name of its own; the first stands in line " + std::to_string(first->second.line) +
                                    ", column " + std::to_string(first->second.column));
      fault.component = planned.name, fault.property = "Name", fault.value = planned.name;
      whole_ = false;
      Add(std::move(fault));
      continue;
    }
    names[i] = planned.name;
  }
  std::map<std::string, int> last;
  for (std::size_t i = 0; i < plan.components.size(); ++i) {
    if (!names[i].empty()) continue;
    const std::string base = BaseName(plan.components[i].class_name);
    do {
      names[i] = base + std::to_string(++last[base]);
    } while (!taken.emplace(names[i], GraphPlace{}).second);
  }
}

TComponent* GraphBuilder::Make(const PQClassInfo& info, const std::string& name, const GraphPlace& place) {
  TComponent* component = nullptr;
  PQStatus status;
  try {
    component = info.Create(&owner_);
    if (component == nullptr)
      status = CannotBeMade(info.Name(), "it only serves as a base; expected a class of its own");
  } catch (const std::bad_alloc&) {
    throw;  // nothing is wrong with the text
  } catch (const std::exception& error) {
    status = CannotBeMade(info.Name(), error.what());
  }
  if (component == nullptr) {
    whole_ = false;
    Add(MakeFault(place, status.Text()));
    return nullptr;
  }
  PQOwned<TComponent> made(component);
  component->SetName(name).IgnoreError();
  component->SetDesigning(designing_);
  component->SetLoading(true);
  places_[component] = place;
  return made.release();
}

TComponent* GraphBuilder::Create(const PlannedComponent& planned, const std::string& name) {
  if (planned.class_name.empty()) {  // told by the reader
    whole_ = false;
    return nullptr;
  }
  const PQClassInfo* const info = PQFindClass(planned.class_name);
  if (info != nullptr) return Make(*info, name, planned.class_place);
  PQFault fault = MakeFault(planned.class_place, "there is no class '" + planned.class_name + "'",
                            "the name of a component's class", NearestClass(planned.class_name));
  fault.value = planned.class_name;
  whole_ = false;
  Add(std::move(fault));
  return nullptr;
}

void GraphBuilder::Apply(TComponent& component, const PlannedComponent& planned, std::vector<GraphLink>& links) {
  std::vector<PQTextSetting> settings = planned.settings;
  for (PQTextSetting bare : planned.bare) {
    const PQProperty* const property = component.ClassInfo().DefaultProperty();
    if (property == nullptr) {
      PQFault fault =
          MakeFault({bare.value_line, bare.value_column, static_cast<int>(bare.value.size())},
                    component.GetName() + ": " + component.ClassInfo().Name() + " takes no value without a property",
                    "Property=value");
      fault.component = component.GetName(), fault.value = bare.value;
      Add(std::move(fault));
      continue;
    }
    bare.path = property->name;
    // The quotes only tell a value from a name.
    std::string plain;
    if (property->kind != PQKind::String && property->kind != PQKind::Picture &&
        PQUnquote(bare.value, plain) == bare.value.size()) {
      bare.value = plain;
    }
    settings.push_back(std::move(bare));
  }
  const std::size_t before = faults_.size();
  std::vector<PQTextLink> read;
  PQApplyText(component, component.GetName(), settings, read, faults_);
  for (PQTextLink& found : read) {
    const PQTextSetting& setting = found.setting;
    GraphLink link;
    link.sink = &component;
    link.sink_path = found.prefix + setting.path;
    // The path in the text begins behind the prefix.
    link.sink_place = {setting.line, setting.column - static_cast<int>(found.prefix.size()),
                       static_cast<int>(setting.path.size())};
    link.source_path = setting.value;
    link.source_place = {setting.value_line, setting.value_column, static_cast<int>(setting.value.size())};
    link.place = link.source_place;
    links.push_back(std::move(link));
  }
  for (std::size_t i = before; i < faults_.size(); ++i) {
    const PQFault& fault = faults_[i];
    const auto setting = std::find_if(settings.begin(), settings.end(), [&](const PQTextSetting& s) {
      return s.line == fault.line && s.column > 0 && s.column <= fault.column &&
             fault.column < s.column + static_cast<int>(s.path.size());
    });
    if (fault.severity == PQSeverity::Note && setting != settings.end() && setting->collection == nullptr) {
      untold_[&component].push_back(*setting);
    }
  }
  // A value that is wrong says nothing about the graph as a whole; a property or a pin that isn't there may.
  for (std::size_t i = before; i < faults_.size(); ++i) {
    const PQFault& fault = faults_[i];
    const bool at_value = std::any_of(settings.begin(), settings.end(), [&](const PQTextSetting& setting) {
      return setting.value_line == fault.line && setting.value_column == fault.column;
    });
    if (!at_value && fault.severity == PQSeverity::Error) whole_ = false;
  }
}

void GraphBuilder::Connect(TJCPin& source, TJCPin& sink, const GraphPlace& place) {
  const auto fail = [&](std::string text, std::string expected) {
    PQFault fault = MakeFault(place, std::move(text), std::move(expected));
    fault.component = NameOf(*sink.GetOwnerComponent());
    fault.property = sink.GetName(), fault.value = source.GetFullName();
    whole_ = false;
    Add(std::move(fault));
  };
  if (source.GetPinType() == PQPinRole::Sink && sink.GetPinType() != PQPinRole::Sink) {
    return fail(source.GetFullName() + " is a sink (input)", "a source (output), connected to a sink");
  }
  if (sink.GetPinType() == PQPinRole::Source && source.GetPinType() != PQPinRole::Source) {
    return fail(sink.GetFullName() + " is a source (output)", "a sink (input), connected to a source");
  }
  if (sink.GetPinType() == PQPinRole::Sink) {
    const auto before = connected_.find(&sink);
    if (before != connected_.end()) {
      std::string expected = "one connection a sink";
      if (before->second.line > 0) {
        expected += "; the first stands in line " + std::to_string(before->second.line) + ", column " +
                    std::to_string(before->second.column);
      }
      const TJCPin* const first = sink.GetSourcePin();
      return fail(sink.GetFullName() + " is connected twice" +
                      (first != nullptr ? ", to " + first->GetFullName() + " and to " + source.GetFullName() : ""),
                  expected);
    }
  }
  if (const PQStatus status = source.Connect(sink); !status.Ok()) return fail(status.Text(), {});
  connected_[&sink] = place;
}

bool GraphBuilder::TryConnect(const GraphLink& link, PQFault& fault) {
  fault = {};
  const auto at = [&](const GraphPlace& place) {
    if (fault.column > 0) {
      fault.column += place.column - 1;
    } else {
      fault.column = place.column, fault.length = place.length;
    }
    fault.line = place.line, fault.offset = link.offset;
    if (place.line == 0) fault.column = 0;
    return false;
  };
  TJCPin* const source = link.source != nullptr ? DefaultPinOf(*link.source, PQPinRole::Source, fault)
                                                : FindPinOf(owner_, link.source_path, PQPinRole::Source, fault);
  if (source == nullptr) return at(link.source_place);
  TJCPin* const sink = link.sink == nullptr     ? FindPinOf(owner_, link.sink_path, PQPinRole::Sink, fault)
                       : link.sink_path.empty() ? DefaultPinOf(*link.sink, PQPinRole::Sink, fault)
                                                : PinOfPath(*link.sink, link.sink_path, fault);
  if (sink == nullptr) return at(link.sink_place);
  const std::size_t before = faults_.size();
  Connect(*source, *sink, link.place);
  for (std::size_t i = before; i < faults_.size(); ++i) faults_[i].offset = link.offset;
  return true;
}

void GraphBuilder::Connect(std::vector<GraphLink> links) {
  std::vector<PQFault> open;
  for (std::size_t before = links.size() + 1; !links.empty() && links.size() < before;) {
    before = links.size();
    open.clear();
    std::erase_if(links, [&](const GraphLink& link) {
      PQFault fault;
      if (TryConnect(link, fault)) return true;
      open.push_back(std::move(fault));
      return false;
    });
  }
  if (!open.empty()) whole_ = false;
  for (PQFault& fault : open) Add(std::move(fault));
}

void GraphBuilder::Build(const GraphPlan& plan) {
  std::vector<std::string> names;
  NameComponents(plan, names);
  std::vector<TComponent*> made;
  for (std::size_t i = 0; i < plan.components.size(); ++i) {
    made.push_back(Create(plan.components[i], names[i]));
    if (made.back() != nullptr && !plan.components[i].name.empty()) {
      places_[made.back()] = plan.components[i].name_place;
    }
  }
  // Names of components that could not be made are known all the same: what refers to them is no further fault.
  std::set<std::string> missing;
  for (std::size_t i = 0; i < made.size(); ++i) {
    if (made[i] == nullptr) missing.insert(names[i]);
  }
  const auto is_missing = [&](const std::string& path) {
    return missing.count(path.substr(0, path.find_first_of(".["))) != 0;
  };

  // Connections that properties say come first: they name their pins, and `!` takes what is left.
  std::vector<GraphLink> links;
  for (std::size_t i = 0; i < made.size(); ++i) {
    if (made[i] != nullptr) Apply(*made[i], plan.components[i], links);
  }
  std::erase_if(links, [&](const GraphLink& link) { return is_missing(link.source_path); });
  Connect(std::move(links));
  links.clear();
  for (const PlannedLink& planned : plan.links) {
    if (is_missing(planned.source.path) || is_missing(planned.sink.path)) continue;
    GraphLink link;
    link.source_path = planned.source.path, link.source_place = planned.source.place;
    link.sink_path = planned.sink.path, link.sink_place = link.place = planned.sink.place;
    const int source = planned.source.component, sink = planned.sink.component;
    if (source >= 0) link.source = made[static_cast<std::size_t>(source)];
    if (sink >= 0) link.sink = made[static_cast<std::size_t>(sink)];
    if ((source >= 0 && link.source == nullptr) || (sink >= 0 && link.sink == nullptr)) continue;  // told before
    links.push_back(std::move(link));
  }
  Connect(std::move(links));
  Finish();
}

void GraphBuilder::Finish() {
  if (HasErrors(faults_)) return;  // nothing of this stays
  for (TComponent* component : owner_.GetComponents()) {
    if (!component->IsLoading()) continue;
    component->SetLoading(false);
    component->Loaded();
  }
}

}  // namespace pantiq::detail
