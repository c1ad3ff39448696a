#include "pantiq/media/PQDSDevices.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>

#include "pantiq/host/PQClassInfo.h"
#include "pantiq/platform/PQModules.h"

namespace pantiq {

constinit const PQClassTag TDSDeviceItem::kTag{"TDSDeviceItem", &TCollectionItem::kTag};
constinit const PQClassTag TDSVideoOutputDeviceItem::kTag{"TDSVideoOutputDeviceItem", &TDSDeviceItem::kTag};
constinit const PQClassTag TDSAudioOutputDeviceItem::kTag{"TDSAudioOutputDeviceItem", &TDSDeviceItem::kTag};
constinit const PQClassTag TDSDeviceItems::kTag{"TDSDeviceItems", &TCollection::kTag};
constinit const PQClassTag TDSVideoOutputDeviceItems::kTag{"TDSVideoOutputDeviceItems", &TDSDeviceItems::kTag};
constinit const PQClassTag TDSAudioOutputDeviceItems::kTag{"TDSAudioOutputDeviceItems", &TDSDeviceItems::kTag};
constinit const PQClassTag TDSDevice::kTag{"TDSDevice", &TPersistent::kTag};
constinit const PQClassTag TDSVideoOutputDevice::kTag{"TDSVideoOutputDevice", &TDSDevice::kTag};
constinit const PQClassTag TDSAudioOutputDevice::kTag{"TDSAudioOutputDevice", &TDSDevice::kTag};

namespace {

constexpr std::array<std::string_view, 3> kStoredForms = {"gst:element=", "gst:device=", "dv:"};

bool IsWord(const std::string& text, std::string_view upper) {
  return std::equal(text.begin(), text.end(), upper.begin(), upper.end(),
                    [](unsigned char a, char b) { return std::toupper(a) == static_cast<unsigned char>(b); });
}
bool IsDefaultText(const std::string& text) { return IsWord(text, "DEFAULT"); }

}  // namespace

// --- TPQDSOutputDeviceList ------------------------------------------------------------------------------------------

bool TPQDSOutputDeviceList::EnumFilters(PQDeviceCategory category) {
  devices_.clear();
  result_ = {};
  PQMediaModule* const module = LoadMediaModule(result_);
  const auto devices = module != nullptr ? module->CreateOutputDevices(result_) : nullptr;
  if (devices != nullptr && result_.Ok()) result_ = devices->Enumerate(category, devices_);
  return result_.Ok() && !devices_.empty();
}

const PQOutputDevice* TPQDSOutputDeviceList::GetItem(int index) const {
  return index >= 0 && index < GetCount() ? &devices_[static_cast<std::size_t>(index)] : nullptr;
}

const PQOutputDevice* TPQDSOutputDeviceList::GetMonikerByDeviceName(const std::string& name) const {
  const auto found =
      std::find_if(devices_.begin(), devices_.end(), [&](const PQOutputDevice& device) { return device.name == name; });
  return found != devices_.end() ? &*found : nullptr;
}

const PQOutputDevice* TPQDSOutputDeviceList::GetMonikerByString(const std::string& text) {
  const auto found =
      std::find_if(devices_.begin(), devices_.end(), [&](const PQOutputDevice& device) { return device.id == text; });
  if (found != devices_.end()) return &*found;
  if (std::none_of(kStoredForms.begin(), kStoredForms.end(), [&](auto form) { return text.starts_with(form); })) {
    return nullptr;
  }
  unlisted_ = {text, text, ""};
  return &unlisted_;
}

std::string TPQDSOutputDeviceList::GetDeviceNameByString(const std::string& text) const {
  for (const PQOutputDevice& device : devices_) {
    if (device.id == text) return device.name;
  }
  return {};
}

std::string TPQDSOutputDeviceList::GetStringByDeviceName(const std::string& name) const {
  const PQOutputDevice* device = GetMonikerByDeviceName(name);
  return device != nullptr ? device->id : std::string();
}

// --- items ----------------------------------------------------------------------------------------------------------

const PQClassInfo& TDSDeviceItem::Class() {
  static const PQClassInfo& info =
      PQDescribe<TDSDeviceItem>("TDSDeviceItem", "PQDSDevices", "A device to take.")
          .Inherits<TCollectionItem>()
          .Property("Device", &TDSDeviceItem::GetDevice, &TDSDeviceItem::SetDevice, PQDefault("Default"),
                    PQActs::NextStart,
                    "Name of the device, or its stored text; Default is the platform's first. "
                    "`pantiq list --devices` shows both.")
          .Done();
  return info;
}

const PQClassInfo& TDSVideoOutputDeviceItem::Class() {
  static const PQClassInfo& info =
      PQDescribe<TDSVideoOutputDeviceItem>("TDSVideoOutputDeviceItem", "PQDSDevices", "A device that shows video.")
          .Inherits<TDSDeviceItem>()
          .Done();
  return info;
}

const PQClassInfo& TDSAudioOutputDeviceItem::Class() {
  static const PQClassInfo& info =
      PQDescribe<TDSAudioOutputDeviceItem>("TDSAudioOutputDeviceItem", "PQDSDevices", "A device that plays sound.")
          .Inherits<TDSDeviceItem>()
          .Done();
  return info;
}

const PQClassInfo& TDSDeviceItems::Class() {
  static const PQClassInfo& info =
      PQDescribe<TDSDeviceItems>("TDSDeviceItems", "PQDSDevices", "Devices to take.").Inherits<TCollection>().Done();
  return info;
}

const PQClassInfo& TDSVideoOutputDeviceItems::Class() {
  static const PQClassInfo& info =
      PQDescribe<TDSVideoOutputDeviceItems>("TDSVideoOutputDeviceItems", "PQDSDevices", "Devices that show video.")
          .Inherits<TDSDeviceItems>()
          .Done();
  return info;
}

const PQClassInfo& TDSAudioOutputDeviceItems::Class() {
  static const PQClassInfo& info =
      PQDescribe<TDSAudioOutputDeviceItems>("TDSAudioOutputDeviceItems", "PQDSDevices", "Devices that play sound.")
          .Inherits<TDSDeviceItems>()
          .Done();
  return info;
}

void TDSDeviceItem::Assign(const TPersistent& source) {
  const auto* other = PQCast<const TDSDeviceItem>(&source);
  if (other == nullptr || other == this) return;
  SetDevice(other->device_);
}

void TDSDeviceItem::SetDevice(const std::string& device) {
  device_ = device;
  Changed();
}

void TDSDeviceItems::Assign(const TPersistent& source) {
  const auto section = lock_.WriteLock();  // a start sees the old devices or the new ones
  TCollection::Assign(source);
}

void TDSDeviceItems::Update(TCollectionItem*) {
  {
    std::vector<std::string> devices;
    for (int i = 0; i < GetCount(); ++i) devices.push_back(GetItem(i)->GetDevice());
    const auto section = lock_.WriteLock();
    devices_ = std::move(devices);
  }
  if (changed_) changed_();
}

std::vector<std::string> TDSDeviceItems::Devices() const {
  const auto section = lock_.ReadLock();
  return devices_;
}

int TDSDeviceItems::GetCountChannelsOfDevice(const PQOutputDevice& device) const {
  const std::vector<std::string> devices = Devices();
  return static_cast<int>(std::count_if(devices.begin(), devices.end(), [&](const std::string& text) {
    return text == device.id || text == device.name;
  }));
}

void TDSDeviceItems::GetNewDevice(std::string& name) const {
  name = "Default";
  TPQDSOutputDeviceList list;
  if (!list.EnumFilters(category_)) return;
  int fewest = -1;
  for (int i = 0; i < list.GetCount(); ++i) {
    const int count = GetCountChannelsOfDevice(*list.GetItem(i));
    if (fewest >= 0 && count >= fewest) continue;
    fewest = count;
    name = list.GetItem(i)->id;
  }
}

// --- TDSDevice ------------------------------------------------------------------------------------------------------

const PQClassInfo& TDSDevice::Class() {
  static const PQClassInfo& info =
      PQDescribe<TDSDevice>("TDSDevice", "PQDSDevices", "The choice of a device.")
          .Property("Device", &TDSDevice::GetDevice, &TDSDevice::SetDevice, PQDefault("Default"), PQActs::NextStart,
                    "Name of the device, or its stored text; Default is the first of AlternativeDevices or, without "
                    "any, the platform's first; None is no device. `pantiq list --devices` shows what there is.")
          .Done();
  return info;
}

const PQClassInfo& TDSVideoOutputDevice::Class() {
  static const PQClassInfo& info =
      PQDescribe<TDSVideoOutputDevice>("TDSVideoOutputDevice", "PQDSDevices",
                                       "The choice of a device that shows video.")
          .Inherits<TDSDevice>()
          .Collection("AlternativeDevices", &TDSVideoOutputDevice::GetAlternativeDevices, PQActs::NextStart,
                      "Devices that take the place of the platform's own where Default is chosen; the first is taken.")
          .Done();
  return info;
}

const PQClassInfo& TDSAudioOutputDevice::Class() {
  static const PQClassInfo& info =
      PQDescribe<TDSAudioOutputDevice>("TDSAudioOutputDevice", "PQDSDevices",
                                       "The choice of a device that plays sound.")
          .Inherits<TDSDevice>()
          .Collection("AlternativeDevices", &TDSAudioOutputDevice::GetAlternativeDevices, PQActs::NextStart,
                      "Devices that take the place of the platform's own where Default is chosen; the first is taken.")
          .Done();
  return info;
}

TDSDevice::TDSDevice(const TJCObject& lock, TDSDeviceItems& items, std::function<void()> on_change)
    : lock_(lock), items_(items), on_change_(std::move(on_change)) {}

std::string TDSDevice::GetDevice() const {
  const auto section = lock_.ReadLock();
  return device_;
}

void TDSDevice::SetDevice(const std::string& device) {
  {
    const auto section = lock_.WriteLock();
    if (device_ == device) return;
    device_ = device;
  }
  Changed();
}

bool TDSDevice::IsDefault() const { return IsDefaultText(GetDevice()); }
bool TDSDevice::IsNone() const { return IsWord(GetDevice(), "NONE"); }

bool TDSDevice::GetMoniker(std::string& name, std::string& id, PQPlatformResult& why) const {
  std::string wanted = GetDevice();
  if (IsWord(wanted, "NONE")) {
    why = {kPlatformState, "no device is chosen"};
    return false;
  }
  if (IsDefaultText(wanted)) {
    const std::vector<std::string> alternatives = items_.Devices();
    if (!alternatives.empty()) wanted = alternatives.front();
  }
  TPQDSOutputDeviceList list;
  (void)list.EnumFilters(GetCathegoryID());
  const PQOutputDevice* device = nullptr;
  if (IsDefaultText(wanted)) {
    device = list.GetItem(0);
  } else {
    device = list.GetMonikerByDeviceName(wanted);
    if (device == nullptr) device = list.GetMonikerByString(wanted);
  }
  if (device == nullptr) {
    why = list.Result();
    if (why.Ok()) why = {kPlatformIo, "there is no device '" + wanted + "'; pantiq list --devices shows all"};
    return false;
  }
  name = device->name;
  id = device->id;
  return true;
}

void TDSDevice::CloseDevice() { SetOpenDevice({}); }

std::string TDSDevice::GetOpenDevice() const {
  const auto section = lock_.ReadLock();
  return open_;
}

void TDSDevice::SetOpenDevice(const std::string& name) {
  const auto section = lock_.WriteLock();
  open_ = name;
}

}  // namespace pantiq
