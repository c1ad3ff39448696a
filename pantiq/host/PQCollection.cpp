#include "pantiq/host/PQCollection.h"

#include <algorithm>

namespace pantiq {

constinit const PQClassTag TCollectionItem::kTag{"TCollectionItem", &TPersistent::kTag};
constinit const PQClassTag TCollection::kTag{"TCollection", &TPersistent::kTag};

const PQClassInfo& TCollectionItem::Class() {
  static const PQClassInfo& info =
      PQDescribe<TCollectionItem>("TCollectionItem", "PQCollection", "One of a collection.")
          .Inherits<TPersistent>()
          .Done();
  return info;
}

int TCollectionItem::GetIndex() const {
  const auto& items = collection_->items_;
  const auto found = std::find_if(items.begin(), items.end(), [this](const auto& item) { return item.get() == this; });
  return found == items.end() ? -1 : static_cast<int>(found - items.begin());
}

void TCollectionItem::Changed() {
  if (collection_ != nullptr) collection_->Update(this);
}

const PQClassInfo& TCollection::Class() {
  static const PQClassInfo& info =
      PQDescribe<TCollection>("TCollection", "PQCollection", "An ordered list of items of one class.")
          .Inherits<TPersistent>()
          .Done();
  return info;
}

TCollectionItem* TCollection::GetItem(int index) const {
  return index >= 0 && index < GetCount() ? items_[static_cast<std::size_t>(index)].get() : nullptr;
}

TCollectionItem* TCollection::Add() {
  items_.push_back(CreateItem());
  TCollectionItem* item = items_.back().get();
  try {
    Update(nullptr);
  } catch (...) {  // what follows the list could not: it stays as it was, here and below
    const std::unique_ptr<TCollectionItem> added = std::move(items_.back());
    items_.pop_back();
    throw;
  }
  return item;
}

void TCollection::Delete(int index) {
  if (GetItem(index) == nullptr) return;
  // The item leaves the list before it dies, so that what it touches on its way out finds a list without it.
  std::unique_ptr<TCollectionItem> item = std::move(items_[static_cast<std::size_t>(index)]);
  items_.erase(items_.begin() + index);
  try {
    Update(nullptr);
  } catch (...) {
    items_.insert(items_.begin() + index, std::move(item));
    throw;
  }
}

void TCollection::Clear() {
  if (items_.empty()) return;
  std::vector<std::unique_ptr<TCollectionItem>> items;
  items.swap(items_);
  try {
    Update(nullptr);
  } catch (...) {
    items.swap(items_);
    throw;
  }
}

void TCollection::Move(int from, int to) {
  if (GetItem(from) == nullptr || GetItem(to) == nullptr || from == to) return;
  const auto move = [this](int here, int there) {
    const auto first = items_.begin();
    if (here < there) {
      std::rotate(first + here, first + here + 1, first + there + 1);
    } else {
      std::rotate(first + there, first + here, first + here + 1);
    }
  };
  move(from, to);
  try {
    Update(nullptr);
  } catch (...) {
    move(to, from);
    throw;
  }
}

void TCollection::Assign(const TPersistent& source) {
  const TCollection* other = PQCast<const TCollection>(&source);
  if (other == nullptr || other == this) return;
  Clear();
  for (const auto& item : other->items_) Add()->Assign(*item);
}

}  // namespace pantiq
