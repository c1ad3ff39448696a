#include "TerminalForm.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "Terminal.h"

namespace pantiq::app {
namespace {

using Layout = PQMorphShapeLayout;

// The other screen, and no cursor; and back.
constexpr std::string_view kEnterScreen = "\x1b[?1049h\x1b[?25l";
constexpr std::string_view kLeaveScreen = "\x1b[0m\x1b[?25h\x1b[?1049l";
constexpr std::string_view kPlain, kBold = "1", kReverse = "7", kUnderline = "4";
constexpr std::string_view kHelp = "arrows  space toggles  0  1  Tab: sizes, buttons  Return: OK  Esc: Cancel";
constexpr int kSignalLook = 200;  // ms between two looks at signals

std::atomic<int> g_ended{0};
std::atomic<bool> g_stopped{false}, g_resized{false}, g_on_screen{false};
std::atomic<int> g_screen{STDERR_FILENO};

void Write(std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(g_screen.load(), text.data(), text.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return;
    text.remove_prefix(static_cast<std::size_t>(count));
  }
}

// Async-signal-safe.
void LeaveScreen() {
  if (g_on_screen.exchange(false)) Write(kLeaveScreen);
  Keys::Restore();
}

// The first signal cancels, the second one ends the process.
extern "C" void OnFormSignal(int number) {
  const int error = errno;
  int none = 0;
  if (number == SIGTSTP) {
    g_stopped.store(true);
  } else if (number == SIGWINCH) {
    g_resized.store(true);
  } else if (!g_ended.compare_exchange_strong(none, number)) {
    LeaveScreen();
    std::signal(number, SIG_DFL);
    std::raise(number);
  }
  errno = error;
}

// While it lives, signals are the form's.
class FormSignals {
 public:
  FormSignals() {
    g_ended.store(0), g_stopped.store(false);
    struct sigaction action {};
    action.sa_handler = OnFormSignal;
    sigemptyset(&action.sa_mask);
    for (std::size_t i = 0; i < std::size(kNumbers); ++i) {
      sigaction(kNumbers[i], nullptr, &before_[i]);
      if (before_[i].sa_handler != SIG_IGN || kNumbers[i] == SIGWINCH) sigaction(kNumbers[i], &action, nullptr);
    }
  }
  ~FormSignals() {
    for (std::size_t i = 0; i < std::size(kNumbers); ++i) sigaction(kNumbers[i], &before_[i], nullptr);
  }
  FormSignals(const FormSignals&) = delete;
  FormSignals& operator=(const FormSignals&) = delete;

 private:
  static constexpr int kNumbers[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGWINCH};
  struct sigaction before_[std::size(kNumbers)]{};
};

char32_t CharacterOf(std::string_view text) {
  const auto first = static_cast<unsigned char>(text.empty() ? 0 : text[0]);
  if (first < 0x80) return first;
  char32_t value = first & (first >= 0xf0 ? 0x07 : first >= 0xe0 ? 0x0f : 0x1f);
  for (const char c : text.substr(1)) value = value << 6 | (static_cast<unsigned char>(c) & 0x3f);
  return value;
}

class Form {
 public:
  Form(IPQMorphShapeForm& form, std::string title) : form_(form), title_(std::move(title)) {}
  PQModalResult Run(PQPlatformResult& result);

 private:
  enum Focus { kGrid, kWidth, kHeight, kOk, kCancel, kControls };
  static PQSizeEdit EditOf(int focus) { return focus == kWidth ? PQSizeEdit::Width : PQSizeEdit::Height; }
  bool InEdit() const { return focus_ == kWidth || focus_ == kHeight; }

  bool Stop();
  void Act(const std::string& key);
  void ActInGrid(const std::string& key);
  void ActInEdit(char32_t key);
  void Go(int focus);
  void Accept();
  void Draw();
  // Adds to the line what fits into it.
  void Put(std::string_view text, std::string_view look = kPlain);
  void EndLine();

