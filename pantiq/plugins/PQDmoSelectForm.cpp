#include "pantiq/plugins/PQDmoSelectForm.h"

#include <utility>

namespace pantiq {
namespace {

PQDmoSelectFormMaker& Maker() {
  static auto* const maker = new PQDmoSelectFormMaker;  // never destroyed, like all that programs install
  return *maker;
}

}  // namespace

void SetDmoSelectForm(PQDmoSelectFormMaker maker) { Maker() = std::move(maker); }

std::unique_ptr<THTDSDmoSelectForm> MakeDmoSelectForm() { return Maker() ? Maker()() : nullptr; }

}  // namespace pantiq
