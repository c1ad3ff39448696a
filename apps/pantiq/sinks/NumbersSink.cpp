#include "NumbersSink.h"

#include <charconv>

#include "FramesSink.h"

namespace pantiq::app {
namespace {

void Append(std::string& line, double value) {
  char text[32];
  const auto [end, error] = std::to_chars(text, text + sizeof text, value);
  line.append(text, end);
}

}  // namespace

constinit const PQClassTag NumbersSink::kTag{"numbers", &ProgramSink::kTag};

const PQClassInfo& NumbersSink::Class() {
  static const PQClassInfo& info =
      PQDescribe<NumbersSink>("numbers", "NumbersSink", "Writes a stream of real numbers, single or in blocks, as CSV; draws them.")
          .Inherits<ProgramSink>()
          .Property("FileName", &NumbersSink::GetFileName, &NumbersSink::SetFileName, PQDefault("-"), PQBareValue{},
                    PQFile(PQFileUse::Write), PQActs::NextStart, "File for the table; - is standard output.")
          .Property("Plot", &NumbersSink::GetPlot, &NumbersSink::SetPlot, PQDefault(""), PQFile(PQFileUse::Write),
                    PQActs::NextStart, "Picture file for a plot, .png, .jpg or .bmp, drawn when the stream stops; empty: none.")
          .Property("PlotKind", &NumbersSink::GetPlotKind, &NumbersSink::SetPlotKind, PQDefault(npAuto), PQActs::Now,
                    "npBars draws the mean of all blocks, npTrace all numbers one after the other; npAuto draws bars of a "
                    "stream of histograms and a trace of any other.")
          .Pin("InputPin", &NumbersSink::InputPin, "Real numbers in, single or in blocks.")
          .Done();
  return info;
}

NumbersSink::NumbersSink(TComponent* owner)
    : ProgramSink(owner, "-"), InputPin(*this, JCDispatch::To<&ProgramSink::SinkDispatch>(this)) {
  InputPin.AddShareLock(Lock());
}

void NumbersSink::BeforeDestruction() {
  InputPin.Disconnect();
  Finish();
  ProgramSink::BeforeDestruction();
}

std::string NumbersSink::GetPlot() const {
  auto section = Lock().ReadLock();
  return plot_name_;
}

PQStatus NumbersSink::SetPlot(const std::string& name) {
  if (!name.empty() && !IsPictureName(name)) {
    return PQStatus(PQCode::BadValue, "'" + name + "': the ending is none of .png, .jpg, .jpeg, .bmp");
  }
  auto section = Lock().WriteLock();
  plot_name_ = name;
  return {};
}

PQStatus NumbersSink::Start(TJCStartOperation& op) {
  bars_ = JCOperation<TJCStartIntensityOperation>(op) != nullptr;
  return file_.Open(GetFileName());
}

PQStatus NumbersSink::Stop() {
  PQStatus closed = file_.Close();
  const std::string name = GetPlot();
  if (!closed.Ok() || name.empty() || plotted_ == plot_.Count()) return closed;
  plotted_ = plot_.Count();
  const NumbersPlot kind = GetPlotKind();
  TPicture picture;
  return plot_.Draw(kind == npAuto ? bars_ : kind == npBars, picture).SaveToFile(name);
}

PQStatus NumbersSink::Receive(IJCNotifyOperation& op) {
  if (auto* real = JCOperation<TJCSuppliedRealOperation>(op)) return Row({&real->Value, 1}, false, nullptr);
  if (auto* single = JCOperation<TJCSuppliedSingleOperation>(op)) {
    const double value = single->Value;
    return Row({&value, 1}, false, nullptr);
  }
  auto* supplied = JCOperation<TJCSuppliedBufferOperation>(op);
  if (supplied == nullptr || !supplied->Buffer) return {};
  if (const auto* block = PQCast<IRWRealBuffer>(supplied->Buffer.Get())) {
    return Row({block->Read(), static_cast<std::size_t>(block->GetCount())}, true, &block->GetTimeStamp());
  }
  return {};
}

PQStatus NumbersSink::Row(std::span<const double> values, bool block, const TBXTimeStamp* time) {
  if (PQStatus status = file_.Open(GetFileName()); !status.Ok()) return status;
  if (!GetPlot().empty()) plot_.Add(values);
  line_.clear();
  if (!headed_) {
    headed_ = true;
    line_ = "number,time";
    if (block) {
      for (std::size_t i = 0; i < values.size(); ++i) line_ += "," + std::to_string(i);
    } else {
      line_ += ",value";
    }
    line_ += "\n";
  }
  line_ += std::to_string(number_++) + ",";
  if (time != nullptr && time->GetAvailable()) Append(line_, static_cast<double>(time->GetBegin()) / 1e7);
  for (const double value : values) {
    line_ += ",";
    Append(line_, value);
  }
  line_ += "\n";
  return file_.Write(line_);
}

}  // namespace pantiq::app
