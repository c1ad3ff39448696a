#include "Examples.h"

#include <algorithm>
#include <vector>

#include "GraphText.h"
#include "pantiq/core/PQCommonGen.h"
#include "pantiq/host/PQRegistry.h"
#include "sinks/ProgramSink.h"

namespace pantiq::app {
namespace {

// What an object gives and takes, by its published pins.
struct Ends {
  const JCStreamType* in = nullptr;  // of the pin that ! connects
  const JCStreamType* out = nullptr;
  std::vector<std::string> more;  // further sinks of the stream type `in`
  std::string reads, writes;      // "FileName"
};

const JCStreamType* StreamOf(TPersistent* part) {
  if (auto* pin = PQCast<TJCPin>(part)) return &pin->GetStreamType();
  auto* list = PQCast<TJCPinList>(part);
  TJCPin* const pin = list != nullptr ? list->FreePin() : nullptr;  // some lists begin empty
  return pin != nullptr ? &pin->GetStreamType() : nullptr;
}

Ends EndsOf(TComponent& object) {
  const PQClassInfo& info = object.ClassInfo();
  Ends ends;
  const PQProperty* sink = info.DefaultPin(PQPinRole::Sink);
  const PQProperty* source = info.DefaultPin(PQPinRole::Source);
  if (sink != nullptr && sink->object) ends.in = StreamOf(sink->object(object));
  if (source != nullptr && source->object) ends.out = StreamOf(source->object(object));
  for (const PQProperty& property : info.Properties()) {
    if (property.kind == PQKind::Pin && property.pin_role == PQPinRole::Sink && property.name != sink->name &&
        property.object && StreamOf(property.object(object)) == ends.in) {
      ends.more.push_back(property.name);
    }
    if (property.default_value == PQValue("")) {
      if (property.file_use == PQFileUse::Read) ends.reads = property.name;
      if (property.file_use == PQFileUse::Write) ends.writes = property.name;
    }
  }
  return ends;
}

// The first class of the library that makes frames out of nothing.
std::string Generator() {
  for (const PQClassInfo* info : PQRegisteredClasses(kPantiqPage)) {
    if (const PQOwned<TComponent> object = PQCreateComponent(info->Name());
        PQCast<TPQCommonGen>(object.get()) != nullptr) {
      return info->Name();
    }
  }
  return {};
}

// The class that makes a stream for `name` of frames: of several the one whose name begins most like it.
std::string MakerFor(const std::string& name, const JCStreamType& stream) {
  std::string maker;
  std::ptrdiff_t most = -1;
  for (const PQClassInfo* info : PQRegisteredClasses(kPantiqPage)) {
    const PQOwned<TComponent> object = PQCreateComponent(info->Name());
    if (object == nullptr) continue;
    const Ends its = EndsOf(*object);
    if (its.in != &kPQImageStream || its.out != &stream) continue;
    const std::string& other = info->Name();
    const auto alike = std::mismatch(name.begin(), name.end(), other.begin(), other.end()).first - name.begin();
    if (alike > most) most = alike, maker = other;
  }
  return maker;
}

}  // namespace

std::string ExampleOf(const PQClassInfo& info) {
  const PQOwned<TComponent> object = PQCreateComponent(info.Name());
  const std::string generator = Generator();
  if (object == nullptr || generator.empty()) return {};
  const Ends ends = EndsOf(*object);
  if (ends.in == nullptr && ends.out == nullptr) return {};
  std::string line;
  if (ends.in == &kPQImageStream) {
    line = generator + " ! ";
  } else if (ends.in != nullptr) {
    const std::string maker = MakerFor(info.Name(), *ends.in);
    if (maker.empty()) return {};
    line = generator + " ! " + maker + " ! ";
  }
  line += info.Name();
  if (!ends.more.empty()) line += " Name=it";
  if (!ends.reads.empty()) line += " " + ends.reads + (ends.reads == "FilterFileName" ? "=effect.so" : "=in.mp4");
  if (!ends.writes.empty()) line += " " + ends.writes + "=out.asf";
  if (info.Find("PreserveFrameRate") != nullptr) line += " PreserveFrameRate=true";  // gives nothing of its own accord
  if (ends.out == &kPQImageStream) line += " ! checksum";
  if (ends.out == &kRWRealStream) line += " ! numbers";
  for (const std::string& pin : ends.more) line += "  " + generator + " ! it." + pin;
  return IsFaultless(line) ? line : std::string();
}

}  // namespace pantiq::app
