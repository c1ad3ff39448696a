#include "pantiq/plugins/PQDMOEffect.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <exception>
#include <utility>

#include "pantiq/core/PQFrameLoan.h"
#include "pantiq/host/PQRegistry.h"
#include "pantiq/host/PQReport.h"
#include "pantiq/platform/PQModules.h"
#include "pantiq/plugins/PQDmoSelectForm.h"

namespace pantiq {

constinit const PQClassTag TPQDMOEffect::kTag{"TPQDMOEffect", &TPQCommonFilter::kTag};

namespace {

// Null with a result if there is no module or no engine.
std::unique_ptr<PQEffects> OpenEffects(PQPlatformResult& result) {
  PQMediaModule* const module = LoadMediaModule(result);
  return module != nullptr ? module->CreateEffects(result) : nullptr;
}

PQPlatformResult Enumerate(std::vector<PQEffectInfo>& list) {
  PQPlatformResult result;
  const auto effects = OpenEffects(result);
  return effects != nullptr ? effects->Enumerate(list) : result;
}

TGUID FindByName(const std::string& name, PQPlatformResult& result) {
  std::vector<PQEffectInfo> list;
  result = Enumerate(list);
  TGUID id = GUID_NULL;
  if (!result.Ok()) return id;
  const auto found =
      std::find_if(list.begin(), list.end(), [&](const PQEffectInfo& info) { return info.name == name; });
  if (found == list.end() || !PQGuidFromText(found->id, id)) return GUID_NULL;
  return id;
}

PQPlatformBlock BlockOf(const TPQImageBuffer& frame, const std::uint8_t* data) {
  PQPlatformBlock block;
  block.data = data;
  block.step = frame.GetStep();
  block.size = static_cast<std::size_t>(frame.GetByteSize());
  block.keep_alive = PQHoldFrame(frame.Storage());
  return block;
}

}  // namespace

// --- identifiers ----------------------------------------------------------------------------------------------------

bool PQSameGuid(const TGUID& a, const TGUID& b) noexcept { return std::memcmp(&a, &b, sizeof a) == 0; }

std::string PQGuidToText(const TGUID& id) {
  std::array<char, 40> text{};
  const std::uint8_t* const d = id.d4;
  std::snprintf(text.data(), text.size(), "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", id.d1, id.d2, id.d3,
                d[0], d[1], d[2], d[3], d[4], d[5], d[6], d[7]);
  return text.data();
}

bool PQGuidFromText(const std::string& text, TGUID& id) {
  constexpr std::string_view kForm = "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}";
  if (text.size() != kForm.size()) return false;
  std::array<std::uint8_t, 16> bytes{};
  std::size_t digits = 0;
  for (std::size_t i = 0; i < kForm.size(); ++i) {
    if (kForm[i] != 'x') {
      if (text[i] != kForm[i]) return false;
      continue;
    }
    const auto c = static_cast<unsigned char>(text[i]);
    if (std::isxdigit(c) == 0) return false;
    const int digit = std::isdigit(c) != 0 ? c - '0' : std::toupper(c) - 'A' + 10;
    bytes[digits / 2] = static_cast<std::uint8_t>(bytes[digits / 2] << 4 | digit);
    ++digits;
  }
  const auto number = [&bytes](std::size_t at, std::size_t count) {
    std::uint32_t value = 0;
    for (std::size_t i = at; i < at + count; ++i) value = value << 8 | bytes[i];
    return value;
  };
  id.d1 = number(0, 4);
  id.d2 = static_cast<std::uint16_t>(number(4, 2));
  id.d3 = static_cast<std::uint16_t>(number(6, 2));
  std::copy(bytes.begin() + 8, bytes.end(), id.d4);
  return true;
}

// --- properties -----------------------------------------------------------------------------------------------------

const PQClassInfo& TPQDMOEffect::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQDMOEffect>("TPQDMOEffect", "PQDMOEffect", "Runs each frame through a video effect of the platform.")
          .Inherits<TPQCommonFilter>()
          .Property(
              "DMOName", &TPQDMOEffect::GetDmoName, &TPQDMOEffect::SetDmoName, PQDefault(""), PQActs::NextStart,
              "The effect, by its name: pantiq list --effects shows all. Without one, or with one that this machine "
              "does not have, frames pass as they came.")
          .Property("Settings", &TPQDMOEffect::GetSettings, &TPQDMOEffect::SetSettings, PQDefault(""),
                    PQActs::NextFrame,
                    "The effect's own settings, name=value separated by blanks: contrast=1.3 hue=0.1. pantiq list "
                    "--effects=NAME shows those of an effect.")
          .Property(
              "DMOInfo", &TPQDMOEffect::WriteData, &TPQDMOEffect::ReadData, PQActs::NextStart,
              "Identifier and name of the effect, as streams hold them. The identifier finds the effect also where "
              "it has another name.")
          .Done();
  return info;
}

