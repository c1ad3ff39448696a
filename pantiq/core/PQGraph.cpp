#include "pantiq/core/PQGraph.h"

#include <algorithm>
#include <utility>

#include "pantiq/core/PQGraphImpl.h"
#include "pantiq/core/RWStreamTypes.h"

namespace pantiq {
namespace {

using detail::GraphBuilder;
using detail::GraphPlan;
using detail::MakeFault;

// Faults in the order in which a person reads the text; those without a place come last.
void SortByPlace(std::vector<PQFault>& faults) {
  const auto key = [](const PQFault& f) { return std::pair(f.line > 0 ? f.line : 0x7fffffff, f.column); };
  std::stable_sort(faults.begin(), faults.end(), [&](const PQFault& a, const PQFault& b) { return key(a) < key(b); });
}

// What a component does in a graph.
struct Part {
  explicit Part(TComponent& component) : pins(JCPublishedPins(component)) {
    for (const TJCPin* pin : pins) {
      const bool connected = pin->IsConnected();
      any = any || connected;
      if (pin->Tag().Is(TRWJCSinkPin::kTag)) sinks = true, fed = fed || connected;
      if (pin->Tag().Is(TRWJCSourcePin::kTag)) sources = true;
    }
    const PQProperty* const input = component.ClassInfo().Find("InputPin");
    const TJCPin* const pin = input != nullptr && input->object ? PQCast<TJCPin>(input->object(component)) : nullptr;
    needs_input = pin != nullptr && pin->Tag().Is(TRWJCSinkPin::kTag);
  }
  std::vector<TJCPin*> pins;
  bool any = false;                     // something is connected
  bool sinks = false, sources = false;  // it has pins for streams
  bool fed = false;                     // a stream arrives
  bool needs_input = false;             // it gives nothing of its own
};

std::string DotQuoted(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c == '\n' ? ' ' : c;
  }
  return quoted += '"';
}

PQStatus StatusOf(const std::vector<PQFault>& faults, PQCode code) {
  for (const PQFault& fault : faults) {
    if (fault.severity == PQSeverity::Error) return {code, fault.text};
  }
  return {};
}

}  // namespace

PQGraph::PQGraph(bool designing) : impl_(std::make_unique<Impl>()), designing_(designing) {}
PQGraph::~PQGraph() = default;

bool PQGraph::Take(std::unique_ptr<Impl> fresh, std::vector<PQFault>& told, std::vector<PQFault>& faults) {
  SortByPlace(told);
  const bool good = !detail::HasErrors(told);
  if (good) impl_ = std::move(fresh);
  std::move(told.begin(), told.end(), std::back_inserter(faults));
  return good;
}

bool PQGraph::ParseLaunch(std::string_view text, std::vector<PQFault>& faults) {
  std::vector<PQFault> told;
  auto fresh = std::make_unique<Impl>();
  fresh->source = text;
  fresh->ReadLaunch(designing_, told);
  return Take(std::move(fresh), told, faults);
}

bool PQGraph::LoadText(std::string_view text, std::vector<PQFault>& faults) {
  std::vector<PQFault> told;
  auto fresh = std::make_unique<Impl>();
  fresh->source = text;
  fresh->ReadText(designing_, told);
  return Take(std::move(fresh), told, faults);
}

void PQGraph::Impl::ReadLaunch(bool designing, std::vector<PQFault>& faults) {
  GraphPlan plan;
  detail::ReadLaunch(source, plan, faults);
  Build(plan, designing, faults);
}

void PQGraph::Impl::Build(const GraphPlan& plan, bool designing, std::vector<PQFault>& faults) {
  const bool read = !detail::HasErrors(faults);
  GraphBuilder builder(root, designing, faults);
  builder.Build(plan);
  places = builder.Places();
  untold = builder.Untold();
  whole = read && builder.IsWhole();
}

