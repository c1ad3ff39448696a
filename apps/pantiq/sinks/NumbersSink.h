// `numbers`: a stream of real numbers as CSV (RFC 4180, LF line ends). The first line is "number,time,value" for single
// values, or "number,time,0,1,2,..." for blocks; each further line holds the running number from 0, the time of the
// block's begin in seconds (empty if it has none) and its values, written so that reading them gives the same doubles.
//
// With Plot, a picture is drawn at each stop (and at the end): of a histogram stream the mean of all blocks as bars, of
// anything else a trace of all numbers.
#pragma once
#include <atomic>
#include <span>

#include "Plot.h"
#include "ProgramSink.h"

template <>
struct pantiq::PQEnumWords<pantiq::app::NumbersPlot> {
  static constexpr std::string_view name = "NumbersPlot";
  static constexpr PQWord words[] = {{"npAuto", 0}, {"npBars", 1}, {"npTrace", 2}};
};

namespace pantiq::app {

class NumbersSink final : public ProgramSink {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit NumbersSink(TComponent* owner);
  ~NumbersSink() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  TRWJCComboRealSinkPin InputPin;

  // A picture file: .png, .jpg, .jpeg or .bmp. Empty: none.
  std::string GetPlot() const;
  PQStatus SetPlot(const std::string& name);
  NumbersPlot GetPlotKind() const { return plot_kind_.load(std::memory_order_relaxed); }
  void SetPlotKind(NumbersPlot kind) { plot_kind_.store(kind, std::memory_order_relaxed); }

 protected:
  PQStatus Start(TJCStartOperation& op) override;
  PQStatus Receive(IJCNotifyOperation& op) override;
  PQStatus Stop() override;
  void BeforeDestruction() override;

 private:
  PQStatus Row(std::span<const double> values, bool block, const TBXTimeStamp* time);
  std::string plot_name_;  // under the lock
  std::atomic<NumbersPlot> plot_kind_{npAuto};
  Plot plot_;
  bool bars_ = false;  // the stream is one of histograms
  std::int64_t plotted_ = 0;
  OutputFile file_;
  bool headed_ = false;
  std::int64_t number_ = 0;
  std::string line_;
};

}  // namespace pantiq::app
