// A lock that many may read and one may write, for component graphs.
//
// One thread may nest its holds in every order: read in read, read in write, write in write, write in read. A write
// inside a read upgrades: at once if the thread is the only reader, otherwise it gives up its own read holds, waits its
// turn, and takes them back afterwards, so two upgraders cannot block each other (what was read before the upgrade may
// then have changed). A thread that already reads passes waiting writers; a new reader does not.
//
// The end of a thread's outermost section, of whatever lock, is a moment at which it blocks nobody. Work that has to wait
// for other threads is put there with JCAtSectionEnd.
#pragma once
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>

#include "pantiq/PQExport.h"

namespace pantiq {

class PQ_EXPORT JCMultiReadLock {
 public:
  JCMultiReadLock() = default;
  JCMultiReadLock(const JCMultiReadLock&) = delete;
  JCMultiReadLock& operator=(const JCMultiReadLock&) = delete;

  void BeginRead();
  void EndRead() noexcept;
  void BeginWrite();
  void EndWrite() noexcept;

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int readers_ = 0;          // threads that read and do not write
  int waiting_writers_ = 0;
  bool writing_ = false;
};

// Entering and leaving a section that may block other threads. Sections count per thread.
PQ_EXPORT void JCEnterSection() noexcept;
PQ_EXPORT void JCLeaveSection() noexcept;
PQ_EXPORT int JCSectionDepth() noexcept;

// Work for the end of a section that needs no memory when it is put there: for destructors and stops.
class PQ_EXPORT JCSectionWork {
 public:
  virtual void Run() noexcept = 0;

 protected:
  ~JCSectionWork() = default;

 private:
  friend PQ_EXPORT void JCAtSectionEnd(JCSectionWork& work) noexcept;
  friend PQ_EXPORT void JCLeaveSection() noexcept;
  JCSectionWork* next_ = nullptr;
};

// Runs `work` at the end of the calling thread's outermost section; at once if the thread is in none. The work is put
// there once at a time, and lives until it has run.
PQ_EXPORT void JCAtSectionEnd(JCSectionWork& work) noexcept;
// The same for a function. What it throws at the end of a section has no caller to go to: it is reported and dropped.
PQ_EXPORT void JCAtSectionEnd(std::function<void()> work);

using JCLockRef = std::shared_ptr<JCMultiReadLock>;

// A read hold that ends with its scope. Neither copied nor moved: it stays on the thread that took it.
class [[nodiscard]] JCReadSection {
 public:
  explicit JCReadSection(JCLockRef lock) : lock_(std::move(lock)) {
    lock_->BeginRead();
    JCEnterSection();
  }
  ~JCReadSection() {
    lock_->EndRead();
    JCLeaveSection();
  }
  // Runs the work, which throws nothing, outside the hold: it may end the lock's owner, which then waits for the calls of
  // other threads if this section was the only one.
  template <class Work>
  void Outside(Work work) {
    lock_->EndRead();
    JCLeaveSection();
    work();
    lock_->BeginRead();
    JCEnterSection();
  }
  JCReadSection(const JCReadSection&) = delete;
  JCReadSection& operator=(const JCReadSection&) = delete;

 private:
  JCLockRef lock_;
};

// A write hold that ends with its scope.
class [[nodiscard]] JCWriteSection {
 public:
  explicit JCWriteSection(JCLockRef lock) : lock_(std::move(lock)) {
    lock_->BeginWrite();
    JCEnterSection();
  }
  ~JCWriteSection() {
    lock_->EndWrite();
    JCLeaveSection();
  }
  JCWriteSection(const JCWriteSection&) = delete;
  JCWriteSection& operator=(const JCWriteSection&) = delete;

 private:
  JCLockRef lock_;
};

// A recursive mutex that serialises the start, the stop and the frames of one component with state. Taken downstream
// only; its guard counts as a section.
class JCFrameMutex {
 public:
  class [[nodiscard]] Guard {
   public:
    explicit Guard(JCFrameMutex& mutex) : mutex_(mutex.mutex_) {
      mutex_.lock();
      JCEnterSection();
    }
    ~Guard() {
      mutex_.unlock();
      JCLeaveSection();
    }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

   private:
    std::recursive_mutex& mutex_;
  };

 private:
  std::recursive_mutex mutex_;
};

}  // namespace pantiq
