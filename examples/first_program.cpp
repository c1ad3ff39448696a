// Components made, set and wired by hand, without a graph: a generator, a mirror and a consumer of one's own.
//
//   first_program        prints the size and the number of each frame
#include <cstdio>

#include "pantiq/filters/PQJaehneGen.h"
#include "pantiq/filters/PQMirror.h"

using namespace pantiq;

class Printer final : public TComponent {
 public:
  Printer() : InputPin(*this, JCDispatch::To<&Printer::Dispatch>(this)) {}
  ~Printer() override { BeforeDestructionOnce(); }
  TPQJCImageSinkPin InputPin;

 private:
  void BeforeDestruction() override { InputPin.Disconnect(); }

  // What comes down: tested for its class, and what is of no interest is ignored.
  TJCNotifyResult Dispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
    if (auto* request = JCOperation<TJCPumpRequestOperation>(op)) {
      request->Master = this, request->Kind = 3;  // this consumer sets the pace
    } else if (auto* start = JCOperation<TJCStartFrameOperation>(op)) {
      std::printf("stream of %dx%d, %.3g frames per second\n", start->Width, start->Height, start->SampleRate);
    } else if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) {
      PQRef<TPQImageBuffer> frame = PQMakeRef<TPQImageBuffer>(*supplied->Buffer);
      std::printf("frame %d: top left pixel 0x%06X\n", frame->GetTimeCode().GetFrame(), frame->GetPixel(0, 0));
    }
    return {};
  }
};

int main() {
  TPQJaehneGen rings;
  rings.GetImageSizeObject().Set({320, 240});
  TPQMirror mirror;
  mirror.SetMirrorType(mtBoth);
  Printer printer;
  if (!rings.OutputPin.Connect(mirror.InputPin).Ok() || !mirror.OutputPin.Connect(printer.InputPin).Ok()) return 1;

  printer.InputPin.Notify(*PQMakeRef<TJCStartSampleRateOperation>(0, 0.0));  // a start goes up, the answer comes down
  for (int i = 0; i < 3; ++i) printer.InputPin.MasterPump(&printer);        // a frame for each pump
  printer.InputPin.Notify(*PQMakeRef<TJCStopOperation>());
}
