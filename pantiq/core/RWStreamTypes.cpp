#include "pantiq/core/RWStreamTypes.h"

#include "pantiq/host/PQReport.h"

namespace pantiq {

constinit const PQClassTag TJCStartSampleRateOperation::kTag{"TJCStartSampleRateOperation", &TJCStartOperation::kTag};
constinit const PQClassTag TJCStartIntensityOperation::kTag{"TJCStartIntensityOperation", &TJCStartSampleRateOperation::kTag};
constinit const PQClassTag TJCStartWaveOperation::kTag{"TJCStartWaveOperation", &TJCStartOperation::kTag};
constinit const PQClassTag TJCSuppliedBufferOperation::kTag{"TJCSuppliedBufferOperation", &TJCNotifyOperation::kTag};
constinit const PQClassTag TJCSuppliedRealOperation::kTag{"TJCSuppliedRealOperation", &TJCNotifyOperation::kTag};
constinit const PQClassTag TJCSuppliedSingleOperation::kTag{"TJCSuppliedSingleOperation", &TJCNotifyOperation::kTag};
constinit const PQClassTag TJCRWPauseOperation::kTag{"TJCRWPauseOperation", &TJCNotifyOperation::kTag};
constinit const PQClassTag TJCRWResumeOperation::kTag{"TJCRWResumeOperation", &TJCNotifyOperation::kTag};
constinit const PQClassTag TRWInternalStopOperation::kTag{"TRWInternalStopOperation", &TJCNotifyOperation::kTag};

constinit const PQClassTag TRWJCSourcePin::kTag{"TRWJCSourcePin", &TJCSourcePin::kTag};
constinit const PQClassTag TRWJCSinkPin::kTag{"TRWJCSinkPin", &TJCSinkPin::kTag};
constinit const PQClassTag TRWJCBinarySinkPin::kTag{"TRWJCBinarySinkPin", &TRWJCSinkPin::kTag};
constinit const PQClassTag TRWJCBinarySourcePin::kTag{"TRWJCBinarySourcePin", &TRWJCSourcePin::kTag};
constinit const PQClassTag TRWJCComboRealSinkPin::kTag{"TRWJCComboRealSinkPin", &TRWJCSinkPin::kTag};
constinit const PQClassTag TRWJCRealSourcePin::kTag{"TRWJCRealSourcePin", &TRWJCSourcePin::kTag};
constinit const PQClassTag THTJCAudioSinkPin::kTag{"THTJCAudioSinkPin", &TRWJCSinkPin::kTag};
constinit const PQClassTag THTJCAudioSourcePin::kTag{"THTJCAudioSourcePin", &TRWJCSourcePin::kTag};

const JCStreamType kRWBinaryStream{{0x6d1f6a10, 0x0b5e, 0x4c55, {0x9a, 0x01, 0x50, 0x51, 0x53, 0x54, 0x00, 0x10}}, "binary"};
const JCStreamType kRWRealStream{{0x6d1f6a10, 0x0b5e, 0x4c55, {0x9a, 0x01, 0x50, 0x51, 0x53, 0x54, 0x00, 0x11}}, "real"};
const JCStreamType kHTAudioStream{{0x6d1f6a10, 0x0b5e, 0x4c55, {0x9a, 0x01, 0x50, 0x51, 0x53, 0x54, 0x00, 0x12}}, "audio"};

void TRWJCSourcePin::StopAtEnd() noexcept {
  try {
    Stop();
  } catch (...) {  // it could not be made, or somebody below could not take it
    ReportCaught(GetOwnerComponent(), "the stop at the end of a component failed");
  }
}

int TRWOperationList::Push(PQOperationRef op, bool clear_first) {
  std::list<PQOperationRef> dropped;  // released outside the lock
  auto section = lock_.WriteLock();
  if (clear_first) dropped.swap(items_);
  items_.push_back(std::move(op));
  return static_cast<int>(items_.size());
}

void TRWOperationList::PushBack(PQOperationRef op) {
  auto section = lock_.WriteLock();
  items_.push_front(std::move(op));
}

PQOperationRef TRWOperationList::Pop() {
  auto section = lock_.WriteLock();
  if (items_.empty()) return {};
  PQOperationRef op = std::move(items_.front());
  items_.pop_front();
  return op;
}

PQOperationRef TRWOperationList::Peek() const {
  auto section = lock_.ReadLock();
  return items_.empty() ? PQOperationRef() : items_.front();
}

int TRWOperationList::ItemsCount() const {
  auto section = lock_.ReadLock();
  return static_cast<int>(items_.size());
}

void TRWOperationList::Clear() {
  std::list<PQOperationRef> dropped;
  auto section = lock_.WriteLock();
  dropped.swap(items_);
}

}  // namespace pantiq
