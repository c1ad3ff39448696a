// Writing: what an object holds is collected first, then merged into the block that was read.
#include <algorithm>
#include <map>
#include <memory>

#include "pantiq/host/PQCollection.h"
#include "pantiq/host/PQComponent.h"
#include "pantiq/host/PQPicture.h"
#include "pantiq/host/PQTextLiteral.h"
#include "pantiq/host/PQTextStream.h"

namespace pantiq {
namespace {

constexpr std::size_t kBytesPerLine = 32;

struct Written {
  std::string path;
  std::string value;
  bool is_pin = false;
  bool is_default = false;            // written only where a line of it is there already
  TCollection* collection = nullptr;  // instead of a value
  int count_when_new = 0;             // of the collection's items
  const PQProperty* property = nullptr;
  const TPersistent* holder = nullptr;  // with the property's name this tells entries apart, however a path is spelt
};

// A path with quotes only where they are needed.
std::string Plain(const std::string& path) {
  std::vector<PQPathStep> steps;
  if (!PQParsePath(path, steps).Ok()) return path;
  std::string plain;
  for (const PQPathStep& step : steps) {
    if (step.name.empty()) {
      plain.append("[").append(std::to_string(step.index)).append("]");
    } else {
      plain.append(plain.empty() ? "" : ".").append(PQPathName(step.name));
    }
  }
  return plain;
}

// Everything that can be stored of one object, sub-properties included, in the order in which it is set again.
class Present {
 public:
  Present(const TPersistent& object, const PQTextUpdate& how) : how_(how) {
    const TComponent* const component = PQCast<const TComponent>(&object);
    if (component != nullptr && object.ClassInfo().CanCreate()) {
      info_ = &object.ClassInfo();
    }
    // The accessors of parts are not const for the sake of writers; only their getters are called here.
    Collect(const_cast<TPersistent&>(object), {}, nullptr);
    std::stable_partition(entries_.begin(), entries_.end(), [](const Written& entry) { return !entry.is_pin; });
  }
  const std::vector<Written>& Entries() const { return entries_; }

 private:
  void Collect(TPersistent& object, const std::string& prefix, const PQProperty* outer) {
    std::vector<PQProperty> all = PQAllProperties(object, outer);
    std::stable_sort(all.begin(), all.end(),
                     [](const PQProperty& a, const PQProperty& b) { return a.order < b.order; });
    for (PQProperty& found : all) {
      if (!found.stored) continue;
      kept_.push_back(std::make_unique<PQProperty>(PQWithOuterDefault(outer, std::move(found))));
      const PQProperty& p = *kept_.back();
      Written entry;
      entry.path = prefix + PQPathName(p.name);
      entry.property = &p;
      entry.holder = &object;
      TPersistent* const part = p.object ? p.object(object) : nullptr;
      switch (p.kind) {
        case PQKind::Object:
        case PQKind::PinList:
          if (part != nullptr) Collect(*part, entry.path + ".", &p);
          continue;
        case PQKind::Collection:
          entry.collection = PQCast<TCollection>(part);
          if (entry.collection == nullptr) continue;
          entry.count_when_new = CountWhenNew(entry.path);
          entry.is_default = entry.collection->GetCount() == 0 && entry.count_when_new == 0;
          break;
        case PQKind::Picture: {
          const TPicture* const picture = PQCast<TPicture>(part);
          if (picture == nullptr) continue;
          const PQValue stored = picture->GetStored(how_.pictures_by_name);
          entry.is_default = stored.IsEmpty();
          entry.value = stored.IsEmpty() ? std::string("''") : PQFormatValue(p, stored);
          break;
        }
        case PQKind::Pin:
          entry.is_pin = true;
          if (p.pin_role == PQPinRole::Source || part == nullptr) continue;
          entry.value = Plain(part->GetSaveName());
          if (entry.value.empty()) continue;
          break;
        default: {
          if (!p.get || !p.set) continue;
          const PQValue value = p.get(object);
          entry.is_default = PQIsDefault(p, object, value);
          entry.value = PQFormatValue(p, value);
          break;
        }
      }
      entries_.push_back(std::move(entry));
    }
  }

  // How many items the collection has in a new object. Few classes have collections; only those pay for the question.
  int CountWhenNew(const std::string& path) {
    if (info_ == nullptr) return 0;
    if (fresh_ == nullptr) fresh_ = PQOwned<TComponent>(info_->Create(nullptr));
    std::vector<PQPathStep> steps;
    PQPathEnd end;
    PQFault fault;
    if (!PQParsePath(path, steps).Ok() || !PQFollowPath(*fresh_, steps, false, end, fault)) return 0;
    TPersistent* const part = end.property.object ? end.property.object(*end.object) : nullptr;
    const TCollection* const collection = PQCast<TCollection>(part);
    return collection != nullptr ? collection->GetCount() : 0;
  }

