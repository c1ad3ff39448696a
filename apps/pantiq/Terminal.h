// The terminal's keys, one by one and as they are pressed.
#pragma once
#include <termios.h>

#include <string>

namespace pantiq::app {

enum class Key { None, Pause, Back, Forward, Step, Quit };

// While it lives keys are not echoed and need no Enter. Without a terminal on standard input there are no keys.
class Keys {
 public:
  Keys();
  ~Keys();
  Keys(const Keys&) = delete;
  Keys& operator=(const Keys&) = delete;
  bool Any() const { return active_; }
  // The next key, waiting for it at most so long.
  Key Next(int milliseconds);
  // What the next key sends: one character in UTF-8, or a whole sequence such as "\x1b[C". Empty if none comes.
  std::string NextText(int milliseconds);
  // Makes the terminal as it was before. Async-signal-safe.
  static void Restore() noexcept;

 private:
  bool Read(int milliseconds);
  bool active_ = false;
  std::string pending_;  // of keys that were pressed before they were asked for
};

}  // namespace pantiq::app
