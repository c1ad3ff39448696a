#include "pantiq/platform/PQModules.h"

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <sstream>
#include <system_error>

namespace pantiq {
namespace {

constexpr const char* kMediaFile = "libpantiq-gst.so";
constexpr const char* kMediaPackages =
    "install libgstreamer1.0-0 libgstreamer-plugins-base1.0-0 gstreamer1.0-plugins-base gstreamer1.0-plugins-good "
    "gstreamer1.0-plugins-ugly gstreamer1.0-libav, and build or install pantiq with PANTIQ_MEDIA=ON";

struct State {
  std::mutex mutex;
  PQMediaModule* loaded = nullptr;
  PQMediaModule* replaced = nullptr;
};

State& GetState() {
  static State* state = new State;  // never destroyed: threads may ask while the process ends
  return *state;
}

std::filesystem::path FolderOfProgram() {
  std::error_code error;
  const auto path = std::filesystem::read_symlink("/proc/self/exe", error);
  return error ? std::filesystem::path() : path.parent_path();
}

// The folder of the file that holds this function: the library if it is shared, else the program.
std::filesystem::path FolderOfLibrary() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<const void*>(&LoadMediaModule), &info) == 0 || info.dli_fname == nullptr) return {};
  std::error_code error;
  const auto path = std::filesystem::canonical(info.dli_fname, error);
  return error ? std::filesystem::path() : path.parent_path();
}

PQMediaModule* LoadFrom(const std::filesystem::path& file, PQPlatformResult& result) {
  void* handle = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    const char* text = dlerror();
    result = {kPlatformMissing, std::string(text != nullptr ? text : file.c_str()) + "; " + kMediaPackages};
    return nullptr;
  }
  const auto entry = reinterpret_cast<PQMediaModuleEntry>(dlsym(handle, kMediaModuleEntry));
  PQMediaModule* module = entry != nullptr ? entry(kMediaModuleAbi) : nullptr;
  if (module == nullptr) {
    dlclose(handle);
    result = {kPlatformMissing, file.string() + " is of another version of pantiq"};
    return nullptr;
  }
  return module;  // the handle stays open for ever
}

}  // namespace

std::vector<std::string> ModuleFolders() {
  std::vector<std::string> folders;
  const auto add = [&folders](const std::filesystem::path& folder) {
    if (folder.empty()) return;
    std::string text = folder.lexically_normal().string();
    if (std::find(folders.begin(), folders.end(), text) == folders.end()) folders.push_back(std::move(text));
  };
  if (const char* path = std::getenv("PANTIQ_MODULE_PATH")) {
    std::istringstream list(path);
    for (std::string folder; std::getline(list, folder, ':');) add(folder);
  }
  for (const auto& folder : {FolderOfProgram(), FolderOfLibrary()}) {
    if (folder.empty()) continue;
    add(folder);
    add(folder / "../lib/pantiq");
    add(folder / "pantiq");
  }
#ifdef PANTIQ_MODULE_BUILD_FOLDER
  add(PANTIQ_MODULE_BUILD_FOLDER);
#endif
#ifdef PANTIQ_MODULE_INSTALL_FOLDER
  add(PANTIQ_MODULE_INSTALL_FOLDER);
#endif
  return folders;
}

PQMediaModule* LoadMediaModule(PQPlatformResult& result) {
  result = {};
  State& state = GetState();
  const std::lock_guard lock(state.mutex);
  if (state.replaced != nullptr) return state.replaced;
  if (state.loaded != nullptr) return state.loaded;
  std::string looked_in;
  for (const std::string& folder : ModuleFolders()) {
    const std::filesystem::path file = std::filesystem::path(folder) / kMediaFile;
    if (access(file.c_str(), F_OK) != 0) {
      looked_in += (looked_in.empty() ? "" : ", ") + folder;
      continue;
    }
    state.loaded = LoadFrom(file, result);
    return state.loaded;
  }
  result = {kPlatformMissing,
            std::string(kMediaFile) + " is not installed (looked in " + looked_in + "); " + kMediaPackages};
  return nullptr;
}

void SetMediaModule(PQMediaModule* module) {
  State& state = GetState();
  const std::lock_guard lock(state.mutex);
  state.replaced = module;
}

}  // namespace pantiq
