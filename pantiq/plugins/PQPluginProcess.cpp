#include "pantiq/plugins/PQPluginProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

#include "pantiq/platform/PQDynamicLibrary.h"
#include "pantiq/platform/PQModules.h"
#include "pantiq/plugins/PQPluginWire.h"

extern char** environ;

namespace pantiq {
namespace {

constexpr const char* kHostFile = "pantiq-plugin-host";
constexpr const char* kHostVariable = "PANTIQ_PLUGIN_HOST";

// --- the watchdog ---------------------------------------------------------------------------------------------------

constexpr std::chrono::milliseconds kMostTime{2000}, kSlice{250};

// A pause of this process as a whole (a debugger, a stopped job, a sleeping machine) counts as one slice at most.
bool WaitTwoSeconds(int descriptor) {
  using Clock = std::chrono::steady_clock;
  std::chrono::nanoseconds waited{0};
  for (auto last = Clock::now(); waited < kMostTime;) {
    pollfd entry{descriptor, POLLIN, 0};
    if (poll(&entry, 1, static_cast<int>(kSlice.count())) > 0) return true;
    const auto now = Clock::now();
    waited += std::min<std::chrono::nanoseconds>(now - last, kSlice);
    last = now;
  }
  return false;
}

struct WaitHolder {
  std::mutex mutex;
  std::shared_ptr<const PQPluginWait> wait;
};
WaitHolder& Wait() {
  static auto* const holder = new WaitHolder;  // never destroyed: plug-ins may be called while the process ends
  return *holder;
}

bool WaitReadable(int descriptor) {
  std::shared_ptr<const PQPluginWait> wait;
  {
    const std::lock_guard guard(Wait().mutex);
    wait = Wait().wait;
  }
  return wait != nullptr ? (*wait)(descriptor) : WaitTwoSeconds(descriptor);
}

// --- descriptors ----------------------------------------------------------------------------------------------------

class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~Descriptor() {
    if (fd_ >= 0) close(fd_);
  }
  int Get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }

 private:
  int fd_ = -1;
};

// Out of the way of the numbers that the host's descriptors get.
Descriptor High(Descriptor low) { return Descriptor(fcntl(low.Get(), F_DUPFD_CLOEXEC, 16)); }

std::string ErrorText(int error) { return std::strerror(error); }

// Memory that the host's process maps, too. It can only grow: who has it mapped never loses a page of it, and what
// Data gave stays good.
class SharedMemory {
 public:
  ~SharedMemory() {
    for (const auto& [data, bytes] : mapped_) munmap(data, bytes);
  }
  bool Make() {
    fd_ = High(Descriptor(memfd_create("pantiq-plugin", MFD_CLOEXEC | MFD_ALLOW_SEALING)));
    return fd_ && Grow(kPluginTextRoom) && fcntl(fd_.Get(), F_ADD_SEALS, F_SEAL_SHRINK) == 0;
  }
  // False if there is no memory.
  bool Grow(std::uint64_t bytes) {
    if (bytes <= Size()) return true;
    bytes = (bytes + 0xFFFF) & ~std::uint64_t{0xFFFF};
    int error;
    do {
      error = posix_fallocate(fd_.Get(), 0, static_cast<off_t>(bytes));
    } while (error == EINTR);
    if (error != 0) return false;
    void* const data = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd_.Get(), 0);
    if (data == MAP_FAILED) return false;
    mapped_.emplace_back(data, bytes);
    return true;
  }
  std::uint8_t* Data() const { return static_cast<std::uint8_t*>(mapped_.back().first); }
  std::uint64_t Size() const { return mapped_.empty() ? 0 : mapped_.back().second; }
  int Get() const { return fd_.Get(); }

 private:
  Descriptor fd_;
  std::vector<std::pair<void*, std::uint64_t>> mapped_;  // the last one is all of it
};

// --- the process ----------------------------------------------------------------------------------------------------

class SpawnActions {
 public:
  SpawnActions() { posix_spawn_file_actions_init(&actions_); }
  ~SpawnActions() { posix_spawn_file_actions_destroy(&actions_); }
  SpawnActions(const SpawnActions&) = delete;
  SpawnActions& operator=(const SpawnActions&) = delete;
  posix_spawn_file_actions_t actions_;
};
class SpawnAttributes {
 public:
  SpawnAttributes() { posix_spawnattr_init(&attributes_); }
  ~SpawnAttributes() { posix_spawnattr_destroy(&attributes_); }
  SpawnAttributes(const SpawnAttributes&) = delete;
  SpawnAttributes& operator=(const SpawnAttributes&) = delete;
  posix_spawnattr_t attributes_;
};

class HostProcess {
 public:
  ~HostProcess() { Kill(); }

