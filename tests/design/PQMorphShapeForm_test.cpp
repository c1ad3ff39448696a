// The mask editor without a window: what it shows, and what the controls' events do.
#include <gtest/gtest.h>

#include "pantiq/design/PQMorphShapeFormUnit.h"
#include "pantiq/design/PQRegister.h"
#include "pantiq/host/PQDialog.h"
#include "pantiq/host/PQReport.h"
#include "pantiq/platform/PQModules.h"

namespace pantiq {
namespace {

// Rows of the custom mask, each as text.
std::string MaskOf(TPQMorphFilter& filter) {
  std::string text;
  const TPQMorphShape& shape = filter.GetMorphShape();
  for (std::uint32_t y = 0; y < shape.GetHeight(); ++y) {
    for (std::uint32_t x = 0; x < shape.GetWidth(); ++x) text += shape.GetItem(x, y) ? '1' : '0';
    text += ' ';
  }
  return text;
}

std::string GridOf(const IPQMorphShapeForm& form) {
  std::string text;
  for (int row = 0; row < form.GetRowCount(); ++row) {
    for (int column = 0; column < form.GetColCount(); ++column) text += form.GetCell(column, row);
    text += ' ';
  }
  return text;
}

struct MorphShapeForm : testing::Test {
  MorphShapeForm() {
    filter.GetMaskSize().Set({4, 2});
    filter.GetMorphShape().SetItem(1, 0, true);
    filter.GetMorphShape().SetItem(3, 1, true);
    SetReportListener([this](const PQReportEntry& entry) { told += entry.text + ": " + entry.detail + "\n"; });
  }
  ~MorphShapeForm() override { SetReportListener({}); }

  bool Execute(const std::function<void(IPQMorphShapeForm&)>& person, PQModalResult end = kModalOk) {
    TPQMorphShapeForm form([&](IPQMorphShapeForm& shown, PQPlatformResult&) {
      person(shown);
      return end;
    });
    return form.Execute(filter);
  }

