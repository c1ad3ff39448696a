#include "Terminal.h"

#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

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

bool Keys::Read(int milliseconds) {
  pollfd wait{STDIN_FILENO, POLLIN, 0};
  if (poll(&wait, 1, milliseconds) <= 0) return false;
  char bytes[64];
  const ssize_t count = read(STDIN_FILENO, bytes, sizeof bytes);
  if (count < 0 && errno == EINTR) return false;
  if (count <= 0) {  // the terminal is gone
    active_ = false;
    return false;
  }
  pending_.append(bytes, static_cast<std::size_t>(count));
  return true;
}

std::string Keys::NextText(int milliseconds) {
  if (!active_) {
    poll(nullptr, 0, milliseconds);
    return {};
  }
  if (pending_.empty() && !Read(milliseconds)) return {};
  // Bytes of the key: 0 while its end is not there.
  const auto length = [this]() -> std::size_t {
    const auto first = static_cast<unsigned char>(pending_[0]);
    if (first == 0x1b) {
      if (pending_.size() < 2) return 0;
      if (pending_[1] == 'O') return pending_.size() < 3 ? 0 : 3;
      if (pending_[1] != '[') return 1;  // Esc, then another key
      for (std::size_t i = 2; i < pending_.size(); ++i) {
        if (pending_[i] >= 0x40 && pending_[i] <= 0x7e) return i + 1;
      }
      return 0;
    }
    const std::size_t wanted = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : first >= 0xc0 ? 2 : 1;
    return pending_.size() < wanted ? 0 : wanted;
  };
  constexpr int kRest = 50;  // ms; what a key sends comes in one piece, or nearly so
  std::size_t bytes = 0;
  while ((bytes = length()) == 0) {
    if (!Read(kRest)) {
      bytes = pending_[0] == 0x1b ? 1 : pending_.size();
      break;
    }
  }
  std::string text = pending_.substr(0, bytes);
  pending_.erase(0, bytes);
  return text;
}

Key Keys::Next(int milliseconds) {
  const std::string text = NextText(milliseconds);
  if (text == "\x1b[C" || text == "\x1bOC") return Key::Forward;
  if (text == "\x1b[D" || text == "\x1bOD") return Key::Back;
  if (text == " ") return Key::Pause;
  if (text == ".") return Key::Step;
  return text == "q" || text == "Q" ? Key::Quit : Key::None;
}

}  // namespace pantiq::app
