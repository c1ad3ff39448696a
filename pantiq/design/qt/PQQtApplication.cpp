#include "pantiq/design/qt/PQQtApplication.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QThread>
#include <cerrno>
#include <chrono>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <cstring>

extern char** environ;

namespace pantiq::qt {
namespace {

constexpr auto kTrialLimit = std::chrono::seconds(10);

void Swallow(QtMsgType, const QMessageLogContext&, const QString&) {}

std::string FolderOfModule() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<const void*>(&FolderOfModule), &info) == 0 || info.dli_fname == nullptr) return ".";
  const std::string file = info.dli_fname;
  const std::size_t slash = file.rfind('/');
  return slash == std::string::npos ? "." : file.substr(0, slash);
}

bool IsSet(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr && *value != '\0';
}

// What the child wrote until it ended, or false if it takes too long.
bool ReadAll(int pipe, std::string& text) {
  const auto until = std::chrono::steady_clock::now() + kTrialLimit;
  for (;;) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(until - std::chrono::steady_clock::now()).count();
    pollfd wait{pipe, POLLIN, 0};
    const int ready = left > 0 ? poll(&wait, 1, static_cast<int>(left)) : 0;
    if (ready < 0 && errno == EINTR) continue;
    if (ready <= 0) return false;
    char bytes[4096];
    const ssize_t count = read(pipe, bytes, sizeof bytes);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return true;
    text.append(bytes, static_cast<std::size_t>(count));
  }
}

// Whether windows can be shown, tried in a process of its own: a display that does not answer would end this one.
PQPlatformResult TryDisplay() {
  if (!IsSet("DISPLAY") && !IsSet("WAYLAND_DISPLAY") && !IsSet("QT_QPA_PLATFORM")) {
    return {kPlatformMissing, "there is no display: set DISPLAY or WAYLAND_DISPLAY"};
  }
  std::string program = FolderOfModule() + "/pantiq-dialog-trial";
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return {kPlatformFailed, std::strerror(errno)};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  char* arguments[] = {program.data(), nullptr};
  pid_t child = 0;
  const int error = posix_spawn(&child, program.c_str(), &actions, nullptr, arguments, environ);
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  std::string said;
  int status = 0;
  bool answered = false;
  if (error == 0) {
    answered = ReadAll(ends[0], said);
    if (!answered) kill(child, SIGKILL);
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
  }
  close(ends[0]);
  if (error != 0) return {kPlatformMissing, program + ": " + std::strerror(error)};
  if (!answered) return {kPlatformTimeout, "the display did not answer within 10 seconds"};
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return {};
  for (char& c : said) c = c == '\n' ? ' ' : c;
  return {kPlatformMissing, "the display cannot be used" + (said.empty() ? std::string() : ": " + said)};
}

}  // namespace

Application::Application(PQPlatformResult& result) {
  result = {};
  if (QCoreApplication* const present = QCoreApplication::instance()) {
    if (qobject_cast<QApplication*>(present) == nullptr) {
      result = {kPlatformState, "the application of this process has no windows (it is no QApplication)"};
    } else if (present->thread() != QThread::currentThread()) {
      result = {kPlatformState, "windows belong to the thread of the application"};
    }
    return;
  }
  result = TryDisplay();
  if (!result.Ok()) return;
  static int count = 1;  // the application keeps references to both
  static char name[] = "pantiq";
  static char* words[] = {name, nullptr};
  const std::string locale = std::setlocale(LC_ALL, nullptr);
  handler_ = qInstallMessageHandler(Swallow);
  own_ = std::make_unique<QApplication>(count, words);
  own_->setQuitOnLastWindowClosed(false);
  std::setlocale(LC_ALL, locale.c_str());
}

Application::~Application() {
  if (own_ == nullptr) return;
  own_.reset();
  qInstallMessageHandler(handler_);
}

}  // namespace pantiq::qt
