// Lists of output devices and the choice of one: TDSDevice, its forms for video and for sound, and their items.
//
// A device is named by what a person reads ("XImage Sink") or by its stored text ("gst:element=ximagesink",
// "gst:device=CLASS/ID", "dv:PATH"). "Default" is the first of AlternativeDevices or, without any, the platform's
// first; "None" is no device.
//
// Threads. Selections and items are set by the owner-thread and looked up on any thread, under the owner's lock.
#pragma once
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "pantiq/core/JCStdTypes.h"
#include "pantiq/host/PQCollection.h"
#include "pantiq/platform/PQMediaOutput.h"

namespace pantiq {

// The devices of a category as the platform lists them.
class PQ_EXPORT TPQDSOutputDeviceList {
 public:
  // False, with the reason in Result(), if there are none.
  bool EnumFilters(PQDeviceCategory category);
  int GetCount() const { return static_cast<int>(devices_.size()); }
  // Null outside 0..count-1.
  const PQOutputDevice* GetItem(int index) const;
  // The device of this name, or of this stored text; null if there is none. A stored text need not be listed.
  const PQOutputDevice* GetMonikerByDeviceName(const std::string& name) const;
  const PQOutputDevice* GetMonikerByString(const std::string& text);
  // Empty if there is none.
  std::string GetDeviceNameByString(const std::string& text) const;
  std::string GetStringByDeviceName(const std::string& name) const;
  const PQPlatformResult& Result() const { return result_; }

 private:
  std::vector<PQOutputDevice> devices_;
  PQOutputDevice unlisted_;
  PQPlatformResult result_;
};

// A device to take where "Default" is chosen.
class PQ_EXPORT TDSDeviceItem : public TCollectionItem {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TDSDeviceItem(TCollection* items) : TCollectionItem(items) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  void Assign(const TPersistent& source) override;
  std::string GetDevice() const { return device_; }
  void SetDevice(const std::string& device);

 private:
  std::string device_ = "Default";
};

class PQ_EXPORT TDSVideoOutputDeviceItem final : public TDSDeviceItem {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  using TDSDeviceItem::TDSDeviceItem;
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }
};
class PQ_EXPORT TDSAudioOutputDeviceItem final : public TDSDeviceItem {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  using TDSDeviceItem::TDSDeviceItem;
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }
};

class PQ_EXPORT TDSDeviceItems : public TCollection {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  // `lock` belongs to the owner and outlives the collection.
  TDSDeviceItems(PQDeviceCategory category, const TJCObject& lock) : category_(category), lock_(lock) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  TDSDeviceItem* GetItem(int index) const { return static_cast<TDSDeviceItem*>(TCollection::GetItem(index)); }
  void Assign(const TPersistent& source) override;
  // The stored text of the device that the fewest items have; "Default" if the platform has none.
  void GetNewDevice(std::string& name) const;
  // Items that have this device, by name or by stored text.
  int GetCountChannelsOfDevice(const PQOutputDevice& device) const;
  // What the items say now. Any thread.
  std::vector<std::string> Devices() const;
  // Called when an item was added, removed or changed.
  void SetChanged(std::function<void()> closure) { changed_ = std::move(closure); }

 protected:
  void Update(TCollectionItem* item) override;

 private:
  const PQDeviceCategory category_;
  const TJCObject& lock_;
  std::vector<std::string> devices_;
  std::function<void()> changed_;
};

class PQ_EXPORT TDSVideoOutputDeviceItems final : public TDSDeviceItems {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TDSVideoOutputDeviceItems(const TJCObject& lock) : TDSDeviceItems(PQDeviceCategory::VideoRenderer, lock) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  const PQClassInfo& ItemClassInfo() const override { return TDSVideoOutputDeviceItem::Class(); }

 protected:
  std::unique_ptr<TCollectionItem> CreateItem() override { return std::make_unique<TDSVideoOutputDeviceItem>(this); }
};
class PQ_EXPORT TDSAudioOutputDeviceItems final : public TDSDeviceItems {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TDSAudioOutputDeviceItems(const TJCObject& lock) : TDSDeviceItems(PQDeviceCategory::AudioRenderer, lock) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  const PQClassInfo& ItemClassInfo() const override { return TDSAudioOutputDeviceItem::Class(); }

 protected:
  std::unique_ptr<TCollectionItem> CreateItem() override { return std::make_unique<TDSAudioOutputDeviceItem>(this); }
};

// The choice of a device.
class PQ_EXPORT TDSDevice : public TPersistent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  // `items` belongs to the derived class. `on_change` runs when the selection or the items have changed.
  TDSDevice(const TJCObject& lock, TDSDeviceItems& items, std::function<void()> on_change);
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  std::string GetDevice() const;
  void SetDevice(const std::string& device);
  bool IsDefault() const;
  bool IsNone() const;
  // The category whose filters are listed.
  virtual PQDeviceCategory GetCathegoryID() const = 0;
  // Assigns the items.
  void SetCaptueDevices(const TDSDeviceItems& items) { items_.Assign(items); }
  // The chosen device and the name a person reads. False, with the reason in `why`, if there is none. May load the
  // media engine.
  bool GetMoniker(std::string& name, std::string& id, PQPlatformResult& why) const;
  // The device is not used any more.
  void CloseDevice();
  // Name of the device in use; empty if none is.
  std::string GetOpenDevice() const;
  void SetOpenDevice(const std::string& name);

 protected:
  void Changed() const {
    if (on_change_) on_change_();
  }

 private:
  const TJCObject& lock_;
  TDSDeviceItems& items_;
  std::function<void()> on_change_;
  std::string device_ = "Default";  // under the lock
  std::string open_;
};

class PQ_EXPORT TDSVideoOutputDevice final : public TDSDevice {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  TDSVideoOutputDevice(const TJCObject& lock, std::function<void()> on_change)
      : TDSDevice(lock, alternatives_, std::move(on_change)), alternatives_(lock) {
    alternatives_.SetChanged([this] { Changed(); });
  }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  PQDeviceCategory GetCathegoryID() const override { return PQDeviceCategory::VideoRenderer; }
  TDSVideoOutputDeviceItems& GetAlternativeDevices() { return alternatives_; }

 private:
  TDSVideoOutputDeviceItems alternatives_;
};
class PQ_EXPORT TDSAudioOutputDevice final : public TDSDevice {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  TDSAudioOutputDevice(const TJCObject& lock, std::function<void()> on_change)
      : TDSDevice(lock, alternatives_, std::move(on_change)), alternatives_(lock) {
    alternatives_.SetChanged([this] { Changed(); });
  }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  PQDeviceCategory GetCathegoryID() const override { return PQDeviceCategory::AudioRenderer; }
  TDSAudioOutputDeviceItems& GetAlternativeDevices() { return alternatives_; }

 private:
  TDSAudioOutputDeviceItems alternatives_;
};

}  // namespace pantiq
