// A plug-in in a process of its own, as the program sees it.
#pragma once
#include <functional>
#include <memory>
#include <string>

#include "pantiq/PQExport.h"
#include "pantiq/plugins/PQPluginLibrary.h"

namespace pantiq {

// Starts a plug-in host and loads the plug-in there. Null with a result if the host is not installed or cannot be
// started, or if the file is no plug-in. A plug-in that crashes or hangs while it is loaded gives a library that is
// lost already.
//
// The host's process ends with the library, and with this process, however this one ends. It has no other files of this
// process open than standard error, and writes what the plug-in prints there, too. Signals of the terminal don't reach
// it.
std::shared_ptr<PQPluginLibrary> PQLoadPluginIsolated(const std::string& file, PQPlatformResult& result);

// Waits until the descriptor can be read; false: it took longer than a plug-in may take.
using PQPluginWait = std::function<bool(int descriptor)>;
// Replaces the watchdog, which waits two seconds of time in which this process runs; empty: back to that. For tests.
PQ_EXPORT void SetPluginWait(PQPluginWait wait);

// The plug-in host's file: what PANTIQ_PLUGIN_HOST names, else pantiq-plugin-host in the first of the modules' folders
// that has it. Empty if there is none; `looked_in` then tells where that would have been.
PQ_EXPORT std::string PQFindPluginHost(std::string& looked_in);

}  // namespace pantiq
