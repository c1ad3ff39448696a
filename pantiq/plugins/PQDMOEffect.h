// Runs each frame through a video effect of the platform.
#pragma once
#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "pantiq/core/PQCommonFilter.h"
#include "pantiq/platform/PQEffects.h"
#include "pantiq/platform/PQPlatform.h"

namespace pantiq {

// No effect: the identifier before a name is resolved, and of a name that nothing has.
inline constexpr TGUID GUID_NULL{};
PQ_EXPORT bool PQSameGuid(const TGUID& a, const TGUID& b) noexcept;
// "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}", in capitals. Reading takes small letters too; false for any other text.
PQ_EXPORT std::string PQGuidToText(const TGUID& id);
PQ_EXPORT bool PQGuidFromText(const std::string& text, TGUID& id);

// The effect is named by its friendly name and stored by name and identifier. It is made at the start of a stream and
// let go of at its stop; a new start makes a new one. Frames go through it as 24-bit colour, gray ones are converted.
//
// Nothing is raised. Without an effect (no name, an unknown one, a missing module, a refused size or setting) frames
// pass as they came, and the start reports why. A frame that the effect fails on passes as it came; a frame of another
// byte size than the start announced is not shown to the effect. After an exception out of the effect there is none
// until the next start.
//
// The incoming frame is never written to: an effect that works in place gets a copy of its own.
class PQ_EXPORT TPQDMOEffect final : public TPQCommonFilter {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQDMOEffect(TComponent* owner = nullptr);
  ~TPQDMOEffect() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  std::string GetDmoName() const;
  // Acts at the next start. The identifier is looked up when it is first asked for, at the latest at that start.
  void SetDmoName(const std::string& name);
  // GUID_NULL if no effect of this machine has the name. Looks the name up if that is still to be done. Any thread.
  TGUID GetClassId() const;

  // The effect's own properties, "contrast=1.3 hue=0.1", each with its default where none is named. Acts with the next
  // frame; a faulty one is reported, and leaves what was set before (at a start: frames pass).
  std::string GetSettings() const;
  void SetSettings(const std::string& settings);

  // Adds the friendly name of every effect of this machine. Adds none if the module is missing; the result tells.
  static PQPlatformResult GetDmoNames(std::vector<std::string>& strings);
  // The identifier of the first effect of exactly this name; GUID_NULL if there is none.
  static TGUID ClassIdFromName(const std::string& name);

  // Lets the user choose an effect from a list and sets its name. False if he did not accept, or if no form is
  // installed (PQDmoSelectForm.h). The user interface's thread.
  bool ShowDmoSelectDialog();

  // The stored form: identifier in text form, then the name. Reading looks nothing up, so that what was stored stays
  // whole on a machine without the effect. Refuses what is no list of two texts with an identifier first.
  PQStatus ReadData(const PQValue::List& data);
  PQValue::List WriteData() const;

 protected:
  void FilterInternalOperation(const PQImageRef& in, PQImageRef& out) override;
  void Reset() override;
  void Stop() override;
  void BeforeDestruction() override;

 private:
  void ReleaseObjects() noexcept;
  PQPlatformResult CreateObjects(const TGUID& id);
  PQPlatformResult ApplySettings();
  PQPlatformResult ThroughEffect(const PQImageRef& in, TPQImageBuffer& out);
  void Tell(const char* what, const PQPlatformResult& result);
  void TellUnknownName(const std::string& name);

  // Under the component's lock.
  std::string name_, settings_;
  mutable TGUID class_id_ = GUID_NULL;
  mutable bool looked_up_ = true;

  std::atomic<unsigned> settings_version_{0};

  // The stream's.
  std::unique_ptr<PQEffect> effect_;
  unsigned applied_version_ = 0;
  std::int64_t frame_bytes_ = 0;
  bool told_failure_ = false, told_size_ = false;
};

namespace PQDMOEffect {
PQ_EXPORT void Register();
}

}  // namespace pantiq
