#include "pantiq/media/PQDVFormat.h"

#include <utility>

namespace pantiq {

constinit const PQClassTag TPQDVFormat::kTag{"TPQDVFormat", &TPersistent::kTag};

namespace {

// The encoder's code of the first value of each set; the others follow it.
constexpr long kFirstFormat = 2000, kFirstEncoding = 2007, kFirstResolution = 2012;

template <class E>
long ToCode(E value, long first) {
  const auto index = static_cast<long>(value);
  return first + (index < static_cast<long>(std::size(PQEnumWords<E>::words)) ? index : 0);
}

template <class E>
void FromCode(long code, long first, E& field) {
  const long index = code - first;
  if (index >= 0 && index < static_cast<long>(std::size(PQEnumWords<E>::words))) field = static_cast<E>(index);
}

}  // namespace

const PQClassInfo& TPQDVFormat::Class() {
  using T = TPQDVFormat;
  static const PQClassInfo& info =
      PQDescribe<T>("TPQDVFormat", "PQDVFormat", "How digital video is encoded.")
          .Property(
              "Format", &T::GetFormat, &T::SetFormat, PQDefault(dvfNTSC), PQActs::NextStart,
              "Television system: dvfNTSC is 720 by 480 pixels at 29.97 frames per second, dvfPAL 720 by 576 at 25.")
          .Property("Encoding", &T::GetEncoding, &T::SetEncoding, PQDefault(dveDVSD), PQActs::NextStart,
                    "Form of the stream. Encoders that know only one take no notice.")
          .Property("Resolution", &T::GetResolution, &T::SetResolution, PQDefault(dvr720), PQActs::NextStart,
                    "Columns of the picture. Encoders that know only 720 take no notice.")
          .Property("UseCurrent", &T::GetUseCurrent, &T::SetUseCurrent, PQDefault(true), PQActs::NextStart,
                    "True leaves the encoder its own values; they go by the rate of the stream.")
          .Done();
  return info;
}

void TPQDVFormat::Fetch() const {
  PQDVEncoderFormat present;
  if (graph_ == nullptr || !graph_->GetDVFormat(encoder_, present).Ok()) return;
  FromCode(present.format, kFirstFormat, format_);
  FromCode(present.encoding, kFirstEncoding, encoding_);
  FromCode(present.resolution, kFirstResolution, resolution_);
}

void TPQDVFormat::Apply() {
  if (use_current_ || graph_ == nullptr) return;
  (void)graph_->SetDVFormat(encoder_, {ToCode(format_, kFirstFormat), ToCode(encoding_, kFirstEncoding),
                                       ToCode(resolution_, kFirstResolution)});
}

template <class V>
void TPQDVFormat::Store(V TPQDVFormat::*field, V value) {
  const std::lock_guard lock(mutex_);
  if (this->*field == value) return;
  this->*field = value;
  Apply();
}

TPQDSDVFormat TPQDVFormat::GetFormat() const {
  const std::lock_guard lock(mutex_);
  Fetch();
  return format_;
}
TPQDSDVEncoding TPQDVFormat::GetEncoding() const {
  const std::lock_guard lock(mutex_);
  Fetch();
  return encoding_;
}
TPQDSDVOutResolution TPQDVFormat::GetResolution() const {
  const std::lock_guard lock(mutex_);
  Fetch();
  return resolution_;
}
bool TPQDVFormat::GetUseCurrent() const {
  const std::lock_guard lock(mutex_);
  return use_current_;
}

void TPQDVFormat::SetFormat(TPQDSDVFormat value) { Store(&TPQDVFormat::format_, value); }
void TPQDVFormat::SetEncoding(TPQDSDVEncoding value) { Store(&TPQDVFormat::encoding_, value); }
void TPQDVFormat::SetResolution(TPQDSDVOutResolution value) { Store(&TPQDVFormat::resolution_, value); }
void TPQDVFormat::SetUseCurrent(bool value) { Store(&TPQDVFormat::use_current_, value); }

void TPQDVFormat::GetFormats() const {
  const std::lock_guard lock(mutex_);
  Fetch();
}

void TPQDVFormat::ApplyFormats() {
  const std::lock_guard lock(mutex_);
  Apply();
}

void TPQDVFormat::BindEncoder(std::shared_ptr<PQMediaOutput> graph, PQFilterId encoder) {
  std::shared_ptr<PQMediaOutput> before;  // dies outside the mutex
  const std::lock_guard lock(mutex_);
  before = std::exchange(graph_, std::move(graph));
  encoder_ = encoder;
}

}  // namespace pantiq
