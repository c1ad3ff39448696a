// The dialog that chooses an effect from a list. A program with a user interface brings its own form; without one there
// is nothing to choose with.
#pragma once
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "pantiq/PQExport.h"

namespace pantiq {

class PQ_EXPORT THTDSDmoSelectForm {
 public:
  virtual ~THTDSDmoSelectForm() = default;
  // What stands in the list; filled before Execute.
  std::vector<std::string> Items;
  // The chosen entry, an index into Items; -1 for none. Valid after Execute.
  int ItemIndex = -1;
  // Shows the list with `name` selected, if it is there, and waits. True if the user accepted.
  virtual bool Execute(const std::string& name) = 0;
};

using PQDmoSelectFormMaker = std::function<std::unique_ptr<THTDSDmoSelectForm>()>;

// Installs the maker of forms; empty: none. Belongs to the thread of the user interface, as does the call that shows
// one.
PQ_EXPORT void SetDmoSelectForm(PQDmoSelectFormMaker maker);
// Null if there is no maker.
PQ_EXPORT std::unique_ptr<THTDSDmoSelectForm> MakeDmoSelectForm();

}  // namespace pantiq
