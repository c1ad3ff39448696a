#include "pantiq/filters/PQImageGen.h"

#include <algorithm>

#include "pantiq/host/PQRegistry.h"

namespace pantiq {

constinit const PQClassTag TPQImageGen::kTag{"TPQImageGen", &TPQCommonGen::kTag};

const PQClassInfo& TPQImageGen::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQImageGen>("TPQImageGen", "PQImageGen", "Sends one picture again and again.")
          .Inherits<TPQCommonGen>()
          .Picture("Picture", &TPQImageGen::GetPicture, PQActs::NextFrame, PQBareValue{},
                   "The picture to send: a PNG, JPEG or BMP file. ImageSize follows it.")
          .Done();
  return info;
}

TPQImageGen::TPQImageGen(TComponent* owner) : TPQCommonGen(owner), buffer_(PQMakeRef<TPQImageBuffer>()) {
  picture_.OnChange = [this] { PictureChanged(); };
}

TPQImageGen::~TPQImageGen() { BeforeDestructionOnce(); }

void TPQImageGen::SetPicture(const TPicture& picture) { picture_.Assign(picture); }

void TPQImageGen::PictureChanged() {
  const auto bitmap = picture_.GetSnapshot();
  auto fresh = PQMakeRef<TPQImageBuffer>();
  if (!bitmap->IsEmpty()) fresh->LoadBitmap(*bitmap);
  auto section = Lock().WriteLock();
  buffer_ = std::move(fresh);
}

TPQSize::Values TPQImageGen::GetImageSize() {
  TPQSize::Values size;
  {
    auto section = Lock().ReadLock();
    size = {static_cast<std::uint16_t>(std::min(buffer_->GetWidth(), 65535)),
            static_cast<std::uint16_t>(std::min(buffer_->GetHeight(), 65535))};
  }
  ImageSize().Set(size);
  return size;
}

void TPQImageGen::GenerateFrame(PQImageRef& buffer) {
  PQImageRef picture;
  {
    auto section = Lock().ReadLock();
    picture = buffer_;
  }
  buffer->Assign(*picture);
}

void PQImageGen::Register() {
  const PQClassInfo* const classes[] = {&TPQImageGen::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
