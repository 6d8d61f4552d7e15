// The Ui: what the dialogs and the component ask of the platform that shows
// things to a person. One Ui is current per thread.
#pragma once

#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace formwiz {

namespace tk {
class Form;
}

class Ui {
 public:
  virtual ~Ui() = default;
  // Shows a message box with an OK button and no icon; returns when the
  // person has pressed OK.
  virtual void MsgBox(std::string_view text, std::string_view title) = 0;
  // Runs `form`, already loaded and marked shown, modally over `owner` (may
  // be null) until it is hidden or unloaded. Shows nest. Without a person to
  // ask, the default closes the dialog through its frame at once.
  virtual void RunModal(tk::Form& form, tk::Form* owner);
};

// The Ui of this thread. Without one set, message boxes go to standard error,
// which is what the command line wants.
Ui& CurrentUi();

// Makes `ui` current for this thread for the scope's length, then restores
// the one before.
class ScopedUi {
 public:
  explicit ScopedUi(Ui& ui);
  ~ScopedUi();
  ScopedUi(const ScopedUi&) = delete;
  ScopedUi& operator=(const ScopedUi&) = delete;

 private:
  Ui* previous_;
};

// Writes each message box to standard error as "title: text" and counts them.
class StderrUi : public Ui {
 public:
  void MsgBox(std::string_view text, std::string_view title) override;
  int count() const { return count_; }

 private:
  int count_ = 0;
};

// Keeps every message box it is asked to show, for tests and transcripts.
class RecordingUi : public Ui {
 public:
  struct Box {
    std::string title;
    std::string text;
    bool operator==(const Box&) const = default;
    // Readable in test failures.
    friend void PrintTo(const Box& box, std::ostream* os) {
      *os << box.title << ": " << box.text;
    }
  };
  void MsgBox(std::string_view text, std::string_view title) override {
    boxes.push_back({std::string(title), std::string(text)});
  }
  std::vector<Box> boxes;
};

}  // namespace formwiz
