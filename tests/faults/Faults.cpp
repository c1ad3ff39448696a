#include "Faults.h"

#include <execinfo.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <thread>

#include "pantiq/core/JCStdTypes.h"
#include "pantiq/core/PQFramePool.h"

extern "C" {
void* __real_malloc(std::size_t size);
void* __real_aligned_alloc(std::size_t alignment, std::size_t size);
}

namespace {

// Everything here is plain memory: it is used inside operator new.
constexpr std::int64_t kNever = INT64_MAX / 2;
std::atomic<std::int64_t> g_left{kNever};  // allocations until the one that fails
std::atomic<std::int64_t> g_asked{0};
std::atomic<bool> g_armed{false}, g_persistent{false}, g_failed{false};
std::atomic<std::int64_t> g_live{0};
std::atomic<std::int64_t> g_faults{0}, g_scenarios{0};
thread_local int t_undisturbed = 0;
char g_what[200] = "nothing";
std::atomic<const char*> g_step{""};
void* g_stack[48];
int g_stack_depth = 0;

// Whether this allocation is the one.
bool Fails() noexcept {
  if (!g_armed.load(std::memory_order_relaxed) || t_undisturbed > 0) return false;
  g_asked.fetch_add(1, std::memory_order_relaxed);
  const std::int64_t left = g_left.fetch_sub(1) - 1;
  if (left > 0 || (left < 0 && !g_persistent.load())) return false;
  if (!g_failed.exchange(true)) g_stack_depth = backtrace(g_stack, 48);
  return true;
}

// What brings the process down is told with its place.
[[noreturn]] void Terminated() {
  std::fprintf(stderr, "std::terminate in %s, step %s; the allocation that failed:\n", g_what, g_step.load());
  backtrace_symbols_fd(g_stack, g_stack_depth, 2);
  void* here[48];
  std::fprintf(stderr, "and now:\n");
  backtrace_symbols_fd(here, backtrace(here, 48), 2);
  std::_Exit(70);
}

void* Allocate(std::size_t size, std::size_t alignment) noexcept {
  if (Fails()) return nullptr;
  if (size == 0) size = 1;
  void* block = nullptr;
  if (alignment <= alignof(std::max_align_t)) {
    block = __real_malloc(size);
  } else if (posix_memalign(&block, alignment, size) != 0) {
    block = nullptr;
  }
  if (block != nullptr) g_live.fetch_add(1, std::memory_order_relaxed);
  return block;
}

void* AllocateOrThrow(std::size_t size, std::size_t alignment) {
  void* const block = Allocate(size, alignment);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void Free(void* block) noexcept {
  if (block == nullptr) return;
  g_live.fetch_sub(1, std::memory_order_relaxed);
  std::free(block);
}

constexpr std::size_t kPlain = alignof(std::max_align_t);
std::size_t Of(std::align_val_t alignment) { return static_cast<std::size_t>(alignment); }

}  // namespace

void* operator new(std::size_t size) { return AllocateOrThrow(size, kPlain); }
void* operator new[](std::size_t size) { return AllocateOrThrow(size, kPlain); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size, kPlain); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size, kPlain); }
void* operator new(std::size_t size, std::align_val_t a) { return AllocateOrThrow(size, Of(a)); }
void* operator new[](std::size_t size, std::align_val_t a) { return AllocateOrThrow(size, Of(a)); }
void* operator new(std::size_t size, std::align_val_t a, const std::nothrow_t&) noexcept {
  return Allocate(size, Of(a));
}
void* operator new[](std::size_t size, std::align_val_t a, const std::nothrow_t&) noexcept {
  return Allocate(size, Of(a));
}
void operator delete(void* block) noexcept { Free(block); }
void operator delete[](void* block) noexcept { Free(block); }
void operator delete(void* block, std::size_t) noexcept { Free(block); }
void operator delete[](void* block, std::size_t) noexcept { Free(block); }
void operator delete(void* block, std::align_val_t) noexcept { Free(block); }
void operator delete[](void* block, std::align_val_t) noexcept { Free(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { Free(block); }
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept { Free(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { Free(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { Free(block); }
void operator delete(void* block, std::align_val_t, const std::nothrow_t&) noexcept { Free(block); }
void operator delete[](void* block, std::align_val_t, const std::nothrow_t&) noexcept { Free(block); }

// The linker leads the archives' own calls here (CMakeLists.txt).
extern "C" {
void* __wrap_malloc(std::size_t size) { return Fails() ? nullptr : __real_malloc(size); }
void* __wrap_aligned_alloc(std::size_t alignment, std::size_t size) {
  return Fails() ? nullptr : __real_aligned_alloc(alignment, size);
}
}

namespace pantiq::test {

Undisturbed::Undisturbed() noexcept { ++t_undisturbed; }
Undisturbed::~Undisturbed() { --t_undisturbed; }

bool Trial::Run(const char* name, void (*work)(void*), void* of) {
  g_step.store(name);
  const auto finding = [&](const char* what) {
    const Undisturbed own;
    if (finding_.empty()) finding_ = std::string(name) + " threw " + what;
  };
  try {
    work(of);
    return true;
  } catch (const std::bad_alloc&) {
    if (!Failed()) finding("bad_alloc although nothing failed");
  } catch (const std::exception& error) {
    finding(error.what());
  } catch (...) {
    finding("something that is no exception");
  }
  return false;
}

void Trial::Calm() { g_armed.store(false); }
bool Trial::Failed() const { return g_failed.load(); }
bool Trial::Persistent() const { return g_persistent.load(); }
void Trial::Saw(std::uint64_t number) {
  seen_ = (seen_ ^ number) * 1099511628211u;
  ++sights_;
}

namespace {

bool Long() {
  static const bool value = std::getenv("PANTIQ_TEST_LONG") != nullptr;
  return value;
}

// How many allocations of a scenario fail where a run takes long; 0: all.
#if defined(__SANITIZE_THREAD__)
constexpr std::int64_t kPlaces = 8;
#elif defined(__SANITIZE_ADDRESS__)
constexpr std::int64_t kPlaces = 30;
#else
constexpr std::int64_t kPlaces = 0;
#endif

}  // namespace

void EveryAllocation(const std::string& name, const std::function<void(Trial&)>& scenario) {
  void* warm[2];
  (void)backtrace(warm, 2);  // loads what it needs
  std::set_terminate(Terminated);
  (void)JCGlobalLock();  // made once, by whatever thread needs it first
  const std::int64_t faults_before = g_faults.load();
  const auto begin = std::chrono::steady_clock::now();
  ++g_scenarios;
  std::int64_t asked = 0;
  Trial first, second;
  const auto run = [&](std::int64_t nth, Failing failing, Trial& trial) {
    PQFramePool::Trim();
    const std::int64_t live = g_live.load(), blocks = PQFramePool::LiveBlocks();
    std::snprintf(g_what, sizeof g_what, "%s, allocation %lld%s", name.c_str(), static_cast<long long>(nth),
                  failing == Failing::Once ? "" : " and all after it");
    g_failed = false, g_persistent = failing == Failing::FromThereOn, g_asked = 0, g_left = nth;
    std::thread([&] {
      g_armed.store(true);
      scenario(trial);
      g_armed.store(false);
    }).join();
    g_step.store("after the run");
    asked = g_asked.load();
    g_faults += g_failed ? 1 : 0;
    PQFramePool::Trim();
    // A thread that ended itself lets go of what it holds a moment later.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    while (g_live.load() > live + 1 && &trial != &first && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::yield();
    }
    const std::int64_t kept = g_live.load() - live - (trial.finding_.capacity() > 15 ? 1 : 0);
    const std::int64_t frames = PQFramePool::LiveBlocks() - blocks;
    const bool good = trial.finding_.empty() && (&trial == &first || (kept <= 0 && frames == 0));
    if (!good) {
      ADD_FAILURE() << g_what << ": " << trial.finding_ << "; " << kept << " allocations and " << frames
                    << " frames are left";
      if (g_failed) {
        std::fprintf(stderr, "the allocation that failed:\n");
        backtrace_symbols_fd(g_stack, g_stack_depth, 2);
      }
    }
    return good;
  };
  ASSERT_TRUE(run(kNever, Failing::Once, first));  // what is made once a process is made here
  ASSERT_TRUE(run(kNever, Failing::Once, second));
  ASSERT_GT(second.sights_, 0) << name << " saw nothing";
  ASSERT_EQ(second.seen_, first.seen_) << name << " does not repeat itself";
  const std::int64_t stride = kPlaces > 0 && !Long() ? 1 + asked / kPlaces : 1;
  int bad = 0;
  for (const Failing failing : {Failing::Once, Failing::FromThereOn}) {
    for (std::int64_t nth = 1; bad < 5; nth += stride) {
      Trial trial;
      bad += !run(nth, failing, trial);
      if (trial.sights_ > 0 && trial.seen_ != second.seen_) {
        ADD_FAILURE() << g_what << ": comes out otherwise afterwards (" << trial.sights_ << " sights, expected "
                      << second.sights_ << ")";
        backtrace_symbols_fd(g_stack, g_stack_depth, 2);
        ++bad;
      }
      if (!g_failed) break;
    }
  }
  const auto spent = std::chrono::steady_clock::now() - begin;
  std::printf("%s: %lld failed allocations, %lld ms\n", name.c_str(),
              static_cast<long long>(g_faults.load() - faults_before),
              static_cast<long long>(std::chrono::duration_cast<std::chrono::milliseconds>(spent).count()));
}

std::string FaultsInjected() {
  return std::to_string(g_scenarios.load()) + " scenarios, " + std::to_string(g_faults.load()) + " failed allocations";
}

}  // namespace pantiq::test
