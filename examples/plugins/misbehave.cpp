// Does wrong what can be done wrong: for trying hosts. The environment variable PANTIQ_MISBEHAVE says what, in words
// separated by blanks: crash:N, hang:N, exit:N, throw:N, fail:N in the call of function code N, and the words below.
// Without it every frame is inverted: 24 bits, in place or by copy, one input.
#include <fcntl.h>
#include <pantiq/plugins/abi/freeframe1.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <string>

namespace {

std::size_t g_bytes = 0;

bool Told(const std::string& word) {
  const char* const told = std::getenv("PANTIQ_MISBEHAVE");
  return told != nullptr && (" " + std::string(told) + " ").find(" " + word + " ") != std::string::npos;
}

// Says first that it will not come back, by making the file that PANTIQ_MISBEHAVE_MARK names.
[[noreturn]] void Hang() {
  if (const char* const mark = std::getenv("PANTIQ_MISBEHAVE_MARK")) close(creat(mark, 0600));
  for (;;) pause();
}

void Invert(const std::uint8_t* from, std::uint8_t* to) {
  for (std::size_t i = 0; i < g_bytes; ++i) to[i] = static_cast<std::uint8_t>(255 - from[i]);
}

uintptr_t Capability(uintptr_t code) {
  if (Told("16bit")) return code == FF_CAP_16BITVIDEO;
  if (Told("no-depth")) return FF_FALSE;
  if (Told("minus-one-caps")) return FF_FAIL;
  switch (code) {
    case FF_CAP_24BITVIDEO:
      return !Told("32bit");
    case FF_CAP_32BITVIDEO:
      return Told("32bit");
    case FF_CAP_PROCESSFRAMECOPY:
      return Told("copy") || Told("lying-inputs") || Told("zero-inputs");
    case FF_CAP_MINIMUMINPUTFRAMES:
      return Told("lying-inputs") ? 0xFFFFFFF0u : Told("zero-inputs") ? 0 : 1;
    case FF_CAP_MAXIMUMINPUTFRAMES:
      return Told("lying-inputs") ? 1 : Told("zero-inputs") ? 0 : Told("copy") ? 7 : 1;
    case FF_CAP_COPYORINPLACE:
      return Told("copy") || Told("zero-inputs") ? uintptr_t{FF_OPTIMISED_FOR_COPY} : 0xABCDEF01u;
    default:
      return 0x100;  // neither true nor false
  }
}

}  // namespace

FF_PLUG_MAIN(code, input, instance) {
  // Sixteen letters and no end, between others that are no part of it.
  static const char endless[] = {'N', 'o', ' ', 'e', 'n', 'd', ' ', 't', 'o', ' ', 't', 'h', 'i', 's', ' ', 'n'};
  static const PluginExtendedInfoStruct empty = {7, 9, nullptr, nullptr};
  const std::string number = std::to_string(code);
  if (Told("crash:" + number)) std::raise(SIGSEGV);
  if (Told("exit:" + number)) _exit(3);
  if (Told("throw:" + number)) throw std::runtime_error("misbehaving");
  if (Told("fail:" + number)) return FF_FAIL;
  if (Told("hang:" + number)) Hang();
  switch (code) {
    case FF_INITIALISE:
      return Told("high-init") ? uintptr_t{0x70000} : FF_SUCCESS;
    case FF_GETPLUGINCAPS:
      return Capability(input);
    case FF_GETEXTENDEDINFO:
      return Told("empty-info") ? reinterpret_cast<uintptr_t>(&empty) : 0;
    case FF_GETNUMPARAMETERS:
      return Told("million") ? 1000000 : Told("names") ? 3 : 0;
    case FF_GETPARAMETERNAME:
      return input == 0 ? 0 : input == 1 ? ~uintptr_t{0} : reinterpret_cast<uintptr_t>(&endless);
    case FF_GETPARAMETERTYPE:
      return 4711;
    case FF_GETPARAMETERDEFAULT:
      return FF_BitsOf(0.75f);
    case FF_INSTANTIATE: {
      const auto* const video = reinterpret_cast<const VideoInfoStruct*>(input);
      const std::size_t size = video->BitDepth == FF_DEPTH_32 ? 4 : video->BitDepth == FF_DEPTH_24 ? 3 : 2;
      g_bytes = size * video->FrameWidth * video->FrameHeight;
      return 42;
    }
    case FF_PROCESSFRAME:
      if (instance != 42) return FF_FAIL;
      Invert(reinterpret_cast<const std::uint8_t*>(input), reinterpret_cast<std::uint8_t*>(input));
      return Told("dirty-failure") ? 5 : FF_SUCCESS;
    case FF_PROCESSFRAMECOPY: {
      const auto* const frames = reinterpret_cast<const ProcessFrameCopyStruct*>(input);
      if (!Told("writes-nothing")) {
        Invert(static_cast<const std::uint8_t*>(frames->ppInputFrames[0]),
               static_cast<std::uint8_t*>(frames->pOutputFrame));
      }
      return Told("dirty-failure") ? 5 : FF_SUCCESS;
    }
    default:
      return FF_FAIL;
  }
}
