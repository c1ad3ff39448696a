// The form that draws the mask of a morphology filter: a grid of cells, each 0 or 1, and two edits for the mask's size.
//
// The class is the form without a window: what it shows, and what happens when a control tells something. A toolkit
// draws it and hands it the keys (pantiq/platform/PQDialogModule.h); the dialog module does with Qt, the program on a
// terminal.
#pragma once
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "pantiq/filters/PQMorphFilter.h"
#include "pantiq/platform/PQDialogModule.h"

namespace pantiq {

// Threads. One, that of the user interface.
class PQ_EXPORT TPQMorphShapeForm final : public IPQMorphShapeForm {
 public:
  // Shows the form and waits for its end. kModalNone, and the reason in `result`, if it cannot.
  using Toolkit = std::function<PQModalResult(IPQMorphShapeForm& form, PQPlatformResult& result)>;

  // Shown by the dialog module, which is loaded by the first Execute.
  TPQMorphShapeForm();
  explicit TPQMorphShapeForm(Toolkit toolkit);

  // Shows the filter's custom mask and waits. True if the person left with OK: MaskSize and the custom mask are then
  // those of the grid. Otherwise the filter is as it was; if the form could not be shown, a warning is reported.
  bool Execute(TPQMorphFilter& filter);

  // Columns and rows from the edits; new cells are "0", those outside the new size are lost. Empty, or a message: the
  // size stays if an edit holds no integer of 32 bits, or one that no mask can have: more than 65535, or more than 2^24
  // cells in all. Less than one column is one column, and so with rows.
  std::string ResizeGrid();

  int GetColCount() const override { return columns_; }
  int GetRowCount() const override { return rows_; }
  std::string GetCell(int column, int row) const override;
  int GetColumn() const override { return column_; }
  int GetRow() const override { return row_; }
  std::string GetEdit(PQSizeEdit edit) const override { return edits_[static_cast<int>(edit)]; }
  std::string GetStatus() const override { return status_; }
  bool IsOkDefault() const override { return ok_default_; }

  void SetEdit(PQSizeEdit edit, const std::string& text) override { edits_[static_cast<int>(edit)] = text; }
  PQCellPaint StringGridDrawCell(int column, int row, bool focused) const override;
  void StringGridKeyPress(char32_t key) override;
  bool StringGridSelectCell(int column, int row) override;
  void AnyEditEnter(PQSizeEdit edit) override;
  std::string AnyEditExit(PQSizeEdit edit) override;
  char32_t AnyEditKeyPress(PQSizeEdit edit, char32_t key, std::string& message) override;

 private:
  bool Has(int column, int row) const { return column >= 0 && column < columns_ && row >= 0 && row < rows_; }
  std::uint8_t& Cell(int column, int row) {
    return cells_[static_cast<std::size_t>(row) * static_cast<std::size_t>(columns_) +
                  static_cast<std::size_t>(column)];
  }
  void Fill(TPQMorphFilter& filter);
  Toolkit toolkit_;
  int columns_ = 1, rows_ = 1, column_ = 0, row_ = 0;
  std::vector<std::uint8_t> cells_{0};  // row by row; 1 stands for the text "1", 0 for "0"
  std::string edits_[2] = {"1", "1"};
  std::string status_ = "0:0";
  bool ok_default_ = true;
};

namespace PQMorphShapeFormUnit {
// Brings the dialog "PQMorphShapeForm", unless a program has brought its own. Any thread.
PQ_EXPORT void Register();
}  // namespace PQMorphShapeFormUnit

}  // namespace pantiq
