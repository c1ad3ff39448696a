// The mask editor as a window, driven by keys and clicks without a screen.
#include <gtest/gtest.h>

#include <QApplication>
#include <QDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QStatusBar>
#include <QTableView>
#include <QTest>
#include <QThread>
#include <QTimer>
#include <clocale>
#include <cstdlib>
#include <functional>
#include <thread>
#include <vector>

#include "pantiq/design/PQRegister.h"
#include "pantiq/filters/PQMorphFilter.h"
#include "pantiq/host/PQReport.h"

namespace pantiq {
namespace {

std::string MaskOf(TPQMorphFilter& filter) {
  std::string text;
  const TPQMorphShape& shape = filter.GetMorphShape();
  for (std::uint32_t y = 0; y < shape.GetHeight(); ++y) {
    for (std::uint32_t x = 0; x < shape.GetWidth(); ++x) text += shape.GetItem(x, y) ? '1' : '0';
    text += ' ';
  }
  return text;
}

// What a person does, in the window or, one loop of events deeper, in a message that it has opened.
struct Step {
  template <class Act>
  Step(Act what, int level = 1) : act(std::move(what)), loops(level) {}
  std::function<void()> act;
  int loops;
};
std::vector<Step> g_steps;

// The next step of the person, when all that the last one caused has happened.
void NextStep() {
  if (g_steps.empty()) return;
  if (QApplication::focusWidget() == nullptr || QThread::currentThread()->loopLevel() != g_steps.front().loops) {
    QTimer::singleShot(1, NextStep);
    return;
  }
  const Step step = std::move(g_steps.front());
  g_steps.erase(g_steps.begin());
  QTimer::singleShot(0, NextStep);  // before the step, which may wait for a window that it opens
  step.act();
}

// Runs in every application that is made, and the module makes one for each window.
void BeginSteps() { QTimer::singleShot(0, NextStep); }

template <class Widget = QWidget>
Widget* Named(const char* name) {
  for (QWidget* window : QApplication::topLevelWidgets()) {
    if (window->objectName() == name) return qobject_cast<Widget*>(window);
    if (auto* found = window->findChild<Widget*>(name)) return found;
  }
  ADD_FAILURE() << "there is no " << name;
  std::abort();
}

std::string Focus() { return QApplication::focusWidget()->objectName().toStdString(); }
std::string Status() { return Named<QStatusBar>("StatusBar")->currentMessage().toStdString(); }
std::string TextOf(const char* edit) { return Named<QLineEdit>(edit)->text().toStdString(); }

Step Press(int key, Qt::KeyboardModifiers modifiers = {}) {
  return [=] { QTest::keyClick(QApplication::focusWidget(), static_cast<Qt::Key>(key), modifiers); };
}
Step Type(const char* text) {
  return [=] { QTest::keyClicks(QApplication::focusWidget(), QString::fromUtf8(text)); };
}
Step Click(const char* button) {
  return [=] { QTest::mouseClick(Named(button), Qt::LeftButton); };
}
// A message is there; Return closes it.
Step Message(const char* text) {
  const auto close = [=] {
    auto* const box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
    ASSERT_NE(box, nullptr) << text;
    EXPECT_EQ(box->text().toStdString(), text);
    QTest::keyClick(box, Qt::Key_Return);
  };
  return {close, 2};
}

struct MorphShapeDialog : testing::Test {
  static void SetUpTestSuite() {
    setenv("QT_QPA_PLATFORM", "offscreen", 1);
    RegisterAll();
    qAddPreRoutine(BeginSteps);
  }
  MorphShapeDialog() {
    filter.GetMaskSize().Set({4, 3});
    filter.GetMorphShape().SetItem(1, 0, true);
    SetReportListener([this](const PQReportEntry& entry) { told += entry.text + ": " + entry.detail; });
  }
  ~MorphShapeDialog() override { SetReportListener({}); }
  bool Execute(std::vector<Step> steps) {
    g_steps = std::move(steps);
    const bool accepted = filter.GetMorphShape().ShowDialog();
    EXPECT_EQ(g_steps.size(), 0U) << "the window closed early";
    EXPECT_EQ(QCoreApplication::instance(), nullptr);
    return accepted;
  }
  TPQMorphFilter filter;
  std::string told;
};

TEST_F(MorphShapeDialog, HasItsLayout) {
  const std::string locale = std::setlocale(LC_ALL, nullptr);
  EXPECT_FALSE(Execute({[] {
                          const auto* window = Named<QDialog>("PQMorphShapeForm");
                          EXPECT_TRUE(window->isModal());
                          EXPECT_EQ(window->windowTitle(), "PQMorphShapeForm");
                          EXPECT_EQ(window->geometry(), QRect(100, 100, 324, 279));
                          const auto at = [&](const char* name) {
                            const QWidget* widget = Named(name);
                            return QRect(widget->mapTo(window, QPoint()), widget->size());
                          };
                          EXPECT_EQ(at("StringGrid"), QRect(0, 0, 229, 260));
                          EXPECT_EQ(at("StatusBar"), QRect(0, 260, 324, 19));
                          EXPECT_EQ(at("WidthEdit").topLeft(), QPoint(239, 19));
                          EXPECT_EQ(at("HeightEdit").topLeft(), QPoint(239, 59));
                          EXPECT_EQ(at("WidthEdit").width(), 73);
                          EXPECT_EQ(at("OKButton"), QRect(239, 192, 75, 25));
                          EXPECT_EQ(at("CancelButton"), QRect(239, 224, 75, 25));
                          auto* grid = Named<QTableView>("StringGrid");
                          EXPECT_EQ(grid->visualRect(grid->model()->index(1, 2)), QRect(38, 19, 18, 18));
                          EXPECT_EQ(Focus(), "StringGrid");
                          EXPECT_EQ(Status(), "0:0");
                          EXPECT_EQ(TextOf("WidthEdit"), "4");
                          EXPECT_EQ(TextOf("HeightEdit"), "3");
                          EXPECT_TRUE(Named<QPushButton>("OKButton")->isDefault());
                        },
                        [] {  // the corners of three cells: current, 1 and 0; without the focus the first is a 0, too
                          auto* grid = Named<QTableView>("StringGrid");
                          const auto corner = [&](int column) {
                            const QPoint place = grid->visualRect(grid->model()->index(0, column)).topLeft();
                            return grid->viewport()->grab().toImage().pixelColor(place);
                          };
                          EXPECT_EQ(corner(0), grid->palette().color(QPalette::Active, QPalette::Highlight));
                          EXPECT_EQ(corner(1), QColor(Qt::black));
                          EXPECT_EQ(corner(2), QColor(Qt::white));
                          Named("WidthEdit")->setFocus();
                          EXPECT_EQ(corner(0), QColor(Qt::white));
                        },
                        Click("CancelButton")}));
  EXPECT_EQ(std::setlocale(LC_ALL, nullptr), locale);
  EXPECT_EQ(told, "");
}

TEST_F(MorphShapeDialog, KeysInTheGrid) {
  EXPECT_TRUE(Execute({Press(Qt::Key_Space), Press(Qt::Key_Right), Press(Qt::Key_Space), Press(Qt::Key_Down),
                       [] { EXPECT_EQ(Status(), "1:1"); }, Type("12x"), [] { EXPECT_EQ(Status(), "1:1"); },
                       Press(Qt::Key_End), [] { EXPECT_EQ(Status(), "3:1"); }, Type("1"), Type("0"),
                       [] {
                         auto* grid = Named<QTableView>("StringGrid");
                         QTest::mouseClick(grid->viewport(), Qt::LeftButton, {},
                                           grid->visualRect(grid->model()->index(2, 3)).center());
                         EXPECT_EQ(Status(), "3:2");
                       },
                       Type(" "), Press(Qt::Key_Return)}));
  EXPECT_EQ(MaskOf(filter), "1000 0100 0001 ");
}

TEST_F(MorphShapeDialog, EscapeTheButtonAndTheWindowsOwnButtonCancel) {
  EXPECT_FALSE(Execute({Type("1"), Press(Qt::Key_Tab), Type("9"), Press(Qt::Key_Escape)}));
  EXPECT_FALSE(Execute({Type("1"), Press(Qt::Key_Tab), Press(Qt::Key_Tab), Press(Qt::Key_Tab), Press(Qt::Key_Tab),
                        [] { EXPECT_EQ(Focus(), "CancelButton"); }, Press(Qt::Key_Return)}));
  EXPECT_FALSE(Execute({Type("1"), [] { Named<QDialog>("PQMorphShapeForm")->close(); }}));
  EXPECT_EQ(MaskOf(filter), "0100 0000 0000 ");
}

TEST_F(MorphShapeDialog, AnotherSizeByTheEdits) {
  EXPECT_TRUE(Execute({Press(Qt::Key_Tab),
                       [] { EXPECT_EQ(Focus(), "WidthEdit"); },
                       [] { EXPECT_FALSE(Named<QPushButton>("OKButton")->isDefault()); },
                       Type("x 5."),
                       [] { EXPECT_EQ(TextOf("WidthEdit"), "5"); },  // Tab had selected the text
                       [] { EXPECT_EQ(Named<QTableView>("StringGrid")->model()->columnCount(), 4); },
                       Press(Qt::Key_Return),
                       [] {
                         EXPECT_EQ(Named<QTableView>("StringGrid")->model()->columnCount(), 5);
                         EXPECT_EQ(Focus(), "WidthEdit");
                         EXPECT_EQ(Named<QLineEdit>("WidthEdit")->selectedText(), "5");
                       },
                       Type("2"),
                       Press(Qt::Key_Tab),
                       [] { EXPECT_EQ(Focus(), "HeightEdit"); },
                       [] { EXPECT_EQ(Named<QTableView>("StringGrid")->model()->columnCount(), 2); },
                       Type("2"),
                       Press(Qt::Key_Tab),
                       [] {
                         EXPECT_EQ(Focus(), "OKButton");
                         EXPECT_TRUE(Named<QPushButton>("OKButton")->isDefault());
                       },
                       Press(Qt::Key_Tab),
                       [] { EXPECT_EQ(Focus(), "CancelButton"); },
                       Press(Qt::Key_Tab),
                       [] { EXPECT_EQ(Focus(), "StringGrid"); },
                       Press(Qt::Key_Down),
                       Type("1"),
                       Press(Qt::Key_Enter)}));
  EXPECT_EQ(MaskOf(filter), "01 10 ");
}

TEST_F(MorphShapeDialog, TheSecondReturnInAnEditIsOk) {
  EXPECT_TRUE(Execute({Press(Qt::Key_Tab), Type("2"), Press(Qt::Key_Return), [] { EXPECT_EQ(Focus(), "WidthEdit"); },
                       [] { EXPECT_TRUE(Named<QPushButton>("OKButton")->isDefault()); }, Press(Qt::Key_Return)}));
  EXPECT_EQ(MaskOf(filter), "01 00 00 ");
}

TEST_F(MorphShapeDialog, WhatIsNoSizeCannotLeaveItsEdit) {
  const Step stays = [] { EXPECT_EQ(Focus(), "WidthEdit"); };
  const Step paste = [] { Named<QLineEdit>("WidthEdit")->setText("a b"); };
  EXPECT_TRUE(Execute({Press(Qt::Key_Tab),
                       Press(Qt::Key_Backspace),
                       Press(Qt::Key_Tab),
                       Message("Invalid value : "),
                       stays,
                       paste,
                       Press(Qt::Key_Return),
                       Message("Invalid value : a b"),
                       stays,
                       [] { EXPECT_EQ(Named<QLineEdit>("WidthEdit")->selectedText(), "a b"); },
                       [] { Named("StringGrid")->setFocus(); },
                       Message("Invalid value : a b"),
                       stays,
                       [] { Named<QPushButton>("OKButton")->click(); },
                       Message("Invalid value : a b"),
                       stays,
                       Press(Qt::Key_A, Qt::ControlModifier),
                       Type("3"),
                       Press(Qt::Key_Backtab),
                       [] { EXPECT_EQ(Focus(), "StringGrid"); },
                       Press(Qt::Key_Return)}));
  EXPECT_EQ(MaskOf(filter), "010 000 000 ");
}

TEST_F(MorphShapeDialog, AnApplicationThatIsThereIsUsed) {
  int count = 1;
  char name[] = "test";
  char* words[] = {name, nullptr};
  {
    g_steps = {Type("1"), Press(Qt::Key_Return)};
    const QApplication application(count, words);
    EXPECT_TRUE(filter.GetMorphShape().ShowDialog());
    EXPECT_EQ(MaskOf(filter), "1100 0000 0000 ");
    std::thread([&] { EXPECT_FALSE(filter.GetMorphShape().ShowDialog()); }).join();
    EXPECT_NE(told.find("thread of the application"), std::string::npos) << told;
  }
  told.clear();
  const QCoreApplication application(count, words);
  EXPECT_FALSE(filter.GetMorphShape().ShowDialog());
  EXPECT_NE(told.find("no windows"), std::string::npos) << told;
}

TEST_F(MorphShapeDialog, ADisplayThatIsNotThereIsToldOf) {
  unsetenv("DISPLAY");
  unsetenv("WAYLAND_DISPLAY");
  unsetenv("QT_QPA_PLATFORM");
  EXPECT_FALSE(filter.GetMorphShape().ShowDialog());
  EXPECT_EQ(told, "the mask cannot be edited: there is no display: set DISPLAY or WAYLAND_DISPLAY");
  for (const char* platform : {"xcb", "nosuch"}) {
    setenv("QT_QPA_PLATFORM", platform, 1);
    told.clear();
    EXPECT_FALSE(filter.GetMorphShape().ShowDialog());
    EXPECT_EQ(told.rfind("the mask cannot be edited: the display cannot be used: ", 0), 0U) << told;
  }
  setenv("QT_QPA_PLATFORM", "offscreen", 1);
}

}  // namespace
}  // namespace pantiq
