// TComponent: an object with a name, published properties and, if it wants, an owner that destroys it.
//
// Lifetime. An owner destroys its components in reverse order of creation; without an owner use PQMake, or put the
// object on the stack. However it dies, `BeforeDestruction` runs exactly once before any member of the most derived
// class dies: each concrete class is final and calls BeforeDestructionOnce() first thing in its destructor.
//
// Threads. Creating, naming, owning and destroying belong to one thread at a time, the owner-thread.
#pragma once
#include <atomic>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "pantiq/host/PQPersistent.h"

namespace pantiq {

// True for letters, digits and underscores, not starting with a digit: what names of components look like.
PQ_EXPORT bool PQIsIdentifier(std::string_view text);

class PQ_EXPORT TComponent : public TPersistent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TComponent(TComponent* owner = nullptr);
  ~TComponent() override;

  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  const std::string& GetName() const { return name_; }
  // Letters, digits and underscores, not starting with a digit, unique among the owner's components; empty is allowed.
  PQStatus SetName(const std::string& name);

  TComponent* GetOwner() const { return owner_; }
  const std::vector<TComponent*>& GetComponents() const { return components_; }
  TComponent* FindComponent(std::string_view name) const;

  // Called once after all properties and connections of a stored component have been read.
  virtual void Loaded() {}

  // True between the first property read from a stream and Loaded().
  bool IsLoading() const { return loading_; }
  void SetLoading(bool loading) { loading_ = loading; }

  // True for a component that is looked at and edited but does not run: it loads no plug-ins and opens no devices.
  bool IsDesigning() const { return designing_; }
  void SetDesigning(bool designing) { designing_ = designing; }

  // Any thread.
  bool IsDestroying() const { return destroying_.load(); }

  // Runs BeforeDestruction unless it has run. Concrete destructors and PQOwned's deleter call it.
  void BeforeDestructionOnce();

 protected:
  // Disconnects pins, ends threads. Overriders call the inherited operation last.
  virtual void BeforeDestruction() {}

 private:
  TComponent* owner_ = nullptr;
  std::vector<TComponent*> components_;
  std::string name_;
  bool loading_ = false, designing_ = false;
  std::atomic<bool> destroying_{false};  // threads of the component ask while another ends it
};

struct PQ_EXPORT PQComponentDeleter {
  void operator()(TComponent* component) const {
    if (component == nullptr) return;
    component->BeforeDestructionOnce();
    delete component;
  }
};

// Sole owner of a component that has no owner component.
template <class T>
using PQOwned = std::unique_ptr<T, PQComponentDeleter>;

template <class T, class... Args>
PQOwned<T> PQMake(Args&&... args) {
  return PQOwned<T>(new T(nullptr, std::forward<Args>(args)...));
}

}  // namespace pantiq
