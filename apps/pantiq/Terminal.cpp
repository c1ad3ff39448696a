#include "Terminal.h"

#include <poll.h>
#include <unistd.h>

#include <atomic>

namespace pantiq::app {
namespace {

termios g_before;
std::atomic<bool> g_changed{false};

}  // namespace

Keys::Keys() {
  if (isatty(STDIN_FILENO) != 1 || tcgetattr(STDIN_FILENO, &g_before) != 0) return;
  // In the background it would be stopped for touching the terminal.
  if (tcgetpgrp(STDIN_FILENO) != getpgrp()) return;
  termios raw = g_before;
  raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  raw.c_cc[VMIN] = 0, raw.c_cc[VTIME] = 0;
  g_changed.store(true);
  active_ = tcsetattr(STDIN_FILENO, TCSANOW, &raw) == 0;
}

Keys::~Keys() { Restore(); }

void Keys::Restore() noexcept {
  if (g_changed.exchange(false)) tcsetattr(STDIN_FILENO, TCSANOW, &g_before);
}

Key Keys::Next(int milliseconds) {
  if (!active_) {
    poll(nullptr, 0, milliseconds);
    return Key::None;
  }
  if (pending_.empty()) {
    pollfd wait{STDIN_FILENO, POLLIN, 0};
    if (poll(&wait, 1, milliseconds) <= 0) return Key::None;
    char bytes[64];
    const ssize_t count = read(STDIN_FILENO, bytes, sizeof bytes);
    if (count <= 0) {  // the terminal is gone
      active_ = false;
      return Key::None;
    }
    pending_.assign(bytes, static_cast<std::size_t>(count));
  }
  const auto take = [this](std::size_t bytes, Key key) {
    pending_.erase(0, bytes);
    return key;
  };
  if (pending_.size() >= 3 && pending_[0] == '\x1b' && (pending_[1] == '[' || pending_[1] == 'O')) {
    const char last = pending_[2];
    return take(3, last == 'C' ? Key::Forward : last == 'D' ? Key::Back : Key::None);
  }
  switch (pending_[0]) {
    case ' ':
      return take(1, Key::Pause);
    case '.':
      return take(1, Key::Step);
    case 'q':
    case 'Q':
      return take(1, Key::Quit);
    default:
      return take(1, Key::None);
  }
}

}  // namespace pantiq::app
