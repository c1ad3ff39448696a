// The text form of an object's published properties: the body of a graph file. Values that equal their default are not
// written; PQTextDocument.h shows the form.
//
// Links between components (connected pins) name objects that may not exist yet. Readers hand them back, and whoever
// owns the components connects them when all are there.
#pragma once
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "pantiq/host/PQFault.h"
#include "pantiq/host/PQPath.h"
#include "pantiq/host/PQPersistent.h"
#include "pantiq/host/PQTextDocument.h"

namespace pantiq {

// One setting on its way to an object, from whatever text it came.
struct PQTextSetting {
  std::string path, value;
  int line = 0, column = 0;                // of the path, from 1; column 0: the text of the path stands nowhere
  int value_line = 0, value_column = 0;    // of the value
  const PQTextNode* collection = nullptr;  // instead of a value: the items of a collection
};

// A connection that was read: the pin, where its path stands, and the text of the other end. Lists of pins may grow
// with each connection: a pin that its list does not have (yet) is left to whoever connects, with a null `pin.object`.
struct PQTextLink {
  PQPathEnd pin;
  PQTextSetting setting;
  std::string
      prefix;  // the path of the collection's item that setting.path begins at; empty, or with a point at its end
};

// Sets properties in their order (PQPathOrder), collects links and appends what is wrong to `faults`. `name` is the
// component's name for messages. Whatever can be set is set, whether or not there are faults. Owner-thread.
PQ_EXPORT void PQApplyText(TPersistent& object, std::string_view name, std::vector<PQTextSetting> settings,
                           std::vector<PQTextLink>& links, std::vector<PQFault>& faults);

// The settings in the children of a block.
PQ_EXPORT std::vector<PQTextSetting> PQSettingsOf(const PQTextNode& block);

// Reads a text of properties into an object.
PQ_EXPORT void PQReadText(std::string_view text, TPersistent& object, std::vector<PQTextLink>& links,
                          std::vector<PQFault>& faults);

// The text of an object's properties, each line indented by `indent` blanks.
PQ_EXPORT std::string PQWriteText(const TPersistent& object, int indent = 0);

struct PQTextUpdate {
  int indent = 2;
  // True if two texts of links mean the same pin; empty: if they are equal.
  std::function<bool(const std::string& written, const std::string& present)> same_link;
  // True to write pictures that have a file's name as that name; false to write all pictures themselves.
  bool pictures_by_name = true;
};

// Brings a block that was read (or an empty one) up to the object's present values: lines whose value still holds stay
// as they were written, others get the present value, and lines of values that are the default by now are removed.
// Properties that the object does not know are kept.
PQ_EXPORT void PQUpdateText(PQTextNode& block, const TPersistent& object, const PQTextUpdate& how);

// True if the object's value is the property's default and need not be stored. A property without a default has none.
PQ_EXPORT bool PQIsDefault(const PQProperty& property, const TPersistent& object, const PQValue& value);

// The default of a sub-property inside an object property: what the outer property says, else the inner one's own.
PQ_EXPORT PQProperty PQWithOuterDefault(const PQProperty* outer, PQProperty inner);

}  // namespace pantiq
