// Which tags there are, what stands for them in libav, and what each form of stream wants.
#pragma once
#include <span>

#include "pantiq/platform/av/PQAvCommon.h"

namespace pantiq::av {

inline constexpr std::uint32_t kTagBitmap = PQFourCC('D', 'I', 'B', ' ');  // 24 bits, not compressed

// How a form of stream grades its quality, from the best number to the worst.
enum class QualityKind { None, Scale, X264, Vpx };

struct StreamForm {
  AVCodecID id;
  QualityKind quality = QualityKind::None;
  // The form's header is not in its blocks. An encoder that is opened for the same tag and size makes the same one.
  bool header_apart = false;
  // Pixels of a side. For less the encoder opens, and one of the two then fails.
  int least = 1;
};

// The stream that a tag means: AV_CODEC_ID_NONE if it is unknown, or one that must not be used.
AVCodecID IdOfTag(std::uint32_t tag);
// Streams whose encoder gives one block for each frame, at once; null for any other.
const StreamForm* FormOf(AVCodecID id);

// Tags to try, the most useful first.
std::span<const std::uint32_t> KnownTags();

}  // namespace pantiq::av
