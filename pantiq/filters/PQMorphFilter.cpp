#include "pantiq/filters/PQMorphFilter.h"

#include <algorithm>
#include <cmath>

#include "pantiq/host/PQDialog.h"
#include "pantiq/host/PQRegistry.h"
#include "pantiq/kernels/PQDispatcher.h"

namespace pantiq {

constinit const PQClassTag TPQMorphShape::kTag{"TPQMorphShape", &TPersistent::kTag};
constinit const PQClassTag TPQMorphFilter::kTag{"TPQMorphFilter", &TPQCommonROIMatrixFilterIntermidiate::kTag};

namespace {

constexpr std::uint64_t kMostCells = std::uint64_t{1} << 24;

// 0 for a mask that is not made.
std::size_t Cells(std::uint32_t width, std::uint32_t height) {
  const std::uint64_t cells = std::uint64_t{width} * height;
  return cells > kMostCells ? 0 : static_cast<std::size_t>(cells);
}

}  // namespace

// --- TPQMorphShape --------------------------------------------------------------------------------------------------

const PQClassInfo& TPQMorphShape::Class() {
  static const PQClassInfo& info = [] () -> const PQClassInfo& {
    PQProperty old;
    old.name = "Matrix", old.type_name = "Binary", old.kind = PQKind::Binary, old.stored = false;
    old.help = "The custom mask as older streams hold it: a count and as many integers of 32 bits, little endian.";
    old.get = [](const TPersistent&) { return PQValue(PQBytes()); };
    old.set = [](TPersistent& object, const PQValue& value) {
      return static_cast<TPQMorphShape&>(object).SetMatrix(*value.Bytes());
    };
    return PQDescribe<TPQMorphShape>("TPQMorphShape", "PQMorphFilter", "The mask of a morphology filter.")
        .Inherits<TPersistent>()
        .Property("ShapeType", &TPQMorphShape::GetShapeType, &TPQMorphShape::SetShapeType, PQDefault(stRect),
                  PQActs::NextFrame,
                  "stRect, stCross and stEllipse fill MaskSize, from 4 by 4 cells on; stCustom is the mask that MatrixData "
                  "holds. With an empty mask frames pass unfiltered.")
        .Custom(std::move(old))
        .Property("MatrixData", &TPQMorphShape::GetMatrixData, &TPQMorphShape::SetMatrixData, PQActs::NextFrame,
                  "The custom mask: the number of cells, then the cells row by row, 1 or 0. Set MaskSize first.")
        .Done();
  }();
  return info;
}

TPQMorphShape::TPQMorphShape(TPQMorphFilter& filter) : filter_(filter) {
  const TPQSize::Values size = filter.GetMaskSize().Get();
  width_ = size.width;
  height_ = size.height;
  computed_.resize(Cells(width_, height_));
  custom_.resize(Cells(width_, height_));
  Publish();
}

void TPQMorphShape::Assign(const TPersistent& source) {
  const auto* other = PQCast<const TPQMorphShape>(&source);
  if (other == nullptr) {
    TPersistent::Assign(source);
    return;
  }
  if (other == this) return;
  TPQMorphShapeType type;
  TPQMorphArray computed, custom;
  {
    auto section = other->filter_.Lock().ReadLock();
    type = other->shape_type_, computed = other->computed_, custom = other->custom_;
  }
  auto section = filter_.Lock().WriteLock();
  shape_type_ = type, computed_ = std::move(computed), custom_ = std::move(custom);
  Publish();
}

TPQMorphShapeType TPQMorphShape::GetShapeType() const {
  auto section = filter_.Lock().ReadLock();
  return shape_type_;
}

void TPQMorphShape::SetShapeType(TPQMorphShapeType type) {
  auto section = filter_.Lock().WriteLock();
  if (type == shape_type_) return;
  shape_type_ = type;
  SetDataPerShape();
  filter_.Changed(this);
}

std::uint32_t TPQMorphShape::GetWidth() const {
  auto section = filter_.Lock().ReadLock();
  return width_;
}

std::uint32_t TPQMorphShape::GetHeight() const {
  auto section = filter_.Lock().ReadLock();
  return height_;
}

bool TPQMorphShape::GetItem(std::uint32_t x, std::uint32_t y) const {
  auto section = filter_.Lock().ReadLock();
  const std::uint64_t at = std::uint64_t{y} * width_ + x;
  return x < width_ && y < height_ && at < custom_.size() && custom_[at] != 0;
}

void TPQMorphShape::SetItem(std::uint32_t x, std::uint32_t y, bool value) {
  auto section = filter_.Lock().WriteLock();
  const std::uint64_t at = std::uint64_t{y} * width_ + x;
  if (x >= width_ || y >= height_ || at >= Cells(width_, height_)) return;
  if (custom_.size() <= at) custom_.resize(Cells(width_, height_));
  custom_[at] = value ? 1 : 0;
  if (shape_type_ == stCustom) Publish();
}

void TPQMorphShape::SetItems(std::span<const std::uint8_t> cells) {
  auto section = filter_.Lock().WriteLock();
  custom_.resize(Cells(width_, height_));
  const std::size_t count = std::min(custom_.size(), cells.size());
  for (std::size_t i = 0; i < count; ++i) custom_[i] = cells[i] != 0 ? 1 : 0;
  if (shape_type_ == stCustom) Publish();
}

bool TPQMorphShape::ShowDialog() { return pantiq::ShowDialog("PQMorphShapeForm", filter_); }

std::shared_ptr<const TPQMorphArray> TPQMorphShape::InUse() const {
  auto section = filter_.Lock().ReadLock();
  return in_use_;
}

void TPQMorphShape::Publish() {
  auto fresh = std::make_shared<TPQMorphArray>(shape_type_ == stCustom ? custom_ : computed_);
  fresh->resize(Cells(width_, height_));
  in_use_ = std::move(fresh);
}

void TPQMorphShape::RecalcArray(std::uint32_t width, std::uint32_t height) {
  auto section = filter_.Lock().WriteLock();
  const std::size_t cells = Cells(width, height);
  if ((width != width_ || height != height_) && (cells > 0 || width == 0 || height == 0)) {
    TPQMorphArray custom(cells);
    for (std::size_t y = 0; y < std::min(height, height_); ++y) {
      for (std::size_t x = 0; x < std::min(width, width_); ++x) {
        if (y * width_ + x < custom_.size()) custom[y * width + x] = custom_[y * width_ + x];
      }
    }
    custom_ = std::move(custom);
  }
  width_ = width;
  height_ = height;
  computed_.resize(cells);
  SetDataPerShape();
}

void TPQMorphShape::SetDataPerShape() {
  if (shape_type_ != stCustom && width_ >= 4 && height_ >= 4 && Cells(width_, height_) > 0) {
    const int w = static_cast<int>(width_), h = static_cast<int>(height_);
    const int cx = static_cast<int>((w + 0.5) * 0.5), cy = static_cast<int>((h + 0.5) * 0.5);
    const int rx = w % 2 != 0 ? w / 2 : w / 2 - 1, ry = h % 2 != 0 ? h / 2 : h / 2 - 1;
    const double r2 = static_cast<double>(std::max(rx, ry)) * std::max(rx, ry);
    const auto chord = [r2](int d) { return std::sqrt(std::max(r2 - static_cast<double>(d) * d, 0.0)); };
    const auto cell = [&](int x, int y) -> std::uint8_t& { return computed_[static_cast<std::size_t>(y) * width_ + x]; };
    computed_.resize(Cells(width_, height_));
    for (int y = cy; y < h; ++y) {
      for (int x = cx; x < w; ++x) {
        const int dx = x - cx, dy = y - cy;
        bool inside = true;
        if (shape_type_ == stCross) inside = dx < 1 || dy < 1;
        if (shape_type_ == stEllipse) {
          inside = dy <= std::trunc(ry * chord(dx) / rx) && dx <= std::trunc(rx * chord(dy) / ry);
        }
        cell(x, y) = inside ? 1 : 0;
      }
    }
    for (int x = 0; x < cx; ++x) {
      for (int y = cy; y < h; ++y) cell(x, y) = cell(w - 1 - x, y);
    }
    for (int x = 0; x < w; ++x) {
      for (int y = 0; y < cy; ++y) cell(x, y) = cell(x, h - 1 - y);
    }
  }
  Publish();
}

PQValue::List TPQMorphShape::GetMatrixData() const {
  auto section = filter_.Lock().ReadLock();
  PQValue::List list;
  list.reserve(custom_.size() + 1);
  list.emplace_back(static_cast<std::int64_t>(custom_.size()));
  for (const std::uint8_t cell : custom_) list.emplace_back(static_cast<std::int64_t>(cell));
  return list;
}

PQStatus TPQMorphShape::SetMatrixData(const PQValue::List& list) {
  for (const PQValue& value : list) {
    if (value.Int() == nullptr) return PQStatus(PQCode::BadValue, "a list of integers was expected: the number of cells, then the cells");
  }
  const std::size_t held = list.empty() ? 0 : list.size() - 1;
  const std::int64_t count = list.empty() ? 0 : *list[0].Int();
  if (count < 0 || static_cast<std::uint64_t>(count) != held) {
    return PQStatus(PQCode::BadValue, "the list says " + std::to_string(count) + " cells and holds " + std::to_string(held));
  }
  if (held > kMostCells) return PQStatus(PQCode::BadValue, std::to_string(held) + " cells; at most 16777216 were expected");
  TPQMorphArray cells(held);
  for (std::size_t i = 0; i < held; ++i) cells[i] = *list[i + 1].Int() != 0 ? 1 : 0;
  auto section = filter_.Lock().WriteLock();
  custom_ = std::move(cells);
  SetDataPerShape();
  return {};
}

PQStatus TPQMorphShape::SetMatrix(const PQBytes& bytes) {
  const auto word = [&](std::size_t i) {
    std::uint32_t value = 0;
    for (int k = 3; k >= 0; --k) value = value << 8 | static_cast<std::uint8_t>(bytes[4 * i + static_cast<std::size_t>(k)]);
    return value;
  };
  const std::size_t held = bytes.size() < 4 ? 0 : bytes.size() / 4 - 1;
  if (bytes.size() < 4 || bytes.size() % 4 != 0 || word(0) != held) {
    return PQStatus(PQCode::BadValue, std::to_string(bytes.size()) + " bytes; a count of 32 bits and as many integers of 32 bits were expected");
  }
  if (held > kMostCells) return PQStatus(PQCode::BadValue, std::to_string(held) + " cells; at most 16777216 were expected");
  TPQMorphArray cells(held);
  for (std::size_t i = 0; i < held; ++i) cells[i] = static_cast<std::uint8_t>(word(i + 1));
  auto section = filter_.Lock().WriteLock();
  custom_ = std::move(cells);
  if (shape_type_ == stCustom) Publish();
  return {};
}

// --- TPQMorphFilter -------------------------------------------------------------------------------------------------

const PQClassInfo& TPQMorphFilter::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQMorphFilter>("TPQMorphFilter", "PQMorphFilter", "Erosion and dilation with a mask of any shape.")
          .Inherits<TPQCommonROIMatrixFilter>()
          .Property("MorphType", &TPQMorphFilter::GetMorphType, &TPQMorphFilter::SetMorphType, PQDefault(mtErode),
                    PQActs::NextFrame, "mtErode takes the least value under the mask, mtDilate the greatest.")
          .Object("MorphShape", &TPQMorphFilter::GetMorphShape, PQActs::NextFrame,
                  "The mask, as large as MaskSize. It needs 4 by 4 cells or more, unless it is drawn by hand (stCustom).")
          .Done();
  return info;
}

