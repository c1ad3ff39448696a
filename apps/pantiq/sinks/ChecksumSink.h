// `checksum`: one line a frame, "0 640x480 vfRGB24 b5f8d1e7a2c39406": number from 0, size, format, and the XXH64 (seed
// 0) of the frame's bytes, row by row from the top, in 16 hexadecimal digits.
#pragma once
#include "ProgramSink.h"

namespace pantiq::app {

class ChecksumSink final : public ImageSink {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit ChecksumSink(TComponent* owner) : ImageSink(owner, "-") {}
  ~ChecksumSink() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

 protected:
  PQStatus Start(TJCStartOperation& op) override;
  PQStatus Frame(const TPQImageBuffer& frame, std::int64_t number) override;
  PQStatus Stop() override { return file_.Close(); }

 private:
  OutputFile file_;
  bool told_empty_ = false;
};

}  // namespace pantiq::app
