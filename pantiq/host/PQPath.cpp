#include "pantiq/host/PQPath.h"

#include <charconv>
#include <climits>

#include "pantiq/host/PQCollection.h"
#include "pantiq/host/PQComponent.h"
#include "pantiq/host/PQTextLiteral.h"

namespace pantiq {
namespace {

bool IsNameByte(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
}

// What a path can lead to, or through on its way to a pin.
std::vector<std::string> Names(const TPersistent& object, const PQProperty* held_by, bool pins) {
  const bool of_list = held_by != nullptr && held_by->kind == PQKind::PinList;
  std::vector<std::string> names;
  for (const PQProperty& p : PQAllProperties(object, held_by)) {
    const bool leads_on = p.kind == PQKind::Pin || p.kind == PQKind::PinList || p.kind == PQKind::Collection;
    if (!pins || of_list || leads_on) names.push_back(p.name);
  }
  return names;
}

std::string ListOf(const std::vector<std::string>& names, const char* what) {
  if (names.empty()) return std::string("no ") + what + ", there are none";
  std::string text = "one of ";
  for (std::size_t i = 0; i < names.size() && i < 40; ++i) {
    if (i != 0) text += ", ";
    text += PQPathName(names[i]);
  }
  if (names.size() > 40) text += ", ...";
  return text;
}

}  // namespace

PQStatus PQParsePath(std::string_view text, std::vector<PQPathStep>& steps, std::size_t* fault_at) {
  const auto fail = [&](std::size_t at, const char* expected) -> PQStatus {
    if (fault_at != nullptr) *fault_at = at;
    return {PQCode::BadFormat, "'" + std::string(text) + "' is no path; expected " + expected};
  };
  std::size_t pos = 0;
  for (bool first = true; first || pos < text.size(); first = false) {
    PQPathStep step;
    step.begin = pos;
    if (!first && text[pos] == '[') {
      const char* const begin = text.data() + pos + 1;
      const char* const end = text.data() + text.size();
      const auto result = std::from_chars(begin, end, step.index);
      if (result.ec != std::errc{} || result.ptr == end || *result.ptr != ']' || step.index < 0) {
        return fail(pos, "an index from 0 in brackets, as [0]");
      }
      pos = static_cast<std::size_t>(result.ptr + 1 - text.data());
    } else {
      if (!first) {
        if (text[pos] != '.') return fail(pos, "a point or an index between names, as Region.Left or Items[0].Name");
        step.begin = ++pos;
      }
      if (pos < text.size() && text[pos] == '\'') {
        const std::size_t length = PQUnquote(text.substr(pos), step.name);
        if (length == 0 || step.name.empty()) return fail(pos, "a name in single quotes");
        pos += length;
      } else {
        const std::size_t begin = pos;
        while (pos < text.size() && IsNameByte(text[pos])) ++pos;
        if (pos == begin) return fail(pos, "a name of letters, digits and underscores, others in single quotes");
        step.name = text.substr(begin, pos - begin);
      }
    }
    step.length = pos - step.begin;
    steps.push_back(std::move(step));
  }
  return {};
}

std::string PQPathName(std::string_view name) { return PQIsIdentifier(name) ? std::string(name) : PQQuote(name); }

namespace {

bool Follow(TPersistent& root, const std::vector<PQPathStep>& steps, bool make_items, bool pins, PQPathEnd& end,
            PQFault& fault) {
  const char* const what = pins ? "pin" : "property";
  TPersistent* object = &root;
  PQProperty holder;  // what `object` is the thing of, below the root
  const PQProperty* held_by = nullptr;
  std::string path;  // so far, for messages
  const auto fail = [&](const PQPathStep& step, std::string value, std::string expected, std::string nearest) {
    fault.column = static_cast<int>(step.begin) + 1;
    fault.length = static_cast<int>(step.length);
    fault.text = (path.empty() ? std::string() : path + ": ") + value + "; expected " + expected;
    if (!nearest.empty()) fault.text += "; nearest is '" + nearest + "'";
    fault.property = path;
    fault.expected = std::move(expected);
    fault.nearest = std::move(nearest);
    fault.value = step.name.empty() ? std::to_string(step.index) : step.name;
    return false;
  };
  for (std::size_t i = 0; i < steps.size(); ++i) {
    const PQPathStep& step = steps[i];
    const bool last = i + 1 == steps.size();
    if (step.name.empty()) {
      const std::string here = "[" + std::to_string(step.index) + "]";
      if (TCollection* collection = PQCast<TCollection>(object)) {
        if (collection->GetItem(step.index) == nullptr) {
          if (!make_items || step.index >= kPQMostItems) {
            const std::string most = std::to_string(make_items ? kPQMostItems - 1 : collection->GetCount() - 1);
            return fail(step, "there is no item " + here,
                        !make_items && collection->GetCount() == 0 ? "items first" : "an index from 0 to " + most, {});
          }
          while (collection->GetCount() <= step.index) {
            const int count = collection->GetCount();
            collection->Add();
            if (collection->GetCount() <= count)
              return fail(step, "no item " + here + " can be made", "fewer items", {});
          }
        }
        path += here;
        object = collection->GetItem(step.index);
        held_by = nullptr;
        if (last) return fail(step, "an item alone takes no value", "a property of it, as [0].Property", {});
        continue;
      }
      std::vector<PQProperty> own = object->InstanceProperties();
      if (held_by != nullptr && held_by->parts) {
        for (PQProperty& p : held_by->parts(*object)) own.push_back(std::move(p));
      }
      if (static_cast<std::size_t>(step.index) >= own.size()) {
        if (object->HasUntoldProperties()) {
          fault.severity = PQSeverity::Note;
          return fail(step, "number " + std::to_string(step.index) + " cannot be checked now",
                      "a property that shows up at run time", {});
        }
        return fail(step, "there is nothing of number " + std::to_string(step.index),
                    own.empty() ? "a property by its name" : "an index from 0 to " + std::to_string(own.size() - 1),
                    {});
      }
      end.property = std::move(own[static_cast<std::size_t>(step.index)]);
      path += here;
    } else {
      std::optional<PQProperty> found = PQFindProperty(*object, step.name, held_by);
      if (!found) {
        if (object->HasUntoldProperties()) {
          fault.severity = PQSeverity::Note;
          return fail(step, PQPathName(step.name) + " cannot be checked now", "a property that shows up at run time",
                      {});
        }
        if (PQCast<TCollection>(object) != nullptr) {
          return fail(step, "this is a collection", "the number of an item first, as [0]." + PQPathName(step.name), {});
        }
        const std::vector<std::string> names = Names(*object, held_by, pins);
        const bool of_list = held_by != nullptr && held_by->kind == PQKind::PinList;
        const std::string where = of_list ? std::string() : " in " + object->ClassInfo().Name();
        return fail(step, std::string("there is no ") + what + " '" + step.name + "'" + where, ListOf(names, what),
                    PQNearest(step.name, names));
      }
      end.property = std::move(*found);
      if (!path.empty()) path += '.';
      path += PQPathName(step.name);
    }
    end.object = object;
    if (last) {
      if (!pins || end.property.kind == PQKind::Pin || end.property.kind == PQKind::PinList) return true;
      const std::vector<std::string> names = Names(*object, held_by, true);
      return fail(step, "this is no pin", ListOf(names, what), {});
    }
    TPersistent* inner = end.property.object ? end.property.object(*object) : nullptr;
    if (inner == nullptr) {
      return fail(steps[i + 1], end.property.type_name + " has no properties of its own", "a value right here", {});
    }
    object = inner;
    holder = end.property;
    held_by = &holder;
  }
  return false;
}

}  // namespace

bool PQFollowPath(TPersistent& root, const std::vector<PQPathStep>& steps, bool make_items, PQPathEnd& end,
                  PQFault& fault) {
  return Follow(root, steps, make_items, false, end, fault);
}

bool PQFollowPinPath(TPersistent& root, const std::vector<PQPathStep>& steps, bool make_items, PQPathEnd& end,
                     PQFault& fault) {
  return Follow(root, steps, make_items, true, end, fault);
}

std::vector<std::pair<int, int>> PQPathOrder(TPersistent& root, const std::vector<PQPathStep>& steps) {
  std::vector<std::pair<int, int>> order;
  TPersistent* object = &root;
  for (const PQPathStep& step : steps) {
    if (step.name.empty() || object == nullptr) break;
    const std::vector<PQProperty> all = PQAllProperties(*object);
    const PQProperty* found = nullptr;
    for (std::size_t i = 0; i < all.size() && found == nullptr; ++i) {
      if (all[i].name != step.name) continue;
      found = &all[i];
      order.emplace_back(found->order, static_cast<int>(i));
    }
    if (found == nullptr) {
      order.emplace_back(INT_MAX, 0);
      break;
    }
    object = found->kind == PQKind::Object && found->object ? found->object(*object) : nullptr;
  }
  return order;
}

}  // namespace pantiq