  // 0, or the system's error.
  int Spawn(const std::string& host, int memory) {
    int pair[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) return errno;
    socket_ = Descriptor(pair[0]);
    const Descriptor theirs = High(Descriptor(pair[1]));
    if (!theirs) return errno;
    SpawnActions actions;
    SpawnAttributes attributes;
    // What a plug-in prints must not get into a stream on standard output.
    posix_spawn_file_actions_addopen(&actions.actions_, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions.actions_, 2, 1);
    posix_spawn_file_actions_adddup2(&actions.actions_, theirs.Get(), kPluginSocket);
    posix_spawn_file_actions_adddup2(&actions.actions_, memory, kPluginMemory);
    posix_spawn_file_actions_addclosefrom_np(&actions.actions_, kPluginMemory + 1);
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes.attributes_, &none);
    posix_spawnattr_setsigdefault(&attributes.attributes_, &all);
    posix_spawnattr_setflags(&attributes.attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    std::string name = host;
    char* arguments[] = {name.data(), nullptr};
    pid_t id = 0;
    const int error = posix_spawn(&id, host.c_str(), &actions.actions_, &attributes.attributes_, arguments, environ);
    if (error == 0) id_ = id;
    return error;
  }

  bool Send(const PQPluginRequest& request) const {
    // A request is far smaller than the socket's buffer, and the host has read the one before it.
    ssize_t bytes;
    do {
      bytes = send(socket_.Get(), &request, sizeof request, MSG_NOSIGNAL);
    } while (bytes < 0 && errno == EINTR);
    return bytes == static_cast<ssize_t>(sizeof request);
  }

  enum class Came { Answer, End, Nothing };
  Came Receive(PQPluginAnswer& answer) const {
    auto* to = reinterpret_cast<char*>(&answer);
    for (std::size_t got = 0; got < sizeof answer;) {
      if (!WaitReadable(socket_.Get())) return Came::Nothing;
      const ssize_t bytes = recv(socket_.Get(), to + got, sizeof answer - got, 0);
      if (bytes < 0 && errno == EINTR) continue;
      if (bytes <= 0) return Came::End;
      got += static_cast<std::size_t>(bytes);
    }
    return Came::Answer;
  }

  // Ends the process. What it ended with; -1 if somebody else has asked for that before.
  int Kill() {
    if (id_ <= 0) return -1;
    kill(id_, SIGKILL);
    return Reap();
  }
  // The same for a process that has closed its end, and so is about to end by itself.
  int Ended() {
    if (id_ <= 0) return -1;
    siginfo_t info{};
    // One that has only closed its socket would be waited for in vain.
    for (int round = 0; round < 200; ++round) {
      if (waitid(P_PID, static_cast<id_t>(id_), &info, WEXITED | WNOHANG | WNOWAIT) != 0 || info.si_pid != 0) {
        return Reap();
      }
      poll(nullptr, 0, 5);
    }
    return Kill();
  }

 private:
  int Reap() {
    int status = -1;
    while (waitpid(id_, &status, 0) < 0) {
      if (errno != EINTR) {
        status = -1;
        break;
      }
    }
    id_ = 0;
    return status;
  }
  Descriptor socket_;
  pid_t id_ = 0;
};

// --- the library ----------------------------------------------------------------------------------------------------

class Isolated final : public PQPluginLibrary {
 public:
  ~Isolated() override {
    const std::lock_guard guard(mutex_);
    if (IsLost()) return;
    PQPluginRequest request;
    request.wish = PQPluginWish::Close;
    PQPluginAnswer answer;
    Exchange(request, answer);
    process_.Kill();
  }

  // Ok also for a plug-in that is lost while it is loaded.
  PQPlatformResult Open(const std::string& host, const std::string& file) {
    const std::lock_guard guard(mutex_);
    if (!memory_.Make()) return {kPlatformFailed, "there is no shared memory: " + ErrorText(errno)};
    if (const int error = process_.Spawn(host, memory_.Get()); error != 0) {
      return {kPlatformMissing, "its process '" + host + "' cannot be started: " + ErrorText(error)};
    }
    PQPluginRequest request;
    request.wish = PQPluginWish::Open;
    PutText(request, file);
    PQPluginAnswer answer;
    if (!Exchange(request, answer)) {
      // Without a word from it, it may be no plug-in host at all.
      if (!heard_) why_lost_ += "; its process is '" + host + "'";
      return {};
    }
    if (answer.ok == 0) return {answer.code, GetText(0, answer.text_bytes)};
    return {};
  }

  std::uintptr_t Call(std::uint32_t function, std::uintptr_t input, std::uintptr_t instance_id) noexcept override {
    try {
      const std::lock_guard guard(mutex_);
      return IntCall(function, input, instance_id);
    } catch (...) {  // no memory for it
      return FF_FAIL;
    }
  }

