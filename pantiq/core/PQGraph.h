// A graph: components, their properties and their connections; as a launch line, as a file, as a binary stream.
//
// Launch line:
//
//   TPQASFPlayer FileName=in.mp4 ! TPQFixedFilter FilterType=ftSobelVert ! TPQASFLogger FileName=out.asf
//
//   Components in order, each with its settings. `!` connects the default source pin on its left to the default sink
//   pin on its right; of a list of pins it takes the first free one. `Name=` names a component, and a name stands for
//   it elsewhere in the line: `TPQMirror Name=m ! ...  m.OutputPin ! other.InputPin`. A repeated `m.OutputPin !` fans
//   out. Pins of a list: split.OutputPins[0], split.OutputPins.'L*', mix.InputPins.Pin1. Region.Left=1 sets a
//   sub-property, Items[0].Level=2 a property of an item, which is made if it is missing. Values with blanks stand in
//   single quotes, '' for one quote. A quoted value alone sets the component's default property, TPQDelay '4'. `#`
//   starts a comment. Lines may be many.
//
// Graph file: see pantiq/host/PQTextDocument.h. Its first line is "pantiq graph 1"; each `object NAME: CLASS` ends with
// `end`; connections stand at the sink, `InputPin = Name.OutputPin`. What was loaded is saved with its order and
// comments.
//
// A component without a name gets its class's, without the leading T, and a number: PQMirror1.
//
// Threads. A graph belongs to one thread at a time. Its components follow their own rules.
#pragma once
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "pantiq/core/JCPins.h"
#include "pantiq/host/PQComponent.h"
#include "pantiq/host/PQFault.h"

namespace pantiq {

struct PQSaveOptions {
  bool pictures_inside = false;  // pictures themselves, not the names of their files
};

class PQ_EXPORT PQGraph {
 public:
  // `designing`: the graph is looked at, not run. Its components load no plug-ins and open no devices.
  explicit PQGraph(bool designing = false);
  ~PQGraph();
  PQGraph(const PQGraph&) = delete;
  PQGraph& operator=(const PQGraph&) = delete;

  // Each of these takes the place of what was in the graph. If there is an error in the text the answer is false and
  // the graph stays as it was; all faults are appended in any case, warnings and notes too. Faults have line, column
  // and length in the text, those of binary streams an offset.
  bool ParseLaunch(std::string_view text, std::vector<PQFault>& faults);
  bool LoadText(std::string_view text, std::vector<PQFault>& faults);
  bool Load(const std::string& file_name, std::vector<PQFault>& faults);
  bool LoadBinary(std::span<const std::uint8_t> bytes, std::vector<PQFault>& faults);

  // What keeps the graph from running (errors: it is empty, it has no source) or makes it odd (warnings: a component or
  // an input without a connection). Places are those of the text that was parsed or loaded.
  std::vector<PQFault> Check() const;

  // Parses and checks without keeping anything: all faults at once, in the order of their places.
  static std::vector<PQFault> CheckLaunch(std::string_view text);
  static std::vector<PQFault> CheckText(std::string_view text);

  // Graph files. Components of other registry pages than the library's own are refused. A file that exists is replaced
  // only when the new one is complete.
  PQStatus SaveText(std::string& text, const PQSaveOptions& options = {}) const;
  PQStatus Save(const std::string& file_name, const PQSaveOptions& options = {}) const;
  PQStatus SaveBinary(std::vector<std::uint8_t>& bytes) const;

  // A drawing of the graph in the language of Graphviz.
  std::string ToDot() const;

  // The text that the graph was parsed or loaded from.
  const std::string& Source() const;

  // In order of creation. They belong to the graph.
  const std::vector<TComponent*>& GetComponents() const;
  // By name; null if there is none.
  TComponent* Find(std::string_view name) const;
  // Null, and the reason in `status`, if the path leads to no pin. "Name" alone is the default pin of `role`.
  TJCPin* FindPin(std::string_view path, PQPinRole role, PQStatus* status = nullptr) const;

  // Adds a component; without a name it gets one. Null, and the reason in `status`, on failure.
  TComponent* Add(const PQClassInfo& info, const std::string& name = {}, PQStatus* status = nullptr);
  // Destroys a component of the graph.
  void Remove(TComponent& component);
  // "mirror1.MirrorType" and "mtVertical", as in a launch line.
  PQStatus Set(std::string_view path, std::string_view value);
  // Connects "a.OutputPin" to "b.InputPin".
  PQStatus Connect(std::string_view source, std::string_view sink);
  // Removes everything.
  void Clear();

 private:
  struct Impl;
  // Moves `told` to `faults` and takes over what was built, if there is no error among them.
  bool Take(std::unique_ptr<Impl> fresh, std::vector<PQFault>& told, std::vector<PQFault>& faults);
  std::unique_ptr<Impl> impl_;
  bool designing_;
};

// The message of a fault in one line, "3:12: error: ...", then the line of the source that it stands in with a caret
// under its place, if it has one.
PQ_EXPORT std::string PQFaultText(const PQFault& fault, std::string_view source);

}  // namespace pantiq
