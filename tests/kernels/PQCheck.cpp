#include "kernels/PQCheck.h"

#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>

namespace pantiq::check {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

// Widths sit where vector loops end: small, or within two of a multiple of 16.
int DrawWidth(Random& random, const CheckShape& shape) {
  int width;
  switch (random.Below(4)) {
    case 0:
      width = random.Between(1, 24);
      break;
    case 1:
      width = std::max(1, 16 * random.Between(1, 12) + random.Between(-2, 2));
      break;
    case 2:
      width = random.Between(1, shape.max_width);
      break;
    default:
      width = random.Between(1, 100);
  }
  width = std::min(width, shape.max_width);
  return shape.even_width ? std::max(2, width & ~1) : width;
}

// Mostly the row or a little more; with free steps also 0, negative or less than a row.
int DrawStep(Random& random, int row_bytes, bool free_steps) {
  const int padded = row_bytes + (random.OneIn(2) ? 0 : random.Between(1, 67));
  if (!free_steps || random.OneIn(2)) return padded;
  switch (random.Below(4)) {
    case 0:
      return 0;
    case 1:
      return random.Between(1, row_bytes);
    default:
      return -padded;
  }
}

std::uint64_t Hash(const char* text) {
  std::uint64_t hash = 14695981039346656037u;
  for (; *text; ++text) hash = (hash ^ static_cast<unsigned char>(*text)) * 1099511628211u;
  return hash;
}

// What runs now, for the message that a touched guard page leaves behind.
char running[256];

extern "C" void ReportGuardPage(int) {
  static const char text[] = "\nmemory outside the rows touched: ";
  [[maybe_unused]] ssize_t written = write(STDERR_FILENO, text, sizeof(text) - 1);
  written = write(STDERR_FILENO, running, strnlen(running, sizeof(running)));
}

// Names the case, then lets the fault end the program. Sanitizers bring handlers of their own.
void WatchGuardPages() {
  if (kSanitized) return;
  struct sigaction action = {};
  action.sa_handler = ReportGuardPage;
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  sigaction(SIGSEGV, &action, nullptr);
  sigaction(SIGBUS, &action, nullptr);
}

}  // namespace

int CaseCount() {
  const char* text = std::getenv("PANTIQ_TEST_LONG");
  if (text != nullptr && std::strcmp(text, "1") == 0) return 10000;
  return kSanitized ? 50 : 500;
}

std::uint64_t Random::Next() {
  std::uint64_t z = (state_ += 0x9E3779B97F4A7C15u);
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
  return z ^ (z >> 31);
}

void Random::Fill(std::uint8_t* data, std::size_t count) {
  const int kind = Below(8);
  const std::uint8_t base = Byte(), slope = static_cast<std::uint8_t>(Between(1, 5));
  for (std::size_t i = 0; i < count; ++i) {
    switch (kind) {
      case 0:
        data[i] = OneIn(2) ? 0 : 255;
        break;
      case 1:
        data[i] = base;
        break;
      case 2:
        data[i] = static_cast<std::uint8_t>(base + slope * i);
        break;
      case 3:
        data[i] = static_cast<std::uint8_t>(base + Between(-2, 2));
        break;
      default:
        data[i] = Byte();
    }
  }
}

