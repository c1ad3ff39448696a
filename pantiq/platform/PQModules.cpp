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

// One kind of module: its file, its function, and what to install where it is missing.
struct ModuleKind {
  const char* file;
  const char* entry;
  int abi;
  const char* packages;
};

template <class Module>
class ModuleSlot {
 public:
  explicit ModuleSlot(const ModuleKind& kind) : kind_(kind) {}

  Module* Load(PQPlatformResult& result) {
    result = {};
    const std::lock_guard lock(mutex_);
    if (replaced_ != nullptr) return replaced_;
    if (loaded_ != nullptr) return loaded_;
    std::string looked_in;
    for (const std::string& folder : ModuleFolders()) {
      const std::filesystem::path file = std::filesystem::path(folder) / kind_.file;
      if (access(file.c_str(), F_OK) == 0) {
        loaded_ = LoadFrom(file, result);
        return loaded_;
      }
      looked_in += (looked_in.empty() ? "" : ", ") + folder;
    }
    result = {kPlatformMissing,
              std::string(kind_.file) + " is not installed (looked in " + looked_in + "); " + kind_.packages};
    return nullptr;
  }

  void Replace(Module* module) {
    const std::lock_guard lock(mutex_);
    replaced_ = module;
  }

 private:
  Module* LoadFrom(const std::filesystem::path& file, PQPlatformResult& result) const {
    void* handle = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
      const char* text = dlerror();
      result = {kPlatformMissing, std::string(text != nullptr ? text : file.c_str()) + "; " + kind_.packages};
      return nullptr;
    }
    const auto entry = reinterpret_cast<Module* (*)(int)>(dlsym(handle, kind_.entry));
    Module* module = entry != nullptr ? entry(kind_.abi) : nullptr;
    if (module == nullptr) {
      dlclose(handle);
      result = {kPlatformMissing, file.string() + " is of another version of pantiq"};
      return nullptr;
    }
    return module;  // the handle stays open for ever
  }

  const ModuleKind kind_;
  std::mutex mutex_;
  Module* loaded_ = nullptr;
  Module* replaced_ = nullptr;
};

// The slots are never destroyed: threads may ask while the process ends.
ModuleSlot<PQMediaModule>& MediaSlot() {
  static auto* slot = new ModuleSlot<PQMediaModule>(
      {"libpantiq-gst.so", kMediaModuleEntry, kMediaModuleAbi,
       "install libgstreamer1.0-0 libgstreamer-plugins-base1.0-0 gstreamer1.0-plugins-base gstreamer1.0-plugins-good "
       "gstreamer1.0-plugins-ugly gstreamer1.0-libav, and build or install pantiq with PANTIQ_MEDIA=ON"});
  return *slot;
}

ModuleSlot<PQCodecManager>& CodecSlot() {
  static auto* slot = new ModuleSlot<PQCodecManager>(
      {"libpantiq-av.so", kCodecManagerEntry, kCodecManagerAbi,
       "install libavcodec59 libavformat59 libavutil57 libswscale6, and build or install pantiq with PANTIQ_MEDIA=ON"});
  return *slot;
}

ModuleSlot<PQDialogModule>& DialogSlot() {
  static auto* slot = new ModuleSlot<PQDialogModule>(
      {"libpantiq-qt.so", kDialogModuleEntry, kDialogModuleAbi,
       "install libqt6widgets6, and build or install pantiq with PANTIQ_DIALOGS=ON"});
  return *slot;
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
#ifdef PANTIQ_MODULE_LIBRARY_FOLDER
    add(folder / ".." / PANTIQ_MODULE_LIBRARY_FOLDER / "pantiq");
#endif
    add(folder / "pantiq");
  }
#ifdef PANTIQ_MODULE_BUILD_FOLDER
  add(PANTIQ_MODULE_BUILD_FOLDER);
#endif
#ifdef PANTIQ_MODULE_INSTALL_FOLDER
  add(PANTIQ_MODULE_INSTALL_FOLDER);
#endif
  add("/usr/lib/pantiq");  // of a package: a program that is linked with its archives lies anywhere
  return folders;
}

PQMediaModule* LoadMediaModule(PQPlatformResult& result) { return MediaSlot().Load(result); }
void SetMediaModule(PQMediaModule* module) { MediaSlot().Replace(module); }

PQCodecManager* LoadCodecManager(PQPlatformResult& result) { return CodecSlot().Load(result); }
void SetCodecManager(PQCodecManager* manager) { CodecSlot().Replace(manager); }

PQDialogModule* LoadDialogModule(PQPlatformResult& result) { return DialogSlot().Load(result); }
void SetDialogModule(PQDialogModule* module) { DialogSlot().Replace(module); }

}  // namespace pantiq
