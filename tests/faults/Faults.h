// Allocations that fail when a test wants it: every form of operator new, and what the library takes from the C heap
// (frames, kernels' work memory).
#pragma once
#include <cstdint>
#include <exception>
#include <functional>
#include <string>

namespace pantiq::test {

enum class Failing {
  Once,         // the n-th allocation alone
  FromThereOn,  // the n-th and all that follow, until the trial ends
};

// While it lives, what this thread allocates is the test's own: it never fails and is not counted.
class Undisturbed {
 public:
  Undisturbed() noexcept;
  ~Undisturbed();
  Undisturbed(const Undisturbed&) = delete;
  Undisturbed& operator=(const Undisturbed&) = delete;
};

// One run of a scenario, with one failure or none.
class Trial {
 public:
  // Runs a step. False if it threw; anything but a lack of memory is a finding.
  template <class Work>
  bool Step(const char* name, Work work) {
    return Run(
        name, [](void* of) { (*static_cast<Work*>(of))(); }, &work);
  }
  // From here on nothing fails any more.
  void Calm();
  bool Failed() const;      // an allocation has failed
  bool Persistent() const;  // and all after it fail
  // What the scenario saw of a run that has to come out the same whatever failed before.
  void Saw(std::uint64_t number);

 private:
  bool Run(const char* name, void (*work)(void*), void* of);
  friend void EveryAllocation(const std::string& name, const std::function<void(Trial&)>& scenario);
  std::uint64_t seen_ = 14695981039346656037u;
  int sights_ = 0;
  std::string finding_;
};

// Runs the scenario undisturbed, then with the first allocation failing, the second, and so on until a run has fewer;
// then the same with all that follow failing too. Every run gets a thread of its own and has to give its memory and its
// frames back; those that see what the undisturbed run saw count it with Saw. Under sanitizers, unless PANTIQ_TEST_LONG
// is set, only some of the allocations fail.
void EveryAllocation(const std::string& name, const std::function<void(Trial&)>& scenario);

// Sums over all scenarios so far, for the record.
std::string FaultsInjected();

}  // namespace pantiq::test
