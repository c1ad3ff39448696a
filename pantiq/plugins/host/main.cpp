// pantiq-plugin-host: the process of an isolated plug-in. The library starts it; it is of no use by itself.
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <thread>
#include <vector>

#include "pantiq/plugins/PQPluginLibrary.h"
#include "pantiq/plugins/PQPluginWire.h"

// Under a sanitizer a crash stays the signal that it is.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
  return "handle_segv=0:handle_sigbus=0:handle_abort=0:handle_sigill=0:handle_sigfpe=0:detect_leaks=0";
}
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options() {
  return "handle_segv=0:handle_sigbus=0:handle_abort=0:handle_sigill=0:handle_sigfpe=0";
}

namespace pantiq {
namespace {

class Host {
 public:
  // The process's exit code.
  int Run() {
    PQPluginRequest request;
    while (Receive(request)) {
      if (request.version != kPluginWireVersion || !Map(request.memory)) return 4;
      PQPluginAnswer answer;
      Do(request, answer);
      if (send(kPluginSocket, &answer, sizeof answer, MSG_NOSIGNAL) != static_cast<ssize_t>(sizeof answer)) break;
    }
    return 0;
  }

 private:
  static bool Receive(PQPluginRequest& request) {
    ssize_t bytes;
    do {
      bytes = recv(kPluginSocket, &request, sizeof request, MSG_WAITALL);
    } while (bytes < 0 && errno == EINTR);
    return bytes == static_cast<ssize_t>(sizeof request);
  }

  bool Map(std::uint64_t bytes) {
    if (bytes == size_) return true;
    if (data_ != nullptr) munmap(data_, size_);
    void* const data = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, kPluginMemory, 0);
    data_ = data == MAP_FAILED ? nullptr : static_cast<std::uint8_t*>(data), size_ = bytes;
    return data_ != nullptr;
  }

  std::string RequestText(const PQPluginRequest& request) const {
    return std::string(reinterpret_cast<const char*>(data_) + request.text_at, request.text_bytes);
  }
  std::uint64_t PutText(const std::string& text, std::uint64_t at) {
    const std::uint64_t bytes = std::min<std::uint64_t>(text.size(), size_ > at ? size_ - at : 0);
    std::memcpy(data_ + at, text.data(), bytes);
    return bytes;
  }

  void Do(const PQPluginRequest& request, PQPluginAnswer& answer) {
    if (request.wish == PQPluginWish::Open) {
      PQPlatformResult result;
      library_ = PQLoadPlugin(RequestText(request), result);
      answer.ok = library_ != nullptr, answer.code = static_cast<std::int32_t>(result.code);
      answer.text_bytes = PutText(result.detail, 0);
      return;
    }
    if (library_ == nullptr) return;
    switch (request.wish) {
      case PQPluginWish::Call:
        answer.result = Call(request);
        break;
      case PQPluginWish::Text:
        if (const auto text = library_->Text(request.function, request.input, request.instance, request.most_text)) {
          answer.ok = 1, answer.text_bytes = PutText(*text, 0);
        }
        break;
      case PQPluginWish::Info:
        if (const auto info = library_->ExtendedInfo()) {
          answer.ok = 1, answer.major = info->major, answer.minor = info->minor;
          answer.text_bytes = PutText(info->description, 0);
          answer.more_text_bytes = PutText(info->about, answer.text_bytes);
        }
        break;
      default:
        library_.reset();
        return;
    }
    answer.thrown = library_->TakeException().has_value();
  }

  std::uintptr_t Call(const PQPluginRequest& request) {
    const auto frame = [&](std::uint64_t number) { return data_ + request.frames_at + request.frame_step * number; };
    const auto call = [&](const void* record) {
      return library_->Call(request.function, reinterpret_cast<std::uintptr_t>(record), request.instance);
    };
    switch (request.function) {
      case FF_INSTANTIATE: {
        VideoInfoStruct video;
        std::memcpy(&video, request.values, sizeof video);
        return call(&video);
      }
      case FF_SETPARAMETER: {
        // A copy: a plug-in may go on reading where the text was.
        if (request.has_text != 0) text_ = RequestText(request);
        const SetParameterStruct set{
            request.values[0], request.values[1],
            request.has_text != 0 ? reinterpret_cast<std::uintptr_t>(text_.c_str()) : request.values[1]};
        return call(&set);
      }
      case FF_PROCESSFRAME:
        return call(frame(0));
      case FF_PROCESSFRAMECOPY: {
        std::vector<void*> inputs;
        for (std::uint32_t i = 0; i < request.frames; ++i) inputs.push_back(frame(i));
        const ProcessFrameCopyStruct copy{request.frames, inputs.data(), frame(request.frames)};
        return call(&copy);
      }
      default:
        return library_->Call(request.function, static_cast<std::uintptr_t>(request.input), request.instance);
    }
  }

  std::shared_ptr<PQPluginLibrary> library_;
  std::string text_;
  std::uint8_t* data_ = nullptr;
  std::uint64_t size_ = 0;
};

}  // namespace
}  // namespace pantiq

int main() {
  struct stat info {};
  if (fstat(pantiq::kPluginSocket, &info) != 0 || !S_ISSOCK(info.st_mode)) {
    std::fputs("pantiq-plugin-host: programs that use Pantiq start this to run an isolated plug-in\n", stderr);
    return 2;
  }
  // Ctrl-C ends the stream of the program, which then ends this.
  for (const int signal : {SIGINT, SIGQUIT, SIGHUP, SIGTSTP}) std::signal(signal, SIG_IGN);
  // The program may die while the plug-in does not come back. Its death shows at the socket; a death signal would come
  // with the end of the thread that started this process.
  std::thread([] {
    pollfd entry{pantiq::kPluginSocket, POLLRDHUP, 0};
    while (poll(&entry, 1, -1) <= 0) {
    }
    _exit(0);
  }).detach();
  // Without clearing up: destructors that belong to the plug-in run when it is unloaded, those of this process never.
  _exit(pantiq::Host().Run());
}
