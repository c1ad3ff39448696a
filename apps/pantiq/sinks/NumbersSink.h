// `numbers`: a stream of real numbers as CSV (RFC 4180, LF line ends). The first line is "number,time,value" for single
// values, or "number,time,0,1,2,..." for blocks; each further line holds the running number from 0, the time of the
// block's begin in seconds (empty if it has none) and its values, written so that reading them gives the same doubles.
#pragma once
#include <span>

#include "ProgramSink.h"

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

 protected:
  PQStatus Start(TJCStartOperation& op) override;
  PQStatus Receive(IJCNotifyOperation& op) override;
  PQStatus Stop() override { return file_.Close(); }
  void BeforeDestruction() override;

 private:
  PQStatus Row(std::span<const double> values, bool block, const TBXTimeStamp* time);
  OutputFile file_;
  bool headed_ = false;
  std::int64_t number_ = 0;
  std::string line_;
};

}  // namespace pantiq::app
