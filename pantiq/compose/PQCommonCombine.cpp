#include "pantiq/compose/PQCommonCombine.h"

#include <algorithm>
#include <limits>

#include "pantiq/compose/PQColors.h"
#include "pantiq/host/PQReport.h"
#include "pantiq/kernels/PQBaseKernels.h"

namespace pantiq {

constinit const PQClassTag TPQCombineFrameSize::kTag{"TPQCombineFrameSize", &TPersistent::kTag};
constinit const PQClassTag TPQCombineOffset::kTag{"TPQCombineOffset", &TPersistent::kTag};
constinit const PQClassTag TPQCommonCombine::kTag{"TPQCommonCombine", &TPQMultiInput::kTag};

// --- TPQCombineFrameSize --------------------------------------------------------------------------------------------

const PQClassInfo& TPQCombineFrameSize::Class() {
  using T = TPQCombineFrameSize;
  static const PQClassInfo& info =
      PQDescribe<T>("TPQCombineFrameSize", "PQCommonCombine", "The rule for the size of combined frames.")
          .Inherits<TPersistent>()
          .Property("Width", &T::GetWidth, &T::SetWidth, PQDefault(std::uint32_t{240}), PQUseful(1u, 65535u),
                    PQActs::NextStart, PQUnit("pixels"), "Width of frames with smCustom.")
          .Property("Height", &T::GetHeight, &T::SetHeight, PQDefault(std::uint32_t{180}), PQUseful(1u, 65535u),
                    PQActs::NextStart, PQUnit("pixels"), "Height of frames with smCustom.")
          .Property("SizeMode", &T::GetSizeMode, &T::SetSizeMode, PQDefault(smWrappingRect), PQActs::NextStart,
                    "Frames show the part that both images cover (smIntersect), the rectangle round both "
                    "(smWrappingRect), the one across and the other down (smHorizontalIntersect is as wide as both, "
                    "smVerticalIntersect as high as both), or have Width and Height (smCustom).")
          .Done();
  return info;
}

void TPQCombineFrameSize::Assign(const TPersistent& source) {
  const auto* other = PQCast<const TPQCombineFrameSize>(&source);
  if (other == nullptr) return;
  const Values values = other->Get();
  {
    auto section = lock_.WriteLock();
    values_ = values;
  }
  changed_();
}

TPQCombineFrameSize::Values TPQCombineFrameSize::Get() const {
  auto section = lock_.ReadLock();
  return values_;
}

void TPQCombineFrameSize::SetWidth(std::uint32_t width) {
  {
    auto section = lock_.WriteLock();
    values_.width = width;
  }
  changed_();
}

void TPQCombineFrameSize::SetHeight(std::uint32_t height) {
  {
    auto section = lock_.WriteLock();
    values_.height = height;
  }
  changed_();
}

TPQCombineSizeMode TPQCombineFrameSize::GetSizeMode() const {
  const Values values = Get();
  if (values.custom) return smCustom;
  if (values.extend_horizontal) return values.extend_vertical ? smWrappingRect : smHorizontalIntersect;
  return values.extend_vertical ? smVerticalIntersect : smIntersect;
}

void TPQCombineFrameSize::SetSizeMode(TPQCombineSizeMode mode) {
  if (mode > smCustom) return;
  SetMode(mode);
  changed_();
}

void TPQCombineFrameSize::SetMode(TPQCombineSizeMode mode) {
  auto section = lock_.WriteLock();
  values_.custom = mode == smCustom;
  values_.extend_horizontal = mode == smWrappingRect || mode == smHorizontalIntersect || mode == smCustom;
  values_.extend_vertical = mode == smWrappingRect || mode == smVerticalIntersect || mode == smCustom;
}

// --- TPQCombineOffset -----------------------------------------------------------------------------------------------

const PQClassInfo& TPQCombineOffset::Class() {
  using T = TPQCombineOffset;
  static const PQClassInfo& info =
      PQDescribe<T>("TPQCombineOffset", "PQCommonCombine", "Where image 1 lies, as seen from image 2.")
          .Inherits<TPersistent>()
          .Property("Horizontal", &T::GetHorizontal, &T::SetHorizontal, PQDefault(std::int32_t{0}),
                    PQUseful(-65535, 65535), PQActs::NextFrame, PQUnit("pixels"),
                    "To the right of image 2's left edge; negative to the left of it.")
          .Property("Vertical", &T::GetVertical, &T::SetVertical, PQDefault(std::int32_t{0}), PQUseful(-65535, 65535),
                    PQActs::NextFrame, PQUnit("pixels"), "Below image 2's upper edge; negative above it.")
          .Done();
  return info;
}

void TPQCombineOffset::Assign(const TPersistent& source) {
  const auto* other = PQCast<const TPQCombineOffset>(&source);
  if (other == nullptr) return;
  const std::int32_t horizontal = other->GetHorizontal(), vertical = other->GetVertical();
  {
    auto section = lock_.ReadLock();  // a frame, which writes, sees both old or both new
    horizontal_.store(horizontal, std::memory_order_relaxed);
    vertical_.store(vertical, std::memory_order_relaxed);
  }
  changed_();
}

void TPQCombineOffset::SetHorizontal(std::int32_t horizontal) {
  {
    auto section = lock_.ReadLock();
    horizontal_.store(horizontal, std::memory_order_relaxed);
  }
  changed_();  // takes the write lock, so the read lock is given back first
}

void TPQCombineOffset::SetVertical(std::int32_t vertical) {
  {
    auto section = lock_.ReadLock();
    vertical_.store(vertical, std::memory_order_relaxed);
  }
  changed_();
}

// --- TPQCommonCombine -----------------------------------------------------------------------------------------------

namespace {

// The inputs start in their order, unless one source feeds both, and what has not started has no size.
PQConcern StartsApart(const TComponent& component) {
  const TPQCombineOffset& offset = static_cast<const TPQCommonCombine&>(component).Offset();
  const std::int32_t x = offset.GetHorizontal(), y = offset.GetVertical();
  if (x < 1 && y < 1) return {};
  return {(x > 0 ? "Offset.Horizontal = " + std::to_string(x) : "Offset.Vertical = " + std::to_string(y)) +
              ": if image 1 starts before image 2 they lie apart, and frames of 0 by 0 pixels go out",
          "the larger picture on the first input and an Offset of 0 or less, or image 2 started first"};
}

}  // namespace

const PQClassInfo& TPQCommonCombine::Class() {
  using T = TPQCommonCombine;
  static const PQClassInfo& info =
      PQDescribe<T>("TPQCommonCombine", "PQCommonCombine", "Base of components that lay two images over one another.")
          .Inherits<TPQMultiInput>()
          .Object("FrameSize", &T::GetFrameSize, PQActs::NextStart,
                  "The size of frames. It is fixed when the first input starts.")
          .Object("Offset", &T::GetOffset, PQActs::NextFrame,
                  "Where image 1 (the first input) lies, as seen from image 2. To lay a small picture into a large one "
                  "give the large one to image 1, let it start first, and make the offset negative: an image that has "
                  "not started has no size, and with images that lie apart at the start frames have none.")
          .Property("BackgroundColor", &T::GetBackgroundColor, &T::SetBackgroundColor, PQDefault(TColor{0}),
                    PQActs::NextFrame,
                    "What neither image covers, $BBGGRR; $80000000 and a number is a colour of the system.")
          .Concern(StartsApart)
          .Done();
  return info;
}

TPQCommonCombine::TPQCommonCombine(TComponent* owner)
    : TPQMultiInput(owner),
      frame_size_(Lock(), [this] { UnInitializeFramePanes(); }),
      offset_(Lock(), [this] { UnInitializeFramePanes(); }) {}

void TPQCommonCombine::SetBackgroundColor(TColor color) {
  auto section = Lock().WriteLock();
  background_.store(color, std::memory_order_relaxed);
}

void TPQCommonCombine::UnInitializeFramePanes() {
  auto section = Lock().WriteLock();
  panes_valid_ = false;
}

void TPQCommonCombine::InitializeFramePanes(bool set_frame_size, IppiSize image1, IppiSize image2) {
  const TPQCombineFrameSize::Values size = frame_size_.Get();
  planned1_ = image1, planned2_ = image2;
  panes_.Plan({image1.width, image1.height, image2.width, image2.height, offset_.GetHorizontal(), offset_.GetVertical(),
               size.custom, size.extend_horizontal, size.extend_vertical, size.width, size.height},
              set_frame_size);
  panes_valid_ = true;
}

namespace {

constexpr std::int64_t kMostSide = std::numeric_limits<std::int32_t>::max();

bool Fits(std::int64_t width, std::int64_t height) {
  // The bytes of a frame and a row behind it are counted in 31 bits.
  return width <= kMostSide / 3 && height <= kMostSide && 3 * width * (height + 1) + 128 <= kMostSide;
}

// What a started stream announced. A size that no frame can have counts as none.
IppiSize AnnouncedSize(const TPQJCQueuedImageSinkPin& pin) {
  const IppiSize size{std::max(pin.Width, 0), std::max(pin.Height, 0)};
  return Fits(size.width, size.height) ? size : IppiSize{0, 0};
}

// The latest frame of an input; background if it has not started or brought nothing.
PQImageRef Image(const TPQJCQueuedImageSinkPin& pin, TColor background) {
  if (pin.Started && pin.Buffer) return pin.Buffer;
  const IppiSize size = AnnouncedSize(pin);
  auto image = PQMakeRef<TPQImageBuffer>(size.width, size.height, vfRGB24);
  image->Fill(background);
  return image;
}

bool SameSize(IppiSize a, IppiSize b) { return a.width == b.width && a.height == b.height; }

const std::uint8_t* At(const IPQImageBuffer& image, std::int64_t left, std::int64_t top) {
  return image.Read() + top * image.GetStep() + left * image.GetPixelSize();
}

IppiSize SizeOf(const PQPane& pane) { return {static_cast<int>(pane.Width), static_cast<int>(pane.Height)}; }

bool IsEmpty(const PQPane& pane) { return pane.PicToShow == PQPane::psNone || pane.Width < 1 || pane.Height < 1; }

}  // namespace

bool TPQCommonCombine::FrameFits() const { return Fits(panes_.FrameWidth, panes_.FrameHeight); }

void TPQCommonCombine::CalculateSendStart(double rate, std::int32_t width, std::int32_t height) {
  const auto inputs = Inputs();
  std::int64_t frame_width, frame_height;
  bool fits;
  {
    auto section = Lock().WriteLock();
    if (!panes_valid_) InitializeFramePanes(true, AnnouncedSize(*inputs[0]), AnnouncedSize(*inputs[1]));
    frame_width = panes_.FrameWidth, frame_height = panes_.FrameHeight;
    fits = FrameFits();
  }
  if (HasReportListener()) {
    const std::string size = std::to_string(frame_width) + " by " + std::to_string(frame_height);
    if (!fits) {
      Report(this, PQSeverity::Error, "frames of " + size + " pixels are too large, none goes out", 0,
             "a frame has at most 2147483647 bytes; make FrameSize smaller");
    } else if (frame_width < 1 || frame_height < 1) {
      Report(this, PQSeverity::Warning, "frames of " + size + " pixels go out", 0,
             "at the start image 1 has " + std::to_string(planned1_.width) + " by " + std::to_string(planned1_.height) +
                 " pixels, image 2 " + std::to_string(planned2_.width) + " by " + std::to_string(planned2_.height) +
                 ", and at this Offset they do not overlap; give the larger picture to image 1, start it first and "
                 "make Offset negative");
    }
  }
  OutputPin.Notify(*PQMakeRef<TJCStartFrameOperation>(static_cast<std::int32_t>(std::min(frame_width, kMostSide)),
                                                      static_cast<std::int32_t>(std::min(frame_height, kMostSide)),
                                                      inputs[0]->FrameDelay, vfRGB24));
  TPQMultiInput::CalculateSendStart(rate, width, height);
}

void TPQCommonCombine::IntStop() {
  UnInitializeFramePanes();
  TPQMultiInput::IntStop();
  Running = false;
}

void TPQCommonCombine::CalculateSendOutput() {
  const auto inputs = Inputs();
  PQRef<TPQImageBuffer> out;
  {
    auto section = Lock().WriteLock();
    const TColor background = PQColorToRGB(GetBackgroundColor());
    const PQImageRef image1 = Image(*inputs[0], background), image2 = Image(*inputs[1], background);
    const IppiSize size1 = image1->GetSize(), size2 = image2->GetSize();
    if (!panes_valid_ || !SameSize(size1, planned1_) || !SameSize(size2, planned2_)) {
      InitializeFramePanes(false, size1, size2);
    }
    if (!FrameFits()) return;
    out = PQMakeRef<TPQImageBuffer>(static_cast<std::int32_t>(panes_.FrameWidth),
                                    static_cast<std::int32_t>(panes_.FrameHeight), vfRGB24);
    if (panes_.FrameWidth > 0 && panes_.FrameHeight > 0) {
      const std::uint8_t color[3] = {static_cast<std::uint8_t>(background >> 16),
                                     static_cast<std::uint8_t>(background >> 8), static_cast<std::uint8_t>(background)};
      if (panes_.Overlap) {
        DrawPanes(*image1, *image2, *out, color);
      } else {
        DrawApart(*image1, *image2, *out, color);
      }
    }
  }
  const TPQJCQueuedImageSinkPin* newest = nullptr;
  for (const TPQJCQueuedImageSinkPin* input : inputs) {
    if (input->HasFrame && input->Buffer && (newest == nullptr || input->Rate > newest->Rate)) newest = input;
  }
  if (newest != nullptr) PQCopyStamps(*newest->Buffer, *out);
  out->GetDateTime().SetAvailable(false);
  OutputPin.SubmitBuffer(std::move(out));
}

void TPQCommonCombine::DrawApart(const IPQImageBuffer& image1, const IPQImageBuffer& image2, IPQImageBuffer& out,
                                 const std::uint8_t* color) {
  std::uint8_t* const pixels = out.Write();
  const int step = out.GetStep(), pixel = out.GetPixelSize();
  ippiSet_8u_C3R(color, pixels, step, out.GetSize());
  const auto draw = [&](const PQPane& pane, const IPQImageBuffer& image) {
    if (IsEmpty(pane)) return;
    ippiCopy_8u_C3R(image.Read(), image.GetStep(), pixels + pane.OutTop * step + pane.OutLeft * pixel, step,
                    SizeOf(pane));
  };
  draw(panes_.Pane1, image1);
  draw(panes_.Pane2, image2);
}

void TPQCommonCombine::DrawPanes(const IPQImageBuffer& image1, const IPQImageBuffer& image2, IPQImageBuffer& out,
                                 const std::uint8_t* color) {
  std::uint8_t* const pixels = out.Write();
  const int step = out.GetStep(), pixel = out.GetPixelSize();
  for (const auto& row : panes_.Panes) {
    for (const PQPane& pane : row) {
      if (IsEmpty(pane)) continue;
      std::uint8_t* const to = pixels + pane.OutTop * step + pane.OutLeft * pixel;
      switch (pane.PicToShow) {
        case PQPane::psBackground:
          ippiSet_8u_C3R(color, to, step, SizeOf(pane));
          break;
        case PQPane::psImage1:
          ippiCopy_8u_C3R(At(image1, pane.Image1Left, pane.Image1Top), image1.GetStep(), to, step, SizeOf(pane));
          break;
        case PQPane::psImage2:
          ippiCopy_8u_C3R(At(image2, pane.Image2Left, pane.Image2Top), image2.GetStep(), to, step, SizeOf(pane));
          break;
        case PQPane::psImageBoth:
          DoCombineOp(At(image1, pane.Image1Left, pane.Image1Top), image1.GetStep(),
                      At(image2, pane.Image2Left, pane.Image2Top), image2.GetStep(), to, step, SizeOf(pane), pixel);
          break;
        case PQPane::psNone:
          break;
      }
    }
  }
  const std::int64_t width = panes_.FrameWidth, height = panes_.FrameHeight;
  if (width > panes_.OutWidth) {
    ippiSet_8u_C3R(color, pixels + panes_.OutWidth * pixel, step,
                   {static_cast<int>(width - panes_.OutWidth), static_cast<int>(height)});
  }
  if (height > panes_.OutHeight) {
    ippiSet_8u_C3R(color, pixels + panes_.OutHeight * step, step,
                   {static_cast<int>(width), static_cast<int>(height - panes_.OutHeight)});
  }
}

}  // namespace pantiq
