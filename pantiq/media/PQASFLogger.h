// TPQASFLogger: records video, and sound if there is any, to a file. ASF unless the profile or the file name's ending
// says otherwise.
#pragma once
#include <atomic>

#include "pantiq/media/PQBXASFProfile.h"
#include "pantiq/media/PQDSCommonLogger.h"

namespace pantiq {

class PQ_EXPORT TPQASFLogger final : public TPQDSCommonLogger {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQASFLogger(TComponent* owner = nullptr);
  ~TPQASFLogger() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  // Loaded at each start, so that a change acts at the next one.
  TBXASFProfile& GetProfile() { return profile_; }
  void SetProfile(const TBXASFProfile& profile) { profile_.Assign(profile); }
  // Builds an index of the frames, for readers that want to jump. ASF only.
  bool GetFrameIndexing() const { return frame_indexing_.load(std::memory_order_relaxed); }
  void SetFrameIndexing(bool on);

 protected:
  bool BuildGraph() override;

 private:
  TBXASFProfile profile_;
  std::atomic<bool> frame_indexing_{true};
};

namespace PQASFLogger {
PQ_EXPORT void Register();
}

}  // namespace pantiq
