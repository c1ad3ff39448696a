#include "pantiq/compose/PQCombinePanes.h"

#include <algorithm>

namespace pantiq {

void PQCombinePanes::Plan(const PQPaneInput& in, bool set_frame_size) {
  const std::int64_t x = in.X, y = in.Y;
  Overlap = !(x > in.Width2 || -x > in.Width1 || y > in.Height2 || -y > in.Height1);
  if (Overlap) {
    PlanGrid(in, set_frame_size);
    CutGrid();
  } else {
    PlanApart(in);
    CutApart(in);
  }
}

// --- Without overlap ------------------------------------------------------------------------------------------------

namespace {

// One direction: an image lies at 0, the other one at its distance.
void PlaceApart(std::int64_t offset, std::int64_t size1, std::int64_t size2, std::int64_t& at1, std::int64_t& at2,
                std::int64_t& span) {
  if (offset < 1) {
    at1 = 0, at2 = -offset;
    span = std::max(size1, at2 + size2);
  } else {
    at2 = 0, at1 = offset;
    span = std::max(size2, at1 + size1);
  }
}

// Cuts the image at 0 and the one behind it.
void CutBoth(std::int64_t frame, PQPane& first, PQPane& second, std::int64_t at, std::int64_t first_size,
             std::int64_t second_size, std::int64_t PQPane::*size) {
  if (frame < first_size) first.*size = frame;
  if (frame < at) second.PicToShow = PQPane::psNone;
  if (frame < at + second_size) second.*size = frame - at;
}

}  // namespace

void PQCombinePanes::PlanApart(const PQPaneInput& in) {
  Pane1 = Pane2 = {};
  PlaceApart(in.X, in.Width1, in.Width2, Pane1.OutLeft, Pane2.OutLeft, OutWidth);
  PlaceApart(in.Y, in.Height1, in.Height2, Pane1.OutTop, Pane2.OutTop, OutHeight);
  Pane1.PicToShow = PQPane::psImage1, Pane1.Width = in.Width1, Pane1.Height = in.Height1;
  Pane2.PicToShow = PQPane::psImage2, Pane2.Width = in.Width2, Pane2.Height = in.Height2;
}

void PQCombinePanes::CutApart(const PQPaneInput& in) {
  if (FrameWidth < OutWidth) {
    const std::int64_t x = in.X;
    if (x < 0) {
      CutBoth(FrameWidth, Pane1, Pane2, -x, in.Width1, in.Width2, &PQPane::Width);
    } else {
      CutBoth(FrameWidth, Pane2, Pane1, x, in.Width2, in.Width1, &PQPane::Width);
    }
  }
  if (FrameHeight < OutHeight) {
    const std::int64_t y = in.Y;
    if (y < 0) {
      CutBoth(FrameHeight, Pane1, Pane2, -y, in.Height1, in.Height2, &PQPane::Height);
    } else {
      CutBoth(FrameHeight, Pane2, Pane1, y, in.Height2, in.Height1, &PQPane::Height);
    }
  }
}

// --- With overlap ---------------------------------------------------------------------------------------------------

void PQCombinePanes::PlanGrid(const PQPaneInput& in, bool set_frame_size) {
  constexpr auto psNone = PQPane::psNone, psImage1 = PQPane::psImage1, psImage2 = PQPane::psImage2,
                 psBackground = PQPane::psBackground;
  const std::int64_t W1 = in.Width1, H1 = in.Height1, W2 = in.Width2, H2 = in.Height2, X = in.X, Y = in.Y;
  for (auto& row : Panes) {
    for (PQPane& pane : row) pane = {};
  }
  PQPane &LT = Panes[0][0], &T = Panes[0][1], &RT = Panes[0][2];
  PQPane &L = Panes[1][0], &C = Panes[1][1], &R = Panes[1][2];
  PQPane &LB = Panes[2][0], &B = Panes[2][1], &RB = Panes[2][2];

  C.PicToShow = PQPane::psImageBoth;
  C.Width = std::min(X + W1, W2);
  C.Height = std::min(Y + H1, H2);
  if (X < 0) {
    C.Image1Left = -X;
  } else {
    C.Image2Left = X, C.Width -= X;
  }
  if (Y < 0) {
    C.Image1Top = -Y;
  } else {
    C.Image2Top = Y, C.Height -= Y;
  }
  const std::int64_t right1 = C.Image1Left + C.Width, bottom1 = C.Image1Top + C.Height;
  const std::int64_t right2 = C.Image2Left + C.Width, bottom2 = C.Image2Top + C.Height;
  const bool columns = in.ExtendHorizontal || !set_frame_size;
  const bool rows = in.ExtendVertical || !set_frame_size;

  if (columns) {
    if (C.Image2Left < 1 && C.Image1Left > 0) {
      L.PicToShow = psImage1, L.Image1Top = C.Image1Top, L.Width = C.Image1Left, L.Height = C.Height;
      if (rows) {
        LT.PicToShow = C.Image1Top >= 1 ? psImage1 : psBackground;
        LB.PicToShow = bottom1 < H1 ? psImage1 : psBackground;
        LB.Image1Top = bottom1;
      }
    } else if (C.Image2Left >= 1) {
      L.PicToShow = psImage2, L.Image2Top = C.Image2Top, L.Width = C.Image2Left, L.Height = C.Height;
      if (rows) {
        LT.PicToShow = C.Image2Top >= 1 ? psImage2 : psBackground;
        LB.PicToShow = bottom2 < H2 ? psImage2 : psBackground;
        LB.Image2Top = bottom2;
      }
    }
    if (right2 < W2) {
      R.PicToShow = psImage2, R.Image2Left = right2, R.Image2Top = C.Image2Top;
      R.Width = W2 - right2, R.Height = C.Height;
      if (in.ExtendVertical) {  // and not `rows`: otherwise these corners show background
        RT.PicToShow = C.Image2Top >= 1 ? psImage2 : psBackground;
        RT.Image2Left = right2;
        RB.PicToShow = bottom2 < H2 ? psImage2 : psBackground;
        RB.Image2Left = right2, RB.Image2Top = bottom2;
      }
    } else if (right1 < W1) {
      R.PicToShow = psImage1, R.Image1Left = right1, R.Image1Top = C.Image1Top;
      R.Width = W1 - right1, R.Height = C.Height;
      if (rows) {
        RT.PicToShow = C.Image1Top >= 1 ? psImage1 : psBackground;
        RT.Image1Left = right1;
        RB.PicToShow = H2 < Y + H1 ? psImage1 : psBackground;
        RB.Image1Left = right1, RB.Image1Top = bottom1;
      }
    }
    R.OutLeft = L.Width + C.Width;
    T.OutLeft = B.OutLeft = L.Width;
  }

  if (rows) {
    if (C.Image2Top >= 1) {
      T.PicToShow = psImage2, T.Image2Left = C.Image2Left, T.Height = C.Image2Top, T.Width = C.Width;
    } else if (C.Image1Top >= 1) {
      T.PicToShow = psImage1, T.Image1Left = C.Image1Left, T.Height = C.Image1Top, T.Width = C.Width;
    }
    if (bottom2 < H2) {
      B.PicToShow = psImage2, B.Image2Top = bottom2, B.Image2Left = C.Image2Left;
      B.Height = H2 - bottom2, B.Width = C.Width;
    } else if (H2 < Y + H1) {
      B.PicToShow = psImage1, B.Image1Top = bottom1, B.Image1Left = C.Image1Left;
      B.Height = H1 - bottom1, B.Width = C.Width;
    }
    B.OutTop = T.Height + C.Height;
    L.OutTop = R.OutTop = T.Height;
  }

  C.OutLeft = L.Width, C.OutTop = T.Height;
  LT.Width = LB.Width = L.Width, RT.Width = RB.Width = R.Width;
  LT.Height = RT.Height = T.Height, LB.Height = RB.Height = B.Height;
  RT.OutLeft = RB.OutLeft = R.OutLeft, LB.OutTop = RB.OutTop = B.OutTop;
  OutWidth = L.Width + C.Width + R.Width;
  OutHeight = T.Height + C.Height + B.Height;
  for (PQPane* corner : {&LT, &RT, &LB, &RB}) {
    if (corner->PicToShow == psNone) corner->PicToShow = psBackground;
  }

  if (!set_frame_size) return;
  if (in.Custom) {
    FrameWidth = in.CustomWidth, FrameHeight = in.CustomHeight;
  } else {
    FrameWidth = in.ExtendHorizontal ? OutWidth : C.Width;
    FrameHeight = in.ExtendVertical ? OutHeight : C.Height;
  }
}

namespace {

// Takes `excess` pixels from the far end of three columns or rows; each is the three panes of it.
void CutStrips(std::int64_t frame, std::int64_t excess, PQPane* const (&near)[3], PQPane* const (&middle)[3],
               PQPane* const (&far)[3], std::int64_t PQPane::*size) {
  const std::int64_t near_size = near[1]->*size, middle_size = middle[1]->*size, far_size = far[1]->*size;
  const auto shrink = [size](PQPane* const(&strip)[3], std::int64_t by) {
    for (PQPane* pane : strip) pane->*size -= by;
  };
  const auto hide = [](PQPane* const(&strip)[3]) {
    for (PQPane* pane : strip) pane->PicToShow = PQPane::psNone;
  };
  if (frame > near_size + middle_size) {
    shrink(far, excess);
  } else if (frame > near_size) {
    shrink(middle, excess - far_size);
    hide(far);
  } else {
    shrink(near, excess - middle_size - far_size);
    hide(middle), hide(far);
  }
}

}  // namespace

void PQCombinePanes::CutGrid() {
  auto& p = Panes;
  if (FrameWidth < OutWidth) {
    CutStrips(FrameWidth, OutWidth - FrameWidth, {&p[0][0], &p[1][0], &p[2][0]}, {&p[0][1], &p[1][1], &p[2][1]},
              {&p[0][2], &p[1][2], &p[2][2]}, &PQPane::Width);
  }
  if (FrameHeight < OutHeight) {
    CutStrips(FrameHeight, OutHeight - FrameHeight, {&p[0][0], &p[0][1], &p[0][2]}, {&p[1][0], &p[1][1], &p[1][2]},
              {&p[2][0], &p[2][1], &p[2][2]}, &PQPane::Height);
  }
}

}  // namespace pantiq
