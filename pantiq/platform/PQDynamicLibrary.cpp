#include "pantiq/platform/PQDynamicLibrary.h"

#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <vector>

namespace pantiq {
namespace {

class File {
 public:
  // Not held up by a pipe that nobody writes to.
  explicit File(const char* name) : fd_(open(name, O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
  ~File() {
    if (fd_ >= 0) close(fd_);
  }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  int Descriptor() const { return fd_; }
  bool Read(void* to, std::size_t bytes, std::uint64_t at) const {
    return pread(fd_, to, bytes, static_cast<off_t>(at)) == static_cast<ssize_t>(bytes);
  }

 private:
  int fd_;
};

// The kind of processor that this program was built for, as its own file says.
std::uint16_t OwnMachine() {
  static const std::uint16_t machine = [] {
    Elf64_Ehdr header{};
    const File self("/proc/self/exe");
    return self.Descriptor() >= 0 && self.Read(&header, sizeof header, 0) ? header.e_machine : std::uint16_t{0};
  }();
  return machine;
}

// Relative names are files here, not names for the loader to search.
std::string PathOf(const std::string& file) { return file.find('/') == std::string::npos ? "./" + file : file; }

}  // namespace

PQPlatformResult PQLookAtLibrary(const std::string& file) {
  const auto refuse = [](long code, std::string why) { return PQPlatformResult{code, std::move(why)}; };
  if (file.find('\0') != std::string::npos) return refuse(kPlatformIo, "a file's name holds no zero byte");
  const File in(PathOf(file).c_str());
  struct stat info {};
  if (in.Descriptor() < 0 || fstat(in.Descriptor(), &info) != 0) {
    return refuse(kPlatformIo, errno == ENOENT ? "there is no such file" : std::strerror(errno));
  }
  if (S_ISDIR(info.st_mode)) return refuse(kPlatformIo, "that is a folder");
  if (!S_ISREG(info.st_mode)) return refuse(kPlatformIo, "that is no regular file");
  const auto size = static_cast<std::uint64_t>(info.st_size);
  constexpr const char* kNone = "that is no shared object";
  constexpr const char* kOther = "it is built for another kind of processor than this program";
  constexpr const char* kCut = "the file is cut short";
  unsigned char ident[EI_NIDENT];
  if (!in.Read(ident, sizeof ident, 0) || std::memcmp(ident, ELFMAG, SELFMAG) != 0)
    return refuse(kPlatformFormat, kNone);
  constexpr int kOrder = std::endian::native == std::endian::little ? ELFDATA2LSB : ELFDATA2MSB;
  if (ident[EI_CLASS] != (sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32) || ident[EI_DATA] != kOrder) {
    return refuse(kPlatformFormat, kOther);
  }
  Elf64_Ehdr header;
  if (!in.Read(&header, sizeof header, 0)) return refuse(kPlatformFormat, kCut);
  if (OwnMachine() != 0 && header.e_machine != OwnMachine()) return refuse(kPlatformFormat, kOther);
  if (header.e_type != ET_DYN || header.e_phentsize != sizeof(Elf64_Phdr)) return refuse(kPlatformFormat, kNone);
  // A file that ends before its segments do would load, and bring the process down when they are touched.
  std::vector<Elf64_Phdr> segments(header.e_phnum);
  if (!segments.empty() && !in.Read(segments.data(), segments.size() * sizeof(Elf64_Phdr), header.e_phoff)) {
    return refuse(kPlatformFormat, kCut);
  }
  for (const Elf64_Phdr& segment : segments) {
    if (segment.p_filesz > size || segment.p_offset > size - segment.p_filesz) return refuse(kPlatformFormat, kCut);
  }
  return {};
}

std::unique_ptr<PQDynamicLibrary> PQDynamicLibrary::Load(const std::string& file, PQPlatformResult& result) {
  result = PQLookAtLibrary(file);
  if (!result.Ok()) return nullptr;
  void* const handle = dlopen(PathOf(file).c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    const char* const text = dlerror();
    result = {kPlatformFormat, text != nullptr ? text : "it does not load"};
    return nullptr;
  }
  return std::unique_ptr<PQDynamicLibrary>(new PQDynamicLibrary(handle));
}

PQDynamicLibrary::~PQDynamicLibrary() {
  // A file that was opened twice is unloaded by whoever closes it last, with memory that the users of the other
  // opening wrote. The order of two closings is made here; the loader's own is hidden from the thread sanitizer.
  // Recursive, as a library that is unloaded may close another.
  static std::recursive_mutex closing;
  const std::lock_guard lock(closing);
  dlclose(handle_);
}

void* PQDynamicLibrary::Find(const char* name) const { return dlsym(handle_, name); }

}  // namespace pantiq
