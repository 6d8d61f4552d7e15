// The field list's view follows the toolkit list row by row: after moves,
// ticks, renames and a reload it shows the rows, ticks and current row the
// person made, and a long name whole.
#include <gtest/gtest.h>

#include <QKeyEvent>
#include <QLineEdit>
#include <QListView>
#include <QScrollBar>
#include <QSignalSpy>
#include <string>
#include <utility>
#include <vector>

#include "../qt_test_support.h"
#include "qtui/qt_ui.h"
#include "wizard/frm_wizard.h"

namespace formwiz::qtui {
namespace {

struct Row {
  std::string name;
  bool ticked;
  bool operator==(const Row&) const = default;
};

std::vector<Row> Shown(const QListView& list) {
  std::vector<Row> rows;
  const QAbstractItemModel& model = *list.model();
  for (int i = 0; i < model.rowCount(); ++i) {
    const QModelIndex index = model.index(i, 0);
    rows.push_back({index.data().toString().toStdString(),
                    index.data(Qt::CheckStateRole) == Qt::Checked});
  }
  return rows;
}

std::vector<Row> Held(const tk::Control& list) {
  std::vector<Row> rows;
  for (const tk::ListRow& r : list.Rows()) rows.push_back({r.text, r.checked});
  return rows;
}

// The view and the toolkit list both show `expected`, with `current` the
// current and only selected row.
void ExpectShows(const QListView& list, const tk::Control& held,
                 const std::vector<Row>& expected, int current) {
  EXPECT_EQ(Shown(list), expected);
  EXPECT_EQ(Held(held), expected);
  EXPECT_EQ(held.ListIndex(), current);
  EXPECT_EQ(list.currentIndex().row(), current);
  const QModelIndexList selected = list.selectionModel()->selectedIndexes();
  ASSERT_EQ(selected.size(), 1);
  EXPECT_EQ(selected[0].row(), current);
}

// Selects the name box's text and types `text` over it, in one key event
// as an input method gives it (QTest types Latin-1 only).
void Rename(QLineEdit& box, const QString& text) {
  box.setFocus();
  box.selectAll();
  QKeyEvent key(QEvent::KeyPress, Qt::Key_unknown, Qt::NoModifier, text);
  QApplication::sendEvent(&box, &key);
}

TEST(FieldListViewTest, ShowsTheRowsAfterMovesTicksRenamesAndAReload) {
  QtUi ui;
  ScopedUi scoped{ui};
  Person person;
  frmWizard& wiz = frmWizard::Instance();
  person.At("frmWizard", [&](FormView& view) {
    Click(view, "cmdNav(3)");
    QTest::keyClicks(Get<QLineEdit>(view, "txtEmailAddr"), "me@example.org");
    Click(view, "cmdNav(3)");
    Click(view, "cmdNav(3)");
    ASSERT_EQ(wiz.nCurStep, 3);
    auto* list = Get<QListView>(view, "lstFields");
    auto* name = Get<QLineEdit>(view, "txtFieldName");
    const tk::Control& held = wiz.Ctl("lstFields");
    std::vector<Row> rows = Held(held);
    ASSERT_GE(rows.size(), 5u);
    ExpectShows(*list, held, rows, 0);

    const QRect third = list->visualRect(list->model()->index(2, 0));
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {},
                      third.center() + QPoint(20, 0));
    ExpectShows(*list, held, rows, 2);
    // The view is told of each row that changed, never of all of them.
    QAbstractItemModel* model = list->model();
    QSignalSpy resets(model, &QAbstractItemModel::modelReset);
    QSignalSpy removed(model, &QAbstractItemModel::rowsRemoved);
    QSignalSpy changed(model, &QAbstractItemModel::dataChanged);
    Click(view, "cmdShift(0)");
    std::swap(rows[1], rows[2]);
    ExpectShows(*list, held, rows, 1);
    ASSERT_EQ(removed.size(), 1);
    EXPECT_EQ(removed[0][1].toInt(), 2);
    Click(view, "cmdShift(1)");
    Click(view, "cmdShift(1)");
    std::swap(rows[1], rows[2]);
    std::swap(rows[2], rows[3]);
    ExpectShows(*list, held, rows, 3);
    list->setFocus();
    changed.clear();
    QTest::keyClick(list, Qt::Key_Space);
    rows[3].ticked = !rows[3].ticked;
    ExpectShows(*list, held, rows, 3);
    ASSERT_EQ(changed.size(), 1);
    EXPECT_EQ(changed[0][0].toModelIndex().row(), 3);
    EXPECT_EQ(changed[0][1].toModelIndex().row(), 3);
    QTest::keyClick(list, Qt::Key_Up);
    ExpectShows(*list, held, rows, 2);

    // Names at the box's limit, of wide letters: the row shows each whole
    // and the scroll bar reaches its end; a short name again gives the
    // width back.
    for (const QString& wide : {QString(80, 'W'), QString(80, QChar(0x0416))}) {
      Rename(*name, wide);
      rows[2].name = wide.toStdString();
      ExpectShows(*list, held, rows, 2);
      QApplication::processEvents();
      const int text_width = list->fontMetrics().horizontalAdvance(wide);
      EXPECT_GE(list->visualRect(list->model()->index(2, 0)).width(),
                text_width);
      EXPECT_GE(
          list->horizontalScrollBar()->maximum() + list->viewport()->width(),
          text_width);
    }
    list->horizontalScrollBar()->setValue(
        list->horizontalScrollBar()->maximum());
    Shot(view, "field-list-long-name");
    Rename(*name, "Short");
    rows[2].name = "Short";
    ExpectShows(*list, held, rows, 2);
    QApplication::processEvents();
    EXPECT_EQ(list->horizontalScrollBar()->maximum(), 0);
    EXPECT_EQ(resets.size(), 0);

    // Back and Next list the fields again from the tree, which holds every
    // change made here.
    Click(view, "cmdNav(2)");
    QSignalSpy inserted(model, &QAbstractItemModel::rowsInserted);
    Click(view, "cmdNav(3)");
    ExpectShows(*list, held, rows, 0);
    EXPECT_EQ(resets.size(), 1);
    EXPECT_EQ(inserted.size(), 0);
    QTest::keyClick(&view, Qt::Key_Escape);
  });

  EXPECT_EQ(InsertBundledOrb()->Result(), kResultCancelled);
  EXPECT_TRUE(person.Done());
}

}  // namespace
}  // namespace formwiz::qtui
