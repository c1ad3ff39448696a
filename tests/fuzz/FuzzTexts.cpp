// Everything that is read: launch lines, graph files, binary streams, stored forms. What reads without an error is
// written and read again, and has to come out the same.
#include <cstring>
#include <filesystem>

#include "pantiq/core/PQFramePool.h"
#include "pantiq/core/PQGraph.h"
#include "pantiq/core/PQStreamTypes.h"
#include "pantiq/design/PQRegister.h"
#include "pantiq/host/PQBinaryStream.h"
#include "pantiq/host/PQPicture.h"
#include "pantiq/host/PQRegistry.h"
#include "pantiq/host/PQTextStream.h"
#include "tests/fuzz/FuzzInput.h"
#include "tests/fuzz/FuzzTargets.h"

namespace pantiq::fuzz {
namespace {

void Prepare() {
  static const bool ready = [] {
    RegisterAll();
    // Names of files in an input are read as files of an empty folder.
    const std::string folder = std::filesystem::temp_directory_path() / "pantiq-fuzz-empty";
    std::filesystem::create_directories(folder);
    std::filesystem::current_path(folder);
    return true;
  }();
  (void)ready;
}

// Faults can be shown, wherever they say that they are.
bool Told(const std::vector<PQFault>& faults, std::string_view source) {
  bool good = true;
  for (const PQFault& fault : faults) {
    Hold(!fault.text.empty(), "a fault without a text");
    Hold(fault.line >= 0 && fault.column >= 0 && fault.length >= 0, "a fault at no place: " + fault.text);
    PQFaultText(fault, source);
    good = good && fault.severity != PQSeverity::Error;
  }
  return good;
}

std::string Written(const PQGraph& graph) {
  std::string text;
  const PQStatus status = graph.SaveText(text);
  Hold(status.Ok(), "a graph that was read cannot be saved: " + status.Text());
  return text;
}

void ReadBack(const PQGraph& graph) {
  Told(graph.Check(), graph.Source());
  graph.ToDot();
  const std::string text = Written(graph);
  std::vector<PQFault> faults;
  PQGraph again(true);
  again.LoadText(text, faults);
  Hold(Told(faults, text),
       "a saved graph does not load: " + (faults.empty() ? text : faults.front().text) + "\n" + text);
  Hold(Written(again) == text, "a saved graph loads differently:\n" + text + "---\n" + Written(again));

  std::vector<std::uint8_t> bytes, bytes_again;
  Hold(graph.SaveBinary(bytes).Ok(), "a graph that was read cannot be saved in binary");
  faults.clear();
  PQGraph from_bytes(true);
  from_bytes.LoadBinary(bytes, faults);
  Hold(Told(faults, {}),
       "a graph saved in binary does not load: " + (faults.empty() ? text : faults.front().text) + "\n" + text);
  Hold(from_bytes.SaveBinary(bytes_again).Ok() && bytes_again == bytes,
       "a graph saved in binary loads differently:\n" + text);
}

std::string_view TextOf(Input bytes) { return {reinterpret_cast<const char*>(bytes.data()), bytes.size()}; }

// Components of the platform are only looked at: they would load modules and open what the input names.
bool Runs(std::string_view text) {
  for (const char* part : {"TPQFreeFrame", "TPQDS", "TPQDMO", "TPQASF", "TPQVideo"}) {
    if (text.find(part) != text.npos) return false;
  }
  return true;
}

PQOwned<TComponent> AnyComponent(FuzzInput& in, std::string_view page = kPantiqPage) {
  PQOwned<TComponent> component(in.Pick(PQRegisteredClasses(page))->Create(nullptr));
  component->SetDesigning(true);
  return component;
}

// What is stored of an object reads into another one.
void ReadBack(const TComponent& component) {
  PQOwned<TComponent> from_text(component.ClassInfo().Create(nullptr)),
      from_bytes(component.ClassInfo().Create(nullptr));
  from_text->SetDesigning(true), from_bytes->SetDesigning(true);
  const std::string text = PQWriteText(component);
  std::vector<PQTextLink> links;
  std::vector<PQBinaryLink> binary_links;
  std::vector<PQFault> faults;
  PQReadText(text, *from_text, links, faults);
  Hold(Told(faults, text),
       "what was written does not read: " + (faults.empty() ? text : faults.front().text) + "\n" + text);
  Hold(PQWriteText(*from_text) == text, "written again it differs:\n" + text + "---\n" + PQWriteText(*from_text));
  Hold(PQReadBinary(PQWriteBinary(component), *from_bytes, binary_links, faults) && Told(faults, {}),
       "the binary form does not read");
  Hold(PQWriteText(*from_bytes) == text, "written in binary it differs:\n" + text + "---\n" + PQWriteText(*from_bytes));
}

struct StoredForm {
  TPersistent* object;
  PQProperty property;
};

// The properties with a form of their own: blocks, lists and pictures, wherever they stand in a component.
void StoredForms(TPersistent& object, std::vector<StoredForm>& found) {
  for (const PQProperty& property : PQAllProperties(object)) {
    switch (property.kind) {
      case PQKind::Binary:
      case PQKind::List:
      case PQKind::Picture:
        found.push_back({&object, property});
        break;
      case PQKind::Object:
        StoredForms(*property.object(object), found);
        break;
      default:
        break;
    }
  }
}

}  // namespace

void FuzzLaunch(Input bytes) {
  Prepare();
  const std::string_view text = TextOf(bytes);
  Told(PQGraph::CheckLaunch(text), text);
  for (const bool designing : {true, false}) {
    if (!designing && !Runs(text)) continue;
    std::vector<PQFault> faults;
    PQGraph graph(designing);
    if (graph.ParseLaunch(text, faults)) ReadBack(graph);
    Told(faults, text);
  }
}

void FuzzFile(Input bytes) {
  Prepare();
  const std::string_view text = TextOf(bytes);
  Told(PQGraph::CheckText(text), text);
  for (const bool designing : {true, false}) {
    if (!designing && !Runs(text)) continue;
    std::vector<PQFault> faults;
    PQGraph graph(designing);
    if (graph.LoadText(text, faults)) ReadBack(graph);
    Told(faults, text);
  }
}

void FuzzStream(Input bytes) {
  Prepare();
  FuzzInput in(bytes);
  const int form = in.Below(4);
  PQOwned<TComponent> component = AnyComponent(in);
  PQBytes stream;
  if (form != 0) stream = PQBinaryWriter().Result();  // most inputs begin well
  const Input rest = bytes.subspan(bytes.size() - in.Left());
  stream.insert(stream.end(), rest.begin(), rest.end());
  std::vector<PQFault> faults;
  if (form == 1) {
    std::vector<PQBinaryLink> links;
    PQReadBinary(stream, *component, links, faults);
    ReadBack(*component);
  } else {
    PQGraph graph(true);
    if (graph.LoadBinary(stream, faults)) ReadBack(graph);
  }
  Told(faults, {});
}

void FuzzStored(Input bytes) {
  Prepare();
  PQFramePool::SetMostBytes(4 << 20);
  FuzzInput in(bytes);
  static const std::vector<const PQClassInfo*> classes = [] {
    std::vector<const PQClassInfo*> with;
    for (const PQClassInfo* info : PQRegisteredClasses(kPantiqPage)) {
      PQOwned<TComponent> component(info->Create(nullptr));
      std::vector<StoredForm> forms;
      StoredForms(*component, forms);
      if (!forms.empty()) with.push_back(info);
    }
    return with;
  }();
  PQOwned<TComponent> component(in.Pick(classes)->Create(nullptr));
  component->SetDesigning(true);
  // The other properties may stand at anything: a mask is read under the size that it has then.
  std::vector<StoredForm> forms;
  StoredForms(*component, forms);
  for (int writes = 1 + in.Below(3); writes > 0; --writes) {
    StoredForm& form = in.Pick(forms);
    const int way = in.Below(4);
    PQValue value;
    if (way == 0) {
      PQParseValue(form.property, in.Text(300), value).Ok();
    } else if (way == 1) {
      value = PQValue(PQBytes(in.Bytes(1000)));
    } else {
      std::vector<PQFault> faults;
      PQBytes stream = PQBinaryWriter().Result();
      const std::vector<std::uint8_t> rest = in.Bytes(600);
      stream.insert(stream.end(), rest.begin(), rest.end());
      PQBinaryReader reader(stream, faults);
      if (!reader.ReadValue(value)) continue;
    }
    if (form.property.kind == PQKind::Picture) {
      if (value.Bytes() != nullptr) PQCast<TPicture>(form.property.object(*form.object))->SetStored(value).Ok();
    } else {
      PQSetProperty(*form.object, form.property, value).Ok();
    }
    std::vector<PQFault> faults;
    std::vector<PQTextLink> links;
    if (in.OneIn(4)) PQReadText(in.Text(60), *component, links, faults);
  }
  ReadBack(*component);
  for (TJCPin* pin : JCPublishedPins(*component)) {
    if (pin->GetName() != "InputPin" || pin->GetConnectionID() != &kPQImageStream.id ||
        !Runs(component->ClassInfo().Name()))
      continue;
    const PQImageRef frame = PQMakeRef<TPQImageBuffer>(1 + in.Below(24), 1 + in.Below(24), vfRGB24);
    frame->Clear();
    const auto start = PQMakeRef<TJCStartFrameOperation>(frame->GetWidth(), frame->GetHeight(), 400000, vfRGB24);
    pin->DispatchData(pin->GetConnectionID(), *start, {});
    pin->DispatchData(pin->GetConnectionID(), *PQMakeRef<TJCSuppliedBufferOperation>(frame), {});
  }
  PQFramePool::SetMostBytes(PQFrameBlock::kMostBytes);
}

}  // namespace pantiq::fuzz