  std::optional<std::string> Text(std::uint32_t function, std::uintptr_t input, std::uintptr_t instance_id,
                                  std::size_t most) override {
    const std::lock_guard guard(mutex_);
    PQPluginRequest request;
    request.wish = PQPluginWish::Text, request.function = function;
    request.input = input, request.instance = instance_id, request.most_text = most;
    PQPluginAnswer answer;
    if (!Exchange(request, answer) || answer.ok == 0) return std::nullopt;
    return GetText(0, std::min<std::uint64_t>(answer.text_bytes, most));
  }

  std::optional<PQPluginExtendedInfo> ExtendedInfo() override {
    const std::lock_guard guard(mutex_);
    PQPluginRequest request;
    request.wish = PQPluginWish::Info, request.function = FF_GETEXTENDEDINFO, request.most_text = kPQMostPluginText;
    PQPluginAnswer answer;
    if (!Exchange(request, answer) || answer.ok == 0) return std::nullopt;
    const auto first = std::min<std::uint64_t>(answer.text_bytes, kPQMostPluginText);
    const auto second = std::min<std::uint64_t>(answer.more_text_bytes, kPQMostPluginText);
    return PQPluginExtendedInfo{answer.major, answer.minor, GetText(0, first), GetText(first, second)};
  }

  std::uint8_t* FrameMemory(std::size_t bytes) override {
    const std::lock_guard guard(mutex_);
    if (bytes == lent_bytes_) return lent_;
    frames_end_ = std::max<std::uint64_t>(frames_end_, kPluginTextRoom + Pages(bytes));
    if (!memory_.Grow(frames_end_)) throw std::bad_alloc();
    lent_ = memory_.Data() + kPluginTextRoom, lent_bytes_ = bytes;
    std::memset(lent_, 0, bytes);
    return lent_;
  }

  bool IsLost() const noexcept override { return lost_.load(std::memory_order_acquire); }
  std::string WhyLost() const override {
    const std::lock_guard guard(mutex_);
    return why_lost_;
  }

 private:
  std::uintptr_t IntCall(std::uint32_t function, std::uintptr_t input, std::uintptr_t instance_id) {
    PQPluginRequest request;
    request.function = function, request.input = input, request.instance = instance_id;
    PQPluginAnswer answer;
    std::uint8_t* output = nullptr;
    switch (function) {
      case FF_INSTANTIATE: {
        const auto& video = *reinterpret_cast<const VideoInfoStruct*>(input);
        std::memcpy(request.values, &video, sizeof video);
        const std::uint64_t pixel = video.BitDepth == FF_DEPTH_32 ? 4 : video.BitDepth == FF_DEPTH_24 ? 3 : 2;
        frame_bytes_ = pixel * video.FrameWidth * video.FrameHeight;
        lent_ = nullptr, lent_bytes_ = 0;
        break;
      }
      case FF_SETPARAMETER: {
        const auto& set = *reinterpret_cast<const SetParameterStruct*>(input);
        request.values[0] = set.ParameterNumber, request.values[1] = set.NewParameterValue;
        if (set.NewParameterTextOrBits != set.NewParameterValue) {  // no float's bits: a text
          request.has_text = 1;
          PutText(request, reinterpret_cast<const char*>(set.NewParameterTextOrBits));
        }
        break;
      }
      case FF_PROCESSFRAME:
        PlaceFrames(request, 1);
        if (lent_ != nullptr && input == reinterpret_cast<std::uintptr_t>(lent_)) {
          request.frames_at = kPluginTextRoom;  // it is there
          break;
        }
        output = reinterpret_cast<std::uint8_t*>(input);
        std::memcpy(Frame(request, 0), output, frame_bytes_);
        break;
      case FF_PROCESSFRAMECOPY: {
        const auto& copy = *reinterpret_cast<const ProcessFrameCopyStruct*>(input);
        request.frames = copy.numInputFrames;
        PlaceFrames(request, copy.numInputFrames + std::uint64_t{1});
        for (std::uint32_t i = 0; i < copy.numInputFrames; ++i) {
          std::memcpy(Frame(request, i), copy.ppInputFrames[i], frame_bytes_);
        }
        output = static_cast<std::uint8_t*>(copy.pOutputFrame);
        std::memcpy(Frame(request, request.frames), output, frame_bytes_);
        break;
      }
      default:
        break;
    }
    if (!Exchange(request, answer)) return FF_FAIL;
    if (output != nullptr) std::memcpy(output, Frame(request, request.frames), frame_bytes_);
    return answer.result;
  }

