#include "pantiq/media/PQVideoCompression.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

namespace pantiq {

constinit const PQClassTag TPQStartVideoCompressionOperation::kTag{"TPQStartVideoCompressionOperation",
                                                                   &TJCStartSampleRateOperation::kTag};
constinit const PQClassTag TPQVideoCompressionItem::kTag{"TPQVideoCompressionItem", &TCollectionItem::kTag};
constinit const PQClassTag TPQVideoCompressionItems::kTag{"TPQVideoCompressionItems", &TCollection::kTag};

namespace {

bool IsPrintable(char c) { return c >= 0x20 && c < 0x7f; }

}  // namespace

std::int32_t PQVideoFormatToBitCount(TPQVideoFormat format) noexcept {
  const std::int32_t bytes = PQPixelSize(format);
  return bytes > 0 ? bytes * 8 : -1;
}

TPQVideoFormat PQBitCountToVideoFormat(std::int32_t bits) noexcept {
  for (const TPQVideoFormat format : {vfRGB24, vfYUY2, vfGrayScale}) {
    if (bits == PQVideoFormatToBitCount(format)) return format;
  }
  return vfUnspecified;
}

std::string PQFourCCText(std::uint32_t tag) {
  if (tag == 0) return {};
  std::string text;
  for (int i = 0; i < 4; ++i) text += static_cast<char>(tag >> (8 * i) & 0xff);
  // A first blank would be lost, and a tag of blanks be none.
  if (text.front() == ' ' || !std::all_of(text.begin(), text.end(), IsPrintable)) {
    char hex[16];
    std::snprintf(hex, sizeof hex, "$%08x", static_cast<unsigned>(tag));
    return hex;
  }
  while (text.back() == ' ') text.pop_back();
  return text;
}

// --- TPQVideoCompressionItem ----------------------------------------------------------------------------------------

const PQClassInfo& TPQVideoCompressionItem::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQVideoCompressionItem>("TPQVideoCompressionItem", "PQVideoCompression", "A codec to try.")
          .Inherits<TCollectionItem>()
          .Property("FourCC", &TPQVideoCompressionItem::GetFourCC, &TPQVideoCompressionItem::SetFourCC, PQDefault(""),
                    PQActs::NextStart,
                    "Tag of the codec: MJPG, XVID, X264, or without loss FFV1, HFYU, MPNG; empty takes any. "
                    "`pantiq list --codecs` shows what works here.")
          .Property("Quality", &TPQVideoCompressionItem::GetQuality, &TPQVideoCompressionItem::SetQuality,
                    PQDefault(std::uint32_t{0}), PQUseful(std::uint32_t{0}, kBestCodecQuality), PQActs::NextStart,
                    "1 makes the smallest blocks, 10000 the best pictures, 0 is the codec's own choice. Codecs without "
                    "grades take no notice.")
          .Done();
  return info;
}

void TPQVideoCompressionItem::Assign(const TPersistent& source) {
  const auto* other = PQCast<const TPQVideoCompressionItem>(&source);
  if (other == nullptr || other == this) return;
  tag_ = other->tag_;
  quality_ = other->quality_;
  Changed();
}

void TPQVideoCompressionItem::SetFOURCC(std::uint32_t tag) {
  tag_ = tag;
  Changed();
}

PQStatus TPQVideoCompressionItem::SetFourCC(const std::string& text) {
  std::uint32_t tag = 0;
  bool good = text.empty();
  if (text.size() == 9 && text.front() == '$') {
    const char* const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data() + 1, end, tag, 16);
    good = parsed.ec == std::errc() && parsed.ptr == end;
  } else if (!text.empty() && text.size() <= 4 && text.front() != ' ') {
    good = std::all_of(text.begin(), text.end(), IsPrintable);
    for (std::size_t i = 0; i < 4; ++i) {
      const char c = i < text.size() ? text[i] : ' ';
      tag |= static_cast<std::uint32_t>(static_cast<unsigned char>(c)) << (8 * i);
    }
  }
  if (!good) {
    return {PQCode::BadValue, "'" + text +
                                  "': a codec tag has one to four characters, like MJPG, or is written as $ and "
                                  "eight hexadecimal digits; without one any codec is taken"};
  }
  SetFOURCC(tag);
  return {};
}

void TPQVideoCompressionItem::SetQuality(std::uint32_t quality) {
  quality_ = quality;
  Changed();
}

// --- TPQVideoCompressionItems ---------------------------------------------------------------------------------------

const PQClassInfo& TPQVideoCompressionItems::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQVideoCompressionItems>("TPQVideoCompressionItems", "PQVideoCompression", "Codecs to try, in order.")
          .Inherits<TCollection>()
          .Done();
  return info;
}

void TPQVideoCompressionItems::Assign(const TPersistent& source) {
  const auto section = lock_.WriteLock();  // a start sees the old codecs or the new ones
  TCollection::Assign(source);
}

std::vector<TPQVideoCompressionItems::Choice> TPQVideoCompressionItems::Choices() const {
  const auto section = lock_.ReadLock();
  return choices_;
}

void TPQVideoCompressionItems::Update(TCollectionItem*) {
  std::vector<Choice> choices;
  for (int i = 0; i < GetCount(); ++i) choices.push_back({GetItem(i)->GetFOURCC(), GetItem(i)->GetQuality()});
  const auto section = lock_.WriteLock();
  choices_ = std::move(choices);
}

}  // namespace pantiq
