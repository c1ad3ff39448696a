// Erosion and dilation with a mask of any shape, and the record that prepares a mask.
//
// roi, mask and anchor are in pixels, steps in bytes. Source and destination are apart. Any thread.
//
// ippiErode_8u_C3R, ippiErode_8u_C1R, ippiDilate_8u_C3R, ippiDilate_8u_C1R
//   mask holds maskSize.width * maskSize.height bytes, row by row without padding; a byte that isn't 0 sets its cell,
//   whatever its value. Sample (x, y) of a channel becomes the least (erode) or greatest (dilate) of the source's
//   samples (x - anchor.x + i, y - anchor.y + j) over the set cells (i, j). The kernels read all of the mask's
//   rectangle round every pixel of the region; the caller makes it readable. The work grows with the number of set
//   cells at most. Faults in the order in which they are found: a null pointer -8, a source step below 1 -14, a
//   destination step below 1 -14, width or height of the region below 1 -6, of the mask -33, no cell set -59, the
//   anchor outside the mask -34, a source step below a row of width + maskSize.width - 1 pixels -37, a destination step
//   below a row -37, no memory -9. The destination is untouched then.
// ippiMorphologyInitAlloc_8u_C3R
//   Makes a record for rows of roiWidth pixels of three channels; the mask comes as integers, one a cell. Faults: a
//   null pointer -8, roiWidth or a side of the mask below 1 -6, the anchor outside the mask -34, no memory, or more
//   than 2^31 - 1 bytes, -9.
// ippiMorphologyFree
//   Gives the record back and sets the caller's reference to null; null: -8.
#pragma once

#include "pantiq/kernels/PQBaseKernels.h"
#include "pantiq/kernels/PQVariants.h"

namespace pantiq {

// The record, and behind it in the same block the mask's cells and the work rows.
struct IppiMorphState {
  std::uint8_t* data;       // the cells, one byte each, 1 where set; a multiple of 16
  std::uint8_t* maskCopy;   // the same
  std::uint8_t* maskCopy2;  // the same
  std::uint8_t* rowArea;    // the work rows, behind the cells
  std::int32_t reserved;    // 0
  int maskWidth;
  int maskHeight;
  int anchorX;
  int anchorY;
  int rightExtent;   // maskWidth - anchorX - 1
  int bottomExtent;  // maskHeight - anchorY - 1
  int rowSize;       // bytes of a work row
  int totalSize;     // bytes of the block
  int dataType;      // 1: 8u
  int channels;
  int roiWidth;
  int lastRow;  // -1 at start
  int flag;     // 0 at start
};
inline constexpr std::int64_t kPQMorphRecordSize = 96;
static_assert(sizeof(IppiMorphState) <= kPQMorphRecordSize);

static inline IppStatus PQCheckMorphology(const std::uint8_t* src, int src_step, const std::uint8_t* dst, int dst_step,
                                          IppiSize roi, const std::uint8_t* mask, IppiSize size, TPoint anchor,
                                          int channels) {
  if (src == nullptr || dst == nullptr || mask == nullptr) return ippStsNullPtrErr;
  if (src_step < 1 || dst_step < 1) return ippStsStepErr;
  if (roi.width < 1 || roi.height < 1) return ippStsSizeErr;
  if (size.width < 1 || size.height < 1) return ippStsMaskSizeErr;
  const std::int64_t cells = static_cast<std::int64_t>(size.width) * size.height;
  std::uint8_t greatest = 0;
  for (std::int64_t i = 0; i < cells && greatest != 255; ++i) greatest = mask[i] > greatest ? mask[i] : greatest;
  if (greatest == 0) return ippStsZeroMaskValuesErr;
  if (anchor.x < 0 || anchor.x >= size.width || anchor.y < 0 || anchor.y >= size.height) return ippStsAnchorErr;
  const std::int64_t row = static_cast<std::int64_t>(roi.width) * channels;
  if (src_step < row + static_cast<std::int64_t>(size.width - 1) * channels) return ippStsStrideErr;
  return dst_step < row ? ippStsStrideErr : ippStsNoErr;
}

// Mode 0 gives the bytes that a record needs in *size; mode 1 fills the memory that *state points at (of that size, a
// multiple of 8); mode 2 takes memory from ippsMalloc_8u. data_type: 1, samples of one byte; others take four.
// Null mask, or null size (mode 0) or state (modes 1 and 2): -8. roi_width or a side of the mask below 1: -6. The
// anchor outside the mask: -34. No memory, or more than 2^31 - 1 bytes: -9.
static inline IppStatus ownMorphologyInitAlloc(int data_type, int channels, int roi_width, const int* mask,
                                               IppiSize mask_size, TPoint anchor, IppiMorphState** state, int mode,
                                               int* size) {
  IppiMorphState** volatile given = state;  // behind a reference the compiler takes it for granted
  if (mask == nullptr || (mode == 0 ? size == nullptr : given == nullptr)) return ippStsNullPtrErr;
  if (roi_width < 1 || mask_size.width < 1 || mask_size.height < 1) return ippStsSizeErr;
  if (anchor.x < 0 || anchor.x >= mask_size.width || anchor.y < 0 || anchor.y >= mask_size.height) {
    return ippStsAnchorErr;
  }
  constexpr std::int64_t kMost = 0x7FFFFFFF;
  const auto up16 = [](std::int64_t v) { return (v + 15) / 16 * 16; };
  const std::int64_t sample = data_type == 1 ? 1 : 4;
  const std::int64_t cells = static_cast<std::int64_t>(mask_size.width) * mask_size.height, cell_area = up16(cells);
  const std::int64_t row_size = up16((static_cast<std::int64_t>(roi_width) + mask_size.width) * sample * channels);
  if (cell_area > kMost || row_size > kMost) return ippStsMemAllocErr;
  const std::int64_t rows = std::int64_t{2} * mask_size.height * row_size;
  const std::int64_t least = sample * channels * mask_size.height;
  const std::int64_t total = kPQMorphRecordSize + cell_area + (rows > least ? rows : least);
  if (total > kMost) return ippStsMemAllocErr;
  if (mode == 0) {
    *size = static_cast<int>(total);
    return ippStsNoErr;
  }
  std::uint8_t* block = mode == 1 ? reinterpret_cast<std::uint8_t*>(*state) : ippsMalloc_8u(static_cast<int>(total));
  if (block == nullptr) return mode == 1 ? ippStsNullPtrErr : ippStsMemAllocErr;
  std::uint8_t* data = block + sizeof(IppiMorphState);
  data += -reinterpret_cast<std::uintptr_t>(data) & 15;
  for (std::int64_t i = 0; i < cells; ++i) data[i] = mask[i] != 0 ? 1 : 0;
  IppiMorphState* record = reinterpret_cast<IppiMorphState*>(block);
  *record = {data,
             data,
             data,
             data + cell_area,
             0,
             mask_size.width,
             mask_size.height,
             anchor.x,
             anchor.y,
             mask_size.width - anchor.x - 1,
             mask_size.height - anchor.y - 1,
             static_cast<int>(row_size),
             static_cast<int>(total),
             data_type,
             channels,
             roi_width,
             -1,
             0};
  *state = record;
  return ippStsNoErr;
}

static inline IppStatus PQFreeMorphology(IppiMorphState*& state) {
  IppiMorphState** volatile given = &state;
  if (given == nullptr || state == nullptr) return ippStsNullPtrErr;
  ippsFree(state);
  state = nullptr;
  return ippStsNoErr;
}

}  // namespace pantiq