  // One request, one answer. False if the plug-in is lost, or was before.
  bool Exchange(PQPluginRequest& request, PQPluginAnswer& answer) {
    if (IsLost()) return false;
    request.memory = memory_.Size();
    HostProcess::Came came = HostProcess::Came::End;
    if (process_.Send(request)) came = process_.Receive(answer);
    if (came == HostProcess::Came::Answer) {
      heard_ = true;
      if (answer.thrown != 0) NoteException(request.function);
      return true;
    }
    std::string where;
    if (request.wish == PQPluginWish::Open) {
      where = " while it was loaded";
    } else if (request.wish == PQPluginWish::Close) {
      where = " while it was unloaded";
    } else {
      where = " in " + PQPluginFunctionName(request.function);
    }
    if (came == HostProcess::Came::Nothing) {
      process_.Kill();
      why_lost_ = "it did not come back within two seconds" + where;
    } else {
      const int status = process_.Ended();
      if (status >= 0 && WIFSIGNALED(status)) {
        why_lost_ = "it crashed" + where + " (" + strsignal(WTERMSIG(status)) + ")";
      } else if (status >= 0 && WIFEXITED(status)) {
        why_lost_ = "it ended its process" + where + " (exit code " + std::to_string(WEXITSTATUS(status)) + ")";
      } else {
        why_lost_ = "its process ended" + where;
      }
    }
    lost_.store(true, std::memory_order_release);
    return false;
  }

  void PutText(PQPluginRequest& request, const std::string& text) {
    if (text.size() >= kPluginTextRoom) {
      request.text_at = frames_end_;
      if (!memory_.Grow(frames_end_ + text.size() + 1)) throw std::bad_alloc();
    }
    std::memcpy(memory_.Data() + request.text_at, text.c_str(), text.size() + 1);
    request.text_bytes = text.size();
  }
  std::string GetText(std::uint64_t at, std::uint64_t bytes) const {
    if (at >= memory_.Size()) return {};
    bytes = std::min(bytes, memory_.Size() - at);
    return std::string(reinterpret_cast<const char*>(memory_.Data()) + at, bytes);
  }

  // The lent frame comes first, then those of the request.
  static std::uint64_t Pages(std::uint64_t bytes) { return (bytes + 4095) & ~std::uint64_t{4095}; }
  void PlaceFrames(PQPluginRequest& request, std::uint64_t count) {
    request.frame_step = Pages(frame_bytes_);
    request.frames_at = kPluginTextRoom + Pages(lent_bytes_);
    frames_end_ = std::max(frames_end_, request.frames_at + request.frame_step * count);
    if (!memory_.Grow(frames_end_)) throw std::bad_alloc();
  }
  std::uint8_t* Frame(const PQPluginRequest& request, std::uint64_t number) const {
    return memory_.Data() + request.frames_at + request.frame_step * number;
  }

  mutable std::mutex mutex_;  // one call at a time
  SharedMemory memory_;
  HostProcess process_;
  std::uint64_t frame_bytes_ = 0, frames_end_ = kPluginTextRoom;
  std::uint8_t* lent_ = nullptr;  // what FrameMemory gave
  std::uint64_t lent_bytes_ = 0;
  bool heard_ = false;
  std::string why_lost_;
  std::atomic<bool> lost_{false};
};

}  // namespace

void SetPluginWait(PQPluginWait wait) {
  auto fresh = wait ? std::make_shared<const PQPluginWait>(std::move(wait)) : nullptr;
  const std::lock_guard guard(Wait().mutex);
  Wait().wait = std::move(fresh);
}

std::string PQFindPluginHost(std::string& looked_in) {
  looked_in.clear();
  if (const char* named = std::getenv(kHostVariable); named != nullptr && *named != 0) {
    if (access(named, X_OK) == 0) return named;
    looked_in = std::string(named) + ", which " + kHostVariable + " names";
    return {};
  }
  for (const std::string& folder : ModuleFolders()) {
    std::string file = folder + "/" + kHostFile;
    if (access(file.c_str(), X_OK) == 0) return file;
    looked_in += (looked_in.empty() ? "" : ", ") + folder;
  }
  return {};
}

std::shared_ptr<PQPluginLibrary> PQLoadPluginIsolated(const std::string& file, PQPlatformResult& result) {
  // What can be told without a process is told here, as for a plug-in in this one.
  if (result = PQLookAtLibrary(file); !result.Ok()) return nullptr;
  std::string looked_in;
  const std::string host = PQFindPluginHost(looked_in);
  if (host.empty()) {
    result = {kPlatformMissing, std::string(kHostFile) +
                                    ", which runs isolated plug-ins, is not installed (looked in " + looked_in +
                                    "); build or install pantiq as a whole"};
    return nullptr;
  }
  auto library = std::make_shared<Isolated>();
  result = library->Open(host, file);
  return result.Ok() ? library : nullptr;
}

}  // namespace pantiq
