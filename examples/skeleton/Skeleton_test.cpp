// Sends frames through the filter and looks at what comes out.
#include "Skeleton.h"

#include <cstdio>

using namespace pantiq;

namespace {

int faults = 0;

void Check(bool holds, const char* what) {
  if (holds) return;
  std::printf("not so: %s\n", what);
  ++faults;
}

struct Source final : TComponent {
  Source() : OutputPin(*this, JCDispatch()) {}
  ~Source() override { BeforeDestructionOnce(); }
  void BeforeDestruction() override { OutputPin.Disconnect(); }
  TPQJCImageSourcePin OutputPin;
};

struct Sink final : TComponent {
  Sink() : InputPin(*this, JCDispatch::To<&Sink::Dispatch>(this)) {}
  ~Sink() override { BeforeDestructionOnce(); }
  void BeforeDestruction() override { InputPin.Disconnect(); }
  TJCNotifyResult Dispatch(TJCPin&, const TGUID*, IJCNotifyOperation& op, TJCNotifyFlags) {
    if (auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op)) last = PQMakeRef<TPQImageBuffer>(*supplied->Buffer);
    return {};
  }
  TPQJCImageSinkPin InputPin;
  PQImageRef last;
};

// What becomes of one gray pixel.
int Through(TSkeleton& filter, int value) {
  Source source;
  Sink sink;
  Check(source.OutputPin.Connect(filter.InputPin).Ok(), "the source connects");
  Check(filter.OutputPin.Connect(sink.InputPin).Ok(), "the sink connects");
  PQImageRef frame = PQMakeRef<TPQImageBuffer>(1, 1, vfRGB24);
  for (int channel = 0; channel < 3; ++channel) frame->Write()[channel] = static_cast<std::uint8_t>(value);
  source.OutputPin.SubmitBuffer(frame);
  Check(frame->Read()[0] == value, "the frame of the source stays as it was");
  return sink.last ? sink.last->Read()[0] : -1;
}

}  // namespace

int main() {
  TSkeleton filter;
  Check(filter.GetAmount() == 128, "Amount begins with 128");
  Check(Through(filter, 255) == 127, "white becomes 127");
  filter.SetAmount(0);
  Check(Through(filter, 200) == 200, "Amount 0 changes nothing");
  filter.SetAmount(255);
  Check(Through(filter, 200) == 0, "Amount 255 makes black");
  filter.SetEnabled(false);
  Check(Through(filter, 200) == 200, "a filter that is not enabled lets frames pass");
  std::printf("%d faults\n", faults);
  return faults == 0 ? 0 : 1;
}
