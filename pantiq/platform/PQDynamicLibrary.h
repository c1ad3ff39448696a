// The operating system's loader of shared objects.
#pragma once
#include <memory>
#include <string>

#include "pantiq/platform/PQPlatform.h"

namespace pantiq {

// A shared object in this process; unloaded with the object, unless somebody else holds the same file.
class PQ_EXPORT PQDynamicLibrary {
 public:
  // Loads a file with everything that it needs, its names kept apart from those of the program. A name without a folder
  // is a file of the current folder; the system's folders are not searched. Null, and the result tells why, if it is no
  // regular file, no shared object or a cut one, or built for another kind of processor: all this is looked at before
  // anything of it is run. The constructors of the file run on the calling thread. Any thread.
  static std::unique_ptr<PQDynamicLibrary> Load(const std::string& file, PQPlatformResult& result);
  ~PQDynamicLibrary();
  PQDynamicLibrary(const PQDynamicLibrary&) = delete;
  PQDynamicLibrary& operator=(const PQDynamicLibrary&) = delete;

  // The address of an exported name; null if there is none. Good as long as the library is loaded.
  void* Find(const char* name) const;

 private:
  explicit PQDynamicLibrary(void* handle) : handle_(handle) {}
  void* handle_;
};

// Ok if Load would find a shared object for this processor in the file: what can be told without loading it.
PQ_EXPORT PQPlatformResult PQLookAtLibrary(const std::string& file);

}  // namespace pantiq
