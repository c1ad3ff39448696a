// The parameters of a plug-in that TPQFreeFrame runs.
//
// A parameter keeps its value here. While there is an instance of the plug-in every new value is sent to it and what it
// answers is taken over; every start sends all values to the new instance.
//
// Threads. Values may be set and read on any thread, also while frames are processed.
#pragma once
#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "pantiq/host/PQClassInfo.h"
#include "pantiq/host/PQPersistent.h"

namespace pantiq {

class TPQFreeFrame;

// What an editor shows a parameter as.
enum class TPQFreeFramePropertyType : std::uint8_t { Boolean, Byte, Cardinal, Single, String };

class PQ_EXPORT TPQFreeFrameParameter : public TPersistent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  ~TPQFreeFrameParameter() override;
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  // Sends the value to the instance, if there is one, and takes over what the plug-in answers; a failure leaves it.
  virtual void ApplyCurrentValue() = 0;
  // Asks the plug-in for its text of the value. What it answers is dropped: `display` stays as it came.
  virtual void GetDisplayValue(std::string& display) const;
  virtual std::string GetAsString() const { return GetStringValue(); }
  virtual float GetAsSingle() const = 0;
  virtual std::int32_t GetAsInteger() const;  // to nearest, halves to even
  virtual bool GetAsBoolean() const;          // different from 0
  virtual PQStatus SetAsString(const std::string& value) { return SetStringValue(value); }
  virtual void SetAsSingle(float value) = 0;
  virtual void SetAsInteger(std::int32_t value);
  virtual void SetAsBoolean(bool value);
  // Fails, and changes nothing, for a text that the parameter cannot hold; the text names what was expected.
  virtual PQStatus SetStringValue(const std::string& value) = 0;
  virtual std::string GetStringValue() const = 0;
  virtual TPQFreeFramePropertyType GetPropertyType() const = 0;

  std::string IntGetAsString() const { return GetAsString(); }
  float IntGetAsSingle() const { return GetAsSingle(); }
  std::int32_t IntGetAsInteger() const { return GetAsInteger(); }
  bool IntGetAsBoolean() const { return GetAsBoolean(); }
  PQStatus IntSetAsString(const std::string& value) { return SetAsString(value); }
  void IntSetAsSingle(float value) { SetAsSingle(value); }
  void IntSetAsInteger(std::int32_t value) { SetAsInteger(value); }
  void IntSetAsBoolean(bool value) { SetAsBoolean(value); }
  std::string GetDisplayValueProp() const;
  const std::string& GetVC_Name() const { return name_; }
  std::uint16_t GetIndex() const { return index_; }

  // The value as it is published, of the kind that Publish describes.
  virtual PQValue GetPublished() const = 0;
  virtual void SetPublished(const PQValue& value) = 0;
  // Fills in type, kind, bounds and help.
  virtual void Publish(PQProperty& property) const = 0;
  // True if the plug-in's own value of it is a text.
  virtual bool IsText() const { return false; }

  // The published value that the plug-in came with.
  PQValue PublishedDefault;
  // Where somebody keeps a pointer to this parameter: cleared when it dies. Null: nobody does.
  TPQFreeFrameParameter** OutsideCell = nullptr;

 protected:
  TPQFreeFrameParameter(std::string name, TPQFreeFrame& owner, std::uint16_t index)
      : owner_(owner), name_(std::move(name)), index_(index) {}
  std::uint32_t DefaultBits() const;
  std::string DefaultText() const;
  // Sends the value to the instance. True, with what was read back, if that replaces the value. Without an instance
  // nothing is sent.
  bool SendAndReadBack(float value, std::uint32_t& read) const;
  bool SendAndReadBack(const std::string& value, std::string& read) const;
  void SendPulse() const;

 private:
  // The number of the parameter that is asked for when this one was sent; `is_text` tells what it answers with.
  std::uint16_t ReadBackIndex(bool& is_text) const;
  TPQFreeFrame& owner_;
  const std::string name_;
  const std::uint16_t index_;
};

