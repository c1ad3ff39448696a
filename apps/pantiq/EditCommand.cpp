// Drawing the mask of a component in a graph file.
#include <filesystem>

#include "Commands.h"
#include "Console.h"
#include "FileCheck.h"
#include "GraphText.h"
#include "TerminalForm.h"
#include "pantiq/design/PQMorphShapeFormUnit.h"
#include "pantiq/host/PQClassInfo.h"
#include "pantiq/host/PQDialog.h"
#include "pantiq/host/PQReport.h"
#include "pantiq/platform/PQModules.h"

namespace pantiq::app {
namespace {

// A mask, and where it stands.
struct Mask {
  TComponent* component = nullptr;
  std::string property;
  TPQMorphShape* shape = nullptr;
};

std::vector<Mask> MasksOf(TComponent& component) {
  std::vector<Mask> masks;
  for (const PQProperty& property : component.ClassInfo().Properties()) {
    if (property.kind != PQKind::Object) continue;
    auto* const shape = PQCast<TPQMorphShape>(property.object(component));
    if (shape != nullptr) masks.push_back({&component, property.name, shape});
  }
  return masks;
}

std::string Joined(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  return text;
}

std::string Quoted(const std::string& text) { return "'" + text + "'"; }

// The mask that is meant; without one the reason has been told.
Mask FindMask(PQGraph& graph, const EditArguments& arguments) {
  std::vector<std::string> names, masks;
  for (TComponent* component : graph.GetComponents()) {
    names.push_back(component->GetName());
    for (const Mask& mask : MasksOf(*component)) masks.push_back(component->GetName() + "." + mask.property);
  }
  TComponent* const component = graph.Find(arguments.component);
  if (component == nullptr) {
    const std::string nearest = PQNearest(arguments.component, names);
    PrintError("pantiq: " + Quoted(arguments.file) + " has no component " + Quoted(arguments.component) +
               (nearest.empty() ? std::string() : "; the nearest is " + nearest) + "; it has " +
               (names.empty() ? "none" : Joined(names)));
    return {};
  }
  const std::vector<Mask> own = MasksOf(*component);
  for (const Mask& mask : own) {
    if (arguments.property.empty() || mask.property == arguments.property) return mask;
  }
  const std::string what = arguments.component + " (" + component->ClassInfo().Name() + ")";
  PrintError("pantiq: " + what + (own.empty() ? " has no mask to edit" : " has no mask " + Quoted(arguments.property)) +
             (masks.empty() ? "; nor has another component of " + Quoted(arguments.file)
                            : "; masks of " + Quoted(arguments.file) + ": " + Joined(masks)));
  return {};
}

// What the dialog and the components tell while it lives.
class Listener {
 public:
  Listener() {
    SetReportListener([this](const PQReportEntry& entry) {
      said_ += (said_.empty() ? "" : "; ") + entry.text + (entry.detail.empty() ? "" : ": " + entry.detail);
    });
  }
  ~Listener() { SetReportListener({}); }
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;
  const std::string& Said() const { return said_; }

 private:
  std::string said_;
};

int WriteGraph(const PQGraph& graph, const std::string& file) {
  std::string text;
  if (file == "-") {
    if (const PQStatus status = graph.SaveText(text); status.Ok()) return PrintResult(text);
  }
  // The file behind a link is replaced, not the link.
  std::error_code error;
  const std::filesystem::path real = std::filesystem::canonical(file, error);
  if (const PQStatus status = graph.Save(error ? file : real.string()); !status.Ok()) {
    PrintError("pantiq: " + status.Text());
    return kExitFailed;
  }
  return kExitOk;
}

}  // namespace

int EditGraph(const EditArguments& arguments) {
  const GivenGraph given = ReadGraphFile(arguments.file, true);
  PrintFaults(given);
  if (given.graph == nullptr) return kExitRefused;
  const Mask mask = FindMask(*given.graph, arguments);
  if (mask.shape == nullptr) return kExitRefused;

  // All that can hinder the writing is told before anybody has drawn.
  const bool same = arguments.output.empty();
  const std::string output = same ? arguments.file : arguments.output;
  std::string text;
  if (const PQStatus status = given.graph->SaveText(text); !status.Ok()) {
    PrintError("pantiq: " + status.Text());
    return kExitRefused;
  }
  if (output != "-") {
    if (const std::string why = WhyNotWritable(output, same || arguments.overwrite); !why.empty()) {
      PrintError("pantiq: " + Quoted(output) + ": " + why +
                 (same ? "; expected a file that can be written" : "; expected a new file, or --overwrite"));
      return kExitRefused;
    }
  }

  bool shown = false;
  int signal = 0;
  const std::string place = arguments.component + "." + mask.property;
  const auto toolkit = [&](IPQMorphShapeForm& form, PQPlatformResult& result) {
    std::string window;
    PQModalResult end = kModalNone;
    if (!arguments.terminal) {
      PQDialogModule* const module = LoadDialogModule(result);
      if (module != nullptr) end = module->ShowMorphShapeForm(form, result);
      window = "no window can be shown: " + result.detail + "; ";
    }
    if (end == kModalNone) {
      end = ShowOnTerminal(form, std::string(PQMorphShapeLayout::kCaption) + "  " + arguments.file + ": " + place,
                           result, signal);
      if (end == kModalNone) result.detail = window + result.detail;
    }
    shown = end != kModalNone;
    return end;
  };
  SetDialog(PQMorphShapeLayout::kCaption, [&toolkit](TComponent& component) {
    auto* const filter = PQCast<TPQMorphFilter>(&component);
    return filter != nullptr && TPQMorphShapeForm(toolkit).Execute(*filter);
  });
  const Listener listener;
  const bool accepted = mask.shape->ShowDialog();
  SetDialog(PQMorphShapeLayout::kCaption, {});
  if (!accepted) {
    PrintError("pantiq: " + place + ": " + (shown ? "cancelled" : listener.Said()) + "; " + Quoted(arguments.file) +
               " is as it was");
    return signal != 0 ? kExitSignal + signal : shown ? kExitFailed : kExitRefused;
  }

  if (arguments.custom) mask.shape->SetShapeType(stCustom);
  const int code = WriteGraph(*given.graph, output);
  if (code == kExitOk && mask.shape->GetShapeType() != stCustom) {
    PrintError("pantiq: note: " + place +
               ".ShapeType is not stCustom: the drawn mask is stored and not in use; --custom "
               "puts it in use");
  }
  return code;
}

}  // namespace pantiq::app
