#include "pantiq/core/JCStdTypes.h"

namespace pantiq {

constinit const PQClassTag TJCObject::kTag{"TJCObject", &TPersistent::kTag};
constinit const PQClassTag IJCNotifyOperation::kTag{"IJCNotifyOperation", nullptr};
constinit const PQClassTag TJCNotifyOperation::kTag{"TJCNotifyOperation", &IJCNotifyOperation::kTag};
constinit const PQClassTag TJCStartOperation::kTag{"TJCStartOperation", &TJCNotifyOperation::kTag};
constinit const PQClassTag TJCStopOperation::kTag{"TJCStopOperation", &TJCNotifyOperation::kTag};
constinit const PQClassTag TJCPumpRequestOperation::kTag{"TJCPumpRequestOperation", &TJCNotifyOperation::kTag};
constinit const PQClassTag TJCStartPumpOperation::kTag{"TJCStartPumpOperation", &TJCNotifyOperation::kTag};
constinit const PQClassTag TJCMasterPumpOperation::kTag{"TJCMasterPumpOperation", &TJCNotifyOperation::kTag};
constinit const PQClassTag TJCQueryStreamOperation::kTag{"TJCQueryStreamOperation", &TJCNotifyOperation::kTag};
constinit const PQClassTag TJCIgnoreStreamOperation::kTag{"TJCIgnoreStreamOperation", &TJCNotifyOperation::kTag};
constinit const PQClassTag TJCBoolOperation::kTag{"TJCBoolOperation", &TJCNotifyOperation::kTag};
constinit const PQClassTag TJCFloatOperation::kTag{"TJCFloatOperation", &TJCNotifyOperation::kTag};
constinit const PQClassTag TJCClockOperation::kTag{"TJCClockOperation", &TJCNotifyOperation::kTag};

TJCGlobalLockObject& JCGlobalLock() {
  static auto* const lock = new TJCGlobalLockObject;  // never destroyed: threads may hold it at exit
  return *lock;
}

}  // namespace pantiq
