// A generator that sends one picture again and again.
#pragma once
#include "pantiq/core/PQCommonGen.h"
#include "pantiq/host/PQPicture.h"

namespace pantiq {

// Frames have the picture's size; without a picture they are 0 by 0. A new picture shows with the next frame, its size is
// announced at the next start.
class PQ_EXPORT TPQImageGen final : public TPQCommonGen {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQImageGen(TComponent* owner = nullptr);
  ~TPQImageGen() override;
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  TPicture& GetPicture() { return picture_; }
  void SetPicture(const TPicture& picture);

 protected:
  void GenerateFrame(PQImageRef& buffer) override;
  TPQSize::Values GetImageSize() override;

 private:
  void PictureChanged();
  TPicture picture_;
  PQImageRef buffer_;  // replaced as a whole, under the lock; never written once it stands here
};

namespace PQImageGen {
PQ_EXPORT void Register();
}

}  // namespace pantiq
