// What the filters share that move pixels to other places: the call of a kernel that takes a rectangle of one picture to
// another picture.
#pragma once
#include "pantiq/core/PQCommonFilter.h"

namespace pantiq {

// Gray frames stay gray. The output has the size that the stream was started with; before a start frames pass. What the
// kernel does not reach is black.
class PQ_EXPORT TPQCommonMoveFilter : public TPQCommonROISizeFilter {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQCommonMoveFilter(TComponent* owner) : TPQCommonROISizeFilter(owner) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

 protected:
  // The arguments that the kernels have in common.
  struct Move {
    bool gray;
    const std::uint8_t* source;
    IppiSize source_size;
    int source_step;
    TPQImageRect source_rect;  // the region, or the whole frame
    std::uint8_t* destination;
    IppiSize destination_size;
    int destination_step;
    TPQImageRect destination_rect;  // all of the output
    int code;                       // interpolation
  };
  void SetVideoFormat(PQImageRef& buffer) override { AcceptGray(buffer); }
  void FilterInternalOperation(const PQImageRef& in, PQImageRef& out) final;
  // One frame; where nothing is drawn, a black one goes on.
  virtual IppStatus MovePixels(const Move& move) = 0;
  // Whether the kernel leaves pixels alone, so that the output is cleared first.
  virtual bool LeavesPixels() const { return true; }
  // True if the frame itself is the result.
  virtual bool IsIdentity(const Move& move) const {
    (void)move;
    return false;
  }
};

// With smooth borders.
class PQ_EXPORT TPQCommonSmoothMoveFilter : public TPQCommonMoveFilter {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQCommonSmoothMoveFilter(TComponent* owner) : TPQCommonMoveFilter(owner) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  bool GetSmoothEdge() const { return smooth_edge_.load(std::memory_order_relaxed); }
  void SetSmoothEdge(bool smooth);

 protected:
  // The interpolation code with the bit for smooth borders.
  int Code(const Move& move) const {
    return GetSmoothEdge() ? static_cast<int>(static_cast<unsigned>(move.code) | 0x80000000u) : move.code;
  }

 private:
  std::atomic<bool> smooth_edge_{false};
};

}  // namespace pantiq
