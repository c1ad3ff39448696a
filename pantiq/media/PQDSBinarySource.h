// TMyFilter: the source of blocks in a graph of codecs, with its one pin.
//
// Threads. Send belongs to the owner's frame path; everything else too, but Inactive may come from any thread.
#pragma once
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "pantiq/core/JCStdTypes.h"
#include "pantiq/platform/PQCodecGraph.h"

namespace pantiq {

// Results of the platform's filters, as they are known everywhere.
using HRESULT = std::int32_t;
inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT VFW_S_NO_MORE_ITEMS = 0x00040103;
inline constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003u);
inline constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005u);
inline constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057u);

// What is asked of an allocator, and what it gives: numbers and bytes.
struct ALLOCATOR_PROPERTIES {
  std::int32_t cBuffers = 0, cbBuffer = 0, cbAlign = 0, cbPrefix = 0;
};

// Memory for one sample.
class PQ_EXPORT TDSMediaSample {
 public:
  explicit TDSMediaSample(std::int32_t size);
  std::int32_t GetSize() const { return size_; }
  std::uint8_t* GetPointer() { return memory_.get(); }
  std::int32_t GetActualDataLength() const { return length_; }
  void SetActualDataLength(std::int32_t length) { length_ = length; }
  bool IsSyncPoint() const { return sync_point_; }
  void SetSyncPoint(bool on) { sync_point_ = on; }
  std::shared_ptr<const void> Memory() const { return memory_; }

 private:
  std::shared_ptr<std::uint8_t[]> memory_;
  std::int32_t size_, length_ = 0;
  bool sync_point_ = false;
};

class PQ_EXPORT TDSMemAllocator {
 public:
  virtual ~TDSMemAllocator() = default;
  // Some codecs make blocks larger than the frame: buffers have room for two and a half times what was asked for.
  virtual HRESULT SetProperties(const ALLOCATOR_PROPERTIES& request, ALLOCATOR_PROPERTIES& actual);
  // Null if nothing was agreed.
  std::unique_ptr<TDSMediaSample> GetBuffer();

 private:
  ALLOCATOR_PROPERTIES actual_;
};

class TDSBaseSourceFilter;

// A source pin of a filter.
class PQ_EXPORT TDSSourceStreamPin {
 public:
  explicit TDSSourceStreamPin(TDSBaseSourceFilter& filter) : filter_(filter) {}
  virtual ~TDSSourceStreamPin() = default;

  virtual HRESULT GetMediaType(std::int32_t position, PQStreamForm* type) = 0;
  virtual HRESULT CheckMediaType(const PQStreamForm* type) = 0;
  virtual HRESULT SetMediaType(const PQStreamForm* type) = 0;
  virtual HRESULT DecideBufferSize(TDSMemAllocator* allocator, ALLOCATOR_PROPERTIES* request) = 0;

  // The pin takes samples from Active to Inactive; Active agrees on buffers.
  HRESULT DecideAllocator(std::unique_ptr<TDSMemAllocator> allocator);
  HRESULT Active(std::shared_ptr<PQCodecGraph> graph, PQFilterId id);
  void Inactive() { active_.store(false); }
  bool IsActive() const { return active_.load(); }

  std::unique_ptr<TDSMediaSample> GetDeliveryBuffer();
  // Stamps in 100 ns. With `wait` it waits while the graph has enough to do.
  HRESULT Deliver(const TDSMediaSample& sample, std::int64_t start, std::int64_t stop, bool wait,
                  PQPlatformResult& result);

 protected:
  TDSBaseSourceFilter& filter_;

 private:
  std::unique_ptr<TDSMemAllocator> allocator_;
  std::shared_ptr<PQCodecGraph> graph_;
  PQFilterId id_ = 0;
  std::atomic<bool> active_{false};
};

// A filter with pins of its own.
class PQ_EXPORT TDSBaseSourceFilter {
 public:
  TDSBaseSourceFilter(std::string name, const TGUID& class_id) : name_(std::move(name)), class_id_(class_id) {}
  virtual ~TDSBaseSourceFilter() = default;
  const std::string& GetName() const { return name_; }
  const TGUID& GetClassId() const { return class_id_; }
  void FilterLock() { mutex_.lock(); }
  void FilterUnlock() { mutex_.unlock(); }

 private:
  const std::string name_;
  const TGUID class_id_;
  std::recursive_mutex mutex_;
};

class PQ_EXPORT TMyBinarySourceStreamPin final : public TDSSourceStreamPin {
 public:
  using TDSSourceStreamPin::TDSSourceStreamPin;
  // The stored type for position 0; E_INVALIDARG below, VFW_S_NO_MORE_ITEMS above.
  HRESULT GetMediaType(std::int32_t position, PQStreamForm* type) override;
  // Any type is good; E_POINTER for none.
  HRESULT CheckMediaType(const PQStreamForm* type) override;
  HRESULT SetMediaType(const PQStreamForm* type) override;
  // One buffer of the block size; E_FAIL if the allocator gives less.
  HRESULT DecideBufferSize(TDSMemAllocator* allocator, ALLOCATOR_PROPERTIES* request) override;

  // Bytes; what is below 1 counts as 1.
  void SetBlockSize(std::int32_t bytes);
  std::int32_t GetBlockSize() const { return block_size_; }

  // Sends bytes as samples of at most the agreed size. False, with a result, if one of them does not leave, or there is
  // nothing to send.
  bool Send(const void* data, std::int32_t size, std::int64_t start, std::int64_t stop, bool wait,
            PQPlatformResult& result);

 private:
  PQStreamForm type_;
  std::int32_t block_size_ = 1;
};

class PQ_EXPORT TMyFilter final : public TDSBaseSourceFilter {
 public:
  static const TGUID kClassId;
  TMyFilter(std::string name, const TGUID& class_id) : TDSBaseSourceFilter(std::move(name), class_id), pin_(*this) {}
  TMyBinarySourceStreamPin& Pin() { return pin_; }
  int GetPinCount() const { return 1; }
  // Null outside 0..count-1.
  TDSSourceStreamPin* GetPin(int index) { return index == 0 ? &pin_ : nullptr; }

 private:
  TMyBinarySourceStreamPin pin_;
};

}  // namespace pantiq
