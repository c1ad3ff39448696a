// `frames`: each frame a picture file of its own, 'out-%04d.png'. The pattern has exactly one %d form (%d, %5d, %04d),
// which becomes the frame's number from 0; %% is a percent sign. The ending says the kind: .png, .jpg, .jpeg, .bmp.
#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "ProgramSink.h"

namespace pantiq::app {

// A file name with one place for a number.
struct NamePattern {
  std::string before, after;
  int width = 0;       // least number of characters
  bool zeros = false;  // filled with zeros, else with blanks
  std::string Name(std::int64_t number) const;
  // True if some number gives this name.
  bool Matches(std::string_view name) const;
  static PQStatus Parse(std::string_view text, NamePattern& pattern);
};

class FramesSink final : public ImageSink {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit FramesSink(TComponent* owner) : ImageSink(owner, "frame-%04d.png") {}
  ~FramesSink() override { BeforeDestructionOnce(); }
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  // Refuses patterns that are not as described above.
  PQStatus SetFileName(const std::string& name) override;
  // Files that are there and that have a name of the pattern, in order.
  std::vector<std::string> ExistingOutputs() const;
  // The folder that the pictures go to.
  std::string OutputFolder() const;

 protected:
  PQStatus Frame(const TPQImageBuffer& frame, std::int64_t number) override;
  PQStatus Stop() override { return {}; }
};

// Whether the name ends like a picture file that can be written: .png, .jpg, .jpeg, .bmp.
bool IsPictureName(const std::string& name);

}  // namespace pantiq::app