namespace {

// Faults of the text, and if the graph stands those of the graph.
template <class Read>
std::vector<PQFault> CheckedBy(Read read) {
  std::vector<PQFault> faults;
  read(faults);
  SortByPlace(faults);
  return faults;
}

}  // namespace

std::vector<PQFault> PQGraph::CheckLaunch(std::string_view text) {
  return CheckedBy([&](std::vector<PQFault>& faults) {
    Impl impl;
    impl.source = text;
    impl.ReadLaunch(true, faults);
    if (impl.whole) impl.Check(faults);
  });
}

std::vector<PQFault> PQGraph::CheckText(std::string_view text) {
  return CheckedBy([&](std::vector<PQFault>& faults) {
    Impl impl;
    impl.source = text;
    impl.ReadText(true, faults);
    if (impl.whole) impl.Check(faults);
  });
}

std::vector<PQFault> PQGraph::Check() const {
  return CheckedBy([&](std::vector<PQFault>& faults) { impl_->Check(faults); });
}

void PQGraph::Impl::Check(std::vector<PQFault>& faults) const {
  const std::vector<TComponent*>& components = root.GetComponents();
  if (components.empty()) {
    faults.push_back(MakeFault({}, "the graph is empty", "a source and a sink, as 'TPQImageGen ! ...'"));
    return;
  }
  bool source = false, sink = false;
  for (TComponent* component : components) {
    const Part part(*component);
    source = source || (part.sources && !part.fed && !part.needs_input);
    sink = sink || part.fed;
    const auto found = places.find(component);
    const detail::GraphPlace place = found != places.end() ? found->second : detail::GraphPlace{};
    const auto warn = [&](PQFault warning) {
      warning.severity = PQSeverity::Warning;
      warning.component = component->GetName();
      faults.push_back(std::move(warning));
    };
    if (!part.pins.empty() && !part.any) {
      warn(MakeFault(place, component->GetName() + " is not connected to anything",
                     "a connection, as '" + component->GetName() + " ! ...'"));
    } else if (part.any && part.needs_input && !part.fed) {
      warn(MakeFault(place, component->GetName() + ": nothing arrives, no input is connected",
                     "a source at " + component->GetName() + ".InputPin"));
    }
    for (const PQConcernOf concern : component->ClassInfo().Concerns()) {
      if (const PQConcern told = concern(*component); !told.text.empty()) {
        warn(MakeFault(place, component->GetName() + ": " + told.text, told.expected));
      }
    }
  }
  if (!source) faults.push_back(MakeFault({}, "the graph has no source", "a component that gives a stream of its own"));
  if (!sink) faults.push_back(MakeFault({}, "the graph has no sink", "a component whose input is connected"));
}

std::string PQGraph::ToDot() const {
  const auto two_lines = [](const std::string& first, std::string_view second) {
    std::string label = DotQuoted(first + "\x1f" + std::string(second));
    return label.replace(label.find('\x1f'), 1, "\\n");
  };
  std::string dot = "digraph pantiq {\n  rankdir=LR;\n  node [shape=box];\n";
  for (TComponent* component : GetComponents()) {
    const std::string name = DotQuoted(component->GetName());
    dot.append("  ").append(name).append(" [label=");
    dot.append(two_lines(component->GetName(), component->ClassInfo().Name())).append("];\n");
  }
  for (TComponent* component : GetComponents()) {
    for (const TJCPin* pin : Part(*component).pins) {
      const TJCPin* const from = pin->GetSourcePin();
      if (from == nullptr) continue;
      dot.append("  ").append(DotQuoted(from->GetOwnerComponent()->GetName())).append(" -> ");
      dot.append(DotQuoted(component->GetName())).append(" [label=");
      dot.append(two_lines(from->GetName() + " > " + pin->GetName(), pin->GetStreamType().name)).append("];\n");
    }
  }
  return dot += "}\n";
}

