// The toolkit model: events inside assignments, list rows, and the rules of
// the user-input entry point.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "component_test_support.h"
#include "toolkit/form.h"

namespace formwiz::tk {
namespace {

// A small dialog: a panel with a box and a list, two options, OK (default)
// and Cancel (cancel button). Every event is logged.
class TestForm : public Form {
 public:
  TestForm() : Form("frmTest") {}
  std::vector<std::string> log;
  int loads = 0;
  bool unload_on_cancel = false;

  FieldList Fields() const override { return {{"loads", int64_t{loads}}}; }
  void Form_KeyDown(int key, int) override {
    log.push_back("key " + std::to_string(key));
  }

 protected:
  void BuildControls() override {
    SetKeyPreview(true);
    Control& panel = Add(ControlKind::kFrame, "fraStep", 0);
    Control& box = Add(ControlKind::kText, "txtBox");
    box.SetContainer(&panel);
    box.SetMaxLength(3);
    box.on_change = [this] { log.push_back("change " + Ctl("txtBox").Text()); };
    Control& list = Add(ControlKind::kList, "lstRows");
    list.SetContainer(&panel);
    list.on_click = [this] {
      log.push_back("click " + std::to_string(Ctl("lstRows").ListIndex()));
    };
    list.on_item_check = [this](int row) {
      log.push_back("check " + std::to_string(row));
    };
    for (int i = 0; i < 2; ++i) {
      Control& opt = Add(ControlKind::kOption, "optPick", i);
      opt.on_click = [this, i] { log.push_back("opt " + std::to_string(i)); };
    }
    Control& ok = Add(ControlKind::kButton, "cmdOK");
    ok.SetDefault(true);
    ok.on_click = [this] {
      log.push_back("ok");
      Hide();
    };
    Control& cancel = Add(ControlKind::kButton, "cmdCancel");
    cancel.SetCancel(true);
    cancel.on_click = [this] {
      log.push_back("cancel");
      if (unload_on_cancel) Unload();
    };
  }
  void Form_Load() override { ++loads; }
};

// A person who does `actions` in order while the form is on show.
struct ActionUi : PersonUi {
  explicit ActionUi(std::vector<UserAction> actions) {
    act = [this, actions](Form& form) {
      for (const UserAction& a : actions) {
        if (form.Shown()) outcomes.push_back(ApplyUserInput(form, a));
      }
    };
  }
  std::vector<InputOutcome> outcomes;
};

using K = UserAction::Kind;
UserAction Act(K kind, std::string control, std::string text = "", int row = 0,
               bool value = false, int key = 0) {
  return {kind, std::move(control), std::move(text), row, value, 1, key};
}

TEST(Toolkit, AssignmentsRaiseOnlyOnChangeAndRowsMoveTheCurrentRow) {
  TestForm form;
  Control& list = form.Ctl("lstRows");
  EXPECT_EQ(form.loads, 1);  // touching a control loaded the form
  list.AddItem("a");
  list.AddItem("c");
  list.SetListIndex(1);
  list.AddItem("b", 1);  // in front of the current row: it moves along
  EXPECT_EQ(list.ListIndex(), 2);
  list.SetSelected(2, true);
  list.SetSelected(2, true);  // no change, no event
  list.RemoveItem(2);         // the current row goes: no current row
  EXPECT_EQ(list.ListIndex(), -1);
  form.Ctl("txtBox").SetText("toolong");  // the program is never cut
  form.Ctl("txtBox").SetText("toolong");
  form.Ctl("optPick", 1).SetValue(true);
  form.Ctl("optPick", 0).SetValue(true);
  EXPECT_FALSE(form.Ctl("optPick", 1).Value());
  form.Ctl("optPick", 0).SetValue(false);  // clearing raises nothing
  EXPECT_EQ(form.log,
            (std::vector<std::string>{"click 1", "check 2", "change toolong",
                                      "opt 1", "opt 0"}));
  EXPECT_EQ(list.Rows().size(), 2u);
}

TEST(Toolkit, UserInputFollowsWhatAPersonCanDo) {
  const std::string e = "\xC3\xA9";  // one character, two bytes
  TestForm form;
  ActionUi ui({
      Act(K::kType, "txtBox", e + "bcd"),  // 3 fit
      Act(K::kBackspace, "txtBox"), Act(K::kClear, "txtBox"),
      Act(K::kClear, "txtBox"),  // empty already: no change
      Act(K::kSelect, "lstRows", "", 5), Act(K::kCheck, "lstRows", "", 0, true),
      Act(K::kClick, "txtBox"), Act(K::kClick, "nope"),
      Act(K::kKey, "", "", 0, false, kKeyEscape),
      Act(K::kKey, "", "", 0, false, kKeyReturn),
      Act(K::kClick, "cmdCancel"),  // hidden by then
  });
  ScopedUi scope(ui);
  form.Load();
  form.Ctl("lstRows").AddItem("r0");
  form.ShowModal(nullptr);
  EXPECT_EQ(form.log, (std::vector<std::string>{
                          "change " + e, "change " + e + "b",
                          "change " + e + "bc", "change " + e + "b", "change ",
                          "check 0", "key 27", "cancel", "key 13", "ok"}));
  ASSERT_EQ(ui.outcomes.size(), 10u);
  EXPECT_EQ(ui.outcomes[4].why, "no such row");
  EXPECT_EQ(ui.outcomes[6].why, "not a button");
  EXPECT_EQ(ui.outcomes[7].why, "not on this dialog");
  EXPECT_FALSE(form.Shown());
  EXPECT_TRUE(form.Loaded());
}

// Logs what a list tells its view, with the rows as they are at that moment.
struct RowLog : ListObserver {
  explicit RowLog(const Control& list) : list(list) {}
  void RowInserted(int row) override { Note("insert", row); }
  void RowRemoved(int row) override { Note("remove", row); }
  void RowChanged(int row) override { Note("change", row); }
  void RowsReset() override { Note("reset", -1); }
  void ListDestroyed() override { log.push_back("gone"); }
  void Note(const char* what, int row) {
    std::string rows;
    for (const ListRow& r : list.Rows())
      rows += r.text + (r.checked ? "+" : "");
    log.push_back(what + (row < 0 ? "" : " " + std::to_string(row)) + " [" +
                  rows + "]");
  }
  const Control& list;
  std::vector<std::string> log;
};

TEST(Toolkit, AListTellsItsViewEachChangeOfItsRowsAsItHappens) {
  struct Case {
    const char* what;
    std::function<void(Control&)> change;
    std::vector<std::string> told;
  };
  const std::vector<Case> cases = {
      {"insert in front",
       [](Control& l) { l.AddItem("x", 0); },
       {"insert 0 [xab+c]"}},
      {"append", [](Control& l) { l.AddItem("x"); }, {"insert 3 [ab+cx]"}},
      {"remove the current row",
       [](Control& l) { l.RemoveItem(1); },
       {"remove 1 [ac]"}},
      {"tick",
       [](Control& l) { l.SetSelected(2, true); },
       {"change 2 [ab+c+]"}},
      {"tick a ticked row", [](Control& l) { l.SetSelected(1, true); }, {}},
      {"untick",
       [](Control& l) { l.SetSelected(1, false); },
       {"change 1 [abc]"}},
      {"item data and current row: not shown",
       [](Control& l) {
         l.SetItemData(0, 7);
         l.SetListIndex(2);
       },
       {}},
      {"move down as the wizard does",
       [](Control& l) {
         l.RemoveItem(1);
         l.AddItem("b", 2);
         l.SetSelected(2, true);
       },
       {"remove 1 [ac]", "insert 2 [acb]", "change 2 [acb+]"}},
      {"clear and fill again",
       [](Control& l) {
         l.Clear();
         l.AddItem("d");
       },
       {"reset []", "insert 0 [d]"}},
      {"clear an empty list",
       [](Control& l) {
         l.Clear();
         l.Clear();
       },
       {"reset []"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    TestForm form;
    Control& list = form.Ctl("lstRows");
    for (const char* text : {"a", "b", "c"}) list.AddItem(text);
    list.SetSelected(1, true);
    list.SetListIndex(1);
    RowLog view(list);
    list.SetListObserver(&view);
    c.change(list);
    EXPECT_EQ(view.log, c.told);
    list.SetListObserver(nullptr);
  }
}

TEST(Toolkit, AViewHearsOfATickBeforeItsHandlerAndOfTheListGoing) {
  TestForm form;
  Control& list = form.Ctl("lstRows");
  list.AddItem("a");
  RowLog view(list);
  list.SetListObserver(&view);
  list.on_item_check = [&](int) { view.log.push_back("handler"); };
  list.SetSelected(0, true);
  form.Unload();
  EXPECT_EQ(view.log,
            (std::vector<std::string>{"change 0 [a+]", "handler", "gone"}));
}

// Parked, disabled and hidden controls refusing input: the wizard's tests
// and the scenarios meet each.
TEST(Toolkit, AHandlerMayUnloadItsOwnFormAndAFailureStaysInside) {
  TestForm form;
  ActionUi ui({Act(K::kType, "txtBox", "ab"), Act(K::kClick, "cmdCancel")});
  ScopedUi scope(ui);
  form.unload_on_cancel = true;
  form.Load();
  form.Ctl("txtBox").on_change = [] { throw Failure{7, "boom"}; };
  form.ShowModal(nullptr);  // under ASan: no use of the destroyed controls
  EXPECT_FALSE(form.Loaded());
  ASSERT_EQ(ui.boxes.size(), 1u);  // typing stopped at the first failure
  EXPECT_EQ(ui.boxes[0].text, "7: boom");
  form.Load();  // controls in their first state again
  EXPECT_EQ(form.Ctl("txtBox").Text(), "");
  EXPECT_EQ(form.loads, 2);
}

}  // namespace
}  // namespace formwiz::tk
