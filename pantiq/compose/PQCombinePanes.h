// The plan of a frame that two images make: which rectangle of it comes from where. A grid of three by three panes,
// the middle one where the images overlap; two panes of their own where they do not.
#pragma once
#include <cstdint>

#include "pantiq/PQExport.h"

namespace pantiq {

// Where the pixels of a pane come from.
struct PQPane {
  enum Source : std::uint8_t { psNone, psImage1, psImage2, psImageBoth, psBackground };
  std::int64_t Width = 0, Height = 0;
  Source PicToShow = psNone;
  std::int64_t Image1Left = 0, Image1Top = 0;
  std::int64_t Image2Left = 0, Image2Top = 0;
  std::int64_t OutLeft = 0, OutTop = 0;
};

// What a plan is made of, in pixels.
struct PQPaneInput {
  std::int32_t Width1 = 0, Height1 = 0, Width2 = 0, Height2 = 0;  // the images; none is negative
  std::int32_t X = 0, Y = 0;                                      // image 1's place less image 2's
  bool Custom = false, ExtendHorizontal = true, ExtendVertical = true;
  std::uint32_t CustomWidth = 0, CustomHeight = 0;
};

class PQ_EXPORT PQCombinePanes {
 public:
  // `set_frame_size`: the size of frames follows; otherwise it stays and the panes are cut to it. Images that do not
  // overlap leave it in any case. What the grid spans is covered by its panes without a gap.
  void Plan(const PQPaneInput& input, bool set_frame_size);

  std::int64_t FrameWidth = 0, FrameHeight = 0;  // of the frames
  std::int64_t OutWidth = 0, OutHeight = 0;      // what the panes span
  bool Overlap = false;                          // the grid holds; images that touch overlap
  PQPane Pane1, Pane2;                           // without overlap
  PQPane Panes[3][3];                            // with overlap; row, column

 private:
  void PlanApart(const PQPaneInput& input);
  void PlanGrid(const PQPaneInput& input, bool set_frame_size);
  void CutApart(const PQPaneInput& input);
  void CutGrid();
};

}  // namespace pantiq