TPQDMOEffect::TPQDMOEffect(TComponent* owner) : TPQCommonFilter(owner) { SerialiseFrames(); }

void TPQDMOEffect::BeforeDestruction() {
  TPQCommonFilter::BeforeDestruction();  // no frame is on its way afterwards
  ReleaseObjects();
}

std::string TPQDMOEffect::GetDmoName() const {
  auto section = Lock().ReadLock();
  return name_;
}

void TPQDMOEffect::SetDmoName(const std::string& name) {
  auto section = Lock().WriteLock();
  if (name == name_) return;
  name_ = name;
  class_id_ = GUID_NULL;
  looked_up_ = name.empty();
}

TGUID TPQDMOEffect::GetClassId() const {
  std::string name;
  {
    auto section = Lock().ReadLock();
    if (looked_up_) return class_id_;
    name = name_;
  }
  PQPlatformResult result;  // a missing module may be there at the next start: looked up again then
  const TGUID id = FindByName(name, result);
  auto section = Lock().WriteLock();
  if (looked_up_ || name_ != name) return class_id_;
  class_id_ = id;
  looked_up_ = result.Ok() && !PQSameGuid(id, GUID_NULL);
  return id;
}

std::string TPQDMOEffect::GetSettings() const {
  auto section = Lock().ReadLock();
  return settings_;
}

void TPQDMOEffect::SetSettings(const std::string& settings) {
  auto section = Lock().WriteLock();
  if (settings == settings_) return;
  settings_ = settings;
  settings_version_.fetch_add(1, std::memory_order_release);
}

PQStatus TPQDMOEffect::ReadData(const PQValue::List& data) {
  TGUID id = GUID_NULL;
  if (data.size() != 2 || data[0].Text() == nullptr || data[1].Text() == nullptr ||
      !PQGuidFromText(*data[0].Text(), id)) {
    return {PQCode::BadValue,
            "DMOInfo: is not allowed; expected ('{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}' 'name'), the identifier in "
            "hexadecimal digits"};
  }
  auto section = Lock().WriteLock();
  class_id_ = id;
  name_ = *data[1].Text();
  // Stored where nothing had the name: it is looked up when it is needed.
  looked_up_ = name_.empty() || !PQSameGuid(id, GUID_NULL);
  return {};
}

PQValue::List TPQDMOEffect::WriteData() const {
  const TGUID id = GetClassId();
  return {PQValue(PQGuidToText(id)), PQValue(GetDmoName())};
}

PQPlatformResult TPQDMOEffect::GetDmoNames(std::vector<std::string>& strings) {
  std::vector<PQEffectInfo> list;
  PQPlatformResult result = Enumerate(list);
  if (!result.Ok()) return result;
  for (const PQEffectInfo& info : list) strings.push_back(info.name);
  return {};
}

TGUID TPQDMOEffect::ClassIdFromName(const std::string& name) {
  PQPlatformResult result;
  return FindByName(name, result);
}