GuardedBlock::GuardedBlock(std::size_t size, bool at_end) : size_(size) {
  const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  const std::size_t inner = (size + page - 1) / page * page + (size == 0 ? page : 0);
  map_size_ = inner + 2 * page;
  void* map = mmap(nullptr, map_size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (map == MAP_FAILED) throw std::bad_alloc();
  map_ = static_cast<std::uint8_t*>(map);
  if (mprotect(map_ + page, inner, PROT_READ | PROT_WRITE) != 0) throw std::bad_alloc();
  data_ = map_ + page + (at_end ? inner - size : 0);
}

GuardedBlock::~GuardedBlock() { munmap(map_, map_size_); }

GuardedImage::GuardedImage(int row_bytes, int height, int step, bool at_end)
    : row_bytes_(row_bytes),
      height_(height),
      step_(step),
      first_(step < 0 ? static_cast<std::size_t>(-static_cast<long>(step)) * (height - 1) : 0),
      block_(static_cast<std::size_t>(std::abs(step)) * (height - 1) + row_bytes, at_end) {}

bool GuardedImage::IsPadding(std::size_t offset) const {
  const std::size_t step = static_cast<std::size_t>(std::abs(step_));
  return step > static_cast<std::size_t>(row_bytes_) && offset % step >= static_cast<std::size_t>(row_bytes_);
}

std::string GuardedImage::Where(std::size_t offset) const {
  std::ostringstream text;
  const std::size_t step = static_cast<std::size_t>(std::abs(step_));
  const std::size_t line = step == 0 ? 0 : std::min<std::size_t>(offset / step, height_ - 1);
  text << (IsPadding(offset) ? "padding, " : "") << "byte " << offset - line * step << " of row "
       << (step_ < 0 ? height_ - 1 - line : line);
  return text.str();
}

std::vector<PQVariant> RunnableVariants(const PQKernelInfo& kernel) {
  std::vector<PQVariant> runnable;
  for (int v = 0; v < kPQVariantCount; ++v) {
    if (kernel.entries[v] != nullptr && PQCanRun(static_cast<PQVariant>(v))) {
      runnable.push_back(static_cast<PQVariant>(v));
    }
  }
  return runnable;
}

void CheckAgainstPlain(const char* name, const CheckShape& shape,
                       const std::function<IppStatus(PQVariant, CheckCase&)>& run) {
  const PQKernelInfo* kernel = PQFindKernel(name);
  ASSERT_NE(kernel, nullptr) << name << " is not in the registry";
  const std::vector<PQVariant> variants = RunnableVariants(*kernel);
  const int cases = std::max(1, static_cast<int>(CaseCount() * shape.cases));
  WatchGuardPages();
  int reports = 0;
  for (int number = 0; number < cases && reports < 3; ++number) {
    Random random(Hash(name) + static_cast<std::uint64_t>(number) * 0x1000003u);
    CheckCase c;
    const int width = DrawWidth(random, shape);
    const int height = random.OneIn(3) ? 1 : random.Between(1, random.OneIn(4) ? shape.max_height : 6);
    c.roi = {width, height};
    const auto row = [](const std::function<int(int)>& own, int pixels, int channels) {
      return own ? own(pixels) : pixels * channels;
    };
    std::unique_ptr<GuardedImage> src[2];
    for (int s = 0; s < shape.sources; ++s) {
      const int bytes = row(shape.src_row, width + 2 * shape.margin, shape.src_channels);
      const int step = DrawStep(random, bytes, shape.free_steps && shape.margin == 0);
      src[s] = std::make_unique<GuardedImage>(bytes, height + 2 * shape.margin, step, random.OneIn(2));
      random.Fill(src[s]->block().data(), src[s]->block().size());
      c.src[s] = {src[s]->data() + static_cast<long>(shape.margin) * step + shape.margin * shape.src_channels, step};
    }
    std::unique_ptr<GuardedImage> dst;
    std::vector<std::uint8_t> before, expected, expected_extra;
    if (shape.dst_channels > 0) {
      const int bytes = row(shape.dst_row, width, shape.dst_channels);
      dst = std::make_unique<GuardedImage>(bytes, height, DrawStep(random, bytes, shape.free_steps), random.OneIn(2));
      random.Fill(dst->block().data(), dst->block().size());
      c.dst = {dst->data(), dst->step()};
      before.assign(dst->block().data(), dst->block().data() + dst->block().size());
    }
    c.random = random;
    IppStatus expected_status = 0;
    for (const PQVariant variant : variants) {
      CheckCase own = c;
      if (dst) std::memcpy(dst->block().data(), before.data(), before.size());
      std::snprintf(running, sizeof(running),
                    "%s, variant %s, case %d, %d by %d, source step %d, destination step %d\n", name,
                    PQVariantName(variant), number, width, height, c.src[0].step, c.dst.step);
      const IppStatus status = run(variant, own);
      std::ostringstream report;
      if (variant == PQVariant::px) {
        expected_status = status;
        expected_extra = own.extra;
        if (dst) expected.assign(dst->block().data(), dst->block().data() + dst->block().size());
        for (std::size_t i = 0; i < expected.size(); ++i) {
          if (expected[i] != before[i] && dst->IsPadding(i)) {
            report << "  wrote into " << dst->Where(i) << '\n';
            break;
          }
        }
      } else {
        if (status != expected_status) report << "  status " << status << ", px gives " << expected_status << '\n';
        if (own.extra != expected_extra) report << "  a result besides the pixels differs from px\n";
        for (std::size_t i = 0; i < expected.size(); ++i) {
          if (dst->block().data()[i] != expected[i]) {
            report << "  first difference at " << dst->Where(i) << ": " << int(dst->block().data()[i]) << ", px gives "
                   << int(expected[i]) << '\n';
            break;
          }
        }
      }
      if (report.str().empty()) continue;
      ++reports;
      ADD_FAILURE() << name << ", variant " << PQVariantName(variant) << ", case " << number << ", " << width << " by "
                    << height << ", source step " << c.src[0].step << ", destination step " << c.dst.step << '\n'
                    << report.str();
    }
  }
}

}  // namespace pantiq::check
