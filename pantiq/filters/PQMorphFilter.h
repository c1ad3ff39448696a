// Erosion and dilation with a mask of any shape.
#pragma once
#include <memory>
#include <span>
#include <vector>

#include "pantiq/core/PQCommonFilter.h"

namespace pantiq {

class TPQMorphFilter;

enum TPQMorphType : std::uint8_t { mtErode, mtDilate };
template <>
struct PQEnumWords<TPQMorphType> {
  static constexpr std::string_view name = "TPQMorphType";
  static constexpr PQWord words[] = {{"mtErode", 0}, {"mtDilate", 1}};
};

enum TPQMorphShapeType : std::uint8_t { stRect, stCross, stEllipse, stCustom };
template <>
struct PQEnumWords<TPQMorphShapeType> {
  static constexpr std::string_view name = "TPQMorphShapeType";
  static constexpr PQWord words[] = {{"stRect", 0}, {"stCross", 1}, {"stEllipse", 2}, {"stCustom", 3}};
};

// Cells of a mask, row by row: 1 where the mask holds the pixel, else 0.
using TPQMorphArray = std::vector<std::uint8_t>;

// The mask of a morphology filter, as wide and high as the filter's MaskSize. The custom mask is kept while another shape is
// selected. The other shapes exist from 4 by 4 cells on: in a smaller mask nothing is computed, and it stays as it was, at
// first empty. A mask of more than 2^24 cells is not made: frames then pass unfiltered.
//
// Threads. Any; a frame works with the mask of one moment.
class PQ_EXPORT TPQMorphShape final : public TPersistent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQMorphShape(TPQMorphFilter& filter);
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  // Shape and both masks of another TPQMorphShape.
  void Assign(const TPersistent& source) override;

  TPQMorphShapeType GetShapeType() const;
  void SetShapeType(TPQMorphShapeType type);
  // Cells of the custom mask. Outside the mask: ignored, false.
  bool GetItem(std::uint32_t x, std::uint32_t y) const;
  void SetItem(std::uint32_t x, std::uint32_t y, bool value);
  // The same for every cell, row by row, in one step: frames meet the old mask or the new one. Cells that `cells` lacks
  // stay, what it has beyond the mask is ignored.
  void SetItems(std::span<const std::uint8_t> cells);
  std::uint32_t GetWidth() const;
  std::uint32_t GetHeight() const;
  // Another size: cells of the custom mask stay at their places, new ones are 0.
  void RecalcArray(std::uint32_t width, std::uint32_t height);
  // The mask in use, of one moment: GetWidth() * GetHeight() cells.
  std::shared_ptr<const TPQMorphArray> InUse() const;

  // Lets a person draw the custom mask and set the filter's MaskSize, in the dialog "PQMorphShapeForm" (RegisterAll brings
  // one). True if the person accepted; false, and nothing changed, if not or if there is nothing to show it with. The thread
  // of the user interface.
  bool ShowDialog();

  // Stored forms. MatrixData: the number of cells of the custom mask, then the cells. Matrix, of older streams: a 32-bit
  // count, then as many 32-bit integers, of which the low byte counts; little endian.
  PQValue::List GetMatrixData() const;
  PQStatus SetMatrixData(const PQValue::List& list);
  PQStatus SetMatrix(const PQBytes& bytes);

 private:
  void SetDataPerShape();
  void Publish();
  TPQMorphFilter& filter_;
  // All under the filter's lock:
  std::uint32_t width_, height_;
  TPQMorphShapeType shape_type_ = stRect;
  TPQMorphArray computed_, custom_;
  std::shared_ptr<const TPQMorphArray> in_use_;
};

// A pixel becomes the least (erosion) or the greatest value (dilation) of each channel under the mask. Gray frames stay gray.
class PQ_EXPORT TPQMorphFilter final : public TPQCommonROIMatrixFilterIntermidiate {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQMorphFilter(TComponent* owner = nullptr);
  ~TPQMorphFilter() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  TPQMorphType GetMorphType() const { return morph_type_.load(std::memory_order_relaxed); }
  void SetMorphType(TPQMorphType type) { morph_type_.store(type, std::memory_order_relaxed); }
  TPQMorphShape& GetMorphShape() { return shape_; }
  void SetMorphShape(const TPQMorphShape& shape) { shape_.Assign(shape); }

 protected:
  void SetVideoFormat(PQImageRef& buffer) override { AcceptGray(buffer); }
  void Changed(TPersistent* sender) override;
  IppStatus PerformFilter(const std::uint8_t* source, int source_step, std::uint8_t* destination, int destination_step,
                          IppiSize roi, IppiSize mask, TPoint anchor, TPQVideoFormat format) override;

 private:
  friend class TPQMorphShape;
  std::atomic<TPQMorphType> morph_type_{mtErode};
  TPQMorphShape shape_;
};

namespace PQMorphFilter {
PQ_EXPORT void Register();
}

}  // namespace pantiq
