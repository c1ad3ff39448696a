#include "pantiq/plugins/PQPluginLibrary.h"

#include <cfenv>
#include <cstring>

#include "pantiq/platform/PQDynamicLibrary.h"

namespace pantiq {
namespace {

// A plug-in may set rounding and denormals as it likes; kernels must not notice.
class FloatModes {
 public:
  FloatModes() noexcept { std::fegetenv(&modes_); }
  ~FloatModes() { std::fesetenv(&modes_); }
  FloatModes(const FloatModes&) = delete;
  FloatModes& operator=(const FloatModes&) = delete;

 private:
  std::fenv_t modes_;
};

const char* AsText(std::uintptr_t answer) noexcept {
  return PQIsPluginFailure(answer) ? nullptr : reinterpret_cast<const char*>(answer);
}

std::string Copy(const char* text, std::size_t most) {
  return text != nullptr ? std::string(text, strnlen(text, most)) : std::string();
}

class OwnProcess final : public PQPluginLibrary {
 public:
  OwnProcess(std::unique_ptr<PQDynamicLibrary> library, FF_Main main) : library_(std::move(library)), main_(main) {}

  std::uintptr_t Call(std::uint32_t function, std::uintptr_t input, std::uintptr_t instance_id) noexcept override {
    const FloatModes modes;
    try {
      return main_(function, input, instance_id);
    } catch (...) {
      NoteException(function);
      return 0;
    }
  }

  std::optional<std::string> Text(std::uint32_t function, std::uintptr_t input, std::uintptr_t instance_id,
                                  std::size_t most) override {
    const char* const text = AsText(Call(function, input, instance_id));
    if (text == nullptr) return std::nullopt;
    return Copy(text, most);
  }

  std::optional<PQPluginExtendedInfo> ExtendedInfo() override {
    const std::uintptr_t answer = Call(FF_GETEXTENDEDINFO, 0, 0);
    if (answer == 0 || PQIsPluginFailure(answer)) return std::nullopt;
    const auto& record = *reinterpret_cast<const PluginExtendedInfoStruct*>(answer);
    PQPluginExtendedInfo info;
    info.major = static_cast<std::int32_t>(record.PluginMajorVersion);
    info.minor = static_cast<std::int32_t>(record.PluginMinorVersion);
    info.description = Copy(record.Description, kPQMostPluginText);
    info.about = Copy(record.About, kPQMostPluginText);
    return info;
  }

 private:
  std::unique_ptr<PQDynamicLibrary> library_;
  const FF_Main main_;
};

}  // namespace

std::string PQPluginFunctionName(std::uint32_t function) {
  static constexpr const char* kNames[] = {
      "FF_GETINFO",          "FF_INITIALISE",       "FF_DEINITIALISE",        "FF_PROCESSFRAME",
      "FF_GETNUMPARAMETERS", "FF_GETPARAMETERNAME", "FF_GETPARAMETERDEFAULT", "FF_GETPARAMETERDISPLAY",
      "FF_SETPARAMETER",     "FF_GETPARAMETER",     "FF_GETPLUGINCAPS",       "FF_INSTANTIATE",
      "FF_DEINSTANTIATE",    "FF_GETEXTENDEDINFO",  "FF_PROCESSFRAMECOPY",    "FF_GETPARAMETERTYPE"};
  return function < std::size(kNames) ? kNames[function] : "function " + std::to_string(function);
}

std::optional<std::uint32_t> PQPluginLibrary::TakeException() noexcept {
  if (thrown_.load(std::memory_order_relaxed) == kNothing) return std::nullopt;
  const std::uint32_t function = thrown_.exchange(kNothing, std::memory_order_relaxed);
  if (function == kNothing) return std::nullopt;
  return function;
}

std::shared_ptr<PQPluginLibrary> PQLoadPlugin(const std::string& file, PQPlatformResult& result) {
  std::unique_ptr<PQDynamicLibrary> library;
  try {
    library = PQDynamicLibrary::Load(file, result);
  } catch (...) {  // a constructor of the file
    result = {kPlatformFailed, "it raised an exception while it was loaded"};
  }
  if (library == nullptr) return nullptr;
  const auto main = reinterpret_cast<FF_Main>(library->Find(FF_ENTRY_NAME));
  if (main == nullptr) {
    result = {kPlatformFormat, "it has no function " FF_ENTRY_NAME ", so it is no plug-in"};
    return nullptr;
  }
  return std::make_shared<OwnProcess>(std::move(library), main);
}

}  // namespace pantiq
