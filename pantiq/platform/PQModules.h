// Finds and loads the modules of the library at first need. Nothing of an engine or a toolkit is loaded before.
#pragma once
#include <string>
#include <vector>

#include "pantiq/platform/PQCodecManager.h"
#include "pantiq/platform/PQDialogModule.h"
#include "pantiq/platform/PQMediaModule.h"

namespace pantiq {

// The media module (libpantiq-gst.so), loaded by the first call and kept for the life of the process. Null if it is not
// installed or does not load; `result` then says where it was looked for and which packages to install, and the next
// call tries again. Any thread.
//
// Looked for in this order: the folders of PANTIQ_MODULE_PATH (separated by colons), the folder of the program, the
// folder of the library, ../lib/pantiq beside each of these two, the build tree of a project around this one, the place of
// installation, /usr/lib/pantiq.
PQ_EXPORT PQMediaModule* LoadMediaModule(PQPlatformResult& result);

// Replaces the module by the caller's object (null: back to the module on disk). For tests, and for programs with an
// engine of their own. The object must outlive its use. Any thread.
PQ_EXPORT void SetMediaModule(PQMediaModule* module);

// The codec manager (libpantiq-av.so), in the same way.
PQ_EXPORT PQCodecManager* LoadCodecManager(PQPlatformResult& result);
PQ_EXPORT void SetCodecManager(PQCodecManager* manager);

// The dialog module (libpantiq-qt.so), in the same way.
PQ_EXPORT PQDialogModule* LoadDialogModule(PQPlatformResult& result);
PQ_EXPORT void SetDialogModule(PQDialogModule* module);

// The folders that are searched now, in order.
PQ_EXPORT std::vector<std::string> ModuleFolders();

}  // namespace pantiq
