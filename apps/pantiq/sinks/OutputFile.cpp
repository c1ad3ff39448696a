#include "OutputFile.h"

#include <cerrno>
#include <cstring>

namespace pantiq::app {

OutputFile::~OutputFile() { Close().IgnoreError(); }

PQStatus OutputFile::Fault(const char* what) const {
  const std::string place = name_ == "-" ? "standard output" : "'" + name_ + "'";
  return PQStatus(PQCode::Io, std::string(what) + " " + place + ": " + std::strerror(errno));
}

PQStatus OutputFile::Open(const std::string& name) {
  if (IsOpen()) return {};
  const bool again = name == name_;
  name_ = name;
  if (name == "-") {
    file_ = stdout;
    return {};
  }
  file_ = std::fopen(name.c_str(), again ? "abe" : "wbe");
  if (file_ != nullptr) return {};
  PQStatus status = Fault("cannot create");
  name_.clear();
  return status;
}

PQStatus OutputFile::Write(const void* data, std::size_t bytes) {
  if (bytes == 0 || std::fwrite(data, 1, bytes, file_) == bytes) return {};
  return Fault("cannot write to");
}

PQStatus OutputFile::Close() {
  std::FILE* file = file_;
  file_ = nullptr;
  if (file == nullptr) return {};
  const int result = file == stdout ? std::fflush(file) : std::fclose(file);
  return result == 0 ? PQStatus() : Fault("cannot write to");
}

}  // namespace pantiq::app
