#include "pantiq/filters/PQChangeFormat.h"

#include "pantiq/host/PQRegistry.h"

namespace pantiq {

constinit const PQClassTag TPQChangeFormat::kTag{"TPQChangeFormat", &TPQCommonFilter::kTag};

const PQClassInfo& TPQChangeFormat::Class() {
  static const PQClassInfo& info =
      PQDescribe<TPQChangeFormat>("TPQChangeFormat", "PQChangeFormat", "Gives frames another pixel format.")
          .Inherits<TPQCommonFilter>()
          .Property("Format", &TPQChangeFormat::GetFormat, &TPQChangeFormat::SetFormat, PQDefault(vfRGB24), PQActs::NextFrame,
                    PQBareValue{},
                    "The format of the frames that go out: vfRGB24, vfYUY2 or vfGrayScale; vfUnspecified counts as vfRGB24.")
          .Done();
  return info;
}

TPQVideoFormat TPQChangeFormat::GetFormat() const {
  auto section = Lock().ReadLock();
  return format_;
}

void TPQChangeFormat::SetFormat(TPQVideoFormat format) {
  auto section = Lock().WriteLock();
  format_ = format >= vfUnspecified ? vfRGB24 : format;
}

void TPQChangeFormat::FilterInternalOperation(const PQImageRef&, PQImageRef& out) { out->SetFormat(GetFormat()); }

void PQChangeFormat::Register() {
  const PQClassInfo* const classes[] = {&TPQChangeFormat::Class()};
  RegisterComponents(kPantiqPage, classes);
}

}  // namespace pantiq
