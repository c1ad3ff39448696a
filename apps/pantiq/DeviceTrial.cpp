#include "DeviceTrial.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <nlohmann/json.hpp>

#include "Console.h"
#include "pantiq/platform/PQModules.h"

extern char** environ;

namespace pantiq::app {
namespace {

using Json = nlohmann::ordered_json;

constexpr auto kTrialLimit = std::chrono::seconds(5);

const char* NameOf(PQDeviceCategory category) {
  return category == PQDeviceCategory::VideoRenderer ? "video" : "audio";
}

// What the child wrote, until it ends or the time is over.
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

}  // namespace

PQDeviceTrial TryDevice(PQDeviceCategory category, const std::string& id) {
  PQDeviceTrial trial;
  trial.result = {kPlatformFailed, "the device cannot be tried"};
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return trial;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  std::string program = "pantiq", command = "try-device", name = NameOf(category), device = id;
  char* arguments[] = {program.data(), command.data(), name.data(), device.data(), nullptr};
  pid_t child = 0;
  const int error = posix_spawn(&child, "/proc/self/exe", &actions, nullptr, arguments, environ);
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  std::string text;
  bool answered = false;
  if (error == 0) {
    answered = ReadAll(ends[0], text);
    if (!answered) kill(child, SIGKILL);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (!answered) {
      trial.result.detail = "it did not answer within 5 seconds";
    } else if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
      answered = false;
      trial.result.detail = "trying it ended the process";
    }
  }
  close(ends[0]);
  if (!answered) return trial;
  const Json answer = Json::parse(text, nullptr, false);
  if (!answer.is_object()) return trial;
  trial.result = {answer.value("code", long{kPlatformFailed}), answer.value("detail", std::string())};
  trial.silent = answer.value("silent", false);
  trial.limits = answer.value("limits", std::vector<std::string>());
  return trial;
}

int AnswerDeviceTrial(const std::string& category, const std::string& id) {
  PQDeviceTrial trial;
  PQMediaModule* const module = LoadMediaModule(trial.result);
  const auto devices = module != nullptr ? module->CreateOutputDevices(trial.result) : nullptr;
  if (devices != nullptr) {
    trial = devices->Try(category == "audio" ? PQDeviceCategory::AudioRenderer : PQDeviceCategory::VideoRenderer, id);
  }
  const Json answer = {
      {"code", trial.result.code}, {"detail", trial.result.detail}, {"silent", trial.silent}, {"limits", trial.limits}};
  return PrintResult(answer.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n");
}

}  // namespace pantiq::app