bool TPQDMOEffect::ShowDmoSelectDialog() {
  const auto form = MakeDmoSelectForm();
  if (form == nullptr) {
    Report(this, PQSeverity::Note, "there is no dialog to choose an effect with", kPlatformMissing,
           "set DMOName instead");
    return false;
  }
  if (const auto result = GetDmoNames(form->Items); !result.Ok()) Tell("the effects cannot be listed", result);
  if (!form->Execute(GetDmoName())) return false;
  if (form->ItemIndex < 0 || form->ItemIndex >= static_cast<int>(form->Items.size())) return false;
  SetDmoName(form->Items[static_cast<std::size_t>(form->ItemIndex)]);
  return true;
}

// --- stream ---------------------------------------------------------------------------------------------------------

void TPQDMOEffect::Tell(const char* what, const PQPlatformResult& result) {
  if (!HasReportListener()) return;
  Report(this, PQSeverity::Warning, what, result.code, result.detail);
}

void TPQDMOEffect::TellUnknownName(const std::string& name) {
  if (!HasReportListener()) return;
  PQPlatformResult result;
  const auto effects = OpenEffects(result);
  std::vector<PQEffectInfo> list;
  if (effects != nullptr) result = effects->Enumerate(list);
  if (!result.Ok()) return Tell("effects cannot be used; frames pass unchanged", result);
  std::vector<std::string> names;
  std::string nearest, detail;
  for (const PQEffectInfo& info : list) {
    names.push_back(info.name);
    if (info.factory == name) nearest = info.name;
  }
  if (nearest.empty()) nearest = PQNearest(name, names);
  if (!nearest.empty()) detail = "the nearest is '" + nearest + "'; ";
  detail += "pantiq list --effects shows what there is";
  std::vector<PQEffectPackage> packages;
  effects->MorePackages(packages);
  for (const PQEffectPackage& more : packages) {
    detail += (more.package == packages.front().package ? "; more come with " : ", ") + more.package;
  }
  Report(this, PQSeverity::Warning, "there is no effect named '" + name + "'; frames pass unchanged", kPlatformMissing,
         std::move(detail));
}

void TPQDMOEffect::ReleaseObjects() noexcept {
  try {
    effect_.reset();
  } catch (...) {  // an effect that cannot even be let go of
  }
}

void TPQDMOEffect::Reset() {
  TPQCommonFilter::Reset();
  ReleaseObjects();
  told_failure_ = told_size_ = false;
  try {
    const TGUID id = GetClassId();
    if (PQSameGuid(id, GUID_NULL)) {
      if (const std::string name = GetDmoName(); !name.empty()) TellUnknownName(name);
      return;
    }
    const PQPlatformResult result = CreateObjects(id);
    if (result.Ok()) return;
    ReleaseObjects();
    Tell("the effect cannot be used; frames pass unchanged", result);
  } catch (const std::exception& error) {
    ReleaseObjects();
    Tell("the effect cannot be used; frames pass unchanged", {kPlatformFailed, error.what()});
  } catch (...) {
    ReleaseObjects();
    Tell("the effect cannot be used; frames pass unchanged", {kPlatformFailed, "it raised an exception"});
  }
}

PQPlatformResult TPQDMOEffect::CreateObjects(const TGUID& id) {
  PQPlatformResult result;
  const auto effects = OpenEffects(result);
  if (effects == nullptr) return result;
  effect_ = effects->Create(PQGuidToText(id), result);
  if (effect_ == nullptr) return result;
  int inputs = 0, outputs = 0;
  if (result = effect_->GetStreamCount(inputs, outputs); !result.Ok()) return result;
  if (inputs != 1 || outputs != 1) {
    return {kPlatformFormat, "it has " + std::to_string(inputs) + " inputs and " + std::to_string(outputs) +
                                 " outputs; only one of each can be used"};
  }
  if (result = ApplySettings(); !result.Ok()) return result;
  const PQEffectType type{StreamWidth(), StreamHeight()};
  if (result = effect_->SetInputType(type); !result.Ok()) return result;
  if (result = effect_->SetOutputType(type); !result.Ok()) return result;
  frame_bytes_ = std::int64_t{type.width} * type.height * PQPixelSize(vfRGB24);
  return {};
}

