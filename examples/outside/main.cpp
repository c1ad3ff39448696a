// A program outside Pantiq's own tree: frames of a blurred zone plate, and whether the media module is found.
#include <cstdio>
#include <vector>

#include "pantiq/core/PQGraph.h"
#include "pantiq/design/PQRegister.h"
#include "pantiq/filters/PQBoxFilter.h"
#include "pantiq/filters/PQJaehneGen.h"
#include "pantiq/platform/PQModules.h"

using namespace pantiq;

// Prints the frames that reach it.
class Printer final : public TComponent {
 public:
  Printer() : InputPin(*this, JCDispatch::To<&Printer::Dispatch>(this)) {}
  ~Printer() override { BeforeDestructionOnce(); }
  TPQJCImageSinkPin InputPin;

 private:
  void BeforeDestruction() override { InputPin.Disconnect(); }
  TJCNotifyResult Dispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
    if (auto* request = JCOperation<TJCPumpRequestOperation>(op)) {
      request->Master = this, request->Kind = 3;
    } else if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) {
      auto frame = PQMakeRef<TPQImageBuffer>(*supplied->Buffer);
      std::printf("frame of %dx%d, top left 0x%06X\n", frame->GetWidth(), frame->GetHeight(), frame->GetPixel(0, 0));
    }
    return {};
  }
};

int main() {
  RegisterAll();
  PQGraph graph;
  std::vector<PQFault> faults;
  if (!graph.ParseLaunch("TPQJaehneGen ! TPQMirror", faults)) return 1;

  TPQJaehneGen rings;
  rings.GetImageSizeObject().Set({320, 240});
  TPQBoxFilter box;
  Printer printer;
  if (!rings.OutputPin.Connect(box.InputPin).Ok() || !box.OutputPin.Connect(printer.InputPin).Ok()) return 1;
  printer.InputPin.Notify(*PQMakeRef<TJCStartSampleRateOperation>(0, 0.0));
  printer.InputPin.MasterPump(&printer);
  printer.InputPin.Notify(*PQMakeRef<TJCStopOperation>());

  PQPlatformResult result;
  std::printf("media: %s\n", LoadMediaModule(result) != nullptr ? "there" : result.detail.c_str());
}
