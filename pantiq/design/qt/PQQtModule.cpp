// The module's exported function.
#include "pantiq/design/qt/PQQtApplication.h"
#include "pantiq/design/qt/PQQtMorphShapeForm.h"

namespace pantiq::qt {
namespace {

class Module final : public PQDialogModule {
 public:
  PQModalResult ShowMorphShapeForm(IPQMorphShapeForm& form, PQPlatformResult& result) override {
    const Application application(result);
    return result.Ok() ? qt::ShowMorphShapeForm(form) : kModalNone;
  }
};

}  // namespace
}  // namespace pantiq::qt

extern "C" PQ_EXPORT pantiq::PQDialogModule* pantiq_dialog_module(int abi) {
  if (abi != pantiq::kDialogModuleAbi) return nullptr;
  static auto* module = new pantiq::qt::Module;  // lives as long as the process
  return module;
}
