// What the files of a graph have to be before it runs: inputs are there and readable; outputs can be written, do not
// replace anything unless that was asked for, and are no inputs. Nothing is opened for writing and nothing is changed.
#pragma once
#include <span>
#include <vector>

#include "pantiq/host/PQComponent.h"
#include "pantiq/host/PQFault.h"

namespace pantiq::app {

// Appends one fault for each file that is wrong. The files are those that properties name which are described with
// PQFile.
void CheckFiles(std::span<TComponent* const> components, bool overwrite, std::vector<PQFault>& faults);

// True if a sink of the program among them writes to standard output.
bool UsesStandardOutput(std::span<TComponent* const> components);

// Why a file cannot be written there; empty if it can.
std::string WhyNotWritable(const std::string& name, bool overwrite);

}  // namespace pantiq::app