class PQ_EXPORT TPQBooleanFreeFrameParameter : public TPQFreeFrameParameter {
 public:
  TPQBooleanFreeFrameParameter(std::string name, TPQFreeFrame& owner, std::uint16_t index);
  void ApplyCurrentValue() override;
  float GetAsSingle() const override { return value_.load(std::memory_order_relaxed) ? 1.0f : 0.0f; }
  void SetAsSingle(float value) override { value_.store(value != 0.0f, std::memory_order_relaxed); }
  void SetAsBoolean(bool value) override { value_.store(value, std::memory_order_relaxed); }
  // "true" or "false" in any mix of case; every other text leaves the value. The value is applied in any case.
  PQStatus SetStringValue(const std::string& value) override;
  std::string GetStringValue() const override { return value_.load(std::memory_order_relaxed) ? "True" : "False"; }
  TPQFreeFramePropertyType GetPropertyType() const override { return TPQFreeFramePropertyType::Boolean; }
  PQValue GetPublished() const override { return PQValue(value_.load(std::memory_order_relaxed)); }
  void SetPublished(const PQValue& value) override;
  void Publish(PQProperty& property) const override;

 private:
  std::atomic<bool> value_;
};

// Holds nothing: whatever sets it sends 1.0 and at once 0.0, if there is an instance.
class PQ_EXPORT TPQEventFreeFrameParameter final : public TPQBooleanFreeFrameParameter {
 public:
  using TPQBooleanFreeFrameParameter::TPQBooleanFreeFrameParameter;
  void ApplyCurrentValue() override {}
  float GetAsSingle() const override { return 0; }
  void SetAsSingle(float) override { SendPulse(); }
  void SetAsBoolean(bool) override { SendPulse(); }
  PQStatus SetStringValue(const std::string&) override {
    SendPulse();
    return {};
  }
  std::string GetStringValue() const override { return "Event..."; }
  PQValue GetPublished() const override { return PQValue(false); }
  void SetPublished(const PQValue& value) override {
    if (*value.Bool()) SendPulse();
  }
  void Publish(PQProperty& property) const override;
};

// A byte; the plug-in gets it divided by 255.
class PQ_EXPORT TPQColorFreeFrameParameter : public TPQFreeFrameParameter {
 public:
  TPQColorFreeFrameParameter(std::string name, TPQFreeFrame& owner, std::uint16_t index);
  void ApplyCurrentValue() override;
  float GetAsSingle() const override { return value_.load(std::memory_order_relaxed); }
  void SetAsSingle(float value) override;
  void SetAsBoolean(bool value) override;
  // A whole number in decimal, or hexadecimal after $; its low byte. Every other text leaves the value.
  PQStatus SetStringValue(const std::string& value) override;
  std::string GetStringValue() const override;
  TPQFreeFramePropertyType GetPropertyType() const override { return TPQFreeFramePropertyType::Byte; }
  PQValue GetPublished() const override { return PQValue(value_.load(std::memory_order_relaxed)); }
  void SetPublished(const PQValue& value) override;
  void Publish(PQProperty& property) const override;

 private:
  void Set(std::int32_t value);
  std::atomic<std::uint8_t> value_;
};
class PQ_EXPORT TPQRedFreeFrameParameter final : public TPQColorFreeFrameParameter {
 public:
  using TPQColorFreeFrameParameter::TPQColorFreeFrameParameter;
};
class PQ_EXPORT TPQGreenFreeFrameParameter final : public TPQColorFreeFrameParameter {
 public:
  using TPQColorFreeFrameParameter::TPQColorFreeFrameParameter;
};
class PQ_EXPORT TPQBlueFreeFrameParameter final : public TPQColorFreeFrameParameter {
 public:
  using TPQColorFreeFrameParameter::TPQColorFreeFrameParameter;
};

// A whole number, sent as float. What is read back is taken as the number itself, not as a float.
class PQ_EXPORT TPQPosFreeFrameParameter : public TPQFreeFrameParameter {
 public:
  TPQPosFreeFrameParameter(std::string name, TPQFreeFrame& owner, std::uint16_t index);
  void ApplyCurrentValue() override;
  float GetAsSingle() const override { return static_cast<float>(value_.load(std::memory_order_relaxed)); }
  bool GetAsBoolean() const override { return value_.load(std::memory_order_relaxed) != 0; }
  void SetAsSingle(float value) override;  // rounds; the plug-in learns it at the next start
  void SetAsBoolean(bool) override {}
  // As a colour's, without the cut to a byte.
  PQStatus SetStringValue(const std::string& value) override;
  std::string GetStringValue() const override;
  TPQFreeFramePropertyType GetPropertyType() const override { return TPQFreeFramePropertyType::Cardinal; }
  PQValue GetPublished() const override {
    return PQValue(static_cast<std::uint32_t>(value_.load(std::memory_order_relaxed)));
  }
  void SetPublished(const PQValue& value) override;
  void Publish(PQProperty& property) const override;

