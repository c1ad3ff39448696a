// Graphs as they come from the command line, and what is said about their faults.
#pragma once
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "pantiq/core/PQGraph.h"
#include "pantiq/host/PQFault.h"

namespace pantiq::app {

// A graph and the text that it came from.
struct GivenGraph {
  std::string file;    // the graph file's name; empty for a launch line
  std::string source;  // the launch line, or the text of the file
  std::unique_ptr<PQGraph> graph;
  std::vector<PQFault> faults;
  bool Faultless() const;  // warnings are no faults
};

// One word: a launch line, or a graph file if the word ends in .pqg or names a file. Several words are joined to a
// launch line; a word that is a value gets the quotes back which the shell took off.
std::string JoinWords(std::span<const std::string> words);

// Parses or loads, and checks. Faults are collected, not printed. `designing`: the graph is looked at, not run.
GivenGraph ReadGraph(std::span<const std::string> words, bool designing = false);

// The same for what must be a graph file.
GivenGraph ReadGraphFile(const std::string& file, bool designing = false);

// Each fault as one line, then the line that it stands in with a caret under its place.
void PrintFaults(const GivenGraph& given);
std::string FaultText(const GivenGraph& given, const PQFault& fault);

// Gives faults that name a value but have no place the place where that value stands in the source, if it stands there
// once.
void FindPlaces(std::string_view source, std::span<PQFault> faults);

// True if the launch line has no faults and no warnings.
bool IsFaultless(const std::string& line);

}  // namespace pantiq::app
