#include "pantiq/filters/PQJaehneGen.h"

#include "pantiq/host/PQRegistry.h"
#include "pantiq/kernels/PQDispatcher.h"

namespace pantiq {

constinit const PQClassTag TPQJaehneGen::kTag{"TPQJaehneGen", &TPQCommonGen::kTag};

const PQClassInfo& TPQJaehneGen::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQJaehneGen>("TPQJaehneGen", "PQJaehneGen", "Makes frames with rings that grow denser from the centre.")
          .Inherits<TPQCommonGen>()
          .Done();
  return info;
}

void TPQJaehneGen::GenerateFrame(PQImageRef& buffer) {
  PQ_SLOT(ippiImageJaehne_8u_C3R)(buffer->Write(), buffer->GetStep(), buffer->GetSize());
}

void PQJaehneGen::Register() {
  const PQClassInfo* const classes[] = {&TPQJaehneGen::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
