// Where a sink of the program writes: a file, or standard output under the name "-". Every failure is one line that
// names the file and what the operating system said.
#pragma once
#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

#include "pantiq/host/PQStatus.h"

namespace pantiq::app {

// One thread at a time.
class OutputFile {
 public:
  OutputFile() = default;
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Replaces the file, or goes on at its end if this object has had it open before.
  PQStatus Open(const std::string& name);
  bool IsOpen() const { return file_ != nullptr; }
  PQStatus Write(const void* data, std::size_t bytes);
  PQStatus Write(std::string_view text) { return Write(text.data(), text.size()); }
  // What was written is with the operating system afterwards. Closing what is not open does nothing.
  PQStatus Close();

 private:
  PQStatus Fault(const char* what) const;
  std::FILE* file_ = nullptr;
  std::string name_;
};

}  // namespace pantiq::app
