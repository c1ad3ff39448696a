// The ground of the pin framework: lock carriers, stream identities, operations.
//
// Everything that passes between two components is an operation object. It is made by its sender, handed along the wires
// by reference and released by its last holder; a receiver that keeps it takes a PQRef.
#pragma once
#include <cstdint>

#include "pantiq/core/JCMultiReadLock.h"
#include "pantiq/core/PQPool.h"
#include "pantiq/host/PQPersistent.h"
#include "pantiq/host/PQRef.h"

namespace pantiq {

// A 128-bit identity.
struct TGUID {
  std::uint32_t d1;
  std::uint16_t d2, d3;
  std::uint8_t d4[8];
};

// Carries the lock of a component, a pin, a list. Objects that joined one another have one lock.
class PQ_EXPORT TJCObject : public TPersistent {
 public:
  static const PQClassTag kTag;
  TJCObject() : lock_(std::make_shared<JCMultiReadLock>()) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }

  // Holds that end with their scope. Any thread.
  JCReadSection ReadLock() const { return JCReadSection(lock_); }
  JCWriteSection WriteLock() const { return JCWriteSection(lock_); }

  void BeginRead() const { lock_->BeginRead(); }
  void EndRead() const noexcept { lock_->EndRead(); }
  void BeginWrite() const { lock_->BeginWrite(); }
  void EndWrite() const noexcept { lock_->EndWrite(); }

  // From now on this object's lock is `other`'s. To be called before any thread may hold it: in constructors.
  void AddShareLock(const TJCObject& other) { lock_ = other.lock_; }

 private:
  JCLockRef lock_;
};

// The lock of a thread that walks connections across several components. Taken before any component's lock.
class PQ_EXPORT TJCGlobalLockObject : public TJCObject {};
PQ_EXPORT TJCGlobalLockObject& JCGlobalLock();

// Carried along with an operation; nobody acts on them.
struct TJCNotifyFlags {
  std::uint8_t bits = 0;
};
// What the receivers of an operation returned, joined.
struct TJCNotifyResult {
  std::uint8_t bits = 0;
  TJCNotifyResult& operator|=(TJCNotifyResult other) noexcept {
    bits = static_cast<std::uint8_t>(bits | other.bits);
    return *this;
  }
};

class TJCNotifyOperation;

// What travels: any object that can be asked for its operation.
class PQ_EXPORT IJCNotifyOperation : public PQRefCounted, public PQPooled {
 public:
  static const PQClassTag kTag;
  const PQClassTag& Tag() const noexcept { return *tag_; }
  // The operation object, to be tested for its class with PQCast<T>(op.Instance()).
  TJCNotifyOperation* Instance() noexcept;

 protected:
  explicit IJCNotifyOperation(const PQClassTag& tag) noexcept : tag_(&tag) {}

 private:
  const PQClassTag* tag_;
};

// Root of all operation classes. A descendant passes its own tag to the constructor.
class PQ_EXPORT TJCNotifyOperation : public IJCNotifyOperation {
 public:
  static const PQClassTag kTag;

 protected:
  explicit TJCNotifyOperation(const PQClassTag& tag) noexcept : IJCNotifyOperation(tag) {}
};

inline TJCNotifyOperation* IJCNotifyOperation::Instance() noexcept { return static_cast<TJCNotifyOperation*>(this); }

// Class test of an operation: the operation as To, or null.
template <class To>
To* JCOperation(IJCNotifyOperation& op) noexcept {
  return PQCast<To>(op.Instance());
}

// Start of a stream, without a format.
class PQ_EXPORT TJCStartOperation : public TJCNotifyOperation {
 public:
  static const PQClassTag kTag;
  TJCStartOperation() noexcept : TJCNotifyOperation(kTag) {}
  float Rate = 0;  // frames per second of the stream, for video

 protected:
  explicit TJCStartOperation(const PQClassTag& tag) noexcept : TJCNotifyOperation(tag) {}
};

// End of a stream; down from a source, up from a consumer.
class PQ_EXPORT TJCStopOperation : public TJCNotifyOperation {
 public:
  static const PQClassTag kTag;
  TJCStopOperation() noexcept : TJCNotifyOperation(kTag) {}
};

// Asks who sets the pace. Goes down the chain and may travel up; a component claims it by filling its fields.
class PQ_EXPORT TJCPumpRequestOperation : public TJCNotifyOperation {
 public:
  static const PQClassTag kTag;
  TJCPumpRequestOperation() noexcept : TJCNotifyOperation(kTag) {}
  const void* Master = nullptr;  // who claimed; compared, never dereferenced
  std::uint8_t Kind = 0;         // strength of the claim: 0 none, 2 by a source side, 3 by a sink side
  std::int32_t Level = 0;        // orders claims of the same strength
};

// A source is ready; down the chain.
class PQ_EXPORT TJCStartPumpOperation : public TJCNotifyOperation {
 public:
  static const PQClassTag kTag;
  TJCStartPumpOperation() noexcept : TJCNotifyOperation(kTag) {}
};

// The master asks for one frame; up the chain.
class PQ_EXPORT TJCMasterPumpOperation : public TJCNotifyOperation {
 public:
  static const PQClassTag kTag;
  explicit TJCMasterPumpOperation(const void* master) noexcept : TJCNotifyOperation(kTag), Master(master) {}
  const void* Master;  // compared, never dereferenced
};

// Asks a source about a stream.
class PQ_EXPORT TJCQueryStreamOperation : public TJCNotifyOperation {
 public:
  static const PQClassTag kTag;
  TJCQueryStreamOperation() noexcept : TJCNotifyOperation(kTag) {}
};

// Tells the other end to do without this stream.
class PQ_EXPORT TJCIgnoreStreamOperation : public TJCNotifyOperation {
 public:
  static const PQClassTag kTag;
  TJCIgnoreStreamOperation() noexcept : TJCNotifyOperation(kTag) {}
};

// A value on a boolean or float pin, a tick on a clock pin.
class PQ_EXPORT TJCBoolOperation : public TJCNotifyOperation {
 public:
  static const PQClassTag kTag;
  explicit TJCBoolOperation(bool value) noexcept : TJCNotifyOperation(kTag), Value(value) {}
  const bool Value;
};
class PQ_EXPORT TJCFloatOperation : public TJCNotifyOperation {
 public:
  static const PQClassTag kTag;
  explicit TJCFloatOperation(float value) noexcept : TJCNotifyOperation(kTag), Value(value) {}
  const float Value;
};
class PQ_EXPORT TJCClockOperation : public TJCNotifyOperation {
 public:
  static const PQClassTag kTag;
  TJCClockOperation() noexcept : TJCNotifyOperation(kTag) {}
};

}  // namespace pantiq
