#include "pantiq/design/qt/PQQtMorphShapeForm.h"

#include <QAbstractTableModel>
#include <QDialog>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPainter>
#include <QPushButton>
#include <QStatusBar>
#include <QStyledItemDelegate>
#include <QTableView>
#include <QVBoxLayout>
#include <functional>
#include <utility>

namespace pantiq::qt {
namespace {

using Layout = PQMorphShapeLayout;

// The character of a key, or 0 for a key without one or with a command.
char32_t CharacterOf(const QKeyEvent& event) {
  if (event.key() == Qt::Key_Delete) return 0;
  if ((event.modifiers() & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier)) != 0) return 0;
  if (event.key() == Qt::Key_Return || event.key() == Qt::Key_Enter) return 13;
  const auto characters = event.text().toUcs4();
  return characters.isEmpty() ? 0 : static_cast<char32_t>(characters.front());
}

// The cells, read from the form as they are drawn.
class Cells final : public QAbstractTableModel {
 public:
  explicit Cells(const IPQMorphShapeForm& form, QObject* parent) : QAbstractTableModel(parent), form_(form) {
    columns_ = form_.GetColCount(), rows_ = form_.GetRowCount();
  }
  int columnCount(const QModelIndex& parent) const override { return parent.isValid() ? 0 : columns_; }
  int rowCount(const QModelIndex& parent) const override { return parent.isValid() ? 0 : rows_; }
  QVariant data(const QModelIndex& index, int role) const override {
    return role == Qt::DisplayRole ? QString::fromStdString(form_.GetCell(index.column(), index.row())) : QVariant();
  }
  // True if the form has another number of cells now.
  bool Resize() {
    if (columns_ == form_.GetColCount() && rows_ == form_.GetRowCount()) return false;
    beginResetModel();
    columns_ = form_.GetColCount(), rows_ = form_.GetRowCount();
    endResetModel();
    return true;
  }

 private:
  const IPQMorphShapeForm& form_;
  int columns_, rows_;
};

class CellPainter final : public QStyledItemDelegate {
 public:
  CellPainter(const IPQMorphShapeForm& form, QObject* parent) : QStyledItemDelegate(parent), form_(form) {}
  void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override {
    QColor brush = Qt::white, pen = Qt::black;
    switch (form_.StringGridDrawCell(index.column(), index.row(), (option.state & QStyle::State_HasFocus) != 0)) {
      case PQCellPaint::Highlight:
        brush = option.palette.color(QPalette::Active, QPalette::Highlight);
        pen = option.palette.color(QPalette::Active, QPalette::HighlightedText);
        break;
      case PQCellPaint::WhiteOnBlack:
        std::swap(brush, pen);
        break;
      case PQCellPaint::BlackOnWhite:
        break;
    }
    const QString text = QString::fromStdString(form_.GetCell(index.column(), index.row()));
    const QFontMetrics metrics(option.font);
    const QRect& rect = option.rect;
    painter->fillRect(rect, brush);
    painter->setPen(pen);
    painter->setFont(option.font);
    painter->drawText(rect.left() + (rect.width() - metrics.horizontalAdvance(text)) / 2,
                      rect.top() + (rect.height() - metrics.height()) / 2 + metrics.ascent(), text);
  }

 private:
  const IPQMorphShapeForm& form_;
};

class Grid final : public QTableView {
 public:
  Grid(IPQMorphShapeForm& form, QWidget* parent) : QTableView(parent), form_(form), cells_(new Cells(form, this)) {
    setModel(cells_);
    setItemDelegate(new CellPainter(form, this));
    for (QHeaderView* header : {horizontalHeader(), verticalHeader()}) {
      header->hide();
      header->setMinimumSectionSize(1);
      header->setDefaultSectionSize(Layout::kCell + 1);
      header->setSectionResizeMode(QHeaderView::Fixed);
    }
    setEditTriggers(NoEditTriggers);
    setSelectionMode(SingleSelection);
    setTabKeyNavigation(false);
    setCornerButtonEnabled(false);
    ShowCurrent();
  }
  // `changed` is called when a key or another current cell has changed the form.
  void SetChanged(std::function<void()> changed) { changed_ = std::move(changed); }
  void Refresh() {
    if (cells_->Resize()) ShowCurrent();
    viewport()->update();
  }

