// What compressor and decompressor of video have in common: the codecs to try, the bit counts of formats, and the start
// that carries the form of a compressed stream from one to the other.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "pantiq/core/PQStreamTypes.h"
#include "pantiq/host/PQCollection.h"
#include "pantiq/platform/PQCodecManager.h"

namespace pantiq {

// Bits of a pixel: 24, 16 or 8; -1 for a format without a bitmap form.
PQ_EXPORT std::int32_t PQVideoFormatToBitCount(TPQVideoFormat format) noexcept;
// The reverse; vfUnspecified for any other count.
PQ_EXPORT TPQVideoFormat PQBitCountToVideoFormat(std::int32_t bits) noexcept;

// "MJPG" for a codec tag, "$67706a6d" for one that cannot be written as text, nothing for 0.
PQ_EXPORT std::string PQFourCCText(std::uint32_t tag);

// Announces compressed blocks. `BlockSize` and `Rate` are those of the start that caused it; `rate` frames per second.
class PQ_EXPORT TPQStartVideoCompressionOperation final : public TJCStartSampleRateOperation {
 public:
  static const PQClassTag kTag;
  TPQStartVideoCompressionOperation(std::int32_t block_size, float rate, std::uint32_t tag,
                                    const BITMAPINFOHEADER& input, const BITMAPINFOHEADER& output) noexcept
      : TJCStartSampleRateOperation(kTag, block_size, rate), FourCC(tag), InputHeader(input), OutputHeader(output) {
    Rate = rate;
  }
  const std::uint32_t FourCC;
  const BITMAPINFOHEADER InputHeader;   // the frames before they were compressed
  const BITMAPINFOHEADER OutputHeader;  // the blocks
};

class TPQVideoCompressionItems;

// A codec to try.
class PQ_EXPORT TPQVideoCompressionItem final : public TCollectionItem {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TPQVideoCompressionItem(TCollection* items) : TCollectionItem(items) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  void Assign(const TPersistent& source) override;

  // The codec's tag; 0 takes any codec.
  std::uint32_t GetFOURCC() const { return tag_; }
  void SetFOURCC(std::uint32_t tag);
  // The same as text: one to four characters, "$" and eight hexadecimal digits, or nothing.
  std::string GetFourCC() const { return PQFourCCText(tag_); }
  PQStatus SetFourCC(const std::string& text);
  // 1 (smallest) to 10000 (best), 0 for the codec's own; what is higher counts as 10000.
  std::uint32_t GetQuality() const { return quality_; }
  void SetQuality(std::uint32_t quality);

 private:
  std::uint32_t tag_ = 0;
  std::uint32_t quality_ = 0;
};

// The codecs to try, in order.
class PQ_EXPORT TPQVideoCompressionItems final : public TCollection {
 public:
  struct Choice {
    std::uint32_t tag;
    std::uint32_t quality;
  };
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  // `lock` belongs to the owner and outlives the collection.
  explicit TPQVideoCompressionItems(const TJCObject& lock) : lock_(lock) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  const PQClassInfo& ItemClassInfo() const override { return TPQVideoCompressionItem::Class(); }
  void Assign(const TPersistent& source) override;
  TPQVideoCompressionItem* GetItem(int index) const {
    return static_cast<TPQVideoCompressionItem*>(TCollection::GetItem(index));
  }
  // What the items say now. Any thread.
  std::vector<Choice> Choices() const;

 protected:
  std::unique_ptr<TCollectionItem> CreateItem() override { return std::make_unique<TPQVideoCompressionItem>(this); }
  void Update(TCollectionItem* item) override;

 private:
  const TJCObject& lock_;
  std::vector<Choice> choices_;
};

}  // namespace pantiq
