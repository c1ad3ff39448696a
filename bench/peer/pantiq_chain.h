// Pantiq's side of the graph comparison: chains of components for the peers' benchmark.
//
// Include with "bench_core.h" (bench::Fn) on the path. Kinds: "pass" (disabled filters), "filter" (enabled filters that
// change no pixel), "mirror" (TPQMirror mtVertical).
#pragma once
#include <memory>
#include <string>
#include <vector>

#include "bench_core.h"
#include "pantiq/core/PQCommonFilter.h"
#include "pantiq/filters/PQMirror.h"

namespace subject_chain {

inline const char* describe() { return "pantiq"; }

class NullFilter final : public pantiq::TPQCommonFilter {
 public:
  explicit NullFilter(pantiq::TComponent* owner = nullptr) : TPQCommonFilter(owner) {}
  ~NullFilter() override { BeforeDestructionOnce(); }
};

using Filters = std::vector<pantiq::PQOwned<pantiq::TPQCommonFilter>>;

// A source, the filters in a row, a sink that counts. The frame is made once and held, as the peers do.
class Chain {
 public:
  Chain(Filters filters, pantiq::PQRef<pantiq::TPQImageBuffer> frame)
      : source_(*this), filters_(std::move(filters)), sink_(*this) {
    using namespace pantiq;
    TPQJCImageSourcePin* from = &source_.OutputPin;
    for (auto& filter : filters_) {
      from->Connect(filter->InputPin).IgnoreError();
      from = &filter->OutputPin;
    }
    from->Connect(sink_.InputPin).IgnoreError();
    source_.OutputPin.Notify(
        *PQMakeRef<TJCStartFrameOperation>(frame->GetWidth(), frame->GetHeight(), 400000, frame->GetFormat()));
    frame_ = std::move(frame);
  }
  void Push() { source_.OutputPin.SubmitBuffer(frame_); }
  long Frames() const { return frames_; }

 private:
  struct Source final : pantiq::TComponent {
    explicit Source(Chain&) : OutputPin(*this, {}) {}
    ~Source() override { BeforeDestructionOnce(); }
    void BeforeDestruction() override { OutputPin.Disconnect(); }
    pantiq::TPQJCImageSourcePin OutputPin;
  };
  struct Sink final : pantiq::TComponent {
    explicit Sink(Chain& chain) : chain(chain), InputPin(*this, pantiq::JCDispatch::To<&Sink::Dispatch>(this)) {}
    ~Sink() override { BeforeDestructionOnce(); }
    void BeforeDestruction() override { InputPin.Disconnect(); }
    pantiq::TJCNotifyResult Dispatch(pantiq::TJCPin&, const pantiq::TGUID*, pantiq::IJCNotifyOperation& op,
                                     pantiq::TJCNotifyFlags) {
      chain.frames_ += pantiq::JCOperation<pantiq::TJCSuppliedBufferOperation>(op) != nullptr;
      return {};
    }
    Chain& chain;
    pantiq::TPQJCImageSinkPin InputPin;
  };
  long frames_ = 0;
  Source source_;
  Filters filters_;
  Sink sink_;
  pantiq::PQImageRef frame_;
};

// `elements` filters of a kind between a source of gray-blue frames and a sink.
inline std::shared_ptr<Chain> MakeChain(const std::string& kind, int elements, int width, int height) {
  Filters filters;
  for (int i = 0; i < elements; ++i) {
    if (kind == "mirror") {
      auto mirror = pantiq::PQMake<pantiq::TPQMirror>();
      mirror->SetMirrorType(pantiq::mtVertical);
      filters.push_back(std::move(mirror));
    } else {
      filters.push_back(pantiq::PQMake<NullFilter>());
      if (kind == "pass") filters.back()->SetEnabled(false);
    }
  }
  auto frame = pantiq::PQMakeRef<pantiq::TPQImageBuffer>(width, height, pantiq::vfRGB24);
  frame->Fill(0x00405060);
  return std::make_shared<Chain>(std::move(filters), std::move(frame));
}

inline bench::Fn make_chain(const std::string& kind, int elements, int width, int height) {
  if (kind != "pass" && kind != "filter" && kind != "mirror") return {};
  return [chain = MakeChain(kind, elements, width, height)] { chain->Push(); };
}

}  // namespace subject_chain