TPQMorphFilter::TPQMorphFilter(TComponent* owner) : TPQCommonROIMatrixFilterIntermidiate(owner), shape_(*this) {
  Changed(this);
}

void TPQMorphFilter::Changed(TPersistent*) {
  const TPQSize::Values size = GetMaskSize().Get();
  shape_.RecalcArray(size.width, size.height);
}

IppStatus TPQMorphFilter::PerformFilter(const std::uint8_t* source, int source_step, std::uint8_t* destination,
                                        int destination_step, IppiSize roi, IppiSize mask, TPoint anchor,
                                        TPQVideoFormat format) {
  std::shared_ptr<const TPQMorphArray> cells = shape_.InUse();
  const std::size_t wanted = Cells(static_cast<std::uint32_t>(mask.width), static_cast<std::uint32_t>(mask.height));
  if (cells->size() != wanted) {  // the size has just changed
    auto fitted = std::make_shared<TPQMorphArray>(*cells);
    fitted->resize(wanted);
    cells = std::move(fitted);
  }
  if (cells->empty()) return ippStsNullPtrErr;
  const bool erode = GetMorphType() == mtErode;
  if (format == vfRGB24) {
    return erode ? PQ_SLOT(ippiErode_8u_C3R)(source, source_step, destination, destination_step, roi, cells->data(), mask, anchor)
                 : PQ_SLOT(ippiDilate_8u_C3R)(source, source_step, destination, destination_step, roi, cells->data(), mask, anchor);
  }
  if (format == vfGrayScale) {
    return erode ? PQ_SLOT(ippiErode_8u_C1R)(source, source_step, destination, destination_step, roi, cells->data(), mask, anchor)
                 : PQ_SLOT(ippiDilate_8u_C1R)(source, source_step, destination, destination_step, roi, cells->data(), mask, anchor);
  }
  return ippStsNoErr;
}

void PQMorphFilter::Register() {
  const PQClassInfo* const classes[] = {&TPQMorphFilter::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
