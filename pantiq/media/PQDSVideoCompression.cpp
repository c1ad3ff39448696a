#include "pantiq/media/PQDSVideoCompression.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include "pantiq/media/PQDSCapDeviceList.h"
#include "pantiq/platform/PQSettings.h"

namespace pantiq {

constinit const PQClassTag TDSCompressionItem::kTag{"TDSCompressionItem", &TCollectionItem::kTag};
constinit const PQClassTag TPQDSVideoCompressionItems::kTag{"TPQDSVideoCompressionItems", &TCollection::kTag};

namespace {

constexpr const char* kScheme = "gst:";
constexpr const char* kElement = "gst:element=";

}  // namespace

// --- TDSCompressionItem ---------------------------------------------------------------------------------------------

std::string TDSCompressionChoice::GetMoniker() const {
  if (compressor.empty() || compressor.starts_with(kScheme)) return compressor;
  const bool is_word = std::all_of(compressor.begin(), compressor.end(), [](unsigned char c) {
    return std::islower(c) != 0 || std::isdigit(c) != 0 || c == '_' || c == '-';
  });
  if (is_word) return kElement + compressor;
  TPQDSCapDeviceList filters;
  (void)filters.EnumFilters(PQFilterCategory::VideoCompressors);
  const std::string moniker = filters.GetMonikerByDeviceName(compressor);
  return moniker.empty() ? compressor : moniker;  // binding it will say that there is none
}

PQPlatformResult TDSCompressionChoice::ApplySettings(PQCodecGraph& graph, PQFilterId filter) const {
  return graph.ApplySettings(filter, settings);
}

const PQClassInfo& TDSCompressionItem::Class() {
  static const PQClassInfo& info =
      PQDescribe<TDSCompressionItem>("TDSCompressionItem", "PQDSVideoCompression", "A compressor to try.")
          .Inherits<TCollectionItem>()
          .Property(
              "Compressor", &TDSCompressionItem::GetCompressor, &TDSCompressionItem::SetCompressor, PQDefault(""),
              PQActs::NextStart,
              "An encoder of GStreamer, gst:element=NAME or NAME alone: jpegenc, x264enc, avenc_mpeg4, vp8enc, or "
              "without loss avenc_ffv1, avenc_huffyuv, pngenc. Empty passes the item over.")
          .Property("Settings", &TDSCompressionItem::GetSettings, &TDSCompressionItem::SetSettings, PQDefault(""),
                    PQActs::NextStart,
                    "The encoder's own properties, name=value, separated by blanks: quality=90, or qmin=2 qmax=8.")
          .Done();
  return info;
}

void TDSCompressionItem::Assign(const TPersistent& source) {
  const auto* other = PQCast<const TDSCompressionItem>(&source);
  if (other == nullptr || other == this) return;
  choice_ = other->choice_;
  Changed();
}

void TDSCompressionItem::SetCompressor(const std::string& compressor) {
  choice_.compressor = compressor;
  Changed();
}

PQStatus TDSCompressionItem::SetSettings(const std::string& settings) {
  PQSettingsList list;
  if (const auto result = PQParseSettings(settings, list); !result.Ok()) return {PQCode::BadValue, result.detail};
  choice_.settings = settings;
  Changed();
  return {};
}

// --- TPQDSVideoCompressionItems -------------------------------------------------------------------------------------

const PQClassInfo& TPQDSVideoCompressionItems::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQDSVideoCompressionItems>("TPQDSVideoCompressionItems", "PQDSVideoCompression",
                                             "Compressors to try, in order.")
          .Inherits<TCollection>()
          .Done();
  return info;
}

void TPQDSVideoCompressionItems::Assign(const TPersistent& source) {
  const auto section = lock_.WriteLock();
  assigning_ = true;  // a start sees the old items or the new ones
  TCollection::Assign(source);
  assigning_ = false;
  Update(nullptr);
}

std::vector<TDSCompressionChoice> TPQDSVideoCompressionItems::Choices() const {
  const std::lock_guard lock(mutex_);
  return choices_;
}

void TPQDSVideoCompressionItems::Update(TCollectionItem*) {
  if (assigning_) return;
  std::vector<TDSCompressionChoice> choices;
  for (int i = 0; i < GetCount(); ++i) choices.push_back(GetItem(i)->Choice());
  const std::lock_guard lock(mutex_);
  choices_ = std::move(choices);
}

}  // namespace pantiq