 protected:
  void keyPressEvent(QKeyEvent* event) override {
    const char32_t key = CharacterOf(*event);
    // A view would search for the character.
    if (key >= 32) {
      form_.StringGridKeyPress(key);
      if (changed_) changed_();
    } else if (key == 13 || event->key() == Qt::Key_Escape) {
      event->ignore();  // for the dialog's buttons
    } else {
      QTableView::keyPressEvent(event);
    }
  }
  void currentChanged(const QModelIndex& current, const QModelIndex& previous) override {
    QTableView::currentChanged(current, previous);
    if (current.isValid()) form_.StringGridSelectCell(current.column(), current.row());
    if (changed_) changed_();
  }

 private:
  void ShowCurrent() { setCurrentIndex(model()->index(form_.GetRow(), form_.GetColumn())); }
  IPQMorphShapeForm& form_;
  std::function<void()> changed_;
  Cells* cells_;
};

// What an edit tells the window.
class EditEvents {
 public:
  virtual void Entered(PQSizeEdit edit) = 0;
  virtual void Left(PQSizeEdit edit) = 0;
  virtual void Message(PQSizeEdit edit, const std::string& text) = 0;
  virtual void Refresh() = 0;

 protected:
  ~EditEvents() = default;
};

class Edit final : public QLineEdit {
 public:
  Edit(IPQMorphShapeForm& form, PQSizeEdit which, EditEvents& events, QWidget* parent)
      : QLineEdit(QString::fromStdString(form.GetEdit(which)), parent), form_(form), which_(which), events_(events) {
    setInputMethodHints(Qt::ImhDigitsOnly);
    connect(this, &QLineEdit::textChanged, this,
            [this](const QString& text) { form_.SetEdit(which_, text.toStdString()); });
  }

 protected:
  void focusInEvent(QFocusEvent* event) override {
    QLineEdit::focusInEvent(event);
    if (OfForm(*event)) events_.Entered(which_);
  }
  void focusOutEvent(QFocusEvent* event) override {
    QLineEdit::focusOutEvent(event);
    if (OfForm(*event)) events_.Left(which_);
  }
  void keyPressEvent(QKeyEvent* event) override {
    const char32_t key = CharacterOf(*event);
    if (key == 0 || event->key() == Qt::Key_Escape || event->key() == Qt::Key_Tab || event->key() == Qt::Key_Backtab) {
      QLineEdit::keyPressEvent(event);
      return;
    }
    if (key == 13 && form_.IsOkDefault()) {  // a second one, after the first has resized the grid
      event->ignore();
      return;
    }
    std::string message;
    if (form_.AnyEditKeyPress(which_, key, message) != 0) {
      QLineEdit::keyPressEvent(event);
      return;
    }
    event->accept();
    if (key != 13) return;
    selectAll();
    if (!message.empty()) {
      events_.Message(which_, message);
    } else {
      events_.Refresh();
    }
  }

 private:
  // Another window or a menu takes no focus from the form's controls.
  static bool OfForm(const QFocusEvent& event) {
    return event.reason() != Qt::ActiveWindowFocusReason && event.reason() != Qt::PopupFocusReason &&
           event.reason() != Qt::MenuBarFocusReason;
  }
  IPQMorphShapeForm& form_;
  const PQSizeEdit which_;
  EditEvents& events_;
};

class Window final : public QDialog, private EditEvents {
 public:
  explicit Window(IPQMorphShapeForm& form) : form_(form) {
    setObjectName(QLatin1String(Layout::kCaption));
    setWindowTitle(QLatin1String(Layout::kCaption));
    QFont font(QStringLiteral("MS Sans Serif"));
    font.setPixelSize(Layout::kFontHeight);
    setFont(font);
    setGeometry(Layout::kLeft, Layout::kTop, Layout::kWidth, Layout::kHeight);

    status_ = new QStatusBar(this);
    grid_ = new Grid(form, this);
    grid_->setObjectName(QStringLiteral("StringGrid"));
    auto* const panel2 = new QWidget(this);
    panel2->setFixedWidth(Layout::kPanelWidth);
    auto* const sizes = new QWidget(panel2);
    auto* const panel1 = new QWidget(panel2);
    panel1->setFixedHeight(Layout::kButtonsHeight);
    status_->setObjectName(QStringLiteral("StatusBar"));
    status_->setFixedHeight(Layout::kStatusHeight);
    status_->setSizeGripEnabled(false);

    AddLabel(sizes, Layout::kWidthLabel, Layout::kWidthLabelTop);
    AddLabel(sizes, Layout::kHeightLabel, Layout::kHeightLabelTop);
    width_ = AddEdit(sizes, PQSizeEdit::Width, "WidthEdit", Layout::kWidthEditTop);
    height_ = AddEdit(sizes, PQSizeEdit::Height, "HeightEdit", Layout::kHeightEditTop);
    ok_ = AddButton(panel1, Layout::kOk, "OKButton", Layout::kOkTop);
    QPushButton* const cancel = AddButton(panel1, Layout::kCancel, "CancelButton", Layout::kCancelTop);
    ok_->setDefault(true);
    connect(ok_, &QPushButton::clicked, this, [this] { Accept(); });
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);