const std::string& PQGraph::Source() const { return impl_->source; }
const std::vector<TComponent*>& PQGraph::GetComponents() const { return impl_->root.GetComponents(); }
TComponent* PQGraph::Find(std::string_view name) const { return impl_->root.FindComponent(name); }

TJCPin* PQGraph::FindPin(std::string_view path, PQPinRole role, PQStatus* status) const {
  PQFault fault;
  TJCPin* const pin = detail::FindPinOf(impl_->root, path, role, fault);
  if (status != nullptr) *status = pin != nullptr ? PQStatus() : PQStatus(PQCode::NotFound, fault.text);
  return pin;
}

TComponent* PQGraph::Add(const PQClassInfo& info, const std::string& name, PQStatus* status) {
  const auto fail = [&](PQStatus why) {
    if (status != nullptr) *status = std::move(why);
    return nullptr;
  };
  std::string own = name;
  if (own.empty()) {
    const std::string base = detail::BaseName(info.Name());
    for (int number = 1; own.empty() || Find(own) != nullptr; ++number) own = base + std::to_string(number);
  } else if (!PQIsIdentifier(own) || Find(own) != nullptr) {
    TComponent probe(&impl_->root);
    return fail(probe.SetName(own));
  }
  std::vector<PQFault> faults;
  GraphBuilder builder(impl_->root, designing_, faults);
  PQOwned<TComponent> component(builder.Make(info, own, {}));
  if (component == nullptr) return fail(StatusOf(faults, PQCode::Failed));
  builder.Finish();
  if (status != nullptr) *status = {};
  return component.release();
}

void PQGraph::Remove(TComponent& component) {
  if (component.GetOwner() != &impl_->root) return;
  impl_->places.erase(&component);
  PQComponentDeleter()(&component);
}

PQStatus PQGraph::Set(std::string_view path, std::string_view value) {
  const std::size_t point = path.find('.');
  TComponent* const component = Find(path.substr(0, point));
  if (component == nullptr || point == std::string_view::npos) {
    PQFault fault;
    if (detail::FindPinOf(impl_->root, path.substr(0, point), PQPinRole::None, fault) == nullptr &&
        component == nullptr) {
      return {PQCode::NotFound, fault.text};
    }
    return {PQCode::BadFormat, std::string(path) + ": the property is missing; expected Name.Property"};
  }
  PQTextSetting setting;
  setting.path = path.substr(point + 1), setting.value = value;
  std::vector<PQTextLink> links;
  std::vector<PQFault> faults;
  PQApplyText(*component, component->GetName(), {setting}, links, faults);
  for (const PQTextLink& link : links) {
    if (PQStatus status = Connect(link.setting.value, component->GetName() + "." + link.setting.path); !status.Ok()) {
      return status;
    }
  }
  return StatusOf(faults, PQCode::BadValue);
}

PQStatus PQGraph::Connect(std::string_view source, std::string_view sink) {
  PQStatus status;
  TJCPin* const from = FindPin(source, PQPinRole::Source, &status);
  if (from == nullptr) return status;
  TJCPin* const to = FindPin(sink, PQPinRole::Sink, &status);
  if (to == nullptr) return status;
  std::vector<PQFault> faults;
  GraphBuilder(impl_->root, designing_, faults).Connect(*from, *to, {});
  return StatusOf(faults, PQCode::Refused);
}

void PQGraph::Clear() { impl_ = std::make_unique<Impl>(); }

std::string PQFaultText(const PQFault& fault, std::string_view source) {
  std::string text;
  if (fault.line > 0)
    text.append(std::to_string(fault.line)).append(":").append(std::to_string(fault.column)).append(": ");
  text += fault.severity == PQSeverity::Error     ? "error: "
          : fault.severity == PQSeverity::Warning ? "warning: "
                                                  : "note: ";
  text += fault.text;
  const std::string caret = PQCaret(source, fault);
  if (!caret.empty()) text.append("\n").append(caret);
  return text;
}

}  // namespace pantiq
