// TCollection: an ordered list of items of one class, each with published properties; TCollectionItem: one of them.
//
// Threads. A collection is changed by the owner-thread of the component that it belongs to.
#pragma once
#include <memory>
#include <string>
#include <vector>

#include "pantiq/host/PQPersistent.h"

namespace pantiq {

class TCollection;

class PQ_EXPORT TCollectionItem : public TPersistent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  explicit TCollectionItem(TCollection* collection) : collection_(collection) {}
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }
  TCollection* GetCollection() const { return collection_; }
  // Position in the collection, from 0.
  int GetIndex() const;

 protected:
  // Tells the collection that a property of the item has changed.
  void Changed();

 private:
  TCollection* collection_;
};

class PQ_EXPORT TCollection : public TPersistent {
 public:
  static const PQClassTag kTag;
  static const PQClassInfo& Class();
  const PQClassTag& Tag() const noexcept override { return kTag; }
  const PQClassInfo& ClassInfo() const override { return Class(); }

  int GetCount() const { return static_cast<int>(items_.size()); }
  // Null outside 0..count-1.
  TCollectionItem* GetItem(int index) const;
  TCollectionItem* Add();
  // An index outside 0..count-1 is ignored.
  void Delete(int index);
  void Clear();
  void Move(int from, int to);
  void Assign(const TPersistent& source) override;

  // The description of the items' class.
  virtual const PQClassInfo& ItemClassInfo() const = 0;

 protected:
  friend class TCollectionItem;
  virtual std::unique_ptr<TCollectionItem> CreateItem() = 0;
  // Runs after an item was added, removed, moved or changed (item is null for all of them).
  virtual void Update(TCollectionItem* item) { (void)item; }

 private:
  std::vector<std::unique_ptr<TCollectionItem>> items_;
};

}  // namespace pantiq
