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
#include <vector>

#include "Console.h"
#include "pantiq/platform/PQModules.h"

extern char** environ;

namespace pantiq::app {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::chrono::seconds kDeviceLimit(5), kEncoderLimit(20);

// What the child wrote, until it ends or the time is over.
bool ReadAll(int pipe, std::chrono::seconds limit, std::string& text) {
  const auto until = std::chrono::steady_clock::now() + limit;
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

// What a child of this program answers to "try-device CATEGORY ID"; no object if it gives no answer, and why.
Json Ask(std::string category, std::string id, std::chrono::seconds limit, std::string& why) {
  why = "it cannot be tried";
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return {};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  std::string program = "pantiq", command = "try-device";
  char* arguments[] = {program.data(), command.data(), category.data(), id.data(), nullptr};
  pid_t child = 0;
  const int error = posix_spawn(&child, "/proc/self/exe", &actions, nullptr, arguments, environ);
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  std::string text;
  bool answered = false;
  if (error == 0) {
    answered = ReadAll(ends[0], limit, text);
    if (!answered) kill(child, SIGKILL);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (!answered) {
      why = "it did not answer within " + std::to_string(limit.count()) + " seconds";
    } else if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
      answered = false;
      why = "trying it ended the process";
    }
  }
  close(ends[0]);
  if (!answered) return {};
  Json answer = Json::parse(text, nullptr, false);
  return answer.is_object() ? answer : Json();
}

PQPlatformResult ResultOf(const Json& answer, const std::string& why) {
  if (!answer.is_object()) return {kPlatformFailed, why};
  return {answer.value("code", long{kPlatformFailed}), answer.value("detail", std::string())};
}

int Answer(const Json& answer) {
  return PrintResult(answer.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n");
}

}  // namespace

PQDeviceTrial TryDevice(PQDeviceCategory category, const std::string& id) {
  std::string why;
  const Json answer = Ask(category == PQDeviceCategory::VideoRenderer ? "video" : "audio", id, kDeviceLimit, why);
  PQDeviceTrial trial;
  trial.result = ResultOf(answer, why);
  if (!answer.is_object()) return trial;
  trial.silent = answer.value("silent", false);
  trial.limits = answer.value("limits", std::vector<std::string>());
  return trial;
}

PQPlatformResult TryEncoder(const std::string& moniker, PQCompressorTrial& trial) {
  std::string why;
  const Json answer = Ask("encoder", moniker, kEncoderLimit, why);
  trial = {};
  if (answer.is_object()) {
    trial.blocks = answer.value("blocks", 0);
    trial.frames = answer.value("frames", 0);
    trial.at_once = answer.value("at_once", false);
    trial.lossless = answer.value("lossless", false);
    trial.decibel = answer.value("decibel", 0.0);
    trial.bytes = answer.value("bytes", std::int64_t{0});
  }
  return ResultOf(answer, why);
}

int AnswerDeviceTrial(const std::string& category, const std::string& id) {
  if (category == "encoder") {
    PQCompressorTrial trial;
    const PQPlatformResult result = PQTryCompressor(id, "", trial);
    return Answer({{"code", result.code},
                   {"detail", result.detail},
                   {"blocks", trial.blocks},
                   {"frames", trial.frames},
                   {"at_once", trial.at_once},
                   {"lossless", trial.lossless},
                   {"decibel", trial.decibel},
                   {"bytes", trial.bytes}});
  }
  PQDeviceTrial trial;
  PQMediaModule* const module = LoadMediaModule(trial.result);
  const auto devices = module != nullptr ? module->CreateOutputDevices(trial.result) : nullptr;
  if (devices != nullptr) {
    trial = devices->Try(category == "audio" ? PQDeviceCategory::AudioRenderer : PQDeviceCategory::VideoRenderer, id);
  }
  return Answer({{"code", trial.result.code},
                 {"detail", trial.result.detail},
                 {"silent", trial.silent},
                 {"limits", trial.limits}});
}

}  // namespace pantiq::app
