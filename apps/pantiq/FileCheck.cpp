#include "FileCheck.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <utility>

#include "pantiq/host/PQCollection.h"
#include "pantiq/host/PQPicture.h"
#include "pantiq/platform/PQDynamicLibrary.h"
#include "pantiq/plugins/PQFreeFrame.h"
#include "sinks/FramesSink.h"

namespace pantiq::app {
namespace {

constexpr const char* kWritable = "a new file in a folder that can be written, or --overwrite";

struct NamedFile {
  TComponent* component;
  std::string property, name;
  PQFileUse use;
};

void Collect(TComponent& component, TPersistent& object, const std::string& prefix, std::vector<NamedFile>& files) {
  for (const PQProperty& property : PQAllProperties(object)) {
    const std::string path = prefix + property.name;
    if (property.file_use != PQFileUse::None && property.get) {
      const PQValue value = property.get(object);
      if (value.Text() != nullptr && !value.Text()->empty()) {
        files.push_back({&component, path, *value.Text(), property.file_use});
      }
    } else if (property.object && property.kind == PQKind::Picture) {
      const auto* picture = PQCast<const TPicture>(property.object(object));
      const std::string name = picture != nullptr ? picture->GetFileName() : std::string();
      if (!name.empty()) files.push_back({&component, path, name, PQFileUse::Read});
    } else if (property.object && property.kind == PQKind::Object) {
      if (TPersistent* part = property.object(object)) Collect(component, *part, path + ".", files);
    } else if (property.object && property.kind == PQKind::Collection) {
      auto* collection = PQCast<TCollection>(property.object(object));
      for (int i = 0; collection != nullptr && i < collection->GetCount(); ++i) {
        Collect(component, *collection->GetItem(i), path + "[" + std::to_string(i) + "].", files);
      }
    }
  }
}

// The file behind a name, whatever the way to it; an absent file by its folder.
using Identity = std::pair<std::pair<dev_t, ino_t>, std::string>;
bool Identify(const std::string& name, Identity& identity) {
  struct stat info;
  if (stat(name.c_str(), &info) == 0) {
    identity = {{info.st_dev, info.st_ino}, {}};
    return S_ISREG(info.st_mode);
  }
  const std::filesystem::path path(name);
  const std::string folder = path.parent_path().empty() ? "." : path.parent_path().string();
  if (stat(folder.c_str(), &info) != 0) return false;
  identity = {{info.st_dev, info.st_ino}, path.filename().string()};
  return true;
}

std::string WhyFolderNotWritable(const std::string& folder) {
  struct stat info;
  if (stat(folder.c_str(), &info) != 0) return "the folder '" + folder + "' cannot be used: " + std::strerror(errno);
  if (!S_ISDIR(info.st_mode)) return "'" + folder + "' is no folder";
  if (access(folder.c_str(), W_OK | X_OK) != 0)
    return "no file can be made in '" + folder + "': " + std::strerror(errno);
  return {};
}

std::string WhyNotReadable(const std::string& name) {
  struct stat info;
  if (stat(name.c_str(), &info) != 0) return errno == ENOENT ? "there is no such file" : std::strerror(errno);
  if (S_ISDIR(info.st_mode)) return "that is a folder";
  if (!S_ISREG(info.st_mode)) return "that is no regular file";
  if (access(name.c_str(), R_OK) != 0) return std::strerror(errno);
  if (info.st_size == 0) return "the file is empty (0 bytes)";
  return {};
}

std::string WhyNotWritable(const FramesSink& sink, bool overwrite) {
  const std::vector<std::string> existing = sink.ExistingOutputs();
  if (!existing.empty() && !overwrite) {
    return "'" + existing.front() + "' exists" +
           (existing.size() > 1 ? ", and " + std::to_string(existing.size() - 1) + " more" : std::string());
  }
  return WhyFolderNotWritable(sink.OutputFolder());
}

PQFault FaultOf(const NamedFile& file, const std::string& why, const char* expected) {
  PQFault fault;
  const std::string& name = file.component->GetName();
  fault.component = name.empty() ? file.component->ClassInfo().Name() : name;
  fault.property = file.property, fault.value = file.name, fault.expected = expected;
  fault.text = fault.component + ": " + file.property + " = '" + file.name + "': " + why + "; expected " + expected;
  return fault;
}

}  // namespace

std::string WhyNotWritable(const std::string& name, bool overwrite) {
  struct stat info;
  if (stat(name.c_str(), &info) == 0) {
    if (S_ISDIR(info.st_mode)) return "that is a folder";
    if (access(name.c_str(), W_OK) != 0) return std::strerror(errno);
    return S_ISREG(info.st_mode) && !overwrite ? "the file exists" : "";
  }
  if (errno != ENOENT) return std::strerror(errno);
  const std::string folder = std::filesystem::path(name).parent_path().string();
  return WhyFolderNotWritable(folder.empty() ? "." : folder);
}

void CheckFiles(std::span<TComponent* const> components, bool overwrite, std::vector<PQFault>& faults) {
  std::vector<NamedFile> files;
  for (TComponent* component : components) Collect(*component, *component, "", files);
  std::map<Identity, const NamedFile*> inputs, outputs;
  for (const NamedFile& file : files) {
    if (file.use != PQFileUse::Read) continue;
    if (const std::string why = WhyNotReadable(file.name); !why.empty()) {
      faults.push_back(FaultOf(file, why, "a file that can be read"));
    } else if (PQCast<TPQFreeFrame>(file.component) != nullptr) {
      const PQPlatformResult look = PQLookAtLibrary(file.name);
      if (!look.Ok()) faults.push_back(FaultOf(file, look.detail, "a plug-in: a shared object for this processor"));
    }
    if (Identity identity; Identify(file.name, identity)) inputs.emplace(identity, &file);
  }
  for (const NamedFile& file : files) {
    if (file.use != PQFileUse::Write) continue;
    const bool sink = PQCast<ProgramSink>(file.component) != nullptr;
    if (sink && file.name == "-") {
      if (const auto [first, fresh] = outputs.emplace(Identity{{0, 0}, "-"}, &file); !fresh) {
        faults.push_back(FaultOf(
            file, "standard output is written by " + first->second->component->GetName() + " already", "another file"));
      }
      continue;
    }
    Identity identity;
    const bool known = Identify(file.name, identity);
    if (const auto input = inputs.find(identity); known && input != inputs.end()) {
      faults.push_back(
          FaultOf(file, "that is also the input of " + input->second->component->GetName(), "another file"));
      continue;
    }
    if (known) {
      if (const auto [first, fresh] = outputs.emplace(identity, &file); !fresh) {
        faults.push_back(
            FaultOf(file, "that is also the output of " + first->second->component->GetName(), "another file"));
        continue;
      }
    }
    const auto* frames = PQCast<FramesSink>(file.component);
    const std::string why =
        frames != nullptr ? WhyNotWritable(*frames, overwrite) : WhyNotWritable(file.name, overwrite);
    if (!why.empty()) faults.push_back(FaultOf(file, why, kWritable));
  }
}

bool UsesStandardOutput(std::span<TComponent* const> components) {
  for (TComponent* component : components) {
    const auto* sink = PQCast<ProgramSink>(component);
    if (sink != nullptr && sink->WritesToStandardOutput()) return true;
  }
  return false;
}

}  // namespace pantiq::app