    auto* const right = new QVBoxLayout(panel2);
    auto* const top = new QHBoxLayout;
    auto* const all = new QVBoxLayout(this);
    for (QLayout* layout : std::initializer_list<QLayout*>{right, top, all}) {
      layout->setContentsMargins(0, 0, 0, 0);
      layout->setSpacing(0);
    }
    right->addWidget(sizes, 1);
    right->addWidget(panel1);
    top->addWidget(grid_, 1);
    top->addWidget(panel2);
    all->addLayout(top, 1);
    all->addWidget(status_);
    setTabOrder(grid_, width_);
    setTabOrder(width_, height_);
    setTabOrder(height_, ok_);
    setTabOrder(ok_, cancel);
    grid_->SetChanged([this] { Refresh(); });
    grid_->setFocus();
    Refresh();
  }

  void done(int result) override {
    ending_ = true;  // the focus that a closing window takes away is nobody's leaving
    QDialog::done(result);
  }

 private:
  static void AddLabel(QWidget* panel, const char* text, int top) {
    auto* const label = new QLabel(QLatin1String(text), panel);
    label->move(Layout::kIndent, top);
    label->adjustSize();
  }
  Edit* AddEdit(QWidget* panel, PQSizeEdit which, const char* name, int top) {
    auto* const edit = new Edit(form_, which, *this, panel);
    edit->setObjectName(QLatin1String(name));
    edit->setGeometry(Layout::kIndent, top, Layout::kEditWidth, Layout::kHeightLabelTop - Layout::kWidthEditTop - 6);
    return edit;
  }
  static QPushButton* AddButton(QWidget* panel, const char* text, const char* name, int top) {
    auto* const button = new QPushButton(QLatin1String(text), panel);
    button->setObjectName(QLatin1String(name));
    button->setGeometry(Layout::kIndent, top, Layout::kButtonWidth, Layout::kButtonHeight);
    return button;
  }

  void Refresh() override {
    grid_->Refresh();
    if (ok_->isDefault() != form_.IsOkDefault()) ok_->setDefault(form_.IsOkDefault());
    status_->showMessage(QString::fromStdString(form_.GetStatus()));
  }
  void Entered(PQSizeEdit edit) override {
    form_.AnyEditEnter(edit);
    Refresh();
  }
  void Left(PQSizeEdit edit) override {
    if (ending_ || returning_) return;
    const std::string message = form_.AnyEditExit(edit);
    if (!message.empty()) return Message(edit, message);
    Refresh();
  }
  // The focus is just on its way: the message waits until it has arrived.
  void Message(PQSizeEdit edit, const std::string& text) override {
    returning_ = true;
    QMetaObject::invokeMethod(
        this,
        [this, edit, text] {
          QMessageBox(QMessageBox::NoIcon, windowTitle(), QString::fromStdString(text), QMessageBox::Ok, this).exec();
          activateWindow();  // not every display does that by itself
          (edit == PQSizeEdit::Width ? width_ : height_)->setFocus();
          returning_ = false;
        },
        Qt::QueuedConnection);
  }
  void Accept() {
    for (const PQSizeEdit edit : {PQSizeEdit::Width, PQSizeEdit::Height}) {
      const std::string message = form_.AnyEditExit(edit);
      if (!message.empty()) return Message(edit, message);
    }
    accept();
  }

  IPQMorphShapeForm& form_;
  Grid* grid_ = nullptr;
  QStatusBar* status_ = nullptr;
  Edit* width_ = nullptr;
  Edit* height_ = nullptr;
  QPushButton* ok_ = nullptr;
  bool ending_ = false, returning_ = false;
};

}  // namespace

PQModalResult ShowMorphShapeForm(IPQMorphShapeForm& form) {
  Window window(form);
  return window.exec() == QDialog::Accepted ? kModalOk : kModalCancel;
}

}  // namespace pantiq::qt