  IPQMorphShapeForm& form_;
  const std::string title_;
  std::optional<Keys> keys_;
  int focus_ = kGrid;
  bool selected_ = false;  // the text of the edit: what is typed replaces it
  std::string message_;    // until a key is pressed
  PQModalResult end_ = kModalNone;
  int first_column_ = 0, first_row_ = 0, shown_rows_ = 1;
  std::string screen_, drawn_;
  int columns_ = 80, used_ = 0;
};

PQModalResult Form::Run(PQPlatformResult& result) {
  keys_.emplace();
  if (!keys_->Any()) {
    result = {kPlatformMissing, "standard input is no terminal, or one that others use now"};
    return kModalNone;
  }
  g_on_screen.store(true);
  Write(kEnterScreen);
  while (end_ == kModalNone && g_ended.load() == 0) {
    Draw();
    const std::string key = keys_->NextText(kSignalLook);
    if (!key.empty()) Act(key);
    if ((g_stopped.exchange(false) && !Stop()) || !keys_->Any()) {
      result = {kPlatformFailed, "the terminal is gone"};
      break;
    }
  }
  LeaveScreen();
  keys_.reset();
  if (g_ended.load() != 0) return kModalCancel;
  return end_;
}

// Stops the process as a terminal's user wants it, and comes back when it is continued in the foreground.
bool Form::Stop() {
  LeaveScreen();
  keys_.reset();
  struct sigaction ours {
  }, plain{};
  plain.sa_handler = SIG_DFL;
  sigaction(SIGTSTP, &plain, &ours);
  std::raise(SIGTSTP);
  sigaction(SIGTSTP, &ours, nullptr);
  if (tcgetpgrp(STDIN_FILENO) != getpgrp()) std::raise(SIGTTIN);  // continued in the background: waits there
  keys_.emplace();
  if (!keys_->Any()) return false;
  g_on_screen.store(true);
  Write(kEnterScreen);
  drawn_.clear();
  return true;
}

void Form::Act(const std::string& key) {
  if (!message_.empty()) {
    message_.clear();
    return;
  }
  if (key == "\x1b") {
    end_ = kModalCancel;
  } else if (key == "\t" || (focus_ != kGrid && (key == "\x1b[B" || key == "\x1bOB"))) {
    Go((focus_ + 1) % kControls);
  } else if (key == "\x1b[Z" || (focus_ != kGrid && (key == "\x1b[A" || key == "\x1bOA"))) {
    Go((focus_ + kControls - 1) % kControls);
  } else if (focus_ == kGrid) {
    ActInGrid(key);
  } else if (InEdit()) {
    ActInEdit(key == "\n" ? 13 : CharacterOf(key));
  } else if (key == "\n" || key == "\r" || key == " ") {
    if (focus_ == kOk) {
      Accept();
    } else {
      end_ = kModalCancel;
    }
  }
}

void Form::ActInGrid(const std::string& key) {
  const int column = form_.GetColumn(), row = form_.GetRow();
  const int last_column = form_.GetColCount() - 1, last_row = form_.GetRowCount() - 1;
  const auto is = [&key](std::initializer_list<std::string_view> keys) {
    return std::find(keys.begin(), keys.end(), key) != keys.end();
  };
  if (is({"\x1b[A", "\x1bOA"})) {
    form_.StringGridSelectCell(column, row - 1);
  } else if (is({"\x1b[B", "\x1bOB"})) {
    form_.StringGridSelectCell(column, row + 1);
  } else if (is({"\x1b[C", "\x1bOC"})) {
    form_.StringGridSelectCell(column + 1, row);
  } else if (is({"\x1b[D", "\x1bOD"})) {
    form_.StringGridSelectCell(column - 1, row);
  } else if (is({"\x1b[H", "\x1bOH", "\x1b[1~"})) {
    form_.StringGridSelectCell(0, row);
  } else if (is({"\x1b[F", "\x1bOF", "\x1b[4~"})) {
    form_.StringGridSelectCell(last_column, row);
  } else if (key == "\x1b[5~") {
    form_.StringGridSelectCell(column, std::max(row - shown_rows_, 0));
  } else if (key == "\x1b[6~") {
    form_.StringGridSelectCell(column, std::min(row + shown_rows_, last_row));
  } else if (key == "\n" || key == "\r") {
    if (form_.IsOkDefault()) Accept();
  } else {
    form_.StringGridKeyPress(CharacterOf(key));
  }
}

void Form::ActInEdit(char32_t key) {
  if (key == 0x1b) return;  // a key that this edit has no use for
  const PQSizeEdit edit = EditOf(focus_);
  std::string text = selected_ ? std::string() : form_.GetEdit(edit);
  if (key == 8 || key == 127) {
    if (!text.empty()) text.pop_back();
    form_.SetEdit(edit, text);
    selected_ = false;
    return;
  }
  if (key == 13 && form_.IsOkDefault()) return Accept();  // a second one, after the first has resized the grid
  const char32_t taken = form_.AnyEditKeyPress(edit, key, message_);
  if (key == 13) {
    selected_ = true;
  } else if (taken >= 32) {
    form_.SetEdit(edit, text + static_cast<char>(taken));  // a digit
    selected_ = false;
  }
}

void Form::Go(int focus) {
  if (InEdit()) {
    message_ = form_.AnyEditExit(EditOf(focus_));
    if (!message_.empty()) return;
  }
  focus_ = focus;
  if (!InEdit()) return;
  form_.AnyEditEnter(EditOf(focus_));
  selected_ = true;
}

void Form::Accept() {
  for (const int edit : {kWidth, kHeight}) {
    message_ = form_.AnyEditExit(EditOf(edit));
    if (message_.empty()) continue;
    focus_ = edit;
    form_.AnyEditEnter(EditOf(edit));
    return;
  }
  end_ = kModalOk;
}

void Form::Put(std::string_view text, std::string_view look) {
  text = text.substr(0, static_cast<std::size_t>(std::max(columns_ - used_, 0)));
  used_ += static_cast<int>(text.size());
  if (!look.empty()) screen_.append("\x1b[").append(look).append("m");
  screen_.append(text);
  if (!look.empty()) screen_ += "\x1b[0m";
}

void Form::EndLine() {
  screen_ += "\x1b[K\r\n";
  used_ = 0;
}

void Form::Draw() {
  winsize size{};
  const bool known = ioctl(g_screen.load(), TIOCGWINSZ, &size) == 0 && size.ws_col > 0 && size.ws_row > 0;
  columns_ = known ? size.ws_col : 80;
  const int lines = known ? size.ws_row : 24;
  screen_ = "\x1b[H";
  used_ = 0;

  Put(title_, kBold);
  EndLine();
  for (const int edit : {kWidth, kHeight}) {
    const bool here = focus_ == edit;
    Put(edit == kWidth ? Layout::kWidthLabel : Layout::kHeightLabel);
    Put(" ");
    Put(form_.GetEdit(EditOf(edit)), here && selected_ ? kReverse : kUnderline);
    Put(here && !selected_ ? "_" : " ");
    Put("  ");
  }
  Put(std::string("[ ") + Layout::kOk + " ]", focus_ == kOk ? kReverse : form_.IsOkDefault() ? kBold : kPlain);
  Put("  ");
  Put(std::string("[ ") + Layout::kCancel + " ]", focus_ == kCancel ? kReverse : kPlain);
  EndLine();
  EndLine();

  // Title, sizes, a free line; status, help. Each cell takes two columns. The current cell is always to be seen.
  shown_rows_ = std::clamp(lines - 5, 1, form_.GetRowCount());
  const int shown_columns = std::clamp(columns_ / 2, 1, form_.GetColCount());
  const auto follow = [](int& first, int current, int shown, int count) {
    first = std::clamp(first, std::max(current - shown + 1, 0), current);
    first = std::clamp(first, 0, std::max(count - shown, 0));
  };
  follow(first_column_, form_.GetColumn(), shown_columns, form_.GetColCount());
  follow(first_row_, form_.GetRow(), shown_rows_, form_.GetRowCount());
  for (int row = first_row_; row < first_row_ + shown_rows_; ++row) {
    for (int column = first_column_; column < first_column_ + shown_columns; ++column) {
      const bool focused = focus_ == kGrid && column == form_.GetColumn() && row == form_.GetRow();
      std::string_view look = "30;47";
      switch (form_.StringGridDrawCell(column, row, focused)) {
        case PQCellPaint::Highlight:
          look = "97;44";
          break;
        case PQCellPaint::WhiteOnBlack:
          look = "97;40";
          break;
        case PQCellPaint::BlackOnWhite:
          break;
      }
      Put(form_.GetCell(column, row) + " ", look);
    }
    EndLine();
  }
  if (message_.empty()) {
    Put(form_.GetStatus());
    EndLine();
    Put(kHelp);
  } else {
    Put(message_, kReverse);
    EndLine();
    Put("press a key");
  }
  screen_ += "\x1b[K\x1b[J";
  if (screen_ == drawn_ && !g_resized.exchange(false)) return;
  Write(screen_);
  drawn_ = screen_;
}

}  // namespace

PQModalResult ShowOnTerminal(IPQMorphShapeForm& form, const std::string& title, PQPlatformResult& result, int& signal) {
  signal = 0;
  result = {};
  if (isatty(STDIN_FILENO) != 1) {
    result = {kPlatformMissing, "standard input is no terminal"};
    return kModalNone;
  }
  if (isatty(STDERR_FILENO) != 1 && isatty(STDOUT_FILENO) != 1) {
    result = {kPlatformMissing, "neither standard output nor standard error is a terminal"};
    return kModalNone;
  }
  g_screen.store(isatty(STDERR_FILENO) == 1 ? STDERR_FILENO : STDOUT_FILENO);
  const char* kind = std::getenv("TERM");
  if (kind == nullptr || *kind == '\0' || std::string_view(kind) == "dumb") {
    result = {kPlatformMissing, "the terminal cannot be drawn on: TERM is " +
                                    (kind == nullptr || *kind == '\0' ? std::string("not set") : std::string(kind))};
    return kModalNone;
  }
  const FormSignals signals;
  const PQModalResult end = Form(form, title).Run(result);
  signal = g_ended.load();
  return end;
}

}  // namespace pantiq::app
