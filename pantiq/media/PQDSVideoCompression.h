// The compressor filters that graphs of codecs try, in order.
#pragma once
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "pantiq/core/JCStdTypes.h"
#include "pantiq/host/PQCollection.h"
#include "pantiq/platform/PQCodecGraph.h"

namespace pantiq {

// What an item says.
struct PQ_EXPORT TDSCompressionChoice {
  std::string compressor, settings;
  // Names the filter; empty if none is chosen. The media engine is asked only where a name has to be looked up.
  std::string GetMoniker() const;
  PQPlatformResult ApplySettings(PQCodecGraph& graph, PQFilterId filter) const;
};

// A compressor to try.
class PQ_EXPORT TDSCompressionItem : public TCollectionItem {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TDSCompressionItem(TCollection* items) : TCollectionItem(items) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  void Assign(const TPersistent& source) override;

  // "gst:element=jpegenc", "jpegenc", or the name that a list of filters shows; empty passes the item over.
  const std::string& GetCompressor() const { return choice_.compressor; }
  void SetCompressor(const std::string& compressor);
  // "quality=90 qmin=2"; what is no list of name=value is refused.
  const std::string& GetSettings() const { return choice_.settings; }
  PQStatus SetSettings(const std::string& settings);

  const TDSCompressionChoice& Choice() const { return choice_; }
  std::string GetMoniker() const { return choice_.GetMoniker(); }
  // Sets a bound filter to what the item stores.
  virtual PQPlatformResult ApplySettings(PQCodecGraph& graph, PQFilterId filter) const {
    return choice_.ApplySettings(graph, filter);
  }

 private:
  TDSCompressionChoice choice_;
};

// The compressors to try, in order.
class PQ_EXPORT TPQDSVideoCompressionItems final : public TCollection {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  // `lock` belongs to the owner and outlives the collection.
  explicit TPQDSVideoCompressionItems(const TJCObject& lock) : lock_(lock) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  const PQClassInfo& ItemClassInfo() const override { return TDSCompressionItem::Class(); }
  void Assign(const TPersistent& source) override;
  TDSCompressionItem* GetItem(int index) const { return static_cast<TDSCompressionItem*>(TCollection::GetItem(index)); }
  // What the items say now. Any thread.
  std::vector<TDSCompressionChoice> Choices() const;

 protected:
  std::unique_ptr<TCollectionItem> CreateItem() override { return std::make_unique<TDSCompressionItem>(this); }
  void Update(TCollectionItem* item) override;

 private:
  const TJCObject& lock_;
  mutable std::mutex mutex_;  // a leaf: a start that reads must not wait for the lock
  std::vector<TDSCompressionChoice> choices_;
  bool assigning_ = false;
};

}  // namespace pantiq