PQPlatformResult TPQDMOEffect::ApplySettings() {
  std::string settings;
  {
    auto section = Lock().ReadLock();
    settings = settings_;
    applied_version_ = settings_version_.load(std::memory_order_acquire);
  }
  PQPlatformResult result = effect_->SetSettings(settings);
  if (!result.Ok()) result.detail = "Settings: " + result.detail;
  return result;
}

void TPQDMOEffect::Stop() {
  TPQCommonFilter::Stop();
  ReleaseObjects();
}

void TPQDMOEffect::FilterInternalOperation(const PQImageRef& in, PQImageRef& out) {
  out->Assign(*in);
  if (effect_ == nullptr) return;
  if (in->GetByteSize() != frame_bytes_) {
    if (!std::exchange(told_size_, true)) {
      Tell("a frame has another size than the stream announced; it passes unchanged",
           {kPlatformFormat, std::to_string(in->GetWidth()) + " by " + std::to_string(in->GetHeight()) +
                                 " pixels instead of " + std::to_string(StreamWidth()) + " by " +
                                 std::to_string(StreamHeight())});
    }
    return;
  }
  try {
    if (settings_version_.load(std::memory_order_acquire) != applied_version_) {
      if (const auto result = ApplySettings(); !result.Ok()) Tell("the effect goes on as it was set before", result);
    }
    const PQPlatformResult result = ThroughEffect(in, static_cast<TPQImageBuffer&>(*out));
    if (!result.Ok() && !std::exchange(told_failure_, true)) Tell("the effect failed on a frame", result);
  } catch (const std::exception& error) {
    ReleaseObjects();
    out->Assign(*in);
    Tell("the effect raised an exception; frames pass unchanged until the next start", {kPlatformFailed, error.what()});
  } catch (...) {
    ReleaseObjects();
    out->Assign(*in);
    Tell("the effect raised an exception; frames pass unchanged until the next start", {kPlatformFailed, {}});
  }
}

PQPlatformResult TPQDMOEffect::ThroughEffect(const PQImageRef& in, TPQImageBuffer& out) {
  switch (effect_->Way()) {
    case PQEffectWay::Untouched:
      return {};
    case PQEffectWay::InPlace: {
      std::uint8_t* const pixels = out.Modify();
      return effect_->Process(BlockOf(out, pixels));  // a failure leaves what it did
    }
    case PQEffectWay::Copy:
      break;
  }
  const auto& source = static_cast<const TPQImageBuffer&>(*in);
  PQPlatformResult result = effect_->ProcessInput(BlockOf(source, source.Read()));
  if (!result.Ok()) return result;
  static const PQFrameMemory memory = PQLendFrame;
  PQPlatformBlock made;
  result = effect_->ProcessOutput(memory, made);
  const std::int64_t step = in->GetStep(), rows = in->GetHeight();
  if (result.Ok() && made.own && made.step == step) {
    if (auto block = PQTakeLentFrame(made.keep_alive, made.data, step, rows)) {
      out.SetStorage(std::move(block), in->GetWidth(), in->GetHeight(), vfRGB24);
      return {};
    }
  }
  if (result.Ok() && (made.data == nullptr || made.step < step ||
                      made.size < static_cast<std::size_t>(made.step * (rows - 1) + step))) {
    result = {kPlatformFailed, "the effect gave less than a whole frame"};
  }
  if (!result.Ok()) {
    out.Assign(*in);
    return result;
  }
  std::uint8_t* const to = out.Write();
  for (std::int64_t y = 0; y < rows; ++y) {
    std::memcpy(to + y * step, made.data + y * made.step, static_cast<std::size_t>(step));
  }
  return {};
}

void PQDMOEffect::Register() {
  const PQClassInfo* const classes[] = {&TPQDMOEffect::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
