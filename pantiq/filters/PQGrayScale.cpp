#include "pantiq/filters/PQGrayScale.h"

#include "pantiq/host/PQRegistry.h"

namespace pantiq {

constinit const PQClassTag TPQGrayScale::kTag{"TPQGrayScale", &TPQCommonFilter::kTag};

const PQClassInfo& TPQGrayScale::Class() {
  static const PQClassInfo& info = PQDescribe<TPQGrayScale>("TPQGrayScale", "PQGrayScale", "Turns frames into gray ones.")
                                       .Inherits<TPQCommonFilter>()
                                       .Done();
  return info;
}

void TPQGrayScale::FilterInternalOperation(const PQImageRef& in, PQImageRef& out) {
  out->Assign(*in);
  out->SetFormat(vfGrayScale);
}

void PQGrayScale::Register() {
  const PQClassInfo* const classes[] = {&TPQGrayScale::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