 private:
  std::atomic<std::int32_t> value_;
};
class PQ_EXPORT TPQXPosFreeFrameParameter final : public TPQPosFreeFrameParameter {
 public:
  using TPQPosFreeFrameParameter::TPQPosFreeFrameParameter;
};
class PQ_EXPORT TPQYPosFreeFrameParameter final : public TPQPosFreeFrameParameter {
 public:
  using TPQPosFreeFrameParameter::TPQPosFreeFrameParameter;
};

class PQ_EXPORT TPQStandardFreeFrameParameter final : public TPQFreeFrameParameter {
 public:
  TPQStandardFreeFrameParameter(std::string name, TPQFreeFrame& owner, std::uint16_t index);
  void ApplyCurrentValue() override;
  float GetAsSingle() const override { return value_.load(std::memory_order_relaxed); }
  void SetAsSingle(float value) override;
  PQStatus SetStringValue(const std::string& value) override;  // fails for what is no number
  std::string GetStringValue() const override;
  TPQFreeFramePropertyType GetPropertyType() const override { return TPQFreeFramePropertyType::Single; }
  PQValue GetPublished() const override { return PQValue(GetAsSingle()); }
  void SetPublished(const PQValue& value) override { SetAsSingle(static_cast<float>(*value.Float())); }
  void Publish(PQProperty& property) const override;

 private:
  std::atomic<float> value_;
};

class PQ_EXPORT TPQTextFreeFrameParameter final : public TPQFreeFrameParameter {
 public:
  TPQTextFreeFrameParameter(std::string name, TPQFreeFrame& owner, std::uint16_t index);
  void ApplyCurrentValue() override;
  float GetAsSingle() const override { return 0; }
  bool GetAsBoolean() const override { return !GetStringValue().empty(); }
  void SetAsSingle(float) override {}
  void SetAsBoolean(bool) override {}
  PQStatus SetStringValue(const std::string& value) override;
  std::string GetStringValue() const override;
  TPQFreeFramePropertyType GetPropertyType() const override { return TPQFreeFramePropertyType::String; }
  PQValue GetPublished() const override { return PQValue(GetStringValue()); }
  void SetPublished(const PQValue& value) override { SetStringValue(*value.Text()).IgnoreError(); }
  void Publish(PQProperty& property) const override;
  bool IsText() const override { return true; }

 private:
  mutable std::mutex mutex_;  // a leaf
  std::string value_;
};

// The parameters of the plug-in in its order, and the stored values that wait for a plug-in to come. As an object of a
// graph it has a property for each parameter, by its name or by its number: Parameters.Speed, Parameters[2].
class PQ_EXPORT TPQFreeFrameParameters final : public TPersistent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQFreeFrameParameters(TPQFreeFrame& owner) : owner_(owner) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  int GetCount() const;
  // Null outside 0..count-1.
  std::shared_ptr<TPQFreeFrameParameter> GetItem(int index) const;
  std::vector<std::shared_ptr<TPQFreeFrameParameter>> Items() const;
  // The first of this published name; null if there is none.
  std::shared_ptr<TPQFreeFrameParameter> Find(const std::string& name) const;
  void Clear();  // the parameters; stored values stay
  void Add(std::shared_ptr<TPQFreeFrameParameter> parameter);

  // The stored form: a text for each parameter in order; the texts that were read last if there are no parameters. When
  // both are there, text i goes to parameter i, whatever its name; texts beyond the last parameter are dropped. A text
  // that a parameter refuses is reported and leaves its value. Reading refuses what is no list of single values.
  PQStatus ReadData(const PQValue::List& data);
  PQValue::List WriteData() const;
  void TryApplyValues();

  std::vector<PQProperty> InstanceProperties() const override;
  bool HasUntoldProperties() const override;
  void Assign(const TPersistent& source) override;

 private:
  // The names that parameters are published by: without blanks at the ends, printable, none twice.
  std::vector<std::string> PublishedNames() const;
  TPQFreeFrame& owner_;
  mutable std::mutex mutex_;  // a leaf: nothing is called under it
  std::vector<std::shared_ptr<TPQFreeFrameParameter>> items_;
  std::vector<std::string> stored_;
};

// The class of FF_GETPARAMETERTYPE's answer, with the plug-in's default as its value.
std::shared_ptr<TPQFreeFrameParameter> PQMakeFreeFrameParameter(std::uint32_t type, std::string name,
                                                                TPQFreeFrame& owner, std::uint16_t index);

}  // namespace pantiq