  const PQTextUpdate& how_;
  const PQClassInfo* info_ = nullptr;
  PQOwned<TComponent> fresh_;
  std::vector<Written> entries_;
  std::vector<std::unique_ptr<PQProperty>> kept_;
};

std::string Blanks(int count) { return std::string(static_cast<std::size_t>(std::max(count, 0)), ' '); }

// Long blocks of bytes go on in further lines, below their first byte.
std::string Wrapped(const std::string& value, std::size_t column) {
  if (!value.starts_with('{') || value.size() <= kBytesPerLine * 3 + 1) return value;
  std::string wrapped;
  wrapped.reserve(value.size() + value.size() / (kBytesPerLine * 3) * column);
  for (std::size_t i = 0; i < value.size(); i += kBytesPerLine * 3) {
    if (i != 0) {
      wrapped.back() = '\n';  // in the place of the blank between two bytes
      wrapped.append(column + 1, ' ');
    }
    wrapped.append(value, i == 0 ? 0 : i + 1, i == 0 ? kBytesPerLine * 3 + 1 : kBytesPerLine * 3);
  }
  return wrapped;
}

class Updater {
 public:
  explicit Updater(const PQTextUpdate& how) : how_(how) {}

  void Update(PQTextNode& block, const TPersistent& object, int indent) {
    const Present present(object, how_);
    const std::vector<Written>& entries = present.Entries();
    std::vector<bool> written(entries.size(), false);
    for (std::size_t i = 0; i < entries.size(); ++i) {
      if (entries[i].collection != nullptr) written[i] = SettleIndexed(block, entries[i]);
    }
    std::erase_if(block.children, [&](PQTextNode& node) {
      if (node.kind != PQTextNode::Kind::Value && node.kind != PQTextNode::Kind::Collection) return false;
      for (std::size_t i = 0; i < entries.size(); ++i) {
        if (written[i] && IsIndexed(node, entries[i])) return false;
      }
      bool foreign = false;
      const Written* const found = Find(node, object, entries, foreign);
      if (found == nullptr) return !foreign;
      const std::size_t at = static_cast<std::size_t>(found - entries.data());
      if (written[at]) return true;
      written[at] = Refresh(node, *found);
      return !written[at];
    });
    for (std::size_t i = 0; i < entries.size(); ++i) {
      if (!written[i] && !entries[i].is_default) Insert(block, entries, entries[i], indent);
    }
  }

 private:
  // The entry that a line is about; null if there is none, `foreign` if the object does not know such a property.
  static const Written* Find(const PQTextNode& node, const TPersistent& object, const std::vector<Written>& entries,
                           bool& foreign) {
    std::vector<PQPathStep> steps;
    PQPathEnd end;
    PQFault fault;
    foreign = !PQParsePath(node.path, steps).Ok() ||
              !PQFollowPath(const_cast<TPersistent&>(object), steps, false, end, fault);
    if (foreign) return nullptr;
    for (const Written& entry : entries) {
      if (entry.holder == end.object && entry.property->name == end.property.name) return &entry;
    }
    return nullptr;
  }

  // Lines such as "Items[0].Value = 3" say something of a collection's item.
  static bool IsIndexed(const PQTextNode& node, const Written& entry) {
    return entry.collection != nullptr && node.kind == PQTextNode::Kind::Value &&
           node.path.size() > entry.path.size() && node.path.starts_with(entry.path) &&
           node.path[entry.path.size()] == '[';
  }

  // A collection that a text has as indexed lines keeps them while they say all that there is to say, and no more.
  // Otherwise they go, and the collection is written as blocks.
  bool SettleIndexed(PQTextNode& block, const Written& entry) {
    std::map<std::string, const std::string*> lines;  // from what stands behind the collection's name
    for (const PQTextNode& node : block.children) {
      if (IsIndexed(node, entry)) lines[node.path.substr(entry.path.size())] = &node.value;
    }
    if (lines.empty()) return false;
    std::size_t met = 0;
    int implied = entry.count_when_new;
    bool holds = true;
    for (int i = 0; i < entry.collection->GetCount() && holds; ++i) {
      const Present item(*entry.collection->GetItem(i), how_);
      const std::string prefix = "[" + std::to_string(i) + "].";
      for (const Written& part : item.Entries()) {
        const auto line = lines.find(prefix + part.path);
        if (line != lines.end() && part.collection == nullptr) {
          holds = holds && Holds(*line->second, part);
          implied = std::max(implied, i + 1);
          ++met;
        } else {
          holds = holds && part.is_default;
        }
      }
    }
    if (holds && met == lines.size() && implied == entry.collection->GetCount()) return true;
    std::erase_if(block.children, [&](const PQTextNode& node) { return IsIndexed(node, entry); });
    return false;
  }

