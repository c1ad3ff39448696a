// The face of a dialog module: windows of a toolkit. A module is a shared library with the one function below; it sees
// a form through its interface alone and links nothing of the library.
#pragma once
#include <string>

#include "pantiq/platform/PQPlatform.h"

namespace pantiq {

// How a window ended.
enum PQModalResult : int {
  kModalNone = 0,  // it could not be shown
  kModalOk = 1,
  kModalCancel = 2,
};

enum class PQCellPaint { Highlight, BlackOnWhite, WhiteOnBlack };
enum class PQSizeEdit { Width, Height };

// The form that edits the mask of a morphology filter, as a toolkit sees it: what it shows, and what the controls tell
// it. After each call the toolkit shows what has changed. Columns and rows count from 0.
class PQ_EXPORT IPQMorphShapeForm {
 public:
  virtual ~IPQMorphShapeForm() = default;

  // What is shown. The grid has at least one column and one row; a cell's text is "0" or "1".
  virtual int GetColCount() const = 0;
  virtual int GetRowCount() const = 0;
  virtual std::string GetCell(int column, int row) const = 0;
  virtual int GetColumn() const = 0;  // the current cell
  virtual int GetRow() const = 0;
  virtual std::string GetEdit(PQSizeEdit edit) const = 0;
  virtual std::string GetStatus() const = 0;
  virtual bool IsOkDefault() const = 0;  // whether Return presses the button OK

  // A person changed the text of an edit.
  virtual void SetEdit(PQSizeEdit edit, const std::string& text) = 0;
  // How a cell is drawn. `focused`: it is the current one, and the grid has the focus.
  virtual PQCellPaint StringGridDrawCell(int column, int row, bool focused) const = 0;
  // A key with a character, pressed in the grid.
  virtual void StringGridKeyPress(char32_t key) = 0;
  // Another cell becomes the current one. False, and nothing changed, if there is no such cell.
  virtual bool StringGridSelectCell(int column, int row) = 0;
  virtual void AnyEditEnter(PQSizeEdit edit) = 0;
  // The edit loses the focus. A text, if it must not: to be shown as a message before the edit has the focus again.
  virtual std::string AnyEditExit(PQSizeEdit edit) = 0;
  // A key with a character, pressed in an edit. 0 if it is swallowed. Return (13) acts as leaving, and may give a
  // `message` as AnyEditExit does; the whole text is then selected and the key is 0.
  virtual char32_t AnyEditKeyPress(PQSizeEdit edit, char32_t key, std::string& message) = 0;
};

// Numbers of the form's layout, in pixels.
struct PQMorphShapeLayout {
  static constexpr int kLeft = 100, kTop = 100, kWidth = 324, kHeight = 279;
  static constexpr int kFontHeight = 11;
  static constexpr int kCell = 18;  // without the line between cells
  static constexpr int kPanelWidth = 95, kButtonsHeight = 78, kStatusHeight = 19;
  static constexpr int kIndent = 10, kEditWidth = 73;
  static constexpr int kWidthLabelTop = 6, kWidthEditTop = 19, kHeightLabelTop = 46, kHeightEditTop = 59;
  static constexpr int kButtonWidth = 75, kButtonHeight = 25, kOkTop = 10, kCancelTop = 42;
  static constexpr const char* kCaption = "PQMorphShapeForm";
  static constexpr const char* kWidthLabel = "Width :";
  static constexpr const char* kHeightLabel = "Height :";
  static constexpr const char* kOk = "OK";
  static constexpr const char* kCancel = "Cancel";
};

class PQ_EXPORT PQDialogModule {
 public:
  virtual ~PQDialogModule() = default;
  // Shows the form as a modal window and waits for its end. kModalNone, and the reason in `result`, if there is no
  // display, or if the process has an application of the toolkit on another thread. The thread of the user interface;
  // one at a time.
  virtual PQModalResult ShowMorphShapeForm(IPQMorphShapeForm& form, PQPlatformResult& result) = 0;
};

// Goes up with every change of this header.
inline constexpr int kDialogModuleAbi = 1;
// The module's function: `PQDialogModule* pantiq_dialog_module(int abi)`; null if the numbers differ. The object lives
// as long as the process.
using PQDialogModuleEntry = PQDialogModule* (*)(int abi);
inline constexpr const char* kDialogModuleEntry = "pantiq_dialog_module";

}  // namespace pantiq
