#include "pantiq/design/PQMorphShapeFormUnit.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "pantiq/host/PQDialog.h"
#include "pantiq/host/PQReport.h"
#include "pantiq/platform/PQModules.h"

namespace pantiq {
namespace {

constexpr const char* kName = PQMorphShapeLayout::kCaption;
constexpr int kMostColumns = 65535;             // what MaskSize holds
constexpr std::int64_t kMostCells = 1LL << 24;  // what a mask holds
constexpr char32_t kReturn = 13, kSpace = 32;

bool ToInteger(const std::string& text, std::int32_t& value) {
  const char* begin = text.data();
  const char* const end = begin + text.size();
  if (begin != end && *begin == '+' && (begin + 1 == end || begin[1] != '-')) ++begin;
  const auto [stop, error] = std::from_chars(begin, end, value);
  return error == std::errc() && stop == end;
}

std::string Message(const std::string& text) { return "Invalid value : " + text; }

PQModalResult ShowByModule(IPQMorphShapeForm& form, PQPlatformResult& result) {
  PQDialogModule* const module = LoadDialogModule(result);
  return module != nullptr ? module->ShowMorphShapeForm(form, result) : kModalNone;
}

}  // namespace

TPQMorphShapeForm::TPQMorphShapeForm() : TPQMorphShapeForm(ShowByModule) {}
TPQMorphShapeForm::TPQMorphShapeForm(Toolkit toolkit) : toolkit_(std::move(toolkit)) {}

bool TPQMorphShapeForm::Execute(TPQMorphFilter& filter) {
  PQPlatformResult result;
  const TPQSize::Values size = filter.GetMaskSize().Get();
  if (std::int64_t{size.width} * size.height > kMostCells) {
    result = {kPlatformFormat, "a mask of " + std::to_string(size.width) + " by " + std::to_string(size.height) +
                                   " cells; at most 16777216 cells were expected"};
  } else {
    Fill(filter);
    const PQModalResult modal = toolkit_ ? toolkit_(*this, result) : kModalNone;
    if (modal == kModalCancel) return false;
    if (modal == kModalOk) {
      const std::string message = ResizeGrid();
      if (message.empty()) {
        filter.GetMaskSize().Set({static_cast<std::uint16_t>(columns_), static_cast<std::uint16_t>(rows_)});
        filter.GetMorphShape().SetItems(cells_);
        return true;
      }
      result = {kPlatformFormat, message};
    }
  }
  Report(&filter, PQSeverity::Warning, "the mask cannot be edited", result.code, result.detail);
  return false;
}

void TPQMorphShapeForm::Fill(TPQMorphFilter& filter) {
  const TPQSize::Values size = filter.GetMaskSize().Get();
  columns_ = std::max<int>(size.width, 1);
  rows_ = std::max<int>(size.height, 1);
  edits_[0] = std::to_string(size.width);
  edits_[1] = std::to_string(size.height);
  cells_.assign(static_cast<std::size_t>(columns_) * static_cast<std::size_t>(rows_), 0);
  const TPQMorphShape& shape = filter.GetMorphShape();
  for (int row = 0; row < rows_; ++row) {
    for (int column = 0; column < columns_; ++column) {
      Cell(column, row) = shape.GetItem(static_cast<std::uint32_t>(column), static_cast<std::uint32_t>(row)) ? 1 : 0;
    }
  }
  column_ = row_ = 0;
  status_ = "0:0";
  ok_default_ = true;
}

std::string TPQMorphShapeForm::ResizeGrid() {
  std::int32_t size[2] = {};
  for (int i = 0; i < 2; ++i) {
    if (!ToInteger(edits_[i], size[i]) || size[i] > kMostColumns) return Message(edits_[i]);
    size[i] = std::max(size[i], 1);
  }
  if (std::int64_t{size[0]} * size[1] > kMostCells) return Message(edits_[size[0] < size[1] ? 1 : 0]);
  if (size[0] != columns_ || size[1] != rows_) {
    const auto width = static_cast<std::size_t>(size[0]), height = static_cast<std::size_t>(size[1]);
    std::vector<std::uint8_t> cells(width * height);
    for (int row = 0; row < std::min(rows_, size[1]); ++row) {
      for (int column = 0; column < std::min(columns_, size[0]); ++column) {
        cells[static_cast<std::size_t>(row) * width + static_cast<std::size_t>(column)] = Cell(column, row);
      }
    }
    cells_ = std::move(cells);
    columns_ = size[0], rows_ = size[1];
    if (!Has(column_, row_)) StringGridSelectCell(std::min(column_, columns_ - 1), std::min(row_, rows_ - 1));
  }
  return {};
}

std::string TPQMorphShapeForm::GetCell(int column, int row) const {
  if (!Has(column, row)) return {};
  return const_cast<TPQMorphShapeForm*>(this)->Cell(column, row) != 0 ? "1" : "0";
}

PQCellPaint TPQMorphShapeForm::StringGridDrawCell(int column, int row, bool focused) const {
  if (focused) return PQCellPaint::Highlight;
  return GetCell(column, row) == "0" ? PQCellPaint::BlackOnWhite : PQCellPaint::WhiteOnBlack;
}

void TPQMorphShapeForm::StringGridKeyPress(char32_t key) {
  std::uint8_t& cell = Cell(column_, row_);
  if (key == kSpace) {
    cell ^= 1;
  } else if (key == U'0' || key == U'1') {
    cell = key == U'1' ? 1 : 0;
  }
}

bool TPQMorphShapeForm::StringGridSelectCell(int column, int row) {
  if (!Has(column, row)) return false;
  column_ = column, row_ = row;
  status_ = std::to_string(column) + ":" + std::to_string(row);
  return true;
}

void TPQMorphShapeForm::AnyEditEnter(PQSizeEdit) { ok_default_ = false; }

std::string TPQMorphShapeForm::AnyEditExit(PQSizeEdit edit) {
  const std::string& text = edits_[static_cast<int>(edit)];
  if (std::int32_t value = 0; !ToInteger(text, value) || value > kMostColumns) return Message(text);
  std::string message = ResizeGrid();
  if (message.empty()) ok_default_ = true;
  return message;
}

char32_t TPQMorphShapeForm::AnyEditKeyPress(PQSizeEdit edit, char32_t key, std::string& message) {
  message.clear();
  if (key == kReturn) {
    message = AnyEditExit(edit);
    return 0;
  }
  return key >= 32 && (key < U'0' || key > U'9') ? 0 : key;
}

void PQMorphShapeFormUnit::Register() {
  if (HasDialog(kName)) return;
  SetDialog(kName, [](TComponent& component) {
    auto* const filter = PQCast<TPQMorphFilter>(&component);
    TPQMorphShapeForm form;
    return filter != nullptr && form.Execute(*filter);
  });
}

}  // namespace pantiq
