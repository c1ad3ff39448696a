#include "pantiq/core/JCMultiReadLock.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "pantiq/host/PQReport.h"

namespace pantiq {
namespace {

// What the calling thread holds of one lock.
struct Hold {
  const JCMultiReadLock* lock;
  int reads;
  int writes;
};

// Room for what a thread usually holds, so that taking a lock in a destructor needs no memory.
constexpr std::size_t kFewHolds = 16;

struct ThreadState {
  Hold few[kFewHolds];
  std::size_t few_count = 0;
  std::vector<Hold> more;          // when there are many
  JCSectionWork* first = nullptr;  // what runs at the end of the outermost section, in order
  JCSectionWork* last = nullptr;
  int depth = 0;

  Hold* Find(const JCMultiReadLock* lock) noexcept {
    for (std::size_t i = 0; i < few_count; ++i) {
      if (few[i].lock == lock) return &few[i];
    }
    for (Hold& hold : more) {
      if (hold.lock == lock) return &hold;
    }
    return nullptr;
  }
};

ThreadState& State() {
  thread_local ThreadState state;
  return state;
}

Hold& HoldOf(const JCMultiReadLock* lock) {
  ThreadState& state = State();
  if (Hold* const hold = state.Find(lock)) return *hold;
  if (state.few_count < kFewHolds) return state.few[state.few_count++] = {lock, 0, 0};
  state.more.push_back({lock, 0, 0});
  return state.more.back();
}

void DropIfFree(const JCMultiReadLock* lock) noexcept {
  ThreadState& state = State();
  Hold* const hold = state.Find(lock);
  if (hold == nullptr || hold->reads != 0 || hold->writes != 0) return;
  if (state.more.empty()) {
    *hold = state.few[--state.few_count];
  } else {
    *hold = state.more.back();
    state.more.pop_back();
  }
}

}  // namespace

void JCMultiReadLock::BeginRead() {
  Hold& hold = HoldOf(this);
  if (hold.reads == 0 && hold.writes == 0) {
    std::unique_lock guard(mutex_);
    changed_.wait(guard, [this] { return !writing_ && waiting_writers_ == 0; });
    ++readers_;
  }
  ++hold.reads;
}

void JCMultiReadLock::EndRead() noexcept {
  Hold& hold = HoldOf(this);
  if (--hold.reads > 0 || hold.writes > 0) return;
  {
    std::lock_guard guard(mutex_);
    --readers_;
    changed_.notify_all();
  }
  DropIfFree(this);
}

void JCMultiReadLock::BeginWrite() {
  Hold& hold = HoldOf(this);
  if (hold.writes == 0) {
    std::unique_lock guard(mutex_);
    if (hold.reads > 0) {  // upgrade: the own read holds are given up for the time of the wait
      --readers_;
      changed_.notify_all();
    }
    ++waiting_writers_;
    changed_.wait(guard, [this] { return !writing_ && readers_ == 0; });
    --waiting_writers_;
    writing_ = true;
  }
  ++hold.writes;
}

void JCMultiReadLock::EndWrite() noexcept {
  Hold& hold = HoldOf(this);
  if (--hold.writes > 0) return;
  {
    std::lock_guard guard(mutex_);
    writing_ = false;
    if (hold.reads > 0) ++readers_;  // back to the holds from before the upgrade
    changed_.notify_all();
  }
  DropIfFree(this);
}

void JCEnterSection() noexcept { ++State().depth; }

void JCLeaveSection() noexcept {
  ThreadState& state = State();
  if (--state.depth > 0) return;
  while (state.depth == 0 && state.first != nullptr) {
    JCSectionWork* const work = state.first;
    state.first = std::exchange(work->next_, nullptr);
    work->Run();
  }
}

int JCSectionDepth() noexcept { return State().depth; }

void JCAtSectionEnd(JCSectionWork& work) noexcept {
  ThreadState& state = State();
  if (state.depth == 0) {
    work.Run();
    return;
  }
  (state.first != nullptr ? state.last->next_ : state.first) = &work;
  state.last = &work;
}

namespace {

struct FunctionWork final : JCSectionWork {
  explicit FunctionWork(std::function<void()> work) : function(std::move(work)) {}
  void Run() noexcept override {
    const std::unique_ptr<FunctionWork> self(this);
    try {
      function();
    } catch (...) {
      ReportCaught(nullptr, "what was put off to the end of a section failed");
    }
  }
  const std::function<void()> function;
};

}  // namespace

void JCAtSectionEnd(std::function<void()> work) {
  if (State().depth == 0) {
    work();
  } else {
    JCAtSectionEnd(*std::make_unique<FunctionWork>(std::move(work)).release());
  }
}

}  // namespace pantiq