  TPQMorphFilter filter;
  std::string told;
};

TEST_F(MorphShapeForm, ShowsTheCustomMaskAndItsSize) {
  filter.GetMorphShape().SetShapeType(stCross);  // another one is in use
  bool shown = false;
  EXPECT_FALSE(Execute(
      [&](IPQMorphShapeForm& form) {
        shown = true;
        EXPECT_EQ(GridOf(form), "0100 0001 ");
        EXPECT_EQ(form.GetEdit(PQSizeEdit::Width), "4");
        EXPECT_EQ(form.GetEdit(PQSizeEdit::Height), "2");
        EXPECT_EQ(form.GetStatus(), "0:0");
        EXPECT_TRUE(form.IsOkDefault());
        EXPECT_EQ(form.StringGridDrawCell(0, 0, false), PQCellPaint::BlackOnWhite);
        EXPECT_EQ(form.StringGridDrawCell(1, 0, false), PQCellPaint::WhiteOnBlack);
        EXPECT_EQ(form.StringGridDrawCell(1, 0, true), PQCellPaint::Highlight);
        EXPECT_EQ(form.GetCell(4, 0), "");
      },
      kModalCancel));
  EXPECT_TRUE(shown);
  EXPECT_EQ(told, "");
}

TEST_F(MorphShapeForm, KeysInTheGrid) {
  EXPECT_TRUE(Execute([](IPQMorphShapeForm& form) {
    for (const char32_t key : {U'2', U'x', char32_t{13}, char32_t{8}, char32_t{0x661}}) form.StringGridKeyPress(key);
    EXPECT_EQ(GridOf(form), "0100 0001 ");
    form.StringGridKeyPress(U' ');
    EXPECT_TRUE(form.StringGridSelectCell(1, 0));
    EXPECT_EQ(form.GetStatus(), "1:0");
    form.StringGridKeyPress(U' ');
    form.StringGridSelectCell(2, 1);
    form.StringGridKeyPress(U'1');
    form.StringGridKeyPress(U'1');
    form.StringGridSelectCell(3, 1);
    form.StringGridKeyPress(U'0');
    for (const auto& [column, row] : {std::pair(4, 0), {0, 2}, {-1, 0}, {0, -1}}) {
      EXPECT_FALSE(form.StringGridSelectCell(column, row));
    }
    EXPECT_EQ(form.GetStatus(), "3:1");
    EXPECT_EQ(GridOf(form), "1000 0010 ");
  }));
  EXPECT_EQ(MaskOf(filter), "1000 0010 ");
  EXPECT_EQ(filter.GetMorphShape().GetShapeType(), stRect);
}

TEST_F(MorphShapeForm, CancelChangesNothing) {
  EXPECT_FALSE(Execute(
      [](IPQMorphShapeForm& form) {
        form.StringGridKeyPress(U'1');
        form.SetEdit(PQSizeEdit::Width, "9");
        EXPECT_EQ(form.AnyEditExit(PQSizeEdit::Width), "");
      },
      kModalCancel));
  EXPECT_EQ(MaskOf(filter), "0100 0001 ");
  EXPECT_EQ(filter.GetMaskSize().GetWidth(), 4);
}

TEST_F(MorphShapeForm, AnotherSize) {
  filter.GetMorphShape().SetShapeType(stCustom);
  EXPECT_TRUE(Execute([](IPQMorphShapeForm& form) {
    form.StringGridSelectCell(3, 1);
    form.AnyEditEnter(PQSizeEdit::Width);
    EXPECT_FALSE(form.IsOkDefault());
    form.SetEdit(PQSizeEdit::Width, "5");
    EXPECT_EQ(GridOf(form), "0100 0001 ");  // until the edit is left
    EXPECT_EQ(form.AnyEditExit(PQSizeEdit::Width), "");
    EXPECT_TRUE(form.IsOkDefault());
    EXPECT_EQ(GridOf(form), "01000 00010 ");
    EXPECT_EQ(form.GetStatus(), "3:1");
    std::string message = "?";
    form.SetEdit(PQSizeEdit::Width, "2");
    EXPECT_EQ(form.AnyEditKeyPress(PQSizeEdit::Width, 13, message), 0U);  // as leaving
    EXPECT_EQ(message, "");
    EXPECT_EQ(GridOf(form), "01 00 ");
    EXPECT_EQ(form.GetStatus(), "1:1");  // the cell that was current is gone
    form.SetEdit(PQSizeEdit::Width, "3");
    form.SetEdit(PQSizeEdit::Height, "3");  // never left
  }));
  EXPECT_EQ(MaskOf(filter), "010 000 000 ");
  EXPECT_EQ(*filter.GetMorphShape().InUse(), TPQMorphArray({0, 1, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(filter.GetMaskSize().GetHeight(), 3);
}

TEST_F(MorphShapeForm, KeysInAnEdit) {
  Execute([](IPQMorphShapeForm& form) {
    std::string message;
    for (const char32_t key : {U'0', U'2', U'9', char32_t{8}, char32_t{22}, char32_t{27}}) {
      EXPECT_EQ(form.AnyEditKeyPress(PQSizeEdit::Width, key, message), key);
    }
    for (const char32_t key : {U' ', U'x', U'-', U'/', U':', char32_t{0xe9}, char32_t{0x663}, char32_t{0x1f600}}) {
      EXPECT_EQ(form.AnyEditKeyPress(PQSizeEdit::Width, key, message), 0U);
    }
    EXPECT_EQ(message, "");
  });
}

TEST_F(MorphShapeForm, WhatIsNoSizeCannotLeaveItsEdit) {
  for (const char* text : {"", "x", "3x", " 3", "3.5", "$3", "+-3", "99999999999", "65536", "4194305"}) {
    SCOPED_TRACE(text);
    filter.GetMaskSize().Set({4, 2});
    Execute([&](IPQMorphShapeForm& form) {
      form.SetEdit(PQSizeEdit::Height, "4");
      form.AnyEditEnter(PQSizeEdit::Width);
      form.SetEdit(PQSizeEdit::Width, text);
      EXPECT_EQ(form.AnyEditExit(PQSizeEdit::Width), std::string("Invalid value : ") + text);
      EXPECT_FALSE(form.IsOkDefault());
      EXPECT_EQ(GridOf(form), "0100 0001 ");
      std::string message;
      EXPECT_EQ(form.AnyEditKeyPress(PQSizeEdit::Width, 13, message), 0U);
      EXPECT_EQ(message, std::string("Invalid value : ") + text);
      form.SetEdit(PQSizeEdit::Width, "4");
      EXPECT_EQ(form.AnyEditExit(PQSizeEdit::Width), "");
      EXPECT_EQ(form.GetRowCount(), 4);
    });
  }
  // Each side alone can be had, both together would be more than a mask holds.
  Execute(
      [](IPQMorphShapeForm& form) {
        form.SetEdit(PQSizeEdit::Height, "4096");
        form.SetEdit(PQSizeEdit::Width, "4097");
        EXPECT_EQ(form.AnyEditExit(PQSizeEdit::Width), "Invalid value : 4097");
        form.SetEdit(PQSizeEdit::Width, "4096");
        EXPECT_EQ(form.AnyEditExit(PQSizeEdit::Width), "");
        EXPECT_EQ(form.GetCell(4095, 4095), "0");
      },
      kModalCancel);
  // A toolkit that left with OK all the same.
  told.clear();
  EXPECT_FALSE(Execute([](IPQMorphShapeForm& form) { form.SetEdit(PQSizeEdit::Width, "x"); }));
  EXPECT_EQ(told, "the mask cannot be edited: Invalid value : x\n");
  EXPECT_EQ(filter.GetMaskSize().GetHeight(), 4);
}

TEST_F(MorphShapeForm, SizesBelowOne) {
  filter.GetMaskSize().Set({0, 0});
  EXPECT_TRUE(Execute([](IPQMorphShapeForm& form) {
    EXPECT_EQ(form.GetEdit(PQSizeEdit::Width), "0");
    EXPECT_EQ(GridOf(form), "0 ");
    form.StringGridKeyPress(U'1');
    form.SetEdit(PQSizeEdit::Height, "-7");
    EXPECT_EQ(form.AnyEditExit(PQSizeEdit::Height), "");
    EXPECT_EQ(GridOf(form), "1 ");
    form.SetEdit(PQSizeEdit::Width, "+2");
  }));
  EXPECT_EQ(MaskOf(filter), "10 ");
}

TEST_F(MorphShapeForm, AMaskTooLargeIsNotEdited) {
  filter.GetMaskSize().Set({4097, 4096});
  EXPECT_FALSE(Execute([](IPQMorphShapeForm&) { ADD_FAILURE() << "shown"; }));
  EXPECT_EQ(told, "the mask cannot be edited: a mask of 4097 by 4096 cells; at most 16777216 cells were expected\n");
}

TEST_F(MorphShapeForm, WithoutAToolkitTheAnswerIsFalse) {
  TPQMorphShapeForm none{TPQMorphShapeForm::Toolkit()};
  EXPECT_FALSE(none.Execute(filter));
  EXPECT_FALSE(Execute([](IPQMorphShapeForm&) {}, kModalNone));
  EXPECT_EQ(MaskOf(filter), "0100 0001 ");
}

// A module that shows nothing and presses keys itself.
struct ScriptedModule final : PQDialogModule {
  PQModalResult ShowMorphShapeForm(IPQMorphShapeForm& form, PQPlatformResult& result) override {
    ++shown;
    form.StringGridKeyPress(U'1');
    if (end == kModalNone) result = {kPlatformMissing, "there is no display"};
    return end;
  }
  int shown = 0;
  PQModalResult end = kModalOk;
};

TEST_F(MorphShapeForm, ShowDialogUsesTheModule) {
  RegisterAll();
  ScriptedModule module;
  SetDialogModule(&module);
  EXPECT_TRUE(filter.GetMorphShape().ShowDialog());
  EXPECT_EQ(MaskOf(filter), "1100 0001 ");
  module.end = kModalCancel;
  EXPECT_FALSE(filter.GetMorphShape().ShowDialog());
  EXPECT_EQ(told, "");
  module.end = kModalNone;
  EXPECT_FALSE(filter.GetMorphShape().ShowDialog());
  EXPECT_EQ(told, "the mask cannot be edited: there is no display\n");
  EXPECT_EQ(module.shown, 3);
  SetDialogModule(nullptr);

  // A program's own dialog goes before.
  SetDialog("PQMorphShapeForm", [&](TComponent& component) { return &component == &filter; });
  RegisterAll();
  EXPECT_TRUE(filter.GetMorphShape().ShowDialog());
  SetDialog("PQMorphShapeForm", {});
  told.clear();
  EXPECT_FALSE(filter.GetMorphShape().ShowDialog());
  EXPECT_EQ(told, "there is no dialog PQMorphShapeForm: set the properties instead\n");
}

}  // namespace
}  // namespace pantiq
