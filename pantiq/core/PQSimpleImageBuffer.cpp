#include "pantiq/core/PQSimpleImageBuffer.h"

#include <algorithm>
#include <cstring>

#include "pantiq/kernels/PQBaseKernels.h"
#include "pantiq/kernels/PQFormatKernels.h"

namespace pantiq {

constinit const PQClassTag IPQImageBuffer::kTag{"IPQImageBuffer", &IRWDataBuffer::kTag};
constinit const PQClassTag TPQImageBuffer::kTag{"TPQImageBuffer", &IPQImageBuffer::kTag};

const char* const* PQPlaneNames(TPQColorMode mode) noexcept {
  static const char* const names[9][3] = {{"Red", "Green", "Blu"},
                                          {"Hue", "Lightness", "Saturation"},
                                          {"Hue", "Saturation", "Value"},
                                          {"Luminance", "ChrominanceU", "ChrominanceV"},
                                          {"L", "U", "V"},
                                          {"X", "Y", "Z"},
                                          {"Y", "Cb", "Cr"},
                                          {"Luminance", "Chrominance1", "Chrominance2"},
                                          {"L*", "a*", "b*"}};
  return names[mode <= cmLab ? mode : cmRGB];
}

namespace {

TPQVideoFormat Known(TPQVideoFormat format) { return format < vfUnspecified ? format : vfRGB24; }

PQRef<PQFrameBlock> MakeBlock(std::int64_t width, std::int64_t height, TPQVideoFormat format) {
  return PQFrameBlock::Make(width * PQPixelSize(format), height);
}

}  // namespace

TPQImageBuffer::TPQImageBuffer(std::int32_t width, std::int32_t height, TPQVideoFormat format) : IPQImageBuffer(kTag) {
  format_ = Known(format);
  width_ = std::max(width, 0);
  height_ = std::max(height, 0);
  block_ = MakeBlock(width_, height_, format_);
}

TPQImageBuffer::TPQImageBuffer(const void* data, std::int32_t width, std::int32_t height, TPQVideoFormat format)
    : TPQImageBuffer(width, height, format) {
  if (GetByteSize() > 0) std::memcpy(block_->Data(), data, block_->Bytes());
}

PQRef<TPQImageBuffer> PQOnPage(const IPQImageBuffer& image, std::int32_t width, std::int32_t height) {
  auto page = PQMakeRef<TPQImageBuffer>(width, height, image.GetFormat());
  PQCopyStamps(image, *page);
  const bool black_is_zero = image.GetFormat() != vfYUY2;
  if (!black_is_zero) page->Fill(0);
  const auto step = static_cast<std::size_t>(page->GetStep());
  const auto bytes = std::min(step, static_cast<std::size_t>(image.GetStep()));
  const std::int32_t rows = bytes > 0 ? std::min(page->GetHeight(), image.GetHeight()) : 0;
  std::uint8_t* to = page->Modify();
  const std::uint8_t* from = image.Read();
  for (std::int32_t y = 0; y < rows; ++y, to += step, from += image.GetStep()) {
    std::memcpy(to, from, bytes);
    if (black_is_zero) std::memset(to + bytes, 0, step - bytes);
  }
  const std::size_t below = step * static_cast<std::size_t>(page->GetHeight() - rows);
  if (black_is_zero && below > 0) std::memset(to, 0, below);
  return page;
}

void TPQImageBuffer::ViewOf(const IRWDataBuffer& source) noexcept {
  if (const auto* image = PQCast<const IPQImageBuffer>(&source)) CopyFrom(*image);
}

void TPQImageBuffer::CopyFrom(const IPQImageBuffer& source) noexcept {
  const auto& image = static_cast<const TPQImageBuffer&>(source);
  block_ = image.block_;
  width_ = image.width_;
  height_ = image.height_;
  format_ = image.format_;
  PQCopyStamps(image, *this);
}

void TPQImageBuffer::Assign(const IRWDataBuffer& source) {
  if (&source == this) return;
  if (const auto* image = PQCast<const IPQImageBuffer>(&source)) {
    CopyFrom(*image);
    return;
  }
  block_ = nullptr;
  width_ = height_ = 0;
  GetSequenceStamp() = source.GetSequenceStamp();
  GetTimeStamp() = source.GetTimeStamp();
}

std::uint8_t* TPQImageBuffer::Write() {
  if (!block_) return nullptr;
  if (!block_->IsSoleReference()) block_ = MakeBlock(width_, height_, format_);
  return block_->Data();
}

std::uint8_t* TPQImageBuffer::Modify() {
  if (!block_) return nullptr;
  if (!block_->IsSoleReference()) {
    PQRef<PQFrameBlock> own = MakeBlock(width_, height_, format_);
    std::memcpy(own->Data(), block_->Data(), own->Bytes());
    PQFramePool::CountCopy(own->Bytes());
    block_ = std::move(own);
  }
  return block_->Data();
}

void TPQImageBuffer::SetStorage(PQRef<PQFrameBlock> block, std::int32_t width, std::int32_t height, TPQVideoFormat format) {
  block_ = std::move(block);
  width_ = width, height_ = height, format_ = Known(format);
}

void TPQImageBuffer::SetSize(std::int32_t width, std::int32_t height) {
  width = std::max(width, 0);
  height = std::max(height, 0);
  if (block_ && width == width_ && height == height_) return;
  block_ = MakeBlock(width, height, format_);
  width_ = width, height_ = height;
}

void TPQImageBuffer::SetFormat(TPQVideoFormat format) {
  if (format >= vfUnspecified || format == format_) return;
  if (width_ == 0 || height_ == 0) {
    format_ = format;
    if (block_) block_ = MakeBlock(width_, height_, format);
    return;
  }
  PQRef<PQFrameBlock> target = MakeBlock(width_, height_, format);
  const std::uint8_t* from = block_->Data();
  std::uint8_t* to = target->Data();
  const int from_step = GetStep(), to_step = width_ * PQPixelSize(format);
  const IppiSize size{width_, height_};
  if (format_ == vfRGB24 && format == vfGrayScale) {
    PQRGB24ToGray(from, from_step, to, to_step, size);
  } else if (format_ == vfGrayScale && format == vfRGB24) {
    PQGrayToRGB24(from, from_step, to, to_step, size);
  } else if (format_ == vfYUY2 && format == vfRGB24) {
    PQYUY2ToRGB24(from, from_step, to, to_step, size);
  } else if (format_ == vfRGB24 && format == vfYUY2) {
    PQRGB24ToYUY2(from, from_step, to, to_step, size);
  } else {  // between gray and YUY2 by way of colour
    SetFormat(vfRGB24);
    SetFormat(format);
    return;
  }
  PQFramePool::CountCopy(target->Bytes());
  block_ = std::move(target);
  format_ = format;
}

TColor TPQImageBuffer::GetPixel(std::int32_t x, std::int32_t y) const {
  if (x < 0 || y < 0 || x >= width_ || y >= height_) return 0;
  const std::uint8_t* row = Read() + std::ptrdiff_t{y} * GetStep();
  if (format_ == vfGrayScale) return row[x] * 0x010101u;
  std::uint8_t pixel[3];
  const std::uint8_t* bgr = row + std::ptrdiff_t{x} * 3;
  if (format_ == vfYUY2) {  // chroma is shared by a pair: convert the row up to the end of the pixel's pair
    TPQImageBuffer part(row, std::min(width_, x + 1 + (x + 1) % 2), 1, vfYUY2);
    part.SetFormat(vfRGB24);
    std::memcpy(pixel, part.Read() + std::ptrdiff_t{x} * 3, 3);
    bgr = pixel;
  }
  return static_cast<TColor>(bgr[2] | (bgr[1] << 8) | (bgr[0] << 16));
}

void TPQImageBuffer::Fill(TColor color) {
  if (width_ == 0 || height_ == 0) return;
  const std::uint8_t bgr[3] = {static_cast<std::uint8_t>(color >> 16), static_cast<std::uint8_t>(color >> 8),
                               static_cast<std::uint8_t>(color)};
  if (format_ == vfRGB24) {
    ippiSet_8u_C3R(bgr, Write(), GetStep(), GetSize());
    return;
  }
  // The form that the colour takes in this format, from one pair of pixels.
  TPQImageBuffer pair(2, 1, vfRGB24);
  pair.Fill(color);
  pair.SetFormat(format_);
  std::uint8_t* to = Write();
  if (format_ == vfGrayScale) {
    std::memset(to, pair.Read()[0], static_cast<std::size_t>(GetByteSize()));
    return;
  }
  for (std::int32_t y = 0; y < height_; ++y) {
    std::uint8_t* row = to + std::ptrdiff_t{y} * GetStep();
    for (std::int32_t i = 0; i < GetStep(); ++i) row[i] = pair.Read()[i % 4];
  }
}

void TPQImageBuffer::Clear() {
  if (std::uint8_t* to = Write()) std::memset(to, 0, block_->Bytes());
}

void TPQImageBuffer::LoadBitmap(const TBitmap& bitmap) {
  format_ = vfRGB24;
  block_ = nullptr;
  SetSize(bitmap.GetWidth(), bitmap.GetHeight());
  if (GetByteSize() > 0) std::memcpy(block_->Data(), bitmap.Data(), block_->Bytes());
}

}  // namespace pantiq