  // True if the text of a value that was read still says what the object holds.
  bool Holds(const std::string& text, const Written& entry) const {
    if (entry.is_pin) return how_.same_link ? how_.same_link(text, entry.value) : text == entry.value;
    PQValue value;
    return PQParseValue(*entry.property, text, value).Ok() && PQFormatValue(*entry.property, value) == entry.value;
  }

  // Brings one line or collection up to date; false if it has to go.
  bool Refresh(PQTextNode& node, const Written& entry) {
    if (entry.collection != nullptr) {
      if (node.kind != PQTextNode::Kind::Collection) return false;
      RefreshItems(node, *entry.collection);
      return true;
    }
    if (node.kind != PQTextNode::Kind::Value) return false;
    if (Holds(node.value, entry)) return true;
    if (entry.is_default) return false;
    node.value = Wrapped(entry.value, node.head.size());
    return true;
  }

  void RefreshItems(PQTextNode& node, TCollection& collection) {
    int index = 0;
    std::erase_if(node.children, [&](PQTextNode& child) {
      if (child.kind != PQTextNode::Kind::Item) return false;
      TCollectionItem* const item = collection.GetItem(index);
      if (item == nullptr) return true;
      ++index;
      Update(child, *item, IndentOf(child.head) + 2);
      return false;
    });
    for (; index < collection.GetCount(); ++index) AddItem(node, *collection.GetItem(index), IndentOf(node.head));
  }

  void AddItem(PQTextNode& collection, const TCollectionItem& item, int indent) {
    PQTextNode node;
    node.kind = PQTextNode::Kind::Item;
    node.head = Blanks(indent) + "item";
    node.foot = Blanks(indent) + "end";
    Update(node, item, indent + 2);
    collection.children.push_back(std::move(node));
  }

  static int IndentOf(const std::string& head) {
    const std::size_t first = head.find_first_not_of(' ');
    return static_cast<int>(first == std::string::npos ? 0 : first);
  }

  void Insert(PQTextNode& block, const std::vector<Written>& entries, const Written& entry, int indent) {
    const auto is_line = [](const PQTextNode& node) {
      return node.kind == PQTextNode::Kind::Value || node.kind == PQTextNode::Kind::Collection;
    };
    const auto is_link = [&](const PQTextNode& node) {
      return std::any_of(entries.begin(), entries.end(),
                         [&](const Written& other) { return other.is_pin && other.path == node.path; });
    };
    // Behind the last line of its sort: connections come last; comments at the block's end stay there.
    auto at = block.children.end();
    bool behind = false;
    for (auto i = block.children.begin(); i != block.children.end(); ++i) {
      if (!is_line(*i)) continue;
      if (at == block.children.end()) {
        indent = IndentOf(i->head);
        if (!behind) at = i;  // in front of everything, unless a line of its sort turns up
      }
      if (entry.is_pin || !is_link(*i)) at = i + 1, behind = true;
    }
    PQTextNode node;
    node.path = entry.path;
    if (entry.collection != nullptr) {
      node.kind = PQTextNode::Kind::Collection;
      node.head = Blanks(indent) + entry.path;
      for (int i = 0; i < entry.collection->GetCount(); ++i) AddItem(node, *entry.collection->GetItem(i), indent);
    } else {
      node.kind = PQTextNode::Kind::Value;
      node.head = Blanks(indent) + entry.path + " = ";
      node.value = Wrapped(entry.value, node.head.size());
    }
    block.children.insert(at, std::move(node));
  }

  const PQTextUpdate& how_;
};

}  // namespace

void PQUpdateText(PQTextNode& block, const TPersistent& object, const PQTextUpdate& how) {
  Updater(how).Update(block, object, how.indent);
}

bool PQIsDefault(const PQProperty& property, const TPersistent& object, const PQValue& value) {
  if (property.default_value.IsEmpty() || (property.kept != nullptr && property.kept(object))) return false;
  if (property.kind == PQKind::Float && property.single_precision && value.Float() != nullptr &&
      property.default_value.Float() != nullptr) {
    return PQValue(static_cast<float>(*value.Float())) == PQValue(static_cast<float>(*property.default_value.Float()));
  }
  return property.default_value == value;
}

PQProperty PQWithOuterDefault(const PQProperty* outer, PQProperty inner) {
  if (outer != nullptr) {
    for (const auto& [name, value] : outer->object_defaults) {
      if (name == inner.name) inner.default_value = value;
    }
  }
  return inner;
}

}  // namespace pantiq
