#include "pantiq/core/JCMultiReadLock.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace pantiq {
namespace {

// What the calling thread holds of one lock.
struct Hold {
  const JCMultiReadLock* lock;
  int reads;
  int writes;
};

struct ThreadState {
  std::vector<Hold> holds;
  std::vector<std::function<void()>> at_end;
  int depth = 0;
};

ThreadState& State() {
  thread_local ThreadState state;
  return state;
}

Hold& HoldOf(const JCMultiReadLock* lock) {
  auto& holds = State().holds;
  for (Hold& hold : holds) {
    if (hold.lock == lock) return hold;
  }
  holds.push_back({lock, 0, 0});
  return holds.back();
}

void DropIfFree(const JCMultiReadLock* lock) noexcept {
  auto& holds = State().holds;
  for (Hold& hold : holds) {
    if (hold.lock == lock && hold.reads == 0 && hold.writes == 0) {
      std::swap(hold, holds.back());
      holds.pop_back();
      return;
    }
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
  while (state.depth == 0 && !state.at_end.empty()) {
    auto work = std::move(state.at_end.front());
    state.at_end.erase(state.at_end.begin());
    work();
  }
}

int JCSectionDepth() noexcept { return State().depth; }

void JCAtSectionEnd(std::function<void()> work) {
  ThreadState& state = State();
  if (state.depth == 0) {
    work();
  } else {
    state.at_end.push_back(std::move(work));
  }
}

}  // namespace pantiq
